#include "workspace/display.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <random>

#include "platform/ui.hpp"
#include "support/files.hpp"
#include "workspace/conversions.hpp"

namespace vx {
namespace {

// A slot holding n samples of a direct-mode magnitude spectrum (or a transient
// when domain is 0), opened as the opening road opens it.
Workspace& slot_with(Workspace& ws, long n, int domain, float fill = 0.0f) {
    AnalysisPanel& p = ws.panels[0];
    p = AnalysisPanel{};
    p.spectrum.data.assign(static_cast<std::size_t>(n), fill);
    p.spectrum.datacount = static_cast<std::int32_t>(n);
    p.spectrum.domain = domain;
    p.spectrum.dbandwidth = 1000000.0;
    p.spectrum.hzppt = p.spectrum.dbandwidth / static_cast<double>(n);
    return ws;
}

bool contains(const PlotArrays& a, float v) {
    return std::find(a.y.begin(), a.y.begin() + static_cast<long>(a.count), v) != a.y.begin() + static_cast<long>(a.count);
}

TEST(Display, MinMaxKernelAgreesWithPlainPassAndSkipsNaN) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> d(-1000.0f, 1000.0f);
    std::vector<float> v(300);
    for (float& x : v) x = d(rng);
    v[37] = std::numeric_limits<float>::quiet_NaN();
    v[200] = std::numeric_limits<float>::quiet_NaN();
    for (std::size_t start : {0u, 1u, 3u, 17u}) {
        for (std::size_t n : {1u, 2u, 15u, 16u, 17u, 63u, 64u, 65u, 250u}) {
            float lo = std::numeric_limits<float>::infinity(), hi = -lo;
            for (std::size_t i = start; i < start + n; ++i) {
                if (std::isnan(v[i])) continue;
                lo = std::min(lo, v[i]);
                hi = std::max(hi, v[i]);
            }
            const MinMax m = minmax_kernel(v.data() + start, n);
            SCOPED_TRACE(testing::Message() << "start " << start << " n " << n);
            EXPECT_EQ(m.min, lo);
            EXPECT_EQ(m.max, hi);
        }
    }
}

TEST(Display, FullViewExcludesFirstAndLastSample) {
    Workspace ws;
    slot_with(ws, 1024, DOMAIN_TIME, 1.0f);
    AnalysisPanel& p = ws.panels[0];
    p.spectrum.data[0] = -500.0f;    // point 0 is outside the full view
    p.spectrum.data[1023] = 900.0f;  // and so is the last sample
    p.spectrum.data[1022] = 7.0f;
    Initialize_Display(ws, 0);
    EXPECT_EQ(p.active, 1);
    EXPECT_EQ(p.xmode, XMODE_TIME);
    EXPECT_EQ(p.fullmin, 1.0);
    EXPECT_EQ(p.fullmax, 1022.0);
    EXPECT_EQ(p.xmax, 1023.0);
    EXPECT_EQ(p.ymax, 7.0f);
    EXPECT_EQ(p.ymin, 1.0f);

    PlotArrays out;
    Update_Display(p, 2000, out);
    EXPECT_EQ(p.xmax, 1022.0);  // clamped below datacount - 1 by the redraw
    ASSERT_EQ(out.count, 1022u);
    EXPECT_EQ(out.y[out.count - 1], 7.0f);
    EXPECT_FALSE(contains(out, 900.0f));
    EXPECT_FALSE(contains(out, -500.0f));
    // Time mode: milliseconds of point 1 at a 1 MHz digitizer.
    EXPECT_DOUBLE_EQ(out.x[0], 1.0 * 1000.0 / 2e6);

    // Zoom Full and Reset keep the rule; Reset in time data starts at point 1.
    Settings st;
    RecordingUi ui;
    p.xmin = 100;
    p.xmax = 200;
    EXPECT_EQ(PlotMenuCommand(p, PLOT_RESET, 0, 0, st, ui), PLOT_DONE);
    EXPECT_EQ(p.fullmin, 1.0);
    EXPECT_EQ(p.fullmax, 1022.0);
    p.spectrum.detectmode = DETECT_QUADRATURE;
    PlotMenuCommand(p, PLOT_RESET, 0, 0, st, ui);
    EXPECT_EQ(p.fullmin, 0.0);
}

TEST(Display, TinySpectraKeepAUsableFullRange) {
    struct Case {
        long n;
        double fullmin, fullmax;
    } cases[] = {{3, 1.0, 1.0}, {4, 1.0, 2.0}, {2, 1.0, 0.0}};
    for (const Case& c : cases) {
        Workspace ws;
        slot_with(ws, c.n, DOMAIN_TIME, 2.0f);
        Initialize_Display(ws, 0);
        SCOPED_TRACE(c.n);
        EXPECT_EQ(ws.panels[0].fullmin, c.fullmin);
        EXPECT_EQ(ws.panels[0].fullmax, c.fullmax);
        PlotArrays out;
        Update_Display(ws.panels[0], 100, out);  // reads stay inside the data
        EXPECT_GE(out.count, 1u);
    }
}

TEST(Display, EnvelopeKeepsEveryPeakInEveryMode) {
    const long n = 1 << 20;
    Workspace ws;
    slot_with(ws, n, DOMAIN_FREQUENCY, 0.5f);
    AnalysisPanel& p = ws.panels[0];
    // Single-point spikes, up and down, over the spectrum: spikes of one sign
    // lie further apart than the widest column (the low-mass m/z columns span
    // some 16000 points), so each must show as its column's extreme.
    std::vector<std::pair<long, float>> spikes;
    std::mt19937 rng(11);
    std::uniform_int_distribution<long> jitter(0, 999);
    for (int i = 0; i < 40; ++i) {
        const float v = (i % 2 ? -1.0f : 1.0f) * (100.0f + static_cast<float>(i));
        const long at = 60000 + 23000L * i + jitter(rng);
        p.spectrum.data[static_cast<std::size_t>(at)] = v;
        spikes.emplace_back(at, v);
    }
    Initialize_Display(ws, 0);
    struct Case {
        int mode;
        std::size_t count;
    } cases[] = {{XMODE_POINT, 2 * 700}, {XMODE_TIME, 2 * 700}, {XMODE_FREQUENCY, 4000}, {XMODE_MZ, 4000}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.mode);
        p.xmode = c.mode;
        p.xmin = 20000;
        p.xmax = p.fullmax;
        PlotArrays out;
        Update_Display(p, 700, out);
        ASSERT_EQ(out.count, c.count);
        // Never a full-size copy of the samples.
        EXPECT_LE(out.x.size(), 4000u);
        EXPECT_LE(out.y.size(), 4000u);
        for (const auto& [at, v] : spikes) EXPECT_TRUE(contains(out, v)) << "spike at " << at;
        // The local extremes taken from the columns are those of the range.
        const long first = static_cast<long>(p.xmin);
        const MinMax exact = Set_MinMax(p.spectrum, first, first + visible_count(p) - 1);
        EXPECT_EQ(p.localymin, exact.min);
        EXPECT_EQ(p.localymax, exact.max);
        // x ascends in every mode of a direct spectrum (m/z from the low end).
        EXPECT_TRUE(std::is_sorted(out.x.begin(), out.x.begin() + static_cast<long>(out.count)));
    }
    // m/z columns stay inside the masses of the range.
    PlotArrays out;
    p.xmode = XMODE_MZ;
    p.xmin = 20000;
    Update_Display(p, 700, out);
    EXPECT_NEAR(out.x[0], SPt_tomass(p.spectrum, p.xmax), 1e-3 * out.x[0]);
    EXPECT_NEAR(out.x[out.count - 1], SPt_tomass(p.spectrum, p.xmin), 1e-3 * out.x[out.count - 1]);
}

