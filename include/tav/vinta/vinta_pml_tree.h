#ifndef TAV_VINTA_PML_TREE_H
#define TAV_VINTA_PML_TREE_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_basetypes_codec.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_basetypes_time.h"
#include "tav/vinta/vinta_locks.h"

#include <atomic>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

/// PML, a parenthesised text markup: `name:type(value)`, where a value is text or further units.
///
///     person(name:string(Ann) age:int32(30) addr(city(Oslo)))
namespace tav {
namespace pml {

/// True for the caret and the two quotes: a caret goes ahead of each inside a quoted text.
TAV_API bool isEscapeChar(char c);

/// True for the bytes that a text may hold only between quotes: : ( ) * ^ " '
TAV_API bool isSpecialChar(char c);

/// Appends `text` to `out` as a value is written: between double quotes, with carets, if it begins or ends
/// with a blank or holds a special byte, else as it stands.  An empty text appends nothing.
TAV_API void escape(std::string & out, tav_istr const & text);

/// Appends `text` to `out` without its quotes and carets, if it begins and ends with the same quote, else as
/// it stands.  A caret ahead of the closing quote is dropped.
TAV_API void unescape(std::string & out, tav_istr const & text);

/// One unit of a PML tree: a name, an optional type, and a text value or children (or both).
///
/// Children are held by counted pointers and may be shared between trees; a copy shares children and
/// successor with its original.  Trees of any depth and sequences of any length are read, written and
/// destroyed in bounded stack.
///
/// A unit has no lock: a tree that is being changed belongs to one thread.  Any number of threads may call
/// the const operations of a tree that nobody changes.
class TAV_API Unit : public tavRefCountObject {
public:
    typedef std::vector<tavSharedPtr<Unit>>::const_iterator const_iterator;
    typedef std::multimap<std::string, tavSharedPtr<Unit>>::const_iterator map_iterator;

    Unit();
    explicit Unit(int id);
    explicit Unit(tav_istr name);
    Unit(tav_istr name, tav_istr value);
    Unit(tav_istr name, tav_istr type, tav_istr value);

    /// Children and successor are shared, not copied.
    Unit(Unit const & other);
    Unit & operator=(Unit const & other);

    /// Take all that `other` holds and leave it as a new unit, unless it is this one.  Its children keep
    /// their places in memory, and the counts of both units stay.
    Unit(Unit && other) noexcept;
    Unit & operator=(Unit && other) noexcept;
    ~Unit() override;

    std::string & name();
    std::string & type();
    std::string & value();
    std::string const & name() const;
    std::string const & type() const;
    std::string const & value() const;

    /// Written in the full form only; set by child(name, alternative, id).
    std::string const & comment() const;

    Unit & name(tav_istr v);
    Unit & type(tav_istr v);
    Unit & value(tav_istr v);

    /// A number of the caller's choosing, 0 by default; written in the full form only.
    int id() const;
    Unit & id(int v);

    /// The first child that was entered under this name; if there is none, a new one is made.
    Unit & child(tav_istr name);
    Unit & operator[](tav_istr name);
    Unit & operator()(tav_istr name);

    /// The first child that was entered under this name, else the null unit.
    Unit const & child(tav_istr name) const;
    Unit const & operator[](tav_istr name) const;
    Unit const & operator()(tav_istr name) const;

    /// The child named `alternative`, whose comment becomes `name`; with an empty `alternative` the child
    /// named `name`.  Its id becomes `id`.
    Unit & child(tav_istr name, tav_istr alternative, int id);

    /// The child named `alternative`, or `name` if `alternative` is empty, else the null unit.
    Unit const & child(tav_istr name, tav_istr alternative, int id) const;

    bool hasChild(tav_istr name) const;

    /// The first child that was entered under this name, else a null pointer.
    tavSharedPtr<Unit> find(tav_istr name);
    tavSharedPtr<Unit> find(tav_istr name) const;

    /// The child at this place in order of arrival, else the null unit.
    Unit const & at(unsigned i) const;

    /// The same, else a null pointer.
    tavSharedPtr<Unit> findAt(unsigned i) const;

    /// A copy of the list of children, in order of arrival.
    std::vector<tavSharedPtr<Unit>> children() const;

