#include "phasing/phase_modes.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include <fmt/format.h>
#include <fmt/printf.h>

#include "phasing/phase_function.hpp"
#include "phasing/phase_search.hpp"
#include "platform/ui.hpp"
#include "workspace/display.hpp"
#include "workspace/processing.hpp"
#include "workspace/workspace.hpp"

namespace vx {

namespace {

constexpr const char* DIVISION_TITLE = "Complex Division";

// The two transients must be time data of one length: the division pairs
// their points one to one.
bool division_inputs_ok(const Spectrum& data, const Spectrum& blank, Ui& ui) {
    if (data.domain != DOMAIN_TIME || blank.domain != DOMAIN_TIME) {
        ui.MessagePopup(DIVISION_TITLE, "Both the data file and the blank file must hold transients.");
        return false;
    }
    if (data.datacount != blank.datacount || data.data.size() != blank.data.size()) {
        ui.MessagePopup(DIVISION_TITLE,
                        fmt::format("The data file has {} points and the blank file {}: they must be the same length.",
                                    data.datacount, blank.datacount));
        return false;
    }
    return true;
}

// Both transformed alike (scaled, packed point 0 as the phased transform has it).
int transform_pair(const Spectrum& data, const Spectrum& blank, Spectrum& a, Spectrum& b, Ui& ui) {
    a = data;
    b = blank;
    if (Fourier_Transform_Phased(a, 0, ui) != 0 || Fourier_Transform_Phased(b, 0, ui) != 0) return -1;
    return 0;
}

}  // namespace

void DoDivision(std::vector<double>& a_re, std::vector<double>& a_im, const std::vector<double>& b_re,
                const std::vector<double>& b_im) {
    const std::size_t n = std::min({a_re.size(), a_im.size(), b_re.size(), b_im.size()});
    for (std::size_t k = 0; k < n; ++k) {
        const std::complex<double> b(b_re[k], b_im[k]);
        const std::complex<double> q = std::norm(b) > 0.0 ? std::complex<double>(a_re[k], a_im[k]) / b : 0.0;
        a_re[k] = q.real();
        a_im[k] = q.imag();
    }
}

int complex_division(Spectrum& data, const Spectrum& blank, std::vector<float>* dispersion, Ui& ui) {
    if (!division_inputs_ok(data, blank, ui)) return -1;
    Spectrum a, b;
    if (transform_pair(data, blank, a, b, ui) != 0) return -1;
    std::vector<double> re(a.realdata.begin(), a.realdata.end()), im(a.imagdata.begin(), a.imagdata.end());
    const std::vector<double> bre(b.realdata.begin(), b.realdata.end()), bim(b.imagdata.begin(), b.imagdata.end());
    DoDivision(re, im, bre, bim);
    a.data.assign(re.begin(), re.end());
    // The dip baseline, with limits suited to a quotient near 1 rather than
    // to a spectrum scaled to the magnitude chain, and no moving average.
    const double limit = 2.0 * a.dbandwidth / static_cast<double>(a.datacount) >= 0.25 ? 0.45 : 0.06;
    remove_phase_baseline(a.data, limit, false, 0, -0.1);
    if (dispersion) dispersion->assign(im.begin(), im.end());
    data = std::move(a);
    return 0;
}

int transfer_function(Spectrum& data, const Spectrum& blank, std::vector<float>* phase_out, Ui& ui,
                      bool true_axis) {
    if (!division_inputs_ok(data, blank, ui)) return -1;
    const double samples = static_cast<double>(data.datacount);
    Spectrum a, b;
    if (transform_pair(data, blank, a, b, ui) != 0) return -1;
    const std::size_t N = a.realdata.size();
    std::vector<float> mag(N), ph(N);
    for (std::size_t k = 0; k < N; ++k) {
        const std::complex<double> x(b.realdata[k], b.imagdata[k]), y(a.realdata[k], a.imagdata[k]);
        const std::complex<double> h = std::norm(x) > 0.0 ? y / x : 0.0;
        mag[k] = static_cast<float>(std::abs(h));
        ph[k] = static_cast<float>(std::arg(h));
    }
    // Point 0 packs the zero frequency with the Nyquist value; the ratio of
    // the two zero-frequency values alone is the transfer at 0 Hz.
    if (N > 0) {
        const double x0 = b.realdata[0], y0 = a.realdata[0];
        mag[0] = x0 != 0.0 ? static_cast<float>(std::fabs(y0 / x0)) : 0.0f;
        ph[0] = x0 != 0.0 && y0 / x0 < 0.0 ? static_cast<float>(std::numbers::pi) : 0.0f;
    }
    a.data = std::move(mag);
    // The axis of the transfer function: TransferFunction is given the sample
    // interval 1 / BW, so its frequency step is 1 / (count dt) = BW / count,
    // half the spectrum's own step (the samples were taken at 2 BW). Kept, as
    // the panel has always drawn it; true_axis gives the step of the samples.
    const double df = (true_axis ? 2.0 : 1.0) * a.dbandwidth / samples;
    a.hzppt = df;
    a.dbandwidth = df * static_cast<double>(N);  // the conversions take BW / N
    if (phase_out) *phase_out = std::move(ph);
    data = std::move(a);
    return 0;
}

int phase_process(Spectrum& data, const Spectrum* blank, const PhaseProcessOptions& o, const Settings& settings,
                  std::vector<float>* second, Ui& ui, PhaseRunResult* result) {
    switch (o.mode) {
        case PROCESS_MAGNITUDE:
            return Process_Data(data, settings, ui);
        case PROCESS_ABSORPTION: {
            PhaseRunResult local;
            PhaseRunResult& r = result ? *result : local;
            PhaseRunOptions run = o.run;
            run.dispersion = run.dispersion || second != nullptr;
            const int rc = phase_spectrum(data, run, ui, &r);
            if (rc == 0 && second) *second = r.dispersion;
            return rc;
        }
        case PROCESS_COMPLEX_DIVISION:
        case PROCESS_TRANSFER:
            if (!blank) {
                ui.MessagePopup(DIVISION_TITLE, "Open a blank file for the division first.");
                return -1;
            }
            return o.mode == PROCESS_COMPLEX_DIVISION ? complex_division(data, *blank, second, ui)
                                                      : transfer_function(data, *blank, second, ui, o.true_axis);
        default:
            ui.MessagePopup("Phasing the Data", fmt::format("Process mode {} is not known.", o.mode));
            return -1;
    }
}

Spectrum second_channel_spectrum(const Spectrum& phased, const std::vector<float>& values) {
    // The header and axis of the phased record, none of its large arrays.
    Spectrum h;
    h.filename = phased.filename;
    h.title2 = "Dispersion Data";
    h.dbandwidth = phased.dbandwidth;
    h.hzppt = phased.hzppt;
    h.Aterm = phased.Aterm;
    h.Bterm = phased.Bterm;
    h.Cterm = phased.Cterm;
    h.Trapvoltage = phased.Trapvoltage;
    h.caltype = phased.caltype;
    h.lowfreq = phased.lowfreq;
    h.highfreq = phased.highfreq;
    h.domain = DOMAIN_FREQUENCY;
    h.data = values;
    h.datacount = static_cast<std::int32_t>(values.size());
    return h;
}

int phasing_process_command(Workspace& ws, int data_slot, int blank_slot, const PhaseProcessOptions& o,
                            bool dispersion, Ui& ui, PhaseRunResult* result, int* dispersion_slot) {
    if (dispersion_slot) *dispersion_slot = -1;
    auto usable = [&](int slot) { return slot >= 0 && slot < MAX_PANELS && ws.panels[static_cast<std::size_t>(slot)].active; };
    if (!usable(data_slot)) {
        ui.MessagePopup("Operator Error", "No Spectrum Chosen");
        return -1;
    }
    if (blank_slot == data_slot) blank_slot = -1;
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(data_slot)];
    const Spectrum* blank = usable(blank_slot) ? &ws.panels[static_cast<std::size_t>(blank_slot)].spectrum : nullptr;
    const bool second_wanted = dispersion || o.mode == PROCESS_COMPLEX_DIVISION || o.mode == PROCESS_TRANSFER;
    std::vector<float> second;
    PhaseProcessOptions run = o;
    if (run.run.workers <= 0) run.run.workers = std::clamp(ws.settings.thread_count, 1, 8);
    const int rc = phase_process(p.spectrum, blank, run, ws.settings, second_wanted ? &second : nullptr, ui, result);
    if (rc < 0) return rc;
    ws.phased_data = data_slot;
    Initialize_Display(ws, data_slot);
    p.moveoffset = 0.0;
    // A transfer function is shown against frequency: its axis is its own.
    const int axis = o.mode == PROCESS_TRANSFER ? PLOT_FREQUENCY : PLOT_MZ;
    PlotMenuCommand(p, axis, 0.0, 0.0, ws.settings, ui);
    if (!second_wanted || second.empty()) return 0;
    const int slot = Get_New_Panel(ws);
    if (slot < 0) {
        ui.MessagePopup("Warning", "Too many files open, close some files and reload.");
        return 0;  // the data panel holds its result; only the second view is missing
    }
    prepare_new_slot(ws, slot, 0);
    AnalysisPanel& d = ws.panels[static_cast<std::size_t>(slot)];
    d.spectrum = second_channel_spectrum(p.spectrum, second);
    Initialize_Display(ws, slot);
    PlotMenuCommand(d, axis, 0.0, 0.0, ws.settings, ui);
    if (dispersion_slot) *dispersion_slot = slot;
    return 0;
}

std::string show_phase_text(const Spectrum& s, double constant) {
    if (s.phase.empty()) return {};
    return fmt::sprintf("First phase = %f, last phase = %f\n", s.phase.front() + constant, s.phase.back() + constant);
}

void phase_plot_points(const Spectrum& s, double constant, std::size_t max_points, std::vector<double>& hz,
                       std::vector<double>& rad) {
    hz.clear();
    rad.clear();
    const std::size_t n = s.phase.size();
    if (n == 0 || max_points == 0) return;
    const std::size_t step = std::max<std::size_t>(1, (n + max_points - 1) / max_points);
    const double hzppt = s.datacount > 0 ? s.dbandwidth / static_cast<double>(s.datacount) : 1.0;
    for (std::size_t k = 0; k < n; k += step) {
        hz.push_back(static_cast<double>(k) * hzppt);
        rad.push_back(s.phase[k] + constant);
    }
}

}  // namespace vx
