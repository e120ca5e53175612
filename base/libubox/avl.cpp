// Balanced tree of leaders. A leader's equals are in the list only, right after it, so they do not add to the tree's
// height.
#include <libubox/avl-cmp.h>
#include <libubox/avl.h>
#include <libubox/blob.h>

#include <algorithm>
#include <cstring>

namespace {

// Both sides are handled by the same code: `right` says which one, and weighs +1 or -1 in the balance.
avl_node *&child(avl_node *node, bool right) { return right ? node->right : node->left; }
int weight(bool right) { return right ? 1 : -1; }

avl_node *outermost(avl_node *node, bool right) {
    while (avl_node *next = child(node, right)) node = next;
    return node;
}

// The leader that follows in key order, or null.
avl_node *next_leader(avl_node *node) {
    if (node->right) return outermost(node->right, false);
    while (node->parent && node->parent->right == node) node = node->parent;
    return node->parent;
}

avl_node *node_of(list_head *list) { return list_entry(list, avl_node, list); }

// Where the list continues after a leader and its equals.
list_head *behind_equals(avl_tree *tree, avl_node *leader) {
    avl_node *next = next_leader(leader);
    return next ? &next->list : &tree->list_head;
}

// Puts `node`, which may be null, in the place of `old`.
void replace(avl_tree *tree, avl_node *old, avl_node *node) {
    if (!old->parent)
        tree->root = node;
    else
        child(old->parent, old->parent->right == old) = node;
    if (node) node->parent = old->parent;
}

// Lifts the child of `node` on side `right` into its place.
avl_node *rotate(avl_tree *tree, avl_node *node, bool right) {
    avl_node *top = child(node, right);
    replace(tree, node, top);
    avl_node *middle = child(top, !right);
    child(node, right) = middle;
    if (middle) middle->parent = node;
    child(top, !right) = node;
    node->parent = top;
    return top;
}

// Rebalances a node whose balance is 2 or -2; returns the new top of its subtree.
avl_node *rebalance(avl_tree *tree, avl_node *node) {
    const bool right = node->balance > 0;
    const int heavy = weight(right);
    avl_node *side = child(node, right);

    if (side->balance == -heavy) {
        avl_node *inner = child(side, !right);
        const int lean = inner->balance;
        rotate(tree, side, !right);
        rotate(tree, node, right);
        node->balance = static_cast<signed char>(lean == heavy ? -heavy : 0);
        side->balance = static_cast<signed char>(lean == -heavy ? heavy : 0);
        inner->balance = 0;
        return inner;
    }
    rotate(tree, node, right);
    node->balance = static_cast<signed char>(heavy - side->balance);
    side->balance = static_cast<signed char>(side->balance - heavy);
    return side;
}

void tip(avl_node *node, int by) { node->balance = static_cast<signed char>(node->balance + by); }

// The subtree of `node` has grown by one level.
void grown(avl_tree *tree, avl_node *node) {
    for (avl_node *parent = node->parent; parent; node = parent, parent = node->parent) {
        tip(parent, weight(parent->right == node));
        if (parent->balance == 0) return;
        if (parent->balance == 2 || parent->balance == -2) {
            rebalance(tree, parent);
            return;
        }
    }
}

// The subtree on side `right` of `parent`, which may be null, has shrunk by one level.
void shrunk(avl_tree *tree, avl_node *parent, bool right) {
    while (parent) {
        tip(parent, -weight(right));
        if (parent->balance == 1 || parent->balance == -1) return;
        if (parent->balance != 0) {
            parent = rebalance(tree, parent);
            if (parent->balance != 0) return;
        }
        avl_node *above = parent->parent;
        right = above && above->right == parent;
        parent = above;
    }
}

void unlink_leader(avl_tree *tree, avl_node *node) {
    if (!node->left || !node->right) {
        avl_node *parent = node->parent;
        const bool right = parent && parent->right == node;
        replace(tree, node, node->left ? node->left : node->right);
        shrunk(tree, parent, right);
        return;
    }

    // The next leader has no left child: it leaves its place and takes this one.
    avl_node *next = outermost(node->right, false);
    const bool direct = next->parent == node;
    avl_node *parent = direct ? next : next->parent;
    if (!direct) {
        replace(tree, next, next->right);
        next->right = node->right;
        next->right->parent = next;
    }
    next->left = node->left;
    next->left->parent = next;
    next->balance = node->balance;
    replace(tree, node, next);
    shrunk(tree, parent, direct);
}

// The first equal of a leader takes its place in the tree.
void promote(avl_tree *tree, avl_node *leader, avl_node *equal) {
    equal->leader = true;
    equal->balance = leader->balance;
    equal->left = leader->left;
    equal->right = leader->right;
    if (equal->left) equal->left->parent = equal;
    if (equal->right) equal->right->parent = equal;
    replace(tree, leader, equal);
}

} // namespace

