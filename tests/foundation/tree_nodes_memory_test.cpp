#include "foundation/tree_nodes.h"

#include "support/heap_meter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <thread>
#include <vector>

using tav::detail::deleteNode;
using tav::detail::newNode;
using tav::detail::NodeScope;
using tav_test::HeapMeter;

// What the blocks of trees cost, and what is kept of them for the next large tree.

namespace {

constexpr std::size_t block = 32 * 1024;
/// How many blocks of the largest size are kept.
constexpr std::size_t mostKept = 128;
/// A node of which two fill a block.
constexpr std::size_t half = block / 2 - 64;

/// A tree with so many blocks of the largest size.
class Tree {
public:
    explicit Tree(std::size_t blocks) {
        NodeScope const scope;
        // The first blocks are smaller: they are used up ahead.
        for (std::size_t size = 1024; size < block; size *= 2) {
            nodes_.push_back(newNode(size - 64));
        }
        for (std::size_t i = 0; i < 2 * blocks; ++i) {
            nodes_.push_back(newNode(half));
        }
    }
    Tree(Tree const &) = delete;
    Tree & operator=(Tree const &) = delete;
    ~Tree() {
        for (void * const node : nodes_) {
            deleteNode(node);
        }
    }

private:
    std::vector<void *> nodes_;
};

/// Begins small trees until no more than this is kept, for ten seconds at most.
bool givesUpAllBut(HeapMeter const & meter, long long kept) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (meter.kept() > kept && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        NodeScope const scope;
    }
    return meter.kept() <= kept;
}

constexpr long long largeBlocks(std::size_t count) {
    return static_cast<long long>(count * block);
}

/// More than what the allocator adds to what is kept.
constexpr long long slack = 8 * 1024;

} // namespace

TEST(TreeNodesMemory, OfSmallTreesIsGoneWithTheirLastNode) {
    HeapMeter const meter;
    std::vector<void *> nodes;
    {
        NodeScope const scope;
        for (int i = 0; i < 200; ++i) {
            nodes.push_back(newNode(40));
        }
    }
    EXPECT_GT(meter.kept(), 200 * 48);
    void * const last = nodes.back();
    nodes.pop_back();
    for (void * const node : nodes) {
        deleteNode(node);
    }
    EXPECT_GT(meter.kept(), 0);
    EXPECT_LE(meter.kept(), largeBlocks(1) + static_cast<long long>(nodes.capacity() * sizeof(void *)) + 100);
    deleteNode(last);
    std::vector<void *>().swap(nodes);
    EXPECT_EQ(meter.kept(), 0);
}

TEST(TreeNodesMemory, OfAsManyBlocksAsAreKeptServesTheNextTreeAndOfOneMoreIsGone) {
    HeapMeter const meter;
    { Tree const most(mostKept); }
    EXPECT_GE(meter.kept(), largeBlocks(mostKept));
    EXPECT_LE(meter.kept(), largeBlocks(mostKept) + slack);
    { Tree const larger(mostKept + 1); }
    EXPECT_LE(meter.kept(), slack);
    // Nothing is kept of such a tree, neither of the blocks that follow the first too many.
    { Tree const muchLarger(3 * mostKept); }
    EXPECT_LE(meter.kept(), slack);
    { Tree const next(3); }
    EXPECT_GE(meter.kept(), largeBlocks(3));
    EXPECT_LE(meter.kept(), largeBlocks(3) + slack);
    EXPECT_TRUE(givesUpAllBut(meter, 0));
}

TEST(TreeNodesMemory, IsTakenFromWhatIsKept) {
    { Tree const first(10); }
    HeapMeter const meter;
    { Tree const second(10); }
    EXPECT_LE(meter.kept(), 0);
    EXPECT_LE(meter.peak(), slack + largeBlocks(1));
    EXPECT_LT(meter.taken(), 20);
}

TEST(TreeNodesMemory, OfABlockOfItsOwnSizeIsNeverKept) {
    HeapMeter const meter;
    {
        NodeScope const scope;
        void * const large = newNode(3 * block);
        EXPECT_GE(meter.kept(), largeBlocks(3));
        deleteNode(large);
    }
    EXPECT_LE(meter.kept(), 0);
}
