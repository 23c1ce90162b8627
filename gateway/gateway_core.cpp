#include "gateway/gateway_core.h"

#include "tav/vinta/vinta_im_pkt.h"

#include <asio.hpp>
#include <asio/ssl.hpp>

#include <array>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <thread>

namespace tav {
namespace gateway {

namespace {

using asio::ip::tcp;
using PacketPtr = tavSharedPtr<im::Packet>;

constexpr unsigned char need_affirm = 0x20;
constexpr unsigned char affirmed = 0x30;
constexpr std::size_t head_size = 4;

std::string frame(tav_istr body) {
    std::string out(head_size, '\0');
    unsigned const size = body.size();
    for (unsigned i = 0; i < head_size; ++i) {
        out[i] = static_cast<char>(size >> (24 - 8 * i) & 0xffu);
    }
    out.append(body.data(), body.size());
    return out;
}

std::string frame(im::Packet & packet) {
    tavBytes bytes;
    packet.encode(bytes);
    return frame(tav_istr(bytes));
}

unsigned frameLength(std::array<unsigned char, head_size> const & head) {
    unsigned size = 0;
    for (unsigned char const byte : head) {
        size = size << 8 | byte;
    }
    return size;
}

std::string hex4(unsigned code) {
    std::ostringstream out;
    out << "0x" << std::hex << code;
    return out.str();
}

} // namespace

class Gateway::Server {
    class Connection;
    using ConnectionPtr = std::shared_ptr<Connection>;

public:
    Server(Options const & options, Certificates const & certificates)
        : options_(options), tls_(asio::ssl::context::tlsv12_server), acceptor_(io_) {
        try {
            tls_.set_options(asio::ssl::context::no_compression);
            tls_.use_certificate_chain(asio::buffer(certificates.chain));
            tls_.use_private_key(asio::buffer(certificates.key), asio::ssl::context::pem);
            if (options_.ask_certificate) {
                tls_.add_certificate_authority(asio::buffer(certificates.ca));
                tls_.set_verify_mode(asio::ssl::verify_peer | asio::ssl::verify_fail_if_no_peer_cert);
            }
        } catch (std::exception const & e) {
            throw std::runtime_error(std::string("the server's certificate or key can't be used: ") +
                                     e.what());
        }
    }
    ~Server() { stop(); }

    void start() {
        std::error_code error;
        auto const address = asio::ip::make_address(options_.address, error);
        if (error) {
            throw std::runtime_error("not an address to listen on: " + options_.address);
        }
        tcp::endpoint const endpoint(address, options_.port);
        acceptor_.open(endpoint.protocol(), error);
        if (!error) {
            acceptor_.set_option(tcp::acceptor::reuse_address(true), error);
        }
        if (!error) {
            acceptor_.bind(endpoint, error);
        }
        if (!error) {
            acceptor_.listen(asio::socket_base::max_listen_connections, error);
        }
        if (error) {
            throw std::runtime_error("can't listen on " + options_.address + " port " +
                                     std::to_string(options_.port) + ": " + error.message());
        }
        port_ = acceptor_.local_endpoint().port();
        accept();
        thread_ = std::thread([this] { io_.run(); });
    }

    void stop() {
        if (!thread_.joinable()) {
            return;
        }
        asio::post(io_, [this] {
            std::error_code ignored;
            acceptor_.close(ignored);
            closeAll(false);
            io_.stop();
        });
        thread_.join();
        connections_.clear();
        set([](Stats & s) { s.open = 0; });
    }

    unsigned short port() const { return port_; }

    void push(unsigned short code, std::string const & body, bool ask, unsigned short version) {
        asio::post(io_, [this, code, body, ask, version] {
            for (auto const & entry : copyOfConnections()) {
                pushTo(entry, code, nextSno(), tav_istr(body), ask, version);
            }
        });
    }

    void sendRaw(std::string const & bytes) {
        asio::post(io_, [this, bytes] {
            for (auto const & entry : copyOfConnections()) {
                entry->write(bytes);
            }
        });
    }

