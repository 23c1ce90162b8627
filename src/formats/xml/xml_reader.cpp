#include "tav/vinta/vinta_xml_tree.h"

#include "formats/xml/xml_text.h"
#include "foundation/report.h"
#include "foundation/tree_nodes.h"
#include "foundation/views.h"
#include "tav/vinta/vinta_basetypes_failures.h"

#include <cstring>
#include <iterator>
#include <utility>

namespace tav {
namespace xml {

using tav::detail::bytesOf;
using tav::xml::detail::appendUnescaped;
using tav::xml::detail::blankBit;
using tav::xml::detail::cdataBegin;
using tav::xml::detail::cdataEnd;
using tav::xml::detail::findOf;
using tav::xml::detail::isOf;
using tav::xml::detail::namePartBit;
using tav::xml::detail::nameStartBit;

namespace {

constexpr std::string_view commentBegin = "<!--";
constexpr std::string_view commentEnd = "-->";
constexpr std::string_view declarationBegin = "<?";
constexpr std::string_view declarationEnd = ">";

/// Failures of the reading stand in the log under the file of the tree.
constexpr tav::detail::Site at(char const * func, unsigned line = static_cast<unsigned>(__builtin_LINE())) {
    return tav::detail::Site{"vinta_xml_node.cpp", line, func};
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

} // namespace

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
        auto const site = at("tav::xml::Node::decodeTag");
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
        auto const site = at("tav::xml::Node::decodeAttrs");
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
        auto const site = at("tav::xml::Node::decodeContent");
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
        auto const site = at("tav::xml::Node::decodeNode");
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

Node & Node::decode(tav_istr text, std::string * rest) {
    NodeParser parser(bytesOf(text));
    tav::detail::NodeScope const together;
    try {
        parser.decodeRoots(*this);
    } catch (DecodeException const & e) {
        tav::detail::reportCaught(at("tav::xml::Node::decode"), e.what());
    }
    if (rest != nullptr) {
        *rest = std::string(parser.rest());
    }
    return *this;
}

} // namespace xml
} // namespace tav
