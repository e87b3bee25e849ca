// Reads fuzz input as a daemon's life on two or three page threads: set-up,
// request and response events with arbitrary strings, codes and times, timer
// runs, configuration changes, releases and re-creation. After every call it
// checks the pools and lists, and that every page that opens is closed exactly
// once: reported by a timer run or a release, or dropped by a silent release.
// Shared by the libFuzzer target and the regression test that replays findings.
#ifndef ORVANE_TESTS_WEBPAGE_FUZZ_DRIVER_HPP
#define ORVANE_TESTS_WEBPAGE_FUZZ_DRIVER_HPP

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "webpage_check.hpp"

namespace orvane_fuzz {

// Reads the input front to back; past its end every read gives zeros.
class ByteReader {
public:
    ByteReader(const uint8_t *data, size_t size) : p_(data), n_(size) {}
    bool Done() const { return n_ == 0; }
    uint8_t U8()
    {
        if (n_ == 0) {
            return 0;
        }
        --n_;
        return *p_++;
    }
    // Little-endian; each read is its own statement, since the order in which
    // the operands of one expression are evaluated is unspecified.
    uint16_t U16()
    {
        const uint16_t lo = U8();
        return static_cast<uint16_t>(lo | (U8() << 8));
    }
    uint32_t U32()
    {
        const uint32_t lo = U16();
        return lo | (static_cast<uint32_t>(U16()) << 16);
    }
    uint64_t U64()
    {
        const uint64_t lo = U32();
        return lo | (static_cast<uint64_t>(U32()) << 32);
    }

private:
    const uint8_t *p_;
    size_t n_;
};

constexpr uint64_t kMs = 1000000ull;
constexpr uint64_t kSec = 1000000000ull;

// Vocabulary that makes requests of one story refer to each other, plus the
// words the black lists and the UCID path react to.
inline const std::vector<std::string> &Hosts()
{
    static const std::vector<std::string> v = {
        "www.example.com", "static.example.com", "img.example.net", "api.example.org",
        "WWW.Example.COM", "news.example", "longpoll.social.example", "statistic.example.com",
        "portal.example.com", "onebox.example.invalid", "suggest.example.net", "m.example.invalid",
        "cdn.nosdn.example", "video.example.org", "www.example.com/", "a.example"};
    return v;
}
inline const std::vector<std::string> &Paths()
{
    static const std::vector<std::string> v = {
        "/", "/index.html", "/news/today.html", "/css/site.css", "/js/app.js", "/img/logo.png",
        "/?ucid=4711", "/search?q=ucinput", "/video/intro.swf", "/api/v1/feed", "/login",
        "www.example.com/index.html", "/?UCID=", "/player/flash/x.flv", "/News/Today.HTML", "static.example.com/css/site.css"};
    return v;
}
inline const std::vector<std::string> &ContentTypes()
{
    static const std::vector<std::string> v = {
        "text/html", "text/html; charset=utf-8", "application/xhtml+xml", "image/png",
        "application/x-shockwave-flash", "video/x-flv", "text/css", "application/javascript",
        "text/vnd.wap.wml", "application/json", "TEXT/HTML", "application/vnd.wap.xhtml+xml"};
    return v;
}
inline const std::vector<std::string> &Schemes()
{
    static const std::vector<std::string> v = {"http://", "https://", "HTTPS://", ""};
    return v;
}

enum Field { kHost, kUri, kReferHost, kReferPath, kLocation, kContentType, kFieldNum };

// One string argument of an event: the bytes live in a buffer of exactly the
// given length, so any read past it is caught by the address sanitizer.
struct FuzzString {
    std::vector<unsigned char> bytes;
    bool nullPtr = false;
    uint16_t len = 0;
    const unsigned char *Ptr() const
    {
        static const unsigned char kEmpty = 0;
        return nullPtr ? nullptr : (bytes.empty() ? &kEmpty : bytes.data());
    }
};

inline const std::string &Pick(const std::vector<std::string> &v, uint32_t i) { return v[i % v.size()]; }

inline const std::vector<std::string> &VocabOf(int field)
{
    switch (field) {
    case kHost:
    case kReferHost:
        return Hosts();
    case kUri:
    case kReferPath:
        return Paths();
    case kContentType:
        return ContentTypes();
    default:
        return Paths();
    }
}

inline std::string Composite(ByteReader &in, int field)
{
    const uint8_t a = in.U8();
    const uint8_t b = in.U8();
    if (field == kLocation) {
        return Pick(Schemes(), a) + Pick(Hosts(), a >> 2) + (b & 1 ? Pick(Paths(), b >> 1) : std::string("/"));
    }
    if (field == kUri || field == kReferPath) {
        return Pick(Paths(), a) + (b & 1 ? "?ref=" + Pick(Hosts(), b >> 1) : Pick(Paths(), b >> 1));
    }
    return Pick(VocabOf(field), a) + Pick(VocabOf(field), b);
}

inline void ReadString(ByteReader &in, int field, FuzzString &out)
{
    const uint8_t shape = in.U8();
    const uint8_t arg = shape >> 3;
    std::string s;
    switch (shape & 7) {
    case 0:
        s = field == kLocation ? Pick(Schemes(), arg) + Pick(Hosts(), arg >> 2) + "/" : Pick(VocabOf(field), arg);
        break;
    case 1: {  // capitals at the positions the next byte picks
        s = Pick(VocabOf(field), arg);
        const uint8_t caps = in.U8();
        for (size_t i = 0; i < s.size(); ++i) {
            if ((caps >> (i % 8)) & 1 && s[i] >= 'a' && s[i] <= 'z') {
                s[i] = static_cast<char>(s[i] - 'a' + 'A');
            }
        }
        break;
    }
    case 2:
        s = Composite(in, field);
        break;
    case 3: {  // raw bytes from the input
        const uint8_t n = in.U8();
        for (uint8_t i = 0; i < n; ++i) {
            s.push_back(static_cast<char>(in.U8()));
        }
        break;
    }
    case 4: {  // long text, up to the 16-bit length field's limit
        const uint16_t n = in.U16();
        const std::string &unit = Pick(VocabOf(field), arg);
        s.reserve(n);
        while (s.size() < n) {
            s += unit;
        }
        s.resize(n);
        break;
    }
    case 5:  // a length without a pointer
        out.nullPtr = true;
        out.len = in.U16();
        return;
    case 6:  // a pointer without a length
        out.bytes.assign(1, 'x');
        out.len = 0;
        return;
    default: {  // a NUL inside a known word
        s = Pick(VocabOf(field), arg);
        s.insert(in.U8() % (s.size() + 1), 1, '\0');
        break;
    }
    }
    out.bytes.assign(s.begin(), s.end());
    out.len = static_cast<uint16_t>(s.size());
}

// Daemon side of the callbacks. The library's callbacks carry no user data,
// so the recorder is process-wide; the fuzzer runs one input at a time.
struct Recorder {
    std::vector<STPageKQI> reports;
    std::map<uint64_t, uint8_t> activeTimers;  // handle -> thread
    uint64_t nextHandle = 1;
    bool storeHandle = true;
    std::string error;  // first fault seen inside a callback

