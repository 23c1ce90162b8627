#include "tav/vinta/vinta_object_fields.h"

#include "support/log_capture.h"
#include "support/recording_stream.h"

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

using tav_test::Node;
using tav_test::RecordingStream;
using Calls = RecordingStream::Calls;
using Options = RecordingStream::Options;

constexpr char const * none = "{-1, false, , false}";

Options hiding() {
    Options options;
    options.hides = true;
    return options;
}
Options combined() {
    Options options;
    options.combined = true;
    return options;
}

template <class T>
Calls write(T value, tavCodecMeta const & meta = tavCodecMeta(), Options options = Options()) {
    Calls calls;
    RecordingStream s(calls, options);
    ioField(s, 1, "a", value, meta);
    return calls;
}

template <class T>
Calls read(T & value, Node const & node, tavCodecMeta const & meta = tavCodecMeta(),
           Options options = Options()) {
    Calls calls;
    Node const root = Node::object({{"1:a", node}});
    RecordingStream s(calls, options, root);
    ioField(s, 1, "a", value, meta);
    return calls;
}

/// The calls on the field's own stream, behind "field" and "child".
Calls body(Calls const & calls) {
    return Calls(calls.begin() + 2, calls.end());
}

template <class T>
bool isLeftOut(T value, bool optional = true, bool hides = true) {
    Options options;
    options.hides = hides;
    Calls const calls = write(value, tavCodecMeta(-1, false, nullptr, optional), options);
    EXPECT_EQ(calls.front().compare(0, 9, "field 1:a"), 0);
    return calls.size() == 1;
}

enum class Color { unset = 0, red = 1, green = 2, other = 9 };

void registerColors() {
    tavEnum<Color>::add(Color::red, "red");
    tavEnum<Color>::add(Color::green, "green");
}

/// An object with one field, that may call itself empty.
class Point : public tavCodecInterface {
public:
    int x = 0;
    bool callsItselfEmpty = false;

    void io(tavCodecStream & s) override {
        s.enter("Point", "tavObject");
        ioField(s, 7, "x", x);
        s.leave();
    }
    bool empty() const override { return callsItselfEmpty; }
};

class Shared : public Point, public tavSharedObject {
public:
    ~Shared() override { ++destroyed; }
    static int destroyed;
};
int Shared::destroyed = 0;

} // namespace

TEST(FieldWalkIoField, TellsTheStreamOfTheFieldThenAsksForAChildThenForTheValue) {
    EXPECT_EQ(write(5, tavCodecMeta(3, false, "1..9", false)),
              (Calls{"field 1:a ( ) {3, false, 1..9, false}", "child 1:a",
                     "/1:a io int 5 {3, false, 1..9, false}"}));
}

TEST(FieldWalkIoField, MetaIsTheDefaultOneIfNoneIsGiven) {
    Calls calls;
    RecordingStream s(calls, Options());
    int value = 3;
    ioField(s, -1, "z", value);
    EXPECT_EQ(calls, (Calls{std::string("field -1:z ( ) ") + none, "child -1:z",
                            std::string("/-1:z io int 3 ") + none}));
}

TEST(FieldWalkIoField, MarksTheStreamAsFilledBeforeItAsksForAChild) {
    Calls calls;
    RecordingStream s(calls, Options());
    int value = 0;
    EXPECT_TRUE(s.isEmpty());
    ioField(s, 1, "a", value);
    EXPECT_FALSE(s.isEmpty());
    EXPECT_EQ(calls[1], "child 1:a");
}

TEST(FieldWalkIoField, MarksTheStreamAsFilledEvenWithoutAChild) {
    Options options;
    options.givesChildren = false;
    Calls calls;
    RecordingStream s(calls, options);
    int value = 0;
    ioField(s, 1, "a", value);
    EXPECT_FALSE(s.isEmpty());
    EXPECT_EQ(calls.size(), 2u);
}

TEST(FieldWalkIoField, FieldLeftOutIsToldAndLeavesTheStreamEmpty) {
    Calls calls;
    RecordingStream s(calls, hiding());
    int value = 0;
    ioField(s, 1, "a", value, tavCodecMeta(3, false, nullptr, true));
    EXPECT_EQ(calls, Calls{"field 1:a ( ) {3, false, , true}"});
    EXPECT_TRUE(s.isEmpty());
}

TEST(FieldWalkIoField, LeavesOutOnlyIfOptionalHidingAndEmpty) {
    EXPECT_TRUE(isLeftOut(0, true, true));
    EXPECT_FALSE(isLeftOut(0, false, true));
    EXPECT_FALSE(isLeftOut(0, true, false));
    EXPECT_FALSE(isLeftOut(1, true, true));
}

