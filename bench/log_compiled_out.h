// Force-included into a benchmark-only copy of the library: every log call
// site becomes dead code, its arguments still type-checked and "used" but
// never evaluated. The typical stream run against that copy is the reference
// for what testing the threshold at each call site costs.
#ifndef ORVANE_BENCH_LOG_COMPILED_OUT_H
#define ORVANE_BENCH_LOG_COMPILED_OUT_H

#include "log_macros.h"

#undef ORVANE_LOG_AT
#define ORVANE_LOG_AT(level, tid, ...)                                                    \
    do {                                                                                  \
        if (0) {                                                                          \
            SDKLog((uint32_t)(tid), (level), __FILE__, __func__, (uint32_t)__LINE__,      \
                   __VA_ARGS__);                                                          \
        }                                                                                 \
    } while (0)

#undef ORVANE_LOG_AT_AS
#define ORVANE_LOG_AT_AS(level, func, tid, ...)                                           \
    do {                                                                                  \
        if (0) {                                                                          \
            SDKLog((uint32_t)(tid), (level), __FILE__, (func), (uint32_t)__LINE__,        \
                   __VA_ARGS__);                                                          \
        }                                                                                 \
    } while (0)

#undef LOG_TRACE_AS
#define LOG_TRACE_AS(func, tid, ...) ORVANE_LOG_AT_AS(LOG_LEVEL_TRACE, func, tid, __VA_ARGS__)

#endif
