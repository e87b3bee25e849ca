// HAR 1.2 to the daemon's events. Each entry gives a request event (sent
// after the connection is set up) and, when it was answered, a response
// event. The request event carries the transaction's status, Location and
// content type, as a daemon reports a request once its answer's header is
// parsed: the library settles pages and redirect chains from the request.
#include <algorithm>
#include <limits>
#include <map>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "input_error.hpp"
#include "text_util.hpp"
#include "trace.hpp"

namespace replay {

namespace {

using nlohmann::json;

constexpr uint32_t kClientIp = 0x0A000002;  // 10.0.0.2: the phone
constexpr uint16_t kFirstClientPort = 40000;

// One entry as read, before flows are assigned.
struct HarEntry {
    size_t index = 0;
    uint64_t start = 0;
    std::string method;
    UrlParts url;
    std::string referer, location, contentType, pageref;
    uint32_t status = 0;
    bool answered = false;
    uint64_t blocked = 0, dns = 0, connect = 0, ssl = 0, send = 0, wait = 0, receive = 0;
    int64_t bodySize = -1;
    std::string connection, server;
    int clientPort = -1;
};

std::string Where(size_t index) { return "log.entries[" + std::to_string(index) + "]"; }

// The event record gives every string a 16-bit length.
const std::string &Bounded(const std::string &text, const char *what)
{
    if (text.size() > std::numeric_limits<uint16_t>::max()) {
        throw InputError(std::string(what) + " longer than 65535 bytes");
    }
    return text;
}

const json &Member(const json &obj, const char *key, const std::string &path)
{
    if (!obj.is_object()) {
        throw InputError(path + " is not an object");
    }
    auto it = obj.find(key);
    if (it == obj.end() || it->is_null()) {
        throw InputError("missing field " + path + "." + key);
    }
    return *it;
}

std::string StringMember(const json &obj, const char *key, const std::string &path)
{
    const json &v = Member(obj, key, path);
    if (!v.is_string()) {
        throw InputError(path + "." + key + " is not a string (" + ValueText(v) + ")");
    }
    return v.get<std::string>();
}

// HAR timings: -1 means "does not apply"; anything below is broken.
uint64_t Timing(const json &timings, const char *key, bool required)
{
    auto it = timings.find(key);
    if (it == timings.end() || it->is_null()) {
        if (required) {
            throw InputError(std::string("missing field timings.") + key);
        }
        return 0;
    }
    if (!it->is_number()) {
        throw InputError(std::string("timings.") + key + " is not a number (" + ValueText(*it) + ")");
    }
    const double ms = it->get<double>();
    if (ms < -1.0 || ms > 86400000.0) {
        throw InputError(std::string("timings.") + key + " out of range (" + ValueText(*it) + ")");
    }
    return MsToNs(ms);
}

std::string Header(const json &message, const char *name)
{
    auto headers = message.find("headers");
    if (headers == message.end() || !headers->is_array()) {
        return {};
    }
    const std::string wanted = ToLower(name);
    for (const json &h : *headers) {
        if (h.is_object() && h.contains("name") && h["name"].is_string() && h.contains("value") &&
            h["value"].is_string() && ToLower(h["name"].get<std::string>()) == wanted) {
            return h["value"].get<std::string>();
        }
    }
    return {};
}

// A size field, -1 when absent or not a count.
int64_t NonNegative(const json &obj, const char *key)
{
    auto it = obj.find(key);
    if (it == obj.end() || !it->is_number_integer() || it->get<int64_t>() < 0) {
        return -1;
    }
    return it->get<int64_t>();
}

// A connection id or socket number as text; numbers and strings both occur.
std::string IdText(const json &entry, const char *key)
{
    auto it = entry.find(key);
    if (it == entry.end()) {
        return {};
    }
    if (it->is_string()) {
        return it->get<std::string>();
    }
    if (it->is_number_integer()) {
        return std::to_string(it->get<int64_t>());
    }
    return {};
}

// The URL's scheme in lower case, empty when there is no readable URL.
std::string SchemeOf(const json &entry)
{
    auto request = entry.find("request");
    if (request == entry.end() || !request->is_object() || !request->contains("url") ||
        !(*request)["url"].is_string()) {
        return {};
    }
    const std::string url = (*request)["url"].get<std::string>();
    const size_t colon = url.find(':');
    return colon == std::string::npos ? std::string() : ToLower(url.substr(0, colon));
}

bool IsCacheHit(const json &entry)
{
    auto fromCache = entry.find("_fromCache");
    if (fromCache != entry.end() && fromCache->is_string() && !fromCache->get<std::string>().empty()) {
        return true;
    }
    auto response = entry.find("response");
    if (response == entry.end() || !response->is_object()) {
        return false;
    }
    auto size = response->find("_transferSize");
    return size != response->end() && size->is_number() && size->get<double>() == 0.0;
}

HarEntry ReadEntry(const json &entry, size_t index)
{
    HarEntry e;
    e.index = index;
    const std::string started = StringMember(entry, "startedDateTime", "entry");
    if (!ParseIsoTime(started, &e.start)) {
        throw InputError("startedDateTime is not an ISO 8601 time (" + Quoted(started) + ")");
    }
    const json &request = Member(entry, "request", "entry");
    e.method = StringMember(request, "method", "request");
    const std::string url = StringMember(request, "url", "request");
    Bounded(url, "request.url");
    if (!SplitUrl(url, &e.url)) {
        throw InputError("request.url is not an absolute URL (" + Quoted(url) + ")");
    }
    e.referer = Bounded(Header(request, "Referer"), "the Referer header");

    const json &response = Member(entry, "response", "entry");
    const json &status = Member(response, "status", "response");
    if (!status.is_number_integer() || (status.is_number_unsigned() && status.get<uint64_t>() > 999) ||
        status.get<int64_t>() > 999) {
        throw InputError("response.status out of range (" + ValueText(status) + ")");
    }
    // 0 and the negative codes some recorders write mean that no answer
    // arrived: the request failed, was blocked or was cut short.
    e.answered = status.get<int64_t>() > 0;
    e.status = e.answered ? static_cast<uint32_t>(status.get<int64_t>()) : 0;
    e.location = Header(response, "Location");
    if (e.location.empty() && response.contains("redirectURL") && response["redirectURL"].is_string()) {
        e.location = response["redirectURL"].get<std::string>();
    }
    e.bodySize = NonNegative(response, "bodySize");
    if (e.bodySize < 0 && response.contains("content") && response["content"].is_object()) {
        e.bodySize = NonNegative(response["content"], "size");
    }
    e.contentType = Header(response, "Content-Type");
    if (e.contentType.empty() && response.contains("content") && response["content"].is_object() &&
        response["content"].contains("mimeType") && response["content"]["mimeType"].is_string()) {
        e.contentType = response["content"]["mimeType"].get<std::string>();
    }
    Bounded(e.location, "the Location");
    Bounded(e.contentType, "the content type");

    const json &timings = Member(entry, "timings", "entry");
    if (!timings.is_object()) {
        throw InputError("timings is not an object");
    }
    e.blocked = Timing(timings, "blocked", false);
    e.dns = Timing(timings, "dns", false);
    e.connect = Timing(timings, "connect", false);
    e.ssl = std::min(Timing(timings, "ssl", false), e.connect);  // part of connect
    e.send = Timing(timings, "send", true);
    e.wait = Timing(timings, "wait", true);
    e.receive = Timing(timings, "receive", true);

    if (entry.contains("pageref") && entry["pageref"].is_string()) {
        e.pageref = entry["pageref"].get<std::string>();
    }
    e.connection = IdText(entry, "connection");
    // "0" is how some recorders say "no socket"; others write the server
    // port there, which names no connection either.
    if (e.connection == "0" || e.connection == std::to_string(e.url.port)) {
        e.connection.clear();
    }
    if (e.connection.empty()) {
        const std::string socket = IdText(entry, "_socket");
        if (!socket.empty() && socket != "0") {
            e.connection = socket;
        }
    }
    e.server = entry.contains("serverIPAddress") && entry["serverIPAddress"].is_string()
                   ? entry["serverIPAddress"].get<std::string>()
                   : "";
    if (e.server.empty() && entry.contains("_ip_addr") && entry["_ip_addr"].is_string()) {
        e.server = entry["_ip_addr"].get<std::string>();
    }
    if (e.server.size() > 2 && e.server.front() == '[' && e.server.back() == ']') {
        e.server = e.server.substr(1, e.server.size() - 2);
    }
    if (entry.contains("_client_port") && entry["_client_port"].is_number_integer()) {
        const int64_t port = entry["_client_port"].get<int64_t>();
        if (port > 0 && port <= 65535) {
            e.clientPort = static_cast<int>(port);
        }
    }
    return e;
}

uint32_t MethodCode(const std::string &method)
{
    if (method == "GET") {
        return kMethodGet;
    }
    if (method == "POST") {
        return kMethodPost;
    }
    return kMethodOther;
}

// Flow state while the entries are turned into events in time order.
struct FlowState {
    uint64_t syn = 0;
    uint16_t clientPort = 0;
};

void AddEvents(const HarEntry &e, const ReadOptions &options, std::map<std::string, FlowState> *flows, Trace *trace)
{
    // Entries with a connection id share its flow; without one, a flow per
    // host and port (all of a host's parallel connections become one).
    const std::string where = e.server.empty() ? e.url.authority : e.server;
    const std::string flowKey = e.connection.empty()
                                    ? "host " + ToLower(e.url.authority) + ":" + std::to_string(e.url.port)
                                    : "conn " + e.connection + " " + where + ":" + std::to_string(e.url.port);
    auto inserted = flows->emplace(flowKey, FlowState{});
    FlowState &flow = inserted.first->second;
    if (inserted.second) {
        flow.clientPort = static_cast<uint16_t>(kFirstClientPort + (flows->size() - 1) % 20000);
    }
    if (e.clientPort > 0) {
        flow.clientPort = static_cast<uint16_t>(e.clientPort);
    }

    const uint64_t dnsBegin = e.start + e.blocked;
    const uint64_t connectBegin = dnsBegin + e.dns;
    if (e.connect != 0) {
        flow.syn = connectBegin;  // this entry opened the connection
    }
    const uint64_t reqBegin = connectBegin + e.connect;
    const uint64_t reqEnd = reqBegin + e.send;
    const uint64_t rspBegin = reqEnd + e.wait;
    const uint64_t rspEnd = rspBegin + e.receive;

    if (e.dns != 0) {
        trace->dns.push_back({ToLower(e.url.authority), dnsBegin, static_cast<uint32_t>((e.dns + kNsPerMs / 2) / kNsPerMs)});
    }

    uint32_t serverIp = 0;
    ParseIpv4(e.server, &serverIp);  // IPv6 and unknown addresses stay 0

    // What the request and its response share: the flow, its endpoints and
    // the transaction's answer (a daemon reports the status on both).
    TraceEvent shared;
    shared.flow = flowKey;
    shared.status = e.status;
    shared.location = e.location;
    shared.contentType = e.contentType;
    shared.syn = flow.syn;
    shared.clientPort = flow.clientPort;
    shared.serverPort = e.url.port;
    shared.clientIp = kClientIp;
    shared.serverIp = serverIp;
    shared.origin = Where(e.index);

    TraceEvent req = shared;
    req.kind = EventKind::kRequest;
    req.host = e.url.authority;
    req.uri = DaemonPath(e.url.target, options.keepSlash);
    UrlParts referer;
    if (!e.referer.empty()) {
        if (SplitUrl(e.referer, &referer)) {
            req.referHost = referer.authority;
            req.referPath = DaemonPath(referer.target, options.keepSlash);
        } else {
            req.referPath = e.referer;
        }
    }
    req.methodName = e.method;
    req.method = MethodCode(e.method);
    req.begin = reqBegin;
    req.end = reqEnd;

    Transaction tx;
    tx.origin = req.origin;
    tx.method = e.method;
    tx.url = e.url.authority + e.url.target;
    tx.truePage = e.pageref;
    tx.begin = reqBegin;
    tx.end = e.answered ? rspEnd : reqEnd;
    tx.bodySize = e.bodySize;
    const Phase phases[] = {{"blocked", e.start, dnsBegin},
                            {"dns", dnsBegin, connectBegin},
                            {"connect", connectBegin, reqBegin - e.ssl},
                            {"tls", reqBegin - e.ssl, reqBegin},
                            {"send", reqBegin, reqEnd},
                            {"wait", reqEnd, rspBegin},
                            {"receive", rspBegin, rspEnd}};
    for (const Phase &phase : phases) {
        if (phase.end > phase.begin && (e.answered || phase.begin < reqEnd)) {
            tx.phases.push_back(phase);
        }
    }
    const int txIndex = static_cast<int>(trace->transactions.size());
    req.transaction = txIndex;
    tx.request = static_cast<int>(trace->events.size());
    trace->events.push_back(req);

    if (e.answered) {
        TraceEvent rsp = shared;
        rsp.kind = EventKind::kResponse;
        rsp.begin = rspBegin;
        rsp.end = rspEnd;
        rsp.transaction = txIndex;
        tx.response = static_cast<int>(trace->events.size());
        trace->events.push_back(rsp);
    }
    trace->transactions.push_back(tx);
}

// log.pages: optional, and a broken page only loses its milestones.
void ReadPages(const json &log, Trace *trace)
{
    auto pages = log.find("pages");
    if (pages == log.end() || !pages->is_array()) {
        return;
    }
    for (const json &page : *pages) {
        if (!page.is_object() || !page.contains("id") || !page["id"].is_string()) {
            continue;
        }
        RecordedPage p;
        p.id = page["id"].get<std::string>();
        if (page.contains("title") && page["title"].is_string()) {
            p.title = page["title"].get<std::string>();
        }
        if (page.contains("startedDateTime") && page["startedDateTime"].is_string()) {
            ParseIsoTime(page["startedDateTime"].get<std::string>(), &p.start);
        }
        auto timings = page.find("pageTimings");
        if (timings != page.end() && timings->is_object()) {
            for (auto [key, out] : {std::pair{"onContentLoad", &p.onContentLoadMs}, std::pair{"onLoad", &p.onLoadMs}}) {
                auto it = timings->find(key);
                if (it != timings->end() && it->is_number() && it->get<double>() >= 0.0) {
                    *out = it->get<double>();
                }
            }
        }
        trace->pages.push_back(std::move(p));
    }
}

}  // namespace

Trace ReadHar(const std::string &file, const std::string &text, const ReadOptions &options)
{
    Trace trace;
    trace.file = file;
    trace.format = "har";
    json doc;
    try {
        doc = json::parse(text);
    } catch (const json::exception &err) {  // syntax, and numbers beyond a double (1e999)
        trace.fatal = "not valid JSON: " + DescribeParseError(err.what());
        return trace;
    }
    if (!doc.is_object() || !doc.contains("log") || !doc["log"].is_object()) {
        trace.fatal = "not a HAR file: no \"log\" object";
        return trace;
    }
    const json &log = doc["log"];
    if (!log.contains("entries") || !log["entries"].is_array()) {
        trace.fatal = "not a HAR file: no log.entries array";
        return trace;
    }

    ReadPages(log, &trace);
    std::vector<HarEntry> entries;
    const json &list = log["entries"];
    for (size_t i = 0; i < list.size(); ++i) {
        const json &entry = list[i];
        try {
            if (!entry.is_object()) {
                throw InputError("not an object");
            }
            const std::string scheme = SchemeOf(entry);
            if (!scheme.empty() && scheme != "http" && scheme != "https") {
                ++trace.notHttp;  // data:, blob:, extensions: nothing a daemon sees
                continue;
            }
            if (!options.withCache && IsCacheHit(entry)) {
                ++trace.cacheHits;
                continue;
            }
            entries.push_back(ReadEntry(entry, i));
        } catch (const InputError &err) {
            trace.Skip({Where(i), err.what()});
        } catch (const json::exception &err) {
            trace.Skip({Where(i), DescribeParseError(err.what())});
        }
    }
    std::stable_sort(entries.begin(), entries.end(),
                     [](const HarEntry &a, const HarEntry &b) { return a.start < b.start; });
    std::map<std::string, FlowState> flows;
    for (const HarEntry &e : entries) {
        AddEvents(e, options, &flows, &trace);
    }
    return trace;
}

}  // namespace replay