TEST(FieldWalkIoField, NothingIsLeftOutOnInput) {
    int value = 0;
    Calls const calls = read(value, Node::of(4), tavCodecMeta(3, false, nullptr, true), hiding());
    EXPECT_EQ(value, 4);
    EXPECT_EQ(calls.size(), 3u);
}

TEST(FieldWalkIoField, EmptyMeansZeroFalseOrNoBytes) {
    EXPECT_TRUE(isLeftOut(tavTime()));
    EXPECT_FALSE(isLeftOut(tavTime::milliseconds(1)));
    EXPECT_TRUE(isLeftOut(tavBytes()));
    EXPECT_FALSE(isLeftOut(tavBytes(tav_istr("\0", 1))));
    EXPECT_TRUE(isLeftOut(tavString()));
    EXPECT_FALSE(isLeftOut(tavString("0")));
    EXPECT_TRUE(isLeftOut(0.0));
    EXPECT_TRUE(isLeftOut(-0.0));
    EXPECT_FALSE(isLeftOut(1e-300));
    EXPECT_TRUE(isLeftOut(0.0f));
    EXPECT_FALSE(isLeftOut(0.5f));
    EXPECT_TRUE(isLeftOut(0ull));
    EXPECT_FALSE(isLeftOut(1ull << 63));
    EXPECT_TRUE(isLeftOut(0ll));
    EXPECT_FALSE(isLeftOut(-1ll));
    EXPECT_TRUE(isLeftOut(0ul));
    EXPECT_FALSE(isLeftOut(1ul));
    EXPECT_TRUE(isLeftOut(0l));
    EXPECT_FALSE(isLeftOut(1l));
    EXPECT_TRUE(isLeftOut(0u));
    EXPECT_FALSE(isLeftOut(1u));
    EXPECT_TRUE(isLeftOut(static_cast<unsigned short>(0)));
    EXPECT_FALSE(isLeftOut(static_cast<unsigned short>(1)));
    EXPECT_TRUE(isLeftOut(static_cast<short>(0)));
    EXPECT_FALSE(isLeftOut(static_cast<short>(-1)));
    EXPECT_TRUE(isLeftOut(static_cast<unsigned char>(0)));
    EXPECT_FALSE(isLeftOut(static_cast<unsigned char>(1)));
    EXPECT_TRUE(isLeftOut('\0'));
    EXPECT_FALSE(isLeftOut('0'));
    EXPECT_TRUE(isLeftOut(false));
    EXPECT_FALSE(isLeftOut(true));
    EXPECT_TRUE(isLeftOut(std::string()));
    EXPECT_FALSE(isLeftOut(std::string(1, '\0')));
    EXPECT_TRUE(isLeftOut(tavWstring()));
    EXPECT_FALSE(isLeftOut(tavWstring(L"x")));
    EXPECT_TRUE(isLeftOut(L'\0'));
    EXPECT_FALSE(isLeftOut(L'x'));
}

TEST(FieldWalkIoField, EmptyMeansForWrappersThatTheirValueIsZero) {
    EXPECT_TRUE(isLeftOut(tavNumber<int, 7>(0)));
    EXPECT_FALSE(isLeftOut(tavNumber<int, 7>()));
    EXPECT_TRUE(isLeftOut(tavEnum<Color>()));
    EXPECT_FALSE(isLeftOut(tavEnum<Color>(Color::red)));
}

TEST(FieldWalkIoField, EmptyMeansForObjectsWhatTheySay) {
    Point point;
    EXPECT_FALSE(isLeftOut(point));
    point.callsItselfEmpty = true;
    EXPECT_TRUE(isLeftOut(point));
    tavSharedPtr<Shared> pointer;
    EXPECT_TRUE(isLeftOut(pointer));
    pointer = new Shared();
    EXPECT_FALSE(isLeftOut(pointer));
    pointer->callsItselfEmpty = true;
    EXPECT_TRUE(isLeftOut(pointer));
}

TEST(FieldWalkIoField, EmptyMeansForContainersThatTheyHoldNothing) {
    EXPECT_TRUE(isLeftOut(std::vector<int>()));
    EXPECT_FALSE(isLeftOut(std::vector<int>{0}));
    EXPECT_TRUE(isLeftOut(std::vector<bool>()));
    EXPECT_FALSE(isLeftOut(std::vector<bool>{false}));
    EXPECT_TRUE(isLeftOut(std::list<int>()));
    EXPECT_FALSE(isLeftOut(std::list<int>{0}));
    EXPECT_TRUE(isLeftOut(std::deque<int>()));
    EXPECT_FALSE(isLeftOut(std::deque<int>{0}));
    EXPECT_TRUE(isLeftOut(std::set<int>()));
    EXPECT_FALSE(isLeftOut(std::set<int>{0}));
    EXPECT_TRUE((isLeftOut(std::map<int, int>())));
    EXPECT_FALSE((isLeftOut(std::map<int, int>{{0, 0}})));
    EXPECT_TRUE((isLeftOut(std::unordered_map<int, int>())));
    EXPECT_FALSE((isLeftOut(std::unordered_map<int, int>{{0, 0}})));
}

