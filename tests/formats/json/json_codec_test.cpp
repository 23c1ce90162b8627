#include "tav/vinta/vinta_object.h"

#include "tav/vinta/vinta_json_parser.h"

#include <gtest/gtest.h>

#include <deque>
#include <limits>
#include <list>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

enum class Mood { calm = 1, glad = 2 };

std::string text(tavString const & v) {
    return std::string(v.data(), v.size());
}

/// An object with one field of any type.  Without a type code nothing but arrays and objects passes the check
/// of fields, so those who read scalars state one.
template <class T>
class Box : public tavObject {
public:
    T value{};
    tavCodecMeta meta;

    Box() = default;
    explicit Box(T const & v, int type = -1, bool optional = false)
        : value(v), meta(type, false, nullptr, optional) {}

    tav_istr className() const override { return "Box"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Box(); }
    void assignFrom(tavObject const & other) override {
        if (auto const * const same = dynamic_cast<Box const *>(&other)) {
            *this = *same;
        }
    }

    friend bool operator==(Box const & a, Box const & b) { return a.value == b.value; }

protected:
    void traverse(tavCodecStream & s) override { ioField(s, 4, "v", value, meta); }
};

/// A field that several levels of objects, lists and maps hold.
class Leaf : public tavObject {
public:
    int number = 0;
    tavString name;

    Leaf() = default;
    Leaf(int v, char const * text) : number(v), name(text) {}

    tav_istr className() const override { return "Leaf"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Leaf(); }
    void assignFrom(tavObject const & other) override {
        if (auto const * const same = dynamic_cast<Leaf const *>(&other)) {
            *this = *same;
        }
    }

    friend bool operator==(Leaf const & a, Leaf const & b) {
        return a.number == b.number && a.name == b.name;
    }

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "number", number, tavCodecMeta(3));
        ioField(s, 2, "name", name, tavCodecMeta(13));
    }
};

class Fieldless : public tavObject {
public:
    tav_istr className() const override { return "Fieldless"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return nullptr; }
    void assignFrom(tavObject const &) override {}
};

/// One class with a field of every kind.
class Everything : public tavObject {
public:
    bool flag = false;
    short int16 = 0;
    int int32 = 0;
    long long int64 = 0;
    unsigned short uint16 = 0;
    unsigned int uint32 = 0;
    unsigned long long uint64 = 0;
    float single = 0;
    double real = 0;
    tavString string;
    std::string standard;
    tavWstring wide;
    tavBytes bytes;
    tavEnum<Mood> mood = Mood::calm;
    tavNumber<int, 7> preset;
    tavOptional<int> maybe;
    tavOptional<tavString> absent;
    Leaf leaf;
    tavSharedPtr<Leaf> shared;
    std::vector<int> list;
    std::list<Leaf> leaves;
    std::map<tavString, Leaf> byName;
    std::map<int, std::vector<tavString>> byNumber;

    tav_istr className() const override { return "Everything"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Everything(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "flag", flag, tavCodecMeta(0));
        ioField(s, 2, "int16", int16, tavCodecMeta(2));
        ioField(s, 3, "int32", int32, tavCodecMeta(3));
        ioField(s, 4, "int64", int64, tavCodecMeta(4));
        ioField(s, 5, "uint16", uint16, tavCodecMeta(6));
        ioField(s, 6, "uint32", uint32, tavCodecMeta(7));
        ioField(s, 7, "uint64", uint64, tavCodecMeta(8));
        ioField(s, 8, "single", single, tavCodecMeta(9));
        ioField(s, 9, "real", real, tavCodecMeta(10));
        ioField(s, 10, "string", string, tavCodecMeta(13));
        ioField(s, 11, "standard", standard, tavCodecMeta(13));
        ioField(s, 12, "wide", wide, tavCodecMeta(14));
        ioField(s, 13, "bytes", bytes, tavCodecMeta(16));
        ioField(s, 14, "mood", mood, tavCodecMeta(18));
        ioField(s, 15, "preset", preset, tavCodecMeta(3));
        ioField(s, 16, "maybe", maybe, tavCodecMeta(3, false, nullptr, true));
        ioField(s, 17, "absent", absent, tavCodecMeta(13, false, nullptr, true));
        ioField(s, 18, "leaf", leaf, tavCodecMeta(21));
        ioField(s, 19, "shared", shared, tavCodecMeta(22));
        ioField(s, 20, "list", list, tavCodecMeta(26));
        ioField(s, 21, "leaves", leaves, tavCodecMeta(27));
        ioField(s, 22, "byName", byName, tavCodecMeta(28));
        ioField(s, 23, "byNumber", byNumber, tavCodecMeta(28));
    }
};

