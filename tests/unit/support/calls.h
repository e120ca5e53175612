// calls.h - the system calls of the netlink channel, recorded and, where a test says so, answered in place of the kernel. The
// clocks stand still, so that a report can be compared byte for byte.
#pragma once

#include "support/bytes.h"
#include "support/house.h"

#include <functional>

// A message's netlink header, and the headers of its attributes, are in the machine's byte order; the tests write them, like
// everything else, with the lowest byte first. Converts either way; `typed`: as the tests write it. Cut messages, and those
// with wrong lengths, are converted as far as possible.
byte_vector turned(byte_vector message, bool typed);

// What sendto was given, its headers converted.
struct sent_message {
    int fd;
    byte_vector bytes;
    byte_vector address;
    int flags;
};
std::vector<sent_message> &sent_messages();

// Instead of the kernel, when set: the result, or -1 with errno set.
extern std::function<long(const byte_vector &bytes)> answer_sendto;
extern std::function<long(void *buffer, std::size_t size)> answer_recv;
extern int fail_socket, fail_bind, fail_getsockname; // errno of the failure; 0: none

// A House with a kernel that has been told nothing yet.
class Channel : public House {
public:
    Channel();
    ~Channel() override;
};

// recv gives these messages, converted, one per call; then it fails with EAGAIN.
void receive(std::vector<byte_vector> messages);
