#ifndef TAV_VINTA_OBJECT_H
#define TAV_VINTA_OBJECT_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_codec.h"
#include "tav/vinta/vinta_object_fields.h"

#include <functional>
#include <map>
#include <ostream>
#include <set>
#include <vector>

/// Objects with fields, messages, and the streams that serve other ends than encoding.
///
/// A class lists its fields once, in traverse, and that serves every encoding and every direction:
///
///     class Hello : public tavMessage {
///     public:
///         int a = 0;
///         tavString b;
///         ...
///     protected:
///         void traverse(tavCodecStream & s) override {
///             ioField(s, 1, "a", a);
///             ioField(s, 2, "b", b);
///         }
///     };

/// The base of all classes with fields.  An object belongs to one thread for the length of a pass; several
/// threads may encode objects of one class at once.
class TAV_API tavObject : public tavCodecInterface, public tavSharedObject {
public:
    tavObject();
    tavObject(tavObject const & other);
    tavObject & operator=(tavObject const & other);
    ~tavObject() override;

    /// Brackets traverse by enter and leave, and then calls checkFields.  Not to be overridden.  What a
    /// stream raises passes through, and the object stays as far as it got.
    void io(tavCodecStream & s) override;

    /// Whether traverse meets no field that is written whatever its value: true for a class without fields,
    /// and for one whose fields are all unset optionals with optional metas.
    bool empty() const override;

protected:
    /// Lists the fields, by one ioField each.  Nothing here.
    virtual void traverse(tavCodecStream & s);

public:
    /// A constant text.
    virtual tav_istr className() const = 0;

    /// A constant text; "tavObject" for a class that derives straight from tavObject.
    virtual tav_istr baseName() const = 0;

    /// A new default object of the same class, or null.  The caller owns it.
    virtual tavObject * newInstance() const = 0;

    /// Assigns field by field if `other` is of the same class, else does nothing.
    virtual void assignFrom(tavObject const & other) = 0;

    /// The object as NBR.  `hideEmpty` leaves out fields with an optional meta and an empty value.
    tavBytes encode(bool hideEmpty) const;

    /// Fills the object from NBR.  Missing fields keep their values.  Raises std::invalid_argument for what
    /// is not NBR.
    void decode(tav_istr bytes);

    /// The object as compact JSON; "null" for a class without fields.  `skipNull` leaves out members that are
    /// null.
    tavString encodeJson(bool skipNull) const;

    /// Fills the object from JSON text.  Missing fields keep their values.  Raises std::invalid_argument for
    /// what is no JSON, and what checkFields raises for this object or one within it; what was read before
    /// stays.
    void decodeJson(tav_istr text);

    /// The object as a text for people, with protected fields masked; `level` is the depth of indentation.
    tavString dump(bool singleLine, int level) const;

    /// Whether both are of one class, by the class names.
    bool classEqual(tavObject const & other) const;

    /// Whether the class name is `name`.
    bool classOf(tav_istr name) const;

    /// A copy made by newInstance and assignFrom; null if newInstance gives null.  The caller owns it.
    tavObject * clone() const;

    /// The same as assignFrom.
    void assign(tavObject const & other);

    tavObject const * self() const;

    /// Compares the members of the JSON object that `s` has just read with the declared fields, by the type
    /// codes of their metas; no effect on a stream of any other kind.  Raises std::invalid_argument for a
    /// member whose JSON type does not belong to the field's, for a number outside the field's valid values,
    /// and for fields that are neither optional nor containers and have no member, null counting as none.
    ///
    /// A code of -1 belongs to no JSON type, so a class that is read from JSON needs real ones.
    void checkFields(tavCodecStream const & s) const;

    /// The number of live objects in the process.
    static unsigned counts();
};

/// Prints the dump on one line.
TAV_API std::ostream & operator<<(std::ostream & out, tavObject const & v);

/// The extension block of a message.
class TAV_API tavMsgExt : public tavObject {
public:
    tavOptional<long long> serverTime;
    tavOptional<long long> clientTime;
    tavOptional<tavString> traceId;

    tavMsgExt();
    tavMsgExt(tavMsgExt const & other);
    tavMsgExt & operator=(tavMsgExt const & other);
    ~tavMsgExt() override;

    /// True if none of the three is set.
    bool empty() const override;

    tav_istr className() const override;
    tav_istr baseName() const override;
    tavObject * newInstance() const override;
    void assignFrom(tavObject const & other) override;

protected:
    void traverse(tavCodecStream & s) override;
};

/// The base of all messages.
class TAV_API tavMessage : public tavObject, public tavMsgInterface {
public:
    /// The message's sequence, set by the layer that sends or receives it.  Copied with the message.
    unsigned long long sno = 0;
    /// Travels beside the fields and not with them.
    tavMsgExt ext;

