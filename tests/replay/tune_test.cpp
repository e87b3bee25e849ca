// The threshold search on recordings with a known best answer, and the
// configuration file it writes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "daemon_config.hpp"
#include "tune.hpp"
#include "../test_util.hpp"

namespace replay {
namespace {

// Two pages on one host, the second opened `gapMs` after the first ended:
// inside the default host window (3 s), so the library merges them.
Trace TwoVisits(const std::string &name, uint64_t gapMs)
{
    std::string text;
    uint64_t t = 7000 * kNsPerSec;
    for (const char *page : {"first", "second"}) {
        for (int i = 0; i < 3; ++i, t += 100 * kNsPerMs) {
            text += R"({"ev":"req","flow":"f)" + std::to_string(i) + R"(","begin":)" + std::to_string(t) +
                    R"(,"method":"GET","host":"www.)" + name + R"(.example","uri":")" + page + std::to_string(i) +
                    R"(","status":200,"ctype":")" + (i == 0 ? "text/html" : "text/css") + R"(","page":")" + page +
                    "\"}\n";
            text += R"({"ev":"rsp","flow":"f)" + std::to_string(i) + R"(","begin":)" +
                    std::to_string(t + 20 * kNsPerMs) + R"(,"end":)" + std::to_string(t + 40 * kNsPerMs) +
                    R"(,"status":200})" + "\n";
        }
        t += gapMs * kNsPerMs;
    }
    return ReadJsonl(name, text);
}

TEST(Tune, FindsTheHostWindowThatKeepsVisitsApart)
{
    std::vector<Trace> traces;
    std::vector<const Trace *> corpus;
    for (int i = 0; i < 4; ++i) {
        traces.push_back(TwoVisits("site" + std::to_string(i), 2400 + 100 * i));
    }
    for (const Trace &t : traces) {
        corpus.push_back(&t);
    }
    TuneOptions options;
    options.folds = 2;
    options.jobs = 2;
    const TuneResult r = Tune(corpus, options);
    EXPECT_EQ(r.columns, std::vector<size_t>{0});
    EXPECT_EQ(r.start[4], 3000u) << "starts from the library's defaults";
    EXPECT_LT(r.table[4], 2400u) << "host window below the smallest gap";
    EXPECT_EQ(r.table[5], r.start[5]) << "only network type 0 is searched";
    ASSERT_EQ(r.folds.size(), 2u);
    EXPECT_EQ(Fields(r.folds[0].heldOut.size(), r.heldOutBefore.merged, r.heldOutAfter.merged), Fields(2, 4, 0));
    EXPECT_LT(r.heldOutBeforeMean, 1.0);
    EXPECT_DOUBLE_EQ(r.heldOutAfterMean, 1.0) << "tuned on two files, right on the other two";
    EXPECT_GT(r.evaluations, 0u);

    // The table goes to a file that --config reads back as it was.
    DaemonConfig written;
    written.thresholdsMs = r.table;
    written.cause407 = 0;
    DaemonConfig read;
    ASSERT_EQ(ParseDaemonConfig(DaemonConfigJson(written).dump(), &read), "");
    EXPECT_TRUE(read.thresholdsMs == written.thresholdsMs && read.cause407 == 0 && !read.pageTimeOutSec);
}

}  // namespace
}  // namespace replay
