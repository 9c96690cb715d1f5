#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

#include "peaks/noise.hpp"
#include "peaks/synthetic.hpp"

namespace vx {
namespace {

// The estimator as the procedure reads, with 100 counting passes and a sorted
// median, to hold the one-pass binning of the library against.
double literal_noise(std::vector<double> v, double divisor, double* width) {
    const std::size_t n = v.size();
    double mean = 0.0;
    for (double x : v) mean += x;
    mean /= n;
    double ss = 0.0;
    for (double x : v) ss += (x - mean) * (x - mean);
    const double sd = n > 1 ? std::sqrt(ss / (n - 1)) : 0.0;
    std::vector<double> sorted = v;
    std::sort(sorted.begin(), sorted.end());
    const double median = n % 2 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) / 2.0;
    const double step = sd / divisor;
    std::vector<double> c(100);
    for (int k = 0; k < 100; ++k) {
        const double level = std::max(0.0, (k - 50) * step + median);
        c[k] = static_cast<double>(std::count_if(v.begin(), v.end(), [&](double x) { return x < level; }));
    }
    for (int pass = 0; pass < 5; ++pass) TGR_smooth(c.data(), 100, 5);
    std::vector<double> d(100);
    d[0] = (-3 * c[0] + 4 * c[1] - c[2]) / 2;
    for (int k = 1; k < 99; ++k) d[k] = (c[k + 1] - c[k - 1]) / 2;
    d[99] = (3 * c[99] - 4 * c[98] + c[97]) / 2;
    const int m = static_cast<int>(std::max_element(d.begin(), d.end()) - d.begin());
    const int h = static_cast<int>(std::count_if(d.begin(), d.end(), [&](double x) { return x > d[m] / 2; }));
    *width = step * 0.5 * h;
    return (m - 50) * step + median;
}

TEST(TgrSmooth, NarrowingMovingAverageOfTheOriginalValues) {
    struct Case {
        std::vector<double> in;
        int width;
        std::vector<double> out;
    };
    const std::vector<Case> cases = {
        {{0, 0, 10, 0, 0}, 5, {0, 10.0 / 3, 2, 10.0 / 3, 0}},
        {{0, 0, 10, 0, 0}, 3, {0, 10.0 / 3, 10.0 / 3, 10.0 / 3, 0}},
        {{1, 2, 3, 4}, 1, {1, 2, 3, 4}},     // half width 0: unchanged
        {{6, 0, 0, 0, 0, 0, 6}, 4, {6, 2, 1.2, 0, 1.2, 2, 6}},  // ends keep their own value
        {{5}, 5, {5}},
    };
    for (const auto& c : cases) {
        auto v = c.in;
        TGR_smooth(v.data(), static_cast<int>(v.size()), c.width);
        for (std::size_t i = 0; i < v.size(); ++i) EXPECT_NEAR(v[i], c.out[i], 1e-12) << "width " << c.width << " i " << i;
    }
}

TEST(HistogramNoise, OnePassBinningEqualsTheHundredPassCount) {
    std::mt19937 rng(7);
    std::exponential_distribution<double> e(0.1);
    std::normal_distribution<double> g(50.0, 5.0);
    std::uniform_int_distribution<int> small(0, 6);
    std::vector<std::pair<const char*, std::vector<double>>> sets;
    std::vector<double> a(5001), b(4000), c(999), d(64);
    for (double& x : a) x = e(rng);
    for (double& x : b) x = std::fabs(g(rng));
    for (double& x : c) x = small(rng);  // many samples exactly on a level
    for (std::size_t i = 0; i < d.size(); ++i) d[i] = i % 8 == 0 ? 1000.0 : 3.0;
    sets = {{"exponential", a}, {"gaussian", b}, {"integers", c}, {"two values", d}};
    for (double divisor : {2.5, 25.0, 400.0}) {
        for (const auto& [name, v] : sets) {
            double w_ref = -1, w = -1;
            const double ref = literal_noise(v, divisor, &w_ref);
            std::vector<double> stats = v;
            const double got = histogram_noise(std::span<double>(stats), std::span<const double>(v), divisor, &w);
            // Same mode index and count: equal up to the last bits of the deviation.
            EXPECT_NEAR(got, ref, 1e-9 * (1.0 + std::fabs(ref))) << name << " divisor " << divisor;
            EXPECT_NEAR(w, w_ref, 1e-9 * (1.0 + w_ref)) << name << " divisor " << divisor;
        }
    }
}

TEST(CalculateNoise, DistributionShapesAndDegenerateWindows) {
    const int n = 1 << 18;
    // With the step of a 5 m/z window (deviation / 2.5) the smoothed histogram
    // cannot resolve the mode of exponential noise: the level lands at the
    // median, still well below the mean.
    {
        Spectrum s = test::blank_spectrum(1 << 22);
        test::add_exponential_noise(s, 10.0, 11);
        double width = -1;
        const double base = CalculateNoise(s, 500.0, 5.0, &width);
        EXPECT_NEAR(base, 10.0 * std::log(2.0), 0.5);
        EXPECT_GT(width, 0.0);
    }
    // Rayleigh noise of sigma 2 (mode 2, median 2.35, mean 2.51).
    Spectrum s = test::blank_spectrum(1 << 20);
    test::add_rayleigh_noise(s, 2.0, 12);
    double width = -1;
    const double base = CalculateNoise(s, 500.0, 5.0, &width);
    EXPECT_GE(base, 2.0);
    EXPECT_LT(base, 2.6);
    EXPECT_GT(width, 1.0);

    // One huge peak in the window leaves the level where it was.
    Spectrum peaked = s;
    peaked.data[static_cast<std::size_t>(test::point_of(s, 500.0))] = 1.0e7f;
    for (int i = 1; i < 6; ++i) peaked.data[static_cast<std::size_t>(test::point_of(s, 500.0)) + i] = 1.0e6f;
    double width2 = -1;
    const double base2 = CalculateNoise(peaked, 500.0, 5.0, &width2);
    EXPECT_NEAR(base2, base, 0.1 * base);

    // All-zero window: 0 and 0. Constant window: the constant and width 0.
    Spectrum zero = test::blank_spectrum(n);
    double wz = -1;
    EXPECT_EQ(CalculateNoise(zero, 500.0, 5.0, &wz), 0.0);
    EXPECT_EQ(wz, 0.0);
    Spectrum flat = test::blank_spectrum(n);
    std::fill(flat.data.begin(), flat.data.end(), 7.5f);
    double wf = -1;
    EXPECT_DOUBLE_EQ(CalculateNoise(flat, 500.0, 5.0, &wf), 7.5);
    EXPECT_EQ(wf, 0.0);

    // A window wholly beyond the last point comes back as the last sample.
    Spectrum tail = test::blank_spectrum(n);
    tail.data.back() = 42.0f;
    double wt = -1;
    const double low_mz = SPt_tomass(tail, n + 1000.0) - 10.0;
    EXPECT_DOUBLE_EQ(CalculateNoise(tail, low_mz, 5.0, &wt), 42.0);
    EXPECT_EQ(wt, 0.0);
}

TEST(CalculateThrashNoise, RenewalMarkerAndSecondArray) {
    Spectrum s = test::blank_spectrum(1 << 21);
    test::add_rayleigh_noise(s, 1.0, 3);
    double next = 600.0, width = -5.0;
    int calculated = 0;
    // Marker above the centre: the given value comes back, nothing changes.
    EXPECT_EQ(CalculateThrashNoise(s, 500.0, &next, 0, &calculated, &width, 123.0), 123.0);
    EXPECT_EQ(width, -5.0);
    EXPECT_EQ(calculated, 0);
    EXPECT_EQ(next, 600.0);

    next = 400.0;
    const double base = CalculateThrashNoise(s, 500.0, &next, 0, &calculated, &width, 123.0);
    EXPECT_EQ(calculated, 1);
    EXPECT_EQ(next, 520.0);
    EXPECT_NEAR(base, 1.0, 0.2);
    EXPECT_NEAR(width, 0.8, 0.25);

    // With data2 the median and deviation come from it: a doubled second
    // array moves the estimate although the counted samples are the same.
    s.data2.assign(s.data.begin(), s.data.end());
    for (float& v : s.data2) v *= 2.0f;
    next = 0.0;
    double width2 = 0;
    const double base2 = CalculateThrashNoise(s, 500.0, &next, 1, &calculated, &width2, 0.0);
    EXPECT_GT(std::fabs(base2 - base), 0.05);
}

TEST(NoiseVariants, WholeArrayAndIndexedForms) {
    std::mt19937 rng(5);
    std::normal_distribution<double> g(0.0, 1.0);
    std::vector<float> a(20000);
    for (float& v : a) {
        const double re = g(rng), im = g(rng);
        v = static_cast<float>(std::sqrt(re * re + im * im));
    }
    double w = -1;
    const double rp = CalculateThrashNoise_RP(a.data(), static_cast<long>(a.size()), &w);
    EXPECT_NEAR(rp, 1.0, 0.15);
    double w2 = -1;
    EXPECT_EQ(CalculateThrashNoiseForRePhaseCalcs(a.data(), static_cast<long>(a.size()), &w2), rp);
    EXPECT_EQ(w2, w);

    // Exponential noise with the THRASH step: the mode near 0, far below the
    // median (6.93) and the mean (10).
    std::vector<float> ex(40000);
    std::exponential_distribution<double> e(0.1);
    for (float& v : ex) v = static_cast<float>(e(rng));
    double wx = -1;
    const double mode = CalculateThrashNoise_RP(ex.data(), static_cast<long>(ex.size()), &wx);
    EXPECT_LT(mode, 3.0);
    EXPECT_GT(mode, -1.0);

    // Empty array: every count 0.
    double we = -1;
    EXPECT_EQ(CalculateThrashNoise_RP(a.data(), 0, &we), 0.0);
    EXPECT_EQ(we, 0.0);

    // a below b: all counts 0, the mode is level 0: median - 50 steps.
    std::vector<float> ramp(100);
    std::iota(ramp.begin(), ramp.end(), 0.0f);
    double wi = -1;
    const double reversed = CalculateNoiseIndex(ramp, &wi, 10, 30);  // |10 + 1 - 30| = 19 samples from 10
    // median of 10..28 is 19, deviation of 19 consecutive integers sqrt(19 * 20 / 12), step / 10
    EXPECT_NEAR(reversed, 19.0 - 50.0 * std::sqrt(19.0 * 20.0 / 12.0) / 10.0, 1e-9);
    EXPECT_EQ(wi, 0.0);

    // The float64 form extends its counts past a: with a tail that differs
    // beyond a, the two forms part.
    std::vector<double> d(ramp.begin(), ramp.end());
    for (std::size_t i = 60; i < d.size(); ++i) d[i] = 0.0;
    std::vector<float> f(d.begin(), d.end());
    double w3 = 0, w4 = 0;
    const double idx = CalculateNoiseIndex(f, &w3, 50, 20);
    const double idxd = CalculateNoiseIndexed(d, &w4, 50, 20);
    EXPECT_NE(idx, idxd);
    double w5 = 0;
    EXPECT_EQ(CalculateNoiseIndexed_RP(d, &w5, 50, 20), idxd);
    // Indexes past the array are cut to it, never read.
    double w6 = 0;
    EXPECT_TRUE(std::isfinite(CalculateNoiseIndexed(d, &w6, 95, 0)));

    std::array<float, 3> row{};
    NoiseCalThread({std::span<const float>(a), 2.5, 7.0f}, row);
    EXPECT_EQ(row[2], 7.0f);
    EXPECT_NEAR(row[0], 1.0, 0.3);
}

}  // namespace
}  // namespace vx