template <class T>
std::string encoded(T const & v) {
    return text(Box<T>(v).encodeJson(false));
}

/// The value that comes back through text; its field has the type code `type`.
template <class T>
T roundTrip(T const & v, int type, T const & before = T()) {
    Box<T> target(before, type);
    target.decodeJson(Box<T>(v).encodeJson(false));
    return target.value;
}

template <class T>
void expectSame(T const & v, int type = 21) {
    EXPECT_TRUE(roundTrip(v, type) == v) << encoded(v);
}

void registerMoods() {
    tavEnum<Mood>::add(Mood::calm, "calm");
    tavEnum<Mood>::add(Mood::glad, "glad");
}

} // namespace

TEST(JsonCodecObjectAsJson, FieldsAreMembersInTheOrderOfTheirNames) {
    EXPECT_EQ(text(Leaf(5, "x").encodeJson(false)), "{ \"name\":\"x\", \"number\":5 }");
    Leaf leaf;
    leaf.decodeJson("{\"number\":0x10,\"unknown\":[1,{}],\"name\":\"y\"}");
    EXPECT_TRUE(leaf == Leaf(16, "y"));
}

TEST(JsonCodecObjectAsJson, SkipNullLeavesOutNullMembers) {
    Box<tavOptional<int>> const box{tavOptional<int>()};
    EXPECT_EQ(text(box.encodeJson(false)), "{ \"v\":null }");
    EXPECT_EQ(text(box.encodeJson(true)), "{ }");
    Box<tavOptional<int>> const optional(tavOptional<int>(), 3, true);
    EXPECT_EQ(text(optional.encodeJson(false)), "null");
}

TEST(JsonCodecObjectAsJson, IsMadeWithoutConstancyInTheWay) {
    Leaf const leaf(1, "a");
    std::string const first = text(leaf.encodeJson(false));
    EXPECT_EQ(text(leaf.encodeJson(false)), first);
    EXPECT_TRUE(leaf == Leaf(1, "a"));
}

TEST(JsonCodecObjectAsJson, ClassWithoutFieldsIsNull) {
    EXPECT_EQ(text(Fieldless().encodeJson(false)), "null");
    EXPECT_EQ(encoded(Fieldless()), "{ \"v\":null }");
    EXPECT_EQ(encoded(std::vector<Fieldless>(1)), "{ \"v\":[ null ] }");
    Fieldless object;
    object.decodeJson("{a:1}");
    object.decodeJson("[]");
    EXPECT_THROW(object.decodeJson("null"), std::invalid_argument);
}

TEST(JsonCodecObjectAsJson, TextThatIsNoJsonRaisesAndLeavesTheObject) {
    Leaf leaf(5, "x");
    for (char const * const bad : {"", "5", "\"x\"", "null", "{\"number\":1", "{number}:"}) {
        EXPECT_THROW(leaf.decodeJson(bad), std::invalid_argument) << bad;
    }
    EXPECT_TRUE(leaf == Leaf(5, "x"));
}

TEST(JsonCodecObjectAsJson, WhatWasReadAheadOfAFailureStays) {
    Leaf leaf(5, "x");
    EXPECT_THROW(leaf.decodeJson("{\"number\":6}"), std::invalid_argument);
    EXPECT_TRUE(leaf == Leaf(6, "x"));
}

