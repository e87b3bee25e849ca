#include <fstream>
#include <iostream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "text_util.hpp"
#include "trace.hpp"

namespace replay {

namespace {

bool EndsWith(const std::string &s, const std::string &suffix)
{
    return s.size() >= suffix.size() && ToLower(s.substr(s.size() - suffix.size())) == suffix;
}

// A HAR file is one JSON document, usually spread over many lines; an event
// trace is one object per line, or starts with a comment.
bool LooksLikeHar(const std::string &text)
{
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos || text[first] != '{') {
        return false;
    }
    const size_t newline = text.find('\n', first);
    const std::string line = text.substr(first, newline == std::string::npos ? std::string::npos : newline - first);
    const nlohmann::json obj = nlohmann::json::parse(line, nullptr, false);
    if (obj.is_discarded()) {
        return true;  // the document goes on past its first line
    }
    return obj.is_object() && obj.contains("log");
}

}  // namespace

Trace ReadTraceFile(const std::string &path, Format format, const ReadOptions &options)
{
    if (path == "-") {
        std::ostringstream buffer;
        buffer << std::cin.rdbuf();
        const std::string text = buffer.str();
        const bool har = format == Format::kHar || (format == Format::kAuto && LooksLikeHar(text));
        return har ? ReadHar("(standard input)", text, options) : ReadJsonl("(standard input)", text);
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        Trace trace;
        trace.file = path;
        trace.fatal = "cannot open the file";
        return trace;
    }
    std::ostringstream buffer;
    buffer << in.rdbuf();
    if (in.bad()) {
        Trace trace;
        trace.file = path;
        trace.fatal = "cannot read the file";
        return trace;
    }
    const std::string text = buffer.str();
    if (format == Format::kAuto) {
        if (EndsWith(path, ".har")) {
            format = Format::kHar;
        } else if (EndsWith(path, ".jsonl") || EndsWith(path, ".ndjson")) {
            format = Format::kJsonl;
        } else {
            format = LooksLikeHar(text) ? Format::kHar : Format::kJsonl;
        }
    }
    return format == Format::kHar ? ReadHar(path, text, options) : ReadJsonl(path, text);
}

}  // namespace replay
