#ifndef TAV_TOOLS_COMMAND_H
#define TAV_TOOLS_COMMAND_H

#include "tools/output.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace tav {
namespace tool {

/// What a subcommand does once its options are read; the answer is the exit code.
typedef std::function<int(Output &)> Run;

/// A subcommand.  Help, completion and man page are made of the same texts.
struct Command {
    char const * name;
    /// One line.
    char const * summary;
    /// Whole sentences; lines of at most 90 bytes.
    char const * description;
    /// Lines to be typed, each with what it does behind `#` in the line ahead.
    char const * examples;
    /// Adds the options to the subcommand.
    Run (*add)(CLI::App & app);
};

/// In the order of the help.
std::vector<Command> const & commands();

/// Those that talk to a server or are one, and stand behind the others.
std::vector<Command> liveCommands();

/// Builds the whole command line; the subcommand that was given leaves what to run in `run`.
void addCommands(CLI::App & app, Output & output, Run & run);

/// An option that takes one of some words, which help and completion show.
template <class T>
CLI::Option * addChoice(CLI::App & app, std::string const & name, T & to,
                        std::map<std::string, T> const & choices, std::string const & text) {
    std::string all;
    for (auto const & choice : choices) {
        all += (all.empty() ? "" : "|") + choice.first;
    }
    auto const take = [name, all, &to, &choices](std::string const & word) {
        auto const found = choices.find(word);
        if (found == choices.end()) {
            throw CLI::ValidationError(name, "\"" + word + "\" is none of " + all);
        }
        to = found->second;
    };
    return app.add_option_function<std::string>(name, take, text)->type_name(all);
}

/// --template, --class and --code.
void addModelOptions(CLI::App & app, std::string & file, std::string & className, std::string & code);

/// Each of these has a file of its name.
Run addCheck(CLI::App & app);
Run addDump(CLI::App & app);
Run addConvert(CLI::App & app);
Run addDiff(CLI::App & app);
Run addGen(CLI::App & app);
Run addTls(CLI::App & app);
Run addSend(CLI::App & app);
Run addRequest(CLI::App & app);
Run addListen(CLI::App & app);
Run addLoad(CLI::App & app);
Run addGateway(CLI::App & app);

} // namespace tool
} // namespace tav

#endif
