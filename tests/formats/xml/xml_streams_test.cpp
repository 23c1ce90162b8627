#include "tav/vinta/vinta_xml_streams.h"

#include "tav/vinta/vinta_object.h"

#include "support/printed.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

using tav::xml::Node;
using tav::xml::XmlInputStream;
using tav::xml::XmlOutputStream;
using tav_test::printed;

namespace {

/// What `text` reads as into a target that holds `former`.
template <class T>
T read(std::string const & text, T former) {
    Node node("a", tav_istr(text));
    XmlInputStream(node) >> former;
    return former;
}

template <class T>
std::string written(T const & v) {
    XmlOutputStream out;
    out << v;
    return out.content();
}

template <class T>
class XmlStreamsInteger : public testing::Test {};
using Integers = testing::Types<char, unsigned char, short, unsigned short, int, unsigned, long,
                                unsigned long, long long, unsigned long long>;
TYPED_TEST_SUITE(XmlStreamsInteger, Integers);

} // namespace

TYPED_TEST(XmlStreamsInteger, ReadsPrefixesAndDecimal) {
    using T = TypeParam;
    EXPECT_EQ(T(16), read<T>("0x10", 1));
    EXPECT_EQ(T(16), read<T>("0X10", 1));
    EXPECT_EQ(T(3), read<T>("0b11", 1));
    EXPECT_EQ(T(3), read<T>("0B11", 1));
    EXPECT_EQ(T(8), read<T>("010", 1));
    EXPECT_EQ(T(0), read<T>("0", 1));
    EXPECT_EQ(T(12), read<T>("12", 1));
    EXPECT_EQ(T(12), read<T>("+12", 1));
    EXPECT_EQ(T(12), read<T>(" 12", 1));
}

TYPED_TEST(XmlStreamsInteger, FrontOfTheTextCounts) {
    using T = TypeParam;
    EXPECT_EQ(T(12), read<T>("12abc", 1));
    EXPECT_EQ(T(1), read<T>("1.9", 7));
    EXPECT_EQ(T(10), read<T>("0xag", 1));
    EXPECT_EQ(T(1), read<T>("0b12", 7));
    EXPECT_EQ(T(0), read<T>("08", 1));
    EXPECT_EQ(T(0), read<T>("0x", 1));
    EXPECT_EQ(T(0), read<T>("0xg", 1));
    EXPECT_EQ(T(0), read<T>("0b2", 1));
    EXPECT_EQ(T(0), read<T>("0x11112222333344445", 1));
}

TYPED_TEST(XmlStreamsInteger, WhatIsNoNumberLeavesTheTargetButAnUnsignedCharBecomesZero) {
    using T = TypeParam;
    T const left = std::is_same<T, unsigned char>::value ? T(0) : T(7);
    EXPECT_EQ(left, read<T>("", 7));
    EXPECT_EQ(left, read<T>("abc", 7));
    EXPECT_EQ(left, read<T>("-", 7));
    EXPECT_EQ(left, read<T>("99999999999999999999999999", 7));
}

TEST(XmlStreamsNumbers, NegativesAndBounds) {
    EXPECT_EQ(read<int>("-5", 1), -5);
    EXPECT_EQ(read<char>("-5", 1), -5);
    EXPECT_EQ(read<short>("-32768", 1), -32768);
    EXPECT_EQ(read<short>("32768", 1), 1);
    EXPECT_EQ(read<short>("0xffff", 1), -1);
    EXPECT_EQ(read<short>("0x10000", 1), 0);
    EXPECT_EQ(read<long long>("0xffffffffffffffff", 1), -1);
    EXPECT_EQ(read<unsigned long long>("18446744073709551615", 1), 18446744073709551615ull);
    EXPECT_EQ(read<unsigned>("-5", 1), 4294967291u);
}

TEST(XmlStreamsNumbers, FloatingPointTakesTheFront) {
    EXPECT_EQ(read<double>("1.5", 0), 1.5);
    EXPECT_EQ(read<double>(" -2e3", 0), -2e3);
    EXPECT_EQ(read<double>("1.5x", 0), 1.5);
    EXPECT_EQ(read<double>("x", 7), 7.0);
    EXPECT_EQ(read<double>("", 7), 7.0);
    EXPECT_EQ(read<float>("2.5", 0), 2.5f);
    EXPECT_EQ(read<float>("x", 7), 7.0f);
}

