#include "inputs/links.h"

#include "inputs/route_messages.h"
#include "tools/array.h"

#include <cstring>

namespace {

sta_array<route_link> links;

template <class Matches> route_link *find(Matches matches) {
    for (route_link &one : links)
        if (matches(one)) return &one;
    return nullptr;
}

route_link *by_index(std::int32_t index) {
    return find([&](const route_link &one) { return one.index == index; });
}

} // namespace

void sta_links_put(const route_link &link) noexcept {
    if (route_link *known = by_index(link.index))
        *known = link;
    else
        (void)links.push(link);
}

void sta_links_remove(std::int32_t index) noexcept {
    route_link *gone = by_index(index);
    if (!gone) return;
    *gone = *(links.end() - 1);
    links.shorten(1);
}

void sta_links_clear() noexcept { links.clear(); }

bool sta_links_lead(std::int32_t index, const char *ifname) noexcept {
    const route_link *home = find([&](const route_link &one) { return std::strcmp(one.name, ifname) == 0; });
    if (!home) return false;
    const auto is_home = [&](std::int32_t one) {
        return one == home->index || (one != 0 && one == home->master);
    };
    if (is_home(index)) return true;
    const route_link *there = by_index(index);
    return there && is_home(there->lower);
}
