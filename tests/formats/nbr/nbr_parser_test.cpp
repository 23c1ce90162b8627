#include "tav/vinta/vinta_nbr_unit.h"

#include "support/log_capture.h"
#include "support/nbr_bytes.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using tav::nbr::ComplexValue;
using tav::nbr::parser;
using tav::nbr::SimpleValue;
using tav::nbr::ValueBase;
using tav_test::bytes;
using tav_test::hex;
using tav_test::LogCapture;

namespace {

/// One value from the front of an input, and what is left of the input.
struct Parsed {
    explicit Parsed(std::string const & document) : input(document), left(input) {
        value = parser::from(left);
    }
    explicit Parsed(char const * document) : Parsed(bytes(document)) {}

    SimpleValue const & simple() const { return dynamic_cast<SimpleValue const &>(*value); }
    ComplexValue const & complex() const { return dynamic_cast<ComplexValue const &>(*value); }

    std::string const input;
    tav_istr left;
    tavSharedPtr<ValueBase> value;
};

/// The bytes of a simple value, "null" for none.
std::string dataOf(tavSharedPtr<ValueBase> const & value) {
    return value ? hex(dynamic_cast<SimpleValue const &>(*value).data()) : "null";
}

/// The members as "tag:bytes", those of complex values in braces.
std::string members(ComplexValue const & value) {
    std::string result;
    for (ComplexValue::Item const & item : value) {
        result += result.empty() ? "" : "; ";
        result += std::to_string(static_cast<int>(item.first)) + ":";
        if (item.second && !item.second->simple()) {
            result += "{" + members(dynamic_cast<ComplexValue const &>(*item.second)) + "}";
        } else {
            result += dataOf(item.second);
        }
    }
    return result;
}

struct Failure {
    std::string text;
    std::string left;
};

Failure failureOf(char const * document) {
    std::string const data = bytes(document);
    tav_istr left(data);
    try {
        parser::from(left);
    } catch (std::invalid_argument const & e) {
        return {e.what(), hex(left)};
    }
    return {"none", hex(left)};
}

std::string found(char const * document, char tag) {
    std::string const data = bytes(document);
    tavSharedPtr<SimpleValue> const value = parser::from(tav_istr(data), tag);
    return value ? hex(value->data()) : "null";
}

constexpr char const * lengthMissing = "no data after length of size\n";
constexpr char const * tooLarge = "...data truncated : length of data too large...\n";
constexpr char const * tooSmall = "...data truncated : length of data too small...\n";
constexpr char const * dataMissing = "no data after size\n";

/// Expects one trace record, whose line ends in `text`, from this function of the module.
void expectTrace(LogCapture const & log, std::string const & text, std::string const & func) {
    ASSERT_EQ(log.records().size(), 1u);
    LogCapture::Record const record = log.records()[0];
    EXPECT_EQ(record.level, tavLogger::TRACE);
    EXPECT_NE(record.text.find("parser::" + func), std::string::npos) << record.text;
    EXPECT_NE(record.text.find("vinta_nbr_unit"), std::string::npos) << record.text;
    ASSERT_GE(record.text.size(), text.size());
    EXPECT_EQ(text, record.text.substr(record.text.size() - text.size()));
}

} // namespace

TEST(NbrParser, EmptyInput) {
    LogCapture log;
    Parsed const p("");
    EXPECT_FALSE(p.value);
    expectTrace(log, "eof: empty iptr_\n", "parseValue");
}

TEST(NbrParser, NullPointerWithASizeIsEmpty) {
    tav_istr null(static_cast<char const *>(nullptr), 5u);
    EXPECT_FALSE(parser::from(null));
    EXPECT_FALSE(parser::from(null, char(1)));
}

