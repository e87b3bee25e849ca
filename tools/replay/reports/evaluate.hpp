// Compares the library's grouping with the recording's own pages: pairs of
// transactions that the recording puts on one page, against pairs that the
// library put on one page.
#ifndef ORVANE_REPLAY_EVALUATE_HPP
#define ORVANE_REPLAY_EVALUATE_HPP

#include <cstddef>
#include <cstdint>

#include "replayer.hpp"
#include "trace.hpp"

namespace replay {

struct EvalResult {
    size_t transactions = 0;  // replayed and labelled
    size_t unlabelled = 0;    // replayed without a page label: left out
    size_t truePages = 0;
    size_t reportedPages = 0;
    size_t webPages = 0;      // associate and UCID pages
    size_t countedPages = 0;  // reported with the counted flag
    uint64_t truePairs = 0, predictedPairs = 0, agreeingPairs = 0;
    size_t mainFound = 0;     // true pages whose first transaction opened a page

    double Precision() const;
    double Recall() const;
    double F1() const;
    void Add(const EvalResult &other);
};

EvalResult Evaluate(const Trace &trace, const SessionResult &session);

}  // namespace replay

#endif
