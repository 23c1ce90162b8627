#ifndef TAV_EXAMPLES_CHAT_SCREEN_H
#define TAV_EXAMPLES_CHAT_SCREEN_H

#include "loop.h"

#include <memory>
#include <string>

namespace chat {

/// Where the user types and reads.
class Screen {
public:
    virtual ~Screen() = default;

    /// The next line that was typed; false at the end of the input, or if the loop was stopped.  The loop's
    /// tasks run meanwhile, and may print.
    virtual bool read(std::string & line) = 0;
    virtual void print(std::string const & line) = 0;
    virtual void prompt(std::string const & text) = 0;
    /// Whether what was typed stands on the screen anyway.
    virtual bool echoes() const = 0;
};

/// For files and pipes: lines in, lines out.
std::unique_ptr<Screen> plainScreen(Loop & loop);
/// For a terminal, with line editing and a history of what was typed.  Null if there is no terminal, or the
/// program was built without the library for it.
std::unique_ptr<Screen> editedScreen(Loop & loop);

} // namespace chat

#endif
