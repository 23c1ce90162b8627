#include "tav/vinta/vinta_basetypes_containers.h"

#include <cstdlib>
#include <utility>

namespace {

void freeWord(tav_any & word) {
    std::free(reinterpret_cast<void *>(word));
    word = 0;
}

/// The node below which `node` really hangs; null for a root, and for one that can't be found by its key.
tav_map * holderOf(tav_map const * node) {
    if (node->parent == nullptr) {
        return nullptr;
    }
    tav_map * at = node->parent;
    while (at->parent != nullptr) {
        at = at->parent;
    }
    while (at != nullptr && at->left != node && at->right != node) {
        at = tav_map_compare(at, node->pair->first) < 0 ? at->left : at->right;
    }
    return at;
}

void hangBelow(tav_map * child, tav_map * parent) {
    if (child != nullptr) {
        child->parent = parent;
    }
}

/// Frees the nodes of a whole tree with their pairs.  Turns left links into a chain to the right on its way
/// instead of remembering a path, so that depth costs nothing.
void freeTree(tav_map * node) {
    while (node != nullptr) {
        tav_map * next = node->left;
        if (next != nullptr) {
            node->left = next->right;
            next->right = node;
        } else {
            next = node->right;
            tav_pair_delete(&node->pair);
            std::free(node);
        }
        node = next;
    }
}

/// Takes the rightest node out of the left subtree of `node` and gives it the rest of that subtree.
tav_map * takeFromLeft(tav_map * node) {
    tav_map * taken = node->left;
    tav_map * above = nullptr;
    while (taken->right != nullptr) {
        above = taken;
        taken = taken->right;
    }
    if (above != nullptr) {
        above->right = nullptr;
        tav_map * const holder = taken->left == nullptr ? taken : taken->left;
        hangBelow(taken->left, taken);
        holder->left = node->left;
        hangBelow(node->left, holder);
    }
    taken->right = node->right;
    hangBelow(node->right, taken);
    return taken;
}

tav_map * takeFromRight(tav_map * node) {
    tav_map * taken = node->right;
    tav_map * above = nullptr;
    while (taken->left != nullptr) {
        above = taken;
        taken = taken->left;
    }
    if (above != nullptr) {
        above->left = nullptr;
        tav_map * const holder = taken->right == nullptr ? taken : taken->right;
        hangBelow(taken->right, taken);
        holder->right = node->right;
        hangBelow(node->right, holder);
    }
    taken->left = node->left;
    hangBelow(node->left, taken);
    return taken;
}

/// The node for `key`, new or not; `added` tells which.  Null if memory is short.
tav_map * place(tav_map * node, tav_any key, tav_any value, bool & added) {
    added = true;
    if (node == nullptr) {
        return nullptr;
    }
    if (node->pair == nullptr) {
        node->pair = tav_pair_new_(key, value);
        return node->pair == nullptr ? nullptr : node;
    }
    tav_map * const nearest = tav_map_nearest(tav_map_root(node), key);
    int const order = tav_map_compare(nearest, key);
    if (order == 0) {
        added = false;
        return nearest;
    }
    tav_pair * pair = tav_pair_new_(key, value);
    tav_map * const child =
        pair == nullptr ? nullptr : tav_map_new_(pair, node, nullptr, nullptr, node->compare);
    if (child == nullptr) {
        std::free(pair);
        return nullptr;
    }
    (order < 0 ? nearest->left : nearest->right) = child;
    return child;
}

} // namespace

int tav_any_compare(tav_any a, tav_any b) {
    return a < b ? -1 : a > b ? 1 : 0;
}

void tav_any_delete(void * word) {
    if (word != nullptr) {
        freeWord(*static_cast<tav_any *>(word));
    }
}

void tav_any_delete_none(void * word) {
    if (word != nullptr) {
        *static_cast<tav_any *>(word) = 0;
    }
}

void tav_any_swap(tav_any * a, tav_any * b) {
    if (a != nullptr && b != nullptr) {
        std::swap(*a, *b);
    }
}

tav_pair * tav_pair_new(void) {
    return static_cast<tav_pair *>(std::calloc(1, sizeof(tav_pair)));
}

tav_pair * tav_pair_new_(tav_any first, tav_any second) {
    return tav_pair_init(static_cast<tav_pair *>(std::malloc(sizeof(tav_pair))), first, second);
}

tav_pair * tav_pair_init(tav_pair * p, tav_any first, tav_any second) {
    if (p != nullptr) {
        *p = tav_pair_(first, second);
    }
    return p;
}

void tav_pair_fini(tav_pair * p) {
    if (p != nullptr) {
        freeWord(p->first);
        freeWord(p->second);
    }
}

