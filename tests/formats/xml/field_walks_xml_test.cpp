#include "tav/vinta/vinta_xml_streams.h"

#include "tav/vinta/vinta_nbr_unit.h"
#include "tav/vinta/vinta_object.h"
#include "tav/vinta/vinta_pml_streams.h"

#include <gtest/gtest.h>

#include <deque>
#include <limits>
#include <list>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

enum class Tint { none = 0, red = 1, blue = 9 };

void registerTints() {
    tavEnum<Tint>::add(Tint::none, "none");
    tavEnum<Tint>::add(Tint::red, "red");
    tavEnum<Tint>::add(Tint::blue, "blue");
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
    friend bool operator<(Point const & a, Point const & b) { return a.x < b.x; }

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

std::string xmlOf(tavObject & object, bool pretty = false) {
    tavXmlOutStream s("");
    object.io(s);
    return std::string(tav_istr(s.str(pretty)));
}

template <class T>
std::string xml(T v, bool pretty = false) {
    Holder<T> holder(std::move(v));
    return xmlOf(holder, pretty);
}

/// The compact text of a holder of `v`, without the frame <Holder> ... </Holder>.
template <class T>
std::string text(T v) {
    std::string const all = xml(std::move(v));
    std::string const head = "<Holder>";
    std::string const tail = "</Holder>";
    EXPECT_EQ(all.find(head), 0u) << all;
    EXPECT_EQ(all.size() - tail.size(), all.rfind(tail)) << all;
    return all.substr(head.size(), all.size() - head.size() - tail.size());
}

template <class T>
T fromXml(std::string const & document, T before = T()) {
    Holder<T> holder(std::move(before));
    tavXmlInStream s((tav_istr(document)));
    holder.io(s);
    return holder.v;
}

/// What a holder that held `before` holds after it read `fields`.
template <class T>
T parsed(std::string const & fields, T before = T()) {
    return fromXml<T>("<Holder>" + fields + "</Holder>", std::move(before));
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

template <class T>
T throughPml(T const & v) {
    Holder<T> holder(v);
    tavPmlOutStream out;
    holder.io(out);
    Holder<T> result;
    tavPmlInStream in(tav_istr(out.str(false, false)));
    result.io(in);
    return result.v;
}

/// `v` comes back from XML in both forms, and from the two other encodings.
template <class T>
void expectRoundTrips(T const & v) {
    EXPECT_TRUE(fromXml<T>(xml(v)) == v) << xml(v);
    EXPECT_TRUE(fromXml<T>(xml(v, true)) == v) << xml(v, true);
    EXPECT_TRUE(throughNbr(v) == v);
    EXPECT_TRUE(throughPml(v) == v);
}

template <class T>
void expectListsRoundTrip(std::initializer_list<T> values) {
    expectRoundTrips(std::vector<T>(values));
    expectRoundTrips(std::list<T>(values));
    expectRoundTrips(std::deque<T>(values));
    expectRoundTrips(std::set<T>(values));
    expectRoundTrips(std::map<tavString, T>{{"a", *values.begin()}, {"b", *(values.end() - 1)}});
}

template <class T>
T lowest() {
    return std::numeric_limits<T>::min();
}

template <class T>
T highest() {
    return std::numeric_limits<T>::max();
}

} // namespace

TEST(FieldWalksXml, ObjectIsAnElementOfItsClassWithItsFieldsAsChildren) {
    Point point(5, "a b");
    EXPECT_EQ(xmlOf(point), "<Point><x>5</x><label>a b</label></Point>");
    EXPECT_EQ(xmlOf(point, true),
              "\n    <Point>\n        <x>5</x>\n        <label>a b</label>\n    </Point>");
}

TEST(FieldWalksXml, FieldsAreFoundByNameInAnyOrderAndUnknownOnesArePassedOver) {
    Point point(1, "kept");
    tavXmlInStream in("<Other label='no'><y>7</y><x>5</x></Other>");
    point.io(in);
    EXPECT_TRUE(point == Point(5, "kept"));
    tavXmlInStream all("<P><label>t</label><x>6</x></P>");
    point.io(all);
    EXPECT_TRUE(point == Point(6, "t"));
}

TEST(FieldWalksXml, EverySimpleTypeTravels) {
    expectRoundTrips(true);
    expectRoundTrips(static_cast<char>(-128));
    expectRoundTrips(static_cast<unsigned char>(255));
    expectRoundTrips(lowest<short>());
    expectRoundTrips(highest<unsigned short>());
    expectRoundTrips(lowest<int>());
    expectRoundTrips(highest<unsigned>());
    expectRoundTrips(lowest<long>());
    expectRoundTrips(highest<unsigned long>());
    expectRoundTrips(lowest<long long>());
    expectRoundTrips(highest<unsigned long long>());
    expectRoundTrips(-1.5f);
    expectRoundTrips(2.5e-7);
    expectRoundTrips(tavString("a <b> & \"c\" ]] d"));
    expectRoundTrips(tavString("a ]]> b"));
    expectRoundTrips(std::string("text"));
    expectRoundTrips(tavWstring(L"\u20ac \u4e2d"));
    expectRoundTrips(L'\u20ac');
    expectRoundTrips(tavBytes(tav_istr("\0<&", 3u)));
    expectRoundTrips(tavTime::milliseconds(1700000000123ll));
    expectRoundTrips(tavNumber<int, 5>(7));
}

TEST(FieldWalksXml, ListsOfEverySimpleTypeTravel) {
    expectRoundTrips(std::vector<bool>{true, false, true});
    expectListsRoundTrip<char>({lowest<char>(), 0, highest<char>()});
    expectListsRoundTrip<unsigned char>({0, 7, 255});
    expectListsRoundTrip<short>({lowest<short>(), 0, highest<short>()});
    expectListsRoundTrip<unsigned short>({0, highest<unsigned short>()});
    expectListsRoundTrip<int>({lowest<int>(), 0, highest<int>()});
    expectListsRoundTrip<unsigned>({0, highest<unsigned>()});
    expectListsRoundTrip<long>({lowest<long>(), 0, highest<long>()});
    expectListsRoundTrip<unsigned long>({0, highest<unsigned long>()});
    expectListsRoundTrip<long long>({lowest<long long>(), 0, highest<long long>()});
    expectListsRoundTrip<unsigned long long>({0, highest<unsigned long long>()});
    expectListsRoundTrip<float>({-0.5f, 1.25f});
    expectListsRoundTrip<double>({-2.5, 1e300});
    expectListsRoundTrip<tavString>({"a", "b<c"});
    expectListsRoundTrip<std::string>({"a", "b&c"});
    expectListsRoundTrip<tavWstring>({tavWstring(L"\u00e4"), tavWstring(L"\u4e2d")});
    expectListsRoundTrip<wchar_t>({L'a', L'\u20ac'});
    expectRoundTrips(std::vector<tavBytes>{tavBytes(tav_istr("x")), tavBytes(tav_istr("\0\xff", 2u))});
    expectRoundTrips(std::vector<tavTime>{tavTime::milliseconds(5000), tavTime::milliseconds(1700000000123)});
    expectRoundTrips(std::vector<tavNumber<int, 5>>{1, 5});
}

TEST(FieldWalksXml, ElementsOfAListHaveTheTagAnyAndAreReadByPosition) {
    EXPECT_EQ(text(std::vector<int>{1, 2}), "<v><any>1</any><any>2</any></v>");
    EXPECT_EQ((std::vector<int>{3, 1, 2}), parsed<std::vector<int>>("<v><z>3</z><any>1</any><a>2</a></v>"));
}

TEST(FieldWalksXml, ListThatIsPresentReplacesAndOneThatIsMissingKeeps) {
    EXPECT_EQ((std::vector<int>{4}), parsed<std::vector<int>>("<v><any>4</any></v>", {1, 2}));
    EXPECT_EQ((std::vector<int>{}), parsed<std::vector<int>>("<v/>", {1, 2}));
    EXPECT_EQ((std::vector<int>{1, 2}), parsed<std::vector<int>>("<w/>", {1, 2}));
    EXPECT_EQ((std::vector<int>{0, 5}), parsed<std::vector<int>>("<v><any>x</any><any>5</any></v>"));
}

TEST(FieldWalksXml, ObjectsTravelByValueSharedAndInContainers) {
    Point const a(1, "a");
    Point const b(2, "b");
    EXPECT_EQ(text(a), "<v><x>1</x><label>a</label></v>");
    EXPECT_EQ(text(std::vector<Point>{a}), "<v><any><x>1</x><label>a</label></any></v>");
    EXPECT_EQ((text(std::map<tavString, Point>{{"k", a}})), "<v><k><x>1</x><label>a</label></k></v>");
    expectRoundTrips(a);
    expectListsRoundTrip<Point>({a, b});
    expectRoundTrips(std::unordered_map<std::string, Point>{{"a", a}, {"b", b}});
}

TEST(FieldWalksXml, SharedObjectsAreMadeOnInput) {
    using Shared = tavSharedPtr<Point>;
    Shared const a(new Point(1, "a"));
    EXPECT_EQ(text(a), "<v><x>1</x><label>a</label></v>");
    Shared const read = fromXml<Shared>(xml(a));
    ASSERT_TRUE(read);
    EXPECT_TRUE(*read == *a);
    EXPECT_TRUE(*throughNbr(a) == *a);
    EXPECT_TRUE(*throughPml(a) == *a);
    auto const list = fromXml<std::vector<Shared>>(xml(std::vector<Shared>{a, a}));
    ASSERT_EQ(list.size(), 2u);
    EXPECT_TRUE(*list[0] == *a && *list[1] == *a);
    EXPECT_NE(list[0], list[1]);
    auto const map = fromXml<std::map<tavString, Shared>>(xml(std::map<tavString, Shared>{{"k", a}}));
    ASSERT_EQ(map.size(), 1u);
    EXPECT_TRUE(*map.at("k") == *a);
}

TEST(FieldWalksXml, NullSharedObjectIsLeftOutOfTheCompactFormOnly) {
    using Shared = tavSharedPtr<Point>;
    EXPECT_EQ(xml(Shared()), "<Holder></Holder>");
    EXPECT_FALSE(fromXml<Shared>(xml(Shared())));
    EXPECT_TRUE(fromXml<Shared>(xml(Shared(), true)));
}

TEST(FieldWalksXml, EntriesOfAMapHaveTheirKeysAsTags) {
    EXPECT_EQ((text(std::map<tavString, int>{{"k", 1}, {"m", 2}})), "<v><k>1</k><m>2</m></v>");
    EXPECT_EQ((std::map<tavString, int>{{"k", 3}, {"m", 2}}),
              (parsed<std::map<tavString, int>>("<v><k>1</k><m>2</m><k>3</k></v>", {{"old", 9}})));
    expectRoundTrips(std::map<tavString, int>{{"k", 1}, {"m", 2}});
    std::map<std::string, tavString> const names{{"k.1", "a"}, {"_m:n-2", "b"}};
    EXPECT_EQ(names, (fromXml<std::map<std::string, tavString>>(xml(names))));
    expectRoundTrips(std::map<tavWstring, int>{{tavWstring(L"key"), 1}});
    expectRoundTrips(std::map<wchar_t, int>{{L'k', 1}});
    expectRoundTrips(std::unordered_map<std::string, int>{{"k", 1}, {"m", 2}});
}

TEST(FieldWalksXml, KeyThatIsNoTagIsWrittenButNotReadBack) {
    EXPECT_EQ((text(std::map<int, int>{{1, 5}})), "<v><1>5</1></v>");
    EXPECT_TRUE((fromXml<std::map<int, int>>(xml(std::map<int, int>{{1, 5}}))).empty());
    EXPECT_TRUE((fromXml<std::map<tavString, int>>(xml(std::map<tavString, int>{{"a b", 5}}))).empty());
}

TEST(FieldWalksXml, OptionalTravelsIfSet) {
    tavOptional<int> set;
    set = 5;
    EXPECT_EQ(text(set), "<v>5</v>");
    EXPECT_EQ(fromXml<tavOptional<int>>(xml(set)).value(), 5);
    EXPECT_EQ(throughNbr(set).value(), 5);
    EXPECT_EQ(throughPml(set).value(), 5);
    tavOptional<std::vector<Point>> list;
    list = std::vector<Point>{Point(1, "a")};
    EXPECT_TRUE(fromXml<tavOptional<std::vector<Point>>>(xml(list)).value() == list.value());
    tavOptional<Point> object;
    object = Point(3, "c");
    EXPECT_TRUE(fromXml<tavOptional<Point>>(xml(object, true)).value() == object.value());
    tavOptional<std::map<tavString, int>> map;
    map = std::map<tavString, int>{{"k", 1}};
    EXPECT_TRUE((fromXml<tavOptional<std::map<tavString, int>>>(xml(map)).value() == map.value()));
}

TEST(FieldWalksXml, UnsetOptionalIsLeftOutOfTheCompactFormAndAnEmptyElementSetsOne) {
    using Optional = tavOptional<int>;
    EXPECT_EQ(xml(Optional()), "<Holder></Holder>");
    EXPECT_FALSE(fromXml<Optional>(xml(Optional())).has_value());
    EXPECT_NE(xml(Optional(), true).find("<v/>"), std::string::npos);
    EXPECT_TRUE(parsed<Optional>("<v/>").has_value());
    Holder<Optional> holder;
    holder.meta = tavCodecMeta(-1, false, nullptr, true);
    EXPECT_EQ(xmlOf(holder, true).find("<v"), std::string::npos);
}

TEST(FieldWalksXml, EnumTravelsAsItsNumberAndAnUnknownOneFails) {
    registerTints();
    EXPECT_EQ(text(tavEnum<Tint>(Tint::blue)), "<v>9</v>");
    expectRoundTrips(tavEnum<Tint>(Tint::red));
    expectListsRoundTrip<tavEnum<Tint>>({Tint::none, Tint::red, Tint::blue});
    tavOptional<tavEnum<Tint>> set;
    set = tavEnum<Tint>(Tint::blue);
    EXPECT_TRUE(fromXml<tavOptional<tavEnum<Tint>>>(xml(set)).value() == Tint::blue);
    try {
        parsed<tavEnum<Tint>>("<v>5</v>");
        FAIL() << "an unknown value was taken";
    } catch (std::invalid_argument const & e) {
        EXPECT_EQ(std::string(e.what()).find("invalid enum field name v value 5"), 0u) << e.what();
    }
}

TEST(FieldWalksXml, ContainersNest) {
    EXPECT_EQ(text(std::vector<std::vector<int>>{{1}, {2, 3}}),
              "<v><any><any>1</any></any><any><any>2</any><any>3</any></any></v>");
    expectRoundTrips(std::vector<std::vector<std::vector<int>>>{{{1, 2}, {3}}, {{4}}});
    expectRoundTrips(std::map<tavString, std::vector<int>>{{"a", {1, 2}}, {"b", {3}}});
    expectRoundTrips(std::vector<std::map<tavString, Point>>{{{"a", Point(1, "x")}}, {{"b", Point(2, "y")}}});
    expectRoundTrips(std::map<tavString, std::map<tavString, std::list<tavString>>>{
        {"a", {{"b", {"x", "y"}}, {"c", {"z"}}}}});
    expectRoundTrips(std::set<std::vector<int>>{{1}, {2, 3}});
}

TEST(FieldWalksXml, EmptyPartsAreKeptByThePrettyFormOnly) {
    std::vector<tavString> const texts{"", "a", ""};
    EXPECT_EQ(text(texts), "<v><any>a</any></v>");
    EXPECT_EQ((std::vector<tavString>{"a"}), fromXml<std::vector<tavString>>(xml(texts)));
    EXPECT_EQ(texts, fromXml<std::vector<tavString>>(xml(texts, true)));
    std::vector<std::vector<int>> const lists{{}, {1}};
    EXPECT_EQ(lists, fromXml<std::vector<std::vector<int>>>(xml(lists, true)));
    EXPECT_EQ(tavString("former"), fromXml<tavString>(xml(tavString()), "former"));
    EXPECT_EQ(tavString(), fromXml<tavString>(xml(tavString(), true), "former"));
}

TEST(FieldWalksXml, TextLosesLeadingBlanksAndItsOwnEntities) {
    EXPECT_EQ(tavString("a "), fromXml<tavString>(xml(tavString(" \na "))));
    EXPECT_EQ(tavString(" <a"), fromXml<tavString>(xml(tavString(" <a"))));
    EXPECT_EQ(tavString("<"), fromXml<tavString>(xml(tavString("&lt;"))));
    EXPECT_EQ(tavString("a & b"), fromXml<tavString>(xml(tavString("a & b"))));
}

TEST(FieldWalksXml, FloatingPointKeepsSixDigits) {
    EXPECT_EQ(text(1.23456789), "<v>1.23457</v>");
    EXPECT_EQ(fromXml<double>(xml(1.23456789)), 1.23457);
}
