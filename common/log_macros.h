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

#include <cstddef>

namespace orvane {

// A line's file name as SDKLog cuts it from a path (after the last backslash,
// at most its last 32 characters), cut at compile time for the library's own
// lines.
struct LogFileName {
    const char *pcName;
    uint32_t uiLen;
};

template <size_t N>
constexpr LogFileName FileNameOf(const char (&acPath)[N])
{
    size_t start = 0;
    for (size_t i = 0; i + 1 < N; ++i) {
        if (acPath[i] == '\\') {
            start = i + 1;
        }
    }
    size_t len = N - 1 - start;
    if (len >= 33) {
        start += len - 32;
        len = 32;
    }
    return LogFileName{acPath + start, static_cast<uint32_t>(len)};
}

// SDKLog with the file name already cut.
void LogNamed(uint32_t uiThreadID, uint32_t uiLevel, const LogFileName &stName, const char *pcFunc, uint32_t uiLine,
              const char *pcFormat, ...) __attribute__((format(printf, 6, 7)));

}  // namespace orvane

#define ORVANE_LOG_LINE(level, func, tid, ...)                                                         \
    orvane::LogNamed((uint32_t)(tid), (level), orvane::FileNameOf(ORVANE_SOURCE_FILE), (func),         \
                     (uint32_t)__LINE__, __VA_ARGS__)

#define ORVANE_LOG_AT(level, tid, ...)                                                   \
    do {                                                                                  \
        if (g_enSDKLogLevel <= (level)) {                                                 \
            ORVANE_LOG_LINE((level), __func__, tid, __VA_ARGS__);                         \
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
            ORVANE_LOG_LINE(LOG_LEVEL_TRACE, (func), tid, __VA_ARGS__);                   \
        }                                                                                 \
    } while (0)

// The other levels under a named function, for lines logged from inside a
// list walk's visitor (where __func__ would name the lambda).
#define ORVANE_LOG_AT_AS(level, func, tid, ...)                                          \
    do {                                                                                  \
        if (g_enSDKLogLevel <= (level)) {                                                 \
            ORVANE_LOG_LINE((level), (func), tid, __VA_ARGS__);                           \
        }                                                                                 \
    } while (0)
#define LOG_INFO_AS(func, tid, ...) ORVANE_LOG_AT_AS(LOG_LEVEL_INFO, func, tid, __VA_ARGS__)
#define LOG_ERROR_AS(func, tid, ...) ORVANE_LOG_AT_AS(LOG_LEVEL_ERROR, func, tid, __VA_ARGS__)

namespace orvane {

// True while no line of any level can be written. Hot code is built twice:
// once with its log sites compiled out, taken when this holds where the code
// would first test the level, and once as written, each site testing the
// live level. The decision holds only while no daemon code can run: with no
// line written no log callback runs, but a DNS, page-end or timer callback
// may rewrite the level, so code that calls one decides again after it.
inline bool LogOff() { return g_enSDKLogLevel > LOG_LEVEL_ERROR; }

}  // namespace orvane

// Log sites of such twice-built code: `on` is the instantiation's constant,
// false where the level was found off.
#define ORVANE_LOG_IF(on, level, func, tid, ...)                                         \
    do {                                                                                  \
        if (on) {                                                                         \
            ORVANE_LOG_AT_AS((level), func, tid, __VA_ARGS__);                            \
        }                                                                                 \
    } while (0)
#define LOG_TRACE_IF(on, func, tid, ...) ORVANE_LOG_IF(on, LOG_LEVEL_TRACE, func, tid, __VA_ARGS__)
#define LOG_INFO_IF(on, func, tid, ...) ORVANE_LOG_IF(on, LOG_LEVEL_INFO, func, tid, __VA_ARGS__)
#define LOG_ERROR_IF(on, func, tid, ...) ORVANE_LOG_IF(on, LOG_LEVEL_ERROR, func, tid, __VA_ARGS__)

// Bounded copies, as the exported SF_*_Ex wrappers make them (log.cpp):
// the count cut at the destination's size, nothing done without both ends.
// Inline here, as these run several times per event; the rare string
// concatenation keeps its wrapper.
#include <cstring>
namespace orvane {
inline void *BoundedMemcpy(void *pDst, uint32_t uiDstMax, const void *pSrc, uint32_t uiCount)
{
    if (pDst != nullptr && pSrc != nullptr) {
        std::memcpy(pDst, pSrc, uiDstMax < uiCount ? uiDstMax : uiCount);
    }
    return pDst;
}
inline void *BoundedMemmove(void *pDst, uint32_t uiDstMax, const void *pSrc, uint32_t uiCount)
{
    if (pDst != nullptr && pSrc != nullptr) {
        std::memmove(pDst, pSrc, uiDstMax < uiCount ? uiDstMax : uiCount);
    }
    return pDst;
}
inline void *BoundedMemset(void *pDst, uint32_t uiDstMax, int32_t iFill, uint32_t uiCount)
{
    if (pDst != nullptr) {
        std::memset(pDst, iFill & 0xFF, uiDstMax < uiCount ? uiDstMax : uiCount);
    }
    return pDst;
}
}  // namespace orvane
#define ORV_MEMCPY(dst, max, src, n) orvane::BoundedMemcpy((dst), (uint32_t)(max), (src), (uint32_t)(n))
#define ORV_MEMMOVE(dst, max, src, n) orvane::BoundedMemmove((dst), (uint32_t)(max), (src), (uint32_t)(n))
#define ORV_MEMSET(dst, max, v, n) orvane::BoundedMemset((dst), (uint32_t)(max), (int32_t)(v), (uint32_t)(n))
#define ORV_STRNCAT(dst, max, src, n) SF_STRNCAT_Ex((dst), (src), (uint32_t)(max), (uint32_t)(n), ORVANE_SOURCE_FILE, __func__, (uint32_t)__LINE__)

#endif
