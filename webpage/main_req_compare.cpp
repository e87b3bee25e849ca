// Main-request rules: an event joins an open page when its URL is the page's
// redirect location, its referer is the page's URL, or its host is the
// page's host, and it falls inside that rule's time window. Also the two
// text equivalences the sub-request rules reuse.
#include <cstdio>
#include <cstring>

#include "compare_screen.hpp"
#include "time_window.hpp"
#include "webpage_util.hpp"

namespace {

using orvane::ContextOf;
using orvane::FillCompareFields;
using orvane::FixedWindow;
using orvane::IsSuccessfulWebPage;
using orvane::LocationProbe;
using orvane::PageOf;
using orvane::Smaller;

// The port form of a URL is spelled into a buffer of this size (one more
// than the longest location it is compared with).
constexpr uint16_t kPortFormBufLen = LOCATION_MAX_LEN + 1;
constexpr uint32_t kLevelMainReq = 0;

// Byte comparison over a length the records carry; like the texts' other
// comparisons it ends at a NUL, so an embedded NUL never leads past it. The
// first byte is tested inline: most texts differ there.
bool SameText(const char *a, const char *b, size_t n)
{
    return n == 0 || (a[0] == b[0] && (a[0] == '\0' || std::strncmp(a + 1, b + 1, n - 1) == 0));
}

bool EndsWithSlash(const char *pcText, size_t len) { return len != 0 && pcText[len - 1] == '/'; }

// |a - b| <= 1 without unsigned wrap.
bool WithinOne(size_t a, size_t b) { return a + 1 >= b && b + 1 >= a; }

// The text from its first '/' to its end; empty when there is none. Like
// every comparison here, the search and the length stop at the first NUL, so
// bytes behind an embedded NUL never count.
struct SlashTail {
    const char *pcText;
    size_t len;
};
SlashTail FromFirstSlash(const char *pcText, size_t len)
{
    const size_t end = strnlen(pcText, len);
    const void *pHit = std::memchr(pcText, '/', end);
    if (pHit == nullptr) {
        return {pcText + end, 0};
    }
    const size_t slash = static_cast<size_t>(static_cast<const char *>(pHit) - pcText);
    return {pcText + slash, end - slash};
}

// strncat bounded by the room actually left, so a caller's non-empty
// destination cannot be overrun; for the empty buffer the callers pass the
// room always suffices and this is a plain bounded append.
void AppendBounded(char *pcDst, uint16_t usMax, const char *pcSrc, size_t n)
{
    const size_t used = strnlen(pcDst, usMax);
    if (used >= usMax) {
        return;
    }
    ORV_STRNCAT(pcDst, usMax, pcSrc, Smaller(n, usMax - 1u - used));
}

// Paths whose lengths differ by at most one name the same resource when the
// first is empty, when a trailing slash on either makes the difference, or
// when the shorter one starts the other.
bool SamePathNearLength(const char *pcPath, size_t len, const char *pcOther, size_t otherLen)
{
    if (!WithinOne(len, otherLen)) {
        return false;
    }
    if (len == 0) {
        return true;
    }
    if (len != otherLen && (EndsWithSlash(pcPath, len) || EndsWithSlash(pcOther, otherLen))) {
        return true;
    }
    return SameText(pcPath, pcOther, Smaller(otherLen, len));
}

// Compares the port form of the path (":port/path") with the text that
// follows the host in pcOther.
bool SameAsPortForm(const char *pcPath, uint16_t usPathLen, uint16_t usPort, const char *pcOther,
                    size_t otherLen)
{
    char acSpelled[kPortFormBufLen];
    std::memset(acSpelled, 0, sizeof(acSpelled));
    uint16_t usSpelledLen = 0;
    StrcatUriWithPort(acSpelled, &usSpelledLen, kPortFormBufLen, pcPath, usPathLen, usPort);
    return SameText(acSpelled, pcOther, Smaller(otherLen, usSpelledLen));
}

uint32_t CompareTime(const STPageNode *pstPage, const STEventInfo *pstInfo, uint32_t enCompareType)
{
    return CompareMsgTime(pstPage->ullPageFirReq, pstInfo->ullReqBeginTime, pstInfo->ullReqEndTime,
                          pstPage->ullPageLastReq, pstPage->ullPageLastRsp, enCompareType, pstPage->enNetworkType,
                          pstPage->usCauseCode, pstInfo->usCauseCode);
}

// The page's own texts never exceed their arrays; a record that says
// otherwise is not compared, since the equivalences write past the length.
bool PageTextsFit(const STPageNode *pstPage)
{
    return pstPage->usHostLen <= HOST_MAX_LEN && pstPage->usURLLen <= URL_MAX_LEN &&
           pstPage->usLocationLen <= LOCATION_MAX_LEN;
}

// Update of a page that a main-request rule chose: the event is tied
// directly to the page's main request.
uint64_t TakeEvent(STPageNode *pstPage, STEventInfo *pstInfo)
{
    pstInfo->uiMatchLevel = kLevelMainReq;
    return UpdatePageNode(pstPage, pstInfo, PAGE_TYPE_ASSOCIATE) == 0 ? pstPage->uiPageID : 0;
}

// The location or referer rule's page found: a redirect hop moves the
// page's location on, then the page takes the event. Lines are
// CompareMainReqString's.
uint64_t TakeMainMatch(STPageNode *pstPage, STEventInfo *pstInfo, uint32_t enCompareType)
{
    if (enCompareType == COMPARE_URL_WITH_MAIN_REQ_LOCATION) {
        SpecialProcUrlWithMainReqLocation(pstPage, pstInfo);
    }
    const uint64_t ullPageID = TakeEvent(pstPage, pstInfo);
    if (ullPageID == 0) {
        LOG_ERROR_AS("CompareMainReqString", pstInfo->ucThreadID, "Update page error.");
    }
    return ullPageID;
}

// Necessary conditions of the main text rules (see LocationProbe): when
// one fails, CompareMainReqStrWithDiffType finds the page different. The
// event's side is read once per walk.
__attribute__((always_inline)) inline bool LocationMayMatch(const STPageNode *pstPage, uint32_t uiURLKey,
                                                            const LocationProbe &stProbe)
{
    return pstPage->uiLocationKey == uiURLKey || stProbe.MayBe(pstPage->acLocation, pstPage->usLocationLen);
}

// Whether the event's referer may equal a page's URL, from the key and
// first bytes: false only where RefererIsUrl is false. The event's side is
// read once per walk.
class RefererProbe {
public:
    explicit RefererProbe(const STCompareInfo *pstCompare)
        : m_uiKey(pstCompare->uiRefererKey),
          m_r(pstCompare->usRefererLen),
          m_bUsable(m_r != 0 && m_r <= pstCompare->usRefererMaxLen && pstCompare->pcReferer != nullptr),
          m_cFirst(m_bUsable ? pstCompare->pcReferer[0] : '\0')
    {
    }

