#ifndef TAV_FOUNDATION_TREE_NODES_H
#define TAV_FOUNDATION_TREE_NODES_H

#include <cstddef>

/// Memory for the nodes of JSON and XML trees: the nodes of one text lie beside one another.  Internal.
namespace tav {
namespace detail {

/// Memory for an object of at most pointer alignment: from the innermost NodeScope of this thread if
/// there is one, else an allocation of its own.
void * newNode(std::size_t size);

/// The same for a counted object.  It must be made there at once, and referred to before another thread knows
/// it.
void * newCountedNode(std::size_t size);

/// Gives the memory of either back, on any thread and in any order.
void deleteNode(void * node) noexcept;

/// While it lives, the nodes that its thread makes share allocations.  The nodes may outlive it.  An
/// allocation is freed with its last node: a node that is kept keeps at most 32 kB.  Freed ones may be kept
/// for the next large tree, 4 MB of them in all.
class NodeScope {
public:
    NodeScope();
    ~NodeScope();
    NodeScope(NodeScope const &) = delete;
    NodeScope & operator=(NodeScope const &) = delete;

private:
    friend class NodeReturn;
    friend void * newNode(std::size_t size);
    friend void deleteNode(void * node) noexcept;

    struct Block;
    struct Header;

    void * take(std::size_t size);
    void begin(std::size_t atLeast);
    void finish() noexcept;
    /// Takes `nodes` off the block's count.
    static void drop(Block * block, std::size_t nodes) noexcept;

    NodeScope * outer_;
    Block * block_ = nullptr;
    char * at_ = nullptr;
    char * end_ = nullptr;
    std::size_t made_ = 0;
    std::size_t next_ = 1024;
};

/// While it lives, the nodes of one allocation that its thread gives back one after the other count as one
/// return.  Those of one thread end in the reverse order.
class NodeReturn {
public:
    NodeReturn() noexcept;
    ~NodeReturn();
    NodeReturn(NodeReturn const &) = delete;
    NodeReturn & operator=(NodeReturn const &) = delete;

private:
    friend void deleteNode(void * node) noexcept;

    void give(NodeScope::Block * block) noexcept;
    void finish() noexcept;

    NodeReturn * outer_;
    /// Which the nodes belong to that are not yet returned, and how many they are.
    NodeScope::Block * block_ = nullptr;
    std::size_t nodes_ = 0;
};

} // namespace detail
} // namespace tav

#endif
