// What --tune found: default against tuned table on held-out files, per fold
// and pooled, and the final table.
#ifndef ORVANE_REPLAY_REPORT_TUNE_HPP
#define ORVANE_REPLAY_REPORT_TUNE_HPP

#include <ostream>

#include <nlohmann/json.hpp>

#include "tune.hpp"

namespace replay {

void WriteTuneText(std::ostream &out, const TuneResult &result, const TuneOptions &options);
nlohmann::json TuneJson(const TuneResult &result, const TuneOptions &options);

}  // namespace replay

#endif
