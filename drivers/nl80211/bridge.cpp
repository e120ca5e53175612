#include "nl80211/bridge.h"

#include "nl80211/clock.h"
#include "nl80211/log.h"
#include "nl80211/supervisor.h"
#include "protocol/escape.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>

namespace {

constexpr int tick_ms = 1000;
constexpr unsigned interfaces_every = 5; // ticks
constexpr unsigned survey_every = 10;
constexpr unsigned list_every = 60;
constexpr std::int64_t remember_every = 200; // ms
constexpr std::size_t queue_max = 8192;      // events that wait for the daemon; 4 MiB

} // namespace

bridge::bridge(const settings &how) noexcept
    : settings_(how), networks_([this] {
          networks::settings for_networks{};
          for_networks.control_folder = settings_.control_folder;
          for_networks.control_global = settings_.control_global;
          for_networks.control = {[](void *self, std::uint32_t network, const control_line &line) {
                                      static_cast<bridge *>(self)->heard_from_hostapd(network, line);
                                  },
                                  [](void *self, std::uint32_t network, bool attached, bool frames) {
                                      static_cast<bridge *>(self)->hostapd_changed(network, attached, frames);
                                  },
                                  this};
          for_networks.ended = [](void *self, std::uint32_t network) {
              auto *owner = static_cast<bridge *>(self);
              owner->life_.network_ended(network, now_moment());
          };
          for_networks.owner = this;
          std::copy(std::begin(settings_.choices), std::end(settings_.choices), for_networks.choices);
          for_networks.choice_count = settings_.choice_count;
          return for_networks;
      }()),
      kernel_({[](void *self, const kernel_message &message) { static_cast<bridge *>(self)->heard(message); },
               [](void *self) {
                   log_line("the kernel's messages came too fast; all stations are listed anew");
                   static_cast<bridge *>(self)->list_soon();
               },
               this}),
      channel_({driver_family, queue_max,
                [](void *self, std::uint32_t port) {
                    return netlink_port_is_of(port, static_cast<bridge *>(self)->settings_.daemon);
                },
                [](void *self, const netlink_listener &daemon) {
                    static_cast<bridge *>(self)->daemon_came(daemon);
                },
                this}),
      requests_(
          [](void *self, was_question &question) { return static_cast<bridge *>(self)->answer(question); },
          this) {
    tick_.owner = life_timer_.owner = this;
    tick_.cb = [](uloop_timeout *self) { static_cast<bridge_timer *>(self)->owner->tick(); };
    life_timer_.cb = [](uloop_timeout *self) {
        auto *owner = static_cast<bridge_timer *>(self)->owner;
        if (owner->must_list_) owner->list_stations();
        owner->life_.pass(now_moment());
        owner->settle();
    };
}

const char *bridge::start(const char *path) noexcept {
    if (const int error = channel_.open()) {
        errno = error;
        return "no netlink socket";
    }
    if (const int error = requests_.listen(path)) {
        errno = error;
        return path;
    }
    recall();
    tick();
    return nullptr;
}

void bridge::stop() noexcept {
    remember();
    for (access_interface *one = networks_.begin_all(); one != networks_.end_all(); ++one)
        if (one->control) one->control->detach();
}

void bridge::tick() noexcept {
    uloop_timeout_set(&tick_, tick_ms);
    supervisor_alive();
    if (!kernel_.is_open() && kernel_.open()) {
        ticks_ = 0;
        must_list_ = true;
    }
    channel_.look();
    if (ticks_ % interfaces_every == 0) look_at_interfaces();
    for (access_interface *one = networks_.begin_all(); one != networks_.end_all(); ++one)
        if (one->control) one->control->tend();
    if (ticks_ % survey_every == 0)
        for (access_interface *one = networks_.begin_all(); one != networks_.end_all(); ++one)
            if (one->is_network)
                kernel_.survey(
                    one->ifindex,
                    [](void *network, const kernel_message &message) {
                        if (message.kind == kernel_message::survey)
                            networks::take_survey(*static_cast<access_interface *>(network), message);
                    },
                    one);
    if (must_list_ || ticks_ % list_every == 0) list_stations();
    if (channel_.lost() != told_lost_) {
        log_line("%llu events have not reached the daemon",
                 static_cast<unsigned long long>(channel_.lost() - told_lost_));
        told_lost_ = channel_.lost();
    }
    ++ticks_;
    settle();
    if (changed_) remember();
}

