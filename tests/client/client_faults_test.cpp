#include "tav/vinta/vinta_tls_client.h"

#include "gateway/gateway_core.h"
#include "support/bounded.h"
#include "support/client_rig.h"
#include "support/folder.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <iterator>

using namespace tav_test;
using tav::gateway::Faults;
using tav::gateway::Options;
using tav::gateway::Stats;
using tls::client;

namespace {

Options with(Faults const & faults, unsigned connections = 0) {
    Options out;
    out.faults = faults;
    out.fault_connections = connections;
    return out;
}

/// A client of a gateway, with counts of what was there before both.
class Case {
public:
    explicit Case(Options const & options) : gateway_(new GatewayRig(options)), client_(new client("n")) {}

    tav::gateway::Gateway & gateway() { return gateway_->gateway; }
    tls::connect_option option() { return optionFor(gateway().port(), events_); }
    Events & events() { return events_; }
    client & c() { return *client_; }

    void connect() { connect(option()); }
    void connect(tls::connect_option const & option) {
        ASSERT_EQ(resultOf(c().start(option)), tls::result_ok);
        ASSERT_TRUE(events().wait(1));
        ASSERT_TRUE(gateway().wait([](Stats const & stats) { return stats.open == 1; }));
    }

    std::shared_ptr<tls::send_info> ask(int wait_ms = 20000) {
        return c().send_msg(Ask(5), tls::send_option(
                                        wait_ms,
                                        [this](unsigned long long, unsigned short, bool cancelled) {
                                            told.add(cancelled ? "cancelled" : "timedout");
                                        },
                                        tls::error_function(), tls::nbr_function(), 0x1235, false, 4));
    }

    /// The gateway behaves from now on; a new connection works, is closed, and nothing of the client is left.
    void expectRecovery() {
        gateway().setFaults(Faults());
        EXPECT_EQ(resultOf(c().reconnect(tls::timedout_option(20000))), tls::result_ok);
        EXPECT_TRUE(c().connected());
        expectEnd();
    }

    /// Close and destruction come back, and nothing of the client is left.
    void expectEnd() {
        c().close();
        EXPECT_TRUE(eventually([&] { return !c().connected(); }));
        EXPECT_TRUE(endsInTime([this] { client_.reset(); }));
        EXPECT_TRUE(gateway().wait([](Stats const & s) { return s.open == 0; }));
        gateway_.reset();
        EXPECT_TRUE(before_.back()) << before_.print();
    }

    Events told;

private:
    Holdings const before_;
    Events events_;
    std::unique_ptr<GatewayRig> gateway_;
    std::unique_ptr<client> client_;
};

class ClientFaults : public ::testing::Test {
protected:
    /// Certificates and the TLS library's own state are made before anything is counted.
    static void SetUpTestSuite() {
        LogCapture const log("clear(NONE)");
        GatewayRig rig;
        client c("warm");
        ASSERT_EQ(resultOf(c.start(rig.option())), tls::result_ok);
    }

    LogCapture log;
};

bool beginsWith(std::string const & text, std::string const & part) {
    return text.rfind(part, 0) == 0;
}

constexpr char on_queue[] = " on <n>global.on_error.0: ";

} // namespace

TEST_F(ClientFaults, NoneAtAll) {
    Case it{Options()};
    it.connect();
    auto const info = it.ask();
    EXPECT_EQ(resultOf(info), tls::result_ok);
    it.expectRecovery();
    EXPECT_EQ(it.told.count(), 0u);
}

TEST_F(ClientFaults, ADelayedAnswerStillEndsTheSend) {
    Faults faults;
    faults.delay_ms = 300;
    Case it(with(faults));
    it.connect();
    auto const info = it.ask();
    EXPECT_EQ(resultOf(info), tls::result_ok);
    it.expectRecovery();
}

TEST_F(ClientFaults, AnAnswerAfterTheLimitIsTheGlobalLevels) {
    Faults faults;
    faults.delay_ms = 700;
    Case it(with(faults));
    tls::connect_option option = it.option();
    Events global;
    option.set_nbr_msg_callback([&](unsigned long long, unsigned short code, unsigned char const *, unsigned,
                                    tavMsgExt) { global.add(textOf(code)); });
    it.connect(option);
    auto const info = it.ask(200);
    EXPECT_EQ(resultOf(info), tls::result_timedout);
    EXPECT_EQ(it.told.all(), (std::vector<std::string>{"timedout"}));
    ASSERT_TRUE(global.wait(1));
    EXPECT_EQ(global.all()[0], "4661");
    EXPECT_EQ(info->result(), tls::result_timedout);
    EXPECT_TRUE(log.contains("max waiting 200ms..."));
    it.expectRecovery();
}

