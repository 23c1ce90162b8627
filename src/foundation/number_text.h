#ifndef TAV_FOUNDATION_NUMBER_TEXT_H
#define TAV_FOUNDATION_NUMBER_TEXT_H

#include <charconv>
#include <limits>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

/// Numbers from text and to text, the same for every text format.  No locale and no global state plays a
/// part; all functions are safe for all threads.  Internal.
namespace tav {
namespace detail {

/// What a standard stream passes over ahead of a number: blanks and one plus sign.  A sign behind the plus
/// stays and then fails.
std::string_view withoutBlanksAndPlus(std::string_view text) noexcept;

/// All of `digits` as an unsigned number of this radix, without sign or prefix; false if there are no digits,
/// something else stands among them or the number does not fit 64 bits.  `out` is set on success only.
bool readRadix(std::string_view digits, int radix, unsigned long long & out) noexcept;

/// A text that begins with 0 as a number: binary behind "0b" or "0B", hexadecimal behind "0x" or "0X" (both
/// with at least three bytes in all), else octal behind that 0.  A form counts only if it has digits, uses up
/// the text and fits 64 bits; `out` is set then only.
bool readPrefixed(std::string_view text, unsigned long long & out) noexcept;

/// All of `text` as a decimal number, with the acceptance of the standard extractor for T: leading blanks and
/// a plus sign pass, a minus sign before a number that fits an unsigned T wraps, what does not fit fails.
/// `out` is set on success only.
template <class T>
bool readDecimal(std::string_view text, T & out) noexcept {
    static_assert(std::is_integral<T>::value && sizeof(T) >= 2, "an extractor takes a byte for a character");
    std::string_view digits = withoutBlanksAndPlus(text);
    bool const wraps = std::is_unsigned<T>::value && !digits.empty() && digits[0] == '-';
    if (wraps) {
        digits.remove_prefix(1);
    }
    T value = 0;
    char const * const end = digits.data() + digits.size();
    std::from_chars_result const result = std::from_chars(digits.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end) {
        return false;
    }
    out = wraps ? static_cast<T>(T(0) - value) : value;
    return true;
}

/// All of `text` as an integer: by readPrefixed, cut to the width of T, if it begins with 0 and that counts,
/// else by readDecimal.  `out` is set on success only.
template <class T>
bool readInteger(std::string_view text, T & out) noexcept {
    unsigned long long value = 0;
    if (!text.empty() && text[0] == '0' && readPrefixed(text, value)) {
        out = static_cast<T>(value);
        return true;
    }
    return readDecimal(text, out);
}

/// The integer that the digits of this radix at the front of `text` make; false if there are none or it does
/// not fit.  `out` is set on success only.
template <class T>
bool readDigits(std::string_view text, int radix, T & out) noexcept {
    T value = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), value, radix).ec != std::errc()) {
        return false;
    }
    out = value;
    return true;
}

/// The integer at the front of `text`, whatever stands behind it: in the radix of its prefix, with at least
/// three bytes in all, or of its leading 0, if the bits of T hold that, else decimal as readDecimal.  `out`
/// is set on success only.
template <class T>
bool readIntegerPart(std::string_view text, T & out) noexcept {
    using Bits = std::make_unsigned_t<T>;
    Bits bits = 0;
    if (!text.empty() && text[0] == '0') {
        char const kind = text.size() >= 3 ? text[1] : '\0';
        int const radix = kind == 'b' || kind == 'B' ? 2 : kind == 'x' || kind == 'X' ? 16 : 8;
        if (readDigits(text.substr(radix == 8 ? 0 : 2), radix, bits)) {
            out = static_cast<T>(bits);
            return true;
        }
    }
    text = withoutBlanksAndPlus(text);
    if (std::is_unsigned<T>::value && !text.empty() && text[0] == '-') {
        if (!readDigits(text.substr(1), 10, bits)) {
            return false;
        }
        out = static_cast<T>(Bits(0) - bits);
        return true;
    }
    return readDigits(text, 10, out);
}

/// All of `text` as a decimal floating-point number, with the acceptance of the standard extractor: leading
/// blanks and a plus sign pass, words and hexadecimal forms fail, so does what is too large; what is too
/// small is 0.  `out` is set on success only.
bool readFloating(std::string_view text, double & out) noexcept;
bool readFloating(std::string_view text, float & out) noexcept;

/// The same for the longest part at the front that an extractor would collect, whatever stands behind it.
bool readFloatingPart(std::string_view text, double & out) noexcept;
bool readFloatingPart(std::string_view text, float & out) noexcept;

/// A hexadecimal number of 16 bits, as message codes are written: a leading "0x" is stepped over, any byte
/// that is no digit counts as -1 in its place, and the sum wraps.  0 for an empty text.
unsigned short readHexCode(std::string_view text) noexcept;

/// The text of one number, in place.
class NumberText {
public:
    /// Decimal.
    template <class T, class = std::enable_if_t<std::is_integral<T>::value>>
    explicit NumberText(T v) noexcept
        : size_(static_cast<std::size_t>(std::to_chars(text_, text_ + sizeof(text_), v).ptr - text_)) {
        static_assert(sizeof(T) >= 2, "a byte would be taken for a character somewhere on its way");
    }

    /// Six significant digits, with an exponent where these do not reach, as a stream writes it by default.
    explicit NumberText(double v) noexcept;

    /// Valid as long as this object.
    std::string_view view() const noexcept { return std::string_view(text_, size_); }

private:
    char text_[32];
    std::size_t size_;
};

/// Appends the text of `v`.
template <class T>
void appendNumber(std::string & out, T v) {
    out.append(NumberText(v).view());
}

} // namespace detail
} // namespace tav

#endif
