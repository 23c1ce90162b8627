#include "tools/integers.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace tav {
namespace tool {

namespace kinds = pml::field_type;

namespace {

/// The prefix's base, which it loses.
unsigned takeBase(std::string_view & text) {
    std::string_view const front = text.substr(0, 2);
    if (front == "0x" || front == "0X" || front == "0b" || front == "0B") {
        text.remove_prefix(2);
        return front[1] == 'x' || front[1] == 'X' ? 16 : 2;
    }
    return text.size() > 1 && text.front() == '0' ? 8 : 10;
}

unsigned digitOf(char c) {
    char const lower = static_cast<char>(c | 0x20);
    return c >= '0' && c <= '9'           ? static_cast<unsigned>(c - '0')
           : lower >= 'a' && lower <= 'f' ? static_cast<unsigned>(lower - 'a' + 10)
                                          : 99;
}

template <class T>
bool within(Integer value) {
    auto const most = static_cast<unsigned long long>(std::numeric_limits<T>::max());
    return value.negative
               ? std::numeric_limits<T>::is_signed ? value.magnitude <= most + 1 : value.magnitude == 0
               : value.magnitude <= most;
}

} // namespace

bool readInteger(std::string_view text, Integer & to) {
    to = Integer();
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        to.negative = text.front() == '-';
        text.remove_prefix(1);
    }
    unsigned const base = takeBase(text);
    for (char const c : text) {
        unsigned const digit = digitOf(c);
        if (digit >= base || to.magnitude > (std::numeric_limits<unsigned long long>::max() - digit) / base) {
            return false;
        }
        to.magnitude = to.magnitude * base + digit;
    }
    return !text.empty();
}

bool holds(Kind kind, Integer value) {
    switch (kind) {
    case kinds::bool_: return !value.negative && value.magnitude <= 1;
    case kinds::int8_: return within<signed char>(value);
    case kinds::int16_: return within<short>(value);
    case kinds::int64_:
    case kinds::time_: return within<long long>(value);
    case kinds::uint8_: return within<unsigned char>(value);
    case kinds::uint16_: return within<unsigned short>(value);
    case kinds::uint32_: return within<unsigned>(value);
    case kinds::uint64_: return within<unsigned long long>(value);
    default: return within<int>(value);
    }
}

bool isFloatingText(std::string_view text, Kind kind) {
    if (text.empty() || text.find_first_not_of("0123456789+-.eE") != std::string_view::npos) {
        return false;
    }
    std::string const whole(text);
    char * end = nullptr;
    double const value = std::strtod(whole.c_str(), &end);
    double const most = kind == kinds::float_ ? static_cast<double>(std::numeric_limits<float>::max())
                                              : std::numeric_limits<double>::max();
    return *end == '\0' && std::fabs(value) <= most;
}

bool isBase64(std::string_view text) {
    std::size_t const pads = text.size() - std::min(text.find_last_not_of('=') + 1, text.size());
    auto const isDigit = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '+' ||
               c == '/';
    };
    return text.size() % 4 == 0 && pads <= 2 &&
           std::all_of(text.begin(), text.end() - static_cast<long>(pads), isDigit);
}

} // namespace tool
} // namespace tav
