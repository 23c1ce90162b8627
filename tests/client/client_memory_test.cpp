#include "tav/vinta/vinta_tls_client.h"

#include "client/resolver.h"
#include "support/client_rig.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <asio/error.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <new>

using namespace tav_test;

namespace {

/// How many allocations are still granted before one fails; negative while none is to fail.
std::atomic<long> granted{-1};
/// Whether it is this thread's allocations that are counted.
thread_local bool test_thread = false;
std::atomic<bool> on_test_thread{false};
/// Whether all of them fail, and whether one has.
std::atomic<bool> all_fail{false};
std::atomic<bool> one_of_all_failed{false};

/// The size of the one allocation that fails; 0 for none.
std::atomic<std::size_t> failing_size{0};

bool fails() {
    if (all_fail.load(std::memory_order_relaxed) && test_thread) {
        one_of_all_failed = true;
        return true;
    }
    return granted.load(std::memory_order_relaxed) >= 0 && test_thread == on_test_thread && granted-- == 0;
}

bool failsBySize(std::size_t size) {
    return failing_size.load(std::memory_order_relaxed) == size && size != 0 && failing_size.exchange(0) != 0;
}

void * allocate(std::size_t size) noexcept {
    return fails() || failsBySize(size) ? nullptr : std::malloc(size != 0 ? size : 1);
}

void * allocateOrThrow(std::size_t size) {
    void * const made = allocate(size);
    if (made == nullptr) {
        throw std::bad_alloc();
    }
    return made;
}

} // namespace

void * operator new(std::size_t size) {
    return allocateOrThrow(size);
}
void * operator new[](std::size_t size) {
    return allocateOrThrow(size);
}
void * operator new(std::size_t size, std::nothrow_t const &) noexcept {
    return allocate(size);
}
void * operator new[](std::size_t size, std::nothrow_t const &) noexcept {
    return allocate(size);
}
void operator delete(void * p) noexcept {
    std::free(p);
}
void operator delete[](void * p) noexcept {
    std::free(p);
}
void operator delete(void * p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void * p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void * p, std::nothrow_t const &) noexcept {
    std::free(p);
}
void operator delete[](void * p, std::nothrow_t const &) noexcept {
    std::free(p);
}

namespace {

/// A connected client, one of whose allocations fails.
class ClientMemory : public ::testing::Test {
protected:
    void SetUp() override {
        test_thread = true;
        connect();
    }
    void TearDown() override {
        granted = -1;
        all_fail = false;
        failing_size = 0;
    }

    /// With an on_error that asks for no memory of its own.
    void connect(unsigned received_waiting = 0) {
        tls::connect_option option = rig.option();
        option.limits.received_waiting = received_waiting;
        option.set_on_error([this](unsigned long long, unsigned short, int, char const *) { ++errors; });
        option.set_on_open(nullptr);
        rig.connect(option);
    }

    /// Lets the n-th allocation fail, on the test's own thread or on any other.
    static void failAt(long n, bool here) {
        on_test_thread = here;
        granted = n;
    }
    /// Ends that; true if an allocation has failed.
    static bool failed() { return granted.exchange(-1) < 0; }

    static tls::send_option limited(int wait_ms) {
        return tls::send_option(tls::timedout_option(wait_ms), tls::error_function(), tls::nbr_function(),
                                0x1235, false, 4);
    }

    /// Whether a request is still answered.
    ::testing::AssertionResult answers() {
        auto const info = rig.client.send_nbr_msg(0x4001, nullptr, 0, limited(10000));
        if (!info) {
            return ::testing::AssertionFailure() << "not sent";
        }
        for (;;) {
            Pkt const got = rig.receive();
            if (got.code == 0x4001) {
                rig.server->send(mobile(0x1235, got.sno).framed());
                break;
            }
        }
        tls::result_type const result = resultOf(info);
        return result == tls::result_ok ? ::testing::AssertionSuccess()
                                        : ::testing::AssertionFailure() << result;
    }

    LogCapture log{"clear(NONE)"};
    std::atomic<unsigned> errors{0};
    ClientRig rig;
};

} // namespace

