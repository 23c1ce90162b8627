#include "fuzz/model.h"
#include "fuzz/seeds.h"

// NBR into a class with every kind of field, by the direct road and by the virtual operations.

namespace tav_fuzz {
namespace {

/// Of the library's classes by all but their types, which keeps them off the direct roads.
class SlowIn : public tavNbrInStream {
public:
    using tavNbrInStream::tavNbrInStream;
};
class SlowOut : public tavNbrOutStream {
public:
    using tavNbrOutStream::tavNbrOutStream;
};

struct Outcome {
    std::string failed;
    std::string text;
    std::string bytes;
    std::string log;
};

template <class Read>
Outcome outcomeOf(std::string_view input, Everything & into, Read && read) {
    LogLines lines;
    Outcome out;
    out.failed = failureOf([&] { withinHeap(input, read, nbrObjectHeap); });
    out.log = lines.take();
    // An enum's number that has no name can be read and neither shown nor written.
    out.failed += failureOf([&] { out.text = textOf(into.dump(true, 0)); });
    out.failed += failureOf([&] { out.bytes = textOf(into.encode(false)); });
    return out;
}

void run(std::string_view input) {
    nameMoods();
    Everything fast;
    Outcome const byFast = outcomeOf(input, fast, [&] { fast.decode(viewOf(input)); });
    Everything slow;
    Outcome const bySlow = outcomeOf(input, slow, [&] {
        SlowIn in{viewOf(input)};
        slow.io(in);
    });
    requireSame(withoutDigits(byFast.failed), withoutDigits(bySlow.failed), "both roads fail alike");
    requireSame(byFast.log, bySlow.log, "both roads log alike");
    requireSame(byFast.text, bySlow.text, "both roads read alike");
    requireSame(byFast.bytes, bySlow.bytes, "both roads give the same bytes");
    if (!byFast.failed.empty()) {
        return;
    }
    for (bool const hides : {false, true}) {
        SlowOut out(hides);
        fast.io(out);
        requireSame(textOf(fast.encode(hides)), textOf(out.str()), "both roads write alike");
    }
    fast.loose.clear();
    tavBytes const once = fast.encode(false);
    Everything again;
    again.decode(once);
    requireSame(textOf(again.encode(false)), textOf(once), "NBR loses nothing");
}

void seeds(Seeds & out, Random & random) {
    out.push_back(unhex("FF0128 01010105 02F1026162 03FF0128 00010107 0001022C01 FF0129 FF0129"));
    fillUp(out, random, 240, [&] { return randomNbrMessage(random); });
}

std::string swell(std::string_view part, std::size_t size) {
    std::string const list =
        unhex("FF0128") +
        repeated(unhex("20FF0128"), std::string(1, '\0') + std::string(part), "", unhex("FF0129"), size);
    return list + unhex("FF0129");
}

TAV_FUZZ_TARGET(nbr_object, run, seeds, swell);

} // namespace
} // namespace tav_fuzz
