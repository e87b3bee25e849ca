// The single log sink of the library and the bounded copy wrappers.
#include "orvane_log.h"
#include "log_macros.h"

#include <cstdarg>
#include <cstdio>
#include <cstdint>
#include <cstring>

namespace {

constexpr uint32_t kFileNameBuf = 33;  // 32 characters of the file name and a NUL
constexpr uint32_t kMessageBuf = 513;  // message cut at 511 characters
constexpr uint32_t kLineBuf = 613;     // whole line cut at 611 characters
constexpr uint32_t kLevelCount = 3;

inline uint32_t Smaller(uint32_t a, uint32_t b) { return a < b ? a : b; }

// Writes a log line into a fixed buffer, dropping what goes past its cap, as
// a bounded print does. A message has a cap of its own inside the line.
class LineWriter {
public:
    LineWriter(char *pcBuf, size_t uiCap) : pc_(pcBuf), cap_(uiCap), limit_(uiCap) {}
    size_t Size() const { return n_; }
    void Limit(size_t uiLimit) { limit_ = uiLimit < cap_ ? uiLimit : cap_; }
    bool Full() const { return n_ >= limit_; }
    void Char(char c)
    {
        if (n_ < limit_) {
            pc_[n_++] = c;
        }
    }
    void Text(const char *pcText) { Bytes(pcText, strnlen(pcText, limit_ - n_)); }
    // uiLen bytes, none of them NUL.
    void Bytes(const char *pcText, size_t uiLen)
    {
        if (uiLen > limit_ - n_) {
            uiLen = limit_ - n_;
        }
        std::memcpy(pc_ + n_, pcText, uiLen);
        n_ += uiLen;
    }
    void Number(unsigned long long ullValue)
    {
        static const char kPairs[] =
            "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
            "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
            "8081828384858687888990919293949596979899";
        char acDigits[24];
        size_t i = sizeof(acDigits);
        while (ullValue >= 100) {
            const unsigned uPair = static_cast<unsigned>(ullValue % 100) * 2;
            ullValue /= 100;
            i -= 2;
            acDigits[i] = kPairs[uPair];
            acDigits[i + 1] = kPairs[uPair + 1];
        }
        if (ullValue >= 10) {
            i -= 2;
            acDigits[i] = kPairs[ullValue * 2];
            acDigits[i + 1] = kPairs[ullValue * 2 + 1];
        } else {
            acDigits[--i] = static_cast<char>('0' + ullValue);
        }
        Bytes(acDigits + i, sizeof(acDigits) - i);
    }
    void Rewind(size_t uiSize) { n_ = uiSize; }
    void End()
    {
        limit_ = cap_;
        pc_[n_] = '\0';
    }

private:
    char *pc_;
    size_t cap_;
    size_t limit_;
    size_t n_ = 0;
};

// Formats the conversions the library's lines use (%s %u %d %llu %%) with the
// C library's results, the message cut at kMessageBuf - 2 characters. Returns
// false at any other conversion, with the line's contents undefined.
bool FormatMessage(LineWriter &out, const char *pcFormat, va_list args)
{
    out.Limit(out.Size() + (kMessageBuf - 2));
    for (const char *p = pcFormat; *p != '\0' && !out.Full(); ++p) {
        if (*p != '%') {
            const char *pcEnd = strchrnul(p, '%');
            out.Bytes(p, static_cast<size_t>(pcEnd - p));
            p = pcEnd - 1;
            continue;
        }
        switch (p[1]) {
        case 's': {
            const char *pcArg = va_arg(args, const char *);
            out.Text(pcArg != nullptr ? pcArg : "(null)");
            ++p;
            break;
        }
        case 'u':
            out.Number(va_arg(args, unsigned int));
            ++p;
            break;
        case 'd': {
            const int iArg = va_arg(args, int);
            if (iArg < 0) {
                out.Char('-');
            }
            out.Number(iArg < 0 ? 0ull - static_cast<unsigned long long>(static_cast<long long>(iArg))
                                : static_cast<unsigned long long>(iArg));
            ++p;
            break;
        }
        case '%':
            out.Char('%');
            ++p;
            break;
        case 'l':
            if (p[2] == 'l' && p[3] == 'u') {
                out.Number(va_arg(args, unsigned long long));
                p += 3;
                break;
            }
            return false;
        default:
            return false;
        }
    }
    out.Limit(SIZE_MAX);
    return true;
}

// The line of SDKLog: the level is tested, the file name already cut.
void WriteLine(uint32_t uiThreadID, uint32_t uiLevel, const orvane::LogFileName &stName, const char *pcFunc,
               uint32_t uiLine, const char *pcFormat, va_list args)
{
    // The line is built in one pass: the message is formatted straight into
    // it, bounded as its own buffer would bound it.
    char acLine[kLineBuf];
    LineWriter out(acLine, kLineBuf - 2);
    out.Bytes("[TID=", 5);
    out.Number(uiThreadID & 0xFFu);
    out.Bytes("][", 2);
    out.Text(g_enLoglevelInfo[uiLevel]);
    out.Bytes("][", 2);
    out.Text(pcFunc != nullptr ? pcFunc : "");
    out.Char(']');

    va_list again;
    va_copy(again, args);
    const size_t uiMsgStart = out.Size();
    if (!FormatMessage(out, pcFormat, args)) {
        // A conversion the library's own lines never use: the C library's.
        char acMsg[kMessageBuf];
        std::vsnprintf(acMsg, kMessageBuf - 1, pcFormat, again);
        acMsg[kMessageBuf - 1] = '\0';
        out.Rewind(uiMsgStart);
        out.Limit(SIZE_MAX);
        out.Text(acMsg);
    }
    va_end(again);

    out.Char(';');
    out.Bytes(stName.pcName, stName.uiLen);
    out.Char(':');
    out.Number(uiLine);
    out.End();

    PFDaemonSDKLog pfLog = g_funcDaemonSDKLog;
    if (pfLog != nullptr) {
        pfLog(uiLevel, acLine);
    }
}

// GetFileName's cut of a path: after its last backslash, at most the last
// 32 characters; no path gives an empty name.
orvane::LogFileName NameOfPath(const char *pcPath)
{
    if (pcPath == nullptr) {
        return {"", 0};
    }
    // Only backslashes separate: the system's paths were written that way.
    const char *pcName = std::strrchr(pcPath, '\\');
    pcName = (pcName != nullptr) ? pcName + 1 : pcPath;
    size_t len = std::strlen(pcName);
    if (len >= kFileNameBuf) {
        pcName += len - (kFileNameBuf - 1);
        len = kFileNameBuf - 1;
    }
    return {pcName, static_cast<uint32_t>(len)};
}

}  // namespace

