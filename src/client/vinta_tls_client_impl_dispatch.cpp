#include "client/vinta_tls_client_impl_dispatch.h"

#include "client/failures.h"
#include "client/no_message.h"
#include "client/one_line.h"
#include "client/send_info.h"
#include "client/vinta_tls_client_impl_log.h"
#include "formats/nbr/nbr_document.h"
#include "foundation/report.h"
#include "foundation/scope_exit.h"

#include <chrono>
#include <ostream>
#include <string>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using detail::here;

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
/// The pointer is the application's, which reads it on another thread.  C++20 would have it of a type that is
/// atomic, which a caller in C++17 has not.
void hand_out(std::shared_ptr<tls::send_info> & to, std::shared_ptr<tls::send_info> const & what) {
    std::atomic_store(&to, what);
}
#pragma GCC diagnostic pop

constexpr unsigned smallest_packet = 16;
constexpr unsigned char affirm_kind_mask = 0xf0;
constexpr unsigned char need_affirm = 0x20;
constexpr unsigned char affirmed = 0x30;
constexpr char const * no_json = "null";
/// The tag under which messages are told of that do not fit the meta model.
constexpr char const * json_tag = "JSON2NBR";

void say_code(tavLogger::LogLevel level, detail::Site site, std::string const & name, char const * words,
              unsigned short code) {
    log_line(level, site, [&](std::ostream & out) { out << name << words << asHex(code, 4, true); });
}

unsigned char const * bytes_of(tav_istr v) {
    return reinterpret_cast<unsigned char const *>(v.data());
}

/// More than what a packet adds to the texts that it carries.
constexpr std::size_t packet_overhead = 1024;

/// Whether a packet is too large for a frame; then `size` is what it takes, or what its body alone does.  The
/// packet is encoded only if it is near the limit.
bool exceeds_frame(im::Packet & packet, tavMsgExt const & ext, std::size_t & size) {
    constexpr std::size_t most = session::max_body_size;
    size = packet.body().size();
    std::size_t const texts = size + packet.target().size() + ext.traceId.value().size();
    if (size <= most && texts + packet_overhead > most) {
        tavBytes whole;
        packet.encode(whole);
        size = whole.size();
    }
    return size > most;
}

failure failure_of(json2nbr::WriteStage stage) noexcept {
    switch (stage) {
    case json2nbr::WriteStage::text: return failure::bad_json;
    case json2nbr::WriteStage::message_class: return failure::template_lacks_class;
    case json2nbr::WriteStage::members: return failure::value_does_not_fit;
    case json2nbr::WriteStage::necessary: break;
    }
    return failure::field_missing;
}

/// The body of a message as the log shows it: " json " and the text, or " nbr " and the values.  A body that
/// is not NBR throws whatever the log level is.  What nobody would see is not made.
class shown_body {
public:
    shown_body(metainfo const & meta, im::Packet const & packet)
        : seen_(tavLogger::isLoggable(tav_istr(log_tag), tavLogger::INFO)) {
        tav_istr const body = packet.body();
        // By its class only if someone reads the text, or what making it tells.  All else is decided by the
        // reading below, which fails for the same bytes.
        bool const told = seen_ || tavLogger::isLoggable(tav_istr(json_tag), tavLogger::ERROR);
        if ((body.empty() || (told && meta.describes(packet.code()))) && read(meta, packet)) {
            return;
        }
        if (seen_) {
            values_.view(body, 0);
        } else {
            nbr::detail::Document::check(body);
        }
    }

    friend std::ostream & operator<<(std::ostream & out, shown_body const & v) {
        if (v.is_json_) {
            return out << " json " << v.json_;
        }
        // A line that was cut is over: what came behind would hide the hole.
        if (v.seen_ && out.good()) {
            // Whatever the flags are that others left in the line.
            std::ostream plain(out.rdbuf());
            plain << " nbr ";
            v.values_.dump(plain, false);
            out.setstate(plain.rdstate());
        }
        return out;
    }

private:
    /// False if the code is not known.
    bool read(metainfo const & meta, im::Packet const & packet) {
        if (!seen_ && !packet.body().empty()) {
            return meta.check_message(packet.body(), packet.code());
        }
        json_ = meta.message_to_json(packet.body(), packet.code(), true);
        is_json_ = json_ != no_json;
        return is_json_;
    }

    bool const seen_;
    bool is_json_ = false;
    std::string json_;
    nbr::detail::Document values_;
};

