#include "client/vinta_tls_client_impl.h"
#include "fuzz/model.h"
#include "fuzz/opened.h"
#include "fuzz/seeds.h"

#include <algorithm>
#include <cstring>

// A session and its client without TLS and without threads: the input is a script of what the network brings
// and the application does.  What the far end sends is cut into frames, dispatched, affirmed and given to
// callbacks of every form; sends are tracked, written, answered, timed out and cancelled; in the end the
// connection breaks or is closed, and nothing may be left of it.

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
using ReaderMember = impl::frame_reader impl::frame_input::*;
using WriterMember = impl::frame_writer impl::frame_output::*;
using TakeInput = bool (impl::frame_input::*)();
using DrainOutgoing = void (impl::frame_output::*)();
using OnConnectEnd = void (impl::connect_attempt::*)(tavSharedPtr<impl::connect_owner>, std::error_code);
using OnHandshakeEnd = void (impl::connect_attempt::*)(impl::connect_owner &, std::error_code);
using OwnerPtr = tavSharedPtr<impl::connection_owner>;
using OnReadEnd = void (impl::frame_input::*)(OwnerPtr, std::error_code, std::size_t);
using OnWriteEnd = void (impl::frame_output::*)(OwnerPtr, std::error_code, std::size_t);
using ContextMember = std::shared_ptr<impl::context> impl::io_thread::*;
using IoMember = impl::io_thread Client::*;
using StateOfClientMember = impl::client_state Client::*;

TAV_FUZZ_OPEN(stateOf, StateMember, &session::state_);
TAV_FUZZ_OPEN(attemptOf, AttemptMember, &session::attempt_);
TAV_FUZZ_OPEN(inputOf, InputMember, &session::input_);
TAV_FUZZ_OPEN(outputOf, OutputMember, &session::output_);
TAV_FUZZ_OPEN(readerOf, ReaderMember, &impl::frame_input::reader_);
TAV_FUZZ_OPEN(writerOf, WriterMember, &impl::frame_output::writer_);
TAV_FUZZ_OPEN(takeInput, TakeInput, &impl::frame_input::take_input);
TAV_FUZZ_OPEN(drainOutgoing, DrainOutgoing, &impl::frame_output::drain);
TAV_FUZZ_OPEN(onConnectEnd, OnConnectEnd, &impl::connect_attempt::on_connect_end);
TAV_FUZZ_OPEN(onHandshakeEnd, OnHandshakeEnd, &impl::connect_attempt::on_handshake_end);
TAV_FUZZ_OPEN(onReadEnd, OnReadEnd, &impl::frame_input::on_read_end);
TAV_FUZZ_OPEN(onWriteEnd, OnWriteEnd, &impl::frame_output::on_write_end);
TAV_FUZZ_OPEN(ioOf, IoMember, &Client::io_);
TAV_FUZZ_OPEN(contextOf, ContextMember, &impl::io_thread::context_);
TAV_FUZZ_OPEN(presentOf, StateOfClientMember, &Client::present_);

using tav::tls::message_callback;

/// What the callbacks do that the input asks for: fail, or send on the way.
bool callbacksThrow = false;
unsigned long long called = 0;

