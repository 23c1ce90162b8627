#include "client/vinta_tls_client_impl_session.h"

#include "client/no_message.h"
#include "client/process_exit.h"
#include "client/thread_role.h"
#include "client/vinta_tls_client_impl_log.h"
#include "tav/vinta/vinta_basetypes_failures.h"

#include <asio/buffer.hpp>
#include <asio/write.hpp>

#include <exception>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using tav::detail::here;

constexpr unsigned head_size = frame_reader::head_size;
/// Room for what a packet adds to its body.
constexpr unsigned packet_overhead = 128;

void write_size(unsigned char * head, unsigned size) {
    head[0] = static_cast<unsigned char>(size >> 24);
    head[1] = static_cast<unsigned char>(size >> 16);
    head[2] = static_cast<unsigned char>(size >> 8);
    head[3] = static_cast<unsigned char>(size);
}

} // namespace

// One read is outstanding while the session is connected.  It takes whatever has come.
void session::do_read(self_ptr self) {
    frame_reader::place const room = reader_.room();
    socket_.stream().async_read_some(
        asio::buffer(room.data, room.size),
        [self = std::move(self)](std::error_code ec, std::size_t length) mutable {
            session & s = *self;
            s.on_read_end(std::move(self), ec, length);
        });
    reading_ = true;
}

// Whatever comes is life, also in the middle of a body.
void session::on_read_end(self_ptr self, std::error_code ec, std::size_t length) {
    reading_ = false;
    if (ec) {
        log_parts(tavLogger::ERROR, here("tav::tls::impl::session::on_read_end"), name_,
                  reader_.in_body() ? " Read body failed: " : " Read header failed: ", text_of(ec));
        on_broken(ec);
        return;
    }
    heartbeat_.heard(clock_());
    counters::add(account_->counted().bytes_received, length);
    reader_.filled(length);
    read_on(std::move(self));
}

void session::read_on(self_ptr self) {
    while (!take_input() || received_.full()) {
        if (received_.pause()) {
            return;
        }
    }
    do_read(std::move(self));
}

// The peer could not be heard while nothing was read.
void session::resume_reading(self_ptr self) {
    heartbeat_.resumed(clock_());
    if (!state_.ended()) {
        read_on(std::move(self));
    }
}

// Cuts the frames out of what has come; false if some are left, since too much waits.  A session that ends on
// the way takes no more: its next read fails.
bool session::take_input() {
    while (!state_.ended()) {
        if (received_.full()) {
            return false;
        }
        frame_reader::part const part = reader_.next();
        if (part == frame_reader::part::none) {
            return true;
        }
        if (part == frame_reader::part::body) {
            on_read_body_end(reader_.take_body());
        } else {
            on_read_header_end(part);
        }
    }
    reader_.drop();
    return true;
}

void session::on_read_header_end(frame_reader::part part) {
    on_received(frame_reader::head_size);
    if (part == frame_reader::part::refused) {
        if (sends_.set_cause(failure::bad_frame)) {
            count_end(account_->counted().breaks_by_error);
        }
        tav::detail::raiseAssertion(here("tav::tls::impl::session::on_read_header_end"),
                                    "length <= 0xffffff");
    }
    if (reader_.length() == 0) {
        counters::add(account_->counted().frames_received);
        counters::add(account_->counted().heartbeats_received);
        log_parts(tavLogger::DEBUG, here("tav::tls::impl::session::do_read_body"), name_, " empty body");
    }
}

void session::on_read_body_end(tavBytes && body) {
    on_received(body.size());
    counters::add(account_->counted().frames_received);
    received_.put(std::move(body));
}

void session::on_received(std::size_t length) {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::on_received"), name_, " received ", length,
              " bytes, queued ", received_.waiting(), " msgs.");
}

bool session::send_raw(unsigned char const * data, unsigned size) {
    tavBytes frame(size + head_size);
    frame.writeBigEndian(size);
    if (size != 0) {
        frame.writeBytes(tav_istr(data, size));
    }
    return post_bytes(std::move(frame));
}

bool session::post_bytes(tavBytes && frame, send_account::room room) {
    return connected() && (!writer_.post(std::move(frame), std::move(room)) || tell_writer());
}

// False if the I/O thread has ended, which each further frame is to find out too.  Frames that it could not
// be told of wait for the next one or for the tick.
bool session::tell_writer() {
    try {
        if (!context_->post([self = self_ptr(this)]() mutable {
                session & s = *self;
                s.on_posted(std::move(self));
            })) {
            writer_.untold();
            return false;
        }
    } catch (...) {
        tav::detail::reportCaught(here("tav::tls::impl::session::post_bytes"));
        writer_.untold();
    }
    return true;
}

void session::on_posted(self_ptr self) {
    bool const idle = writer_.accept();
    if (state_.now() != session_state::connected) {
        drop_unsent();
    } else if (idle) {
        do_write(std::move(self));
    }
}

void session::do_write(self_ptr self) {
    frame_writer::piece const bytes = writer_.next();
    asio::async_write(socket_.stream(), asio::buffer(bytes.data, bytes.size),
                      [self = std::move(self)](std::error_code ec, std::size_t length) mutable {
                          session & s = *self;
                          s.on_write_end(std::move(self), ec, length);
                      });
    writing_ = true;
}

