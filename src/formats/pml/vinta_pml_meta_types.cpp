#include "tav/vinta/vinta_pml_field_types.h"

#include "foundation/report.h"
#include "foundation/views.h"
#include "tav/vinta/vinta_pml_streams.h"

#include <atomic>
#include <forward_list>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace tav {
namespace pml {

using detail::bytesOf;
using detail::viewOf;

namespace field_type {

namespace {

struct KindName {
    values value;
    char const * name;
};

constexpr KindName kindNames[] = {
    {bool_, "bool"},       {int8_, "int8"},       {int16_, "int16"},     {int32_, "int32"},
    {int64_, "int64"},     {uint8_, "uint8"},     {uint16_, "uint16"},   {uint32_, "uint32"},
    {uint64_, "uint64"},   {float_, "float"},     {double_, "double"},   {char_, "char"},
    {wchar_, "wchar"},     {string_, "string"},   {wstring_, "wstring"}, {u8string_, "u8string"},
    {bytes_, "bytes"},     {time_, "time"},       {enum_, "enum"},       {optional_, "optional"},
    {union_, "union"},     {object_, "object"},   {ref_, "ref"},         {array_, "array"},
    {array2d_, "array2d"}, {array3d_, "array3d"}, {list_, "list"},       {ref_list_, "ref_list"},
    {map_, "map"},         {null_, "null"},       {unknown_, "unknown"},
};

struct AliasName {
    char const * name;
    values value;
    bool optional;
};

constexpr AliasName aliasNames[] = {
    {"boolean", bool_, false},   {"byte", int8_, false},    {"sbyte", int8_, false},
    {"short", int16_, false},    {"int", int32_, false},    {"long", int64_, false},
    {"longlong", int64_, false}, {"ubyte", uint8_, false},  {"ushort", uint16_, false},
    {"uint", uint32_, false},    {"ulong", uint64_, false}, {"ulonglong", uint64_, false},
    {"Boolean", bool_, true},    {"Byte", int8_, true},     {"Sbyte", int8_, true},
    {"Short", int16_, true},     {"Integer", int32_, true}, {"Long", int64_, true},
    {"Longlong", int64_, true},  {"Ubyte", uint8_, true},   {"Ushort", uint16_, true},
    {"Uinteger", uint32_, true}, {"Ulong", uint64_, true},  {"Ulonglong", uint64_, true},
    {"Float", float_, true},     {"Double", double_, true},
};

void enterAlias(tavString name, AliasValue alias) {
    std::lock_guard<tavMutex const> guard(Initializer::mtx());
    Initializer::aliases()[std::move(name)] = alias;
}

/// The names of the kinds, from its construction on.
struct Names {
    Names() {
        for (KindName const & kind : kindNames) {
            tavEnum<values>::add(kind.value, kind.name);
        }
        for (AliasName const & alias : aliasNames) {
            enterAlias(alias.name, AliasValue{alias.value, alias.optional});
        }
    }
};

/// The kind's name, or its number.
tavString nameOf(values kind) {
    tav_istr const name = tavEnum<values>(kind).name();
    return name.data() != nullptr ? tavString(name) : tavString(std::to_string(static_cast<int>(kind)));
}

} // namespace

Initializer::Initializer() {
    static Names const names;
    static_cast<void>(names);
}

void Initializer::addAlias(tavString name, values value, bool optional) {
    Initializer const initializer;
    enterAlias(std::move(name), AliasValue{value, optional});
}

std::map<tavString, AliasValue> & Initializer::aliases() {
    // Never destroyed, like the mutex: types may be parsed until the process ends.
    static auto & map = *new std::map<tavString, AliasValue>;
    return map;
}

tavMutex & Initializer::mtx() {
    static auto & mutex = *new tavMutex;
    return mutex;
}

void addAlias(tavString name, values value, bool optional) {
    Initializer::addAlias(std::move(name), value, optional);
}

std::map<tavString, AliasValue> & aliases() {
    return Initializer::aliases();
}

tavMutex & mtx() {
    return Initializer::mtx();
}

tavString getTypeName(values kind, Unit const & cfg, bool optional, bool * missing) {
    Initializer const initializer;
    tavString const name = nameOf(kind);
    if (cfg.empty()) {
        return name;
    }
    Unit const & types = cfg.child("types");
    if (optional) {
        if (tavSharedPtr<Unit> const found = types.find(name | "?")) {
            if (missing != nullptr) {
                *missing = false;
            }
            return found->value();
        }
    }
    if (tavSharedPtr<Unit> const found = types.find(name)) {
        return found->value();
    }
    detail::log(tavLogger::DEFAULT_TAG(), tavLogger::VERBOSE,
                detail::here("tav::pml::field_type::getTypeName"),
                [&](std::ostream & out) { out << "type {" << name << "} not defined in template cfg"; });
    return name;
}

} // namespace field_type

using field_type::isSimple;

namespace {

/// The registered kinds in ascending order of their names.
struct Kinds {
    /// Which state of the registry these are of: after each change it has another set.
    std::set<int> const * registered;
    std::map<tavString, int> numbers;
};

/// The kinds as they are registered now.  The map lives as long as the process and never changes.
std::map<tavString, int> const & kindsByName() {
    static std::atomic<Kinds const *> current{nullptr};
    static auto & mutex = *new std::mutex;
    static auto & all = *new std::forward_list<Kinds>;

    auto const isCurrent = [](Kinds const * kinds) {
        return kinds != nullptr && kinds->registered == &detail::FieldAccess::valuesOf<field_type::values>();
    };
    Kinds const * kinds = current.load(std::memory_order_acquire);
    if (!isCurrent(kinds)) {
        std::lock_guard<std::mutex> guard(mutex);
        kinds = current.load(std::memory_order_relaxed);
        if (!isCurrent(kinds)) {
            // The values go ahead of the names: what is added between the two shows at the next call.
            std::set<int> const & registered = detail::FieldAccess::valuesOf<field_type::values>();
            all.push_front(Kinds{&registered, tavEnum<field_type::values>::numbers()});
            kinds = &all.front();
            current.store(kinds, std::memory_order_release);
        }
    }
    return kinds->numbers;
}

bool beginsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

std::string_view trimmed(std::string_view text) {
    return bytesOf(viewOf(text).trim());
}

/// A type while its text is parsed.  The views are of that text, and of the parser's own texts.
struct Type {
    /// First the text that is left to be parsed, then what stands for it.
    std::string_view name;
    std::string_view keyName;
    field_type::values kind = field_type::string_;
    field_type::values elementKind = field_type::unknown_;
    field_type::values keyKind = field_type::unknown_;
    bool optional = false;
    bool isRef = false;
    /// `keyName` was set.
    bool hasKey = false;
    /// The text began with a kind or an alias.
    bool known = false;
};

/// Parses type texts: from the outermost one inwards, then hands what the inner ones gave outwards again,
/// with a list of the open ones instead of recursion.
class TypeParser {
public:
    explicit TypeParser(Unit const & cfg) : cfg_(cfg) { field_type::Initializer const initializer; }