TEST_F(ClientMemory, SendThatHasNoneSilencesNothing) {
    TlsPeer peer;
    std::unique_ptr<TlsConnection> server;
    SessionRig sessions;
    auto const s = sessions.connect(peer, server);
    tls::send_option const option = limited(300);
    std::string const probe = mobile(0x4001, 1).bytes();
    bool more = true;
    for (long n = 0; more; ++n) {
        ASSERT_LT(n, 200);
        auto const failing = tav::im::Packet::create(true, 4);
        auto const next = tav::im::Packet::create(true, 4);
        next->decode(tav_istr(probe));
        std::shared_ptr<impl::send_info> info;
        failAt(n, true);
        try {
            info = s->send_pkt(failing, option);
        } catch (std::exception const &) {
        }
        more = failed();
        s->send_pkt(next, tls::send_option());
        while (server->receiveFrame() != probe) {
        }
        if (info) {
            ASSERT_EQ(resultOf(info), tls::result_timedout) << n;
        }
    }
}

TEST_F(ClientMemory, ThreadsOfTheClientThatHaveNoneSilenceNothing) {
    bool more = true;
    for (long n = 0; more; ++n) {
        ASSERT_LT(n, 2000);
        tls::send_option const option = limited(200);
        failAt(n, false);
        auto const info = rig.client.send_nbr_msg(0x4000, nullptr, 0, option);
        ASSERT_TRUE(info);
        tls::result_type const result = resultOf(info);
        ASSERT_TRUE(result == tls::result_timedout || result == tls::result_cancelled) << n << result;
        more = failed();
        if (!rig.client.connected()) {
            ASSERT_TRUE(eventually([&] { return errors > 0; })) << n;
            errors = 0;
            connect();
        }
        ASSERT_TRUE(answers()) << n;
    }
}

TEST_F(ClientMemory, ConnectionThatBreaksWithoutAnyIsTold) {
    bool more = true;
    for (long n = 0; more; ++n) {
        ASSERT_LT(n, 2000);
        auto const info = rig.client.send_nbr_msg(0x4000, nullptr, 0, limited(20000));
        rig.receive();
        errors = 0;
        failAt(n, false);
        rig.server->reset();
        ASSERT_EQ(resultOf(info), tls::result_cancelled) << n;
        ASSERT_TRUE(eventually([&] { return errors > 0; })) << n;
        ASSERT_TRUE(eventually([&] { return !rig.client.connected(); })) << n;
        more = failed();
        connect();
        ASSERT_TRUE(answers()) << n;
    }
}

TEST_F(ClientMemory, EndOfTheLastFrameAfterABreakThatCanNotBeToldComesAllTheSame) {
    bool more = true;
    for (long n = 0; more; ++n) {
        ASSERT_LT(n, 200);
        Gate gate;
        rig.client.on_nbr_msg(
            0x4000, [&](unsigned long long, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
                gate.pass();
                test_thread = true;
            });
        auto const info = rig.client.send_nbr_msg(0x4001, nullptr, 0, limited(20000));
        rig.receive();
        rig.server->send(mobile(0x4000, 1).framed());
        ASSERT_TRUE(gate.waitArrived());
        errors = 0;
        rig.server->close();
        ASSERT_TRUE(eventually([&] { return !rig.client.connected(); })) << n;
        test_thread = false;
        failAt(n, true);
        gate.open();
        ASSERT_TRUE(eventually([&] { return errors > 0; })) << n;
        ASSERT_EQ(resultOf(info), tls::result_cancelled) << n;
        more = failed();
        test_thread = true;
        connect();
        ASSERT_TRUE(answers()) << n;
    }
}

TEST_F(ClientMemory, EndOfAPauseThatTheReceiverCanNotTellComesWithTheTick) {
    constexpr unsigned limit = 4;
    connect(limit);
    Gate gate;
    rig.client.on_nbr_msg(
        0x4000, [&](unsigned long long sno, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
            if (sno == 1) {
                gate.pass();
                test_thread = true;
            }
        });
    for (unsigned i = 1; i <= 3 * limit; ++i) {
        rig.server->send(mobile(0x4000, i).framed());
    }
    ASSERT_TRUE(gate.waitArrived());
    // The first may have been taken out at the limit; reading goes on at half of it only.
    ASSERT_TRUE(eventually([&] { return rig.client.statistics().received_waiting >= limit - 1; }));
    test_thread = false;
    all_fail = true;
    gate.open();
    EXPECT_TRUE(eventually([] { return one_of_all_failed.load(); }));
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().received_waiting == 0; }));
    all_fail = false;
    test_thread = true;
    EXPECT_TRUE(answers());
}

