// The program as a user runs it: exit status, messages, output forms.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "../test_util.hpp"

namespace {

namespace fs = std::filesystem;

struct Outcome { int status = -1; std::string out, err; };

std::string Slurp(const fs::path &p)
{
    std::ifstream in(p, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

class Cli : public ::testing::Test {
protected:
    void SetUp() override
    {
        dir_ = fs::temp_directory_path() / ("orvane-replay-cli-" + std::to_string(::getpid()) + "-" +
                                            ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    fs::path Write(const std::string &name, const std::string &text)
    {
        std::ofstream(dir_ / name, std::ios::binary) << text;
        return dir_ / name;
    }

    // input: a shell command whose output is piped to the program.
    Outcome Exec(const std::string &args, const std::string &input = "")
    {
        const std::string cmd = (input.empty() ? "" : "{ " + input + "; } 2>/dev/null | ") + "'" + ORVANE_REPLAY_BIN +
                                "' " + args + " >'" + (dir_ / "out").string() + "' 2>'" + (dir_ / "err").string() + "'";
        Outcome r;
        const int raw = std::system(("bash '" + Write("run.sh", cmd).string() + "'").c_str());
        r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        r.out = Slurp(dir_ / "out");
        r.err = Slurp(dir_ / "err");
        return r;
    }

    fs::path dir_;
};

TEST_F(Cli, UnreadableFilesDoNotStopTheOthers)
{
    const fs::path notJson = Write("x.har", "{\"log\": {\"entries\": [ }");
    const Outcome r = Exec("'" + notJson.string() + "' '" + (dir_ / "missing.jsonl").string() + "' '" +
                           dir_.string() + "' --json");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("x.har: not valid JSON"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("missing.jsonl: cannot open the file"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(dir_.string() + ": cannot read the file"), std::string::npos) << r.err;
    const nlohmann::json j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["summary"]["not_replayed"], 3);
}

TEST_F(Cli, HostileValuesAreNamedByTypeAndShortEscapedPrefix)
{
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    const fs::path jsonl = Write("deep.jsonl", "{\"ev\":" + deep + "}\n" +
        R"({"ev":"req","flow":"f","begin":1,"method":"GET","sip":")" + std::string(5000, 'x') + "\"}\n" +
        R"({"ev":"req","flow":"f","begin":1,"method":"GET","host":"a.example","\u001b[2J":1})" "\n");
    const Outcome j = Exec("'" + jsonl.string() + "'");
    EXPECT_EQ(j.status, 1) << j.err;
    EXPECT_NE(j.err.find("line 1: \"ev\" must be \"req\", \"rsp\" or \"dns\" (an array)"), std::string::npos) << j.err;
    EXPECT_NE(j.err.find("line 2: \"sip\" is not an IPv4 address (string \"xxx"), std::string::npos) << j.err;
    EXPECT_NE(j.err.find("line 3: unknown field \"\\x1B[2J\""), std::string::npos) << j.err;
    EXPECT_LT(j.err.size(), 600u) << "values are quoted as short prefixes";

    // A bad entry is reported with its place, skipped and counted; the good one is still replayed.
    const std::string entry = R"({"startedDateTime":"2017-03-01T10:00:00Z","timings":{"send":1,"wait":2,"receive":3},)";
    const fs::path har = Write("deep.har", R"({"log":{"entries":[)" + entry +
        R"("request":{"method":"GET","url":"http://b.example/"},"response":{"status":200}},)" + entry +
        R"("request":{"method":"GET","url":"http://a.example/"},"response":{"status":)" + deep + "}}]}}");
    const Outcome h = Exec("'" + har.string() + "'");
    EXPECT_EQ(h.status, 1) << h.err;
    EXPECT_NE(h.err.find(har.string() + ": log.entries[1]: response.status out of range (an array) (skipped)"),
              std::string::npos) << h.err;
    EXPECT_NE(h.out.find("skipped: 1 bad"), std::string::npos) << h.out;
    EXPECT_NE(h.out.find("b.example"), std::string::npos) << h.out;
}

TEST_F(Cli, GiantInputIsRefusedInBoundedMemory)
{
    // One line of 1 GiB, then a good one; then a HAR of 1 GiB. Neither is
    // ever held whole.
    Write("gib.sh", "head -c 1073741824 /dev/zero | tr '\\0' a\n");
    Write("line.sh", R"(printf '{"ev":"req","uri":"'; bash gib.sh)"
                     R"(; printf '"}\n{"ev":"req","flow":1,"begin":1,"method":"GET","host":"a.example"}\n')");
    Write("har.sh", R"(printf '{"log":{"entries":["'; bash gib.sh)");
    const Outcome j = Exec("--json -", "cd '" + dir_.string() + "' && bash line.sh");
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    // Well under the 1 GiB line, with room for a sanitizer build's shadow memory.
    EXPECT_LT(usage.ru_maxrss, 128 * 1024) << "KiB at the peak";
    EXPECT_EQ(j.status, 1);
    EXPECT_NE(j.err.find("line 1: longer than 1048576 bytes (skipped)"), std::string::npos) << j.err;
    const nlohmann::json report = nlohmann::json::parse(j.out);
    EXPECT_EQ(report["sessions"][0]["pages"].size(), 1u) << "the line after it is replayed";

    const Outcome h = Exec("-", "cd '" + dir_.string() + "' && bash har.sh");
    EXPECT_EQ(h.status, 1);
    EXPECT_NE(h.err.find("a HAR file larger than 128 MiB is not read"), std::string::npos) << h.err;
    getrusage(RUSAGE_CHILDREN, &usage);
    EXPECT_LT(usage.ru_maxrss, 512 * 1024) << "KiB at the peak";
}

TEST_F(Cli, FilesThatAreNotTracesStopEarly)
{
    std::string text = "# a title: a comment line\n\nSome prose about the project,\n";
    for (int i = 0; i < 300; ++i) {
        text += "line " + std::to_string(i) + R"( with {"ev":"req"} in it)" "\n";
    }
    text += R"({"ev":"req","flow":"f","begin":1,"method":"GET","host":"a.example"})" "\n";
    text += std::string("\x7f" "ELF") + std::string(8, '\0');
    const fs::path prose = Write("notes.txt", text);
    const Outcome r = Exec("--format jsonl '" + prose.string() + "'");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(Count(r.err, "\n"), 1u) << r.err;
    EXPECT_NE(r.err.find("notes.txt: not a JSON Lines trace (line 3: not valid JSON"), std::string::npos) << r.err;
    EXPECT_EQ(r.out.find("a.example"), std::string::npos) << "nothing of it is replayed";

    // A trace with a bad tail: the good part is replayed, messages are capped;
    // the unread rest counts as one more skipped item.
    std::string trace = R"({"ev":"req","flow":"f","begin":1,"method":"GET","host":"a.example"})" "\n";
    for (int i = 0; i < 100; ++i) {
        trace += R"({"ev":"req","flow":"f","begin":2,"method":"GET","port":1})" "\n";
    }
    for (int i = 0; i < 10; ++i) {
        trace += "\x1b[31mnot json\n";
    }
    const Outcome t = Exec("'" + Write("t.jsonl", trace).string() + "'");
    EXPECT_EQ(t.status, 1);
    EXPECT_EQ(Count(t.err, "\n"), 21u) << t.err;
    EXPECT_NE(t.err.find("further bad entries or lines are counted, not listed"), std::string::npos) << t.err;
    EXPECT_NE(t.out.find("skipped: 106 bad"), std::string::npos) << t.out;
    EXPECT_EQ(t.err.find('\x1b'), std::string::npos) << "control characters are escaped";
}

TEST_F(Cli, BadOptionsAreUsageErrors)
{
    for (const char *args : {"--nope", "--log loud", "--timeout -1", "--format xml", "--html", "--jobs 17", "--mix 0.5",
                             "--mix 2 x.har", "--mix-svg a.svg x.har", "--seed -1 x.har", "--tune t.json",
                             "--folds 1 --tune t.json x.har"}) {
        const Outcome r = Exec(args);
        EXPECT_EQ(r.status, 2) << args;
        EXPECT_NE(r.err.find("orvane-replay: "), std::string::npos) << args;
    }
}

TEST_F(Cli, SampleInEveryForm)
{
    const Outcome text = Exec("--events --eval");
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_NE(text.out.find("black"), std::string::npos);
    EXPECT_NE(text.out.find("Grouping against"), std::string::npos);

    const Outcome log = Exec("--log trace");
    EXPECT_NE(log.err.find("[TID=0][TRACE]"), std::string::npos);

    const fs::path page = dir_ / "w.html";
    const Outcome html = Exec("--html '" + page.string() + "'");
    ASSERT_EQ(html.status, 0) << html.err;
    const std::string doc = Slurp(page);
    EXPECT_EQ(doc.rfind("<!DOCTYPE html>", 0), 0u);
    // Self-contained: nothing is fetched; links stay in the page.
    for (const char *ref : {"src=", "@import", "url("}) {
        EXPECT_EQ(doc.find(ref), std::string::npos) << ref;
    }
    EXPECT_EQ(Count(doc, "href="), Count(doc, "href=\"#"));
    // One bar per transaction: every row but the headers and the DNS rows.
    EXPECT_EQ(Count(doc, "<div class=\"r") - Count(doc, "<div class=\"r h\"") - Count(doc, "<div class=\"r dn\""),
              Count(Exec("--sample").out, "\"ev\": \"req\""));
}

TEST_F(Cli, StandardInputIsStreamedOrReadAsHar)
{
    const fs::path sample = Write("s.jsonl", Exec("--sample").out);
    const fs::path har = Write("h.txt", R"({"log":{"entries":[
 {"startedDateTime":"2017-03-01T10:00:00Z","request":{"method":"GET","url":"http://a.example/"},
  "response":{"status":200},"timings":{"send":1,"wait":2,"receive":3}}]}})");
    // Two sessions with every list: the JSON written piece by piece must be
    // the document nlohmann would dump.
    const Outcome json = Exec("--json --events --eval '" + sample.string() + "' - <'" + sample.string() + "'");
    ASSERT_EQ(json.status, 0) << json.err;
    const nlohmann::json j = nlohmann::json::parse(json.out);
    EXPECT_EQ(j.dump(2) + "\n", json.out);
    ASSERT_EQ(j["sessions"].size(), 2u);
    EXPECT_EQ(j["sessions"][1]["file"], "(standard input)");
    EXPECT_TRUE(!j["sessions"][0]["pages"].empty() && !j["sessions"][0]["events"].empty() &&
                j["sessions"][0].contains("eval"));
    EXPECT_EQ(j["sessions"][1]["pages"], j["sessions"][0]["pages"]);
    EXPECT_EQ(j["sessions"][1]["late"], 0);

    const Outcome fromHar = Exec("- <'" + har.string() + "'");
    EXPECT_EQ(fromHar.status, 0) << fromHar.err;
    EXPECT_NE(fromHar.out.find("(standard input) (har)"), std::string::npos) << fromHar.out;

}

// Files replayed at once on contexts 0..3 report exactly what a serial run
// does, messages included; page numbers do not carry the context.
TEST_F(Cli, ParallelRunEqualsSerialRun)
{
    const std::string sample = Exec("--sample").out;
    ASSERT_GT(sample.size(), 20000u);
    std::string files;
    for (size_t i = 0; i < 5; ++i) {
        // Files of different lengths: the sample cut after more and more lines.
        const std::string cut = sample.substr(0, sample.find('\n', 6500 + 3400 * i) + 1);
        files += " '" + Write("s" + std::to_string(i) + ".jsonl", cut).string() + "'";
    }
    files += " '" + Write("bad.jsonl", "{\"ev\":\"req\"}\nnot json\n").string() + "' '" + (dir_ / "missing").string() + "'";
    files += " '" + Write("h.har", R"({"log":{"pages":[{"id":"p","startedDateTime":"2017-03-01T10:00:00Z",
 "pageTimings":{"onLoad":9}}],"entries":[
 {"pageref":"p","startedDateTime":"2017-03-01T10:00:00Z","request":{"method":"GET","url":"http://a.example/"},
  "response":{"status":200},"timings":{"send":1,"wait":2,"receive":3}},
 {"pageref":"p","startedDateTime":"2017-03-01T10:00:00.5Z","request":{"method":"GET","url":"http://a.example/x.css"},
  "response":{"status":200},"timings":{"send":1,"wait":2,"receive":3}}]}})").string() + "'";
    for (const char *form : {"--events --eval", "--json --events --eval"}) {
        const Outcome serial = Exec(std::string(form) + " --jobs 1" + files);
        const Outcome parallel = Exec(std::string(form) + " --jobs 4" + files);
        EXPECT_EQ(serial.status, 1);
        EXPECT_EQ(parallel.status, serial.status);
        EXPECT_EQ(parallel.out, serial.out) << form;
        EXPECT_EQ(parallel.err, serial.err) << form;
    }
}