TEST(Display, SmallRangesDrawEveryPoint) {
    Workspace ws;
    slot_with(ws, 1 << 16, DOMAIN_FREQUENCY);
    AnalysisPanel& p = ws.panels[0];
    for (long i = 0; i < (1 << 16); ++i) p.spectrum.data[static_cast<std::size_t>(i)] = static_cast<float>(i);
    Initialize_Display(ws, 0);
    Settings st;
    RecordingUi ui;
    ASSERT_EQ(PlotMenuCommand(p, PLOT_MZ, 0, 0, st, ui), PLOT_DONE);
    p.xmin = 1000;
    p.xmax = 1002;
    PlotArrays out;
    Update_Display(p, 800, out);
    ASSERT_EQ(out.count, 3u);  // a 3-point mass range draws those 3 points
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(out.y[k], 1000.0f + static_cast<float>(k));
        EXPECT_DOUBLE_EQ(out.x[k], SPt_tomass(p.spectrum, 1000.0 + k));
    }
    // 4000 points are still drawn one by one; 4001 are decimated.
    p.xmin = 2000;
    p.xmax = 5999;
    Update_Display(p, 800, out);
    EXPECT_EQ(out.count, 4000u);
    EXPECT_EQ(out.y[0], 2000.0f);
    p.xmax = 6000;
    Update_Display(p, 800, out);
    EXPECT_EQ(out.count, 4000u);
    EXPECT_NE(out.y[0], 2000.0f);  // now min/max columns from the low-mass end
    // Frequency mode below the limit: kHz of each point.
    ASSERT_EQ(PlotMenuCommand(p, PLOT_FREQUENCY, 0, 0, st, ui), PLOT_DONE);
    p.xmin = 10;
    p.xmax = 12;
    Update_Display(p, 800, out);
    ASSERT_EQ(out.count, 3u);
    EXPECT_DOUBLE_EQ(out.x[0], 10.0 * p.spectrum.hzppt / 1000.0);
    EXPECT_EQ(out.xlabel, "Frequency (kHz)");
}

