#include "tav/vinta/vinta_object.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

/// A class whose name and fields a test decides.
class Shaped : public tavObject {
public:
    explicit Shaped(tav_istr name = "Foo") : name_(name) {}

    tav_istr className() const override { return name_; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return nullptr; }
    void assignFrom(tavObject const &) override {}

private:
    tav_istr name_;
};

class Foo : public Shaped {
public:
    int a = 5;
    tavString b = "x";

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "a", a);
        ioField(s, 2, "b", b);
    }
};

class Holder : public Shaped {
public:
    Holder() : Shaped("Holder") {}

    Foo foo;
    tavOptional<int> unset;

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "foo", foo);
        ioField(s, 2, "unset", unset);
    }
};

class Lists : public Shaped {
public:
    Lists() : Shaped("Lists") {}

    std::vector<int> numbers{1, 2};
    std::map<tavString, int> map{{tavString("k"), 9}};
    std::vector<tavString> secrets{tavString("hello world")};

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "numbers", numbers);
        ioField(s, 2, "map", map);
        ioField(s, 3, "secrets", secrets, tavCodecMeta(26, true, "...***...", false));
    }
};

class Login : public Shaped {
public:
    Login() : Shaped("Login") {}

    tavString user = "ann";
    tavString password = "hello world";
    tavBytes token{tav_istr("abcdefgh")};
    std::string pin = "1234";

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "user", user);
        ioField(s, 2, "password", password, tavCodecMeta(13, true, "...***...", false));
        ioField(s, 3, "token", token, tavCodecMeta(16, true, nullptr, false));
        ioField(s, 4, "pin", pin, tavCodecMeta(13, true, ".*", false));
    }
};

class Hidden : public Shaped {
public:
    int a = 0;

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "a", a, tavCodecMeta(3, false, nullptr, true));
    }
};

template <class T>
std::string written(T const & v, tavCodecMeta const & meta = tavCodecMeta()) {
    std::ostringstream out;
    tavDumper s(out, true, 0, false);
    s.write(v, meta);
    return out.str();
}

template <class T>
std::string passed(T v) {
    std::ostringstream out;
    tavDumper s(out, true, 0, false);
    s.io(v, tavCodecMeta());
    return out.str();
}

std::string masked(char const * value, char const * mask) {
    return std::string(tav_istr(tavDumper::protectedValue(value, tavCodecMeta(-1, true, mask, false))));
}

} // namespace

TEST(TavDumper, AnswersItsFlags) {
    std::ostringstream out;
    tavDumper s(out, true, 0, true);
    EXPECT_TRUE(s.hideEmpty());
    EXPECT_FALSE(tavDumper(out, true, 0, false).hideEmpty());
    EXPECT_FALSE(s.isNull());
    EXPECT_TRUE(s.isOutputStream());
    EXPECT_TRUE(s.isMapEntryCombined());
    std::vector<tavSharedPtr<tavCodecStream>> children;
    s.getInputChildren(children);
    EXPECT_TRUE(children.empty());
    std::map<tavString, tavSharedPtr<tavCodecStream>> map;
    s.getInputChildMap(map);
    EXPECT_TRUE(map.empty());
    s.writeNull();
    s.makeArrayValue();
    s.makeObjectValue();
    s.on_each_field_meta(1, "a", {}, tavCodecMeta());
    EXPECT_EQ(out.str(), "");
}

TEST(TavDumper, PartsOfALine) {
    std::ostringstream out;
    tavDumper s(out, false, 2, false);
    s.indent();
    s.id(-7);
    s.name("nm");
    s.name(tav_istr());
    s.sep('=');
    EXPECT_EQ(out.str(), "\n        [-7]nm=");
}

TEST(TavDumper, NegativeLevelIndentsByNothing) {
    std::ostringstream out;
    tavDumper(out, false, -1, false).indent();
    EXPECT_EQ(out.str(), "\n");
}

TEST(TavDumper, ObjectOnOneLine) {
    EXPECT_EQ(Foo().dump(true, 0), "@Foo{ [1]a=5 [2]b='x' }");
}

TEST(TavDumper, ObjectOnLinesOfItsOwn) {
    EXPECT_EQ(Foo().dump(false, 0), "@Foo{\n    [1]a=5\n    [2]b='x'\n}");
    EXPECT_EQ(Foo().dump(false, 1), "@Foo{\n        [1]a=5\n        [2]b='x'\n    }");
}

TEST(TavDumper, ObjectWithoutFields) {
    EXPECT_EQ(Shaped().dump(true, 0), "@Foo{ }");
    EXPECT_EQ(Shaped().dump(false, 0), "@Foo{\n}");
}