    void Note(const std::string &what)
    {
        if (error.empty()) {
            error = what;
        }
    }
};

inline Recorder &Rec()
{
    static Recorder r;
    return r;
}

inline uint32_t OnLog(uint32_t level, const char *line)
{
    const size_t n = std::strlen(line);
    if (level > LOG_LEVEL_ERROR || n > 611 || std::strncmp(line, "[TID=", 5) != 0) {
        Rec().Note("malformed log line: " + std::string(line, n < 80 ? n : 80));
    }
    return 0;
}

inline uint32_t OnPageEnd(STPageKQI *kqi)
{
    Rec().reports.push_back(*kqi);
    return 0;
}

inline uint32_t OnDns(STDNSQueryInfo *query, STDNSQueryResult *result)
{
    if (query->pcHost == nullptr || query->usHostLen == 0 || query->usHostLen > HOST_MAX_LEN ||
        query->pcHost[query->usHostLen] != '\0') {
        Rec().Note("DNS query host not a terminated text of at most 64 bytes");
        return 0;
    }
    const uint8_t h = static_cast<uint8_t>(query->pcHost[0]);
    result->ullDNSBeginTime = (h & 1) ? 0 : 1700000000ull * kSec - h * kMs;
    result->uiDnsDelay = h;
    return 0;
}

inline uint32_t OnTimerStart(uint32_t thread, uint32_t period, PFPageTimerHandler handler, void *ctx)
{
    const uint8_t t = static_cast<uint8_t>(thread);
    if (period != PAGE_TIMER_PERIOD_S || handler != &WebPageTimeOut || t >= WEBPAGE_THREAD_NUM ||
        ctx != g_pstWebPage[t]) {
        Rec().Note("timer start with wrong period, handler or context");
    }
    if (Rec().storeHandle) {
        const uint64_t handle = Rec().nextHandle++;
        Rec().activeTimers[handle] = t;
        std::memcpy(ctx, &handle, sizeof(handle));
    }
    return 0;
}

inline uint32_t OnTimerStop(uint64_t handle)
{
    if (Rec().activeTimers.erase(handle) == 0) {
        Rec().Note("timer stopped that was not running: " + std::to_string(handle));
    }
    return 0;
}

// Puts every global of the library back to its state at load time.
inline void ResetLibrary()
{
    orvane_check::ResetLibraryGlobals();
    Rec() = Recorder();
}

// Set to print each call as it is made, when a finding needs reading.
inline bool &TraceOn()
{
    static bool on = false;
    return on;
}

inline std::string Printable(const FuzzString &s)
{
    if (s.nullPtr) {
        return "(null ptr, len " + std::to_string(s.len) + ")";
    }
    std::string out;
    for (size_t i = 0; i < s.bytes.size() && i < 48; ++i) {
        const unsigned char c = s.bytes[i];
        out += (c >= 32 && c < 127) ? std::string(1, static_cast<char>(c)) : "\\x" + std::to_string(c);
    }
    return "\"" + out + (s.len > 48 ? "...\" len " + std::to_string(s.len) : "\"");
}

class WebPageProgram {
public:
    static constexpr int kFlows = 8;
    static constexpr size_t kMaxSteps = 3000;

