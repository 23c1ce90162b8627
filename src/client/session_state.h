#ifndef TAV_CLIENT_SESSION_STATE_H
#define TAV_CLIENT_SESSION_STATE_H

#include "foundation/build_stamp.h"

#include <atomic>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// How far one connection has come, and who has asked for its end.  It goes through its steps in their order
/// and leaves out what it does not reach.  Internal.
///
/// Thread safety: all operations.
class session_state {
public:
    enum step { created = 0, connecting = 1, handshaking = 2, connected = 3, closing = 4, closed = 5 };

    session_state() = default;
    session_state(session_state const &) = delete;
    session_state & operator=(session_state const &) = delete;

    int now() const noexcept { return step_; }
    /// Whether it is closing or closed.
    bool ended() const noexcept;
    /// True for the one caller who brings it from one step to the next.
    bool advance(step from, step to) noexcept;
    /// The step that it left, for the one caller who brings a connection that was begun to its closing; for
    /// all others `created`.
    step begin_closing() noexcept;
    void close() noexcept { step_ = closed; }

    /// Nothing can be sent any more.
    void stop_sends() noexcept { stopped_ = true; }
    bool stopped() const noexcept { return stopped_; }
    /// Whether something can be sent.
    bool up() const noexcept { return step_ == connected && !stopped_; }

    /// Whether the application is closing the socket.
    void closing_actively(bool v) noexcept { actively_ = v; }
    bool closing_actively() const noexcept { return actively_; }
    /// Whether the application has asked for the end.
    void ask_end() noexcept { asked_ = true; }
    bool end_asked() const noexcept { return asked_; }

private:
    std::atomic<int> step_{created};
    std::atomic<bool> stopped_{false};
    std::atomic<bool> actively_{false};
    std::atomic<bool> asked_{false};
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
