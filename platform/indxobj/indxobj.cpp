// SPDX-License-Identifier: Apache-2.0
// Keyed lists on the C library's balanced trees.
//
// One kind of list exists here: ordered, each key once. A key that the list already
// holds is refused, so that an entry is never lost from sight by being replaced.
#include "indxobj.h"

#include <cstdlib>
#include <search.h>

namespace {

struct tree {
    indxobj_comparator comparator;
    void *root;
};

// One entry. The tree functions hand nothing but two entries to the comparison, so
// each knows its tree.
struct node {
    const tree *owner;
    const void *key;
    void *data;
};

tree *tree_of(indxobj_list *list) {
    return list == nullptr ? nullptr : static_cast<tree *>(list->impl);
}

int compare_nodes(const void *a, const void *b) {
    const node *first = static_cast<const node *>(a);
    const node *second = static_cast<const node *>(b);
    return first->owner->comparator(first->key, second->key);
}

// The entry of a key, or null.
node *find_node(tree *where, const void *key) {
    const node probe = {where, key, nullptr};
    void *found = tfind(&probe, &where->root, compare_nodes);
    return found == nullptr ? nullptr : *static_cast<node **>(found);
}

} // namespace

int indxobj_create(indxobj_list *list, int base, int unique, indxobj_comparator comparator, int ordered) {
    if (list == nullptr || comparator == nullptr || base != 0 || unique != 1 || ordered != 1) {
        return 0;
    }
    if (list->impl != nullptr) {
        return INDXOBJ_CREATED;
    }
    tree *made = static_cast<tree *>(malloc(sizeof(tree)));
    if (made == nullptr) {
        return 0;
    }
    *made = {comparator, nullptr};
    list->impl = made;
    return INDXOBJ_CREATED;
}

int indxobj_add(indxobj_list *list, const void *key, void *data) {
    tree *where = tree_of(list);
    if (where == nullptr || key == nullptr || data == nullptr) {
        return 0;
    }
    node *added = static_cast<node *>(malloc(sizeof(node)));
    if (added == nullptr) {
        return 0;
    }
    *added = {where, key, data};
    void *slot = tsearch(added, &where->root, compare_nodes);
    if (slot == nullptr || *static_cast<node **>(slot) != added) {
        free(added);
        return 0;
    }
    return 1;
}

void *indxobj_find(indxobj_list *list, const void *key, int) {
    tree *where = tree_of(list);
    const node *found = where == nullptr ? nullptr : find_node(where, key);
    return found == nullptr ? nullptr : found->data;
}

void *indxobj_remove(indxobj_list *list, const void *key) {
    tree *where = tree_of(list);
    node *found = where == nullptr ? nullptr : find_node(where, key);
    if (found == nullptr) {
        return nullptr;
    }
    void *data = found->data;
    tdelete(found, &where->root, compare_nodes);
    free(found);
    return data;
}

void indxobj_destroy(indxobj_list *list) {
    tree *where = tree_of(list);
    if (where == nullptr) {
        return;
    }
    tdestroy(where->root, free);
    free(where);
    list->impl = nullptr;
}
