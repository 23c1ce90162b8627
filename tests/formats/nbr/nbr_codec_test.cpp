#include "tav/vinta/vinta_nbr_unit.h"

#include "support/log_capture.h"
#include "support/nbr_bytes.h"
#include "tav/vinta/vinta_object.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using tav::nbr::ComplexValue;
using tav::nbr::SimpleValue;
using tav::nbr::ValueBase;
using tav_test::bytes;
using tav_test::hex;
using tav_test::LogCapture;

namespace {

typedef tavSharedPtr<tavCodecStream> Stream;

char const * const sample =
    "FF 01 28 01 01 01 05 02 F1 02 61 62 03 00 04 FF 01 28 00 01 01 07 00 00 00 FF 01 28 FF 01 "
    "29 FF 01 29 FF 01 29";

/// The value that `s` reads into a target that holds `before`.
template <class T>
T readFrom(tavCodecStream & s, T before) {
    s.io(before, tavCodecMeta());
    return before;
}

template <class T>
T readDocument(char const * document, T before) {
    std::string const data = bytes(document);
    tavNbrInStream s{tav_istr(data)};
    return readFrom(s, before);
}

/// The same tree as a document's, but made of values and not of bytes.
tavSharedPtr<ValueBase> treeOf(std::string const & document) {
    tav_istr view(document);
    return tav::nbr::parser::from(view);
}

/// Runs a check on an input stream of bytes, on one that shares an impl of bytes, and on one of a tree.
template <class Check>
void onEachSource(char const * document, Check && check) {
    std::string const data = bytes(document);
    {
        SCOPED_TRACE("bytes");
        tavNbrInStream s{tav_istr(data)};
        check(s);
    }
    {
        SCOPED_TRACE("impl");
        tavNbrInStreamImpl impl{tav_istr(data)};
        tavNbrInStream s(&impl, false);
        check(s);
    }
    {
        SCOPED_TRACE("tree");
        tavNbrInStream s(new tavNbrInStreamImpl(treeOf(data)), true);
        check(s);
    }
}

class All : public tavObject {
public:
    char c = 0;
    unsigned char uc = 0;
    bool b = false;
    short s = 0;
    unsigned short us = 0;
    int i = 0;
    unsigned u = 0;
    long l = 0;
    unsigned long ul = 0;
    long long ll = 0;
    unsigned long long ull = 0;
    float f = 0;
    double d = 0;
    tavTime t;
    tavBytes data;
    tavString text;
    std::string plain;
    tavWstring wide;
    std::vector<All> list;
    std::map<tavString, int> map;
    tavOptional<int> optional;

    tav_istr className() const override { return "All"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new All; }
    void assignFrom(tavObject const &) override {}

    bool same(All const & o) const {
        bool equal = c == o.c && uc == o.uc && b == o.b && s == o.s && us == o.us && i == o.i && u == o.u &&
                     l == o.l && ul == o.ul && ll == o.ll && ull == o.ull && f == o.f && d == o.d &&
                     t == o.t && data == o.data && text == o.text && plain == o.plain && wide == o.wide &&
                     map == o.map && list.size() == o.list.size() &&
                     optional.has_value() == o.optional.has_value() && *optional == *o.optional;
        for (std::size_t n = 0; equal && n < list.size(); ++n) {
            equal = list[n].same(o.list[n]);
        }
        return equal;
    }

protected:
    void traverse(tavCodecStream & stream) override {
        ioField(stream, 1, "c", c);
        ioField(stream, 2, "uc", uc);
        ioField(stream, 3, "b", b);
        ioField(stream, 4, "s", s);
        ioField(stream, 5, "us", us);
        ioField(stream, 6, "i", i);
        ioField(stream, 7, "u", u);
        ioField(stream, 8, "l", l);
        ioField(stream, 9, "ul", ul);
        ioField(stream, 10, "ll", ll);
        ioField(stream, 11, "ull", ull);
        ioField(stream, 12, "f", f);
        ioField(stream, 13, "d", d);
        ioField(stream, 14, "t", t);
        ioField(stream, 15, "data", data);
        ioField(stream, 16, "text", text);
        ioField(stream, 17, "plain", plain);
        ioField(stream, 18, "wide", wide);
        ioField(stream, 19, "list", list);
        ioField(stream, 20, "map", map);
        ioField(stream, 300, "optional", optional);
    }
};

All filled(int depth) {
    All v;
    v.c = -1;
    v.uc = 200;
    v.b = true;
    v.s = -300;
    v.us = 65535;
    v.i = -70000;
    v.u = 4000000000u;
    v.l = -5;
    v.ul = 1ul << 40;
    v.ll = -(1LL << 50);
    v.ull = ~0ull;
    v.f = -1.5f;
    v.d = 1e100;
    v.t = tavTime::milliseconds(1650000000123LL);
    v.data = tav_istr(bytes("00 FF 01 28"));
    v.text = "text";
    v.plain = "plain";
    v.wide = L"wide";
    v.map["a"] = 1;
    v.map["b"] = -2;
    v.optional = 7;
    for (int n = 0; depth > 0 && n < 3; ++n) {
        v.list.push_back(filled(depth - 1));
        v.list.back().i = n;
        v.list.back().optional.reset();
    }
    return v;
}

} // namespace

