#include "tav/vinta/vinta_basetypes_containers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <random>
#include <vector>

namespace {

/// A heap word that holds a number: what the operations that free words need.
tav_any boxed(int n) {
    auto * const p = static_cast<int *>(std::malloc(sizeof(int)));
    *p = n;
    return reinterpret_cast<tav_any>(p);
}

int unboxed(tav_any word) {
    return *reinterpret_cast<int *>(word);
}

int compareBoxed(tav_any a, tav_any b) {
    return unboxed(a) < unboxed(b) ? -1 : unboxed(a) > unboxed(b) ? 1 : 0;
}

/// Keys of a tree in their order, by the links downward; asserts on the way that they are in order.
std::vector<int> keys(tav_map const * node) {
    std::vector<int> out;
    if (!tav_map_empty(node)) {
        out = keys(node->left);
        out.push_back(unboxed(node->pair->first));
        for (int const key : keys(node->right)) {
            out.push_back(key);
        }
    }
    for (std::size_t i = 1; i < out.size(); ++i) {
        EXPECT_LT(out[i - 1], out[i]);
    }
    return out;
}

using Keys = std::vector<int>;

/// A map that owns its keys and values: each value is its key times ten.
class Map {
public:
    explicit Map(Keys const & order = {}) {
        root = tav_map_new();
        root->compare = &compareBoxed;
        for (int const key : order) {
            insert(key);
        }
    }
    ~Map() { tav_map_delete(&root); }

    void insert(int key) { ASSERT_NE(tav_map_insert(root, boxed(key), boxed(key * 10)), nullptr); }
    tav_map * find(int key) const {
        int k = key;
        return tav_map_find(root, reinterpret_cast<tav_any>(&k));
    }
    /// The value's number; -1 if the key was not there.
    int remove(int key) {
        int k = key;
        tav_any const value = tav_map_remove(root, reinterpret_cast<tav_any>(&k));
        if (value == 0) {
            return -1;
        }
        int const number = unboxed(value);
        std::free(reinterpret_cast<void *>(value));
        return number;
    }

    tav_map * root;
};

/// A map of plain numbers, in the test's own memory: nothing that is freed is owned.
class Plain {
public:
    Plain() { tav_map_(&root, nullptr, nullptr, nullptr, nullptr, &tav_any_compare); }
    ~Plain() {
        drop(root.left);
        drop(root.right);
        std::free(root.pair);
    }
    tav_map root;

private:
    static void drop(tav_map * node) {
        if (node != nullptr) {
            drop(node->left);
            drop(node->right);
            std::free(node->pair);
            std::free(node);
        }
    }
};

std::vector<tav_any> walked;

void note(tav_pair * pair) {
    walked.push_back(pair->first);
}

} // namespace

