#ifndef TAV_TESTS_SUPPORT_CLIENT_RIG_H
#define TAV_TESTS_SUPPORT_CLIENT_RIG_H

#include "tav/vinta/vinta_tls_client.h"

#include "gateway/gateway_core.h"
#include "support/folder.h"
#include "support/session_rig.h"
#include "support/tls_peer.h"
#include "tav/vinta/vinta_im_pkt.h"
#include "tav/vinta/vinta_mt_thread.h"

#include <dirent.h>

#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// What tests of the whole client share: messages, packets as bytes, a client with a scripted peer, a
/// gateway, and counts of what a process holds.
namespace tav_test {

namespace tls = tav::tls;

/// A message with a number and a text.
template <unsigned short Code>
class Msg : public tavMessage {
public:
    int number = 0;
    tavString text;

    Msg() = default;
    explicit Msg(int n) : number(n) {}

    static tavObject * create() { return new Msg; }
    unsigned short msgcode() const override { return Code; }
    tav_istr className() const override { return "Msg"; }
    tav_istr baseName() const override { return "tavMessage"; }
    tavObject * newInstance() const override { return new Msg; }
    void assignFrom(tavObject const & other) override {
        if (auto const * const from = dynamic_cast<Msg const *>(&other)) {
            *this = *from;
        }
    }

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "number", number);
        ioField(s, 2, "text", text);
    }
};

using Ask = Msg<0x1234>;
using Answer = Msg<0x1235>;

/// The body of a message with this number.
inline std::string bodyOf(int number) {
    return std::string(tav_istr(Ask(number).encode(true)));
}

/// A packet's bytes as they stand in a frame.
struct Pkt {
    unsigned short code = 0;
    unsigned long long sno = 0;
    std::string body;
    unsigned short version = 4;
    unsigned char affirm = 0;
    unsigned long long session = 0;
    bool grey = false;
    tavMsgExt ext;

    std::string bytes() const {
        auto const packet = tav::im::Packet::create(version != 0, version);
        packet->setCode(code);
        packet->setSequence(sno);
        packet->setBody(tav_istr(body));
        packet->setAffirm(affirm);
        packet->setSession(session);
        packet->setGrey(grey);
        packet->setExt(ext);
        tavBytes out;
        packet->encode(out);
        return std::string(tav_istr(out));
    }
    std::string framed() const { return frame(bytes()); }

    /// Reads what a client sent; throws if that is no packet.
    static Pkt of(std::string const & bytes) {
        auto const second = static_cast<unsigned char>(bytes.at(1));
        auto const packet = tav::im::Packet::create(second != 0, second);
        if (!packet->decode(tav_istr(bytes))) {
            throw std::runtime_error("not a packet");
        }
        Pkt out;
        out.code = packet->code();
        out.sno = packet->sequence();
        out.body = std::string(packet->body());
        out.version = packet->version();
        out.affirm = packet->affirm();
        out.session = packet->session();
        out.grey = packet->grey();
        out.ext = packet->ext();
        return out;
    }
};

inline Pkt mobile(unsigned short code, unsigned long long sno, std::string body = bodyOf(5)) {
    Pkt out;
    out.code = code;
    out.sno = sno;
    out.body = std::move(body);
    return out;
}

/// An old message.
inline Pkt old(unsigned char code, unsigned long long sno, std::string body = bodyOf(5)) {
    Pkt out = mobile(code, sno, std::move(body));
    out.version = 0;
    return out;
}

/// The result of a connect or a send once it has ended; what it is by then if that has not come in time.
template <class Info>
tls::result_type resultOf(Info const & info, int ms = peer_limit_ms) {
    if (!info) {
        throw std::runtime_error("no result object");
    }
    eventually([&] { return info->result() >= 0; }, ms);
    return info->result();
}

inline std::string threadName() {
    return std::string(tav_istr(tavThread::currentName()));
}

inline std::string textOf(unsigned long long v) {
    return std::to_string(v);
}

/// The number of entries of a folder.
inline unsigned entriesOf(char const * path) {
    unsigned n = 0;
    if (DIR * const listing = ::opendir(path)) {
        while (dirent const * const entry = ::readdir(listing)) {
            n += entry->d_name[0] != '.' ? 1u : 0u;
        }
        ::closedir(listing);
    }
    return n;
}
inline unsigned threadsNow() {
    return entriesOf("/proc/self/task");
}
inline unsigned descriptorsNow() {
    return entriesOf("/proc/self/fd");
}

/// Threads and descriptors of the process, to be compared with a later count.
class Holdings {
public:
    Holdings() {
        // A sanitizer's own thread comes with the first of the program, and stays.
        std::thread([] {}).join();
        threads_ = threadsNow();
        descriptors_ = descriptorsNow();
    }
    /// Waits until there are no more than at first.
    bool back() const {
        return eventually([&] { return threadsNow() <= threads_ && descriptorsNow() <= descriptors_; });
    }
    std::string print() const {
        return "threads " + textOf(threads_) + " -> " + textOf(threadsNow()) + ", descriptors " +
               textOf(descriptors_) + " -> " + textOf(descriptorsNow());
    }

private:
    unsigned threads_;
    unsigned descriptors_;
};

