// lock.h - one instance only.
#pragma once

extern "C" {
// Takes the write lock on "/tmp/.sta_file_lockpath" (made with mode 0700) and keeps the descriptor open for
// the life of the process. False when the file cannot be opened or another process holds the lock. Call it once:
// closing any descriptor of the file releases the lock.
bool sta_file_lock(void);
}
