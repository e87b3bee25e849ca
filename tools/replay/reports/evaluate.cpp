#include "evaluate.hpp"

#include <map>
#include <string>
#include <utility>

namespace replay {

namespace {

uint64_t PairsOf(uint64_t n) { return n * (n - 1) / 2; }

}  // namespace

// With nothing claimed (or nothing to find) a side cannot be wrong.
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

void EvalResult::Add(const EvalResult &o)
{
    transactions += o.transactions;
    unlabelled += o.unlabelled;
    truePages += o.truePages;
    reportedPages += o.reportedPages;
    webPages += o.webPages;
    countedPages += o.countedPages;
    truePairs += o.truePairs;
    predictedPairs += o.predictedPairs;
    agreeingPairs += o.agreeingPairs;
    mainFound += o.mainFound;
}

EvalResult Evaluate(const Trace &trace, const SessionResult &session)
{
    EvalResult r;
    std::map<uint64_t, int> openedBy;  // page ID -> transaction of its first event
    session.pages.ForEach([&](const PageResult &page) {
        if (page.firstEvent >= 0 && static_cast<size_t>(page.firstEvent) < trace.events.size()) {
            openedBy[page.id] = trace.events[static_cast<size_t>(page.firstEvent)].transaction;
        }
        if (!page.reported) {
            return;
        }
        ++r.reportedPages;
        if (page.kind == PageKind::kAssociate || page.kind == PageKind::kUcid) {
            ++r.webPages;
        }
        if (page.kqi.ucPageFlag == 1) {
            ++r.countedPages;
        }
    });

    // A transaction's page is the one its request joined; a request without
    // a page (black-listed, refused) stands alone.
    std::map<std::string, uint64_t> perTrue;
    std::map<uint64_t, uint64_t> perPredicted;
    std::map<std::pair<std::string, uint64_t>, uint64_t> perCell;
    std::map<std::string, int> mainOf;  // true page -> its first transaction
    uint64_t loneKey = ~0ull;
    for (size_t t = 0; t < trace.transactions.size(); ++t) {
        const Transaction &tx = trace.transactions[t];
        if (tx.request < 0) {
            continue;
        }
        if (tx.truePage.empty()) {
            ++r.unlabelled;
            continue;
        }
        ++r.transactions;
        uint64_t predicted = session.outcomes[static_cast<size_t>(tx.request)].pageId;
        if (predicted == 0) {
            predicted = loneKey--;
        }
        ++perTrue[tx.truePage];
        ++perPredicted[predicted];
        ++perCell[{tx.truePage, predicted}];
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
    for (const auto &kv : mainOf) {
        const Transaction &main = trace.transactions[static_cast<size_t>(kv.second)];
        const uint64_t page = session.outcomes[static_cast<size_t>(main.request)].pageId;
        auto opened = openedBy.find(page);
        if (page != 0 && opened != openedBy.end() && opened->second == kv.second) {
            ++r.mainFound;
        }
    }
    return r;
}

}  // namespace replay
