#include "client/frame_output.h"

#include "client/failures.h"
#include "client/frame_reader.h"
#include "client/thread_role.h"
#include "client/vinta_tls_client_impl_log.h"
#include "foundation/report.h"
#include "tav/vinta/vinta_basetypes_failures.h"

#include <asio/buffer.hpp>
#include <asio/write.hpp>

#include <openssl/bio.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <cstddef>
#include <list>
#include <typeinfo>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

constexpr unsigned head_size = frame_reader::head_size;
/// Room for what a packet adds to its body.
constexpr unsigned packet_overhead = 128;

/// The longest body that is encoded by the thread that sends it.
constexpr unsigned longest_here = 4096;

/// What the allocator and the containers spend on the blocks of a message that waits: the packet, its body
/// and the node of the queue, then the frame and the node of the writer.
constexpr std::size_t blocks_of_a_message = 128;
static_assert(std::max(sizeof(im::PacketMobile), sizeof(im::PacketPC)) + sizeof(send_queue::entry) +
                      blocks_of_a_message <=
                  send_account::message_cost,
              "a packet that waits for the sender costs more than it counts");
static_assert(packet_overhead + sizeof(tavBytes) + sizeof(send_account::room) + blocks_of_a_message <=
                  send_account::message_cost,
              "a frame that waits for the socket costs more than it counts");

void write_size(unsigned char * head, unsigned size) {
    head[0] = static_cast<unsigned char>(size >> 24);
    head[1] = static_cast<unsigned char>(size >> 16);
    head[2] = static_cast<unsigned char>(size >> 8);
    head[3] = static_cast<unsigned char>(size);
}

/// Whether the packet takes no time to encode, on any thread: a small one of the library's own kinds.
bool is_quick(im::Packet const & pkt) {
    std::type_info const & kind = typeid(pkt);
    return (kind == typeid(im::PacketMobile) || kind == typeid(im::PacketPC)) &&
           pkt.body().size() <= longest_here;
}

/// Whether TLS holds bytes that no write of ours takes along.  A read has to write as well when the peer asks
/// for new keys or for a handshake anew; a frame that is encrypted meanwhile is told as written with that,
/// and stays.
bool holds_output(tls_socket & socket) {
    return ::BIO_ctrl_wpending(::SSL_get_wbio(socket.native_handle())) != 0;
}

/// The lines of frames stand in the log under a name of their own, as the session's.
constexpr tav::detail::Site at(char const * func, unsigned line = static_cast<unsigned>(__builtin_LINE())) {
    return site_in("vinta_tls_client_impl_framing.cpp", func, line);
}

} // namespace

frame_output::frame_output(connection_parts const & of)
    : of_(of), outgoing_([this] {
          return [this, owner = of_.hold()] {
              thread_role::belong(of_.io.get());
              drain();
          };
      }) {}

bool frame_output::send_raw(unsigned char const * data, unsigned size) {
    tavBytes frame(size + head_size);
    frame.writeBigEndian(size);
    if (size != 0) {
        frame.writeBytes(tav_istr(data, size));
    }
    return post_bytes(std::move(frame), send_account::room(), report::here) != outcome::refused;
}

frame_output::outcome frame_output::post_bytes(tavBytes && frame, send_account::room && room, report by) {
    if (!of_.state.up()) {
        return outcome::refused;
    }
    return writer_.post(std::move(frame), std::move(room)) ? tell_writer(by) : outcome::posted;
}

// If the I/O thread has ended, each further frame is to find that out too.  Frames that it could not be told
// of wait for the next one or for the tick.
frame_output::outcome frame_output::tell_writer(report by) {
    try {
        if (of_.io->post([this, owner = of_.hold()]() mutable { on_posted(std::move(owner)); })) {
            return outcome::posted;
        }
        writer_.untold();
        return outcome::refused;
    } catch (...) {
        if (by == report::here) {
            tav::detail::reportCaught(at("tav::tls::impl::session::post_bytes"));
        }
        writer_.untold();
        return outcome::untold;
    }
}

