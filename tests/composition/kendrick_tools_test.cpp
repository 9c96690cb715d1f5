// The tools of the Kendrick views: the calculator opened on a peak and its
// pick carried along the series, "No Hit" marking, the search for series
// without a formula, and a series taken into the calibration table.
#include <gtest/gtest.h>

#include <cmath>

#include "calibration/calibration.hpp"
#include "composition/commands.hpp"
#include "platform/ui.hpp"
#include "sim/formula_list.hpp"

namespace vx {
namespace {

KendrickRow row(int odd, int series, const char* formula) {
    KendrickRow r;
    r.odd = odd;
    r.series = series;
    r.formula = formula;
    return r;
}

TEST(KendrickTools, FindNoHitSeries) {
    // odd: series 0 (2 members, assigned), 1 (3 members, one without), 2 (1 member without);
    // even: series 0 (2 members without).
    const std::vector<KendrickRow> rows = {row(1, 0, "C10H17O4"), row(1, 0, "C11H19O4"), row(1, 1, "C9H9O3"),
                                           row(1, 1, ""),         row(1, 1, "C11H13O3"), row(1, 2, ""),
                                           row(0, 0, ""),         row(0, 0, "")};
    struct Case {
        int from, minimum, found;
    };
    const Case cases[] = {{0, 2, 3}, {4, 2, 6}, {0, 1, 3}, {4, 1, 5}, {0, 3, 3}, {4, 3, -1}, {7, 2, 7}, {8, 1, -1}};
    for (const Case& c : cases) EXPECT_EQ(FindNoHitSeries(rows, c.from, c.minimum), c.found) << c.from << " " << c.minimum;
}

struct Assigned {
    Spectrum s;
    KendrickTables t;
    FormulaSettings st;
    std::vector<KendrickRow> rows;
};

Assigned assigned_list() {
    Assigned a;
    FormulaListParameters p;
    p.count = 150;
    p.seed = 11;
    p.chon = p.chos = false;
    formula_list_to_spectrum(simulate_formula_list(p), a.s);
    RecordingUi ui;
    a.st = molecaluno_defaults();
    EXPECT_EQ(parse_element_ranges("C1-80,H0-160,O0-20", a.st, ui), 0);
    a.st.MASS_ACCURACY = 1.0;
    a.st.RADICALS = false;
    a.st.IGNOREOVERS = true;
    a.st.series_fit = true;
    EXPECT_EQ(assign_peak_list(a.s, KendrickOptions{}, a.st, 2, ui, nullptr, &a.t), 0);
    a.rows = kendrick_rows(a.s, a.t, a.st);
    return a;
}

// The first row of a series with at least three members (de-protonated CHO
// ions all fall in the even array).
int long_series(const std::vector<KendrickRow>& rows) {
    for (std::size_t i = 0; i + 2 < rows.size(); ++i)
        if (rows[i].odd == rows[i + 2].odd && rows[i].series == rows[i + 2].series &&
            (i == 0 || rows[i - 1].series != rows[i].series || rows[i - 1].odd != rows[i].odd))
            return static_cast<int>(i);
    return -1;
}

TEST(KendrickTools, NoHitThenPickCarriesAlongTheSeries) {
    Assigned a = assigned_list();
    const int r0 = long_series(a.rows);
    ASSERT_GE(r0, 0);
    SingleCalcTarget t;
    ASSERT_EQ(CheckFormula(a.rows, r0, t), 0);
    EXPECT_EQ(t.op_index, 4);
    EXPECT_EQ(CheckFormula(a.rows, -1, t), -1);
    ASSERT_EQ(CheckFormula(a.rows, r0, t), 0);
    const int series = a.rows[static_cast<std::size_t>(r0)].series;
    const auto& arr = t.oddeven ? a.s.unassigned : a.s.assigned;
    const ElementCounts truth = arr[static_cast<std::size_t>(t.index)].counts;

    // "Assign No Hit": the whole series loses its formulas.
    RecordingUi ui;
    ASSERT_EQ(nohit_kendrick(a.s, t, a.st, ui), 0);
    int members = 0;
    for (const HitRecord& h : arr)
        if (h.series == series) {
            ++members;
            EXPECT_EQ(h.hit_code, 0);
            EXPECT_EQ(h.formula_text, "No Hit");
        }
    EXPECT_GE(members, 3);

    // The calculator lists the candidates sorted by error; the pick of the
    // true formula goes by its running number, whatever its row.
    SingleSearchResult found;
    ASSERT_GE(calc_form_single(t.mz, a.st, found, ui), 1);
    int running = -1;
    for (const FormulaHit& h : found.hits)
        if (h.counts == truth) running = h.running;
    ASSERT_GE(running, 0);
    ASSERT_GE(update_kendrick(a.s, t, running, a.st, ui), 1);
    const double test_mass = arr[static_cast<std::size_t>(t.index)].mass;
    for (const HitRecord& h : arr)
        if (h.series == series) {
            EXPECT_NE(h.hit_code, 0);
            const int k = static_cast<int>(std::lround((h.mass - test_mass) / CH2_LITERAL));
            EXPECT_EQ(h.counts[0], truth[0] + k);
            EXPECT_EQ(h.counts[1], truth[1] + 2 * k);
            EXPECT_EQ(h.counts[3], truth[3]);
            EXPECT_LT(std::fabs(h.error), 1.0);
        }

    // A view whose arrays changed refuses the pick; so does no pick at all.
    SingleCalcTarget stale = t;
    stale.mz += 0.001;
    EXPECT_EQ(update_kendrick(a.s, stale, running, a.st, ui), -1);
    EXPECT_EQ(nohit_kendrick(a.s, stale, a.st, ui), -1);
    EXPECT_EQ(update_kendrick(a.s, t, -1, a.st, ui), -1);
    EXPECT_EQ(ui.messages.size(), 3u);
}

TEST(KendrickTools, SeriesIntoTheCalibrationTable) {
    Assigned a = assigned_list();
    const int r0 = long_series(a.rows);
    ASSERT_GE(r0, 0);
    const int series = a.rows[static_cast<std::size_t>(r0)].series;
    std::vector<const HitRecord*> members;
    for (const HitRecord& h : a.rows[static_cast<std::size_t>(r0)].odd ? a.s.unassigned : a.s.assigned)
        if (h.series == series && h.hit_code != 0) members.push_back(&h);
    ASSERT_GE(members.size(), 3u);

    CalibrationPanel panel;
    RecordingUi ui;
    ASSERT_EQ(AddKendrickSeries(a.s, a.rows, r0, panel, false, ui), static_cast<int>(members.size()));
    ASSERT_EQ(panel.rows.size(), members.size());
    EXPECT_EQ(panel.CalPoints, static_cast<int>(members.size()));
    for (std::size_t i = 0; i < members.size(); ++i) {
        const CalTableRow& r = panel.rows[i];
        const Peak& p = a.s.peaks[static_cast<std::size_t>(members[i]->source_index)];
        EXPECT_EQ(r.number, members[i]->source_index + 1);
        EXPECT_DOUBLE_EQ(r.theoretical, members[i]->theoretical_mass);
        EXPECT_DOUBLE_EQ(r.measured, p.mass);
        EXPECT_NEAR(r.error, (p.mass - r.theoretical) / r.theoretical * 1e6, 1e-9);
        EXPECT_EQ(p.iscalibrant, 1);
        EXPECT_DOUBLE_EQ(p.calmass, r.theoretical);
    }
    // The same series again adds nothing; a row of another series adds its own.
    EXPECT_EQ(AddKendrickSeries(a.s, a.rows, r0, panel, false, ui), 0);
    EXPECT_TRUE(ui.messages.empty());

    // Recalibrate asks first; a no leaves the table, a yes empties it and
    // unmarks every peak before the series goes in.
    a.s.peaks[0].iscalibrant = 1;
    ui.confirms.push_back(false);
    EXPECT_EQ(AddKendrickSeries(a.s, a.rows, r0, panel, true, ui), -1);
    EXPECT_EQ(panel.rows.size(), members.size());
    ui.confirms.push_back(true);
    EXPECT_EQ(AddKendrickSeries(a.s, a.rows, r0, panel, true, ui), static_cast<int>(members.size()));
    ASSERT_EQ(ui.messages.size(), 2u);
    EXPECT_EQ(ui.messages[0].title, "This action will remove all current values from calibration table.");
    EXPECT_EQ(ui.messages[0].text, "Press Yes to continue and remove all values.");
    int marked = 0;
    for (const Peak& p : a.s.peaks) marked += p.iscalibrant;
    EXPECT_EQ(marked, static_cast<int>(members.size()));

    // A series without formulas, and no selection, give a message.
    ui.messages.clear();
    SingleCalcTarget t;
    ASSERT_EQ(CheckFormula(a.rows, r0, t), 0);
    ASSERT_EQ(nohit_kendrick(a.s, t, a.st, ui), 0);
    EXPECT_EQ(AddKendrickSeries(a.s, a.rows, r0, panel, false, ui), -1);
    EXPECT_EQ(AddKendrickSeries(a.s, a.rows, -1, panel, false, ui), -1);
    EXPECT_EQ(ui.messages.size(), 2u);
}

TEST(KendrickTools, CalibrantsOutsideTheListArePassedOver) {
    // Frequencies under a one-term law, so a measured mass recomputed from the
    // table's coefficients is the peak's own mass.
    Spectrum s;
    s.Aterm = 1.0e8;
    s.Bterm = 0.0;
    s.peaks.resize(3);
    for (int i = 0; i < 3; ++i) {
        s.peaks[static_cast<std::size_t>(i)].mass = 200.0 + i;
        s.peaks[static_cast<std::size_t>(i)].frequency = s.Aterm / (200.0 + i);
    }
    CalibrationPanel panel;
    const std::vector<int> peaks = {0, 7, -1, 2, 1};
    const std::vector<double> masses = {200.0001, 300.0, 300.0, 202.0, 0.0};
    EXPECT_EQ(add_calibrants_to_table(panel, s, peaks, masses, false), 2);
    ASSERT_EQ(panel.rows.size(), 2u);
    EXPECT_EQ(panel.rows[0].number, 1);
    EXPECT_EQ(panel.rows[1].number, 3);
    EXPECT_NEAR(panel.rows[0].error, -0.0001 / 200.0001 * 1e6, 1e-9);
    EXPECT_EQ(s.peaks[1].iscalibrant, 0);
    EXPECT_DOUBLE_EQ(panel.CalA, s.Aterm);
    EXPECT_EQ(add_calibrants_to_table(panel, s, std::vector<int>{}, std::vector<double>{}, true), 0);
    EXPECT_TRUE(panel.rows.empty());
    EXPECT_EQ(s.peaks[0].iscalibrant, 0);
    EXPECT_EQ(s.peaks[2].calibrantrow, -1);
}

}  // namespace
}  // namespace vx
