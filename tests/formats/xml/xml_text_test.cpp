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

TEST(XmlEscape, WritesTheFiveEntities) {
    EXPECT_EQ("&amp;&quot;&apos;&lt;&gt;", escaped("&\"'<>"));
    EXPECT_EQ("a&lt;b\n", escaped("a<b\n"));
    EXPECT_EQ("plain \x7f\xc3\xa4", escaped("plain \x7f\xc3\xa4"));
    EXPECT_EQ("", escaped(""));
    EXPECT_EQ("", escaped(nullptr));
}

TEST(XmlEscape, WritesLineBreaksAsEntitiesIfAsked) {
    EXPECT_EQ("a&#10;b&#13;&amp;\t", escaped("a\nb\r&\t", true));
}

TEST(XmlEscape, StopsAtAZeroByte) {
    EXPECT_EQ("ab", escaped("ab\0cd"));
    std::string out;
    tav::xml::escapeAttr(out, "a<\n\0b");
    EXPECT_EQ("a&lt;\n", out);
}

TEST(XmlEscape, Appends) {
    std::string out = "x";
    tav::xml::escapeAttr(out, "<");
    tav::xml::escape(out, "<", true);
    tav::xml::unescape(out, "&lt;");
    EXPECT_EQ("x&lt;&lt;<", out);
}

TEST(XmlUnescape, KnowsTheEntitiesInAnyCase) {
    EXPECT_EQ("&\"'<> ", unescaped("&amp;&quot;&apos;&lt;&gt;&nbsp;"));
    EXPECT_EQ("&<", unescaped("&AMP;&Lt;"));
}

TEST(XmlUnescape, KnowsCharactersByNumber) {
    EXPECT_EQ("AA", unescaped("&#65;&#x41;"));
    EXPECT_EQ("A", unescaped("&#X41;"));
    EXPECT_EQ("\xc3\xa4", unescaped("&#xe4;"));
    EXPECT_EQ("\xe4\xb8\xad", unescaped("&#x4E2D;"));
    EXPECT_EQ("\xe4\xb8\xad", unescaped("&#20013;"));
}

TEST(XmlUnescape, NumbersCountBy16BitsAndZeroIsNothing) {
    EXPECT_EQ("ab", unescaped("a&#0;b"));
    EXPECT_EQ("ab", unescaped("a&#x0;b"));
    EXPECT_EQ("", unescaped("&#65536;"));
    EXPECT_EQ("A", unescaped("&#65601;"));
    EXPECT_EQ("", unescaped("&#x0000;"));
}

TEST(XmlUnescape, AnythingElseIsWrittenBackInLowerCase) {
    EXPECT_EQ("&bad;", unescaped("&bad;"));
    EXPECT_EQ("&bad;", unescaped("&BaD;"));
    EXPECT_EQ("&;", unescaped("&;"));
    EXPECT_EQ("&#;", unescaped("&#;"));
    EXPECT_EQ("&#x;", unescaped("&#X;"));
    EXPECT_EQ("&#xg;", unescaped("&#xG;"));
    EXPECT_EQ("&#6a;", unescaped("&#6A;"));
    EXPECT_EQ("&#-1;", unescaped("&#-1;"));
    EXPECT_EQ("&a b;", unescaped("&A b;"));
}

TEST(XmlUnescape, SemicolonStandsOneToSevenBytesBehind) {
    EXPECT_EQ("&123456;", unescaped("&123456;"));
    EXPECT_EQ("&ABCDEFG;", unescaped("&ABCDEFG;"));
    EXPECT_EQ("&abcdef;", unescaped("&ABCDEF;"));
    EXPECT_EQ("&amp", unescaped("&amp"));
    EXPECT_EQ("&", unescaped("&"));
    EXPECT_EQ("a&", unescaped("a&"));
    EXPECT_EQ("&&amp;", unescaped("&&AMP;"));
    EXPECT_EQ("&12345678&", unescaped("&12345678&amp;"));
    EXPECT_EQ("&&lt;", unescaped("&&LT;"));
}

TEST(XmlCdata, TextWithoutSpecialBytesStays) {
    EXPECT_EQ("plain ]] text\n", cdata("plain ]] text\n"));
    EXPECT_EQ("", cdata(""));
}

TEST(XmlCdata, TextWithASpecialByteIsWrapped) {
    for (std::string const byte : {"&", "\"", "'", "<", ">"}) {
        EXPECT_EQ("<![CDATA[a" + byte + "]]>", cdata("a" + byte));
    }
    EXPECT_EQ(std::string("<![CDATA[a\0<]]>", 15), cdata(std::string("a\0<", 3)));
}

TEST(XmlCdata, TextWithTheEndMarkIsEscaped) {
    EXPECT_EQ("a]]&gt;b\n", cdata("a]]>b\n"));
    EXPECT_EQ("a]]&gt;", cdata(std::string("a]]>\0b", 6)));
}

TEST(XmlCdata, DecodingUnwrapsOrUnescapes) {
    EXPECT_EQ("a<&lt;", fromCdata("<![CDATA[a<&lt;]]>"));
    EXPECT_EQ("", fromCdata("<![CDATA[]]>"));
    EXPECT_EQ("a<", fromCdata("a&lt;"));
    EXPECT_EQ("plain", fromCdata("plain"));
    EXPECT_EQ("<![CDATA[&", fromCdata("<![CDATA[&amp;"));
    EXPECT_EQ("<![CDATA[]>", fromCdata("<![CDATA[]>"));
    EXPECT_EQ("x<![CDATA[a]]>", fromCdata("x<![CDATA[a]]>"));
}

TEST(XmlCdata, DecodingReadsWhatEncodingWrote) {
    for (std::string const text : {"", "a", "<", "a]]>b&c", "&amp;", "]]", "'\"", "]]>]]>"}) {
        EXPECT_EQ(text, fromCdata(cdata(text)));
    }
}

TEST(XmlText, NullStringIsEmptyAndOne) {
    EXPECT_EQ("", tav::xml::nullString());
    EXPECT_EQ(&tav::xml::nullString(), &tav::xml::nullString());
}
