#include <gtest/gtest.h>

#include <cmath>

#include "composition/elements.hpp"
#include "composition/kendrick.hpp"
#include "platform/ui.hpp"

namespace vx {
namespace {

const double CH2 = 14.01565006446;

Spectrum peaks_of(const std::vector<std::pair<double, double>>& mz_abundance) {
    Spectrum s;
    for (auto [m, a] : mz_abundance) {
        Peak p;
        p.mass = m;
        p.abundance = a;
        s.peaks.push_back(p);
    }
    return s;
}

const HitRecord* by_mass(const Spectrum& s, double m) {
    for (const auto* a : {&s.assigned, &s.unassigned})
        for (const HitRecord& h : *a)
            if (std::fabs(h.mass - m) < 1e-9) return &h;
    return nullptr;
}

TEST(KendrickValues, NominalDefectZStarAndParityByFloor) {
    struct Case {
        double mz;
        int nominal, kmd, z_star;
        bool odd;
    };
    // km = mz / 1.0011177; the defect is (nominal - km) in thousandths.
    const Case cases[] = {
        {14.01565006446, 14, 0, -14, false},    // CH2 itself: km 14.000...
        {227.2006, 227, 53, -11, false},        // km 226.947: floor 226 even, nominal 227
        {228.2, 228, 55, -10, true},            // km 227.945: floor 227 odd though the nominal is even
        {200.9, 201, 324, -9, false},           // km 200.676: floor 200 even, nominal 201
    };
    for (const Case& c : cases) {
        const KendrickValues v = kendrick_values(c.mz, KENDRICK_FACTOR_CH2);
        const double km = c.mz / 1.0011177;
        EXPECT_NEAR(v.km, km, 1e-12);
        EXPECT_EQ(v.nominal, c.nominal) << c.mz;
        EXPECT_EQ(v.kmd, static_cast<int>(std::lround((v.nominal - km) * 1000))) << c.mz;
        EXPECT_EQ(v.z_star, c.z_star) << c.mz;
        EXPECT_EQ(v.odd, c.odd) << c.mz;
    }
}

TEST(KendrickBase, FactorsAndRefusals) {
    double step = 0, factor = 0;
    ASSERT_TRUE(kendrick_base("CH2", step, factor));
    EXPECT_DOUBLE_EQ(factor, 1.0011177);
    EXPECT_NEAR(step, CH2, 1e-10);
    ASSERT_TRUE(kendrick_base("CO2", step, factor));
    EXPECT_NEAR(step, 43.98982923914, 1e-9);
    EXPECT_NEAR(factor, 43.98982923914 / 44.0, 1e-12);
    ASSERT_TRUE(kendrick_base("H2", step, factor));
    EXPECT_NEAR(step, 2.01565006446, 1e-10);
    for (const char* bad : {"", "Xx", "ch2", "C0", "2H"}) EXPECT_FALSE(kendrick_base(bad, step, factor)) << bad;
}

// A CH2 series C12..C20 of one class with C16 missing, and a second series of
// another defect beside it. The gap of one member does not end the series.
TEST(KendrickSeries, GapOfOneMemberDoesNotEndTheSeries) {
    const double base = 12 * 12.0 + 9 * 1.00782503223 + 4 * 15.99491461957 + 0.00054858;  // C12H9O4-
    std::vector<std::pair<double, double>> list;
    for (int k = 0; k <= 8; ++k)
        if (k != 4) list.push_back({base + k * CH2, 1000.0 + 100.0 * k});
    const double other = base + 0.0364;  // CH4 vs O: another series at each nominal mass
    for (int k = 0; k <= 3; ++k) list.push_back({other + 2 * k * CH2, 500.0});
    Spectrum s = peaks_of(list);
    KendrickTables t;
    RecordingUi ui;
    ASSERT_EQ(KendrickCalculate(s, KendrickOptions{}, t, ui), 0);
    const int series = by_mass(s, base)->series;
    const bool odd_array = !s.unassigned.empty() && by_mass(s, base) >= &s.unassigned.front() &&
                           by_mass(s, base) <= &s.unassigned.back();
    for (int k = 0; k <= 8; ++k)
        if (k != 4) {
            const HitRecord* h = by_mass(s, base + k * CH2);
            ASSERT_NE(h, nullptr);
            EXPECT_EQ(h->series, series) << "member " << k;
        }
    for (int k = 0; k <= 3; ++k) EXPECT_NE(by_mass(s, other + 2 * k * CH2)->series, series);
    // Numbers run without gaps; the first-index list ends at count - 1.
    const auto& first = odd_array ? t.odd_first : t.even_first;
    const auto& arr = odd_array ? s.unassigned : s.assigned;
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(first.back(), static_cast<int>(arr.size()) - 1);
    for (std::size_t i = 1; i < arr.size(); ++i) {
        EXPECT_LE(arr[i - 1].series, arr[i].series);
        EXPECT_LE(arr[i].series - arr[i - 1].series, 1);
        if (arr[i].series == arr[i - 1].series) {
            EXPECT_LT(arr[i - 1].mass, arr[i].mass);
        }
    }
    EXPECT_EQ(s.assignedcount + s.unassignedcount, static_cast<int>(list.size()));
}

TEST(KendrickSeries, WindowAndAbundanceBandChooseTheMember) {
    // Anchor 300 (abundance 1000); one CH2 up two candidates inside 1 ppm:
    // the closer one far outside the abundance band, the farther one inside.
    const double a = 300.1;
    const double near_out = a + CH2 + a * 0.1e-6, far_in = a + CH2 - a * 0.6e-6;
    Spectrum s = peaks_of({{a, 1000.0}, {near_out, 10.0}, {far_in, 900.0}, {a + 2 * CH2 + a * 3e-6, 800.0}});
    std::vector<HitRecord> arr;
    for (const Peak& p : s.peaks) {
        HitRecord h;
        h.mass = p.mass;
        h.abundance = p.abundance;
        arr.push_back(h);
    }
    std::sort(arr.begin(), arr.end(), [](const HitRecord& x, const HitRecord& y) { return x.mass < y.mass; });
    std::vector<double> working(arr.size(), 1.0);
    const int members = AssignKendrickSeries(arr, working, 0, 7, 1.0, 0.5, 0.5, CH2);
    EXPECT_EQ(members, 2);
    for (const HitRecord& h : arr) {
        if (h.mass == far_in) EXPECT_EQ(h.series, 7);
        else if (h.mass == a) EXPECT_EQ(h.series, 7);
        else EXPECT_EQ(h.series, -1) << h.mass;  // out of band, and 3 ppm off
    }
    // Both outside the band: the closer wins.
    for (HitRecord& h : arr) h.series = -1;
    const int m2 = AssignKendrickSeries(arr, working, 0, 1, 1.0, 0.0, 0.0, CH2);
    EXPECT_EQ(m2, 2);
    for (const HitRecord& h : arr)
        if (h.mass == near_out) {
            EXPECT_EQ(h.series, 1);
        }
}

TEST(KendrickRanks, HighestAbundanceFirstOddBeforeEvenAmongEquals) {
    std::vector<HitRecord> odd(3), even(3);
    const double ab_odd[] = {5, 9, 1}, ab_even[] = {9, 2, 20};
    const int ser_odd[] = {0, 0, 1}, ser_even[] = {0, 1, 1};
    for (int i = 0; i < 3; ++i) {
        odd[static_cast<std::size_t>(i)].abundance = ab_odd[i];
        odd[static_cast<std::size_t>(i)].series = ser_odd[i];
        even[static_cast<std::size_t>(i)].abundance = ab_even[i];
        even[static_cast<std::size_t>(i)].series = ser_even[i];
    }
    const auto r = RankKendrickGroups(odd, even);
    ASSERT_EQ(r.size(), 4u);
    EXPECT_EQ(r[0].odd, 0);  // even series 1, highest 20
    EXPECT_EQ(r[0].series, 1);
    EXPECT_EQ(r[0].most_abundant, 2);
    EXPECT_DOUBLE_EQ(r[0].sum, 22.0);
    EXPECT_EQ(r[1].odd, 1);  // odd series 0 and even series 0 both reach 9: odd first
    EXPECT_EQ(r[1].series, 0);
    EXPECT_EQ(r[1].most_abundant, 1);
    EXPECT_EQ(r[1].first, 0);
    EXPECT_EQ(r[1].last, 1);
    EXPECT_EQ(r[2].odd, 0);
    EXPECT_EQ(r[3].highest, 1.0);
}

TEST(KendrickLookups, LocateMassAndIncompatibleMembers) {
    std::vector<HitRecord> a(4);
    const double m[] = {300.0, 300.0004, 300.0009, 300.002};
    const double ab[] = {10, 50, 5, 1};
    for (std::size_t i = 0; i < 4; ++i) {
        a[i].mass = m[i];
        a[i].abundance = ab[i];
    }
    a[0].hit_code = 1;  // assigned peaks are never offered
    std::vector<int> matches;
    int best = -1;
    double target = 300.0008;
    EXPECT_EQ(LocateKendrickMass(&target, a, 0.001, matches, &best, 20.0), 1);  // 300.0004 is too abundant
    EXPECT_EQ(best, 2);
    EXPECT_DOUBLE_EQ(target, 300.0009);
    target = 300.0008;
    EXPECT_EQ(LocateKendrickMass(&target, a, 0.001, matches, &best, 100.0), 2);
    EXPECT_EQ(best, 2);
    target = 400.0;
    EXPECT_EQ(LocateKendrickMass(&target, a, 0.001, matches, &best, 100.0), 0);
    EXPECT_DOUBLE_EQ(target, 400.0);

    // A C3H7 hit at the third member of a series whose first member lies
    // three CH2 below: C would become 0, H 1 - fine; four below is not.
    Spectrum s;
    for (int k = 0; k < 5; ++k) {
        HitRecord h;
        h.mass = 43.05 + k * CH2;
        h.series = 0;
        s.unassigned.push_back(h);
    }
    const ElementCounts c3h7 = {3, 7};
    EXPECT_EQ(CheckForIncompatibleKendrickMembers(c3h7, 3, s.unassigned[3].mass, 1, s), 0);
    EXPECT_EQ(CheckForIncompatibleKendrickMembers(c3h7, 4, s.unassigned[4].mass, 1, s), -1);
    EXPECT_EQ(CheckForIncompatibleKendrickMembers(c3h7, 4, s.unassigned[4].mass, 0, s), 0);  // even array: not checked
}

TEST(KendrickCalculate, RefusesEmptyListsAndBadBases) {
    RecordingUi ui;
    KendrickTables t;
    Spectrum empty;
    EXPECT_EQ(KendrickCalculate(empty, KendrickOptions{}, t, ui), -1);
    EXPECT_EQ(ui.messages.at(0).text, "The peak list is empty: there is nothing to group into series.");
    Spectrum zeros = peaks_of({{0.0, 5.0}, {-3.0, 1.0}});
    EXPECT_EQ(KendrickCalculate(zeros, KendrickOptions{}, t, ui), -1);
    Spectrum one = peaks_of({{300.0, 5.0}});
    KendrickOptions bad;
    bad.base = "Qq2";
    EXPECT_EQ(KendrickCalculate(one, bad, t, ui), -1);
    EXPECT_NE(ui.messages.back().text.find("Qq2"), std::string::npos);
    // Masses far apart finish at once: empty stretches are crossed in one step.
    Spectrum far = peaks_of({{1.0, 5.0}, {1.0 + CH2, 4.0}, {1e12, 3.0}, {1e300, 2.0}, {5e7, 1.0}});
    ASSERT_EQ(KendrickCalculate(far, KendrickOptions{}, t, ui), 0);
    EXPECT_EQ(far.assignedcount + far.unassignedcount, 5);
    KendrickOptions zero_window;
    zero_window.ppm = 0.0;
    EXPECT_EQ(KendrickCalculate(one, zero_window, t, ui), -1);
}

}  // namespace
}  // namespace vx