TEST(JsonCodecFieldsAsJson, SimpleTypes) {
    EXPECT_EQ(encoded(true), "{ \"v\":true }");
    EXPECT_EQ(encoded(static_cast<char>(-1)), "{ \"v\":-1 }");
    EXPECT_EQ(encoded(static_cast<unsigned char>(255)), "{ \"v\":255 }");
    EXPECT_EQ(encoded(static_cast<short>(-2)), "{ \"v\":-2 }");
    EXPECT_EQ(encoded(static_cast<unsigned short>(2)), "{ \"v\":2 }");
    EXPECT_EQ(encoded(5), "{ \"v\":5 }");
    EXPECT_EQ(encoded(5u), "{ \"v\":5 }");
    EXPECT_EQ(encoded(5l), "{ \"v\":\"5\" }");
    EXPECT_EQ(encoded(5ul), "{ \"v\":\"5\" }");
    EXPECT_EQ(encoded(5ll), "{ \"v\":\"5\" }");
    EXPECT_EQ(encoded(5ull), "{ \"v\":\"5\" }");
    EXPECT_EQ(encoded(0.5f), "{ \"v\":0.5 }");
    EXPECT_EQ(encoded(1e10), "{ \"v\":1e+10 }");
    EXPECT_EQ(encoded(tavString("x")), "{ \"v\":\"x\" }");
    EXPECT_EQ(encoded(tavBytes(tav_istr("abc"))), "{ \"v\":\"YWJj\" }");
    EXPECT_EQ(encoded(tavTime::milliseconds(9)), "{ \"v\":\"9\" }");
    EXPECT_EQ(encoded(std::string("x")), "{ \"v\":\"x\" }");
    EXPECT_EQ(encoded(tavWstring(L"\u20ac")), "{ \"v\":\"\xe2\x82\xac\" }");
    EXPECT_EQ(encoded(L'x'), "{ \"v\":\"x\" }");
}

TEST(JsonCodecFieldsAsJson, SimpleTypesComeBack) {
    expectSame(true, 0);
    expectSame(static_cast<char>(-128), 1);
    expectSame(static_cast<unsigned char>(255), 5);
    expectSame(static_cast<short>(-32768), 2);
    expectSame(static_cast<unsigned short>(65535), 6);
    expectSame(std::numeric_limits<int>::min(), 3);
    expectSame(4294967295u, 7);
    expectSame(std::numeric_limits<long long>::max(), 4);
    expectSame(std::numeric_limits<unsigned long long>::max(), 8);
    expectSame(5l, 4);
    expectSame(5ul, 8);
    expectSame(-0.25f, 9);
    expectSame(1e300, 10);
    expectSame(tavString("a\"\\/\b\f\n\r\t\xff"), 13);
    expectSame(std::string("null"), 13);
    expectSame(tavWstring(L"\u20ac"), 14);
    expectSame(L'\u20ac', 14);
    expectSame(std::string(), 13);
    tavBytes const bytes(tav_istr("\x00\xff\xfe", 3));
    EXPECT_EQ(tav_istr(roundTrip(bytes, 16)), tav_istr(bytes));
}

TEST(JsonCodecFieldsAsJson, EnumsAndNumbers) {
    registerMoods();
    EXPECT_EQ(encoded(tavEnum<Mood>(Mood::glad)), "{ \"v\":2 }");
    EXPECT_EQ(encoded(tavNumber<int, 7>()), "{ \"v\":7 }");
    EXPECT_EQ(encoded(tavNumber<long long, 7>()), "{ \"v\":\"7\" }");
    expectSame(tavEnum<Mood>(Mood::glad), 18);
    expectSame(tavNumber<int, 7>(3), 3);
    expectSame(tavNumber<unsigned long long, 7>(3), 8);
}

