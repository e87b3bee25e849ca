// Time windows: bounds per compare type, threshold columns and fallbacks,
// the 407 doubling, and the time-only page match.
#include <algorithm>
#include <cstring>

#include "daemon_fixture.hpp"

namespace orvane_test {
namespace {

constexpr uint32_t kIn = 0, kOut = COMPARE_OUTSIDE;
constexpr uint64_t kX = 100 * kSec, kY = 101 * kSec, kOld = 80 * kSec, kSame = ~0ull;

// Begin B (end E, the same unless given) against references X and Y; network, causes and first time F.
struct Row {
    uint32_t type;
    uint64_t B, X, Y;
    uint32_t expect, net = 0;
    uint16_t pageCause = 0, eventCause = 0;
    uint64_t E = kSame, F = 0;
};

class TimeWindowTest : public OneThreadTest {
protected:
    static void Check(std::initializer_list<Row> rows)
    {
        for (const Row &r : rows) {
            const uint64_t e = r.E == kSame ? r.B : r.E;
            EXPECT_EQ(CompareMsgTime(r.F, r.B, e, r.X, r.Y, r.type, r.net, r.pageCause, r.eventCause), r.expect)
                << "type " << r.type << " B " << r.B << " E " << e << " X " << r.X << " Y " << r.Y << " net "
                << r.net << " cause " << r.pageCause << "/" << r.eventCause << " F " << r.F;
        }
    }
};

TEST_F(TimeWindowTest, Bounds)
{
    const uint64_t y3 = kY + 3 * kSec, x35 = kX + 3500 * kMs, x25 = kX + 2500 * kMs;
    Check({// 3 s after Y: windows of 15, 3.5, 3 (inclusive), 15 s; 4 and 5 look at X only; 6 has 2 s.
           {0, y3, kX, kY, kIn}, {1, y3, kX, kY, kIn}, {2, y3, kX, kY, kIn}, {3, y3, kX, kY, kIn},
           {4, y3, kX, kY, kOut}, {5, y3, kX, kY, kOut}, {6, y3, kX, kY, kOut},
           // Exactly T after X: strict for 1, 2, 4, 6, inclusive for 5.
           {1, x35, kX, kOld, kOut}, {1, x35 - 1, kX, kOld, kIn}, {2, kX + 3 * kSec, kX, kOld, kOut},
           {4, x35, kX, kOld, kOut}, {5, kX + 3 * kSec, kX, kOld, kIn},
           {5, kX + 3 * kSec + 1, kX, kOld, kOut}, {6, kX + 2 * kSec, kX, kOld, kOut},
           // The Y-window is inclusive.
           {0, kY + 15 * kSec, kX, kY, kIn}, {3, kY + 15 * kSec + 1, kX, kY, kOut}, {6, kY + 2 * kSec, kX, kY, kIn},
           // Unknown references: Y needed by 0-3 and 6 unless X is near; 4 needs both; 5 needs X.
           {0, kX + kMs, kX, 0, kOut}, {1, kX + kSec, kX, 0, kIn}, {4, kX + kSec, kX, 0, kOut},
           {5, kY + kSec, 0, kY, kOut}, {2, kY + kSec, 0, kY, kIn}, {6, 5 * kSec, 0, 0, kOut},
           // Beginning before a reference is inside whatever the window, before any other test.
           {6, kY - 1, kOld, kY, kIn, 0, 0, 0, kY + 60 * kSec}, {4, kX - kSec, kX, 0, kIn},
           // First-time check, skipped for begin 0; it applies to the time-only types as well.
           {0, kX - kSec, kX, kY, kOut, 0, 0, 0, kX, kX}, {0, 0, kX, kY, kIn, 0, 0, 0, kX, kX},
           {8, kX - kSec, kX, kY, kOut, 0, 0, 0, 0, kX},
           // No window of their own; 10 is a second name of 8.
           {7, kX - kSec, kX, kY, kOut}, {11, kX - kSec, kX, kY, kOut}, {0xFFFFFFFF, kX - kSec, kX, kY, kOut},
           {10, kY + 2 * kSec, kX, kY, kIn}, {10, kY + 2 * kSec + 1, kX, kY, kOut},
           // Network columns (app correlation: 2 / 5 / 3 / 2 s); anything but 1..3 reads column 0.
           {9, x25, kX, 0, kOut, 0}, {9, kX + 4 * kSec, kX, 0, kIn, 1}, {9, x25, kX, 0, kIn, 2},
           {9, kX + 4 * kSec, kX, 0, kOut, 2}, {9, x25, kX, 0, kOut, 3},
           // Host windows double for a page whose cause is 407, and only those.
           {2, kY + 6 * kSec, kX, kY, kIn, 0, 407}, {5, kX + 6 * kSec, kX, kOld, kIn, 0, 407},
           {2, kY + 6 * kSec + 1, kX, kY, kOut, 0, 407}, {2, kY + 6 * kSec, kX, kY, kOut, 0, 302},
           {2, kY + 6 * kSec, kX, kY, kOut, 0, 200, 407}, {1, kY + 3500 * kMs + 1, kX, kY, kOut, 0, 407}});

    g_auiTimeThreshold[TIME_THRESHOLD_APP_CORRELATION * 4] = 2600;  // column 0 now unlike any other
    Check({{9, x25, kX, 0, kIn, 4}, {9, x25, kX, 0, kIn, 99}});
    g_ausCauseCode407[0] = 0;
    Check({{2, kY + 6 * kSec, kX, kY, kOut, 0, 407}, {5, kX + 6 * kSec, kX, kOld, kOut, 0, 0}});
}

TEST_F(TimeWindowTest, ZeroEntryUsesTheRowFallback)
{
    std::memset(g_auiTimeThreshold, 0, sizeof(g_auiTimeThreshold));
    const std::pair<uint32_t, uint64_t> typeAndFallback[] = {{8, 2 * kSec}, {2, 3 * kSec}, {1, 5500 * kMs},
                                                              {0, 15 * kSec}, {9, 2 * kSec}, {6, 2 * kSec}};
    for (const auto &tf : typeAndFallback) {
        Check({{tf.first, kY + tf.second, kOld, kY, kIn}, {tf.first, kY + tf.second + 1, kOld, kY, kOut}});
    }
    g_auiTimeThreshold[TIME_THRESHOLD_REFERER_URL * 4 + 1] = 3500;
    Check({{2, kY + 6 * kSec, kOld, kY, kIn, 0, 407},  // doubled after the fallback
           {1, kY + 4 * kSec, kOld, kY, kOut, 1}, {1, kY + 4 * kSec, kOld, kY, kIn, 2}});
}

TEST_F(TimeWindowTest, TimeOnlyWindowsAskTheStatusWhenOnlyTheEndIsNear)
{
    for (uint16_t code : {0, 199, 200, 304, 399, 400, 404, 407, 500}) {
        const uint32_t expect = (code >= 200 && code <= 399) || code == 407 ? kIn : kOut;
        EXPECT_EQ(CompareMsgTimeTransWithPage(kX - kSec, kX + kSec, kX, 0, 0, code), expect) << code;
        EXPECT_EQ(CompareMsgTimeAppCorrelation(kX - kSec, kX + kSec, kX, 0, 0, code), expect) << code;
    }
    EXPECT_EQ(CompareMsgTimeTransWithPage(kX - 10 * kSec, kX - 5 * kSec, kX, 0, 0, 200), kOut);  // ended before X
    EXPECT_EQ(CompareMsgTimeTransWithPage(kX - kSec, 0, kX, kY, 0, 0), kIn);                       // in flight
    EXPECT_EQ(CompareMsgTimeTransWithPage(kX + 2 * kSec, kX + 2 * kSec, kX, 0, 0, 200), kOut);     // strict after X
    g_ausCauseCode407[0] = 0;
    EXPECT_EQ(CompareMsgTimeTransWithPage(kX - kSec, kX + kSec, kX, 0, 0, 407), kOut);
}

TEST_F(TimeWindowTest, SingleRuleWindowsAreTheCentralTestOfTheirType)
{
    EXPECT_EQ(&CompareMsgTimeUrlWithMainReqLocation, &CompareMsgTimeUrlWithSubReqLocation);
    const uint64_t t[] = {0, kOld, kX - 1, kX, kX + 2 * kSec, kY, kY + 3 * kSec, kY + 6 * kSec, 200 * kSec};
    const uint16_t causes[] = {0, 407, 500};
    for (uint32_t i = 0; i < 9 * 9 * 9 * 9 * 3; ++i) {  // every B, E, X, Y and cause
        const uint64_t b = t[i % 9], e = t[i / 9 % 9], x = t[i / 81 % 9], y = t[i / 729 % 9];
        const uint16_t c = causes[i / 6561];
        auto central = [&](uint32_t type, uint16_t page, uint16_t ev) {
            return CompareMsgTime(0, b, e, x, y, type, 2, page, ev);
        };
        ASSERT_EQ(Fields(CompareMsgTimeUrlWithMainReqLocation(b, e, x, y, 2),
                         CompareMsgTimeRefererWithMainReqUrl(b, e, x, y, 2),
                         CompareMsgTimeRefererWithSubReqUrl(b, e, x, y, 2),
                         CompareMsgTimeRefererWithReferer(b, e, x, y, 2),
                         CompareMsgTimeHostWithMainReqHost(b, e, x, y, 2, c),
                         CompareMsgTimeHostWithSubReqHost(b, e, x, y, 2, c),
                         CompareMsgTimeTransWithPage(b, e, x, y, 2, c), CompareMsgTimeAppCorrelation(b, e, x, y, 2, c)),
                  Fields(central(0, 0, 0), central(1, 0, 0), central(4, 0, 0), central(6, 0, 0), central(2, c, 0),
                         central(5, c, 0), central(8, 0, c), central(9, 0, c)))
            << i;
    }
}

// The time-only match over a thread's pages, newest first.
class AllPageTimeMatchTest : public TimeWindowTest {
protected:
    STEventInfo Request(int flow, uint64_t begin, const char *contentType, uint16_t cause = 0)
    {
        Event e = Req("", "", begin);
        e.contentType = contentType;
        e.code = cause;
        return Intake(0, flow, e);
    }
    // A successful associate page, of web type when its content type is one.
    STPageNode *OpenPage(int flow, uint64_t begin, const char *contentType = "text/html")
    {
        STEventInfo e = Request(flow, begin, contentType, 200);
        return FindPage(0, InsertPageNode(&e, PAGE_TYPE_ASSOCIATE, 1));
    }
};

TEST_F(AllPageTimeMatchTest, NewestPageInItsWindowTakesTheEventAndFailedUpdatesPassOn)
{
    STPageNode *older = OpenPage(1, 10 * kSec), *newer = OpenPage(2, 11 * kSec);
    STEventInfo ev = Request(3, 11500 * kMs, "image/png");
    EXPECT_EQ(CompareMsgTimeWithAllPageNode(&ev), newer->uiPageID);
    EXPECT_EQ(ev.uiMatchLevel, 1u);
    EXPECT_EQ(newer->usReqNum, 2u);
    EXPECT_EQ(older->usReqNum, 1u);

    ev.pstFlowInfo = nullptr;  // the update reports the missing flow area as a failure
    EXPECT_EQ(CompareMsgTimeWithAllPageNode(&ev), 0u);
    const std::string failed = "[CompareMsgTimeWithAllPageNode]Match page(webtype) with time is OK,Update page error.";
    EXPECT_EQ(std::count_if(Sinks().logs.begin(), Sinks().logs.end(),
                            [&](const CapturedLog &l) { return l.line.find(failed) != std::string::npos; }),
              2);  // the failed update passes the event on to the older page
}

TEST_F(AllPageTimeMatchTest, WebRequestNearAnAppPageOpensItsOwnPage)
{
    STPageNode *app = OpenPage(1, 10 * kSec, "application/json");
    ASSERT_FALSE(app->usPageFlag & PAGE_FLAG_WEBTYPE);
    STEventInfo web = Request(2, 11 * kSec, "text/html");
    const uint64_t id = CompareMsgTimeWithAllPageNode(&web);
    EXPECT_TRUE(id != 0 && id != app->uiPageID);
    EXPECT_EQ(app->usReqNum, 1u);
    EXPECT_EQ(OpenPages(0), 2u);

    STEventInfo flash = Request(3, 11 * kSec, "text/html");  // black-listed: joins the app page
    flash.usURLLen = static_cast<uint16_t>(std::strlen(std::strcpy(flash.acURL, "cdn.example/intro.swf")));
    EXPECT_EQ(CompareMsgTimeWithAllPageNode(&flash), app->uiPageID);
    EXPECT_EQ(app->usReqNum, 2u);
}

TEST_F(AllPageTimeMatchTest, OnlySuccessfulAssociatePagesThatBeganEarlierAreCandidates)
{
    g_enSDKLogLevel = LOG_LEVEL_TRACE;
    STEventInfo ev = Request(9, 20 * kSec, "text/html");
    ev.ullReqEndTime = 0;  // in flight: inside any window it began before
    EXPECT_EQ(CompareMsgTimeWithAllPageNode(&ev), 0u);
    EXPECT_TRUE(LogContains("PageList is empty."));
    OpenPage(1, 21 * kSec);
    OpenPage(2, 19 * kSec)->usPageFlag &= ~PAGE_FLAG_SUCCESS;
    STEventInfo single = Request(3, 19 * kSec, "text/html", 200);
    InsertPageNode(&single, PAGE_TYPE_SINGLE, 0);
    EXPECT_EQ(CompareMsgTimeWithAllPageNode(&ev), 0u);
    EXPECT_TRUE(LogContains("Other match is fail,match page with time but not match page."));
    EXPECT_EQ(CompareMsgTimeWithAllPageNode(nullptr), 0u);
}

}  // namespace
}  // namespace orvane_test
