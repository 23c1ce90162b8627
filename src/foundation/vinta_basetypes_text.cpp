#include "tav/vinta/vinta_basetypes_text.h"

#include "foundation/views.h"

#include <algorithm>
#include <cstdint>
#include <cwchar>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace {

using tav::detail::bytesOf;
using tav::detail::checkGrowth;

/// Which of the 256 bytes belong to a set.
class ByteSet {
public:
    explicit ByteSet(tav_istr set) noexcept {
        if (!set.empty()) {
            for (char const c : set) {
                unsigned const byte = static_cast<unsigned char>(c);
                bits_[byte >> 6] |= std::uint64_t{1} << (byte & 63u);
            }
        }
    }

    bool has(char c) const noexcept {
        unsigned const byte = static_cast<unsigned char>(c);
        return (bits_[byte >> 6] >> (byte & 63u)) & 1u;
    }

private:
    std::uint64_t bits_[4] = {};
};

std::wstring_view unitsOf(tav_iwstr v) noexcept {
    return v.empty() ? std::wstring_view() : std::wstring_view(v.data(), v.size());
}

/// Both texts in one, with one allocation.
template <class Char>
std::basic_string<Char> joined(std::basic_string_view<Char> left, std::basic_string_view<Char> right) {
    checkGrowth(left.size(), right.size());
    std::basic_string<Char> result;
    result.reserve(left.size() + right.size());
    result.append(left).append(right);
    return result;
}

/// A position as the owning strings take it: a negative one counts as huge.
std::size_t positionOf(int pos) noexcept {
    return static_cast<unsigned>(pos);
}

int foundAt(std::size_t pos) noexcept {
    return pos == std::string_view::npos ? -1 : static_cast<int>(pos);
}

/// As std::string_view::find, but linear whatever the two texts are.
std::size_t findText(std::string_view text, std::string_view s, std::size_t from) noexcept {
    if (from > text.size()) {
        return std::string_view::npos;
    }
    if (s.empty()) {
        return from;
    }
    void const * const hit = memmem(text.data() + from, text.size() - from, s.data(), s.size());
    return hit ? static_cast<std::size_t>(static_cast<char const *>(hit) - text.data())
               : std::string_view::npos;
}

/// The count of bytes in [start, end) as substring and remove read it; it may run past the end.
std::size_t lengthOf(int start, int end, std::size_t size) {
    if (positionOf(start) > size) {
        throw std::out_of_range("invalid string position");
    }
    return end < start ? std::string::npos : static_cast<std::size_t>(end - start);
}

constexpr std::uint64_t lowBits = 0x0101010101010101u;
constexpr std::uint64_t highBits = 0x8080808080808080u;

/// True if none of the eight bytes is 0 or above 0x7F.
bool plainText(std::uint64_t eight) noexcept {
    return (((eight - lowBits) | eight) & highBits) == 0;
}

/// Takes one sequence from `p`, which is before `end`.
wchar_t decodeUnit(char const *& p, char const * end) noexcept {
    unsigned const lead = static_cast<unsigned char>(*p++);
    if (lead < 0x80) {
        return static_cast<wchar_t>(lead);
    }
    unsigned more = 0;
    unsigned mask = 0x7F;
    if (lead >= 0xF8) {
        more = 4;
        mask = 0x07;
    } else if (lead >= 0xF0) {
        more = 3;
        mask = 0x0F;
    } else if (lead >= 0xE0) {
        more = 2;
        mask = 0x1F;
    } else if (lead >= 0xC0) {
        more = 1;
        mask = 0x3F;
    }
    unsigned value = lead & mask;
    while (more > 0 && p != end && (static_cast<unsigned char>(*p) & 0xC0) == 0x80) {
        value = ((value << 6) & 0xFFFF) | (static_cast<unsigned char>(*p) & 0x3F);
        ++p;
        --more;
    }
    return static_cast<wchar_t>(value);
}

