// decls.h - brackets around the declarations of a base library: C linkage, and visible outside the library,
// which is otherwise compiled with hidden symbols.
#ifndef LIBUBOX_DECLS_H
#define LIBUBOX_DECLS_H

// clang-format off
#ifdef __cplusplus
#define BASE_DECLS_BEGIN extern "C" { _Pragma("GCC visibility push(default)")
#define BASE_DECLS_END _Pragma("GCC visibility pop") }
#else
#define BASE_DECLS_BEGIN _Pragma("GCC visibility push(default)")
#define BASE_DECLS_END _Pragma("GCC visibility pop")
#endif
// clang-format on

#endif
