// Compares the library's grouping with the recording's own pages: pairs of
// transactions that the recording puts on one page, against pairs that the
// library put on one page; each true page against the library page that
// took most of it; and the library's page delay against the browser's load
// milestones.
#ifndef ORVANE_REPLAY_EVALUATE_HPP
#define ORVANE_REPLAY_EVALUATE_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "replayer.hpp"
#include "trace.hpp"

namespace replay {

// One true page of a recording and what the library made of it.
struct TruePageScore {
    std::string file, id, title;
    size_t transactions = 0;
    size_t overlap = 0;     // its transactions on the library page that took most of them
    size_t bestSize = 0;    // labelled transactions on that library page, any true page's
    size_t opened = 0;      // library pages its own transactions opened
    bool mainFound = false;  // its first transaction opened a library page
    bool merged = false;     // its first transaction joined a page opened by another page's transaction
    bool split() const { return opened > 1; }
    double F1() const;

    // The library page that took the first transaction, when reported, and
    // the browser's milestones from the page's start (-1: not known).
    double delayMs = -1.0;
    uint16_t cause = 0;
    double onLoadMs = -1.0, onContentLoadMs = -1.0;
};

// Absolute errors of the library's page delay against one browser milestone.
struct DelayStats {
    size_t pages = 0;
    double medianMs = 0.0, p90Ms = 0.0;  // of |library - browser|, interpolated
    double within20 = 0.0;               // share with |error| <= 20 % of the browser's time
};

struct EvalResult {
    size_t transactions = 0;  // replayed and labelled
    size_t unlabelled = 0;    // replayed without a page label: left out
    size_t background = 0;    // mixed-in traffic of no page: each must stand alone
    size_t truePages = 0;
    size_t reportedPages = 0;
    size_t webPages = 0;      // associate and UCID pages
    size_t countedPages = 0;  // reported with the counted flag
    uint64_t truePairs = 0, predictedPairs = 0, agreeingPairs = 0;
    size_t mainFound = 0;     // true pages whose first transaction opened a page
    size_t split = 0, merged = 0;
    size_t files = 0;         // sessions with a labelled transaction (for the mean over files)
    double fileF1Sum = 0.0;
    std::vector<TruePageScore> pages;

    // Nothing labelled: every score below is undefined ("n/a").
    bool Labelled() const { return truePages != 0; }
    double Precision() const;
    double Recall() const;
    double F1() const;
    double PageF1Mean() const;   // over true pages
    double FileF1Mean() const;   // over files with labels
    double MainRecall() const;
    // onLoad false: against onContentLoad. measuredOnly: leave out pages
    // that report their quiet time instead of a measurement (cause 2001).
    DelayStats Delay(bool onLoad, bool measuredOnly = false) const;
    void Add(const EvalResult &other);
};

EvalResult Evaluate(const Trace &trace, const SessionResult &session);

// Quantile q (0..1) of values, linear between the nearest ranks; 0 when empty.
double Quantile(std::vector<double> values, double q);

}  // namespace replay

#endif
