#include "foundation/tree_nodes.h"

#include "foundation/unshared_count.h"

#include <algorithm>
#include <atomic>
#include <new>

#if defined(__has_feature)
#define TAV_HAS_FEATURE(x) __has_feature(x)
#else
#define TAV_HAS_FEATURE(x) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || TAV_HAS_FEATURE(address_sanitizer)
#define TAV_SHARES_BLOCKS false
#else
#define TAV_SHARES_BLOCKS true
#endif

namespace tav {
namespace detail {

namespace {

/// Beside an address sanitizer each node has an allocation of its own, so that a use after its end shows.
constexpr bool sharesBlocks = TAV_SHARES_BLOCKS;

/// A block counts as holding this many nodes as long as more are made.
constexpr std::size_t stillOpen = ~std::size_t(0) / 2;

/// Blocks stay small, since one node that is kept keeps all of its block.
constexpr std::size_t largestBlock = 32 * 1024;

/// Where nodes come from on this thread.
[[gnu::tls_model("initial-exec")]] thread_local NodeScope * innermost = nullptr;

/// Where nodes go to on this thread; null if each goes back at once.
[[gnu::tls_model("initial-exec")]] thread_local NodeReturn * returning = nullptr;

constexpr std::size_t roundedUp(std::size_t size) {
    constexpr std::size_t unit = alignof(void *);
    return (size + unit - 1) / unit * unit;
}

} // namespace

/// One allocation for many nodes.  It is freed when the last of them is given back, on whichever thread.
struct NodeScope::Block {
    std::atomic<std::size_t> nodes;
};

/// Ahead of each node: where it lies; null if it has an allocation of its own.
struct NodeScope::Header {
    Block * block;
};

void * newNode(std::size_t size) {
    if (sharesBlocks && innermost != nullptr) {
        return innermost->take(size);
    }
    using Header = NodeScope::Header;
    return new (::operator new(sizeof(Header) + size)) Header{nullptr} + 1;
}

void * newCountedNode(std::size_t size) {
    void * const node = newNode(size);
    nextCountIsUnshared();
    return node;
}

void deleteNode(void * node) noexcept {
    NodeScope::Header * const header = static_cast<NodeScope::Header *>(node) - 1;
    if (header->block == nullptr) {
        ::operator delete(header);
    } else if (returning != nullptr) {
        returning->give(header->block);
    } else {
        NodeScope::drop(header->block, 1);
    }
}

NodeScope::NodeScope() : outer_(innermost) {
    innermost = this;
}

NodeScope::~NodeScope() {
    innermost = outer_;
    finish();
}

void * NodeScope::take(std::size_t size) {
    static_assert(sizeof(Header) == roundedUp(sizeof(Header)) && sizeof(Block) == roundedUp(sizeof(Block)),
                  "nodes are aligned as pointers are");
    std::size_t const whole = sizeof(Header) + roundedUp(size);
    if (whole > static_cast<std::size_t>(end_ - at_)) {
        begin(whole);
    }
    void * const node = new (at_) Header{block_} + 1;
    at_ += whole;
    ++made_;
    return node;
}

void NodeScope::begin(std::size_t atLeast) {
    finish();
    std::size_t const size = std::max(next_, sizeof(Block) + atLeast);
    next_ = std::min(next_ * 2, largestBlock);
    char * const memory = static_cast<char *>(::operator new(size));
    block_ = new (memory) Block{{stillOpen}};
    at_ = memory + sizeof(Block);
    end_ = memory + size;
}

void NodeScope::finish() noexcept {
    if (block_ != nullptr) {
        drop(block_, stillOpen - made_);
    }
    block_ = nullptr;
    at_ = end_ = nullptr;
    made_ = 0;
}

void NodeScope::drop(Block * block, std::size_t nodes) noexcept {
    if (block->nodes.fetch_sub(nodes, std::memory_order_acq_rel) == nodes) {
        ::operator delete(block);
    }
}

NodeReturn::NodeReturn() noexcept : outer_(returning) {
    returning = this;
}

NodeReturn::~NodeReturn() {
    returning = outer_;
    finish();
}

void NodeReturn::give(NodeScope::Block * block) noexcept {
    if (block != block_) {
        finish();
        block_ = block;
    }
    ++nodes_;
}

void NodeReturn::finish() noexcept {
    if (block_ != nullptr) {
        NodeScope::drop(block_, nodes_);
    }
    block_ = nullptr;
    nodes_ = 0;
}

} // namespace detail
} // namespace tav
