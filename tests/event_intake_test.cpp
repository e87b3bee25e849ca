// Event normalisation: the hash, the host/path join, Location clean-up, and
// what requests and responses leave in the working record.
#include <cstring>
#include <string>
#include <vector>

#include "daemon_fixture.hpp"

namespace orvane_test {
namespace {

uint32_t Hash(std::string text) { return StrlwrAndBKDRHash(&text[0], static_cast<uint32_t>(text.size())); }

TEST(StrlwrAndBKDRHash, LowerCasesInPlaceAndHashesBytes)
{
    struct Row { std::string text; uint32_t count, key; std::string after; } rows[] = {
        {"AB", 2, 3105, "ab"},
        {"ABC", 2, 3105, "abC"},                                  // the count bounds both jobs
        {std::string("A\0B", 3), 3, 97, std::string("a\0B", 3)},  // a NUL ends the text
        {"", 5, 0, ""},
        {"WWW.Example.COM", 15, 269193510, "www.example.com"},  // wraps, masked to 31 bits
        {"caf\xE9.example", 12, 125954717, "caf\xE9.example"},  // bytes above 0x7F are unsigned
    };
    for (Row &r : rows) {
        EXPECT_EQ(StrlwrAndBKDRHash(&r.text[0], r.count), r.key) << r.after;
        EXPECT_EQ(r.text, r.after);
    }
    EXPECT_EQ(StrlwrAndBKDRHash(nullptr, 3), 1u);
}

TEST(AssemblyString, JoinsHostAndPath)
{
    const struct { std::string dst, src; uint16_t cap; std::string want; } rows[] = {
        {"h.example", "p/q", 256, "h.example/p/q"},    {"h.example/", "p", 256, "h.example/p"},
        {"h.example", "/p", 256, "h.example//p"},      {"h.example", "h.example/x", 256, "h.example/x"},
        {"h.example", "h", 256, "h.example/h"},        {"", "/p", 256, "/p"},
        {"", "abcdef", 4, "abcd"},                     {"abc", "xxxxxxxxxx", 8, "abc/xxxx"},
        {"abc", "x", 4, "abc/"},                       {"abcd", "x", 4, "abcd"},
        {"abc", "", 8, "abc"},
    };
    for (const auto &r : rows) {
        std::vector<char> dst(r.cap + 1u, '#');
        std::memcpy(dst.data(), r.dst.c_str(), r.dst.size() + 1);
        uint16_t len = static_cast<uint16_t>(r.dst.size());
        AssemblyString(dst.data(), &len, r.src.data(), static_cast<uint16_t>(r.src.size()), r.cap);
        EXPECT_EQ(std::string(dst.data(), len), r.want) << r.dst << " + " << r.src;
        EXPECT_EQ(dst[len], '\0');
    }
}

TEST(ProcLocation, StripsSchemeAndFinalSlash)
{
    const struct { std::string in, want; uint16_t len; } rows[] = {
        {"HTTP://WWW.EXAMPLE.COM/", "www.example.com", 23},
        {"https://A.example/Path", "a.example/path", 22},
        {"http://", "http:/", 7},    // too short to be taken for a scheme
        {"https://", "https:/", 8},  // the scheme would be all of it
        {"/", "", 1},
        {"x.example", "", 0},    // bad lengths: emptied, key kept
        {"x.example", "", 129},
    };
    for (const auto &r : rows) {
        char text[LOCATION_MAX_LEN + 2] = {0};
        std::memcpy(text, r.in.data(), r.in.size());
        uint16_t len = r.len;
        uint32_t key = 77;
        ProcLocation(text, LOCATION_MAX_LEN, &len, &key);
        EXPECT_EQ(std::string(text, len), r.want) << r.in;
        const bool bad = r.len == 0 || r.len > LOCATION_MAX_LEN;
        EXPECT_EQ(key, bad ? 77u : r.want.empty() ? 0u : Hash(r.want)) << r.in;
    }
}

class EventIntakeTest : public DaemonTest {
protected:
    void SetUp() override
    {
        DaemonTest::SetUp();
        InitThreads({0}, 0, LOG_LEVEL_TRACE);
    }
    STEventInfo Read(const Event &ev) { return Intake(0, 1, ev); }
};

TEST_F(EventIntakeTest, RequestTextsAreJoinedLowerCasedAndHashed)
{
    Event ev = Req("WWW.Example.COM", "/Index.HTML?A=B", 10 * kSec);
    ev.referHost = "Ref.Example";
    ev.referPath = "/Home";
    ev.contentType = "Text/HTML";
    const STEventInfo info = Read(ev);
    EXPECT_STREQ(info.acHost, "www.example.com");
    EXPECT_STREQ(info.acURL, "www.example.com//index.html?a=b");
    EXPECT_STREQ(info.acUri, "/Index.HTML?A=B");
    EXPECT_STREQ(info.acRefererUrl, "ref.example//home");
    EXPECT_STREQ(info.acContentType, "Text/HTML");
    EXPECT_EQ(Fields(info.uiHostHashKey, info.uiURLHashKey, info.uiRefererHashKey),
              Fields(Hash("www.example.com"), Hash(info.acURL), Hash("ref.example//home")));
    EXPECT_STREQ(Read(Req("", "/Only/Path", kSec)).acURL, "/only/path");
    EXPECT_STREQ(Read(Req("a.example", "a.example/x", kSec)).acURL, "a.example/x");

    EXPECT_EQ(Read(Rsp(200, 3 * kSec, 4 * kSec, "image/png")).uiReqMethod, METHOD_NONE);
    EXPECT_TRUE(LogContains("[TID=0][INFO][GetRspEventInfo]ContentTypeLen is 9,ContentType is [image/png].;"));
}

// Every string claims the largest length: under ASan any read past a capacity cut fails the test.
TEST_F(EventIntakeTest, LongStringsAreCutAtTheirCapacities)
{
    const std::string big(65535, 'A');
    Event ev = Req(big, big, kSec);
    ev.referHost = ev.referPath = ev.location = ev.contentType = big;
    ev.code = 302;
    const STEventInfo info = Read(ev);
    // The URL: cut host, '/', cut URI; the referer's path starts with the (not yet lower-cased) host.
    EXPECT_EQ(Fields(info.usHostLen, info.usUriLen, std::strlen(info.acURL), info.usURLLen, info.usRefererUrlLen,
                     info.usContentTypeLen, std::strlen(info.acLocation)),
              Fields(64, 128, 64 + 1 + 128, 64 + 1 + 128, 128, 64, 128));

    const std::string nul("ab\0CD", 5);  // bytes kept, hashing stops at the NUL
    const STEventInfo withNul = Read(Req(nul, "", kSec));
    EXPECT_EQ(std::string(withNul.acHost, withNul.usHostLen), nul);
    EXPECT_EQ(withNul.uiHostHashKey, 3105u);
}

TEST_F(EventIntakeTest, OnlyRedirectsTakeTheirLocation)
{
    const struct { uint32_t id, code; uint16_t wantLen; uint8_t wantHttps; } rows[] = {
        {WEBPAGE_EVENT_REQUEST, 302, 15, 1},           {WEBPAGE_EVENT_REQUEST, 200, 0, 0},
        {WEBPAGE_EVENT_REQUEST, 304, 0, 0},            {WEBPAGE_EVENT_REQUEST, 407, 15, 1},
        {WEBPAGE_EVENT_REQUEST, 0x10000 + 302, 15, 1},  // only the low 16 bits count
        {WEBPAGE_EVENT_RESPONSE, 301, 15, 0},           // responses never mark https
    };
    for (const auto &r : rows) {
        Event ev = r.id == WEBPAGE_EVENT_REQUEST ? Req("a.example", "/", kSec) : Rsp(r.code, kSec);
        ev.code = r.code;
        ev.location = "HTTPS://Go.Example/Path/";
        const STEventInfo info = Read(ev);
        EXPECT_EQ(Fields(info.usLocationLen, info.ucLocationHttps), Fields(r.wantLen, r.wantHttps)) << r.code;
        if (r.wantLen != 0) {
            EXPECT_STREQ(info.acLocation, "go.example/path");
            EXPECT_EQ(info.uiLocationHashKey, Hash("go.example/path"));
        }
    }
    EXPECT_TRUE(LogContains("[TID=255][TRACE][LocationIsHttps]Set page location flag is belongs to https;"));
    g_ausCauseCode407[0] = 0;  // no proxy code configured: 407 is a plain failure
    EXPECT_EQ(IsRedirect(407), 0u);
    EXPECT_EQ(IsRedirect(399) + IsRedirect(300) + IsRedirect(299) + IsRedirect(400), 2u);
}

}  // namespace
}  // namespace orvane_test
