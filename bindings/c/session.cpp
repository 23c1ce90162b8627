#include "bindings/c/session.h"

#include "bindings/c/report.h"

#include <chrono>
#include <limits>
#include <new>
#include <utility>

namespace tav {
namespace json_client {

namespace {

using tls::failure;

/// For those who use what is to end.
constexpr std::chrono::milliseconds patience(1000);

Failure lastFailure() {
    auto const why = static_cast<failure>(tls::last_failure().value());
    // What a template has encoded is sound, so only bytes of the request's own can be wrong.
    return failureOf(why == failure::none ? failure::other : why, std::string(),
                     why == failure::encoding_failed ? "body" : "");
}

/// Without memory for the words the answer that the ticket was made with has to do.
template <class Why>
void failFor(Ticket & ticket, Why const & why) noexcept {
    try {
        ticket.fail(why());
    } catch (std::bad_alloc const &) {
        // It goes with the ticket.
    }
}

} // namespace

std::shared_ptr<Session> Session::create(std::string const & name) {
    auto made = std::make_shared<Session>(name);
    made->listenToOld();
    return made;
}

Session::Session(std::string const & name) : client_(std::make_unique<tls::client>(tav_istr(name))) {}

std::shared_ptr<Template const> Session::messages() const {
    std::lock_guard<std::mutex> const guard(mutex_);
    return messages_;
}

std::shared_ptr<tls::client> Session::client() const {
    std::lock_guard<std::mutex> const guard(mutex_);
    return client_.share();
}

std::shared_ptr<Kept> Session::kept() const {
    std::lock_guard<std::mutex> const guard(mutex_);
    return kept_.share();
}

Session::Ways Session::ways() const {
    std::lock_guard<std::mutex> const guard(mutex_);
    return Ways{kept_.share(), line_.share(), left_, messages_};
}

Session::Line & Session::lineOf(Ways const & by) {
    if (!by.line) {
        throw failureOf(failure::not_connected);
    }
    return *by.line;
}

LastOwner<Session::Line> Session::newLine() const {
    return LastOwner<Line>(std::make_unique<Line>(Line{client()}));
}

void Session::openLine(Era era) {
    LastOwner<Line> line = newLine();
    std::lock_guard<std::mutex> const guard(mutex_);
    if (era == era_) {
        line_ = std::move(line);
    }
}

bool Session::send(std::string_view request) {
    Document document;
    Failure fault(0, std::string(), std::string());
    bool const good = document.read(request, fault);
    unsigned const extra = document.member(Document::root, "@extra");
    std::string kept = extra != 0 ? std::string(document.raw(extra)) : std::string();
    if (!outbox_->begin()) {
        return false;
    }
    TicketPtr ticket;
    try {
        ticket = std::make_shared<Ticket>(outbox_, std::move(kept));
    } catch (std::bad_alloc const &) {
        outbox_->forget();
        throw;
    }
    try {
        if (!good) {
            throw fault;
        }
        std::string const type = readType(document);
        Fields fields(document, Document::root);
        fields.pass("@type");
        fields.pass("@extra");
        serve(ticket, fields, type);
    } catch (Failure const & e) {
        ticket->fail(e);
    } catch (std::bad_alloc const &) {
        failFor(*ticket, [] { return failureOf(failure::out_of_memory); });
    } catch (std::exception const & e) {
        failFor(*ticket, [&e] { return failureOf(failure::other, wordsOf(e)); });
    }
    return true;
}

void Session::serve(TicketPtr const & ticket, Fields & fields, std::string_view type) {
    std::string text;
    if (type == "connect") {
        auto wish = std::make_shared<ConnectWish>(readConnect(fields));
        int const limit_ms = wish->limit_ms;
        connect(ticket, std::move(wish), limit_ms);
    } else if (type == "reconnect") {
        reconnect(ticket, fields);
    } else if (type == "disconnect") {
        disconnect(ticket, fields);
    } else if (type == "send") {
        sendOrRequest(ticket, fields, false);
    } else if (type == "request") {
        sendOrRequest(ticket, fields, true);
    } else if (serveAtOnce(this, fields, type, ticket->extra(), text)) {
        ticket->answer(std::move(text));
    } else {
        throw Failure(code_unknown_type, "unknown_type", "@type: there is no request " + std::string(type),
                      "@type");
    }
}

void Session::leaveInLock() {
    // Ahead of all changes: without memory for them nothing has happened.
    std::string const connection = up_ ? disconnectedText(failure::cancelled, std::string()) : std::string();
    std::string kept;
    if (keeping_) {
        kit::keeper_status status;
        status.cause = make_error_code(failure::cancelled);
        status.to = kept_to_;
        kept = keeperText(status);
    }
    ++era_;
    left_->store(true);
    if (up_) {
        up_ = false;
        outbox_->event(connection);
    }
    if (keeping_) {
        keeping_ = false;
        outbox_->event(std::move(kept));
    }
    outbox_->stir();
}

void Session::connect(TicketPtr const & ticket, std::shared_ptr<ConnectWish const> wish, int limit_ms) {
    auto const left = std::make_shared<std::atomic<bool>>(false);
    std::shared_ptr<Call> call;
    std::lock_guard<std::mutex> const turn(turn_);
    std::shared_ptr<tls::client> client;
    LastOwner<Kept> before;
    LastOwner<Line> line;
    Era era = 0;
    bool replaces = false;
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        if (!client_) {
            throw failureOf(failure::closed);
        }
        if (attempt_) {
            throw failureOf(failure::busy);
        }
        client = client_.share();
        replaces = up_;
        call = std::make_shared<Call>(ticket, left, portField(*wish, kit::gateway()));
        leaveInLock();
        left_ = left;
        era = era_;
        attempt_ = call;
        wish_ = wish;
        messages_ = wish->messages;
        before = std::move(kept_);
        line = std::move(line_);
    }
    // What is being handed over goes by the connection that it was meant for.
    Until const until = LastOwner<Line>::Clock::now() + patience;
    line.end(until);
    letGo(before, until);
    if (replaces) {
        client->close();
    }
    try {
        if (wish->keeper) {
            keep(client, *wish, limit_ms, era, left);
            return;
        }
        openLine(era);
        std::shared_ptr<tls::connect_info> const info = client->start(optionFor(*wish, limit_ms, era));
        if (!info) {
            throw lastFailure();
        }
        call->known(info);
    } catch (...) {
        takeAttempt(era);
        throw;
    }
}

void Session::reconnect(TicketPtr const & ticket, Fields & fields) {
    int const limit_ms = readLimit(fields);
    fields.finish();
    std::shared_ptr<ConnectWish const> wish;
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        wish = wish_;
    }
    if (!wish) {
        throw failureOf(failure::not_connected, "there was no connect that could be made again");
    }
    connect(ticket, std::move(wish), limit_ms);
}

