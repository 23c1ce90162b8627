#ifndef TAV_TOOLS_CPP_SYSTEM_H
#define TAV_TOOLS_CPP_SYSTEM_H

#include <string>

namespace tav {
namespace tool {

/// Whether headers of the system, of the library or of compilers define a macro of this name.
bool isSystemMacro(std::string const & name);

/// Whether something of the system or of the library has this name at the global level.
bool isGlobalName(std::string const & name);

} // namespace tool
} // namespace tav

#endif