/// What a reply is written to.  The caller of send_and_wait and the thread "receiver" share it; once the call
/// has returned it is null, and what the caller gave is the caller's alone.
struct awaited_reply {
    awaited_reply(std::string client_name, tavSharedPtr<tavMessage> wanted)
        : name(std::move(client_name)), ack(std::move(wanted)) {}
    std::string const name;
    detail::Mutex mutex;
    tavSharedPtr<tavMessage> ack TAV_GUARDED_BY(mutex);
};

} // namespace

/// Where a callback is held and what it is given, in the words of the log.
struct message_dispatch::callback_level {
    char const * name;
    char const * event;
};

message_dispatch::message_dispatch(std::string name, client_state const & present, io_thread const & io,
                                   std::shared_ptr<counters> counted)
    : name_(std::move(name)),
      present_(present),
      io_(io),
      counted_(std::move(counted)),
      id_generator_(tavTime::now()) {}

unsigned short message_dispatch::get_next_sno() {
    unsigned short const sno = static_cast<unsigned short>(id_generator_.nextSno());
    return sno != 0 ? sno : static_cast<unsigned short>(id_generator_.nextSno());
}

void message_dispatch::on_recv(tavBytes frame) {
    detail::Site const site = here("tav::tls::impl::Client::on_recv");
    try {
        tavSharedPtr<session> const from = present_.session();
        if (!from) {
            log_parts(tavLogger::ERROR, site, name_, " no session");
            return;
        }
        if (frame.empty()) {
            log_parts(tavLogger::VERBOSE, site, name_, " recv empty buf");
            return;
        }
        if (frame.size() < smallest_packet) {
            log_parts(tavLogger::ERROR, site, name_, " nbr buf too small");
            return;
        }
        dispatch(std::move(frame), *from);
    } catch (...) {
        detail::reportCaught(site);
    }
}

void message_dispatch::dispatch(tavBytes frame, session & from) {
    detail::Site const site = here("tav::tls::impl::Client::on_recv");
    tavSharedPtr<im::Packet> const packet = im::Packet::create(frame[1] != 0, frame[1]);
    log_line(tavLogger::VERBOSE, site,
             [&](std::ostream & out) { out << name_ << " recv buf /" << HexDump(tav_istr(frame)); });
    if (!packet->decode(std::move(frame))) {
        return;
    }
    unsigned short const code = packet->code();
    tav_istr const body = packet->body();
    tavMsgExt ext = packet->ext();
    from.session_id(packet->session());
    counters::add(counted_->messages_received);

    tavSharedPtr<tavMessage> const obj = factory_.create_message(code);
    std::error_code unreadable;
    auto const received = [&](std::ostream & out) -> std::ostream & {
        ip_port const local = from.socket().local_addr(unreadable);
        ip_port const remote = from.socket().remote_addr(unreadable);
        return out << name_ << " recv pkt " << *packet << " /" << local << "<->" << remote;
    };
    if (obj) {
        nbr::detail::readInPlace(body, [&](tavCodecStream & in) { obj->io(in); });
        obj->sno = packet->sequence();
        obj->ext = ext;
        log_object(tavLogger::INFO, site,
                   in_one_line([&](std::ostream & out) { received(out) << " obj " << *obj; }));
    } else {
        shown_body const shown(*present_.meta(), *packet);
        log_line(tavLogger::INFO, site, in_one_line([&](std::ostream & out) { received(out) << shown; }));
    }

    {
        auto const begin = std::chrono::steady_clock::now();
        detail::ScopeExit const timed([&] { count_callback(begin); });
        if (to_send_level(from, *packet, obj, ext)) {
            counters::add(counted_->replies);
        } else {
            counters::add(counted_->pushes);
            if (!to_type_level(*packet, obj, ext)) {
                to_global_level(*packet, obj, ext);
            }
        }
    }

    if ((packet->affirm() & affirm_kind_mask) == affirmed) {
        counters::add(counted_->receipts_received);
    }
    bool const wanted = (packet->affirm() & affirm_kind_mask) == need_affirm;
    packet->setBody(tav_istr());
    if (wanted) {
        packet->setAffirm(affirmed);
        ext.clientTime = static_cast<long long>(tavTime::now());
        packet->setExt(ext);
        log_line(tavLogger::INFO, site,
                 in_one_line([&](std::ostream & out) { out << name_ << " send back affirm" << *packet; }));
        if (from.send_receipt(packet)) {
            counters::add(counted_->receipts_sent);
        }
    }
}

void message_dispatch::count_callback(std::chrono::steady_clock::time_point begin) const noexcept {
    auto const spent = std::chrono::steady_clock::now() - begin;
    counters::raise(counted_->longest_callback_us,
                    static_cast<unsigned long long>(
                        std::chrono::duration_cast<std::chrono::microseconds>(spent).count()));
}

