#include "tav/vinta/vinta_im_pkt.h"

#include "support/log_capture.h"
#include "support/packet_bytes.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

using tav::im::PacketPC;
using tav_test::encoded;
using tav_test::hex;
using tav_test::LogCapture;
using tav_test::pcDocument;
using tav_test::printed;
using tav_test::unhex;

namespace {

std::string const OPTION = "FF0128 01010100 0200 0300 0400 05F100 0600 08010100 0D010100 0EF100 FF0129";

std::string const WORKED = "00000000 010100 010100 010100 010107 010100 F100 010105 01024142 0120" + OPTION;

/// A packet of which every field that can be set is.
void fill(PacketPC & pkt) {
    pkt.setCode(0x11);
    pkt.setSequence(0x22);
    pkt.setSession(0x33);
    pkt.setTarget("target");
    pkt.setBody("body");
}

void expectFilled(PacketPC const & pkt) {
    EXPECT_EQ(pkt.code(), 0x11);
    EXPECT_EQ(pkt.sequence(), 0x22u);
    EXPECT_EQ(pkt.session(), 0x33u);
    EXPECT_EQ(pkt.target(), "target");
    EXPECT_EQ(pkt.body(), "body");
}

} // namespace

TEST(PacketPC, WorkedPacket) {
    PacketPC pkt;
    pkt.setSequence(7);
    pkt.setCode(5);
    pkt.setBody("AB");
    tavBytes out;
    pkt.encode(out);
    EXPECT_EQ(hex(out), hex(unhex(WORKED)));
    EXPECT_EQ(out.size(), 62u);
}

TEST(PacketPC, DecodesTheWorkedPacket) {
    PacketPC pkt;
    ASSERT_TRUE(pkt.decode(tav_istr(unhex(WORKED))));
    EXPECT_EQ(pkt.sequence(), 7u);
    EXPECT_EQ(pkt.code(), 5);
    EXPECT_EQ(pkt.body(), "AB");
    EXPECT_TRUE(pkt.target().empty());
    EXPECT_EQ(pkt.session(), 0u);
    EXPECT_EQ(encoded(pkt), hex(unhex(WORKED)));
}

TEST(PacketPC, FieldsStandInTheirOrder) {
    PacketPC pkt;
    fill(pkt);
    EXPECT_EQ(encoded(pkt), hex(unhex("00000000 010100 010100 010100 010122 010100 F106746172676574 010111 "
                                      "0104626F6479 0120"
                                      "FF0128 01010100 0200 0300 0400 05F100 0600 08010133 0D010100 0EF100 "
                                      "FF0129")));
}

TEST(PacketPC, AllSetFieldsComeBack) {
    PacketPC pkt;
    fill(pkt);
    tavBytes out;
    pkt.encode(out);
    PacketPC back;
    ASSERT_TRUE(back.decode(out));
    expectFilled(back);
}

TEST(PacketPC, EncodeAppends) {
    PacketPC pkt;
    tavBytes out(tav_istr("head"));
    pkt.encode(out);
    EXPECT_EQ(hex(out), "68656164" + encoded(pkt));
}

TEST(PacketPC, EncodeReservesOnce) {
    PacketPC pkt;
    fill(pkt);
    pkt.setTarget(tav_istr(std::string(1000, 't')));
    pkt.setBody(tav_istr(std::string(2000, 'b')));
    tavBytes out;
    pkt.encode(out);
    EXPECT_LE(out.maxSize(), out.size() + 64);
    tavBytes roomy(2 * out.size());
    unsigned char const * const place = roomy.data();
    pkt.encode(roomy);
    EXPECT_EQ(roomy.data(), place);
    EXPECT_EQ(hex(roomy), hex(out));
}

TEST(PacketPC, CodeIsASignedByteOnTheWire) {
    PacketPC pkt;
    pkt.setCode(0x90);
    EXPECT_EQ(pkt.code(), 0x90);
    EXPECT_EQ(encoded(pkt),
              hex(unhex("00000000 010100 010100 010100 010100 010100 F100 010290FF 0100 0120" + OPTION)));
    tavBytes out;
    pkt.encode(out);
    PacketPC back;
    ASSERT_TRUE(back.decode(out));
    EXPECT_EQ(back.code(), 0x90);
}

