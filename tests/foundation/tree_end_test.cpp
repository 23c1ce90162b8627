#include "foundation/tree_end.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace {

/// A node of a chain; counts how deep its destructors stand in one another.
template <unsigned Depth>
struct Link {
    using Pointer = std::unique_ptr<Link>;
    using End = tav::detail::TreeEnd<Pointer, Depth>;

    static unsigned nesting;
    static unsigned deepest;
    static unsigned ended;

    Pointer below;

    ~Link() {
        ++ended;
        deepest = std::max(deepest, ++nesting);
        if (below) {
            End::destroy([this] { below.reset(); },
                         [this](std::vector<Pointer> & aside) { aside.push_back(std::move(below)); });
        }
        --nesting;
    }

    static Pointer chain(unsigned length) {
        Pointer top;
        for (unsigned i = 0; i < length; ++i) {
            Pointer link(new Link);
            link->below = std::move(top);
            top = std::move(link);
        }
        nesting = deepest = ended = 0;
        return top;
    }
};

template <unsigned Depth>
unsigned Link<Depth>::nesting = 0;
template <unsigned Depth>
unsigned Link<Depth>::deepest = 0;
template <unsigned Depth>
unsigned Link<Depth>::ended = 0;

} // namespace

TEST(TreeEnd, ChainOfAMillionEndsInBoundedDepth) {
    Link<1>::chain(1000000).reset();
    EXPECT_EQ(Link<1>::ended, 1000000u);
    EXPECT_LE(Link<1>::deepest, 2u);
}

TEST(TreeEnd, NodesEndInsideOneAnotherDownToTheDepth) {
    Link<32>::chain(10).reset();
    EXPECT_EQ(Link<32>::deepest, 10u);
    Link<32>::chain(100000).reset();
    EXPECT_EQ(Link<32>::ended, 100000u);
    EXPECT_LE(Link<32>::deepest, 33u);
}

TEST(TreeEnd, BeginsAnewForTheNextTree) {
    for (int i = 0; i < 3; ++i) {
        Link<4>::chain(100).reset();
        EXPECT_EQ(Link<4>::ended, 100u);
        EXPECT_LE(Link<4>::deepest, 5u);
    }
}

TEST(TreeEnd, AroundLivesAsLongAsTheOutermostNodeEnds) {
    struct Counted {
        Counted() { ++made(); }
        ~Counted() { --made(); }
        static int & made() {
            static int count = 0;
            return count;
        }
    };
    using End = tav::detail::TreeEnd<int, 2, Counted>;
    std::vector<int> seen;
    End::destroy(
        [&] {
            seen.push_back(Counted::made());
            End::destroy([&] { seen.push_back(Counted::made()); }, [](std::vector<int> &) {});
        },
        [](std::vector<int> &) {});
    EXPECT_EQ(seen, (std::vector<int>{1, 1}));
    EXPECT_EQ(Counted::made(), 0);
}
