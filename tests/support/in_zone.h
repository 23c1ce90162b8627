#ifndef TAV_TESTS_SUPPORT_IN_ZONE_H
#define TAV_TESTS_SUPPORT_IN_ZONE_H

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace tav_test {

/// Runs `make` in a process of its own that keeps the local time of `zone`, a value for TZ such as "CST-8",
/// and returns its text.  The zone of a process is found once, so each zone needs its own process.
template <class Make>
std::string inZone(char const * zone, Make && make) {
    int ends[2];
    if (pipe(ends) != 0) {
        return "no pipe";
    }
    std::fflush(nullptr);
    pid_t const child = fork();
    if (child < 0) {
        return "no child";
    }
    if (child == 0) {
        close(ends[0]);
        setenv("TZ", zone, 1);
        tzset();
        std::string const text = make();
        bool const whole = write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
        _exit(whole ? 0 : 1);
    }
    close(ends[1]);
    std::string text;
    char block[256];
    for (ssize_t n = 0; (n = read(ends[0], block, sizeof block)) > 0;) {
        text.append(block, static_cast<std::size_t>(n));
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? text : "the child failed after: " + text;
}

} // namespace tav_test

#endif