    // Runs the input; returns an empty string, or the first broken rule.
    std::string Run(const uint8_t *data, size_t size)
    {
        ResetLibrary();
        ByteReader in(data, size);
        Setup(in);
        for (size_t step = 0; err_.empty() && !in.Done() && step < kMaxSteps; ++step) {
            Step(in);
        }
        if (err_.empty()) {
            Finish();
        }
        ResetLibrary();
        return err_;
    }

private:
    enum class Close { kNone, kTimer, kReport, kSilent };

    struct Slot {
        uint8_t tid = 0;
        std::set<uint64_t> open;
        std::set<uint64_t> seen;  // every ID of this context's life
        STFlowInfo flows[kFlows];
        uint64_t syn[kFlows] = {};
    };

    std::vector<Slot> slots_;
    STWebPageConfig cfg_{LOG_LEVEL_ERROR, 0, 0};
    uint64_t now_ = 1700000000ull * kSec;
    std::string err_;

    void Fault(const std::string &what)
    {
        if (err_.empty()) {
            err_ = what;
        }
    }

    bool Alive(const Slot &s) const { return g_pstWebPage[s.tid] != nullptr; }

    void Setup(ByteReader &in)
    {
        static constexpr uint32_t kLogLevels[8] = {2, 2, 3, 0, 1, 2, 3, 2};
        const uint8_t h0 = in.U8();
        const uint8_t h1 = in.U8();
        cfg_.enLogLevel = kLogLevels[(h0 >> 1) & 7];
        cfg_.usPageTimeOut = in.U16();
        const uint8_t t2 = static_cast<uint8_t>(1 + h1 % 15);
        const uint8_t t3 = static_cast<uint8_t>(1 + (t2 + (h1 >> 4) % 14) % 15);  // never 0 or t2
        slots_.resize((h0 & 1) ? 3 : 2);
        slots_[0].tid = 0;
        slots_[1].tid = t2;
        if (slots_.size() == 3) {
            slots_[2].tid = t3;
        }
        API_InitSDKLog(OnLog);
        uint32_t size = 0;
        for (Slot &s : slots_) {
            if (API_InitWebPage(s.tid, &cfg_, &size, OnPageEnd, OnDns) != 0 || size != FLOW_INFO_SIZE) {
                Fault("set-up failed");
            }
            ResetFlows(s);
        }
        const uint8_t timerMode = (h0 >> 4) & 3;
        if (timerMode != 0) {
            Rec().storeHandle = timerMode != 2;
            API_InitWebPageTimer(0, OnTimerStart, OnTimerStop);
        }
    }

