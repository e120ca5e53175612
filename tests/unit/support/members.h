// members.h - a bus message as lines: "KEY TYPE value", one a member, in order; what a table or array holds follows it
// two blanks further in.
#pragma once

#include <string>
#include <vector>

struct blob_attr;

// Members of a message; `head` is its head. Fails the test when the message is not sound.
std::vector<std::string> members_of(blob_attr *head);
