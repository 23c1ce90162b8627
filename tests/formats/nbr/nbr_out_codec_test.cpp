#include "tav/vinta/vinta_nbr_unit.h"

#include "support/nbr_bytes.h"
#include "tav/vinta/vinta_object.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

using tav_test::hex;

namespace {

typedef tavSharedPtr<tavCodecStream> Stream;

template <class T>
std::string written(T v) {
    tavNbrOutStream s(false);
    s.io(v, tavCodecMeta());
    return hex(s.str());
}

class Number : public tavObject {
public:
    int number = 5;

    tav_istr className() const override { return "Number"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Number; }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override { ioField(s, 1, "number", number); }
};

} // namespace

TEST(NbrOutCodec, FixedAnswers) {
    tavNbrOutStream s(false);
    EXPECT_FALSE(s.isNull());
    EXPECT_FALSE(s.hideEmpty());
    EXPECT_TRUE(s.isOutputStream());
    EXPECT_FALSE(s.isMapEntryCombined());
    EXPECT_TRUE(s.isEmpty());
    std::vector<Stream> children;
    s.getInputChildren(children);
    EXPECT_TRUE(children.empty());
    std::map<tavString, Stream> childMap;
    s.getInputChildMap(childMap);
    EXPECT_TRUE(childMap.empty());
    s.makeArrayValue();
    s.makeObjectValue();
    s.on_each_field_meta(1, "a", {}, tavCodecMeta());
    EXPECT_EQ(hex(s.str()), "");
}

TEST(NbrOutCodec, ChildrenNeverHide) {
    tavNbrOutStream s(true);
    EXPECT_TRUE(s.hideEmpty());
    EXPECT_FALSE(s.child(1, "a")->hideEmpty());
    EXPECT_FALSE(s.getOutputChild()->hideEmpty());
    EXPECT_FALSE(s.child(1, "a")->child(2, "b")->hideEmpty());
    EXPECT_TRUE(s.hideEmpty());
}

TEST(NbrOutCodec, SharedImplHidesNothing) {
    tavNbrOutStreamImpl impl;
    tavNbrOutStream s(&impl, false);
    EXPECT_FALSE(s.hideEmpty());
}

TEST(NbrOutCodec, WritesToTheSharedImpl) {
    tavNbrOutStreamImpl impl;
    impl << 1;
    {
        tavNbrOutStream s(&impl, false);
        Stream const c = s.child(2, "b");
        int v = 5;
        c->io(v, tavCodecMeta());
        EXPECT_EQ(hex(s.str()), "01 01 01 02 01 01 05");
    }
    EXPECT_EQ(hex(impl.str()), "01 01 01 02 01 01 05");
    impl << 2;
    EXPECT_EQ(impl.size(), 10u);
}

TEST(NbrOutCodec, OwnsTheImplThatItIsGiven) {
    tavNbrOutStream s(new tavNbrOutStreamImpl, true);
    Stream const c = s.child(1, "a");
    c->writeNull();
    EXPECT_EQ(hex(s.str()), "01 00");
}

TEST(NbrOutCodec, ChildWritesTheLowEightBitsOfTheId) {
    tavNbrOutStream s(false);
    s.child(300, "x");
    s.child(-1, "");
    s.child(1, tav_istr());
    s.getOutputChild();
    EXPECT_EQ(hex(s.str()), "2C FF 01 00");
}

TEST(NbrOutCodec, EnterAndLeaveAreTheMarkers) {
    tavNbrOutStream s(false);
    s.enter("Name", "Base");
    s.leave();
    EXPECT_EQ(hex(s.str()), "FF 01 28 FF 01 29");
}

