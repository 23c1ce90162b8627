#ifndef TAV_TOOLS_MESSAGE_TREE_H
#define TAV_TOOLS_MESSAGE_TREE_H

#include "tools/failure.h"
#include "tools/templates.h"

#include <string>
#include <string_view>
#include <vector>

namespace tav {
namespace tool {

/// A value of a message with the field that it is of.
struct MessageNode {
    enum class Shape { null, simple, object, list, map };
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    Shape shape = Shape::null;
    Kind kind = pml::field_type::object_;
    /// Null of the message itself.
    pml::MetaField const * field = nullptr;
    /// Of an object its class, else the one around.
    pml::MetaClass const * cls = nullptr;
    /// Of the entry of a map.
    std::string key;
    std::string_view data;
    std::size_t offset = 0;
    std::size_t firstChild = none;
    std::size_t lastChild = none;
    std::size_t next = none;
};

/// A message as NBR, by its class: the outermost object is the first node.
struct MessageTree {
    std::vector<MessageNode> nodes;
    /// What has no place in it.
    std::vector<Note> notes;
    /// The necessary fields of the class that are not there.
    std::vector<std::string> missing;
};

/// Reads a message of NBR that is well formed, and holds each value to its field.  Throws a PlacedFault for
/// one that the field can't be, and for what is there twice.  `nbr` must outlive the tree.  Depth costs no
/// stack.
MessageTree readMessage(std::string_view nbr, pml::MetaClass const & cls, pml::MetaFactory const & factory);

/// "missing necessary field name(s) { a b } in class im.X".
std::string missingFields(std::vector<std::string> const & names, pml::MetaClass const & cls);

/// The message as JSON on one line, or on many: the class of the message as "__class__", members in the order
/// of their names, numbers of 64 bits as strings.  Throws a PlacedFault for what JSON can't carry.
std::string jsonOf(MessageTree const & message, bool pretty);

} // namespace tool
} // namespace tav

#endif