TEST(NbrParser, SimpleValue) {
    Parsed const p("01 03 AA BB CC 99");
    EXPECT_TRUE(p.value->simple());
    EXPECT_EQ(hex(p.simple().data()), "AA BB CC");
    EXPECT_EQ(p.input.data() + 2, p.simple().data().data());
    EXPECT_EQ(hex(p.left), "99");
    EXPECT_EQ(p.value->getRefCount(), 1u);
}

TEST(NbrParser, EveryByteAtAValuePosition) {
    for (int b = 0; b <= 0xFF; ++b) {
        std::string const document{static_cast<char>(b), 1, 0, 0, 0, 'x', 'y'};
        tav_istr left(document);
        std::string text = "none";
        tavSharedPtr<ValueBase> value;
        try {
            value = parser::from(left);
        } catch (std::invalid_argument const & e) {
            text = e.what();
            text.resize(text.find('\n'));
        }
        unsigned const consumed = static_cast<unsigned>(document.size()) - left.size();
        int const high = b >> 4;
        int const low = b & 0xF;
        if (b == 0xFF || b == 0x00 || b == 0xF0) {
            EXPECT_FALSE(value) << b;
            EXPECT_EQ(consumed, 1u) << b;
            EXPECT_EQ(text, "none") << b;
        } else if (high != 0 && high != 0xF) {
            char expected[80];
            std::snprintf(expected, sizeof(expected),
                          "DecodeException: maybe not nbr: invalid high part of lengthOfSize %x",
                          static_cast<unsigned>(b));
            EXPECT_EQ(text, expected) << b;
            EXPECT_EQ(consumed, 1u) << b;
        } else if (low > 4) {
            EXPECT_EQ("DecodeException: maybe not nbr: invalid lengthOfSize " + std::to_string(low), text)
                << b;
            EXPECT_EQ(consumed, 1u) << b;
        } else {
            ASSERT_TRUE(value) << b;
            EXPECT_EQ(text, "none") << b;
            EXPECT_EQ(1u + static_cast<unsigned>(low) + 1u, consumed) << b;
            EXPECT_EQ(dynamic_cast<SimpleValue const &>(*value).data().size(), 1u) << b;
        }
    }
}

TEST(NbrParser, FailureTextsAndPositions) {
    Failure const high = failureOf("28 01 05");
    EXPECT_EQ(high.text.find("DecodeException: maybe not nbr: invalid high part of lengthOfSize 28\n"
                             "    throw at parser::peekValue(vinta_nbr_unit"),
              0u)
        << high.text;
    EXPECT_EQ(high.left, "01 05");
    Failure const low = failureOf("05 01 05");
    EXPECT_EQ(low.text.find("DecodeException: maybe not nbr: invalid lengthOfSize 5\n"
                            "    throw at parser::peekValue(vinta_nbr_unit"),
              0u)
        << low.text;
    EXPECT_EQ(low.left, "01 05");
    EXPECT_EQ(failureOf("EF 00").text.find(
                  "DecodeException: maybe not nbr: invalid high part of lengthOfSize ef\n"),
              0u);
    EXPECT_EQ(failureOf("FE 00").text.find("DecodeException: maybe not nbr: invalid lengthOfSize 14\n"), 0u);
}

TEST(NbrParser, FailuresAreLoggedAtError) {
    LogCapture log;
    failureOf("A0 00");
    EXPECT_EQ(log.records().size(), 1u);
    LogCapture::Record const record =
        log.find("<EXCEPTION> DecodeException: maybe not nbr: invalid high part of lengthOfSize a0\n");
    EXPECT_EQ(record.level, tavLogger::ERROR);
    EXPECT_EQ(record.text.find("throw at"), std::string::npos);
    log.clear();
    failureOf("0F 00");
    EXPECT_EQ(log.find("<EXCEPTION> DecodeException: maybe not nbr: invalid lengthOfSize 15\n").level,
              tavLogger::ERROR);
}

TEST(NbrParser, FailureInsideLeavesWhatWasConsumedConsumed) {
    EXPECT_EQ(failureOf("FF 01 28 01 01 01 05 02 55 77 78").left, "77 78");
}

