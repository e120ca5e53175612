#include "model/station_index.h"

#include "tools/spread.h"

#include <cstdlib>
#include <cstring>

namespace {

// Open addressing: a record is in the slot of its hash or in a later one, with no empty slot between.
sta_info_t **slots = nullptr;
std::size_t room = 0; // slots, a power of two
std::size_t used = 0;
bool partial = false;                  // some record of the list is not in the index
const list_head *last_known = nullptr; // the last record of the list that the index has seen

using mac_field = char[sizeof(sta_info_t::mac)];

struct mac_words {
    std::uint64_t head, tail;
    std::uint32_t rest;
    explicit mac_words(const mac_field &mac) {
        std::memcpy(&head, mac, sizeof(head));
        std::memcpy(&tail, mac + sizeof(head), sizeof(tail));
        std::memcpy(&rest, mac + sizeof(head) + sizeof(tail), sizeof(rest));
    }
    bool operator==(const mac_words &) const = default;
};
static_assert(sizeof(mac_field) == 20);

std::size_t home_of(const mac_field &mac) {
    const mac_words words{mac};
    return sta_spread(words.head ^ (words.tail << 1) ^ words.rest) & (room - 1);
}

void forget_all(const list_head *list) {
    std::free(slots);
    slots = nullptr;
    room = used = 0;
    partial = false;
    last_known = list;
}

std::size_t slot_of(const mac_field &mac) {
    const mac_words wanted{mac};
    std::size_t slot = home_of(mac);
    while (slots[slot] && mac_words{slots[slot]->mac} != wanted) slot = (slot + 1) & (room - 1);
    return slot;
}

bool grow() {
    const std::size_t most = room > 0 ? 2 * room : 32;
    void *fresh = std::calloc(most, sizeof(*slots));
    if (!fresh) return false;
    sta_info_t **const old = slots;
    const std::size_t old_room = room;
    slots = static_cast<sta_info_t **>(fresh);
    room = most;
    for (std::size_t i = 0; i < old_room; ++i)
        if (old[i]) slots[slot_of(old[i]->mac)] = old[i];
    std::free(old);
    return true;
}

// Moves later records into the hole, so that no search stops before it reaches them.
void empty_slot(std::size_t hole) {
    for (std::size_t next = (hole + 1) & (room - 1); slots[next]; next = (next + 1) & (room - 1)) {
        const std::size_t home = home_of(slots[next]->mac);
        if (((next - home) & (room - 1)) < ((next - hole) & (room - 1)))
            continue; // it would be before its own slot
        slots[hole] = slots[next];
        hole = next;
    }
    slots[hole] = nullptr;
    --used;
}

sta_info_t *walk(const list_head *list, const mac_field &mac) {
    // The whole fields are compared: after its text every record's field is zero.
    const mac_words wanted{mac};
    sta_info_t *sta = nullptr;
    list_for_each_entry (sta, list, list) {
        if (mac_words{sta->mac} == wanted) return sta;
    }
    return nullptr;
}

} // namespace

void sta_index_linked(const list_head *list, sta_info_t *sta) noexcept {
    if (sta->list.prev == list)
        forget_all(list); // it is the only one
    else if (sta->list.prev != last_known)
        partial = true;
    last_known = &sta->list;
    if (4 * used >= 3 * room && !grow()) {
        partial = true;
        return;
    }
    const std::size_t slot = slot_of(sta->mac);
    if (slots[slot]) { // of two records with one MAC, a search finds the first
        partial = true;
        return;
    }
    slots[slot] = sta;
    ++used;
}

void sta_index_unlinked(const list_head *list, const sta_info_t *sta) noexcept {
    if (last_known == &sta->list) last_known = sta->list.prev;
    if (room > 0) {
        const std::size_t slot = slot_of(sta->mac);
        if (slots[slot] == sta) empty_slot(slot);
    }
    if (sta->list.prev == list && sta->list.next == list) forget_all(list); // it was the last one
}

sta_info_t *sta_index_find(const list_head *list, const mac_field &mac) noexcept {
    if (list_empty(list)) return nullptr;
    sta_info_t *sta = room > 0 ? slots[slot_of(mac)] : nullptr;
    if (sta && sta->list.next != &sta->list) return sta; // otherwise it was unlinked without model/members
    return sta || partial || last_known != list->prev ? walk(list, mac) : nullptr;
}
