#ifndef TAV_TOOLS_JSON_TEXT_H
#define TAV_TOOLS_JSON_TEXT_H

#include "tools/failure.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tav {
namespace tool {

/// A value of a JSON text, by offsets.
struct JsonNode {
    enum class Kind { null, boolean, number, string, array, object };
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    Kind kind = Kind::null;
    /// Of a member its name as it is written, without quotes.
    std::string_view name;
    std::size_t nameAt = none;
    /// From its first byte to behind its last one, quotes and brackets included.
    std::size_t begin = 0;
    std::size_t end = 0;
    bool quoted = false;
    /// Indices of nodes.
    std::size_t firstChild = none;
    std::size_t next = none;
};

/// An object or array as nodes in the order of the text; the first one is the outermost.  It takes what the
/// library's own reader takes: names and words without quotes, and single quotes.
class JsonText {
public:
    /// Throws a PlacedFault.  The text must outlive it.  Depth costs no stack.
    explicit JsonText(std::string_view text);

    std::string_view text() const { return text_; }
    std::vector<JsonNode> const & nodes() const { return nodes_; }
    JsonNode const & root() const { return nodes_.front(); }
    JsonNode const * node(std::size_t index) const {
        return index == JsonNode::none ? nullptr : &nodes_[index];
    }
    /// The last member of an object that has this name; null if none has.
    JsonNode const * member(JsonNode const & of, std::string_view name) const;
    /// What a node has between its quotes, or all of it.
    std::string_view content(JsonNode const & node) const;

private:
    friend class JsonTextReader;

    std::string_view text_;
    std::vector<JsonNode> nodes_;
};

/// The content of a string of JSON with its escapes taken for what JSON means by them, in UTF-8.  Throws a
/// PlacedFault, whose offset counts from the begin of `content`, for an escape that is none.
std::string unescaped(std::string_view content);

} // namespace tool
} // namespace tav

#endif
