#ifndef TAV_FOUNDATION_TREE_END_H
#define TAV_FOUNDATION_TREE_END_H

#include <new>
#include <utility>
#include <vector>

/// The end of trees of any depth.  Internal.
namespace tav {
namespace detail {

struct Nothing {};

/// The destruction of trees of one kind on this thread.  Nodes are destroyed inside one another down to
/// `Depth`; what lies below is put aside as Parts and destroyed by the outermost one, so that the stack stays
/// bounded.  An `Around` lives as long as that one works.
template <class Part, unsigned Depth, class Around = Nothing>
class TreeEnd {
public:
    /// For a node's destructor: runs `clear()`, which destroys what is in the node, or `move(below)`, which
    /// appends that to `below`.
    template <class Clear, class Move>
    static void destroy(Clear clear, Move move) {
        State & state = state_;
        if (state.depth >= Depth) {
            try {
                move(*state.below);
            } catch (std::bad_alloc const &) {
                // No memory to put it aside: what is still in the node ends here.
                clear();
            }
            return;
        }
        if (state.depth > 0) {
            ++state.depth;
            clear();
            --state.depth;
            return;
        }
        [[maybe_unused]] Around const around;
        std::vector<Part> below;
        state.below = &below;
        state.depth = 1;
        clear();
        while (!below.empty()) {
            [[maybe_unused]] Part const part = std::move(below.back());
            below.pop_back();
        }
        state.depth = 0;
        state.below = nullptr;
    }

private:
    struct State {
        unsigned depth;
        std::vector<Part> * below;
    };

    [[gnu::tls_model("initial-exec")]] inline static thread_local State state_{0, nullptr};
};

} // namespace detail
} // namespace tav

#endif
