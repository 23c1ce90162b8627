#ifndef TAV_VINTA_BASETYPES_TEXT_H
#define TAV_VINTA_BASETYPES_TEXT_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_cstr.h"

#include <cstddef>
#include <cstring>
#include <functional>
#include <iosfwd>
#include <string>
#include <type_traits>

/// Text as the whole library passes it: views that own nothing (tav_istr, tav_iwstr, tav_utf8), a writable
/// buffer with its release function (tav_ostr), owning strings (tavString, tavU8string, tavWstring) and
/// plain C functions on NUL-terminated text.
///
/// A view never throws and never reads outside its bytes: what lies behind the end reads as 0.  None of the
/// classes is safe for concurrent writes; distinct objects, and concurrent reads of one object, are safe.

namespace tav {
namespace detail {

/// The type when it is an integer type; otherwise nothing, which takes a template out of the choice.
template <class N>
using IfInteger = std::enable_if_t<std::is_integral<N>::value>;

/// The most characters an owning string holds: sizes are unsigned 32-bit.
constexpr std::size_t maxStringSize = 0xFFFFFFFFu;

/// Throws std::length_error("string too long").
[[noreturn]] TAV_API void throwTooLong();

/// Throws as throwTooLong if `add` more characters would not fit in an owning string.
inline void checkGrowth(std::size_t have, std::size_t add) {
    if (have > maxStringSize || add > maxStringSize - have) {
        throwTooLong();
    }
}

inline unsigned short swapBytes(unsigned short v) {
    return __builtin_bswap16(v);
}
inline unsigned swapBytes(unsigned v) {
    return __builtin_bswap32(v);
}
inline unsigned long long swapBytes(unsigned long long v) {
    return __builtin_bswap64(v);
}

} // namespace detail
} // namespace tav

/// A view of bytes: a pointer, which may be null, and an unsigned 32-bit count.  The bytes must outlive the
/// view and need no NUL behind them.  It fits two machine words, so it is passed by value.
///
/// A view is empty if its pointer is null or its size is 0.  The consuming operations move the start
/// forward.  In the moving operations a count is taken as a signed 32-bit number: a positive one is limited
/// to the size, one of zero or less is applied unchecked, so that the start moves back and the size grows;
/// the caller answers for the bytes in front.  A null pointer stays null wherever the view is moved or cut.
class TAV_API tav_istr {
public:
    /// Null, 0.
    tav_istr() noexcept : data_(nullptr), size_(0) {}
    tav_istr(std::nullptr_t) noexcept : data_(nullptr), size_(0) {}

    /// NUL-terminated text; null gives null, 0.
    tav_istr(char const * text) noexcept
        : data_(text), size_(text ? static_cast<unsigned>(std::strlen(text)) : 0) {}
    tav_istr(unsigned char const * text) noexcept : tav_istr(reinterpret_cast<char const *>(text)) {}

    /// The pointer and the count, unchanged.
    tav_istr(char const * data, unsigned size) noexcept : data_(data), size_(size) {}
    tav_istr(unsigned char const * data, unsigned size) noexcept
        : data_(reinterpret_cast<char const *>(data)), size_(size) {}
    tav_istr(void const * data, unsigned size) noexcept
        : data_(static_cast<char const *>(data)), size_(size) {}

    /// As above for a count of any integer type, of which the low 32 bits are taken.
    template <class N, class = tav::detail::IfInteger<N>>
    tav_istr(char const * data, N size) noexcept : tav_istr(data, static_cast<unsigned>(size)) {}
    template <class N, class = tav::detail::IfInteger<N>>
    tav_istr(unsigned char const * data, N size) noexcept : tav_istr(data, static_cast<unsigned>(size)) {}
    template <class N, class = tav::detail::IfInteger<N>>
    tav_istr(void const * data, N size) noexcept : tav_istr(data, static_cast<unsigned>(size)) {}
    template <class N, class = tav::detail::IfInteger<N>>
    tav_istr(std::nullptr_t, N size) noexcept : data_(nullptr), size_(static_cast<unsigned>(size)) {}

    /// From the start of `first` to the start of `last`.
    tav_istr(char const * first, char const * last) noexcept
        : data_(first), size_(static_cast<unsigned>(last - first)) {}
    tav_istr(unsigned char const * first, unsigned char const * last) noexcept
        : tav_istr(first, static_cast<unsigned>(last - first)) {}
    tav_istr(std::nullptr_t, std::nullptr_t) noexcept : tav_istr() {}
    tav_istr(tav_istr first, tav_istr last) noexcept : tav_istr(first.data_, last.data_) {}

    /// The string's own bytes; the string must outlive the view.
    tav_istr(std::string const & text) noexcept
        : data_(text.data()), size_(static_cast<unsigned>(text.size())) {}

    char const * data() const noexcept { return data_; }
    char const * begin() const noexcept { return data_; }
    char const * end() const noexcept { return data_ ? data_ + size_ : data_; }
    /// The count, also when the pointer is null.
    unsigned size() const noexcept { return size_; }
    /// The same, under the name that suits a view being consumed.
    unsigned left() const noexcept { return size_; }

