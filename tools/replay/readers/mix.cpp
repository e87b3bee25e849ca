#include "mix.hpp"

#include <algorithm>
#include <cstdio>
#include <map>

#include "text_util.hpp"

namespace replay {

namespace {

// The mixed session's clock starts here (any non-zero time would do).
constexpr uint64_t kMixBegin = 1000000000ull * kNsPerSec;
constexpr double kMinGapSec = 0.5, kMaxGapSec = 5.0;

// SplitMix64: a fixed sequence for a seed on every platform and library.
class Random {
public:
    explicit Random(uint64_t seed) : state_(seed) {}
    uint64_t Next()
    {
        uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    double Uniform() { return static_cast<double>(Next() >> 11) * (1.0 / 9007199254740992.0); }
    size_t Below(size_t n) { return static_cast<size_t>(Next() % n); }

private:
    uint64_t state_;
};

struct Unit {
    size_t recording = 0;
    std::string page, label;
    std::vector<size_t> transactions;
    uint64_t begin = ~0ull, end = 0;  // on the recording's clock
    int64_t shift = 0;                // added to every time
};

std::string BaseName(const std::string &file)
{
    const size_t slash = file.find_last_of('/');
    return slash == std::string::npos ? file : file.substr(slash + 1);
}

uint64_t Shifted(uint64_t t, int64_t shift) { return t == 0 ? 0 : static_cast<uint64_t>(static_cast<int64_t>(t) + shift); }

uint64_t StartOf(const Transaction &tx) { return tx.phases.empty() ? tx.begin : std::min(tx.begin, tx.phases.front().begin); }

// Copies a transaction and its events into the mix, times shifted and flow
// keys prefixed so that no two units share a flow.
void AddTransaction(const Trace &from, const Transaction &tx, int64_t shift, const std::string &flowPrefix,
                    Trace *mix)
{
    Transaction copy = tx;
    copy.begin = Shifted(tx.begin, shift);
    copy.end = Shifted(tx.end, shift);
    for (Phase &phase : copy.phases) {
        phase.begin = Shifted(phase.begin, shift);
        phase.end = Shifted(phase.end, shift);
    }
    const int index = static_cast<int>(mix->transactions.size());
    for (int *event : {&copy.request, &copy.response}) {
        if (*event < 0) {
            continue;
        }
        TraceEvent ev = from.events[static_cast<size_t>(*event)];
        ev.begin = Shifted(ev.begin, shift);
        ev.end = Shifted(ev.end, shift);
        ev.syn = Shifted(ev.syn, shift);
        ev.flow = flowPrefix + ev.flow;
        ev.origin = BaseName(from.file) + " " + ev.origin;
        ev.transaction = index;
        if (copy.background) {
            ev.referHost.clear();  // an app's own call, not a page's
            ev.referPath.clear();
        }
        *event = static_cast<int>(mix->events.size());
        mix->events.push_back(std::move(ev));
    }
    copy.origin = BaseName(from.file) + " " + tx.origin;
    mix->transactions.push_back(std::move(copy));
}

}  // namespace

Trace Mix(const std::vector<const Trace *> &recordings, const MixOptions &options)
{
    Random random(options.seed);
    std::vector<Unit> units;
    std::map<std::pair<size_t, std::string>, size_t> unitOf;
    for (size_t r = 0; r < recordings.size(); ++r) {
        const Trace &trace = *recordings[r];
        for (size_t t = 0; t < trace.transactions.size(); ++t) {
            const Transaction &tx = trace.transactions[t];
            if (tx.truePage.empty() || tx.request < 0) {
                continue;
            }
            auto found = unitOf.emplace(std::make_pair(r, tx.truePage), units.size());
            if (found.second) {
                units.push_back(Unit{r, tx.truePage, BaseName(trace.file) + "#" + tx.truePage, {}});
            }
            Unit &unit = units[found.first->second];
            unit.transactions.push_back(t);
            unit.begin = std::min(unit.begin, StartOf(tx));
            unit.end = std::max(unit.end, tx.end);
        }
    }
    for (size_t i = units.size(); i > 1; --i) {
        std::swap(units[i - 1], units[random.Below(i)]);
    }

    Trace mix;
    char name[128];
    std::snprintf(name, sizeof(name), "mix of %zu recordings (overlap %.2f, seed %llu)", recordings.size(),
                  options.overlap, static_cast<unsigned long long>(options.seed));
    mix.file = name;
    mix.format = "mix";
    uint64_t previousStart = kMixBegin, lastEnd = kMixBegin;
    for (size_t u = 0; u < units.size(); ++u) {
        Unit &unit = units[u];
        const uint64_t gap =
            static_cast<uint64_t>((kMinGapSec + (kMaxGapSec - kMinGapSec) * random.Uniform()) * 1e9);
        const bool overlaps = random.Uniform() < options.overlap;
        const uint64_t start = u == 0 ? kMixBegin : (overlaps ? previousStart : lastEnd) + gap;
        unit.shift = static_cast<int64_t>(start) - static_cast<int64_t>(unit.begin);
        previousStart = start;
        lastEnd = std::max(lastEnd, Shifted(unit.end, unit.shift));

        const Trace &from = *recordings[unit.recording];
        const std::string prefix = "m" + std::to_string(u) + "|";
        for (size_t t : unit.transactions) {
            Transaction tx = from.transactions[t];
            tx.truePage = unit.label;
            AddTransaction(from, tx, unit.shift, prefix, &mix);
        }
        for (const RecordedPage &page : from.pages) {
            if (page.id == unit.page) {
                RecordedPage copy = page;
                copy.id = unit.label;
                copy.start = Shifted(page.start, unit.shift);
                mix.pages.push_back(copy);
            }
        }
        // A look-up belongs to the unit of the first transaction to its host
        // that follows it.
        for (const DnsRecord &dns : from.dns) {
            const Transaction *next = nullptr;
            for (const Transaction &tx : from.transactions) {
                if (tx.begin >= dns.begin && (next == nullptr || tx.begin < next->begin) && tx.request >= 0 &&
                    ToLower(from.events[static_cast<size_t>(tx.request)].host) == dns.host) {
                    next = &tx;
                }
            }
            if (next != nullptr && next->truePage == unit.page) {
                DnsRecord copy = dns;
                copy.begin = Shifted(dns.begin, unit.shift);
                mix.dns.push_back(copy);
            }
        }
    }

    // Background: transactions that are not documents, each on a flow of its
    // own, spread evenly at random over the session; taken from recordings
    // other than those whose pages are loading at that moment.
    std::vector<std::pair<size_t, size_t>> pool;
    for (size_t r = 0; r < recordings.size(); ++r) {
        const Trace &trace = *recordings[r];
        for (size_t t = 0; t < trace.transactions.size(); ++t) {
            const Transaction &tx = trace.transactions[t];
            if (tx.request >= 0 &&
                !ContainsNoCase(trace.events[static_cast<size_t>(tx.request)].contentType, "html")) {
                pool.emplace_back(r, t);
            }
        }
    }
    constexpr int kTries = 16;
    const double minutes = static_cast<double>(lastEnd - kMixBegin) / 60e9;
    const size_t count = pool.empty() ? 0 : static_cast<size_t>(minutes * options.backgroundPerMinute);
    for (size_t b = 0; b < count; ++b) {
        const uint64_t at =
            kMixBegin + static_cast<uint64_t>(random.Uniform() * static_cast<double>(lastEnd - kMixBegin));
        for (int tries = 0; tries < kTries; ++tries) {
            const auto &pick = pool[random.Below(pool.size())];
            const bool loading = std::any_of(units.begin(), units.end(), [&](const Unit &u) {
                return u.recording == pick.first && Shifted(u.begin, u.shift) <= at && at <= Shifted(u.end, u.shift);
            });
            if (loading) {
                continue;
            }
            const Trace &from = *recordings[pick.first];
            Transaction tx = from.transactions[pick.second];
            tx.truePage.clear();
            tx.background = true;
            AddTransaction(from, tx, static_cast<int64_t>(at) - static_cast<int64_t>(tx.begin),
                           "bg" + std::to_string(b) + "|", &mix);
            break;
        }
    }
    return mix;
}

double OverlappingShare(const Trace &mix)
{
    std::map<std::string, std::pair<uint64_t, uint64_t>> spans;
    for (const Transaction &tx : mix.transactions) {
        if (tx.truePage.empty()) {
            continue;
        }
        auto it = spans.emplace(tx.truePage, std::make_pair(tx.begin, tx.end)).first;
        it->second.first = std::min(it->second.first, tx.begin);
        it->second.second = std::max(it->second.second, tx.end);
    }
    std::vector<std::pair<uint64_t, uint64_t>> list;
    for (const auto &kv : spans) {
        list.push_back(kv.second);
    }
    std::sort(list.begin(), list.end());
    std::vector<char> meets(list.size(), 0);
    uint64_t reach = 0;
    size_t reacher = 0;
    for (size_t i = 0; i < list.size(); ++i) {
        if (i > 0 && list[i].first <= reach) {
            meets[i] = 1;
            meets[reacher] = 1;
        }
        if (i == 0 || list[i].second > reach) {
            reach = list[i].second;
            reacher = i;
        }
    }
    size_t n = 0;
    for (char m : meets) {
        n += m != 0 ? 1 : 0;
    }
    return list.empty() ? 0.0 : static_cast<double>(n) / static_cast<double>(list.size());
}

}  // namespace replay
