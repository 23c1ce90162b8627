#ifndef TAV_FORMATS_NBR_NBR_COMPACT_H
#define TAV_FORMATS_NBR_NBR_COMPACT_H

#include <cstring>

/// Reading compact integers.  Internal; the machine is little-endian.
namespace tav {
namespace nbr {
namespace detail {

/// The unsigned number of the `n` bytes at `p`, 1 to 8.
inline unsigned long long readCompact(char const * p, unsigned n) {
    if (n >= 4) {
        unsigned low;
        unsigned high;
        std::memcpy(&low, p, 4);
        std::memcpy(&high, p + n - 4, 4);
        return static_cast<unsigned long long>(high) << (8 * (n - 4)) | low;
    }
    auto const byte = [p](unsigned i) {
        return static_cast<unsigned long long>(static_cast<unsigned char>(p[i])) << (8 * i);
    };
    return byte(0) | byte(n / 2) | byte(n - 1);
}

} // namespace detail
} // namespace nbr
} // namespace tav

#endif
