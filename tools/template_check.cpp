#include "tools/template_check.h"

#include "tools/integers.h"
#include "tools/template_hints.h"
#include "tools/templates.h"
#include "tools/utf8.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <map>
#include <optional>
#include <set>

namespace tav {
namespace tool {

using pml::ClassType;
using pml::MetaClass;
using pml::MetaFactory;
using pml::MetaField;
using pml::Unit;

namespace kinds = pml::field_type;

namespace {

constexpr int largestTag = 127;

bool startsWith(std::string_view text, std::string_view front) {
    return text.substr(0, front.size()) == front;
}

bool isDirective(Unit const & unit) {
    return startsWith(unit.name(), "__");
}

std::string inQuotes(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

/// The number of a decimal text, or one behind 0x, 0b or 0; none if the whole text is no such number.
std::optional<long long> numberOf(std::string_view text) {
    if (text.empty() || text.find_first_not_of("+-0123456789abcdefABCDEFxX") != std::string_view::npos) {
        return std::nullopt;
    }
    Unit const unit(tav_istr(), istrOf(text));
    long long const value = unit.asInt64Value();
    if (value == 0 && text.find_first_not_of("+-0xXbB") != std::string_view::npos) {
        return std::nullopt;
    }
    return value;
}

/// The number of a decimal text, as ranges are read.
std::optional<long long> decimalOf(std::string_view text) {
    std::string_view digits = text;
    digits.remove_prefix(!text.empty() && (text.front() == '-' || text.front() == '+') ? 1 : 0);
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos ||
        isBeyondRanges(text)) {
        return std::nullopt;
    }
    return std::strtoll(std::string(text).c_str(), nullptr, 10);
}

/// Whether a text is the name of a kind or an alias, to the letter.
bool isTypeName(std::string_view text) {
    kinds::Initializer const registered;
    for (auto const & kind : tavEnum<Kind>::numbers()) {
        if (viewOf(kind.first) == text) {
            return true;
        }
    }
    tavMutex & mutex = kinds::mtx();
    mutex.lock();
    bool const found = kinds::aliases().count(tavString(istrOf(text))) != 0;
    mutex.unlock();
    return found;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.remove_suffix(1);
    }
    return text;
}

/// A type text without its dimensions and its mark of the optional.
std::string_view bareType(std::string_view text) {
    if (!text.empty() && text.back() == ']') {
        text = text.substr(0, text.find('['));
    }
    if (!text.empty() && text.back() == '?') {
        text.remove_suffix(1);
    }
    return text;
}

/// What stands between the braces behind a name, such as "string" of "list{string}"; empty if there are none.
std::string_view innerOf(std::string_view text, std::string_view name) {
    bool const braced = startsWith(text, name) && text.size() > name.size() + 2 && text[name.size()] == '{' &&
                        text.back() == '}';
    return braced ? text.substr(name.size() + 1, text.size() - name.size() - 2) : std::string_view();
}

/// A unit of the top, with what it was read as.
struct Top {
    Unit const * unit = nullptr;
    std::unique_ptr<MetaFactory> model;
    /// Null of an enum, and of what was dropped.
    MetaClass const * cls = nullptr;
};

class Checker {
public:
    Checker(PmlText const & units, std::string_view text) : units_(units), text_(text) {}

    void run(Watch const & loading, Watch const & checking);
    std::vector<Finding> take() { return std::move(findings_); }

private:
    void error(std::size_t at, char const * rule, std::string const & text) { add(true, at, rule, text); }
    void warn(std::size_t at, char const * rule, std::string const & text) { add(false, at, rule, text); }
    void add(bool isError, std::size_t at, char const * rule, std::string const & text) {
        findings_.push_back(Finding{isError, at, rule, text});
    }
    UnitPlace const & placeOf(Unit const & unit) const { return units_.place(unit); }