TEST(NbrCodecInCodec, ChildrenThatOthersWereAskedForAheadOfAreReadOnAFreshThread) {
    std::string data = bytes("FF 01 28");
    for (char key = 1; key <= 7; ++key) {
        data += std::string{key, 1, 1, static_cast<char>(10 * key)};
    }
    data += bytes("FF 01 29");
    // Its first streams: none are left of before.
    std::thread([&data] {
        tavNbrInStream s{tav_istr(data)};
        for (int i = 0; i < 20; ++i) {
            ASSERT_EQ(readFrom(*s.child(1, ""), 0), 10);
        }
        for (unsigned key = 7; key > 0; --key) {
            EXPECT_EQ(readFrom(*s.child(key, ""), 0), static_cast<int>(10 * key));
        }
    }).join();
}

TEST(NbrCodecInCodec, AskingForAChildForEver) {
    onEachSource(sample, [](tavNbrInStream & s) {
        for (int i = 0; i < 1000; ++i) {
            ASSERT_EQ(readFrom(*s.child(1, ""), 0), 5);
            ASSERT_EQ(readFrom(*s.child(2, ""), tavString()), "ab");
            std::vector<Stream> elements;
            s.child(4, "")->getInputChildren(elements);
            ASSERT_EQ(readFrom(*elements[0], 0), 7);
            ASSERT_TRUE(elements[1]->isNull());
        }
    });
}

TEST(NbrCodecInCodec, AskingForAChildForEverMakesNoMoreStreamsThanTwiceTheValues) {
    std::string const data = bytes(sample);
    tavNbrInStream s{tav_istr(data)};
    std::set<tavCodecStream *> streams;
    for (int i = 0; i < 1000; ++i) {
        streams.insert(s.child(1, "").get());
        std::vector<Stream> elements;
        s.child(4, "")->getInputChildren(elements);
        for (Stream const & element : elements) {
            streams.insert(element.get());
        }
    }
    // The object, its four members and the three elements of the list.
    EXPECT_GE(16u, streams.size());
}

TEST(NbrCodecInCodec, NoBytes) {
    tavNbrInStream s{tav_istr()};
    EXPECT_TRUE(s.isNull());
    EXPECT_FALSE(s.child(1, "a"));
    std::vector<Stream> children;
    s.getInputChildren(children);
    EXPECT_TRUE(children.empty());
    EXPECT_EQ(readFrom(s, 7), 7);
    EXPECT_EQ(readFrom(s, 7L), 0L);
    All object = filled(1);
    All const before = object;
    object.decode(tav_istr());
    EXPECT_TRUE(object.same(before));
}

TEST(NbrCodecInCodec, FixedAnswers) {
    onEachSource(sample, [](tavNbrInStream & s) {
        EXPECT_FALSE(s.isNull());
        EXPECT_FALSE(s.hideEmpty());
        EXPECT_FALSE(s.isOutputStream());
        EXPECT_FALSE(s.isMapEntryCombined());
        EXPECT_FALSE(s.getOutputChild());
        std::map<tavString, Stream> childMap;
        s.getInputChildMap(childMap);
        EXPECT_TRUE(childMap.empty());
        s.enter("a", "b");
        s.leave();
        s.writeNull();
        EXPECT_TRUE(s.isEmpty());
    });
}