TEST(FieldWalkIoField, EachSimpleTypeGoesToItsOwnIo) {
    auto const io = [](Calls const & calls) { return calls.at(2).substr(0, calls.at(2).find(" {")); };
    EXPECT_EQ(io(write(tavTime::milliseconds(9))), "/1:a io tavTime 9");
    EXPECT_EQ(io(write(tavBytes(tav_istr("b")))), "/1:a io tavBytes b");
    EXPECT_EQ(io(write(tavString("s"))), "/1:a io tavString s");
    EXPECT_EQ(io(write(1.5)), "/1:a io double 1.5");
    EXPECT_EQ(io(write(1.5f)), "/1:a io float 1.5");
    EXPECT_EQ(io(write(18446744073709551615ull)), "/1:a io ulonglong 18446744073709551615");
    EXPECT_EQ(io(write(-5ll)), "/1:a io longlong -5");
    EXPECT_EQ(io(write(5ul)), "/1:a io ulong 5");
    EXPECT_EQ(io(write(-5l)), "/1:a io long -5");
    EXPECT_EQ(io(write(5u)), "/1:a io uint 5");
    EXPECT_EQ(io(write(-5)), "/1:a io int -5");
    EXPECT_EQ(io(write(static_cast<unsigned short>(5))), "/1:a io ushort 5");
    EXPECT_EQ(io(write(static_cast<short>(-5))), "/1:a io short -5");
    EXPECT_EQ(io(write(static_cast<unsigned char>(5))), "/1:a io uchar 5");
    EXPECT_EQ(io(write(static_cast<char>(-5))), "/1:a io char -5");
    EXPECT_EQ(io(write(true)), "/1:a io bool true");
}

TEST(FieldWalkIoField, AdapterTypesGoToTavString) {
    EXPECT_EQ(body(write(std::string("s"))), Calls{std::string("/1:a io tavString s ") + none});
    EXPECT_EQ(body(write(tavWstring(L"w"))), Calls{std::string("/1:a io tavString w ") + none});
    EXPECT_EQ(body(write(L'c')), Calls{std::string("/1:a io tavString c ") + none});
}

TEST(FieldWalkIoField, InputFillsTheValueWithTheFieldsMeta) {
    int value = 1;
    EXPECT_EQ(read(value, Node::of(42), tavCodecMeta(3, false, nullptr, true)),
              (Calls{"field 1:a ( ) {3, false, , true}", "child 1:a", "/1:a io int ? {3, false, , true}"}));
    EXPECT_EQ(value, 42);
}

TEST(FieldWalkIoField, MissingFieldKeepsItsValue) {
    Calls calls;
    Node const nothing;
    RecordingStream s(calls, Options(), nothing);
    int number = 8;
    tavOptional<int> optional;
    std::vector<int> list{1, 2};
    std::map<int, int> map{{1, 2}};
    Point point;
    point.x = 6;
    tavSharedPtr<Shared> pointer;
    ioField(s, 1, "a", number);
    ioField(s, 2, "b", optional);
    ioField(s, 3, "c", list);
    ioField(s, 4, "d", map);
    ioField(s, 5, "e", point);
    ioField(s, 6, "f", pointer);
    EXPECT_EQ(number, 8);
    EXPECT_FALSE(optional.has_value());
    EXPECT_EQ(list, (std::vector<int>{1, 2}));
    EXPECT_EQ(map, (std::map<int, int>{{1, 2}}));
    EXPECT_EQ(point.x, 6);
    EXPECT_FALSE(pointer);
    EXPECT_FALSE(s.isEmpty());
    EXPECT_EQ(calls.size(), 12u);
}

TEST(FieldWalkIoField, NumberKeepsEveryBitOfItsPlainType) {
    tavNumber<double, 0> const negativeZero(-0.0);
    EXPECT_EQ(body(write(negativeZero)), Calls{std::string("/1:a io double -0 ") + none});
}

TEST(FieldWalkIoField, NumberTravelsAsItsPlainType) {
    EXPECT_EQ(body(write(tavNumber<short, 4>())), Calls{std::string("/1:a io short 4 ") + none});
    tavNumber<short, 4> value;
    read(value, Node::of(-2));
    EXPECT_EQ(value, -2);
}