// The reply has claimed the send ahead of the callback, so that no limit that passes meanwhile is told too.
// If the callback throws the message is lost, and the send waits on.
bool message_dispatch::to_send_level(session & from, im::Packet const & packet,
                                     tavSharedPtr<tavMessage> const & obj, tavMsgExt const & ext) {
    unsigned long long const sno = packet.sequence();
    auto const sending = from.sends().find(sno, packet.code());
    if (!sending || !sending->claim()) {
        return false;
    }
    try {
        log_parts(tavLogger::DEBUG, here("tav::tls::impl::Client::on_recv"), name_,
                  " use send level callback ");
        message_callback callback(sending->option().callback_);
        call(callback, {send_option::send_level_, "ack"}, packet, obj, ext);
    } catch (...) {
        from.sends().unclaim(sending);
        throw;
    }
    sending->complete(result_ok);
    // By its identity: the callback may have begun another send under the same number.
    from.sends().remove(sno, sending.get());
    return true;
}

void message_dispatch::call(message_callback & callback, callback_level const & level,
                            im::Packet const & packet, tavSharedPtr<tavMessage> const & obj,
                            tavMsgExt const & ext) const {
    detail::Site const site = here("tav::tls::impl::Client::on_recv");
    unsigned long long const sno = packet.sequence();
    unsigned short const code = packet.code();
    tav_istr const body = packet.body();
    auto const say = [&](char const * form) {
        log_parts(tavLogger::DEBUG, site, name_, " on ", level.name, " level ", form, " ", level.event, " ");
    };
    if (callback.on_nbr_msg(level.name, sno, code, bytes_of(body), body.size(), ext)) {
        say("nbr");
    } else if (obj && callback.on_ptr_msg(level.name, sno, obj)) {
        say("ptr");
    } else if (obj && callback.on_base_msg(level.name, sno, *obj)) {
        say("object");
    } else {
        say("json");
        warn_unregistered(callback, code, obj);
        callback.on_json_msg(level.name, sno, code, to_json(packet).c_str(), ext);
    }
}

// A callback for objects gets nothing of a code without a class, and no other callback is asked.
void message_dispatch::warn_unregistered(message_callback const & callback, unsigned short code,
                                         tavSharedPtr<tavMessage> const & obj) const {
    callback_type const type = callback.type();
    if (!obj && (type == callback_obj || type == callback_ptr)) {
        log_line(tavLogger::WARN, here("tav::tls::impl::Client::on_recv"), [&](std::ostream & out) {
            out << name_ << " message 0x" << asHex(code, 4, true)
                << " is lost: its callback takes objects, and no class is registered for the code; "
                   "register one with register_message, or take the message as NBR or JSON";
        });
    }
}

bool message_dispatch::to_type_level(im::Packet const & packet, tavSharedPtr<tavMessage> const & obj,
                                     tavMsgExt const & ext) {
    auto const callback = callbacks_.of_type(packet.code());
    if (!callback) {
        return false;
    }
    say_code(tavLogger::DEBUG, here("tav::tls::impl::Client::on_recv"), name_, " use type level callback 0x",
             packet.code());
    call(*callback, {msg_type_callback::type_level_, "msg"}, packet, obj, ext);
    return true;
}

void message_dispatch::to_global_level(im::Packet const & packet, tavSharedPtr<tavMessage> const & obj,
                                       tavMsgExt const & ext) {
    log_parts(tavLogger::DEBUG, here("tav::tls::impl::Client::on_recv"), name_, " use global callback ");
    if ((packet.code() & 0xff00u) == 0) {
        to_old_callback(packet);
        return;
    }
    auto const present = present_.option();
    call(present->callback_, {connect_option::global_level_, "msg"}, packet, obj, ext);
}

void message_dispatch::to_old_callback(im::Packet const & packet) const {
    detail::Site const site = here("tav::tls::impl::Client::on_recv");
    auto const old = callbacks_.old();
    if (!old) {
        log_parts(tavLogger::DEBUG, site, name_, " on_old_nbr_msg_ is null");
        return;
    }
    log_parts(tavLogger::DEBUG, site, name_, " on_old_nbr_msg_ not null");
    tav_istr const body = packet.body();
    auto const widened = static_cast<unsigned short>(static_cast<signed char>(packet.code()));
    (*old)(packet.sequence(), widened, bytes_of(body), body.size(), tavMsgExt());
}

