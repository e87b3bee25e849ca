// The match driver: screens a request, hands UCID requests to their own
// matcher, runs the association rules in order and falls back to the flow's
// page or a new one. Responses only take the fallback.
#include <cstring>
#include <tuple>

#include "webpage_util.hpp"

namespace {

// The configured input keyword (typed-in search text) anywhere in the URI.
bool UriHasInputKeyword(STEventInfo *pstInfo)
{
    pstInfo->acUri[URI_MAX_LEN] = '\0';
    return pstInfo->usUriLen != 0 &&
           orvane::HoldsKeyword(pstInfo->acUri, pstInfo->usUriLen, std::strlen(pstInfo->acUri),
                                g_stPageConfig.acUcInputKeyword, sizeof(g_stPageConfig.acUcInputKeyword));
}

// The last host screens of each thread: a page's requests go to a handful of
// hosts, and a host's verdict depends only on its text, its length field and
// the black keywords, which the daemon may rewrite at any time, so each use
// compares them with the ones the verdicts were taken under.
struct HostScreenCache {
    static constexpr uint32_t kSlots = 64;
    struct Slot {
        uint8_t ucUsed;
        uint8_t ucBlack;
        uint16_t usLen;
        uint16_t usTextLen;
        char acHost[HOST_MAX_LEN + 1];
    };
    char aacKeyword[PAGE_HOST_BLACK_NUM][PAGE_HOST_BLACK_LEN];
    Slot astSlot[kSlots];
};
// One per thread ID: a thread ID is served by one daemon thread at a time.
HostScreenCache g_astHostScreen[WEBPAGE_THREAD_NUM];

// ulHostText: the host's text length, as intake measured it.
bool IsBlackHost(STEventInfo *pstInfo, size_t ulHostText)
{
    if (pstInfo->usHostLen == 0 || pstInfo->ucThreadID >= WEBPAGE_THREAD_NUM) {
        return IsHostBlackList(pstInfo->acHost, pstInfo->usHostLen, HOST_MAX_LEN) != 0;
    }
    HostScreenCache &stCache = g_astHostScreen[pstInfo->ucThreadID];
    if (std::memcmp(stCache.aacKeyword, g_stPageConfig.aacHostBlackKeyword, sizeof(stCache.aacKeyword)) != 0) {
        std::memcpy(stCache.aacKeyword, g_stPageConfig.aacHostBlackKeyword, sizeof(stCache.aacKeyword));
        std::memset(stCache.astSlot, 0, sizeof(stCache.astSlot));
    }
    // Intake terminated the host at its length, at most HOST_MAX_LEN.
    pstInfo->acHost[HOST_MAX_LEN] = '\0';
    const size_t textLen = ulHostText;
    HostScreenCache::Slot &stSlot = stCache.astSlot[pstInfo->uiHostHashKey % HostScreenCache::kSlots];
    if (stSlot.ucUsed != 0 && stSlot.usLen == pstInfo->usHostLen && stSlot.usTextLen == textLen &&
        std::memcmp(stSlot.acHost, pstInfo->acHost, textLen) == 0) {
        return stSlot.ucBlack != 0;
    }
    const bool bBlack = IsHostBlackList(pstInfo->acHost, pstInfo->usHostLen, HOST_MAX_LEN) != 0;
    stSlot.ucUsed = 1;
    stSlot.ucBlack = bBlack ? 1 : 0;
    stSlot.usLen = pstInfo->usHostLen;
    stSlot.usTextLen = static_cast<uint16_t>(textLen);
    std::memcpy(stSlot.acHost, pstInfo->acHost, textLen);
    return bBlack;
}

bool IsBlackRequest(STEventInfo *pstInfo, size_t ulHostText)
{
    return IsBlackHost(pstInfo, ulHostText) || UriHasInputKeyword(pstInfo);
}

void MarkFlowBlack(STEventInfo *pstInfo, uint8_t ucBlack)
{
    if (pstInfo->pstFlowInfo != nullptr) {
        pstInfo->pstFlowInfo->ucIsBlack = ucBlack;
    }
}

bool HasHost(const STEventInfo &stInfo) { return stInfo.uiHostHashKey != 0; }
bool HasUrl(const STEventInfo &stInfo) { return stInfo.uiURLHashKey != 0; }
bool HasReferer(const STEventInfo &stInfo) { return stInfo.uiRefererHashKey != 0; }
bool Always(const STEventInfo &) { return true; }
bool HasNoKeys(const STEventInfo &stInfo) { return !HasHost(stInfo) && !HasUrl(stInfo) && !HasReferer(stInfo); }
// The URL was assembled without a host.
bool LacksHost(const STEventInfo &stInfo) { return stInfo.usURLLen == 0 || stInfo.acURL[0] == '/'; }

// Against the main requests of all pages.
template <uint32_t CompareType>
uint64_t RunMainCompare(STEventInfo *pstInfo)
{
    return CompareMainReqCommon(pstInfo, CompareType);
}

// The heartbeat rule. With the level off, a host that is not the heartbeat
// host ends ProcessHeartBeat before anything but its TRACE line, so the call
// is left out (the caller checked the record and its thread already).
uint64_t RunHeartBeat(STEventInfo *pstInfo)
{
    if (orvane::LogOff() && pstInfo->uiHostHashKey != g_stPageConfig.uiHeartBeatHostKey) {
        return 0;
    }
    return ProcessHeartBeat(pstInfo);
}

enum class RuleEnd : uint8_t {
    kOnMatch,    // log the matched line and stop when the rule names a page
    kLogAlways,  // log the matched line whatever the result; stop on a page
    kLast,       // log the matched line and the closing line; the result is final
    kRefuse,     // a guard: log the line at ERROR and stop without a page
};

// One row of the rule table: what the rule needs and what it runs are part
// of its type, so walking the table compiles to direct tests and calls.
template <bool (*Applies)(const STEventInfo &), uint64_t (*Run)(STEventInfo *), RuleEnd kEnd>
struct MatchRule {
    const char *pcBefore;   // TRACE line before the rule runs, or null
    const char *pcMatched;  // format with the page ID (the ERROR text of a guard)
};

// Order is policy: the first rule that names a page wins.
constexpr auto kMatchRules = std::make_tuple(
    MatchRule<HasHost, RunHeartBeat, RuleEnd::kOnMatch>{nullptr, "Event is HeartBeat, PageID = %llu."},
    MatchRule<HasNoKeys, nullptr, RuleEnd::kRefuse>{nullptr, "ReqInfo is NULL."},
    MatchRule<HasUrl, RunMainCompare<COMPARE_URL_WITH_MAIN_REQ_LOCATION>, RuleEnd::kOnMatch>{
        "Matching main location with URL.", "URL match main location is OK, PageID = %llu."},
    MatchRule<HasUrl, CompareUrlWithSubReqLocation, RuleEnd::kOnMatch>{
        "Matching sub location with URL.", "URL match sub location is OK, PageID = %llu."},
    MatchRule<LacksHost, ProcessSpecialUri, RuleEnd::kLogAlways>{nullptr, "Special URL, PageID = %llu."},
    MatchRule<HasReferer, RunMainCompare<COMPARE_REFERER_WITH_MAIN_REQ_URL>, RuleEnd::kOnMatch>{
        "Matching main URL with referer.", "Referer match main URL is OK, PageID = %llu."},
    MatchRule<HasReferer, CompareRefererWithSubReqUrl, RuleEnd::kOnMatch>{
        "Matching sub URL with referer.", "Referer match sub URL is OK, PageID = %llu."},
    MatchRule<HasReferer, CompareRefererWithAllReqReferer, RuleEnd::kOnMatch>{
        "Matching main referer with referer.", "Referer match main referer is OK, PageID = %llu."},
    MatchRule<HasHost, RunMainCompare<COMPARE_HOST_WITH_MAIN_REQ_HOST>, RuleEnd::kOnMatch>{
        "Matching main host with host.", "Host match main host is OK, PageID = %llu."},
    MatchRule<HasHost, CompareHostWithSubReqHost, RuleEnd::kOnMatch>{
        "Matching sub host with host.", "Host match sub host is OK, PageID = %llu."},
    MatchRule<Always, CompareMsgTimeWithAllPageNode, RuleEnd::kLast>{nullptr, "Time match, PageID = %llu."});

// Runs one row of the table; true when the match ends there, with the
// result in *pullPageID. Whether the rule applies is read from the record
// just before it, as an earlier rule may have written it.
template <bool (*Applies)(const STEventInfo &), uint64_t (*Run)(STEventInfo *), RuleEnd kEnd>
bool RunRule(const MatchRule<Applies, Run, kEnd> &stRule, STEventInfo *pstInfo, uint64_t *pullPageID)
{
    const char *const pcFunc = "WebPageMsgMatch";
    const uint32_t uiTid = pstInfo->ucThreadID;
    if (!Applies(*pstInfo)) {
        return false;
    }
    if constexpr (kEnd == RuleEnd::kRefuse) {
        LOG_ERROR_AS(pcFunc, uiTid, "%s", stRule.pcMatched);
        *pullPageID = 0;
        return true;
    } else {
        if (stRule.pcBefore != nullptr) {
            LOG_TRACE_AS(pcFunc, uiTid, "%s", stRule.pcBefore);
        }
        const uint64_t ullPageID = Run(pstInfo);
        if (ullPageID != 0 || kEnd != RuleEnd::kOnMatch) {
            LOG_TRACE_AS(pcFunc, uiTid, stRule.pcMatched, (unsigned long long)ullPageID);
        }
        if (kEnd == RuleEnd::kLast) {
            LOG_TRACE_AS(pcFunc, uiTid, "****Match webpage is end*********************************.");
        }
        *pullPageID = ullPageID;
        return ullPageID != 0 || kEnd == RuleEnd::kLast;
    }
}

}  // namespace

