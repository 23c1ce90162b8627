#include "tav/kit/failure_name.h"

#include "support/client_rig.h"
#include "tav/kit/message.h"
#include "tav/kit/talk.h"

#include <gtest/gtest.h>

#include <future>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

using namespace std::chrono_literals;
using namespace tav_test;
namespace kit = tav::kit;
using client_failure = tls::failure;
using kit::detail::failure_of_end;
using kit::detail::failure_of_refusal;

constexpr int client_failures = static_cast<int>(client_failure::would_wait_for_itself) + 1;

struct Say : kit::message<Say> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x1234;
    tavString text;
    void traverse(tavCodecStream & s) override { ioField(s, 2, "text", text); }
};

struct Raising : kit::message<Raising> {
    static constexpr char const * type_name = "Raising";
    static constexpr unsigned short type_code = 0x1236;
    void traverse(tavCodecStream &) override { throw std::runtime_error("no fields today"); }
};

using Reply = std::future<kit::result<Say>>;

std::error_code endOf(Reply && reply) {
    if (reply.wait_for(std::chrono::milliseconds(peer_limit_ms)) != std::future_status::ready) {
        throw std::runtime_error("the request did not end");
    }
    return reply.get().error();
}

Say ofSize(std::size_t size) {
    Say out;
    out.text = tavString(std::string(size, 'x'));
    return out;
}

} // namespace

TEST(KitFailure, EachHasTheNameThatItsEnumHas) {
    EXPECT_STREQ(kit::failure_name(kit::failure::login_refused), "login_refused");
    EXPECT_STREQ(kit::failure_name(client_failure::would_wait_for_itself), "would_wait_for_itself");
    EXPECT_STREQ(kit::failure_name(make_error_code(client_failure::bad_policy)), "bad_policy");
    EXPECT_STREQ(kit::failure_name(make_error_code(kit::failure::over_limit)), "over_limit");
    EXPECT_STREQ(kit::failure_name(std::make_error_code(std::errc::timed_out)), "other");
    EXPECT_STREQ(kit::failure_name(static_cast<client_failure>(client_failures)), "other");
    std::set<std::string> names;
    for (int i = 0; i < client_failures; ++i) {
        EXPECT_TRUE(names.insert(kit::failure_name(static_cast<client_failure>(i))).second) << i;
    }
    std::set<std::string> own;
    for (int i = 1; i <= static_cast<int>(kit::failure::login_refused); ++i) {
        EXPECT_TRUE(own.insert(kit::failure_name(static_cast<kit::failure>(i))).second) << i;
    }
}

TEST(KitFailure, EachHasASentenceOfItsOwn) {
    std::set<std::string> sentences;
    for (int i = 1; i <= static_cast<int>(kit::failure::login_refused); ++i) {
        std::string const text = kit::failures().message(i);
        EXPECT_TRUE(sentences.insert(text).second) << text;
    }
    EXPECT_EQ(kit::failures().message(0), kit::failures().message(99));
    EXPECT_EQ(make_error_code(kit::failure::over_limit), std::errc::resource_unavailable_try_again);
    EXPECT_EQ(make_error_code(kit::failure::too_long), std::errc::message_size);
    EXPECT_EQ(make_error_code(kit::failure::outbox_full), std::errc::no_buffer_space);
    EXPECT_EQ(make_error_code(kit::failure::stopped), std::errc::operation_canceled);
    EXPECT_EQ(make_error_code(kit::failure::login_refused), std::errc::permission_denied);
}

TEST(KitFailure, EachSaysWhatWentWrong) {
    std::pair<kit::failure, char const *> const sentences[] = {
        {kit::failure::timed_out, "timed out"},
        {kit::failure::cancelled, "cancelled"},
        {kit::failure::disconnected, "the connection ended first"},
        {kit::failure::not_connected, "not connected"},
        {kit::failure::not_sent, "the message could not be sent"},
        {kit::failure::bad_reply, "the reply could not be read"},
        {kit::failure::over_limit, "too much waits already"},
        {kit::failure::too_long, "the message is too long"},
        {kit::failure::dropped, "dropped for a later message"},
        {kit::failure::outbox_full, "no room in the outbox"},
        {kit::failure::stopped, "stopped"},
        {kit::failure::login_refused, "the login was refused"},
        {kit::failure::unspecified, "failed for an unknown reason"},
    };
    for (auto const & [which, sentence] : sentences) {
        EXPECT_EQ(make_error_code(which).message(), sentence);
    }
}

