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
    info_ptr info;
    if (connected()) {
        if (!option.empty()) {
            info = std::make_shared<send_info>(name_, self_ptr(this), pkt->sequence(), pkt->code(), option,
                                               last_tick_ms_);
        }
        std::shared_ptr<tavTaskQueue> idle;
        std::unique_lock<std::mutex> guard(outgoing_mutex_);
        if (!sender_closed_) {
            outgoing_.push_back(outgoing{std::move(pkt), info});
            if (!draining_) {
                draining_ = true;
                idle = sender_;
            }
            guard.unlock();
            if (idle) {
                put_drain(*idle);
            }
            return info;
        }
    }
    log_parts(tavLogger::ERROR, site, name_, " not connected");
    return info_ptr();
}

// Null once the session lets no more packets through.
std::shared_ptr<tavTaskQueue> session::open_sender() {
    std::lock_guard<std::mutex> const guard(outgoing_mutex_);
    return sender_closed_ ? nullptr : sender_;
}

// Called without outgoing_mutex_, which is the first that the woken thread takes.
void session::put_drain(tavTaskQueue & sender) {
    sender.put([self = self_ptr(this)] { self->drain_outgoing(); });
}

// Sends what is there, one packet after the other; a session that is being closed leaves the rest to
// close_sender.
void session::drain_outgoing() {
    own_thread const mark(this);
    outgoing next;
    try {
        for (;;) {
            {
                std::lock_guard<std::mutex> const guard(outgoing_mutex_);
                if (sender_closed_ || outgoing_.empty()) {
                    draining_ = false;
                    return;
                }
                next = std::move(outgoing_.front());
                outgoing_.pop_front();
            }
            do_send_pkt(*next.pkt, next.info);
            next = outgoing();
        }
    } catch (...) {
        if (std::shared_ptr<tavTaskQueue> const sender = open_sender()) {
            put_drain(*sender);
        }
        throw;
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
    std::deque<outgoing> dropped;
    {
        std::lock_guard<std::mutex> const guard(outgoing_mutex_);
        ended_sender.swap(sender_);
        dropped.swap(outgoing_);
        for (outgoing & each : dropped) {
            if (each.info) {
                dropped_.push_back(std::move(each.info));
            }
        }
    }
}

void session::do_send_pkt(im::Packet & pkt, info_ptr const & info) {
    tav::detail::Site const site = here("tav::tls::impl::session::do_send_pkt");
    unsigned long long const sno = pkt.sequence();
    if (info && info->result() < 0) {
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
    if (info && info->result() < 0) {
        info->detach();
        info->complete(result_error);
    }
}

// A second send under the same number takes the first one's place.
void session::track(info_ptr const & info) {
    std::size_t total = 0;
    {
        Guard const guard(sending_.mutex);
        info_ptr & place = sending_.map[info->sno()];
        if (place && place != info && place->result() < 0) {
            sending_.others.push_back(place);
        }
        place = info;
        total = sending_.map.size();
    }
    log_parts(tavLogger::DEBUG, here("tav::tls::impl::session::do_send_pkt"), name_, " add sending #",
              info->sno(), ", total = ", total);
    if (info->result() >= 0) {
        // Cancelled meanwhile by someone who could not find it here yet.
        removeSending(info->sno(), info.get());
    }
}

std::shared_ptr<send_info> session::find_sending(unsigned long long sno, unsigned short ack) const {
    Guard const guard(sending_.mutex);
    auto const found = sending_.map.find(sno);
    return found != sending_.map.end() && found->second->ack() == ack ? found->second : info_ptr();
}

bool session::removeSending(unsigned long long sno) {
    return removeSending(sno, nullptr);
}

bool session::removeSending(unsigned long long sno, send_info const * info) {
    info_ptr removed;
    if (sno != ~0ull) {
        Guard const guard(sending_.mutex);
        auto const found = sending_.map.find(sno);
        if (found != sending_.map.end() && (info == nullptr || found->second.get() == info)) {
            removed.swap(found->second);
            sending_.map.erase(found);
        } else if (info != nullptr) {
            auto const other = std::find_if(sending_.others.begin(), sending_.others.end(),
                                            [info](info_ptr const & each) { return each.get() == info; });
            if (other != sending_.others.end()) {
                sending_.others.erase(other);
            }
        }
    }
    if (!removed) {
        return false;
    }
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::removeSending"), name_,
              " removed waiting msg #", sno);
    return true;
}

std::size_t session::sending() const {
    Guard const guard(sending_.mutex);
    return sending_.map.size();
}

void session::cancel_all() {
    tav::detail::Site const site = here("tav::tls::impl::session::cancel_all");
    log_parts(tavLogger::INFO, site, name_, " cancel session");
    closing_ = true;
    std::map<unsigned long long, info_ptr> taken;
    std::vector<info_ptr> others;
    {
        Guard const guard(sending_.mutex);
        taken.swap(sending_.map);
        others.swap(sending_.others);
    }
    {
        std::lock_guard<std::mutex> const guard(outgoing_mutex_);
        others.insert(others.end(), dropped_.begin(), dropped_.end());
        dropped_.clear();
    }
    if (!taken.empty() || !others.empty()) {
        log_parts(tavLogger::INFO, site, name_, " cancel all sending...");
    }
    for (auto const & each : taken) {
        cancel_each_send(each.first, each.second);
    }
    for (info_ptr const & each : others) {
        if (each->result() < 0) {
            cancel_each_send(each->sno(), each);
        }
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

void session::cancel_each_send(unsigned long long sno, info_ptr const & info) {
    log_parts(tavLogger::DEBUG, here("tav::tls::impl::session::cancel_each_send"), name_, " cancel sending #",
              sno);
    if (info) {
        // What the application's function throws must not keep the sends behind it from their end.
        try {
            info->on_timedout(true);
        } catch (...) {
            tav::detail::reportCaught(here("tav::tls::impl::session::cancel_each_send"));
        }
        info->complete(result_cancelled);
    }
}

// The walk goes by number, so that a function of the application may add and end sends on the way.
void session::check_sends_timedout() {
    Guard const guard(sending_.mutex);
    std::map<unsigned long long, info_ptr> & map = sending_.map;
    for (auto next = map.begin(); next != map.end();) {
        unsigned long long const sno = next->first;
        info_ptr const info = next->second;
        bool const keep = check_each_send_timedout(sno, info);
        next = map.lower_bound(sno);
        if (next != map.end() && next->first == sno) {
            if (!keep && next->second == info) {
                next = map.erase(next);
            } else {
                ++next;
            }
        }
    }
}

bool session::check_each_send_timedout(unsigned long long sno, info_ptr const & info) {
    if (!info) {
        return false;
    }
    if (!info->check_timedout(last_tick_ms_)) {
        return true;
    }
    log_parts(tavLogger::DEBUG, here("tav::tls::impl::session::check_each_send_timedout"), name_,
              " send timed out #", sno, ", will remove sending");
    return false;
}

send_info::send_info(std::string name, tavSharedPtr<session> owner, unsigned long long sno,
                     unsigned short msgcode, send_option const & option, long long start_time)
    : name_(std::move(name)),
      session_(std::move(owner)),
      sno_(sno),
      msgcode_(msgcode),
      ack_(option.ack),
      wait_ms_(option.wait_ms()),
      option_(option),
      start_time_(start_time),
      result_(result_unknown) {}

void send_info::cancel() {
    detach();
    try {
        on_timedout(true);
    } catch (...) {
        complete(result_cancelled);
        throw;
    }
    complete(result_cancelled);
}

result_type send_info::wait() {
    tav::detail::Site const site = here("tav::tls::impl::send_info::wait");
    if (result_ < 0) {
        tav::detail::log(log_tag, tavLogger::DEBUG, site, [&](std::ostream & out) {
            out << name_ << " send wait begin, " << static_cast<tls::send_info const &>(*this);
        });
        {
            std::lock_guard<tavMonitor const> const guard(monitor_);
            while (result_ < 0) {
                if (!monitor_.waitInLock(-1)) {
                    result_ = result_timedout;
                }
            }
        }
        tav::detail::log(log_tag, tavLogger::DEBUG, site, [&](std::ostream & out) {
            out << name_ << " send wait end, result = " << result();
        });
    }
    result_type const ended = result();
    detach();
    std::lock_guard<tavMonitor const> const guard(monitor_);
    option_.clear();
    return ended;
}

result_type send_info::result() const {
    return static_cast<result_type>(result_.load());
}

unsigned long long send_info::sno() const {
    return sno_;
}

unsigned short send_info::msgcode() const {
    return msgcode_;
}

send_option send_info::option() const {
    std::lock_guard<tavMonitor const> const guard(monitor_);
    return option_;
}

// What the option's functions own may end with the copy, after the monitor is free again.
void send_info::complete(result_type v) {
    send_option dropped;
    tavSharedPtr<session> released;
    std::lock_guard<tavMonitor const> const guard(monitor_);
    dropped = option_;
    option_.clear();
    released.swap(session_);
    result_ = v;
    monitor_.signalAllInLock();
}

void send_info::detach() {
    tavSharedPtr<session> const owner = take_session();
    if (owner) {
        owner->removeSending(sno_, this);
    }
}

void send_info::on_timedout(bool cancelled) {
    option_.on_timedout(sno_, msgcode_, cancelled);
}

bool send_info::check_timedout(long long now) {
    // The quick way out for the many that are not due; the option itself decides about the others.
    int const elapsed = elapsed_ms(start_time_, now);
    if (static_cast<long long>(wait_ms_) - elapsed >= 5 || !option_.check_timedout(sno_, msgcode_, elapsed)) {
        return false;
    }
    log_parts(tavLogger::VERBOSE, here("tav::tls::impl::send_info::check_timedout"), name_,
              " send timed out #", sno_);
    complete(result_timedout);
    return true;
}

tavSharedPtr<session> send_info::take_session() {
    tavSharedPtr<session> owner;
    std::lock_guard<tavMonitor const> const guard(monitor_);
    owner.swap(session_);
    return owner;
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
