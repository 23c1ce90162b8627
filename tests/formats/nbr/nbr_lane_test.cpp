#include "tav/vinta/vinta_nbr_unit.h"

#include "support/nbr_bytes.h"
#include "tav/vinta/vinta_object.h"

#include <gtest/gtest.h>

#include <cmath>
#include <deque>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

using tav::nbr::NbrOutputStream;
using tav_test::hex;

// Plain fields are written past the virtual operations of the library's own output stream.  That must show
// nowhere: neither in the bytes nor to a class that is derived from it.

namespace {

enum class Level { none = 0, low = 1, high = 2 };

/// NBR by the virtual operations alone: each value goes through the plain stream.
class VirtualRoad : public tavCodecStream {
public:
    using tavCodecStream::io;

    VirtualRoad(NbrOutputStream & out, bool hides) : out_(out), hides_(hides) {}

    bool hideEmpty() const override { return hides_; }
    bool isOutputStream() const override { return true; }
    bool isMapEntryCombined() const override { return false; }
    tavSharedPtr<tavCodecStream> child(int id, tav_istr) override {
        out_.writeTag(static_cast<char>(id));
        return new VirtualRoad(out_, false);
    }
    tavSharedPtr<tavCodecStream> getOutputChild() override { return child(0, tav_istr()); }
    void getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> &) override {}
    void getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> &) override {}
    void enter(tav_istr, tav_istr) override { out_.enter("", "", ""); }
    void leave() override { out_.leave(); }
    void io(tavTime & v, tavCodecMeta const &) override { out_ << v; }
    void io(tavBytes & v, tavCodecMeta const &) override { out_ << v; }
    void io(tavString & v, tavCodecMeta const &) override { out_ << v; }
    void io(double & v, tavCodecMeta const &) override { out_ << v; }
    void io(float & v, tavCodecMeta const &) override { out_ << v; }
    void io(unsigned long long & v, tavCodecMeta const &) override { out_ << v; }
    void io(long long & v, tavCodecMeta const &) override { out_ << v; }
    void io(unsigned long & v, tavCodecMeta const &) override { out_ << v; }
    void io(long & v, tavCodecMeta const &) override { out_ << v; }
    void io(unsigned int & v, tavCodecMeta const &) override { out_ << v; }
    void io(int & v, tavCodecMeta const &) override { out_ << v; }
    void io(unsigned short & v, tavCodecMeta const &) override { out_ << v; }
    void io(short & v, tavCodecMeta const &) override { out_ << v; }
    void io(unsigned char & v, tavCodecMeta const &) override { out_ << v; }
    void io(char & v, tavCodecMeta const &) override { out_ << v; }
    void io(bool & v, tavCodecMeta const &) override { out_ << v; }
    void writeNull() override { out_.writeNull(); }

private:
    NbrOutputStream & out_;
    bool hides_;
};

/// An object with one value under each kind of meta.
template <class T>
class Box : public tavObject {
public:
    T value{};

    Box() = default;
    explicit Box(T const & v) : value(v) {}

    tav_istr className() const override { return "Box"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Box(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "plain", value);
        ioField(s, 2, "optional", value, tavCodecMeta(-1, false, nullptr, true));
        ioField(s, 3, "protected", value, tavCodecMeta(-1, true, "...***..."));
        ioField(s, 300, "both", value, tavCodecMeta(-1, true, nullptr, true));
        ioField(s, 4, "again", value);
    }
};

template <class T>
std::string byVirtualRoad(T & object, bool hides) {
    NbrOutputStream out;
    VirtualRoad s(out, hides);
    object.io(s);
    return hex(out.str());
}

/// Of the library's class by all but its type.
class Derived : public tavNbrOutStream {
public:
    using tavNbrOutStream::tavNbrOutStream;
};

