// Sub-request rules: an event joins a page through the strings saved from the
// page's earlier transactions (redirect locations, URLs, hosts, referers),
// and the referer-with-referer rule, which may open a new page instead.
#include <cstring>

#include "compare_screen.hpp"
#include "time_window.hpp"
#include "webpage_util.hpp"

namespace {

using orvane::ContextOf;
using orvane::IsSuccessfulWebPage;
using orvane::MatchStrOf;
using orvane::PageOf;

constexpr uint32_t kLevelDirectReferer = 1;

// Which time a window test takes as a reference.
enum class RefTime { PageLastReq, PageLastRsp, StrBegin, StrEnd };

// Per sub compare type: the page list it walks and the reference times of its
// window (X, Y).
struct SubRule {
    uint32_t enCompareType;
    STTranManage STPageNode::*pstList;
    RefTime enRefBegin;
    RefTime enRefEnd;
};

constexpr SubRule kSubRules[] = {
    {COMPARE_URL_WITH_SUB_REQ_LOCATION, &STPageNode::stLocationList, RefTime::PageLastReq, RefTime::StrEnd},
    {COMPARE_REFERER_WITH_SUB_REQ_URL, &STPageNode::stURLList, RefTime::PageLastReq, RefTime::StrEnd},
    {COMPARE_HOST_WITH_SUB_REQ_HOST, &STPageNode::stHostList, RefTime::StrBegin, RefTime::StrEnd},
    {COMPARE_REFERER_WITH_REFERER, &STPageNode::stRefererList, RefTime::PageLastReq, RefTime::PageLastRsp},
};

// The rules are listed in compare-type order.
static_assert(kSubRules[0].enCompareType == COMPARE_URL_WITH_SUB_REQ_LOCATION &&
                  kSubRules[1].enCompareType == COMPARE_REFERER_WITH_SUB_REQ_URL &&
                  kSubRules[2].enCompareType == COMPARE_HOST_WITH_SUB_REQ_HOST &&
                  kSubRules[3].enCompareType == COMPARE_REFERER_WITH_REFERER,
              "sub rules indexed by compare type");
const SubRule *SubRuleOf(uint32_t enCompareType)
{
    const uint32_t uiIndex = enCompareType - COMPARE_URL_WITH_SUB_REQ_LOCATION;
    return uiIndex < sizeof(kSubRules) / sizeof(kSubRules[0]) ? &kSubRules[uiIndex] : nullptr;
}

// Where a walk over saved strings takes one reference time from: a field of
// each string, or a time of the page, which stays put during the walk.
class RefSource {
public:
    RefSource(RefTime enWhich, const STPageNode *pstPage)
        : m_pullOfString(enWhich == RefTime::StrBegin ? &STMatchStrNode::ullBeginTime
                         : enWhich == RefTime::StrEnd ? &STMatchStrNode::ullEndTime
                                                      : nullptr),
          m_ullOfPage(enWhich == RefTime::PageLastReq ? pstPage->ullPageLastReq : pstPage->ullPageLastRsp)
    {
    }

