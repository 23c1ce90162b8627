#include "tools/command.h"
#include "tools/failure.h"
#include "tools/terminal_text.h"
#include "tools/texts.h"

#include <tav/vinta/vinta_basetypes_failures.h>
#include <tav/vinta/vinta_log.h>

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <sstream>

namespace {

using namespace tav::tool;

/// Takes the command line.  Answers the exit code if there is nothing to run: for help, or a wrong line.
int parse(CLI::App & app, int argc, char ** argv, Output & output) {
    std::string const first = argc > 1 ? argv[1] : "-";
    std::string known;
    bool found = first.compare(0, 1, "-") == 0 || first.compare(0, 2, "__") == 0;
    for (Command const & command : commands()) {
        known += (known.empty() ? "" : ", ") + std::string(command.name);
        found = found || first == command.name;
    }
    if (!found) {
        throw Failure(exitUse, "there is no command " + first + "; did you mean one of " + known + "?");
    }
    try {
        app.parse(argc, argv);
        return exitGood;
    } catch (CLI::ParseError const & e) {
        std::ostringstream help;
        std::ostringstream wrong;
        bool const asked = app.exit(e, help, wrong) == 0;
        output.write(help.str());
        output.flush();
        if (!asked) {
            output.tell("tav: " + wrong.str());
        }
        return asked ? exitGood : exitUse;
    }
}

int run(int argc, char ** argv, Output & output) {
    CLI::App app("Sees, makes, checks and compares the messages of tav_im_nbr.", "tav");
    app.footer(
        "Exit codes: 0 good, 1 something in the input is wrong, 2 bad use or a file that can't be read or\n"
        "written, 3 the network.");
    app.set_version_flag("--version", std::string("tav ") + tav::version_t::release());
    Run work;
    addCommands(app, output, work);
    addTexts(app, output, work);
    int const code = parse(app, argc, argv, output);
    if (!work) {
        return code;
    }
    int const result = work(output);
    output.flush();
    return result;
}

/// For who has asked for JSON: the first line of the text, and what mends it.
std::string failureJson(std::string const & text, int code) {
    constexpr std::string_view mend = "\n    mend: ";
    std::size_t const at = text.find(mend);
    std::string const mends = at == std::string::npos ? "" : text.substr(at + mend.size());
    return "{\"error\":" + jsonText(text.substr(0, text.find('\n'))) +
           (mends.empty() ? "" : ",\"mend\":" + jsonText(mends.substr(0, mends.find('\n')))) +
           ",\"code\":" + std::to_string(code) + "}";
}

/// Tells why the program ends, also where the output can't be written.
int end(Output & output, std::string const & text, int code) {
    std::string const line = "tav: " + text + (text.empty() || text.back() != '\n' ? "\n" : "");
    try {
        if (output.forPrograms()) {
            output.line(failureJson(text, code));
        }
        output.tell(line);
    } catch (Failure const & e) {
        std::fputs(forTerminal(line + "tav: " + e.what() + "\n").c_str(), stderr);
    }
    return code;
}

/// A standard stream that is closed would be the number of the next file or connection, and be written to as
/// if it were the stream: what takes its place can't be read or written.
void takeStandardStreams() {
    for (int const fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(fd, F_GETFD) < 0) {
            // The lowest that is free, which is this one.
            int const taken = ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
            static_cast<void>(taken);
        }
    }
}

} // namespace

int main(int argc, char ** argv) {
    takeStandardStreams();
    // What writes to a reader that went away ends, also where a parent has ignored that.
    std::signal(SIGPIPE, SIG_DFL);
    tavLogger::setLogLevel(tavLogger::NONE);
    Output output;
    try {
        return run(argc, argv, output);
    } catch (Failure const & e) {
        return end(output, e.what(), e.code());
    } catch (std::exception const & e) {
        return end(output, reasonOf(e), exitUse);
    }
}
