#include "tav/vinta/vinta_vad.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

using namespace tav::vad;

namespace {

struct Channel : channel {
    void operation_1() override { ++calls; }
    void operation_2() override { ++calls; }
    void operation_3() override { ++calls; }
    void operation_4() override { ++calls; }
    void operation_5() override { ++calls; }
    void operation_6() override { ++calls; }
    void operation_7() override { ++calls; }
    void operation_8() override { ++calls; }
    void operation_9() override { ++calls; }
    void operation_10() override { ++calls; }
    int calls = 0;
};

} // namespace

TEST(VadIpPort, DefaultIsAnEmptyHostAndPortZero) {
    ip_port const p;
    EXPECT_EQ("", p.host);
    EXPECT_EQ(0, p.port);
}

TEST(VadIpPort, CopiesAndMovesAsAValueAndAMovedFromHostIsEmpty) {
    ip_port a("a-host-name-that-does-not-fit-into-the-string", 65535);
    ip_port const copy(a);
    EXPECT_EQ(a.host, copy.host);
    EXPECT_EQ(65535, copy.port);
    ip_port moved(std::move(a));
    EXPECT_EQ(copy.host, moved.host);
    EXPECT_EQ("", a.host);
    ip_port small("h", 1);
    ip_port target;
    target = std::move(small);
    EXPECT_EQ("h", target.host);
    EXPECT_EQ(1, target.port);
    EXPECT_EQ("", small.host);
    target = copy;
    EXPECT_EQ(copy.host, target.host);
    ip_port & self = target;
    target = std::move(self);
    EXPECT_EQ(copy.host, target.host);
}

TEST(VadHeader, HasTheConstantAndItsArguments) {
    header const h(static_cast<channel_type>(7), 9);
    EXPECT_EQ(0x00020140u, h.magic);
    EXPECT_EQ(7, h.type);
    EXPECT_EQ(9, h.flags);
    EXPECT_EQ(0u, h.length);
    header const several[2];
    EXPECT_EQ(0x00020140u, several[1].magic);
    EXPECT_EQ(0, several[1].type);
    EXPECT_EQ(0, several[1].flags);
}

TEST(VadHeader, HasFourFieldsInNaturalAlignment) {
    EXPECT_EQ(0u, offsetof(header, magic));
    EXPECT_EQ(4u, offsetof(header, type));
    EXPECT_EQ(5u, offsetof(header, flags));
    EXPECT_EQ(8u, offsetof(header, length));
    EXPECT_EQ(1u, sizeof(channel_type));
}

TEST(VadChannel, HasTenPureOperations) {
    EXPECT_TRUE(std::is_abstract<channel>::value);
    EXPECT_TRUE((std::is_base_of<tavInterface, channel>::value));
    Channel c;
    channel & base = c;
    base.operation_1();
    base.operation_10();
    EXPECT_EQ(2, c.calls);
}

TEST(VadClient, IsNotCopyable) {
    EXPECT_FALSE(std::is_copy_constructible<client>::value);
    EXPECT_FALSE(std::is_copy_assignable<client>::value);
}

TEST(VadClient, OpenDestroysItsCallbackWithoutACall) {
    auto const token = std::make_shared<int>(0);
    client::init();
    {
        client c;
        c.open("host", 1, 2, [token](void *) {
            ++*token;
            return true;
        });
        EXPECT_EQ(1, token.use_count());
        c.reopen("host");
        c.close();
        c.close();
    }
    client::fini();
    EXPECT_EQ(0, *token);
}

TEST(VadClient, ChannelsAreNone) {
    auto const token = std::make_shared<int>(0);
    client c;
    auto const onData = [token](std::shared_ptr<channel>, tav_ostr) { ++*token; };
    auto const onEvent = [token](std::shared_ptr<channel>) { ++*token; };
    EXPECT_EQ(nullptr, c.create_channel("host", 80, channel_none, 0, onData));
    EXPECT_EQ(nullptr,
              c.create_channel("", 0, static_cast<channel_type>(255), 255, onData, onEvent, onEvent));
    EXPECT_EQ(nullptr, c.create_channel("", 0, channel_none, 0, nullptr));
    EXPECT_TRUE(c.create_channels("host", 80, channel_none, 0).empty());
    EXPECT_TRUE(c.create_channels("host", 80, channel_none, 0, onData, onEvent, onEvent).empty());
    EXPECT_EQ(0, *token);
    EXPECT_EQ(3, token.use_count());
}