    tavMessage();
    tavMessage(tavMessage const & other);
    tavMessage & operator=(tavMessage const & other);
    ~tavMessage() override;

    /// The number of live messages in the process.  Each one counts twice in tavObject::counts, for itself
    /// and for its extension block.
    static unsigned counts();

protected:
    /// No fields of its own.
    void traverse(tavCodecStream & s) override;
};

/// An output stream that writes nothing and enters no nested object.  After a walk isEmpty tells whether it
/// met no field.
class TAV_API tavNullStream : public tavCodecStream {
public:
    using tavCodecStream::io;

    tavNullStream();
    ~tavNullStream() override;

    bool isNull() const override;
    bool hideEmpty() const override;
    /// True, so that the walk takes values as sources and never writes to them.
    bool isOutputStream() const override;
    bool isMapEntryCombined() const override;
    /// Null, and so is getOutputChild.
    tavSharedPtr<tavCodecStream> child(int id, tav_istr name) override;
    tavSharedPtr<tavCodecStream> getOutputChild() override;
    void getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> & children) override;
    void getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> & children) override;
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
};

/// Gathers the list of a class's fields, those of its top level only.
class TAV_API tavCollectMetaStream : public tavNullStream {
public:
    tavCollectMetaStream();
    ~tavCollectMetaStream() override;

    void on_each_field_meta(int id, tav_istr name, std::set<int> const & values,
                            tavCodecMeta const & meta) override;

    /// The fields in the order of their declaration.
    std::vector<tavFieldMeta> const & fields() const;

    /// Calls `fn` for each entry in order.  An empty function raises std::bad_function_call if there is an
    /// entry.
    void for_each_field(std::function<void(tavFieldMeta const &)> fn) const;

private:
    std::vector<tavFieldMeta> fields_;
};

/// Prints an object for people and logs, with protected fields masked:
///
///     @Foo{ [1]a=5 [2]b='x' }
///
class TAV_API tavDumper : public tavCodecStream {
public:
    using tavCodecStream::io;

    /// `out` is not owned.  With `singleLine` fields are set apart by one blank, else each has its own line,
    /// indented by four blanks for each `level`.
    tavDumper(std::ostream & out, bool singleLine, int level, bool hideEmpty);
    ~tavDumper() override;

    bool isNull() const override;
    bool hideEmpty() const override;
    bool isOutputStream() const override;
    bool isMapEntryCombined() const override;
    /// Begins a field: indentation, "[", the id, "]", the name and "=".  The child has a copy of the level.
    tavSharedPtr<tavCodecStream> child(int id, tav_istr name) override;
    /// Begins an element: indentation.
    tavSharedPtr<tavCodecStream> getOutputChild() override;
    void getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> & children) override;
    void getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> & children) override;
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

    /// One blank, or a line end and the blanks of the level.
    void indent();
    /// "[", the number, "]".
    void id(int id);
    void name(tav_istr name);
    void sep(char c);

    /// Prints one value of a simple type, or an object through its io.
    template <class T>
    void write(T const & v, tavCodecMeta const & meta) {
        if constexpr (std::is_base_of<tavCodecInterface, T>::value) {
            tavCodecInterface const & object = v;
            const_cast<tavCodecInterface &>(object).io(*this);
        } else {
            static_assert(tav::detail::isSimpleField<T>,
                          "tavDumper::write takes the simple types of tavCodecStream and objects");
            print(v, meta);
        }
    }

    /// The masked form of a secret text with its length: `hel***rld[11]` of "hello world" under the mask
    /// "...***...", which shows as many bytes at each end as it has dots there.  "***" stands for an empty
    /// mask. The whole value, and its length, if `meta` does not protect it.
    static tavString protectedValue(tav_istr value, tavCodecMeta const & meta);

private:
    void print(tavTime const & v, tavCodecMeta const & meta);
    void print(tavBytes const & v, tavCodecMeta const & meta);
    void print(tavString const & v, tavCodecMeta const & meta);
    void print(double v, tavCodecMeta const & meta);
    void print(float v, tavCodecMeta const & meta);
    void print(unsigned long long v, tavCodecMeta const & meta);
    void print(long long v, tavCodecMeta const & meta);
    void print(unsigned long v, tavCodecMeta const & meta);
    void print(long v, tavCodecMeta const & meta);
    void print(unsigned int v, tavCodecMeta const & meta);
    void print(int v, tavCodecMeta const & meta);
    void print(unsigned short v, tavCodecMeta const & meta);
    void print(short v, tavCodecMeta const & meta);
    void print(unsigned char v, tavCodecMeta const & meta);
    void print(char v, tavCodecMeta const & meta);
    void print(bool v, tavCodecMeta const & meta);

    std::ostream & out_;
    bool singleLine_;
    int level_;
    bool hideEmpty_;
};

#endif