TEST(NbrParser, LoneByteIsNeverJudged) {
    for (char const * byte : {"28", "05", "00", "FF", "F0", "01", "F4"}) {
        LogCapture log;
        Parsed const p(byte);
        EXPECT_FALSE(p.value) << byte;
        EXPECT_EQ(p.left.size(), 0u) << byte;
        expectTrace(log, lengthMissing, "peekValue");
    }
}

TEST(NbrParser, NullValueInTheMiddleIsSilent) {
    for (char const * document : {"00 77", "F0 77"}) {
        LogCapture log;
        Parsed const p(document);
        EXPECT_FALSE(p.value);
        EXPECT_EQ(hex(p.left), "77");
        EXPECT_TRUE(log.records().empty());
    }
}

TEST(NbrParser, FFThatOpensNothing) {
    LogCapture log;
    Parsed const p("FF 01 29 05");
    EXPECT_FALSE(p.value);
    EXPECT_EQ(hex(p.left), "01 29 05");
    expectTrace(log, tooLarge, "peekValue");
}

TEST(NbrParser, CutOpenMarkerIsNone) {
    LogCapture log;
    Parsed const p("FF 01");
    EXPECT_FALSE(p.value);
    EXPECT_EQ(hex(p.left), "01");
    expectTrace(log, tooLarge, "peekValue");
}

TEST(NbrParser, SizeFieldCut) {
    LogCapture log;
    Parsed const p("04 05 00 00");
    EXPECT_FALSE(p.value);
    EXPECT_EQ(hex(p.left), "05 00 00");
    expectTrace(log, tooSmall, "peekValue");
}

TEST(NbrParser, NothingAfterTheSize) {
    LogCapture log;
    Parsed const p("02 05 00");
    EXPECT_FALSE(p.value);
    EXPECT_EQ(p.left.size(), 0u);
    expectTrace(log, dataMissing, "peekValue");
}

TEST(NbrParser, SizeZeroIsAValueWithANullView) {
    for (char const * document : {"01 00", "F1 00", "04 00 00 00 00", "01 00 77"}) {
        LogCapture log;
        Parsed const p(document);
        ASSERT_TRUE(p.value) << document;
        EXPECT_EQ(p.simple().data().data(), nullptr) << document;
        EXPECT_EQ(p.simple().data().size(), 0u) << document;
        EXPECT_TRUE(p.simple().isNull()) << document;
        EXPECT_TRUE(log.records().empty());
    }
    EXPECT_EQ(hex(Parsed("01 00 77").left), "77");
}

TEST(NbrParser, SizeLargerThanWhatIsLeftIsCut) {
    LogCapture log;
    Parsed const p("01 05 AA");
    EXPECT_EQ(hex(p.simple().data()), "AA");
    EXPECT_EQ(p.left.size(), 0u);
    EXPECT_TRUE(log.records().empty());
    EXPECT_EQ(hex(Parsed("04 FF FF FF 7F AA BB").simple().data()), "AA BB");
}

TEST(NbrParser, SizeFieldIsLittleEndianOfOneToFourBytes) {
    EXPECT_EQ(hex(Parsed("01 01 AA BB").simple().data()), "AA");
    EXPECT_EQ(hex(Parsed("02 01 00 AA BB").simple().data()), "AA");
    EXPECT_EQ(hex(Parsed("F3 01 00 00 AA BB").simple().data()), "AA");
    EXPECT_EQ(hex(Parsed("F4 01 00 00 00 AA BB").simple().data()), "AA");
    std::string long2 = bytes("02 2C 01") + std::string(301, 'x');
    EXPECT_EQ(Parsed(long2).simple().data().size(), 300u);
}

