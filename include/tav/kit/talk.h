#ifndef TAV_KIT_TALK_H
#define TAV_KIT_TALK_H

#include "tav/kit/exchange.h"
#include "tav/kit/result.h"
#include "tav/vinta/vinta_tls_client.h"

#include <future>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

/// Talk in messages of classes: requests with typed replies, typed pushes, sends.
///
///     auto reply = request<Said>(client, say, 5s).get();                      // a future
///     request<Said>(client, say, 5s, [](result<Said> reply) { ... });         // a callback
///     auto reply = co_await request<Said>(client, say, 5s, use_awaitable);    // a coroutine (C++20)
///
/// Each request ends exactly once: with its reply, in time or not, by a cancellation, by the end of the
/// connection or of the client, or by a send that was refused.  Without an executor (`within::on`) the
/// callback runs, and the coroutine goes on, on the thread where that happened: the client's receiver for a
/// reply, its timer for a time-out, the canceller's for a cancellation, the caller's for a refused send, and
/// for a connection that ended the thread that docs/client.md names.  There it may do what a callback of the
/// client may do there.  What it raises goes to the log and hurts nobody.
///
/// Thread safety: all functions.  The client has to live until the call has returned, and no longer.
namespace tav {
namespace kit {

/// The completion token for a std::future of the result.
struct use_future_t {};
inline constexpr use_future_t use_future{};

namespace detail {

template <class Reply>
using taker = std::function<void(result<Reply>)>;

/// The result that an end gives.
template <class Reply>
result<Reply> read_reply(std::error_code error, arrival const & reply) {
    if (error) {
        return error;
    }
    if constexpr (std::is_void<Reply>::value) {
        return result<Reply>();
    } else {
        try {
            Reply read;
            read.decode(tav_istr(reply.data, reply.size));
            read.sno = reply.sno;
            read.ext = *reply.ext;
            return read;
        } catch (std::exception const & e) {
            log_caught("tav::kit::read_reply", e.what());
            return make_error_code(failure::bad_reply);
        }
    }
}

/// What is to happen at the end, made ahead of it, so that an end can't fail for want of memory.
template <class Reply>
struct delivery {
    explicit delivery(taker<Reply> f) : to(std::move(f)) {}

    taker<Reply> const to;
    std::optional<result<Reply>> what;
};

/// By which way requests go out.
class route {
public:
    /// Sends `msg`, whose reply has the code `ack`, and ends `one` at the latest when the terms say.
    virtual void begin(std::shared_ptr<exchange> const & one, tavMessage const & msg, unsigned short ack,
                       within const & terms) const = 0;

protected:
    ~route() = default;
};

/// By a client's present connection.
class client_route final : public route {
public:
    explicit client_route(tls::client & client) : client_(client) {}
    void begin(std::shared_ptr<exchange> const & one, tavMessage const & msg, unsigned short ack,
               within const & terms) const override {
        tls::send_option option = terms.option(ack);
        one->begin(client_, msg, option);
    }

private:
    tls::client & client_;
};

/// Whether the one who uses the token may be held up until there is room for his message.
template <class Token>
inline constexpr bool may_block = true;

/// Begins one request; what a completion token is given.
template <class Reply>
class initiation {
public:
    initiation(route const & by, tavMessage const & msg, unsigned short ack, within const & terms)
        : by_(by), msg_(msg), ack_(ack), terms_(terms) {}

    executor const & where() const { return terms_.where(); }

    /// Sends; `to` gets the result, on the executor of the terms.
    std::shared_ptr<exchange> operator()(taker<Reply> to) const { return begin(std::move(to), where()); }
    /// The same on the thread of the event.
    std::shared_ptr<exchange> here(taker<Reply> to) const { return begin(std::move(to), executor()); }

private:
    std::shared_ptr<exchange> begin(taker<Reply> to, executor const & where) const {
        auto const made = std::make_shared<delivery<Reply>>(std::move(to));
        auto const last = std::make_shared<turn>([made] { made->to(std::move(*made->what)); });
        auto const one = std::make_shared<exchange>(
            [made, last, where](std::error_code error, arrival const & reply) {
                made->what.emplace(read_reply<Reply>(error, reply));
                turn::take(last, where);
            },
            terms_.group());
        if (terms_.limit_ms() < 1) {
            one->end(make_error_code(failure::timed_out));
        } else {
            by_.begin(one, msg_, ack_, terms_);
        }
        return one;
    }

    route const & by_;
    tavMessage const & msg_;
    unsigned short const ack_;
    within const & terms_;
};

} // namespace detail

/// What a completion token makes of a request.  Specialise it for a token of your own: `begin` calls `start`
/// once, with a function that takes the result, and returns what `request` is to return.
///
/// This is the form for callbacks, which may be of a type that only moves.
template <class Token, class Reply>
struct completion {
    static_assert(std::is_invocable<Token &, result<Reply>>::value,
                  "tav::kit: a completion token is use_future, use_awaitable or a function that takes "
                  "result<Reply>");