void session::on_write_end(self_ptr self, std::error_code ec, std::size_t length) {
    writing_ = false;
    bool more = false;
    while (writer_.pending() > 0) {
        frame_writer::written const first = writer_.first();
        if (length < first.size) {
            break;
        }
        length -= first.size;
        on_sent(first.size, first.waiting);
        more = writer_.pop();
    }
    if (ec) {
        log_parts(tavLogger::ERROR, here("tav::tls::impl::session::on_write_end"), name_,
                  " Write failed: ", text_of(ec));
        on_broken(ec);
        return;
    }
    if (writer_.pending() != 0) {
        tav::detail::raiseAssertion(here("tav::tls::impl::session::on_write_end"),
                                    "length == write_msgs_.front().size()");
    }
    if (more && state_.now() == session_state::connected) {
        do_write(std::move(self));
    }
    end_pause();
}

// Nothing of a connection that has ended goes out, so that nothing of it waits any more.  A piece that is
// being written stays until that is over.
void session::drop_unsent() {
    if (!writing_) {
        writer_.clear();
    }
}

void session::on_sent(std::size_t length, std::size_t remaining) {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::on_sent"), name_, " sent ", length,
              " bytes, remaining ", remaining, " msgs.");
    heartbeat_.sent(clock_());
    counters::add(account_->counted().frames_sent);
    counters::add(account_->counted().bytes_sent, length);
}

std::shared_ptr<send_info> session::send_pkt(tavSharedPtr<im::Packet> pkt, send_option const & option) {
    tav::detail::Site const site = here("tav::tls::impl::session::send_pkt");
    if (connected()) {
        info_ptr info;
        if (!option.empty()) {
            info = std::make_shared<send_info>(name_, self_ptr(this), pkt->sequence(), pkt->code(), option,
                                               clock_());
        }
        send_account::room room = account_->enter(pkt->body().size(), info != nullptr);
        if (!room) {
            return refuse(room.refusal(), site);
        }
        if (info) {
            info->placed(account_);
        }
        send_queue::list one;
        one.push_back(send_queue::entry{std::move(pkt), info, std::move(room)});
        if (outgoing_.put(one)) {
            return info;
        }
    }
    log_parts(tavLogger::ERROR, site, name_, " not connected");
    counters::add(account_->counted().sends_refused);
    set_last_failure(failure::not_connected);
    return info_ptr();
}

bool session::send_receipt(tavSharedPtr<im::Packet> pkt) {
    send_queue::list one;
    one.push_back(send_queue::entry{std::move(pkt), info_ptr(), account_->enter_receipt()});
    if (connected() && outgoing_.put(one)) {
        return true;
    }
    log_parts(tavLogger::ERROR, here("tav::tls::impl::session::send_pkt"), name_, " not connected");
    return false;
}

std::shared_ptr<send_info> session::refuse(failure why, tav::detail::Site site) const {
    log_parts(tavLogger::ERROR, site, name_, " send refused: ", make_error_code(why).message());
    counters::add(account_->counted().sends_refused);
    set_last_failure(why);
    return info_ptr();
}

// Sends what is there, one packet after the other; a session that is being closed leaves the rest.
void session::drain_outgoing() {
    thread_role const role(context_.get(), thread_role::sender, this);
    for (;;) {
        send_queue::list one = outgoing_.take();
        if (one.empty()) {
            return;
        }
        send_outgoing(one.front());
    }
}

void session::send_outgoing(send_queue::entry & next) {
    tav::detail::Site const site = here("tav::tls::impl::session::send_outgoing");
    try {
        do_send_pkt(next);
        return;
    } catch (...) {
        tav::detail::reportCaught(site);
    }
    if (next.info) {
        sends_.fail(next.info);
    }
}

void session::do_send_pkt(send_queue::entry & next) {
    tav::detail::Site const site = here("tav::tls::impl::session::do_send_pkt");
    im::Packet & pkt = *next.pkt;
    info_ptr const & info = next.info;
    unsigned long long const sno = pkt.sequence();
    if (info && !info->claimed()) {
        sends_.track(info);
    }
    tavBytes frame(pkt.body().size() + packet_overhead);
    frame.size(head_size);
    pkt.encode(frame);
    unsigned const size = frame.size() - head_size;
    write_size(frame.data(), size);
    if (tavLogger::isLoggable(log_tag, tavLogger::VERBOSE)) {
        log_line(tavLogger::VERBOSE, site, [&](std::ostream & out) {
            out << name_ << " send buf /" << HexDump(tav_istr(frame.data() + head_size, size));
        });
    }
    if (size > max_body_size) {
        log_parts(tavLogger::ERROR, site, name_, " send buf too large, ", size, " bytes, remove #", sno);
    } else if (post_bytes(std::move(frame), std::move(next.room))) {
        counters::add(account_->counted().messages_sent);
        return;
    } else {
        log_parts(tavLogger::ERROR, site, name_, " send buf fail, maybe not connected, remove #", sno);
    }
    if (info) {
        sends_.drop(info);
    }
}

void session::cancel_all() {
    tav::detail::Site const site = here("tav::tls::impl::session::cancel_all");
    log_parts(tavLogger::INFO, site, name_, " cancel session");
    state_.stop_sends();
    sends_.cancel_all(outgoing_.take_left());
    log_waiting_frames();
}

void session::log_waiting_frames() const {
    tav::detail::Site const site = here("tav::tls::impl::session::cancel_all");
    if (!tavLogger::isLoggable(log_tag, tavLogger::DEBUG)) {
        return;
    }
    try {
        for (unsigned const size : writer_.sizes()) {
            log_parts(tavLogger::DEBUG, site, name_, " remove message size ", size);
        }
    } catch (...) {
        tav::detail::reportCaught(site);
    }
}

// Has what waits for another thread told again, if there was no memory to tell it at once.
void session::resume_sending() {
    outgoing_.retell();
    if (writer_.retell()) {
        tell_writer();
    }
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
