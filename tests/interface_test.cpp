// Context lifecycle, argument codes and the shared configuration.
#include <cstring>

#include "daemon_fixture.hpp"

namespace orvane_test {
namespace {

class InterfaceTest : public DaemonTest {};

TEST_F(InterfaceTest, BadArgumentsAnswerOneAndThreadNumbersUseTheLowByte)
{
    STWebPageConfig cfg{LOG_LEVEL_ERROR, 0, 0};
    uint32_t size = 0;
    STFlowInfo flow{};
    STWebPageEvent ev{};
    uint64_t id = 9;
    for (uint32_t bad : {16u, 272u, 0xFFu}) {
        EXPECT_EQ(API_InitWebPage(bad, &cfg, &size, CollectPageEnd, AnswerDns), 1u) << bad;
        EXPECT_EQ(API_InitConfig(bad, &cfg), 1u) << bad;
        EXPECT_EQ(API_TestConfig(bad, 1), 1u) << bad;
        EXPECT_EQ(API_InitWebPageTimer(bad, StartTimer, StopTimer), 1u) << bad;
        EXPECT_EQ(API_AssociateWebPage(bad, &flow, &ev, &id), 1u) << bad;
    }
    EXPECT_EQ(Fields(API_InitWebPage(0, nullptr, &size, CollectPageEnd, AnswerDns),
                     API_InitWebPage(0, &cfg, nullptr, CollectPageEnd, AnswerDns),
                     API_InitWebPage(0, &cfg, &size, nullptr, AnswerDns),
                     API_InitWebPage(0, &cfg, &size, CollectPageEnd, nullptr), API_InitConfig(0, nullptr)),
              Fields(1, 1, 1, 1, 1));
    EXPECT_EQ(g_ausCauseCode407[0], 0u);  // a failed call changes no shared setting
    EXPECT_EQ(API_InitWebPage(256, &cfg, &size, CollectPageEnd, AnswerDns), 0u);  // thread 0
    EXPECT_EQ(API_InitWebPage(0, &cfg, &size, CollectPageEnd, AnswerDns), 2u);
}

TEST_F(InterfaceTest, ThreadZeroWritesTheSharedConfigurationAndEveryInitClearsTheTimer)
{
    STWebPageConfig cfg{LOG_LEVEL_ERROR, 30, 0};
    uint32_t size = 0;
    ASSERT_EQ(API_InitWebPageTimer(0, StartTimer, StopTimer), 0u);
    ASSERT_EQ(API_InitWebPage(3, &cfg, &size, CollectPageEnd, AnswerDns), 0u);
    EXPECT_TRUE(g_stWebPageTimer.pfStartPageTimer == nullptr && g_stWebPageTimer.pfStopPageTimer == nullptr &&
                g_PageEndFunc == nullptr && g_auiTimeThreshold[0] == 0);
    API_TestConfig(0, 1);
    ASSERT_EQ(API_InitWebPage(0, &cfg, &size, CollectPageEnd, AnswerDns), 0u);
    EXPECT_EQ(g_PageEndFunc, &CollectPageEnd);
    EXPECT_EQ(g_DNSQueryFunc, &AnswerDns);
    EXPECT_EQ(Fields(g_ausCauseCode407[0], g_stTestConfig, g_stWebPageConfig.usPageTimeOut, g_enSDKLogLevel),
              Fields(407, 0, 30, LOG_LEVEL_ERROR));
    // The window tests read only some network columns of these defaults.
    const uint32_t expected[24] = {2000, 2000, 2000, 2000, 3000, 3000, 3000, 3000, 3500,  3500,  3500,  3500,
                                   15000, 15000, 15000, 15000, 2000, 5000, 3000, 2000, 2000, 2000, 2000, 2000};
    EXPECT_EQ(std::memcmp(g_auiTimeThreshold, expected, sizeof(expected)), 0);
    EXPECT_EQ(Fields(g_stPageConfig.uiReserved1, g_stPageConfig.uiReserved2), Fields(120, 1024));  // the daemon's

    STWebPageConfig later{LOG_LEVEL_INFO, 10, 0};
    EXPECT_EQ(API_InitConfig(5, &later), 0u);  // needs no context
    EXPECT_EQ(Fields(g_stWebPageConfig.usPageTimeOut, g_enSDKLogLevel), Fields(10, LOG_LEVEL_INFO));
}

TEST_F(InterfaceTest, AssociateChecksArgumentsContextAndEventKind)
{
    InitThreads({0});
    STFlowInfo flow{};
    STWebPageEvent raw = Req("www.example.com", "/", kSec).Build();
    uint64_t id = 77;
    EXPECT_EQ(Fields(API_AssociateWebPage(0, nullptr, &raw, &id), API_AssociateWebPage(0, &flow, nullptr, &id),
                     API_AssociateWebPage(0, &flow, &raw, nullptr), API_AssociateWebPage(4, &flow, &raw, &id)),
              Fields(1, 1, 1, 2));
    raw.usEventID = 2;
    EXPECT_EQ(API_AssociateWebPage(0, &flow, &raw, &id), 3u);
    EXPECT_EQ(Fields(id, OpenPages(0)), Fields(0, 0));
    EXPECT_TRUE(LogContains("[ERROR][API_AssociateWebPage]Init error."));
}

TEST_F(InterfaceTest, ReleaseAndPrintOnMissingContextsOnlyLog)
{
    InitThreads({0}, 0, LOG_LEVEL_TRACE);
    Sinks().logs.clear();
    API_ReleaseWebPage(16);
    API_ReleaseWebPageNode(9, 1);
    API_PrintWebPageLog(9, 1);
    EXPECT_TRUE(LogContains("ThreadID error."));
    EXPECT_TRUE(LogContains("g_pstWebPage[ucThreadID] is NULL."));
}

}  // namespace
}  // namespace orvane_test
