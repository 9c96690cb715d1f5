#include "peaks/macro.hpp"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>
#include <gsl/gsl_statistics_float.h>

#include "platform/ui.hpp"
#include "workspace/conversions.hpp"
#include "workspace/processing.hpp"

namespace vx {

int ProcessMacroCallback(Workspace& ws, double noise_low, double noise_high, PeakTable& table, Ui& ui) {
    if (ws.active_panel < 0 || ws.active_panel >= MAX_PANELS ||
        !ws.panels[static_cast<std::size_t>(ws.active_panel)].active) {
        ui.MessagePopup("Operator Error", "No Spectrum Chosen");
        return -1;
    }
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(ws.active_panel)];
    if (p.spectrum.domain == DOMAIN_TIME) {
        ProcessCommandResult r;
        if (process_command(ws, ui, &r) < 0) return -1;
    }
    Spectrum& s = p.spectrum;

    // The noise-only stretch between the cursors, as data points.
    double masses[2] = {noise_low, noise_high}, points[2] = {0.0, 0.0};
    Mass_topt(s, masses, points);
    const double n = static_cast<double>(s.data.size());
    const double a = std::min(points[0], points[1]), b = std::max(points[0], points[1]);
    if (!(a >= 0.0) || !(b < n) || b - a < 1.0) {
        ui.MessagePopup("Operator Error",
                        fmt::format("The noise range {:.4f} to {:.4f} m/z lies outside the spectrum.", noise_low, noise_high));
        return -1;
    }
    const auto first = static_cast<std::size_t>(std::ceil(a));
    const auto last = static_cast<std::size_t>(std::floor(b));
    const std::size_t count = last - first + 1;
    const float* samples = s.data.data() + first;
    const double mean = gsl_stats_float_mean(samples, 1, count);
    const double deviation = count > 1 ? gsl_stats_float_sd_m(samples, 1, count, mean) : 0.0;

    s.overRideThrashNoiseCalculation = 1;
    s.noisesigma = deviation;
    s.noisemean = mean;
    ws.settings.peak_threshold = mean + 6.0 * deviation;
    ws.settings.noise_threshold = mean + 0.7 * 6.0 * deviation;

    FindPeakOptions(ws, ws.active_panel);
    const int found = AnalyzeFindPeaks(ws, false, table, ui);
    if (found > 0)
        ui.Console("Process Macro: the Kendrick and calibration steps follow in the desktop program.\n");
    return found;
}

}  // namespace vx
