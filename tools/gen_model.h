#ifndef TAV_TOOLS_GEN_MODEL_H
#define TAV_TOOLS_GEN_MODEL_H

#include "tools/templates.h"

#include <cstddef>
#include <string>
#include <vector>

namespace tav {
namespace tool {

/// None of a list.
constexpr std::size_t none = ~std::size_t(0);

/// An enum with its members in the order of the template.
struct GenEnum {
    struct Member {
        std::string name;
        int number = 0;
        std::size_t offset = 0;
    };

    std::string name;
    /// The class that first declares it.
    std::string around;
    std::vector<Member> members;
    /// The number of a new value: that of the default member, else 0 if that is one, else the first.
    int preset = 0;
    std::size_t offset = 0;
};

/// A field with all that it means.
struct GenField {
    std::string name;
    int tag = 0;
    /// A simple kind, enum_, object_, ref_, list_, ref_list_ or map_.
    Kind kind = pml::field_type::unknown_;
    /// Of a list or map.
    Kind element = pml::field_type::unknown_;
    /// Of a map.
    Kind key = pml::field_type::unknown_;
    /// The class or the enum of the field or of its elements.
    std::size_t cls = none;
    std::size_t enumeration = none;
    bool optional = false;
    bool isProtected = false;
    std::string mask;
    /// "0..150"; empty if every number is permitted.
    std::string range;
    /// The default as the template has it.
    std::string preset;
    std::string comment;
    std::size_t offset = 0;

    bool isContainer() const {
        return kind == pml::field_type::list_ || kind == pml::field_type::ref_list_ ||
               kind == pml::field_type::map_;
    }
    /// The kind of the field, or of the elements of a list or map.
    Kind valueKind() const { return isContainer() ? element : kind; }
    bool necessary() const { return !optional && !isContainer(); }
};

struct GenClass {
    std::string name;
    bool hasCode = false;
    unsigned short code = 0xFFFF;
    /// What of its family has a code: it is a message, if only without a code of its own.
    bool message = false;
    std::size_t base = none;
    /// Its own fields in the order of the template.
    std::vector<GenField> fields;
    std::size_t offset = 0;
    pml::MetaClass const * meta = nullptr;
    /// Classes whose objects can hold each other, to any depth or as bases, have one number.
    std::size_t knot = 0;
    /// Whether its objects can hold objects of the class itself, and whether that takes several classes.
    bool holdsItself = false;
    bool isKnotted = false;
};

/// The classes and enums of a template, in its order; those that are declared within a field stand behind all
/// others.
struct GenModel {
    Template const * source = nullptr;
    std::vector<GenClass> classes;
    std::vector<GenEnum> enums;

    /// The file's name on one line, without its folders; "template" of the standard input.
    std::string title() const;
    /// The class's fields and those of its bases, in the order of their names, in which a template's encoder
    /// has them.
    std::vector<GenField const *> fieldsOf(std::size_t cls) const;
    /// The classes that others are made of ahead of these: their bases, and what they hold but not what holds
    /// them.
    std::vector<std::size_t> inOrder() const;
};

/// Throws a Failure with all that is wrong in the template, as `tav check` tells it.
GenModel makeModel(Template const & source);

} // namespace tool
} // namespace tav

#endif
