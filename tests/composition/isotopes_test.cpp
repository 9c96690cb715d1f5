#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "composition/elements.hpp"
#include "composition/isotopes.hpp"
#include "platform/ui.hpp"

namespace vx {
namespace {

double lgamma_multinomial(const std::vector<std::int32_t>& c, const std::vector<double>& a) {
    double n = 0.0, l = 0.0;
    for (std::size_t i = 0; i < c.size(); ++i) {
        n += c[i];
        l -= std::lgamma(c[i] + 1.0);
        l += c[i] * std::log(a[i]);
    }
    return std::exp(l + std::lgamma(n + 1.0));
}

TEST(IsotopeEngine, AbundanceCalcAgainstLgammaMultinomialAndItsFloor) {
    struct Case {
        std::vector<std::int32_t> counts;
        std::vector<double> ab;
        double threshold;
    };
    const std::vector<Case> cases = {
        {{60, 0}, {0.9893, 0.0107}, 1e-9},       {{59, 1}, {0.9893, 0.0107}, 1e-9},
        {{50, 10}, {0.9893, 0.0107}, 1e-12},     {{1, 0, 1, 0}, {0.9499, 0.0075, 0.0425, 0.0001}, 1e-9},
        {{2, 1, 3, 1}, {0.9499, 0.0075, 0.0425, 0.0001}, 1e-30},
        {{120, 2}, {0.999885, 0.000115}, 1e-9},  {{400, 7}, {0.9893, 0.0107}, 1e-6},
        // the rules' carbon: 12C's values twice, far above 1
        {{125, 125}, {0.9893, 0.9893}, 0.3},     {{3, 0, 1}, {0.99757, 0.00038, 0.00205}, 1e-9},
        {{1500, 40}, {0.9893, 0.0107}, 1e-9},    {{0, 5}, {0.9893, 0.0107}, 1e-30},
    };
    for (const Case& c : cases) {
        const double truth = lgamma_multinomial(c.counts, c.ab);
        const double got = AbundanceCalc(static_cast<int>(c.counts.size()), c.counts.data(), c.ab.data(), c.threshold);
        if (truth < 0.1 * c.threshold * (1 - 1e-9)) {
            EXPECT_EQ(got, -1.0) << c.counts[0] << " truth " << truth;
        } else {
            EXPECT_NEAR(got, truth, 1e-11 * truth) << c.counts[0] << "," << c.counts[1];
        }
    }
    // The -1.0 rule sits at a tenth of the threshold.
    const std::int32_t c20[2] = {58, 2};
    const double ab[2] = {0.9893, 0.0107};
    const double v = lgamma_multinomial({58, 2}, {0.9893, 0.0107});
    EXPECT_GT(AbundanceCalc(2, c20, ab, v * 9.99), 0.0);
    EXPECT_EQ(AbundanceCalc(2, c20, ab, v * 10.01), -1.0);
}

TEST(IsotopeEngine, BuildIsotopesRowsAndTheSulfurWalk) {
    std::vector<IsoElement> p;
    EXPECT_EQ(BuildIsotopes(0, 10, 10, 1, p), -1);
    ASSERT_EQ(BuildIsotopes(3, 30, 50, 2, p), 0);
    ASSERT_EQ(p.size(), 3u);
    EXPECT_EQ(p[0].name, "Carbon");
    EXPECT_EQ(p[1].name, "Hydrogen");
    EXPECT_EQ(p[2].name, "Sulfur");
    // Carbon's second row is 12C's values again at offset 1 (kept for the rules).
    ASSERT_EQ(p[0].isotope_count, 2);
    EXPECT_EQ(p[0].isotopes[1].mass, 12.0);
    EXPECT_EQ(p[0].isotopes[1].abundance, 0.9893);
    EXPECT_EQ(p[0].isotopes[1].mass_offset, 1);
    EXPECT_EQ(p[0].element_count, 3);
    ASSERT_EQ(p[2].isotope_count, 4);
    const int offsets[4] = {0, 1, 2, 4};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(p[2].isotopes[static_cast<std::size_t>(i)].mass_offset, offsets[i]);
    // A zero count leaves the element out.
    ASSERT_EQ(BuildIsotopes(3, 0, 0, 2, p), 0);
    ASSERT_EQ(p.size(), 1u);
    ASSERT_EQ(FindMax(p[0], 1e-30), 0);
    // S2 over four isotopes: all 10 distributions, offsets reach 8 (2 x 36S).
    EXPECT_EQ(p[0].solution_count, 10);
    std::map<int, int> seen;
    double total = 0.0;
    for (const IsoSolution& s : p[0].solutions) {
        ++seen[s.offset];
        total += s.abundance;
        EXPECT_EQ(s.counts[0] + s.counts[1] + s.counts[2] + s.counts[3], 2);
    }
    EXPECT_EQ(seen, (std::map<int, int>{{0, 1}, {1, 1}, {2, 2}, {3, 1}, {4, 2}, {5, 1}, {6, 1}, {8, 1}}));
    EXPECT_NEAR(total, 1.0, 1e-12);
    // Most abundant first.
    for (std::size_t i = 1; i < p[0].solutions.size(); ++i)
        EXPECT_GE(p[0].solutions[i - 1].abundance, p[0].solutions[i].abundance);
    // A threshold above 1 leaves nothing.
    ASSERT_EQ(FindMax(p[0], 20.0), 0);
    EXPECT_EQ(p[0].solution_count, 0);
}

// Reference by polynomial expansion, one atom at a time: per nominal offset the
// probability and the probability-weighted mass, and per isotope-count vector
// the fine structure.
struct Reference {
    std::map<int, std::pair<double, double>> nominal;           // offset -> (P, P x M)
    std::map<std::vector<int>, std::pair<double, double>> fine;  // counts -> (P, M)
};

Reference expand(const std::vector<std::pair<std::string, int>>& formula) {
    Reference r;
    r.fine[{}] = {1.0, 0.0};
    for (const auto& [sym, n] : formula) {
        const ElementEntry& e = element_table()[static_cast<std::size_t>(*find_element(sym))];
        std::map<std::vector<int>, std::pair<double, double>> el;
        el[std::vector<int>(static_cast<std::size_t>(e.isotope_count), 0)] = {1.0, 0.0};
        for (int atom = 0; atom < n; ++atom) {
            std::map<std::vector<int>, std::pair<double, double>> next;
            for (const auto& [c, pm] : el)
                for (int k = 0; k < e.isotope_count; ++k) {
                    auto c2 = c;
                    ++c2[static_cast<std::size_t>(k)];
                    auto& t = next[c2];
                    t.first += pm.first * e.isotopes[k].abundance;
                    t.second = pm.second + e.isotopes[k].mass;
                }
            el.clear();
            for (auto& [c, pm] : next)
                if (pm.first > 1e-16) el[c] = pm;
        }
        std::map<std::vector<int>, std::pair<double, double>> comb;
        for (const auto& [a, pa] : r.fine)
            for (const auto& [b, pb] : el) {
                if (pa.first * pb.first < 1e-16) continue;
                auto c = a;
                c.insert(c.end(), b.begin(), b.end());
                comb[c] = {pa.first * pb.first, pa.second + pb.second};
            }
        r.fine = std::move(comb);
    }
    // Nominal offsets from the isotope counts.
    for (const auto& [c, pm] : r.fine) {
        int off = 0;
        std::size_t at = 0;
        for (const auto& [sym, n] : formula) {
            const ElementEntry& e = element_table()[static_cast<std::size_t>(*find_element(sym))];
            for (int k = 0; k < e.isotope_count; ++k) off += c[at++] * e.isotopes[k].mass_offset;
        }
        auto& t = r.nominal[off];
        t.first += pm.first;
        t.second += pm.first * pm.second;
    }
    return r;
}

TEST(IsotopeEngine, PatternsAgainstPolynomialExpansion) {
    struct Case {
        const char* formula;
        std::vector<std::pair<std::string, int>> parts;
    };
    const Case cases[] = {
        {"C60H122N2O4S", {{"C", 60}, {"H", 122}, {"N", 2}, {"O", 4}, {"S", 1}}},
        {"C35H60O6", {{"C", 35}, {"H", 60}, {"O", 6}}},
        {"C150H200S4", {{"C", 150}, {"H", 200}, {"S", 4}}},
    };
    RecordingUi ui;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.formula);
        IsotopePattern p;
        ASSERT_EQ(isotope_pattern(c.formula, 1e-9, p, ui), 0);
        const Reference ref = expand(c.parts);
        double strongest = 0.0;
        for (const auto& [off, pm] : ref.nominal) strongest = std::max(strongest, pm.first);
        int checked = 0;
        double worst_of_top = 0.0, worst_of_own = 0.0;
        for (const auto& [off, pm] : ref.nominal) {
            if (pm.first < 1e-4 * strongest) continue;
            const auto it = std::find_if(p.peaks.begin(), p.peaks.end(), [&](const IsoFinal& f) { return f.offset == off; });
            ASSERT_NE(it, p.peaks.end()) << "offset " << off;
            // The goal: within 1e-6 of the strongest peak (of the reference).
            // Isotopologues below the threshold are culled before summing, so a
            // weak peak loses up to a few 1e-5 of itself at 1e-9 (5e-5 at
            // C150H200S4 +10), far inside that; 1e-4 of its own value bounds it.
            EXPECT_NEAR(it->abundance, pm.first, 1e-6 * strongest) << "offset " << off;
            EXPECT_NEAR(it->abundance, pm.first, 1e-4 * pm.first) << "offset " << off;
            EXPECT_NEAR(it->weighted_mass, pm.second / pm.first, 1e-5) << "offset " << off;
            worst_of_top = std::max(worst_of_top, std::fabs(it->abundance - pm.first) / strongest);
            worst_of_own = std::max(worst_of_own, std::fabs(it->abundance - pm.first) / pm.first);
            ++checked;
        }
        EXPECT_GE(checked, 3);
        std::printf("%s at 1e-9: %d peaks above 1e-4 of the strongest; largest difference %.1e of the strongest, %.1e of "
                    "the peak's own\n",
                    c.formula, checked, worst_of_top, worst_of_own);
        // Fine structure above 1e-3 of the strongest isotopologue: every one
        // present, at its exact mass.
        double top = 0.0;
        for (const auto& [k, pm] : ref.fine) top = std::max(top, pm.first);
        int fine = 0;
        for (const auto& [k, pm] : ref.fine) {
            if (pm.first < 1e-3 * top) continue;
            const auto it = std::find_if(p.isotopologues.begin(), p.isotopologues.end(), [&](const IsoResult& r) {
                return std::fabs(r.mass - pm.second) < 1e-9 && std::fabs(r.abundance - pm.first) < 1e-6 * pm.first;
            });
            EXPECT_NE(it, p.isotopologues.end()) << "isotopologue of mass " << pm.second;
            ++fine;
        }
        EXPECT_GE(fine, 3);
        // Offsets rise, members add up.
        int members = 0;
        for (std::size_t i = 0; i < p.peaks.size(); ++i) {
            if (i) {
                EXPECT_GT(p.peaks[i].offset, p.peaks[i - 1].offset);
            }
            EXPECT_LE(p.peaks[i].low_mass, p.peaks[i].weighted_mass + 1e-12);
            EXPECT_GE(p.peaks[i].high_mass, p.peaks[i].weighted_mass - 1e-12);
            members += p.peaks[i].member_count;
        }
        EXPECT_EQ(members, static_cast<int>(p.isotopologues.size()));
    }
}

