#include <gtest/gtest.h>

#include "trace.hpp"

namespace replay {
namespace {

TEST(JsonlReader, LinesBecomeEventsAsWritten)
{
    const Trace t = ReadJsonl("t.jsonl", R"(# a comment, then a blank line

{"ev":"dns","host":"A.Example","begin":900,"delay_ms":25}
{"ev":"req","flow":"f1","begin":1000,"end":1100,"syn":950,"method":"POST","host":"a.example","uri":"/?ucid=1","refer_host":"r.example","refer_path":"p","status":302,"location":"https://a.example/n","ctype":"text/html","cport":40001,"sport":8080,"cip":"10.1.2.3","sip":"192.0.2.1","net":2,"fin":1,"page":"home"}
{"ev":"rsp","flow":"f1","begin":1200,"status":302}
{"ev":"req","flow":7,"begin":1300,"method":4,"host":"b.example"}
)");
    ASSERT_TRUE(t.skipped.empty()) << t.skipped[0].where << ": " << t.skipped[0].what;
    ASSERT_EQ(t.dns.size(), 1u);
    EXPECT_EQ(t.dns[0].host, "a.example");
    EXPECT_EQ(t.dns[0].delayMs, 25u);
    ASSERT_EQ(t.events.size(), 3u);
    const TraceEvent &req = t.events[0];
    EXPECT_EQ(req.origin, "line 4");
    EXPECT_EQ(req.uri, "/?ucid=1");  // strings are the daemon's, unchanged
    EXPECT_EQ(req.referHost, "r.example");
    EXPECT_EQ(req.referPath, "p");
    EXPECT_EQ(req.method, kMethodPost);
    EXPECT_EQ(req.status, 302u);
    EXPECT_EQ(req.begin, 1000u);
    EXPECT_EQ(req.end, 1100u);
    EXPECT_EQ(req.syn, 950u);
    EXPECT_EQ(req.clientPort, 40001);
    EXPECT_EQ(req.serverPort, 8080);
    EXPECT_EQ(req.clientIp, 0x0A010203u);
    EXPECT_EQ(req.serverIp, 0xC0000201u);
    EXPECT_EQ(req.network, 2u);
    EXPECT_EQ(req.finRst, 1);
    const TraceEvent &rsp = t.events[1];
    EXPECT_EQ(rsp.kind, EventKind::kResponse);
    EXPECT_EQ(rsp.end, rsp.begin);  // end defaults to begin
    EXPECT_EQ(rsp.serverPort, 80);
    EXPECT_EQ(t.events[2].flow, "7");
    EXPECT_EQ(t.events[2].method, 4u);
    EXPECT_EQ(t.transactions[0].truePage, "home");
}

TEST(JsonlReader, ResponsesAnswerTheirFlowsRequestsInOrder)
{
    const Trace t = ReadJsonl("t.jsonl", R"({"ev":"req","flow":"a","begin":1,"method":"GET","host":"h","uri":"1"}
{"ev":"req","flow":"a","begin":2,"method":"GET","host":"h","uri":"2"}
{"ev":"req","flow":"b","begin":3,"method":"GET","host":"h","uri":"3"}
{"ev":"rsp","flow":"a","begin":4,"end":9,"status":200}
{"ev":"rsp","flow":"a","begin":5,"status":404}
{"ev":"rsp","flow":"c","begin":6,"status":200}
)");
    ASSERT_EQ(t.transactions.size(), 4u);
    EXPECT_EQ(t.transactions[0].response, 3);
    EXPECT_EQ(t.transactions[0].end, 9u);
    EXPECT_EQ(t.transactions[1].response, 4);
    EXPECT_EQ(t.transactions[2].response, -1);
    EXPECT_EQ(t.transactions[3].request, -1);  // a response with no request of its own
    EXPECT_EQ(t.events[5].transaction, 3);
}

TEST(JsonlReader, BadLinesNameTheLineAndTheFault)
{
    const struct {
        const char *line;
        const char *message;
    } rows[] = {
        {R"({"ev":"req","begin":1,"method":"GET"})", "missing field \"flow\""},
        {R"({"ev":"req","flow":"f","method":"GET"})", "missing field \"begin\""},
        {R"({"ev":"req","flow":"f","begin":1})", "missing field \"method\""},
        {R"({"ev":"rsp","flow":"f","begin":1})", "missing field \"status\""},
        {R"({"ev":"req","flow":"f","begin":1,"method":"GET","hots":"x"})", "unknown field \"hots\""},
        {R"({"ev":"req","flow":"f","begin":1,"method":"GET","sport":70000})", "\"sport\" out of range (70000, allowed 0..65535)"},
        {R"({"ev":"req","flow":"f","begin":-1,"method":"GET"})", "\"begin\" out of range"},
        {R"({"ev":"req","flow":"f","begin":1.5,"method":"GET"})", "\"begin\" out of range"},
        {R"({"ev":"rsp","flow":"f","begin":1,"status":1000})", "\"status\" out of range"},
        {R"({"ev":"req","flow":"f","begin":5,"end":4,"method":"GET"})", "\"end\" lies before \"begin\""},
        {R"({"ev":"req","flow":"f","begin":1,"method":"GET","sip":"300.1.1.1"})", "\"sip\" is not an IPv4 address"},
        {R"({"ev":"req","flow":"f","begin":1,"method":"GET","host":5})", "\"host\" is not a string"},
        {R"({"ev":"dns","host":"h","begin":1})", "missing field \"delay_ms\""},
        {R"({"ev":"ping","flow":"f"})", "\"ev\" must be \"req\", \"rsp\" or \"dns\""},
        {R"({"flow":"f"})", "missing field \"ev\""},
        {R"([1,2])", "not a JSON object"},
        {R"({"ev":"req",)", "not valid JSON"},
    };
    for (const auto &row : rows) {
        const std::string text = std::string(R"({"ev":"req","flow":"ok","begin":1,"method":"GET"})") + "\n" + row.line + "\n";
        const Trace t = ReadJsonl("t.jsonl", text);
        ASSERT_EQ(t.skipped.size(), 1u) << row.line;
        EXPECT_EQ(t.skipped[0].where, "line 2") << row.line;
        EXPECT_NE(t.skipped[0].what.find(row.message), std::string::npos) << row.line << " -> " << t.skipped[0].what;
        EXPECT_EQ(t.events.size(), 1u) << row.line;
    }
}

TEST(JsonlReader, BundledSampleReadsCleanly)
{
    const Trace t = ReadJsonl("sample", SampleSession());
    EXPECT_TRUE(t.skipped.empty());
    EXPECT_GT(t.events.size(), 50u);
    for (const Transaction &tx : t.transactions) {
        EXPECT_GE(tx.request, 0) << tx.origin;
        EXPECT_GE(tx.response, 0) << tx.origin;
        EXPECT_FALSE(tx.truePage.empty()) << tx.origin;
    }
}

}  // namespace
}  // namespace replay

