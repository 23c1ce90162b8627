#include "tav/vinta/vinta_nbr_unit.h"

#include "support/nbr_bytes.h"
#include "tav/vinta/vinta_object.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

using tav::nbr::NbrInputStream;
using tav::nbr::NbrOutputStream;
using tav_test::bytes;
using tav_test::hex;

namespace {

template <class T>
std::string written(T const & v) {
    NbrOutputStream s;
    EXPECT_EQ(&s, &(s << v));
    return hex(s.str());
}

template <class T>
T reread(T v, T other) {
    NbrOutputStream s;
    s << v;
    EXPECT_TRUE(NbrInputStream(s.str()) >> other);
    return other;
}

template <class T>
T readAs(char const * document, T before) {
    NbrInputStream(bytes(document)) >> before;
    return before;
}

class Sample : public tavObject {
public:
    int number = 0;
    tavString text;
    std::vector<unsigned short> list;
    bool withList = true;

    tav_istr className() const override { return "Sample"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Sample; }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "number", number);
        ioField(s, 2, "text", text);
        ioField(s, 3, "list", list);
    }
};

class Mapped : public tavObject {
public:
    std::map<tavString, int> entries;

    tav_istr className() const override { return "Mapped"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Mapped; }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override { ioField(s, 4, "entries", entries); }
};

class Outer : public tavObject {
public:
    Sample inner;
    int after = 0;

    tav_istr className() const override { return "Outer"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Outer; }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "inner", inner);
        ioField(s, 9, "after", after);
    }
};

class NoFields : public tavObject {
public:
    tav_istr className() const override { return "NoFields"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new NoFields; }
    void assignFrom(tavObject const &) override {}
};

} // namespace

TEST(NbrWire, Int) {
    EXPECT_EQ(written(0), "01 01 00");
    EXPECT_EQ(written(127), "01 01 7F");
    EXPECT_EQ(written(128), "01 02 80 00");
    EXPECT_EQ(written(255), "01 02 FF 00");
    EXPECT_EQ(written(300), "01 02 2C 01");
    EXPECT_EQ(written(32768), "01 03 00 80 00");
    EXPECT_EQ(written(8388608), "01 04 00 00 80 00");
    EXPECT_EQ(written(-1), "01 04 FF FF FF FF");
    EXPECT_EQ(written(-2), "01 04 FE FF FF FF");
    EXPECT_EQ(written(std::numeric_limits<int>::max()), "01 04 FF FF FF 7F");
    EXPECT_EQ(written(std::numeric_limits<int>::min()), "01 04 00 00 00 80");
}

TEST(NbrWire, UnsignedInt) {
    EXPECT_EQ(written(4294967295u), "01 04 FF FF FF FF");
    EXPECT_EQ(written(2147483648u), "01 04 00 00 00 80");
}

TEST(NbrWire, Short) {
    EXPECT_EQ(written(static_cast<short>(128)), "01 02 80 00");
    EXPECT_EQ(written(static_cast<short>(-1)), "01 02 FF FF");
    EXPECT_EQ(written(static_cast<unsigned short>(32768)), "01 02 00 80");
}

TEST(NbrWire, CharTakesUpToTwoBytes) {
    EXPECT_EQ(written(static_cast<char>(5)), "01 01 05");
    EXPECT_EQ(written(static_cast<char>(-1)), "01 02 FF FF");
    EXPECT_EQ(written(static_cast<char>(-128)), "01 02 80 FF");
}

TEST(NbrWire, UnsignedCharAndBoolAreTheByteItself) {
    EXPECT_EQ(written(static_cast<unsigned char>(200)), "01 01 C8");
    EXPECT_EQ(written(true), "01 01 01");
    EXPECT_EQ(written(false), "01 01 00");
}

TEST(NbrWire, LongLong) {
    EXPECT_EQ(written(-1LL), "01 08 FF FF FF FF FF FF FF FF");
    EXPECT_EQ(written(4294967296LL), "01 05 00 00 00 00 01");
    EXPECT_EQ(written(std::numeric_limits<unsigned long long>::max()), "01 08 FF FF FF FF FF FF FF FF");
}

TEST(NbrWire, LongGoesAs64Bits) {
    EXPECT_EQ(written(-2L), "01 08 FE FF FF FF FF FF FF FF");
    EXPECT_EQ(written(4294967296ul), "01 05 00 00 00 00 01");
    EXPECT_EQ(written(static_cast<std::int64_t>(7)), "01 01 07");
    EXPECT_EQ(written(static_cast<std::uint64_t>(128)), "01 02 80 00");
    EXPECT_EQ(written(std::size_t{7}), "01 01 07");
}

