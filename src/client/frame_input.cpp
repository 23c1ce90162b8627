#include "client/frame_input.h"

#include "client/thread_role.h"
#include "client/vinta_tls_client_impl_log.h"
#include "foundation/report.h"
#include "foundation/scope_exit.h"
#include "tav/vinta/vinta_basetypes_failures.h"

#include <asio/buffer.hpp>

#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

/// The lines of frames stand in the log under a name of their own, as the session's.
constexpr tav::detail::Site at(char const * func, unsigned line = static_cast<unsigned>(__builtin_LINE())) {
    return site_in("vinta_tls_client_impl_framing.cpp", func, line);
}

} // namespace

frame_input::frame_input(connection_parts const & of, handler on_frame)
    : of_(of), received_(of_.name, of_.account, std::move(on_frame)) {}

void frame_input::start() {
    received_.start(of_.io.get(),
                    [this, owner = of_.hold()](tavBytes body) { handle_frame(std::move(body)); });
}

// At most one read is outstanding.  It takes whatever has come.
void frame_input::do_read(owner_ptr owner) {
    frame_reader::place const room = reader_.room();
    of_.socket.stream().async_read_some(
        asio::buffer(room.data, room.size),
        [this, owner = std::move(owner)](std::error_code ec, std::size_t length) mutable {
            on_read_end(std::move(owner), ec, length);
        });
    reading_ = true;
}

// Whatever comes is life, also in the middle of a body.
void frame_input::on_read_end(owner_ptr owner, std::error_code ec, std::size_t length) {
    reading_ = false;
    if (ec) {
        ec = of_.socket.meaning(ec);
        log_parts(tavLogger::ERROR, at("tav::tls::impl::session::on_read_end"), of_.name,
                  reader_.in_body() ? " Read body failed: " : " Read header failed: ", text_of(ec));
        of_.owner.on_broken(ec);
        return;
    }
    of_.beat.heard(of_.clock());
    counters::add(of_.account->counted().bytes_received, length);
    reader_.filled(length);
    read_on(std::move(owner));
}

void frame_input::read_on(owner_ptr owner) {
    while (!take_input() || received_.full()) {
        if (received_.pause()) {
            resting_ = true;
            return;
        }
    }
    do_read(std::move(owner));
}

// The peer could not be heard while nothing was read.
void frame_input::resume_reading(owner_ptr owner) {
    resting_ = false;
    of_.beat.resumed(of_.clock());
    if (!of_.state.ended()) {
        read_on(std::move(owner));
    }
}

// Cuts the frames out of what has come; false if some are left, since too much waits.  A session that ends on
// the way takes no more: its next read fails.
bool frame_input::take_input() {
    while (!of_.state.ended()) {
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

void frame_input::on_read_header_end(frame_reader::part part) {
    on_received(frame_reader::head_size);
    if (part == frame_reader::part::refused) {
        if (of_.sends.set_cause(failure::bad_frame)) {
            of_.owner.on_bad_frame();
        }
        tav::detail::raiseAssertion(at("tav::tls::impl::session::on_read_header_end"), "length <= 0xffffff");
    }
    if (reader_.length() == 0) {
        counters::add(of_.account->counted().frames_received);
        counters::add(of_.account->counted().heartbeats_received);
        log_parts(tavLogger::DEBUG, at("tav::tls::impl::session::do_read_body"), of_.name, " empty body");
    }
}

void frame_input::on_read_body_end(tavBytes && body) {
    on_received(body.size());
    counters::add(of_.account->counted().frames_received);
    received_.put(std::move(body));
}

void frame_input::on_received(std::size_t length) {
    log_parts(tavLogger::INFO, at("tav::tls::impl::session::on_received"), of_.name, " received ", length,
              " bytes, queued ", received_.waiting(), " msgs.");
}

void frame_input::handle_frame(tavBytes body) {
    thread_role const role(of_.io.get(), thread_role::receiver, of_.key);
    tav::detail::ScopeExit const done([this] { frame_handled(); });
    received_.taken(body);
    received_.deliver(std::move(body));
}

// A pause that the I/O thread could not be told the end of lasts until the next frame or tick.  The peer
// could not be heard meanwhile, which no tick may take for silence once the pause is over.
void frame_input::end_pause() noexcept {
    if (!received_.may_resume()) {
        return;
    }
    of_.beat.resumed(of_.clock());
    if (!received_.end_pause()) {
        return;
    }
    try {
        of_.io->post([this, owner = of_.hold()]() mutable { resume_reading(std::move(owner)); });
    } catch (...) {
        tav::detail::reportCaught(
            site_in("vinta_tls_client_impl_session.cpp", "tav::tls::impl::session::end_pause"));
        received_.pause_on();
    }
}

void frame_input::frame_handled() noexcept {
    bool const last = received_.done();
    end_pause();
    if (last) {
        of_.owner.on_all_handled();
    }
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
