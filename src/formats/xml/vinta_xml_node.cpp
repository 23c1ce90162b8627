#include "tav/vinta/vinta_xml_tree.h"

#include "formats/xml/xml_modes.h"
#include "formats/xml/xml_output.h"
#include "foundation/report.h"
#include "foundation/tree_end.h"
#include "foundation/tree_nodes.h"
#include "foundation/views.h"
#include "tav/vinta/vinta_basetypes_failures.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <utility>

namespace tav {
namespace xml {

using tav::detail::bytesOf;
using tav::detail::here;
using tav::xml::detail::logMode;
using tav::xml::detail::metadataMode;
using tav::xml::detail::noId;
using tav::xml::detail::Output;
using tav::xml::detail::sampleMode;

namespace {

constexpr std::string_view cdataBegin = "<![CDATA[";
constexpr std::string_view cdataEnd = "]]>";
constexpr std::string_view commentBegin = "<!--";
constexpr std::string_view commentEnd = "-->";
constexpr std::string_view declarationBegin = "<?";
constexpr std::string_view declarationEnd = ">";

/// A repeated element in a sample.
constexpr std::string_view ellipsis = "...";

/// What a byte can be, as bits.
constexpr unsigned char blankBit = 1;
constexpr unsigned char nameStartBit = 2;
constexpr unsigned char namePartBit = 4;
constexpr unsigned char hasEntityBit = 8;
constexpr unsigned char lineBreakBit = 16;

constexpr bool firstIsLowest = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

constexpr std::array<unsigned char, 256> classifyBytes() {
    std::array<unsigned char, 256> classes{};
    for (std::size_t c = 'a'; c <= 'z'; ++c) {
        classes[c] = classes[c - 'a' + 'A'] = nameStartBit | namePartBit;
    }
    classes[':'] = classes['_'] = nameStartBit | namePartBit;
    for (std::size_t c = '0'; c <= '9'; ++c) {
        classes[c] = namePartBit;
    }
    classes['-'] = classes['.'] = namePartBit;
    classes[' '] = classes['\t'] = blankBit;
    classes['\r'] = classes['\n'] = blankBit | lineBreakBit;
    classes['&'] = classes['"'] = classes['\''] = classes['<'] = classes['>'] = hasEntityBit;
    return classes;
}

constexpr std::array<unsigned char, 256> byteClasses = classifyBytes();

bool isOf(char c, unsigned bits) {
    return (byteClasses[static_cast<unsigned char>(c)] & bits) != 0;
}

/// Where the first byte of these classes stands; `end` if there is none.
char const * findOf(char const * begin, char const * end, unsigned bits) {
    while (begin != end && !isOf(*begin, bits)) {
        ++begin;
    }
    return begin;
}

/// Where the first byte that has an entity stands; `end` if there is none.
char const * findEntityByte(char const * at, char const * end) {
    // Eight at once.  What this finds has the high bit of its byte set; bits above the lowest one may be set
    // without reason, so the first byte has to be the lowest.
    constexpr std::uint64_t ones = 0x0101010101010101u;
    auto const zeros = [](std::uint64_t word) { return (word - ones) & ~word & (ones << 7); };
    for (; firstIsLowest && end - at >= 8; at += 8) {
        std::uint64_t word;
        std::memcpy(&word, at, sizeof(word));
        // '<' and '>' differ in one bit, and so do '&' and the apostrophe.
        std::uint64_t const found = zeros((word | ones << 1) ^ ones * '>') |
                                    zeros((word | ones) ^ ones * '\'') | zeros(word ^ ones * '"');
        if (found != 0) {
            return at + __builtin_ctzll(found) / 8;
        }
    }
    return findOf(at, end, hasEntityBit);
}

bool hasSpecialBytes(std::string_view text) {
    char const * const end = text.data() + text.size();
    return findEntityByte(text.data(), end) != end;
}

/// The entity of a byte that has one or is a line break.
std::string_view entityOf(char c) {
    switch (c) {
    case '&': return "&amp;";
    case '"': return "&quot;";
    case '\'': return "&apos;";
    case '<': return "&lt;";
    case '>': return "&gt;";
    case '\n': return "&#10;";
    default: return "&#13;";
    }
}

std::string_view upToNul(char const * text) {
    return text == nullptr ? std::string_view() : std::string_view(text);
}

void appendEscaped(std::string & out, std::string_view text, bool lineBreaks) {
    char const * at = text.data();
    char const * const end = at + text.size();
    while (true) {
        char const * const found =
            lineBreaks ? findOf(at, end, hasEntityBit | lineBreakBit) : findEntityByte(at, end);
        out.append(at, static_cast<std::size_t>(found - at));
        if (found == end) {
            return;
        }
        out += entityOf(*found);
        at = found + 1;
    }
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// The value of digits; false without any or with one that is none.
bool readCharacter(std::string_view digits, unsigned radix, unsigned & value) {
    value = 0;
    for (char const c : digits) {
        unsigned const digit = c >= '0' && c <= '9'                  ? static_cast<unsigned>(c - '0')
                               : c >= 'a' && c <= 'f' && radix == 16 ? static_cast<unsigned>(c - 'a') + 10
                                                                     : radix;
        if (digit >= radix) {
            return false;
        }
        value = value * radix + digit;
    }
    return !digits.empty();
}

/// Appends what the entity `name`, in lower case, stands for.
void appendEntity(std::string & out, std::string_view name) {
    static constexpr struct {
        std::string_view name;
        char byte;
    } named[] = {{"amp", '&'}, {"quot", '"'}, {"apos", '\''}, {"lt", '<'}, {"gt", '>'}, {"nbsp", ' '}};
    for (auto const & entity : named) {
        if (entity.name == name) {
            out += entity.byte;
            return;
        }
    }
    unsigned value = 0;
    bool const hexadecimal = name.size() > 1 && name[0] == '#' && name[1] == 'x';
    if (hexadecimal ? readCharacter(name.substr(2), 16, value)
                    : !name.empty() && name[0] == '#' && readCharacter(name.substr(1), 10, value)) {
        value &= 0xffff;
        if (value != 0) {
            tavString text;
            text.write(static_cast<wchar_t>(value));
            out += bytesOf(text);
        }
        return;
    }
    out.append(1, '&').append(name).append(1, ';');
}

void appendUnescaped(std::string & out, std::string_view text) {
    constexpr std::size_t longest = 7;
    while (!text.empty()) {
        std::size_t const amp = std::min(text.find('&'), text.size());
        out.append(text, 0, amp);
        text.remove_prefix(amp);
        if (text.empty()) {
            return;
        }
        std::size_t const end = text.substr(0, longest + 1).find(';');
        if (end == std::string_view::npos) {
            out += '&';
            text.remove_prefix(1);
            continue;
        }
        char name[longest + 1];
        std::transform(text.begin() + 1, text.begin() + static_cast<std::ptrdiff_t>(end), name, lower);
        appendEntity(out, std::string_view(name, end - 1));
        text.remove_prefix(end + 1);
    }
}

/// Appends to a list that has room for three at first: the allocator gives no less for one.
template <class T>
void push(std::vector<tavSharedPtr<T>> & list, tavSharedPtr<T> && item) {
    if (list.capacity() == 0) {
        list.reserve(3);
    }
    list.push_back(std::move(item));
}

/// A part of a tree that shares its memory with what the same text made.  Its destructor, which is virtual,
/// finds the way back.
template <class T>
class Parsed final : public T {
    static_assert(alignof(T) <= alignof(void *), "nodes are aligned as pointers are");

public:
    using T::T;

    static void * operator new(std::size_t size) { return tav::detail::newCountedNode(size); }
    static void operator delete(void * part) noexcept { tav::detail::deleteNode(part); }
};

using End = tav::detail::TreeEnd<tavSharedPtr<Node>, 1, tav::detail::NodeReturn>;

} // namespace

std::string const & nullString() {
    static std::string const empty;
    return empty;
}

void escape(std::string & out, char const * text, bool lineBreaks) {
    appendEscaped(out, upToNul(text), lineBreaks);
}

void escapeAttr(std::string & out, char const * text) {
    appendEscaped(out, upToNul(text), false);
}

void unescape(std::string & out, tav_istr text) {
    appendUnescaped(out, bytesOf(text));
}

void encode_cdata(std::string & text) {
    if (!hasSpecialBytes(text)) {
        return;
    }
    std::string encoded;
    if (text.find(cdataEnd) != std::string::npos) {
        appendEscaped(encoded, upToNul(text.c_str()), false);
    } else {
        encoded.reserve(cdataBegin.size() + text.size() + cdataEnd.size());
        encoded.append(cdataBegin).append(text).append(cdataEnd);
    }
    text.swap(encoded);
}

void decode_cdata(std::string & text) {
    std::string_view const whole = text;
    if (whole.size() >= cdataBegin.size() + cdataEnd.size() &&
        whole.substr(0, cdataBegin.size()) == cdataBegin &&
        whole.substr(whole.size() - cdataEnd.size()) == cdataEnd) {
        text.resize(text.size() - cdataEnd.size());
        text.erase(0, cdataBegin.size());
    } else if (text.find('&') != std::string::npos) {
        std::string decoded;
        appendUnescaped(decoded, whole);
        text.swap(decoded);
    }
}

Attr::Attr() = default;

Attr::Attr(tav_istr name, tav_istr value) : name_(bytesOf(name)), value_(bytesOf(value)) {}

Attr::Attr(Attr const & other) = default;

Attr & Attr::operator=(Attr const & other) = default;

Attr::~Attr() = default;

std::string const & Attr::name() const {
    return name_;
}

std::string const & Attr::value() const {
    return value_;
}

std::string & Attr::value() {
    return value_;
}

void Attr::encode(std::string & out, bool skipEmpty, tav_istr lead, int dumping) const {
    if (skipEmpty && value_.empty()) {
        return;
    }
    out += bytesOf(lead);
    if (dumping == sampleMode || dumping == logMode) {
        std::string shown;
        dumpSampleValue(shown, tav_istr(value_), dumping);
        write(out, tav_istr(name_), tav_istr(shown));
    } else {
        write(out, tav_istr(name_), tav_istr(value_));
    }
}

void Attr::write(std::string & out, tav_istr name, tav_istr value) {
    std::string_view const whole = bytesOf(value);
    out.append(1, ' ').append(bytesOf(name)).append("=\"");
    appendEscaped(out, whole.substr(0, whole.find('\0')), false);
    out += '"';
}

Attr const & Attr::null() {
    static Attr const none;
    return none;
}

Attr & Attr::dummy() {
    static thread_local Attr scratch;
    scratch = Attr();
    return scratch;
}

/// Reads one text into trees.  Open elements stand on a stack of its own.
class NodeParser {
public:
    explicit NodeParser(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

    std::string_view rest() const { return std::string_view(at_, static_cast<std::size_t>(end_ - at_)); }

    /// The first root goes into `first`, what follows behind it as it gets complete.
    void decodeRoots(Node & first) {
        Node * last = &first;
        decodeNode(first);
        while (at_ != end_ && *at_ == '<' && !startsWith("</")) {
            tavSharedPtr<Node> root(new Parsed<Node>);
            decodeNode(*root);
            last->next_ = root;
            last = root.get();
        }
    }

private:
    struct Open {
        Node * node;
        /// Null for a root.
        tavSharedPtr<Node> owner;
        /// Where its children begin among those that wait.
        std::size_t firstChild;
    };

    /// Whether this begins like a comment, a declaration or a CDATA section: the quick test for all of them.
    bool isMarkup() const { return end_ - at_ > 1 && *at_ == '<' && (at_[1] == '!' || at_[1] == '?'); }

    bool isCdata() const { return isMarkup() && startsWith(cdataBegin); }

    bool startsWith(std::string_view text) const { return rest().substr(0, text.size()) == text; }

    [[noreturn]] void fail(char const * name, tav::detail::Site site) const {
        std::string_view const unread = rest();
        tav::detail::log(tavLogger::DEFAULT_TAG(), tavLogger::ERROR, site,
                         [unread](std::ostream & out) { out << "not parsed xml =" << unread; });
        tav::detail::log(tavLogger::DEFAULT_TAG(), tavLogger::ERROR, site,
                         [name](std::ostream & out) { out << "<EXCEPTION> " << name; });
        throw DecodeException(site.file, site.line, site.func, tav_istr(name));
    }

    void failAtEnd(char const * name, tav::detail::Site site) const {
        if (at_ == end_) {
            fail(name, site);
        }
    }

    /// Passes over blanks, comments and declarations.  One without an end reaches to the end of the input.
    void skipBlank() {
        // No blank is above this one, and most bytes are.
        char const * at = at_;
        while (at != end_ && static_cast<unsigned char>(*at) <= ' ' && isOf(*at, blankBit)) {
            ++at;
        }
        at_ = at;
        if (isMarkup()) {
            skipMarkup();
        }
    }

    [[gnu::noinline]] void skipMarkup() {
        while (at_ != end_) {
            if (isOf(*at_, blankBit)) {
                ++at_;
            } else if (!isMarkup()) {
                return;
            } else if (startsWith(commentBegin)) {
                skipBetween(commentBegin, commentEnd);
            } else if (startsWith(declarationBegin)) {
                skipBetween(declarationBegin, declarationEnd);
            } else {
                return;
            }
        }
    }

    /// The end mark shares no byte with the beginning: "<!-->" ends nothing.
    void skipBetween(std::string_view begin, std::string_view end) {
        std::size_t const found = rest().find(end, begin.size());
        at_ = found == std::string_view::npos ? end_ : at_ + found + end.size();
    }

    std::string_view takeName() {
        char const * const begin = at_;
        while (at_ != end_ && isOf(*at_, namePartBit)) {
            ++at_;
        }
        return std::string_view(begin, static_cast<std::size_t>(at_ - begin));
    }

    void decodeTag(Node & node) {
        auto const site = here("tav::xml::Node::decodeTag");
        skipBlank();
        failAtEnd("XML_DECODE_TAG_NO_BEGIN_CHAR", site);
        if (*at_ != '<') {
            fail("XML_DECODE_TAG_NOT_BEGIN_CHAR", site);
        }
        ++at_;
        failAtEnd("XML_DECODE_TAG_NO_IDENTIFY_CHAR", site);
        if (*at_ == '/') {
            fail("XML_DECODE_TAG_CLOSING", site);
        }
        if (!isOf(*at_, nameStartBit)) {
            fail("XML_DECODE_TAG_NOT_IDENTIFY_CHAR", site);
        }
        std::string_view const tag = takeName();
        failAtEnd("XML_DECODE_TAG_EOF", site);
        node.tag_ = tag;
    }

    /// True if the element is complete: it ended in "/>".
    bool decodeAttrs(Node & node) {
        auto const site = here("tav::xml::Node::decodeAttrs");
        while (true) {
            skipBlank();
            failAtEnd("XML_DECODE_ATTR_NO_END_TAG", site);
            if (*at_ == '>') {
                ++at_;
                return false;
            }
            if (startsWith("/>")) {
                at_ += 2;
                return true;
            }
            if (!isOf(*at_, nameStartBit)) {
                fail("XML_DECODE_ATTR_NOT_IDENTITY_CHAR", site);
            }
            std::string_view const name = takeName();
            failAtEnd("XML_DECODE_ATTR_NO_ASSIGN_CHAR", site);
            skipBlank();
            failAtEnd("XML_DECODE_ATTR_NO_ASSIGN_CHAR", site);
            if (*at_ != '=') {
                fail("XML_DECODE_ATTR_NOT_ASSIGN_CHAR", site);
            }
            ++at_;
            skipBlank();
            failAtEnd("XML_DECODE_ATTR_NO_QUOTE_CHAR", site);
            char const quote = *at_;
            bool const quoted = quote == '"' || quote == '\'';
            if (quoted) {
                ++at_;
            }
            std::string_view const ahead = rest();
            std::size_t const size = quoted ? ahead.find(quote) : sizeToBlank(ahead);
            if (size >= ahead.size()) {
                fail("XML_DECODE_ATTR_NO_END_QUOTE_CHAR", site);
            }
            node.add(readAttr(name, ahead.substr(0, size)));
            at_ += quoted ? size + 1 : size;
            failAtEnd("XML_DECODE_EOF", site);
        }
    }

    static std::size_t sizeToBlank(std::string_view text) {
        char const * const begin = text.data();
        return static_cast<std::size_t>(findOf(begin, begin + text.size(), blankBit) - begin);
    }

    static tavSharedPtr<Attr> readAttr(std::string_view name, std::string_view value) {
        tavSharedPtr<Attr> attr(new Parsed<Attr>(tav::detail::viewOf(name), tav_istr()));
        appendUnescaped(attr->value(), value);
        return attr;
    }

    void decodeContent(Node & node) {
        auto const site = here("tav::xml::Node::decodeContent");
        bool const cdata = isCdata();
        std::size_t const found = cdata ? rest().find(cdataEnd) : rest().find('<');
        if (found == std::string_view::npos) {
            fail("XML_DECODE_CONTENT_NO_END_TAG", site);
        }
        if (cdata) {
            std::size_t const begin = cdataBegin.size();
            node.text().append(rest(), begin, found - begin);
            at_ += found + cdataEnd.size();
        } else if (found != 0) {
            appendUnescaped(node.text(), rest().substr(0, found));
            at_ += found;
        }
    }

    bool atClosingTag(Node const & node) const {
        std::size_t const size = node.tag_.size();
        if (static_cast<std::size_t>(end_ - at_) < size + 3 || *at_ != '<' || at_[1] != '/' ||
            at_[size + 2] != '>') {
            return false;
        }
        return std::memcmp(at_ + 2, node.tag_.data(), size) == 0;
    }

    /// Reads the opening tag; true if content is to follow.
    bool begin(Node & node) {
        auto const site = here("tav::xml::Node::decodeNode");
        decodeTag(node);
        if (node.tag_.empty()) {
            fail("XML_DECODE_TAG_EMPTY", site);
        }
        if (decodeAttrs(node)) {
            return false;
        }
        skipBlank();
        failAtEnd("XML_DECODE_EOF", site);
        return true;
    }

    void decodeNode(Node & root) {
        open_.clear();
        children_.clear();
        if (begin(root)) {
            open_.push_back({&root, tavSharedPtr<Node>(), 0});
        }
        while (!open_.empty()) {
            Node & node = *open_.back().node;
            bool const closing = atClosingTag(node);
            if (closing || at_ == end_ || startsWith("</")) {
                close(closing);
            } else if (*at_ == '<' && !isCdata()) {
                tavSharedPtr<Node> child(new Parsed<Node>);
                if (begin(*child)) {
                    Node * const next = child.get();
                    open_.push_back({next, std::move(child), children_.size()});
                } else {
                    append(std::move(child));
                    skipBlank();
                }
            } else {
                decodeContent(node);
                skipBlank();
            }
        }
        skipBlank();
    }

    /// Ends the innermost element, with its closing tag if that is here.
    void close(bool closing) {
        Open done = std::move(open_.back());
        open_.pop_back();
        if (closing) {
            at_ += done.node->tag_.size() + 3;
        }
        skipBlank();
        if (!open_.empty()) {
            takeChildren(*done.node, done.firstChild);
            append(std::move(done.owner));
        }
    }

    /// Adds a child to the innermost element: to a root at once, as it stays when the text turns out to be
    /// malformed, to any other when that is complete.
    void append(tavSharedPtr<Node> child) {
        if (open_.size() == 1) {
            open_.back().node->append(std::move(child));
        } else {
            children_.push_back(std::move(child));
        }
    }

    /// Moves the last children that wait, from `first` on, into their element.
    void takeChildren(Node & node, std::size_t first) {
        auto const begin = children_.begin() + static_cast<std::ptrdiff_t>(first);
        node.nodes_.assign(std::make_move_iterator(begin), std::make_move_iterator(children_.end()));
        children_.erase(begin, children_.end());
    }

    char const * at_;
    char const * end_;
    std::vector<Open> open_;
    /// The children of those that are open, but for the root's, outermost first.
    std::vector<tavSharedPtr<Node>> children_;
};

/// Writes trees to one text.
class NodeWriter {
public:
    NodeWriter(std::string & out, bool pretty, bool skipEmpty, int level)
        : out_(out), pretty_(pretty), skipEmpty_(skipEmpty), level_(level) {}

