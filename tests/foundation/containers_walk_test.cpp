#include "tav/vinta/vinta_object.h"

#include <gtest/gtest.h>

#include <deque>
#include <limits>
#include <list>
#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

enum class Level { low = 1, high = 2 };

/// An object with one field of any type, under the id 4.
template <class T>
class Box : public tavObject {
public:
    T value{};

    Box() = default;
    explicit Box(T const & v) : value(v) {}

    tav_istr className() const override { return "Box"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Box(); }
    void assignFrom(tavObject const & other) override {
        if (auto const * const same = dynamic_cast<Box const *>(&other)) {
            *this = *same;
        }
    }

    friend bool operator==(Box const & a, Box const & b) { return a.value == b.value; }
    friend bool operator<(Box const & a, Box const & b) { return a.value < b.value; }

protected:
    void traverse(tavCodecStream & s) override { ioField(s, 4, "value", value); }
};

template <class T>
T roundTrip(T const & v) {
    Box<T> target;
    target.decode(Box<T>(v).encode(false));
    return target.value;
}

template <class T>
void expectSame(T const & v) {
    EXPECT_TRUE(roundTrip(v) == v);
}

std::string bytes(std::initializer_list<unsigned char> v) {
    return std::string(v.begin(), v.end());
}

template <class T>
std::string encoded(T const & v) {
    return std::string(tav_istr(Box<T>(v).encode(false)));
}

} // namespace

TEST(ContainersWalkThroughNbr, MapOfTextIsAListOfTwoMembers) {
    std::map<tavString, int> const v{{tavString("k"), 9}};
    EXPECT_EQ(encoded(v),
              bytes({0xFF, 0x01, 0x28, 0x04, 0xFF, 0x01, 0x28, 0x00, 0xFF, 0x01, 0x28, 0x01, 0xF1, 0x01,
                     0x6B, 0x02, 0x01, 0x01, 0x09, 0xFF, 0x01, 0x29, 0xFF, 0x01, 0x29, 0xFF, 0x01, 0x29}));
    expectSame(v);
}

TEST(ContainersWalkThroughNbr, ListOfNumbersHasATagOfZeroForEach) {
    EXPECT_EQ(encoded(std::list<unsigned short>{7, 300}),
              bytes({0xFF, 0x01, 0x28, 0x04, 0xFF, 0x01, 0x28, 0x00, 0x01, 0x01, 0x07,
                     0x00, 0x01, 0x02, 0x2C, 0x01, 0xFF, 0x01, 0x29, 0xFF, 0x01, 0x29}));
}

TEST(ContainersWalkThroughNbr, VectorsOfEverySimpleType) {
    expectSame(std::vector<tavTime>{tavTime(), tavTime::milliseconds(1654052969007)});
    expectSame(std::vector<tavBytes>{tavBytes(tav_istr("a\0b", 3)), tavBytes()});
    expectSame(std::vector<tavString>{tavString(""), tavString("abc")});
    expectSame(std::vector<double>{0.0, -1.5, 1e300});
    expectSame(std::vector<float>{0.0f, -1.5f});
    expectSame(std::vector<unsigned long long>{0, std::numeric_limits<unsigned long long>::max()});
    expectSame(std::vector<long long>{0, -1, std::numeric_limits<long long>::min()});
    expectSame(std::vector<unsigned long>{0, 1});
    expectSame(std::vector<long>{0, -1});
    expectSame(std::vector<unsigned int>{0, 4294967295u});
    expectSame(std::vector<int>{0, -1, 128});
    expectSame(std::vector<unsigned short>{0, 65535});
    expectSame(std::vector<short>{0, -1});
    expectSame(std::vector<unsigned char>{0, 255});
    expectSame(std::vector<char>{0, -1, 'c'});
    expectSame(std::vector<bool>{true, false, true});
    expectSame(std::vector<std::string>{"", "x"});
    expectSame(std::vector<tavWstring>{tavWstring(L"\u20ac"), tavWstring()});
    expectSame(std::vector<wchar_t>{L'\u20ac', L'a'});
}

TEST(ContainersWalkThroughNbr, EverySequence) {
    expectSame(std::list<int>{1, 2, 3});
    expectSame(std::deque<int>{1, 2, 3});
    expectSame(std::set<int>{3, 1, 2});
    expectSame(std::set<tavString>{tavString("b"), tavString("a")});
    expectSame(std::list<bool>{true, false});
    expectSame(std::deque<bool>{false, true});
    expectSame(std::set<bool>{true});
    expectSame(std::vector<int>());
}

