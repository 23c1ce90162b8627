#ifndef TAV_FORMATS_JSON_JSON_TAPE_H
#define TAV_FORMATS_JSON_JSON_TAPE_H

#include "tav/vinta/vinta_json_tree.h"

#include <forward_list>
#include <string>
#include <string_view>
#include <vector>

/// JSON text that is read once and then dropped.  Internal.
namespace tav {
namespace detail {

/// The values of a JSON text in one flat array, in the order of the text: a container stands ahead of what is
/// in it.  For readers who need no tree; takes what json::JsonParser takes and raises what it raises, in
/// bounded stack, but keeps all members of an object: those of one name too, of which the last one counts.
/// Names and texts are views of the text, which must outlive the tape, or of the tape.
class JsonTape {
public:
    struct Node {
        JsonFieldType type;
        /// The value of a boolean.
        bool truth;
        /// The node behind this one and all that is in it.  While a container is being read: the one around
        /// it.
        unsigned next;
        /// Of a member of an object.
        std::string_view name;
        /// Of a number as it stands, of a string without quotes and escapes.
        std::string_view text;
    };

    /// @throws std::invalid_argument as json::JsonParser::from
    explicit JsonTape(tav_istr json);
    JsonTape(JsonTape const &) = delete;
    JsonTape & operator=(JsonTape const &) = delete;

    /// The first one is the root, an object or an array.
    Node const & node(unsigned i) const { return nodes_[i]; }

private:
    class Builder;

    std::vector<Node> nodes_;
    /// The names and strings that had escapes.
    std::forward_list<std::string> unescaped_;
};

} // namespace detail
} // namespace tav

#endif
