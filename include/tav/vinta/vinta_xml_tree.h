#ifndef TAV_VINTA_XML_TREE_H
#define TAV_VINTA_XML_TREE_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_basetypes_codec.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_basetypes_time.h"
#include "tav/vinta/vinta_locks.h"

#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

/// XML as this system uses it: elements, attributes and text, with CDATA sections, comments and declarations
/// passed over.  Text is passed on as the bytes it is.  The reader is forgiving: attribute values need no
/// quotes, a document may have several roots, and closing tags may be missing or belong to someone else.
namespace tav {
namespace xml {

/// An empty text that lives as long as the process.
TAV_API std::string const & nullString();

/// Appends `text` up to its NUL with the five entities &amp; &quot; &apos; &lt; &gt;; with `lineBreaks`, line
/// feed and carriage return become &#10; and &#13;.  A null text appends nothing.
TAV_API void escape(std::string & out, char const * text, bool lineBreaks);

/// As `escape` without line breaks.
TAV_API void escapeAttr(std::string & out, char const * text);

/// Appends `text` with its entities resolved: the five, &nbsp; as a blank, and characters by number, of which
/// the low 16 bits count.  What is no entity stays, its name in lower case.
TAV_API void unescape(std::string & out, tav_istr text);

/// Makes `text` fit to stand between tags: as it is, in a CDATA section, or escaped if it holds "]]>".
TAV_API void encode_cdata(std::string & text);

/// The reverse.
TAV_API void decode_cdata(std::string & text);

/// What is known of a variable: its type and how it prints in samples, descriptions and logs.
class TAV_API MetaInfo {
public:
    MetaInfo();
    MetaInfo(int varid, tav_istr varname, tav_istr vartype, tav_istr defaultValue, bool optional,
             bool multiple, bool protectedValue);

    void setMeta(int varid, tav_istr varname, tav_istr vartype, tav_istr defaultValue, bool optional,
                 bool multiple, bool protectedValue);

    /// Appends the description as attributes, each if it has a value; flags as "true".
    void dump(std::string & out) const;
    /// Appends the attribute "id", unless there is no id.
    void dumpId(std::string & out) const;

    /// -9999 if there is none.
    tavNumber<int, 0> varid;
    std::string vartype;
    std::string superclass;
    tavNumber<bool, 0> optional;
    /// May occur several times.
    tavNumber<bool, 0> multiple;
    /// Prints the id in hexadecimal.
    tavNumber<bool, 0> hexical;
    /// Is masked where a tree prints for a log or as a sample.
    tavNumber<bool, 0> protectedValue;
    std::string defaultValue;
    /// The valid values.
    std::string values;
    std::string varname;
    std::string memo;
};

/// The base of all parts of a tree.  The writing accessors give the part a MetaInfo; the reading ones give
/// the default where there is none, and create nothing.
class TAV_API VarInfo : public tavRefCountObject {
public:
    VarInfo();
    /// With a copy of the MetaInfo.
    VarInfo(VarInfo const & other);
    VarInfo & operator=(VarInfo const & other);
    ~VarInfo() override;

    virtual std::string const & name() const = 0;
    virtual std::string const & value() const = 0;

    tavNumber<int, 0> & varid();
    tavNumber<bool, 0> & optional();
    tavNumber<bool, 0> & multiple();
    tavNumber<bool, 0> & hexical();
    tavNumber<bool, 0> & protectedValue();
    std::string & vartype();
    std::string & superclass();
    std::string & defaultValue();
    std::string & values();
    std::string & varname();
    std::string & memo();

    int varid() const;
    bool optional() const;
    bool multiple() const;
    bool hexical() const;
    bool protectedValue() const;
    std::string const & vartype() const;
    std::string const & superclass() const;
    std::string const & defaultValue() const;
    std::string const & values() const;
    std::string const & varname() const;
    std::string const & memo() const;

    void setMeta(int varid, tav_istr varname, tav_istr vartype, tav_istr defaultValue, bool optional,
                 bool multiple, bool protectedValue);

    /// Appends `text` as this variable's value in a dumping mode: masked in a log and starred in a sample if
    /// it is protected, and with the short description behind it in a sample.
    void dumpSampleValue(std::string & out, tav_istr text, int mode) const;