    void drop(bool reset) {
        asio::post(io_, [this, reset] { closeAll(reset); });
    }

    void setFaults(Faults const & faults) {
        asio::post(io_, [this, faults] { options_.faults = faults; });
    }

    /// Does it for an open connection, on the gateway's thread.
    template <class Do>
    void with(unsigned connection, Do const & what) {
        asio::post(io_, [this, connection, what] {
            auto const found = connections_.find(connection);
            if (found != connections_.end()) {
                ConnectionPtr const held = found->second;
                what(held);
            }
        });
    }

    void pushToOne(unsigned connection, unsigned short code, std::string const & body,
                   unsigned short version) {
        with(connection, [this, code, body, version](ConnectionPtr const & to) {
            pushTo(to, code, nextSno(), tav_istr(body), false, version);
        });
    }

    void dropOne(unsigned connection, bool reset) {
        with(connection, [reset](ConnectionPtr const & one) { one->close(reset); });
    }

    void silence(unsigned connection, bool on) {
        with(connection, [on](ConnectionPtr const & one) { one->silence(on); });
    }

    Stats stats() const {
        std::lock_guard<std::mutex> const guard(mutex_);
        return stats_;
    }

    bool wait(std::function<bool(Stats const &)> const & done, int ms) const {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, std::chrono::milliseconds(ms), [&] { return done(stats_); });
    }

private:
    /// A receipt that a client owes.
    struct Owed {
        unsigned short code;
        std::shared_ptr<asio::steady_timer> timer;
    };

    class Connection : public std::enable_shared_from_this<Connection> {
    public:
        Connection(Server & server, tcp::socket socket, unsigned id, bool misbehaves)
            : server_(server), stream_(std::move(socket), server.tls_), id_(id), misbehaves_(misbehaves) {}

        unsigned id() const { return id_; }
        bool open() const { return open_; }
        /// Whether what is written goes out.
        bool sends() const { return open_ && !closing_ && !silent(); }

        void start() {
            if (faults().no_handshake) {
                return;
            }
            std::error_code ignored;
            stream_.lowest_layer().set_option(tcp::no_delay(true), ignored);
            auto const peer = stream_.lowest_layer().remote_endpoint(ignored);
            peer_ = peer.address().to_string() + " port " + std::to_string(peer.port());
            stream_.async_handshake(
                asio::ssl::stream_base::server,
                [self = shared_from_this()](std::error_code const & error) { self->onHandshake(error); });
        }

        void silence(bool on) {
            silent_ = on;
            tellSilence();
        }

        /// Sends bytes as they are, unless the connection is silent or about to close.
        void write(std::string bytes) {
            if (!sends()) {
                return;
            }
            writing_.push_back(std::move(bytes));
            if (writing_.size() == 1) {
                writeFront();
            }
        }

        /// Sends a frame, after the delay that answers have.
        void answer(std::string bytes, std::optional<unsigned short> copy_of = std::nullopt) {
            int const delay = faults().delay_ms;
            if (delay <= 0) {
                writeFrame(std::move(bytes), copy_of);
                return;
            }
            later(delay, [this, held = std::move(bytes), copy_of] { writeFrame(held, copy_of); });
        }

        /// Calls after some milliseconds, if the connection is open then.
        template <class Call>
        void later(int ms, Call call) {
            auto const timer =
                std::make_shared<asio::steady_timer>(server_.io_, std::chrono::milliseconds(ms));
            timer->async_wait(
                [self = shared_from_this(), timer, held = std::move(call)](std::error_code const & e) {
                    if (!e && self->open_) {
                        held();
                    }
                });
        }

        /// Sends half a frame and closes.
        void cut() {
            writeOdd(frame(tav_istr(std::string(100, 'x'))).substr(0, 50), "half a frame");
            closeAfterWrites();
        }

        /// Sends a length above the limit.
        void oversize() { writeOdd(std::string("\x01\x00\x00\x00", head_size), "a length above the limit"); }

