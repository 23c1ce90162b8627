#ifndef TAV_KIT_KEEPER_H
#define TAV_KIT_KEEPER_H

#include "tav/kit/keeper_core.h"
#include "tav/kit/keeper_core_connection.h"
#include "tav/kit/keeper_core_messages.h"
#include "tav/kit/keeper_option.h"
#include "tav/kit/talk.h"

/// A connection that is kept: made again whenever it ends, logged in before anything else, and with an outbox
/// for what is sent meanwhile.
///
///     tav::kit::keeper_option how;
///     how.gateways = {{"gate1.example.org", "443"}, {"gate2.example.org", "443", 1}};
///     how.login = tav::kit::login_with<Welcome>(login, 5s);
///     tav::kit::keeper keeper(option, how);
///     keeper.start();
///     auto reply = request<Said>(keeper, say, 30s).get();
///
/// Each message ends exactly once: with its reply, or sent if it awaits none; or with a failure.  It is not
/// on the wire twice, unless its terms say that it may be (`within::repeatable`).  Not part of kit.h, as not
/// everybody needs it.
namespace tav {
namespace kit {

/// Keeps one client connected.  The client's connection is the keeper's: others may send on it, and register
/// callbacks, but leave start, reconnect and close to the keeper.
///
/// Thread safety: all operations but destruction.  A keeper of the process that forked this one is of no use
/// here.
class keeper {
public:
    /// Keeps a client of the caller's, who lets it live longer than the keeper.  Raises std::system_error if
    /// there can be no thread.
    ///
    /// The functions of the option are called as they are by the client, but for `on_open_`, which is called
    /// on the keepers' thread when the login has succeeded.
    keeper(tls::client & client, tls::connect_option const & option,
           keeper_option const & how = keeper_option())
        : core_(std::make_shared<detail::keeper_core>(client, option, how)) {
        core_->timer().enroll();
    }
    /// Keeps a client of its own.
    explicit keeper(tls::connect_option const & option, keeper_option const & how = keeper_option(),
                    tav_istr name = tav_istr())
        : own_(std::make_unique<tls::client>(name)),
          core_(std::make_shared<detail::keeper_core>(*own_, option, how)) {
        core_->timer().enroll();
    }
    /// Stops, and ends its own client.  Nothing is told afterwards.
    ~keeper() {
        if (!core_->of_this_process()) {
            // Whoever held its lock at the fork is not here to let it go.
            core_->stay();
            return;
        }
        core_->stop();
        core_->mute();
        core_->timer().leave();
    }
    keeper(keeper const &) = delete;
    keeper & operator=(keeper const &) = delete;

    /// Begins to connect; no effect unless it is stopped.
    void start() { core_->start(); }
    /// Closes the connection and ends every message, with failure::stopped, on the calling thread.  Returns
    /// within a second whatever hangs, and usually at once: a callback of the keeper that runs on another
    /// thread is waited for, a little less than that second.
    void stop() noexcept { core_->stop(); }

    keeper_status status() const { return core_->status(); }
    /// The messages that wait for a connection.
    std::size_t waiting() const { return core_->waiting(); }
    tls::client & client() const { return core_->client(); }

private:
    friend class keeper_route;

    std::unique_ptr<tls::client> const own_;
    std::shared_ptr<detail::keeper_core> const core_;
};

/// By the connection that a keeper keeps.  Internal.
class keeper_route final : public detail::route {
public:
    keeper_route(keeper const & by, bool awaits, bool may_block)
        : core_(*by.core_), awaits_(awaits), may_block_(may_block) {}
    void begin(std::shared_ptr<detail::exchange> const & one, tavMessage const & msg, unsigned short ack,
               within const & terms) const override {
        core_.accept(one, msg, ack, awaits_, terms, may_block_);
    }

private:
    detail::keeper_core & core_;
    bool const awaits_;
    bool const may_block_;
};

/// As `request` to a client, but a message that finds no connection waits for the next one, as long as the
/// terms say.  When a connection ends ahead of the reply, the request ends with failure::disconnected, or, if
/// it is repeatable, goes out again.
template <class Reply, class Token = use_future_t>
auto request(keeper & by, tavMessage const & msg, within const & terms, Token && token = use_future_t()) {
    static_assert(detail::is_whole<Reply>, "tav::kit::request<Reply>: Reply has to override "
                                           "traverse(tavCodecStream &), which is not const");
    static_assert(
        !detail::is_whole<Reply> || detail::is_message<Reply>,
        "tav::kit::request<Reply>: Reply is the message class of the reply, with a default constructor");
    if constexpr (detail::is_message<Reply>) {
        constexpr bool may_block = detail::may_block<std::decay_t<Token>>;
        return detail::begin_request<Reply>(keeper_route(by, true, may_block), msg, Reply().msgcode(), terms,
                                            std::forward<Token>(token));
    }
}

/// The same for a message that the peer confirms by a receipt.
template <class Token = use_future_t>
auto send(keeper & by, tavMessage const & msg, within const & terms, Token && token = use_future_t()) {
    constexpr bool may_block = detail::may_block<std::decay_t<Token>>;
    return detail::begin_request<void>(keeper_route(by, true, may_block), msg, msg.msgcode(), terms,
                                       std::forward<Token>(token));
}

/// The same for a message that nobody answers: it ends well when it has been handed to a connection.
template <class Token = use_future_t>
auto post(keeper & by, tavMessage const & msg, within const & terms, Token && token = use_future_t()) {
    constexpr bool may_block = detail::may_block<std::decay_t<Token>>;
    return detail::begin_request<void>(keeper_route(by, false, may_block), msg, msg.msgcode(), terms,
                                       std::forward<Token>(token));
}

/// Sends `msg` now or with the next connection, without a limit, and waits for nothing.  Fails if it was not
/// even taken into the outbox.
inline result<void> send(keeper & by, tavMessage const & msg) {
    std::future<result<void>> ended = post(by, msg, within(std::chrono::hours::max()));
    bool const told = ended.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    return told ? ended.get() : result<void>();
}

/// A login that sends `msg` and has succeeded when the reply has come in time and `accepts` says so; without
/// `accepts` any reply will do.
template <class Reply, class Message>
login_function login_with(Message const & msg, within const & terms,
                          std::function<bool(Reply const &)> accepts = nullptr) {
    return [msg, terms, accepts](tls::client & client, login_end const & end) {
        request<Reply>(client, msg, terms, [end, accepts](result<Reply> const & reply) {
            if (!reply) {
                end(reply.error());
            } else if (accepts && !accepts(*reply)) {
                end(failure::login_refused);
            } else {
                end(result<void>());
            }
        });
    };
}

} // namespace kit
} // namespace tav

#endif