void avl_init(avl_tree *tree, avl_tree_comp comp, bool allow_dups, void *cmp_ptr) {
    INIT_LIST_HEAD(&tree->list_head);
    tree->root = nullptr;
    tree->count = 0;
    tree->allow_dups = allow_dups;
    tree->comp = comp;
    tree->cmp_ptr = cmp_ptr;
}

int avl_insert(avl_tree *tree, avl_node *node) {
    avl_node *parent = nullptr;
    int diff = 0;
    for (avl_node *next = tree->root; next; next = child(parent, diff > 0)) {
        parent = next;
        diff = tree->comp(node->key, parent->key, tree->cmp_ptr);
        if (diff == 0) break;
    }

    node->parent = node->left = node->right = nullptr;
    node->balance = 0;
    node->leader = !parent || diff != 0;
    if (!node->leader && !tree->allow_dups) return -1;

    ++tree->count;
    if (!parent) {
        tree->root = node;
        list_add(&node->list, &tree->list_head);
        return 0;
    }
    list_add_tail(&node->list, diff < 0 ? &parent->list : behind_equals(tree, parent));
    if (node->leader) {
        node->parent = parent;
        child(parent, diff > 0) = node;
        grown(tree, node);
    }
    return 0;
}

void avl_delete(avl_tree *tree, avl_node *node) {
    if (node->leader) {
        list_head *behind = node->list.next;
        if (behind != &tree->list_head && !node_of(behind)->leader)
            promote(tree, node, node_of(behind));
        else
            unlink_leader(tree, node);
    }
    --tree->count;
    list_del(&node->list);
}

avl_node *avl_find(const avl_tree *tree, const void *key) {
    avl_node *node = tree->root;
    while (node) {
        const int diff = tree->comp(key, node->key, tree->cmp_ptr);
        if (diff == 0) break;
        node = child(node, diff > 0);
    }
    return node;
}

avl_node *avl_find_lessequal(const avl_tree *tree, const void *key) {
    avl_node *best = nullptr;
    for (avl_node *node = tree->root; node;) {
        const int diff = tree->comp(key, node->key, tree->cmp_ptr);
        if (diff >= 0) best = node;
        if (diff == 0) break;
        node = child(node, diff > 0);
    }
    if (!best) return nullptr;
    avl_node *next = next_leader(best);
    return node_of(next ? next->list.prev : tree->list_head.prev);
}

avl_node *avl_find_greaterequal(const avl_tree *tree, const void *key) {
    avl_node *best = nullptr;
    for (avl_node *node = tree->root; node;) {
        const int diff = tree->comp(key, node->key, tree->cmp_ptr);
        if (diff <= 0) best = node;
        if (diff == 0) break;
        node = child(node, diff > 0);
    }
    return best;
}

int avl_strcmp(const void *k1, const void *k2, void *) {
    return std::strcmp(static_cast<const char *>(k1), static_cast<const char *>(k2));
}

int avl_blobcmp(const void *k1, const void *k2, void *) {
    const auto *a = static_cast<const blob_attr *>(k1);
    const auto *b = static_cast<const blob_attr *>(k2);
    return std::memcmp(a, b, std::min(blob_raw_len(a), blob_raw_len(b)));
}
