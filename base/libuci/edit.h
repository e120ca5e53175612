// edit.h - changes to a loaded package, recorded in p->delta when record is true.
//
// Each returns UCI_OK, or UCI_ERR_MEM with nothing changed, or the error that uci.h states for uci_set and the like. A
// change without effect is UCI_OK and is not recorded. An option may be replaced by another object: a pointer to it is
// valid until its next change.
#pragma once

#include <uci.h>

namespace uci {

// The change that cmd stands for. ptr has been looked up; its s and o are kept up to date.
int change(uci_ptr *ptr, uci_command cmd, bool record);

// Single changes, for the reader of files. Names and types have been checked.
int add_section(uci_package *p, const char *type, bool record, uci_section **res); // anonymous
int create_section(uci_package *p, const char *type, const char *name, bool record, uci_section **res);
int set_type(uci_section *s, const char *type, bool record);
int set_option(uci_section *s, const char *name, const char *value, bool record, uci_option **res);
int add_item(uci_section *s, const char *name, const char *value, bool record, uci_option **res);

} // namespace uci
