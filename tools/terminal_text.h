#ifndef TAV_TOOLS_TERMINAL_TEXT_H
#define TAV_TOOLS_TERMINAL_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace tav {
namespace tool {

/// A character of UTF-8: its number and its bytes, and how many cells of a terminal it takes.
struct Character {
    char32_t number = 0;
    /// 0 if the text begins with no character.
    std::size_t size = 0;
    std::size_t cells = 0;
};

/// The character that the text begins with.
Character characterOf(std::string_view text);

/// Whether a terminal would do something else than show the character: controls, and what turns the direction
/// of the text around it.
bool isControl(char32_t number);

/// The text with what is no UTF-8 as \xNN and with controls as \xNN or \uNNNN; line ends and tabs stay.  A
/// text that came from a file or a peer can then do nothing to the terminal that it is shown on.
std::string forTerminal(std::string_view text);

} // namespace tool
} // namespace tav

#endif