TEST(NbrCodecInCodec, ChildByTag) {
    onEachSource(sample, [](tavNbrInStream & s) {
        EXPECT_EQ(readFrom(*s.child(1, "wrong name"), 0), 5);
        EXPECT_EQ(readFrom(*s.child(2, ""), tavString()), "ab");
        EXPECT_FALSE(s.child(3, "")) << "null member";
        EXPECT_TRUE(s.child(4, ""));
        EXPECT_FALSE(s.child(5, "")) << "absent";
        EXPECT_FALSE(s.child(0, "")) << "absent";
        EXPECT_TRUE(s.child(257, "")) << "low eight bits";
        EXPECT_FALSE(s.child(1, "")->child(1, "")) << "simple values have no children";
    });
}

TEST(NbrCodecInCodec, ChildrenInAnyOrder) {
    char const * const shuffled =
        "FF 01 28 09 01 01 09 02 01 01 02 FF 01 01 63 05 01 01 05 80 01 01 80 01 01 01 01 FF 01 29";
    char const * const ascending =
        "FF 01 28 01 01 01 01 02 01 01 02 05 01 01 05 09 01 01 09 80 01 01 80 FF 01 01 63 FF 01 29";
    for (char const * document : {shuffled, ascending}) {
        onEachSource(document, [](tavNbrInStream & s) {
            for (int round = 0; round < 2; ++round) {
                for (int step = 0; step < 256; ++step) {
                    // Upward in the first round, all over the place in the second.
                    int const tag = round == 0 ? step : (step * 91) & 0xFF;
                    Stream const c = s.child(tag, "");
                    bool const there =
                        tag == 1 || tag == 2 || tag == 5 || tag == 9 || tag == 0x80 || tag == 0xFF;
                    ASSERT_EQ(there, static_cast<bool>(c)) << tag;
                    if (there) {
                        ASSERT_EQ(tag == 0xFF ? 0x63 : tag, readFrom(*c, 0));
                    }
                }
                for (int tag : {9, 5, 2, 1, 1, 2, 9}) {
                    ASSERT_EQ(tag, readFrom(*s.child(tag, ""), 0));
                }
            }
        });
    }
}

TEST(NbrCodecInCodec, LastOfTwoMembersAndBothInAList) {
    onEachSource("FF 01 28 01 01 01 05 01 01 01 06 FF 01 29", [](tavNbrInStream & s) {
        EXPECT_EQ(readFrom(*s.child(1, ""), 0), 6);
        std::vector<Stream> children;
        s.getInputChildren(children);
        ASSERT_EQ(children.size(), 2u);
        EXPECT_EQ(readFrom(*children[0], 0), 5);
        EXPECT_EQ(readFrom(*children[1], 0), 6);
    });
}

TEST(NbrCodecInCodec, LaterNullHidesAnEarlierMember) {
    onEachSource("FF 01 28 01 01 01 05 01 00 FF 01 29",
                 [](tavNbrInStream & s) { EXPECT_FALSE(s.child(1, "")); });
}

TEST(NbrCodecInCodec, ListInWireOrderWithNulls) {
    onEachSource(sample, [](tavNbrInStream & s) {
        Stream const list = s.child(4, "");
        Stream const before(new tavNbrInStream(tav_istr()));
        std::vector<Stream> children(1, before);
        list->getInputChildren(children);
        ASSERT_EQ(children.size(), 4u);
        EXPECT_EQ(before, children[0]) << "appended";
        EXPECT_EQ(readFrom(*children[1], 0), 7);
        EXPECT_FALSE(children[1]->isNull());
        ASSERT_TRUE(children[2]);
        EXPECT_TRUE(children[2]->isNull());
        EXPECT_EQ(readFrom(*children[2], 8), 8);
        EXPECT_FALSE(children[2]->child(1, ""));
        EXPECT_FALSE(children[3]->isNull());
        std::vector<Stream> none;
        children[3]->getInputChildren(none);
        children[2]->getInputChildren(none);
        children[1]->getInputChildren(none);
        EXPECT_TRUE(none.empty());
    });
}

