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

TEST(TavAny, ComparesUnsignedOverTheWholeWord) {
    EXPECT_EQ(-1, tav_any_compare(1, 2));
    EXPECT_EQ(0, tav_any_compare(2, 2));
    EXPECT_EQ(1, tav_any_compare(2, 1));
    EXPECT_EQ(1, tav_any_compare(static_cast<tav_any>(-1), 1));
    EXPECT_EQ(1, tav_any_compare(tav_any(1) << 32, 0xffffffffu));
    EXPECT_EQ(8u, sizeof(tav_any));
}

TEST(TavAny, DeleteFreesAndClears) {
    auto word = reinterpret_cast<tav_any>(std::malloc(5));
    tav_any_delete(&word);
    EXPECT_EQ(0u, word);
    tav_any_delete(&word);
    EXPECT_EQ(0u, word);
    word = 7;
    tav_any_delete_none(&word);
    EXPECT_EQ(0u, word);
}

TEST(TavAny, SwapExchanges) {
    tav_any a = 1;
    tav_any b = 2;
    tav_any_swap(&a, &b);
    EXPECT_EQ(2u, a);
    EXPECT_EQ(1u, b);
}

TEST(TavPair, IsMadeWithItsWords) {
    tav_pair * p = tav_pair_new();
    EXPECT_EQ(0u, p->first);
    EXPECT_EQ(0u, p->second);
    EXPECT_EQ(p, tav_pair_init(p, 0, 0));
    tav_pair_delete(&p);
    EXPECT_EQ(nullptr, p);
    tav_pair_delete(&p);
    p = tav_pair_new_(0, reinterpret_cast<tav_any>(std::malloc(3)));
    tav_pair_delete(&p);
    EXPECT_EQ(nullptr, p);
}

TEST(TavPair, FiniFreesBothWordsAndClearsThem) {
    tav_pair p =
        tav_pair_(reinterpret_cast<tav_any>(std::malloc(1)), reinterpret_cast<tav_any>(std::malloc(1)));
    tav_pair_fini(&p);
    EXPECT_EQ(0u, p.first);
    EXPECT_EQ(0u, p.second);
}

