// channel.h - the daemon's one generic netlink socket: opening it, finding the driver's family, sending
// messages.
//
// Owns:   the channel state below; the socket is never closed after a successful start.
// Source: the kernel's netlink headers. Everything is in host byte order.
// Logs:   level 7, failures of socket calls.   Blocks: the family look-up, until the controller answers.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr std::size_t sta_nl_message_max = 2068; // bytes received at once

// Channel state. `family` is set at start and by a late announcement.
struct sta_nl_channel {
    int socket;         // -1 while not open
    int family;         // -1 at first; 0 and below: unknown
    std::uint32_t port; // port id that the kernel gave the socket
};
extern "C" {
extern sta_nl_channel sta_nl;

// Opens and binds a generic netlink socket, as a member of the controller's announcements when `join` is
// non-zero, and stores its port id at `port` (may be null). The descriptor (close-on-exec, blocking), or -1.
int sta_nl_socket(std::uint32_t *port, int join);

// Asks the controller for the identifier of family `name`. The identifier, or 0: one answer is read, and only
// the controller's usual order (name, then identifier) is accepted.
int sta_nl_get_family_id(int socket, const char *name);

// Sends one message with one attribute to the kernel. The attribute's length counts one byte more than header
// and payload (Deliberate: the driver expects it); that byte is zero. A null payload sends `length` zero
// bytes. 0, also for message type 0, which sends nothing; -1 on failure.
int sta_nl_send_msg(int socket, int type, std::uint32_t port, std::uint8_t cmd, std::uint8_t version,
                    std::uint16_t attribute, const void *payload, int length);

// Registers the daemon with the driver: own port and `limit`, the number of stations it may admit. As
// sta_nl_send_msg.
int sta_nl_register(std::int32_t limit);

// Sends the driver the empty notice of type 4. Without a socket, a family or a port nothing is sent and that
// value is returned. The daemon itself does not call it; it is part of the exported interface.
int sta_nl_send_notice(void);
}

// The payload of the attribute of a controller's message ("name, then identifier") in `message` of `received`
// bytes: the family's identifier when the name is `name`, else 0. Reads nothing outside the received bytes.
int sta_nl_family_in(const std::uint8_t *message, std::size_t received, const char *name) noexcept;

// Opens the channel's socket, a member of the controller's announcements, and looks the driver's family up. 0, or -1
// without a socket. The family may be missing (sta_nl.family is then 0): the driver announces it when it starts.
int sta_nl_open() noexcept;

// Whether another message waits in the channel's socket.
bool sta_nl_has_more() noexcept;

// True when `message`, which is not broken, is a station event of the driver's family.
bool sta_nl_is_event(const std::uint8_t *message) noexcept;

// Takes the family's number from a message of the controller that announces it, and registers with the driver.
void sta_nl_take_announcement(const std::uint8_t *message, std::size_t received) noexcept;

// True when the received bytes are not a usable netlink message: an error message, too short, or of a wrong
// length.
bool sta_nl_is_broken(const std::uint8_t *message, long received) noexcept;
