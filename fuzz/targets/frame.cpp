#include "client/vinta_tls_client_impl.h"
#include "fuzz/model.h"
#include "fuzz/opened.h"
#include "fuzz/seeds.h"
#include "support/tls_far_end.h"

#include <algorithm>
#include <memory>
#include <optional>

// A session and its client without threads, over TLS within the process: the input is a script of what the
// network brings and the application does.  The connect fails in each way or comes up; what the far end sends
// is decrypted, cut into frames, dispatched, affirmed and given to callbacks of every form, which send, close
// and throw; sends are tracked, written, answered, timed out and cancelled; reading pauses and goes on; in
// the end the connection breaks or is closed, and nothing may be left of it.  The clock is the script's.

namespace tav_fuzz {
namespace frame_target {

namespace impl = tav::tls::impl;
using impl::Client;
using impl::session;
using SessionPtr = tavSharedPtr<session>;

using StateMember = impl::session_state session::*;
using AttemptMember = impl::connect_attempt session::*;
using InputMember = impl::frame_input session::*;
using OutputMember = impl::frame_output session::*;
using DrainOutgoing = void (impl::frame_output::*)();
using OwnerPtr = tavSharedPtr<impl::connect_owner>;
using TcpSocket = asio::ip::tcp::socket;
using OnResolved = void (impl::connect_attempt::*)(OwnerPtr, std::error_code, impl::context::results_type);
using SetHandshake = void (impl::connect_attempt::*)();
using OnRaceEnd = void (impl::connect_attempt::*)(OwnerPtr, std::error_code, TcpSocket);
using ContextMember = std::shared_ptr<impl::context> impl::io_thread::*;
using IoMember = impl::io_thread Client::*;
using StateOfClientMember = impl::client_state Client::*;

TAV_FUZZ_OPEN(stateOf, StateMember, &session::state_);
TAV_FUZZ_OPEN(attemptOf, AttemptMember, &session::attempt_);
TAV_FUZZ_OPEN(inputOf, InputMember, &session::input_);
TAV_FUZZ_OPEN(outputOf, OutputMember, &session::output_);
TAV_FUZZ_OPEN(drainOutgoing, DrainOutgoing, &impl::frame_output::drain);
TAV_FUZZ_OPEN(onResolved, OnResolved, &impl::connect_attempt::on_resolved);
TAV_FUZZ_OPEN(setHandshake, SetHandshake, &impl::connect_attempt::set_handshake);
TAV_FUZZ_OPEN(onRaceEnd, OnRaceEnd, &impl::connect_attempt::on_race_end);
TAV_FUZZ_OPEN(ioOf, IoMember, &Client::io_);
TAV_FUZZ_OPEN(contextOf, ContextMember, &impl::io_thread::context_);
TAV_FUZZ_OPEN(presentOf, StateOfClientMember, &Client::present_);

using tav::tls::message_callback;

/// What the callbacks do besides, and whether those of messages and of the open connection throw.
std::function<void()> besides;
bool callbacksThrow = false;

/// A limit, an error or a silence is told.
void onEvent() {
    if (besides) {
        besides();
    }
}

void onMessage() {
    onEvent();
    if (callbacksThrow) {
        throw std::runtime_error("the application's own");
    }
}

message_callback callbackOf(unsigned kind) {
    switch (kind % 5) {
    case 0:
        return message_callback(
            tav::tls::nbr_function([](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                      tavMsgExt const &) { onMessage(); }));
    case 1:
        return message_callback(
            tav::tls::obj_function([](unsigned long long, tavMessage const &) { onMessage(); }));
    case 2:
        return message_callback(
            tav::tls::ptr_function([](unsigned long long, tavSharedPtr<tavMessage>) { onMessage(); }));
    case 3:
        return message_callback(tav::tls::json_function(
            [](unsigned long long, unsigned short, char const *, tavMsgExt const &) { onMessage(); }));
    default: return message_callback();
    }
}

/// The one client of the process, with what an application registers.  It has no threads.
Client & theClient() {
    static std::shared_ptr<Client> const * const kept = [] {
        nameMoods();
        auto const made = std::make_shared<Client>("fuzz");
        ((*made).*ioOf()).*contextOf() = std::make_shared<impl::context>("<fuzz>");
        auto described = std::make_shared<impl::metainfo>(fixedTemplate());
        ((*made).*presentOf()).begin(nullptr, &described);
        made->messages().factory().register_message(0x2001, [] { return new Everything; });
        made->messages().callbacks().set_type(0x3000, tav::tls::msg_type_callback(tav::tls::json_function(
                                                          [](unsigned long long, unsigned short, char const *,
                                                             tavMsgExt const &) { onMessage(); })));
        made->messages().callbacks().set_old([](unsigned long long, unsigned short, unsigned char const *,
                                                unsigned, tavMsgExt const &) { onMessage(); });
        return new std::shared_ptr<Client>(made);
    }();
    return **kept;
}

/// What the frames of a stream of bytes are, by the plainest reading.
class PlainReader {
public:
    void add(std::string_view bytes) { stream_ += bytes; }
    void expect(std::string_view body) {
        while (at_ + 4 <= stream_.size() && length() == 0) {
            at_ += 4;
        }
        require(at_ + 4 <= stream_.size() && length() <= 0xffffff, "no frame without a head");
        std::string_view const next = std::string_view(stream_).substr(at_ + 4, length());
        requireSame(next, body, "a frame has the bytes that came");
        at_ += 4 + body.size();
    }
    /// True if the next head is one that ends the reading.
    bool refused() {
        while (at_ + 4 <= stream_.size() && length() == 0) {
            at_ += 4;
        }
        return at_ + 4 <= stream_.size() && length() > 0xffffff;
    }
    bool hasFrame() {
        return !refused() && at_ + 4 <= stream_.size() && at_ + 4 + length() <= stream_.size();
    }

private:
    std::size_t length() const {
        std::size_t out = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            out = out << 8 | static_cast<unsigned char>(stream_[at_ + i]);
        }
        return out;
    }

