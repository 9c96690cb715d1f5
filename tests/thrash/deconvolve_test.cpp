#include <gtest/gtest.h>

#include "clusters.hpp"
#include "thrash/deconvolve.hpp"

namespace vx {
namespace {

TEST(Deconvolve, LowChargeFromTheIsotopeSpacing) {
    for (int z : {1, 3, 9, 20}) {
        SCOPED_TRACE(z);
        Spectrum s = test::protein_spectrum();
        test::add_ions(s, test::comb_ions(900.3, z, 100.0, 150000.0));
        test::add_rayleigh_noise(s, 0.5, 3u + z);
        PlotData d = reassign_display(s, 890.0, 910.0);
        long top = 0;
        for (long i = 0; i < static_cast<long>(d.intensity.size()); ++i)
            if (d.intensity[i] > d.intensity[top]) top = i;
        const long lo = top - 2000 < 0 ? 0 : top - 2000;
        const double threshold = auto_find_threshold(d, lo, std::min<long>(d.intensity.size() - 1, top + 2000), nullptr, nullptr);
        EXPECT_GT(threshold, 0.5);
        EXPECT_LT(threshold, 100.0);
        EXPECT_EQ(determine_low_charge(d, top, threshold), z);
    }
}

TEST(Deconvolve, HighChargeFromTheLadderForgivesOneWeakMember) {
    // Charge states 10 to 20 of a 20 kDa ion, one point each; state 14 is weak.
    PlotData d;
    const double M = 20000.0;
    for (double m = 2100.0; m > 900.0; m -= 0.01) {
        d.mass.push_back(m);
        d.intensity.push_back(1.0f);
    }
    d.mark.assign(d.mass.size(), 0);
    long index15 = -1;
    for (int z = 10; z <= 20; ++z) {
        const double mz = (M + z * 1.00727647) / z;
        long best = 0;
        for (long i = 0; i < static_cast<long>(d.mass.size()); ++i)
            if (std::fabs(d.mass[i] - mz) < std::fabs(d.mass[best] - mz)) best = i;
        d.intensity[best] = z == 14 ? 0.5f : 100.0f;
        if (z == 15) index15 = best;
    }
    d.ppm = 10.0;
    const double with_weak = score_high_charge(d, index15, 15, 2.0);
    EXPECT_GT(with_weak, 0.0);
    EXPECT_EQ(determine_high_charge(d, index15, 2.0, 100.0), 15);
    // Below the threshold the peak itself is refused.
    EXPECT_EQ(determine_high_charge(d, index15, 1000.0, 100.0), -1);
    MassSpectrum m;
    DeconvOptions o;
    o.mode = DECONV_HIGHZ;
    o.resolution = 20000.0;
    EXPECT_GE(deconvolve(d, o, m), 1);
    ASSERT_FALSE(m.mass.empty());
    const auto top = std::max_element(m.intensity.begin(), m.intensity.end()) - m.intensity.begin();
    EXPECT_NEAR(m.mass[top], M, M / o.resolution * 3);
}

TEST(Deconvolve, FindIntensityOutsideAndEmptyDisplays) {
    PlotData d;
    d.mass = {3.0, 2.0, 1.0};
    d.intensity = {1.0f, 3.0f, 5.0f};
    d.mark.assign(3, 0);
    EXPECT_DOUBLE_EQ(find_intensity(d, 2.5), 2.0);
    EXPECT_EQ(find_intensity(d, 4.0), 0.0);
    PlotData empty;
    MassSpectrum m;
    EXPECT_EQ(deconvolve(empty, DeconvOptions{}, m), 0);
    EXPECT_EQ(determine_low_charge(empty, 0, 1.0), -1);
}

}  // namespace
}  // namespace vx
