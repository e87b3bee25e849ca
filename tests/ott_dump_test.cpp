// OTT diagnostic dumps: the lines operators grep for, their count and level.
#include "ott_fixture.hpp"

namespace ott_test {
namespace {

bool Has(size_t i, const std::string &text)
{
    return i < Lines().size() && Lines()[i].find(text) != std::string::npos;
}

TEST_F(OttTest, InputDumpWritesOneBlockPerTransaction)
{
    STOttTransInput in{};
    in.astTrans[0] = Trans(1, 2, 3);
    in.astTrans[1] = Trans(4, 5, 6);
    for (uint8_t num : {1, 2}) {
        Lines().clear();
        in.ucTransNum = num;
        PrintInputTransInfo(&in);
        ASSERT_EQ(Lines().size(), num == 1 ? 8u : 15u);
        EXPECT_TRUE(Has(0, "[PrintInputTransInfo]=============begin outputresult================;"));
        EXPECT_TRUE(Has(Lines().size() - 1, "]=============end   outputresult================;"));
    }
    EXPECT_TRUE(Has(9, "BeginTime:4;"));
}

TEST_F(OttTest, BannersAndPoolFillFollowTheirLevels)
{
    PrintFlowTrans(nullptr);
    PrintSessionTrans(&session_);
    ASSERT_EQ(Lines().size(), 7u);
    EXPECT_TRUE(Has(0, "]================begin flow Trans==================;"));
    EXPECT_TRUE(Has(3, "]+++++++++++++end up session Trans+++++++++\n;"));

    Place(session_.stUpTransList, {{1, 2, 3}});
    g_enSDKLogLevel = LOG_LEVEL_ERROR;
    Lines().clear();
    PrintMemPool(&session_, pool_);
    PrintSessionTrans(&session_);
    ASSERT_EQ(Lines().size(), 3u);
    EXPECT_TRUE(Has(0, "[TID=0][ERROR][PrintMemPool]   session up list lenth  :1;") &&
                Has(1, "]   session dw list lenth  :0;") && Has(2, "]   free Node in MemPool   :15;"));
}

}  // namespace
}  // namespace ott_test
