#include "support/folder.h"
#include "tav/vinta/vinta_basetypes_util.h"
#include "tav/vinta/vinta_log.h"
#include "torture/scenarios.h"

#include <atomic>
#include <cstdio>
#include <iostream>
#include <new>
#include <stdexcept>
#include <streambuf>
#include <string>

namespace tav_test {
namespace torture {
namespace {

std::atomic<unsigned> lines{0};

void take(int, char const *) {
    ++lines;
}

std::string const & path() {
    static Folder const * const folder = [] {
        Spared const spared;
        return new Folder;
    }();
    static std::string const * const file = [] {
        Spared const spared;
        return new std::string(folder->path() + "/log.txt");
    }();
    return *file;
}

/// The log as every test finds it; without it, it would be left as a failure has it.
class Reset {
public:
    Reset() = default;
    ~Reset() {
        Spared const spared;
        tavLogger::close();
        std::remove(path().c_str());
        std::remove((path() + ".bak").c_str());
    }
    Reset(Reset const &) = delete;
    Reset & operator=(Reset const &) = delete;
};

void openLog(int maxSize) {
    tavLogger::open(tav_istr(path()), "an application with a name", "(clear(INFO)net(DEBUG))", &take, "1.0",
                    maxSize, false, tavLogger::WARN);
}

bool write(tavLogger::LogLevel level) {
    try {
        tavLogger::writeLog("net", level, "a line of some length, so that it is no short text\n", "file.cpp",
                            1, "a::function");
    } catch (std::bad_alloc const &) {
        return false;
    }
    return true;
}

void openedAndClosed() {
    Reset const reset;
    openLog(100000);
    tavLogger::close();
}

void writtenTo() {
    Reset const reset;
    openLog(100000);
    lines = 0;
    unsigned told = 0;
    for (int i = 0; i < 5; ++i) {
        told += write(tavLogger::INFO) ? 1 : 0;
        told += write(tavLogger::ERROR) ? 1 : 0;
    }
    tavLogger::close();
    Spared const spared;
    holds(lines >= told, "each line that was taken is told");
    std::string const content = tavUtil::readFile(path());
    holds(content.find("a line of some length") != std::string::npos, "the file has lines");
    if (told < 10) {
        throw std::bad_alloc();
    }
}

void rotated() {
    Reset const reset;
    openLog(500);
    unsigned told = 0;
    for (int i = 0; i < 6; ++i) {
        told += write(tavLogger::ERROR) ? 1 : 0;
    }
    tavLogger::flush();
    tavLogger::close();
    Spared const spared;
    holds(tavUtil::readFile(path()).size() <= 700, "the file keeps its limit");
}

void levelsSet() {
    Reset const reset;
    tavLogger::setLogLevel("(clear(WARN)a tag of some length that is new(DEBUG)net(ERROR)__vip(5))");
    tavLogger::setLogLevel("another tag of some length", tavLogger::TRACE);
    holds(tavLogger::isLoggable("another tag of some length", tavLogger::TRACE) &&
              !tavLogger::isLoggable("net", tavLogger::WARN),
          "the levels are those that were set");
    holds(tavLogger::str().size() > 30, "the levels have a text");
    try {
        tavLogger::setLogLevel("(clear(WARN)a tag without its end");
        holds(false, "a text that is none is refused");
    } catch (std::invalid_argument const &) {
        // As it has to be.
    }
}

void finalized() {
    Reset const reset;
    openLog(100000);
    write(tavLogger::INFO);
    tavLogger::finalize();
    holds(!tavLogger::isLoggable("net", tavLogger::VERBOSE), "the levels are the default ones");
}

void reopened() {
    Reset const reset;
    openLog(100000);
    write(tavLogger::INFO);
    openLog(100000);
    lines = 0;
    bool const told = write(tavLogger::ERROR);
    Spared const spared;
    tavLogger::flush();
    holds(!told || lines > 0, "the log goes on");
}

/// Takes what goes to the console while it lives.
class Console : public std::streambuf {
public:
    Console() : before_(std::cout.rdbuf(this)) {}
    ~Console() override { std::cout.rdbuf(before_); }
    Console(Console const &) = delete;
    Console & operator=(Console const &) = delete;

    std::string text;

private:
    std::streamsize xsputn(char const * bytes, std::streamsize n) override {
        Spared const spared;
        text.append(bytes, static_cast<std::size_t>(n));
        return n;
    }

    std::streambuf * const before_;
};

bool endsWith(std::string const & text, std::string const & end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

template <class Line>
void shownLine() {
    Console console;
    {
        Line line;
        line << "a line of some length that is told to the console, and " << 5 << " behind it";
    }
    Spared const spared;
    holds(console.text.empty() || endsWith(console.text, " and 5 behind it\n") ||
              endsWith(console.text, "... (cut short)\n"),
          "a line on the console is whole or says that it is cut short");
}

} // namespace

Scenarios logScenarios() {
    return {{"opened_and_closed", openedAndClosed, Of::process},
            {"written_to", writtenTo, Of::process},
            {"rotated", rotated, Of::process},
            {"levels_set", levelsSet},
            {"finalized", finalized, Of::process},
            {"reopened", reopened, Of::process},
            {"console_line", shownLine<tav::console>},
            {"debugger_line", shownLine<tav::debugger>}};
}

} // namespace torture
} // namespace tav_test
