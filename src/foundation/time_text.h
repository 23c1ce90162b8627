#ifndef TAV_FOUNDATION_TIME_TEXT_H
#define TAV_FOUNDATION_TIME_TEXT_H

#include <cstddef>
#include <string_view>

class tavTime;

/// Times as texts without memory of their own.  Internal.
namespace tav {
namespace detail {

/// Room for every text of a time: a year of up to eleven characters, and 25 more.
constexpr std::size_t timeTextSize = 64;

/// Writes the text of a time into `out`, which has timeTextSize bytes, and returns a view of it.
std::string_view timeText(tavTime const & time, char * out);

} // namespace detail
} // namespace tav

#endif