TEST(TavDumper, EmptyClassNamePrintsNoSign) {
    EXPECT_EQ(Shaped(tav_istr()).dump(true, 0), "{ }");
}

TEST(TavDumper, NestedObjectStartsAtItsFieldAndIndentsDeeper) {
    EXPECT_EQ(Holder().dump(true, 0), "@Holder{ [1]foo=@Foo{ [1]a=5 [2]b='x' } [2]unset= }");
    EXPECT_EQ(Holder().dump(false, 0), "@Holder{\n"
                                       "    [1]foo=@Foo{\n"
                                       "        [1]a=5\n"
                                       "        [2]b='x'\n"
                                       "    }\n"
                                       "    [2]unset=\n"
                                       "}");
}

TEST(TavDumper, ListsAndMapsAreNodesWithoutAName) {
    EXPECT_EQ(Lists().dump(true, 0),
              "@Lists{ [1]numbers={ 1 2 } [2]map={ [0]k=9 } [3]secrets={ hel***rld[11] } }");
    EXPECT_EQ(Lists().dump(false, 0), "@Lists{\n"
                                      "    [1]numbers={\n"
                                      "        1\n"
                                      "        2\n"
                                      "    }\n"
                                      "    [2]map={\n"
                                      "        [0]k=9\n"
                                      "    }\n"
                                      "    [3]secrets={\n"
                                      "        hel***rld[11]\n"
                                      "    }\n"
                                      "}");
}

TEST(TavDumper, ProtectedFieldsAreMasked) {
    EXPECT_EQ(Login().dump(true, 0),
              "@Login{ [1]user='ann' [2]password=hel***rld[11] [3]token=***[8] [4]pin=1*[4] }");
}

TEST(TavDumper, PrintingAnObjectIsItsDumpOnOneLine) {
    std::ostringstream out;
    out << std::hex << Foo() << Holder();
    EXPECT_EQ(out.str(), "@Foo{ [1]a=5 [2]b='x' }@Holder{ [1]foo=@Foo{ [1]a=5 [2]b='x' } [2]unset= }");
}

TEST(TavDumper, HidingLeavesOptionalEmptyFieldsOut) {
    std::ostringstream out;
    tavDumper s(out, true, 0, true);
    Hidden object;
    object.io(s);
    EXPECT_EQ(out.str(), "@Foo{ }");
    EXPECT_EQ(object.dump(true, 0), "@Foo{ [1]a=0 }");
    std::ostringstream printed;
    printed << object;
    EXPECT_EQ(printed.str(), "@Foo{ [1]a=0 }");
}

TEST(TavDumper, ChildHidesAsItsParentDoes) {
    std::ostringstream out;
    tavDumper hiding(out, true, 0, true);
    EXPECT_TRUE(hiding.child(1, "a")->hideEmpty());
    EXPECT_TRUE(hiding.getOutputChild()->hideEmpty());
    tavDumper showing(out, true, 0, false);
    EXPECT_FALSE(showing.child(1, "a")->hideEmpty());
}

TEST(TavDumper, LevelOfAChildIsACopy) {
    std::ostringstream out;
    tavDumper s(out, false, 1, false);
    tavSharedPtr<tavCodecStream> const child = s.child(1, "c");
    child->leave();
    s.indent();
    EXPECT_EQ(out.str(), "\n    [1]c=\n}\n    ");
    out.str("");
    tavSharedPtr<tavCodecStream> const other = s.getOutputChild();
    other->enter("N", "B");
    other->leave();
    EXPECT_EQ(out.str(), "\n    @N{\n    }");
}

TEST(TavDumper, NumbersAreDecimal) {
    EXPECT_EQ(written('A'), "65");
    EXPECT_EQ(written(static_cast<char>(-1)), "-1");
    EXPECT_EQ(written(static_cast<unsigned char>(255)), "255");
    EXPECT_EQ(written(static_cast<short>(-32768)), "-32768");
    EXPECT_EQ(written(static_cast<unsigned short>(65535)), "65535");
    EXPECT_EQ(written(-5), "-5");
    EXPECT_EQ(written(4294967295u), "4294967295");
    EXPECT_EQ(written(-5l), "-5");
    EXPECT_EQ(written(18446744073709551615ul), "18446744073709551615");
    EXPECT_EQ(written(-9223372036854775807ll - 1), "-9223372036854775808");
    EXPECT_EQ(written(18446744073709551615ull), "18446744073709551615");
}