TEST(NbrCodecInCodec, SimpleValueHasNoChildren) {
    onEachSource("01 01 05", [](tavNbrInStream & s) {
        std::vector<Stream> children;
        s.getInputChildren(children);
        EXPECT_TRUE(children.empty());
        EXPECT_FALSE(s.child(1, ""));
        EXPECT_EQ(readFrom(s, 0), 5);
        EXPECT_FALSE(s.isNull());
    });
}

TEST(NbrCodecInCodec, FirstOfSeveralValues) {
    std::string const document = bytes("00 FF 01 28 01 01 01 05 FF 01 29 01 01 06");
    tavNbrInStream s{tav_istr(document)};
    EXPECT_EQ(readFrom(*s.child(1, ""), 0), 5);
    EXPECT_EQ(readFrom(s, 7), 7) << "the first one is not simple";
}

TEST(NbrCodecInCodec, SeveralChildrenAtOnce) {
    onEachSource(sample, [](tavNbrInStream & s) {
        Stream const one = s.child(1, "");
        Stream const two = s.child(2, "");
        Stream const four = s.child(4, "");
        Stream const again = s.child(1, "");
        std::vector<Stream> elements;
        four->getInputChildren(elements);
        EXPECT_EQ(readFrom(*one, 0), 5);
        EXPECT_EQ(readFrom(*two, tavString()), "ab");
        EXPECT_EQ(readFrom(*elements[0], 0), 7);
        EXPECT_EQ(readFrom(*again, 0), 5);
        EXPECT_EQ(readFrom(*one, 0), 5);
    });
}

TEST(NbrCodecInCodec, KindsThatDoNotMatchBehaveAsAbsent) {
    onEachSource("FF 01 28 01 FF 01 28 FF 01 29 FF 01 29", [](tavNbrInStream & s) {
        Stream const c = s.child(1, "");
        EXPECT_EQ(readFrom(*c, 7), 7);
        EXPECT_EQ(readFrom(*c, tavString("old")), "old");
        EXPECT_EQ(readFrom(*c, 7L), 0L);
        EXPECT_EQ(readFrom(*c, 7ul), 0ul);
        EXPECT_EQ(readFrom(*c, std::string("old")), "");
        EXPECT_EQ(tavWstring(), readFrom(*c, tavWstring(L"old")));
        EXPECT_EQ(L'x', readFrom(*c, L'x'));
    });
}

TEST(NbrCodecInCodec, ValueWithoutData) {
    for (char const * document : {"01 00", "F1 00"}) {
        EXPECT_EQ(readDocument(document, 7), 7);
        EXPECT_EQ(readDocument(document, 7LL), 7LL);
        EXPECT_EQ(readDocument(document, tavString("old")), "old");
        EXPECT_EQ(tavBytes(tav_istr("old")), readDocument(document, tavBytes(tav_istr("old"))));
        EXPECT_EQ(readDocument(document, 7L), 0L);
        EXPECT_EQ(readDocument(document, 7ul), 0ul);
        EXPECT_EQ(readDocument(document, std::string("old")), "");
        EXPECT_EQ(tavWstring(), readDocument(document, tavWstring(L"old")));
        EXPECT_EQ(L'x', readDocument(document, L'x'));
    }
}

TEST(NbrCodecInCodec, ReadsEachType) {
    EXPECT_EQ(readDocument<char>("01 02 81 FF", 0), '\x81');
    EXPECT_EQ(readDocument<unsigned char>("01 01 81", 0), 0x81);
    EXPECT_TRUE(readDocument("01 01 01", false));
    EXPECT_EQ(readDocument<short>("01 02 FE FF", 0), -2);
    EXPECT_EQ(readDocument<unsigned short>("01 02 FE FF", 0), 65534);
    EXPECT_EQ(readDocument("01 02 FE FF", 0), 65534);
    EXPECT_EQ(readDocument("01 04 FE FF FF FF", 0u), 4294967294u);
    EXPECT_EQ(readDocument("01 08 FE FF FF FF FF FF FF FF", 0L), -2L);
    EXPECT_EQ(readDocument("01 01 FE", 0ul), 254ul);
    EXPECT_EQ(readDocument("01 08 FE FF FF FF FF FF FF FF", 0LL), -2LL);
    EXPECT_EQ(~1ull, readDocument("01 08 FE FF FF FF FF FF FF FF", 0ull));
    EXPECT_EQ(readDocument("01 04 00 00 80 3F", 0.0f), 1.0f);
    EXPECT_EQ(readDocument("01 08 00 00 00 00 00 00 F8 3F", 0.0), 1.5);
    EXPECT_EQ(readDocument("01 01 07", tavTime()).milliseconds(), 7);
    EXPECT_EQ(readDocument("F1 02 61 62", std::string()), "ab");
    EXPECT_EQ(tavWstring(L"\u00E9x"), readDocument("F1 03 C3 A9 78", tavWstring()));
    EXPECT_EQ(L'\u00E9', readDocument("F1 03 C3 A9 78", L'\0'));
}