template <class T>
void expectSameBytes(T const & v) {
    SCOPED_TRACE(typeid(T).name());
    Box<T> box(v);
    for (bool const hides : {false, true}) {
        SCOPED_TRACE(hides ? "hides" : "shows");
        std::string const expected = byVirtualRoad(box, hides);
        EXPECT_EQ(hex(box.encode(hides)), expected);
        Derived derived(hides);
        box.io(derived);
        EXPECT_EQ(hex(derived.str()), expected);
        if (!hides) {
            tavNbrOutStreamImpl impl;
            impl << 7;
            tavNbrOutStream shared(&impl, false);
            box.io(shared);
            EXPECT_EQ("01 01 07 " + expected, hex(impl.str()));
            tavNbrOutStream owner(new tavNbrOutStreamImpl, true);
            box.io(owner);
            EXPECT_EQ(hex(owner.str()), expected);
        }
    }
}

template <class T>
void expectSameNumbers() {
    using Limits = std::numeric_limits<T>;
    for (T const v : {T(), T(1), Limits::lowest(), Limits::max(), static_cast<T>(Limits::max() / 2),
                      static_cast<T>(T(0) - T(1)), static_cast<T>(100), static_cast<T>(200)}) {
        expectSameBytes(v);
        expectSameBytes(std::vector<T>{v, T(), v});
    }
    expectSameBytes(std::vector<T>());
    expectSameBytes(tavNumber<T, 5>());
    expectSameBytes(tavNumber<T, 5>(T(0)));
    expectSameBytes(tavOptional<T>());
    expectSameBytes(tavOptional<T>(T(0)));
    expectSameBytes(tavOptional<T>(T(3)));
}

template <class T>
void expectSameTexts() {
    for (std::size_t const n : {0u, 1u, 127u, 128u, 255u, 256u, 70000u}) {
        expectSameBytes(T(std::string(n, 'x')));
    }
    expectSameBytes(std::vector<T>{T(std::string("a")), T(std::string()), T(std::string(200, 'b'))});
    expectSameBytes(tavOptional<T>());
    expectSameBytes(tavOptional<T>(T(std::string())));
    expectSameBytes(tavOptional<T>(T(std::string("abc"))));
}

/// Doubles each int, and counts its nulls and markers, on all levels.
class Doubling : public tavNbrOutStream {
public:
    using tavNbrOutStream::io;

    struct Seen {
        int nulls = 0;
        int enters = 0;
        int leaves = 0;
    };

    Doubling(tavNbrOutStreamImpl & out, Seen & seen) : tavNbrOutStream(&out, false), out_(out), seen_(seen) {}

    tavSharedPtr<tavCodecStream> child(int id, tav_istr) override {
        out_.writeTag(static_cast<char>(id));
        return new Doubling(out_, seen_);
    }
    tavSharedPtr<tavCodecStream> getOutputChild() override {
        out_.writeTag(0);
        return new Doubling(out_, seen_);
    }
    void enter(tav_istr className, tav_istr baseName) override {
        ++seen_.enters;
        tavNbrOutStream::enter(className, baseName);
    }
    void leave() override {
        ++seen_.leaves;
        tavNbrOutStream::leave();
    }
    void io(int & v, tavCodecMeta const & meta) override {
        int twice = 2 * v;
        tavNbrOutStream::io(twice, meta);
    }
    void writeNull() override {
        ++seen_.nulls;
        tavNbrOutStream::writeNull();
    }

private:
    tavNbrOutStreamImpl & out_;
    Seen & seen_;
};

/// Sees each field of the top level go by.
class Watching : public tavNbrOutStream {
public:
    using tavNbrOutStream::tavNbrOutStream;

    std::vector<int> metas;
    std::vector<int> children;

    void on_each_field_meta(int id, tav_istr, std::set<int> const &, tavCodecMeta const &) override {
        metas.push_back(id);
    }
    tavSharedPtr<tavCodecStream> child(int id, tav_istr name) override {
        children.push_back(id);
        return tavNbrOutStream::child(id, name);
    }
};

class Hiding : public tavNbrOutStream {
public:
    Hiding() : tavNbrOutStream(false) {}
    bool hideEmpty() const override { return true; }
};

