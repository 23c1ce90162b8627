#include "tav/vinta/vinta_c.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int failures;

#define EXPECT(condition)                                                                                    \
    ((condition) ? (void)0 : (void)(++failures, printf("%s:%d: %s\n", __FILE__, __LINE__, #condition)))

static char * copied(char const * text) {
    unsigned const size = tav_str_size(text);
    char * const copy = (char *)malloc(size + 2);
    tav_str_copy(copy, size + 2, text, 0xFFFFFFFF);
    return copy;
}

static int compareTexts(tav_any a, tav_any b) {
    return tav_str_compare((char const *)a, (char const *)b, 0xFFFFFFFF);
}

static tav_any sum;

static void addLength(tav_pair * pair) {
    sum += tav_str_size((char const *)pair->second);
}

static void lists(void) {
    tav_list * list = tav_list_new();
    list->deleter = &tav_any_delete;
    EXPECT(tav_list_empty(list));
    EXPECT(tav_list_push_back(list, (tav_any)copied("b")) == list);
    tav_list_push_back(list, (tav_any)copied("c"));
    tav_list_push_front(list, (tav_any)copied("a"));
    EXPECT(tav_list_size(list) == 3);
    EXPECT(strcmp((char const *)tav_list_front(list)->data, "a") == 0);
    EXPECT(strcmp((char const *)tav_list_back(list)->data, "c") == 0);
    EXPECT(tav_list_next(tav_list_back(list)) == list);
    EXPECT(tav_list_clear(list) == 3);
    tav_list_delete(&list);
    EXPECT(list == NULL);
}

static void maps(void) {
    tav_map * map = tav_map_new();
    tav_map * moved;
    tav_any value;
    char key[] = "two";
    map->compare = &compareTexts;
    tav_map_insert(map, (tav_any)copied("two"), (tav_any)copied("22"));
    tav_map_insert(map, (tav_any)copied("one"), (tav_any)copied("1"));
    tav_map_insert(map, (tav_any)copied("zoo"), (tav_any)copied("333"));
    EXPECT(tav_map_size(map) == 3);
    tav_map_foreach(map, &addLength);
    EXPECT(sum == 6);
    EXPECT(tav_map_find(map, (tav_any)key) == map);
    tav_map_erase(&map->left);
    EXPECT(map->left == NULL);
    moved = map->right;
    value = tav_map_remove(map, (tav_any)key);
    EXPECT(value != 0 && strcmp((char const *)value, "22") == 0);
    free((void *)value);
    free(moved); /* removing a root with children leaves this one node behind */
    EXPECT(tav_map_find(map, (tav_any)key) == NULL);
    tav_map_delete(&map);
    EXPECT(map == NULL);
}

static void pairsAndValues(void) {
    tav_pair * pair = tav_pair_new_((tav_any)copied("k"), (tav_any)copied("v"));
    char bytes[3] = "ab";
    tav_array array;
    EXPECT(strcmp((char const *)pair->first, "k") == 0);
    tav_pair_delete(&pair);
    EXPECT(pair == NULL);
    EXPECT(tav_array_(&array, bytes, 2)->capacity == 2);
    EXPECT(tav_bytes_(bytes, 0).data == NULL);
    EXPECT(tav_slice_(bytes, 2).size == 2);
    EXPECT(tav_optional_(5, 1).present == 1);
    EXPECT(tav_pair_(1, 2).second == 2);
    EXPECT(tav_datetime_(1, 1) == 0x100000001ll);
    EXPECT(tav_enum_(-3) == -3);
    EXPECT(tav_string_(bytes) == bytes);
}

static void texts(void) {
    char const * text = "hello";
    char const * none = NULL;
    char out[8];
    wchar_t wide[8];
    EXPECT(tav_str_size(text) == 5);
    EXPECT(tav_str_size(none) == 0);
    EXPECT(tav_str_equals(text, "hello"));
    EXPECT(tav_str_starts_with(text, "he"));
    EXPECT(tav_str_compare("a", "b", 1) < 0);
    EXPECT(tav_string_size(&text) == 5);
    EXPECT(tav_string_is_empty(&none));
    EXPECT(tav_string_to_array(&text, out, sizeof out) == 5);
    EXPECT(strcmp(out, "hello") == 0);
    EXPECT(tav_u8string_compare(&text, &text) == 0);
    EXPECT(tav_wstr_copy(wide, 8, L"wide", 0xFFFFFFFF) == 4);
    EXPECT(tav_wstr_equals(wide, L"wide"));
}

static void process(void) {
    tav_init();
    tav_log_setup("(default(WARN))");
    tav_log_info_("not written", __FILE__, __LINE__, "process");
    EXPECT(!tav_kbhit());
    EXPECT(tav_process_id() == (unsigned)getpid());
    tav_sleep(1);
    tav_fini();
}

int main(void) {
    lists();
    maps();
    pairsAndValues();
    texts();
    process();
    return failures == 0 ? 0 : 1;
}