void bridge::look_at_interfaces() noexcept {
    if (!kernel_.is_open()) return;
    networks_.begin();
    const int result = kernel_.interfaces(
        [](void *all, const kernel_message &message) {
            if (message.kind == kernel_message::interface) static_cast<networks *>(all)->take(message);
        },
        &networks_);
    if (result == 0) {
        networks_.end();
        return;
    }
    // For want of memory or time the kernel has not been asked: the next look asks again.
    if (result != -ENOENT) return;
    log_line("the kernel's wireless configuration has gone");
    kernel_.close();
    networks_.clear();
}

void bridge::list_soon() noexcept {
    must_list_ = true;
    uloop_timeout_set(&life_timer_, 50);
}

void bridge::list_stations() noexcept {
    if (!kernel_.is_open()) return;
    must_list_ = false;
    const moment now = now_moment();
    life_.list_begin();
    for (const access_interface *one = networks_.begin_all(); one != networks_.end_all(); ++one) {
        array<listed_station> there;
        if (one->base == 0) continue;
        if (one->control)
            life_.network(one->ifindex, one->control->is_attached(), one->control->has_frames());
        if (!list_stations_of(kernel_, one->ifindex, one->base, there)) {
            must_list_ = true; // a station missing in this list may still be there
            return;
        }
        for (const listed_station &each : there) life_.listed(each.network, each.mac, each.figures);
    }
    life_.list_end(now);
}

access_interface *bridge::refresh(std::uint32_t network) noexcept {
    kernel_.interface(
        network,
        [](void *all, const kernel_message &message) {
            if (message.kind == kernel_message::interface) static_cast<networks *>(all)->take(message);
        },
        &networks_);
    return networks_.find(network);
}

void bridge::heard(const kernel_message &message) noexcept {
    if (message.kind == kernel_message::other) return;
    if (message.kind == kernel_message::interface || message.kind == kernel_message::interface_removed) {
        look_at_interfaces();
        settle();
        return;
    }
    const access_interface *network = networks_.network_of(message.ifindex);
    if (!network) {
        refresh(message.ifindex);
        network = networks_.network_of(message.ifindex);
        if (!network) return; // the interface is not an access point's
    }
    const std::uint32_t base = network->ifindex;
    const moment now = now_moment();
    management_frame frame{};
    mac_address to{};
    switch (message.kind) {
    case kernel_message::station_added: life_.entry_added(base, message.mac, now); break;
    // Some drivers send the event of a new station with all its figures.
    case kernel_message::station: life_.entry_added(base, message.mac, now); break;
    case kernel_message::station_removed: life_.entry_removed(base, message.mac, message.figures, now); break;
    case kernel_message::frame_sent:
        if (management_frame_decode(message.frame, frame))
            life_.frame_sent(base, frame, network->facts.frequency, now);
        break;
    case kernel_message::key_frame_sent:
        if (const int number = key_message_number(message.frame, to))
            life_.key_message_sent(base, to, number, now);
        break;
    default: break;
    }
    settle();
}

void bridge::heard_from_hostapd(std::uint32_t network, const control_line &line) noexcept {
    const moment now = now_moment();
    const access_interface *where = networks_.find(network);
    management_frame frame{};
    switch (line.kind) {
    case control_line::connected: life_.connected(network, line.mac, now); break;
    case control_line::disconnected: life_.disconnected(network, line.mac, now); break;
    case control_line::wds_interface: life_.is_repeater(network, line.mac, now); break;
    case control_line::frame_received:
        if (where && management_frame_decode(line.frame, frame))
            life_.frame_received(network, frame, where->facts.frequency, now);
        break;
    case control_line::disabled:
    case control_line::terminating: life_.network_ended(network, now); break;
    default: break;
    }
    settle();
}

void bridge::hostapd_changed(std::uint32_t network, bool attached, bool frames) noexcept {
    const access_interface *where = networks_.find(network);
    log_line("%s: hostapd %s", where ? where->facts.ifname : "?",
             !attached ? "is gone"
             : frames  ? "tells of its stations"
                       : "tells of its stations, not of their frames");
    life_.network(network, attached, frames);
    if (!attached) life_.network_ended(network, now_moment());
    list_soon();
}

