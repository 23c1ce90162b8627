#include "tav/vinta/vinta_im_pkt.h"

#include "support/packet_bytes.h"

#include <gtest/gtest.h>

#include <ios>
#include <stdexcept>
#include <utility>

using tav::im::Packet;
using tav::im::PacketMobile;
using tav::im::PacketPC;
using tav_test::encoded;
using tav_test::hex;
using tav_test::printed;
using tav_test::unhex;

namespace {

tavMsgExt extWithServerTime(long long v) {
    tavMsgExt ext;
    ext.serverTime = v;
    return ext;
}

/// The ext of which the NBR form has `size` bytes, `size` being in the range of three size bytes.
tavMsgExt extOfSize(unsigned size) {
    tavMsgExt ext;
    ext.traceId = tavString(std::string(size - 15, 't'));
    return ext;
}

char const * const EXT_7 = "FF0128 01010107 0200 0300 FF0129";

} // namespace

TEST(PacketMobile, WorkedPacketOfVersion6) {
    PacketMobile pkt(6);
    pkt.setCode(0x1234);
    pkt.setSequence(2);
    pkt.setSession(3);
    pkt.setBody("AB");
    EXPECT_EQ(encoded(pkt), hex(unhex("00 06 00 12 34 00 00 02 00 00 00 00 00 00 00 03 00 00 41 42")));
    tavBytes out;
    pkt.encode(out);
    EXPECT_EQ(out.size(), 20u);
}

TEST(PacketMobile, DecodesTheWorkedPacket) {
    PacketMobile pkt(0);
    EXPECT_TRUE(pkt.decode(tav_istr(unhex("00 06 00 12 34 00 00 02 00 00 00 00 00 00 00 03 00 00 41 42"))));
    EXPECT_EQ(pkt.version(), 6);
    EXPECT_EQ(pkt.affirm(), 0);
    EXPECT_EQ(pkt.code(), 0x1234);
    EXPECT_EQ(pkt.sequence(), 2u);
    EXPECT_EQ(pkt.session(), 3u);
    EXPECT_FALSE(pkt.grey());
    EXPECT_TRUE(pkt.ext().empty());
    EXPECT_EQ(pkt.body(), "AB");
}

TEST(PacketMobile, BytesThatAreTakenOverCostTheBodyNoMemory) {
    tavMsgExt const ext = extWithServerTime(7);
    PacketMobile made(6);
    made.setExt(ext);
    made.setSequence(2);
    made.setBody("AB");
    tavBytes bytes;
    made.encode(bytes);
    void const * const place = bytes.data();
    PacketMobile read(0);
    read.setBody("old");
    ASSERT_TRUE(read.decode(std::move(bytes)));
    EXPECT_EQ(static_cast<void const *>(read.body().data()), place);
    EXPECT_EQ(read.body(), "AB");
    EXPECT_EQ(printed(read.ext()), printed(ext));
    EXPECT_EQ(encoded(read), encoded(made));
    PacketMobile cut(6);
    ASSERT_TRUE(cut.decode(tavBytes(tav_istr("\0\6\0", 3))));
    EXPECT_TRUE(cut.body().empty());
}

TEST(PacketMobile, EveryFieldHasItsPlaceAndOrder) {
    std::string const bytes = unhex("0102 30 AB CD 55 EF10 1122334455667788 0000 99");
    PacketMobile pkt(0);
    ASSERT_TRUE(pkt.decode(tav_istr(bytes)));
    EXPECT_EQ(pkt.version(), 0x0102);
    EXPECT_EQ(pkt.affirm(), 0x30);
    EXPECT_EQ(pkt.code(), 0xABCD);
    EXPECT_TRUE(pkt.grey());
    EXPECT_EQ(pkt.sequence(), 0xEF10u);
    EXPECT_EQ(pkt.session(), 0x1122334455667788u);
    EXPECT_EQ(hex(pkt.body()), "99");
    EXPECT_EQ(encoded(pkt), hex(bytes));
}

