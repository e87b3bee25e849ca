/* Export and C-linkage macros shared by every public header of the library. */
#ifndef ORVANE_EXPORT_H
#define ORVANE_EXPORT_H

#if defined(_WIN32)
#define ORVANE_API
#else
#define ORVANE_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#define ORVANE_BEGIN_DECLS extern "C" {
#define ORVANE_END_DECLS }
#else
#define ORVANE_BEGIN_DECLS
#define ORVANE_END_DECLS
#endif

/* Layout checks that read the same in C11 and C++17. */
#ifdef __cplusplus
#define ORVANE_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#define ORVANE_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

#endif
