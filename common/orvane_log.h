/* Logging sink and bounded copy wrappers of liborvaneSDK (C11 / C++17). */
#ifndef ORVANE_LOG_H
#define ORVANE_LOG_H

#include <stdint.h>
#include "orvane_export.h"

ORVANE_BEGIN_DECLS

enum {
    LOG_LEVEL_TRACE = 0,
    LOG_LEVEL_INFO = 1,
    LOG_LEVEL_ERROR = 2
};

/* Receives every finished log line; the text lives only for the call. */
typedef uint32_t (*PFDaemonSDKLog)(uint32_t uiLevel, const char *pcLine);

ORVANE_API extern PFDaemonSDKLog g_funcDaemonSDKLog;
ORVANE_API extern uint32_t g_enSDKLogLevel;
ORVANE_API extern char g_enLoglevelInfo[3][10];

ORVANE_API uint32_t API_InitSDKLog(PFDaemonSDKLog pfLog);
ORVANE_API void SDKLog(uint32_t uiThreadID, uint32_t uiLevel, const char *pcFile,
                       const char *pcFunc, uint32_t uiLine, const char *pcFormat, ...)
    __attribute__((format(printf, 6, 7)));
ORVANE_API void GetFileName(const char *pcPath, char *pcOut, uint32_t uiOutSize);

ORVANE_API void *SF_MEMCPY_Ex(void *pDst, const void *pSrc, uint32_t uiDstMax, uint32_t uiCount,
                              const char *pcFile, const char *pcFunc, uint32_t uiLine);
ORVANE_API void *SF_MEMMOVE_Ex(void *pDst, const void *pSrc, uint32_t uiDstMax, uint32_t uiCount,
                               const char *pcFile, const char *pcFunc, uint32_t uiLine);
ORVANE_API void *SF_MEMSET_Ex(void *pDst, int32_t iFill, uint32_t uiDstMax, uint32_t uiCount,
                              const char *pcFile, const char *pcFunc, uint32_t uiLine);
ORVANE_API char *SF_STRNCAT_Ex(char *pcDst, const char *pcSrc, uint32_t uiDstMax, uint32_t uiCount,
                               const char *pcFile, const char *pcFunc, uint32_t uiLine);
/* Kept for the daemon's use; they deliberately touch no memory. */
ORVANE_API char *SF_STRCPY_Ex(char *pcDst, const char *pcSrc, uint32_t uiDstMax, uint32_t uiCount,
                              const char *pcFile, const char *pcFunc, uint32_t uiLine);
ORVANE_API char *SF_STRNCPY_Ex(char *pcDst, const char *pcSrc, uint32_t uiDstMax, uint32_t uiCount,
                               const char *pcFile, const char *pcFunc, uint32_t uiLine);
ORVANE_API char *SF_STRCAT_Ex(char *pcDst, const char *pcSrc, uint32_t uiDstMax, uint32_t uiCount,
                              const char *pcFile, const char *pcFunc, uint32_t uiLine);

ORVANE_END_DECLS

#endif