TEST(Display, ZoomWithBothCursorsAtOnePlaceGivesOnePoint) {
    Workspace ws;
    slot_with(ws, 1 << 16, DOMAIN_FREQUENCY, 3.0f);
    AnalysisPanel& p = ws.panels[0];
    Initialize_Display(ws, 0);
    Settings st;
    RecordingUi ui;
    const int modes[] = {PLOT_DATA_POINT, PLOT_MZ, PLOT_FREQUENCY};
    for (int mode : modes) {
        SCOPED_TRACE(mode);
        ASSERT_EQ(PlotMenuCommand(p, mode, 0, 0, st, ui), PLOT_DONE);
        PlotMenuCommand(p, PLOT_ZOOM_FULL, 0, 0, st, ui);
        const double at = point_to_x(p, 5000.0);
        ASSERT_EQ(PlotMenuCommand(p, PLOT_ZOOM_IN, at, at, st, ui), PLOT_DONE);
        EXPECT_NEAR(p.xmin, 5000.0, 1e-4);
        EXPECT_EQ(p.xmin, p.xmax);
        PlotArrays out;
        Update_Display(p, 800, out);
        EXPECT_EQ(out.count, 1u);
        // "Zoom Last" brings back the full view, and again the one point.
        PlotMenuCommand(p, PLOT_ZOOM_LAST, 0, 0, st, ui);
        EXPECT_EQ(p.xmin, p.fullmin);
        PlotMenuCommand(p, PLOT_ZOOM_LAST, 0, 0, st, ui);
        EXPECT_EQ(p.xmin, p.xmax);
    }
    EXPECT_TRUE(ui.messages.empty());
}

