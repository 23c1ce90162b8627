#include "tav/vinta/vinta_transport_message.h"

#include "tav/vinta/vinta_nbr_unit.h"

#include "support/failing_allocations.h"
#include "support/log_capture.h"
#include "support/packet_bytes.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>

using tav_test::hex;
using tav_test::LogCapture;
using tav_test::unhex;

namespace {

std::string encoded(tavGateMessage const & m) {
    tavBytes out;
    m.encode(out);
    return std::string(tav_istr(out));
}

std::string dumped(tavGateMessage const & m) {
    std::ostringstream out;
    m.dump(out);
    return out.str();
}

std::string text(tavBytes const & b) {
    return std::string(tav_istr(b));
}

/// A message of which every field differs.
tavGateMessage full(tav_istr head = "head", tav_istr body = "body!") {
    return tavGateMessage(2, 3, 4, 0, 5, 6, 7, head, body);
}

void expectSame(tavGateMessage const & a, tavGateMessage const & b) {
    EXPECT_EQ(a.protocol(), b.protocol());
    EXPECT_EQ(a.domain(), b.domain());
    EXPECT_EQ(a.code(), b.code());
    EXPECT_EQ(a.direction(), b.direction());
    EXPECT_EQ(a.sequence(), b.sequence());
    EXPECT_EQ(a.extra1(), b.extra1());
    EXPECT_EQ(a.extra2(), b.extra2());
    EXPECT_EQ(text(a.head()), text(b.head()));
    EXPECT_EQ(text(a.body()), text(b.body()));
}

} // namespace

TEST(GateMessage, WithoutArgumentsIsEmpty) {
    tavGateMessage const m;
    expectSame(tavGateMessage(255, 0, 0, 255, 0, 0, 0, "", ""), m);
    EXPECT_TRUE(m.isEmpty());
    EXPECT_FALSE(m.isHeartbeat());
    EXPECT_EQ(m.size(), 12u);
}

TEST(GateMessage, IsEmptyOnlyIfBothProtocolAndDirectionAre255) {
    EXPECT_TRUE(tavGateMessage(255, 255).isEmpty());
    EXPECT_FALSE(tavGateMessage(255, 0).isEmpty());
    EXPECT_FALSE(tavGateMessage(0, 255).isEmpty());
    EXPECT_TRUE(tavGateMessage(255, 1, 2, 255, 3, "x").isEmpty());
}

TEST(GateMessage, ConstructorsSetTheirFieldsAndLeaveTheRestZero) {
    expectSame(tavGateMessage(9, 0, 0, 8, 0, 0, 0, "", ""), tavGateMessage(9, 8));
    expectSame(tavGateMessage(9, 1, 2, 8, -3, 0, 0, "", "b"), tavGateMessage(9, 1, 2, 8, -3, "b"));
    expectSame(tavGateMessage(9, 0x12, 0x34, 8, -3, 0, 0, "", "b"), tavGateMessage(9, 0x1234, 8, -3, "b"));
    tavGateMessage const m = full();
    EXPECT_EQ(m.protocol(), 2);
    EXPECT_EQ(m.domain(), 3);
    EXPECT_EQ(m.code(), 4);
    EXPECT_EQ(m.direction(), 0);
    EXPECT_EQ(m.sequence(), 5);
    EXPECT_EQ(m.extra1(), 6);
    EXPECT_EQ(m.extra2(), 7);
    EXPECT_EQ(text(m.head()), "head");
    EXPECT_EQ(text(m.body()), "body!");
}

TEST(GateMessage, HeartbeatIsANotice) {
    tavGateMessage const m = tavGateMessage::HEARTBEAT_MESSAGE();
    expectSame(tavGateMessage(8, 0, 0, 2, 0, ""), m);
    EXPECT_TRUE(m.isHeartbeat());
    EXPECT_EQ(hex(encoded(m)), "080000020000000000000000");
}

TEST(GateMessage, FactoriesOfTextUseTheProtocolText) {
    expectSame(tavGateMessage(1, 1, 2, 0, 0, "t"), tavGateMessage::createArg(0x102, tavString("t")));
    expectSame(tavGateMessage(1, 1, 2, 0, 0, "t"), tavGateMessage::createArg(0x102, "t"));
    expectSame(tavGateMessage(1, 1, 2, 0, 0, "t"), tavGateMessage::createArg(0x102, std::string("t")));
    expectSame(tavGateMessage(1, 1, 2, 1, 0, "t"), tavGateMessage::createAck(0x102, tavString("t")));
    expectSame(tavGateMessage(1, 1, 2, 1, 0, "t"), tavGateMessage::createAck(0x102, "t"));
    expectSame(tavGateMessage(1, 1, 2, 1, 0, "t"), tavGateMessage::createAck(0x102, std::string("t")));
}

