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
    EXPECT_EQ(node->tag(), "a");
    EXPECT_EQ(constant(node).attr("x").value(), "1");
    EXPECT_EQ(constant(node).attr("y").value(), "2");
    EXPECT_EQ(constant(node).child("b").content(), "t");
    EXPECT_FALSE(constant(node).child("c").isNull());
    EXPECT_TRUE(constant(node).child("d").isNull());
    EXPECT_TRUE(node->contentIsEmpty());
}

TEST(XmlParser, UnquotedValueEndsAtABlank) {
    auto const node = parsed("<a b=1 c=\"2\"/>");
    EXPECT_EQ(constant(node).attr("b").value(), "1");
    EXPECT_EQ(constant(node).attr("c").value(), "2");
    EXPECT_EQ(constant(parsed("<a b=1/> c=2\t/>")).attr("b").value(), "1/>");
    EXPECT_EQ(constant(parsed("<a b=x\n>t</a>")).attr("b").value(), "x");
    EXPECT_EQ(constant(parsed("<a b=x\r/>")).attr("b").value(), "x");
}

TEST(XmlParser, QuotedValueEndsAtTheSameQuoteAndIsUnescaped) {
    auto const node = parsed("<a b='\"<>&amp;' c=\"'&#65;\"/>");
    EXPECT_EQ(constant(node).attr("b").value(), "\"<>&");
    EXPECT_EQ(constant(node).attr("c").value(), "'A");
    EXPECT_EQ(constant(parsed("<a b=''/>")).attr("b").value(), "");
}

TEST(XmlParser, BlanksMayStandAroundTheAssignment) {
    EXPECT_EQ(constant(parsed("<a b \n=\t '1' />")).attr("b").value(), "1");
}

TEST(XmlParser, NamesHoldLettersDigitsAndFourSigns) {
    EXPECT_EQ(parsed("<_a:B-9.z/>")->tag(), "_a:B-9.z");
    EXPECT_EQ(parsed("<:/>")->tag(), ":");
    EXPECT_EQ(constant(parsed("<a _b:c-d.e9='v'/>")).attr("_b:c-d.e9").value(), "v");
}

TEST(XmlParser, AttributeGivenTwiceIsFoundLastAndKeptTwice) {
    auto const node = parsed("<a x='1' x='2'/>");
    EXPECT_EQ(constant(node).attr("x").value(), "2");
    EXPECT_EQ(node->encode(false, false, 0, true), "<a x=\"1\" x=\"2\"/>");
}

TEST(XmlParser, TextsAreJoined) {
    auto const node = parsed("<a>x<b/>y</a>");
    EXPECT_EQ(node->content(), "xy");
    EXPECT_EQ(node->end() - node->begin(), 1);
    EXPECT_EQ(parsed("<a>  x <!-- c --> y <b/> z</a>")->content(), "x y z");
    EXPECT_EQ(parsed("<a>x<![CDATA[<&lt;]]>&amp;</a>")->content(), "x<&lt;&");
}

TEST(XmlParser, BlanksAheadOfTextGoAndTrailingOnesStay) {
    EXPECT_EQ(parsed("<a> \n x </a>")->content(), "x ");
    EXPECT_EQ(parsed("<a><![CDATA[x]]> y</a>")->content(), "xy");
    EXPECT_EQ(parsed("<a><![CDATA[ x]]></a>")->content(), " x");
}

TEST(XmlParser, EntitiesOfTextAreResolved) {
    EXPECT_EQ(parsed("<a>&bad;</a>")->content(), "&bad;");
    EXPECT_EQ(parsed("<a>&#65;</a>")->content(), "A");
    EXPECT_EQ(parsed("<a>&#x41;</a>")->content(), "A");
}

TEST(XmlParser, CommentsAndDeclarationsAreBlanks) {
    EXPECT_EQ(reread(" <?xml version='1'?>\n<!-- <c/> --><a><!-- x --><b/><?y?></a>"), "<a><b/></a>");
    EXPECT_EQ(constant(parsed("<a <!-- c --> b='1' <?d?> />")).attr("b").value(), "1");
}

TEST(XmlParser, CommentWithoutAnEndReachesToTheEnd) {
    EXPECT_EQ(failureOf("<!-- <a/>"), "XML_DECODE_TAG_NO_BEGIN_CHAR");
    EXPECT_EQ(failureOf("<?a"), "XML_DECODE_TAG_NO_BEGIN_CHAR");
}

TEST(XmlParser, EndOfACommentSharesNoByteWithItsBeginning) {
    EXPECT_EQ(reread("<a><!--> b -->x</a>"), "<a>x</a>");
    EXPECT_EQ(reread("<a><!---> b -->x</a>"), "<a>x</a>");
    EXPECT_EQ(reread("<a><!---->x</a>"), "<a>x</a>");
    EXPECT_EQ(reread("<a><?>x</a>"), "<a>x</a>");
}