    std::string stream_;
    std::size_t at_ = 0;
};

/// The frames that the far end got: whole ones, of which each but a heartbeat is a packet.
class Received {
public:
    void add(std::string const & bytes) { stream_ += bytes; }
    void check() {
        std::size_t at = 0;
        while (at + 4 <= stream_.size()) {
            std::size_t const size = lengthAt(at);
            require(size <= 0xffffff && (size == 0 || size >= 16), "what goes out is packets");
            if (at + 4 + size > stream_.size()) {
                break;
            }
            at += 4 + size;
        }
        stream_.erase(0, at);
    }

private:
    std::size_t lengthAt(std::size_t at) const {
        std::size_t out = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            out = out << 8 | static_cast<unsigned char>(stream_[at + i]);
        }
        return out;
    }

    std::string stream_;
};

class Script {
public:
    explicit Script(std::string_view input)
        : input_(input), client_(theClient()), choices_(input_.byte()), habits_(input_.byte()) {
        option_ = std::make_shared<tav::tls::connect_option>();
        option_->callback_ = callbackOf(choices_ & 7);
        option_->set_on_error([](unsigned long long, unsigned short, int, char const *) { onEvent(); });
        option_->set_on_open([this] {
            if ((habits_ & 1) != 0) {
                onMessage();
            }
        });
        option_->set_on_heartbeat_timedout([] { onEvent(); });
        option_->limits.queued_frames = (choices_ & 8) != 0 ? 3 : 0;
        option_->limits.tracked_sends = (choices_ & 16) != 0 ? 2 : 0;
        option_->limits.received_waiting = (habits_ & 2) != 0 ? 2 : 0;
        option_->timedout = tav::tls::timedout_option(1000);
        if ((habits_ & 4) != 0) {
            option_->set_on_http_proxy_connect(
                [this](unsigned, std::string const &, unsigned short) { return (habits_ & 8) != 0 ? 1 : 0; });
        }
        (client_.*presentOf()).replace(option_);
        besides = [this] { inCallback(); };
        callbacksThrow = (choices_ & 0x80) != 0;
    }