    /// Parses the text of `type`.  Its dimensions are appended, unless `dimensions` is null.
    void parse(Type & type, std::vector<tavString> * dimensions) {
        if (begin(type, dimensions) == Step::inner) {
            finish(type);
        }
    }

    /// Tries one candidate.
    bool check(Type & type, std::string_view prefix, field_type::values kind) {
        if (!matches(type, prefix, kind)) {
            return false;
        }
        if (settle(type) == Step::inner) {
            finish(type);
        }
        return true;
    }

private:
    enum class Step {
        done,
        /// The name is an inner text that is to be parsed.
        inner
    };

    /// Parses a text without its inner text.
    Step begin(Type & type, std::vector<tavString> * dimensions) {
        type.known = true;
        if (type.name.empty()) {
            type.kind = field_type::string_;
            type.optional = true;
            type.name = languageName(type.kind, true);
            return Step::done;
        }
        cutSuffixes(type, dimensions);
        for (auto const & kind : kindsByName()) {
            if (matches(type, bytesOf(kind.first), static_cast<field_type::values>(kind.second))) {
                return settle(type);
            }
        }
        switch (findAlias(type)) {
        case Found::alias: return settle(type);
        case Found::optionalAlias: type.name = languageName(type.kind, true); return Step::done;
        case Found::nothing: break;
        }
        type.kind = field_type::object_;
        type.known = false;
        return Step::done;
    }

