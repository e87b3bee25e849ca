// The event trace read line by line, so that a trace of any length can be
// replayed as it is read.
#ifndef ORVANE_REPLAY_JSONL_READER_HPP
#define ORVANE_REPLAY_JSONL_READER_HPP

#include <cstddef>
#include <deque>
#include <functional>
#include <istream>
#include <map>
#include <string>
#include <vector>

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
// line, with the fault in *error; *notObject tells a line that is no JSON
// object at all from a bad event.
bool ParseJsonlLine(const std::string &line, size_t lineNo, JsonlLine *out, std::string *error,
                    bool *notObject = nullptr);

// Every string field is at most 65,535 bytes, so no valid line comes near
// this; a longer line is skipped without being held in memory.
constexpr size_t kMaxLineBytes = 1u << 20;
// This many lines in a row that are not JSON objects end the file: at its
// start the file is not a trace at all (a README, a binary); further on the
// rest is something else appended.
constexpr size_t kNotJsonRun = 5;

// A stream cut into lines of at most maxBytes (without the end of line);
// what a longer line holds beyond that is read and dropped.
class LineReader {
public:
    enum class Status { kLine, kTooLong, kEnd };
    // prefix: bytes already taken from in, read first.
    LineReader(std::istream &in, std::string prefix = {}, size_t maxBytes = kMaxLineBytes);
    Status Next(std::string *line);
    bool Failed() const { return in_.bad(); }

private:
    bool Fill();

    std::istream &in_;
    std::string buf_;
    size_t pos_ = 0;
    size_t max_;
};

// The lines of a JSON Lines trace, parsed, with the checks that apply to a
// file as a whole: over-long lines, and a file or a tail that is not JSON
// Lines. Bad lines go to onBad; those at the head of a file are held until
// it is clear that the file is a trace.
class JsonlSource {
public:
    using BadLine = std::function<void(const Issue &)>;
    JsonlSource(std::istream &in, std::string prefix, BadLine onBad);

    // The next event or DNS line; false at the end, or when the file turned
    // out not to be a trace (NotATrace() is then set).
    bool Next(JsonlLine *out);
    const std::string &NotATrace() const { return notATrace_; }
    size_t LineNo() const { return lineNo_; }
    bool ReadFailed() const { return reader_.Failed(); }

private:
    void Bad(Issue issue, bool notObject);
    void SawObject();
    void GiveUp();

    LineReader reader_;
    BadLine onBad_;
    std::string line_, error_, notATrace_;
    size_t lineNo_ = 0;
    size_t notJsonRun_ = 0;
    bool sawObject_ = false;
    bool stopped_ = false;
    std::vector<Issue> held_;
};

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
