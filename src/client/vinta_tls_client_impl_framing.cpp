#include "client/vinta_tls_client_impl_session.h"

#include "client/vinta_tls_client_impl_log.h"
#include "tav/vinta/vinta_basetypes_failures.h"

#include <asio/buffer.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using tav::detail::here;
using Guard = std::lock_guard<tavMutex const>;

constexpr unsigned long long no_sno = ~0ull;
constexpr unsigned head_size = 4;
/// Queued frames go out together as long as they fit into one TLS record, which is sent whole or not at all.
constexpr std::size_t record_size = 16384;
/// Room for what a packet adds to its body.
constexpr unsigned packet_overhead = 128;

unsigned read_size(unsigned char const * head) {
    unsigned const high = static_cast<unsigned>(head[0]) << 8 | head[1];
    unsigned const low = static_cast<unsigned>(head[2]) << 8 | head[3];
    return high << 16 | low;
}

void write_size(unsigned char * head, unsigned size) {
    head[0] = static_cast<unsigned char>(size >> 24);
    head[1] = static_cast<unsigned char>(size >> 16);
    head[2] = static_cast<unsigned char>(size >> 8);
    head[3] = static_cast<unsigned char>(size);
}

} // namespace

// One read is outstanding while the session is connected.  It takes whatever has come, up to a whole record;
// only the rest of a body that is longer than that is read to its exact end, straight into its place.
void session::do_read(self_ptr self) {
    auto on_end = [self = std::move(self)](std::error_code ec, std::size_t length) mutable {
        session & s = *self;
        s.on_read_end(std::move(self), ec, length);
    };
    std::size_t const missing = body_size_ - body_.size();
    if (missing > input_size) {
        unsigned char * const rest = body_.data() + body_.size();
        asio::async_read(socket_.stream(), asio::buffer(rest, missing), std::move(on_end));
    } else {
        socket_.stream().async_read_some(asio::buffer(input_.get() + input_end_, input_size - input_end_),
                                         std::move(on_end));
    }
}

void session::on_read_end(self_ptr self, std::error_code ec, std::size_t length) {
    if (ec) {
        log_parts(tavLogger::ERROR, here("tav::tls::impl::session::on_read_end"), name_,
                  body_size_ == 0 ? " Read header failed: " : " Read body failed: ", ec.message());
        on_error(ec);
        return;
    }
    if (body_size_ - body_.size() > input_size) {
        body_.size(body_.size() + static_cast<unsigned>(length));
        on_read_body_end(body_.size());
    } else {
        input_end_ += length;
    }
    take_input();
    do_read(std::move(self));
}

// Cuts the frames out of what has come.  A session that ends on the way takes no more: its next read fails.
void session::take_input() {
    while (!ended()) {
        std::size_t const present = input_end_ - input_begin_;
        if (body_size_ == 0) {
            if (present < head_size) {
                break;
            }
            input_begin_ += head_size;
            on_read_header_end(head_size);
        } else if (present == 0) {
            break;
        } else {
            unsigned const had = body_.size();
            unsigned const more = static_cast<unsigned>(std::min<std::size_t>(present, body_size_ - had));
            std::memcpy(body_.data() + had, input_.get() + input_begin_, more);
            body_.size(had + more);
            input_begin_ += more;
            if (body_.size() == body_size_) {
                on_read_body_end(body_.size());
            }
        }
    }
    std::size_t const left = input_end_ - input_begin_;
    if (left > 0 && input_begin_ > 0) {
        std::memmove(input_.get(), input_.get() + input_begin_, left);
    }
    input_begin_ = 0;
    input_end_ = left;
}

void session::on_read_header_end(std::size_t length) {
    tav::detail::Site const site = here("tav::tls::impl::session::on_read_header_end");
    on_received(length);
    if (length != head_size) {
        tav::detail::raiseAssertion(site, "length == head_size_");
    }
    unsigned const size = read_size(input_.get() + input_begin_ - head_size);
    if (size > max_body_size) {
        tav::detail::raiseAssertion(site, "length <= 0xffffff");
    }
    do_read_body(size);
}

void session::do_read_body(unsigned length) {
    if (length == 0) {
        log_parts(tavLogger::DEBUG, here("tav::tls::impl::session::do_read_body"), name_, " empty body");
        return;
    }
    tavBytes body(length);
    body_.swap(body);
    body_size_ = length;
}

