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

TEST(PmlCodecInStream, ReadsAText) {
    tavPmlInStream s("a:t(b(1))");
    EXPECT_EQ(s.name(), "a");
    EXPECT_EQ(s.type(), "t");
    EXPECT_FALSE(s.isNull());
    EXPECT_FALSE(s.valueIsEmpty());
    EXPECT_EQ(valueOf(s.child(0, "b")), "1");
    EXPECT_THROW(tavPmlInStream("a(1"), std::invalid_argument);
}

TEST(PmlCodecInStream, AnswersForItsKind) {
    tavPmlInStream s("a()");
    EXPECT_FALSE(s.hideEmpty());
    EXPECT_FALSE(s.isOutputStream());
    EXPECT_TRUE(s.isMapEntryCombined());
    EXPECT_EQ(s.getOutputChild(), nullptr);
    EXPECT_FALSE(s.isNull());
    EXPECT_TRUE(s.valueIsEmpty());
    EXPECT_FALSE(tavPmlInStream("a(1)").valueIsEmpty());
    s.enter("A", "B");
    s.leave();
    s.writeNull();
    s.makeArrayValue();
    s.makeObjectValue();
    EXPECT_EQ(s.type(), "");
    EXPECT_EQ(s.name(), "a");
}

TEST(PmlCodecInStream, IsNullOverTheNullUnitOnly) {
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

TEST(PmlCodecInStream, ANullStreamHasNeitherChildrenNorFields) {
    tavPmlInStreamImpl none;
    tavPmlInStream s(&none, false);
    EXPECT_EQ(s.child(1, "a"), nullptr);
    std::vector<Stream> children;
    s.getInputChildren(children);
    EXPECT_TRUE(children.empty());
    std::map<tavString, Stream> map;
    s.getInputChildMap(map);
    EXPECT_TRUE(map.empty());
}

TEST(PmlCodecInStream, DeletesItsImplementationIfItOwnsIt) {
    tavSharedPtr<Unit> const unit(new Unit("a"));
    { tavPmlInStream const s(new tavPmlInStreamImpl(unit), true); }
    EXPECT_EQ(unit->getRefCount(), 1u);
    tavPmlInStreamImpl impl(unit);
    { tavPmlInStream const s(&impl, false); }
    EXPECT_EQ(unit->getRefCount(), 2u);
}

TEST(PmlCodecInStream, ChildGoesByNameAndIsNullIfAbsent) {
    tavPmlInStream s("a(b(1)b(2)())");
    EXPECT_EQ(valueOf(s.child(7, "b")), "1");
    EXPECT_EQ(s.child(7, "c"), nullptr);
    EXPECT_NE(tavPmlInStream("a(b())").child(0, "b"), nullptr);
}

TEST(PmlCodecInStream, AChildBorrowsItsUnit) {
    Unit unit;
    unit.decode("a(b(1))");
    tavPmlInStreamImpl impl(unit);
    tavPmlInStream s(&impl, false);
    Stream const child = s.child(0, "b");
    EXPECT_NE(child, nullptr);
    EXPECT_EQ((*unit.begin())->getRefCount(), 1u);
}

TEST(PmlCodecInStream, InputChildrenAreAllChildrenInOrderAndShareThem) {
    std::vector<Stream> children(1);
    {
        tavPmlInStream s("a(b(1)(2)c()b(3))");
        s.getInputChildren(children);
    }
    ASSERT_EQ(children.size(), 5u);
    EXPECT_EQ(children[0], nullptr);
    EXPECT_EQ(valueOf(children[1]), "1");
    EXPECT_EQ(valueOf(children[2]), "2");
    EXPECT_EQ(valueOf(children[3]), "");
    EXPECT_FALSE(children[3]->isNull());
    EXPECT_EQ(valueOf(children[4]), "3");
}

TEST(PmlCodecInStream, StreamsOfAllChildrenShareTheirUnits) {
    tavSharedPtr<Unit> const unit(new Unit("x", "1"));
    Unit root("a");
    root.addChild(unit);
    tavPmlInStreamImpl impl(root);
    tavPmlInStream s(&impl, false);
    ASSERT_EQ(unit->getRefCount(), 2u);
    std::vector<Stream> children;
    s.getInputChildren(children);
    EXPECT_EQ(unit->getRefCount(), 3u);
    std::map<tavString, Stream> map;
    s.getInputChildMap(map);
    EXPECT_EQ(unit->getRefCount(), 4u);
}

TEST(PmlCodecInStream, InputChildMapKeepsTheLastOfEachName) {
    std::map<tavString, Stream> map;
    tavPmlInStream("a(x(1)x(2))").getInputChildMap(map);
    ASSERT_EQ(map.size(), 1u);
    EXPECT_EQ(valueOf(map.at("x")), "2");
}

TEST(PmlCodecInStream, InputChildMapHasTheChildrenWithoutNamesToo) {
    std::map<tavString, Stream> map;
    map["x"] = nullptr;
    map["y"] = nullptr;
    tavPmlInStream("a((1)x(2)(3))").getInputChildMap(map);
    ASSERT_EQ(map.size(), 3u);
    EXPECT_EQ(valueOf(map.at("")), "3");
    EXPECT_EQ(valueOf(map.at("x")), "2");
    EXPECT_EQ(map.at("y"), nullptr);
}

TEST(PmlCodecInStream, InputChildMapGoesByPresentNamesAndChildByEnteredOnes) {
    Unit unit("a");
    unit.newChild().name("late").value("1");
    unit.child("early").value("2").name("renamed");
    tavPmlInStreamImpl impl(unit);
    tavPmlInStream s(&impl, false);
    std::map<tavString, Stream> map;
    s.getInputChildMap(map);
    ASSERT_EQ(map.size(), 2u);
    EXPECT_EQ(valueOf(map.at("late")), "1");
    EXPECT_EQ(valueOf(map.at("renamed")), "2");
    EXPECT_EQ(s.child(0, "late"), nullptr);
    EXPECT_EQ(s.child(0, "renamed"), nullptr);
    EXPECT_EQ(valueOf(s.child(0, "early")), "2");
}

TEST(PmlCodecInStream, ReadsEveryType) {
    EXPECT_EQ(tavTime::from("2022-06-01~11:09:29.007"), read("2022-06-01~11:09:29.007", tavTime()));
    EXPECT_EQ(hello, read("SGVsbG8=", tavBytes()));
    EXPECT_EQ(read("xy", tavString()), "xy");
    EXPECT_EQ(read<double>("1.5", 0), 1.5);
    EXPECT_EQ(read<float>("1.5", 0), 1.5f);
    EXPECT_EQ(read<unsigned long long>("0x10", 0), 16u);
    EXPECT_EQ(read<long long>("-16", 0), -16);
    EXPECT_EQ(read<unsigned long>("0x10", 0), 16u);
    EXPECT_EQ(read<long>("-16", 0), -16);
    EXPECT_EQ(read<unsigned>("0x10", 0), 16u);
    EXPECT_EQ(read<int>("0x10", 0), 16);
    EXPECT_EQ(read<unsigned short>("010", 0), 8);
    EXPECT_EQ(read<short>("0b101", 0), 5);
    EXPECT_EQ(read<unsigned char>("65", 0), 65);
    EXPECT_EQ(read<char>("65", 0), 65);
    EXPECT_TRUE(read("1", false));
    EXPECT_FALSE(read("0", true));
    EXPECT_EQ(read("x", std::string()), "x");
    EXPECT_TRUE(tavWstring(L"\u00E4") == read("\xC3\xA4", tavWstring()));
    EXPECT_EQ(L'x', read("xyz", L'a'));
}

TEST(PmlCodecInStream, ATextThatFailsLeavesMostTargets) {
    EXPECT_EQ(read<double>("abc", 7), 7.0);
    EXPECT_EQ(read<int>("abc", 7), 7);
    EXPECT_EQ(read<short>("abc", 7), 7);
    EXPECT_TRUE(read("TRUE", true));
    EXPECT_FALSE(read("TRUE", false));
    EXPECT_EQ(read<char>("abc", 7), 0);
    EXPECT_EQ(read<unsigned char>("abc", 7), 0);
    EXPECT_EQ(read<long>("abc", 7), 0);
    EXPECT_EQ(read<unsigned long>("abc", 7), 0u);
}

TEST(PmlCodecInStream, TheNullUnitTouchesLongsAndWhatPassesThroughATextOnly) {
    EXPECT_EQ(readNull<int>(7), 7);
    EXPECT_EQ(readNull<char>(7), 7);
    EXPECT_EQ(readNull<unsigned char>(7), 7);
    EXPECT_EQ(readNull<short>(7), 7);
    EXPECT_EQ(readNull<unsigned short>(7), 7);
    EXPECT_EQ(readNull<unsigned>(7), 7u);
    EXPECT_EQ(readNull<long long>(7), 7);
    EXPECT_EQ(readNull<unsigned long long>(7), 7u);
    EXPECT_EQ(readNull<float>(7), 7.0f);
    EXPECT_EQ(readNull<double>(7), 7.0);
    EXPECT_TRUE(readNull(true));
    EXPECT_EQ(readNull<tavString>("x"), "x");
    EXPECT_EQ(hello, readNull(hello));
    EXPECT_EQ(tavTime::milliseconds(7), readNull(tavTime::milliseconds(7)));
    EXPECT_EQ(readNull<long>(7), 0);
    EXPECT_EQ(readNull<unsigned long>(7), 0u);
    EXPECT_EQ(readNull<std::string>("x"), "");
    EXPECT_TRUE(tavWstring() == readNull(tavWstring(L"x")));
    EXPECT_EQ(L'x', readNull(L'x'));
}

TEST(PmlCodecOutStream, AnswersForItsKind) {
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
    EXPECT_EQ(s.str(false, false), "()");
}

TEST(PmlCodecOutStream, NameAndTypeAreThoseOfTheUnit) {
    tavPmlOutStream s;
    EXPECT_EQ(&s, &s.name("a"));
    EXPECT_EQ(&s, &s.type("t"));
    EXPECT_EQ(s.name(), "a");
    EXPECT_EQ(s.type(), "t");
    EXPECT_EQ(s.str(false, false), "a:t()");
}

TEST(PmlCodecOutStream, EnterRecordsTheClassAsTypeOnce) {
    tavPmlOutStream s;
    s.enter("", "Base");
    EXPECT_EQ(s.str(false, false), "()");
    s.enter("A", "Base");
    s.enter("B", "Base");
    EXPECT_EQ(s.str(false, false), ":A()");
    EXPECT_EQ(s.name(), "");
    tavPmlOutStream named;
    named.name("n").enter("A", "Base");
    EXPECT_EQ(named.str(false, false), "n:A()");
}

TEST(PmlCodecOutStream, WritesToItsImplementationAndDeletesItIfItOwnsIt) {
    tavSharedPtr<Unit> const unit(new Unit("a"));
    {
        tavPmlOutStream s(new tavPmlOutStreamImpl(unit), true);
        int v = 5;
        s.io(v, tavCodecMeta());
    }
    EXPECT_EQ(unit->value(), "5");
    EXPECT_EQ(unit->getRefCount(), 1u);
    tavPmlOutStreamImpl impl(unit);
    { tavPmlOutStream const s(&impl, false); }
    EXPECT_EQ(unit->getRefCount(), 2u);
    tavPmlOutStream none(nullptr, true);
    none.name("x");
    EXPECT_EQ(none.str(false, false), "x()");
}

TEST(PmlCodecOutStream, EveryWriteIsAppended) {
    EXPECT_EQ(written(5), "15");
    EXPECT_EQ(written('A'), "165");
    EXPECT_EQ(written(static_cast<char>(-1)), "1-1");
    EXPECT_EQ(written(static_cast<unsigned char>(255)), "1255");
    EXPECT_EQ(written<short>(-5), "1-5");
    EXPECT_EQ(written<unsigned short>(5), "15");
    EXPECT_EQ(written(5u), "15");
    EXPECT_EQ(written(-5l), "1-5");
    EXPECT_EQ(written(5ul), "15");
    EXPECT_EQ(written(-5ll), "1-5");
    EXPECT_EQ(written(5ull), "15");
    EXPECT_EQ(written(1.5), "11.5");
    EXPECT_EQ(written(1.5f), "11.5");
    EXPECT_EQ(written(true), "1true");
    EXPECT_EQ(written(tavString("x y")), "1x y");
    EXPECT_EQ(written(std::string("x")), "1x");
    EXPECT_EQ(written(tavWstring(L"\u00E4")), "1\xC3\xA4");
    EXPECT_EQ(written(L'x'), "1x");
    EXPECT_EQ(written(hello), "1SGVsbG8=");
    EXPECT_EQ(written(tavBytes()), "1");
    tavTime const time = tavTime::from("2022-06-01~11:09:29.007");
    EXPECT_EQ(tavString("1") | time.str(), written(time));
}

TEST(PmlCodecOutStream, ChildIsMadeOrFoundAgain) {
    tavPmlOutStream s;
    s.name("a");
    int v = 5;
    s.child(7, "b")->io(v, tavCodecMeta());
    s.child(8, "b")->io(v, tavCodecMeta());
    s.child(9, "c");
    EXPECT_EQ(s.str(false, false), "a(b(55)c())");
}

TEST(PmlCodecOutStream, OutputChildrenHaveNoNameAndAreNotFoundByOne) {
    tavPmlOutStream s;
    s.name("a");
    int v = 5;
    s.getOutputChild()->io(v, tavCodecMeta());
    s.getOutputChild()->io(v, tavCodecMeta());
    s.child(0, "");
    EXPECT_EQ(s.str(false, false), "a((5)(5)())");
}

TEST(PmlCodecOutStream, StrHasTypesUnlessItSkipsAndIdsIfItIsFormatted) {
    tavPmlOutStream s;
    s.name("a").type("t");
    int v = 1;
    s.child(0, "b");
    s.child(0, "c")->io(v, tavCodecMeta());
    EXPECT_EQ(s.str(false, false), "a:t(b()c(1))");
    EXPECT_EQ(s.str(false, true), "a(c(1))");
    EXPECT_EQ(s.str(true, false), "\n    [0]a:t(\n        [0]b()\n        [0]c(1)\n    )");
    EXPECT_EQ(s.str(true, true), "\n    [0]a(\n        [0]c(1)\n    )");
}

TEST(PmlCodecStreams, AChildThatIsHeldStaysAsItIs) {
    tavPmlInStream in("a(b(1)c(2))");
    Stream const b = in.child(0, "b");
    Stream const c = in.child(0, "c");
    EXPECT_EQ(valueOf(b), "1");
    EXPECT_EQ(valueOf(c), "2");
    tavPmlOutStream out;
    int v = 5;
    Stream const first = out.child(0, "b");
    Stream const second = out.getOutputChild();
    second->io(v, tavCodecMeta());
    first->io(v, tavCodecMeta());
    first->io(v, tavCodecMeta());
    EXPECT_EQ(out.str(false, false), "(b(55)(5))");
}

TEST(PmlCodecStreams, AStreamThatServesAgainIsAsNew) {
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
    EXPECT_EQ(out.str(false, false), "(b(x(5))c(x(5)))");
}

TEST(PmlCodecStreams, AWalkOfAnyDepthEndsInBoundedStack) {
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
