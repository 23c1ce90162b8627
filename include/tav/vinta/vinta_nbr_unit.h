#ifndef TAV_VINTA_NBR_UNIT_H
#define TAV_VINTA_NBR_UNIT_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_basetypes_codec.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_basetypes_time.h"
#include "tav/vinta/vinta_locks.h"

#include <atomic>
#include <iosfwd>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// NBR, the tagged binary encoding of messages: the tree of values, its parser, the plain streams that write
/// and read single values, and the codec streams that objects are written to and read from.
///
/// A document is a sequence of values.  A value is simple (bytes with one bit, text or not) or complex
/// (members, each a tag and a value).  A null pointer to a value stands for no value everywhere.
///
/// Bytes from a peer may be anything: parsing, printing and destroying take a bounded stack whatever the
/// depth, no byte outside the input is read, and what is cut off gives the members that were complete.  The
/// data of all values together are a few times the input at most, even where sizes make them overlap.

/// Bytes to be printed as NBR on one line.  A view: the bytes must outlive it.
struct tav_nbr_buf {
    char const * data;
    unsigned int size;
};

/// Throws what parsing throws.
TAV_API std::ostream & operator<<(std::ostream & out, tav_nbr_buf const & v);

class tavNbrInStream;

namespace tav {
namespace nbr {

namespace detail {
class Document;
class InFamily;
class OutFamily;
} // namespace detail

class NbrInputStream;

/// A node of the tree.  A tree that is finished may be read by several threads.
class TAV_API ValueBase : public tavRefCountObject {
public:
    ~ValueBase() override;

    /// True for a leaf, a SimpleValue; false for a ComplexValue.
    virtual bool simple() const = 0;

    /// Prints for people and logs: the length and a hint of the content, never a whole text.  `pretty` gives
    /// one member a line, `level` is the depth of indentation in units of four blanks.  Returns `out`.
    virtual std::ostream & dump(std::ostream & out, bool pretty, int level) const = 0;
};

/// A leaf: a view of bytes that it does not own, and whether they are text.  Valid as long as the bytes that
/// were parsed.
class TAV_API SimpleValue : public ValueBase {
public:
    SimpleValue(tav_istr data, bool text);
    /// With a null view.
    explicit SimpleValue(bool text);

    bool simple() const override;
    std::ostream & dump(std::ostream & out, bool pretty, int level) const override;

    tav_istr data() const;

    /// No pointer and the length 0, as everything parsed with the size 0 has.
    bool isNull() const;
    /// A pointer and the length 0.
    bool isEmpty() const;
    /// No pointer or the length 0.
    bool isNullOrEmpty() const;

    /// These decode the bytes as the type of `v` and answer true.  Numbers, bool and time take as many bytes
    /// as the type has, lowest first, without extending a sign, and answer false and leave `v` when
    /// isNullOrEmpty(). Text and bytes take all, and answer false and leave `v` only when isNull().  `long`
    /// and `unsigned long` go as the 64-bit types.
    bool read(char & v) const;
    bool read(unsigned char & v) const;
    bool read(bool & v) const;
    bool read(short & v) const;
    bool read(unsigned short & v) const;
    bool read(int & v) const;
    bool read(unsigned int & v) const;
    bool read(float & v) const;
    bool read(long & v) const;
    bool read(unsigned long & v) const;
    bool read(long long & v) const;
    bool read(unsigned long long & v) const;
    bool read(double & v) const;
    bool read(tavTime & v) const;
    bool read(tavBytes & v) const;
    bool read(tavString & v) const;

private:
    friend class NbrInputStream;

    static bool decode(tav_istr data, char & v);
    static bool decode(tav_istr data, unsigned char & v);
    static bool decode(tav_istr data, bool & v);
    static bool decode(tav_istr data, short & v);
    static bool decode(tav_istr data, unsigned short & v);
    static bool decode(tav_istr data, int & v);
    static bool decode(tav_istr data, unsigned int & v);
    static bool decode(tav_istr data, float & v);
    static bool decode(tav_istr data, long & v);
    static bool decode(tav_istr data, unsigned long & v);
    static bool decode(tav_istr data, long long & v);
    static bool decode(tav_istr data, unsigned long long & v);
    static bool decode(tav_istr data, double & v);
    static bool decode(tav_istr data, tavTime & v);
    static bool decode(tav_istr data, tavBytes & v);
    static bool decode(tav_istr data, tavString & v);

