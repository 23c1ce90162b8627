#include "tav/vinta/vinta_im_pkt.h"

#include "support/packet_bytes.h"
#include "support/small_stack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>

using tav::im::Packet;
using tav::im::PacketMobile;
using tav::im::PacketPC;
using tav_test::hex;
using tav_test::onSmallStack;
using tav_test::printed;
using tav_test::unhex;

namespace {

enum Outcome { DECODED, REFUSED, RAISED };

/// As a receiver does it: the second byte tells the format.  Nothing but the described outcomes may come.
Outcome receive(std::string const & bytes) {
    // A buffer of exactly this size, so that a read outside of it is seen.
    tavBytes const frame{tav_istr(bytes)};
    unsigned char const second = bytes.size() > 1 ? static_cast<unsigned char>(bytes[1]) : 0;
    tavSharedPtr<Packet> const pkt = Packet::create(second != 0, second);
    Outcome outcome = RAISED;
    try {
        outcome = pkt->decode(frame) ? DECODED : REFUSED;
    } catch (std::invalid_argument const &) {
    }
    // Whatever came of it, the packet can be read, printed and encoded.
    EXPECT_LE(pkt->body().size(), bytes.size());
    EXPECT_FALSE(printed(*pkt).empty());
    tavBytes out;
    pkt->encode(out);
    EXPECT_GE(out.size(), 16u);
    return outcome;
}

std::string nested(std::size_t depth) {
    std::string bytes;
    bytes.reserve(depth * 4);
    for (std::size_t i = 0; i < depth; ++i) {
        bytes += std::string("\xFF\x01\x28\x01", 4);
    }
    return bytes;
}

std::string mobileOfVersion6(std::string const & ext, std::string const & body) {
    std::string bytes = unhex("0006 20 1234 01 0002 0000000000000003");
    bytes += static_cast<char>(ext.size() >> 8);
    bytes += static_cast<char>(ext.size() & 0xff);
    return bytes + ext + body;
}

std::string binaryValue(std::string const & data) {
    std::string bytes(1, '\x04');
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(data.size() >> shift & 0xff);
    }
    return bytes + data;
}

std::string const EIGHT = "010100 010100 010100 010107 010100 F101 58 010105 01024142";

/// What a PacketMobile below version 6 holds, taken apart in the plainest way.
struct Model {
    explicit Model(std::string const & bytes) : all(bytes) {}
    unsigned long long number(std::size_t at, std::size_t n) const {
        unsigned long long v = 0;
        for (std::size_t i = 0; i < n; ++i) {
            v = v << 8 | (at + i < all.size() ? static_cast<unsigned char>(all[at + i]) : 0u);
        }
        return v;
    }
    std::string body() const { return all.size() > 16 ? all.substr(16) : std::string(); }
    std::string all;
};

} // namespace

TEST(PacketHostile, RandomBytes) {
    std::mt19937 random(1);
    int seen[3] = {};
    for (int i = 0; i < 20000; ++i) {
        std::string bytes(random() % 80, '\0');
        for (char & c : bytes) {
            c = static_cast<char>(random());
        }
        if (i % 2 == 0) {
            bytes.replace(0, std::min<std::size_t>(4, bytes.size()), std::min<std::size_t>(4, bytes.size()),
                          '\0');
        }
        ++seen[receive(bytes)];
    }
    EXPECT_GT(seen[DECODED], 0);
    EXPECT_GT(seen[REFUSED], 0);
    EXPECT_GT(seen[RAISED], 0);
}

TEST(PacketHostile, RandomBytesOfNbrAlphabet) {
    static char const alphabet[] = {'\x00', '\x01', '\x02', '\x04', '\x08', '\x28', '\x29',
                                    '\x7F', '\x80', '\xF0', '\xF1', '\xF4', '\xFF'};
    std::mt19937 random(2);
    for (int i = 0; i < 20000; ++i) {
        std::string tail(random() % 60, '\0');
        for (char & c : tail) {
            c = alphabet[random() % sizeof alphabet];
        }
        receive(std::string(4, '\0') + tail);
        receive(mobileOfVersion6(tail, "body"));
    }
}

TEST(PacketHostile, EveryCutOfBothFormats) {
    std::string const option =
        unhex("FF0128 01010100 0200 0300 0400 05F100 0600 08010133 0D010100 0EF100 FF0129");
    std::string const pc = unhex("00000000" + EIGHT) + binaryValue(option);
    for (std::size_t n = 0; n <= pc.size(); ++n) {
        EXPECT_NE(receive(pc.substr(0, n)), REFUSED) << n;
    }
    std::string const mobile = mobileOfVersion6(unhex("FF0128 01010107 0200 0300 FF0129"), "body");
    for (std::size_t n = 2; n <= mobile.size(); ++n) {
        EXPECT_EQ(receive(mobile.substr(0, n)), DECODED) << n;
    }
}

TEST(PacketHostile, EveryByteReplacedByEveryOther) {
    std::string const option =
        unhex("FF0128 01010100 0200 0300 0400 05F100 0600 08010133 0D010100 0EF100 FF0129");
    std::string const packets[] = {
        unhex("00000000" + EIGHT) + binaryValue(option),
        mobileOfVersion6(unhex("FF0128 01010107 0200 03F102 4142 FF0129"), "body"),
    };
    for (std::string const & packet : packets) {
        for (std::size_t i = 0; i < packet.size(); ++i) {
            for (int v = 0; v < 256; v += 3) {
                std::string changed = packet;
                changed[i] = static_cast<char>(v);
                receive(changed);
            }
        }
    }
}

