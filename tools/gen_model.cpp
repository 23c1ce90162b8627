#include "tools/gen_model.h"

#include "tools/failure.h"
#include "tools/template_check.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>
#include <set>

namespace tav {
namespace tool {

using pml::MetaClass;
using pml::MetaField;
using pml::Unit;

namespace kinds = pml::field_type;

namespace {

bool isDirective(Unit const & unit) {
    return unit.name().compare(0, 2, "__") == 0;
}

bool sameMembers(GenEnum const & a, GenEnum const & b) {
    return a.preset == b.preset &&
           std::equal(a.members.begin(), a.members.end(), b.members.begin(), b.members.end(),
                      [](GenEnum::Member const & x, GenEnum::Member const & y) {
                          return x.name == y.name && x.number == y.number;
                      });
}

bool namesClass(Kind kind) {
    return kind == kinds::object_ || kind == kinds::ref_;
}

/// Finds the classes that hold each other: the strongly connected ones.
class Knots {
public:
    explicit Knots(std::vector<GenClass> & classes)
        : classes_(classes),
          held_(classes.size()),
          number_(classes.size(), none),
          low_(classes.size(), none),
          next_(classes.size()),
          waiting_(classes.size()) {}

    void find() {
        for (std::size_t i = 0; i < classes_.size(); ++i) {
            held_[i] = heldBy(i);
        }
        for (std::size_t i = 0; i < classes_.size(); ++i) {
            if (number_[i] == none) {
                walk(i);
            }
        }
    }

private:
    std::vector<std::size_t> heldBy(std::size_t index) {
        std::vector<std::size_t> held;
        GenClass & cls = classes_[index];
        if (cls.base != none) {
            held.push_back(cls.base);
        }
        for (GenField const & field : cls.fields) {
            if (field.cls != none) {
                held.push_back(field.cls);
                cls.holdsItself = cls.holdsItself || field.cls == index;
            }
        }
        return held;
    }

    void enter(std::size_t index) {
        number_[index] = low_[index] = count_++;
        open_.push_back(index);
        stack_.push_back(index);
        waiting_[index] = true;
    }

    void walk(std::size_t first) {
        enter(first);
        while (!open_.empty()) {
            std::size_t const at = open_.back();
            if (next_[at] < held_[at].size()) {
                std::size_t const to = held_[at][next_[at]++];
                if (number_[to] == none) {
                    enter(to);
                } else if (waiting_[to]) {
                    low_[at] = std::min(low_[at], number_[to]);
                }
                continue;
            }
            open_.pop_back();
            if (!open_.empty()) {
                low_[open_.back()] = std::min(low_[open_.back()], low_[at]);
            }
            if (low_[at] == number_[at]) {
                tie(at);
            }
        }
    }

    void tie(std::size_t root) {
        bool const several = stack_.back() != root;
        for (std::size_t index = none; index != root;) {
            index = stack_.back();
            stack_.pop_back();
            waiting_[index] = false;
            classes_[index].knot = root;
            classes_[index].isKnotted = several;
            classes_[index].holdsItself = classes_[index].holdsItself || several;
        }
    }

    std::vector<GenClass> & classes_;
    std::vector<std::vector<std::size_t>> held_;
    std::vector<std::size_t> number_;
    std::vector<std::size_t> low_;
    std::vector<std::size_t> next_;
    std::vector<bool> waiting_;
    std::vector<std::size_t> open_;
    std::vector<std::size_t> stack_;
    std::size_t count_ = 0;
};

class Maker {
public:
    explicit Maker(Template const & source) : source_(source) { model_.source = &source; }

    GenModel make();

private:
    std::size_t classAt(MetaClass const & meta, std::size_t offset);
    void readClass(std::size_t index);
    GenField readField(MetaClass const & cls, MetaField const & field, Unit const & unit);
    std::size_t enumOf(MetaClass const & cls, MetaField const & field, Unit const & members);
    void settleMessages();
    std::size_t placeOf(Unit const & unit) const { return source_.units->place(unit).name; }

