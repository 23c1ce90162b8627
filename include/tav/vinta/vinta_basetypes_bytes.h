#ifndef TAV_VINTA_BASETYPES_BYTES_H
#define TAV_VINTA_BASETYPES_BYTES_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_text.h"

#include <cstring>
#include <iosfwd>
#include <string>
#include <type_traits>
#include <vector>

/// The growing byte buffer of the library and the text encodings of bytes.  A buffer belongs to one thread
/// at a time.  Nothing here fails but for memory: std::bad_alloc.

namespace tav {
namespace detail {

/// The bit pattern of a number, as an unsigned number of its size.
template <class U, class T>
U bitPattern(T v) noexcept {
    static_assert(sizeof(U) == sizeof(T), "a bit pattern has the size of its number");
    U bits;
    std::memcpy(&bits, &v, sizeof(U));
    return bits;
}

} // namespace detail
} // namespace tav

/// A view that marks its bytes as base64 text.
class TAV_API tav_base64 {
public:
    explicit tav_base64(tav_istr text) noexcept : text_(text) {}

    char const * data() const noexcept { return text_.data(); }
    unsigned size() const noexcept { return text_.size(); }

private:
    tav_istr text_;
};

/// A growing byte buffer.  It has no read position of its own: to read, take a view of it and consume that.
///
/// The size never exceeds the capacity; bytes behind the size have no defined value, and there is no NUL
/// behind them.  A write that needs more than the capacity allocates the larger of twice the capacity plus
/// one and what is needed.  Views of the buffer are good until the next growth, but every operation that
/// takes a view may be given one of the buffer itself.
class TAV_API tavBytes {
    template <class T>
    using IfView = std::enable_if_t<std::is_convertible<T const &, tav_istr>::value &&
                                    !std::is_base_of<tavBytes, T>::value>;

public:
    /// Null, 0, 0: nothing is allocated.
    tavBytes() noexcept : data_(nullptr), capacity_(0), size_(0) {}
    /// `capacity` bytes, not zeroed, of which none is in use.
    explicit tavBytes(unsigned capacity);
    /// A copy of the view; the capacity is its size.
    tavBytes(tav_istr v);
    /// The bytes that the text stands for.
    explicit tavBytes(tav_base64 v);
    /// A copy with all of the source's capacity.
    tavBytes(tavBytes const & other);
    /// Takes the buffer over and leaves the source null, 0, 0.
    tavBytes(tavBytes && other) noexcept
        : data_(other.data_), capacity_(other.capacity_), size_(other.size_) {
        other.reset();
    }
    ~tavBytes() { delete[] data_; }

    /// As the copy constructor; the old buffer goes only when the new one is there.
    tavBytes & operator=(tavBytes const & other);
    /// Copies too: the source keeps its bytes.  Use the constructor or swap to hand a buffer on.
    tavBytes & operator=(tavBytes && other);
    tavBytes & operator=(tav_istr v);

    unsigned char * data() noexcept { return data_; }
    unsigned char const * data() const noexcept { return data_; }
    unsigned char * buffer() noexcept { return data_; }
    unsigned char const * buffer() const noexcept { return data_; }
    /// The first byte, unchecked.
    unsigned char & operator*() noexcept { return *data_; }
    unsigned char const & operator*() const noexcept { return *data_; }
    /// Unchecked.
    unsigned char & operator[](unsigned i) noexcept { return data_[i]; }
    unsigned char const & operator[](unsigned i) const noexcept { return data_[i]; }

    unsigned size() const noexcept { return size_; }
    /// Sets the size, also downward; the capacity grows if needed.  New bytes are not zeroed.
    void size(unsigned n) {
        resize(n);
        size_ = n;
    }
    /// The bytes allocated.
    unsigned maxSize() const noexcept { return capacity_; }
    /// Makes room for `n` bytes in all and leaves the size alone: a reserve.
    void resize(unsigned n) {
        if (n > capacity_) {
            growTo(n);
        }
    }
    bool empty() const noexcept { return size_ == 0 || data_ == nullptr; }
    operator tav_istr() const noexcept { return tav_istr(data_, size_); }

