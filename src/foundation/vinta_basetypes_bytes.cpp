#include "tav/vinta/vinta_basetypes_bytes.h"

#include "tav/vinta/vinta_basetypes_failures.h"

#include <algorithm>
#include <array>
#include <new>
#include <ostream>
#include <utility>

namespace {

constexpr char base64Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char hexDigits[] = "0123456789ABCDEF";

constexpr unsigned char padValue = 64;
constexpr unsigned char foreign = 0xFF;

using ByteTable = std::array<unsigned char, 256>;

/// For each byte its 6-bit value, padValue for the pad and `foreign` for all that is dropped.
constexpr ByteTable makeBase64Table() {
    ByteTable table{};
    for (std::size_t i = 0; i < table.size(); ++i) {
        table[i] = foreign;
    }
    for (unsigned char value = 0; value < 64; ++value) {
        table[static_cast<unsigned char>(base64Digits[value])] = value;
    }
    table[static_cast<unsigned char>('=')] = padValue;
    return table;
}

/// For each byte the value of the hex digit, or `foreign`.
constexpr ByteTable makeHexTable() {
    ByteTable table{};
    for (std::size_t i = 0; i < table.size(); ++i) {
        table[i] = foreign;
    }
    for (unsigned char value = 0; value < 16; ++value) {
        unsigned char const digit = static_cast<unsigned char>(hexDigits[value]);
        table[digit] = value;
        if (value >= 10) {
            table[static_cast<std::size_t>(digit) - 'A' + 'a'] = value;
        }
    }
    return table;
}

constexpr ByteTable base64Table = makeBase64Table();
constexpr ByteTable hexTable = makeHexTable();

constexpr std::size_t lineBytes = 57;
constexpr std::size_t lineSize = 76;

/// Writes the text of `n` bytes, padded to whole groups, and returns the place behind it.
char * encodeGroups(unsigned char const * in, std::size_t n, char * out) noexcept {
    for (; n >= 3; n -= 3, in += 3, out += 4) {
        unsigned const group = static_cast<unsigned>(in[0]) << 16 | static_cast<unsigned>(in[1]) << 8 | in[2];
        out[0] = base64Digits[group >> 18];
        out[1] = base64Digits[(group >> 12) & 63];
        out[2] = base64Digits[(group >> 6) & 63];
        out[3] = base64Digits[group & 63];
    }
    if (n > 0) {
        unsigned const second = n > 1 ? in[1] : 0u;
        out[0] = base64Digits[in[0] >> 2];
        out[1] = base64Digits[(in[0] & 3u) << 4 | second >> 4];
        out[2] = n > 1 ? base64Digits[(second & 15u) << 2] : '=';
        out[3] = '=';
        out += 4;
    }
    return out;
}

/// The most bytes that `size` characters of base64 stand for.
std::size_t decodedBound(std::size_t size) noexcept {
    return (size + 3) / 4 * 3;
}

/// Writes what the text stands for and returns the count of bytes.  `out` has room for decodedBound.
std::size_t decodeGroups(unsigned char const * in, unsigned char const * end, unsigned char * out) noexcept {
    unsigned char * const start = out;
    for (;;) {
        while (end - in >= 4) {
            unsigned const b0 = base64Table[in[0]];
            unsigned const b1 = base64Table[in[1]];
            unsigned const b2 = base64Table[in[2]];
            unsigned const b3 = base64Table[in[3]];
            if ((b0 | b1 | b2 | b3) >= padValue) {
                break;
            }
            out[0] = static_cast<unsigned char>(b0 << 2 | b1 >> 4);
            out[1] = static_cast<unsigned char>(b1 << 4 | b2 >> 2);
            out[2] = static_cast<unsigned char>(b2 << 6 | b3);
            in += 4;
            out += 3;
        }
        // A group with foreign characters, pads or a missing end: gather it one character at a time.
        unsigned group[4] = {0, 0, 0, 0};
        unsigned kept = 0;
        while (kept < 4 && in != end) {
            unsigned const value = base64Table[*in++];
            if (value != foreign) {
                group[kept++] = value;
            }
        }
        if (kept == 0) {
            return static_cast<std::size_t>(out - start);
        }
        // Outside the test for it a pad weighs 63.
        unsigned const b1 = std::min(group[1], 63u);
        unsigned const b2 = std::min(group[2], 63u);
        *out++ = static_cast<unsigned char>(std::min(group[0], 63u) << 2 | b1 >> 4);
        if (group[2] != padValue) {
            *out++ = static_cast<unsigned char>(b1 << 4 | b2 >> 2);
        }
        if (group[3] != padValue) {
            *out++ = static_cast<unsigned char>(b2 << 6 | group[3]);
        }
    }
}

unsigned char const * bytesOf(tav_istr v) noexcept {
    return reinterpret_cast<unsigned char const *>(v.data());
}

} // namespace