class Many : public tavObject {
public:
    int number = 3;
    std::vector<int> list{1, 2};
    std::map<int, int> map{{4, 5}};
    tavOptional<int> unset;
    tavOptional<int> set = 6;
    Box<int> nested{Box<int>(7)};
    unsigned plain = 8;

    tav_istr className() const override { return "Many"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Many(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "number", number);
        ioField(s, 2, "list", list);
        ioField(s, 3, "map", map);
        ioField(s, 4, "unset", unset);
        ioField(s, 5, "set", set);
        ioField(s, 6, "nested", nested);
        ioField(s, 7, "plain", plain);
    }
};

/// Fails in the middle of its fields, when it is told to.
class Failing : public tavObject {
public:
    int number = 0;
    bool fails = false;
    std::vector<Failing> list;

    tav_istr className() const override { return "Failing"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Failing(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "number", number);
        if (fails) {
            throw std::runtime_error("in the middle");
        }
        ioField(s, 2, "list", list);
    }
};

/// Encodes another object while it is encoded itself.
class Wrapping : public tavObject {
public:
    int depth = 0;

    tav_istr className() const override { return "Wrapping"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Wrapping(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "depth", depth);
        tavBytes inner;
        if (depth > 0) {
            Wrapping wrapped;
            wrapped.depth = depth - 1;
            inner = wrapped.encode(false);
        }
        ioField(s, 2, "inner", inner);
        ioField(s, 3, "again", depth);
    }
};

std::string wrapped(int depth) {
    NbrOutputStream s;
    s.enter("", "", "");
    s.writeTag(1);
    s << depth;
    s.writeTag(2);
    s.write(tav_istr(depth > 0 ? wrapped(depth - 1) : std::string()), false);
    s.writeTag(3);
    s << depth;
    s.leave();
    return std::string(s.str());
}

} // namespace

TEST(NbrLane, Numbers) {
    expectSameNumbers<char>();
    expectSameNumbers<unsigned char>();
    expectSameNumbers<short>();
    expectSameNumbers<unsigned short>();
    expectSameNumbers<int>();
    expectSameNumbers<unsigned int>();
    expectSameNumbers<long>();
    expectSameNumbers<unsigned long>();
    expectSameNumbers<long long>();
    expectSameNumbers<unsigned long long>();
    expectSameNumbers<float>();
    expectSameNumbers<double>();
    expectSameNumbers<bool>();
}

TEST(NbrLane, OddFloats) {
    for (double const v : {-0.0, 1.5, -1e300, std::nan(""), std::numeric_limits<double>::infinity(),
                           std::numeric_limits<double>::denorm_min()}) {
        expectSameBytes(v);
        expectSameBytes(static_cast<float>(v));
    }
}

TEST(NbrLane, TextBytesAndTimes) {
    expectSameTexts<tavString>();
    expectSameTexts<tavBytes>();
    expectSameTexts<std::string>();
    expectSameBytes(tavWstring());
    expectSameBytes(tavWstring(L"\u20ac"));
    expectSameBytes(L'\0');
    expectSameBytes(L'\u20ac');
    expectSameBytes(tavTime());
    expectSameBytes(tavTime::milliseconds(-1));
    expectSameBytes(tavTime::milliseconds(1654052969007));
    expectSameBytes(std::vector<tavTime>{tavTime(), tavTime::milliseconds(5)});
}

TEST(NbrLane, Enums) {
    expectSameBytes(tavEnum<Level>());
    expectSameBytes(tavEnum<Level>(Level::high));
    expectSameBytes(tavOptional<tavEnum<Level>>());
    expectSameBytes(std::vector<tavEnum<Level>>{Level::low, Level::none});
}

