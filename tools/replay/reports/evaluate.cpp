#include "evaluate.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <utility>

namespace replay {

namespace {

uint64_t PairsOf(uint64_t n) { return n * (n - 1) / 2; }

constexpr uint16_t kCauseQuietTime = 2001;

double Ratio(double num, double den) { return den == 0.0 ? 0.0 : num / den; }

struct PageInfo {
    int openedBy = -1;  // transaction of the page's first event
    bool reported = false;
    double delayMs = 0.0;
    uint16_t cause = 0;
};

}  // namespace

double TruePageScore::F1() const
{
    return Ratio(2.0 * static_cast<double>(overlap), static_cast<double>(transactions + bestSize));
}

// With nothing claimed (or nothing to find) a side cannot be wrong; with
// nothing labelled at all the report says "n/a" instead (Labelled()).
double EvalResult::Precision() const
{
    return predictedPairs == 0 ? 1.0 : static_cast<double>(agreeingPairs) / static_cast<double>(predictedPairs);
}

double EvalResult::Recall() const
{
    return truePairs == 0 ? 1.0 : static_cast<double>(agreeingPairs) / static_cast<double>(truePairs);
}

double EvalResult::F1() const
{
    const double p = Precision();
    const double r = Recall();
    return p + r == 0.0 ? 0.0 : 2.0 * p * r / (p + r);
}

double EvalResult::PageF1Mean() const
{
    double sum = 0.0;
    for (const TruePageScore &p : pages) {
        sum += p.F1();
    }
    return Ratio(sum, static_cast<double>(pages.size()));
}

double EvalResult::FileF1Mean() const { return Ratio(fileF1Sum, static_cast<double>(files)); }

double EvalResult::MainRecall() const
{
    return Ratio(static_cast<double>(mainFound), static_cast<double>(truePages));
}

double Quantile(std::vector<double> values, double q)
{
    if (values.empty()) {
        return 0.0;
    }
    std::sort(values.begin(), values.end());
    const double at = q * static_cast<double>(values.size() - 1);
    const size_t low = static_cast<size_t>(std::floor(at));
    const size_t high = std::min(low + 1, values.size() - 1);
    return values[low] + (values[high] - values[low]) * (at - static_cast<double>(low));
}

DelayStats EvalResult::Delay(bool onLoad, bool measuredOnly) const
{
    DelayStats d;
    std::vector<double> errors;
    size_t within = 0;
    for (const TruePageScore &p : pages) {
        const double browser = onLoad ? p.onLoadMs : p.onContentLoadMs;
        if (browser < 0.0 || p.delayMs < 0.0 || (measuredOnly && p.cause == kCauseQuietTime)) {
            continue;
        }
        const double error = std::fabs(p.delayMs - browser);
        errors.push_back(error);
        within += error <= 0.2 * browser ? 1 : 0;
    }
    d.pages = errors.size();
    d.medianMs = Quantile(errors, 0.5);
    d.p90Ms = Quantile(errors, 0.9);
    d.within20 = Ratio(static_cast<double>(within), static_cast<double>(errors.size()));
    return d;
}

void EvalResult::Add(const EvalResult &o)
{
    transactions += o.transactions;
    unlabelled += o.unlabelled;
    background += o.background;
    truePages += o.truePages;
    reportedPages += o.reportedPages;
    webPages += o.webPages;
    countedPages += o.countedPages;
    truePairs += o.truePairs;
    predictedPairs += o.predictedPairs;
    agreeingPairs += o.agreeingPairs;
    mainFound += o.mainFound;
    split += o.split;
    merged += o.merged;
    files += o.files;
    fileF1Sum += o.fileF1Sum;
    pages.insert(pages.end(), o.pages.begin(), o.pages.end());
}

EvalResult Evaluate(const Trace &trace, const SessionResult &session)
{
    EvalResult r;
    std::map<uint64_t, PageInfo> library;
    session.pages.ForEach([&](const PageResult &page) {
        PageInfo &info = library[page.id];
        if (page.firstEvent >= 0 && static_cast<size_t>(page.firstEvent) < trace.events.size()) {
            info.openedBy = trace.events[static_cast<size_t>(page.firstEvent)].transaction;
        }
        if (!page.reported) {
            return;
        }
        info.reported = true;
        info.delayMs = static_cast<double>(page.kqi.ullPageDelay) / 1e6;
        info.cause = page.kqi.usCauseCode;
        ++r.reportedPages;
        if (page.kind == PageKind::kAssociate || page.kind == PageKind::kUcid) {
            ++r.webPages;
        }
        if (page.kqi.ucPageFlag == 1) {
            ++r.countedPages;
        }
    });

    // A transaction's page is the one its request joined; a request without
    // a page (black-listed, refused) stands alone, and so does background.
    std::map<std::string, uint64_t> perTrue;
    std::map<uint64_t, uint64_t> perPredicted;
    std::map<std::pair<std::string, uint64_t>, uint64_t> perCell;
    std::map<std::string, int> mainOf;  // true page -> its first transaction
    std::map<std::string, size_t> openedOf;
    uint64_t loneKey = ~0ull;
    for (size_t t = 0; t < trace.transactions.size(); ++t) {
        const Transaction &tx = trace.transactions[t];
        if (tx.request < 0) {
            continue;
        }
        if (tx.truePage.empty() && !tx.background) {
            ++r.unlabelled;
            continue;
        }
        ++r.transactions;
        uint64_t predicted = session.outcomes[static_cast<size_t>(tx.request)].pageId;
        if (predicted == 0) {
            predicted = loneKey--;
        }
        ++perPredicted[predicted];
        if (tx.background) {
            ++r.background;
            continue;
        }
        ++perTrue[tx.truePage];
        ++perCell[{tx.truePage, predicted}];
        auto opened = library.find(predicted);
        if (opened != library.end() && opened->second.openedBy == static_cast<int>(t)) {
            ++openedOf[tx.truePage];
        }
        auto main = mainOf.find(tx.truePage);
        if (main == mainOf.end() || trace.transactions[static_cast<size_t>(main->second)].begin > tx.begin) {
            mainOf[tx.truePage] = static_cast<int>(t);
        }
    }
    r.truePages = perTrue.size();
    for (const auto &kv : perTrue) {
        r.truePairs += PairsOf(kv.second);
    }
    for (const auto &kv : perPredicted) {
        r.predictedPairs += PairsOf(kv.second);
    }
    for (const auto &kv : perCell) {
        r.agreeingPairs += PairsOf(kv.second);
    }

    std::map<std::string, const RecordedPage *> recorded;
    for (const RecordedPage &p : trace.pages) {
        recorded.emplace(p.id, &p);
    }
    auto cell = perCell.begin();
    for (const auto &kv : perTrue) {
        TruePageScore score;
        score.file = trace.file;
        score.id = kv.first;
        score.transactions = kv.second;
        for (; cell != perCell.end() && cell->first.first == kv.first; ++cell) {
            if (cell->second > score.overlap) {
                score.overlap = cell->second;
                score.bestSize = perPredicted[cell->first.second];
            }
        }
        score.opened = openedOf[kv.first];
        const int mainTx = mainOf[kv.first];
        const uint64_t page = session.outcomes[static_cast<size_t>(trace.transactions[static_cast<size_t>(mainTx)].request)].pageId;
        auto info = library.find(page);
        if (page != 0 && info != library.end()) {
            score.mainFound = info->second.openedBy == mainTx;
            const int by = info->second.openedBy;
            score.merged = by >= 0 && by != mainTx &&
                           (trace.transactions[static_cast<size_t>(by)].background ||
                            trace.transactions[static_cast<size_t>(by)].truePage != kv.first);
            if (info->second.reported) {
                score.delayMs = info->second.delayMs;
                score.cause = info->second.cause;
            }
        }
        auto rec = recorded.find(kv.first);
        if (rec != recorded.end()) {
            score.title = rec->second->title;
            score.onLoadMs = rec->second->onLoadMs;
            score.onContentLoadMs = rec->second->onContentLoadMs;
        }
        r.mainFound += score.mainFound ? 1 : 0;
        r.split += score.split() ? 1 : 0;
        r.merged += score.merged ? 1 : 0;
        r.pages.push_back(std::move(score));
    }
    if (r.Labelled()) {
        r.files = 1;
        r.fileF1Sum = r.F1();
    }
    return r;
}

}  // namespace replay
