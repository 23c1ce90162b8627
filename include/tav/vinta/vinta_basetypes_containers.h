#ifndef TAV_VINTA_BASETYPES_CONTAINERS_H
#define TAV_VINTA_BASETYPES_CONTAINERS_H

#include "tav/vinta/vinta_api.h"

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/// Containers of machine words, for C and C++.
///
/// An element is one word, a pointer or a number that no container interprets.  Nodes come from malloc and
/// calloc and go back to free; a node that is given may live anywhere.  A null node is accepted everywhere
/// and gives null, 0 or false.  When memory is short, what makes a node gives null and what adds an element
/// leaves it out.  A container belongs to one thread.

#ifdef __cplusplus
extern "C" {
#endif

/// One machine word.
typedef uintptr_t tav_any;

/// Releases the word at the address `word`, which for a list is the node's own.
typedef void (*tav_any_deleter)(void * word);

/// Negative, 0 or positive as `a` comes before, with or behind `b`.
typedef int (*tav_any_comparer)(tav_any a, tav_any b);

/// -1, 0 or 1 by the unsigned values.
TAV_API int tav_any_compare(tav_any a, tav_any b);
/// Frees the pointer held at `word`, if it is not null, and clears it.
TAV_API void tav_any_delete(void * word);
/// Clears the word.
TAV_API void tav_any_delete_none(void * word);
TAV_API void tav_any_swap(tav_any * a, tav_any * b);

/// Two words.  The operations that end a pair take both as heap pointers of their own.
typedef struct tav_pair {
    tav_any first;
    tav_any second;
} tav_pair;

/// Both words 0.
TAV_API tav_pair * tav_pair_new(void);
TAV_API tav_pair * tav_pair_new_(tav_any first, tav_any second);
/// Gives `p`.
TAV_API tav_pair * tav_pair_init(tav_pair * p, tav_any first, tav_any second);
/// Frees both words, where not null, and clears them.
TAV_API void tav_pair_fini(tav_pair * p);
/// As tav_pair_fini, and frees the pair and clears the pointer at `pp`.
TAV_API void tav_pair_delete(tav_pair ** pp);

/// A node of a circular, doubly linked list, of which the first node is the list itself.
///
/// A node with a null `head` is an empty list; one element is a node whose `head`, `prev` and `next` are
/// itself.  `head` of every node is the first node.
typedef struct tav_list {
    tav_any data;
    struct tav_list * head;
    struct tav_list * prev;
    struct tav_list * next;
    tav_any_deleter deleter;
} tav_list;

/// Set the five fields, and give the node.
TAV_API tav_list * tav_list_(tav_list * out, tav_any data, tav_list * head, tav_list * prev, tav_list * next,
                             tav_any_deleter deleter);
TAV_API tav_list * tav_list_init(tav_list * node, tav_any data, tav_list * head, tav_list * prev,
                                 tav_list * next, tav_any_deleter deleter);

/// An empty list whose elements are not freed: its deleter is tav_any_delete_none.
TAV_API tav_list * tav_list_new(void);
TAV_API tav_list * tav_list_new_(tav_any data, tav_list * head, tav_list * prev, tav_list * next,
                                 tav_any_deleter deleter);
/// Makes `node` a list of one element and gives it; the deleter stays.
TAV_API tav_list * tav_list_init_first(tav_list * node, tav_any data);
/// Clears all but the deleter.
TAV_API void tav_list_reset(tav_list * node);

/// True also for null.
TAV_API bool tav_list_empty(tav_list const * node);
/// The first node; `node` itself if the list is empty.
TAV_API tav_list * tav_list_begin(tav_list * node);
TAV_API tav_list * tav_list_front(tav_list * node);
TAV_API tav_list * tav_list_home(tav_list * node);
/// The last node; `node` itself if the list is empty.
TAV_API tav_list * tav_list_back(tav_list * node);
/// Null.
TAV_API tav_list * tav_list_end(void);
/// The next node; behind the last one comes the first, so a loop compares with that.
TAV_API tav_list * tav_list_next(tav_list * node);
/// Counts the nodes.
TAV_API unsigned tav_list_size(tav_list const * node);

/// Gives the node that holds the element.
TAV_API tav_list * tav_list_push_back(tav_list * node, tav_any data);
/// The first node keeps its address and takes `data`; what it held moves into a new node behind it.  Gives
/// the first node.
TAV_API tav_list * tav_list_push_front(tav_list * node, tav_any data);
/// On an empty list both make `node` its first element.  A new node takes the deleter of `node`.
TAV_API tav_list * tav_list_insert_after(tav_list * node, tav_any data);
/// Ahead of the first node: as tav_list_push_front.
TAV_API tav_list * tav_list_insert_before(tav_list * node, tav_any data);

/// Calls the deleter, if there is one, unlinks the node and frees it; a lone node is emptied and stays.
/// False if the list is empty.
///
/// The first node of several is freed too, and leaves the others with a `head` that is gone: to empty a list
/// use tav_list_clear.
TAV_API bool tav_list_erase(tav_list * node);
/// Erases all nodes whose word equals `data`, the first node last, and gives their number.  If the first node
/// matches while others stay, it is freed as by tav_list_erase.
TAV_API unsigned tav_list_remove(tav_list * node, tav_any data);
/// Erases all elements from the back and gives their number; the first node stays allocated and is empty.
TAV_API unsigned tav_list_clear(tav_list * node);
TAV_API unsigned tav_list_fini(tav_list * node);
/// Clears the list, frees its first node and sets `*pp` to null.
TAV_API void tav_list_delete(tav_list ** pp);
/// Calls the deleter if both it and `data` are set.
TAV_API void tav_list_delete_data(tav_list * node);

/// Calls `fn` for each element from the first node on until a `next` is null.  A list of this library is a
/// ring and has none: the walk is for open chains, or for a `fn` that leaves it.
TAV_API void tav_list_foreach(tav_list * node, void (*fn)(tav_any data));
/// Exchanges all but the deleters.  Links that point to the nodes themselves are not mended.
TAV_API void tav_list_swap(tav_list * a, tav_list * b);

/// A node of a plain binary search tree, of which the root is the map itself.
///
/// A node with a null `pair` is an empty map.  Nothing is balanced: keys that come in order make a chain.
/// What is inserted gets as `parent` the node that the call was given, which need not be the node that it
/// hangs below; so insert through the root, and look for successors only below it.
typedef struct tav_map {
    tav_pair * pair;
    struct tav_map * parent;
    struct tav_map * left;
    struct tav_map * right;
    tav_any_comparer compare;
} tav_map;

/// Set the five fields, and give the node.
TAV_API tav_map * tav_map_(tav_map * node, tav_pair * pair, tav_map * parent, tav_map * left, tav_map * right,
                           tav_any_comparer compare);
TAV_API tav_map * tav_map_init(tav_map * node, tav_pair * pair, tav_map * parent, tav_map * left,
                               tav_map * right, tav_any_comparer compare);

/// An empty map that orders its keys by tav_any_compare.
TAV_API tav_map * tav_map_new(void);
TAV_API tav_map * tav_map_new_(tav_pair * pair, tav_map * parent, tav_map * left, tav_map * right,
                               tav_any_comparer compare);

/// True also for null.
TAV_API bool tav_map_empty(tav_map const * node);
/// Null.
TAV_API tav_map * tav_map_end(void);
TAV_API tav_map * tav_map_root(tav_map * node);
TAV_API bool tav_map_is_root(tav_map const * node);
/// Has no child.
TAV_API bool tav_map_is_leaf(tav_map const * node);
/// Has a child.
TAV_API bool tav_map_is_branch(tav_map const * node);
TAV_API bool tav_map_is_left(tav_map const * node);
TAV_API bool tav_map_is_right(tav_map const * node);
/// The same as tav_map_is_leaf.
TAV_API bool tav_map_single(tav_map const * node);
TAV_API tav_map * tav_map_leftest(tav_map * node);
TAV_API tav_map * tav_map_rightest(tav_map * node);
/// The node of the lowest key of the whole map.
TAV_API tav_map * tav_map_begin(tav_map * node);
/// The leftest node of `right`; without one, the parent of the first node, going up, that is no right child.
TAV_API tav_map * tav_map_next(tav_map * node);
/// Calls `fn` from tav_map_begin on as tav_map_next goes, and ends where the keys would not ascend.
TAV_API void tav_map_foreach(tav_map * node, void (*fn)(tav_pair * pair));

/// `compare` of `key` and the node's key; -1 if the node has no key or no function.
TAV_API int tav_map_compare(tav_map const * node, tav_any key);
/// The node of `key` at or below `node`; null if it is not there.
TAV_API tav_map * tav_map_find(tav_map * node, tav_any key);
/// The node that holds `key`, or else the node below which it belongs; null for an empty map.
TAV_API tav_map * tav_map_nearest(tav_map * node, tav_any key);

/// The new node; null, and nothing is changed, if the key is there.  An empty `node` takes the pair itself.
TAV_API tav_map * tav_map_insert(tav_map * node, tav_any key, tav_any value);
/// As tav_map_insert, but a key that is there takes `value`: gives the value that it had, otherwise 0.
TAV_API tav_any tav_map_update(tav_map * node, tav_any key, tav_any value);
/// Takes the key's node out and frees the node, its pair and its key.  Gives the value, which is the caller's
/// now; 0 if the key is not there.  A lone root is emptied and stays allocated.
TAV_API tav_any tav_map_remove(tav_map * node, tav_any key);
/// Takes `*pp` out and frees its node, pair, key and value.  `*pp` becomes null if the node was freed; a root
/// keeps its node.
TAV_API void tav_map_erase(tav_map ** pp);
/// Counts the nodes at and below `node`, which no other thread may read meanwhile.
TAV_API unsigned tav_map_size(tav_map const * node);
/// Frees all nodes below `node`, and the pairs, keys and values of all and of its own.
TAV_API void tav_map_fini(tav_map * node);
/// As tav_map_fini, and frees the node and sets `*pp` to null.
TAV_API void tav_map_delete(tav_map ** pp);

/// A step of removal.  Takes one node out of the tree and gives it; null if it was a root with children,
/// whose content is then gone.  Of a node with two children, the replacement's own grandchild on the side of
/// the other children is lost.
TAV_API tav_map * tav_map_split(tav_map * node);
/// A step of removal.  Frees the root's pair, key and value, and moves `child` into the root, which keeps its
/// address.  Gives null.  The memory of `child` itself is not freed.
TAV_API tav_map * tav_map_replace_root(tav_map * root, tav_map * child);

/// Values of the C type system.
typedef struct tav_array {
    void * data;
    unsigned size;
    unsigned capacity;
} tav_array;

/// Bytes and their number.
typedef struct tav_bytes {
    void * data;
    unsigned size;
} tav_bytes;

/// A part of somebody else's bytes.
typedef struct tav_slice {
    void * data;
    unsigned size;
} tav_slice;

/// A value, or none.
typedef struct tav_optional {
    tav_any value;
    unsigned char present;
} tav_optional;

/// `capacity` is `size`.  Gives `out`.
TAV_API tav_array * tav_array_(tav_array * out, void * data, unsigned size);
/// Both fields are 0 if one is.
TAV_API tav_bytes tav_bytes_(void * data, unsigned size);
TAV_API tav_slice tav_slice_(void * data, unsigned size);
TAV_API tav_optional tav_optional_(tav_any value, unsigned char present);
TAV_API tav_pair tav_pair_(tav_any first, tav_any second);
/// `high` shifted left by 32, and the low 32 bits of `low`.
TAV_API long long tav_datetime_(tav_any low, tav_any high);
/// These give their argument.
TAV_API int tav_enum_(int v);
TAV_API char * tav_string_(char * p);
TAV_API char * tav_u8string_(char * p);
TAV_API wchar_t * tav_wstring_(wchar_t * p);

#ifdef __cplusplus
}
#endif

#endif
