/* uci_config.h - debugging options of uci.h. */
#ifndef UCI_CONFIG_H
#define UCI_CONFIG_H

/* Have uci_to_package() and its like check the element's type and complain on standard error: */
/* #define UCI_DEBUG_TYPECAST */

#endif