    uint64_t Of(const STMatchStrNode *pstStr) const
    {
        return m_pullOfString != nullptr ? pstStr->*m_pullOfString : m_ullOfPage;
    }
    bool PerPage() const { return m_pullOfString == nullptr; }

private:
    uint64_t STMatchStrNode::*m_pullOfString;
    uint64_t m_ullOfPage;
};

// The newest successful web page, the one whose saved strings the sub rules
// of types 3 to 5 consult.
STPageNode *LatestWebPage(STWebPage *pstCtx)
{
    return orvane::FindInList<STPageNode>(&pstCtx->stPageNodeList, IsSuccessfulWebPage);
}

// Whether CompareSubReqStrWithDiffType could take the string: false only
// where it certainly would not (see LocationProbe for the text rules).
bool StringMayMatch(const STMatchStrNode &stStr, const STCompareInfo &stCompare, uint32_t enCompareType,
                    uint32_t uiKey, bool bRefererText, const orvane::LocationProbe &stLocation)
{
    if (stStr.usStrLen > MATCH_STR_MAX_LEN) {
        return false;
    }
    switch (enCompareType) {
        case COMPARE_URL_WITH_SUB_REQ_LOCATION:
            return stStr.uiHashKey != 0 && (stStr.uiHashKey == stCompare.uiURLKey ||
                                            stLocation.MayBe(stStr.acStr, stStr.usStrLen));
        case COMPARE_REFERER_WITH_SUB_REQ_URL:
            return stStr.uiHashKey != 0 &&
                   (stStr.uiHashKey == stCompare.uiRefererKey || (bRefererText && stStr.usStrLen != 0));
        case COMPARE_HOST_WITH_SUB_REQ_HOST:
        case COMPARE_REFERER_WITH_REFERER:
            return stStr.uiHashKey == uiKey;
        default:
            return true;
    }
}

// With TRACE off and sound arguments a sub compare logs nothing until it has
// found no string, so where that is certain from the event, the list's count
// and a window that is the page's alone, the compare record need not be made.
// The verdicts are GetSubCompareInfo's and CompareSubReqString's.
// The rule's constants fold into the window test when the type is known here.
template <uint32_t CompareType>
__attribute__((always_inline)) inline bool SubCompareFindsNothingFor(const STPageNode *pstPage,
                                                                     const STEventInfo *pstInfo)
{
    const SubRule &stRule = kSubRules[CompareType - COMPARE_URL_WITH_SUB_REQ_LOCATION];
    // An empty list first: it is the common case.
    if ((pstPage->*(stRule.pstList)).uiNodeNum == 0) {
        return true;
    }
    if (pstInfo->usHostLen == 0 && pstInfo->usURLLen == 0 && pstInfo->usRefererUrlLen == 0) {
        return true;
    }
    // The referer rule takes a string by its key alone: a list without the
    // event's key finds nothing, whatever the page's window says.
    if (CompareType == COMPARE_REFERER_WITH_REFERER) {
        const uint32_t uiKey = pstInfo->uiRefererHashKey;
        if (orvane::WalkList(&(pstPage->*(stRule.pstList)), [uiKey](STTranNode *pstNode) {
                const STMatchStrNode *pstStr = MatchStrOf(pstNode);
                return pstStr->uiHashKey == uiKey && pstStr->usStrLen <= MATCH_STR_MAX_LEN;
            }) == nullptr) {
            return true;
        }
    }
    const orvane::FixedWindow<CompareType> stWindow(pstInfo->ullReqBeginTime, pstInfo->ullReqEndTime,
                                                    pstInfo->usCauseCode);
    if (stWindow.PageRejects(pstPage->ullPageFirReq)) {
        return true;
    }
    const RefSource stRefBegin(stRule.enRefBegin, pstPage);
    const RefSource stRefEnd(stRule.enRefEnd, pstPage);
    const uint64_t ullLength = stWindow.LengthFor(pstPage->enNetworkType, pstPage->usCauseCode);
    if (!stRefBegin.PerPage() || !stRefEnd.PerPage()) {
        // The quiet walk's own screen and window, string by string.
        STCompareInfo stCompare;
        orvane::FillCompareFields(pstInfo, &stCompare);
        const uint32_t uiKey =
            CompareType == COMPARE_HOST_WITH_SUB_REQ_HOST ? stCompare.uiHostKey : stCompare.uiRefererKey;
        const bool bRefererText = CompareType == COMPARE_REFERER_WITH_SUB_REQ_URL &&
                                  orvane::RefererMayBeUrlOn(&stCompare, pstPage->acHost, pstPage->usHostLen);
        const orvane::LocationProbe stLocation(&stCompare);
        return orvane::WalkList(&(pstPage->*(stRule.pstList)), [&](STTranNode *pstNode) {
                   const STMatchStrNode *pstStr = MatchStrOf(pstNode);
                   return StringMayMatch(*pstStr, stCompare, CompareType, uiKey, bRefererText, stLocation) &&
                          stWindow.Fits(stRefBegin.Of(pstStr), stRefEnd.Of(pstStr), ullLength);
               }) == nullptr;
    }
    const STMatchStrNode *const pstAny = nullptr;
    return !stWindow.Fits(stRefBegin.Of(pstAny), stRefEnd.Of(pstAny), ullLength);
}

bool SubCompareFindsNothing(const STPageNode *pstPage, const STEventInfo *pstInfo, uint32_t enCompareType)
{
    if (g_enSDKLogLevel <= LOG_LEVEL_TRACE || pstPage == nullptr || pstInfo == nullptr ||
        !orvane::IsValidThread(pstInfo->ucThreadID)) {
        return false;
    }
    switch (enCompareType) {
        case COMPARE_URL_WITH_SUB_REQ_LOCATION:
            return SubCompareFindsNothingFor<COMPARE_URL_WITH_SUB_REQ_LOCATION>(pstPage, pstInfo);
        case COMPARE_REFERER_WITH_SUB_REQ_URL:
            return SubCompareFindsNothingFor<COMPARE_REFERER_WITH_SUB_REQ_URL>(pstPage, pstInfo);
        case COMPARE_HOST_WITH_SUB_REQ_HOST:
            return SubCompareFindsNothingFor<COMPARE_HOST_WITH_SUB_REQ_HOST>(pstPage, pstInfo);
        case COMPARE_REFERER_WITH_REFERER:
            return SubCompareFindsNothingFor<COMPARE_REFERER_WITH_REFERER>(pstPage, pstInfo);
        default:
            return false;
    }
}

// With TRACE off and a sound record, finding the latest page logs nothing
// and the rule's screen settles most events, so both run inline here.
template <uint32_t CompareType>
uint64_t CompareWithLatestPage(STEventInfo *pstInfo)
{
    if (pstInfo == nullptr) {
        return 0;
    }
    if (g_enSDKLogLevel > LOG_LEVEL_TRACE && orvane::IsValidThread(pstInfo->ucThreadID)) {
        STWebPage *pstCtx = ContextOf(pstInfo->ucThreadID);
        STPageNode *pstPage =
            (pstCtx == nullptr || pstCtx->stPageNodeList.uiNodeNum == 0) ? nullptr : LatestWebPage(pstCtx);
        if (pstPage == nullptr || SubCompareFindsNothingFor<CompareType>(pstPage, pstInfo)) {
            return 0;
        }
        return CompareSubReqCommon(pstPage, pstInfo, CompareType);
    }
    STPageNode *pstPage = GetLatelyAssociatePageNode(pstInfo);
    return pstPage == nullptr ? 0 : CompareSubReqCommon(pstPage, pstInfo, CompareType);
}

}  // namespace

