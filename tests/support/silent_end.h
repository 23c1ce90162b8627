#ifndef TAV_TESTS_SUPPORT_SILENT_END_H
#define TAV_TESTS_SUPPORT_SILENT_END_H

#include "support/client_rig.h"
#include "support/log_capture.h"

#include <atomic>
#include <cerrno>
#include <string>

/// What is told of a connection that the system has ended, as its peer was gone without a word.
namespace tav_test {

/// What an application hears of the end of a connection.
struct HeardEnd {
    std::atomic<int> code{0};
    std::atomic<int> name{-1};
    Events texts;

    void listen(tls::connect_option & option) {
        option.set_on_error([this](unsigned long long, unsigned short, int error, char const * text) {
            code = error;
            name = tls::last_failure().value();
            texts.add(text);
        });
    }
    bool isOfASilentEnd() const {
        return texts.wait(1) && texts.all().front() == "Connection timed out" && code == ETIMEDOUT &&
               name == static_cast<int>(tls::failure::connection_lost);
    }
};

/// Whether a line at ERROR tells of the end, whichever of a read and a write has met it.
inline bool silentEndIsLogged(LogCapture const & log) {
    log.waitFor("failed: Connection timed out");
    for (char const * line :
         {"<n> Write failed: Connection timed out", "<n> Read header failed: Connection timed out"}) {
        if (log.find(line).level == tavLogger::ERROR) {
            return true;
        }
    }
    return false;
}

inline bool brokeOnce(tls::client & client) {
    return eventually([&client] { return client.statistics().breaks_by_error == 1; });
}

} // namespace tav_test

#endif
