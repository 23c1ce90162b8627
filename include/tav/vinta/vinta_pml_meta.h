#ifndef TAV_VINTA_PML_META_H
#define TAV_VINTA_PML_META_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_codec.h"
#include "tav/vinta/vinta_basetypes_failures.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_pml_field_types.h"
#include "tav/vinta/vinta_pml_streams.h"
#include "tav/vinta/vinta_pml_tree.h"

#include <map>
#include <set>
#include <vector>

/// The meta model: message classes and enums described at run time by a template in PML.
///
///     Hello:object(
///         __class__(im.Hello)
///         __code__(1F01)
///         [1]user:string()
///         [2]seq:int64()
///         [4]mood:enum{Mood}(good(0) bad(1))
///     )
///
/// All records are plain values with public members.  Their io writes them out, so that a loaded model can be
/// dumped; IdName and ValueComment are read back from their text, in the others an input stream changes
/// nothing.
///
/// Thread safety: const operations of a shared one; else as any plain value.
namespace tav {
namespace pml {

/// The tag and the name of a field: `[3]tags`.
class TAV_API IdName : public tavCodecInterface {
public:
    IdName();
    /// Takes a leading `[id]` off: a decimal number, or one behind `0x`, `0b` or an octal 0, of which the low
    /// 16 bits count.  One that can't be read, or a decimal one that does not fit, counts as none.
    explicit IdName(tav_istr text);

    /// `[id]name`, or the name alone.
    tavString toString(bool withId) const;

    /// Writes one text: `[id]`, if there is one, and the name.
    void io(tavCodecStream & s) override;

    /// The tag on the wire; 0 if there is none.
    short id;
    tavString name;
};

/// A default value with the comment that stands behind it: `18{*years*}`.
class TAV_API ValueComment : public tavCodecInterface {
public:
    ValueComment();
    /// The comment begins at the first `{*`; the mask `{***}` is a value.
    explicit ValueComment(tav_istr text);

    /// Writes one text: the value, and `{*comment*}` if there is one.
    void io(tavCodecStream & s) override;

    tavString value;
    tavString comment;
};

/// One field of a class.
class TAV_API MetaField : public tavCodecInterface {
public:
    MetaField();
    /// Reads a field from its unit, with the template configuration `cfg`.  The unit's value is the default
    /// value, unless it has a form of its own: `true` and `false` make the field a bool, `null` makes it
    /// optional, `{***}` and `{.mask}` protect it, and `{1..9}` behind a value limits it.
    MetaField(Unit const & child, Unit const & cfg);

    /// Writes one text: `[1]name:type(value)`.
    void io(tavCodecStream & s) override;

    IdName idName;
    ClassType classType;
    /// The default value.
    ValueComment valueComment;
    /// The value must be masked where it is shown.
    bool isProtected;
    /// The mask of a protected field.
    tavString spec;
    /// The values that an enum field may hold.
    std::set<int> validValues;
    /// The numbers that the field may hold; every number if empty.
    tav::Range range;
};

/// An enum: the children of `values` are its members, by name and number.
class TAV_API MetaEnum : public tavCodecInterface {
public:
    MetaEnum();
    /// The children of `values` are shared, not copied.
    MetaEnum(tav_istr name, Unit const & values);

    /// Writes an object of the type `enum{name}` with one text for each child.
    void io(tavCodecStream & s) override;

    tavString name;
    Unit values;
};

/// A class with its fields and the classes and enums that are declared within it.
///
/// Classes nested to any depth are read, written, copied and destroyed in bounded stack.
class TAV_API MetaClass : public tavCodecInterface {
public:
    MetaClass();
    /// The children of `unit` are shared, not copied.
    MetaClass(MetaClass const & other);
    MetaClass(MetaClass && other) noexcept;
    MetaClass & operator=(MetaClass const & other);
    MetaClass & operator=(MetaClass && other) noexcept;
    ~MetaClass() override;

    /// Writes an object of the type `className`.
    void io(tavCodecStream & s) override;

    /// The first field of this name, of this class alone; null if there is none.  The result points into
    /// `fields`.
    MetaField const * findField(tav_istr name) const;

    /// The same by the field's tag.
    MetaField const * findField(short tag) const;

    /// The unit that the class was read from.
    Unit unit;
    /// The unit's name without its tag.
    tavString name;
    /// What the type text names: the class, the inner type, or a simple kind.
    tavString typeText;
    /// The name by which the class is found.
    tavString className;
    /// The name of the base class; empty if there is none.
    tavString superName;
    /// The message code as hexadecimal text; empty if there is none.
    tavString code;
    tavEnum<field_type::values> kind;
    /// Whether the kind is `list` or `ref_list`.
    bool isList;
    /// Whether the kind is `ref` or `ref_list`.
    bool isRef;
    /// Paths for generators of code.
    std::set<tavString> imports;
    std::vector<MetaClass> classes;
    std::vector<MetaEnum> enums;
    /// In the order of their declaration.
    std::vector<MetaField> fields;

private:
    /// Empty, but while classes end.
    std::vector<MetaClass> around_;
};

/// The classes and enums of a template, by name and by message code.  Loaded once, and then only read, by as
/// many threads as need be.  What the look-ups give points into the factory and lives as long as it does.
class TAV_API MetaFactory : public tavCodecInterface {
public:
    MetaFactory();
    /// Loads the unit of `in` and those that follow it, whose children it then shares.  A unit of the name
    /// `__global__` and a class without a class name are dropped; of two classes of one name the later
    /// stands.  Whatever the units hold, nothing is refused.
    explicit MetaFactory(PmlInputStream & in);

    /// Writes an object of the type `factory` with the three maps.
    void io(tavCodecStream & s) override;

    /// Null if there is none.
    MetaClass const * findClass(tav_istr name) const;

    /// Null if the code, or the class that it stands for, is unknown.
    MetaClass const * findClass(unsigned short code) const;

    /// Empty if the code is unknown.
    tavString findClassName(unsigned short code) const;

    /// Null if there is none.
    MetaEnum const * findEnum(tav_istr name) const;

    std::map<tavString, MetaEnum> enums;
    std::map<tavString, MetaClass> classes;
    std::map<unsigned short, tavString> code2class;
};

} // namespace pml
} // namespace tav

#endif
