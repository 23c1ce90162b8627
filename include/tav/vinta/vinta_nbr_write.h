#ifndef TAV_VINTA_NBR_WRITE_H
#define TAV_VINTA_NBR_WRITE_H

#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_basetypes_time.h"

#include <cstring>
#include <functional>
#include <new>
#include <type_traits>

/// Appends NBR values to a buffer, each with one test of the capacity.  The ground of the NBR output streams;
/// inline, so that the walk over fields writes plain fields without a call.  The machine is little-endian.
namespace tav {
namespace nbr {
namespace detail {

/// The number of bytes of `v` as a compact integer of at most `max` bytes, 1 to 9; a `max` of 0 counts as 1.
inline unsigned compactSize(unsigned long long v, unsigned max) {
    unsigned const bits = v == 0 ? 0 : 64 - static_cast<unsigned>(__builtin_clzll(v));
    unsigned const needed = bits / 8 + 1;
    return needed <= max ? needed : (max == 0 ? 1 : max);
}

/// Makes room for `n` bytes behind those in use.  Rare, so it stays out of the way.
[[gnu::noinline, gnu::cold]] inline void grow(tavBytes & out, unsigned n) {
    unsigned long long const needed = static_cast<unsigned long long>(out.size()) + n;
    if (needed > 0xFFFFFFFFu) {
        throw std::bad_alloc();
    }
    out.resize(static_cast<unsigned>(needed));
}

/// Room for `n` bytes behind those in use.
inline unsigned char * room(tavBytes & out, unsigned n) {
    if (__builtin_expect(out.maxSize() - out.size() < n, 0)) {
        grow(out, n);
    }
    return out.data() + out.size();
}

/// Takes `n` bytes into use that room has made.
inline void take(tavBytes & out, unsigned n) {
    unsigned const size = out.size() + n;
    if (size > out.maxSize()) {
        __builtin_unreachable();
    }
    out.size(size);
}

inline void writeByte(tavBytes & out, unsigned char v) {
    *room(out, 1) = v;
    take(out, 1);
}

/// The open marker for '(', the close marker for ')'.
inline void writeMarker(tavBytes & out, char last) {
    unsigned char * const p = room(out, 3);
    p[0] = 0xFF;
    p[1] = 0x01;
    p[2] = static_cast<unsigned char>(last);
    take(out, 3);
}

/// A tag ahead of a value, or none.
template <bool Tagged>
inline unsigned char * putTag(unsigned char * p, unsigned char tag) {
    if (Tagged) {
        *p = tag;
    }
    return p + Tagged;
}

/// A compact integer of at most `max` bytes, which is 1 to 8.
template <bool Tagged>
inline void writeNumber(tavBytes & out, unsigned char tag, unsigned long long v, unsigned max) {
    unsigned char * const p = putTag<Tagged>(room(out, Tagged + 2 + 8), tag);
    unsigned const count = compactSize(v, max);
    p[0] = 1;
    p[1] = static_cast<unsigned char>(count);
    std::memcpy(p + 2, &v, 8);
    take(out, Tagged + 2 + count);
}

/// A sized value of `n` bytes, which may be bytes of `out`.
template <bool Tagged>
inline void writeSized(tavBytes & out, unsigned char tag, void const * data, unsigned n, bool text) {
    constexpr unsigned head = Tagged + 1 + 4;
    if (n > 0xFFFFFFFFu - head) {
        throw std::bad_alloc();
    }
    auto const from = static_cast<unsigned char const *>(data);
    unsigned char const * const before = out.data();
    bool const own = std::less_equal<>()(before, from) && std::less<>()(from, before + out.size());
    unsigned char * const p = putTag<Tagged>(room(out, head + n), tag);
    unsigned const lengthOfSize = compactSize(n, 4);
    p[0] = static_cast<unsigned char>(lengthOfSize | (text ? 0xF0u : 0u));
    std::memcpy(p + 1, &n, 4);
    if (n != 0) {
        std::memcpy(p + 1 + lengthOfSize, own ? out.data() + (from - before) : from, n);
    }
    take(out, Tagged + 1 + lengthOfSize + n);
}

/// One value of a simple type of tavCodecStream.
template <bool Tagged, class T>
inline void writeSimple(tavBytes & out, unsigned char tag, T const & v) {
    if constexpr (std::is_same<T, tavString>::value) {
        writeSized<Tagged>(out, tag, v.data(), v.size(), true);
    } else if constexpr (std::is_same<T, tavBytes>::value) {
        writeSized<Tagged>(out, tag, v.data(), v.size(), false);
    } else if constexpr (std::is_same<T, tavTime>::value) {
        writeNumber<Tagged>(out, tag, static_cast<unsigned long long>(v.milliseconds()), 8);
    } else if constexpr (std::is_same<T, unsigned char>::value || std::is_same<T, bool>::value) {
        // The byte itself, never compacted.
        unsigned char * const p = putTag<Tagged>(room(out, Tagged + 3), tag);
        p[0] = 1;
        p[1] = 1;
        p[2] = static_cast<unsigned char>(v);
        take(out, Tagged + 3);
    } else if constexpr (std::is_floating_point<T>::value) {
        std::conditional_t<sizeof(T) == 4, unsigned, unsigned long long> bits;
        static_assert(sizeof(bits) == sizeof(v), "a bit pattern has the size of its number");
        std::memcpy(&bits, &v, sizeof(bits));
        writeNumber<Tagged>(out, tag, bits, sizeof(bits));
    } else {
        static_assert(std::is_integral<T>::value, "a simple type of tavCodecStream");
        std::conditional_t<std::is_signed<T>::value, long long, unsigned long long> const wide = v;
        // A negative char takes two bytes.
        unsigned const max = sizeof(T) == 1 ? 2 : static_cast<unsigned>(sizeof(T));
        writeNumber<Tagged>(out, tag, static_cast<unsigned long long>(wide), max);
    }
}

template <class T>
inline void writeValue(tavBytes & out, T const & v) {
    writeSimple<false>(out, 0, v);
}

/// The value behind its tag.
template <class T>
inline void writeMember(tavBytes & out, unsigned char tag, T const & v) {
    writeSimple<true>(out, tag, v);
}

} // namespace detail
} // namespace nbr
} // namespace tav

#endif
