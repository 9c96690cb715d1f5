// Calibration of simulated transients whose headers carry wrong coefficients:
// the ions' true masses are known, so the fit, the RMS error and the walking
// calibration are checked against the truth and against a least-squares
// solution written out here.
#include <gtest/gtest.h>

#include <cmath>

#include <fmt/format.h>

#include "calibration/calibration.hpp"
#include "formats/calibration_change.hpp"
#include "peaks/find_peaks.hpp"
#include "platform/ui.hpp"
#include "sim/simulator.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"
#include "workspace/processing.hpp"

namespace vx {
namespace {

constexpr double A0 = DEFAULT_ATERM, B0 = DEFAULT_BTERM;

struct SimulatedRun {
    test::TempDir dir;
    Workspace ws;
    int slot = -1;
    std::vector<double> calibrants, others;  // true m/z
    Spectrum& s() { return ws.panels[static_cast<std::size_t>(slot)].spectrum; }

    // Ions every 41.3 m/z from 200 (the 20 calibrants) and from 220 (19 others).
    // shift_ppm(m) moves where the simulator puts an ion away from the two-term
    // law, as a residual error along the spectrum does.
    template <class Shift>
    SimulatedRun(double noise, Shift shift_ppm, int apodization = APOD_HANN) {
        SimParameters p;
        p.points = 1 << 20;
        p.noise = noise;
        p.int_storage = false;
        p.seed = 3;
        p.lowfreq = 40000.0;
        p.highfreq = 300000.0;
        std::vector<SimIon> ions;
        for (int i = 0; i < 39; ++i) {
            const double m = (i < 20 ? 200.0 : 220.0) + 41.3 * (i < 20 ? i : i - 20);
            (i < 20 ? calibrants : others).push_back(m);
            SimIon ion;
            ion.mz = m * (1.0 + shift_ppm(m) * 1e-6);
            ion.abundance = 0.5 + 0.3 * std::sin(i);
            ion.decay = 0.5;
            ions.push_back(ion);
        }
        RecordingUi ui;
        const std::string truth = dir.file("truth.dat"), wrong = dir.file("wrong.dat");
        EXPECT_EQ(write_simulated_file(truth, p, ions, ui), 0);
        CalibrationChangeOptions full;
        full.full_precision = true;
        EXPECT_EQ(Change_Tulva_Calibration_Go(truth, wrong, A0 * (1 + 5e-5), B0 * 1.1, ui, full), 0);
        slot = test::open_tulva_file(ws, wrong, ui);
        if (slot < 0) return;
        EXPECT_NEAR(s().Aterm, A0 * (1 + 5e-5), 1e-6);  // written with six decimals
        ws.settings.zerofills = 2;
        ws.settings.apodization = apodization;
        EXPECT_EQ(process_command(ws, ui), 0);
        FindPeakOptions(ws, slot);
        ws.settings.low_mass = 150.0;
        ws.settings.high_mass = 1100.0;
        ws.settings.percent_thresholds = 1;
        ws.settings.peak_threshold = 2.0;
        PeakTable table;
        EXPECT_EQ(AnalyzeFindPeaks(ws, false, table, ui), 39);
    }

    // Height of the peak nearest to a frequency over the noise of an empty band.
    double sn_of(double frequency) {
        const Spectrum& sp = s();
        const double hz = sp.dbandwidth / sp.datacount;
        double sum = 0, sum2 = 0;
        const auto lo = static_cast<std::size_t>(255000.0 / hz), hi = static_cast<std::size_t>(285000.0 / hz);
        for (std::size_t i = lo; i < hi; ++i) sum += sp.data[i], sum2 += double(sp.data[i]) * sp.data[i];
        const double n = static_cast<double>(hi - lo), mean = sum / n, sd = std::sqrt(sum2 / n - mean * mean);
        const auto at = static_cast<std::size_t>(std::lround(frequency / hz));
        return (sp.data[at] - mean) / sd;
    }

