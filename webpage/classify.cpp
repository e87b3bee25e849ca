// Request classification against the page configuration (web content types,
// flash content, black-listed hosts, the input keyword) and the heartbeat
// requests of the long-poll host, which all go to one single page per flow.
#include <cstddef>
#include <cstring>

#include "webpage_util.hpp"

namespace {

using orvane::BoundedLen;
using orvane::EqualNoCase;
using orvane::HoldsKeyword;
using orvane::LowerAscii;

// Flash keywords 0 and 1 are looked for anywhere in the content type; the
// last one is a file suffix, tested at the end of the URL and referer.
constexpr size_t kFlashContentKeywordNum = 2;
constexpr size_t kFlashSuffixKeyword = 2;
static_assert(kFlashSuffixKeyword < PAGE_FLASH_KEYWORD_NUM, "suffix keyword is configured");

bool EndsWithNoCase(const char *pcText, uint16_t usLen, uint16_t usMax, const char *pcSuffix, size_t suffixLen)
{
    const size_t textLen = usLen < usMax ? usLen : usMax;
    return textLen >= suffixLen && EqualNoCase(pcText + (textLen - suffixLen), pcSuffix, suffixLen);
}

}  // namespace

extern "C" {

uint8_t IsWebType(const char *pcContentType, uint16_t usLen, uint16_t usMax, uint16_t usCauseCode)
{
    // A redirect's own body says nothing about the page it leads to.
    if (IsRedirect(usCauseCode) != 0) {
        return 1;
    }
    if (pcContentType == nullptr) {
        return 0;
    }
    const size_t textLen = usLen < usMax ? usLen : usMax;
    if (textLen == 0) {
        return 0;
    }
    // Prefix either way: parameters after the type and truncated headers both
    // match. The type is measured while it is compared: the shorter of the
    // two decides how many bytes must agree, and an empty type matches none.
    const size_t n = textLen < PAGE_CONTENT_TYPE_LEN ? textLen : PAGE_CONTENT_TYPE_LEN;
    for (const char *pcType : g_stPageConfig.aacContentType) {
        if (pcType[0] == '\0') {
            continue;
        }
        size_t i = 0;
        while (i < n && pcType[i] != '\0' && LowerAscii(pcContentType[i]) == LowerAscii(pcType[i])) {
            ++i;
        }
        if (i == n || pcType[i] == '\0') {
            return 1;
        }
    }
    return 0;
}

uint8_t IsBlackList(char *pcURL, uint16_t usURLLen, uint16_t usURLMax, char *pcReferer, uint16_t usRefererLen,
                    uint16_t usRefererMax, char *pcContentType, uint16_t usContentTypeLen, uint16_t usContentTypeMax)
{
    if (pcURL == nullptr || pcReferer == nullptr || pcContentType == nullptr) {
        return 0;
    }
    if (usURLLen == 0 && usRefererLen == 0 && usContentTypeLen == 0) {
        return 0;
    }
    pcContentType[usContentTypeMax] = '\0';
    const size_t contentTypeLen = std::strlen(pcContentType);
    for (size_t i = 0; i < kFlashContentKeywordNum; ++i) {
        if (HoldsKeyword(pcContentType, usContentTypeLen, contentTypeLen, g_stPageConfig.aacFlashKeyword[i],
                         PAGE_FLASH_KEYWORD_LEN)) {
            return 1;
        }
    }
    const char *pcSuffix = g_stPageConfig.aacFlashKeyword[kFlashSuffixKeyword];
    const size_t suffixLen = BoundedLen(pcSuffix, PAGE_FLASH_KEYWORD_LEN);
    if (suffixLen == 0) {
        return 0;
    }
    if (EndsWithNoCase(pcURL, usURLLen, usURLMax, pcSuffix, suffixLen) ||
        EndsWithNoCase(pcReferer, usRefererLen, usRefererMax, pcSuffix, suffixLen)) {
        return 1;
    }
    return 0;
}

uint8_t IsHostBlackList(char *pcHost, uint16_t usLen, uint16_t usMax)
{
    if (pcHost == nullptr || usLen == 0) {
        return 0;
    }
    pcHost[usMax] = '\0';
    const size_t hostLen = std::strlen(pcHost);
    for (const char *pcKeyword : g_stPageConfig.aacHostBlackKeyword) {
        if (HoldsKeyword(pcHost, usLen, hostLen, pcKeyword, PAGE_HOST_BLACK_LEN)) {
            return 1;
        }
    }
    return 0;
}

uint8_t IsUrlBlackList(char *pcURL, uint16_t usLen, uint16_t usMax)
{
    if (pcURL == nullptr || usLen == 0) {
        return 0;
    }
    pcURL[usMax] = '\0';
    return HoldsKeyword(pcURL, usLen, std::strlen(pcURL), g_stPageConfig.acUcInputKeyword, PAGE_INPUT_KEYWORD_LEN)
               ? 1
               : 0;
}

uint32_t IsHeartBreak(uint32_t uiHostHashKey)
{
    return uiHostHashKey == g_stPageConfig.uiHeartBeatHostKey ? 1u : 0u;
}

uint64_t ProcessHeartBeat(STEventInfo *pstInfo)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, LOG_TID_ANY, "para err.", "ucThreadID err.")) {
        return 0;
    }
    const uint8_t ucThreadID = pstInfo->ucThreadID;
    LOG_TRACE(ucThreadID, "ProcessHeartBeat, HostHashKey is %u, config HashKey is %u", pstInfo->uiHostHashKey,
              g_stPageConfig.uiHeartBeatHostKey);
    if (IsHeartBreak(pstInfo->uiHostHashKey) == 0) {
        return 0;
    }

    // Heartbeats never join a web page: one single page per flow collects them.
    STPageNode *pstPage = GetSinglePageNodeByFlowInfo(pstInfo, PAGE_LIST_ORDINARY);
    if (pstPage != nullptr) {
        (void)UpdatePageNode(pstPage, pstInfo, PAGE_TYPE_SINGLE);
        LOG_TRACE(ucThreadID, "In HeartBeat, get PageID by flow, uiPageID is %llu",
                  static_cast<unsigned long long>(pstPage->uiPageID));
        return pstPage->uiPageID;
    }
    const uint64_t ullPageID = InsertPageNode(pstInfo, PAGE_TYPE_SINGLE, 0);
    LOG_TRACE(ucThreadID, "In HeartBeat, insert page, uiPageID is %llu", static_cast<unsigned long long>(ullPageID));
    return ullPageID;
}

}  // extern "C"