TEST(NbrParser, ComplexValue) {
    Parsed const p("FF 01 28 01 01 01 05 02 F1 02 61 62 FF 01 29 99");
    EXPECT_FALSE(p.value->simple());
    EXPECT_EQ(members(p.complex()), "1:05; 2:61 62");
    EXPECT_EQ(hex(p.left), "99");
    EXPECT_EQ(p.value->getRefCount(), 1u);
}

TEST(NbrParser, EmptyComplexValue) {
    Parsed const p("FF 01 28 FF 01 29 99");
    EXPECT_EQ(members(p.complex()), "");
    EXPECT_TRUE(p.complex().begin() == p.complex().end());
    EXPECT_EQ(hex(p.left), "99");
}

TEST(NbrParser, InputEndsAfterAnOpenMarker) {
    LogCapture log;
    Parsed const p("FF 01 28");
    ASSERT_TRUE(p.value);
    EXPECT_EQ(members(p.complex()), "");
    EXPECT_TRUE(log.records().empty());
}

TEST(NbrParser, InputEndsAfterATag) {
    LogCapture log;
    Parsed const p("FF 01 28 01 01 01 05 02");
    EXPECT_EQ(members(p.complex()), "1:05");
    EXPECT_EQ(p.left.size(), 0u);
    expectTrace(log, "eof: empty value\n", "parseValue");
}

TEST(NbrParser, InputEndsAfterANestedTag) {
    LogCapture log;
    Parsed const p("FF 01 28 01 FF 01 28 02 FF 01 28 03 01 01 09 04");
    EXPECT_EQ(members(p.complex()), "1:{2:{3:09}}");
    expectTrace(log, "eof: empty value\n", "parseValue");
}

TEST(NbrParser, InputEndsWithoutACloseMarker) {
    LogCapture log;
    Parsed const p("FF 01 28 01 01 01 05");
    EXPECT_EQ(members(p.complex()), "1:05");
    EXPECT_TRUE(log.records().empty());
}

TEST(NbrParser, CutCloseMarkerIsAMember) {
    LogCapture log;
    EXPECT_EQ(members(Parsed("FF 01 28 01 01 01 05 FF 01").complex()), "1:05; -1:null");
    expectTrace(log, lengthMissing, "peekValue");
    log.clear();
    EXPECT_EQ(members(Parsed("FF 01 28 01 01 01 05 FF").complex()), "1:05");
    expectTrace(log, "eof: empty value\n", "parseValue");
}

TEST(NbrParser, CloseMarkerWinsOverTheTagFF) {
    Parsed const p("FF 01 28 FF 01 29 AA BB");
    EXPECT_EQ(members(p.complex()), "");
    EXPECT_EQ(hex(p.left), "AA BB");
    EXPECT_EQ(members(Parsed("FF 01 28 FF 01 01 28 FF 01 29").complex()), "-1:28");
}

TEST(NbrParser, Nested) {
    Parsed const p(
        "FF 01 28 05 FF 01 28 00 01 01 07 00 01 02 2C 01 FF 01 29 06 FF 01 28 FF 01 29 07 01 01 08 "
        "FF 01 29");
    EXPECT_EQ(members(p.complex()), "5:{0:07; 0:2C 01}; 6:{}; 7:08");
    EXPECT_EQ(p.left.size(), 0u);
}

TEST(NbrParser, NullMemberIsAnItem) {
    Parsed const p("FF 01 28 01 00 02 01 01 05 FF 01 29");
    EXPECT_EQ(members(p.complex()), "1:null; 2:05");
    EXPECT_FALSE(p.complex().get(1));
    EXPECT_TRUE(p.complex().get(2));
}

TEST(NbrParser, NullMemberBeforeTheCloseMarker) {
    EXPECT_EQ(members(Parsed("FF 01 28 01 00 FF 01 29").complex()), "1:null");
    EXPECT_EQ(members(Parsed("FF 01 28 01 F0 FF 01 29").complex()), "1:null");
}