TEST(NbrOutCodec, EachTypeAsItsOperator) {
    EXPECT_EQ(written(static_cast<char>(-1)), "01 02 FF FF");
    EXPECT_EQ(written(static_cast<unsigned char>(200)), "01 01 C8");
    EXPECT_EQ(written(true), "01 01 01");
    EXPECT_EQ(written(static_cast<short>(-2)), "01 02 FE FF");
    EXPECT_EQ(written(static_cast<unsigned short>(32768)), "01 02 00 80");
    EXPECT_EQ(written(300), "01 02 2C 01");
    EXPECT_EQ(written(2147483648u), "01 04 00 00 00 80");
    EXPECT_EQ(written(-1L), "01 08 FF FF FF FF FF FF FF FF");
    EXPECT_EQ(written(4294967296ul), "01 05 00 00 00 00 01");
    EXPECT_EQ(written(-2LL), "01 08 FE FF FF FF FF FF FF FF");
    EXPECT_EQ(written(9ull), "01 01 09");
    EXPECT_EQ(written(1.0f), "01 04 00 00 80 3F");
    EXPECT_EQ(written(1.5), "01 08 00 00 00 00 00 00 F8 3F");
    EXPECT_EQ(written(tavTime::milliseconds(7)), "01 01 07");
    EXPECT_EQ(written(tavString("ab")), "F1 02 61 62");
    EXPECT_EQ(written(tavBytes(tav_istr("ab"))), "01 02 61 62");
    EXPECT_EQ(written(std::string("ab")), "F1 02 61 62");
    EXPECT_EQ(written(tavWstring(L"\u00E9")), "F1 02 C3 A9");
    EXPECT_EQ(written(L'A'), "F1 01 41");
    EXPECT_EQ(written(L'\0'), "F1 01 00");
}

TEST(NbrOutCodec, NestedChildrenWriteInOrder) {
    tavNbrOutStream s(false);
    s.enter("A", "");
    Stream const list = s.child(3, "list");
    list->enter("", "");
    for (unsigned short v : std::vector<unsigned short>{7, 300}) {
        list->getOutputChild()->io(v, tavCodecMeta());
    }
    list->leave();
    Stream const inner = s.child(4, "inner");
    inner->enter("B", "");
    int five = 5;
    inner->child(1, "x")->io(five, tavCodecMeta());
    inner->leave();
    s.leave();
    EXPECT_EQ(
        hex(s.str()),
        "FF 01 28 03 FF 01 28 00 01 01 07 00 01 02 2C 01 FF 01 29 04 FF 01 28 01 01 01 05 FF 01 29 FF 01 29");
    std::ostringstream out;
    s.dump(out);
    EXPECT_EQ(out.str(), "{ 3{ 0[1]7 0[2]300 } 4{ 1[1]5 } }");
}

TEST(NbrOutCodec, ChildIsAnNbrStreamOnTheSameBytes) {
    tavNbrOutStream s(false);
    Stream const c = s.child(1, "a");
    auto const nbr = dynamic_cast<tavNbrOutStream *>(c.get());
    ASSERT_NE(nbr, nullptr);
    EXPECT_EQ(hex(nbr->str()), "01");
}

TEST(NbrOutCodec, EachChildBeginsEmpty) {
    Number object;
    tavNbrOutStream s(false);
    {
        Stream const c = s.child(1, "a");
        EXPECT_TRUE(c->isEmpty());
        object.io(*c);
        EXPECT_FALSE(c->isEmpty());
    }
    EXPECT_TRUE(s.child(2, "b")->isEmpty());
    EXPECT_TRUE(s.isEmpty());
}

TEST(NbrOutCodec, CountedPointersToChildrenMayComeAndGo) {
    tavNbrOutStream s(false);
    Stream lent = s.child(1, "a");
    {
        Stream const counted(lent.get());
        Stream const another = counted;
    }
    int v = 5;
    lent->io(v, tavCodecMeta());
    EXPECT_EQ(hex(s.str()), "01 01 01 05");
}

TEST(NbrOutCodec, StreamsMayBeNestedInOneThread) {
    tavNbrOutStream a(false);
    Stream const ca = a.child(1, "");
    std::vector<std::unique_ptr<tavNbrOutStream>> others;
    for (int i = 0; i < 20; ++i) {
        others.push_back(std::make_unique<tavNbrOutStream>(false));
        others.back()->child(i, "")->io(i, tavCodecMeta());
    }
    int v = 9;
    ca->io(v, tavCodecMeta());
    EXPECT_EQ(hex(a.str()), "01 01 01 09");
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(others[static_cast<std::size_t>(i)]->str().size(), 4u);
    }
}

TEST(NbrOutCodec, WalkMarksTheStreamAsNotEmpty) {
    Number v;
    tavNbrOutStream s(false);
    v.io(s);
    EXPECT_FALSE(s.isEmpty());
}