TEST(PacketMobile, HeaderHas16BytesBelowVersion6) {
    PacketMobile pkt(5);
    EXPECT_EQ(encoded(pkt), "00050000000000000000000000000000");
    PacketMobile six(6);
    EXPECT_EQ(encoded(six), "000600000000000000000000000000000000");
}

TEST(PacketMobile, Version5WritesNoExtEvenWhenSet) {
    PacketMobile pkt(5);
    pkt.setExt(extWithServerTime(7));
    pkt.setBody("AB");
    EXPECT_EQ(encoded(pkt), "000500000000000000000000000000004142");
    EXPECT_EQ(pkt.ext().serverTime.value(), 7);
}

TEST(PacketMobile, Version5ReadsNoExt) {
    std::string const bytes = unhex("0005 00 0000 00 0000 0000000000000000 000E" + std::string(EXT_7));
    PacketMobile pkt(0);
    ASSERT_TRUE(pkt.decode(tav_istr(bytes)));
    EXPECT_TRUE(pkt.ext().empty());
    EXPECT_EQ(pkt.body().size(), bytes.size() - 16);
}

TEST(PacketMobile, ExtGoesOutWithEveryFieldPresent) {
    PacketMobile pkt(6);
    pkt.setExt(extWithServerTime(7));
    pkt.setBody("AB");
    EXPECT_EQ(encoded(pkt),
              hex(unhex("0006 00 0000 00 0000 0000000000000000 000E" + std::string(EXT_7) + "4142")));
}

TEST(PacketMobile, ExtComesBack) {
    tavMsgExt ext;
    ext.serverTime = 1;
    ext.clientTime = -2;
    ext.traceId = tavString("trace");
    PacketMobile pkt(9);
    pkt.setExt(ext);
    pkt.setBody("body");
    tavBytes out;
    pkt.encode(out);
    PacketMobile back(0);
    ASSERT_TRUE(back.decode(out));
    EXPECT_EQ(back.ext().serverTime.value(), 1);
    EXPECT_EQ(back.ext().clientTime.value(), -2);
    EXPECT_EQ(back.ext().traceId.value(), "trace");
    EXPECT_EQ(back.body(), "body");
}

TEST(PacketMobile, ExtSizeBeyondTheEndTakesWhatRemains) {
    PacketMobile pkt(0);
    pkt.setBody("old");
    ASSERT_TRUE(
        pkt.decode(tav_istr(unhex("0006 00 0000 00 0000 0000000000000000 FFFF" + std::string(EXT_7)))));
    EXPECT_EQ(pkt.ext().serverTime.value(), 7);
    EXPECT_TRUE(pkt.body().empty());
}

TEST(PacketMobile, ExtSizeWithoutBytesLeavesTheExt) {
    PacketMobile pkt(6);
    pkt.setExt(extWithServerTime(7));
    ASSERT_TRUE(pkt.decode(tav_istr(unhex("0006 00 0000 00 0000 0000000000000000 0010"))));
    EXPECT_EQ(pkt.ext().serverTime.value(), 7);
    EXPECT_EQ(encoded(pkt), "000600000000000000000000000000000000");
}

TEST(PacketMobile, ExtThatIsNoNbrRaises) {
    PacketMobile pkt(0);
    std::string const bytes = unhex("0006 00 0000 00 0000 0000000000000000 0002 28 28 4142");
    EXPECT_THROW(pkt.decode(tav_istr(bytes)), std::invalid_argument);
}

TEST(PacketMobile, EmptyExtLeavesTheBytesAsTheyWere) {
    PacketMobile pkt(6);
    pkt.setExt(extWithServerTime(7));
    std::string const before = encoded(pkt);
    pkt.setExt(tavMsgExt());
    EXPECT_TRUE(pkt.ext().empty());
    EXPECT_EQ(encoded(pkt), before);
}

TEST(PacketMobile, DecodeWithoutExtKeepsTheFormerOne) {
    PacketMobile pkt(6);
    pkt.setExt(extWithServerTime(7));
    ASSERT_TRUE(pkt.decode(tav_istr(unhex("0006 00 0000 00 0000 0000000000000000 0000 4142"))));
    EXPECT_EQ(pkt.ext().serverTime.value(), 7);
    EXPECT_EQ(encoded(pkt),
              hex(unhex("0006 00 0000 00 0000 0000000000000000 000E" + std::string(EXT_7) + "4142")));
}