TEST(NbrLane, ListsAndSets) {
    expectSameBytes(std::list<int>{1, -1, 300});
    expectSameBytes(std::deque<unsigned short>{7, 300});
    expectSameBytes(std::set<tavString>{tavString("b"), tavString("a")});
    expectSameBytes(std::set<int>());
    expectSameBytes(std::vector<bool>{true, false});
    expectSameBytes(std::deque<bool>{true, false});
    expectSameBytes(std::vector<std::vector<int>>{{1, 2}, {}, {3}});
    expectSameBytes(std::vector<tavOptional<int>>{tavOptional<int>(), tavOptional<int>(1)});
    expectSameBytes(tavOptional<std::vector<int>>());
    expectSameBytes(tavOptional<std::vector<int>>(std::vector<int>{1, 2}));
    expectSameBytes(std::vector<std::string>{"a", ""});
}

TEST(NbrLane, Maps) {
    expectSameBytes(std::map<tavString, int>{{tavString("k"), 9}, {tavString(""), 0}});
    expectSameBytes(std::map<int, std::vector<int>>{{1, {2, 3}}, {4, {}}});
    expectSameBytes(std::map<int, std::map<int, bool>>{{1, {{2, true}}}, {3, {}}});
    expectSameBytes(std::unordered_map<int, tavString>{{1, tavString("a")}});
    expectSameBytes(std::map<int, int>());
}

TEST(NbrLane, Objects) {
    expectSameBytes(Box<int>());
    expectSameBytes(Box<int>(5));
    expectSameBytes(Box<Box<std::vector<int>>>(Box<std::vector<int>>({1, 2})));
    expectSameBytes(std::vector<Box<int>>{Box<int>(1), Box<int>()});
    expectSameBytes(tavMsgExt());
    expectSameBytes(tavSharedPtr<Box<int>>());
    expectSameBytes(tavSharedPtr<Box<int>>(new Box<int>(5)));
    expectSameBytes(tavOptional<Box<int>>(Box<int>(5)));
    expectSameBytes(std::map<int, Box<tavString>>{{1, Box<tavString>(tavString("a"))}});
}

TEST(NbrLane, HidingLeavesOutWhatIsOptionalAndEmpty) {
    EXPECT_EQ(hex(Box<int>().encode(true)), "FF 01 28 01 01 01 00 03 01 01 00 04 01 01 00 FF 01 29");
    EXPECT_EQ(hex(Box<int>().encode(false)),
              "FF 01 28 01 01 01 00 02 01 01 00 03 01 01 00 2C 01 01 00 04 01 01 00 FF 01 29");
    EXPECT_EQ(hex(Box<int>(5).encode(true)),
              "FF 01 28 01 01 01 05 02 01 01 05 03 01 01 05 2C 01 01 05 04 01 01 05 FF 01 29");
}

TEST(NbrLane, OnlyFieldsThatAreWrittenFillTheStream) {
    class AllHidden : public Box<int> {
    protected:
        void traverse(tavCodecStream & s) override {
            ioField(s, 1, "number", value, tavCodecMeta(-1, false, nullptr, true));
        }
    };
    for (bool const hides : {false, true}) {
        AllHidden object;
        tavNbrOutStream s(hides);
        object.io(s);
        EXPECT_EQ(hides, s.isEmpty());
    }
}

TEST(NbrLane, FieldsAreWrittenInTheOrderOfTheirDeclaration) {
    class Backward : public Box<int> {
    protected:
        void traverse(tavCodecStream & s) override {
            ioField(s, 9, "nine", value);
            ioField(s, 1, "one", value);
            ioField(s, 9, "nine again", value);
            ioField(s, -1, "last", value);
        }
    };
    Backward object;
    object.value = 5;
    EXPECT_EQ(hex(object.encode(false)), "FF 01 28 09 01 01 05 01 01 01 05 09 01 01 05 FF 01 01 05 FF 01 29");
}

TEST(NbrLane, DerivedStreamSeesEachField) {
    for (bool const hides : {false, true}) {
        Box<int> object;
        Watching s(hides);
        object.io(s);
        EXPECT_EQ((std::vector<int>{1, 2, 3, 300, 4}), s.metas);
        EXPECT_EQ(hides ? (std::vector<int>{1, 3, 4}) : (std::vector<int>{1, 2, 3, 300, 4}), s.children);
        EXPECT_EQ(hex(object.encode(hides)), hex(s.str()));
        EXPECT_FALSE(s.isEmpty());
    }
}