    ~Script() {
        besides = nullptr;
        callbacksThrow = false;
        far_.reset();
        session_->close();
        (client_.*presentOf()).replace(SessionPtr());
        poll();
        for (auto const & each : sent_) {
            require(each->result() >= 0, "each send ends with its session");
        }
        require(session_->getRefCount() == 1, "nothing keeps a session that was closed");
        (client_.*presentOf()).replace(std::make_shared<tav::tls::connect_option>());
    }

    void run() {
        unsigned const way = (choices_ & 0x60) >> 5;
        unsigned const kind = way > 1 ? input_.byte() : 0;
        option_->port = way == 3 && kind % 5 == 0 ? "no port" : "443";
        make();
        if (way == 3) {
            failToConnect(kind % 5);
        } else {
            shakeHands(way == 2 ? 1 + kind % 4 : 0);
        }
        session_->check_heartbeat(way == 1);
        while (!input_.empty()) {
            step();
        }
        pump();
        end(habits_ >> 5);
    }

private:
    void make() {
        session_ = new session(
            "<fuzz>", context(),
            [this](tavBytes const & body) {
                plain_.expect(textOf(tav_istr(body)));
                client_.messages().on_recv(body);
            },
            *option_, [this] { return clock_; });
        (client_.*presentOf()).replace(session_);
    }

    std::shared_ptr<impl::context> const & context() const { return (client_.*ioOf()).*contextOf(); }
    impl::session_state & state() { return (*session_).*stateOf(); }
    impl::connect_attempt & attempt() { return (*session_).*attemptOf(); }
    impl::frame_input & frames() { return (*session_).*inputOf(); }
    impl::frame_output & output() { return (*session_).*outputOf(); }

    /// Runs what is ready, as the thread does that goes on behind a failure.
    bool poll() {
        auto & io = context()->io_context();
        bool any = false;
        for (bool more = true; more;) {
            io.restart();
            try {
                more = io.poll() != 0;
                any = any || more;
            } catch (std::invalid_argument const &) {
                reading_ = false;
                any = true;
            } catch (std::runtime_error const &) {
                require((habits_ & 1) != 0 && callbacksThrow,
                        "only what on_open throws is the application's");
                any = true;
            }
        }
        return any;
    }

    /// Both ends, until neither has anything to do.
    void pump() {
        for (bool more = true; more;) {
            more = far_ && far_->step();
            more = poll() || more;
            if (far_) {
                received_.add(far_->take());
            }
        }
        received_.check();
        require(!reading_ || !session_->connected() || frames().paused() || !plain_.hasFrame(),
                "no whole frame is left");
    }

    /// Once in a while, as the input asks.
    void inCallback() {
        ++called_;
        if (called_ % 3 == 2 && !within_) {
            within_ = true;
            switch (habits_ >> 3 & 3) {
            case 1: sendNbr(0x40, "", 0x2001); break;
            case 2: session_->active_close(); break;
            case 3: session_->cancel_all(); break;
            default: break;
            }
            within_ = false;
        }
    }

    /// The connect gets no socket: a port that is none, a lookup and a race that fail, a limit that passes.
    void failToConnect(unsigned kind) {
        if (kind == 0) {
            session_->connect();
            poll();
            return;
        }
        state().advance(impl::session_state::created, impl::session_state::connecting);
        session_->socket().init();
        if (kind == 1) {
            clock_ += 2000;
            session_->on_timer(false);
        } else if (kind == 2) {
            (attempt().*onResolved())(session_, asio::error::host_not_found, {});
        } else if (kind == 3) {
            (attempt().*onResolved())(session_, std::error_code(), {});
        } else {
            (attempt().*onRaceEnd())(session_, asio::error::connection_refused,
                                     TcpSocket(context()->io_context()));
        }
        poll();
    }

