// avl-cmp.h - comparison functions for trees; the third argument is unused.
#ifndef LIBUBOX_AVL_CMP_H
#define LIBUBOX_AVL_CMP_H

#include "decls.h"

BASE_DECLS_BEGIN

// Keys are texts.
int avl_strcmp(const void *k1, const void *k2, void *ptr);

// Keys are struct blob_attr: compares headers and payloads byte by byte, as far as the shorter one reaches.
int avl_blobcmp(const void *k1, const void *k2, void *ptr);

BASE_DECLS_END

#endif