    bool empty() const noexcept { return size_ == 0 || data_ == nullptr; }
    bool eof() const noexcept { return empty(); }
    bool operator!() const noexcept { return empty(); }
    /// A truth value: 1 if there is something to read, else 0.
    operator void *() const noexcept { return reinterpret_cast<void *>(static_cast<std::size_t>(!empty())); }
    /// A copy of the bytes.
    operator std::string() const { return empty() ? std::string() : std::string(data_, size_); }

    /// The byte, or 0 when `i` is not below the size.
    char operator[](unsigned i) const noexcept { return i < size_ && data_ ? data_[i] : '\0'; }
    /// The first byte, or 0 when empty.
    char operator*() const noexcept { return empty() ? '\0' : *data_; }
    char firstChar() const noexcept { return **this; }
    /// The last byte, or 0 when empty.
    char lastChar() const noexcept { return empty() ? '\0' : data_[size_ - 1]; }

    /// -1, 0 or 1: by unsigned bytes, the shorter first on a tie.  Empty views are equal.
    int compare(tav_istr const & other) const noexcept {
        unsigned const mine = readable();
        unsigned const theirs = other.readable();
        unsigned const common = mine < theirs ? mine : theirs;
        int const order = common ? std::memcmp(data_, other.data_, common) : 0;
        return order != 0 ? (order > 0) - (order < 0) : (mine > theirs) - (mine < theirs);
    }

    /// By compare.  A literal or other NUL-terminated text may stand on either side; null is empty text.
    friend bool operator==(tav_istr const & a, tav_istr const & b) { return a.same(b); }
    friend bool operator!=(tav_istr const & a, tav_istr const & b) { return !a.same(b); }
    friend bool operator<(tav_istr const & a, tav_istr const & b) { return a.compare(b) < 0; }
    friend bool operator<=(tav_istr const & a, tav_istr const & b) { return a.compare(b) <= 0; }
    friend bool operator>(tav_istr const & a, tav_istr const & b) { return a.compare(b) > 0; }
    friend bool operator>=(tav_istr const & a, tav_istr const & b) { return a.compare(b) >= 0; }

    friend bool operator==(tav_istr const & a, char const * b) { return a.same(tav_istr(b)); }
    friend bool operator!=(tav_istr const & a, char const * b) { return !a.same(tav_istr(b)); }
    friend bool operator<(tav_istr const & a, char const * b) { return a.compare(tav_istr(b)) < 0; }
    friend bool operator<=(tav_istr const & a, char const * b) { return a.compare(tav_istr(b)) <= 0; }
    friend bool operator>(tav_istr const & a, char const * b) { return a.compare(tav_istr(b)) > 0; }
    friend bool operator>=(tav_istr const & a, char const * b) { return a.compare(tav_istr(b)) >= 0; }

    friend bool operator==(char const * a, tav_istr const & b) { return tav_istr(a).same(b); }
    friend bool operator!=(char const * a, tav_istr const & b) { return !tav_istr(a).same(b); }
    friend bool operator<(char const * a, tav_istr const & b) { return tav_istr(a).compare(b) < 0; }
    friend bool operator<=(char const * a, tav_istr const & b) { return tav_istr(a).compare(b) <= 0; }
    friend bool operator>(char const * a, tav_istr const & b) { return tav_istr(a).compare(b) > 0; }
    friend bool operator>=(char const * a, tav_istr const & b) { return tav_istr(a).compare(b) >= 0; }

    /// True if the view starts with all of `v`; an empty `v` always stands.
    bool beginWith(tav_istr v) const noexcept {
        unsigned const n = v.readable();
        return n == 0 || (n <= readable() && std::memcmp(data_, v.data_, n) == 0);
    }
    /// The same test as beginWith.
    bool match(tav_istr v) const noexcept { return beginWith(v); }
    /// True if the view ends with all of `v`; an empty `v` always stands.
    bool endWith(tav_istr v) const noexcept {
        unsigned const n = v.readable();
        return n == 0 || (n <= readable() && std::memcmp(data_ + (size_ - n), v.data_, n) == 0);
    }

    /// The rest from the first `c`; an empty view at the end when there is none.
    tav_istr find(char c) const noexcept {
        void const * const hit = empty() ? nullptr : std::memchr(data_, c, size_);
        return hit ? tav_istr(static_cast<char const *>(hit), end()) : atEnd();
    }
    /// The rest from the first byte that is in `set`; an empty view at the end when there is none.
    tav_istr find_one_of(tav_istr set) const noexcept;
    /// The rest from the last `c`.  Without one it is the whole view; rfind tells the two apart.
    tav_istr find_last(char c) const noexcept;
    /// The rest from the last byte that is in `set`; the first byte of the view is never looked at.  Without
    /// one it is the whole view.
    tav_istr find_last_one_of(tav_istr set) const noexcept;
    /// The index of the last `c`, or 0xFFFFFFFF.
    unsigned rfind(char c) const noexcept;