    static void ResetFlows(Slot &s)
    {
        for (STFlowInfo &f : s.flows) {
            API_InitWebPageFlow(&f);
        }
        std::memset(s.syn, 0, sizeof(s.syn));
    }

    Slot &SlotOf(uint8_t b) { return slots_[(b & 3) % slots_.size()]; }

    // Thread arguments count by their low byte only.
    static uint32_t ThreadArg(uint8_t tid, uint8_t variant)
    {
        switch (variant & 7) {
        case 6:
            return tid | 0x100u;
        case 7:
            return tid | 0xABCD00u;
        default:
            return tid;
        }
    }

    void Step(ByteReader &in)
    {
        const uint8_t op = in.U8() & 31;
        if (TraceOn() && op >= 21) {
            std::fprintf(stderr, "op %u\n", op);
        }
        if (op < 12) {
            Event(in, WEBPAGE_EVENT_REQUEST);
        } else if (op < 18) {
            Event(in, WEBPAGE_EVENT_RESPONSE);
        } else if (op < 21) {
            TimerRuns(in);
        } else {
            switch (op) {
            case 21: {
                const uint8_t i = in.U8();
                static constexpr uint32_t kValues[7] = {0, 1, 100, 2000, 3500, 15000, 120000};
                const uint8_t k = in.U8() & 7;
                g_auiTimeThreshold[i % 24] = k < 7 ? kValues[k] : in.U32();
                Check(Close::kNone, nullptr);
                break;
            }
            case 22:
                InitConfig(in);
                break;
            case 23: {
                static constexpr uint16_t kCodes[7] = {407, 0, 200, 302, 304, 404, 0xFFFF};
                const uint8_t k = in.U8() & 7;
                g_ausCauseCode407[0] = k < 7 ? kCodes[k] : in.U16();
                Check(Close::kNone, nullptr);
                break;
            }
            case 24: {
                const uint8_t b = in.U8();
                const uint8_t sw = in.U8();
                if (API_TestConfig(ThreadArg(SlotOf(b).tid, b >> 5), sw) != 0) {
                    Fault("API_TestConfig refused a valid thread");
                }
                Check(Close::kNone, nullptr);
                break;
            }
            case 25: {
                const uint8_t b = in.U8();
                static constexpr uint32_t kReport[4] = {0, 1, 0x100, 0xFF};
                const uint32_t report = kReport[(b >> 2) & 3];
                Slot &s = SlotOf(b);
                API_ReleaseWebPageNode(ThreadArg(s.tid, b >> 5), report);
                Check((report & 0xFF) != 0 ? Close::kReport : Close::kSilent, &s);
                break;
            }
            case 26: {
                Slot &s = SlotOf(in.U8());
                API_ReleaseWebPage(s.tid);
                Check(Close::kReport, &s);
                // The daemon drops its flows with the context: their cached
                // pages lived in the pools that were just freed.
                ResetFlows(s);
                break;
            }
            case 27:
                Create(SlotOf(in.U8()));
                break;
            case 28: {
                const uint8_t b = in.U8();
                Slot &s = SlotOf(b);
                API_InitWebPageFlow(&s.flows[(b >> 2) % kFlows]);
                s.syn[(b >> 2) % kFlows] = 0;
                Check(Close::kNone, nullptr);
                break;
            }
            case 29:
                Rec().storeHandle = (in.U8() & 3) != 0;
                if (API_InitWebPageTimer(0, OnTimerStart, OnTimerStop) != 0) {
                    Fault("API_InitWebPageTimer refused valid callbacks");
                }
                Check(Close::kNone, nullptr);
                break;
            case 30: {
                const uint8_t b = in.U8();
                API_PrintWebPageLog(ThreadArg(SlotOf(b).tid, b >> 5), (b >> 2) & 7);
                Check(Close::kNone, nullptr);
                break;
            }
            default:
                Misuse(in);
                break;
            }
        }
    }