TEST(FieldWalkIoField, EnumTravelsAsOneIntWithItsRegisteredValues) {
    registerColors();
    EXPECT_EQ(
        write(tavEnum<Color>(Color::green), tavCodecMeta(18)),
        (Calls{"field 1:a ( 1 2 ) {18, false, , false}", "child 1:a", "/1:a io int 2 {18, false, , false}"}));
    tavEnum<Color> value;
    read(value, Node::of(2));
    EXPECT_EQ(value, Color::green);
}

TEST(FieldWalkIoField, OptionalEnumDeclaresItsRegisteredValuesToo) {
    registerColors();
    EXPECT_EQ(write(tavOptional<tavEnum<Color>>())[0], std::string("field 1:a ( 1 2 ) ") + none);
    EXPECT_EQ(write(std::vector<tavEnum<Color>>())[0], std::string("field 1:a ( ) ") + none);
}

TEST(FieldWalkIoField, InvalidEnumValueNamesTheFieldAndTheValue) {
    registerColors();
    tav_test::LogCapture log;
    tavEnum<Color> value(Color::red);
    try {
        read(value, Node::of(-3));
        FAIL() << "-3 was taken";
    } catch (std::invalid_argument const & e) {
        std::string const what = e.what();
        EXPECT_EQ(what.find("invalid enum field name a value -3\n    throw at ioField(vinta_object.cpp:"), 0u)
            << what;
    }
    EXPECT_EQ(value, Color::red);
    EXPECT_EQ(log.count("<EXCEPTION> invalid enum field name a value -3"), 1u);
}

TEST(FieldWalkIoField, UnregisteredEnumDefaultSurvivesARoundTrip) {
    registerColors();
    tavEnum<Color> value;
    EXPECT_NO_THROW(read(value, Node::of(0)));
    EXPECT_EQ(value.value(), 0);
}

TEST(FieldWalkIoField, InvalidEnumElementsNameTheirField) {
    registerColors();
    std::vector<tavEnum<Color>> list;
    EXPECT_THROW(read(list, Node::list({Node::of(1), Node::of(77)})), std::invalid_argument);
    std::map<tavEnum<Color>, int> map;
    EXPECT_THROW(read(map, Node::object({{"55", Node::of(1)}}), tavCodecMeta(), combined()),
                 std::invalid_argument);
    tavOptional<tavEnum<Color>> optional;
    EXPECT_THROW(read(optional, Node::of(66)), std::invalid_argument);
}

TEST(FieldWalkIoField, UnsetOptionalIsWrittenAsNullUnlessItsMetaIsOptional) {
    EXPECT_EQ(write(tavOptional<int>(), tavCodecMeta(), hiding()),
              (Calls{std::string("field 1:a ( ) ") + none, "child 1:a", "/1:a writeNull"}));
    EXPECT_EQ(write(tavOptional<int>(), tavCodecMeta(3, false, nullptr, true)),
              Calls{"field 1:a ( ) {3, false, , true}"});
}

TEST(FieldWalkIoField, SetOptionalIsWrittenWithTheFieldsMetaWhateverIsHidden) {
    EXPECT_EQ(write(tavOptional<int>(0), tavCodecMeta(3, true, "*", true), hiding()),
              (Calls{"field 1:a ( ) {3, true, *, true}", "child 1:a", "/1:a io int 0 {3, true, *, true}"}));
}

TEST(FieldWalkIoField, OptionalLeftOutLeavesTheStreamEmpty) {
    Calls calls;
    RecordingStream s(calls, Options());
    tavOptional<int> value;
    ioField(s, 1, "a", value, tavCodecMeta(3, false, nullptr, true));
    EXPECT_TRUE(s.isEmpty());
}

TEST(FieldWalkIoField, OptionalIsReadWithADefaultMeta) {
    tavOptional<int> value;
    EXPECT_EQ(read(value, Node::of(5), tavCodecMeta(3, true, "*", true)),
              (Calls{"field 1:a ( ) {3, true, *, true}", "child 1:a", std::string("/1:a io int ? ") + none}));
    EXPECT_TRUE(value.has_value());
    EXPECT_EQ(*value, 5);
}

TEST(FieldWalkIoField, OptionalStaysAsItIsForANull) {
    tavOptional<int> value(4);
    EXPECT_EQ(body(read(value, Node::nullValue())), Calls{});
    EXPECT_TRUE(value.has_value());
    EXPECT_EQ(*value, 4);
    tavOptional<int> unset;
    read(unset, Node::nullValue());
    EXPECT_FALSE(unset.has_value());
}