TEST(PacketPC, EveryCodeComesBack) {
    for (unsigned short code = 0; code <= 0xff; ++code) {
        PacketPC pkt;
        pkt.setCode(code);
        tavBytes out;
        pkt.encode(out);
        PacketPC back;
        ASSERT_TRUE(back.decode(out));
        EXPECT_EQ(back.code(), code);
    }
}

TEST(PacketPC, CodeKeepsItsLowByte) {
    PacketPC pkt;
    pkt.setCode(0x12FE);
    EXPECT_EQ(pkt.code(), 0xFE);
}

TEST(PacketPC, SequenceAndSessionHave64Bits) {
    PacketPC pkt;
    pkt.setSequence(0xFFFFFFFFFFFFFFFFull);
    pkt.setSession(0x8000000000000001ull);
    tavBytes out;
    pkt.encode(out);
    PacketPC back;
    ASSERT_TRUE(back.decode(out));
    EXPECT_EQ(back.sequence(), 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(back.session(), 0x8000000000000001ull);
}

TEST(PacketPC, HasNoAffirmGreyVersionOrExt) {
    PacketPC pkt;
    std::string const before = encoded(pkt);
    pkt.setAffirm(0x20);
    pkt.setGrey(true);
    tavMsgExt ext;
    ext.serverTime = 7;
    pkt.setExt(ext);
    EXPECT_EQ(pkt.affirm(), 0);
    EXPECT_FALSE(pkt.grey());
    EXPECT_EQ(pkt.version(), 0);
    EXPECT_TRUE(pkt.ext().empty());
    EXPECT_EQ(encoded(pkt), before);
}

TEST(PacketPC, BodyAndTargetAreCopies) {
    PacketPC pkt;
    {
        std::string text = "text";
        pkt.setBody(tav_istr(text));
        pkt.setTarget(tav_istr(text));
        text.assign("####");
    }
    EXPECT_EQ(pkt.body(), "text");
    EXPECT_EQ(pkt.target(), "text");
    pkt.setBody(pkt.body().removeLeft(2));
    pkt.setTarget(pkt.target().removeLeft(1));
    EXPECT_EQ(pkt.body(), "xt");
    EXPECT_EQ(pkt.target(), "ext");
    pkt.setBody(tav_istr());
    pkt.setTarget(tav_istr());
    EXPECT_TRUE(pkt.body().empty());
    EXPECT_TRUE(pkt.target().empty());
}

TEST(PacketPC, DecodesItsOwnBody) {
    PacketPC pkt;
    pkt.setBody(tav_istr(unhex(WORKED)));
    ASSERT_TRUE(pkt.decode(pkt.body()));
    EXPECT_EQ(pkt.sequence(), 7u);
    EXPECT_EQ(pkt.body(), "AB");
}

TEST(PacketPCDecode, HeadOfOtherThanZerosFails) {
    for (char const * const head : {"01000000", "00010000", "00000100", "FF000000", "01", "0001", "000080"}) {
        LogCapture log;
        PacketPC pkt;
        fill(pkt);
        EXPECT_FALSE(pkt.decode(tav_istr(unhex(head) + unhex(WORKED).substr(4)))) << head;
        expectFilled(pkt);
        EXPECT_TRUE(log.waitFor("invalid data ")) << head;
    }
}

TEST(PacketPCDecode, FailureIsLoggedWithADumpOfTheWholeData) {
    LogCapture log;
    std::string const bytes = unhex("0100000041424344");
    PacketPC pkt;
    EXPECT_FALSE(pkt.decode(tav_istr(bytes)));
    ASSERT_TRUE(log.waitFor("invalid data "));
    LogCapture::Record const record = log.find("invalid data ");
    EXPECT_EQ(record.level, tavLogger::ERROR);
    EXPECT_NE(record.text.find("[TAV]PacketPC::decode(vinta_im_pkt.cpp:"), std::string::npos) << record.text;
    EXPECT_NE(record.text.find(") invalid data \n     00 01 02"), std::string::npos) << record.text;
    EXPECT_NE(record.text.find("0000 01 00 00 00 41 42 43 44"), std::string::npos) << record.text;
}

TEST(PacketPCDecode, ShortHeadOfZerosIsAnEmptyPacket) {
    for (unsigned n = 0; n <= 4; ++n) {
        PacketPC pkt;
        fill(pkt);
        EXPECT_TRUE(pkt.decode(tav_istr(std::string(n, '\0')))) << n;
        expectFilled(pkt);
    }
}

TEST(PacketPCDecode, FourthHeadByteIsNeitherCheckedNorStored) {
    PacketPC pkt;
    ASSERT_TRUE(pkt.decode(tav_istr(unhex("00000063") + unhex(WORKED).substr(4))));
    EXPECT_EQ(encoded(pkt), hex(unhex(WORKED)));
}

TEST(PacketPCDecode, KindComesFromItsValueAndGoesIntoTheHead) {
    PacketPC pkt;
    ASSERT_TRUE(pkt.decode(tav_istr(pcDocument("01012A 01012B 010101 010107 01012C"))));
    EXPECT_EQ(encoded(pkt).substr(0, 42), "0000002A"
                                          "01012A"
                                          "01012B"
                                          "010101"
                                          "010107"
                                          "01012C"
                                          "F100");
}

TEST(PacketPCDecode, MissingValuesLeaveTheirFields) {
    // The wire positions at which a value of the packet ends.
    std::string const whole =
        unhex("00000000 010100 010100 010100 010107 010100 F101 58 010105 01024142 0120" + OPTION);
    struct {
        std::size_t size;
        unsigned values;
    } const cuts[] = {{4, 0}, {7, 1}, {10, 2}, {13, 3}, {16, 4}, {19, 5}, {22, 6}, {25, 7}, {29, 8}, {63, 9}};
    ASSERT_EQ(whole.size(), 63u);
    for (auto const & cut : cuts) {
        PacketPC pkt;
        fill(pkt);
        ASSERT_TRUE(pkt.decode(tav_istr(whole.substr(0, cut.size))));
        EXPECT_EQ(pkt.sequence(), cut.values >= 4 ? 7u : 0x22u) << cut.values;
        EXPECT_EQ(pkt.target(), cut.values >= 6 ? "X" : "target") << cut.values;
        EXPECT_EQ(pkt.code(), cut.values >= 7 ? 5 : 0x11) << cut.values;
        EXPECT_EQ(pkt.body(), cut.values >= 8 ? "AB" : "body") << cut.values;
        EXPECT_EQ(pkt.session(), cut.values >= 9 ? 0u : 0x33u) << cut.values;
    }
}

TEST(PacketPCDecode, FurtherValuesAreIgnored) {
    PacketPC pkt;
    ASSERT_TRUE(pkt.decode(tav_istr(unhex(WORKED + "010163 FF0128FF0129 00"))));
    EXPECT_EQ(encoded(pkt), hex(unhex(WORKED)));
}

TEST(PacketPCDecode, NullMovesTheLaterValuesUp) {
    PacketPC pkt;
    fill(pkt);
    // Ten values, of which the first is null: the others fill all nine fields.
    ASSERT_TRUE(pkt.decode(tav_istr(unhex("00000000 00") + unhex(WORKED).substr(4))));
    EXPECT_EQ(pkt.sequence(), 7u);
    EXPECT_EQ(pkt.code(), 5);
    EXPECT_EQ(pkt.body(), "AB");
    // A null in the place of the sequence: `extra` is taken for it.
    PacketPC moved;
    fill(moved);
    ASSERT_TRUE(moved.decode(tav_istr(pcDocument("010100 010100 010100 00 010142"))));
    EXPECT_EQ(moved.sequence(), 0x42u);
}

TEST(PacketPCDecode, ValueWithoutDataLeavesItsField) {
    PacketPC pkt;
    fill(pkt);
    ASSERT_TRUE(pkt.decode(tav_istr(pcDocument("0100 0100 0100 0100 0100 F100 0100 0100 0100"))));
    expectFilled(pkt);
}

TEST(PacketPCDecode, ValueThatIsNotSimpleLeavesItsFieldInPlace) {
    std::string const complex = "FF0128 01010163 FF0129";
    PacketPC pkt;
    fill(pkt);
    ASSERT_TRUE(pkt.decode(tav_istr(
        pcDocument("010100 010100 010100" + complex + "010100" + complex + "010105" + complex + complex))));
    EXPECT_EQ(pkt.sequence(), 0x22u);
    EXPECT_EQ(pkt.target(), "target");
    EXPECT_EQ(pkt.code(), 5);
    EXPECT_EQ(pkt.body(), "body");
    EXPECT_EQ(pkt.session(), 0x33u);
}

TEST(PacketPCDecode, NumbersTakeTheLowBytesThatTheirFieldsHave) {
    PacketPC pkt;
    ASSERT_TRUE(pkt.decode(tav_istr(
        pcDocument("01022A01 01022B01 01020001 01091122334455667788FF 0108112233FF55667788 F100 01022C01"))));
    EXPECT_EQ(pkt.sequence(), 0x8877665544332211ull);
    EXPECT_EQ(pkt.code(), 0x2C);
    EXPECT_EQ(encoded(pkt).substr(0, 72), hex(unhex("0000002A 01012A 01012B 010100 01081122334455667788 "
                                                    "0104112233FF F100 01012C 0100")));
}

TEST(PacketPCDecode, NumbersOfFewerBytesAreNotExtended) {
    PacketPC pkt;
    ASSERT_TRUE(pkt.decode(tav_istr(pcDocument("010100 010100 010100 0102FFFF 0101FF F100 0101FF"))));
    EXPECT_EQ(pkt.sequence(), 0xFFFFu);
    EXPECT_EQ(pkt.code(), 0xFF);
}

TEST(PacketPCDecode, TextAndBinaryDataAreReadAlike) {
    PacketPC pkt;
    ASSERT_TRUE(pkt.decode(
        tav_istr(pcDocument("F1012A 010100 010100 F10107 010100 010158 F10105 F1024142 F120" + OPTION))));
    EXPECT_EQ(pkt.sequence(), 7u);
    EXPECT_EQ(pkt.target(), "X");
    EXPECT_EQ(pkt.code(), 5);
    EXPECT_EQ(pkt.body(), "AB");
}

TEST(PacketPCDecode, CodeTakesOneByteOfTwo) {
    PacketPC pkt;
    ASSERT_TRUE(pkt.decode(tav_istr(pcDocument("010100 010100 010100 010100 010100 F100 0102 90 12"))));
    EXPECT_EQ(pkt.code(), 0x90);
}

TEST(PacketPCDecode, BytesThatAreNoNbrRaiseAndStoreNothing) {
    PacketPC pkt;
    fill(pkt);
    EXPECT_THROW(pkt.decode(tav_istr(pcDocument("010100 010100 010100 010107 010100 F100 010105 01024142 "
                                                "28 00 00"))),
                 std::invalid_argument);
    expectFilled(pkt);
}

TEST(PacketPCDecode, OptionThatIsNoNbrRaisesAndStoresNothing) {
    PacketPC pkt;
    fill(pkt);
    EXPECT_THROW(pkt.decode(tav_istr(pcDocument("010100 010100 010100 010107 010100 F100 010105 01024142 "
                                                "0102 28 28"))),
                 std::invalid_argument);
    expectFilled(pkt);
}

TEST(PacketPCDecode, OptionKeepsWhatItsBlockLacks) {
    PacketPC pkt;
    fill(pkt);
    std::string const eight = "010100 010100 010100 010107 010100 F100 010105 01024142";
    ASSERT_TRUE(pkt.decode(tav_istr(pcDocument(eight + "0100"))));
    EXPECT_EQ(pkt.session(), 0x33u);
    ASSERT_TRUE(pkt.decode(tav_istr(pcDocument(eight + "0107 FF0128 01 FF0129"))));
    EXPECT_EQ(pkt.session(), 0x33u);
    ASSERT_TRUE(pkt.decode(tav_istr(pcDocument(eight + "010A FF0128 08010144 FF0129"))));
    EXPECT_EQ(pkt.session(), 0x44u);
}

TEST(PacketPCLogForm, IsThatOfAnyPacket) {
    PacketPC pkt;
    pkt.setSequence(7);
    pkt.setCode(5);
    pkt.setSession(0x1200000000000034ull);
    pkt.setBody("AB");
    EXPECT_EQ(printed(pkt), "#7 0x0005 12***34 v0 [2] " + printed(tavMsgExt()));
}

TEST(PacketPCLogForm, MasksTheTarget) {
    PacketPC pkt;
    struct {
        char const * target;
        char const * shown;
    } const rows[] = {{"abcdefyz", " {abc***yz}"}, {"abcde", " {abc***de}"}, {"abcd", " {abc***cd}"},
                      {"ab", " {ab***ab}"},        {"a", " {a***}"},         {"", ""}};
    for (auto const & row : rows) {
        pkt.setTarget(row.target);
        EXPECT_EQ(printed(pkt),
                  std::string("#0 0x0000 00***00") + row.shown + " v0 [0] " + printed(tavMsgExt()));
    }
}
