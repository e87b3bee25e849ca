// Differential check of the page association: replays seeded stress streams
// and writes everything the daemon can observe into a transcript (return
// codes, page IDs, flow areas with page pointers as pool offsets, page
// results, DNS queries, timer calls, pool counts, every log line without its
// source line number). A stream's digest must equal the one recorded from the
// reference code, so a faster path that changes anything a daemon sees fails.
//
//   orvane_stress_transcript --check FILE        compare every seed's digest
//   orvane_stress_transcript --record            print "seed digest" lines
//   orvane_stress_transcript --dump SEED         print the seed's transcript
//
// The streams keep both pools dry for long stretches, switch the log level
// and rewrite the shared configuration every few dozen events, and change
// level, thresholds and keywords from inside the log, DNS and page-end
// callbacks, in the middle of an event.
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "browsing_stream.hpp"
#include "orvane_ott.h"
#include "webpage_check.hpp"
#include "webpage_fuzz_driver.hpp"

namespace {

constexpr uint64_t kSec = orvane_stream::kSec;
constexpr uint64_t kMs = orvane_stream::kMs;
constexpr int kFlows = orvane_stream::BrowsingStream::kFlows;
constexpr uint8_t kThreads[2] = {0, 5};

class Rng {
public:
    explicit Rng(uint64_t seed) : s_(seed * 0x2545F4914F6CDD1Dull + 0x9E3779B97F4A7C15ull) {}
    uint32_t Below(uint32_t n)
    {
        s_ ^= s_ << 13;
        s_ ^= s_ >> 7;
        s_ ^= s_ << 17;
        return static_cast<uint32_t>((s_ >> 11) % n);
    }
    bool Chance(uint32_t percent) { return Below(100) < percent; }

private:
    uint64_t s_;
};

// The transcript: hashed as it is written, printed too when dumping.
struct Transcript {
    uint64_t hash = 0xCBF29CE484222325ull;
    bool print = false;

