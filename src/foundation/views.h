#ifndef TAV_FOUNDATION_VIEWS_H
#define TAV_FOUNDATION_VIEWS_H

#include "tav/vinta/vinta_basetypes_text.h"

#include <string_view>

/// Views in the standard's form, and back.  Internal.
namespace tav {
namespace detail {

/// The bytes of a view; none if its pointer is null, whatever its count says.
inline std::string_view bytesOf(tav_istr v) noexcept {
    return v.empty() ? std::string_view() : std::string_view(v.data(), v.size());
}

/// The same bytes as the views of the interface have them.
inline tav_istr viewOf(std::string_view v) noexcept {
    return tav_istr(v.data(), v.size());
}

} // namespace detail
} // namespace tav

#endif
