// avl.h - balanced binary tree, embedded in the structs that it orders, with a sorted list through all of
// them.
//
// Nothing is allocated. The caller sets node->key before insertion and keeps key and node alive while in the
// tree. The order of fields is part of the interface: other libraries embed these structs by value.
#ifndef LIBUBOX_AVL_H
#define LIBUBOX_AVL_H

#include <stdbool.h>
#include <stddef.h>

#include "list.h"

#define EXPORT(sym) sym

BASE_DECLS_BEGIN

struct avl_node {
    struct list_head list;   // in key order; must be first
    struct avl_node *parent; // NULL at the root
    struct avl_node *left;
    struct avl_node *right;
    const void *key;
    signed char balance; // height of the right subtree minus height of the left one
    bool leader;         // first of its equals; only leaders are linked in the tree
};

// The sign of k1 - k2. `ptr` is the tree's cmp_ptr.
typedef int (*avl_tree_comp)(const void *k1, const void *k2, void *ptr);

enum avl_find_mode { AVL_FIND_EQUAL, AVL_FIND_LESSEQUAL, AVL_FIND_GREATEREQUAL };

struct avl_tree {
    struct list_head list_head;
    struct avl_node *root;
    unsigned int count; // nodes, equals included
    bool allow_dups;
    avl_tree_comp comp;
    void *cmp_ptr;
};

#define AVL_TREE_INIT(_name, _comp, _allow_dups, _cmp_ptr)                                                   \
    {                                                                                                        \
        .list_head = LIST_HEAD_INIT(_name.list_head), .root = NULL, .count = 0, .allow_dups = _allow_dups,   \
        .comp = _comp, .cmp_ptr = _cmp_ptr                                                                   \
    }
#define AVL_TREE(_name, _comp, _allow_dups, _cmp_ptr)                                                        \
    struct avl_tree _name = AVL_TREE_INIT(_name, _comp, _allow_dups, _cmp_ptr)

// Makes an empty tree.
void avl_init(struct avl_tree *tree, avl_tree_comp comp, bool allow_dups, void *cmp_ptr);

// Inserts by node->key. 0, or -1 when the key is there already and the tree takes no duplicates: the tree is
// then unchanged, the node's links are not. Equal keys keep the order of their insertion.
int avl_insert(struct avl_tree *tree, struct avl_node *node);

// Removes a node that is in the tree; its list pointers become NULL.
void avl_delete(struct avl_tree *tree, struct avl_node *node);

// The node of that key (of equals, the first), or NULL.
struct avl_node *avl_find(const struct avl_tree *tree, const void *key);

// The last node whose key is not above the given one, or NULL.
struct avl_node *avl_find_lessequal(const struct avl_tree *tree, const void *key);

// The first node whose key is not below the given one, or NULL.
struct avl_node *avl_find_greaterequal(const struct avl_tree *tree, const void *key);

static inline bool avl_is_first(struct avl_tree *tree, struct avl_node *node) {
    return tree->list_head.next == &node->list;
}

static inline bool avl_is_last(struct avl_tree *tree, struct avl_node *node) {
    return tree->list_head.prev == &node->list;
}

static inline bool avl_is_empty(struct avl_tree *tree) { return tree->count == 0; }

// The struct that contains the found node `offset` bytes from its start, or NULL.
static inline void *__avl_find_element(const struct avl_tree *tree, const void *key, size_t offset,
                                       enum avl_find_mode mode) {
    struct avl_node *node = NULL;
    switch (mode) {
    case AVL_FIND_EQUAL: node = avl_find(tree, key); break;
    case AVL_FIND_LESSEQUAL: node = avl_find_lessequal(tree, key); break;
    case AVL_FIND_GREATEREQUAL: node = avl_find_greaterequal(tree, key); break;
    }
    return node ? (char *)node - offset : NULL;
}

BASE_DECLS_END

// clang-format off
#define __avl_find_as(tree, key, element, node_member, mode) \
    ((__typeof__(*(element)) *)__avl_find_element(tree, key, offsetof(__typeof__(*(element)), node_member), mode))
#define avl_find_element(tree, key, element, node_member) \
    __avl_find_as(tree, key, element, node_member, AVL_FIND_EQUAL)