TEST(IsotopeEngine, BadInputsRefusedWithAMessage) {
    struct Case {
        const char* formula;
        double threshold;
        const char* words;
    };
    const Case cases[] = {
        {"C6H6Xx2", 1e-6, "Xx is not an element"},
        {"C6H6Sn2", 1e-6, "Sn has 10 isotopes"},
        {"C0H4", 1e-6, "must be 1 or more"},
        {"C-2H4", 1e-6, "must be 1 or more"},
        {"c6h6", 1e-6, "is not a formula"},
        {"", 1e-6, "No formula"},
        {"C6H6", 0.0, "threshold must lie above 0"},
        {"C6H6", 1.5, "threshold must lie above 0"},
        {"C6H6", -1e-3, "threshold must lie above 0"},
        {"C9999999H4", 1e-6, "more than 1000000"},
        {"C20000H4", 1e-6, "too many distributions"},
        // Many elements of several isotopes at a tiny threshold: the product of
        // their solution counts is refused before anything is allocated.
        {"C2000H3000N30O200S20Cl10", 1e-300, "raise the threshold"},
    };
    for (const Case& c : cases) {
        RecordingUi ui;
        IsotopePattern p;
        EXPECT_EQ(isotope_pattern(c.formula, c.threshold, p, ui), -1) << c.formula;
        ASSERT_FALSE(ui.messages.empty()) << c.formula;
        EXPECT_NE(ui.messages.back().text.find(c.words), std::string::npos) << ui.messages.back().text;
        EXPECT_TRUE(p.isotopologues.empty());
    }
    // Ni (5 isotopes) and V are accepted.
    RecordingUi ui;
    IsotopePattern p;
    EXPECT_EQ(isotope_pattern("C32H32N4Ni", 1e-6, p, ui), 0);
    EXPECT_EQ(isotope_pattern("C30H28N4OV", 1e-6, p, ui), 0);
}

