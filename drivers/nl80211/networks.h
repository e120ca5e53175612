// networks.h - the access point's interfaces: its networks, and the interfaces below them that serve single stations or
// VLANs.
#pragma once

#include "channel/array.h"
#include "nl80211/figures.h"
#include "nl80211/hostapd_control.h"
#include "nl80211/kernel_message.h"

#include <cstdint>

struct access_interface {
    std::uint32_t ifindex;
    std::uint32_t
        base; // interface index of its network: itself, or the one that a VLAN's interface belongs to
    std::uint32_t wiphy;
    bool is_network;
    mac_address mac;
    network_facts facts;      // of an interface below a network only the radio is set
    hostapd_control *control; // a network's
    bool seen;
    // The channel's clock at the last survey.
    std::uint32_t survey_frequency;
    std::uint64_t survey_time_ms, survey_busy_ms;
};

// Sets which of the daemon's two radios an interface belongs to. Without a choice the channel decides: 2.4 GHz is 0, others 1.
struct radio_choice {
    const char *ifname; // a '*' at its end matches anything
    int radio;
};

class networks {
public:
    static constexpr std::size_t choices_max = 16;
    struct settings {
        const char *control_folder;
        const char *control_global; // null: none
        hostapd_control::handlers control;
        void (*ended)(void *owner, std::uint32_t network); // the network is gone
        void *owner;
        radio_choice choices[choices_max];
        std::size_t choice_count;
    };
    explicit networks(const settings &how) noexcept : settings_(how) {}
    ~networks();
    networks(networks &&) = delete;

    // For a list of all interfaces: begin, take for each, end. For one changed interface: take alone.
    void begin() noexcept;
    void take(const kernel_message &message) noexcept;
    void end() noexcept;
    void remove(std::uint32_t ifindex) noexcept;
    void clear() noexcept;

    // Null when there is none.
    access_interface *find(std::uint32_t ifindex) noexcept;
    access_interface *find(const char *ifname) noexcept;
    // The network that an interface is, or belongs to.
    access_interface *network_of(std::uint32_t ifindex) noexcept;

    // One channel of a network's survey.
    static void take_survey(access_interface &network, const kernel_message &message) noexcept;

    access_interface *begin_all() noexcept { return all_.begin(); }
    access_interface *end_all() noexcept { return all_.end(); }

private:
    int radio_of(const access_interface &one) const noexcept;
    void find_base(access_interface &one) noexcept;
    void drop(std::size_t index) noexcept;

    settings settings_;
    array<access_interface> all_;
};
