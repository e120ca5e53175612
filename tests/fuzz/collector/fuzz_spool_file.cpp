// The input is a file of the spool. Its records are read one by one up to the first invalid one. Each, written again, gives the
// same bytes, and a file that ends earlier has the same records, as far as they are complete.
#include "../require.h"
#include "collector/spool_format.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view all(reinterpret_cast<const char *>(data), size);
    std::uint64_t acknowledged = 0;
    if (!spool_read_head(all, acknowledged)) return 0;
    require(all.starts_with(spool_head(acknowledged)), "a head is written as it was read");
    for (std::size_t at = spool_head_size;;) {
        const std::string_view rest = all.substr(at);
        letter one;
        const spool_found found = spool_read(rest, one);
        if (found.verdict != spool_verdict::whole) {
            require(found.verdict == spool_verdict::damaged || found.size == 0 || found.size > rest.size(),
                    "what is short goes on");
            return 0;
        }
        require(found.size <= rest.size() && found.size > spool_record_head, "a record is within its file");
        require(spool_record(one) == rest.substr(0, found.size), "a record is written as it was read");
        letter cut;
        require(spool_read(rest.substr(0, found.size - 1), cut).verdict == spool_verdict::short_,
                "without its last byte it is short");
        at += found.size;
    }
}