TEST(Display, ZoomExactSortsLimitsAndKeepsAGap) {
    Workspace ws;
    slot_with(ws, 4096, DOMAIN_TIME, 1.0f);
    AnalysisPanel& p = ws.panels[0];
    Initialize_Display(ws, 0);
    p.xmode = XMODE_POINT;
    Settings st;
    RecordingUi ui;
    struct Case {
        double low, high, xmin, xmax;
    } cases[] = {
        {300, 100, 100, 300},      // sorted
        {-50, 5000, 1, 4094},      // limited to the axis
        {200, 200.25, 200, 201},   // at least 1 apart
        {4094, 4094, 4093, 4094},  // at the top end the gap goes downwards
    };
    for (const Case& c : cases) {
        ASSERT_EQ(ManualZoomRange(p, c.low, c.high, 1, 4094, st, ui), PLOT_DONE);
        EXPECT_EQ(p.xmin, c.xmin);
        EXPECT_EQ(p.xmax, c.xmax);
    }
}

TEST(Display, RelativeScaleUsesTheRightHundredPercent) {
    struct Case {
        int domain, sed;
        float ymax, ymin, sample;
        float expect;
    } cases[] = {
        {DOMAIN_FREQUENCY, 0, 50.0f, -200.0f, 25.0f, 50.0f},  // magnitude: percent of ymax
        {DOMAIN_MASS, 0, 50.0f, -200.0f, 25.0f, 50.0f},
        {DOMAIN_MASS, 1, 50.0f, -200.0f, 25.0f, 12.5f},   // absorption: larger extreme
        {DOMAIN_MASS, 1, 400.0f, -200.0f, -100.0f, -25.0f},
        {DOMAIN_TIME, 0, 10.0f, -40.0f, 20.0f, 50.0f},
    };
    for (const Case& c : cases) {
        AnalysisPanel p;
        p.spectrum.domain = c.domain;
        p.spectrum.sed = c.sed;
        p.ymax = c.ymax;
        p.ymin = c.ymin;
        p.relativescale = 1;
        float y = c.sample;
        Set_Plot_Attributes(p, &y, 1);
        EXPECT_FLOAT_EQ(y, c.expect) << c.domain << "/" << c.sed;
        p.relativescale = 0;
        y = c.sample;
        Set_Plot_Attributes(p, &y, 1);
        EXPECT_EQ(y, c.sample);
    }
    // The local relative axis runs over the visible extremes.
    Workspace ws;
    slot_with(ws, 4096, DOMAIN_MASS, 1.0f);
    AnalysisPanel& p = ws.panels[0];
    p.spectrum.sed = 1;
    p.spectrum.data[2000] = 80.0f;
    p.spectrum.data[100] = -160.0f;
    Initialize_Display(ws, 0);
    p.xmode = XMODE_POINT;
    p.relativescale = 1;
    p.xmin = 1500;
    p.xmax = 2500;
    PlotArrays out;
    Update_Display(p, 5000, out);
    EXPECT_DOUBLE_EQ(out.yhigh, 50.0);
    EXPECT_DOUBLE_EQ(out.ylow, 100.0 / 160.0);
    EXPECT_EQ(out.ylabel, "Relative Signal");
    p.globalscale = 1;
    Update_Display(p, 5000, out);
    EXPECT_DOUBLE_EQ(out.ylow, -100.0);
}

