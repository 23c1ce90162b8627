#include "tools/command.h"
#include "tools/talk.h"

#include <memory>

namespace tav {
namespace tool {

Run addSend(CLI::App & app) {
    auto const options = std::make_shared<TalkOptions>();
    constexpr unsigned quietMs = 200;
    options->lingerMs = quietMs;
    addTalkOptions(app, *options);
    app.add_flag("--confirm", options->confirms, "wait for a receipt of each message");
    return [options](Output & output) { return talk(*options, output); };
}

} // namespace tool
} // namespace tav
