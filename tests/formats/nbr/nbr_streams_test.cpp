#include "tav/vinta/vinta_nbr_unit.h"

#include "support/log_capture.h"
#include "support/nbr_bytes.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

using tav::nbr::ComplexValue;
using tav::nbr::NbrInputStream;
using tav::nbr::NbrOutputStream;
using tav::nbr::SimpleValue;
using tav::nbr::ValueBase;
using tav_test::bytes;
using tav_test::hex;
using tav_test::LogCapture;

namespace {

char const * const sample = "FF 01 28 01 01 01 05 02 F1 02 61 62 03 00 04 FF 01 28 FF 01 29 FF 01 29";

template <class T>
constexpr bool fixed = !std::is_copy_constructible<T>::value && !std::is_copy_assignable<T>::value &&
                       !std::is_move_constructible<T>::value;

static_assert(fixed<NbrInputStream> && fixed<NbrOutputStream::Entry> && fixed<tavNbrOutStream> &&
                  fixed<tavNbrInStream>,
              "these are neither copied nor assigned");

static_assert(std::is_nothrow_destructible<NbrOutputStream::Entry>::value,
              "a failure to write the close marker ends the process");

unsigned long countOf(NbrInputStream const & s) {
    return static_cast<unsigned long>(std::distance(s.begin(), s.end()));
}

} // namespace

TEST(NbrStreamsOutputStream, NewOneIsEmpty) {
    NbrOutputStream const s;
    EXPECT_EQ(s.size(), 0u);
    EXPECT_TRUE(s.str().empty());
}

TEST(NbrStreamsOutputStream, ValuesFollowOneAnother) {
    NbrOutputStream s;
    s << 5 << "ab" << true;
    EXPECT_EQ(hex(s.str()), "01 01 05 F1 02 61 62 01 01 01");
}

TEST(NbrStreamsOutputStream, WriteTakesTheTextFlag) {
    NbrOutputStream s;
    s.write("ab", true);
    s.write("ab", false);
    s.write(tav_istr(), true);
    s.write(tav_istr(), false);
    EXPECT_EQ(hex(s.str()), "F1 02 61 62 01 02 61 62 F1 00 01 00");
}

TEST(NbrStreamsOutputStream, RawWritesHaveNoFrame) {
    NbrOutputStream s;
    s.writeRaw(static_cast<unsigned char>(0xFE));
    s.writeRaw("abc", 2);
    s.writeRaw(tav_istr("xy"));
    s.writeRaw(tav_istr());
    s.writeTag('\x80');
    EXPECT_EQ(hex(s.str()), "FE 61 62 78 79 80");
}

TEST(NbrStreamsOutputStream, MarkersWhateverTheNames) {
    NbrOutputStream s;
    s.enter("a", tav_istr(), "c");
    s.enterSuper();
    s.leaveSuper();
    s.leave();
    EXPECT_EQ(hex(s.str()), "FF 01 28 FF 01 29");
}

TEST(NbrStreamsOutputStream, EntryBrackets) {
    NbrOutputStream s;
    {
        NbrOutputStream::Entry const entry(s);
        s.writeTag(1);
        s << 5;
        EXPECT_EQ(hex(s.str()), "FF 01 28 01 01 01 05");
    }
    EXPECT_EQ(hex(s.str()), "FF 01 28 01 01 01 05 FF 01 29");
}

TEST(NbrStreamsOutputStream, EntryBracketsAlsoWhenAnExceptionPasses) {
    NbrOutputStream s;
    try {
        NbrOutputStream::Entry const entry(s);
        throw std::runtime_error("x");
    } catch (std::runtime_error const &) {
    }
    EXPECT_EQ(hex(s.str()), "FF 01 28 FF 01 29");
}

TEST(NbrStreamsOutputStream, EntryMarkersAlone) {
    NbrOutputStream s;
    NbrOutputStream::Entry::leave(s);
    NbrOutputStream::Entry::enter(s);
    EXPECT_EQ(hex(s.str()), "FF 01 29 FF 01 28");
}

TEST(NbrStreamsOutputStream, EncodeAssigns) {
    NbrOutputStream s;
    s << 5;
    tavBytes out(tav_istr("old content"));
    s.encode(out);
    EXPECT_EQ(hex(out), "01 01 05");
    EXPECT_EQ(hex(s.str()), "01 01 05");
    s.encode(s);
    EXPECT_EQ(hex(s.str()), "01 01 05");
}

TEST(NbrStreamsOutputStream, SwapExchanges) {
    NbrOutputStream s;
    s << 5;
    tavBytes other(tav_istr("xy"));
    s.swap(other);
    EXPECT_EQ(hex(other), "01 01 05");
    EXPECT_EQ(hex(s.str()), "78 79");
    s << 6;
    EXPECT_EQ(hex(s.str()), "78 79 01 01 06");
}