void tav_pair_delete(tav_pair ** pp) {
    if (pp != nullptr) {
        tav_pair_fini(*pp);
        std::free(*pp);
        *pp = nullptr;
    }
}

tav_list * tav_list_(tav_list * out, tav_any data, tav_list * head, tav_list * prev, tav_list * next,
                     tav_any_deleter deleter) {
    if (out != nullptr) {
        *out = tav_list{data, head, prev, next, deleter};
    }
    return out;
}

tav_list * tav_list_init(tav_list * node, tav_any data, tav_list * head, tav_list * prev, tav_list * next,
                         tav_any_deleter deleter) {
    return tav_list_(node, data, head, prev, next, deleter);
}

tav_list * tav_list_new(void) {
    auto * const node = static_cast<tav_list *>(std::calloc(1, sizeof(tav_list)));
    if (node != nullptr) {
        node->deleter = &tav_any_delete_none;
    }
    return node;
}

tav_list * tav_list_new_(tav_any data, tav_list * head, tav_list * prev, tav_list * next,
                         tav_any_deleter deleter) {
    return tav_list_(static_cast<tav_list *>(std::malloc(sizeof(tav_list))), data, head, prev, next, deleter);
}

tav_list * tav_list_init_first(tav_list * node, tav_any data) {
    return node == nullptr ? nullptr : tav_list_(node, data, node, node, node, node->deleter);
}

void tav_list_reset(tav_list * node) {
    if (node != nullptr) {
        tav_list_(node, 0, nullptr, nullptr, nullptr, node->deleter);
    }
}

bool tav_list_empty(tav_list const * node) {
    return node == nullptr || node->head == nullptr;
}

tav_list * tav_list_begin(tav_list * node) {
    return tav_list_empty(node) ? node : node->head;
}

tav_list * tav_list_front(tav_list * node) {
    return tav_list_begin(node);
}

tav_list * tav_list_home(tav_list * node) {
    return tav_list_begin(node);
}

tav_list * tav_list_back(tav_list * node) {
    return tav_list_empty(node) ? node : node->head->prev;
}

tav_list * tav_list_end(void) {
    return nullptr;
}

tav_list * tav_list_next(tav_list * node) {
    return node == nullptr ? nullptr : node->next;
}

unsigned tav_list_size(tav_list const * node) {
    if (tav_list_empty(node)) {
        return 0;
    }
    unsigned count = 1;
    for (tav_list const * at = node->next; at != node; at = at->next) {
        ++count;
    }
    return count;
}

tav_list * tav_list_push_back(tav_list * node, tav_any data) {
    return tav_list_insert_after(tav_list_back(node), data);
}

tav_list * tav_list_push_front(tav_list * node, tav_any data) {
    if (tav_list_empty(node)) {
        return tav_list_init_first(node, data);
    }
    tav_list * const head = node->head;
    if (tav_list_insert_after(head, head->data) == nullptr) {
        return nullptr;
    }
    head->data = data;
    return head;
}

tav_list * tav_list_insert_after(tav_list * node, tav_any data) {
    if (tav_list_empty(node)) {
        return tav_list_init_first(node, data);
    }
    tav_list * const added = tav_list_new_(data, node->head, node, node->next, node->deleter);
    if (added != nullptr) {
        node->next->prev = added;
        node->next = added;
    }
    return added;
}

tav_list * tav_list_insert_before(tav_list * node, tav_any data) {
    if (tav_list_empty(node) || node == node->head) {
        return tav_list_push_front(node, data);
    }
    return tav_list_insert_after(node->prev, data);
}

bool tav_list_erase(tav_list * node) {
    if (tav_list_empty(node)) {
        return false;
    }
    if (node->deleter != nullptr) {
        node->deleter(node);
    }
    bool const alone = node->next == node;
    if (!alone) {
        node->prev->next = node->next;
        node->next->prev = node->prev;
    }
    tav_list_reset(node);
    if (!alone) {
        std::free(node);
    }
    return true;
}

unsigned tav_list_remove(tav_list * node, tav_any data) {
    if (tav_list_empty(node)) {
        return 0;
    }
    tav_list * const head = node->head;
    unsigned count = 0;
    for (tav_list * at = head->next; at != head;) {
        tav_list * const next = at->next;
        if (at->data == data && tav_list_erase(at)) {
            ++count;
        }
        at = next;
    }
    if (head->data == data && tav_list_erase(head)) {
        ++count;
    }
    return count;
}

unsigned tav_list_clear(tav_list * node) {
    tav_list * const head = tav_list_begin(node);
    unsigned count = 0;
    while (tav_list_erase(tav_list_back(head))) {
        ++count;
    }
    return count;
}

unsigned tav_list_fini(tav_list * node) {
    return tav_list_clear(node);
}

