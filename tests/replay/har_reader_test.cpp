#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "../test_util.hpp"
#include "trace.hpp"

namespace replay {
namespace {

using nlohmann::json;

constexpr uint64_t kStart = 1488362400000000000ull;  // 2017-03-01T10:00:00Z
constexpr uint64_t kMs = kNsPerMs;

json Entry(const std::string &url, const std::string &started = "2017-03-01T10:00:00.000Z")
{
    return json{{"startedDateTime", started},
                {"pageref", "page_1"},
                {"request", {{"method", "GET"}, {"url", url}, {"headers", json::array()}}},
                {"response", {{"status", 200}, {"headers", json::array()}, {"content", {{"mimeType", "text/html"}}}}},
                {"timings", {{"blocked", 1}, {"dns", 10}, {"connect", 20}, {"send", 1}, {"wait", 30}, {"receive", 5}}}};
}

Trace Read(const json &entries, ReadOptions options = {})
{
    return ReadHar("t.har", json{{"log", {{"version", "1.2"}, {"entries", entries}}}}.dump(), options);
}

TEST(HarReader, EntryBecomesRequestAndResponseEvents)
{
    json e = Entry("https://shop.example/x/y?q=1#top");
    e["request"]["method"] = "POST";
    e["request"]["headers"] = json::array({{{"name", "referer"}, {"value", "https://ref.example:8443/list/?p=2"}}});
    e["response"]["status"] = 302;
    e["response"]["headers"] = json::array({{{"name", "Location"}, {"value", "https://shop.example/z"}},
                                            {{"name", "Content-Type"}, {"value", "text/html; charset=utf-8"}}});
    e["serverIPAddress"] = "192.0.2.10";
    e["connection"] = "77";
    const Trace t = Read(json::array({e}));
    ASSERT_TRUE(t.fatal.empty()) << t.fatal;
    ASSERT_EQ(t.events.size(), 2u);
    const TraceEvent &req = t.events[0], &rsp = t.events[1];
    ASSERT_EQ(t.dns.size(), 1u);
    ASSERT_EQ(t.transactions.size(), 1u);
    // The request carries its answer's status, Location and content type.
    EXPECT_EQ((std::vector<std::string>{req.host, req.uri, req.referHost, req.referPath, req.location, req.contentType,
                                        rsp.host, rsp.flow, t.dns[0].host, t.transactions[0].truePage}),
              (std::vector<std::string>{"shop.example", "x/y?q=1", "ref.example:8443", "list/?p=2",
                                        "https://shop.example/z", "text/html; charset=utf-8", "", req.flow,
                                        "shop.example", "page_1"}));
    // SYN after blocked and dns, the request after the connect.
    EXPECT_EQ(Fields(req.kind, req.method, req.status, req.syn, req.begin, req.end, req.serverPort, req.serverIp),
              Fields(EventKind::kRequest, kMethodPost, 302, kStart + 11 * kMs, kStart + 31 * kMs, kStart + 32 * kMs,
                     443, 0xC000020Au));
    EXPECT_EQ(Fields(rsp.kind, rsp.status, rsp.begin, rsp.end, t.transactions[0].end),
              Fields(EventKind::kResponse, 302, kStart + 62 * kMs, kStart + 67 * kMs, rsp.end));
    EXPECT_EQ(Fields(t.dns[0].begin, t.dns[0].delayMs), Fields(kStart + 1 * kMs, 10));
}

TEST(HarReader, MethodCodesAndKeptSlash)
{
    const struct { const char *method; uint32_t code; } rows[] = {{"GET", kMethodGet}, {"POST", kMethodPost}, {"PUT", kMethodOther}, {"OPTIONS", kMethodOther}};
    for (const auto &row : rows) {
        json e = Entry("http://a.example/p");
        e["request"]["method"] = row.method;
        EXPECT_EQ(Read(json::array({e})).events.at(0).method, row.code) << row.method;
    }
    ReadOptions keep;
    keep.keepSlash = true;
    EXPECT_EQ(Read(json::array({Entry("http://a.example/p")}), keep).events.at(0).uri, "/p");
}

// Flow keys decide which events share a flow area; SYN times follow the
// connection that an entry reuses.
TEST(HarReader, FlowsFromConnectionSocketOrHostAndPort)
{
    json first = Entry("https://a.example/1", "2017-03-01T10:00:01.000Z");
    first["connection"] = "9";
    json reused = Entry("https://a.example/2", "2017-03-01T10:00:02.000Z");
    reused["connection"] = 9;
    reused["timings"]["connect"] = -1;
    reused["timings"]["dns"] = -1;
    json portOnlyA = Entry("https://b.example/1");
    portOnlyA["connection"] = "443";  // some recorders write the port there
    json portOnlyB = Entry("https://b.example/2");
    portOnlyB["connection"] = "443";
    json socket = Entry("https://b.example/3");
    socket["_socket"] = 12;
    // Listed out of order: the reader works in time order.
    const Trace t = Read(json::array({reused, first, portOnlyA, portOnlyB, socket}));
    ASSERT_EQ(t.transactions.size(), 5u);
    auto flowOf = [&](const std::string &url) -> const TraceEvent & {
        for (const Transaction &tx : t.transactions) {
            if (tx.url == url) {
                return t.events[static_cast<size_t>(tx.request)];
            }
        }
        throw std::runtime_error("no " + url);
    };
    EXPECT_EQ(flowOf("a.example/1").flow, flowOf("a.example/2").flow);
    EXPECT_EQ(flowOf("a.example/2").syn, flowOf("a.example/1").syn);
    EXPECT_EQ(flowOf("a.example/2").clientPort, flowOf("a.example/1").clientPort);
    EXPECT_EQ(flowOf("b.example/1").flow, flowOf("b.example/2").flow);
    EXPECT_NE(flowOf("b.example/1").flow, flowOf("b.example/3").flow);
    EXPECT_NE(flowOf("a.example/1").flow, flowOf("b.example/1").flow);
}

TEST(HarReader, CacheHitsAndNonHttpAreCountedNotReplayed)
{
    json cached = Entry("http://a.example/c.js");
    cached["response"]["_transferSize"] = 0;
    json dataUrl = Entry("data:image/png;base64,AAAA");
    json failed = Entry("http://a.example/blocked");
    failed["response"]["status"] = 0;
    json cutShort = Entry("http://a.example/aborted");
    cutShort["response"]["status"] = -2;  // a recorder's "no answer"
    const Trace t = Read(json::array({cached, dataUrl, failed, cutShort}));
    EXPECT_EQ(Fields(t.cacheHits, t.notHttp, t.skipped.size()), Fields(1, 1, 0));
    ASSERT_EQ(t.events.size(), 2u);  // unanswered requests have no response event
    for (const TraceEvent &ev : t.events) {
        EXPECT_EQ(Fields(ev.kind, ev.status), Fields(EventKind::kRequest, 0));
    }

    ReadOptions withCache;
    withCache.withCache = true;
    EXPECT_EQ(Read(json::array({cached}), withCache).events.size(), 2u);
}

TEST(HarReader, BadEntriesAreSkippedWithTheirPlaceAndReason)
{
    const struct { const char *what; void (*spoil)(json &); const char *message; } rows[] = {
        {"no start", [](json &e) { e.erase("startedDateTime"); }, "missing field entry.startedDateTime"},
        {"bad start", [](json &e) { e["startedDateTime"] = "yesterday"; }, "startedDateTime is not an ISO 8601 time"},
        {"no url", [](json &e) { e["request"].erase("url"); }, "missing field request.url"},
        {"relative url", [](json &e) { e["request"]["url"] = "/index.html"; }, "request.url is not an absolute URL"},
        {"no response", [](json &e) { e.erase("response"); }, "missing field entry.response"},
        {"status text", [](json &e) { e["response"]["status"] = "200"; }, "response.status out of range"},
        {"status big", [](json &e) { e["response"]["status"] = 1000; }, "response.status out of range (1000)"},
        {"no send", [](json &e) { e["timings"].erase("send"); }, "missing field timings.send"},
        {"negative wait", [](json &e) { e["timings"]["wait"] = -5; }, "timings.wait out of range (-5)"},
        {"not an object", [](json &e) { e = 42; }, "not an object"},
    };
    for (const auto &row : rows) {
        json bad = Entry("http://a.example/bad");
        row.spoil(bad);
        const Trace t = Read(json::array({Entry("http://a.example/ok"), bad}));
        ASSERT_EQ(t.skipped.size(), 1u) << row.what;
        EXPECT_EQ(t.skipped[0].where, "log.entries[1]") << row.what;
        EXPECT_NE(t.skipped[0].what.find(row.message), std::string::npos) << row.what << ": " << t.skipped[0].what;
        EXPECT_EQ(t.transactions.size(), 1u) << row.what;  // the good entry still plays
    }
}

TEST(HarReader, UnreadableFilesAreFatal)
{
    EXPECT_NE(ReadHar("t.har", "{\"log\": [1, 2,", {}).fatal.find("not valid JSON"), std::string::npos);
    EXPECT_NE(ReadHar("t.har", "{\"log\": \n  {\"entries\": x}}", {}).fatal.find("line 2"), std::string::npos);
    EXPECT_NE(ReadHar("t.har", "{\"entries\": []}", {}).fatal.find("no \"log\" object"), std::string::npos);
    EXPECT_NE(ReadHar("t.har", "{\"log\": {}}", {}).fatal.find("no log.entries"), std::string::npos);
    // Found by har_fuzz: a number beyond a double is refused like a syntax error.
    EXPECT_NE(ReadHar("t.har", "{\"log\": {\"entries\": [1e999]}}", {}).fatal.find("number overflow"),
              std::string::npos);
}

}  // namespace
}  // namespace replay