    CalibrationPanel calibrate(bool walking) {
        RecordingUi ui;
        const MatchTolerance tol{300.0, true};
        const std::vector<int> checked = MatchTheo_toMeasured(s(), calibrants, tol);
        EXPECT_EQ(checked.size(), 20u);
        CalibrationPanel panel;
        panel.WalkingOn = walking;
        EXPECT_EQ(FillCalTableNew(panel, s(), checked, false, ui), 0);
        AssignTheor_toCalPanel(panel, s(), calibrants, tol);
        EXPECT_EQ(RemoveUnassignedCalPeaks(panel), 0);
        EXPECT_EQ(CalibrationCalculate(panel, s().Trapvoltage, ui), 0);
        return panel;
    }

    // Error in ppm of the peak nearest to each true mass, under the spectrum's peak masses.
    std::vector<double> errors(const std::vector<double>& masses) {
        std::vector<double> e;
        for (double m : masses) {
            const Peak* best = nullptr;
            for (const Peak& p : s().peaks)
                if (!best || std::fabs(p.mass - m) < std::fabs(best->mass - m)) best = &p;
            e.push_back((best->mass - m) / m * 1e6);
        }
        return e;
    }
};

double rms(const std::vector<double>& v) {
    double s = 0;
    for (double x : v) s += x * x;
    return std::sqrt(s / static_cast<double>(v.size()));
}

TEST(Recovery, TwoTermFitRecoversTheTrueCoefficients) {
    SimulatedRun run(0.1, [](double) { return 0.0; });
    ASSERT_GE(run.slot, 0);
    // Signal to noise of the weakest calibrant, measured on the spectrum.
    double weakest = 1e300;
    for (const Peak& p : run.s().peaks) weakest = std::min(weakest, run.sn_of(p.frequency));
    EXPECT_GT(weakest, 100.0);

    const std::vector<double> before = run.errors(run.calibrants);
    EXPECT_GT(rms(before), 20.0);  // the wrong header is tens of ppm off
    CalibrationPanel panel = run.calibrate(false);

    // The least-squares line of m f on 1/f, solved here by the normal
    // equations in long double on centred sums.
    long double mx = 0, my = 0;
    const long double n = static_cast<long double>(panel.rows.size());
    for (const CalTableRow& r : panel.rows) mx += 1.0L / r.frequency, my += static_cast<long double>(r.theoretical) * r.frequency;
    mx /= n, my /= n;
    long double sxx = 0, sxy = 0;
    for (const CalTableRow& r : panel.rows) {
        const long double dx = 1.0L / r.frequency - mx, dy = static_cast<long double>(r.theoretical) * r.frequency - my;
        sxx += dx * dx, sxy += dx * dy;
    }
    const long double slope = sxy / sxx, icpt = my - slope * mx;
    EXPECT_NEAR(panel.CalA, static_cast<double>(icpt), A0 * 1e-12);
    EXPECT_NEAR(panel.CalB, static_cast<double>(slope) / std::fabs(run.s().Trapvoltage), std::fabs(B0) * 1e-9);

    RecordProperty("aterm_relative_error", fmt::format("{:.3g}", panel.CalA / A0 - 1.0));
    RecordProperty("rms_ppm", std::to_string(panel.RmsError));
    RecordProperty("weakest_sn", std::to_string(weakest));
    EXPECT_LT(std::fabs(panel.CalA / A0 - 1.0), 1e-7);
    EXPECT_LT(panel.RmsError, 0.05);
    RecordingUi ui;
    ASSERT_EQ(ApplyCalibration(run.s(), panel, 1, true, ui), 0);
    EXPECT_EQ(run.s().Aterm, panel.CalA);
    // The peaks now carry the fitted masses: calibrants and the others alike.
    EXPECT_LT(rms(run.errors(run.calibrants)), 0.05);
    EXPECT_LT(rms(run.errors(run.others)), 0.1);
}

// Where the RMS error of the calibrants comes from. Without noise it is the
// bias of the three-point parabola at the peak tops (about 0.014 ppm): the fit
// itself adds nothing. With noise it grows in proportion to the noise: at a
// weakest S/N near 200 the peak positions of the usual full Hann window scatter
// by about 0.09 ppm. A transient that decays during the acquisition holds most
// of its signal at the start, which the full window weights down; the half
// Hann window (falling from the first sample) keeps it and lowers the scatter
// by about a third at the same noise. Neither reaches 0.05 ppm at S/N 100-200:
// that is the precision of the peak positions, not of the calibration.
TEST(Recovery, PeakPositionPrecisionLimitsTheRms) {
    const auto none = [](double) { return 0.0; };
    double clean = 0, full = 0, half = 0, sn_full = 1e300;
    {
        SimulatedRun run(0.0, none);
        ASSERT_GE(run.slot, 0);
        clean = run.calibrate(false).RmsError;
    }
    {
        SimulatedRun run(0.5, none);
        ASSERT_GE(run.slot, 0);
        for (const Peak& p : run.s().peaks) sn_full = std::min(sn_full, run.sn_of(p.frequency));
        full = run.calibrate(false).RmsError;
    }
    {
        SimulatedRun run(0.5, none, APOD_HALF_HANN);
        ASSERT_GE(run.slot, 0);
        half = run.calibrate(false).RmsError;
    }
    RecordProperty("rms_ppm_no_noise", std::to_string(clean));
    RecordProperty("rms_ppm_hann", std::to_string(full));
    RecordProperty("rms_ppm_half_hann", std::to_string(half));
    RecordProperty("weakest_sn_hann", std::to_string(sn_full));
    EXPECT_LT(clean, 0.02);
    EXPECT_GT(sn_full, 150.0);
    EXPECT_LT(sn_full, 300.0);
    EXPECT_GT(full, 0.05);  // the goal is missed with the full window at this S/N
    EXPECT_LT(full, 0.15);
    EXPECT_LT(half, 0.8 * full);
}

TEST(Recovery, WalkingIsExactAtCalibrantsAndLowersErrorsBetweenThem) {
    // A smooth residual of a few ppm along the spectrum that the two-term law
    // cannot follow.
    SimulatedRun run(0.1, [](double m) { return 3.0 * std::sin(m / 120.0); });
    ASSERT_GE(run.slot, 0);
    Spectrum plain = run.s();
    CalibrationPanel fit = run.calibrate(false);
    RecordingUi ui;
    ASSERT_EQ(ApplyCalibration(plain, fit, 1, true, ui), 0);
    CalibrationPanel walk = run.calibrate(true);
    ASSERT_EQ(ApplyCalibration(run.s(), walk, 1, true, ui), 0);
    EXPECT_EQ(run.s().caltype, CALTYPE_WALKING);
    EXPECT_EQ(run.s().walkingregions, 19);
    // Each calibrant peak has exactly its theoretical mass.
    for (const Calibrant& c : run.s().calibrants) {
        const Peak& p = run.s().peaks[static_cast<std::size_t>(c.peaknumber - 1)];
        EXPECT_NEAR(p.mass, c.theoretical, c.theoretical * 1e-9) << c.theoretical;
    }
    // The ions between the calibrants: errors against where the simulator put
    // them relative to their unmoved masses, plain fit versus walking.
    Spectrum walked = run.s();
    run.s().peaks = plain.peaks;
    const double plain_rms = rms(run.errors(run.others));
    run.s().peaks = walked.peaks;
    const double walking_rms = rms(run.errors(run.others));
    RecordProperty("plain_rms_ppm", std::to_string(plain_rms));
    RecordProperty("walking_rms_ppm", std::to_string(walking_rms));
    EXPECT_GT(plain_rms, 1.0);
    EXPECT_LT(walking_rms, plain_rms / 3.0);
}

}  // namespace
}  // namespace vx