void session::on_read_body_end(std::size_t length) {
    on_received(length);
    if (length != body_size_) {
        tav::detail::raiseAssertion(here("tav::tls::impl::session::on_read_body_end"),
                                    "length == body_size_");
    }
    body_size_ = 0;
    tavBytes body;
    body.swap(body_);
    {
        // Held while the body is handed over, so that the thread's end finds every body that it was given.
        std::lock_guard<std::mutex> const guard(threads_mutex_);
        if (receiver_) {
            ++received_;
            receiver_->put(std::move(body));
            return;
        }
    }
    on_recv_(body);
}

void session::on_received(std::size_t length) {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::on_received"), name_, " received ", length,
              " bytes, queued ", received_.load(), " msgs.");
    last_recv_ms_ = clock_();
}

bool session::send_raw(unsigned char const * data, unsigned size) {
    tavBytes frame(size + head_size);
    frame.writeBigEndian(size);
    if (size != 0) {
        frame.writeBytes(tav_istr(data, size));
    }
    return post_bytes(std::move(frame));
}

// The I/O thread is told only when it has taken all that was posted before.
bool session::post_bytes(tavBytes && frame) {
    if (!connected()) {
        return false;
    }
    bool first = false;
    {
        Guard const guard(write_msgs_.mutex);
        first = write_msgs_.posted.empty();
        write_msgs_.posted.push_back(std::move(frame));
    }
    return !first || context_->post([self = self_ptr(this)]() mutable {
        session & s = *self;
        s.on_posted(std::move(self));
    });
}

void session::on_posted(self_ptr self) {
    bool busy = false;
    {
        Guard const guard(write_msgs_.mutex);
        busy = !write_msgs_.queue.empty();
        if (!busy) {
            write_msgs_.queue.swap(write_msgs_.posted);
        } else {
            for (tavBytes & frame : write_msgs_.posted) {
                write_msgs_.queue.push_back(std::move(frame));
            }
            write_msgs_.posted.clear();
        }
    }
    if (!busy && state_ == state_connected) {
        do_write(std::move(self));
    }
}

// A frame is written from its place in the queue, unless it can share a record with those behind it.
void session::do_write(self_ptr self) {
    asio::const_buffer bytes;
    {
        Guard const guard(write_msgs_.mutex);
        std::deque<tavBytes> const & queue = write_msgs_.queue;
        std::size_t total = queue.front().size();
        writing_ = 1;
        while (writing_ < queue.size() && total + queue[writing_].size() <= record_size) {
            total += queue[writing_].size();
            ++writing_;
        }
        if (writing_ == 1) {
            bytes = asio::buffer(queue.front().data(), total);
        } else {
            write_buffer_.size(0);
            write_buffer_.resize(static_cast<unsigned>(record_size));
            for (std::size_t i = 0; i < writing_; ++i) {
                write_buffer_.writeBytes(queue[i]);
            }
            bytes = asio::buffer(write_buffer_.data(), total);
        }
    }
    asio::async_write(socket_.stream(), bytes,
                      [self = std::move(self)](std::error_code ec, std::size_t length) mutable {
                          session & s = *self;
                          s.on_write_end(std::move(self), ec, length);
                      });
}

void session::on_write_end(self_ptr self, std::error_code ec, std::size_t length) {
    bool more = false;
    for (; writing_ > 0; --writing_) {
        std::size_t size = 0;
        std::size_t remaining = 0;
        {
            Guard const guard(write_msgs_.mutex);
            size = write_msgs_.queue.front().size();
            remaining = write_msgs_.queue.size();
        }
        if (length < size) {
            break;
        }
        length -= size;
        on_sent(size, remaining);
        tavBytes sent;
        Guard const guard(write_msgs_.mutex);
        sent.swap(write_msgs_.queue.front());
        write_msgs_.queue.pop_front();
        more = !write_msgs_.queue.empty();
    }
    if (ec) {
        log_parts(tavLogger::ERROR, here("tav::tls::impl::session::on_write_end"), name_,
                  " Write failed: ", ec.message());
        on_error(ec);
        return;
    }
    if (writing_ != 0) {
        tav::detail::raiseAssertion(here("tav::tls::impl::session::on_write_end"),
                                    "length == write_msgs_.front().size()");
    }
    if (more && state_ == state_connected) {
        do_write(std::move(self));
    }
}

void session::on_sent(std::size_t length, std::size_t remaining) {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::on_sent"), name_, " sent ", length,
              " bytes, remaining ", remaining, " msgs.");
    last_send_ms_ = clock_();
}

