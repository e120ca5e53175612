#include "collector/mqtt_publisher.h"

#include "collector/mqtt_login.h"
#include "collector/report_writer.h"
#include "collector/sessions.h"
#include "collector/stay_json.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <mosquitto.h>
#include <pthread.h>
#include <random>
#include <stdexcept>

namespace {

constexpr std::size_t most_in_flight = 64;
constexpr int keep_alive = 20; // s
constexpr auto patience_at_the_end = std::chrono::seconds(5);
constexpr auto patience_with_the_last = std::chrono::seconds(2); // for the status "offline"
constexpr std::size_t most_tracked = 4096;
constexpr std::size_t most_said = 16; // complaints of the library between two connections

void say(const std::string &text) { std::fprintf(stderr, "wsm-collector: mqtt: %s\n", text.c_str()); }

std::string random_name() {
    std::random_device device;
    char text[20];
    (void)std::snprintf(text, sizeof(text), "%08x%08x", device(), device());
    return text;
}

std::string without_colons(const std::string &mac) {
    std::string out;
    for (const char c : mac)
        if (c != ':') out += c;
    return out;
}

// When the access point was booted, by our clock, since its own may be set at any time. Its monotonic clock at the report is
// that of the association plus the time since; a restored record does not have it.
std::string booted(const received &in) {
    const station_report &report = *in.report;
    if (in.at == 0 || report.online_clock.sec <= 0 || report.oltime < 0) return "null";
    return std::to_string(in.at / second - report.online_clock.sec - report.oltime);
}

// Letters and digits of a name, for an identifier.
std::string identifier(const std::string &name) {
    std::string out;
    char hex[4];
    for (const char c : name) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        (void)std::snprintf(hex, sizeof(hex), "_%02x", static_cast<unsigned char>(c));
        out += plain ? std::string(1, c) : hex;
    }
    return out;
}

// The library cancels its thread at the end. That must not happen in our callbacks, which hold a lock and write.
class not_cancelled {
public:
    not_cancelled() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~not_cancelled() { pthread_setcancelstate(before_, nullptr); }
    not_cancelled(not_cancelled &&) = delete;

private:
    int before_ = 0;
};

} // namespace

mqtt_publisher::mqtt_publisher(mqtt_options chosen, std::shared_ptr<const station_names> names)
    : chosen_(std::move(chosen)), names_(std::move(names)), boot_(random_name()), spool_(chosen_.spool, say) {
    mosquitto_lib_init();
    client_ = mosquitto_new(("wsm-collector-" + boot_).c_str(), true, this);
    if (!client_) throw std::runtime_error("mqtt: no memory");
    try {
        mqtt_log_in(client_, chosen_);
        const std::string status = chosen_.prefix + "/status";
        mqtt_check(mosquitto_will_set(client_, status.c_str(), 7, "offline", 1, true), "will");
        mosquitto_max_inflight_messages_set(client_, most_in_flight);
        mosquitto_reconnect_delay_set(client_, 1, 5, false);
        mosquitto_connect_callback_set(client_, [](mosquitto *, void *self, int code) {
            auto *me = static_cast<mqtt_publisher *>(self);
            const not_cancelled here;
            if (code != 0) return say(std::string("refused: ") + mosquitto_connack_string(code));
            std::unique_lock hold(me->lock_);
            me->connected_ = true;
            {
                const std::lock_guard hold_said(me->said_lock_);
                me->said_.clear();
            }
            me->resending_ = !me->in_flight_.empty();
            me->status_ = "online";
            me->send_some(hold);
        });
        // Prints why there is no connection, for example an untrusted certificate: once, not at each attempt.
        mosquitto_log_callback_set(client_, [](mosquitto *, void *self, int level, const char *text) {
            auto *me = static_cast<mqtt_publisher *>(self);
            if (level == MOSQ_LOG_ERR) me->complain(escaped(text));
        });
        mosquitto_disconnect_callback_set(client_, [](mosquitto *, void *self, int code) {
            auto *me = static_cast<mqtt_publisher *>(self);
            if (code != 0) me->complain(std::string("the connection has ended: ") + mosquitto_strerror(code));
            const std::lock_guard hold(me->lock_);
            me->connected_ = false;
        });
        mosquitto_publish_callback_set(client_, [](mosquitto *, void *self, int) {
            auto *me = static_cast<mqtt_publisher *>(self);
            const not_cancelled here;
            std::unique_lock hold(me->lock_);
            if (!me->in_flight_.empty()) {
                if (me->in_flight_.front()) me->spool_.acknowledged();
                me->in_flight_.pop_front();
            }
            if (me->in_flight_.empty()) me->resending_ = false;
            me->send_some(hold);
            if (me->in_flight_.empty()) me->emptied_.notify_all();
        });
        sigset_t all, before; // signals are for the main thread
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
        const int looping = mosquitto_loop_start(client_);
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        mqtt_check(looping, "no thread");
    } catch (...) {
        mosquitto_destroy(client_);
        throw;
    }
}