TEST(NbrParser, LastOfTwoMembersWithOneTagWins) {
    Parsed const p("FF 01 28 01 01 01 05 02 01 01 06 01 01 01 07 FF 01 29");
    EXPECT_EQ(members(p.complex()), "1:05; 2:06; 1:07");
    EXPECT_EQ(dataOf(p.complex().get(1)), "07");
    EXPECT_EQ(dataOf(p.complex().get(2)), "06");
    EXPECT_EQ(dataOf(p.complex().get(3)), "null");
}

TEST(NbrParser, LaterNullReplacesTheEntry) {
    Parsed const p("FF 01 28 01 01 01 05 01 00 FF 01 29");
    EXPECT_EQ(members(p.complex()), "1:05; 1:null");
    EXPECT_FALSE(p.complex().get(1));
}

TEST(NbrParser, ManyMembersAreFoundAsFew) {
    std::string document = bytes("FF 01 28");
    for (int round = 0; round < 2; ++round) {
        for (int tag = 0; tag < 200; ++tag) {
            document += {static_cast<char>(tag), 1, 1, static_cast<char>(tag + round)};
        }
    }
    document += bytes("FF 01 29");
    Parsed const p(document);
    EXPECT_EQ(p.complex().data().size(), 400u);
    for (int tag = 0; tag < 200; ++tag) {
        tavSharedPtr<ValueBase> const value = p.complex().get(static_cast<char>(tag));
        ASSERT_TRUE(value);
        unsigned char v = 0;
        EXPECT_TRUE(dynamic_cast<SimpleValue const &>(*value).read(v));
        EXPECT_EQ(tag + 1, v);
        EXPECT_EQ(p.complex().data()[200u + static_cast<unsigned>(tag)].second, value);
    }
    EXPECT_FALSE(p.complex().get(static_cast<char>(200)));
}

TEST(NbrParser, LookUpFollowsLaterAdditions) {
    for (int before : {0, 5, 100}) {
        ComplexValue v;
        for (int i = 0; i < before; ++i) {
            v.add(static_cast<char>(i), tavSharedPtr<ValueBase>(new SimpleValue("old", true)));
        }
        EXPECT_EQ(before > 3, static_cast<bool>(v.get(3)));
        v.add(3, tavSharedPtr<ValueBase>(new SimpleValue("new", true)));
        EXPECT_EQ(dataOf(v.get(3)), "6E 65 77") << before;
        v.add(3, nullptr);
        EXPECT_FALSE(v.get(3)) << before;
        EXPECT_EQ(static_cast<std::size_t>(before) + 2, v.data().size());
    }
}

TEST(NbrParser, AdditionsToAParsedValue) {
    Parsed const p("FF 01 28 01 01 01 05 FF 01 29");
    auto & value = dynamic_cast<ComplexValue &>(*p.value);
    value.add(2, tavSharedPtr<ValueBase>(new SimpleValue("x", true)));
    EXPECT_EQ(members(value), "1:05; 2:78");
    std::ostringstream out;
    value.dump(out, false, 0);
    EXPECT_EQ(out.str(), "{ 1[1]5 2[1]\"x***[1]\" }");
}

TEST(NbrParser, CopiesShareTheValues) {
    Parsed const p("FF 01 28 01 01 01 05 02 FF 01 28 FF 01 29 03 00 FF 01 29");
    ComplexValue copy(p.complex());
    EXPECT_EQ(copy.getRefCount(), 0u);
    EXPECT_EQ(members(p.complex()), members(copy));
    EXPECT_EQ(p.complex().get(1), copy.get(1));
    EXPECT_EQ(p.complex().get(2), copy.get(2));
    copy.add(9, nullptr);
    EXPECT_EQ(copy.data().size(), 4u);
    EXPECT_EQ(p.complex().data().size(), 3u);
    copy = p.complex();
    EXPECT_EQ(copy.data().size(), 3u);
    ComplexValue const & same = copy;
    copy = same;
    EXPECT_EQ(copy.data().size(), 3u);
}