TEST(TavList, ValueConstructorsSetTheFieldsAndGiveTheirArgument) {
    tav_list a;
    tav_list b;
    tav_list c;
    EXPECT_EQ(&a, tav_list_(&a, 1, &b, &c, &a, &countDeletion));
    EXPECT_EQ(1u, a.data);
    EXPECT_EQ(&b, a.head);
    EXPECT_EQ(&c, a.prev);
    EXPECT_EQ(&a, a.next);
    EXPECT_EQ(&countDeletion, a.deleter);
    EXPECT_EQ(&b, tav_list_init(&b, 2, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(2u, b.data);
    EXPECT_EQ(nullptr, b.deleter);
    tav_list * const made = tav_list_new_(3, &a, &b, &c, &countDeletion);
    EXPECT_EQ(3u, made->data);
    EXPECT_EQ(&a, made->head);
    EXPECT_EQ(&b, made->prev);
    EXPECT_EQ(&c, made->next);
    std::free(made);
}

TEST(TavList, NewOneIsEmptyAndDeletesNothing) {
    tav_list * list = tav_list_new();
    EXPECT_TRUE(tav_list_empty(list));
    EXPECT_EQ(0u, tav_list_size(list));
    EXPECT_EQ(&tav_any_delete_none, list->deleter);
    EXPECT_EQ(list, tav_list_push_back(list, 5));
    EXPECT_EQ(1u, tav_list_size(list));
    EXPECT_EQ(5u, list->data);
    tav_list_delete(&list);
    EXPECT_EQ(nullptr, list);
}

TEST(TavList, OneElementPointsToItself) {
    tav_list node;
    tav_list_(&node, 0, nullptr, nullptr, nullptr, &countDeletion);
    EXPECT_EQ(&node, tav_list_init_first(&node, 4));
    EXPECT_EQ(&node, node.head);
    EXPECT_EQ(&node, node.prev);
    EXPECT_EQ(&node, node.next);
    EXPECT_EQ(&countDeletion, node.deleter);
    tav_list_reset(&node);
    EXPECT_EQ(0u, node.data);
    EXPECT_EQ(nullptr, node.head);
    EXPECT_EQ(nullptr, node.prev);
    EXPECT_EQ(nullptr, node.next);
    EXPECT_EQ(&countDeletion, node.deleter);
}

TEST(TavList, PushBackAppends) {
    List list;
    tav_list_push_back(&list.node, 1);
    tav_list * const second = tav_list_push_back(&list.node, 2);
    EXPECT_EQ(2u, second->data);
    tav_list_push_back(second, 3);
    EXPECT_EQ((Words{1, 2, 3}), elements(list.node));
    EXPECT_EQ(3u, tav_list_size(&list.node));
    EXPECT_EQ(3u, tav_list_size(second));
    EXPECT_EQ(list.node.deleter, second->deleter);
}

TEST(TavList, PushFrontKeepsTheFirstNodesAddress) {
    List list;
    EXPECT_EQ(&list.node, tav_list_push_front(&list.node, 1));
    EXPECT_EQ(&list.node, tav_list_push_front(&list.node, 2));
    EXPECT_EQ((Words{2, 1}), elements(list.node));
    EXPECT_EQ(&list.node, tav_list_push_front(list.node.next, 3));
    EXPECT_EQ((Words{3, 2, 1}), elements(list.node));
    EXPECT_EQ(&list.node, list.node.head);
}

TEST(TavList, InsertsBeforeAndAfter) {
    List list;
    EXPECT_EQ(&list.node, tav_list_insert_before(&list.node, 2));
    tav_list * const four = tav_list_insert_after(&list.node, 4);
    EXPECT_EQ(3u, tav_list_insert_before(four, 3)->data);
    EXPECT_EQ(&list.node, tav_list_insert_before(&list.node, 1));
    EXPECT_EQ((Words{1, 2, 3, 4}), elements(list.node));
    List other;
    EXPECT_EQ(&other.node, tav_list_insert_after(&other.node, 1));
    EXPECT_EQ((Words{1}), elements(other.node));
}

TEST(TavList, EndsAreFoundFromAnyNode) {
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
    EXPECT_EQ(nullptr, tav_list_end());
    EXPECT_EQ(middle, tav_list_next(&list.node));
    EXPECT_EQ(&list.node, tav_list_next(last));
}

TEST(TavList, EraseCallsTheDeleterUnlinksAndFrees) {
    deletions = 0;
    List list(&countDeletion);
    EXPECT_FALSE(tav_list_erase(&list.node));
    tav_list_push_back(&list.node, 1);
    tav_list * const middle = tav_list_push_back(&list.node, 2);
    tav_list_push_back(&list.node, 3);
    EXPECT_TRUE(tav_list_erase(middle));
    EXPECT_EQ(1, deletions);
    EXPECT_EQ((Words{1, 3}), elements(list.node));
    EXPECT_TRUE(tav_list_erase(list.node.next));
    EXPECT_TRUE(tav_list_erase(&list.node));
    EXPECT_EQ(3, deletions);
    EXPECT_TRUE(tav_list_empty(&list.node));
    EXPECT_EQ(nullptr, list.node.prev);
    EXPECT_EQ(nullptr, list.node.next);
    EXPECT_EQ(0u, list.node.data);
    EXPECT_EQ(&countDeletion, list.node.deleter);
}

TEST(TavList, EraseCallsTheDeleterAlsoForANullWord) {
    deletions = 0;
    List list(&countDeletion);
    tav_list_push_back(&list.node, 0);
    tav_list_delete_data(&list.node);
    EXPECT_EQ(0, deletions);
    tav_list_erase(&list.node);
    EXPECT_EQ(1, deletions);
    tav_list_push_back(&list.node, 1);
    tav_list_delete_data(&list.node);
    EXPECT_EQ(2, deletions);
    list.node.deleter = nullptr;
    list.node.data = 1;
    tav_list_delete_data(&list.node);
    EXPECT_TRUE(tav_list_erase(&list.node));
    EXPECT_EQ(2, deletions);
}

TEST(TavList, ErasingTheFirstOfSeveralFreesIt) {
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

TEST(TavList, RemoveErasesAllEqualWords) {
    List list;
    for (tav_any const word : {7u, 1u, 7u, 7u, 2u}) {
        tav_list_push_back(&list.node, word);
    }
    EXPECT_EQ(0u, tav_list_remove(&list.node, 9));
    EXPECT_EQ(1u, tav_list_remove(list.node.next, 2));
    list.node.data = 3;
    EXPECT_EQ(2u, tav_list_remove(&list.node, 7));
    EXPECT_EQ((Words{3, 1}), elements(list.node));
    EXPECT_EQ(1u, tav_list_remove(&list.node, 1));
    EXPECT_EQ(1u, tav_list_remove(&list.node, 3));
    EXPECT_TRUE(tav_list_empty(&list.node));
    EXPECT_EQ(0u, tav_list_remove(&list.node, 0));
}

TEST(TavList, RemoveOfTheFirstFreesItWhileOthersStay) {
    tav_list * const first = tav_list_new();
    tav_list_push_back(first, 7);
    tav_list * second = tav_list_push_back(first, 8);
    tav_list_push_back(first, 7);
    EXPECT_EQ(2u, tav_list_remove(first, 7));
    EXPECT_EQ(second, second->next);
    second->head = second;
    tav_list_delete(&second);
}

TEST(TavList, ClearGivesTheCountAndKeepsTheFirstNode) {
    deletions = 0;
    List list(&countDeletion);
    EXPECT_EQ(0u, tav_list_clear(&list.node));
    for (tav_any const word : {1u, 2u, 3u}) {
        tav_list_push_back(&list.node, word);
    }
    EXPECT_EQ(3u, tav_list_clear(&list.node));
    EXPECT_EQ(3, deletions);
    EXPECT_TRUE(tav_list_empty(&list.node));
    tav_list_push_back(&list.node, 1);
    tav_list_push_back(&list.node, 2);
    EXPECT_EQ(2u, tav_list_fini(list.node.next));
    EXPECT_TRUE(tav_list_empty(&list.node));
}

TEST(TavList, OwnedWordsAreFreed) {
    List list(&tav_any_delete);
    for (int i = 0; i < 5; ++i) {
        tav_list_push_back(&list.node, reinterpret_cast<tav_any>(std::malloc(8)));
    }
    EXPECT_EQ(1u, tav_list_remove(&list.node, list.node.next->data));
    EXPECT_EQ(4u, tav_list_clear(&list.node));
}

TEST(TavList, ForeachWalksAnOpenChain) {
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

TEST(TavList, SwapExchangesAllButTheDeletersAndMendsNothing) {
    tav_list a;
    tav_list b;
    tav_list_(&a, 1, &a, &a, &a, &countDeletion);
    tav_list_(&b, 2, nullptr, nullptr, nullptr, nullptr);
    tav_list_swap(&a, &b);
    EXPECT_EQ(2u, a.data);
    EXPECT_EQ(nullptr, a.head);
    EXPECT_EQ(&countDeletion, a.deleter);
    EXPECT_EQ(1u, b.data);
    EXPECT_EQ(&a, b.head);
    EXPECT_EQ(&a, b.prev);
    EXPECT_EQ(&a, b.next);
    EXPECT_EQ(nullptr, b.deleter);
}

TEST(TavList, NullGivesNullOrZero) {
    EXPECT_EQ(nullptr, tav_list_(nullptr, 1, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(nullptr, tav_list_init(nullptr, 1, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(nullptr, tav_list_init_first(nullptr, 1));
    tav_list_reset(nullptr);
    EXPECT_TRUE(tav_list_empty(nullptr));
    EXPECT_EQ(nullptr, tav_list_begin(nullptr));
    EXPECT_EQ(nullptr, tav_list_front(nullptr));
    EXPECT_EQ(nullptr, tav_list_home(nullptr));
    EXPECT_EQ(nullptr, tav_list_back(nullptr));
    EXPECT_EQ(nullptr, tav_list_next(nullptr));
    EXPECT_EQ(0u, tav_list_size(nullptr));
    EXPECT_EQ(nullptr, tav_list_push_back(nullptr, 1));
    EXPECT_EQ(nullptr, tav_list_push_front(nullptr, 1));
    EXPECT_EQ(nullptr, tav_list_insert_after(nullptr, 1));
    EXPECT_EQ(nullptr, tav_list_insert_before(nullptr, 1));
    EXPECT_FALSE(tav_list_erase(nullptr));
    EXPECT_EQ(0u, tav_list_remove(nullptr, 1));
    EXPECT_EQ(0u, tav_list_clear(nullptr));
    EXPECT_EQ(0u, tav_list_fini(nullptr));
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
    EXPECT_EQ(nullptr, tav_pair_init(nullptr, 1, 2));
}

TEST(TavValues, AreMadeFromTheirArguments) {
    char bytes[4] = "abc";
    wchar_t wide[2] = L"w";
    tav_array array;
    EXPECT_EQ(&array, tav_array_(&array, bytes, 3));
    EXPECT_EQ(bytes, array.data);
    EXPECT_EQ(3u, array.size);
    EXPECT_EQ(3u, array.capacity);
    EXPECT_EQ(nullptr, tav_array_(nullptr, bytes, 3));
    EXPECT_EQ(bytes, tav_bytes_(bytes, 3).data);
    EXPECT_EQ(3u, tav_bytes_(bytes, 3).size);
    EXPECT_EQ(nullptr, tav_bytes_(bytes, 0).data);
    EXPECT_EQ(0u, tav_bytes_(nullptr, 3).size);
    EXPECT_EQ(bytes, tav_slice_(bytes, 0).data);
    EXPECT_EQ(3u, tav_slice_(nullptr, 3).size);
    EXPECT_EQ(9u, tav_optional_(9, 1).value);
    EXPECT_EQ(1, tav_optional_(9, 1).present);
    EXPECT_EQ(8u, tav_pair_(8, 9).first);
    EXPECT_EQ(9u, tav_pair_(8, 9).second);
    EXPECT_EQ(-5, tav_enum_(-5));
    EXPECT_EQ(bytes, tav_string_(bytes));
    EXPECT_EQ(bytes, tav_u8string_(bytes));
    EXPECT_EQ(wide, tav_wstring_(wide));
}

TEST(TavValues, DatetimeTakesTheLowHalvesOfItsWords) {
    EXPECT_EQ(0x0000000200000001ll, tav_datetime_(1, 2));
    EXPECT_EQ(0x0000000200000001ll, tav_datetime_(tav_any(0xff) << 32 | 1, 2));
    EXPECT_EQ(-1ll, tav_datetime_(0xffffffffu, 0xffffffffu));
}
