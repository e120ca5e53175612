#include "collector/spool.h"

#include "collector/times.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/file.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::uint64_t files_of_a_spool = 16;
constexpr std::size_t read_at_once = 4096; // most records are smaller
constexpr auto sync_interval = std::chrono::seconds(5);
constexpr std::string_view suffix = ".spool";

std::string why() { return std::strerror(errno); }

// False if not everything was written; the caller then cuts the file to its old length.
bool write_at(int fd, std::string_view bytes, std::uint64_t at) {
    while (!bytes.empty()) {
        const ssize_t done = pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(at));
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(done));
        at += static_cast<std::uint64_t>(done);
    }
    return true;
}

// Up to `size` bytes; fewer at the end of the file, or where it cannot be read.
void read_at(int fd, std::uint64_t at, std::size_t size, std::string &out) {
    out.resize(size);
    std::size_t have = 0;
    while (have < size) {
        const ssize_t got = pread(fd, out.data() + have, size - have, static_cast<off_t>(at + have));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        have += static_cast<std::size_t>(got);
    }
    out.resize(have);
}

bool cut_at(int fd, std::uint64_t size) { return ftruncate(fd, static_cast<off_t>(size)) == 0; }

} // namespace

spool::spool(spool_options chosen, speaker say) : chosen_(std::move(chosen)), say_(std::move(say)) {
    if (chosen_.folder.empty()) return;
    std::error_code error;
    if (std::filesystem::create_directories(chosen_.folder, error); error)
        throw std::runtime_error("spool: " + chosen_.folder + ": " + error.message());
    folder_ = open(chosen_.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder_ < 0) throw std::runtime_error("spool: " + chosen_.folder + ": " + why());
    try {
        if (flock(folder_, LOCK_EX | LOCK_NB) != 0)
            throw std::runtime_error("spool: " + chosen_.folder + ": " +
                                     (errno == EWOULDBLOCK ? "another collector uses it" : why()));
        open_all();
    } catch (...) {
        for (const file &each : files_) close(each.fd);
        close(folder_);
        throw;
    }
}

spool::~spool() {
    for (const file &each : files_) close(each.fd);
    if (folder_ >= 0) close(folder_);
}

std::string spool::path_of(std::uint64_t number) const {
    char name[17];
    (void)std::snprintf(name, sizeof(name), "%016llx", static_cast<unsigned long long>(number));
    return chosen_.folder + "/" + name + std::string(suffix);
}

void spool::open_all() {
    std::vector<std::uint64_t> numbers;
    std::error_code error;
    for (std::filesystem::directory_iterator at(chosen_.folder, error), end; !error && at != end;
         at.increment(error)) {
        const std::string name = at->path().filename().string();
        std::uint64_t number = 0;
        const auto [stop, bad] = std::from_chars(name.data(), name.data() + name.size(), number, 16);
        if (bad == std::errc() && number != 0 && path_of(number) == chosen_.folder + "/" + name)
            numbers.push_back(number);
    }
    if (error) throw std::runtime_error("spool: " + chosen_.folder + ": " + error.message());
    std::sort(numbers.begin(), numbers.end());
    for (const std::uint64_t number : numbers) open_one(number);
    while (bytes_ > chosen_.most_bytes && !files_.empty()) make_room();
    if (on_disk_ > 0) say_(std::to_string(on_disk_) + " messages wait in " + chosen_.folder);
}