TEST(NbrCodecInCodec, CopiesTheBytes) {
    auto document = std::make_unique<std::string>(bytes(sample));
    tavNbrInStream s{tav_istr(*document)};
    document.reset();
    EXPECT_EQ(readFrom(*s.child(2, ""), tavString()), "ab");
}

TEST(NbrCodecInCodec, FailureOfTheParserPassesOut) {
    std::string const bad = bytes("FF 01 28 01 28 00");
    EXPECT_THROW(tavNbrInStream{tav_istr(bad)}, std::invalid_argument);
    std::string const good = bytes(sample);
    tavNbrInStream s{tav_istr(good)};
    EXPECT_EQ(readFrom(*s.child(1, ""), 0), 5);
    All object;
    EXPECT_THROW(object.decode(tav_istr(bad)), std::invalid_argument);
}

TEST(NbrCodecInCodec, ChildIsAnNbrStreamThatBeginsEmpty) {
    onEachSource(sample, [](tavNbrInStream & s) {
        Stream const c = s.child(4, "");
        EXPECT_NE(dynamic_cast<tavNbrInStream *>(c.get()), nullptr);
        EXPECT_TRUE(c->isEmpty());
        All object;
        object.io(*c);
        EXPECT_FALSE(c->isEmpty());
        EXPECT_TRUE(s.child(4, "")->isEmpty());
    });
}

TEST(NbrCodecInCodec, TwoStreamsOnOneImpl) {
    std::string const document = bytes(sample);
    tavNbrInStreamImpl impl{tav_istr(document)};
    tavNbrInStream a(&impl, false);
    tavNbrInStream b(&impl, false);
    Stream const ca = a.child(1, "");
    Stream const cb = b.child(2, "");
    EXPECT_EQ(readFrom(*ca, 0), 5);
    EXPECT_EQ(readFrom(*cb, tavString()), "ab");
    EXPECT_EQ(readFrom(*b.child(1, ""), 0), 5);
    EXPECT_TRUE(impl.getChild(1));
}

TEST(NbrCodecInCodec, CountedPointersToChildrenMayComeAndGo) {
    std::string const document = bytes(sample);
    tavNbrInStream s{tav_istr(document)};
    Stream const lent = s.child(1, "");
    {
        Stream const counted(lent.get());
        Stream const another = counted;
    }
    EXPECT_EQ(readFrom(*lent, 0), 5);
}

TEST(NbrCodec, ObjectsComeBack) {
    for (int depth = 0; depth < 4; ++depth) {
        All const v = filled(depth);
        tavBytes const encoded = v.encode(false);
        All copy;
        copy.decode(encoded);
        EXPECT_TRUE(v.same(copy)) << depth;
        EXPECT_EQ(hex(encoded), hex(copy.encode(false)));
    }
}

TEST(NbrCodec, AnyOrderAndUnknownMembers) {
    std::string const document =
        bytes("FF 01 28 10 F1 01 78 64 FF 01 28 FF 01 29 06 01 01 09 65 00 02 01 01 03 FF 01 29");
    All v;
    v.s = 77;
    v.decode(tav_istr(document));
    EXPECT_EQ(v.text, "x");
    EXPECT_EQ(v.i, 9);
    EXPECT_EQ(v.uc, 3);
    EXPECT_EQ(v.s, 77);
}