    void InitConfig(ByteReader &in)
    {
        static constexpr uint32_t kLevels[8] = {2, 3, 0, 1, 2, 3, 7, 0xFFFFFFFF};
        static constexpr uint16_t kTimeouts[8] = {0, 1, 5, 7, 30, 60, 1279, 1280};
        const uint8_t b = in.U8();
        STWebPageConfig cfg{kLevels[b & 7], 0, 0};
        const uint8_t k = (b >> 3) & 15;
        cfg.usPageTimeOut = k < 8 ? kTimeouts[k] : in.U16();
        if (API_InitConfig(ThreadArg(SlotOf(b >> 7).tid, 0), &cfg) != 0) {
            Fault("API_InitConfig refused a valid record");
        }
        cfg_ = cfg;
        Check(Close::kNone, nullptr);
    }

    void Create(Slot &s)
    {
        const bool existed = Alive(s);
        uint32_t size = 0;
        const uint32_t rc = API_InitWebPage(s.tid, &cfg_, &size, OnPageEnd, OnDns);
        if (rc != (existed ? 2u : 0u)) {
            Fault("API_InitWebPage answered " + std::to_string(rc));
        }
        if (!existed) {
            s.seen.clear();
        }
        Check(Close::kNone, nullptr);
    }

    void Misuse(ByteReader &in)
    {
        const uint8_t b = in.U8();
        Slot &s = SlotOf(b >> 4);
        STWebPageEvent ev{};
        uint64_t id = 77;
        STFlowInfo &flow = s.flows[0];
        uint32_t rc = 0;
        bool bad = false;
        switch (b & 15) {
        case 0:
            bad = API_AssociateWebPage(16, &flow, &ev, &id) != 1 || API_AssociateWebPage(255, &flow, &ev, &id) != 1;
            break;
        case 1:
            bad = API_AssociateWebPage(s.tid, nullptr, &ev, &id) != 1 ||
                  API_AssociateWebPage(s.tid, &flow, nullptr, &id) != 1 ||
                  API_AssociateWebPage(s.tid, &flow, &ev, nullptr) != 1;
            break;
        case 2:
            ev.usEventID = (b & 0x10) ? 2 : 0xFFFFFFFF;
            rc = API_AssociateWebPage(s.tid, &flow, &ev, &id);
            bad = rc != (Alive(s) ? 3u : 2u) || (Alive(s) && id != 0);
            break;
        case 3:
            API_ReleaseWebPage(16);
            API_ReleaseWebPageNode(272, 1);
            API_PrintWebPageLog(255, 1);
            WebPageTimeOut(16);
            break;
        case 4: {
            uint32_t size = 0;
            bad = API_InitWebPage(s.tid, &cfg_, &size, nullptr, OnDns) != 1 ||
                  API_InitWebPage(s.tid, &cfg_, &size, OnPageEnd, nullptr) != 1 ||
                  API_InitWebPage(s.tid, nullptr, &size, OnPageEnd, OnDns) != 1 ||
                  API_InitWebPage(16, &cfg_, &size, OnPageEnd, OnDns) != 1;
            break;
        }
        case 5:
            bad = API_InitWebPageTimer(0, nullptr, OnTimerStop) != 1 || API_InitWebPageTimer(16, OnTimerStart, OnTimerStop) != 1;
            API_InitWebPageFlow(nullptr);
            break;
        case 6:
            bad = API_InitConfig(0, nullptr) != 1 || API_InitConfig(16, &cfg_) != 1 || API_TestConfig(16, 1) != 1;
            break;
        default: {  // a timer run for a thread that has no context
            const uint8_t t = static_cast<uint8_t>(b & 15);
            if (g_pstWebPage[t] == nullptr) {
                WebPageTimeOut(t);
            }
            break;
        }
        }
        if (bad) {
            Fault("misuse not refused with the documented code, case " + std::to_string(b & 15));
        }
        Check(Close::kNone, nullptr);
    }

