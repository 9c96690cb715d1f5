#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <tuple>

#include "clusters.hpp"
#include "match_reference.hpp"
#include "peaks/noise.hpp"
#include "platform/ui.hpp"
#include "thrash/thrash.hpp"

namespace vx {
namespace {

const AveragineTable& bundled() {
    static const AveragineTable t = [] {
        AveragineTable t;
        RecordingUi ui;
        ReadAveragineTable(t, ui, nullptr, std::string(VANTORIX_SOURCE_DIR) + "/data/averagine_lookup2.txt");
        return t;
    }();
    return t;
}

const Composition UBIQUITIN{378, 629, 105, 118, 1};

struct Truth {
    double mono_mass;
    int charge;
    double snr;
    int idx;  // most abundant level
};

// Scores a run against the truth: a cluster is right when its charge is and
// its mono mass lies within 0.05 Da of the truth less idx x 0.00492 (the
// proton used as spacing), off by one when a dalton away.
struct Score {
    int right_charge = 0, right_mono = 0, off_by_one = 0, false_clusters = 0, refined_1ppm = 0, found = 0;
};

Score score(const std::vector<ThrashPeak>& rows, const std::vector<Truth>& truth) {
    Score s;
    for (const ThrashPeak& r : rows) {
        if (r.continuation) continue;
        const Truth* best = nullptr;
        for (const Truth& t : truth)
            if (std::fabs((r.mostabundant_mz - (t.mono_mass / t.charge + 1.00727)) ) < 60.0 / t.charge &&
                (!best || std::fabs(r.monoisotopic_mass - t.mono_mass) < std::fabs(r.monoisotopic_mass - best->mono_mass)))
                best = &t;
        if (!best || r.charge != best->charge) {
            ++s.false_clusters;
            continue;
        }
        ++s.right_charge;
        const double expect = best->mono_mass - best->idx * 0.00492;
        const double off = r.monoisotopic_mass - expect;
        if (std::fabs(off) < 0.05) {
            ++s.right_mono;
            if (std::fabs(r.monoisotopic_mw_refined - best->mono_mass) / best->mono_mass < 1e-6) ++s.refined_1ppm;
        } else if (std::fabs(std::fabs(off) - 1.0) < 0.1) {
            ++s.off_by_one;
        }
    }
    return s;
}

TEST(Thrash, UbiquitinChargesFiveToThirteen) {
    Spectrum s = test::protein_spectrum();
    const double mono = monoisotopic_mass(UBIQUITIN);
    std::vector<Truth> truth;
    std::vector<test::Ion> ions;
    const double noise = 1.0;
    for (int z = 5; z <= 13; ++z) {
        const double snr = 20.0 + 60.0 * (z - 5);
        test::TrueCluster c{UBIQUITIN, z, snr * 2.0 * noise};
        auto part = test::cluster_ions(c, s);
        ions.insert(ions.end(), part.begin(), part.end());
        std::array<double, AVERAGINE_WIDTH> p{};
        const int idx = static_cast<int>(distrib_calculation((mono + z * 1.00727) / z, z, p.data(), nullptr, 2,
                                                              bundled(), s, ModelSettings{}));
        truth.push_back({mono, z, snr, idx});
    }
    test::add_ions(s, ions);
    test::add_rayleigh_noise(s, noise, 11);
    ThrashParams p;
    p.low_mass = 600.0;
    p.high_mass = 1800.0;
    ThrashResult r;
    RecordingUi ui;
    const auto t0 = std::chrono::steady_clock::now();
    ASSERT_EQ(thrash_with_table(s, p, bundled(), r, ui), 0);
    const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    const Score sc = score(r.peaks, truth);
    std::printf("ubiquitin 5-13: %d clusters reported, charge right %d, mono right %d, off by one %d, false %d, "
                "refined within 1 ppm %d; %d all-charges passes, %d fits, %.2f s\n",
                r.clusters, sc.right_charge, sc.right_mono, sc.off_by_one, sc.false_clusters, sc.refined_1ppm,
                r.all_charge_passes, r.fits, secs);
    for (const auto& row : r.peaks)
        std::printf("  z %d mono %.4f refined %.4f (truth %.4f) RL %s\n", row.charge, row.monoisotopic_mass,
                    row.monoisotopic_mw_refined, mono, row.rl_text.c_str());
    EXPECT_GE(sc.right_mono, 8);
    EXPECT_TRUE(s.data2.empty());
}

// The fit converts the m/z of a position in one batch and leaves positions
// whose every trial stays under the S/N limit: the numbers must be those of
// the fit written point by point, for every charge the all-charges pass tries.
TEST(Thrash, BatchedFitGivesTheNumbersOfThePointByPointFit) {
    Spectrum s = test::protein_spectrum();
    std::vector<test::Ion> ions;
    for (int z : {7, 11}) {
        auto part = test::cluster_ions({UBIQUITIN, z, 300.0}, s);
        ions.insert(ions.end(), part.begin(), part.end());
    }
    auto big = test::cluster_ions({averagine_composition(30000.0), 21, 150.0}, s);
    ions.insert(ions.end(), big.begin(), big.end());
    test::add_ions(s, ions);
    test::add_rayleigh_noise(s, 1.0, 3);
    double sigma = 0.0;
    const double noise = CalculateThrashNoise_RP(s.data.data(), static_cast<long>(s.data.size()), &sigma);
    std::vector<float> work = s.data;
    for (float& v : work)
        if (v < noise) v = 0.0f;
    const double ubi7 = (monoisotopic_mass(UBIQUITIN) + 7 * 1.00727) / 7 + 5 * 1.00235 / 7;
    const double big21 = (monoisotopic_mass(averagine_composition(30000.0)) + 21 * 1.00727) / 21 + 18 * 1.00235 / 21;
    struct Case {
        double mz;
        int charge, quick, sample_type;
        double min_s2n;
    };
    const Case cases[] = {
        {ubi7, 7, 0, 0, 3.0},   {ubi7, 1, 0, 0, 3.0},    {ubi7, 3, 0, 0, 3.0},   {ubi7, 14, 0, 0, 3.0},
        {ubi7, 60, 0, 0, 3.0},  {ubi7, 400, 0, 0, 3.0},  {ubi7, 1200, 0, 0, 3.0}, {ubi7, 7, 1, 0, 3.0},
        {ubi7, 7, 0, 1, 3.0},   {ubi7, 7, 0, 2, 3.0},    {ubi7, 7, 0, 0, 60.0},  {big21, 21, 0, 0, 3.0},
        {big21, 42, 0, 0, 3.0}, {big21, 900, 0, 0, 3.0}, {big21, 20, 0, 0, 0.5},
    };
    int compared = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "m/z " << c.mz << " charge " << c.charge << " quick " << c.quick
                                        << " type " << c.sample_type << " min S/N " << c.min_s2n);
        ModelSettings model;
        model.sample_type = c.sample_type;
        std::array<double, AVERAGINE_WIDTH> pat{};
        const int idx = static_cast<int>(distrib_calculation(c.mz, c.charge, pat.data(), nullptr, 2, bundled(), s, model));
        distrib_calculation(c.mz, c.charge, pat.data(), nullptr, 1, bundled(), s, model);
        const double step = 1.00235 / c.charge;
        const double lo = idx == 0 ? c.mz - step : c.mz - 2.0 * idx * step, hi = idx == 0 ? c.mz + step : c.mz;
        const MatchResult fast = match(s, work, noise, 0.0, sigma, c.min_s2n, c.charge, c.quick, lo, hi, pat.data(), model);
        const MatchResult ref =
            test::match_reference(s, work, noise, 0.0, sigma, c.min_s2n, c.charge, c.quick, lo, hi, pat.data(), model);
        EXPECT_EQ(fast.fom, ref.fom);
        EXPECT_EQ(fast.first_point, ref.first_point);
        EXPECT_EQ(fast.best_point, ref.best_point);
        EXPECT_EQ(fast.best_fom, ref.best_fom);
        EXPECT_EQ(fast.best_scale, ref.best_scale);
        compared += std::count_if(ref.fom.begin(), ref.fom.end(), [](double f) { return f > 0.0; });
    }
    // The cases fitted something, not only empty spans.
    EXPECT_GT(compared, 50);
}

