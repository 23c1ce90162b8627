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
    EXPECT_EQ(p.host, "");
    EXPECT_EQ(p.port, 0);
}

TEST(VadIpPort, CopiesAndMovesAsAValueAndAMovedFromHostIsEmpty) {
    ip_port a("a-host-name-that-does-not-fit-into-the-string", 65535);
    ip_port const copy(a);
    EXPECT_EQ(a.host, copy.host);
    EXPECT_EQ(copy.port, 65535);
    ip_port moved(std::move(a));
    EXPECT_EQ(copy.host, moved.host);
    EXPECT_EQ(a.host, "");
    ip_port small("h", 1);
    ip_port target;
    target = std::move(small);
    EXPECT_EQ(target.host, "h");
    EXPECT_EQ(target.port, 1);
    EXPECT_EQ(small.host, "");
    target = copy;
    EXPECT_EQ(copy.host, target.host);
    ip_port & self = target;
    target = std::move(self);
    EXPECT_EQ(copy.host, target.host);
}

TEST(VadHeader, HasTheConstantAndItsArguments) {
    header const h(static_cast<channel_type>(7), 9);
    EXPECT_EQ(h.magic, 0x00020140u);
    EXPECT_EQ(h.type, 7);
    EXPECT_EQ(h.flags, 9);
    EXPECT_EQ(h.length, 0u);
    header const several[2];
    EXPECT_EQ(several[1].magic, 0x00020140u);
    EXPECT_EQ(several[1].type, 0);
    EXPECT_EQ(several[1].flags, 0);
}

TEST(VadHeader, HasFourFieldsInNaturalAlignment) {
    EXPECT_EQ(offsetof(header, magic), 0u);
    EXPECT_EQ(offsetof(header, type), 4u);
    EXPECT_EQ(offsetof(header, flags), 5u);
    EXPECT_EQ(offsetof(header, length), 8u);
    EXPECT_EQ(sizeof(channel_type), 1u);
}

TEST(VadChannel, HasTenPureOperations) {
    EXPECT_TRUE(std::is_abstract<channel>::value);
    EXPECT_TRUE((std::is_base_of<tavInterface, channel>::value));
    Channel c;
    channel & base = c;
    base.operation_1();
    base.operation_10();
    EXPECT_EQ(c.calls, 2);
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
        EXPECT_EQ(token.use_count(), 1);
        c.reopen("host");
        c.close();
        c.close();
    }
    client::fini();
    EXPECT_EQ(*token, 0);
}

TEST(VadClient, ChannelsAreNone) {
    auto const token = std::make_shared<int>(0);
    client c;
    auto const onData = [token](std::shared_ptr<channel>, tav_ostr) { ++*token; };
    auto const onEvent = [token](std::shared_ptr<channel>) { ++*token; };
    EXPECT_EQ(c.create_channel("host", 80, channel_none, 0, onData), nullptr);
    EXPECT_EQ(c.create_channel("", 0, static_cast<channel_type>(255), 255, onData, onEvent, onEvent),
              nullptr);
    EXPECT_EQ(c.create_channel("", 0, channel_none, 0, nullptr), nullptr);
    EXPECT_TRUE(c.create_channels("host", 80, channel_none, 0).empty());
    EXPECT_TRUE(c.create_channels("host", 80, channel_none, 0, onData, onEvent, onEvent).empty());
    EXPECT_EQ(*token, 0);
    EXPECT_EQ(token.use_count(), 3);
}
