#ifndef TAV_VINTA_JSON_STREAMS_H
#define TAV_VINTA_JSON_STREAMS_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_codec.h"
#include "tav/vinta/vinta_json_tree.h"

#include <map>
#include <vector>

/// JSON under the codec interface: the plain streams, which point at a current unit of a tree, and the codec
/// streams, which serve tavCodecStream through them.
///
/// A class with fields travels as an object whose members are its fields, by name:
///
///     field                                   written as                        accepted
///     integers up to 32 bits, tavEnum         number                            number or string
///     `long`, `unsigned long`, 64 bits        string of decimal digits          number or string
///     `float`, `double`                       number, six significant digits    number or string
///     `bool`                                  true or false                     boolean only
///     text                                    string                            string only, else cleared
///     bytes                                   base64 string                     string only, else cleared
///     time                                    string of digits (milliseconds)   number or string, else 0
///     nested object, map                      object                            object
///     list                                    array                             array
///     unset optional, null pointer            null                              null, as if absent
///
/// Numbers are read with the prefixes "0x" and "0b" and with a leading 0 for octal, and cut to the width of
/// the field; a text that is no number gives 0, and a member of an unsuitable class leaves a number alone.

class tavJsonOutStream;

namespace tav {
namespace json {

/// Reads values out of a unit.  Belongs to one thread.
class TAV_API JsonInputStream {
public:
    /// Borrows `unit`, which must outlive the stream and its copies.
    JsonInputStream(JsonUnit const & unit);
    /// Parses `text`; the tree is the stream's own.  Throws what JsonUnit::decode throws.
    JsonInputStream(tav_istr text);
    /// Reads what `other` reads, borrowed or shared.
    JsonInputStream(JsonInputStream const & other);
    JsonInputStream & operator=(JsonInputStream const & other);
    ~JsonInputStream();

    /// What JsonUnit reads for each of its targets.
    template <class T>
    JsonInputStream const & operator>>(T & v) const {
        unit() >> v;
        return *this;
    }

    /// The current unit.
    JsonUnit const & unit() const { return borrowed_ != nullptr ? *borrowed_ : owned_; }
    JsonInputStream const & me() const;

    /// The member, or the shared null unit if there is none.
    JsonUnit const & child(tav_istr name) const;
    /// The member named `alternative` if that is not empty, else the one named `name`.
    JsonUnit const & child(tav_istr name, tav_istr alternative) const;
    JsonUnit const & operator[](tav_istr name) const;

    tavString asString() const;
    /// The compact text.
    tavString str() const;
    tavSharedPtr<JsonValue> const & value() const;

    /// Both whether the current unit is null.
    bool isNull() const;
    bool isEmpty() const;

    /// The type of a member; JsonFieldNull for a null or absent one.
    JsonFieldType fieldType(tav_istr name) const;

    /// The elements or members; false, with the iterators left alone, if the unit is of another class.
    bool getArrayChildren(JsonArray::const_iterator & begin, JsonArray::const_iterator & end) const;
    bool getObjectChildren(JsonObject::const_iterator & begin, JsonObject::const_iterator & end) const;

    /// True.
    bool decoding() const;
    /// 0.
    int dumping() const;

    /// Nothing.
    void enter(tav_istr a, tav_istr b, tav_istr c);
    void leave();
    void enterSuper();
    void leaveSuper();

private:
    JsonUnit const * borrowed_;
    JsonUnit owned_;
};

/// Writes values into a unit.  Belongs to one thread.
class TAV_API JsonOutputStream {
public:
    /// Writes to a unit of its own, null at first.
    JsonOutputStream();
    /// Borrows `unit`, which must outlive the stream and its copies.
    JsonOutputStream(JsonUnit & unit);
    /// Writes to the same borrowed unit, or shares the value.
    JsonOutputStream(JsonOutputStream const & other);
    /// Goes on from a decoded tree: shares the value of the current unit of `in`.
    JsonOutputStream(JsonInputStream const & in);
    JsonOutputStream & operator=(JsonOutputStream const & other);
    ~JsonOutputStream();

    /// What JsonUnit writes for each of its sources.
    template <class T>
    JsonOutputStream & operator<<(T const & v) {
        unit() << v;
        return *this;
    }

