#include "tav/vinta/vinta_pml_streams.h"

#include "tav/vinta/vinta_nbr_unit.h"
#include "tav/vinta/vinta_object.h"

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

enum class Mood { good = 0, bad = 1, worse = 7 };

void registerMoods() {
    tavEnum<Mood>::add(Mood::good, "good");
    tavEnum<Mood>::add(Mood::bad, "bad");
    tavEnum<Mood>::add(Mood::worse, "worse");
}

class Point : public tavObject {
public:
    int x = 0;
    tavString label;

    Point() = default;
    Point(int v, char const * text) : x(v), label(text) {}
    tav_istr className() const override { return "Point"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Point; }
    void assignFrom(tavObject const &) override {}
    friend bool operator==(Point const & a, Point const & b) { return a.x == b.x && a.label == b.label; }

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "x", x);
        ioField(s, 2, "label", label);
    }
};

/// An object with one field "v" of type T.
template <class T>
class Holder : public tavObject {
public:
    T v = T();
    tavCodecMeta meta;

    Holder() = default;
    explicit Holder(T value) : v(std::move(value)) {}
    tav_istr className() const override { return "Holder"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Holder; }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override { ioField(s, 1, "v", v, meta); }
};

std::string pmlOf(tavObject & object) {
    tavPmlOutStream s;
    object.io(s);
    return s.str(false, false);
}

/// The text of a holder of `v`, without the frame `:Holder(v( ... ))`.
template <class T>
std::string text(T v) {
    Holder<T> holder(std::move(v));
    std::string const all = pmlOf(holder);
    std::string const head = ":Holder(";
    EXPECT_EQ(all.find(head), 0u) << all;
    return all.substr(head.size(), all.size() - head.size() - 1);
}

/// What a holder that held `before` holds after it read `fields`.
template <class T>
T parsed(std::string const & fields, T before = T()) {
    Holder<T> holder(std::move(before));
    tavPmlInStream s(tav_istr("(" + fields + ")"));
    holder.io(s);
    return holder.v;
}

template <class T>
T throughPml(T const & v) {
    return parsed<T>(text(v));
}

template <class T>
T throughNbr(T const & v) {
    Holder<T> holder(v);
    tavNbrOutStream out(false);
    holder.io(out);
    Holder<T> result;
    tavNbrInStream in(out.str());
    result.io(in);
    return result.v;
}

/// Both encodings give `v` back, whatever was written between.
template <class T>
void expectRoundTrips(T const & v) {
    EXPECT_TRUE(throughPml(v) == v) << text(v);
    EXPECT_TRUE(throughNbr(v) == v);
}

} // namespace

TEST(PmlFields, AnObjectIsAUnitOfItsClassWithItsFieldsAsChildren) {
    Point point(5, "a b");
    EXPECT_EQ(pmlOf(point), ":Point(x(5)label(a b))");
}

TEST(PmlFields, FieldsAreReadInAnyOrderAndUnknownOnesPassedOver) {
    Point point;
    tavPmlInStream s("anything:Other( more(x(9)) label('p:q') x(0x10) x(3) )");
    point.io(s);
    EXPECT_EQ(point.x, 16);
    EXPECT_EQ(point.label, "p:q");
}

TEST(PmlFields, MissingFieldsKeepTheirValues) {
    Point point(5, "old");
    tavPmlInStream s("(label(new))");
    point.io(s);
    EXPECT_EQ(point.x, 5);
    EXPECT_EQ(point.label, "new");
}

