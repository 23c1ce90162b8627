#ifndef TAV_TESTS_SUPPORT_TOOL_H
#define TAV_TESTS_SUPPORT_TOOL_H

#include "support/folder.h"

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace tav_test {

/// What a run of the tool gave.
struct ToolRun {
    /// The exit code; -1 if a signal ended it.
    int code = -1;
    int signal = 0;
    std::string out;
    std::string err;
};

inline std::string contentOf(std::string const & path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

/// The tool, run by a shell in a folder of its own.
class ToolRig {
public:
    explicit ToolRig(std::string program) : program_(std::move(program)) {}

    /// Writes a file into the folder.
    void file(std::string const & name, std::string const & content) const { folder_.write(name, content); }
    std::string path(std::string const & name) const { return folder_.path() + "/" + name; }

    /// Runs "tav ARGUMENTS", as a shell takes them, with this on the standard input.
    ToolRun run(std::string const & arguments, std::string const & input = std::string()) const {
        folder_.write(".in", input);
        return shell("exec " + program_ + " " + arguments + " <.in");
    }

    /// Runs a line of shell, in which $TAV is the program.
    ToolRun shell(std::string const & line) const {
        folder_.write(".line", line);
        int const status = std::system(
            ("cd " + folder_.path() + " && TAV=" + program_ + " NO_COLOR= TZ=UTC bash .line >.out 2>.err")
                .c_str());
        ToolRun result;
        result.out = contentOf(path(".out"));
        result.err = contentOf(path(".err"));
        if (WIFEXITED(status)) {
            result.code = WEXITSTATUS(status);
            if (result.code > 128) {
                result.signal = result.code - 128;
            }
        }
        return result;
    }

private:
    std::string program_;
    Folder folder_;
};

} // namespace tav_test

#endif
