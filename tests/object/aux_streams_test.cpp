#include "tav/vinta/vinta_object.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

namespace {

enum class Mode { off = 3, on = 4 };

class Inner : public tavObject {
public:
    int deep = 1;
    static int visits;

    tav_istr className() const override { return "Inner"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Inner(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ++visits;
        ioField(s, 1, "deep", deep);
    }
};
int Inner::visits = 0;

class Outer : public tavObject {
public:
    int number = 5;
    tavString secret = "s";
    tavOptional<int> maybe;
    tavEnum<Mode> mode;
    Inner inner;
    std::vector<int> list{1, 2};

    tav_istr className() const override { return "Outer"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Outer(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "number", number, tavCodecMeta(3, false, "1..9", false));
        ioField(s, 300, "secret", secret, tavCodecMeta(13, true, "..*", true));
        ioField(s, 3, "maybe", maybe, tavCodecMeta(3, false, nullptr, true));
        ioField(s, 4, "mode", mode, tavCodecMeta(18));
        ioField(s, 5, "inner", inner, tavCodecMeta(21));
        ioField(s, 6, "list", list, tavCodecMeta(26));
    }
};

class Fieldless : public tavObject {
public:
    tav_istr className() const override { return "Fieldless"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return nullptr; }
    void assignFrom(tavObject const &) override {}
};

template <class T>
void expectUntouched(tavCodecStream & s, T const & held) {
    T v = held;
    s.io(v, tavCodecMeta());
    EXPECT_TRUE(v == held);
}

} // namespace

TEST(AuxStreamsNullStream, IsAnOutputStreamThatHidesNothing) {
    tavNullStream s;
    EXPECT_FALSE(s.isNull());
    EXPECT_FALSE(s.hideEmpty());
    EXPECT_TRUE(s.isOutputStream());
    EXPECT_FALSE(s.isMapEntryCombined());
    EXPECT_TRUE(s.isEmpty());
}

TEST(AuxStreamsNullStream, GivesNoStreams) {
    tavNullStream s;
    EXPECT_FALSE(s.child(1, "a"));
    EXPECT_FALSE(s.getOutputChild());
    std::vector<tavSharedPtr<tavCodecStream>> children;
    s.getInputChildren(children);
    EXPECT_TRUE(children.empty());
    std::map<tavString, tavSharedPtr<tavCodecStream>> map;
    s.getInputChildMap(map);
    EXPECT_TRUE(map.empty());
}

TEST(AuxStreamsNullStream, TouchesNoValue) {
    tavNullStream s;
    expectUntouched(s, tavTime::milliseconds(7));
    expectUntouched(s, tavBytes(tav_istr("b")));
    expectUntouched(s, tavString("s"));
    expectUntouched(s, 1.5);
    expectUntouched(s, 1.5f);
    expectUntouched(s, 5ull);
    expectUntouched(s, 5ll);
    expectUntouched(s, 5ul);
    expectUntouched(s, 5l);
    expectUntouched(s, 5u);
    expectUntouched(s, 5);
    expectUntouched(s, static_cast<unsigned short>(5));
    expectUntouched(s, static_cast<short>(5));
    expectUntouched(s, static_cast<unsigned char>(5));
    expectUntouched(s, 'c');
    expectUntouched(s, true);
    expectUntouched(s, std::string("x"));
    expectUntouched(s, tavWstring(L"w"));
    expectUntouched(s, L'w');
    s.enter("A", "B");
    s.leave();
    s.writeNull();
    s.makeArrayValue();
    s.makeObjectValue();
    s.on_each_field_meta(1, "a", {}, tavCodecMeta());
    EXPECT_TRUE(s.isEmpty());
}

TEST(AuxStreamsNullStream, WalkShowsWhetherAFieldWasMet) {
    tavNullStream with;
    Outer().io(with);
    EXPECT_FALSE(with.isEmpty());
    tavNullStream without;
    Fieldless().io(without);
    EXPECT_TRUE(without.isEmpty());
}

TEST(AuxStreamsNullStream, NestedObjectsAreNotEntered) {
    Inner::visits = 0;
    tavNullStream s;
    Outer().io(s);
    EXPECT_EQ(Inner::visits, 0);
}

TEST(AuxStreamsCollectMetaStream, IsANullStream) {
    EXPECT_TRUE((std::is_base_of<tavNullStream, tavCollectMetaStream>::value));
    tavCollectMetaStream s;
    EXPECT_TRUE(s.isOutputStream());
    EXPECT_TRUE(s.fields().empty());
}

TEST(AuxStreamsCollectMetaStream, GathersTheFieldsOfTheTopLevelInOrder) {
    tavEnum<Mode>::add(Mode::off, "off");
    tavEnum<Mode>::add(Mode::on, "on");
    tavCollectMetaStream s;
    Outer object;
    object.io(s);
    std::vector<tavFieldMeta> const & fields = s.fields();
    ASSERT_EQ(fields.size(), 6u);
    EXPECT_EQ(fields[0].id, 1);
    EXPECT_EQ(fields[0].name, "number");
    EXPECT_EQ(fields[0].meta.type, 3);
    EXPECT_FALSE(fields[0].meta.checkRange(10));
    EXPECT_TRUE(fields[0].values.empty());
    EXPECT_EQ(fields[1].id, 300);
    EXPECT_TRUE(fields[1].meta.isProtected);
    EXPECT_EQ(fields[1].meta.spec, "..*");
    EXPECT_TRUE(fields[1].meta.isOptional());
    EXPECT_EQ(fields[2].name, "maybe");
    EXPECT_EQ(fields[3].values, (std::set<int>{3, 4}));
    EXPECT_EQ(fields[4].meta.type, 21);
    EXPECT_EQ(fields[5].name, "list");
}

TEST(AuxStreamsCollectMetaStream, CopiesTheValuesAndTheMeta) {
    tavCollectMetaStream s;
    {
        std::set<int> const values{1};
        s.on_each_field_meta(2, "x", values, tavCodecMeta(18, false, "1", true));
    }
    EXPECT_EQ(s.fields().at(0).values, std::set<int>{1});
    EXPECT_EQ(s.fields().at(0).meta.type, 18);
}

TEST(AuxStreamsCollectMetaStream, CallsAFunctionForEachFieldInOrder) {
    tavCollectMetaStream s;
    Outer object;
    object.io(s);
    std::string names;
    s.for_each_field([&](tavFieldMeta const & field) { names += std::string(field.name) + " "; });
    EXPECT_EQ(names, "number secret maybe mode inner list ");
}

TEST(AuxStreamsCollectMetaStream, EmptyFunctionFailsOnlyIfThereIsAField) {
    tavCollectMetaStream s;
    std::function<void(tavFieldMeta const &)> const nothing;
    EXPECT_NO_THROW(s.for_each_field(nothing));
    s.on_each_field_meta(1, "a", {}, tavCodecMeta());
    EXPECT_THROW(s.for_each_field(nothing), std::bad_function_call);
}
