#ifndef TAV_CLIENT_FRAME_WRITER_H
#define TAV_CLIENT_FRAME_WRITER_H

#include "client/send_account.h"
#include "foundation/build_stamp.h"
#include "foundation/guarded.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_locks.h"

#include <cstddef>
#include <list>
#include <vector>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// The frames of one connection on their way to the socket.
///
/// Any thread posts a frame, and tells the writing thread if it is asked to; that one takes what was posted
/// and writes one piece after the other.  Frames go in the order of posting, and together as long as they fit
/// into one TLS record, which is sent whole or not at all.
/// Thread safety: post, untold, retell and sizes from any thread, the others on the writing thread.
class frame_writer {
public:
    /// The most that goes in one piece, if it is not a single frame.
    static constexpr std::size_t record_size = 16384;

    /// Bytes to write.
    struct piece {
        unsigned char const * data;
        std::size_t size;
    };
    /// The frame that was written first, and how many wait with it.
    struct written {
        std::size_t size;
        std::size_t waiting;
    };

    /// Throws std::bad_alloc.
    frame_writer();
    frame_writer(frame_writer const &) = delete;
    frame_writer & operator=(frame_writer const &) = delete;

    /// Puts a frame, which is not empty, behind all others, with the room that it takes until it was written.
    /// True if the caller has to tell the writing thread, which then calls `accept`.  Throws std::bad_alloc,
    /// and neither was taken then.
    bool post(tavBytes && frame, send_account::room && room = send_account::room());
    /// The caller could not tell the writing thread.
    void untold() noexcept;
    /// True if there are posted frames of which the writing thread was not told; the caller has to do so.
    bool retell() noexcept;

    /// Takes what was posted.  True if nothing was being written and there is something: the caller begins.
    bool accept() noexcept;
    /// The next piece, until it is through `pop`ped valid; there must be a frame.
    piece next() noexcept;
    /// The number of frames of the last piece that were not popped.
    std::size_t pending() const noexcept { return pending_; }
    /// What was written first.
    written first() const noexcept;
    /// Takes the first frame out; true if there are more.
    bool pop() noexcept;
    /// Drops all frames, also those posted, and gives back their room; nothing may be being written.
    void clear() noexcept;
    /// Whether frames wait.
    bool empty() const noexcept;

    /// The sizes of the frames that wait, without those posted.
    std::vector<unsigned> sizes() const;

private:
    struct entry {
        tavBytes frame;
        send_account::room room;
    };

    detail::Guarding<tavMutex> mutex_;
    /// Frames that wait for the socket.
    std::list<entry> queue_ TAV_GUARDED_BY(mutex_);
    /// Frames on their way to the writing thread.
    std::list<entry> posted_ TAV_GUARDED_BY(mutex_);
    bool told_ TAV_GUARDED_BY(mutex_) = false;
    tavBytes record_;
    std::size_t pending_ = 0;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