namespace replay {
namespace {

TEST(JsonlContract, EachBrokenRuleIsToldOnceAtItsFirstBreach)
{
    const std::string req = R"({"ev":"req","flow":"f","begin":1,"method":"GET","host":"a.example")";
    const std::string rsp = R"({"ev":"rsp","flow":"f","begin":2,"status":302,"location":"http://b.example/x","ctype":"text/html"})";
    const struct {
        std::string trace;
        std::vector<std::string> told;  // where and the start of what, in order
    } rows[] = {
        {req + R"(,"uri":"x","refer_path":"","status":302,"location":"http://b.example/x","ctype":"text/html"})" + "\n" + rsp,
         {}},
        {req + R"(,"uri":"/x"})" + "\n" + req + R"(,"uri":"/y"})", {"line 1: \"uri\" starts with '/'"}},
        {req + R"(,"refer_path":"/p"})", {"line 1: \"refer_path\" starts with '/'"}},
        {req + "}\n" + rsp + "\n" + req + "}\n" + rsp,
         {"line 1 (answered at line 2): a request without the status",
          "line 1 (answered at line 2): a request without the Location",
          "line 1 (answered at line 2): a request without the content type"}},
        // A 304 carries no Location that matters; the status is there.
        {req + R"(,"status":304})" + "\n" + R"({"ev":"rsp","flow":"f","begin":2,"status":304,"location":"x"})", {}},
        // A response on another flow answers nothing here.
        {req + R"(,"status":200})" + "\n" + R"({"ev":"rsp","flow":"g","begin":2,"status":200,"ctype":"text/css"})", {}},
    };
    for (const auto &row : rows) {
        const Trace t = ReadJsonl("t.jsonl", row.trace + "\n");
        ASSERT_TRUE(t.skipped.empty()) << row.trace << "\n" << t.skipped[0].what;
        std::vector<std::string> told;
        for (const Issue &w : t.warnings) {
            EXPECT_TRUE(w.warning);
            told.push_back(w.where + ": " + w.what);
        }
        ASSERT_EQ(told.size(), row.told.size()) << row.trace;
        for (size_t i = 0; i < told.size(); ++i) {
            EXPECT_EQ(told[i].rfind(row.told[i], 0), 0u) << told[i];
        }
    }
    EXPECT_TRUE(ReadJsonl("sample", SampleSession()).warnings.empty()) << "the bundled sample keeps the contract";
}

}  // namespace
}  // namespace replay