TEST(GateMessage, FactoriesOfBytesUseTheProtocolBinary) {
    expectSame(tavGateMessage(2, 1, 2, 0, 0, "b"), tavGateMessage::createArg(0x102, tav_istr("b")));
    expectSame(tavGateMessage(2, 1, 2, 0, 7, "b"), tavGateMessage::createArg(0x102, 7, tav_istr("b")));
    expectSame(tavGateMessage(2, 1, 2, 1, 0, "b"), tavGateMessage::createAck(0x102, tav_istr("b")));
    expectSame(tavGateMessage(2, 1, 2, 1, 7, "b"), tavGateMessage::createAck(0x102, 7, tav_istr("b")));
}

TEST(GateMessage, AnswerKeepsAllButHeadAndBody) {
    expectSame(tavGateMessage(2, 3, 4, 1, 5, 6, 7, "", ""), full().createAck());
    expectSame(tavGateMessage(2, 3, 4, 2, 5, 6, 7, "", ""),
               tavGateMessage(2, 3, 4, 2, 5, 6, 7, "h", "b").createAck());
}

TEST(GateMessage, AnswerToOtherDirectionsIsTheEmptyMessage) {
    for (int direction = 0; direction < 256; ++direction) {
        tavGateMessage const m(2, 3, 4, static_cast<unsigned char>(direction), 5, 6, 7, "h", "b");
        EXPECT_EQ(direction != 0 && direction != 2, m.createAck().isEmpty()) << direction;
    }
    expectSame(tavGateMessage(), tavGateMessage::createAck(1, "x").createAck());
}

TEST(GateMessage, TypeIsDomainTimes256PlusCode) {
    EXPECT_EQ(tavGateMessage::make_type(0x12, 0x34), 0x1234);
    EXPECT_EQ(tavGateMessage::make_type(0xff, 0xff), 0xffff);
    EXPECT_EQ(tavGateMessage::get_type_domain(0x123456), 0x34);
    EXPECT_EQ(tavGateMessage::get_type_code(0x123456), 0x56);
    EXPECT_EQ(tavGateMessage::get_type_domain(-1), 0xff);
    tavGateMessage m;
    EXPECT_EQ(&m, &m.setType(0x0a0b));
    EXPECT_EQ(m.domain(), 0x0a);
    EXPECT_EQ(m.code(), 0x0b);
    EXPECT_EQ(m.type(), 0x0a0b);
}

TEST(GateMessage, ProtocolsHaveNames) {
    char const * const names[] = {"NOTHING", "TEXT", "BINARY", "NBR",      "PROTOCOL~4",
                                  "PML",     "XML",  "JSON",   "HEARTBEAT"};
    for (unsigned char i = 0; i < 9; ++i) {
        EXPECT_EQ(names[i], std::string(tavGateMessage::getProtocolString(i).data()));
    }
    EXPECT_EQ(tavString("UNKNOWN"), tavGateMessage::getProtocolString(255));
    EXPECT_EQ(tavString("PROTOCOL~9"), tavGateMessage::getProtocolString(9));
    EXPECT_EQ(tavString("PROTOCOL~127"), tavGateMessage::getProtocolString(127));
    EXPECT_EQ(tavString("PROTOCOL~-128"), tavGateMessage::getProtocolString(128));
    EXPECT_EQ(tavString("PROTOCOL~-56"), tavGateMessage::getProtocolString(200));
}

TEST(GateMessage, DirectionsHaveNames) {
    EXPECT_EQ(tavString("ARG"), tavGateMessage::getDirectionString(0));
    EXPECT_EQ(tavString("ACK"), tavGateMessage::getDirectionString(1));
    EXPECT_EQ(tavString("NOTIFY"), tavGateMessage::getDirectionString(2));
    EXPECT_EQ(tavString("UNKNOWN"), tavGateMessage::getDirectionString(255));
    EXPECT_EQ(tavString("DIRECTION~3"), tavGateMessage::getDirectionString(3));
    EXPECT_EQ(tavString("DIRECTION~-2"), tavGateMessage::getDirectionString(254));
}