TEST(ContainersMap, ValueConstructorsSetTheFields) {
    tav_map a;
    tav_map b;
    tav_pair pair = tav_pair_(1, 2);
    EXPECT_EQ(&a, tav_map_(&a, &pair, &b, &a, &b, &tav_any_compare));
    EXPECT_EQ(&pair, a.pair);
    EXPECT_EQ(&b, a.parent);
    EXPECT_EQ(&a, a.left);
    EXPECT_EQ(&b, a.right);
    EXPECT_EQ(&tav_any_compare, a.compare);
    EXPECT_EQ(&b, tav_map_init(&b, nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(b.pair, nullptr);
    tav_map * const made = tav_map_new_(&pair, &a, &b, &a, nullptr);
    EXPECT_EQ(&pair, made->pair);
    EXPECT_EQ(&a, made->parent);
    EXPECT_EQ(&b, made->left);
    EXPECT_EQ(&a, made->right);
    std::free(made);
    tav_map * empty = tav_map_new();
    EXPECT_TRUE(tav_map_empty(empty));
    EXPECT_EQ(&tav_any_compare, empty->compare);
    tav_map_delete(&empty);
    EXPECT_EQ(empty, nullptr);
}

TEST(ContainersMap, FirstPairGoesIntoTheNodeItself) {
    Plain map;
    EXPECT_EQ(&map.root, tav_map_insert(&map.root, 5, 50));
    EXPECT_EQ(map.root.pair->first, 5u);
    EXPECT_EQ(map.root.pair->second, 50u);
}

TEST(ContainersMap, InsertOfAKeyThatIsThereChangesNothing) {
    Plain map;
    tav_map_insert(&map.root, 5, 50);
    EXPECT_EQ(tav_map_insert(&map.root, 5, 51), nullptr);
    EXPECT_EQ(map.root.pair->second, 50u);
    EXPECT_EQ(tav_map_size(&map.root), 1u);
}

TEST(ContainersMap, UpdateGivesTheFormerValue) {
    Plain map;
    EXPECT_EQ(tav_map_update(&map.root, 5, 50), 0u);
    EXPECT_EQ(tav_map_update(&map.root, 5, 51), 50u);
    EXPECT_EQ(map.root.pair->second, 51u);
    EXPECT_EQ(tav_map_update(&map.root, 6, 60), 0u);
    EXPECT_EQ(tav_map_size(&map.root), 2u);
}

TEST(ContainersMap, KeysInOrderMakeAChain) {
    Plain map;
    for (tav_any const key : {1u, 2u, 3u}) {
        tav_map_insert(&map.root, key, key);
    }
    EXPECT_EQ(tav_map_size(&map.root), 3u);
    tav_map * const last = tav_map_rightest(&map.root);
    EXPECT_EQ(last->pair->first, 3u);
    EXPECT_EQ(last, map.root.right->right);
    EXPECT_EQ(tav_map_size(map.root.right), 2u);
}

TEST(ContainersMap, ParentIsTheNodeThatTheCallWasGiven) {
    Plain map;
    tav_map_insert(&map.root, 1, 0);
    tav_map * const two = tav_map_insert(&map.root, 2, 0);
    tav_map * const three = tav_map_insert(&map.root, 3, 0);
    tav_map * const four = tav_map_insert(two, 4, 0);
    EXPECT_EQ(&map.root, two->parent);
    EXPECT_EQ(&map.root, three->parent);
    EXPECT_EQ(three, two->right);
    EXPECT_EQ(two, four->parent);
    EXPECT_EQ(four, three->right);
    EXPECT_EQ(&map.root, tav_map_root(four));
    EXPECT_EQ(&tav_any_compare, four->compare);
}

TEST(ContainersMap, FindsAndGivesTheNearest) {
    Plain map;
    EXPECT_EQ(tav_map_find(&map.root, 1), nullptr);
    EXPECT_EQ(tav_map_nearest(&map.root, 1), nullptr);
    for (tav_any const key : {50u, 30u, 70u, 60u}) {
        tav_map_insert(&map.root, key, key);
    }
    EXPECT_EQ(tav_map_find(&map.root, 60)->pair->first, 60u);
    EXPECT_EQ(tav_map_find(&map.root, 61), nullptr);
    EXPECT_EQ(tav_map_find(map.root.right, 30), nullptr);
    EXPECT_EQ(tav_map_nearest(&map.root, 61)->pair->first, 60u);
    EXPECT_EQ(tav_map_nearest(&map.root, 60)->pair->first, 60u);
    EXPECT_EQ(tav_map_nearest(&map.root, 1)->pair->first, 30u);
    EXPECT_EQ(tav_map_nearest(&map.root, 99)->pair->first, 70u);
}

TEST(ContainersMap, ComparesTheKeyWithTheNodes) {
    Plain map;
    EXPECT_EQ(tav_map_compare(&map.root, 5), -1);
    tav_map_insert(&map.root, 5, 0);
    EXPECT_EQ(tav_map_compare(&map.root, 5), 0);
    EXPECT_EQ(tav_map_compare(&map.root, 4), -1);
    EXPECT_EQ(tav_map_compare(&map.root, 6), 1);
    map.root.compare = nullptr;
    EXPECT_EQ(tav_map_compare(&map.root, 6), -1);
}

TEST(ContainersMap, WithoutAFunctionAllGoesLeft) {
    Plain map;
    map.root.compare = nullptr;
    for (tav_any const key : {1u, 2u, 2u}) {
        EXPECT_NE(tav_map_insert(&map.root, key, 0), nullptr);
    }
    EXPECT_EQ(tav_map_size(&map.root), 3u);
    EXPECT_EQ(map.root.left->left->pair->first, 2u);
    EXPECT_EQ(tav_map_find(&map.root, 1), nullptr);
}

TEST(ContainersMap, LinksAreTold) {
    Plain map;
    for (tav_any const key : {2u, 1u, 3u}) {
        tav_map_insert(&map.root, key, 0);
    }
    tav_map * const left = map.root.left;
    tav_map * const right = map.root.right;
    EXPECT_TRUE(tav_map_is_root(&map.root));
    EXPECT_FALSE(tav_map_is_root(left));
    EXPECT_TRUE(tav_map_is_left(left));
    EXPECT_FALSE(tav_map_is_left(right));
    EXPECT_TRUE(tav_map_is_right(right));
    EXPECT_FALSE(tav_map_is_right(left));
    EXPECT_FALSE(tav_map_is_left(&map.root));
    EXPECT_TRUE(tav_map_is_leaf(left));
    EXPECT_TRUE(tav_map_single(left));
    EXPECT_FALSE(tav_map_single(&map.root));
    EXPECT_TRUE(tav_map_is_branch(&map.root));
    EXPECT_FALSE(tav_map_is_branch(left));
    EXPECT_EQ(left, tav_map_leftest(&map.root));
    EXPECT_EQ(right, tav_map_rightest(&map.root));
    EXPECT_EQ(left, tav_map_begin(right));
    EXPECT_EQ(tav_map_end(), nullptr);
}

TEST(ContainersMap, NextIsTheSuccessor) {
    Plain map;
    for (tav_any const key : {2u, 1u, 3u}) {
        tav_map_insert(&map.root, key, 0);
    }
    EXPECT_EQ(&map.root, tav_map_next(map.root.left));
    EXPECT_EQ(map.root.right, tav_map_next(&map.root));
    EXPECT_EQ(tav_map_next(map.root.right), nullptr);
}

TEST(ContainersMap, ForeachGoesInKeyOrderWhereParentsAreTrue) {
    Plain map;
    tav_map_insert(&map.root, 50, 0);
    tav_map * const left = tav_map_insert(&map.root, 30, 0);
    tav_map * const right = tav_map_insert(&map.root, 70, 0);
    tav_map_insert(left, 20, 0);
    tav_map_insert(left, 40, 0);
    tav_map_insert(right, 60, 0);
    tav_map * const last = tav_map_insert(right, 80, 0);
    walked.clear();
    tav_map_foreach(last, &note);
    EXPECT_EQ((std::vector<tav_any>{20, 30, 40, 50, 60, 70, 80}), walked);
}

TEST(ContainersMap, ForeachSkipsAncestorsThatParentsSkip) {
    Plain map;
    for (tav_any const key : {5u, 3u, 1u, 2u}) {
        tav_map_insert(&map.root, key, 0);
    }
    walked.clear();
    tav_map_foreach(&map.root, &note);
    EXPECT_EQ((std::vector<tav_any>{1, 2, 5}), walked);
}

TEST(ContainersMap, ForeachEndsWhereAParentLiesBehind) {
    Plain map;
    for (tav_any const key : {1u, 2u, 3u}) {
        tav_map_insert(&map.root, key, 0);
    }
    walked.clear();
    tav_map_foreach(&map.root, &note);
    EXPECT_EQ((std::vector<tav_any>{1, 2, 3}), walked);
    Plain empty;
    tav_map_foreach(&empty.root, &note);
    EXPECT_EQ(walked.size(), 3u);
}

TEST(ContainersMap, RemoveGivesTheValueAndTheKeyIsGone) {
    Map map({50, 30, 70});
    EXPECT_EQ(map.remove(99), -1);
    EXPECT_EQ(map.remove(30), 300);
    EXPECT_EQ(map.find(30), nullptr);
    EXPECT_EQ((Keys{50, 70}), keys(map.root));
    EXPECT_EQ(map.root->left, nullptr);
}

TEST(ContainersMap, LoneRootIsEmptiedAndStays) {
    Map map({5});
    tav_map * const root = map.root;
    EXPECT_EQ(map.remove(5), 50);
    EXPECT_EQ(root, map.root);
    EXPECT_TRUE(tav_map_empty(map.root));
    EXPECT_EQ(tav_map_size(map.root), 0u);
    map.insert(6);
    EXPECT_EQ(map.remove(6), 60);
}

TEST(ContainersMap, RemoveFindsItsKeyFromAnyNode) {
    Map map({50, 30, 70});
    int key = 70;
    tav_any const value = tav_map_remove(map.root->left, reinterpret_cast<tav_any>(&key));
    ASSERT_NE(value, 0u);
    std::free(reinterpret_cast<void *>(value));
    EXPECT_EQ((Keys{30, 50}), keys(map.root));
}

TEST(ContainersMap, RemoveFindsWhatANodeHangsBelowWhereItsParentIsAStranger) {
    Map map({50, 30});
    tav_map * const ten = tav_map_insert(map.root->left, boxed(10), boxed(100));
    tav_map * const seventy = tav_map_insert(ten, boxed(70), boxed(700));
    ASSERT_EQ(ten, seventy->parent);
    ASSERT_EQ(map.root->left, ten->parent);
    ASSERT_EQ(seventy, map.root->right);
    EXPECT_EQ(map.remove(70), 700);
    ASSERT_EQ(map.root->right, nullptr);
    EXPECT_EQ((Keys{10, 30, 50}), keys(map.root));
}

TEST(ContainersMap, RemovingARootWithChildrenLeavesOneNodeAllocatedAndNoMore) {
    Map map({50, 30, 70});
    tav_map * const root = map.root;
    tav_map * const moved = root->right;
    tav_map * const left = root->left;
    EXPECT_EQ(map.remove(50), 500);
    EXPECT_EQ(root, map.root);
    EXPECT_EQ((Keys{30, 70}), keys(root));
    EXPECT_EQ(unboxed(root->pair->first), 70);
    EXPECT_EQ(left, root->left);
    EXPECT_EQ(root, left->parent);
    EXPECT_EQ(root->parent, nullptr);
    std::free(moved);
}

TEST(ContainersMap, RemovingARootWithOneChildMovesTheChildIn) {
    for (int const other : {30, 70}) {
        Map map({50, other, other + 5, other - 5});
        tav_map * const moved = other < 50 ? map.root->left : map.root->right;
        EXPECT_EQ(map.remove(50), 500);
        EXPECT_EQ((Keys{other - 5, other, other + 5}), keys(map.root));
        EXPECT_EQ(map.root, map.root->left->parent);
        EXPECT_EQ(map.root, map.root->right->parent);
        std::free(moved);
    }
}

TEST(ContainersMap, OneChildTakesTheNodesPlace) {
    Map map({50, 30, 20, 10, 70, 80, 90});
    EXPECT_EQ(map.remove(30), 300);
    EXPECT_EQ(map.remove(80), 800);
    EXPECT_EQ((Keys{10, 20, 50, 70, 90}), keys(map.root));
    EXPECT_EQ(unboxed(map.root->left->pair->first), 20);
    EXPECT_EQ(map.root, map.root->left->parent);
    EXPECT_EQ(map.root->right, map.root->right->right->parent);
}

TEST(ContainersMap, RightChildWithTwoChildrenIsReplacedByTheRightestOfItsLeft) {
    Map map({50, 70, 60, 80, 55, 65, 62});
    EXPECT_EQ(map.remove(70), 700);
    tav_map const * const in_place = map.root->right;
    EXPECT_EQ(unboxed(in_place->pair->first), 65);
    EXPECT_EQ(unboxed(in_place->right->pair->first), 80);
    EXPECT_EQ(unboxed(in_place->left->pair->first), 62);
    EXPECT_EQ(unboxed(in_place->left->left->pair->first), 60);
    EXPECT_EQ((Keys{50, 55, 60, 62, 65, 80}), keys(map.root));
    EXPECT_EQ(map.root, in_place->parent);
    EXPECT_EQ(in_place, in_place->right->parent);
    EXPECT_EQ(in_place->left, in_place->left->left->parent);
}

TEST(ContainersMap, LeftChildWithTwoChildrenIsReplacedByTheLeftestOfItsRight) {
    Map map({50, 30, 20, 40, 35, 45, 37});
    EXPECT_EQ(map.remove(30), 300);
    tav_map const * const in_place = map.root->left;
    EXPECT_EQ(unboxed(in_place->pair->first), 35);
    EXPECT_EQ(unboxed(in_place->left->pair->first), 20);
    EXPECT_EQ(unboxed(in_place->right->pair->first), 37);
    EXPECT_EQ((Keys{20, 35, 37, 40, 45, 50}), keys(map.root));
}

TEST(ContainersMap, ReplacementThatIsTheChildKeepsItsOwnSide) {
    Map map({50, 70, 60, 55, 80});
    EXPECT_EQ(map.remove(70), 700);
    EXPECT_EQ(unboxed(map.root->right->pair->first), 60);
    EXPECT_EQ((Keys{50, 55, 60, 80}), keys(map.root));
}

TEST(ContainersMap, GrandchildOfTheReplacementIsLost) {
    Map map({50, 70, 60, 80, 65, 63, 62});
    tav_map * lost = map.find(62);
    EXPECT_EQ(map.remove(70), 700);
    EXPECT_EQ((Keys{50, 60, 63, 65, 80}), keys(map.root));
    tav_map_delete(&lost);
}

TEST(ContainersMap, SplitGivesTheNodeWithItsContent) {
    Map map({50, 30, 70});
    tav_map * taken = tav_map_split(map.root->left);
    ASSERT_NE(taken, nullptr);
    EXPECT_EQ(unboxed(taken->pair->first), 30);
    EXPECT_EQ(unboxed(taken->pair->second), 300);
    EXPECT_EQ(taken->parent, nullptr);
    EXPECT_EQ((Keys{50, 70}), keys(map.root));
    tav_map_delete(&taken);
    Map lone({5});
    EXPECT_EQ(lone.root, tav_map_split(lone.root));
    EXPECT_EQ(unboxed(lone.root->pair->second), 50);
    Map empty;
    EXPECT_EQ(tav_map_split(empty.root), nullptr);
}

TEST(ContainersMap, SplitOfARootWithChildrenGivesNull) {
    Map map({50, 70});
    tav_map * const moved = map.root->right;
    EXPECT_EQ(tav_map_split(map.root), nullptr);
    EXPECT_EQ((Keys{70}), keys(map.root));
    std::free(moved);
}

TEST(ContainersMap, EraseFreesTheValueTooAndClearsOnlyAFreedNodesPointer) {
    Map map({50, 30, 70});
    tav_map * node = map.root->left;
    tav_map_erase(&node);
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ((Keys{50, 70}), keys(map.root));
    tav_map * const moved = map.root->right;
    tav_map * root = map.root;
    tav_map_erase(&root);
    EXPECT_EQ(map.root, root);
    EXPECT_EQ((Keys{70}), keys(map.root));
    std::free(moved);
    tav_map_erase(&root);
    EXPECT_EQ(map.root, root);
    EXPECT_TRUE(tav_map_empty(map.root));
    tav_map_erase(&root);
    EXPECT_TRUE(tav_map_empty(map.root));
}

TEST(ContainersMap, EraseThroughTheTreesOwnLinkKeepsTheReplacement) {
    Map map({50, 30, 20});
    tav_map_erase(&map.root->left);
    EXPECT_EQ((Keys{20, 50}), keys(map.root));
}

TEST(ContainersMap, FiniFreesAllBelowAndItsOwnPair) {
    Map map({50, 30, 70, 20, 40, 60, 80});
    tav_map_fini(map.root);
    EXPECT_TRUE(tav_map_empty(map.root));
    EXPECT_TRUE(tav_map_is_leaf(map.root));
    map.insert(1);
    EXPECT_EQ((Keys{1}), keys(map.root));
}

TEST(ContainersMap, MillionKeysInOrderAreCountedAndFreedInBoundedStack) {
    tav_map * root = tav_map_new();
    tav_map * at = tav_map_insert(root, boxed(0), 0);
    for (int i = 1; i < 1000000; ++i) {
        tav_map * const next = tav_map_new_(tav_pair_new_(boxed(i), 0), at, nullptr, nullptr, root->compare);
        (i % 2 == 0 ? at->left : at->right) = next;
        at = next;
    }
    EXPECT_EQ(tav_map_size(root), 1000000u);
    EXPECT_EQ(tav_map_size(root), 1000000u);
    tav_map_delete(&root);
    EXPECT_EQ(root, nullptr);
}

TEST(ContainersMap, NullGivesNullOrZero) {
    EXPECT_EQ(tav_map_(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), nullptr);
    EXPECT_TRUE(tav_map_empty(nullptr));
    EXPECT_EQ(tav_map_root(nullptr), nullptr);
    EXPECT_FALSE(tav_map_is_root(nullptr));
    EXPECT_FALSE(tav_map_is_leaf(nullptr));
    EXPECT_FALSE(tav_map_is_branch(nullptr));
    EXPECT_FALSE(tav_map_is_left(nullptr));
    EXPECT_FALSE(tav_map_is_right(nullptr));
    EXPECT_FALSE(tav_map_single(nullptr));
    EXPECT_EQ(tav_map_leftest(nullptr), nullptr);
    EXPECT_EQ(tav_map_rightest(nullptr), nullptr);
    EXPECT_EQ(tav_map_begin(nullptr), nullptr);
    EXPECT_EQ(tav_map_next(nullptr), nullptr);
    tav_map_foreach(nullptr, &note);
    EXPECT_EQ(tav_map_compare(nullptr, 1), -1);
    EXPECT_EQ(tav_map_find(nullptr, 1), nullptr);
    EXPECT_EQ(tav_map_nearest(nullptr, 1), nullptr);
    EXPECT_EQ(tav_map_insert(nullptr, 1, 2), nullptr);
    EXPECT_EQ(tav_map_update(nullptr, 1, 2), 0u);
    EXPECT_EQ(tav_map_remove(nullptr, 1), 0u);
    tav_map_erase(nullptr);
    EXPECT_EQ(tav_map_size(nullptr), 0u);
    tav_map_fini(nullptr);
    tav_map_delete(nullptr);
    EXPECT_EQ(tav_map_split(nullptr), nullptr);
    EXPECT_EQ(tav_map_replace_root(nullptr, nullptr), nullptr);
}
