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

TEST(PmlStreamsInputStream, DefaultOneActsAsOverTheNullUnit) {
    PmlInputStream const s;
    EXPECT_EQ(s.unitPtr(), nullptr);
    EXPECT_EQ(&Unit::null(), &s.unit());
    EXPECT_TRUE(s.isNull());
    EXPECT_TRUE(s.isEmpty());
    EXPECT_EQ(s.next(), nullptr);
    EXPECT_EQ(s.name(), "");
    EXPECT_EQ(s.type(), "");
    EXPECT_EQ(s.value(), "");
    EXPECT_EQ(s.str(), "");
    EXPECT_TRUE(s.begin() == s.end());
    int v = 7;
    s >> v;
    EXPECT_EQ(v, 7);
    EXPECT_TRUE(PmlInputStream(tavSharedPtr<Unit>()).isNull());
}

TEST(PmlStreamsInputStream, OverAUnitCountsNoReference) {
    Unit unit("a", "t", "v");
    PmlInputStream const s(unit);
    EXPECT_EQ(&unit, &s.unit());
    EXPECT_EQ(&unit, s.unitPtr().get());
    EXPECT_FALSE(s.unitPtr().counted());
    EXPECT_EQ(unit.getRefCount(), 0u);
    EXPECT_EQ(s.name(), "a");
    EXPECT_EQ(s.type(), "t");
    EXPECT_EQ(s.value(), "v");
    EXPECT_EQ(&s, &s.me());
}

TEST(PmlStreamsInputStream, OverASharedUnitCountsAReference) {
    tavSharedPtr<Unit> const unit(new Unit("a"));
    PmlInputStream const s(unit);
    EXPECT_EQ(unit->getRefCount(), 2u);
    PmlInputStream const copy(s);
    EXPECT_EQ(unit->getRefCount(), 3u);
    EXPECT_EQ(unit, copy.unitPtr());
}

TEST(PmlStreamsInputStream, OverATextDecodesIt) {
    PmlInputStream const s("a:t(b(1)c(2))d(3)");
    EXPECT_EQ(s.name(), "a");
    EXPECT_EQ(s.type(), "t");
    EXPECT_EQ(s["b"].value(), "1");
    ASSERT_NE(s.next(), nullptr);
    EXPECT_EQ(s.next()->name(), "d");
    EXPECT_EQ(PmlInputStream(s.next()).next(), nullptr);
}

TEST(PmlStreamsInputStream, OverATextThrowsWhatDecodingThrows) {
    try {
        PmlInputStream const s("abc");
        FAIL();
    } catch (std::invalid_argument const & e) {
        EXPECT_EQ(std::string(e.what()).find("empty after pml name\n    throw at "), 0u) << e.what();
    }
}

TEST(PmlStreamsInputStream, OverAnEmptyTextHasAnEmptyUnitThatIsNotNull) {
    PmlInputStream const s("");
    EXPECT_FALSE(s.isNull());
    EXPECT_TRUE(s.isEmpty());
}

TEST(PmlStreamsInputStream, IsEmptyWithoutChildrenAndValueOnly) {
    EXPECT_TRUE(PmlInputStream("a:t()").isEmpty());
    EXPECT_FALSE(PmlInputStream("a(1)").isEmpty());
    EXPECT_FALSE(PmlInputStream("a(b())").isEmpty());
}

TEST(PmlStreamsInputStream, ChildIsTheNullUnitIfAbsentAndNothingIsMade) {
    PmlInputStream const s("a(b(1)b(2)c(3))");
    EXPECT_EQ(s.child("b").value(), "1");
    EXPECT_TRUE(s.child("x").isNull());
    EXPECT_TRUE(s["x"].isNull());
    EXPECT_EQ(s.unit().size(), 3u);
}

TEST(PmlStreamsInputStream, AStreamWithoutAUnitHasNoChildren) {
    PmlInputStream const s;
    EXPECT_EQ(&Unit::null(), &s.child("x"));
    EXPECT_EQ(&Unit::null(), &s.child("x", "y"));
    EXPECT_EQ(&Unit::null(), &s["x"]);
}

