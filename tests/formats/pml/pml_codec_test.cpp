#include "tav/vinta/vinta_pml_streams.h"

#include "tav/vinta/vinta_object_fields.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

using tav::pml::PmlInputStream;
using tav::pml::PmlOutputStream;
using tav::pml::Unit;

namespace {

typedef tavSharedPtr<tavCodecStream> Stream;

/// What `before` becomes when it is read from a unit of this value.
template <class T>
T read(char const * value, T before) {
    Unit const unit("a", value);
    tavPmlInStreamImpl impl(unit);
    tavPmlInStream s(&impl, false);
    s.io(before, tavCodecMeta());
    return before;
}

template <class T>
T readNull(T before) {
    tavPmlInStreamImpl impl;
    tavPmlInStream s(&impl, false);
    s.io(before, tavCodecMeta());
    return before;
}

/// The value of a unit that held "1" when `v` was written to it.
template <class T>
std::string written(T v) {
    Unit unit("a", "1");
    tavPmlOutStreamImpl impl(unit);
    tavPmlOutStream s(&impl, false);
    s.io(v, tavCodecMeta());
    return unit.value();
}

std::string valueOf(Stream const & s) {
    std::string value = "-";
    s->io(value, tavCodecMeta());
    return value;
}

tavBytes const hello("Hello");

} // namespace

TEST(PmlInStream, ReadsAText) {
    tavPmlInStream s("a:t(b(1))");
    EXPECT_EQ("a", s.name());
    EXPECT_EQ("t", s.type());
    EXPECT_FALSE(s.isNull());
    EXPECT_FALSE(s.valueIsEmpty());
    EXPECT_EQ("1", valueOf(s.child(0, "b")));
    EXPECT_THROW(tavPmlInStream("a(1"), std::invalid_argument);
}

TEST(PmlInStream, AnswersForItsKind) {
    tavPmlInStream s("a()");
    EXPECT_FALSE(s.hideEmpty());
    EXPECT_FALSE(s.isOutputStream());
    EXPECT_TRUE(s.isMapEntryCombined());
    EXPECT_EQ(nullptr, s.getOutputChild());
    EXPECT_FALSE(s.isNull());
    EXPECT_TRUE(s.valueIsEmpty());
    EXPECT_FALSE(tavPmlInStream("a(1)").valueIsEmpty());
    s.enter("A", "B");
    s.leave();
    s.writeNull();
    s.makeArrayValue();
    s.makeObjectValue();
    EXPECT_EQ("", s.type());
    EXPECT_EQ("a", s.name());
}

TEST(PmlInStream, IsNullOverTheNullUnitOnly) {
    tavPmlInStreamImpl none;
    EXPECT_TRUE(tavPmlInStream(&none, false).isNull());
    tavPmlInStreamImpl null(Unit::null());
    EXPECT_TRUE(tavPmlInStream(&null, false).isNull());
    EXPECT_TRUE(tavPmlInStream(&null, false).valueIsEmpty());
    EXPECT_TRUE(tavPmlInStream(static_cast<tavPmlInStreamImpl *>(nullptr), true).isNull());
    Unit const unit;
    tavPmlInStreamImpl empty(unit);
    EXPECT_FALSE(tavPmlInStream(&empty, false).isNull());
}

TEST(PmlInStream, ANullStreamHasNeitherChildrenNorFields) {
    tavPmlInStreamImpl none;
    tavPmlInStream s(&none, false);
    EXPECT_EQ(nullptr, s.child(1, "a"));
    std::vector<Stream> children;
    s.getInputChildren(children);
    EXPECT_TRUE(children.empty());
    std::map<tavString, Stream> map;
    s.getInputChildMap(map);
    EXPECT_TRUE(map.empty());
}

TEST(PmlInStream, DeletesItsImplementationIfItOwnsIt) {
    tavSharedPtr<Unit> const unit(new Unit("a"));
    { tavPmlInStream const s(new tavPmlInStreamImpl(unit), true); }
    EXPECT_EQ(1u, unit->getRefCount());
    tavPmlInStreamImpl impl(unit);
    { tavPmlInStream const s(&impl, false); }
    EXPECT_EQ(2u, unit->getRefCount());
}

TEST(PmlInStream, ChildGoesByNameAndIsNullIfAbsent) {
    tavPmlInStream s("a(b(1)b(2)())");
    EXPECT_EQ("1", valueOf(s.child(7, "b")));
    EXPECT_EQ(nullptr, s.child(7, "c"));
    EXPECT_NE(nullptr, tavPmlInStream("a(b())").child(0, "b"));
}

