#ifndef TAV_TOOLS_INTEGERS_H
#define TAV_TOOLS_INTEGERS_H

#include "tools/templates.h"

#include <string_view>

namespace tav {
namespace tool {

/// An integer of up to 64 bits with a sign of its own.
struct Integer {
    bool negative = false;
    unsigned long long magnitude = 0;

    /// In two's complement.
    unsigned long long bits() const { return negative ? 0 - magnitude : magnitude; }
};

/// Reads a text as the library reads integers: decimal, 0x, 0b and octal, with a sign.  False if it is none,
/// or beyond 64 bits.
bool readInteger(std::string_view text, Integer & to);

/// Whether the kind, one of integers, times, enums or bool, holds it.
bool holds(Kind kind, Integer value);

/// Whether the text is a number that a float or double holds.
bool isFloatingText(std::string_view text, Kind kind);

/// Whether the text is base64, filled up.
bool isBase64(std::string_view text);

} // namespace tool
} // namespace tav

#endif
