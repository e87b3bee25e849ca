#include <fstream>
#include <iostream>
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

// A HAR file is one JSON document, usually spread over many lines; an event
// trace is one object per line, or starts with a comment. line: the first
// with content.
bool LooksLikeHar(const std::string &line)
{
    const size_t first = line.find_first_not_of(" \t\r\n");
    if (first == std::string::npos || line[first] != '{') {
        return false;
    }
    const nlohmann::json obj = nlohmann::json::parse(line.substr(first), nullptr, false);
    if (obj.is_discarded()) {
        return true;  // the document goes on past its first line
    }
    return obj.is_object() && obj.contains("log");
}

SessionReport Unreadable(const std::string &file, const std::string &why)
{
    SessionReport report;
    report.trace = std::make_unique<Trace>();
    report.trace->file = file;
    report.trace->fatal = why;
    return report;
}

SessionReport ReplayHar(const std::string &file, const std::string &text, const SessionOptions &options,
                        const IssueSink &onIssue)
{
    SessionReport report;
    report.trace = std::make_unique<Trace>(ReadHar(file, text, options.read));
    const Trace &trace = *report.trace;
    for (const Issue &issue : trace.skipped) {
        onIssue(file, issue);
    }
    if (trace.skippedCount > trace.skipped.size()) {
        onIssue(file, {"log.entries", std::to_string(trace.skippedCount - trace.skipped.size()) +
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

SessionReport ReplayStream(const std::string &file, std::istream &in, Format format, const SessionOptions &options,
                           const IssueSink &onIssue)
{
    std::vector<std::string> head;
    if (format == Format::kAuto) {
        std::string line;
        while (std::getline(in, line)) {
            head.push_back(line);
            if (line.find_first_not_of(" \t\r\n") != std::string::npos) {
                break;
            }
        }
        format = !head.empty() && LooksLikeHar(head.back()) ? Format::kHar : Format::kJsonl;
    } else {
        in.peek();  // a directory opens but cannot be read
    }
    if (in.bad()) {
        return Unreadable(file, "cannot read the file");
    }
    if (format == Format::kJsonl) {
        return StreamJsonl(file, in, options, onIssue, std::move(head));
    }
    std::ostringstream text;
    for (const std::string &line : head) {
        text << line << '\n';
    }
    text << in.rdbuf();
    if (in.bad()) {
        return Unreadable(file, "cannot read the file");
    }
    return ReplayHar(file, text.str(), options, onIssue);
}

}  // namespace

SessionReport ReplayFile(const std::string &path, const SessionOptions &options, const IssueSink &onIssue)
{
    if (path == "-") {
        return ReplayStream("(standard input)", std::cin, options.format, options, onIssue);
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
    }
    return ReplayStream(path, in, format, options, onIssue);
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
    return StreamJsonl("bundled sample session", in, options, onIssue);
}

}  // namespace replay