void onMessage() {
    ++called;
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

class Script {
public:
    explicit Script(std::string_view input) : input_(input), client_(theClient()) {
        unsigned char const options = input_.byte();
        callbacksThrow = (options & 0x80) != 0;
        option_ = std::make_shared<tav::tls::connect_option>();
        option_->callback_ = callbackOf(options & 7);
        option_->set_on_error([](unsigned long long, unsigned short, int, char const *) { ++called; });
        option_->set_on_open([] { ++called; });
        option_->set_on_heartbeat_timedout([] { ++called; });
        option_->limits.queued_frames = (options & 8) != 0 ? 3 : 0;
        option_->limits.tracked_sends = (options & 16) != 0 ? 2 : 0;
        option_->timedout = tav::tls::timedout_option(1000);
        (client_.*presentOf()).replace(option_);
        session_ = new session(
            "<fuzz>", (client_.*ioOf()).*contextOf(),
            [this](tavBytes const & body) {
                plain_.expect(textOf(tav_istr(body)));
                client_.messages().on_recv(body);
            },
            *option_, [this] { return clock_; });
        (client_.*presentOf()).replace(session_);
        connect((options & 0x60) >> 5);
    }

    ~Script() {
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
        while (!input_.empty()) {
            step();
        }
        require(reading_ || !session_->connected() || plain_.refused(),
                "reading ends with a wrong head alone");
        end();
    }

private:
    void poll() {
        auto & io = ((client_.*ioOf()).*contextOf())->io_context();
        for (bool more = true; more;) {
            io.restart();
            try {
                more = io.poll() != 0;
            } catch (std::invalid_argument const &) {
                reading_ = false;
            }
        }
    }

    void connect(unsigned way) {
        impl::session_state & state = (*session_).*stateOf();
        impl::connect_attempt & attempt = (*session_).*attemptOf();
        state.advance(impl::session_state::created, impl::session_state::connecting);
        if (way == 3) {
            (attempt.*onConnectEnd())(session_, asio::error::connection_refused);
            return;
        }
        state.advance(impl::session_state::connecting, impl::session_state::handshaking);
        (attempt.*onHandshakeEnd())(*session_,
                                    way == 2 ? std::error_code(asio::error::eof) : std::error_code());
        if (way == 1) {
            session_->check_heartbeat(true);
        }
    }

    void step() {
        switch (input_.byte() % 12) {
        case 0: feed(input_.bytes(input_.byte())); break;
        case 1: feed(input_.bytes(input_.pair())); break;
        case 2: feedFrame(std::string(input_.bytes(input_.byte()))); break;
        case 3: feedFrame(std::string(input_.bytes(input_.pair()))); break;
        case 4: feedReply(); break;
        case 5: send(); break;
        case 6: sendJson(); break;
        case 7: tick(); break;
        case 8: (((*session_).*outputOf()).*drainOutgoing())(); break;
        case 9: write(); break;
        case 10: cancel(); break;
        default: feedFrame(packet()); break;
        }
    }

    /// Bytes of the stream, in pieces as large as the reader has room for.
    void feed(std::string_view bytes) {
        while (!bytes.empty() && reading_ && session_->connected()) {
            impl::frame_reader & reader = ((*session_).*inputOf()).*readerOf();
            impl::frame_reader::place const room = reader.room();
            require(room.size > 0, "there is room for a byte at least");
            std::string_view const piece = bytes.substr(0, room.size);
            std::memcpy(room.data, piece.data(), piece.size());
            reader.filled(piece.size());
            plain_.add(piece);
            bytes.remove_prefix(piece.size());
            try {
                (((*session_).*inputOf()).*takeInput())();
            } catch (std::invalid_argument const &) {
                require(plain_.refused(), "a head within the limit is taken");
                reading_ = false;
            }
        }
        require(!reading_ || !session_->connected() || !plain_.hasFrame(), "no whole frame is left");
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

    void send() {
        tav::tls::send_option option;
        unsigned char const bits = input_.byte();
        option.sno = input_.byte();
        option.ack = (bits & 1) != 0 ? 0x2001 : 0x3000;
        option.version = (bits & 2) != 0 ? 6 : 4;
        option.grey = (bits & 4) != 0;
        option.callback_ = callbackOf(bits >> 3);
        if ((bits & 64) == 0) {
            option.wait_ms(1 + input_.pair());
        }
        option.set_on_timedout([](unsigned long long, unsigned short, bool) { ++called; });
        auto const info = client_.messages().send_nbr((bits & 128) != 0 ? 7 : 0x2001,
                                                      viewOf(input_.bytes(input_.byte())), option, "target");
        if (info) {
            sent_.push_back(info);
        }
    }

    void sendJson() {
        std::string_view const json = input_.bytes(input_.byte());
        client_.messages().send_json(viewOf(json), tav::tls::send_option(), tav_istr("im.Everything"));
    }

    void tick() {
        clock_ += input_.pair();
        session_->on_timer(false);
    }

    /// What was posted is written at once, the first time: a second write would meet the socket.
    void write() {
        impl::frame_writer & writer = ((*session_).*outputOf()).*writerOf();
        if (!written_ && session_->connected() && writer.accept()) {
            written_ = true;
            impl::frame_writer::piece const piece = writer.next();
            require(piece.size >= 4, "a piece has a frame at least");
            (((*session_).*outputOf()).*onWriteEnd())(session_, std::error_code(), piece.size);
        }
    }

    void cancel() {
        unsigned char const which = input_.byte();
        if (which == 255) {
            session_->cancel_all();
        } else if (!sent_.empty()) {
            sent_[which % sent_.size()]->cancel();
        }
    }

    /// The ways in which a connection ends.
    void end() {
        switch (called % 5) {
        case 0: (((*session_).*inputOf()).*onReadEnd())(session_, asio::error::eof, 0); break;
        case 1: session_->active_close(); break;
        case 2: session_->fail(asio::error::connection_reset); break;
        case 3:
            clock_ += 200000;
            session_->check_heartbeat(true);
            session_->on_timer(false);
            break;
        default: (((*session_).*outputOf()).*onWriteEnd())(session_, asio::error::broken_pipe, 0); break;
        }
        poll();
    }

    Input input_;
    Client & client_;
    std::shared_ptr<tav::tls::connect_option> option_;
    long long clock_ = 1000;
    PlainReader plain_;
    bool reading_ = true;
    bool written_ = false;
    SessionPtr session_;
    std::vector<Client::send_ptr> sent_;
};

void run(std::string_view input) {
    called = 0;
    // The threads of the process know nothing of it, so that what the client keeps is small against this.
    HeapLimit const limit(input.size());
    Script(input).run();
}

std::string sized(char op, std::string const & bytes) {
    std::string const cut = bytes.substr(0, 0xffff);
    return std::string{op, static_cast<char>(cut.size() >> 8), static_cast<char>(cut.size())} + cut;
}

std::string randomStep(Random & random) {
    auto const small = [&](std::size_t n) { return static_cast<char>(below(random, n)); };
    std::string const body = randomNbr(random, 2).substr(0, 255);
    switch (below(random, 9)) {
    case 0: return sized(1, randomBytes(random, 40));
    case 1: return sized(3, randomPacket(random));
    case 2: return std::string{4, static_cast<char>(body.size())} + body;
    case 3: return std::string{5, small(256), small(4), 0, small(100), static_cast<char>(body.size())} + body;
    case 4: {
        std::string const json = randomJsonMessage(random).substr(0, 255);
        return std::string{6, static_cast<char>(json.size())} + json;
    }
    case 5: return std::string{7, small(256), small(256)};
    case 6: return std::string{8, 9};
    case 7: return std::string{10, small(256)};
    default: return sized(3, randomPacket(random)) + sized(1, std::string("\0\0\0\0", 4));
    }
}

void seeds(Seeds & out, Random & random) {
    std::string const shown = unhex("0006 00 1234 00 0002 0000000000000003 0000 4142");
    out.push_back(std::string(1, '\0') + sized(3, shown));
    out.push_back(std::string(1, '\0') + sized(1, unhex("00000014") + shown));
    out.push_back(std::string(1, '\0') + sized(1, unhex("01000000") + shown));
    fillUp(out, random, 240, [&] {
        std::string made(1, static_cast<char>(below(random, 4) == 0 ? random() : below(random, 64)));
        for (std::size_t steps = 1 + below(random, 7); steps > 0; --steps) {
            made += randomStep(random);
        }
        return made;
    });
}

TAV_FUZZ_TARGET(frame, run, seeds, nullptr);

} // namespace frame_target
} // namespace tav_fuzz