TEST(JsonCodecFieldsAsJson, UnregisteredEnumValueRaises) {
    registerMoods();
    Box<tavEnum<Mood>> box(Mood::calm, 18);
    try {
        box.decodeJson("{v:3}");
        FAIL();
    } catch (std::invalid_argument const & e) {
        EXPECT_EQ(std::string(e.what()).rfind("invalid enum field name v value 3\n    throw at ", 0), 0u);
    }
    EXPECT_EQ(box.value.value(), 1);
}

TEST(JsonCodecFieldsAsJson, OptionalIsItsValueOrNull) {
    EXPECT_EQ(encoded(tavOptional<int>(5)), "{ \"v\":5 }");
    EXPECT_EQ(encoded(tavOptional<long long>(5)), "{ \"v\":\"5\" }");
    EXPECT_EQ(encoded(tavOptional<tavString>()), "{ \"v\":null }");
    EXPECT_EQ(encoded(tavOptional<Leaf>(Leaf(1, "a"))), "{ \"v\":{ \"name\":\"a\", \"number\":1 } }");
    EXPECT_EQ(encoded(tavOptional<std::vector<int>>(std::vector<int>())), "{ \"v\":[ ] }");
    EXPECT_EQ(encoded(tavOptional<std::map<int, int>>(std::map<int, int>())), "{ \"v\":{ } }");
    Box<tavOptional<int>> box(tavOptional<int>(), 3, true);
    box.decodeJson("{v:6}");
    EXPECT_EQ(box.value.value(), 6);
    box.decodeJson("{v:null}");
    EXPECT_EQ(box.value.value(), 6);
    box.decodeJson("{}");
    EXPECT_EQ(box.value.value(), 6);
    Box<tavOptional<Leaf>> leaf(tavOptional<Leaf>(), 21, true);
    leaf.decodeJson("{v:{number:1,name:a}}");
    ASSERT_TRUE(leaf.value.has_value());
    EXPECT_TRUE(*leaf.value == Leaf(1, "a"));
}

TEST(JsonCodecFieldsAsJson, OptionalWithADatalessMemberIsSet) {
    Box<tavOptional<int>> box(tavOptional<int>(), 3, true);
    box.decodeJson("{v:true}");
    EXPECT_TRUE(box.value.has_value());
    EXPECT_EQ(box.value.value(), 0);
}

TEST(JsonCodecFieldsAsJson, SharedObjectIsFilledOrMade) {
    typedef Box<tavSharedPtr<Leaf>> Holder;
    EXPECT_EQ(text(Holder().encodeJson(false)), "{ \"v\":null }");
    Holder holder(nullptr, 22, true);
    holder.decodeJson("{v:null}");
    EXPECT_FALSE(holder.value);
    holder.decodeJson("{v:{number:1,name:a}}");
    ASSERT_TRUE(holder.value);
    Leaf const * const made = holder.value.get();
    holder.decodeJson("{v:{number:2,name:b}}");
    EXPECT_EQ(holder.value.get(), made);
    EXPECT_TRUE(*made == Leaf(2, "b"));
    EXPECT_EQ(text(holder.encodeJson(false)), "{ \"v\":{ \"name\":\"b\", \"number\":2 } }");
}

