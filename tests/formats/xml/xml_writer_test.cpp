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
    EXPECT_EQ(reread("<a x='1'> <b>t</b> <c></c> </a>"), "<a x=\"1\"><b>t</b><c/></a>");
}

TEST(XmlWriter, TextFollowsTheChildren) {
    EXPECT_EQ(reread("<a>x<b/>y</a>"), "<a><b/>xy</a>");
}

TEST(XmlWriter, PrettyFormBeginsWithALineFeed) {
    EXPECT_EQ(pretty("<a><b>1</b></a>"), "\n<a>\n    <b>1</b>\n</a>");
    EXPECT_EQ(pretty("<a><b>1</b></a>", 1), "\n    <a>\n        <b>1</b>\n    </a>");
}

TEST(XmlWriter, PrettyTextWithoutAttributesStaysOnItsLine) {
    EXPECT_EQ(pretty("<a>t</a>"), "\n<a>t</a>");
    EXPECT_EQ(pretty("<a/>"), "\n<a/>");
}

TEST(XmlWriter, PrettyAttributesStandOnLinesOfTheirOwn) {
    EXPECT_EQ(pretty("<a x='1' y='2'/>"), "\n<a\n     x=\"1\"\n     y=\"2\"/>");
    EXPECT_EQ(pretty("<a x='1'>t</a>"), "\n<a\n     x=\"1\">\n    t\n</a>");
    EXPECT_EQ(pretty("<a x='1'><b/></a>"), "\n<a\n     x=\"1\">\n    <b/>\n</a>");
}

TEST(XmlWriter, PrettyTextBehindChildrenHasOneLineEndAheadOfTheClosingTag) {
    EXPECT_EQ(pretty("<a><b/>t</a>"), "\n<a>\n    <b/>t\n</a>");
    EXPECT_EQ(pretty("<a x='1'><b/>t</a>"), "\n<a\n     x=\"1\">\n    <b/>\n    t\n</a>");
}

TEST(XmlWriter, AttributeValuesAreEscapedInDoubleQuotes) {
    EXPECT_EQ(reread("<a x='&lt;&quot;&apos;&amp;'/>"), "<a x=\"&lt;&quot;&apos;&amp;\"/>");
    Node node("a");
    node.setAttr("x", tav_istr("v\0w", 3u));
    EXPECT_EQ(node.encode(false, false, 0, false), "<a x=\"v\"/>");
}

TEST(XmlWriter, TextWithSpecialBytesIsWrappedOrEscaped) {
    Node node("a", "x<y");
    EXPECT_EQ(node.encode(false, false, 0, false), "<a><![CDATA[x<y]]></a>");
    node.content("x]]>y");
    EXPECT_EQ(node.encode(false, false, 0, false), "<a>x]]&gt;y</a>");
    node.content("xy");
    EXPECT_EQ(node.encode(false, false, 0, false), "<a>xy</a>");
}

TEST(XmlWriter, SkipEmptyLeavesOutEmptyNodesAndAttributes) {
    EXPECT_EQ(skipping("<a><b/><c>1</c><d></d></a>"), "<a><c>1</c></a>");
    EXPECT_EQ(skipping("<a x='' y='1'/>"), "<a y=\"1\"/>");
    EXPECT_EQ(skipping("<a/>"), "");
    EXPECT_EQ(skipping("<a><b/></a>"), "<a></a>");
    EXPECT_EQ(skipping("<a x=''/>"), "<a/>");
}

TEST(XmlWriter, FollowingRootsAreWrittenAtTheSameLevel) {
    EXPECT_EQ(reread("<a/><b/>"), "<a/><b/>");
    EXPECT_EQ(pretty("<a/><b/>", 1), "\n    <a/>\n    <b/>");
    EXPECT_EQ(Node::fromXml("<a/><b/>")->encode(false, false, 0, false), "<a/>");
}

TEST(XmlWriter, SkippedFirstRootSkipsTheRootsThatFollow) {
    EXPECT_EQ(skipping("<a/><b>1</b>"), "");
    EXPECT_EQ(skipping("<a>1</a><b/><c>2</c>"), "<a>1</a><c>2</c>");
}

TEST(XmlWriter, ResultStaysInTheNode) {
    Node node("a");
    std::string const & text = node.encode(false, false, 0, false);
    EXPECT_EQ(text, "<a/>");
    node.tag("b");
    EXPECT_EQ(&text, &node.encode(false, false, 0, false));
    EXPECT_EQ(text, "<b/>");
}

TEST(XmlWriter, PrintsTheCompactFormWithAllRoots) {
    EXPECT_EQ(printed(*Node::fromXml("<a><b/></a><c/>")), "<a><b/></a><c/>");
}

TEST(XmlWriter, AttributeWritesItself) {
    Attr attr("n", "v<");
    std::string out = "x";
    attr.encode(out, true, "L", 0);
    EXPECT_EQ(out, "xL n=\"v&lt;\"");
    attr.value().clear();
    attr.encode(out, true, "L", 0);
    EXPECT_EQ(out, "xL n=\"v&lt;\"");
    attr.encode(out, false, "", 0);
    EXPECT_EQ(out, "xL n=\"v&lt;\" n=\"\"");
    out.clear();
    Attr::write(out, "a", "\"");
    EXPECT_EQ(out, " a=\"&quot;\"");
}

TEST(XmlWriter, ReadingGivesWhatWasWritten) {
    for (std::string const text : {"<a/>", "<a x=\"1\"/>", "<a>t</a>", "<a><![CDATA[<]]></a>",
                                   "<a>x]]&gt;y</a>", "<a x=\"&amp;\"><b><c>1</c><c>2</c></b></a><d/>"}) {
        EXPECT_EQ(text, reread(text));
        EXPECT_EQ(text, reread(pretty(text))) << pretty(text);
    }
    EXPECT_EQ(reread("<a><b/>t</a>"), "<a><b/>t</a>");
    EXPECT_EQ(reread(pretty("<a><b/>t</a>")), "<a><b/>t\n</a>");
}

TEST(XmlWriter, FindsWhatNeedsAnEntityAtAnyPlaceOfATextOfAnyLength) {
    for (int c = 1; c < 256; ++c) {
        for (std::size_t size = 1; size <= 40; ++size) {
            std::string value(size, 'x');
            std::size_t const at = static_cast<std::size_t>(c * 7) % size;
            value[at] = static_cast<char>(c);
            char const * const entity = c == '&'    ? "&amp;"
                                        : c == '"'  ? "&quot;"
                                        : c == '\'' ? "&apos;"
                                        : c == '<'  ? "&lt;"
                                        : c == '>'  ? "&gt;"
                                                    : nullptr;
            std::string escaped = value;
            if (entity != nullptr) {
                escaped.replace(at, 1, entity);
            }
            Node node("a", tav_istr(value));
            node.setAttr("b", tav_istr(value));
            std::string const text = entity != nullptr ? "<![CDATA[" + value + "]]>" : value;
            ASSERT_EQ(node.encode(false, false, 0, false), "<a b=\"" + escaped + "\">" + text + "</a>");
        }
    }
}

TEST(XmlWriter, WritesTextsThatAreLongerThanAnyPieceOfItsOutput) {
    std::string const large(100000, 'y');
    Node node("a");
    for (int i = 0; i < 3; ++i) {
        node.addChild(new Node("b", tav_istr(large + static_cast<char>('0' + i))));
    }
    EXPECT_EQ(node.encode(false, false, 0, false),
              "<a><b>" + large + "0</b><b>" + large + "1</b><b>" + large + "2</b></a>");
}