message_dispatch::send_ptr message_dispatch::send_packet(unsigned long long sno, unsigned short msgcode,
                                                         tav_istr body, send_option const & option,
                                                         tav_istr target, tavMessage const * obj,
                                                         tavMsgExt const & ext) {
    detail::Site const site = here("tav::tls::impl::Client::send_msg");
    tavSharedPtr<session> const to = present_.session();
    if (!to) {
        log_parts(tavLogger::ERROR, site, name_, " no session");
        return refused(failure::not_connected);
    }
    if (!to->connected()) {
        log_parts(tavLogger::ERROR, site, name_, " session not connected");
        return refused(failure::not_connected);
    }
    if (sno == 0) {
        sno = static_cast<unsigned long long>(id_generator_.nextSno());
        if (sno == 0) {
            sno = static_cast<unsigned long long>(id_generator_.nextSno());
        }
    }
    tavSharedPtr<im::Packet> const packet = im::Packet::create((msgcode & 0xff00u) != 0, option.version);
    packet->setBody(body);
    packet->setCode(msgcode);
    packet->setSequence(sno);
    packet->setSession(to->session_id());
    packet->setTarget(target);
    packet->setGrey(option.grey);
    packet->setExt(ext);
    std::size_t size = 0;
    if (exceeds_frame(*packet, ext, size)) {
        log_parts(tavLogger::ERROR, site, name_, " send pkt too large, ", size, " bytes, at most ",
                  session::max_body_size);
        return refused(failure::body_too_long);
    }

    if (obj) {
        log_object(tavLogger::INFO, site, in_one_line([&](std::ostream & out) {
                       out << name_ << " send pkt " << *packet << " /"
                           << " obj " << *obj;
                   }));
    } else {
        shown_body const shown(*present_.meta(), *packet);
        log_line(tavLogger::INFO, site, in_one_line([&](std::ostream & out) {
                     out << name_ << " send pkt " << *packet << " /" << shown;
                 }));
    }
    return to->send_pkt(packet, option);
}

message_dispatch::send_ptr message_dispatch::refused(failure why) const {
    counters::add(counted_->sends_refused);
    set_last_failure(why);
    return nullptr;
}

// Of the exception that is being handled; `why` if it has no name of its own.
message_dispatch::send_ptr message_dispatch::refused_caught(detail::Site site, failure why) const {
    detail::reportCaught(site);
    failure const own = named_exception();
    return refused(own == failure::other ? why : own);
}

message_dispatch::send_ptr message_dispatch::send(tavMessage const & msg, send_option const & option) {
    detail::Site const site = here("tav::tls::impl::Client::sendMsg");
    say_code(tavLogger::VERBOSE, site, name_, " send obj msg  0x", msg.msgcode());
    return send_object(msg, option, site);
}

message_dispatch::send_ptr message_dispatch::send(tavSharedPtr<tavMessage> const & msg,
                                                  send_option const & option) {
    detail::Site const site = here("tav::tls::impl::Client::sendMsg");
    if (!msg) {
        log_parts(tavLogger::ERROR, site, name_, " send ptr msg  null");
        return refused(failure::encoding_failed);
    }
    say_code(tavLogger::VERBOSE, site, name_, " send ptr msg  0x", msg->msgcode());
    return send_object(*msg, option, site);
}

message_dispatch::send_ptr message_dispatch::send_object(tavMessage const & msg, send_option const & option,
                                                         detail::Site site) {
    try {
        unsigned long long const sno = msg.sno != 0 ? msg.sno : option.sno;
        tavBytes const body = msg.encode(true);
        return send_packet(sno, msg.msgcode(), tav_istr(body), option, tav_istr(), &msg,
                           msg.ext.empty() ? option.ext : msg.ext);
    } catch (...) {
        return refused_caught(site, failure::encoding_failed);
    }
}

message_dispatch::send_ptr message_dispatch::send_json(tav_istr json, send_option const & option,
                                                       tav_istr class_or_code) {
    char const first = class_or_code.firstChar();
    if (first >= '0' && first <= '9') {
        return send_json(json, option, decimal_code(class_or_code), tav_istr());
    }
    return send_json(json, option, no_code, class_or_code);
}

message_dispatch::send_ptr message_dispatch::send_json(tav_istr json, send_option const & option,
                                                       unsigned short msgcode) {
    return send_json(json, option, msgcode, tav_istr());
}

message_dispatch::send_ptr message_dispatch::send_json(tav_istr json, send_option const & option,
                                                       unsigned short msgcode, tav_istr class_name) {
    detail::Site const site = here("tav::tls::impl::Client::sendJsonMsg");
    // Told also of a text that can't be sent; the code is the message's own once that is known.
    auto const say = [&] { say_code(tavLogger::VERBOSE, site, name_, " send json msg  0x", msgcode); };
    tavBytes body;
    json2nbr::WriteStage stage = json2nbr::WriteStage::text;
    try {
        present_.meta()->json_to_message(json, body, msgcode, class_name, stage);
    } catch (...) {
        say();
        return refused_caught(site, failure_of(stage));
    }
    say();
    try {
        unsigned long long const sno = option.sno;
        return send_packet(sno, msgcode, tav_istr(body), option, tav_istr(), nullptr, option.ext);
    } catch (...) {
        return refused_caught(site, failure::encoding_failed);
    }
}