        /// Sends a frame that is no packet of either kind.
        void garbage() { writeFrame(frame(tav_istr(std::string(64, '\xa5')))); }

        /// Closes once everything queued has gone out, answers that are delayed among it: the close waits as
        /// long as they do.
        void closeAfterAnswers() {
            int const delay = faults().delay_ms;
            if (delay <= 0) {
                closeAfterWrites();
                return;
            }
            later(delay, [this] { closeAfterWrites(); });
        }

        /// Closes once everything that is being written has gone out.
        void closeAfterWrites() {
            closing_ = true;
            if (writing_.empty()) {
                close(false);
            }
        }

        void close(bool reset) {
            auto & socket = stream_.lowest_layer();
            if (!socket.is_open()) {
                return;
            }
            std::error_code ignored;
            if (reset) {
                socket.set_option(asio::socket_base::linger(true, 0), ignored);
            } else {
                socket.shutdown(tcp::socket::shutdown_both, ignored);
            }
            socket.close(ignored);
            for (auto & owed : owed_) {
                owed.second.timer->cancel();
            }
            owed_.clear();
            if (open_) {
                open_ = false;
                server_.set([](Stats & s) { --s.open; });
                server_.log(id_, "closed");
                tellConnection();
            }
            server_.connections_.erase(id_);
        }

        void owe(unsigned long long sno, unsigned short code) {
            auto const timer = std::make_shared<asio::steady_timer>(
                server_.io_, std::chrono::milliseconds(server_.options_.affirm_timeout_ms));
            owed_[sno & 0xffffu] = Owed{code, timer};
            server_.set([](Stats & s) { ++s.receipts_asked; });
            timer->async_wait([self = shared_from_this(), sno, timer](std::error_code const & error) {
                auto const found = self->owed_.find(sno & 0xffffu);
                if (!error && found != self->owed_.end() && found->second.timer == timer) {
                    self->owed_.erase(found);
                    self->server_.set([](Stats & s) { ++s.receipts_missing; });
                    self->server_.log(self->id_, "receipt missing, sno " + std::to_string(sno));
                }
            });
        }

    private:
        Faults const & faults() const {
            static Faults const none;
            return misbehaves_ ? server_.options_.faults : none;
        }

        bool silent() const { return silent_.value_or(faults().silence); }

        void writeFrame(std::string bytes, std::optional<unsigned short> copy_of = std::nullopt) {
            if (server_.options_.on_frame && sends()) {
                server_.options_.on_frame(id_, false, bytes, copy_of);
            }
            write(std::move(bytes));
        }

        void writeOdd(std::string bytes, char const * what) {
            if (server_.options_.on_odd && sends()) {
                server_.options_.on_odd(id_, bytes, what);
            }
            write(std::move(bytes));
        }

        void tellSilence() const {
            if (server_.options_.on_silence) {
                server_.options_.on_silence(id_, silent());
            }
        }

        void tellConnection() const {
            if (server_.options_.on_connection) {
                server_.options_.on_connection(id_, open_, peer_);
            }
        }

        void onHandshake(std::error_code const & error) {
            if (error) {
                server_.set([](Stats & s) { ++s.failed_handshakes; });
                server_.log(id_, "handshake failed: " + error.message());
                close(false);
                return;
            }
            open_ = true;
            server_.set([](Stats & s) {
                ++s.handshakes;
                ++s.open;
            });
            server_.log(id_, "connected");
            tellConnection();
            if (silent()) {
                tellSilence();
            }
            readHead();
        }

        void readHead() {
            asio::async_read(stream_, asio::buffer(head_),
                             [self = shared_from_this()](std::error_code const & error, std::size_t) {
                                 if (error) {
                                     self->close(false);
                                     return;
                                 }
                                 self->readBody(frameLength(self->head_));
                             });
        }

