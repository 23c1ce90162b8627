#include "fuzz/seeds.h"
#include "tav/vinta/vinta_im_pkt.h"

#include <sstream>

// The packet with the fixed header: whatever is read can be written, and that form is a fixed point.

namespace tav_fuzz {
namespace {

std::string wireOf(tav::im::PacketMobile & packet) {
    tavBytes out;
    packet.encode(out);
    return std::string(textOf(out));
}

void run(std::string_view input) {
    std::string once;
    std::string const failed = failureOf([&] {
        withinHeap(input, [&] {
            tav::im::PacketMobile packet(6);
            require(packet.decode(viewOf(input)), "a mobile packet has no head that is refused");
            std::ostringstream log;
            log << packet;
            require(!log.str().empty(), "a packet has a log form");
            once = wireOf(packet);
            require(input.size() < 18 || textOf(packet.body()).size() <= input.size(),
                    "a body is of the input");
        });
    });
    if (!failed.empty()) {
        return;
    }
    tav::im::PacketMobile again(6);
    require(again.decode(viewOf(once)), "what was written is read");
    requireSame(wireOf(again), once, "what was read is written the same");
    // An extension that is longer than the packet is cut; older versions have none.
    bool const wholeHead = input.size() >= 18 && once.substr(16, 2) == input.substr(16, 2);
    if (wholeHead && once.size() == input.size()) {
        requireSame(once, input, "a whole packet comes back byte by byte");
    }
}

void seeds(Seeds & out, Random & random) {
    out.push_back(unhex("0006 00 1234 00 0002 0000000000000003 0000 4142"));
    fillUp(out, random, 220, [&] {
        return mobilePacket(static_cast<unsigned char>(random()), static_cast<unsigned short>(random()),
                            static_cast<unsigned short>(random()), randomBytes(random, 24),
                            below(random, 2) == 0);
    });
}

std::string swell(std::string_view part, std::size_t size) {
    return repeated("", part, "", "", size);
}

TAV_FUZZ_TARGET(packet_mobile, run, seeds, swell);

} // namespace
} // namespace tav_fuzz
