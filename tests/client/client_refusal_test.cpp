#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <pthread.h>
#include <sys/resource.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <system_error>

using namespace tav_test;
using tls::client;

namespace {

/// Threads that the system still gives out.
std::atomic<int> & threadsLeft() {
    static std::atomic<int> the{INT_MAX};
    return the;
}

/// Lets the program start so many threads more while it lives, and refuses all others.
class ThreadLimit {
public:
    explicit ThreadLimit(int n) { threadsLeft() = n; }
    ~ThreadLimit() { threadsLeft() = INT_MAX; }
    ThreadLimit(ThreadLimit const &) = delete;
    ThreadLimit & operator=(ThreadLimit const &) = delete;
};

/// Leaves the process so many descriptors more while it lives.
class DescriptorLimit {
public:
    explicit DescriptorLimit(unsigned free) {
        ::getrlimit(RLIMIT_NOFILE, &before_);
        // The lowest ones are given out first, whatever holes there are.
        std::vector<int> probes;
        for (unsigned n = 0; n <= free; ++n) {
            probes.push_back(::dup(0));
        }
        rlimit limit = before_;
        limit.rlim_cur = static_cast<rlim_t>(probes.back());
        for (int const each : probes) {
            ::close(each);
        }
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &before_); }
    DescriptorLimit(DescriptorLimit const &) = delete;
    DescriptorLimit & operator=(DescriptorLimit const &) = delete;

private:
    rlimit before_;
};

/// True if `make` says by a system error that it could not.
template <class Make>
bool refused(Make const & make) {
    try {
        make();
    } catch (std::system_error const & e) {
        return e.code().value() == EMFILE || e.code().value() == EAGAIN;
    }
    return false;
}

/// Makes clients with ever more descriptors, until one is made; the number that it took, or what went wrong.
[[maybe_unused]] int descriptorsForAClient() {
    Holdings const before;
    for (unsigned free = 0; free < 20; ++free) {
        bool made = true;
        {
            DescriptorLimit const limit(free);
            made = !refused([] { client c("few"); });
            if (refused([] { client::instance("few"); }) == made) {
                return -1;
            }
        }
        bool const left = client::destroy("few");
        if (left != made || !before.back()) {
            return -2;
        }
        if (made) {
            return static_cast<int>(free);
        }
    }
    return -3;
}

} // namespace

extern "C" int pthread_create(pthread_t * thread, pthread_attr_t const * attributes, void * (*body)(void *),
                              void * argument) {
    using Function = int (*)(pthread_t *, pthread_attr_t const *, void * (*)(void *), void *);
    static auto const real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "pthread_create"));
    if (threadsLeft() != INT_MAX && threadsLeft()-- <= 0) {
        return EAGAIN;
    }
    return real(thread, attributes, body, argument);
}

// Without a free descriptor the undefined-behaviour sanitizer can't look at memory and takes every object for
// a bad one.
#if !defined(__SANITIZE_ADDRESS__)
// Its limit is the whole process's, so that it has one of its own.
TEST(ClientRefusalDeathTest, WithoutADescriptorMakingAClientThrowsAndLeavesNothing) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            int const needed = descriptorsForAClient();
            std::fprintf(stderr, "descriptors for a client: %d\n", needed);
            std::exit(needed > 0 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "descriptors for a client: [1-9]");
}

TEST(ClientRefusalDeathTest, WithoutADescriptorAConnectIsAnErrorAndTheNextOneGoes) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            ClientRig rig;
            tls::result_type result = tls::result_ok;
            bool named = false;
            {
                DescriptorLimit const limit(0);
                auto const info = rig.client.start(rig.option());
                result = resultOf(info);
                named = info->error() == tls::failure::no_resources;
            }
            bool const told =
                rig.events.wait(1) && rig.events.all()[0].find("Too many open files") != std::string::npos;
            rig.connect();
            std::exit(result == tls::result_error && named && told && rig.settle() ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}
#endif

TEST(ClientRefusal, WithoutAThreadMakingAClientThrowsAndLeavesNothing) {
    Holdings const before;
    int threads = 0;
    for (bool made = false; !made && threads < 10; ++threads) {
        {
            ThreadLimit const limit(threads);
            made = !refused([] { client c("few"); });
        }
        EXPECT_TRUE(before.back()) << before.print();
        {
            ThreadLimit const limit(threads);
            EXPECT_EQ(refused([] { client::instance("few"); }), !made);
        }
        EXPECT_EQ(client::destroy("few"), made);
        EXPECT_TRUE(before.back()) << before.print();
    }
    EXPECT_EQ(threads, 4) << "three threads make a client";
}

TEST(ClientRefusal, ASessionsThreadThatIsRefusedIsAnErrorAndLeavesNothing) {
    Holdings const before;
    {
        LogCapture log;
        ClientRig rig;
        unsigned const of_client = threadsNow();
        for (int threads = 0; threads < 3; ++threads) {
            std::shared_ptr<tls::connect_info> info;
            {
                ThreadLimit const limit(threads);
                info = rig.client.start(rig.option());
                EXPECT_EQ(resultOf(info), tls::result_error) << threads;
            }
            EXPECT_EQ(info->error(), tls::failure::no_resources) << threads;
            auto const told = static_cast<std::size_t>(threads) + 1;
            ASSERT_TRUE(rig.events.wait(told)) << threads;
            EXPECT_EQ(
                rig.events.all()[told - 1].find("error " + textOf(EAGAIN) + " on <n>global.on_error.0: "), 0u)
                << rig.events.all()[told - 1];
            EXPECT_TRUE(eventually([&] { return threadsNow() == of_client; })) << threads;
            EXPECT_TRUE(log.waitFor("<n> session destruct\n", static_cast<unsigned>(told)));
            EXPECT_FALSE(rig.client.connected());
            EXPECT_TRUE(rig.client.get_remote_addr().empty());
        }
        rig.connect();
        EXPECT_TRUE(rig.settle());
    }
    EXPECT_TRUE(before.back()) << before.print();
}

TEST(ClientRefusal, OfAReconnectIsAnErrorAndTheNextOneGoes) {
    LogCapture log;
    ClientRig rig;
    rig.connect();
    std::shared_ptr<tls::connect_info> info;
    {
        ThreadLimit const limit(1);
        info = rig.client.reconnect(tls::timedout_option());
        EXPECT_EQ(resultOf(info), tls::result_error);
    }
    EXPECT_EQ(info->error(), tls::failure::no_resources);
    ASSERT_TRUE(rig.events.wait(2));
    EXPECT_EQ(rig.events.all()[1].find("error " + textOf(EAGAIN)), 0u) << rig.events.all()[1];
    rig.reconnect();
    EXPECT_TRUE(rig.settle());
}

TEST(ClientRefusal, AThreadForALookupThatIsRefusedIsAnError) {
    Holdings const before;
    {
        LogCapture log;
        ClientRig rig;
        tls::connect_option option = rig.option();
        option.host = "localhost";
        std::shared_ptr<tls::connect_info> info;
        {
            ThreadLimit const limit(3);
            info = rig.client.start(option);
            EXPECT_EQ(resultOf(info), tls::result_error);
        }
        EXPECT_EQ(info->error(), tls::failure::no_resources);
        ASSERT_TRUE(rig.events.wait(1));
        EXPECT_EQ(rig.events.all()[0].find("error " + textOf(EAGAIN)), 0u) << rig.events.all()[0];
        EXPECT_TRUE(log.contains("<n> resolve failed "));
        rig.connect();
        EXPECT_TRUE(rig.settle());
    }
    EXPECT_TRUE(before.back()) << before.print();
}
