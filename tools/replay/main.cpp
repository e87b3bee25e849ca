// orvane-replay: plays the daemon for recorded browsing sessions and prints
// the web pages the library reports.
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "daemon_config.hpp"
#include "mix.hpp"
#include "mix_curve.hpp"
#include "report.hpp"
#include "report_mix.hpp"
#include "report_tune.hpp"
#include "tune.hpp"
#include "session.hpp"
#include "text_util.hpp"
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
                    (HAR pageref, JSONL "page"), pair by pair and page by
                    page, and the page delay with HAR pageTimings
  --format FMT      read every FILE as har, jsonl or pcap (pcap also reads
                    pcapng; default: a capture by its magic number, else by
                    file name, else by content)
  --timeout SEC     page quiet time handed to the library (default 0: its
                    built-in 60 s)
  --keep-slash      hand URIs and referer paths over with their leading '/'
  --with-cache      also replay HAR entries the browser served from its cache
  --config FILE     write this JSON configuration into the library's globals
                    after set-up, as a daemon may (page timeout, threshold
                    table, 407 rule, heartbeat host, black-listed host
                    keywords, content types, flash and input keywords)
  --jobs N          replay up to N files at once, on thread contexts 0 to N-1
                    (1 to 16, default 1); the report is the same
  --mix OVERLAP     replay one session mixed from the labelled pages of every
                    FILE instead of each FILE: shifted onto one clock, a share
                    OVERLAP (0 to 1) of pages opened 0.5-5 s after the previous
                    page's start, the rest 0.5-5 s after every earlier page
                    ended, with background traffic; flows kept apart, labels
                    "file#page"
  --mix-curve       score mixes of the FILEs at overlap 0, 0.25, 0.5, 0.75 and
                    1 (5 seeds each) against each FILE alone, print the table
  --mix-svg FILE    with --mix-curve: also plot it as a self-contained SVG
                    (with --html FILE: the table and the plot as a page)
  --seed N          the mixes' seed (default 1): the same seed, the same mix
  --background N    background transactions per minute in mixes (default 6)
  --tune FILE       search the threshold table on the labelled FILEs
                    (coordinate search, cross-validated over files), report
                    start against tuned table on held-out folds and write the
                    table searched on every file as a --config FILE; with
                    --mix, score mixes of the files at that overlap instead
  --folds N         held-out folds for --tune (2 to 10, default 5)
  --sample          print the bundled sample session and exit
  --version         print the version and exit
  -h, --help        this text

exit status: 0 all input replayed; 1 a file or some entries could not be
read (the rest is still replayed and reported); 2 bad options; 3 an output
file (HTML, SVG, configuration) could not be written.
)";

struct Options {
    ReportOptions report;
    SessionOptions session;
    bool json = false;
    bool printSample = false;
    std::string html;
    std::vector<std::string> files;
    unsigned jobs = 1;
    bool timeoutGiven = false;
    bool mix = false, mixCurve = false;
    std::string tune;
    size_t folds = 5;
    MixOptions mixOptions;
    std::string mixSvg;
};

bool ParseShare(const std::string &value, double *share)
{
    char *end = nullptr;
    *share = std::strtod(value.c_str(), &end);
    return !value.empty() && *end == '\0' && *share >= 0.0 && *share <= 1.0;
}

// Returns an error text, empty on success.
std::string ReadConfig(const std::string &path, DaemonConfig *config)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return "--config: cannot open " + path;
    }
    std::ostringstream text;
    text << in.rdbuf();
    const std::string error = ParseDaemonConfig(text.str(), config);
    return error.empty() ? error : "--config " + path + ": " + error;
}

