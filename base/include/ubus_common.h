// ubus_common.h - small helpers that bus programs share.
#ifndef __UBUS_COMMON_H
#define __UBUS_COMMON_H

#include <stdbool.h>

#include <libubox/blobmsg.h>

#define UBUS_SIGNATURE_METHOD (BLOBMSG_TYPE_LAST + 1)
#define UBUS_SIGNATURE_END (BLOBMSG_TYPE_LAST + 2)

// Stores the length of the common beginning of both texts in *len. True if they are equal.
static inline bool ubus_strmatch_len(const char *s1, const char *s2, int *len) {
    int n = 0;
    while (s1[n] != '\0' && s1[n] == s2[n]) ++n;
    *len = n;
    return s1[n] == s2[n];
}

#endif
