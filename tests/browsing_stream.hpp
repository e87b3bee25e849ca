// A deterministic, endless stream of one phone's browsing as the daemon sees
// it: page visits with redirects and sub-requests over a few keep-alive flows,
// responses, an occasional POST, UCID request, black-listed host and
// heartbeat, and a timer run every 5 s of event time. Used by the thread test
// and the soak; it allocates nothing once constructed.
#ifndef ORVANE_TESTS_BROWSING_STREAM_HPP
#define ORVANE_TESTS_BROWSING_STREAM_HPP

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "orvane_webpage.h"

namespace orvane_stream {

constexpr uint64_t kMs = 1000000ull;
constexpr uint64_t kSec = 1000000000ull;

struct Step {
    bool timer = false;  // a timer run instead of an event
    bool newFlow = false;  // the daemon zeroes the flow area first
    int flow = 0;
    STWebPageEvent ev{};
};

class BrowsingStream {
public:
    static constexpr int kFlows = 64;
    static constexpr int kSites = 40;

    explicit BrowsingStream(uint64_t seed) : rng_(seed * 0x9E3779B97F4A7C15ull + 1)
    {
        for (int s = 0; s < kSites; ++s) {
            const std::string site = "site" + std::to_string(s) + ".example";
            bare_.push_back(site);
            www_.push_back("www." + site);
            static_.push_back("static." + site);
            api_.push_back("api." + site);
            https_.push_back("https://www." + site + "/");
        }
        for (int c = 0; c < 4; ++c) {
            cdn_.push_back("img.cdn" + std::to_string(c) + ".example.net");
        }
        for (int p = 0; p < 50; ++p) {
            pages_.push_back("/news/" + std::to_string(1000 + p) + ".html");
        }
        pages_.push_back("/");
        plan_.reserve(256);
    }

    uint64_t Now() const { return now_; }

    Step Next()
    {
        if (pos_ == plan_.size()) {
            PlanVisit();
        }
        Step &s = plan_[pos_];
        if (s.ev.ullMsgBeginTime >= nextTick_) {
            nextTick_ += 5 * kSec;
            Step t;
            t.timer = true;
            return t;
        }
        ++pos_;
        now_ = std::max(now_, s.ev.ullMsgBeginTime);
        return s;
    }

private:
    uint64_t rng_;
    uint64_t now_ = 1700000000ull * kSec;
    uint64_t nextTick_ = 1700000000ull * kSec + 5 * kSec;
    int nextFlow_ = 0;
    std::vector<std::string> bare_, www_, static_, api_, https_, cdn_, pages_;
    std::vector<Step> plan_;
    size_t pos_ = 0;
    int visitFlows_[4] = {};

    const std::string kHeartBeatHost = "longpoll.social.example";
    const std::string kBlackHost = "metrics.statistic.example.com";
    const std::string kUcidUri = "/?ucid=8a7f31";
    const std::string kPoll = "/poll";
    const std::string kLogin = "/api/login";
    const std::string kCss = "/css/site.css";
    const std::string kJs = "/js/app.js";
    const std::string kPixel = "/pixel.gif";
    const std::string kPngs[3] = {"/img/hero.png", "/img/logo.png", "/img/thumb.png"};
    const std::string kHtml = "text/html; charset=utf-8";
    const std::string kCssType = "text/css";
    const std::string kJsType = "application/javascript";
    const std::string kPngType = "image/png";
    const std::string kJsonType = "application/json";

    uint32_t Rand(uint32_t n)
    {
        rng_ ^= rng_ << 13;
        rng_ ^= rng_ >> 7;
        rng_ ^= rng_ << 17;
        return static_cast<uint32_t>(rng_ % n);
    }

    static void Text(const std::string &s, const unsigned char *&ptr, uint16_t &len)
    {
        ptr = reinterpret_cast<const unsigned char *>(s.data());
        len = static_cast<uint16_t>(s.size());
    }

    Step &Add(int flowSlot, uint32_t id, uint64_t begin, uint64_t dur)
    {
        plan_.emplace_back();
        Step &s = plan_.back();
        const int flow = visitFlows_[flowSlot];
        s.flow = flow;
        STWebPageEvent &ev = s.ev;
        ev.ucProtol = 6;
        ev.usEventID = id;
        ev.usClientPort = static_cast<uint16_t>(40000 + flow);
        ev.usServerPort = 443;
        ev.uiClientIp = 0x0A000002;
        ev.uiServerIp = 0xC0000200u + static_cast<uint32_t>(flow);
        ev.ullMsgBeginTime = begin;
        ev.ullMsgEndTime = begin + dur;
        ev.ullFirTime = begin - 30 * kMs;
        return s;
    }

