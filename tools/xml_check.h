#ifndef TAV_TOOLS_XML_CHECK_H
#define TAV_TOOLS_XML_CHECK_H

#include <string_view>

namespace tav {
namespace tool {

/// Holds a text to what makes it XML, of which the library's reader takes more: each element is closed, in
/// the order in which they were opened, characters are such that XML has, and entities are known.  Throws a
/// PlacedFault. Depth costs no stack.
void checkXml(std::string_view text);

} // namespace tool
} // namespace tav

#endif
