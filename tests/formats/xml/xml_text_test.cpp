#include "tav/vinta/vinta_xml_node.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string escaped(char const * text, bool lineBreaks = false) {
    std::string out = ">";
    tav::xml::escape(out, text, lineBreaks);
    return out.substr(1);
}

std::string unescaped(std::string const & text) {
    std::string out;
    tav::xml::unescape(out, tav_istr(text));
    return out;
}

std::string cdata(std::string text) {
    tav::xml::encode_cdata(text);
    return text;
}

std::string fromCdata(std::string text) {
    tav::xml::decode_cdata(text);
    return text;
}

} // namespace

TEST(XmlTextEscape, WritesTheFiveEntities) {
    EXPECT_EQ(escaped("&\"'<>"), "&amp;&quot;&apos;&lt;&gt;");
    EXPECT_EQ(escaped("a<b\n"), "a&lt;b\n");
    EXPECT_EQ(escaped("plain \x7f\xc3\xa4"), "plain \x7f\xc3\xa4");
    EXPECT_EQ(escaped(""), "");
    EXPECT_EQ(escaped(nullptr), "");
}

TEST(XmlTextEscape, WritesLineBreaksAsEntitiesIfAsked) {
    EXPECT_EQ(escaped("a\nb\r&\t", true), "a&#10;b&#13;&amp;\t");
}

TEST(XmlTextEscape, StopsAtAZeroByte) {
    EXPECT_EQ(escaped("ab\0cd"), "ab");
    std::string out;
    tav::xml::escapeAttr(out, "a<\n\0b");
    EXPECT_EQ(out, "a&lt;\n");
}

TEST(XmlTextEscape, Appends) {
    std::string out = "x";
    tav::xml::escapeAttr(out, "<");
    tav::xml::escape(out, "<", true);
    tav::xml::unescape(out, "&lt;");
    EXPECT_EQ(out, "x&lt;&lt;<");
}

TEST(XmlTextUnescape, KnowsTheEntitiesInAnyCase) {
    EXPECT_EQ(unescaped("&amp;&quot;&apos;&lt;&gt;&nbsp;"), "&\"'<> ");
    EXPECT_EQ(unescaped("&AMP;&Lt;"), "&<");
}

TEST(XmlTextUnescape, KnowsCharactersByNumber) {
    EXPECT_EQ(unescaped("&#65;&#x41;"), "AA");
    EXPECT_EQ(unescaped("&#X41;"), "A");
    EXPECT_EQ(unescaped("&#xe4;"), "\xc3\xa4");
    EXPECT_EQ(unescaped("&#x4E2D;"), "\xe4\xb8\xad");
    EXPECT_EQ(unescaped("&#20013;"), "\xe4\xb8\xad");
}

TEST(XmlTextUnescape, NumbersCountBy16BitsAndZeroIsNothing) {
    EXPECT_EQ(unescaped("a&#0;b"), "ab");
    EXPECT_EQ(unescaped("a&#x0;b"), "ab");
    EXPECT_EQ(unescaped("&#65536;"), "");
    EXPECT_EQ(unescaped("&#65601;"), "A");
    EXPECT_EQ(unescaped("&#x0000;"), "");
}

TEST(XmlTextUnescape, AnythingElseIsWrittenBackInLowerCase) {
    EXPECT_EQ(unescaped("&bad;"), "&bad;");
    EXPECT_EQ(unescaped("&BaD;"), "&bad;");
    EXPECT_EQ(unescaped("&;"), "&;");
    EXPECT_EQ(unescaped("&#;"), "&#;");
    EXPECT_EQ(unescaped("&#X;"), "&#x;");
    EXPECT_EQ(unescaped("&#xG;"), "&#xg;");
    EXPECT_EQ(unescaped("&#6A;"), "&#6a;");
    EXPECT_EQ(unescaped("&#-1;"), "&#-1;");
    EXPECT_EQ(unescaped("&A b;"), "&a b;");
}

TEST(XmlTextUnescape, SemicolonStandsOneToSevenBytesBehind) {
    EXPECT_EQ(unescaped("&123456;"), "&123456;");
    EXPECT_EQ(unescaped("&ABCDEFG;"), "&ABCDEFG;");
    EXPECT_EQ(unescaped("&ABCDEF;"), "&abcdef;");
    EXPECT_EQ(unescaped("&amp"), "&amp");
    EXPECT_EQ(unescaped("&"), "&");
    EXPECT_EQ(unescaped("a&"), "a&");
    EXPECT_EQ(unescaped("&&AMP;"), "&&amp;");
    EXPECT_EQ(unescaped("&12345678&amp;"), "&12345678&");
    EXPECT_EQ(unescaped("&&LT;"), "&&lt;");
}

TEST(XmlTextCdata, TextWithoutSpecialBytesStays) {
    EXPECT_EQ(cdata("plain ]] text\n"), "plain ]] text\n");
    EXPECT_EQ(cdata(""), "");
}

TEST(XmlTextCdata, TextWithASpecialByteIsWrapped) {
    for (std::string const byte : {"&", "\"", "'", "<", ">"}) {
        EXPECT_EQ("<![CDATA[a" + byte + "]]>", cdata("a" + byte));
    }
    EXPECT_EQ(cdata(std::string("a\0<", 3)), std::string("<![CDATA[a\0<]]>", 15));
}

TEST(XmlTextCdata, TextWithTheEndMarkIsEscaped) {
    EXPECT_EQ(cdata("a]]>b\n"), "a]]&gt;b\n");
    EXPECT_EQ(cdata(std::string("a]]>\0b", 6)), "a]]&gt;");
}

TEST(XmlTextCdata, DecodingUnwrapsOrUnescapes) {
    EXPECT_EQ(fromCdata("<![CDATA[a<&lt;]]>"), "a<&lt;");
    EXPECT_EQ(fromCdata("<![CDATA[]]>"), "");
    EXPECT_EQ(fromCdata("a&lt;"), "a<");
    EXPECT_EQ(fromCdata("plain"), "plain");
    EXPECT_EQ(fromCdata("<![CDATA[&amp;"), "<![CDATA[&");
    EXPECT_EQ(fromCdata("<![CDATA[]>"), "<![CDATA[]>");
    EXPECT_EQ(fromCdata("x<![CDATA[a]]>"), "x<![CDATA[a]]>");
}

TEST(XmlTextCdata, DecodingReadsWhatEncodingWrote) {
    for (std::string const text : {"", "a", "<", "a]]>b&c", "&amp;", "]]", "'\"", "]]>]]>"}) {
        EXPECT_EQ(text, fromCdata(cdata(text)));
    }
}

TEST(XmlText, NullStringIsEmptyAndOne) {
    EXPECT_EQ(tav::xml::nullString(), "");
    EXPECT_EQ(&tav::xml::nullString(), &tav::xml::nullString());
}
