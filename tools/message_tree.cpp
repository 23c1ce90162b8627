#include "tools/message_tree.h"

#include "tools/integers.h"
#include "tools/nbr_reader.h"
#include "tools/value_text.h"

#include <tav/vinta/vinta_nbr_unit.h>

#include <algorithm>
#include <set>

namespace tav {
namespace tool {

using pml::MetaClass;
using pml::MetaFactory;
using pml::MetaField;

namespace kinds = pml::field_type;

namespace {

typedef MessageNode::Shape Shape;

bool isText(Kind kind) {
    return kind == kinds::string_ || kind == kinds::wstring_ || kind == kinds::u8string_;
}

bool isSigned(Kind kind) {
    return kind == kinds::int8_ || kind == kinds::int16_ || kind == kinds::int32_ || kind == kinds::int64_ ||
           kind == kinds::time_ || kind == kinds::enum_;
}

/// Whether the bytes beyond the width of a number say nothing but its sign.
bool isPadded(std::string_view data, std::size_t width, Kind kind) {
    bool const negative = isSigned(kind) && (static_cast<unsigned char>(data[width - 1]) & 0x80u) != 0;
    char const by = negative ? '\xFF' : '\0';
    return std::all_of(data.begin() + static_cast<long>(width), data.end(), [by](char c) { return c == by; });
}

class TreeReader : public NbrVisitor {
public:
    TreeReader(std::string_view bytes, MetaClass const & cls, MetaFactory const & factory)
        : bytes_(bytes), cls_(cls), factory_(factory) {}

    MessageTree read();

    void simple(NbrValue const & value) override;
    void open(NbrValue const & value) override;
    void close(std::size_t at) override;

private:
    /// What a value is to be.
    struct Spot {
        bool known = true;
        Kind kind = kinds::object_;
        MetaField const * field = nullptr;
        MetaClass const * around = nullptr;
        std::string key;
    };
    /// A complex value that is open.
    struct Open {
        std::size_t node = MessageNode::none;
        std::set<int> tags;
        std::set<std::string> keys;
        /// Of the entry of a map: its map is below it.
        bool entry = false;
        bool hasKey = false;
        bool hasValue = false;
        std::string key;
    };

    bool dropsTopLevel(NbrValue const & value);
    Spot spotOf(NbrValue const & value);
    Spot memberOf(MessageNode const & in, NbrValue const & value);
    MessageNode & add(Spot const & spot, NbrValue const & value);
    void openEntry(NbrValue const & value);
    void keyOf(NbrValue const & value);
    void closeEntry();
    void take(MessageNode & node, NbrValue const & value) const;
    void checkNumber(MessageNode const & node) const;
    std::string nameOf(MessageNode const & node) const {
        return node.field == nullptr ? "the message " : "field " + stringOf(node.field->idName.name) + " ";
    }
    std::string_view dataOf(NbrValue const & value) const { return bytes_.substr(value.data, value.size); }
    void note(std::size_t offset, std::string const & text) { tree_.notes.push_back(Note{offset, text}); }
    bool inEntry() const { return !open_.empty() && open_.back().entry; }
    MessageNode const & nodeOf(Open const & open) const { return tree_.nodes[open.node]; }
    /// The map of the entry that is open.
    Open & mapOfEntry() { return open_[open_.size() - 2]; }