    static void cutSuffixes(Type & type, std::vector<tavString> * dimensions) {
        std::string_view & text = type.name;
        if (text.back() == ']') {
            // Only the first pair has to stand at the end.
            for (;;) {
                std::size_t const open = text.rfind('[');
                std::size_t const close = text.rfind(']');
                if (open == std::string_view::npos || close == std::string_view::npos || close < open) {
                    break;
                }
                if (dimensions != nullptr) {
                    dimensions->emplace_back(viewOf(trimmed(text.substr(open + 1, close - open - 1))));
                }
                text = text.substr(0, open);
            }
        }
        if (!text.empty() && text.back() == '?') {
            text.remove_suffix(1);
            type.optional = true;
        }
    }

    /// Whether the text is of this kind.  Behind the prefix of a kind that is not simple it must be an inner
    /// text between braces, which is then left; the prefix is gone in any case.
    static bool matches(Type & type, std::string_view prefix, field_type::values kind) {
        std::string_view & text = type.name;
        if (!beginsWith(text, prefix)) {
            return false;
        }
        type.kind = kind;
        if (isSimple(kind)) {
            return true;
        }
        text.remove_prefix(prefix.size());
        if (text.size() <= 2 || text.front() != '{' || text.back() != '}') {
            return false;
        }
        text = text.substr(1, text.size() - 2);
        return true;
    }

    /// Goes on with a text that was found to be of its kind.
    Step settle(Type & type) {
        if (isSimple(type.kind)) {
            type.name = languageName(type.kind, type.optional);
            return Step::done;
        }
        switch (type.kind) {
        case field_type::optional_: type.optional = true; return Step::inner;
        case field_type::enum_:
        case field_type::list_: return Step::inner;
        case field_type::map_: return splitMap(type);
        default: return Step::done;
        }
    }

    /// Takes the key of a map off its inner text.
    Step splitMap(Type & type) {
        std::size_t const comma = type.name.find(',');
        if (comma == std::string_view::npos) {
            detail::log(
                tavLogger::DEFAULT_TAG(), tavLogger::ERROR, detail::here("tav::pml::ClassType::check"),
                [&](std::ostream & out) { out << "no ',' found for map type: " << viewOf(type.name); });
            return Step::done;
        }
        // This recursion ends at once: within the key there is no comma, and so no further key.
        Type key;
        key.name = trimmed(type.name.substr(0, comma));
        parse(key, nullptr);
        type.keyName = nameWithinMap(key);
        type.keyKind = key.kind;
        type.hasKey = true;
        type.name = trimmed(type.name.substr(comma + 1));
        return Step::inner;
    }

    enum class Found { nothing, alias, optionalAlias };

    static Found findAlias(Type & type) {
        std::lock_guard<tavMutex const> guard(field_type::mtx());
        for (auto const & alias : field_type::aliases()) {
            std::string_view const prefix = bytesOf(alias.first);
            if (!alias.second.optional) {
                if (matches(type, prefix, alias.second.value)) {
                    return Found::alias;
                }
            } else if (beginsWith(type.name, prefix)) {
                type.kind = alias.second.value;
                type.optional = true;
                return Found::optionalAlias;
            }
        }
        return Found::nothing;
    }

    /// Parses the inner text that is the name of `outer`, and all that lies below it.
    void finish(Type & outer) {
        std::vector<Type> open;
        Step step = Step::inner;
        while (step == Step::inner) {
            Type const & around = open.empty() ? outer : open.back();
            Type inner;
            inner.name = around.name;
            inner.optional = around.kind == field_type::optional_;
            step = begin(inner, nullptr);
            open.push_back(inner);
        }
        while (!open.empty()) {
            Type const inner = open.back();
            open.pop_back();
            take(open.empty() ? outer : open.back(), inner);
        }
    }

