#include "fuzz/seeds.h"
#include "tav/vinta/vinta_transport_message.h"

#include <sstream>

// The gate message: whatever is read is written the same, and prints.

namespace tav_fuzz {
namespace {

void run(std::string_view input) {
    tavGateMessage message;
    bool const taken = failureOf([&] { withinHeap(input, [&] { message.decode(viewOf(input)); }); }).empty();
    require(taken == (input.size() >= 12), "twelve bytes are a message");
    tavGateMessage const same = tavGateMessage::from(viewOf(input));
    require(same.isEmpty() == message.isEmpty(), "both ways of reading give one message");
    require(message.size() <= input.size() || !taken, "a message is of the input");
    std::ostringstream line;
    failureOf([&] { message.dump(line); });
    require(message.createAck().type() == message.type() || message.createAck().isEmpty(),
            "an answer has the type");
    if (!taken) {
        return;
    }
    tavBytes out;
    message.encode(out);
    tavGateMessage again;
    again.decode(out);
    tavBytes twice;
    again.encode(twice);
    requireSame(textOf(twice), textOf(out), "what was written is read the same");
    bool const wholeHead = textOf(out).substr(10, 2) == input.substr(10, 2);
    if (wholeHead && message.size() == input.size()) {
        requireSame(textOf(out), input, "a whole message comes back byte by byte");
    }
}

void seeds(Seeds & out, Random & random) {
    out.push_back(unhex("020304000000000506070004") + "headbody!");
    fillUp(out, random, 220, [&] {
        static unsigned char const protocols[] = {0, 1, 2, 3, 5, 6, 7, 8, 9, 255};
        tavGateMessage const made(protocols[below(random, 10)], static_cast<unsigned char>(random()), 4,
                                  static_cast<unsigned char>(below(random, 4)), static_cast<int>(random()), 6,
                                  7, viewOf(randomNbr(random, 2)), viewOf(randomNbr(random, 2)));
        tavBytes bytes;
        made.encode(bytes);
        return std::string(textOf(bytes));
    });
}

std::string swell(std::string_view part, std::size_t size) {
    return repeated(part, part, "", "", size);
}

TAV_FUZZ_TARGET(gate_message, run, seeds, swell);

} // namespace
} // namespace tav_fuzz