    __attribute__((always_inline)) bool MayMatch(const STPageNode *pstPage) const
    {
        if (pstPage->uiURLKey == m_uiKey) {
            return true;
        }
        const size_t g = pstPage->usHostLen;
        if (pstPage->usURLLen == 0 || !m_bUsable) {
            return false;
        }
        return g == 0 || (m_r >= g && m_cFirst == pstPage->acHost[0]);
    }

private:
    uint32_t m_uiKey;
    size_t m_r;
    bool m_bUsable;
    char m_cFirst;
};

// The page walk of CompareMainReqString, one per compare type so that the
// rule's window constants fold into the test.
template <uint32_t CompareType>
STTranNode *WalkMainPages(STTranManage *pstList, STEventInfo *pstInfo, STCompareInfo *pstCompare, const char *pcFunc,
                          uint64_t *pullHostPageID)
{
    const uint8_t ucTid = pstInfo->ucThreadID;
    // Only the location and URL rules test time inside this walk.
    constexpr bool bTimedInWalk =
        CompareType == COMPARE_URL_WITH_MAIN_REQ_LOCATION || CompareType == COMPARE_REFERER_WITH_MAIN_REQ_URL;
    const orvane::FixedWindow<bTimedInWalk ? CompareType : uint32_t{COMPARE_NONE}> stWindow(
        pstInfo->ullReqBeginTime, pstInfo->ullReqEndTime, pstInfo->usCauseCode);
    const orvane::LocationProbe stLocation(pstCompare);
    const RefererProbe stReferer(pstCompare);
    const uint32_t uiURLKey = pstCompare->uiURLKey;
    return orvane::WalkList(pstList, [&](STTranNode *pstNode) {
        STPageNode *pstPage = PageOf(pstNode);
        LOG_TRACE_AS(pcFunc, ucTid, "PageType is %u, PageFlag is %u.", pstPage->uiPageType, pstPage->usPageFlag);
        if (!IsSuccessfulWebPage(pstPage)) {
            return false;
        }
        if (CompareType == COMPARE_HOST_WITH_MAIN_REQ_HOST) {
            // The host rule updates the page itself and, on a failed update,
            // lets older pages try. A page of another host it leaves without
            // a word.
            if (pstPage->uiHostKey != pstCompare->uiHostKey) {
                return false;
            }
            *pullHostPageID = SpecialProcHostWithMainReqHost(pstPage, pstInfo, pstCompare, CompareType);
            return *pullHostPageID != 0;
        }
        if (!bTimedInWalk) {
            return false;
        }
        // A page without the saved key cannot match: its window need not be
        // tested (neither test logs or writes anything).
        const uint32_t uiSavedKey =
            CompareType == COMPARE_URL_WITH_MAIN_REQ_LOCATION ? pstPage->uiLocationKey : pstPage->uiURLKey;
        if (uiSavedKey == 0) {
            return false;
        }
        if (CompareType == COMPARE_URL_WITH_MAIN_REQ_LOCATION ? !LocationMayMatch(pstPage, uiURLKey, stLocation)
                                                              : !stReferer.MayMatch(pstPage)) {
            return false;
        }
        return stWindow.FitsPage(*pstPage) && CompareMainReqStrWithDiffType(pstPage, pstCompare, CompareType) == 0;
    });
}

// The event's side of a probe, read from the compare record's fields.
template <typename Probe>
Probe ProbeFor(const STEventInfo *pstInfo)
{
    STCompareInfo stCompare;
    FillCompareFields(pstInfo, &stCompare);
    return Probe(&stCompare);
}

// A main compare's candidate pages: those past its walk's tests short of the
// text equivalence (saved key first: most pages fail there, and none of
// these tests writes anything, so their order is free).
template <uint32_t CompareType>
class MainPageScreen;

template <>
class MainPageScreen<COMPARE_URL_WITH_MAIN_REQ_LOCATION> {
public:
    explicit MainPageScreen(const STEventInfo *pstInfo)
        : m_stWindow(pstInfo->ullReqBeginTime, pstInfo->ullReqEndTime, pstInfo->usCauseCode),
          m_stLocation(ProbeFor<LocationProbe>(pstInfo)),
          m_uiURLKey(pstInfo->uiURLHashKey)
    {
    }

