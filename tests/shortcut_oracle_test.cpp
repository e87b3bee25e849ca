// The per-event shortcuts against plain oracles: word-at-a-time case-free
// search, the UCID mark, the word-wise hash and its continuation from the
// host into the URL, time windows prepared once per walk (run-time and fixed
// rules) against CompareMsgTime, and the first-byte location screen against
// the equivalence it guards.
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "daemon_fixture.hpp"
#include "time_window.hpp"
#include "webpage_util.hpp"

namespace orvane_test {
namespace {

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

bool NaiveContains(const char *text, const char *needle, size_t n)
{
    for (const char *p = text; n != 0 && *p != '\0'; ++p) {
        size_t i = 0;
        while (i < n && p[i] != '\0' && Lower(p[i]) == Lower(needle[i])) {
            ++i;
        }
        if (i == n) {
            return true;
        }
    }
    return n == 0;
}

uint32_t NaiveKey(const char *text, size_t n)
{
    uint32_t h = 0;
    for (size_t i = 0; i < n && text[i] != '\0'; ++i) {
        h = h * 31u + static_cast<unsigned char>(Lower(text[i]));
    }
    return h & 0x7FFFFFFFu;
}

// Texts rich in near-misses: letters of both cases that a pattern starts
// with, bytes one apart from them, high bytes and the odd NUL.
std::string Noise(std::mt19937 &rng, size_t maxLen)
{
    static const char kAlphabet[] = "oOnNpPsS/?=uUcCiIdD.\x80\xCF\xEF\x01";
    std::string s(rng() % (maxLen + 1), 'x');
    for (char &c : s) {
        c = rng() % 29 == 0 ? '\0' : kAlphabet[rng() % (sizeof(kAlphabet) - 1)];
    }
    return s;
}

TEST(ShortcutOracle, ContainsNoCaseAgreesWithNaiveSearch)
{
    // A candidate just before the scan's restart once flagged its neighbour.
    EXPECT_FALSE(orvane::ContainsNoCase("aonnebox", "onebox", 6));
    EXPECT_TRUE(orvane::ContainsNoCase("x.ONEBOX.example", "onebox", 6));
    EXPECT_FALSE(orvane::ContainsNoCase("abc", "b\0c", 3));
    std::mt19937 rng(7);
    for (int i = 0; i < 200000; ++i) {
        const std::string text = Noise(rng, 40);
        std::string needle = Noise(rng, 5);
        if (rng() % 2 != 0 && text.size() > 2) {
            needle = text.substr(rng() % text.size(), 1 + rng() % 6);
        }
        ASSERT_EQ(orvane::ContainsNoCase(text.c_str(), needle.data(), needle.size()),
                  NaiveContains(text.c_str(), needle.data(), needle.size()))
            << "text " << testing::PrintToString(text) << " needle " << testing::PrintToString(needle);
    }
}

TEST(ShortcutOracle, UcidMarkAgreesWithNaiveSearch)
{
    std::mt19937 rng(5);
    for (int i = 0; i < 100000; ++i) {
        std::string text = Noise(rng, 40);
        if (rng() % 4 == 0 && text.size() > 8) {
            text.replace(rng() % (text.size() - 7), 7, rng() % 2 != 0 ? "/?UcId=" : "/?ucid=");
        }
        char buf[URI_MAX_LEN + 1] = {};
        std::memcpy(buf, text.data(), text.size());
        const uint16_t len = static_cast<uint16_t>(text.size());
        ASSERT_EQ(IsUrlContainsUcid(buf, len, URI_MAX_LEN), (len >= 7 && NaiveContains(buf, "/?ucid=", 7)) ? 1u : 0u)
            << testing::PrintToString(text);
    }
}

TEST(ShortcutOracle, WordwiseHashAgreesWithByteSteps)
{
    // Lengths around the word and half-word steps, a NUL anywhere, capitals,
    // high bytes: the key and the text's lowering stop at the first NUL.
    std::mt19937 rng(3);
    static const char kBytes[] = "AZaz@[`{09/.-?\x80\xC1\xFF";
    for (int i = 0; i < 100000; ++i) {
        const size_t len = rng() % 41;
        std::string text(len, 'x');
        for (char &c : text) {
            c = rng() % 23 == 0 ? '\0' : kBytes[rng() % (sizeof(kBytes) - 1)];
        }
        const uint32_t count = static_cast<uint32_t>(rng() % 3 == 0 && len != 0 ? rng() % len : len);
        std::string expect = text;
        for (size_t k = 0; k < count && expect[k] != '\0'; ++k) {
            expect[k] = Lower(expect[k]);
        }
        std::string work = text;
        ASSERT_EQ(StrlwrAndBKDRHash(work.data(), count), NaiveKey(text.c_str(), count))
            << testing::PrintToString(text) << " count " << count;
        ASSERT_EQ(work, expect) << testing::PrintToString(text) << " count " << count;
    }
}

TEST(ShortcutOracle, KeywordsAreMeasuredAsConfigured)
{
    char text[] = "Metrics.STATISTIC.example";
    const uint16_t len = sizeof(text) - 1;
    // A keyword fills its array without a NUL: its bytes stop at the array's end.
    const char full[4] = {'s', 't', 'a', 't'};
    EXPECT_TRUE(orvane::HoldsKeyword(text, len, len, full, sizeof(full)));
    EXPECT_FALSE(orvane::HoldsKeyword(text, len, len, "", 10));
    // Longer than the length the caller claims: never held, wherever it stands.
    EXPECT_FALSE(orvane::HoldsKeyword(text, 8, len, "statistic", 10));
    EXPECT_TRUE(orvane::HoldsKeyword(text, 9, len, "statistic", 10));
    // The text ends at its NUL, not at the claimed length.
    const char cut[] = "Metrics\0STATISTIC";
    EXPECT_FALSE(orvane::HoldsKeyword(cut, sizeof(cut) - 1, std::strlen(cut), "statistic", 10));
}

TEST(ShortcutOracle, UrlKeyIsTheHashOfTheAssembledUrl)
{
    std::mt19937 rng(11);
    const std::vector<std::string> hosts = {"WWW.Shop.example", "cdn.example", std::string("ab\0CD", 5), ""};
    for (int i = 0; i < 5000; ++i) {
        const std::string host = hosts[rng() % hosts.size()];
        std::string lowHost = host;
        for (char &c : lowHost) {
            c = Lower(c);
        }
        const std::string uris[] = {Noise(rng, 30), lowHost + "/Index.HTML", lowHost + Noise(rng, 8),
                                    host + "/x", "/" + Noise(rng, 200)};
        const std::string uri = uris[rng() % 5];
        const Event e = Req(host, uri, 0);
        const STWebPageEvent ev = e.Build();
        STFlowInfo flow;
        API_InitWebPageFlow(&flow);
        STEventInfo info;
        InitPageProcessInfo(0, &flow, &info);
        ASSERT_EQ(GetReqEventInfo(&ev, &info), 0u);
        std::string url(info.acURL, info.usURLLen);
        const std::string shown = testing::PrintToString(host) + " + " + testing::PrintToString(uri);
        ASSERT_EQ(info.uiURLHashKey, info.usURLLen == 0 ? 0u : NaiveKey(url.data(), url.size())) << shown;
        ASSERT_EQ(info.uiHostHashKey, info.usHostLen == 0 ? 0u : NaiveKey(host.data(), info.usHostLen)) << shown;
        for (size_t k = 0; k < url.size() && url[k] != '\0'; ++k) {
            ASSERT_FALSE(url[k] >= 'A' && url[k] <= 'Z') << shown;
        }
    }
}

TEST(ShortcutOracle, LocationScreenNeverRefusesAnEqualLocation)
{
    std::mt19937 rng(13);
    const std::vector<std::string> hosts = {"shop.example", "s", "", std::string("sh\0p", 4)};
    for (int i = 0; i < 100000; ++i) {
        std::string host = hosts[rng() % hosts.size()];
        std::string url = host + (rng() % 3 == 0 ? std::string() : "/" + Noise(rng, 12));
        char acHost[HOST_MAX_LEN + 1] = {};
        char acURL[URL_MAX_LEN + 1] = {};
        std::memcpy(acHost, host.data(), host.size());
        std::memcpy(acURL, url.data(), url.size());
        STCompareInfo compare{};
        compare.usHostLen = static_cast<uint16_t>(host.size());
        compare.usURLLen = static_cast<uint16_t>(url.size());
        compare.usHostMaxLen = HOST_MAX_LEN;
        compare.usURLMaxLen = URL_MAX_LEN;
        compare.pcHost = acHost;
        compare.pcURL = acURL;
        const std::string candidates[] = {url, url + "/", url.substr(url.size() / 2), host + ":80" + url.substr(host.size()),
                                          Noise(rng, 20), "/" + Noise(rng, 6)};
        std::string location = candidates[rng() % 6].substr(0, LOCATION_MAX_LEN);
        char acLocation[LOCATION_MAX_LEN + 1] = {};
        std::memcpy(acLocation, location.data(), location.size());
        const uint16_t len = static_cast<uint16_t>(location.size());
        if (!orvane::LocationProbe(&compare).MayBe(acLocation, len)) {
            ASSERT_EQ(IsUrlSameAsLocation(&compare, acLocation, len), 0)
                << testing::PrintToString(url) << " " << testing::PrintToString(location);
        }
    }
}

// A fixed rule's window for the run-time type, or false past the table.
template <uint32_t T = 0>
bool FixedFitsPage(uint32_t type, uint64_t b, uint64_t e, uint16_t eventCause, uint64_t first, uint64_t x,
                   uint64_t y, uint32_t net, uint16_t cause)
{
    if constexpr (T < COMPARE_TRANS_WITH_PAGE_ALT + 1) {
        if (type != T) {
            return FixedFitsPage<T + 1>(type, b, e, eventCause, first, x, y, net, cause);
        }
        const orvane::FixedWindow<T> window(b, e, eventCause);
        return window.FitsPage(first, x, y, window.LengthFor(net, cause));
    } else {
        return false;
    }
}

using PreparedWindowTest = OneThreadTest;

TEST_F(PreparedWindowTest, AgreesWithCompareMsgTimeOverAGrid)
{
    const uint64_t t0 = 1000 * kSec;
    const uint64_t offsets[] = {0, 1, 2 * kSec - 1, 2 * kSec, 3 * kSec, 3 * kSec + 1, 6 * kSec, 15 * kSec, 31 * kSec};
    std::vector<uint64_t> times = {0, ~0ull};
    for (uint64_t o : offsets) {
        times.push_back(t0 + o);
        times.push_back(t0 - o);
    }
    const uint16_t causes[] = {0, 200, 404, 407};
    for (int config = 0; config < 3; ++config) {
        g_ausCauseCode407[0] = config == 2 ? 0 : 407;
        g_auiTimeThreshold[5] = config == 1 ? 0 : 7000;  // host row, network 1: fallback or longer
        g_auiTimeThreshold[9] = config == 1 ? 0 : 3500;   // referer-URL row: a fallback longer than the row
        g_auiTimeThreshold[18] = config == 1 ? 0 : 9000;  // non-web row, network 2: fallback or longest
        for (uint32_t type = 0; type <= COMPARE_TRANS_WITH_PAGE_ALT + 1; ++type) {
            for (uint64_t b : times) {
                for (uint64_t e : {uint64_t{0}, b + kSec, b, b - 3 * kSec}) {
                    const orvane::TimeWindow window(type, b, e, causes[(b / kSec) % 4]);
                    for (uint64_t x : times) {
                        for (uint64_t y : {uint64_t{0}, x, x + 4 * kSec, t0}) {
                            for (uint32_t net = 0; net < 5; ++net) {
                                for (uint16_t cause : causes) {
                                    const uint64_t first = (x + net) % 3 == 0 ? b + 1 : t0 - kSec;
                                    const uint16_t eventCause = causes[(b / kSec) % 4];
                                    const bool inside = CompareMsgTime(first, b, e, x, y, type, net, cause,
                                                                       eventCause) == 0;
                                    ASSERT_EQ(FixedFitsPage(type, b, e, eventCause, first, x, y, net, cause), inside);
                                    const uint64_t length = window.LengthFor(net, cause);
                                    ASSERT_EQ(window.FitsPage(first, x, y, length), inside)
                                        << "type " << type << " begin " << b << " end " << e << " X " << x
                                        << " Y " << y << " net " << net << " cause " << cause;
                                    // The long-past screen only ever refuses, also on the
                                    // longest window of the row.
                                    ASSERT_GE(window.LongestLength(), length) << "type " << type << " net " << net;
                                    ASSERT_FALSE(inside && orvane::LongPast(x, y, orvane::EarliestEventTime(b, e),
                                                                            length))
                                        << "type " << type << " begin " << b << " end " << e << " X " << x
                                        << " Y " << y;
                                }
                            }
                        }
                    }
                }
            }
        }
    }
}

}  // namespace
}  // namespace orvane_test