TEST(XmlStreamsBool, KnowsSixWords) {
    for (char const * const word : {"1", "true", "on"}) {
        EXPECT_TRUE(read<bool>(word, false));
    }
    for (char const * const word : {"0", "false", "off"}) {
        EXPECT_FALSE(read<bool>(word, true));
    }
    for (char const * const word : {"", "TRUE", "On", "yes", "2", " true"}) {
        EXPECT_TRUE(read<bool>(word, true));
        EXPECT_FALSE(read<bool>(word, false));
    }
}

TEST(XmlStreamsTexts, AreUnescapedOnceMore) {
    EXPECT_EQ(tavString("<&"), read<tavString>("&lt;&amp;", "former"));
    EXPECT_EQ(tavString(), read<tavString>("", "former"));
    EXPECT_EQ(read<std::string>("&lt;", ""), "<");
    EXPECT_EQ(read<std::wstring>("\xc3\xa4&lt;", L""), L"\u00e4<");
    tavXmlInStream in("<a><t>&amp;lt;</t></a>");
    tavString text;
    in.child(1, "t")->io(text, tavCodecMeta());
    EXPECT_EQ(tavString("<"), text);
}

TEST(XmlStreamsTexts, BytesAreBase64AndTimesText) {
    EXPECT_EQ(tavBytes(tav_istr("abc")), read<tavBytes>("YWJj", tavBytes(tav_istr("former"))));
    tavTime const time = tavTime::milliseconds(1700000000123ll);
    EXPECT_EQ(tavTime::from(tav_istr(time.str())),
              read<tavTime>(std::string(tav_istr(time.str())), tavTime::milliseconds(0)));
}

TEST(XmlStreamsOutputStream, WritesTheTextOfEachType) {
    EXPECT_EQ(written(true), "true");
    EXPECT_EQ(written(false), "false");
    EXPECT_EQ(written(static_cast<char>(-1)), "-1");
    EXPECT_EQ(written(static_cast<unsigned char>(255)), "255");
    EXPECT_EQ(written(static_cast<short>(-32768)), "-32768");
    EXPECT_EQ(written(static_cast<unsigned short>(65535)), "65535");
    EXPECT_EQ(written(-5), "-5");
    EXPECT_EQ(written(4294967295u), "4294967295");
    EXPECT_EQ(written(-6l), "-6");
    EXPECT_EQ(written(6ul), "6");
    EXPECT_EQ(written(-9223372036854775807ll - 1), "-9223372036854775808");
    EXPECT_EQ(written(18446744073709551615ull), "18446744073709551615");
    EXPECT_EQ(written(1.5), "1.5");
    EXPECT_EQ(written(1234567.0), "1.23457e+06");
    EXPECT_EQ(written(0.1f), "0.1");
    EXPECT_EQ(written(tavString("t")), "t");
    EXPECT_EQ(written(std::string("t")), "t");
    EXPECT_EQ(written(tav_istr("t")), "t");
    EXPECT_EQ(written("t"), "t");
    EXPECT_EQ(written(static_cast<char const *>(nullptr)), "");
    EXPECT_EQ(written(std::wstring(L"\u00e4")), "\xc3\xa4");
    EXPECT_EQ(written(tavBytes(tav_istr("abc"))), "YWJj");
    EXPECT_EQ(std::string(tav_istr(tavTime::milliseconds(5000).str())), written(tavTime::milliseconds(5000)));
}

TEST(XmlStreamsOutputStream, Appends) {
    XmlOutputStream out("a");
    out << 1 << "x" << 2;
    EXPECT_EQ(out.content(), "1x2");
    EXPECT_EQ(out.tag(), "a");
}

TEST(XmlStreamsOutputStream, WorksOnABorrowedNodeOrItsOwn) {
    Node node("a");
    XmlOutputStream over(node);
    over["b"].content("1");
    EXPECT_EQ(&over["b"], &over.child("b"));
    over("x").value() = "2";
    over.attr("x").value() += "3";
    over.newChild();
    EXPECT_EQ(&node, &over.node());
    EXPECT_EQ(printed(node), "<a x=\"23\"><b>1</b><any/></a>");
    XmlOutputStream own;
    EXPECT_EQ(own.tag(), "");
    EXPECT_FALSE(own.decoding());
    EXPECT_EQ(own.dumping(), 0);
    EXPECT_EQ(&own, &own.me());
}