TEST(NbrCodec, TextInPlaceOfAnIntIsItsFirstFourBytesWithoutAMessage) {
    LogCapture log;
    All v;
    v.decode(tav_istr(bytes("FF 01 28 06 F1 05 61 62 63 64 65 FF 01 29")));
    EXPECT_EQ(v.i, 0x64636261);
    EXPECT_TRUE(log.records().empty());
}

TEST(NbrCodec, MembersOfAnotherKindLeaveTheFieldsUnset) {
    All v;
    v.i = 7;
    v.text = "old";
    v.optional = 9;
    v.decode(
        tav_istr(bytes("FF 01 28 06 FF 01 28 06 01 01 05 FF 01 29 10 FF 01 28 FF 01 29 2C FF 01 28 FF 01 29 "
                       "FF 01 29")));
    EXPECT_EQ(v.i, 7);
    EXPECT_EQ(v.text, "old");
    EXPECT_EQ(*v.optional, 9);
    All unchanged = filled(0);
    unchanged.decode(tav_istr(bytes("F1 02 61 62")));
    All const before = filled(0);
    EXPECT_TRUE(unchanged.same(before)) << "a simple value where the object is expected";
}

TEST(NbrCodec, NullLeavesAnOptionalUnset) {
    All v;
    v.decode(tav_istr(bytes("FF 01 28 2C 00 FF 01 29")));
    EXPECT_FALSE(v.optional.has_value());
    v.decode(tav_istr(bytes("FF 01 28 2C 01 01 07 FF 01 29")));
    EXPECT_TRUE(v.optional.has_value());
    EXPECT_EQ(*v.optional, 7);
}

TEST(NbrCodec, LongWithoutASimpleValueBecomesZero) {
    All v;
    v.l = 5;
    v.ul = 6;
    v.i = 7;
    v.decode(tav_istr(bytes("FF 01 28 06 FF 01 28 FF 01 29 08 FF 01 28 FF 01 29 09 01 00 FF 01 29")));
    EXPECT_EQ(v.l, 0);
    EXPECT_EQ(v.ul, 0u);
    EXPECT_EQ(v.i, 7);
}

TEST(NbrCodec, CutDocumentGivesWhatWasComplete) {
    All v = filled(0);
    std::string const whole(tav_istr(v.encode(false)));
    for (std::size_t n = 0; n <= whole.size(); ++n) {
        All part;
        part.decode(tav_istr(whole.data(), n));
        if (n >= 12) {
            EXPECT_EQ(v.c, part.c) << n;
            EXPECT_EQ(v.uc, part.uc) << n;
        }
    }
}

TEST(NbrCodec, ThreadsEndWithStreamsOfTheirOwn) {
    std::vector<std::thread> threads;
    std::vector<int> good(4);
    for (std::size_t t = 0; t < good.size(); ++t) {
        threads.emplace_back([&good, t] {
            All const v = filled(2);
            for (int i = 0; i < 50; ++i) {
                All copy;
                copy.decode(v.encode(true));
                good[t] += v.same(copy) ? 1 : 0;
            }
        });
    }
    for (std::thread & t : threads) {
        t.join();
    }
    EXPECT_EQ((std::vector<int>{50, 50, 50, 50}), good);
}

TEST(NbrCodec, StreamMadeOnOneThreadMayEndOnAnother) {
    auto out = std::make_unique<tavNbrOutStream>(false);
    std::string const document = bytes(sample);
    auto in = std::make_unique<tavNbrInStream>(tav_istr(document));
    EXPECT_TRUE(in->child(1, ""));
    std::thread([&] {
        int v = 5;
        out->child(1, "")->io(v, tavCodecMeta());
        EXPECT_EQ(hex(out->str()), "01 01 01 05");
        EXPECT_EQ(readFrom(*in->child(2, ""), tavString()), "ab");
        out.reset();
        in.reset();
    }).join();
    EXPECT_FALSE(out || in);
}

TEST(NbrCodec, LargeObjectsDoNotStayBehind) {
    All big = filled(0);
    big.text = std::string(1000000, 'x');
    big.list.resize(300);
    All copy;
    copy.decode(big.encode(false));
    EXPECT_TRUE(big.same(copy));
    All const little = filled(1);
    copy.decode(little.encode(false));
    EXPECT_TRUE(little.same(copy));
}
