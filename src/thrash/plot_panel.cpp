#include "thrash/plot_panel.hpp"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "platform/ui.hpp"
#include "workspace/settings.hpp"

namespace vx {

namespace {

long nearest_index(const PlotData& d, double mass) {
    long best = -1;
    double bd = 0.0;
    for (std::size_t i = 0; i < d.mass.size(); ++i) {
        const double e = std::fabs(d.mass[i] - mass);
        if (best < 0 || e < bd) {
            best = static_cast<long>(i);
            bd = e;
        }
    }
    return best;
}

}  // namespace

int zdet(const PlotData& d, ZdetResult& out, Ui& ui) {
    out = ZdetResult{};
    const long n = static_cast<long>(d.intensity.size());
    if (n < 3 || d.mass.size() != d.intensity.size()) {
        ui.MessagePopup("Zdet", "Nothing is plotted: deconvolve or plot a spectrum first.");
        return -1;
    }
    const float top = *std::max_element(d.intensity.begin(), d.intensity.end());
    long first = 0;
    while (first < n && !(d.intensity[static_cast<std::size_t>(first)] >= 0.95f * top)) ++first;
    out.top = find_peaktop(d, first);
    out.mz = d.mass[static_cast<std::size_t>(out.top)];
    out.low_mz = out.mz - 4.0;
    out.high_mz = out.mz + 4.0;
    // Masses fall with the index: the high end has the low index.
    const long lo = nearest_index(d, out.high_mz), hi = nearest_index(d, out.low_mz);
    out.threshold = auto_find_threshold(d, lo, hi, &out.mean, &out.sigma);
    out.baseline_line = out.mean + 3.0 * out.sigma;
    out.charge = determine_low_charge(d, out.top, out.threshold);
    // One dalton stands for the proton here, as the panel has always shown it.
    out.mass = (out.mz - 1.0) * out.charge;
    out.label = fmt::format("{:10.4f} ({}+)", out.mass, out.charge);
    return 0;
}

std::string area_text(double area) {
    const double a = std::fabs(area);
    if (a >= 100000.0 || (a > 0.0 && a < 0.001)) return fmt::format(" area ={:6.3e}", area);
    return fmt::format(" area ={:9.3f}", area);
}

int plot_analysis(const std::vector<double>& x, const std::vector<double>& y, double lo, double hi,
                  double background, PlotAnalysis& out, Ui& ui, bool ask) {
    out = PlotAnalysis{};
    if (lo > hi) std::swap(lo, hi);
    std::vector<std::pair<double, double>> pts;
    for (std::size_t i = 0; i < x.size() && i < y.size(); ++i)
        if (x[i] >= lo && x[i] <= hi && std::isfinite(y[i])) pts.emplace_back(x[i], std::max(0.0, y[i] - background));
    if (pts.size() < 2) {
        ui.MessagePopup("Analysis", "Place the two cursors about a peak: fewer than two points lie between them.");
        return -1;
    }
    if (ask && !ui.ConfirmPopup("Analysis", "Background Setting OK?")) return 1;
    std::sort(pts.begin(), pts.end());
    double w = 0.0, wx = 0.0, area = 0.0;
    for (std::size_t i = 0; i < pts.size(); ++i) {
        w += pts[i].second;
        wx += pts[i].first * pts[i].second;
        if (i > 0) area += (pts[i].first - pts[i - 1].first) * (pts[i].second + pts[i - 1].second) / 2.0;
    }
    out.points = static_cast<long>(pts.size());
    out.centroid = w > 0.0 ? wx / w : (lo + hi) / 2.0;
    out.area = area;
    out.text = fmt::format(" centroid ={:11.4f}", out.centroid) + area_text(area);
    ui.Console(out.text + "\n");
    return 0;
}

int analysis_report(const std::vector<double>& x, const std::vector<double>& y, double lo, double hi,
                    AnalysisReport& out, Ui& ui) {
    out = AnalysisReport{};
    if (lo > hi) std::swap(lo, hi);
    double sum = 0.0;
    std::vector<double> v;
    for (std::size_t i = 0; i < x.size() && i < y.size(); ++i)
        if (x[i] >= lo && x[i] <= hi && std::isfinite(y[i])) {
            v.push_back(y[i]);
            sum += y[i];
        }
    if (v.size() < 2) {
        ui.MessagePopup("Analysis Report", "Place cursors 1 and 2 about a stretch of baseline: fewer than two points lie between them.");
        return -1;
    }
    out.points = static_cast<long>(v.size());
    out.mean = sum / static_cast<double>(v.size());
    double ss = 0.0;
    for (double e : v) ss += (e - out.mean) * (e - out.mean);
    out.deviation = std::sqrt(ss / static_cast<double>(v.size() - 1));
    out.plus3 = out.mean + 3.0 * out.deviation;
    out.plus6 = out.mean + 6.0 * out.deviation;
    // The words, double blanks and misspellings included, are the ones users
    // know from this report.
    out.text = fmt::format(
        "Average: {:f}\nStandard Deviation: {:f}\nThreshhold for baseline  plus 3 sigma:  {:f}\n"
        "Threshhold for baseline  plus 6 sigma: {:f}\nInput 3 (for 3 sigma) or 6 (for 6 sigma) to push values to "
        "peak picking panel.",
        out.mean, out.deviation, out.plus3, out.plus6);
    return 0;
}

int apply_report_limit(const AnalysisReport& r, const std::string& answer, Settings& settings, Ui& ui) {
    std::size_t a = answer.find_first_not_of(" \t\r\n");
    if (a == std::string::npos) return 1;
    double k = 0.0;
    std::size_t used = 0;
    try {
        k = std::stod(answer.substr(a), &used);
    } catch (const std::exception&) {
        used = 0;
    }
    const std::string rest = answer.substr(a + used);
    const bool trailing = rest.find_first_not_of(" \t\r\n") != std::string::npos;
    if (used == 0 || trailing || !std::isfinite(k) || k < 2.0) {
        ui.MessagePopup("Current Lower Limit for S/N thrshold is 2", "Please choose a limit of 2 or greater");
        return -1;
    }
    settings.noise_threshold = r.mean + k * r.deviation;
    settings.peak_sigma_factor = k;
    ui.Console(fmt::format("Peak picking: noise threshold {:f} (baseline plus {:g} sigma)\n", settings.noise_threshold, k));
    return 0;
}

int run_analysis_report(const std::vector<double>& x, const std::vector<double>& y, double lo, double hi,
                        Settings& settings, Ui& ui, AnalysisReport* out) {
    AnalysisReport r;
    if (analysis_report(x, y, lo, hi, r, ui) < 0) return -1;
    if (out) *out = r;
    const auto answer = ui.PromptPopup("Analysis Report", r.text, 8);
    if (!answer) return 1;
    return apply_report_limit(r, *answer, settings, ui);
}

}  // namespace vx
