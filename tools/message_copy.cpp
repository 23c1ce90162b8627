#include "tools/message_copy.h"

#include "tools/integers.h"
#include "tools/value_text.h"

#include <tav/vinta/vinta_nbr_unit.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <stdexcept>
#include <utility>

namespace tav {
namespace tool {

using pml::MetaClass;
using pml::MetaFactory;
using pml::MetaField;

namespace kinds = pml::field_type;

namespace {

typedef tavSharedPtr<tavCodecStream> Stream;

template <class T>
void copySimple(tavCodecStream & in, tavCodecStream & out, Kind kind) {
    tavCodecMeta const meta(kind, false, nullptr, false);
    T value = T();
    in.io(value, meta);
    out.io(value, meta);
}

/// A number as a text that gives it back, if the six digits of a text stream do not.
template <class T>
void copyDigits(tavCodecStream & in, tavCodecStream & out, Kind kind) {
    tavCodecMeta const meta(kind, false, nullptr, false);
    T value = T();
    in.io(value, meta);
    std::string const digits = digitsOf(value);
    constexpr std::size_t few = 6;
    if (static_cast<std::size_t>(std::count_if(digits.begin(), digits.end(), ::isdigit)) <= few) {
        out.io(value, meta);
    } else {
        tavString text(digits.data(), static_cast<unsigned>(digits.size()));
        out.io(text, tavCodecMeta(kinds::string_));
    }
}

bool copyOfKind(tavCodecStream & in, tavCodecStream & out, Kind kind, bool toText) {
    switch (kind) {
    case kinds::bool_: copySimple<bool>(in, out, kind); return true;
    case kinds::int8_: copySimple<char>(in, out, kind); return true;
    case kinds::int16_: copySimple<short>(in, out, kind); return true;
    case kinds::int32_:
    case kinds::enum_: copySimple<int>(in, out, kind); return true;
    case kinds::int64_: copySimple<long long>(in, out, kind); return true;
    case kinds::uint8_: copySimple<unsigned char>(in, out, kind); return true;
    case kinds::uint16_: copySimple<unsigned short>(in, out, kind); return true;
    case kinds::uint32_: copySimple<unsigned int>(in, out, kind); return true;
    case kinds::uint64_: copySimple<unsigned long long>(in, out, kind); return true;
    case kinds::float_:
        toText ? copyDigits<float>(in, out, kind) : copySimple<float>(in, out, kind);
        return true;
    case kinds::double_:
        toText ? copyDigits<double>(in, out, kind) : copySimple<double>(in, out, kind);
        return true;
    case kinds::string_:
    case kinds::wstring_:
    case kinds::u8string_: copySimple<tavString>(in, out, kind); return true;
    case kinds::bytes_: copySimple<tavBytes>(in, out, kind); return true;
    case kinds::time_: copySimple<tavTime>(in, out, kind); return true;
    default: return false;
    }
}

/// Why a text is no value of the field's kind; empty if it is one.
std::string faultOf(std::string const & text, MetaField const & field, Kind kind) {
    std::string const told = "has the value \"" + text + "\", which ";
    if (kind == kinds::bool_) {
        bool const known = text == "true" || text == "false" || text == "1" || text == "0";
        return known ? "" : told + "no bool is";
    }
    if (kind <= kinds::uint64_ || kind == kinds::enum_) {
        Integer number;
        if (!readInteger(text, number) || !holds(kind, number)) {
            return told + "no " + kindName(kind) + " is";
        }
        auto const value = static_cast<long long>(number.bits());
        if (kind == kinds::enum_) {
            return field.validValues.count(static_cast<int>(value)) != 0 ? ""
                                                                         : told + "is none of its members";
        }
        return field.isProtected || field.range.check(value) ? "" : told + "its range does not have";
    }
    if (kind == kinds::float_ || kind == kinds::double_) {
        return isFloatingText(text, kind) ? "" : told + "no " + kindName(kind) + " is";
    }
    if (kind == kinds::bytes_) {
        return isBase64(text) ? "" : "has a text that is no base64";
    }
    bool const time = !text.empty() && text.front() >= '0' && text.front() <= '9' &&
                      text.find_first_not_of("0123456789-~+:. TZ") == std::string::npos;
    return kind != kinds::time_ || time ? "" : told + "no time is";
}

/// An object, list or map that is being copied.
struct Open {
    enum class Shape { object, list, map };

    Shape shape = Shape::object;
    /// Keep the streams below, but for the roots.
    Stream inKept;
    Stream outKept;
    tavCodecStream * in = nullptr;
    tavCodecStream * out = nullptr;
    /// Of an object its class, else the class around.
    MetaClass const * cls = nullptr;
    MetaField const * field = nullptr;
    std::vector<MetaField const *> fields;
    std::vector<std::pair<tavString, Stream>> children;
    std::size_t next = 0;
    /// Of a map that lists its entries: the entry that is open.
    Stream entry;
};

class Copier {
public:
    Copier(MetaFactory const & factory, KeyRule const & key, Texts texts)
        : factory_(factory), key_(key), texts_(texts) {}