TEST(PmlInStream, AChildBorrowsItsUnit) {
    Unit unit;
    unit.decode("a(b(1))");
    tavPmlInStreamImpl impl(unit);
    tavPmlInStream s(&impl, false);
    Stream const child = s.child(0, "b");
    EXPECT_NE(nullptr, child);
    EXPECT_EQ(1u, (*unit.begin())->getRefCount());
}

TEST(PmlInStream, InputChildrenAreAllChildrenInOrderAndShareThem) {
    std::vector<Stream> children(1);
    {
        tavPmlInStream s("a(b(1)(2)c()b(3))");
        s.getInputChildren(children);
    }
    ASSERT_EQ(5u, children.size());
    EXPECT_EQ(nullptr, children[0]);
    EXPECT_EQ("1", valueOf(children[1]));
    EXPECT_EQ("2", valueOf(children[2]));
    EXPECT_EQ("", valueOf(children[3]));
    EXPECT_FALSE(children[3]->isNull());
    EXPECT_EQ("3", valueOf(children[4]));
}

TEST(PmlInStream, StreamsOfAllChildrenShareTheirUnits) {
    tavSharedPtr<Unit> const unit(new Unit("x", "1"));
    Unit root("a");
    root.addChild(unit);
    tavPmlInStreamImpl impl(root);
    tavPmlInStream s(&impl, false);
    ASSERT_EQ(2u, unit->getRefCount());
    std::vector<Stream> children;
    s.getInputChildren(children);
    EXPECT_EQ(3u, unit->getRefCount());
    std::map<tavString, Stream> map;
    s.getInputChildMap(map);
    EXPECT_EQ(4u, unit->getRefCount());
}

TEST(PmlInStream, InputChildMapKeepsTheLastOfEachName) {
    std::map<tavString, Stream> map;
    tavPmlInStream("a(x(1)x(2))").getInputChildMap(map);
    ASSERT_EQ(1u, map.size());
    EXPECT_EQ("2", valueOf(map.at("x")));
}

TEST(PmlInStream, InputChildMapHasTheChildrenWithoutNamesToo) {
    std::map<tavString, Stream> map;
    map["x"] = nullptr;
    map["y"] = nullptr;
    tavPmlInStream("a((1)x(2)(3))").getInputChildMap(map);
    ASSERT_EQ(3u, map.size());
    EXPECT_EQ("3", valueOf(map.at("")));
    EXPECT_EQ("2", valueOf(map.at("x")));
    EXPECT_EQ(nullptr, map.at("y"));
}

TEST(PmlInStream, InputChildMapGoesByPresentNamesAndChildByEnteredOnes) {
    Unit unit("a");
    unit.newChild().name("late").value("1");
    unit.child("early").value("2").name("renamed");
    tavPmlInStreamImpl impl(unit);
    tavPmlInStream s(&impl, false);
    std::map<tavString, Stream> map;
    s.getInputChildMap(map);
    ASSERT_EQ(2u, map.size());
    EXPECT_EQ("1", valueOf(map.at("late")));
    EXPECT_EQ("2", valueOf(map.at("renamed")));
    EXPECT_EQ(nullptr, s.child(0, "late"));
    EXPECT_EQ(nullptr, s.child(0, "renamed"));
    EXPECT_EQ("2", valueOf(s.child(0, "early")));
}

TEST(PmlInStream, ReadsEveryType) {
    EXPECT_EQ(tavTime::from("2022-06-01~11:09:29.007"), read("2022-06-01~11:09:29.007", tavTime()));
    EXPECT_EQ(hello, read("SGVsbG8=", tavBytes()));
    EXPECT_EQ("xy", read("xy", tavString()));
    EXPECT_EQ(1.5, read<double>("1.5", 0));
    EXPECT_EQ(1.5f, read<float>("1.5", 0));
    EXPECT_EQ(16u, read<unsigned long long>("0x10", 0));
    EXPECT_EQ(-16, read<long long>("-16", 0));
    EXPECT_EQ(16u, read<unsigned long>("0x10", 0));
    EXPECT_EQ(-16, read<long>("-16", 0));
    EXPECT_EQ(16u, read<unsigned>("0x10", 0));
    EXPECT_EQ(16, read<int>("0x10", 0));
    EXPECT_EQ(8, read<unsigned short>("010", 0));
    EXPECT_EQ(5, read<short>("0b101", 0));
    EXPECT_EQ(65, read<unsigned char>("65", 0));
    EXPECT_EQ(65, read<char>("65", 0));
    EXPECT_TRUE(read("1", false));
    EXPECT_FALSE(read("0", true));
    EXPECT_EQ("x", read("x", std::string()));
    EXPECT_TRUE(tavWstring(L"\u00E4") == read("\xC3\xA4", tavWstring()));
    EXPECT_EQ(L'x', read("xyz", L'a'));
}

