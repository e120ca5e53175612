#include <gtest/gtest.h>
#include <libubox/avl-cmp.h>
#include <libubox/avl.h>
#include <libubox/blob.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

struct item {
    int tag;
    avl_node node;
    int key;
};

int compare_ints(const void *k1, const void *k2, void *) {
    const int a = *static_cast<const int *>(k1);
    const int b = *static_cast<const int *>(k2);
    return a < b ? -1 : a > b;
}

// Height of a subtree, after a look at balance, order and links of each node in it.
int sound_height(const avl_node *node, const avl_node *parent) {
    if (!node) return 0;
    EXPECT_EQ(node->parent, parent);
    EXPECT_TRUE(node->leader);
    if (node->left) {
        EXPECT_LT(compare_ints(node->left->key, node->key, nullptr), 0);
    }
    if (node->right) {
        EXPECT_GT(compare_ints(node->right->key, node->key, nullptr), 0);
    }
    const int left = sound_height(node->left, node);
    const int right = sound_height(node->right, node);
    EXPECT_EQ(node->balance, right - left);
    EXPECT_LE(std::abs(right - left), 1);
    return 1 + std::max(left, right);
}

class avl : public testing::Test {
protected:
    item &add(avl_tree &tree, int key) {
        items.push_back(std::make_unique<item>());
        item &i = *items.back();
        i.tag = static_cast<int>(items.size());
        i.key = key;
        i.node.key = &i.key;
        result = avl_insert(&tree, &i.node);
        return i;
    }

    // "key:tag" of each element, in order.
    static std::string content(avl_tree &tree) {
        std::string s;
        item *i;
        avl_for_each_element (&tree, i, node)
            s += std::to_string(i->key) + ":" + std::to_string(i->tag) + " ";
        return s;
    }

    static std::string keys(avl_tree &tree) {
        std::string s;
        item *i;
        avl_for_each_element (&tree, i, node) s += std::to_string(i->key) + " ";
        return s;
    }

    static int find(avl_tree &tree, int key) {
        const item *i = nullptr;
        i = avl_find_element(&tree, &key, i, node);
        return i ? i->tag : 0;
    }
    static int find_le(avl_tree &tree, int key) {
        const item *i = nullptr;
        i = avl_find_le_element(&tree, &key, i, node);
        return i ? i->tag : 0;
    }
    static int find_ge(avl_tree &tree, int key) {
        const item *i = nullptr;
        i = avl_find_ge_element(&tree, &key, i, node);
        return i ? i->tag : 0;
    }

    std::deque<std::unique_ptr<item>> items;
    int result = 0;
    AVL_TREE(unique, compare_ints, false, nullptr);
    AVL_TREE(multi, compare_ints, true, nullptr);
};

TEST_F(avl, empty_tree_finds_nothing_and_walks_nowhere) {
    EXPECT_TRUE(avl_is_empty(&unique));
    EXPECT_EQ(find(unique, 1), 0);
    EXPECT_EQ(find_le(unique, 1), 0);
    EXPECT_EQ(find_ge(unique, 1), 0);
    EXPECT_EQ(content(unique), "");
    item *i;
    item *next;
    avl_for_each_element_reverse(&unique, i, node) ADD_FAILURE();
    avl_for_each_element_safe (&unique, i, node, next) ADD_FAILURE();
    avl_for_each_element_reverse_safe(&unique, i, node, next) ADD_FAILURE();
    avl_remove_all_elements (&unique, i, node, next) ADD_FAILURE();
}

TEST_F(avl, elements_come_in_key_order) {
    for (const int key : {5, 1, 4, 2, 3}) add(unique, key);
    EXPECT_EQ(content(unique), "1:2 2:4 3:5 4:3 5:1 ");
    EXPECT_EQ(unique.count, 5u);
    EXPECT_TRUE(avl_is_first(&unique, &items[1]->node));
    EXPECT_TRUE(avl_is_last(&unique, &items[0]->node));
}

TEST_F(avl, an_equal_key_is_refused_without_duplicates) {
    add(unique, 7);
    add(unique, 7);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(content(unique), "7:1 ");
    EXPECT_EQ(unique.count, 1u);
}