    void load(Watch const & watch);
    void checkTops();
    void checkTop(Top const & top, std::map<std::string, std::size_t> & names,
                  std::map<unsigned short, std::string> & codes);
    void checkCode(Top const & top, Unit const & directive, std::map<unsigned short, std::string> & codes);
    void checkDirectives(Unit const & unit, std::size_t at);
    void checkBase(MetaClass const & cls, std::size_t at);
    bool isBaseOfItself(MetaClass const & cls) const;
    void checkClasses(MetaClass const & cls, std::size_t at);
    void checkClass(MetaClass const & cls, std::size_t at);
    void checkInherited(MetaClass const & cls, std::size_t at);
    void checkNumbersOfFields(MetaClass const & cls, std::vector<Unit const *> const & units);
    void checkField(MetaClass const & cls, MetaField const & field, Unit const & unit);
    void checkName(MetaField const & field, UnitPlace const & place);
    void checkRest(Unit const & unit);
    void checkTag(MetaField const & field, Unit const & unit, UnitPlace const & place);
    void checkType(MetaClass const & cls, MetaField const & field, Unit const & unit);
    void checkElement(MetaClass const & cls, MetaField const & field, std::string_view inner, std::size_t at);
    void checkMap(MetaClass const & cls, MetaField const & field, std::string_view text, Unit const & unit);
    void checkSimpleType(std::string_view text, Kind kind, std::size_t at);
    std::string nearestTo(std::string const & name) const;
    void checkClassName(MetaClass const & cls, tavString const & name, std::string_view text, std::size_t at);
    void checkMembers(Unit const & unit);
    void checkValue(MetaField const & field, Unit const & unit);
    void checkRange(MetaField const & field, Unit const & unit, std::string const & text);
    void checkPreset(MetaField const & field, std::size_t at);
    void checkEnds(Kind kind, std::string_view part, long long low, long long high, std::size_t at);
    void checkReach();
    void reachFrom(MetaClass const & cls, std::set<MetaClass const *> & reached,
                   std::deque<MetaClass const *> & next) const;
    bool known(tavString const & name, MetaClass const & cls) const {
        return findClass(name, &cls, factory_) != nullptr;
    }