/// A file that goes with the object.
class TempFile {
public:
    explicit TempFile(std::string const & content) : path_(folder_.write("file", content)) {}
    std::string const & path() const { return path_; }

private:
    Folder const folder_;
    std::string const path_;
};

/// An option for an address on loopback whose events are recorded, each with the thread that told it.
inline tls::connect_option optionFor(unsigned port, Events & events) {
    tls::connect_option out;
    out.host = "127.0.0.1";
    out.port = std::to_string(port);
    out.set_on_open([&events] { events.add("open on " + threadName()); });
    out.set_on_error([&events](unsigned long long sno, unsigned short code, int error, char const * text) {
        bool const whole = sno == ~0ull && code == 0xffff;
        events.add(std::string(whole ? "" : "wrong ") + "error " + std::to_string(error) + " on " +
                   threadName() + ": " + text);
    });
    out.timedout.set_on_timedout([&events](unsigned long long sno, unsigned short code, bool cancelled) {
        bool const whole = sno == ~0ull && code == 0xffff;
        events.add(std::string(whole ? "" : "wrong ") + (cancelled ? "cancelled on " : "timedout on ") +
                   threadName());
    });
    out.set_on_heartbeat_timedout([&events] { events.add("heartbeat on " + threadName()); });
    return out;
}

/// Accepts what connects to a peer and shakes hands, on a thread of its own while it lives.
class Acceptor {
public:
    explicit Acceptor(TlsPeer & peer)
        : thread_([this, &peer] {
              while (!done_) {
                  if (peer.pending(5)) {
                      accept(peer);
                  }
              }
          }) {}
    ~Acceptor() {
        done_ = true;
        thread_.join();
    }
    Acceptor(Acceptor const &) = delete;
    Acceptor & operator=(Acceptor const &) = delete;

private:
    void accept(TlsPeer & peer) {
        try {
            auto next = peer.accept();
            next->handshake();
            taken_.push_back(std::move(next));
        } catch (std::exception const &) {
            // The client went on the way.
        }
    }

    std::atomic<bool> done_{false};
    std::vector<std::unique_ptr<TlsConnection>> taken_;
    std::thread thread_;
};

/// Runs `work` on a thread of its own; false, and the thread is left behind, if it does not end in time. What
/// `work` holds is gone by then.
template <class Work>
bool endsInTime(Work work) {
    auto const done = std::make_shared<std::promise<void>>();
    std::future<void> const ended = done->get_future();
    std::thread([held = std::make_unique<Work>(std::move(work)), done]() mutable {
        (*held)();
        held.reset();
        done->set_value();
    }).detach();
    return ended.wait_for(std::chrono::milliseconds(peer_limit_ms)) == std::future_status::ready;
}

/// A client whose far end is driven by the test.
class ClientRig {
public:
    explicit ClientRig(char const * name = "n") : client(tav_istr(name)) {}

    tls::connect_option option() { return optionFor(peer.port(), events); }

    /// Connects, or throws.
    void connect() { connect(option()); }
    void connect(tls::connect_option const & option) { finish(client.start(option)); }
    void reconnect(int wait_ms = 0) { finish(client.reconnect(tls::timedout_option(wait_ms))); }

    /// Accepts what has begun to connect.
    void finish(std::shared_ptr<tls::connect_info> const & info) {
        server = peer.accept();
        if (!server->handshake() || resultOf(info) != tls::result_ok) {
            throw std::runtime_error("the client did not connect");
        }
    }

    /// The next packet that the client sends.
    Pkt receive() { return Pkt::of(server->receiveFrame()); }

    /// Waits until all that was sent to the client by now has been handled.
    bool settle() {
        Events done;
        client.on_nbr_msg(0x7f7f, [&done](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                          tavMsgExt) { done.add("done"); });
        server->send(mobile(0x7f7f, 0xffff).framed());
        bool const came = done.wait(1);
        client.on_nbr_msg(0x7f7f, tls::nbr_function());
        return came;
    }

    TlsPeer peer;
    std::unique_ptr<TlsConnection> server;
    Events events;
    tls::client client;
};

/// A running gateway whose certificate is the tests' own.
class GatewayRig {
public:
    explicit GatewayRig(tav::gateway::Options const & options = tav::gateway::Options())
        : gateway(options, certificates()) {
        gateway.start();
    }

    static tav::gateway::Certificates certificates() {
        TlsIdentity const & own = TlsIdentity::ecdsa();
        return tav::gateway::Certificates{own.ca, own.chain, own.key};
    }

    tls::connect_option option() { return optionFor(gateway.port(), events); }

    Events events;
    tav::gateway::Gateway gateway;
};

} // namespace tav_test

#endif
