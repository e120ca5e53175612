// kernel.h - the two sockets to the kernel's wireless configuration: one listens, one sends requests.
#pragma once

#include "nl80211/kernel_message.h"

#include <cstdint>
#include <libubox/uloop.h>

struct nl_sock;

class kernel {
public:
    struct handlers {
        void (*heard)(void *owner, const kernel_message &message);
        void (*overrun)(void *owner); // messages have been lost
        void *owner;
    };
    explicit kernel(const handlers &told) noexcept : told_(told) {}
    ~kernel() { close(); }
    kernel(kernel &&) = delete;

    // Finds the family and listens to it. False when there is none yet: the first wireless driver brings it.
    bool open() noexcept;
    void close() noexcept;
    bool is_open() const { return asker_ != nullptr; }

    // Sends a request and waits for the kernel, which answers at once. `answer` gets each message. Returns 0, or a negative
    // error number: -ENOENT when the interface or station, or the whole family, is gone.
    using answer = void (*)(void *context, const kernel_message &message);
    int interfaces(answer to, void *context) noexcept;
    int interface(std::uint32_t ifindex, answer to, void *context) noexcept;
    int stations(std::uint32_t ifindex, answer to, void *context) noexcept;
    int station(std::uint32_t ifindex, const mac_address &mac, answer to, void *context) noexcept;
    int survey(std::uint32_t ifindex, answer to, void *context) noexcept;
    int remove_station(std::uint32_t ifindex, const mac_address &mac) noexcept;

private:
    struct question {
        std::uint8_t command;
        bool all;
        std::uint32_t ifindex; // 0: none
        const mac_address *mac;
    };
    struct watch : uloop_fd {
        kernel *owner;
    };
    int ask(const question &what, answer to, void *context) noexcept;
    bool listen_to(const char *group) noexcept;
    void listen() noexcept;

    handlers told_;
    nl_sock *listener_ = nullptr;
    nl_sock *asker_ = nullptr;
    int family_ = -1;
    watch watch_{};
};
