#include "tav/vinta/detail/json_text.h"

#include "tav/vinta/detail/number_text.h"

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

void appendEscape(std::string & out, char c) {
    static constexpr char digits[] = "0123456789ABCDEF";
    auto const pair = [&out](char letter) {
        char const text[] = {'\\', letter};
        out.append(text, sizeof(text));
    };
    switch (c) {
    case '\0': out += c; break;
    case '\b': pair('b'); break;
    case '\f': pair('f'); break;
    case '\n': pair('n'); break;
    case '\r': pair('r'); break;
    case '\t': pair('t'); break;
    case '"':
    case '\\':
    case '/': pair(c); break;
    default:
        out.append("\\u00", 4);
        out += digits[static_cast<unsigned char>(c) >> 4];
        out += digits[static_cast<unsigned char>(c) & 15];
        break;
    }
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

} // namespace detail
} // namespace tav
