#ifndef TAV_CLIENT_FRAME_INPUT_H
#define TAV_CLIENT_FRAME_INPUT_H

#include "client/connection_parts.h"
#include "client/frame_reader.h"
#include "client/receive_queue.h"
#include "foundation/build_stamp.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_locks.h"

#include <cstddef>
#include <system_error>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// What comes on one connection: reads it, cuts it into frames, and has "receiver" hand them to the
/// application.  Reading pauses while too much waits there.  Internal.
///
/// What is under way keeps the owner of the connection.
/// Thread safety: begin and left on the I/O thread, all else on any.
class frame_input {
public:
    using handler = receive_queue::handler;

    frame_input(connection_parts const & of, handler on_frame);
    frame_input(frame_input const &) = delete;
    frame_input & operator=(frame_input const &) = delete;

    /// Starts "receiver".
    void start();
    /// Begins to read: the connection is up.
    void begin() { do_read(of_.hold()); }
    /// As receive_queue has it.
    void close() { received_.close(); }

    /// Whether something may still come, or is still to be handled: behind a pause there may be more of what
    /// came ahead of it.
    bool left() const { return reading_ || resting_ || received_.any_left(); }
    bool paused() const { return received_.paused(); }
    /// Whether reading could not go on even if no receipt waited.
    bool busy() const { return received_.busy(); }
    /// Goes on with reading if enough has been handled since it paused.
    void end_pause() noexcept;

private:
    using owner_ptr = tavSharedPtr<connection_owner>;

    // On the I/O thread.
    void do_read(owner_ptr owner);
    void on_read_end(owner_ptr owner, std::error_code ec, std::size_t length);
    bool take_input();
    void read_on(owner_ptr owner);
    void resume_reading(owner_ptr owner);
    void on_read_header_end(frame_reader::part part);
    void on_read_body_end(tavBytes && body);
    void on_received(std::size_t length);

    // On "receiver", or on the thread that closes the connection.
    void handle_frame(tavBytes body);
    void frame_handled() noexcept;

    connection_parts const of_;
    receive_queue received_;
    /// On the I/O thread, as the flags.
    frame_reader reader_;
    /// Whether a read is outstanding.
    bool reading_ = false;
    /// Whether reading pauses, up to the moment at which it goes on: the word of that may be on its way.
    bool resting_ = false;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
