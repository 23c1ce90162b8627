#include "tav/vinta/vinta_basetypes_containers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

namespace {

std::vector<tav_any> elements(tav_list const & list) {
    std::vector<tav_any> out;
    if (list.head != nullptr) {
        tav_list const * at = list.head;
        do {
            out.push_back(at->data);
            EXPECT_EQ(list.head, at->head);
            EXPECT_EQ(at, at->next->prev);
            at = at->next;
        } while (at != list.head);
    }
    return out;
}

using Words = std::vector<tav_any>;

int deletions;

void countDeletion(void * word) {
    ++deletions;
    *static_cast<tav_any *>(word) = 0;
}

/// A list in the caller's own memory.
class List {
public:
    explicit List(tav_any_deleter deleter = &tav_any_delete_none) {
        tav_list_(&node, 0, nullptr, nullptr, nullptr, deleter);
    }
    ~List() { tav_list_clear(&node); }
    tav_list node;
};

Words walked;

void note(tav_any word) {
    walked.push_back(word);
}

} // namespace

TEST(ContainersListAny, ComparesUnsignedOverTheWholeWord) {
    EXPECT_EQ(tav_any_compare(1, 2), -1);
    EXPECT_EQ(tav_any_compare(2, 2), 0);
    EXPECT_EQ(tav_any_compare(2, 1), 1);
    EXPECT_EQ(tav_any_compare(static_cast<tav_any>(-1), 1), 1);
    EXPECT_EQ(tav_any_compare(tav_any(1) << 32, 0xffffffffu), 1);
    EXPECT_EQ(sizeof(tav_any), 8u);
}

TEST(ContainersListAny, DeleteFreesAndClears) {
    auto word = reinterpret_cast<tav_any>(std::malloc(5));
    tav_any_delete(&word);
    EXPECT_EQ(word, 0u);
    tav_any_delete(&word);
    EXPECT_EQ(word, 0u);
    word = 7;
    tav_any_delete_none(&word);
    EXPECT_EQ(word, 0u);
}

TEST(ContainersListAny, SwapExchanges) {
    tav_any a = 1;
    tav_any b = 2;
    tav_any_swap(&a, &b);
    EXPECT_EQ(a, 2u);
    EXPECT_EQ(b, 1u);
}

TEST(ContainersListPair, IsMadeWithItsWords) {
    tav_pair * p = tav_pair_new();
    EXPECT_EQ(p->first, 0u);
    EXPECT_EQ(p->second, 0u);
    EXPECT_EQ(p, tav_pair_init(p, 0, 0));
    tav_pair_delete(&p);
    EXPECT_EQ(p, nullptr);
    tav_pair_delete(&p);
    p = tav_pair_new_(0, reinterpret_cast<tav_any>(std::malloc(3)));
    tav_pair_delete(&p);
    EXPECT_EQ(p, nullptr);
}

TEST(ContainersListPair, FiniFreesBothWordsAndClearsThem) {
    tav_pair p =
        tav_pair_(reinterpret_cast<tav_any>(std::malloc(1)), reinterpret_cast<tav_any>(std::malloc(1)));
    tav_pair_fini(&p);
    EXPECT_EQ(p.first, 0u);
    EXPECT_EQ(p.second, 0u);
}

