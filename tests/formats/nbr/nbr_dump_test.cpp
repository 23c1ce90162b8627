#include "tav/vinta/vinta_nbr_unit.h"

#include "support/nbr_bytes.h"
#include "support/printed.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>

using tav::nbr::_PrintNbr;
using tav::nbr::ComplexValue;
using tav::nbr::NbrInputStream;
using tav::nbr::NbrOutputStream;
using tav::nbr::parser;
using tav::nbr::SimpleValue;
using tav::nbr::ValueBase;
using tav_test::bytes;
using tav_test::printed;

namespace {

std::string dumped(ValueBase const & value, bool pretty = false, int level = 0) {
    std::ostringstream out;
    EXPECT_EQ(&out, &value.dump(out, pretty, level));
    return out.str();
}

/// The dump of the value at the front of a document.
std::string dumped(char const * document, bool pretty = false, int level = 0) {
    std::string const data = bytes(document);
    tav_istr view(data);
    return dumped(*parser::from(view), pretty, level);
}

std::string binary(char const * data) {
    std::string const content = bytes(data);
    return dumped(SimpleValue(tav_istr(content), false));
}

std::string text(tav_istr data) {
    return dumped(SimpleValue(data, true));
}

char const * const sample = "FF 01 28 01 01 01 05 02 F1 02 61 62 FF 01 29";
char const * const nested = "FF 01 28 01 FF 01 28 80 00 FF 01 29 7F FF 01 28 FF 01 29 FF 01 29";

/// A value of another class than the library's own.
class Foreign : public ValueBase {
public:
    bool simple() const override { return true; }
    std::ostream & dump(std::ostream & out, bool pretty, int level) const override {
        return out << "<foreign " << pretty << ' ' << level << '>';
    }
};

} // namespace

TEST(NbrDump, NoDataIsTheLengthOnly) {
    EXPECT_EQ(dumped(SimpleValue(true)), "[0]");
    EXPECT_EQ(dumped(SimpleValue(false)), "[0]");
    EXPECT_EQ(text(tav_istr("", 0u)), "[0]");
    EXPECT_EQ(text(tav_istr(static_cast<char const *>(nullptr), 5u)), "[0]");
}

TEST(NbrDump, TextIsMasked) {
    EXPECT_EQ(text("hello world"), "[11]\"hel***rld[11]\"");
    EXPECT_EQ(text("ab"), "[2]\"ab***[2]\"");
    EXPECT_EQ(text("abc"), "[3]\"abc***[3]\"");
    EXPECT_EQ(text("abcde"), "[5]\"abc***de[5]\"");
    EXPECT_EQ(text("abcdef"), "[6]\"abc***def[6]\"");
}

TEST(NbrDump, OneOrTwoBytesAreAShort) {
    EXPECT_EQ(binary("05"), "[1]5");
    EXPECT_EQ(binary("FF"), "[1]255");
    EXPECT_EQ(binary("FF FF"), "[2]-1");
    EXPECT_EQ(binary("2C 01"), "[2]300");
    EXPECT_EQ(binary("00 80"), "[2]-32768");
}

TEST(NbrDump, ThreeOrFourBytesAreAnInt) {
    EXPECT_EQ(binary("FF FF FF"), "[3]16777215");
    EXPECT_EQ(binary("FF FF FF FF"), "[4]-1");
    EXPECT_EQ(binary("00 00 00 80"), "[4]-2147483648");
}

TEST(NbrDump, FiveToEightBytesAreALongLong) {
    EXPECT_EQ(binary("FF FF FF FF FF"), "[5]1099511627775");
    EXPECT_EQ(binary("FF FF FF FF FF FF FF"), "[7]72057594037927935");
    EXPECT_EQ(binary("FF FF FF FF FF FF FF FF"), "[8]-1");
    EXPECT_EQ(binary("00 00 00 00 00 00 00 80"), "[8]-9223372036854775808");
}

TEST(NbrDump, MoreBytesAreTheirEnds) {
    EXPECT_EQ(binary("00 01 02 03 04 05 06 07 08"), "[9][00010203]***[05060708]");
    EXPECT_EQ(binary("00 01 02 03 04 05 06 07 08 09 0A 0B"), "[12][00010203]***[08090A0B]");
    EXPECT_EQ(binary("FF FE FD FC FB FA F9 F8 F7 F6"), "[10][FFFEFDFC]***[F9F8F7F6]");
}

TEST(NbrDump, ObjectOnOneLine) {
    EXPECT_EQ(dumped(sample), "{ 1[1]5 2[2]\"ab***[2]\" }");
    EXPECT_EQ(dumped(sample, false, 7), "{ 1[1]5 2[2]\"ab***[2]\" }");
}

TEST(NbrDump, ObjectPretty) {
    EXPECT_EQ(dumped(sample, true), "{\n    1[1]5\n    2[2]\"ab***[2]\"\n}");
    EXPECT_EQ(dumped(sample, true, 2), "{\n            1[1]5\n            2[2]\"ab***[2]\"\n        }");
}

TEST(NbrDump, EmptyObject) {
    EXPECT_EQ(dumped("FF 01 28 FF 01 29"), "{ }");
    EXPECT_EQ(dumped("FF 01 28 FF 01 29", true), "{\n}");
    EXPECT_EQ(dumped(ComplexValue()), "{ }");
}

TEST(NbrDump, NestedObject) {
    EXPECT_EQ(dumped(nested), "{ 1{ -128[] } 127{ } }");
    EXPECT_EQ(dumped(nested, true), "{\n    1{\n        -128[]\n    }\n    127{\n    }\n}");
}

