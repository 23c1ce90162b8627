#ifndef TAV_CLIENT_FRAME_OUTPUT_H
#define TAV_CLIENT_FRAME_OUTPUT_H

#include "client/connection_parts.h"
#include "client/frame_writer.h"
#include "client/send_account.h"
#include "client/send_info.h"
#include "client/send_queue.h"
#include "foundation/build_stamp.h"
#include "foundation/report.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_im_pkt.h"
#include "tav/vinta/vinta_locks.h"
#include "tav/vinta/vinta_tls_client_options.h"
#include "tav/vinta/vinta_tls_failure.h"

#include <cstddef>
#include <memory>
#include <system_error>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// What goes out on one connection: packets, which "sender" encodes, and their frames, which the I/O thread
/// writes.  A small packet that nothing is ahead of is encoded by the thread that sends it, unless the log
/// shows on which thread that was.  Internal.
///
/// What is under way keeps the owner of the connection.
/// Thread safety: drop_unsent on the I/O thread, all else on any.
class frame_output {
public:
    explicit frame_output(connection_parts const & of);
    frame_output(frame_output const &) = delete;
    frame_output & operator=(frame_output const &) = delete;

    /// Starts "sender".
    void start() { outgoing_.start(); }
    /// Ends "sender".
    void close() { outgoing_.close(); }
    /// Takes out the tracked sends that "sender" never came to.
    send_queue::list take_left() { return outgoing_.take_left(); }

    /// As session has them.
    std::shared_ptr<send_info> send_pkt(tavSharedPtr<im::Packet> pkt, send_option const & option);
    bool send_receipt(tavSharedPtr<im::Packet> pkt);
    bool send_raw(unsigned char const * data, unsigned size);

    /// Has what waits for another thread told again, if there was no memory to tell it at once.
    void retell();
    /// Drops what waits to be written: the connection has ended.
    void drop_unsent();
    /// Tells the log, at DEBUG, of what waits to be written.
    void log_waiting() const;

private:
    using owner_ptr = tavSharedPtr<connection_owner>;
    using info_ptr = std::shared_ptr<send_info>;

    /// What became of a frame: `untold` is one that was taken, but that the I/O thread knows nothing of yet.
    enum class outcome : unsigned char { posted, untold, refused, too_large };
    /// Who says so if there was no memory to tell the I/O thread: the one who found that, or another, for the
    /// line names its thread.
    enum class report : unsigned char { here, elsewhere };

    outcome post_bytes(tavBytes && frame, send_account::room && room, report by);
    outcome tell_writer(report by);
    info_ptr refuse(failure why, detail::Site site) const;

    // On the I/O thread.
    void on_posted(owner_ptr owner);
    void do_write(owner_ptr owner);
    void on_write_end(owner_ptr owner, std::error_code ec, std::size_t length);
    void on_sent(std::size_t length, std::size_t remaining);
    void flush_output() noexcept;

    // On "sender", or on a thread that has its turn.
    outcome place(send_queue::entry & next, report by);

    // On "sender".
    void drain();
    void send_next(send_queue::entry & next);
    void encode(send_queue::entry & next);

    // On the thread that sends.
    bool place_here(send_queue::list & one);

    connection_parts const of_;
    send_queue outgoing_;
    /// Any thread posts to it; the rest is on the I/O thread, as the flag.
    frame_writer writer_;
    /// Whether a write is outstanding.
    bool writing_ = false;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
