#include "ids.h"

#include <ctime>

#include <sys/random.h>

#include <ubusmsg.h>

namespace ubusd {
namespace {

int compare(const void *a, const void *b, void *) {
    const std::uint32_t x = *static_cast<const std::uint32_t *>(a),
                        y = *static_cast<const std::uint32_t *>(b);
    return (x > y) - (x < y);
}

std::uint32_t random_number() {
    std::uint32_t number;
    if (getrandom(&number, sizeof number, GRND_NONBLOCK) == sizeof number) return number;
    // Early in the boot there is no randomness, and the bus must not wait for it. Ids must differ from each
    // other; they need not be secret.
    static std::uint32_t state = static_cast<std::uint32_t>(std::time(nullptr)) | 1;
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return state;
}

} // namespace

void ids_init(avl_tree &tree) { avl_init(&tree, compare, false, nullptr); }

void ids_insert(avl_tree &tree, numbered &record) {
    record.node.key = &record.id;
    do record.id = random_number();
    while (record.id < UBUS_SYSTEM_OBJECT_MAX || avl_insert(&tree, &record.node));
}

numbered *ids_find(const avl_tree &tree, std::uint32_t id) {
    avl_node *node = avl_find(&tree, &id);
    return node ? container_of(node, numbered, node) : nullptr;
}

} // namespace ubusd