    tav_istr data_;
    bool text_;
};

/// An inner node: members in wire order, duplicates kept.  A member's value may be null.
///
/// What the parser makes creates the nodes of its members when it is first asked for them, under a lock, so
/// that reading stays safe from several threads; `add` and assignment are for one thread alone.
class TAV_API ComplexValue : public ValueBase {
public:
    typedef std::pair<char, tavSharedPtr<ValueBase>> Item;
    typedef std::vector<Item>::const_iterator const_iterator;

    ComplexValue();
    /// The members' values are shared with `other`.
    ComplexValue(ComplexValue const & other);
    ComplexValue & operator=(ComplexValue const & other);
    ~ComplexValue() override;

    bool simple() const override;
    std::ostream & dump(std::ostream & out, bool pretty, int level) const override;

    /// Appends a member.
    void add(char tag, tavSharedPtr<ValueBase> value);
    /// The value of the last member with this tag, null if there is none.
    tavSharedPtr<ValueBase> get(char tag) const;

    /// The members; valid until the next `add`.
    std::vector<Item> const & data() const;
    const_iterator begin() const;
    const_iterator end() const;

private:
    friend class detail::Document;

    struct Index;

    ComplexValue(std::shared_ptr<detail::Document const> document, unsigned node);
    void load() const;
    Index & index() const;

    std::shared_ptr<detail::Document const> document_;
    unsigned node_;
    mutable std::atomic<bool> loaded_;
    mutable std::vector<Item> items_;
    mutable std::atomic<Index *> index_;
};

/// Parses bytes.  Quiet faults, such as truncation, give what was complete and a TRACE line; only bytes that
/// cannot be NBR throw: std::invalid_argument with "DecodeException: maybe not nbr: ...".
class TAV_API parser {
public:
    /// `input` must outlive the parser, which consumes it.
    explicit parser(tav_istr & input);

    /// One value from the front of `input`, which then stands behind it; null if there is none.  The tree
    /// views the bytes of `input`.  When this throws, what was consumed stays consumed.
    static tavSharedPtr<ValueBase> from(tav_istr & input);

    /// The first member with this tag of the complex value at the front, without building a tree; null if it
    /// is absent or not simple.  Only for flat objects: a complex member ahead of the one sought throws.
    static tavSharedPtr<SimpleValue> from(tav_istr input, char tag);

private:
    tavSharedPtr<ValueBase> parseValue();
    tavSharedPtr<SimpleValue> findValue(char tag);

    tav_istr & input_;
};

/// Prints bytes as NBR.  A view: the bytes must outlive it.
class TAV_API _PrintNbr {
public:
    _PrintNbr(tav_istr bytes, bool pretty);

private:
    friend TAV_API std::ostream & operator<<(std::ostream & out, _PrintNbr const & v);

    tav_istr bytes_;
    bool pretty_;
};

/// Throws what parsing throws.
TAV_API std::ostream & operator<<(std::ostream & out, _PrintNbr const & v);

/// A growing buffer that typed values are appended to.  As a plain tavBytes it takes bytes without framing,
/// so it must not be handed on as one while typed writes follow.  Belongs to one thread.
class TAV_API NbrOutputStream : public tavBytes {
public:
    /// Writes the open marker, and the close marker at its end.  A failure to write the close marker ends the
    /// process.
    class TAV_API Entry {
    public:
        /// `s` must outlive the entry.
        explicit Entry(NbrOutputStream & s);
        ~Entry();
        Entry(Entry const &) = delete;
        Entry & operator=(Entry const &) = delete;

        /// The open marker alone.
        static void enter(NbrOutputStream & s);
        /// The close marker alone.
        static void leave(NbrOutputStream & s);

    private:
        NbrOutputStream & stream_;
    };

    NbrOutputStream();

    /// These append one value.  Numbers are compact integers, `long` and `unsigned long` as the 64-bit types;
    /// `unsigned char` and `bool` are the byte itself.  Text is written as text (a null pointer as an empty
    /// one), bytes as binary data.
    NbrOutputStream & operator<<(char v);
    NbrOutputStream & operator<<(unsigned char v);
    NbrOutputStream & operator<<(short v);
    NbrOutputStream & operator<<(unsigned short v);
    NbrOutputStream & operator<<(int v);
    NbrOutputStream & operator<<(unsigned int v);
    NbrOutputStream & operator<<(float v);
    NbrOutputStream & operator<<(double v);
    NbrOutputStream & operator<<(long v);
    NbrOutputStream & operator<<(unsigned long v);
    NbrOutputStream & operator<<(long long v);
    NbrOutputStream & operator<<(unsigned long long v);
    NbrOutputStream & operator<<(bool v);
    NbrOutputStream & operator<<(char const * text);
    NbrOutputStream & operator<<(tav_istr text);
    NbrOutputStream & operator<<(std::string const & text);
    NbrOutputStream & operator<<(tavString const & text);
    NbrOutputStream & operator<<(tavBytes const & bytes);
    NbrOutputStream & operator<<(tavTime const & v);

