#include "tools/live.h"

#include "tools/command.h"
#include "tools/failure.h"
#include "tools/nbr_reader.h"
#include "tools/terminal_text.h"

#include <tav/vinta/vinta_json2nbr.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <stdexcept>

namespace tav {
namespace tool {

namespace {

/// Of pushes that wait to be printed.
constexpr std::size_t mostBytes = 16 * 1024 * 1024;
constexpr std::size_t mostEvents = 10000;
/// Of a connection: so much waits to be sent or printed, and not more.
constexpr unsigned mostQueued = 1000;
constexpr unsigned long long mostQueuedBytes = 32 * 1024 * 1024;

/// Finds out whether a body can be read at all.
class NoVisitor : public NbrVisitor {
public:
    void simple(NbrValue const &) override {}
    void open(NbrValue const &) override {}
    void close(std::size_t) override {}
};

/// The library's JSON with the controls that it writes as they are, NUL and those from 127 to 159, as
/// escapes.
std::string withEscapes(std::string_view json) {
    std::string text;
    text.reserve(json.size());
    while (!json.empty()) {
        Character const c = characterOf(json);
        std::size_t const size = std::max<std::size_t>(c.size, 1);
        if (c.size != 0 && (c.number == 0 || (c.number >= 127 && c.number < 160))) {
            char escape[8];
            std::snprintf(escape, sizeof(escape), "\\u%04x", static_cast<unsigned>(c.number));
            text += escape;
        } else {
            text += json.substr(0, size);
        }
        json.remove_prefix(size);
    }
    return text;
}

int millisecondsTo(Live::Clock::time_point until) {
    constexpr int longest = 60000;
    auto const left =
        std::chrono::duration_cast<std::chrono::milliseconds>(until - Live::Clock::now()).count();
    return left < 0 ? 0 : left >= longest ? longest : static_cast<int>(left) + 1;
}

std::string placeOf(kit::gateway const & to) {
    bool const braced = to.host.find(':') != std::string::npos;
    return (braced ? "[" + to.host + "]" : to.host) + ":" + to.port;
}

std::string wordOf(kit::keeper_state state) {
    switch (state) {
    case kit::keeper_state::connecting: return "connecting";
    case kit::keeper_state::up: return "up";
    case kit::keeper_state::waiting: return "waiting";
    case kit::keeper_state::stopped: break;
    }
    return "stopped";
}

/// Whether the command line is what was wrong.
bool isBadUse(std::error_code why) {
    return why == tls::failure::bad_address || why == tls::failure::bad_policy;
}

tls::nbr_function taking(std::shared_ptr<LiveQueue> const & queue) {
    return [queue](unsigned long long sequence, unsigned short code, unsigned char const * data,
                   unsigned size, tavMsgExt const &) {
        LiveEvent event;
        event.kind = LiveEvent::Kind::push;
        event.code = code;
        event.sequence = sequence;
        event.body.assign(reinterpret_cast<char const *>(data), size);
        queue->put(std::move(event));
    };
}

} // namespace

std::map<std::string, Reconnect> const & reconnectNames() {
    static std::map<std::string, Reconnect> const names = {
        {"never", Reconnect::never}, {"auto", Reconnect::automatic}, {"always", Reconnect::always}};
    return names;
}

void addLiveOptions(CLI::App & app, LiveOptions & options) {
    addConnectionOptions(app, options.connection);
    addChoice(app, "--reconnect", options.reconnect, reconnectNames(),
              "when to connect again; auto: once there was a connection");
    app.add_flag("--json", options.json, "print an object for all that happens, each on a line");
}

LiveQueue::LiveQueue() : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (fd_ < 0) {
        throw systemFailure("events", "no descriptor", errno);
    }
}

LiveQueue::~LiveQueue() {
    ::close(fd_);
}

bool LiveQueue::hasRoom() const {
    return bytes_ < mostBytes && events_.size() < mostEvents;
}

void LiveQueue::put(LiveEvent event) {
    std::unique_lock<std::mutex> guard(mutex_);
    if (event.kind == LiveEvent::Kind::push) {
        room_.wait(guard, [&] { return closed_ || hasRoom(); });
    }
    if (closed_) {
        return;
    }
    bytes_ += event.body.size();
    events_.push_back(std::move(event));
    unsigned long long const one = 1;
    ssize_t const written = ::write(fd_, &one, sizeof(one));
    static_cast<void>(written);
}

bool LiveQueue::take(LiveEvent & event) {
    std::lock_guard<std::mutex> const guard(mutex_);
    auto next = events_.begin();
    if (connecting_ && hasRoom()) {
        next = std::find_if(next, events_.end(), [this](LiveEvent const & one) {
            return one.kind == LiveEvent::Kind::state || events_.front().kind != LiveEvent::Kind::push;
        });
    }
    if (next == events_.end()) {
        unsigned long long count = 0;
        ssize_t const got = ::read(fd_, &count, sizeof(count));
        static_cast<void>(got);
        return false;
    }
    event = std::move(*next);
    events_.erase(next);
    bytes_ -= event.body.size();
    if (event.kind == LiveEvent::Kind::state) {
        connecting_ = event.status.state == kit::keeper_state::connecting;
    }
    room_.notify_all();
    return true;
}

void LiveQueue::close() {
    std::lock_guard<std::mutex> const guard(mutex_);
    closed_ = true;
    room_.notify_all();
}

void LiveQueue::cause(std::string text) {
    std::lock_guard<std::mutex> const guard(mutex_);
    cause_ = std::move(text);
}

std::string LiveQueue::cause() {
    std::lock_guard<std::mutex> const guard(mutex_);
    return std::move(cause_);
}

Live::Live(LiveOptions const & options, Template const & model, Output & output)
    : options_(options),
      model_(model),
      output_(output),
      queue_(std::make_shared<LiveQueue>()),
      wasUp_(std::make_shared<std::atomic<bool>>(false)) {
    tls::connect_option option = connectOption(options.connection);
    option.limits.queued_frames = mostQueued;
    option.limits.queued_bytes = mostQueuedBytes;
    option.limits.received_waiting = mostQueued;
    option.set_nbr_msg_callback(taking(queue_));
    option.set_on_error(
        [queue = queue_](unsigned long long, unsigned short, int, char const * text) { queue->cause(text); });
    keeper_ = std::make_unique<kit::keeper>(option, how(), "tav");
    keeper_->client().set_old_msg_default_callback(taking(queue_));
    output_.endsBy(&interrupts_);
}

Live::~Live() {
    output_.endsBy(nullptr);
    queue_->close();
    keeper_->stop();
}

kit::keeper_option Live::how() {
    kit::keeper_option made;
    made.connect_limit = std::chrono::milliseconds(options_.connection.timeoutMs);
    made.give_up = [reconnect = options_.reconnect, wasUp = wasUp_](kit::keeper_status const &) {
        return reconnect == Reconnect::never || (reconnect == Reconnect::automatic && !*wasUp);
    };
    made.on_state = [queue = queue_, wasUp = wasUp_](kit::keeper_status const & status) {
        *wasUp = *wasUp || status.state == kit::keeper_state::up;
        LiveEvent event;
        event.status = status;
        if (status.state == kit::keeper_state::waiting || status.state == kit::keeper_state::stopped) {
            event.text = queue->cause();
        }
        queue->put(std::move(event));
    };
    return made;
}

bool Live::connect(Clock::time_point until) {
    keeper_->start();
    while (!gone_ && state_ != kit::keeper_state::up && Clock::now() < until) {
        serve(-1, until);
    }
    return state_ == kit::keeper_state::up;
}

void Live::put(Message const & message, unsigned short reply, unsigned long long number) {
    ++begun_;
    bool const awaits = reply != Message::noCode;
    auto const ended = [queue = queue_, number, reply, awaits](std::error_code why,
                                                               kit::detail::arrival const & came) {
        LiveEvent event;
        event.kind = LiveEvent::Kind::ended;
        event.number = number;
        event.why = why;
        event.replied = !why && awaits;
        if (event.replied) {
            event.code = reply;
            event.sequence = came.sno;
            event.body.assign(reinterpret_cast<char const *>(came.data), came.size);
        }
        queue->put(std::move(event));
    };
    auto const one = std::make_shared<kit::detail::exchange>(ended, nullptr);
    kit::detail::packed const packed(message.code, message.nbr);
    kit::within terms{std::chrono::milliseconds(options_.connection.timeoutMs)};
    terms.repeatable(options_.repeat);
    kit::keeper_route(*keeper_, awaits, false).begin(one, packed, reply, terms);
}

bool Live::drain() {
    bool any = false;
    // So many pushes that they are not held back may be here ahead of the word that the connection is up.
    auto const over = [this] { return pushes_ >= mostPushes_ && state_ == kit::keeper_state::up; };
    for (LiveEvent event; !over() && queue_->take(event);) {
        show(event);
        any = true;
        if (interrupts_.signal() != 0) {
            break;
        }
    }
    output_.flush();
    return any;
}

bool Live::serve(int fd, Clock::time_point until) {
    // What was shown may be what the caller waits for.
    if (drain() && interrupts_.signal() == 0) {
        return false;
    }
    // What reads the output has gone, though there is nothing to be written to it.
    pollfd what[] = {
        {interrupts_.fd(), POLLIN, 0}, {queue_->fd(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}, {fd, POLLIN, 0}};
    int const ready = ::poll(what, 4, millisecondsTo(until));
    if (interrupts_.signal() != 0) {
        throw Interrupted{interrupts_.signal()};
    }
    // A socket says so by a hang-up alone, a pipe by an error.
    if (ready > 0 && (what[2].revents & (POLLERR | POLLHUP)) != 0) {
        std::raise(SIGPIPE);
    }
    drain();
    return ready > 0 && what[3].revents != 0;
}

void Live::finish() {
    auto const limit = Clock::now() + std::chrono::milliseconds(options_.connection.timeoutMs);
    while (underWay() > 0) {
        serve(-1, Clock::time_point::max());
    }
    constexpr std::chrono::milliseconds again(5);
    while (!gone_ && keeper_->client().statistics().queued_frames > 0 && Clock::now() < limit) {
        serve(-1, Clock::now() + again);
    }
    drain();
    tls::statistics const all = keeper_->client().statistics();
    unsigned long long const others = all.heartbeats_sent + all.receipts_sent;
    unsigned long long const written = all.frames_sent > others ? all.frames_sent - others : 0;
    if (taken_ > written) {
        output_.tell("tav: " + toldFailure(tls::make_error_code(tls::failure::connection_lost)) + ": " +
                     std::to_string(taken_ - written) + " messages did not go out\n");
        code_ = exitNetwork;
    }
}

void Live::show(LiveEvent const & event) {
    switch (event.kind) {
    case LiveEvent::Kind::state: showState(event); return;
    case LiveEvent::Kind::ended: showEnd(event); return;
    case LiveEvent::Kind::push: break;
    }
    if (pushes_ < mostPushes_) {
        ++pushes_;
        if (!options_.repliesAlone) {
            showMessage("push", event);
        }
    }
}

void Live::showState(LiveEvent const & event) {
    kit::keeper_status const & now = event.status;
    state_ = now.state;
    std::string const place = placeOf(now.to);
    std::string const why = toldFailure(now.cause, event.text);
    bool const failed = now.state == kit::keeper_state::waiting || now.state == kit::keeper_state::stopped;
    if (options_.json && now.state != kit::keeper_state::connecting) {
        output_.line(
            "{\"event\":\"" + wordOf(now.state) + "\",\"host\":" + jsonText(now.to.host) +
            ",\"port\":" + jsonText(now.to.port) +
            (failed ? ",\"failure\":\"" + nameOf(now.cause) + "\",\"text\":" +
                          jsonText(now.cause.message() + (event.text.empty() ? "" : " (" + event.text + ")"))
                    : "") +
            "}");
    }
    if (now.state == kit::keeper_state::stopped) {
        gone_ = true;
        code_ = isBadUse(now.cause) ? exitUse : exitNetwork;
        output_.tell("tav: " + place + ": " + why + "\n");
    } else if (now.state == kit::keeper_state::waiting) {
        broke_ = true;
        output_.tell("tav: " + place + ": " + why + "; it is tried again\n");
    } else if (now.state == kit::keeper_state::up && (broke_ || options_.tellsUp)) {
        output_.tell("tav: " + place + ": connected\n");
    }
}

void Live::showEnd(LiveEvent const & event) {
    ++ended_;
    if (event.replied) {
        ++taken_;
        showMessage("reply", event);
    } else if (event.why) {
        code_ = code_ == exitUse ? code_ : exitNetwork;
        if (options_.json) {
            output_.line("{\"event\":\"failed\",\"number\":" + std::to_string(event.number) +
                         ",\"failure\":\"" + nameOf(event.why) +
                         "\",\"text\":" + jsonText(event.why.message()) + "}");
        }
        output_.tell("tav: message " + std::to_string(event.number) + ": " + toldFailure(event.why) + "\n");
    } else {
        ++taken_;
        if (options_.json) {
            output_.line("{\"event\":\"sent\",\"number\":" + std::to_string(event.number) + "}");
        }
    }
}

void Live::showMessage(std::string const & kind, LiveEvent const & event) {
    std::string text;
    try {
        text = jsonOf(event.code, event.body, model_);
    } catch (std::invalid_argument const & e) {
        code_ = code_ == exitGood ? exitFound : code_;
        output_.tell("tav: " + kind + " " + codeText(event.code) +
                     ": bad_reply: it is not what its class says: " + reasonOf(e) + "\n");
        return;
    }
    if (!options_.json) {
        output_.line(text);
        return;
    }
    output_.line("{\"event\":\"" + kind + "\"" +
                 (event.number == 0 ? "" : ",\"number\":" + std::to_string(event.number)) + ",\"code\":\"" +
                 codeText(event.code) + "\",\"sequence\":" + std::to_string(event.sequence) +
                 ",\"message\":" + text + "}");
}

std::string jsonOf(unsigned short code, std::string_view body, Template const & model) {
    pml::MetaClass const * const cls = model.factory->findClass(code);
    if (cls == nullptr) {
        tavBytes const bytes(istrOf(body));
        tavString base64;
        bytes.toBase64(base64);
        return "{ \"__code__\":\"" + codeText(code) + "\", \"bytes\":\"" + stringOf(base64) + "\" }";
    }
    if (body.empty()) {
        return "{ \"__class__\":" + jsonText(stringOf(cls->className)) + " }";
    }
    NoVisitor none;
    NbrFault fault;
    if (!readNbr(body, none, fault)) {
        throw std::invalid_argument("byte " + std::to_string(fault.offset) + ": " + fault.text);
    }
    tavString text;
    json2nbr::read(text, istrOf(body), cls->className, *model.factory, false);
    return withEscapes(viewOf(tav_istr(text)));
}

} // namespace tool
} // namespace tav
