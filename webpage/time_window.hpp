// A rule's time window prepared once for a walk over pages or saved strings.
// CompareMsgTime reads the rule's row, the threshold table and the 407 code
// on every call; a walk tests the same event against up to a few hundred
// references, so it reads them once here and tests each reference inline.
// The verdicts are CompareMsgTime's (and the single-rule windows').
#ifndef ORVANE_TIME_WINDOW_HPP
#define ORVANE_TIME_WINDOW_HPP

#include <cstdint>

#include "webpage_internal.h"
#include "webpage_util.hpp"

namespace orvane {

// How a window after a reference time is bounded; a zero reference (time
// unknown) never opens its window.
enum class Bound : uint8_t { kNone, kStrict, kInclusive };

enum class WindowKind : uint8_t {
    kNever,        // no rule: always outside
    kString,       // a string rule's window: an overlap with the references is inside
    kStatusAware,  // time-only rules: an event that only ends in the window needs a good status
};

struct WindowRule {
    WindowKind enKind;
    uint8_t ucRow;
    Bound enAfterRefBegin;  // window after X (last request, or a string's begin)
    Bound enAfterRefEnd;    // window after Y (last response, or a string's end)
    bool bNeedsBothRefs;    // either reference unknown: outside
    bool bDouble407;        // pages held up by proxy authentication get twice the time
};

constexpr uint32_t kNetworkColumnNum = 4;
constexpr uint64_t kNsPerMs = 1000000ull;

// The window a row falls back to when its table entry is 0. Row 2's fallback
// is longer than its configured default on purpose.
inline constexpr uint64_t kRowFallbackNs[] = {
    2000 * kNsPerMs,   // TIME_THRESHOLD_TRANS_WITH_PAGE
    3000 * kNsPerMs,   // TIME_THRESHOLD_HOST
    5500 * kNsPerMs,   // TIME_THRESHOLD_REFERER_URL
    15000 * kNsPerMs,  // TIME_THRESHOLD_URL_LOCATION
    2000 * kNsPerMs,   // TIME_THRESHOLD_APP_CORRELATION
    2000 * kNsPerMs,   // TIME_THRESHOLD_REFERER_REFERER
};
static_assert(sizeof(kRowFallbackNs) / sizeof(kRowFallbackNs[0]) * kNetworkColumnNum ==
                  sizeof(g_auiTimeThreshold) / sizeof(g_auiTimeThreshold[0]),
              "one fallback per threshold row");

inline constexpr WindowRule kWindowRules[] = {
    /* URL with main-request location */
    {WindowKind::kString, TIME_THRESHOLD_URL_LOCATION, Bound::kNone, Bound::kInclusive, false, false},
    /* referer with main-request URL */
    {WindowKind::kString, TIME_THRESHOLD_REFERER_URL, Bound::kStrict, Bound::kInclusive, false, false},
    /* host with main-request host */
    {WindowKind::kString, TIME_THRESHOLD_HOST, Bound::kStrict, Bound::kInclusive, false, true},
    /* URL with sub-request location */
    {WindowKind::kString, TIME_THRESHOLD_URL_LOCATION, Bound::kNone, Bound::kInclusive, false, false},
    /* referer with sub-request URL */
    {WindowKind::kString, TIME_THRESHOLD_REFERER_URL, Bound::kStrict, Bound::kNone, true, false},
    /* host with sub-request host */
    {WindowKind::kString, TIME_THRESHOLD_HOST, Bound::kInclusive, Bound::kNone, false, true},
    /* referer with referer */
    {WindowKind::kString, TIME_THRESHOLD_REFERER_REFERER, Bound::kStrict, Bound::kInclusive, false, false},
    /* no rule */
    {WindowKind::kNever, 0, Bound::kNone, Bound::kNone, false, false},
    /* time only, web-type page */
    {WindowKind::kStatusAware, TIME_THRESHOLD_TRANS_WITH_PAGE, Bound::kStrict, Bound::kInclusive, false, false},
    /* time only, page not of web type */
    {WindowKind::kStatusAware, TIME_THRESHOLD_APP_CORRELATION, Bound::kStrict, Bound::kInclusive, false, false},
    /* the second name of the web-type time rule */
    {WindowKind::kStatusAware, TIME_THRESHOLD_TRANS_WITH_PAGE, Bound::kStrict, Bound::kInclusive, false, false},
};
static_assert(sizeof(kWindowRules) / sizeof(kWindowRules[0]) == COMPARE_TRANS_WITH_PAGE_ALT + 1,
              "one window per compare type");

// A rule fixed at compile time: a walk whose compare type is a constant
// reads the same row as TimeWindow, with its bounds folded into the tests.
template <uint32_t CompareType>
struct FixedRule {
    static_assert(CompareType < sizeof(kWindowRules) / sizeof(kWindowRules[0]), "a compare type with a window");
    static constexpr WindowKind enKind = kWindowRules[CompareType].enKind;
    static constexpr uint8_t ucRow = kWindowRules[CompareType].ucRow;
    static constexpr Bound enAfterRefBegin = kWindowRules[CompareType].enAfterRefBegin;
    static constexpr Bound enAfterRefEnd = kWindowRules[CompareType].enAfterRefEnd;
    static constexpr bool bNeedsBothRefs = kWindowRules[CompareType].bNeedsBothRefs;
    static constexpr bool bDouble407 = kWindowRules[CompareType].bDouble407;
};

// The window of one rule for one event; Rule is a WindowRule read at run time
// or a FixedRule.
template <typename Rule>
class BasicTimeWindow {
public:
    // Takes the rule, where its thresholds are, the 407 code and whether the
    // event's status counts as answered.
    BasicTimeWindow(const Rule &stRule, uint64_t ullBegin, uint64_t ullEnd, uint16_t usEventCauseCode)
        : m_stRule(stRule),
          m_us407(g_ausCauseCode407[0]),
          // Only the time-only rules look at the event's status.
          m_bStatusOk(m_stRule.enKind == WindowKind::kStatusAware && ResponseOk(usEventCauseCode)),
          m_puiThresholdRow(&g_auiTimeThreshold[m_stRule.ucRow * kNetworkColumnNum]),
          m_ullFallback(kRowFallbackNs[m_stRule.ucRow]),
          m_ullBegin(ullBegin),
          m_ullEnd(ullEnd)
    {
    }