void tav_list_delete(tav_list ** pp) {
    if (pp != nullptr) {
        tav_list * const head = tav_list_begin(*pp);
        tav_list_clear(head);
        std::free(head);
        *pp = nullptr;
    }
}

void tav_list_delete_data(tav_list * node) {
    if (node != nullptr && node->deleter != nullptr && node->data != 0) {
        node->deleter(node);
    }
}

void tav_list_foreach(tav_list * node, void (*fn)(tav_any data)) {
    if (fn == nullptr) {
        return;
    }
    for (tav_list * at = tav_list_begin(node); at != nullptr; at = at->next) {
        fn(at->data);
    }
}

void tav_list_swap(tav_list * a, tav_list * b) {
    if (a != nullptr && b != nullptr) {
        std::swap(*a, *b);
        std::swap(a->deleter, b->deleter);
    }
}

tav_map * tav_map_(tav_map * node, tav_pair * pair, tav_map * parent, tav_map * left, tav_map * right,
                   tav_any_comparer compare) {
    if (node != nullptr) {
        *node = tav_map{pair, parent, left, right, compare};
    }
    return node;
}

tav_map * tav_map_init(tav_map * node, tav_pair * pair, tav_map * parent, tav_map * left, tav_map * right,
                       tav_any_comparer compare) {
    return tav_map_(node, pair, parent, left, right, compare);
}

tav_map * tav_map_new(void) {
    auto * const node = static_cast<tav_map *>(std::calloc(1, sizeof(tav_map)));
    if (node != nullptr) {
        node->compare = &tav_any_compare;
    }
    return node;
}

tav_map * tav_map_new_(tav_pair * pair, tav_map * parent, tav_map * left, tav_map * right,
                       tav_any_comparer compare) {
    return tav_map_(static_cast<tav_map *>(std::malloc(sizeof(tav_map))), pair, parent, left, right, compare);
}

bool tav_map_empty(tav_map const * node) {
    return node == nullptr || node->pair == nullptr;
}

tav_map * tav_map_end(void) {
    return nullptr;
}

tav_map * tav_map_root(tav_map * node) {
    while (node != nullptr && node->parent != nullptr) {
        node = node->parent;
    }
    return node;
}

bool tav_map_is_root(tav_map const * node) {
    return node != nullptr && node->parent == nullptr;
}

bool tav_map_is_leaf(tav_map const * node) {
    return node != nullptr && node->left == nullptr && node->right == nullptr;
}

bool tav_map_is_branch(tav_map const * node) {
    return node != nullptr && (node->left != nullptr || node->right != nullptr);
}

bool tav_map_is_left(tav_map const * node) {
    return node != nullptr && node->parent != nullptr && node->parent->left == node;
}

bool tav_map_is_right(tav_map const * node) {
    return node != nullptr && node->parent != nullptr && node->parent->right == node;
}

bool tav_map_single(tav_map const * node) {
    return tav_map_is_leaf(node);
}

tav_map * tav_map_leftest(tav_map * node) {
    while (node != nullptr && node->left != nullptr) {
        node = node->left;
    }
    return node;
}

tav_map * tav_map_rightest(tav_map * node) {
    while (node != nullptr && node->right != nullptr) {
        node = node->right;
    }
    return node;
}

tav_map * tav_map_begin(tav_map * node) {
    return tav_map_leftest(tav_map_root(node));
}

tav_map * tav_map_next(tav_map * node) {
    if (node == nullptr) {
        return nullptr;
    }
    if (node->right != nullptr) {
        return tav_map_leftest(node->right);
    }
    while (tav_map_is_right(node)) {
        node = node->parent;
    }
    return node->parent;
}

void tav_map_foreach(tav_map * node, void (*fn)(tav_pair * pair)) {
    tav_map * at = fn == nullptr ? nullptr : tav_map_begin(node);
    while (!tav_map_empty(at)) {
        fn(at->pair);
        tav_map * const next = tav_map_next(at);
        // A parent that a node does not hang below may lie behind it: going on there would never end.
        if (!tav_map_empty(next) && next->compare != nullptr && tav_map_compare(next, at->pair->first) >= 0) {
            return;
        }
        at = next;
    }
}

int tav_map_compare(tav_map const * node, tav_any key) {
    return tav_map_empty(node) || node->compare == nullptr ? -1 : node->compare(key, node->pair->first);
}

tav_map * tav_map_find(tav_map * node, tav_any key) {
    while (!tav_map_empty(node)) {
        int const order = tav_map_compare(node, key);
        if (order == 0) {
            return node;
        }
        node = order < 0 ? node->left : node->right;
    }
    return nullptr;
}

