#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include <nlohmann/json.hpp>

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

bool HasContent(const std::string &line) { return line.find_first_not_of(" \t\r\n") != std::string::npos; }

bool IsComment(const std::string &line)
{
    const size_t first = line.find_first_not_of(" \t\r\n");
    return first != std::string::npos && line[first] == '#';
}

// Lines read to tell the format; a trace of nothing but comments is JSONL.
constexpr size_t kMaxHeadLines = 1000;

// sniff: the user left the format open, so a capture's magic number decides
// over the file name.
SessionReport ReplayStream(const std::string &file, std::istream &in, Format format, bool sniff,
                           const SessionOptions &options, const IssueSink &onIssue)
{
    std::vector<std::string> head;
    if (sniff || format == Format::kCapture) {
        std::string magic(4, '\0');
        in.read(&magic[0], static_cast<std::streamsize>(magic.size()));
        magic.resize(static_cast<size_t>(in.gcount()));
        if (in.bad()) {
            return Unreadable(file, "cannot read the file");
        }
        if (format == Format::kCapture || LooksLikeCapture(magic)) {
            std::string bytes = std::move(magic);
            bytes.append(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
            if (in.bad()) {
                return Unreadable(file, "cannot read the file");
            }
            return ReplayWhole(ReadCapture(file, bytes, options.read), "packets", options, onIssue);
        }
        // Not a capture: the bytes taken begin the first lines.
        in.clear();
        if (!magic.empty() && magic.back() != '\n') {
            std::string rest;
            std::getline(in, rest);
            magic += rest + "\n";
        }
        std::istringstream lines(magic);
        for (std::string line; std::getline(lines, line);) {
            head.push_back(line);
        }
    }
    if (format == Format::kAuto) {
        // The first line that is neither blank nor a JSONL comment tells;
        // one that opens no JSON object is no trace at all.
        std::string line;
        while ((head.empty() || !HasContent(head.back()) || IsComment(head.back())) && head.size() < kMaxHeadLines &&
               std::getline(in, line)) {
            head.push_back(line);
        }
        const bool content = !head.empty() && HasContent(head.back()) && !IsComment(head.back());
        if (content && head.back()[head.back().find_first_not_of(" \t\r\n")] != '{') {
            return Unreadable(file, "not a recorded session: neither HAR, JSON Lines nor a pcap/pcapng capture");
        }
        format = content && LooksLikeHar(head.back()) ? Format::kHar : Format::kJsonl;
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
    return ReplayWhole(ReadHar(file, text.str(), options.read), "log.entries", options, onIssue);
}

}  // namespace

SessionReport ReplayFile(const std::string &path, const SessionOptions &options, const IssueSink &onIssue)
{
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

SessionReport ReplaySample(const SessionOptions &options, const IssueSink &onIssue)
{
    std::istringstream in(SampleSession());
    return StreamJsonl("bundled sample session", in, options, onIssue);
}

}  // namespace replay