void Session::disconnect(TicketPtr const & ticket, Fields & fields) {
    fields.finish();
    std::lock_guard<std::mutex> const turn(turn_);
    std::shared_ptr<tls::client> client;
    LastOwner<Kept> kept;
    LastOwner<Line> line;
    std::shared_ptr<Call> attempt;
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        client = client_.share();
        kept = std::move(kept_);
        line = std::move(line_);
        attempt.swap(attempt_);
        leaveInLock();
    }
    Until const until = LastOwner<Line>::Clock::now() + patience;
    line.end(until);
    letGo(kept, until);
    if (client) {
        client->close();
    }
    if (attempt) {
        attempt->ticket().fail(failureOf(failure::cancelled));
    }
    ticket->answer(ObjectText("ok", ticket->extra()).take());
}

void Session::sendOrRequest(TicketPtr const & ticket, Fields & fields, bool request) {
    SendWish wish;
    Ways by;
    std::shared_ptr<Template const> messages;
    do {
        // Others wait for who is on the way, and not for who still reads.
        by = Ways();
        messages = this->messages();
        wish = readSend(fields, request, messages);
        by = ways();
    } while (by.messages != messages);
    if (by.kept && !wish.isOld()) {
        by.line.reset();
        sendKept(ticket, by, wish);
        return;
    }
    if (wish.reply != no_code) {
        sendTracked(ticket, by, wish);
        return;
    }
    tls::client & client = *lineOf(by).client;
    tls::send_option option(0, tls::timedout_function(), wish.grey, wish.version);
    tav_istr const body(wish.out.body);
    if (wish.isOld()) {
        client.send_old_nbr_msg(static_cast<unsigned char>(wish.out.code), body, tav_istr(wish.target));
    } else {
        client.send_nbr_msg(wish.out.code, wish.out.body.data(), wish.out.body.size(), option);
    }
    if (tls::last_failure()) {
        throw lastFailure();
    }
    ticket->answer(ObjectText("ok", ticket->extra()).take());
}