    /// The first `n` bytes; all of them when `n` is above the size.
    tav_istr leftstr(unsigned n) const noexcept { return tav_istr(data_, n < size_ ? n : size_); }
    /// The last `n` bytes; an empty view at the end when `n` is above the size.
    tav_istr rightstr(unsigned n) const noexcept { return n > size_ ? atEnd() : cut(size_ - n); }
    /// `pos` is limited to the size, then `n` to what is left.
    tav_istr substr(unsigned pos, unsigned n) const noexcept { return removeLeft(pos).leftstr(n); }
    /// All but the first `n` bytes; an empty view at the end when `n` is above the size.
    tav_istr removeLeft(unsigned n) const noexcept { return cut(n < size_ ? n : size_); }
    /// All but the last `n` bytes; the whole view when `n` is above the size.
    tav_istr removeRight(unsigned n) const noexcept { return tav_istr(data_, n > size_ ? size_ : size_ - n); }

    /// Without leading space, tab, line feed, vertical tab, form feed and carriage return.
    tav_istr skipBlank() const noexcept {
        unsigned i = 0;
        unsigned const n = readable();
        while (i < n && isBlank(data_[i])) {
            ++i;
        }
        return cut(i);
    }
    /// The same as skipBlank.
    tav_istr trimLeft() const noexcept { return skipBlank(); }
    /// Without trailing space, tab, carriage return and line feed; other blanks stay.
    tav_istr trimRight() const noexcept;
    /// skipBlank, then trimRight.
    tav_istr trim() const noexcept { return skipBlank().trimRight(); }
    /// Without at most one leading and at most one trailing `c`, as for quotes.
    tav_istr trim(char c) const noexcept;

    /// Moves forward in place.
    tav_istr & advance(int n) noexcept { return move(n); }
    tav_istr & advance(unsigned n) noexcept { return move(static_cast<int>(n)); }
    template <class N, class = tav::detail::IfInteger<N>>
    tav_istr & advance(N n) noexcept {
        return move(low32(n));
    }
    tav_istr & operator+=(int n) noexcept { return move(n); }
    template <class N, class = tav::detail::IfInteger<N>>
    tav_istr & operator+=(N n) noexcept {
        return move(low32(n));
    }
    /// Moves by `-n`: a positive `n` steps back, unchecked.
    tav_istr & operator-=(int n) noexcept { return move(negated(n)); }
    template <class N, class = tav::detail::IfInteger<N>>
    tav_istr & operator-=(N n) noexcept {
        return move(negated(low32(n)));
    }
    /// A moved copy.
    tav_istr operator+(int n) const noexcept { return tav_istr(*this).move(n); }
    template <class N, class = tav::detail::IfInteger<N>>
    tav_istr operator+(N n) const noexcept {
        return tav_istr(*this).move(low32(n));
    }
    tav_istr operator-(int n) const noexcept { return tav_istr(*this).move(negated(n)); }
    template <class N, class = tav::detail::IfInteger<N>>
    tav_istr operator-(N n) const noexcept {
        return tav_istr(*this).move(negated(low32(n)));
    }
    /// One byte forward; none at the end.
    tav_istr & operator++() noexcept { return move(1); }
    tav_istr operator++(int) noexcept {
        tav_istr const before = *this;
        move(1);
        return before;
    }
    /// One byte back, unchecked.
    tav_istr & operator--() noexcept { return move(-1); }
    tav_istr operator--(int) noexcept {
        tav_istr const before = *this;
        move(-1);
        return before;
    }

    /// Takes the first `n` bytes, or all when there are fewer, and moves past them.  From 2^31 on the result
    /// is still limited as unsigned, while the move goes by the signed count.
    tav_istr next(unsigned n) noexcept {
        tav_istr const taken = leftstr(n);
        move(static_cast<int>(n));
        return taken;
    }
    /// The same as next.
    tav_istr readBytes(unsigned n) noexcept { return next(n); }

    /// Takes one byte; 0 at the end.
    unsigned char readByte() noexcept {
        if (size_ == 0) {
            return 0;
        }
        --size_;
        return data_ ? static_cast<unsigned char>(*data_++) : static_cast<unsigned char>(0);
    }
    /// Takes a number with its most significant byte first.  Bytes missing at the end count as 0.
    unsigned short readBigEndianUint16() noexcept { return readBigEndian<unsigned short>(); }
    short readBigEndianInt16() noexcept { return static_cast<short>(readBigEndian<unsigned short>()); }
    unsigned readBigEndianUint32() noexcept { return readBigEndian<unsigned>(); }
    int readBigEndianInt32() noexcept { return static_cast<int>(readBigEndian<unsigned>()); }
    unsigned long long readBigEndianUint64() noexcept { return readBigEndian<unsigned long long>(); }
    long long readBigEndianInt64() noexcept {
        return static_cast<long long>(readBigEndian<unsigned long long>());
    }

    /// Skips to the first decimal digit and takes at most `maxDigits` digits as a number, which wraps at 32
    /// bits.  0 when there is no digit; the first byte that is none stays.
    int readDigits(int maxDigits) noexcept;

private:
    static bool isBlank(char c) noexcept { return c == ' ' || static_cast<unsigned char>(c - '\t') < 5; }

