// Normalises one daemon event into the working record: strings cut to their
// capacities and terminated, URL and referer joined from host and path,
// hosts, URLs, referers and locations lower-cased and hashed in one pass.
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "webpage_util.hpp"

namespace {

using orvane::CopyCut;
using orvane::EqualNoCase;
using orvane::Llu;
using orvane::LowerAscii;

constexpr uint32_t kHashMask = 0x7FFFFFFFu;
constexpr uint32_t kHashFactor = 31u;
constexpr uint16_t kRedirectFirst = 300;
constexpr uint16_t kRedirectLast = 399;
constexpr uint16_t kNotModified = 304;

constexpr char kHttpScheme[] = "http://";
constexpr char kHttpsScheme[] = "https://";
constexpr uint16_t kHttpSchemeLen = sizeof(kHttpScheme) - 1;
constexpr uint16_t kHttpsSchemeLen = sizeof(kHttpsScheme) - 1;

constexpr uint64_t kByteOnes = 0x0101010101010101ull;
constexpr uint64_t kByteHighs = 0x8080808080808080ull;
constexpr uint32_t kHashFactor4 = kHashFactor * kHashFactor * kHashFactor * kHashFactor;
constexpr uint32_t kHashFactor8 = kHashFactor4 * kHashFactor4;

// The hash's steps over the bytes of a word in memory order, as a sum:
// b0 * 31^(n-1) + ... + b(n-1), modulo 2^32. Bytes are paired in 16-bit
// lanes (31 * b + b' stays below 2^13), the pairs in 32-bit lanes (below
// 2^23), so no lane carries into the next before the last step.
inline uint32_t HashOfWord4(uint32_t uiWord)
{
    const uint32_t uiPairs = (uiWord & 0x00FF00FFu) * kHashFactor + ((uiWord >> 8) & 0x00FF00FFu);
    return (uiPairs & 0xFFFFu) * (kHashFactor * kHashFactor) + (uiPairs >> 16);
}

inline uint32_t HashOfWord8(uint64_t ullWord)
{
    constexpr uint64_t kLowBytes = 0x00FF00FF00FF00FFull;
    constexpr uint64_t kLowHalves = 0x0000FFFF0000FFFFull;
    const uint64_t ullPairs = (ullWord & kLowBytes) * kHashFactor + ((ullWord >> 8) & kLowBytes);
    const uint64_t ullQuads = (ullPairs & kLowHalves) * (kHashFactor * kHashFactor) + ((ullPairs >> 16) & kLowHalves);
    return static_cast<uint32_t>(ullQuads) * kHashFactor4 + static_cast<uint32_t>(ullQuads >> 32);
}

inline bool HasZeroByte(uint64_t ullWord) { return ((ullWord - kByteOnes) & ~ullWord & kByteHighs) != 0; }

#if defined(__SSE2__)
// Sixteen bytes at once with SSE2 (every x86-64 has it): the same sums,
// bytes paired and the pairs paired by multiply-add on 16-bit lanes, the
// four 32-bit quads weighted by 31^12, 31^8, 31^4 and 1. Returns false,
// leaving the bytes alone, when they hold a NUL.
inline bool LowerAndHash16(char *pcText, uint32_t *puiHash)
{
    const __m128i vZero = _mm_setzero_si128();
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(pcText));
    if (_mm_movemask_epi8(_mm_cmpeq_epi8(v, vZero)) != 0) {
        return false;
    }
    // Adding 0x80 - 'A' moves 'A'..'Z' to -128..-103: as signed bytes, the only ones below -102.
    const __m128i vShifted = _mm_add_epi8(v, _mm_set1_epi8(static_cast<char>(0x80 - 'A')));
    const __m128i vCapitals = _mm_cmplt_epi8(vShifted, _mm_set1_epi8(static_cast<char>(-0x80 + 26)));
    v = _mm_or_si128(v, _mm_and_si128(vCapitals, _mm_set1_epi8(0x20)));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(pcText), v);

    const __m128i vPairWeights = _mm_set_epi16(1, 31, 1, 31, 1, 31, 1, 31);
    const __m128i vQuadWeights = _mm_set_epi16(1, 961, 1, 961, 1, 961, 1, 961);
    const __m128i vPairsLow = _mm_madd_epi16(_mm_unpacklo_epi8(v, vZero), vPairWeights);
    const __m128i vPairsHigh = _mm_madd_epi16(_mm_unpackhi_epi8(v, vZero), vPairWeights);
    const __m128i vQuads = _mm_madd_epi16(_mm_packs_epi32(vPairsLow, vPairsHigh), vQuadWeights);
    constexpr uint32_t kHashFactor12 = kHashFactor8 * kHashFactor4;
    const __m128i vEven = _mm_mul_epu32(vQuads, _mm_set_epi32(0, static_cast<int>(kHashFactor4), 0,
                                                             static_cast<int>(kHashFactor12)));
    const __m128i vOdd =
        _mm_mul_epu32(_mm_srli_epi64(vQuads, 32), _mm_set_epi32(0, 1, 0, static_cast<int>(kHashFactor8)));
    const __m128i vSums = _mm_add_epi64(vEven, vOdd);  // 64-bit lanes: their low halves matter
    const uint32_t uiSum =
        static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_add_epi32(vSums, _mm_shuffle_epi32(vSums, 0x4E))));
    *puiHash = *puiHash * (kHashFactor8 * kHashFactor8) + uiSum;
    return true;
}
#endif

