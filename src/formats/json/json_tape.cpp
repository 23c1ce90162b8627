#include "formats/json/json_tape.h"

#include "formats/json/json_text.h"
#include "foundation/report.h"
#include "foundation/views.h"

#include <algorithm>
#include <array>

namespace tav {
namespace detail {

namespace {

enum ByteClass : unsigned char { other, blank, token };

constexpr std::array<ByteClass, 256> makeByteClasses() {
    std::array<ByteClass, 256> classes{};
    for (char const c : std::string_view(" \t\r\n")) {
        classes[static_cast<unsigned char>(c)] = blank;
    }
    for (char const c : std::string_view("{}[]:,\"'")) {
        classes[static_cast<unsigned char>(c)] = token;
    }
    return classes;
}

constexpr std::array<ByteClass, 256> byteClasses = makeByteClasses();

ByteClass classOf(char c) {
    return byteClasses[static_cast<unsigned char>(c)];
}

std::string_view between(char const * first, char const * last) {
    return std::string_view(first, static_cast<std::size_t>(last - first));
}

/// Room for the nodes of most texts of this size.
std::size_t usualNodes(std::size_t size) {
    return std::min<std::size_t>(size / 12 + 4, 0x10000);
}

} // namespace

JsonTape::JsonTape(tav_istr json) {
    std::string_view const text = bytesOf(json);
    at_ = text.data();
    end_ = at_ + text.size();
    nodes_.reserve(usualNodes(text.size()));
    if (!read()) {
        // The parser refuses the same texts, and knows what to say of each.
        json::JsonParser::from(json);
        raise(here("tav::json::JsonParser::from"), "not object or array");
    }
}

/// False for a text that is refused, like all that follow.
bool JsonTape::read() {
    skipBlanks();
    if (!atOneOf('{', '[')) {
        return false;
    }
    open(std::string_view());
    while (open_ != none) {
        // A text may end ahead of an item: that ends the container.
        bool ended = at_ == end_;
        if (!ended) {
            unsigned const around = open_;
            if (!readItem()) {
                return false;
            }
            if (open_ != around) {
                continue;
            }
            if (!readEnd(ended)) {
                return false;
            }
        }
        while (ended) {
            Node & closed = nodes_[open_];
            open_ = closed.next;
            closed.next = static_cast<unsigned>(nodes_.size());
            if (open_ == none) {
                break;
            }
            if (!readEnd(ended)) {
                return false;
            }
        }
    }
    return true;
}

/// Reads an element, or a name and its value.  A container is only opened.
bool JsonTape::readItem() {
    std::string_view name;
    if (nodes_[open_].type == JsonFieldObject) {
        if (!readName(name)) {
            return false;
        }
        if (name.empty()) {
            return true;
        }
    }
    skipBlanks();
    if (atOneOf('{', '[')) {
        open(name);
        return true;
    }
    return readSimple(name);
}

/// Reads what stands behind an item, and tells whether it ends the container.
bool JsonTape::readEnd(bool & ended) {
    skipBlanks();
    if (!atOneOf(nodes_[open_].type == JsonFieldObject ? '}' : ']', ',')) {
        return false;
    }
    ended = *at_++ != ',';
    return true;
}

/// The name up to its colon; empty if there is no value to read.
bool JsonTape::readName(std::string_view & name) {
    skipBlanks();
    if (at_ != end_ && isQuote(*at_)) {
        name = takeQuoted();
        skipBlanks();
    } else {
        name = takeToken();
        if (name == "null") {
            name = std::string_view();
        } else if (name.find('\\') != std::string_view::npos) {
            name = unescaped(name);
        }
    }
    if (!atOneOf(':', '}')) {
        return false;
    }
    if (*at_ == '}') {
        name = std::string_view();
    } else {
        ++at_;
    }
    return true;
}

/// A value that is no container.  Of a null nothing is kept in an array.
bool JsonTape::readSimple(std::string_view name) {
    if (at_ != end_ && isQuote(*at_)) {
        append(JsonFieldString, name, takeQuoted());
        return true;
    }
    std::string_view const text = takeToken();
    if (at_ != end_ && *at_ != ',' && *at_ != '}' && *at_ != ']') {
        return false;
    }
    if (text.empty() || text == "null") {
        if (nodes_[open_].type == JsonFieldObject) {
            append(JsonFieldNull, name, std::string_view());
        }
        return true;
    }
    char const digit = text[0] == '-' && text.size() >= 2 ? text[1] : text[0];
    if (digit >= '0' && digit <= '9') {
        append(JsonFieldNumber, name, text);
    } else if (text == "true" || text == "false") {
        append(JsonFieldBoolean, name, text, text == "true");
    } else {
        append(JsonFieldString, name, text);
    }
    return true;
}

/// Takes the bracket under the cursor.
void JsonTape::open(std::string_view name) {
    unsigned const around = open_;
    open_ = static_cast<unsigned>(nodes_.size());
    append(*at_ == '{' ? JsonFieldObject : JsonFieldArray, name, std::string_view());
    nodes_[open_].next = around;
    ++at_;
}

void JsonTape::append(JsonFieldType type, std::string_view name, std::string_view text, bool truth) {
    nodes_.push_back(Node{type, truth, static_cast<unsigned>(nodes_.size()) + 1, name, text});
}

/// The string whose quote is under the cursor, up to the same quote or the end of the text.
std::string_view JsonTape::takeQuoted() {
    char const * const first = at_;
    char const quote = *at_++;
    char const * const last = findQuote(at_, end_, quote);
    if (last != end_ && *last == quote) {
        std::string_view const plain = between(at_, last);
        at_ = last + 1;
        return plain;
    }
    at_ = last;
    while (at_ != end_ && *at_ != quote) {
        at_ += end_ - at_ >= 2 ? 2 : 1;
        at_ = findQuote(at_, end_, quote);
    }
    at_ += at_ != end_ ? 1 : 0;
    return unescaped(between(first, at_));
}

std::string_view JsonTape::takeToken() {
    skipBlanks();
    char const * const first = at_;
    while (at_ != end_ && classOf(*at_) != token) {
        ++at_;
    }
    char const * last = at_;
    while (last != first && classOf(last[-1]) == blank) {
        --last;
    }
    return between(first, last);
}

std::string_view JsonTape::unescaped(std::string_view text) {
    if (text.size() < 2) {
        return text;
    }
    unescaped_.emplace_front();
    appendUnescaped(unescaped_.front(), text);
    return unescaped_.front();
}

void JsonTape::skipBlanks() {
    while (at_ != end_ && classOf(*at_) == blank) {
        ++at_;
    }
}

} // namespace detail
} // namespace tav