TEST(NbrWire, Floats) {
    EXPECT_EQ(written(1.0f), "01 04 00 00 80 3F");
    EXPECT_EQ(written(-0.0f), "01 04 00 00 00 80");
    EXPECT_EQ(written(0.0f), "01 01 00");
    EXPECT_EQ(written(1.5), "01 08 00 00 00 00 00 00 F8 3F");
    EXPECT_EQ(written(0.0), "01 01 00");
    EXPECT_EQ(written(-1.0f), "01 04 00 00 80 BF");
    EXPECT_EQ(written(-0.0), "01 08 00 00 00 00 00 00 00 80");
}

TEST(NbrWire, Time) {
    EXPECT_EQ(written(tavTime()), "01 01 00");
    EXPECT_EQ(written(tavTime::milliseconds(0x0180075BCD15LL)), "01 06 15 CD 5B 07 80 01");
    EXPECT_EQ(written(tavTime::milliseconds(-1)), "01 08 FF FF FF FF FF FF FF FF");
}

TEST(NbrWire, Text) {
    EXPECT_EQ(written("hi"), "F1 02 68 69");
    EXPECT_EQ(written(std::string("hi")), "F1 02 68 69");
    EXPECT_EQ(written(tavString("hi")), "F1 02 68 69");
    EXPECT_EQ(written(tav_istr("hi")), "F1 02 68 69");
    EXPECT_EQ(written(""), "F1 00");
    EXPECT_EQ(written(static_cast<char const *>(nullptr)), "F1 00");
    EXPECT_EQ(written(tav_istr()), "F1 00");
    EXPECT_EQ(written(tav_istr(static_cast<char const *>(nullptr), 7u)), "F1 00");
    EXPECT_EQ(written(tavString()), "F1 00");
    EXPECT_EQ(written(std::string("a\0b", 3)), "F1 03 61 00 62");
}

TEST(NbrWire, SizesFrom128To255TakeTwoSizeBytes) {
    EXPECT_EQ(written(std::string(127, 'x')).substr(0, 5), "F1 7F");
    EXPECT_EQ(written(std::string(128, 'x')).substr(0, 11), "F2 80 00 78");
    EXPECT_EQ(written(std::string(200, 'x')).substr(0, 11), "F2 C8 00 78");
    EXPECT_EQ(written(std::string(255, 'x')).substr(0, 11), "F2 FF 00 78");
    EXPECT_EQ(written(std::string(256, 'x')).substr(0, 11), "F2 00 01 78");
    NbrOutputStream s;
    s << std::string(200, 'x');
    EXPECT_EQ(s.size(), 203u);
    EXPECT_EQ(std::string(200, 'x'), std::string(s.str().removeLeft(3)));
}

TEST(NbrWire, Binary) {
    EXPECT_EQ(written(tavBytes(tav_istr(bytes("AA BB CC")))), "01 03 AA BB CC");
    EXPECT_EQ(written(tavBytes()), "01 00");
    EXPECT_EQ(written(tavBytes(tav_istr(std::string(70000, '\0')))).substr(0, 11), "03 70 11 01");
    EXPECT_EQ(written(tavBytes(tav_istr(std::string(65535, '\0')))).substr(0, 11), "03 FF FF 00");
    EXPECT_EQ(written(tavBytes(tav_istr(std::string(0x800000, '\0')))).substr(0, 14), "04 00 00 80 00");
    NbrOutputStream s;
    s << tavBytes(tav_istr(std::string(70000, '\x07')));
    EXPECT_EQ(s.size(), 70004u);
    EXPECT_EQ(std::string(70000, '\x07'), std::string(s.str().removeLeft(4)));
}

TEST(NbrWire, NullAndEmpty) {
    NbrOutputStream s;
    s.writeNull();
    EXPECT_EQ(hex(s.str()), "00");
    s.writeEmpty();
    EXPECT_EQ(hex(s.str()), "00 01 00");
}

TEST(NbrWire, WholeObject) {
    Sample v;
    v.number = 5;
    v.text = "ab";
    v.list = {7, 300};
    EXPECT_EQ(hex(v.encode(false)),
              "FF 01 28 01 01 01 05 02 F1 02 61 62 03 FF 01 28 00 01 01 07 00 01 02 2C 01 FF 01 29 FF 01 29");
    v.list.clear();
    EXPECT_EQ(hex(v.encode(false)), "FF 01 28 01 01 01 05 02 F1 02 61 62 03 FF 01 28 FF 01 29 FF 01 29");
}

TEST(NbrWire, Map) {
    Mapped v;
    v.entries["k"] = 9;
    EXPECT_EQ(hex(v.encode(false)),
              "FF 01 28 04 FF 01 28 00 FF 01 28 01 F1 01 6B 02 01 01 09 FF 01 29 FF 01 29 FF 01 29");
}