namespace orvane {

// FlowPageTakingEvent built for an off level (kLog false) and as written.
// Nothing in it calls daemon code.
template <bool kLog>
STPageNode *FlowPageTaking(STEventInfo *pstInfo, uint8_t ucListType, const char *pcFunc, const char *pcFoundLine)
{
    const uint32_t uiTid = pstInfo->ucThreadID;
    // GetPageNodeByFlowInfo; for an associate page without its calls (the
    // callers checked the record and its thread).
    STFlowInfo *pstFlow = pstInfo->pstFlowInfo;
    STPageNode *pstPage = nullptr;
    if (pstFlow != nullptr && pstFlow->uiPageType == PAGE_TYPE_ASSOCIATE) {
        pstPage = FindFlowPage(pstInfo, pstFlow->ullAssociatePageID, pstFlow->pstAssociatePage, ucListType, false);
    } else {
        pstPage = GetPageNodeByFlowInfo(pstInfo, ucListType);
    }
    if (pstPage != nullptr) {
        LOG_TRACE_IF(kLog, pcFunc, uiTid, pcFoundLine, Llu(pstPage->uiPageID));
        if (UpdatePageNode(pstPage, pstInfo, pstPage->uiPageType) == 0) {
            return pstPage;
        }
    }
    LOG_TRACE_IF(kLog, pcFunc, uiTid, "Match fail process,Get page by flow is NOK,insert new page.");
    return nullptr;
}

STPageNode *FlowPageTakingEvent(STEventInfo *pstInfo, uint8_t ucListType, const char *pcFunc, const char *pcFoundLine)
{
    return LogOff() ? FlowPageTaking<false>(pstInfo, ucListType, pcFunc, pcFoundLine)
                    : FlowPageTaking<true>(pstInfo, ucListType, pcFunc, pcFoundLine);
}

// ProcessNoMsgOrMatchFail's body, built for an off level (kLog false) and as
// written. Only page creation may call the daemon (its DNS query): the lines
// after it test the level again.
template <bool kLog>
uint64_t FallBackAs(STEventInfo *pstInfo, uint8_t bIsAllRuleMatchFail)
{
    const char *const pcFunc = "ProcessNoMsgOrMatchFail";
    const uint32_t uiTid = pstInfo->ucThreadID;
    LOG_TRACE_IF(kLog, pcFunc, uiTid, "Match fail process,bIsAllRuleMatchFail is %u.", bIsAllRuleMatchFail);
    if (pstInfo->pstFlowInfo == nullptr) {
        return 0;
    }
    if (pstInfo->pstFlowInfo->ucIsBlack == 1) {
        LOG_TRACE_IF(kLog, pcFunc, uiTid, "Match fail process,flow  host  is  black list.");
        return PAGE_ID_BLACK;
    }

    const char *const pcFoundLine = "Match fail process,Get page by flow is OK,PageID is %llu.";
    uint32_t uiPageType = PAGE_TYPE_SINGLE;
    if (bIsAllRuleMatchFail != 0) {
        // A request no rule placed opens its own page; flash content never
        // becomes a web page.
        if (IsBlackList(pstInfo->acURL, pstInfo->usURLLen, URL_MAX_LEN, pstInfo->acRefererUrl,
                        pstInfo->usRefererUrlLen, REFERER_MAX_LEN, pstInfo->acContentType,
                        pstInfo->usContentTypeLen, CONTENT_TYPE_MAX_LEN) != 0) {
            LOG_TRACE_IF(kLog, pcFunc, uiTid, "Match fail process,Reqevent is in blacklist.");
        } else {
            uiPageType = PAGE_TYPE_ASSOCIATE;
        }
        const uint64_t ullPageID = InsertPageNode(pstInfo, uiPageType, 1);
        LOG_TRACE_AS(pcFunc, uiTid, "Match fail process,insert page,PageID is %llu.", (unsigned long long)ullPageID);
        if (ullPageID != 0) {
            return ullPageID;
        }
        const STPageNode *pstPage = FlowPageTakingEvent(pstInfo, PAGE_LIST_ORDINARY, pcFunc, pcFoundLine);
        return pstPage != nullptr ? pstPage->uiPageID : InsertPageNode(pstInfo, uiPageType, 0);
    }

    const STPageNode *pstPage = FlowPageTaking<kLog>(pstInfo, PAGE_LIST_ORDINARY, pcFunc, pcFoundLine);
    return pstPage != nullptr ? pstPage->uiPageID : InsertPageNode(pstInfo, uiPageType, 0);
}

// The exported steps below past their argument checks, for callers that made
// them; their lines still name the exported functions.
uint64_t MatchRequest(STEventInfo *pstInfo)
{
    LOG_TRACE_AS("WebPageMsgMatch", pstInfo->ucThreadID,
                 "****Match webpage is begin*********************************.");
    uint64_t ullPageID = 0;
    std::apply([&](const auto &...stRule) { (void)(RunRule(stRule, pstInfo, &ullPageID) || ...); }, kMatchRules);
    return ullPageID;
}

uint64_t FallBack(STEventInfo *pstInfo, uint8_t bIsAllRuleMatchFail)
{
    return LogOff() ? FallBackAs<false>(pstInfo, bIsAllRuleMatchFail) : FallBackAs<true>(pstInfo, bIsAllRuleMatchFail);
}

uint64_t HandleRequest(STEventInfo *pstInfo, const STWebPageEvent *pstEvent)
{
    const char *const pcFunc = "WebPageEventReqProcess";
    const uint32_t uiTid = pstInfo->ucThreadID;
    size_t ulHostText = 0;
    if (orvane::ReadRequestEvent(pstEvent, pstInfo, &ulHostText) != 0) {
        LOG_ERROR_AS(pcFunc, uiTid, "GetReqEventInfo err.");
        return 0;
    }

    if (IsBlackRequest(pstInfo, ulHostText)) {
        MarkFlowBlack(pstInfo, 1);
        LOG_TRACE_AS(pcFunc, uiTid, "Req event host/url is black.");
        return PAGE_ID_BLACK;
    }
    LOG_TRACE_AS(pcFunc, uiTid, "current Req event host is not black");
    MarkFlowBlack(pstInfo, 0);

    // UCID requests are placed by time among UCID pages only.
    if (IsUrlContainsUcid(pstInfo->acUri, pstInfo->usUriLen, URI_MAX_LEN) != 0) {
        uint64_t ullPageID = WebPageUcidMsgMatch(pstInfo);
        LOG_TRACE_AS(pcFunc, uiTid, "ucid  WebPageUcidMsgMatch, PageID=%llu.", (unsigned long long)ullPageID);
        if (ullPageID == 0) {
            ullPageID = InsertUcidPageNode(pstInfo, PAGE_TYPE_ASSOCIATE);
            LOG_TRACE_AS(pcFunc, uiTid, "WebPageucidMsgMatch, fail ! create page PageID=%llu.",
                         (unsigned long long)ullPageID);
        }
        if (pstInfo->pstFlowInfo != nullptr) {
            pstInfo->pstFlowInfo->ucIsUcid = 1;
        }
        LOG_TRACE_AS(pcFunc, uiTid, "trans is ucid!");
        return ullPageID;
    }

    uint64_t ullPageID = MatchRequest(pstInfo);
    LOG_TRACE_AS(pcFunc, uiTid, "not ucid WebPageMsgMatch, PageID=%llu.", (unsigned long long)ullPageID);
    if (ullPageID != 0) {
        return ullPageID;
    }
    ullPageID = FallBack(pstInfo, 1);
    LOG_TRACE_AS(pcFunc, uiTid, "ProcessNoMsgOrMatchFail true, PageID=%llu.", (unsigned long long)ullPageID);
    if (ullPageID != 0) {
        return ullPageID;
    }
    ullPageID = FallBack(pstInfo, 0);
    LOG_ERROR_AS(pcFunc, uiTid, "ProcessNoMsgOrMatchFail false, PageID=%llu.", (unsigned long long)ullPageID);
    return ullPageID;
}

}  // namespace orvane

