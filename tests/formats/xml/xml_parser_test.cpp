#include "tav/vinta/vinta_xml_node.h"

#include "support/log_capture.h"
#include "support/xml_rig.h"

#include <gtest/gtest.h>

#include <string>

using tav::xml::Node;
using tav_test::failureOf;
using tav_test::LogCapture;
using tav_test::reread;

namespace {

tavSharedPtr<Node> parsed(std::string const & text) {
    return Node::fromXml(tav_istr(text));
}

Node const & constant(tavSharedPtr<Node> const & node) {
    return *node;
}

std::string restOf(std::string const & text) {
    std::string rest;
    failureOf(text, &rest);
    return rest;
}

} // namespace

TEST(XmlParser, ReadsTagsAttributesChildrenAndText) {
    auto const node = parsed("<a x='1' y=\"2\"><b>t</b><c/></a>");
    EXPECT_EQ("a", node->tag());
    EXPECT_EQ("1", constant(node).attr("x").value());
    EXPECT_EQ("2", constant(node).attr("y").value());
    EXPECT_EQ("t", constant(node).child("b").content());
    EXPECT_FALSE(constant(node).child("c").isNull());
    EXPECT_TRUE(constant(node).child("d").isNull());
    EXPECT_TRUE(node->contentIsEmpty());
}

TEST(XmlParser, UnquotedValueEndsAtABlank) {
    auto const node = parsed("<a b=1 c=\"2\"/>");
    EXPECT_EQ("1", constant(node).attr("b").value());
    EXPECT_EQ("2", constant(node).attr("c").value());
    EXPECT_EQ("1/>", constant(parsed("<a b=1/> c=2\t/>")).attr("b").value());
    EXPECT_EQ("x", constant(parsed("<a b=x\n>t</a>")).attr("b").value());
    EXPECT_EQ("x", constant(parsed("<a b=x\r/>")).attr("b").value());
}

TEST(XmlParser, QuotedValueEndsAtTheSameQuoteAndIsUnescaped) {
    auto const node = parsed("<a b='\"<>&amp;' c=\"'&#65;\"/>");
    EXPECT_EQ("\"<>&", constant(node).attr("b").value());
    EXPECT_EQ("'A", constant(node).attr("c").value());
    EXPECT_EQ("", constant(parsed("<a b=''/>")).attr("b").value());
}

TEST(XmlParser, BlanksMayStandAroundTheAssignment) {
    EXPECT_EQ("1", constant(parsed("<a b \n=\t '1' />")).attr("b").value());
}

TEST(XmlParser, NamesHoldLettersDigitsAndFourSigns) {
    EXPECT_EQ("_a:B-9.z", parsed("<_a:B-9.z/>")->tag());
    EXPECT_EQ(":", parsed("<:/>")->tag());
    EXPECT_EQ("v", constant(parsed("<a _b:c-d.e9='v'/>")).attr("_b:c-d.e9").value());
}

TEST(XmlParser, AttributeGivenTwiceIsFoundLastAndKeptTwice) {
    auto const node = parsed("<a x='1' x='2'/>");
    EXPECT_EQ("2", constant(node).attr("x").value());
    EXPECT_EQ("<a x=\"1\" x=\"2\"/>", node->encode(false, false, 0, true));
}

TEST(XmlParser, TextsAreJoined) {
    auto const node = parsed("<a>x<b/>y</a>");
    EXPECT_EQ("xy", node->content());
    EXPECT_EQ(1, node->end() - node->begin());
    EXPECT_EQ("x y z", parsed("<a>  x <!-- c --> y <b/> z</a>")->content());
    EXPECT_EQ("x<&lt;&", parsed("<a>x<![CDATA[<&lt;]]>&amp;</a>")->content());
}

TEST(XmlParser, BlanksAheadOfTextGoAndTrailingOnesStay) {
    EXPECT_EQ("x ", parsed("<a> \n x </a>")->content());
    EXPECT_EQ("xy", parsed("<a><![CDATA[x]]> y</a>")->content());
    EXPECT_EQ(" x", parsed("<a><![CDATA[ x]]></a>")->content());
}

TEST(XmlParser, EntitiesOfTextAreResolved) {
    EXPECT_EQ("&bad;", parsed("<a>&bad;</a>")->content());
    EXPECT_EQ("A", parsed("<a>&#65;</a>")->content());
    EXPECT_EQ("A", parsed("<a>&#x41;</a>")->content());
}

TEST(XmlParser, CommentsAndDeclarationsAreBlanks) {
    EXPECT_EQ("<a><b/></a>", reread(" <?xml version='1'?>\n<!-- <c/> --><a><!-- x --><b/><?y?></a>"));
    EXPECT_EQ("1", constant(parsed("<a <!-- c --> b='1' <?d?> />")).attr("b").value());
}

