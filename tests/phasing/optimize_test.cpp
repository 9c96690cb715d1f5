// Trying constants on a part of the spectrum: the range scores, the three-point
// peak test and the unwrapping of phases.
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include <gtest/gtest.h>

#include "phasing/optimize.hpp"

namespace vx {
namespace {

constexpr double PI = std::numbers::pi;

TEST(PhaseOptimization, RangeScoresPointPeakAndUnwrap) {
    // One line at 50.3 turned by -1 rad.
    std::vector<float> re(100), im(100);
    std::vector<double> curve(100, 0.0);
    for (int k = 0; k < 100; ++k) {
        const std::complex<double> z = 3.0 / std::complex<double>(3.0, -(k - 50.3)) * std::polar(1.0, -1.0);
        re[k] = static_cast<float>(z.real());
        im[k] = static_cast<float>(z.imag());
    }
    const OptimizationResult r = CalculatePhaseOptimizationFreq(re, im, curve, 30, 70, -PI, 0.01, 629, 0.05);
    ASSERT_EQ(r.scores.size(), 629u);
    EXPECT_NEAR(r.best, 1.0, 0.05);
    EXPECT_EQ(CalculatePhaseOptimizationFreq(re, im, curve, 70, 30, 0, 0.1, 5, 0.05).best_index, -1);

    std::vector<double> constants;
    for (int i = 0; i < 360; ++i) constants.push_back(-PI + i * PI / 180);
    EXPECT_NEAR(CalculatePhaseOptimizationPoint(re, im, curve, 50, constants), 1.0, 0.1);
    // A flat stretch has no vertex for any constant.
    const std::vector<float> flat(10, 1.0f), zero(10, 0.0f);
    EXPECT_EQ(CalculatePhaseOptimizationPoint(flat, zero, std::vector<double>(10, 0.0), 5, constants), -1.0);
    EXPECT_EQ(CalculatePhaseOptimizationPoint(flat, zero, std::vector<double>(10, 0.0), 0, constants), -1.0);

    double best = 0.0;
    EXPECT_EQ(MaximizebySteps(std::vector<double>{1, 3, 3, 2}, [](double c) { return c; }, best), 1);
    EXPECT_EQ(best, 3.0);
    EXPECT_EQ(MaximizebySteps(std::vector<double>{1, 2}, [](double c) { return c; }, best), -1);

    // Reversed, then every drop adds a turn to it and all that follow.
    const std::vector<double> u = UnWrapPhase({3.0, 1.0, 2.0, 0.5});
    ASSERT_EQ(u.size(), 4u);
    EXPECT_DOUBLE_EQ(u[0], 0.5);
    EXPECT_DOUBLE_EQ(u[1], 2.0);
    EXPECT_DOUBLE_EQ(u[2], 1.0 + 2 * PI);
    EXPECT_DOUBLE_EQ(u[3], 3.0 + 2 * PI);
}

}  // namespace
}  // namespace vx
