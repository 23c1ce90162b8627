#include "tav/vinta/vinta_xml_node.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

using tav::xml::Attr;
using tav::xml::CommentNode;
using tav::xml::Content;
using tav::xml::Node;

namespace {

Node const & constant(Node const & node) {
    return node;
}

std::string text(Node const & node) {
    return node.encode(false, false, 0, true);
}

} // namespace

TEST(XmlNode, IsMadeWithTagAndText) {
    EXPECT_EQ(Node().tag(), "");
    EXPECT_EQ(Node("a").tag(), "a");
    Node const node("a", "t");
    EXPECT_EQ(node.name(), "a");
    EXPECT_EQ(node.value(), "t");
    EXPECT_EQ(node.content(), "t");
    EXPECT_EQ(node.contentString(), "t");
}

TEST(XmlNode, SettersGiveTheNode) {
    Node node;
    EXPECT_EQ(&node, &node.tag("a"));
    EXPECT_EQ(&node, &node.content("t"));
    node.contentString() += "u";
    EXPECT_EQ(text(node), "<a>tu</a>");
}

TEST(XmlNode, TextNodeIsCreatedByTheWritingForms) {
    Node node("a");
    EXPECT_FALSE(constant(node).contentNode());
    EXPECT_EQ(constant(node).contentString(), "");
    EXPECT_FALSE(constant(node).contentNode());
    tavSharedPtr<Content> const content = node.contentNode();
    ASSERT_TRUE(content);
    EXPECT_EQ(content, constant(node).contentNode());
    content->value() = "t";
    EXPECT_EQ(node.content(), "t");
    EXPECT_EQ(content->name(), "");
}

TEST(XmlNode, TextThatWasGivenOutStaysValidWhenItBecomesAnObject) {
    Node node("a", "t");
    std::string const & before = constant(node).content();
    tavSharedPtr<Content> const content = node.contentNode();
    EXPECT_EQ(before, "t");
    EXPECT_EQ(content->value(), "t");
    EXPECT_EQ(content, constant(node).contentNode());
    node.content("u");
    EXPECT_EQ(content->value(), "u");
    node.clearContent();
    EXPECT_EQ(constant(node).content(), "");
    EXPECT_FALSE(constant(node).contentNode());
    node.content(tav_istr(node.content("v").content()));
    EXPECT_EQ(node.content(), "v");
}

TEST(XmlNode, LookUpCreatesOnAWritableNodeAndGivesNullOnAConstOne) {
    Node node("a");
    EXPECT_TRUE(constant(node).child("b").isNull());
    EXPECT_TRUE(constant(node)["b"].isNull());
    EXPECT_EQ(&Attr::null(), &constant(node).attr("x"));
    EXPECT_EQ(&Attr::null(), &constant(node)("x"));
    EXPECT_EQ(text(node), "<a/>");
    node.child("b").content("1");
    EXPECT_EQ(&node.child("b"), &node["b"]);
    node.attr("x").value() = "2";
    EXPECT_EQ(&node.attr("x"), &node("x"));
    EXPECT_EQ(&node.attr("x"), &constant(node)("x"));
    EXPECT_EQ(text(node), "<a x=\"2\"><b>1</b></a>");
}

TEST(XmlNode, FirstChildOfATagIsFound) {
    Node node("a");
    node.addChild("b", "1");
    node.addChild("b", "2");
    EXPECT_EQ(constant(node).child("b").content(), "1");
    node.addChild("c", "3");
    node.addChild("b", "4");
    EXPECT_EQ(node.child("b").content(), "1");
    EXPECT_EQ(constant(node).child("c").content(), "3");
    EXPECT_EQ(node.end() - node.begin(), 4);
}

TEST(XmlNode, LookUpGoesByTheTagAsItWasThen) {
    Node node("a");
    node.addChild("b", "1");
    EXPECT_EQ(node.child("b").content(), "1");
    node.child("b").tag("c");
    EXPECT_EQ(constant(node).child("b").tag(), "c");
    EXPECT_TRUE(constant(node).child("c").isNull());
}

