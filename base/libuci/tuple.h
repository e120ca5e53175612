// tuple.h - "package.section.option=value": splitting it and finding what it names.
#pragma once

#include <uci.h>

namespace uci {

// uci_parse_ptr without a context: UCI_OK, or UCI_ERR_PARSE with *ptr all zero.
int split_tuple(uci_ptr *ptr, char *str);

// Looks up the section and the option that ptr->section and ptr->option name in ptr->p; the section by its
// real name.
void find_plain(uci_ptr *ptr);

} // namespace uci
