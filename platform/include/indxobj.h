/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Keyed object lists: ordered collections of pointers, looked up by a key that a
 * comparator of the caller understands. Keys and data stay the caller's; the
 * library never copies or frees them.
 */
#ifndef PLATFORM_INDXOBJ_H
#define PLATFORM_INDXOBJ_H

#ifdef __cplusplus
extern "C" {
#endif

/* The result of a successful indxobj_create. */
#define INDXOBJ_CREATED 2

/* Compares two keys: 0 when equal, otherwise the sign orders them. */
typedef int (*indxobj_comparator)(const void *a, const void *b);

/* One list. The caller provides the storage, zeroed before the first create; its
 * content belongs to the library. Relied on: that it is one pointer, of which the
 * functions get the address. */
typedef struct indxobj_list {
    void *impl;
} indxobj_list;

/*
 * Makes an empty list in *list. `base`, `unique` and `ordered` select the kind of
 * list; callers pass 0, 1 and 1. An empty list may be
 * created again (the caller may be initialised twice) and is then empty and usable;
 * whether it is the former one makes no difference.
 *
 * Returns INDXOBJ_CREATED on success, the second one included, any other value on
 * failure.
 */
int indxobj_create(indxobj_list *list, int base, int unique, indxobj_comparator comparator, int ordered);

/*
 * Adds `data` under `key`. Both must stay valid and unchanged while they are listed.
 * What becomes of a key that the list already holds is not settled by this
 * interface: callers look before they add.
 *
 * Returns nonzero on success, 0 when nothing was added.
 */
int indxobj_add(indxobj_list *list, const void *key, void *data);

/* Returns the data stored under a key equal to `key`, or null. `flags` is 0. The
 * data stays on the list. */
void *indxobj_find(indxobj_list *list, const void *key, int flags);

/* Unlinks the entry of `key` and returns its data, which the caller now owns
 * again, or null when there is none. */
void *indxobj_remove(indxobj_list *list, const void *key);

/* Destroys the list, not the data still on it. Relied on: a list that was never
 * created, or was destroyed before, is left alone. */
void indxobj_destroy(indxobj_list *list);

#ifdef __cplusplus
}
#endif

#endif