    void write(Node const & root) {
        begin(root, root.dumping_);
        while (!open_.empty()) {
            Open & top = open_.back();
            if (top.child == top.node->nodes_.size()) {
                end();
                continue;
            }
            Node const & child = *top.node->nodes_[top.child];
            int const mode = child.dumping_ != 0 ? child.dumping_ : top.mode;
            if (mode == sampleMode && child.multiple() && !top.again) {
                top.again = true;
            } else {
                bool const repeated = top.again;
                top.again = false;
                ++top.child;
                if (repeated) {
                    repeat(child);
                    continue;
                }
            }
            if (top.mode != metadataMode || child.tag_ != "__key__") {
                begin(child, mode);
            }
        }
    }

private:
    struct Open {
        Node const * node;
        int mode;
        std::size_t child;
        /// The child is written and stands for several: its repetition is to come.
        bool again;
    };

    int level() const { return level_ + static_cast<int>(open_.size()); }

    void lineTo(int level) {
        if (pretty_) {
            out_.put('\n');
            out_.fill(static_cast<std::size_t>(std::max(level, 0)) * 4, ' ');
        }
    }

    /// Writes a node's beginning, and all of it if it has no children.
    void begin(Node const & node, int mode) {
        if (mode == metadataMode) {
            describe(node);
            return;
        }
        if (skipEmpty_ && node.contentIsEmpty() && node.attrs_.empty() && node.nodes_.empty()) {
            return;
        }
        lineTo(level());
        out_.put("<", node.tag_, "");
        writeAttrs(node, mode);
        if (!node.nodes_.empty()) {
            out_.put('>');
            open_.push_back({&node, mode, 0, false});
            return;
        }
        bool const has_text =
            !node.contentIsEmpty() || (mode == sampleMode && textInfo(node).meta_ != nullptr);
        if (!has_text && mode == 0) {
            out_.put("/>");
            return;
        }
        out_.put('>');
        if (has_text) {
            writeText(node, mode, level());
            if (!node.attrs_.empty()) {
                lineTo(level());
            }
        }
        writeEnd(node.tag_);
    }