extern "C" {

STPageNode *GetLatelyAssociatePageNode(STEventInfo *pstInfo)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, LOG_TID_ANY, "Para err.", "ThreadID err.")) {
        return nullptr;
    }
    const uint8_t ucTid = pstInfo->ucThreadID;
    STWebPage *pstCtx = ContextOf(ucTid);
    if (pstCtx == nullptr || pstCtx->stPageNodeList.uiNodeNum == 0) {
        LOG_TRACE(ucTid, "PageList is empty.");
        return nullptr;
    }
    STPageNode *pstPage = LatestWebPage(pstCtx);
    if (pstPage == nullptr) {
        LOG_TRACE(ucTid, "Do not get the lately associate page.");
        return nullptr;
    }
    LOG_TRACE(ucTid, "Get the lately associate page, PageID is %llu.",
              static_cast<unsigned long long>(pstPage->uiPageID));
    return pstPage;
}

uint32_t GetSubCompareInfo(STPageNode *pstPage, STEventInfo *pstInfo, uint32_t enCompareType,
                           STCompareInfo *pstCompare)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, pstPage != nullptr && pstCompare != nullptr,
                              LOG_TID_ANY, "Para err.", "ThreadID err.")) {
        return 1;
    }
    const uint8_t ucTid = pstInfo->ucThreadID;
    LOG_TRACE(ucTid, "GetSubCompareInfo, enCompareType is %u.", enCompareType);
    orvane::FillCompareEndpoints(pstInfo, pstCompare);
    const SubRule *pstRule = SubRuleOf(enCompareType);
    if (pstRule == nullptr) {
        pstCompare->pstCompareList = nullptr;
        return 1;
    }
    return orvane::FillCompareInfo(pstInfo, pstCompare, &(pstPage->*(pstRule->pstList)), __func__);
}