TEST(IsotopeEngine, CullSortAndFinalList) {
    std::vector<IsoResult> r(6);
    const double ab[6] = {0.5, 1e-9, 0.2, 1e-9, 1e-9, 0.1};
    const int off[6] = {2, 0, 0, 1, 3, 2};
    for (int i = 0; i < 6; ++i) {
        r[static_cast<std::size_t>(i)].abundance = ab[i];
        r[static_cast<std::size_t>(i)].offset = off[i];
        r[static_cast<std::size_t>(i)].mass = 100.0 + off[i] + 0.001 * i;
    }
    CullResults(r, 1e-6);
    ASSERT_EQ(r.size(), 3u);  // trailing small ones replaced in turn
    SortResults(r);
    EXPECT_EQ(r[0].offset, 0);
    EXPECT_EQ(r[1].offset, 2);
    EXPECT_EQ(r[2].offset, 2);
    EXPECT_EQ(r[1].abundance, 0.5);  // equal offsets keep their order
    const auto f = CreateFinalList(r);
    ASSERT_EQ(f.size(), 2u);
    EXPECT_EQ(f[1].member_count, 2);
    EXPECT_NEAR(f[1].abundance, 0.6, 1e-15);
    EXPECT_NEAR(f[1].weighted_mass, (0.5 * 102.0 + 0.1 * 102.005) / 0.6, 1e-12);
    EXPECT_EQ(f[1].low_mass, 102.0);
    EXPECT_EQ(f[1].high_mass, 102.005);
    EXPECT_EQ(LookupPosition({4, 7, 9}, 7), 1);
    EXPECT_EQ(LookupPosition({4, 7, 9}, 5), -1);
}