tavBytes::tavBytes(unsigned capacity)
    : data_(capacity > 0 ? new unsigned char[capacity] : nullptr), capacity_(capacity), size_(0) {}

tavBytes::tavBytes(tav_istr v) : tavBytes(v.empty() ? 0u : v.size()) {
    if (capacity_ > 0) {
        std::memcpy(data_, v.data(), capacity_);
    }
    size_ = capacity_;
}

tavBytes::tavBytes(tav_base64 v) : tavBytes() {
    fromBase64(tav_istr(v.data(), v.size()));
}

tavBytes::tavBytes(tavBytes const & other) : tavBytes(other.capacity_) {
    if (capacity_ > 0) {
        std::memcpy(data_, other.data_, capacity_);
    }
    size_ = other.size_;
}

tavBytes & tavBytes::operator=(tavBytes const & other) {
    if (this != &other) {
        tavBytes copy(other);
        swap(copy);
    }
    return *this;
}

tavBytes & tavBytes::operator=(tavBytes && other) {
    return *this = static_cast<tavBytes const &>(other);
}

tavBytes & tavBytes::operator=(tav_istr v) {
    tavBytes copy(v);
    swap(copy);
    return *this;
}

void tavBytes::remove(unsigned n) noexcept {
    if (n >= size_) {
        size_ = 0;
    } else if (n > 0) {
        size_ -= n;
        std::memmove(data_, data_ + n, size_);
    }
}

void tavBytes::clear() noexcept {
    delete[] data_;
    reset();
}

tav_ostr tavBytes::release() {
    tav_ostr handed(data_, size_, [](char * data) { delete[] reinterpret_cast<unsigned char *>(data); });
    reset();
    return handed;
}

void tavBytes::swap(tavBytes & other) noexcept {
    std::swap(data_, other.data_);
    std::swap(capacity_, other.capacity_);
    std::swap(size_, other.size_);
}

void tavBytes::toBase64(tavString & out) const {
    std::string text;
    tavBase64::encode(*this, text, false);
    out = std::move(text);
}

void tavBytes::fromBase64(tav_istr text) {
    tavBase64::decode(text, *this);
}

unsigned tavBytes::grownCapacity(unsigned long long needed) const {
    constexpr unsigned long long limit = 0xFFFFFFFFu;
    if (needed > limit) {
        throw std::bad_alloc();
    }
    return static_cast<unsigned>(std::min(std::max(capacity_ * 2ull + 1, needed), limit));
}

void tavBytes::growTo(unsigned long long needed) {
    tavBytes grown(grownCapacity(needed));
    if (size_ > 0) {
        std::memcpy(grown.data_, data_, size_);
    }
    grown.size_ = size_;
    swap(grown);
}