    void end() {
        Open const top = open_.back();
        open_.pop_back();
        if (top.mode == metadataMode) {
            lineTo(level());
            writeEnd("element");
            return;
        }
        if (!top.node->contentIsEmpty()) {
            writeText(*top.node, top.mode, level());
        }
        lineTo(level());
        writeEnd(top.node->tag_);
    }

    void repeat(Node const & child) {
        lineTo(level());
        out_.put("<", child.tag_, ">");
        out_.put(ellipsis);
        writeEnd(child.tag_);
    }

    void writeEnd(std::string_view tag) { out_.put("</", tag, ">"); }

    void writeAttrs(Node const & node, int mode) {
        bool const described =
            mode == sampleMode && node.varid() != noId && !(node.attrs_.empty() && node.nodes_.empty());
        if (node.attrs_.empty() && !described) {
            return;
        }
        for (tavSharedPtr<Attr> const & attr : node.attrs_) {
            if (!skipEmpty_ || !attr->Attr::value().empty()) {
                lineTo(level() + 1);
                writeAttr(*attr, mode);
            }
        }
        if (described) {
            std::string meta;
            node.dumpMiniMeta(meta);
            lineTo(level() + 1);
            writePair("__meta__", meta);
        }
    }

    void writeAttr(Attr const & attr, int mode) {
        if (mode != sampleMode && mode != logMode) {
            writePair(attr.Attr::name(), attr.Attr::value());
            return;
        }
        std::string shown;
        attr.dumpSampleValue(shown, tav_istr(attr.Attr::value()), mode);
        writePair(attr.Attr::name(), shown);
    }