    /// Appends one value of the bytes of `data`, which may be bytes of this stream.
    void write(tav_istr data, bool text);
    /// Appends a value without bytes: 01 00.
    void writeEmpty();
    /// Appends the null value: 00.
    void writeNull();

    /// These append bytes without framing.
    void writeRaw(unsigned char b);
    void writeRaw(char const * data, unsigned int size);
    void writeRaw(tav_istr data);
    /// Appends a member's tag.
    void writeTag(char tag);

    /// Appends the open marker; the names are not written.
    void enter(tav_istr a, tav_istr b, tav_istr c);
    /// Appends the close marker.
    void leave();
    /// Nothing: a base class opens no level of its own.
    void enterSuper();
    void leaveSuper();

    /// A view of all bytes so far, valid until the next write.
    tav_istr str() const;
    /// Assigns all bytes so far to `out`.
    void encode(tavBytes & out) const;
    /// Exchanges the bytes.
    void swap(tavBytes & other);
};

/// Prints the values written so far on one line.  Throws what parsing throws.
TAV_API std::ostream & operator<<(std::ostream & out, NbrOutputStream const & v);

/// The values of a document, with a copy of its bytes.  Complete after construction.  Belongs to one thread.
class TAV_API NbrInputStream {
public:
    typedef std::list<tavSharedPtr<ValueBase>>::const_iterator const_iterator;

    /// One value, or none if it is null.  The bytes that it views are the caller's to keep.
    explicit NbrInputStream(tavSharedPtr<ValueBase> value);
    /// All values of a document.  Throws what parsing throws.
    explicit NbrInputStream(tav_istr bytes);
    /// What parser::from finds for `tag`, so at most one value.
    NbrInputStream(tav_istr bytes, char tag);
    ~NbrInputStream();
    NbrInputStream(NbrInputStream const &) = delete;
    NbrInputStream & operator=(NbrInputStream const &) = delete;

    /// The values in order; none of them is null.
    const_iterator begin() const;
    const_iterator end() const;
    bool empty() const;

    /// The first value if it is of this kind, else null.
    tavSharedPtr<SimpleValue> getSimpleValue() const;
    tavSharedPtr<ComplexValue> getComplexValue() const;
    /// The last member of the first value with this tag, else null.
    tavSharedPtr<ValueBase> getChild(char tag) const;

    /// Reads the first value as SimpleValue::read does; false if it is not simple.
    template <class T>
    bool operator>>(T & v) const {
        tav_istr data;
        return firstData(data) && SimpleValue::decode(data, v);
    }

    /// True.
    bool decoding() const;
    /// 0.
    int dumping() const;

    /// Nothing.
    void enter(tav_istr a, tav_istr b, tav_istr c);
    void leave();
    void enterSuper();
    void leaveSuper();

    /// Prints each value, with a line end behind each if `pretty`.  Returns `out`.
    std::ostream & dump(std::ostream & out, bool pretty) const;

private:
    friend class ::tavNbrInStream;
    friend class detail::InFamily;

    std::list<tavSharedPtr<ValueBase>> & values() const;
    bool firstData(tav_istr & data) const;

    std::shared_ptr<detail::Document> document_;
    mutable std::list<tavSharedPtr<ValueBase>> values_;
    mutable bool listed_;
};

/// Prints each value on the same line, nothing between them.
TAV_API std::ostream & operator<<(std::ostream & out, NbrInputStream const & v);

} // namespace nbr
} // namespace tav

/// Where a tavNbrOutStream writes.
class TAV_API tavNbrOutStreamImpl : public tav::nbr::NbrOutputStream {};

/// Where a tavNbrInStream reads.
class TAV_API tavNbrInStreamImpl : public tav::nbr::NbrInputStream {
public:
    using tav::nbr::NbrInputStream::NbrInputStream;
};