    __attribute__((always_inline)) bool Takes(const STPageNode *pstPage) const
    {
        return pstPage->uiLocationKey != 0 && LocationMayMatch(pstPage, m_uiURLKey, m_stLocation) &&
               IsSuccessfulWebPage(pstPage) && m_stWindow.FitsPage(*pstPage);
    }

private:
    FixedWindow<COMPARE_URL_WITH_MAIN_REQ_LOCATION> m_stWindow;
    LocationProbe m_stLocation;
    uint32_t m_uiURLKey;
};

template <>
class MainPageScreen<COMPARE_REFERER_WITH_MAIN_REQ_URL> {
public:
    explicit MainPageScreen(const STEventInfo *pstInfo)
        : m_stWindow(pstInfo->ullReqBeginTime, pstInfo->ullReqEndTime, pstInfo->usCauseCode),
          m_stReferer(ProbeFor<RefererProbe>(pstInfo))
    {
    }

    __attribute__((always_inline)) bool Takes(const STPageNode *pstPage) const
    {
        return pstPage->uiURLKey != 0 && m_stReferer.MayMatch(pstPage) && IsSuccessfulWebPage(pstPage) &&
               m_stWindow.FitsPage(*pstPage);
    }

private:
    FixedWindow<COMPARE_REFERER_WITH_MAIN_REQ_URL> m_stWindow;
    RefererProbe m_stReferer;
};

template <>
class MainPageScreen<COMPARE_HOST_WITH_MAIN_REQ_HOST> {
public:
    explicit MainPageScreen(const STEventInfo *pstInfo) : m_uiHostKey(pstInfo->uiHostHashKey) {}