uint32_t CompareSubReqStrWithDiffType(STMatchStrNode *pstStr, STCompareInfo *pstCompare, const char *pcHost,
                                      uint16_t usHostLen, uint32_t enCompareType)
{
    // The equivalences terminate the saved text at its length.
    if (pstStr == nullptr || pstCompare == nullptr || pcHost == nullptr || pstStr->usStrLen > MATCH_STR_MAX_LEN) {
        return COMPARE_OUTSIDE;
    }
    bool bSame = false;
    switch (enCompareType) {
        case COMPARE_URL_WITH_SUB_REQ_LOCATION:
            bSame = orvane::UrlIsLocation(pstCompare, pstStr->uiHashKey, pstStr->acStr, pstStr->usStrLen);
            break;
        case COMPARE_REFERER_WITH_SUB_REQ_URL:
            bSame = orvane::RefererIsUrl(pstCompare, pstStr->uiHashKey, pstStr->acStr, pstStr->usStrLen, pcHost,
                                         usHostLen);
            break;
        case COMPARE_HOST_WITH_SUB_REQ_HOST:
            bSame = pstStr->uiHashKey == pstCompare->uiHostKey;
            break;
        case COMPARE_REFERER_WITH_REFERER:
            bSame = pstStr->uiHashKey == pstCompare->uiRefererKey;
            break;
        default:
            break;
    }
    return bSame ? 0u : COMPARE_OUTSIDE;
}

uint64_t CompareSubReqString(STEventInfo *pstInfo, STPageNode *pstPage, STCompareInfo *pstCompare,
                             uint32_t enCompareType)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, pstPage != nullptr && pstCompare != nullptr,
                              LOG_TID_ANY, "Para err.", "ThreadID err.")) {
        return 0;
    }
    const uint8_t ucTid = pstInfo->ucThreadID;
    LOG_TRACE(ucTid, "CompareSubReqString, enCompareType is %u.", enCompareType);
    STTranManage *pstList = pstCompare->pstCompareList;
    if (pstList == nullptr) {
        LOG_ERROR(ucTid, "Compare list is NULL.");
        return 0;
    }
    if (pstList->uiNodeNum == 0) {
        LOG_TRACE(ucTid, "Compare list is empty.");
        return 0;
    }

    // Oldest string first; the window test is cheap and runs before the
    // byte comparisons. The window is the page's for the whole walk; a
    // compare type without a string rule takes the page's own times.
    const SubRule *pstRule = SubRuleOf(enCompareType);
    const RefSource stRefBegin(pstRule != nullptr ? pstRule->enRefBegin : RefTime::PageLastReq, pstPage);
    const RefSource stRefEnd(pstRule != nullptr ? pstRule->enRefEnd : RefTime::PageLastRsp, pstPage);
    const orvane::TimeWindow stWindow(enCompareType, pstInfo->ullReqBeginTime, pstInfo->ullReqEndTime,
                                      pstInfo->usCauseCode);
    const uint64_t ullLength = stWindow.LengthFor(pstPage->enNetworkType, pstPage->usCauseCode);
    const uint64_t ullPageFirReq = pstPage->ullPageFirReq;
    const char *const pcFunc = __func__;
    const auto bSame = [&](STMatchStrNode *pstStr) {
        return CompareSubReqStrWithDiffType(pstStr, pstCompare, pstPage->acHost, pstPage->usHostLen,
                                            enCompareType) == 0;
    };
    // Nothing in the walk calls the daemon before its first TRACE line, so
    // the level tested here is the one that line would see; with TRACE off
    // the walk logs nothing, so tests without side effects may come first.
    const bool bQuiet = g_enSDKLogLevel > LOG_LEVEL_TRACE;
    STTranNode *pstHit = nullptr;
    if (stRefBegin.PerPage() && stRefEnd.PerPage()) {
        // One verdict for every string: the window is the page's alone.
        const STMatchStrNode *const pstAny = nullptr;
        if (stWindow.FitsPage(ullPageFirReq, stRefBegin.Of(pstAny), stRefEnd.Of(pstAny), ullLength)) {
            pstHit = orvane::WalkList(pstList, [&](STTranNode *pstNode) {
                LOG_TRACE_AS(pcFunc, ucTid, "Sub match, compare time is OK.");
                return bSame(MatchStrOf(pstNode));
            });
        }
    } else if (!stWindow.PageRejects(ullPageFirReq)) {
        const uint32_t uiKey =
            enCompareType == COMPARE_HOST_WITH_SUB_REQ_HOST ? pstCompare->uiHostKey : pstCompare->uiRefererKey;
        // The referer rule's text test needs the event referer to begin with
        // the page's host, the same for every string.
        const bool bRefererText = bQuiet && enCompareType == COMPARE_REFERER_WITH_SUB_REQ_URL &&
                                  orvane::RefererMayBeUrlOn(pstCompare, pstPage->acHost, pstPage->usHostLen);
        const orvane::LocationProbe stLocation(pstCompare);
        pstHit = orvane::WalkList(pstList, [&](STTranNode *pstNode) {
            STMatchStrNode *pstStr = MatchStrOf(pstNode);
            if (bQuiet && !StringMayMatch(*pstStr, *pstCompare, enCompareType, uiKey, bRefererText, stLocation)) {
                return false;
            }
            if (!stWindow.Fits(stRefBegin.Of(pstStr), stRefEnd.Of(pstStr), ullLength)) {
                return false;
            }
            LOG_TRACE_AS(pcFunc, ucTid, "Sub match, compare time is OK.");
            return bSame(pstStr);
        });
    }
    if (pstHit == nullptr) {
        LOG_TRACE(ucTid, "Sub match page is NOK.");
        return 0;
    }
    LOG_TRACE(ucTid, "Sub match, compare L7 info is OK.");
    pstInfo->uiMatchLevel = MatchStrOf(pstHit)->uiMatchLevel;
    if (enCompareType == COMPARE_URL_WITH_SUB_REQ_LOCATION) {
        // A redirect location leads to one request only.
        STWebPage *pstCtx = ContextOf(ucTid);
        if (pstCtx != nullptr && orvane::ListRemove(pstHit, pstList) == 0) {
            orvane::PoolGive(pstHit, &pstCtx->stMatchStrMemPool);
        }
    }
    if (UpdatePageNode(pstPage, pstInfo, PAGE_TYPE_ASSOCIATE) != 0) {
        LOG_ERROR(ucTid, "Sub match, Update page is error.");
        return 0;
    }
    LOG_TRACE(ucTid, "Sub match page is OK, PageID is %llu.", static_cast<unsigned long long>(pstPage->uiPageID));
    return pstPage->uiPageID;
}