TEST(PmlFields, EverySimpleTypeRoundTrips) {
    expectRoundTrips<bool>(true);
    expectRoundTrips<bool>(false);
    expectRoundTrips<char>(-128);
    expectRoundTrips<char>(127);
    expectRoundTrips<unsigned char>(255);
    expectRoundTrips<short>(-32768);
    expectRoundTrips<unsigned short>(65535);
    expectRoundTrips(std::numeric_limits<int>::min());
    expectRoundTrips(std::numeric_limits<unsigned>::max());
    expectRoundTrips(std::numeric_limits<long>::min());
    expectRoundTrips(std::numeric_limits<unsigned long>::max());
    expectRoundTrips(std::numeric_limits<long long>::min());
    expectRoundTrips(std::numeric_limits<unsigned long long>::max());
    expectRoundTrips(1.25f);
    expectRoundTrips(-1.5e-7);
    expectRoundTrips(tavTime::from("2022-01-01~11:09:29.007"));
    expectRoundTrips(tavBytes(tav_istr("\0\xFF(:)", 5)));
    expectRoundTrips(tavBytes());
    expectRoundTrips(tavString("x:y (z) \"'^ *"));
    expectRoundTrips(tavString(" x "));
    expectRoundTrips(tavString());
    expectRoundTrips(std::string("plain text"));
    expectRoundTrips(tavWstring(L"w\u00E4"));
    expectRoundTrips(L'\u00E4');
}

TEST(PmlFields, ValuesAreTextsOfOneUnit) {
    EXPECT_EQ(text(true), "v(true)");
    EXPECT_EQ(text('A'), "v(65)");
    EXPECT_EQ(text(-5), "v(-5)");
    EXPECT_EQ(text(0.1), "v(0.1)");
    EXPECT_EQ(text(tavString("x:y")), "v(\"x:y\")");
    EXPECT_EQ(text(tavString()), "v()");
    EXPECT_EQ(text(tavBytes("Hello")), "v(SGVsbG8=)");
    tavTime const time = tavTime::from("2022-01-01~11:09:29.007");
    EXPECT_EQ("v(\"" + std::string(tav_istr(time.str())) + "\")", text(time));
}

TEST(PmlFields, NumbersWithAPresetValueAndEnums) {
    registerMoods();
    EXPECT_EQ(text(tavNumber<int, 3>()), "v(3)");
    EXPECT_EQ((parsed<tavNumber<int, 3>>("")), 3);
    EXPECT_EQ((parsed<tavNumber<int, 3>>("v(abc)")), 3);
    EXPECT_EQ((parsed<tavNumber<int, 3>>("v(9)")), 9);
    EXPECT_EQ(text(tavEnum<Mood>(Mood::worse)), "v(7)");
    EXPECT_EQ(parsed<tavEnum<Mood>>("v(7)").value(), 7);
    EXPECT_EQ(throughNbr(tavEnum<Mood>(Mood::worse)).value(), 7);
    try {
        parsed<tavEnum<Mood>>("v(5)");
        FAIL();
    } catch (std::invalid_argument const & e) {
        EXPECT_EQ(std::string(e.what()).find("invalid enum field name v value 5"), 0u) << e.what();
    }
}

TEST(PmlFields, NestedObjectsHaveTheirClassAsType) {
    EXPECT_EQ(text(Point(5, "a")), "v:Point(x(5)label(a))");
    expectRoundTrips(Point(5, "a"));
    EXPECT_EQ(
        [] {
            Holder<Holder<Point>> deep;
            return pmlOf(deep);
        }(),
        ":Holder(v:Holder(v:Point(x(0)label())))");
}

TEST(PmlFields, SharedObjectsAreMadeWhenTheFieldIsThere) {
    typedef tavSharedPtr<Point> Shared;
    EXPECT_EQ(text(Shared(new Point(5, "a"))), "v:Point(x(5)label(a))");
    EXPECT_EQ(text(Shared()), "v()");
    EXPECT_EQ(parsed<Shared>(""), nullptr);
    Shared const made = parsed<Shared>("v(x(4))");
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->x, 4);
    Shared const held(new Point(1, "held"));
    EXPECT_EQ(held, parsed("v(x(4))", held));
    EXPECT_EQ(held->x, 4);
    EXPECT_EQ(held->label, "held");
    EXPECT_NE(parsed<Shared>("v()"), nullptr); // an empty unit is a unit
}

TEST(PmlFields, ListsHoldNamelessUnits) {
    EXPECT_EQ(text(std::vector<int>{1, 2, 3}), "v((1)(2)(3))");
    EXPECT_EQ(text(std::vector<int>{5}), "v((5))");
    EXPECT_EQ(text(std::vector<int>()), "v()");
    EXPECT_EQ(text(std::vector<Point>{Point(1, "a"), Point(2, "b")}),
              "v(:Point(x(1)label(a)):Point(x(2)label(b)))");
    EXPECT_EQ(text(std::vector<std::vector<int>>{{1, 2}, {3}}), "v(((1)(2))((3)))");
}

