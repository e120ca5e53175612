#include "life/timers.h"

#include "life/pass.h"
#include "tools/health.h"
#include "tools/log.h"
#include "tools/stop.h"

#include <algorithm>
#include <climits>

std::int32_t sta_log_update_period = 60;
struct uloop_timeout sta_flow_count_timeout = {};
struct uloop_timeout sta_log_up_timeout = {};
struct uloop_timeout sta_single_log_up_timeout = {};

namespace {

void arm(struct uloop_timeout *timer, uloop_timeout_handler callback, int ms) {
    timer->cb = callback;
    uloop_timeout_set(timer, ms);
}

// In milliseconds, limited to the range of int: a period of 25 days or more must not become negative.
int milliseconds(std::int32_t seconds) {
    return static_cast<int>(std::clamp<std::int64_t>(std::int64_t{seconds} * 1000, INT_MIN, INT_MAX));
}

} // namespace

void sta_flow_count_timer(struct uloop_timeout *timer) {
    const sta_turn turn{"five-second pass"};
    sta_sta_flow_count_proc();
    arm(timer, sta_flow_count_timer, 5000);
}

void sta_sta_log_up_timer(struct uloop_timeout *timer) {
    const sta_turn turn{"log-up"};
    sta_sta_log_up_proc();
    STA_LOG("update period:%d s\n", sta_log_update_period);
    // A timer with a negative period is due again at once, and the loop runs due timers before it checks for a stop.
    if (!sta_stop_pending()) arm(timer, sta_sta_log_up_timer, milliseconds(sta_log_update_period));
}

void sta_single_log_up_timer(struct uloop_timeout *timer) {
    const sta_turn turn{"early reports"};
    sta_sta_single_log_up_proc();
    arm(timer, sta_single_log_up_timer, 1000);
}

void sta_sta_log_set_uptate_time(int seconds) {
    STA_LOGFILE("update time=%d\n", seconds);
    sta_log_update_period = seconds;
    uloop_timeout_cancel(&sta_log_up_timeout);
    sta_sta_log_up_timer(&sta_log_up_timeout);
}