TEST(ContainersWalkThroughNbr, WrappersAsElements) {
    tavEnum<Level>::add(Level::low, "low");
    tavEnum<Level>::add(Level::high, "high");
    expectSame(std::vector<tavEnum<Level>>{Level::low, Level::high});
    expectSame(std::set<tavEnum<Level>>{Level::high, Level::low});
    expectSame(std::vector<tavNumber<int, 5>>{1, 5});
    std::vector<tavOptional<int>> v(3);
    v[1] = 0;
    std::vector<tavOptional<int>> const read = roundTrip(v);
    ASSERT_EQ(read.size(), 3u);
    EXPECT_FALSE(read[0].has_value());
    EXPECT_TRUE(read[1].has_value());
    EXPECT_FALSE(read[2].has_value());
}

TEST(ContainersWalkThroughNbr, UnregisteredEnumElementFails) {
    tavEnum<Level>::add(Level::low, "low");
    tavEnum<Level>::add(Level::high, "high");
    EXPECT_THROW((Box<std::vector<tavEnum<Level>>>().decode(Box<std::vector<int>>({1, 6}).encode(false))),
                 std::invalid_argument);
}

TEST(ContainersWalkThroughNbr, ObjectsAsElements) {
    expectSame(std::vector<Box<int>>{Box<int>(1), Box<int>(2)});
    expectSame(std::list<Box<tavString>>{Box<tavString>(tavString("a"))});
    expectSame(std::deque<Box<int>>{Box<int>(1)});
    expectSame(std::set<Box<int>>{Box<int>(2), Box<int>(1)});
    expectSame(std::map<int, Box<int>>{{1, Box<int>(2)}});
    std::vector<tavSharedPtr<Box<int>>> v{new Box<int>(7), nullptr};
    std::vector<tavSharedPtr<Box<int>>> const read = roundTrip(v);
    ASSERT_EQ(read.size(), 2u);
    EXPECT_EQ(read[0]->value, 7);
    EXPECT_FALSE(read[1]);
}

TEST(ContainersWalkThroughNbr, EveryKindOfKey) {
    tavEnum<Level>::add(Level::low, "low");
    tavEnum<Level>::add(Level::high, "high");
    expectSame(std::map<tavString, int>{{tavString("a"), 1}, {tavString(""), 2}});
    expectSame(std::map<std::string, int>{{"a", 1}, {"", 2}});
    expectSame(std::map<tavWstring, int>{{tavWstring(L"\u20ac"), 1}});
    expectSame(std::map<wchar_t, int>{{L'\u20ac', 1}});
    expectSame(std::map<char, int>{{'a', 1}, {static_cast<char>(-1), 2}});
    expectSame(std::map<unsigned char, int>{{255, 1}});
    expectSame(std::map<short, int>{{-1, 1}});
    expectSame(std::map<unsigned short, int>{{65535, 1}});
    expectSame(std::map<int, int>{{-1, 1}, {5, 2}});
    expectSame(std::map<unsigned int, int>{{4294967295u, 1}});
    expectSame(std::map<long, int>{{-1, 1}});
    expectSame(std::map<unsigned long, int>{{1, 1}});
    expectSame(std::map<long long, int>{{std::numeric_limits<long long>::min(), 1}});
    expectSame(std::map<unsigned long long, int>{{std::numeric_limits<unsigned long long>::max(), 1}});
    expectSame(std::map<bool, int>{{false, 1}, {true, 2}});
    expectSame(std::map<tavEnum<Level>, int>{{Level::low, 1}, {Level::high, 2}});
}

TEST(ContainersWalkThroughNbr, UnorderedMaps) {
    expectSame(std::unordered_map<int, tavString>{{1, tavString("a")}, {-2, tavString("b")}});
    expectSame(std::unordered_map<std::string, int>{{"a", 1}, {"b", 2}});
    expectSame(std::unordered_map<tavEnum<Level>, int>{{Level::low, 1}});
}

TEST(ContainersWalkThroughNbr, Optionals) {
    auto const back = [](auto const & v) {
        auto const read = roundTrip(v);
        EXPECT_TRUE(read.has_value());
        return read.value();
    };
    EXPECT_EQ(back(tavOptional<std::vector<int>>(std::vector<int>{1, 2})), (std::vector<int>{1, 2}));
    EXPECT_TRUE(back(tavOptional<std::vector<int>>(std::vector<int>())).empty());
    EXPECT_EQ((back(tavOptional<std::map<int, int>>(std::map<int, int>{{1, 2}})).at(1)), 2);
    EXPECT_EQ(back(tavOptional<Box<int>>(Box<int>(3))).value, 3);
    EXPECT_EQ(back(tavOptional<tavSharedPtr<Box<int>>>(tavSharedPtr<Box<int>>(new Box<int>(4))))->value, 4);
    EXPECT_EQ(back(tavOptional<std::string>(std::string("s"))), "s");
    EXPECT_EQ(back(tavOptional<tavEnum<Level>>(tavEnum<Level>(Level::low))), Level::low);
    EXPECT_EQ(back(tavOptional<std::set<int>>(std::set<int>{1})).size(), 1u);
    EXPECT_FALSE(roundTrip(tavOptional<std::vector<int>>()).has_value());
    EXPECT_FALSE(roundTrip(tavOptional<Box<int>>()).has_value());
}

