// stop.h - whether the daemon has been asked to end.
#pragma once

// SIGINT or SIGTERM has come: taken by the loop, or held back because the loop does not run.
bool sta_stop_pending();
