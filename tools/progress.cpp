#include "tools/progress.h"

#include <unistd.h>

#include <cstdio>

namespace tav {
namespace tool {

using std::chrono::steady_clock;

Progress::Progress()
    : terminal_(::isatty(STDERR_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 0),
      next_(steady_clock::now() + std::chrono::seconds(1)) {}

Progress::~Progress() {
    if (shown_) {
        std::fputs("\r\x1b[K", stderr);
    }
}

void Progress::show(unsigned long long done, unsigned long long size) {
    // The clock is asked for now and then only.
    if (!terminal_ || ++calls_ % 64 != 0 || steady_clock::now() < next_) {
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

} // namespace tool
} // namespace tav
