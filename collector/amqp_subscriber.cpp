#include "collector/amqp_subscriber.h"

#include "collector/report_writer.h"

#include <algorithm>
// Newer releases of the library have their own folder, and warn about the old paths.
#if __has_include(<rabbitmq-c/amqp.h>)
#include <rabbitmq-c/amqp.h>
#include <rabbitmq-c/framing.h>
#include <rabbitmq-c/ssl_socket.h>
#include <rabbitmq-c/tcp_socket.h>
#else
#include <amqp.h>
#include <amqp_framing.h>
#include <amqp_ssl_socket.h>
#include <amqp_tcp_socket.h>
#endif
#include <random>
#include <stdexcept>

namespace {

constexpr amqp_channel_t reading = 1, setting_aside = 2;
constexpr int heartbeat = 10;            // s; a node that is silent for twice as long counts as dead
constexpr timeval patience = {10, 0};    // for an answer
constexpr int most_at_once = 1000;       // messages between two acknowledgements
constexpr std::size_t most_reason = 300; // bytes

amqp_bytes_t bytes(std::string_view text) {
    return {text.size(), const_cast<char *>(text.data())}; // the library does not write there
}

std::string_view view(amqp_bytes_t bytes) { return {static_cast<const char *>(bytes.bytes), bytes.len}; }

std::string replaced(std::string text, char from, char to) {
    std::replace(text.begin(), text.end(), from, to);
    return text;
}

// "prefix.report.*", with "*" for a level that is "+".
std::string binding(const std::string &prefix) {
    return replaced(replaced(prefix, '/', '.'), '+', '*') + ".report.*";
}

amqp_table_entry_t text_entry(const char *key, std::string_view value) {
    amqp_table_entry_t entry{};
    entry.key = amqp_cstring_bytes(key);
    entry.value.kind = AMQP_FIELD_KIND_UTF8;
    entry.value.value.bytes = bytes(value);
    return entry;
}

} // namespace

// Thrown to end a connection; what() is the reason.
struct amqp_subscriber::failure : std::runtime_error {
    using std::runtime_error::runtime_error;

    static void unless_ok(int status, const char *what) {
        if (status < 0) throw failure(std::string(what) + ": " + amqp_error_string2(status));
    }
    static void unless_ok(const amqp_rpc_reply_t &reply, const char *what) {
        if (reply.reply_type == AMQP_RESPONSE_NORMAL) return;
        std::string why = "no answer";
        if (reply.reply_type == AMQP_RESPONSE_LIBRARY_EXCEPTION)
            why = amqp_error_string2(reply.library_error);
        if (reply.reply_type == AMQP_RESPONSE_SERVER_EXCEPTION) {
            why = amqp_method_name(reply.reply.id) ? amqp_method_name(reply.reply.id) : "an error";
            if (reply.reply.id == AMQP_CHANNEL_CLOSE_METHOD)
                why = view(static_cast<amqp_channel_close_t *>(reply.reply.decoded)->reply_text);
            if (reply.reply.id == AMQP_CONNECTION_CLOSE_METHOD)
                why = view(static_cast<amqp_connection_close_t *>(reply.reply.decoded)->reply_text);
        }
        throw failure(std::string(what) + ": " + escaped(why));
    }
};

amqp_subscriber::amqp_subscriber(subscribe_options chosen, handler take)
    : broker_input("subscribe", std::move(chosen), std::move(take)),
      host_(std::random_device()() % chosen_.hosts.size()) {}

amqp_subscriber::~amqp_subscriber() { drop(); }

void amqp_subscriber::drop() {
    if (link_) amqp_destroy_connection(link_);
    link_ = nullptr;
    waiting_.clear(); // the broker delivers them again
}

void amqp_subscriber::declare(const std::string &name) {
    amqp_table_entry_t kind = text_entry("x-queue-type", "quorum");
    amqp_queue_declare(link_, reading, bytes(name), false, true, false, false, {1, &kind});
    failure::unless_ok(amqp_get_rpc_reply(link_), "queue");
}