mqtt_publisher::~mqtt_publisher() {
    mosquitto_disconnect(client_);
    mosquitto_loop_stop(client_, true);
    mosquitto_destroy(client_);
}

void mqtt_publisher::complain(const std::string &text) {
    const std::lock_guard hold(said_lock_); // its own lock: a call to send may get here
    if (said_.size() < most_said && said_.insert(text).second) say(text);
}

void mqtt_publisher::take(const message &one) {
    if (one.in && one.in->report) {
        std::string mac;
        const bool good = !impossible(*one.in->report, mac);
        // The report as it is printed, and the members that identify it.
        std::string report = report_json(*one.in->report, one.in->at);
        report.back() = ',';
        const std::optional<origin> &from = one.in->from; // a report that is passed on keeps its identity
        report += "\"boot\":\"" + (from ? from->boot : boot_) +
                  "\",\"seq\":" + std::to_string(from ? from->seq : ++seq_) +
                  ",\"booted\":" + booted(*one.in) + (good ? "" : ",\"impossible\":true") + "}";
        const std::string ap = normal_mac(std::string_view(one.in->report->ap_mac).substr(0, 17));
        post({chosen_.prefix + "/report/" + (ap.empty() ? "unknown" : ap), std::move(report), false});
    }
    if (!one.what) return;
    const change &what = *one.what;
    const std::string topic = chosen_.prefix + "/station/" + what.now.mac;
    const bool gone = what.kind == change_kind::left;
    post({topic, change_json(what, *names_).write(), !gone});
    if (gone) post({topic, "", true}); // an empty retained message: the broker forgets a station that is gone
    std::string &at = where_[what.now.mac];
    if (at != what.now.ap || gone) {
        places_[at].stations.erase(what.now.mac);
        places_[at].changed = true;
    }
    at = what.now.ap;
    if (gone) {
        where_.erase(what.now.mac);
    } else if (places_[what.now.ap].stations.insert(what.now.mac).second) {
        places_[what.now.ap].changed = true;
    }
    if (!chosen_.home_assistant.empty()) track(what.now, gone);
}

// Each station is a device tracker: at home, or not.
void mqtt_publisher::track(const stay &now_is, bool gone) {
    const std::string &name = names_->of(now_is.mac);
    const bool joined = chosen_.join_private && !name.empty() &&
                        std::string_view("26ae").find(now_is.mac[1]) != std::string_view::npos;
    const std::string id = "wsm_" + (joined ? "name_" + identifier(name) : without_colons(now_is.mac));
    const std::string state = chosen_.prefix + "/presence/" + id;
    if (!announced_.contains(id)) {
        if (announced_.size() >= most_tracked) return;
        announced_.insert(id);
        json_fields config;
        config.text("name", name.empty() ? now_is.mac : name)
            .text("unique_id", id)
            .text("state_topic", state);
        config.text("payload_home", "home")
            .text("payload_not_home", "not_home")
            .text("source_type", "router");
        config.text("availability_topic", chosen_.prefix + "/status");
        post({chosen_.home_assistant + "/device_tracker/" + id + "/config", config.write(), true});
    }
    std::set<std::string> &here = tracked_[id];
    const bool before = !here.empty();
    if (gone)
        here.erase(now_is.mac);
    else
        here.insert(now_is.mac);
    if (before != !here.empty() || (gone && !before)) post({state, here.empty() ? "not_home" : "home", true});
}