    std::string_view bytes_;
    MetaClass const & cls_;
    MetaFactory const & factory_;
    MessageTree tree_;
    std::vector<Open> open_;
    /// The depth within what is dropped.
    std::size_t dropped_ = 0;
};

MessageTree TreeReader::read() {
    NbrFault fault;
    if (!readNbr(bytes_, *this, fault)) {
        throw PlacedFault(fault.offset, fault.text);
    }
    if (tree_.nodes.empty()) {
        throw PlacedFault(0, "a message is an object, and none is there");
    }
    std::vector<MetaClass const *> const chain = chainOf(cls_, factory_);
    std::set<MetaField const *> there;
    for (std::size_t i = tree_.nodes[0].firstChild; i != MessageNode::none; i = tree_.nodes[i].next) {
        there.insert(tree_.nodes[i].field);
    }
    for (auto one = chain.rbegin(); one != chain.rend(); ++one) {
        for (MetaField const & field : (*one)->fields) {
            bool const hidden =
                findField(istrOf(viewOf(tav_istr(field.idName.name))), cls_, factory_) != &field;
            if (isNecessary(field) && !hidden && there.count(&field) == 0) {
                tree_.missing.push_back(stringOf(field.idName.name));
            }
        }
    }
    return std::move(tree_);
}

/// Of the values at the top the first object is the message.
bool TreeReader::dropsTopLevel(NbrValue const & value) {
    if (!open_.empty()) {
        return false;
    }
    if (tree_.nodes.empty()) {
        throw PlacedFault(value.begin, "a message is an object, and no single value");
    }
    note(value.begin, "a further value behind the message: it is dropped");
    return true;
}

TreeReader::Spot TreeReader::memberOf(MessageNode const & in, NbrValue const & value) {
    Spot spot;
    spot.around = in.cls;
    spot.field = findField(value.tag, *in.cls, factory_);
    spot.known = spot.field != nullptr;
    if (!spot.known) {
        note(value.begin, "no field of the class " + stringOf(in.cls->className) + " has the tag " +
                              std::to_string(value.tag) + ": it is dropped");
        return spot;
    }
    if (!open_.back().tags.insert(value.tag).second) {
        throw PlacedFault(value.begin, "the field " + stringOf(spot.field->idName.name) + " is there twice");
    }
    spot.kind = spot.field->classType.type;
    return spot;
}

TreeReader::Spot TreeReader::spotOf(NbrValue const & value) {
    if (open_.empty()) {
        Spot root;
        root.around = &cls_;
        return root;
    }
    Open const & in = open_.back();
    MessageNode const & node = in.entry ? nodeOf(mapOfEntry()) : nodeOf(in);
    if (!in.entry && node.shape == Shape::object) {
        return memberOf(node, value);
    }
    Spot spot;
    spot.field = node.field;
    spot.around = node.cls;
    spot.kind = node.field->classType.elementType;
    spot.key = in.key;
    return spot;
}

/// A node below the innermost one that is open.
MessageNode & TreeReader::add(Spot const & spot, NbrValue const & value) {
    std::size_t const index = tree_.nodes.size();
    MessageNode node;
    node.kind = spot.kind;
    node.field = spot.field;
    node.cls = spot.around;
    node.key = spot.key;
    node.offset = value.head;
    tree_.nodes.push_back(std::move(node));
    if (!open_.empty()) {
        MessageNode & in = tree_.nodes[inEntry() ? mapOfEntry().node : open_.back().node];
        (in.lastChild == MessageNode::none ? in.firstChild : tree_.nodes[in.lastChild].next) = index;
        in.lastChild = index;
    }
    return tree_.nodes.back();
}

/// The first value of an entry is its key, and the second one its value.
void TreeReader::keyOf(NbrValue const & value) {
    Open & entry = open_.back();
    MessageNode const & map = nodeOf(mapOfEntry());
    Kind const kind = map.field->classType.keyType;
    std::string_view const data = dataOf(value);
    if (value.tag == 2 || entry.hasKey || value.null) {
        throw PlacedFault(value.begin, nameOf(map) + "has an entry without a key ahead of its value");
    }
    bool const number = kind == kinds::int64_ || kind == kinds::uint64_;
    if (!number && !isText(kind)) {
        throw PlacedFault(value.begin,
                          nameOf(map) + "has keys of the kind " + kindName(kind) + ", which are lost");
    }
    if (number ? value.text || data.empty() || data.size() > 8 : !value.text) {
        throw PlacedFault(value.begin, nameOf(map) + "has a key that is no " + kindName(kind));
    }
    if (number) {
        unsigned long long bits = 0;
        nbr::SimpleValue(istrOf(data), false).read(bits);
        entry.key =
            kind == kinds::int64_ ? std::to_string(static_cast<long long>(bits)) : std::to_string(bits);
    } else {
        entry.key = std::string(data);
    }
    if (!mapOfEntry().keys.insert(entry.key).second) {
        throw PlacedFault(value.begin, nameOf(map) + "has the key " + entry.key + " twice");
    }
    entry.hasKey = true;
}

void TreeReader::simple(NbrValue const & value) {
    if (dropped_ != 0 || dropsTopLevel(value)) {
        return;
    }
    if (inEntry()) {
        Open & entry = open_.back();
        if (!entry.hasKey) {
            keyOf(value);
            return;
        }
        if (value.tag != 2 || entry.hasValue) {
            note(value.begin,
                 nameOf(nodeOf(mapOfEntry())) + "has an entry with more than key and value: it is dropped");
            return;
        }
        entry.hasValue = true;
    } else if (nodeOf(open_.back()).shape == Shape::map) {
        MessageNode const & map = nodeOf(open_.back());
        if (!value.null) {
            throw PlacedFault(value.head, nameOf(map) + "has an entry that is no object");
        }
        note(value.begin, nameOf(map) + "has a null for an entry: it is dropped");
        return;
    }
    Spot const spot = spotOf(value);
    if (spot.known) {
        take(add(spot, value), value);
    }
}

/// Puts the data into the node, if its kind is one that has them.
void TreeReader::take(MessageNode & node, NbrValue const & value) const {
    if (value.null) {
        return;
    }
    node.shape = Shape::simple;
    node.data = dataOf(value);
    std::size_t const width = widthOf(node.kind);
    bool const bytes = node.kind == kinds::bytes_;
    if (width == 0 && !isText(node.kind) && !bytes) {
        bool const container = node.kind >= kinds::object_;
        throw PlacedFault(value.head, nameOf(node) + (container ? "is a single value where " : "is a ") +
                                          (node.field == nullptr ? "object" : typeText(*node.field)) +
                                          (container ? " is expected" : ", which can't be converted"));
    }
    if (value.text != isText(node.kind)) {
        throw PlacedFault(value.head, nameOf(node) + "is " + (value.text ? "a text" : "no text") + " where " +
                                          kindName(node.kind) + " is expected");
    }
    if (width != 0) {
        checkNumber(node);
    }
}

void TreeReader::checkNumber(MessageNode const & node) const {
    std::size_t const width = widthOf(node.kind);
    bool const floating = node.kind == kinds::float_ || node.kind == kinds::double_;
    std::string const kind = kindName(node.kind);
    if (node.data.empty() || (floating && node.data.size() != width) ||
        (node.data.size() > width && !isPadded(node.data, width, node.kind))) {
        throw PlacedFault(node.offset, nameOf(node) + "has a number of " + std::to_string(node.data.size()) +
                                           " bytes, which no " + kind + " is");
    }
    if (floating) {
        return;
    }
    unsigned long long bits = 0;
    nbr::SimpleValue(istrOf(node.data.substr(0, width)), false).read(bits);
    if (node.kind == kinds::bool_ && bits > 1) {
        throw PlacedFault(node.offset,
                          nameOf(node) + "has the value " + std::to_string(bits) + ", which no bool is");
    }
    auto const number = static_cast<long long>(bits);
    auto const narrow =
        node.kind == kinds::enum_ || node.kind == kinds::int32_ ? static_cast<int>(bits) : number;
    if (node.kind == kinds::enum_ && node.field->validValues.count(static_cast<int>(bits)) == 0) {
        throw PlacedFault(node.offset, nameOf(node) + "has the enum value " + std::to_string(narrow) +
                                           ", which is none of its members");
    }
    bool const bounded = node.kind != kinds::enum_ && node.kind != kinds::time_ && !node.field->isProtected;
    auto const small = node.kind == kinds::int8_    ? static_cast<long long>(static_cast<signed char>(bits))
                       : node.kind == kinds::int16_ ? static_cast<long long>(static_cast<short>(bits))
                                                    : narrow;
    if (bounded && !node.field->range.check(small)) {
        throw PlacedFault(node.offset, nameOf(node) + "has the value " + std::to_string(small) +
                                           ", which its range does not have");
    }
}

void TreeReader::openEntry(NbrValue const &) {
    Open entry;
    entry.entry = true;
    open_.push_back(std::move(entry));
}

void TreeReader::open(NbrValue const & value) {
    if (dropped_ != 0) {
        ++dropped_;
        return;
    }
    bool const root = open_.empty() && tree_.nodes.empty();
    if (!root && open_.empty()) {
        dropped_ = dropsTopLevel(value) ? 1 : 0;
        return;
    }
    if (!root && !inEntry() && nodeOf(open_.back()).shape == Shape::map) {
        openEntry(value);
        return;
    }
    if (inEntry()) {
        Open & entry = open_.back();
        if (!entry.hasKey || value.tag != 2 || entry.hasValue) {
            throw PlacedFault(value.head,
                              nameOf(nodeOf(mapOfEntry())) + "has an entry with an object for a key");
        }
        entry.hasValue = true;
    }
    Spot const spot = spotOf(value);
    if (!spot.known) {
        dropped_ = 1;
        return;
    }
    MessageNode & node = add(spot, value);
    Open opened;
    opened.node = tree_.nodes.size() - 1;
    if (spot.kind == kinds::list_ || spot.kind == kinds::map_) {
        node.shape = spot.kind == kinds::list_ ? Shape::list : Shape::map;
    } else if (spot.kind == kinds::object_ || spot.kind == kinds::ref_) {
        node.shape = Shape::object;
        node.cls = root ? &cls_ : findClass(spot.field->classType.name, spot.around, factory_);
        if (node.cls == nullptr) {
            throw PlacedFault(value.head, nameOf(node) + "is of the class " +
                                              stringOf(spot.field->classType.name) + ", which is not there");
        }
    } else {
        throw PlacedFault(value.head,
                          nameOf(node) + "is an object where " + kindName(spot.kind) + " is expected");
    }
    open_.push_back(std::move(opened));
}

void TreeReader::closeEntry() {
    Open const & entry = open_.back();
    if (!entry.hasValue) {
        throw PlacedFault(nodeOf(mapOfEntry()).offset,
                          nameOf(nodeOf(mapOfEntry())) + "has an entry without a value");
    }
}

void TreeReader::close(std::size_t) {
    if (dropped_ != 0) {
        --dropped_;
        return;
    }
    if (inEntry()) {
        closeEntry();
    }
    open_.pop_back();
}

} // namespace

MessageTree readMessage(std::string_view nbr, MetaClass const & cls, MetaFactory const & factory) {
    return TreeReader(nbr, cls, factory).read();
}

std::string missingFields(std::vector<std::string> const & names, MetaClass const & cls) {
    std::string text = "missing necessary field name(s) {";
    for (std::string const & name : names) {
        text += " " + name;
    }
    return text + " } in class " + stringOf(cls.className);
}

} // namespace tool
} // namespace tav