TEST(NbrParser, LookUpFollowsAnAssignment) {
    ComplexValue many;
    ComplexValue others;
    for (int i = 0; i < 100; ++i) {
        many.add(static_cast<char>(i), tavSharedPtr<ValueBase>(new SimpleValue("old", true)));
        others.add(static_cast<char>(99 - i), tavSharedPtr<ValueBase>(new SimpleValue("new", true)));
    }
    EXPECT_EQ(dataOf(many.get(3)), "6F 6C 64");
    many.add(100, nullptr);
    many = others;
    EXPECT_EQ(dataOf(many.get(3)), "6E 65 77");
    EXPECT_EQ(many.get(3), many.data()[96].second);
}

TEST(NbrParser, ValuesOutliveTheirParent) {
    std::string const input = bytes("FF 01 28 02 FF 01 28 01 01 01 05 FF 01 29 FF 01 29");
    tav_istr view(input);
    tavSharedPtr<ValueBase> child = dynamic_cast<ComplexValue const &>(*parser::from(view)).get(2);
    EXPECT_EQ(members(dynamic_cast<ComplexValue const &>(*child)), "1:05");
    tavSharedPtr<ValueBase> const leaf = dynamic_cast<ComplexValue const &>(*child).get(1);
    child.reset();
    EXPECT_EQ(dataOf(leaf), "05");
}

TEST(NbrParser, AskingTwiceGivesTheSameValue) {
    Parsed const p("FF 01 28 02 FF 01 28 01 01 01 05 FF 01 29 FF 01 29");
    EXPECT_EQ(p.complex().get(2), p.complex().get(2));
    EXPECT_EQ(p.complex().get(2), p.complex().data()[0].second);
    EXPECT_EQ(p.complex().data().data(), p.complex().data().data());
}

TEST(NbrParser, ThreadsMayReadOneTree) {
    std::string document = bytes("FF 01 28");
    for (int i = 0; i < 100; ++i) {
        document += static_cast<char>(i) + bytes("FF 01 28 01 01 01 05 02 00 FF 01 29");
    }
    for (int round = 0; round < 20; ++round) {
        Parsed const p(document);
        ComplexValue const & root = p.complex();
        std::atomic<int> sum{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&, t] {
                int mine = 0;
                for (int i = 0; i < 100; ++i) {
                    char const tag = static_cast<char>((i + 25 * t) % 100);
                    tavSharedPtr<ValueBase> const value = root.get(tag);
                    int n = 0;
                    dynamic_cast<SimpleValue const &>(*dynamic_cast<ComplexValue const &>(*value).get(1))
                        .read(n);
                    mine += n;
                }
                ComplexValue const copy(root);
                mine += static_cast<int>(copy.data().size());
                sum += mine;
            });
        }
        for (std::thread & t : threads) {
            t.join();
        }
        EXPECT_EQ(4 * (100 * 5 + 100), sum.load());
    }
}

TEST(NbrParserSimpleValue, NullAndEmptyViews) {
    SimpleValue const null(true);
    EXPECT_TRUE(null.simple());
    EXPECT_TRUE(null.isNull());
    EXPECT_FALSE(null.isEmpty());
    EXPECT_TRUE(null.isNullOrEmpty());
    SimpleValue const empty(tav_istr("", 0u), true);
    EXPECT_FALSE(empty.isNull());
    EXPECT_TRUE(empty.isEmpty());
    EXPECT_TRUE(empty.isNullOrEmpty());
    SimpleValue const odd(tav_istr(static_cast<char const *>(nullptr), 3u), false);
    EXPECT_FALSE(odd.isNull());
    EXPECT_FALSE(odd.isEmpty());
    EXPECT_TRUE(odd.isNullOrEmpty());
    SimpleValue const some("x", false);
    EXPECT_FALSE(some.isNull());
    EXPECT_FALSE(some.isEmpty());
    EXPECT_FALSE(some.isNullOrEmpty());
}