TEST(Display, ModeRefusalsLeaveTheSlotUnchanged) {
    struct Case {
        int domain, filetype, item;
        const char* title;
        const char* text;
    } cases[] = {
        {DOMAIN_FREQUENCY, 0, PLOT_TIME, "Plotting Error", "TIME not allowed for Frequency Domain Data"},
        {DOMAIN_TIME, 0, PLOT_MZ, "Analyzer Error", "M/Z not allowed for Current Data"},
        {DOMAIN_CHROMATOGRAM, 0, PLOT_MZ, "Analyzer Error", "M/Z not allowed for Current Data"},
        {DOMAIN_TIME, 0, PLOT_FREQUENCY, "Analyzer Error", "FREQUENCY not allowed for Current Data"},
        {DOMAIN_PROFILE, 4, PLOT_FREQUENCY, "Analyzer Error", "FREQUENCY not allowed for Current Data"},
        {DOMAIN_FREQUENCY, 0, PLOT_PEAKS, "Analyzer Error", "PEAKS not allowed for TIME DOMAIN Data"},
        {DOMAIN_FREQUENCY, 0, PLOT_CHROMATOGRAPH, "Analyzer Error", "CHROMATOGRAPH not allowed for Current Data"},
    };
    for (const Case& c : cases) {
        AnalysisPanel p;
        p.spectrum.domain = c.domain;
        p.spectrum.filetype = c.filetype;
        p.xmode = 1;
        p.xmin = 10;
        p.xmax = 20;
        RecordingUi ui;
        EXPECT_EQ(PlotMenuCommand(p, c.item, 0, 0, Settings{}, ui), PLOT_REFUSED);
        ASSERT_EQ(ui.messages.size(), 1u);
        EXPECT_EQ(ui.messages[0].title, c.title);
        EXPECT_EQ(ui.messages[0].text, c.text);
        EXPECT_EQ(p.xmode, 1);
        EXPECT_EQ(p.spectrum.domain, c.domain);
        EXPECT_EQ(p.xmin, 10);
    }
    // And the modes each domain allows, with the domain following 1 <-> 2.
    struct Allowed {
        int domain, filetype, item, xmode, new_domain;
    } allowed[] = {
        {DOMAIN_FREQUENCY, 0, PLOT_MZ, XMODE_MZ, DOMAIN_MASS},
        {DOMAIN_MASS, 0, PLOT_FREQUENCY, XMODE_FREQUENCY, DOMAIN_FREQUENCY},
        {DOMAIN_PROFILE, 4, PLOT_MZ, XMODE_MZ_XVALUES, DOMAIN_PROFILE},
        {DOMAIN_PEAKLIST, 3, PLOT_MZ, XMODE_MZ, DOMAIN_MASS},
        {DOMAIN_PEAKLIST, 3, PLOT_PEAKS, XMODE_PEAKS, DOMAIN_PEAKLIST},
        {DOMAIN_CHROMATOGRAM, 0, PLOT_CHROMATOGRAPH, XMODE_CHROMATOGRAM, DOMAIN_CHROMATOGRAM},
        {DOMAIN_MASS, 0, PLOT_DATA_POINT, XMODE_POINT, DOMAIN_MASS},
        {DOMAIN_TIME, 0, PLOT_TIME, XMODE_TIME, DOMAIN_TIME},
    };
    for (const Allowed& a : allowed) {
        AnalysisPanel p;
        p.spectrum.domain = a.domain;
        p.spectrum.filetype = a.filetype;
        p.moveoffset = 5;
        RecordingUi ui;
        EXPECT_EQ(PlotMenuCommand(p, a.item, 0, 0, Settings{}, ui), PLOT_DONE);
        EXPECT_EQ(p.xmode, a.xmode);
        EXPECT_EQ(p.spectrum.domain, a.new_domain);
        EXPECT_EQ(p.moveoffset, 0.0);
        EXPECT_TRUE(ui.messages.empty());
    }
}