// The library's hash, unmasked, continued from uiHash: the text is taken up
// to its first NUL (at most uiCount bytes), lower-cased in place (bytes after
// the NUL stay as they are), and its length goes to *pulHashed. Whole words
// without a NUL are lowered and hashed at once; the rest byte by byte.
__attribute__((always_inline)) inline uint32_t LowerAndHash(uint32_t uiHash, char *pcText, uint32_t uiCount,
                                                         size_t *pulHashed)
{
    size_t i = 0;
#if defined(__SSE2__)
    for (; i + 16 <= uiCount && LowerAndHash16(pcText + i, &uiHash); i += 16) {
    }
#endif
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    for (; i + 8 <= uiCount; i += 8) {
        uint64_t ullWord;
        std::memcpy(&ullWord, pcText + i, sizeof(ullWord));
        if (HasZeroByte(ullWord)) {
            break;
        }
        ullWord = orvane::LowerWord(ullWord);
        std::memcpy(pcText + i, &ullWord, sizeof(ullWord));
        uiHash = uiHash * kHashFactor8 + HashOfWord8(ullWord);
    }
    if (i + 4 <= uiCount) {
        uint32_t uiWord;
        std::memcpy(&uiWord, pcText + i, sizeof(uiWord));
        if (!HasZeroByte(uint64_t{uiWord} | 0xFFFFFFFF00000000ull)) {
            uiWord = static_cast<uint32_t>(orvane::LowerWord(uiWord));
            std::memcpy(pcText + i, &uiWord, sizeof(uiWord));
            uiHash = uiHash * kHashFactor4 + HashOfWord4(uiWord);
            i += 4;
        }
    }
#endif
    for (; i < uiCount && pcText[i] != '\0'; ++i) {
        const char c = LowerAscii(pcText[i]);
        pcText[i] = c;
        uiHash = uiHash * kHashFactor + static_cast<unsigned char>(c);
    }
    *pulHashed = i;
    return uiHash;
}

uint32_t LowerAndHashKey(char *pcText, uint32_t uiCount)
{
    size_t ulHashed = 0;
    return LowerAndHash(0, pcText, uiCount, &ulHashed) & kHashMask;
}

// The daemon marks an absent string by a null pointer or a zero length.
inline bool HasText(const unsigned char *pucText, uint16_t usLen) { return pucText != nullptr && usLen != 0; }

// strncmp over at most usLen bytes: equal when both run out together at a NUL.
bool StartsWithText(const char *pcText, const char *pcPrefix, uint16_t usLen)
{
    for (uint16_t i = 0; i < usLen; ++i) {
        if (pcText[i] != pcPrefix[i]) {
            return false;
        }
        if (pcText[i] == '\0') {
            return true;
        }
    }
    return true;
}