std::shared_ptr<send_info> session::send_pkt(tavSharedPtr<im::Packet> pkt, send_option const & option) {
    tav::detail::Site const site = here("tav::tls::impl::session::send_pkt");
    if (connected()) {
        info_ptr info;
        if (!option.empty()) {
            info = std::make_shared<send_info>(name_, self_ptr(this), pkt->sequence(), pkt->code(), option,
                                               clock_());
        }
        std::list<outgoing> one;
        one.push_back(outgoing{std::move(pkt), info});
        std::shared_ptr<tavTaskQueue> idle;
        {
            std::lock_guard<std::mutex> const guard(outgoing_mutex_);
            if (!sender_closed_) {
                outgoing_.splice(outgoing_.end(), one);
                idle = claim_sender();
            }
        }
        if (one.empty()) {
            put_drain(idle);
            return info;
        }
    }
    log_parts(tavLogger::ERROR, site, name_, " not connected");
    return info_ptr();
}

// Called with outgoing_mutex_ held.  Null if "sender" need not be woken.
std::shared_ptr<tavTaskQueue> session::claim_sender() {
    if (draining_ || outgoing_.empty() || sender_closed_) {
        return nullptr;
    }
    draining_ = true;
    return sender_;
}

// Called without outgoing_mutex_, which is the first that the woken thread takes.  Packets that "sender"
// could not be told of wait for the next send or tick.
void session::put_drain(std::shared_ptr<tavTaskQueue> const & sender) {
    if (!sender) {
        return;
    }
    try {
        sender->put([self = self_ptr(this)] { self->drain_outgoing(); });
    } catch (...) {
        tav::detail::reportCaught(here("tav::tls::impl::session::put_drain"));
        std::lock_guard<std::mutex> const guard(outgoing_mutex_);
        draining_ = false;
    }
}

// Sends what is there, one packet after the other; a session that is being closed leaves the rest to
// close_sender.
void session::drain_outgoing() {
    own_thread const mark(this);
    for (;;) {
        std::list<outgoing> one;
        {
            std::lock_guard<std::mutex> const guard(outgoing_mutex_);
            if (sender_closed_ || outgoing_.empty()) {
                draining_ = false;
                return;
            }
            one.splice(one.end(), outgoing_, outgoing_.begin());
        }
        send_outgoing(one.front());
    }
}

// What fails here ends by its limit as if it had gone out, unless it did not even come to be tracked.
void session::send_outgoing(outgoing const & next) {
    tav::detail::Site const site = here("tav::tls::impl::session::send_outgoing");
    try {
        do_send_pkt(*next.pkt, next.info);
        return;
    } catch (...) {
        tav::detail::reportCaught(site);
    }
    if (next.info && !sends_.contains(*next.info)) {
        cancel_each_send(next.info);
    }
}

void session::close_sender() {
    std::shared_ptr<tavTaskQueue> sender;
    {
        std::lock_guard<std::mutex> const guard(outgoing_mutex_);
        if (!sender_closed_) {
            sender = sender_;
        }
        sender_closed_ = true;
    }
    if (!sender) {
        return;
    }
    sender->close();
    std::shared_ptr<tavTaskQueue> ended_sender;
    std::list<outgoing> dropped;
    {
        std::lock_guard<std::mutex> const guard(outgoing_mutex_);
        ended_sender.swap(sender_);
        dropped.swap(outgoing_);
    }
    dropped.remove_if([](outgoing const & each) { return !each.info; });
    std::lock_guard<std::mutex> const guard(outgoing_mutex_);
    dropped_.splice(dropped_.end(), dropped);
}

void session::do_send_pkt(im::Packet & pkt, info_ptr const & info) {
    tav::detail::Site const site = here("tav::tls::impl::session::do_send_pkt");
    unsigned long long const sno = pkt.sequence();
    if (info && !info->claimed()) {
        track(info);
    }
    tavBytes frame(pkt.body().size() + packet_overhead);
    frame.size(head_size);
    pkt.encode(frame);
    unsigned const size = frame.size() - head_size;
    write_size(frame.data(), size);
    if (tavLogger::isLoggable(log_tag, tavLogger::VERBOSE)) {
        tav::detail::log(log_tag, tavLogger::VERBOSE, site, [&](std::ostream & out) {
            out << name_ << " send buf /" << HexDump(tav_istr(frame.data() + head_size, size));
        });
    }
    if (post_bytes(std::move(frame))) {
        return;
    }
    log_parts(tavLogger::ERROR, site, name_, " send buf fail, maybe not connected, remove #", sno);
    if (info) {
        sends_.remove(*info);
        cancel_each_send(info);
    }
}

