// Section rephasing: the plan of the sections, the constant of a section, the
// noise-only section, where the constants land on the full spectrum, and the
// manual phase panel's curve and digit fields.
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include <gtest/gtest.h>

#include "phasing/phase_command.hpp"
#include "phasing/rephase.hpp"

namespace vx {
namespace {

constexpr double PI = std::numbers::pi;

// A spectrum of absorption lines turned by a constant that differs per part:
// `turn(k)` degrees at point k.
struct Data {
    std::vector<float> re, im;
    std::vector<double> phase;
};
template <class Turn>
Data lines(int n, Turn turn, double spacing = 300.0, double first = 100.0, double gamma = 10.0) {
    Data d;
    d.re.assign(n, 0.0f);
    d.im.assign(n, 0.0f);
    d.phase.assign(n, 0.0);
    for (double f0 = first; f0 < n; f0 += spacing)
        for (int k = 0; k < n; ++k) {
            const std::complex<double> z = 100.0 * gamma / std::complex<double>(gamma, -(k - f0)) *
                                           std::polar(1.0, -turn(static_cast<int>(f0)) * PI / 180.0);
            d.re[k] += static_cast<float>(z.real());
            d.im[k] += static_cast<float>(z.imag());
        }
    return d;
}

RephaseRecord record(const Data& d, int sections, int zoom_start, std::int64_t zoom_count) {
    RephaseRecord r;
    r.realdata = d.re.data();
    r.imagdata = d.im.data();
    r.phase = d.phase.data();
    r.N = static_cast<std::int64_t>(d.re.size());
    r.rephase_sections = sections;
    r.rephase_sn = 3.0;
    r.noise_sigma = 10.0;
    r.zoom_start = zoom_start;
    r.zoom_count = zoom_count;
    TransformAbsZoom(r);
    return r;
}

TEST(Rephase, SectionsArePlannedWithTheirQuirks) {
    const Data d = lines(1000, [](int) { return 0.0; });
    struct Case {
        int S;
        std::int64_t count;
        std::vector<std::int32_t> initial, final;
    };
    for (const Case& c : std::vector<Case>{{1, 1000, {0}, {1000}},
                                           {3, 1000, {0, 251, 502}, {250, 501, 1000}},
                                           {4, 999, {0, 200, 400, 600}, {199, 399, 599, 999}}}) {
        RephaseRecord r = record(d, c.S, 0, c.count);
        ASSERT_EQ(RephaseData64f(r), 0);
        EXPECT_EQ(r.section_initial, c.initial);
        EXPECT_EQ(r.section_final, c.final);
        EXPECT_EQ(r.rephased_flag, 1);
    }
    RephaseRecord none = record(d, 0, 0, 1000);
    EXPECT_EQ(RephaseData64f(none), -1);
}

TEST(Rephase, EachSectionFindsItsOwnConstant) {
    // One narrow line in the middle of each section (0..666 and 667..2000),
    // turned by 30 and -50 degrees; zoom from 0 so both passes read the same data.
    const Data d = lines(2000, [](int f) { return f < 1000 ? 30.0 : -50.0; }, 1000.0, 333.0, 2.0);
    RephaseRecord r = record(d, 2, 0, 2000);
    ASSERT_EQ(RephaseData64f(r), 0);
    // width 666: section 0 is 0..666, section 1 667..2000
    EXPECT_EQ(r.section_degrees[0], 30);
    EXPECT_NEAR(r.section_constant[0], 30 * PI / 180, 1e-12);
    // The fine pass runs only above the coarse best (-50 is on the 10-degree grid).
    EXPECT_EQ(r.section_degrees[1], -50);

    // A section of noise only keeps the marks 4.0 rad and 400 degrees.
    Data q = d;
    for (std::size_t k = 667; k < q.re.size(); ++k) q.re[k] = q.im[k] = 0.0f;
    RephaseRecord z = record(q, 2, 0, 2000);
    ASSERT_EQ(RephaseData64f(z), 0);
    EXPECT_EQ(z.section_degrees[1], 400);
    EXPECT_DOUBLE_EQ(z.section_constant[1], 4.0);
}

TEST(Rephase, ConstantsLandOnTheFirstPointsOfTheFullSpectrum) {
    const Data d = lines(3000, [](int) { return 20.0; });
    RephaseRecord r = record(d, 2, 1000, 1000);
    ASSERT_EQ(RephaseData64f(r), 0);
    // Section 0 runs to section_final[0] + 1 from point 0 of the full spectrum,
    // the last section gets a single point, and past that only the base
    // constant applies.
    const double c0 = r.section_constant[0], c1 = r.section_constant[1];
    auto expect_at = [&](int k, double c) {
        const double y = d.re[k] * std::cos(c) - d.im[k] * std::sin(c);
        EXPECT_NEAR(r.full_rephased[k], y, 1e-3) << k;
    };
    expect_at(0, c0);
    expect_at(r.section_final[0] + 1, c0);
    expect_at(r.section_final[0] + 2, c1);
    expect_at(r.section_final[0] + 3, 0.0);
    expect_at(r.section_final[1], 0.0);
    expect_at(2500, 0.0);
    // The zoom result applies the sections where they belong.
    for (int k : {0, 10, 600, 999}) {
        const int sec = k > r.section_final[0] ? 1 : 0;
        const double c = r.section_constant[sec];
        EXPECT_NEAR(r.zoom_rephased[k], r.zoom_real[k] * std::cos(c) - r.zoom_imag[k] * std::sin(c), 1e-3);
    }
    // The baseline step takes its zoom result from the full array.
    BaseLineRemoveZoomRephaseThreaded(r);
    ASSERT_EQ(r.zoom_rephased.size(), 1000u);
    EXPECT_EQ(r.zoom_rephased[5], r.full_rephased[1005]);

    std::vector<float> samples(1000, 1.0f), work;
    EXPECT_EQ(RemoveDCOffset_MagnitudeandAbsorbance(samples, 0, work), -1);  // fewer than 1024
    std::vector<float> more(2048, 3.0f);
    more[2047] = 0.0f;
    EXPECT_EQ(RemoveDCOffset_MagnitudeandAbsorbance(more, 2000, work), 0);
    EXPECT_FLOAT_EQ(more[0], 0.0f);
    EXPECT_FLOAT_EQ(more[2047], 0.0f);  // the tail beyond the true count stays
    EXPECT_EQ(work.size(), 2048u);
}

TEST(ManualPhase, CurveModesShiftAndDigits) {
    Spectrum s;
    s.realdata = {1, 2, 3, 4, 5, 6, 7, 8};
    s.imagdata = {0, 1, 0, 1, 0, 1, 0, 1};
    s.dbandwidth = 800.0;
    s.hzppt = 100.0;
    ManualPhaseValues v;
    v.second = 2.0;
    v.second_exponent = -6;
    v.first = 3.0;
    v.first_exponent = -3;
    v.zero = 0.5;
    v.shift = 4;
    v.mode = 4;
    std::vector<float> slope;
    ASSERT_EQ(ManualPhase(s, v, &slope), 0);
    EXPECT_DOUBLE_EQ(s.OptimizedSecondorder, 2e-6);
    EXPECT_DOUBLE_EQ(s.OptimizedFirstorder, 3e-3);
    EXPECT_EQ(s.ZeroDegrees, 29);
    auto phi = [&](double k) {
        const double x = (k - 4) * 100.0;
        return 2e-6 * x * x - (k >= 4 ? 1.0 : -1.0) * 3e-3 * x + 0.5;
    };
    for (int k = 0; k < 8; ++k) {
        EXPECT_NEAR(s.phase[k], phi(k), 1e-12);
        EXPECT_NEAR(s.data[k], s.realdata[k] * std::cos(phi(k)) - s.imagdata[k] * std::sin(phi(k)), 1e-5);
        EXPECT_NEAR(slope[k], phi(k) - phi(k + 1), 1e-5);
    }
    // Limits zero the outside; the flip changes every sign.
    v.limit = true;
    v.limit_lo = 6;
    v.limit_hi = 2;
    v.flip = true;
    ASSERT_EQ(ManualPhase(s, v, nullptr), 0);
    EXPECT_EQ(s.data[0], 0.0f);
    EXPECT_EQ(s.data[7], 0.0f);
    EXPECT_NEAR(s.data[3], -(s.realdata[3] * std::cos(phi(3)) - s.imagdata[3] * std::sin(phi(3))), 1e-5);
    Spectrum empty;
    EXPECT_EQ(ManualPhase(empty, v, nullptr), -1);

    struct D {
        double value;
        PhaseDigits digits;
    };
    for (const D& c : std::vector<D>{{3.142, {3, 1, 4, 2}}, {-0.785, {0, -7, -8, -5}}, {2.0, {2, 0, 0, 0}}, {0.0999, {0, 0, 9, 10}}}) {
        const PhaseDigits d = split_phase_digits(c.value);
        EXPECT_EQ(d.units, c.digits.units) << c.value;
        EXPECT_EQ(d.tenths, c.digits.tenths) << c.value;
        EXPECT_EQ(d.hundredths, c.digits.hundredths) << c.value;
        EXPECT_EQ(d.thousandths, c.digits.thousandths) << c.value;
        EXPECT_NEAR(join_phase_digits(d), c.value, 0.0011);
    }
}

}  // namespace
}  // namespace vx