    /// Gives `outer` what its inner text was found to be.
    void take(Type & outer, Type const & inner) {
        switch (outer.kind) {
        case field_type::optional_:
            if (inner.known) {
                outer.kind = inner.kind;
                outer.name = inner.name;
            }
            break;
        case field_type::enum_:
            if (inner.known && inner.kind == field_type::ref_) {
                outer.isRef = true;
                outer.name = inner.name;
            }
            break;
        case field_type::list_:
            if (!inner.known) {
                outer.elementKind = field_type::object_;
                break;
            }
            outer.name = inner.name;
            if (inner.kind == field_type::ref_) {
                outer.kind = field_type::ref_list_;
            } else if (isSimple(inner.kind)) {
                outer.elementKind = inner.kind;
            }
            break;
        default: // a map's value
            outer.name = nameWithinMap(inner);
            outer.elementKind = inner.kind;
            break;
        }
    }

    std::string_view nameWithinMap(Type const & type) {
        return isSimple(type.kind) ? languageName(type.kind, type.optional || objectIsReference())
                                   : type.name;
    }

    std::string_view languageName(field_type::values kind, bool optional) {
        texts_.push_front(field_type::getTypeName(kind, cfg_, optional, nullptr));
        return bytesOf(texts_.front());
    }

    bool objectIsReference() const {
        bool value = false;
        PmlInputStream(cfg_.child("objectIsReference")) >> value;
        return value;
    }

    Unit const & cfg_;
    /// What the views in types are of, unless it is the parsed text: they stay where they are.
    std::forward_list<tavString> texts_;
};

/// The type that `of` is, with `text` as its name.
Type typeFrom(ClassType const & of, tavString const & text) {
    Type type;
    type.name = bytesOf(text);
    type.kind = of.type;
    type.elementKind = of.elementType;
    type.keyKind = of.keyType;
    type.optional = of.optional;
    type.isRef = of.isRef;
    return type;
}

void assign(ClassType & to, Type const & type) {
    to.type = type.kind;
    to.name = viewOf(type.name);
    if (type.hasKey) {
        to.keyName = viewOf(type.keyName);
    }
    to.optional = type.optional;
    to.isRef = type.isRef;
    to.elementType = type.elementKind;
    to.keyType = type.keyKind;
}

} // namespace

ClassType::ClassType() : optional(false), isRef(false) {}

ClassType::ClassType(tav_istr text, bool isOptional)
    : type(field_type::string_), name(text), optional(isOptional), isRef(false) {}

ClassType::ClassType(tav_istr text, Unit const & cfg) : ClassType(text, false) {
    parse(cfg);
    if (type == field_type::object_) {
        type = field_type::ref_;
        isRef = true;
    }
}

ClassType::ClassType(tav_istr typeName, tav_istr typeOfKey, bool isOptional, field_type::values kind,
                     field_type::values elementKind)
    : type(kind),
      name(typeName),
      keyName(typeOfKey),
      optional(isOptional),
      isRef(false),
      elementType(elementKind) {}

bool ClassType::parse(Unit const & cfg) {
    tavString const text(name);
    TypeParser parser(cfg);
    Type parsed = typeFrom(*this, text);
    parser.parse(parsed, &dimensions);
    assign(*this, parsed);
    return parsed.known;
}

bool ClassType::check(tav_istr prefix, field_type::values kind, Unit const & cfg) {
    tavString const text(name);
    TypeParser parser(cfg);
    Type checked = typeFrom(*this, text);
    bool const result = parser.check(checked, bytesOf(prefix), kind);
    assign(*this, checked);
    return result;
}

void ClassType::io(tavCodecStream & s) {
    if (!s.isOutputStream()) {
        return;
    }
    field_type::Initializer const initializer;
    field_type::values const kind = type;
    tavString text = field_type::nameOf(kind);
    if (!isSimple(kind)) {
        text << '{';
        if (!keyName.empty()) {
            text << keyName << ',';
        }
        if (isRef && kind != field_type::ref_ && kind != field_type::ref_list_) {
            text << "ref{" << name << '}';
        } else {
            text << name;
        }
        text << '}';
    }
    if (optional) {
        text << '?';
    }
    for (tavString const & dimension : dimensions) {
        text << '[' << dimension << ']';
    }
    s.io(text, tavCodecMeta());
}

} // namespace pml
} // namespace tav