    PmlText const & units_;
    std::string_view text_;
    std::vector<Top> tops_;
    MetaFactory factory_;
    /// The names of units at the top that would be enums if their types had a name.
    std::set<std::string> unnamedEnums_;
    /// What stands in an enum that is read as an object.
    std::set<Unit const *> misread_;
    std::vector<Finding> findings_;
};

void Checker::load(Watch const & watch) {
    for (Unit const * unit = units_.first().get(); unit != nullptr; unit = unit->next().get()) {
        if (watch) {
            watch(placeOf(*unit).name, text_.size());
        }
        Unit alone(*unit);
        alone.next(tavSharedPtr<Unit>());
        pml::PmlInputStream in(alone);
        Top top;
        top.unit = unit;
        top.model = std::make_unique<MetaFactory>(in);
        if (!top.model->classes.empty()) {
            top.cls = &top.model->classes.begin()->second;
        } else if (bareType(unit->type()) == "enum") {
            unnamedEnums_.insert(unit->name());
        }
        tops_.push_back(std::move(top));
    }
    pml::PmlInputStream all(units_.first());
    factory_ = MetaFactory(all);
}

void Checker::run(Watch const & loading, Watch const & checking) {
    if (units_.first()->name().empty() && units_.first()->empty()) {
        warn(0, "empty", "the template is empty");
        return;
    }
    load(loading);
    checkTops();
    for (Top const & top : tops_) {
        if (checking) {
            checking(placeOf(*top.unit).name, text_.size());
        }
        if (top.cls != nullptr) {
            checkClasses(*top.cls, placeOf(*top.unit).name);
        } else if (!top.model->enums.empty()) {
            checkMembers(*top.unit);
        }
    }
    checkReach();
    std::stable_sort(findings_.begin(), findings_.end(),
                     [](Finding const & a, Finding const & b) { return a.offset < b.offset; });
}

void Checker::checkTops() {
    std::map<std::string, std::size_t> names;
    std::map<unsigned short, std::string> codes;
    for (Top const & top : tops_) {
        if (top.unit->name() != "__global__") {
            checkTop(top, names, codes);
        }
    }
}

void Checker::checkTop(Top const & top, std::map<std::string, std::size_t> & names,
                       std::map<unsigned short, std::string> & codes) {
    Unit const & unit = *top.unit;
    std::size_t const at = placeOf(unit).name;
    bool const isEnum = !top.model->enums.empty();
    if (top.cls == nullptr && !isEnum && bareType(unit.type()) == "enum") {
        warn(at, "dropped",
             "this enum has no name, and is dropped: " + unit.name() + ":enum{" + unit.name() + "}");
        return;
    }
    if (top.cls == nullptr && !isEnum) {
        warn(at, "dropped", "this unit has no class name, neither __class__ nor a type, and is dropped");
        return;
    }
    std::string const name = stringOf(isEnum ? top.model->enums.begin()->first : top.cls->className);
    if (isEnum && name.empty()) {
        warn(at, "dropped", "this enum has no name, and nothing can mean it");
        return;
    }
    if (!names.emplace((isEnum ? "enum " : "class ") + name, at).second) {
        error(at, "class-twice",
              (isEnum ? "the enum " : "the class ") + name +
                  " is there twice: this one takes the place of the one ahead");
    }
    checkDirectives(unit, at);
    checkRest(unit);
    if (isEnum) {
        return;
    }
    ClassType const asType(istrOf(name), Unit());
    if (asType.type != kinds::ref_ || asType.name != top.cls->className) {
        warn(at, "class-name",
             "no field can name the class " + name + ": a type that begins like this is " +
                 (asType.type == kinds::ref_ ? "the class " + stringOf(asType.name) : kindName(asType.type)));
    }
    if (tavSharedPtr<Unit> const code = unit.find("__code__")) {
        checkCode(top, *code, codes);
    }
}

void Checker::checkCode(Top const & top, Unit const & directive,
                        std::map<unsigned short, std::string> & codes) {
    std::size_t const at = placeOf(directive).value;
    unsigned short code = 0;
    if (!readCode(directive.value(), code) || !directive.type().empty()) {
        error(at, "code", inQuotes(directive.value()) + " is no message code: up to four hexadecimal digits");
        return;
    }
    if (code == 0xFFFF) {
        warn(at, "code", "the code FFFF means none");
        return;
    }
    auto const entry = codes.emplace(code, stringOf(top.cls->className));
    if (!entry.second) {
        error(at, "code-twice",
              "the code " + codeText(code) + " is that of the class " + entry.first->second +
                  " too: a message of it is read as " + stringOf(top.cls->className));
    }
}

void Checker::checkDirectives(Unit const & unit, std::size_t) {
    static std::set<std::string> const all = {"__class__", "__code__", "__super__", "__import__",
                                              "__default__"};
    std::set<std::string> seen;
    for (tavSharedPtr<Unit> const & child : unit) {
        std::string const & name = child->name();
        if (!isDirective(*child)) {
            continue;
        }
        if (all.count(name) == 0) {
            warn(placeOf(*child).name, "directive", name + " is no directive, and is passed over");
        } else if (name != "__import__" && !seen.insert(name).second) {
            warn(placeOf(*child).name, "directive", name + " is there twice: the first one counts");
        }
    }
}

/// What stands behind the last unit within another one is no part of any.
void Checker::checkRest(Unit const & unit) {
    std::string_view const rest = trimmed(unit.value());
    if (unit.simple() || rest.empty()) {
        return;
    }
    Unit const & last = unit.at(unit.size() - 1);
    std::size_t const from = placeOf(last).end + 1;
    std::size_t const at = text_.find(rest.substr(0, 1), from);
    warn(std::min(at, placeOf(unit).end), "dropped", inQuotes(rest) + " is no unit, and is passed over");
}

/// A class with those that are declared within it.
void Checker::checkClasses(MetaClass const & cls, std::size_t at) {
    struct Pending {
        MetaClass const * cls;
        std::size_t at;
    };
    std::vector<Pending> pending = {{&cls, at}};
    while (!pending.empty()) {
        Pending const one = pending.back();
        pending.pop_back();
        checkClass(*one.cls, one.at);
        std::set<tavString> names;
        for (MetaClass const & nested : one.cls->classes) {
            std::size_t const place = nested.unit.size() == 0 ? one.at : placeOf(nested.unit.at(0)).name;
            if (!names.insert(nested.className).second) {
                error(place, "class-twice",
                      "the class " + stringOf(nested.className) + " is declared twice within " +
                          stringOf(one.cls->className) + ": the first one counts");
            }
            checkDirectives(nested.unit, place);
            pending.push_back({&nested, place});
        }
    }
}

void Checker::checkClass(MetaClass const & cls, std::size_t at) {
    checkBase(cls, at);
    std::vector<Unit const *> units;
    for (tavSharedPtr<Unit> const & child : cls.unit) {
        if (!isDirective(*child)) {
            units.push_back(child.get());
        }
    }
    if (units.size() != cls.fields.size()) {
        return;
    }
    checkNumbersOfFields(cls, units);
    for (std::size_t i = 0; i < units.size(); ++i) {
        checkField(cls, cls.fields[i], *units[i]);
    }
    checkInherited(cls, at);
}

void Checker::checkBase(MetaClass const & cls, std::size_t at) {
    tavSharedPtr<Unit> const directive = cls.unit.find("__super__");
    if (!directive || cls.superName.empty()) {
        return;
    }
    std::size_t const place = directive ? placeOf(*directive).value : at;
    if (findClass(cls.superName, &cls, factory_) == nullptr) {
        error(place, "unknown-class",
              "there is no class " + stringOf(cls.superName) + " to be the base of " +
                  stringOf(cls.className));
        return;
    }
    if (isBaseOfItself(cls)) {
        error(place, "base-of-itself", "the class " + stringOf(cls.className) + " is a base of itself");
    }
}

bool Checker::isBaseOfItself(MetaClass const & cls) const {
    MetaClass const * base = cls.superName.empty() ? nullptr : findClass(cls.superName, &cls, factory_);
    for (std::set<MetaClass const *> seen; base != nullptr && seen.insert(base).second;) {
        if (base->className == cls.className) {
            return true;
        }
        base = base->superName.empty() ? nullptr : findClass(base->superName, base, factory_);
    }
    return false;
}

/// Fields that come from a base may name a class that only the base sees.
void Checker::checkInherited(MetaClass const & cls, std::size_t at) {
    std::vector<MetaClass const *> const chain = chainOf(cls, factory_);
    for (std::size_t i = 1; i < chain.size(); ++i) {
        for (MetaField const & field : chain[i]->fields) {
            Kind const kind = field.classType.type;
            Kind const element = field.classType.elementType;
            bool const names = kind == kinds::object_ || kind == kinds::ref_ || element == kinds::object_ ||
                               element == kinds::ref_;
            if (names && !known(field.classType.name, cls) && known(field.classType.name, *chain[i])) {
                error(at, "unseen-class",
                      "the field " + stringOf(field.idName.name) + " comes from " +
                          stringOf(chain[i]->className) + ", but its class " +
                          stringOf(field.classType.name) +
                          ", which is declared there, is not seen here: let it stand at the top");
            }
        }
    }
}

/// Tags and names that are there twice, in the class and its bases.
void Checker::checkNumbersOfFields(MetaClass const & cls, std::vector<Unit const *> const & units) {
    std::map<int, std::string> tags;
    std::map<std::string, std::string> names;
    // Of a class that is its own base there is nothing ahead of it.
    std::vector<MetaClass const *> const chain =
        isBaseOfItself(cls) ? std::vector<MetaClass const *>{&cls} : chainOf(cls, factory_);
    for (std::size_t i = 1; i < chain.size(); ++i) {
        std::string const of = " of its base " + stringOf(chain[i]->className);
        for (MetaField const & field : chain[i]->fields) {
            tags.emplace(field.idName.id & 0xFF, stringOf(field.idName.name) + of);
            names.emplace(stringOf(field.idName.name), of);
        }
    }
    for (std::size_t i = 0; i < units.size(); ++i) {
        MetaField const & field = cls.fields[i];
        std::size_t const at = placeOf(*units[i]).name;
        std::string const name = stringOf(field.idName.name);
        if (field.idName.id != 0) {
            auto const tag = tags.emplace(field.idName.id & 0xFF, name);
            if (!tag.second) {
                error(at, "tag-twice",
                      "the tag " + std::to_string(field.idName.id) + " of " + name +
                          " is that of the field " + tag.first->second + " too");
            }
        }
        auto const entry = names.emplace(name, "");
        if (!entry.second) {
            error(at, "field-twice",
                  "the field " + name + " is there twice" +
                      (entry.first->second.empty() ? "" : ": it is a field" + entry.first->second));
        }
    }
}

void Checker::checkField(MetaClass const & cls, MetaField const & field, Unit const & unit) {
    UnitPlace const & place = placeOf(unit);
    checkRest(unit);
    checkTag(field, unit, place);
    checkName(field, place);
    checkType(cls, field, unit);
    if (unit.simple()) {
        checkValue(field, unit);
    }
}

void Checker::checkTag(MetaField const & field, Unit const & unit, UnitPlace const & place) {
    int const tag = field.idName.id;
    std::string const name = stringOf(field.idName.name);
    if (tag == 0) {
        bool const written = startsWith(unit.name(), "[");
        if (misread_.count(&unit) == 0) {
            error(place.name, "no-tag",
                  written ? "the tag of " + inQuotes(unit.name()) + " is no number from 1 to 127"
                          : withoutTag(name));
        }
    } else if (tag < 0 || tag > largestTag) {
        error(place.name, "tag-range",
              "the tag " + std::to_string(tag) + " of " + name +
                  " is not from 1 to 127: it would be written, and not found on reading");
    }
}

void Checker::checkName(MetaField const & field, UnitPlace const & place) {
    std::string const name = stringOf(field.idName.name);
    if (name.empty()) {
        error(place.name, "field-name", "the field has no name");
        return;
    }
    if (name == "__class__" || name == "__code__") {
        error(place.name, "field-name",
              "JSON has " + name + " for the message itself: no field can have that name");
        return;
    }
    std::string_view rest = name;
    while (!rest.empty()) {
        std::size_t const size = utf8Character(rest);
        auto const c = static_cast<unsigned char>(rest.front());
        if (size == 0 || c < 32 || c == '"' || c == '\\') {
            error(place.name, "field-name",
                  "JSON can't carry the name of this field: " +
                      std::string(size == 0 ? "it is no UTF-8"
                                  : c < 32  ? "it has a control character"
                                            : "it has a quote or a backslash"));
            return;
        }
        rest.remove_prefix(size);
    }
}

void Checker::checkSimpleType(std::string_view text, Kind kind, std::size_t at) {
    if (!text.empty() && !isTypeName(text)) {
        error(at, "unknown-type",
              "there is no type " + inQuotes(text) + ": it is read as " + kindName(kind) +
                  didYouMean(nearestName(std::string(text), typeNames(), 1)));
    }
    if (kind == kinds::char_ || kind == kinds::wchar_) {
        warn(at, "generators-only", "no JSON is written to a " + kindName(kind) + ": it is for generators");
    }
}

void Checker::checkClassName(MetaClass const & cls, tavString const & name, std::string_view text,
                             std::size_t at) {
    if (known(name, cls)) {
        return;
    }
    std::string const is = stringOf(name);
    std::string const lacking = lacksElement(text);
    if (!lacking.empty()) {
        error(at, "unknown-type", lacking);
    } else if (factory_.findEnum(name) != nullptr || unnamedEnums_.count(is) != 0) {
        error(at, "unknown-class",
              is + " is an enum: a field that has one lists its members, as in enum{" + is +
                  "}(good(0) bad(1))");
    } else {
        std::string what = "there is no class " + is;
        if (!text.empty() && viewOf(name) != text) {
            what += ", as which the type " + inQuotes(text) + " is read";
        }
        error(at, "unknown-class", what + didYouMean(nearestTo(is)));
    }
}

/// A class or a type that the name may have been meant for.
std::string Checker::nearestTo(std::string const & name) const {
    std::vector<std::string> all = typeNames();
    for (auto const & entry : factory_.classes) {
        all.push_back(stringOf(entry.first));
    }
    return nearestName(name, all, std::max<std::size_t>(1, name.size() / 4));
}

void Checker::checkType(MetaClass const & cls, MetaField const & field, Unit const & unit) {
    ClassType const & type = field.classType;
    std::size_t const at = placeOf(unit).type;
    std::string_view text = bareType(unit.type());
    std::string_view const within = innerOf(text, "optional");
    text = within.empty() ? text : within;
    if (!type.dimensions.empty()) {
        warn(at, "generators-only", "dimensions are for generators: one value travels");
    }
    Kind const kind = type.type;
    // A true or false for a value makes a bool of the field; checkValue tells that.
    bool const settled =
        kind == kinds::bool_ && unit.simple() && (unit.value() == "true" || unit.value() == "false");
    if (kinds::isSimple(kind)) {
        checkSimpleType(settled ? std::string_view() : text, kind, at);
    } else if ((text == "enum" || text == "enum{}") && !unit.simple()) {
        error(at, "unknown-type", lacksElement(text));
        for (tavSharedPtr<Unit> const & member : unit) {
            misread_.insert(member.get());
        }
    } else if (kind == kinds::object_ || kind == kinds::ref_) {
        checkClassName(cls, type.name, unit.simple() ? text : std::string_view(), at);
    } else if (kind == kinds::enum_) {
        checkDirectives(unit, at);
        checkMembers(unit);
    } else if (kind == kinds::list_) {
        checkElement(cls, field, unit.simple() ? innerOf(text, "list") : std::string_view(), at);
    } else if (kind == kinds::map_) {
        checkMap(cls, field, text, unit);
    } else if (kind == kinds::ref_list_) {
        warn(at, "generators-only", "a list of references can't be read back: it is for generators");
        checkClassName(cls, type.name, std::string_view(), at);
    } else {
        error(at, "unknown-type", inQuotes(unit.type()) + " is no type that can be carried");
    }
}

void Checker::checkElement(MetaClass const & cls, MetaField const & field, std::string_view inner,
                           std::size_t at) {
    ClassType const & type = field.classType;
    Kind const kind = type.elementType;
    if (kinds::isSimple(kind)) {
        checkSimpleType(bareType(inner), kind, at);
    } else if (kind == kinds::object_ || kind == kinds::ref_) {
        checkClassName(cls, type.name, inner, at);
    } else if (kind != kinds::enum_) {
        error(at, "unknown-type",
              "the elements of " + stringOf(field.idName.name) +
                  " can't be carried: lists, maps and enums need a class or a child of their own");
    }
}

void Checker::checkMap(MetaClass const & cls, MetaField const & field, std::string_view text,
                       Unit const & unit) {
    ClassType const & type = field.classType;
    std::size_t const at = placeOf(unit).type;
    Kind const key = type.keyType;
    std::string_view const inner = innerOf(text, "map");
    std::size_t const comma = inner.find(',');
    if (comma == std::string_view::npos) {
        error(at, "unknown-type", "a map has a key and a value: map{string,int32}");
        return;
    }
    bool const carried = key == kinds::string_ || key == kinds::wstring_ || key == kinds::u8string_ ||
                         key == kinds::int64_ || key == kinds::uint64_;
    if (!carried) {
        error(at, "map-key",
              "the keys of a map are string, int64 or uint64: those of " + stringOf(field.idName.name) +
                  " are lost");
    } else {
        checkSimpleType(bareType(trimmed(inner.substr(0, comma))), key, at);
    }
    checkElement(cls, field, unit.simple() ? trimmed(inner.substr(comma + 1)) : std::string_view(), at);
}

/// The members of an enum.
void Checker::checkMembers(Unit const & unit) {
    std::map<std::string, int> names;
    std::map<long long, std::string> numbers;
    std::string const preset = unit.child("__default__").value();
    for (tavSharedPtr<Unit> const & member : unit) {
        if (isDirective(*member)) {
            continue;
        }
        UnitPlace const & place = placeOf(*member);
        std::optional<long long> const number = numberOf(member->value());
        if (!number || *number < -2147483648LL || *number > 2147483647LL) {
            error(place.value, "enum-number",
                  inQuotes(member->value()) + " is no number of 32 bits: " + member->name() +
                      " is read as -1");
        } else {
            auto const entry = numbers.emplace(*number, member->name());
            if (!entry.second) {
                warn(place.value, "enum-number",
                     "the number of " + member->name() + " is that of " + entry.first->second + " too");
            }
        }
        if (startsWith(member->name(), "[")) {
            error(place.name, "enum-member",
                  "the member is called " + inQuotes(member->name()) + ": members have no tags");
        } else if (!member->type().empty()) {
            warn(place.type, "enum-member",
                 "the type of the member " + member->name() + " is passed over: " + member->name() + "(" +
                     member->value() + ")");
        }
        if (!names.emplace(member->name(), 0).second) {
            error(place.name, "enum-member", "the member " + member->name() + " is there twice");
        }
    }
    if (names.empty()) {
        error(placeOf(unit).type, "enum-empty", "the enum has no members: it takes no number");
    } else if (!preset.empty() && names.count(preset) == 0) {
        warn(placeOf(*unit.find("__default__")).value, "default", preset + " is no member of this enum");
    }
}

void Checker::checkValue(MetaField const & field, Unit const & unit) {
    std::string const & text = unit.value();
    std::size_t const at = placeOf(unit).value;
    Kind const kind = field.classType.type;
    if (text == "true" || text == "false") {
        std::string_view const type = bareType(unit.type());
        if (type != "bool" && type != "boolean" && type != "Boolean" && type != "optional{bool}") {
            warn(at, "bool", "the value " + text + " makes a bool of this field, whatever its type says");
        }
        return;
    }
    if (field.isProtected && kind != kinds::string_ && kind != kinds::wstring_ && kind != kinds::u8string_ &&
        kind != kinds::bytes_) {
        warn(at, "protected", "only texts and bytes are masked: a " + kindName(kind) + " is shown");
    }
    if (!field.isProtected && isNoMask(unit.value())) {
        error(at, "protected",
              inQuotes(unit.value()) +
                  " masks nothing: {***} alone hides a value, {..***..} all but its ends");
        return;
    }
    std::size_t const open = text.find('{');
    std::size_t const comment = text.find("{*");
    if (!field.isProtected && open != std::string::npos && open != comment) {
        checkRange(field, unit, text.substr(open + 1));
    }
    checkPreset(field, at);
}

/// Whether generators can give the default to a value of the type.
void Checker::checkPreset(MetaField const & field, std::size_t at) {
    Kind const kind = field.classType.type;
    std::string const preset = stringOf(field.valueComment.value);
    Integer number;
    bool const isInteger = (kind >= kinds::int8_ && kind <= kinds::uint64_) || kind == kinds::time_;
    bool const isFloating = kind == kinds::float_ || kind == kinds::double_;
    bool const fits = isInteger    ? readInteger(preset, number) && holds(kind, number)
                      : isFloating ? isFloatingText(preset, kind)
                                   : true;
    if (!field.isProtected && !preset.empty() && preset != "null" && !fits) {
        warn(at, "default",
             "the default " + inQuotes(preset) + " is no " + kindName(kind) + ": it is passed over");
    }
}

void Checker::checkRange(MetaField const & field, Unit const & unit, std::string const & text) {
    std::size_t const at = placeOf(unit).value;
    std::size_t const close = text.find('}');
    if (close == std::string::npos) {
        error(at, "range", "the range has no end: }");
        return;
    }
    Kind const kind = field.classType.type;
    if (kind == kinds::bool_ || kind > kinds::uint64_) {
        warn(at, "range", "only integers are held to a range, and this is a " + kindName(kind));
    }
    std::string_view rest = std::string_view(text).substr(0, close);
    while (!rest.empty()) {
        std::string_view const part = trimmed(rest.substr(0, rest.find(',')));
        rest.remove_prefix(std::min(
            rest.size(), rest.find(',') == std::string_view::npos ? rest.size() : rest.find(',') + 1));
        std::size_t const dots = part.find("..");
        std::optional<long long> const low = decimalOf(trimmed(part.substr(0, dots)));
        std::optional<long long> const high =
            dots == std::string_view::npos ? low : decimalOf(trimmed(part.substr(dots + 2)));
        if (!low || !high || *low > *high) {
            bool const large =
                isBeyondRanges(trimmed(part.substr(0, dots))) ||
                (dots != std::string_view::npos && isBeyondRanges(trimmed(part.substr(dots + 2))));
            error(at, "range",
                  inQuotes(part) + (large ? " goes beyond what a range can hold, 63 bits and a sign"
                                          : " is no range: decimal numbers and intervals, as in 1,3..5"));
            return;
        }
        checkEnds(kind, part, *low, *high, at);
    }
    std::optional<long long> const preset = numberOf(stringOf(field.valueComment.value));
    if (preset && !field.range.check(*preset)) {
        warn(at, "default", "the default " + std::to_string(*preset) + " is not in the range");
    }
}

/// A number that the range permits is cut where the type ends.
void Checker::checkEnds(Kind kind, std::string_view part, long long low, long long high, std::size_t at) {
    std::optional<IntegerEnds> const ends = endsOf(kind);
    if (ends && (low < ends->low || high > ends->high)) {
        warn(at, "range",
             inQuotes(part) + " goes beyond " + kindName(kind) + ", which is from " +
                 std::to_string(ends->low) + " to " + std::to_string(ends->high) + ": what is beyond is cut");
    }
}

void Checker::reachFrom(MetaClass const & cls, std::set<MetaClass const *> & reached,
                        std::deque<MetaClass const *> & next) const {
    auto const reach = [&](MetaClass const * found) {
        if (found != nullptr && reached.insert(found).second) {
            next.push_back(found);
        }
    };
    if (!cls.superName.empty()) {
        reach(findClass(cls.superName, &cls, factory_));
    }
    for (MetaField const & field : cls.fields) {
        Kind const kind = field.classType.type;
        if (!kinds::isSimple(kind) && kind != kinds::enum_) {
            reach(findClass(field.classType.name, &cls, factory_));
        }
    }
}

/// Where messages have codes, a class that none of them leads to is of no use on the wire.
void Checker::checkReach() {
    std::set<MetaClass const *> reached;
    std::deque<MetaClass const *> next;
    for (auto const & entry : factory_.code2class) {
        MetaClass const * const cls = factory_.findClass(entry.first);
        if (cls != nullptr && reached.insert(cls).second) {
            next.push_back(cls);
        }
    }
    if (next.empty()) {
        return;
    }
    for (; !next.empty(); next.pop_front()) {
        reachFrom(*next.front(), reached, next);
    }
    for (Top const & top : tops_) {
        if (top.cls != nullptr && top.cls->code.empty() &&
            reached.count(factory_.findClass(top.cls->className)) == 0) {
            warn(placeOf(*top.unit).name, "unreachable",
                 "no message leads to the class " + stringOf(top.cls->className) + ", and it has no code");
        }
    }
}

} // namespace

std::vector<std::string> const & checkRules() {
    static std::vector<std::string> const all = {
        "base-of-itself",  "bool",        "class-name",  "class-twice",   "code",
        "code-twice",      "default",     "directive",   "dropped",       "empty",
        "enum-empty",      "enum-member", "enum-number", "field-name",    "field-twice",
        "generators-only", "map-key",     "no-tag",      "pml",           "protected",
        "range",           "tag-range",   "tag-twice",   "unknown-class", "unknown-type",
        "unreachable",     "unseen-class"};
    return all;
}

std::vector<Finding> checkTemplate(std::string_view text, Watch const & watch) {
    // It is gone through thrice: to be read, to be loaded, and to be checked.
    constexpr std::size_t passes = 3;
    auto const pass = [&](std::size_t ahead) {
        return watch ? Watch([&watch, ahead](std::size_t done, std::size_t size) {
            watch((ahead * size + done) / passes, size);
        })
                     : Watch();
    };
    try {
        PmlText const units(text, pass(0));
        Checker checker(units, text);
        checker.run(pass(1), pass(2));
        std::vector<Finding> findings = checker.take();
        if (units.end() < text.size()) {
            findings.push_back(Finding{true, units.end(), "pml",
                                       text[units.end()] == ')' ? "a ) without a (: what follows is not read"
                                                                : "the template ends at this NUL"});
        }
        return findings;
    } catch (PmlFault const & fault) {
        return {Finding{true, fault.offset(), "pml", fault.words()}};
    }
}

} // namespace tool
} // namespace tav
