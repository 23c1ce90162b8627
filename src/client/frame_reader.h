#ifndef TAV_CLIENT_FRAME_READER_H
#define TAV_CLIENT_FRAME_READER_H

#include "foundation/build_stamp.h"
#include "tav/vinta/vinta_basetypes_bytes.h"

#include <cstddef>
#include <memory>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// Cuts a stream of bytes into frames.  A frame is four bytes, the big-endian length of its body, and the
/// body.
///
/// The bytes are written into `room` in pieces of any size; after each, `next` is asked until it says `none`.
/// What a head announces costs nothing: a body's memory grows with the bytes that have come, by halves of the
/// announced size.
/// Thread safety: none.
class frame_reader {
public:
    static constexpr unsigned head_size = 4;
    /// The largest body that is accepted.
    static constexpr unsigned max_body_size = 0xffffff;
    /// Holds what one TLS record can carry.
    static constexpr std::size_t input_size = 16384;

    enum class part {
        none,   ///< More bytes are needed.
        head,   ///< A head: `length` is the body's length, 0 for a frame without one.
        body,   ///< A whole body, for `take_body`.
        refused ///< A head whose length is above the limit.  Nothing can be read behind it.
    };
    /// Where bytes may be written.
    struct place {
        unsigned char * data;
        std::size_t size;
    };

    frame_reader();
    frame_reader(frame_reader const &) = delete;
    frame_reader & operator=(frame_reader const &) = delete;

    /// Where the next bytes belong, when `next` has said `none`; at least one.  Throws std::bad_alloc, and
    /// has changed nothing then.
    place room();
    /// Takes over the first `size` bytes of the last room.
    void filled(std::size_t size) noexcept;
    /// The next part of what has come.  Throws std::bad_alloc.
    part next();
    /// The length that the last head gave.
    unsigned length() const noexcept { return length_; }
    /// Whether a body is awaited, or a head.
    bool in_body() const noexcept { return awaited_ != 0; }
    /// The body that `next` has told of.
    tavBytes take_body() noexcept;
    /// Drops the bytes that are no part yet.
    void drop() noexcept;

private:
    std::size_t missing() const noexcept { return awaited_ - body_.size(); }
    void read_head() noexcept;
    void move_to_body();
    void make_room(std::size_t more);
    void compact() noexcept;

    /// Bytes as they came, of which [begin_, end_) are not used yet.
    std::unique_ptr<unsigned char[]> const input_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    unsigned length_ = 0;
    /// The length of the body under way, 0 while a head is awaited.
    unsigned awaited_ = 0;
    tavBytes body_;
    /// Whether the last room was the body's own.
    bool direct_ = false;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