    /// The far end shakes hands, or not: it closes, talks plainly, stops half way, or gives notice at once.
    void shakeHands(unsigned fault) {
        state().advance(impl::session_state::created, impl::session_state::connecting);
        session_->socket().init();
        (attempt().*setHandshake())();
        tav_test::DescriptorPair const pair;
        TcpSocket near(context()->io_context());
        near.assign(asio::ip::tcp::v4(), pair.ends[0]);
        far_.emplace(pair.ends[1]);
        (attempt().*onRaceEnd())(session_, std::error_code(), std::move(near));
        switch (fault) {
        case 1: far_->close(); break;
        case 2: far_->sendPlain(std::string(input_.bytes(input_.byte()))); break;
        case 3:
            poll();
            far_->step();
            far_->close();
            break;
        case 4: far_->sendPlain(unhex("15 0303 0002 02 28")); break;
        default: break;
        }
        pump();
    }

    void step() {
        switch (input_.byte() % 20) {
        case 0: feed(std::string(input_.bytes(input_.byte()))); break;
        case 1: feed(std::string(input_.bytes(input_.pair()))); break;
        case 2: feedFrame(std::string(input_.bytes(input_.byte()))); break;
        case 3: feedFrame(std::string(input_.bytes(input_.pair()))); break;
        case 4: feedReply(); break;
        case 5: send(); break;
        case 6: sendJson(); break;
        case 7: tick(); break;
        case 8: drain(); break;
        case 9: pump(); break;
        case 10: cancel(); break;
        case 11: feedFrame(packet()); break;
        case 12: sendObject(); break;
        case 13:
            client_.messages().send_old_nbr(input_.byte(), viewOf(input_.bytes(input_.byte())), "to");
            break;
        case 14: sendAndWait(); break;
        case 15: together(); break;
        case 16: broken(input_.byte()); break;
        case 17:
            drain();
            pump();
            break;
        case 18: session_->check_heartbeat((input_.byte() & 1) != 0); break;
        default:
            client_.messages().send_json(viewOf(input_.bytes(input_.byte())), tav::tls::send_option(),
                                         0x2001);
        }
    }

    /// What the far end sends from here on comes in one go with the next step of another kind.
    void together() { holding_ = !holding_; }

    void feed(std::string const & bytes) {
        if (!far_ || !far_->send(bytes)) {
            return;
        }
        plain_.add(bytes);
        if (!holding_) {
            pump();
        }
    }

    void feedFrame(std::string const & body) {
        auto const size = static_cast<unsigned>(body.size());
        char const head[4] = {static_cast<char>(size >> 24), static_cast<char>(size >> 16),
                              static_cast<char>(size >> 8), static_cast<char>(size)};
        feed(std::string(head, 4) + body);
    }

    /// A packet whose fields are right, with a body of the input's.
    std::string packet() {
        unsigned char const affirm = input_.byte();
        unsigned short const code = input_.pair();
        unsigned short const sequence = input_.byte();
        std::string const body(input_.bytes(input_.byte()));
        return (affirm & 1) != 0 ? oldPacket(affirm, static_cast<unsigned char>(code), sequence, body)
                                 : mobilePacket(affirm, code, sequence, body, (affirm & 2) != 0);
    }

    void feedReply() {
        std::string const body(input_.bytes(input_.byte()));
        if (!sent_.empty()) {
            auto const & last = sent_.back();
            feedFrame(mobilePacket(0x30, last->option().ack, static_cast<unsigned short>(last->sno()), body,
                                   false));
        }
    }

    tav::tls::send_option sendOption(unsigned char bits) {
        tav::tls::send_option option;
        option.sno = input_.byte();
        option.ack = (bits & 1) != 0 ? 0x2001 : 0x3000;
        option.version = (bits & 2) != 0 ? 6 : 4;
        option.grey = (bits & 4) != 0;
        option.callback_ = callbackOf(bits >> 3);
        if ((bits & 64) == 0) {
            option.wait_ms(1 + input_.pair());
        }
        option.set_on_timedout([](unsigned long long, unsigned short, bool) { onEvent(); });
        return option;
    }