namespace orvane {

void LogNamed(uint32_t uiThreadID, uint32_t uiLevel, const LogFileName &stName, const char *pcFunc, uint32_t uiLine,
              const char *pcFormat, ...)
{
    if (pcFormat == nullptr || uiLevel >= kLevelCount || g_enSDKLogLevel > uiLevel) {
        return;
    }
    va_list args;
    va_start(args, pcFormat);
    WriteLine(uiThreadID, uiLevel, stName, pcFunc, uiLine, pcFormat, args);
    va_end(args);
}

}  // namespace orvane

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
    const orvane::LogFileName stName = NameOfPath(pcPath);
    SF_MEMCPY_Ex(pcOut, stName.pcName, uiOutSize, stName.uiLen, __FILE__, __func__, __LINE__);
}

void SDKLog(uint32_t uiThreadID, uint32_t uiLevel, const char *pcFile, const char *pcFunc,
            uint32_t uiLine, const char *pcFormat, ...)
{
    if (pcFormat == nullptr || uiLevel >= kLevelCount || g_enSDKLogLevel > uiLevel) {
        return;
    }
    const orvane::LogFileName stName = NameOfPath(pcFile);
    va_list args;
    va_start(args, pcFormat);
    WriteLine(uiThreadID, uiLevel, stName, pcFunc, uiLine, pcFormat, args);
    va_end(args);
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