TEST_F(ClientFaults, SilenceTimesTheSendOut) {
    Faults faults;
    faults.silence = true;
    Case it(with(faults));
    it.connect();
    auto const info = it.ask(300);
    EXPECT_EQ(waited(info), tls::result_timedout);
    EXPECT_EQ(it.told.all(), (std::vector<std::string>{"timedout"}));
    Answer answer;
    EXPECT_EQ(it.c().send_and_wait(Ask(1), answer, 200), tls::result_timedout);
    EXPECT_TRUE(it.c().connected());
    EXPECT_EQ(it.events().count(), 1u);
    EXPECT_TRUE(log.waitFor(", will remove sending\n", 2));
    EXPECT_TRUE(it.gateway().wait([](Stats const & s) { return s.packets == 2; }));
    it.expectRecovery();
}

TEST_F(ClientFaults, SilenceAndCloseCancelTheSend) {
    Faults faults;
    faults.silence = true;
    Case it(with(faults));
    it.connect();
    auto const info = it.ask();
    ASSERT_TRUE(it.gateway().wait([](Stats const & s) { return s.packets == 1; }));
    it.c().close();
    EXPECT_EQ(resultOf(info), tls::result_cancelled);
    EXPECT_EQ(it.told.all(), (std::vector<std::string>{"cancelled"}));
    it.expectRecovery();
}

TEST_F(ClientFaults, AClosedConnectionIsAnErrorAndCancelsTheSends) {
    Faults faults;
    faults.close_after = 2;
    faults.delay_ms = 60000;
    Case it(with(faults));
    it.connect();
    auto const first = it.ask();
    auto const second = it.ask();
    EXPECT_EQ(resultOf(first), tls::result_cancelled);
    EXPECT_EQ(resultOf(second), tls::result_cancelled);
    ASSERT_TRUE(it.told.wait(2));
    EXPECT_EQ(it.told.all(), (std::vector<std::string>{"cancelled", "cancelled"}));
    ASSERT_TRUE(it.events().wait(2));
    EXPECT_TRUE(beginsWith(it.events().all()[1], "error ")) << it.events().all()[1];
    EXPECT_NE(it.events().all()[1].find(on_queue), std::string::npos) << it.events().all()[1];
    EXPECT_TRUE(log.inOrder({"<n> Read header failed: ", "<n> on std::error_code ", "<n> cancel session\n",
                             "<n> passive closing...\n", "<n> socket closed.\n", "<n> global level on error ",
                             "<n> connect error <"}));
    EXPECT_FALSE(it.c().connected());
    EXPECT_FALSE(it.ask());
    EXPECT_TRUE(log.contains("<n> session not connected\n"));
    it.expectRecovery();
}

TEST_F(ClientFaults, AResetIsAnErrorWithTheSystemsNumber) {
    Faults faults;
    faults.reset_after = 1;
    Case it(with(faults));
    it.connect();
    auto const info = it.ask();
    EXPECT_EQ(resultOf(info), tls::result_cancelled);
    ASSERT_TRUE(it.events().wait(2));
    EXPECT_TRUE(beginsWith(it.events().all()[1], "error " + std::to_string(ECONNRESET) + on_queue))
        << it.events().all()[1];
    EXPECT_TRUE(log.contains("<n> Read header failed: "));
    it.expectRecovery();
}

TEST_F(ClientFaults, ACutFrameIsAFailedBody) {
    Faults faults;
    faults.cut_after = 1;
    Case it(with(faults));
    tls::connect_option option = it.option();
    Events global;
    option.set_nbr_msg_callback([&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                    tavMsgExt) { global.add("message"); });
    it.connect(option);
    auto const info = it.ask();
    EXPECT_EQ(resultOf(info), tls::result_cancelled);
    ASSERT_TRUE(it.events().wait(2));
    EXPECT_TRUE(beginsWith(it.events().all()[1], "error ")) << it.events().all()[1];
    EXPECT_EQ(log.find("<n> Read body failed: ").level, tavLogger::ERROR);
    EXPECT_EQ(global.count(), 0u);
    it.expectRecovery();
}