    /// As Attr::write.
    void writePair(std::string_view name, std::string_view value) {
        out_.put(" ", name, "=\"");
        writeEscaped(value.substr(0, value.find('\0')));
        out_.put('"');
    }

    void writeEscaped(std::string_view text) {
        char const * at = text.data();
        char const * const end = at + text.size();
        for (;;) {
            char const * const found = findEntityByte(at, end);
            out_.put(std::string_view(at, static_cast<std::size_t>(found - at)));
            if (found == end) {
                return;
            }
            out_.put(entityOf(*found));
            at = found + 1;
        }
    }

    /// What describes a node's text: the text's own description, else the node's.
    static VarInfo const & textInfo(Node const & node) {
        Content const * const content = node.content_.get();
        bool const own = content != nullptr && content->meta_ != nullptr;
        // What either protects is a secret.
        return own && (content->protectedValue() || !node.protectedValue())
                   ? static_cast<VarInfo const &>(*content)
                   : node;
    }

    void writeText(Node const & node, int mode, int level) {
        if (!node.attrs_.empty()) {
            lineTo(level + 1);
        }
        std::string const & text = node.content();
        if (mode != sampleMode && mode != logMode) {
            writeCdata(text);
            return;
        }
        std::string shown;
        textInfo(node).dumpSampleValue(shown, tav_istr(text), mode);
        writeCdata(shown);
    }