#include "composition/commands.hpp"

namespace vx {
namespace {

// The desktop's commands on a workspace slot holding a peak list read from a
// .pks file (m/z in the stick position): Kendrick view rows, assignment and
// the search box.
TEST(KendrickCommands, ActiveSlotRowsAndSearch) {
    Workspace ws;
    RecordingUi ui;
    KendrickTables t;
    EXPECT_EQ(KendrickCommand(ws, KendrickOptions{}, t, ui), -1);
    EXPECT_EQ(ui.messages.at(0).text, "There is no active data set: open a spectrum or a peak list first.");
    ws.active_panel = 3;
    ws.panels[3].active = 1;
    Spectrum& s = ws.panels[3].spectrum;
    s.domain = DOMAIN_PEAKLIST;
    const double c10 = 120.0 + 9 * 1.00782503223 + 4 * 15.99491461957 + 0.00054858;
    for (int k = 0; k < 4; ++k) {
        Peak p;
        p.index = c10 + k * CH2;
        p.abundance = 100.0 + k;
        s.peaks.push_back(p);
    }
    FormulaSettings st = molecal_defaults();
    ASSERT_EQ(parse_element_ranges("C1-50,H0-100,O0-10", st, ui), 0);
    st.RADICALS = false;
    st.MASS_ACCURACY = 1.0;
    AssignSummary sum;
    ASSERT_EQ(calc_form(ws, t, KendrickOptions{}, st, 2, ui, &sum), 0);
    EXPECT_EQ(sum.assigned, 4);
    const auto rows = kendrick_rows(s, t, st);
    ASSERT_EQ(rows.size(), 4u);
    for (const KendrickRow& r : rows) {
        EXPECT_EQ(r.type, "Single");
        EXPECT_EQ(r.rank, 1);
        EXPECT_NEAR(r.defect, r.nominal - r.mz / 1.0011177, 1e-12);
    }
    const int first = k_search(rows, "c12h13o4", -1);
    ASSERT_GE(first, 0);
    EXPECT_EQ(rows[static_cast<std::size_t>(first)].formula, "C12H13O4");
    EXPECT_EQ(k_search(rows, "c12h13o4", first), -1);  // no further match
    EXPECT_EQ(k_search(rows, "", -1), -1);
    SingleSearchResult r;
    EXPECT_EQ(calc_form_single(c10, st, r, ui), 1);
    EXPECT_EQ(r.hits.at(0).counts[0], 10);
}

}  // namespace
}  // namespace vx
