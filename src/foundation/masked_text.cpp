#include "foundation/masked_text.h"

#include <algorithm>
#include <cstddef>

namespace tav {
namespace detail {
namespace {

/// How many of `c` stand together at `from`.
std::size_t countFrom(std::string_view text, std::size_t from, char c) {
    std::size_t const end = text.find_first_not_of(c, from);
    return (end == std::string_view::npos ? text.size() : end) - from;
}

} // namespace

std::string maskedText(std::string_view text, std::string_view mask) {
    std::string shown;
    if (mask.empty()) {
        shown = "***";
    } else {
        std::size_t const before = countFrom(mask, 0, '.');
        std::size_t const stars = countFrom(mask, before, '*');
        std::size_t const after = countFrom(mask, before + stars, '.');
        std::string_view const head = text.substr(0, before);
        std::string_view const rest = text.substr(head.size());
        shown.append(head).append(stars, '*').append(rest.substr(rest.size() - std::min(after, rest.size())));
    }
    return shown += shownLength(text);
}

std::string shownLength(std::string_view text) {
    return '[' + std::to_string(text.size()) + ']';
}

} // namespace detail
} // namespace tav