tav_map * tav_map_nearest(tav_map * node, tav_any key) {
    if (tav_map_empty(node)) {
        return nullptr;
    }
    while (true) {
        int const order = tav_map_compare(node, key);
        tav_map * const next = order == 0 ? nullptr : order < 0 ? node->left : node->right;
        if (next == nullptr) {
            return node;
        }
        node = next;
    }
}

tav_map * tav_map_insert(tav_map * node, tav_any key, tav_any value) {
    bool added = false;
    tav_map * const at = place(node, key, value, added);
    return added ? at : nullptr;
}

tav_any tav_map_update(tav_map * node, tav_any key, tav_any value) {
    bool added = false;
    tav_map * const at = place(node, key, value, added);
    if (added) {
        return 0;
    }
    std::swap(at->pair->second, value);
    return value;
}

tav_any tav_map_remove(tav_map * node, tav_any key) {
    tav_map * found = tav_map_find(tav_map_root(node), key);
    if (found == nullptr) {
        return 0;
    }
    tav_any value = 0;
    std::swap(value, found->pair->second);
    tav_map_erase(&found);
    return value;
}

void tav_map_erase(tav_map ** pp) {
    if (pp == nullptr || tav_map_empty(*pp)) {
        return;
    }
    bool const root = tav_map_is_root(*pp);
    tav_map * const taken = tav_map_split(*pp);
    if (taken == nullptr) {
        return;
    }
    tav_pair_delete(&taken->pair);
    if (!root) {
        // `pp` may be the very link that a replacement stands in by now.
        if (*pp == taken) {
            *pp = nullptr;
        }
        std::free(taken);
    }
}

unsigned tav_map_size(tav_map const * node) {
    if (tav_map_empty(node)) {
        return 0;
    }
    // Threads the tree to itself and takes each thread away again: no memory, however deep it is.
    unsigned count = 0;
    auto * at = const_cast<tav_map *>(node);
    while (at != nullptr) {
        tav_map * before = at->left;
        if (before == nullptr) {
            ++count;
            at = at->right;
            continue;
        }
        while (before->right != nullptr && before->right != at) {
            before = before->right;
        }
        if (before->right == nullptr) {
            before->right = at;
            at = at->left;
        } else {
            before->right = nullptr;
            ++count;
            at = at->right;
        }
    }
    return count;
}

void tav_map_fini(tav_map * node) {
    if (node != nullptr) {
        freeTree(node->left);
        freeTree(node->right);
        node->left = nullptr;
        node->right = nullptr;
        tav_pair_delete(&node->pair);
    }
}

void tav_map_delete(tav_map ** pp) {
    if (pp != nullptr) {
        tav_map_fini(*pp);
        std::free(*pp);
        *pp = nullptr;
    }
}

tav_map * tav_map_split(tav_map * node) {
    if (tav_map_empty(node)) {
        return nullptr;
    }
    tav_map * const holder = holderOf(node);
    bool const right = holder != nullptr && holder->right == node;
    tav_map * replacement = node->left == nullptr ? node->right : node->left;
    if (node->left != nullptr && node->right != nullptr) {
        replacement = right ? takeFromLeft(node) : takeFromRight(node);
    }
    if (node->parent == nullptr && replacement != nullptr) {
        return tav_map_replace_root(node, replacement);
    }
    if (holder != nullptr) {
        (right ? holder->right : holder->left) = replacement;
    }
    hangBelow(replacement, holder);
    node->parent = nullptr;
    node->left = nullptr;
    node->right = nullptr;
    return node;
}

tav_map * tav_map_replace_root(tav_map * root, tav_map * child) {
    if (root != nullptr && child != nullptr) {
        tav_pair_delete(&root->pair);
        *root = *child;
        root->parent = nullptr;
        hangBelow(root->left, root);
        hangBelow(root->right, root);
    }
    return nullptr;
}

tav_array * tav_array_(tav_array * out, void * data, unsigned size) {
    if (out != nullptr) {
        *out = tav_array{data, size, size};
    }
    return out;
}

tav_bytes tav_bytes_(void * data, unsigned size) {
    return data == nullptr || size == 0 ? tav_bytes{nullptr, 0} : tav_bytes{data, size};
}

tav_slice tav_slice_(void * data, unsigned size) {
    return tav_slice{data, size};
}

tav_optional tav_optional_(tav_any value, unsigned char present) {
    return tav_optional{value, present};
}

tav_pair tav_pair_(tav_any first, tav_any second) {
    return tav_pair{first, second};
}

long long tav_datetime_(tav_any low, tav_any high) {
    return static_cast<long long>(static_cast<unsigned long long>(high) << 32 | (low & 0xffffffffu));
}

int tav_enum_(int v) {
    return v;
}

char * tav_string_(char * p) {
    return p;
}

char * tav_u8string_(char * p) {
    return p;
}

wchar_t * tav_wstring_(wchar_t * p) {
    return p;
}
