// ids.h - random ids for clients, objects and types, each kind in a tree of its own.
#ifndef UBUSD_IDS_H
#define UBUSD_IDS_H

#include <cstdint>

#include <libubox/avl.h>

namespace ubusd {

// First member of every record that has an id.
struct numbered {
    avl_node node;
    std::uint32_t id;
};

void ids_init(avl_tree &tree);
// Gives the record an id that is free in the tree and not reserved, and inserts it.
void ids_insert(avl_tree &tree, numbered &record);
// Null if the id is not known.
numbered *ids_find(const avl_tree &tree, std::uint32_t id);

} // namespace ubusd

#endif
