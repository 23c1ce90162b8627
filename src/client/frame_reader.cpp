#include "client/frame_reader.h"

#include <algorithm>
#include <cstring>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

frame_reader::frame_reader() : input_(new unsigned char[input_size]) {}

// The rest of a body goes straight to its place as long as it fills whole records; a shorter one comes with
// what follows it.
frame_reader::place frame_reader::room() {
    if (missing() > input_size) {
        make_room(input_size);
        direct_ = true;
        return place{body_.data() + body_.size(), body_.maxSize() - body_.size()};
    }
    direct_ = false;
    return place{input_.get() + end_, input_size - end_};
}

void frame_reader::filled(std::size_t size) noexcept {
    if (direct_) {
        body_.size(body_.size() + static_cast<unsigned>(size));
    } else {
        end_ += size;
    }
}

frame_reader::part frame_reader::next() {
    if (awaited_ == 0) {
        if (end_ - begin_ < head_size) {
            compact();
            return part::none;
        }
        read_head();
        if (length_ > max_body_size) {
            return part::refused;
        }
        awaited_ = length_;
        return part::head;
    }
    if (missing() != 0 && begin_ != end_) {
        move_to_body();
    }
    if (missing() != 0) {
        compact();
        return part::none;
    }
    return part::body;
}

void frame_reader::read_head() noexcept {
    unsigned char const * const head = input_.get() + begin_;
    begin_ += head_size;
    unsigned const high = static_cast<unsigned>(head[0]) << 8 | head[1];
    unsigned const low = static_cast<unsigned>(head[2]) << 8 | head[3];
    length_ = high << 16 | low;
}

void frame_reader::move_to_body() {
    std::size_t const more = std::min(end_ - begin_, missing());
    make_room(more);
    std::memcpy(body_.data() + body_.size(), input_.get() + begin_, more);
    body_.size(body_.size() + static_cast<unsigned>(more));
    begin_ += more;
}

// A body whose bytes are all there gets just its size.  The sizes on the way there are halves of the whole
// one, halved again, so that what is left behind at the end is no more than half a body.
void frame_reader::make_room(std::size_t more) {
    std::size_t const needed = body_.size() + more;
    if (needed <= body_.maxSize()) {
        return;
    }
    std::size_t size = awaited_;
    while (size / 2 >= needed) {
        size = (size + 1) / 2;
    }
    tavBytes larger(static_cast<unsigned>(size));
    larger.writeBytes(body_);
    body_.swap(larger);
}

tavBytes frame_reader::take_body() noexcept {
    awaited_ = 0;
    tavBytes body;
    body.swap(body_);
    return body;
}

void frame_reader::compact() noexcept {
    std::size_t const left = end_ - begin_;
    if (left > 0 && begin_ > 0) {
        std::memmove(input_.get(), input_.get() + begin_, left);
    }
    begin_ = 0;
    end_ = left;
}

void frame_reader::drop() noexcept {
    begin_ = 0;
    end_ = 0;
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
