// The --json report against its published schema (tools/replay/report.schema.json),
// with a validator for the part of JSON Schema the file uses.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "report.hpp"
#include "session.hpp"

namespace replay {
namespace {

using nlohmann::json;

class SchemaCheck {
public:
    explicit SchemaCheck(json schema) : root_(std::move(schema)) {}

    // Every fault, each with its JSON pointer.
    std::vector<std::string> Faults(const json &doc)
    {
        faults_.clear();
        Check(doc, root_, "");
        return faults_;
    }

private:
    void Check(const json &v, const json &s, const std::string &at)
    {
        if (s.contains("$ref")) {
            const std::string ref = s["$ref"];  // "#/$defs/name"
            Check(v, root_["$defs"][ref.substr(ref.rfind('/') + 1)], at);
            return;
        }
        auto fault = [&](const std::string &what) { faults_.push_back(at + ": " + what); };
        if (s.contains("const") && v != s["const"]) {
            fault("not " + s["const"].dump());
        }
        if (s.contains("enum") && std::find(s["enum"].begin(), s["enum"].end(), v) == s["enum"].end()) {
            fault(v.dump() + " not in " + s["enum"].dump());
        }
        const std::string type = s.value("type", "");
        if (!type.empty() && v.type_name() != type && !(type == "integer" && v.is_number_integer()) &&
            !(type == "number" && v.is_number())) {
            fault(v.dump() + " is not of type " + type);
            return;
        }
        if (v.is_number() && ((s.contains("minimum") && v < s["minimum"]) || (s.contains("maximum") && v > s["maximum"]))) {
            fault(v.dump() + " out of range");
        }
        if (v.is_array() && s.contains("items")) {
            for (size_t i = 0; i < v.size(); ++i) {
                Check(v[i], s["items"], at + "/" + std::to_string(i));
            }
        }
        if (v.is_object()) {
            for (const auto &key : s.value("required", json::array())) {
                if (!v.contains(key.get<std::string>())) {
                    fault("missing " + key.get<std::string>());
                }
            }
            const json props = s.value("properties", json::object());
            for (auto it = v.begin(); it != v.end(); ++it) {
                if (props.contains(it.key())) {
                    Check(it.value(), props[it.key()], at + "/" + it.key());
                } else if (s.value("additionalProperties", true) == false) {
                    fault("undocumented key " + it.key());
                }
            }
        }
    }

    json root_;
    std::vector<std::string> faults_;
};

TEST(JsonReport, MatchesItsPublishedSchema)
{
    std::ifstream file(std::string(ORVANE_SOURCE_DIR) + "/tools/replay/report.schema.json");
    ASSERT_TRUE(file) << "schema file";
    SchemaCheck schema(json::parse(file));

    SessionOptions options;
    options.keepEvents = true;
    options.eval = true;
    const IssueSink quiet = [](const std::string &, const Issue &) {};
    std::vector<SessionReport> sessions;
    sessions.push_back(ReplaySample(options, quiet));
    sessions.push_back(ReplayFile("/nonexistent/t.har", options, quiet));
    std::istringstream bad(R"({"ev":"req","flow":"f","begin":1,"method":"GET","host":"a.example","uri":"x","status":404}
{"ev":"rsp","flow":"f","begin":2}
)");
    sessions.push_back(StreamJsonl("bad.jsonl", bad, options, quiet));
    std::ostringstream out;
    WriteJson(out, sessions, {true, true});
    const json doc = json::parse(out.str());

    EXPECT_EQ(schema.Faults(doc), std::vector<std::string>{});
    // The schema's variety is exercised: every page and event form occurs.
    const json &sample = doc["sessions"][0];
    EXPECT_TRUE(sample["pages"][0]["page_delay_ns"].is_number_unsigned());
    EXPECT_TRUE(doc["sessions"][1].contains("error"));
    EXPECT_EQ(doc["sessions"][2]["skipped"].size(), 1u);
    size_t black = 0;
    for (const json &ev : sample["events"]) {
        black += ev["outcome"] == "black" ? 1 : 0;
    }
    EXPECT_GT(black, 0u);
}

}  // namespace
}  // namespace replay
