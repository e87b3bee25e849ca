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
inline void SetPageFlag(STPageNode *pstPage, uint16_t usFlag)
{
    pstPage->usPageFlag = static_cast<uint16_t>(pstPage->usPageFlag | usFlag);
}
inline void ClearPageFlag(STPageNode *pstPage, uint16_t usFlag)
{
    pstPage->usPageFlag = static_cast<uint16_t>(pstPage->usPageFlag & ~usFlag);
}

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

// Gives a page without a first time its start from the event: the request's
// begin, else the response's, moved back to the flow's SYN when that came at
// most 5 s earlier. Logs its lines under pcFunc (page creation and update
// share it). Defined in page_update.cpp.
void SetPageFirstTime(STPageNode *pstPage, const STEventInfo *pstInfo, const char *pcFunc);

// What sets an ordinary page's creation apart from a UCID page's; every other
// step of making a page is shared. The caller checks its arguments and logs
// its own first line; the shared steps log under pcFunc.
struct PageCreation {
    const char *pcFunc;        // function name the shared lines carry
    const char *pcMethodLine;  // logged when the method is neither GET nor POST
    uint8_t ucListType;        // PAGE_LIST_ORDINARY or PAGE_LIST_UCID: the list joined
    uint8_t ucIsUcidPage;
    bool bWebTypeTest;         // drop PAGE_FLAG_WEBTYPE for content of no web type
    bool bSaveFirReq;          // keep the first request's host, URL and location
};

// Makes a page from the event (node, reset, DNS, first time, ID, flags,
// update) and returns its ID, 0 when no node could be had or linked. Defined
// with InsertPageNode in page_store.cpp; InsertUcidPageNode uses it too.
uint64_t CreatePage(STEventInfo *pstInfo, uint32_t uiPageType, const PageCreation &stHow);

// A request that may open a page of its own: of a web content type (or a
// redirect) and not black-listed.
inline bool IsWebTypeAndNotBlack(STEventInfo *pstInfo)
{
    return IsWebType(pstInfo->acContentType, pstInfo->usContentTypeLen, CONTENT_TYPE_MAX_LEN,
                     pstInfo->usCauseCode) != 0 &&
           IsBlackList(pstInfo->acURL, pstInfo->usURLLen, URL_MAX_LEN, pstInfo->acRefererUrl,
                       pstInfo->usRefererUrlLen, REFERER_MAX_LEN, pstInfo->acContentType,
                       pstInfo->usContentTypeLen, CONTENT_TYPE_MAX_LEN) == 0;
}

// The event side of a compare record (keys, lengths, capacities, texts),
// logged under pcFunc; and its ports and addresses. Defined with the
// main-request rules in main_req_compare.cpp; the sub-request rules share them.
void FillCompareInfo(STEventInfo *pstInfo, STCompareInfo *pstCompare, const char *pcFunc);
void FillCompareEndpoints(const STEventInfo *pstInfo, STCompareInfo *pstCompare);

}  // namespace orvane

#endif