    /// Append.
    tavBytes & writeByte(unsigned char b) { return append(b); }
    tavBytes & writeBytes(tav_istr v) {
        if (!v.empty()) {
            if (capacity_ - size_ >= v.size()) {
                std::memmove(data_ + size_, v.data(), v.size());
                size_ += v.size();
            } else {
                writeGrown(v);
            }
        }
        return *this;
    }
    tavBytes & operator+=(tav_istr v) { return writeBytes(v); }

    /// Append a number with its most significant byte first; `float` and `double` as their IEEE bit patterns.
    tavBytes & writeBigEndian(short v) { return writeBigEndian(static_cast<unsigned short>(v)); }
    tavBytes & writeBigEndian(unsigned short v) { return append(tav::detail::swapBytes(v)); }
    tavBytes & writeBigEndian(int v) { return writeBigEndian(static_cast<unsigned>(v)); }
    tavBytes & writeBigEndian(unsigned v) { return append(tav::detail::swapBytes(v)); }
    tavBytes & writeBigEndian(long v) { return writeBigEndian(static_cast<unsigned long long>(v)); }
    tavBytes & writeBigEndian(unsigned long v) { return writeBigEndian(static_cast<unsigned long long>(v)); }
    tavBytes & writeBigEndian(long long v) { return writeBigEndian(static_cast<unsigned long long>(v)); }
    tavBytes & writeBigEndian(unsigned long long v) { return append(tav::detail::swapBytes(v)); }
    tavBytes & writeBigEndian(float v) { return writeBigEndian(tav::detail::bitPattern<unsigned>(v)); }
    tavBytes & writeBigEndian(double v) {
        return writeBigEndian(tav::detail::bitPattern<unsigned long long>(v));
    }

    /// Append a view, or a number in the machine's own byte order.
    tavBytes & operator<<(tav_istr v) { return writeBytes(v); }
    tavBytes & operator<<(char v) { return append(v); }
    tavBytes & operator<<(unsigned char v) { return append(v); }
    tavBytes & operator<<(short v) { return append(v); }
    tavBytes & operator<<(unsigned short v) { return append(v); }
    tavBytes & operator<<(int v) { return append(v); }
    tavBytes & operator<<(unsigned v) { return append(v); }
    tavBytes & operator<<(long v) { return append(v); }
    tavBytes & operator<<(unsigned long v) { return append(v); }
    tavBytes & operator<<(long long v) { return append(v); }
    tavBytes & operator<<(unsigned long long v) { return append(v); }
    tavBytes & operator<<(float v) { return append(v); }
    tavBytes & operator<<(double v) { return append(v); }

    /// Drops the first `n` bytes and moves the rest to the front; when none is left the bytes stay as they
    /// were and only the size goes to 0.  The capacity does not change.
    void remove(unsigned n) noexcept;
    /// Frees the buffer: null, 0, 0.
    void clear() noexcept;
    /// Null, 0, 0 without freeing: for after the buffer was handed over.
    void reset() noexcept {
        data_ = nullptr;
        capacity_ = 0;
        size_ = 0;
    }
    /// Hands the buffer over; the receiver must call free() on the result.
    tav_ostr release();
    void swap(tavBytes & other) noexcept;

    /// By tav_istr::compare.  For == and != one side may be whatever converts to a view.
    friend bool operator==(tavBytes const & a, tavBytes const & b) { return tav_istr(a) == tav_istr(b); }
    friend bool operator!=(tavBytes const & a, tavBytes const & b) { return tav_istr(a) != tav_istr(b); }
    friend bool operator<(tavBytes const & a, tavBytes const & b) { return tav_istr(a) < tav_istr(b); }
    friend bool operator<=(tavBytes const & a, tavBytes const & b) { return tav_istr(a) <= tav_istr(b); }
    friend bool operator>(tavBytes const & a, tavBytes const & b) { return tav_istr(a) > tav_istr(b); }
    friend bool operator>=(tavBytes const & a, tavBytes const & b) { return tav_istr(a) >= tav_istr(b); }

    template <class T, class = IfView<T>>
    friend bool operator==(tavBytes const & a, T const & b) {
        tav_istr const view = b;
        return tav_istr(a) == view;
    }
    template <class T, class = IfView<T>>
    friend bool operator!=(tavBytes const & a, T const & b) {
        return !(a == b);
    }
    template <class T, class = IfView<T>>
    friend bool operator==(T const & a, tavBytes const & b) {
        return b == a;
    }
    template <class T, class = IfView<T>>
    friend bool operator!=(T const & a, tavBytes const & b) {
        return !(b == a);
    }

