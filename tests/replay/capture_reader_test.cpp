// Packet captures to the daemon's events: link types, TCP reassembly,
// HTTP/1.x framing, DNS timing, flows left undecoded, broken files.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "../test_util.hpp"
#include "capture_builder.hpp"
#include "report.hpp"
#include "session.hpp"
#include "trace.hpp"

namespace replay {
namespace {

using namespace replay::testing;

const std::string kGet = "GET /index.html HTTP/1.1\r\nHost: www.example.com\r\n"
                         "Referer: http://ref.example.com/from?x=1\r\n\r\n";
const std::string kOk = "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nContent-Length: 5\r\n\r\nhello";

uint64_t Ms(double ms) { return kCaptureStartNs + static_cast<uint64_t>(ms * 1e6); }

// GET and its 200 on one connection, closed afterwards.
TcpScript SimplePage(const std::string &client, const std::string &server)
{
    TcpScript s(client, 40001, server, 80);
    s.Handshake(0);
    s.Send(10, true, kGet);
    s.Send(50, false, kOk);
    s.Close(60);
    return s;
}

std::vector<std::string> Statuses(const Trace &t, EventKind kind)
{
    std::vector<std::string> out;
    for (const TraceEvent &ev : t.events) {
        if (ev.kind == kind) {
            out.push_back(ev.methodName + std::to_string(ev.status));
        }
    }
    return out;
}

TEST(CaptureReader, EveryLinkTypeAndBothIpVersionsGiveTheSameEvents)
{
    const struct { uint32_t link; const char *client, *server; } rows[] = {
        {kEthernet, "10.0.0.2", "93.184.216.34"}, {kEthernetVlan, "10.0.0.2", "93.184.216.34"},
        {kSll, "10.0.0.2", "93.184.216.34"},      {kSll2, "10.0.0.2", "93.184.216.34"},
        {kRaw, "10.0.0.2", "93.184.216.34"},      {kNull, "10.0.0.2", "93.184.216.34"},
        {kLoop, "10.0.0.2", "93.184.216.34"},     {kEthernet, "2001:db8::2", "2001:db8::80"},
        {kSll2, "2001:db8::2", "2001:db8::80"},   {kRaw, "2001:db8::2", "2001:db8::80"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::to_string(row.link) + " " + row.client);
        const Trace t = ReadCapture("c.pcap", PcapFile(row.link, SimplePage(row.client, row.server).Packets()), {});
        ASSERT_TRUE(t.fatal.empty()) << t.fatal;
        ASSERT_EQ(t.events.size(), 2u);
        const TraceEvent &req = t.events[0], &rsp = t.events[1];
        ASSERT_EQ(t.transactions.size(), 1u);
        const Transaction &tx = t.transactions[0];
        ASSERT_EQ(tx.phases.size(), 2u);
        EXPECT_EQ((std::vector<std::string>{req.host, req.uri, req.referHost, req.referPath, req.contentType, rsp.flow,
                                            tx.url, tx.phases[0].name, tx.phases[1].name}),
                  (std::vector<std::string>{"www.example.com", "index.html", "ref.example.com", "from?x=1",
                                            "text/html", req.flow, "www.example.com/index.html", "connect", "wait"}));
        // The request carries its answer's status; the answer is complete before the close.
        const bool v6 = std::string(row.client).find(':') != std::string::npos;
        EXPECT_EQ(Fields(req.kind, req.method, req.status, req.begin, req.syn, req.clientPort, req.serverPort,
                         req.serverIp, req.clientIp),
                  Fields(EventKind::kRequest, kMethodGet, 200, Ms(10), Ms(0), 40001, 80, v6 ? 0u : 0x5DB8D822u,
                         v6 ? 0u : 0x0A000002u));
        EXPECT_EQ(Fields(rsp.kind, rsp.begin, rsp.end, rsp.finRst, tx.bodySize, tx.phases[0].end,
                         t.capture.httpConnections, t.capture.cutTransactions),
                  Fields(EventKind::kResponse, Ms(50), Ms(50), 0, 5, Ms(2), 1, 0));
    }
    const Trace ng = ReadCapture("c.pcapng", PcapngFile(SimplePage("10.0.0.2", "93.184.216.34").Packets()), {});
    EXPECT_EQ(ng.format, "pcapng");
    EXPECT_EQ(Statuses(ng, EventKind::kRequest), (std::vector<std::string>{"GET200"}));
}

TEST(CaptureReader, SegmentsOutOfOrderAndRepeatedAreReassembled)
{
    TcpScript s("10.0.0.2", 40002, "93.184.216.34", 80);
    s.Handshake(0);
    const std::string req = kGet;
    const uint32_t a = 10, b = 30;  // the request in three pieces, sent 3, 1, 1 again, 2
    s.SendAt(10, true, b, req.substr(b));
    s.SendAt(11, true, 0, req.substr(0, a));
    s.SendAt(12, true, 0, req.substr(0, a));
    s.SendAt(15, true, a, req.substr(a, b - a));
    const std::string body(3000, 'x');
    const std::string rsp = "HTTP/1.1 200 OK\r\nContent-Length: 3000\r\n\r\n" + body;
    s.SendAt(40, false, 0, rsp.substr(0, 1000));
    s.SendAt(41, false, 2000, rsp.substr(2000));
    s.SendAt(42, false, 500, rsp.substr(500, 1500));  // overlaps what came and fills the hole
    s.Close(50);
    const Trace t = ReadCapture("c.pcap", PcapFile(kEthernet, s.Packets()), {});
    ASSERT_EQ(t.events.size(), 2u);
    EXPECT_EQ(t.events[0].uri, "index.html");
    // The request from its first byte in order to the filled hole.
    EXPECT_EQ(Fields(t.events[0].begin, t.events[0].end, t.events[1].begin, t.events[1].end,
                     t.transactions[0].bodySize, t.capture.cutTransactions),
              Fields(Ms(11), Ms(15), Ms(40), Ms(42), 3000, 0));
}

TEST(CaptureReader, PipelinedRequestsMeetTheirAnswersInOrder)
{
    TcpScript s("10.0.0.2", 40003, "93.184.216.34", 80);
    s.Handshake(0);
    s.Send(10, true,
           "HEAD /a HTTP/1.1\r\nHost: h.example\r\n\r\n"
           "GET /b HTTP/1.1\r\nHost: h.example\r\n\r\n"
           "GET /c HTTP/1.1\r\nHost: h.example\r\nIf-None-Match: \"x\"\r\n\r\n"
           "POST /d HTTP/1.1\r\nHost: h.example\r\nContent-Length: 3\r\nExpect: 100-continue\r\n\r\nabc");
    s.Send(30, false,
           "HTTP/1.1 200 OK\r\nContent-Length: 999\r\n\r\n"  // HEAD: no body whatever the length says
           "HTTP/1.1 302 Found\r\nLocation: http://h.example/z\r\nTransfer-Encoding: chunked\r\n\r\n"
           "4\r\nabcd\r\n0\r\n\r\n");
    s.Send(40, false, "HTTP/1.1 304 Not Modified\r\nContent-Length: 50\r\n\r\n");
    s.Send(50, false,
           "HTTP/1.1 100 Continue\r\n\r\n"
           "HTTP/1.1 201 Created\r\nContent-Length: 0\r\n\r\n");
    const Trace t = ReadCapture("c.pcap", PcapFile(kEthernet, s.Packets()), {});
    EXPECT_EQ(Statuses(t, EventKind::kRequest), (std::vector<std::string>{"HEAD200", "GET302", "GET304", "POST201"}));
    EXPECT_EQ(Statuses(t, EventKind::kResponse), (std::vector<std::string>{"200", "302", "304", "201"}));
    ASSERT_EQ(t.transactions.size(), 4u);
    ASSERT_GE(t.transactions[3].response, 0);
    EXPECT_EQ(t.events[t.transactions[1].request].location, "http://h.example/z");
    // Chunk framing removed; the 100 is not the answer; the connection is left open but idle.
    EXPECT_EQ(Fields(t.transactions[1].bodySize, t.events[t.transactions[3].response].begin, t.capture.cutTransactions),
              Fields(4, Ms(50), 0));
}

TEST(CaptureReader, LostBytesCutTheirTransactionAndTheFlowGoesOn)
{
    TcpScript s("10.0.0.2", 40004, "93.184.216.34", 80);
    s.Handshake(0);
    s.Send(10, true, "GET /big HTTP/1.1\r\nHost: h.example\r\n\r\n");
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 3000\r\n\r\n";
    s.SendAt(20, false, 0, head + std::string(1000, 'x'));
    // 1000 body bytes never captured; the rest arrives, then the next exchange.
    const uint32_t after = static_cast<uint32_t>(head.size()) + 2000;
    s.SendAt(21, false, after, std::string(1000, 'x'));
    s.Send(5000, true, "GET /next HTTP/1.1\r\nHost: h.example\r\n\r\n");
    s.Send(5030, false, "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
    s.Close(6000);
    const Trace t = ReadCapture("c.pcap", PcapFile(kEthernet, s.Packets()), {});
    EXPECT_EQ(Statuses(t, EventKind::kRequest), (std::vector<std::string>{"GET200", "GET404"}));
    ASSERT_EQ(t.transactions.size(), 2u);
    ASSERT_GE(t.transactions[1].response, 0);
    // The cut answer's size is unknown, its end the last byte before the loss.
    EXPECT_EQ(Fields(t.capture.cutTransactions, t.transactions[0].bodySize, t.events[t.transactions[0].response].end,
                     t.events[t.transactions[1].response].begin),
              Fields(1, -1, Ms(20), Ms(5030)));

    // A request the connection's reset leaves unanswered counts as answered
    // (FIN/RST mark), a body cut by it likewise.
    TcpScript r("10.0.0.2", 40005, "93.184.216.34", 80);
    r.Handshake(0);
    r.Send(10, true, "GET /a HTTP/1.1\r\nHost: h.example\r\n\r\n");
    r.Send(20, false, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort");
    r.Send(30, true, "GET /b HTTP/1.1\r\nHost: h.example\r\n\r\n");
    r.Close(40);
    const Trace c = ReadCapture("c.pcap", PcapFile(kEthernet, r.Packets()), {});
    ASSERT_EQ(c.events.size(), 3u);
    EXPECT_EQ(Fields(c.events[1].kind, c.events[1].finRst, c.events[2].finRst, c.events[2].status,
                     c.capture.cutTransactions),
              Fields(EventKind::kResponse, 1, 1, 0, 1));
}

TEST(CaptureReader, CaptureJoiningAConnectionFindsItsClientAndNextMessage)
{
    // No handshake: the first bytes seen are the end of an answer, then an
    // answer whose request came before the capture, then a full exchange.
    TcpScript s("10.0.0.2", 40006, "93.184.216.34", 80);
    s.Send(0, false, "end of an earlier body\r\n");
    s.Send(5, false, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    s.Send(10, true, "GET /b HTTP/1.1\r\nHost: h.example\r\n\r\n");
    s.Send(20, false, "HTTP/1.1 204 No Content\r\n\r\n");
    const Trace t = ReadCapture("c.pcap", PcapFile(kEthernet, s.Packets()), {});
    EXPECT_EQ(Statuses(t, EventKind::kResponse), (std::vector<std::string>{"200", "204"}));
    EXPECT_EQ(Statuses(t, EventKind::kRequest), (std::vector<std::string>{"GET204"}))
        << "the answer seen before any request had its request before the capture";
    ASSERT_EQ(t.events.size(), 3u);
    for (const TraceEvent &ev : t.events) {
        EXPECT_EQ(ev.clientPort, 40006) << "the side sending requests is the client";
        EXPECT_EQ(ev.syn, 0u);
    }
}

// A ClientHello with a server name, as the first client bytes.
std::string ClientHello(const std::string &name)
{
    const char n = static_cast<char>(name.size());
    const std::string ext = std::string{0, 0, 0, static_cast<char>(n + 5), 0, static_cast<char>(n + 3), 0, 0, n} + name;
    const std::string body = std::string{3, 3} + std::string(32, 'r') +
                             std::string{0, 0, 2, 0x13, 0x01, 1, 0, 0, static_cast<char>(ext.size())} + ext;
    const std::string hs = std::string{1, 0, 0, static_cast<char>(body.size())} + body;
    return std::string{0x16, 3, 1, 0, static_cast<char>(hs.size())} + hs;
}

// DNS look-ups are timed from query to answer; TLS and other protocols are
// counted, not fed.
TEST(CaptureReader, DnsIsTimedTlsAndOtherProtocolsAreCounted)
{
    std::vector<CapturedPacket> packets = {DnsPacket(0, false, 7, "WWW.Example.com"),
                                           DnsPacket(0.5, false, 7, "WWW.Example.com"),  // a retry
                                           DnsPacket(25.4, true, 7, "WWW.Example.com"),
                                           DnsPacket(30, false, 8, "never.example.com")};
    TcpScript tls("10.0.0.2", 40010, "93.184.216.34", 443);
    tls.Handshake(0);
    tls.Send(5, true, ClientHello("secure.example.com"));
    tls.Send(9, false, std::string("\x16\x03\x03\x00\x02xx", 7));
    TcpScript ssh("10.0.0.2", 40011, "93.184.216.34", 22);
    ssh.Handshake(1);
    ssh.Send(3, false, "SSH-2.0-server\r\n");
    ssh.Send(4, true, "SSH-2.0-client\r\n");
    TcpScript h2("10.0.0.2", 40012, "93.184.216.34", 80);
    h2.Handshake(2);
    h2.Send(6, true, "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n");
    for (const TcpScript *s : {&tls, &ssh, &h2}) {
        packets.insert(packets.end(), s->Packets().begin(), s->Packets().end());
    }
    std::stable_sort(packets.begin(), packets.end(),
                     [](const CapturedPacket &a, const CapturedPacket &b) { return a.ns < b.ns; });
    const Trace t = ReadCapture("c.pcap", PcapFile(kEthernet, packets), {});
    EXPECT_TRUE(t.events.empty());
    ASSERT_EQ(t.undecoded.size(), 3u);
    EXPECT_EQ((std::vector<std::string>{t.undecoded[0].kind, t.undecoded[0].sni, t.undecoded[0].server,
                                        t.undecoded[1].kind, t.undecoded[2].kind}),
              (std::vector<std::string>{"TLS", "secure.example.com", "93.184.216.34:443", "TCP", "HTTP/2"}));
    ASSERT_EQ(t.dns.size(), 1u);
    EXPECT_EQ(t.dns[0].host, "www.example.com");
    EXPECT_EQ(Fields(t.dns[0].begin, t.dns[0].delayMs), Fields(Ms(0), 25));
}

TEST(CaptureReader, BrokenFilesSayWhatTheyAreAndHostilePacketsAreCounted)
{
    std::string whole = PcapFile(kEthernet, SimplePage("10.0.0.2", "93.184.216.34").Packets());
    const Trace cut = ReadCapture("c.pcap", whole.substr(0, whole.size() - 10), {});
    EXPECT_TRUE(cut.fatal.empty() && cut.capture.truncated);
    ASSERT_EQ(cut.skipped.size(), 1u);
    EXPECT_NE(cut.skipped[0].what.find("ends inside this packet"), std::string::npos);
    EXPECT_EQ(cut.events.size(), 2u) << "what came before is replayed";

    EXPECT_NE(ReadCapture("x", "GET / HTTP/1.1\r\n", {}).fatal.find("not a packet capture"), std::string::npos);
    EXPECT_FALSE(ReadCapture("x", whole.substr(0, 12), {}).fatal.empty()) << "header cut short";
    std::string other = whole;
    other[20] = 105;  // IEEE 802.11
    EXPECT_NE(ReadCapture("x", other, {}).fatal.find("link type 105"), std::string::npos);

    // Hostile packets are counted, not fatal.
    std::vector<CapturedPacket> packets = SimplePage("10.0.0.2", "93.184.216.34").Packets();
    packets.insert(packets.begin() + 1, CapturedPacket{Ms(0.5), Bytes{0x45, 0, 0, 200, 0, 0, 0, 0, 64, 6}});
    packets.insert(packets.begin() + 1, CapturedPacket{Ms(0.6), Bytes{0x60, 0, 0}});
    const Trace t = ReadCapture("c.pcap", PcapFile(kRaw, packets), {});
    EXPECT_EQ(Fields(t.events.size(), t.capture.malformed), Fields(2, 2));
}

// From the file on disk through the library: the format found by the magic
// number, whatever the name says; a file that is no trace gets one line.
TEST(CaptureReader, ReplaysFromAFileByItsMagicNumber)
{
    const std::filesystem::path dir = std::filesystem::temp_directory_path();
    const std::string pid = std::to_string(::getpid());
    const std::filesystem::path capture = dir / ("orvane-capture-" + pid + ".har");
    const std::filesystem::path notes = dir / ("orvane-capture-" + pid + ".md");
    std::ofstream(capture, std::ios::binary) << PcapFile(kSll, SimplePage("10.0.0.2", "93.184.216.34").Packets());
    std::ofstream(notes, std::ios::binary) << "# Notes\n\nNot a trace.\n";
    const IssueSink ignore = [](const std::string &, const Issue &) {};
    const SessionReport r = ReplayFile(capture.string(), {}, ignore);
    const SessionReport text = ReplayFile(notes.string(), {}, ignore);
    SessionOptions forced;
    forced.format = Format::kCapture;
    const SessionReport forcedText = ReplayFile(notes.string(), forced, ignore);
    std::filesystem::remove(capture);
    std::filesystem::remove(notes);
    EXPECT_EQ(r.trace->format, "pcap");
    ASSERT_EQ(r.result.pages.size(), 1u);
    EXPECT_EQ(r.result.pages.All()[0].host + " " + std::to_string(r.result.pages.All()[0].requests),
              "www.example.com 1");
    EXPECT_NE(text.trace->fatal.find("not a JSON Lines trace"), std::string::npos) << text.trace->fatal;
    EXPECT_NE(forcedText.trace->fatal.find("not a packet capture"), std::string::npos) << forcedText.trace->fatal;
}

// Shared real captures: a page load and its sub-requests on one page.
TEST(CaptureReader, SharedCapturesGroupTheirPageLoads)
{
    const struct { const char *file; size_t requests; const char *host; uint32_t dnsMs; uint8_t counted; } rows[] = {
        {"pcap2har-pcapr.net.pcap", 42, "pcapr.net", 0, 1},             // 303 to /home, then 41 sub-requests
        {"pcap2har-sajal.pcap", 58, "www.thaindian.com", 140, 1},       // an article and its ad hosts
        {"pcapplusplus-sll.pcap", 2, "www.ynet.co.il", 24, 0},          // 301 then the page, cooked capture
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.file);
        const std::filesystem::path path = std::filesystem::path(ORVANE_SHARED_DIR) / "pcap" / row.file;
        if (!std::filesystem::exists(path)) {
            GTEST_SKIP() << "no capture at " << path;
        }
        const SessionReport r = ReplayFile(path.string(), {}, [](const std::string &, const Issue &) {});
        ASSERT_TRUE(r.trace->fatal.empty());
        ASSERT_EQ(r.result.pages.size(), 1u);
        const PageResult page = r.result.pages.All()[0];
        EXPECT_EQ(page.host, row.host);
        // Every request answered, all on the page.
        EXPECT_EQ(Fields(r.result.requests, r.result.events, page.requests, page.kqi.ucSuccFlag, page.kqi.ucPageFlag,
                         page.kqi.uiDnsDelay, r.trace->capture.cutTransactions),
                  Fields(row.requests, 2 * row.requests, row.requests, 1, row.counted, row.dnsMs, 0));
    }
}

}  // namespace
}  // namespace replay
