// bus_fixture.h - what tests of the library talk to: a real broker, or one that sends what the test wants.
#ifndef BUS_FIXTURE_H
#define BUS_FIXTURE_H

#include "tests/temporary_folder.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <libubus.h>

// A broker in a process of its own.
class broker_process {
public:
    explicit broker_process(std::string socket);
    ~broker_process();
    broker_process(broker_process &&) = delete;
    void kill(); // without a chance to say good-bye

private:
    pid_t pid_;
};

// Runs the loop until a condition holds, at most ten seconds. False if it does not by then.
bool run_until(const std::function<bool()> &condition);

// A context that is connected, in the loop, and freed in the end.
class client {
public:
    explicit client(const std::string &socket) : ctx_(ubus_connect(socket.c_str())) {
        if (ctx_) ubus_add_uloop(ctx_);
    }
    ~client() {
        if (ctx_) ubus_free(ctx_);
    }
    client(client &&) = delete;
    operator ubus_context *() const { return ctx_; }
    ubus_context *operator->() const { return ctx_; }

private:
    ubus_context *ctx_;
};

// A test with a broker; `bus()` is the path of its socket.
class bus_test : public testing::Test {
protected:
    void SetUp() override { uloop_init(); }
    void TearDown() override { uloop_done(); }
    std::string bus() const { return folder_.file("ubus.sock"); }
    void stop_broker() { broker_.reset(); }
    void kill_broker() { broker_->kill(); }
    void start_broker() { broker_ = std::make_unique<broker_process>(bus()); }

private:
    temporary_folder folder_;
    std::unique_ptr<broker_process> broker_ = std::make_unique<broker_process>(bus());
};

using bytes = std::vector<std::uint8_t>;

// What a test's own broker does with its one client, in a thread.
class conversation {
public:
    explicit conversation(int fd) : fd_(fd) {}
    ~conversation();
    conversation(conversation &&) = delete;
    void say(const bytes &data);
    // Reads one message.
    bytes hear();
    void greet() { say({0, 0, 0, 0, 0x12, 0x34, 0x56, 0x78, 0, 0, 0, 4}); }
    // STATUS 0 in answer to a request.
    void confirm(const bytes &request);
    // Answers a request: sends `data` with the request's number and peer.
    void answer(const bytes &request, bytes data);
    // True if the client leaves.
    bool is_left();

private:
    int fd_;
};

class scripted_broker {
public:
    explicit scripted_broker(std::function<void(conversation &)> script);
    ~scripted_broker();
    scripted_broker(scripted_broker &&) = delete;
    std::string socket() const { return folder_.file("ubus.sock"); }

private:
    temporary_folder folder_;
    int listener_;
    std::thread thread_;
};

// The texts and numbers of a message, as JSON.
std::string json(blob_attr *msg);

// A message that is built and thrown away.
class fields {
public:
    explicit fields(const std::string &json = "{}");
    ~fields() { blob_buf_free(&buf_); }
    fields(fields &&) = delete;
    operator blob_attr *() const { return buf_.head; }

private:
    blob_buf buf_{};
};

#endif