TEST(NbrParserSimpleValue, EmptyTextIsReadWhereANumberFails) {
    SimpleValue const empty(tav_istr("", 0u), true);
    tavString text("old");
    EXPECT_TRUE(empty.read(text));
    EXPECT_EQ(text, "");
    tavBytes data(tav_istr("old"));
    EXPECT_TRUE(empty.read(data));
    EXPECT_EQ(data.size(), 0u);
    int number = 7;
    EXPECT_FALSE(empty.read(number));
    EXPECT_EQ(number, 7);
    tavTime time = tavTime::milliseconds(7);
    EXPECT_FALSE(empty.read(time));
    EXPECT_EQ(time.milliseconds(), 7);
}

TEST(NbrParserSimpleValue, NullIsNeverRead) {
    SimpleValue const null(false);
    tavString text("old");
    EXPECT_FALSE(null.read(text));
    EXPECT_EQ(text, "old");
    tavBytes data(tav_istr("old"));
    EXPECT_FALSE(null.read(data));
    EXPECT_EQ(data.size(), 3u);
    bool truth = true;
    EXPECT_FALSE(null.read(truth));
    EXPECT_TRUE(truth);
    double number = 1.5;
    EXPECT_FALSE(null.read(number));
    EXPECT_EQ(number, 1.5);
}

TEST(NbrParserSimpleValue, ReadsByTheWidthOfTheTarget) {
    std::string const nine = bytes("81 92 A3 B4 C5 D6 E7 F8 99");
    SimpleValue const v(nine, false);
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
    tavTime t;
    EXPECT_TRUE(v.read(c) && v.read(uc) && v.read(b) && v.read(s) && v.read(us) && v.read(i) && v.read(u));
    EXPECT_TRUE(v.read(l) && v.read(ul) && v.read(ll) && v.read(ull) && v.read(t));
    EXPECT_EQ(c, '\x81');
    EXPECT_EQ(uc, 0x81);
    EXPECT_TRUE(b);
    EXPECT_EQ(s, static_cast<short>(0x9281));
    EXPECT_EQ(us, 0x9281);
    EXPECT_EQ(i, static_cast<int>(0xB4A39281u));
    EXPECT_EQ(u, 0xB4A39281u);
    EXPECT_EQ(l, static_cast<long>(0xF8E7D6C5B4A39281ull));
    EXPECT_EQ(ul, 0xF8E7D6C5B4A39281ull);
    EXPECT_EQ(ll, static_cast<long long>(0xF8E7D6C5B4A39281ull));
    EXPECT_EQ(ull, 0xF8E7D6C5B4A39281ull);
    EXPECT_EQ(t.milliseconds(), static_cast<long long>(0xF8E7D6C5B4A39281ull));
    float f = 0;
    SimpleValue const one(tav_istr("\0\0\x80\x3F", 4u), false);
    EXPECT_TRUE(one.read(f));
    EXPECT_EQ(f, 1.0f);
    double d = 0;
    SimpleValue const half(tav_istr("\0\0\0\0\0\0\xF8\x3F", 8u), false);
    EXPECT_TRUE(half.read(d));
    EXPECT_EQ(d, 1.5);
}

TEST(NbrParserFind, MemberOfAFlatObject) {
    char const * const object = "FF 01 28 01 01 01 05 02 F1 02 61 62 03 00 04 01 01 09 FF 01 29";
    EXPECT_EQ(found(object, 1), "05");
    EXPECT_EQ(found(object, 2), "61 62");
    EXPECT_EQ(found(object, 3), "null");
    EXPECT_EQ(found(object, 4), "09");
    EXPECT_EQ(found(object, 5), "null");
}

TEST(NbrParserFind, FirstOfTwoMembers) {
    EXPECT_EQ(found("FF 01 28 01 01 01 05 01 01 01 06 FF 01 29", 1), "05");
    EXPECT_EQ(found("FF 01 28 01 00 01 01 01 06 FF 01 29", 1), "null");
}

