// A packet capture (pcap or pcapng, through libpcap) to the daemon's events,
// the way the daemon itself reads the wire: TCP reassembled both ways,
// HTTP/1.x parsed on each connection, DNS look-ups timed from their query
// and answer. Like the HAR reader, a request event carries its answer's
// status, Location and content type. A message that lost bytes or ended
// with its connection is cut: fed as far as it was seen, and counted.
#include <pcap/pcap.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <numeric>

#include <tins/dns.h>
#include <tins/exceptions.h>
#include <tins/ip.h>
#include <tins/ipv6.h>
#include <tins/rawpdu.h>
#include <tins/udp.h>

#include "capture/http_conversation.hpp"
#include "capture/link_layer.hpp"
#include "capture/tcp_streams.hpp"
#include "text_util.hpp"
#include "trace.hpp"

namespace replay {

namespace {

using capture::Connection;
using capture::Endpoint;
using capture::FlowKind;
using capture::HttpConversation;
using capture::HttpMessage;

constexpr uint32_t kMagicPcap = 0xA1B2C3D4;
constexpr uint32_t kMagicPcapNs = 0xA1B23C4D;
constexpr uint32_t kMagicPcapng = 0x0A0D0D0A;
constexpr uint16_t kDnsPort = 53;
constexpr uint16_t kHttpsPort = 443;

uint32_t MethodCode(const std::string &method)
{
    return method == "GET" ? kMethodGet : method == "POST" ? kMethodPost : kMethodOther;
}

uint32_t Magic(const std::string &bytes, bool swap)
{
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) {
        const auto b = static_cast<uint8_t>(bytes[static_cast<size_t>(swap ? 3 - i : i)]);
        v = v << 8 | b;
    }
    return v;
}

std::string Where(size_t packet) { return "packet " + std::to_string(packet); }

// DNS look-ups waiting for their answer, by client, server and query ID.
class DnsTimer {
public:
    void Packet(const Endpoint &src, const Endpoint &dst, const Tins::DNS &dns, uint64_t ns, Trace *trace)
    {
        if (dns.type() == Tins::DNS::QUERY) {
            pending_.emplace(src.Text() + ">" + dst.address + "#" + std::to_string(dns.id()), ns);  // a retry keeps the first
            return;
        }
        auto it = pending_.find(dst.Text() + ">" + src.address + "#" + std::to_string(dns.id()));
        if (it == pending_.end()) {
            return;
        }
        const uint64_t begin = it->second;
        pending_.erase(it);
        const uint64_t delay = ns > begin ? ns - begin : 0;
        for (const Tins::DNS::query &q : dns.queries()) {
            std::string host = ToLower(q.dname());
            if (!host.empty() && host.back() == '.') {
                host.pop_back();
            }
            if (!host.empty()) {
                trace->dns.push_back({host, begin, static_cast<uint32_t>((delay + kNsPerMs / 2) / kNsPerMs)});
            }
        }
    }

private:
    std::map<std::string, uint64_t> pending_;
};

struct UdpFlows {
    std::map<std::string, size_t> index;  // "client>server" to its place in the trace
};

Endpoint MakeEndpoint(const std::string &address, uint16_t port, bool v6)
{
    Endpoint e;
    e.address = address;
    e.port = port;
    e.v6 = v6;
    return e;
}

void ReadUdp(const Tins::PDU &ip, const Tins::UDP &udp, uint64_t ns, DnsTimer *dns, UdpFlows *flows, Trace *trace)
{
    Endpoint src, dst;
    if (const auto *v4 = ip.find_pdu<Tins::IP>()) {
        src = MakeEndpoint(v4->src_addr().to_string(), udp.sport(), false);
        dst = MakeEndpoint(v4->dst_addr().to_string(), udp.dport(), false);
    } else if (const auto *v6 = ip.find_pdu<Tins::IPv6>()) {
        src = MakeEndpoint(v6->src_addr().to_string(), udp.sport(), true);
        dst = MakeEndpoint(v6->dst_addr().to_string(), udp.dport(), true);
    }
    const auto *raw = udp.find_pdu<Tins::RawPDU>();
    const size_t size = raw != nullptr ? raw->payload_size() : 0;
    if (udp.sport() == kDnsPort || udp.dport() == kDnsPort) {
        if (raw != nullptr) {
            try {
                const Tins::DNS message(raw->payload().data(), static_cast<uint32_t>(size));
                dns->Packet(src, dst, message, ns, trace);
            } catch (const Tins::exception_base &) {
                ++trace->capture.malformed;
            }
        }
        return;
    }
    if (udp.sport() != kHttpsPort && udp.dport() != kHttpsPort) {
        return;  // broadcast and local services: no browsing a daemon could decode
    }
    auto it = flows->index.find(dst.Text() + ">" + src.Text());
    if (it == flows->index.end()) {
        it = flows->index.emplace(src.Text() + ">" + dst.Text(), trace->undecoded.size()).first;
        if (it->second == trace->undecoded.size()) {
            UndecodedFlow flow;
            flow.kind = "QUIC";
            flow.client = src.Text();
            flow.server = dst.Text();
            flow.begin = ns;
            trace->undecoded.push_back(flow);
        }
    }
    trace->undecoded[it->second].bytes += size;
}

// The events of one transaction before the trace's order is set.
struct Pending {
    Transaction tx;
    std::vector<TraceEvent> events;
};

std::string KindName(FlowKind kind)
{
    switch (kind) {
    case FlowKind::kTls:
        return "TLS";
    case FlowKind::kHttp2:
        return "HTTP/2";
    default:
        return "TCP";
    }
}

// The request's host and target as the daemon hands them over; an
// absolute-form target (to a proxy) names its own host.
void RequestUrl(const HttpMessage &req, const ReadOptions &options, TraceEvent *ev, std::string *url)
{
    UrlParts parts;
    std::string target = req.target;
    ev->host = req.host;
    if (SplitUrl(req.target, &parts)) {
        target = parts.target;
        if (ev->host.empty()) {
            ev->host = parts.authority;
        }
    }
    ev->uri = DaemonPath(target, options.keepSlash);
    *url = ev->host + target;
    if (!req.referer.empty()) {
        UrlParts referer;
        if (SplitUrl(req.referer, &referer)) {
            ev->referHost = referer.authority;
            ev->referPath = DaemonPath(referer.target, options.keepSlash);
        } else {
            ev->referPath = req.referer;
        }
    }
}

void AddPhase(Transaction *tx, const char *name, uint64_t begin, uint64_t end)
{
    if (begin != 0 && end > begin) {
        tx->phases.push_back({name, begin, end});
    }
}

void AddConversation(const HttpConversation &conv, const ReadOptions &options, std::vector<Pending> *out,
                     Trace *trace)
{
    const Connection &c = conv.Conn();
    const auto &requests = conv.Requests();
    const auto &responses = conv.Responses();
    const bool headed = std::any_of(requests.begin(), requests.end(), [](const HttpMessage &m) { return m.headersDone; }) ||
                        std::any_of(responses.begin(), responses.end(), [](const HttpMessage &m) { return m.headersDone; });
    if (conv.Kind() != FlowKind::kHttp || !headed) {
        if (conv.Bytes() != 0) {
            trace->undecoded.push_back({KindName(conv.Kind()), c.client.Text(), c.server.Text(), conv.Sni(),
                                        c.firstPacket, conv.Bytes()});
        }
        return;
    }
    ++trace->capture.httpConnections;

    TraceEvent shared;
    shared.flow = "tcp " + std::to_string(c.id) + " " + c.server.Text();
    shared.syn = c.syn;
    shared.clientPort = c.client.port;
    shared.serverPort = c.server.port;
    shared.clientIp = c.client.ipv4;
    shared.serverIp = c.server.ipv4;
    const bool closed = c.closed != 0;
    // A message the close ended (cut, or a body that runs to the close) is
    // reported with the flow's FIN/RST mark, as the daemon sees it.
    auto finRst = [closed](const HttpMessage &m) -> uint8_t {
        return closed && (m.cut || !m.complete || m.byClose) ? 1 : 0;
    };

    // Each answer names its request; requests left over went unanswered.
    std::vector<std::pair<const HttpMessage *, const HttpMessage *>> exchanges;
    std::vector<bool> answered(requests.size(), false);
    for (const HttpMessage &rsp : responses) {
        const HttpMessage *req = rsp.request >= 0 ? &requests[static_cast<size_t>(rsp.request)] : nullptr;
        if (req != nullptr) {
            answered[static_cast<size_t>(rsp.request)] = true;
        }
        exchanges.emplace_back(req, &rsp);
    }
    for (size_t i = 0; i < requests.size(); ++i) {
        if (!answered[i]) {
            exchanges.emplace_back(&requests[i], nullptr);
        }
    }
    auto beginOf = [](const std::pair<const HttpMessage *, const HttpMessage *> &x) {
        return (x.first != nullptr ? x.first : x.second)->begin;
    };
    std::stable_sort(exchanges.begin(), exchanges.end(),
                     [&beginOf](const auto &a, const auto &b) { return beginOf(a) < beginOf(b); });
    bool first = true;
    for (auto [req, rsp] : exchanges) {
        if ((req != nullptr && !req->complete) || (rsp != nullptr && !rsp->complete)) {
            ++trace->capture.cutTransactions;
        }
        if (req != nullptr && !req->headersDone) {
            req = nullptr;
        }
        if (rsp != nullptr && !rsp->headersDone) {
            rsp = nullptr;
        }
        if (req == nullptr && rsp == nullptr) {
            continue;
        }
        Pending p;
        TraceEvent answer = shared;
        if (rsp != nullptr) {
            answer.status = rsp->status;
            answer.location = rsp->location;
            answer.contentType = rsp->contentType;
        }
        Transaction &tx = p.tx;
        if (req != nullptr) {
            TraceEvent ev = answer;
            ev.kind = EventKind::kRequest;
            RequestUrl(*req, options, &ev, &tx.url);
            ev.methodName = req->method;
            ev.method = MethodCode(req->method);
            ev.begin = req->begin;
            ev.end = req->end;
            // A request the flow's end answered counts as answered.
            ev.finRst = rsp == nullptr && closed ? 1 : finRst(*req);
            ev.origin = Where(req->packet);
            tx.origin = ev.origin;
            tx.method = req->method;
            tx.begin = req->begin;
            tx.end = req->end;
            p.events.push_back(ev);
        }
        if (rsp != nullptr) {
            TraceEvent ev = answer;
            ev.kind = EventKind::kResponse;
            ev.begin = rsp->begin;
            ev.end = rsp->end;
            ev.finRst = finRst(*rsp);
            ev.origin = Where(rsp->packet);
            if (req == nullptr) {
                tx.origin = ev.origin;
                tx.begin = rsp->begin;
            }
            tx.end = std::max(tx.end, rsp->end);
            tx.bodySize = rsp->complete ? rsp->bodySize : -1;
            p.events.push_back(ev);
        }
        if (first) {
            AddPhase(&tx, "connect", c.syn, c.established != 0 ? c.established : c.synAck);
            first = false;
        }
        if (req != nullptr) {
            AddPhase(&tx, "send", req->begin, req->end);
            if (rsp != nullptr) {
                AddPhase(&tx, "wait", req->end, rsp->begin);
            }
        }
        if (rsp != nullptr) {
            AddPhase(&tx, "receive", rsp->begin, rsp->end);
        }
        out->push_back(std::move(p));
    }
}

// Transactions by first byte; events by begin, their indexes kept in step.
void Order(std::vector<Pending> pending, Trace *trace)
{
    std::stable_sort(pending.begin(), pending.end(),
                     [](const Pending &a, const Pending &b) { return a.tx.begin < b.tx.begin; });
    std::vector<TraceEvent> events;
    for (Pending &p : pending) {
        const int txIndex = static_cast<int>(trace->transactions.size());
        for (TraceEvent &ev : p.events) {
            ev.transaction = txIndex;
            events.push_back(std::move(ev));
        }
        trace->transactions.push_back(std::move(p.tx));
    }
    std::vector<size_t> order(events.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&events](size_t a, size_t b) { return events[a].begin < events[b].begin; });
    for (size_t i : order) {
        TraceEvent &ev = events[i];
        Transaction &tx = trace->transactions[static_cast<size_t>(ev.transaction)];
        (ev.kind == EventKind::kRequest ? tx.request : tx.response) = static_cast<int>(trace->events.size());
        trace->events.push_back(std::move(ev));
    }
    std::stable_sort(trace->dns.begin(), trace->dns.end(),
                     [](const DnsRecord &a, const DnsRecord &b) { return a.begin < b.begin; });
    std::stable_sort(trace->undecoded.begin(), trace->undecoded.end(),
                     [](const UndecodedFlow &a, const UndecodedFlow &b) { return a.begin < b.begin; });
}

