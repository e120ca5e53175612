// ubus-peer SOCKET - a bus program under remote control. It reads one command per line from standard input and
// answers each with a line `= <number>`, its result. What comes from the bus is printed as it comes. Ends with
// its input.
//
// Objects, see peer_objects.h:
//   add NAME KIND
//   remove NAME
// Subscriptions of the one subscriber:
//   watch PATH        registers the subscriber, too
//   unwatch PATH
//   unregister
//   auto PREFIX       subscribes to all paths with this prefix, now and later
// Events:
//   listen PATTERN
//   unlisten
//   send EVENT [JSON]
// Calls and notifications; TIMEOUT is in milliseconds:
//   call PATH METHOD TIMEOUT [JSON]
//   fill PATH METHOD COUNT    calls with {"p": "xx..."}, COUNT characters
//   notify NAME METHOD TIMEOUT [JSON]
//   lookup PATH
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <string>

#include <unistd.h>

#include <libubox/blobmsg_json.h>

#include "peer_objects.h"

namespace {

ubus_context *g_bus;
std::map<std::string, ubus_object> g_objects; // by name
ubus_subscriber g_subscriber;
ubus_event_handler g_listener;
std::string g_auto_prefix;

void print(const std::string &what, blob_attr *msg) {
    char *text = blobmsg_format_json(msg, true);
    constexpr std::size_t enough = 1000; // characters: a longer line could block us while nobody reads
    std::cout << what << ' ' << std::string(text).substr(0, enough) << std::endl;
    std::free(text);
}

void on_reply(ubus_request *, int, blob_attr *msg) { print("reply", msg); }
void on_event(ubus_context *, ubus_event_handler *, const char *type, blob_attr *msg) {
    print(std::string("event ") + type, msg);
}
int on_notification(ubus_context *, ubus_object *, ubus_request_data *, const char *method, blob_attr *msg) {
    print(std::string("notification ") + method, msg);
    return 0;
}
void on_gone(ubus_context *, ubus_subscriber *, std::uint32_t) { std::cout << "gone" << std::endl; }
bool on_new_object(ubus_context *, ubus_subscriber *, const char *path) {
    return std::string(path).rfind(g_auto_prefix, 0) == 0;
}
void on_subscribers(ubus_context *, ubus_object *obj) {
    std::cout << obj->name << (obj->has_subscribers ? " watched" : " unwatched") << std::endl;
}

int add(std::istringstream &in) {
    std::string name, kind;
    in >> name >> kind;
    const auto [entry, is_new] = g_objects.try_emplace(name);
    ubus_object &obj = entry->second;
    if (is_new) make_object(obj, entry->first.c_str(), kind);
    obj.subscribe_cb = on_subscribers;
    return ubus_add_object(g_bus, &obj);
}

std::string word(std::istringstream &in) {
    std::string w;
    in >> w;
    return w;
}

// The rest of the line as fields.
void read_json(std::istringstream &in, fields &msg) {
    std::string json;
    std::getline(in >> std::ws, json);
    if (!json.empty() && !blobmsg_add_json_from_string(&msg, json.c_str())) std::abort();
}

int change(int (*how)(ubus_context *, ubus_subscriber *, std::uint32_t), const std::string &path) {
    std::uint32_t id = 0;
    const int status = ubus_lookup_id(g_bus, path.c_str(), &id);
    return status ? status : how(g_bus, &g_subscriber, id);
}

int watch(std::istringstream &in) {
    g_subscriber.cb = on_notification;
    g_subscriber.remove_cb = on_gone;
    const int status = ubus_register_subscriber(g_bus, &g_subscriber);
    return status ? status : change(ubus_subscribe, word(in));
}

int auto_watch(std::istringstream &in) {
    in >> g_auto_prefix;
    g_subscriber.cb = on_notification;
    g_subscriber.new_obj_cb = on_new_object;
    return ubus_register_subscriber(g_bus, &g_subscriber);
}

int listen(std::istringstream &in) {
    g_listener.cb = on_event;
    return ubus_register_event_handler(g_bus, &g_listener, word(in).c_str());
}

int send(std::istringstream &in) {
    const std::string event = word(in);
    fields msg;
    read_json(in, msg);
    return ubus_send_event(g_bus, event.c_str(), msg);
}

int call(std::istringstream &in) {
    const std::string path = word(in), method = word(in);
    const int timeout = std::stoi(word(in));
    fields msg;
    read_json(in, msg);
    return call_path(g_bus, path.c_str(), method.c_str(), msg, timeout, on_reply);
}

int fill(std::istringstream &in) {
    const std::string path = word(in), method = word(in);
    fields msg;
    blobmsg_add_string(&msg, "p", std::string(std::stoul(word(in)), 'x').c_str());
    return call_path(g_bus, path.c_str(), method.c_str(), msg, 0);
}

int notify(std::istringstream &in) {
    const std::string name = word(in), method = word(in);
    const int timeout = std::stoi(word(in));
    fields msg;
    read_json(in, msg);
    return ubus_notify(g_bus, &g_objects.at(name), method.c_str(), msg, timeout);
}

int lookup(std::istringstream &in) {
    std::uint32_t id = 0;
    return ubus_lookup_id(g_bus, word(in).c_str(), &id);
}

const std::map<std::string, std::function<int(std::istringstream &)>> commands = {
    {"add", add},
    {"remove", [](std::istringstream &in) { return ubus_remove_object(g_bus, &g_objects.at(word(in))); }},
    {"watch", watch},
    {"unwatch", [](std::istringstream &in) { return change(ubus_unsubscribe, word(in)); }},
    {"unregister", [](std::istringstream &) { return ubus_unregister_subscriber(g_bus, &g_subscriber); }},
    {"auto", auto_watch},
    {"listen", listen},
    {"unlisten", [](std::istringstream &) { return ubus_unregister_event_handler(g_bus, &g_listener); }},
    {"send", send},
    {"call", call},
    {"fill", fill},
    {"notify", notify},
    {"lookup", lookup},
};

void on_input(uloop_fd *input, unsigned) {
    static std::string received;
    char part[65536];
    const ssize_t n = read(input->fd, part, sizeof part);
    if (n <= 0) return uloop_end();
    received.append(part, static_cast<std::size_t>(n));
    for (std::size_t end; (end = received.find('\n')) != std::string::npos;) {
        std::istringstream line(received.substr(0, end));
        received.erase(0, end + 1);
        const std::string command = word(line);
        const int result = commands.at(command)(line);
        std::cout << "= " << result << std::endl;
    }
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 2 || !(g_bus = ubus_connect(argv[1]))) return 1;
    ubus_add_uloop(g_bus);
    uloop_fd input{};
    input.fd = STDIN_FILENO;
    input.cb = on_input;
    uloop_fd_add(&input, ULOOP_READ | ULOOP_BLOCKING);
    uloop_run();
    ubus_free(g_bus);
    uloop_done();
    return 0;
}