TEST_F(avl, equal_keys_keep_the_order_of_insertion_and_the_first_leads) {
    for (const int key : {2, 1, 2, 3, 2, 1}) add(multi, key);
    EXPECT_EQ(content(multi), "1:2 1:6 2:1 2:3 2:5 3:4 ");
    EXPECT_EQ(multi.count, 6u);
    EXPECT_EQ(find(multi, 2), 1);
    EXPECT_EQ(find_le(multi, 2), 5) << "the last of the equals";
    EXPECT_EQ(find_ge(multi, 2), 1) << "the first of the equals";
    EXPECT_TRUE(items[0]->node.leader);
    EXPECT_FALSE(items[2]->node.leader);
}

TEST_F(avl, deletion_of_the_leader_makes_the_next_equal_lead) {
    for (const int key : {2, 2, 2, 1}) add(multi, key);
    avl_delete(&multi, &items[0]->node);
    EXPECT_EQ(items[0]->node.list.next, nullptr);
    EXPECT_EQ(items[0]->node.list.prev, nullptr);
    EXPECT_EQ(content(multi), "1:4 2:2 2:3 ");
    EXPECT_EQ(find(multi, 2), 2);
    EXPECT_TRUE(items[1]->node.leader);
    avl_delete(&multi, &items[2]->node); // not the leader
    avl_delete(&multi, &items[1]->node); // the only one left
    EXPECT_EQ(content(multi), "1:4 ");
    EXPECT_EQ(find(multi, 2), 0);
}

TEST_F(avl, nearest_keys_are_found_between_the_stored_ones) {
    for (const int key : {10, 20, 30}) add(unique, key);
    EXPECT_EQ(find_le(unique, 9), 0);
    EXPECT_EQ(find_le(unique, 10), 1);
    EXPECT_EQ(find_le(unique, 29), 2);
    EXPECT_EQ(find_le(unique, 99), 3);
    EXPECT_EQ(find_ge(unique, 1), 1);
    EXPECT_EQ(find_ge(unique, 11), 2);
    EXPECT_EQ(find_ge(unique, 30), 3);
    EXPECT_EQ(find_ge(unique, 31), 0);
}

TEST_F(avl, partial_walks_include_both_ends) {
    for (int key = 1; key <= 5; ++key) add(unique, key);
    item *first = items[1].get();
    item *last = items[3].get();
    item *i;
    item *next;
    std::string seen;
    const auto see = [&] { seen += std::to_string(i->key); };
    avl_for_element_range(first, last, i, node) see();
    seen += ' ';
    avl_for_element_range_reverse(first, last, i, node) see();
    seen += ' ';
    avl_for_element_to_last(&unique, first, i, node) see();
    seen += ' ';
    avl_for_element_to_last_reverse(&unique, first, i, node) see();
    seen += ' ';
    avl_for_first_to_element(&unique, last, i, node) see();
    seen += ' ';
    avl_for_first_to_element_reverse(&unique, last, i, node) see();
    EXPECT_EQ(seen, "234 432 2345 5432 1234 4321");

    seen.clear();
    avl_for_element_range_safe(first, last, i, node, next) {
        see();
        avl_delete(&unique, &i->node);
    }
    EXPECT_EQ(seen, "234");
    EXPECT_EQ(keys(unique), "1 5 ");
}

TEST_F(avl, safe_range_walk_backward_may_remove_the_element_it_ends_at) {
    for (int key = 1; key <= 5; ++key) add(unique, key);
    item *first = items[0].get();
    item *last = items[2].get();
    item *i;
    item *next;
    avl_for_element_range_reverse_safe(first, last, i, node, next) avl_delete(&unique, &i->node);
    EXPECT_EQ(keys(unique), "4 5 ");
}