// strncasecmp against a literal; the literal's own NUL ends the walk, so
// pcText is read no further than the literal is long.
template <size_t N>
bool StartsWithNoCase(const char *pcText, const char (&acLiteral)[N], uint16_t usLen)
{
    for (uint16_t i = 0; i < usLen && i < N; ++i) {
        if (LowerAscii(pcText[i]) != LowerAscii(acLiteral[i])) {
            return false;
        }
        if (acLiteral[i] == '\0') {
            return true;
        }
    }
    return true;
}

// The connection a request and its response share.
void TakeEndpoints(const STWebPageEvent *pstEvent, STEventInfo *pstInfo)
{
    pstInfo->usClientPort = pstEvent->usClientPort;
    pstInfo->usServerPort = pstEvent->usServerPort;
    pstInfo->uiClientIp = pstEvent->uiClientIp;
    pstInfo->uiServerIp = pstEvent->uiServerIp;
    pstInfo->enNetworkType = pstEvent->enNetworkType;
}

// AssemblyString's join, for callers whose arguments are known sound (a
// destination shorter than its capacity, a source of at least one byte).
inline void Join(char *pcDst, uint16_t *pusDstLen, const char *pcSrc, uint16_t usSrcLen, uint16_t usDstMax)
{
    uint32_t uiLen = *pusDstLen;
    if (uiLen <= usSrcLen && StartsWithText(pcSrc, pcDst, static_cast<uint16_t>(uiLen))) {
        // The path already carries the host (or there is no host): take it alone.
        uiLen = usSrcLen < usDstMax ? usSrcLen : usDstMax;
        ORV_MEMCPY(pcDst, usDstMax, pcSrc, uiLen);
    } else {
        if (uiLen != 0 && pcDst[uiLen - 1] != '/') {
            pcDst[uiLen++] = '/';
        }
        const uint32_t uiRoom = usDstMax - uiLen;
        const uint32_t uiTake = usSrcLen <= uiRoom ? usSrcLen : uiRoom;
        ORV_MEMCPY(pcDst + uiLen, uiRoom, pcSrc, uiTake);
        uiLen += uiTake;
    }
    pcDst[uiLen] = '\0';
    *pusDstLen = static_cast<uint16_t>(uiLen);
}

// The helpers below log under the name of the reader that calls them; kLog
// false builds them for a level found off.
template <bool kLog>
void TakeContentType(const STWebPageEvent *pstEvent, STEventInfo *pstInfo, const char *pcFunc)
{
    if (!HasText(pstEvent->pucContentType, pstEvent->usContentTypeLen)) {
        return;
    }
    pstInfo->usContentTypeLen =
        CopyCut(pstInfo->acContentType, CONTENT_TYPE_MAX_LEN, pstEvent->pucContentType, pstEvent->usContentTypeLen);
    LOG_INFO_IF(kLog, pcFunc, pstInfo->ucThreadID, "ContentTypeLen is %u,ContentType is [%s].",
                pstInfo->usContentTypeLen, pstInfo->acContentType);
}

// LocationIsHttps's test, its line under its own name.
template <bool kLog>
void MarkHttpsLocation(STEventInfo *pstInfo, uint16_t usCompareLen)
{
    if (StartsWithNoCase(pstInfo->acLocation, kHttpsScheme, usCompareLen)) {
        LOG_TRACE_IF(kLog, "LocationIsHttps", LOG_TID_NONE, "Set page location flag is belongs to https");
        pstInfo->ucLocationHttps = 1;
    }
}