    void TimerRuns(ByteReader &in)
    {
        const uint8_t b = in.U8();
        Slot &s = SlotOf(b);
        const int runs = 1 + ((b >> 2) & 15);
        if (TraceOn()) {
            std::fprintf(stderr, "TIMER t%u x%d\n", s.tid, runs);
        }
        for (int i = 0; i < runs && err_.empty(); ++i) {
            now_ += 5 * kSec;
            WebPageTimeOut(ThreadArg(s.tid, b >> 6 == 3 ? 6 : 0));
            Check(Close::kTimer, &s);
        }
    }

    void Event(ByteReader &in, uint32_t eventID)
    {
        static constexpr uint32_t kMethods[8] = {1, 1, 1, 2, 2, 3, 0, 0xFFFF};
        static constexpr uint8_t kFinRst[4] = {0, 0, 1, 2};
        static constexpr uint32_t kNetworks[8] = {0, 1, 2, 3, 0, 1, 4, 0xFFFFFFFF};
        static constexpr uint32_t kCodes[16] = {0,   200, 200, 200, 204, 301, 302,     303,
                                                304, 307, 404, 407, 500, 0x100C8, 0xFFFF, 399};
        static constexpr uint64_t kDelta[8] = {0, kMs, 5 * kMs, 30 * kMs, 120 * kMs, 800 * kMs, 3 * kSec, 25 * kSec};
        static constexpr uint64_t kDur[8] = {0, kMs, 20 * kMs, 80 * kMs, 300 * kMs, 1500 * kMs, 7 * kSec, 70 * kSec};

        const uint8_t e0 = in.U8();
        const uint8_t e1 = in.U8();
        const uint8_t e2 = in.U8();
        const uint8_t e3 = in.U8();
        Slot &s = SlotOf(e0);
        const int f = (e0 >> 2) % kFlows;
        STWebPageEvent ev{};
        ev.ucProtol = 6;
        ev.usEventID = eventID;
        ev.ucReqMethod = kMethods[e1 & 7];
        ev.ucFinRst = kFinRst[(e1 >> 3) & 3];
        ev.enNetworkType = kNetworks[(e1 >> 5) & 7];
        ev.usRspCode = kCodes[e2 & 15];
        ev.usClientPort = static_cast<uint16_t>(40000 + f);
        ev.usServerPort = (e2 & 0x10) ? 443 : 80;
        ev.uiClientIp = 0x0A000001;
        ev.uiServerIp = 0x5DB8D800u + (e2 >> 5);

        now_ += kDelta[e3 & 7];
        if (s.syn[f] == 0) {
            s.syn[f] = now_ - 40 * kMs;
        }
        uint64_t begin = now_;
        uint64_t end = begin + kDur[(e3 >> 3) & 7];
        uint64_t syn = s.syn[f];
        if ((e3 >> 6) == 2) {  // a time the daemon should not send, but might
            const uint8_t twist = in.U8();
            switch (twist & 7) {
            case 0: begin = 0; break;
            case 1: begin = now_ - 40 * kSec; end = begin + kMs; break;
            case 2: end = begin - kDur[(twist >> 3) & 7]; break;
            case 3: begin = UINT64_MAX - (twist >> 3); end = UINT64_MAX; break;
            case 4: begin = in.U64(); end = in.U64(); break;
            case 5: syn = begin - 5 * kSec; break;
            case 6: syn = begin - 5 * kSec - 1; break;
            default: syn = begin + kSec; break;
            }
        } else if ((e3 >> 6) == 3) {
            syn = 0;
        }
        ev.ullMsgBeginTime = begin;
        ev.ullMsgEndTime = end;
        ev.ullFirTime = syn;

        FuzzString str[kFieldNum];
        const uint8_t mask = in.U8();
        for (int i = 0; i < kFieldNum; ++i) {
            if ((mask >> i) & 1) {
                ReadString(in, i, str[i]);
            }
        }
        ev.pucHost = str[kHost].Ptr();
        ev.usHostLen = str[kHost].len;
        ev.pucURL = str[kUri].Ptr();
        ev.usURLLen = str[kUri].len;
        ev.pucReferHost = str[kReferHost].Ptr();
        ev.usReferHostLen = str[kReferHost].len;
        ev.pucReferURL = str[kReferPath].Ptr();
        ev.usReferURLLen = str[kReferPath].len;
        ev.pucLocation = str[kLocation].Ptr();
        ev.usLocationLen = str[kLocation].len;
        ev.pucContentType = str[kContentType].Ptr();
        ev.usContentTypeLen = str[kContentType].len;

        const bool alive = Alive(s);
        uint64_t id = 12345;
        const uint32_t rc = API_AssociateWebPage(ThreadArg(s.tid, e0 >> 5), &s.flows[f], &ev, &id);
        if (TraceOn()) {
            std::fprintf(stderr, "%s t%u flow %d method %u code %u begin %llu end %llu syn %llu -> rc %u page %llx\n",
                         eventID ? "RSP" : "REQ", s.tid, f, ev.ucReqMethod, ev.usRspCode,
                         (unsigned long long)begin, (unsigned long long)end, (unsigned long long)syn, rc,
                         (unsigned long long)id);
            static const char *const kNames[kFieldNum] = {"host", "uri", "referHost", "referPath", "location",
                                                          "contentType"};
            for (int i = 0; i < kFieldNum; ++i) {
                if ((mask >> i) & 1) {
                    std::fprintf(stderr, "    %s %s\n", kNames[i], Printable(str[i]).c_str());
                }
            }
        }
        CheckAnswer(s, rc, id, alive);
    }