TEST(Thrash, LimitOfClustersIsReportedWhenReached) {
    Spectrum s = test::protein_spectrum();
    std::vector<test::Ion> ions;
    for (int z = 8; z <= 10; ++z) {
        auto part = test::cluster_ions({UBIQUITIN, z, 400.0}, s);
        ions.insert(ions.end(), part.begin(), part.end());
    }
    test::add_ions(s, ions);
    test::add_rayleigh_noise(s, 1.0, 5);
    ThrashParams p;
    p.low_mass = 800.0;
    p.high_mass = 1100.0;
    p.limit = 2;
    ThrashResult r;
    RecordingUi ui;
    ASSERT_EQ(thrash_with_table(s, p, bundled(), r, ui), 0);
    EXPECT_EQ(r.clusters, 2);
    EXPECT_TRUE(r.limit_reached);
    EXPECT_TRUE(ui.saw("THRASH Unable to finish the assigned window due to a memory limitations",
                       "This version of THRASH was designed to find a maximum of 2 peaks which have been found.\n"
                       "Please describe new THRASH parameters and rerun or contact support to discuss programmable "
                       "options."));
    // Under the limit nothing is said.
    p.limit = 1000;
    RecordingUi quiet;
    ASSERT_EQ(thrash_with_table(s, p, bundled(), r, quiet), 0);
    EXPECT_FALSE(r.limit_reached);
    EXPECT_TRUE(quiet.messages.empty());
    // The scan's own minimum RL of 3.0 walks and reports nothing.
    p.min_rl = 3.0;
    ASSERT_EQ(thrash_with_table(s, p, bundled(), r, quiet), 0);
    EXPECT_EQ(r.clusters, 0);
    EXPECT_GT(r.fits, 0);
}