TEST(FieldWalkIoField, OptionalsHoldEveryKindOfValue) {
    registerColors();
    tavOptional<std::vector<int>> list;
    read(list, Node::list({Node::of(1), Node::of(2)}));
    EXPECT_EQ(*list, (std::vector<int>{1, 2}));
    tavOptional<std::map<tavString, int>> map;
    read(map, Node::object({{"k", Node::of(1)}}), tavCodecMeta(), combined());
    EXPECT_EQ(map->at(tavString("k")), 1);
    tavOptional<Point> point;
    read(point, Node::object({{"7:x", Node::of(3)}}));
    EXPECT_EQ(point->x, 3);
    tavOptional<tavSharedPtr<Shared>> pointer;
    read(pointer, Node::object({{"7:x", Node::of(3)}}));
    EXPECT_EQ((*pointer)->x, 3);
    tavOptional<tavEnum<Color>> color;
    read(color, Node::of(2));
    EXPECT_EQ(*color, Color::green);
    tavOptional<tavNumber<int, 5>> number;
    read(number, Node::of(2));
    EXPECT_EQ(*number, 2);
    tavOptional<std::string> text;
    read(text, Node::of("t"));
    EXPECT_EQ(*text, "t");
    EXPECT_EQ(body(write(list)).size(), 7u);
}

TEST(FieldWalkIoField, NestedObjectBracketsItself) {
    Point point;
    point.x = 4;
    EXPECT_EQ(write(point),
              (Calls{std::string("field 1:a ( ) ") + none, "child 1:a", "/1:a enter 'Point' 'tavObject'",
                     std::string("/1:a field 7:x ( ) ") + none, "/1:a child 7:x",
                     std::string("/1:a/7:x io int 4 ") + none, "/1:a leave"}));
    Point target;
    target.x = 9;
    read(target, Node::object({}));
    EXPECT_EQ(target.x, 9);
    read(target, Node::object({{"7:x", Node::of(1)}}));
    EXPECT_EQ(target.x, 1);
}

TEST(FieldWalkIoField, SharedObjectIsWrittenAsItsObjectOrAsNull) {
    tavSharedPtr<Shared> pointer;
    EXPECT_EQ(body(write(pointer)), Calls{"/1:a writeNull"});
    pointer = new Shared();
    EXPECT_EQ(body(write(pointer)).front(), "/1:a enter 'Point' 'tavObject'");
}

TEST(FieldWalkIoField, SharedObjectIsMadeOnceAndThenFilled) {
    Shared::destroyed = 0;
    {
        tavSharedPtr<Shared> pointer;
        read(pointer, Node::object({{"7:x", Node::of(3)}}));
        ASSERT_TRUE(static_cast<bool>(pointer));
        EXPECT_EQ(pointer->x, 3);
        Shared * const made = pointer.get();
        read(pointer, Node::object({{"7:x", Node::of(4)}}));
        EXPECT_EQ(pointer.get(), made);
        EXPECT_EQ(pointer->x, 4);
        read(pointer, Node::nullValue());
        EXPECT_EQ(pointer.get(), made);
        EXPECT_EQ(Shared::destroyed, 0);
    }
    EXPECT_EQ(Shared::destroyed, 1);
}

TEST(FieldWalkIoFieldOfLists, EachElementHasAStreamBetweenEnterAndLeave) {
    Calls const expected{"/1:a enter '' ''",    "/1:a makeArrayValue",
                         "/1:a getOutputChild", std::string("/1:a/* io int 7 ") + none,
                         "/1:a getOutputChild", std::string("/1:a/* io int 300 ") + none,
                         "/1:a leave"};
    tavCodecMeta const meta(26, false, "1..9", true);
    EXPECT_EQ(body(write(std::vector<int>{7, 300}, meta)), expected);
    EXPECT_EQ(body(write(std::list<int>{7, 300}, meta)), expected);
    EXPECT_EQ(body(write(std::deque<int>{7, 300}, meta)), expected);
    EXPECT_EQ(body(write(std::set<int>{300, 7}, meta)), expected);
}

TEST(FieldWalkIoFieldOfLists, EmptyListIsStillMarkedAsOne) {
    EXPECT_EQ(body(write(std::vector<int>())),
              (Calls{"/1:a enter '' ''", "/1:a makeArrayValue", "/1:a leave"}));
}

TEST(FieldWalkIoFieldOfLists, ProtectedFieldsStayProtectedInTheirElements) {
    tavCodecMeta const meta(26, true, "...***...", false);
    EXPECT_EQ(body(write(std::vector<tavString>{tavString("secret")}, meta))[3],
              "/1:a/* io tavString secret {26, true, ...***..., false}");
    EXPECT_EQ(body(write(std::map<int, int>{{1, 2}}, meta, combined()))[3],
              "/1:a/0:1 io int 2 {26, true, ...***..., false}");
}

