#ifndef TAV_KIT_FAILURE_H
#define TAV_KIT_FAILURE_H

#include "tav/vinta/vinta_tls_failure.h"

#include <string>
#include <system_error>
#include <type_traits>

namespace tav {
namespace kit {

/// Why a request or a send of the kit has no result.  As std::error_code of the category "tav.kit"; the
/// values compare with std::errc too, where that has the same.
enum class failure {
    unspecified = 1,   ///< Nobody said why.
    timed_out = 2,     ///< No reply in time.
    cancelled = 3,     ///< Cancelled by the one who asked.
    disconnected = 4,  ///< The connection ended, or the client was closed or cancelled all, before the reply.
    not_connected = 5, ///< There was no connection to send on.
    not_sent = 6,      ///< The message could not be encoded or put on its way; the log says why.
    bad_reply = 7,     ///< The reply came and could not be read as the class that was asked for.
    over_limit = 8,    ///< A limit of the connection (`connect_option::limits`) has no room for it.
    too_long = 9,      ///< The message takes more bytes than one can have.
    dropped = 10,      ///< A later message took its place in the outbox of a keeper.
    outbox_full = 11,  ///< The outbox of a keeper had no room.
    stopped = 12,      ///< The keeper was stopped, or had not been started.
    login_refused = 13 ///< The gateway answered, and did not accept the login.
};

namespace detail {

class failure_category : public std::error_category {
public:
    char const * name() const noexcept override { return "tav.kit"; }

    std::string message(int value) const override {
        switch (static_cast<failure>(value)) {
        case failure::timed_out: return "timed out";
        case failure::cancelled: return "cancelled";
        case failure::disconnected: return "the connection ended first";
        case failure::not_connected: return "not connected";
        case failure::not_sent: return "the message could not be sent";
        case failure::bad_reply: return "the reply could not be read";
        case failure::over_limit: return "too much waits already";
        case failure::too_long: return "the message is too long";
        case failure::dropped: return "dropped for a later message";
        case failure::outbox_full: return "no room in the outbox";
        case failure::stopped: return "stopped";
        case failure::login_refused: return "the login was refused";
        case failure::unspecified: break;
        }
        return "failed for an unknown reason";
    }

    std::error_condition default_error_condition(int value) const noexcept override {
        switch (static_cast<failure>(value)) {
        case failure::timed_out: return std::errc::timed_out;
        case failure::cancelled: return std::errc::operation_canceled;
        case failure::disconnected: return std::errc::connection_aborted;
        case failure::not_connected: return std::errc::not_connected;
        case failure::bad_reply: return std::errc::bad_message;
        case failure::over_limit: return std::errc::resource_unavailable_try_again;
        case failure::too_long: return std::errc::message_size;
        case failure::outbox_full: return std::errc::no_buffer_space;
        case failure::stopped: return std::errc::operation_canceled;
        case failure::login_refused: return std::errc::permission_denied;
        case failure::dropped:
        case failure::not_sent:
        case failure::unspecified: break;
        }
        return std::error_condition(value, *this);
    }
};

/// Never destroys it: a failure may be told until the process ends.  Takes no memory either, of which there
/// may be none to tell that.
union category_place {
    category_place() : category() {}
    ~category_place() {}
    failure_category category;
};

} // namespace detail

inline std::error_category const & failures() noexcept {
    static detail::category_place const place;
    return place.category;
}

inline std::error_code make_error_code(failure v) noexcept {
    return std::error_code(static_cast<int>(v), failures());
}

namespace detail {

// What the client says of a send, in the kit's names.

/// Of a tracked send that ended without a reply.
inline std::error_code failure_of_end(std::error_code why) noexcept {
    return make_error_code(why == tls::failure::timed_out ? failure::timed_out : failure::disconnected);
}

/// Of a send that the client did not take.
inline std::error_code failure_of_refusal(std::error_code why) noexcept {
    if (why.category() != tls::failure_category()) {
        return make_error_code(failure::not_sent);
    }
    switch (static_cast<tls::failure>(why.value())) {
    case tls::failure::not_connected:
    case tls::failure::closed: return make_error_code(failure::not_connected);
    case tls::failure::queue_full:
    case tls::failure::too_many_sends: return make_error_code(failure::over_limit);
    case tls::failure::body_too_long: return make_error_code(failure::too_long);
    default: return make_error_code(failure::not_sent);
    }
}

} // namespace detail

} // namespace kit
} // namespace tav

namespace std {
template <>
struct is_error_code_enum<tav::kit::failure> : true_type {};
} // namespace std

#endif
