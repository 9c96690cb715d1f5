#include "phasing/phase_command.hpp"

#include <algorithm>
#include <cmath>

#include "platform/ui.hpp"
#include "workspace/display.hpp"

namespace vx {

int phase_command(Workspace& ws, const PhaseRunOptions& options, Ui& ui, PhaseRunResult* result) {
    if (ws.active_panel < 0 || ws.active_panel >= MAX_PANELS ||
        ws.panels[static_cast<std::size_t>(ws.active_panel)].active == 0) {
        ui.MessagePopup("Operator Error", "No Spectrum Chosen");
        return -1;
    }
    const int slot = ws.active_panel;
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
    PhaseRunOptions o = options;
    if (o.workers <= 0) o.workers = std::clamp(ws.settings.thread_count, 1, 8);
    const int rc = phase_spectrum(p.spectrum, o, ui, result);
    if (rc < 0) return rc;
    Initialize_Display(ws, slot);
    p.moveoffset = 0.0;
    PlotMenuCommand(p, PLOT_MZ, 0.0, 0.0, ws.settings, ui);
    return 0;
}

int ManualPhase(Spectrum& s, const ManualPhaseValues& v, std::vector<float>* slope) {
    const std::size_t N = std::min(s.realdata.size(), s.imagdata.size());
    if (N == 0) return -1;
    s.Zeroorder = v.zero;
    s.ZeroDegrees = static_cast<std::int32_t>(std::lround(v.zero * 180.0 / 3.14159265358979323846));
    s.OptimizedFirstorder = v.first * std::pow(10.0, v.first_exponent);
    s.OptimizedSecondorder = v.second * std::pow(10.0, v.second_exponent);
    const double A = s.OptimizedSecondorder, B = s.OptimizedFirstorder, C = v.zero;
    const double bw = s.dbandwidth;
    const double hz = s.hzppt > 0.0 ? s.hzppt : bw / static_cast<double>(N);
    const double F = v.final_khz * 1000.0;
    const double u = (v.delayf && bw > 0.0) ? 1.0 / bw : 0.0;
    const double e = v.delayf ? 1.0 : 0.0;
    const double sh = v.shift;
    std::size_t lo = 0, hi = N;
    if (v.limit) {
        lo = static_cast<std::size_t>(std::clamp(std::min(v.limit_lo, v.limit_hi), 0.0, static_cast<double>(N)));
        hi = static_cast<std::size_t>(std::clamp(std::max(v.limit_lo, v.limit_hi), 0.0, static_cast<double>(N)));
    }
    auto phi = [&](double k) {
        double x = 0.0, y = 0.0;
        switch (v.mode) {
            case 1: x = k * hz; y = (sh + k - u) * hz - F; break;
            case 2: x = (k - sh) * hz; y = (sh - k - u) * hz - F; break;
            case 3: x = k * hz; y = k * hz - e / (bw > 0.0 ? bw : 1.0) - F; break;
            case 4: x = (k - sh) * hz; y = x; break;
            default: x = (sh - k) * hz; y = x; break;
        }
        // The first-order term changes its sign at the shift point.
        const double sign = k >= sh ? 1.0 : -1.0;
        return A * y * y - sign * B * x + C;
    };
    s.phase.assign(N, 0.0);
    s.data.assign(N, 0.0f);
    if (slope) slope->assign(N, 0.0f);
    for (std::size_t k = lo; k < hi; ++k) {
        const double p = phi(static_cast<double>(k));
        s.phase[k] = p;
        const double c = std::cos(p), sn = std::sin(p);
        s.data[k] = static_cast<float>(s.realdata[k] * c - s.imagdata[k] * sn);
        if (slope) (*slope)[k] = static_cast<float>(p - phi(static_cast<double>(k) + 1.0));
    }
    if (v.flip) {
        for (float& x : s.data) x = -x;
        if (slope)
            for (float& x : *slope) x = -x;
    }
    return 0;
}

PhaseDigits split_phase_digits(double value) {
    PhaseDigits d;
    const double a = std::fabs(value);
    const int sign = value < 0.0 ? -1 : 1;
    const double units = std::floor(a);
    const double r1 = (a - units) * 10.0;
    const double tenths = std::floor(r1 + 1e-9);
    const double r2 = (r1 - tenths) * 10.0;
    const double hundredths = std::floor(r2 + 1e-9);
    const double thousandths = std::round((r2 - hundredths) * 10.0);
    d.units = sign * static_cast<int>(units);
    d.tenths = sign * static_cast<int>(tenths);
    d.hundredths = sign * static_cast<int>(hundredths);
    d.thousandths = sign * static_cast<int>(thousandths);
    return d;
}

double join_phase_digits(const PhaseDigits& d) {
    return d.units + d.tenths * 0.1 + d.hundredths * 0.01 + d.thousandths * 0.001;
}

}  // namespace vx
