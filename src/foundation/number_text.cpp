#include "foundation/number_text.h"

#include <cstddef>

// A standard library without floating-point numbers in <charconv> has them in its streams, with the locale
// that no program can change; TAV_PLAIN_NUMBER_TEXT takes these from any.
#if defined(__cpp_lib_to_chars) && !defined(TAV_PLAIN_NUMBER_TEXT)
#define TAV_FLOATING_CHARCONV 1
#else
#define TAV_FLOATING_CHARCONV 0
#include <cmath>
#include <istream>
#include <locale>
#include <ostream>
#include <streambuf>
#endif

namespace tav {
namespace detail {

namespace {

bool isDigit(char c) {
    return static_cast<unsigned char>(c - '0') < 10;
}

std::size_t pastDigits(std::string_view text, std::size_t i) {
    while (i < text.size() && isDigit(text[i])) {
        ++i;
    }
    return i;
}

/// The front of `text` that reads like a decimal number, as a stream would collect it.
std::string_view decimalPart(std::string_view text) {
    std::size_t const first = !text.empty() && text[0] == '-' ? 1 : 0;
    std::size_t at = pastDigits(text, first);
    bool any = at > first;
    if (at < text.size() && text[at] == '.') {
        std::size_t const fraction = at + 1;
        at = pastDigits(text, fraction);
        any = any || at > fraction;
    }
    if (any && at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
        ++at;
        if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
            ++at;
        }
        at = pastDigits(text, at);
    }
    return any ? text.substr(0, at) : std::string_view();
}

/// Whether a number that is out of range, and reads as decimalPart tells, is too small and not too large.
bool isTooSmall(std::string_view text) {
    constexpr long long far = 1LL << 40; // no text is as long
    std::size_t const mark = text.find_first_of("eE");
    std::string_view const mantissa = text.substr(0, mark);
    long long exponent = 0;
    if (mark != std::string_view::npos) {
        std::size_t at = mark + 1;
        bool const negative = at < text.size() && text[at] == '-';
        at += negative || (at < text.size() && text[at] == '+') ? 1u : 0u;
        for (; at < text.size() && exponent < far; ++at) {
            exponent = exponent * 10 + (text[at] - '0');
        }
        exponent = negative ? -exponent : exponent;
    }
    std::size_t const point =
        mantissa.find('.') == std::string_view::npos ? mantissa.size() : mantissa.find('.');
    std::size_t const leading = mantissa.find_first_not_of("-0.");
    if (leading == std::string_view::npos) {
        return true;
    }
    return static_cast<long long>(point) - static_cast<long long>(leading) + exponent < 0;
}

#if TAV_FLOATING_CHARCONV

template <class T>
std::from_chars_result parse(char const * first, char const * last, T & value) {
    return std::from_chars(first, last, value);
}

std::size_t print(char * to, std::size_t size, double v) {
    return static_cast<std::size_t>(std::to_chars(to, to + size, v, std::chars_format::general, 6).ptr - to);
}

#else

/// The bytes of a view, as a stream reads them.
class ViewBuffer : public std::streambuf {
public:
    ViewBuffer(char const * first, char const * last) {
        // A stream that puts nothing back writes nothing.
        setg(const_cast<char *>(first), const_cast<char *>(first), const_cast<char *>(last));
    }
    std::ptrdiff_t taken() const { return gptr() - eback(); }
};

/// As std::from_chars, for what decimalPart lets through.
template <class T>
std::from_chars_result parse(char const * first, char const * last, T & value) {
    // An exponent without digits is no number.
    if (first == last || (!isDigit(last[-1]) && last[-1] != '.')) {
        return {first, std::errc::invalid_argument};
    }
    ViewBuffer buffer(first, last);
    std::istream in(&buffer);
    in.imbue(std::locale::classic());
    in >> std::noskipws >> value;
    if (in.bad()) {
        return {first, std::errc::invalid_argument};
    }
    // Some fail for what is too small as well, with the nearest number there is.
    bool const tooLarge = in.fail() && std::abs(value) >= std::numeric_limits<T>::max();
    return {first + buffer.taken(), tooLarge ? std::errc::result_out_of_range : std::errc()};
}

/// Bytes that a stream writes into; it allocates nothing, as part of a number would be another number.
class SpaceBuffer : public std::streambuf {
public:
    SpaceBuffer(char * to, std::size_t size) { setp(to, to + size); }
    std::size_t used() const { return static_cast<std::size_t>(pptr() - pbase()); }
};

std::size_t print(char * to, std::size_t size, double v) {
    SpaceBuffer buffer(to, size);
    std::ostream out(&buffer);
    out.imbue(std::locale::classic());
    out << v;
    return buffer.used();
}

#endif

/// All of `digits`, which reads as decimalPart tells.
template <class T>
bool convert(std::string_view digits, T & out) {
    T value = 0;
    char const * const end = digits.data() + digits.size();
    std::from_chars_result const result = parse(digits.data(), end, value);
    if (result.ptr != end || result.ec == std::errc::invalid_argument) {
        return false;
    }
    if (result.ec == std::errc::result_out_of_range) {
        if (!isTooSmall(digits)) {
            return false;
        }
        value = digits[0] == '-' ? -T(0) : T(0);
    }
    out = value;
    return true;
}

template <class T>
bool readWhole(std::string_view text, T & out) {
    std::string_view const number = withoutBlanksAndPlus(text);
    std::string_view const digits = decimalPart(number);
    return digits.size() == number.size() && convert(digits, out);
}

} // namespace

std::string_view withoutBlanksAndPlus(std::string_view text) noexcept {
    std::size_t const first = text.find_first_not_of(" \t\n\v\f\r");
    text.remove_prefix(first == std::string_view::npos ? text.size() : first);
    bool const plus = text.size() >= 2 && text[0] == '+' && text[1] != '-';
    text.remove_prefix(plus ? 1 : 0);
    return text;
}

bool readRadix(std::string_view digits, int radix, unsigned long long & out) noexcept {
    unsigned long long value = 0;
    char const * const end = digits.data() + digits.size();
    std::from_chars_result const result = std::from_chars(digits.data(), end, value, radix);
    if (result.ec != std::errc() || result.ptr != end) {
        return false;
    }
    out = value;
    return true;
}

bool readPrefixed(std::string_view text, unsigned long long & out) noexcept {
    if (text.empty() || text[0] != '0') {
        return false;
    }
    char const mark = text.size() >= 3 ? text[1] : '\0';
    switch (mark) {
    case 'b':
    case 'B': return readRadix(text.substr(2), 2, out);
    case 'x':
    case 'X': return readRadix(text.substr(2), 16, out);
    default: return readRadix(text.substr(1), 8, out);
    }
}

bool readFloating(std::string_view text, double & out) noexcept {
    return readWhole(text, out);
}

bool readFloating(std::string_view text, float & out) noexcept {
    return readWhole(text, out);
}

bool readFloatingPart(std::string_view text, double & out) noexcept {
    return convert(decimalPart(withoutBlanksAndPlus(text)), out);
}

bool readFloatingPart(std::string_view text, float & out) noexcept {
    return convert(decimalPart(withoutBlanksAndPlus(text)), out);
}

unsigned short readHexCode(std::string_view text) noexcept {
    if (text.substr(0, 2) == "0x") {
        text.remove_prefix(2);
    }
    unsigned value = 0;
    for (char const c : text) {
        unsigned digit = ~0u;
        if (isDigit(c)) {
            digit = static_cast<unsigned>(c - '0');
        } else if (c >= 'a' && c <= 'f') {
            digit = static_cast<unsigned>(c - 'a') + 10;
        } else if (c >= 'A' && c <= 'F') {
            digit = static_cast<unsigned>(c - 'A') + 10;
        }
        value = value * 16 + digit;
    }
    return static_cast<unsigned short>(value);
}

NumberText::NumberText(double v) noexcept : size_(print(text_, sizeof(text_), v)) {}

} // namespace detail
} // namespace tav
