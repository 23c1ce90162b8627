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

/// What a copy says of the message.
struct Copied {
    /// The necessary fields that are not there.
    std::vector<std::string> missing;
    /// What the class has no place for.
    std::vector<std::string> dropped;
};

/// Takes an object of the class from one stream to another, field by field, bases first, as the object of a
/// compiled class with these fields would go.  Fields that are absent are left out.  What comes from a text
/// is held to its kind, and what goes into one has as many digits as bring it back.  Throws
/// std::invalid_argument where a field can't go: its type is for generators, its text is no such value, or a
/// key breaks the rule.  Depth costs no stack.
enum class Texts { none, in, out };
Copied copyMessage(tavCodecStream & in, tavCodecStream & out, pml::MetaClass const & cls,
                   pml::MetaFactory const & factory, KeyRule const & key, Texts texts = Texts::none);

/// A message of NBR with its members as a compiled class writes them: bases first, in the order of the
/// declaration.
std::string inClassOrder(std::string_view nbr, pml::MetaClass const & cls, pml::MetaFactory const & factory);

} // namespace tool
} // namespace tav

#endif
