#ifndef TAV_TESTS_SUPPORT_IN_CHILD_H
#define TAV_TESTS_SUPPORT_IN_CHILD_H

#include <sys/wait.h>
#include <unistd.h>

/// Whether a forked child may start threads: beside a thread sanitizer it may not.
#if defined(__SANITIZE_THREAD__)
#define TAV_TEST_CHILD_HAS_THREADS 0
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TAV_TEST_CHILD_HAS_THREADS 0
#endif
#endif
#ifndef TAV_TEST_CHILD_HAS_THREADS
#define TAV_TEST_CHILD_HAS_THREADS 1
#endif

namespace tav_test {

/// Runs `body` in a forked child, which a signal ends if it hangs.  True if it came to its end there, and was
/// true.
template <class Body>
bool inChild(Body body) {
    pid_t const child = ::fork();
    if (child == 0) {
        ::alarm(10);
        ::_exit(body() ? 0 : 1);
    }
    int status = -1;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace tav_test

#endif
