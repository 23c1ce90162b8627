#ifndef TAV_TOOLS_NOTES_H
#define TAV_TOOLS_NOTES_H

#include "tools/convert_parts.h"

#include <set>
#include <string>

namespace tav {
namespace tool {

/// Warns of what is said of messages.  What is said of many is told once.
class ToldNotes {
public:
    void tell(Source const & source, Message const & message, Output & output);

private:
    std::set<std::string> told_;
};

} // namespace tool
} // namespace tav

#endif