// Only a redirect's Location names where the page goes next: it is copied,
// and normalised. A request's is first tested for https, on the text as
// received, since ProcLocation strips the scheme.
template <bool kLog>
void TakeRedirectLocation(const STWebPageEvent *pstEvent, STEventInfo *pstInfo, const char *pcFunc, bool bRequest)
{
    if (IsRedirect(pstInfo->usCauseCode) == 0 || !HasText(pstEvent->pucLocation, pstEvent->usLocationLen)) {
        return;
    }
    const uint8_t ucTid = pstInfo->ucThreadID;
    pstInfo->usLocationLen =
        CopyCut(pstInfo->acLocation, LOCATION_MAX_LEN, pstEvent->pucLocation, pstEvent->usLocationLen);
    if (bRequest) {
        LOG_INFO_IF(kLog, pcFunc, ucTid, "LocationLen is %u,Location is [%s].", pstInfo->usLocationLen,
                    pstInfo->acLocation);
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "check location is belongs to https*********.");
        MarkHttpsLocation<kLog>(pstInfo, kHttpsSchemeLen);
    } else {
        LOG_INFO_IF(kLog, pcFunc, ucTid, "LocationLen is %u,Location is [%s]", pstInfo->usLocationLen,
                    pstInfo->acLocation);
    }
    ProcLocation(pstInfo->acLocation, LOCATION_MAX_LEN, &pstInfo->usLocationLen, &pstInfo->uiLocationHashKey);
    LOG_TRACE_IF(kLog, pcFunc, ucTid, "After process, LocationLen is %u,Location is [%s], LocationHashKey is %u.",
                 pstInfo->usLocationLen, pstInfo->acLocation, pstInfo->uiLocationHashKey);
}

}  // namespace

extern "C" {

uint32_t StrlwrAndBKDRHash(char *pcText, uint32_t uiCount)
{
    if (pcText == nullptr) {
        return 1;
    }
    return LowerAndHashKey(pcText, uiCount);
}

void AssemblyString(char *pcDst, uint16_t *pusDstLen, const char *pcSrc, uint16_t usSrcLen, uint16_t usDstMax)
{
    if (pcDst == nullptr || pusDstLen == nullptr || pcSrc == nullptr || usSrcLen == 0 || *pusDstLen >= usDstMax) {
        return;
    }
    Join(pcDst, pusDstLen, pcSrc, usSrcLen, usDstMax);
}

void ProcLocation(char *pcLocation, uint16_t usMax, uint16_t *pusLen, uint32_t *puiHashKey)
{
    if (pusLen == nullptr) {
        return;
    }
    if (pcLocation == nullptr || *pusLen == 0 || *pusLen > usMax) {
        *pusLen = 0;
        return;
    }
    uint16_t usLen = *pusLen;
    pcLocation[usLen] = '\0';
    if (puiHashKey != nullptr) {
        *puiHashKey = 0;
    }
    if (usLen >= kHttpsSchemeLen) {
        uint16_t usScheme = 0;
        if (EqualNoCase(pcLocation, kHttpScheme, kHttpSchemeLen)) {
            usScheme = kHttpSchemeLen;
        } else if (EqualNoCase(pcLocation, kHttpsScheme, kHttpsSchemeLen)) {
            usScheme = kHttpsSchemeLen;
        }
        if (usScheme != 0 && usScheme < usLen) {
            usLen = static_cast<uint16_t>(usLen - usScheme);
            ORV_MEMMOVE(pcLocation, usMax, pcLocation + usScheme, usLen);
            pcLocation[usLen] = '\0';
        }
    }
    if (usLen != 0 && pcLocation[usLen - 1] == '/') {
        pcLocation[--usLen] = '\0';
    }
    *pusLen = usLen;
    const uint32_t uiKey = LowerAndHashKey(pcLocation, usLen);
    if (puiHashKey != nullptr) {
        *puiHashKey = uiKey;
    }
}

void LocationIsHttps(STEventInfo *pstInfo, uint16_t usCompareLen)
{
    if (pstInfo == nullptr) {
        return;
    }
    if (orvane::LogOff()) {
        MarkHttpsLocation<false>(pstInfo, usCompareLen);
    } else {
        MarkHttpsLocation<true>(pstInfo, usCompareLen);
    }
}

uint32_t Is407CauseCode(uint16_t usCauseCode)
{
    return (g_ausCauseCode407[0] != 0 && g_ausCauseCode407[0] == usCauseCode) ? 1u : 0u;
}

uint32_t IsRedirect(uint16_t usCauseCode)
{
    const bool bRedirect3xx =
        usCauseCode >= kRedirectFirst && usCauseCode <= kRedirectLast && usCauseCode != kNotModified;
    return (bRedirect3xx || Is407CauseCode(usCauseCode) != 0) ? 1u : 0u;
}

}  // extern "C"