TEST(Display, FirstJumpToMassCutsAboveTheHighestMassOnce) {
    Workspace ws;
    slot_with(ws, 1 << 18, DOMAIN_FREQUENCY, 1.0f);
    AnalysisPanel& p = ws.panels[0];
    p.spectrum.data[100] = 999.0f;  // far above the limit's mass: cut off with it
    Initialize_Display(ws, 0);
    ASSERT_EQ(p.ymax, 999.0f);
    Settings st;
    st.mass_zoom_limit = 1500.0;
    RecordingUi ui;
    ASSERT_EQ(PlotMenuCommand(p, PLOT_MZ, 0, 0, st, ui), PLOT_DONE);
    const double cut = SMass_toPt(p.spectrum, 1500.0);
    EXPECT_EQ(p.firstmasszoom, 0);
    EXPECT_DOUBLE_EQ(p.fullmin, cut);
    EXPECT_DOUBLE_EQ(p.xmin, cut);
    EXPECT_DOUBLE_EQ(p.prevmin, cut);
    EXPECT_EQ(p.ymax, 1.0f);
    // Back to frequency and again m/z: no second jump after a Reset.
    PlotMenuCommand(p, PLOT_FREQUENCY, 0, 0, st, ui);
    PlotMenuCommand(p, PLOT_RESET, 0, 0, st, ui);
    PlotMenuCommand(p, PLOT_MZ, 0, 0, st, ui);
    EXPECT_EQ(p.fullmin, 1.0);
    // Without a limit the first jump only clears the flag.
    Workspace ws2;
    slot_with(ws2, 1 << 18, DOMAIN_FREQUENCY, 1.0f);
    Initialize_Display(ws2, 0);
    PlotMenuCommand(ws2.panels[0], PLOT_MZ, 0, 0, Settings{}, ui);
    EXPECT_EQ(ws2.panels[0].firstmasszoom, 0);
    EXPECT_EQ(ws2.panels[0].fullmin, 1.0);
}

TEST(Display, SetToCurrentMakesTheRangeTheWhole) {
    Workspace ws;
    slot_with(ws, 4096, DOMAIN_TIME, 1.0f);
    AnalysisPanel& p = ws.panels[0];
    p.spectrum.data[50] = 77.0f;
    p.spectrum.data[3000] = 5.0f;
    Initialize_Display(ws, 0);
    p.xmin = 2000;
    p.xmax = 3500;
    RecordingUi ui;
    EXPECT_EQ(PlotMenuCommand(p, PLOT_SET_TO_CURRENT, 0, 0, Settings{}, ui), PLOT_NO_REDRAW);
    EXPECT_EQ(p.fullmin, 2000.0);
    EXPECT_EQ(p.fullmax, 3500.0);
    EXPECT_EQ(p.ymax, 5.0f);
    p.xmin = 10;
    PlotMenuCommand(p, PLOT_ZOOM_FULL, 0, 0, Settings{}, ui);
    EXPECT_EQ(p.xmin, 2000.0);
    EXPECT_EQ(p.prevmin, 10.0);
}

TEST(Display, LocalRangeIsClampedIntoTheData) {
    struct Case {
        double xmin, xmax, want_min, want_max;
    } cases[] = {
        {500, 100, 100, 500},
        {std::nan(""), 300, 999, 300},
        {5000, 6000, 999, 998},
        {10, 999, 10, 998},
        {10, std::nan(""), 10, 998},
    };
    for (const Case& c : cases) {
        AnalysisPanel p;
        p.spectrum.data.assign(1000, 2.0f);
        p.spectrum.datacount = 1000;
        p.xmin = c.xmin;
        p.xmax = c.xmax;
        Set_Local_MinMax(p);
        EXPECT_EQ(p.xmin, c.want_min);
        EXPECT_EQ(p.xmax, c.want_max);
        EXPECT_EQ(p.localymax, 2.0f);
    }
}

