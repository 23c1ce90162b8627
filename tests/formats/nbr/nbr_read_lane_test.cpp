#include "tav/vinta/vinta_nbr_unit.h"

#include "support/nbr_bytes.h"
#include "tav/vinta/vinta_object.h"

#include <gtest/gtest.h>

#include <deque>
#include <list>
#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

using tav_test::bytes;

// The elements of a list are read through one stream, past the virtual operations of the library's own input
// stream.  That must show nowhere: neither in what is read nor to a class that is derived from it.

namespace {

enum class Level { none = 0, low = 1, high = 2 };

/// Of the library's class by all but its type.
class Derived : public tavNbrInStream {
public:
    using tavNbrInStream::tavNbrInStream;

    unsigned lists = 0;

    void getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> & children) override {
        ++lists;
        tavNbrInStream::getInputChildren(children);
    }
};

/// An object whose only field is a list, read from the stream itself.
template <class List>
struct Direct : tavCodecInterface {
    List list;

    void io(tavCodecStream & s) override { tav::detail::FieldWalk<List>::io(s, list, tavCodecMeta()); }
};

template <class List>
std::string written(List & list) {
    tavNbrOutStream out(false);
    tav::detail::FieldWalk<List>::io(out, list, tavCodecMeta());
    return tav_test::hex(out.str());
}

/// Reads the list by both roads; what the road of the virtual operations gives has to come by the other.
template <class List>
void expectSameList(std::string const & document) {
    SCOPED_TRACE(tav_test::hex(tav_istr(document)));
    Direct<List> expected;
    Derived derived{tav_istr(document)};
    expected.io(derived);
    EXPECT_EQ(derived.lists, 1u);
    Direct<List> direct;
    tavNbrInStream plain{tav_istr(document)};
    direct.io(plain);
    EXPECT_EQ(written(direct.list), written(expected.list));
    EXPECT_EQ(direct.list.size(), expected.list.size());
    Direct<List> again;
    tavNbrInStreamImpl impl{tav_istr(document)};
    tavNbrInStream shared(&impl, false);
    again.io(shared);
    again.io(shared);
    EXPECT_EQ(written(again.list), written(expected.list));
}

class Inner : public tavObject {
public:
    int number = 3;
    std::vector<tavString> texts;
    std::vector<std::vector<int>> rows;
    std::map<int, tavString> names;

    tav_istr className() const override { return "Inner"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Inner(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "number", number);
        ioField(s, 2, "texts", texts);
        ioField(s, 3, "rows", rows);
        ioField(s, 4, "names", names);
    }
};

void expectSame(std::string const & document) {
    expectSameList<std::vector<bool>>(document);
    expectSameList<std::vector<char>>(document);
    expectSameList<std::vector<unsigned char>>(document);
    expectSameList<std::vector<short>>(document);
    expectSameList<std::vector<unsigned short>>(document);
    expectSameList<std::vector<int>>(document);
    expectSameList<std::vector<unsigned>>(document);
    expectSameList<std::vector<long>>(document);
    expectSameList<std::vector<unsigned long>>(document);
    expectSameList<std::vector<long long>>(document);
    expectSameList<std::vector<unsigned long long>>(document);
    expectSameList<std::vector<float>>(document);
    expectSameList<std::vector<double>>(document);
    expectSameList<std::vector<tavTime>>(document);
    expectSameList<std::vector<tavBytes>>(document);
    expectSameList<std::vector<tavString>>(document);
    expectSameList<std::vector<std::string>>(document);
    expectSameList<std::vector<tavEnum<Level>>>(document);
    expectSameList<std::vector<tavNumber<int, 5>>>(document);
    expectSameList<std::vector<tavOptional<int>>>(document);
    expectSameList<std::list<int>>(document);
    expectSameList<std::deque<tavString>>(document);
    expectSameList<std::set<int>>(document);
    expectSameList<std::vector<Inner>>(document);
    expectSameList<std::vector<tavSharedPtr<Inner>>>(document);
    expectSameList<std::vector<std::vector<int>>>(document);
    expectSameList<std::vector<std::vector<tavString>>>(document);
    expectSameList<std::map<int, int>>(document);
    expectSameList<std::map<tavString, std::vector<int>>>(document);
}

std::string const opening = "FF 01 28 ";
std::string const closing = "FF 01 29 ";

