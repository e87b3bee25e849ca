#include <gtest/gtest.h>

#include "text_util.hpp"

namespace replay {
namespace {

TEST(IsoTime, ZonesAndFractions)
{
    const struct { const char *text; uint64_t ns; } rows[] = {
        {"1970-01-01T00:00:00Z", 0},
        {"2017-03-01T10:00:00.123Z", 1488362400123000000ull},
        {"2017-03-01T11:00:00.123+01:00", 1488362400123000000ull},
        {"2017-03-01T05:30:00.123-0430", 1488362400123000000ull},
        {"2017-03-01T10:00:00.123456789Z", 1488362400123456789ull},
        {"2017-03-01T10:00:00.1234567891Z", 1488362400123456789ull},  // beyond ns dropped
        {"2017-03-01T10:00:00", 1488362400000000000ull},               // no zone: UTC
        {"2016-02-29T00:00:00Z", 1456704000000000000ull},              // leap day
    };
    for (const auto &row : rows) {
        uint64_t ns = 1;
        EXPECT_TRUE(ParseIsoTime(row.text, &ns)) << row.text;
        EXPECT_EQ(ns, row.ns) << row.text;
    }
    for (const char *bad : {"", "2017-03-01", "2017-13-01T00:00:00Z", "2017-03-01T25:00:00Z", "2017-03-01T10:00:00.Z",
                            "2017-03-01T10:00:00+1", "1969-12-31T23:59:59Z", "2017-03-01T10:00:00Zjunk"}) {
        uint64_t ns = 0;
        EXPECT_FALSE(ParseIsoTime(bad, &ns)) << bad;
    }
}

TEST(SplitUrl, HostPortAndTarget)
{
    const struct { const char *url, *authority, *target; uint16_t port; } rows[] = {
        {"http://a.example/x/y?q=1#frag", "a.example", "/x/y?q=1", 80},
        {"https://a.example", "a.example", "/", 443},
        {"HTTPS://A.example:8443/p", "A.example:8443", "/p", 8443},
        {"http://user:pw@a.example/p", "a.example", "/p", 80},
        {"http://a.example?only=query", "a.example", "/?only=query", 80},
        {"http://[2001:db8::1]:8080/v6", "[2001:db8::1]:8080", "/v6", 8080},
        {"http://a.example:/p", "a.example", "/p", 80},
    };
    for (const auto &row : rows) {
        UrlParts p;
        ASSERT_TRUE(SplitUrl(row.url, &p)) << row.url;
        EXPECT_EQ(p.authority + " " + p.target + " " + std::to_string(p.port),
                  std::string(row.authority) + " " + row.target + " " + std::to_string(row.port));
    }
    for (const char *bad : {"", "a.example/x", "://a.example", "http://", "http://a.example:99999/", "http://a:x/"}) {
        UrlParts p;
        EXPECT_FALSE(SplitUrl(bad, &p)) << bad;
    }
}

TEST(DaemonPath, DropsOneLeadingSlashUnlessKept)
{
    EXPECT_EQ(DaemonPath("/", false) + "|" + DaemonPath("/a/b?c", false) + "|" + DaemonPath("//a", false) + "|" +
                  DaemonPath("/a", true),
              "|a/b?c|/a|/a");
}

TEST(Ipv4, DottedQuadOnly)
{
    uint32_t ip = 0;
    EXPECT_TRUE(ParseIpv4("192.0.2.10", &ip));
    EXPECT_EQ(ip, 0xC000020Au);
    for (const char *bad : {"", "192.0.2", "192.0.2.256", "192.0.2.1.5", "2001:db8::1", "1.2.3.4 ", "1..2.3"}) {
        EXPECT_FALSE(ParseIpv4(bad, &ip)) << bad;
    }
}

TEST(Printable, EscapesControlsAndStrayBytesAndCutsOnCharacters)
{
    const struct { const char *text; size_t max; const char *shown; } rows[] = {
        {"plain text", kNoCut, "plain text"},
        {"a\nb\tc\r\x1b[2J\x7f", kNoCut, "a\\nb\\tc\\r\\x1B[2J\\x7F"},
        {"\xc2\x85 \xc2\x9b", kNoCut, "\\u0085 \\u009B"},         // C1 controls
        {"\xff\xc0\xaf\xed\xa0\x80", kNoCut, "\\xFF\\xC0\\xAF\\xED\\xA0\\x80"},  // stray, overlong, surrogate
        {"ok\xe2\x82", kNoCut, "ok\\xE2\\x82"},                   // cut-off sequence
        {"h\xc3\xa9llo w\xc3\xb6rld", 8, "h\xc3\xa9llo..."},      // counted in characters
        {"\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9", 4, "\xc3\xa9..."},
        {"\xf0\x9f\x98\x80\xf0\x9f\x98\x80", 2, "\xf0\x9f\x98\x80\xf0\x9f\x98\x80"},  // fits whole
        {"abc\x01\x02", 6, "abc..."},                            // an escape is never split
        {"abcdef", 2, "ab"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(Printable(row.text, row.max), row.shown) << row.text;
    }
    EXPECT_EQ(Column("\xc3\xa9t\xc3\xa9", 5), "\xc3\xa9t\xc3\xa9  ");
    EXPECT_EQ(CharCount(Column("a\x01" "bcdefgh", 6)), 6u);
}

}  // namespace
}  // namespace replay