    void keep(Client::send_ptr const & info) {
        if (info) {
            sent_.push_back(info);
        }
    }

    void send() {
        unsigned char const bits = input_.byte();
        tav::tls::send_option const option = sendOption(bits);
        keep(client_.messages().send_nbr((bits & 128) != 0 ? 7 : 0x2001, viewOf(input_.bytes(input_.byte())),
                                         option, "target"));
    }

    /// Without a limit.
    void sendNbr(unsigned char bits, std::string_view body, unsigned short code) {
        tav::tls::send_option option;
        option.grey = (bits & 4) != 0;
        client_.messages().send_nbr(code, viewOf(body), option, "target");
    }

    void sendJson() {
        std::string_view const json = input_.bytes(input_.byte());
        client_.messages().send_json(viewOf(json), tav::tls::send_option(), tav_istr("im.Everything"));
    }

    void sendObject() {
        unsigned char const bits = input_.byte();
        tav::tls::send_option const option = sendOption(bits);
        tavSharedPtr<tavMessage> const message(new Everything);
        failureOf([&] { message->decode(viewOf(input_.bytes(input_.byte()))); });
        keep((bits & 128) != 0 ? client_.messages().send(message, option)
                               : client_.messages().send(*message, option));
    }

    /// A wait for a send without a limit, which is none.
    void sendAndWait() {
        Everything message;
        message.text = "waited for";
        tavSharedPtr<tavMessage> const reply((input_.byte() & 1) != 0 ? new Everything : nullptr);
        auto const result = client_.messages().send_and_wait(message, reply, 0, false, 6, nullptr);
        require(result == tav::tls::result_error, "nothing is waited for without a limit");
    }

    void tick() {
        clock_ += input_.pair();
        session_->on_timer(false);
        poll();
    }

    void drain() { (output().*drainOutgoing())(); }

    void cancel() {
        unsigned char const which = input_.byte();
        if (which == 255) {
            session_->cancel_all();
        } else if (!sent_.empty()) {
            sent_[which % sent_.size()]->cancel();
        }
    }

    /// The connection breaks while the script goes on, and what was sent ahead of that still comes.
    void broken(unsigned char kind) {
        if (!far_) {
            return;
        }
        switch (kind % 4) {
        case 0: far_->close(); break;
        case 1: far_->notice(); break;
        case 2: far_->sendPlain("what is no record of TLS"); break;
        default: break;
        }
        far_->step();
    }

    /// The ways in which a connection ends.
    void end(unsigned way) {
        switch (way) {
        case 0:
        case 1:
        case 2:
            broken(static_cast<unsigned char>(way));
            drain();
            pump();
            break;
        case 3: session_->active_close(); break;
        case 4:
            clock_ += 200000;
            session_->check_heartbeat(true);
            session_->on_timer(false);
            break;
        case 5: session_->fail(asio::error::connection_reset); break;
        case 6: session_->disconnect(); break;
        default: break;
        }
        poll();
    }

    Input input_;
    Client & client_;
    unsigned char const choices_;
    unsigned char const habits_;
    std::shared_ptr<tav::tls::connect_option> option_;
    unsigned called_ = 0;
    bool within_ = false;
    long long clock_ = 1000;
    PlainReader plain_;
    Received received_;
    bool reading_ = true;
    bool holding_ = false;
    std::optional<tav_test::TlsFarEnd> far_;
    SessionPtr session_;
    std::vector<Client::send_ptr> sent_;
};

void run(std::string_view input) {
    // What all of them share is made ahead.
    static Client const & shared = theClient();
    static_cast<void>(shared);
    // The threads of the process know nothing of it, so that what the client keeps is small against this.
    HeapLimit const limit(input.size());
    Script(input).run();
}

