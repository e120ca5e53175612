// assert.h - the standard assert, active even where NDEBUG is defined. No include guard: like the standard
// header, the last inclusion decides.
#pragma push_macro("NDEBUG")
#undef NDEBUG
#include <assert.h>
#pragma pop_macro("NDEBUG")