    Template const & source_;
    GenModel model_;
    std::map<MetaClass const *, std::size_t> known_;
};

GenModel Maker::make() {
    for (Unit const * unit = source_.units->first().get(); unit != nullptr; unit = unit->next().get()) {
        Unit alone(*unit);
        alone.next(tavSharedPtr<Unit>());
        pml::PmlInputStream in(alone);
        pml::MetaFactory const one(in);
        if (!one.classes.empty()) {
            classAt(*source_.factory->findClass(one.classes.begin()->first), placeOf(*unit));
        }
    }
    // Reading a class adds those that are declared within it.
    for (std::size_t i = 0; i < model_.classes.size(); ++i) {
        readClass(i);
    }
    settleMessages();
    Knots(model_.classes).find();
    return std::move(model_);
}

/// The index of a class, which is added if it is new.
std::size_t Maker::classAt(MetaClass const & meta, std::size_t offset) {
    auto const entry = known_.emplace(&meta, model_.classes.size());
    if (entry.second) {
        GenClass cls;
        cls.name = stringOf(meta.className);
        cls.meta = &meta;
        cls.offset = offset;
        cls.hasCode = readCode(viewOf(tav_istr(meta.code)), cls.code) && cls.code != 0xFFFF;
        model_.classes.push_back(std::move(cls));
    }
    return entry.first->second;
}

void Maker::readClass(std::size_t index) {
    MetaClass const & meta = *model_.classes[index].meta;
    std::vector<MetaClass const *> const chain = chainOf(meta, *source_.factory);
    if (chain.size() > 1) {
        std::size_t const base = classAt(*chain[1], model_.classes[index].offset);
        model_.classes[index].base = base;
    }
    std::vector<Unit const *> units;
    for (tavSharedPtr<Unit> const & child : meta.unit) {
        if (!isDirective(*child)) {
            units.push_back(child.get());
        }
    }
    for (std::size_t i = 0; i < meta.fields.size() && i < units.size(); ++i) {
        GenField field = readField(meta, meta.fields[i], *units[i]);
        model_.classes[index].fields.push_back(std::move(field));
    }
}

/// What stands between the braces behind the default; empty if nothing does.
std::string rangeText(std::string const & value) {
    std::string const text = value.substr(0, value.find("{*"));
    std::size_t const open = text.find('{');
    std::size_t const close = text.find('}', open);
    return open == std::string::npos || close == std::string::npos ? std::string()
                                                                   : text.substr(open + 1, close - open - 1);
}

/// The first child that declares something: of a list or map its element.
Unit const & elementOf(Unit const & unit) {
    for (tavSharedPtr<Unit> const & child : unit) {
        if (!isDirective(*child)) {
            return *child;
        }
    }
    return unit;
}

GenField Maker::readField(MetaClass const & cls, MetaField const & meta, Unit const & unit) {
    GenField field;
    field.name = stringOf(meta.idName.name);
    field.tag = meta.idName.id;
    field.kind = meta.classType.type;
    field.element = meta.classType.elementType;
    field.key = meta.classType.keyType;
    field.optional = meta.classType.optional;
    field.isProtected = meta.isProtected;
    field.mask = stringOf(meta.spec);
    field.comment = stringOf(meta.valueComment.comment);
    field.offset = placeOf(unit);
    if (field.kind == kinds::ref_list_) {
        field.element = kinds::ref_;
    }
    if (unit.simple()) {
        field.preset = stringOf(meta.valueComment.value);
        field.range = field.isProtected ? std::string() : rangeText(unit.value());
    }
    Kind const kind = field.valueKind();
    if (namesClass(kind)) {
        MetaClass const * const found = findClass(meta.classType.name, &cls, *source_.factory);
        field.cls = found == nullptr ? none : classAt(*found, field.offset);
    } else if (kind == kinds::enum_) {
        Unit const & members = field.isContainer() ? elementOf(unit) : unit;
        field.enumeration = enumOf(cls, meta, members);
    }
    return field;
}

/// The index of an enum, which is added if none has its name and its members.
std::size_t Maker::enumOf(MetaClass const & cls, MetaField const & field, Unit const & members) {
    GenEnum made;
    made.name = stringOf(field.classType.name);
    if (made.name.empty() || made.name == "enum") {
        made.name = stringOf(field.idName.name);
        made.name.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(made.name.front())));
    }
    made.around = stringOf(cls.className);
    made.offset = placeOf(members);
    std::string const preset = members.child("__default__").value();
    std::size_t chosen = none;
    for (tavSharedPtr<Unit> const & member : members) {
        if (isDirective(*member)) {
            continue;
        }
        int const number = static_cast<int>(Unit(tav_istr(), istrOf(member->value())).asInt64Value());
        bool const better = member->name() == preset || (preset.empty() && number == 0);
        chosen = chosen == none && better ? made.members.size() : chosen;
        made.members.push_back(GenEnum::Member{member->name(), number, placeOf(*member)});
    }
    made.preset = made.members.empty() ? 0 : made.members[chosen == none ? 0 : chosen].number;
    for (std::size_t i = 0; i < model_.enums.size(); ++i) {
        if (model_.enums[i].name == made.name && sameMembers(model_.enums[i], made)) {
            return i;
        }
    }
    model_.enums.push_back(std::move(made));
    return model_.enums.size() - 1;
}

/// A class is a message if it has a code, if one of its bases is a message, or if a message derives from it.
void Maker::settleMessages() {
    std::vector<GenClass> & classes = model_.classes;
    for (GenClass & cls : classes) {
        cls.message = cls.hasCode;
    }
    for (bool changed = true; changed;) {
        changed = false;
        for (GenClass & cls : classes) {
            if (cls.base != none && cls.message != classes[cls.base].message) {
                cls.message = true;
                classes[cls.base].message = true;
                changed = true;
            }
        }
    }
}

} // namespace

