// The interleaving curve: a text table, JSON and a small self-contained SVG
// plot.
#ifndef ORVANE_REPLAY_REPORT_MIX_HPP
#define ORVANE_REPLAY_REPORT_MIX_HPP

#include <ostream>
#include <vector>

#include <nlohmann/json.hpp>

#include "mix_curve.hpp"

namespace replay {

void WriteMixCurveText(std::ostream &out, const std::vector<CurvePoint> &points);
nlohmann::json MixCurveJson(const std::vector<CurvePoint> &points);
void WriteMixCurveSvg(std::ostream &out, const std::vector<CurvePoint> &points);
// The table and the plot in one self-contained page (--mix-curve --html).
void WriteMixCurveHtml(std::ostream &out, const std::vector<CurvePoint> &points);

}  // namespace replay

#endif
