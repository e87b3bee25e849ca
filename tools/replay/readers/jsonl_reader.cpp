// The event trace format: one JSON object per line, each a request ("req"),
// response ("rsp") or DNS observation ("dns") as a daemon saw it. Strings go
// to the library unchanged; times are nanoseconds. Blank lines and lines
// starting with '#' are ignored.
#include <algorithm>
#include <limits>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "input_error.hpp"
#include "jsonl_contract.hpp"
#include "jsonl_reader.hpp"
#include "text_util.hpp"
#include "trace.hpp"

namespace replay {

namespace {

using nlohmann::json;

const std::set<std::string> kRequestFields = {
    "ev",     "flow",     "begin", "end",   "syn",   "method", "host", "uri", "refer_host", "refer_path",
    "status", "location", "ctype", "cport", "sport", "cip",    "sip",  "net", "fin",        "page"};
const std::set<std::string> kResponseFields = {"ev",    "flow",  "begin", "end", "syn", "status", "location",
                                               "ctype", "cport", "sport", "cip", "sip", "net",    "fin"};
const std::set<std::string> kDnsFields = {"ev", "host", "begin", "delay_ms"};

void CheckFields(const json &obj, const std::set<std::string> &allowed)
{
    for (auto it = obj.begin(); it != obj.end(); ++it) {
        if (allowed.count(it.key()) == 0) {
            throw InputError("unknown field " + Quoted(it.key()));
        }
    }
}

uint64_t Unsigned(const json &obj, const char *key, uint64_t max, bool required, uint64_t fallback = 0)
{
    auto it = obj.find(key);
    if (it == obj.end()) {
        if (required) {
            throw InputError(std::string("missing field \"") + key + "\"");
        }
        return fallback;
    }
    if (it->is_number_unsigned()) {
        const uint64_t v = it->get<uint64_t>();
        if (v <= max) {
            return v;
        }
    } else if (it->is_number_integer() || it->is_number_float()) {
        // negative or fractional: falls through to the range message
    } else {
        throw InputError(std::string("\"") + key + "\" is not a number");
    }
    throw InputError(std::string("\"") + key + "\" out of range (" + ValueText(*it) + ", allowed 0.." +
                     std::to_string(max) + ")");
}

std::string Text(const json &obj, const char *key)
{
    auto it = obj.find(key);
    if (it == obj.end()) {
        return {};
    }
    if (!it->is_string()) {
        throw InputError(std::string("\"") + key + "\" is not a string");
    }
    std::string s = it->get<std::string>();
    if (s.size() > std::numeric_limits<uint16_t>::max()) {
        throw InputError(std::string("\"") + key + "\" longer than 65535 bytes");
    }
    return s;
}

uint32_t Address(const json &obj, const char *key, uint32_t fallback)
{
    auto it = obj.find(key);
    if (it == obj.end()) {
        return fallback;
    }
    if (it->is_string()) {
        uint32_t ip = 0;
        if (!ParseIpv4(it->get<std::string>(), &ip)) {
            throw InputError(std::string("\"") + key + "\" is not an IPv4 address (" + ValueText(*it) + ")");
        }
        return ip;
    }
    return static_cast<uint32_t>(Unsigned(obj, key, std::numeric_limits<uint32_t>::max(), true));
}

std::string FlowKey(const json &obj)
{
    auto it = obj.find("flow");
    if (it == obj.end()) {
        throw InputError("missing field \"flow\"");
    }
    if (it->is_string() && !it->get<std::string>().empty()) {
        return it->get<std::string>();
    }
    if (it->is_number_unsigned()) {
        return std::to_string(it->get<uint64_t>());
    }
    throw InputError("\"flow\" must be a non-empty string or a number");
}

void ReadMethod(const json &obj, TraceEvent *ev)
{
    auto it = obj.find("method");
    if (it == obj.end()) {
        throw InputError("missing field \"method\"");
    }
    if (it->is_string()) {
        ev->methodName = it->get<std::string>();
        if (ev->methodName.empty()) {
            throw InputError("\"method\" is empty");
        }
        ev->method = ev->methodName == "GET" ? kMethodGet : ev->methodName == "POST" ? kMethodPost : kMethodOther;
        return;
    }
    ev->method = static_cast<uint32_t>(Unsigned(obj, "method", std::numeric_limits<uint32_t>::max(), true));
    ev->methodName = ev->method == kMethodGet ? "GET" : ev->method == kMethodPost ? "POST" : std::to_string(ev->method);
}

// Fields both event kinds share.
void ReadCommon(const json &obj, TraceEvent *ev)
{
    ev->flow = FlowKey(obj);
    ev->begin = Unsigned(obj, "begin", std::numeric_limits<uint64_t>::max(), true);
    ev->end = Unsigned(obj, "end", std::numeric_limits<uint64_t>::max(), false, ev->begin);
    if (ev->end < ev->begin) {
        throw InputError("\"end\" lies before \"begin\"");
    }
    ev->syn = Unsigned(obj, "syn", std::numeric_limits<uint64_t>::max(), false);
    ev->status = static_cast<uint32_t>(Unsigned(obj, "status", 999, ev->kind == EventKind::kResponse));
    ev->location = Text(obj, "location");
    ev->contentType = Text(obj, "ctype");
    ev->clientPort = static_cast<uint16_t>(Unsigned(obj, "cport", 65535, false));
    ev->serverPort = static_cast<uint16_t>(Unsigned(obj, "sport", 65535, false, 80));
    ev->clientIp = Address(obj, "cip", 0x0A000002);
    ev->serverIp = Address(obj, "sip", 0);
    ev->network = static_cast<uint32_t>(Unsigned(obj, "net", std::numeric_limits<uint32_t>::max(), false));
    ev->finRst = static_cast<uint8_t>(Unsigned(obj, "fin", 1, false));
}

std::string DisplayUrl(const std::string &host, const std::string &uri)
{
    if (uri.empty() || uri[0] == '/' || host.empty()) {
        return host + uri;
    }
    return host + "/" + uri;
}

}  // namespace

bool ParseJsonlLine(const std::string &text, size_t lineNo, JsonlLine *out, std::string *error, bool *notObject)
{
    *out = JsonlLine{};
    bool objectSeen = false;
    std::string line = text;
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    const size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos || line[first] == '#') {
        return true;
    }
    try {
        json obj;
        try {
            obj = json::parse(line);
        } catch (const json::parse_error &err) {
            throw InputError("not valid JSON: " + DescribeParseError(err.what()));
        }
        if (!obj.is_object()) {
            throw InputError("not a JSON object (" + ValueText(obj) + ")");
        }
        objectSeen = true;
        const std::string kind = obj.contains("ev") && obj["ev"].is_string() ? obj["ev"].get<std::string>() : "";
        if (kind == "dns") {
            CheckFields(obj, kDnsFields);
            DnsRecord &dns = out->dns;
            dns.host = ToLower(Text(obj, "host"));
            if (dns.host.empty()) {
                throw InputError("missing field \"host\"");
            }
            dns.begin = Unsigned(obj, "begin", std::numeric_limits<uint64_t>::max(), true);
            dns.delayMs = static_cast<uint32_t>(Unsigned(obj, "delay_ms", std::numeric_limits<uint32_t>::max(), true));
            out->kind = JsonlLine::Kind::kDns;
            return true;
        }
        TraceEvent &ev = out->event;
        ev.origin = "line " + std::to_string(lineNo);
        if (kind == "req") {
            CheckFields(obj, kRequestFields);
            ev.kind = EventKind::kRequest;
            ReadCommon(obj, &ev);
            ReadMethod(obj, &ev);
            ev.host = Text(obj, "host");
            ev.uri = Text(obj, "uri");
            ev.referHost = Text(obj, "refer_host");
            ev.referPath = Text(obj, "refer_path");
            out->page = Text(obj, "page");
        } else if (kind == "rsp") {
            CheckFields(obj, kResponseFields);
            ev.kind = EventKind::kResponse;
            ReadCommon(obj, &ev);
        } else if (obj.contains("ev")) {
            throw InputError("\"ev\" must be \"req\", \"rsp\" or \"dns\" (" + ValueText(obj["ev"]) + ")");
        } else {
            throw InputError("missing field \"ev\"");
        }
        out->kind = JsonlLine::Kind::kEvent;
        return true;
    } catch (const InputError &err) {
        *error = err.what();
    } catch (const json::exception &err) {
        *error = DescribeParseError(err.what());
    }
    if (notObject != nullptr) {
        *notObject = !objectSeen;
    }
    *out = JsonlLine{};
    return false;
}