TEST(Thrash, AveragineThirtyKilodaltonsChargesFifteenToFortyWithUbiquitinOverlapping) {
    // Both proteins in one spectrum, so clusters of the two overlap in m/z.
    Spectrum s = test::protein_spectrum();
    const Composition big = averagine_composition(30000.0);
    std::vector<Truth> truth;
    std::vector<test::Ion> ions;
    const double noise = 1.0;
    int state = 0;
    for (const auto& [atoms, zmin, zmax] :
         std::vector<std::tuple<Composition, int, int>>{{UBIQUITIN, 5, 13}, {big, 15, 40}}) {
        const double mono = monoisotopic_mass(atoms);
        for (int z = zmin; z <= zmax; ++z, ++state) {
            const double snr = 20.0 + 480.0 * ((state * 37) % 100) / 100.0;
            test::TrueCluster c{atoms, z, snr * 2.0 * noise};
            auto part = test::cluster_ions(c, s);
            ions.insert(ions.end(), part.begin(), part.end());
            std::array<double, AVERAGINE_WIDTH> p{};
            const int idx = static_cast<int>(distrib_calculation((mono + z * 1.00727) / z, z, p.data(), nullptr, 2,
                                                                  bundled(), s, ModelSettings{}));
            truth.push_back({mono, z, snr, idx});
        }
    }
    test::add_ions(s, ions);
    test::add_rayleigh_noise(s, noise, 13);
    ThrashParams p;
    p.low_mass = 600.0;
    p.high_mass = 2100.0;
    // The all-charges pass up to charge 60, as a protein setup would have it;
    // the scan's own 2000 fits every charge to 1000 and more at these m/z.
    p.max_charge = 60;
    ThrashResult r;
    RecordingUi ui;
    const auto t0 = std::chrono::steady_clock::now();
    ASSERT_EQ(thrash_with_table(s, p, bundled(), r, ui), 0);
    const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    const Score sc = score(r.peaks, truth);
    // Recall: the charge states with a right-isotope cluster reported.
    int recalled = 0;
    for (const Truth& t : truth) {
        for (const ThrashPeak& row : r.peaks)
            if (row.charge == t.charge && std::fabs(row.monoisotopic_mass - (t.mono_mass - t.idx * 0.00492)) < 0.05) {
                ++recalled;
                break;
            }
    }
    std::printf("30 kDa 15-40 + ubiquitin 5-13 (%zu states): %d clusters reported, charge right %d, mono right %d, "
                "off by one %d, false %d, refined within 1 ppm %d, recall %d/%zu; %d all-charges passes, %.2f s\n",
                truth.size(), r.clusters, sc.right_charge, sc.right_mono, sc.off_by_one, sc.false_clusters,
                sc.refined_1ppm, recalled, truth.size(), r.all_charge_passes, secs);
    // Measured, not yet the goal (docs/thrash.md): recall 60 %, charges 9 in 10.
    EXPECT_GE(recalled, static_cast<int>(truth.size()) * 6 / 10);
    EXPECT_GE(sc.right_charge, r.clusters * 9 / 10);
}

}  // namespace
}  // namespace vx
