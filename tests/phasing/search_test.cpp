// The score, the ladder of the constant search, the analytical constants, and
// the baseline taken from the dips of a phased spectrum.
#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "phasing/phase_search.hpp"

namespace vx {
namespace {

constexpr double PI = std::numbers::pi;

// Absorption/dispersion Lorentzians turned by -c0 (rad), so that a rotation
// by c0 makes them pure absorption again; plus a little noise.
struct Band {
    std::vector<float> re, im;
    std::vector<double> curve;
};
Band lorentz_band(double c0_degrees, int n = 4000, double noise = 0.01) {
    Band b;
    b.re.resize(n);
    b.im.resize(n);
    b.curve.assign(n, 0.0);
    std::mt19937 rng(5);
    std::normal_distribution<double> g(0.0, noise);
    const std::complex<double> turn = std::polar(1.0, -c0_degrees * PI / 180.0);
    for (int k = 0; k < n; ++k) {
        std::complex<double> z = 0;
        for (double f0 : {400.0, 1300.5, 2222.25, 3500.0}) {
            const double gam = 3.0;
            z += 10.0 * gam / std::complex<double>(gam, -(k - f0));
        }
        z = z * turn + std::complex<double>(g(rng), g(rng));
        b.re[k] = static_cast<float>(z.real());
        b.im[k] = static_cast<float>(z.imag());
    }
    return b;
}

TEST(PhaseSearch, LadderFindsAKnownConstant) {
    // The score is flat near its top (it falls with the cube of the error), so
    // a band of overlapping, cut-off lines may put the top a degree or two
    // away from the truth; the ladder must land there and never wrap.
    for (double truth : {37.0, -90.0, 0.0, 143.0, -179.0, 178.0, -5.0, 100.0}) {
        SCOPED_TRACE(truth);
        const Band b = lorentz_band(truth);
        const PhaseScoreWorkers w(b.re.data(), b.im.data(), b.curve.data(), b.re.size(), 0.5, 4);
        const LadderResult r = phase_ladder(w);
        double err = std::fmod(r.best_degrees - truth + 540.0, 360.0) - 180.0;
        EXPECT_LE(std::fabs(err), 2.0) << r.best_degrees;
        EXPECT_GE(r.best_degrees, -180 - 36);
        EXPECT_LE(r.best_degrees, 144 + 36);
        // No trial of a finer step next to the answer scores higher.
        const auto nb = w.score({(r.best_degrees - 1) * PI / 180, (r.best_degrees + 1) * PI / 180});
        EXPECT_LE(nb[0].score, r.score);
        EXPECT_LE(nb[1].score, r.score);
        EXPECT_EQ(r.evaluations, 10 + 16 + 8);
        EXPECT_GT(r.score, 0.0);
        EXPECT_LT(r.drop, 0.05 * r.score);  // in absorption almost nothing is negative
    }
}

TEST(PhaseSearch, ScoresDoNotDependOnWorkersAndMatchTheDirectScore) {
    Band b = lorentz_band(25.0, 100000);
    // A real curve: the fast path turns the band by it once.
    for (std::size_t k = 0; k < b.curve.size(); ++k) b.curve[k] = 1e-7 * static_cast<double>(k * k) - 0.001 * k;
    const std::vector<double> angles = {-3.0, -1.0, 0.0, 0.4363, 2.5};
    const PhaseScoreWorkers one(b.re.data(), b.im.data(), b.curve.data(), b.re.size(), 0.5, 1);
    const PhaseScoreWorkers four(b.re.data(), b.im.data(), b.curve.data(), b.re.size(), 0.5, 4);
    const auto a = one.score(angles), c = four.score(angles);
    for (std::size_t t = 0; t < angles.size(); ++t) {
        EXPECT_EQ(a[t].score, c[t].score);  // bit for bit
        EXPECT_EQ(a[t].drop, c[t].drop);
        ScoreJob job{b.re.data(), b.im.data(), b.curve.data(), b.re.size(), 0.5, angles[t]};
        const ScoreResult d = ScorePhase0(job);
        // the turned band is kept in single precision, like the spectrum
        EXPECT_NEAR(a[t].score, d.score, 1e-6 * d.score);
        EXPECT_NEAR(a[t].drop, d.drop, 1e-6 * d.drop + 1e-9);
    }
}

TEST(PhaseSearch, ThresholdTiesAndEmptyBands) {
    // y exactly at the threshold counts in neither sum.
    const std::vector<float> re = {2.0f, -2.0f, 3.0f, -3.0f}, im(4, 0.0f);
    const std::vector<double> curve(4, 0.0);
    ScoreJob job{re.data(), im.data(), curve.data(), 4, 2.0, 0.0};
    const ScoreResult d = ScorePhase0(job);
    EXPECT_DOUBLE_EQ(d.score, 9.0);
    EXPECT_DOUBLE_EQ(d.drop, 9.0);
    const PhaseScoreWorkers w(re.data(), im.data(), curve.data(), 4, 2.0, 2);
    EXPECT_DOUBLE_EQ(w.score({0.0})[0].score, 9.0);
    EXPECT_DOUBLE_EQ(w.score({0.0})[0].drop, 9.0);

    // Zeros: no positive score anywhere, the constant stays 0.
    const std::vector<float> z(100, 0.0f);
    const std::vector<double> zc(100, 0.0);
    const LadderResult r = phase_ladder(PhaseScoreWorkers(z.data(), z.data(), zc.data(), 100, 0.0, 2));
    EXPECT_EQ(r.best_degrees, 0);
    EXPECT_EQ(r.score, 0.0);
    const LadderResult e = phase_ladder(PhaseScoreWorkers(nullptr, nullptr, nullptr, 0, 0.0, 2));
    EXPECT_EQ(e.best_degrees, 0);

    // Two points whose scores are cos^2 of the trial: the top at 0 on rung one,
    // and each later rung's trials tie in pairs (+-d): 0 stays.
    const std::vector<float> one_re = {1.0f, 1.0f}, one_im = {0.0f, 0.0f};
    const std::vector<double> one_c = {0.0, 0.0};
    const LadderResult t = phase_ladder(PhaseScoreWorkers(one_re.data(), one_im.data(), one_c.data(), 2, 0.0, 2));
    EXPECT_EQ(t.best_degrees, 0);
    EXPECT_DOUBLE_EQ(t.score, 2.0);
}

TEST(PhaseSearch, AnalyticalConstants) {
    struct Case {
        int method;
        double rate;
        int polarity;
        double harmonic;
        int degrees;
    };
    for (const Case& c : std::vector<Case>{{1, 150, 0, 1, 45},
                                           {1, -150, 0, 1, -45},
                                           {1, -150, 1, 1, 45},
                                           {1, 150, 1, 1, -45},
                                           {2, 150, 0, 1, -45},
                                           {2, -150, 0, 1, 45},
                                           {1, 150, 0, 3, 135},
                                           {2, -150, 1, 3, -135}}) {
        EXPECT_EQ(analytical_degrees(c.method, c.rate, c.polarity, c.harmonic), c.degrees)
            << c.method << " " << c.rate << " " << c.polarity << " " << c.harmonic;
    }
}

TEST(PhaseBaseline, MinimaJoinSmoothAndFloor) {
    // Minima: strict, below the limit, and with a neighbour ratio below 2.
    const std::vector<float> y = {5, -1, 5, 3, -2, 3, 1, -3, 8, 0, 0.5f, 0, 4, 2, 4};
    const std::vector<double> b = baseline_minima(y, 1.0);
    const std::vector<double> want = {0, -1, 0, 0, -2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    // index 7: |8 / 1| = 8 fails the ratio; 13: 2 is not below the limit; 9..11: 0.5 is no minimum
    EXPECT_EQ(b, want);

    std::vector<double> j = {0, 0, -1, 0, 0, -4, 0, 0};
    join_baseline(j);
    EXPECT_EQ(j, (std::vector<double>{0, 0, -1, -2, -3, -4, 0, 0}));  // nothing before the first or after the last

    // In-place smoothing: the left half of every window is already smoothed.
    std::vector<double> s(30, 0.0);
    s[15] = 21.0;
    std::vector<double> direct = s;
    for (int i = 10; i <= 30 - 11; ++i) {
        double sum = 0;
        for (int k = i - 10; k <= i + 10; ++k) sum += direct[k];
        direct[i] = sum / 21.0;
    }
    smooth_baseline_in_place(s, 10);
    for (int i = 0; i < 30; ++i) EXPECT_NEAR(s[i], direct[i], 1e-12) << i;
    EXPECT_NE(s[16], s[14]);  // recursive: not symmetric about the spike

    // The floor holds, and the end points are never changed.
    std::vector<float> deep(50, -200000.0f);
    deep[0] = 7.0f;
    deep[49] = 7.0f;
    remove_phase_baseline(deep, 1.0, true, 10, -150000.0);
    EXPECT_EQ(deep[0], 7.0f);
    EXPECT_EQ(deep[49], 7.0f);
    for (int i = 1; i < 49; ++i) EXPECT_GE(deep[i], -150000.0f);
}

}  // namespace
}  // namespace vx