void frame_output::on_posted(owner_ptr owner) {
    bool const idle = writer_.accept();
    if (of_.state.now() != session_state::connected) {
        drop_unsent();
    } else if (idle) {
        do_write(std::move(owner));
    }
}

void frame_output::do_write(owner_ptr owner) {
    frame_writer::piece const bytes = writer_.next();
    asio::async_write(of_.socket.stream(), asio::buffer(bytes.data, bytes.size),
                      [this, owner = std::move(owner)](std::error_code ec, std::size_t length) mutable {
                          on_write_end(std::move(owner), ec, length);
                      });
    writing_ = true;
}

void frame_output::on_write_end(owner_ptr owner, std::error_code ec, std::size_t length) {
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
        ec = of_.socket.meaning(ec);
        log_parts(tavLogger::ERROR, at("tav::tls::impl::session::on_write_end"), of_.name,
                  " Write failed: ", text_of(ec));
        of_.owner.on_broken(ec);
        return;
    }
    if (writer_.pending() != 0) {
        tav::detail::raiseAssertion(at("tav::tls::impl::session::on_write_end"),
                                    "length == write_msgs_.front().size()");
    }
    if (more && of_.state.now() == session_state::connected) {
        do_write(std::move(owner));
    } else if (!more && holds_output(of_.socket)) {
        flush_output();
    }
    of_.owner.on_written();
}

// A heartbeat takes along what TLS holds.  Nobody has asked for it: without memory for one the next frame
// does.
void frame_output::flush_output() noexcept {
    try {
        if (send_raw(nullptr, 0)) {
            counters::add(of_.account->counted().heartbeats_sent);
        }
    } catch (...) {
        tav::detail::reportCaught(at("tav::tls::impl::session::on_write_end"));
    }
}

// Nothing of a connection that has ended goes out, so that nothing of it waits any more.  A piece that is
// being written stays until that is over.
void frame_output::drop_unsent() {
    if (!writing_) {
        writer_.clear();
    }
}

void frame_output::on_sent(std::size_t length, std::size_t remaining) {
    log_parts(tavLogger::INFO, at("tav::tls::impl::session::on_sent"), of_.name, " sent ", length,
              " bytes, remaining ", remaining, " msgs.");
    of_.beat.sent(of_.clock());
    counters::add(of_.account->counted().frames_sent);
    counters::add(of_.account->counted().bytes_sent, length);
}

std::shared_ptr<send_info> frame_output::send_pkt(tavSharedPtr<im::Packet> pkt, send_option const & option) {
    tav::detail::Site const site = at("tav::tls::impl::session::send_pkt");
    if (of_.state.up()) {
        info_ptr info;
        if (!option.empty()) {
            info = std::make_shared<send_info>(of_.name, of_.hold(), pkt->sequence(), pkt->code(), option,
                                               of_.clock());
        }
        send_account::room room = of_.account->enter(pkt->body().size(), info != nullptr);
        if (!room) {
            return refuse(room.refusal(), site);
        }
        if (info) {
            info->placed(of_.account);
        }
        send_queue::list one;
        one.push_back(send_queue::entry{std::move(pkt), info, std::move(room)});
        if (place_here(one) || outgoing_.put(one)) {
            return info;
        }
    }
    log_parts(tavLogger::ERROR, site, of_.name, " not connected");
    counters::add(of_.account->counted().sends_refused);
    set_last_failure(failure::not_connected);
    return info_ptr();
}

bool frame_output::send_receipt(tavSharedPtr<im::Packet> pkt) {
    send_queue::list one;
    one.push_back(send_queue::entry{std::move(pkt), info_ptr(), of_.account->enter_receipt()});
    if (of_.state.up() && outgoing_.put(one)) {
        return true;
    }
    log_parts(tavLogger::ERROR, at("tav::tls::impl::session::send_pkt"), of_.name, " not connected");
    return false;
}