TEST_F(avl, safe_walks_may_remove_the_current_element) {
    for (int key = 1; key <= 6; ++key) add(unique, key);
    item *i;
    item *next;
    avl_for_each_element_safe (&unique, i, node, next) {
        if (i->key % 2) avl_delete(&unique, &i->node);
    }
    EXPECT_EQ(keys(unique), "2 4 6 ");
    std::string seen;
    avl_for_each_element_reverse_safe(&unique, i, node, next) {
        seen += std::to_string(i->key);
        avl_delete(&unique, &i->node);
    }
    EXPECT_EQ(seen, "642");
    EXPECT_TRUE(avl_is_empty(&unique));
}

TEST_F(avl, remove_all_visits_in_order_and_the_body_may_free) {
    avl_tree tree;
    avl_init(&tree, compare_ints, true, nullptr);
    for (const int key : {3, 1, 2, 1}) {
        auto *i = new item{0, {}, key};
        i->node.key = &i->key;
        avl_insert(&tree, &i->node);
    }
    std::string seen;
    item *i;
    item *next;
    avl_remove_all_elements (&tree, i, node, next) {
        EXPECT_TRUE(avl_is_empty(&tree));
        seen += std::to_string(i->key);
        delete i;
    }
    EXPECT_EQ(seen, "1123");
    EXPECT_EQ(tree.root, nullptr);
    EXPECT_TRUE(list_empty(&tree.list_head));
}

TEST_F(avl, stays_balanced_under_random_insertions_and_deletions) {
    for (const bool dups : {false, true}) {
        std::mt19937 random{20260101};
        avl_tree tree;
        avl_init(&tree, compare_ints, dups, nullptr);
        std::vector<item *> model; // in the order the tree should have

        for (int round = 0; round < 4000; ++round) {
            if (model.empty() || random() % 5 < 3) {
                const int key = static_cast<int>(random() % 300);
                const auto at = std::upper_bound(model.begin(), model.end(), key,
                                                 [](int k, const item *i) { return k < i->key; });
                const bool there = at != model.begin() && at[-1]->key == key;
                item &i = add(tree, key);
                ASSERT_EQ(result, there && !dups ? -1 : 0);
                if (result == 0) model.insert(at, &i);
            } else {
                const auto at = model.begin() + static_cast<std::ptrdiff_t>(random() % model.size());
                avl_delete(&tree, &(*at)->node);
                model.erase(at);
            }
            if (round % 16) continue;
            sound_height(tree.root, nullptr);
            ASSERT_EQ(tree.count, model.size());
            std::vector<item *> order;
            item *i;
            avl_for_each_element (&tree, i, node) order.push_back(i);
            ASSERT_EQ(order, model) << "round " << round;
        }
        while (!model.empty()) {
            avl_delete(&tree, &model.back()->node);
            model.pop_back();
            sound_height(tree.root, nullptr);
        }
        EXPECT_EQ(tree.root, nullptr);
    }
}

TEST_F(avl, the_comparison_gets_the_pointer_of_the_tree) {
    int calls = 0;
    avl_tree tree;
    avl_init(
        &tree,
        [](const void *k1, const void *k2, void *ptr) {
            ++*static_cast<int *>(ptr);
            return compare_ints(k1, k2, nullptr);
        },
        false, &calls);
    add(tree, 1);
    add(tree, 2);
    EXPECT_EQ(calls, 1);
}

TEST(avl_comparisons, texts_compare_as_by_strcmp) {
    EXPECT_EQ(avl_strcmp("abc", "abc", nullptr), 0);
    EXPECT_LT(avl_strcmp("abc", "abd", nullptr), 0);
    EXPECT_GT(avl_strcmp("b", "abc", nullptr), 0);
}

TEST(avl_comparisons, attributes_compare_over_the_shorter_one) {
    alignas(4) const unsigned char one[] = {5, 0, 0, 5, 'x', 0, 0, 0};
    alignas(4) const unsigned char two[] = {5, 0, 0, 5, 'y', 0, 0, 0};
    EXPECT_EQ(avl_blobcmp(one, one, nullptr), 0);
    EXPECT_LT(avl_blobcmp(one, two, nullptr), 0);
    EXPECT_GT(avl_blobcmp(two, one, nullptr), 0);
}

} // namespace