    __attribute__((always_inline)) bool Takes(const STPageNode *pstPage) const
    {
        return pstPage->uiHostKey == m_uiHostKey && IsSuccessfulWebPage(pstPage) && PageTextsFit(pstPage);
    }

private:
    uint32_t m_uiHostKey;
};

// The pages a main compare could take the event from, by the walk's own
// tests short of the text equivalence: none, and the walk finds nothing.
template <uint32_t CompareType>
STTranNode *FirstMainCandidate(const STWebPage *pstCtx, const STEventInfo *pstInfo)
{
    const MainPageScreen<CompareType> stScreen(pstInfo);
    return orvane::WalkList(&pstCtx->stPageNodeList,
                            [&](STTranNode *pstNode) { return stScreen.Takes(PageOf(pstNode)); });
}

enum class MainVerdict : uint8_t {
    kWalk,     // compare as written
    kNothing,  // the walk finds nothing
    kSure,     // the walk stops on the candidate
};

// The verdict from the rule's first candidate page (null: none). A first
// candidate whose saved key is the event's (the location or referer rule,
// texts that fit their arrays) is the page the walk stops on, as every page
// before it fails a test the walk makes first. The host rule's page may
// still refuse by time and let older ones try.
MainVerdict SettleMain(const STEventInfo *pstInfo, uint32_t enCompareType, STTranNode *pstFirst,
                       STPageNode **ppstSure)
{
    if (pstFirst == nullptr) {
        return MainVerdict::kNothing;
    }
    if (enCompareType == COMPARE_HOST_WITH_MAIN_REQ_HOST) {
        return MainVerdict::kWalk;
    }
    STPageNode *pstPage = PageOf(pstFirst);
    const bool bLocation = enCompareType == COMPARE_URL_WITH_MAIN_REQ_LOCATION;
    const uint32_t uiSavedKey = bLocation ? pstPage->uiLocationKey : pstPage->uiURLKey;
    const uint32_t uiEventKey = bLocation ? pstInfo->uiURLHashKey : pstInfo->uiRefererHashKey;
    if (uiSavedKey == 0 || uiSavedKey != uiEventKey || !PageTextsFit(pstPage)) {
        return MainVerdict::kWalk;
    }
    *ppstSure = pstPage;
    return MainVerdict::kSure;
}

// With TRACE off and sound arguments a main compare logs nothing until it
// has found no page or found one, so its first candidate may settle it
// (SettleMain) without a compare record.
MainVerdict ScreenMainCompare(const STEventInfo *pstInfo, uint32_t enCompareType, STPageNode **ppstSure)
{
    if (g_enSDKLogLevel <= LOG_LEVEL_TRACE || pstInfo == nullptr || !orvane::IsValidThread(pstInfo->ucThreadID)) {
        return MainVerdict::kWalk;
    }
    const STWebPage *pstCtx = ContextOf(pstInfo->ucThreadID);
    if (pstCtx == nullptr) {
        return MainVerdict::kWalk;
    }
    if (pstInfo->usHostLen == 0 && pstInfo->usURLLen == 0 && pstInfo->usRefererUrlLen == 0) {
        return MainVerdict::kNothing;
    }
    switch (enCompareType) {
        case COMPARE_URL_WITH_MAIN_REQ_LOCATION:
            return SettleMain(pstInfo, enCompareType,
                              FirstMainCandidate<COMPARE_URL_WITH_MAIN_REQ_LOCATION>(pstCtx, pstInfo), ppstSure);
        case COMPARE_REFERER_WITH_MAIN_REQ_URL:
            return SettleMain(pstInfo, enCompareType,
                              FirstMainCandidate<COMPARE_REFERER_WITH_MAIN_REQ_URL>(pstCtx, pstInfo), ppstSure);
        case COMPARE_HOST_WITH_MAIN_REQ_HOST:
            return SettleMain(pstInfo, enCompareType,
                              FirstMainCandidate<COMPARE_HOST_WITH_MAIN_REQ_HOST>(pstCtx, pstInfo), ppstSure);
        default:
            return MainVerdict::kWalk;
    }
}

// The compare as the verdict says: nothing, the sure page, or as written.
uint64_t CompareMainAs(STEventInfo *pstInfo, uint32_t enCompareType, MainVerdict enVerdict, STPageNode *pstSure)
{
    switch (enVerdict) {
        case MainVerdict::kNothing:
            return 0;
        case MainVerdict::kSure:
            return TakeMainMatch(pstSure, pstInfo, enCompareType);
        case MainVerdict::kWalk:
            break;
    }
    STCompareInfo stCompare;
    std::memset(&stCompare, 0, sizeof(stCompare));
    if (GetCompareInfo(pstInfo, enCompareType, &stCompare) == 1) {
        return 0;
    }
    return CompareMainReqString(pstInfo, &stCompare, enCompareType);
}

}  // namespace

