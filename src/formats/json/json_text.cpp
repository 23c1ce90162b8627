#include "formats/json/json_text.h"

#include "foundation/number_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tav {
namespace detail {

namespace {

/// Eight bytes at once.  A test sets the high bit of each byte that it finds; bits above the lowest one may
/// be set without reason.
struct Eight {
    explicit Eight(char const * at) { std::memcpy(&bytes, at, sizeof(bytes)); }

    std::uint64_t below(unsigned limit) const { return (bytes - ones * limit) & ~bytes & highs; }

    std::uint64_t equal(char c) const {
        std::uint64_t const zeros = bytes ^ (ones * static_cast<unsigned char>(c));
        return (zeros - ones) & ~zeros & highs;
    }

    static std::size_t first(std::uint64_t found) {
        return static_cast<std::size_t>(__builtin_ctzll(found)) / 8;
    }

    static constexpr std::uint64_t ones = 0x0101010101010101u;
    static constexpr std::uint64_t highs = 0x8080808080808080u;
    std::uint64_t bytes;
};
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the first byte must be the lowest of a word");

bool needsEscape(char c) {
    return static_cast<unsigned char>(c) < 32 || c == '"' || c == '\\' || c == '/';
}

std::uint64_t needEscape(Eight word) {
    return word.below(32) | word.equal('"') | word.equal('\\') | word.equal('/');
}

/// The first byte at or behind `at` that needs an escape, or NUL; `end` if there is none.
char const * findEscape(char const * begin, char const * at, char const * end) {
    for (; end - at >= 8; at += 8) {
        std::uint64_t const found = needEscape(Eight(at));
        if (found != 0) {
            return at + Eight::first(found);
        }
    }
    std::size_t const left = static_cast<std::size_t>(end - at);
    if (left != 0 && end - begin >= 8) {
        // The last eight bytes of the text, without those ahead of `at`.
        Eight word(end - 8);
        word.bytes >>= (8 - left) * 8;
        std::uint64_t const found = needEscape(word) & ((std::uint64_t(1) << left * 8) - 1);
        return found != 0 ? at + Eight::first(found) : end;
    }
    while (at != end && !needsEscape(*at)) {
        ++at;
    }
    return at;
}

/// The most bytes of one escape.
constexpr std::size_t escapeSize = 6;

/// Writes the escape of a byte and gives its end; NUL stands as it is.
char * writeEscape(char * to, char c) {
    static constexpr char digits[] = "0123456789ABCDEF";
    auto const pair = [to](char letter) {
        to[0] = '\\';
        to[1] = letter;
        return to + 2;
    };
    switch (c) {
    case '\0': *to = c; return to + 1;
    case '\b': return pair('b');
    case '\f': return pair('f');
    case '\n': return pair('n');
    case '\r': return pair('r');
    case '\t': return pair('t');
    case '"':
    case '\\':
    case '/': return pair(c);
    default:
        std::memcpy(to, "\\u00", 4);
        to[4] = digits[static_cast<unsigned char>(c) >> 4];
        to[5] = digits[static_cast<unsigned char>(c) & 15];
        return to + escapeSize;
    }
}

void appendEscape(std::string & out, char c) {
    char text[escapeSize];
    out.append(text, static_cast<std::size_t>(writeEscape(text, c) - text));
}

} // namespace

char const * findQuote(char const * at, char const * end, char quote) noexcept {
    for (; end - at >= 8; at += 8) {
        Eight const word(at);
        std::uint64_t const found = word.equal(quote) | word.equal('\\');
        if (found != 0) {
            return at + Eight::first(found);
        }
    }
    while (at != end && *at != quote && *at != '\\') {
        ++at;
    }
    return at;
}

void appendEscaped(std::string & out, std::string_view text) {
    char const * at = text.data();
    char const * const end = at + text.size();
    out += '"';
    while (at != end) {
        char const * const stop = findEscape(text.data(), at, end);
        out.append(at, static_cast<std::size_t>(stop - at));
        at = stop;
        if (at != end) {
            appendEscape(out, *at++);
        }
    }
    out += '"';
}

void appendUnescaped(std::string & out, std::string_view text) {
    if (betweenQuotes(text)) {
        text = text.substr(1, text.size() - 2);
    }
    for (;;) {
        std::size_t const run = text.find('\\');
        out.append(text.substr(0, run));
        if (run == std::string_view::npos) {
            return;
        }
        text.remove_prefix(run + 1);
        char const c = text.empty() ? '\0' : text[0];
        text.remove_prefix(text.empty() ? 0 : 1);
        switch (c) {
        case 'b': out += '\b'; break;
        case 'f': out += '\f'; break;
        case 'n': out += '\n'; break;
        case 'r': out += '\r'; break;
        case 't': out += '\t'; break;
        case 'u':
            appendNumber(out, readHexCode(text.substr(0, 4)));
            text.remove_prefix(text.size() < 4 ? text.size() : 4);
            break;
        default: out += c; break;
        }
    }
}

void JsonText::putEscaped(std::string_view text) {
    char const * at = text.data();
    char const * const end = at + text.size();
    // Whole words are written, so that there is room for one more than there are bytes.
    constexpr std::size_t word = sizeof(std::uint64_t);
    char * to = room(text.size() + word + 2);
    *to++ = '"';
    while (at != end) {
        std::uint64_t found = 0;
        while (end - at >= static_cast<std::ptrdiff_t>(word)) {
            Eight const eight(at);
            std::memcpy(to, &eight.bytes, word);
            found = needEscape(eight);
            std::size_t const plain = found != 0 ? Eight::first(found) : word;
            at += plain;
            to += plain;
            if (found != 0) {
                break;
            }
        }
        while (found == 0 && at != end && !needsEscape(*at)) {
            *to++ = *at++;
        }
        if (at != end) {
            at_ = to;
            to = room(static_cast<std::size_t>(end - at) + escapeSize + word + 2);
            to = writeEscape(to, *at++);
        }
    }
    *to++ = '"';
    at_ = to;
}

void JsonText::putNumber(double v) {
    put(NumberText(v).view());
}

void JsonText::grow(std::size_t size) {
    std::size_t const used = static_cast<std::size_t>(at_ - text_.data());
    // A string zeroes what it grows by: a piece at a time, which is still at hand when it is written.
    constexpr std::size_t piece = 8192;
    if (used + size > text_.capacity()) {
        text_.reserve(std::max(text_.capacity() * 2, used + size));
    }
    text_.resize(std::min(text_.capacity(), used + std::max(size, piece)));
    at_ = text_.data() + used;
    end_ = text_.data() + text_.size();
}

} // namespace detail
} // namespace tav
