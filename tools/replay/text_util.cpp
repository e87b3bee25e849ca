#include "text_util.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace replay {

namespace {

bool AllDigits(const std::string &s)
{
    if (s.empty()) {
        return false;
    }
    for (char c : s) {
        if (!std::isdigit(static_cast<unsigned char>(c))) {
            return false;
        }
    }
    return true;
}

// Reads exactly n digits at pos.
bool Digits(const std::string &s, size_t pos, size_t n, int *value)
{
    if (pos + n > s.size()) {
        return false;
    }
    int v = 0;
    for (size_t i = pos; i < pos + n; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(s[i]))) {
            return false;
        }
        v = v * 10 + (s[i] - '0');
    }
    *value = v;
    return true;
}

// Days since 1970-01-01 of a proleptic Gregorian date.
int64_t DaysFromCivil(int64_t y, int64_t m, int64_t d)
{
    y -= m <= 2 ? 1 : 0;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

}  // namespace

bool SplitUrl(const std::string &url, UrlParts *parts)
{
    const size_t sep = url.find("://");
    if (sep == std::string::npos || sep == 0) {
        return false;
    }
    UrlParts p;
    p.scheme = ToLower(url.substr(0, sep));
    for (char c : p.scheme) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.') {
            return false;
        }
    }
    const size_t hostBegin = sep + 3;
    size_t hostEnd = url.find_first_of("/?#", hostBegin);
    if (hostEnd == std::string::npos) {
        hostEnd = url.size();
    }
    std::string authority = url.substr(hostBegin, hostEnd - hostBegin);
    const size_t at = authority.rfind('@');
    if (at != std::string::npos) {
        authority.erase(0, at + 1);
    }
    if (authority.empty()) {
        return false;
    }
    // The port follows the last ':' outside an IPv6 literal's brackets.
    const size_t colon = authority.rfind(':');
    const size_t bracket = authority.rfind(']');
    std::string portText;
    if (colon != std::string::npos && (bracket == std::string::npos || colon > bracket)) {
        portText = authority.substr(colon + 1);
        if (!portText.empty() && !AllDigits(portText)) {
            return false;
        }
    }
    if (!portText.empty()) {
        const long port = std::strtol(portText.c_str(), nullptr, 10);
        if (portText.size() > 5 || port <= 0 || port > 65535) {
            return false;
        }
        p.port = static_cast<uint16_t>(port);
    } else if (p.scheme == "https" || p.scheme == "wss") {
        p.port = 443;
    } else {
        p.port = 80;
    }
    if (portText.empty() && !authority.empty() && authority.back() == ':') {
        authority.pop_back();  // "host:" names no port
    }
    p.authority = authority;
    std::string target = url.substr(hostEnd);
    const size_t hash = target.find('#');
    if (hash != std::string::npos) {
        target.erase(hash);
    }
    if (target.empty() || target[0] != '/') {
        target.insert(0, "/");
    }
    p.target = target;
    *parts = p;
    return true;
}

std::string DaemonPath(const std::string &target, bool keepSlash)
{
    if (!keepSlash && !target.empty() && target[0] == '/') {
        return target.substr(1);
    }
    return target;
}

bool ParseIsoTime(const std::string &text, uint64_t *ns)
{
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!Digits(text, 0, 4, &year) || text.size() < 19 || text[4] != '-' || !Digits(text, 5, 2, &month) ||
        text[7] != '-' || !Digits(text, 8, 2, &day) || (text[10] != 'T' && text[10] != ' ') ||
        !Digits(text, 11, 2, &hour) || text[13] != ':' || !Digits(text, 14, 2, &minute) || text[16] != ':' ||
        !Digits(text, 17, 2, &second)) {
        return false;
    }
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) {
        return false;
    }
    size_t pos = 19;
    uint64_t fraction = 0;
    if (pos < text.size() && (text[pos] == '.' || text[pos] == ',')) {
        ++pos;
        uint64_t scale = 1000000000ull;
        const size_t first = pos;
        while (pos < text.size() && std::isdigit(static_cast<unsigned char>(text[pos]))) {
            scale /= 10;  // digits beyond nanoseconds are dropped
            fraction += static_cast<uint64_t>(text[pos] - '0') * scale;
            ++pos;
        }
        if (pos == first) {
            return false;
        }
    }
    int64_t offsetSec = 0;
    if (pos < text.size()) {
        const char sign = text[pos];
        if (sign == 'Z' || sign == 'z') {
            ++pos;
        } else if (sign == '+' || sign == '-') {
            int oh = 0, om = 0;
            if (!Digits(text, pos + 1, 2, &oh)) {
                return false;
            }
            pos += 3;
            if (pos < text.size() && text[pos] == ':') {
                ++pos;
            }
            if (!Digits(text, pos, 2, &om)) {
                return false;
            }
            pos += 2;
            if (oh > 23 || om > 59) {
                return false;
            }
            offsetSec = (sign == '+' ? 1 : -1) * (oh * 3600 + om * 60);
        } else {
            return false;
        }
    }
    if (pos != text.size()) {
        return false;
    }
    const int64_t seconds =
        DaysFromCivil(year, month, day) * 86400 + hour * 3600 + minute * 60 + second - offsetSec;
    if (seconds < 0) {
        return false;
    }
    *ns = static_cast<uint64_t>(seconds) * 1000000000ull + fraction;
    return true;
}