TEST(FieldWalkIoFieldOfLists, InputReplacesWhatWasHeld) {
    std::vector<int> value{9, 9, 9};
    EXPECT_EQ(body(read(value, Node::list({Node::of(1), Node::of(2)}), tavCodecMeta(26, true, "x", true))),
              (Calls{"/1:a getInputChildren", std::string("/1:a/* io int ? ") + none,
                     std::string("/1:a/* io int ? ") + none}));
    EXPECT_EQ(value, (std::vector<int>{1, 2}));
    read(value, Node::list({}));
    EXPECT_TRUE(value.empty());
    std::list<tavString> texts{tavString("old")};
    read(texts, Node::list({Node::of("a"), Node::of("b")}));
    EXPECT_EQ(texts, (std::list<tavString>{tavString("a"), tavString("b")}));
    std::deque<std::string> others;
    read(others, Node::list({Node::of("a")}));
    EXPECT_EQ(others, std::deque<std::string>{"a"});
    std::set<int> set{5};
    read(set, Node::list({Node::of(3), Node::of(1), Node::of(3)}));
    EXPECT_EQ(set, (std::set<int>{1, 3}));
}

TEST(FieldWalkIoFieldOfLists, AbsentAndNullElementsAreDefaultOnes) {
    std::vector<int> numbers;
    read(numbers, Node::list({Node::of(1), Node::absentValue(), Node::nullValue(), Node::of(2)}));
    EXPECT_EQ(numbers, (std::vector<int>{1, 0, 0, 2}));
    std::vector<tavNumber<int, 7>> preset;
    read(preset, Node::list({Node::nullValue()}));
    EXPECT_EQ(preset.at(0), 7);
    std::set<int> set;
    read(set, Node::list({Node::absentValue(), Node::of(2)}));
    EXPECT_EQ(set, (std::set<int>{0, 2}));
    std::vector<tavSharedPtr<Shared>> pointers;
    read(pointers, Node::list({Node::nullValue(), Node::object({})}));
    ASSERT_EQ(pointers.size(), 2u);
    EXPECT_FALSE(pointers[0]);
    EXPECT_TRUE(static_cast<bool>(pointers[1]));
}

TEST(FieldWalkIoFieldOfLists, BitsGoThroughALocal) {
    EXPECT_EQ(body(write(std::vector<bool>{true, false})),
              (Calls{"/1:a enter '' ''", "/1:a makeArrayValue", "/1:a getOutputChild",
                     std::string("/1:a/* io bool true ") + none, "/1:a getOutputChild",
                     std::string("/1:a/* io bool false ") + none, "/1:a leave"}));
    std::vector<bool> value{true};
    read(value, Node::list({Node::of(0), Node::of(1), Node::nullValue()}));
    EXPECT_EQ(value, (std::vector<bool>{false, true, false}));
}

TEST(FieldWalkIoFieldOfLists, OptionalElementsWriteNulls) {
    std::vector<tavOptional<int>> value(2);
    value[1] = 3;
    EXPECT_EQ(body(write(value)),
              (Calls{"/1:a enter '' ''", "/1:a makeArrayValue", "/1:a getOutputChild", "/1:a/* writeNull",
                     "/1:a getOutputChild", std::string("/1:a/* io int 3 ") + none, "/1:a leave"}));
    read(value, Node::list({Node::of(1), Node::nullValue()}));
    ASSERT_EQ(value.size(), 2u);
    EXPECT_EQ(*value[0], 1);
    EXPECT_FALSE(value[1].has_value());
}

TEST(FieldWalkIoFieldOfLists, SharedElementsWriteNulls) {
    std::vector<tavSharedPtr<Shared>> value(1);
    EXPECT_EQ(body(write(value))[3], "/1:a/* writeNull");
}

TEST(FieldWalkIoFieldOfLists, ListsNestInLists) {
    std::vector<std::list<int>> value{{1}, {}};
    EXPECT_EQ(body(write(value)),
              (Calls{"/1:a enter '' ''", "/1:a makeArrayValue", "/1:a getOutputChild", "/1:a/* enter '' ''",
                     "/1:a/* makeArrayValue", "/1:a/* getOutputChild",
                     std::string("/1:a/*/* io int 1 ") + none, "/1:a/* leave", "/1:a getOutputChild",
                     "/1:a/* enter '' ''", "/1:a/* makeArrayValue", "/1:a/* leave", "/1:a leave"}));
    std::vector<std::list<int>> target;
    read(target, Node::list({Node::list({}), Node::list({Node::of(3), Node::of(4)})}));
    EXPECT_EQ(target, (std::vector<std::list<int>>{{}, {3, 4}}));
}