// A configuration file reaches the library as a daemon's writes would.
TEST_F(Cli, ConfigurationFileChangesTheGrouping)
{
    const fs::path sample = Write("s.jsonl", Exec("--sample").out);
    const Outcome plain = Exec("--events --json '" + sample.string() + "'");
    // Every window and fallback as short as can be: time rules never hold.
    std::string tiny = "{\"time_threshold_ms\": [1";
    for (int i = 1; i < 24; ++i) {
        tiny += ",1";
    }
    tiny += "], \"host_black_keywords\": [], \"page_timeout_s\": 10}";
    const fs::path config = Write("c.json", tiny);
    const Outcome tuned = Exec("--events --json --config '" + config.string() + "' '" + sample.string() + "'");
    ASSERT_EQ(tuned.status, 0) << tuned.err;
    const nlohmann::json a = nlohmann::json::parse(plain.out), b = nlohmann::json::parse(tuned.out);
    EXPECT_GT(b["summary"]["pages"].get<int>(), a["summary"]["pages"].get<int>());
    EXPECT_GT(Count(plain.out, "\"black\": true"), 0u);  // black-listed events
    EXPECT_EQ(Count(tuned.out, "\"black\": true"), 0u);
    // The file's quiet time: pages close 10 s after their last event.
    EXPECT_LT(b["sessions"][0]["clock_end_ns"].get<uint64_t>(), a["sessions"][0]["clock_end_ns"].get<uint64_t>());

    for (const char *bad : {"[]", "{\"time_threshold_ms\": [1, 2]}", "{\"colour\": 1}",
                            "{\"host_black_keywords\": [\"a-keyword-far-too-long\"]}"}) {
        const Outcome r = Exec("--config '" + Write("bad.json", bad).string() + "'");
        EXPECT_EQ(r.status, 2) << bad;
        EXPECT_NE(r.err.find("--config"), std::string::npos) << r.err;
    }
}