TEST(PacketHostile, SizesThatPointBackwardsEnd) {
    for (char const * const value : {"04FFFFFFFF", "04FEFFFFFF", "04FBFFFFFF", "04F0FFFFFF", "0400000080",
                                     "F4FFFFFFFF 41 42", "04FFFFFF7F 41"}) {
        receive(unhex(std::string("00000000 010100") + value));
        receive(unhex("00000000" + EIGHT) + binaryValue(unhex(std::string("FF0128 01") + value)));
        receive(mobileOfVersion6(unhex(std::string("FF0128 01") + value), "body"));
    }
}

TEST(PacketHostile, DeepExtOnASmallStack) {
    onSmallStack([] { EXPECT_EQ(receive(mobileOfVersion6(nested(16000), "body")), DECODED); });
}

TEST(PacketHostile, DeepValuesOnASmallStack) {
    onSmallStack([] { EXPECT_EQ(receive(std::string(4, '\0') + nested(500000)), DECODED); });
}

TEST(PacketHostile, DeepOptionOnASmallStack) {
    onSmallStack(
        [] { EXPECT_EQ(receive(unhex("00000000" + EIGHT) + binaryValue(nested(500000))), DECODED); });
}

TEST(PacketHostile, ManyValuesAreTakenOnce) {
    std::string const pc = std::string(4, '\0') + std::string(300000, '\0');
    EXPECT_EQ(receive(pc), DECODED);
    std::string values(4, '\0');
    for (int i = 0; i < 100000; ++i) {
        values += std::string("\x01\x01\x07", 3);
    }
    EXPECT_EQ(receive(values), DECODED);
}

TEST(PacketHostile, NullViewsDecode) {
    PacketMobile mobile(6);
    EXPECT_TRUE(mobile.decode(tav_istr()));
    EXPECT_TRUE(mobile.decode(tav_istr(static_cast<char const *>(nullptr), 100u)));
    EXPECT_TRUE(mobile.body().empty());
    PacketPC pc;
    EXPECT_TRUE(pc.decode(tav_istr()));
    EXPECT_TRUE(pc.decode(tav_istr(static_cast<char const *>(nullptr), 100u)));
    EXPECT_TRUE(pc.body().empty());
}

TEST(PacketHostile, MobileAgreesWithAPlainModel) {
    std::mt19937 random(3);
    for (int i = 0; i < 20000; ++i) {
        std::string bytes(random() % 40, '\0');
        for (char & c : bytes) {
            c = static_cast<char>(random());
        }
        if (!bytes.empty()) {
            bytes[0] = '\0';
        }
        if (bytes.size() > 1) {
            bytes[1] = static_cast<char>(random() % 6);
        }
        Model const model(bytes);
        PacketMobile pkt(0);
        ASSERT_TRUE(pkt.decode(tav_istr(bytes)));
        ASSERT_EQ(pkt.version(), model.number(0, 2)) << hex(bytes);
        ASSERT_EQ(pkt.affirm(), model.number(2, 1)) << hex(bytes);
        ASSERT_EQ(pkt.code(), model.number(3, 2)) << hex(bytes);
        ASSERT_EQ(pkt.grey(), (model.number(5, 1) & 1) != 0) << hex(bytes);
        ASSERT_EQ(pkt.sequence(), model.number(6, 2)) << hex(bytes);
        ASSERT_EQ(pkt.session(), model.number(8, 8)) << hex(bytes);
        ASSERT_EQ(hex(pkt.body()), hex(model.body())) << hex(bytes);
        tavBytes out;
        pkt.encode(out);
        bytes.resize(std::max<std::size_t>(16, bytes.size()), '\0');
        ASSERT_EQ(hex(out), hex(bytes));
    }
}

TEST(PacketHostile, RandomFieldsComeBack) {
    std::mt19937_64 random(4);
    for (int i = 0; i < 5000; ++i) {
        std::string body(random() % 300, '\0');
        for (char & c : body) {
            c = static_cast<char>(random());
        }
        std::string target(random() % 20, 't');
        tavMsgExt ext;
        ext.serverTime = static_cast<long long>(random());
        for (bool const mobile : {true, false}) {
            tavSharedPtr<Packet> const pkt = Packet::create(mobile, static_cast<unsigned short>(6 + i % 3));
            pkt->setBody(tav_istr(body));
            pkt->setCode(static_cast<unsigned short>(random()));
            pkt->setSequence(random() >> random() % 64);
            pkt->setSession(random() >> random() % 64);
            pkt->setTarget(tav_istr(target));
            pkt->setAffirm(static_cast<unsigned char>(random()));
            pkt->setGrey(random() % 2 == 0);
            pkt->setExt(ext);
            tavBytes out;
            pkt->encode(out);
            ASSERT_EQ(out[1] != 0, mobile);
            tavSharedPtr<Packet> const back = Packet::create(out[1] != 0, 0);
            ASSERT_TRUE(back->decode(out));
            ASSERT_EQ(printed(*back), printed(*pkt));
            ASSERT_EQ(hex(back->body()), hex(body));
            ASSERT_EQ(back->sequence(), pkt->sequence());
            ASSERT_EQ(back->session(), pkt->session());
            ASSERT_EQ(back->target(), pkt->target());
            // An empty target leaves the field, which is empty anyway.
            tavBytes again;
            back->encode(again);
            ASSERT_EQ(hex(again), hex(out));
        }
    }
}
