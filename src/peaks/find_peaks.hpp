// The traditional peak search of a magnitude spectrum and the peak table it fills.
//
// The search walks the spectrum from the upper m/z limit down over a three-point
// smoothed profile, cuts it into segments that rise and fall, fits a parabola at
// the top of each accepted segment and measures its width at half height. Its
// results go into the peak table (one row per peak, full precision values plus
// the texts the visible list shows) and into Spectrum::peaks, ascending in m/z.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "workspace/settings.hpp"
#include "workspace/spectrum.hpp"
#include "workspace/workspace.hpp"

namespace vx {

class Ui;

// One row of the peak table: the values of the hidden lists in full precision
// and the values the visible row is formatted from.
struct PeakTableRow {
    int number = 0;
    double mass = 0.0;
    double index = 0.0;
    double frequency = 0.0;
    double height = 0.0;
    double percent = 0.0;          // of the panel's largest sample (or relabundance)
    double scaled_abundance = 0.0; // abundance_scale x height
    double width = 0.0;
    double resolvingpower = 0.0;
    double sn = -1.0;
};

// Contents of the two table panels of the last search.
struct PeakTable {
    bool loaded = false;     // the panels exist
    bool shown = false;      // the visible panel is on screen
    double ymax = 0.0;       // largest sample of the searched range (control 23)
    std::string status;      // text box of the visible panel
    std::vector<PeakTableRow> rows;
};

// Decimals of the table columns: m/z, frequency, abundance, the others.
struct PeakDecimals {
    int mz = 7, frequency = 5, abundance = 2, other = 5;
};
PeakDecimals peak_decimals(const Settings& settings);

// The seven texts of a visible row: number, m/z, frequency, percent, scaled
// abundance, resolving power without decimals, S/N with four.
std::array<std::string, 7> peak_table_fields(const PeakTableRow& row, const PeakDecimals& decimals);
// The same seven fields as one line at the tab stops 30, 100, 200, 300, 410,
// 520 and 600 (columns of characters / 5 in a plain-text rendering).
std::string peak_table_line(const PeakTableRow& row, const PeakDecimals& decimals);

// m/z where the line through points i - 1 and i reaches level.
double Interp_midmass(long i, double level, const Spectrum& spectrum);
// The fractional point of the same crossing.
double Interp_midpoint_thread(long i, double level, const Spectrum& spectrum);

// The search ranges left by the notch table inside low..high (ascending, notches
// sorted by their low edge); one range without notches.
std::vector<std::pair<double, double>> notch_ranges(double low, double high, bool notches_on,
                                                    const std::vector<std::pair<double, double>>& notches);

// The traditional search over the limits and thresholds of settings. ymax is the
// largest sample of the panel (-1.0 without one), the reference of the percent
// column. Fills table and, when it finds peaks, spectrum.peaks (ascending m/z)
// with relabundance and the width and resolving power of CalculateRP. Returns
// the number of peaks; -44 when the peak level lies below a global noise
// baseline; 0 after "Incorrect Mass Range".
int FindPeaksReborn(Spectrum& spectrum, const Settings& settings, double ymax, PeakTable& table, Ui& ui);

// The same search for profile data on explicit xvalues (m/z of each point):
// limits compared with xvalues, no noise estimate, index and mass hold m/z, the
// S/N column comes from xcalnoise, width from the sample points.
int FindPeaksProfile(Spectrum& spectrum, const Settings& settings, double ymax, PeakTable& table, Ui& ui);

// The parallel form: the range cut into ceil(2 span / noise_window) regions,
// each searched with the noise of its own samples by one of thread_count
// workers; the lists joined in region order without duplicates. The list does
// not depend on the number of workers.
int FindPeaksThread(Spectrum& spectrum, const Settings& settings, double ymax, PeakTable& table, Ui& ui);

// "Find Peak Options": search limits from the spectrum's excited range (domain 2)
// or its first m/z value (profile data), the low limit kept above the mass of
// the panel's last point.
void FindPeakOptions(Workspace& ws, int slot);

// Search limits for a first "Find Peaks": a limit that is unset (0 or below)
// takes the excited range of the data ("Find Peak Options"), else the range of
// the data itself (profile data: its first and last m/z). A limit already set
// stays. A fresh settings file has no upper limit, and a search over an empty
// range only says "Incorrect Mass Range", so every front end calls this first.
void ensure_search_limits(Workspace& ws, int slot);

// The command "Find Peaks" of the Analyze menu on the active panel. Returns the
// number of peaks, or a negative value after its message.
int FindPeaksCommand(Workspace& ws, PeakTable& table, Ui& ui);

// The analysis panel's buttons "Find Peaks by S/N Ratio Threshold" (by_sn) and
// "Find Peaks by Abundance Threshold": notch table sorted and checked, then the
// command above.
int AnalyzeFindPeaks(Workspace& ws, bool by_sn, PeakTable& table, Ui& ui);

// Text of a peak label in the graph: the m/z with `mz_decimals` decimals (1 to
// 8; any other count gives the rounded whole number) and the abundance with its
// own decimals, on two lines.
std::string LabelPeakText(double mass, double abundance, int mz_decimals, int abundance_decimals);

// A graph label already placed.
struct PeakLabel {
    double x = 0.0, y = 0.0;
    std::string text;
};
// Labels the ticked rows of the table (ticked[i] for rows[i]) at (mass, height):
// a label within 1e-6 in both x and y of one already in labels is not repeated.
// Returns the number of labels added.
int LabelPeaks(const PeakTable& table, const std::vector<bool>& ticked, const Settings& settings,
               std::vector<PeakLabel>& labels);

}  // namespace vx
