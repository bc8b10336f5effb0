#pragma once

// Entry points that the host or the module finds with dlsym: plain C names, C++ argument types.
#define HX_EXPORT __attribute__((visibility("default")))

#if defined(__clang__)
// Some entry points return C++ types; both sides are C++, only the symbol name is C.
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"
#endif
