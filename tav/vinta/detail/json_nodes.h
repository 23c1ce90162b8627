#ifndef TAV_VINTA_DETAIL_JSON_NODES_H
#define TAV_VINTA_DETAIL_JSON_NODES_H

#include <cstddef>

/// Memory for the nodes of JSON trees: the nodes of one text lie beside one another.  Internal.
namespace tav {
namespace detail {

/// Memory for an object of at most pointer alignment: from the innermost JsonNodeScope of this thread if
/// there is one, else an allocation of its own.
void * newJsonNode(std::size_t size);

/// Gives a node back, on any thread and in any order.
void deleteJsonNode(void * node) noexcept;

/// While it lives, the nodes that its thread makes share allocations.  The nodes may outlive it.  An
/// allocation is freed with its last node: a node that is kept keeps at most 32 kB.
class JsonNodeScope {
public:
    JsonNodeScope();
    ~JsonNodeScope();
    JsonNodeScope(JsonNodeScope const &) = delete;
    JsonNodeScope & operator=(JsonNodeScope const &) = delete;

private:
    friend void * newJsonNode(std::size_t size);
    friend void deleteJsonNode(void * node) noexcept;

    struct Block;
    struct Header;

    void * take(std::size_t size);
    void begin(std::size_t atLeast);
    void finish() noexcept;
    /// Takes `nodes` off the block's count.
    static void drop(Block * block, std::size_t nodes) noexcept;

    JsonNodeScope * outer_;
    Block * block_ = nullptr;
    char * at_ = nullptr;
    char * end_ = nullptr;
    std::size_t made_ = 0;
    std::size_t next_ = 1024;
};

} // namespace detail
} // namespace tav

#endif
