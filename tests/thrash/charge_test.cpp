#include <gtest/gtest.h>

#include "clusters.hpp"
#include "thrash/charge.hpp"

namespace vx {
namespace {

TEST(ComboCd, FindsTheChargeOfCombsFromTwoToForty) {
    int wrong = 0;
    for (int z = 2; z <= 40; ++z) {
        SCOPED_TRACE(z);
        Spectrum s = test::protein_spectrum();
        const double mz = 700.3;
        test::add_ions(s, test::comb_ions(mz, z, 100.0, 200000.0));
        test::add_rayleigh_noise(s, 0.5, 7u + z);
        ChargeScores sc;
        const int c = combo_cd(mz - 0.6, mz + 0.6, sc, s, 100, false);
        ASSERT_EQ(sc.product.size(), 600u);
        if (c != z) {
            ++wrong;
            ADD_FAILURE() << "charge " << z << " found as " << c;
        }
    }
    EXPECT_EQ(wrong, 0);
}

TEST(ComboCd, ChargeOneLiesBelowTheLowestFrequencyKept) {
    // In a window of 1.2 m/z one period of a singly charged cluster does not
    // fit: the Fourier score is 0 up to charge 1 + 1/6 and the charge is left
    // to the scan's all-charges pass.
    Spectrum s = test::protein_spectrum();
    test::add_ions(s, test::comb_ions(700.3, 1, 100.0, 200000.0));
    ChargeScores sc;
    combo_cd(699.7, 700.9, sc, s, 100, false);
    for (int j = 0; j < 6; ++j) EXPECT_EQ(sc.fourier[j], 0.0) << j;
}

TEST(ComboCd, RangeOfTooFewPointsOrOutsideTheDataGivesZero) {
    Spectrum s = test::blank_spectrum(4096);
    ChargeScores sc;
    EXPECT_EQ(combo_cd(1000.0, 1000.0, sc, s, 50, false), 0);
    EXPECT_EQ(combo_cd(1001.0, 1000.0, sc, s, 50, false), 0);
    Spectrum empty;
    EXPECT_EQ(combo_cd(999.0, 1001.0, sc, empty, 50, false), 0);
    // All-zero data: no maximum, no NaN.
    Spectrum zero = test::blank_spectrum(1 << 16);
    EXPECT_EQ(combo_cd(400.0, 401.2, sc, zero, 50, false), 0);
    for (double v : sc.product) EXPECT_FALSE(std::isnan(v));
}

TEST(ComboCd, ReadsTheWorkingCopyWhenAskedWithNegativeValuesAsZero) {
    Spectrum s = test::protein_spectrum();
    test::add_ions(s, test::comb_ions(800.0, 7, 100.0, 200000.0));
    s.data2.assign(s.data.size(), -5.0f);
    ChargeScores sc;
    EXPECT_EQ(combo_cd(799.4, 800.6, sc, s, 100, false), 7);
    EXPECT_EQ(combo_cd(799.4, 800.6, sc, s, 100, true), 0);
    s.data2 = s.data;
    EXPECT_EQ(combo_cd(799.4, 800.6, sc, s, 100, true), 7);
}

}  // namespace
}  // namespace vx
