// Small helpers shared by the page association sources: thread checks,
// context and page access, case-insensitive text tests.
#ifndef ORVANE_WEBPAGE_UTIL_HPP
#define ORVANE_WEBPAGE_UTIL_HPP

#include <cstddef>
#include <cstdint>

#include "list_walk.hpp"
#include "log_macros.h"
#include "webpage_internal.h"

namespace orvane {

// Only the low 8 bits of a thread argument count.
inline uint8_t ThreadOf(uint32_t uiThreadArg) { return static_cast<uint8_t>(uiThreadArg & 0xFFu); }
inline bool IsValidThread(uint32_t uiThreadArg) { return ThreadOf(uiThreadArg) < WEBPAGE_THREAD_NUM; }

inline STWebPage *ContextOf(uint32_t uiThreadArg)
{
    return IsValidThread(uiThreadArg) ? g_pstWebPage[ThreadOf(uiThreadArg)] : nullptr;
}

inline STPageNode *PageOf(STTranNode *pstNode) { return NodeData<STPageNode>(pstNode); }
inline STMatchStrNode *MatchStrOf(STTranNode *pstNode) { return NodeData<STMatchStrNode>(pstNode); }

inline bool HasFlag(const STPageNode *pstPage, uint16_t usFlag) { return (pstPage->usPageFlag & usFlag) != 0; }

// A page the string and time rules may join: an associate page whose main
// response succeeded and that is a web page.
inline bool IsSuccessfulWebPage(const STPageNode *pstPage)
{
    return pstPage->uiPageType == PAGE_TYPE_ASSOCIATE && HasFlag(pstPage, PAGE_FLAG_SUCCESS) &&
           HasFlag(pstPage, PAGE_FLAG_WEBTYPE);
}

inline uint64_t MakePageID(uint8_t ucThreadID, uint64_t ullCounter)
{
    return (ullCounter & PAGE_ID_MASK) | (static_cast<uint64_t>(ucThreadID) << PAGE_ID_THREAD_SHIFT);
}

inline char LowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// Compares n bytes ignoring ASCII case (stops at neither NUL).
inline bool EqualNoCase(const char *a, const char *b, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        if (LowerAscii(a[i]) != LowerAscii(b[i])) {
            return false;
        }
    }
    return true;
}

// Finds needle in the NUL-terminated text ignoring ASCII case, the way a
// strcasestr would: the text ends at its first NUL.
inline bool ContainsNoCase(const char *pcText, const char *pcNeedle, size_t needleLen)
{
    if (needleLen == 0) {
        return true;
    }
    for (const char *p = pcText; *p != '\0'; ++p) {
        size_t i = 0;
        while (i < needleLen && p[i] != '\0' && LowerAscii(p[i]) == LowerAscii(pcNeedle[i])) {
            ++i;
        }
        if (i == needleLen) {
            return true;
        }
    }
    return false;
}

// Length of a configured text held in a fixed array (at most its size).
inline size_t BoundedLen(const char *pcText, size_t max)
{
    size_t n = 0;
    while (n < max && pcText[n] != '\0') {
        ++n;
    }
    return n;
}

}  // namespace orvane

#endif
