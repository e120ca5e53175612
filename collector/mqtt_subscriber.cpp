#include "collector/mqtt_subscriber.h"

#include "collector/mqtt_login.h"
#include "collector/report_writer.h"

#include <algorithm>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Of one batch, from its first message. Later messages wait in the kernel for the next batch.
constexpr auto time_of_a_batch = std::chrono::milliseconds(100);
constexpr std::uint32_t for_ever = 0xffffffff;

std::string own_name() {
    char name[256] = "";
    (void)gethostname(name, sizeof(name) - 1);
    return std::string("wsm-collector-") + name;
}

// Keep-alive probes of the kernel notice a broker that has vanished: a ping of ours would have to be written after
// acknowledgements that must still wait.
void watch_peer(int socket) {
    const int yes = 1, idle = 15, interval = 5, probes = 3;
    setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &yes, sizeof(yes));
    setsockopt(socket, IPPROTO_TCP, TCP_KEEPIDLE, &idle, sizeof(idle));
    setsockopt(socket, IPPROTO_TCP, TCP_KEEPINTVL, &interval, sizeof(interval));
    setsockopt(socket, IPPROTO_TCP, TCP_KEEPCNT, &probes, sizeof(probes));
}

} // namespace

mqtt_subscriber::mqtt_subscriber(subscribe_options chosen, handler take)
    : broker_input("subscribe", std::move(chosen), std::move(take)) {
    mosquitto_lib_init();
    const std::string id = chosen_.client_id.empty() ? own_name() : chosen_.client_id;
    client_ = mosquitto_new(id.c_str(), false, this);
    if (!client_) throw std::runtime_error("mqtt: the client identifier cannot be used");
    try {
        mqtt_check(mosquitto_int_option(client_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5), "version");
        mqtt_check(mosquitto_int_option(client_, MOSQ_OPT_RECEIVE_MAXIMUM, chosen_.prefetch), "prefetch");
        mqtt_check(mosquitto_threaded_set(client_, true), "threads"); // so that it leaves writing to us
        mqtt_log_in(client_, chosen_);
    } catch (...) {
        mosquitto_destroy(client_);
        throw;
    }
    mosquitto_log_callback_set(client_, [](mosquitto *, void *self, int level, const char *text) {
        if (level == MOSQ_LOG_ERR) static_cast<mqtt_subscriber *>(self)->complain(escaped(text));
    });
    mosquitto_connect_v5_callback_set(
        client_, [](mosquitto *client, void *self, int code, int, const mosquitto_property *) {
            auto *me = static_cast<mqtt_subscriber *>(self);
            ++me->heard_;
            if (code != 0) return me->complain(std::string("refused: ") + mosquitto_reason_string(code));
            const std::string topic = "$share/" + me->chosen_.group + "/" + me->chosen_.prefix + "/report/+";
            mosquitto_subscribe_v5(client, nullptr, topic.c_str(), 1, 0, nullptr);
        });
    mosquitto_subscribe_v5_callback_set(
        client_, [](mosquitto *, void *self, int, int count, const int *granted, const mosquitto_property *) {
            auto *me = static_cast<mqtt_subscriber *>(self);
            ++me->heard_;
            if (count == 1 && granted[0] == 1) return me->connected();
            me->complain(std::string("the subscription is refused: ") +
                         mosquitto_reason_string(count == 1 ? granted[0] : MQTT_RC_UNSPECIFIED));
        });
    mosquitto_publish_v5_callback_set(
        client_, [](mosquitto *, void *self, int, int code, const mosquitto_property *) {
            auto *me = static_cast<mqtt_subscriber *>(self);
            ++me->heard_;
            if (code >= 0x80)
                me->complain(std::string("what was set aside is refused: ") + mosquitto_reason_string(code));
        });
    mosquitto_message_v5_callback_set(
        client_, [](mosquitto *, void *self, const mosquitto_message *one, const mosquitto_property *) {
            auto *me = static_cast<mqtt_subscriber *>(self);
            ++me->heard_;
            if (me->ticket_ == me->acknowledged_) me->first_waits_ = clock::now();
            const std::string_view payload(static_cast<const char *>(one->payload),
                                           static_cast<std::size_t>(one->payloadlen));
            const std::string why = me->hand_on(one->topic, payload);
            if (!why.empty()) me->set_aside(one->topic, payload, why);
        });
}

