#ifndef TAV_FORMATS_NBR_NBR_DOCUMENT_H
#define TAV_FORMATS_NBR_NBR_DOCUMENT_H

#include "formats/nbr/nbr_compact.h"
#include "tav/vinta/vinta_nbr_unit.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <ostream>
#include <vector>

/// What the NBR parser makes of bytes.  Internal.
namespace tav {
namespace nbr {
namespace detail {

class Scanner;

/// Decodes the bytes of a simple value, as SimpleValue::read tells.
template <class T>
bool decodeNumber(tav_istr data, T & v) {
    if (data.empty()) {
        return false;
    }
    v = static_cast<T>(readCompact(data.data(), std::min(data.size(), static_cast<unsigned>(sizeof(T)))));
    return true;
}

inline bool decodeValue(tav_istr data, char & v) {
    return decodeNumber(data, v);
}
inline bool decodeValue(tav_istr data, unsigned char & v) {
    return decodeNumber(data, v);
}
inline bool decodeValue(tav_istr data, short & v) {
    return decodeNumber(data, v);
}
inline bool decodeValue(tav_istr data, unsigned short & v) {
    return decodeNumber(data, v);
}
inline bool decodeValue(tav_istr data, int & v) {
    return decodeNumber(data, v);
}
inline bool decodeValue(tav_istr data, unsigned int & v) {
    return decodeNumber(data, v);
}
inline bool decodeValue(tav_istr data, long & v) {
    return decodeNumber(data, v);
}
inline bool decodeValue(tav_istr data, unsigned long & v) {
    return decodeNumber(data, v);
}
inline bool decodeValue(tav_istr data, long long & v) {
    return decodeNumber(data, v);
}
inline bool decodeValue(tav_istr data, unsigned long long & v) {
    return decodeNumber(data, v);
}

inline bool decodeValue(tav_istr data, bool & v) {
    unsigned char byte;
    if (!decodeNumber(data, byte)) {
        return false;
    }
    v = byte != 0;
    return true;
}

inline bool decodeValue(tav_istr data, float & v) {
    unsigned bits;
    if (!decodeNumber(data, bits)) {
        return false;
    }
    std::memcpy(&v, &bits, sizeof(v));
    return true;
}

inline bool decodeValue(tav_istr data, double & v) {
    unsigned long long bits;
    if (!decodeNumber(data, bits)) {
        return false;
    }
    std::memcpy(&v, &bits, sizeof(v));
    return true;
}

inline bool decodeValue(tav_istr data, tavTime & v) {
    long long milliseconds;
    if (!decodeNumber(data, milliseconds)) {
        return false;
    }
    v = tavTime::milliseconds(milliseconds);
    return true;
}

inline bool decodeValue(tav_istr data, tavBytes & v) {
    if (data.data() == nullptr && data.size() == 0) {
        return false;
    }
    v = data;
    return true;
}

inline bool decodeValue(tav_istr data, tavString & v) {
    if (data.data() == nullptr && data.size() == 0) {
        return false;
    }
    v = data;
    return true;
}

/// The values of a document in one flat array, in the order of the bytes: a complex value stands ahead of its
/// members.  Trees of ValueBase are made from it on demand.  Constant once parsed, so threads may share it.
class Document {
public:
    static constexpr unsigned none = 0xFFFFFFFFu;

    enum class Kind : unsigned char { null, binary, text, complex };

    /// Twelve bytes, as a value may take no more than two.
    struct Node {
        /// Of a simple value: where its data stand in the input.  Of a complex one: the node behind it and
        /// all that is in it; while it is being parsed, the one around it.
        unsigned place;
        /// Of the data; of a complex value the number of its members.
        unsigned size;
        char tag;
        Kind kind;
        /// Of a complex value: its members' tags ascend, so that none is there twice.
        bool ordered;
        /// Of a complex value that is being parsed.
        char lastTag;
    };

