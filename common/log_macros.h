// Call-site logging for the library's own sources. Each macro tests the
// threshold before evaluating its arguments, so an off level costs one compare.
#ifndef ORVANE_LOG_MACROS_H
#define ORVANE_LOG_MACROS_H

#include "orvane_log.h"

// Lines name their source file without the build's directory, as operators
// grep for "page_store.cpp:123"; a whole build path would be cut to its tail.
#ifdef __FILE_NAME__
#define ORVANE_SOURCE_FILE __FILE_NAME__
#else
#define ORVANE_SOURCE_FILE __FILE__
#endif

#define ORVANE_LOG_AT(level, tid, ...)                                                   \
    do {                                                                                  \
        if (g_enSDKLogLevel <= (level)) {                                                 \
            SDKLog((uint32_t)(tid), (level), ORVANE_SOURCE_FILE, __func__, (uint32_t)__LINE__,      \
                   __VA_ARGS__);                                                          \
        }                                                                                 \
    } while (0)

#define LOG_TRACE(tid, ...) ORVANE_LOG_AT(LOG_LEVEL_TRACE, tid, __VA_ARGS__)
#define LOG_INFO(tid, ...) ORVANE_LOG_AT(LOG_LEVEL_INFO, tid, __VA_ARGS__)
#define LOG_ERROR(tid, ...) ORVANE_LOG_AT(LOG_LEVEL_ERROR, tid, __VA_ARGS__)

// Same as LOG_TRACE but names another function in the line, for messages
// the system attributes to a helper it inlines.
#define LOG_TRACE_AS(func, tid, ...)                                                     \
    do {                                                                                  \
        if (g_enSDKLogLevel <= LOG_LEVEL_TRACE) {                                         \
            SDKLog((uint32_t)(tid), LOG_LEVEL_TRACE, ORVANE_SOURCE_FILE, (func), (uint32_t)__LINE__, \
                   __VA_ARGS__);                                                          \
        }                                                                                 \
    } while (0)

// The other levels under a named function, for lines logged from inside a
// list walk's visitor (where __func__ would name the lambda).
#define ORVANE_LOG_AT_AS(level, func, tid, ...)                                          \
    do {                                                                                  \
        if (g_enSDKLogLevel <= (level)) {                                                 \
            SDKLog((uint32_t)(tid), (level), ORVANE_SOURCE_FILE, (func), (uint32_t)__LINE__,        \
                   __VA_ARGS__);                                                          \
        }                                                                                 \
    } while (0)
#define LOG_INFO_AS(func, tid, ...) ORVANE_LOG_AT_AS(LOG_LEVEL_INFO, func, tid, __VA_ARGS__)
#define LOG_ERROR_AS(func, tid, ...) ORVANE_LOG_AT_AS(LOG_LEVEL_ERROR, func, tid, __VA_ARGS__)

// Bounded copies with the caller's position, as every module uses them.
#define ORV_MEMCPY(dst, max, src, n) SF_MEMCPY_Ex((dst), (src), (uint32_t)(max), (uint32_t)(n), ORVANE_SOURCE_FILE, __func__, (uint32_t)__LINE__)
#define ORV_MEMMOVE(dst, max, src, n) SF_MEMMOVE_Ex((dst), (src), (uint32_t)(max), (uint32_t)(n), ORVANE_SOURCE_FILE, __func__, (uint32_t)__LINE__)
#define ORV_MEMSET(dst, max, v, n) SF_MEMSET_Ex((dst), (v), (uint32_t)(max), (uint32_t)(n), ORVANE_SOURCE_FILE, __func__, (uint32_t)__LINE__)
#define ORV_STRNCAT(dst, max, src, n) SF_STRNCAT_Ex((dst), (src), (uint32_t)(max), (uint32_t)(n), ORVANE_SOURCE_FILE, __func__, (uint32_t)__LINE__)

#endif