TEST(XmlParser, DecodingAddsToWhatTheNodeHolds) {
    Node node("z", "t");
    node.setAttr("x", "1");
    node.addChild("b", "1");
    node.child("b");
    node.attr("x");
    node.createNext();
    node.decode("<a x='2'><c/>u</a>");
    EXPECT_EQ(node.encode(false, false, 0, false), "<a x=\"1\" x=\"2\"><b>1</b><c/>tu</a>");
    EXPECT_EQ(node.attr("x").value(), "2");
    EXPECT_EQ(node.child("c").tag(), "c");
    EXPECT_EQ(node.end() - node.begin(), 2);
}

TEST(XmlParser, FollowingRootsAreChained) {
    auto const node = parsed("<a/><b/> <c>t</c>");
    EXPECT_EQ(node->tag(), "a");
    ASSERT_NE(node->next(), nullptr);
    EXPECT_EQ(node->next()->tag(), "b");
    ASSERT_NE(node->next()->next(), nullptr);
    EXPECT_EQ(node->next()->next()->content(), "t");
    EXPECT_EQ(node->next()->next()->getNext(), nullptr);
}

TEST(XmlParser, CompleteRootsStayWhenALaterOneFails) {
    auto const node = parsed("<a/><b/><c");
    ASSERT_NE(node->next(), nullptr);
    EXPECT_EQ(node->next()->tag(), "b");
    EXPECT_EQ(node->next()->next(), nullptr);
}

TEST(XmlParser, ClosingTagThatDoesNotMatchIsLeftForTheParent) {
    EXPECT_EQ(reread("<a><b>1</a>"), "<a><b>1</b></a>");
    EXPECT_EQ(failureOf("<a><b>1</a>"), "");
    EXPECT_EQ(restOf("<a></x>"), "</x>");
    EXPECT_EQ(restOf("<a>t</a >"), "</a >");
    EXPECT_EQ(reread("<a>t</a >"), "<a>t</a>");
}

TEST(XmlParser, EndOfInputWithinAnElementIsNoFailureBehindAChild) {
    EXPECT_EQ(failureOf("<a><b/>"), "");
    EXPECT_EQ(reread("<a><b/>"), "<a><b/></a>");
    EXPECT_EQ(reread("<a><![CDATA[x]]>"), "<a>x</a>");
}

TEST(XmlParser, RestIsWhatStandsBehindTheLastRoot) {
    EXPECT_EQ(restOf("<a/>"), "");
    EXPECT_EQ(restOf("<a/>  tail"), "tail");
    EXPECT_EQ(restOf("<a/><b>t</b> <!-- c -->tail"), "tail");
    EXPECT_EQ(restOf("<a/><b/></c>"), "</c>");
}

TEST(XmlParser, RestOfAFailureIsTheTextFromWhereItFailed) {
    EXPECT_EQ(restOf("<a>text"), "text");
    EXPECT_EQ(restOf("<a =1>"), "=1>");
    EXPECT_EQ(restOf("<a x='1>"), "1>");
    EXPECT_EQ(restOf("<a x=1>"), "1>");
    EXPECT_EQ(restOf("<a x='1' y>"), ">");
    EXPECT_EQ(restOf("<a>x<![CDATA[t"), "<![CDATA[t");
    EXPECT_EQ(restOf("</a>"), "/a>");
    EXPECT_EQ(restOf("tail"), "tail");
}

TEST(XmlParser, EveryFailureHasItsName) {
    EXPECT_EQ(failureOf(""), "XML_DECODE_TAG_NO_BEGIN_CHAR");
    EXPECT_EQ(failureOf(" \r\n\t"), "XML_DECODE_TAG_NO_BEGIN_CHAR");
    EXPECT_EQ(failureOf("a"), "XML_DECODE_TAG_NOT_BEGIN_CHAR");
    EXPECT_EQ(failureOf("<"), "XML_DECODE_TAG_NO_IDENTIFY_CHAR");
    EXPECT_EQ(failureOf("</a>"), "XML_DECODE_TAG_CLOSING");
    EXPECT_EQ(failureOf("<9/>"), "XML_DECODE_TAG_NOT_IDENTIFY_CHAR");
    EXPECT_EQ(failureOf("< a/>"), "XML_DECODE_TAG_NOT_IDENTIFY_CHAR");
    EXPECT_EQ(failureOf("<\xc3\xa4/>"), "XML_DECODE_TAG_NOT_IDENTIFY_CHAR");
    EXPECT_EQ(failureOf("<a"), "XML_DECODE_TAG_EOF");
    EXPECT_EQ(failureOf("<a "), "XML_DECODE_ATTR_NO_END_TAG");
    EXPECT_EQ(failureOf("<a 1=2>"), "XML_DECODE_ATTR_NOT_IDENTITY_CHAR");
    EXPECT_EQ(failureOf("<a / >"), "XML_DECODE_ATTR_NOT_IDENTITY_CHAR");
    EXPECT_EQ(failureOf("<a b"), "XML_DECODE_ATTR_NO_ASSIGN_CHAR");
    EXPECT_EQ(failureOf("<a b "), "XML_DECODE_ATTR_NO_ASSIGN_CHAR");
    EXPECT_EQ(failureOf("<a b>"), "XML_DECODE_ATTR_NOT_ASSIGN_CHAR");
    EXPECT_EQ(failureOf("<a b= "), "XML_DECODE_ATTR_NO_QUOTE_CHAR");
    EXPECT_EQ(failureOf("<a b='1"), "XML_DECODE_ATTR_NO_END_QUOTE_CHAR");
    EXPECT_EQ(failureOf("<a b='1\">"), "XML_DECODE_ATTR_NO_END_QUOTE_CHAR");
    EXPECT_EQ(failureOf("<a x=1"), "XML_DECODE_ATTR_NO_END_QUOTE_CHAR");
    EXPECT_EQ(failureOf("<a x=1>"), "XML_DECODE_ATTR_NO_END_QUOTE_CHAR");
    EXPECT_EQ(failureOf("<a b='1'"), "XML_DECODE_EOF");
    EXPECT_EQ(failureOf("<a>"), "XML_DECODE_EOF");
    EXPECT_EQ(failureOf("<a> <!-- -->"), "XML_DECODE_EOF");
    EXPECT_EQ(failureOf("<a>text"), "XML_DECODE_CONTENT_NO_END_TAG");
    EXPECT_EQ(failureOf("<a><![CDATA[text]]"), "XML_DECODE_CONTENT_NO_END_TAG");
    EXPECT_EQ(failureOf("<a/>"), "");
}