namespace {

// The readers' bodies, built for an off level (kLog false) and as written;
// the lines name the exported readers. Nothing here calls daemon code.
template <bool kLog>
uint32_t ReadRequest(const STWebPageEvent *pstEvent, STEventInfo *pstInfo, size_t *pulHostText)
{
    const char *const pcFunc = "GetReqEventInfo";
    const uint8_t ucTid = pstInfo->ucThreadID;

    TakeEndpoints(pstEvent, pstInfo);
    LOG_TRACE_IF(kLog, pcFunc, ucTid, "ClientPort is %u,ServerPort is %u,ClientIp is %u, ServerIp is %u.",
                 pstInfo->usClientPort, pstInfo->usServerPort, pstInfo->uiClientIp, pstInfo->uiServerIp);

    pstInfo->ullReqBeginTime = pstEvent->ullMsgBeginTime;
    pstInfo->ullReqEndTime = pstEvent->ullMsgEndTime;
    pstInfo->ullMsgEndTime = pstEvent->ullMsgEndTime;
    pstInfo->ullFirTime = pstEvent->ullFirTime;
    LOG_TRACE_IF(kLog, pcFunc, ucTid, "ReqBeginTime is %llu,ReqEndTime is %llu,MsgEndTime is %llu,FirTime is %llu.",
                 Llu(pstInfo->ullReqBeginTime), Llu(pstInfo->ullReqEndTime), Llu(pstInfo->ullMsgEndTime),
                 Llu(pstInfo->ullFirTime));

    pstInfo->usCauseCode = static_cast<uint16_t>(pstEvent->usRspCode & 0xFFFFu);
    pstInfo->uiReqMethod = pstEvent->ucReqMethod;
    pstInfo->ucFinRst = pstEvent->ucFinRst;
    pstInfo->uiEventID = pstEvent->usEventID;
    LOG_TRACE_IF(kLog, pcFunc, ucTid, "CauseCode is %u,ReqMethod is %u.", pstInfo->usCauseCode, pstInfo->uiReqMethod);

    if (HasText(pstEvent->pucURL, pstEvent->usURLLen)) {
        pstInfo->usUriLen = CopyCut(pstInfo->acUri, URI_MAX_LEN, pstEvent->pucURL, pstEvent->usURLLen);
        LOG_INFO_IF(kLog, pcFunc, ucTid, "UriLen is %u,Uri is [%s].", pstInfo->usUriLen, pstInfo->acUri);
    }
    if (HasText(pstEvent->pucHost, pstEvent->usHostLen)) {
        pstInfo->usHostLen = CopyCut(pstInfo->acHost, HOST_MAX_LEN, pstEvent->pucHost, pstEvent->usHostLen);
        LOG_INFO_IF(kLog, pcFunc, ucTid, "HostLen is %u,Host is [%s].", pstInfo->usHostLen, pstInfo->acHost);
    }

    // The referer path waits in a scratch text until the referer host is in
    // place, terminated for its INFO line. With no line to write, the join
    // takes it from the event: it reads no further than the cut length.
    char acReferPath[REFERER_PATH_MAX_LEN + 1];
    const char *pcReferPath = acReferPath;
    uint16_t usReferPathLen = 0;
    if (HasText(pstEvent->pucReferURL, pstEvent->usReferURLLen)) {
        if (kLog) {
            usReferPathLen =
                CopyCut(acReferPath, REFERER_PATH_MAX_LEN, pstEvent->pucReferURL, pstEvent->usReferURLLen);
            LOG_INFO_IF(kLog, pcFunc, ucTid, "RefererLen is %u,Referer is [%s].", usReferPathLen, acReferPath);
        } else {
            pcReferPath = reinterpret_cast<const char *>(pstEvent->pucReferURL);
            usReferPathLen = pstEvent->usReferURLLen < REFERER_PATH_MAX_LEN ? pstEvent->usReferURLLen
                                                                            : uint16_t{REFERER_PATH_MAX_LEN};
        }
    }
    if (HasText(pstEvent->pucReferHost, pstEvent->usReferHostLen)) {
        // The referer host is cut like a host, although its array holds a whole URL.
        pstInfo->usRefererUrlLen =
            CopyCut(pstInfo->acRefererUrl, HOST_MAX_LEN, pstEvent->pucReferHost, pstEvent->usReferHostLen);
        LOG_INFO_IF(kLog, pcFunc, ucTid, "RefererHostLen is %u,RefererHost is [%s].", pstInfo->usRefererUrlLen,
                    pstInfo->acRefererUrl);
    }
    if (usReferPathLen != 0) {
        if (pstInfo->usRefererUrlLen < REFERER_MAX_LEN) {
            Join(pstInfo->acRefererUrl, &pstInfo->usRefererUrlLen, pcReferPath, usReferPathLen, REFERER_MAX_LEN);
        }
        pstInfo->acRefererUrl[pstInfo->usRefererUrlLen] = '\0';
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "After assembly, RefererUrlLen is %u,RefererUrl is [%s].",
                     pstInfo->usRefererUrlLen, pstInfo->acRefererUrl);
    }
    if (pstInfo->usRefererUrlLen != 0) {
        pstInfo->uiRefererHashKey = LowerAndHashKey(pstInfo->acRefererUrl, pstInfo->usRefererUrlLen);
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "After Hash,RefererUrlLen is %u,RefererUrl is [%s],RefererHashKey is %u.",
                     pstInfo->usRefererUrlLen, pstInfo->acRefererUrl, pstInfo->uiRefererHashKey);
    }

    uint32_t uiHostHash = 0;
    size_t ulHostHashed = 0;
    if (pstInfo->usHostLen != 0) {
        uiHostHash = LowerAndHash(0, pstInfo->acHost, pstInfo->usHostLen, &ulHostHashed);
        pstInfo->uiHostHashKey = uiHostHash & kHashMask;
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "After Hash,HostLen is %u,Host is [%s],HostHashKey is %u.",
                     pstInfo->usHostLen, pstInfo->acHost, pstInfo->uiHostHashKey);
        // The URL starts from the host already in small letters.
        ORV_MEMCPY(pstInfo->acURL, URL_MAX_LEN, pstInfo->acHost, pstInfo->usHostLen);
        pstInfo->usURLLen = pstInfo->usHostLen;
        pstInfo->acURL[pstInfo->usURLLen] = '\0';
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "Copy Host to URL,URLLen is %u,URL is [%s].", pstInfo->usURLLen,
                     pstInfo->acURL);
    }
    if (pstInfo->usUriLen != 0) {
        if (pstInfo->usURLLen < URL_MAX_LEN) {
            Join(pstInfo->acURL, &pstInfo->usURLLen, pstInfo->acUri, pstInfo->usUriLen, URL_MAX_LEN);
        }
        pstInfo->acURL[pstInfo->usURLLen] = '\0';
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "After assembly,URLLen is %u,URL is [%s].", pstInfo->usURLLen,
                     pstInfo->acURL);
    }
    if (pstInfo->usURLLen != 0) {
        // Whether the path was appended or carried the host itself, the URL
        // begins with the host's bytes, already small and hashed: the URL's
        // hash goes on from there. A host cut short by a NUL cuts the URL's
        // hash at the same byte.
        const size_t ulHostLen = pstInfo->usHostLen;
        uint32_t uiURLHash = uiHostHash;
        size_t ulHashed = 0;
        if (pstInfo->usURLLen < ulHostLen) {
            // Defensive only: neither join leaves the URL shorter than the host.
            uiURLHash = LowerAndHash(0, pstInfo->acURL, pstInfo->usURLLen, &ulHashed);
        } else if (ulHostHashed == ulHostLen) {
            uiURLHash = LowerAndHash(uiHostHash, pstInfo->acURL + ulHostLen,
                                     static_cast<uint32_t>(pstInfo->usURLLen - ulHostLen), &ulHashed);
        }
        pstInfo->uiURLHashKey = uiURLHash & kHashMask;
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "After Hash,URLLen is %u,URL is [%s],URLHashKey is %u.", pstInfo->usURLLen,
                     pstInfo->acURL, pstInfo->uiURLHashKey);
    }

    TakeContentType<kLog>(pstEvent, pstInfo, pcFunc);
    // Most events carry no Location: tested here before the call.
    if (HasText(pstEvent->pucLocation, pstEvent->usLocationLen)) {
        TakeRedirectLocation<kLog>(pstEvent, pstInfo, pcFunc, true);
    }
    if (pulHostText != nullptr) {
        *pulHostText = ulHostHashed;
    }
    return 0;
}