TEST(IsotopeEngine, PlotFinalPoints) {
    std::vector<IsoFinal> f(2);
    f[0].weighted_mass = 100.0;
    f[0].abundance = 1.0;
    f[0].width = 0.0;  // drawn at least 0.001 wide
    f[1].weighted_mass = 101.0;
    f[1].abundance = 0.5;
    f[1].width = 0.01;
    RecordingUi ui;
    const ProfilePoints p = PlotFinal(f, &ui);
    ASSERT_EQ(p.x.size(), 4u + 10u + 4u);
    EXPECT_NEAR(p.min_mz, 99.9, 1e-12);
    EXPECT_NEAR(p.max_mz, 101.1, 1e-12);
    const double span = 1.2;
    const double expect_x[18] = {99.9, 99.9 + 0.02 * span, 99.9 + 0.04 * span, 99.9 + 0.06 * span,
                                 99.999, 99.9995, 100.0, 100.0005, 100.001,
                                 100.99, 100.995, 101.0, 101.005, 101.01,
                                 101.1 - 0.06 * span, 101.1 - 0.04 * span, 101.1 - 0.02 * span, 101.1};
    const double expect_y[18] = {0, 0, 0, 0, 0, 0.5, 1.0, 0.5, 0, 0, 0.25, 0.5, 0.25, 0, 0, 0, 0, 0};
    for (int i = 0; i < 18; ++i) {
        EXPECT_NEAR(p.x[static_cast<std::size_t>(i)], expect_x[i], 1e-9) << i;
        EXPECT_NEAR(p.y[static_cast<std::size_t>(i)], expect_y[i], 1e-12) << i;
    }
    EXPECT_NE(ui.console.find("Minmz 99.900000   Maxmz 101.100000\n"), std::string::npos);
    // One peak: the reversed range becomes low end + count + 1; a peak below
    // the previous one is put 1.0 above it.
    const ProfilePoints one = PlotFinal({f[0]});
    EXPECT_NEAR(one.max_mz - one.min_mz, 2.0, 1e-12);
    std::vector<IsoFinal> back = {f[1], f[0]};
    const ProfilePoints b = PlotFinal(back);
    EXPECT_NEAR(b.x[4 + 5 + 2], 102.0, 1e-12);
}

}  // namespace
}  // namespace vx
