#ifndef TAV_KIT_FAILURE_NAME_H
#define TAV_KIT_FAILURE_NAME_H

#include "tav/kit/failure.h"
#include "tav/vinta/vinta_tls_failure.h"

#include <array>
#include <cstddef>
#include <system_error>

namespace tav {
namespace kit {

/// The name of a failure as its enum has it, "timed_out", for reports that programs read.  Of a number that
/// is none, "other" and "unspecified".
inline char const * failure_name(tls::failure v) noexcept {
    constexpr std::array<char const *, 32> names = {"none",
                                                    "other",
                                                    "not_connected",
                                                    "closed",
                                                    "queue_full",
                                                    "too_many_sends",
                                                    "body_too_long",
                                                    "bad_json",
                                                    "template_lacks_class",
                                                    "value_does_not_fit",
                                                    "field_missing",
                                                    "encoding_failed",
                                                    "out_of_memory",
                                                    "timed_out",
                                                    "cancelled",
                                                    "busy",
                                                    "connection_lost",
                                                    "closed_by_peer",
                                                    "peer_silent",
                                                    "bad_address",
                                                    "host_not_found",
                                                    "refused",
                                                    "unreachable",
                                                    "proxy_refused",
                                                    "handshake_failed",
                                                    "certificate_refused",
                                                    "name_mismatch",
                                                    "bad_policy",
                                                    "bad_template",
                                                    "bad_frame",
                                                    "no_resources",
                                                    "would_wait_for_itself"};
    auto const i = static_cast<std::size_t>(v);
    return i < names.size() ? names[i] : "other";
}

inline char const * failure_name(failure v) noexcept {
    switch (v) {
    case failure::timed_out: return "timed_out";
    case failure::cancelled: return "cancelled";
    case failure::disconnected: return "disconnected";
    case failure::not_connected: return "not_connected";
    case failure::not_sent: return "not_sent";
    case failure::bad_reply: return "bad_reply";
    case failure::over_limit: return "over_limit";
    case failure::too_long: return "too_long";
    case failure::dropped: return "dropped";
    case failure::outbox_full: return "outbox_full";
    case failure::stopped: return "stopped";
    case failure::login_refused: return "login_refused";
    case failure::unspecified: break;
    }
    return "unspecified";
}

/// Of a code of the client or of the kit; "other" of all else.
inline char const * failure_name(std::error_code why) noexcept {
    return why.category() == tls::failure_category() ? failure_name(static_cast<tls::failure>(why.value()))
           : why.category() == failures()            ? failure_name(static_cast<failure>(why.value()))
                                                     : "other";
}

} // namespace kit
} // namespace tav

#endif
