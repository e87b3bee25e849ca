#include "report_tune.hpp"

#include <cstdio>
#include <iomanip>
#include <string>

namespace replay {

namespace {

using nlohmann::json;

constexpr const char *kRowNames[kThresholdRows] = {"transaction with web page", "host",
                                                   "referer against URL",       "URL against location",
                                                   "transaction with app page", "referer against referer"};

std::string Fixed(double v, int digits)
{
    char buf[64];
    std::snprintf(buf, sizeof(buf), "%.*f", digits, v);
    return buf;
}

std::string BaseName(const std::string &file)
{
    const size_t slash = file.find_last_of('/');
    return slash == std::string::npos ? file : file.substr(slash + 1);
}

// The searched columns of each row, "a/b" when they differ.
std::string RowText(const ThresholdTable &table, size_t row, const std::vector<size_t> &columns)
{
    std::string text;
    for (size_t column : columns) {
        text += (text.empty() ? "" : "/") + std::to_string(table[row * kThresholdColumns + column]);
    }
    return text;
}

std::string Changes(const ThresholdTable &from, const ThresholdTable &to, const std::vector<size_t> &columns)
{
    std::string text;
    for (size_t row = 0; row < kThresholdRows; ++row) {
        if (RowText(from, row, columns) != RowText(to, row, columns)) {
            text += (text.empty() ? "" : ", ") + std::string("row ") + std::to_string(row) + " " +
                    RowText(from, row, columns) + "->" + RowText(to, row, columns);
        }
    }
    return text.empty() ? "none" : text;
}

json ScoreJson(const SetScore &s)
{
    return {{"score", s.value},
            {"f1_pairs_summed", s.eval.F1()},
            {"f1_mean", s.eval.FileF1Mean()},
            {"page_f1_mean", s.eval.PageF1Mean()},
            {"main_request_recall", s.eval.MainRecall()},
            {"pages_split", s.eval.split},
            {"pages_merged", s.eval.merged}};
}

}  // namespace

void WriteTuneText(std::ostream &out, const TuneResult &r, const TuneOptions &options)
{
    out << "Threshold search (" << (options.mixed ? "mixes at overlap " + Fixed(options.mix.overlap, 2) : "files alone")
        << ", network-type columns";
    for (size_t c : r.columns) {
        out << " " << c;
    }
    out << "; " << r.evaluations << " evaluations)\n";
    out << "  Held-out folds, start table against the table searched on the other files:\n";
    out << "  " << std::left << std::setw(6) << "FOLD" << std::right << std::setw(7) << "FILES" << std::setw(10)
        << "START" << std::setw(10) << "TUNED" << "  CHANGED ROWS (ms)\n";
    for (size_t f = 0; f < r.folds.size(); ++f) {
        const FoldResult &fold = r.folds[f];
        out << "  " << std::left << std::setw(6) << f + 1 << std::right << std::setw(7) << fold.heldOut.size()
            << std::setw(10) << Fixed(fold.before.value, 3) << std::setw(10) << Fixed(fold.after.value, 3) << "  "
            << Changes(r.start, fold.table, r.columns) << "\n";
    }
    auto line = [&out](const char *what, const EvalResult &e, double mean) {
        out << "  " << what << ": score " << Fixed(mean, 3) << ", pairwise F1 " << Fixed(e.F1(), 3)
            << " (mean " << Fixed(e.FileF1Mean(), 3) << "), page F1 " << Fixed(e.PageF1Mean(), 3)
            << ", main request " << e.mainFound << "/" << e.truePages << ", split " << e.split << ", merged "
            << e.merged << "\n";
    };
    if (!r.folds.empty()) {
        line("held out, start", r.heldOutBefore, r.heldOutBeforeMean);
        line("held out, tuned", r.heldOutAfter, r.heldOutAfterMean);
    }
    line("all files, start", r.allBefore.eval, r.allBefore.value);
    line("all files, tuned", r.allAfter.eval, r.allAfter.value);
    out << "  Final table (searched on all files), rows in ms:\n";
    for (size_t row = 0; row < kThresholdRows; ++row) {
        out << "    " << row << " " << std::left << std::setw(26) << kRowNames[row] << std::right << std::setw(14)
            << RowText(r.start, row, r.columns) << " -> " << RowText(r.table, row, r.columns) << "\n";
    }
    out << "  score: mean of the pairwise F1 averaged over " << (options.mixed ? "mixes" : "files")
        << " and the F1 averaged over true pages (see --eval).\n";
}

json TuneJson(const TuneResult &r, const TuneOptions &options)
{
    json folds = json::array();
    for (const FoldResult &fold : r.folds) {
        json files = json::array();
        for (const std::string &file : fold.heldOut) {
            files.push_back(BaseName(file));
        }
        folds.push_back({{"held_out", files},
                         {"time_threshold_ms", fold.table},
                         {"start", ScoreJson(fold.before)},
                         {"tuned", ScoreJson(fold.after)}});
    }
    SetScore before{r.heldOutBeforeMean, r.heldOutBefore}, after{r.heldOutAfterMean, r.heldOutAfter};
    return {{"scored_on", options.mixed ? "mixes" : "files"},
            {"overlap", options.mixed ? json(options.mix.overlap) : json(nullptr)},
            {"columns", r.columns},
            {"evaluations", r.evaluations},
            {"folds", folds},
            {"held_out", {{"start", ScoreJson(before)}, {"tuned", ScoreJson(after)}}},
            {"all_files", {{"start", ScoreJson(r.allBefore)}, {"tuned", ScoreJson(r.allAfter)}}},
            {"start_table_ms", r.start},
            {"tuned_table_ms", r.table}};
}

}  // namespace replay
