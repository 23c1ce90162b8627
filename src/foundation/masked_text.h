#ifndef TAV_FOUNDATION_MASKED_TEXT_H
#define TAV_FOUNDATION_MASKED_TEXT_H

#include <string>
#include <string_view>

/// What is shown of a secret.  Internal.
namespace tav {
namespace detail {

/// The first and last bytes of `text` that the mask shows with its points, its stars between them, and the
/// length: "hel***rld[11]" of "hello world" under "...***...".  An empty mask shows "***" and the length.
std::string maskedText(std::string_view text, std::string_view mask);

/// "[11]", as it stands behind a masked text of 11 bytes.
std::string shownLength(std::string_view text);

} // namespace detail
} // namespace tav

#endif
