#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>

#include <nlohmann/json.hpp>

#include "parallel.hpp"
#include "session.hpp"
#include "text_util.hpp"

namespace replay {

namespace {

bool EndsWith(const std::string &s, const std::string &suffix)
{
    return s.size() >= suffix.size() && ToLower(s.substr(s.size() - suffix.size())) == suffix;
}

// A HAR file is one JSON document whose first key is "log", usually spread
// over many lines; an event trace is one object per line, or starts with a
// comment. head: the first bytes of the file.
bool LooksLikeHar(const std::string &head)
{
    size_t at = head.find_first_not_of(" \t\r\n");
    if (at == std::string::npos || head[at] != '{') {
        return false;
    }
    const size_t lineEnd = head.find('\n', at);
    at = head.find_first_not_of(" \t\r\n", at + 1);
    if (at == std::string::npos || head.compare(at, 5, "\"log\"") == 0) {
        return true;
    }
    if (lineEnd == std::string::npos) {
        return false;  // one line longer than the head: not a HAR that begins with "log"
    }
    // A document that goes on past its first line, or one line holding "log".
    const nlohmann::json obj = nlohmann::json::parse(head.substr(0, lineEnd), nullptr, false);
    return obj.is_discarded() || (obj.is_object() && obj.contains("log"));
}

// Takes up to n bytes from in.
std::string Take(std::istream &in, size_t n)
{
    std::string bytes(n, '\0');
    in.read(&bytes[0], static_cast<std::streamsize>(n));
    bytes.resize(static_cast<size_t>(in.gcount()));
    return bytes;
}

// Reports the first kMaxIssueMessages issues of a file, then says that the
// rest are only counted.
IssueSink Capped(const IssueSink &onIssue)
{
    auto told = std::make_shared<size_t>(0);
    return [onIssue, told](const std::string &file, const Issue &issue) {
        if (*told < kMaxIssueMessages) {
            onIssue(file, issue);
        } else if (*told == kMaxIssueMessages) {
            onIssue(file, {issue.where, "further bad entries or lines are counted, not listed"});
        }
        ++*told;
    };
}

SessionReport Unreadable(const std::string &file, const std::string &why)
{
    SessionReport report;
    report.trace = std::make_unique<Trace>();
    report.trace->file = file;
    report.trace->fatal = why;
    return report;
}

// A trace read whole (HAR, capture): its problems reported, then replayed.
SessionReport ReplayWhole(Trace read, const char *listName, const SessionOptions &options, const IssueSink &onIssue)
{
    SessionReport report;
    report.trace = std::make_unique<Trace>(std::move(read));
    const Trace &trace = *report.trace;
    const std::string &file = trace.file;
    for (const Issue &issue : trace.skipped) {
        onIssue(file, issue);
    }
    if (trace.skippedCount > trace.skipped.size()) {
        onIssue(file, {listName, std::to_string(trace.skippedCount - trace.skipped.size()) +
                                     " more bad entries not listed"});
    }
    if (trace.fatal.empty()) {
        report.result = Replay(trace, options.replay);
        if (options.eval) {
            report.eval = Evaluate(trace, report.result);
        }
    }
    return report;
}

// A capture is read whole: beyond this it is refused unread.
constexpr size_t kMaxCaptureBytes = size_t{1} << 30;

// Reads the rest of in after the head, for a format read whole: empty when
// all of it came, else why not.
std::string ReadRest(std::istream &in, std::string *text, size_t cap, const char *what)
{
    while (in && text->size() <= cap) {
        *text += Take(in, std::min<size_t>(cap + 1 - text->size(), 1u << 20));
    }
    if (in.bad()) {
        return "cannot read the file";
    }
    if (text->size() > cap) {
        return std::string("a ") + what + " larger than " + std::to_string(cap >> 20) + " MiB is not read (the cap on " +
               what + " input)";
    }
    return {};
}

// sniff: the user left the format open, so a capture's magic number decides
// over the file name.
SessionReport ReplayStream(const std::string &file, std::istream &in, Format format, bool sniff,
                           const SessionOptions &options, const IssueSink &onIssue)
{
    constexpr size_t kHeadBytes = 64 * 1024;
    std::string head = Take(in, kHeadBytes);
    if (in.bad() || (head.empty() && !in.eof())) {
        return Unreadable(file, "cannot read the file");  // e.g. a directory
    }
    if (format == Format::kCapture || (sniff && LooksLikeCapture(head))) {
        const std::string why = ReadRest(in, &head, kMaxCaptureBytes, "capture");
        return !why.empty() ? Unreadable(file, why)
                            : ReplayWhole(ReadCapture(file, head, options.read), "packets", options, onIssue);
    }
    if (format == Format::kAuto) {
        format = LooksLikeHar(head) ? Format::kHar : Format::kJsonl;
    }
    if (format == Format::kJsonl) {
        return StreamJsonl(file, in, options, onIssue, std::move(head));
    }
    const std::string why = ReadRest(in, &head, kMaxHarBytes, "HAR file");
    return !why.empty() ? Unreadable(file, why)
                        : ReplayWhole(ReadHar(file, head, options.read), "log.entries", options, onIssue);
}

}  // namespace

SessionReport ReplayFile(const std::string &path, const SessionOptions &options, const IssueSink &sink)
{
    const IssueSink onIssue = Capped(sink);
    if (path == "-") {
        return ReplayStream("(standard input)", std::cin, options.format, options.format == Format::kAuto, options,
                            onIssue);
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return Unreadable(path, "cannot open the file");
    }
    Format format = options.format;
    if (format == Format::kAuto && EndsWith(path, ".har")) {
        format = Format::kHar;
    } else if (format == Format::kAuto && (EndsWith(path, ".jsonl") || EndsWith(path, ".ndjson"))) {
        format = Format::kJsonl;
    } else if (format == Format::kAuto && (EndsWith(path, ".pcap") || EndsWith(path, ".pcapng") ||
                                           EndsWith(path, ".cap"))) {
        format = Format::kCapture;
    }
    return ReplayStream(path, in, format, options.format == Format::kAuto, options, onIssue);
}

std::unique_ptr<Trace> LoadTrace(const std::string &path, const SessionOptions &options, const IssueSink &onIssue)
{
    std::ifstream file;
    std::istream *in = &std::cin;
    if (path != "-") {
        file.open(path, std::ios::binary);
        in = &file;
    }
    std::ostringstream text;
    if (*in) {
        text << in->rdbuf();
    }
    if (!*in && in->bad()) {
        text.str("");
    }
    const std::string name = path == "-" ? "(standard input)" : path;
    if (path != "-" && !file.is_open()) {
        return Unreadable(name, "cannot open the file").trace;
    }
    Format format = options.format;
    if (format == Format::kAuto) {
        format = EndsWith(path, ".har") ? Format::kHar
                 : EndsWith(path, ".jsonl") || EndsWith(path, ".ndjson") ? Format::kJsonl
                                                                         : Format::kAuto;
    }
    const std::string body = text.str();
    if (format == Format::kAuto) {
        std::istringstream lines(body);
        std::string line;
        while (std::getline(lines, line) && line.find_first_not_of(" \t\r\n") == std::string::npos) {
        }
        format = LooksLikeHar(line) ? Format::kHar : Format::kJsonl;
    }
    auto trace = std::make_unique<Trace>(format == Format::kHar ? ReadHar(name, body, options.read)
                                                                : ReadJsonl(name, body));
    for (const Issue &issue : trace->skipped) {
        onIssue(name, issue);
    }
    return trace;
}

void ReplayFiles(const std::vector<std::string> &files, const SessionOptions &options, unsigned jobs,
                 const IssueSink &onIssue, const std::function<void(SessionReport &)> &done)
{
    struct Slot {
        SessionReport report;
        std::vector<std::pair<std::string, Issue>> issues;
    };
    std::vector<Slot> slots(files.size());
    const bool serial = jobs <= 1 || files.size() <= 1;
    ParallelFor(
        files.size(), jobs,
        [&](size_t i, uint32_t thread) {
            SessionOptions own = options;
            own.replay.thread = thread;
            Slot &slot = slots[i];
            // A serial run tells of bad lines as it reads them; parallel
            // runs hold them back until the file's turn comes.
            const IssueSink keep = [&slot](const std::string &file, const Issue &issue) {
                slot.issues.emplace_back(file, issue);
            };
            slot.report = ReplayFile(files[i], own, serial ? onIssue : keep);
        },
        [&](size_t i) {
            for (const auto &issue : slots[i].issues) {
                onIssue(issue.first, issue.second);
            }
            slots[i].issues.clear();
            done(slots[i].report);
        });
}

SessionReport ReplaySample(const SessionOptions &options, const IssueSink &onIssue)
{
    std::istringstream in(SampleSession());
    return StreamJsonl("bundled sample session", in, options, Capped(onIssue));
}

}  // namespace replay
