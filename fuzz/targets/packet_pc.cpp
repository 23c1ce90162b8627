#include "fuzz/seeds.h"
#include "tav/vinta/vinta_im_pkt.h"

#include <sstream>

// The packet of nine NBR values: whatever is read can be written, and that form is a fixed point.

namespace tav_fuzz {
namespace {

std::string wireOf(tav::im::PacketPC & packet) {
    tavBytes out;
    packet.encode(out);
    return std::string(textOf(out));
}

void run(std::string_view input) {
    std::string once;
    bool taken = false;
    failureOf([&] {
        withinHeap(input, [&] {
            tav::im::PacketPC packet;
            taken = packet.decode(viewOf(input));
            std::ostringstream log;
            log << packet;
            require(!log.str().empty(), "a packet has a log form");
            once = wireOf(packet);
        });
    });
    if (!taken) {
        return;
    }
    tav::im::PacketPC again;
    require(again.decode(viewOf(once)), "what was written is read");
    requireSame(wireOf(again), once, "what was read is written the same");
}

void seeds(Seeds & out, Random & random) {
    out.push_back(unhex(
        "00000000 010100 010100 010100 010107 010100 F100 010105 01024142 0120 FF0128 01010100 0200 0300 "
        "0400 05F100 0600 08010100 0D010100 0EF100 FF0129"));
    fillUp(out, random, 220, [&] {
        return oldPacket(static_cast<unsigned char>(random()), static_cast<unsigned char>(random()),
                         static_cast<unsigned>(random()), randomBytes(random, 24));
    });
}

std::string swell(std::string_view part, std::size_t size) {
    return repeated(std::string(4, '\0'), part, "", "", size);
}

TAV_FUZZ_TARGET(packet_pc, run, seeds, swell);

} // namespace
} // namespace tav_fuzz
