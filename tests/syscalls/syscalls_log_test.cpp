#include "support/folder.h"
#include "support/joining_thread.h"
#include "syscalls/syscalls.h"
#include "tav/vinta/vinta_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

namespace tav_test {
namespace syscalls {
namespace {

std::atomic<unsigned> told{0};

void take(int, char const * text) {
    if (std::string(text).find(" line ") != std::string::npos) {
        ++told;
    }
}

std::string contentOf(std::string const & path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string const & path() {
    static Folder const folder;
    static std::string const file = folder.path() + "/app.log";
    return file;
}

void open(int maxSize = 100000) {
    try {
        tavLogger::open(tav_istr(path()), "app", "(clear(INFO)TAV(WARN))", &take, "1.0", maxSize, false,
                        tavLogger::WARN);
    } catch (std::system_error const & e) {
        torture::holds(torture::isMadeToHappen(e.code()), "a want is told as such");
        // Lines come without the thread, too.
        tavLogger::setup("(clear(INFO)TAV(WARN))", &take, false, tavLogger::WARN);
    }
}

/// The number of the next line.
std::atomic<int> next{0};

void write(tavLogger::LogLevel level = tavLogger::INFO) {
    std::string const text = "line " + std::to_string(next++) + " of a log, a text of some length\n";
    tavLogger::writeLog("app", level, tav_istr(text), "file.cpp", 1, "a::function");
}

/// What the files have got.
struct Read {
    std::vector<int> lines;
    int lost = 0;
    int banners = 0;
    bool wholeAtEnd = true;

    explicit Read(std::string const & text) {
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) {
            wholeAtEnd = !in.eof();
            take(line);
        }
    }

private:
    static bool endsWith(std::string const & line, std::string const & end) {
        return line.size() >= end.size() && line.compare(line.size() - end.size(), end.size(), end) == 0;
    }
    void take(std::string const & line) {
        static std::string const word = " log lines lost, as the file could not be written: ";
        std::size_t const at = line.find(" line ");
        std::size_t const lostAt = line.find(word);
        if (endsWith(line, "... (cut short)")) {
            return;
        }
        if (lostAt != std::string::npos) {
            lost += std::atoi(line.c_str() + line.rfind(' ', lostAt - 1));
        } else if (at != std::string::npos && endsWith(line, " of a log, a text of some length")) {
            lines.push_back(std::atoi(line.c_str() + at + 6));
        } else {
            banners += line == "app version 1.0" ? 1 : 0;
        }
    }
};

void openedAndWrittenTo() {
    torture::Want const want;
    open();
    for (int i = 0; i < 6; ++i) {
        write();
        write(tavLogger::ERROR);
    }
    tavLogger::close();
}

void writtenToWithoutAThread() {
    open();
    tavLogger::close();
    torture::Want const want;
    for (int i = 0; i < 8; ++i) {
        write();
    }
}

/// So that the file is set aside once.
void rotated() {
    torture::Want const want;
    open(3000);
    for (int i = 0; i < 28; ++i) {
        write(i % 5 == 4 ? tavLogger::ERROR : tavLogger::INFO);
    }
    tavLogger::close();
}

void reopened() {
    torture::Want const want;
    open();
    write();
    open();
    write(tavLogger::ERROR);
    write();
    tavLogger::close();
    write();
}

/// One behind the other, so that their lines have an order.
void writtenToOnTwoThreads() {
    torture::Want const want;
    open();
    auto const writeSome = [] {
        for (int i = 0; i < 5; ++i) {
            write(i % 2 == 0 ? tavLogger::ERROR : tavLogger::INFO);
        }
    };
    {
        torture::Spared const spared;
        JoiningThread const other(writeSome);
        tavLogger::flush();
    }
    writeSome();
    tavLogger::close();
}

/// What was written is in the files, or is told there as lost once the system gives again what it refused.
template <void (*Scenario)()>
void losesNothingUntold() {
    std::remove(path().c_str());
    std::remove((path() + ".bak").c_str());
    next = 0;
    told = 0;
    Scenario();
    write(tavLogger::ERROR);
    tavLogger::finalize();
    auto const written = static_cast<std::size_t>(next.load());
    Read read(contentOf(path() + ".bak") + contentOf(path()));
    bool const aside = std::filesystem::exists(path() + ".bak");
    torture::holds(told == written, "the callback gets each line, whatever becomes of the file");
    torture::holds(read.lines.size() + static_cast<std::size_t>(read.lost) == written,
                   "each line is in the file, or is told there as lost");
    torture::holds(!read.lines.empty() && read.lines.back() == next - 1, "the file goes on");
    torture::holds(read.banners >= (aside ? 2 : 1), "each file has its banner");
    torture::holds(read.wholeAtEnd, "the file ends with a whole line");
    torture::holds(std::is_sorted(read.lines.begin(), read.lines.end()) &&
                       std::adjacent_find(read.lines.begin(), read.lines.end()) == read.lines.end(),
                   "no line is there twice, nor before one that was written ahead of it");
}

std::vector<Fault> const & faults() {
    static std::vector<Fault> const all = {
        {"an open is interrupted", opens, EINTR},
        {"no descriptor", opens, EMFILE},
        {"no descriptors", opens, EMFILE, Lasting::stays},
        {"no memory for an open", opens, ENOMEM},
        {"no room for a file", opens, ENOSPC},
        {"no room for a file", opens, ENOSPC, Lasting::stays},
        {"a write is interrupted", writes, EINTR},
        {"a write has to be tried again", writes, EAGAIN},
        {"a byte is written", writes, 0},
        {"a byte is written", writes, 0, Lasting::stays},
        {"nothing is written", writes, movesNothing, Lasting::stays},
        {"no room", writes, ENOSPC},
        {"no room any more", writes, ENOSPC, Lasting::stays},
        {"the disk fills up", writes, ENOSPC, Lasting::fills},
        {"the disk fails", writes, EIO, Lasting::fills},
        {"the disk is full", opens | writes | renames, ENOSPC, Lasting::stays},
        {"no room for a name", renames, ENOSPC},
        {"no room for a name", renames, ENOSPC, Lasting::stays},
        {"a move is interrupted", renames, EINTR},
        {"a move is forbidden", renames, EACCES, Lasting::stays},
        {"no memory for a move", renames, ENOMEM},
        {"no thread", starts_thread, EAGAIN}};
    return all;
}

class SyscallsLog : public testing::TestWithParam<torture::Scenario> {};

TEST_P(SyscallsLog, OfEachCall) {
    runWithEachFailing(GetParam(), faults(), 1);
}

torture::Scenarios scenarios() {
    return {{"opened_and_written_to", losesNothingUntold<openedAndWrittenTo>},
            {"written_to_without_a_thread", losesNothingUntold<writtenToWithoutAThread>},
            {"rotated", losesNothingUntold<rotated>},
            {"reopened", losesNothingUntold<reopened>},
            {"written_to_on_two_threads", losesNothingUntold<writtenToOnTwoThreads>}};
}

TEST(SyscallsLogFaults, EachHasCallsToMeet) {
    expectCallsToMeet(scenarios(), faults());
}

INSTANTIATE_TEST_SUITE_P(Log, SyscallsLog, testing::ValuesIn(scenarios()), torture::nameOf);

} // namespace
} // namespace syscalls
} // namespace tav_test
