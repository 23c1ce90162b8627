#include "tav/vinta/vinta_tls_client.h"

#include "gateway/gateway_core.h"
#include "support/client_rig.h"
#include "support/folder.h"
#include "torture/sample.h"
#include "torture/scenarios.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace tav_test {
namespace torture {
namespace {

namespace gateway = tav::gateway;

constexpr unsigned short askCode = 0x2001;
constexpr unsigned short answerCode = 0x2002;
/// Of what has to come about, in milliseconds.
constexpr int waitLimit = 8000;
constexpr int longLimit = 6000;
/// Of a send whose reply there may be no memory for.
constexpr int shortLimit = 200;

/// The gateway of all scenarios, once there is one.
std::unique_ptr<gateway::Gateway> & running() {
    static auto & the = *new std::unique_ptr<gateway::Gateway>;
    return the;
}

/// Its thread ends ahead of the static objects.
class EndsGateway : public testing::Environment {
    void TearDown() override { running().reset(); }
};
[[maybe_unused]] testing::Environment const * const endsGateway =
    testing::AddGlobalTestEnvironment(new EndsGateway);

/// A gateway for all scenarios, none of whose allocations and calls fails.
gateway::Gateway & server() {
    static gateway::Gateway * const the = [] {
        Spared const spared;
        TlsIdentity const & own = TlsIdentity::ecdsa();
        gateway::Options options;
        options.ask_affirm = true;
        options.log = [](std::string const &) { spareThread(); };
        running() =
            std::make_unique<gateway::Gateway>(options, gateway::Certificates{own.ca, own.chain, own.key});
        running()->start();
        return running().get();
    }();
    return *the;
}

template <class Done>
bool comes(Done const & done) {
    Spared const spared;
    return eventually(done, waitLimit);
}

/// A client, and what it has told.
class Rig {
public:
    Rig() : port(std::to_string(server().port())), client(std::make_unique<tls::client>("torture")) {}

    tls::connect_option option() {
        tls::connect_option out;
        out.host = "127.0.0.1";
        out.port = port;
        out.timedout.wait_ms(longLimit);
        out.set_on_open([this] { ++opened; });
        out.set_on_error([this](unsigned long long, unsigned short, int, char const *) { ++errors; });
        return out;
    }

    /// Something that may fail for want of memory, or of what the system gives.
    template <class F>
    static void tried(F && f) {
        try {
            f();
        } catch (std::bad_alloc const &) {
            // What was tried has not begun.
        } catch (std::system_error const & e) {
            holds(isMadeToHappen(e.code()), "a want is told as such");
        }
    }

    template <class Info>
    static bool ends(std::shared_ptr<Info> const & info) {
        bool const ended = info == nullptr || comes([&] { return info->result() >= 0; });
        holds(ended, "what has begun ends");
        return ended;
    }

    /// A connect has ended, and has told so as it is to: with the name of what was wanting, unless it was
    /// going to fail anyhow.
    void toldOnce(std::shared_ptr<tls::connect_info> const & info,
                  tls::failure expected = tls::failure::none) {
        if (!ends(info) || info == nullptr) {
            return;
        }
        tls::result_type const result = info->result();
        holds((result == tls::result_ok) == (info->error() == tls::failure::none), "a failure has its name");
        if (result == tls::result_error) {
            holds(info->error() == expected || isNameOfWant(info->error()),
                  "a failure has the name of what was wanting");
            holds(comes([&] { return errors == 1; }), "a connect that fails is told once");
            holds(opened == 0, "a connect that fails has not opened");
        } else if (result == tls::result_ok) {
            holds(opened == 1, "a connect that opens is told once");
        }
    }

    /// With the gateway knowing of it.
    void connect() { connect(option()); }
    void connect(tls::connect_option const & how) {
        holds(connected(client->start(how)), "a client connects with all memory there is");
        holds(answered(), "a new connection answers");
    }
    static bool connected(std::shared_ptr<tls::connect_info> const & info) {
        return info != nullptr && ends(info) && info->result() == tls::result_ok;
    }