TEST(FieldWalkIoFieldOfMaps, CombinedEntryIsAChildNamedByItsKey) {
    std::map<tavString, int> const value{{tavString("k"), 9}, {tavString("b"), 8}};
    EXPECT_EQ(body(write(value, tavCodecMeta(28), combined())),
              (Calls{"/1:a enter '' ''", "/1:a makeObjectValue", "/1:a child 0:b empty",
                     std::string("/1:a/0:b io int 8 ") + none, "/1:a child 0:k empty",
                     std::string("/1:a/0:k io int 9 ") + none, "/1:a leave"}));
}

TEST(FieldWalkIoFieldOfMaps, ListedEntryIsAnObjectOfKeyAndValue) {
    std::map<tavString, int> const value{{tavString("k"), 9}};
    EXPECT_EQ(body(write(value, tavCodecMeta(28))),
              (Calls{"/1:a enter '' ''", "/1:a makeArrayValue", "/1:a getOutputChild", "/1:a/* enter '' ''",
                     "/1:a/* child 1:key empty", std::string("/1:a/*/1:key io tavString k ") + none,
                     "/1:a/* child 2:value empty", std::string("/1:a/*/2:value io int 9 ") + none,
                     "/1:a/* leave", "/1:a leave"}));
}

TEST(FieldWalkIoFieldOfMaps, EmptyMapIsStillMarkedAsOne) {
    EXPECT_EQ(body(write(std::map<int, int>(), tavCodecMeta(), combined())),
              (Calls{"/1:a enter '' ''", "/1:a makeObjectValue", "/1:a leave"}));
    EXPECT_EQ(body(write(std::map<int, int>())),
              (Calls{"/1:a enter '' ''", "/1:a makeArrayValue", "/1:a leave"}));
}

TEST(FieldWalkIoFieldOfMaps, CombinedInputComesByKey) {
    std::map<tavString, int> value{{tavString("old"), 1}};
    EXPECT_EQ(body(read(value, Node::object({{"x", Node::of(4)}, {"y", Node::nullValue()}}),
                        tavCodecMeta(28, true, "x", true), combined())),
              (Calls{"/1:a getInputChildMap", std::string("/1:a/x io int ? ") + none}));
    EXPECT_EQ(value, (std::map<tavString, int>{{tavString("x"), 4}, {tavString("y"), 0}}));
}

TEST(FieldWalkIoFieldOfMaps, ListedInputComesByMembersOneAndTwo) {
    std::map<tavString, int> value{{tavString("old"), 1}};
    Node const entry = Node::object({{"1:key", Node::of("x")}, {"2:value", Node::of(4)}});
    EXPECT_EQ(body(read(value, Node::list({entry}))),
              (Calls{"/1:a getInputChildren", "/1:a/* child 1:key empty",
                     std::string("/1:a/*/1:key io tavString ? ") + none, "/1:a/* child 2:value empty",
                     std::string("/1:a/*/2:value io int ? ") + none}));
    EXPECT_EQ(value, (std::map<tavString, int>{{tavString("x"), 4}}));
}

TEST(FieldWalkIoFieldOfMaps, LastEntryOfAKeyStays) {
    std::map<int, int> value;
    auto const entry = [](long long k, long long v) {
        return Node::object({{"1:key", Node::of(k)}, {"2:value", Node::of(v)}});
    };
    read(value, Node::list({entry(1, 10), entry(2, 20), entry(1, 30)}));
    EXPECT_EQ(value, (std::map<int, int>{{1, 30}, {2, 20}}));
}

TEST(FieldWalkIoFieldOfMaps, EntryWithoutMembersHasDefaults) {
    std::map<int, int> value;
    read(value, Node::list({Node::object({{"1:key", Node::of(5)}}), Node::nullValue()}));
    EXPECT_EQ(value, (std::map<int, int>{{0, 0}, {5, 0}}));
}

namespace {

template <class K>
std::string nameOfKey(K key) {
    std::map<K, int> const value{{key, 1}};
    Calls const calls = body(write(value, tavCodecMeta(), combined()));
    std::string const start = "/1:a child 0:";
    std::string const name = calls.at(2).substr(start.size());
    return name.substr(0, name.size() - std::string(" empty").size());
}

template <class K>
K keyOfName(std::string const & name) {
    std::map<K, int> value;
    read(value, Node::object({{name, Node::of(1)}}), tavCodecMeta(), combined());
    EXPECT_EQ(value.size(), 1u);
    return value.begin()->first;
}

} // namespace