void Session::sendTracked(TicketPtr const & ticket, Ways const & by, SendWish const & wish) {
    tls::client & client = *lineOf(by).client;
    tls::send_option option(wish.limit_ms, tls::timedout_function(), wish.grey, wish.version);
    option.ack = wish.reply;
    auto const call = std::make_shared<Call>(ticket, by.left);
    option.set_on_timedout([call](unsigned long long, unsigned short, bool cancelled) {
        call->ended(cancelled ? failure::cancelled : failure::timed_out, std::string());
    });
    option.set_nbr_ack_callback([call, receipt = wish.receipt, templates = by.messages](
                                    unsigned long long sno, unsigned short reply, unsigned char const * data,
                                    unsigned size, tavMsgExt const & ext) {
        answerReply(call->ticket(), receipt, Came{sno, reply, tav_istr(data, size), ext}, templates);
    });
    std::shared_ptr<tls::send_info> const info =
        client.send_nbr_msg(wish.out.code, wish.out.body.data(), wish.out.body.size(), option);
    if (!info) {
        ticket->fail(lastFailure());
        return;
    }
    call->known(info);
}

tls::connect_option Session::plainOption(ConnectWish const & wish, Era era) {
    tls::connect_option option = wish.option;
    auto const weak = weak_from_this();
    option.set_nbr_msg_callback([weak, era](unsigned long long sno, unsigned short code,
                                            unsigned char const * data, unsigned size,
                                            tavMsgExt const & ext) {
        if (auto const self = weak.lock()) {
            self->onMessage(era, Came{sno, code, tav_istr(data, size), ext});
        }
    });
    option.limits.on_queue = [weak](bool full) {
        if (auto const self = weak.lock()) {
            self->outbox_->event(ObjectText("queue", std::string()).flag("full", full).take());
        }
    };
    return option;
}

tls::connect_option Session::optionFor(ConnectWish const & wish, int limit_ms, Era era) {
    tls::connect_option option = plainOption(wish, era);
    auto const weak = weak_from_this();
    option.timedout.wait_ms(limit_ms);
    option.timedout.set_on_timedout([weak, era](unsigned long long, unsigned short, bool cancelled) {
        if (auto const self = weak.lock()) {
            self->onTimedOut(era, cancelled);
        }
    });
    option.set_on_open([weak, era, heartbeat = wish.heartbeat] {
        if (auto const self = weak.lock()) {
            self->heard_ = era;
            self->onOpen(era, heartbeat);
        }
    });
    option.set_on_error([weak, era](unsigned long long, unsigned short, int code, char const * text) {
        if (auto const self = weak.lock()) {
            self->onError(era, code, text);
        }
    });
    option.set_on_heartbeat_timedout([weak, era] {
        if (auto const self = weak.lock()) {
            self->onSilence(era);
        }
    });
    if (auto const through = option.on_http_proxy_connect_) {
        option.set_on_http_proxy_connect(
            [weak, era, through](unsigned socket, char const * host, unsigned short port) {
                int const result = through(socket, host, port);
                auto const self = weak.lock();
                if (result != 0 && self) {
                    self->onProxyRefused(era);
                }
                return result;
            });
    }
    return option;
}

std::shared_ptr<Call> Session::takeAttempt(Era era) {
    std::lock_guard<std::mutex> const guard(mutex_);
    return era == era_ ? std::move(attempt_) : nullptr;
}

void Session::onOpen(Era era, bool heartbeat) {
    auto const client = this->client();
    if (!client) {
        return;
    }
    client->should_check_heartbeat(heartbeat);
    std::string text = connectedText(*client);
    LastOwner<Line> line = newLine();
    std::lock_guard<std::mutex> const guard(mutex_);
    if (era != era_ || (!attempt_ && !kept_)) {
        return;
    }
    outbox_->event(std::move(text));
    up_ = true;
    if (!line_) {
        line_ = std::move(line);
    }
    answerAttemptInLock();
}

void Session::answerAttemptInLock() {
    if (attempt_) {
        Ticket & ticket = attempt_->ticket();
        ticket.answer(ObjectText("ok", ticket.extra()).take());
        attempt_.reset();
    }
}

bool Session::isUp() const {
    std::lock_guard<std::mutex> const guard(mutex_);
    return up_;
}

