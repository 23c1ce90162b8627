#include "fuzz/fuzz.h"

#include "fuzz/heap.h"
#include "fuzz/seeds.h"
#include "tav/vinta/vinta_log.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace tav_fuzz {

namespace {

bool capturing = false;

std::string & captured() {
    static std::string * const lines = new std::string;
    return *lines;
}

void takeLine(int, char const * text) {
    if (capturing) {
        captured() += withoutDigits(text);
    }
}

/// Everything is logged, to a function: what makes the lines is fuzzed with the rest.
bool openLog() {
    tavLogger::setup(tav_istr("(clear(TRACE))"), takeLine, false, tavLogger::NONE);
    return true;
}

[[noreturn]] void fail(std::string_view text) {
    std::fprintf(stderr, "BROKEN PROMISE: %.*s\n", static_cast<int>(text.size()), text.data());
    std::abort();
}

unsigned hashOf(std::string_view input) {
    unsigned hash = 2166136261u;
    for (char const c : input) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
    }
    return hash ^ hash >> 16;
}

void runGuarded(Target const & target, std::string_view input) {
    try {
        target.run(input);
    } catch (std::exception const & e) {
        fail(std::string("only described exceptions leave, not: ") + e.what());
    }
}

/// One seed a line, in hexadecimal; lines with a # say where the next ones come from.
void readCorpus(std::string const & path, Seeds & out) {
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        bool const whole =
            line.find_first_not_of("0123456789abcdef") == std::string::npos && line.size() % 2 == 0;
        require(whole, "the corpus is hexadecimal");
        out.push_back(unhex(line));
    }
}

constexpr std::size_t swollenSize = 96 * 1024;
constexpr std::size_t largestPart = 2048;

} // namespace

Target::Target(char const * targetName, Run runIt, MakeSeeds seedIt, Swell swellIt)
    : name(targetName), run(runIt), seeds(seedIt), swell(swellIt) {
    targets().push_back(this);
}

std::vector<Target const *> & targets() {
    static std::vector<Target const *> * const all = new std::vector<Target const *>;
    return *all;
}

void runOnce(Target const & target, std::string_view input) {
    static bool const logs = openLog();
    require(logs, "the log is open");
    runGuarded(target, input);
    if (target.swell != nullptr && !input.empty() && input.size() <= largestPart &&
        hashOf(input) % 128 == 0) {
        runGuarded(target, target.swell(input, swollenSize));
    }
}

Seeds seedsOf(Target const & target) {
    Seeds out;
    Random random(20);
    target.seeds(out, random);
    readCorpus(std::string(TAV_FUZZ_CORPUS) + "/" + target.name + ".txt", out);
    return out;
}

void require(bool kept, char const * promise) {
    if (!kept) {
        fail(promise);
    }
}

void requireSame(std::string_view a, std::string_view b, char const * promise) {
    if (a != b) {
        fail(std::string(promise) + "\n<<<" + std::string(a) + ">>>\n<<<" + std::string(b) + ">>>");
    }
}

HeapLimit::HeapLimit(std::size_t input, int times) : input_(input), times_(times), begin_(heap::begin()) {}

HeapLimit::~HeapLimit() {
    long long const taken = heap::peak() - begin_;
    long long const most = times_ * static_cast<long long>(input_) + (1 << 20);
    if (taken > most) {
        fail("at most " + std::to_string(times_) + " times the input and 1 MiB of heap, not " +
             std::to_string(taken) + " for " + std::to_string(input_));
    }
}

LogLines::LogLines() {
    captured().clear();
    capturing = true;
}

LogLines::~LogLines() {
    capturing = false;
    captured().clear();
}

std::string LogLines::take() {
    std::string out;
    out.swap(captured());
    return out;
}

std::string withoutDigits(std::string_view text) {
    std::string out;
    for (char const c : text) {
        if (c < '0' || c > '9') {
            out += c;
        }
    }
    return out;
}

std::string repeated(std::string_view open, std::string_view part, std::string_view separator,
                     std::string_view close, std::size_t size) {
    std::string out(open);
    do {
        out += part;
        out += separator;
    } while (out.size() < size);
    out += close;
    return out;
}

} // namespace tav_fuzz
