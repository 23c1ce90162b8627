#ifndef TAV_CLIENT_SEND_QUEUE_H
#define TAV_CLIENT_SEND_QUEUE_H

#include "client/send_account.h"
#include "foundation/build_stamp.h"
#include "foundation/guarded.h"
#include "tav/vinta/vinta_im_pkt.h"
#include "tav/vinta/vinta_mt_thread.h"

#include <condition_variable>
#include <functional>
#include <list>
#include <memory>
#include <thread>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

class send_info;

/// The packets of one connection that wait for its thread "sender", which takes them one after the other.
/// While it has nothing to do, another thread may have its turn.  Internal.
///
/// Thread safety: all operations, start ahead of all others.
class send_queue {
public:
    /// A packet, the send that tracks it, if one does, and the room that it takes.
    struct entry {
        tavSharedPtr<im::Packet> pkt;
        std::shared_ptr<send_info> info;
        send_account::room room;
    };
    using list = std::list<entry>;
    /// Makes what "sender" is to run: it has to `take` until there is nothing.
    using work_maker = std::function<std::function<void()>()>;

    explicit send_queue(work_maker make_work);
    send_queue(send_queue const &) = delete;
    send_queue & operator=(send_queue const &) = delete;

    /// Starts the thread.
    void start();
    /// Moves the packets behind all others and has "sender" work; leaves them and gives false once it is
    /// closed.
    bool put(list & packets);
    /// The next packet, by itself; empty if there is none for "sender".
    list take();
    /// True if nothing waits and "sender" is idle: it takes nothing, and no close ends, until the calling
    /// thread has ended its turn.
    bool begin_turn();
    /// What is `left` is for "sender", ahead of all others, which has to work also without any if it is
    /// `asked`.
    void end_turn(list & left, bool asked);
    /// Has "sender" told again of packets, if there was no memory to tell it at once.
    void retell();
    /// Ends the thread.  What it never came to is dropped, but for the tracked sends.
    void close();
    /// Takes out what was left by the close.
    list take_left();

private:
    /// Null if "sender" need not be woken.
    std::shared_ptr<tavTaskQueue> claim_sender() TAV_REQUIRES(mutex_);
    void await_turn() TAV_REQUIRES(mutex_);
    void tell(std::shared_ptr<tavTaskQueue> const & sender);

    work_maker const make_work_;
    detail::Mutex mutex_;
    std::shared_ptr<tavTaskQueue> sender_ TAV_GUARDED_BY(mutex_);
    list waiting_ TAV_GUARDED_BY(mutex_);
    list left_ TAV_GUARDED_BY(mutex_);
    /// "sender" works, or was told to, or another thread has its turn.
    bool working_ TAV_GUARDED_BY(mutex_) = false;
    /// Which one; none if it is nobody's.
    std::thread::id turn_of_ TAV_GUARDED_BY(mutex_);
    /// A turn has ended that a close waits for.
    std::condition_variable turn_ended_;
    bool closed_ TAV_GUARDED_BY(mutex_) = false;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