TEST(XmlStreamsOutputStream, EnterGivesATagOnlyToANodeWithoutOne) {
    XmlOutputStream both;
    both.enter("name", "base", "tag");
    EXPECT_EQ(both.tag(), "tag");
    both.enter("name", "base", "other");
    EXPECT_EQ(both.tag(), "tag");
    XmlOutputStream named;
    named.enter("name", "base", "");
    EXPECT_EQ(named.tag(), "name");
    named.leave();
    named.enterSuper();
    named.leaveSuper();
    EXPECT_EQ(named.encode(false, false, 0), "<name/>");
}

TEST(XmlStreamsOutputStream, StrIsPrettyWithEmptyPartsOrCompactWithout) {
    XmlOutputStream out("a");
    out.child("b").content("1");
    out.child("c");
    EXPECT_EQ(out.str(true), "\n    <a>\n        <b>1</b>\n        <c/>\n    </a>");
    EXPECT_EQ(out.str(false), "<a><b>1</b></a>");
    out.node().next(new Node("d", "2"));
    EXPECT_EQ(out.str(false), "<a><b>1</b></a><d>2</d>");
    EXPECT_EQ(out.encode(false, false, 0), "<a><b>1</b><c/></a><d>2</d>");
}

TEST(XmlStreamsInputStream, WorksOnABorrowedNodeOrItsOwn) {
    std::string rest;
    XmlInputStream in("<a x='1'><b>2</b></a> tail", &rest);
    EXPECT_EQ(rest, "tail");
    EXPECT_EQ(in.tag(), "a");
    EXPECT_EQ(in.content(), "");
    EXPECT_EQ(in.attr("x").value(), "1");
    EXPECT_EQ(in("x").value(), "1");
    EXPECT_EQ(in.child("b").content(), "2");
    EXPECT_EQ(in["b"].content(), "2");
    EXPECT_EQ(in.end() - in.begin(), 1);
    EXPECT_FALSE(in.isNull());
    EXPECT_TRUE(in.decoding());
    EXPECT_EQ(in.dumping(), 0);
    EXPECT_EQ(&in, &in.me());
    XmlInputStream const over(in["c"]);
    EXPECT_TRUE(over.isNull());
    EXPECT_EQ(&Node::null(), &over.node());
}

TEST(XmlStreamsInputStream, CopyReadsTheSameNode) {
    XmlInputStream const own("<a><b>2</b></a>");
    XmlInputStream const copy(own);
    EXPECT_EQ(copy["b"].content(), "2");
    EXPECT_EQ(&own["b"], &copy["b"]);
    Node const node("c", "3");
    XmlInputStream const over(node);
    EXPECT_EQ(&node, &XmlInputStream(over).node());
}

TEST(XmlStreamsOutStream, IsAnOutputStream) {
    tavXmlOutStream out("a");
    EXPECT_FALSE(out.isNull());
    EXPECT_FALSE(out.hideEmpty());
    EXPECT_TRUE(out.isOutputStream());
    EXPECT_TRUE(out.isMapEntryCombined());
    std::vector<tavSharedPtr<tavCodecStream>> list;
    std::map<tavString, tavSharedPtr<tavCodecStream>> map;
    out.getInputChildren(list);
    out.getInputChildMap(map);
    EXPECT_TRUE(list.empty());
    EXPECT_TRUE(map.empty());
    EXPECT_EQ(std::string(out.name()), "a");
}

TEST(XmlStreamsOutStream, TwoChildrenOfOneNameAreOneElement) {
    tavXmlOutStream out("a");
    int one = 1;
    int two = 2;
    out.child(7, "b")->io(one, tavCodecMeta());
    out.child(8, "b")->io(two, tavCodecMeta());
    out.getOutputChild()->io(one, tavCodecMeta());
    out.getOutputChild()->io(two, tavCodecMeta());
    EXPECT_EQ(tavString("<a><b>12</b><any>1</any><any>2</any></a>"), out.str(false));
}

TEST(XmlStreamsOutStream, EnterNamesANodeWithoutATag) {
    tavXmlOutStream out("");
    out.enter("Hello", "Base");
    EXPECT_EQ(std::string(out.name()), "Hello");
    out.enter("Other", "Base");
    out.leave();
    EXPECT_EQ(std::string(out.name()), "Hello");
}

