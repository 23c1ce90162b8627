#include "model/json2nbr_reader.h"

#include "foundation/number_text.h"
#include "foundation/views.h"
#include "tav/vinta/vinta_object.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

namespace tav {
namespace detail {

namespace {

using nbr::detail::decodeValue;
using nbr::detail::Document;
using pml::MetaClass;
using pml::MetaFactory;
using pml::MetaField;
typedef pml::field_type::values Kind;

namespace kinds = pml::field_type;

/// The member that names the class of a message.
constexpr std::string_view classMember = "__class__";

/// Whether values of the kind are neither lists nor objects.
bool isSimpleKind(Kind kind) noexcept {
    return static_cast<unsigned>(kind) <= kinds::enum_;
}

/// The masked form of a protected value.
tavString masked(tav_istr data, MetaField const & field, Kind kind) {
    tavCodecMeta meta(kind, field.isProtected, nullptr, field.classType.optional);
    meta.spec = field.spec;
    return tavDumper::protectedValue(data, meta);
}

} // namespace

ReadClass::ReadClass(MetaClass const & meta) : meta_(meta) {
    slots_.fill(unknown);
    // One more for the name of the class.
    std::size_t const expected = std::min(meta.fields.size() + 1, slots_.size());
    entries_.reserve(expected);
    order_.reserve(expected);
}

unsigned ReadClass::add(MetaField const * field, std::string_view name) {
    auto const i = static_cast<unsigned short>(entries_.size());
    auto const before = [this](unsigned short a, std::string_view b) {
        return isNameLess(entries_[a].name, b);
    };
    bool const last = order_.empty() || before(order_.back(), name);
    auto const at = last ? order_.end() : std::lower_bound(order_.begin(), order_.end(), name, before);
    bool const known = !last && entries_[*at].name == name;
    unsigned short rank = 0;
    if (!last) {
        rank = entries_[*at].rank;
    } else if (!order_.empty()) {
        rank = static_cast<unsigned short>(entries_[order_.back()].rank + 1);
    }
    if (!known) {
        for (auto above = at; above != order_.end(); ++above) {
            ++entries_[*above].rank;
        }
    }
    order_.insert(at, i);
    Kind const kind = field != nullptr ? static_cast<Kind>(field->classType.type) : kinds::string_;
    entries_.push_back(Entry{field, nullptr, false, kind, rank, name});
    return i;
}

Reader::Reader(MetaFactory const & factory, Document const & document, ReadAs as, std::size_t size)
    : factory_(factory),
      document_(document),
      dump_(as != ReadAs::json),
      silent_(as == ReadAs::events),
      out_(silent_ ? 64 : 64 + size + 8 * document.nodes().size()) {
    // As much as most messages need.
    frames_.reserve(8);
    members_.reserve(32);
}

std::string Reader::read(MetaClass const & meta, TagSet & tags) {
    rootTags_ = &tags;
    rootName_ = bytesOf(meta.className);
    ReadClass & cls = classOf(meta);
    if (dump_) {
        out_.put("@");
        out_.put(rootName_);
    } else {
        rootEntry_ = cls.add(nullptr, classMember);
    }
    openMembers(root, cls, Form{dump_, false});
    run();
    std::sort(events_.begin(), events_.end(),
              [](ReadEvent const & a, ReadEvent const & b) { return a.node < b.node; });
    return out_.take();
}

ReadClass & Reader::classOf(MetaClass const & meta) {
    auto const at = std::lower_bound(classes_.begin(), classes_.end(), &meta,
                                     [](std::unique_ptr<ReadClass> const & one, MetaClass const * wanted) {
                                         return std::less<>()(&one->meta(), wanted);
                                     });
    if (at != classes_.end() && &(*at)->meta() == &meta) {
        return **at;
    }
    return **classes_.insert(at, std::make_unique<ReadClass>(meta));
}

/// The class of the object that a node is read into.  Null if there is none, which is to be told.
ReadClass * Reader::objectClass(unsigned node, Spot const & spot) {
    ReadClass::Entry & entry = spot.cls->entry(spot.entry);
    tavString const & name = entry.field->classType.name;
    if (!entry.resolved) {
        MetaClass const * const found = findClass(name, spot.cls->meta(), factory_);
        entry.objects = found != nullptr ? &classOf(*found) : nullptr;
        entry.resolved = true;
    }
    if (entry.objects == nullptr) {
        events_.push_back(ReadEvent{node, ReadEvent::unknownClass, kinds::object_, nullptr, &name});
    }
    return entry.objects;
}

/// The entry of a member's field; `none`, which is to be told, if its tag is unknown.
unsigned Reader::entryOf(unsigned node, ReadClass & cls, bool top) {
    unsigned const entry =
        cls.find(document_.node(node).tag, factory_, [this](MetaField const & field) -> std::string_view {
            return dump_ ? keep(bytesOf(field.idName.toString(true))) : bytesOf(field.idName.name);
        });
    if (entry == ReadClass::none) {
        events_.push_back(ReadEvent{node, top ? ReadEvent::unknownRootTag : ReadEvent::unknownTag,
                                    kinds::object_, &cls.meta(), nullptr});
    }
    return entry;
}

void Reader::run() {
    while (!frames_.empty()) {
        if (silent_) {
            out_.drop();
        }
        Frame & frame = frames_.back();
        if (!frame.begun) {
            frame.begun = true;
            out_.put("{");
        }
        switch (frame.shape) {
        case Shape::object: putMember(frame); break;
        case Shape::list: putElement(frame); break;
        case Shape::joinedObject: putJoinedMember(frame); break;
        case Shape::joinedList: putJoinedElement(frame); break;
        }
    }
}

/// Writes a simple value; opens any other one and leaves what is in it to the loop.
void Reader::put(unsigned node, Spot const & spot, Form form) {
    switch (outcomeOf(node, spot)) {
    case Outcome::null: putNull(form); return;
    case Outcome::simple: putSimple(node, spot, form); return;
    case Outcome::list:
        out_.put("[");
        frames_.push_back(
            Frame{elementOf(spot), node + 1, endOf(node), 0, Shape::list, form.sample, true, true});
        return;
    case Outcome::object:
        if (spot.kind == kinds::map_) {
            std::size_t const before = items_.size();
            gather(node, spot, items_);
            openItems(Shape::joinedObject, before, form);
        } else if (ReadClass * const cls = objectClass(node, spot)) {
            openMembers(node, *cls, form);
        } else {
            out_.put("{ }");
        }
        return;
    case Outcome::kept:
        events_.push_back(ReadEvent{node, ReadEvent::unknownKind, spot.kind, nullptr, nullptr});
        putNull(form);
        return;
    }
}

Reader::Outcome Reader::outcomeOf(unsigned node, Spot const & spot) const {
    if (node == root) {
        return Outcome::simple;
    }
    if (isNull(node)) {
        return Outcome::null;
    }
    switch (spot.kind) {
    case kinds::list_:
    case kinds::ref_list_: return Outcome::list;
    case kinds::map_:
    case kinds::object_:
    case kinds::ref_: return Outcome::object;
    default: return isSimpleKind(spot.kind) ? Outcome::simple : Outcome::kept;
    }
}

void Reader::putNull(Form form) {
    if (!form.bare) {
        out_.put("null");
    }
}

void Reader::putText(std::string_view text, Form form) {
    if (form.bare) {
        out_.put(text);
    } else {
        out_.putEscaped(text);
    }
}

template <class T>
void Reader::putNumber(tav_istr data) {
    T value = T();
    decodeValue(data, value);
    if constexpr (std::is_same<T, bool>::value) {
        out_.put(value ? std::string_view("true") : std::string_view("false"));
    } else if constexpr (std::is_floating_point<T>::value) {
        out_.putNumber(static_cast<double>(value));
    } else {
        out_.putNumber(value);
    }
}

/// As a string, so that no reader takes it through a floating-point number.
template <class T>
void Reader::putLarge(tav_istr data, Form form) {
    std::string_view const quote = form.bare ? std::string_view() : std::string_view("\"");
    out_.put(quote);
    putNumber<T>(data);
    out_.put(quote);
}

void Reader::putSimple(unsigned node, Spot const & spot, Form form) {
    if (silent_) {
        return;
    }
    if (node == root) {
        putText(rootName_, form);
        return;
    }
    tav_istr const data = dataOf(node);
    switch (spot.kind) {
    case kinds::bool_: putNumber<bool>(data); return;
    case kinds::int8_: putNumber<char>(data); return;
    case kinds::int16_: putNumber<short>(data); return;
    case kinds::int32_:
    case kinds::enum_: putNumber<int>(data); return;
    case kinds::uint8_: putNumber<unsigned char>(data); return;
    case kinds::uint16_: putNumber<unsigned short>(data); return;
    case kinds::uint32_: putNumber<unsigned int>(data); return;
    case kinds::float_: putNumber<float>(data); return;
    case kinds::double_: putNumber<double>(data); return;
    case kinds::int64_:
    case kinds::time_: putLarge<long long>(data, form); return;
    case kinds::uint64_: putLarge<unsigned long long>(data, form); return;
    case kinds::char_:
    case kinds::wchar_: putText(bytesOf(data), form); return;
    default: break;
    }
    // Texts and bytes, which may be masked.
    if (isMasked(spot)) {
        putText(bytesOf(masked(data, fieldOf(spot), spot.kind)), form);
    } else if (spot.kind == kinds::bytes_) {
        base64_.clear();
        tavBase64::encode(data, base64_, false);
        putText(base64_, form);
    } else {
        putText(bytesOf(data), form);
    }
}

/// What stands ahead of the next value of the frame.
void Reader::putSeparator(Frame & frame) {
    out_.putSeparator(frame.first);
    frame.first = false;
}

void Reader::putName(std::string_view name, Frame & frame) {
    putSeparator(frame);
    if (silent_) {
        return;
    }
    out_.putName(name, !frame.sample);
}

/// Opens an object of the class with the members of a complex value; of one of another kind if that is none.
void Reader::openMembers(unsigned parent, ReadClass & cls, Form form) {
    bool const top = parent == root;
    auto const before = static_cast<unsigned>(members_.size());
    if (top && !dump_) {
        members_.push_back(Member{root, rootEntry_});
    }
    unsigned const end = document_.first() != Document::none ? endOf(parent) : 0;
    for (unsigned i = parent + 1; i < end; i = document_.next(i)) {
        if (top) {
            rootTags_->add(document_.node(i).tag);
        }
        unsigned const entry = entryOf(i, cls, top);
        if (entry != ReadClass::none) {
            members_.push_back(Member{i, entry});
        }
    }
    sortMembers(before, cls);
    out_.put("{");
    frames_.push_back(Frame{Spot{&cls, ReadClass::none, kinds::object_}, before,
                            static_cast<unsigned>(members_.size()), before, Shape::object, form.sample, true,
                            true});
}

/// By name, and those of one name as they came.
void Reader::sortMembers(std::size_t before, ReadClass const & cls) {
    auto const rank = [&](Member const & member) { return cls.entry(member.entry).rank; };
    bool sorted = true;
    for (std::size_t i = before + 1; i < members_.size() && sorted; ++i) {
        sorted = rank(members_[i - 1]) <= rank(members_[i]);
    }
    if (sorted) {
        return;
    }
    keys_.clear();
    for (std::size_t i = before; i < members_.size(); ++i) {
        Member const & member = members_[i];
        keys_.push_back(static_cast<unsigned long long>(rank(member)) << 48 |
                        static_cast<unsigned long long>(member.node) << 16 | member.entry);
    }
    std::sort(keys_.begin(), keys_.end());
    std::transform(keys_.begin(), keys_.end(), members_.begin() + static_cast<std::ptrdiff_t>(before),
                   [](unsigned long long key) {
                       return Member{static_cast<unsigned>(key >> 16), static_cast<unsigned>(key & 0xFFFF)};
                   });
}

// Each of these writes one more value of an open one, or closes that.  `frame` is invalid behind a put, which
// may open another one.

void Reader::putMember(Frame & frame) {
    if (frame.next == frame.end) {
        members_.resize(frame.before);
        close('}');
        return;
    }
    ReadClass & cls = *frame.spot.cls;
    Form const form{frame.sample, false};
    Member const member = members_[frame.next++];
    ReadClass::Entry const & entry = cls.entry(member.entry);
    auto const follows = [&] {
        return frame.next != frame.end && cls.entry(members_[frame.next].entry).rank == entry.rank;
    };
    putName(entry.name, frame);
    if (!follows()) {
        put(member.node, memberSpot(cls, member.entry), form);
        return;
    }
    std::vector<Item> group(1, Item{std::string_view(), member.node, memberSpot(cls, member.entry)});
    while (follows()) {
        Member const & other = members_[frame.next++];
        group.push_back(Item{std::string_view(), other.node, memberSpot(cls, other.entry)});
    }
    putJoined(group, form);
}

void Reader::putElement(Frame & frame) {
    if (frame.next == frame.end) {
        close(']');
        return;
    }
    unsigned const node = frame.next;
    frame.next = document_.next(node);
    Spot const spot = frame.spot;
    putSeparator(frame);
    put(node, spot, Form{frame.sample, false});
}

void Reader::putJoinedMember(Frame & frame) {
    if (frame.next == frame.end) {
        items_.resize(frame.before);
        close('}');
        return;
    }
    Item const item = items_[frame.next];
    unsigned const first = frame.next;
    frame.next = endOfName(first, frame.end);
    if (frame.sample && item.name == classMember) {
        return;
    }
    putName(item.name, frame);
    putItems(first, frame.next, Form{frame.sample, false});
}

void Reader::putJoinedElement(Frame & frame) {
    if (frame.next == frame.end) {
        items_.resize(frame.before);
        close(']');
        return;
    }
    Item const item = items_[frame.next++];
    putSeparator(frame);
    put(item.node, item.spot, Form{frame.sample, false});
}

void Reader::close(char bracket) {
    out_.putEnd(bracket);
    frames_.pop_back();
}

/// The place behind the last item of the name of the item at `first`.
unsigned Reader::endOfName(unsigned first, unsigned end) const {
    unsigned i = first + 1;
    while (i != end && items_[i].name == items_[first].name) {
        ++i;
    }
    return i;
}

/// Writes the value of the items of one name.
void Reader::putItems(unsigned first, unsigned end, Form form) {
    if (end - first == 1) {
        Item const item = items_[first];
        put(item.node, item.spot, form);
    } else {
        putJoined(std::vector<Item>(items_.begin() + first, items_.begin() + end), form);
    }
}

void Reader::putJoined(std::vector<Item> const & group, Form form) {
    Outcome result = Outcome::null;
    std::size_t first = 0;
    for (std::size_t i = 0; i < group.size(); ++i) {
        Outcome const outcome = outcomeOf(group[i].node, group[i].spot);
        bool const joins = outcome == result && (outcome == Outcome::list || outcome == Outcome::object);
        if (outcome != Outcome::kept && !joins) {
            result = outcome;
            first = i;
        }
    }
    std::size_t const before = items_.size();
    for (std::size_t i = 0; i < group.size(); ++i) {
        Item const & item = group[i];
        if (i < first || outcomeOf(item.node, item.spot) == Outcome::kept) {
            tellWithin(item);
        } else if (result == Outcome::list || result == Outcome::object) {
            gather(item.node, item.spot, items_);
        }
    }
    switch (result) {
    case Outcome::simple: putSimple(group[first].node, group[first].spot, form); return;
    case Outcome::list: openItems(Shape::joinedList, before, form); return;
    case Outcome::object: openItems(Shape::joinedObject, before, form); return;
    default: putNull(form); return;
    }
}

/// Opens the value that the items from the place `before` on are in.
void Reader::openItems(Shape shape, std::size_t before, Form form) {
    auto const first = static_cast<unsigned>(before);
    auto const end = static_cast<unsigned>(items_.size());
    bool const object = shape == Shape::joinedObject;
    unsigned named = end;
    if (object) {
        auto const less = [](Item const & a, Item const & b) { return isNameLess(a.name, b.name); };
        auto const begin = items_.begin() + static_cast<std::ptrdiff_t>(before);
        if (!std::is_sorted(begin, items_.end(), less)) {
            std::stable_sort(begin, items_.end(), less);
        }
        if (form.sample) {
            auto const at =
                std::lower_bound(begin, items_.end(), classMember,
                                 [](Item const & a, std::string_view b) { return isNameLess(a.name, b); });
            named = at != items_.end() && at->name == classMember ? static_cast<unsigned>(at - items_.begin())
                                                                  : end;
        }
    }
    bool const begun = named == end;
    if (begun) {
        out_.put(object ? std::string_view("{") : std::string_view("["));
    }
    frames_.push_back(Frame{Spot{nullptr, ReadClass::none, kinds::object_}, first, end, first, shape,
                            form.sample, true, begun});
    if (!begun) {
        // Its value stands ahead of the bracket.  There is no other class within, so this goes no deeper.
        out_.put("@");
        putItems(named, endOfName(named, end), Form{false, true});
    }
}

/// Appends what is in a list or an object.
void Reader::gather(unsigned node, Spot const & spot, std::vector<Item> & items) {
    unsigned const end = endOf(node);
    if (spot.kind == kinds::list_ || spot.kind == kinds::ref_list_) {
        Spot const element = elementOf(spot);
        for (unsigned i = node + 1; i < end; i = document_.next(i)) {
            items.push_back(Item{std::string_view(), i, element});
        }
        return;
    }
    if (spot.kind == kinds::map_) {
        Spot const element = elementOf(spot);
        for (unsigned i = node + 1; i < end; i = document_.next(i)) {
            unsigned key = Document::none;
            unsigned value = Document::none;
            if (isComplex(i)) {
                unsigned cursor = i;
                key = document_.member(i, 1, cursor);
                value = document_.member(i, 2, cursor);
            }
            items.push_back(Item{keyText(key, spot), value, element});
        }
        return;
    }
    if (ReadClass * const cls = objectClass(node, spot)) {
        for (unsigned i = node + 1; i < end; i = document_.next(i)) {
            unsigned const entry = entryOf(i, *cls, false);
            if (entry != ReadClass::none) {
                items.push_back(Item{cls->entry(entry).name, i, memberSpot(*cls, entry)});
            }
        }
    }
}

/// The name that a map's key gives: its text, if it becomes a string, else the empty one.
std::string_view Reader::keyText(unsigned node, Spot const & spot) {
    tav_istr const data = dataOf(node);
    MetaField const & field = fieldOf(spot);
    Kind const kind = field.classType.keyType;
    bool const isText = kind == kinds::string_ || kind == kinds::wstring_ || kind == kinds::u8string_;
    if ((isText || kind == kinds::bytes_) && dump_ && field.isProtected) {
        return keep(bytesOf(masked(data, field, kind)));
    }
    if (isText || kind == kinds::char_ || kind == kinds::wchar_) {
        return bytesOf(data);
    }
    switch (kind) {
    case kinds::bytes_:
        base64_.clear();
        tavBase64::encode(data, base64_, false);
        return keep(base64_);
    case kinds::int64_:
    case kinds::time_: {
        long long value = 0;
        decodeValue(data, value);
        return keep(NumberText(value).view());
    }
    case kinds::uint64_: {
        unsigned long long value = 0;
        decodeValue(data, value);
        return keep(NumberText(value).view());
    }
    default: return std::string_view();
    }
}

/// Notes what is to be told of a value that another one takes the place of, and of what is in it.
void Reader::tellWithin(Item const & item) {
    std::vector<Item> left(1, item);
    while (!left.empty()) {
        Item const one = left.back();
        left.pop_back();
        switch (outcomeOf(one.node, one.spot)) {
        case Outcome::list:
        case Outcome::object: gather(one.node, one.spot, left); break;
        case Outcome::kept:
            events_.push_back(ReadEvent{one.node, ReadEvent::unknownKind, one.spot.kind, nullptr, nullptr});
            break;
        case Outcome::null:
        case Outcome::simple: break;
        }
    }
}

} // namespace detail
} // namespace tav
