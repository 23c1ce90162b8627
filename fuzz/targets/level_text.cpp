#include "fuzz/seeds.h"
#include "tav/vinta/vinta_log.h"

#include <sstream>

// The text of log levels: what was set is told, and that text sets the same.

namespace tav_fuzz {
namespace {

std::string levels() {
    return std::string(textOf(tavLogger::str()));
}

/// What is told when `text` has been set.
std::string toldAfter(std::string_view text) {
    tavLogger::setLogLevel(tav_istr("clear"), tavLogger::TRACE);
    tavLogger::setLogLevel(viewOf(text));
    return levels();
}

/// A tag that a text can tell: others lose or change their form on the way.
bool isPlain(std::string_view text) {
    return text.find("__") == std::string_view::npos &&
           text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789().") ==
               std::string_view::npos;
}

void run(std::string_view input) {
    tavLogger::setLogLevel(tav_istr("clear"), tavLogger::TRACE);
    std::string const failed = failureOf([&] {
        withinHeap(
            input, [&] { tavLogger::setLogLevel(viewOf(input)); }, levelTextHeap);
    });
    std::string const told = levels();
    tavLogger::isLoggable(viewOf(input), tavLogger::INFO);
    if (failed.empty() && isPlain(input)) {
        // The switches that the text ends in are tags when it is set.
        std::string const again = toldAfter(told);
        requireSame(toldAfter(again), again, "levels that were told are the levels that are set");
    }
    tavLogger::setLogLevel(tav_istr("clear"), tavLogger::TRACE);
}

void seeds(Seeds & out, Random & random) {
    for (char const * const text :
         {"(default(INFO)net(DEBUG))", "(clear(TRACE))", "(all(WARN))", "net(DEBUG)", "",
          "(default(INFO)net(DEBUG)__console(0)__vip(5))", "(a(b)(c))"}) {
        out.push_back(text);
    }
    static std::vector<std::string_view> const tags = {"default", "clear",   "all",   "net",
                                                       "TAV",     "TLS.CLT", "__vip", ""};
    static std::vector<std::string_view> const names = {"ALL",   "TRACE",  "VERBOSE", "DEBUG", "INFO", "WARN",
                                                        "ERROR", "ASSERT", "OUT",     "NONE",  "what", "3"};
    fillUp(out, random, 220, [&] {
        std::string made = "(";
        for (std::size_t left = below(random, 6); left > 0; --left) {
            made += std::string(oneOf(random, tags)) + "(" + std::string(oneOf(random, names)) + ")";
        }
        return made + ")";
    });
}

std::string swell(std::string_view part, std::size_t size) {
    return repeated("(", part, " ", ")", size);
}

TAV_FUZZ_TARGET(level_text, run, seeds, swell);

} // namespace
} // namespace tav_fuzz