LineReader::LineReader(std::istream &in, std::string prefix, size_t maxBytes)
    : in_(in), buf_(std::move(prefix)), max_(maxBytes)
{
}

bool LineReader::Fill()
{
    constexpr size_t kChunk = 64 * 1024;
    buf_.erase(0, pos_);
    pos_ = 0;
    const size_t had = buf_.size();
    buf_.resize(had + kChunk);
    in_.read(&buf_[had], static_cast<std::streamsize>(kChunk));
    buf_.resize(had + static_cast<size_t>(in_.gcount()));
    return buf_.size() > had;
}

LineReader::Status LineReader::Next(std::string *line)
{
    line->clear();
    bool tooLong = false;
    bool any = false;
    for (;;) {
        if (pos_ == buf_.size() && !Fill()) {
            if (!any) {
                return Status::kEnd;
            }
            break;  // the last line has no end of line
        }
        any = true;
        const size_t newline = buf_.find('\n', pos_);
        const size_t end = newline == std::string::npos ? buf_.size() : newline;
        if (!tooLong) {
            const size_t take = std::min(end - pos_, max_ - line->size());
            line->append(buf_, pos_, take);
            tooLong = take < end - pos_;
        }
        pos_ = newline == std::string::npos ? buf_.size() : newline + 1;
        if (newline != std::string::npos) {
            break;
        }
    }
    if (tooLong) {
        line->clear();
        return Status::kTooLong;
    }
    return Status::kLine;
}

