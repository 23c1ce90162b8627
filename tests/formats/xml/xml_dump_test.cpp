#include "tav/vinta/vinta_xml_node.h"

#include <gtest/gtest.h>

#include <string>

using tav::xml::Node;
using tav::xml::XmlDumpStream;

namespace {

std::string dumped(Node & node, int mode, bool pretty = false) {
    node.dumping(mode);
    return node.encode(pretty, false, 0, true);
}

/// A message with an id, an attribute, a protected text, and a list.
tavSharedPtr<Node> sample() {
    tavSharedPtr<Node> const node = Node::fromXml("<m x='1'><pwd>abcdefgh</pwd><n>5</n><l/></m>");
    node->setMeta(9, "m", "im.M", "", false, false, false);
    node->superclass() = "Base";
    node->attr("x").setMeta(1, "x", "Int8", "0", true, false, false);
    node->child("pwd").setMeta(2, "pwd", "String", "", false, false, true);
    node->child("n").contentNode()->setMeta(3, "n", "Int32", "", false, true, false);
    return node;
}

} // namespace

TEST(XmlDump, ModesAreTold) {
    Node node;
    EXPECT_EQ(node.dumping(), 0);
    for (int mode = 0; mode < 4; ++mode) {
        node.dumping(mode);
        EXPECT_EQ(mode, node.dumping());
        EXPECT_EQ(mode == 1, node.dumpingSample());
        EXPECT_EQ(mode == 2, node.dumpingMetadata());
        EXPECT_EQ(mode == 3, node.dumpingLog());
    }
}

TEST(XmlDump, LogMasksWhatIsProtected) {
    EXPECT_EQ(dumped(*sample(), 3), "<m x=\"1\"><pwd>ab***gh[8]</pwd><n>5</n><l></l></m>");
    Node node("a");
    node.setAttr("x", "abcdefgh");
    node.attr("x").protectedValue() = true;
    EXPECT_EQ(dumped(node, 3), "<a x=\"ab***gh[8]\"></a>");
}

TEST(XmlDump, MaskedTextIsStillFitForXml) {
    Node node("a", "<b>cdef");
    node.protectedValue() = true;
    EXPECT_EQ(dumped(node, 3), "<a><![CDATA[<b***ef[7]]]></a>");
}

TEST(XmlDump, TextsOwnDescriptionGoesAheadOfTheNodes) {
    Node node("a", "text");
    node.setMeta(1, "a", "String", "", false, false, false);
    node.contentNode()->setMeta(2, "a", "Int32", "", false, false, false);
    EXPECT_EQ(dumped(node, 1), "<a>text{2 int32}</a>");
}

TEST(XmlDump, WhatNodeOrTextProtectsIsMasked) {
    Node node("a", "abcdefgh");
    node.protectedValue() = true;
    EXPECT_EQ(dumped(node, 3), "<a>ab***gh[8]</a>");
    node.contentNode()->memo() = "described";
    EXPECT_EQ(dumped(node, 3), "<a>ab***gh[8]</a>");
    node.protectedValue() = false;
    EXPECT_EQ(dumped(node, 3), "<a>abcdefgh</a>");
    node.contentNode()->protectedValue() = true;
    EXPECT_EQ(dumped(node, 3), "<a>ab***gh[8]</a>");
}

TEST(XmlDump, SampleShowsShortDescriptionsAndStars) {
    EXPECT_EQ(dumped(*sample(), 1),
              "<m x=\"1{1 int8?}\" __meta__=\"{9 im.m}\"><pwd>********{2 string}</pwd><n>5{3 "
              "int32*}</n><l></l></m>");
}

TEST(XmlDump, SampleOfAnEmptyDescribedElementShowsItsType) {
    Node node("a");
    node.setMeta(4, "a", "String", "", true, false, false);
    EXPECT_EQ(dumped(node, 1), "<a>{4 string?}</a>");
}

