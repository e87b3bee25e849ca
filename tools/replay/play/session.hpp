// One input read and replayed: a HAR file or a packet capture in memory
// (bounded by a browser session), a JSON Lines trace as it is read, in constant memory unless a
// report needs every event.
#ifndef ORVANE_REPLAY_SESSION_HPP
#define ORVANE_REPLAY_SESSION_HPP

#include <cstddef>
#include <cstdint>
#include <functional>
#include <istream>
#include <memory>
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

// A whole file read into memory (HAR or JSON Lines) and not replayed, for
// the mixer; fatal is set when it cannot be read.
std::unique_ptr<Trace> LoadTrace(const std::string &path, const SessionOptions &options, const IssueSink &onIssue);

// Replays files on up to `jobs` thread contexts at once (options.replay.thread
// is ignored). onIssue and done see each file's messages and report in file
// order, as a serial run would; done may move the report away.
void ReplayFiles(const std::vector<std::string> &files, const SessionOptions &options, unsigned jobs,
                 const IssueSink &onIssue, const std::function<void(SessionReport &)> &done);

// Replays JSON Lines from in as they are read; prefix holds bytes already
// taken from in (to tell the format), read first.
SessionReport StreamJsonl(const std::string &file, std::istream &in, const SessionOptions &options,
                          const IssueSink &onIssue, std::string prefix = {});

// A HAR file is read whole: beyond this it is refused unread (its parsed
// form takes about eight times its size).
constexpr size_t kMaxHarBytes = 128u << 20;
// Messages on standard error per file; every bad line is still counted.
constexpr size_t kMaxIssueMessages = 20;

}  // namespace replay

#endif