    /// Assigns the base64 text without line breaks, which is empty for an empty buffer.
    void toBase64(tavString & out) const;
    /// Replaces the content by the bytes that the text stands for.
    void fromBase64(tav_istr text);

private:
    template <class T>
    tavBytes & append(T v) {
        if (capacity_ - size_ < sizeof(T)) {
            growTo(static_cast<unsigned long long>(size_) + sizeof(T));
        }
        std::memcpy(data_ + size_, &v, sizeof(T));
        size_ += static_cast<unsigned>(sizeof(T));
        return *this;
    }

    /// The capacity that a need above the present one leads to.
    unsigned grownCapacity(unsigned long long needed) const;
    /// Moves the content to a larger buffer.
    void growTo(unsigned long long needed);
    /// Appends what has no room, before the old buffer goes: the view may be one of it.
    void writeGrown(tav_istr v);

    unsigned char * data_;
    unsigned capacity_;
    unsigned size_;
};

/// For logs: "[", the size, "]" and the content in hexadecimal; above 80 bytes only the first 64, "***" and
/// the last 16.
TAV_API std::ostream & operator<<(std::ostream & out, tavBytes const & v);

/// Base64 with the alphabet A-Z a-z 0-9 + / and the pad "=".
class TAV_API tavBase64 {
public:
    /// Replaces `out` by the text; empty input leaves it as it was.  With line breaks, "\r\n" stands between
    /// pieces of 76 characters, never behind the last.
    static void encode(tav_istr in, std::string & out, bool lineBreaks);
    static void encode(std::vector<unsigned char> const & in, std::string & out, bool lineBreaks);
    /// Replaces `out` by the bytes.  Any text is taken: foreign characters are dropped, characters missing at
    /// the end count as 'A', and a pad suppresses the byte of its own place only.
    static void decode(tav_istr text, std::vector<unsigned char> & out);
    static void decode(tav_istr text, tavBytes & out);
    /// True for the alphabet and for the pad.
    static bool isBase64(char c) noexcept;
};

/// Hexadecimal text in groups of four bytes.
class TAV_API tavHex16 {
public:
    /// Two upper-case digits a byte, and a space before each byte whose index is a multiple of 4 but 0.
    static tavString encode(tav_istr v);
    /// Takes the digits of either case in pairs and skips every other byte; a single one at the end is
    /// dropped.
    static tavBytes decode(tav_istr text);
};

/// A number folded to 16 bits: the exclusive-or of its 16-bit parts.  Shorter numbers are kept, a `char` with
/// its sign.
class TAV_API tavHash16 {
public:
    tavHash16() noexcept : value_(0) {}
    tavHash16(bool v) noexcept : value_(v) {}
    tavHash16(char v) noexcept : value_(static_cast<unsigned short>(v)) {}
    tavHash16(unsigned char v) noexcept : value_(v) {}
    tavHash16(short v) noexcept : value_(static_cast<unsigned short>(v)) {}
    tavHash16(unsigned short v) noexcept : value_(v) {}
    tavHash16(int v) noexcept : tavHash16(static_cast<unsigned>(v)) {}
    tavHash16(unsigned v) noexcept : value_(static_cast<unsigned short>((v >> 16) ^ v)) {}
    tavHash16(long v) noexcept : tavHash16(static_cast<unsigned long long>(v)) {}
    tavHash16(unsigned long v) noexcept : tavHash16(static_cast<unsigned long long>(v)) {}
    tavHash16(long long v) noexcept : tavHash16(static_cast<unsigned long long>(v)) {}
    tavHash16(unsigned long long v) noexcept
        : value_(static_cast<unsigned short>((v >> 48) ^ (v >> 32) ^ (v >> 16) ^ v)) {}
    tavHash16(void const * v) noexcept : tavHash16(reinterpret_cast<unsigned long long>(v)) {}

    unsigned short value() const noexcept { return value_; }

private:
    unsigned short value_;
};

#endif
