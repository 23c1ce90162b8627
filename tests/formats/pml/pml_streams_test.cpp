#include "tav/vinta/vinta_pml_streams.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <stdexcept>
#include <string>

using tav::pml::PmlInputStream;
using tav::pml::PmlOutputStream;
using tav::pml::Unit;

namespace {

/// What `before` becomes when a unit of this value is read into it.
template <class T>
T read(char const * value, T before) {
    Unit const unit("a", value);
    PmlInputStream const s(unit);
    EXPECT_EQ(&s, &(s >> before));
    return before;
}

template <class T>
T readNull(T before) {
    PmlInputStream(Unit::null()) >> before;
    return before;
}

/// The value of a unit that `v` was written to.
template <class T>
std::string written(T const & v) {
    Unit unit("a");
    PmlOutputStream s(unit);
    EXPECT_EQ(&s, &(s << v));
    return unit.value();
}

tavBytes bytesOf(char const * text) {
    return tavBytes(tav_istr(text));
}

} // namespace

TEST(PmlInputStream, DefaultOneActsAsOverTheNullUnit) {
    PmlInputStream const s;
    EXPECT_EQ(nullptr, s.unitPtr());
    EXPECT_EQ(&Unit::null(), &s.unit());
    EXPECT_TRUE(s.isNull());
    EXPECT_TRUE(s.isEmpty());
    EXPECT_EQ(nullptr, s.next());
    EXPECT_EQ("", s.name());
    EXPECT_EQ("", s.type());
    EXPECT_EQ("", s.value());
    EXPECT_EQ("", s.str());
    EXPECT_TRUE(s.begin() == s.end());
    int v = 7;
    s >> v;
    EXPECT_EQ(7, v);
    EXPECT_TRUE(PmlInputStream(tavSharedPtr<Unit>()).isNull());
}

TEST(PmlInputStream, OverAUnitCountsNoReference) {
    Unit unit("a", "t", "v");
    PmlInputStream const s(unit);
    EXPECT_EQ(&unit, &s.unit());
    EXPECT_EQ(&unit, s.unitPtr().get());
    EXPECT_FALSE(s.unitPtr().counted());
    EXPECT_EQ(0u, unit.getRefCount());
    EXPECT_EQ("a", s.name());
    EXPECT_EQ("t", s.type());
    EXPECT_EQ("v", s.value());
    EXPECT_EQ(&s, &s.me());
}

TEST(PmlInputStream, OverASharedUnitCountsAReference) {
    tavSharedPtr<Unit> const unit(new Unit("a"));
    PmlInputStream const s(unit);
    EXPECT_EQ(2u, unit->getRefCount());
    PmlInputStream const copy(s);
    EXPECT_EQ(3u, unit->getRefCount());
    EXPECT_EQ(unit, copy.unitPtr());
}

TEST(PmlInputStream, OverATextDecodesIt) {
    PmlInputStream const s("a:t(b(1)c(2))d(3)");
    EXPECT_EQ("a", s.name());
    EXPECT_EQ("t", s.type());
    EXPECT_EQ("1", s["b"].value());
    ASSERT_NE(nullptr, s.next());
    EXPECT_EQ("d", s.next()->name());
    EXPECT_EQ(nullptr, PmlInputStream(s.next()).next());
}

TEST(PmlInputStream, OverATextThrowsWhatDecodingThrows) {
    try {
        PmlInputStream const s("abc");
        FAIL();
    } catch (std::invalid_argument const & e) {
        EXPECT_EQ(0u, std::string(e.what()).find("empty after pml name\n    throw at ")) << e.what();
    }
}

TEST(PmlInputStream, OverAnEmptyTextHasAnEmptyUnitThatIsNotNull) {
    PmlInputStream const s("");
    EXPECT_FALSE(s.isNull());
    EXPECT_TRUE(s.isEmpty());
}

TEST(PmlInputStream, IsEmptyWithoutChildrenAndValueOnly) {
    EXPECT_TRUE(PmlInputStream("a:t()").isEmpty());
    EXPECT_FALSE(PmlInputStream("a(1)").isEmpty());
    EXPECT_FALSE(PmlInputStream("a(b())").isEmpty());
}