    Copied copy(tavCodecStream & in, tavCodecStream & out, MetaClass const & cls) {
        openObject(Stream(), &in, Stream(), &out, cls);
        while (!open_.empty()) {
            step();
        }
        return std::move(copied_);
    }

private:
    void step();
    void stepObject(Open & at);
    void stepElement(Open & at);
    void openObject(Stream inKept, tavCodecStream * in, Stream outKept, tavCodecStream * out,
                    MetaClass const & cls);
    void openContainer(Open::Shape shape, Stream const & in, Stream const & out, MetaField const & field,
                       MetaClass const & around);
    void put(Stream const & in, Stream const & out, MetaField const & field, Kind kind,
             MetaClass const & around);
    static std::vector<std::pair<tavString, Stream>> entriesOf(tavCodecStream & in, Kind keyKind);
    Stream outOfEntry(Open & at, tavString const & key);
    void close();
    void tellOthers(Open const & open);
    void demandText(tavCodecStream & in, MetaField const & field, Kind kind) const;
    [[noreturn]] static void fail(MetaField const & field, std::string const & what) {
        throw std::invalid_argument("field " + stringOf(field.idName.name) + " " + what);
    }

    MetaFactory const & factory_;
    KeyRule const & key_;
    std::vector<Open> open_;
    Texts texts_;
    Copied copied_;
};

void Copier::openObject(Stream inKept, tavCodecStream * in, Stream outKept, tavCodecStream * out,
                        MetaClass const & cls) {
    Open open;
    open.inKept = std::move(inKept);
    open.outKept = std::move(outKept);
    open.in = in;
    open.out = out;
    open.cls = &cls;
    std::vector<MetaClass const *> const chain = chainOf(cls, factory_);
    for (auto one = chain.rbegin(); one != chain.rend(); ++one) {
        for (MetaField const & field : (*one)->fields) {
            open.fields.push_back(&field);
        }
    }
    out->enter(cls.className, cls.superName);
    out->makeObjectValue();
    if (texts_ == Texts::in) {
        tellOthers(open);
    }
    open_.push_back(std::move(open));
}

/// Members that are no fields, and those that are there twice.
void Copier::tellOthers(Open const & open) {
    std::map<tavString, Stream> members;
    open.in->getInputChildMap(members);
    std::vector<Stream> all;
    open.in->getInputChildren(all);
    if (all.size() > members.size()) {
        throw std::invalid_argument("a member is there twice in an object of the class " +
                                    stringOf(open.cls->className));
    }
    for (auto const & member : members) {
        bool const known = std::any_of(open.fields.begin(), open.fields.end(), [&](MetaField const * field) {
            return field->idName.name == member.first;
        });
        if (!known) {
            copied_.dropped.push_back("not found field name [" + stringOf(member.first) + "] in class " +
                                      stringOf(open.cls->className) + ": it is dropped");
        }
    }
}

/// A value that comes from a text.
void Copier::demandText(tavCodecStream & in, MetaField const & field, Kind kind) const {
    if (!kinds::isSimple(kind) && kind != kinds::enum_) {
        return;
    }
    tavString text;
    in.io(text, tavCodecMeta(kinds::string_));
    bool const isText = kind == kinds::string_ || kind == kinds::wstring_ || kind == kinds::u8string_;
    std::string const fault = isText ? std::string() : faultOf(stringOf(text), field, kind);
    if (!fault.empty()) {
        fail(field, fault);
    }
}

/// The entries of a map, with their keys as text.
std::vector<std::pair<tavString, Stream>> Copier::entriesOf(tavCodecStream & in, Kind keyKind) {
    std::vector<std::pair<tavString, Stream>> entries;
    if (in.isMapEntryCombined()) {
        std::map<tavString, Stream> children;
        in.getInputChildMap(children);
        entries.assign(children.begin(), children.end());
        return entries;
    }
    std::vector<Stream> children;
    in.getInputChildren(children);
    for (Stream const & child : children) {
        if (!child || child->isNull()) {
            continue;
        }
        tavString text;
        if (Stream const key = child->child(1, "key")) {
            if (keyKind == kinds::int64_) {
                long long number = 0;
                key->io(number, tavCodecMeta());
                text = std::to_string(number);
            } else if (keyKind == kinds::uint64_) {
                unsigned long long number = 0;
                key->io(number, tavCodecMeta());
                text = std::to_string(number);
            } else {
                key->io(text, tavCodecMeta());
            }
        }
        // The stream of the value is good as long as that of the root.
        entries.emplace_back(text, child->child(2, "value"));
    }
    return entries;
}

void Copier::openContainer(Open::Shape shape, Stream const & in, Stream const & out, MetaField const & field,
                           MetaClass const & around) {
    Open open;
    open.shape = shape;
    open.inKept = in;
    open.outKept = out;
    open.in = in.get();
    open.out = out.get();
    open.cls = &around;
    open.field = &field;
    out->enter(tav_istr(), tav_istr());
    if (shape == Open::Shape::list) {
        out->makeArrayValue();
        std::vector<Stream> children;
        in->getInputChildren(children);
        for (Stream const & child : children) {
            open.children.emplace_back(tavString(), child);
        }
    } else {
        open.children = entriesOf(*in, field.classType.keyType);
        if (out->isMapEntryCombined()) {
            out->makeObjectValue();
        } else {
            out->makeArrayValue();
        }
    }
    open_.push_back(std::move(open));
}

/// Copies a simple value; opens any other one.
void Copier::put(Stream const & in, Stream const & out, MetaField const & field, Kind kind,
                 MetaClass const & around) {
    if (texts_ == Texts::in) {
        demandText(*in, field, kind);
    }
    if (copyOfKind(*in, *out, kind, texts_ == Texts::out)) {
        return;
    }
    if (kind == kinds::list_) {
        openContainer(Open::Shape::list, in, out, field, around);
    } else if (kind == kinds::map_) {
        openContainer(Open::Shape::map, in, out, field, around);
    } else if (kind == kinds::object_ || kind == kinds::ref_) {
        MetaClass const * const cls = findClass(field.classType.name, &around, factory_);
        if (cls == nullptr) {
            fail(field, "is of the class " + stringOf(field.classType.name) + ", which is not there");
        }
        openObject(in, in.get(), out, out.get(), *cls);
    } else {
        fail(field, "is a " + kindName(kind) + ", which can't be converted");
    }
}

void Copier::step() {
    Open & at = open_.back();
    if (at.shape == Open::Shape::object) {
        stepObject(at);
    } else {
        stepElement(at);
    }
}

void Copier::stepObject(Open & at) {
    if (at.next == at.fields.size()) {
        close();
        return;
    }
    MetaField const & field = *at.fields[at.next++];
    MetaClass const & cls = *at.cls;
    Stream const in = at.in->child(field.idName.id, field.idName.name);
    if (!in || in->isNull()) {
        if (open_.size() == 1 && isNecessary(field)) {
            copied_.missing.push_back(stringOf(field.idName.name));
        }
        return;
    }
    Stream const out = at.out->child(field.idName.id, field.idName.name);
    if (out) {
        put(in, out, field, field.classType.type, cls);
    }
}

/// The stream that the value of an entry is written to.
Stream Copier::outOfEntry(Open & at, tavString const & key) {
    if (at.out->isMapEntryCombined()) {
        if (!key_(viewOf(tav_istr(key)))) {
            fail(*at.field, "has the key \"" + stringOf(key) + "\", which can't be a name there");
        }
        return at.out->child(0, key);
    }
    at.entry = at.out->getOutputChild();
    at.entry->enter(tav_istr(), tav_istr());
    Stream const to = at.entry->child(1, "key");
    Kind const kind = at.field->classType.keyType;
    if (kind == kinds::int64_) {
        long long number = pml::Unit(tav_istr(), key).asInt64Value();
        to->io(number, tavCodecMeta());
    } else if (kind == kinds::uint64_) {
        auto number = static_cast<unsigned long long>(std::strtoull(key.data(), nullptr, 10));
        to->io(number, tavCodecMeta());
    } else {
        tavString text = key;
        to->io(text, tavCodecMeta());
    }
    return at.entry->child(2, "value");
}

void Copier::stepElement(Open & at) {
    if (at.entry) {
        at.entry->leave();
        at.entry = Stream();
    }
    if (at.next == at.children.size()) {
        close();
        return;
    }
    std::pair<tavString, Stream> const child = at.children[at.next++];
    MetaField const & field = *at.field;
    MetaClass const & cls = *at.cls;
    Stream const out = at.shape == Open::Shape::list ? at.out->getOutputChild() : outOfEntry(at, child.first);
    if (!out) {
        return;
    }
    if (!child.second || child.second->isNull()) {
        out->writeNull();
    } else {
        put(child.second, out, field, field.classType.elementType, cls);
    }
}

void Copier::close() {
    open_.back().out->leave();
    open_.pop_back();
}

} // namespace

Copied copyMessage(tavCodecStream & in, tavCodecStream & out, MetaClass const & cls,
                   MetaFactory const & factory, KeyRule const & key, Texts texts) {
    return Copier(factory, key, texts).copy(in, out, cls);
}

std::string inClassOrder(std::string_view nbr, MetaClass const & cls, MetaFactory const & factory) {
    tavNbrInStream in(istrOf(nbr));
    tavNbrOutStream out(false);
    copyMessage(in, out, cls, factory, [](std::string_view) { return true; });
    return std::string(viewOf(tav_istr(out.str())));
}

} // namespace tool
} // namespace tav
