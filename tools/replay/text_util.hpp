// Small text helpers shared by the readers and reports: URL splitting,
// ISO 8601 times, IPv4 addresses, recorded text made safe to print.
#ifndef ORVANE_REPLAY_TEXT_UTIL_HPP
#define ORVANE_REPLAY_TEXT_UTIL_HPP

#include <cstddef>
#include <cstdint>
#include <string>

namespace replay {

struct UrlParts {
    std::string scheme;     // lower case, e.g. "https"
    std::string authority;  // host, with ":port" when the URL spells one
    std::string target;     // path and query, fragment removed; "/" at least
    uint16_t port = 0;      // explicit, else the scheme's default (80, 443)
};

// Absolute URLs only ("scheme://authority/..."); false for anything else.
bool SplitUrl(const std::string &url, UrlParts *parts);

// The request target as the daemon hands it: without the leading '/' unless
// keepSlash (so the library joins host and path into "host/path").
std::string DaemonPath(const std::string &target, bool keepSlash);

// "2017-03-01T10:00:00.123+01:00" (fraction and zone optional, no zone = UTC)
// to nanoseconds since 1970; false when malformed or before 1970.
bool ParseIsoTime(const std::string &text, uint64_t *ns);

// Dotted quad to its number (first octet in the top byte); false otherwise.
bool ParseIpv4(const std::string &text, uint32_t *ip);

std::string ToLower(std::string text);
bool ContainsNoCase(const std::string &haystack, const std::string &needle);

// Milliseconds as recorded (fractions allowed) to nanoseconds.
uint64_t MsToNs(double ms);

// Recorded text as it may be shown in a terminal or a report column: control
// characters (C0, DEL, C1) and bytes that are not UTF-8 become escapes (\n,
// \t, \r, \xNN, \u0085), and the result is cut on a character boundary to
// at most maxChars characters, "..." included.
constexpr size_t kNoCut = static_cast<size_t>(-1);
std::string Printable(const std::string &text, size_t maxChars = kNoCut);

// Characters (code points) in valid UTF-8 text, e.g. Printable's result:
// what a column of it occupies.
size_t CharCount(const std::string &utf8);

// Printable text padded with spaces to width characters (cut to fit).
std::string Column(const std::string &text, size_t width);

}  // namespace replay

#endif