TEST(PmlFields, ListsOfEverySimpleTypeRoundTrip) {
    expectRoundTrips(std::vector<bool>{true, false, true});
    expectRoundTrips(std::vector<char>{1, -1});
    expectRoundTrips(std::vector<unsigned char>{1, 255});
    expectRoundTrips(std::vector<short>{1, -1});
    expectRoundTrips(std::vector<unsigned short>{1, 65535});
    expectRoundTrips(std::vector<int>{1, -1, 0});
    expectRoundTrips(std::vector<unsigned>{1, 0xFFFFFFFFu});
    expectRoundTrips(std::vector<long>{1, -1});
    expectRoundTrips(std::vector<unsigned long>{1, ~0ul});
    expectRoundTrips(std::vector<long long>{1, -1});
    expectRoundTrips(std::vector<unsigned long long>{1, ~0ull});
    expectRoundTrips(std::vector<float>{1.5f, 0});
    expectRoundTrips(std::vector<double>{1.5, 0});
    expectRoundTrips(std::vector<tavString>{"a", "", "b c", ")("});
    expectRoundTrips(std::vector<tavString>{""});
    expectRoundTrips(std::vector<std::string>{"a", ""});
    expectRoundTrips(std::vector<tavWstring>{L"a", L"\u00E4"});
    expectRoundTrips(std::vector<tavBytes>{tavBytes("a"), tavBytes()});
    expectRoundTrips(std::vector<tavTime>{tavTime::from("2022-01-01~11:09:29.007")});
}

TEST(PmlFields, EveryKindOfListRoundTrips) {
    expectRoundTrips(std::list<int>{3, 1});
    expectRoundTrips(std::deque<int>{3, 1});
    expectRoundTrips(std::set<int>{3, 1});
    expectRoundTrips(std::set<tavString>{"b", "a"});
    expectRoundTrips(std::vector<Point>{Point(1, "a"), Point()});
    expectRoundTrips(std::vector<std::vector<tavString>>{{"a", "b"}, {}, {"c"}});
}

TEST(PmlFields, AListThatIsThereReplacesAndOneThatIsNotKeeps) {
    EXPECT_EQ((std::vector<int>{7}), parsed<std::vector<int>>("", {7}));
    EXPECT_EQ((std::vector<int>{}), parsed<std::vector<int>>("v()", {7}));
    EXPECT_EQ((std::vector<int>{1, 0, 3}), parsed<std::vector<int>>("v((1)(x)named(3))", {7}));
}

TEST(PmlFields, MapsHoldUnitsNamedByTheirKeys) {
    EXPECT_EQ(text(std::map<tavString, int>{{"b", 2}, {"a", 1}}), "v(a(1)b(2))");
    EXPECT_EQ(text(std::map<int, tavString>{{12, "y"}, {-3, "x"}}), "v(-3(x)12(y))");
    EXPECT_EQ(text(std::map<int, int>()), "v()");
    EXPECT_EQ(text(std::map<std::string, Point>{{"a", Point(1, "")}}), "v(a:Point(x(1)label()))");
    registerMoods();
    EXPECT_EQ(text(std::map<tavEnum<Mood>, tavString>{{Mood::bad, "x"}, {Mood::worse, "y"}}), "v(1(x)7(y))");
}

