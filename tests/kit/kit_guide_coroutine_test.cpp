#include "tav/kit/keeper.h"
#include "tav/kit/kit.h"

#include "support/client_rig.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <iostream>
#include <utility>

// The code that docs/kit.md shows, to the letter; another test compares the two.

struct Say : tav::kit::message<Say> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x3001;
    tavString text;
    int mood = 0;
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "text", text);
        ioField(s, 2, "mood", mood);
    }
};

struct Said : tav::kit::message<Said, Say> {
    static constexpr char const * type_name = "Said";
    static constexpr unsigned short type_code = 0x3002;
};

TEST(KitGuideCoroutineMessages, AreSound) {
    EXPECT_EQ(tav::kit::check<Say>(), "");
}

// A coroutine.
tav::kit::task<bool> agree(tav::tls::client & client, Say say) {
    using namespace std::chrono_literals;
    auto first = co_await tav::kit::request<Said>(client, say, 5s, tav::kit::use_awaitable);
    if (!first) {
        co_return false;
    }
    say.text = first->text;
    auto second = co_await tav::kit::request<Said>(client, say, 5s, tav::kit::use_awaitable);
    co_return second && second.value() == first.value();
}

namespace {

void requests(tav::tls::client & client) {
    // clang-format off
    using namespace std::chrono_literals;
    using namespace tav::kit;
    Say say;
    say.text = "hello";

    // A future.
    result<Said> reply = request<Said>(client, say, 5s).get();
    if (reply) {
        std::cout << reply->text << std::endl;
    } else {
        std::cout << reply.error().message() << std::endl; // "timed out", "not connected", ...
    }

    // A callback.
    request<Said>(client, say, 5s, [](result<Said> const & said) { std::cout << said.has_value() << std::endl; });
    // clang-format on
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->text, tavString("hello"));
    EXPECT_EQ(check<Said>(), "");
}

void terms(tav::tls::client & client) {
    using namespace std::chrono_literals;
    using namespace tav::kit;
    Say say;
    // clang-format off
    tavTaskQueue queue("talk", 1);
    queue.start();
    cancellation stop; // cancels when it goes, too
    within const terms = within(5s).unless(stop).on([&](std::function<void()> task) { queue.put(std::move(task)); });
    request<Said>(client, say, terms, [](result<Said> const & said) { std::cout << said.has_value() << std::endl; });
    // clang-format on
    std::promise<bool> ended;
    request<Said>(client, say, terms, [&](result<Said> const & said) { ended.set_value(said.has_value()); });
    EXPECT_TRUE(ended.get_future().get());
    queue.close();
}

void pushes(tav::tls::client & client) {
    using namespace std::chrono_literals;
    using namespace tav::kit;
    Say say;
    // clang-format off
    on<Say>(client, [](Say const & said) { std::cout << said.text << std::endl; });

    if (result<void> const sent = send(client, say); !sent) {
        std::cout << sent.error().message() << std::endl;
    }
    std::future<result<void>> const confirmed = send(client, say, 5s);
    // clang-format on
    EXPECT_TRUE(confirmed.valid());
}

void keeps(tav::tls::connect_option const & option) {
    using namespace std::chrono_literals;
    using namespace tav::kit;
    std::string const host = option.host;
    std::string const port = option.port;
    Say say;
    say.text = "hello";
    // clang-format off
    keeper_option how;
    how.gateways = {{host, port}, {"gate2.example.org", "443", 1}}; // the second if the first is away
    how.login = login_with<Said>(say, 5s);                          // ahead of all else, on each connection
    how.on_state = [](keeper_status const & now) {
        std::cout << now.state << " " << now.to.host << " " << now.cause.message() << std::endl;
    };
    keeper gateway(option, how); // or keeper(client, option, how), with a client of your own
    gateway.start();

    result<Said> const kept = request<Said>(gateway, say, 30s).get(); // sent now, or as soon as it is up
    auto const again = request<Said>(gateway, say, within(30s).repeatable()).get();
    std::future<result<void>> const posted = post(gateway, say, 30s); // ends well when it has been handed over
    // clang-format on
    ASSERT_TRUE(kept) << kept.error().message();
    EXPECT_EQ(kept->text, tavString("hello"));
    EXPECT_TRUE(again);
    EXPECT_TRUE(posted.valid());
}

} // namespace

TEST(KitGuideCoroutine, KeepsAConnection) {
    tav_test::GatewayRig gateway;
    keeps(gateway.option());
}

TEST(KitGuideCoroutine, TalksToAGateway) {
    tav_test::GatewayRig gateway;
    tav::tls::client client("guide");
    ASSERT_EQ(tav_test::resultOf(client.start(gateway.option())), tav::tls::result_ok);
    requests(client);
    terms(client);
    pushes(client);
    Say say;
    say.mood = 3;
    std::future<bool> agreed = tav::kit::spawn(agree(client, say));
    ASSERT_EQ(agreed.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_TRUE(agreed.get());
}
