// One input read and replayed: a HAR file or a packet capture in memory
// (bounded by a browser session), a JSON Lines trace as it is read, in constant memory unless a
// report needs every event.
#ifndef ORVANE_REPLAY_SESSION_HPP
#define ORVANE_REPLAY_SESSION_HPP

#include <cstddef>
#include <cstdint>
#include <functional>
#include <istream>
#include <string>
#include <vector>

#include "replayer.hpp"
#include "report.hpp"
#include "trace.hpp"

namespace replay {

struct SessionOptions {
    ReadOptions read;
    ReplayOptions replay;
    Format format = Format::kAuto;
    bool keepEvents = false;  // every event and its outcome, for --events, --html and --eval
    bool eval = false;
};

// Told of every bad entry or line as it is found.
using IssueSink = std::function<void(const std::string &file, const Issue &issue)>;

// A daemon dumps events in time order, give or take: a line is held until
// the trace's clock (the newest begin read) is this far past it, and no more
// than this many lines are held. A line older than one already fed is late:
// fed in its place in the file and counted.
constexpr uint64_t kReorderWindowNs = 10 * kNsPerSec;
constexpr size_t kReorderMaxLines = 8192;

// "-" is standard input. The format comes from the option, else a capture's
// magic number, else the file name (.har, .jsonl/.ndjson, .pcap/.pcapng/.cap),
// else the first line with content.
SessionReport ReplayFile(const std::string &path, const SessionOptions &options, const IssueSink &onIssue);
SessionReport ReplaySample(const SessionOptions &options, const IssueSink &onIssue);

// Replays JSON Lines from in as they are read; head holds lines already
// taken from in (to tell the format), replayed first.
SessionReport StreamJsonl(const std::string &file, std::istream &in, const SessionOptions &options,
                          const IssueSink &onIssue, std::vector<std::string> head = {});

}  // namespace replay

#endif