template <bool kLog>
uint32_t ReadResponse(const STWebPageEvent *pstEvent, STEventInfo *pstInfo)
{
    const char *const pcFunc = "GetRspEventInfo";
    const uint8_t ucTid = pstInfo->ucThreadID;

    TakeEndpoints(pstEvent, pstInfo);
    pstInfo->ullRspBeginTime = pstEvent->ullMsgBeginTime;
    pstInfo->ullRspEndTime = pstEvent->ullMsgEndTime;
    pstInfo->ullMsgEndTime = pstEvent->ullMsgEndTime;
    pstInfo->ullFirTime = pstEvent->ullFirTime;
    pstInfo->usCauseCode = static_cast<uint16_t>(pstEvent->usRspCode & 0xFFFFu);
    pstInfo->ucFinRst = pstEvent->ucFinRst;
    pstInfo->uiEventID = pstEvent->usEventID;
    LOG_TRACE_IF(kLog, pcFunc, ucTid, "ReqBeginTime is %llu,ReqEndTime is %llu,MsgEndTime is %llu,FirTime is %llu.",
                 Llu(pstInfo->ullReqBeginTime), Llu(pstInfo->ullReqEndTime), Llu(pstInfo->ullMsgEndTime),
                 Llu(pstInfo->ullFirTime));

    TakeContentType<kLog>(pstEvent, pstInfo, pcFunc);
    if (HasText(pstEvent->pucLocation, pstEvent->usLocationLen)) {
        TakeRedirectLocation<kLog>(pstEvent, pstInfo, pcFunc, false);
    }
    return 0;
}

}  // namespace