/// Writes an object as NBR.  Fields are told by the low eight bits of their id, names are not written.
///
/// The streams that `child` and `getOutputChild` give write to the same buffer and are used in order.  They
/// are kept by the stream at the root and live as long as it; a stream gives the same one again at its next
/// call. They do not hide empty fields.  Belongs to one thread.
class TAV_API tavNbrOutStream : public tavCodecStream {
public:
    using tavCodecStream::io;

    /// Writes to a buffer of its own.
    explicit tavNbrOutStream(bool hideEmpty);
    /// Appends to `impl`, which is deleted with the stream if `owns` and must outlive it otherwise.  Hides
    /// nothing.
    tavNbrOutStream(tavNbrOutStreamImpl * impl, bool owns);
    ~tavNbrOutStream() override;
    tavNbrOutStream(tavNbrOutStream const &) = delete;
    tavNbrOutStream & operator=(tavNbrOutStream const &) = delete;

    bool isNull() const override;
    bool hideEmpty() const override;
    bool isOutputStream() const override;
    tavSharedPtr<tavCodecStream> child(int id, tav_istr name) override;
    tavSharedPtr<tavCodecStream> getOutputChild() override;
    void getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> & children) override;
    bool isMapEntryCombined() const override;
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
    void writeNull() override;

    /// A view of all bytes so far, valid until the next write.
    tav_istr str() const;
    /// Prints the values written so far on one line.  Throws what parsing throws.
    void dump(std::ostream & out) const;

private:
    friend class tav::nbr::detail::OutFamily;

    /// The depth of a stream that is nobody's child; its children have the depth 0.
    static constexpr unsigned root = 0xFFFFFFFFu;

    tavNbrOutStream(tav::nbr::detail::OutFamily & family, unsigned depth);

    tavNbrOutStreamImpl * impl_;
    tav::nbr::detail::OutFamily * family_;
    tavNbrOutStream * next_;
    unsigned depth_;
    bool owns_;
    bool hideEmpty_;
};

/// Reads an object from NBR: any order of members, unknown members passed over, the last of several members
/// with one tag.
///
/// The streams that `child` and `getInputChildren` give are kept by the stream at the root and live as long
/// as it; each value has one.  Belongs to one thread.
class TAV_API tavNbrInStream : public tavCodecStream {
public:
    using tavCodecStream::io;

    /// Reads a copy of `bytes`.  Throws what parsing throws.
    explicit tavNbrInStream(tav_istr bytes);
    /// Reads the values of `impl`, which is deleted with the stream if `owns` and must outlive it otherwise.
    tavNbrInStream(tavNbrInStreamImpl * impl, bool owns);
    ~tavNbrInStream() override;
    tavNbrInStream(tavNbrInStream const &) = delete;
    tavNbrInStream & operator=(tavNbrInStream const &) = delete;

    /// True if there is no value.
    bool isNull() const override;
    bool hideEmpty() const override;
    bool isOutputStream() const override;
    /// The stream of the member with the low eight bits of `id` as its tag; null if there is no such member
    /// or its value is null.
    tavSharedPtr<tavCodecStream> child(int id, tav_istr name) override;
    tavSharedPtr<tavCodecStream> getOutputChild() override;
    /// Appends one stream for each member, also for one that is null.
    void getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> & children) override;
    bool isMapEntryCombined() const override;
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
    /// `long` and `unsigned long` become 0 where there is no simple value or it has no bytes; all other types
    /// keep what they held.
    void io(unsigned long & v, tavCodecMeta const & meta) override;
    void io(long & v, tavCodecMeta const & meta) override;
    void io(unsigned int & v, tavCodecMeta const & meta) override;
    void io(int & v, tavCodecMeta const & meta) override;
    void io(unsigned short & v, tavCodecMeta const & meta) override;
    void io(short & v, tavCodecMeta const & meta) override;
    void io(unsigned char & v, tavCodecMeta const & meta) override;
    void io(char & v, tavCodecMeta const & meta) override;
    void io(bool & v, tavCodecMeta const & meta) override;

private:
    friend class tav::nbr::detail::InFamily;

    explicit tavNbrInStream(tav::nbr::detail::InFamily & family);
    static tavSharedPtr<tavCodecStream> streamOf(tavSharedPtr<tav::nbr::ValueBase> value);

    tavNbrInStreamImpl * impl_;
    tav::nbr::detail::InFamily * family_;
    tav::nbr::detail::Document const * document_;
    unsigned node_;
    unsigned cursor_;
    bool root_;
    bool owns_;
};

#endif
