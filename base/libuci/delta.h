// delta.h - recorded changes: one line each, in FOLDER/PACKAGE for every folder of the delta path.
#pragma once

#include <uci.h>

namespace uci {

// Applies the deltas of all folders to p, in order. With savedir_file, the file of the last folder, the
// savedir, is locked for writing and handed to the caller open; null if there is none. *applied, if not null:
// how many changes took effect.
int apply_deltas(uci_context *ctx, uci_package *p, FILE **savedir_file, int *applied);

// Appends p->delta to its file in savedir, making folder and file where needed; all or nothing.
int save_deltas(uci_context *ctx, uci_package *p);

// Takes the lines about a package, a section of it, or an option of that out of its file in savedir.
int drop_deltas(uci_context *ctx, const char *package, const char *section, const char *option);

} // namespace uci
