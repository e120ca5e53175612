#include "dhcpmon/service.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace {

constexpr int look_interval = 200;          // ms between two looks at the lease file
constexpr std::size_t data_max = 1'000'000; // bytes: the bus carries messages of up to 1 MiB

constexpr blobmsg_policy client_policy[] = {{"mac", BLOBMSG_TYPE_STRING}};
constexpr blobmsg_policy notify_policy[] = {{"data", BLOBMSG_TYPE_STRING}};

// The one text argument that each method has; null when it is missing.
const char *text_argument(const blobmsg_policy (&policy)[1], blob_attr *message) {
    blob_attr *given = nullptr;
    blobmsg_parse(policy, 1, &given, blob_data(message), static_cast<unsigned>(blob_len(message)));
    return given ? blobmsg_get_string(given) : nullptr;
}

constexpr ubus_object make_object(const char *name, ubus_object_type *type, const ubus_method *methods,
                                  int count) {
    ubus_object object{};
    object.name = name;
    object.type = type;
    object.methods = methods;
    object.n_methods = count;
    return object;
}

constexpr ubus_object_type make_type(const char *name, const ubus_method *methods, int count) {
    ubus_object_type type{};
    type.name = name;
    type.methods = methods;
    type.n_methods = count;
    return type;
}

} // namespace

// Runs one method; the options say whether its answer is sent at once, late or never.
template <service::method M>
int service::call(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *,
                  blob_attr *message) {
    blob_buf reply{};
    blob_buf_init(&reply, 0);
    int status = (self_->*M)(message, reply);
    const bool asked = M != &service::notify_verbatim; // that method is for tests
    if (status == UBUS_STATUS_OK && asked && (self_->options_.silent || self_->options_.delay > 0)) {
        self_->answer_late(request, reply);
        return UBUS_STATUS_OK;
    }
    if (status == UBUS_STATUS_OK && asked) status = ubus_send_reply(bus, request, reply.head);
    blob_buf_free(&reply);
    return status;
}

ubus_method service::methods_[] = {
    UBUS_METHOD("client", service::call<&service::client>, client_policy),
    UBUS_METHOD("del_client", service::call<&service::del_client>, client_policy),
    UBUS_METHOD("notify", service::call<&service::notify_verbatim>, notify_policy),
};
ubus_object_type service::type_ = make_type("dhcpmon", methods_, std::ssize(methods_));
ubus_object service::object_ = make_object("dhcpmon", &type_, methods_, std::ssize(methods_));
ubus_object_type service::notifier_type_ = make_type("dhcpmon.client.notify", nullptr, 0);
ubus_object service::notifier_ = make_object("dhcpmon.client.notify", &notifier_type_, nullptr, 0);
service *service::self_ = nullptr;

service::service(const service_options &chosen) : options_(chosen), connection_{}, look_([this] { look(); }) {
    self_ = this;
    connection_.path = options_.bus.empty() ? nullptr : options_.bus.c_str();
    connection_.cb = [](ubus_context *bus) {
        ubus_add_object(bus, &object_);
        ubus_add_object(bus, &notifier_);
    };
    notifier_.subscribe_cb = [](ubus_context *, ubus_object *object) {
        if (object->has_subscribers) self_->notify(leases_json(self_->known_).c_str());
    };
}

service::~service() {
    for (late_answer &one : late_) blob_buf_free(&one.reply);
    ubus_auto_shutdown(&connection_);
    self_ = nullptr;
}

void service::start() {
    look();
    ubus_auto_connect(&connection_);
}

int service::client(blob_attr *message, blob_buf &reply) {
    const char *mac = text_argument(client_policy, message);
    if (!mac) return UBUS_STATUS_INVALID_ARGUMENT;
    const auto at = std::ranges::find(known_, mac, &lease::mac);
    blobmsg_add_u32(&reply, "count", at != known_.end());
    void *list = blobmsg_open_array(&reply, "list");
    if (at != known_.end()) {
        void *entry = blobmsg_open_table(&reply, nullptr);
        blobmsg_add_string(&reply, "mac", at->mac.c_str());
        blobmsg_add_string(&reply, "ip", at->ip.c_str());
        blobmsg_add_string(&reply, "hostName", at->name.c_str());
        blobmsg_close_table(&reply, entry);
    }
    blobmsg_close_array(&reply, list);
    return UBUS_STATUS_OK;
}

int service::del_client(blob_attr *message, blob_buf &reply) {
    const char *mac = text_argument(client_policy, message);
    if (!mac) return UBUS_STATUS_INVALID_ARGUMENT;
    const bool found = std::erase_if(known_, [mac](const lease &one) { return one.mac == mac; }) > 0;
    blobmsg_add_string(&reply, "result", found ? "ok" : "not found");
    if (found) notify(leases_json(known_).c_str());
    return UBUS_STATUS_OK;
}

int service::notify_verbatim(blob_attr *message, blob_buf &) {
    notify(text_argument(notify_policy, message));
    return UBUS_STATUS_OK;
}

void service::answer_late(ubus_request_data *request, const blob_buf &reply) {
    late_.emplace_back(reply, [this] {
        late_answer &due = late_.front(); // all wait equally long
        ubus_send_reply(&connection_.ctx, &due.request, due.reply.head);
        ubus_complete_deferred_request(&connection_.ctx, &due.request, UBUS_STATUS_OK);
        blob_buf_free(&due.reply);
        late_.pop_front();
    });
    ubus_defer_request(&connection_.ctx, request, &late_.back().request);
    if (!options_.silent) late_.back().due.start(options_.delay);
}

void service::notify(const char *data) {
    if (notifier_.id == 0) return; // no bus yet
    if (data && std::string_view(data).size() > data_max) {
        std::fprintf(stderr, "dhcpmon: the list is too long for the bus, not sent\n");
        return;
    }
    blob_buf message{};
    blob_buf_init(&message, 0);
    if (data) blobmsg_add_string(&message, "data", data);
    ubus_notify(&connection_.ctx, &notifier_, "client", message.head, -1);
    blob_buf_free(&message);
}

void service::look() {
    look_.start(look_interval);
    std::vector<lease> now = read_leases(options_.leases);
    if (now == file_) return;
    known_ = file_ = std::move(now);
    notify(leases_json(known_).c_str());
}