    /// The current unit.
    JsonUnit & unit();
    JsonUnit const & unit() const;
    JsonOutputStream & me();

    /// The member, inserted as null if there is none; a unit of another class becomes an object.
    JsonUnit & child(tav_istr name);
    /// The member named `alternative` if that is neither null nor empty, else the one named `name`.
    JsonUnit & child(tav_istr name, char const * alternative, int id);
    JsonUnit & operator[](tav_istr name);

    /// Appends a null element; a unit of another class becomes an array.  The reference is valid until the
    /// next element comes.
    JsonUnit & newChild();

    tavSharedPtr<JsonValue> const & value() const;
    /// The unit as an array or an object, which it becomes if it is of another class.
    JsonArray & arrayValue();
    JsonObject & objectValue();
    void setNull();
    /// Appends the unit of `other`, whose value is then shared; this unit becomes an array if it is none.
    void add(JsonOutputStream const & other);

    /// False.
    bool decoding() const;
    /// A number for the caller's use, 0 at first.
    int dumping() const;
    void dumping(int v);

    /// Nothing.
    void enter(tav_istr a, tav_istr b, tav_istr c);
    void leave();
    void enterSuper();
    void leaveSuper();

    /// The text of the unit; "null" for a null one.  The arguments are those of JsonFormatter.
    tavString encode(bool pretty, bool skipNull, int level, bool sample) const;
    /// The same at level 1.
    tavString str(bool pretty, bool skipNull, bool sample) const;
    /// The compact text at level 1, with null members.
    tavString dump(bool sample) const;

private:
    friend class ::tavJsonOutStream;

    /// Borrows the element of this index wherever it moves as the array grows.
    JsonOutputStream(JsonArray & array, unsigned index);

    JsonUnit * borrowed_;
    JsonArray * array_;
    unsigned index_;
    int dumping_;
    JsonUnit owned_;
};

} // namespace json
} // namespace tav

/// Where a tavJsonInStream reads.
typedef tav::json::JsonInputStream tavJsonInStreamImpl;

/// Where a tavJsonOutStream writes.
typedef tav::json::JsonOutputStream tavJsonOutStreamImpl;

/// Reads an object from JSON: members by name, in any order, unknown ones passed over.  The streams of
/// members and elements borrow the tree and must not outlive the stream at the root.  Belongs to one thread.
class TAV_API tavJsonInStream : public tavCodecStream {
public:
    using tavCodecStream::io;

    /// Parses `text`.  Throws what JsonUnit::decode throws.
    explicit tavJsonInStream(tav_istr text);
    /// Reads `impl`, which is not null, is deleted with the stream if `owns` and must outlive it otherwise.
    tavJsonInStream(tavJsonInStreamImpl * impl, bool owns);
    ~tavJsonInStream() override;
    tavJsonInStream(tavJsonInStream const &) = delete;
    tavJsonInStream & operator=(tavJsonInStream const &) = delete;

    /// Whether the current unit is null.
    bool isNull() const override;
    bool isOutputStream() const override;
    /// The stream of the member `name`; null if it is absent or JSON null.
    tavSharedPtr<tavCodecStream> child(int id, tav_istr name) override;
    tavSharedPtr<tavCodecStream> getOutputChild() override;
    /// Appends one stream for each element if the unit is an array.
    void getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> & children) override;
    bool isMapEntryCombined() const override;
    /// Enters one stream for each member if the unit is an object.
    void getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> & children) override;
    void enter(tav_istr className, tav_istr baseName) override;
    void leave() override;

    /// A time, bytes and a text are always assigned: a value of an unsuitable class clears them.
    void io(tavTime & v, tavCodecMeta const & meta) override;
    void io(tavBytes & v, tavCodecMeta const & meta) override;
    void io(tavString & v, tavCodecMeta const & meta) override;
    /// All others keep what they held then, but for `long` and `unsigned long`, which become 0.
    void io(double & v, tavCodecMeta const & meta) override;
    void io(float & v, tavCodecMeta const & meta) override;
    void io(unsigned long long & v, tavCodecMeta const & meta) override;
    void io(long long & v, tavCodecMeta const & meta) override;
    void io(unsigned long & v, tavCodecMeta const & meta) override;
    void io(long & v, tavCodecMeta const & meta) override;
    void io(unsigned int & v, tavCodecMeta const & meta) override;
    void io(int & v, tavCodecMeta const & meta) override;
    void io(unsigned short & v, tavCodecMeta const & meta) override;
    void io(short & v, tavCodecMeta const & meta) override;
    void io(unsigned char & v, tavCodecMeta const & meta) override;
    void io(char & v, tavCodecMeta const & meta) override;
    void io(bool & v, tavCodecMeta const & meta) override;

    /// Whether the member is there and not null.
    bool fieldExists(tav_istr name) const;
    /// The type of a member; JsonFieldNull for a null or absent one.
    tav::JsonFieldType fieldType(tav_istr name) const;
    /// The compact text of a member, a string with its quotes; "null" for a null or absent one.
    tavString fieldValue(tav_istr name) const;
    /// Whether the current unit is null.
    bool valueIsEmpty() const;