    void CheckAnswer(Slot &s, uint32_t rc, uint64_t id, bool alive)
    {
        std::set<uint64_t> before = s.open;
        Check(Close::kNone, nullptr);
        if (!err_.empty()) {
            return;
        }
        const std::string where = " (rc " + std::to_string(rc) + ", page " + std::to_string(id) + ")";
        if (!alive) {
            if (rc != WEBPAGE_ERR_NO_CONTEXT) {
                Fault("event on a released thread not refused" + where);
            }
            return;
        }
        std::vector<uint64_t> created;
        for (uint64_t p : s.open) {
            if (before.count(p) == 0) {
                created.push_back(p);
            }
        }
        if (rc != WEBPAGE_OK && rc != WEBPAGE_ERR_NO_PAGE) {
            Fault("event answered with an unexpected code" + where);
        } else if (rc == WEBPAGE_ERR_NO_PAGE &&
                   (id != 0 || GetFreeNodeNum(&g_pstWebPage[s.tid]->stPageNodePool) != 0)) {
            Fault("no page given although the page pool had room" + where);
        } else if (created.size() > 1) {
            Fault("one event opened several pages" + where);
        } else if (rc == WEBPAGE_OK && id != 0 && s.open.count(id) == 0 && s.seen.count(id) == 0) {
            // A closed page keeps its ID until its node is reused, so a flow
            // may still be tied to it; a page never seen open is a fault.
            Fault("event joined a page that was never open" + where);
        } else if (created.size() == 1 && rc == WEBPAGE_OK && id != 0 && id != created[0]) {
            Fault("event opened a page but was given another" + where);
        }
    }