uint64_t CompareRefererWithAllReqReferer(STEventInfo *pstInfo)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, LOG_TID_ANY, "Para err.", "ucThreadID err.")) {
        return 0;
    }
    const uint8_t ucTid = pstInfo->ucThreadID;
    STWebPage *pstCtx = ContextOf(ucTid);
    if (pstCtx == nullptr || pstCtx->stPageNodeList.uiNodeNum == 0) {
        LOG_TRACE(ucTid, "Page is NULL.");
        return 0;
    }
    // Without its referer-key branch, CompareRefererWithReferer gives the
    // sub compare's result, which the screen may settle here (inline: the
    // record and its thread were checked above). The screen's window is the
    // page's alone: a page long past the longest the rule's row can open is
    // outside it, on its two times, before anything else of the page is
    // read. None of these tests writes anything, so their order is free;
    // the level, the event's times and the bound are read again after a
    // compare, which may call the daemon.
    const orvane::FixedWindow<COMPARE_REFERER_WITH_REFERER> stWindow(pstInfo->ullReqBeginTime,
                                                                     pstInfo->ullReqEndTime, pstInfo->usCauseCode);
    uint64_t ullEarliest = orvane::EarliestEventTime(pstInfo->ullReqBeginTime, pstInfo->ullReqEndTime);
    uint64_t ullLongest = stWindow.LongestLength();
    bool bQuiet = g_enSDKLogLevel > LOG_LEVEL_TRACE;
    // A page made during the walk ends it at once, so the walk never sees
    // the new head.
    uint64_t ullPageID = 0;
    orvane::WalkList(&pstCtx->stPageNodeList, [&](STTranNode *pstNode) {
        STPageNode *pstPage = PageOf(pstNode);
        const bool bScreened = bQuiet && !(pstPage->uiRefererKey != 0 &&
                                           pstPage->uiRefererKey == pstInfo->uiRefererHashKey);
        if (bScreened &&
            orvane::LongPast(pstPage->ullPageLastReq, pstPage->ullPageLastRsp, ullEarliest, ullLongest)) {
            return false;
        }
        if (!IsSuccessfulWebPage(pstPage) ||
            (bScreened && SubCompareFindsNothingFor<COMPARE_REFERER_WITH_REFERER>(pstPage, pstInfo))) {
            return false;
        }
        ullPageID = CompareRefererWithReferer(pstInfo, pstPage);
        ullEarliest = orvane::EarliestEventTime(pstInfo->ullReqBeginTime, pstInfo->ullReqEndTime);
        ullLongest = stWindow.LongestLength();
        bQuiet = g_enSDKLogLevel > LOG_LEVEL_TRACE;
        return ullPageID != 0;
    });
    if (ullPageID == 0) {
        LOG_TRACE(ucTid, "Do not match page referer with referer.");
        return 0;
    }
    LOG_TRACE(ucTid, "Match page referer with referer,PageID is %llu.", static_cast<unsigned long long>(ullPageID));
    return ullPageID;
}

