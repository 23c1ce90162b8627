#ifndef TAV_TOOLS_NBR_READER_H
#define TAV_TOOLS_NBR_READER_H

#include <cstddef>
#include <string>
#include <string_view>

namespace tav {
namespace tool {

/// A value of an NBR document, by offsets.
struct NbrValue {
    static constexpr int noTag = -1000;

    /// The member's tag; `noTag` of a value that is no member.
    int tag = noTag;
    /// Where the tag stands, if there is one, or else the value.
    std::size_t begin = 0;
    /// The byte that tells what the value is.
    std::size_t head = 0;
    std::size_t data = 0;
    std::size_t size = 0;
    bool null = false;
    bool text = false;

    bool member() const { return tag != noTag; }
};

/// Is told the values of a document in the order of their bytes.
class NbrVisitor {
public:
    virtual ~NbrVisitor() = default;
    /// A value that is null or has data.
    virtual void simple(NbrValue const & value) = 0;
    /// A complex value begins: its open marker stands at `head`.
    virtual void open(NbrValue const & value) = 0;
    /// The innermost complex value ends: its close marker stands at `at`.
    virtual void close(std::size_t at) = 0;
};

/// Why a document is broken, and at which byte.
struct NbrFault {
    std::size_t offset = 0;
    std::string text;
    /// The depth at which it broke.
    std::size_t depth = 0;
};

/// Reads a document up to its end, or to the first byte that is wrong or missing.  True if nothing is wrong.
/// A value that is cut off is told with the data that are there.  Depth costs no stack.  The bytes begin at
/// `base` of what people see, as they are told in texts.
bool readNbr(std::string_view bytes, NbrVisitor & to, NbrFault & fault, unsigned long long base = 0);

} // namespace tool
} // namespace tav

#endif
