#include "bench_stream.hpp"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>

#include <nlohmann/json.hpp>

namespace bench {

namespace {

// splitmix64: small, fast and identical on every platform.
class Rng {
public:
    explicit Rng(uint64_t seed) : state_(seed) {}
    uint64_t Next()
    {
        uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    uint32_t Below(uint32_t n) { return static_cast<uint32_t>(Next() % n); }
    uint64_t Between(uint64_t lo, uint64_t hi) { return lo + Next() % (hi - lo + 1); }
    bool Chance(uint32_t percent) { return Below(100) < percent; }

private:
    uint64_t state_;
};

constexpr uint32_t kSites = 24;
constexpr uint64_t kQuietGapAfterTrace = 10 * kSec;
constexpr uint32_t kFlowsPerHost = 4;
constexpr uint64_t kKeepAliveIdle = 15 * kSec;
const char *const kThirdParties[] = {"cdn.example.net", "img.example.org", "fonts.example.com",
                                     "ads.example.net", "api.example.org", "video.example.com"};

struct Resource {
    const char *pattern;  // printf pattern of the path, one %u
    const char *ctype;
};
const Resource kResources[] = {
    {"css/style-%u.css", "text/css"},          {"js/app-%u.js", "application/javascript"},
    {"js/vendor-%u.js", "application/javascript"}, {"img/photo-%u.jpg", "image/jpeg"},
    {"img/thumb-%u.jpg", "image/jpeg"},        {"assets/icon-%u.png", "image/png"},
    {"api/v1/items?page=%u", "application/json"}, {"img/banner-%u.gif", "image/gif"},
};
const char *const kMainPaths[] = {"", "news/2024/article-%u.html", "products/item-%u", "search?q=term%u",
                                  "blog/post-%u/"};

std::string Format(const char *pattern, uint32_t n)
{
    char buf[128];
    std::snprintf(buf, sizeof(buf), pattern, n);
    return buf;
}

// One HTTP transaction before it is split into a request and a response event.
struct Transaction {
    uint32_t flow;
    uint64_t syn;  // the flow's SYN time
    uint64_t reqBegin, rspBegin, rspEnd;
    uint32_t method;
    uint32_t status;
    std::string host, uri, referHost, referPath, location, ctype;
    uint16_t clientPort;
    uint32_t serverIp;
};

struct Flow {
    uint32_t id;
    uint64_t syn;
    uint64_t freeAt;  // end of its last transaction
    uint16_t clientPort;
};

class Generator {
public:
    Generator(uint32_t seed, uint64_t start) : rng_(seed), now_(start), start_(start) {}

    Stream Run(uint32_t pages)
    {
        Stream stream;
        std::vector<Transaction> txs;
        uint32_t site = rng_.Below(kSites);
        for (uint32_t p = 0; p < pages; ++p) {
            if (!rng_.Chance(50)) {  // half the time the user stays on the site
                site = rng_.Below(kSites);
            }
            const size_t first = txs.size();
            MakePage(site, &txs);
            for (size_t i = first; i < txs.size(); ++i) {
                Emit(txs[i], p, &stream);
            }
            // The user reads for a while: a quiet gap before the next page.
            now_ = std::max(now_, lastEnd_) + rng_.Between(3 * kSec, 30 * kSec);
        }
        // The daemon hands events over in the order they were seen on the wire.
        std::stable_sort(stream.events.begin(), stream.events.end(),
                         [](const StreamEvent &a, const StreamEvent &b) {
                             return a.ev.ullMsgBeginTime < b.ev.ullMsgBeginTime;
                         });
        stream.flows = nextFlow_;
        stream.pages = pages;
        stream.span = now_ - start_;
        return stream;
    }

private:
    Flow &FlowFor(const std::string &host, uint64_t at)
    {
        std::vector<Flow> &pool = flows_[host];
        Flow *best = nullptr;
        for (Flow &f : pool) {
            if (f.freeAt + kKeepAliveIdle < at) {
                continue;  // the server closed the idle connection
            }
            if (best == nullptr || f.freeAt < best->freeAt) {
                best = &f;
            }
        }
        if (best != nullptr && (best->freeAt <= at || pool.size() >= kFlowsPerHost)) {
            return *best;
        }
        pool.erase(std::remove_if(pool.begin(), pool.end(),
                                  [&](const Flow &f) { return f.freeAt + kKeepAliveIdle < at; }),
                   pool.end());
        pool.push_back(Flow{nextFlow_++, at, at + rng_.Between(15, 60) * kMs,
                            static_cast<uint16_t>(32768 + (nextPort_++ % 28000))});
        return pool.back();
    }

