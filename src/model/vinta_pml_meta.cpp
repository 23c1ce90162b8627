#include "tav/vinta/vinta_pml_meta.h"

#include "foundation/number_text.h"
#include "foundation/views.h"
#include "model/meta_reader.h"
#include "tav/vinta/vinta_object.h"

#include <string>
#include <string_view>
#include <utility>

namespace tav {
namespace pml {

using tav::detail::bytesOf;
using tav::detail::viewOf;

namespace {

/// Gathers the text that a value writes of itself.
class TextStream : public tavNullStream {
public:
    using tavNullStream::io;

    void io(tavString & v, tavCodecMeta const &) override { text.append(v.data(), v.size()); }

    std::string text;
};

/// What `v` writes, as one text.
template <class T>
std::string textOf(T & v) {
    TextStream stream;
    v.io(stream);
    return std::move(stream.text);
}

void writeText(tavCodecStream & s, std::string text) {
    tavString value(std::move(text));
    s.io(value, tavCodecMeta());
}

/// The text that `s` holds; empty if there is none.
tavString readText(tavCodecStream & s) {
    tavString text;
    s.io(text, tavCodecMeta());
    return text;
}

/// Copies all but the classes that are declared within.
void copyOwnPart(MetaClass & to, MetaClass const & from) {
    to.unit = from.unit;
    to.name = from.name;
    to.typeText = from.typeText;
    to.className = from.className;
    to.superName = from.superName;
    to.code = from.code;
    to.kind = from.kind;
    to.isList = from.isList;
    to.isRef = from.isRef;
    to.imports = from.imports;
    to.enums = from.enums;
    to.fields = from.fields;
}

/// Copies all, where `to` is new.
void copyClass(MetaClass & to, MetaClass const & from) {
    struct Pending {
        MetaClass * to;
        MetaClass const * from;
    };
    copyOwnPart(to, from);
    std::vector<Pending> pending{Pending{&to, &from}};
    while (!pending.empty()) {
        Pending const pair = pending.back();
        pending.pop_back();
        pair.to->classes.resize(pair.from->classes.size());
        for (std::size_t i = 0; i < pair.from->classes.size(); ++i) {
            MetaClass & copy = pair.to->classes[i];
            MetaClass const & original = pair.from->classes[i];
            copyOwnPart(copy, original);
            if (!original.classes.empty()) {
                pending.push_back(Pending{&copy, &original});
            }
        }
    }
}

/// One class that is being written, with the list of its nested classes while that is open.
struct Writing {
    MetaClass * what;
    tavCodecStream * to;
    /// Keeps `to`, unless that is the caller's.
    tavSharedPtr<tavCodecStream> element;
    tavSharedPtr<tavCodecStream> list;
    std::size_t next = 0;
};

/// Writes what stands ahead of the nested classes, and opens their list.
void beginClass(Writing & at) {
    MetaClass & c = *at.what;
    tavCodecStream & s = *at.to;
    s.enter(c.className, c.superName);
    if (!c.code.empty()) {
        ioField(s, 1, "__code__", c.code);
    }
    if (!c.superName.empty()) {
        ioField(s, 2, "__super__", c.superName);
    }
    for (tavString const & path : c.imports) {
        tavString text = path;
        ioField(s, 3, "__import__", text);
    }
    if (c.classes.empty()) {
        return;
    }
    s.on_each_field_meta(4, "classes", tav::detail::noValues(), tavCodecMeta());
    tav::detail::FieldAccess::markFilled(s);
    at.list = s.child(4, "classes");
    if (at.list) {
        at.list->enter(tav_istr(), tav_istr());
        at.list->makeArrayValue();
    }
}

/// Closes the list of nested classes, and writes what stands behind it.
void endClass(Writing & at) {
    MetaClass & c = *at.what;
    tavCodecStream & s = *at.to;
    if (at.list) {
        at.list->leave();
        at.list = nullptr;
    }
    if (!c.enums.empty()) {
        ioField(s, 5, "enums", c.enums);
    }
    if (!c.fields.empty()) {
        ioField(s, 6, "fields", c.fields);
    }
    s.leave();
}

} // namespace

IdName::IdName() : id(0) {}

IdName::IdName(tav_istr text) : id(0) {
    std::string_view const bytes = bytesOf(text);
    std::size_t const close = bytes.find(']');
    if (bytes.empty() || bytes.front() != '[' || close == std::string_view::npos) {
        name = text;
        return;
    }
    tav::detail::readInteger(bytes.substr(1, close - 1), id);
    name = viewOf(bytes.substr(close + 1));
}

tavString IdName::toString(bool withId) const {
    if (!withId) {
        return name;
    }
    std::string text = "[";
    tav::detail::appendNumber(text, id);
    text += ']';
    text += bytesOf(name);
    return tavString(std::move(text));
}

void IdName::io(tavCodecStream & s) {
    if (s.isOutputStream()) {
        tavString text = toString(id != 0);
        s.io(text, tavCodecMeta());
    } else if (!s.isNull()) {
        *this = IdName(readText(s));
    }
}

ValueComment::ValueComment() = default;

ValueComment::ValueComment(tav_istr text) : value(text) {
    std::string_view const bytes = bytesOf(text);
    std::size_t const open = bytes.find("{*");
    if (open == std::string_view::npos || bytes == "{***}") {
        return;
    }
    value = viewOf(bytes.substr(0, open));
    std::string_view note = bytes.substr(open + 2);
    if (note.size() >= 2 && note.substr(note.size() - 2) == "*}") {
        note.remove_suffix(2);
    }
    comment = viewOf(note).trim();
}

void ValueComment::io(tavCodecStream & s) {
    if (!s.isOutputStream()) {
        if (!s.isNull()) {
            *this = ValueComment(readText(s));
        }
        return;
    }
    std::string text(bytesOf(value));
    if (!comment.empty() && value != "{***}") {
        text += "{*";
        text += bytesOf(comment);
        text += "*}";
    }
    writeText(s, std::move(text));
}

MetaField::MetaField() : isProtected(false) {}

MetaField::MetaField(Unit const & child, Unit const & cfg)
    : idName(tav_istr(child.name())), classType(tav_istr(child.type()), cfg), isProtected(false) {
    if (!child.simple() || child.value().empty()) {
        return;
    }
    valueComment = ValueComment(tav_istr(child.value()));
    std::string_view const text = bytesOf(valueComment.value);
    if (text == "true" || text == "false") {
        std::vector<tavString> dimensions = std::move(classType.dimensions);
        tavString const name = field_type::getTypeName(field_type::bool_, cfg, classType.optional, nullptr);
        classType = ClassType(name, tav_istr(), classType.optional, field_type::bool_, field_type::unknown_);
        classType.dimensions = std::move(dimensions);
    } else if (text == "null") {
        classType.optional = true;
        valueComment.value.clear();
    } else if (text == "{***}") {
        isProtected = true;
        spec = "***";
        valueComment.value.clear();
    } else if (text.substr(0, 2) == "{.") {
        isProtected = true;
        spec = viewOf(text.substr(1, text.find('}') - 1));
        valueComment.value.clear();
    } else {
        std::size_t const open = text.find('{');
        if (open != std::string_view::npos) {
            std::string_view const rest = text.substr(open + 1);
            range = Range(viewOf(rest.substr(0, rest.find('}'))));
            valueComment.value = tavString(std::string(text.substr(0, open)));
        }
    }
}

void MetaField::io(tavCodecStream & s) {
    if (!s.isOutputStream()) {
        return;
    }
    std::string text = textOf(idName);
    text += ':';
    text += textOf(classType);
    text += '(';
    text += textOf(valueComment);
    text += bytesOf(spec);
    text += ')';
    writeText(s, std::move(text));
}

MetaEnum::MetaEnum() = default;

MetaEnum::MetaEnum(tav_istr enumName, Unit const & members) : name(enumName), values(members) {}

void MetaEnum::io(tavCodecStream & s) {
    if (!s.isOutputStream()) {
        return;
    }
    std::string type = "enum{";
    type += bytesOf(name);
    type += '}';
    s.enter(tav_istr(type), tav_istr());
    int id = 0;
    for (tavSharedPtr<Unit> const & member : values) {
        tavString value(member->value());
        ioField(s, ++id, tav_istr(member->name()), value);
    }
    s.leave();
}

MetaClass::MetaClass() : kind(field_type::string_), isList(false), isRef(false) {}

MetaClass::MetaClass(MetaClass const & other) : MetaClass() {
    copyClass(*this, other);
}

MetaClass::MetaClass(MetaClass && other) noexcept = default;

MetaClass & MetaClass::operator=(MetaClass const & other) {
    return *this = MetaClass(other);
}

MetaClass & MetaClass::operator=(MetaClass && other) noexcept {
    // `other` may be one of this class's own, and goes with what is replaced.
    MetaClass taken(std::move(other));
    unit = std::move(taken.unit);
    name.swap(taken.name);
    typeText.swap(taken.typeText);
    className.swap(taken.className);
    superName.swap(taken.superName);
    code.swap(taken.code);
    kind = taken.kind;
    isList = taken.isList;
    isRef = taken.isRef;
    imports.swap(taken.imports);
    classes.swap(taken.classes);
    enums.swap(taken.enums);
    fields.swap(taken.fields);
    return *this;
}

MetaClass::~MetaClass() {
    // Classes end from the innermost outwards, so that none has to look deeper; the first one of those that
    // are declared together keeps those around them meanwhile.
    std::vector<MetaClass> ending = std::move(classes);
    while (!ending.empty()) {
        MetaClass & last = ending.back();
        if (!last.classes.empty()) {
            std::vector<MetaClass> within = std::move(last.classes);
            within.front().around_ = std::move(ending);
            ending = std::move(within);
            continue;
        }
        std::vector<MetaClass> around = std::move(last.around_);
        ending.pop_back();
        if (ending.empty()) {
            ending = std::move(around);
        }
    }
}

void MetaClass::io(tavCodecStream & s) {
    if (!s.isOutputStream()) {
        return;
    }
    std::vector<Writing> open;
    open.push_back(Writing{this, &s, nullptr, nullptr, 0});
    beginClass(open.back());
    while (!open.empty()) {
        Writing & at = open.back();
        if (!at.list || at.next == at.what->classes.size()) {
            endClass(at);
            open.pop_back();
            continue;
        }
        MetaClass & nested = at.what->classes[at.next++];
        tavSharedPtr<tavCodecStream> element = at.list->getOutputChild();
        if (element) {
            tavCodecStream * const to = element.get();
            open.push_back(Writing{&nested, to, std::move(element), nullptr, 0});
            beginClass(open.back());
        }
    }
}

MetaField const * MetaClass::findField(tav_istr wanted) const {
    std::string_view const bytes = bytesOf(wanted);
    for (MetaField const & field : fields) {
        if (bytesOf(field.idName.name) == bytes) {
            return &field;
        }
    }
    return nullptr;
}

MetaField const * MetaClass::findField(short tag) const {
    for (MetaField const & field : fields) {
        if (field.idName.id == tag) {
            return &field;
        }
    }
    return nullptr;
}

MetaFactory::MetaFactory() = default;

MetaFactory::MetaFactory(PmlInputStream & in) {
    Unit const cfg;
    tav::detail::MetaContext const context;
    // The stream's unit holds those that follow it.
    for (Unit const * unit = &in.unit(); unit != nullptr; unit = unit->next().get()) {
        MetaClass read = tav::detail::readMetaClass(*unit, cfg, context);
        tavString const className = read.className;
        tavString const code = read.code;
        if (read.kind == field_type::enum_) {
            enums.insert_or_assign(className, MetaEnum(className, *unit));
        } else if (className.empty()) {
            continue;
        } else {
            classes.insert_or_assign(className, std::move(read));
        }
        unsigned short const number = tav::detail::readHexCode(bytesOf(code));
        if (!code.empty() && number != 0xFFFF) {
            code2class.insert_or_assign(number, className);
        }
    }
}

void MetaFactory::io(tavCodecStream & s) {
    if (!s.isOutputStream()) {
        return;
    }
    s.enter("factory", "");
    ioField(s, 1, "code2class", code2class);
    ioField(s, 2, "classes", classes);
    ioField(s, 3, "enums", enums);
    s.leave();
}

MetaClass const * MetaFactory::findClass(tav_istr name) const {
    auto const found = classes.find(tavString(name));
    return found != classes.end() ? &found->second : nullptr;
}

MetaClass const * MetaFactory::findClass(unsigned short code) const {
    auto const found = code2class.find(code);
    if (found == code2class.end()) {
        return nullptr;
    }
    auto const named = classes.find(found->second);
    return named != classes.end() ? &named->second : nullptr;
}

tavString MetaFactory::findClassName(unsigned short code) const {
    auto const found = code2class.find(code);
    return found != code2class.end() ? found->second : tavString();
}

MetaEnum const * MetaFactory::findEnum(tav_istr name) const {
    auto const found = enums.find(tavString(name));
    return found != enums.end() ? &found->second : nullptr;
}

} // namespace pml
} // namespace tav