TEST(XmlParser, CommentWithoutAnEndReachesToTheEnd) {
    EXPECT_EQ("XML_DECODE_TAG_NO_BEGIN_CHAR", failureOf("<!-- <a/>"));
    EXPECT_EQ("XML_DECODE_TAG_NO_BEGIN_CHAR", failureOf("<?a"));
}

TEST(XmlParser, EndOfACommentSharesNoByteWithItsBeginning) {
    EXPECT_EQ("<a>x</a>", reread("<a><!--> b -->x</a>"));
    EXPECT_EQ("<a>x</a>", reread("<a><!---> b -->x</a>"));
    EXPECT_EQ("<a>x</a>", reread("<a><!---->x</a>"));
    EXPECT_EQ("<a>x</a>", reread("<a><?>x</a>"));
}

TEST(XmlParser, DecodingAddsToWhatTheNodeHolds) {
    Node node("z", "t");
    node.setAttr("x", "1");
    node.addChild("b", "1");
    node.child("b");
    node.attr("x");
    node.createNext();
    node.decode("<a x='2'><c/>u</a>");
    EXPECT_EQ("<a x=\"1\" x=\"2\"><b>1</b><c/>tu</a>", node.encode(false, false, 0, false));
    EXPECT_EQ("2", node.attr("x").value());
    EXPECT_EQ("c", node.child("c").tag());
    EXPECT_EQ(2, node.end() - node.begin());
}

TEST(XmlParser, FollowingRootsAreChained) {
    auto const node = parsed("<a/><b/> <c>t</c>");
    EXPECT_EQ("a", node->tag());
    ASSERT_NE(nullptr, node->next());
    EXPECT_EQ("b", node->next()->tag());
    ASSERT_NE(nullptr, node->next()->next());
    EXPECT_EQ("t", node->next()->next()->content());
    EXPECT_EQ(nullptr, node->next()->next()->getNext());
}

TEST(XmlParser, CompleteRootsStayWhenALaterOneFails) {
    auto const node = parsed("<a/><b/><c");
    ASSERT_NE(nullptr, node->next());
    EXPECT_EQ("b", node->next()->tag());
    EXPECT_EQ(nullptr, node->next()->next());
}

TEST(XmlParser, ClosingTagThatDoesNotMatchIsLeftForTheParent) {
    EXPECT_EQ("<a><b>1</b></a>", reread("<a><b>1</a>"));
    EXPECT_EQ("", failureOf("<a><b>1</a>"));
    EXPECT_EQ("</x>", restOf("<a></x>"));
    EXPECT_EQ("</a >", restOf("<a>t</a >"));
    EXPECT_EQ("<a>t</a>", reread("<a>t</a >"));
}

TEST(XmlParser, EndOfInputWithinAnElementIsNoFailureBehindAChild) {
    EXPECT_EQ("", failureOf("<a><b/>"));
    EXPECT_EQ("<a><b/></a>", reread("<a><b/>"));
    EXPECT_EQ("<a>x</a>", reread("<a><![CDATA[x]]>"));
}

TEST(XmlParser, RestIsWhatStandsBehindTheLastRoot) {
    EXPECT_EQ("", restOf("<a/>"));
    EXPECT_EQ("tail", restOf("<a/>  tail"));
    EXPECT_EQ("tail", restOf("<a/><b>t</b> <!-- c -->tail"));
    EXPECT_EQ("</c>", restOf("<a/><b/></c>"));
}

TEST(XmlParser, RestOfAFailureIsTheTextFromWhereItFailed) {
    EXPECT_EQ("text", restOf("<a>text"));
    EXPECT_EQ("=1>", restOf("<a =1>"));
    EXPECT_EQ("1>", restOf("<a x='1>"));
    EXPECT_EQ("1>", restOf("<a x=1>"));
    EXPECT_EQ(">", restOf("<a x='1' y>"));
    EXPECT_EQ("<![CDATA[t", restOf("<a>x<![CDATA[t"));
    EXPECT_EQ("/a>", restOf("</a>"));
    EXPECT_EQ("tail", restOf("tail"));
}

