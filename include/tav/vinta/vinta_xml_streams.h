#ifndef TAV_VINTA_XML_STREAMS_H
#define TAV_VINTA_XML_STREAMS_H

#include "tav/vinta/vinta_xml_tree.h"

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

/// Typed values in XML trees, and XML as an encoding of objects: a field is a child element with its name as
/// tag, the elements of a list are children with the tag "any", the entries of a map have their keys as tags.
namespace tav {
namespace xml {

/// Reads values from a node.  Belongs to one thread at a time.
///
/// Reading never fails; what can't be read leaves the target alone:
/// - integers: the digits at the front, decimal, or behind "0x", "0b" or a leading 0.  What has none, or more
///   than fit, makes an `unsigned char` 0.
/// - `float`, `double`: the decimal number at the front.
/// - `bool`: "true", "1", "on", "false", "0" and "off".
/// - `tavString`, `std::string`, `std::wstring`: the text, with entities resolved once more.
/// - `tavBytes`: base64.  `tavTime`: what tavTime::from makes of the text.
///
/// A copy of a stream over a node of its own shares the parts of that node.
class TAV_API XmlInputStream {
public:
    /// Over a node that must outlive the stream.
    explicit XmlInputStream(Node const & node);
    /// Over a node of its own, read as by Node::decode.
    explicit XmlInputStream(tav_istr text, std::string * rest = nullptr);

    Node const & node() const;
    std::string const & tag() const;
    std::string const & content() const;
    Attr const & attr(tav_istr name) const;
    Node const & child(tav_istr tag) const;
    Attr const & operator()(tav_istr name) const;
    Node const & operator[](tav_istr tag) const;
    Node::const_iterator begin() const;
    Node::const_iterator end() const;

    /// Whether the node is the null node.
    bool isNull() const;
    /// True.
    bool decoding() const;
    /// 0.
    int dumping() const;
    XmlInputStream const & me() const;

    template <class T>
    XmlInputStream const & operator>>(T & v) const {
        read(v);
        return *this;
    }

    /// Nothing.
    void enter(tav_istr name, tav_istr base, tav_istr tag);
    void leave();
    void enterSuper();
    void leaveSuper();

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
    void read(bool & v) const;
    void read(tavString & v) const;
    void read(std::string & v) const;
    void read(std::wstring & v) const;
    void read(tavBytes & v) const;
    void read(tavTime & v) const;

    Node const * borrowed_;
    Node own_;
};

/// Writes values to a node: each is appended to its text.  Belongs to one thread at a time.
///
/// Integers are decimal, floating-point numbers have six significant digits, truth values are "true" and
/// "false", texts go as they stand and wide ones as UTF-8, bytes as base64, times as tavTime::str.
class TAV_API XmlOutputStream {
public:
    /// Over an empty node of its own.
    XmlOutputStream();
    /// Over a node that must outlive the stream.
    explicit XmlOutputStream(Node & node);
    /// Over a node of its own with this tag.
    explicit XmlOutputStream(tav_istr tag);
    XmlOutputStream(XmlOutputStream const &) = delete;
    XmlOutputStream & operator=(XmlOutputStream const &) = delete;

    Node & node() const;
    std::string const & tag() const;
    std::string const & content() const;
    /// Created if missing, as `child`.
    Attr & attr(tav_istr name);
    Node & child(tav_istr tag);
    Node & newChild();
    Attr & operator()(tav_istr name);
    Node & operator[](tav_istr tag);

    /// False.
    bool decoding() const;
    /// 0.
    int dumping() const;
    XmlOutputStream & me();

    template <class T>
    XmlOutputStream & operator<<(T const & v) {
        if constexpr (std::is_convertible<T const &, char const *>::value) {
            write(static_cast<char const *>(v));
        } else {
            write(v);
        }
        return *this;
    }

    /// As Node::encode, with the roots that follow.
    std::string const & encode(bool pretty, bool skipEmpty, int level) const;
    /// At level 1; empty parts are left out unless it is pretty.
    std::string const & str(bool pretty) const;

    /// Gives a node without a tag the tag `tag`, or `name` if that is empty.
    void enter(tav_istr name, tav_istr base, tav_istr tag);
    /// Nothing.
    void leave();
    void enterSuper();
    void leaveSuper();

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

    Node * borrowed_;
    mutable Node own_;
};

/// An output stream for a tree that prints in a dumping mode: see Node::dumping.
class TAV_API XmlDumpStream : public XmlOutputStream {
public:
    XmlDumpStream(Node & node, int dumping);
    explicit XmlDumpStream(int dumping);
    XmlDumpStream(tav_istr tag, int dumping);

    int dumping() const;
    void dumping(int mode);
    bool dumpingLog() const;
    bool dumpingMetadata() const;
    bool dumpingSample() const;

    /// As for XmlOutputStream, but a `name` in a namespace gives the tag only its last part.  Keeps `name`
    /// and `base` as the node's type and superclass, and gives the node the mode.
    void enter(tav_istr name, tav_istr base, tav_istr tag);

    /// What stands for a protected value of `size` bytes: "***[8]".
    static std::string protectedValue(unsigned int size);

private:
    int dumping_;
};

} // namespace xml
} // namespace tav

typedef tav::xml::XmlInputStream tavXmlInStreamImpl;
typedef tav::xml::XmlOutputStream tavXmlOutStreamImpl;

/// Reads objects from XML.  Fields are found by name, the elements of a list by position, and the entries of
/// a map by the tags of the children.  Streams of children must not outlive the root stream.
class TAV_API tavXmlInStream : public tavCodecStream {
public:
    using tavCodecStream::io;

    /// Reads `text` as Node::decode does: what is malformed is told in the log, and reads as missing.
    explicit tavXmlInStream(tav_istr text);
    /// Deletes `impl` at the end if `owns`.
    tavXmlInStream(tavXmlInStreamImpl * impl, bool owns);
    tavXmlInStream(tavXmlInStream const &) = delete;
    tavXmlInStream & operator=(tavXmlInStream const &) = delete;
    ~tavXmlInStream() override;

    bool isNull() const override;
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

    /// The tag.
    tav_istr name() const;

private:
    tavXmlInStreamImpl * impl_;
    bool owns_;
};

/// Writes objects as XML.  Streams of children must not outlive the root stream.
class TAV_API tavXmlOutStream : public tavCodecStream {
public:
    using tavCodecStream::io;

    explicit tavXmlOutStream(tav_istr tag);
    /// Deletes `impl` at the end if `owns`.
    tavXmlOutStream(tavXmlOutStreamImpl * impl, bool owns);
    tavXmlOutStream(tavXmlOutStream const &) = delete;
    tavXmlOutStream & operator=(tavXmlOutStream const &) = delete;
    ~tavXmlOutStream() override;

    bool isNull() const override;
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

    /// The tag.
    tav_istr name() const;
    /// As XmlOutputStream::str.
    tavString str(bool pretty) const;

private:
    tavXmlOutStreamImpl * impl_;
    bool owns_;
};

#endif