    Step &Request(int flowSlot, uint64_t begin, const std::string &host, const std::string &uri, uint32_t method,
                  const std::string *referHost, const std::string *referPath)
    {
        Step &s = Add(flowSlot, WEBPAGE_EVENT_REQUEST, begin, kMs);
        s.ev.ucReqMethod = method;
        Text(host, s.ev.pucHost, s.ev.usHostLen);
        Text(uri, s.ev.pucURL, s.ev.usURLLen);
        if (referHost != nullptr) {
            Text(*referHost, s.ev.pucReferHost, s.ev.usReferHostLen);
            Text(*referPath, s.ev.pucReferURL, s.ev.usReferURLLen);
        }
        return s;
    }

    void Response(int flowSlot, uint64_t begin, uint32_t code, const std::string &type, const std::string *location)
    {
        Step &s = Add(flowSlot, WEBPAGE_EVENT_RESPONSE, begin, (5 + Rand(200)) * kMs);
        s.ev.usRspCode = code;
        Text(type, s.ev.pucContentType, s.ev.usContentTypeLen);
        if (location != nullptr) {
            Text(*location, s.ev.pucLocation, s.ev.usLocationLen);
        }
    }

    void NewFlows()
    {
        for (int i = 0; i < 4; ++i) {
            visitFlows_[i] = nextFlow_;
            nextFlow_ = (nextFlow_ + 1) % (kFlows - 1);  // the last flow is the heartbeat's
        }
    }

    // One page visit: the user's think time, then the page's transactions in
    // time order.
    void PlanVisit()
    {
        plan_.clear();
        pos_ = 0;
        NewFlows();
        uint64_t t = now_ + (1 + Rand(40)) * kSec + Rand(1000) * kMs;
        const int site = static_cast<int>(Rand(kSites));
        const std::string &page = pages_[Rand(static_cast<uint32_t>(pages_.size()))];
        if (Rand(100) < 15) {  // plain http first, redirected to https
            Request(0, t, bare_[site], pages_.back(), WEBPAGE_METHOD_GET, nullptr, nullptr);
            t += (20 + Rand(150)) * kMs;
            Response(0, t, 301, kHtml, &https_[site]);
            t += 40 * kMs;
        }
        Request(1, t, www_[site], page, WEBPAGE_METHOD_GET, nullptr, nullptr);
        t += (20 + Rand(200)) * kMs;
        const uint32_t mainCode = Rand(100) < 92 ? 200 : (Rand(2) ? 404 : 500);
        Response(1, t, mainCode, kHtml, nullptr);
        const int subs = 3 + static_cast<int>(Rand(18));
        for (int i = 0; i < subs; ++i) {
            const int slot = 1 + static_cast<int>(Rand(3));
            const uint64_t b = t + (5 + Rand(60)) * kMs * static_cast<uint64_t>(i + 1);
            const std::string *host = &static_[site];
            const std::string *uri = &kCss;
            const std::string *type = &kCssType;
            switch (Rand(5)) {
            case 0: uri = &kJs; type = &kJsType; break;
            case 1: host = &cdn_[Rand(4)]; uri = &kPngs[Rand(3)]; type = &kPngType; break;
            case 2: host = &cdn_[site % 4]; uri = &kPngs[0]; type = &kPngType; break;
            case 3: host = &api_[site]; uri = &kLogin; type = &kJsonType; break;
            default: break;
            }
            const uint32_t method = (host == &api_[site] && Rand(3) == 0) ? WEBPAGE_METHOD_POST : WEBPAGE_METHOD_GET;
            Request(slot, b, *host, *uri, method, &www_[site], &page);
            const uint32_t r = Rand(100);
            Response(slot, b + (10 + Rand(300)) * kMs, r < 80 ? 200 : (r < 95 ? 304 : 404), *type, nullptr);
        }
        const uint32_t extra = Rand(100);
        if (extra < 5) {
            Request(2, t + 300 * kMs, kBlackHost, kPixel, WEBPAGE_METHOD_GET, &www_[site], &page);
        } else if (extra < 8) {
            Request(3, t + 400 * kMs, www_[site], kUcidUri, WEBPAGE_METHOD_GET, nullptr, nullptr);
            Response(3, t + 500 * kMs, 200, kHtml, nullptr);
        } else if (extra < 12) {
            visitFlows_[0] = kFlows - 1;
            Request(0, t + 200 * kMs, kHeartBeatHost, kPoll, WEBPAGE_METHOD_POST, nullptr, nullptr);
            Response(0, t + 30 * kSec, 200, kJsonType, nullptr);
        }
        std::stable_sort(plan_.begin(), plan_.end(), [](const Step &a, const Step &b) {
            return a.ev.ullMsgBeginTime < b.ev.ullMsgBeginTime;
        });
        // Each visit opens fresh connections: their areas are zeroed before
        // their first event. The heartbeat's long-lived flow is never reset.
        bool seen[kFlows] = {};
        for (Step &s : plan_) {
            s.newFlow = !seen[s.flow] && s.flow != kFlows - 1;
            seen[s.flow] = true;
        }
    }
};

}  // namespace orvane_stream

#endif
