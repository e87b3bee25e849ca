// Main-request rules: the URL/location and referer/URL equivalences, the
// port spelling, and browsing stories for the location, referer and host rules.
#include <cstring>
#include <tuple>

#include "daemon_fixture.hpp"

namespace orvane_test {
namespace {

// A compare record over writable texts, laid out as the working record holds them.
struct Record {
    char host[HOST_MAX_LEN + 1] = {};
    char url[URL_MAX_LEN + 1] = {};
    char referer[REFERER_MAX_LEN + 1] = {};
    STCompareInfo info{};

    Record(const std::string &h, const std::string &u, const std::string &r, uint16_t port)
    {
        std::memcpy(host, h.data(), h.size());
        std::memcpy(url, u.data(), u.size());
        std::memcpy(referer, r.data(), r.size());
        info = STCompareInfo{nullptr, 0, 0, 0, 0, 0, static_cast<uint16_t>(h.size()), HOST_MAX_LEN,
                             static_cast<uint16_t>(u.size()), URL_MAX_LEN, static_cast<uint16_t>(r.size()),
                             REFERER_MAX_LEN, 40000, port, host, url, referer};
    }
};

// The event's URL or referer against the page's location or URL.
struct Equivalence { const char *name; std::string host, eventText, pageText; uint16_t port; uint8_t same; };

const std::string kLongUrl = "h.example/" + std::string(200, 'p');

TEST(Equivalence, UrlSameAsLocation)
{
    std::string cutDiffers = kLongUrl.substr(0, LOCATION_MAX_LEN);
    cutDiffers[100] = 'q';
    const Equivalence cases[] = {
        {"bare host", "h.example", "h.example", "h.example", 80, 1},
        {"bare host, location adds a slash", "h.example", "h.example", "h.example/", 80, 1},
        {"bare host, location has a path", "h.example", "h.example", "h.example/b", 80, 0},
        {"relative location", "h.example", "h.example/index.html", "/index.html", 80, 1},
        {"trailing slash, paths one apart", "h.example", "h.example/y/", "h.example/x", 80, 1},
        {"different paths", "h.example", "h.example/x", "h.example/y", 80, 0},
        {"port form", "h.example", "h.example/abc/def", "h.example:8080/abc", 8080, 1},
        {"port form, other server port", "h.example", "h.example/abc/def", "h.example:8080/abc", 80, 0},
        {"prefix without port", "h.example", "h.example/abc/def", "h.example/abc", 8080, 0},
        {"long URL, location cut at 128", "h.example", kLongUrl, kLongUrl.substr(0, LOCATION_MAX_LEN), 80, 1},
        {"long URL, cut location differs", "h.example", kLongUrl, cutDiffers, 80, 0},
        {"other host", "a.example", "a.example/x", "b.example/x", 80, 0},
        {"path behind an embedded NUL", "h.example", "h.example/abc", std::string("h.example\0/abc", 14), 80, 0},
    };
    for (const Equivalence &c : cases) {
        Record rec(c.host, c.eventText, "", c.port);
        char location[LOCATION_MAX_LEN + 1] = {};
        std::memcpy(location, c.pageText.data(), c.pageText.size());
        EXPECT_EQ(IsUrlSameAsLocation(&rec.info, location, static_cast<uint16_t>(c.pageText.size())), c.same)
            << c.name;
    }
}

TEST(Equivalence, RefererSameAsUrl)
{
    const Equivalence cases[] = {
        {"page URL adds a slash", "h.example", "h.example/list", "h.example/list/", 80, 1},
        {"bare host referer", "h.example", "h.example", "h.example/", 80, 1},
        {"port form", "h.example", "h.example:8080/abc", "h.example/abc/def", 8080, 1},
        {"different path", "h.example", "h.example/lisx", "h.example/list", 80, 0},
        {"referer of another host", "h.example", "o.example/list", "h.example/list", 80, 0},
        {"referer path behind an embedded NUL", "h.example", std::string("h.example\0/list", 15), "h.example/list",
         80, 0},
    };
    for (const Equivalence &c : cases) {
        Record rec("", "", c.eventText, c.port);
        char url[URL_MAX_LEN + 1] = {};
        std::memcpy(url, c.pageText.data(), c.pageText.size());
        EXPECT_EQ(IsRefererSameAsUrl(&rec.info, url, static_cast<uint16_t>(c.pageText.size()), c.host.c_str(),
                                     static_cast<uint16_t>(c.host.size())),
                  c.same)
            << c.name;
    }
}

TEST(Equivalence, TextsAreTerminatedAtTheirLengths)
{
    Record rec("h.example", "h.example/x", "h.example/xJUNK", 80);
    rec.info.usRefererLen = 11;
    char location[LOCATION_MAX_LEN + 1] = "h.example/xJUNK";
    char url[URL_MAX_LEN + 1] = "h.example/xJUNK";
    EXPECT_EQ(Fields(IsUrlSameAsLocation(&rec.info, location, 11),
                     IsRefererSameAsUrl(&rec.info, url, 11, "h.example", 9)),
              Fields(1, 1));
    EXPECT_EQ(Fields(location[11], url[11], rec.referer[11]), Fields(0, 0, 0));
}

TEST(Equivalence, PortSpellingIsBounded)
{
    const struct { std::string path; uint16_t port, max; const char *text; } cases[] = {
        {"abc", 8080, 129, ":8080/abc"},
        {"/abc", 8080, 129, ":8080/abc"},
        {"", 443, 129, ":443"},
        {"abc", 8080, 5, ":"},          // no room for the port
        {"abc", 8080, 8, ":8080/"},     // no room for the path
        {std::string(200, 'a'), 80, 129, ":80/"},
    };
    for (const auto &c : cases) {
        char buf[129] = {};
        uint16_t len = 0xFFFF;
        StrcatUriWithPort(buf, &len, c.max, c.path.c_str(), static_cast<uint16_t>(c.path.size()), c.port);
        EXPECT_STREQ(buf, c.text) << c.path.size() << " max " << c.max;
        EXPECT_EQ(len, std::strlen(c.text));
    }
    StrcatUriWithPort(nullptr, nullptr, 129, "abc", 3, 80);
}

// The opened page: www.example/index.html at t0, answered at once.
constexpr uint64_t kT0 = 100 * kSec;

Event Follow(const std::string &host, const std::string &uri, const std::string &refer, const char *type,
             uint64_t delay)
{
    Event e = Req(host, uri, kT0 + delay);
    const size_t slash = refer.find('/');
    if (!refer.empty()) {
        e.referHost = refer.substr(0, slash);
        e.referPath = slash == std::string::npos ? "" : refer.substr(slash + 1);
    }
    e.code = 200;
    e.contentType = type;
    return e;
}

class MainRuleTest : public DaemonTest {
protected:
    uint64_t Open(uint32_t code, const std::string &location = "", int flow = 1)
    {
        Event e = Req("www.example", "index.html", kT0);
        e.code = code;
        e.location = location;
        e.contentType = "text/html";
        return Send(flow, e);
    }
};

TEST_F(MainRuleTest, WhichFollowingRequestJoinsThePage)
{
    struct Case { const char *name; uint32_t openCode; const char *openLocation; Event follow; bool joins; };
    const Case cases[] = {
        {"referer is the page URL", 200, "", Follow("img.example", "logo.png", "www.example/index.html", "image/png", 3 * kSec), true},
        {"referer is another page of the host", 200, "", Follow("img.example", "logo.png", "www.example/other.html", "image/png", 3 * kSec), false},
        {"referer past its window", 200, "", Follow("img.example", "logo.png", "www.example/index.html", "image/png", 3600 * kMs), false},
        {"referer of a failed page", 404, "", Follow("img.example", "logo.png", "www.example/index.html", "image/png", 3 * kSec), false},
        {"same host", 200, "", Follow("www.example", "style.css", "", "text/css", 2500 * kMs), true},
        {"same host past its window", 200, "", Follow("www.example", "style.css", "", "text/css", 3500 * kMs), false},
        {"same host of a 407 page, doubled window", 407, "", Follow("www.example", "style.css", "", "text/css", 5 * kSec), true},
        {"other host", 200, "", Follow("cdn.example", "style.css", "", "text/css", 2500 * kMs), false},
        {"URL is the redirect location", 302, "https://login.example/home", Follow("login.example", "home", "", "text/html", 10 * kSec), true},
        {"redirect location past its window", 302, "https://login.example/home", Follow("login.example", "home", "", "text/html", 16 * kSec), false},
        {"URL is not the location", 302, "https://login.example/home", Follow("login.example", "away", "", "text/html", 10 * kSec), false},
    };
    int flow = 0;
    for (const auto &c : cases) {
        ResetLibrary();
        InitThreads({0});
        const uint64_t page = Open(c.openCode, c.openLocation, ++flow);
        ASSERT_NE(page, 0u) << c.name;
        EXPECT_EQ(Send(++flow, c.follow) == page, c.joins) << c.name;
    }
}

TEST_F(MainRuleTest, RedirectChainHandsTheLocationOn)
{
    InitThreads({0});
    const uint64_t page = Open(302, "https://login.example/auth");
    Event login = Follow("login.example", "auth", "", "text/html", 5 * kSec);
    login.code = 302;
    login.location = "HTTPS://Home.Example/";
    EXPECT_EQ(Send(2, login), page);
    STPageNode *p = FindPage(0, page);
    ASSERT_NE(p, nullptr);
    EXPECT_STREQ(p->acLocation, "home.example");
    EXPECT_TRUE(p->usPageFlag & PAGE_FLAG_HTTPS_REDIRECT);
    const uint32_t homeKey = p->uiLocationKey;

    // The followed hop leaves no location behind, but its key still finds the page.
    EXPECT_EQ(Send(3, Follow("home.example", "", "", "text/html", 10 * kSec)), page);
    // Handed over, never saved as a string.
    EXPECT_EQ(Fields(p->usLocationLen, p->acLocation[0], p->uiLocationKey, p->usMainCauseCode,
                     p->stLocationList.uiNodeNum),
              Fields(0, 0, homeKey, 200, 0));
    EXPECT_EQ(Send(4, Follow("home.example", "", "", "text/html", 20 * kSec)), page);
}

// Two pages open: the referer rule takes the newest page it names, the host
// rule goes on to older pages.
TEST_F(MainRuleTest, RulesTryPagesNewestFirst)
{
    const struct { const char *newerHost; uint64_t newerAt; Event third; bool joinsNewer; } rows[] = {
        {"www.example", 3200 * kMs, Follow("img.example", "a.png", "www.example/index.html", "image/png", 3300 * kMs), true},
        {"other.example", 2500 * kMs, Follow("www.example", "style.css", "", "text/css", 2800 * kMs), false},
    };
    int flow = 0;
    for (const auto &row : rows) {
        ResetLibrary();
        InitThreads({0});
        const uint64_t older = Open(200, "", ++flow);
        const uint64_t newer = Send(++flow, Follow(row.newerHost, "index.html", "", "text/html", row.newerAt));
        ASSERT_NE(newer, older) << row.newerHost;
        EXPECT_EQ(Send(++flow, row.third), row.joinsNewer ? newer : older) << row.newerHost;
    }
}

// Late on the page's host, only a resource gets the referer window's second chance.
TEST_F(MainRuleTest, HostSecondChanceIsForResourcesOnly)
{
    int flow = 0;
    for (const auto &[uri, type, joins] : {std::make_tuple("next.html", "text/html", false),
                                           std::make_tuple("style.css", "text/css", true)}) {
        ResetLibrary();
        InitThreads({0});
        g_auiTimeThreshold[TIME_THRESHOLD_REFERER_REFERER * 4] = 10000;
        const uint64_t page = Open(200, "", ++flow);
        EXPECT_EQ(Send(++flow, Follow("www.example", uri, "", type, 5 * kSec)) == page, joins) << uri;
    }
}

}  // namespace
}  // namespace orvane_test