TEST(Display, PanningMovesOneScreenAndStopsAtTheEnds) {
    Workspace ws;
    slot_with(ws, 1 << 16, DOMAIN_FREQUENCY, 1.0f);
    AnalysisPanel& p = ws.panels[0];
    Initialize_Display(ws, 0);
    Settings st;
    RecordingUi ui;

    p.xmode = XMODE_POINT;
    EXPECT_EQ(MoveGraph(p, 2, 100, 200, ui), -1);
    ASSERT_EQ(ui.messages.size(), 1u);
    EXPECT_EQ(ui.messages[0].title, "Zoom Error");
    EXPECT_EQ(ui.messages[0].text, "Panning function only for Mass and Frequency at this time");

    // Frequency: a screen of 10 kHz moves right by 10 kHz, and the step is kept.
    PlotMenuCommand(p, PLOT_FREQUENCY, 0, 0, st, ui);
    const double hz = p.spectrum.hzppt;
    ASSERT_EQ(MoveGraph(p, 2, 100, 110, ui), 0);
    EXPECT_NEAR(p.xmin, 110000.0 / hz, 1e-6);
    EXPECT_NEAR(p.xmax, 120000.0 / hz, 1e-6);
    EXPECT_DOUBLE_EQ(p.moveoffset, 10.0);
    ASSERT_EQ(MoveGraph(p, 3, 110, 120, ui), 0);
    EXPECT_NEAR(p.xmin, 100000.0 / hz, 1e-6);

    // The high-mass end of the m/z view is where the first jump may have cut
    // the full range: its message points at Reset.
    struct Case {
        int item, button;
        double fullmin, lo_pt, hi_pt;
        const char* text;
    } cases[] = {
        {PLOT_FREQUENCY, 3, 1, 2, 1000, "Can Not Zoom Any Further - Reached End of Data."},
        {PLOT_FREQUENCY, 2, 1, 60000, 65530, "Can Not Zoom Any Further - Reached End of Data"},
        {PLOT_MZ, 2, 5000, 5000, 6000, "Can Not Zoom Any Further - Reached End of Data Try Zoom Full>Reset"},
        {PLOT_MZ, 3, 1, 60000, 65530, "Can Not Zoom Any Further - Reached End of Data."},
    };
    for (const Case& c : cases) {
        RecordingUi u;
        PlotMenuCommand(p, c.item, 0, 0, st, u);
        p.fullmin = c.fullmin;
        p.xmin = c.lo_pt;
        p.xmax = c.hi_pt;
        double lo = point_to_x(p, c.lo_pt), hi = point_to_x(p, c.hi_pt);
        EXPECT_EQ(MoveGraph(p, c.button, std::min(lo, hi), std::max(lo, hi), u), -1);
        ASSERT_EQ(u.messages.size(), 1u);
        EXPECT_EQ(u.messages[0].title, "Zoom Error");
        EXPECT_EQ(u.messages[0].text, c.text);
        EXPECT_EQ(p.xmin, c.lo_pt);  // the range stays
        EXPECT_EQ(p.xmax, c.hi_pt);
    }
}

TEST(Display, CursorReadoutTexts) {
    struct Case {
        double a, b;
        const char *range, *width, *resolution;
    } cases[] = {
        {101.0, 99.0, "99.000000 - 101.000000", "2.000000", "50"},
        {999.0, 1001.0, "999.000000 - 1001.000000", "2.000000", "500"},
    };
    for (const Case& c : cases) {
        const CursorReadouts r = cursor_readouts(c.a, c.b);
        EXPECT_EQ(r.range, c.range);
        EXPECT_EQ(r.width, c.width);
        EXPECT_EQ(r.resolution, c.resolution);
    }
}