TEST(FieldWalkIoFieldOfMaps, IntegerKeysAreDecimalNames) {
    EXPECT_EQ(nameOfKey(-12), "-12");
    EXPECT_EQ(nameOfKey(18446744073709551615ull), "18446744073709551615");
    EXPECT_EQ(nameOfKey(std::numeric_limits<long long>::min()), "-9223372036854775808");
    EXPECT_EQ(nameOfKey('A'), "65");
    EXPECT_EQ(nameOfKey(static_cast<unsigned char>(200)), "200");
    EXPECT_EQ(nameOfKey(static_cast<unsigned short>(65535)), "65535");
    EXPECT_EQ(keyOfName<int>("-12"), -12);
    EXPECT_EQ(keyOfName<int>("+12"), 12);
    EXPECT_EQ(keyOfName<unsigned long long>("18446744073709551615"), 18446744073709551615ull);
    EXPECT_EQ(keyOfName<long long>("-9223372036854775808"), std::numeric_limits<long long>::min());
    EXPECT_EQ(keyOfName<char>("65"), 'A');
}

TEST(FieldWalkIoFieldOfMaps, NamesThatAreNoNumbersGiveZero) {
    EXPECT_EQ(keyOfName<int>(""), 0);
    EXPECT_EQ(keyOfName<int>("-"), 0);
    EXPECT_EQ(keyOfName<int>("12x"), 0);
    EXPECT_EQ(keyOfName<int>(" 1"), 0);
    EXPECT_EQ(keyOfName<short>("65537"), 1);
}

TEST(FieldWalkIoFieldOfMaps, TextAndEnumKeys) {
    registerColors();
    EXPECT_EQ(nameOfKey(std::string("s")), "s");
    EXPECT_EQ(nameOfKey(tavWstring(L"\u20ac")), "\xE2\x82\xAC");
    EXPECT_EQ(nameOfKey(L'\u20ac'), "\xE2\x82\xAC");
    EXPECT_EQ(nameOfKey(tavEnum<Color>(Color::green)), "2");
    EXPECT_EQ(keyOfName<std::string>("s"), "s");
    EXPECT_TRUE(keyOfName<tavWstring>("\xE2\x82\xAC") == tavWstring(L"\u20ac"));
    EXPECT_EQ(keyOfName<wchar_t>("\xE2\x82\xAC"), L'\u20ac');
    EXPECT_EQ(keyOfName<wchar_t>(""), L'\0');
    EXPECT_EQ(keyOfName<tavEnum<Color>>("2"), Color::green);
}

TEST(FieldWalkIoFieldOfMaps, UnorderedMapsTravelAlike) {
    std::unordered_map<int, tavString> value{{4, tavString("v")}};
    EXPECT_EQ(body(write(value, tavCodecMeta(), combined()))[3],
              std::string("/1:a/0:4 io tavString v ") + none);
    read(value, Node::object({{"5", Node::of("w")}}), tavCodecMeta(), combined());
    ASSERT_EQ(value.size(), 1u);
    EXPECT_TRUE(value.at(5) == "w");
}

TEST(FieldWalkIoFieldOfMaps, NoChildNoEntry) {
    Options options;
    options.givesChildren = false;
    Calls calls;
    RecordingStream s(calls, options);
    std::map<int, int> map{{1, 2}};
    std::vector<int> list{1};
    tav::detail::FieldWalk<std::map<int, int>>::io(s, map, tavCodecMeta());
    tav::detail::FieldWalk<std::vector<int>>::io(s, list, tavCodecMeta());
    EXPECT_EQ(calls, (Calls{"enter '' ''", "makeArrayValue", "getOutputChild", "leave", "enter '' ''",
                            "makeArrayValue", "getOutputChild", "leave"}));
}

TEST(FieldWalkIoFieldOfMaps, MapsNestInMapsAndLists) {
    std::map<tavString, std::vector<std::map<int, Point>>> value;
    value[tavString("k")].resize(1);
    value[tavString("k")][0][3].x = 5;
    Calls const calls = body(write(value, tavCodecMeta(), combined()));
    EXPECT_EQ(calls, (Calls{"/1:a enter '' ''", "/1:a makeObjectValue", "/1:a child 0:k empty",
                            "/1:a/0:k enter '' ''", "/1:a/0:k makeArrayValue", "/1:a/0:k getOutputChild",
                            "/1:a/0:k/* enter '' ''", "/1:a/0:k/* makeObjectValue",
                            "/1:a/0:k/* child 0:3 empty", "/1:a/0:k/*/0:3 enter 'Point' 'tavObject'",
                            std::string("/1:a/0:k/*/0:3 field 7:x ( ) ") + none, "/1:a/0:k/*/0:3 child 7:x",
                            std::string("/1:a/0:k/*/0:3/7:x io int 5 ") + none, "/1:a/0:k/*/0:3 leave",
                            "/1:a/0:k/* leave", "/1:a/0:k leave", "/1:a leave"}));
}
