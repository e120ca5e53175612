#include <gtest/gtest.h>
#include <libubox/list.h>

#include <string>

namespace {

struct entry {
    char name;
    list_head list;
};

class list : public testing::Test {
protected:
    void fill(std::initializer_list<entry *> entries, list_head *to) {
        for (entry *e : entries) list_add_tail(&e->list, to);
    }

    std::string names(list_head *of) {
        std::string s;
        entry *e;
        list_for_each_entry (e, of, list) s += e->name;
        std::string back;
        list_for_each_entry_reverse(e, of, list) back += e->name;
        EXPECT_EQ(std::string(back.rbegin(), back.rend()), s) << "forward and backward links differ";
        return s;
    }

    LIST_HEAD(head);
    LIST_HEAD(other);
    entry a{'a', {}}, b{'b', {}}, c{'c', {}}, d{'d', {}};
};

TEST_F(list, starts_empty_and_points_to_itself) {
    EXPECT_TRUE(list_empty(&head));
    EXPECT_EQ(head.next, &head);
    EXPECT_EQ(head.prev, &head);
    EXPECT_EQ(names(&head), "");
}

TEST_F(list, add_inserts_first_and_add_tail_last) {
    list_add(&b.list, &head);
    list_add(&a.list, &head);
    list_add_tail(&c.list, &head);
    EXPECT_EQ(names(&head), "abc");
    EXPECT_TRUE(list_is_first(&a.list, &head));
    EXPECT_TRUE(list_is_last(&c.list, &head));
    EXPECT_FALSE(list_is_first(&b.list, &head));
    EXPECT_FALSE(list_is_last(&b.list, &head));
}

TEST_F(list, add_tail_to_an_entry_puts_right_before_it) {
    fill({&a, &c}, &head);
    list_add_tail(&b.list, &c.list);
    EXPECT_EQ(names(&head), "abc");
}

TEST_F(list, del_unlinks_and_clears_the_pointers) {
    fill({&a, &b, &c}, &head);
    list_del(&b.list);
    EXPECT_EQ(names(&head), "ac");
    EXPECT_EQ(b.list.next, nullptr);
    EXPECT_EQ(b.list.prev, nullptr);
}

TEST_F(list, del_init_makes_the_entry_an_empty_list) {
    fill({&a, &b}, &head);
    list_del_init(&a.list);
    EXPECT_EQ(names(&head), "b");
    EXPECT_TRUE(list_empty(&a.list));
    list_del_init(&a.list); // harmless
    EXPECT_EQ(names(&head), "b");
}

TEST_F(list, raw_unlinking_leaves_the_entrys_pointers) {
    fill({&a, &b, &c}, &head);
    _list_del(&b.list);
    EXPECT_EQ(b.list.prev, &a.list);
    EXPECT_EQ(b.list.next, &c.list);
}

TEST_F(list, move_takes_an_entry_to_the_other_list) {
    fill({&a, &b}, &head);
    fill({&c}, &other);
    list_move(&a.list, &other);
    list_move_tail(&b.list, &other);
    EXPECT_EQ(names(&other), "acb");
    EXPECT_TRUE(list_empty(&head));
}

TEST_F(list, splice_moves_all_entries_to_the_front) {
    fill({&a, &b}, &head);
    fill({&c, &d}, &other);
    list_splice(&other, &head);
    EXPECT_EQ(names(&head), "cdab");
}

TEST_F(list, splice_tail_moves_all_entries_to_the_end) {
    fill({&a, &b}, &head);
    fill({&c, &d}, &other);
    list_splice_tail(&other, &head);
    EXPECT_EQ(names(&head), "abcd");
}

TEST_F(list, splice_init_leaves_the_source_empty) {
    fill({&a}, &head);
    fill({&b, &c}, &other);
    list_splice_tail_init(&other, &head);
    EXPECT_EQ(names(&head), "abc");
    EXPECT_TRUE(list_empty(&other));
    list_splice_init(&other, &head);
    EXPECT_EQ(names(&head), "abc");
}

TEST_F(list, safe_walk_survives_the_removal_of_the_current_entry) {
    fill({&a, &b, &c}, &head);
    std::string seen;
    entry *e;
    entry *next;
    list_for_each_entry_safe (e, next, &head, list) {
        seen += e->name;
        list_del(&e->list);
    }
    EXPECT_EQ(seen, "abc");
    EXPECT_TRUE(list_empty(&head));
}

TEST_F(list, safe_walks_over_bare_links_survive_removal_both_ways) {
    fill({&a, &b, &c}, &head);
    list_head *p;
    list_head *n;
    list_for_each_safe (p, n, &head) {
        if (p == &b.list) list_del(p);
    }
    EXPECT_EQ(names(&head), "ac");
    list_for_each_prev_safe(p, n, &head) list_del(p);
    EXPECT_TRUE(list_empty(&head));
}

TEST_F(list, walks_over_bare_links_go_both_ways) {
    fill({&a, &b, &c}, &head);
    std::string seen;
    list_head *p;
    list_for_each (p, &head) seen += list_entry(p, entry, list)->name;
    list_for_each_prev(p, &head) seen += list_entry(p, entry, list)->name;
    EXPECT_EQ(seen, "abccba");
}

TEST_F(list, continued_walks_start_after_and_before_the_given_entry) {
    fill({&a, &b, &c, &d}, &head);
    std::string seen;
    entry *e = &b;
    list_for_each_entry_continue(e, &head, list) seen += e->name;
    EXPECT_EQ(seen, "cd");
    seen.clear();
    e = &c;
    list_for_each_entry_continue_reverse(e, &head, list) seen += e->name;
    EXPECT_EQ(seen, "ba");
}

TEST_F(list, neighbours_and_ends_are_found) {
    fill({&a, &b, &c}, &head);
    EXPECT_EQ(list_first_entry(&head, entry, list), &a);
    EXPECT_EQ(list_last_entry(&head, entry, list), &c);
    entry *e = &b;
    EXPECT_EQ(list_next_entry(e, list), &c);
    EXPECT_EQ(list_prev_entry(e, list), &a);
}

TEST(container_of_macro, gives_the_struct_around_a_member_also_when_nested) {
    struct outer {
        int before;
        entry inner;
    } o{};
    EXPECT_EQ(container_of(container_of(&o.inner.list, entry, list), outer, inner), &o);
    const list_head *link = &o.inner.list;
    EXPECT_EQ(container_of(link, entry, list), &o.inner);
}

TEST(container_of_macro, safe_one_gives_null_for_null) {
    entry e{};
    list_head *none = nullptr;
    EXPECT_EQ(container_of_safe(none, entry, list), nullptr);
    EXPECT_EQ(container_of_safe(&e.list, entry, list), &e);
}

} // namespace