std::string sized(char op, std::string const & bytes) {
    std::string const cut = bytes.substr(0, 0xffff);
    return std::string{op, static_cast<char>(cut.size() >> 8), static_cast<char>(cut.size())} + cut;
}

std::string shortened(char op, std::string const & bytes) {
    std::string const cut = bytes.substr(0, 255);
    return std::string{op, static_cast<char>(cut.size())} + cut;
}

/// One of the steps that Script knows.
std::string randomStep(Random & random) {
    auto const small = [&](std::size_t n) { return static_cast<char>(below(random, n)); };
    std::string const body = randomNbr(random, 2).substr(0, 255);
    switch (below(random, 18)) {
    case 0: return sized(1, randomBytes(random, 40));
    case 1: return sized(3, randomPacket(random));
    case 2: return shortened(4, body);
    case 3: return std::string{5, small(256), small(4), 0, small(100)} + shortened(0, body).substr(1);
    case 4: return shortened(6, randomJsonMessage(random));
    case 5: return std::string{7, small(256), small(256)};
    case 6: return std::string{8, 9};
    case 7: return std::string{10, small(256)};
    case 8: return std::string{11, '\x22', '\x20', 1, small(4)} + shortened(0, body).substr(1);
    case 9:
        return std::string{12, small(256), small(4), 0, small(100)} +
               shortened(0, randomNbrMessage(random)).substr(1);
    case 10: return std::string{13, small(256)} + shortened(0, body).substr(1);
    case 11: return std::string{14, small(2)};
    case 12: return std::string{15};
    case 13: return below(random, 3) != 0 ? std::string{17} : std::string{16, small(4)};
    case 14: return std::string{18, small(2)};
    case 15: return shortened(19, randomJsonMessage(random));
    case 16: return std::string{17};
    default: return sized(3, randomPacket(random)) + sized(1, std::string("\0\0\0\0", 4));
    }
}

void seeds(Seeds & out, Random & random) {
    std::string const shown = unhex("0006 00 1234 00 0002 0000000000000003 0000 4142");
    std::string const plain(2, '\0');
    out.push_back(plain + sized(3, shown));
    out.push_back(plain + sized(1, unhex("00000014") + shown));
    out.push_back(plain + sized(1, unhex("01000000") + shown));
    // Connects that fail, and handshakes.
    for (unsigned i = 0; i < 20; ++i) {
        char const way = static_cast<char>(i % 2 == 0 ? 0x40 : 0x60);
        char const habits = static_cast<char>(i % 4 == 3 ? 0x0c : 0x04);
        out.push_back(std::string{way, habits, static_cast<char>(i / 2)} +
                      shortened(0, randomBytes(random, 30)).substr(1));
    }
    // Receipts that nobody takes along stop the reading; it goes on, or the connection breaks or ends
    // meanwhile.
    for (unsigned char way = 0; way < 8; ++way) {
        std::string made{static_cast<char>(way % 2 == 0 ? 0 : 0x20), static_cast<char>(way << 5 | 2)};
        made += '\x0f';
        for (char sequence = 1; sequence < 9; ++sequence) {
            made += std::string{11, '\x20', '\x30', 0, sequence, 0};
        }
        made += "\x0f\x09";
        made += way < 4 ? std::string{17, 9, 7, 0, 100, 17, 9}
                        : std::string{16, static_cast<char>(way), 9, 7, 0, 1};
        out.push_back(made);
    }
    fillUp(out, random, 280, [&] {
        std::string made{static_cast<char>(below(random, 4) == 0 ? random() : below(random, 64)),
                         static_cast<char>(random())};
        for (std::size_t steps = 1 + below(random, 9); steps > 0; --steps) {
            made += randomStep(random);
        }
        return made;
    });
}

TAV_FUZZ_TARGET(frame, run, seeds, nullptr);

} // namespace frame_target
} // namespace tav_fuzz
