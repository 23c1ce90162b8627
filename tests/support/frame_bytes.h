#ifndef TAV_TESTS_SUPPORT_FRAME_BYTES_H
#define TAV_TESTS_SUPPORT_FRAME_BYTES_H

#include <string>

namespace tav_test {

/// A length in four bytes, most significant first, and the body.
inline std::string frame(std::string const & body) {
    auto const size = static_cast<unsigned>(body.size());
    std::string out;
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(static_cast<char>(static_cast<unsigned char>(size >> shift)));
    }
    return out + body;
}

} // namespace tav_test

#endif