unsigned ParseCount(const std::string &value, unsigned max)
{
    char *end = nullptr;
    const long n = std::strtol(value.c_str(), &end, 10);
    return value.empty() || *end != '\0' || n < 1 || n > static_cast<long>(max) ? 0 : static_cast<unsigned>(n);
}

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
        } else if (arg == "--version") {
            std::cout << "orvane-replay " << ORVANE_VERSION << "\n";
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
            o->timeoutGiven = true;
        } else if (arg == "--config") {
            if (!takeValue() || value.empty()) {
                return "--config needs a file name";
            }
            const std::string error = ReadConfig(value, &o->session.replay.config);
            if (!error.empty()) {
                return error;
            }
        } else if (arg == "--mix") {
            if (!takeValue() || !ParseShare(value, &o->mixOptions.overlap)) {
                return "--mix needs an overlap share from 0 to 1";
            }
            o->mix = true;
        } else if (arg == "--tune") {
            if (!takeValue() || value.empty()) {
                return "--tune needs a file name to write the configuration to";
            }
            o->tune = value;
        } else if (arg == "--folds") {
            if (!takeValue() || (o->folds = ParseCount(value, 10)) < 2) {
                return "--folds needs a number from 2 to 10";
            }
        } else if (arg == "--mix-curve") {
            o->mixCurve = true;
        } else if (arg == "--mix-svg") {
            if (!takeValue() || value.empty()) {
                return "--mix-svg needs a file name";
            }
            o->mixSvg = value;
        } else if (arg == "--seed") {
            char *end = nullptr;
            const unsigned long long seed = takeValue() ? std::strtoull(value.c_str(), &end, 10) : 0;
            if (value.empty() || end == nullptr || *end != '\0' || value[0] == '-') {
                return "--seed needs a whole number";
            }
            o->mixOptions.seed = seed;
        } else if (arg == "--background") {
            char *end = nullptr;
            const double rate = takeValue() ? std::strtod(value.c_str(), &end) : -1.0;
            if (value.empty() || end == nullptr || *end != '\0' || !(rate >= 0.0 && rate <= 600.0)) {
                return "--background needs transactions per minute from 0 to 600";
            }
            o->mixOptions.backgroundPerMinute = rate;
        } else if (arg == "--jobs") {
            if (!takeValue() || (o->jobs = ParseCount(value, kMaxThreads)) == 0) {
                return "--jobs needs a number from 1 to 16";
            }
        } else {
            return "unknown option " + arg;
        }
    }
    if ((o->mix || o->mixCurve || !o->tune.empty()) && o->files.empty()) {
        return "--mix, --mix-curve and --tune need recordings (FILE...)";
    }
    if (!o->mixSvg.empty() && !o->mixCurve) {
        return "--mix-svg goes with --mix-curve";
    }
    // The configuration file's quiet time, unless --timeout says otherwise.
    if (o->session.replay.config.pageTimeOutSec && !o->timeoutGiven) {
        o->session.replay.pageTimeOutSec = *o->session.replay.config.pageTimeOutSec;
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
        if (issue.warning) {
            std::cerr << "orvane-replay: " << Printable(file) << ": warning: " << issue.where << ": " << issue.what
                      << "\n";
            return;
        }
        std::cerr << "orvane-replay: " << Printable(file) << ": " << issue.where << ": " << issue.what << " (skipped)\n";
        badInput = true;
    };
    std::vector<SessionReport> sessions;
    auto replayed = [&](SessionReport report) {
        if (!report.trace->fatal.empty()) {
            std::cerr << "orvane-replay: " << Printable(report.trace->file) << ": " << report.trace->fatal << "\n";
            badInput = true;
        } else if (!report.result.setupError.empty()) {
            std::cerr << "orvane-replay: " << Printable(report.trace->file) << ": " << report.result.setupError << "\n";
            badInput = true;
        }
        sessions.push_back(std::move(report));
    };
    if (options.mix || options.mixCurve || !options.tune.empty()) {
        std::vector<std::unique_ptr<Trace>> loaded;
        std::vector<const Trace *> recordings;
        for (const std::string &file : options.files) {
            loaded.push_back(LoadTrace(file, options.session, printIssue));
            if (!loaded.back()->fatal.empty()) {
                std::cerr << "orvane-replay: " << loaded.back()->file << ": " << loaded.back()->fatal << "\n";
                badInput = true;
            } else {
                recordings.push_back(loaded.back().get());
            }
        }
        if (!options.tune.empty()) {
            TuneOptions tune;
            tune.replay = options.session.replay;
            tune.jobs = options.jobs;
            tune.folds = options.folds;
            tune.mixed = options.mix;
            tune.mix = options.mixOptions;
            const TuneResult result = Tune(recordings, tune);
            if (options.json) {
                std::cout << nlohmann::json{{"tune", TuneJson(result, tune)}}.dump(2) << "\n";
            } else {
                WriteTuneText(std::cout, result, tune);
            }
            DaemonConfig best = options.session.replay.config;
            best.thresholdsMs = result.table;
            std::ofstream out(options.tune, std::ios::binary);
            out << DaemonConfigJson(best).dump(2) << "\n";
            if (!out) {
                std::cerr << "orvane-replay: cannot write " << options.tune << "\n";
                return kExitOutput;
            }
            return badInput ? kExitBadInput : kExitOk;
        }
        if (options.mixCurve) {
            const std::vector<CurvePoint> points = MixCurve(recordings, {0.0, 0.25, 0.5, 0.75, 1.0}, 5,
                                                            options.mixOptions, options.session.replay, options.jobs);
            if (options.json) {
                std::cout << nlohmann::json{{"mix_curve", MixCurveJson(points)}}.dump(2) << "\n";
            } else {
                WriteMixCurveText(std::cout, points);
            }
            // --mix-svg: the plot alone; --html: the table and the plot as a page.
            const struct {
                const std::string &file;
                void (*write)(std::ostream &, const std::vector<CurvePoint> &);
            } outputs[] = {{options.mixSvg, WriteMixCurveSvg}, {options.html, WriteMixCurveHtml}};
            for (const auto &output : outputs) {
                if (output.file.empty()) {
                    continue;
                }
                std::ofstream file(output.file, std::ios::binary);
                if (file) {
                    output.write(file, points);
                }
                if (!file) {
                    std::cerr << "orvane-replay: cannot write " << output.file << "\n";
                    return kExitOutput;
                }
            }
            return badInput ? kExitBadInput : kExitOk;
        }
        SessionReport report;
        report.trace = std::make_unique<Trace>(Mix(recordings, options.mixOptions));
        report.result = Replay(*report.trace, options.session.replay);
        if (options.report.eval) {
            report.eval = Evaluate(*report.trace, report.result);
        }
        replayed(std::move(report));
    } else if (options.files.empty()) {
        replayed(ReplaySample(options.session, printIssue));
    } else {
        ReplayFiles(options.files, options.session, options.jobs, printIssue,
                    [&](SessionReport &report) { replayed(std::move(report)); });
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
