// Small text helpers shared by the readers and reports: URL splitting,
// ISO 8601 times, IPv4 addresses.
#ifndef ORVANE_REPLAY_TEXT_UTIL_HPP
#define ORVANE_REPLAY_TEXT_UTIL_HPP

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

}  // namespace replay

#endif