struct PcapCloser {
    void operator()(pcap_t *p) const { pcap_close(p); }
};

}  // namespace

bool LooksLikeCapture(const std::string &bytes)
{
    if (bytes.size() < 4) {
        return false;
    }
    for (bool swap : {false, true}) {
        const uint32_t magic = Magic(bytes, swap);
        if (magic == kMagicPcap || magic == kMagicPcapNs || magic == kMagicPcapng) {
            return true;
        }
    }
    return false;
}

Trace ReadCapture(const std::string &file, const std::string &bytes, const ReadOptions &options)
{
    Trace trace;
    trace.file = file;
    trace.format = bytes.size() >= 4 && Magic(bytes, false) == kMagicPcapng ? "pcapng" : "pcap";
    if (!LooksLikeCapture(bytes)) {
        trace.format = "pcap";
        trace.fatal = "not a packet capture (no pcap or pcapng magic number)";
        return trace;
    }
    // libpcap reads from a stream; the bytes are already in memory.
    FILE *stream = fmemopen(const_cast<char *>(bytes.data()), bytes.size(), "rb");
    if (stream == nullptr) {
        trace.fatal = "cannot read the capture from memory";
        return trace;
    }
    char error[PCAP_ERRBUF_SIZE] = {};
    std::unique_ptr<pcap_t, PcapCloser> pcap(
        pcap_fopen_offline_with_tstamp_precision(stream, PCAP_TSTAMP_PRECISION_NANO, error));
    if (!pcap) {
        std::fclose(stream);
        trace.fatal = std::string("not a readable packet capture: ") + error;
        return trace;
    }
    const int linkType = pcap_datalink(pcap.get());
    if (!capture::KnownLinkType(linkType)) {
        const char *name = pcap_datalink_val_to_name(linkType);
        trace.fatal = "link type " + std::to_string(linkType) + (name != nullptr ? std::string(" (") + name + ")" : "") +
                      " is not read; Ethernet, Linux cooked, raw IP and loopback captures are";
        return trace;
    }

    std::vector<std::shared_ptr<HttpConversation>> conversations;
    capture::TcpStreams streams([&conversations](const std::shared_ptr<Connection> &conn) {
        conversations.push_back(std::make_shared<HttpConversation>(conn));
        return conversations.back();
    });
    DnsTimer dns;
    UdpFlows udp;
    size_t number = 0;
    for (;;) {
        pcap_pkthdr *header = nullptr;
        const u_char *data = nullptr;
        const int rc = pcap_next_ex(pcap.get(), &header, &data);
        if (rc == PCAP_ERROR_BREAK) {
            break;
        }
        ++number;
        if (rc != 1) {
            trace.capture.truncated = true;
            trace.Skip({Where(number), std::string("the capture ends inside this packet (") +
                                           pcap_geterr(pcap.get()) + "); the packets before it are replayed"});
            break;
        }
        ++trace.capture.packets;
        trace.capture.snapCut += header->caplen < header->len ? 1 : 0;
        const uint64_t ns = static_cast<uint64_t>(header->ts.tv_sec) * kNsPerSec + static_cast<uint64_t>(header->ts.tv_usec);
        capture::IpSlice slice;
        if (!capture::FindIp(linkType, data, header->caplen, &slice)) {
            continue;  // not IP: nothing a daemon reads
        }
        try {
            std::unique_ptr<Tins::PDU> ip;
            if (slice.v6) {
                ip = std::make_unique<Tins::IPv6>(slice.data, static_cast<uint32_t>(slice.size));
            } else {
                ip = std::make_unique<Tins::IP>(slice.data, static_cast<uint32_t>(slice.size));
            }
            if (const auto *u = ip->find_pdu<Tins::UDP>()) {
                ReadUdp(*ip, *u, ns, &dns, &udp, &trace);
            } else {
                streams.Packet(*ip, ns, number);
            }
        } catch (const std::exception &) {
            ++trace.capture.malformed;  // hostile, or cut short by the snap length
        }
    }
    streams.Finish();
    trace.capture.tcpConnections = 0;
    std::vector<Pending> pending;
    for (const auto &conv : conversations) {
        trace.capture.tcpConnections += conv->Bytes() != 0 ? 1 : 0;
        AddConversation(*conv, options, &pending, &trace);
    }
    Order(std::move(pending), &trace);
    return trace;
}

}  // namespace replay