TEST(XmlDump, SampleWritesAMultipleChildTwice) {
    auto const node = Node::fromXml("<a><b>1</b><c><d>2</d></c></a>");
    node->child("b").multiple() = true;
    node->child("c").multiple() = true;
    EXPECT_EQ(dumped(*node, 1), "<a><b>1{*}</b><b>...</b><c><d>2{}</d></c><c>...</c></a>");
    EXPECT_EQ(dumped(*node, 3), "<a><b>1</b><c><d>2</d></c></a>");
    EXPECT_EQ(dumped(*node, 0), "<a><b>1</b><c><d>2</d></c></a>");
}

TEST(XmlDump, MetadataDescribesTheShape) {
    EXPECT_EQ(
        dumped(*sample(), 2),
        "<element name=\"m\" type=\"im.M\" super=\"Base\" varname=\"m\" id=\"9\">"
        "<attrib name=\"x\" type=\"Int8\" optional=\"true\" default=\"0\" varname=\"x\" id=\"1\"/>"
        "<element name=\"pwd\" type=\"String\" protected=\"true\" varname=\"pwd\" id=\"2\"/>"
        "<element name=\"n\"><content type=\"Int32\" multiple=\"true\" varname=\"n\" id=\"3\"/></element>"
        "<element name=\"l\"/></element>");
}

TEST(XmlDump, DescribingATreeLeavesItsSecretsProtected) {
    auto const node = Node::fromXml("<a x='abcdefgh'><b>abcdefgh</b></a>");
    node->child("b").protectedValue() = true;
    node->child("b").contentNode();
    node->attr("x").protectedValue() = true;
    dumped(*node, 2);
    EXPECT_EQ(dumped(*node, 3), "<a x=\"ab***gh[8]\"><b>ab***gh[8]</b></a>");
    EXPECT_EQ(dumped(*node, 1), "<a x=\"********{}\"><b>********{}</b></a>");
}

TEST(XmlDump, PrettyMetadataStandsOnLines) {
    EXPECT_EQ(dumped(*Node::fromXml("<a x='1'><b>t</b></a>"), 2, true),
              "\n<element name=\"a\">\n    <attrib name=\"x\"/>\n    <element name=\"b\"/>\n</element>");
}

TEST(XmlDump, MetadataPassesOverKeys) {
    auto const node = Node::fromXml("<a><__key__>k</__key__><b/></a>");
    EXPECT_EQ(dumped(*node, 2), "<element name=\"a\"><element name=\"b\"/></element>");
    EXPECT_EQ(dumped(*node, 0), "<a><__key__>k</__key__><b/></a>");
}

TEST(XmlDump, ChildOfAnotherModeKeepsIt) {
    auto const node = Node::fromXml("<a><b>abcdefgh</b></a>");
    node->child("b").protectedValue() = true;
    node->child("b").dumping(3);
    EXPECT_EQ(dumped(*node, 0), "<a><b>ab***gh[8]</b></a>");
}

TEST(XmlDumpStream, EnterKeepsTypeSuperclassAndMode) {
    XmlDumpStream out(3);
    out.enter("im::chat::Hello", "im::Base", "");
    EXPECT_EQ(out.tag(), "Hello");
    EXPECT_EQ(static_cast<Node const &>(out.node()).vartype(), "im::chat::Hello");
    EXPECT_EQ(static_cast<Node const &>(out.node()).superclass(), "im::Base");
    EXPECT_EQ(out.node().dumping(), 3);
    XmlDumpStream given("tag", 1);
    given.enter("im::Hello", "", "other");
    EXPECT_EQ(given.tag(), "tag");
    Node node;
    XmlDumpStream over(node, 2);
    over.enter("im::Hello", "", "wanted");
    EXPECT_EQ(node.tag(), "wanted");
}

TEST(XmlDumpStream, ModeIsTold) {
    XmlDumpStream out(0);
    for (int mode = 0; mode < 4; ++mode) {
        out.dumping(mode);
        EXPECT_EQ(mode, out.dumping());
        EXPECT_EQ(mode == 1, out.dumpingSample());
        EXPECT_EQ(mode == 2, out.dumpingMetadata());
        EXPECT_EQ(mode == 3, out.dumpingLog());
    }
}

TEST(XmlDumpStream, PlaceholderTellsTheSize) {
    EXPECT_EQ(XmlDumpStream::protectedValue(8), "***[8]");
    EXPECT_EQ(XmlDumpStream::protectedValue(0xffffffffu), "***[4294967295]");
}
