#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <iostream>
#include <random>
#include <numeric>
#include <set>
#include <tuple>
#include <algorithm>

#include <fmt/format.h>

#include "composition/assign.hpp"
#include "composition/elements.hpp"
#include "composition/isotope_rules.hpp"
#include "platform/ui.hpp"

namespace vx {
namespace {

// The rules' carbon row holds 12C's abundance twice, so the k-th term is
// C(C, k) x 0.9893^C; a term is kept at a tenth of limit / sn and up.
int quirk_row_count(int carbons, double sn, double limit) {
    const double floor_value = 0.1 * limit / sn;
    int n = 0;
    for (int k = 0; k <= carbons; ++k) {
        const double t = std::exp(std::lgamma(carbons + 1.0) - std::lgamma(k + 1.0) - std::lgamma(carbons - k + 1.0) +
                                  carbons * std::log(0.9893));
        if (t >= floor_value) ++n;
    }
    return n;
}

TEST(IsotopeRules, CheckC13AgainstTheQuirkRowBinomial) {
    const double sns[] = {0.001, 0.01, 0.05, 0.2, 1, 2, 3, 5, 10, 30, 100, 300, 1000};
    int compared = 0, zero = 0;
    for (int c = 1; c <= 250; ++c)
        for (double sn : sns) {
            const int expect = std::max(0, quirk_row_count(c, sn, 3.0) - 1);
            EXPECT_EQ(check_c13_isotope(c, sn, 3.0, 500.0), expect) << "C" << c << " S/N " << sn;
            EXPECT_EQ(check_2c13_isotope(c, sn, 3.0, 500.0), std::max(0, expect - 1)) << "C" << c << " S/N " << sn;
            ++compared;
            zero += expect == 0;
        }
    EXPECT_EQ(compared, 250 * 13);
    // With the rules' row even a single carbon passes at S/N 1: the test is
    // permissive by construction, the search decides.
    EXPECT_GT(check_c13_isotope(1, 1.0, 3.0, 100.0), 0);
    EXPECT_GT(zero, 0);  // only far below S/N 1 does it say no
    EXPECT_EQ(check_c13_isotope(0, 100.0, 3.0, 100.0), 0);
    EXPECT_EQ(check_c13_isotope(20, 0.0, 3.0, 100.0), 0);
    // 34S uses the true sulfur isotopes: 34S1 (0.0425) is kept down to a tenth
    // of 3 / S/N, so from S/N 7.06 on.
    EXPECT_GT(check_s34_isotope(1, 7.1, 3.0, 300.0), 0);
    EXPECT_EQ(check_s34_isotope(1, 7.0, 3.0, 300.0), 0);
    EXPECT_EQ(check_s34_isotope(0, 1000.0, 3.0, 300.0), 0);
    // 34S + 13C: limit / sn against the product of the second carbon term and
    // the third sulfur term.
    // With C2 that product (0.0832) decides; with C30 (0.92) the pruning of the
    // 34S term below S/N 7.06 does.
    const double product = 2 * std::pow(0.9893, 2) * 0.0425;  // S1: the third term is 34S's abundance
    EXPECT_EQ(check_s34_c13_isotope(1, 2, 3.0 / product * 1.01, 3.0, 400.0), 1);
    EXPECT_EQ(check_s34_c13_isotope(1, 2, 3.0 / product * 0.99, 3.0, 400.0), 0);
    EXPECT_EQ(check_s34_c13_isotope(1, 30, 7.1, 3.0, 400.0), 1);
    EXPECT_EQ(check_s34_c13_isotope(1, 30, 7.0, 3.0, 400.0), 0);
    EXPECT_EQ(check_s34_c13_isotope(0, 30, 1000.0, 3.0, 400.0), 0);
}

TEST(IsotopeRules, TargetsOfTheFourKinds) {
    const double m = 400.0, u1 = 13.00335483507, u2 = 33.967867004;
    EXPECT_NEAR(isotope_target(ISO_C13, m, u1, u2), 401.00335483507, 1e-9);
    EXPECT_NEAR(isotope_target(ISO_2C13, m, u1, u2), 402.00670967014, 1e-9);
    EXPECT_NEAR(isotope_target(ISO_S34, m, u1, u2), 401.9957958296, 1e-9);
    EXPECT_NEAR(isotope_target(ISO_S34_C13, m, u1, u2), 402.99915066467, 1e-9);
    // The candidate must be strictly weaker than the parent and without a hit.
    HitRecord parent;
    parent.mass = m;
    parent.abundance = 100.0;
    std::vector<HitRecord> peaks(3);
    peaks[0].mass = 401.00335483507;
    peaks[0].abundance = 100.0;  // as strong: refused
    peaks[1].mass = 401.0033549;
    peaks[1].abundance = 20.0;
    peaks[1].hit_code = 1;  // already assigned: refused
    peaks[2].mass = 401.0034;
    peaks[2].abundance = 10.0;
    int best = -1;
    EXPECT_EQ(find_isotope(ISO_C13, parent, peaks, 1.0, u1, u2, &best, nullptr, parent.abundance), 1);
    EXPECT_EQ(best, 2);
    peaks[2].abundance = 100.0;
    EXPECT_EQ(find_isotope(ISO_C13, parent, peaks, 1.0, u1, u2, &best, nullptr, parent.abundance), 0);
}

// An even-array group writes its 34S + 13C flag into the odd array at the same
// index; with a shorter odd array nothing is written out of bounds, the console
// says so, and the group's formula stays.
TEST(IsotopeRules, EvenGroupFlagPastTheOddArray) {
    FormulaSettings st = molecal_defaults();
    RecordingUi ui;
    ASSERT_EQ(parse_element_ranges("13C0-1,34S0-1,C1-80,H0-160,O0-6,S0-2", st, ui), 0);
    Spectrum s;
    for (int i = 0; i < 3; ++i) {
        HitRecord h;
        h.mass = 400.0 + 14.01565 * i;
        h.abundance = 1000.0 * (i + 1);
        h.sn = 1000.0;
        h.series = 0;
        h.hit_code = 1;
        h.counts = {25 + i, 40 + 2 * i, 0, 2, 1, 0, 0, 0, 0, 0, 0, 0};
        s.assigned.push_back(h);
    }
    KendrickTables t;
    t.even_series = 1;
    KendrickRank r;
    r.first = 0;
    r.last = 2;
    r.most_abundant = 2;
    r.series = 0;
    r.odd = 0;
    t.ranks.push_back(r);
    IsotopeRulesSummary sum;
    EXPECT_EQ(isotope_rules_single(0, 0, 1.0, t, s, st, ui, &sum), 0);
    EXPECT_NE(ui.console.find("has no odd_array place for its S34 C13 flag"), std::string::npos) << ui.console;
    EXPECT_TRUE(s.unassigned.empty());
    // Even groups set their 13C flags but never search for 13C.
    EXPECT_EQ(sum.expected[ISO_C13], 0);
    for (const HitRecord& h : s.assigned) {
        EXPECT_EQ(h.isotope_flags[ISO_C13], ISOFLAG_EXPECTED);
        EXPECT_EQ(h.hit_code, 1);
    }
    // Nothing to find: the 2 x 13C and 34S searches expected and found nothing.
    EXPECT_GT(sum.expected[ISO_2C13], 0);
    EXPECT_EQ(sum.found[ISO_2C13] + sum.found[ISO_S34], 0);
    // A sulfur-free group gets no 34S test.
    for (HitRecord& h : s.assigned) {
        h.counts[4] = 0;
        h.isotope_flags = {0, 0, 0, 0};
    }
    IsotopeRulesSummary none;
    isotope_rules_single(0, 0, 1.0, t, s, st, ui, &none);
    EXPECT_EQ(none.expected[ISO_S34], 0);
    EXPECT_EQ(none.expected[ISO_S34_C13], 0);
}

// ----------------------------------------------------------------- confirmation

constexpr double mC = 12.0, mH = 1.00782503223, mN = 14.00307400443, mO = 15.99491461957, mS = 31.9720711744;
constexpr double m13C = 13.00335483507, m34S = 33.967867004, e = 0.00054858;

struct Truth {
    ElementCounts counts{};  // ion C, H, N, O, S, P, 13C, 34S
    int parent = -1;         // index of the parent's truth, -1 for a parent
    int kind = -1;
    double sn = 0.0;
};

double ion_mass(const ElementCounts& c) {
    return c[0] * mC + c[1] * mH + c[2] * mN + c[3] * mO + c[4] * mS + c[6] * m13C + c[7] * m34S + e;
}

TEST(IsotopeRules, ConfirmationOnTwoThousandParents) {
    std::mt19937_64 rng(17);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    struct Cls {
        int n, o, s;
    };
    const Cls classes[] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 2, 0}, {0, 3, 0}, {0, 4, 0}, {0, 0, 1}, {0, 0, 2}, {1, 0, 1}};
    std::vector<Truth> truth;
    std::vector<std::pair<double, double>> peaks;  // mass, S/N (noise 1)
    std::set<std::tuple<int, int, int, int, int>> used;
    int parents = 0;
    while (parents < 2000) {
        const Cls k = classes[static_cast<std::size_t>(u(rng) * 9)];
        const int dbe = 1 + static_cast<int>(u(rng) * 20);
        const int len = 4 + static_cast<int>(u(rng) * 8);
        const int c0 = 15 + static_cast<int>(u(rng) * 40);
        const double top = std::exp(std::log(5.0) + u(rng) * std::log(2000.0 / 5.0));
        const int peak_at = static_cast<int>(u(rng) * len);
        for (int j = 0; j < len && parents < 2000; ++j) {
            const int c = c0 + j;
            if (c > 60) break;
            // [M-H]- of CcH(2c+2+n-2dbe)NnOoSs
            const int h = 2 * c + 2 + k.n - 2 * dbe - 1;
            if (h < 4 || !used.insert({c, h, k.n, k.o, k.s}).second) continue;
            Truth t;
            t.counts = {c, h, k.n, k.o, k.s, 0, 0, 0, 0, 0, 0, 0};
            t.sn = std::max(5.0, top * std::exp(-0.25 * std::abs(j - peak_at)));
            const int parent = static_cast<int>(truth.size());
            truth.push_back(t);
            ++parents;
            // Isotopologues at their true ratios to the parent.
            const double r13 = c * 0.0107 / 0.9893;
            const double r2 = c * (c - 1) / 2.0 * std::pow(0.0107 / 0.9893, 2);
            const double r34 = k.s * 0.0425 / 0.9499;
            struct Iso {
                int kind, c13, s34;
                double ratio;
            };
            const Iso isos[] = {{ISO_C13, 1, 0, r13}, {ISO_2C13, 2, 0, r2}, {ISO_S34, 0, 1, r34}, {ISO_S34_C13, 1, 1, r34 * r13}};
            for (const Iso& i : isos) {
                if (i.ratio <= 0.0) continue;
                Truth q = t;
                q.counts[0] -= i.c13;
                q.counts[6] = i.c13;
                q.counts[4] -= i.s34;
                q.counts[7] = i.s34;
                q.parent = parent;
                q.kind = i.kind;
                q.sn = t.sn * i.ratio;
                if (q.sn < 1.0) continue;  // below the noise: not in the list
                truth.push_back(q);
            }
        }
    }
    // Decoys: for one parent in 20, a peak stronger than the parent inside its
    // 13C window (0.5 ppm off), which the rules must refuse.
    std::vector<std::pair<double, double>> decoys;
    for (std::size_t i = 0; i < truth.size(); ++i)
        if (truth[i].parent < 0 && u(rng) < 0.05) decoys.push_back({(ion_mass(truth[i].counts) - mC + m13C) * (1 + 0.5e-6), truth[i].sn * 1.5});
    Spectrum s;
    for (const Truth& t : truth) {
        Peak p;
        p.mass = ion_mass(t.counts) * (1.0 + (u(rng) - 0.5) * 0.6e-6);
        p.abundance = t.sn;
        p.sn = t.sn;
        s.peaks.push_back(p);
    }
    for (auto [m, a] : decoys) {
        Peak p;
        p.mass = m;
        p.abundance = a;
        p.sn = a;
        s.peaks.push_back(p);
    }
    std::vector<std::size_t> order(s.peaks.size());
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(), [&](auto a, auto b) { return s.peaks[a].mass < s.peaks[b].mass; });
    std::vector<Peak> sorted;
    for (auto i : order) sorted.push_back(s.peaks[i]);
    s.peaks = sorted;

    FormulaSettings st = molecal_defaults();
    RecordingUi ui;
    ASSERT_EQ(parse_element_ranges("13C0-1,34S0-1,C1-80,H0-160,N0-1,O0-4,S0-2", st, ui), 0);
    st.mode = ChargeMode::NEG;
    st.RADICALS = false;
    st.MASS_ACCURACY = 1.0;
    st.TOPDOWN = true;
    st.series_fit = true;
    st.IGNOREOVERS = true;
    KendrickOptions ko;
    ASSERT_EQ(assign_peak_list(s, ko, st, 2, ui, nullptr), 0);

    // Each truth to its peak by mass.
    auto find_peak = [&](double m) -> const HitRecord* {
        for (const auto* a : {&s.assigned, &s.unassigned})
            for (const HitRecord& h : *a)
                if (std::fabs(h.mass - m) < m * 0.31e-6) return &h;
        return nullptr;
    };
    std::array<int, 4> present{}, confirmed{}, wrong{}, missed{};
    std::array<int, 4> even_group{}, claimed{}, one_search{}, unexplained{};
    static const char* const names[4] = {"13C", "2x13C", "34S", "34S+13C"};
    auto in_array = [](const std::vector<HitRecord>& a, const HitRecord* h) {
        // std::less: a total order even for pointers into different arrays.
        return !a.empty() && !std::less<const HitRecord*>()(h, a.data()) &&
               std::less<const HitRecord*>()(h, a.data() + a.size());
    };
    int parent_count = 0, parent_as_isotope = 0, right_parents = 0;
    std::vector<const HitRecord*> at(truth.size(), nullptr);
    for (std::size_t i = 0; i < truth.size(); ++i) at[i] = find_peak(ion_mass(truth[i].counts));
    for (std::size_t i = 0; i < truth.size(); ++i) {
        const Truth& t = truth[i];
        const HitRecord* h = at[i];
        if (!h) continue;
        if (t.parent < 0) {
            ++parent_count;
            if (h->hit_code != 0 && (h->counts[6] > 0 || h->counts[7] > 0)) ++parent_as_isotope;
            if (h->hit_code != 0 && h->counts == t.counts) ++right_parents;
            continue;
        }
        const HitRecord* p = at[static_cast<std::size_t>(t.parent)];
        if (t.sn < 10.0 || !p || p->hit_code == 0 || p->counts != truth[static_cast<std::size_t>(t.parent)].counts) continue;
        const auto k = static_cast<std::size_t>(t.kind);
        ++present[k];
        if (h->hit_code != 0 && h->counts == t.counts) ++confirmed[k];
        else if (h->hit_code != 0) ++wrong[k];
        else ++missed[k];
        if (h->hit_code != 0 && h->counts == t.counts) continue;
        // Why the rules left this one: each miss has to be one the rules
        // make as they stand, never a fault of the engine or of this test.
        const bool parent_odd = in_array(s.unassigned, p);
        const auto& parr = parent_odd ? s.unassigned : s.assigned;
        if (!parent_odd && (t.kind == ISO_C13 || t.kind == ISO_S34_C13)) {
            ++even_group[k];  // no 13C search; 34S + 13C flag in the odd array, search in the even one
        } else if (h->score == ISOTOPE_SCORE) {
            ++claimed[k];  // taken by another parent's rule inside the 1 ppm window
        } else if (h->hit_code == 0 && std::any_of(parr.begin(), parr.end(), [&](const HitRecord& m) {
                       return m.series == p->series && m.isotope_flags[k] == ISOFLAG_FOUND;
                   })) {
            ++one_search[k];  // the group's one search went to another member's series
        } else {
            ++unexplained[k];
            std::cout << fmt::format("unexplained {} of the parent at {:.6f}: peak {:.6f} hit {} score {}\n", names[k], p->mass,
                                     h->mass, h->hit_code, h->score);
        }
    }
    std::cout << fmt::format("parents {} (right formula {}), given an isotopologue formula {}\n", parent_count, right_parents,
                             parent_as_isotope);
    for (std::size_t k = 0; k < 4; ++k) {
        std::cout << fmt::format("{:8} present {:5} confirmed {:5} ({:.1f} %) wrong {:5} missed {:5}\n", names[k], present[k],
                                 confirmed[k], present[k] ? 100.0 * confirmed[k] / present[k] : 0.0, wrong[k], missed[k]);
        std::cout << fmt::format("{:8} not confirmed: even-array group {}, taken by another parent's rule {}, one search "
                                 "per group {}, unexplained {}\n",
                                 "", even_group[k], claimed[k], one_search[k], unexplained[k]);
        RecordProperty(fmt::format("confirmed_{}", k), confirmed[k]);
        EXPECT_EQ(unexplained[k], 0) << names[k];
    }
    EXPECT_EQ(parent_count, 2000);
    EXPECT_LE(parent_as_isotope, 4);  // 0.2 %
    for (std::size_t k = 0; k < 4; ++k) EXPECT_GT(present[k], 50) << names[k];
    // Measured with one search per group (the rules as they stand): 13C 95.5 %,
    // 2x13C 100 %, 34S 94.5 %, 34S+13C 63.7 %. The goals of 98/90/95/90 % are
    // not all met; these floors catch a regression.
    EXPECT_GE(confirmed[0], present[0] * 95 / 100);
    EXPECT_GE(confirmed[1], present[1] * 98 / 100);
    EXPECT_GE(confirmed[2], present[2] * 93 / 100);
    EXPECT_GE(confirmed[3], present[3] * 60 / 100);
}

}  // namespace
}  // namespace vx