TEST(NbrLane, DerivedStreamIsAskedWhetherItHides) {
    Box<int> object;
    Hiding s;
    object.io(s);
    EXPECT_EQ(hex(object.encode(true)), hex(s.str()));
}

TEST(NbrLane, DerivedStreamsServeAllLevels) {
    Many object;
    tavNbrOutStreamImpl out;
    Doubling::Seen seen;
    Doubling s(out, seen);
    object.io(s);
    // All that goes through the io of int, and nothing else, is doubled.
    Many twice;
    twice.number = 6;
    twice.list = {2, 4};
    twice.map = {{8, 10}};
    twice.set = 12;
    twice.nested.value = 14;
    EXPECT_EQ(hex(twice.encode(false)), hex(out.str()));
    EXPECT_EQ(seen.nulls, 1);
    EXPECT_EQ(seen.enters, 5) << "the object, the list, the map, its entry and the nested object";
    EXPECT_EQ(seen.enters, seen.leaves);
}

TEST(NbrLane, FailureInTheMiddleLeavesWhatWasWritten) {
    Failing object;
    object.number = 5;
    object.list.resize(3);
    object.list[1].number = 7;
    object.list[1].fails = true;
    std::string const before =
        "FF 01 28 01 01 01 05 02 FF 01 28 00 FF 01 28 01 01 01 00 02 FF 01 28 FF 01 29 FF "
        "01 29 00 FF 01 28 01 01 01 07";
    for (int round = 0; round < 3; ++round) {
        tavNbrOutStream s(false);
        EXPECT_THROW(object.io(s), std::runtime_error);
        EXPECT_EQ(before, hex(s.str()));
        NbrOutputStream road;
        VirtualRoad other(road, false);
        EXPECT_THROW(object.io(other), std::runtime_error);
        EXPECT_EQ(before, hex(road.str()));
        EXPECT_THROW(object.encode(false), std::runtime_error);
        Many whole;
        EXPECT_EQ(byVirtualRoad(whole, false), hex(whole.encode(false)));
    }
}

TEST(NbrLane, StreamGoesOnAfterAFailure) {
    Failing object;
    object.fails = true;
    tavNbrOutStream s(false);
    EXPECT_THROW(object.io(s), std::runtime_error);
    std::string const before = hex(s.str());
    object.fails = false;
    object.io(s);
    EXPECT_EQ(before + " " + hex(object.encode(false)), hex(s.str()));
}

TEST(NbrLane, ObjectsMayBeEncodedWithinOneAnother) {
    for (int const depth : {0, 1, 3, 10, 2}) {
        Wrapping object;
        object.depth = depth;
        EXPECT_EQ(hex(wrapped(depth)), hex(object.encode(false))) << depth;
    }
}

TEST(NbrLane, StreamsOfOneThreadDoNotMixTheirBuffers) {
    Many object;
    std::string const expected = byVirtualRoad(object, false);
    tavNbrOutStreamImpl impl;
    for (int round = 0; round < 3; ++round) {
        impl.size(0);
        tavNbrOutStream own(false);
        tavNbrOutStream shared(&impl, false);
        object.io(own);
        object.io(shared);
        object.io(own);
        EXPECT_EQ(expected + " " + expected, hex(own.str()));
        EXPECT_EQ(hex(impl.str()), expected);
    }
}

TEST(NbrLane, DeepStreamsMayFollowOneAnother) {
    for (int const depth : {10, 100, 3, 200, 64, 65, 63}) {
        tavNbrOutStream s(false);
        tavSharedPtr<tavCodecStream> c = s.child(1, "");
        for (int i = 1; i < depth; ++i) {
            c = c->child(2, "");
        }
        int v = 5;
        c->io(v, tavCodecMeta());
        std::string expected = "01";
        for (int i = 1; i < depth; ++i) {
            expected += " 02";
        }
        EXPECT_EQ(expected + " 01 01 05", hex(s.str())) << depth;
    }
}
