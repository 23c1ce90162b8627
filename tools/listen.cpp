#include "tools/command.h"
#include "tools/failure.h"
#include "tools/live.h"

#include <limits>
#include <memory>

namespace tav {
namespace tool {

namespace {

struct Options {
    LiveOptions live;
    std::string model;
    unsigned long long count = 0;
    unsigned forMs = 0;
};

int listen(Options const & options, Output & output) {
    Template const model = loadTemplate(options.model);
    Live live(options.live, model, output);
    try {
        live.mostPushes(options.count == 0 ? std::numeric_limits<unsigned long long>::max() : options.count);
        live.connect();
        auto const end = options.forMs == 0 ? Live::Clock::time_point::max()
                                            : Live::Clock::now() + std::chrono::milliseconds(options.forMs);
        while (!live.isGone() && Live::Clock::now() < end &&
               (options.count == 0 || live.pushes() < options.count)) {
            live.serve(-1, end);
        }
    } catch (Interrupted const &) {
        // That is how it is meant to end.
        return live.code();
    }
    return live.code();
}

} // namespace

Run addListen(CLI::App & app) {
    auto const options = std::make_shared<Options>();
    options->live.tellsUp = true;
    addLiveOptions(app, options->live);
    app.add_option("-t,--template", options->model, "the template that gives names and types")
        ->required()
        ->type_name("FILE");
    app.add_option("--count", options->count, "end behind so many messages")
        ->check(CLI::PositiveNumber)
        ->type_name("N");
    app.add_option("--for", options->forMs, "end after so many milliseconds")
        ->check(CLI::PositiveNumber)
        ->type_name("MS");
    return [options](Output & output) { return listen(*options, output); };
}

} // namespace tool
} // namespace tav