    static pending begin(detail::initiation<Reply> const & start, Token token) {
        auto const held = std::make_shared<Token>(std::move(token));
        return pending(start([held](result<Reply> v) { (*held)(std::move(v)); }));
    }
};

template <class Reply>
struct completion<use_future_t, Reply> {
    static std::future<result<Reply>> begin(detail::initiation<Reply> const & start, use_future_t) {
        auto const promise = std::make_shared<std::promise<result<Reply>>>();
        std::future<result<Reply>> made = promise->get_future();
        start.here([promise](result<Reply> v) { promise->set_value(std::move(v)); });
        return made;
    }
};

namespace detail {

template <class Reply, class Token>
auto begin_request(route const & by, tavMessage const & msg, unsigned short ack, within const & terms,
                   Token && token) {
    return completion<std::decay_t<Token>, Reply>::begin(initiation<Reply>(by, msg, ack, terms),
                                                         std::forward<Token>(token));
}

template <class T>
inline constexpr bool is_message =
    std::is_base_of<tavMessage, T>::value && std::is_default_constructible<T>::value;

/// Whether T has overridden all that it has to.
template <class T>
inline constexpr bool is_whole = !std::is_abstract<T>::value;

} // namespace detail

/// Sends `msg` and waits, as the token says, for the reply of class Reply: the message with this one's
/// sequence and the code of Reply.  Nothing has to be registered.  `msg` is not needed any more when the call
/// has returned.
template <class Reply, class Token = use_future_t>
auto request(tls::client & client, tavMessage const & msg, within const & terms,
             Token && token = use_future_t()) {
    static_assert(detail::is_whole<Reply>, "tav::kit::request<Reply>: Reply has to override "
                                           "traverse(tavCodecStream &), which is not const");
    static_assert(
        !detail::is_whole<Reply> || detail::is_message<Reply>,
        "tav::kit::request<Reply>: Reply is the message class of the reply, with a default constructor");
    if constexpr (detail::is_message<Reply>) {
        return detail::begin_request<Reply>(detail::client_route(client), msg, Reply().msgcode(), terms,
                                            std::forward<Token>(token));
    }
}

/// Sends `msg` and waits, as the token says, until the peer confirms it: by a packet with the sequence and
/// the code of `msg` itself, whatever its body, as a receipt is.
template <class Token>
auto send(tls::client & client, tavMessage const & msg, within const & terms, Token && token) {
    return detail::begin_request<void>(detail::client_route(client), msg, msg.msgcode(), terms,
                                       std::forward<Token>(token));
}
inline std::future<result<void>> send(tls::client & client, tavMessage const & msg, within const & terms) {
    return detail::begin_request<void>(detail::client_route(client), msg, msg.msgcode(), terms, use_future);
}

/// Sends `msg` and waits for nothing.  Fails if the client does not take it: not_connected, over_limit,
/// too_long, or not_sent if its fields raise as they are encoded.
inline result<void> send(tls::client & client, tavMessage const & msg) {
    client.send_msg(msg, tls::send_option());
    std::error_code const why = tls::last_failure();
    return why ? result<void>(detail::failure_of_refusal(why)) : result<void>();
}

/// Has `f` called with each message of class T that no request waits for: as `T const &`, valid during the
/// call, or as `tavSharedPtr<T>`, to keep.  Registers the class, and takes the place of any callback for its
/// code.  `f` runs on the client's receiver, or on `where`; a receipt that the peer has asked for goes back
/// when it has returned, or when `where` has taken the message.
template <class T, class F>
void on(tls::client & client, F f, executor where = executor()) {
    static_assert(detail::is_whole<T>,
                  "tav::kit::on<T>: T has to override traverse(tavCodecStream &), which is not const");
    static_assert(!detail::is_whole<T> || detail::is_message<T>,
                  "tav::kit::on<T>: T is a message class with a default constructor");
    static_assert(std::is_invocable<F &, T const &>::value || std::is_invocable<F &, tavSharedPtr<T>>::value,
                  "tav::kit::on<T>: the function takes T const & or tavSharedPtr<T>");
    if constexpr (detail::is_message<T>) {
        unsigned short const code = T().msgcode();
        client.register_message(code, []() -> tavObject * { return new T(); });
        auto const held = std::make_shared<F>(std::move(f));
        auto const call = [held](tavSharedPtr<T> const & msg) {
            if constexpr (std::is_invocable<F &, T const &>::value) {
                (*held)(static_cast<T const &>(*msg));
            } else if constexpr (std::is_invocable<F &, tavSharedPtr<T>>::value) {
                (*held)(msg);
            }
        };
        client.on_msg(
            code, tls::ptr_function([call, where](unsigned long long, tavSharedPtr<tavMessage> msg) {
                tavSharedPtr<T> const typed(dynamic_cast<T *>(msg.get()));
                if (!typed) {
                    detail::log_caught("tav::kit::on", "another class was registered for the code since");
                } else if (where) {
                    where([call, typed] { call(typed); });
                } else {
                    call(typed);
                }
            }));
    }
}

} // namespace kit
} // namespace tav

#endif