TEST(XmlStreamsOutStream, WorksOnABorrowedImplementation) {
    XmlOutputStream impl("a");
    int v = 5;
    {
        tavXmlOutStream out(&impl, false);
        out.io(v, tavCodecMeta());
    }
    EXPECT_EQ(impl.content(), "5");
    tavXmlOutStream owner(new XmlOutputStream("b"), true);
    EXPECT_EQ(std::string(owner.name()), "b");
}

TEST(XmlStreamsInStream, FindsChildrenByNameAndElementsByPosition) {
    tavXmlInStream in("<a><b>1</b><any>2</any><any>3</any><b>4</b></a>");
    EXPECT_FALSE(in.isNull());
    EXPECT_FALSE(in.isOutputStream());
    EXPECT_FALSE(in.hideEmpty());
    EXPECT_TRUE(in.isMapEntryCombined());
    EXPECT_FALSE(in.getOutputChild());
    EXPECT_FALSE(in.child(1, "c"));
    EXPECT_EQ(std::string(in.name()), "a");
    int v = 0;
    in.child(99, "b")->io(v, tavCodecMeta());
    EXPECT_EQ(v, 1);
    std::vector<tavSharedPtr<tavCodecStream>> list;
    in.getInputChildren(list);
    ASSERT_EQ(list.size(), 4u);
    in.getInputChildren(list);
    EXPECT_EQ(list.size(), 8u);
    list[2]->io(v, tavCodecMeta());
    EXPECT_EQ(v, 3);
    std::map<tavString, tavSharedPtr<tavCodecStream>> map;
    in.getInputChildMap(map);
    ASSERT_EQ(map.size(), 2u);
    map["b"]->io(v, tavCodecMeta());
    EXPECT_EQ(v, 4);
    map["any"]->io(v, tavCodecMeta());
    EXPECT_EQ(v, 3);
}

TEST(XmlStreamsInStream, FieldsAreElementsAndNeverAttributes) {
    tavXmlInStream in("<a b='1'/>");
    EXPECT_FALSE(in.child(1, "b"));
}

TEST(XmlStreamsInStream, MalformedTextReadsAsMissing) {
    tavXmlInStream in("<a><b>1</b><c>");
    EXPECT_TRUE(in.child(1, "b"));
    EXPECT_FALSE(in.child(1, "c"));
    tavXmlInStream none("");
    EXPECT_FALSE(none.isNull());
    EXPECT_EQ(std::string(none.name()), "");
}

TEST(TavXmlStreams, EverySimpleTypeTravels) {
    tavXmlOutStream out("a");
    tavXmlOutStream & s = out;
    auto const write = [&s](char const * name, auto v) { s.child(1, name)->io(v, tavCodecMeta()); };
    write("time", tavTime::milliseconds(1700000000000ll));
    write("bytes", tavBytes(tav_istr("\0<", 2u)));
    write("text", tavString("a<b&c]]>"));
    write("double", 2.5);
    write("float", -1.5f);
    write("u64", 18446744073709551615ull);
    write("i64", -5ll);
    write("ulong", 6ul);
    write("long", -6l);
    write("uint", 7u);
    write("int", -7);
    write("u16", static_cast<unsigned short>(8));
    write("i16", static_cast<short>(-8));
    write("u8", static_cast<unsigned char>(200));
    write("i8", static_cast<char>(-100));
    write("bool", true);
    for (bool const pretty : {false, true}) {
        tavXmlInStream in(tav_istr(out.str(pretty)));
        auto const expect = [&in](char const * name, auto expected) {
            auto v = decltype(expected)();
            auto const child = in.child(1, name);
            ASSERT_TRUE(child) << name;
            child->io(v, tavCodecMeta());
            EXPECT_EQ(v, expected) << name;
        };
        expect("time", tavTime::milliseconds(1700000000000ll));
        expect("bytes", tavBytes(tav_istr("\0<", 2u)));
        expect("text", tavString("a<b&c]]>"));
        expect("double", 2.5);
        expect("float", -1.5f);
        expect("u64", 18446744073709551615ull);
        expect("i64", -5ll);
        expect("ulong", 6ul);
        expect("long", -6l);
        expect("uint", 7u);
        expect("int", -7);
        expect("u16", static_cast<unsigned short>(8));
        expect("i16", static_cast<short>(-8));
        expect("u8", static_cast<unsigned char>(200));
        expect("i8", static_cast<char>(-100));
        expect("bool", true);
    }
}