TEST(XmlParser, EveryFailureHasItsName) {
    EXPECT_EQ("XML_DECODE_TAG_NO_BEGIN_CHAR", failureOf(""));
    EXPECT_EQ("XML_DECODE_TAG_NO_BEGIN_CHAR", failureOf(" \r\n\t"));
    EXPECT_EQ("XML_DECODE_TAG_NOT_BEGIN_CHAR", failureOf("a"));
    EXPECT_EQ("XML_DECODE_TAG_NO_IDENTIFY_CHAR", failureOf("<"));
    EXPECT_EQ("XML_DECODE_TAG_CLOSING", failureOf("</a>"));
    EXPECT_EQ("XML_DECODE_TAG_NOT_IDENTIFY_CHAR", failureOf("<9/>"));
    EXPECT_EQ("XML_DECODE_TAG_NOT_IDENTIFY_CHAR", failureOf("< a/>"));
    EXPECT_EQ("XML_DECODE_TAG_NOT_IDENTIFY_CHAR", failureOf("<\xc3\xa4/>"));
    EXPECT_EQ("XML_DECODE_TAG_EOF", failureOf("<a"));
    EXPECT_EQ("XML_DECODE_ATTR_NO_END_TAG", failureOf("<a "));
    EXPECT_EQ("XML_DECODE_ATTR_NOT_IDENTITY_CHAR", failureOf("<a 1=2>"));
    EXPECT_EQ("XML_DECODE_ATTR_NOT_IDENTITY_CHAR", failureOf("<a / >"));
    EXPECT_EQ("XML_DECODE_ATTR_NO_ASSIGN_CHAR", failureOf("<a b"));
    EXPECT_EQ("XML_DECODE_ATTR_NO_ASSIGN_CHAR", failureOf("<a b "));
    EXPECT_EQ("XML_DECODE_ATTR_NOT_ASSIGN_CHAR", failureOf("<a b>"));
    EXPECT_EQ("XML_DECODE_ATTR_NO_QUOTE_CHAR", failureOf("<a b= "));
    EXPECT_EQ("XML_DECODE_ATTR_NO_END_QUOTE_CHAR", failureOf("<a b='1"));
    EXPECT_EQ("XML_DECODE_ATTR_NO_END_QUOTE_CHAR", failureOf("<a b='1\">"));
    EXPECT_EQ("XML_DECODE_ATTR_NO_END_QUOTE_CHAR", failureOf("<a x=1"));
    EXPECT_EQ("XML_DECODE_ATTR_NO_END_QUOTE_CHAR", failureOf("<a x=1>"));
    EXPECT_EQ("XML_DECODE_EOF", failureOf("<a b='1'"));
    EXPECT_EQ("XML_DECODE_EOF", failureOf("<a>"));
    EXPECT_EQ("XML_DECODE_EOF", failureOf("<a> <!-- -->"));
    EXPECT_EQ("XML_DECODE_CONTENT_NO_END_TAG", failureOf("<a>text"));
    EXPECT_EQ("XML_DECODE_CONTENT_NO_END_TAG", failureOf("<a><![CDATA[text]]"));
    EXPECT_EQ("", failureOf("<a/>"));
}

TEST(XmlParser, FailureIsLoggedInThreeRecordsAndNotThrown) {
    LogCapture log;
    Node node;
    EXPECT_EQ(&node, &node.decode("<a><b/>text\n"));
    auto const records = log.records();
    ASSERT_EQ(3u, records.size());
    for (auto const & record : records) {
        EXPECT_EQ(tavLogger::ERROR, record.level);
    }
    EXPECT_NE(std::string::npos, records[0].text.find("not parsed xml =text\n\n"));
    EXPECT_NE(std::string::npos, records[1].text.find("<EXCEPTION> XML_DECODE_CONTENT_NO_END_TAG\n"));
    EXPECT_NE(std::string::npos,
              records[2].text.find("<<< EXCEPTION >>> (tav::Exception) XML_DECODE_CONTENT_NO_END_TAG"));
    EXPECT_NE(std::string::npos, records[2].text.find("\n    throw at Node::decodeContent(vinta_xml_node"));
    EXPECT_NE(std::string::npos, records[2].text.find("\n    catch at Node::decode(vinta_xml_node"));
    EXPECT_EQ("<a><b/></a>", node.encode(false, false, 0, true));
}

TEST(XmlParser, TreeStaysAsFarAsItWasBuilt) {
    EXPECT_EQ("a", parsed("<a>")->tag());
    EXPECT_TRUE(parsed("</a>")->isEmpty());
    EXPECT_EQ("<a x=\"1\"/>", reread("<a x='1' y>"));
    EXPECT_EQ("<a><b/></a>", reread("<a><b/><c><d/><e"));
    EXPECT_EQ("<a>t</a>", reread("<a>t<b>"));
}

TEST(XmlParser, ZeroBytesBelongToTheText) {
    std::string const text("<a>\0x</a>", 9);
    EXPECT_EQ(std::string("\0x", 2), parsed(text)->content());
    EXPECT_EQ("XML_DECODE_TAG_NOT_BEGIN_CHAR", failureOf(std::string("\0<a/>", 5)));
}

TEST(XmlParser, ReadsAViewThatEndsWithinTheBytes) {
    std::string const text = "<a>t</a><b/>";
    Node node;
    node.decode(tav_istr(text.data(), 8u));
    EXPECT_EQ("t", node.content());
    EXPECT_EQ(nullptr, node.next());
    for (unsigned n = 0; n <= text.size(); ++n) {
        std::string const exact(text, 0, n);
        failureOf(exact);
    }
}