void spool::open_one(std::uint64_t number) {
    const std::string path = path_of(number);
    last_number_ = std::max(last_number_, number);
    file one{number, open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW), 0, spool_head_size, 0};
    if (one.fd < 0) throw std::runtime_error("spool: " + path + ": " + why());
    one.size = static_cast<std::uint64_t>(std::max<off_t>(lseek(one.fd, 0, SEEK_END), 0));
    if (one.size < spool_head_size) { // the program was killed while it made the file
        close(one.fd);
        unlink(path.c_str());
        return;
    }
    std::uint64_t begin = 0;
    read_at(one.fd, 0, spool_head_size, chunk_);
    const bool known = spool_read_head(chunk_, begin);
    // Finds the end of the records, and the first record that was not acknowledged. A mark that is not at a record is ignored:
    // the program was killed after it emptied the file and before it changed the mark.
    std::uint64_t at = spool_head_size, waiting = 0, all = 0;
    bool begun = begin == spool_head_size;
    letter ignored;
    spool_found found{known ? spool_verdict::whole : spool_verdict::damaged, 0};
    while (known && at < one.size) {
        found = read_record(one, at, ignored);
        if (found.verdict != spool_verdict::whole) break;
        at += found.size;
        ++all;
        if (begun)
            ++waiting;
        else
            begun = at == begin;
    }
    one.next = begun ? begin : spool_head_size;
    one.waiting = begun ? waiting : all;
    files_.push_back(one);
    bytes_ += one.size;
    on_disk_ += one.waiting;
    if (found.verdict == spool_verdict::damaged)
        set_aside(files_.back(), known ? at : 0);
    else if (at < one.size && cut_at(one.fd, at)) { // the program was killed while it wrote the last record
        bytes_ -= one.size - at;
        files_.back().size = at;
    }
    if (files_.back().waiting == 0) {
        bytes_ -= files_.back().size;
        close(files_.back().fd);
        files_.pop_back();
        unlink(path.c_str());
    }
}

// The file keeps the `good` bytes before the damage; a copy of the whole file is left beside it for inspection.
void spool::set_aside(file &of, std::uint64_t good) {
    const std::string path = path_of(of.number), fresh = path + ".new";
    const std::string aside = path + ".damaged-" + std::to_string(now() / second);
    say_(path + " is damaged: set aside as " + aside + "; " + std::to_string(of.waiting) +
         " messages in front of the damage are kept");
    const int fd = open(fresh.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    bool whole = fd >= 0;
    for (std::uint64_t at = 0; whole && at < good;) {
        read_at(of.fd, at, std::min<std::uint64_t>(good - at, 1 << 16), chunk_);
        whole = !chunk_.empty() && write_at(fd, chunk_, at);
        at += chunk_.size();
    }
    // If the program is killed in between, this is done again at the next start.
    whole = whole && link(path.c_str(), aside.c_str()) == 0 && rename(fresh.c_str(), path.c_str()) == 0;
    if (!whole) { // there is no space for both
        say_(fresh + ": " + why() + ": they are not kept");
        if (fd >= 0) close(fd);
        unlink(fresh.c_str());
        if (rename(path.c_str(), aside.c_str()) != 0)
            throw std::runtime_error("spool: " + path + ": cannot be set aside: " + why());
        dropped_ += of.waiting;
        on_disk_ -= of.waiting;
        bytes_ -= of.size;
        of.size = of.waiting = 0;
        return;
    }
    close(of.fd);
    of.fd = fd;
    bytes_ -= of.size - good;
    of.size = good;
}

spool_found spool::read_record(const file &of, std::uint64_t at, letter &out) {
    read_at(of.fd, at, std::min<std::uint64_t>(read_at_once, of.size - at), chunk_);
    spool_found found = spool_read(chunk_, out);
    if (found.verdict == spool_verdict::short_ && found.size > chunk_.size() && found.size <= of.size - at) {
        read_at(of.fd, at, found.size, chunk_);
        found = spool_read(chunk_, out);
    }
    return found;
}

bool spool::begin_file() {
    const std::string path = path_of(last_number_ + 1);
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) return false;
    if (!write_at(fd, spool_head(spool_head_size), 0)) {
        const int error = errno;
        close(fd);
        unlink(path.c_str());
        errno = error;
        return false;
    }
    files_.push_back({++last_number_, fd, spool_head_size, spool_head_size, 0});
    bytes_ += spool_head_size;
    return true;
}

// False: it could not be written, and nothing has changed.
bool spool::append(const letter &one) {
    const std::string record = spool_record(one);
    const bool fits =
        !files_.empty() && files_.back().size + record.size() <= chosen_.most_bytes / files_of_a_spool;
    while (!files_.empty() && bytes_ + record.size() + (fits ? 0 : spool_head_size) > chosen_.most_bytes)
        make_room();
    if ((!fits || files_.empty()) && !begin_file()) return false;
    file &last = files_.back();
    if (!write_at(last.fd, record, last.size)) {
        const int error = errno;
        (void)cut_at(last.fd, last.size);
        errno = error;
        return false;
    }
    last.size += record.size();
    ++last.waiting;
    bytes_ += record.size();
    ++on_disk_;
    unsynced_ = true;
    return true;
}