TEST(PmlStreamsInputStream, ChildGoesByTheAlternativeNameIfThereIsOne) {
    PmlInputStream const s("a(b(1)c(3))");
    EXPECT_EQ(s.child("b", "").value(), "1");
    EXPECT_EQ(s.child("b", "c").value(), "3");
    EXPECT_TRUE(s.child("b", "x").isNull());
}

TEST(PmlStreamsInputStream, WalksTheChildrenInOrder) {
    PmlInputStream const s("a(c(1)b(2)(3))");
    std::string values;
    for (tavSharedPtr<Unit> const & child : s) {
        values += child->value();
    }
    EXPECT_EQ(values, "123");
}

TEST(PmlStreamsInputStream, StrIsOnOneLineWithoutTypesAndEmptyUnits) {
    EXPECT_EQ(PmlInputStream("a:t( b:int32(1) c() d(2) )").str(), "a(b(1)d(2))");
}

TEST(PmlStreamsInputStream, DecodesAndDoesNotDump) {
    PmlInputStream s("a(1)");
    s.enter("a", "b", "c");
    s.enterSuper();
    s.leaveSuper();
    s.leave();
    EXPECT_TRUE(s.decoding());
    EXPECT_EQ(s.dumping(), 0);
    EXPECT_EQ(s.str(), "a(1)");
    EXPECT_EQ(s.type(), "");
}

TEST(PmlStreamsInputStream, IntegersAreDecimalHexadecimalBinaryOrOctal) {
    EXPECT_EQ(read("0x10", 1), 16);
    EXPECT_EQ(read("0b101", 1), 5);
    EXPECT_EQ(read("010", 1), 8);
    EXPECT_EQ(read("08", 1), 8); // no octal number, but a decimal one
    EXPECT_EQ(read("0", 1), 0);
    EXPECT_EQ(read("-12", 1), -12);
    EXPECT_EQ(read("+12", 1), 12);
    EXPECT_EQ(read(" 12", 1), 12);
}

