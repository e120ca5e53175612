#include "nl80211/station_life.h"

#include <algorithm>

namespace {

// ms
constexpr int settle = 300;              // an entry that is removed and added again is back by then
constexpr int settle_unexplained = 1000; // no frame and no message from hostapd so far: one may still come
constexpr int settle_elsewhere = 500;    // the client is joining another network
constexpr int elsewhere_most = 6000;
constexpr int verify = 1000;             // a station that hostapd has called connected has an entry by then
constexpr int after_disconnected = 3500; // hostapd removes the entry two seconds after a roam
constexpr int departure_most = 5;        // checks without an association, for a client that has departed
constexpr int forget_after = 10'000;
constexpr std::size_t stations_max = 2048; // including clients that never become authorised
constexpr int first_check = 150; // of an entry that may become authorised; later checks at twice the time
constexpr int last_checks = 9;   // the first of them half a minute after the entry
constexpr std::uint32_t inactivity_limit = 300'000; // hostapd's default

constexpr std::uint16_t reason_inactivity = 4;
constexpr std::uint16_t reason_low_acknowledgements = 34;

// A frame, or the end of the network, shows that it cannot have stayed.
bool has_departed(const station &one) {
    return one.received != 0 || one.sent != 0 || one.everybody_sent_away;
}

void forget_evidence(station &one) {
    one.received = one.sent = frame_subtype{};
    one.sent_reason = 0;
    one.everybody_sent_away = one.disconnected = false;
}

std::uint32_t span_ms(std::int64_t from, std::int64_t to) {
    return from == 0 ? 0 : static_cast<std::uint32_t>(std::clamp<std::int64_t>(to - from, 0, 60'000));
}

} // namespace

station_life::~station_life() {
    for (const slot &each : stations_) std::free(each.one);
}

std::uint64_t station_life::key_of(std::uint32_t network, const mac_address &mac) {
    std::uint64_t key = 0;
    for (const std::uint8_t byte : mac.bytes) key = key << 8 | byte;
    return key << 16 | (network & 0xffff);
}

station_life::slot *station_life::first_from(std::uint64_t key) const noexcept {
    auto *begin = const_cast<slot *>(stations_.begin());
    return std::lower_bound(begin, begin + stations_.size(), key,
                            [](const slot &one, std::uint64_t wanted) { return one.key < wanted; });
}

// The client's entries at all networks.
std::span<station_life::slot> station_life::all_of(const mac_address &mac) const noexcept {
    slot *first = first_from(key_of(0, mac));
    slot *end = first;
    while (end != stations_.end() && end->one->mac == mac) ++end;
    return {first, end};
}

station *station_life::look_up(std::uint32_t network, const mac_address &mac) const noexcept {
    const std::uint64_t key = key_of(network, mac);
    for (const slot *each = first_from(key); each != stations_.end() && each->key == key; ++each)
        if (each->one->network == network) return each->one;
    return nullptr;
}

const station *station_life::find(std::uint32_t network, const mac_address &mac) const noexcept {
    return look_up(network, mac);
}

const station *station_life::find_on(const mac_address &mac) const noexcept {
    for (const slot &each : all_of(mac))
        if (each.one->on) return each.one;
    return nullptr;
}

station *station_life::obtain(std::uint32_t network, const mac_address &mac) noexcept {
    if (station *known = look_up(network, mac)) return known;
    if (mac.is_multicast()) return nullptr;
    auto *added =
        stations_.size() < stations_max ? static_cast<station *>(std::calloc(1, sizeof(station))) : nullptr;
    const std::uint64_t key = key_of(network, mac);
    if (!added ||
        !stations_.insert(static_cast<std::size_t>(first_from(key) - stations_.begin()), {key, added})) {
        std::free(added);
        ++lost_;
        return nullptr;
    }
    added->mac = mac;
    added->network = network;
    return added;
}

const station_life::network_state *station_life::state_of(std::uint32_t network) const noexcept {
    for (const network_state &each : networks_)
        if (each.network == network) return &each;
    return nullptr;
}

void station_life::network(std::uint32_t network, bool has_control, bool has_frames) noexcept {
    for (network_state &each : networks_) {
        if (each.network != network) continue;
        each.has_control = has_control;
        each.has_frames = has_frames;
        return;
    }
    if (!networks_.push({network, has_control, has_frames})) ++lost_;
}

void station_life::network_ended(std::uint32_t network, moment now) noexcept {
    for (const slot &each : stations_) {
        if (!each.one->on || each.one->network != network) continue;
        each.one->everybody_sent_away = true;
        each.one->evidence_at = now.ms;
        if (!each.one->leaving) check_in(*each.one, now, settle_unexplained);
    }
}

void station_life::check_in(station &one, moment now, int ms) noexcept { one.check_at = now.ms + ms; }

// False without memory.
bool station_life::put(life_output::what kind, const station &about, std::int32_t reason,
                       moment when) noexcept {
    if (outputs_.push({kind, about, reason, when})) return true;
    ++lost_;
    return false;
}

bool station_life::take(life_output &out) noexcept {
    if (taken_ == outputs_.size()) {
        outputs_.clear();
        taken_ = 0;
        return false;
    }
    out = outputs_[taken_++];
    return true;
}

void station_life::entry_added(std::uint32_t network, const mac_address &mac, moment now) noexcept {
    station *one = obtain(network, mac);
    if (!one) return;
    if (one->on && one->leaving) {
        // With a frame that ended its stay it is back already, which makes two events. Without one it never left.
        if (has_departed(*one))
            gone(*one);
        else
            one->leaving = false;
    }
    one->in_kernel = true;
    one->checks = 0;
    check_in(*one, now, first_check);
}

void station_life::entry_removed(std::uint32_t network, const mac_address &mac,
                                 const station_figures &figures, moment now) noexcept {
    station *one = look_up(network, mac);
    if (!one) return;
    one->in_kernel = false;
    if (!one->on) {
        check_in(*one, now, forget_after);
        return;
    }
    one->leaving = true;
    one->left_at = now;
    one->last = figures;
    check_in(*one, now, has_departed(*one) || one->disconnected ? settle : settle_unexplained);
}

void station_life::frame_received(std::uint32_t network, const management_frame &frame, unsigned frequency,
                                  moment now) noexcept {
    const bool leaves = frame.subtype == frame_deauth || frame.subtype == frame_disassoc;
    station *one = leaves ? look_up(network, frame.from) : obtain(network, frame.from);
    if (!one) return;
    switch (frame.subtype) {
    case frame_auth:
        // A later frame of the same authentication does not start it again.
        if (frame.transaction <= 1 || one->auth_ms == 0) {
            one->auth_ms = now.ms;
            one->auth_wall_ms = now.wall_ms;
            one->cost_auth = one->cost_assoc = one->cost_key = 0;
            one->assoc_wall_ms = one->key_start_wall_ms = one->key_end_wall_ms = 0;
        }
        break;
    case frame_assoc_request:
    case frame_reassoc_request:
        one->assoc_wall_ms = now.wall_ms;
        one->cost_assoc = span_ms(one->auth_ms, now.ms);
        one->is_reassociation = frame.subtype == frame_reassoc_request;
        one->can = capabilities_decode(frame.elements, frequency);
        one->repeater = one->can.backhaul;
        break;
    case frame_deauth:
    case frame_disassoc:
        if (!one->on || one->received != 0) break;
        one->received = frame.subtype;
        one->evidence_at = now.ms;
        if (!one->leaving) check_in(*one, now, after_disconnected);
        break;
    default: break;
    }
    if (!one->on && one->check_at == 0) check_in(*one, now, forget_after);
}

void station_life::frame_sent(std::uint32_t network, const management_frame &frame, unsigned frequency,
                              moment now) noexcept {
    const bool sends_away = frame.subtype == frame_deauth || frame.subtype == frame_disassoc;
    if (sends_away && frame.to.is_broadcast()) {
        network_ended(network, now);
        return;
    }
    station *one = look_up(network, frame.to);
    if (!one) return;
    switch (frame.subtype) {
    case frame_auth:
        if (one->cost_auth == 0) one->cost_auth = span_ms(one->auth_ms, now.ms);
        break;
    case frame_assoc_response:
    case frame_reassoc_response:
        if (frame.status != 0) break;
        one->is_reassociation = frame.subtype == frame_reassoc_response;
        one->access_point_can = capabilities_decode(frame.elements, frequency);
        break;
    case frame_deauth:
    case frame_disassoc:
        if (!one->on || one->sent != 0) break;
        one->sent = frame.subtype;
        one->sent_reason = frame.reason;
        one->evidence_at = now.ms;
        if (!one->leaving) check_in(*one, now, after_disconnected);
        break;
    default: break;
    }
}

void station_life::key_message_sent(std::uint32_t network, const mac_address &to, int number,
                                    moment now) noexcept {
    station *one = look_up(network, to);
    if (!one || number != 1) return;
    one->key_start_ms = now.ms;
    one->key_start_wall_ms = now.wall_ms;
}

void station_life::connected(std::uint32_t network, const mac_address &mac, moment now) noexcept {
    station *one = obtain(network, mac);
    if (!one) return;
    if (one->key_start_wall_ms != 0 && one->key_end_wall_ms == 0) {
        one->key_end_wall_ms = now.wall_ms;
        one->cost_key = span_ms(one->key_start_ms, now.ms);
    }
    if (one->on && one->leaving && has_departed(*one)) gone(*one);
    // A station that is on is connected again: it came back without a departure, unless hostapd only repeats its message.
    if (!one->on || one->disconnected) came(*one, now);
}

void station_life::disconnected(std::uint32_t network, const mac_address &mac, moment now) noexcept {
    station *one = look_up(network, mac);
    if (!one || !one->on) return;
    one->disconnected = true;
    one->evidence_at = now.ms;
    if (one->leaving)
        one->check_at = std::min(one->check_at, std::max(now.ms, one->left_at.ms + settle));
    else
        check_in(*one, now, after_disconnected);
}

void station_life::told(std::uint32_t network, const mac_address &mac, const network_facts &where) noexcept {
    if (station *one = look_up(network, mac)) one->where = where;
}

void station_life::restore(const station &known) noexcept {
    station *one = known.on ? obtain(known.network, known.mac) : nullptr;
    if (!one) return;
    *one = known;
    one->leaving = one->listed = false;
    one->check_at = 0;
    one->checks = 0;
    forget_evidence(*one);
}

void station_life::is_repeater(std::uint32_t network, const mac_address &mac, moment now) noexcept {
    station *one = obtain(network, mac);
    if (!one) return;
    const bool is_news = one->on && !one->repeater;
    one->repeater = true;
    // In an open network its first frame with four addresses comes after it was connected.
    if (is_news) put(life_output::came, *one, 0, now);
}

void station_life::came(station &one, moment now) noexcept {
    for (const slot &each : all_of(one.mac)) {
        station &other = *each.one;
        if (&other == &one || !other.on) continue;
        other.on = other.leaving = other.found = false; // it has roamed from there
        check_in(other, now, forget_after);
    }
    one.on = true;
    one.leaving = false;
    one.in_kernel = true;
    if (!one.found) one.since_wall_ms = now.wall_ms;
    forget_evidence(one);
    check_in(one, now, verify);
    if (put(life_output::came, one, 0, now)) return;
    one.on = false; // the event is lost for want of memory: the next list makes it again
    one.associated_at = 0;
}

void station_life::gone(station &one) noexcept {
    if (!put(life_output::gone, one, reason_of(one), one.left_at)) return; // tried again later
    one.on = one.leaving = one.found = false;
    one.associated_at = 0;
    forget_evidence(one);
}

std::int32_t station_life::reason_of(const station &one) const noexcept {
    const network_state *state = state_of(one.network);
    if (one.everybody_sent_away) return off_network_ended;
    if ((one.sent == frame_disassoc && one.sent_reason == reason_inactivity) ||
        one.last.inactive_ms >= inactivity_limit)
        return off_timeout;
    if (one.received == frame_deauth) return off_deauth_received;
    if (one.received == frame_disassoc) return off_disassoc_received;
    if (one.sent != 0 && one.sent_reason == reason_low_acknowledgements) return off_rssi_too_low;
    if (one.sent == frame_deauth) return off_deauth_sent;
    if (one.sent == frame_disassoc) return off_disassoc_sent;
    // No frame was seen. Where the stations' frames are not reported, most likely the station sent one.
    if (!state || !state->has_control) return off_deauth_received;
    if (one.disconnected) return state->has_frames ? off_deauth_sent : off_deauth_received;
    return off_disassoc_sent; // another program removed it
}

// The client is joining another network: its roam must be reported before this departure.
bool station_life::arrives_elsewhere(const station &one) const noexcept {
    const std::span<slot> entries = all_of(one.mac);
    return std::any_of(entries.begin(), entries.end(), [&one](const slot &each) {
        const station &other = *each.one;
        return &other != &one && other.in_kernel && !other.on && other.checks < last_checks;
    });
}

void station_life::check(station &one, moment now) noexcept {
    one.check_at = 0;
    if (one.on && one.leaving && arrives_elsewhere(one) && now.ms - one.left_at.ms < elsewhere_most)
        check_in(one, now, settle_elsewhere);
    else if (!put(life_output::ask, one, 0, now))
        check_in(one, now, settle);
}

void station_life::answered(std::uint32_t network, const mac_address &mac, const station_figures *figures,
                            moment now) noexcept {
    station *one = look_up(network, mac);
    if (!one) return;
    one->in_kernel = figures != nullptr;
    if (!figures) {
        if (one->on && !one->leaving) { // its removal was missed
            one->leaving = true;
            one->left_at = now;
            check_in(*one, now, settle);
            return;
        }
        if (one->on) gone(*one);
        if (one->check_at == 0) check_in(*one, now, forget_after);
        return;
    }
    one->last = *figures;
    one->leaving = false;
    if (figures->authorized) {
        one->checks = 0;
        // After a roam the station may stay in its old network's list for a while, with its old association time.
        if (!one->on && one->associated_at != figures->associated_at) came(*one, now);
        if (one->on) still_there(*one, now);
        one->associated_at = figures->associated_at;
        return;
    }
    if (one->on && figures->associated_at != 0) one->associated_at = figures->associated_at;
    ++one->checks;
    if (one->on && !figures->associated && (one->disconnected || has_departed(*one)) &&
        one->checks >= departure_most) {
        one->left_at = now;
        gone(*one);
    }
    if (one->checks < last_checks) check_in(*one, now, first_check << std::min(one->checks, 6));
}

// Evidence for its departure is dropped when it is still authorised some time later.
void station_life::still_there(station &one, moment now) noexcept {
    if (!one.disconnected && !has_departed(one)) return;
    const std::int64_t age = now.ms - one.evidence_at;
    if (age >= after_disconnected)
        forget_evidence(one);
    else
        check_in(one, now, static_cast<int>(after_disconnected - age));
}

void station_life::list_begin() noexcept {
    for (const slot &each : stations_) each.one->listed = false;
}

void station_life::listed(std::uint32_t network, const mac_address &mac,
                          const station_figures &figures) noexcept {
    if (!figures.authorized && !look_up(network, mac)) return; // not authorised and not known
    station *one = obtain(network, mac);
    if (!one) return;
    one->listed = true;
    one->in_kernel = true;
    one->last = figures;
    if (one->on) one->associated_at = figures.associated_at;
}

void station_life::list_end(moment now) noexcept {
    // By index: stations may be added meanwhile.
    for (std::size_t i = 0; i < stations_.size(); ++i) {
        station &one = *stations_[i].one;
        if (!one.listed) {
            if (!one.on || one.leaving) {
                one.in_kernel = false;
                if (one.check_at == 0) check_in(one, now, 0); // also one whose question got no answer
                continue;
            }
            one.in_kernel = false;
            one.leaving = true;
            one.left_at = now;
            // The reason may be in messages that are still unread; before hostapd is heard there are none.
            const network_state *state = state_of(one.network);
            check_in(one, now, state && state->has_control ? settle : 0);
            continue;
        }
        if (one.on || !one.last.authorized) continue;
        // During a roam both networks may list the client: the newer association counts.
        const std::span<slot> entries = all_of(one.mac);
        const bool is_older = std::any_of(entries.begin(), entries.end(), [&one](const slot &each) {
            const station &other = *each.one;
            return &other != &one && other.listed && other.last.authorized &&
                   other.last.associated_at > one.last.associated_at;
        });
        if (is_older || one.associated_at == one.last.associated_at) continue;
        one.associated_at = one.last.associated_at;
        one.found = true;
        came(one, now);
    }
}

std::int64_t station_life::next_check() const noexcept {
    std::int64_t next = 0;
    for (const slot &each : stations_)
        if (each.one->check_at != 0 && (next == 0 || each.one->check_at < next)) next = each.one->check_at;
    return next;
}

void station_life::pass(moment now) noexcept {
    for (std::size_t i = 0; i < stations_.size();) {
        station &one = *stations_[i].one;
        if (one.check_at == 0 || one.check_at > now.ms) {
            ++i;
        } else if (!one.on && !one.in_kernel) {
            std::free(&one);
            stations_.erase(i);
        } else {
            check(one, now);
            ++i;
        }
    }
}
