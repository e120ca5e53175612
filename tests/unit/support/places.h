// places.h - the file system of a test program: a mount namespace in which it has the daemon's absolute paths
// for itself.
#pragma once

#include <string>

// Enters the namespaces and covers /tmp, /run, /etc, /proc, /dev and /mnt. Called once, before the first test. Ends
// the program with a message on standard error when the kernel does not allow it.
void enter_places();

// Empties /tmp, /run, /etc/config and /proc/tk_sys. There is no /dev/console.
void empty_places();

// The support's own folder for what is covered: no path of the daemon leads there.
inline const std::string shelf = "/mnt";