TEST(Display, ChromatogramsSumThePeakListsOfTheScans) {
    const test::TempDir dir;
    // Two scans: one written with the centre-of-mass block (heights at column
    // 33), one without (column 15), one whose list is missing.
    auto row = [](double mz, double rel, double height) {
        char line[200];
        std::snprintf(line, sizeof line, " %10.5f       %9.4f       %14.7f              %d         %14.6f\n", mz, rel,
                      height, 4000, 123.0);
        return std::string(line);
    };
    dir.write("a_Z.pks",
              "Peaklist:  3 peaks\nPOSITIVE ION MODE\nthresholds\nData Detected at (seconds): 1.5\n"
              " Center of Mass for the Assigned Window is   500.0000\n\nheader\n\n" +
                  row(400, 10, 100) + row(500, 20, 200) + row(600, 30, 300));
    dir.write("b_Z.pks",
              "Peaklist:  2 peaks\nPOSITIVE ION MODE\nthresholds\nno time here\nheader\n"
              "  450.00000    7.5\n"
              "  550.00000    2.5\n");
    Workspace ws;
    AnalysisPanel& p = ws.panels[0];
    p.spectrum.domain = DOMAIN_CHROMATOGRAM;
    p.spectrum.lcmsfiles = {dir.file("a.Z"), dir.file("b.Z"), dir.file("c.Z")};
    RecordingUi ui;
    ASSERT_EQ(Calculate_TIC(p, ui), 0);
    ASSERT_EQ(p.spectrum.data.size(), 3u);
    EXPECT_FLOAT_EQ(p.spectrum.data[0], 600.0f);
    EXPECT_FLOAT_EQ(p.spectrum.data[1], 10.0f);
    EXPECT_FLOAT_EQ(p.spectrum.data[2], 0.0f);
    EXPECT_DOUBLE_EQ(p.spectrum.xvalues[0], 1.5);
    EXPECT_DOUBLE_EQ(p.spectrum.xvalues[1], 1.0);  // the scan index
    EXPECT_EQ(p.xmode, XMODE_CHROMATOGRAM);
    EXPECT_EQ(p.spectrum.lcmsfiles[0], dir.file("a.Z"));  // names restored
    ASSERT_EQ(Calculate_SIC(p, 560, 440, ui), 0);
    EXPECT_FLOAT_EQ(p.spectrum.data[0], 200.0f);
    EXPECT_FLOAT_EQ(p.spectrum.data[1], 10.0f);

    AnalysisPanel spectrum;
    spectrum.spectrum.domain = DOMAIN_FREQUENCY;
    EXPECT_EQ(Calculate_TIC(spectrum, ui), -1);
    EXPECT_EQ(Calculate_SIC(spectrum, 1, 2, ui), -1);
    EXPECT_TRUE(ui.saw("Warning", "TIC not allowed for current data type"));
    EXPECT_TRUE(ui.saw("Warning", "SIC not allowed for current data type"));
}

}  // namespace
}  // namespace vx

namespace vx {
namespace {

// A reader that fills a spectrum of the given domain.
PanelReader fake_reader(int domain) {
    return [domain](Workspace& ws, const std::string&, int slot, Ui&) {
        Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
        s.data.assign(1 << 14, 1.0f);
        s.datacount = 1 << 14;
        s.domain = domain;
        return 0;
    };
}

TEST(OpeningRoad, DisplayFollowsTheDomain) {
    struct Case {
        int domain, xmode, new_domain;
    } cases[] = {
        {DOMAIN_TIME, XMODE_TIME, DOMAIN_TIME},
        {DOMAIN_FREQUENCY, XMODE_FREQUENCY, DOMAIN_FREQUENCY},
        {DOMAIN_MASS, XMODE_MZ, DOMAIN_MASS},
    };
    for (const Case& c : cases) {
        Workspace ws;
        ws.settings.mass_zoom_limit = 2000.0;
        RecordingUi ui;
        ASSERT_EQ(open_data_file(ws, "/data/x.dat", FILETYPE_TULVA, fake_reader(c.domain), ui), 0);
        const AnalysisPanel& p = ws.panels[0];
        EXPECT_EQ(p.active, 1);
        EXPECT_EQ(p.xmode, c.xmode);
        EXPECT_EQ(p.spectrum.domain, c.new_domain);
        EXPECT_EQ(p.spectrum.filename, "/data/x.dat");
        EXPECT_DOUBLE_EQ(p.spectrum.hzppt, 1000000.0 / (1 << 14));
        // Only the mass file took the first jump to the highest mass.
        EXPECT_EQ(p.firstmasszoom, c.domain == DOMAIN_MASS ? 0 : 1);
        if (c.domain == DOMAIN_MASS) EXPECT_DOUBLE_EQ(p.fullmin, SMass_toPt(p.spectrum, 2000.0));
        else EXPECT_EQ(p.fullmin, 1.0);
        EXPECT_TRUE(ui.messages.empty());
    }
}

}  // namespace
}  // namespace vx
