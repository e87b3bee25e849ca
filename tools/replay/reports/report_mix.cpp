#include "report_mix.hpp"

#include <cstdio>
#include <iomanip>
#include <sstream>
#include <string>

namespace replay {

namespace {

using nlohmann::json;

std::string Fixed(double v, int digits)
{
    char buf[64];
    std::snprintf(buf, sizeof(buf), "%.*f", digits, v);
    return buf;
}

std::string Label(const CurvePoint &p) { return p.overlap < 0.0 ? "apart" : Fixed(p.overlap, 2); }

// The scores plotted, each with its colour.
struct Series {
    const char *name;
    const char *colour;
    double (*value)(const EvalResult &);
};
const Series kSeries[] = {
    {"pairwise F1 (pairs summed)", "#1f77b4", [](const EvalResult &e) { return e.F1(); }},
    {"F1 per true page (mean)", "#ff7f0e", [](const EvalResult &e) { return e.PageF1Mean(); }},
    {"main-request recall", "#2ca02c", [](const EvalResult &e) { return e.MainRecall(); }},
    {"pairwise precision", "#9467bd", [](const EvalResult &e) { return e.Precision(); }},
};

}  // namespace

void WriteMixCurveText(std::ostream &out, const std::vector<CurvePoint> &points)
{
    out << "Grouping as pages interleave (recordings mixed onto one clock; \"apart\": each replayed alone):\n";
    out << "  " << std::left << std::setw(8) << "OVERLAP" << std::right << std::setw(8) << "MEET%" << std::setw(6)
        << "MIXES" << std::setw(7) << "TX" << std::setw(6) << "BG" << std::setw(6) << "TRUE" << std::setw(7)
        << "PAGES" << std::setw(7) << "PREC" << std::setw(7) << "REC" << std::setw(7) << "F1" << std::setw(9)
        << "PAGE_F1" << std::setw(7) << "MAIN" << std::setw(7) << "SPLIT" << std::setw(8) << "MERGED"
        << std::setw(11) << "ONLOAD_MED" << "\n";
    for (const CurvePoint &p : points) {
        const EvalResult &e = p.eval;
        const DelayStats d = e.Delay(true);
        out << "  " << std::left << std::setw(8) << Label(p) << std::right << std::setw(8)
            << (p.overlap < 0.0 ? "-" : Fixed(100.0 * p.overlapping, 0)) << std::setw(6) << p.mixes << std::setw(7)
            << e.transactions - e.background << std::setw(6) << e.background << std::setw(6) << e.truePages
            << std::setw(7) << e.reportedPages << std::setw(7) << Fixed(e.Precision(), 3) << std::setw(7)
            << Fixed(e.Recall(), 3) << std::setw(7) << Fixed(e.F1(), 3) << std::setw(9) << Fixed(e.PageF1Mean(), 3)
            << std::setw(7) << Fixed(e.MainRecall(), 3) << std::setw(7) << e.split << std::setw(8) << e.merged
            << std::setw(11) << (d.pages == 0 ? "-" : Fixed(d.medianMs, 0)) << "\n";
    }
    out << "  OVERLAP: share of pages opened 0.5-5 s after the previous page's start (the rest 0.5-5 s after every\n"
           "  earlier page ended). MEET%: pages whose span met another page's. TX: labelled page transactions;\n"
           "  BG: background transactions (not documents, taken from the recordings, no referer, a flow each),\n"
           "  scored as standing alone. Scores as in --eval, pairs summed and pages pooled over the mixes.\n"
           "  ONLOAD_MED: median |page delay - onLoad| in ms.\n";
}

json MixCurveJson(const std::vector<CurvePoint> &points)
{
    json rows = json::array();
    for (const CurvePoint &p : points) {
        const EvalResult &e = p.eval;
        const DelayStats d = e.Delay(true);
        rows.push_back({{"overlap", p.overlap < 0.0 ? json("apart") : json(p.overlap)},
                        {"pages_meeting_share", p.overlap < 0.0 ? json(nullptr) : json(p.overlapping)},
                        {"mixes", p.mixes},
                        {"transactions", e.transactions - e.background},
                        {"background", e.background},
                        {"true_pages", e.truePages},
                        {"reported_pages", e.reportedPages},
                        {"precision", e.Precision()},
                        {"recall", e.Recall()},
                        {"f1", e.F1()},
                        {"f1_mean_over_mixes", e.FileF1Mean()},
                        {"page_f1_mean", e.PageF1Mean()},
                        {"main_request_recall", e.MainRecall()},
                        {"pages_split", e.split},
                        {"pages_merged", e.merged},
                        {"on_load_median_abs_error_ms", d.pages == 0 ? json(nullptr) : json(d.medianMs)}});
    }
    return rows;
}

void WriteMixCurveSvg(std::ostream &out, const std::vector<CurvePoint> &points)
{
    constexpr int kW = 560, kH = 320, kLeft = 50, kRight = 190, kTop = 20, kBottom = 45;
    const int plotW = kW - kLeft - kRight, plotH = kH - kTop - kBottom;
    auto x = [&](double v) { return kLeft + v * plotW; };
    auto y = [&](double v) { return kTop + (1.0 - v) * plotH; };
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kW << "\" height=\"" << kH << "\" viewBox=\"0 0 "
        << kW << " " << kH << "\" font-family=\"sans-serif\" font-size=\"11\">\n";
    out << "<rect width=\"" << kW << "\" height=\"" << kH << "\" fill=\"#fff\"/>\n";
    for (int i = 0; i <= 4; ++i) {
        const double v = i / 4.0;
        out << "<line x1=\"" << kLeft << "\" x2=\"" << kLeft + plotW << "\" y1=\"" << y(v) << "\" y2=\"" << y(v)
            << "\" stroke=\"#ddd\"/><text x=\"" << kLeft - 6 << "\" y=\"" << y(v) + 4
            << "\" text-anchor=\"end\">" << Fixed(v, 2) << "</text>\n";
        out << "<text x=\"" << x(v) << "\" y=\"" << kTop + plotH + 16 << "\" text-anchor=\"middle\">" << Fixed(v, 2)
            << "</text>\n";
    }
    out << "<rect x=\"" << kLeft << "\" y=\"" << kTop << "\" width=\"" << plotW << "\" height=\"" << plotH
        << "\" fill=\"none\" stroke=\"#888\"/>\n";
    out << "<text x=\"" << kLeft + plotW / 2 << "\" y=\"" << kH - 8
        << "\" text-anchor=\"middle\">share of pages opened while the previous one loads</text>\n";
    int legend = 0;
    for (const Series &series : kSeries) {
        std::string path;
        for (const CurvePoint &p : points) {
            if (p.overlap < 0.0) {
                continue;
            }
            path += (path.empty() ? "M" : " L") + Fixed(x(p.overlap), 1) + "," + Fixed(y(series.value(p.eval)), 1);
            out << "<circle cx=\"" << Fixed(x(p.overlap), 1) << "\" cy=\"" << Fixed(y(series.value(p.eval)), 1)
                << "\" r=\"3\" fill=\"" << series.colour << "\"/>\n";
        }
        out << "<path d=\"" << path << "\" fill=\"none\" stroke=\"" << series.colour << "\" stroke-width=\"2\"/>\n";
        // The recordings replayed apart: a dashed level to compare with.
        for (const CurvePoint &p : points) {
            if (p.overlap < 0.0) {
                out << "<line x1=\"" << kLeft << "\" x2=\"" << kLeft + plotW << "\" y1=\""
                    << Fixed(y(series.value(p.eval)), 1) << "\" y2=\"" << Fixed(y(series.value(p.eval)), 1)
                    << "\" stroke=\"" << series.colour << "\" stroke-dasharray=\"4 3\" opacity=\"0.6\"/>\n";
            }
        }
        const int ly = kTop + 10 + 18 * legend++;
        out << "<line x1=\"" << kLeft + plotW + 12 << "\" x2=\"" << kLeft + plotW + 30 << "\" y1=\"" << ly
            << "\" y2=\"" << ly << "\" stroke=\"" << series.colour << "\" stroke-width=\"2\"/><text x=\""
            << kLeft + plotW + 34 << "\" y=\"" << ly + 4 << "\">" << series.name << "</text>\n";
    }
    const int ly = kTop + 10 + 18 * legend;
    out << "<line x1=\"" << kLeft + plotW + 12 << "\" x2=\"" << kLeft + plotW + 30 << "\" y1=\"" << ly << "\" y2=\""
        << ly << "\" stroke=\"#444\" stroke-dasharray=\"4 3\"/><text x=\"" << kLeft + plotW + 34 << "\" y=\""
        << ly + 4 << "\">each recording alone</text>\n";
    out << "</svg>\n";
}

void WriteMixCurveHtml(std::ostream &out, const std::vector<CurvePoint> &points)
{
    std::ostringstream table;
    WriteMixCurveText(table, points);
    std::string text;
    for (char c : table.str()) {
        text += c == '&' ? std::string("&amp;") : c == '<' ? std::string("&lt;") : c == '>' ? std::string("&gt;")
                                                                                            : std::string(1, c);
    }
    out << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
           "<title>Grouping as pages interleave</title>"
           "<style>body{font-family:sans-serif;margin:20px;color:#222}pre{font-size:13px}</style></head><body>\n"
           "<h1>Grouping as pages interleave</h1>\n<pre>"
        << text << "</pre>\n";
    WriteMixCurveSvg(out, points);
    out << "</body></html>\n";
}

}  // namespace replay