/// A random value, mostly simple.
void appendValue(std::string & out, std::mt19937 & random, int depth) {
    static char const * const simple[] = {
        "01 01 05 ", "01 01 80 ", "01 02 2C 01 ", "01 04 FF FF FF FF ",    "00 ",
        "01 00 ",    "F1 00 ",    "F1 02 68 69 ", "01 05 00 00 00 00 01 ", "02 01 00 07 "};
    if (depth == 0 || random() % 4 != 0) {
        out += simple[random() % (sizeof simple / sizeof *simple)];
        return;
    }
    static char const * const tags[] = {"00 ", "00 ", "01 ", "02 ", "03 ", "04 "};
    out += opening;
    for (auto n = random() % 5; n != 0; --n) {
        out += tags[random() % (sizeof tags / sizeof *tags)];
        appendValue(out, random, depth - 1);
    }
    out += closing;
}

} // namespace

TEST(NbrReadLane, ListsOfSimpleValues) {
    expectSame(bytes((opening + "00 01 01 05 00 01 01 7F 00 01 02 2C 01 " + closing).c_str()));
    expectSame(bytes((opening + "00 F1 02 68 69 00 F1 00 00 F1 01 78 " + closing).c_str()));
}

TEST(NbrReadLane, ElementsThatAreMissingEmptyOrOfAnotherKind) {
    expectSame(bytes((opening + "00 00 00 01 01 05 00 00 " + closing).c_str()));
    expectSame(bytes((opening + "00 01 00 00 F1 00 " + closing).c_str()));
    expectSame(bytes((opening + "00 " + opening + closing + "00 01 01 05 00 " + opening + "01 01 01 05 " +
                      closing + closing)
                         .c_str()));
}

TEST(NbrReadLane, ListsThatAreNone) {
    expectSame(bytes((opening + closing).c_str()));
    expectSame(bytes("01 01 05"));
    expectSame(bytes("F1 02 68 69"));
    expectSame("");
}

TEST(NbrReadLane, ListsThatAreCutOff) {
    std::string const whole = bytes((opening + "00 " + opening + "00 01 01 05 " + closing +
                                     "00 F1 02 68 69 00 01 04 01 02 03 04 " + closing)
                                        .c_str());
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        expectSame(whole.substr(0, size));
    }
}

TEST(NbrReadLane, RandomDocuments) {
    std::mt19937 random(7);
    for (int i = 0; i < 150; ++i) {
        std::string text = opening;
        for (auto n = random() % 6; n != 0; --n) {
            text += "00 ";
            appendValue(text, random, 4);
        }
        expectSame(bytes((text + closing).c_str()));
    }
}

TEST(NbrReadLane, ListsWithinLists) {
    std::vector<std::vector<std::vector<int>>> const cube = {{{1, 2}, {}, {3}}, {}, {{4}}};
    Direct<std::vector<std::vector<std::vector<int>>>> from;
    from.list = cube;
    tavNbrOutStream out(false);
    from.io(out);
    Direct<std::vector<std::vector<std::vector<int>>>> to;
    tavNbrInStream in{out.str()};
    to.io(in);
    EXPECT_EQ(to.list, cube);
}

TEST(NbrReadLane, FailureInTheMiddleLeavesTheStreamUsable) {
    tavEnum<Level>::add(Level::none, "none");
    tavEnum<Level>::add(Level::low, "low");
    std::string const document =
        bytes((opening + "00 " + opening + "00 01 01 01 00 01 01 63 " + closing + closing).c_str());
    tavNbrInStream in{tav_istr(document)};
    for (int round = 0; round < 3; ++round) {
        Direct<std::vector<std::vector<tavEnum<Level>>>> bad;
        EXPECT_THROW(bad.io(in), tavInvalidEnumValue);
        Direct<std::vector<std::vector<int>>> good;
        good.io(in);
        EXPECT_EQ(good.list, (std::vector<std::vector<int>>{{1, 99}}));
    }
}

TEST(NbrReadLane, StreamIsAsNewForEachElement) {
    struct Marking : tavCodecInterface {
        static std::vector<bool> & seen() {
            static std::vector<bool> marks;
            return marks;
        }
        void io(tavCodecStream & s) override {
            seen().push_back(s.isEmpty());
            int number = 0;
            ioField(s, 1, "number", number);
        }
    };
    std::string const document = bytes((opening + "00 " + opening + "01 01 01 05 " + closing + "00 " +
                                        opening + "01 01 01 05 " + closing + closing)
                                           .c_str());
    Direct<std::vector<Marking>> object;
    tavNbrInStream in{tav_istr(document)};
    object.io(in);
    EXPECT_EQ(Marking::seen(), (std::vector<bool>{true, true}));
}
