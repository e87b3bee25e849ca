#include "jsonl_contract.hpp"

namespace replay {

namespace {

// Flows with an unanswered request that are remembered; beyond this the
// memory is dropped and pairing starts over (a warning may be missed, never
// one given wrongly).
constexpr size_t kMaxOpenFlows = 65536;

bool IsRedirect(uint32_t status) { return (status >= 300 && status <= 399 && status != 304) || status == 407; }

}  // namespace

void ContractCheck::Tell(Rule rule, const std::string &where, const std::string &what)
{
    if (!told_[rule]) {
        told_[rule] = true;
        warn_({where, what + " (integration contract; told once per file)", true});
    }
}

void ContractCheck::Event(const TraceEvent &ev)
{
    if (ev.kind == EventKind::kRequest) {
        if (!ev.uri.empty() && ev.uri[0] == '/') {
            Tell(kUriSlash, ev.origin,
                 "\"uri\" starts with '/': the library's URL becomes host//path, which no Location or referer "
                 "can equal; write the request target without its leading '/'");
        }
        if (!ev.referPath.empty() && ev.referPath[0] == '/') {
            Tell(kReferSlash, ev.origin,
                 "\"refer_path\" starts with '/': the referer becomes host//path, which no page's URL can equal; "
                 "write the referer's path without its leading '/'");
        }
        if (open_.size() >= kMaxOpenFlows) {
            open_.clear();
        }
        open_[ev.flow] = {ev.origin, ev.status != 0, !ev.location.empty(), !ev.contentType.empty()};
        return;
    }
    auto it = open_.find(ev.flow);
    if (it == open_.end()) {
        return;
    }
    const OpenRequest req = std::move(it->second);
    open_.erase(it);
    const std::string where = req.origin + " (answered at " + ev.origin + ")";
    if (ev.status != 0 && !req.status) {
        Tell(kStatus, where,
             "a request without the status its response carries: the library settles a page's main request "
             "and its success from the request");
    }
    if (IsRedirect(ev.status) && !ev.location.empty() && !req.location) {
        Tell(kLocation, where,
             "a request without the Location its redirect response carries: the library follows redirect "
             "chains from the request");
    }
    if (!ev.contentType.empty() && !req.contentType) {
        Tell(kContentType, where,
             "a request without the content type its response carries: the library tells web pages by the "
             "request's content type");
    }
}

}  // namespace replay