    template <class N>
    static int low32(N n) noexcept {
        return static_cast<int>(static_cast<unsigned>(n));
    }

    static int negated(int n) noexcept { return static_cast<int>(0u - static_cast<unsigned>(n)); }

    unsigned readable() const noexcept { return data_ ? size_ : 0; }

    bool same(tav_istr b) const noexcept {
        unsigned const n = readable();
        return n == b.readable() && (n == 0 || std::memcmp(data_, b.data_, n) == 0);
    }

    /// Without the first `n` bytes, which are there.
    tav_istr cut(unsigned n) const noexcept { return tav_istr(data_ ? data_ + n : data_, size_ - n); }

    tav_istr atEnd() const noexcept { return tav_istr(end(), 0u); }

    tav_istr & move(int n) noexcept {
        int const step = n > 0 && static_cast<unsigned>(n) > size_ ? static_cast<int>(size_) : n;
        data_ = data_ ? data_ + step : data_;
        size_ -= static_cast<unsigned>(step);
        return *this;
    }

    template <class T>
    T readBigEndian() noexcept {
        if (size_ >= sizeof(T) && data_) {
            T v;
            std::memcpy(&v, data_, sizeof(T));
            data_ += sizeof(T);
            size_ -= static_cast<unsigned>(sizeof(T));
            return tav::detail::swapBytes(v);
        }
        return static_cast<T>(readRest(static_cast<unsigned>(sizeof(T))));
    }

    /// Takes what is left as the leading bytes of a number of `width` bytes.
    unsigned long long readRest(unsigned width) noexcept;

    char const * data_;
    unsigned size_;
};

/// A view of wide units, UTF-16 by convention; nothing checks it.  As tav_istr, except for compare and
/// skipBlank.
class TAV_API tav_iwstr {
public:
    /// Null, 0.
    tav_iwstr() noexcept : data_(nullptr), size_(0) {}
    /// NUL-terminated text; null gives null, 0.
    tav_iwstr(wchar_t const * text) noexcept;
    /// The pointer and the count of units, unchanged.
    tav_iwstr(wchar_t const * data, unsigned size) noexcept : data_(data), size_(size) {}
    /// The string's own units; the string must outlive the view.
    tav_iwstr(std::wstring const & text) noexcept
        : data_(text.data()), size_(static_cast<unsigned>(text.size())) {}

    wchar_t const * data() const noexcept { return data_; }
    wchar_t const * begin() const noexcept { return data_; }
    wchar_t const * end() const noexcept { return data_ ? data_ + size_ : data_; }
    unsigned size() const noexcept { return size_; }

    bool empty() const noexcept { return size_ == 0 || data_ == nullptr; }
    bool eof() const noexcept { return empty(); }
    bool operator!() const noexcept { return empty(); }
    /// A truth value: 1 if there is something to read, else 0.
    operator void *() const noexcept { return reinterpret_cast<void *>(static_cast<std::size_t>(!empty())); }
    /// A copy of the units.
    operator std::wstring() const { return empty() ? std::wstring() : std::wstring(data_, size_); }

    /// The first unit, or 0 when empty.
    wchar_t operator*() const noexcept { return empty() ? L'\0' : *data_; }
    /// The unit, or 0 when `i` is not below the size.
    wchar_t operator[](unsigned i) const noexcept { return i < size_ && data_ ? data_[i] : L'\0'; }

    /// One unit forward; none at the end.
    tav_iwstr & operator++() noexcept { return move(1); }
    tav_iwstr operator++(int) noexcept {
        tav_iwstr const before = *this;
        move(1);
        return before;
    }
    /// Moves forward in place: limited to the size; zero or less is applied unchecked.
    tav_iwstr & operator+=(int n) noexcept { return move(n); }
    tav_iwstr & advance(unsigned n) noexcept { return move(static_cast<int>(n)); }

    /// `pos` is limited to the size, then `n` to what is left.
    tav_iwstr substr(unsigned pos, unsigned n) const noexcept {
        tav_iwstr const rest = removeLeft(pos);
        return tav_iwstr(rest.data_, n < rest.size_ ? n : rest.size_);
    }
    /// All but the first `n` units; an empty view at the end when `n` is above the size.
    tav_iwstr removeLeft(unsigned n) const noexcept {
        unsigned const step = n < size_ ? n : size_;
        return tav_iwstr(data_ ? data_ + step : data_, size_ - step);
    }
    /// True if the first `v.size()` units compare equal to `v`; a longer `v` does not stand.
    bool beginWith(tav_iwstr v) const noexcept { return substr(0, v.size_).compare(v) == 0; }
    /// Without leading blanks.  It stops only at a unit that is no blank and reads on behind the count, which
    /// merely stops at 0: a NUL must stand behind the view.  A null view comes back as it is.
    tav_iwstr skipBlank() const noexcept;

