#ifndef TAV_MODEL_JSON2NBR_READER_H
#define TAV_MODEL_JSON2NBR_READER_H

#include "formats/json/json_text.h"
#include "formats/nbr/nbr_document.h"
#include "model/meta_lookup.h"

#include <array>
#include <cstddef>
#include <forward_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// NBR to JSON.  Internal.
namespace tav {
namespace detail {

/// The tags that members on the wire can have, as signed numbers.
class TagSet {
public:
    void add(char tag) { words_[index(tag) / 64] |= 1ull << (index(tag) % 64); }
    bool has(short tag) const {
        return tag >= -128 && tag <= 127 &&
               (words_[index(static_cast<char>(tag)) / 64] >> (index(static_cast<char>(tag)) % 64) & 1) != 0;
    }

private:
    static unsigned index(char tag) { return static_cast<unsigned char>(tag); }

    unsigned long long words_[4] = {0, 0, 0, 0};
};

/// Something to be told of a node of a document.
struct ReadEvent {
    enum What : unsigned char { unknownRootTag, unknownTag, unknownClass, unknownKind };

    unsigned node;
    What what;
    pml::field_type::values kind;
    /// The class that has no field of the tag.
    pml::MetaClass const * cls;
    tavString const * className;
};

/// What is known of a class that values are read into: its fields by tag, as they are asked for.
class ReadClass {
public:
    struct Entry {
        /// Null for the member that names the class of a message.
        pml::MetaField const * field;
        /// The class of the objects of this field, once it has been asked for; null if there is none.
        ReadClass * objects;
        bool resolved;
        /// Of the field.
        pml::field_type::values kind;
        /// The place of the name in the order of all names so far; those of one name share it.
        unsigned short rank;
        std::string_view name;
    };

    static constexpr unsigned none = ~0u;

    explicit ReadClass(pml::MetaClass const & meta);

    pml::MetaClass const & meta() const { return meta_; }
    Entry & entry(unsigned i) { return entries_[i]; }
    Entry const & entry(unsigned i) const { return entries_[i]; }

    /// The entry of the field with this tag, in the class or its bases; `none` if there is none.  `name`
    /// gives a new one its name.
    template <class Name>
    unsigned find(char tag, pml::MetaFactory const & factory, Name && name) {
        unsigned short & slot = slots_[static_cast<unsigned char>(tag)];
        if (slot == unknown) {
            pml::MetaField const * const field = findField(static_cast<short>(tag), meta_, factory);
            slot = field != nullptr ? static_cast<unsigned short>(add(field, name(*field))) : absent;
        }
        return slot == absent ? none : slot;
    }

    unsigned add(pml::MetaField const * field, std::string_view name);

private:
    static constexpr unsigned short unknown = 0xFFFF;
    static constexpr unsigned short absent = 0xFFFE;

    pml::MetaClass const & meta_;
    std::array<unsigned short, 256> slots_;
    std::vector<Entry> entries_;
    /// The entries in the order of their names.
    std::vector<unsigned short> order_;
};

/// What values are read as.
enum class ReadAs : unsigned char {
    json,
    /// With protected values masked.
    logText,
    /// As the log's text, of which nothing is kept: all that comes of it is what there is to tell.
    events
};

/// Writes the values of a document as JSON.  Members come in the order of their names and not in that of the
/// bytes; what there is to tell of them comes in that of the bytes.  What is open is kept on a stack of its
/// own, so that depth costs no calls.
///
/// Members of one name are one value, as if each were written over those ahead of it: lists are joined,
/// objects have the members of all, and any other value takes the place of what was there.
class Reader {
public:
    /// Neither may change while this is in use.  The document has been read from `size` bytes.
    Reader(pml::MetaFactory const & factory, nbr::detail::Document const & document, ReadAs as,
           std::size_t size);

    /// An object of the class with the members of the document's first value, if that is complex.  Their tags
    /// go into `tags`.
    std::string read(pml::MetaClass const & meta, TagSet & tags);

    /// What no field took, in the order of the bytes, once all is read.
    std::vector<ReadEvent> const & events() const { return events_; }

private:
    typedef pml::field_type::values Kind;

    /// What an open value is made of: the members of one complex value, or those of many values.
    enum class Shape : unsigned char { object, list, joinedObject, joinedList };

    /// What a value becomes; `kept` changes nothing.
    enum class Outcome : unsigned char { null, simple, list, object, kept };

    /// What holds for a value: the class whose object it stands in, the entry of its field there, and its
    /// kind, which is the field's own or, within a list or a map, that of an element.
    struct Spot {
        ReadClass * cls;
        unsigned entry;
        Kind kind;
    };

