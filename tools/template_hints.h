#ifndef TAV_TOOLS_TEMPLATE_HINTS_H
#define TAV_TOOLS_TEMPLATE_HINTS_H

#include "tools/templates.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tav {
namespace tool {

/// The candidate that differs from the name by the fewest letters, at most `most` of them; empty if none
/// does.
std::string nearestName(std::string const & name, std::vector<std::string> const & candidates,
                        std::size_t most);

/// "; did you mean NAME?", or nothing.
std::string didYouMean(std::string const & nearest);

/// The names of the kinds and their aliases.
std::vector<std::string> typeNames();

/// What is wrong with a type that lacks what it is of, as "list" and "map{}" do; empty if nothing is.
std::string lacksElement(std::string_view type);

/// What is wrong with a unit that stands for a field and has no tag: its name, and what may have been meant.
std::string withoutTag(std::string const & name);

/// Whether the text of a value was meant to be a mask, and is none: the value is shown.
bool isNoMask(std::string_view value);

struct IntegerEnds {
    long long low;
    long long high;
};

/// The ends of an integer of at most 32 bits; none of all else.
std::optional<IntegerEnds> endsOf(Kind kind);

/// Whether a decimal number has more than 63 bits.
bool isBeyondRanges(std::string_view number);

} // namespace tool
} // namespace tav

#endif
