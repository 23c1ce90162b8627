#ifndef TAV_TOOLS_UTF8_H
#define TAV_TOOLS_UTF8_H

#include <cstddef>
#include <string_view>

namespace tav {
namespace tool {

/// The bytes of the character of UTF-8 that the text begins with; 0 if it begins with none.
inline std::size_t utf8Character(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    auto const byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned char const first = byte(0);
    std::size_t const size = first < 0x80                     ? 1
                             : first >= 0xC2 && first <= 0xDF ? 2
                             : first >= 0xE0 && first <= 0xEF ? 3
                             : first >= 0xF0 && first <= 0xF4 ? 4
                                                              : 0;
    if (size == 0 || size > text.size()) {
        return 0;
    }
    for (std::size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xC0u) != 0x80) {
            return 0;
        }
    }
    // Neither a longer form of a shorter character, nor a half of a pair, nor beyond the last one.
    bool const bad = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F) ||
                     (first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F);
    return bad ? 0 : size;
}

} // namespace tool
} // namespace tav

#endif
