#include "tav/vinta/vinta_json2nbr.h"

#include "formats/json/json_tape.h"
#include "formats/json/json_text.h"
#include "formats/nbr/nbr_document.h"
#include "foundation/number_text.h"
#include "foundation/report.h"
#include "foundation/views.h"
#include "model/json2nbr_reader.h"
#include "model/json2nbr_stage.h"
#include "model/meta_lookup.h"
#include "tav/vinta/vinta_json_tree.h"
#include "tav/vinta/vinta_nbr_write.h"
#include "tav/vinta/vinta_object.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace tav {
namespace json2nbr {

namespace {

using detail::bytesOf;
using detail::here;
using detail::JsonTape;
using detail::ReadAs;
using detail::Reader;
using detail::ReadEvent;
using detail::Site;
using detail::TagSet;
using detail::viewOf;
using nbr::detail::Document;
using pml::MetaClass;
using pml::MetaFactory;
using pml::MetaField;
typedef pml::field_type::values Kind;

namespace kinds = pml::field_type;

constexpr unsigned short noCode = 0xFFFF;
constexpr char logTag[] = "JSON2NBR";

/// The members that name the class and the code of a message.
constexpr std::string_view classMember = "__class__";
constexpr std::string_view codeMember = "__code__";

/// A value of a message: the class whose object it stands in, the field that describes it, and its kind,
/// which is the field's own or, within a list or a map, that of an element.
struct Place {
    MetaClass const * cls;
    MetaField const * field;
    Kind kind;
};

std::string kindName(Kind kind) {
    tavEnum<Kind> const value(kind);
    tav_istr const name = value.name();
    return name.data() != nullptr ? std::string(detail::bytesOf(name)) : std::to_string(value.value());
}

template <class T>
std::string printed(T const & v) {
    std::ostringstream out;
    out << v;
    return detail::printedText(out);
}

/// `{ a b }`
template <class Items>
std::string printedItems(Items const & items) {
    std::ostringstream out;
    out << '{';
    for (auto const & item : items) {
        out << ' ' << item;
    }
    out << " }";
    return detail::printedText(out);
}

template <class... Parts>
std::string joined(Parts const &... parts) {
    std::string text;
    (text.append(std::string_view(parts)), ...);
    return text;
}

/// Whether a member is the transcoder's own, so that nobody is told when no field takes it.
bool isReserved(std::string_view name) noexcept {
    return name.substr(0, 2) == "__";
}

/// "field F in class C "
std::string fieldInClass(Place const & place) {
    return joined("field ", bytesOf(place.field->idName.name), " in class ", bytesOf(place.cls->className),
                  " ");
}

void logUnknownName(Site site, std::string_view name, MetaClass const & cls) {
    detail::log(logTag, tavLogger::INFO, site, [&](std::ostream & out) {
        out << "not found field name [" << name << "] in class " << cls.className;
    });
}

void logUnknownTag(Site site, char tag, MetaClass const & cls) {
    detail::log(logTag, tavLogger::INFO, site, [&](std::ostream & out) {
        out << "not found field id [" << static_cast<int>(tag) << "] in class " << cls.className;
    });
}

void logUnknownClass(Site site, tavString const & name) {
    detail::log(logTag, tavLogger::ERROR, site,
                [&](std::ostream & out) { out << "not found class " << name; });
}

/// Past every place of a field.
constexpr std::size_t nowhere = ~std::size_t(0);

/// The place of a field among those of the class itself; `nowhere` for the field of another class.
std::size_t indexIn(MetaClass const & cls, MetaField const & field) {
    MetaField const * const first = cls.fields.data();
    bool const own = std::less_equal<>()(first, &field) && std::less<>()(&field, first + cls.fields.size());
    return own ? static_cast<std::size_t>(&field - first) : nowhere;
}

bool isNecessary(MetaField const & field) {
    if (field.classType.optional) {
        return false;
    }
    switch (static_cast<Kind>(field.classType.type)) {
    case kinds::optional_:
    case kinds::list_:
    case kinds::ref_list_:
    case kinds::map_: return false;
    default: return true;
    }
}

/// Calls `visit` for each necessary field of the class, those of its bases first.
template <class Visit>
void eachNecessaryField(MetaClass const & cls, MetaFactory const & factory, Visit && visit) {
    auto const visitAll = [&](MetaClass const & one) {
        for (MetaField const & field : one.fields) {
            if (isNecessary(field)) {
                visit(field);
            }
        }
    };
    detail::ClassChain chain(cls, factory);
    std::vector<MetaClass const *> const & bases = chain.bases();
    for (auto base = bases.rbegin(); base != bases.rend(); ++base) {
        visitAll(**base);
    }
    visitAll(cls);
}

/// Fails if a necessary field of the class is not among the tags of a document.
void checkNecessaryFields(TagSet const & tags, MetaClass const & cls, MetaFactory const & factory) {
    std::vector<short> missing;
    eachNecessaryField(cls, factory, [&](MetaField const & field) {
        if (!tags.has(field.idName.id)) {
            missing.push_back(field.idName.id);
        }
    });
    if (!missing.empty()) {
        detail::raise(here("tav::json2nbr::checkNecessaryFields"),
                      joined("missing necessary field id(s) ", printedItems(missing), " in class ",
                             bytesOf(cls.className)));
    }
}

/// Writes the values of a JSON text as NBR.  What is open is kept on a stack of its own, so that depth costs
/// no calls.
class Writer {
public:
    Writer(JsonTape const & tape, MetaFactory const & factory);