TEST_F(ClientMemory, CloseThatThereIsNoneForSilencesNothing) {
    unsigned thrown = 0;
    bool more = true;
    for (long n = 0; more; ++n) {
        ASSERT_LT(n, 200);
        errors = 0;
        failAt(n, true);
        bool closed = true;
        try {
            rig.client.close();
        } catch (std::bad_alloc const &) {
            closed = false;
        }
        more = failed();
        if (!closed) {
            ++thrown;
            ASSERT_TRUE(rig.client.connected()) << n;
            rig.server->reset();
            ASSERT_TRUE(eventually([&] { return errors > 0; })) << n;
        }
        ASSERT_TRUE(eventually([&] { return !rig.client.connected(); })) << n;
        connect();
    }
    EXPECT_GE(thrown, 1u);
    EXPECT_TRUE(answers());
}

TEST_F(ClientMemory, BreakThatCanNotBeLimitedIsToldAtOnceAsWhatItIs) {
    SessionRig other;
    TlsPeer peer;
    std::atomic<int> told{0};
    tls::connect_option option = other.option(peer);
    option.set_on_error([&](unsigned long long, unsigned short, int code, char const *) { told = code; });
    unsigned without = 0;
    bool more = true;
    for (long n = 0; more; ++n) {
        ASSERT_LT(n, 200);
        told = 0;
        std::unique_ptr<TlsConnection> server;
        auto const session = other.connect(peer, server, option);
        // Its read is under way, so that it is waited for.
        int at_once = 0;
        other.onIoThread([&] {
            test_thread = true;
            failAt(n, true);
            impl::connection_owner & owner = *session;
            owner.on_broken(asio::error::connection_reset);
            more = failed();
            at_once = told;
            test_thread = false;
        });
        without += more ? 1u : 0u;
        ASSERT_EQ(at_once, more ? ECONNRESET : 0) << n;
        server->reset();
        ASSERT_TRUE(eventually([&] { return told == ECONNRESET; })) << n;
    }
    EXPECT_GE(without, 1u);
}

// The name of the client fills what a line has of its own, so that each one needs a block.
TEST_F(ClientMemory, LineThatWasCutSaysNothingBehindTheHole) {
    constexpr std::size_t block = 16384;
    ClientRig named(std::string(600, 'n').c_str());
    named.connect();
    Events handled;
    named.client.on_nbr_msg(0x4000, [&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                        tavMsgExt) { handled.add("message"); });
    named.server->send(mobile(0x4000, 1).framed());
    ASSERT_TRUE(handled.wait(1));
    tavLogger::setLogLevel("(clear(INFO))");
    unsigned parts = 0;
    // Of the head and of the body; what "receiver" says of the message is next.
    log.at(" bytes, queued ", [&] { failing_size = ++parts == 2 ? block : 0; });
    named.server->send(mobile(0x4000, 2).framed());
    ASSERT_TRUE(handled.wait(2));
    tavLogger::setLogLevel("(clear(NONE))");
    EXPECT_EQ(parts, 2u);
    EXPECT_EQ(failing_size, 0u);
    EXPECT_EQ(log.count("nnn... (cut short)\n"), 1u);
    EXPECT_FALSE(log.contains("nnn nbr "));
}

TEST_F(ClientMemory, LookupWhoseThreadHasNoneIsAnswered) {
    asio::io_context io;
    auto const work = asio::make_work_guard(io);
    impl::resolver looked(io);
    bool more = true;
    for (long n = 0; more; ++n) {
        ASSERT_LT(n, 200);
        bool answered = false;
        failAt(n, false);
        looked.resolve("127.0.0.1", "https",
                       [&](std::error_code, std::vector<asio::ip::tcp::endpoint>) { answered = true; });
        io.run_one_for(std::chrono::milliseconds(peer_limit_ms));
        more = failed();
        ASSERT_TRUE(answered) << n;
    }
}

TEST_F(ClientMemory, LookupThatCanNotBeginLeavesNothing) {
    for (char const * service : {"443", "https"}) {
        asio::io_context io;
        auto const work = asio::make_work_guard(io);
        impl::resolver looked(io);
        bool more = true;
        for (long n = 0; more; ++n) {
            ASSERT_LT(n, 200);
            auto const held = std::make_shared<int>();
            impl::resolver::handler handler = [held](std::error_code, std::vector<asio::ip::tcp::endpoint>) {
            };
            bool thrown = false;
            failAt(n, true);
            try {
                looked.resolve("127.0.0.1", service, std::move(handler));
            } catch (std::bad_alloc const &) {
                thrown = true;
            }
            more = failed();
            handler = nullptr;
            if (!thrown) {
                io.run_one_for(std::chrono::milliseconds(peer_limit_ms));
            }
            ASSERT_EQ(held.use_count(), 1) << service << " " << n;
        }
    }
}