TEST(PmlFields, MapsWithEveryKindOfKeyRoundTrip) {
    expectRoundTrips(std::map<tavString, int>{{"a", 1}, {"b c", 2}});
    expectRoundTrips(std::map<std::string, tavString>{{"a", "x"}, {"b", ""}});
    expectRoundTrips(std::map<tavWstring, int>{{L"\u00E4", 1}});
    expectRoundTrips(std::map<char, int>{{1, 1}, {-1, 2}});
    expectRoundTrips(std::map<int, int>{{-1, 1}, {0, 2}});
    expectRoundTrips(std::map<unsigned long long, int>{{~0ull, 1}});
    expectRoundTrips(std::map<long, std::vector<int>>{{1, {1, 2}}, {2, {}}});
    expectRoundTrips(std::unordered_map<int, tavString>{{1, "a"}, {2, "b"}});
    expectRoundTrips(std::map<tavString, std::map<int, tavBytes>>{{"m", {{1, tavBytes("x")}}}});
    registerMoods();
    typedef std::map<tavEnum<Mood>, int> Moods;
    Moods const moods = throughPml(Moods{{Mood::bad, 1}, {Mood::worse, 2}});
    ASSERT_EQ(moods.size(), 2u);
    EXPECT_EQ(moods.at(Mood::bad), 1);
    EXPECT_EQ(moods.at(Mood::worse), 2);
}

TEST(PmlFields, OfEntriesWithOneKeyTheLastStays) {
    EXPECT_EQ((std::map<tavString, int>{{"a", 3}, {"b", 2}}),
              (parsed<std::map<tavString, int>>("v(a(1)b(2)a(3))", {{"z", 9}})));
}

TEST(PmlFields, OptionalsThatAreSetRoundTrip) {
    tavOptional<int> const number = throughPml(tavOptional<int>(5));
    EXPECT_TRUE(number.has_value());
    EXPECT_EQ(*number, 5);
    tavOptional<Point> const point = throughPml(tavOptional<Point>(Point(5, "a")));
    EXPECT_TRUE(point.has_value());
    EXPECT_EQ(Point(5, "a"), *point);
    tavOptional<std::vector<int>> const list = throughPml(tavOptional<std::vector<int>>({1, 2}));
    EXPECT_EQ((std::vector<int>{1, 2}), *list);
}

TEST(PmlFields, AnUnsetOptionalIsAnEmptyUnitAndComesBackSet) {
    EXPECT_EQ(text(tavOptional<int>()), "v()");
    tavOptional<int> const number = throughPml(tavOptional<int>());
    EXPECT_TRUE(number.has_value());
    EXPECT_EQ(*number, 0);
    EXPECT_TRUE(throughPml(tavOptional<tavString>()).has_value());
    EXPECT_FALSE(throughNbr(tavOptional<int>()).has_value());
}

TEST(PmlFields, AnUnsetOptionalWithAnOptionalMetaIsLeftOut) {
    Holder<tavOptional<int>> holder;
    holder.meta = tavCodecMeta(-1, false, nullptr, true);
    EXPECT_EQ(pmlOf(holder), ":Holder()");
    EXPECT_FALSE(parsed<tavOptional<int>>("").has_value());
    // An empty value that is no tavOptional is written, as nothing is hidden.
    Holder<int> zero;
    zero.meta = tavCodecMeta(-1, false, nullptr, true);
    EXPECT_EQ(pmlOf(zero), ":Holder(v(0))");
}

TEST(PmlFields, WritingAnObjectTwiceJoinsItsTexts) {
    Point point(5, "a");
    tavPmlOutStream s;
    point.io(s);
    point.io(s);
    EXPECT_EQ(s.str(false, false), ":Point(x(55)label(aa))");
}

TEST(PmlFields, FormattedTextReadsBack) {
    Holder<std::vector<Point>> holder({Point(1, "a b"), Point(2, ": ")});
    for (bool const formatted : {false, true}) {
        for (bool const skipEmpty : {false, true}) {
            tavPmlOutStream out;
            holder.io(out);
            std::string pml = out.str(formatted, skipEmpty);
            // The ids of the formatted text become part of the names; take them off.
            for (std::size_t at; (at = pml.find("[0]")) != std::string::npos;) {
                pml.erase(at, 3);
            }
            tavPmlInStream in{tav_istr(pml)};
            Holder<std::vector<Point>> result;
            result.io(in);
            EXPECT_EQ(holder.v, result.v) << pml;
        }
    }
}

TEST(PmlFields, AMessageExtensionTravelsWithEmptyUnits) {
    tavMsgExt ext;
    ext.serverTime = 5;
    EXPECT_EQ(pmlOf(ext), ":tavMsgExt(serverTime(5)clientTime()traceId())");
}