#define avl_find_le_element(tree, key, element, node_member) \
    __avl_find_as(tree, key, element, node_member, AVL_FIND_LESSEQUAL)
#define avl_find_ge_element(tree, key, element, node_member) \
    __avl_find_as(tree, key, element, node_member, AVL_FIND_GREATEREQUAL)

// Ends of the tree, neighbours in it. Nothing is checked: the tree is not empty, the neighbour exists.
#define avl_first_element(tree, element, node_member) \
    list_first_entry(&(tree)->list_head, __typeof__(*(element)), node_member.list)
#define avl_last_element(tree, element, node_member) \
    list_last_entry(&(tree)->list_head, __typeof__(*(element)), node_member.list)
#define avl_next_element(element, node_member) list_next_entry(element, node_member.list)
#define avl_prev_element(element, node_member) list_prev_entry(element, node_member.list)

// Walks in key order, or against it. `element` and `ptr` are variables of the caller. No removal inside, except of the
// current element in the safe ones.
#define avl_for_each_element(tree, element, node_member) \
    list_for_each_entry(element, &(tree)->list_head, node_member.list)
#define avl_for_each_element_reverse(tree, element, node_member) \
    list_for_each_entry_reverse(element, &(tree)->list_head, node_member.list)
#define avl_for_each_element_safe(tree, element, node_member, ptr) \
    list_for_each_entry_safe(element, ptr, &(tree)->list_head, node_member.list)
#define avl_for_each_element_reverse_safe(tree, element, node_member, ptr) \
    for (element = avl_last_element(tree, element, node_member), ptr = avl_prev_element(element, node_member); \
         !list_entry_is_h(element, &(tree)->list_head, node_member.list); \
         element = ptr, ptr = avl_prev_element(ptr, node_member))

// From one element to another, both included.
#define avl_for_element_range(first, last, element, node_member) \
    for (element = (first); element->node_member.list.prev != &(last)->node_member.list; \
         element = avl_next_element(element, node_member))
#define avl_for_element_range_reverse(first, last, element, node_member) \
    for (element = (last); element->node_member.list.next != &(first)->node_member.list; \
         element = avl_prev_element(element, node_member))
#define avl_for_element_to_last(tree, first, element, node_member) \
    for (element = (first); !list_entry_is_h(element, &(tree)->list_head, node_member.list); \
         element = avl_next_element(element, node_member))
#define avl_for_element_to_last_reverse(tree, first, element, node_member) \
    avl_for_element_range_reverse(first, avl_last_element(tree, element, node_member), element, node_member)
#define avl_for_first_to_element(tree, last, element, node_member) \
    avl_for_element_range(avl_first_element(tree, element, node_member), last, element, node_member)
#define avl_for_first_to_element_reverse(tree, last, element, node_member) \
    for (element = (last); !list_entry_is_h(element, &(tree)->list_head, node_member.list); \
         element = avl_prev_element(element, node_member))

// The same with removal of the current element. The end is fixed beforehand: `last` itself may be removed.
#define avl_for_element_range_safe(first, last, element, node_member, ptr) \
    for (__typeof__(element) __end_##element = \
             (element = (first), ptr = avl_next_element(element, node_member), avl_next_element(last, node_member)); \
         element != __end_##element; element = ptr, ptr = avl_next_element(ptr, node_member))
#define avl_for_element_range_reverse_safe(first, last, element, node_member, ptr) \
    for (__typeof__(element) __end_##element = \
             (element = (last), ptr = avl_prev_element(element, node_member), avl_prev_element(first, node_member)); \
         element != __end_##element; element = ptr, ptr = avl_prev_element(ptr, node_member))

// Empties the tree at once, then visits what was in it, in order. The body frees the element; it must neither call
// avl_delete() nor leave the loop.
#define avl_remove_all_elements(tree, element, node_member, ptr) \
    for (element = avl_first_element(tree, element, node_member), ptr = avl_next_element(element, node_member), \
         INIT_LIST_HEAD(&(tree)->list_head), (tree)->root = NULL, (tree)->count = 0; \
         !list_entry_is_h(element, &(tree)->list_head, node_member.list); \
         element = ptr, ptr = avl_next_element(ptr, node_member))
// clang-format on

#endif