JsonlSource::JsonlSource(std::istream &in, std::string prefix, BadLine onBad)
    : reader_(in, std::move(prefix)), onBad_(std::move(onBad))
{
}

// A JSON object, even a bad event, shows that the file is meant as a trace:
// the bad lines held so far are told.
void JsonlSource::SawObject()
{
    if (!sawObject_) {
        sawObject_ = true;
        for (const Issue &held : held_) {
            onBad_(held);
        }
        held_.clear();
    }
}

void JsonlSource::Bad(Issue issue, bool notObject)
{
    notJsonRun_ = notObject ? notJsonRun_ + 1 : 0;
    if (sawObject_ || !notObject) {
        SawObject();
        onBad_(issue);
        if (notJsonRun_ >= kNotJsonRun) {
            onBad_({"line " + std::to_string(lineNo_), std::to_string(kNotJsonRun) +
                                                          " lines in a row are not JSON objects: the rest of the "
                                                          "file is not read"});
            stopped_ = true;
        }
        return;
    }
    held_.push_back(std::move(issue));
    if (held_.size() >= kNotJsonRun) {
        GiveUp();
    }
}

void JsonlSource::GiveUp()
{
    notATrace_ = "not a JSON Lines trace (" + held_.front().where + ": " + held_.front().what + ")";
    stopped_ = true;
}

bool JsonlSource::Next(JsonlLine *out)
{
    while (!stopped_) {
        const LineReader::Status status = reader_.Next(&line_);
        if (status == LineReader::Status::kEnd) {
            if (!sawObject_ && !held_.empty()) {
                GiveUp();  // nothing but lines that are not JSON objects
            }
            stopped_ = true;
            break;
        }
        ++lineNo_;
        const std::string where = "line " + std::to_string(lineNo_);
        if (status == LineReader::Status::kTooLong) {
            Bad({where, "longer than " + std::to_string(kMaxLineBytes) + " bytes"}, true);
            continue;
        }
        bool notObject = false;
        if (!ParseJsonlLine(line_, lineNo_, out, &error_, &notObject)) {
            Bad({where, error_}, notObject);
            continue;
        }
        if (out->kind == JsonlLine::Kind::kNothing) {
            continue;
        }
        notJsonRun_ = 0;
        SawObject();
        return true;
    }
    return false;
}

int TransactionBook::Add(Trace *trace, TraceEvent ev, const std::string &page)
{
    const int evIndex = static_cast<int>(trace->events.size());
    if (ev.kind == EventKind::kRequest) {
        Transaction tx;
        tx.origin = ev.origin;
        tx.method = ev.methodName;
        tx.url = DisplayUrl(ev.host, ev.uri);
        tx.truePage = page;
        tx.begin = ev.begin;
        tx.end = ev.end;
        tx.request = evIndex;
        ev.transaction = static_cast<int>(trace->transactions.size());
        unanswered_[ev.flow].push_back(ev.transaction);
        trace->transactions.push_back(tx);
    } else {
        auto open = unanswered_.find(ev.flow);
        if (open != unanswered_.end()) {
            ev.transaction = open->second.front();
            open->second.pop_front();
            if (open->second.empty()) {
                unanswered_.erase(open);  // only flows with open requests stay
            }
            Transaction &tx = trace->transactions[static_cast<size_t>(ev.transaction)];
            tx.response = evIndex;
            tx.end = std::max(tx.end, ev.end);
        } else {
            Transaction tx;
            tx.origin = ev.origin;
            tx.method = "-";
            tx.url = "(response without request on " + ev.flow + ")";
            tx.begin = ev.begin;
            tx.end = ev.end;
            tx.response = evIndex;
            ev.transaction = static_cast<int>(trace->transactions.size());
            trace->transactions.push_back(tx);
        }
    }
    trace->events.push_back(std::move(ev));
    return evIndex;
}

Trace ReadJsonl(const std::string &file, const std::string &text)
{
    Trace trace;
    trace.file = file;
    trace.format = "jsonl";
    TransactionBook book;
    std::istringstream in(text);
    JsonlSource source(in, {}, [&trace](const Issue &issue) { trace.Skip(issue); });
    ContractCheck contract([&trace](const Issue &issue) { trace.warnings.push_back(issue); });
    JsonlLine parsed;
    while (source.Next(&parsed)) {
        if (parsed.kind == JsonlLine::Kind::kDns) {
            trace.dns.push_back(parsed.dns);
        } else {
            contract.Event(parsed.event);
            book.Add(&trace, std::move(parsed.event), parsed.page);
        }
    }
    trace.fatal = source.NotATrace();
    return trace;
}

}  // namespace replay
