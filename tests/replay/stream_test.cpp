// JSON Lines replayed as they are read: the same pages as the whole trace,
// out-of-order lines put back within the window, late ones fed and counted;
// page rows kept out of memory come back in ID order.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "../test_util.hpp"
#include "session.hpp"

namespace replay {
namespace {

SessionReport Stream(const std::string &text, bool keepEvents = true)
{
    SessionOptions options;
    options.keepEvents = keepEvents;
    std::istringstream in(text);
    return StreamJsonl("t.jsonl", in, options, [](const std::string &, const Issue &) {});
}

// A request at 1000 s + ms on its own flow.
std::string Req(int ms)
{
    static int flow = 0;
    return R"({"ev":"req","flow":)" + std::to_string(++flow) + R"(,"begin":)" +
           std::to_string(1000 * kNsPerSec + static_cast<uint64_t>(ms) * kNsPerMs) +
           R"(,"method":"GET","host":"a.example","uri":"x"})" + "\n";
}

std::string FedLines(const SessionReport &r)
{
    std::string lines;
    for (int i : r.result.fedOrder) {
        lines += (lines.empty() ? "" : " ") + r.trace->events[static_cast<size_t>(i)].origin.substr(5);
    }
    return lines;
}

TEST(Stream, SameResultsAsTheWholeTrace)
{
    const SessionReport streamed = Stream(SampleSession());
    const Trace whole = ReadJsonl("sample", SampleSession());
    const SessionResult expected = Replay(whole, {});
    const std::vector<PageResult> got = streamed.result.pages.All(), want = expected.pages.All();
    ASSERT_EQ(got.size(), want.size());
    auto fields = [](const PageResult &p) {
        return Fields(p.id, p.kind, p.requests, p.responses, p.closedAt, p.kqi.ullPageDelay, p.kqi.uiDnsDelay,
                      p.firstEvent);
    };
    for (size_t i = 0; i < want.size(); ++i) {
        EXPECT_EQ(fields(got[i]), fields(want[i])) << "page " << i;
    }
    ASSERT_EQ(streamed.result.outcomes.size(), expected.outcomes.size());
    for (size_t i = 0; i < expected.outcomes.size(); ++i) {
        EXPECT_EQ(streamed.result.outcomes[i].pageId, expected.outcomes[i].pageId) << whole.events[i].origin;
    }
    EXPECT_EQ(Fields(streamed.result.timerRuns, streamed.result.late), Fields(expected.timerRuns, 0));

    // Without kept events the counts and pages are the same.
    const SessionReport lean = Stream(SampleSession(), false);
    EXPECT_TRUE(lean.trace->events.empty());
    EXPECT_EQ(Fields(lean.result.events, lean.result.black, lean.result.pages.size()),
              Fields(whole.events.size(), streamed.result.black, want.size()));
}

TEST(Stream, ReorderWindow)
{
    // The begin of each line, and the lines in the order fed.
    const struct { const char *name; std::vector<int> ms; const char *fed; size_t late; } rows[] = {
        {"in order", {0, 100, 200}, "1 2 3", 0},
        {"shuffled within the window", {5000, 1000, 3000}, "2 3 1", 0},
        {"older line while the first is still held", {0, 9900, -500}, "3 1 2", 0},
        {"older than a line already fed", {0, 20000, -1000}, "1 2 3", 1},
        {"late line goes after those read before it", {0, 20000, 20001, -1000, 20002}, "1 2 3 4 5", 1},
    };
    for (const auto &row : rows) {
        std::string text;
        for (int ms : row.ms) {
            text += Req(ms);
        }
        const SessionReport r = Stream(text);
        EXPECT_EQ(FedLines(r), row.fed) << row.name;
        EXPECT_EQ(r.result.late, row.late) << row.name;
        EXPECT_EQ(r.result.events, row.ms.size()) << row.name << ": no line is dropped";
    }
    // The window holds a bounded number of lines: with every line at one
    // instant only the count lets lines go; the line after them is older
    // than one already fed.
    std::string text;
    for (size_t i = 0; i <= kReorderMaxLines; ++i) {
        text += Req(1000);
    }
    text += Req(0);
    const SessionReport r = Stream(text, false);
    EXPECT_EQ(Fields(r.result.late, r.result.events), Fields(1, kReorderMaxLines + 2));
}

TEST(PageRows, FinalRowsComeBackInIdOrder)
{
    // Enough rows to move from memory to the temporary file on the way,
    // closed out of order, and one ID too large to file.
    constexpr uint64_t kRows = 5000;
    constexpr uint64_t kHuge = 1ull << 40;
    auto host = [](uint64_t id) { return "h" + std::to_string(id) + std::string(id % 97, 'x'); };
    PageRows rows;
    for (uint64_t i = 0; i <= kRows; ++i) {
        const uint64_t id = i == kRows ? kHuge : (i * 7919) % kRows + 1;
        bool made = false;
        PageResult *row = rows.Open(id, &made);
        ASSERT_NE(row, nullptr);
        EXPECT_TRUE(made);
        row->host = host(id);
        row->requests = static_cast<int>(id % 1000);
        row->kqi.usCauseCode = 200;
        if (id % 3 != 0) {
            rows.Close(id);
        }
    }
    EXPECT_EQ(rows.Open(1), nullptr) << "a final row takes no more events";
    rows.CloseAll();
    const std::vector<PageResult> all = rows.All();
    ASSERT_EQ(all.size(), kRows + 1);
    for (size_t i = 0; i < all.size(); ++i) {
        const uint64_t id = i == kRows ? kHuge : i + 1;
        ASSERT_EQ(all[i].id, id);
        EXPECT_EQ(all[i].host, host(id));
        EXPECT_EQ(Fields(all[i].requests, all[i].kqi.usCauseCode), Fields(id % 1000, 200));
    }
}

}  // namespace
}  // namespace replay