TEST(JsonCodecListsAsJson, OfEverySimpleType) {
    registerMoods();
    EXPECT_EQ(encoded(std::vector<int>{1, -2}), "{ \"v\":[ 1, -2 ] }");
    EXPECT_EQ(encoded(std::vector<int>()), "{ \"v\":[ ] }");
    EXPECT_EQ(encoded(std::vector<long long>{1}), "{ \"v\":[ \"1\" ] }");
    expectSame(std::vector<tavTime>{tavTime(), tavTime::milliseconds(9)});
    expectSame(std::vector<tavString>{tavString(""), tavString("x")});
    expectSame(std::vector<double>{0.0, -1.5});
    expectSame(std::vector<float>{0.0f, 0.5f});
    expectSame(std::vector<unsigned long long>{0, std::numeric_limits<unsigned long long>::max()});
    expectSame(std::vector<long long>{std::numeric_limits<long long>::min(), 0});
    expectSame(std::vector<unsigned long>{0, 1});
    expectSame(std::vector<long>{0, -1});
    expectSame(std::vector<unsigned int>{0, 4294967295u});
    expectSame(std::vector<int>{0, -1});
    expectSame(std::vector<unsigned short>{0, 65535});
    expectSame(std::vector<short>{0, -1});
    expectSame(std::vector<unsigned char>{0, 255});
    expectSame(std::vector<char>{0, -1});
    expectSame(std::vector<bool>{true, false});
    expectSame(std::vector<std::string>{"", "null", "x"});
    expectSame(std::vector<tavWstring>{tavWstring(L"\u20ac"), tavWstring()});
    expectSame(std::vector<wchar_t>{L'a', L'\u20ac'});
    expectSame(std::vector<tavEnum<Mood>>{Mood::glad, Mood::calm});
    expectSame(std::vector<tavNumber<int, 7>>{7, 8});
    std::vector<tavBytes> const bytes{tavBytes(tav_istr("abc")), tavBytes()};
    std::vector<tavBytes> const back = roundTrip(bytes, 26);
    ASSERT_EQ(back.size(), 2u);
    EXPECT_EQ(tav_istr(back[0]), tav_istr("abc"));
    EXPECT_TRUE(back[1].empty());
}

TEST(JsonCodecListsAsJson, OfEveryKindOfContainer) {
    expectSame(std::list<int>{3, 1, 2});
    expectSame(std::deque<tavString>{tavString("b"), tavString("a")});
    expectSame(std::set<int>{3, 1, 2});
    expectSame(std::vector<std::vector<int>>{{1, 2}, {}, {3}});
    expectSame(std::vector<std::map<tavString, int>>{{{tavString("a"), 1}}, {}});
}

TEST(JsonCodecListsAsJson, OfObjects) {
    EXPECT_EQ(encoded(std::vector<Leaf>{Leaf(1, "a"), Leaf(2, "b")}),
              "{ \"v\":[ { \"name\":\"a\", \"number\":1 }, { \"name\":\"b\", \"number\":2 } ] }");
    expectSame(std::list<Leaf>{Leaf(1, "a"), Leaf(2, "b")});
    std::vector<tavSharedPtr<Leaf>> const shared{new Leaf(1, "a"), new Leaf(2, "b")};
    std::vector<tavSharedPtr<Leaf>> const back = roundTrip(shared, 27);
    ASSERT_EQ(back.size(), 2u);
    EXPECT_TRUE(*back[1] == Leaf(2, "b"));
}

TEST(JsonCodecListsAsJson, NullElementsAreWrittenAndNotReadBack) {
    std::vector<tavOptional<int>> const optional{tavOptional<int>(1), tavOptional<int>(),
                                                 tavOptional<int>(3)};
    EXPECT_EQ(encoded(optional), "{ \"v\":[ 1, null, 3 ] }");
    std::vector<tavOptional<int>> const back = roundTrip(optional, 26);
    ASSERT_EQ(back.size(), 2u);
    EXPECT_EQ(back[1].value(), 3);
    std::vector<tavSharedPtr<Leaf>> const shared{nullptr, new Leaf(2, "b")};
    EXPECT_EQ(encoded(shared), "{ \"v\":[ null, { \"name\":\"b\", \"number\":2 } ] }");
    EXPECT_EQ(roundTrip(shared, 27).size(), 1u);
}

TEST(JsonCodecListsAsJson, NullElementOfATreeIsADefaultElement) {
    tav::json::JsonUnit unit;
    unit["v"].newChild() << 5;
    unit["v"].newChild();
    tavJsonInStreamImpl impl(unit);
    tavJsonInStream s(&impl, false);
    Box<std::vector<tavNumber<int, 7>>> box({}, 26);
    box.io(s);
    ASSERT_EQ(box.value.size(), 2u);
    EXPECT_EQ(box.value[0], 5);
    EXPECT_EQ(box.value[1], 7);
}

