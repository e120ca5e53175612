// array.h - a growing array of plain values, for the few places that need one: the daemon does without the C++
// runtime library. Values are moved by realloc; a pointer to one is valid until the next growth.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <type_traits>

template <class T> class sta_array {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    sta_array() = default;
    ~sta_array() { std::free(values); }
    sta_array(const sta_array &) = delete;
    sta_array &operator=(const sta_array &) = delete;

    std::size_t size() const noexcept { return used; }
    T *data() noexcept { return values; }
    const T *data() const noexcept { return values; }
    T &operator[](std::size_t i) noexcept { return values[i]; }
    const T &operator[](std::size_t i) const noexcept { return values[i]; }
    T *begin() noexcept { return values; }
    T *end() noexcept { return values + used; }
    void clear() noexcept { used = 0; }
    void cut(std::size_t count) noexcept { used = count; } // no more than there are

    // Appends `count` values. False without memory: the array is then unchanged.
    bool append(const T *from, std::size_t count) noexcept {
        if (!reserve(used + count)) return false;
        if (count > 0) std::memcpy(values + used, from, count * sizeof(T));
        used += count;
        return true;
    }
    bool push(const T &value) noexcept { return append(&value, 1); }

    // Makes the array `count` values long, all of them `value`. False without memory: the array is then
    // unchanged.
    bool assign(std::size_t count, const T &value) noexcept {
        if (!reserve(count)) return false;
        used = count;
        for (T &one : *this) one = value;
        return true;
    }

    // Room for `wanted` values in all.
    bool reserve(std::size_t wanted) noexcept {
        if (wanted <= room) return true;
        const std::size_t most = wanted < 2 * room ? 2 * room : wanted;
        void *grown = std::realloc(values, most * sizeof(T));
        if (!grown) return false;
        values = static_cast<T *>(grown);
        room = most;
        return true;
    }

    // Adds the next `count` reserved values, which the caller has written.
    void extend(std::size_t count) noexcept { used += count; }

    // Removes the last `count` values.
    void shorten(std::size_t count) noexcept { used -= count; }

private:
    T *values = nullptr;
    std::size_t used = 0;
    std::size_t room = 0;
};