    /// A member of an open object.
    struct Member {
        unsigned node;
        unsigned entry;
    };

    struct Item {
        std::string_view name;
        unsigned node;
        Spot spot;
    };

    /// How a value is written.
    struct Form {
        /// Names stand without quotes, and classes ahead of their objects.
        bool sample;
        /// As bare text: a string without quotes and escapes, and nothing for null.
        bool bare;
    };

    /// A value that has been opened and not yet closed.
    struct Frame {
        /// Of a list: what holds for its elements.  Of an object: its class.
        Spot spot;
        /// Of a list the next node and the one behind the last, else places in `members_` or `items_`.
        unsigned next;
        unsigned end;
        /// The size of `members_` or `items_` before this was opened.
        unsigned before;
        Shape shape;
        bool sample;
        bool first;
        /// The bracket, ahead of which the class may stand, has been written.
        bool begun;
    };

    /// The node of the message, which is no member: as one it stands for the name of the class.
    static constexpr unsigned root = 0;

    pml::MetaField const & fieldOf(Spot const & spot) const { return *spot.cls->entry(spot.entry).field; }
    bool isMasked(Spot const & spot) const { return dump_ && fieldOf(spot).isProtected; }
    Spot elementOf(Spot const & spot) const {
        return Spot{spot.cls, spot.entry, fieldOf(spot).classType.elementType};
    }
    /// The data of a simple value; a null view for all else.
    tav_istr dataOf(unsigned node) const {
        return node != nbr::detail::Document::none && nbr::detail::Document::isSimple(document_.node(node))
                   ? document_.data(document_.node(node))
                   : tav_istr();
    }
    bool isNull(unsigned node) const {
        return node == nbr::detail::Document::none ||
               document_.node(node).kind == nbr::detail::Document::Kind::null;
    }
    bool isComplex(unsigned node) const {
        return document_.node(node).kind == nbr::detail::Document::Kind::complex;
    }
    unsigned endOf(unsigned node) const { return document_.next(node); }

    ReadClass & classOf(pml::MetaClass const & meta);
    ReadClass * objectClass(unsigned node, Spot const & spot);
    unsigned entryOf(unsigned node, ReadClass & cls, bool top);
    static Spot memberSpot(ReadClass & cls, unsigned entry) {
        return Spot{&cls, entry, cls.entry(entry).kind};
    }

    void run();
    Outcome outcomeOf(unsigned node, Spot const & spot) const;
    void put(unsigned node, Spot const & spot, Form form);
    void putNull(Form form);
    void putText(std::string_view text, Form form);
    template <class T>
    void putNumber(tav_istr data);
    template <class T>
    void putLarge(tav_istr data, Form form);
    void putSimple(unsigned node, Spot const & spot, Form form);
    void putSeparator(Frame & frame);
    void putName(std::string_view name, Frame & frame);

    void openMembers(unsigned parent, ReadClass & cls, Form form);
    void sortMembers(std::size_t before, ReadClass const & cls);
    void putMember(Frame & frame);
    void putElement(Frame & frame);
    void putJoinedMember(Frame & frame);
    void putJoinedElement(Frame & frame);
    void close(char bracket);

    unsigned endOfName(unsigned first, unsigned end) const;
    void putItems(unsigned first, unsigned end, Form form);
    void putJoined(std::vector<Item> const & group, Form form);
    void openItems(Shape shape, std::size_t before, Form form);
    void gather(unsigned node, Spot const & spot, std::vector<Item> & items);
    std::string_view keyText(unsigned node, Spot const & spot);
    void tellWithin(Item const & item);

    std::string_view keep(std::string_view text) {
        texts_.emplace_front(text);
        return texts_.front();
    }

    pml::MetaFactory const & factory_;
    nbr::detail::Document const & document_;
    bool const dump_;
    bool const silent_;
    JsonText out_;
    /// By the address of their description.
    std::vector<std::unique_ptr<ReadClass>> classes_;
    std::vector<Frame> frames_;
    /// The members that are still to be written of the open objects of one value each.
    std::vector<Member> members_;
    /// The same of those that are made of many values, and of maps.
    std::vector<Item> items_;
    std::vector<ReadEvent> events_;
    /// What names point to that are nowhere else.
    std::forward_list<std::string> texts_;
    /// Ranks and nodes, while they are sorted.
    std::vector<unsigned long long> keys_;
    std::string base64_;
    /// The class of the message: its entry, its name and the tags of its members.
    unsigned rootEntry_ = ReadClass::none;
    std::string_view rootName_;
    TagSet * rootTags_ = nullptr;
};

} // namespace detail
} // namespace tav

#endif