TEST(PmlInStream, ATextThatFailsLeavesMostTargets) {
    EXPECT_EQ(7.0, read<double>("abc", 7));
    EXPECT_EQ(7, read<int>("abc", 7));
    EXPECT_EQ(7, read<short>("abc", 7));
    EXPECT_TRUE(read("TRUE", true));
    EXPECT_FALSE(read("TRUE", false));
    EXPECT_EQ(0, read<char>("abc", 7));
    EXPECT_EQ(0, read<unsigned char>("abc", 7));
    EXPECT_EQ(0, read<long>("abc", 7));
    EXPECT_EQ(0u, read<unsigned long>("abc", 7));
}

TEST(PmlInStream, TheNullUnitTouchesLongsAndWhatPassesThroughATextOnly) {
    EXPECT_EQ(7, readNull<int>(7));
    EXPECT_EQ(7, readNull<char>(7));
    EXPECT_EQ(7, readNull<unsigned char>(7));
    EXPECT_EQ(7, readNull<short>(7));
    EXPECT_EQ(7, readNull<unsigned short>(7));
    EXPECT_EQ(7u, readNull<unsigned>(7));
    EXPECT_EQ(7, readNull<long long>(7));
    EXPECT_EQ(7u, readNull<unsigned long long>(7));
    EXPECT_EQ(7.0f, readNull<float>(7));
    EXPECT_EQ(7.0, readNull<double>(7));
    EXPECT_TRUE(readNull(true));
    EXPECT_EQ("x", readNull<tavString>("x"));
    EXPECT_EQ(hello, readNull(hello));
    EXPECT_EQ(tavTime::milliseconds(7), readNull(tavTime::milliseconds(7)));
    EXPECT_EQ(0, readNull<long>(7));
    EXPECT_EQ(0u, readNull<unsigned long>(7));
    EXPECT_EQ("", readNull<std::string>("x"));
    EXPECT_TRUE(tavWstring() == readNull(tavWstring(L"x")));
    EXPECT_EQ(L'x', readNull(L'x'));
}

TEST(PmlOutStream, AnswersForItsKind) {
    tavPmlOutStream s;
    EXPECT_FALSE(s.isNull());
    EXPECT_FALSE(s.hideEmpty());
    EXPECT_TRUE(s.isOutputStream());
    EXPECT_TRUE(s.isMapEntryCombined());
    std::vector<Stream> children;
    s.getInputChildren(children);
    EXPECT_TRUE(children.empty());
    std::map<tavString, Stream> map;
    s.getInputChildMap(map);
    EXPECT_TRUE(map.empty());
    s.writeNull();
    s.makeArrayValue();
    s.makeObjectValue();
    s.leave();
    EXPECT_EQ("()", s.str(false, false));
}

TEST(PmlOutStream, NameAndTypeAreThoseOfTheUnit) {
    tavPmlOutStream s;
    EXPECT_EQ(&s, &s.name("a"));
    EXPECT_EQ(&s, &s.type("t"));
    EXPECT_EQ("a", s.name());
    EXPECT_EQ("t", s.type());
    EXPECT_EQ("a:t()", s.str(false, false));
}

TEST(PmlOutStream, EnterRecordsTheClassAsTypeOnce) {
    tavPmlOutStream s;
    s.enter("", "Base");
    EXPECT_EQ("()", s.str(false, false));
    s.enter("A", "Base");
    s.enter("B", "Base");
    EXPECT_EQ(":A()", s.str(false, false));
    EXPECT_EQ("", s.name());
    tavPmlOutStream named;
    named.name("n").enter("A", "Base");
    EXPECT_EQ("n:A()", named.str(false, false));
}

TEST(PmlOutStream, WritesToItsImplementationAndDeletesItIfItOwnsIt) {
    tavSharedPtr<Unit> const unit(new Unit("a"));
    {
        tavPmlOutStream s(new tavPmlOutStreamImpl(unit), true);
        int v = 5;
        s.io(v, tavCodecMeta());
    }
    EXPECT_EQ("5", unit->value());
    EXPECT_EQ(1u, unit->getRefCount());
    tavPmlOutStreamImpl impl(unit);
    { tavPmlOutStream const s(&impl, false); }
    EXPECT_EQ(2u, unit->getRefCount());
    tavPmlOutStream none(nullptr, true);
    none.name("x");
    EXPECT_EQ("x()", none.str(false, false));
}