TEST(NbrStreamsOutputStream, OwnBytesMayBeWritten) {
    NbrOutputStream s;
    s << "a";
    for (int i = 0; i < 12; ++i) {
        std::string const before(s.str());
        NbrOutputStream expected;
        expected.writeRaw(tav_istr(before));
        expected.write(tav_istr(before), false);
        s.write(s.str(), false);
        ASSERT_EQ(hex(expected.str()), hex(s.str())) << i;
    }
    NbrOutputStream t;
    t << 5;
    t << static_cast<tavBytes const &>(t);
    EXPECT_EQ(hex(t.str()), "01 01 05 01 03 01 01 05");
}

TEST(NbrStreamsOutputStream, AsPlainBufferItTakesBytesUnframed) {
    NbrOutputStream s;
    static_cast<tavBytes &>(s) << 0x01020304;
    EXPECT_EQ(hex(s.str()), "04 03 02 01");
}

TEST(NbrStreamsOutputStream, GrowsThroughAllSizes) {
    NbrOutputStream s;
    std::string expected;
    for (int i = 0; i < 3000; ++i) {
        s << i;
        NbrOutputStream one;
        one << i;
        expected += std::string(one.str());
        ASSERT_EQ(expected.size(), s.size());
    }
    EXPECT_EQ(hex(expected), hex(s.str()));
}

TEST(NbrStreamsInputStream, DocumentOfSeveralValues) {
    NbrInputStream const s(bytes("01 01 05 F1 01 61 FF 01 28 FF 01 29 01 01 06"));
    EXPECT_FALSE(s.empty());
    ASSERT_EQ(countOf(s), 4u);
    int first = 0;
    EXPECT_TRUE(s >> first);
    EXPECT_EQ(first, 5);
    auto it = s.begin();
    EXPECT_TRUE((*it)->simple());
    ++it;
    EXPECT_EQ(hex(dynamic_cast<SimpleValue const &>(**it).data()), "61");
    ++it;
    EXPECT_FALSE((*it)->simple());
}

TEST(NbrStreamsInputStream, NullValuesAreNotStored) {
    NbrInputStream const s(bytes("00 01 01 05 F0 00 01 01 06 00"));
    EXPECT_EQ(countOf(s), 2u);
    int first = 0;
    EXPECT_TRUE(s >> first);
    EXPECT_EQ(first, 5);
    NbrInputStream const none(bytes("00 00 00"));
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(countOf(none), 0u);
}

TEST(NbrStreamsInputStream, NoBytes) {
    LogCapture log;
    NbrInputStream const s(tav_istr(""));
    EXPECT_TRUE(s.empty());
    EXPECT_TRUE(s.begin() == s.end());
    EXPECT_FALSE(s.getSimpleValue());
    EXPECT_FALSE(s.getComplexValue());
    EXPECT_FALSE(s.getChild(0));
    int v = 7;
    EXPECT_FALSE(s >> v);
    EXPECT_EQ(v, 7);
    EXPECT_TRUE(log.records().empty());
}

TEST(NbrStreamsInputStream, KeepsACopyOfTheBytes) {
    auto document = std::make_unique<std::string>(bytes(sample));
    NbrInputStream const s{tav_istr(*document)};
    char const * const begin = document->data();
    char const * const end = begin + document->size();
    document.reset();
    tavString text;
    EXPECT_TRUE(dynamic_cast<SimpleValue const &>(*s.getChild(2)).read(text));
    EXPECT_EQ(text, "ab");
    char const * const data = dynamic_cast<SimpleValue const &>(*s.getChild(2)).data().data();
    EXPECT_TRUE(data < begin || data >= end);
}

TEST(NbrStreamsInputStream, FirstValueByKind) {
    NbrInputStream const simple(bytes("01 01 05 FF 01 28 FF 01 29"));
    EXPECT_TRUE(simple.getSimpleValue());
    EXPECT_FALSE(simple.getComplexValue());
    EXPECT_FALSE(simple.getChild(1));
    NbrInputStream const complex(bytes(sample));
    EXPECT_FALSE(complex.getSimpleValue());
    EXPECT_TRUE(complex.getComplexValue());
    int v = 7;
    EXPECT_FALSE(complex >> v);
    EXPECT_EQ(v, 7);
}

TEST(NbrStreamsInputStream, Children) {
    NbrInputStream const s(bytes(sample));
    EXPECT_TRUE(s.getChild(1)->simple());
    EXPECT_FALSE(s.getChild(3));
    EXPECT_FALSE(s.getChild(4)->simple());
    EXPECT_FALSE(s.getChild(5));
    EXPECT_EQ(s.getChild(1), s.getChild(1));
    EXPECT_EQ(s.getComplexValue(), s.getComplexValue());
    EXPECT_EQ(s.getComplexValue().get(), s.begin()->get());
}