TEST(PacketMobile, DecodedExtKeepsWhatItsBlockLacks) {
    PacketMobile pkt(6);
    pkt.setExt(extWithServerTime(7));
    std::string const block = "FF0128 02010109 FF0129";
    ASSERT_TRUE(pkt.decode(tav_istr(unhex("0006 00 0000 00 0000 0000000000000000 000A" + block))));
    EXPECT_EQ(pkt.ext().serverTime.value(), 7);
    EXPECT_EQ(pkt.ext().clientTime.value(), 9);
    EXPECT_EQ(encoded(pkt), hex(unhex("0006 00 0000 00 0000 0000000000000000 000A" + block)));
}

TEST(PacketMobile, NewExtReplacesTheBytes) {
    PacketMobile pkt(6);
    pkt.setExt(extWithServerTime(7));
    pkt.setExt(extWithServerTime(8));
    EXPECT_EQ(encoded(pkt), hex(unhex("0006 00 0000 00 0000 0000000000000000 000E FF0128 01010108 0200 0300 "
                                      "FF0129")));
}

TEST(PacketMobile, ExtOf65535BytesTravelsWhole) {
    PacketMobile pkt(6);
    pkt.setExt(extOfSize(65535));
    tavBytes out;
    pkt.encode(out);
    EXPECT_EQ(out.size(), 18u + 65535u);
    EXPECT_EQ(hex(tav_istr(out).substr(16, 2)), "FFFF");
    PacketMobile back(0);
    ASSERT_TRUE(back.decode(out));
    EXPECT_EQ(back.ext().traceId.value().size(), 65535u - 15u);
}

TEST(PacketMobile, ExtOf65536BytesIsNotOnTheWire) {
    PacketMobile pkt(6);
    pkt.setExt(extOfSize(65536));
    pkt.setBody("AB");
    EXPECT_EQ(encoded(pkt), "0006000000000000000000000000000000004142");
}

TEST(PacketMobile, ExtOf65537BytesWritesSize1AndAllBytes) {
    PacketMobile pkt(6);
    pkt.setExt(extOfSize(65537));
    pkt.setBody("AB");
    tavBytes out;
    pkt.encode(out);
    EXPECT_EQ(out.size(), 18u + 65537u + 2u);
    EXPECT_EQ(hex(tav_istr(out).substr(16, 5)), "0001FF0128");
    EXPECT_EQ(hex(tav_istr(out).rightstr(5)), "FF01294142");
}

TEST(PacketMobile, EncodeAppends) {
    PacketMobile pkt(5);
    tavBytes out(tav_istr("head"));
    pkt.encode(out);
    EXPECT_EQ(hex(out), "68656164" + encoded(pkt));
    pkt.encode(out);
    EXPECT_EQ(hex(out), "68656164" + encoded(pkt) + encoded(pkt));
}

TEST(PacketMobile, EncodeReservesOnceAndNoMoreThanItWrites) {
    unsigned short const versions[] = {5, 6};
    for (unsigned short const version : versions) {
        for (unsigned const ext_size : {65535u, 65536u}) {
            PacketMobile pkt(version);
            pkt.setExt(extOfSize(ext_size));
            pkt.setBody(tav_istr(std::string(1000, 'b')));
            tavBytes out;
            pkt.encode(out);
            EXPECT_EQ(out.maxSize(), out.size()) << version << ' ' << ext_size;
        }
    }
}

TEST(PacketMobile, SequenceKeepsItsLow16Bits) {
    PacketMobile pkt(6);
    pkt.setSequence(0x123456789ABCDEF0ull);
    EXPECT_EQ(pkt.sequence(), 0xDEF0u);
}

