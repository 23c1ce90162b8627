#include "bindings/c/report.h"
#include "bindings/c/session.h"

#include <new>
#include <utility>

// What a session does by a keeper.
namespace tav {
namespace json_client {

using tls::failure;

void Session::keep(std::shared_ptr<tls::client> const & client, ConnectWish const & wish, int limit_ms,
                   Era era, Call::Left const & left) {
    auto const weak = weak_from_this();
    kit::keeper_option how = wish.keeper->option;
    how.connect_limit = std::chrono::milliseconds(limit_ms);
    how.heartbeat = wish.heartbeat;
    // The keeper's work holds the client too, however late its thread comes to an end.
    how.on_state = [weak, era, client](kit::keeper_status const & status) {
        if (auto const self = weak.lock()) {
            self->onKept(era, status);
        }
    };
    if (auto const login = wish.keeper->login) {
        auto const good = [weak, login](unsigned long long sno, tav_istr body, tavMsgExt const & ext) {
            if (auto const self = weak.lock()) {
                ObjectText text("logged_in", std::string());
                text.number("sno", sno);
                putExt(text, ext);
                putMessage(text, login->reply, body, login->messages);
                self->outbox_->event(text.take());
            }
        };
        how.login = loginOf(login, good);
    }
    tls::connect_option option = plainOption(wish, era);
    option.set_on_error([weak, era](unsigned long long, unsigned short, int, char const * text) {
        if (auto const self = weak.lock()) {
            self->noteCause(era, text);
        }
    });
    option.set_on_open([weak, era, heartbeat = wish.heartbeat] {
        if (auto const self = weak.lock()) {
            self->onOpen(era, heartbeat);
        }
    });
    how.on_open = [weak, era] {
        if (auto const self = weak.lock()) {
            self->heard_ = era;
        }
    };
    LastOwner<Kept> made(std::make_unique<Kept>(client, option, how, left));
    std::lock_guard<std::mutex> const guard(mutex_);
    // Nobody sends by it before that; one that can't start is nobody's.
    made.share()->keeper.start();
    keeping_ = true;
    kept_ = std::move(made);
}

void Session::noteCause(Era era, std::string const & text) {
    std::lock_guard<std::mutex> const guard(mutex_);
    if (era == era_) {
        cause_ = text;
        cause_is_old_ = false;
    }
}

std::string Session::cause() const {
    std::lock_guard<std::mutex> const guard(mutex_);
    return cause_;
}

void Session::onKept(Era era, kit::keeper_status const & status) {
    LastOwner<Line> line;
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        if (era != era_) {
            return;
        }
        if (status.state != kit::keeper_state::up) {
            line = std::move(line_);
        }
        tellKeptInLock(status);
    }
    // The next connection waits for who is about to send by this one, which would be ahead of its login.
    constexpr std::chrono::milliseconds patience(500);
    line.end(LastOwner<Line>::Clock::now() + patience);
}

void Session::tellKeptInLock(kit::keeper_status const & status) {
    bool const ended = status.state == kit::keeper_state::stopped;
    keeping_ = !ended;
    if (cause_is_old_ && (ended || status.state == kit::keeper_state::waiting)) {
        cause_.clear();
    }
    kept_to_ = status.to;
    Failure why = keeperFailure(status.cause, false, cause_);
    if (status.cause == failure::bad_address) {
        why.field = portField(*wish_, status.to);
    }
    if (up_ && status.state != kit::keeper_state::up) {
        up_ = false;
        ObjectText text("disconnected", std::string());
        text.number("code", why.code).text("name", why.name).text("text", why.text);
        outbox_->event(text.take());
        outbox_->stir();
    }
    outbox_->event(keeperText(status, cause_));
    if (status.state == kit::keeper_state::connecting || status.state == kit::keeper_state::up) {
        // The next failure has words of its own.
        cause_is_old_ = true;
    }
    if (ended && attempt_) {
        attempt_->ticket().fail(why);
        attempt_.reset();
    } else if (status.state == kit::keeper_state::waiting) {
        answerAttemptInLock();
    }
}

void Session::sendKept(TicketPtr const & ticket, Ways const & by, SendWish const & wish) {
    unsigned short const reply = wish.reply;
    bool const awaits = reply != no_code;
    auto const ended = [ticket, awaits, receipt = wish.receipt, reply, left = by.left,
                        templates = by.messages](std::error_code why, kit::detail::arrival const & came) {
        if (why) {
            ticket->fail(keeperFailure(why, *left));
        } else if (!awaits) {
            ticket->answer(ObjectText("ok", ticket->extra()).take());
        } else {
            Came const what{came.sno, reply, tav_istr(came.data, came.size), *came.ext};
            answerReply(*ticket, receipt, what, templates);
        }
    };
    auto const one = std::make_shared<kit::detail::exchange>(ended, nullptr);
    kit::detail::packed const msg(wish.out.code, wish.out.body);
    kit::within terms{std::chrono::milliseconds(wish.limit_ms)};
    terms.grey(wish.grey).version(wish.version).repeatable(wish.repeats);
    // The sender of a request waits for nothing: what has to wait for room does so by itself.
    kit::keeper_route(by.kept->keeper, awaits, false).begin(one, msg, reply, terms);
}

void answerReply(Ticket & to, bool receipt, Came const & came,
                 std::shared_ptr<Template const> const & messages) noexcept {
    try {
        ObjectText text(receipt ? "receipt" : "reply", to.extra());
        text.number("sno", came.sno);
        putExt(text, came.ext);
        if (receipt && came.body.empty()) {
            // It confirms, and says no more.
            text.number("code", came.code).raw("message", "{}");
        } else {
            putMessage(text, came.code, came.body, messages);
        }
        to.answer(text.take());
    } catch (std::bad_alloc const &) {
        to.fail(failureOf(failure::out_of_memory));
    }
}

} // namespace json_client
} // namespace tav