TEST(ContainersList, ValueConstructorsSetTheFieldsAndGiveTheirArgument) {
    tav_list a;
    tav_list b;
    tav_list c;
    EXPECT_EQ(&a, tav_list_(&a, 1, &b, &c, &a, &countDeletion));
    EXPECT_EQ(a.data, 1u);
    EXPECT_EQ(&b, a.head);
    EXPECT_EQ(&c, a.prev);
    EXPECT_EQ(&a, a.next);
    EXPECT_EQ(&countDeletion, a.deleter);
    EXPECT_EQ(&b, tav_list_init(&b, 2, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(b.data, 2u);
    EXPECT_EQ(b.deleter, nullptr);
    tav_list * const made = tav_list_new_(3, &a, &b, &c, &countDeletion);
    EXPECT_EQ(made->data, 3u);
    EXPECT_EQ(&a, made->head);
    EXPECT_EQ(&b, made->prev);
    EXPECT_EQ(&c, made->next);
    std::free(made);
}

TEST(ContainersList, NewOneIsEmptyAndDeletesNothing) {
    tav_list * list = tav_list_new();
    EXPECT_TRUE(tav_list_empty(list));
    EXPECT_EQ(tav_list_size(list), 0u);
    EXPECT_EQ(&tav_any_delete_none, list->deleter);
    EXPECT_EQ(list, tav_list_push_back(list, 5));
    EXPECT_EQ(tav_list_size(list), 1u);
    EXPECT_EQ(list->data, 5u);
    tav_list_delete(&list);
    EXPECT_EQ(list, nullptr);
}

TEST(ContainersList, OneElementPointsToItself) {
    tav_list node;
    tav_list_(&node, 0, nullptr, nullptr, nullptr, &countDeletion);
    EXPECT_EQ(&node, tav_list_init_first(&node, 4));
    EXPECT_EQ(&node, node.head);
    EXPECT_EQ(&node, node.prev);
    EXPECT_EQ(&node, node.next);
    EXPECT_EQ(&countDeletion, node.deleter);
    tav_list_reset(&node);
    EXPECT_EQ(node.data, 0u);
    EXPECT_EQ(node.head, nullptr);
    EXPECT_EQ(node.prev, nullptr);
    EXPECT_EQ(node.next, nullptr);
    EXPECT_EQ(&countDeletion, node.deleter);
}

TEST(ContainersList, PushBackAppends) {
    List list;
    tav_list_push_back(&list.node, 1);
    tav_list * const second = tav_list_push_back(&list.node, 2);
    EXPECT_EQ(second->data, 2u);
    tav_list_push_back(second, 3);
    EXPECT_EQ((Words{1, 2, 3}), elements(list.node));
    EXPECT_EQ(tav_list_size(&list.node), 3u);
    EXPECT_EQ(tav_list_size(second), 3u);
    EXPECT_EQ(list.node.deleter, second->deleter);
}

TEST(ContainersList, PushFrontKeepsTheFirstNodesAddress) {
    List list;
    EXPECT_EQ(&list.node, tav_list_push_front(&list.node, 1));
    EXPECT_EQ(&list.node, tav_list_push_front(&list.node, 2));
    EXPECT_EQ((Words{2, 1}), elements(list.node));
    EXPECT_EQ(&list.node, tav_list_push_front(list.node.next, 3));
    EXPECT_EQ((Words{3, 2, 1}), elements(list.node));
    EXPECT_EQ(&list.node, list.node.head);
}

TEST(ContainersList, InsertsBeforeAndAfter) {
    List list;
    EXPECT_EQ(&list.node, tav_list_insert_before(&list.node, 2));
    tav_list * const four = tav_list_insert_after(&list.node, 4);
    EXPECT_EQ(tav_list_insert_before(four, 3)->data, 3u);
    EXPECT_EQ(&list.node, tav_list_insert_before(&list.node, 1));
    EXPECT_EQ((Words{1, 2, 3, 4}), elements(list.node));
    List other;
    EXPECT_EQ(&other.node, tav_list_insert_after(&other.node, 1));
    EXPECT_EQ((Words{1}), elements(other.node));
}

TEST(ContainersList, EndsAreFoundFromAnyNode) {
    List list;
    EXPECT_EQ(&list.node, tav_list_begin(&list.node));
    EXPECT_EQ(&list.node, tav_list_back(&list.node));
    tav_list_push_back(&list.node, 1);
    tav_list * const middle = tav_list_push_back(&list.node, 2);
    tav_list * const last = tav_list_push_back(&list.node, 3);
    for (tav_list * const node : {&list.node, middle, last}) {
        EXPECT_EQ(&list.node, tav_list_begin(node));
        EXPECT_EQ(&list.node, tav_list_front(node));
        EXPECT_EQ(&list.node, tav_list_home(node));
        EXPECT_EQ(last, tav_list_back(node));
    }
    EXPECT_EQ(tav_list_end(), nullptr);
    EXPECT_EQ(middle, tav_list_next(&list.node));
    EXPECT_EQ(&list.node, tav_list_next(last));
}

TEST(ContainersList, EraseCallsTheDeleterUnlinksAndFrees) {
    deletions = 0;
    List list(&countDeletion);
    EXPECT_FALSE(tav_list_erase(&list.node));
    tav_list_push_back(&list.node, 1);
    tav_list * const middle = tav_list_push_back(&list.node, 2);
    tav_list_push_back(&list.node, 3);
    EXPECT_TRUE(tav_list_erase(middle));
    EXPECT_EQ(deletions, 1);
    EXPECT_EQ((Words{1, 3}), elements(list.node));
    EXPECT_TRUE(tav_list_erase(list.node.next));
    EXPECT_TRUE(tav_list_erase(&list.node));
    EXPECT_EQ(deletions, 3);
    EXPECT_TRUE(tav_list_empty(&list.node));
    EXPECT_EQ(list.node.prev, nullptr);
    EXPECT_EQ(list.node.next, nullptr);
    EXPECT_EQ(list.node.data, 0u);
    EXPECT_EQ(&countDeletion, list.node.deleter);
}

TEST(ContainersList, EraseCallsTheDeleterAlsoForANullWord) {
    deletions = 0;
    List list(&countDeletion);
    tav_list_push_back(&list.node, 0);
    tav_list_delete_data(&list.node);
    EXPECT_EQ(deletions, 0);
    tav_list_erase(&list.node);
    EXPECT_EQ(deletions, 1);
    tav_list_push_back(&list.node, 1);
    tav_list_delete_data(&list.node);
    EXPECT_EQ(deletions, 2);
    list.node.deleter = nullptr;
    list.node.data = 1;
    tav_list_delete_data(&list.node);
    EXPECT_TRUE(tav_list_erase(&list.node));
    EXPECT_EQ(deletions, 2);
}

TEST(ContainersList, ErasingTheFirstOfSeveralFreesIt) {
    tav_list * const first = tav_list_new();
    tav_list_push_back(first, 1);
    tav_list * const second = tav_list_push_back(first, 2);
    EXPECT_TRUE(tav_list_erase(first));
    EXPECT_EQ(second, second->next);
    EXPECT_EQ(second, second->prev);
    second->head = second;
    EXPECT_EQ((Words{2}), elements(*second));
    tav_list * list = second;
    tav_list_delete(&list);
}

TEST(ContainersList, RemoveErasesAllEqualWords) {
    List list;
    for (tav_any const word : {7u, 1u, 7u, 7u, 2u}) {
        tav_list_push_back(&list.node, word);
    }
    EXPECT_EQ(tav_list_remove(&list.node, 9), 0u);
    EXPECT_EQ(tav_list_remove(list.node.next, 2), 1u);
    list.node.data = 3;
    EXPECT_EQ(tav_list_remove(&list.node, 7), 2u);
    EXPECT_EQ((Words{3, 1}), elements(list.node));
    EXPECT_EQ(tav_list_remove(&list.node, 1), 1u);
    EXPECT_EQ(tav_list_remove(&list.node, 3), 1u);
    EXPECT_TRUE(tav_list_empty(&list.node));
    EXPECT_EQ(tav_list_remove(&list.node, 0), 0u);
}

TEST(ContainersList, RemoveOfTheFirstFreesItWhileOthersStay) {
    tav_list * const first = tav_list_new();
    tav_list_push_back(first, 7);
    tav_list * second = tav_list_push_back(first, 8);
    tav_list_push_back(first, 7);
    EXPECT_EQ(tav_list_remove(first, 7), 2u);
    EXPECT_EQ(second, second->next);
    second->head = second;
    tav_list_delete(&second);
}

TEST(ContainersList, ClearGivesTheCountAndKeepsTheFirstNode) {
    deletions = 0;
    List list(&countDeletion);
    EXPECT_EQ(tav_list_clear(&list.node), 0u);
    for (tav_any const word : {1u, 2u, 3u}) {
        tav_list_push_back(&list.node, word);
    }
    EXPECT_EQ(tav_list_clear(&list.node), 3u);
    EXPECT_EQ(deletions, 3);
    EXPECT_TRUE(tav_list_empty(&list.node));
    tav_list_push_back(&list.node, 1);
    tav_list_push_back(&list.node, 2);
    EXPECT_EQ(tav_list_fini(list.node.next), 2u);
    EXPECT_TRUE(tav_list_empty(&list.node));
}

TEST(ContainersList, OwnedWordsAreFreed) {
    List list(&tav_any_delete);
    for (int i = 0; i < 5; ++i) {
        tav_list_push_back(&list.node, reinterpret_cast<tav_any>(std::malloc(8)));
    }
    EXPECT_EQ(tav_list_remove(&list.node, list.node.next->data), 1u);
    EXPECT_EQ(tav_list_clear(&list.node), 4u);
}

TEST(ContainersList, ForeachWalksAnOpenChain) {
    tav_list c;
    tav_list b;
    tav_list a;
    tav_list_(&c, 3, nullptr, nullptr, nullptr, nullptr);
    tav_list_(&b, 2, nullptr, nullptr, &c, nullptr);
    tav_list_(&a, 1, nullptr, nullptr, &b, nullptr);
    walked.clear();
    tav_list_foreach(&a, &note);
    EXPECT_EQ((Words{1, 2, 3}), walked);
    walked.clear();
    b.head = &a;
    tav_list_foreach(&b, &note);
    EXPECT_EQ((Words{1, 2, 3}), walked);
}

TEST(ContainersList, SwapExchangesAllButTheDeletersAndMendsNothing) {
    tav_list a;
    tav_list b;
    tav_list_(&a, 1, &a, &a, &a, &countDeletion);
    tav_list_(&b, 2, nullptr, nullptr, nullptr, nullptr);
    tav_list_swap(&a, &b);
    EXPECT_EQ(a.data, 2u);
    EXPECT_EQ(a.head, nullptr);
    EXPECT_EQ(&countDeletion, a.deleter);
    EXPECT_EQ(b.data, 1u);
    EXPECT_EQ(&a, b.head);
    EXPECT_EQ(&a, b.prev);
    EXPECT_EQ(&a, b.next);
    EXPECT_EQ(b.deleter, nullptr);
}

TEST(ContainersList, NullGivesNullOrZero) {
    EXPECT_EQ(tav_list_(nullptr, 1, nullptr, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(tav_list_init(nullptr, 1, nullptr, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(tav_list_init_first(nullptr, 1), nullptr);
    tav_list_reset(nullptr);
    EXPECT_TRUE(tav_list_empty(nullptr));
    EXPECT_EQ(tav_list_begin(nullptr), nullptr);
    EXPECT_EQ(tav_list_front(nullptr), nullptr);
    EXPECT_EQ(tav_list_home(nullptr), nullptr);
    EXPECT_EQ(tav_list_back(nullptr), nullptr);
    EXPECT_EQ(tav_list_next(nullptr), nullptr);
    EXPECT_EQ(tav_list_size(nullptr), 0u);
    EXPECT_EQ(tav_list_push_back(nullptr, 1), nullptr);
    EXPECT_EQ(tav_list_push_front(nullptr, 1), nullptr);
    EXPECT_EQ(tav_list_insert_after(nullptr, 1), nullptr);
    EXPECT_EQ(tav_list_insert_before(nullptr, 1), nullptr);
    EXPECT_FALSE(tav_list_erase(nullptr));
    EXPECT_EQ(tav_list_remove(nullptr, 1), 0u);
    EXPECT_EQ(tav_list_clear(nullptr), 0u);
    EXPECT_EQ(tav_list_fini(nullptr), 0u);
    tav_list * none = nullptr;
    tav_list_delete(&none);
    tav_list_delete(nullptr);
    tav_list_delete_data(nullptr);
    tav_list_foreach(nullptr, &note);
    tav_list_swap(nullptr, nullptr);
    tav_any_delete(nullptr);
    tav_any_swap(nullptr, nullptr);
    tav_pair_fini(nullptr);
    tav_pair_delete(nullptr);
    EXPECT_EQ(tav_pair_init(nullptr, 1, 2), nullptr);
}

TEST(ContainersListValues, AreMadeFromTheirArguments) {
    char bytes[4] = "abc";
    wchar_t wide[2] = L"w";
    tav_array array;
    EXPECT_EQ(&array, tav_array_(&array, bytes, 3));
    EXPECT_EQ(bytes, array.data);
    EXPECT_EQ(array.size, 3u);
    EXPECT_EQ(array.capacity, 3u);
    EXPECT_EQ(tav_array_(nullptr, bytes, 3), nullptr);
    EXPECT_EQ(bytes, tav_bytes_(bytes, 3).data);
    EXPECT_EQ(tav_bytes_(bytes, 3).size, 3u);
    EXPECT_EQ(tav_bytes_(bytes, 0).data, nullptr);
    EXPECT_EQ(tav_bytes_(nullptr, 3).size, 0u);
    EXPECT_EQ(bytes, tav_slice_(bytes, 0).data);
    EXPECT_EQ(tav_slice_(nullptr, 3).size, 3u);
    EXPECT_EQ(tav_optional_(9, 1).value, 9u);
    EXPECT_EQ(tav_optional_(9, 1).present, 1);
    EXPECT_EQ(tav_pair_(8, 9).first, 8u);
    EXPECT_EQ(tav_pair_(8, 9).second, 9u);
    EXPECT_EQ(tav_enum_(-5), -5);
    EXPECT_EQ(bytes, tav_string_(bytes));
    EXPECT_EQ(bytes, tav_u8string_(bytes));
    EXPECT_EQ(wide, tav_wstring_(wide));
}

TEST(ContainersListValues, DatetimeTakesTheLowHalvesOfItsWords) {
    EXPECT_EQ(tav_datetime_(1, 2), 0x0000000200000001ll);
    EXPECT_EQ(tav_datetime_(tav_any(0xff) << 32 | 1, 2), 0x0000000200000001ll);
    EXPECT_EQ(tav_datetime_(0xffffffffu, 0xffffffffu), -1ll);
}
