#include "text.h"

#include <cstdio>

namespace chat {
namespace {

/// The character at the front of `text`, and its length; a length of 0 if that is no UTF-8.
unsigned decode(std::string_view text, std::size_t & length) {
    auto const byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    unsigned const first = byte(0);
    length = first < 0x80                    ? 1
             : first >= 0xc2 && first < 0xe0 ? 2
             : first >= 0xe0 && first < 0xf0 ? 3
             : first >= 0xf0 && first < 0xf5 ? 4
                                             : 0;
    if (length == 0 || length > text.size()) {
        length = 0;
        return first;
    }
    unsigned value = length == 1 ? first : first & (0x7fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0u) != 0x80) {
            length = 0;
            return first;
        }
        value = value << 6 | (byte(i) & 0x3fu);
    }
    bool const longer_than_need_be = (length == 3 && value < 0x800) || (length == 4 && value < 0x10000);
    if (longer_than_need_be || (value >= 0xd800 && value < 0xe000) || value > 0x10ffff) {
        length = 0;
        return first;
    }
    return value;
}

bool isHarmless(unsigned c) {
    bool const control = c < 0x20 || (c >= 0x7f && c < 0xa0);
    bool const turns =
        (c >= 0x200b && c <= 0x200f) || (c >= 0x2028 && c <= 0x202e) || (c >= 0x2060 && c <= 0x206f);
    return !control && !turns && c != 0x61c && c != 0xfeff && (c < 0xfff9 || c > 0xfffb) &&
           (c < 0xe0000 || c > 0xe007f);
}

} // namespace

std::string shown(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        std::size_t length = 0;
        unsigned const c = decode(text, length);
        if (length != 0 && isHarmless(c)) {
            out.append(text.substr(0, length));
        } else {
            char written[16];
            std::snprintf(written, sizeof written, length == 0 || c < 0x80 ? "\\x%02x" : "\\u%04x", c);
            out += written;
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return out;
}

} // namespace chat