frame_output::info_ptr frame_output::refuse(failure why, tav::detail::Site site) const {
    log_parts(tavLogger::ERROR, site, of_.name, " send refused: ", make_error_code(why).message());
    counters::add(of_.account->counted().sends_refused);
    set_last_failure(why);
    return info_ptr();
}

// What goes wrong here is left to "sender", which meets it too, ends the send and says so.
bool frame_output::place_here(send_queue::list & one) {
    if (!is_quick(*one.front().pkt) || tavLogger::isLoggable(log_tag, tavLogger::DEBUG) ||
        !outgoing_.begin_turn()) {
        return false;
    }
    outcome what = outcome::refused;
    try {
        what = place(one.front(), report::elsewhere);
    } catch (...) {
    }
    if (what == outcome::posted || what == outcome::untold) {
        one.clear();
    }
    outgoing_.end_turn(one, what == outcome::untold);
    return true;
}

// Sends what is there, one packet after the other; a session that is being closed leaves the rest.
void frame_output::drain() {
    thread_role const role(of_.io.get(), thread_role::sender, of_.key);
    if (writer_.retell()) {
        tell_writer(report::here);
    }
    for (;;) {
        send_queue::list one = outgoing_.take();
        if (one.empty()) {
            return;
        }
        send_next(one.front());
    }
}

void frame_output::send_next(send_queue::entry & next) {
    tav::detail::Site const site = at("tav::tls::impl::session::send_outgoing");
    try {
        encode(next);
        return;
    } catch (...) {
        tav::detail::reportCaught(site);
    }
    if (next.info) {
        of_.sends.fail(next.info);
    }
}

void frame_output::encode(send_queue::entry & next) {
    outcome const what = place(next, report::here);
    if (what == outcome::refused) {
        log_parts(tavLogger::ERROR, at("tav::tls::impl::session::do_send_pkt"), of_.name,
                  " send buf fail, maybe not connected, remove #", next.pkt->sequence());
    }
    if ((what == outcome::refused || what == outcome::too_large) && next.info) {
        of_.sends.drop(next.info);
    }
}

frame_output::outcome frame_output::place(send_queue::entry & next, report by) {
    tav::detail::Site const site = at("tav::tls::impl::session::do_send_pkt");
    im::Packet & pkt = *next.pkt;
    if (next.info && !next.info->claimed()) {
        of_.sends.track(next.info);
    }
    tavBytes frame(pkt.body().size() + packet_overhead);
    frame.size(head_size);
    pkt.encode(frame);
    unsigned const size = frame.size() - head_size;
    write_size(frame.data(), size);
    if (tavLogger::isLoggable(log_tag, tavLogger::VERBOSE)) {
        log_line(tavLogger::VERBOSE, site, [&](std::ostream & out) {
            out << of_.name << " send buf /" << HexDump(tav_istr(frame.data() + head_size, size));
        });
    }
    if (size > frame_reader::max_body_size) {
        if (by == report::here) {
            log_parts(tavLogger::ERROR, site, of_.name, " send buf too large, ", size, " bytes, remove #",
                      pkt.sequence());
        }
        return outcome::too_large;
    }
    outcome const what = post_bytes(std::move(frame), std::move(next.room), by);
    if (what != outcome::refused) {
        counters::add(of_.account->counted().messages_sent);
    }
    return what;
}

void frame_output::log_waiting() const {
    tav::detail::Site const site = at("tav::tls::impl::session::cancel_all");
    if (!tavLogger::isLoggable(log_tag, tavLogger::DEBUG)) {
        return;
    }
    try {
        for (unsigned const size : writer_.sizes()) {
            log_parts(tavLogger::DEBUG, site, of_.name, " remove message size ", size);
        }
    } catch (...) {
        tav::detail::reportCaught(site);
    }
}

void frame_output::retell() {
    outgoing_.retell();
    if (writer_.retell()) {
        tell_writer(report::here);
    }
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
