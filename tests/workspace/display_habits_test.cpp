// The viewing habits the desktop program adds on top of the plot menu: the
// first m/z view on the signal, wheel zoom, the zoom history and the choice of
// peak labels. All pure functions of the slot record, tested without a screen.
#include "workspace/display.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

namespace vx {
namespace {

// A direct-mode magnitude spectrum of n points over 1 MHz, shown at full view,
// with a flat noise floor of 1.
AnalysisPanel& spectrum_slot(Workspace& ws, long n) {
    AnalysisPanel& p = ws.panels[0];
    p = AnalysisPanel{};
    p.spectrum.data.assign(static_cast<std::size_t>(n), 1.0f);
    p.spectrum.datacount = static_cast<std::int32_t>(n);
    p.spectrum.domain = DOMAIN_FREQUENCY;
    p.spectrum.dbandwidth = 1000000.0;
    p.spectrum.hzppt = p.spectrum.dbandwidth / static_cast<double>(n);
    Initialize_Display(ws, 0);
    return p;
}

TEST(DisplayHabits, FirstViewSpansTheExcitedRangeElseTheSignal) {
    constexpr double hz = 61.03515625;  // per point of 16384 over 1 MHz
    struct Case {
        const char* what;
        double lowfreq, highfreq;  // excited range, Hz (-1 unset)
        long bump_lo, bump_hi;     // samples well above the floor
        bool found;
        double want_lo, want_hi;   // points, before the margin
    } cases[] = {
        {"excited range", 100000.0, 300000.0, 3000, 3100, true, 100000.0 / hz, 300000.0 / hz},
        {"excited range reversed", 300000.0, 100000.0, 3000, 3100, true, 100000.0 / hz, 300000.0 / hz},
        {"a strong ion beyond the excited range", 100000.0, 300000.0, 9000, 9100, true, 100000.0 / hz, 9100.0},
        {"unset: the signal", -1.0, -1.0, 3000, 3100, true, 3000.0, 3100.0},
        {"excited range beyond the data: the signal", 2.0e6, 3.0e6, 3000, 3100, true, 3000.0, 3100.0},
        {"no signal, no range", -1.0, -1.0, -1, -1, false, 0.0, 0.0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Workspace ws;
        AnalysisPanel& p = spectrum_slot(ws, 16384);
        p.spectrum.origlowfreq = c.lowfreq;
        p.spectrum.orighighfreq = c.highfreq;
        for (long i = c.bump_lo; i >= 0 && i <= c.bump_hi; ++i) p.spectrum.data[static_cast<std::size_t>(i)] = 500.0f;
        const double before_min = p.xmin, before_max = p.xmax;
        double lo = -7.0, hi = -7.0;
        ASSERT_EQ(signal_view_points(p, lo, hi), c.found);
        EXPECT_EQ(first_signal_view(p), c.found);
        if (!c.found) {
            EXPECT_EQ(lo, -7.0);
            EXPECT_EQ(p.xmin, before_min);
            EXPECT_EQ(p.xmax, before_max);
            continue;
        }
        // The wanted range and a margin of 5 % of its m/z width on each side.
        EXPECT_LE(lo, c.want_lo + 1.0);
        EXPECT_GE(hi, c.want_hi - 1.0);
        const double want_span = std::fabs(SPt_tomass(p.spectrum, c.want_lo) - SPt_tomass(p.spectrum, c.want_hi));
        const double span = std::fabs(SPt_tomass(p.spectrum, lo) - SPt_tomass(p.spectrum, hi));
        EXPECT_NEAR(span / want_span, 1.1, 0.01);
        EXPECT_EQ(p.xmin, lo);
        EXPECT_EQ(p.xmax, hi);
        // The range it left is the previous one, and the full view stays whole.
        EXPECT_EQ(p.prevmin, before_min);
        EXPECT_EQ(p.prevmax, before_max);
        EXPECT_EQ(p.fullmin, 1.0);
        EXPECT_EQ(p.fullmax, 16382.0);
    }
}

TEST(DisplayHabits, FirstViewStaysInsideTheFullRange) {
    Workspace ws;
    AnalysisPanel& p = spectrum_slot(ws, 4096);
    // Peaks from the first to the last sample of the full view: the margin
    // would reach beyond it.
    for (long i = 1; i <= 4094; i += 10) p.spectrum.data[static_cast<std::size_t>(i)] = 1000.0f;
    p.spectrum.data[4094] = 1000.0f;
    double lo = 0.0, hi = 0.0;
    ASSERT_TRUE(signal_view_points(p, lo, hi));
    EXPECT_EQ(lo, p.fullmin);
    EXPECT_EQ(hi, p.fullmax);
    // A lone spike is no range to look at.
    std::fill(p.spectrum.data.begin(), p.spectrum.data.end(), 1.0f);
    p.spectrum.data[2000] = 5000.0f;
    EXPECT_FALSE(signal_view_points(p, lo, hi));
}

TEST(DisplayHabits, WheelZoomKeepsThePlaceUnderTheMouse) {
    Workspace ws;
    AnalysisPanel& p = spectrum_slot(ws, 100000);
    p.xmode = XMODE_POINT;
    p.xmin = 10000.0;
    p.xmax = 20000.0;
    struct Case {
        double at, factor;
        double want_lo, want_hi;
    } cases[] = {
        {15000.0, 0.5, 12500.0, 17500.0},  // in about the middle
        {11000.0, 0.5, 10500.0, 15500.0},  // in near the left edge: the left moves little
        {19000.0, 2.0, 1000.0, 21000.0},   // out near the right edge: the right moves little
        {15000.0, 100.0, 1.0, 99998.0},    // out past the data: the full range
        {15000.0, 1e-9, 14999.0, 15001.0}, // far in: two points remain
        {25000.0, 0.5, 15000.0, 20000.0},  // the mouse beyond the axis counts as its edge
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "at " << c.at << " factor " << c.factor);
        double lo = 0.0, hi = 0.0;
        ASSERT_TRUE(wheel_zoom_points(p, 10000.0, 20000.0, c.at, c.factor, lo, hi));
        EXPECT_NEAR(lo, c.want_lo, 1e-6);
        EXPECT_NEAR(hi, c.want_hi, 1e-6);
    }
    double lo = 0.0, hi = 0.0;
    EXPECT_FALSE(wheel_zoom_points(p, 10000.0, 20000.0, 15000.0, 1.0, lo, hi));   // no change
    EXPECT_FALSE(wheel_zoom_points(p, 10000.0, 20000.0, 15000.0, 0.0, lo, hi));   // nonsense factor
    EXPECT_FALSE(wheel_zoom_points(p, 10000.0, 20000.0, NAN, 0.5, lo, hi));
    EXPECT_FALSE(wheel_zoom_points(p, 20000.0, 10000.0, 15000.0, 0.5, lo, hi));  // empty axis
}

TEST(DisplayHabits, WheelZoomInMassKeepsTheMassUnderTheMouse) {
    Workspace ws;
    AnalysisPanel& p = spectrum_slot(ws, 1 << 18);
    p.spectrum.domain = DOMAIN_MASS;
    p.xmode = XMODE_MZ;
    p.xmin = 20000.0;
    p.xmax = 60000.0;
    // High m/z lies at the low points.
    const double lo_mz = SPt_tomass(p.spectrum, p.xmax), hi_mz = SPt_tomass(p.spectrum, p.xmin);
    ASSERT_LT(lo_mz, hi_mz);
    const double at = lo_mz + 0.25 * (hi_mz - lo_mz);
    double a = 0.0, b = 0.0;
    ASSERT_TRUE(wheel_zoom_points(p, lo_mz, hi_mz, at, 0.5, a, b));
    ASSERT_LT(a, b);
    EXPECT_NEAR(SPt_tomass(p.spectrum, a), at + 0.5 * (hi_mz - at), 1e-6 * hi_mz);
    EXPECT_NEAR(SPt_tomass(p.spectrum, b), at - 0.5 * (at - lo_mz), 1e-6 * hi_mz);
}

TEST(DisplayHabits, ZoomHistoryStepsBackAndForward) {
    ZoomHistory h(4);
    ZoomHistory::Range r;
    EXPECT_FALSE(h.back(r));
    EXPECT_FALSE(h.forward(r));
    h.record(1, 100);
    h.record(1, 100);  // a repeat of the present range is no new step
    EXPECT_EQ(h.size(), 1u);
    h.record(10, 50);
    h.record(20, 30);
    ASSERT_TRUE(h.back(r));
    EXPECT_EQ(r, (ZoomHistory::Range{10, 50}));
    ASSERT_TRUE(h.back(r));
    EXPECT_EQ(r, (ZoomHistory::Range{1, 100}));
    EXPECT_FALSE(h.back(r));
    ASSERT_TRUE(h.forward(r));
    EXPECT_EQ(r, (ZoomHistory::Range{10, 50}));
    // Recording the range stepped to keeps the way forward ...
    h.record(10, 50);
    EXPECT_TRUE(h.can_forward());
    // ... a new one drops it.
    h.record(12, 40);
    EXPECT_FALSE(h.can_forward());
    EXPECT_EQ(h.size(), 3u);
    // Beyond the limit the oldest go.
    h.record(13, 39);
    h.record(14, 38);
    EXPECT_EQ(h.size(), 4u);
    int steps = 0;
    while (h.back(r)) ++steps;
    EXPECT_EQ(steps, 3);
    EXPECT_EQ(r, (ZoomHistory::Range{10, 50}));
    h.clear();
    EXPECT_FALSE(h.can_back());
    EXPECT_EQ(h.size(), 0u);
}

bool overlaps(const LabelBox& a, const LabelBox& b, double gap) {
    return a.left < b.left + b.width + gap && b.left < a.left + a.width + gap && a.top < b.top + b.height + gap &&
           b.top < a.top + a.height + gap;
}

// Labels of peaks spread over `span` pixels of a 1000 x 400 plot, 60 x 14 each,
// standing above the peak at its height.
std::vector<LabelBox> peak_boxes(std::mt19937& rng, int count, double span) {
    std::uniform_real_distribution<double> x(0.0, span), h(0.0, 1.0);
    std::vector<LabelBox> boxes;
    for (int i = 0; i < count; ++i) {
        const double height = h(rng);
        const double px = x(rng);
        boxes.push_back({px - 30.0, 380.0 - 360.0 * height - 14.0, 60.0, 14.0, height});
    }
    return boxes;
}

TEST(DisplayHabits, PeakLabelsNeverOverlapAndThinOutWhenCrowded) {
    std::mt19937 rng(11);
    for (int round = 0; round < 20; ++round) {
        const std::vector<LabelBox> boxes = peak_boxes(rng, 200, 1000.0);
        const auto chosen = choose_peak_labels(boxes, 1000.0, 400.0, 40);
        ASSERT_FALSE(chosen.empty());
        EXPECT_LE(chosen.size(), 40u);
        EXPECT_TRUE(std::is_sorted(chosen.begin(), chosen.end()));
        for (std::size_t i = 0; i < chosen.size(); ++i)
            for (std::size_t j = i + 1; j < chosen.size(); ++j)
                ASSERT_FALSE(overlaps(boxes[chosen[i]], boxes[chosen[j]], 2.0)) << chosen[i] << " " << chosen[j];
        // The tallest peak whose label fits is always labelled.
        std::size_t tallest = boxes.size();
        for (std::size_t i = 0; i < boxes.size(); ++i) {
            const LabelBox& b = boxes[i];
            if (b.left < 0 || b.left + b.width > 1000.0 || b.top < 0) continue;
            if (tallest == boxes.size() || b.weight > boxes[tallest].weight) tallest = i;
        }
        EXPECT_TRUE(std::binary_search(chosen.begin(), chosen.end(), tallest));
        // Boxes leaving the plot are never chosen.
        for (std::size_t i : chosen) {
            EXPECT_GE(boxes[i].left, 0.0);
            EXPECT_LE(boxes[i].left + boxes[i].width, 1000.0);
        }
    }
    // Zooming out squeezes the same 30 peaks into a tenth of the width: fewer labels.
    std::vector<LabelBox> wide = peak_boxes(rng, 30, 940.0), narrow = wide;
    for (LabelBox& b : wide) b.left += 30.0;
    for (LabelBox& b : narrow) b.left = b.left / 10.0 + 30.0;
    const auto many = choose_peak_labels(wide, 1000.0, 400.0, 100);
    const auto few = choose_peak_labels(narrow, 1000.0, 400.0, 100);
    EXPECT_LT(few.size(), many.size());
    EXPECT_GE(few.size(), 1u);
    // Nothing to label, or no room.
    EXPECT_TRUE(choose_peak_labels({}, 1000.0, 400.0, 10).empty());
    EXPECT_TRUE(choose_peak_labels(wide, 1000.0, 400.0, 0).empty());
    EXPECT_TRUE(choose_peak_labels(wide, 10.0, 10.0, 10).empty());
    // A NaN weight does not upset the order; its label comes last.
    std::vector<LabelBox> odd = {{0, 0, 10, 10, NAN}, {0, 0, 10, 10, 1.0}};
    EXPECT_EQ(choose_peak_labels(odd, 100.0, 100.0, 1), (std::vector<std::size_t>{1}));
    // A box of negative width is a peak not to be labelled, however tall.
    std::vector<LabelBox> skip = {{0, 0, -1, 10, 100.0}, {50, 0, 10, 10, 1.0}};
    EXPECT_EQ(choose_peak_labels(skip, 100.0, 100.0, 5), (std::vector<std::size_t>{1}));
}

TEST(DisplayHabits, ResolutionReadoutOfCursorsInOnePlaceIsNotANumber) {
    for (double x : {0.0, 500.0}) {
        const CursorReadouts r = cursor_readouts(x, x);
        EXPECT_EQ(r.resolution, "-");
        EXPECT_EQ(r.width, "0.000000");
    }
}

}  // namespace
}  // namespace vx
