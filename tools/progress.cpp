#include "tools/progress.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace tav {
namespace tool {

using std::chrono::steady_clock;

namespace {

/// Whether somebody else writes to a terminal what goes out here: a reader behind a pipe may.
bool isPiped() {
    struct stat status {};
    return ::fstat(STDOUT_FILENO, &status) != 0 || !(S_ISREG(status.st_mode) || S_ISCHR(status.st_mode));
}

bool isDumb() {
    char const * const name = std::getenv("TERM"); // NOLINT(concurrency-mt-unsafe): nothing sets one.
    return name != nullptr && std::string_view(name) == "dumb";
}

} // namespace

Progress::Progress(Beside beside)
    : terminal_(::isatty(STDERR_FILENO) == 1 && (beside == Beside::nothing || ::isatty(STDOUT_FILENO) == 0) &&
                !isPiped() && !isDumb()),
      next_(steady_clock::now() + std::chrono::seconds(1)) {}

Progress::~Progress() {
    if (shown_) {
        std::fputs("\r\x1b[K", stderr);
    }
}

void Progress::show(unsigned long long done, unsigned long long size) {
    // The clock is asked for now and then only.
    constexpr unsigned long long often = 64 * 1024;
    if (!terminal_ || (++calls_ % 64 != 0 && done - told_ < often)) {
        return;
    }
    told_ = done;
    if (steady_clock::now() < next_) {
        return;
    }
    next_ = steady_clock::now() + std::chrono::milliseconds(200);
    shown_ = true;
    double const megabytes = static_cast<double>(done) / 1e6;
    if (size == 0) {
        std::fprintf(stderr, "\r\x1b[K%.1f MB", megabytes);
    } else {
        double const share = 100.0 * static_cast<double>(done) / static_cast<double>(size);
        std::fprintf(stderr, "\r\x1b[K%.1f MB, %.0f %%", megabytes, share);
    }
    std::fflush(stderr);
}

StatusLine::StatusLine() : terminal_(::isatty(STDERR_FILENO) == 1 && !isDumb()), next_(steady_clock::now()) {}

StatusLine::~StatusLine() {
    if (shown_) {
        std::fputs("\r\x1b[K", stderr);
    }
}

bool StatusLine::due() const {
    return terminal_ && steady_clock::now() >= next_;
}

void StatusLine::show(std::string const & text) {
    if (due()) {
        next_ = steady_clock::now() + std::chrono::milliseconds(200);
        shown_ = true;
        std::fprintf(stderr, "\r\x1b[K%s", text.c_str());
        std::fflush(stderr);
    }
}

} // namespace tool
} // namespace tav
