// list.h - circular doubly linked list, embedded in the structs that it links.
//
// A head and an entry are the same struct; the head of an empty list points to itself. Nothing is allocated
// and nothing is checked: an entry is in one list at most, and the caller keeps it alive while it is.
#ifndef _LINUX_LIST_H_
#define _LINUX_LIST_H_

#include <stdbool.h>
#include <stddef.h>

#include "decls.h"

#define prefetch(x)

// The struct of `type` whose `member` is at `ptr`. The dead branch makes the compiler compare the pointer
// types.
#ifndef container_of
#define container_of(ptr, type, member)                                                                      \
    ((type *)((char *)(1 ? (ptr) : &((type *)0)->member) - offsetof(type, member)))
#endif

// The same, and NULL for NULL.
#ifndef container_of_safe
#define container_of_safe(ptr, type, member)                                                                 \
    (__extension__({                                                                                         \
        const __typeof__(((type *)0)->member) *__safe_ptr = (ptr);                                           \
        __safe_ptr ? container_of(__safe_ptr, type, member) : (type *)0;                                     \
    }))
#endif

BASE_DECLS_BEGIN

struct list_head {
    struct list_head *next;
    struct list_head *prev;
};

#define LIST_HEAD_INIT(name)                                                                                 \
    { &(name), &(name) }
#undef LIST_HEAD // some C libraries define a different one in sys/queue.h
#define LIST_HEAD(name) struct list_head name = LIST_HEAD_INIT(name)

static inline void INIT_LIST_HEAD(struct list_head *list) { list->next = list->prev = list; }

static inline bool list_empty(const struct list_head *head) { return head->next == head; }

static inline bool list_is_first(const struct list_head *entry, const struct list_head *head) {
    return entry->prev == head;
}

static inline bool list_is_last(const struct list_head *entry, const struct list_head *head) {
    return entry->next == head;
}

// Links `entry` between two neighbours.
static inline void _list_add(struct list_head *entry, struct list_head *prev, struct list_head *next) {
    entry->prev = prev;
    entry->next = next;
    prev->next = entry;
    next->prev = entry;
}

// Unlinks `entry` and leaves its own pointers as they are.
static inline void _list_del(struct list_head *entry) {
    entry->next->prev = entry->prev;
    entry->prev->next = entry->next;
}

// To the front: right after `head`.
static inline void list_add(struct list_head *entry, struct list_head *head) {
    _list_add(entry, head, head->next);
}

// To the end: right before `head`. With an entry in place of the head: right before that entry.
static inline void list_add_tail(struct list_head *entry, struct list_head *head) {
    _list_add(entry, head->prev, head);
}

// Unlinks and sets both pointers to NULL, so that a use after removal fails at once.
static inline void list_del(struct list_head *entry) {
    _list_del(entry);
    entry->next = entry->prev = NULL;
}

// Unlinks and makes the entry an empty list of its own.
static inline void list_del_init(struct list_head *entry) {
    _list_del(entry);
    INIT_LIST_HEAD(entry);
}

static inline void list_move(struct list_head *entry, struct list_head *head) {
    _list_del(entry);
    list_add(entry, head);
}

static inline void list_move_tail(struct list_head *entry, struct list_head *head) {
    _list_del(entry);
    list_add_tail(entry, head);
}

// Links the entries of `list`, which is not empty, between two neighbours.
static inline void _list_splice(const struct list_head *list, struct list_head *prev,
                                struct list_head *next) {
    list->next->prev = prev;
    list->prev->next = next;
    next->prev = list->prev;
    prev->next = list->next;
}

// Moves all entries of `list` to the front of `head`. The head `list` itself becomes invalid.
static inline void list_splice(const struct list_head *list, struct list_head *head) {
    if (!list_empty(list)) _list_splice(list, head, head->next);
}

// The same to the end of `head`.
static inline void list_splice_tail(const struct list_head *list, struct list_head *head) {
    if (!list_empty(list)) _list_splice(list, head->prev, head);
}

static inline void list_splice_init(struct list_head *list, struct list_head *head) {
    list_splice(list, head);
    INIT_LIST_HEAD(list);
}

static inline void list_splice_tail_init(struct list_head *list, struct list_head *head) {
    list_splice_tail(list, head);
    INIT_LIST_HEAD(list);
}

BASE_DECLS_END

// clang-format off
#define list_entry(ptr, type, field) container_of(ptr, type, field)
#define list_first_entry(ptr, type, field) list_entry((ptr)->next, type, field) // the list must not be empty
#define list_last_entry(ptr, type, field) list_entry((ptr)->prev, type, field)  // nor here
#define list_next_entry(pos, member) list_entry((pos)->member.next, __typeof__(*(pos)), member)
#define list_prev_entry(pos, member) list_entry((pos)->member.prev, __typeof__(*(pos)), member)

// Has the loop come back to head `h`? `p` is then not a struct of its type and must not be dereferenced.
#define list_entry_is_h(p, h, field) \
    ((const char *)(p) + offsetof(__typeof__(*(p)), field) == (const char *)(h))

// Walks. `p` and `n` are variables of the caller; `field` is the member of type struct list_head. In the safe ones
// the current entry may be unlinked or freed in the body, and the next one must stay.
#define list_for_each(p, head) for (p = (head)->next; p != (head); p = p->next)
#define list_for_each_prev(p, h) for (p = (h)->prev; p != (h); p = p->prev)
#define list_for_each_safe(p, n, head) for (p = (head)->next, n = p->next; p != (head); p = n, n = p->next)
#define list_for_each_prev_safe(p, n, h) for (p = (h)->prev, n = p->prev; p != (h); p = n, n = p->prev)

#define list_for_each_entry(p, h, field) \
    for (p = list_first_entry(h, __typeof__(*p), field); !list_entry_is_h(p, h, field); \
         p = list_next_entry(p, field))
#define list_for_each_entry_reverse(p, h, field) \
    for (p = list_last_entry(h, __typeof__(*p), field); !list_entry_is_h(p, h, field); \
         p = list_prev_entry(p, field))
#define list_for_each_entry_safe(p, n, h, field) \
    for (p = list_first_entry(h, __typeof__(*p), field), n = list_next_entry(p, field); \
         !list_entry_is_h(p, h, field); p = n, n = list_next_entry(n, field))

// They start after (before) `p`, which is an entry or the head's container.
#define list_for_each_entry_continue(p, h, field) \
    for (p = list_next_entry(p, field); !list_entry_is_h(p, h, field); p = list_next_entry(p, field))
#define list_for_each_entry_continue_reverse(p, h, field) \
    for (p = list_prev_entry(p, field); !list_entry_is_h(p, h, field); p = list_prev_entry(p, field))
// clang-format on

#endif
