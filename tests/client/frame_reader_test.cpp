#include "client/frame_reader.h"

#include "support/frame_bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

using tav::tls::impl::frame_reader;
using tav_test::frame;

namespace {

using Texts = std::vector<std::string>;
using Part = frame_reader::part;

/// A reader, and a record of what comes out of it: each head as its length, each body as its bytes.
class Reading {
public:
    /// Gives the bytes in pieces of at most `piece`, as far as there is room for them.
    void give(std::string const & bytes, std::size_t piece = ~std::size_t{0}) {
        for (std::size_t at = 0; at < bytes.size() && !refused;) {
            frame_reader::place const room = reader.room();
            ASSERT_GT(room.size, 0u);
            std::size_t const size = std::min({piece, room.size, bytes.size() - at});
            std::memcpy(room.data, bytes.data() + at, size);
            reader.filled(size);
            at += size;
            take();
        }
    }

    frame_reader reader;
    std::vector<unsigned> heads;
    Texts bodies;
    bool refused = false;

private:
    void take() {
        for (;;) {
            switch (reader.next()) {
            case Part::none: return;
            case Part::head: heads.push_back(reader.length()); break;
            case Part::body: {
                tavBytes const body = reader.take_body();
                bodies.emplace_back(reinterpret_cast<char const *>(body.data()), body.size());
                break;
            }
            case Part::refused: refused = true; return;
            }
        }
    }
};

std::string filled(std::size_t size, unsigned seed = 1) {
    std::mt19937 random(seed);
    std::string out(size, '\0');
    for (char & c : out) {
        c = static_cast<char>(random());
    }
    return out;
}

} // namespace

TEST(FrameReader, BeginsWithoutAPart) {
    frame_reader reader;
    EXPECT_EQ(reader.next(), Part::none);
    EXPECT_FALSE(reader.in_body());
}

TEST(FrameReader, CutsFramesOutOfOnePiece) {
    Reading r;
    r.give(frame("one") + frame("") + frame("three"));
    EXPECT_EQ(r.heads, (std::vector<unsigned>{3, 0, 5}));
    EXPECT_EQ(r.bodies, (Texts{"one", "three"}));
}

TEST(FrameReader, CutsFramesAtEveryPlace) {
    std::string const bytes = frame("first") + frame("") + frame("second!");
    for (std::size_t piece = 1; piece <= bytes.size(); ++piece) {
        Reading r;
        r.give(bytes, piece);
        EXPECT_EQ(r.bodies, (Texts{"first", "second!"})) << piece;
        EXPECT_EQ(r.heads, (std::vector<unsigned>{5, 0, 7})) << piece;
    }
}

TEST(FrameReader, TellsWhatItAwaits) {
    Reading r;
    r.give(frame("abc").substr(0, 3));
    EXPECT_FALSE(r.reader.in_body());
    r.give(frame("abc").substr(3, 3));
    EXPECT_TRUE(r.reader.in_body());
    r.give("c");
    EXPECT_FALSE(r.reader.in_body());
    EXPECT_EQ(r.bodies, Texts{"abc"});
}

TEST(FrameReader, HeadIsBigEndian) {
    Reading r;
    r.give(std::string("\x00\x01\x02\x03", 4));
    EXPECT_EQ(r.heads, std::vector<unsigned>{0x010203});
}

TEST(FrameReader, LengthsAboveTheLimitAreRefused) {
    for (std::string const & head :
         {std::string("\x01\x00\x00\x00", 4), std::string("\x80\x00\x00\x01", 4), std::string(4, '\xff')}) {
        Reading r;
        r.give(frame("a") + head + frame("b"));
        EXPECT_TRUE(r.refused);
        EXPECT_EQ(r.bodies, Texts{"a"});
    }
    Reading largest;
    largest.give(std::string("\x00\xff\xff\xff", 4));
    EXPECT_FALSE(largest.refused);
    EXPECT_EQ(largest.heads, std::vector<unsigned>{frame_reader::max_body_size});
}

TEST(FrameReader, BodiesOfAnySizeInAnyPieces) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::mt19937 random(seed);
        std::string bytes;
        Texts expected;
        for (unsigned i = 0; i < 30; ++i) {
            std::size_t const sizes[] = {1 + random() % 4, 1 + random() % 300, 16380 + random() % 10,
                                         32760 + random() % 16, 1 + random() % 200000};
            expected.push_back(filled(sizes[random() % 5], i));
            bytes += frame(expected.back());
        }
        Reading r;
        r.give(bytes, 1 + random() % 40000);
        ASSERT_TRUE(r.bodies == expected) << seed;
    }
}

TEST(FrameReader, LargestBodyComesWhole) {
    std::string const body = filled(frame_reader::max_body_size);
    Reading r;
    r.give(frame(body) + frame("next"));
    ASSERT_EQ(r.bodies.size(), 2u);
    EXPECT_TRUE(r.bodies[0] == body);
    EXPECT_EQ(r.bodies[1], "next");
}

TEST(FrameReader, AnnouncedBodyCostsOnlyWhatHasCome) {
    Reading r;
    r.give(frame(std::string(frame_reader::max_body_size, 'x')).substr(0, 104));
    frame_reader::place room = r.reader.room();
    EXPECT_LE(room.size, 2 * frame_reader::input_size);
    std::string const more(frame_reader::input_size, 'x');
    for (std::size_t came = 100; came < 4000000; came += more.size()) {
        room = r.reader.room();
        ASSERT_LE(room.size, came + 2 * frame_reader::input_size) << "at most doubled";
        r.give(more);
    }
}

TEST(FrameReader, BodyThatHasComeAtOnceTakesJustItsSize) {
    frame_reader reader;
    std::string const bytes = frame(std::string(1000, 'x'));
    std::memcpy(reader.room().data, bytes.data(), bytes.size());
    reader.filled(bytes.size());
    ASSERT_EQ(reader.next(), Part::head);
    ASSERT_EQ(reader.next(), Part::body);
    EXPECT_EQ(reader.take_body().maxSize(), 1000u);
}

TEST(FrameReader, BodyStaysUntilItIsTaken) {
    frame_reader reader;
    std::string const bytes = frame("abc");
    std::memcpy(reader.room().data, bytes.data(), bytes.size());
    reader.filled(bytes.size());
    ASSERT_EQ(reader.next(), Part::head);
    ASSERT_EQ(reader.next(), Part::body);
    ASSERT_EQ(reader.next(), Part::body);
    EXPECT_EQ(reader.take_body().size(), 3u);
    EXPECT_EQ(reader.next(), Part::none);
}

TEST(FrameReader, DroppedInputLeavesRoom) {
    frame_reader reader;
    frame_reader::place const room = reader.room();
    std::memset(room.data, 0, room.size);
    reader.filled(room.size);
    ASSERT_EQ(reader.next(), Part::head);
    reader.drop();
    EXPECT_EQ(reader.next(), Part::none);
    EXPECT_EQ(reader.room().size, frame_reader::input_size);
}