    /// As encode_cdata.
    void writeCdata(std::string const & text) {
        if (!hasSpecialBytes(text)) {
            out_.put(text);
        } else if (text.find(cdataEnd) != std::string::npos) {
            writeEscaped(upToNul(text.c_str()));
        } else {
            out_.put(cdataBegin, text, cdataEnd);
        }
    }

    void describe(Node const & node) {
        lineTo(level());
        out_.put("<element");
        writeMeta(node, tav_istr(node.tag_));
        // Read through a const view: the writing accessors would give the text a description.
        Content const * const content = node.content_.get();
        bool const text = content != nullptr && content->varid() != noId;
        if (node.attrs_.empty() && node.nodes_.empty() && !text) {
            out_.put("/>");
            return;
        }
        out_.put('>');
        for (tavSharedPtr<Attr> const & attr : node.attrs_) {
            lineTo(level() + 1);
            out_.put("<attrib");
            writeMeta(*attr, tav_istr(attr->name()));
            out_.put("/>");
        }
        if (text) {
            lineTo(level() + 1);
            out_.put("<content");
            writeMeta(*content, tav_istr());
            out_.put("/>");
        }
        open_.push_back({&node, metadataMode, 0, false});
    }

    void writeMeta(VarInfo const & info, tav_istr name) {
        if (!name.empty()) {
            writePair("name", bytesOf(name));
        }
        if (info.meta_ != nullptr) {
            std::string meta;
            info.meta_->dump(meta);
            info.meta_->dumpId(meta);
            out_.put(meta);
        }
    }

