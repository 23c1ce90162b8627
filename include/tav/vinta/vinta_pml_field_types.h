#ifndef TAV_VINTA_PML_FIELD_TYPES_H
#define TAV_VINTA_PML_FIELD_TYPES_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_codec.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_locks.h"
#include "tav/vinta/vinta_pml_unit.h"

#include <map>
#include <vector>

/// The type language of the meta model: the kinds of fields, their names and aliases, and the record that a
/// type text such as `list{string}` or `int32?[4]` is parsed into.
namespace tav {
namespace pml {
namespace field_type {

/// The kinds.  Each is named as its enumerator without the underscore.  Those up to `time_` are simple; the
/// others have an inner type or an inner class.
enum values {
    bool_ = 0,
    /// The integers have their width in bits, with a sign or (`uint...`) without.
    int8_ = 1,
    int16_ = 2,
    int32_ = 3,
    int64_ = 4,
    uint8_ = 5,
    uint16_ = 6,
    uint32_ = 7,
    uint64_ = 8,
    float_ = 9,
    double_ = 10,
    /// A narrow and a wide character.
    char_ = 11,
    wchar_ = 12,
    string_ = 13,
    wstring_ = 14,
    u8string_ = 15,
    bytes_ = 16,
    time_ = 17,
    /// Travels as an `int32_`.
    enum_ = 18,
    /// Makes the inner type optional.
    optional_ = 19,
    union_ = 20,
    /// A class held by value, and one held by reference.
    object_ = 21,
    ref_ = 22,
    array_ = 23,
    array2d_ = 24,
    array3d_ = 25,
    list_ = 26,
    ref_list_ = 27,
    map_ = 28,
    /// No type.
    null_ = 126,
    /// Not yet set: what every default tavEnum<values> holds.
    unknown_ = 127
};

} // namespace field_type
} // namespace pml

template <>
struct TAV_API EnumDefault<pml::field_type::values> {
    static constexpr int value = pml::field_type::unknown_;
};

namespace pml {
namespace field_type {

/// Whether a kind is simple: it has neither an inner type nor an inner class.
constexpr bool isSimple(int kind) {
    return kind <= time_;
}

/// What an alias stands for.  An optional one makes the type that it names optional.
struct TAV_API AliasValue {
    values value;
    bool optional;
};

/// Making one registers the names of the kinds and the aliases that come with the library.  Only the first
/// one has something to do, so that one may be made wherever they are needed.  What parses or prints type
/// texts, and addAlias, make one for themselves.
///
/// Thread safety: all operations; whoever uses the map of `aliases()` holds `mtx()` meanwhile.
class TAV_API Initializer {
public:
    Initializer();

    /// Adds an alias, or replaces the one of that name, which may be one of the library's.
    static void addAlias(tavString name, values value, bool optional);

    /// All aliases by name.  The map lives as long as the process.
    static std::map<tavString, AliasValue> & aliases();

    /// Guards the map of aliases.
    static tavMutex & mtx();
};

/// The same as the operations of Initializer.
TAV_API void addAlias(tavString name, values value, bool optional);
TAV_API std::map<tavString, AliasValue> & aliases();
TAV_API tavMutex & mtx();

/// The name of a kind in the target language: the value of the child of `cfg.types` that is named as the
/// kind.  With `optional` the child named as the kind with a `?` behind it comes first; if there is that one,
/// `*missing` becomes false, unless `missing` is null.  Without either the kind's own name, and a line at
/// VERBOSE if `cfg` is not empty.
TAV_API tavString getTypeName(values kind, Unit const & cfg, bool optional, bool * missing);

} // namespace field_type

/// A type.  A plain value: distinct objects may be used by distinct threads.
///
/// A type text begins with the name of a kind or an alias, which may be followed by an inner text between
/// braces, then `?` for an optional type, then the dimensions, each between brackets.  Names are matched as
/// prefixes, the kinds in ascending order of their names ahead of the aliases in theirs, and what begins like
/// a kind is of that kind: `stringList` is a `string`.  A name of a kind that is not simple, without braces,
/// is cut off ahead of the further search: `listing` ends as a class named `ing`.  What is no kind is the
/// name of a class.
///
/// Texts of any depth of nesting are parsed in bounded stack and in time proportional to their length.
class TAV_API ClassType : public tavCodecInterface {
public:
    /// The kind is `unknown`.
    ClassType();

    /// Takes `name` as the text to parse; nothing is parsed, and the kind is `string`.
    ClassType(tav_istr name, bool optional);

    /// Parses `text`; a type that comes out as an `object` becomes a `ref` with isRef.
    ClassType(tav_istr text, Unit const & cfg);

    /// Of these parts; nothing is parsed.
    ClassType(tav_istr name, tav_istr keyName, bool optional, field_type::values type,
              field_type::values elementType);

    /// Parses the text that `name` holds.  False if it begins with no kind and no alias: the kind is then
    /// `object`, and `name` what is left of the text, the name of a class.
    ///
    /// Language names are looked up in `cfg` as by getTypeName.  Its child `objectIsReference`, if it is
    /// true, gives the simple types within a map their optional form.  A map without a comma is told to the
    /// log at ERROR and has neither key nor element.
    bool parse(Unit const & cfg);

    /// Tries one candidate: whether the text that `name` holds begins with `prefix` and is, behind it, a text
    /// of this kind.  If it is, `name` and the other parts are set.  If it begins with `prefix` only, the
    /// answer is false, but the prefix was cut off and `type` was set.
    bool check(tav_istr prefix, field_type::values kind, Unit const & cfg);

    /// Writes the type as one text.  Inner types below the first are not kept, so the text need not give the
    /// same type again.  An input stream changes nothing.
    void io(tavCodecStream & s) override;

    tavEnum<field_type::values> type;
    /// The language name of a simple kind, else the name of the inner class or inner type.
    tavString name;
    /// Of a map, the name of its key's type.
    tavString keyName;
    bool optional;
    /// The inner class is held by reference.
    bool isRef;
    /// What stands between the brackets, the rightmost pair first.
    std::vector<tavString> dimensions;
    /// The kind of a list's or a map's elements, if it is known.
    tavEnum<field_type::values> elementType;
    /// The kind of a map's keys.
    tavEnum<field_type::values> keyType;
};

} // namespace pml
} // namespace tav

#endif