TEST_F(ClientFaults, AnOversizeLengthIsErrorTenAndEndsTheReadingOnly) {
    Faults faults;
    faults.oversize_after = 1;
    Case it(with(faults));
    it.connect();
    auto const info = it.ask();
    ASSERT_TRUE(it.events().wait(2));
    EXPECT_EQ(it.events().all()[1], "error 10 on <n>io.context: assert failure: length <= 0xffffff");
    EXPECT_TRUE(log.contains("<EXCEPTION> assert failure: length <= 0xffffff"));
    EXPECT_TRUE(log.contains("<<< EXCEPTION >>> assert failure: length <= 0xffffff\n    catch at "));
    EXPECT_TRUE(it.c().connected());
    // What is sent still goes out, and nothing is read any more.
    EXPECT_TRUE(it.ask());
    EXPECT_TRUE(it.gateway().wait([](Stats const & s) { return s.open == 1; }));
    EXPECT_EQ(info->result(), tls::result_unknown);
    it.c().cancel_all();
    EXPECT_EQ(resultOf(info), tls::result_cancelled);
    it.expectRecovery();
}

TEST_F(ClientFaults, NoHandshakeTimesTheConnectOut) {
    Faults faults;
    faults.no_handshake = true;
    Case it(with(faults));
    tls::connect_option option = it.option();
    option.timedout.wait_ms(300);
    auto const info = it.c().start(option);
    EXPECT_EQ(waited(info), tls::result_timedout);
    ASSERT_TRUE(it.events().wait(1));
    EXPECT_EQ(it.events().all()[0], "timedout on <n>session.0.timer");
    EXPECT_TRUE(log.contains("<n> connect timedout\n"));
    EXPECT_TRUE(log.waitFor("<n> connect timed out "));
    EXPECT_FALSE(it.c().connected());
    it.expectRecovery();
}

TEST_F(ClientFaults, NoHandshakeIsEndedByCloseAndByDestruction) {
    Faults faults;
    faults.no_handshake = true;
    {
        Case it(with(faults));
        auto const info = it.c().start(it.option());
        ASSERT_TRUE(log.waitFor("<n> connected, start client handshake..."));
        it.c().close();
        EXPECT_EQ(resultOf(info), tls::result_cancelled);
        it.expectRecovery();
    }
    Case it(with(faults));
    auto const info = it.c().start(it.option());
    ASSERT_TRUE(log.waitFor("<n> connected, start client handshake...", 2));
    it.expectEnd();
    EXPECT_EQ(waited(info), tls::result_cancelled);
}

TEST_F(ClientFaults, AForeignCertificateIsRefused) {
    TempFile const stranger(TlsIdentity::stranger().ca);
    TempFile const right(TlsIdentity::ecdsa().ca);
    Case it{Options()};
    tls::connect_option option = it.option();
    option.ca = stranger.path();
    auto const info = it.c().start(option);
    EXPECT_EQ(resultOf(info), tls::result_error);
    ASSERT_TRUE(it.events().wait(1));
    EXPECT_NE(it.events().all()[0].find("certificate verify failed"), std::string::npos)
        << it.events().all()[0];
    EXPECT_NE(it.events().all()[0].find(on_queue), std::string::npos);
    EXPECT_TRUE(log.contains(", preverified false\n"));
    EXPECT_EQ(log.find("<n> Handshake failed: ").level, tavLogger::ERROR);
    EXPECT_FALSE(it.c().connected());
    // The gateway learns of it too, and no message crosses.
    EXPECT_TRUE(it.gateway().wait([](Stats const & s) { return s.failed_handshakes == 1; }));
    option.ca = right.path();
    EXPECT_EQ(resultOf(it.c().start(option)), tls::result_ok);
    EXPECT_TRUE(log.contains(", preverified true\n"));
    it.expectEnd();
}

TEST_F(ClientFaults, ARefusedPortIsAnError) {
    Case it{Options()};
    tls::connect_option option = it.option();
    {
        TlsPeer gone;
        option.port = gone.portText();
    }
    auto const info = it.c().start(option);
    EXPECT_EQ(resultOf(info), tls::result_error);
    ASSERT_TRUE(it.events().wait(1));
    EXPECT_TRUE(beginsWith(it.events().all()[0], "error " + std::to_string(ECONNREFUSED) + on_queue))
        << it.events().all()[0];
    EXPECT_EQ(log.find("<n> Connect failed: ").level, tavLogger::ERROR);
    // Again the same, and then the right port.
    EXPECT_EQ(resultOf(it.c().reconnect(tls::timedout_option())), tls::result_error);
    EXPECT_EQ(resultOf(it.c().start(it.option())), tls::result_ok);
    it.expectEnd();
}