TEST(JsonCodecListsAsJson, PresentListReplacesAndAMissingOneKeeps) {
    Box<std::vector<int>> box({1, 2}, 26);
    box.decodeJson("{}");
    EXPECT_EQ(box.value.size(), 2u);
    box.decodeJson("{v:null}");
    EXPECT_EQ(box.value.size(), 2u);
    box.decodeJson("{v:[7]}");
    EXPECT_EQ(box.value, std::vector<int>{7});
    box.decodeJson("{v:{a:1}}");
    EXPECT_TRUE(box.value.empty());
}

TEST(JsonCodecMapsAsJson, KeysAreNamesInTheOrderOfTheirBytes) {
    EXPECT_EQ(encoded(std::map<tavString, int>{{tavString("b"), 1}, {tavString("a"), 2}}),
              "{ \"v\":{ \"a\":2, \"b\":1 } }");
    EXPECT_EQ(encoded(std::map<int, int>{{-1, 1}, {2, 2}, {10, 3}}),
              "{ \"v\":{ \"-1\":1, \"10\":3, \"2\":2 } }");
    EXPECT_EQ(encoded(std::map<int, int>()), "{ \"v\":{ } }");
}

TEST(JsonCodecMapsAsJson, OfEveryKindOfKey) {
    registerMoods();
    expectSame(std::map<tavString, int>{{tavString("a"), 1}, {tavString("b"), 2}});
    expectSame(std::map<std::string, int>{{"a b", 1}, {"null", 2}});
    expectSame(std::map<tavWstring, int>{{tavWstring(L"\u20ac"), 1}});
    expectSame(std::map<wchar_t, int>{{L'\u20ac', 1}});
    expectSame(std::map<char, int>{{static_cast<char>(-1), 1}, {'c', 2}});
    expectSame(std::map<unsigned char, int>{{255, 1}});
    expectSame(std::map<short, int>{{-1, 1}});
    expectSame(std::map<unsigned short, int>{{65535, 1}});
    expectSame(std::map<int, int>{{-1, 1}, {5, 2}});
    expectSame(std::map<unsigned, int>{{4294967295u, 1}});
    expectSame(std::map<long long, int>{{std::numeric_limits<long long>::min(), 1}});
    expectSame(std::map<unsigned long long, int>{{std::numeric_limits<unsigned long long>::max(), 1}});
    expectSame(std::map<bool, int>{{false, 1}, {true, 2}});
    expectSame(std::map<tavEnum<Mood>, int>{{Mood::calm, 1}, {Mood::glad, 2}});
    expectSame(std::unordered_map<int, tavString>{{5, tavString("x")}, {6, tavString("y")}});
}

TEST(JsonCodecMapsAsJson, OfEveryKindOfValue) {
    registerMoods();
    expectSame(std::map<int, tavString>{{1, tavString("x")}});
    expectSame(std::map<int, long long>{{1, -5}});
    expectSame(std::map<int, bool>{{1, true}});
    expectSame(std::map<int, tavTime>{{1, tavTime::milliseconds(9)}});
    expectSame(std::map<int, tavEnum<Mood>>{{1, Mood::glad}});
    expectSame(std::map<int, Leaf>{{1, Leaf(1, "a")}});
    expectSame(std::map<int, std::vector<int>>{{1, {}}, {2, {1, 2}}});
    expectSame(std::map<tavString, std::map<int, Leaf>>{{tavString("k"), {{1, Leaf(1, "a")}}}});
    std::map<int, tavSharedPtr<Leaf>> const shared{{1, new Leaf(1, "a")}, {2, nullptr}};
    std::map<int, tavSharedPtr<Leaf>> const back = roundTrip(shared, 28);
    ASSERT_EQ(back.size(), 2u);
    EXPECT_TRUE(*back.at(1) == Leaf(1, "a"));
    EXPECT_FALSE(back.at(2));
    std::map<int, tavOptional<int>> const optional{{1, 5}, {2, tavOptional<int>()}};
    EXPECT_EQ(encoded(optional), "{ \"v\":{ \"1\":5, \"2\":null } }");
    EXPECT_FALSE(roundTrip(optional, 28).at(2).has_value());
}

