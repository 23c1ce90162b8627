#ifndef TAV_TOOLS_FAILURE_H
#define TAV_TOOLS_FAILURE_H

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tav {
namespace tool {

/// What the program ends with.
enum Exit : int {
    exitGood = 0,
    /// The input was read, and something in it is wrong.
    exitFound = 1,
    /// The command line is wrong, or a file can't be opened, read or written.
    exitUse = 2,
    exitNetwork = 3
};

/// What ends a subcommand: a text for people, of one or more lines without a line end, and the exit code.
class Failure : public std::runtime_error {
public:
    Failure(Exit code, std::string const & text) : std::runtime_error(text), code_(code) {}

    Exit code() const noexcept { return code_; }

private:
    Exit code_;
};

/// Why an input can't be taken, and the byte of it.
class PlacedFault : public std::invalid_argument {
public:
    PlacedFault(std::size_t offset, std::string const & text)
        : std::invalid_argument(text), offset_(offset) {}

    std::size_t offset() const noexcept { return offset_; }

private:
    std::size_t offset_;
};

/// What is said of an input, and the byte of it.
struct Note {
    std::size_t offset = 0;
    std::string text;
};

/// "NAME: TEXT: " and what the system says of `error`.
Failure systemFailure(std::string const & name, std::string const & text, int error);

/// A place in a text: its line and column, both from 1.  A column is a character of UTF-8.
struct TextPlace {
    std::size_t line = 1;
    std::size_t column = 1;
};

TextPlace placeOf(std::string_view text, std::size_t offset);

/// The line that holds `offset`, and below it a caret at that place; each with a line end.  Of a long line
/// what stands around the place is shown, and what no terminal shows is shown as blanks.
std::string caretAt(std::string_view text, std::size_t offset);

/// "NAME:LINE:COLUMN: KIND: TEXT" and the line with its caret.
std::string toldInText(std::string const & name, std::string_view text, std::size_t offset,
                       std::string const & kind, std::string const & what);

/// Bytes that nobody is shown, from the one to ahead of the other.
struct HiddenBytes {
    std::size_t begin = 0;
    std::size_t end = 0;
};

/// "NAME: byte OFFSET (0xHEX): KIND: TEXT", and the bytes around it with a caret below the one at `offset`.
/// `bytes` begins at the offset `base` of the whole input.
std::string toldInBytes(std::string const & name, std::string_view bytes, unsigned long long base,
                        std::size_t at, std::string const & kind, std::string const & what,
                        std::vector<HiddenBytes> const & hidden = {});

/// The text of an exception of the library, without the place in the library's own sources.
std::string reasonOf(std::exception const & e);

} // namespace tool
} // namespace tav

#endif