TEST(NbrParserFind, LastMemberNeedsNoCloseMarker) {
    EXPECT_EQ(found("FF 01 28 01 01 01 05 02 01 01 06", 2), "06");
}

TEST(NbrParserFind, SimpleValueAtTheFrontIsNotRead) {
    LogCapture log;
    EXPECT_EQ(found("01 01 05", 1), "null");
    EXPECT_EQ(found("28 01", 1), "null");
    EXPECT_TRUE(log.records().empty());
}

TEST(NbrParserFind, OverloadTakesAnLvalue) {
    std::string const data = bytes("FF 01 28 01 01 01 05 FF 01 29");
    tav_istr view(data);
    tavSharedPtr<SimpleValue> const value = parser::from(view, char(1));
    EXPECT_EQ(hex(value->data()), "05");
    EXPECT_EQ(data.size(), view.size());
    EXPECT_EQ(value->getRefCount(), 1u);
}

TEST(NbrParserFind, TextFlagIsKept) {
    std::string const data = bytes("FF 01 28 01 F1 01 61 02 01 01 61");
    std::ostringstream out;
    parser::from(tav_istr(data), 1)->dump(out, false, 0);
    parser::from(tav_istr(data), 2)->dump(out, false, 0);
    EXPECT_EQ(out.str(), "[1]\"a***[1]\"[1]97");
}

// The bytes are the same: no reader can tell the two.
TEST(NbrParserMarkers, MemberOfTag255With41BytesReadsAsTheEnd) {
    std::string const opening = bytes("FF 01 28");
    std::string const closing = bytes("FF 01 29");
    Parsed const shorter(opening + bytes("FF 01 28") + std::string(40, 'x') + closing);
    ASSERT_EQ(shorter.complex().data().size(), 1u);
    EXPECT_TRUE(shorter.left.empty());
    Parsed const ended(opening + bytes("FF 01 29") + std::string(41, 'x') + closing);
    EXPECT_TRUE(ended.complex().data().empty());
    EXPECT_EQ(ended.left.size(), 44u);
    Parsed const text(opening + bytes("FF F1 29") + std::string(41, 'x') + closing);
    EXPECT_EQ(text.complex().data().size(), 1u);
}

TEST(NbrParserFind, EmptyInputAndMissingValueAreTraced) {
    LogCapture log;
    EXPECT_EQ(found("", 1), "null");
    expectTrace(log, "eof: empty iptr_\n", "parseValue");
    log.clear();
    EXPECT_EQ(found("FF 01 28 01", 1), "null");
    expectTrace(log, "eof: empty value\n", "parseValue");
}

TEST(NbrParserFind, NestedValueAheadFails) {
    LogCapture log;
    std::string const data = bytes("FF 01 28 01 FF 01 28 FF 01 29 02 01 01 05 FF 01 29");
    std::string text;
    try {
        parser::from(tav_istr(data), 2);
    } catch (std::invalid_argument const & e) {
        text = e.what();
    }
    EXPECT_EQ(text.find("DecodeException: maybe not nbr: invalid high part of lengthOfSize 28\n"), 0u);
    EXPECT_EQ(log.count(tooLarge), 1u);
}

TEST(NbrParserFind, NestedValueThatIsSoughtIsNull) {
    EXPECT_EQ(found("FF 01 28 01 FF 01 28 FF 01 29 FF 01 29", 1), "null");
}

TEST(NbrParserFind, StopsAtTheCloseMarker) {
    EXPECT_EQ(found("FF 01 28 FF 01 29 01 01 01 05", 1), "null");
}

TEST(NbrParserTrace, NothingIsWrittenBelowTheLevel) {
    LogCapture log("clear(VERBOSE)");
    Parsed const p("04 05 00 00");
    EXPECT_FALSE(p.value);
    EXPECT_TRUE(log.records().empty());
}
