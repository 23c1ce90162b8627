#ifndef TAV_TOOLS_FILE_OUTPUT_H
#define TAV_TOOLS_FILE_OUTPUT_H

#include <string>
#include <string_view>

namespace tav {
namespace tool {

/// Throws as writeFile would if it is plain now that the file can't be written; changes nothing.
void checkFile(std::string const & path, std::string_view mark, bool force);

/// Writes a whole file, or leaves what was there as it was: the text goes into a file beside it, which then
/// takes its name.  What is no plain file, such as a pipe, is written to directly.  A file that does not hold
/// `mark` in its first lines is somebody's own, and replaced only with `force`.  Throws a Failure of exitUse.
void writeFile(std::string const & path, std::string_view text, std::string_view mark, bool force);

} // namespace tool
} // namespace tav

#endif
