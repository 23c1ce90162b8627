#include "client/frame_writer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

using tav::tls::impl::frame_writer;

namespace {

tavBytes bytes(std::string const & text) {
    return tavBytes(tav_istr(text));
}

std::string textOf(frame_writer::piece const & piece) {
    return std::string(reinterpret_cast<char const *>(piece.data), piece.size);
}

/// Posts frames and takes them over.
void put(frame_writer & writer, std::vector<std::string> const & frames) {
    for (std::string const & each : frames) {
        writer.post(bytes(each));
    }
    writer.accept();
}

/// Writes everything and gives the pieces.
std::vector<std::string> pieces(frame_writer & writer) {
    std::vector<std::string> out;
    while (!writer.empty()) {
        out.push_back(textOf(writer.next()));
        while (writer.pending() > 0) {
            writer.pop();
        }
    }
    return out;
}

using Texts = std::vector<std::string>;

} // namespace

TEST(FrameWriter, ClearDropsWhatWaitsAndWhatWasPostedWithTheirRoom) {
    tav::tls::limit_option limits;
    limits.queued_frames = 3;
    tav::tls::impl::send_account account(limits, nullptr);
    frame_writer writer;
    writer.post(bytes("a"), account.enter(1));
    writer.post(bytes("b"), account.enter(1));
    writer.accept();
    writer.post(bytes("c"), account.enter(1));
    EXPECT_FALSE(account.enter(1));
    writer.clear();
    EXPECT_TRUE(writer.empty());
    EXPECT_EQ(account.counted().copy().queued_frames, 0u);
    EXPECT_TRUE(account.enter(1));
    EXPECT_FALSE(writer.accept());
    EXPECT_TRUE(writer.post(bytes("d")));
    EXPECT_TRUE(writer.accept());
    EXPECT_EQ(pieces(writer), Texts{"d"});
}

TEST(FrameWriter, FirstFrameIsToldOfAndTheRestIsNot) {
    frame_writer writer;
    EXPECT_TRUE(writer.empty());
    EXPECT_FALSE(writer.retell());
    EXPECT_TRUE(writer.post(bytes("a")));
    EXPECT_FALSE(writer.post(bytes("b")));
    EXPECT_TRUE(writer.empty()) << "nothing waits for the socket yet";
    EXPECT_TRUE(writer.accept());
    EXPECT_FALSE(writer.empty());
    EXPECT_TRUE(writer.post(bytes("c")));
    EXPECT_FALSE(writer.accept()) << "what waits is being written";
    EXPECT_EQ(pieces(writer), Texts{"abc"});
    EXPECT_FALSE(writer.accept()) << "there is nothing";
}

TEST(FrameWriter, FramesThatNobodyCouldBeToldOfAreToldOfLater) {
    frame_writer writer;
    ASSERT_TRUE(writer.post(bytes("a")));
    EXPECT_FALSE(writer.retell());
    writer.untold();
    EXPECT_TRUE(writer.retell());
    EXPECT_FALSE(writer.retell());
    writer.untold();
    EXPECT_TRUE(writer.post(bytes("b")));
    EXPECT_FALSE(writer.retell());
    writer.accept();
    EXPECT_EQ(pieces(writer), Texts{"ab"});
    writer.untold();
    EXPECT_FALSE(writer.retell()) << "there is nothing to tell of";
}

TEST(FrameWriter, FramesOfExactlyOneRecordGoTogether) {
    std::string const half(frame_writer::record_size / 2, 'h');
    std::string const rest(frame_writer::record_size - half.size() - 3, 'r');
    frame_writer writer;
    put(writer, {half, "123", rest, "x"});
    EXPECT_EQ(pieces(writer), (Texts{half + "123" + rest, "x"}));
}

TEST(FrameWriter, FrameThatWouldNotFitTheRecordWaits) {
    std::string const half(frame_writer::record_size / 2, 'h');
    std::string const rest(frame_writer::record_size - half.size() + 1, 'r');
    frame_writer writer;
    put(writer, {half, rest, "x"});
    EXPECT_EQ(pieces(writer), (Texts{half, rest + "x"}));
}

TEST(FrameWriter, LargeFrameGoesAloneFromItsPlace) {
    std::string const large(frame_writer::record_size + 1, 'l');
    frame_writer writer;
    tavBytes frame = bytes(large);
    unsigned char const * const place = frame.data();
    writer.post(std::move(frame));
    writer.post(bytes("x"));
    writer.accept();
    frame_writer::piece const piece = writer.next();
    EXPECT_EQ(piece.data, place);
    EXPECT_EQ(piece.size, large.size());
    EXPECT_EQ(writer.pending(), 1u);
    EXPECT_TRUE(writer.pop());
    EXPECT_EQ(textOf(writer.next()), "x");
    EXPECT_FALSE(writer.pop());
}

TEST(FrameWriter, TellsEachFrameOfAPiece) {
    frame_writer writer;
    put(writer, {"aaaa", "bb", "c"});
    writer.post(bytes("posted"));
    ASSERT_EQ(textOf(writer.next()), "aaaabbc");
    EXPECT_EQ(writer.pending(), 3u);
    EXPECT_EQ(writer.first().size, 4u);
    EXPECT_EQ(writer.first().waiting, 3u);
    EXPECT_TRUE(writer.pop());
    EXPECT_EQ(writer.first().size, 2u);
    EXPECT_EQ(writer.first().waiting, 2u);
    EXPECT_EQ(writer.sizes(), (std::vector<unsigned>{2, 1})) << "what is posted is not counted";
    EXPECT_TRUE(writer.pop());
    EXPECT_FALSE(writer.pop());
    EXPECT_EQ(writer.pending(), 0u);
}

TEST(FrameWriter, ManyThreadsPostEverythingInTheirOrder) {
    frame_writer writer;
    std::atomic<unsigned> told{0};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (unsigned i = 0; i < 500; ++i) {
                if (writer.post(
                        bytes(std::string(1, static_cast<char>('a' + t)) + static_cast<char>(i % 100)))) {
                    ++told;
                }
            }
        });
    }
    std::string all;
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (all.size() < 4000 && std::chrono::steady_clock::now() < end) {
        writer.accept();
        for (std::string const & piece : pieces(writer)) {
            all += piece;
        }
        std::this_thread::yield();
    }
    for (std::thread & each : threads) {
        each.join();
    }
    ASSERT_EQ(all.size(), 4000u);
    std::vector<unsigned> next(4, 0);
    for (std::size_t i = 0; i < all.size(); i += 2) {
        unsigned & expected = next[static_cast<std::size_t>(all[i] - 'a')];
        ASSERT_EQ(static_cast<unsigned>(all[i + 1]), expected % 100);
        ++expected;
    }
    EXPECT_GE(told, 1u);
}