TEST(GateMessage, WireHasTheFieldsInOrderBigEndian) {
    EXPECT_EQ("020304000000000506070004" + hex(tav_istr("headbody!")), hex(encoded(full())));
    EXPECT_EQ(hex(encoded(tavGateMessage(1, 255, 0, 255, -2, ""))), "01FF00FFFFFFFFFE00000000");
}

TEST(GateMessage, EncodingAppendsAndIntoAnEmptyBufferFitsExactly) {
    tavBytes out(tav_istr("ahead"));
    full().encode(out);
    EXPECT_EQ("ahead" + encoded(full()), text(out));
    EXPECT_EQ(out.size(), out.maxSize());
    tavBytes fresh;
    full().encode(fresh);
    EXPECT_EQ(fresh.size(), 21u);
    EXPECT_EQ(fresh.maxSize(), 21u);
    EXPECT_EQ(full().size(), 21u);
}

TEST(GateMessage, DecodingReadsWhatEncodingWrote) {
    tavGateMessage const m(200, 201, 202, 203, -2000000000, 204, 205, tav_istr("h\0d", 3u),
                           tav_istr("\0", 1u));
    tavGateMessage read;
    read.decode(tav_istr(encoded(m)));
    expectSame(m, read);
}

TEST(GateMessage, DecodingReplacesAllFields) {
    tavGateMessage m = full();
    m.decode(tav_istr(encoded(tavGateMessage())));
    expectSame(tavGateMessage(), m);
}

TEST(GateMessage, ElevenBytesFailAndChangeNothing) {
    LogCapture log;
    tavGateMessage m = full();
    for (unsigned n = 0; n < 12; ++n) {
        try {
            m.decode(tav_istr(encoded(full("other", "one"))).leftstr(n));
            ADD_FAILURE() << n;
        } catch (std::invalid_argument const & e) {
            EXPECT_STREQ(e.what(), "IllegalArgumentException");
        }
    }
    expectSame(full(), m);
    EXPECT_EQ(log.records().size(), 0u);
}

TEST(GateMessage, TwelveBytesWithAHeadSizeGiveNeitherHeadNorBody) {
    tavGateMessage m;
    m.decode(tav_istr(unhex("010203000000000400000005")));
    expectSame(tavGateMessage(1, 2, 3, 0, 4, ""), m);
}

TEST(GateMessage, ShortHeadTakesWhatIsLeft) {
    tavGateMessage m;
    m.decode(tav_istr(unhex("010203000000000400000005") + "abc"));
    expectSame(tavGateMessage(1, 2, 3, 0, 4, 0, 0, "abc", ""), m);
}

TEST(GateMessage, DecodesItsOwnBody) {
    std::string const inner = encoded(full("inner head", "inner body"));
    tavGateMessage m(3, 1, 1, 1, 1, tav_istr(inner));
    m.decode(tav_istr(m.body()));
    expectSame(full("inner head", "inner body"), m);
}

TEST(GateMessage, FromGivesTheMessage) {
    expectSame(full(), tavGateMessage::from(tav_istr(encoded(full()))));
}

TEST(GateMessage, FromLogsAFailureAndGivesTheEmptyMessage) {
    LogCapture log;
    tavGateMessage const m = tavGateMessage::from(tav_istr("eleven byte"));
    EXPECT_TRUE(m.isEmpty());
    expectSame(tavGateMessage(), m);
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].level, tavLogger::ERROR);
    EXPECT_NE(log.records()[0].text.find("IllegalArgumentException\n"), std::string::npos);
    EXPECT_EQ(log.records()[0].text.find("EXCEPTION>"), std::string::npos);
}

TEST(GateMessage, SizesAreCutTo16BitsWhileAllBytesAreWritten) {
    std::string const big(65536 + 3, 'x');
    tavGateMessage const m(2, 0, 0, 0, 0, 0, 0, tav_istr(big), "body");
    EXPECT_EQ(m.headSize(), 3u);
    EXPECT_EQ(m.bodySize(), 4u);
    EXPECT_EQ(m.size(), 19u);
    EXPECT_EQ(12u + 65539u + 4u, encoded(m).size());
    EXPECT_EQ(hex(encoded(m).substr(10, 2)), "0003");
    tavGateMessage const whole(2, 0, 0, 0, 0, 0, 0, tav_istr(std::string(65536, 'x')), "");
    EXPECT_EQ(whole.size(), 12u);
    EXPECT_EQ(hex(encoded(whole).substr(10, 2)), "0000");
}