message_dispatch::send_ptr message_dispatch::send_nbr(unsigned short msgcode, tav_istr body,
                                                      send_option const & option, tav_istr target) {
    detail::Site const site = here("tav::tls::impl::Client::sendNbrMsg");
    say_code(tavLogger::VERBOSE, site, name_, " send nbr msg  0x", msgcode);
    try {
        unsigned long long const sno = option.sno;
        return send_packet(sno, msgcode, body, option, target, nullptr, option.ext);
    } catch (...) {
        return refused_caught(site, failure::encoding_failed);
    }
}

message_dispatch::send_ptr message_dispatch::send_old_nbr(unsigned char msgcode, tav_istr body,
                                                          tav_istr target) {
    detail::Site const site = here("tav::tls::impl::Client::sendOldNbrMsg");
    say_code(tavLogger::VERBOSE, site, name_, " send old nbr msg 0x", msgcode);
    try {
        return send_packet(0, msgcode, body, send_option(), target, nullptr, tavMsgExt());
    } catch (...) {
        return refused_caught(site, failure::encoding_failed);
    }
}

result_type message_dispatch::send_and_wait(tavMessage const & msg, tavSharedPtr<tavMessage> const & ack,
                                            int wait_ms, bool grey, unsigned short version, send_ptr * out) {
    detail::Site const site = here("tav::tls::impl::Client::send_and_wait");
    if (!ack) {
        log_parts(tavLogger::ERROR, site, name_, " no ack object");
        refused(failure::other);
        return result_error;
    }
    if (refused_to_wait(io_.io().get(), name_, site)) {
        refused(failure::would_wait_for_itself);
        return result_error;
    }
    auto const awaited = std::make_shared<awaited_reply>(name_, ack);

    timedout_function const timedout = [site, awaited](unsigned long long sno, unsigned short msgcode,
                                                       bool cancelled) {
        log_line(tavLogger::INFO, site, [&](std::ostream & line) {
            line << awaited->name << " " << msginfo(sno, msgcode, -1) << " "
                 << (cancelled ? "cancelled" : "timedout");
        });
    };
    error_function const error = [site, awaited](unsigned long long, unsigned short, int code,
                                                 char const * text) {
        log_line(tavLogger::INFO, site,
                 [&](std::ostream & line) { line << awaited->name << " on error <" << code << ">" << text; });
    };
    nbr_function const reply = [site, awaited](unsigned long long sno, unsigned short,
                                               unsigned char const * data, unsigned size, tavMsgExt ext) {
        detail::Guard const guard(awaited->mutex);
        if (!awaited->ack) {
            return;
        }
        tavMessage & target = *awaited->ack;
        target.decode(tav_istr(data, size));
        target.sno = sno;
        target.ext = ext;
        log_object(tavLogger::INFO, site,
                   in_one_line([&](std::ostream & line) { line << awaited->name << " ack " << target; }));
    };
    send_ptr const info =
        send(msg, send_option(wait_ms, timedout, error, reply, ack->msgcode(), grey, version));
    if (!info) {
        // A send without a limit went out and is not waited for.
        set_last_failure(last_failure() ? static_cast<failure>(last_failure().value()) : failure::timed_out);
        return result_error;
    }
    if (out) {
        hand_out(*out, info);
    }
    result_type const result = info->wait();
    set_last_failure(static_cast<failure>(info->error().value()));
    if (out) {
        hand_out(*out, nullptr);
    }
    detail::Guard const guard(awaited->mutex);
    awaited->ack.reset();
    return result;
}

result_type message_dispatch::send_and_wait(tavMessage const & msg, tavMessage & ack, int wait_ms, bool grey,
                                            unsigned short version, send_ptr * out) {
    tavSharedPtr<tavObject> const copy(ack.clone());
    tavSharedPtr<tavMessage> const filled(dynamic_cast<tavMessage *>(copy.get()));
    result_type const result = send_and_wait(msg, filled, wait_ms, grey, version, out);
    if (filled) {
        ack.assign(*filled);
    }
    return result;
}

std::string message_dispatch::to_json(im::Packet const & packet) const {
    return present_.meta()->message_to_json(packet.body(), packet.code(), false);
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