void amqp_subscriber::connect() {
    not_connected(); // until everything is set up
    const auto &[host, port] = chosen_.hosts[host_++ % chosen_.hosts.size()];
    try {
        link_ = amqp_new_connection();
        amqp_socket_t *socket = chosen_.tls ? amqp_ssl_socket_new(link_) : amqp_tcp_socket_new(link_);
        if (!link_ || !socket) throw failure("no memory");
        if (chosen_.tls) {
            const std::string ca = chosen_.ca.empty() ? "/etc/ssl/certs/ca-certificates.crt" : chosen_.ca;
            failure::unless_ok(amqp_ssl_socket_set_cacert(socket, ca.c_str()), "TLS");
            if (!chosen_.certificate.empty())
                failure::unless_ok(
                    amqp_ssl_socket_set_key(socket, chosen_.certificate.c_str(), chosen_.key.c_str()), "TLS");
        }
        timeval wait = patience;
        failure::unless_ok(amqp_socket_open_noblock(socket, host.c_str(), port, &wait), "connection");
        amqp_set_handshake_timeout(link_, &patience);
        amqp_set_rpc_timeout(link_, &patience);
        constexpr int most_channels = 0, longest_frame = 131072; // 0: the broker decides
        const std::string user = chosen_.user.empty() ? "guest" : chosen_.user;
        const std::string password = chosen_.user.empty() ? "guest" : chosen_.password;
        failure::unless_ok(amqp_login(link_, chosen_.vhost.c_str(), most_channels, longest_frame, heartbeat,
                                      AMQP_SASL_METHOD_PLAIN, user.c_str(), password.c_str()),
                           "login");
        for (const amqp_channel_t channel : {reading, setting_aside}) {
            amqp_channel_open(link_, channel);
            failure::unless_ok(amqp_get_rpc_reply(link_), "channel");
        }
        amqp_confirm_select(link_, setting_aside);
        failure::unless_ok(amqp_get_rpc_reply(link_), "confirmations");
        declare(chosen_.queue);
        declare(chosen_.queue + ".refused");
        amqp_queue_bind(link_, reading, bytes(chosen_.queue), amqp_cstring_bytes("amq.topic"),
                        bytes(binding(chosen_.prefix)), amqp_empty_table);
        failure::unless_ok(amqp_get_rpc_reply(link_), "binding");
        amqp_basic_qos(link_, reading, 0, static_cast<std::uint16_t>(chosen_.prefetch), false);
        failure::unless_ok(amqp_get_rpc_reply(link_), "prefetch");
        amqp_basic_consume(link_, reading, bytes(chosen_.queue), amqp_empty_bytes, false, false, false,
                           amqp_empty_table);
        failure::unless_ok(amqp_get_rpc_reply(link_), "consumer");
        connected();
    } catch (const failure &error) {
        complain(host + ": " + error.what());
        drop();
    }
}

bool amqp_subscriber::take_one() {
    amqp_maybe_release_buffers(link_);
    amqp_envelope_t one;
    constexpr timeval now = {0, 0};
    const amqp_rpc_reply_t reply = amqp_consume_message(link_, &one, &now, 0);
    if (reply.reply_type == AMQP_RESPONSE_LIBRARY_EXCEPTION) {
        if (reply.library_error == AMQP_STATUS_TIMEOUT) return false;
        if (reply.library_error == AMQP_STATUS_UNEXPECTED_STATE) {
            amqp_frame_t frame;
            failure::unless_ok(amqp_simple_wait_frame(link_, &frame), "waiting");
            const char *name =
                frame.frame_type == AMQP_FRAME_METHOD ? amqp_method_name(frame.payload.method.id) : nullptr;
            throw failure(std::string("the broker ends it: ") + (name ? name : "no method"));
        }
    }
    failure::unless_ok(reply, "the connection has ended");
    const std::string_view key = view(one.routing_key), body = view(one.message.body);
    const std::string why = hand_on(replaced(std::string(key), '.', '/'), body);
    try {
        if (why.empty()) {
            waiting_.emplace_back(ticket_, one.delivery_tag);
        } else {
            set_aside(key, body, why);
            failure::unless_ok(amqp_basic_ack(link_, reading, one.delivery_tag, false), "acknowledging");
        }
    } catch (...) {
        amqp_destroy_envelope(&one);
        throw;
    }
    amqp_destroy_envelope(&one);
    return true;
}

void amqp_subscriber::set_aside(std::string_view key, std::string_view body, const std::string &why) {
    amqp_table_entry_t headers[] = {text_entry("reason", std::string_view(why).substr(0, most_reason)),
                                    text_entry("routing-key", key)};
    amqp_basic_properties_t properties{};
    properties._flags = AMQP_BASIC_HEADERS_FLAG | AMQP_BASIC_DELIVERY_MODE_FLAG;
    properties.headers = {2, headers};
    properties.delivery_mode = AMQP_DELIVERY_PERSISTENT;
    failure::unless_ok(amqp_basic_publish(link_, setting_aside, amqp_empty_bytes,
                                          bytes(chosen_.queue + ".refused"), true, false, &properties,
                                          bytes(body)),
                       "setting aside");
    amqp_method_t answer;
    failure::unless_ok(amqp_simple_wait_method(link_, setting_aside, AMQP_BASIC_ACK_METHOD, &answer),
                       "setting aside");
}

void amqp_subscriber::acknowledge() {
    const std::uint64_t until = stored();
    std::uint64_t tag = 0;
    for (; !waiting_.empty() && waiting_.front().first <= until; waiting_.pop_front())
        tag = waiting_.front().second;
    if (tag != 0) failure::unless_ok(amqp_basic_ack(link_, reading, tag, true), "acknowledging");
}

void amqp_subscriber::serve(int milliseconds, int also) {
    if (!link_) {
        if (const int rest = pause(); rest > 0)
            return wait(milliseconds < 0 ? rest : std::min(rest, milliseconds), -1, false, false, also);
        connect();
        if (!link_) return;
    }
    try {
        int taken = 0;
        while (taken < most_at_once && take_one()) ++taken;
        acknowledge();
        if (taken == most_at_once) milliseconds = 0;
    } catch (const failure &error) {
        complain(error.what());
        return drop();
    }
    constexpr int often = 1000; // heartbeats are sent while messages are asked for
    wait(milliseconds < 0 ? often : std::min(milliseconds, often), amqp_get_sockfd(link_), true, false, also);
}

void amqp_subscriber::finish() {
    say_set_aside();
    if (!link_) return;
    try {
        acknowledge();
        amqp_connection_close(link_, AMQP_REPLY_SUCCESS);
    } catch (const failure &error) {
        complain(error.what());
    }
    drop();
}