uint64_t CompareRefererWithReferer(STEventInfo *pstInfo, STPageNode *pstPage)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, pstPage != nullptr, LOG_TID_ANY, "Para err.", "ucThreadID err.")) {
        return 0;
    }
    const uint8_t ucTid = pstInfo->ucThreadID;
    if (pstPage->uiRefererKey != 0 && pstPage->uiRefererKey == pstInfo->uiRefererHashKey) {
        LOG_TRACE(ucTid, "Reqevent referer = page referer.");
        const uint32_t uiTime = CompareMsgTime(pstPage->ullPageFirReq, pstInfo->ullReqBeginTime,
                                               pstInfo->ullReqEndTime, pstPage->ullPageLastReq,
                                               pstPage->ullPageLastRsp, COMPARE_REFERER_WITH_REFERER,
                                               pstPage->enNetworkType, pstPage->usCauseCode, pstInfo->usCauseCode);
        if (uiTime == 0) {
            LOG_TRACE(ucTid, "Match time use referer with referer is OK.");
            pstInfo->uiMatchLevel = kLevelDirectReferer;
            if (UpdatePageNode(pstPage, pstInfo, PAGE_TYPE_ASSOCIATE) == 0) {
                LOG_TRACE(ucTid, "Update page is OK,PageID is %llu.",
                          static_cast<unsigned long long>(pstPage->uiPageID));
                return pstPage->uiPageID;
            }
        } else {
            LOG_TRACE(ucTid, "Match time use referer with referer is NOK.");
            // Linked from the same page as this one but too late: the user
            // followed another link from there.
            if (orvane::IsWebTypeAndNotBlack(pstInfo)) {
                LOG_TRACE(ucTid, "Reqevent is webtype and is not in blacklist.");
                const uint64_t ullNewID = InsertPageNode(pstInfo, PAGE_TYPE_ASSOCIATE, 0);
                if (ullNewID != 0) {
                    LOG_TRACE(ucTid, "Match use referer with referer,insert page is OK,PageID is %llu.",
                              static_cast<unsigned long long>(ullNewID));
                    return ullNewID;
                }
            }
        }
    }
    return CompareSubReqCommon(pstPage, pstInfo, COMPARE_REFERER_WITH_REFERER);
}

uint64_t ProcessSpecialUri(STEventInfo *pstInfo)
{
    if (pstInfo == nullptr || !orvane::IsWebTypeAndNotBlack(pstInfo)) {
        return 0;
    }
    // A request that names its own host as referer is not a page's start.
    if (pstInfo->usRefererUrlLen != 0 && pstInfo->uiHostHashKey == pstInfo->uiRefererHashKey) {
        return 0;
    }
    return InsertPageNode(pstInfo, PAGE_TYPE_ASSOCIATE, 0);
}

uint64_t CompareSubReqCommon(STPageNode *pstPage, STEventInfo *pstInfo, uint32_t enCompareType)
{
    if (SubCompareFindsNothing(pstPage, pstInfo, enCompareType)) {
        return 0;
    }
    STCompareInfo stCompare;
    std::memset(&stCompare, 0, sizeof(stCompare));
    if (GetSubCompareInfo(pstPage, pstInfo, enCompareType, &stCompare) == 1) {
        return 0;
    }
    return CompareSubReqString(pstInfo, pstPage, &stCompare, enCompareType);
}

uint64_t CompareUrlWithSubReqLocation(STEventInfo *pstInfo)
{
    return CompareWithLatestPage<COMPARE_URL_WITH_SUB_REQ_LOCATION>(pstInfo);
}

uint64_t CompareRefererWithSubReqUrl(STEventInfo *pstInfo)
{
    return CompareWithLatestPage<COMPARE_REFERER_WITH_SUB_REQ_URL>(pstInfo);
}

uint64_t CompareHostWithSubReqHost(STEventInfo *pstInfo)
{
    return CompareWithLatestPage<COMPARE_HOST_WITH_SUB_REQ_HOST>(pstInfo);
}

}  // extern "C"
