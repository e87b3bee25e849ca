#include <gtest/gtest.h>

#include "../test_util.hpp"
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
    // Strings are the daemon's, unchanged.
    EXPECT_EQ((std::vector<std::string>{req.origin, req.uri, req.referHost, req.referPath, req.location,
                                        req.contentType, t.events[2].flow, t.transactions[0].truePage}),
              (std::vector<std::string>{"line 4", "/?ucid=1", "r.example", "p", "https://a.example/n", "text/html",
                                        "7", "home"}));
    EXPECT_EQ(Fields(req.method, req.status, req.begin, req.end, req.syn, req.clientPort, req.serverPort,
                     req.clientIp, req.serverIp, req.network, req.finRst, t.events[2].method),
              Fields(kMethodPost, 302, 1000, 1100, 950, 40001, 8080, 0x0A010203u, 0xC0000201u, 2, 1, 4));
    const TraceEvent &rsp = t.events[1];  // end defaults to begin, the port to 80
    EXPECT_EQ(Fields(rsp.kind, rsp.end, rsp.serverPort), Fields(EventKind::kResponse, rsp.begin, 80));
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
    ASSERT_EQ(t.transactions.size(), 4u);  // the last: a response with no request of its own
    EXPECT_EQ(Fields(t.transactions[0].response, t.transactions[0].end, t.transactions[1].response,
                     t.transactions[2].response, t.transactions[3].request, t.events[5].transaction),
              Fields(3, 9, 4, -1, -1, 3));
}

TEST(JsonlReader, BadLinesNameTheLineAndTheFault)
{
    const struct { const char *line; const char *message; } rows[] = {
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

TEST(JsonlContract, EachBrokenRuleIsToldOnceAtItsFirstBreach)
{
    const std::string req = R"({"ev":"req","flow":"f","begin":1,"method":"GET","host":"a.example")";
    const std::string rsp = R"({"ev":"rsp","flow":"f","begin":2,"status":302,"location":"http://b.example/x","ctype":"text/html"})";
    // What is told: where and the start of what, in order.
    const struct { std::string trace; std::vector<std::string> told; } rows[] = {
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
    // The bundled sample reads cleanly, keeps the contract, every transaction whole and labelled.
    const Trace sample = ReadJsonl("sample", SampleSession());
    EXPECT_TRUE(sample.skipped.empty() && sample.warnings.empty());
    EXPECT_GT(sample.events.size(), 50u);
    for (const Transaction &tx : sample.transactions) {
        EXPECT_TRUE(tx.request >= 0 && tx.response >= 0 && !tx.truePage.empty()) << tx.origin;
    }
}

}  // namespace
}  // namespace replay
