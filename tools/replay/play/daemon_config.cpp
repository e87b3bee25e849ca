#include "daemon_config.hpp"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "orvane_webpage.h"
#include "webpage_internal.h"

namespace replay {

namespace {

using nlohmann::json;

struct Snapshot {
    bool taken = false;
    STPageConfig page{};
    std::array<uint32_t, kThresholdRows * kThresholdColumns> thresholds{};
    uint16_t cause407 = 0;
    uint8_t testSwitch = 0;
};

Snapshot g_defaults;

constexpr const char *kKeys[] = {"page_timeout_s",  "time_threshold_ms", "cause_code_407", "heartbeat_host",
                                 "host_black_keywords", "content_types", "flash_keywords", "input_keyword",
                                 "test_switch"};

template <class T>
T Number(const json &v, const char *key, uint64_t max)
{
    if (!v.is_number_unsigned() || v.get<uint64_t>() > max) {
        throw std::runtime_error(std::string("\"") + key + "\" needs a whole number from 0 to " + std::to_string(max));
    }
    return static_cast<T>(v.get<uint64_t>());
}

// Each text must fit its fixed field with its terminating NUL.
std::string Text(const json &v, const char *key, size_t max)
{
    if (!v.is_string() || v.get<std::string>().size() > max) {
        throw std::runtime_error(std::string("\"") + key + "\" needs a text of at most " + std::to_string(max) +
                                 " bytes");
    }
    return v.get<std::string>();
}

std::vector<std::string> Texts(const json &v, const char *key, size_t count, size_t max)
{
    if (!v.is_array() || v.size() > count) {
        throw std::runtime_error(std::string("\"") + key + "\" needs a list of at most " + std::to_string(count) +
                                 " texts");
    }
    std::vector<std::string> out;
    for (const json &item : v) {
        out.push_back(Text(item, key, max));
    }
    return out;
}

template <size_t N, size_t M>
void WriteTexts(char (&dst)[N][M], const std::vector<std::string> &texts)
{
    std::memset(dst, 0, sizeof(dst));
    for (size_t i = 0; i < texts.size() && i < N; ++i) {
        std::memcpy(dst[i], texts[i].data(), std::min(texts[i].size(), M - 1));
    }
}

}  // namespace

std::string ParseDaemonConfig(const std::string &text, DaemonConfig *config)
{
    const json doc = json::parse(text, nullptr, false);
    if (doc.is_discarded() || !doc.is_object()) {
        return "not a JSON object";
    }
    DaemonConfig c;
    try {
        for (const auto &item : doc.items()) {
            bool known = false;
            for (const char *key : kKeys) {
                known = known || item.key() == key;
            }
            if (!known) {
                throw std::runtime_error("unknown field \"" + item.key() + "\"");
            }
        }
        if (doc.contains("page_timeout_s")) {
            c.pageTimeOutSec = Number<uint16_t>(doc["page_timeout_s"], "page_timeout_s", 65535);
        }
        if (doc.contains("time_threshold_ms")) {
            const json &t = doc["time_threshold_ms"];
            if (!t.is_array() || t.size() != kThresholdRows * kThresholdColumns) {
                return "\"time_threshold_ms\" needs 24 numbers: 6 rows of 4 network types";
            }
            std::array<uint32_t, kThresholdRows * kThresholdColumns> table{};
            for (size_t i = 0; i < table.size(); ++i) {
                table[i] = Number<uint32_t>(t[i], "time_threshold_ms", 0xFFFFFFFFu);
            }
            c.thresholdsMs = table;
        }
        if (doc.contains("cause_code_407")) {
            c.cause407 = Number<uint16_t>(doc["cause_code_407"], "cause_code_407", 65535);
        }
        if (doc.contains("heartbeat_host")) {
            c.heartbeatHost = Text(doc["heartbeat_host"], "heartbeat_host", PAGE_HOST_BLACK_LEN * 4 - 1);
        }
        if (doc.contains("host_black_keywords")) {
            c.hostBlackKeywords = Texts(doc["host_black_keywords"], "host_black_keywords", PAGE_HOST_BLACK_NUM,
                                        PAGE_HOST_BLACK_LEN - 1);
        }
        if (doc.contains("content_types")) {
            c.contentTypes =
                Texts(doc["content_types"], "content_types", PAGE_CONTENT_TYPE_NUM, PAGE_CONTENT_TYPE_LEN - 1);
        }
        if (doc.contains("flash_keywords")) {
            c.flashKeywords = Texts(doc["flash_keywords"], "flash_keywords", PAGE_FLASH_KEYWORD_NUM,
                                    PAGE_FLASH_KEYWORD_LEN - 1);
        }
        if (doc.contains("input_keyword")) {
            c.inputKeyword = Text(doc["input_keyword"], "input_keyword", PAGE_INPUT_KEYWORD_LEN - 1);
        }
        if (doc.contains("test_switch")) {
            c.testSwitch = Number<uint8_t>(doc["test_switch"], "test_switch", 1);
        }
    } catch (const std::runtime_error &err) {
        return err.what();
    }
    *config = std::move(c);
    return {};
}

json DaemonConfigJson(const DaemonConfig &c)
{
    json j = json::object();
    if (c.pageTimeOutSec) {
        j["page_timeout_s"] = *c.pageTimeOutSec;
    }
    if (c.thresholdsMs) {
        j["time_threshold_ms"] = *c.thresholdsMs;
    }
    if (c.cause407) {
        j["cause_code_407"] = *c.cause407;
    }
    if (c.heartbeatHost) {
        j["heartbeat_host"] = *c.heartbeatHost;
    }
    if (c.hostBlackKeywords) {
        j["host_black_keywords"] = *c.hostBlackKeywords;
    }
    if (c.contentTypes) {
        j["content_types"] = *c.contentTypes;
    }
    if (c.flashKeywords) {
        j["flash_keywords"] = *c.flashKeywords;
    }
    if (c.inputKeyword) {
        j["input_keyword"] = *c.inputKeyword;
    }
    if (c.testSwitch) {
        j["test_switch"] = *c.testSwitch;
    }
    return j;
}

void TakeLibraryDefaults()
{
    g_defaults.page = g_stPageConfig;
    std::memcpy(g_defaults.thresholds.data(), g_auiTimeThreshold, sizeof(g_auiTimeThreshold));
    g_defaults.cause407 = g_ausCauseCode407[0];
    g_defaults.testSwitch = g_stTestConfig;
    g_defaults.taken = true;
}

bool HaveLibraryDefaults() { return g_defaults.taken; }

std::array<uint32_t, kThresholdRows * kThresholdColumns> DefaultThresholds() { return g_defaults.thresholds; }

void ApplyDaemonConfig(const DaemonConfig &c)
{
    if (g_defaults.taken) {
        g_stPageConfig = g_defaults.page;
        std::memcpy(g_auiTimeThreshold, g_defaults.thresholds.data(), sizeof(g_auiTimeThreshold));
        g_ausCauseCode407[0] = g_defaults.cause407;
        g_stTestConfig = g_defaults.testSwitch;
    }
    if (c.thresholdsMs) {
        std::memcpy(g_auiTimeThreshold, c.thresholdsMs->data(), sizeof(g_auiTimeThreshold));
    }
    if (c.cause407) {
        g_ausCauseCode407[0] = *c.cause407;
    }
    if (c.heartbeatHost) {
        // The library hashes a lower-cased copy, as it does with event hosts.
        char host[PAGE_HOST_BLACK_LEN * 4] = {0};
        std::memcpy(host, c.heartbeatHost->data(), std::min(c.heartbeatHost->size(), sizeof(host) - 1));
        g_stPageConfig.uiHeartBeatHostKey = StrlwrAndBKDRHash(host, static_cast<uint32_t>(std::strlen(host)));
    }
    if (c.hostBlackKeywords) {
        WriteTexts(g_stPageConfig.aacHostBlackKeyword, *c.hostBlackKeywords);
    }
    if (c.contentTypes) {
        WriteTexts(g_stPageConfig.aacContentType, *c.contentTypes);
    }
    if (c.flashKeywords) {
        WriteTexts(g_stPageConfig.aacFlashKeyword, *c.flashKeywords);
    }
    if (c.inputKeyword) {
        std::memset(g_stPageConfig.acUcInputKeyword, 0, sizeof(g_stPageConfig.acUcInputKeyword));
        std::memcpy(g_stPageConfig.acUcInputKeyword, c.inputKeyword->data(),
                    std::min(c.inputKeyword->size(), sizeof(g_stPageConfig.acUcInputKeyword) - 1));
    }
    if (c.testSwitch) {
        g_stTestConfig = *c.testSwitch;
    }
}

}  // namespace replay