TEST(XmlNode, AttributeSetTwiceIsFoundLastAndKeptTwice) {
    Node node("a");
    node.setAttr("x", "1");
    EXPECT_EQ(constant(node).attr("x").value(), "1");
    node.setAttr("x", "2");
    EXPECT_EQ(constant(node).attr("x").value(), "2");
    EXPECT_EQ(text(node), "<a x=\"1\" x=\"2\"/>");
}

TEST(XmlNode, NullPartsAreIgnored) {
    Node node("a");
    node.addChild(nullptr);
    node.setAttr(nullptr);
    EXPECT_EQ(text(node), "<a/>");
}

TEST(XmlNode, NewChildIsNamedAny) {
    Node node("a");
    node.newChild().content("1");
    node.newChild().content("2");
    EXPECT_EQ(text(node), "<a><any>1</any><any>2</any></a>");
}

TEST(XmlNode, FollowingRootIsOwned) {
    Node node("a");
    EXPECT_EQ(node.next(), nullptr);
    EXPECT_EQ(constant(node).next(), nullptr);
    EXPECT_EQ(node.getNext(), nullptr);
    node.next(new Node("b"));
    EXPECT_EQ(constant(node).next()->tag(), "b");
    Node * const made = node.createNext();
    EXPECT_EQ(made, node.next());
    EXPECT_EQ(made, node.getNext());
    EXPECT_EQ(made->tag(), "");
    node.next(nullptr);
    EXPECT_EQ(node.next(), nullptr);
}

TEST(XmlNode, ClearsEachPartAndAll) {
    auto const node = Node::fromXml("<a x='1'><b/>t</a><c/>");
    node->child("b");
    node->attr("x");
    node->clearNodes();
    EXPECT_EQ(text(*node), "<a x=\"1\">t</a><c/>");
    EXPECT_TRUE(constant(*node).child("b").isNull());
    node->clearContent();
    EXPECT_EQ(text(*node), "<a x=\"1\"/><c/>");
    node->clearAttrs();
    EXPECT_EQ(text(*node), "<a/><c/>");
    EXPECT_EQ(&Attr::null(), &constant(*node).attr("x"));
    EXPECT_FALSE(node->isEmpty());
    node->setAttr("y", "1");
    node->addChild("d", "t");
    node->content("t");
    node->clear();
    EXPECT_TRUE(node->isEmpty());
}

TEST(XmlNode, EmptinessIsTold) {
    EXPECT_TRUE(Node().isEmpty());
    EXPECT_FALSE(Node("a").isEmpty());
    Node text_only;
    text_only.content("t");
    EXPECT_FALSE(text_only.isEmpty());
    EXPECT_FALSE(text_only.isEmptyValue());
    EXPECT_TRUE(Node("a").isEmptyValue());
    EXPECT_TRUE(Node("a", "").contentIsEmpty());
    EXPECT_TRUE(Node("a").isSimple());
    Node parent("a");
    parent.newChild();
    EXPECT_FALSE(parent.isSimple());
    Node attributed;
    attributed.setAttr("x", "");
    EXPECT_FALSE(attributed.isEmpty());
}

TEST(XmlNode, NullNodeIsOneSharedInstance) {
    EXPECT_EQ(&Node::null(), &Node::null());
    EXPECT_TRUE(Node::null().isNull());
    EXPECT_TRUE(Node::null().isEmpty());
    EXPECT_TRUE(!Node::null());
    EXPECT_EQ(static_cast<void *>(Node::null()), nullptr);
    Node const node;
    EXPECT_FALSE(node.isNull());
    EXPECT_FALSE(!node);
    EXPECT_EQ(static_cast<void const *>(&node), static_cast<void *>(node));
}