    /// Appends the short description, such as "{7 int32?}".
    void dumpMiniMeta(std::string & out) const;

    /// The type in lower case, out of its "Enum" and "Optional".
    std::string getMiniMetaType() const;

    /// The text with its middle masked and its length in brackets: "ab***gh[8]".
    static std::string getProtectedString(tav_istr text);
    /// Eight stars.
    static std::string getProtectedSampleString();

    /// The number of a known type that `type` begins with, from 1 for Bool to 17 for List, and in `rest` what
    /// it wraps: `List<Int32>`, `List(Int32)` and `List Int32` are one.  0, and the whole text, for others.
    static int parseType(tav_istr type, std::string & rest);

private:
    friend class NodeWriter;

    MetaInfo & check_i();

    std::unique_ptr<MetaInfo> meta_;
};

/// An attribute: a name and a value.
class TAV_API Attr : public VarInfo {
public:
    Attr();
    Attr(tav_istr name, tav_istr value);
    Attr(Attr const & other);
    Attr & operator=(Attr const & other);
    ~Attr() override;

    std::string const & name() const override;
    std::string const & value() const override;
    std::string & value();

    /// Appends `lead`, a blank, and name="value".  An empty value appends nothing if `skipEmpty`.
    void encode(std::string & out, bool skipEmpty, tav_istr lead, int dumping) const;

    /// Appends a blank and name="value".
    static void write(std::string & out, tav_istr name, tav_istr value);

    static Attr const & null();
    /// To be written to and forgotten; one for each thread.
    static Attr & dummy();

private:
    friend class Node;

    std::string name_;
    std::string value_;
};

/// The text of an element.
class TAV_API Content : public VarInfo {
public:
    Content();
    explicit Content(tav_istr text);
    Content(Content const & other);
    Content & operator=(Content const & other);
    ~Content() override;

    /// Empty.
    std::string const & name() const override;
    std::string const & value() const override;
    std::string & value();

private:
    std::string text_;
};

/// A comment.
class TAV_API CommentNode : public VarInfo {
public:
    CommentNode();
    CommentNode(CommentNode const & other);
    CommentNode & operator=(CommentNode const & other);
    ~CommentNode() override;

    /// Empty.
    std::string const & name() const override;
    std::string const & value() const override;
    void comment(tav_istr text);

private:
    std::string text_;
};

/// An element: a tag, attributes, children and one text, and the root that follows it.
///
/// Attributes, children and text are counted and may be shared; a copied node shares them with its original,
/// and has no following root.  Looking up a missing part creates it on a writable node, and gives the null
/// object on a const one.  Names are indexed at the first look-up, as they are then or when they are added.
///
/// Trees of any depth are read, written, compared and destroyed in bounded stack.  A tree belongs to one
/// thread: even writing it out keeps the text in the node.
class TAV_API Node : public VarInfo {
public:
    typedef std::vector<tavSharedPtr<Node>>::const_iterator const_iterator;

    Node();
    explicit Node(tav_istr tag);
    Node(tav_istr tag, tav_istr content);
    Node(Node const & other);
    Node & operator=(Node const & other);
    ~Node() override;

    /// A new node with what `decode` reads.
    static tavSharedPtr<Node> fromXml(tav_istr text);
    static Node const & null();
    /// To be written to and forgotten; one for each thread.
    static Node & dummy();

    /// Reads one or more roots; the first goes into this node, beside what it holds, the others become its
    /// followers.  Never throws for what the text holds: a malformed text is told in the log, and what was
    /// built stays.  `rest` gets what stands behind the last root, or the text from where it failed.
    ///
    /// The parts lie beside one another: one that is kept alone keeps at most 32 kB of the others' memory.
    Node & decode(tav_istr text, std::string * rest = nullptr);

    /// The text of the tree, which this node keeps until the next call.  `pretty` puts each element on a
    /// line, indented by four blanks for each level; `skipEmpty` leaves out empty elements and attributes;
    /// `withNext` adds the roots that follow.
    std::string const & encode(bool pretty, bool skipEmpty, int level, bool withNext) const;

