// Robust noise against the literal S/N search: the literal estimate's ratchet
// stays as it is, the robust one gives the simulated truth.
//
// Truth of a simulated spectrum: the noise alone is Rayleigh distributed with
// parameter sigma (sigma^2 = mean square / 2 of a noise-only spectrum of the
// same seed); its mode is sigma and its half width at half maximum 0.8013
// sigma. An ion's S/N is its noise-free height above that mode over that
// half width, which is what the histogram method measures on noise alone.
#include <gtest/gtest.h>

#include <cmath>
#include <iostream>
#include <random>
#include <span>

#include <fmt/format.h>

#include "peaks/find_peaks.hpp"
#include "peaks/noise.hpp"
#include "peaks/synthetic.hpp"
#include "platform/ui.hpp"
#include "sim/simulator.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"
#include "workspace/processing.hpp"

namespace vx {
namespace {

constexpr double RAYLEIGH_HALF_WIDTH = 0.80126;  // in units of sigma

std::vector<float> rayleigh(std::size_t n, double sigma, unsigned seed) {
    Spectrum s = test::blank_spectrum(static_cast<int>(n));
    test::add_rayleigh_noise(s, sigma, seed);
    return s.data;
}

TEST(RobustNoise, GivesTheNoiseOfAWindowWhateverItsPeaks) {
    struct Case {
        double sigma;
        std::size_t n;
        int peaks;         // Lorentzian lines in the window
        double height;     // their height over sigma
        double half_width; // points
    };
    const std::vector<Case> cases = {
        {1.0, 4096, 0, 0.0, 0.0},       {3.5, 8192, 0, 0.0, 0.0},     {1.0, 4096, 1, 1.0e4, 1.5},
        {2.0, 4096, 6, 5.0e3, 2.0},     {1.0, 4096, 12, 300.0, 2.0},   // a crowded window
        {0.01, 4096, 3, 50.0, 1.5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(fmt::format("sigma {} n {} peaks {}", c.sigma, c.n, c.peaks));
        std::vector<float> y = rayleigh(c.n, c.sigma, 11);
        std::mt19937 rng(5);
        std::uniform_real_distribution<double> where(0.0, static_cast<double>(c.n));
        for (int k = 0; k < c.peaks; ++k) {
            const double centre = where(rng);
            for (std::size_t i = 0; i < c.n; ++i) {
                const double x = (static_cast<double>(i) - centre) / c.half_width;
                y[i] += static_cast<float>(c.height * c.sigma / (1.0 + x * x));
            }
        }
        double width = 0.0;
        const double baseline = robust_noise(y, &width);
        // The mode of a few thousand samples is known to some 10 %, less
        // where the peaks leave fewer.
        EXPECT_NEAR(baseline, c.sigma, (c.peaks ? 0.25 : 0.1) * c.sigma);
        EXPECT_NEAR(width, RAYLEIGH_HALF_WIDTH * c.sigma, 0.15 * c.sigma);

        // The literal estimate over the same samples, with the step of a
        // 5 m/z window: peaks widen it many times over.
        if (c.peaks > 0 && c.height > 100.0) {
            std::vector<double> stats(y.begin(), y.end());
            double literal = 0.0;
            histogram_noise(std::span<double>(stats), std::span<const float>(y), 2.5, &literal);
            EXPECT_GT(literal, 3.0 * width);
        }
    }

    // No samples, a flat window, one sample.
    double width = -1.0;
    EXPECT_EQ(robust_noise({}, &width), 0.0);
    EXPECT_EQ(width, 0.0);
    const std::vector<float> flat(500, 7.0f);
    EXPECT_EQ(robust_noise(flat, &width), 7.0);
    EXPECT_EQ(width, 0.0);
    const std::vector<float> one(1, 3.0f);
    EXPECT_EQ(robust_noise(one, &width), 3.0);
}

TEST(RobustNoise, WindowOfAtLeastTheMinimumPointsInsideTheData) {
    // A short spectrum: 5 m/z hold a few dozen points, the robust window
    // widens to the minimum and stays within the data at both ends.
    Spectrum s = test::blank_spectrum(16384);
    test::add_rayleigh_noise(s, 2.0, 3);
    for (const double centre : {60.0, 500.0, 2000.0, 1.0e6}) {
        double width = 0.0;
        const double baseline = CalculateNoiseRobust(s, centre, 5.0, &width);
        EXPECT_NEAR(baseline, 2.0, 0.2) << centre;
        EXPECT_NEAR(width, RAYLEIGH_HALF_WIDTH * 2.0, 0.25) << centre;
    }
    Spectrum tiny = test::blank_spectrum(10);
    double width = 0.0;
    EXPECT_EQ(CalculateNoiseRobust(tiny, 500.0, 5.0, &width), 0.0);
    Spectrum none;
    EXPECT_EQ(CalculateNoiseRobust(none, 500.0, 5.0, &width), 0.0);
}

// ---------------------------------------------------------------------------
// Simulated transients through the whole chain.

struct Chain {
    Spectrum noisy, clean, noise;
};

Spectrum processed(const std::string& file) {
    Workspace ws;
    RecordingUi ui;
    const int slot = test::open_tulva_file(ws, file, ui);
    EXPECT_GE(slot, 0);
    if (slot < 0) return {};
    ProcessCommandResult r;
    EXPECT_EQ(process_command(ws, ui, &r), 0);
    return ws.panels[static_cast<std::size_t>(slot)].spectrum;
}

// The transient of the ions with noise, without noise, and the noise alone.
Chain simulate_chain(const std::vector<SimIon>& ions, SimParameters p) {
    test::TempDir dir;
    RecordingUi ui;
    Chain c;
    EXPECT_EQ(write_simulated_file(dir.file("n.dat"), p, ions, ui), 0);
    std::vector<SimIon> silent = ions;
    for (SimIon& ion : silent) ion.abundance = 0.0;
    EXPECT_EQ(write_simulated_file(dir.file("z.dat"), p, silent, ui), 0);
    p.noise = 0.0;
    p.int_storage = false;
    EXPECT_EQ(write_simulated_file(dir.file("c.dat"), p, ions, ui), 0);
    c.noisy = processed(dir.file("n.dat"));
    c.clean = processed(dir.file("c.dat"));
    c.noise = processed(dir.file("z.dat"));
    return c;
}

struct Truth {
    double mz, sn, tolerance;  // tolerance: half the line's width at half height, m/z
};

std::vector<Truth> truth_of(const Chain& c, const std::vector<SimIon>& ions, double low, double high) {
    // Rayleigh sigma of the noise over the searched points.
    const long a = std::max(0L, static_cast<long>(SMass_toPt(c.noise, high)));
    const long b = std::min(static_cast<long>(c.noise.data.size()) - 1, static_cast<long>(SMass_toPt(c.noise, low)));
    double sum = 0.0;
    for (long i = a; i <= b; ++i) sum += static_cast<double>(c.noise.data[static_cast<std::size_t>(i)]) * c.noise.data[static_cast<std::size_t>(i)];
    const double sigma = std::sqrt(sum / static_cast<double>(b - a + 1) / 2.0);
    // Noise-free heights and widths, from the same search on the clean spectrum.
    Spectrum clean = c.clean;
    Settings st;
    st.low_mass = low;
    st.high_mass = high;
    st.peak_threshold = 1e-3 * sigma;
    st.noise_threshold = 1e-4 * sigma;
    PeakTable table;
    RecordingUi ui;
    FindPeaksReborn(clean, st, -1.0, table, ui);
    std::vector<Truth> truth;
    for (const SimIon& ion : ions) {
        const Peak* p = test::nearest_peak(clean.peaks, ion.mz);
        EXPECT_NE(p, nullptr);
        if (!p) continue;
        truth.push_back({ion.mz, (p->abundance - sigma) / (RAYLEIGH_HALF_WIDTH * sigma), 0.5 * p->width});
    }
    return truth;
}

TEST(LiteralSnSearch, KeepsItsRatchetAndTheRobustSearchEndsIt) {
    // Twelve strong ions (S/N above 1000) that hardly decay in a short
    // transient. The literal estimate is centred on the segment just walked,
    // so a strong ion widens the width it is judged against, and renewal
    // waits for a segment above the widened noise level: most ions are lost,
    // and which depends on where the range begins. That is the search stored
    // results come from, so its counts are pinned here.
    std::vector<SimIon> ions;
    const double amplitude[12] = {0.31, 0.59, 0.43, 0.64, 0.66, 0.16, 0.11, 0.85, 0.33, 0.31, 1.0, 0.52};
    for (int k = 0; k < 12; ++k) ions.push_back({300.0 + 54.321 * k, amplitude[k], 0.3, 0.0, 1});
    SimParameters p;
    p.points = 65536;
    p.noise = DIGITISER_NOISE_V;
    p.seed = 5;
    p.collected_on = "test";
    const Chain c = simulate_chain(ions, p);
    const std::vector<Truth> truth = truth_of(c, ions, 250.0, 1000.0);
    ASSERT_EQ(truth.size(), 12u);

    struct Range {
        double low, high;
        int literal;  // ions the literal search lists
    };
    for (const auto& [low, high, literal_count] : std::vector<Range>{{250.0, 1000.0, 6}, {510.0, 1000.0, 5}, {250.0, 700.0, 2}}) {
        SCOPED_TRACE(fmt::format("{}..{}", low, high));
        int literal_found = 0;
        Settings st;
        st.sn_mode = 1;
        st.low_mass = low;
        st.high_mass = high;
        RecordingUi ui;
        PeakTable table;
        Spectrum literal = c.noisy, robust = c.noisy;
        FindPeaksReborn(literal, st, -1.0, table, ui);
        st.robust_noise = 1;
        FindPeaksReborn(robust, st, -1.0, table, ui);
        for (const Truth& t : truth) {
            if (t.mz < low || t.mz > high) continue;
            const Peak* l = test::nearest_peak(literal.peaks, t.mz);
            literal_found += l && std::fabs(l->mass - t.mz) < t.tolerance;
            const Peak* r = test::nearest_peak(robust.peaks, t.mz);
            ASSERT_NE(r, nullptr) << t.mz;
            EXPECT_LT(std::fabs(r->mass - t.mz), t.tolerance) << t.mz;
            EXPECT_NEAR(r->sn, t.sn, 0.2 * t.sn) << t.mz;
        }
        EXPECT_EQ(literal_found, literal_count);
    }
}

// Fifty ions, m/z 200 to 1000, S/N from 5 to 5000 (log-uniform), each decaying
// over a quarter to a half of the transient.
struct Goal {
    int wanted = 0, recalled = 0, listed = 0, false_peaks = 0;
};

Goal run_goal(bool robust, double threshold, const Chain& c, const std::vector<Truth>& truth) {
    Settings st;
    st.sn_mode = 1;
    st.low_mass = 190.0;
    st.high_mass = 1010.0;
    st.peak_sigma_factor = threshold;
    st.robust_noise = robust ? 1 : 0;
    Spectrum s = c.noisy;
    PeakTable table;
    RecordingUi ui;
    FindPeaksReborn(s, st, -1.0, table, ui);
    Goal g;
    g.listed = static_cast<int>(s.peaks.size());
    std::vector<bool> matched(s.peaks.size(), false);
    for (const Truth& t : truth) {
        bool hit = false;
        for (std::size_t i = 0; i < s.peaks.size(); ++i)
            if (std::fabs(s.peaks[i].mass - t.mz) <= t.tolerance) matched[i] = hit = true;
        if (t.sn >= 10.0) {
            ++g.wanted;
            g.recalled += hit;
        }
    }
    for (bool m : matched) g.false_peaks += !m;
    return g;
}

TEST(RobustNoise, FiftyIonsRecallAndFalsePeaks) {
    Goal robust, literal;
    for (unsigned seed = 1; seed <= 6; ++seed) {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<double> u(0.0, 1.0);
        SimParameters p;
        p.points = 262144;
        p.noise = DIGITISER_NOISE_V;
        p.seed = seed;
        p.collected_on = "test";
        const double T = p.points / (2.0 * p.dbandwidth);
        // Rayleigh sigma of the noise and the height per volt of an ion under
        // Hann apodisation and one zero fill, for the targets only; the truth
        // is measured.
        const double sigma = p.noise * 1.0e6 * std::sqrt(3.0 / 16.0) / (2.0 * std::sqrt(static_cast<double>(p.points)));
        std::vector<SimIon> ions;
        while (ions.size() < 50) {
            const double mz = 200.0 + 800.0 * u(rng);
            bool apart = true;
            for (const SimIon& ion : ions) apart = apart && std::fabs(ion.mz - mz) > 1.5;
            const double sn = std::pow(10.0, std::log10(5.0) + u(rng) * 3.0);
            const double tau = T * (0.25 + 0.25 * u(rng));
            if (!apart) continue;
            double gain = 0.0;
            for (int k = 0; k < 2000; ++k)
                gain += (0.5 - 0.5 * std::cos(2.0 * M_PI * k / 2000.0)) * std::exp(-k / 2000.0 * T / tau);
            gain = gain / 2000.0 * 5.0e5;
            ions.push_back({mz, (sn * RAYLEIGH_HALF_WIDTH + 1.0) * sigma / gain, tau, 0.0, 1});
        }
        const Chain c = simulate_chain(ions, p);
        const std::vector<Truth> truth = truth_of(c, ions, 190.0, 1010.0);
        ASSERT_EQ(truth.size(), 50u);
        for (auto [goal, robust_mode] : {std::pair<Goal*, bool>{&robust, true}, {&literal, false}}) {
            const Goal g = run_goal(robust_mode, 8.0, c, truth);
            goal->wanted += g.wanted;
            goal->recalled += g.recalled;
            goal->listed += g.listed;
            goal->false_peaks += g.false_peaks;
        }
    }
    auto line = [](const char* name, const Goal& g) {
        return fmt::format("{}: recall {}/{} ({:.1f} %) of ions with S/N >= 10, {} false of {} listed ({:.1f} %)\n", name,
                           g.recalled, g.wanted, 100.0 * g.recalled / g.wanted, g.false_peaks, g.listed,
                           g.listed ? 100.0 * g.false_peaks / g.listed : 0.0);
    };
    std::cout << line("robust", robust) << line("literal", literal);
    EXPECT_GE(robust.recalled, 0.99 * robust.wanted);
    EXPECT_LE(robust.false_peaks, 0.01 * robust.listed);
    EXPECT_LT(literal.recalled, robust.recalled / 2);
}

}  // namespace
}  // namespace vx
