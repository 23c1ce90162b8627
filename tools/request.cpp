#include "tools/command.h"
#include "tools/talk.h"

#include <memory>

namespace tav {
namespace tool {

Run addRequest(CLI::App & app) {
    auto const options = std::make_shared<TalkOptions>();
    options->awaits = true;
    addTalkOptions(app, *options);
    app.add_option("--reply", options->replyClass,
                   "the class of the replies; without it they have the code behind that of the message")
        ->type_name("NAME");
    app.add_option("--reply-code", options->replyCode, "the code of the replies, in place of their class")
        ->type_name("HEX")
        ->excludes(app.get_option("--reply"));
    app.add_flag("--replies", options->live.repliesAlone,
                 "print the replies alone, and nothing else that comes");
    constexpr unsigned most = 500;
    app.add_option("--at-once", options->atOnce, "how many requests may be under way")
        ->check(CLI::Range(1u, most))
        ->type_name("N")
        ->capture_default_str();
    app.add_flag("--repeat", options->live.repeat,
                 "send again, by the next connection, what had no reply when one ended");
    return [options](Output & output) { return talk(*options, output); };
}

} // namespace tool
} // namespace tav