    Document() = default;
    Document(Document const &) = delete;
    Document & operator=(Document const &) = delete;

    /// Takes the place of what was here: a copy of the bytes and all values of them.
    void assign(tav_istr bytes);
    /// The same without a copy: the bytes must stay as long as this views them.  There is room for so many
    /// values at once.
    void view(tav_istr bytes, std::size_t expected);
    /// Throws what the two above throw for these bytes, and keeps nothing of them.
    static void check(tav_istr bytes);
    /// A copy of the bytes and the simple member of the first value with this tag, if it is found.
    void assign(tav_istr bytes, char tag);
    /// Appends the complex value at whose open marker `in` stands.  The bytes are not copied.
    void parse(Scanner & in);
    /// Forgets all, and frees what is larger than is worth keeping.
    void clear();

    /// The bytes that it holds beside itself.
    std::size_t footprint() const noexcept { return buffer_.maxSize() + nodes_.capacity() * sizeof(Node); }

    std::vector<Node> const & nodes() const { return nodes_; }
    Node const & node(unsigned i) const { return nodes_[i]; }
    /// The first value, `none` if there is none.
    unsigned first() const { return nodes_.empty() ? none : 0; }

    /// The node behind this one and all that is in it.
    unsigned next(unsigned i) const { return nodes_[i].kind == Kind::complex ? nodes_[i].place : i + 1; }

    /// The data of a simple value; a null view if it has none.
    tav_istr data(Node const & node) const {
        return node.size == 0 ? tav_istr() : tav_istr(base_ + node.place, node.size);
    }

    static bool isSimple(Node const & node) { return node.kind == Kind::binary || node.kind == Kind::text; }

    /// The last member with this tag of the complex value `parent`, `none` if it has none.  `cursor` is where
    /// the caller keeps the place from one call to the next, `parent` at first: members that are asked for in
    /// their own order are found at once.
    unsigned member(unsigned parent, char tag, unsigned & cursor) const {
        Node const & around = nodes_[parent];
        unsigned const follower = cursor == parent ? parent + 1 : next(cursor);
        if (around.ordered && follower != around.place && nodes_[follower].tag == tag) {
            cursor = follower;
            return follower;
        }
        return search(parent, tag, cursor);
    }

    /// Values without data, of which those of one list and kind may be one.
    struct Empties {
        tavSharedPtr<ValueBase> binary;
        tavSharedPtr<ValueBase> text;
    };

    /// The value of a node, null for a null one.
    static tavSharedPtr<ValueBase> value(std::shared_ptr<Document const> const & document, unsigned i,
                                         Empties & empties);

    void dump(std::ostream & out, unsigned i, bool pretty, int level) const;
    /// The values that are in no other one.
    void dump(std::ostream & out, bool pretty) const;

private:
    static void checkComplex(Scanner & in);
    void copy(tav_istr bytes);
    void parseAll(tav_istr bytes);
    unsigned search(unsigned parent, char tag, unsigned & cursor) const;
    unsigned begin(Scanner & in, char tag, unsigned around);
    void grow(Scanner const & in);
    [[gnu::always_inline]] unsigned append(Scanner const & in, char tag, Kind kind, tav_istr data) {
        if (__builtin_expect(nodes_.size() == nodes_.capacity(), 0)) {
            grow(in);
        }
        unsigned const i = static_cast<unsigned>(nodes_.size());
        unsigned const place = data.empty() ? 0 : static_cast<unsigned>(data.data() - base_);
        nodes_.push_back(Node{place, data.size(), tag, kind, true, 0});
        return i;
    }

    tavBytes buffer_;
    char const * base_ = nullptr;
    std::vector<Node> nodes_;
};

/// Has `read` take a value from bytes that nothing of it changes: they are not copied.  Throws what parsing
/// throws, and what `read` does.
void readInPlace(tav_istr bytes, std::function<void(tavCodecStream &)> const & read);

} // namespace detail
} // namespace nbr
} // namespace tav

#endif
