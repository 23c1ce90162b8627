#include "fuzz/seeds.h"
#include "tav/vinta/vinta_basetypes_time.h"

#include <algorithm>
#include <cstring>
#include <sstream>

// Times and zones: reading never fails, and a text that was made of a time is read as that time, where the
// clock has no summer time.

namespace tav_fuzz {
namespace {

constexpr long long year9999 = 253402300799999ll - 86400000ll;

long long numberOf(std::string_view bytes) {
    long long out = 0;
    std::memcpy(&out, bytes.data(), std::min(bytes.size(), sizeof out));
    return out;
}

void checkNumber(long long ms) {
    tavTime const time = tavTime::milliseconds(ms);
    std::string const text(textOf(time.str()));
    std::ostringstream line;
    line << time;
    requireSame(line.str(), text, "a time prints as its text");
    require(tavTime::milliseconds(ms).seconds() == ms / 1000, "seconds are cut toward 0");
    if (ms >= 0 && ms < year9999) {
        tm const local = tavTime::millisToLocal(ms);
        require(tavTime::localToMillis(local) == ms / 1000 * 1000, "a local time is the time it was made of");
        requireSame(textOf(tavTime::from(viewOf(text)).str()), text,
                    "a time that was written is read the same");
    }
    tavTime::secondsToLocal(ms);
}

void checkZone(Input & input) {
    auto const hours = static_cast<signed char>(input.byte());
    auto const minutes = static_cast<signed char>(input.byte());
    char const sign = (input.byte() & 1) != 0 ? '+' : '-';
    tavTimeZone const zone(sign, hours, minutes);
    require(std::strlen(zone.str()) == 5, "a zone has five characters");
    require((-zone).offset() == -zone.offset(), "the zone on the other side is as far");
    tavTimeZone const by(static_cast<int>(numberOf(input.bytes(4))));
    require(std::strlen(by.str()) == 5, "a zone has five characters");
    tavTimeZone::east(hours);
    tavTimeZone::minutes(minutes);
}

void run(std::string_view input) {
    tavTime const time = withinHeap(input, [&] { return tavTime::from(viewOf(input)); });
    require(tavTime(tav_time(viewOf(input))) == time, "both ways of reading give one time");
    time.str();
    Input rest(input);
    checkNumber(numberOf(rest.bytes(8)));
    checkZone(rest);
}

void seeds(Seeds & out, Random & random) {
    for (char const * const text :
         {"2022-06-01~11:09:29.007+0800", "2022-06-01", "20220601110929", "0-0-0", "1969-12-31",
          "9999-12-31~23:59:59.999", "2024-02-30 25:61:61.1234", "", "x"}) {
        out.push_back(text);
    }
    fillUp(out, random, 220, [&] {
        long long const ms = static_cast<long long>(random()) * 1000 * below(random, 60);
        return below(random, 2) == 0 ? std::string(textOf(tavTime::milliseconds(ms).str()))
                                     : randomBytes(random, 16);
    });
}

TAV_FUZZ_TARGET(time, run, seeds, nullptr);

} // namespace
} // namespace tav_fuzz
