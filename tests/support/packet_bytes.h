#ifndef TAV_TESTS_SUPPORT_PACKET_BYTES_H
#define TAV_TESTS_SUPPORT_PACKET_BYTES_H

#include "tav/vinta/vinta_im_pkt.h"

#include "support/printed.h"

#include <cctype>
#include <string>

namespace tav_test {

/// The bytes that hexadecimal digits stand for; all else between them is skipped.
inline std::string unhex(std::string const & text) {
    std::string bytes;
    int high = -1;
    for (char const c : text) {
        if (!std::isxdigit(static_cast<unsigned char>(c))) {
            continue;
        }
        int const digit = c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
        if (high < 0) {
            high = digit;
        } else {
            bytes += static_cast<char>(high * 16 + digit);
            high = -1;
        }
    }
    return bytes;
}

/// Upper-case digits without blanks, for messages that can be read.
inline std::string hex(tav_istr v) {
    static char const digits[] = "0123456789ABCDEF";
    std::string text;
    for (unsigned i = 0; i < v.size() && !v.empty(); ++i) {
        auto const b = static_cast<unsigned char>(v.data()[i]);
        text += digits[b >> 4];
        text += digits[b & 15];
    }
    return text;
}

inline std::string hex(std::string const & v) {
    return hex(tav_istr(v));
}

inline std::string encoded(tav::im::Packet & pkt) {
    tavBytes out;
    pkt.encode(out);
    return hex(out);
}

/// The values of a PacketPC behind a head of four zeros.
inline std::string pcDocument(std::string const & values) {
    return unhex("00 00 00 00" + values);
}

} // namespace tav_test

#endif