TEST(XmlNode, DummiesCanBeWrittenAndForgetIt) {
    Node::dummy().content("x");
    EXPECT_TRUE(Node::dummy().isEmpty());
    EXPECT_FALSE(Node::dummy().isNull());
    Attr::dummy().value() = "x";
    EXPECT_EQ(Attr::dummy().value(), "");
    EXPECT_NE(&Attr::null(), &Attr::dummy());
}

TEST(XmlNode, CopySharesPartsButNotTheRootsThatFollow) {
    auto const node = Node::fromXml("<a x='1'><b/>t</a><c/>");
    node->varid() = 7;
    Node copy(*node);
    EXPECT_EQ(text(copy), "<a x=\"1\"><b/>t</a>");
    EXPECT_EQ(copy.next(), nullptr);
    EXPECT_EQ(constant(copy).varid(), 7);
    copy.child("b").content("2");
    copy.attr("x").value() = "3";
    copy.contentString() = "u";
    EXPECT_EQ(text(*node), "<a x=\"3\"><b>2</b>u</a><c/>");
    copy.newChild();
    copy.varid() = 8;
    EXPECT_EQ(node->end() - node->begin(), 1);
    EXPECT_EQ(constant(*node).varid(), 7);
}

TEST(XmlNode, AssignmentReplacesAllParts) {
    auto const node = Node::fromXml("<a x='1'><b>t</b></a>");
    Node target("z", "u");
    target.setAttr("y", "1");
    target.createNext();
    target = *node;
    EXPECT_EQ(text(target), "<a x=\"1\"><b>t</b></a>");
    Node & self = target;
    target = self;
    EXPECT_EQ(text(target), "<a x=\"1\"><b>t</b></a>");
    target = constant(target).child("b");
    EXPECT_EQ(text(target), "<b>t</b>");
}

TEST(XmlNode, EqualityComparesTagTextAttributesAndChildrenInOrder) {
    auto const equal = [](char const * a, char const * b) { return *Node::fromXml(a) == *Node::fromXml(b); };
    EXPECT_TRUE(equal("<a x='1'><b>t</b></a>", "<a  x=\"1\"> <b>t</b></a>"));
    EXPECT_TRUE(equal("<a/>", "<a></a><b/>"));
    EXPECT_FALSE(equal("<a/>", "<b/>"));
    EXPECT_FALSE(equal("<a>t</a>", "<a>u</a>"));
    EXPECT_FALSE(equal("<a x='1'/>", "<a x='2'/>"));
    EXPECT_FALSE(equal("<a x='1'/>", "<a y='1'/>"));
    EXPECT_FALSE(equal("<a x='1'/>", "<a/>"));
    EXPECT_FALSE(equal("<a x='1' y='2'/>", "<a y='2' x='1'/>"));
    EXPECT_FALSE(equal("<a><b/><c/></a>", "<a><c/><b/></a>"));
    EXPECT_FALSE(equal("<a><b><c/></b></a>", "<a><b><d/></b></a>"));
}

TEST(XmlNode, CollectsNamesChildrenAndValues) {
    auto const node = Node::fromXml("<a x='1' e=''><b y='2'>t<c>u</c></b><d>v</d>w</a>");
    std::set<std::string> names{"kept"};
    node->collectNames(names);
    EXPECT_EQ((std::set<std::string>{"kept", "a", "x", "e", "b", "y", "c", "d"}), names);
    std::vector<tavSharedPtr<Node>> nodes;
    node->collectTopNodes(nodes);
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(nodes[0]->tag(), "b");
    EXPECT_EQ(nodes[1]->tag(), "d");
    std::vector<std::string> values{"kept"};
    node->collectValues(values);
    EXPECT_EQ((std::vector<std::string>{"kept", "1", "w", "2", "t", "u", "v"}), values);
}

TEST(XmlNode, CommentHoldsAText) {
    CommentNode node;
    EXPECT_EQ(node.name(), "");
    EXPECT_EQ(node.value(), "");
    node.comment("c");
    EXPECT_EQ(node.value(), "c");
}