std::string GenModel::title() const {
    std::string const & name = source->name;
    std::string file = name.substr(name.rfind('/') + 1);
    std::replace_if(
        file.begin(), file.end(), [](char c) { return static_cast<unsigned char>(c) < 32 || c == 127; }, '_');
    return file.empty() || file == "<stdin>" ? "template" : file;
}

std::vector<GenField const *> GenModel::fieldsOf(std::size_t cls) const {
    std::vector<GenField const *> fields;
    for (std::size_t at = cls; at != none; at = classes[at].base) {
        for (GenField const & field : classes[at].fields) {
            fields.push_back(&field);
        }
    }
    std::sort(fields.begin(), fields.end(),
              [](GenField const * a, GenField const * b) { return a->name < b->name; });
    return fields;
}

std::vector<std::size_t> GenModel::inOrder() const {
    std::vector<std::vector<std::size_t>> ahead(classes.size());
    for (std::size_t i = 0; i < classes.size(); ++i) {
        if (classes[i].base != none) {
            ahead[i].push_back(classes[i].base);
        }
        for (GenField const & field : classes[i].fields) {
            if (field.cls != none && classes[field.cls].knot != classes[i].knot) {
                ahead[i].push_back(field.cls);
            }
        }
    }
    std::vector<std::size_t> order;
    std::vector<std::size_t> next(classes.size());
    std::vector<bool> seen(classes.size());
    for (std::size_t i = 0; i < classes.size(); ++i) {
        std::vector<std::size_t> open;
        if (!seen[i]) {
            seen[i] = true;
            open.push_back(i);
        }
        while (!open.empty()) {
            std::size_t const at = open.back();
            if (next[at] == ahead[at].size()) {
                order.push_back(at);
                open.pop_back();
                continue;
            }
            std::size_t const before = ahead[at][next[at]++];
            if (!seen[before]) {
                seen[before] = true;
                open.push_back(before);
            }
        }
    }
    return order;
}

GenModel makeModel(Template const & source) {
    std::string wrong;
    for (Finding const & finding : checkTemplate(source.text)) {
        if (finding.error) {
            wrong += source.told(finding.offset, "error", finding.text + " [" + finding.rule + "]");
        }
    }
    if (!wrong.empty()) {
        throw Failure(exitFound, wrong);
    }
    return Maker(source).make();
}

} // namespace tool
} // namespace tav