TEST(JsonCodecMapsAsJson, PresentMapReplacesAndAMissingOneKeeps) {
    Box<std::map<tavString, int>> box({{tavString("old"), 1}}, 28);
    box.decodeJson("{}");
    EXPECT_EQ(box.value.size(), 1u);
    box.decodeJson("{v:{a:1,n:null,bad:true}}");
    EXPECT_EQ(box.value,
              (std::map<tavString, int>{{tavString("a"), 1}, {tavString("bad"), 0}, {tavString("n"), 0}}));
    box.decodeJson("{v:[1]}");
    EXPECT_TRUE(box.value.empty());
}

TEST(JsonCodecMapsAsJson, UnregisteredEnumKeyRaises) {
    registerMoods();
    Box<std::map<tavEnum<Mood>, int>> box({}, 28);
    EXPECT_THROW(box.decodeJson("{v:{\"9\":1}}"), std::invalid_argument);
}

TEST(JsonCodecOneClassInManyEncodings, NbrAndJsonGiveTheSame) {
    registerMoods();
    Everything one;
    one.flag = true;
    one.int16 = -1;
    one.int32 = 0x7fffffff;
    one.int64 = 1654052969007;
    one.uint16 = 65535;
    one.uint32 = 4294967295u;
    one.uint64 = std::numeric_limits<unsigned long long>::max();
    one.single = 0.5f;
    one.real = -1.25;
    one.string = "a\"/\\\n";
    one.standard = std::string("\xff\x80");
    one.wide = tavWstring(L"\u20ac");
    one.bytes = tavBytes(tav_istr("\0\1\2", 3));
    one.mood = Mood::glad;
    one.preset = 8;
    one.maybe = 0;
    one.leaf = Leaf(1, "a");
    one.shared = new Leaf(2, "b");
    one.list = {1, 2, 3};
    one.leaves = {Leaf(3, "c"), Leaf(4, "")};
    one.byName = {{tavString("k"), Leaf(5, "e")}};
    one.byNumber = {{-7, {tavString("x"), tavString("y")}}, {8, {}}};

    Everything fromNbr;
    fromNbr.decode(one.encode(false));
    Everything fromJson;
    fromJson.decodeJson(fromNbr.encodeJson(false));
    EXPECT_EQ(tav_istr(fromJson.encode(false)), tav_istr(one.encode(false)));
    EXPECT_EQ(text(fromJson.encodeJson(false)), text(one.encodeJson(false)));
    EXPECT_EQ(text(fromJson.dump(true, 0)), text(one.dump(true, 0)));
    EXPECT_FALSE(fromJson.absent.has_value());
    EXPECT_TRUE(fromJson.maybe.has_value());
    EXPECT_EQ(text(one.encodeJson(true)).find("absent"), std::string::npos);
    EXPECT_NE(text(one.encodeJson(true)).find("\"byNumber\":{ \"-7\":[ \"x\", \"y\" ], \"8\":[ ] }"),
              std::string::npos);
}

TEST(JsonCodecMessageExtensionAsJson, UnsetTimesAreNull) {
    tavMsgExt ext;
    ext.traceId = tavString("t");
    ext.clientTime = 5;
    EXPECT_EQ(text(ext.encodeJson(false)),
              "{ \"clientTime\":\"5\", \"serverTime\":null, \"traceId\":\"t\" }");
    EXPECT_EQ(text(ext.encodeJson(true)), "{ \"clientTime\":\"5\", \"traceId\":\"t\" }");
}