namespace orvane {

uint32_t FillCompareInfo(STEventInfo *pstInfo, STCompareInfo *pstCompare, STTranManage *pstList, const char *pcFunc)
{
    pstCompare->pstCompareList = pstList;
    FillCompareFields(pstInfo, pstCompare);
    const uint8_t ucTid = pstInfo->ucThreadID;
    LOG_TRACE_AS(pcFunc, ucTid, "CompareInfo,HostLen is %u,HostMaxLen is %u,HostKey is %u,Host is %s.",
                 pstCompare->usHostLen, pstCompare->usHostMaxLen, pstCompare->uiHostKey, pstCompare->pcHost);
    LOG_TRACE_AS(pcFunc, ucTid, "CompareInfo,URLLen is %u,URLMaxLen is %u,URLKey is %u,URL is %s.",
                 pstCompare->usURLLen, pstCompare->usURLMaxLen, pstCompare->uiURLKey, pstCompare->pcURL);
    LOG_TRACE_AS(pcFunc, ucTid, "CompareInfo,RefererLen is %u,RefererMaxLen is %u,RefererKey is %u,Referer is %s.",
                 pstCompare->usRefererLen, pstCompare->usRefererMaxLen, pstCompare->uiRefererKey,
                 pstCompare->pcReferer);
    return (pstCompare->usHostLen == 0 && pstCompare->usURLLen == 0 && pstCompare->usRefererLen == 0) ? 1u : 0u;
}

void FillCompareEndpoints(const STEventInfo *pstInfo, STCompareInfo *pstCompare)
{
    pstCompare->usClientPort = pstInfo->usClientPort;
    pstCompare->usServerPort = pstInfo->usServerPort;
    pstCompare->uiClientIp = pstInfo->uiClientIp;
    pstCompare->uiServerIp = pstInfo->uiServerIp;
}

}  // namespace orvane