    // Compares the open pages with the last check: pages that appeared must be
    // new, pages that disappeared must have been closed by this call, and
    // reported once unless the release was silent.
    void Check(Close close, Slot *closing)
    {
        if (!Rec().error.empty()) {
            Fault(Rec().error);
            return;
        }
        std::map<uint8_t, std::multiset<uint64_t>> reported;
        for (const STPageKQI &k : Rec().reports) {
            if (k.ucPageFlag > 1 || k.ucSuccFlag > 1) {
                Fault("page result flags not 0 or 1: " + std::to_string(k.uiPageID));
            }
            if (close != Close::kTimer && (k.ucPageFlag != 0 || k.ucSuccFlag != 0)) {
                Fault("a release judged a page: " + std::to_string(k.uiPageID));
            }
            reported[static_cast<uint8_t>(k.uiPageID >> PAGE_ID_THREAD_SHIFT)].insert(k.uiPageID);
        }
        Rec().reports.clear();
        for (Slot &s : slots_) {
            std::set<uint64_t> now;
            const std::string bad = orvane_check::CheckContext(s.tid, &now);
            if (!bad.empty()) {
                Fault("thread " + std::to_string(s.tid) + ": " + bad);
                return;
            }
            std::multiset<uint64_t> gone;
            for (uint64_t p : s.open) {
                if (now.count(p) == 0) {
                    gone.insert(p);
                }
            }
            for (uint64_t p : now) {
                if (s.open.count(p) == 0 && !s.seen.insert(p).second) {
                    Fault("page ID reused within one context: " + std::to_string(p));
                }
            }
            const std::multiset<uint64_t> &got = reported[s.tid];
            const bool closes = &s == closing;
            if (!closes && (!gone.empty() || !got.empty())) {
                Fault("pages closed or reported outside a timer run or release, thread " + std::to_string(s.tid));
            } else if (closes && close == Close::kSilent && !got.empty()) {
                Fault("silent release reported pages");
            } else if (closes && close != Close::kSilent && got != gone) {
                Fault("closed pages and reported pages differ, thread " + std::to_string(s.tid) + ": closed " +
                      std::to_string(gone.size()) + ", reported " + std::to_string(got.size()));
            } else if (closes && close != Close::kTimer && !now.empty()) {
                Fault("pages left after a release");
            }
            const STWebPage *ctx = g_pstWebPage[s.tid];
            if (closes && ctx != nullptr && now.empty() &&
                g_stWebPageTimer.pfStopPageTimer != nullptr && ctx->ulPageTimer != 0) {
                Fault("no page left but the timer keeps running");
            }
            reported.erase(s.tid);
            s.open = std::move(now);
        }
        if (!reported.empty()) {
            Fault("page reported for a thread the fuzzer does not run: " + std::to_string(reported.begin()->first));
        }
    }

    // Closing every thread at the end reports every page still open.
    void Finish()
    {
        for (Slot &s : slots_) {
            if (Alive(s)) {
                API_ReleaseWebPage(s.tid);
                Check(Close::kReport, &s);
            }
        }
    }
};

inline std::string RunWebPageProgram(const uint8_t *data, size_t size)
{
    WebPageProgram program;
    return program.Run(data, size);
}

}  // namespace orvane_fuzz

#endif