TEST(NbrDump, TreesMadeByHandPrintAsParsedOnes) {
    ComplexValue inner;
    inner.add('\x80', nullptr);
    ComplexValue root;
    root.add(1, tavSharedPtr<ValueBase>(&inner, false));
    root.add(127, tavSharedPtr<ValueBase>(new ComplexValue));
    EXPECT_EQ(dumped(nested), dumped(root));
    EXPECT_EQ(dumped(nested, true), dumped(root, true));
    EXPECT_EQ(dumped(nested, true, 3), dumped(root, true, 3));
}

TEST(NbrDump, ParsedValuesInATreeMadeByHand) {
    std::string const data = bytes(nested);
    tav_istr view(data);
    ComplexValue root;
    root.add(1, parser::from(view));
    root.add(2, tavSharedPtr<ValueBase>(new SimpleValue("abc", true)));
    EXPECT_EQ(dumped(root, true),
              "{\n    1{\n        1{\n            -128[]\n        }\n        127{\n        }\n    }\n"
              "    2[3]\"abc***[3]\"\n}");
}

TEST(NbrDump, ForeignValuesPrintThemselves) {
    ComplexValue inner;
    inner.add(2, tavSharedPtr<ValueBase>(new Foreign));
    ComplexValue root;
    root.add(1, tavSharedPtr<ValueBase>(&inner, false));
    EXPECT_EQ(dumped(root), "{ 1{ 2<foreign 0 2> } }");
    EXPECT_EQ(dumped(root, true, 1), "{\n        1{\n            2<foreign 1 3>\n        }\n    }");
}

TEST(NbrDump, StreamFormatDoesNotMatter) {
    std::string const data = bytes(sample);
    tav_istr view(data);
    std::ostringstream out;
    out << std::hex << std::showpos;
    parser::from(view)->dump(out, false, 0);
    EXPECT_EQ(out.str(), "{ 1[1]5 2[2]\"ab***[2]\" }");
}

TEST(NbrDump, DeepIndentation) {
    std::string document;
    for (int i = 0; i < 40; ++i) {
        document += bytes("FF 01 28 01");
    }
    document += bytes("01 01 05");
    tav_istr view(document);
    std::string const all = dumped(*parser::from(view), true);
    EXPECT_NE(all.find("\n" + std::string(160, ' ') + "1[1]5\n" + std::string(156, ' ') + "}"),
              std::string::npos);
}

TEST(NbrDumpPrint, InputStreamPutsNothingBetweenValues) {
    NbrInputStream const s(bytes("01 01 05 F1 01 61 FF 01 28 FF 01 29"));
    EXPECT_EQ(printed(s), "[1]5[1]\"a***[1]\"{ }");
    std::ostringstream out;
    EXPECT_EQ(&out, &s.dump(out, false));
    EXPECT_EQ(out.str(), "[1]5[1]\"a***[1]\"{ }");
}

TEST(NbrDumpPrint, PrettyEndsEachValueWithALine) {
    NbrInputStream const s(bytes("01 01 05 FF 01 28 01 00 FF 01 29"));
    std::ostringstream out;
    s.dump(out, true);
    EXPECT_EQ(out.str(), "[1]5\n{\n    1[]\n}\n");
}

TEST(NbrDumpPrint, TheSameBeforeAndAfterTheValuesWereAskedFor) {
    NbrInputStream const s(bytes(nested));
    std::string const before = printed(s);
    EXPECT_EQ(std::distance(s.begin(), s.end()), 1);
    EXPECT_TRUE(s.getChild(1));
    EXPECT_EQ(before, printed(s));
}

TEST(NbrDumpPrint, StreamOfAValue) {
    NbrInputStream const s(tavSharedPtr<ValueBase>(new SimpleValue("abc", true)));
    EXPECT_EQ(printed(s), "[3]\"abc***[3]\"");
    EXPECT_EQ(printed(NbrInputStream(tavSharedPtr<ValueBase>())), "");
    std::ostringstream pretty;
    s.dump(pretty, true);
    EXPECT_EQ(pretty.str(), "[3]\"abc***[3]\"\n");
}

TEST(NbrDumpPrint, OutputStreamPrintsItsOwnBytes) {
    NbrOutputStream s;
    s << 5 << "ab";
    EXPECT_EQ(printed(s), "[1]5[2]\"ab***[2]\"");
    EXPECT_EQ(printed(NbrOutputStream()), "");
}

TEST(NbrDumpPrint, RawBytes) {
    std::string const data = bytes(sample);
    EXPECT_EQ(printed(_PrintNbr(tav_istr(data), false)), "{ 1[1]5 2[2]\"ab***[2]\" }");
    EXPECT_EQ(printed(_PrintNbr(tav_istr(data), true)), "{\n    1[1]5\n    2[2]\"ab***[2]\"\n}\n");
    tav_nbr_buf const buf{data.data(), static_cast<unsigned>(data.size())};
    EXPECT_EQ(printed(buf), "{ 1[1]5 2[2]\"ab***[2]\" }");
    tav_nbr_buf const none{nullptr, 0};
    EXPECT_EQ(printed(none), "");
}

TEST(NbrDumpPrint, BadBytesFail) {
    EXPECT_THROW(printed(_PrintNbr(tav_istr("(("), false)), std::invalid_argument);
    NbrOutputStream s;
    s.writeRaw("((");
    EXPECT_THROW(printed(s), std::invalid_argument);
}
