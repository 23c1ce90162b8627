#include "tav/vinta/vinta_xml_node.h"

#include "support/printed.h"
#include "support/xml_rig.h"

#include <gtest/gtest.h>

#include <string>

using tav::xml::Attr;
using tav::xml::Node;
using tav_test::printed;
using tav_test::reread;

namespace {

std::string pretty(std::string const & text, int level = 0) {
    return Node::fromXml(tav_istr(text))->encode(true, false, level, true);
}

std::string skipping(std::string const & text) {
    return Node::fromXml(tav_istr(text))->encode(false, true, 0, true);
}

} // namespace

TEST(XmlWriter, CompactFormIsOneLine) {
    EXPECT_EQ("<a x=\"1\"><b>t</b><c/></a>", reread("<a x='1'> <b>t</b> <c></c> </a>"));
}

TEST(XmlWriter, TextFollowsTheChildren) {
    EXPECT_EQ("<a><b/>xy</a>", reread("<a>x<b/>y</a>"));
}

TEST(XmlWriter, PrettyFormBeginsWithALineFeed) {
    EXPECT_EQ("\n<a>\n    <b>1</b>\n</a>", pretty("<a><b>1</b></a>"));
    EXPECT_EQ("\n    <a>\n        <b>1</b>\n    </a>", pretty("<a><b>1</b></a>", 1));
}

TEST(XmlWriter, PrettyTextWithoutAttributesStaysOnItsLine) {
    EXPECT_EQ("\n<a>t</a>", pretty("<a>t</a>"));
    EXPECT_EQ("\n<a/>", pretty("<a/>"));
}

TEST(XmlWriter, PrettyAttributesStandOnLinesOfTheirOwn) {
    EXPECT_EQ("\n<a\n     x=\"1\"\n     y=\"2\"/>", pretty("<a x='1' y='2'/>"));
    EXPECT_EQ("\n<a\n     x=\"1\">\n    t\n</a>", pretty("<a x='1'>t</a>"));
    EXPECT_EQ("\n<a\n     x=\"1\">\n    <b/>\n</a>", pretty("<a x='1'><b/></a>"));
}

TEST(XmlWriter, PrettyTextBehindChildrenHasOneLineEndAheadOfTheClosingTag) {
    EXPECT_EQ("\n<a>\n    <b/>t\n</a>", pretty("<a><b/>t</a>"));
    EXPECT_EQ("\n<a\n     x=\"1\">\n    <b/>\n    t\n</a>", pretty("<a x='1'><b/>t</a>"));
}

TEST(XmlWriter, AttributeValuesAreEscapedInDoubleQuotes) {
    EXPECT_EQ("<a x=\"&lt;&quot;&apos;&amp;\"/>", reread("<a x='&lt;&quot;&apos;&amp;'/>"));
    Node node("a");
    node.setAttr("x", tav_istr("v\0w", 3u));
    EXPECT_EQ("<a x=\"v\"/>", node.encode(false, false, 0, false));
}

TEST(XmlWriter, TextWithSpecialBytesIsWrappedOrEscaped) {
    Node node("a", "x<y");
    EXPECT_EQ("<a><![CDATA[x<y]]></a>", node.encode(false, false, 0, false));
    node.content("x]]>y");
    EXPECT_EQ("<a>x]]&gt;y</a>", node.encode(false, false, 0, false));
    node.content("xy");
    EXPECT_EQ("<a>xy</a>", node.encode(false, false, 0, false));
}

TEST(XmlWriter, SkipEmptyLeavesOutEmptyNodesAndAttributes) {
    EXPECT_EQ("<a><c>1</c></a>", skipping("<a><b/><c>1</c><d></d></a>"));
    EXPECT_EQ("<a y=\"1\"/>", skipping("<a x='' y='1'/>"));
    EXPECT_EQ("", skipping("<a/>"));
    EXPECT_EQ("<a></a>", skipping("<a><b/></a>"));
    EXPECT_EQ("<a/>", skipping("<a x=''/>"));
}

TEST(XmlWriter, FollowingRootsAreWrittenAtTheSameLevel) {
    EXPECT_EQ("<a/><b/>", reread("<a/><b/>"));
    EXPECT_EQ("\n    <a/>\n    <b/>", pretty("<a/><b/>", 1));
    EXPECT_EQ("<a/>", Node::fromXml("<a/><b/>")->encode(false, false, 0, false));
}

TEST(XmlWriter, SkippedFirstRootSkipsTheRootsThatFollow) {
    EXPECT_EQ("", skipping("<a/><b>1</b>"));
    EXPECT_EQ("<a>1</a><c>2</c>", skipping("<a>1</a><b/><c>2</c>"));
}

TEST(XmlWriter, ResultStaysInTheNode) {
    Node node("a");
    std::string const & text = node.encode(false, false, 0, false);
    EXPECT_EQ("<a/>", text);
    node.tag("b");
    EXPECT_EQ(&text, &node.encode(false, false, 0, false));
    EXPECT_EQ("<b/>", text);
}

TEST(XmlWriter, PrintsTheCompactFormWithAllRoots) {
    EXPECT_EQ("<a><b/></a><c/>", printed(*Node::fromXml("<a><b/></a><c/>")));
}

TEST(XmlWriter, AttributeWritesItself) {
    Attr attr("n", "v<");
    std::string out = "x";
    attr.encode(out, true, "L", 0);
    EXPECT_EQ("xL n=\"v&lt;\"", out);
    attr.value().clear();
    attr.encode(out, true, "L", 0);
    EXPECT_EQ("xL n=\"v&lt;\"", out);
    attr.encode(out, false, "", 0);
    EXPECT_EQ("xL n=\"v&lt;\" n=\"\"", out);
    out.clear();
    Attr::write(out, "a", "\"");
    EXPECT_EQ(" a=\"&quot;\"", out);
}

TEST(XmlWriter, ReadingGivesWhatWasWritten) {
    for (std::string const text : {"<a/>", "<a x=\"1\"/>", "<a>t</a>", "<a><![CDATA[<]]></a>",
                                   "<a>x]]&gt;y</a>", "<a x=\"&amp;\"><b><c>1</c><c>2</c></b></a><d/>"}) {
        EXPECT_EQ(text, reread(text));
        EXPECT_EQ(text, reread(pretty(text))) << pretty(text);
    }
    EXPECT_EQ("<a><b/>t</a>", reread("<a><b/>t</a>"));
    EXPECT_EQ("<a><b/>t\n</a>", reread(pretty("<a><b/>t</a>")));
}
