#ifndef TAV_CLIENT_VINTA_TLS_CLIENT_IMPL_DISPATCH_H
#define TAV_CLIENT_VINTA_TLS_CLIENT_IMPL_DISPATCH_H

#include "client/client_state.h"
#include "client/counters.h"
#include "client/io_thread.h"
#include "client/message_callbacks.h"
#include "client/message_factory.h"
#include "client/send_info.h"
#include "client/vinta_tls_client_impl_session.h"
#include "foundation/build_stamp.h"
#include "foundation/report.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_basetypes_util.h"
#include "tav/vinta/vinta_im_pkt.h"
#include "tav/vinta/vinta_tls_client_options.h"

#include <chrono>
#include <memory>
#include <string>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// The messages of one client: those of the application are encoded and given to the session, those that come
/// are given to the callback of the first level that has one.  Internal.
///
/// Its operations that send are named in the log as the client's.
/// Thread safety: all operations; on_recv is called on the thread "receiver", and on the one that closes the
/// connection.
class message_dispatch {
public:
    using send_ptr = std::shared_ptr<tls::send_info>;

    /// `name` begins the log lines; `present` and `io` live as long as this object.
    message_dispatch(std::string name, client_state const & present, io_thread const & io,
                     std::shared_ptr<counters> counted);
    message_dispatch(message_dispatch const &) = delete;
    message_dispatch & operator=(message_dispatch const &) = delete;

    message_callbacks & callbacks() { return callbacks_; }
    message_factory & factory() { return factory_; }
    unsigned short get_next_sno();

    /// Takes one frame: finds the level of callback that it is for, and affirms it.
    void on_recv(tavBytes frame);

    send_ptr send(tavMessage const & msg, send_option const & option);
    send_ptr send(tavSharedPtr<tavMessage> const & msg, send_option const & option);
    /// JSON by the meta model, of a class, of a decimal code if `class_or_code` begins with a digit, or of
    /// what the object itself names.
    send_ptr send_json(tav_istr json, send_option const & option, tav_istr class_or_code);
    send_ptr send_json(tav_istr json, send_option const & option, unsigned short msgcode);
    send_ptr send_nbr(unsigned short msgcode, tav_istr body, send_option const & option, tav_istr target);
    send_ptr send_old_nbr(unsigned char msgcode, tav_istr body, tav_istr target);
    result_type send_and_wait(tavMessage const & msg, tavSharedPtr<tavMessage> const & ack, int wait_ms,
                              bool grey, unsigned short version, send_ptr * out);
    result_type send_and_wait(tavMessage const & msg, tavMessage & ack, int wait_ms, bool grey,
                              unsigned short version, send_ptr * out);

private:
    struct callback_level;

    /// The common end of all sends; a `sno` of 0 is replaced by a new one.
    send_ptr send_packet(unsigned long long sno, unsigned short msgcode, tav_istr body,
                         send_option const & option, tav_istr target, tavMessage const * obj,
                         tavMsgExt const & ext);
    send_ptr send_object(tavMessage const & msg, send_option const & option, detail::Site site);
    send_ptr send_json(tav_istr json, send_option const & option, unsigned short msgcode,
                       tav_istr class_name);
    send_ptr refused(failure why) const;
    send_ptr refused_caught(detail::Site site, failure why) const;

    void dispatch(tavBytes frame, session & from);
    void count_callback(std::chrono::steady_clock::time_point begin) const noexcept;
    bool to_send_level(session & from, im::Packet const & packet, tavSharedPtr<tavMessage> const & obj,
                       tavMsgExt const & ext);
    bool to_type_level(im::Packet const & packet, tavSharedPtr<tavMessage> const & obj,
                       tavMsgExt const & ext);
    void to_global_level(im::Packet const & packet, tavSharedPtr<tavMessage> const & obj,
                         tavMsgExt const & ext);
    void to_old_callback(im::Packet const & packet) const;
    /// Gives the message to the callback in the form that it takes.
    void call(message_callback & callback, callback_level const & level, im::Packet const & packet,
              tavSharedPtr<tavMessage> const & obj, tavMsgExt const & ext) const;
    void warn_unregistered(message_callback const & callback, unsigned short code,
                           tavSharedPtr<tavMessage> const & obj) const;

    /// The packet's body by the meta model; "null" for a code that it does not know.
    std::string to_json(im::Packet const & packet) const;

    std::string const name_;
    client_state const & present_;
    io_thread const & io_;
    std::shared_ptr<counters> const counted_;
    message_callbacks callbacks_;
    message_factory factory_;
    tavIdGenerator id_generator_;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