        void readBody(unsigned size) {
            if (size > max_frame) {
                server_.set([](Stats & s) { ++s.invalid; });
                server_.log(id_, "frame too long");
                close(false);
                return;
            }
            body_.resize(size);
            asio::async_read(stream_, asio::buffer(body_),
                             [self = shared_from_this()](std::error_code const & error, std::size_t) {
                                 if (error) {
                                     self->close(false);
                                     return;
                                 }
                                 self->onFrame();
                             });
        }

        void onFrame() {
            ++frames_;
            if (server_.options_.on_frame) {
                server_.options_.on_frame(id_, true, frame(tav_istr(body_)), std::nullopt);
            }
            Faults const & bad = faults();
            if (bad.reset_after != 0 && frames_ >= bad.reset_after) {
                close(true);
                return;
            }
            if (bad.cut_after != 0 && frames_ >= bad.cut_after) {
                cut();
                return;
            }
            if (bad.oversize_after != 0 && frames_ >= bad.oversize_after) {
                oversize();
            } else if (body_.empty()) {
                server_.set([](Stats & s) { ++s.heartbeats; });
                answer(std::string(head_size, '\0'));
            } else {
                onPacket();
            }
            if (bad.close_after != 0 && frames_ >= bad.close_after) {
                closeAfterWrites();
            }
            if (stream_.lowest_layer().is_open()) {
                readHead();
            }
        }

        void onPacket() {
            tav_istr const body(body_);
            PacketPtr packet = im::Packet::create(body[1] != 0, static_cast<unsigned char>(body[1]));
            bool good = false;
            try {
                good = packet->decode(body);
            } catch (std::exception const & e) {
                // Behind the first line stands where the library found it.
                std::string const what = e.what();
                server_.log(id_, "bad packet: " + what.substr(0, what.find('\n')));
            }
            if (!good) {
                server_.set([](Stats & s) { ++s.invalid; });
                return;
            }
            unsigned short const code = packet->code();
            server_.set([code](Stats & s) {
                ++s.packets;
                s.last_code = code;
            });
            if (packet->affirm() == affirmed) {
                onReceipt(*packet);
                return;
            }
            if (server_.options_.on_packet) {
                server_.options_.on_packet(code, std::string(packet->body()));
            }
            server_.log(id_, "packet " + hex4(code) + ", sno " + std::to_string(packet->sequence()) + ", " +
                                 std::to_string(packet->body().size()) + " bytes");
            server_.serve(shared_from_this(), packet);
        }

        void onReceipt(im::Packet const & packet) {
            auto const found = owed_.find(packet.sequence() & 0xffffu);
            bool const good = found != owed_.end() && found->second.code == packet.code() &&
                              packet.body().empty() && packet.session() == id_;
            if (found != owed_.end()) {
                found->second.timer->cancel();
                owed_.erase(found);
            }
            server_.set([good](Stats & s) { ++(good ? s.receipts_good : s.receipts_wrong); });
            server_.log(id_, good ? "receipt" : "wrong receipt");
        }

        void writeFront() {
            asio::async_write(stream_, asio::buffer(writing_.front()),
                              [self = shared_from_this()](std::error_code const & error, std::size_t) {
                                  if (error) {
                                      self->close(false);
                                      return;
                                  }
                                  self->writing_.pop_front();
                                  if (!self->writing_.empty()) {
                                      self->writeFront();
                                  } else if (self->closing_) {
                                      self->close(false);
                                  }
                              });
        }

        Server & server_;
        asio::ssl::stream<tcp::socket> stream_;
        unsigned const id_;
        bool const misbehaves_;
        bool open_ = false;
        bool closing_ = false;
        /// What it was told; until then the faults say it.
        std::optional<bool> silent_;
        std::string peer_;
        unsigned frames_ = 0;
        std::array<unsigned char, head_size> head_{};
        std::string body_;
        std::deque<std::string> writing_;
        std::map<unsigned long long, Owed> owed_;
    };

