// The event trace read line by line, so that a trace of any length can be
// replayed as it is read.
#ifndef ORVANE_REPLAY_JSONL_READER_HPP
#define ORVANE_REPLAY_JSONL_READER_HPP

#include <cstddef>
#include <deque>
#include <map>
#include <string>

#include "trace.hpp"

namespace replay {

struct JsonlLine {
    enum class Kind { kNothing, kDns, kEvent };  // kNothing: blank or comment
    Kind kind = Kind::kNothing;
    DnsRecord dns;
    TraceEvent event;  // origin "line N"
    std::string page;  // a request's "page" label
};

// Parses line lineNo (counted from 1, end of line removed). False for a bad
// line, with the fault in *error.
bool ParseJsonlLine(const std::string &line, size_t lineNo, JsonlLine *out, std::string *error);

// Keeps events for the reports with their transactions: a request opens
// one, a response answers its flow's oldest open request (HTTP/1.1 answers
// in order).
class TransactionBook {
public:
    // Appends the event to trace->events; returns its index there.
    int Add(Trace *trace, TraceEvent event, const std::string &page);

private:
    std::map<std::string, std::deque<int>> unanswered_;  // flow -> open transactions
};

}  // namespace replay

#endif