TEST(GateMessage, DumpIsOneLine) {
    EXPECT_EQ(dumped(tavGateMessage(1, 3, 4, 0, -5, 6, 7, "head", "body!")),
              "TEXT 3 4 ARG -5 6 7 [4]head [5]body!");
}

TEST(GateMessage, DumpAlwaysHasTheHeadsSizeAndTheBodysOnlyWithBytes) {
    EXPECT_EQ(dumped(tavGateMessage()), "UNKNOWN 0 0 UNKNOWN 0 0 0 [0]");
    EXPECT_EQ(dumped(tavGateMessage(6, 0, 2, 0, "x")), "XML 0 0 NOTIFY 0 0 0 [0] [1]x");
    EXPECT_EQ(dumped(tavGateMessage(200, 200, 201, 3, 0, 202, 203, "", "")),
              "PROTOCOL~-56 200 201 DIRECTION~3 0 202 203 [0]");
}

TEST(GateMessage, DumpPrintsDecimalWhateverTheStreamIsSetTo) {
    std::ostringstream out;
    out << std::hex << std::showbase << std::setfill('*') << std::setw(60);
    tavGateMessage(1, 30, 40, 0, 50, 60, 70, "", "").dump(out);
    EXPECT_NE(out.str().find("TEXT 30 40 ARG 50 60 70 [0]"), std::string::npos);
}

TEST(GateMessage, BytesPrintByTheProtocol) {
    tavBytes const bytes(tav_istr("a\nb"));
    for (int protocol = 0; protocol < 256; ++protocol) {
        std::ostringstream out;
        if (protocol == 3) {
            continue;
        }
        tavGateMessage::dump_str(out, static_cast<unsigned char>(protocol), bytes);
        std::ostringstream raw;
        raw << bytes;
        bool const is_text = protocol == 1 || protocol == 5 || protocol == 6 || protocol == 7;
        EXPECT_EQ(is_text ? "a\nb" : raw.str(), out.str()) << protocol;
    }
}

TEST(GateMessage, NbrBodyPrintsAsATree) {
    std::string const nbr = unhex("FF0128 010105 FF0129");
    std::ostringstream expected;
    expected << tav::nbr::_PrintNbr(tav_istr(nbr), false);
    EXPECT_EQ("NBR 0 1 ACK 0 0 0 [0] [" + std::to_string(nbr.size()) + "]" + expected.str(),
              dumped(tavGateMessage(3, 1, 1, 0, tav_istr(nbr))));
}

TEST(GateMessage, MalformedNbrBodyRaisesAndPrintsNothing) {
    std::ostringstream out;
    EXPECT_THROW(tavGateMessage(3, 1, 1, 0, tav_istr(unhex("FF0128 012800"))).dump(out),
                 std::invalid_argument);
    EXPECT_EQ(out.str(), "");
}

TEST(GateMessage, AnyBytesDecodeOrFail) {
    std::mt19937 random(1);
    for (int round = 0; round < 20000; ++round) {
        std::string bytes(random() % 40, '\0');
        for (char & c : bytes) {
            c = static_cast<char>(random() % (round % 2 == 0 ? 256 : 9));
        }
        tavGateMessage const m = tavGateMessage::from(tav_istr(bytes));
        ASSERT_EQ(bytes.size() < 12 || (bytes[0] == '\xff' && bytes[3] == '\xff'), m.isEmpty());
        if (bytes.size() >= 12) {
            ASSERT_EQ(bytes.size(), 12u + m.head().size() + m.bodySize());
        }
        try {
            dumped(m);
        } catch (std::invalid_argument const &) {
            ASSERT_EQ(m.protocol(), 3);
        }
    }
}

TEST(GateMessage, WantOfMemoryIsNoEmptyMessage) {
    std::string const data = encoded(tavGateMessage(2, 0x101, 0, 7, tav_istr(std::string(100, 'x'))));
    long raised = 0;
    long const failed = tav_test::eachAllocationFails([&] {
        try {
            EXPECT_FALSE(tavGateMessage::from(tav_istr(data)).isEmpty());
        } catch (std::bad_alloc const &) {
            ++raised;
        }
    });
    EXPECT_LT(0, failed);
    EXPECT_EQ(failed, raised);
}