TEST(XmlParser, FailureIsLoggedInThreeRecordsAndNotThrown) {
    LogCapture log;
    Node node;
    EXPECT_EQ(&node, &node.decode("<a><b/>text\n"));
    auto const records = log.records();
    ASSERT_EQ(records.size(), 3u);
    for (auto const & record : records) {
        EXPECT_EQ(record.level, tavLogger::ERROR);
    }
    EXPECT_NE(records[0].text.find("not parsed xml =text\n\n"), std::string::npos);
    EXPECT_NE(records[1].text.find("<EXCEPTION> XML_DECODE_CONTENT_NO_END_TAG\n"), std::string::npos);
    EXPECT_NE(records[2].text.find("<<< EXCEPTION >>> (tav::Exception) XML_DECODE_CONTENT_NO_END_TAG"),
              std::string::npos);
    EXPECT_NE(records[2].text.find("\n    throw at Node::decodeContent(vinta_xml_node"), std::string::npos);
    EXPECT_NE(records[2].text.find("\n    catch at Node::decode(vinta_xml_node"), std::string::npos);
    EXPECT_EQ(node.encode(false, false, 0, true), "<a><b/></a>");
}

TEST(XmlParser, TreeStaysAsFarAsItWasBuilt) {
    EXPECT_EQ(parsed("<a>")->tag(), "a");
    EXPECT_TRUE(parsed("</a>")->isEmpty());
    EXPECT_EQ(reread("<a x='1' y>"), "<a x=\"1\"/>");
    EXPECT_EQ(reread("<a><b/><c><d/><e"), "<a><b/></a>");
    EXPECT_EQ(reread("<a>t<b>"), "<a>t</a>");
}

TEST(XmlParser, ZeroBytesBelongToTheText) {
    std::string const text("<a>\0x</a>", 9);
    EXPECT_EQ(parsed(text)->content(), std::string("\0x", 2));
    EXPECT_EQ(failureOf(std::string("\0<a/>", 5)), "XML_DECODE_TAG_NOT_BEGIN_CHAR");
}

TEST(XmlParser, ReadsAViewThatEndsWithinTheBytes) {
    std::string const text = "<a>t</a><b/>";
    Node node;
    node.decode(tav_istr(text.data(), 8u));
    EXPECT_EQ(node.content(), "t");
    EXPECT_EQ(node.next(), nullptr);
    for (unsigned n = 0; n <= text.size(); ++n) {
        std::string const exact(text, 0, n);
        failureOf(exact);
    }
}

TEST(XmlParser, ChildrenStayInTheirOrderAtEachLevel) {
    std::string const text = "<a><b><c>1</c><d/><c>2</c></b><e/><b><f><g/><h>3</h></f><i/></b>t</a>";
    EXPECT_EQ(reread(text), "<a><b><c>1</c><d/><c>2</c></b><e/><b><f><g/><h>3</h></f><i/></b>t</a>");
}

TEST(XmlParser, OfAFailureTheCompleteChildrenOfTheRootStayAndNoOthers) {
    Node node;
    node.decode("<a><b><c/></b><d>x</d><e><f/><g/>");
    EXPECT_EQ(node.encode(false, false, 0, true), "<a><b><c/></b><d>x</d><e><f/><g/></e></a>");
    Node failed;
    failed.decode("<a><b><c/></b><d>x</d><e><f/><g/><h");
    EXPECT_EQ(failed.encode(false, false, 0, true), "<a><b><c/></b><d>x</d></a>");
}
