// station_life.h - decides which stations are there, from the messages of the kernel and hostapd. It has no socket and no clock:
// its inputs are observations with their time, its outputs are events and questions.
//
// A station is on when it is authorised: hostapd says so, or the kernel's entry has the flag. An entry alone is not
// enough, since clients with a wrong password have entries as well. A station is gone when its entry is removed and does
// not return shortly, because entries are removed and added again while a station stays. A client is on at one network
// at a time: when it is authorised at another, it has roamed, and the removal of the old entry is not a departure.
#pragma once

#include "channel/array.h"
#include "nl80211/capabilities.h"
#include "nl80211/clock.h"
#include "nl80211/frame.h"
#include "nl80211/kernel_message.h"
#include "nl80211/network_facts.h"

#include <cstdint>
#include <span>

// The driver's reasons of a departure; the daemon has names for them.
enum off_reason : std::int32_t {
    off_timeout = 300,
    off_rssi_too_low = 301,
    off_network_ended = 303,
    off_deauth_received = 307,
    off_disassoc_received = 308,
    off_deauth_sent = 309,
    off_disassoc_sent = 310,
};

// One client at one network.
struct station {
    mac_address mac;
    std::uint32_t network; // interface index
    bool on;               // its arrival has been reported to the daemon
    bool in_kernel;        // the kernel has an entry, as far as is known

    // From the association.
    bool is_reassociation;
    bool repeater;
    bool found; // it was there before the bridge: `since` is computed, the rest is unknown
    std::int64_t since_wall_ms;
    std::uint64_t associated_at; // the kernel's value
    capabilities can;
    capabilities access_point_can;
    // The steps of the association. Wall times of steps that were not seen are 0; costs are in ms.
    std::int64_t auth_wall_ms, assoc_wall_ms, key_start_wall_ms, key_end_wall_ms;
    std::int64_t auth_ms, key_start_ms;
    std::uint32_t cost_auth, cost_assoc, cost_key;

    network_facts where; // as reported to the daemon; its departure is reported with the same

    // Observed since its arrival; decides who ended the stay.
    frame_subtype received; // the station's deauthentication or disassociation; 0: none
    frame_subtype sent;     // the access point's
    std::uint16_t sent_reason;
    bool everybody_sent_away; // a frame to all, or the network ended
    bool disconnected;        // hostapd said so
    std::int64_t evidence_at; // ms; time of the newest of these

    // The entry was removed, and it is not yet certain that the station is gone.
    bool leaving;
    moment left_at;
    station_figures last; // from the message of removal, or else the latest ones

    std::int64_t check_at; // ms; 0: never
    int checks;
    bool listed; // it is in the current list
};

struct life_output {
    enum what : std::uint8_t {
        came, // report its arrival
        gone, // report its departure, with `reason`
        ask,  // is it in the kernel? answered() takes the answer
    };
    what kind;
    station about; // as it is now
    std::int32_t reason;
    moment when; // of a departure: of the entry's removal
};

class station_life {
public:
    station_life() = default;
    ~station_life();
    station_life(station_life &&) = delete;

    // Whether hostapd reports this network's stations, and the frames that they send.
    void network(std::uint32_t network, bool has_control, bool has_frames) noexcept;
    // The network is gone, or has ended all its associations.
    void network_ended(std::uint32_t network, moment now) noexcept;

    void entry_added(std::uint32_t network, const mac_address &mac, moment now) noexcept;
    void entry_removed(std::uint32_t network, const mac_address &mac, const station_figures &figures,
                       moment now) noexcept;
    void frame_received(std::uint32_t network, const management_frame &frame, unsigned frequency,
                        moment now) noexcept;
    void frame_sent(std::uint32_t network, const management_frame &frame, unsigned frequency,
                    moment now) noexcept;
    void key_message_sent(std::uint32_t network, const mac_address &to, int number, moment now) noexcept;
    void connected(std::uint32_t network, const mac_address &mac, moment now) noexcept;
    void disconnected(std::uint32_t network, const mac_address &mac, moment now) noexcept;
    // The station uses four addresses. If it was reported as an ordinary station, its arrival is reported again.
    void is_repeater(std::uint32_t network, const mac_address &mac, moment now) noexcept;

    // The kernel's answer for one station; null: it has none.
    void answered(std::uint32_t network, const mac_address &mac, const station_figures *figures,
                  moment now) noexcept;

    // For a complete list from the kernel: list_begin(), listed() for each, list_end().
    void list_begin() noexcept;
    void listed(std::uint32_t network, const mac_address &mac, const station_figures &figures) noexcept;
    void list_end(moment now) noexcept;

    // The next time at which pass() has something to do; 0: none.
    std::int64_t next_check() const noexcept;
    void pass(moment now) noexcept;

    // The oldest output that has not been taken; false when there is none.
    bool take(life_output &out) noexcept;

    // The network facts that were reported to the daemon with its arrival.
    void told(std::uint32_t network, const mac_address &mac, const network_facts &where) noexcept;

    // A station that an earlier bridge has reported; the next list shows whether it is still there.
    void restore(const station &known) noexcept;

    // The client's entry at this network, and the one where it is on; null when there is none. Valid until the next call.
    const station *find(std::uint32_t network, const mac_address &mac) const noexcept;
    const station *find_on(const mac_address &mac) const noexcept;

    std::size_t size() const { return stations_.size(); }
    const station &operator[](std::size_t index) const { return *stations_[index].one; }

    // Outputs lost for want of memory; the next list makes up for them.
    std::uint64_t lost() const { return lost_; }

private:
    struct slot {
        std::uint64_t key; // MAC, then the low bits of the network
        station *one;
    };
    struct network_state {
        std::uint32_t network;
        bool has_control;
        bool has_frames;
    };
    static std::uint64_t key_of(std::uint32_t network, const mac_address &mac);
    slot *first_from(std::uint64_t key) const noexcept;
    std::span<slot> all_of(const mac_address &mac) const noexcept;
    station *look_up(std::uint32_t network, const mac_address &mac) const noexcept;
    station *obtain(std::uint32_t network, const mac_address &mac) noexcept;
    const network_state *state_of(std::uint32_t network) const noexcept;
    void came(station &one, moment now) noexcept;
    void gone(station &one) noexcept;
    void still_there(station &one, moment now) noexcept;
    void check(station &one, moment now) noexcept;
    bool arrives_elsewhere(const station &one) const noexcept;
    std::int32_t reason_of(const station &one) const noexcept;
    bool put(life_output::what kind, const station &about, std::int32_t reason, moment when) noexcept;
    void check_in(station &one, moment now, int ms) noexcept;

    array<slot> stations_; // by key: those of one client stand together
    array<network_state> networks_;
    array<life_output> outputs_;
    std::size_t taken_ = 0;
    std::uint64_t lost_ = 0;
};
