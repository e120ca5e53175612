// stop.h - whether the daemon has been asked to end.
#pragma once

// SIGINT or SIGTERM has arrived: handled by the loop, or blocked and pending because the loop does not run yet.
bool sta_stop_pending();