    /// The root's member of this name, null if there is none.
    JsonTape::Node const * rootMember(std::string_view name) const;

    /// Appends the members of the root, an object of the class; the markers are the caller's.
    void writeMembers(MetaClass const & cls, tavBytes & out);

    /// Fails if a necessary field of the class is no member of the root, whose members have been written.
    void checkNecessaryFields(MetaClass const & cls) const;

private:
    static constexpr unsigned root = 0;

    enum class Shape : unsigned char { array, map, object };

    /// A complex value that has been opened and not yet closed.
    struct Frame {
        Shape shape;
        /// A map's entry has been opened and not yet closed.
        bool inEntry;
        /// Of an array or a map: what holds for its elements.  Of an object: its class, null if there is
        /// none.
        Place place;
        /// Of an object: the name of its class.
        tavString const * className;
        /// What comes next and what stands behind the last: nodes of an array, else places in `order_`.
        unsigned next;
        unsigned end;
        /// The size of `order_` before this was opened.
        unsigned before;
    };

    JsonTape::Node const & member(unsigned place) const { return tape_.node(order_[place]); }
    unsigned sortMembers(unsigned object);

    void writeTo(unsigned value, Place const & place);
    void put(unsigned value, Place const & place);
    void openArray(unsigned array, Place const & place);
    void openObject(unsigned object, Place const & place);
    void putElement(Frame & frame);
    void putEntry(Frame & frame);
    void putMember(Frame & frame);
    void close();

    void writeToSimple(JsonTape::Node const & value, Place const & place);
    void writeBoolean(bool value, Place const & place);
    void writeNumber(std::string_view text, Place const & place);
    void writeString(std::string_view text, Place const & place);
    void checkEnum(std::string_view text, Place const & place) const;
    template <class T>
    void putInteger(std::string_view text, Place const & place);
    template <class T>
    void putFloating(std::string_view text);

