#include "nl80211/kernel_list.h"

#include <cerrno>

bool list_stations_of(kernel &from, std::uint32_t ifindex, std::uint32_t network,
                      array<listed_station> &stations) noexcept {
    constexpr int attempts = 5;
    struct collected {
        array<listed_station> *stations;
        std::uint32_t network;
        std::uint32_t generation;
        bool any, changed, full;
    };
    const std::size_t before = stations.size();
    for (int attempt = 0; attempt < attempts; ++attempt) {
        collected all{&stations, network, 0, false, false, false};
        const int result = from.stations(
            ifindex,
            [](void *to, const kernel_message &message) {
                if (message.kind != kernel_message::station) return;
                auto &list = *static_cast<collected *>(to);
                list.changed = list.changed || (list.any && message.generation != list.generation);
                list.any = true;
                list.generation = message.generation;
                if (!list.stations->push({list.network, message.mac, message.figures})) list.full = true;
            },
            &all);
        if (result == -ENODEV) return true;
        if (result == 0 && !all.changed && !all.full) return true;
        stations.cut(before);
        if (result != 0 || all.full) return false;
    }
    return false;
}
