// Small helpers shared by the page association sources: thread checks and
// argument guards, context and page access, case-insensitive text tests, and
// the steps several rules share.
#ifndef ORVANE_WEBPAGE_UTIL_HPP
#define ORVANE_WEBPAGE_UTIL_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "list_walk.hpp"
#include "log_macros.h"
#include "tran_ops.hpp"
#include "compare_screen.hpp"
#include "webpage_internal.h"

namespace orvane {

// Only the low 8 bits of a thread argument count.
inline uint8_t ThreadOf(uint32_t uiThreadArg) { return static_cast<uint8_t>(uiThreadArg & 0xFFu); }
inline bool IsValidThread(uint32_t uiThreadArg) { return ThreadOf(uiThreadArg) < WEBPAGE_THREAD_NUM; }

inline STWebPage *ContextOf(uint32_t uiThreadArg)
{
    return IsValidThread(uiThreadArg) ? g_pstWebPage[ThreadOf(uiThreadArg)] : nullptr;
}

// Refuses a thread number out of range: pcLine at ERROR under that number.
// The guards below log under pcFunc, the caller's name.
inline bool ThreadOk(const char *pcFunc, uint32_t uiThreadArg, const char *pcLine)
{
    if (IsValidThread(uiThreadArg)) {
        return true;
    }
    LOG_ERROR_AS(pcFunc, uiThreadArg, "%s", pcLine);
    return false;
}

// The opening guard of the operations that take a working record: a missing
// record, or another argument missing (bOthersPresent false), is refused with
// pcNullLine under uiNullTid (silently when pcNullLine is null); then the
// record's thread number as in ThreadOk. True when the caller may go on.
inline bool RecordArgsOk(const char *pcFunc, const STEventInfo *pstInfo, bool bOthersPresent, uint32_t uiNullTid,
                         const char *pcNullLine, const char *pcThreadLine)
{
    if (pstInfo == nullptr || !bOthersPresent) {
        if (pcNullLine != nullptr) {
            LOG_ERROR_AS(pcFunc, uiNullTid, "%s", pcNullLine);
        }
        return false;
    }
    return ThreadOk(pcFunc, pstInfo->ucThreadID, pcThreadLine);
}

inline bool RecordArgsOk(const char *pcFunc, const STEventInfo *pstInfo, uint32_t uiNullTid, const char *pcNullLine,
                         const char *pcThreadLine)
{
    return RecordArgsOk(pcFunc, pstInfo, true, uiNullTid, pcNullLine, pcThreadLine);
}

// The ordinary page list, or the UCID pages' for PAGE_LIST_UCID.
inline STTranManage *PageListOf(STWebPage *pstCtx, uint8_t ucListType)
{
    return ucListType == PAGE_LIST_ORDINARY ? &pstCtx->stPageNodeList : &pstCtx->stUcidPageNodeList;
}

inline STPageNode *PageOf(STTranNode *pstNode) { return NodeData<STPageNode>(pstNode); }
inline STMatchStrNode *MatchStrOf(STTranNode *pstNode) { return NodeData<STMatchStrNode>(pstNode); }

// IsRsponseOK inline: a success or redirect status, or the configured
// proxy-authentication code (read live: the daemon may rewrite it).
inline bool ResponseOk(uint16_t usCauseCode)
{
    constexpr uint16_t kSuccessFirst = 200;
    constexpr uint16_t kSuccessLast = 399;
    return (usCauseCode >= kSuccessFirst && usCauseCode <= kSuccessLast) ||
           (g_ausCauseCode407[0] != 0 && g_ausCauseCode407[0] == usCauseCode);
}

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

// Branch-free: one unsigned compare decides whether to set the case bit.
inline char LowerAscii(char c)
{
    const unsigned u = static_cast<unsigned char>(c);
    return static_cast<char>(u | (u - 'A' < 26u ? 0x20u : 0u));
}

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

// Lower-cases the ASCII capitals among eight bytes: each byte's low seven
// bits plus a constant carry into its top bit exactly when the byte is at
// least 'A' (or above 'Z'); bytes with the top bit set are left alone.
inline uint64_t LowerWord(uint64_t ullWord)
{
    constexpr uint64_t kLow7 = 0x7F7F7F7F7F7F7F7Full;
    constexpr uint64_t kHighs = 0x8080808080808080ull;
    constexpr uint64_t kFromA = 0x3F3F3F3F3F3F3F3Full;  // 'A' + 0x3F = 0x80
    constexpr uint64_t kPastZ = 0x2525252525252525ull;  // 'Z' + 1 + 0x25 = 0x80
    const uint64_t ullLow = ullWord & kLow7;
    const uint64_t ullCapitals = (ullLow + kFromA) & ~(ullLow + kPastZ) & ~ullWord & kHighs;
    return ullWord | (ullCapitals >> 2);
}

// A pattern's first byte, ready to be found in a text with one compare per
// text byte: lowered once, and with the case bit (0x20) to set in the text's
// byte when it is a letter, so that a small letter matches exactly its two
// cases and any other byte only itself.
class FirstByte {
public:
    explicit FirstByte(char c)
        : m_ucTarget(static_cast<unsigned char>(LowerAscii(c))),
          m_ucFold((static_cast<unsigned>(m_ucTarget) - 'a' < 26u) ? 0x20 : 0),
          m_ullTarget(m_ucTarget * kOnes),
          m_ullFold(m_ucFold * kOnes)
    {
    }