TEST(PmlStreamsInputStream, IntegersThatFailLeaveTheTarget) {
    for (char const * text : {"", "abc", "1x", "1.5", "0x", "0xg", "12 ", "0b2", "--1"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(read<short>(text, 7), 7);
        EXPECT_EQ(read<unsigned short>(text, 7), 7);
        EXPECT_EQ(read<int>(text, 7), 7);
        EXPECT_EQ(read<unsigned>(text, 7), 7u);
        EXPECT_EQ(read<long long>(text, 7), 7);
        EXPECT_EQ(read<unsigned long long>(text, 7), 7u);
    }
}

TEST(PmlStreamsInputStream, IntegersOutOfTheTargetsRangeLeaveIt) {
    EXPECT_EQ(read<short>("32767", 7), 32767);
    EXPECT_EQ(read<short>("32768", 7), 7);
    EXPECT_EQ(read<short>("-32768", 7), -32768);
    EXPECT_EQ(read<short>("-32769", 7), 7);
    EXPECT_EQ(read<unsigned short>("65535", 7), 65535);
    EXPECT_EQ(read<unsigned short>("65536", 7), 7);
    EXPECT_EQ(read<int>("2147483648", 7), 7);
    EXPECT_EQ(read<unsigned>("4294967296", 7), 7u);
    EXPECT_EQ(read<long long>("9223372036854775808", 7), 7);
    EXPECT_EQ(read<unsigned long long>("18446744073709551616", 7), 7u);
    EXPECT_EQ(std::numeric_limits<unsigned long long>::max(),
              read<unsigned long long>("18446744073709551615", 7));
}

TEST(PmlStreamsInputStream, FormsWithAPrefixMustFitTheBitsOfTheTarget) {
    EXPECT_EQ(read<long long>("0xFFFFFFFFFFFFFFFF", 7), -1);
    EXPECT_EQ(read<long long>("0x10000000000000000", 7), 7);
    EXPECT_EQ(read<short>("0xFFFF", 7), -1);
    EXPECT_EQ(read<short>("0x1FFFF", 7), 7);
    EXPECT_EQ(read<unsigned>("0x100000000", 7), 7u);
    EXPECT_EQ(read<unsigned short>("0b10000000000000000", 7), 7);
}

TEST(PmlStreamsInputStream, CharsAreNumbersOf16BitsCutToEight) {
    EXPECT_EQ(read<char>("65", 'x'), 65);
    EXPECT_EQ(read<unsigned char>("0x41", 'x'), 65);
    EXPECT_EQ(read<char>("-1", 'x'), -1);
    EXPECT_EQ(read<unsigned char>("-1", 'x'), 255);
    EXPECT_EQ(read<char>("300", 'x'), 44);
    EXPECT_EQ(read<unsigned char>("300", 'x'), 44);
    EXPECT_EQ(read<unsigned char>("65535", 'x'), 255);
    EXPECT_EQ(read<char>("32768", 'x'), 0);
    EXPECT_EQ(read<unsigned char>("65536", 'x'), 0);
    EXPECT_EQ(read<char>("abc", 'x'), 0);
    EXPECT_EQ(read<unsigned char>("", 'x'), 0);
    EXPECT_EQ(readNull<char>('x'), 'x');
    EXPECT_EQ(readNull<unsigned char>('x'), 'x');
}

TEST(PmlStreamsInputStream, LongsThatFailBecomeZeroAlsoFromTheNullUnit) {
    EXPECT_EQ(read<long>("0x10", 7), 16);
    EXPECT_EQ(read<unsigned long>("0x10", 7), 16u);
    EXPECT_EQ(read<long>("abc", 7), 0);
    EXPECT_EQ(read<unsigned long>("abc", 7), 0u);
    EXPECT_EQ(read<long>("9223372036854775808", 7), 0);
    EXPECT_EQ(readNull<long>(7), 0);
    EXPECT_EQ(readNull<unsigned long>(7), 0u);
}

TEST(PmlStreamsInputStream, TheNullUnitTouchesNothingElse) {
    EXPECT_EQ(readNull<short>(7), 7);
    EXPECT_EQ(readNull<unsigned short>(7), 7);
    EXPECT_EQ(readNull<int>(7), 7);
    EXPECT_EQ(readNull<unsigned>(7), 7u);
    EXPECT_EQ(readNull<long long>(7), 7);
    EXPECT_EQ(readNull<unsigned long long>(7), 7u);
    EXPECT_EQ(readNull<float>(7.5f), 7.5f);
    EXPECT_EQ(readNull<double>(7.5), 7.5);
    EXPECT_TRUE(readNull<bool>(true));
    EXPECT_EQ(readNull<tavString>("x"), "x");
    EXPECT_EQ(readNull<std::string>("x"), "x");
    EXPECT_EQ(readNull<std::wstring>(L"x"), L"x");
    EXPECT_EQ(readNull(bytesOf("x")), "x");
    EXPECT_EQ(tavTime::milliseconds(7), readNull(tavTime::milliseconds(7)));
}

TEST(PmlStreamsInputStream, FloatingPointIsDecimalAndUsesUpTheText) {
    EXPECT_EQ(read<double>("1.5", 7), 1.5);
    EXPECT_EQ(read<double>("-2.5e2", 7), -250.0);
    EXPECT_EQ(read<float>("1.5", 7), 1.5f);
    EXPECT_EQ(read<double>("010", 7), 10.0);
    EXPECT_EQ(read<double>(" +1.5", 7), 1.5);
    EXPECT_EQ(read<float>(".5", 7), 0.5f);
    EXPECT_EQ(read<double>("1e-999", 7), 0.0);
    for (char const * text : {"", "abc", "1.5x", "0x10", "1e999", "inf", "nan", "1.5 ", "1e", "true"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(read<double>(text, 7), 7.0);
        EXPECT_EQ(read<float>(text, 7), 7.0f);
    }
    EXPECT_EQ(read<float>("1e99", 7), 7.0f);
}

TEST(PmlStreamsInputStream, BoolIsOneOfFourTexts) {
    EXPECT_TRUE(read("true", false));
    EXPECT_TRUE(read("1", false));
    EXPECT_FALSE(read("false", true));
    EXPECT_FALSE(read("0", true));
    for (char const * text : {"TRUE", "True", "yes", "2", "", " true", "FALSE", "00"}) {
        EXPECT_TRUE(read(text, true)) << text;
        EXPECT_FALSE(read(text, false)) << text;
    }
}

TEST(PmlStreamsInputStream, TextIsTheValue) {
    EXPECT_EQ(read<tavString>("x y", "b"), "x y");
    EXPECT_EQ(read<std::string>("x y", "b"), "x y");
    EXPECT_EQ(read<tavString>("", "b"), "");
    EXPECT_EQ(read<std::string>("", "b"), "");
    EXPECT_EQ(read<std::wstring>("\xC3\xA4x", L"b"), L"\u00E4x");
    EXPECT_EQ(read<std::wstring>("", L"b"), L"");
}

TEST(PmlStreamsInputStream, TextKeepsItsNulBytesAndMostElseFailsOnThem) {
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
    EXPECT_EQ(wide, L"1"); // as tavString decodes it
    int number = 7;
    double floating = 7;
    bool truth = false;
    s >> number >> floating >> truth;
    EXPECT_EQ(number, 7);
    EXPECT_EQ(floating, 7.0);
    EXPECT_FALSE(truth);
}

TEST(PmlStreamsInputStream, NoTextMakesAConversionRaise) {
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

TEST(PmlStreamsInputStream, BytesAreBase64) {
    EXPECT_EQ(read("SGVsbG8=", bytesOf("before")), "Hello");
    EXPECT_EQ(read("", bytesOf("before")), "");
}

TEST(PmlStreamsInputStream, TimeEndsAtTheFirstNul) {
    tavTime const expected = tavTime::from("2022-06-01~11:09:29.007");
    EXPECT_EQ(read("2022-06-01~11:09:29.007", tavTime::milliseconds(7)), expected);
    std::string const text("2022-06-01~11:09:29.007\0"
                           "456",
                           27);
    Unit const unit("a", tav_istr(text));
    tavTime v;
    PmlInputStream(unit) >> v;
    EXPECT_EQ(v, expected);
    std::string const cut("2022-06-01\0~11:09:29.007", 24);
    Unit const day("a", tav_istr(cut));
    PmlInputStream(day) >> v;
    EXPECT_EQ(tavTime::from("2022-06-01"), v);
    EXPECT_NE(tavTime::from(tav_istr(cut)), v);
    EXPECT_EQ(tavTime::from(""), read("", tavTime::milliseconds(7)));
    EXPECT_EQ(read("", tavTime::milliseconds(7)).milliseconds(), -1000);
}

TEST(PmlStreamsOutputStream, Constructors) {
    PmlOutputStream const fresh;
    EXPECT_EQ(fresh.str(false, false), "()");
    PmlOutputStream const named("a");
    EXPECT_EQ(named.name(), "a");
    Unit unit("b");
    PmlOutputStream const over(unit);
    EXPECT_EQ(&unit, &over.unit());
    EXPECT_EQ(unit.getRefCount(), 0u);
    tavSharedPtr<Unit> const shared(new Unit("c"));
    PmlOutputStream const sharing(shared);
    EXPECT_EQ(shared.get(), &sharing.unit());
    EXPECT_EQ(shared->getRefCount(), 2u);
    PmlOutputStream const copy(sharing);
    EXPECT_EQ(&sharing.unit(), &copy.unit());
    EXPECT_EQ(PmlOutputStream(tavSharedPtr<Unit>()).str(false, false), "()");
}

TEST(PmlStreamsOutputStream, ACopyKeepsDumpingAndSharesTheUnit) {
    PmlOutputStream s("a");
    EXPECT_EQ(s.dumping(), 0);
    s.dumping(3);
    PmlOutputStream copy(s);
    EXPECT_EQ(copy.dumping(), 3);
    copy << 5;
    EXPECT_EQ(s.value(), "5");
    EXPECT_FALSE(s.decoding());
    EXPECT_EQ(&s, &s.me());
}

TEST(PmlStreamsOutputStream, AccessorsAreThoseOfTheUnit) {
    PmlOutputStream s("a");
    s.name() = "n";
    s.type() = "t";
    s.value() = "v";
    PmlOutputStream const & constant = s;
    EXPECT_EQ(constant.name(), "n");
    EXPECT_EQ(constant.type(), "t");
    EXPECT_EQ(constant.value(), "v");
    EXPECT_EQ(s.str(false, false), "n:t(v)");
}

TEST(PmlStreamsOutputStream, ChildrenAreMade) {
    PmlOutputStream s("a");
    Unit & b = s.child("b");
    EXPECT_EQ(&b, &s["b"]);
    b.value("1");
    s.newChild().value("2");
    Unit & c = s.child("label", "c", 9);
    EXPECT_EQ(c.name(), "c");
    EXPECT_EQ(c.comment(), "label");
    EXPECT_EQ(c.id(), 9);
    EXPECT_EQ(s.child("d", "", 4).name(), "d");
    EXPECT_EQ(s.str(false, false), "a(b(1)(2)c()d())");
}

TEST(PmlStreamsOutputStream, EnterSetsTypeAndNameOnlyOnce) {
    PmlOutputStream s;
    s.enter("", "base", "");
    EXPECT_EQ(s.str(false, false), "()");
    s.enter("Type", "base", "name");
    EXPECT_EQ(s.str(false, false), "name:Type()");
    s.enter("Other", "base", "other");
    s.leave();
    s.enterSuper();
    s.leaveSuper();
    EXPECT_EQ(s.str(false, false), "name:Type()");
}

TEST(PmlStreamsOutputStream, EnterSetsTypeAndNameEachByItself) {
    PmlOutputStream named("n");
    named.enter("T", "base", "other");
    EXPECT_EQ(named.str(false, false), "n:T()");
    PmlOutputStream typed;
    typed.type() = "T";
    typed.enter("Other", "base", "n");
    EXPECT_EQ(typed.str(false, false), "n:T()");
    PmlOutputStream onlyName;
    onlyName.enter("", "base", "n");
    EXPECT_EQ(onlyName.str(false, false), "n()");
    PmlOutputStream onlyType;
    onlyType.enter("T", "base", "");
    EXPECT_EQ(onlyType.str(false, false), ":T()");
}

TEST(PmlStreamsOutputStream, IntegersAreDecimal) {
    EXPECT_EQ(written('A'), "65");
    EXPECT_EQ(written(static_cast<char>(-1)), "-1");
    EXPECT_EQ(written(static_cast<unsigned char>(255)), "255");
    EXPECT_EQ(written(static_cast<short>(-32768)), "-32768");
    EXPECT_EQ(written(static_cast<unsigned short>(65535)), "65535");
    EXPECT_EQ(written(std::numeric_limits<int>::min()), "-2147483648");
    EXPECT_EQ(written(4294967295u), "4294967295");
    EXPECT_EQ(written(std::numeric_limits<long>::min()), "-9223372036854775808");
    EXPECT_EQ(written(std::numeric_limits<unsigned long>::max()), "18446744073709551615");
    EXPECT_EQ(written(std::numeric_limits<long long>::min()), "-9223372036854775808");
    EXPECT_EQ(written(std::numeric_limits<unsigned long long>::max()), "18446744073709551615");
}

TEST(PmlStreamsOutputStream, FloatingPointHasSixSignificantDigits) {
    EXPECT_EQ(written(0.1), "0.1");
    EXPECT_EQ(written(0.1f), "0.1");
    EXPECT_EQ(written(3.14159265), "3.14159");
    EXPECT_EQ(written(1000000.0), "1e+06");
    EXPECT_EQ(written(123456.789), "123457");
    EXPECT_EQ(written(0.00001), "1e-05");
    EXPECT_EQ(written(-0.0), "-0");
    EXPECT_EQ(written(100.0f), "100");
    EXPECT_EQ(written(std::numeric_limits<float>::max()), "3.40282e+38");
    EXPECT_EQ(written(-std::numeric_limits<double>::infinity()), "-inf");
    EXPECT_EQ(written(std::numeric_limits<float>::infinity()), "inf");
    EXPECT_EQ(written(std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(PmlStreamsOutputStream, BoolIsAWord) {
    EXPECT_EQ(written(true), "true");
    EXPECT_EQ(written(false), "false");
}

TEST(PmlStreamsOutputStream, TextGoesAsItStands) {
    EXPECT_EQ(written("x(y"), "x(y");
    char text[] = "xy";
    EXPECT_EQ(written(text), "xy");
    EXPECT_EQ(written(static_cast<char *>(text)), "xy");
    EXPECT_EQ(written(static_cast<char const *>(nullptr)), "");
    EXPECT_EQ(written(tav_istr("xy", 1)), "x");
    EXPECT_EQ(written(tav_istr()), "");
    EXPECT_EQ(written(tavString("xy")), "xy");
    EXPECT_EQ(written(std::string("xy")), "xy");
    EXPECT_EQ(written(std::wstring(L"\u00E4x")), "\xC3\xA4x");
    std::string const nul("x\0y", 3);
    EXPECT_EQ(nul, written(nul));
    EXPECT_EQ(nul, written(tavString(nul)));
    EXPECT_EQ(nul, written(tav_istr(nul)));
    EXPECT_EQ(nul, written(std::wstring(L"x\0y", 3)));
    EXPECT_EQ(written(nul.c_str()), "x");
}

TEST(PmlStreamsOutputStream, BytesAreBase64AndTimesText) {
    EXPECT_EQ(written(bytesOf("Hello")), "SGVsbG8=");
    EXPECT_EQ(written(tavBytes()), "");
    EXPECT_EQ(std::string(132, 'A'),
              written(tavBytes(tav_istr(std::string(99, '\0'))))); // without line breaks
    tavTime const time = tavTime::from("2022-06-01~11:09:29.007");
    EXPECT_EQ(time.str(), written(time));
}

TEST(PmlStreamsOutputStream, EveryWriteIsAppended) {
    PmlOutputStream s("a");
    s << 1 << 5 << "x" << tavString("y") << std::string("z") << true << 1.5 << bytesOf("Hello") << 'A'
      << static_cast<unsigned char>(7) << std::wstring(L"w") << tav_istr("v") << tavBytes();
    EXPECT_EQ(s.value(), "15xyztrue1.5SGVsbG8=657wv");
    s << s.value();
    EXPECT_EQ(s.value().size(), 50u);
    s << tav_istr(s.value());
    EXPECT_EQ(s.value().size(), 100u);
}

TEST(PmlStreamsOutputStream, EncodeIsThatOfTheUnitWithTheUnitsThatFollow) {
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

TEST(PmlStreamsOutputStream, StrHasTypesUnlessItSkipsAndIdsIfItIsFormatted) {
    Unit unit;
    unit.decode("a:t(b()c(1))d(2)");
    PmlOutputStream const s(unit);
    EXPECT_EQ(s.str(false, false), "a:t(b()c(1))d(2)");
    EXPECT_EQ(s.str(false, true), "a(c(1))d(2)");
    EXPECT_EQ(s.str(true, false), "\n    [0]a:t(\n        [0]b()\n        [0]c(1)\n    )\n    [0]d(2)");
    EXPECT_EQ(s.str(true, true), "\n    [0]a(\n        [0]c(1)\n    )\n    [0]d(2)");
}