    /// Less than, equal to or greater than 0, through tav_wstr_compare over the shorter length: it ends early
    /// at a NUL in both, and gives the difference of the first unequal units.  A tie is broken by size.
    int compare(tav_iwstr const & other) const noexcept;

    /// By compare.  A literal or other NUL-terminated text may stand on either side.
    friend bool operator==(tav_iwstr const & a, tav_iwstr const & b) { return a.compare(b) == 0; }
    friend bool operator!=(tav_iwstr const & a, tav_iwstr const & b) { return a.compare(b) != 0; }
    friend bool operator<(tav_iwstr const & a, tav_iwstr const & b) { return a.compare(b) < 0; }
    friend bool operator<=(tav_iwstr const & a, tav_iwstr const & b) { return a.compare(b) <= 0; }
    friend bool operator>(tav_iwstr const & a, tav_iwstr const & b) { return a.compare(b) > 0; }
    friend bool operator>=(tav_iwstr const & a, tav_iwstr const & b) { return a.compare(b) >= 0; }

    friend bool operator==(tav_iwstr const & a, wchar_t const * b) { return a.compare(tav_iwstr(b)) == 0; }
    friend bool operator!=(tav_iwstr const & a, wchar_t const * b) { return a.compare(tav_iwstr(b)) != 0; }
    friend bool operator<(tav_iwstr const & a, wchar_t const * b) { return a.compare(tav_iwstr(b)) < 0; }
    friend bool operator<=(tav_iwstr const & a, wchar_t const * b) { return a.compare(tav_iwstr(b)) <= 0; }
    friend bool operator>(tav_iwstr const & a, wchar_t const * b) { return a.compare(tav_iwstr(b)) > 0; }
    friend bool operator>=(tav_iwstr const & a, wchar_t const * b) { return a.compare(tav_iwstr(b)) >= 0; }

    friend bool operator==(wchar_t const * a, tav_iwstr const & b) { return tav_iwstr(a).compare(b) == 0; }
    friend bool operator!=(wchar_t const * a, tav_iwstr const & b) { return tav_iwstr(a).compare(b) != 0; }
    friend bool operator<(wchar_t const * a, tav_iwstr const & b) { return tav_iwstr(a).compare(b) < 0; }
    friend bool operator<=(wchar_t const * a, tav_iwstr const & b) { return tav_iwstr(a).compare(b) <= 0; }
    friend bool operator>(wchar_t const * a, tav_iwstr const & b) { return tav_iwstr(a).compare(b) > 0; }
    friend bool operator>=(wchar_t const * a, tav_iwstr const & b) { return tav_iwstr(a).compare(b) >= 0; }

private:
    tav_iwstr & move(int n) noexcept {
        int const step = n > 0 && static_cast<unsigned>(n) > size_ ? static_cast<int>(size_) : n;
        data_ = data_ ? data_ + step : data_;
        size_ -= static_cast<unsigned>(step);
        return *this;
    }

    wchar_t const * data_;
    unsigned size_;
};

/// A view of bytes that says they are UTF-8; nothing checks it.
class TAV_API tav_utf8 {
public:
    /// Null, 0.
    tav_utf8() noexcept : data_(nullptr), size_(0) {}
    /// NUL-terminated text; null gives null, 0.
    tav_utf8(char const * text) noexcept
        : data_(text), size_(text ? static_cast<unsigned>(std::strlen(text)) : 0) {}
    /// The pointer and the count, unchanged.
    tav_utf8(char const * data, unsigned size) noexcept : data_(data), size_(size) {}
    /// The string's own bytes; the string must outlive the view.
    tav_utf8(std::string const & text) noexcept
        : data_(text.data()), size_(static_cast<unsigned>(text.size())) {}

    char const * data() const noexcept { return data_; }
    char const * begin() const noexcept { return data_; }
    char const * end() const noexcept { return data_ ? data_ + size_ : data_; }
    unsigned size() const noexcept { return size_; }

    bool empty() const noexcept { return size_ == 0 || data_ == nullptr; }
    bool operator!() const noexcept { return empty(); }
    /// A truth value: 1 if there is something to read, else 0.
    operator void *() const noexcept { return reinterpret_cast<void *>(static_cast<std::size_t>(!empty())); }
    /// The byte, or 0 when `i` is not below the size.
    char operator[](unsigned i) const noexcept { return i < size_ && data_ ? data_[i] : '\0'; }
    /// A copy of the bytes.
    operator std::string() const { return empty() ? std::string() : std::string(data_, size_); }

private:
    char const * data_;
    unsigned size_;
};

/// A writable buffer and the function that releases it.  Copies name the same buffer and carry the same
/// function.  The destructor releases nothing: the buffer goes away by free() alone.
class TAV_API tav_ostr {
public:
    /// Null, 0, no function.
    tav_ostr();
    /// The function may be empty; then free() releases nothing.
    tav_ostr(char * data, unsigned size, std::function<void(char *)> release);
    tav_ostr(unsigned char * data, unsigned size, std::function<void(char *)> release);
    tav_ostr(void * data, unsigned size, std::function<void(char *)> release);
    /// Null, 0 and the function.
    tav_ostr(std::function<void(char *)> release);