// Carries out the outputs of station_life, and those that follow from them, until none is left.
void bridge::settle() noexcept {
    if (settling_) return;
    settling_ = true;
    life_output what{};
    while (life_.take(what)) carry_out(what);
    settling_ = false;
    if (changed_ && now_moment().ms - remembered_at_ >= remember_every) remember();
    const std::int64_t next = life_.next_check();
    if (must_list_) return; // the timer for the list runs
    if (next == 0)
        uloop_timeout_cancel(&life_timer_);
    else
        uloop_timeout_set(&life_timer_,
                          static_cast<int>(std::clamp<std::int64_t>(next - now_moment().ms, 0, 60'000)));
}

void bridge::carry_out(const life_output &what) noexcept {
    if (what.kind == life_output::ask) {
        // Without a frame that explains the end, hostapd may have been killed: its socket shows that at once.
        if (what.about.leaving && what.about.received == 0 && what.about.sent == 0)
            if (access_interface *network = networks_.find(what.about.network); network && network->control)
                network->control->is_alive();
        ask_kernel(what.about);
        return;
    }
    tell(what);
    if (what.kind == life_output::came) ask_kernel(what.about);
}

void bridge::ask_kernel(const station &about) noexcept {
    struct found {
        bool is_there;
        station_figures figures;
    } answer{};
    const int result = kernel_.station(
        about.network, about.mac,
        [](void *to, const kernel_message &message) {
            if (message.kind == kernel_message::station) *static_cast<found *>(to) = {true, message.figures};
        },
        &answer);
    // Any other error says nothing about the station; the next list will.
    if (answer.is_there || result == -ENOENT || result == -ENODEV)
        life_.answered(about.network, about.mac, answer.is_there ? &answer.figures : nullptr, now_moment());
    else
        must_list_ = true;
}

void bridge::tell(const life_output &what) noexcept {
    const bool on = what.kind == life_output::came;
    station about = what.about;
    if (on) {
        refresh(about.network);
        struct into {
            station_figures *figures;
        } to{&about.last};
        kernel_.station(
            about.network, about.mac,
            [](void *context, const kernel_message &message) {
                if (message.kind == kernel_message::station)
                    *static_cast<into *>(context)->figures = message.figures;
            },
            &to);
    }
    network_facts facts = about.where;
    if (const access_interface *where = on ? networks_.find(about.network) : nullptr) {
        facts = where->facts;
        life_.told(about.network, about.mac, facts);
    }
    const station_event event =
        make_event(on, about, about.last, facts, what.reason, what.when, now_boot_ns());
    channel_.send(event);
    changed_ = true;
    char ssid[140];
    std::string_view name(event.ssid);
    const std::size_t used = escape::write(name, ssid);
    if (on)
        log_line("%s is on at %s, \"%.*s\"", mac_text(about.mac).text, facts.ifname, static_cast<int>(used),
                 ssid);
    else
        log_line("%s is off at %s, reason %d", mac_text(about.mac).text, facts.ifname,
                 static_cast<int>(what.reason));
}

// A new daemon knows no station; a daemon that an earlier bridge has reported to knows those in the memory file.
void bridge::daemon_came(const netlink_listener &daemon) noexcept {
    const netlink_listener *known = std::find(daemons_, daemons_ + daemon_count_, daemon);
    if (known != daemons_ + daemon_count_) {
        log_line("the daemon goes on; it is told what has changed");
        return;
    }
    log_line("a daemon listens; it is told of all stations");
    std::copy_backward(std::begin(daemons_), std::end(daemons_) - 1, std::end(daemons_));
    daemons_[0] = daemon;
    daemon_count_ = std::min(daemon_count_ + 1, bridge_memory::daemons_max);
    changed_ = true;
    tell_all(daemon.port);
}

void bridge::recall() noexcept {
    char folder[256];
    std::snprintf(folder, sizeof(folder), "%s", settings_.memory);
    if (char *end = std::strrchr(folder, '/')) *end = '\0';
    if (folder[0] != '\0') mkdir(folder, 0755); // usually the supervisor has made it
    bridge_memory memory{};
    if (!memory_load(settings_.memory, memory)) return;
    for (const station &one : memory.stations) life_.restore(one);
    std::copy(std::begin(memory.daemons), std::end(memory.daemons), daemons_);
    daemon_count_ = memory.daemon_count;
}

void bridge::remember() noexcept {
    changed_ = false;
    remembered_at_ = now_moment().ms;
    bridge_memory memory{};
    std::copy(std::begin(daemons_), std::end(daemons_), memory.daemons);
    memory.daemon_count = daemon_count_;
    for (std::size_t i = 0; i < life_.size(); ++i)
        if (life_[i].on && !memory.stations.push(life_[i])) {
            changed_ = true; // the next tick tries again
            return;
        }
    if (!memory_save(settings_.memory, memory) && !told_no_memory_) {
        told_no_memory_ = true;
        log_line("%s cannot be written: after a restart the daemon is told of all stations",
                 settings_.memory);
    }
}

void bridge::tell_all(std::uint32_t port) noexcept {
    const std::uint64_t boot = now_boot_ns();
    const moment now = now_moment();
    for (std::size_t i = 0; i < life_.size(); ++i) {
        const station &one = life_[i];
        if (!one.on) continue;
        const moment since{now.ms, one.found ? now.wall_ms : one.since_wall_ms};
        channel_.send_to(port, make_event(true, one, one.last, one.where, 0, since, boot));
    }
}