TEST(PmlInputStream, ChildIsTheNullUnitIfAbsentAndNothingIsMade) {
    PmlInputStream const s("a(b(1)b(2)c(3))");
    EXPECT_EQ("1", s.child("b").value());
    EXPECT_TRUE(s.child("x").isNull());
    EXPECT_TRUE(s["x"].isNull());
    EXPECT_EQ(3u, s.unit().size());
}

TEST(PmlInputStream, AStreamWithoutAUnitHasNoChildren) {
    PmlInputStream const s;
    EXPECT_EQ(&Unit::null(), &s.child("x"));
    EXPECT_EQ(&Unit::null(), &s.child("x", "y"));
    EXPECT_EQ(&Unit::null(), &s["x"]);
}

TEST(PmlInputStream, ChildGoesByTheAlternativeNameIfThereIsOne) {
    PmlInputStream const s("a(b(1)c(3))");
    EXPECT_EQ("1", s.child("b", "").value());
    EXPECT_EQ("3", s.child("b", "c").value());
    EXPECT_TRUE(s.child("b", "x").isNull());
}

TEST(PmlInputStream, WalksTheChildrenInOrder) {
    PmlInputStream const s("a(c(1)b(2)(3))");
    std::string values;
    for (tavSharedPtr<Unit> const & child : s) {
        values += child->value();
    }
    EXPECT_EQ("123", values);
}

TEST(PmlInputStream, StrIsOnOneLineWithoutTypesAndEmptyUnits) {
    EXPECT_EQ("a(b(1)d(2))", PmlInputStream("a:t( b:int32(1) c() d(2) )").str());
}

TEST(PmlInputStream, DecodesAndDoesNotDump) {
    PmlInputStream s("a(1)");
    s.enter("a", "b", "c");
    s.enterSuper();
    s.leaveSuper();
    s.leave();
    EXPECT_TRUE(s.decoding());
    EXPECT_EQ(0, s.dumping());
    EXPECT_EQ("a(1)", s.str());
    EXPECT_EQ("", s.type());
}

TEST(PmlInputStream, IntegersAreDecimalHexadecimalBinaryOrOctal) {
    EXPECT_EQ(16, read("0x10", 1));
    EXPECT_EQ(5, read("0b101", 1));
    EXPECT_EQ(8, read("010", 1));
    EXPECT_EQ(8, read("08", 1)); // no octal number, but a decimal one
    EXPECT_EQ(0, read("0", 1));
    EXPECT_EQ(-12, read("-12", 1));
    EXPECT_EQ(12, read("+12", 1));
    EXPECT_EQ(12, read(" 12", 1));
}

