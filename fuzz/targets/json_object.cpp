#include "fuzz/model.h"
#include "fuzz/seeds.h"

// JSON into a class with checks: what passed them is written and read again.

namespace tav_fuzz {
namespace {

/// Of the library's class by all but its type.
class SlowIn : public tavJsonInStream {
public:
    using tavJsonInStream::tavJsonInStream;
};

void run(std::string_view input) {
    nameMoods();
    Everything direct;
    std::string const failed = failureOf([&] {
        withinHeap(
            input, [&] { direct.decodeJson(viewOf(input)); }, jsonObjectHeap);
    });
    Everything slow;
    std::string const slowFailed = failureOf([&] {
        SlowIn in{viewOf(input)};
        slow.io(in);
    });
    requireSame(withoutDigits(failed), withoutDigits(slowFailed), "a derived stream fails alike");
    std::string text;
    std::string slowText;
    std::string const unnamed = failureOf([&] { text = textOf(direct.encodeJson(false)); });
    require(unnamed == failureOf([&] { slowText = textOf(slow.encodeJson(false)); }),
            "both are written alike");
    requireSame(text, slowText, "a derived stream reads alike");
    if (!failed.empty() || !unnamed.empty()) {
        return;
    }
    direct.dump(true, 0);
    Everything again;
    again.when = tavTime();
    failureOf([&] { again.decodeJson(viewOf(text)); });
}

void seeds(Seeds & out, Random & random) {
    for (char const * const text :
         {"{\"at\":\"5\"}", "{\"at\":5,\"level\":400}", "{\"at\":5,\"level\":700}", "{}", "{\"at\":true}",
          "{\"at\":[],\"mood\":1}", "{\"at\":1,\"mood\":300}", "{\"at\":1,\"mood\":4294967296}",
          "{\"at\":1,\"digest\":\"AQID\"}"}) {
        out.push_back(text);
    }
    fillUp(out, random, 240, [&] { return randomJsonMessage(random); });
}

std::string swell(std::string_view part, std::size_t size) {
    return repeated("{\"at\":1,\"tags\":[", part, ",", "\"x\"]}", size);
}

TAV_FUZZ_TARGET(json_object, run, seeds, swell);

} // namespace
} // namespace tav_fuzz
