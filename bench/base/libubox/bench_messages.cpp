// One station as a message of 54 members: written, read, and formatted; each compared with copying the same
// bytes.
#include <benchmark/benchmark.h>
#include <libubox/blobmsg_json.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int members = 54;

enum class kind { text, u16, u32, u64 };
struct member {
    std::string name;
    kind type;
};

// Names and types like those of a station: a third of texts, the rest counters and times.
const std::array<member, members> table = [] {
    constexpr kind types[] = {kind::text, kind::u64, kind::u32, kind::text, kind::u32, kind::u16};
    std::array<member, members> t;
    for (std::size_t i = 0; i < members; ++i) {
        constexpr const char *stems[] = {"ssid", "rx_bytes", "online_time", "ifname", "signal", "channel"};
        t[i] = {stems[i % 6] + std::string{"_"} + std::to_string(i), types[i % 6]};
    }
    return t;
}();

void encode(blob_buf *b) {
    blobmsg_buf_init(b);
    std::uint32_t value = 12345;
    for (const member &m : table) {
        value = value * 1664525 + 1013904223;
        switch (m.type) {
        case kind::text: blobmsg_add_string(b, m.name.c_str(), "a text of 22 characters"); break;
        case kind::u16: blobmsg_add_u16(b, m.name.c_str(), static_cast<std::uint16_t>(value)); break;
        case kind::u32: blobmsg_add_u32(b, m.name.c_str(), value); break;
        case kind::u64: blobmsg_add_u64(b, m.name.c_str(), std::uint64_t{value} * value); break;
        }
    }
}

struct message {
    blob_buf buf = {};
    message() { encode(&buf); }
    ~message() { blob_buf_free(&buf); }
    std::size_t size() const { return blob_pad_len(buf.head); }
};

void count_bytes(benchmark::State &state, std::size_t each) {
    state.SetBytesProcessed(static_cast<std::int64_t>(each) * state.iterations());
}

void copy_message(benchmark::State &state) {
    const message m;
    std::vector<char> to(m.size());
    for (auto _ : state) {
        std::memcpy(to.data(), m.buf.head, m.size());
        benchmark::ClobberMemory();
    }
    count_bytes(state, m.size());
}
BENCHMARK(copy_message);

void encode_message(benchmark::State &state) {
    message m;
    for (auto _ : state) encode(&m.buf);
    count_bytes(state, m.size());
}
BENCHMARK(encode_message);

void encode_message_into_a_new_buffer(benchmark::State &state) {
    for (auto _ : state) message{};
    count_bytes(state, message{}.size());
}
BENCHMARK(encode_message_into_a_new_buffer);

// Floor of parsing: reads each member's header and name once.
void walk_message(benchmark::State &state) {
    const message m;
    for (auto _ : state) {
        blob_attr *pos;
        std::size_t rem;
        blobmsg_for_each_attr (pos, m.buf.head, rem)
            benchmark::DoNotOptimize(blobmsg_check_attr_len(pos, true, rem));
    }
    count_bytes(state, m.size());
}
BENCHMARK(walk_message);

void parse_message(benchmark::State &state) {
    const message m;
    blobmsg_policy policy[members];
    for (std::size_t i = 0; i < members; ++i) policy[i] = {table[i].name.c_str(), BLOBMSG_TYPE_UNSPEC};
    blob_attr *tb[members];
    for (auto _ : state) benchmark::DoNotOptimize(blobmsg_parse_attr(policy, members, tb, m.buf.head));
    if (!tb[members - 1]) state.SkipWithError("a member was not found");
    count_bytes(state, m.size());
}
BENCHMARK(parse_message);

// A method's few arguments, the usual case.
void parse_three_arguments(benchmark::State &state) {
    message m;
    blobmsg_buf_init(&m.buf);
    blobmsg_add_string(&m.buf, "mac", "02:00:00:00:00:01");
    blobmsg_add_u32(&m.buf, "radio", 1);
    blobmsg_add_u8(&m.buf, "online", 1);
    const blobmsg_policy policy[] = {
        {"mac", BLOBMSG_TYPE_STRING}, {"radio", BLOBMSG_TYPE_INT32}, {"online", BLOBMSG_TYPE_BOOL}};
    blob_attr *tb[3];
    for (auto _ : state) benchmark::DoNotOptimize(blobmsg_parse_attr(policy, 3, tb, m.buf.head));
}
BENCHMARK(parse_three_arguments);

void copy_text(benchmark::State &state) {
    const message m;
    char *text = blobmsg_format_json(m.buf.head, true);
    const std::size_t size = std::strlen(text);
    for (auto _ : state) {
        char *to = static_cast<char *>(std::malloc(size + 1));
        std::memcpy(to, text, size + 1);
        benchmark::DoNotOptimize(to);
        std::free(to);
    }
    std::free(text);
    count_bytes(state, size);
}
BENCHMARK(copy_text);

void format_message(benchmark::State &state) {
    const message m;
    std::size_t size = 0;
    for (auto _ : state) {
        char *text = blobmsg_format_json(m.buf.head, true);
        benchmark::DoNotOptimize(text);
        if (!size) size = std::strlen(text);
        std::free(text);
    }
    count_bytes(state, size);
}
BENCHMARK(format_message);

} // namespace
