#ifndef TAV_TOOLS_JSON_STREAM_H
#define TAV_TOOLS_JSON_STREAM_H

#include "tools/input.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tav {
namespace tool {

/// The objects and arrays of an input one after the other, with blanks, commas or nothing between them; each
/// may have one line or many.  Behind one that fails the next is looked for on the next line.
class JsonStream {
public:
    JsonStream(InputFile & file, std::size_t limit) : file_(file), limit_(limit) {}

    /// False at the end.  Throws a Failure on what is no object or array, and on one that does not end.  The
    /// view is good until the next call.
    bool next(std::string_view & text);

    /// Where the text that was last given begins.
    unsigned long long line() const { return line_; }
    unsigned long long column() const { return column_; }
    unsigned long long offset() const { return offset_; }

    /// "NAME:LINE:COLUMN: KIND: TEXT" and the line with a caret, for a place in the text that was last given.
    std::string told(std::size_t at, std::string const & kind, std::string const & what) const;

private:
    bool more();
    bool skipToValue();
    [[noreturn]] void fail(std::size_t at, std::string const & what);
    void advance(std::string_view text);

    InputFile & file_;
    std::size_t limit_;
    std::string buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    unsigned long long line_ = 1;
    unsigned long long column_ = 1;
    unsigned long long offset_ = 0;
    unsigned long long lineHere_ = 1;
    unsigned long long columnHere_ = 1;
    unsigned long long offsetHere_ = 0;
};

/// Where a member of a JSON text stands.
struct JsonMember {
    std::string_view name;
    std::size_t nameAt = 0;
    std::size_t valueAt = 0;
};

/// All members of a text, those within others too, in the order of the text.
std::vector<JsonMember> membersOf(std::string_view text);

/// The place in a JSON text that a failure of the library speaks of.
std::size_t placeOfFailure(std::string_view text, std::string const & reason);

} // namespace tool
} // namespace tav

#endif
