/* uci_config.h - debugging choices that uci.h obeys; a device sets neither. */
#ifndef UCI_CONFIG_H
#define UCI_CONFIG_H

/* Have uci_to_package() and its like check the element's type and complain on standard error: */
/* #define UCI_DEBUG_TYPECAST */

#endif
