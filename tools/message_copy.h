#ifndef TAV_TOOLS_MESSAGE_COPY_H
#define TAV_TOOLS_MESSAGE_COPY_H

#include "tools/templates.h"

#include <tav/vinta/vinta_basetypes_codec.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tav {
namespace tool {

/// Whether a key can be the name of a map's entry where it is written.
typedef std::function<bool(std::string_view)> KeyRule;

/// Takes an object of the class from one stream to another, field by field, bases first, as the object of a
/// compiled class with these fields would go.  Fields that are absent are left out, and the names of those
/// that are necessary are answered.  Throws std::invalid_argument where a field can't go: its type is for
/// generators, or a key breaks the rule.  Depth costs no stack.
std::vector<std::string> copyMessage(tavCodecStream & in, tavCodecStream & out, pml::MetaClass const & cls,
                                     pml::MetaFactory const & factory, KeyRule const & key);

/// A message of NBR with its members as a compiled class writes them: bases first, in the order of the
/// declaration.
std::string inClassOrder(std::string_view nbr, pml::MetaClass const & cls, pml::MetaFactory const & factory);

} // namespace tool
} // namespace tav

#endif
