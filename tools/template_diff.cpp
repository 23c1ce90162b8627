#include "tools/template_diff.h"

#include "tools/field_values.h"

#include <algorithm>
#include <deque>
#include <map>
#include <set>
#include <utility>

namespace tav {
namespace tool {

using pml::MetaClass;
using pml::MetaEnum;
using pml::MetaFactory;
using pml::MetaField;

namespace kinds = pml::field_type;

namespace {

/// A field as a class has it, which may come from a base.
typedef std::map<int, MetaField const *> Fields;

Fields fieldsOf(MetaClass const & cls, MetaFactory const & factory) {
    Fields fields;
    for (MetaClass const * const one : chainOf(cls, factory)) {
        for (MetaField const & field : one->fields) {
            fields.emplace(field.idName.id, &field);
        }
    }
    return fields;
}

MetaField const * byName(Fields const & fields, tavString const & name) {
    for (auto const & entry : fields) {
        if (entry.second->idName.name == name) {
            return entry.second;
        }
    }
    return nullptr;
}

bool isClass(Kind kind) {
    return kind == kinds::object_ || kind == kinds::ref_;
}

/// One side of the comparison: a class within its template.
struct Side {
    Template const * model;
    MetaClass const * cls;

    MetaClass const * classOf(MetaField const & field) const {
        return findClass(field.classType.name, cls, *model->factory);
    }
    ValueType typeOf(MetaField const & field, Kind kind) const {
        MetaEnum const * const names =
            kind == kinds::enum_ ? findEnum(field, *cls, *model->factory) : nullptr;
        return ValueType{kind, &field, names};
    }
};

/// The members of a field's enum, by name.
std::map<std::string, std::string> membersOf(MetaField const & field, Side const & side) {
    std::map<std::string, std::string> members;
    MetaEnum const * const names = side.typeOf(field, field.classType.type).names;
    if (names != nullptr) {
        for (tavSharedPtr<pml::Unit> const & member : names->values) {
            members.emplace(member->name(), member->value());
        }
    }
    return members;
}

class Comparison {
public:
    Comparison(Template const & before, Template const & after) : before_(before), after_(after) {}

    std::vector<Change> run(Watch const & watch);

private:
    void compareMessages();
    void compareMessage(MetaClass const & cls);
    void exchanged(MetaClass const & from, MetaClass const & to, unsigned short code);
    void added(MetaClass const & cls);
    void compareClasses(MetaClass const & from, MetaClass const & to, bool message);
    void compareFields(MetaField const & from, MetaField const & to, bool message);
    void compareTypes(MetaField const & from, Kind fromKind, MetaField const & to, Kind toKind,
                      Change & change);
    void compareShapes(MetaField const & from, MetaField const & to, Change & change);
    void compareKeys(MetaField const & from, MetaField const & to, Change & change);
    void moved(MetaField const & from, MetaField const & to);
    void gone(MetaField const & field, bool message);
    void come(MetaField const & field, bool message);

    Change about(MetaField const & field, bool inNew, std::string const & text) const;
    Change aboutClass(MetaClass const & cls, bool inNew, std::string const & text) const;
    static std::size_t placeOf(Template const & model, MetaClass const & cls, MetaField const * field);
    void report(Change change) { changes_.push_back(std::move(change)); }
    static void fails(Way & way, std::string const & why) {
        if (way.holds) {
            way = Way{false, why};
        }
    }

    struct Pair {
        MetaClass const * from;
        MetaClass const * to;
        bool message;
    };