// A second send under the same number takes the first one's place.
void session::track(info_ptr const & info) {
    std::size_t const total = sends_.add(info);
    log_parts(tavLogger::DEBUG, here("tav::tls::impl::session::do_send_pkt"), name_, " add sending #",
              info->sno(), ", total = ", total);
    if (info->claimed()) {
        // Cancelled meanwhile by someone who could not find it here yet.
        removeSending(info->sno(), info.get());
    }
}

std::shared_ptr<send_info> session::find_sending(unsigned long long sno, unsigned short ack) const {
    return sends_.find(sno, ack);
}

void session::unclaim(std::shared_ptr<send_info> const & info) {
    info->unclaim();
    if (!sends_.contains(*info)) {
        cancel_each_send(info);
    }
}

bool session::removeSending(unsigned long long sno) {
    bool const removed = sno != no_sno && sends_.remove(sno);
    log_removed(removed, sno);
    return removed;
}

void session::forget(send_info const & info) {
    removeSending(info.sno(), &info);
}

bool session::removeSending(unsigned long long sno, send_info const * info) {
    bool const removed = info->sno() == sno && sends_.remove(*info);
    log_removed(removed, sno);
    return removed;
}

void session::log_removed(bool removed, unsigned long long sno) const {
    if (removed) {
        log_parts(tavLogger::INFO, here("tav::tls::impl::session::removeSending"), name_,
                  " removed waiting msg #", sno);
    }
}

std::size_t session::sending() const {
    return sends_.size();
}

void session::cancel_all() {
    tav::detail::Site const site = here("tav::tls::impl::session::cancel_all");
    log_parts(tavLogger::INFO, site, name_, " cancel session");
    closing_ = true;
    send_table::content const taken = sends_.take_all();
    std::list<outgoing> dropped;
    {
        std::lock_guard<std::mutex> const guard(outgoing_mutex_);
        dropped.swap(dropped_);
    }
    if (!taken.empty() || !dropped.empty()) {
        log_parts(tavLogger::INFO, site, name_, " cancel all sending...");
    }
    for (auto const & each : taken.by_number) {
        cancel_each_send(each.second);
    }
    for (auto const & each : taken.replaced) {
        cancel_each_send(each.second);
    }
    for (outgoing const & each : dropped) {
        cancel_each_send(each.info);
    }
    if (!tavLogger::isLoggable(log_tag, tavLogger::DEBUG)) {
        return;
    }
    std::vector<unsigned> sizes;
    {
        Guard const guard(write_msgs_.mutex);
        for (tavBytes const & frame : write_msgs_.queue) {
            sizes.push_back(frame.size());
        }
    }
    for (unsigned const size : sizes) {
        log_parts(tavLogger::DEBUG, site, name_, " remove message size ", size);
    }
}

// Ends a send as cancelled, unless someone else is ending it.  What the application's function throws must
// not keep the sends behind it from their end.
void session::cancel_each_send(info_ptr const & info) {
    tav::detail::Site const site = here("tav::tls::impl::session::cancel_each_send");
    if (!info->claim()) {
        return;
    }
    log_parts(tavLogger::DEBUG, site, name_, " cancel sending #", info->sno());
    try {
        info->end_cancelled();
    } catch (...) {
        tav::detail::reportCaught(site);
    }
}

// The functions are called with no lock held, so that they may add and end sends on the way.
void session::check_sends_timedout(long long now) {
    tav::detail::Site const site = here("tav::tls::impl::session::check_each_send_timedout");
    send_table::cursor at;
    while (info_ptr const due = sends_.take_due(now, at)) {
        try {
            due->end_timed_out(now);
        } catch (...) {
            tav::detail::reportCaught(site);
        }
        log_parts(tavLogger::DEBUG, site, name_, " send timed out #", due->sno(), ", will remove sending");
    }
}

// Has what waits for another thread told again, if there was no memory to tell it at once.
void session::resume_sending() {
    std::shared_ptr<tavTaskQueue> idle;
    {
        std::lock_guard<std::mutex> const guard(outgoing_mutex_);
        idle = claim_sender();
    }
    put_drain(idle);
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