    Output out_;
    bool pretty_;
    bool skipEmpty_;
    int level_;
    std::vector<Open> open_;
};

Node::Node() = default;

Node::Node(tav_istr tag) : tag_(bytesOf(tag)) {}

Node::Node(tav_istr tag, tav_istr content) : tag_(bytesOf(tag)), text_(bytesOf(content)) {}

Node::Node(Node const & other)
    : VarInfo(other),
      tag_(other.tag_),
      content_(other.sharedContent()),
      attrs_(other.attrs_),
      nodes_(other.nodes_),
      dumping_(other.dumping_) {}

Node & Node::operator=(Node const & other) {
    if (this == &other) {
        return *this;
    }
    // What is replaced goes last, as `other` may be a part of it.
    Node former(other);
    VarInfo::operator=(other);
    tag_.swap(former.tag_);
    content_.swap(former.content_);
    text_.clear();
    attrs_.swap(former.attrs_);
    attrIndex_.reset();
    nodes_.swap(former.nodes_);
    nodeIndex_.reset();
    output_.clear();
    std::swap(dumping_, former.dumping_);
    next_.swap(former.next_);
    return *this;
}

Node::~Node() {
    nodeIndex_.reset();
    if (!nodes_.empty() || next_) {
        releaseTree();
    }
}

tavSharedPtr<Node> Node::fromXml(tav_istr text) {
    tavSharedPtr<Node> node(new Node);
    node->decode(text);
    return node;
}

Node const & Node::null() {
    static Node const none;
    return none;
}

Node & Node::dummy() {
    static thread_local Node scratch;
    scratch = Node();
    return scratch;
}

Node & Node::decode(tav_istr text, std::string * rest) {
    NodeParser parser(bytesOf(text));
    tav::detail::NodeScope const together;
    try {
        parser.decodeRoots(*this);
    } catch (DecodeException const & e) {
        tav::detail::reportCaught(here("tav::xml::Node::decode"), e.what());
    }
    if (rest != nullptr) {
        *rest = std::string(parser.rest());
    }
    return *this;
}

std::string const & Node::encode(bool pretty, bool skipEmpty, int level, bool withNext) const {
    // Written apart: an attribute of the application's may have its node written while it tells its name.
    std::string text;
    text.swap(output_);
    text.clear();
    if (!skipEmpty || dumping_ == metadataMode || !contentIsEmpty() || !attrs_.empty() || !nodes_.empty()) {
        NodeWriter writer(text, pretty, skipEmpty, level);
        writer.write(*this);
        for (Node const * root = withNext ? next_.get() : nullptr; root != nullptr;
             root = root->next_.get()) {
            writer.write(*root);
        }
    }
    output_.swap(text);
    return output_;
}

std::string const & Node::name() const {
    return tag_;
}

std::string const & Node::value() const {
    return content();
}

std::string const & Node::tag() const {
    return tag_;
}

Node & Node::tag(tav_istr v) {
    tag_ = bytesOf(v);
    return *this;
}

std::string const & Node::content() const {
    return content_ ? content_->value() : text_;
}

Node & Node::content(tav_istr v) {
    text() = bytesOf(v);
    return *this;
}

std::string & Node::contentString() {
    return contentNode()->value();
}

std::string const & Node::contentString() const {
    return content();
}

tavSharedPtr<Content> Node::contentNode() {
    if (!sharedContent()) {
        content_ = new Content;
    }
    return content_;
}

tavSharedPtr<Content> Node::contentNode() const {
    return sharedContent();
}

bool Node::contentIsEmpty() const {
    return content().empty();
}

Attr const & Node::attr(tav_istr name) const {
    AttrIndex & index = attrs();
    auto const found = index.find(bytesOf(name));
    return found == index.end() ? Attr::null() : *found->second;
}

Attr & Node::attr(tav_istr name) {
    AttrIndex & index = attrs();
    auto const found = index.find(bytesOf(name));
    if (found != index.end()) {
        return *found->second;
    }
    setAttr(name, tav_istr());
    return *attrs_.back();
}

Attr const & Node::operator()(tav_istr name) const {
    return attr(name);
}

Attr & Node::operator()(tav_istr name) {
    return attr(name);
}

void Node::setAttr(tav_istr name, tav_istr value) {
    setAttr(new Attr(name, value));
}

void Node::setAttr(Attr * attr) {
    if (attr != nullptr) {
        add(tavSharedPtr<Attr>(attr));
    }
}

Node const & Node::child(tav_istr tag) const {
    NodeIndex & index = nodes();
    auto const found = index.lower_bound(bytesOf(tag));
    return found == index.end() || found->first != bytesOf(tag) ? null() : *found->second;
}

Node & Node::child(tav_istr tag) {
    NodeIndex & index = nodes();
    auto const found = index.lower_bound(bytesOf(tag));
    if (found != index.end() && found->first == bytesOf(tag)) {
        return *found->second;
    }
    addChild(new Node(tag));
    return *nodes_.back();
}

Node const & Node::operator[](tav_istr tag) const {
    return child(tag);
}

Node & Node::operator[](tav_istr tag) {
    return child(tag);
}

void Node::addChild(Node * child) {
    if (child != nullptr) {
        append(tavSharedPtr<Node>(child));
    }
}

void Node::addChild(tav_istr tag, tav_istr content) {
    addChild(new Node(tag, content));
}

Node & Node::newChild() {
    addChild(new Node("any"));
    return *nodes_.back();
}

Node::const_iterator Node::begin() const {
    return nodes_.begin();
}

Node::const_iterator Node::end() const {
    return nodes_.end();
}

Node const * Node::next() const {
    return next_.get();
}

Node * Node::next() {
    return next_.get();
}

void Node::next(Node * v) {
    next_ = v;
}

Node * Node::getNext() const {
    return next_.get();
}

Node * Node::createNext() {
    next_ = new Node;
    if (!next_) {
        tav::detail::raise(here("tav::xml::Node::createNext"), "null pointer");
    }
    return next_.get();
}

void Node::clear() {
    tag_.clear();
    clearAttrs();
    clearContent();
    clearNodes();
}

void Node::clearAttrs() {
    attrIndex_.reset();
    attrs_.clear();
}

void Node::clearContent() {
    content_.reset();
    text_.clear();
}

void Node::clearNodes() {
    nodeIndex_.reset();
    std::vector<tavSharedPtr<Node>>().swap(nodes_);
}

bool Node::isNull() const {
    return this == &null();
}

bool Node::isEmpty() const {
    return isNull() || (tag_.empty() && contentIsEmpty() && attrs_.empty() && nodes_.empty());
}

bool Node::isEmptyValue() const {
    return contentIsEmpty();
}

bool Node::isSimple() const {
    return nodes_.empty();
}

bool Node::operator!() const {
    return isNull();
}

Node::operator void *() const {
    return isNull() ? nullptr : const_cast<Node *>(this);
}

bool Node::operator==(Node const & other) const {
    auto const sameAttr = [](tavSharedPtr<Attr> const & a, tavSharedPtr<Attr> const & b) {
        return a->name_ == b->name_ && a->value_ == b->value_;
    };
    std::vector<std::pair<Node const *, Node const *>> pending{{this, &other}};
    while (!pending.empty()) {
        auto const [a, b] = pending.back();
        pending.pop_back();
        if (a->tag_ != b->tag_ || a->content() != b->content() || a->nodes_.size() != b->nodes_.size() ||
            !std::equal(a->attrs_.begin(), a->attrs_.end(), b->attrs_.begin(), b->attrs_.end(), sameAttr)) {
            return false;
        }
        for (std::size_t i = 0; i < a->nodes_.size(); ++i) {
            if (a->nodes_[i] != b->nodes_[i]) {
                pending.emplace_back(a->nodes_[i].get(), b->nodes_[i].get());
            }
        }
    }
    return true;
}

void Node::collectNames(std::set<std::string> & names) const {
    std::vector<Node const *> pending{this};
    while (!pending.empty()) {
        Node const & node = *pending.back();
        pending.pop_back();
        names.insert(node.tag_);
        for (tavSharedPtr<Attr> const & attr : node.attrs_) {
            names.insert(attr->name_);
        }
        for (tavSharedPtr<Node> const & child : node.nodes_) {
            pending.push_back(child.get());
        }
    }
}

void Node::collectTopNodes(std::vector<tavSharedPtr<Node>> & nodes) const {
    nodes.insert(nodes.end(), nodes_.begin(), nodes_.end());
}

void Node::collectValues(std::vector<std::string> & values) const {
    std::vector<Node const *> pending{this};
    while (!pending.empty()) {
        Node const & node = *pending.back();
        pending.pop_back();
        for (tavSharedPtr<Attr> const & attr : node.attrs_) {
            if (!attr->value_.empty()) {
                values.push_back(attr->value_);
            }
        }
        if (!node.contentIsEmpty()) {
            values.push_back(node.content());
        }
        for (auto child = node.nodes_.rbegin(); child != node.nodes_.rend(); ++child) {
            pending.push_back(child->get());
        }
    }
}

int Node::dumping() const {
    return dumping_;
}

void Node::dumping(int mode) {
    dumping_ = mode;
}

bool Node::dumpingSample() const {
    return dumping_ == sampleMode;
}

bool Node::dumpingMetadata() const {
    return dumping_ == metadataMode;
}

bool Node::dumpingLog() const {
    return dumping_ == logMode;
}

std::string & Node::text() {
    return content_ ? content_->value() : text_;
}

tavSharedPtr<Content> const & Node::sharedContent() const {
    if (!content_ && !text_.empty()) {
        content_ = new Content(tav_istr(text_));
    }
    return content_;
}

Node::AttrIndex & Node::attrs() const {
    if (!attrIndex_) {
        attrIndex_ = std::make_unique<AttrIndex>();
        for (tavSharedPtr<Attr> const & attr : attrs_) {
            (*attrIndex_)[attr->name_] = attr;
        }
    }
    if (!attrIndex_) {
        tav::detail::raise(here("tav::xml::Node::attrs"), "null pAttrs_");
    }
    return *attrIndex_;
}

Node::NodeIndex & Node::nodes() const {
    if (!nodeIndex_) {
        nodeIndex_ = std::make_unique<NodeIndex>();
        for (tavSharedPtr<Node> const & child : nodes_) {
            nodeIndex_->emplace(child->tag_, child);
        }
    }
    if (!nodeIndex_) {
        tav::detail::raise(here("tav::xml::Node::nodes"), "null pNodes_");
    }
    return *nodeIndex_;
}

void Node::add(tavSharedPtr<Attr> attr) {
    if (attrIndex_) {
        (*attrIndex_)[attr->name_] = attr;
    }
    push(attrs_, std::move(attr));
}

void Node::append(tavSharedPtr<Node> child) {
    if (nodeIndex_) {
        nodeIndex_->emplace(child->tag_, child);
    }
    push(nodes_, std::move(child));
}

void Node::releaseTree() noexcept {
    End::destroy(
        [this] {
            nodes_.clear();
            next_.reset();
        },
        [this](std::vector<tavSharedPtr<Node>> & below) {
            for (tavSharedPtr<Node> & child : nodes_) {
                below.push_back(std::move(child));
            }
            if (next_) {
                below.push_back(std::move(next_));
            }
        });
}

std::ostream & operator<<(std::ostream & out, Node const & v) {
    return out << v.encode(false, false, 0, true);
}

} // namespace xml
} // namespace tav
