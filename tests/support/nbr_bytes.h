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
    std::string result;
    for (unsigned i = 0; i < (v.empty() ? 0 : v.size()); ++i) {
        char digits[4];
        std::snprintf(digits, sizeof(digits), "%02X",
                      static_cast<unsigned>(static_cast<unsigned char>(v[i])));
        result += i == 0 ? "" : " ";
        result += digits;
    }
    return result;
}

} // namespace tav_test

#endif