extern "C" {

uint32_t GetCompareInfo(STEventInfo *pstInfo, uint32_t enCompareType, STCompareInfo *pstCompare)
{
    if (pstInfo == nullptr || pstCompare == nullptr) {
        LOG_ERROR(LOG_TID_ANY, "Para err.");
        return 1;
    }
    orvane::FillCompareEndpoints(pstInfo, pstCompare);
    if (!orvane::ThreadOk(__func__, pstInfo->ucThreadID, "ThreadID err.")) {
        return 1;
    }
    const uint8_t ucTid = pstInfo->ucThreadID;
    LOG_TRACE(ucTid, "GetCompareInfo, enCompareType is %u.", enCompareType);
    STWebPage *pstCtx = ContextOf(ucTid);
    if (enCompareType > COMPARE_HOST_WITH_MAIN_REQ_HOST || pstCtx == nullptr) {
        pstCompare->pstCompareList = nullptr;
        return 1;
    }
    return orvane::FillCompareInfo(pstInfo, pstCompare, &pstCtx->stPageNodeList, __func__);
}

void StrcatUriWithPort(char *pcDst, uint16_t *pusLen, uint16_t usMax, const char *pcPath, uint16_t usPathLen,
                       uint16_t usPort)
{
    if (pcDst == nullptr) {
        return;
    }
    char acPort[10];
    const int iPrinted = std::snprintf(acPort, sizeof(acPort), "%d", static_cast<int>(usPort));
    const uint32_t k = iPrinted > 0 ? static_cast<uint32_t>(iPrinted) : 0u;
    uint32_t uiCount = 0;
    if (usMax >= 2) {
        AppendBounded(pcDst, usMax, ":", 1);
        uiCount = 1;
    }
    if (usMax >= k + 2) {
        AppendBounded(pcDst, usMax, acPort, k);
        uiCount = k + 1;
    }
    if (pcPath != nullptr && usPathLen != 0) {
        uint32_t uiBase = k + 1;
        if (pcPath[0] != '/') {
            if (usMax >= k + 3) {
                AppendBounded(pcDst, usMax, "/", 1);
                uiCount = k + 2;
            }
            uiBase = k + 2;
        }
        if (usMax >= uiBase + usPathLen + 1) {
            AppendBounded(pcDst, usMax, pcPath, usPathLen);
            uiCount = uiBase + usPathLen;
        }
    }
    if (pusLen != nullptr) {
        *pusLen = static_cast<uint16_t>(uiCount);
    }
}

uint8_t IsUrlSameAsLocation(STCompareInfo *pstCompare, char *pcLocation, uint16_t usLocationLen)
{
    if (pstCompare == nullptr || usLocationLen == 0 || pstCompare->usURLLen == 0 ||
        pstCompare->usHostLen > pstCompare->usHostMaxLen || pcLocation == nullptr ||
        pstCompare->usURLLen > pstCompare->usURLMaxLen || pstCompare->pcHost == nullptr ||
        pstCompare->pcURL == nullptr) {
        return 0;
    }
    const size_t l = usLocationLen;
    pcLocation[l] = '\0';
    const size_t h = pstCompare->usHostLen;
    const size_t u = pstCompare->usURLLen;
    if (u < h || pstCompare->usURLMaxLen < h) {
        return 0;
    }
    const char *pcHost = pstCompare->pcHost;
    const char *pcPath = pstCompare->pcURL + h;
    const size_t p = u - h;

    if (p == 0) {
        // The URL is the bare host: the location may add one trailing slash.
        if (l != h && l != h + 1) {
            return 0;
        }
        if (!SameText(pcLocation, pcHost, h)) {
            return 0;
        }
        return (l == h || EndsWithSlash(pcLocation, l) || EndsWithSlash(pcHost, h)) ? 1 : 0;
    }

    // A relative location names a path on the same host.
    if (p >= l && SameText(pcPath, pcLocation, l)) {
        return 1;
    }
    if (h != 0 && (h > l || !SameText(pcLocation, pcHost, h))) {
        return 0;
    }
    const SlashTail stLocPath = FromFirstSlash(pcLocation, l);
    const char *pcLocPath = stLocPath.pcText;
    const size_t q = stLocPath.len;
    if (SamePathNearLength(pcLocPath, q, pcPath, p)) {
        return 1;
    }
    // Locations are cut at 128 bytes, so a long URL only has to begin with it.
    if (q != 0 && u >= LOCATION_MAX_LEN && SameText(pcLocPath, pcPath, Smaller(p, q))) {
        return 1;
    }
    if (h > l || pcLocation[h] != ':') {
        return 0;
    }
    return SameAsPortForm(pcPath, static_cast<uint16_t>(p), pstCompare->usServerPort, pcLocation + h, l - h) ? 1
                                                                                                              : 0;
}

uint8_t IsRefererSameAsUrl(STCompareInfo *pstCompare, char *pcURL, uint16_t usURLLen, const char *pcHost,
                           uint16_t usHostLen)
{
    if (pstCompare == nullptr || usURLLen == 0 || pstCompare->usRefererLen == 0 || pcURL == nullptr ||
        pstCompare->usRefererLen > pstCompare->usRefererMaxLen || pstCompare->pcReferer == nullptr) {
        return 0;
    }
    char *pcReferer = pstCompare->pcReferer;
    const size_t r = pstCompare->usRefererLen;
    const size_t v = usURLLen;
    const size_t g = usHostLen;
    pcURL[v] = '\0';
    pcReferer[r] = '\0';
    if (g != 0 && (pcHost == nullptr || r < g || !SameText(pcReferer, pcHost, g))) {
        return 0;
    }
    const SlashTail stRefPath = FromFirstSlash(pcReferer, r);
    const char *pcRefPath = stRefPath.pcText;
    const size_t q = stRefPath.len;
    if (v < g) {
        return 0;
    }
    const char *pcPath = pcURL + g;
    const size_t p = v - g;
    if (SamePathNearLength(pcRefPath, q, pcPath, p)) {
        return 1;
    }
    if (g > pstCompare->usRefererMaxLen || pcReferer[g] != ':') {
        return 0;
    }
    return SameAsPortForm(pcPath, static_cast<uint16_t>(p), pstCompare->usServerPort, pcReferer + g, r - g) ? 1 : 0;
}

uint32_t CompareMainReqStrWithDiffType(STPageNode *pstPage, STCompareInfo *pstCompare, uint32_t enCompareType)
{
    if (pstPage == nullptr || pstCompare == nullptr || !PageTextsFit(pstPage)) {
        return COMPARE_OUTSIDE;
    }
    bool bSame = false;
    switch (enCompareType) {
        case COMPARE_URL_WITH_MAIN_REQ_LOCATION:
            bSame = orvane::UrlIsLocation(pstCompare, pstPage->uiLocationKey, pstPage->acLocation,
                                          pstPage->usLocationLen);
            break;
        case COMPARE_REFERER_WITH_MAIN_REQ_URL:
            bSame = orvane::RefererIsUrl(pstCompare, pstPage->uiURLKey, pstPage->acURL, pstPage->usURLLen,
                                         pstPage->acHost, pstPage->usHostLen);
            break;
        case COMPARE_HOST_WITH_MAIN_REQ_HOST:
            bSame = pstPage->uiHostKey == pstCompare->uiHostKey;
            break;
        default:
            break;
    }
    return bSame ? 0u : COMPARE_OUTSIDE;
}

uint64_t CompareMainReqString(STEventInfo *pstInfo, STCompareInfo *pstCompare, uint32_t enCompareType)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, pstCompare != nullptr, LOG_TID_ANY, "Para err.", "ucThreadID err.")) {
        return 0;
    }
    const uint8_t ucTid = pstInfo->ucThreadID;
    STTranManage *pstList = pstCompare->pstCompareList;
    if (pstList == nullptr || pstList->uiNodeNum == 0) {
        LOG_TRACE(ucTid, "Page is NULL.");
        return 0;
    }
    LOG_TRACE(ucTid, "PageNum is %u, CompareType is %u.", pstList->uiNodeNum, enCompareType);

    uint64_t ullHostPageID = 0;
    STTranNode *pstHit = nullptr;
    switch (enCompareType) {
        case COMPARE_URL_WITH_MAIN_REQ_LOCATION:
            pstHit = WalkMainPages<COMPARE_URL_WITH_MAIN_REQ_LOCATION>(pstList, pstInfo, pstCompare, __func__,
                                                                      &ullHostPageID);
            break;
        case COMPARE_REFERER_WITH_MAIN_REQ_URL:
            pstHit = WalkMainPages<COMPARE_REFERER_WITH_MAIN_REQ_URL>(pstList, pstInfo, pstCompare, __func__,
                                                                     &ullHostPageID);
            break;
        case COMPARE_HOST_WITH_MAIN_REQ_HOST:
            pstHit = WalkMainPages<COMPARE_HOST_WITH_MAIN_REQ_HOST>(pstList, pstInfo, pstCompare, __func__,
                                                                   &ullHostPageID);
            break;
        default:
            pstHit = WalkMainPages<COMPARE_NONE>(pstList, pstInfo, pstCompare, __func__, &ullHostPageID);
            break;
    }
    if (pstHit == nullptr) {
        return 0;
    }
    if (enCompareType == COMPARE_HOST_WITH_MAIN_REQ_HOST) {
        LOG_TRACE(ucTid, "Match page host by host, pageid is %llu.", static_cast<unsigned long long>(ullHostPageID));
        return ullHostPageID;
    }
    STPageNode *pstPage = PageOf(pstHit);
    LOG_TRACE(ucTid, "Match page OK, pageid is %llu.", static_cast<unsigned long long>(pstPage->uiPageID));
    return TakeMainMatch(pstPage, pstInfo, enCompareType);
}