    // The window's length in ns for a page of this network type and cause:
    // the row's threshold for the network type (its fallback when 0),
    // doubled for a page held up by proxy authentication where the rule says so.
    __attribute__((always_inline)) uint64_t LengthFor(uint32_t enNetworkType, uint16_t usPageCauseCode) const
    {
        const uint32_t uiColumn = (enNetworkType >= 1 && enNetworkType < kNetworkColumnNum) ? enNetworkType : 0;
        const uint32_t uiMs = m_puiThresholdRow[uiColumn];
        const uint64_t ullLength = uiMs != 0 ? uiMs * kNsPerMs : m_ullFallback;
        return (m_stRule.bDouble407 && m_us407 != 0 && usPageCauseCode == m_us407) ? ullLength << 1 : ullLength;
    }

    // At least LengthFor for any network type and page cause: the row's
    // longest entry or its fallback, doubled where a 407 page doubles it.
    uint64_t LongestLength() const
    {
        uint32_t uiMs = m_puiThresholdRow[0];
        for (uint32_t uiColumn = 1; uiColumn < kNetworkColumnNum; ++uiColumn) {
            uiMs = m_puiThresholdRow[uiColumn] > uiMs ? m_puiThresholdRow[uiColumn] : uiMs;
        }
        const uint64_t ullLength = uiMs * kNsPerMs > m_ullFallback ? uiMs * kNsPerMs : m_ullFallback;
        return (m_stRule.bDouble407 && m_us407 != 0) ? ullLength << 1 : ullLength;
    }

    // The single-rule windows' verdict against references X and Y.
    __attribute__((always_inline)) bool Fits(uint64_t ullRefBegin, uint64_t ullRefEnd, uint64_t ullLength) const
    {
        const bool bBeganBeforeRef = m_ullBegin < ullRefBegin || m_ullBegin < ullRefEnd;
        switch (m_stRule.enKind) {
            case WindowKind::kNever:
                return false;
            case WindowKind::kString:
                if (bBeganBeforeRef) {
                    return true;
                }
                if (m_stRule.bNeedsBothRefs && (ullRefBegin == 0 || ullRefEnd == 0)) {
                    return false;
                }
                break;
            case WindowKind::kStatusAware:
                if (m_ullEnd == 0 && bBeganBeforeRef) {
                    return true;
                }
                break;
        }
        if (!Near(ullRefBegin, ullLength, m_stRule.enAfterRefBegin) &&
            !Near(ullRefEnd, ullLength, m_stRule.enAfterRefEnd)) {
            return false;
        }
        return m_stRule.enKind == WindowKind::kString || m_ullBegin >= ullRefBegin || m_bStatusOk;
    }

