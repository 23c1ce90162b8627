#include "foundation/tree_nodes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

using tav::detail::deleteNode;
using tav::detail::newNode;
using tav::detail::NodeScope;

namespace {

/// A node that is filled with a byte, and holds it up to its end.
struct Node {
    Node(std::size_t bytes, unsigned char with)
        : size(bytes), fill(with), memory(static_cast<unsigned char *>(newNode(bytes))) {
        std::memset(memory, fill, size);
    }

    bool isWhole() const {
        for (std::size_t i = 0; i < size; ++i) {
            if (memory[i] != fill) {
                return false;
            }
        }
        return true;
    }

    /// Whether it was, up to now.
    bool end() {
        bool const whole = isWhole();
        std::memset(memory, 0xEE, size);
        deleteNode(memory);
        return whole;
    }

    std::size_t size;
    unsigned char fill;
    unsigned char * memory;
};

std::vector<Node> made(std::size_t count, unsigned seed) {
    std::vector<Node> nodes;
    for (std::size_t i = 0; i < count; ++i) {
        std::size_t const size = 1 + (i * 7 + seed) % 130;
        nodes.emplace_back(size, static_cast<unsigned char>(i + seed));
    }
    return nodes;
}

} // namespace

TEST(TreeNodes, AreAlignedAsPointersAre) {
    NodeScope const scope;
    for (Node & node : made(500, 1)) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(node.memory) % alignof(void *), 0u) << node.size;
        EXPECT_TRUE(node.end());
    }
}

TEST(TreeNodes, WithoutAScopeStandAlone) {
    std::vector<Node> nodes = made(100, 2);
    for (Node & node : nodes) {
        EXPECT_TRUE(node.end());
    }
}

TEST(TreeNodes, OutliveTheirScopeAndEndInAnyOrder) {
    std::vector<Node> nodes;
    {
        NodeScope const scope;
        nodes = made(2000, 3);
        for (std::size_t i = 0; i < nodes.size(); i += 3) {
            EXPECT_TRUE(nodes[i].end());
        }
    }
    for (std::size_t i = nodes.size(); i-- > 0;) {
        if (i % 3 != 0) {
            EXPECT_TRUE(nodes[i].end()) << i;
        }
    }
}

TEST(TreeNodes, MayBeLargerThanABlock) {
    NodeScope const scope;
    Node small(8, 1);
    Node large(1 << 20, 2);
    Node after(8, 3);
    EXPECT_TRUE(large.end());
    EXPECT_TRUE(small.end());
    EXPECT_TRUE(after.end());
}

TEST(TreeNodes, TheInnermostScopeGivesThem) {
    std::unique_ptr<Node> inner;
    NodeScope const outer;
    Node before(16, 1);
    {
        NodeScope const scope;
        inner = std::make_unique<Node>(16, static_cast<unsigned char>(2));
    }
    Node after(16, 3);
    EXPECT_TRUE(before.end());
    EXPECT_TRUE(inner->end());
    EXPECT_TRUE(after.end());
}

TEST(TreeNodes, EndOnOtherThreadsWhileMoreAreMade) {
    std::vector<std::thread> threads;
    {
        NodeScope const scope;
        for (unsigned i = 0; i < 8; ++i) {
            threads.emplace_back([nodes = made(1000, i)]() mutable {
                for (Node & node : nodes) {
                    EXPECT_TRUE(node.end());
                }
            });
        }
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
}

TEST(TreeNodes, OfManyLargeTreesOnManyThreadsAreWhole) {
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (unsigned round = 0; round < 4; ++round) {
                std::vector<Node> nodes;
                {
                    NodeScope const scope;
                    // Some of these trees are larger than what is kept of one.
                    nodes = made(round % 4 == 3 ? 70000 : 20000, t + round);
                }
                for (Node & node : nodes) {
                    ASSERT_TRUE(node.end());
                }
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
}
