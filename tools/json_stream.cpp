#include "tools/json_stream.h"

#include "tools/failure.h"

#include <algorithm>

namespace tav {
namespace tool {

namespace {

constexpr std::size_t pieceSize = 64 * 1024;

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

/// Follows a text up to the end of the value that it begins with.
class Brackets {
public:
    bool inText() const { return quote_ != '\0'; }
    /// True if the value ends with this byte.
    bool take(char c) {
        if (escaped_) {
            escaped_ = false;
        } else if (quote_ != '\0') {
            escaped_ = c == '\\';
            quote_ = c == quote_ ? '\0' : quote_;
        } else if (c == '"' || c == '\'') {
            quote_ = c;
        } else if (c == '{' || c == '[') {
            ++depth_;
        } else if (c == '}' || c == ']') {
            return --depth_ == 0;
        }
        return false;
    }

private:
    std::size_t depth_ = 0;
    char quote_ = '\0';
    bool escaped_ = false;
};

/// What stands behind `front` in `text` up to the next one of `ends`; empty if `front` is not there.
std::string behind(std::string const & text, std::string const & front, std::string const & ends) {
    std::size_t const at = text.find(front);
    if (at == std::string::npos) {
        return {};
    }
    std::size_t const begin = at + front.size();
    return text.substr(begin, std::min(text.find_first_of(ends, begin), text.size()) - begin);
}

} // namespace

bool JsonStream::more() {
    buffer_.erase(0, begin_);
    end_ -= begin_;
    begin_ = 0;
    std::size_t const before = buffer_.size();
    buffer_.resize(before + pieceSize);
    buffer_.resize(before + file_.read(&buffer_[before], pieceSize));
    return buffer_.size() != before;
}

void JsonStream::advance(std::string_view text) {
    offsetHere_ += text.size();
    for (char const c : text) {
        lineHere_ += c == '\n' ? 1 : 0;
        columnHere_ = c == '\n' ? 1 : columnHere_ + ((static_cast<unsigned char>(c) & 0xC0u) == 0x80 ? 0 : 1);
    }
}

bool JsonStream::skipToValue() {
    for (;;) {
        std::size_t at = end_;
        while (at < buffer_.size() && (isBlank(buffer_[at]) || buffer_[at] == ',')) {
            ++at;
        }
        advance(std::string_view(buffer_).substr(end_, at - end_));
        begin_ = end_ = at;
        if (at < buffer_.size()) {
            return true;
        }
        if (!more()) {
            return false;
        }
    }
}

bool JsonStream::next(std::string_view & text) {
    begin_ = end_;
    bool const first = offsetHere_ == 0;
    if (!skipToValue()) {
        return false;
    }
    // A mark of the byte order says nothing of UTF-8.
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    bool const marked = first && buffer_[begin_] == mark.front();
    while (marked && buffer_.size() - begin_ < mark.size() && more()) {
    }
    if (marked && buffer_.compare(begin_, mark.size(), mark) == 0) {
        offsetHere_ += mark.size();
        end_ = begin_ + mark.size();
        if (!skipToValue()) {
            return false;
        }
    }
    line_ = lineHere_;
    column_ = columnHere_;
    offset_ = offsetHere_;
    if (buffer_[begin_] != '{' && buffer_[begin_] != '[') {
        fail(0, "a message is a JSON object");
    }
    Brackets brackets;
    std::size_t at = begin_;
    for (;;) {
        if (at == buffer_.size()) {
            std::size_t const taken = at - begin_;
            bool const tooLong = taken > limit_;
            if (tooLong || !more()) {
                fail(0, tooLong ? "a message of more than " + std::to_string(limit_) + " bytes"
                                : "the message that begins here does not end");
            }
            at = begin_ + taken;
        }
        if (buffer_[at] == '\n' && brackets.inText()) {
            fail(at - begin_, "a text has no line break in JSON: its quote is missing, or \\n is");
        }
        if (brackets.take(buffer_[at++])) {
            break;
        }
    }
    end_ = at;
    text = std::string_view(buffer_).substr(begin_, end_ - begin_);
    advance(text);
    return true;
}

/// Whoever goes on does so with the next line.
void JsonStream::fail(std::size_t at, std::string const & what) {
    Failure const failure(exitFound, told(at, "error", what));
    end_ = std::min(buffer_.find('\n', begin_), buffer_.size());
    advance(std::string_view(buffer_).substr(begin_, end_ - begin_));
    throw failure;
}

std::string JsonStream::told(std::size_t at, std::string const & kind, std::string const & what) const {
    std::string_view const text = std::string_view(buffer_).substr(begin_);
    TextPlace const place = tool::placeOf(text, at);
    unsigned long long const column = place.line == 1 ? column_ + place.column - 1 : place.column;
    return file_.name() + ":" + std::to_string(line_ + place.line - 1) + ":" + std::to_string(column) + ": " +
           kind + ": " + what + "\n" + caretAt(text, at);
}

std::vector<JsonMember> membersOf(std::string_view text) {
    std::vector<JsonMember> members;
    std::size_t at = 0;
    while (at < text.size()) {
        char const c = text[at];
        std::size_t const begin = at;
        std::string_view word;
        if (c == '"' || c == '\'') {
            for (++at; at < text.size() && text[at] != c; ++at) {
                at += text[at] == '\\' ? 1 : 0;
            }
            at = std::min(at + 1, text.size());
            word = text.substr(begin + 1, at - begin > 2 ? at - begin - 2 : 0);
        } else if (isBlank(c) || std::string_view("{}[]:,").find(c) != std::string_view::npos) {
            ++at;
            continue;
        } else {
            while (at < text.size() && !isBlank(text[at]) &&
                   std::string_view("{}[]:,").find(text[at]) == std::string_view::npos) {
                ++at;
            }
            word = text.substr(begin, at - begin);
        }
        std::size_t value = at;
        while (value < text.size() && isBlank(text[value])) {
            ++value;
        }
        if (value < text.size() && text[value] == ':') {
            for (++value; value < text.size() && isBlank(text[value]); ++value) {
            }
            members.push_back(JsonMember{word, begin, value});
            at = value;
        }
    }
    return members;
}

std::size_t placeOfFailure(std::string_view text, std::string const & reason) {
    for (char const * const front :
         {"pair value no end : ", "array value no end : ", "no name : ", "no value end : "}) {
        std::string_view const start = front;
        if (reason.compare(0, start.size(), start) == 0) {
            std::size_t const rest = reason.size() - start.size();
            return rest <= text.size() ? text.size() - rest : 0;
        }
    }
    std::string name = behind(reason, "field ", " ");
    std::string const value = behind(reason, " value ", ",");
    std::string const large = behind(reason, "large integer ", "\n");
    std::string const kind = behind(reason, "should not be json ", " ");
    if (reason.compare(0, 6, "field ") != 0) {
        name = behind(reason, "not found field name [", "]");
    }
    std::vector<JsonMember> const members = membersOf(text);
    JsonMember const * nearest = nullptr;
    for (JsonMember const & member : members) {
        bool const isClass = reason.compare(0, 20, "meta class not found") == 0 &&
                             (member.name == "__class__" || member.name == "__code__");
        if (member.name != name && !isClass) {
            continue;
        }
        nearest = nearest == nullptr ? &member : nearest;
        std::string_view const there = text.substr(member.valueAt);
        char const first = there.empty() ? '\0' : there.front();
        bool const quoted = first == '"' || first == '\'';
        std::string const wanted = value.empty() ? large : value;
        bool const fits = kind == "string"    ? quoted
                          : kind == "boolean" ? first == 't' || first == 'f'
                          : kind == "number"  ? (first >= '0' && first <= '9') || first == '-'
                                              : there.substr(quoted ? 1 : 0, wanted.size()) == wanted;
        if (fits) {
            nearest = &member;
            break;
        }
    }
    bool const unknown = reason.compare(0, 9, "not found") == 0;
    return nearest == nullptr ? 0 : unknown ? nearest->nameAt : nearest->valueAt;
}

} // namespace tool
} // namespace tav