bool Session::isUp(Era era) const {
    std::lock_guard<std::mutex> const guard(mutex_);
    return era == era_ && up_;
}

bool Session::broken(Era era, failure why, std::string const & text) {
    // Ahead of the change: without memory for it nothing has happened.
    std::string told = disconnectedText(why, text);
    std::lock_guard<std::mutex> const guard(mutex_);
    if (era != era_ || !up_) {
        return false;
    }
    outbox_->event(std::move(told));
    up_ = false;
    return true;
}

void Session::onError(Era era, int code, std::string const & text) {
    constexpr int failed_completion = 10;
    auto const named = static_cast<failure>(tls::last_failure().value());
    failure const why = named != failure::none ? named : failure::connection_lost;
    auto const client = this->client();
    if (!client) {
        return;
    }
    if (code == failed_completion && isUp(era)) {
        // Nothing is read of such a connection any more.
        client->close();
    }
    if (!broken(era, why, text)) {
        if (auto const attempt = takeAttempt(era)) {
            attempt->ended(why, text);
        }
    }
}

void Session::onTimedOut(Era era, bool cancelled) {
    if (!cancelled) {
        abandon(era);
    }
    if (auto const attempt = takeAttempt(era)) {
        attempt->ended(cancelled ? failure::cancelled : failure::timed_out, std::string());
    }
}

// The attempt would go on behind its answer.  It stays the one under way meanwhile, so that no other one is
// closed in its place.
void Session::abandon(Era era) {
    std::shared_ptr<tls::client> client;
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        if (era == era_ && attempt_) {
            client = client_.share();
        }
    }
    if (client) {
        client->close();
    }
}

void Session::onSilence(Era era) {
    broken(era, failure::peer_silent, std::string());
}

void Session::onProxyRefused(Era era) {
    abandon(era);
    if (auto const attempt = takeAttempt(era)) {
        attempt->ticket().fail(failureOf(failure::proxy_refused));
    }
}

void Session::listenToOld() {
    client()->set_old_msg_default_callback(
        [weak = weak_from_this()](unsigned long long sno, unsigned short code, unsigned char const * data,
                                  unsigned size, tavMsgExt const & ext) {
            if (auto const self = weak.lock()) {
                self->onMessage(self->heard_, Came{sno, code, tav_istr(data, size), ext});
            }
        });
}

// What the connection before has left is not told behind its end, nor read by the template of this one.
void Session::onMessage(Era era, Came const & came) {
    std::shared_ptr<Template const> templates;
    std::shared_ptr<tls::client> client;
    std::size_t most = 0;
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        if (era != era_) {
            return;
        }
        templates = messages_;
        client = client_.share();
        most = wish_ ? wish_->option.limits.received_waiting : 0;
    }
    ObjectText text("push", std::string());
    text.number("sno", came.sno);
    putExt(text, came.ext);
    putMessage(text, came.code, came.body, templates);
    if (most != 0) {
        // Who limits what waits has the gateway held back, which the client does while this callback lasts.
        outbox_->waitForRoom(most, [&] {
            std::lock_guard<std::mutex> const guard(mutex_);
            return era == era_ && up_ && client_ && client && client->connected();
        });
    }
    std::lock_guard<std::mutex> const guard(mutex_);
    if (era == era_) {
        outbox_->event(text.take());
    }
}

bool Session::end() noexcept {
    if (!outbox_->end()) {
        return false;
    }
    std::lock_guard<std::mutex> const turn(turn_);
    LastOwner<tls::client> client;
    LastOwner<Kept> kept;
    LastOwner<Line> line;
    std::shared_ptr<Call> attempt;
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        client = std::move(client_);
        kept = std::move(kept_);
        line = std::move(line_);
        attempt.swap(attempt_);
        try {
            leaveInLock();
        } catch (std::bad_alloc const &) {
            // The word of the end is "closed".
        }
    }
    Until const until = LastOwner<Line>::Clock::now() + patience;
    letGo(kept, until);
    if (client) {
        client.share()->close();
    }
    line.end(until);
    // A callback is to be the last to hold it as a last resort alone: the client's end would wait for its own
    // thread, so another one has to be made for it.
    client.end(until);
    if (attempt) {
        attempt->ticket().fail(failureOf(failure::cancelled));
        attempt.reset();
    }
    outbox_->close();
    return true;
}

} // namespace json_client
} // namespace tav
