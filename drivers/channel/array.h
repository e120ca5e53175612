// array.h - a growing array of plain values, for programs without the C++ runtime library.
//
// Without memory push() and reserve() return false, and the array is unchanged.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <utility>

template <class T> class array {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);

public:
    array() = default;
    array(const array &) = delete;
    array(array &&other) noexcept
        : items_(std::exchange(other.items_, nullptr)), size_(std::exchange(other.size_, 0)),
          room_(std::exchange(other.room_, 0)) {}
    array &operator=(array &&other) noexcept {
        std::swap(items_, other.items_);
        std::swap(size_, other.size_);
        std::swap(room_, other.room_);
        return *this;
    }
    ~array() { std::free(items_); }

    // False without memory.
    bool reserve(std::size_t room) noexcept {
        if (room <= room_) return true;
        void *grown = std::realloc(static_cast<void *>(items_), room * sizeof(T));
        if (!grown) return false;
        items_ = static_cast<T *>(grown);
        room_ = room;
        return true;
    }
    bool push(const T &added) noexcept {
        const T copy = added; // `added` may be an element of this array
        if (size_ == room_ && !reserve(room_ < 8 ? 8 : room_ * 2)) return false;
        items_[size_++] = copy;
        return true;
    }
    // Before the one at `index`; false without memory.
    bool insert(std::size_t index, const T &added) noexcept {
        if (!push(added)) return false;
        const T last = items_[size_ - 1];
        std::memmove(static_cast<void *>(items_ + index + 1), items_ + index,
                     (size_ - 1 - index) * sizeof(T));
        items_[index] = last;
        return true;
    }
    // The others keep their order.
    void erase(std::size_t index) noexcept {
        --size_;
        std::memmove(static_cast<void *>(items_ + index), items_ + index + 1, (size_ - index) * sizeof(T));
    }
    // The last one takes the place of the removed one.
    void remove(std::size_t index) noexcept { items_[index] = items_[--size_]; }
    void clear() noexcept { size_ = 0; }
    // Keeps the first `size`.
    void cut(std::size_t size) noexcept {
        if (size < size_) size_ = size;
    }

    // The first one that passes the test; end() when none does. The library's find_if has its test four times in its code.
    template <class Test> const T *find(Test &&test) const noexcept {
        const T *at = begin();
        while (at != end() && !test(*at)) ++at;
        return at;
    }

    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    T &operator[](std::size_t index) noexcept { return items_[index]; }
    const T &operator[](std::size_t index) const noexcept { return items_[index]; }
    T *begin() noexcept { return items_; }
    T *end() noexcept { return items_ + size_; }
    const T *begin() const noexcept { return items_; }
    const T *end() const noexcept { return items_ + size_; }

private:
    T *items_ = nullptr;
    std::size_t size_ = 0;
    std::size_t room_ = 0;
};