    // CompareMsgTime's verdict: an event that began before the page did is
    // outside whatever the references say.
    __attribute__((always_inline)) bool FitsPage(uint64_t ullPageFirReq, uint64_t ullRefBegin, uint64_t ullRefEnd,
                                                  uint64_t ullLength) const
    {
        return !PageRejects(ullPageFirReq) && Fits(ullRefBegin, ullRefEnd, ullLength);
    }

    // FitsPage's test that depends on the page alone: when it holds, no
    // reference makes the window fit.
    bool PageRejects(uint64_t ullPageFirReq) const { return m_ullBegin != 0 && ullPageFirReq > m_ullBegin; }

    // The same against the page's own last request and response.
    __attribute__((always_inline)) bool FitsPage(const STPageNode &stPage) const
    {
        return FitsPage(stPage.ullPageFirReq, stPage.ullPageLastReq, stPage.ullPageLastRsp,
                        LengthFor(stPage.enNetworkType, stPage.usCauseCode));
    }

private:
    // Order is checked before subtracting so that a time before the
    // reference can never wrap into a small, "inside" distance.
    static bool WithinAfter(uint64_t ullTime, uint64_t ullRef, uint64_t ullLength, Bound enBound)
    {
        return ullTime >= ullRef &&
               (enBound == Bound::kStrict ? ullTime - ullRef < ullLength : ullTime - ullRef <= ullLength);
    }

    bool Near(uint64_t ullRef, uint64_t ullLength, Bound enBound) const
    {
        return enBound != Bound::kNone && ullRef != 0 &&
               (WithinAfter(m_ullBegin, ullRef, ullLength, enBound) || WithinAfter(m_ullEnd, ullRef, ullLength, enBound));
    }

    Rule m_stRule;
    uint16_t m_us407;
    bool m_bStatusOk;
    const uint32_t *m_puiThresholdRow;  // the rule's row of g_auiTimeThreshold, in ms
    uint64_t m_ullFallback;
    uint64_t m_ullBegin;
    uint64_t m_ullEnd;
};

// A compare type known only at run time (an unknown type is never inside).
class TimeWindow : public BasicTimeWindow<WindowRule> {
public:
    TimeWindow(uint32_t enCompareType, uint64_t ullBegin, uint64_t ullEnd, uint16_t usEventCauseCode)
        : BasicTimeWindow(enCompareType < sizeof(kWindowRules) / sizeof(kWindowRules[0]) ? kWindowRules[enCompareType]
                                                                                         : kWindowRules[COMPARE_NONE],
                          ullBegin, ullEnd, usEventCauseCode)
    {
    }
};

template <uint32_t CompareType>
class FixedWindow : public BasicTimeWindow<FixedRule<CompareType>> {
public:
    FixedWindow(uint64_t ullBegin, uint64_t ullEnd, uint16_t usEventCauseCode)
        : BasicTimeWindow<FixedRule<CompareType>>(FixedRule<CompareType>{}, ullBegin, ullEnd, usEventCauseCode)
    {
    }
};

// True when a window of ullLength after references X and Y cannot take an
// event whose earlier time (begin, or end when that is known and earlier)
// is ullEarliest: it comes after both references by more than the window.
// Then the event neither began before a reference nor has a time within the
// window after one (an unknown end is never within one), so Fits is false.
__attribute__((always_inline)) inline bool LongPast(uint64_t ullRefBegin, uint64_t ullRefEnd, uint64_t ullEarliest,
                                                    uint64_t ullLength)
{
    const uint64_t ullLatestRef = ullRefBegin > ullRefEnd ? ullRefBegin : ullRefEnd;
    return ullEarliest > ullLatestRef && ullEarliest - ullLatestRef > ullLength;
}

// The earlier of an event's times for LongPast.
inline uint64_t EarliestEventTime(uint64_t ullBegin, uint64_t ullEnd)
{
    return (ullEnd == 0 || ullBegin < ullEnd) ? ullBegin : ullEnd;
}

}  // namespace orvane

#endif