    // Places a transaction on a flow of its host, after whatever that flow
    // is still busy with; returns its end.
    uint64_t Place(Transaction tx, uint64_t discovered, std::vector<Transaction> *txs)
    {
        Flow &flow = FlowFor(tx.host, discovered);
        tx.flow = flow.id;
        tx.syn = flow.syn;
        tx.clientPort = flow.clientPort;
        tx.reqBegin = std::max(discovered, flow.freeAt);
        tx.rspBegin = tx.reqBegin + rng_.Between(20, 180) * kMs;
        tx.rspEnd = tx.rspBegin + rng_.Between(2, 250) * kMs;
        tx.serverIp = 0xC6336400u + static_cast<uint32_t>(std::hash<std::string>()(tx.host) & 0xFF);
        flow.freeAt = tx.rspEnd;
        lastEnd_ = std::max(lastEnd_, tx.rspEnd);
        txs->push_back(std::move(tx));
        return flow.freeAt;
    }

    void MakePage(uint32_t site, std::vector<Transaction> *txs)
    {
        char www[64], bare[64], stat[64];
        std::snprintf(www, sizeof(www), "www.site%02u.example", site);
        std::snprintf(bare, sizeof(bare), "site%02u.example", site);
        std::snprintf(stat, sizeof(stat), "static.site%02u.example", site);
        const uint32_t serial = serial_++;
        const std::string mainPath = Format(kMainPaths[rng_.Below(5)], serial);

        uint64_t t = now_;
        if (rng_.Chance(25)) {  // typed the bare domain: the server redirects
            Transaction r{};
            r.method = WEBPAGE_METHOD_GET;
            r.status = rng_.Chance(50) ? 301 : 302;
            r.host = bare;
            r.uri = mainPath;
            r.location = std::string("http://") + www + "/" + mainPath;
            r.ctype = "text/html";
            t = Place(r, t, txs) + rng_.Between(1, 10) * kMs;
        }
        Transaction m{};
        m.method = WEBPAGE_METHOD_GET;
        m.status = rng_.Chance(97) ? 200 : 404;
        m.host = www;
        m.uri = mainPath;
        m.ctype = "text/html";
        const size_t mainIndex = txs->size();
        Place(m, t, txs);
        // Sub-resources are discovered while the main document streams in.
        uint64_t discovered = (*txs)[mainIndex].rspBegin + rng_.Between(5, 30) * kMs;

        const uint32_t subs = static_cast<uint32_t>(rng_.Between(10, 60));
        std::string lastCss;
        for (uint32_t i = 0; i < subs; ++i) {
            Transaction s{};
            const Resource &res = kResources[rng_.Below(8)];
            const uint32_t pick = rng_.Below(100);
            s.host = pick < 35 ? www : pick < 65 ? stat : kThirdParties[rng_.Below(6)];
            s.uri = Format(res.pattern, serial * 64 + i);
            s.ctype = res.ctype;
            s.method = WEBPAGE_METHOD_GET;
            s.status = rng_.Chance(96) ? 200 : rng_.Chance(50) ? 304 : 404;
            if (!lastCss.empty() && rng_.Chance(20)) {  // fonts and backgrounds named by a style sheet
                s.uri = Format(rng_.Chance(50) ? "fonts/face-%u.woff2" : "img/bg-%u.png", serial * 64 + i);
                s.ctype = s.uri[0] == 'f' ? "font/woff2" : "image/png";
                s.referHost = stat;
                s.referPath = lastCss;
            } else if (rng_.Chance(95)) {
                s.referHost = www;
                s.referPath = mainPath;
            }
            if (s.host == "ads.example.net" && rng_.Chance(50)) {  // tracking beacon
                s.method = WEBPAGE_METHOD_POST;
                s.uri = Format("collect?v=%u", serial * 64 + i);
                s.status = 204;
                s.ctype = "text/plain";
            }
            if (std::strcmp(res.ctype, "text/css") == 0 && s.host == stat) {
                lastCss = s.uri;
            }
            Place(s, discovered, txs);
            discovered += rng_.Between(2, 40) * kMs;
        }
    }