/// Decodes up to the end or the first unit of 0.
std::wstring decodeText(std::string_view text) {
    std::wstring result(text.size(), L'\0');
    wchar_t * out = result.data();
    char const * p = text.data();
    char const * const end = p + text.size();
    while (p != end) {
        while (end - p >= 8) {
            std::uint64_t eight;
            std::memcpy(&eight, p, sizeof eight);
            if (!plainText(eight)) {
                break;
            }
            for (int i = 0; i < 8; ++i) {
                out[i] = static_cast<wchar_t>(p[i]);
            }
            out += 8;
            p += 8;
        }
        if (p == end) {
            break;
        }
        wchar_t const unit = decodeUnit(p, end);
        if (unit == 0) {
            break;
        }
        *out++ = unit;
    }
    result.resize(static_cast<std::size_t>(out - result.data()));
    return result;
}

/// What is written for a unit: a code point, or of any other value its low 16 bits.
unsigned codeOf(wchar_t unit) noexcept {
    unsigned const code = static_cast<unsigned>(unit);
    return code > 0x10FFFF ? code & 0xFFFF : code;
}

/// How many bytes `code` takes as UTF-8, with a surrogate pair for what is above 0xFFFF.
std::size_t encodedSize(unsigned code) noexcept {
    return std::size_t{1} + (code >= 0x80) + (code >= 0x800) + (code > 0xFFFF ? 3u : 0u);
}

constexpr std::size_t maxEncodedSize = 6;

char * encodeThree(char * out, unsigned code) noexcept {
    out[0] = static_cast<char>(0xE0 | (code >> 12));
    out[1] = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out[2] = static_cast<char>(0x80 | (code & 0x3F));
    return out + 3;
}

/// Writes the bytes of `code` and returns the place behind them.
char * encodeUnit(char * out, unsigned code) noexcept {
    if (code < 0x80) {
        *out = static_cast<char>(code);
        return out + 1;
    }
    if (code < 0x800) {
        out[0] = static_cast<char>(0xC0 | (code >> 6));
        out[1] = static_cast<char>(0x80 | (code & 0x3F));
        return out + 2;
    }
    if (code <= 0xFFFF) {
        return encodeThree(out, code);
    }
    unsigned const rest = code - 0x10000;
    return encodeThree(encodeThree(out, 0xD800 | (rest >> 10)), 0xDC00 | (rest & 0x3FF));
}

int differenceOf(char a, char b) noexcept {
    return static_cast<signed char>(a) - static_cast<signed char>(b);
}