    void Put(const std::string &s)
    {
        for (unsigned char c : s) {
            hash = (hash ^ c) * 0x100000001B3ull;
        }
        hash = (hash ^ '\n') * 0x100000001B3ull;
        if (print) {
            std::fwrite(s.data(), 1, s.size(), stdout);
            std::fputc('\n', stdout);
        }
    }
};

// Everything the callbacks need; the library's callbacks carry no user data.
struct World {
    Transcript out;
    Rng rng{1};
    uint64_t nextHandle = 1;
    uint32_t lines = 0;
    bool meddle = false;  // callbacks change the configuration mid-event
};

World *g_world = nullptr;

std::string Fmt(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
std::string Fmt(const char *fmt, ...)
{
    char buf[1024];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(buf, sizeof(buf), fmt, ap);
    va_end(ap);
    return buf;
}

// A log line without its source line number, which moves when code moves.
std::string WithoutLineNumber(const char *line)
{
    std::string s(line);
    size_t end = s.size();
    size_t i = end;
    while (i > 0 && s[i - 1] >= '0' && s[i - 1] <= '9') {
        --i;
    }
    if (i < end && i > 0 && s[i - 1] == ':') {
        s.erase(i);
    }
    return s;
}

// Page pointers of a flow area as offsets into the thread's page pool.
std::string PoolOffset(const void *p, uint8_t tid)
{
    if (p == nullptr) {
        return "0";
    }
    const STWebPage *ctx = g_pstWebPage[tid];
    if (ctx != nullptr) {
        const CMemPool &pool = ctx->stPageNodePool;
        const size_t span = static_cast<size_t>(pool.m_uiInitNodeNum) * (pool.m_uiNodeSize + sizeof(STTranNode));
        for (int b = 0; b < 3; ++b) {
            const auto *base = static_cast<const unsigned char *>(pool.m_apstBlock[b]);
            const auto *q = static_cast<const unsigned char *>(p);
            if (base != nullptr && q >= base && q < base + span) {
                return Fmt("b%d+%zu", b, static_cast<size_t>(q - base));
            }
        }
    }
    return "foreign";
}

const char *const kContentTypes[] = {"text/html", "application/xhtml+xml", "text/vnd.wap.wml", "text/plain",
                                     "application/json", "html", ""};
const char *const kFlash[] = {"swf", "flv", "video", "mp4", ""};
const char *const kBlack[] = {"statistic", "metrics", "cdn", "onebox", "suggest", "example", "poll", ""};
const char *const kInput[] = {"ucinput", "ucid", "q=", ""};

template <size_t N>
const char *PickOf(const char *const (&v)[N], Rng &rng)
{
    return v[rng.Below(N)];
}

void SetText(char *dst, size_t cap, const char *src)
{
    std::memset(dst, 0, cap);
    std::strncpy(dst, src, cap - 1);
}

// One rewrite of the configuration a daemon may change at any time.
std::string Meddle(Rng &rng)
{
    switch (rng.Below(13)) {
    case 9:
    case 10:
    case 11:
    case 12:
        // Back to the defaults, so that the rules keep matching between rewrites.
        InitWebPageConfig(&g_stPageConfig);
        std::memset(g_auiTimeThreshold, 0, sizeof(g_auiTimeThreshold));
        g_ausCauseCode407[0] = 407;
        return "defaults";
    case 0:
    case 1: {
        static constexpr uint32_t kLevels[] = {0, 1, 2, 3, 3, 2};
        g_enSDKLogLevel = kLevels[rng.Below(6)];
        return Fmt("level %u", g_enSDKLogLevel);
    }
    case 2:
    case 3: {
        static constexpr uint32_t kValues[] = {0, 1, 100, 700, 2000, 3500, 15000, 120000};
        const uint32_t i = rng.Below(24);
        g_auiTimeThreshold[i] = kValues[rng.Below(8)];
        return Fmt("threshold %u = %u", i, g_auiTimeThreshold[i]);
    }
    case 4: {
        static constexpr uint16_t kCodes[] = {407, 0, 200, 302, 404, 0xFFFF};
        const uint32_t i = rng.Below(3);
        g_ausCauseCode407[i] = kCodes[rng.Below(6)];
        return Fmt("407 code %u = %u", i, g_ausCauseCode407[i]);
    }
    case 5: {
        const uint32_t i = rng.Below(PAGE_CONTENT_TYPE_NUM);
        SetText(g_stPageConfig.aacContentType[i], PAGE_CONTENT_TYPE_LEN, PickOf(kContentTypes, rng));
        return Fmt("content type %u = %s", i, g_stPageConfig.aacContentType[i]);
    }
    case 6: {
        const uint32_t i = rng.Below(PAGE_HOST_BLACK_NUM);
        SetText(g_stPageConfig.aacHostBlackKeyword[i], PAGE_HOST_BLACK_LEN, PickOf(kBlack, rng));
        return Fmt("black %u = %s", i, g_stPageConfig.aacHostBlackKeyword[i]);
    }
    case 7: {
        const uint32_t i = rng.Below(PAGE_FLASH_KEYWORD_NUM);
        SetText(g_stPageConfig.aacFlashKeyword[i], PAGE_FLASH_KEYWORD_LEN, PickOf(kFlash, rng));
        SetText(g_stPageConfig.acUcInputKeyword, PAGE_INPUT_KEYWORD_LEN, PickOf(kInput, rng));
        return Fmt("flash %u = %s, input = %s", i, g_stPageConfig.aacFlashKeyword[i],
                   g_stPageConfig.acUcInputKeyword);
    }
    default: {
        if (rng.Chance(50)) {
            InitWebPageConfig(&g_stPageConfig);
            return "page config reset";
        }
        static constexpr uint32_t kKeys[] = {0, 1, 0xFFFFFFFFu};
        g_stPageConfig.uiHeartBeatHostKey = kKeys[rng.Below(3)];
        return Fmt("heartbeat key %u", g_stPageConfig.uiHeartBeatHostKey);
    }
    }
}

void MaybeMeddle(const char *where)
{
    World &w = *g_world;
    if (w.meddle && w.rng.Chance(where[0] == 'l' ? 3 : 25)) {
        const std::string what = Meddle(w.rng);
        w.out.Put(Fmt("  [%s meddles: %s]", where, what.c_str()));
    }
}

uint32_t OnLog(uint32_t level, const char *line)
{
    World &w = *g_world;
    ++w.lines;
    w.out.Put(Fmt("  L%u ", level) + WithoutLineNumber(line));
    MaybeMeddle("log");
    return 0;
}

uint32_t OnPageEnd(STPageKQI *k)
{
    g_world->out.Put(Fmt("  KQI page %" PRIx64 " flag %u succ %u cause %u dns %u delay %" PRIu64, k->uiPageID,
                         k->ucPageFlag, k->ucSuccFlag, k->usCauseCode, k->uiDnsDelay, k->ullPageDelay));
    MaybeMeddle("page end");
    return 0;
}

uint32_t OnDns(STDNSQueryInfo *q, STDNSQueryResult *r)
{
    const std::string host = q->pcHost != nullptr ? std::string(q->pcHost, q->usHostLen) : "(null)";
    g_world->out.Put(Fmt("  DNS %s len %u ip %08x", host.c_str(), q->usHostLen, q->uiServerIp));
    const uint8_t h = q->pcHost != nullptr && q->usHostLen > 0 ? static_cast<uint8_t>(q->pcHost[0]) : 0;
    r->ullDNSBeginTime = (h & 1) ? 0 : 1700000000ull * kSec - h * kMs;
    r->uiDnsDelay = h;
    MaybeMeddle("dns");
    return 0;
}

uint32_t OnTimerStart(uint32_t thread, uint32_t period, PFPageTimerHandler handler, void *ctx)
{
    int which = -1;
    for (uint32_t t = 0; t < WEBPAGE_THREAD_NUM; ++t) {
        if (ctx != nullptr && ctx == g_pstWebPage[t]) {
            which = static_cast<int>(t);
        }
    }
    const uint64_t handle = g_world->nextHandle++;
    g_world->out.Put(Fmt("  TIMER start thread %u period %u handler %s ctx %d handle %" PRIu64, thread, period,
                         handler == &WebPageTimeOut ? "ok" : "other", which, handle));
    if (ctx != nullptr) {
        std::memcpy(ctx, &handle, sizeof(handle));
    }
    return 0;
}

uint32_t OnTimerStop(uint64_t handle)
{
    g_world->out.Put(Fmt("  TIMER stop %" PRIu64, handle));
    return 0;
}

// The event's strings, owned so that they can be mutated.
struct OwnedEvent {
    STWebPageEvent ev{};
    std::string text[6];
    bool null[6] = {};
};

void Own(OwnedEvent &o, const STWebPageEvent &ev)
{
    o.ev = ev;
    const unsigned char *const ptrs[6] = {ev.pucHost, ev.pucURL, ev.pucReferHost, ev.pucReferURL, ev.pucLocation,
                                          ev.pucContentType};
    const uint16_t lens[6] = {ev.usHostLen, ev.usURLLen, ev.usReferHostLen, ev.usReferURLLen, ev.usLocationLen,
                              ev.usContentTypeLen};
    for (int i = 0; i < 6; ++i) {
        o.text[i] = ptrs[i] != nullptr ? std::string(reinterpret_cast<const char *>(ptrs[i]), lens[i]) : "";
        o.null[i] = ptrs[i] == nullptr;
    }
}

void Bind(OwnedEvent &o)
{
    const unsigned char **ptrs[6] = {&o.ev.pucHost, &o.ev.pucURL, &o.ev.pucReferHost, &o.ev.pucReferURL,
                                     &o.ev.pucLocation, &o.ev.pucContentType};
    uint16_t *lens[6] = {&o.ev.usHostLen, &o.ev.usURLLen, &o.ev.usReferHostLen, &o.ev.usReferURLLen,
                         &o.ev.usLocationLen, &o.ev.usContentTypeLen};
    for (int i = 0; i < 6; ++i) {
        *ptrs[i] = o.null[i] ? nullptr : reinterpret_cast<const unsigned char *>(o.text[i].data());
        if (!o.null[i]) {
            *lens[i] = static_cast<uint16_t>(o.text[i].size());
        }
    }
}

// Requests carry their transaction's status and content type, as the replay
// tool's traces do; the stream's URIs lose their leading slash at times.
void TypeRequest(OwnedEvent &o, Rng &rng)
{
    const std::string &uri = o.text[1];
    auto endsWith = [&](const char *suffix) {
        const size_t n = std::strlen(suffix);
        return uri.size() >= n && uri.compare(uri.size() - n, n, suffix) == 0;
    };
    const char *type = endsWith(".html") || endsWith("/") ? "text/html; charset=utf-8"
                       : endsWith(".css")                 ? "text/css"
                       : endsWith(".js")                  ? "application/javascript"
                       : endsWith(".png")                 ? "image/png"
                                                          : "application/json";
    if (o.null[5] && rng.Chance(90)) {
        o.null[5] = false;
        o.text[5] = type;
    }
    if (o.ev.usRspCode == 0) {
        o.ev.usRspCode = rng.Chance(90) ? 200 : (rng.Chance(50) ? 404 : 302);
    }
    for (int f : {1, 3}) {
        if (!o.text[f].empty() && o.text[f][0] == '/' && rng.Chance(50)) {
            o.text[f].erase(0, 1);
        }
    }
}

// The shapes real traffic and broken daemons give: capitals, NUL bytes,
// over-long and cut texts, absolute-form URIs, other codes, methods and
// network types, times out of order.
void Mutate(OwnedEvent &o, Rng &rng)
{
    const int field = static_cast<int>(rng.Below(6));
    std::string &s = o.text[field];
    switch (rng.Below(13)) {
    case 11:  // texts no page saw before: fill the string pool
        o.text[1] += "/u" + std::to_string(rng.Below(100000));
        o.text[0] += rng.Chance(30) ? ".u" + std::to_string(rng.Below(1000)) : "";
        break;
    case 0:
        for (char &c : s) {
            if (c >= 'a' && c <= 'z' && rng.Chance(50)) {
                c = static_cast<char>(c - 'a' + 'A');
            }
        }
        break;
    case 1:
        s.insert(rng.Below(static_cast<uint32_t>(s.size()) + 1), 1, '\0');
        break;
    case 2: {
        const std::string unit = s.empty() ? std::string("x") : s;
        const uint32_t n = 60 + rng.Below(400);
        while (s.size() < n) {
            s += unit;
        }
        s.resize(n);
        break;
    }
    case 3:
        s.resize(rng.Below(static_cast<uint32_t>(s.size()) + 1));
        break;
    case 4:
        if (field == 1 || field == 3) {
            s = (rng.Chance(50) ? "http://" : "HTTPS://") + o.text[0] + s;
        } else if (field == 4) {
            s = "https://" + o.text[0] + "/next?ucid=1";
        }
        break;
    case 5:
        o.null[field] = true;
        break;
    case 6: {
        static constexpr uint32_t kCodes[] = {0, 200, 204, 301, 302, 303, 304, 307, 404, 407, 500, 0x100C8, 399};
        o.ev.usRspCode = kCodes[rng.Below(13)];
        break;
    }
    case 7: {
        static constexpr uint32_t kMethods[] = {0, 1, 2, 3, 0xFFFF};
        o.ev.ucReqMethod = kMethods[rng.Below(5)];
        o.ev.ucFinRst = static_cast<uint8_t>(rng.Below(3));
        break;
    }
    case 8: {
        static constexpr uint32_t kNets[] = {0, 1, 2, 3, 4, 0xFFFFFFFF};
        o.ev.enNetworkType = kNets[rng.Below(6)];
        break;
    }
    case 9:
        switch (rng.Below(4)) {
        case 0: o.ev.ullFirTime = 0; break;
        case 1: o.ev.ullFirTime = o.ev.ullMsgBeginTime - 5 * kSec - rng.Below(2); break;
        case 2: o.ev.ullMsgEndTime = o.ev.ullMsgBeginTime - rng.Below(3) * kSec; break;
        default: o.ev.ullMsgBeginTime -= (1 + rng.Below(30)) * kSec; break;
        }
        break;
    case 10: {
        static const char *const kWords[] = {"?ucid=42", "ucinput", "/video/x.swf", "/a.flv", "statistic",
                                             "application/x-shockwave-flash", "text/vnd.wap.wml"};
        s += kWords[rng.Below(7)];
        break;
    }
    default:
        o.ev.usEventID = rng.Chance(90) ? 1 - o.ev.usEventID : 7;
        break;
    }
}

std::string FlowText(const STFlowInfo &f, uint8_t tid)
{
    return Fmt("ucid %u black %u res %02x%02x%02x%02x%02x%02x single %" PRIx64 " assoc %" PRIx64
               " sp %s ap %s type %u res %u",
               f.ucIsUcid, f.ucIsBlack, f.aucReserved[0], f.aucReserved[1], f.aucReserved[2], f.aucReserved[3],
               f.aucReserved[4], f.aucReserved[5], f.ullSinglePageID, f.ullAssociatePageID,
               PoolOffset(f.pstSinglePage, tid).c_str(), PoolOffset(f.pstAssociatePage, tid).c_str(), f.uiPageType,
               f.uiReserved);
}

std::string Pools()
{
    std::string s = "  pools";
    for (uint8_t t : kThreads) {
        const STWebPage *ctx = g_pstWebPage[t];
        if (ctx == nullptr) {
            s += Fmt(" t%u none", t);
            continue;
        }
        s += Fmt(" t%u pages %u/%u strings %u/%u lists %u/%u id %" PRIx64 " timer %" PRIu64, t,
                 ctx->stPageNodePool.m_uiFreeNodeNum, ctx->stPageNodePool.m_uiUsedNodeNum,
                 ctx->stMatchStrMemPool.m_uiFreeNodeNum, ctx->stMatchStrMemPool.m_uiUsedNodeNum,
                 ctx->stPageNodeList.uiNodeNum, ctx->stUcidPageNodeList.uiNodeNum, g_aulPageID[t], ctx->ulPageTimer);
    }
    return s;
}

struct Lane {
    uint8_t tid;
    orvane_stream::BrowsingStream stream;
    STFlowInfo flows[kFlows];
};

void ResetFlows(Lane &l)
{
    for (STFlowInfo &f : l.flows) {
        API_InitWebPageFlow(&f);
    }
}

void Create(Lane &l, const STWebPageConfig &cfg)
{
    uint32_t size = 0;
    const uint32_t rc = API_InitWebPage(l.tid, &cfg, &size, OnPageEnd, OnDns);
    g_world->out.Put(Fmt("INIT t%u rc %u size %u", l.tid, rc, size));
}

void Associate(Lane &l, World &w, size_t i, int flow, OwnedEvent &o)
{
    Bind(o);
    uint64_t id = 0x5A5A;
    const uint32_t rc = API_AssociateWebPage(l.tid, &l.flows[flow], &o.ev, &id);
    w.out.Put(Fmt("EV %zu t%u flow %d %s rc %u id %" PRIx64 " | ", i, l.tid, flow,
                  o.ev.usEventID == WEBPAGE_EVENT_REQUEST ? "req" : "rsp", rc, id) +
              FlowText(l.flows[flow], l.tid));
    w.out.Put(Pools());
    const std::string bad = orvane_check::CheckContext(l.tid, nullptr);
    if (!bad.empty()) {
        w.out.Put("BROKEN " + bad);
    }
}

// A page with many sub-requests of texts no page saw before: while the timer
// stays dry, a few of these fill the string pool.
void Burst(Lane &l, World &w, size_t i)
{
    const uint64_t t0 = l.stream.Now() + kSec;
    const std::string host = "burst" + std::to_string(w.rng.Below(1000)) + ".example";
    const std::string path = "/p" + std::to_string(w.rng.Below(100000)) + ".html";
    const int n = 20 + static_cast<int>(w.rng.Below(40));
    w.out.Put(Fmt("BURST t%u %s%s x%d", l.tid, host.c_str(), path.c_str(), n));
    for (int k = 0; k <= n; ++k) {
        OwnedEvent o;
        const int flow = kFlows - 2 - static_cast<int>(w.rng.Below(4));
        if (k == 0) {
            API_InitWebPageFlow(&l.flows[flow]);
        }
        o.ev.ucProtol = 6;
        o.ev.usEventID = WEBPAGE_EVENT_REQUEST;
        o.ev.ucReqMethod = WEBPAGE_METHOD_GET;
        o.ev.usClientPort = static_cast<uint16_t>(41000 + flow);
        o.ev.usServerPort = 443;
        o.ev.uiClientIp = 0x0A000003;
        o.ev.uiServerIp = 0xC6336400u + static_cast<uint32_t>(flow);
        o.ev.ullMsgBeginTime = t0 + static_cast<uint64_t>(k) * 7 * kMs;
        o.ev.ullMsgEndTime = o.ev.ullMsgBeginTime + 3 * kMs;
        o.ev.ullFirTime = t0 - 20 * kMs;
        o.text[0] = k == 0 || w.rng.Chance(50) ? host : "s" + std::to_string(w.rng.Below(100000)) + "." + host;
        o.text[1] = k == 0 ? path : "/r/" + std::to_string(w.rng.Below(1000000)) + ".js";
        if (k > 0) {
            o.text[2] = host;
            o.text[3] = w.rng.Chance(80) ? path : "/q" + std::to_string(w.rng.Below(1000));
        } else {
            o.null[2] = o.null[3] = true;
        }
        o.null[4] = true;
        o.null[5] = true;
        if (w.rng.Chance(10)) {
            Mutate(o, w.rng);
        }
        Associate(l, w, i, flow, o);
    }
}

// OTT: a small pool that runs dry, three flows and two sessions; records,
// merges (the tail, inside, before the head, across gaps), speeds and
// releases, with the log level switching. Nodes are named by pool offset.
std::string OttNodeName(const CMemPool *pool, const void *p)
{
    if (p == nullptr) {
        return "0";
    }
    const auto *base = static_cast<const unsigned char *>(pool->m_apstBlock[0]);
    const auto *q = static_cast<const unsigned char *>(p);
    const size_t span = static_cast<size_t>(pool->m_uiInitNodeNum) * (pool->m_uiNodeSize + sizeof(STTranNode));
    return base != nullptr && q >= base && q < base + span ? std::to_string(q - base) : "foreign";
}

std::string OttList(const CMemPool *pool, const STTranManage &list)
{
    std::string s = Fmt("[%u:", list.uiNodeNum);
    orvane::WalkList(&list, list.uiNodeNum, [&](STTranNode *n) {
        const auto *t = reinterpret_cast<const STOttTransNode *>(n);
        s += Fmt(" %s %" PRIu64 "-%" PRIu64 " p%u d%u s%u", OttNodeName(pool, n).c_str(), t->ullBeginTime,
                 t->ullEndTime, t->uiPayLoad, t->ucDirection, t->ucState);
        return false;
    });
    return s + "]";
}

std::string OttPool(const CMemPool *pool)
{
    std::string s = Fmt("  ott pool free %u used %u:", pool->m_uiFreeNodeNum, pool->m_uiUsedNodeNum);
    uint32_t n = 0;
    for (const STTranNode *f = pool->m_pstFreeHead; f != nullptr && n <= pool->m_uiInitNodeNum; f = f->pstNext, ++n) {
        s += " " + OttNodeName(pool, f);
    }
    return s + " tail " + OttNodeName(pool, pool->m_pstFreeTail);
}

void RunOtt(World &w, size_t steps)
{
    uint32_t flowSize = 0;
    uint32_t sessionSize = 0;
    CMemPool *pool = API_InitOTTTransSpeed(16 + w.rng.Below(32), &flowSize, &sessionSize);
    if (pool == nullptr) {
        w.out.Put("OTT no pool");
        return;
    }
    STOttFlow flows[3];
    STOttSession sessions[2];
    for (STOttFlow &f : flows) {
        API_InitOTTTransSpeedFlow(&f);
    }
    for (STOttSession &x : sessions) {
        API_InitOTTTransSpeedSession(&x);
    }
    uint64_t now = 1000;
    for (size_t i = 0; i < steps; ++i) {
        STOttFlow &f = flows[w.rng.Below(3)];
        STOttSession &x = sessions[w.rng.Below(2)];
        const uint32_t op = w.rng.Below(100);
        if (op < 3) {
            g_enSDKLogLevel = w.rng.Below(4);
            w.out.Put(Fmt("OTT level %u", g_enSDKLogLevel));
        } else if (op < 60) {
            STOttTransInput in{};
            in.ucTransNum = static_cast<uint8_t>(w.rng.Chance(97) ? 1 + w.rng.Below(2) : w.rng.Below(4));
            for (STOttTrans &t : in.astTrans) {
                now += w.rng.Below(40);
                const uint32_t shape = w.rng.Below(10);
                t.ullBeginTime = shape < 6 ? now - w.rng.Below(60) : (shape < 8 ? w.rng.Below(now + 1) : now + 20);
                t.ullEndTime = shape == 9 ? t.ullBeginTime - w.rng.Below(2) : t.ullBeginTime + 1 + w.rng.Below(80);
                t.uiPayLoad = 100 + w.rng.Below(1400);
                t.ucDirection = static_cast<uint8_t>(w.rng.Chance(97) ? 1 + w.rng.Below(2) : w.rng.Below(4));
                t.ucState = w.rng.Chance(85) ? OTT_STATE_OVER : static_cast<uint8_t>(w.rng.Below(2));
            }
            w.out.Put(Fmt("OTT process %u rc %u", in.ucTransNum, API_OTTTransProcess(&in, pool, &f)));
        } else if (op < 85) {
            w.out.Put(Fmt("OTT merge rc %u", API_OTTTransMerge(pool, &x, &f)));
        } else if (op < 92) {
            uint64_t up = 0, upDur = 0, dw = 0, dwDur = 0;
            const uint32_t rc = API_OTTTransSpeed(pool, &x, &up, &upDur, &dw, &dwDur);
            w.out.Put(Fmt("OTT speed rc %u up %" PRIu64 "/%" PRIu64 " dw %" PRIu64 "/%" PRIu64, rc, up, upDur, dw,
                          dwDur));
        } else if (op < 95) {
            w.out.Put(Fmt("OTT release rc %u %u", API_OTTTransRlease(pool, &f), API_OTTTransRlease(pool, &x)));
        } else if (op < 97) {
            // A merge without a pool still stretches the tail.
            STOttTransNode *n = CreateOTTTransListNode(pool);
            if (n != nullptr) {
                n->ullBeginTime = now - w.rng.Below(100);
                n->ullEndTime = n->ullBeginTime + 1 + w.rng.Below(100);
                n->uiPayLoad = 7;
                n->ucDirection = 1;
                n->ucState = OTT_STATE_OVER;
                StartMergeTrans(&x.stUpTransList, n, w.rng.Chance(50) ? pool : nullptr);
                w.out.Put("OTT direct merge " + OttNodeName(pool, n));
                if (n->stNode.pstNext == nullptr && n->stNode.pstPrev == nullptr &&
                    pool->m_pstFreeTail != &n->stNode) {
                    FreeNodeMem(&n->stNode, pool);  // still loose: the daemon returns it
                }
            }
        } else {
            PrintMemPool(&x, pool);
            PrintOTTTrans(&x.stUpTransList);
        }
        w.out.Put("  flows " + OttList(pool, flows[0].stTransList) + OttList(pool, flows[1].stTransList) +
                  OttList(pool, flows[2].stTransList));
        w.out.Put("  up " + OttList(pool, sessions[0].stUpTransList) + OttList(pool, sessions[1].stUpTransList) +
                  " dw " + OttList(pool, sessions[0].stDwTransList) + OttList(pool, sessions[1].stDwTransList));
        w.out.Put(OttPool(pool));
    }
    for (STOttFlow &f : flows) {
        API_OTTTransRlease(pool, &f);
    }
    for (STOttSession &x : sessions) {
        API_OTTTransRlease(pool, &x);
    }
    w.out.Put(OttPool(pool));
    FreeCMemPoolList(pool);
    std::free(pool);
}

// An event of the fuzzers' vocabulary on one of the lane's last flows: hosts,
// paths, referers and locations that refer to each other in the spellings
// the text equivalences take (schemes, ports, relative paths, capitals, NUL
// bytes, cut texts).
void VocabularyEvent(Lane &l, World &w, size_t i, uint64_t now)
{
    std::vector<uint8_t> bytes(96);
    for (uint8_t &b : bytes) {
        b = static_cast<uint8_t>(w.rng.Below(256));
    }
    orvane_fuzz::ByteReader in(bytes.data(), bytes.size());
    orvane_fuzz::FuzzString str[orvane_fuzz::kFieldNum];
    const uint8_t mask = static_cast<uint8_t>(in.U8() | 1);
    for (int f = 0; f < orvane_fuzz::kFieldNum; ++f) {
        if ((mask >> f) & 1) {
            orvane_fuzz::ReadString(in, f, str[f]);
        }
    }
    OwnedEvent o;
    const int flow = kFlows - 6 - static_cast<int>(w.rng.Below(4));
    o.ev.ucProtol = 6;
    o.ev.usEventID = w.rng.Chance(65) ? WEBPAGE_EVENT_REQUEST : WEBPAGE_EVENT_RESPONSE;
    o.ev.ucReqMethod = w.rng.Chance(80) ? WEBPAGE_METHOD_GET : WEBPAGE_METHOD_POST;
    static constexpr uint32_t kCodes[] = {200, 200, 301, 302, 304, 404, 407, 500};
    o.ev.usRspCode = kCodes[w.rng.Below(8)];
    o.ev.usClientPort = static_cast<uint16_t>(42000 + flow);
    o.ev.usServerPort = w.rng.Chance(50) ? 443 : 8080;
    o.ev.uiClientIp = 0x0A000004;
    o.ev.uiServerIp = 0xCB007100u + static_cast<uint32_t>(flow);
    o.ev.enNetworkType = w.rng.Below(4);
    o.ev.ullMsgBeginTime = now + w.rng.Below(3000) * kMs;
    o.ev.ullMsgEndTime = o.ev.ullMsgBeginTime + w.rng.Below(400) * kMs;
    o.ev.ullFirTime = o.ev.ullMsgBeginTime - 30 * kMs;
    for (int f = 0; f < orvane_fuzz::kFieldNum; ++f) {
        const orvane_fuzz::FuzzString &fs = str[f];
        o.null[f] = ((mask >> f) & 1) == 0 || fs.nullPtr;
        o.text[f].assign(fs.bytes.begin(), fs.bytes.end());
    }
    Bind(o);
    for (int f = 0; f < orvane_fuzz::kFieldNum; ++f) {
        if (str[f].nullPtr) {
            // A length without a pointer, as a broken daemon might send.
            uint16_t *lens[6] = {&o.ev.usHostLen, &o.ev.usURLLen, &o.ev.usReferHostLen, &o.ev.usReferURLLen,
                                 &o.ev.usLocationLen, &o.ev.usContentTypeLen};
            *lens[f] = str[f].len;
        }
    }
    uint64_t id = 0x5A5A;
    const uint32_t rc = API_AssociateWebPage(l.tid, &l.flows[flow], &o.ev, &id);
    w.out.Put(Fmt("VOCAB %zu t%u flow %d rc %u id %" PRIx64 " | ", i, l.tid, flow, rc, id) +
              FlowText(l.flows[flow], l.tid));
    w.out.Put(Pools());
}

// One seed's life: two page threads browsing, with the daemon's chores and
// the meddling mixed in.
void RunSeed(uint64_t seed, size_t steps, Transcript &out)
{
    World w;
    w.out = out;
    w.rng = Rng(seed);
    g_world = &w;
    orvane_check::ResetLibraryGlobals();
    API_InitSDKLog(OnLog);
    InitWebPageConfig(&g_stPageConfig);

    std::vector<Lane> lanes;
    lanes.reserve(2);
    for (uint8_t t : kThreads) {
        lanes.push_back(Lane{t, orvane_stream::BrowsingStream(seed * 7 + t), {}});
        ResetFlows(lanes.back());
    }
    static constexpr uint16_t kTimeouts[] = {0, 5, 30, 60, 600};
    STWebPageConfig cfg{static_cast<uint32_t>(w.rng.Below(4)), kTimeouts[w.rng.Below(5)], 0};
    for (Lane &l : lanes) {
        Create(l, cfg);
    }
    w.out.Put(Fmt("TIMER init rc %u", API_InitWebPageTimer(0, OnTimerStart, OnTimerStop)));

    uint32_t untilMeddle = 10 + w.rng.Below(40);
    uint32_t dryTimer = 0;  // timer runs skipped: pages pile up and the pools run dry
    for (size_t i = 0; i < steps; ++i) {
        Lane &l = lanes[w.rng.Chance(75) ? 0 : 1];
        w.meddle = w.rng.Chance(8);
        if (--untilMeddle == 0) {
            untilMeddle = 10 + w.rng.Below(40);
            const uint32_t what = w.rng.Below(20);
            if (what < 12) {
                w.out.Put("MEDDLE " + Meddle(w.rng));
            } else if (what < 14) {
                STWebPageConfig c{w.rng.Below(4), kTimeouts[w.rng.Below(5)], 0};
                w.out.Put(Fmt("CONFIG t%u level %u timeout %u rc %u", l.tid, c.enLogLevel, c.usPageTimeOut,
                              API_InitConfig(l.tid, &c)));
            } else if (what < 15) {
                const uint8_t sw = static_cast<uint8_t>(w.rng.Below(3));
                w.out.Put(Fmt("TESTCONFIG t%u %u rc %u", l.tid, sw, API_TestConfig(l.tid, sw)));
            } else if (what < 16) {
                const uint32_t type = w.rng.Below(4);
                w.out.Put(Fmt("PRINT t%u %u", l.tid, type));
                API_PrintWebPageLog(l.tid, type);
            } else if (what < 17) {
                const uint32_t report = w.rng.Below(2);
                w.out.Put(Fmt("RELEASE NODES t%u report %u", l.tid, report));
                API_ReleaseWebPageNode(l.tid, report);
            } else if (what < 18) {
                w.out.Put(Fmt("RELEASE t%u", l.tid));
                API_ReleaseWebPage(l.tid);
                ResetFlows(l);
                Create(l, cfg);
            } else {
                dryTimer = 100 + w.rng.Below(300);
                w.out.Put(Fmt("DRY %u", dryTimer));
            }
            w.out.Put(Pools());
        }
        if (dryTimer > 0 && w.rng.Chance(3)) {
            Burst(l, w, i);
            continue;
        }
        if (w.rng.Chance(15)) {
            VocabularyEvent(l, w, i, l.stream.Now());
            continue;
        }
        orvane_stream::Step s = l.stream.Next();
        if (s.timer) {
            if (dryTimer > 0) {
                --dryTimer;
                continue;
            }
            w.out.Put(Fmt("TICK t%u", l.tid));
            WebPageTimeOut(l.tid);
            w.out.Put(Pools());
            continue;
        }
        OwnedEvent o;
        Own(o, s.ev);
        if (o.ev.usEventID == WEBPAGE_EVENT_REQUEST) {
            TypeRequest(o, w.rng);
        }
        const uint32_t mutations = w.rng.Chance(20) ? 1 + w.rng.Below(3) : 0;
        for (uint32_t m = 0; m < mutations; ++m) {
            Mutate(o, w.rng);
        }
        if (s.newFlow) {
            API_InitWebPageFlow(&l.flows[s.flow]);
        }
        Associate(l, w, i, s.flow, o);
    }
    for (Lane &l : lanes) {
        w.out.Put(Fmt("END t%u", l.tid));
        API_ReleaseWebPage(l.tid);
    }
    w.out.Put(Fmt("lines %u", w.lines));
    RunOtt(w, steps / 4);
    w.out.Put(Fmt("lines %u", w.lines));
    out = w.out;
    orvane_check::ResetLibraryGlobals();
    g_world = nullptr;
}

constexpr size_t kSteps = 8000;
constexpr uint64_t kSeeds = 16;

uint64_t Digest(uint64_t seed)
{
    Transcript t;
    RunSeed(seed, kSteps, t);
    return t.hash;
}

int Check(const char *path)
{
    std::ifstream in(path);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", path);
        return 2;
    }
    std::map<uint64_t, uint64_t> golden;
    uint64_t seed = 0;
    std::string digest;
    while (in >> seed >> digest) {
        golden[seed] = std::strtoull(digest.c_str(), nullptr, 16);
    }
    if (golden.size() != kSeeds) {
        std::fprintf(stderr, "%s holds %zu seeds, expected %" PRIu64 "\n", path, golden.size(), kSeeds);
        return 2;
    }
    int failed = 0;
    for (const auto &[s, want] : golden) {
        const uint64_t got = Digest(s);
        if (got != want) {
            std::fprintf(stderr, "seed %" PRIu64 ": transcript %016" PRIx64 ", reference %016" PRIx64
                                 " (see it with --dump %" PRIu64 ")\n",
                         s, got, want, s);
            ++failed;
        }
    }
    std::printf("%zu seeds, %d differ\n", golden.size(), failed);
    return failed == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "--check" && argc == 3) {
        return Check(argv[2]);
    }
    if (mode == "--record") {
        for (uint64_t s = 1; s <= kSeeds; ++s) {
            std::printf("%" PRIu64 " %016" PRIx64 "\n", s, Digest(s));
        }
        return 0;
    }
    if (mode == "--dump" && argc == 3) {
        Transcript t;
        t.print = true;
        RunSeed(std::strtoull(argv[2], nullptr, 10), kSteps, t);
        return 0;
    }
    std::fprintf(stderr, "usage: %s --check FILE | --record | --dump SEED\n", argv[0]);
    return 2;
}
