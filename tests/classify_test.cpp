// Request classification with the default page configuration.
#include <cstring>

#include "daemon_fixture.hpp"

namespace orvane_test {
namespace {

// A text with room for the NUL the black-list tests write at the capacity.
struct Text {
    char buf[URL_MAX_LEN + 1] = {};
    uint16_t len;
    explicit Text(const char *s, int givenLen = -1)
        : len(static_cast<uint16_t>(givenLen < 0 ? std::strlen(s) : givenLen))
    {
        std::strncpy(buf, s, URL_MAX_LEN);
    }
};

using ClassifyTest = OneThreadTest;

TEST_F(ClassifyTest, WebTypeIsAPrefixEitherWayOrARedirect)
{
    const struct { const char *type; uint16_t max, cause; uint8_t expect; } cases[] = {
        {"TEXT/HTML", 64, 0, 1}, {"text/html; charset=utf-8", 64, 200, 1}, {"text/h", 64, 0, 1},
        {"application/x-shockwave-flash", 64, 0, 1}, {"image/png", 64, 200, 0}, {"image/png", 64, 302, 1},
        {"image/png", 64, 407, 1}, {"image/png", 64, 304, 0}, {"", 64, 301, 1}, {"", 64, 200, 0},
        {"text/html", 0, 0, 0}};
    for (const auto &c : cases) {
        EXPECT_EQ(IsWebType(c.type, static_cast<uint16_t>(std::strlen(c.type)), c.max, c.cause), c.expect)
            << c.type << " / " << c.cause;
    }
    EXPECT_EQ(IsWebType(nullptr, 9, 64, 302), 1);
    EXPECT_EQ(IsWebType(nullptr, 9, 64, 200), 0);
    g_ausCauseCode407[0] = 0;
    EXPECT_EQ(IsWebType("image/png", 9, 64, 407), 0);
    // A NUL inside the text is compared like any byte.
    EXPECT_EQ(IsWebType("text/h\0tml", 10, 64, 0), 0);
    // A configured type may fill its array without a NUL; an emptied one matches nothing.
    std::memcpy(g_stPageConfig.aacContentType[0], "text/html-and-more-characters!", PAGE_CONTENT_TYPE_LEN);
    g_stPageConfig.aacContentType[1][0] = '\0';
    EXPECT_EQ(IsWebType("text/html-and-more-characters!x", 31, 64, 0), 1);
    EXPECT_EQ(IsWebType("text/html-and-more-characters?", 30, 64, 0), 0);
    EXPECT_EQ(IsWebType("application/xhtml+xml", 21, 64, 0), 0);
}

TEST_F(ClassifyTest, FlashInTheContentTypeOrSwfAtTheEndOfAUrl)
{
    const struct { const char *url, *referer, *type; uint16_t urlMax; uint8_t expect; } cases[] = {
        {"cdn.example/a.swf", "", "", 256, 1}, {"cdn.example/A.SWF", "", "", 256, 1},
        {"cdn.example/a.swf?v=2", "", "", 256, 0}, {"", "www.example/player.swf", "", 256, 1},
        {"", "", "video/x-FLV", 256, 1}, {"", "", "application/flash-video", 256, 1},
        {"cdn.example/a.swf", "", "text/html", 10, 0},  // the end is taken at the capacity
        {"cdn.example/swf", "www.example/", "text/html", 256, 0}, {"", "", "", 256, 0}};
    for (const auto &c : cases) {
        Text url(c.url), ref(c.referer), type(c.type);
        EXPECT_EQ(IsBlackList(url.buf, url.len, c.urlMax, ref.buf, ref.len, 256, type.buf, type.len, 64), c.expect)
            << c.url << " | " << c.referer << " | " << c.type;
    }
    Text swf("cdn.example/a.swf");
    EXPECT_EQ(IsBlackList(swf.buf, swf.len, 256, nullptr, 0, 256, swf.buf, 0, 64), 0);
}

TEST_F(ClassifyTest, HostAndInputKeywordsMatchAnywhereInAnyCase)
{
    const struct { Text host; uint16_t max; uint8_t expect; } hosts[] = {
        {Text("img.StatIstic.example"), 64, 1}, {Text("www.PORTAL.EXAMPLE.COM"), 64, 1},
        {Text("suggest.example.net"), 64, 1}, {Text("a.onebox.example"), 64, 1}, {Text("news.example.org"), 64, 0},
        {Text("statistic", 5), 64, 0},    // shorter than the keyword by its given length
        {Text("abcdefstatistic"), 6, 0},  // cut at its capacity
        {Text(""), 64, 0}};
    for (auto h : hosts) {
        EXPECT_EQ(IsHostBlackList(h.host.buf, h.host.len, h.max), h.expect) << h.host.buf;
    }
    EXPECT_EQ(IsHostBlackList(nullptr, 5, 64), 0);
    Text input("search.example/?from=UCInput"), plain("search.example/?q=1");
    EXPECT_EQ(IsUrlBlackList(input.buf, input.len, 256), 1);
    EXPECT_EQ(IsUrlBlackList(plain.buf, plain.len, 256), 0);
    EXPECT_EQ(IsUrlBlackList(input.buf, 0, 256), 0);
}

}  // namespace
}  // namespace orvane_test