    /// The tag.
    std::string const & name() const override;
    /// The text.
    std::string const & value() const override;
    std::string const & tag() const;
    Node & tag(tav_istr v);

    /// The text.  The reference follows later changes only if the Content was there when it was taken.
    std::string const & content() const;
    Node & content(tav_istr v);
    /// The text of the Content, which is created if missing.
    std::string & contentString();
    std::string const & contentString() const;
    /// Created if missing.
    tavSharedPtr<Content> contentNode();
    tavSharedPtr<Content> contentNode() const;
    bool contentIsEmpty() const;

    Attr const & attr(tav_istr name) const;
    Attr & attr(tav_istr name);
    Attr const & operator()(tav_istr name) const;
    Attr & operator()(tav_istr name);
    /// Appends; a look-up finds the last of one name, and writing writes all.
    void setAttr(tav_istr name, tav_istr value);
    /// Takes `attr` over; null is ignored.
    void setAttr(Attr * attr);

    /// The first child of this tag.
    Node const & child(tav_istr tag) const;
    Node & child(tav_istr tag);
    Node const & operator[](tav_istr tag) const;
    Node & operator[](tav_istr tag);
    /// Takes `child` over; null is ignored.
    void addChild(Node * child);
    void addChild(tav_istr tag, tav_istr content);
    /// A new last child with the tag "any".
    Node & newChild();

    /// The children.
    const_iterator begin() const;
    const_iterator end() const;

    /// The root that follows, or null.
    Node const * next() const;
    Node * next();
    /// Takes `v` over.
    void next(Node * v);
    Node * getNext() const;
    /// Replaces the root that follows by a new one.
    Node * createNext();

    /// Makes the node empty; what follows stays.
    void clear();
    void clearAttrs();
    void clearContent();
    void clearNodes();

    bool isNull() const;
    /// The null node, or no tag, no text, no attributes and no children.
    bool isEmpty() const;
    /// No text.
    bool isEmptyValue() const;
    /// No children.
    bool isSimple() const;
    bool operator!() const;
    operator void *() const;

    /// Equal tags, texts, attributes and children, in order.
    bool operator==(Node const & other) const;

    /// Adds the names of all elements and attributes of the tree.
    void collectNames(std::set<std::string> & names) const;
    /// Appends the children.
    void collectTopNodes(std::vector<tavSharedPtr<Node>> & nodes) const;
    /// Appends all attribute values and texts that are not empty, in the order of the document.
    void collectValues(std::vector<std::string> & values) const;

    /// How the tree prints: 0 plain, 1 as a sample, 2 as a description, 3 for a log.  Children that have no
    /// mode of their own follow their parent.
    int dumping() const;
    void dumping(int mode);
    bool dumpingSample() const;
    bool dumpingMetadata() const;
    bool dumpingLog() const;

private:
    friend class NodeParser;
    friend class NodeWriter;
    friend class XmlOutputStream;

    using AttrIndex = std::map<std::string, tavSharedPtr<Attr>, std::less<>>;
    using NodeIndex = std::multimap<std::string, tavSharedPtr<Node>, std::less<>>;

    /// The text to write to, without an object for it.
    std::string & text();
    /// The text as an object; null if there is none.
    tavSharedPtr<Content> const & sharedContent() const;
    AttrIndex & attrs() const;
    NodeIndex & nodes() const;
    void add(tavSharedPtr<Attr> attr);
    void append(tavSharedPtr<Node> child);
    void releaseTree() noexcept;

    std::string tag_;
    /// The text of a node that no one has asked for its Content.  A Content that was made has a copy of it,
    /// and what was given out of it before stays valid.
    std::string text_;
    mutable tavSharedPtr<Content> content_;
    std::vector<tavSharedPtr<Attr>> attrs_;
    mutable std::unique_ptr<AttrIndex> attrIndex_;
    std::vector<tavSharedPtr<Node>> nodes_;
    mutable std::unique_ptr<NodeIndex> nodeIndex_;
    mutable std::string output_;
    int dumping_ = 0;
    tavSharedPtr<Node> next_;
};

/// Prints the compact text with the roots that follow.
TAV_API std::ostream & operator<<(std::ostream & out, Node const & v);

} // namespace xml
} // namespace tav

#endif
