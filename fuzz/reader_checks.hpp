// What every reader must make of any input: a trace whose events, transactions
// and indexes agree, strings that fit the event record, and messages that are
// short and safe to print. Returns the first broken rule, empty when none.
#ifndef ORVANE_FUZZ_READER_CHECKS_HPP
#define ORVANE_FUZZ_READER_CHECKS_HPP

#include <string>

#include "trace.hpp"

namespace orvane_fuzz {

inline std::string CheckMessage(const std::string &text)
{
    if (text.empty() || text.size() > 1024) {
        return "message of " + std::to_string(text.size()) + " bytes";
    }
    for (char c : text) {
        const auto b = static_cast<unsigned char>(c);
        if (b < 0x20 || b == 0x7F) {
            return "control character in message: " + text.substr(0, 200);
        }
    }
    return {};
}

inline std::string CheckTrace(const replay::Trace &t)
{
    using replay::EventKind;
    if (!t.fatal.empty()) {
        if (!t.events.empty() || !t.transactions.empty()) {
            return "events kept from a file that could not be read";
        }
        return CheckMessage(t.fatal);
    }
    if (t.skipped.size() > replay::kMaxListedIssues || t.skippedCount < t.skipped.size()) {
        return "skipped list and count disagree";
    }
    for (const replay::Issue &issue : t.skipped) {
        std::string err = CheckMessage(issue.where);
        err = err.empty() ? CheckMessage(issue.what) : err;
        if (!err.empty()) {
            return err;
        }
    }
    const int events = static_cast<int>(t.events.size());
    const int transactions = static_cast<int>(t.transactions.size());
    for (int i = 0; i < events; ++i) {
        const replay::TraceEvent &ev = t.events[static_cast<size_t>(i)];
        for (const std::string *s : {&ev.host, &ev.uri, &ev.referHost, &ev.referPath, &ev.location, &ev.contentType}) {
            if (s->size() > 65535) {
                return "event string longer than its 16-bit length at " + ev.origin;
            }
        }
        if (ev.end < ev.begin || ev.status > 999) {
            return "event times or status out of range at " + ev.origin;
        }
        if (ev.transaction < 0 || ev.transaction >= transactions) {
            return "event without its transaction at " + ev.origin;
        }
        const replay::Transaction &tx = t.transactions[static_cast<size_t>(ev.transaction)];
        if ((ev.kind == EventKind::kRequest ? tx.request : tx.response) != i) {
            return "transaction does not point back at its event " + ev.origin;
        }
    }
    for (const replay::Transaction &tx : t.transactions) {
        for (int index : {tx.request, tx.response}) {
            if (index < -1 || index >= events) {
                return "transaction index out of range at " + tx.origin;
            }
        }
        if (tx.request < 0 && tx.response < 0) {
            return "transaction without events at " + tx.origin;
        }
    }
    for (const replay::DnsRecord &dns : t.dns) {
        if (dns.host.empty() || dns.host.size() > 65535) {
            return "DNS record without a usable host";
        }
    }
    return {};
}

}  // namespace orvane_fuzz

#endif
