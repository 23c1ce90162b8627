#include "client/send_table.h"

#include "client/send_info.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using tav::tls::impl::send_info;
using tav::tls::impl::send_table;

namespace {

using info_ptr = send_table::info_ptr;

constexpr long long start = 1000000;

/// A send made at `start` that no session knows.
info_ptr made(unsigned long long sno, int wait_ms = 1000, unsigned short ack = 0x4321) {
    tav::tls::send_option const option(tav::tls::timedout_option(wait_ms), tav::tls::error_function(),
                                       tav::tls::message_callback(), ack, false, 4);
    return std::make_shared<send_info>("<a>", tavSharedPtr<tav::tls::impl::send_owner>(), sno, 0x1234, option,
                                       start);
}

/// The numbers of all sends that are due, in the order in which a walk takes them.
std::vector<unsigned long long> dueAt(send_table & table, long long now) {
    std::vector<unsigned long long> out;
    send_table::cursor at;
    while (info_ptr const due = table.take_due(now, at)) {
        out.push_back(due->sno());
    }
    return out;
}

using Numbers = std::vector<unsigned long long>;

} // namespace

TEST(SendTable, FindsBySequenceAndReplyTogether) {
    send_table table;
    info_ptr const seven = made(7, 1000, 0x1111);
    EXPECT_EQ(table.add(seven), 1u);
    EXPECT_EQ(table.add(made(8)), 2u);
    EXPECT_EQ(table.find(7, 0x1111), seven);
    EXPECT_EQ(table.find(7, 0x1112), nullptr);
    EXPECT_EQ(table.find(9, 0x4321), nullptr);
    EXPECT_EQ(table.size(), 2u);
}

TEST(SendTable, LastSendUnderANumberHasItsPlace) {
    send_table table;
    info_ptr const first = made(7, 1000, 0x1111);
    info_ptr const second = made(7, 1000, 0x2222);
    table.add(first);
    EXPECT_EQ(table.add(second), 1u);
    EXPECT_EQ(table.find(7, 0x1111), nullptr);
    EXPECT_EQ(table.find(7, 0x2222), second);
    EXPECT_TRUE(table.contains(*first));
    EXPECT_EQ(table.remove(7), second);
    EXPECT_EQ(table.remove(7), nullptr) << "the first one has no place";
    EXPECT_TRUE(table.contains(*first));
    EXPECT_FALSE(table.remove(*first));
    EXPECT_FALSE(table.contains(*first));
}

TEST(SendTable, RemovesByIdentity) {
    send_table table;
    info_ptr const first = made(7);
    info_ptr const second = made(7);
    info_ptr const foreign = made(7);
    table.add(first);
    table.add(second);
    EXPECT_FALSE(table.remove(*foreign));
    EXPECT_FALSE(table.contains(*foreign));
    EXPECT_TRUE(table.remove(*second));
    EXPECT_FALSE(table.remove(*second));
    EXPECT_TRUE(table.contains(*first));
}

TEST(SendTable, SameSendTwiceIsOne) {
    send_table table;
    info_ptr const seven = made(7);
    table.add(seven);
    EXPECT_EQ(table.add(seven), 1u);
    EXPECT_TRUE(table.remove(*seven));
    EXPECT_TRUE(table.take_all().empty());
}

TEST(SendTable, DueOnesAreTakenInTheOrderOfNumbersAndThenWithoutPlace) {
    send_table table;
    for (unsigned long long const sno : {9ull, 3ull, ~0ull, 3ull, 9ull, 5ull, 0ull}) {
        table.add(made(sno));
    }
    EXPECT_EQ(dueAt(table, start + 995), Numbers{});
    EXPECT_EQ(dueAt(table, start + 996), (Numbers{0, 3, 5, 9, ~0ull, 9, 3}));
    EXPECT_EQ(table.size(), 0u);
    EXPECT_TRUE(table.take_all().empty());
}

TEST(SendTable, OnlyWhatIsDueIsTaken) {
    send_table table;
    table.add(made(1, 100));
    table.add(made(2, 5000));
    table.add(made(3, 200));
    EXPECT_EQ(dueAt(table, start + 150), Numbers{1});
    EXPECT_EQ(dueAt(table, start + 1000), Numbers{3});
    EXPECT_EQ(table.size(), 1u);
}

TEST(SendTable, ReplacedSendKeepsItsOwnLimit) {
    send_table table;
    info_ptr const first = made(7, 100);
    info_ptr const second = made(7, 5000);
    table.add(first);
    table.add(second);
    send_table::cursor at;
    EXPECT_EQ(table.take_due(start + 200, at), first);
    EXPECT_EQ(table.take_due(start + 200, at), nullptr);
    EXPECT_EQ(table.find(7, 0x4321), second);
}

TEST(SendTable, DueOneIsClaimedAndAClaimedOneStays) {
    send_table table;
    info_ptr const one = made(1);
    info_ptr const two = made(2);
    table.add(one);
    table.add(two);
    ASSERT_TRUE(one->claim());
    EXPECT_EQ(dueAt(table, start + 1000), Numbers{2});
    EXPECT_TRUE(two->claimed());
    EXPECT_FALSE(two->claim());
    EXPECT_TRUE(table.contains(*one)) << "who claimed it takes it out";
    one->unclaim();
    EXPECT_EQ(dueAt(table, start + 1000), Numbers{1});
}

TEST(SendTable, SendsMayComeAndGoDuringAWalk) {
    send_table table;
    for (unsigned long long sno = 1; sno <= 4; ++sno) {
        table.add(made(sno));
    }
    send_table::cursor at;
    EXPECT_EQ(table.take_due(start + 1000, at)->sno(), 1u);
    table.remove(2);
    table.add(made(1));
    table.add(made(6));
    EXPECT_EQ(table.take_due(start + 1000, at)->sno(), 3u);
    EXPECT_EQ(table.take_due(start + 1000, at)->sno(), 4u);
    EXPECT_EQ(table.take_due(start + 1000, at)->sno(), 6u);
    EXPECT_EQ(table.take_due(start + 1000, at), nullptr);
    EXPECT_EQ(table.size(), 1u) << "what came behind the walk waits for the next";
}

TEST(SendTable, TakesAllInOrder) {
    send_table table;
    EXPECT_TRUE(table.take_all().empty());
    for (unsigned long long const sno : {5ull, 4ull, 5ull, 5ull}) {
        table.add(made(sno));
    }
    send_table::content const all = table.take_all();
    EXPECT_EQ(all.by_number.size(), 2u);
    EXPECT_EQ(all.by_number.begin()->first, 4u);
    EXPECT_EQ(all.replaced.size(), 2u);
    EXPECT_FALSE(all.empty());
    EXPECT_EQ(table.size(), 0u);
    EXPECT_EQ(dueAt(table, start + 5000), Numbers{});
}

TEST(SendTable, AnyNumberUnderOneSequenceEndsEach) {
    send_table table;
    std::vector<info_ptr> all;
    for (int i = 0; i < 20000; ++i) {
        all.push_back(made(7, 1000 + i % 3));
        ASSERT_EQ(table.add(all.back()), 1u);
    }
    for (int i = 0; i < 20000; i += 2) {
        table.remove(*all[static_cast<std::size_t>(i)]);
    }
    EXPECT_EQ(dueAt(table, start + 5000).size(), 10000u);
}