    static tls::send_option limited(int ms = longLimit) {
        return tls::send_option(tls::timedout_option(ms), tls::error_function(), tls::nbr_function(),
                                answerCode, false, 6);
    }
    std::shared_ptr<tls::send_info> send(unsigned short code = askCode, int ms = longLimit) {
        return client->send_nbr_msg(code, reinterpret_cast<unsigned char const *>(written().nbr.data()),
                                    static_cast<unsigned>(written().nbr.size()), limited(ms));
    }

    /// With all memory there is: a connection that is left, or else a new one, answers.
    void works() {
        if (!client->connected() || !answered()) {
            connect();
        }
    }

    bool answered() {
        auto const info = send();
        return info != nullptr && ends(info) && info->result() == tls::result_ok;
    }

    std::string const port;
    std::atomic<unsigned> opened{0};
    std::atomic<unsigned> errors{0};
    std::atomic<unsigned> received{0};
    std::unique_ptr<tls::client> client;
};

void made() {
    std::unique_ptr<tls::client> client;
    {
        Want const want;
        Rig::tried([&] { client = std::make_unique<tls::client>("a client with a name of some length"); });
        client.reset();
    }
    Rig().works();
}

void namedAndDestroyed() {
    {
        Want const want;
        Rig::tried([] {
            tls::client & client = tls::client::instance("a client with a name of some length");
            holds(&client == &tls::client::instance("a client with a name of some length"),
                  "there is one of a name");
        });
        Rig::tried([] { tls::client::destroy("a client with a name of some length"); });
    }
    tls::client::instance("a client with a name of some length").statistics();
    holds(tls::client::destroy("a client with a name of some length"), "a client can be made again");
    holds(!tls::client::destroy("a client with a name of some length"), "no client is left");
}

void started() {
    Rig rig;
    std::shared_ptr<tls::connect_info> info;
    {
        Want const want;
        Rig::tried([&] { info = rig.client->start(rig.option()); });
        rig.toldOnce(info);
    }
    rig.works();
}

void startedByName() {
    Rig rig;
    std::shared_ptr<tls::connect_info> info;
    {
        Want const want;
        Rig::tried([&] {
            auto option = rig.option();
            option.host = "localhost";
            info = rig.client->start(option);
        });
        rig.toldOnce(info);
    }
    rig.works();
}

/// A file for all runs, none of whose calls fails.
template <class Text>
std::string fileOf(Text const & text) {
    Spared const spared;
    static TempFile const * const file = new TempFile(text());
    return file->path();
}

std::string authority() {
    return fileOf([] { return TlsIdentity::ecdsa().ca; });
}

void startedWithPolicy() {
    Rig rig;
    std::string const certificate = fileOf([] { return TlsIdentity::ecdsa().chain; });
    std::string const key = fileOf([] { return TlsIdentity::ecdsa().key; });
    std::shared_ptr<tls::connect_info> info;
    {
        Want const want;
        Rig::tried([&] {
            auto option = rig.option();
            option.ca = authority();
            tls::tls_policy policy;
            policy.certificate_file = certificate;
            policy.key_file = key;
            policy.tcp_keep_alive_s = 60;
            option.set_tls_policy(policy);
            info = rig.client->start(option);
        });
        rig.toldOnce(info);
    }
    rig.works();
}

/// Who is not believed is not, whatever could not be read or kept.  An exception that passed through the TLS
/// library's question about the certificate would leak what that holds, which the leak sanitizer tells.
void strangerRefused() {
    std::string const other = fileOf([] { return TlsIdentity::stranger().ca; });
    Rig rig;
    std::shared_ptr<tls::connect_info> info;
    {
        Want const want;
        Rig::tried([&] {
            auto option = rig.option();
            option.ca = other;
            info = rig.client->start(option);
        });
        rig.toldOnce(info, tls::failure::certificate_refused);
        holds(info == nullptr || info->result() != tls::result_ok, "a stranger is never believed");
    }
    auto option = rig.option();
    option.ca = authority();
    rig.connect(option);
}

void startedWithAll() {
    Rig rig;
    std::string const ca = authority();
    std::shared_ptr<tls::connect_info> info;
    {
        Want const want;
        Rig::tried([&] {
            auto option = rig.option();
            option.ca = ca;
            option.metainfo = sampleTemplate;
            option.server_name = "localhost";
            option.limits.queued_frames = 50;
            option.limits.tracked_sends = 50;
            option.set_nbr_msg_callback(
                [](unsigned long long, unsigned short, unsigned char const *, unsigned, tavMsgExt) {});
            info = rig.client->start(option);
        });
        rig.toldOnce(info);
    }
    rig.works();
}

void refused() {
    static std::string const * const closed = [] {
        Spared const spared;
        TlsPeer peer;
        peer.stop();
        return new std::string(peer.portText());
    }();
    Rig rig;
    std::shared_ptr<tls::connect_info> info;
    {
        Want const want;
        Rig::tried([&] {
            auto option = rig.option();
            option.port = *closed;
            info = rig.client->start(option);
        });
        rig.toldOnce(info, tls::failure::refused);
    }
    holds(info == nullptr || info->result() != tls::result_ok, "nobody listens there");
    rig.works();
}

void cancelled() {
    Rig rig;
    std::shared_ptr<tls::connect_info> info;
    {
        Want const want;
        Rig::tried([&] { info = rig.client->start(rig.option()); });
        Rig::tried([&] {
            if (info) {
                info->cancel();
            }
        });
        Rig::ends(info);
    }
    rig.works();
}

void sent() {
    Rig rig;
    rig.connect();
    std::shared_ptr<tls::send_info> info;
    {
        Want const want;
        Rig::tried([&] { info = rig.send(askCode, shortLimit); });
        Rig::ends(info);
    }
    rig.works();
}

void sentAsObjects() {
    Rig rig;
    rig.connect();
    rig.client->register_message(answerCode, [] { return new Everything; });
    std::shared_ptr<tls::send_info> info;
    {
        Want const want;
        Rig::tried([&] {
            tls::send_option option(shortLimit, nullptr, nullptr,
                                    tls::obj_function([&rig](unsigned long long, tavMessage const & msg) {
                                        rig.received +=
                                            dynamic_cast<Everything const *>(&msg) != nullptr ? 1u : 0u;
                                    }),
                                    answerCode, false, 6);
            option.ext.traceId = tavString("a trace id that is no short one");
            info = rig.client->send_msg(sample(), option);
        });
        Rig::ends(info);
    }
    holds(info == nullptr || info->result() != tls::result_ok || rig.received == 1, "a reply is handed on");
    rig.works();
}

void sentAsJson() {
    Rig rig;
    auto option = rig.option();
    option.metainfo = sampleTemplate;
    rig.connect(option);
    std::shared_ptr<tls::send_info> info;
    {
        Want const want;
        Rig::tried([&] {
            tls::send_option how(shortLimit, nullptr, nullptr,
                                 tls::json_function([&rig](unsigned long long, unsigned short, char const *,
                                                           tavMsgExt const &) { ++rig.received; }),
                                 answerCode, false, 6);
            info = rig.client->send_json_msg(written().json.c_str(), how, "im.Everything");
        });
        Rig::ends(info);
    }
    rig.works();
}

/// What the gateway makes of it.
class Answered : public Everything {
public:
    unsigned short msgcode() const override { return answerCode; }
};

void sentAndWaitedFor() {
    Rig rig;
    rig.connect();
    {
        Want const want;
        Rig::tried([&] {
            Answered answer;
            bool const ok = rig.client->send_and_wait(sample(), answer, shortLimit) == tls::result_ok;
            Spared const spared;
            holds(!ok || answer.standard == sample().standard, "a reply that ends a wait is whole");
        });
    }
    rig.works();
}

void sentUntracked() {
    Rig rig;
    rig.connect();
    {
        Want const want;
        for (int i = 0; i < 3; ++i) {
            Rig::tried([&] { rig.client->send_nbr_msg(askCode, nullptr, 0, tls::send_option()); });
            Rig::tried([&] { rig.client->send_old_nbr_msg(5, "a body", "a target that is no short one"); });
        }
    }
    rig.works();
}

void timedOut() {
    Rig rig;
    rig.connect();
    std::shared_ptr<tls::send_info> info;
    {
        Want const want;
        Rig::tried([&] { info = rig.send(0x6666, 1); });
        Rig::ends(info);
    }
    rig.works();
}

void sendsCancelled() {
    Rig rig;
    rig.connect();
    std::shared_ptr<tls::send_info> first;
    std::shared_ptr<tls::send_info> second;
    {
        Want const want;
        Rig::tried([&] { first = rig.send(askCode, shortLimit); });
        Rig::tried([&] { second = rig.send(0x6666); });
        Rig::tried([&] {
            if (first) {
                first->cancel();
            }
        });
        Rig::tried([&] { rig.client->cancel_all(); });
        Rig::ends(first);
    }
    // A cancel that had no memory has ended nothing.
    rig.client->cancel_all();
    Rig::ends(second);
    rig.client->close();
    rig.works();
}

/// Messages come while `registered` is there for them; one that there was no memory for is lost.
template <class Register>
void receives(Register const & registered) {
    Rig rig;
    auto option = rig.option();
    option.metainfo = sampleTemplate;
    rig.connect(option);
    registered(rig);
    {
        Want const want;
        {
            Spared const spared;
            for (int i = 0; i < 3; ++i) {
                server().push(askCode, written().nbr, i != 0, 6);
            }
        }
        std::shared_ptr<tls::send_info> info;
        Rig::tried([&] { info = rig.send(askCode, shortLimit); });
        // Replies are handled behind what came ahead of them.
        Rig::ends(info);
    }
    rig.works();
}

void received() {
    receives([](Rig & rig) {
        rig.client->on_nbr_msg(askCode, [&rig](unsigned long long, unsigned short, unsigned char const *,
                                               unsigned, tavMsgExt) { ++rig.received; });
    });
}

void receivedAsJson() {
    receives([](Rig & rig) {
        rig.client->on_json_msg(
            askCode, [&rig](unsigned long long, unsigned short, char const *, tavMsgExt) { ++rig.received; });
    });
}

void receivedAsObjects() {
    receives([](Rig & rig) {
        rig.client->register_message(askCode, [] { return new Everything; });
        rig.client->on_msg(askCode, tls::ptr_function([&rig](unsigned long long, tavSharedPtr<tavMessage>) {
                               ++rig.received;
                           }));
    });
}

void sendsWhileReceiving() {
    receives([](Rig & rig) {
        rig.client->on_nbr_msg(askCode, [&rig](unsigned long long, unsigned short, unsigned char const *,
                                               unsigned, tavMsgExt) { rig.send(askCode, shortLimit); });
    });
}

/// The connection ends by the gateway's doing, with a send that waits.
template <class Break>
void breaks(Break const & broken) {
    Rig rig;
    rig.connect();
    auto const waiting = rig.send(0x6666);
    {
        Want const want;
        {
            Spared const spared;
            broken();
        }
        Rig::ends(waiting);
        holds(comes([&] { return rig.errors != 0; }), "the end of a connection is told");
        holds(comes([&] { return !rig.client->connected(); }), "the end of a connection shows");
    }
    rig.works();
}

void peerCloses() {
    breaks([] { server().drop(); });
}

void peerResets() {
    breaks([] { server().drop(true); });
}

/// What is no frame is told, and nothing is read behind it: the application ends the connection.
void peerSendsNonsense() {
    Rig rig;
    rig.connect();
    auto const waiting = rig.send(0x6666);
    {
        Want const want;
        {
            Spared const spared;
            server().sendRaw(std::string(20, '\xff'));
        }
        holds(comes([&] { return rig.errors != 0; }), "what is no frame is told");
        Rig::tried([&] { rig.client->close(); });
    }
    rig.client->close();
    Rig::ends(waiting);
    rig.works();
}

void reconnected() {
    Rig rig;
    rig.connect();
    std::shared_ptr<tls::connect_info> info;
    {
        Want const want;
        Rig::tried([&] { info = rig.client->reconnect(tls::timedout_option(longLimit)); });
        Rig::ends(info);
    }
    rig.works();
}

void closed() {
    Rig rig;
    rig.connect();
    auto const waiting = rig.send(0x6666);
    {
        Want const want;
        Rig::tried([&] { rig.client->close(); });
        if (rig.client->connected()) {
            Spared const spared;
            rig.client->close();
        }
        Rig::ends(waiting);
    }
    rig.works();
}

void destroyed() {
    {
        Rig rig;
        rig.connect();
        auto const waiting = rig.send(0x6666);
        {
            Want const want;
            rig.client.reset();
        }
        Rig::ends(waiting);
    }
    Rig().works();
}

void finalized() {
    {
        Rig rig;
        tls::client & client = tls::client::instance("a client with a name of some length");
        auto const info = client.start(rig.option());
        holds(Rig::connected(info), "a named client connects");
        {
            Want const want;
            Rig::tried([] { tls::client::finalize(); });
        }
        tls::client::finalize();
        holds(!tls::client::destroy("a client with a name of some length"), "no named client is left");
    }
    Rig().works();
}

void asked() {
    Rig rig;
    rig.connect();
    {
        Want const want;
        Rig::tried([&] {
            rig.client->register_class("a class of a long name", [] { return new Everything; });
            holds(static_cast<bool>(rig.client->createObject("a class of a long name")), "a class is made");
            rig.client->unregister_class("a class of a long name");
        });
        Rig::tried([&] {
            holds(!rig.client->get_local_addr().port.empty() && !rig.client->get_remote_addr().port.empty(),
                  "both ends are told");
        });
        Rig::tried([&] { holds(!rig.client->negotiated().version.empty(), "what was negotiated is told"); });
        Rig::tried([&] {
            tavPmlOutStream out;
            rig.client->io(out);
            holds(!rig.client->id().empty() && rig.client->statistics().connects_up > 0,
                  "the client describes itself");
        });
    }
    rig.works();
}

/// The log at one of its levels, another one at each run, with a file beside the function.  What is told
/// there shows no protected field.
class WatchedLog {
public:
    WatchedLog() : level_(next()) {
        static std::string const * const levels =
            new std::string[8]{"ALL", "TRACE", "VERBOSE", "DEBUG", "INFO", "WARN", "ERROR", "NONE"};
        tavLogger::open(
            tav_istr(path()), "torture", tav_istr("(clear(" + levels[level_] + "))"),
            [](int, char const * line) { keepsSecret(line); }, "1.0", 10000000, false, tavLogger::WARN);
    }
    ~WatchedLog() {
        Spared const spared;
        tavLogger::close();
        std::string const content = tavUtil::readFile(path());
        holds(!content.empty(), "the file has its banner at least");
        // Frames are there at the levels below.
        if (level_ >= tavLogger::DEBUG) {
            keepsSecret(content);
        }
        tavLogger::finalize();
        tavLogger::setup(
            tav_istr(before_), [](int, char const * line) { keepsSecret(line); }, false, tavLogger::NONE);
        std::remove(path().c_str());
    }
    WatchedLog(WatchedLog const &) = delete;
    WatchedLog & operator=(WatchedLog const &) = delete;

private:
    static int next() {
        static int runs = 0;
        return runs++ % 8;
    }
    static std::string const & path() {
        static Folder const folder;
        static std::string const file = folder.path() + "/log.txt";
        return file;
    }

