#include "tools/command.h"
#include "tools/failure.h"
#include "tools/live.h"

#include <algorithm>
#include <limits>
#include <memory>

namespace tav {
namespace tool {

namespace {

struct Options {
    LiveOptions live;
    std::string model;
    unsigned long long count = 0;
    unsigned long long forMs = 0;
};

/// What is told of a time that has passed too early; empty if it has not.
std::string missed(Options const & options, Live const & live, bool wasUp) {
    std::string const within = " within the " + std::to_string(options.forMs) + " ms of --for\n";
    if (live.isGone()) {
        return "";
    }
    if (!wasUp) {
        return "tav: there was no connection" + within;
    }
    return live.pushes() >= options.count ? ""
                                          : "tav: " + std::to_string(live.pushes()) + " of " +
                                                std::to_string(options.count) + " messages came" + within;
}

int listen(Options const & options, Output & output) {
    Template const model = loadTemplate(options.model);
    auto const end = options.forMs == 0 ? Live::Clock::time_point::max()
                                        : Live::Clock::now() + std::chrono::milliseconds(options.forMs);
    Live live(options.live, model, output);
    try {
        live.mostPushes(options.count == 0 ? std::numeric_limits<unsigned long long>::max() : options.count);
        bool const wasUp = live.connect(end);
        while (wasUp && !live.isGone() && Live::Clock::now() < end &&
               (options.count == 0 || live.pushes() < options.count)) {
            live.serve(-1, end);
        }
        std::string const text = missed(options, live, wasUp);
        output.tell(text);
        return std::max(live.code(), static_cast<int>(text.empty() ? exitGood
                                                      : wasUp      ? exitFound
                                                                   : exitNetwork));
    } catch (Interrupted const &) {
        // That is how it is meant to end.
        return live.code();
    }
}

} // namespace

Run addListen(CLI::App & app) {
    auto const options = std::make_shared<Options>();
    constexpr unsigned long long mostMessages = 1000000000000;
    constexpr unsigned long long longestMs = 1000000000000;
    options->live.tellsUp = true;
    addLiveOptions(app, options->live);
    app.add_option("-t,--template", options->model, "the template that gives names and types")
        ->required()
        ->type_name("FILE");
    app.add_option("--count", options->count, "end behind so many messages")
        ->check(CLI::Range(1ull, mostMessages))
        ->type_name("N");
    app.add_option("--for", options->forMs, "end after so many milliseconds")
        ->check(CLI::Range(1ull, longestMs))
        ->type_name("MS");
    return [options](Output & output) {
        return withKeyLog(options->live.connection, listen(*options, output), output);
    };
}

} // namespace tool
} // namespace tav
