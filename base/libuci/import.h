// import.h - from the text of a package to the package.
#pragma once

#include <uci.h>

namespace uci {

// Reads a stream into p, which belongs to the caller in every case. "package" lines are checked and ignored.
// record: what is read is merged into p, and each change is recorded. Results as uci_load; a malformed line
// is described in the context, and is fatal only in strict mode.
int parse_package(uci_context *ctx, FILE *stream, uci_package *p, bool record);

} // namespace uci