uint64_t SpecialProcHostWithMainReqHost(STPageNode *pstPage, STEventInfo *pstInfo, STCompareInfo *pstCompare,
                                        uint32_t enCompareType)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, pstPage != nullptr && pstCompare != nullptr,
                              LOG_TID_ANY, "Para err.", "ucThreadID err.")) {
        return 0;
    }
    const uint8_t ucTid = pstInfo->ucThreadID;
    if (CompareMainReqStrWithDiffType(pstPage, pstCompare, enCompareType) != 0) {
        return 0;
    }
    LOG_TRACE(ucTid, "L7info match is OK, enCompareType is %u.", enCompareType);
    if (CompareTime(pstPage, pstInfo, enCompareType) == 0) {
        LOG_TRACE(ucTid, "Match time is OK.");
    } else {
        LOG_TRACE(ucTid, "Match time is NOK.");
        // Late on the same host, a web-type request is another page's start;
        // anything else (a resource) gets the shorter referer window.
        if (orvane::IsWebTypeAndNotBlack(pstInfo)) {
            LOG_TRACE(ucTid, "This reqevent is webtype and is not in blacklist.");
            return 0;
        }
        if (CompareTime(pstPage, pstInfo, COMPARE_REFERER_WITH_REFERER) != 0) {
            return 0;
        }
        LOG_TRACE(ucTid, "Match time is OK, enCompareType is %u.", static_cast<uint32_t>(COMPARE_REFERER_WITH_REFERER));
    }
    const uint64_t ullPageID = TakeEvent(pstPage, pstInfo);
    if (ullPageID != 0) {
        LOG_TRACE(ucTid, "Match page is OK, PageID is %llu.", static_cast<unsigned long long>(ullPageID));
    }
    return ullPageID;
}