TEST(NbrWire, EmptyMapIsTheTwoMarkers) {
    EXPECT_EQ(hex(Mapped().encode(false)), "FF 01 28 04 FF 01 28 FF 01 29 FF 01 29");
}

TEST(NbrWire, NestedObject) {
    Outer v;
    v.inner.number = 1;
    v.after = 2;
    EXPECT_EQ(hex(v.encode(false)),
              "FF 01 28 01 FF 01 28 01 01 01 01 02 F1 00 03 FF 01 28 FF 01 29 FF 01 29 09 01 01 02 FF 01 29");
}

TEST(NbrWire, NoFieldsAreTheTwoMarkers) {
    EXPECT_EQ(hex(NoFields().encode(false)), "FF 01 28 FF 01 29");
}

TEST(NbrWire, EncodeTwiceGivesTheSameAndLeavesTheFirstResult) {
    Sample v;
    v.number = 5;
    tavBytes const first = v.encode(false);
    std::string const before = hex(first);
    v.number = 6;
    v.text = std::string(100000, 'x');
    tavBytes const second = v.encode(false);
    EXPECT_EQ(before, hex(first));
    EXPECT_NE(before, hex(second));
    v.number = 5;
    v.text = "";
    EXPECT_EQ(before, hex(v.encode(false)));
}

TEST(NbrWire, ValuesComeBack) {
    EXPECT_EQ(reread<char>(-1, 0), -1);
    EXPECT_EQ(reread<unsigned char>(200, 0), 200);
    EXPECT_TRUE(reread<bool>(true, false));
    EXPECT_FALSE(reread<bool>(false, true));
    EXPECT_EQ(reread<short>(-300, 0), -300);
    EXPECT_EQ(reread<unsigned short>(65535, 0), 65535);
    EXPECT_EQ(std::numeric_limits<int>::min(), reread(std::numeric_limits<int>::min(), 0));
    EXPECT_EQ(reread(4294967295u, 0u), 4294967295u);
    EXPECT_EQ(reread(-5L, 0L), -5L);
    EXPECT_EQ(~0ul, reread(~0ul, 0ul));
    EXPECT_EQ(std::numeric_limits<long long>::min(), reread(std::numeric_limits<long long>::min(), 0LL));
    EXPECT_EQ(~0ull, reread(~0ull, 0ull));
    EXPECT_EQ(reread(-1.25f, 0.0f), -1.25f);
    EXPECT_EQ(reread(1e300, 0.0), 1e300);
    EXPECT_EQ(tavTime::milliseconds(-7), reread(tavTime::milliseconds(-7), tavTime()));
    EXPECT_EQ(reread(tavString("text"), tavString()), "text");
    EXPECT_EQ(tavBytes(tav_istr("raw")), reread(tavBytes(tav_istr("raw")), tavBytes()));
}

TEST(NbrWire, NoSignIsExtendedInAWiderType) {
    EXPECT_EQ(readAs<char>("01 02 FF FF", 0), -1);
    EXPECT_EQ(readAs<short>("01 02 FF FF", 0), -1);
    EXPECT_EQ(readAs<int>("01 02 FF FF", 0), 65535);
    EXPECT_EQ(readAs<short>("01 01 FF", 0), 255);
    EXPECT_EQ(readAs<long long>("01 04 FF FF FF FF", 0), 4294967295LL);
    EXPECT_EQ(readAs<int>("01 08 FB FF FF FF FF FF FF FF", 0), -5);
}

TEST(NbrWire, BoolTakesOneByte) {
    EXPECT_FALSE(readAs<bool>("01 02 00 01", true));
    EXPECT_TRUE(readAs<bool>("01 01 80", false));
}

TEST(NbrWire, TextReadAsNumberGivesItsFirstBytes) {
    EXPECT_EQ(readAs<int>("F1 05 61 62 63 64 65", 0), 0x64636261);
    EXPECT_EQ(readAs<short>("F1 05 61 62 63 64 65", 0), 0x6261);
    EXPECT_EQ(std::string(tav_istr(readAs<tavString>("01 01 05", tavString()))), "\x05");
}

TEST(NbrWire, ValueWithoutDataChangesNothing) {
    for (char const * document : {"01 00", "F1 00"}) {
        EXPECT_EQ(readAs<int>(document, 7), 7) << document;
        EXPECT_EQ(readAs<long>(document, 7), 7L) << document;
        EXPECT_EQ(readAs<tavString>(document, "old"), "old") << document;
        EXPECT_EQ(tavBytes(tav_istr("old")), readAs<tavBytes>(document, tav_istr("old"))) << document;
        EXPECT_TRUE(readAs<bool>(document, true)) << document;
        EXPECT_EQ(readAs<double>(document, 1.5), 1.5) << document;
        EXPECT_EQ(tavTime::milliseconds(3), readAs<tavTime>(document, tavTime::milliseconds(3))) << document;
    }
}