    JsonTape const & tape_;
    MetaFactory const & factory_;
    tavBytes * out_ = nullptr;
    std::vector<Frame> frames_;
    /// The members of the root and of the objects that are open, each object's in the order of their names.
    std::vector<unsigned> order_;
    /// The number of the root's members.
    unsigned rootEnd_;
    /// Those of the first 64 fields of the root's own class that have been written.
    unsigned long long written_ = 0;
};

Writer::Writer(JsonTape const & tape, MetaFactory const & factory) : tape_(tape), factory_(factory) {
    sortMembers(root);
    rootEnd_ = static_cast<unsigned>(order_.size());
}

JsonTape::Node const * Writer::rootMember(std::string_view name) const {
    auto const end = order_.begin() + rootEnd_;
    auto const found =
        std::lower_bound(order_.begin(), end, name, [this](unsigned i, std::string_view wanted) {
            return detail::isNameLess(tape_.node(i).name, wanted);
        });
    return found != end && tape_.node(*found).name == name ? &tape_.node(*found) : nullptr;
}

void Writer::writeMembers(MetaClass const & cls, tavBytes & out) {
    out_ = &out;
    for (unsigned i = 0; i < rootEnd_; ++i) {
        std::string_view const name = member(i).name;
        if (name == classMember) {
            continue;
        }
        MetaField const * const field = detail::findField(viewOf(name), cls, factory_);
        if (field != nullptr) {
            std::size_t const index = indexIn(cls, *field);
            written_ |= index < 64 ? 1ull << index : 0;
            nbr::detail::writeByte(out, static_cast<unsigned char>(field->idName.id));
            writeTo(order_[i], Place{&cls, field, field->classType.type});
        } else if (!isReserved(name)) {
            logUnknownName(here("tav::json2nbr::write"), name, cls);
        }
    }
}

void Writer::checkNecessaryFields(MetaClass const & cls) const {
    std::vector<tavString> missing;
    eachNecessaryField(cls, factory_, [&](MetaField const & field) {
        std::size_t const index = indexIn(cls, field);
        if (index < 64 && (written_ >> index & 1) != 0) {
            return;
        }
        std::string_view const name = bytesOf(field.idName.name);
        if (name == classMember || rootMember(name) == nullptr) {
            missing.push_back(field.idName.name);
        }
    });
    if (!missing.empty()) {
        detail::raise(here("tav::json2nbr::checkNecessaryFields"),
                      joined("missing necessary field name(s) ", printedItems(missing), " in class ",
                             bytesOf(cls.className)));
    }
}

/// Appends the members of an object to `order_`, by name, of those of one name the last.  Gives the place of
/// the first.
unsigned Writer::sortMembers(unsigned object) {
    auto const before = static_cast<unsigned>(order_.size());
    if (tape_.node(object).type != JsonFieldObject) {
        return before;
    }
    bool sorted = true;
    unsigned const end = tape_.node(object).next;
    for (unsigned i = object + 1; i < end; i = tape_.node(i).next) {
        sorted = sorted && (order_.size() == before ||
                            detail::isNameLess(tape_.node(order_.back()).name, tape_.node(i).name));
        order_.push_back(i);
    }
    if (!sorted) {
        auto const first = order_.begin() + before;
        // Of two members of one name the later one comes first, so that it is the one to stay.
        std::sort(first, order_.end(), [this](unsigned a, unsigned b) {
            std::string_view const nameA = tape_.node(a).name;
            std::string_view const nameB = tape_.node(b).name;
            return detail::isNameLess(nameA, nameB) || (a > b && nameA == nameB);
        });
        auto const last = std::unique(first, order_.end(), [this](unsigned a, unsigned b) {
            return tape_.node(a).name == tape_.node(b).name;
        });
        order_.erase(last, order_.end());
    }
    return before;
}

void Writer::writeTo(unsigned value, Place const & place) {
    put(value, place);
    while (!frames_.empty()) {
        Frame & frame = frames_.back();
        switch (frame.shape) {
        case Shape::array: putElement(frame); break;
        case Shape::map: putEntry(frame); break;
        case Shape::object: putMember(frame); break;
        }
    }
}

/// Writes a simple value; opens any other one and leaves what is in it to the loop.
void Writer::put(unsigned value, Place const & place) {
    JsonTape::Node const & node = tape_.node(value);
    if (node.type == JsonFieldArray) {
        openArray(value, place);
    } else if (node.type == JsonFieldObject) {
        openObject(value, place);
    } else {
        writeToSimple(node, place);
    }
}

void Writer::openArray(unsigned array, Place const & place) {
    nbr::detail::writeMarker(*out_, '(');
    frames_.push_back(Frame{Shape::array, false,
                            Place{place.cls, place.field, place.field->classType.elementType}, nullptr,
                            array + 1, tape_.node(array).next, static_cast<unsigned>(order_.size())});
}

void Writer::openObject(unsigned object, Place const & place) {
    nbr::detail::writeMarker(*out_, '(');
    unsigned const first = sortMembers(object);
    auto const end = static_cast<unsigned>(order_.size());
    if (place.kind == kinds::map_) {
        frames_.push_back(Frame{Shape::map, false,
                                Place{place.cls, place.field, place.field->classType.elementType}, nullptr,
                                first, end, first});
    } else {
        tavString const & name = place.field->classType.name;
        MetaClass const * const cls = detail::findClass(name, *place.cls, factory_);
        frames_.push_back(
            Frame{Shape::object, false, Place{cls, nullptr, kinds::object_}, &name, first, end, first});
    }
}

void Writer::close() {
    nbr::detail::writeMarker(*out_, ')');
    order_.resize(frames_.back().before);
    frames_.pop_back();
}

// Each of these writes one more value of an open one, or closes that.  `frame` is invalid behind a put, which
// may open another one.

void Writer::putElement(Frame & frame) {
    if (frame.next == frame.end) {
        close();
        return;
    }
    unsigned const element = frame.next;
    frame.next = tape_.node(element).next;
    Place const place = frame.place;
    nbr::detail::writeByte(*out_, 0);
    put(element, place);
}

void Writer::putEntry(Frame & frame) {
    if (frame.inEntry) {
        nbr::detail::writeMarker(*out_, ')');
        frame.inEntry = false;
    }
    if (frame.next == frame.end) {
        close();
        return;
    }
    unsigned const entry = order_[frame.next++];
    frame.inEntry = true;
    Place const place = frame.place;
    nbr::detail::writeByte(*out_, 0);
    nbr::detail::writeMarker(*out_, '(');
    nbr::detail::writeByte(*out_, 1);
    writeString(tape_.node(entry).name, Place{place.cls, place.field, place.field->classType.keyType});
    nbr::detail::writeByte(*out_, 2);
    put(entry, place);
}

void Writer::putMember(Frame & frame) {
    if (frame.next == frame.end) {
        close();
        return;
    }
    unsigned const value = order_[frame.next++];
    MetaClass const * const cls = frame.place.cls;
    if (cls == nullptr) {
        logUnknownClass(here("tav::json2nbr::writeTo"), *frame.className);
        return;
    }
    std::string_view const name = tape_.node(value).name;
    MetaField const * const field = detail::findField(viewOf(name), *cls, factory_);
    if (field != nullptr) {
        nbr::detail::writeByte(*out_, static_cast<unsigned char>(field->idName.id));
        put(value, Place{cls, field, field->classType.type});
    } else if (!isReserved(name)) {
        logUnknownName(here("tav::json2nbr::writeTo"), name, *cls);
    }
}

[[noreturn]] void raiseKind(Place const & place, char const * json) {
    detail::raise(here("tav::json2nbr::writeToSimple"),
                  joined(fieldInClass(place), "should not be json ", json, " type, expected type ",
                         kindName(place.kind)));
}

void Writer::writeToSimple(JsonTape::Node const & value, Place const & place) {
    switch (value.type) {
    case JsonFieldBoolean: writeBoolean(value.truth, place); break;
    case JsonFieldNumber: writeNumber(value.text, place); break;
    case JsonFieldString: writeString(value.text, place); break;
    default: nbr::detail::writeByte(*out_, 0);
    }
}

void Writer::writeBoolean(bool value, Place const & place) {
    if (place.kind > kinds::double_) {
        raiseKind(place, "boolean");
    }
    nbr::detail::writeValue(*out_, value);
}

void Writer::writeNumber(std::string_view text, Place const & place) {
    switch (place.kind) {
    case kinds::bool_: putInteger<bool>(text, place); return;
    case kinds::int8_: putInteger<char>(text, place); return;
    case kinds::int16_: putInteger<short>(text, place); return;
    case kinds::int32_: putInteger<int>(text, place); return;
    case kinds::int64_: putInteger<long long>(text, place); return;
    case kinds::uint8_: putInteger<unsigned char>(text, place); return;
    case kinds::uint16_: putInteger<unsigned short>(text, place); return;
    case kinds::uint32_: putInteger<unsigned int>(text, place); return;
    case kinds::uint64_: putInteger<unsigned long long>(text, place); return;
    case kinds::float_: putFloating<float>(text); return;
    case kinds::double_: putFloating<double>(text); return;
    case kinds::time_: {
        long long value = 0;
        detail::readInteger(text, value);
        nbr::detail::writeValue(*out_, value);
        return;
    }
    case kinds::enum_: {
        checkEnum(text, place);
        long long value = 0;
        detail::readInteger(text, value);
        nbr::detail::writeValue(*out_, static_cast<int>(value));
        return;
    }
    default: raiseKind(place, "number");
    }
}

void Writer::writeString(std::string_view text, Place const & place) {
    switch (place.kind) {
    case kinds::int64_:
    case kinds::uint64_:
        if (!std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
            detail::raise(here("tav::json2nbr::writeToSimple"),
                          joined(fieldInClass(place), "not all digits for large integer ", text));
        }
        if (place.kind == kinds::int64_) {
            putInteger<long long>(text, place);
        } else {
            putInteger<unsigned long long>(text, place);
        }
        return;
    case kinds::string_:
    case kinds::wstring_:
    case kinds::u8string_:
        nbr::detail::writeSized<false>(*out_, 0, text.data(), static_cast<unsigned>(text.size()), true);
        return;
    case kinds::bytes_: {
        tavBytes data;
        tavBase64::decode(viewOf(text), data);
        nbr::detail::writeValue(*out_, data);
        return;
    }
    default: raiseKind(place, "string");
    }
}

void Writer::checkEnum(std::string_view text, Place const & place) const {
    int value = -1;
    detail::readInteger(text, value);
    std::set<int> const & valid = place.field->validValues;
    if (valid.find(value) == valid.end()) {
        detail::raise(here("tav::json2nbr::writeToSimple"),
                      joined(fieldInClass(place), "has invalid enum value ", std::to_string(value),
                             ", valid values ", printedItems(valid)));
    }
}

/// As a bool every number is false: only true and false themselves are read into one.
template <class T>
void Writer::putInteger(std::string_view text, Place const & place) {
    std::conditional_t<std::is_signed<T>::value, long long, unsigned long long> wide = 0;
    if (!std::is_same<T, bool>::value) {
        detail::readInteger(text, wide);
    }
    T const value = static_cast<T>(wide);
    if (!place.field->range.check(static_cast<long long>(value))) {
        decltype(wide) const shown = value;
        detail::raise(here("tav::json2nbr::writeToSimple"),
                      joined(fieldInClass(place), "has invalid number value ", std::to_string(shown),
                             ", valid values ", printed(place.field->range)));
    }
    nbr::detail::writeValue(*out_, value);
}

template <class T>
void Writer::putFloating(std::string_view text) {
    T value = 0;
    detail::readFloating(text, value);
    nbr::detail::writeValue(*out_, value);
}

/// Logs what a reader found of a node.
void logEvent(ReadEvent const & event, Document const & document) {
    switch (event.what) {
    case ReadEvent::unknownRootTag:
        logUnknownTag(here("tav::json2nbr::read"), document.node(event.node).tag, *event.cls);
        break;
    case ReadEvent::unknownTag:
        logUnknownTag(here("tav::json2nbr::readFrom"), document.node(event.node).tag, *event.cls);
        break;
    case ReadEvent::unknownClass: logUnknownClass(here("tav::json2nbr::readFrom"), *event.className); break;
    case ReadEvent::unknownKind:
        detail::log(logTag, tavLogger::ERROR, here("tav::json2nbr::readFrom"), [&](std::ostream & text) {
            text << "<ERROR> not yet supported field type: " << kindName(event.kind);
        });
        break;
    }
}

void logEmpty(Site site, char const * text) {
    detail::log(logTag, tavLogger::VERBOSE, site, [&](std::ostream & out) { out << text; });
}

} // namespace

void write(tav_istr json, tavBytes & out, unsigned short & code, MetaFactory const & factory,
           tav_istr className) {
    WriteStage stage;
    write(json, out, code, factory, className, stage);
}

void write(tav_istr json, tavBytes & out, unsigned short & code, MetaFactory const & factory,
           tav_istr className, WriteStage & stage) {
    stage = WriteStage::text;
    if (json.empty()) {
        logEmpty(here("tav::json2nbr::write"), "json string is empty");
        return;
    }
    JsonTape const tape(json);
    Writer writer(tape, factory);

    stage = WriteStage::message_class;
    tav_istr name = className;
    JsonTape::Node const * const givenName = writer.rootMember(classMember);
    if (givenName != nullptr && givenName->type == JsonFieldString) {
        name = viewOf(givenName->text);
    }
    JsonTape::Node const * const givenCode = writer.rootMember(codeMember);
    if (givenCode != nullptr && (givenCode->type == JsonFieldNumber || givenCode->type == JsonFieldString)) {
        unsigned long long number = 0;
        detail::readInteger(givenCode->text, number);
        code = static_cast<unsigned short>(number);
    }
    MetaClass const * const cls = code != noCode ? factory.findClass(code) : factory.findClass(name);
    if (cls == nullptr) {
        detail::raise(here("tav::json2nbr::write"),
                      "meta class not found, maybe neither __class__ nor __code__ given");
    }
    if (code == noCode) {
        code = detail::readHexCode(bytesOf(cls->code));
    }

    tavBytes work(std::min(json.size(), 0x10000u));
    nbr::detail::writeMarker(work, '(');
    stage = WriteStage::members;
    writer.writeMembers(*cls, work);
    stage = WriteStage::necessary;
    writer.checkNecessaryFields(*cls);
    nbr::detail::writeMarker(work, ')');
    out.swap(work);
}

namespace {

/// The text of a document of the class, after what there is to tell of it.
std::string readText(tav_istr nbr, Document const & document, MetaClass const & cls,
                     MetaFactory const & factory, ReadAs as) {
    TagSet tags;
    Reader reader(factory, document, as, nbr.size());
    std::string text = reader.read(cls, tags);
    for (ReadEvent const & event : reader.events()) {
        logEvent(event, document);
    }
    if (as == ReadAs::json && document.first() != Document::none) {
        checkNecessaryFields(tags, cls, factory);
    }
    return text;
}

/// False, and `json` stays, if there are no bytes.
bool readInto(std::string & json, tav_istr nbr, tavString const & className, MetaFactory const & factory,
              bool dump) {
    if (nbr.empty()) {
        logEmpty(here("tav::json2nbr::read"), "nbr bytes is empty");
        return false;
    }
    Document document;
    // Values of a message that is large take twelve bytes or more, with the markers around them.
    document.view(nbr, nbr.size() / 12 + 1);
    MetaClass const * const cls = factory.findClass(className);
    json = cls == nullptr ? "null"
                          : readText(nbr, document, *cls, factory, dump ? ReadAs::logText : ReadAs::json);
    return true;
}

} // namespace

void read(tavString & json, tav_istr nbr, tavString className, MetaFactory const & factory, bool dump) {
    std::string text;
    if (readInto(text, nbr, className, factory, dump)) {
        json = std::move(text);
    }
}

void read(tavString & json, tav_istr nbr, unsigned short code, MetaFactory const & factory, bool dump) {
    read(json, nbr, factory.findClassName(code), factory, dump);
}

void read(std::string & json, tav_istr nbr, unsigned short code, MetaFactory const & factory, bool dump) {
    readInto(json, nbr, factory.findClassName(code), factory, dump);
}

bool check(tav_istr nbr, unsigned short code, MetaFactory const & factory) {
    Document document;
    document.view(nbr, 0);
    MetaClass const * const cls = factory.findClass(factory.findClassName(code));
    if (cls == nullptr) {
        return false;
    }
    readText(nbr, document, *cls, factory, ReadAs::events);
    return true;
}

} // namespace json2nbr
} // namespace tav
