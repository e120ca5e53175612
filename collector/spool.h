// spool.h - the messages that wait for a broker: in a folder, where they survive the program's end, or in memory.
//
// Order:  first in, first out. A message from take() is kept until acknowledged() or refused() is called for it; a spool
//         that is opened again begins with the first one for which neither was.
// Ends:   a message survives a kill of the program once push() has returned; a power cut may lose messages since the last
//         sync().
// Bounds: a folder holds `most_bytes`, in files of a sixteenth; when it is full the oldest file is deleted, and its
//         messages that were not taken are counted as dropped.
// Errors: messages that cannot be written wait in memory and are written when that is possible again; above
//         `most_in_memory` messages the oldest is dropped and counted. A damaged file is set aside as FILE.damaged-TIME; the
//         records before the damage are kept. Each error is printed once.
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
    // Makes the folder if it is missing. Throws std::runtime_error when it cannot be used, or another program uses it.
    spool(spool_options chosen, speaker say);
    ~spool();
    spool(spool &&) = delete;

    void push(letter one);
    bool empty() const { return waiting() == 0; }
    // Gives the next message. False: there is none.
    bool take(letter &out);
    // The oldest message that was taken has arrived.
    void acknowledged();
    // The newest message that was taken can never be sent: it is dropped and counted.
    void refused();
    // Makes written messages survive a power cut; does so at most once every few seconds.
    void sync();

    // `waiting`: messages not taken yet.
    backlog figures() const;
    // Messages that are lost if the program ends now.
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
    std::deque<letter> memory_; // newer than those on disk
    std::deque<place> taken_;
    std::uint64_t on_disk_ = 0; // waiting
    std::uint64_t bytes_ = 0;
    std::uint64_t last_number_ = 0;
    std::uint64_t dropped_ = 0;
    bool failing_ = false;
    bool full_ = false; // was printed
    bool unsynced_ = false;
    std::chrono::steady_clock::time_point synced_{};
    std::string chunk_;
};
