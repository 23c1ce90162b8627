#include "client/receive_queue.h"

#include "client/thread_role.h"
#include "client/vinta_tls_client_impl_log.h"

#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using Clock = std::chrono::steady_clock;

/// The lines of what is read and of its end stand in the log under two names, the session's and the frames'.
constexpr char const * session_file = "vinta_tls_client_impl_session.cpp";
constexpr char const * frames_file = "vinta_tls_client_impl_framing.cpp";

constexpr int receiver_wait_ms = 1000;

/// What the thread is given: none for none.
std::function<void(tavBytes const &)> taking(receive_queue::handler handle) {
    if (!handle) {
        return nullptr;
    }
    // The queue drops what it has shown, so that the one who handles it may have its memory.
    return [handle = std::move(handle)](tavBytes const & frame) {
        handle(std::move(const_cast<tavBytes &>(frame)));
    };
}

/// "receiver", which is its client's for as long as it lives.
class receiver_thread final : public tavMsgQueueThread<tavBytes> {
public:
    receiver_thread(void const * client, receive_queue::handler handle)
        : tavMsgQueueThread<tavBytes>("receiver", receiver_wait_ms, taking(std::move(handle))),
          client_(client) {}
    bool on_open() override {
        thread_role::belong(client_);
        return true;
    }

private:
    void const * const client_;
};

} // namespace

receive_queue::receive_queue(std::string name, std::shared_ptr<send_account> account, handler on_frame)
    : name_(std::move(name)), account_(std::move(account)), on_frame_(std::move(on_frame)) {}

receive_queue::~receive_queue() {
    counters::sub(account_->counted().received_waiting, waiting_);
    counters::sub(account_->counted().received_waiting_bytes, waiting_bytes_);
}

void receive_queue::start(void const * client, handler handle) {
    tavSharedPtr<tavMsgQueueThread<tavBytes>> const receiver(new receiver_thread(client, std::move(handle)));
    {
        tav::detail::Guard const guard(mutex_);
        receiver_ = receiver;
    }
    receiver->start();
}

void receive_queue::put(tavBytes && frame) {
    {
        // Held while the frame is handed over, so that the thread's end finds every frame that it was given.
        tav::detail::Guard const guard(mutex_);
        if (receiver_) {
            ++waiting_;
            ++unhandled_;
            waiting_bytes_ += frame.size();
            counters::add(account_->counted().received_waiting);
            counters::add(account_->counted().received_waiting_bytes, frame.size());
            receiver_->put(std::move(frame));
            return;
        }
        if (closed_) {
            log_parts(tavLogger::DEBUG, site_in(frames_file, "tav::tls::impl::session::on_read_body_end"),
                      name_, " dropped ", frame.size(), " bytes that came during the close");
            return;
        }
    }
    on_frame_(std::move(frame));
}

void receive_queue::close() {
    tavSharedPtr<tavMsgQueueThread<tavBytes>> receiver;
    {
        tav::detail::Guard const guard(mutex_);
        closed_ = true;
        receiver.swap(receiver_);
    }
    if (!receiver) {
        return;
    }
    drop_at_ = Clock::now() + rest_limit;
    bool const own = receiver->id() == tavThread::currentId();
    end_thread(*receiver);
    if (!own) {
        handle_rest(*receiver);
    }
}

// Handles what the ended thread has left, until its time is over, and drops what is left then.  Whoever else
// may still hold the queue finds nothing to do in it.
void receive_queue::handle_rest(tavMsgQueueThread<tavBytes> & receiver) {
    tav::detail::Site const site = site_in(session_file, "tav::tls::impl::session::close");
    for (bool handled = false; !handled;) {
        try {
            receiver.flush();
            handled = true;
        } catch (...) {
            tav::detail::reportCaught(site);
        }
    }
    drop_at_ = Clock::time_point::min();
    if (dropped_ + waiting_ != 0) {
        log_parts(tavLogger::WARN, site, name_, " dropped ", dropped_ + waiting_,
                  " messages that still waited for their callbacks");
    }
}

void receive_queue::taken(tavBytes const & frame) noexcept {
    --waiting_;
    waiting_bytes_ -= frame.size();
    counters::sub(account_->counted().received_waiting);
    counters::sub(account_->counted().received_waiting_bytes, frame.size());
}

void receive_queue::deliver(tavBytes && frame) {
    if (Clock::now() < drop_at_.load()) {
        on_frame_(std::move(frame));
    } else {
        ++dropped_;
    }
}

bool receive_queue::pause() noexcept {
    paused_ = true;
    return !account_->may_resume(unhandled_) || !paused_.exchange(false);
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