TEST(PacketMobile, CodeHas16Bits) {
    PacketMobile pkt(6);
    for (unsigned const code : {0u, 1u, 0x7Fu, 0x80u, 0xFFu, 0x100u, 0x8000u, 0xFFFFu}) {
        pkt.setCode(static_cast<unsigned short>(code));
        EXPECT_EQ(pkt.code(), code);
    }
}

TEST(PacketMobile, SessionHas64Bits) {
    PacketMobile pkt(6);
    pkt.setSession(0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(pkt.session(), 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(encoded(pkt), "00060000000000"
                            "00"
                            "FFFFFFFFFFFFFFFF"
                            "0000");
}

TEST(PacketMobile, AffirmIsCarriedAsItIs) {
    PacketMobile pkt(6);
    for (unsigned v = 0; v < 256; ++v) {
        pkt.setAffirm(static_cast<unsigned char>(v));
        EXPECT_EQ(pkt.affirm(), v);
    }
}

TEST(PacketMobile, GreyIsOneFlagBitAndLeavesTheOthers) {
    PacketMobile pkt(0);
    ASSERT_TRUE(pkt.decode(tav_istr(unhex("0005 00 0000 FE 0000 0000000000000000"))));
    EXPECT_FALSE(pkt.grey());
    pkt.setGrey(true);
    EXPECT_TRUE(pkt.grey());
    EXPECT_EQ(encoded(pkt), "0005000000FF00000000000000000000");
    pkt.setGrey(false);
    EXPECT_FALSE(pkt.grey());
    EXPECT_EQ(encoded(pkt), "0005000000FE00000000000000000000");
}

TEST(PacketMobile, HasNoTarget) {
    PacketMobile pkt(6);
    std::string const before = encoded(pkt);
    pkt.setTarget("somebody");
    EXPECT_EQ(pkt.target().data(), nullptr);
    EXPECT_EQ(pkt.target().size(), 0u);
    EXPECT_EQ(encoded(pkt), before);
}

TEST(PacketMobile, BodyIsACopy) {
    PacketMobile pkt(6);
    {
        std::string body = "AB";
        pkt.setBody(tav_istr(body));
        body[0] = 'x';
    }
    EXPECT_EQ(pkt.body(), "AB");
    pkt.setBody(pkt.body().substr(1, 1));
    EXPECT_EQ(pkt.body(), "B");
    pkt.setBody(tav_istr());
    EXPECT_TRUE(pkt.body().empty());
}

TEST(PacketMobile, DecodesItsOwnBody) {
    PacketMobile pkt(6);
    std::string const inner = unhex("0005 00 0102 00 0003 0000000000000004 58");
    pkt.setBody(tav_istr(inner));
    ASSERT_TRUE(pkt.decode(pkt.body()));
    EXPECT_EQ(pkt.code(), 0x0102);
    EXPECT_EQ(pkt.body(), "X");
}

TEST(PacketMobile, EmptyInputYieldsZeros) {
    PacketMobile pkt(6);
    pkt.setCode(0x1234);
    pkt.setSequence(2);
    pkt.setSession(3);
    pkt.setAffirm(0x20);
    pkt.setGrey(true);
    pkt.setBody("AB");
    EXPECT_TRUE(pkt.decode(tav_istr()));
    EXPECT_EQ(pkt.version(), 0);
    EXPECT_EQ(pkt.affirm(), 0);
    EXPECT_EQ(pkt.code(), 0);
    EXPECT_EQ(pkt.sequence(), 0u);
    EXPECT_EQ(pkt.session(), 0u);
    EXPECT_FALSE(pkt.grey());
    EXPECT_TRUE(pkt.body().empty());
}

TEST(PacketMobile, HalfPresent16BitFieldsAreShifted) {
    PacketMobile pkt(0);
    EXPECT_TRUE(pkt.decode(tav_istr(unhex("12"))));
    EXPECT_EQ(pkt.version(), 0x1200);
    EXPECT_TRUE(pkt.decode(tav_istr(unhex("0005 00 12"))));
    EXPECT_EQ(pkt.code(), 0x1200);
    EXPECT_TRUE(pkt.decode(tav_istr(unhex("0005 00 1234 00 05"))));
    EXPECT_EQ(pkt.sequence(), 0x0500u);
    EXPECT_TRUE(pkt.body().empty());
}

TEST(PacketMobile, EveryCutOfAPacketDecodes) {
    std::string const whole =
        unhex("0006 20 1234 01 0002 0000000000000003 000E" + std::string(EXT_7) + "4142");
    for (std::size_t n = 0; n <= whole.size(); ++n) {
        PacketMobile pkt(0);
        std::string const cut = whole.substr(0, n);
        ASSERT_TRUE(pkt.decode(tav_istr(cut))) << n;
        EXPECT_EQ(pkt.version(), n >= 2 ? 6 : 0) << n;
        EXPECT_EQ(pkt.affirm(), n >= 3 ? 0x20 : 0) << n;
        EXPECT_EQ(pkt.code(), n >= 5 ? 0x1234 : n == 4 ? 0x1200 : 0) << n;
        EXPECT_EQ(pkt.grey(), n >= 6) << n;
        EXPECT_EQ(pkt.body().size(), n > 32 ? n - 32 : 0u) << n;
        EXPECT_EQ(pkt.ext().serverTime.has_value(), n >= 25) << n;
    }
}

TEST(PacketMobileFactory, MakesTheFormatAskedFor) {
    tavSharedPtr<Packet> const mobile = Packet::create(true, 4);
    ASSERT_NE(dynamic_cast<PacketMobile *>(mobile.get()), nullptr);
    EXPECT_EQ(mobile->version(), 4);
    EXPECT_EQ(mobile->getRefCount(), 1u);
    tavSharedPtr<Packet> const pc = Packet::create(false, 4);
    ASSERT_NE(dynamic_cast<PacketPC *>(pc.get()), nullptr);
    EXPECT_EQ(pc->version(), 0);
}

TEST(PacketMobileLogForm, MasksTheSession) {
    PacketMobile pkt(6);
    pkt.setCode(0x1234);
    pkt.setSequence(2);
    pkt.setSession(3);
    pkt.setBody("AB");
    EXPECT_EQ(printed(pkt), "#2 0x1234 00***03 v6 [2] " + printed(tavMsgExt()));
}

TEST(PacketMobileLogForm, HexadecimalIsUpperCaseAndPadded) {
    PacketMobile pkt(4);
    pkt.setCode(0x0abc);
    pkt.setSequence(65535);
    pkt.setSession(0xEFAABBCCDDAABB0Full);
    EXPECT_EQ(printed(pkt), "#65535 0x0ABC EF***0F v4 [0] " + printed(tavMsgExt()));
}

TEST(PacketMobileLogForm, TellsAffirmAndGrey) {
    PacketMobile pkt(4);
    pkt.setAffirm(0x20);
    pkt.setGrey(true);
    EXPECT_EQ(printed(pkt), "#0 0x0000 00***00 need_affirm grey v4 [0] " + printed(tavMsgExt()));
    pkt.setAffirm(0x30);
    pkt.setGrey(false);
    EXPECT_EQ(printed(pkt), "#0 0x0000 00***00 affirmed v4 [0] " + printed(tavMsgExt()));
    pkt.setAffirm(0x21);
    EXPECT_EQ(printed(pkt), "#0 0x0000 00***00 v4 [0] " + printed(tavMsgExt()));
}

TEST(PacketMobileLogForm, ShowsTheExt) {
    PacketMobile pkt(6);
    pkt.setExt(extWithServerTime(7));
    EXPECT_EQ(printed(pkt), "#0 0x0000 00***00 v6 [0] " + printed(extWithServerTime(7)));
    EXPECT_NE(printed(pkt).find("serverTime"), std::string::npos);
}

TEST(PacketMobileLogForm, NeitherTakesNorLeavesStreamFlags) {
    PacketMobile pkt(6);
    pkt.setSequence(255);
    std::ostringstream out;
    out << std::hex << pkt;
    EXPECT_EQ(out.str().substr(0, 5), "#255 ");
    out.str("");
    out << 255;
    EXPECT_EQ(out.str(), "ff");
}
