// places.h - the file system of a test program: a mount namespace in which the daemon's absolute places are
// its own.
#pragma once

#include <string>

// Enters the namespaces and covers /tmp, /run, /etc, /proc, /dev and /mnt. Called once, before the first test. Ends
// the program with a word on standard error when the kernel does not allow it.
void enter_places();

// Empties /tmp, /run, /etc/config and /proc/tk_sys. There is no /dev/console.
void empty_places();

// The support's own shelf: no path of the daemon leads there.
inline const std::string shelf = "/mnt";

// Makes links in /proc for the processes there will soon be, too: numbers are handed out in rising order. A link whose
// process does not exist dangles, which reads as "no such file", as it should. (Who needs one: the leak checker of a child.)
void link_processes();