void tavBytes::writeGrown(tav_istr v) {
    unsigned long long const needed = static_cast<unsigned long long>(size_) + v.size();
    tavBytes grown(grownCapacity(needed));
    if (size_ > 0) {
        std::memcpy(grown.data_, data_, size_);
    }
    std::memcpy(grown.data_ + size_, v.data(), v.size());
    grown.size_ = static_cast<unsigned>(needed);
    swap(grown);
}

std::ostream & operator<<(std::ostream & out, tavBytes const & v) {
    tav_istr const content = v;
    std::string const size = '[' + std::to_string(v.size()) + ']';
    out.write(size.data(), static_cast<std::streamsize>(size.size()));
    if (v.size() <= 80) {
        return out << tav::printAsHex(content);
    }
    out << tav::printAsHex(content.leftstr(64));
    out.write("***", 3);
    return out << tav::printAsHex(content.rightstr(16));
}

void tavBase64::encode(tav_istr in, std::string & out, bool lineBreaks) {
    if (in.empty()) {
        return;
    }
    std::size_t const size = in.size();
    std::size_t const textSize = (size + 2) / 3 * 4;
    std::size_t const breaks = lineBreaks ? (textSize - 1) / lineSize : 0;
    std::string text(textSize + 2 * breaks, '\0');
    unsigned char const * bytes = bytesOf(in);
    char * to = text.data();
    for (std::size_t i = 0; i < breaks; ++i) {
        to = encodeGroups(bytes, lineBytes, to);
        bytes += lineBytes;
        *to++ = '\r';
        *to++ = '\n';
    }
    encodeGroups(bytes, size - breaks * lineBytes, to);
    out = std::move(text);
}

void tavBase64::encode(std::vector<unsigned char> const & in, std::string & out, bool lineBreaks) {
    encode(tav_istr(in.data(), in.size()), out, lineBreaks);
}

void tavBase64::decode(tav_istr text, std::vector<unsigned char> & out) {
    std::vector<unsigned char> decoded;
    if (!text.empty()) {
        decoded.resize(decodedBound(text.size()));
        unsigned char const * const in = bytesOf(text);
        decoded.resize(decodeGroups(in, in + text.size(), decoded.data()));
    }
    out = std::move(decoded);
}

void tavBase64::decode(tav_istr text, tavBytes & out) {
    tavBytes decoded;
    if (!text.empty()) {
        decoded.resize(static_cast<unsigned>(decodedBound(text.size())));
        unsigned char const * const in = bytesOf(text);
        decoded.size(static_cast<unsigned>(decodeGroups(in, in + text.size(), decoded.data())));
    }
    out.swap(decoded);
}

bool tavBase64::isBase64(char c) noexcept {
    return base64Table[static_cast<unsigned char>(c)] != foreign;
}

tavString tavHex16::encode(tav_istr v) {
    if (v.empty()) {
        return tavString();
    }
    std::size_t const size = v.size();
    std::string text(2 * size + (size - 1) / 4, '\0');
    unsigned char const * const in = bytesOf(v);
    char * to = text.data();
    for (std::size_t i = 0; i < size; ++i) {
        if (i % 4 == 0 && i != 0) {
            *to++ = ' ';
        }
        *to++ = hexDigits[in[i] >> 4];
        *to++ = hexDigits[in[i] & 15];
    }
    return tavString(std::move(text));
}

tavBytes tavHex16::decode(tav_istr text) {
    if (text.empty()) {
        return tavBytes();
    }
    tavBytes decoded(text.size() / 2);
    unsigned char * to = decoded.data();
    unsigned char const * in = bytesOf(text);
    unsigned char const * const end = in + text.size();
    unsigned high = foreign;
    for (; in != end; ++in) {
        unsigned const value = hexTable[*in];
        if (value == foreign) {
            continue;
        }
        if (high == foreign) {
            high = value;
        } else {
            *to++ = static_cast<unsigned char>(high << 4 | value);
            high = foreign;
        }
    }
    decoded.size(static_cast<unsigned>(to - decoded.data()));
    return decoded;
}