    void accept() {
        acceptor_.async_accept([this](std::error_code const & error, tcp::socket socket) {
            if (!acceptor_.is_open()) {
                return;
            }
            if (error) {
                accept_later();
                return;
            }
            unsigned const id = ++last_id_;
            bool const misbehaves = options_.fault_connections == 0 || id <= options_.fault_connections;
            auto const connection = std::make_shared<Connection>(*this, std::move(socket), id, misbehaves);
            connections_[id] = connection;
            set([](Stats & s) { ++s.connections; });
            connection->start();
            accept();
        });
    }
    /// Without a free descriptor the next call fails at once as well.
    void accept_later() {
        constexpr std::chrono::milliseconds pause(10);
        auto const timer = std::make_shared<asio::steady_timer>(io_, pause);
        timer->async_wait([this, timer](std::error_code const &) {
            if (acceptor_.is_open()) {
                accept();
            }
        });
    }

    std::vector<ConnectionPtr> copyOfConnections() const {
        std::vector<ConnectionPtr> all;
        for (auto const & entry : connections_) {
            all.push_back(entry.second);
        }
        return all;
    }

    void closeAll(bool reset) {
        for (auto const & connection : copyOfConnections()) {
            connection->close(reset);
        }
    }

    void pushTo(ConnectionPtr const & to, unsigned short code, unsigned long long sno, tav_istr body,
                bool ask, unsigned short version, std::optional<unsigned short> copy_of = std::nullopt) {
        if (!to->open()) {
            return;
        }
        PacketPtr packet = im::Packet::create((code & 0xff00u) != 0, version);
        packet->setCode(code);
        packet->setSequence(sno);
        packet->setSession(to->id());
        packet->setBody(body);
        if (ask) {
            packet->setAffirm(need_affirm);
        }
        if (packet->affirm() == need_affirm) {
            to->owe(packet->sequence(), code);
        }
        if (to->sends()) {
            set([](Stats & s) { ++s.pushes; });
        }
        log(to->id(), "push " + hex4(code));
        to->answer(frame(*packet), copy_of);
    }

    void serve(ConnectionPtr const & from, PacketPtr const & packet) {
        std::string const body = packet->body();
        auto const plan = options_.plan ? options_.plan(packet->code(), body) : nullptr;
        packet->setSession(from->id());
        if (plan == nullptr) {
            usual(from, *packet, body, true);
            return;
        }
        if (plan->receipt) {
            giveReceipt(from, *packet, body);
        }
        follow(from, packet, body, plan, 0);
    }

    /// A packet that asks for a receipt gets one.
    static void giveReceipt(ConnectionPtr const & to, im::Packet & packet, std::string const & body) {
        if ((packet.affirm() & 0xf0u) == need_affirm) {
            packet.setAffirm(affirmed);
            packet.setBody(tav_istr());
            to->answer(frame(packet));
            packet.setBody(tav_istr(body));
        }
        packet.setAffirm(0);
    }

    void usual(ConnectionPtr const & from, im::Packet & packet, std::string const & body, bool receipt) {
        unsigned short const code = packet.code();
        if (code == code_close_me) {
            from->close(false);
            return;
        }
        if (receipt) {
            giveReceipt(from, packet, body);
        }
        if (code >= options_.route_first && code <= options_.route_last) {
            for (auto const & to : copyOfConnections()) {
                if (to != from) {
                    pushTo(to, code, packet.sequence(), tav_istr(body), options_.ask_affirm,
                           packet.version());
                }
            }
        }
        reply(from, packet, options_.echo ? code : static_cast<unsigned short>(code + 1), body, code);
        if (code == code_push_me) {
            pushTo(from, code_pushed, nextSno(), tav_istr(body), true, packet.version(), code);
        }
    }

    /// Answers with the sequence and version of the packet, which stays as it came.
    void reply(ConnectionPtr const & to, im::Packet & packet, unsigned short code, std::string const & body,
               std::optional<unsigned short> copy_of = std::nullopt) {
        unsigned short const came = packet.code();
        std::string const kept = packet.body();
        packet.setAffirm(0);
        packet.setCode(code);
        packet.setBody(tav_istr(body));
        if (packet.version() >= 6) {
            tavMsgExt ext = packet.ext();
            ext.serverTime = tavTime::currentTimeMillis();
            packet.setExt(ext);
        }
        set([](Stats & s) { ++s.replies; });
        to->answer(frame(packet), copy_of);
        packet.setCode(came);
        packet.setBody(tav_istr(kept));
    }