    const char *Keep(Stream *stream, const std::string &text)
    {
        stream->texts.push_back(text);
        return stream->texts.back().c_str();
    }

    void SetText(Stream *stream, const std::string &text, const unsigned char **ptr, uint16_t *len)
    {
        if (text.empty()) {
            *ptr = nullptr;
            *len = 0;
            return;
        }
        *ptr = reinterpret_cast<const unsigned char *>(Keep(stream, text));
        *len = static_cast<uint16_t>(text.size());
    }

    // The daemon decodes the response header before it hands the request
    // over, so a request event carries its transaction's status, type and
    // Location; the response event follows when the body has arrived.
    void Emit(const Transaction &tx, uint32_t page, Stream *stream)
    {
        StreamEvent req{};
        STWebPageEvent &q = req.ev;
        q.ucProtol = 6;
        q.usClientPort = tx.clientPort;
        q.usServerPort = 80;
        q.uiClientIp = 0x0A000002u;
        q.uiServerIp = tx.serverIp;
        q.usEventID = WEBPAGE_EVENT_REQUEST;
        q.ucReqMethod = tx.method;
        q.usRspCode = tx.status;
        q.enNetworkType = 1;
        SetText(stream, tx.host, &q.pucHost, &q.usHostLen);
        SetText(stream, tx.uri, &q.pucURL, &q.usURLLen);
        SetText(stream, tx.referHost, &q.pucReferHost, &q.usReferHostLen);
        SetText(stream, tx.referPath, &q.pucReferURL, &q.usReferURLLen);
        SetText(stream, tx.location, &q.pucLocation, &q.usLocationLen);
        SetText(stream, tx.ctype, &q.pucContentType, &q.usContentTypeLen);
        q.ullMsgBeginTime = tx.reqBegin;
        q.ullMsgEndTime = tx.reqBegin + kMs;
        q.ullFirTime = tx.syn;
        req.flow = tx.flow;
        req.page = page;

        StreamEvent rsp = req;
        STWebPageEvent &r = rsp.ev;
        r.usEventID = WEBPAGE_EVENT_RESPONSE;
        r.ucReqMethod = 0;
        r.pucHost = r.pucURL = r.pucReferHost = r.pucReferURL = nullptr;
        r.usHostLen = r.usURLLen = r.usReferHostLen = r.usReferURLLen = 0;
        r.ullMsgBeginTime = tx.rspBegin;
        r.ullMsgEndTime = tx.rspEnd;
        stream->events.push_back(req);
        stream->events.push_back(rsp);
    }

