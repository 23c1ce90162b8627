#ifndef TAV_EXAMPLES_CHAT_TEXT_H
#define TAV_EXAMPLES_CHAT_TEXT_H

#include <string>
#include <string_view>

namespace chat {

/// A text of somebody else's as it may be shown on a terminal: letters of all languages stay; controls, marks
/// that turn the direction of writing, and bytes that are no UTF-8 are written out, such as `\x1b` and
/// `\u202e`.
std::string shown(std::string_view text);

} // namespace chat

#endif
