// file.h - packages as files: found, read with their deltas, replaced.
#pragma once

#include "model.h"

namespace uci {

// The backend's operations; see uci.h.
int list_packages(uci_context *ctx, char ***list);
int load_package(uci_context *ctx, const char *name, uci_package **package);
int commit_package(uci_context *ctx, uci_package **package, bool overwrite);

} // namespace uci