bool ParseIpv4(const std::string &text, uint32_t *ip)
{
    uint32_t value = 0;
    size_t pos = 0;
    for (int octet = 0; octet < 4; ++octet) {
        size_t end = pos;
        while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end]))) {
            ++end;
        }
        if (end == pos || end - pos > 3) {
            return false;
        }
        const unsigned long part = std::strtoul(text.substr(pos, end - pos).c_str(), nullptr, 10);
        if (part > 255) {
            return false;
        }
        value = (value << 8) | static_cast<uint32_t>(part);
        pos = end;
        if (octet < 3) {
            if (pos >= text.size() || text[pos] != '.') {
                return false;
            }
            ++pos;
        }
    }
    if (pos != text.size()) {
        return false;
    }
    *ip = value;
    return true;
}

std::string ToLower(std::string text)
{
    for (char &c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

bool ContainsNoCase(const std::string &haystack, const std::string &needle)
{
    return ToLower(haystack).find(ToLower(needle)) != std::string::npos;
}

uint64_t MsToNs(double ms)
{
    if (!(ms > 0)) {
        return 0;
    }
    return static_cast<uint64_t>(std::llround(ms * 1e6));
}

namespace {

// Length of the well-formed UTF-8 sequence at s[pos] and its code point; 0
// when the bytes there are not one (overlong forms and surrogates included).
size_t Utf8At(const std::string &s, size_t pos, uint32_t *cp)
{
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(s[i]); };
    const unsigned char b0 = byte(pos);
    if (b0 < 0x80) {
        *cp = b0;
        return 1;
    }
    size_t len = 0;
    uint32_t min = 0;
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        len = 2, min = 0x80, *cp = b0 & 0x1Fu;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        len = 3, min = 0x800, *cp = b0 & 0x0Fu;
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        len = 4, min = 0x10000, *cp = b0 & 0x07u;
    } else {
        return 0;
    }
    if (pos + len > s.size()) {
        return 0;
    }
    for (size_t i = 1; i < len; ++i) {
        if ((byte(pos + i) & 0xC0u) != 0x80u) {
            return 0;
        }
        *cp = (*cp << 6) | (byte(pos + i) & 0x3Fu);
    }
    if (*cp < min || *cp > 0x10FFFF || (*cp >= 0xD800 && *cp <= 0xDFFF)) {
        return 0;
    }
    return len;
}

}  // namespace

std::string Printable(const std::string &text, size_t maxChars)
{
    // Pieces are whole characters or whole escapes, so a cut never splits one.
    const size_t room = maxChars < 3 ? maxChars : maxChars - 3;  // leaves space for "..."
    std::string out;
    size_t chars = 0;
    size_t fitted = 0;  // bytes of out within room
    for (size_t pos = 0; pos < text.size();) {
        uint32_t cp = 0;
        const size_t len = Utf8At(text, pos, &cp);
        char escape[8] = "";
        if (len == 0) {
            std::snprintf(escape, sizeof(escape), "\\x%02X", static_cast<unsigned char>(text[pos]));
        } else if (cp == '\n' || cp == '\t' || cp == '\r') {
            std::snprintf(escape, sizeof(escape), "\\%c", cp == '\n' ? 'n' : cp == '\t' ? 't' : 'r');
        } else if (cp < 0x20 || cp == 0x7F) {
            std::snprintf(escape, sizeof(escape), "\\x%02X", static_cast<unsigned>(cp));
        } else if (cp >= 0x80 && cp <= 0x9F) {
            std::snprintf(escape, sizeof(escape), "\\u%04X", static_cast<unsigned>(cp));
        }
        const size_t escaped = std::strlen(escape);
        const size_t width = escaped != 0 ? escaped : 1;
        if (chars + width > maxChars) {
            out.resize(fitted);
            return maxChars < 3 ? out : out + "...";
        }
        chars += width;
        if (escaped != 0) {
            out += escape;
        } else {
            out.append(text, pos, len);
        }
        pos += len == 0 ? 1 : len;
        if (chars <= room) {
            fitted = out.size();
        }
    }
    return out;
}

size_t CharCount(const std::string &utf8)
{
    size_t n = 0;
    for (char c : utf8) {
        n += (static_cast<unsigned char>(c) & 0xC0u) != 0x80u ? 1 : 0;
    }
    return n;
}

std::string Column(const std::string &text, size_t width)
{
    std::string out = Printable(text, width);
    out.append(width - std::min(width, CharCount(out)), ' ');
    return out;
}

}  // namespace replay