    char * buffer() const noexcept { return data_; }
    char * data() const noexcept { return data_; }
    unsigned size() const noexcept { return size_; }
    /// The same as size.
    unsigned max_size() const noexcept { return size_; }

    /// Calls the function, if there is one, with the pointer, which may be null; then the pointer is null.
    /// The size keeps its value.
    void free();

private:
    char * data_;
    unsigned size_;
    std::function<void(char *)> release_;
};

/// An owning string whose bytes count as UTF-8 wherever wide text is made of them; nothing checks it.
///
/// Positions and results are `int`: -1 means not found, and a negative position counts as a huge one.  No
/// operation changes the receiver unless it says "in place".  Growth above 0xFFFFFFFF bytes throws
/// std::length_error("string too long").
class TAV_API tavString {
public:
    tavString() noexcept = default;
    /// NUL-terminated text; the pointer should not be null, which counts as empty here.
    tavString(char const * text);
    tavString(char const * data, unsigned size);
    tavString(std::string const & text);
    tavString(std::string && text);
    tavString(tav_istr text);
    tavString(tavString const & other) = default;
    tavString(tavString && other) noexcept = default;
    /// Encode to UTF-8 through fromWstring.
    tavString(wchar_t const * text);
    tavString(std::wstring const & text);
    tavString(tav_iwstr text);
    ~tavString() = default;

    tavString & operator=(char const * text);
    tavString & operator=(std::string const & text);
    tavString & operator=(std::string && text);
    tavString & operator=(tav_istr text);
    tavString & operator=(tavString const & other) = default;
    tavString & operator=(tavString && other) noexcept = default;

    /// Append in place; a null pointer appends nothing.
    tavString & operator<<(char c) { return append(&c, 1); }
    tavString & operator<<(char const * text) { return text ? append(text, std::strlen(text)) : *this; }
    tavString & operator<<(tav_istr text) { return text.empty() ? *this : append(text.data(), text.size()); }
    tavString & operator<<(std::string const & text) { return append(text.data(), text.size()); }
    tavString & operator<<(tavString const & text) { return append(text.value_.data(), text.value_.size()); }

    tavString & write(char c) { return *this << c; }
    tavString & write(char const * text) { return *this << text; }
    tavString & write(tav_istr text) { return *this << text; }
    tavString & write(std::string const & text) { return *this << text; }
    tavString & write(tavString const & text) { return *this << text; }
    /// Appends one unit as UTF-8, each half of a surrogate pair for itself.  A code point above 0xFFFF is
    /// written as its two surrogates; of a value that is no code point the low 16 bits are taken.
    tavString & write(wchar_t unit);

    /// Concatenation.
    tavString operator|(tavString const & right) const;
    tavString operator|(char const * right) const;

    unsigned size() const noexcept { return static_cast<unsigned>(value_.size()); }
    unsigned length() const noexcept { return size(); }
    bool empty() const noexcept { return value_.empty(); }
    bool isEmpty() const noexcept { return value_.empty(); }
    /// NUL-terminated.
    char const * data() const noexcept { return value_.data(); }
    char const * begin() const noexcept { return value_.data(); }
    char const * end() const noexcept { return value_.data() + value_.size(); }
    /// In place.
    void clear() noexcept { value_.clear(); }

    /// Unchecked, unlike the view's.
    char charAt(int i) const noexcept { return value_.data()[i]; }
    char operator[](int i) const noexcept { return value_.data()[i]; }
    /// In place, unchecked.
    void setCharAt(int i, char c) noexcept { value_.data()[i] = c; }

    bool equals(tav_istr other) const noexcept { return tav_istr(value_) == other; }

    /// By bytes, unsigned, the shorter first on a tie.
    friend bool operator==(tavString const & a, tavString const & b) { return a.value_ == b.value_; }
    friend bool operator!=(tavString const & a, tavString const & b) { return a.value_ != b.value_; }
    friend bool operator<(tavString const & a, tavString const & b) { return a.value_ < b.value_; }
    friend bool operator<=(tavString const & a, tavString const & b) { return a.value_ <= b.value_; }
    friend bool operator>(tavString const & a, tavString const & b) { return a.value_ > b.value_; }
    friend bool operator>=(tavString const & a, tavString const & b) { return a.value_ >= b.value_; }
    friend bool operator==(tavString const & a, char const * b) { return a.equals(b); }
    friend bool operator!=(tavString const & a, char const * b) { return !a.equals(b); }
    friend bool operator==(char const * a, tavString const & b) { return b.equals(a); }
    friend bool operator!=(char const * a, tavString const & b) { return !b.equals(a); }
    friend bool operator==(tavString const & a, tav_istr const & b) { return a.equals(b); }
    friend bool operator!=(tavString const & a, tav_istr const & b) { return !a.equals(b); }
    friend bool operator==(tav_istr const & a, tavString const & b) { return b.equals(a); }
    friend bool operator!=(tav_istr const & a, tavString const & b) { return !b.equals(a); }
    friend bool operator==(tavString const & a, std::string const & b) { return a.value_ == b; }
    friend bool operator!=(tavString const & a, std::string const & b) { return a.value_ != b; }
    friend bool operator==(std::string const & a, tavString const & b) { return a == b.value_; }
    friend bool operator!=(std::string const & a, tavString const & b) { return a != b.value_; }