TEST(KitFailure, EachOfTheClientsHasOneOfTheKits) {
    for (int i = 0; i < client_failures; ++i) {
        std::error_code const why = static_cast<client_failure>(i);
        SCOPED_TRACE(tls::failure_category().message(i));
        kit::failure end = kit::failure::disconnected;
        kit::failure refusal = kit::failure::not_sent;
        switch (static_cast<client_failure>(i)) {
        case client_failure::timed_out: end = kit::failure::timed_out; break;
        case client_failure::not_connected:
        case client_failure::closed: refusal = kit::failure::not_connected; break;
        case client_failure::queue_full:
        case client_failure::too_many_sends: refusal = kit::failure::over_limit; break;
        case client_failure::body_too_long: refusal = kit::failure::too_long; break;
        default: break;
        }
        EXPECT_EQ(failure_of_end(why), end);
        EXPECT_EQ(failure_of_refusal(why), refusal);
    }
    EXPECT_EQ(failure_of_refusal(std::make_error_code(std::errc::io_error)), kit::failure::not_sent);
}

TEST(KitFailure, RefusalsReachTheOneWhoAsks) {
    ClientRig rig;
    EXPECT_EQ(kit::send(rig.client, Say()).error(), kit::failure::not_connected);
    tls::connect_option option = rig.option();
    option.limits.tracked_sends = 1;
    rig.connect(option);
    EXPECT_TRUE(kit::send(rig.client, Say()));
    EXPECT_EQ(kit::send(rig.client, Raising()).error(), kit::failure::not_sent);
    EXPECT_EQ(kit::send(rig.client, ofSize(0x1000000)).error(), kit::failure::too_long);
    EXPECT_EQ(endOf(kit::request<Say>(rig.client, ofSize(0x1000000), 10s)), kit::failure::too_long);
    Reply first = kit::request<Say>(rig.client, Say(), 10s);
    EXPECT_EQ(endOf(kit::request<Say>(rig.client, Say(), 10s)), kit::failure::over_limit);
    rig.client.close();
    EXPECT_EQ(endOf(std::move(first)), kit::failure::disconnected);
}

TEST(KitFailure, QueueThatIsFullIsOverTheLimit) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.limits.queued_frames = 2;
    rig.connect(option);
    // More than sockets hold, of which the peer reads nothing.
    Say const large = ofSize(15000000);
    EXPECT_TRUE(kit::send(rig.client, large));
    EXPECT_TRUE(kit::send(rig.client, large));
    EXPECT_EQ(kit::send(rig.client, Say()).error(), kit::failure::over_limit);
    EXPECT_EQ(endOf(kit::request<Say>(rig.client, Say(), 10s)), kit::failure::over_limit);
}

TEST(KitFailure, EndsOfTheConnectionAreDisconnectedAndALimitIsTimedOut) {
    ClientRig rig;
    rig.connect();
    EXPECT_EQ(endOf(kit::request<Say>(rig.client, Say(), 50ms)), kit::failure::timed_out);
    Reply closed = kit::request<Say>(rig.client, Say(), 10s);
    rig.receive();
    rig.receive();
    rig.server->close();
    EXPECT_EQ(endOf(std::move(closed)), kit::failure::disconnected);
    rig.reconnect();
    Reply misread = kit::request<Say>(rig.client, Say(), 10s);
    rig.receive();
    rig.server->send("\x01\x01\x01\x01");
    ASSERT_TRUE(rig.events.wait(3));
    rig.client.close();
    EXPECT_EQ(endOf(std::move(misread)), kit::failure::disconnected);
}