TEST(NbrStreamsInputStream, OfAValue) {
    tavSharedPtr<ValueBase> const value(new SimpleValue("ab", true));
    NbrInputStream const s(value);
    EXPECT_EQ(value->getRefCount(), 2u);
    EXPECT_EQ(countOf(s), 1u);
    EXPECT_EQ(value, s.getSimpleValue());
    tavString text;
    EXPECT_TRUE(s >> text);
    EXPECT_EQ(text, "ab");
}

TEST(NbrStreamsInputStream, OfAnUncountedValue) {
    SimpleValue value("ab", true);
    {
        NbrInputStream const s(tavSharedPtr<ValueBase>(&value, false));
        EXPECT_EQ(&value, s.getSimpleValue().get());
        EXPECT_EQ(value.getRefCount(), 0u);
    }
    EXPECT_EQ(hex(value.data()), "61 62");
}

TEST(NbrStreamsInputStream, OfANullValue) {
    NbrInputStream const s{tavSharedPtr<ValueBase>()};
    EXPECT_TRUE(s.empty());
    EXPECT_EQ(countOf(s), 0u);
}

TEST(NbrStreamsInputStream, OfOneField) {
    NbrInputStream const s(bytes(sample), 2);
    EXPECT_EQ(countOf(s), 1u);
    tavString text;
    EXPECT_TRUE(s >> text);
    EXPECT_EQ(text, "ab");
    EXPECT_TRUE(s.getSimpleValue());
}

TEST(NbrStreamsInputStream, OfAnAbsentField) {
    EXPECT_TRUE(NbrInputStream(bytes("FF 01 28 01 01 01 05 FF 01 29"), 9).empty());
    EXPECT_TRUE(NbrInputStream(bytes("FF 01 28 01 00 FF 01 29"), 1).empty());
    EXPECT_TRUE(NbrInputStream(bytes("01 01 05"), 1).empty());
    LogCapture log;
    EXPECT_TRUE(NbrInputStream(tav_istr(), 1).empty());
    EXPECT_EQ(log.count("eof: empty iptr_\n"), 1u);
}

TEST(NbrStreamsInputStream, ParsingFailurePassesOut) {
    EXPECT_THROW(NbrInputStream(bytes("01 01 05 28 28")), std::invalid_argument);
    EXPECT_THROW(NbrInputStream(bytes("FF 01 28 01 FF 01 28 00"), 2), std::invalid_argument);
}

TEST(NbrStreamsInputStream, ReadsEachType) {
    NbrInputStream const s(bytes("01 01 41"));
    char c = 0;
    unsigned char uc = 0;
    bool b = false;
    short sh = 0;
    unsigned short us = 0;
    int i = 0;
    unsigned u = 0;
    float f = 1;
    long l = 0;
    unsigned long ul = 0;
    long long ll = 0;
    unsigned long long ull = 0;
    double d = 1;
    tavTime t;
    tavBytes data;
    tavString text;
    EXPECT_TRUE((s >> c) && (s >> uc) && (s >> b) && (s >> sh) && (s >> us) && (s >> i) && (s >> u) &&
                (s >> f));
    EXPECT_TRUE((s >> l) && (s >> ul) && (s >> ll) && (s >> ull) && (s >> d) && (s >> t) && (s >> data));
    EXPECT_TRUE(s >> text);
    EXPECT_EQ(c, 'A');
    EXPECT_EQ(uc, 'A');
    EXPECT_TRUE(b);
    EXPECT_EQ(9 * 0x41, sh + us + i + static_cast<int>(u) + static_cast<int>(l) + static_cast<int>(ul) +
                            static_cast<int>(ll) + static_cast<int>(ull) +
                            static_cast<int>(t.milliseconds()));
    EXPECT_EQ(0x41p-149f, f);
    EXPECT_EQ(0x41p-1074, d);
    EXPECT_EQ(text, "A");
    EXPECT_EQ(hex(data), "41");
}

TEST(NbrStreamsInputStream, FixedAnswers) {
    NbrInputStream s(bytes(sample));
    EXPECT_TRUE(s.decoding());
    EXPECT_EQ(s.dumping(), 0);
    s.enter("a", "b", "c");
    s.enterSuper();
    s.leaveSuper();
    s.leave();
    EXPECT_EQ(countOf(s), 1u);
}

TEST(NbrStreamsInputStream, ValuesMayOutliveTheStreamWithTheTree) {
    tavSharedPtr<ComplexValue> value;
    {
        NbrInputStream const s(bytes(sample));
        value = s.getComplexValue();
    }
    EXPECT_EQ(value->data().size(), 4u);
}
