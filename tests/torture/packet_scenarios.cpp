#include "torture/sample.h"
#include "torture/scenarios.h"

#include <sstream>
#include <stdexcept>

namespace tav_test {
namespace torture {
namespace {

using tav::im::Packet;

tavSharedPtr<Packet> filled(bool mobile) {
    auto made = Packet::create(mobile, 6);
    tavMsgExt ext;
    ext.serverTime = 1600000000123;
    ext.traceId = tavString("a trace id that is no short one");
    made->setCode(0x12);
    made->setSequence(7);
    made->setBody(viewOf(written().nbr));
    made->setSession(9);
    made->setTarget("a target that is no short one");
    made->setExt(ext);
    made->setGrey(true);
    return made;
}

template <bool Mobile>
void encoded() {
    auto const packet = filled(Mobile);
    tavBytes out(tav_istr("as it was"));
    try {
        packet->encode(out);
    } catch (std::bad_alloc const &) {
        holds(same(out, "as it was"), "want of memory leaves the output");
        throw;
    }
    holds(out.size() > written().nbr.size() && bytesOf(out).substr(0, 9) == "as it was",
          "the packet is appended");
}

template <bool Mobile>
std::string const & wire() {
    static std::string const * const made = [] {
        Spared const spared;
        tavBytes out;
        filled(Mobile)->encode(out);
        return new std::string(bytesOf(out));
    }();
    return *made;
}

template <bool Mobile>
void decoded() {
    auto const packet = Packet::create(Mobile, 6);
    holds(packet->decode(viewOf(wire<Mobile>())), "the packet is read");
    holds(packet->sequence() == 7 && same(packet->body(), written().nbr), "its fields are there");
    holds(!packet->ext().empty() || !Mobile, "its extension is there");
    auto const taken = Packet::create(Mobile, 6);
    holds(taken->decode(tavBytes(viewOf(wire<Mobile>()))) && same(taken->body(), written().nbr),
          "the packet takes its bytes over");
}

void oldRefused() {
    auto const packet = Packet::create(false, 0);
    packet->setTarget("a target that is no short one");
    std::string_view const wrong("\0\0\0\1\xf5\1\2\xf5\3\4", 10);
    try {
        packet->decode(viewOf(wrong));
        holds(false, "what is no NBR is refused");
    } catch (std::invalid_argument const &) {
        holds(same(packet->target(), "a target that is no short one"), "a refusal leaves the packet");
    }
    holds(!packet->decode(tav_istr("\0\1\0\1", 4u)), "a wrong head is refused");
}

void shown() {
    std::ostringstream out;
    out.exceptions(std::ios::badbit);
    out << *filled(true) << *filled(false);
    holds(out.tellp() > 100, "packets print as their lines");
}

tavGateMessage gateMessage() {
    return tavGateMessage(3, 1, 2, 0, 7, 8, 9, viewOf(written().nbr), viewOf(written().nbr));
}

void gateMessages() {
    tavGateMessage const message = gateMessage();
    tavBytes bytes;
    message.encode(bytes);
    tavGateMessage const read = tavGateMessage::from(bytes);
    holds(!read.isEmpty() && same(read.body(), written().nbr), "what was written is read");
    tavGateMessage again = read.createAck();
    try {
        again.decode(bytes);
    } catch (std::bad_alloc const &) {
        holds(again.direction() == 1 && again.bodySize() == 0, "want of memory changes nothing");
        throw;
    }
    holds(again.size() == message.size(), "what was written is read");
    holds(tavGateMessage::from("short").isEmpty(), "what is too short is the empty message");
}

void gateShown() {
    std::ostringstream out;
    out.exceptions(std::ios::badbit);
    gateMessage().dump(out);
    {
        Spared const spared;
        holds(out.tellp() > 100 || isCutShort(out.str()), "a gate message prints as its line");
    }
    holds(tavGateMessage::getProtocolString(77).size() > 9, "a protocol without a name has a text");
}

} // namespace

Scenarios packetScenarios() {
    return {{"mobile_encoded", encoded<true>}, {"old_encoded", encoded<false>},
            {"mobile_decoded", decoded<true>}, {"old_decoded", decoded<false>},
            {"old_refused", oldRefused},       {"shown", shown},
            {"gate_messages", gateMessages},   {"gate_shown", gateShown}};
}

} // namespace torture
} // namespace tav_test