void SpecialProcUrlWithMainReqLocation(STPageNode *pstPage, STEventInfo *pstInfo)
{
    if (pstPage == nullptr || pstInfo == nullptr) {
        return;
    }
    pstPage->acLocation[0] = '\0';
    pstPage->usLocationLen = 0;
    if (IsRedirect(pstInfo->usCauseCode) == 0) {
        // The hop is followed; its key stays so a repeated request still
        // finds the page through the key alone.
        return;
    }
    // The page keeps only the latest hop of its redirect chain; the event
    // gives its location up so it is not saved a second time as a string.
    const uint16_t usLen = static_cast<uint16_t>(Smaller(pstInfo->usLocationLen, LOCATION_MAX_LEN));
    ORV_MEMCPY(pstPage->acLocation, LOCATION_MAX_LEN, pstInfo->acLocation, usLen);
    pstPage->acLocation[usLen] = '\0';
    pstPage->usLocationLen = usLen;
    pstPage->uiLocationKey = pstInfo->uiLocationHashKey;
    pstInfo->uiLocationHashKey = 0;
    pstInfo->usLocationLen = 0;
    pstInfo->acLocation[0] = '\0';
}

uint64_t CompareMainReqCommon(STEventInfo *pstInfo, uint32_t enCompareType)
{
    STPageNode *pstSure = nullptr;
    const MainVerdict enVerdict = ScreenMainCompare(pstInfo, enCompareType, &pstSure);
    return CompareMainAs(pstInfo, enCompareType, enVerdict, pstSure);
}

}  // extern "C"
