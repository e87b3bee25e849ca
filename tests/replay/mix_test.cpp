// The mixer: same seed, same session; every labelled transaction kept with
// its label; no flow shared between pages; overlap as asked.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "evaluate.hpp"
#include "mix.hpp"
#include "mix_curve.hpp"
#include "../test_util.hpp"

namespace replay {
namespace {

// pages: labels in order, each with `per` requests on the flows "f" and "g"
// (reused across pages, as a browser reuses connections), 800 ms apart.
Trace Recording(const std::string &file, const std::vector<std::string> &pages, int per)
{
    std::string text;
    uint64_t t = 5000 * kNsPerSec;
    for (const std::string &page : pages) {
        for (int i = 0; i < per; ++i, t += 800 * kNsPerMs) {
            const std::string flow = i % 2 == 0 ? "f" : "g";
            text += R"({"ev":"req","flow":")" + flow + R"(","begin":)" + std::to_string(t) +
                    R"(,"method":"GET","host":")" + file + R"(.example","uri":")" + page + std::to_string(i) +
                    R"(","status":200,"ctype":")" + (i == 0 ? "text/html" : "image/png") + R"(","page":")" + page +
                    "\"}\n";
            text += R"({"ev":"rsp","flow":")" + flow + R"(","begin":)" + std::to_string(t + 20 * kNsPerMs) +
                    R"(,"end":)" + std::to_string(t + 50 * kNsPerMs) + R"(,"status":200})" + "\n";
        }
        t += 30 * kNsPerSec;
    }
    return ReadJsonl("dir/" + file + ".jsonl", text);
}

TEST(Mix, SeededLabelledFlowsApart)
{
    const Trace a = Recording("a", {"p1", "p2"}, 4), b = Recording("b", {"q"}, 6);
    const std::vector<const Trace *> both{&a, &b};
    MixOptions options;
    options.overlap = 1.0;
    options.backgroundPerMinute = 120.0;
    options.seed = 3;
    auto shape = [](const Trace &t) {
        std::vector<std::pair<uint64_t, std::string>> s;
        for (const TraceEvent &ev : t.events) {
            s.emplace_back(ev.begin, ev.flow);
        }
        return s;
    };
    const Trace m1 = Mix(both, options);
    EXPECT_EQ(shape(Mix(both, options)), shape(m1));
    options.seed = 4;
    EXPECT_NE(shape(Mix(both, options)), shape(m1)) << "another seed, another mix";

    std::map<std::string, int> perLabel;
    std::map<std::string, std::set<std::string>> labelsOnFlow;
    size_t background = 0;
    for (const Transaction &tx : m1.transactions) {
        const TraceEvent &req = m1.events[static_cast<size_t>(tx.request)];
        ASSERT_EQ(req.transaction, &tx - m1.transactions.data());
        ASSERT_GE(tx.response, 0);
        EXPECT_EQ(m1.events[static_cast<size_t>(tx.response)].flow, req.flow);
        if (tx.background) {
            ++background;
            EXPECT_TRUE(tx.truePage.empty());
            EXPECT_TRUE(req.referHost.empty() && req.referPath.empty());
            EXPECT_EQ(req.contentType.find("html"), std::string::npos) << "no documents in the background";
            labelsOnFlow[req.flow].insert("background " + req.flow);
            continue;
        }
        ++perLabel[tx.truePage];
        labelsOnFlow[req.flow].insert(tx.truePage);
        // The page's own host: labels stay with their transactions.
        EXPECT_EQ(req.host.substr(0, 1), tx.truePage.substr(0, 1));
    }
    EXPECT_EQ(perLabel, (std::map<std::string, int>{{"a.jsonl#p1", 4}, {"a.jsonl#p2", 4}, {"b.jsonl#q", 6}}));
    for (const auto &flow : labelsOnFlow) {
        EXPECT_EQ(flow.second.size(), 1u) << flow.first << " is shared";
    }
    EXPECT_GT(background, 0u);
    EXPECT_GT(OverlappingShare(m1), 0.0);
    // Background comes from recordings whose pages are not loading then.
    std::map<std::string, std::pair<uint64_t, uint64_t>> spans;
    for (const Transaction &tx : m1.transactions) {
        if (!tx.background) {
            auto it = spans.emplace(tx.truePage, std::make_pair(tx.begin, tx.end)).first;
            it->second = {std::min(it->second.first, tx.begin), std::max(it->second.second, tx.end)};
        }
    }
    for (const Transaction &tx : m1.transactions) {
        for (const auto &span : spans) {
            if (tx.background && m1.events[static_cast<size_t>(tx.request)].host[0] == span.first[0]) {
                EXPECT_FALSE(span.second.first <= tx.begin && tx.begin <= span.second.second) << span.first;
            }
        }
    }

    // Overlap 0: every page after the previous one ended, 0.5 to 5 s later.
    options.overlap = 0.0;
    EXPECT_DOUBLE_EQ(OverlappingShare(Mix(both, options)), 0.0);
}

TEST(Mix, CurveStartsFromTheRecordingsApart)
{
    const Trace a = Recording("a", {"p1", "p2"}, 4), b = Recording("b", {"q"}, 6);
    MixOptions options;
    options.backgroundPerMinute = 0.0;
    const std::vector<CurvePoint> points = MixCurve({&a, &b}, {0.0, 1.0}, 2, options, ReplayOptions{}, 2);
    ASSERT_EQ(points.size(), 3u);
    EXPECT_LT(points[0].overlap, 0.0);
    EXPECT_EQ(Fields(points[0].eval.truePages, points[0].mixes, points[2].mixes, points[2].eval.truePages),
              Fields(3, 2, 2, 6));
    EXPECT_DOUBLE_EQ(points[0].eval.F1(), 1.0) << "30 s apart, each page is found";
    EXPECT_DOUBLE_EQ(points[1].overlapping, 0.0);
    EXPECT_GT(points[2].overlapping, 0.0);
}

}  // namespace
}  // namespace replay
