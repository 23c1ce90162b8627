#ifndef TAV_TESTS_SUPPORT_NBR_BYTES_H
#define TAV_TESTS_SUPPORT_NBR_BYTES_H

#include "tav/vinta/vinta_basetypes_text.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

namespace tav_test {

/// The bytes of a hexadecimal text with blanks between them, such as "FF 01 28".
inline std::string bytes(char const * text) {
    std::string result;
    std::istringstream in(text);
    std::string word;
    while (in >> word) {
        result += static_cast<char>(std::strtol(word.c_str(), nullptr, 16));
    }
    return result;
}

/// The reverse: upper case, a blank between two bytes.
inline std::string hex(tav_istr v) {
    static char const digits[] = "0123456789ABCDEF";
    if (v.empty()) {
        return std::string();
    }
    std::string result(3 * std::size_t{v.size()} - 1, ' ');
    char * to = &result[0];
    for (unsigned i = 0; i < v.size(); ++i, ++to) {
        auto const byte = static_cast<unsigned char>(v.data()[i]);
        *to++ = digits[byte >> 4];
        *to++ = digits[byte & 15];
    }
    return result;
}

} // namespace tav_test

#endif