void mqtt_publisher::settle() {
    // After the first connection the library reconnects by itself. Looking up the name may block here.
    if (!begun_) {
        const int code = mosquitto_connect_async(client_, chosen_.host.c_str(), chosen_.port, keep_alive);
        begun_ = code == MOSQ_ERR_SUCCESS;
        if (!begun_ && !complained_)
            say(std::string("the broker does not answer: ") + mosquitto_strerror(code));
        complained_ = true;
    }
    {
        const std::lock_guard hold(lock_);
        spool_.sync();
    }
    for (auto at = places_.begin(); at != places_.end();) {
        auto &[ap, of] = *at;
        const std::string topic = chosen_.prefix + "/ap/" + (ap.empty() ? "unknown" : ap);
        if (of.changed)
            post({topic,
                  json_fields()
                      .text("ap", ap)
                      .number("stations", static_cast<std::int64_t>(of.stations.size()))
                      .write(),
                  true});
        of.changed = false;
        at = of.stations.empty() ? places_.erase(at) : std::next(at);
    }
}

void mqtt_publisher::post(letter one) {
    std::unique_lock hold(lock_);
    spool_.push(std::move(one));
    send_some(hold);
}

// True: `out` is to be sent now.
bool mqtt_publisher::next(letter &out) {
    if (!connected_ || busy_ || in_flight_.size() >= most_in_flight) return false;
    if (status_ && !resending_) {
        out = {chosen_.prefix + "/status", *status_, true};
        status_.reset();
        in_flight_.push_back(false);
        return true;
    }
    if (resending_ || closing_ || !spool_.take(out)) return false;
    in_flight_.push_back(true);
    return true;
}

// The library may call back from within its calls, so the lock is not held during them.
void mqtt_publisher::send_some(std::unique_lock<std::mutex> &hold) {
    static thread_local bool sending = false;
    if (sending) return;
    sending = true;
    for (letter one; next(one);) {
        busy_ = true; // one thread at a time, so that the order is kept
        hold.unlock();
        const int code =
            mosquitto_publish(client_, nullptr, one.topic.c_str(), static_cast<int>(one.payload.size()),
                              one.payload.data(), 1, one.retain);
        hold.lock();
        busy_ = false;
        // Without a connection the library keeps the message and sends it later; another error would only repeat.
        const bool kept = code == MOSQ_ERR_SUCCESS || code == MOSQ_ERR_NO_CONN ||
                          code == MOSQ_ERR_CONN_LOST || code == MOSQ_ERR_ERRNO;
        if (!kept) {
            if (in_flight_.back()) spool_.refused();
            in_flight_.pop_back();
            if (!complained_of_message_)
                say(std::string("a message cannot be sent: ") + mosquitto_strerror(code));
            complained_of_message_ = true;
        }
    }
    sending = false;
}

bool mqtt_publisher::finish() {
    settle();
    std::unique_lock hold(lock_);
    const auto through = [this] { return in_flight_.empty() && !status_ && (closing_ || spool_.empty()); };
    emptied_.wait_for(hold, patience_at_the_end, through);
    closing_ = true;
    // After a clean disconnect the broker does not publish the last will.
    status_ = "offline";
    send_some(hold);
    if (connected_) emptied_.wait_for(hold, patience_with_the_last, through);
    if (const std::uint64_t lost = spool_.lost_by_an_end(); lost > 0)
        say(std::to_string(lost) + " messages were dropped");
    return true;
}

std::optional<backlog> mqtt_publisher::kept() const {
    const std::lock_guard hold(lock_);
    return spool_.figures();
}