    bool startsWith(tav_istr s) const noexcept { return tav_istr(value_).beginWith(s); }
    bool endsWith(tav_istr s) const noexcept { return tav_istr(value_).endWith(s); }
    /// True if nothing but decimal digits stands behind one leading '+' or '-', also if nothing does.
    bool isDigits() const noexcept;

    /// First position of `s` at or after `start`, which an empty `s` yields.
    int indexOf(tav_istr s) const noexcept;
    int indexOf(int start, tav_istr s) const noexcept;
    int indexOfAnyChar(tav_istr set) const noexcept;
    int indexOfChar(char c, int from) const noexcept;
    /// Looks at position 0 only: 0 or -1.
    int lastIndexOf(tav_istr s) const noexcept;
    /// Last match that begins at or before `start`; an empty `s` yields `start`, limited to the size.
    int lastIndexOf(int start, tav_istr s) const noexcept;
    /// Looks at the first byte only: 0 or -1.
    int lastIndexOfAnyChar(tav_istr set) const noexcept;
    /// Backward from `from`, which is limited to the last position.
    int lastIndexOfChar(char c, int from) const noexcept;

    /// The bytes [start, end); -1, or an end before the start, means to the end of the string.
    /// @throws std::out_of_range "invalid string position" if `start` is above the size
    tavString substring(int start, int end) const;
    /// In place: erases [start, end), with the ends and the failure of substring.
    tavString & remove(int start, int end);
    /// In place; a position beyond the end appends.
    tavString & insert(int pos, tav_istr s);
    /// Each `from` becomes `to`, from the left, without overlap; an empty `from` changes nothing.
    tavString replace(tav_istr from, tav_istr to) const;
    tavString replaceCharacter(char a, char b) const;
    /// Changes 'a' to 'z' only.
    tavString toUpperCase() const;
    /// As tav_istr::trim().
    tavString trim() const;
    /// In place.
    void swap(tavString & other) noexcept { value_.swap(other.value_); }

    /// In place: appends each unit as write(wchar_t) does.
    void fromWstring(tav_iwstr text);
    /// Decodes with read up to the end or the first result of 0.  No pair of surrogates is joined or made.
    std::wstring toWstring() const;
    operator std::wstring() const { return toWstring(); }
    /// A view of the held bytes, valid until the next change.
    operator tav_istr() const noexcept { return tav_istr(value_); }

    /// One empty string that lives as long as the process.
    static tavString const & null();
    /// Decimal, or "0x" and upper-case hexadecimal digits padded with '0' to `width`; a negative number then
    /// shows the sixteen digits of its two's complement.
    static tavString from(long long value, bool hex = false, int width = 0);
    /// Takes one UTF-8 sequence from the front of `v`: one unit of at most 0xFFFF, of which longer sequences
    /// lose their high bits.  Nothing fails: a sequence cut short yields what was accumulated, a stray
    /// continuation byte its low 7 bits, an empty view 0.
    static wchar_t read(tav_istr & v) noexcept;

private:
    tavString & append(char const * data, std::size_t size) {
        tav::detail::checkGrowth(value_.size(), size);
        value_.append(data, size);
        return *this;
    }

    std::string value_;
};

/// An owning string that the codec calls UTF-8.  It copies bytes and converts nothing.
class TAV_API tavU8string {
public:
    tavU8string() noexcept = default;
    /// NUL-terminated text; null counts as empty.
    tavU8string(char const * text);
    tavU8string(char const * data, unsigned size);
    tavU8string(std::string const & text);
    tavU8string(tav_istr text);
    tavU8string(tav_utf8 text);
    tavU8string(tavU8string const & other) = default;
    tavU8string(tavU8string && other) noexcept = default;
    ~tavU8string() = default;

    tavU8string & operator=(char const * text);
    tavU8string & operator=(std::string const & text);
    tavU8string & operator=(tav_istr text);
    tavU8string & operator=(tav_utf8 text);
    tavU8string & operator=(tavU8string const & other) = default;
    tavU8string & operator=(tavU8string && other) noexcept = default;

    /// Append in place.
    tavU8string & operator<<(char const * text);
    tavU8string & operator<<(std::string const & text);
    tavU8string & operator<<(tav_istr text);
    tavU8string & operator<<(tav_utf8 text);
    tavU8string & operator<<(tavU8string const & text);
    tavU8string & operator+=(char c);
    tavU8string & operator+=(tav_utf8 text);

    /// Concatenation.
    tavU8string operator+(tavU8string const & right) const;
    tavU8string operator+(char const * right) const;

    /// NUL-terminated.
    char const * data() const noexcept { return value_.data(); }
    unsigned size() const noexcept { return static_cast<unsigned>(value_.size()); }
    bool empty() const noexcept { return value_.empty(); }