TEST(ContainersWalkThroughNbr, NestedToAnyDepth) {
    expectSame(std::vector<std::vector<std::vector<int>>>{{{1}, {}}, {}, {{2, 3}}});
    expectSame(std::map<tavString, std::map<int, std::list<tavString>>>{
        {tavString("a"), {{1, {tavString("x")}}, {2, {}}}}, {tavString("b"), {}}});
    expectSame(std::vector<Box<std::vector<Box<std::map<int, std::set<int>>>>>>{
        Box<std::vector<Box<std::map<int, std::set<int>>>>>(
            {Box<std::map<int, std::set<int>>>({{1, {2, 3}}})})});
    expectSame(std::map<int, std::vector<bool>>{{1, {true, false}}});
    expectSame(std::set<std::vector<int>>{{1}, {2, 3}});
}

TEST(ContainersWalkThroughNbr, NullMembersAreDefaultElements) {
    Box<std::vector<int>> list;
    list.decode(bytes({0xFF, 0x01, 0x28, 0x04, 0xFF, 0x01, 0x28, 0x00, 0x00, 0x00, 0x01, 0x01, 0x05, 0xFF,
                       0x01, 0x29, 0xFF, 0x01, 0x29}));
    EXPECT_EQ(list.value, (std::vector<int>{0, 5}));
}

TEST(ContainersWalkThroughNbr, RoomForElementsIsMadeOnce) {
    std::vector<int> const v(1000, 7);
    Box<std::vector<int>> box;
    box.decode(Box<std::vector<int>>(v).encode(false));
    EXPECT_EQ(box.value, v);
    EXPECT_EQ(box.value.capacity(), 1000u);
}

TEST(ContainersWalkThroughNbr, ListsOfListsOfManySizes) {
    std::vector<std::vector<int>> v;
    for (unsigned i = 0; i < 40; ++i) {
        v.emplace_back(i * i, static_cast<int>(i));
    }
    expectSame(v);
    expectSame(std::vector<std::vector<std::vector<int>>>{v, {}, v});
}

TEST(ContainersWalkThroughNbr, FailureInAListLeavesTheNextOneWhole) {
    tavEnum<Level>::add(Level::low, "low");
    tavEnum<Level>::add(Level::high, "high");
    std::string const bad = encoded(std::vector<std::vector<int>>{{1, 2}, {1, 6}});
    for (int round = 0; round < 3; ++round) {
        Box<std::vector<std::vector<tavEnum<Level>>>> box;
        EXPECT_THROW(box.decode(bad), std::invalid_argument);
        EXPECT_EQ(box.value.size(), 2u);
        expectSame(std::vector<std::vector<int>>{{1}, {2, 3}, {}});
    }
}

TEST(ContainersWalkThroughNbr, SimpleValueInPlaceOfAListEmptiesIt) {
    Box<std::vector<int>> list({1, 2});
    list.decode(Box<int>(5).encode(false));
    EXPECT_TRUE(list.value.empty());
}

TEST(ContainersWalkThroughNbr, RandomBytesNeverCrash) {
    std::mt19937 random(20240607);
    std::vector<std::map<tavString, std::vector<tavOptional<int>>>> const seed{
        {{tavString("abc"), {tavOptional<int>(1), tavOptional<int>()}}, {tavString("d"), {}}}, {}};
    std::string const whole = encoded(seed);
    unsigned decoded = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string cut = whole.substr(0, random() % (whole.size() + 1));
        for (int i = 0; i < 3 && !cut.empty(); ++i) {
            cut[random() % cut.size()] = static_cast<char>(random());
        }
        Box<std::vector<std::map<tavString, std::vector<tavOptional<int>>>>> box;
        try {
            box.decode(cut);
            ++decoded;
        } catch (std::invalid_argument const & e) {
            EXPECT_NE(std::string(e.what()).find("maybe not nbr"), std::string::npos);
        }
        EXPECT_LE(box.value.size(), cut.size());
    }
    EXPECT_GT(decoded, 0u);
}