    // The first byte of [p, end) that matches, or end. On a little-endian
    // machine eight bytes are tested at once while they lie before end: in
    // the zero-byte mask below the lowest set bit always marks a true match
    // (a borrow only runs upwards from a zero byte), so it is the first one.
    const char *FindIn(const char *p, const char *end) const
    {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
        for (; end - p >= 8; p += 8) {
            uint64_t ullWord;
            std::memcpy(&ullWord, p, sizeof(ullWord));
            const uint64_t ullDiff = (ullWord | m_ullFold) ^ m_ullTarget;
            const uint64_t ullFound = (ullDiff - kOnes) & ~ullDiff & kHighs;
            if (ullFound != 0) {
                return p + (__builtin_ctzll(ullFound) >> 3);
            }
        }
#endif
        for (; p < end; ++p) {
            if ((static_cast<unsigned char>(*p) | m_ucFold) == m_ucTarget) {
                return p;
            }
        }
        return end;
    }

private:
    static constexpr uint64_t kOnes = 0x0101010101010101ull;
    static constexpr uint64_t kHighs = 0x8080808080808080ull;

    unsigned char m_ucTarget;
    unsigned char m_ucFold;
    uint64_t m_ullTarget;
    uint64_t m_ullFold;
};

// Finds needle in a text of textLen bytes that holds no NUL, ignoring ASCII
// case. A position is rejected on its first byte with one compare; the rest
// of the needle is compared only where that byte fits. A needle holding a
// NUL is never found, as in a NUL-terminated text.
inline bool ContainsNoCaseIn(const char *pcText, size_t textLen, const char *pcNeedle, size_t needleLen)
{
    if (needleLen == 0) {
        return true;
    }
    if (textLen < needleLen) {
        return false;
    }
    const FirstByte stFirst(pcNeedle[0]);
    const char *const end = pcText + (textLen - needleLen) + 1;
    for (const char *p = stFirst.FindIn(pcText, end); p != end; p = stFirst.FindIn(p + 1, end)) {
        if (EqualNoCase(p + 1, pcNeedle + 1, needleLen - 1)) {
            return true;
        }
    }
    return false;
}

// Finds needle in the NUL-terminated text ignoring ASCII case, the way a
// strcasestr would: the text ends at its first NUL.
inline bool ContainsNoCase(const char *pcText, const char *pcNeedle, size_t needleLen)
{
    return needleLen == 0 || ContainsNoCaseIn(pcText, std::strlen(pcText), pcNeedle, needleLen);
}

// Whether a NUL-terminated text (its NUL at textLen) holds a configured
// keyword, case ignored: the keyword's bytes up to its NUL or keywordMax, no
// longer than usLen. An empty keyword never matches, so an operator can
// switch one off by clearing it. The keyword is measured while it is
// compared, never kept, since the daemon may rewrite the configuration.
inline bool HoldsKeyword(const char *pcText, uint16_t usLen, size_t textLen, const char *pcKeyword,
                         size_t keywordMax)
{
    if (keywordMax == 0 || pcKeyword[0] == '\0') {
        return false;
    }
    const FirstByte stFirst(pcKeyword[0]);
    const char *const end = pcText + textLen;
    for (const char *p = stFirst.FindIn(pcText, end); p != end; p = stFirst.FindIn(p + 1, end)) {
        // The text's own NUL ends a partial match, so p[i] stays in the text.
        size_t i = 1;
        while (i < keywordMax && pcKeyword[i] != '\0' && LowerAscii(p[i]) == LowerAscii(pcKeyword[i])) {
            ++i;
        }
        if (i == keywordMax || pcKeyword[i] == '\0') {
            return i <= usLen;  // the keyword's length, wherever it is found
        }
    }
    return false;
}

inline unsigned long long Llu(uint64_t v) { return static_cast<unsigned long long>(v); }

inline size_t Smaller(size_t a, size_t b) { return a < b ? a : b; }

// Copies a text into a fixed array of usMax characters (plus NUL), cut at
// that capacity and terminated at the kept length, which it returns. The
// source is read for no more than usMax bytes, whatever length it claims.
inline uint16_t CopyCut(char *pcDst, uint16_t usMax, const void *pSrc, uint16_t usLen)
{
    const uint16_t usKeep = usLen < usMax ? usLen : usMax;
    ORV_MEMCPY(pcDst, usMax, pSrc, usKeep);
    pcDst[usKeep] = '\0';
    return usKeep;
}

// Length of a configured text held in a fixed array (at most its size).
inline size_t BoundedLen(const char *pcText, size_t max) { return strnlen(pcText, max); }

// With no page left on either list: logs so and stops the running page
// timer, if one is registered and started; lines carry pcFunc. Defined with
// the timer run in timeout.cpp; the release entry points share it.
void StopPageTimer(const char *pcFunc, uint32_t uiThreadID, STWebPage *pstCtx);

// The thread's context for the entry points that need an existing one; logs
// "ThreadID error." or "g_pstWebPage[ucThreadID] is NULL." under pcFunc.
inline STWebPage *ExistingContext(const char *pcFunc, uint32_t uiThreadID)
{
    if (!IsValidThread(uiThreadID)) {
        LOG_ERROR_AS(pcFunc, uiThreadID, "ThreadID error.");
        return nullptr;
    }
    STWebPage *pstCtx = g_pstWebPage[ThreadOf(uiThreadID)];
    if (pstCtx == nullptr) {
        LOG_ERROR_AS(pcFunc, uiThreadID, "g_pstWebPage[ucThreadID] is NULL.");
    }
    return pstCtx;
}

// The two pools' free counts at TRACE, under pcFunc.
inline void LogPoolCounts(const char *pcFunc, uint32_t uiThreadID, const STWebPage *pstCtx)
{
    if (g_enSDKLogLevel <= LOG_LEVEL_TRACE) {
        SDKLog(uiThreadID, LOG_LEVEL_TRACE, ORVANE_SOURCE_FILE, pcFunc, (uint32_t)__LINE__, "stPageNodePool Free Node num %u.",
               GetFreeNodeNum(&pstCtx->stPageNodePool));
        SDKLog(uiThreadID, LOG_LEVEL_TRACE, ORVANE_SOURCE_FILE, pcFunc, (uint32_t)__LINE__,
               "stMatchStrMemPool Free Node num %u.", GetFreeNodeNum(&pstCtx->stMatchStrMemPool));
    }
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

// The flow area is the daemon's and may outlive the page, or even the
// context, its pointer was taken from: the pointer is trusted only when it is
// a node of this thread's page pool, so it can never lead into freed memory.
inline bool IsOwnPageNode(const STWebPage *pstCtx, const STPageNode *pstPage)
{
    const CMemPool &stPool = pstCtx->stPageNodePool;
    const uintptr_t uBase = reinterpret_cast<uintptr_t>(stPool.m_apstBlock[0]);
    const uintptr_t uStride = stPool.m_uiNodeSize + sizeof(STTranNode);
    const uintptr_t uNode = reinterpret_cast<uintptr_t>(pstPage) - sizeof(STTranNode);
    return pstPage != nullptr && uBase != 0 && uNode >= uBase && (uNode - uBase) % uStride == 0 &&
           (uNode - uBase) / uStride < stPool.m_uiInitNodeNum;
}

// The page with the ID on the thread's list, or null. Defined in page_store.cpp.
STPageNode *SeekFlowPage(STWebPage *pstCtx, uint64_t ullPageID, uint8_t ucListType);

// The page a flow area names: its cached pointer while that points at a node
// of the thread's page pool still carrying the ID, else the page with the ID
// on the list. A closed page keeps its ID until its node is reused, so the
// pointer can lead to it; bOpenOnly refuses such a page (nothing may be
// linked onto a node that sits in the pool).
inline STPageNode *FindFlowPage(const STEventInfo *pstInfo, uint64_t ullPageID, STPageNode *pstCached,
                                uint8_t ucListType, bool bOpenOnly)
{
    STWebPage *pstCtx = ContextOf(pstInfo->ucThreadID);
    if (ullPageID == 0 || pstCtx == nullptr) {
        return nullptr;
    }
    // A node on a list always has a predecessor; a free one has none.
    if (IsOwnPageNode(pstCtx, pstCached) && pstCached->uiPageID == ullPageID &&
        (!bOpenOnly || NodeOf(pstCached)->pstPrev != nullptr)) {
        return pstCached;
    }
    return SeekFlowPage(pstCtx, ullPageID, ucListType);
}

// InitPageProcessInfo for a record known to be there, inline for the entry
// point.
inline void ResetRecord(uint8_t ucThreadID, STFlowInfo *pstFlowInfo, STEventInfo *pstInfo)
{
    // Every text is read only up to its length, so clearing its first byte
    // is enough; the record is set up afresh for every event. The numbers
    // before the texts, and those after them, are cleared as two runs.
    static_assert(offsetof(STEventInfo, ucThreadID) == 0 && offsetof(STEventInfo, acHost) < 64 &&
                      offsetof(STEventInfo, ullReqBeginTime) > offsetof(STEventInfo, acUri),
                  "numbers first, then the texts, then times and the rest");
    ORV_MEMSET(pstInfo, sizeof(*pstInfo), 0, offsetof(STEventInfo, acHost));
    pstInfo->ucThreadID = ucThreadID;
    pstInfo->acHost[0] = '\0';
    pstInfo->acURL[0] = '\0';
    pstInfo->acRefererUrl[0] = '\0';
    pstInfo->acLocation[0] = '\0';
    pstInfo->acContentType[0] = '\0';
    pstInfo->acUri[0] = '\0';
    char *const pcTail = reinterpret_cast<char *>(&pstInfo->ullReqBeginTime);
    ORV_MEMSET(pcTail, sizeof(*pstInfo), 0, sizeof(*pstInfo) - offsetof(STEventInfo, ullReqBeginTime));
    pstInfo->pstFlowInfo = pstFlowInfo;
    pstInfo->uiReqMethod = METHOD_NONE;
    pstInfo->uiMatchLevel = MATCH_LEVEL_NONE;
}

// GetReqEventInfo past its argument checks, for a caller that made them;
// *pulHostText (when given) receives the host's text length, its bytes
// before the first NUL. Defined in event_intake.cpp.
uint32_t ReadRequestEvent(const STWebPageEvent *pstEvent, STEventInfo *pstInfo, size_t *pulHostText);

// WebPageEventReqProcess, ProcessNoMsgOrMatchFail and GetRspEventInfo past
// their argument checks, for the entry point, which made them. Defined in
// match_driver.cpp and event_intake.cpp.
uint64_t HandleRequest(STEventInfo *pstInfo, const STWebPageEvent *pstEvent);
uint64_t FallBack(STEventInfo *pstInfo, uint8_t bIsAllRuleMatchFail);
uint32_t ReadResponseEvent(const STWebPageEvent *pstEvent, STEventInfo *pstInfo);

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

// The page the flow is tied to on the given list, when it takes the event
// (logged with pcFoundLine and the page ID); otherwise null, after the line
// saying a new page will be made. Lines carry pcFunc. Defined with the match
// driver's fallback in match_driver.cpp; the UCID response path shares it.
STPageNode *FlowPageTakingEvent(STEventInfo *pstInfo, uint8_t ucListType, const char *pcFunc,
                                const char *pcFoundLine);

// What the time-only rules log when a page's transaction window fits.
struct TimeJoinLines {
    const char *pcMatched;      // TRACE: the window fits
    const char *pcUpdateError;  // ERROR: the page refused the event
    const char *pcUpdated;      // TRACE format, with the page ID: the page took it
};

// A page the time-only rules may consider: an associate page whose main
// response succeeded and that did not begin after the request.
inline bool MayJoinByTime(const STPageNode *pstPage, uint64_t ullReqBegin)
{
    return pstPage->uiPageType == PAGE_TYPE_ASSOCIATE && HasFlag(pstPage, PAGE_FLAG_SUCCESS) &&
           (ullReqBegin == 0 || pstPage->ullPageFirReq <= ullReqBegin);
}

class TimeWindow;

// Joins the event to the page when it falls in the transaction window
// (stWindow, prepared for the event with COMPARE_TRANS_WITH_PAGE); true once
// the page took it. Defined in time_window.cpp; the UCID pages' time match
// shares it.
bool JoinByTransWindow(STPageNode *pstPage, STEventInfo *pstInfo, const TimeWindow &stWindow, const char *pcFunc,
                       const TimeJoinLines &stLines);

// Points the compare record at the list to walk and fills its event side
// (keys, lengths, capacities, texts), logged under pcFunc; returns 1 when the
// event has none of the three texts, so there is nothing to compare, else 0.
// FillCompareEndpoints: the record's ports and addresses. Defined with the
// main-request rules in main_req_compare.cpp; the sub-request rules share them.
uint32_t FillCompareInfo(STEventInfo *pstInfo, STCompareInfo *pstCompare, STTranManage *pstList, const char *pcFunc);
void FillCompareEndpoints(const STEventInfo *pstInfo, STCompareInfo *pstCompare);

// The text tests of the location and URL rules, main or sub: a saved key of
// 0 never matches; otherwise the event's key or the text equivalence decides.
inline bool UrlIsLocation(STCompareInfo *pstCompare, uint32_t uiLocationKey, char *pcLocation, uint16_t usLocationLen)
{
    return uiLocationKey != 0 && (uiLocationKey == pstCompare->uiURLKey ||
                                  IsUrlSameAsLocation(pstCompare, pcLocation, usLocationLen) == 1);
}

inline bool RefererIsUrl(STCompareInfo *pstCompare, uint32_t uiURLKey, char *pcURL, uint16_t usURLLen,
                         const char *pcHost, uint16_t usHostLen)
{
    return uiURLKey != 0 && (uiURLKey == pstCompare->uiRefererKey ||
                             IsRefererSameAsUrl(pstCompare, pcURL, usURLLen, pcHost, usHostLen) == 1);
}

// Necessary conditions of the two text equivalences above, read from first
// bytes: LocationProbe (compare_screen.hpp) and RefererMayBeUrlOn. When one
// is false the equivalence is false. The equivalences also write a NUL at
// the saved text's and the event referer's length; every writer of those
// texts (pages, saved strings, intake) terminates them there, so a caller
// that skips them on these grounds changes no byte.

// The referer part, which depends on the saved URL's host alone (the page's
// host for every saved string of a page).
inline bool RefererMayBeUrlOn(const STCompareInfo *pstCompare, const char *pcHost, size_t g)
{
    const size_t r = pstCompare->usRefererLen;
    if (r == 0 || r > pstCompare->usRefererMaxLen || pstCompare->pcReferer == nullptr) {
        return false;
    }
    return g == 0 || (r >= g && std::strncmp(pstCompare->pcReferer, pcHost, g) == 0);
}

}  // namespace orvane

#endif
