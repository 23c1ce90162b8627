#ifndef TAV_FORMATS_JSON_JSON_SCANNER_H
#define TAV_FORMATS_JSON_JSON_SCANNER_H

#include "formats/json/json_text.h"

#include <array>
#include <cstddef>
#include <string_view>

/// The grammar of JSON texts, for all who read them.  Internal.
namespace tav {
namespace detail {

/// What is wrong with a text, and where.
struct JsonFault {
    enum Kind : unsigned char { none, root, name, value, object, array };

    Kind kind;
    /// What was left of the text.
    std::string_view rest;

    explicit operator bool() const { return kind != none; }
};

/// Steps through one text.  What it gives are views of the text.
class JsonScanner {
public:
    /// A name or a string.
    struct Piece {
        std::string_view text;
        /// The text has its quotes and escapes still in it, and is to be unescaped if it has two bytes or
        /// more.
        bool raw = false;
    };

    explicit JsonScanner(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

    bool atEnd() const { return at_ == end_; }
    bool atBracket() const { return atOneOf('{', '['); }
    bool atQuote() const { return at_ != end_ && isQuote(*at_); }
    std::string_view rest() const { return between(at_, end_); }

    /// Steps over the bracket under the cursor; true for an object's.
    bool takeBracket() { return *at_++ == '{'; }

    void skipBlanks() {
        // No blank is above this one, and most bytes are.
        char const * at = at_;
        while (at != end_ && static_cast<unsigned char>(*at) <= ' ' && is(*at, blankByte)) {
            ++at;
        }
        at_ = at;
    }

    /// The name up to its colon, empty if there is no value to read; false if there is no name.
    bool readName(Piece & name) {
        skipBlanks();
        if (atQuote()) {
            name = takeString();
            skipBlanks();
        } else {
            name.text = takeBare();
            name.raw = name.text.find('\\') != std::string_view::npos;
            if (name.text == "null") {
                name.text = std::string_view();
            }
        }
        if (!atOneOf(':', '}')) {
            return false;
        }
        if (*at_ == '}') {
            name = Piece();
        } else {
            ++at_;
        }
        return true;
    }

    /// The string whose quote is under the cursor.  The last quote may be missing.
    Piece takeString() {
        char const * const first = at_;
        char const quote = *at_;
        char const * const last = findQuote(at_ + 1, end_, quote);
        if (last != end_ && *last == quote) {
            at_ = last + 1;
            return Piece{between(first + 1, last), false};
        }
        at_ = last;
        while (at_ != end_ && *at_ != quote) {
            at_ += end_ - at_ >= 2 ? 2 : 1;
            at_ = findQuote(at_, end_, quote);
        }
        at_ += at_ != end_ ? 1 : 0;
        return Piece{between(first, at_), true};
    }

    /// A value that is neither a container nor a string; false if it does not end as values do.
    bool readToken(std::string_view & token) {
        token = takeBare();
        return at_ == end_ || *at_ == ',' || *at_ == '}' || *at_ == ']';
    }

    /// Reads what stands behind an item, and tells whether it ends the container.
    bool readEnd(bool object, bool & ended) {
        skipBlanks();
        if (!atOneOf(object ? '}' : ']', ',')) {
            return false;
        }
        ended = *at_++ != ',';
        return true;
    }

private:
    enum ByteClass : unsigned char { blankByte = 1, tokenByte = 2 };

    static constexpr std::array<unsigned char, 256> makeByteClasses() {
        std::array<unsigned char, 256> classes{};
        for (char const c : std::string_view(" \t\r\n")) {
            classes[static_cast<unsigned char>(c)] = blankByte;
        }
        for (char const c : std::string_view("{}[]:,\"'")) {
            classes[static_cast<unsigned char>(c)] = tokenByte;
        }
        return classes;
    }

    static bool is(char c, ByteClass which) {
        static constexpr std::array<unsigned char, 256> classes = makeByteClasses();
        return classes[static_cast<unsigned char>(c)] == which;
    }

    static std::string_view between(char const * first, char const * last) {
        return std::string_view(first, static_cast<std::size_t>(last - first));
    }

    bool atOneOf(char a, char b) const { return at_ != end_ && (*at_ == a || *at_ == b); }

    std::string_view takeBare() {
        skipBlanks();
        char const * const first = at_;
        while (at_ != end_ && !is(*at_, tokenByte)) {
            ++at_;
        }
        char const * last = at_;
        while (last != first && is(last[-1], blankByte)) {
            --last;
        }
        return between(first, last);
    }

    char const * at_;
    char const * end_;
};

/// Finds what is wrong with a text and keeps nothing of it but one bit for each container that is open.
JsonFault findJsonFault(std::string_view text);

/// Raises what JsonParser::from raises for such a fault.
[[noreturn]] void raiseJsonFault(JsonFault const & fault);

/// Reads a text into a builder, which has
/// - open(bool object, Piece name): a container begins, in the one that was opened last and is not closed;
/// - string(Piece name, Piece text) and token(Piece name, std::string_view text): a value; in an array the
/// name
///   is empty;
/// - close(bool & object): the last container ends; sets what the one around it is, and is false if there is
///   none;
/// - outgrows(): whether it has come to cost so much that the text has to be known as good, and trust(),
/// which
///   is told once when it is.  So a text that must fail costs little, whatever stands in it.
/// The containers that are open are the builder's, so that the stack is the same at any depth.
template <class Builder>
JsonFault readJson(std::string_view text, Builder & to) {
    JsonScanner in(text);
    auto const fault = [&in](JsonFault::Kind kind) { return JsonFault{kind, in.rest()}; };
    in.skipBlanks();
    if (!in.atBracket()) {
        return fault(JsonFault::root);
    }
    bool object = in.takeBracket();
    to.open(object, JsonScanner::Piece());
    for (;;) {
        // A text may end ahead of an item: that ends the container.
        bool ended = in.atEnd();
        if (!ended) {
            JsonScanner::Piece name;
            if (object && !in.readName(name)) {
                return fault(JsonFault::name);
            }
            if (!object || !name.text.empty()) {
                in.skipBlanks();
                bool const opens = in.atBracket();
                std::string_view token;
                if (opens) {
                    object = in.takeBracket();
                    to.open(object, name);
                } else if (in.atQuote()) {
                    to.string(name, in.takeString());
                } else if (in.readToken(token)) {
                    to.token(name, token);
                } else {
                    return fault(JsonFault::value);
                }
                if (to.outgrows()) {
                    if (JsonFault const found = findJsonFault(text)) {
                        return found;
                    }
                    to.trust();
                }
                if (opens) {
                    continue;
                }
            }
            if (!in.readEnd(object, ended)) {
                return fault(object ? JsonFault::object : JsonFault::array);
            }
        }
        while (ended) {
            if (!to.close(object)) {
                return fault(JsonFault::none);
            }
            if (!in.readEnd(object, ended)) {
                return fault(object ? JsonFault::object : JsonFault::array);
            }
        }
    }
}

} // namespace detail
} // namespace tav

#endif
