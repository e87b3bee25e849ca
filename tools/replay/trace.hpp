// The replay's view of one recorded session: the HTTP events a daemon would
// hand the library, the DNS answers it would know, and the transactions they
// came from (for reports and for the comparison with the recording's pages).
#ifndef ORVANE_REPLAY_TRACE_HPP
#define ORVANE_REPLAY_TRACE_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace replay {

constexpr uint64_t kNsPerMs = 1000000ull;
constexpr uint64_t kNsPerSec = 1000000000ull;

// Request methods as the event record encodes them.
constexpr uint32_t kMethodGet = 1;
constexpr uint32_t kMethodPost = 2;
constexpr uint32_t kMethodOther = 3;

enum class EventKind { kRequest, kResponse };

// One request or response event, strings owned here; Build() in the replayer
// points the library's event record at them.
struct TraceEvent {
    EventKind kind = EventKind::kRequest;
    std::string flow;  // flow key: events with the same key share one flow area
    std::string host, uri, referHost, referPath, location, contentType;
    std::string methodName;  // as recorded, for reports
    uint32_t method = 0;     // kMethodGet/Post/Other for requests, 0 for responses
    uint32_t status = 0;
    uint64_t begin = 0, end = 0, syn = 0;  // ns on the trace's clock
    uint16_t clientPort = 0, serverPort = 0;
    uint32_t clientIp = 0, serverIp = 0;
    uint32_t network = 0;
    uint8_t finRst = 0;
    int transaction = -1;  // index into Trace::transactions
    std::string origin;    // "entry 7" or "line 12", for messages
};

// What the daemon's DNS cache learnt: a look-up of host began at begin and
// took delayMs. Applied in time order like the events.
struct DnsRecord {
    std::string host;
    uint64_t begin = 0;
    uint32_t delayMs = 0;
};

// A stretch of a transaction as the recording timed it: HAR's blocked, dns,
// connect, tls, send, wait and receive; a capture's connect, send, wait and
// receive. ns on the trace's clock.
struct Phase {
    std::string name;
    uint64_t begin = 0, end = 0;
};

// One request with its response, as the recording listed it.
struct Transaction {
    std::string origin;
    std::string method;
    std::string url;       // host and path, for reports
    std::string truePage;  // the recording's own page label; empty when none
    bool background = false;  // mixed-in traffic of no page: scored as standing alone
    uint64_t begin = 0, end = 0;
    int request = -1, response = -1;  // indexes into Trace::events
    std::vector<Phase> phases;        // in time order; empty when not timed
    int64_t bodySize = -1;            // response body bytes, -1 when unknown
};

// A page as the recording itself saw it (HAR log.pages): when the browser
// started it and its load milestones, relative to that start.
struct RecordedPage {
    std::string id, title;
    uint64_t start = 0;             // ns on the trace's clock
    double onContentLoadMs = -1.0;  // -1: not recorded
    double onLoadMs = -1.0;
};

// An input problem: where (entry or line) and what. A warning is about
// input that was replayed but breaks the integration contract.
struct Issue {
    std::string where;
    std::string what;
    bool warning = false;
};

// A flow in a packet capture the daemon could not decode and so never fed:
// TLS, another protocol over TCP, QUIC (UDP to port 443).
struct UndecodedFlow {
    std::string kind;            // "TLS", "HTTP/2", "TCP" or "QUIC"
    std::string client, server;  // address:port
    std::string sni;             // TLS server name, when the ClientHello carried one
    uint64_t begin = 0;          // first packet, ns on the trace's clock
    uint64_t bytes = 0;          // payload bytes, both ways
};

// What reading a packet capture found besides the events.
struct CaptureStats {
    size_t packets = 0;
    size_t tcpConnections = 0;   // with payload
    size_t httpConnections = 0;  // decoded as HTTP/1.x
    size_t cutTransactions = 0;  // a message lost bytes or its flow ended inside it
    size_t malformed = 0;        // packets the IP or TCP layer could not read
    size_t snapCut = 0;          // packets the capture's snap length cut short
    bool truncated = false;      // the file ends inside a packet
};

// A file full of bad lines must not fill memory: only the first are kept
// for the JSON report, all are counted.
constexpr size_t kMaxListedIssues = 1000;

// A JSON Lines trace replayed as it is read keeps events and transactions
// only when a report asks for them (--events, --html, --eval).
struct Trace {
    std::string file;    // as named on the command line
    std::string format;  // "har", "jsonl", "pcap" or "pcapng"
    std::vector<TraceEvent> events;
    std::vector<DnsRecord> dns;
    std::vector<Transaction> transactions;
    std::vector<RecordedPage> pages;  // the recording's own pages, when it has them
    std::vector<Issue> skipped;  // the first kMaxListedIssues bad entries or lines
    std::vector<Issue> warnings;  // contract rules broken, each once
    size_t skippedCount = 0;     // all bad entries or lines, not replayed
    size_t cacheHits = 0;        // served by the browser cache: never on the wire
    size_t notHttp = 0;          // data:, blob: and other non-HTTP entries
    std::vector<UndecodedFlow> undecoded;  // captures: flows seen but not fed
    CaptureStats capture;                  // captures only
    std::string fatal;           // set when the file as a whole could not be read

    void Skip(Issue issue)
    {
        ++skippedCount;
        if (skipped.size() < kMaxListedIssues) {
            skipped.push_back(std::move(issue));
        }
    }
};

// How recorded URLs become the daemon's strings.
struct ReadOptions {
    // A daemon that passes the request target with its leading '/' makes the
    // library's URL "host//path"; the default hands the path without it.
    bool keepSlash = false;
    bool withCache = false;  // replay cache hits as if they had been fetched
};

enum class Format { kAuto, kHar, kJsonl, kCapture };

Trace ReadHar(const std::string &file, const std::string &text, const ReadOptions &options);
// A whole JSON Lines text at once, DNS observations kept (see jsonl_reader.hpp
// for reading line by line).
Trace ReadJsonl(const std::string &file, const std::string &text);

// A pcap or pcapng file held in memory (see readers/pcap_reader.cpp).
Trace ReadCapture(const std::string &file, const std::string &bytes, const ReadOptions &options);
// True when bytes begin with a pcap or pcapng magic number.
bool LooksLikeCapture(const std::string &bytes);

// The bundled sample session (JSONL).
const char *SampleSession();

}  // namespace replay

#endif
