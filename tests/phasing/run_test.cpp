// Whole phasing runs on simulated files: refused scripts, stored terms that
// skip the search, the sentinel constant, the inverse path, and the width and
// baseline goals of absorption mode.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <numbers>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "phasing/phase_run.hpp"
#include "phasing/phase_search.hpp"
#include "platform/ui.hpp"
#include "platform/zip.hpp"
#include "sim/simulator.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

constexpr double PI = std::numbers::pi;
using test::TempDir;

SimParameters params(int points = 1 << 15) {
    SimParameters p;
    p.points = points;
    p.dbandwidth = 1000000.0;
    p.noise = 0.002;
    p.int_storage = false;
    p.seed = 3;
    p.collected_on = "2026-01-02";
    return p;
}

std::vector<SimIon> ions(double decay = 0.0) {
    std::vector<SimIon> v;
    for (double mz : {250.0, 333.3, 420.0, 555.5, 700.0, 910.0, 1200.0, 1500.0, 1850.0}) v.push_back({mz, 1.0, decay});
    return v;
}

std::string simulate(const TempDir& dir, const std::string& name, const SimParameters& p, const std::vector<SimIon>& v,
                     const std::string& from = "", const std::string& to = "") {
    RecordingUi ui;
    const std::string path = dir.file(name);
    EXPECT_EQ(write_simulated_file(path, p, v, ui), 0);
    if (!from.empty()) {
        std::string bytes = test::read_file(path);
        const auto at = bytes.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        if (at != std::string::npos) bytes.replace(at, from.size(), to);
        test::write_file(path, bytes);
    }
    return path;
}

Spectrum open(const std::string& path) {
    RecordingUi ui;
    Workspace ws;
    const int slot = test::open_tulva_file(ws, path, ui);
    EXPECT_GE(slot, 0);
    return slot >= 0 ? ws.panels[static_cast<std::size_t>(slot)].spectrum : Spectrum{};
}

