// The single log sink of the library and the bounded copy wrappers.
#include "orvane_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

constexpr uint32_t kFileNameBuf = 33;  // 32 characters of the file name and a NUL
constexpr uint32_t kMessageBuf = 513;  // message cut at 511 characters
constexpr uint32_t kLineBuf = 613;     // whole line cut at 611 characters
constexpr uint32_t kLevelCount = 3;

inline uint32_t Smaller(uint32_t a, uint32_t b) { return a < b ? a : b; }

}  // namespace

extern "C" {

PFDaemonSDKLog g_funcDaemonSDKLog = nullptr;
uint32_t g_enSDKLogLevel = LOG_LEVEL_TRACE;
char g_enLoglevelInfo[3][10] = {"TRACE", "INFO", "ERROR"};

uint32_t API_InitSDKLog(PFDaemonSDKLog pfLog)
{
    if (pfLog == nullptr) {
        return 1;
    }
    g_funcDaemonSDKLog = pfLog;
    return 0;
}

void GetFileName(const char *pcPath, char *pcOut, uint32_t uiOutSize)
{
    if (pcPath == nullptr || pcOut == nullptr) {
        return;
    }
    // Only backslashes separate: the system's paths were written that way.
    const char *pcName = std::strrchr(pcPath, '\\');
    pcName = (pcName != nullptr) ? pcName + 1 : pcPath;
    size_t len = std::strlen(pcName);
    if (len >= kFileNameBuf) {
        pcName += len - (kFileNameBuf - 1);
        len = kFileNameBuf - 1;
    }
    SF_MEMCPY_Ex(pcOut, pcName, uiOutSize, (uint32_t)len, __FILE__, __func__, __LINE__);
}

void SDKLog(uint32_t uiThreadID, uint32_t uiLevel, const char *pcFile, const char *pcFunc,
            uint32_t uiLine, const char *pcFormat, ...)
{
    if (pcFormat == nullptr || uiLevel >= kLevelCount || g_enSDKLogLevel > uiLevel) {
        return;
    }
    char acFile[kFileNameBuf];
    std::memset(acFile, 0, sizeof(acFile));
    GetFileName(pcFile, acFile, kFileNameBuf);

    char acMsg[kMessageBuf];
    va_list args;
    va_start(args, pcFormat);
    std::vsnprintf(acMsg, kMessageBuf - 1, pcFormat, args);
    va_end(args);
    acMsg[kMessageBuf - 1] = '\0';

    char acLine[kLineBuf];
    std::snprintf(acLine, kLineBuf - 1, "[TID=%u][%s][%s]%s;%s:%u", uiThreadID & 0xFFu,
                  g_enLoglevelInfo[uiLevel], pcFunc != nullptr ? pcFunc : "", acMsg, acFile,
                  uiLine);
    acLine[kLineBuf - 1] = '\0';

    PFDaemonSDKLog pfLog = g_funcDaemonSDKLog;
    if (pfLog != nullptr) {
        pfLog(uiLevel, acLine);
    }
}

void *SF_MEMCPY_Ex(void *pDst, const void *pSrc, uint32_t uiDstMax, uint32_t uiCount,
                   const char *, const char *, uint32_t)
{
    if (pDst != nullptr && pSrc != nullptr) {
        std::memcpy(pDst, pSrc, Smaller(uiDstMax, uiCount));
    }
    return pDst;
}

void *SF_MEMMOVE_Ex(void *pDst, const void *pSrc, uint32_t uiDstMax, uint32_t uiCount,
                    const char *, const char *, uint32_t)
{
    if (pDst != nullptr && pSrc != nullptr) {
        std::memmove(pDst, pSrc, Smaller(uiDstMax, uiCount));
    }
    return pDst;
}

void *SF_MEMSET_Ex(void *pDst, int32_t iFill, uint32_t uiDstMax, uint32_t uiCount,
                   const char *, const char *, uint32_t)
{
    if (pDst != nullptr) {
        std::memset(pDst, iFill & 0xFF, Smaller(uiDstMax, uiCount));
    }
    return pDst;
}

char *SF_STRNCAT_Ex(char *pcDst, const char *pcSrc, uint32_t uiDstMax, uint32_t uiCount,
                    const char *, const char *, uint32_t)
{
    if (pcDst != nullptr && pcSrc != nullptr) {
        std::strncat(pcDst, pcSrc, Smaller(uiDstMax, uiCount));
    }
    return pcDst;
}

char *SF_STRCPY_Ex(char *pcDst, const char *, uint32_t, uint32_t, const char *, const char *,
                   uint32_t)
{
    return pcDst;
}

char *SF_STRNCPY_Ex(char *pcDst, const char *, uint32_t, uint32_t, const char *, const char *,
                    uint32_t)
{
    return pcDst;
}

char *SF_STRCAT_Ex(char *pcDst, const char *, uint32_t, uint32_t, const char *, const char *,
                   uint32_t)
{
    return pcDst;
}

}  // extern "C"
