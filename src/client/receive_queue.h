#ifndef TAV_CLIENT_RECEIVE_QUEUE_H
#define TAV_CLIENT_RECEIVE_QUEUE_H

#include "client/send_account.h"
#include "foundation/build_stamp.h"
#include "foundation/guarded.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_mt_thread.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// The frames of one connection that wait for its thread "receiver", which hands them to the application one
/// after the other; and whether so many wait that reading pauses.  Internal.
///
/// Thread safety: put and pause on the reading thread, taken, deliver and done on the one that handles a
/// frame, all else on any thread.
class receive_queue {
public:
    using handler = std::function<void(tavBytes)>;

    /// How long what has come is handled at the end of a connection.
    static constexpr std::chrono::milliseconds rest_limit{1000};

    /// `name` begins the log lines; `on_frame` is the application's.
    receive_queue(std::string name, std::shared_ptr<send_account> account, handler on_frame);
    /// What was not handled counts as waiting no longer.
    ~receive_queue();
    receive_queue(receive_queue const &) = delete;
    receive_queue & operator=(receive_queue const &) = delete;

    /// Starts the thread, one of this client's.  For each frame it calls `handle`, which has to call taken,
    /// deliver and done.
    void start(void const * client, handler handle);
    /// Puts a frame behind all others.  Without a thread it is delivered at once, after the close dropped.
    void put(tavBytes && frame);
    /// Ends the thread; its own end is left to itself.  The frames that wait are handled then, on the calling
    /// thread, for about a second; what is left and what comes later is dropped.
    void close();

    /// The frame waits no longer.
    void taken(tavBytes const & frame) noexcept;
    /// Gives it to the application, unless the time for that is over.
    void deliver(tavBytes && frame);
    /// The frame has been handled; true if no other is left.
    bool done() noexcept { return --unhandled_ == 0; }

    /// The number of frames that wait.
    unsigned waiting() const noexcept { return waiting_; }
    /// Whether there are frames that wait or are being handled.
    bool any_left() const noexcept { return unhandled_ != 0; }

    /// Whether so many wait or are being handled that no more is to be read.
    bool full() const noexcept { return account_->should_pause(unhandled_); }
    /// Reading pauses; false if enough was handled meanwhile: "receiver" may have seen no pause to end.
    bool pause() noexcept;
    bool paused() const noexcept { return paused_; }
    /// Whether reading could not go on even if no receipt waited.
    bool busy() const noexcept { return account_->is_busy(unhandled_); }
    /// Whether it pauses though enough has been handled.
    bool may_resume() const noexcept { return paused_ && account_->may_resume(unhandled_); }
    /// True for the one who has to see to it that reading goes on.
    bool end_pause() noexcept { return may_resume() && paused_.exchange(false); }
    /// Nobody could be told to: the pause lasts.
    void pause_on() noexcept { paused_ = true; }

private:
    void handle_rest(tavMsgQueueThread<tavBytes> & receiver);

    std::string const name_;
    std::shared_ptr<send_account> const account_;
    handler const on_frame_;
    detail::Mutex mutex_;
    tavSharedPtr<tavMsgQueueThread<tavBytes>> receiver_ TAV_GUARDED_BY(mutex_);
    /// From the beginning of the end on: frames that come later are dropped.
    bool closed_ TAV_GUARDED_BY(mutex_) = false;
    std::atomic<unsigned> waiting_{0};
    std::atomic<unsigned long long> waiting_bytes_{0};
    std::atomic<bool> paused_{false};
    std::atomic<unsigned> unhandled_{0};
    /// When the frames that still wait are dropped, by the monotonic clock.
    std::atomic<std::chrono::steady_clock::time_point> drop_at_{std::chrono::steady_clock::time_point::max()};
    unsigned dropped_ = 0;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
