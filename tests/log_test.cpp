// Log filtering, cut points and line format; the bounded copy wrappers.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "orvane_log.h"

namespace {

std::vector<std::pair<uint32_t, std::string>> g_lines;

uint32_t Collect(uint32_t uiLevel, const char *pcLine)
{
    g_lines.emplace_back(uiLevel, pcLine);
    return 0;
}

class LogTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_lines.clear();
        g_enSDKLogLevel = LOG_LEVEL_TRACE;
        ASSERT_EQ(API_InitSDKLog(Collect), 0u);
    }
    void TearDown() override
    {
        g_funcDaemonSDKLog = nullptr;
        g_enSDKLogLevel = LOG_LEVEL_TRACE;
    }
};

TEST_F(LogTest, ThresholdFiltersByLevel)
{
    const struct { uint32_t threshold, level; bool produced; } rows[] = {
        {0, LOG_LEVEL_TRACE, true}, {1, LOG_LEVEL_TRACE, false}, {1, LOG_LEVEL_INFO, true},
        {1, LOG_LEVEL_ERROR, true}, {2, LOG_LEVEL_INFO, false},  {2, LOG_LEVEL_ERROR, true},
        {3, LOG_LEVEL_ERROR, false}, {0, 3, false},               {0, 0xFFFFFFFFu, false},
    };
    for (const auto &r : rows) {
        g_lines.clear();
        g_enSDKLogLevel = r.threshold;
        SDKLog(1, r.level, "a.c", "F", 2, "m");
        EXPECT_EQ(g_lines.size(), r.produced ? 1u : 0u) << "threshold " << r.threshold << " level " << r.level;
    }
    g_lines.clear();
    SDKLog(1, LOG_LEVEL_ERROR, "a.c", "F", 2, nullptr);
    EXPECT_EQ(API_InitSDKLog(nullptr), 1u);  // keeps the callback it had
    EXPECT_EQ(g_funcDaemonSDKLog, &Collect);
    g_funcDaemonSDKLog = nullptr;
    SDKLog(1, LOG_LEVEL_ERROR, "a.c", "F", 2, "m");  // dropped, and nothing fails
    EXPECT_TRUE(g_lines.empty());
}

TEST_F(LogTest, LineFormatThreadNumberReductionAndCuts)
{
    SDKLog(3, LOG_LEVEL_INFO, "src\\webpage.c", "GetReqEventInfo", 1170, "abc");
    SDKLog(255, LOG_LEVEL_ERROR, "x.c", "F", 1, "m");
    SDKLog(256, LOG_LEVEL_TRACE, "x.c", "F", 1, "m");
    SDKLog(272, LOG_LEVEL_TRACE, "x.c", "F", 1, "m");
    // The message is cut at 511 characters, the whole line at 611.
    const std::string msg(600, 'm'), func(300, 'f');
    SDKLog(0, LOG_LEVEL_ERROR, "f.c", "F", 7, "%s", msg.c_str());
    SDKLog(0, LOG_LEVEL_ERROR, "f.c", func.c_str(), 7, "%s", msg.c_str());
    ASSERT_EQ(g_lines.size(), 6u);
    EXPECT_EQ(g_lines[0].first, (uint32_t)LOG_LEVEL_INFO);
    EXPECT_EQ((std::vector<std::string>{g_lines[0].second, g_lines[1].second, g_lines[2].second, g_lines[3].second,
                                        g_lines[4].second}),
              (std::vector<std::string>{"[TID=3][INFO][GetReqEventInfo]abc;webpage.c:1170", "[TID=255][ERROR][F]m;x.c:1",
                                        "[TID=0][TRACE][F]m;x.c:1", "[TID=16][TRACE][F]m;x.c:1",
                                        "[TID=0][ERROR][F]" + std::string(511, 'm') + ";f.c:7"}));
    EXPECT_EQ(g_lines[5].second.size(), 611u);
}

TEST_F(LogTest, FileNameTakesTailAfterLastBackslash)
{
    const struct { const char *path, *expect; } rows[] = {
        {"dir\\sub\\webpage.c", "webpage.c"},
        {"/usr/src/webpage.c", "/usr/src/webpage.c"},  // forward slashes are not separators
        {"0123456789012345678901234567890123456789", "89012345678901234567890123456789"},
        {"dir\\", ""},
        {"abcdefghijklmnopqrstuvwxyz0123456", "bcdefghijklmnopqrstuvwxyz0123456"},  // 33 chars
    };
    for (const auto &r : rows) {
        char out[33] = {0};
        GetFileName(r.path, out, sizeof(out));
        EXPECT_STREQ(out, r.expect) << r.path;
    }
    char out[8] = "keep";
    GetFileName(nullptr, out, sizeof(out));
    EXPECT_STREQ(out, "keep");
}

TEST_F(LogTest, BoundedCopiesActOnTheSmallerOfCapacityAndCount)
{
    char src[32];
    std::memset(src, 'S', sizeof(src));
    const struct { uint32_t cap, count, touched; } rows[] = {{10, 20, 10}, {20, 10, 10}, {0, 5, 0}};
    for (const auto &r : rows) {
        char dst[32];
        std::memset(dst, '.', sizeof(dst));
        EXPECT_EQ(SF_MEMCPY_Ex(dst, src, r.cap, r.count, "f", "g", 1), dst);
        EXPECT_EQ(std::string(dst, sizeof(dst)).find('.'), r.touched);
        std::memset(dst, '.', sizeof(dst));
        SF_MEMSET_Ex(dst, 0x141, r.cap, r.count, "f", "g", 1);
        EXPECT_EQ(std::string(dst, sizeof(dst)).find('.'), r.touched);
        if (r.touched != 0) {
            EXPECT_EQ(dst[0], 'A');  // low byte of the fill value
        }
    }
    char overlap[] = "abcdef";
    SF_MEMMOVE_Ex(overlap + 1, overlap, 6, 4, "f", "g", 1);
    EXPECT_STREQ(overlap, "aabcdf");

    char cat[16] = "ab";
    SF_STRNCAT_Ex(cat, "cdefgh", sizeof(cat), 3, "f", "g", 1);
    EXPECT_STREQ(cat, "abcde");
    for (auto fn : {SF_STRCPY_Ex, SF_STRNCPY_Ex, SF_STRCAT_Ex}) {
        char d[8] = "keep";
        EXPECT_EQ(fn(d, "other", sizeof(d), 5, "f", "g", 1), d);
        EXPECT_STREQ(d, "keep");
    }
}

}  // namespace