    /// All children that were entered under this name, in order of arrival.
    std::vector<tavSharedPtr<Unit>> children(tav_istr name) const;

    /// The same as a pair of iterators, valid until the unit is changed.
    std::pair<map_iterator, map_iterator> child_equal_range(tav_istr name) const;

    const_iterator begin() const;
    const_iterator end() const;
    unsigned size() const;
    unsigned numofChildren() const;

    /// Appends a child and enters it under its present name; renaming it later changes no entry.  A null
    /// pointer is ignored.
    void addChild(tavSharedPtr<Unit> child);

    /// As addChild, with a copy of `child`.
    void append(Unit const & child);

    /// Appends a new unit that is entered under no name: it is found by place only.
    Unit & newChild();

    /// Empties value and children; name, type, id, comment and successor stay.
    void clear();

    /// Takes over type, value and children (shared) of `other`.
    void setValue(Unit const & other);

    /// The following unit of a top-level sequence, or a null pointer.
    tavSharedPtr<Unit> next() const;
    void next(tavSharedPtr<Unit> v);
    tavSharedPtr<Unit> getNext() const;

    /// The following unit; made with the next id if there is none.
    tavSharedPtr<Unit> createNext();

    std::string asStringValue() const;

    /// False if the unit is empty or its value is "false".
    bool asBoolValue() const;

    /// "0b" and "0x" forms, octal behind a leading 0, else decimal; 0 if the whole text is no number or does
    /// not fit (64 bits unsigned in the radix forms, signed in decimal).
    long long asInt64Value() const;

    /// A decimal number at the begin of the value, behind blanks; 0 if there is none.
    double asDoubleValue() const;

    /// True if there are no children.
    bool simple() const;

    /// True if there are neither children nor a value.
    bool empty() const;

    /// True for the one null unit only.
    bool isNull() const;

    /// The process-wide empty unit that stands for an absent one.
    static Unit const & null();

    /// A new unit without a name.
    static tavSharedPtr<Unit> byValue(tav_istr value);

    /// Reads a text of one or more units: the first into this unit, which should be fresh, as everything is
    /// appended; each further one is linked by next().  An empty text changes nothing.  The text ends at its
    /// first NUL byte, if it has one.
    /// Throws std::invalid_argument on a malformed text; the unit then keeps what was read so far.
    Unit & decode(tav_istr text);

    /// This unit and those that follow it, as text.  `formatted` puts each unit on a line of its own, behind
    /// `level` times four blanks; `skipEmpty` leaves out empty units; `withType` and `withId` write these.
    std::string encode(bool formatted, bool skipEmpty, int level, bool withType, bool withId) const;

    /// The same, appended to `out`.
    void encode(std::string & out, bool formatted, bool skipEmpty, int level, bool withType,
                bool withId) const;

    std::string toCompacted(bool skipEmpty, bool withType) const;
    std::string toPml() const;
    std::string toFormatted() const;
    std::string toFullFormatted() const;
    std::string toString(bool formatted, bool skipEmpty, bool withType) const;

private:
    typedef std::multimap<std::string, tavSharedPtr<Unit>> NameMap;

    /// The name under which the child at `index` was entered.
    struct Entry {
        std::string name;
        unsigned index;
    };

    struct WriteOptions;
    struct End;

    NameMap const & names() const;
    tavSharedPtr<Unit> const * lookUp(tav_istr name) const;
    void enter(tavSharedPtr<Unit> child, std::string name);
    void forgetNames() noexcept;
    void swapContents(Unit & other) noexcept;
    void encode_i(std::string & out, int level, WriteOptions const & options) const;

    std::string name_;
    std::string type_;
    std::string value_;
    int id_ = 0;
    std::string comment_;
    std::vector<tavSharedPtr<Unit>> children_;
    std::vector<Entry> entries_;

    /// childMap: made from `entries_` when a look-up first needs it; concurrent readers agree on one by
    /// exchange.
    mutable std::atomic<NameMap *> childMap_{nullptr};
    tavSharedPtr<Unit> next_;
};

/// Prints the unit and those that follow it on one line, with types.
TAV_API std::ostream & operator<<(std::ostream & out, Unit const & v);

} // namespace pml
} // namespace tav

#endif
