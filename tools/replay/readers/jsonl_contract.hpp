// The integration contract's rules that a JSON Lines trace can break without
// any line being malformed: each broken rule is told once per file. (HAR
// input follows them by construction.)
#ifndef ORVANE_REPLAY_JSONL_CONTRACT_HPP
#define ORVANE_REPLAY_JSONL_CONTRACT_HPP

#include <cstddef>
#include <functional>
#include <string>
#include <unordered_map>

#include "trace.hpp"

namespace replay {

class ContractCheck {
public:
    using Warn = std::function<void(const Issue &)>;
    explicit ContractCheck(Warn warn) : warn_(std::move(warn)) {}

    // Events in file order.
    void Event(const TraceEvent &ev);

private:
    enum Rule { kUriSlash, kReferSlash, kStatus, kLocation, kContentType, kRules };

    // What a flow's latest unanswered request carried.
    struct OpenRequest {
        std::string origin;
        bool status = false, location = false, contentType = false;
    };

    void Tell(Rule rule, const std::string &where, const std::string &what);

    Warn warn_;
    bool told_[kRules] = {};
    std::unordered_map<std::string, OpenRequest> open_;  // by flow
};

}  // namespace replay

#endif