TEST(PmlInputStream, IntegersThatFailLeaveTheTarget) {
    for (char const * text : {"", "abc", "1x", "1.5", "0x", "0xg", "12 ", "0b2", "--1"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(7, read<short>(text, 7));
        EXPECT_EQ(7, read<unsigned short>(text, 7));
        EXPECT_EQ(7, read<int>(text, 7));
        EXPECT_EQ(7u, read<unsigned>(text, 7));
        EXPECT_EQ(7, read<long long>(text, 7));
        EXPECT_EQ(7u, read<unsigned long long>(text, 7));
    }
}

TEST(PmlInputStream, IntegersOutOfTheTargetsRangeLeaveIt) {
    EXPECT_EQ(32767, read<short>("32767", 7));
    EXPECT_EQ(7, read<short>("32768", 7));
    EXPECT_EQ(-32768, read<short>("-32768", 7));
    EXPECT_EQ(7, read<short>("-32769", 7));
    EXPECT_EQ(65535, read<unsigned short>("65535", 7));
    EXPECT_EQ(7, read<unsigned short>("65536", 7));
    EXPECT_EQ(7, read<int>("2147483648", 7));
    EXPECT_EQ(7u, read<unsigned>("4294967296", 7));
    EXPECT_EQ(7, read<long long>("9223372036854775808", 7));
    EXPECT_EQ(7u, read<unsigned long long>("18446744073709551616", 7));
    EXPECT_EQ(std::numeric_limits<unsigned long long>::max(),
              read<unsigned long long>("18446744073709551615", 7));
}

TEST(PmlInputStream, FormsWithAPrefixMustFitTheBitsOfTheTarget) {
    EXPECT_EQ(-1, read<long long>("0xFFFFFFFFFFFFFFFF", 7));
    EXPECT_EQ(7, read<long long>("0x10000000000000000", 7));
    EXPECT_EQ(-1, read<short>("0xFFFF", 7));
    EXPECT_EQ(7, read<short>("0x1FFFF", 7));
    EXPECT_EQ(7u, read<unsigned>("0x100000000", 7));
    EXPECT_EQ(7, read<unsigned short>("0b10000000000000000", 7));
}

TEST(PmlInputStream, CharsAreNumbersOf16BitsCutToEight) {
    EXPECT_EQ(65, read<char>("65", 'x'));
    EXPECT_EQ(65, read<unsigned char>("0x41", 'x'));
    EXPECT_EQ(-1, read<char>("-1", 'x'));
    EXPECT_EQ(255, read<unsigned char>("-1", 'x'));
    EXPECT_EQ(44, read<char>("300", 'x'));
    EXPECT_EQ(44, read<unsigned char>("300", 'x'));
    EXPECT_EQ(255, read<unsigned char>("65535", 'x'));
    EXPECT_EQ(0, read<char>("32768", 'x'));
    EXPECT_EQ(0, read<unsigned char>("65536", 'x'));
    EXPECT_EQ(0, read<char>("abc", 'x'));
    EXPECT_EQ(0, read<unsigned char>("", 'x'));
    EXPECT_EQ('x', readNull<char>('x'));
    EXPECT_EQ('x', readNull<unsigned char>('x'));
}

TEST(PmlInputStream, LongsThatFailBecomeZeroAlsoFromTheNullUnit) {
    EXPECT_EQ(16, read<long>("0x10", 7));
    EXPECT_EQ(16u, read<unsigned long>("0x10", 7));
    EXPECT_EQ(0, read<long>("abc", 7));
    EXPECT_EQ(0u, read<unsigned long>("abc", 7));
    EXPECT_EQ(0, read<long>("9223372036854775808", 7));
    EXPECT_EQ(0, readNull<long>(7));
    EXPECT_EQ(0u, readNull<unsigned long>(7));
}

TEST(PmlInputStream, TheNullUnitTouchesNothingElse) {
    EXPECT_EQ(7, readNull<short>(7));
    EXPECT_EQ(7, readNull<unsigned short>(7));
    EXPECT_EQ(7, readNull<int>(7));
    EXPECT_EQ(7u, readNull<unsigned>(7));
    EXPECT_EQ(7, readNull<long long>(7));
    EXPECT_EQ(7u, readNull<unsigned long long>(7));
    EXPECT_EQ(7.5f, readNull<float>(7.5f));
    EXPECT_EQ(7.5, readNull<double>(7.5));
    EXPECT_TRUE(readNull<bool>(true));
    EXPECT_EQ("x", readNull<tavString>("x"));
    EXPECT_EQ("x", readNull<std::string>("x"));
    EXPECT_EQ(L"x", readNull<std::wstring>(L"x"));
    EXPECT_EQ("x", readNull(bytesOf("x")));
    EXPECT_EQ(tavTime::milliseconds(7), readNull(tavTime::milliseconds(7)));
}

TEST(PmlInputStream, FloatingPointIsDecimalAndUsesUpTheText) {
    EXPECT_EQ(1.5, read<double>("1.5", 7));
    EXPECT_EQ(-250.0, read<double>("-2.5e2", 7));
    EXPECT_EQ(1.5f, read<float>("1.5", 7));
    EXPECT_EQ(10.0, read<double>("010", 7));
    EXPECT_EQ(1.5, read<double>(" +1.5", 7));
    EXPECT_EQ(0.5f, read<float>(".5", 7));
    EXPECT_EQ(0.0, read<double>("1e-999", 7));
    for (char const * text : {"", "abc", "1.5x", "0x10", "1e999", "inf", "nan", "1.5 ", "1e", "true"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(7.0, read<double>(text, 7));
        EXPECT_EQ(7.0f, read<float>(text, 7));
    }
    EXPECT_EQ(7.0f, read<float>("1e99", 7));
}

TEST(PmlInputStream, BoolIsOneOfFourTexts) {
    EXPECT_TRUE(read("true", false));
    EXPECT_TRUE(read("1", false));
    EXPECT_FALSE(read("false", true));
    EXPECT_FALSE(read("0", true));
    for (char const * text : {"TRUE", "True", "yes", "2", "", " true", "FALSE", "00"}) {
        EXPECT_TRUE(read(text, true)) << text;
        EXPECT_FALSE(read(text, false)) << text;
    }
}

TEST(PmlInputStream, TextIsTheValue) {
    EXPECT_EQ("x y", read<tavString>("x y", "b"));
    EXPECT_EQ("x y", read<std::string>("x y", "b"));
    EXPECT_EQ("", read<tavString>("", "b"));
    EXPECT_EQ("", read<std::string>("", "b"));
    EXPECT_EQ(L"\u00E4x", read<std::wstring>("\xC3\xA4x", L"b"));
    EXPECT_EQ(L"", read<std::wstring>("", L"b"));
}

TEST(PmlInputStream, TextKeepsItsNulBytesAndMostElseFailsOnThem) {
    std::string const text("1\0"
                           "2",
                           3);
    Unit const unit("a", tav_istr(text));
    PmlInputStream const s(unit);
    tavString tavText;
    std::string plain;
    std::wstring wide;
    s >> tavText >> plain >> wide;
    EXPECT_EQ(tavString(text), tavText);
    EXPECT_EQ(text, plain);
    EXPECT_EQ(L"1", wide); // as tavString decodes it
    int number = 7;
    double floating = 7;
    bool truth = false;
    s >> number >> floating >> truth;
    EXPECT_EQ(7, number);
    EXPECT_EQ(7.0, floating);
    EXPECT_FALSE(truth);
}

TEST(PmlInputStream, NoTextMakesAConversionRaise) {
    std::mt19937 random(6);
    std::string const digits = "0123456789abxXB-+.eE:~=/ \xC3\xFF";
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (auto n = random() % 24; n > 0; --n) {
            text += round % 2 == 0 ? static_cast<char>(random()) : digits[random() % digits.size()];
        }
        Unit const unit("a", tav_istr(text));
        PmlInputStream const s(unit);
        char small = 0;
        unsigned short medium = 0;
        unsigned long large = 0;
        long long huge = 0;
        float single = 0;
        double twice = 0;
        bool truth = false;
        std::wstring wide;
        tavBytes bytes;
        tavTime time;
        EXPECT_NO_THROW(s >> small >> medium >> large >> huge >> single >> twice >> truth >> wide >> bytes >>
                        time)
            << text;
    }
}

TEST(PmlInputStream, BytesAreBase64) {
    EXPECT_EQ("Hello", read("SGVsbG8=", bytesOf("before")));
    EXPECT_EQ("", read("", bytesOf("before")));
}

TEST(PmlInputStream, TimeEndsAtTheFirstNul) {
    tavTime const expected = tavTime::from("2022-06-01~11:09:29.007");
    EXPECT_EQ(expected, read("2022-06-01~11:09:29.007", tavTime::milliseconds(7)));
    std::string const text("2022-06-01~11:09:29.007\0"
                           "456",
                           27);
    Unit const unit("a", tav_istr(text));
    tavTime v;
    PmlInputStream(unit) >> v;
    EXPECT_EQ(expected, v);
    std::string const cut("2022-06-01\0~11:09:29.007", 24);
    Unit const day("a", tav_istr(cut));
    PmlInputStream(day) >> v;
    EXPECT_EQ(tavTime::from("2022-06-01"), v);
    EXPECT_NE(tavTime::from(tav_istr(cut)), v);
    EXPECT_EQ(tavTime::from(""), read("", tavTime::milliseconds(7)));
    EXPECT_EQ(-1000, read("", tavTime::milliseconds(7)).milliseconds());
}

TEST(PmlOutputStream, Constructors) {
    PmlOutputStream const fresh;
    EXPECT_EQ("()", fresh.str(false, false));
    PmlOutputStream const named("a");
    EXPECT_EQ("a", named.name());
    Unit unit("b");
    PmlOutputStream const over(unit);
    EXPECT_EQ(&unit, &over.unit());
    EXPECT_EQ(0u, unit.getRefCount());
    tavSharedPtr<Unit> const shared(new Unit("c"));
    PmlOutputStream const sharing(shared);
    EXPECT_EQ(shared.get(), &sharing.unit());
    EXPECT_EQ(2u, shared->getRefCount());
    PmlOutputStream const copy(sharing);
    EXPECT_EQ(&sharing.unit(), &copy.unit());
    EXPECT_EQ("()", PmlOutputStream(tavSharedPtr<Unit>()).str(false, false));
}

TEST(PmlOutputStream, ACopyKeepsDumpingAndSharesTheUnit) {
    PmlOutputStream s("a");
    EXPECT_EQ(0, s.dumping());
    s.dumping(3);
    PmlOutputStream copy(s);
    EXPECT_EQ(3, copy.dumping());
    copy << 5;
    EXPECT_EQ("5", s.value());
    EXPECT_FALSE(s.decoding());
    EXPECT_EQ(&s, &s.me());
}

TEST(PmlOutputStream, AccessorsAreThoseOfTheUnit) {
    PmlOutputStream s("a");
    s.name() = "n";
    s.type() = "t";
    s.value() = "v";
    PmlOutputStream const & constant = s;
    EXPECT_EQ("n", constant.name());
    EXPECT_EQ("t", constant.type());
    EXPECT_EQ("v", constant.value());
    EXPECT_EQ("n:t(v)", s.str(false, false));
}

TEST(PmlOutputStream, ChildrenAreMade) {
    PmlOutputStream s("a");
    Unit & b = s.child("b");
    EXPECT_EQ(&b, &s["b"]);
    b.value("1");
    s.newChild().value("2");
    Unit & c = s.child("label", "c", 9);
    EXPECT_EQ("c", c.name());
    EXPECT_EQ("label", c.comment());
    EXPECT_EQ(9, c.id());
    EXPECT_EQ("d", s.child("d", "", 4).name());
    EXPECT_EQ("a(b(1)(2)c()d())", s.str(false, false));
}

TEST(PmlOutputStream, EnterSetsTypeAndNameOnlyOnce) {
    PmlOutputStream s;
    s.enter("", "base", "");
    EXPECT_EQ("()", s.str(false, false));
    s.enter("Type", "base", "name");
    EXPECT_EQ("name:Type()", s.str(false, false));
    s.enter("Other", "base", "other");
    s.leave();
    s.enterSuper();
    s.leaveSuper();
    EXPECT_EQ("name:Type()", s.str(false, false));
}

TEST(PmlOutputStream, EnterSetsTypeAndNameEachByItself) {
    PmlOutputStream named("n");
    named.enter("T", "base", "other");
    EXPECT_EQ("n:T()", named.str(false, false));
    PmlOutputStream typed;
    typed.type() = "T";
    typed.enter("Other", "base", "n");
    EXPECT_EQ("n:T()", typed.str(false, false));
    PmlOutputStream onlyName;
    onlyName.enter("", "base", "n");
    EXPECT_EQ("n()", onlyName.str(false, false));
    PmlOutputStream onlyType;
    onlyType.enter("T", "base", "");
    EXPECT_EQ(":T()", onlyType.str(false, false));
}

TEST(PmlOutputStream, IntegersAreDecimal) {
    EXPECT_EQ("65", written('A'));
    EXPECT_EQ("-1", written(static_cast<char>(-1)));
    EXPECT_EQ("255", written(static_cast<unsigned char>(255)));
    EXPECT_EQ("-32768", written(static_cast<short>(-32768)));
    EXPECT_EQ("65535", written(static_cast<unsigned short>(65535)));
    EXPECT_EQ("-2147483648", written(std::numeric_limits<int>::min()));
    EXPECT_EQ("4294967295", written(4294967295u));
    EXPECT_EQ("-9223372036854775808", written(std::numeric_limits<long>::min()));
    EXPECT_EQ("18446744073709551615", written(std::numeric_limits<unsigned long>::max()));
    EXPECT_EQ("-9223372036854775808", written(std::numeric_limits<long long>::min()));
    EXPECT_EQ("18446744073709551615", written(std::numeric_limits<unsigned long long>::max()));
}

TEST(PmlOutputStream, FloatingPointHasSixSignificantDigits) {
    EXPECT_EQ("0.1", written(0.1));
    EXPECT_EQ("0.1", written(0.1f));
    EXPECT_EQ("3.14159", written(3.14159265));
    EXPECT_EQ("1e+06", written(1000000.0));
    EXPECT_EQ("123457", written(123456.789));
    EXPECT_EQ("1e-05", written(0.00001));
    EXPECT_EQ("-0", written(-0.0));
    EXPECT_EQ("100", written(100.0f));
    EXPECT_EQ("3.40282e+38", written(std::numeric_limits<float>::max()));
    EXPECT_EQ("-inf", written(-std::numeric_limits<double>::infinity()));
    EXPECT_EQ("inf", written(std::numeric_limits<float>::infinity()));
    EXPECT_EQ("nan", written(std::numeric_limits<double>::quiet_NaN()));
}

TEST(PmlOutputStream, BoolIsAWord) {
    EXPECT_EQ("true", written(true));
    EXPECT_EQ("false", written(false));
}

TEST(PmlOutputStream, TextGoesAsItStands) {
    EXPECT_EQ("x(y", written("x(y"));
    char text[] = "xy";
    EXPECT_EQ("xy", written(text));
    EXPECT_EQ("xy", written(static_cast<char *>(text)));
    EXPECT_EQ("", written(static_cast<char const *>(nullptr)));
    EXPECT_EQ("x", written(tav_istr("xy", 1)));
    EXPECT_EQ("", written(tav_istr()));
    EXPECT_EQ("xy", written(tavString("xy")));
    EXPECT_EQ("xy", written(std::string("xy")));
    EXPECT_EQ("\xC3\xA4x", written(std::wstring(L"\u00E4x")));
    std::string const nul("x\0y", 3);
    EXPECT_EQ(nul, written(nul));
    EXPECT_EQ(nul, written(tavString(nul)));
    EXPECT_EQ(nul, written(tav_istr(nul)));
    EXPECT_EQ(nul, written(std::wstring(L"x\0y", 3)));
    EXPECT_EQ("x", written(nul.c_str()));
}

TEST(PmlOutputStream, BytesAreBase64AndTimesText) {
    EXPECT_EQ("SGVsbG8=", written(bytesOf("Hello")));
    EXPECT_EQ("", written(tavBytes()));
    EXPECT_EQ(std::string(132, 'A'),
              written(tavBytes(tav_istr(std::string(99, '\0'))))); // without line breaks
    tavTime const time = tavTime::from("2022-06-01~11:09:29.007");
    EXPECT_EQ(time.str(), written(time));
}

TEST(PmlOutputStream, EveryWriteIsAppended) {
    PmlOutputStream s("a");
    s << 1 << 5 << "x" << tavString("y") << std::string("z") << true << 1.5 << bytesOf("Hello") << 'A'
      << static_cast<unsigned char>(7) << std::wstring(L"w") << tav_istr("v") << tavBytes();
    EXPECT_EQ("15xyztrue1.5SGVsbG8=657wv", s.value());
    s << s.value();
    EXPECT_EQ(50u, s.value().size());
    s << tav_istr(s.value());
    EXPECT_EQ(100u, s.value().size());
}

TEST(PmlOutputStream, EncodeIsThatOfTheUnitWithTheUnitsThatFollow) {
    Unit unit;
    unit.decode("a:t(b()c(1))d(2)");
    PmlOutputStream const s(unit);
    for (int bits = 0; bits < 16; ++bits) {
        bool const formatted = (bits & 1) != 0;
        bool const skipEmpty = (bits & 2) != 0;
        bool const withType = (bits & 4) != 0;
        bool const withId = (bits & 8) != 0;
        EXPECT_EQ(unit.encode(formatted, skipEmpty, 2, withType, withId),
                  s.encode(formatted, skipEmpty, 2, withType, withId))
            << bits;
    }
}

TEST(PmlOutputStream, StrHasTypesUnlessItSkipsAndIdsIfItIsFormatted) {
    Unit unit;
    unit.decode("a:t(b()c(1))d(2)");
    PmlOutputStream const s(unit);
    EXPECT_EQ("a:t(b()c(1))d(2)", s.str(false, false));
    EXPECT_EQ("a(c(1))d(2)", s.str(false, true));
    EXPECT_EQ("\n    [0]a:t(\n        [0]b()\n        [0]c(1)\n    )\n    [0]d(2)", s.str(true, false));
    EXPECT_EQ("\n    [0]a(\n        [0]c(1)\n    )\n    [0]d(2)", s.str(true, true));
}