    std::string const before_{std::string(tav_istr(tavLogger::str()))};
    int const level_;
};

/// As `tried`; what is raised shows no protected field.
template <class F>
void triedInSecret(F && f) {
    Rig::tried([&] {
        try {
            f();
        } catch (std::exception const & e) {
            keepsSecret(e.what());
            throw;
        }
    });
}

/// A protected field goes both ways by each kind of function, and its message is one that can't be read as
/// well.
void secretsKept() {
    std::optional<WatchedLog> log;
    {
        Spared const spared;
        log.emplace();
    }
    {
        Rig rig;
        auto option = rig.option();
        option.metainfo = sampleTemplate;
        option.set_on_error([&rig](unsigned long long, unsigned short, int, char const * text) {
            keepsSecret(text);
            ++rig.errors;
        });
        rig.connect(option);
        rig.client->register_message(answerCode, [] { return new Everything; });
        tls::error_function const told = [](unsigned long long, unsigned short, int, char const * text) {
            keepsSecret(text);
        };
        tls::obj_function const object = [&rig](unsigned long long, tavMessage const &) { ++rig.received; };
        tls::json_function const json = [](unsigned long long, unsigned short, char const *,
                                           tavMsgExt const &) {};
        tls::send_option const asObject(shortLimit, nullptr, told, object, answerCode, false, 6);
        tls::send_option const asJson(shortLimit, nullptr, told, json, answerCode, false, 6);
        std::string_view const nbr = written().nbr;
        {
            Want const want;
            std::shared_ptr<tls::send_info> info;
            triedInSecret([&] { info = rig.client->send_msg(sample(), asObject); });
            Rig::ends(info);
            triedInSecret(
                [&] { info = rig.client->send_json_msg(written().json.c_str(), asJson, "im.Everything"); });
            Rig::ends(info);
            triedInSecret([&] {
                std::string_view const cut = nbr.substr(0, nbr.find(canary) + canary.size() - 1);
                try {
                    Everything().decode(viewOf(cut));
                } catch (std::bad_alloc const &) {
                    throw;
                } catch (std::exception const & e) {
                    keepsSecret(e.what());
                }
            });
        }
        rig.works();
    }
    Spared const spared;
    log.reset();
}

} // namespace

Scenarios clientScenarios() {
    return {{"made", made, Of::want},
            {"named_and_destroyed", namedAndDestroyed, Of::want},
            {"started", started, Of::want},
            {"started_with_all", startedWithAll, Of::want},
            {"started_by_name", startedByName, Of::want},
            {"started_with_policy", startedWithPolicy, Of::want},
            {"stranger_refused", strangerRefused, Of::want},
            {"refused", refused, Of::want},
            {"cancelled", cancelled, Of::want},
            {"sent", sent, Of::want},
            {"sent_as_objects", sentAsObjects, Of::want},
            {"sent_as_json", sentAsJson, Of::want},
            {"sent_and_waited_for", sentAndWaitedFor, Of::want},
            {"sent_untracked", sentUntracked, Of::want},
            {"timed_out", timedOut, Of::want},
            {"sends_cancelled", sendsCancelled, Of::want},
            {"received", received, Of::want},
            {"received_as_json", receivedAsJson, Of::want},
            {"received_as_objects", receivedAsObjects, Of::want},
            {"sends_while_receiving", sendsWhileReceiving, Of::want},
            {"peer_closes", peerCloses, Of::want},
            {"peer_resets", peerResets, Of::want},
            {"peer_sends_nonsense", peerSendsNonsense, Of::want},
            {"reconnected", reconnected, Of::want},
            {"closed", closed, Of::want},
            {"destroyed", destroyed, Of::want},
            {"finalized", finalized, Of::want},
            {"asked", asked, Of::want},
            {"secrets_kept", secretsKept, Of::want}};
}

} // namespace torture
} // namespace tav_test