void spool::push(letter one) {
    if (spool_record_head + 3 + one.topic.size() + one.payload.size() > spool_most_body) {
        ++dropped_;
        return say_("a message is too long");
    }
    memory_.push_back(std::move(one));
    write_waiting();
    while (memory_.size() > chosen_.most_in_memory) {
        if (on_disk_ > 0) { // the oldest messages are on disk, and dropping them makes room
            make_room();
            write_waiting();
        } else {
            memory_.pop_front();
            lose(1);
        }
    }
}

void spool::write_waiting() {
    if (folder_ < 0) return;
    while (!memory_.empty() && append(memory_.front())) memory_.pop_front();
    if (!memory_.empty() && !failing_) say_(chosen_.folder + ": " + why() + ": what comes waits in memory");
    if (memory_.empty() && failing_) say_(chosen_.folder + ": can be written again");
    failing_ = !memory_.empty();
}

void spool::remove_oldest() {
    file &oldest = files_.front();
    on_disk_ -= oldest.waiting;
    bytes_ -= oldest.size;
    unlink(path_of(oldest.number).c_str());
    close(oldest.fd);
    files_.pop_front();
}

void spool::make_room() {
    const std::uint64_t lost = files_.front().waiting;
    remove_oldest();
    if (lost > 0) lose(lost);
}

void spool::lose(std::uint64_t count) {
    if (!full_) say_("the spool is full: the oldest messages are dropped");
    full_ = true;
    dropped_ += count;
}

bool spool::take(letter &out) {
    while (on_disk_ > 0) {
        const auto at =
            std::find_if(files_.begin(), files_.end(), [](const file &each) { return each.waiting > 0; });
        const spool_found found = read_record(*at, at->next, out);
        if (found.verdict == spool_verdict::whole) {
            at->next += found.size;
            --at->waiting;
            --on_disk_;
            taken_.push_back({at->number, at->next});
            return true;
        }
        // The record was complete when it was written, so the disk has lost it.
        say_(path_of(at->number) + " cannot be read any more");
        on_disk_ -= at->waiting;
        dropped_ += at->waiting;
        at->waiting = 0;
        at->next = at->size;
    }
    if (memory_.empty()) return false;
    out = std::move(memory_.front());
    memory_.pop_front();
    taken_.push_back({0, 0});
    return true;
}

void spool::acknowledged() {
    if (taken_.empty()) return;
    const place done = taken_.front();
    taken_.pop_front();
    if (done.file != 0) mark(done.file, done.end);
}

void spool::refused() {
    if (taken_.empty()) return;
    const place done = taken_.back();
    taken_.pop_back();
    ++dropped_;
    if (done.file != 0 && taken_.empty()) mark(done.file, done.end);
}

// Everything up to `end` of this file, and in all older files, is acknowledged or refused.
void spool::mark(std::uint64_t number, std::uint64_t end) {
    while (!files_.empty() && files_.front().number < number && files_.front().waiting == 0) remove_oldest();
    if (files_.empty() || files_.front().number != number) return; // the file was dropped to make room
    file &of = files_.front();
    const bool over = of.waiting == 0 && end == of.next;
    if (over && files_.size() > 1) return remove_oldest();
    // Cut before the mark is set back: a mark after the end is ignored.
    if (over && cut_at(of.fd, spool_head_size)) {
        bytes_ -= of.size - spool_head_size;
        of.size = of.next = end = spool_head_size;
    }
    // If the mark cannot be written, some messages are sent twice; but an old mark must not stay in an emptied file.
    if (!write_at(of.fd, spool_head(end), 0) && of.next == spool_head_size) remove_oldest();
}

void spool::sync() {
    const auto when = std::chrono::steady_clock::now();
    if (!unsynced_ || on_disk_ == 0 || when - synced_ < sync_interval) return;
    synced_ = when;
    unsynced_ = false;
    for (const file &each : files_) (void)fdatasync(each.fd);
    (void)fsync(folder_);
}

std::uint64_t spool::lost_by_an_end() const {
    const std::uint64_t oldest = files_.empty() ? UINT64_MAX : files_.front().number;
    return dropped_ + memory_.size() +
           static_cast<std::uint64_t>(std::count_if(
               taken_.begin(), taken_.end(), [oldest](const place &one) { return one.file < oldest; }));
}

backlog spool::figures() const { return {waiting(), bytes_, folder_ >= 0 ? memory_.size() : 0, dropped_}; }