    Rng rng_;
    uint64_t now_;
    uint64_t start_;
    uint64_t lastEnd_ = 0;
    uint32_t nextFlow_ = 0;
    uint32_t nextPort_ = 0;
    uint32_t serial_ = 0;
    std::map<std::string, std::vector<Flow>> flows_;
};

void WriteJsonText(std::FILE *out, const char *key, const unsigned char *text, uint16_t len)
{
    if (text == nullptr || len == 0) {
        return;
    }
    std::fprintf(out, ",\"%s\":\"", key);
    for (uint16_t i = 0; i < len; ++i) {
        const unsigned char c = text[i];
        if (c == '"' || c == '\\') {
            std::fputc('\\', out);
        }
        if (c < 0x20) {
            std::fprintf(out, "\\u%04x", c);
        } else {
            std::fputc(c, out);
        }
    }
    std::fputc('"', out);
}

// Copies at most cap bytes of src to dst, lower-casing and hashing on the way;
// hash continues from h so that joined texts hash as one.
inline uint16_t CopyLowerHash(char *dst, uint16_t cap, const unsigned char *src, uint16_t len, uint32_t *h)
{
    const uint16_t n = len < cap ? len : cap;
    uint32_t hash = *h;
    uint16_t i = 0;
    for (; i < n; ++i) {
        unsigned char c = src[i];
        if (c == 0) {
            break;
        }
        c = static_cast<unsigned char>(static_cast<unsigned>(c - 'A') < 26u ? c + 32 : c);
        dst[i] = static_cast<char>(c);
        hash = hash * 31u + c;
    }
    dst[i] = '\0';
    *h = hash;
    return i;
}

inline uint16_t CopyCut(char *dst, uint16_t cap, const unsigned char *src, uint16_t len)
{
    const uint16_t n = src == nullptr ? 0 : (len < cap ? len : cap);
    if (n != 0) {
        std::memcpy(dst, src, n);
    }
    dst[n] = '\0';
    return n;
}

}  // namespace

uint32_t Stream::Requests() const
{
    return static_cast<uint32_t>(std::count_if(events.begin(), events.end(), [](const StreamEvent &e) {
        return e.ev.usEventID == WEBPAGE_EVENT_REQUEST;
    }));
}

Stream MakeBrowsingStream(uint32_t pages, uint32_t seed, uint64_t start)
{
    return Generator(seed, start).Run(pages);
}

Stream LoadJsonlStream(const std::string &path, std::string *error)
{
    Stream stream;
    std::ifstream in(path);
    if (!in) {
        *error = "cannot open " + path;
        return stream;
    }
    std::map<std::string, uint32_t> flows;
    std::map<std::string, uint32_t> pages;
    std::string line;
    size_t lineNo = 0;
    uint64_t first = UINT64_MAX, last = 0;
    auto text = [&](const nlohmann::json &obj, const char *key, const unsigned char **ptr, uint16_t *len) {
        auto it = obj.find(key);
        if (it == obj.end() || !it->is_string() || it->get<std::string>().empty()) {
            *ptr = nullptr;
            *len = 0;
            return;
        }
        stream.texts.push_back(it->get<std::string>());
        *ptr = reinterpret_cast<const unsigned char *>(stream.texts.back().data());
        *len = static_cast<uint16_t>(std::min<size_t>(stream.texts.back().size(), UINT16_MAX));
    };
    auto number = [](const nlohmann::json &obj, const char *key, uint64_t fallback) {
        auto it = obj.find(key);
        return it != obj.end() && it->is_number_unsigned() ? it->get<uint64_t>() : fallback;
    };
    auto address = [&](const nlohmann::json &obj, const char *key, uint32_t fallback) -> uint32_t {
        auto it = obj.find(key);
        if (it == obj.end()) {
            return fallback;
        }
        if (it->is_string()) {
            unsigned a = 0, b = 0, c = 0, d = 0;
            if (std::sscanf(it->get<std::string>().c_str(), "%u.%u.%u.%u", &a, &b, &c, &d) == 4) {
                return (a << 24) | (b << 16) | (c << 8) | d;
            }
            return fallback;
        }
        return static_cast<uint32_t>(number(obj, key, fallback));
    };
    while (std::getline(in, line)) {
        ++lineNo;
        const size_t start = line.find_first_not_of(" \t\r");
        if (start == std::string::npos || line[start] == '#') {
            continue;
        }
        const nlohmann::json obj = nlohmann::json::parse(line, nullptr, false);
        if (obj.is_discarded() || !obj.is_object()) {
            *error = path + ":" + std::to_string(lineNo) + ": not a JSON object";
            return Stream();
        }
        const std::string kind = obj.value("ev", std::string());
        if (kind != "req" && kind != "rsp") {
            continue;
        }
        const bool req = kind == "req";
        StreamEvent se{};
        STWebPageEvent &e = se.ev;
        const nlohmann::json &flow = obj["flow"];
        const std::string flowKey = flow.is_string() ? flow.get<std::string>() : flow.dump();
        se.flow = flows.emplace(flowKey, static_cast<uint32_t>(flows.size())).first->second;
        const std::string page = obj.value("page", std::string());
        if (!page.empty()) {
            se.page = pages.emplace(page, static_cast<uint32_t>(pages.size())).first->second;
        }
        e.ucProtol = 6;
        e.ucFinRst = static_cast<uint8_t>(number(obj, "fin", 0));
        e.usClientPort = static_cast<uint16_t>(number(obj, "cport", 0));
        e.usServerPort = static_cast<uint16_t>(number(obj, "sport", 80));
        e.uiClientIp = address(obj, "cip", 0x0A000002u);
        e.uiServerIp = address(obj, "sip", 0);
        e.usEventID = req ? WEBPAGE_EVENT_REQUEST : WEBPAGE_EVENT_RESPONSE;
        if (req) {
            const std::string method = obj.value("method", std::string("GET"));
            e.ucReqMethod = method == "GET" ? WEBPAGE_METHOD_GET : method == "POST" ? WEBPAGE_METHOD_POST : 3;
            text(obj, "host", &e.pucHost, &e.usHostLen);
            text(obj, "uri", &e.pucURL, &e.usURLLen);
            text(obj, "refer_host", &e.pucReferHost, &e.usReferHostLen);
            text(obj, "refer_path", &e.pucReferURL, &e.usReferURLLen);
        }
        e.usRspCode = static_cast<uint32_t>(number(obj, "status", 0));
        e.enNetworkType = static_cast<uint32_t>(number(obj, "net", 0));
        text(obj, "location", &e.pucLocation, &e.usLocationLen);
        text(obj, "ctype", &e.pucContentType, &e.usContentTypeLen);
        e.ullMsgBeginTime = number(obj, "begin", 0);
        e.ullMsgEndTime = number(obj, "end", e.ullMsgBeginTime);
        e.ullFirTime = number(obj, "syn", 0);
        first = std::min(first, e.ullMsgBeginTime);
        last = std::max(last, e.ullMsgEndTime);
        stream.events.push_back(se);
    }
    if (stream.events.empty()) {
        *error = path + ": no request or response events";
        return stream;
    }
    std::stable_sort(stream.events.begin(), stream.events.end(), [](const StreamEvent &a, const StreamEvent &b) {
        return a.ev.ullMsgBeginTime < b.ev.ullMsgBeginTime;
    });
    stream.flows = static_cast<uint32_t>(flows.size());
    stream.pages = static_cast<uint32_t>(pages.size());
    stream.span = last - first + kQuietGapAfterTrace;
    return stream;
}

void WriteJsonl(std::FILE *out, const Stream &stream, uint64_t shift, uint64_t flowBase)
{
    for (const StreamEvent &se : stream.events) {
        const STWebPageEvent &e = se.ev;
        const bool req = e.usEventID == WEBPAGE_EVENT_REQUEST;
        std::fprintf(out, "{\"ev\":\"%s\",\"flow\":%llu,\"begin\":%llu,\"end\":%llu,\"syn\":%llu", req ? "req" : "rsp",
                     static_cast<unsigned long long>(flowBase + se.flow),
                     static_cast<unsigned long long>(e.ullMsgBeginTime + shift),
                     static_cast<unsigned long long>(e.ullMsgEndTime + shift),
                     static_cast<unsigned long long>(e.ullFirTime + shift));
        if (req) {
            std::fprintf(out, ",\"method\":\"%s\"", e.ucReqMethod == WEBPAGE_METHOD_POST ? "POST" : "GET");
            WriteJsonText(out, "host", e.pucHost, e.usHostLen);
            WriteJsonText(out, "uri", e.pucURL, e.usURLLen);
            WriteJsonText(out, "refer_host", e.pucReferHost, e.usReferHostLen);
            WriteJsonText(out, "refer_path", e.pucReferURL, e.usReferURLLen);
        }
        if (e.usRspCode != 0) {
            std::fprintf(out, ",\"status\":%u", e.usRspCode);
        }
        WriteJsonText(out, "location", e.pucLocation, e.usLocationLen);
        WriteJsonText(out, "ctype", e.pucContentType, e.usContentTypeLen);
        std::fprintf(out, ",\"cport\":%u,\"sport\":%u,\"sip\":%u,\"net\":%u}\n", e.usClientPort, e.usServerPort,
                     e.uiServerIp, e.enNetworkType);
    }
}

uint32_t FloorEvent(const STWebPageEvent &ev, FloorScratch *s)
{
    uint32_t keys = 0;
    uint32_t h = 0;
    const uint16_t hostLen = CopyLowerHash(s->host, 64, ev.pucHost, ev.pucHost ? ev.usHostLen : 0, &h);
    keys ^= h & 0x7FFFFFFFu;

    // URL: the lower-cased host, '/', the path; its hash continues the host's.
    const uint16_t uriLen = CopyCut(s->uri, 128, ev.pucURL, ev.usURLLen);
    std::memcpy(s->url, s->host, hostLen);
    uint16_t urlLen = hostLen;
    if (uriLen != 0) {
        if (urlLen != 0) {
            s->url[urlLen++] = '/';
            h = h * 31u + '/';
        }
        urlLen = static_cast<uint16_t>(urlLen + CopyLowerHash(s->url + urlLen, static_cast<uint16_t>(256 - urlLen),
                                                              reinterpret_cast<const unsigned char *>(s->uri),
                                                              uriLen, &h));
    }
    s->url[urlLen] = '\0';
    keys ^= h & 0x7FFFFFFFu;

    // Referer: host and path joined the same way.
    h = 0;
    uint16_t refLen = CopyLowerHash(s->referer, 64, ev.pucReferHost, ev.pucReferHost ? ev.usReferHostLen : 0, &h);
    if (ev.pucReferURL != nullptr && ev.usReferURLLen != 0) {
        if (refLen != 0) {
            s->referer[refLen++] = '/';
            h = h * 31u + '/';
        }
        const uint16_t pathLen = ev.usReferURLLen < 128 ? ev.usReferURLLen : 128;
        refLen = static_cast<uint16_t>(refLen + CopyLowerHash(s->referer + refLen, static_cast<uint16_t>(256 - refLen),
                                                              ev.pucReferURL, pathLen, &h));
    }
    keys ^= h & 0x7FFFFFFFu;

    // Location, without its scheme.
    if (ev.pucLocation != nullptr && ev.usLocationLen != 0) {
        const unsigned char *loc = ev.pucLocation;
        uint16_t locLen = ev.usLocationLen;
        if (locLen > 7 && std::memcmp(loc, "http://", 7) == 0) {
            loc += 7;
            locLen = static_cast<uint16_t>(locLen - 7);
        }
        h = 0;
        CopyLowerHash(s->location, 128, loc, locLen, &h);
        keys ^= h & 0x7FFFFFFFu;
    }
    CopyCut(s->ctype, 64, ev.pucContentType, ev.usContentTypeLen);
    return keys;
}

}  // namespace bench