    /// By bytes, unsigned, the shorter first on a tie.
    friend bool operator==(tavU8string const & a, tavU8string const & b) { return a.value_ == b.value_; }
    friend bool operator!=(tavU8string const & a, tavU8string const & b) { return a.value_ != b.value_; }
    friend bool operator<(tavU8string const & a, tavU8string const & b) { return a.value_ < b.value_; }
    friend bool operator<=(tavU8string const & a, tavU8string const & b) { return a.value_ <= b.value_; }
    friend bool operator>(tavU8string const & a, tavU8string const & b) { return a.value_ > b.value_; }
    friend bool operator>=(tavU8string const & a, tavU8string const & b) { return a.value_ >= b.value_; }

    /// A view of the held bytes, valid until the next change.
    operator tav_utf8() const noexcept { return tav_utf8(value_); }

private:
    tavU8string & append(char const * data, std::size_t size);

    std::string value_;
};

/// An owning wide string.
class TAV_API tavWstring {
public:
    tavWstring() noexcept = default;
    /// NUL-terminated text; null counts as empty.
    tavWstring(wchar_t const * text);
    tavWstring(wchar_t const * data, unsigned size);
    tavWstring(std::wstring const & text);
    tavWstring(tav_iwstr text);
    tavWstring(tavWstring const & other) = default;
    tavWstring(tavWstring && other) noexcept = default;
    ~tavWstring() = default;

    tavWstring & operator=(wchar_t const * text);
    tavWstring & operator=(std::wstring const & text);
    tavWstring & operator=(tav_iwstr text);
    tavWstring & operator=(tavWstring const & other) = default;
    tavWstring & operator=(tavWstring && other) noexcept = default;

    /// Append in place.
    tavWstring & operator<<(wchar_t const * text);
    tavWstring & operator<<(std::wstring const & text);
    tavWstring & operator<<(tav_iwstr text);
    tavWstring & operator<<(tavWstring const & text);
    tavWstring & operator+=(wchar_t c);
    tavWstring & operator+=(tav_iwstr text);

    /// Concatenation.
    tavWstring operator+(tavWstring const & right) const;
    tavWstring operator+(wchar_t const * right) const;

    /// NUL-terminated.
    wchar_t const * data() const noexcept { return value_.data(); }
    unsigned size() const noexcept { return static_cast<unsigned>(value_.size()); }
    bool empty() const noexcept { return value_.empty(); }

    /// By units, the shorter first on a tie.
    friend bool operator==(tavWstring const & a, tavWstring const & b) { return a.value_ == b.value_; }
    friend bool operator!=(tavWstring const & a, tavWstring const & b) { return a.value_ != b.value_; }
    friend bool operator<(tavWstring const & a, tavWstring const & b) { return a.value_ < b.value_; }
    friend bool operator<=(tavWstring const & a, tavWstring const & b) { return a.value_ <= b.value_; }
    friend bool operator>(tavWstring const & a, tavWstring const & b) { return a.value_ > b.value_; }
    friend bool operator>=(tavWstring const & a, tavWstring const & b) { return a.value_ >= b.value_; }

    /// A view of the held units, valid until the next change.
    operator tav_iwstr() const noexcept { return tav_iwstr(value_); }
    /// Copies out.
    void operator>>(std::wstring & out) const { out = value_; }

private:
    tavWstring & append(wchar_t const * data, std::size_t size);

    std::wstring value_;
};

/// One byte, as a type of its own for the codec to overload on.
class TAV_API tavChar {
public:
    tavChar(char c = 0) noexcept : value_(c) {}
    operator char() const noexcept { return value_; }

private:
    char value_;
};

/// One wide unit, as a type of its own for the codec to overload on.
class TAV_API tavWchar {
public:
    tavWchar(wchar_t c = 0) noexcept : value_(c) {}
    operator wchar_t() const noexcept { return value_; }

private:
    wchar_t value_;
};

/// Write the bytes as they are, with no regard to the stream's field width; wide text as UTF-8.
TAV_API std::ostream & operator<<(std::ostream & out, tav_istr const & v);
TAV_API std::ostream & operator<<(std::ostream & out, tav_iwstr const & v);
TAV_API std::ostream & operator<<(std::ostream & out, tavString const & v);
TAV_API std::ostream & operator<<(std::ostream & out, tavU8string const & v);
TAV_API std::ostream & operator<<(std::ostream & out, tavWstring const & v);
TAV_API std::ostream & operator<<(std::ostream & out, tavChar const & v);
TAV_API std::ostream & operator<<(std::ostream & out, tavWchar const & v);

/// Make a value of a decoded text: the bytes, the text decoded as by tavString::toWstring, or the first
/// character of either, which is 0 for an empty text.
TAV_API void operator>>(std::string const & text, tavString & out);
TAV_API void operator>>(std::string const & text, tavU8string & out);
TAV_API void operator>>(std::string const & text, tavWstring & out);
TAV_API void operator>>(std::string const & text, tavChar & out);
TAV_API void operator>>(std::string const & text, tavWchar & out);

#endif