TEST(TavDumper, OtherValues) {
    EXPECT_EQ(written(1.5), "1.5");
    EXPECT_EQ(written(1.0 / 3), "0.333333");
    EXPECT_EQ(written(1e20f), "1e+20");
    EXPECT_EQ(written(true), "true");
    EXPECT_EQ(written(false), "false");
    EXPECT_EQ(written(tavString("it's")), "'it's'");
    EXPECT_EQ(written(tavString()), "''");
    EXPECT_EQ(written(Foo()), "@Foo{ [1]a=5 [2]b='x' }");
    std::ostringstream time;
    time << tavTime::milliseconds(1654052969007);
    EXPECT_EQ(written(tavTime::milliseconds(1654052969007)), time.str());
    std::ostringstream bytes;
    bytes << tavBytes(tav_istr("abc"));
    EXPECT_EQ(written(tavBytes(tav_istr("abc"))), bytes.str());
}

TEST(TavDumper, EachIoIsTheMatchingWrite) {
    EXPECT_EQ(passed('A'), "65");
    EXPECT_EQ(passed(static_cast<unsigned char>(200)), "200");
    EXPECT_EQ(passed(static_cast<short>(-2)), "-2");
    EXPECT_EQ(passed(static_cast<unsigned short>(2)), "2");
    EXPECT_EQ(passed(-2), "-2");
    EXPECT_EQ(passed(2u), "2");
    EXPECT_EQ(passed(-2l), "-2");
    EXPECT_EQ(passed(2ul), "2");
    EXPECT_EQ(passed(-2ll), "-2");
    EXPECT_EQ(passed(2ull), "2");
    EXPECT_EQ(passed(0.25f), "0.25");
    EXPECT_EQ(passed(0.25), "0.25");
    EXPECT_EQ(passed(true), "true");
    EXPECT_EQ(passed(tavString("s")), "'s'");
    EXPECT_EQ(passed(std::string("s")), "'s'");
    EXPECT_EQ(passed(tavWstring(L"\u00e4")), "'\xC3\xA4'");
    EXPECT_EQ(passed(L'w'), "'w'");
    EXPECT_EQ(passed(tavBytes(tav_istr("abc"))), written(tavBytes(tav_istr("abc"))));
    EXPECT_EQ(passed(tavTime::milliseconds(5)), written(tavTime::milliseconds(5)));
}

TEST(TavDumper, OnlyTextAndBytesAreMasked) {
    tavCodecMeta const meta(-1, true, ".*", false);
    EXPECT_EQ(written(tavString("abc"), meta), "a*[3]");
    EXPECT_EQ(written(tavBytes(tav_istr("abc")), meta), "a*[3]");
    EXPECT_EQ(written(12345, meta), "12345");
    EXPECT_EQ(written(true, meta), "true");
}

TEST(DumperProtectedValue, UnprotectedValueIsWholeWithItsLength) {
    EXPECT_EQ(tavDumper::protectedValue("hello world", tavCodecMeta()), "hello world[11]");
    EXPECT_EQ(tavDumper::protectedValue("hello world", tavCodecMeta(-1, false, "..*..", true)),
              "hello world[11]");
    EXPECT_EQ(tavDumper::protectedValue(tav_istr(), tavCodecMeta()), "[0]");
}

TEST(DumperProtectedValue, MaskTellsHeadStarsAndTail) {
    EXPECT_EQ(masked("hello world", "...***..."), "hel***rld[11]");
    EXPECT_EQ(masked("hello world", "***"), "***[11]");
    EXPECT_EQ(masked("hello world", nullptr), "***[11]");
    EXPECT_EQ(masked("hello world", ""), "***[11]");
    EXPECT_EQ(masked("hello world", ".*"), "h*[11]");
    EXPECT_EQ(masked("hello world", "*****."), "*****d[11]");
    EXPECT_EQ(masked("hello world", ".."), "he[11]");
}

TEST(DumperProtectedValue, WhatFollowsTheMaskIsIgnored) {
    EXPECT_EQ(masked("hello world", ".*.x..."), "h*d[11]");
    EXPECT_EQ(masked("hello world", ".*.*."), "h*d[11]");
    EXPECT_EQ(masked("hello world", "x.*."), "[11]");
}

TEST(DumperProtectedValue, ShortValueNeverRepeatsBytes) {
    EXPECT_EQ(masked("ab", "...***..."), "ab***[2]");
    EXPECT_EQ(masked("abc", "...***..."), "abc***[3]");
    EXPECT_EQ(masked("abcde", "...***..."), "abc***de[5]");
    EXPECT_EQ(masked("abcdef", "...***..."), "abc***def[6]");
    EXPECT_EQ(masked("", "...***..."), "***[0]");
}