    Template const & before_;
    Template const & after_;
    Side from_{};
    Side to_{};
    std::deque<Pair> next_;
    std::set<std::pair<MetaClass const *, MetaClass const *>> seen_;
    std::vector<Change> changes_;
};

/// The place of a class, or of its own field, in the text of the template.
std::size_t Comparison::placeOf(Template const & model, MetaClass const & cls, MetaField const * field) {
    std::size_t place = 0;
    std::size_t index = 0;
    for (tavSharedPtr<pml::Unit> const & child : cls.unit) {
        bool const directive = child->name().compare(0, 2, "__") == 0;
        std::size_t const at = model.units->place(*child).name;
        place = place == 0 ? at : place;
        if (!directive && index < cls.fields.size() && &cls.fields[index++] == field) {
            return at;
        }
    }
    return place;
}

Change Comparison::aboutClass(MetaClass const & cls, bool inNew, std::string const & text) const {
    Change change;
    change.className = stringOf(cls.className);
    change.text = text;
    change.inNew = inNew;
    change.offset = placeOf(inNew ? after_ : before_, cls, nullptr);
    return change;
}

Change Comparison::about(MetaField const & field, bool inNew, std::string const & text) const {
    Side const & side = inNew ? to_ : from_;
    Change change = aboutClass(*side.cls, inNew, text);
    change.className = stringOf(to_.cls->className);
    change.field = stringOf(field.idName.name);
    change.tag = field.idName.id;
    for (MetaClass const * const one : chainOf(*side.cls, *side.model->factory)) {
        if (one->findField(field.idName.name) == &field) {
            change.offset = placeOf(*side.model, *one, &field);
        }
    }
    return change;
}

std::vector<Change> Comparison::run(Watch const & watch) {
    compareMessages();
    std::size_t const classes = std::max<std::size_t>(1, before_.factory->classes.size());
    while (!next_.empty()) {
        Pair const pair = next_.front();
        next_.pop_front();
        if (watch) {
            std::size_t const done = std::min(seen_.size(), classes);
            watch(before_.text.size() * done / classes, before_.text.size());
        }
        // Messages come first, so that a class that is one is compared as one.
        if (seen_.emplace(pair.from, pair.to).second) {
            compareClasses(*pair.from, *pair.to, pair.message);
        }
    }
    std::stable_sort(changes_.begin(), changes_.end(), [](Change const & a, Change const & b) {
        return a.inNew != b.inNew ? a.inNew : a.offset < b.offset;
    });
    return std::move(changes_);
}

void Comparison::compareMessages() {
    for (auto const & entry : before_.factory->classes) {
        compareMessage(entry.second);
    }
    for (auto const & entry : after_.factory->classes) {
        added(entry.second);
    }
}

void Comparison::compareMessage(MetaClass const & cls) {
    unsigned short code = 0;
    bool const isMessage = readCode(viewOf(tav_istr(cls.code)), code) && code != 0xFFFF;
    MetaClass const * const sameCode = isMessage ? after_.factory->findClass(code) : nullptr;
    MetaClass const * const sameName = after_.factory->findClass(cls.className);
    if (isMessage && before_.factory->findClass(code) != &cls && sameName != nullptr &&
        sameName->code == cls.code) {
        // Another class of the same code hides it, and goes over the wire.
        next_.push_back(Pair{&cls, sameName, true});
        return;
    }
    if (sameCode != nullptr) {
        bool const other = sameCode->className != cls.className;
        if (other && (sameName != nullptr || before_.factory->findClass(sameCode->className) != nullptr)) {
            exchanged(cls, *sameCode, code);
            if (sameName != nullptr) {
                next_.push_back(Pair{&cls, sameName, true});
            }
            return;
        }
        if (other) {
            report(aboutClass(*sameCode, true,
                              "the class " + stringOf(cls.className) + " has another name now"));
        }
        next_.push_front(Pair{&cls, sameCode, true});
        return;
    }
    if (isMessage) {
        Change change = aboutClass(sameName != nullptr ? *sameName : cls, sameName != nullptr, "");
        unsigned short other = 0;
        bool const hasCode =
            sameName != nullptr && readCode(viewOf(tav_istr(sameName->code)), other) && other != 0xFFFF;
        change.text = sameName == nullptr ? "the message is removed"
                      : hasCode           ? "the code " + codeText(code) + " becomes " + codeText(other)
                                          : "the code " + codeText(code) + " is removed";
        fails(change.oldToNew, "no class has the code " + codeText(code));
        MetaClass const * const there = hasCode ? before_.factory->findClass(other) : nullptr;
        if (hasCode && there != sameName) {
            fails(change.newToOld, there == nullptr ? "no class has the code " + codeText(other)
                                                    : "it is read as " + stringOf(there->className));
        }
        report(change);
    }
    if (sameName != nullptr) {
        next_.push_back(Pair{&cls, sameName, isMessage});
    } else if (!isMessage) {
        report(aboutClass(cls, false, "the class is removed"));
    }
}

/// The code means another class, and is not that of this one under a new name.
void Comparison::exchanged(MetaClass const & from, MetaClass const & to, unsigned short code) {
    std::string const was = stringOf(from.className);
    std::string const is = stringOf(to.className);
    Change change = aboutClass(to, true, "the code " + codeText(code) + " was that of " + was);
    fails(change.oldToNew, was + " is read as " + is);
    fails(change.newToOld, is + " is read as " + was);
    report(change);
}

void Comparison::added(MetaClass const & cls) {
    unsigned short code = 0;
    bool const isMessage = readCode(viewOf(tav_istr(cls.code)), code) && code != 0xFFFF;
    bool const known = before_.factory->findClass(cls.className) != nullptr;
    if (isMessage && before_.factory->findClass(code) == nullptr) {
        MetaClass const * const old = before_.factory->findClass(cls.className);
        unsigned short oldCode = 0;
        if (old != nullptr && readCode(viewOf(tav_istr(old->code)), oldCode) && oldCode != 0xFFFF &&
            after_.factory->findClass(oldCode) == nullptr) {
            return; // Told as a changed code.
        }
        Change change = aboutClass(
            cls, true, known ? "the code " + codeText(code) + " is added" : "the message is added");
        fails(change.newToOld, "no class has the code " + codeText(code));
        report(change);
    } else if (!isMessage && !known) {
        report(aboutClass(cls, true, "the class is added"));
    }
}

void Comparison::compareClasses(MetaClass const & from, MetaClass const & to, bool message) {
    from_ = Side{&before_, &from};
    to_ = Side{&after_, &to};
    Fields const old = fieldsOf(from, *before_.factory);
    Fields const now = fieldsOf(to, *after_.factory);
    for (auto const & entry : old) {
        auto const same = now.find(entry.first);
        MetaField const * const named = byName(now, entry.second->idName.name);
        if (named != nullptr && named->idName.id != entry.first) {
            moved(*entry.second, *named);
        } else if (same == now.end()) {
            gone(*entry.second, message);
        } else if (byName(old, same->second->idName.name) == nullptr ||
                   byName(old, same->second->idName.name) == entry.second) {
            compareFields(*entry.second, *same->second, message);
        } else {
            gone(*entry.second, message);
        }
    }
    for (auto const & entry : now) {
        if (old.count(entry.first) == 0 && byName(old, entry.second->idName.name) == nullptr) {
            come(*entry.second, message);
        }
    }
}

void Comparison::moved(MetaField const & from, MetaField const & to) {
    std::string const tags =
        "the tag " + std::to_string(from.idName.id) + " becomes " + std::to_string(to.idName.id);
    Change change = about(to, true, tags);
    fails(change.oldToNew, "the value is read under another name, or not at all");
    fails(change.newToOld, "the value is read under another name, or not at all");
    report(change);
}

void Comparison::gone(MetaField const & field, bool message) {
    Change change = about(field, false, "the field is removed");
    if (message && isNecessary(field)) {
        fails(change.newToOld, "the field is missing, and is necessary");
    }
    report(change);
}

void Comparison::come(MetaField const & field, bool message) {
    Change change = about(field, true, "the field is added");
    if (message && isNecessary(field)) {
        fails(change.oldToNew, "the field is missing, and is necessary");
    }
    report(change);
}

void Comparison::compareFields(MetaField const & from, MetaField const & to, bool message) {
    Change change;
    auto const say = [&change](std::string const & text) {
        change.text += (change.text.empty() ? "" : "; ") + text;
    };
    if (from.idName.name != to.idName.name) {
        say("the name " + stringOf(from.idName.name) + " becomes " + stringOf(to.idName.name));
    }
    if (typeText(from) != typeText(to)) {
        say(typeText(from) + " becomes " + typeText(to));
    }
    compareShapes(from, to, change);
    if (change.text.empty() &&
        (change.effect() != Effect::compatible || from.validValues != to.validValues)) {
        say("other values are permitted");
    } else if (membersOf(from, from_) != membersOf(to, to_)) {
        say("members of the enum have other names");
    }
    if (message && isNecessary(from) != isNecessary(to)) {
        Way & way = isNecessary(to) ? change.oldToNew : change.newToOld;
        fails(way, "the field may be missing, and is necessary there");
    }
    if (from.valueComment.value != to.valueComment.value) {
        say("the default \"" + stringOf(from.valueComment.value) + "\" becomes \"" +
            stringOf(to.valueComment.value) + "\"");
    }
    if (from.isProtected != to.isProtected || from.spec != to.spec) {
        say(to.isProtected ? "it is masked otherwise" : "it is not masked any more");
    }
    if (!change.text.empty()) {
        // The place is looked for where something is to be told alone.
        Change told = about(to, true, change.text);
        told.oldToNew = change.oldToNew;
        told.newToOld = change.newToOld;
        report(std::move(told));
    }
}

void Comparison::compareShapes(MetaField const & from, MetaField const & to, Change & change) {
    Kind const fromKind = from.classType.type;
    Kind const toKind = to.classType.type;
    if (fromKind == kinds::list_ && toKind == kinds::list_) {
        compareTypes(from, from.classType.elementType, to, to.classType.elementType, change);
    } else if (fromKind == kinds::map_ && toKind == kinds::map_) {
        compareKeys(from, to, change);
        compareTypes(from, from.classType.elementType, to, to.classType.elementType, change);
    } else {
        compareTypes(from, fromKind, to, toKind, change);
    }
}

void Comparison::compareKeys(MetaField const & from, MetaField const & to, Change & change) {
    // Keys are held to no range.
    MetaField const unlimited;
    ValueType const old{from.classType.keyType, &unlimited, nullptr};
    ValueType const now{to.classType.keyType, &unlimited, nullptr};
    std::string why;
    if (!isCarried(old, now, why)) {
        fails(change.oldToNew, "of the keys " + why);
    }
    if (!isCarried(now, old, why)) {
        fails(change.newToOld, "of the keys " + why);
    }
}

void Comparison::compareTypes(MetaField const & from, Kind fromKind, MetaField const & to, Kind toKind,
                              Change & change) {
    if (isClass(fromKind) && isClass(toKind)) {
        MetaClass const * const old = from_.classOf(from);
        MetaClass const * const now = to_.classOf(to);
        if (old != nullptr && now != nullptr) {
            next_.push_back(Pair{old, now, false});
        } else if (old != nullptr) {
            fails(change.oldToNew, "there is no class " + stringOf(to.classType.name));
        } else if (now != nullptr) {
            fails(change.newToOld, "there is no class " + stringOf(from.classType.name));
        }
        return;
    }
    bool const simple = (kinds::isSimple(fromKind) || fromKind == kinds::enum_) &&
                        (kinds::isSimple(toKind) || toKind == kinds::enum_);
    if (!simple) {
        if (fromKind != toKind || from.classType.name != to.classType.name) {
            fails(change.oldToNew, "what is written in the one form is not read in the other");
            fails(change.newToOld, "what is written in the one form is not read in the other");
        }
        return;
    }
    ValueType const old = from_.typeOf(from, fromKind);
    ValueType const now = to_.typeOf(to, toKind);
    std::string why;
    if (!isCarried(old, now, why)) {
        fails(change.oldToNew, why);
    }
    if (!isCarried(now, old, why)) {
        fails(change.newToOld, why);
    }
}

} // namespace

char const * effectName(Effect effect) {
    return effect == Effect::compatible ? "compatible" : effect == Effect::oneWay ? "one way" : "breaking";
}

std::vector<Change> compareTemplates(Template const & before, Template const & after, Watch const & watch) {
    return Comparison(before, after).run(watch);
}

} // namespace tool
} // namespace tav