namespace orvane {

uint32_t ReadRequestEvent(const STWebPageEvent *pstEvent, STEventInfo *pstInfo, size_t *pulHostText)
{
    return LogOff() ? ReadRequest<false>(pstEvent, pstInfo, pulHostText)
                    : ReadRequest<true>(pstEvent, pstInfo, pulHostText);
}

uint32_t ReadResponseEvent(const STWebPageEvent *pstEvent, STEventInfo *pstInfo)
{
    return LogOff() ? ReadResponse<false>(pstEvent, pstInfo) : ReadResponse<true>(pstEvent, pstInfo);
}

}  // namespace orvane

extern "C" {

uint32_t GetReqEventInfo(const STWebPageEvent *pstEvent, STEventInfo *pstInfo)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, pstEvent != nullptr, LOG_TID_NONE, "para err.", "ucThreadID err.")) {
        return 1;
    }
    return orvane::ReadRequestEvent(pstEvent, pstInfo, nullptr);
}

uint32_t GetRspEventInfo(const STWebPageEvent *pstEvent, STEventInfo *pstInfo)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, pstEvent != nullptr, LOG_TID_ANY, "Para err.", "ucThreadID err.")) {
        return 1;
    }
    return orvane::ReadResponseEvent(pstEvent, pstInfo);
}

}  // extern "C"
