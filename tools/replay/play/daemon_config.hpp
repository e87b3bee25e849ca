// What a daemon writes into the library's shared configuration after set-up
// (the exported globals), read from and written to a JSON file.
#ifndef ORVANE_REPLAY_DAEMON_CONFIG_HPP
#define ORVANE_REPLAY_DAEMON_CONFIG_HPP

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace replay {

constexpr size_t kThresholdRows = 6;
constexpr size_t kThresholdColumns = 4;  // network types 0 (other), 1, 2, 3

// Every field is optional: what is absent keeps the library's default.
struct DaemonConfig {
    std::optional<uint16_t> pageTimeOutSec;  // usPageTimeOut, via API_InitConfig
    std::optional<std::array<uint32_t, kThresholdRows * kThresholdColumns>> thresholdsMs;
    std::optional<uint16_t> cause407;  // g_ausCauseCode407[0]; 0 turns the 407 rule off
    std::optional<std::string> heartbeatHost;
    std::optional<std::vector<std::string>> hostBlackKeywords, contentTypes, flashKeywords;
    std::optional<std::string> inputKeyword;
    std::optional<uint8_t> testSwitch;  // g_stTestConfig: 1 counts every judged page
};

// Returns an error text, empty on success.
std::string ParseDaemonConfig(const std::string &text, DaemonConfig *config);
nlohmann::json DaemonConfigJson(const DaemonConfig &config);

// Thread 0's API_InitWebPage writes the defaults; the replayer keeps a copy
// of them (TakeLibraryDefaults, right after that call) so that every context
// it sets up sees the defaults plus this run's configuration, whichever
// context was made last (ApplyDaemonConfig). The caller holds the library
// alone while either runs.
void TakeLibraryDefaults();
bool HaveLibraryDefaults();
void ApplyDaemonConfig(const DaemonConfig &config);
std::array<uint32_t, kThresholdRows * kThresholdColumns> DefaultThresholds();

}  // namespace replay

#endif
