// The event side of a compare record, as GetCompareInfo and GetSubCompareInfo
// fill it, for the quiet screens that test whether a rule could find anything
// before the logged compare is made.
#ifndef ORVANE_COMPARE_SCREEN_HPP
#define ORVANE_COMPARE_SCREEN_HPP

#include "webpage_internal.h"

namespace orvane {

// Keys, lengths, capacities and texts; the list and the endpoints are left
// as they are. The screens only read through the text pointers.
inline void FillCompareFields(const STEventInfo *pstInfo, STCompareInfo *pstCompare)
{
    STEventInfo *pstText = const_cast<STEventInfo *>(pstInfo);
    pstCompare->uiHostKey = pstInfo->uiHostHashKey;
    pstCompare->uiURLKey = pstInfo->uiURLHashKey;
    pstCompare->uiRefererKey = pstInfo->uiRefererHashKey;
    pstCompare->usHostLen = pstInfo->usHostLen;
    pstCompare->usHostMaxLen = HOST_MAX_LEN;
    pstCompare->usURLLen = pstInfo->usURLLen;
    pstCompare->usURLMaxLen = URL_MAX_LEN;
    pstCompare->usRefererLen = pstInfo->usRefererUrlLen;
    pstCompare->usRefererMaxLen = REFERER_MAX_LEN;
    pstCompare->pcHost = pstText->acHost;
    pstCompare->pcURL = pstText->acURL;
    pstCompare->pcReferer = pstText->acRefererUrl;
}

// Whether the event's URL may equal a saved location, from first bytes:
// false only where IsUrlSameAsLocation is false. The event's side is read
// once for a walk over many saved locations; nothing in such a walk writes
// the event's texts.
class LocationProbe {
public:
    explicit LocationProbe(const STCompareInfo *pstCompare)
    {
        const size_t h = pstCompare->usHostLen;
        const size_t u = pstCompare->usURLLen;
        m_bUsable = !(u == 0 || h > pstCompare->usHostMaxLen || u > pstCompare->usURLMaxLen ||
                      pstCompare->pcHost == nullptr || pstCompare->pcURL == nullptr || u < h ||
                      pstCompare->usURLMaxLen < h);
        m_bNoHost = h == 0;
        if (m_bUsable && !m_bNoHost) {
            m_cHost0 = pstCompare->pcHost[0];
            m_cPath0 = pstCompare->pcURL[h];
            m_path = u - h;
        }
    }

    __attribute__((always_inline)) bool MayBe(const char *pcLocation, size_t l) const
    {
        if (l == 0 || !m_bUsable) {
            return false;
        }
        return m_bNoHost || pcLocation[0] == m_cHost0 || (m_path != 0 && m_path >= l && pcLocation[0] == m_cPath0);
    }

private:
    bool m_bUsable = false;
    bool m_bNoHost = false;
    char m_cHost0 = 0;
    char m_cPath0 = 0;
    size_t m_path = 0;
};

}  // namespace orvane

#endif
