#ifndef TAV_FORMATS_XML_XML_TEXT_H
#define TAV_FORMATS_XML_XML_TEXT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

/// Bytes, entities and CDATA of XML text.  Internal.
namespace tav {
namespace xml {
namespace detail {

inline constexpr std::string_view cdataBegin = "<![CDATA[";
inline constexpr std::string_view cdataEnd = "]]>";

/// What a byte can be, as bits.
inline constexpr unsigned char blankBit = 1;
inline constexpr unsigned char nameStartBit = 2;
inline constexpr unsigned char namePartBit = 4;
inline constexpr unsigned char hasEntityBit = 8;
inline constexpr unsigned char lineBreakBit = 16;

inline constexpr bool firstIsLowest = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

constexpr std::array<unsigned char, 256> classifyBytes() {
    std::array<unsigned char, 256> classes{};
    for (std::size_t c = 'a'; c <= 'z'; ++c) {
        classes[c] = classes[c - 'a' + 'A'] = nameStartBit | namePartBit;
    }
    classes[':'] = classes['_'] = nameStartBit | namePartBit;
    for (std::size_t c = '0'; c <= '9'; ++c) {
        classes[c] = namePartBit;
    }
    classes['-'] = classes['.'] = namePartBit;
    classes[' '] = classes['\t'] = blankBit;
    classes['\r'] = classes['\n'] = blankBit | lineBreakBit;
    classes['&'] = classes['"'] = classes['\''] = classes['<'] = classes['>'] = hasEntityBit;
    return classes;
}

inline constexpr std::array<unsigned char, 256> byteClasses = classifyBytes();

inline bool isOf(char c, unsigned bits) {
    return (byteClasses[static_cast<unsigned char>(c)] & bits) != 0;
}

/// Where the first byte of these classes stands; `end` if there is none.
inline char const * findOf(char const * begin, char const * end, unsigned bits) {
    while (begin != end && !isOf(*begin, bits)) {
        ++begin;
    }
    return begin;
}

/// Where the first byte that has an entity stands; `end` if there is none.
inline char const * findEntityByte(char const * at, char const * end) {
    // Eight at once.  What this finds has the high bit of its byte set; bits above the lowest one may be set
    // without reason, so the first byte has to be the lowest.
    constexpr std::uint64_t ones = 0x0101010101010101u;
    auto const zeros = [](std::uint64_t word) { return (word - ones) & ~word & (ones << 7); };
    for (; firstIsLowest && end - at >= 8; at += 8) {
        std::uint64_t word;
        std::memcpy(&word, at, sizeof(word));
        // '<' and '>' differ in one bit, and so do '&' and the apostrophe.
        std::uint64_t const found = zeros((word | ones << 1) ^ ones * '>') |
                                    zeros((word | ones) ^ ones * '\'') | zeros(word ^ ones * '"');
        if (found != 0) {
            return at + __builtin_ctzll(found) / 8;
        }
    }
    return findOf(at, end, hasEntityBit);
}

inline bool hasSpecialBytes(std::string_view text) {
    char const * const end = text.data() + text.size();
    return findEntityByte(text.data(), end) != end;
}

/// The entity of a byte that has one or is a line break.
inline std::string_view entityOf(char c) {
    switch (c) {
    case '&': return "&amp;";
    case '"': return "&quot;";
    case '\'': return "&apos;";
    case '<': return "&lt;";
    case '>': return "&gt;";
    case '\n': return "&#10;";
    default: return "&#13;";
    }
}

inline std::string_view upToNul(char const * text) {
    return text == nullptr ? std::string_view() : std::string_view(text);
}

/// Appends `text` with its entities; for a line break one only if that is asked for.
void appendEscaped(std::string & out, std::string_view text, bool lineBreaks);

/// Appends `text` with what its entities stand for.
void appendUnescaped(std::string & out, std::string_view text);

} // namespace detail
} // namespace xml
} // namespace tav

#endif