    /// Takes the steps of a plan from one of them on.
    void follow(ConnectionPtr const & from, PacketPtr const & packet, std::string const & body,
                std::shared_ptr<Plan const> const & plan, std::size_t next) {
        for (; next < plan->steps.size() && from->open(); ++next) {
            Step const & step = plan->steps[next];
            if (step.kind == Step::Kind::delay) {
                from->later(step.delay_ms, [this, from, packet, body, plan, next] {
                    follow(from, packet, body, plan, next + 1);
                });
                return;
            }
            take(step, from, *packet, body);
        }
    }

    void take(Step const & step, ConnectionPtr const & from, im::Packet & packet, std::string const & body) {
        switch (step.kind) {
        case Step::Kind::usual: usual(from, packet, body, false); return;
        case Step::Kind::answer: reply(from, packet, step.code, step.body); return;
        case Step::Kind::push:
            pushTo(from, step.code, nextSno(), tav_istr(step.body), false, packet.version());
            return;
        case Step::Kind::push_all:
            for (auto const & to : copyOfConnections()) {
                pushTo(to, step.code, nextSno(), tav_istr(step.body), false, packet.version());
            }
            return;
        case Step::Kind::close: from->closeAfterAnswers(); return;
        case Step::Kind::reset: from->close(true); return;
        case Step::Kind::cut: from->cut(); return;
        case Step::Kind::oversize: from->oversize(); return;
        case Step::Kind::garbage: from->garbage(); return;
        case Step::Kind::silence: from->silence(true); return;
        case Step::Kind::delay: return;
        }
    }

    unsigned long long nextSno() { return last_sno_ = last_sno_ % 0xffffu + 1; }

    template <class Change>
    void set(Change const & change) {
        std::lock_guard<std::mutex> const guard(mutex_);
        change(stats_);
        changed_.notify_all();
    }

    void log(unsigned id, std::string const & text) const {
        if (options_.log) {
            options_.log("#" + std::to_string(id) + " " + text);
        }
    }

    Options options_;
    asio::io_context io_;
    asio::ssl::context tls_;
    tcp::acceptor acceptor_;
    unsigned short port_ = 0;
    unsigned last_id_ = 0;
    unsigned long long last_sno_ = 0;
    std::map<unsigned, ConnectionPtr> connections_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    Stats stats_;
    std::thread thread_;
};

Gateway::Gateway(Options const & options, Certificates const & certificates)
    : server_(std::make_unique<Server>(options, certificates)) {}

Gateway::~Gateway() = default;

void Gateway::start() {
    server_->start();
}

void Gateway::stop() {
    server_->stop();
}

unsigned short Gateway::port() const {
    return server_->port();
}

void Gateway::push(unsigned short code, std::string const & body, bool ask_affirm, unsigned short version) {
    server_->push(code, body, ask_affirm, version);
}

void Gateway::sendRaw(std::string const & bytes) {
    server_->sendRaw(bytes);
}

void Gateway::drop(bool reset) {
    server_->drop(reset);
}

void Gateway::setFaults(Faults const & faults) {
    server_->setFaults(faults);
}

void Gateway::pushTo(unsigned connection, unsigned short code, std::string const & body,
                     unsigned short version) {
    server_->pushToOne(connection, code, body, version);
}

void Gateway::drop(unsigned connection, bool reset) {
    server_->dropOne(connection, reset);
}

void Gateway::silence(unsigned connection, bool on) {
    server_->silence(connection, on);
}

Stats Gateway::stats() const {
    return server_->stats();
}

bool Gateway::wait(std::function<bool(Stats const &)> const & done, int ms) const {
    return server_->wait(done, ms);
}

} // namespace gateway
} // namespace tav
