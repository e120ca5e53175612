#include "nl80211/networks.h"

#include "nl80211/log.h"

#include <linux/nl80211.h>
#include <new>

namespace {

bool matches(const char *pattern, const char *name) {
    const std::size_t size = std::strlen(pattern);
    if (size > 0 && pattern[size - 1] == '*') return std::strncmp(pattern, name, size - 1) == 0;
    return std::strcmp(pattern, name) == 0;
}

} // namespace

networks::~networks() { clear(); }

void networks::clear() noexcept {
    while (!all_.empty()) drop(all_.size() - 1);
}

access_interface *networks::find(std::uint32_t ifindex) noexcept {
    for (access_interface &one : all_)
        if (one.ifindex == ifindex) return &one;
    return nullptr;
}

access_interface *networks::find(const char *ifname) noexcept {
    for (access_interface &one : all_)
        if (std::strcmp(one.facts.ifname, ifname) == 0) return &one;
    return nullptr;
}

access_interface *networks::network_of(std::uint32_t ifindex) noexcept {
    access_interface *one = find(ifindex);
    if (!one || one->is_network) return one;
    return find(one->base);
}

int networks::radio_of(const access_interface &one) const noexcept {
    for (std::size_t i = 0; i < settings_.choice_count; ++i)
        if (matches(settings_.choices[i].ifname, one.facts.ifname)) return settings_.choices[i].radio;
    return one.facts.frequency < 3000 ? 0 : 1;
}

// A VLAN's interface has the address of its network.
void networks::find_base(access_interface &one) noexcept {
    if (one.is_network) {
        one.base = one.ifindex;
        return;
    }
    for (const access_interface &other : all_)
        if (other.is_network && other.wiphy == one.wiphy && other.mac == one.mac) one.base = other.ifindex;
}

void networks::begin() noexcept {
    for (access_interface &one : all_) one.seen = false;
}

void networks::take(const kernel_message &message) noexcept {
    const bool is_network = message.type == NL80211_IFTYPE_AP;
    if (!is_network && message.type != NL80211_IFTYPE_AP_VLAN) {
        remove(message.ifindex); // it is no longer an access point's interface
        return;
    }
    access_interface *one = find(message.ifindex);
    if (one && std::strcmp(one->facts.ifname, message.ifname) != 0) {
        remove(message.ifindex); // renamed: its stations were reported with the old name
        one = nullptr;
    }
    if (!one) {
        access_interface added{};
        added.ifindex = message.ifindex;
        if (!all_.push(added)) return;
        one = &all_[all_.size() - 1];
    }
    one->seen = true;
    one->is_network = is_network;
    one->wiphy = message.wiphy;
    if (message.has_mac) one->mac = message.mac;
    std::memcpy(one->facts.ifname, message.ifname, sizeof(one->facts.ifname));
    if (message.ssid_size > 0) {
        std::memcpy(one->facts.ssid, message.ssid, sizeof(message.ssid));
        one->facts.ssid_size = message.ssid_size;
    }
    if (message.frequency != 0) {
        one->facts.frequency = message.frequency;
        one->facts.width = width_of(message.width);
    }
    one->facts.radio = radio_of(*one);
    find_base(*one);
    if (!is_network || one->control) return;
    if (void *memory = std::malloc(sizeof(hostapd_control))) {
        one->control = new (memory)
            hostapd_control(settings_.control, {one->ifindex, one->facts.ifname, settings_.control_folder,
                                                settings_.control_global});
        one->control->tend();
    }
}

void networks::end() noexcept {
    for (std::size_t i = 0; i < all_.size();)
        if (all_[i].seen)
            ++i;
        else
            drop(i);
    for (access_interface &one : all_) find_base(one);
}

void networks::remove(std::uint32_t ifindex) noexcept {
    for (std::size_t i = 0; i < all_.size(); ++i) {
        if (all_[i].ifindex != ifindex) continue;
        drop(i);
        return;
    }
}

void networks::drop(std::size_t index) noexcept {
    const access_interface gone = all_[index];
    all_.remove(index);
    if (gone.control) {
        gone.control->~hostapd_control();
        std::free(gone.control);
    }
    if (gone.is_network) settings_.ended(settings_.owner, gone.ifindex);
}

void networks::take_survey(access_interface &network, const kernel_message &message) noexcept {
    if (!message.in_use || message.frequency != network.facts.frequency) return;
    network.facts.noise = message.noise;
    const bool goes_on = network.survey_frequency == message.frequency &&
                         message.time_ms > network.survey_time_ms &&
                         message.busy_ms >= network.survey_busy_ms;
    if (goes_on) {
        const std::uint64_t time = message.time_ms - network.survey_time_ms;
        const std::uint64_t busy = message.busy_ms - network.survey_busy_ms;
        network.facts.busy = static_cast<std::uint8_t>(busy >= time ? 255 : busy * 255 / time);
    }
    network.survey_frequency = message.frequency;
    network.survey_time_ms = message.time_ms;
    network.survey_busy_ms = message.busy_ms;
}
