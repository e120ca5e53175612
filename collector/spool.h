// spool.h - the messages that wait for a broker: in a folder, where they survive the program's end, or in memory.
//
// Order:  first in, first out. What take() gives is kept until acknowledged() or refused() says that it is dealt with; a
//         spool that is opened again begins with the first that was not.
// Ends:   what push() has written survives a kill at any moment; a record that it was just writing does not. A power cut may
//         cost what came since the last sync().
// Bounds: a folder holds `most_bytes`, in files of a sixteenth; when it is full the oldest file goes, and what nobody has
//         taken from it is counted as dropped.
// Errors: what cannot be written waits in memory, up to `most_in_memory` messages, and is written when that is possible
//         again; then the oldest is dropped and counted. A damaged file is set aside as FILE.damaged-TIME; what is in front
//         of the damage is kept. Each is said once.
// Thread: one at a time.
#pragma once

#include "collector/backlog.h"
#include "collector/spool_format.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>

struct spool_options {
    std::string folder; // empty: memory only
    std::uint64_t most_bytes = 64ULL << 20;
    std::size_t most_in_memory = 100'000; // messages
};

class spool {
public:
    using speaker = std::function<void(const std::string &)>;
    // Makes the folder when there is none. std::runtime_error when it cannot be used, or another program uses it.
    spool(spool_options chosen, speaker say);
    ~spool();
    spool(spool &&) = delete;

    void push(letter one);
    bool empty() const { return waiting() == 0; }
    // The next one. False: there is none.
    bool take(letter &out);
    // The oldest one that was taken has arrived.
    void acknowledged();
    // The newest one that was taken cannot be sent by anybody: it is dropped and counted.
    void refused();
    // Makes what was written survive a power cut, at most once in some seconds.
    void sync();

    // `waiting`: those that nobody has taken.
    backlog figures() const;
    // Messages that nobody will get any more if the program ends now.
    std::uint64_t lost_by_an_end() const;

private:
    struct file {
        std::uint64_t number = 0;
        int fd = -1;
        std::uint64_t size = 0;
        std::uint64_t next = 0;    // offset of the next record to be taken
        std::uint64_t waiting = 0; // records from there on
    };
    struct place {
        std::uint64_t file; // 0: memory
        std::uint64_t end;
    };
    std::uint64_t waiting() const { return on_disk_ + memory_.size(); }
    std::string path_of(std::uint64_t number) const;
    void open_all();
    void open_one(std::uint64_t number);
    void set_aside(file &of, std::uint64_t good);
    spool_found read_record(const file &of, std::uint64_t at, letter &out);
    bool append(const letter &one);
    bool begin_file();
    void write_waiting();
    void remove_oldest();
    void make_room();
    void lose(std::uint64_t count);
    void mark(std::uint64_t number, std::uint64_t end);

    spool_options chosen_;
    speaker say_;
    int folder_ = -1;           // locked
    std::deque<file> files_;    // the oldest first; the last one is written to
    std::deque<letter> memory_; // behind those on disk
    std::deque<place> taken_;
    std::uint64_t on_disk_ = 0; // that wait
    std::uint64_t bytes_ = 0;
    std::uint64_t last_number_ = 0;
    std::uint64_t dropped_ = 0;
    bool failing_ = false;
    bool full_ = false; // has been said
    bool unsynced_ = false;
    std::chrono::steady_clock::time_point synced_{};
    std::string chunk_;
};