/// Wide units can be further apart than an int reaches.
int differenceOf(wchar_t a, wchar_t b) noexcept {
    long long const difference = static_cast<long long>(a) - static_cast<long long>(b);
    return static_cast<int>(
        std::clamp<long long>(difference, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

unsigned lengthOfText(char const * s) noexcept {
    return s ? static_cast<unsigned>(std::strlen(s)) : 0;
}
unsigned lengthOfText(wchar_t const * s) noexcept {
    return s ? static_cast<unsigned>(std::wcslen(s)) : 0;
}

template <class Char>
int compareText(Char const * a, Char const * b, unsigned n) noexcept {
    if (!a || !b) {
        return (a != nullptr) - (b != nullptr);
    }
    for (unsigned i = 0; i < n; ++i) {
        if (a[i] != b[i]) {
            return differenceOf(a[i], b[i]);
        }
        if (a[i] == 0) {
            return 0;
        }
    }
    return 0;
}

template <class Char>
bool equalText(Char const * a, Char const * b) noexcept {
    unsigned const size = lengthOfText(a);
    return size == lengthOfText(b) && compareText(a, b, size) == 0;
}

template <class Char>
unsigned copyText(Char * dst, unsigned capacity, Char const * src, unsigned n) noexcept {
    if (n == 0xFFFFFFFFu) {
        n = lengthOfText(src);
    }
    unsigned const limit = std::min(capacity - 1u, n);
    unsigned copied = 0;
    while (copied < limit && src && src[copied] != 0) {
        dst[copied] = src[copied];
        ++copied;
    }
    bool const ended = !src || src[copied] == 0;
    dst[ended ? copied : limit + 1u] = 0;
    return limit;
}

} // namespace

void tav::detail::throwTooLong() {
    throw std::length_error("string too long");
}

tav_istr tav_istr::find_one_of(tav_istr set) const noexcept {
    if (set.readable() == 1) {
        return find(*set.data_);
    }
    ByteSet const bytes(set);
    unsigned const n = readable();
    for (unsigned i = 0; i < n; ++i) {
        if (bytes.has(data_[i])) {
            return cut(i);
        }
    }
    return atEnd();
}

tav_istr tav_istr::find_last(char c) const noexcept {
    unsigned const at = rfind(c);
    return at == 0xFFFFFFFFu ? *this : cut(at);
}

tav_istr tav_istr::find_last_one_of(tav_istr set) const noexcept {
    ByteSet const bytes(set);
    for (unsigned i = readable(); i > 1;) {
        --i;
        if (bytes.has(data_[i])) {
            return cut(i);
        }
    }
    return *this;
}

unsigned tav_istr::rfind(char c) const noexcept {
    void const * const hit = empty() ? nullptr : memrchr(data_, c, size_);
    return hit ? static_cast<unsigned>(static_cast<char const *>(hit) - data_) : 0xFFFFFFFFu;
}

tav_istr tav_istr::trimRight() const noexcept {
    tav_istr result = *this;
    if (!result.data_) {
        return result;
    }
    while (result.size_ > 0) {
        char const c = result.data_[result.size_ - 1];
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n') {
            break;
        }
        --result.size_;
    }
    return result;
}

tav_istr tav_istr::trim(char c) const noexcept {
    tav_istr result = *this;
    if (!result.empty() && *result.data_ == c) {
        result = result.cut(1);
    }
    if (!result.empty() && result.lastChar() == c) {
        --result.size_;
    }
    return result;
}

int tav_istr::readDigits(int maxDigits) noexcept {
    if (empty()) {
        return 0;
    }
    auto const isDigit = [](char c) { return static_cast<unsigned char>(c - '0') < 10; };
    while (size_ > 0 && !isDigit(*data_)) {
        move(1);
    }
    unsigned value = 0;
    for (; maxDigits > 0 && size_ > 0 && isDigit(*data_); --maxDigits) {
        value = value * 10 + static_cast<unsigned>(*data_ - '0');
        move(1);
    }
    return static_cast<int>(value);
}

unsigned long long tav_istr::readRest(unsigned width) noexcept {
    unsigned long long value = 0;
    for (unsigned i = 0; i < width; ++i) {
        value = (value << 8) | readByte();
    }
    return value;
}

tav_iwstr::tav_iwstr(wchar_t const * text) noexcept : data_(text), size_(lengthOfText(text)) {}

tav_iwstr tav_iwstr::skipBlank() const noexcept {
    tav_iwstr rest = *this;
    if (!rest.data_) {
        return rest;
    }
    while (*rest.data_ == L' ' || (*rest.data_ >= L'\t' && *rest.data_ <= L'\r')) {
        ++rest.data_;
        rest.size_ -= rest.size_ > 0 ? 1 : 0;
    }
    return rest;
}

int tav_iwstr::compare(tav_iwstr const & other) const noexcept {
    if (empty() && other.empty()) {
        return 0;
    }
    int const order = tav_wstr_compare(data_, other.data_, std::min(size_, other.size_));
    return order != 0 ? order : (size_ > other.size_) - (size_ < other.size_);
}

tav_ostr::tav_ostr() : data_(nullptr), size_(0) {}

tav_ostr::tav_ostr(char * data, unsigned size, std::function<void(char *)> release)
    : data_(data), size_(size), release_(std::move(release)) {}

tav_ostr::tav_ostr(unsigned char * data, unsigned size, std::function<void(char *)> release)
    : tav_ostr(reinterpret_cast<char *>(data), size, std::move(release)) {}

tav_ostr::tav_ostr(void * data, unsigned size, std::function<void(char *)> release)
    : tav_ostr(static_cast<char *>(data), size, std::move(release)) {}

tav_ostr::tav_ostr(std::function<void(char *)> release)
    : data_(nullptr), size_(0), release_(std::move(release)) {}

void tav_ostr::free() {
    if (release_) {
        release_(data_);
    }
    data_ = nullptr;
}

tavString::tavString(char const * text) {
    *this << text;
}

tavString::tavString(char const * data, unsigned size) {
    *this << tav_istr(data, size);
}

tavString::tavString(std::string const & text) {
    *this << text;
}

tavString::tavString(std::string && text) {
    checkGrowth(0, text.size());
    value_ = std::move(text);
}

tavString::tavString(tav_istr text) : value_(bytesOf(text)) {}

tavString::tavString(wchar_t const * text) {
    fromWstring(text);
}

tavString::tavString(std::wstring const & text) {
    fromWstring(text);
}

tavString::tavString(tav_iwstr text) {
    fromWstring(text);
}

tavString & tavString::operator=(char const * text) {
    std::string_view const bytes = text ? std::string_view(text) : std::string_view();
    checkGrowth(0, bytes.size());
    value_ = bytes;
    return *this;
}

tavString & tavString::operator=(std::string const & text) {
    checkGrowth(0, text.size());
    value_ = text;
    return *this;
}

tavString & tavString::operator=(std::string && text) {
    checkGrowth(0, text.size());
    value_ = std::move(text);
    return *this;
}

tavString & tavString::operator=(tav_istr text) {
    value_ = bytesOf(text);
    return *this;
}

tavString & tavString::write(wchar_t unit) {
    char bytes[maxEncodedSize];
    char const * const end = encodeUnit(bytes, codeOf(unit));
    return append(bytes, static_cast<std::size_t>(end - bytes));
}

tavString tavString::operator|(tavString const & right) const {
    tavString result;
    result.value_ = joined<char>(value_, right.value_);
    return result;
}

tavString tavString::operator|(char const * right) const {
    tavString result;
    result.value_ = joined<char>(value_, bytesOf(right));
    return result;
}

bool tavString::isDigits() const noexcept {
    std::string_view rest = value_;
    if (!rest.empty() && (rest.front() == '+' || rest.front() == '-')) {
        rest.remove_prefix(1);
    }
    return std::all_of(rest.begin(), rest.end(), [](char c) { return c >= '0' && c <= '9'; });
}

int tavString::indexOf(tav_istr s) const noexcept {
    return indexOf(0, s);
}

int tavString::indexOf(int start, tav_istr s) const noexcept {
    return foundAt(findText(value_, bytesOf(s), positionOf(start)));
}

int tavString::indexOfAnyChar(tav_istr set) const noexcept {
    tav_istr const rest = tav_istr(value_).find_one_of(set);
    return rest.empty() ? -1 : static_cast<int>(size() - rest.size());
}

int tavString::indexOfChar(char c, int from) const noexcept {
    return foundAt(std::string_view(value_).find(c, positionOf(from)));
}

int tavString::lastIndexOf(tav_istr s) const noexcept {
    return lastIndexOf(0, s);
}

int tavString::lastIndexOf(int start, tav_istr s) const noexcept {
    return foundAt(std::string_view(value_).rfind(bytesOf(s), positionOf(start)));
}

int tavString::lastIndexOfAnyChar(tav_istr set) const noexcept {
    return !value_.empty() && bytesOf(set).find(value_.front()) != std::string_view::npos ? 0 : -1;
}

int tavString::lastIndexOfChar(char c, int from) const noexcept {
    return foundAt(std::string_view(value_).rfind(c, positionOf(from)));
}

tavString tavString::substring(int start, int end) const {
    std::size_t const length = lengthOf(start, end, value_.size());
    return tavString(value_.substr(positionOf(start), length));
}

tavString & tavString::remove(int start, int end) {
    std::size_t const length = lengthOf(start, end, value_.size());
    value_.erase(positionOf(start), length);
    return *this;
}

tavString & tavString::insert(int pos, tav_istr s) {
    std::string_view const bytes = bytesOf(s);
    checkGrowth(value_.size(), bytes.size());
    value_.insert(std::min(positionOf(pos), value_.size()), bytes.data(), bytes.size());
    return *this;
}

tavString tavString::replace(tav_istr from, tav_istr to) const {
    std::string_view const text = value_;
    std::string_view const pattern = bytesOf(from);
    if (pattern.empty()) {
        return *this;
    }
    tavString result;
    result.value_.reserve(text.size());
    std::size_t copied = 0;
    for (std::size_t hit = findText(text, pattern, 0); hit != std::string_view::npos;
         hit = findText(text, pattern, copied)) {
        result.append(text.data() + copied, hit - copied);
        result << to;
        copied = hit + pattern.size();
    }
    result.append(text.data() + copied, text.size() - copied);
    return result;
}

tavString tavString::replaceCharacter(char a, char b) const {
    tavString result = *this;
    std::replace(result.value_.begin(), result.value_.end(), a, b);
    return result;
}

tavString tavString::toUpperCase() const {
    tavString result = *this;
    for (char & c : result.value_) {
        c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
    }
    return result;
}

tavString tavString::trim() const {
    return tavString(tav_istr(value_).trim());
}

void tavString::fromWstring(tav_iwstr text) {
    std::wstring_view const units = unitsOf(text);
    std::size_t needed = 0;
    for (wchar_t const unit : units) {
        needed += encodedSize(codeOf(unit));
    }
    checkGrowth(value_.size(), needed);
    std::size_t const before = value_.size();
    value_.resize(before + needed);
    char * out = value_.data() + before;
    if (needed == units.size()) {
        std::transform(units.begin(), units.end(), out, [](wchar_t unit) { return static_cast<char>(unit); });
        return;
    }
    for (wchar_t const unit : units) {
        out = encodeUnit(out, codeOf(unit));
    }
}

std::wstring tavString::toWstring() const {
    return decodeText(value_);
}

tavString const & tavString::null() {
    static tavString const empty;
    return empty;
}

tavString tavString::from(long long value, bool hex, int width) {
    if (!hex) {
        return tavString(std::to_string(value));
    }
    std::string digits;
    auto rest = static_cast<unsigned long long>(value);
    do {
        digits.push_back("0123456789ABCDEF"[rest & 15]);
        rest >>= 4;
    } while (rest != 0);
    if (width > 0 && digits.size() < static_cast<std::size_t>(width)) {
        digits.append(static_cast<std::size_t>(width) - digits.size(), '0');
    }
    digits.append("x0");
    std::reverse(digits.begin(), digits.end());
    return tavString(std::move(digits));
}

wchar_t tavString::read(tav_istr & v) noexcept {
    if (v.empty()) {
        return 0;
    }
    char const * p = v.data();
    wchar_t const unit = decodeUnit(p, v.end());
    v = tav_istr(p, v.end());
    return unit;
}

tavU8string::tavU8string(char const * text) {
    *this << text;
}

tavU8string::tavU8string(char const * data, unsigned size) {
    *this << tav_istr(data, size);
}

tavU8string::tavU8string(std::string const & text) {
    *this << text;
}

tavU8string::tavU8string(tav_istr text) {
    *this << text;
}

tavU8string::tavU8string(tav_utf8 text) {
    *this << text;
}

tavU8string & tavU8string::operator=(char const * text) {
    return *this = tav_istr(text);
}

tavU8string & tavU8string::operator=(std::string const & text) {
    checkGrowth(0, text.size());
    value_ = text;
    return *this;
}

tavU8string & tavU8string::operator=(tav_istr text) {
    value_ = bytesOf(text);
    return *this;
}

tavU8string & tavU8string::operator=(tav_utf8 text) {
    return *this = tav_istr(text.data(), text.size());
}

tavU8string & tavU8string::operator<<(char const * text) {
    return *this << tav_istr(text);
}

tavU8string & tavU8string::operator<<(std::string const & text) {
    return append(text.data(), text.size());
}

tavU8string & tavU8string::operator<<(tav_istr text) {
    std::string_view const bytes = bytesOf(text);
    return append(bytes.data(), bytes.size());
}

tavU8string & tavU8string::operator<<(tav_utf8 text) {
    return *this << tav_istr(text.data(), text.size());
}

tavU8string & tavU8string::operator<<(tavU8string const & text) {
    return append(text.value_.data(), text.value_.size());
}

tavU8string & tavU8string::operator+=(char c) {
    return append(&c, 1);
}

tavU8string & tavU8string::operator+=(tav_utf8 text) {
    return *this << text;
}

tavU8string tavU8string::operator+(tavU8string const & right) const {
    tavU8string result;
    result.value_ = joined<char>(value_, right.value_);
    return result;
}

tavU8string tavU8string::operator+(char const * right) const {
    tavU8string result;
    result.value_ = joined<char>(value_, bytesOf(right));
    return result;
}

tavU8string & tavU8string::append(char const * data, std::size_t size) {
    checkGrowth(value_.size(), size);
    value_.append(data, size);
    return *this;
}

tavWstring::tavWstring(wchar_t const * text) {
    *this << text;
}

tavWstring::tavWstring(wchar_t const * data, unsigned size) {
    *this << tav_iwstr(data, size);
}

tavWstring::tavWstring(std::wstring const & text) {
    *this << text;
}

tavWstring::tavWstring(tav_iwstr text) {
    *this << text;
}

tavWstring & tavWstring::operator=(wchar_t const * text) {
    return *this = tav_iwstr(text);
}

tavWstring & tavWstring::operator=(std::wstring const & text) {
    checkGrowth(0, text.size());
    value_ = text;
    return *this;
}

tavWstring & tavWstring::operator=(tav_iwstr text) {
    value_ = unitsOf(text);
    return *this;
}

tavWstring & tavWstring::operator<<(wchar_t const * text) {
    return *this << tav_iwstr(text);
}

tavWstring & tavWstring::operator<<(std::wstring const & text) {
    return append(text.data(), text.size());
}

tavWstring & tavWstring::operator<<(tav_iwstr text) {
    std::wstring_view const units = unitsOf(text);
    return append(units.data(), units.size());
}

tavWstring & tavWstring::operator<<(tavWstring const & text) {
    return append(text.value_.data(), text.value_.size());
}

tavWstring & tavWstring::operator+=(wchar_t c) {
    return append(&c, 1);
}

tavWstring & tavWstring::operator+=(tav_iwstr text) {
    return *this << text;
}

tavWstring tavWstring::operator+(tavWstring const & right) const {
    tavWstring result;
    result.value_ = joined<wchar_t>(value_, right.value_);
    return result;
}

tavWstring tavWstring::operator+(wchar_t const * right) const {
    tavWstring result;
    result.value_ = joined<wchar_t>(value_, unitsOf(right));
    return result;
}

tavWstring & tavWstring::append(wchar_t const * data, std::size_t size) {
    checkGrowth(value_.size(), size);
    value_.append(data, size);
    return *this;
}

std::ostream & operator<<(std::ostream & out, tav_istr const & v) {
    std::string_view const bytes = bytesOf(v);
    return out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::ostream & operator<<(std::ostream & out, tav_iwstr const & v) {
    return out << tavString(v);
}

std::ostream & operator<<(std::ostream & out, tavString const & v) {
    return out << tav_istr(v);
}

std::ostream & operator<<(std::ostream & out, tavU8string const & v) {
    return out << tav_istr(v.data(), v.size());
}

std::ostream & operator<<(std::ostream & out, tavWstring const & v) {
    return out << tav_iwstr(v);
}

std::ostream & operator<<(std::ostream & out, tavChar const & v) {
    return out.put(v);
}

std::ostream & operator<<(std::ostream & out, tavWchar const & v) {
    tavString text;
    text.write(static_cast<wchar_t>(v));
    return out << text;
}

void operator>>(std::string const & text, tavString & out) {
    out = text;
}

void operator>>(std::string const & text, tavU8string & out) {
    out = text;
}

void operator>>(std::string const & text, tavWstring & out) {
    out = decodeText(text);
}

void operator>>(std::string const & text, tavChar & out) {
    out = text.empty() ? '\0' : text.front();
}

void operator>>(std::string const & text, tavWchar & out) {
    tav_istr rest(text);
    out = tavString::read(rest);
}

unsigned tav_str_size(char const * s) {
    return lengthOfText(s);
}

int tav_str_compare(char const * a, char const * b, unsigned n) {
    return compareText(a, b, n);
}

bool tav_str_equals(char const * a, char const * b) {
    return equalText(a, b);
}

bool tav_str_starts_with(char const * s, char const * prefix) {
    return compareText(s, prefix, lengthOfText(prefix)) == 0;
}

unsigned tav_str_copy(char * dst, unsigned capacity, char const * src, unsigned n) {
    return copyText(dst, capacity, src, n);
}

unsigned tav_wstr_size(wchar_t const * s) {
    return lengthOfText(s);
}

int tav_wstr_compare(wchar_t const * a, wchar_t const * b, unsigned n) {
    return compareText(a, b, n);
}

bool tav_wstr_equals(wchar_t const * a, wchar_t const * b) {
    return equalText(a, b);
}

bool tav_wstr_starts_with(wchar_t const * s, wchar_t const * prefix) {
    return compareText(s, prefix, lengthOfText(prefix)) == 0;
}

unsigned tav_wstr_copy(wchar_t * dst, unsigned capacity, wchar_t const * src, unsigned n) {
    return copyText(dst, capacity, src, n);
}

unsigned tav_string_size(char const * const * p) {
    return lengthOfText(*p);
}

bool tav_string_is_empty(char const * const * p) {
    return !*p || **p == 0;
}

int tav_string_compare(char const * const * a, char const * const * b) {
    return compareText(*a, *b, 0xFFFFFFFFu);
}

unsigned tav_string_to_array(char const * const * value, char * dst, unsigned capacity) {
    return copyText(dst, capacity, *value, lengthOfText(*value));
}

unsigned tav_u8string_size(char const * const * p) {
    return tav_string_size(p);
}

bool tav_u8string_is_empty(char const * const * p) {
    return tav_string_is_empty(p);
}

int tav_u8string_compare(char const * const * a, char const * const * b) {
    return tav_string_compare(a, b);
}

unsigned tav_u8string_to_array(char const * const * value, char * dst, unsigned capacity) {
    return tav_string_to_array(value, dst, capacity);
}

unsigned tav_wstring_size(wchar_t const * const * p) {
    return lengthOfText(*p);
}

bool tav_wstring_is_empty(wchar_t const * const * p) {
    return !*p || **p == 0;
}

int tav_wstring_compare(wchar_t const * const * a, wchar_t const * const * b) {
    return compareText(*a, *b, 0xFFFFFFFFu);
}

unsigned tav_wstring_to_array(wchar_t const * const * value, wchar_t * dst, unsigned capacity) {
    return copyText(dst, capacity, *value, lengthOfText(*value));
}
