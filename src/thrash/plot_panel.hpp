// The plot panel of the charge deconvolution, besides the deconvolution
// itself (deconvolve.hpp): the charge of the tallest cluster (Zdet), the
// centroid and area between two cursors (Analysis), and the statistics of a
// cursor selection that set the peak picking's lower limit ("Analysis Report",
// "Calc Std Dev").
#pragma once

#include <string>
#include <vector>

#include "thrash/deconvolve.hpp"

namespace vx {

class Ui;
struct Settings;

struct ZdetResult {
    long top = -1;             // display index of the tallest cluster's top
    double mz = 0.0;
    double low_mz = 0.0, high_mz = 0.0;  // the +-4.0 m/z range
    double threshold = 0.0;    // auto_find_threshold of the range
    double mean = 0.0, sigma = 0.0;
    double baseline_line = 0.0;  // mean + 3 sigma of what the peeling left
    int charge = 0;            // determine_low_charge; 0 when the spacing says nothing
    double mass = 0.0;         // (m/z - 1.0) x charge
    std::string label;         // "%10.4f (%d+)"
};

// PlotSpectrumZdetCallback on a display: the first top reaching 95 % of the
// display's height. Returns 0, or -1 after a message for an empty display.
int zdet(const PlotData& d, ZdetResult& out, Ui& ui);

struct PlotAnalysis {
    double centroid = 0.0;
    double area = 0.0;
    long points = 0;
    std::string text;  // " centroid =%11.4f" and " area =..."
};

// PlotSpectrumAnalysisCallback: between lo and hi of x, the height above the
// background (negative parts count 0): its centroid and its trapezoid area.
// With ask it asks "Background Setting OK?" first, and a "no" returns 1 with
// nothing done (the command line gives the background itself). -1 after a
// message when fewer than two points lie between the cursors.
int plot_analysis(const std::vector<double>& x, const std::vector<double>& y, double lo, double hi,
                  double background, PlotAnalysis& out, Ui& ui, bool ask = true);

// The area's form: "%6.3e" for large or tiny areas, "%9.3f" otherwise.
std::string area_text(double area);

struct AnalysisReport {
    long points = 0;
    double mean = 0.0, deviation = 0.0;  // n - 1 divisor
    double plus3 = 0.0, plus6 = 0.0;
    std::string text;
};

// SpectrumCallback: mean and standard deviation of the values whose x lies
// between the cursors, and the text of "Analysis Report". -1 after a message
// with fewer than two values.
int analysis_report(const std::vector<double>& x, const std::vector<double>& y, double lo, double hi,
                    AnalysisReport& out, Ui& ui);

// The answer to the report: a limit k of 2 or more sets the peak picking's
// noise threshold to mean + k sigma and its S/N factor to k. Below 2 (or not a
// number) it is refused with its message and returns -1; an empty answer
// (cancelled) returns 1 and changes nothing.
int apply_report_limit(const AnalysisReport& r, const std::string& answer, Settings& settings, Ui& ui);

// The whole exchange as the desktop has it: the report, the prompt, the limit.
int run_analysis_report(const std::vector<double>& x, const std::vector<double>& y, double lo, double hi,
                        Settings& settings, Ui& ui, AnalysisReport* out = nullptr);

}  // namespace vx
