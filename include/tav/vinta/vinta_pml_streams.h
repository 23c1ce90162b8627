#ifndef TAV_VINTA_PML_STREAMS_H
#define TAV_VINTA_PML_STREAMS_H

#include "tav/vinta/vinta_pml_tree.h"

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_basetypes_codec.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_basetypes_time.h"
#include "tav/vinta/vinta_locks.h"

#include <map>
#include <string>
#include <type_traits>
#include <vector>

/// Typed values in PML trees, and PML as an encoding of objects: a field is a child unit with a text value,
/// the elements of a list are children without names.
namespace tav {
namespace pml {

/// Reads values from a unit.  Belongs to one thread at a time.
///
/// Reading never fails, and leaves the target alone if the unit is the null unit.  Else, by the target:
/// - `short` to `unsigned long long`: an integer in decimal, or behind "0x", "0b" or a leading 0; any other
///   text, and a number that the target can't hold, leaves it alone.
/// - `char`, `unsigned char`: such a number within 16 bits, of which the low eight are stored; else 0.
/// - `long`, `unsigned long`: such a number; else 0, also from the null unit.
/// - `float`, `double`: a decimal number; any other text leaves the target alone.
/// - `bool`: "true", "1", "false" and "0"; any other text leaves the target alone.
/// - `tavString`, `std::string`: the text.
/// - `std::wstring`: what tavString::toWstring makes of the text, up to its first NUL byte.
/// - `tavBytes`: what the text stands for as base64.
/// - `tavTime`: what tavTime::from makes of the text up to its first NUL byte.
class TAV_API PmlInputStream {
public:
    /// Over the null unit.
    PmlInputStream();
    /// Over a unit that must outlive the stream.
    PmlInputStream(Unit const & unit);
    PmlInputStream(tavSharedPtr<Unit> unit);
    /// Over a new unit that is read from `text`.  Throws what Unit::decode throws.
    PmlInputStream(tav_istr text);
    PmlInputStream(PmlInputStream const & other);
    PmlInputStream & operator=(PmlInputStream const & other);

    Unit const & unit() const;
    /// Null if the stream was made without a unit.
    tavSharedPtr<Unit> unitPtr() const;
    PmlInputStream const & me() const;

    std::string const & name() const;
    std::string const & type() const;
    std::string const & value() const;

    /// The child of this name, or of the alternative name if that is not empty; else the null unit.
    Unit const & child(tav_istr name) const;
    Unit const & child(tav_istr name, tav_istr alternative) const;
    Unit const & operator[](tav_istr name) const;

    /// The children.
    Unit::const_iterator begin() const;
    Unit::const_iterator end() const;

    /// The unit behind this one in a top-level sequence, or a null pointer.
    tavSharedPtr<Unit> next() const;

    /// Whether the unit has neither children nor a value.
    bool isEmpty() const;
    /// Whether the unit is the null unit.
    bool isNull() const;

    /// The unit on one line, without types and without empty units.
    std::string str() const;

    /// What tells a reader from a writer: always true here, and false there.
    bool decoding() const;
    /// Always 0: only a writer has a number of the caller's choosing.
    int dumping() const;

    /// These do nothing: they stand where a writer has them.
    void enter(tav_istr a, tav_istr b, tav_istr c);
    void leave();
    void enterSuper();
    void leaveSuper();

    /// Reads the unit's value into one of the targets that are listed above.
    template <class T>
    PmlInputStream const & operator>>(T & v) const {
        read(v);
        return *this;
    }

private:
    void read(char & v) const;
    void read(unsigned char & v) const;
    void read(short & v) const;
    void read(unsigned short & v) const;
    void read(int & v) const;
    void read(unsigned int & v) const;
    void read(long & v) const;
    void read(unsigned long & v) const;
    void read(long long & v) const;
    void read(unsigned long long & v) const;
    void read(float & v) const;
    void read(double & v) const;
    void read(tavString & v) const;
    void read(std::string & v) const;
    void read(std::wstring & v) const;
    void read(tavBytes & v) const;
    void read(tavTime & v) const;
    void read(bool & v) const;

