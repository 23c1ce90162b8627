#include "tools/terminal_text.h"

#include "tools/utf8.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

namespace tav {
namespace tool {

namespace {

struct Range {
    char32_t first;
    char32_t last;
};

/// Marks that stand on the character ahead of them, or are not seen.
constexpr Range narrow[] = {{0x0300, 0x036F}, {0x0483, 0x0489},  {0x0591, 0x05BD}, {0x064B, 0x065F},
                            {0x0E34, 0x0E3A}, {0x1AB0, 0x1AFF},  {0x1DC0, 0x1DFF}, {0x200B, 0x200D},
                            {0x20D0, 0x20FF}, {0x3099, 0x309A},  {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F},
                            {0xFEFF, 0xFEFF}, {0xE0100, 0xE01EF}};
constexpr Range wide[] = {{0x1100, 0x115F},   {0x2E80, 0x303E},   {0x3041, 0x33FF},  {0x3400, 0x4DBF},
                          {0x4E00, 0x9FFF},   {0xA000, 0xA4CF},   {0xAC00, 0xD7A3},  {0xF900, 0xFAFF},
                          {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},   {0xFFE0, 0xFFE6},  {0x1F300, 0x1F64F},
                          {0x1F680, 0x1F6FF}, {0x1F900, 0x1F9FF}, {0x20000, 0x3FFFD}};
/// The controls above ASCII: those of 8 bits, line and paragraph, and what sets the direction.
constexpr Range controls[] = {
    {0x80, 0x9F}, {0x61C, 0x61C}, {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069}};

template <std::size_t N>
bool isIn(Range const (&ranges)[N], char32_t number) {
    return std::any_of(std::begin(ranges), std::end(ranges), [number](Range const & range) {
        return number >= range.first && number <= range.last;
    });
}

std::string escapeOf(char const * form, unsigned value) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), form, value);
    return text.data();
}

} // namespace

Character characterOf(std::string_view text) {
    Character result;
    result.size = utf8Character(text);
    if (result.size == 0) {
        return result;
    }
    auto const first = static_cast<unsigned char>(text.front());
    result.number = result.size == 1 ? first : first & (0xFFu >> (result.size + 1));
    for (std::size_t i = 1; i < result.size; ++i) {
        result.number = result.number << 6 | (static_cast<unsigned char>(text[i]) & 0x3Fu);
    }
    result.cells = isIn(narrow, result.number) ? 0 : isIn(wide, result.number) ? 2 : 1;
    return result;
}

bool isControl(char32_t number) {
    return number < 32 || number == 127 || isIn(controls, number);
}

std::string forTerminal(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        Character const c = characterOf(text);
        if (c.size == 0) {
            result += escapeOf("\\x%02X", static_cast<unsigned char>(text.front()));
        } else if (c.number != '\n' && c.number != '\t' && isControl(c.number)) {
            result += escapeOf(c.number < 0x80 ? "\\x%02X" : "\\u%04X", static_cast<unsigned>(c.number));
        } else {
            result += text.substr(0, c.size);
        }
        text.remove_prefix(std::max<std::size_t>(c.size, 1));
    }
    return result;
}

} // namespace tool
} // namespace tav
