// The input is the station backup file that a start finds. The restored stations go online, are written again, and are
// restored at the next start; those that nothing confirms are swept.
#include "life.h"

#include "life/pass.h"
#include "life/restore.h"
#include "life/sweep.h"
#include "outputs/backup.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    life here;
    write_file("/tmp/sta_sta.info", as_text(data, size));
    write_file("/tmp/sta_devc.info", as_text(data, size));
    sta_sta_load_users();
    sta_sta_load_devc();
    here.run_timers();
    sta_sta_users_backup_del(life::online);
    sta_sta_load_users();
    sta_sta_flow_count_proc();
    sta_sta_restored_sweep(nullptr);
    return 0;
}