TEST_F(Cli, MixesOfRecordings)
{
    const fs::path sample = Write("s.jsonl", Exec("--sample").out);
    const fs::path svg = dir_ / "curve.svg";
    const std::string twice = " '" + sample.string() + "' '" + sample.string() + "'";
    const fs::path page = dir_ / "curve.html";
    const Outcome curve = Exec("--mix-curve --mix-svg '" + svg.string() + "' --html '" + page.string() + "'" + twice);
    ASSERT_EQ(curve.status, 0) << curve.err;
    EXPECT_NE(curve.out.find("apart"), std::string::npos) << curve.out;
    const std::string plot = Slurp(svg);
    EXPECT_EQ(plot.rfind("<svg xmlns=", 0), 0u);
    EXPECT_EQ(plot.find("href"), std::string::npos) << "self-contained";
    const std::string html = Slurp(page);  // the table and the same plot
    EXPECT_NE(html.find("<pre>"), std::string::npos);
    EXPECT_NE(html.find(plot), std::string::npos);

    const Outcome one = Exec("--mix 0.5 --seed 9 --eval --json" + twice);
    ASSERT_EQ(one.status, 0) << one.err;
    EXPECT_EQ(Exec("--mix 0.5 --seed 9 --eval --json" + twice).out, one.out);
    const nlohmann::json j = nlohmann::json::parse(one.out);
    ASSERT_EQ(j["sessions"].size(), 1u);
    EXPECT_EQ(j["sessions"][0]["format"], "mix");
    EXPECT_GT(j["sessions"][0]["eval"]["background"].get<int>(), 0);

    // --tune writes a file that --config takes.
    const fs::path tuned = dir_ / "tuned.json";
    const Outcome tune = Exec("--tune '" + tuned.string() + "' --folds 2" + twice);
    ASSERT_EQ(tune.status, 0) << tune.err;
    EXPECT_NE(tune.out.find("held out, tuned"), std::string::npos) << tune.out;
    EXPECT_EQ(Exec("--config '" + tuned.string() + "'" + twice).status, 0);
}

TEST_F(Cli, RealRecordingsEvaluate)
{
    const fs::path shared = fs::path(ORVANE_SHARED_DIR) / "har";
    if (!fs::is_directory(shared)) {
        GTEST_SKIP() << "no recordings at " << shared;
    }
    std::string args = "--eval --json";
    size_t files = 0;
    for (const auto &entry : fs::directory_iterator(shared)) {
        if (entry.path().extension() == ".har") {
            args += " '" + entry.path().string() + "'";
            ++files;
        }
    }
    const Outcome r = Exec(args);
    EXPECT_EQ(r.status, 0) << r.err;
    const nlohmann::json j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["sessions"].size(), files);
    EXPECT_EQ(j["summary"]["not_replayed"], 0);
    EXPECT_GT(j["summary"]["eval"]["true_pages"].get<int>(), 0);
}

}  // namespace
