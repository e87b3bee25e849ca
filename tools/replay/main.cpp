// orvane-replay: plays the daemon for recorded browsing sessions and prints
// the web pages the library reports.
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "report.hpp"
#include "session.hpp"
#include "trace.hpp"

namespace {

using namespace replay;

constexpr int kExitOk = 0;
constexpr int kExitBadInput = 1;
constexpr int kExitUsage = 2;
constexpr int kExitOutput = 3;

constexpr const char *kUsage = R"(usage: orvane-replay [options] [FILE...]

Replays recorded browsing sessions (HAR 1.2, JSONL event traces, or pcap and
pcapng packet captures of plaintext HTTP/1.x) through the page association
library, as the daemon would feed it, and prints one row per reported page. Several files are replayed one after the other, each as its own
session; FILE - reads standard input. Without FILE the bundled sample
session is replayed.

options:
  --events          also list every event and the page it joined
  --json            write the report as JSON on standard output
  --log LEVEL       show the library's log lines on standard error
                    (trace, info or error)
  --html FILE       write a self-contained HTML waterfall of the sessions
  --eval            compare the grouping with the recording's own pages
                    (HAR pageref, JSONL "page")
  --format FMT      read every FILE as har, jsonl or pcap (pcap also reads
                    pcapng; default: a capture by its magic number, else by
                    file name, else by content)
  --timeout SEC     page quiet time handed to the library (default 0: its
                    built-in 60 s)
  --keep-slash      hand URIs and referer paths over with their leading '/'
  --with-cache      also replay HAR entries the browser served from its cache
  --sample          print the bundled sample session and exit
  -h, --help        this text

exit status: 0 all input replayed; 1 a file or some entries could not be
read (the rest is still replayed and reported); 2 bad options; 3 the HTML
file could not be written.
)";

struct Options {
    ReportOptions report;
    SessionOptions session;
    bool json = false;
    bool printSample = false;
    std::string html;
    std::vector<std::string> files;
};

bool ParseLevel(const std::string &text, uint32_t *level)
{
    static const struct {
        const char *name;
        uint32_t level;
    } kLevels[] = {{"trace", LOG_LEVEL_TRACE}, {"info", LOG_LEVEL_INFO}, {"error", LOG_LEVEL_ERROR},
                   {"0", LOG_LEVEL_TRACE},     {"1", LOG_LEVEL_INFO},    {"2", LOG_LEVEL_ERROR}};
    for (const auto &row : kLevels) {
        if (text == row.name) {
            *level = row.level;
            return true;
        }
    }
    return false;
}

// Returns an error text, empty on success.
std::string ParseArgs(int argc, char **argv, Options *o)
{
    bool onlyFiles = false;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (onlyFiles || arg.empty() || arg[0] != '-' || arg == "-") {
            o->files.push_back(arg);
            continue;
        }
        if (arg == "--") {
            onlyFiles = true;
            continue;
        }
        std::string value;
        bool hasValue = false;
        const size_t eq = arg.find('=');
        if (arg.rfind("--", 0) == 0 && eq != std::string::npos) {
            value = arg.substr(eq + 1);
            arg = arg.substr(0, eq);
            hasValue = true;
        }
        auto takeValue = [&]() -> bool {
            if (hasValue) {
                return true;
            }
            if (i + 1 >= argc) {
                return false;
            }
            value = argv[++i];
            return true;
        };
        if (arg == "-h" || arg == "--help") {
            std::cout << kUsage;
            std::exit(kExitOk);
        } else if (arg == "--events") {
            o->report.events = true;
        } else if (arg == "--json") {
            o->json = true;
        } else if (arg == "--eval") {
            o->report.eval = true;
        } else if (arg == "--keep-slash") {
            o->session.read.keepSlash = true;
        } else if (arg == "--with-cache") {
            o->session.read.withCache = true;
        } else if (arg == "--sample") {
            o->printSample = true;
        } else if (arg == "--log") {
            if (!takeValue() || !ParseLevel(value, &o->session.replay.logLevel)) {
                return "--log needs a level: trace, info or error";
            }
            o->session.replay.showLog = true;
        } else if (arg == "--html") {
            if (!takeValue() || value.empty()) {
                return "--html needs a file name";
            }
            o->html = value;
        } else if (arg == "--format") {
            if (!takeValue() || (value != "har" && value != "jsonl" && value != "pcap" && value != "pcapng")) {
                return "--format needs har, jsonl or pcap";
            }
            o->session.format = value == "har"     ? Format::kHar
                                : value == "jsonl" ? Format::kJsonl
                                                   : Format::kCapture;
        } else if (arg == "--timeout") {
            char *end = nullptr;
            const long sec = takeValue() ? std::strtol(value.c_str(), &end, 10) : -1;
            if (value.empty() || end == nullptr || *end != '\0' || sec < 0 || sec > 65535) {
                return "--timeout needs seconds from 0 to 65535";
            }
            o->session.replay.pageTimeOutSec = static_cast<uint16_t>(sec);
        } else {
            return "unknown option " + arg;
        }
    }
    return {};
}

int Run(int argc, char **argv)
{
    Options options;
    const std::string error = ParseArgs(argc, argv, &options);
    if (!error.empty()) {
        std::cerr << "orvane-replay: " << error << "\n" << "Try 'orvane-replay --help'.\n";
        return kExitUsage;
    }
    if (options.printSample) {
        std::cout << SampleSession();
        return kExitOk;
    }

    // JSON Lines are replayed as they are read; per-event results are kept
    // only for the reports that list or compare events.
    options.session.keepEvents = options.report.events || options.report.eval || !options.html.empty();
    options.session.eval = options.report.eval;
    bool badInput = false;
    const IssueSink printIssue = [&badInput](const std::string &file, const Issue &issue) {
        std::cerr << "orvane-replay: " << file << ": " << issue.where << ": " << issue.what << " (skipped)\n";
        badInput = true;
    };
    std::vector<SessionReport> sessions;
    auto replayed = [&](SessionReport report) {
        if (!report.trace->fatal.empty()) {
            std::cerr << "orvane-replay: " << report.trace->file << ": " << report.trace->fatal << "\n";
            badInput = true;
        } else if (!report.result.setupError.empty()) {
            std::cerr << "orvane-replay: " << report.trace->file << ": " << report.result.setupError << "\n";
            badInput = true;
        }
        sessions.push_back(std::move(report));
    };
    if (options.files.empty()) {
        replayed(ReplaySample(options.session, printIssue));
    }
    for (const std::string &file : options.files) {
        replayed(ReplayFile(file, options.session, printIssue));
    }

    if (options.json) {
        WriteJson(std::cout, sessions, options.report);
    } else {
        WriteText(std::cout, sessions, options.report);
    }
    if (!options.html.empty()) {
        std::ofstream html(options.html, std::ios::binary);
        if (html) {
            WriteHtml(html, sessions);
        }
        if (!html) {
            std::cerr << "orvane-replay: cannot write " << options.html << "\n";
            return kExitOutput;
        }
    }
    return badInput ? kExitBadInput : kExitOk;
}
}  // namespace

int main(int argc, char **argv)
{
    try {
        return Run(argc, argv);
    } catch (const std::exception &err) {
        // Input problems are reported where they are found; this is the
        // last guard against anything else (memory, output errors).
        std::cerr << "orvane-replay: " << err.what() << "\n";
        return kExitBadInput;
    }
}