private:
    friend class tavObject;

    /// The member that fieldExists, fieldType and fieldValue look at.
    tav::json::JsonUnit const & field(tav_istr name) const;

    tavJsonInStreamImpl * impl_;
    bool owns_;
    /// The last child stream, which serves the next member if nobody else holds it by then.
    tavSharedPtr<tavJsonInStream> spare_;
};

/// Writes an object as JSON.  The streams of members and elements borrow the tree and must not outlive the
/// stream at the root.  Belongs to one thread.
class TAV_API tavJsonOutStream : public tavCodecStream {
public:
    using tavCodecStream::io;

    /// Writes to a unit of its own, null at first.
    tavJsonOutStream();
    /// Writes to `impl`, which is not null, is deleted with the stream if `owns` and must outlive it
    /// otherwise.
    tavJsonOutStream(tavJsonOutStreamImpl * impl, bool owns);
    ~tavJsonOutStream() override;
    tavJsonOutStream(tavJsonOutStream const &) = delete;
    tavJsonOutStream & operator=(tavJsonOutStream const &) = delete;

    bool isOutputStream() const override;
    /// The stream of the member `name`; the current unit becomes an object.
    tavSharedPtr<tavCodecStream> child(int id, tav_istr name) override;
    /// The stream of a new element; the current unit becomes an array.
    tavSharedPtr<tavCodecStream> getOutputChild() override;
    void getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> & children) override;
    bool isMapEntryCombined() const override;
    void getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> & children) override;
    /// Nothing: class names are not written.
    void enter(tav_istr className, tav_istr baseName) override;
    void leave() override;
    void io(tavTime & v, tavCodecMeta const & meta) override;
    void io(tavBytes & v, tavCodecMeta const & meta) override;
    void io(tavString & v, tavCodecMeta const & meta) override;
    void io(double & v, tavCodecMeta const & meta) override;
    void io(float & v, tavCodecMeta const & meta) override;
    void io(unsigned long long & v, tavCodecMeta const & meta) override;
    void io(long long & v, tavCodecMeta const & meta) override;
    void io(unsigned long & v, tavCodecMeta const & meta) override;
    void io(long & v, tavCodecMeta const & meta) override;
    void io(unsigned int & v, tavCodecMeta const & meta) override;
    void io(int & v, tavCodecMeta const & meta) override;
    void io(unsigned short & v, tavCodecMeta const & meta) override;
    void io(short & v, tavCodecMeta const & meta) override;
    void io(unsigned char & v, tavCodecMeta const & meta) override;
    void io(char & v, tavCodecMeta const & meta) override;
    void io(bool & v, tavCodecMeta const & meta) override;
    void writeNull() override;
    void makeArrayValue() override;
    void makeObjectValue() override;

    /// The text of the unit, at level 1.
    tavString str(bool pretty, bool skipNull) const;

private:
    tavSharedPtr<tavCodecStream> streamOf(tavJsonOutStreamImpl const & impl);

    tavJsonOutStreamImpl * impl_;
    bool owns_;
    /// The last child stream, which serves the next member or element if nobody else holds it by then.
    tavSharedPtr<tavJsonOutStream> spare_;
};

#endif
