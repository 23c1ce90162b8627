#ifndef TAV_TESTS_SUPPORT_LOG_CAPTURE_H
#define TAV_TESTS_SUPPORT_LOG_CAPTURE_H

#include "tav/vinta/vinta_log.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace tav_test {

/// Collects every log record while it lives, for assertions on texts and their order.  One at a time; threads
/// that log must have ended, or must log nothing more, when it goes.
class LogCapture {
public:
    struct Record {
        int level;
        std::string text;
    };

    /// `levels` are the units within a level text, such as "default(TRACE)" or "TLS.CLT(VERBOSE)".
    explicit LogCapture(char const * levels = "clear(TRACE)") {
        state().clear();
        std::string const text = "(" + std::string(levels) + ")";
        tavLogger::setup(tav_istr(text), &LogCapture::take, false, tavLogger::NONE);
    }
    ~LogCapture() {
        tavLogger::flush();
        tavLogger::setup(tav_istr("(clear(INFO))"), nullptr, false, tavLogger::WARN);
        at(std::string(), nullptr);
    }
    LogCapture(LogCapture const &) = delete;
    LogCapture & operator=(LogCapture const &) = delete;

    std::vector<Record> records() const {
        std::lock_guard<std::mutex> guard(state().mutex);
        return state().records;
    }
    void clear() { state().clear(); }

    /// Has `f` called for each record whose line holds `part`, on the thread that logs it, from here on.
    void at(std::string part, std::function<void()> f) {
        std::lock_guard<std::mutex> guard(state().mutex);
        state().watched = std::move(part);
        state().hook = std::move(f);
    }

    /// The number of records whose line holds `part`.
    unsigned count(std::string const & part) const {
        std::lock_guard<std::mutex> guard(state().mutex);
        return state().count(part);
    }
    bool contains(std::string const & part) const { return count(part) > 0; }

    /// The first record whose line holds `part`; empty text and level -1 if there is none.
    Record find(std::string const & part) const {
        for (Record const & record : records()) {
            if (record.text.find(part) != std::string::npos) {
                return record;
            }
        }
        return Record{-1, std::string()};
    }

    /// Waits until `times` records hold `part`; false when that has not come in `ms` milliseconds.
    bool waitFor(std::string const & part, unsigned times = 1, int ms = 30000) const {
        std::unique_lock<std::mutex> guard(state().mutex);
        return state().changed.wait_for(guard, std::chrono::milliseconds(ms),
                                        [&] { return state().count(part) >= times; });
    }

    /// True if records holding the parts stand in this order (others may stand between).
    bool inOrder(std::vector<std::string> const & parts) const {
        std::size_t next = 0;
        for (Record const & record : records()) {
            if (next < parts.size() && record.text.find(parts[next]) != std::string::npos) {
                ++next;
            }
        }
        return next == parts.size();
    }

private:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<Record> records;
        std::string watched;
        std::function<void()> hook;
        void clear() {
            std::lock_guard<std::mutex> guard(mutex);
            records.clear();
        }
        unsigned count(std::string const & part) const {
            unsigned n = 0;
            for (Record const & record : records) {
                n += record.text.find(part) != std::string::npos ? 1u : 0u;
            }
            return n;
        }
    };
    static State & state() {
        static State * const the = new State;
        return *the;
    }
    static void take(int level, char const * text) {
        std::function<void()> hook;
        {
            std::lock_guard<std::mutex> guard(state().mutex);
            state().records.push_back(Record{level, text});
            state().changed.notify_all();
            if (state().hook && state().records.back().text.find(state().watched) != std::string::npos) {
                hook = state().hook;
            }
        }
        if (hook) {
            hook();
        }
    }
};

} // namespace tav_test

#endif
