#include "foundation/tree_nodes.h"

#include "foundation/unshared_count.h"

#include <algorithm>
#include <atomic>
#include <chrono>
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

/// Blocks of the largest size that went back, for the next large text of any thread: without them their pages
/// would go to the system with each tree and come again with the next.  What is kept is bounded, nothing is
/// kept of a tree that is larger than the bound, and none is kept that was of no use for a while.
class Reserve {
public:
    using Clock = std::chrono::steady_clock;

    /// Null if there is none.
    void * take() noexcept {
        Turn const turn(busy_);
        if (!turn) {
            return nullptr;
        }
        overflowed_ = false;
        Kept * const taken = head_;
        if (taken != nullptr) {
            head_ = taken->next;
            count_.store(count_.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
            used_ = Clock::now();
        }
        return taken;
    }

    /// False if the block is to be freed.
    bool give(void * block) noexcept {
        Turn const turn(busy_);
        if (!turn || overflowed_) {
            return false;
        }
        std::size_t const count = count_.load(std::memory_order_relaxed);
        if (count == most) {
            overflowed_ = true;
            clear();
            return false;
        }
        head_ = new (block) Kept{head_};
        count_.store(count + 1, std::memory_order_relaxed);
        used_ = Clock::now();
        return true;
    }

    /// Frees what is kept, if that was of no use for a second.
    void giveUpIdle() noexcept {
        if (count_.load(std::memory_order_relaxed) == 0) {
            return;
        }
        Turn const turn(busy_);
        if (turn && Clock::now() - used_ >= std::chrono::seconds(1)) {
            clear();
        }
    }

private:
    /// 4 MB.
    static constexpr std::size_t most = 128;

    struct Kept {
        Kept * next;
    };

    /// Nobody waits for a turn: who does not get one does without the reserve, also in a process that was
    /// forked while another thread had one.
    class Turn {
    public:
        explicit Turn(std::atomic_flag & busy) noexcept
            : busy_(busy), mine_(!busy.test_and_set(std::memory_order_acquire)) {}
        Turn(Turn const &) = delete;
        Turn & operator=(Turn const &) = delete;
        ~Turn() {
            if (mine_) {
                busy_.clear(std::memory_order_release);
            }
        }
        explicit operator bool() const noexcept { return mine_; }

    private:
        std::atomic_flag & busy_;
        bool mine_;
    };

    void clear() noexcept {
        while (head_ != nullptr) {
            Kept * const kept = head_;
            head_ = kept->next;
            ::operator delete(kept);
        }
        count_.store(0, std::memory_order_relaxed);
    }

    std::atomic_flag busy_ = ATOMIC_FLAG_INIT;
    /// Changed by who has the turn.
    std::atomic<std::size_t> count_{0};
    Kept * head_ = nullptr;
    Clock::time_point used_;
    /// The last tree that ended had more: nothing is kept until the next large text.
    bool overflowed_ = false;
};

Reserve reserve;

constexpr std::size_t roundedUp(std::size_t size) {
    constexpr std::size_t unit = alignof(void *);
    return (size + unit - 1) / unit * unit;
}

} // namespace

/// One allocation for many nodes.  It is freed when the last of them is given back, on whichever thread.
struct NodeScope::Block {
    std::atomic<std::size_t> nodes;
    std::size_t size;
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
    reserve.giveUpIdle();
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
    void * const kept = size == largestBlock ? reserve.take() : nullptr;
    char * const memory = static_cast<char *>(kept != nullptr ? kept : ::operator new(size));
    block_ = new (memory) Block{{stillOpen}, size};
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
    if (block->nodes.fetch_sub(nodes, std::memory_order_acq_rel) == nodes &&
        !(block->size == largestBlock && reserve.give(block))) {
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