TEST(PhaseRun, ScriptsWithoutUsableExcitationAreRefused) {
    TempDir dir;
    struct Case {
        const char* name;
        std::string from, to;
    };
    const std::vector<Case> cases = {
        {"SWIFT", "emode: chirp", "emode: SWIFT chirp"},
        {"single frequency", "emode: chirp", "emode: single_freq"},
        {"zero sweep rate", "sweeprate: 150.000000", "sweeprate: 0.000000"},
        {"garbage sweep rate", "sweeprate: 150.000000", "sweeprate: what?   "},
        {"no start frequency", "lowfreq: 20000.000000", "lowfrq: 20000.000000"},
        {"no delay", "label: Delay\ntime: 0.000500000", "label: Delay\ntime: 0.000000000"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Spectrum s = open(simulate(dir, "bad.dat", params(), ions(), c.from, c.to));
        const std::vector<float> before = s.data;
        RecordingUi ui;
        EXPECT_EQ(phase_spectrum(s, PhaseRunOptions{}, ui), -15);
        EXPECT_TRUE(ui.saw("Insufficient information to phase data.",
                           "Phasing can not continue with current information. Exiting."));
        EXPECT_EQ(s.data, before);  // nothing was transformed
        EXPECT_EQ(s.domain, DOMAIN_TIME);
    }
    // Frequency data and quadrature transients are not phased.
    Spectrum q = open(simulate(dir, "good.dat", params(), ions()));
    q.domain = DOMAIN_FREQUENCY;
    RecordingUi ui;
    EXPECT_EQ(phase_spectrum(q, PhaseRunOptions{}, ui), -1);
}

TEST(PhaseRun, StoredTermsSkipTheSearchAndRebuildTheSameSpectrum) {
    TempDir dir;
    const std::string path = simulate(dir, "sim.dat", params(), ions());
    for (bool initial : {false, true}) {
        SCOPED_TRACE(initial);
        Spectrum s = open(path);
        PhaseRunOptions o;
        o.initial_form = initial;
        o.extra_point = initial;  // the stored delay must carry the correction too
        PhaseRunResult first;
        RecordingUi ui;
        ASSERT_EQ(phase_spectrum(s, o, ui, &first), 0);
        ASSERT_TRUE(first.searched);

        const StoredTerms t = stored_terms_of(first.model, s.lowfreq, s.highfreq, initial ? 1.0 / s.dbandwidth : 0.0);
        const std::string out = dir.file("terms.dat");
        ASSERT_EQ(Save_Tulva_Phase_Coeff(path, out, t.sweep, t.delay, t.constant, t.final_freq, t.initial_freq, 0.0,
                                         initial ? 1 : 0, s.dbandwidth, 0, ui),
                  0);
        const std::string text = test::read_file(out);
        EXPECT_NE(text.find("Phase Parameters:\nOptimized Sweep Rate:150.0000\n"), std::string::npos);
        EXPECT_LT(text.find("Phase Parameters:"), text.find("\nData:\n"));

        Spectrum again = open(out);
        EXPECT_EQ(again.phaseparams, 1);
        PhaseRunResult second;
        PhaseRunOptions so;
        so.extra_point = initial;
        ASSERT_EQ(phase_spectrum(again, so, ui, &second), 0);
        EXPECT_FALSE(second.searched);
        EXPECT_EQ(second.form, "stored");
        ASSERT_EQ(again.data.size(), s.data.size());
        double worst = 0, top = 0;
        for (std::size_t k = 0; k < s.data.size(); ++k) {
            worst = std::max(worst, static_cast<double>(std::fabs(again.data[k] - s.data[k])));
            top = std::max(top, static_cast<double>(std::fabs(s.data[k])));
        }
        EXPECT_LT(worst, 1e-3 * top);

        // "T" ignores the stored block and searches again.
        Spectrum third = open(out);
        PhaseRunOptions to;
        to.test = true;
        to.initial_form = initial;
        to.extra_point = initial;
        PhaseRunResult r3;
        ASSERT_EQ(phase_spectrum(third, to, ui, &r3), 0);
        EXPECT_TRUE(r3.searched);
        EXPECT_EQ(r3.applied_degrees, first.applied_degrees);
    }
}

TEST(PhaseRun, SentinelConstantAndCorrectedTransients) {
    TempDir dir;
    const std::string path = simulate(dir, "sim.dat", params(), ions());
    RecordingUi ui;
    const std::string none = dir.file("none.dat");
    ASSERT_EQ(Save_Tulva_Phase_Coeff(path, none, 150, 0.0005, 360.0, 500000, 20000, 0, 0, 1e6, 0, ui), 0);
    Spectrum s = open(none);
    PhaseRunResult r;
    ASSERT_EQ(phase_spectrum(s, PhaseRunOptions{}, ui, &r), 0);
    EXPECT_EQ(r.form, "none");
    EXPECT_EQ(r.band_start, 0);
    EXPECT_EQ(r.band_end, 1);
    EXPECT_EQ(r.testfit, 0.0);
    EXPECT_TRUE(std::all_of(s.phase.begin(), s.phase.end(), [](double v) { return v == 0.0; }));

    // The inverse path: a transient that needs no quadratic phase any more.
    Spectrum t = open(path);
    ASSERT_EQ(phase_inverse(t, false, ui), 0);
    EXPECT_EQ(t.storagemode, 1);
    EXPECT_EQ(t.domain, DOMAIN_TIME);
    EXPECT_EQ(t.datacount, 1 << 15);
    EXPECT_NE(ui.console.find("use_delayf3 = -1.000000\n"), std::string::npos);  // the default relativex passes through
    const std::string corrected = dir.file("corrected.dat");
    ASSERT_EQ(write_phase_corrected_file(path, corrected, t, ui), 0);
    Spectrum c = open(corrected);
    EXPECT_EQ(c.storagemode, 1);
    PhaseRunResult rc;
    ASSERT_EQ(phase_spectrum(c, PhaseRunOptions{}, ui, &rc), 0);
    EXPECT_EQ(rc.form, "corrected");
    EXPECT_EQ(rc.band_end, c.datacount);
    EXPECT_EQ(c.ZeroDegrees, static_cast<int>(std::lround(64800.0 / PI)));

    // The writers never write over their source and leave no temporary behind.
    EXPECT_EQ(Save_Tulva_Phase_Coeff(path, path, 150, 0, 0, 1, 1, 0, 0, 1, 0, ui), -1);
    const std::string junk = dir.write("junk.dat", "not a data file\nat all\nreally\nData:\n");
    EXPECT_EQ(Save_Tulva_Phase_Coeff(junk, dir.file("o.dat"), 150, 0, 0, 1, 1, 0, 0, 1, 0, ui), -1);
    EXPECT_TRUE(ui.saw("File Input Error", "Not Valid TULVA Data File Format"));
    EXPECT_FALSE(std::filesystem::exists(dir.file("o.dat")));
    for (const auto& e : std::filesystem::directory_iterator(dir.path()))
        EXPECT_NE(e.path().filename().string()[0], '.') << e.path();
}

TEST(PhaseRun, ZippedSourceIsWrittenBackZippedWithTheBlock) {
    TempDir dir;
    const std::string plain = simulate(dir, "sim.dat", params(1 << 12), ions());
    const std::string original = test::read_file(plain);
    ASSERT_EQ(zip1(plain, dir.path().string()), 0);
    std::filesystem::remove(plain);  // the archive is all there is
    const std::string archive = plain + ".Z";
    const std::string archive_bytes = test::read_file(archive);
    RecordingUi ui;

    const std::string out = dir.file("terms.dat.Z");
    ASSERT_EQ(Save_Tulva_Phase_Coeff(archive, out, 150, 0.0005, 12.5, 500000, 20000, 0, 0, 1e6, 0, ui), 0);
    EXPECT_FALSE(std::filesystem::exists(dir.file("terms.dat")));  // only the packed copy stays
    ASSERT_EQ(unzip1(out, dir.path().string(), "check.dat"), UNZIP_OK);
    const std::string text = test::read_file(dir.file("check.dat"));
    EXPECT_NE(text.find("Phase Parameters:\nOptimized Sweep Rate:150.0000\nOptimized Delay:0.000500000000\n"
                        "Optimized Constant:12.500000000000\n"),
              std::string::npos);
    // The samples behind the marker are the source's, byte for byte.
    const auto data_of = [](const std::string& b) { return b.substr(b.find("\nData:\n") + 7); };
    EXPECT_EQ(data_of(text), data_of(original));
    EXPECT_EQ(open(dir.file("check.dat")).phaseparams, 1);

    // An output without ".Z" is packed as OUT.Z; when that is the source
    // itself, nothing is written.
    EXPECT_EQ(Save_Tulva_Phase_Coeff(archive, plain, 150, 0, 0, 1, 1, 0, 0, 1, 0, ui), -1);
    EXPECT_EQ(test::read_file(archive), archive_bytes);
    ASSERT_EQ(Save_Tulva_Phase_Coeff(archive, dir.file("other.dat"), 150, 0, 0, 1, 1, 0, 0, 1, 0, ui), 0);
    EXPECT_TRUE(std::filesystem::exists(dir.file("other.dat.Z")));

    // A damaged archive is refused with the reader's words.
    const std::string broken = dir.write("broken.dat.Z", archive_bytes.substr(0, archive_bytes.size() / 2));
    RecordingUi bad;
    EXPECT_EQ(Save_Tulva_Phase_Coeff(broken, dir.file("b.dat.Z"), 150, 0, 0, 1, 1, 0, 0, 1, 0, bad), -1);
    EXPECT_TRUE(bad.saw("File Input Error", "Not Valid TULVA Data File Format"));
    EXPECT_FALSE(std::filesystem::exists(dir.file("b.dat.Z")));
    for (const auto& e : std::filesystem::directory_iterator(dir.path()))
        EXPECT_NE(e.path().filename().string()[0], '.') << e.path();  // no unpacked copy left behind
}

// Full width at half maximum of the peak whose top is at or next to k, by
// linear interpolation on both sides.
double fwhm(const std::vector<float>& y, std::size_t k) {
    while (k + 1 < y.size() && y[k + 1] > y[k]) ++k;
    while (k > 0 && y[k - 1] > y[k]) --k;
    const double half = y[k] / 2.0;
    std::size_t l = k, r = k;
    while (l > 0 && y[l] > half) --l;
    while (r + 1 < y.size() && y[r] > half) ++r;
    const double left = l + (half - y[l]) / (y[l + 1] - y[l]);
    const double right = r - 1 + (y[r - 1] - half) / (y[r - 1] - y[r]);
    return right - left;
}

TEST(PhaseRun, AbsorptionPeaksAreNarrower) {
    TempDir dir;
    const SimParameters p = params(1 << 17);
    const double acquisition = p.points / (2.0 * p.dbandwidth);
    struct Case {
        const char* name;
        double decay;
        double ratio;  // median magnitude / absorption width at least
    };
    for (const Case& c : std::vector<Case>{{"long-lived", 0.0, 1.9}, {"fast-decaying", acquisition / 10.0, 1.65}}) {
        SCOPED_TRACE(c.name);
        const std::vector<SimIon> v = ions(c.decay);
        Spectrum s = open(simulate(dir, "w.dat", p, v));
        PhaseRunOptions o;
        o.initial_form = true;
        o.zerofills = 2;
        PhaseRunResult r;
        RecordingUi ui;
        ASSERT_EQ(phase_spectrum(s, o, ui, &r), 0);
        std::vector<float> mag(s.realdata.size());
        for (std::size_t k = 0; k < mag.size(); ++k) mag[k] = std::hypot(s.realdata[k], s.imagdata[k]);
        std::vector<double> ratios;
        for (const SimIon& ion : v) {
            const std::size_t k = static_cast<std::size_t>(std::lround(ion_frequency(p, ion.mz) / s.hzppt));
            ratios.push_back(fwhm(mag, k) / fwhm(s.data, k));
        }
        std::sort(ratios.begin(), ratios.end());
        const double median = ratios[ratios.size() / 2];
        EXPECT_GE(median, c.ratio);
    }

}

// Mean of the noise-only stretches of a phased spectrum in units of the noise
// sigma, for each baseline method; the worst stretch is returned.
double worst_noise_mean(bool median, bool roll, int* regions_out) {
    TempDir dir;
    SimParameters q = params(1 << 16);
    q.noise = 0.05;
    std::vector<SimIon> v = ions(0.05);
    Spectrum s = open(simulate(dir, "n.dat", q, v));
    PhaseRunOptions o;
    o.initial_form = true;
    o.roll = roll;
    o.median_baseline = median;
    RecordingUi ui;
    PhaseRunResult r;
    EXPECT_EQ(phase_spectrum(s, o, ui, &r), 0);
    double worst = 0.0;
    // Stretches of 400 points at least 300 points away from every ion.
    std::vector<std::size_t> tops;
    for (const SimIon& ion : v) tops.push_back(static_cast<std::size_t>(ion_frequency(q, ion.mz) / s.hzppt));
    int regions = 0;
    for (std::size_t a = r.band_start + 1000; a + 400 < static_cast<std::size_t>(r.band_end); a += 400) {
        bool clear = true;
        for (std::size_t t : tops)
            if (t + 300 > a && t < a + 700) clear = false;
        if (!clear) continue;
        double sum = 0, sq = 0;
        std::vector<double> im;
        for (std::size_t k = a; k < a + 400; ++k) {
            sum += s.data[k];
            im.push_back(s.imagdata[k]);
        }
        // sigma of the noise from the untouched complex spectrum of the same stretch
        double m = 0;
        for (double x : im) m += x;
        m /= im.size();
        for (double x : im) sq += (x - m) * (x - m);
        const double sigma = std::sqrt(sq / im.size());
        worst = std::max(worst, std::fabs(sum / 400.0) / sigma);
        ++regions;
    }
    *regions_out = regions;
    return worst;
}

TEST(PhaseRun, BaselineOfTheNoiseBetweenThePeaks) {
    int regions = 0;
    // The window medians leave the noise centred on zero.
    EXPECT_LE(worst_noise_mean(true, false, &regions), 0.5);
    EXPECT_GE(regions, 5);
    // The dips joined by lines ("Correct Baseline Roll") rest on the lower
    // envelope of the noise and lift it by more than a sigma: kept for
    // compatibility, shown here so that nobody takes it for a zero level.
    EXPECT_GT(worst_noise_mean(false, true, &regions), 1.0);
    // Unjoined, the isolated dips are diluted by the smoothing: within the goal.
    EXPECT_LE(worst_noise_mean(false, false, &regions), 0.5);
}

}  // namespace
}  // namespace vx
