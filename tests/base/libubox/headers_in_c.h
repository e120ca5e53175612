// headers_in_c.h - the functions of headers_in_c.c, which is compiled as C, and the results expected of them.
#ifndef TESTS_BASE_LIBUBOX_HEADERS_IN_C_H
#define TESTS_BASE_LIBUBOX_HEADERS_IN_C_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct c_constants {
    uint16_t be16;
    uint32_t be32;
    uint32_t le32;
};
extern struct c_constants c_constants;

int c_list_sum(void);         // 321
int c_tree_sum(void);         // 103: b twice, then a + b three times
int c_message_sum(void);      // 2321: 1 + 20 + 300, and 1000 for each of two members
int c_loop_fires(void);       // 1
int c_fallthrough(int n);     // 3 for 1, 2 for 2
int c_assert_is_active(void); // 1

#ifdef __cplusplus
}
#endif

#endif