    tavSharedPtr<Unit> unit_;
};

/// Writes values to a unit.  What is written is appended to the unit's value, and so is what is written after
/// it.  Belongs to one thread at a time.
///
/// Integers are decimal, floating-point numbers have six significant digits, truth values are "true" and
/// "false", texts go as they stand and wide ones as UTF-8, bytes as base64, times as tavTime::str.
class TAV_API PmlOutputStream {
public:
    /// Over a new unit.
    PmlOutputStream();
    /// Over a unit that must outlive the stream.
    PmlOutputStream(Unit & unit);
    /// A null pointer gives a new unit.
    PmlOutputStream(tavSharedPtr<Unit> unit);
    /// Over a new unit of this name.
    PmlOutputStream(tav_istr name);
    /// Shares the unit.
    PmlOutputStream(PmlOutputStream const & other);
    PmlOutputStream & operator=(PmlOutputStream const & other);

    Unit & unit() const;
    PmlOutputStream & me();

    std::string & name();
    std::string & type();
    std::string & value();
    std::string const & name() const;
    std::string const & type() const;
    std::string const & value() const;

    /// As the operations of Unit: children that are not there are made.
    Unit & child(tav_istr name);
    Unit & child(tav_istr name, tav_istr alternative, int id);
    Unit & operator[](tav_istr name);
    Unit & newChild();

    /// Always false.
    bool decoding() const;

    /// A number of the caller's choosing, 0 by default.
    int dumping() const;
    void dumping(int v);

    /// Sets the unit's type to `a` and its name to `c`, each if it is not empty and the unit has none yet.
    void enter(tav_istr a, tav_istr b, tav_istr c);
    /// These do nothing.
    void leave();
    void enterSuper();
    void leaveSuper();

    /// Appends a number, a truth value, a text (narrow or wide), bytes or a time to the unit's value.  A null
    /// pointer is an empty text.
    template <class T>
    PmlOutputStream & operator<<(T const & v) {
        if constexpr (std::is_convertible<T const &, char const *>::value) {
            write(static_cast<char const *>(v));
        } else {
            write(v);
        }
        return *this;
    }

    /// As Unit::encode, with the units that follow.
    std::string encode(bool formatted, bool skipEmpty, int level, bool withType, bool withId) const;

    /// The same at level 1, with types unless empty units are skipped, and with ids if it is formatted.
    std::string str(bool formatted, bool skipEmpty) const;

private:
    void write(char v);
    void write(unsigned char v);
    void write(short v);
    void write(unsigned short v);
    void write(int v);
    void write(unsigned int v);
    void write(long v);
    void write(unsigned long v);
    void write(long long v);
    void write(unsigned long long v);
    void write(float v);
    void write(double v);
    void write(bool v);
    void write(char const * v);
    void write(tav_istr v);
    void write(tavString const & v);
    void write(std::string const & v);
    void write(std::wstring const & v);
    void write(tavBytes const & v);
    void write(tavTime const & v);
    template <class T>
    void write(T const &) {
        static_assert(!std::is_same<T, T>::value, "PmlOutputStream writes no values of this type");
    }

    tavSharedPtr<Unit> unit_;
    int dumping_ = 0;
};

} // namespace pml

namespace detail {
struct SparePmlStream;
} // namespace detail
} // namespace tav

/// Where a tavPmlInStream reads.
typedef tav::pml::PmlInputStream tavPmlInStreamImpl;

/// Where a tavPmlOutStream writes.
typedef tav::pml::PmlOutputStream tavPmlOutStreamImpl;

/// Reads an object from PML: fields by their names, in any order; unknown ones are passed over, of several
/// with one name the first counts (in a map the last).  Values are read as by tav::pml::PmlInputStream.
///
/// Streams of children must not outlive the stream at the root.  Belongs to one thread.
class TAV_API tavPmlInStream : public tavCodecStream {
public:
    using tavCodecStream::io;