mqtt_subscriber::~mqtt_subscriber() { mosquitto_destroy(client_); }

void mqtt_subscriber::set_aside(std::string_view topic, std::string_view payload, const std::string &why) {
    mosquitto_property *properties = nullptr;
    mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY, "reason", why.c_str());
    const int code =
        mosquitto_publish_v5(client_, nullptr, ("refused/" + std::string(topic)).c_str(),
                             static_cast<int>(payload.size()), payload.data(), 1, false, properties);
    mosquitto_property_free_all(&properties);
    if (code != MOSQ_ERR_SUCCESS)
        complain(std::string("a message cannot be set aside: ") + mosquitto_strerror(code));
}

void mqtt_subscriber::try_to_connect() {
    not_connected(); // until the subscription is made
    mosquitto_property *properties = nullptr;
    mosquitto_property_add_int32(&properties, MQTT_PROP_SESSION_EXPIRY_INTERVAL, for_ever);
    const auto &[host, port] = chosen_.hosts.front();
    constexpr int no_questions = 0;
    const int code =
        mosquitto_connect_bind_v5(client_, host.c_str(), port, no_questions, nullptr, properties);
    mosquitto_property_free_all(&properties);
    begun_ = code == MOSQ_ERR_SUCCESS;
    if (!begun_) return complain(std::string("the broker does not answer: ") + mosquitto_strerror(code));
    watch_peer(mosquitto_socket(client_));
    // Acknowledgements of the last connection are lost: the broker sends those messages again.
    acknowledged_ = ticket_;
}

void mqtt_subscriber::lost(int code) {
    if (begun_ && code != MOSQ_ERR_SUCCESS)
        complain(std::string("the connection has ended: ") + mosquitto_strerror(code));
    begun_ = false;
}

void mqtt_subscriber::serve(int milliseconds, int also) {
    if (!begun_) {
        if (const int rest = pause(); rest > 0)
            return wait(milliseconds < 0 ? rest : std::min(rest, milliseconds), -1, false, false, also);
        try_to_connect();
        if (!begun_) return;
    }
    const auto whole = [this] { // this batch is complete
        return ticket_ != acknowledged_ && clock::now() - first_waits_ >= time_of_a_batch;
    };
    const bool read = !whole();
    const bool write = all_stored() && mosquitto_want_write(client_);
    const int batch = static_cast<int>(time_of_a_batch.count());
    if (ticket_ != acknowledged_ && read)
        milliseconds = std::min(milliseconds < 0 ? batch : milliseconds, batch);
    wait(milliseconds, mosquitto_socket(client_), read, write, also);
    int code = MOSQ_ERR_SUCCESS;
    if (read) {
        for (std::uint64_t before = heard_ + 1; code == MOSQ_ERR_SUCCESS && before != heard_ && !whole();) {
            before = heard_;
            code = mosquitto_loop_read(client_, 1);
        }
    }
    if (code == MOSQ_ERR_SUCCESS && all_stored()) {
        if (mosquitto_want_write(client_)) code = mosquitto_loop_write(client_, 1);
        if (!mosquitto_want_write(client_)) acknowledged_ = ticket_;
    }
    if (code == MOSQ_ERR_SUCCESS) code = mosquitto_loop_misc(client_);
    if (code != MOSQ_ERR_SUCCESS || mosquitto_socket(client_) < 0) lost(code);
}

void mqtt_subscriber::finish() {
    say_set_aside();
    if (!begun_) return;
    const auto end = clock::now() + std::chrono::seconds(2);
    while (all_stored() && mosquitto_want_write(client_) && clock::now() < end) {
        wait(100, mosquitto_socket(client_), false, true, -1);
        if (mosquitto_loop_write(client_, 1) != MOSQ_ERR_SUCCESS) return;
    }
    // A DISCONNECT would also send the acknowledgements of messages that are not stored. Closing the connection is enough then.
    if (!all_stored()) return;
    mosquitto_disconnect(client_);
    mosquitto_loop_write(client_, 1);
}
