#include "tav/vinta/vinta_xml_tree.h"

#include "formats/xml/xml_modes.h"
#include "formats/xml/xml_text.h"
#include "foundation/report.h"
#include "foundation/tree_end.h"
#include "foundation/tree_nodes.h"
#include "foundation/views.h"
#include "tav/vinta/vinta_basetypes_failures.h"

#include <algorithm>
#include <utility>

namespace tav {
namespace xml {

using tav::detail::bytesOf;
using tav::detail::here;
using tav::xml::detail::appendEscaped;
using tav::xml::detail::logMode;
using tav::xml::detail::metadataMode;
using tav::xml::detail::sampleMode;

namespace {

/// Appends to a list that has room for three at first: the allocator gives no less for one.
template <class T>
void push(std::vector<tavSharedPtr<T>> & list, tavSharedPtr<T> && item) {
    if (list.capacity() == 0) {
        list.reserve(3);
    }
    list.push_back(std::move(item));
}

using End = tav::detail::TreeEnd<tavSharedPtr<Node>, 1, tav::detail::NodeReturn>;

} // namespace

std::string const & nullString() {
    static std::string const empty;
    return empty;
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