extern "C" {

uint64_t WebPageEventReqProcess(STEventInfo *pstInfo, const STWebPageEvent *pstEvent)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, pstEvent != nullptr, LOG_TID_NONE, "para err.", "ucThreadID err.")) {
        return 0;
    }
    return orvane::HandleRequest(pstInfo, pstEvent);
}

uint64_t WebPageMsgMatch(STEventInfo *pstInfo)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, LOG_TID_NONE, "para err.", "ucThreadID err.")) {
        return 0;
    }
    return orvane::MatchRequest(pstInfo);
}

uint64_t ProcessNoMsgOrMatchFail(STEventInfo *pstInfo, uint8_t bIsAllRuleMatchFail)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, LOG_TID_ANY, "Para err.", "ucThreadID err.")) {
        return 0;
    }
    return orvane::FallBack(pstInfo, bIsAllRuleMatchFail);
}

uint64_t WebPageEventRspProcess(STEventInfo *pstInfo, const STWebPageEvent *pstEvent)
{
    if (pstInfo == nullptr || pstEvent == nullptr) {
        return 0;
    }
    (void)GetRspEventInfo(pstEvent, pstInfo);
    if (pstInfo->pstFlowInfo == nullptr) {
        return 0;
    }
    if (pstInfo->pstFlowInfo->ucIsUcid == 1) {
        return UcidGetPageNodeByFlowInfo(pstInfo);
    }
    return ProcessNoMsgOrMatchFail(pstInfo, 0);
}

}  // extern "C"