TEST(PmlOutStream, EveryWriteIsAppended) {
    EXPECT_EQ("15", written(5));
    EXPECT_EQ("165", written('A'));
    EXPECT_EQ("1-1", written(static_cast<char>(-1)));
    EXPECT_EQ("1255", written(static_cast<unsigned char>(255)));
    EXPECT_EQ("1-5", written<short>(-5));
    EXPECT_EQ("15", written<unsigned short>(5));
    EXPECT_EQ("15", written(5u));
    EXPECT_EQ("1-5", written(-5l));
    EXPECT_EQ("15", written(5ul));
    EXPECT_EQ("1-5", written(-5ll));
    EXPECT_EQ("15", written(5ull));
    EXPECT_EQ("11.5", written(1.5));
    EXPECT_EQ("11.5", written(1.5f));
    EXPECT_EQ("1true", written(true));
    EXPECT_EQ("1x y", written(tavString("x y")));
    EXPECT_EQ("1x", written(std::string("x")));
    EXPECT_EQ("1\xC3\xA4", written(tavWstring(L"\u00E4")));
    EXPECT_EQ("1x", written(L'x'));
    EXPECT_EQ("1SGVsbG8=", written(hello));
    EXPECT_EQ("1", written(tavBytes()));
    tavTime const time = tavTime::from("2022-06-01~11:09:29.007");
    EXPECT_EQ(tavString("1") | time.str(), written(time));
}

TEST(PmlOutStream, ChildIsMadeOrFoundAgain) {
    tavPmlOutStream s;
    s.name("a");
    int v = 5;
    s.child(7, "b")->io(v, tavCodecMeta());
    s.child(8, "b")->io(v, tavCodecMeta());
    s.child(9, "c");
    EXPECT_EQ("a(b(55)c())", s.str(false, false));
}

TEST(PmlOutStream, OutputChildrenHaveNoNameAndAreNotFoundByOne) {
    tavPmlOutStream s;
    s.name("a");
    int v = 5;
    s.getOutputChild()->io(v, tavCodecMeta());
    s.getOutputChild()->io(v, tavCodecMeta());
    s.child(0, "");
    EXPECT_EQ("a((5)(5)())", s.str(false, false));
}

TEST(PmlOutStream, StrHasTypesUnlessItSkipsAndIdsIfItIsFormatted) {
    tavPmlOutStream s;
    s.name("a").type("t");
    int v = 1;
    s.child(0, "b");
    s.child(0, "c")->io(v, tavCodecMeta());
    EXPECT_EQ("a:t(b()c(1))", s.str(false, false));
    EXPECT_EQ("a(c(1))", s.str(false, true));
    EXPECT_EQ("\n    [0]a:t(\n        [0]b()\n        [0]c(1)\n    )", s.str(true, false));
    EXPECT_EQ("\n    [0]a(\n        [0]c(1)\n    )", s.str(true, true));
}

TEST(PmlStreams, AChildThatIsHeldStaysAsItIs) {
    tavPmlInStream in("a(b(1)c(2))");
    Stream const b = in.child(0, "b");
    Stream const c = in.child(0, "c");
    EXPECT_EQ("1", valueOf(b));
    EXPECT_EQ("2", valueOf(c));
    tavPmlOutStream out;
    int v = 5;
    Stream const first = out.child(0, "b");
    Stream const second = out.getOutputChild();
    second->io(v, tavCodecMeta());
    first->io(v, tavCodecMeta());
    first->io(v, tavCodecMeta());
    EXPECT_EQ("(b(55)(5))", out.str(false, false));
}

TEST(PmlStreams, AStreamThatServesAgainIsAsNew) {
    tavPmlOutStream out;
    int v = 5;
    {
        Stream const first = out.child(0, "b");
        ioField(*first, 1, "x", v);
        EXPECT_FALSE(first->isEmpty());
    }
    Stream const second = out.child(0, "c");
    EXPECT_TRUE(second->isEmpty());
    ioField(*second, 1, "x", v);
    EXPECT_EQ("(b(x(5))c(x(5)))", out.str(false, false));
}

TEST(PmlStreams, AWalkOfAnyDepthEndsInBoundedStack) {
    constexpr unsigned depth = 150000;
    tavPmlOutStream out;
    Stream at = out.child(0, "a");
    for (unsigned i = 1; i < depth; ++i) {
        Stream const next = at->child(0, "a");
        at = next;
    }
    std::string const text = out.str(false, false);
    EXPECT_EQ(2 + 3 * depth, text.size());
    tavPmlInStream in{tav_istr(text)};
    unsigned found = 0;
    for (Stream child = in.child(0, "a"); child; ++found) {
        Stream const next = child->child(0, "a");
        child = next;
    }
    EXPECT_EQ(depth, found);
}
