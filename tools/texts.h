#ifndef TAV_TOOLS_TEXTS_H
#define TAV_TOOLS_TEXTS_H

#include "tools/command.h"

#include <string>

namespace tav {
namespace tool {

/// Completion for a shell, "bash" or "zsh", made from the command line itself.
std::string completionOf(CLI::App const & app, std::string const & shell);

/// A man page: of the program if `command` is empty, or else of a subcommand.
std::string manPageOf(CLI::App const & app, std::string const & command);

/// The hidden subcommand that prints these, for the build.
void addTexts(CLI::App & app, Output & output, Run & run);

} // namespace tool
} // namespace tav

#endif