TEST_F(ClientFaults, AGatewayThatGoesAwayIsOneError) {
    Case it{Options()};
    it.connect();
    auto const info = it.ask();
    EXPECT_EQ(resultOf(info), tls::result_ok);
    it.gateway().drop(true);
    ASSERT_TRUE(it.events().wait(2));
    EXPECT_TRUE(beginsWith(it.events().all()[1], "error " + std::to_string(ECONNRESET)))
        << it.events().all()[1];
    EXPECT_FALSE(it.c().connected());
    it.expectRecovery();
    EXPECT_EQ(it.events().count(), 3u);
}

TEST_F(ClientFaults, ReconnectingInTheErrorCallbackFindsTheGatewayAgain) {
    Faults faults;
    faults.close_after = 1;
    Case it(with(faults, 3));
    tls::connect_option option = it.option();
    Events opened;
    option.set_on_open([&] {
        opened.add("open");
        it.c().send_nbr_msg(0x4000, nullptr, 0, tls::send_option());
    });
    option.set_on_error([&](unsigned long long, unsigned short, int, char const *) {
        it.c().reconnect(tls::timedout_option());
    });
    EXPECT_EQ(resultOf(it.c().start(option)), tls::result_ok);
    ASSERT_TRUE(opened.wait(4));
    EXPECT_TRUE(it.gateway().wait([](Stats const & s) { return s.packets == 4 && s.open == 1; }));
    EXPECT_TRUE(it.c().connected());
    it.expectEnd();
}

TEST_F(ClientFaults, FrameOfTheLargestLengthIsTakenAndTheNextByteIsNot) {
    Case it{Options()};
    it.connect();
    Events got;
    it.c().on_nbr_msg(0x3001, [&](unsigned long long, unsigned short, unsigned char const *, unsigned size,
                                  tavMsgExt) { got.add(textOf(size)); });
    // One NBR block that fills the frame.
    unsigned const block = 0xffffff - 16 - 5;
    std::string body("\x03", 1);
    body.push_back(static_cast<char>(static_cast<unsigned char>(block)));
    body.push_back(static_cast<char>(static_cast<unsigned char>(block >> 8)));
    body.push_back(static_cast<char>(static_cast<unsigned char>(block >> 16)));
    body.append(0xffffff - 16 - body.size(), 'x');
    std::string const bytes = mobile(0x3001, 1, body).framed();
    ASSERT_EQ(bytes.size(), 0xffffffu + 4);
    // Texts of this size are not for the capture.
    tavLogger::setup("(clear(ERROR))", nullptr, false, tavLogger::NONE);
    it.gateway().sendRaw(bytes);
    ASSERT_TRUE(got.wait(1, 60000));
    EXPECT_EQ(got.all()[0], textOf(0xffffffu - 16));
    it.gateway().sendRaw(std::string("\x01\0\0\0", 4));
    ASSERT_TRUE(it.events().wait(2));
    EXPECT_TRUE(beginsWith(it.events().all()[1], "error 10 on <n>io.context: "));
    it.expectEnd();
}

TEST(ClientFaultsOfTheDisk, AFullOneCostsTheLogItsLinesAndTheClientNothing) {
    static std::atomic<unsigned> lines{0};
    lines = 0;
    Folder const folder;
    std::string const path = folder.path() + "/app.log";
    ASSERT_EQ(::symlink("/dev/full", path.c_str()), 0);
    // All but the banner.
    auto const count = [](int, char const * text) { lines += text[0] != '\n' ? 1 : 0; };
    tavLogger::open(tav_istr(path), "app", "(clear(INFO))", count, "1", 1000000, false, tavLogger::WARN);
    {
        Case at{Options()};
        at.connect();
        for (int i = 0; i < 20; ++i) {
            Answer answer;
            EXPECT_EQ(at.c().send_and_wait(Ask(i), answer, 10000), tls::result_ok);
            EXPECT_EQ(answer.number, i);
        }
        EXPECT_TRUE(at.c().connected());
        at.expectRecovery();
        EXPECT_EQ(at.events().all(), (std::vector<std::string>(2, "open on <n>io.context")))
            << "and no error";
    }
    tavLogger::flush();
    unsigned const lost = lines;
    EXPECT_GT(lost, 100u) << "the callback gets what the file does not";
    ASSERT_EQ(::unlink(path.c_str()), 0);
    tavLogger::close();
    std::ifstream in(path);
    std::string const got((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_NE(got.find(" " + std::to_string(lost) +
                       " log lines lost, as the file could not be written: No space left on device"),
              std::string::npos)
        << got;
    tavLogger::finalize();
}
