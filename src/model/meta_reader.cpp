#include "model/meta_reader.h"

#include "foundation/number_text.h"
#include "foundation/views.h"

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tav {
namespace detail {

using pml::ClassType;
using pml::IdName;
using pml::MetaClass;
using pml::MetaEnum;
using pml::MetaField;
using pml::PmlInputStream;
using pml::Unit;
namespace field_type = pml::field_type;

namespace {

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

tavString stringOf(std::string_view text) {
    return tavString(std::string(text));
}

bool isDirective(Unit const & unit) {
    return startsWith(unit.name(), "__");
}

/// The template configuration.
struct Config {
    explicit Config(Unit const & unit)
        : cfg(unit),
          classSeparator(text("classSeparator", "$")),
          importSeparator(text("importSeparator", "/")),
          importFullPath(flag("importFullPath")),
          alwaysFullPath(flag("alwaysFullPath")),
          objectIsReference(flag("objectIsReference")),
          rootObject(text("rootObject", "DataObject")),
          enumObject(text("enumObject", "EnumObject")),
          unionObject(text("unionObject", "UnionObject")),
          imports(unit.child("imports")) {}

    Unit const & cfg;
    tavString classSeparator;
    tavString importSeparator;
    bool importFullPath;
    bool alwaysFullPath;
    bool objectIsReference;
    tavString rootObject;
    tavString enumObject;
    tavString unionObject;
    Unit const & imports;

private:
    tavString text(char const * key, char const * preset) const {
        tavString value(preset);
        PmlInputStream(cfg.child(key)) >> value;
        return value;
    }
    bool flag(char const * key) const {
        bool value = false;
        PmlInputStream(cfg.child(key)) >> value;
        return value;
    }
};

/// A class as far as it is read.
struct Read {
    Unit const * unit = nullptr;
    MetaClass cls;
    ClassType type;
    /// Its base was named, if only as none.
    bool namesBase = false;
};

/// What a class is read for.
enum class Role {
    /// For itself, or as the element of a list or map.
    definition,
    /// As a field of the class around it.
    field
};

struct Frame {
    Role role = Role::definition;
    Read read;
    /// The child of the unit that comes next.
    std::size_t next = 0;
    /// Of a list or map that is a field: its element, once that is read.
    std::unique_ptr<Read> element;
};

class Reader {
public:
    Reader(Unit const & cfg, MetaContext const & context) : config_(cfg), context_(context) {}

    MetaClass read(Unit const & unit);

private:
    void push(Unit const & unit, Role role);
    void readHead(Read & at, tavString const & around);
    void readDirectives(Read & at);
    void settleBase(Read & at);
    Unit const * nextChild(Frame & frame);
    void addDeclared(MetaClass & around, Frame & declared);
    void takeEnum(MetaClass & around, Read & declared, MetaField & field);
    void takeMap(MetaClass & around, Frame & declared, MetaField & field);
    void takeList(MetaClass & around, Frame & declared, MetaField & field);
    void takeObject(MetaClass & around, Read & declared, MetaField & field);
    void addField(MetaClass & around, MetaField field);
    void addImports(MetaClass & to, Unit const & entry);
    void addImport(MetaClass & to, std::string_view path);
    tavString absolute(std::string_view path) const;
    tavString resolved(tavString const & name) const;

    Config const config_;
    MetaContext const & context_;
    /// The classes that are being read, outermost first.  Growing moves none.
    std::deque<Frame> open_;
};

/// Whether this is the list or map of a field, of which nothing but the element is kept.
bool keepsElement(Frame const & frame) {
    MetaClass const & c = frame.read.cls;
    return frame.role == Role::field && (c.isList || c.kind == field_type::map_);
}

/// Whether a class declares nothing: it is then the mention of a class that is declared elsewhere.  Nested
/// classes and enums come with a field each.
bool isMention(Read const & read) {
    MetaClass const & c = read.cls;
    return c.fields.empty() && c.code.empty() && !read.namesBase;
}

/// The first child that is no directive; null if there is none.
Unit const * firstDeclared(Unit const & unit) {
    for (tavSharedPtr<Unit> const & child : unit) {
        if (!isDirective(*child)) {
            return child.get();
        }
    }
    return nullptr;
}

void takeValues(MetaField & field, Unit const & members) {
    for (tavSharedPtr<Unit> const & member : members) {
        if (!isDirective(*member)) {
            int value = -1;
            readInteger(std::string_view(member->value()), value);
            field.validValues.insert(value);
        }
    }
}

/// Adds a class, which gives up all that it holds.  Its unit is copied only here, for what is kept.
void addClass(MetaClass & around, Read & declared) {
    around.classes.push_back(std::move(declared.cls));
    around.classes.back().unit = *declared.unit;
}

/// Sets the type, but for what is said of the field itself: whether it is optional, and its dimensions.
void retype(ClassType & type, tavString const & name, field_type::values kind,
            field_type::values elementKind = field_type::unknown_) {
    ClassType made(name, tav_istr(), type.optional, kind, elementKind);
    made.dimensions.swap(type.dimensions);
    type = std::move(made);
}

/// Makes the field one of elements of this class.
void setElement(MetaField & field, Read const & element) {
    ClassType & type = field.classType;
    field_type::values const kind = element.cls.kind;
    if (field_type::isSimple(kind)) {
        type.elementType = kind;
        type.name = element.type.name;
        return;
    }
    type.name = element.cls.className;
    if (kind == field_type::enum_) {
        type.elementType = kind;
        takeValues(field, *element.unit);
    } else {
        type.elementType = kind == field_type::ref_ ? kind : field_type::object_;
    }
}

MetaClass Reader::read(Unit const & unit) {
    push(unit, Role::definition);
    for (;;) {
        if (Unit const * const child = nextChild(open_.back())) {
            push(*child, keepsElement(open_.back()) ? Role::definition : Role::field);
            continue;
        }
        Frame done = std::move(open_.back());
        open_.pop_back();
        if (open_.empty()) {
            done.read.cls.unit = *done.read.unit;
            return std::move(done.read.cls);
        }
        Frame & around = open_.back();
        if (keepsElement(around)) {
            around.element = std::make_unique<Read>(std::move(done.read));
        } else {
            addDeclared(around.read.cls, done);
        }
    }
}

void Reader::push(Unit const & unit, Role role) {
    tavString const around =
        config_.alwaysFullPath && !open_.empty() ? open_.back().read.cls.className : tavString();
    open_.emplace_back();
    Frame & frame = open_.back();
    frame.role = role;
    frame.read.unit = &unit;
    readHead(frame.read, around);
}

/// Reads all but the fields.  `around` is the path of the class around this one, if paths are wanted.
void Reader::readHead(Read & at, tavString const & around) {
    Unit const & unit = *at.unit;
    MetaClass & c = at.cls;
    c.name = unit.name();
    c.typeText = unit.type();
    if (c.name == "__global__") {
        return;
    }
    readDirectives(at);

    at.type = ClassType(tav_istr(unit.type()), false);
    at.type.parse(config_.cfg);
    c.kind = at.type.type;
    c.typeText = unit.type().empty() ? tavString() : at.type.name;

    bool const simple = field_type::isSimple(c.kind);
    if (!simple) {
        settleBase(at);
    }
    if (c.kind == field_type::object_ && unit.simple()) {
        c.kind = field_type::ref_;
    }
    c.isRef = c.kind == field_type::ref_ || c.kind == field_type::ref_list_;
    c.isList = c.kind == field_type::list_ || c.kind == field_type::ref_list_;

    if (c.className.empty()) {
        c.className = c.typeText.replace(".", config_.classSeparator);
    } else if (c.typeText.empty()) {
        c.typeText = c.className.replace(config_.classSeparator, ".");
    }
    c.name = IdName(c.name).name;
    if (simple) {
        return;
    }

    if (config_.alwaysFullPath && !c.className.empty()) {
        tavString const own = resolved(c.className);
        c.className = around.empty() ? own : around | config_.classSeparator | own;
    }
    addImports(c, config_.imports.child(c.kind == field_type::enum_ ? "enum" : "object"));
}

void Reader::readDirectives(Read & at) {
    bool hasClass = false;
    bool hasCode = false;
    bool hasBase = false;
    MetaClass & c = at.cls;
    for (tavSharedPtr<Unit> const & entry : *at.unit) {
        Unit const & child = *entry;
        if (!isDirective(child)) {
            continue;
        }
        std::string const & key = child.name();
        if (key == "__import__") {
            addImport(c, child.value());
        } else if (key == "__class__" && !hasClass) {
            hasClass = true;
            c.className = child.value();
        } else if (key == "__code__" && !hasCode) {
            hasCode = true;
            c.code = child.value();
            if (!child.type().empty()) {
                c.code = resolved(child.type()) | config_.classSeparator | c.code;
            }
        } else if (key == "__super__" && !hasBase) {
            hasBase = true;
            c.superName = child.value();
        }
    }
    at.namesBase = !c.superName.empty();
}

void Reader::settleBase(Read & at) {
    MetaClass & c = at.cls;
    if (c.superName == "null") {
        c.superName.clear();
        return;
    }
    if (c.superName.empty()) {
        c.superName = c.kind == field_type::union_  ? config_.unionObject
                      : c.kind == field_type::enum_ ? config_.enumObject
                                                    : config_.rootObject;
    }
    c.superName = resolved(c.superName);
}

/// The next child that has to be read as a class of its own; null once there is none.  Fields without
/// children are added on the way.
Unit const * Reader::nextChild(Frame & frame) {
    MetaClass & c = frame.read.cls;
    Unit const & unit = *frame.read.unit;
    if (field_type::isSimple(c.kind) || c.kind == field_type::enum_) {
        return nullptr;
    }
    if (keepsElement(frame)) {
        // All that counts of it is its element.
        Unit const * const first = frame.next++ == 0 ? firstDeclared(unit) : nullptr;
        return first != nullptr && c.isList && first->name().empty() ? nullptr : first;
    }
    while (frame.next < unit.size()) {
        Unit const & child = unit.at(static_cast<unsigned>(frame.next++));
        if (isDirective(child)) {
            continue;
        }
        if (!child.simple()) {
            return &child;
        }
        addField(c, MetaField(child, config_.cfg));
    }
    return nullptr;
}

/// Adds what a child with children declares: a field, and mostly the type of it.
void Reader::addDeclared(MetaClass & around, Frame & declared) {
    Read & read = declared.read;
    MetaField field;
    field.idName = IdName(tav_istr(read.unit->name()));
    field.classType = read.type;
    if (read.cls.kind == field_type::enum_) {
        takeEnum(around, read, field);
    } else if (read.cls.kind == field_type::map_) {
        takeMap(around, declared, field);
    } else if (read.cls.isList) {
        takeList(around, declared, field);
    } else {
        takeObject(around, read, field);
    }
    addField(around, std::move(field));
}

void Reader::takeEnum(MetaClass & around, Read & declared, MetaField & field) {
    around.enums.push_back(MetaEnum(declared.cls.className, *declared.unit));
    field.classType.name = declared.cls.className;
    for (tavSharedPtr<Unit> const & member : *declared.unit) {
        if (member->name() == "__default__") {
            field.valueComment.value = member->value();
            break;
        }
    }
    takeValues(field, *declared.unit);
}

void Reader::takeMap(MetaClass & around, Frame & declared, MetaField & field) {
    if (declared.element != nullptr) {
        setElement(field, *declared.element);
        addClass(around, *declared.element);
    }
}

void Reader::takeList(MetaClass & around, Frame & declared, MetaField & field) {
    ClassType & type = field.classType;
    if (declared.element != nullptr) {
        Read & element = *declared.element;
        if (element.cls.kind == field_type::ref_) {
            retype(type, element.cls.className, field_type::ref_list_);
            return;
        }
        retype(type, tavString(), field_type::list_);
        setElement(field, element);
        if (!field_type::isSimple(element.cls.kind)) {
            addClass(around, element);
        }
        return;
    }
    Unit const * const unnamed = firstDeclared(*declared.read.unit);
    if (unnamed == nullptr) {
        return;
    }
    ClassType element(tav_istr(unnamed->type()), false);
    bool const known = element.parse(config_.cfg);
    field_type::values const kind = element.type;
    field_type::values const listKind =
        kind == field_type::ref_ || declared.read.cls.kind == field_type::ref_list_ ? field_type::ref_list_
                                                                                    : field_type::list_;
    bool const isElementKind = !known || field_type::isSimple(kind);
    retype(type, element.name, listKind, isElementKind ? kind : field_type::unknown_);
}

void Reader::takeObject(MetaClass & around, Read & declared, MetaField & field) {
    ClassType & type = field.classType;
    MetaClass const & c = declared.cls;
    if (isMention(declared)) {
        retype(type, c.className.empty() ? c.name : c.className, field_type::ref_);
        type.isRef = true;
        return;
    }
    retype(type, c.className, field_type::object_);
    addClass(around, declared);
}

/// Adds a field with its imports; those of the kind `object` came with the class itself.
void Reader::addField(MetaClass & around, MetaField field) {
    ClassType & type = field.classType;
    if (config_.objectIsReference && type.type == field_type::object_) {
        type.type = field_type::ref_;
        type.isRef = true;
    }
    if (config_.alwaysFullPath && !field_type::isSimple(type.type)) {
        type.name = resolved(type.name);
    }
    Unit const & imports = config_.imports;
    if (!imports.empty()) {
        switch (static_cast<field_type::values>(type.type)) {
        case field_type::time_: addImports(around, imports.child("time")); break;
        case field_type::enum_: addImports(around, imports.child("enum")); break;
        case field_type::list_:
        case field_type::ref_list_:
            addImports(around, imports.child("list").child("base"));
            addImports(around, imports.child("list").child("child"));
            break;
        case field_type::map_:
            addImports(around, imports.child("map").child("base"));
            addImports(around, imports.child("map").child("child"));
            break;
        default: break;
        }
    }
    around.fields.push_back(std::move(field));
}

/// Adds the import paths of one entry of the configuration's table: its value and those of its children.
void Reader::addImports(MetaClass & to, Unit const & entry) {
    addImport(to, entry.value());
    for (tavSharedPtr<Unit> const & child : entry) {
        addImport(to, child->value());
    }
}

void Reader::addImport(MetaClass & to, std::string_view path) {
    if (path.empty()) {
        return;
    }
    if (config_.importFullPath) {
        to.imports.insert(stringOf(path));
        return;
    }
    tavString const whole = absolute(path);
    std::string_view rest = bytesOf(whole);
    std::string_view const package = bytesOf(context_.package);
    if (!package.empty() && rest.size() > package.size() && startsWith(rest, package) &&
        rest[package.size()] == '.') {
        rest.remove_prefix(package.size() + 1);
    }
    to.imports.insert(stringOf(rest).replace(".", config_.importSeparator));
}

/// The path that a relative one means: "." and ".." are the package of the classes and the one around it, and
/// "/", "./" and "../" stand ahead of what lies in them.
tavString Reader::absolute(std::string_view path) const {
    bool const inPackage = startsWith(path, "/") || startsWith(path, "./");
    if (!inPackage && path != "." && path != ".." && !startsWith(path, "../")) {
        return stringOf(path);
    }
    std::string_view package = bytesOf(context_.package);
    std::string_view rest = path;
    if (inPackage) {
        rest.remove_prefix(path.front() == '/' ? 1 : 2);
    }
    while (rest == ".." || startsWith(rest, "../")) {
        std::size_t const dot = package.rfind('.');
        package = package.substr(0, dot == std::string_view::npos ? 0 : dot);
        rest.remove_prefix(rest.size() == 2 ? 2 : 3);
    }
    if (rest == ".") {
        rest = std::string_view();
    }
    std::string result(package);
    if (!result.empty() && !rest.empty()) {
        result += '.';
    }
    result += rest;
    return tavString(std::move(result));
}

/// The path that is known for a class, else its name, taken relative to the package if it asks for that.
tavString Reader::resolved(tavString const & name) const {
    auto const known = context_.paths.find(name);
    return known != context_.paths.end() ? known->second : absolute(bytesOf(name));
}

} // namespace

MetaClass readMetaClass(Unit const & unit, Unit const & cfg, MetaContext const & context) {
    return Reader(cfg, context).read(unit);
}

} // namespace detail
} // namespace tav