    /// Reads `text`.  Throws what Unit::decode throws.
    explicit tavPmlInStream(tav_istr text);
    /// Reads from `impl`, which is deleted with the stream if `owns` and must outlive it otherwise.
    tavPmlInStream(tavPmlInStreamImpl * impl, bool owns);
    ~tavPmlInStream() override;
    tavPmlInStream(tavPmlInStream const &) = delete;
    tavPmlInStream & operator=(tavPmlInStream const &) = delete;

    /// Whether the unit is the null unit.
    bool isNull() const override;
    bool isOutputStream() const override;
    /// The stream of the child of this name; null if there is none.
    tavSharedPtr<tavCodecStream> child(int id, tav_istr name) override;
    /// Null: there is no output.
    tavSharedPtr<tavCodecStream> getOutputChild() override;
    /// Appends one stream for each child, whatever its name.
    void getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> & children) override;
    bool isMapEntryCombined() const override;
    /// Enters one stream for each child under its name; of several with one name the last stays.
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

    /// Views of the unit's name and type.
    tav_istr name() const;
    tav_istr type() const;

    /// Whether the unit has neither children nor a value.
    bool valueIsEmpty() const;

private:
    friend struct tav::detail::SparePmlStream;

    /// The stream of a child.
    explicit tavPmlInStream(tavPmlInStreamImpl const & impl);

    /// What it reads from unless it was given an implementation.
    tavPmlInStreamImpl own_;
    tavPmlInStreamImpl * impl_;
    bool owns_;
    /// The last child's stream, to serve the next child once nobody else holds it.
    tavSharedPtr<tavPmlInStream> spare_;
};

/// Writes an object as PML: one unit whose type is the class's name and whose children are the fields.  Lists
/// and maps have no type.  A value that is not there is an empty unit.
///
/// Streams of children must not outlive the stream at the root.  Writing one field twice joins both texts.
/// Belongs to one thread.
class TAV_API tavPmlOutStream : public tavCodecStream {
public:
    using tavCodecStream::io;

    /// Writes to a unit of its own.
    tavPmlOutStream();
    /// Writes to `impl`, which is deleted with the stream if `owns` and must outlive it otherwise.
    tavPmlOutStream(tavPmlOutStreamImpl * impl, bool owns);
    ~tavPmlOutStream() override;
    tavPmlOutStream(tavPmlOutStream const &) = delete;
    tavPmlOutStream & operator=(tavPmlOutStream const &) = delete;

    bool isOutputStream() const override;
    /// The stream of the child of this name, which is made if need be.
    tavSharedPtr<tavCodecStream> child(int id, tav_istr name) override;
    /// The stream of a new child without a name.
    tavSharedPtr<tavCodecStream> getOutputChild() override;
    /// Does nothing, and so does getInputChildMap: there is no input.
    void getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> & children) override;
    bool isMapEntryCombined() const override;
    void getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> & children) override;
    /// Makes `className` the unit's type, if it has none yet.
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

    /// Set the name and the type of the unit.
    tavPmlOutStream & name(tav_istr v);
    tavPmlOutStream & type(tav_istr v);
    /// Views of them, valid until they change.
    tav_istr name() const;
    tav_istr type() const;

    /// The same as tav::pml::PmlOutputStream::str.
    std::string str(bool formatted, bool skipEmpty) const;

private:
    friend struct tav::detail::SparePmlStream;

    /// The stream of a child.
    explicit tavPmlOutStream(tavPmlOutStreamImpl const & impl);

    /// What it writes to unless it was given an implementation; else a copy of that, which makes no unit.
    tavPmlOutStreamImpl own_;
    tavPmlOutStreamImpl * impl_;
    bool owns_;
    /// The last child's stream, to serve the next child once nobody else holds it.
    tavSharedPtr<tavPmlOutStream> spare_;
};

#endif
