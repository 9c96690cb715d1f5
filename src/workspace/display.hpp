// Display ranges, zoom and the arrays a graph draws.
//
// A slot's ranges are always held in data points of its spectrum; the x mode
// only changes what is drawn. Every function here works on the slot record and
// returns what the graph has to show, so the desktop program only copies the
// arrays into its plot and the logic is tested without a screen.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "workspace/workspace.hpp"

namespace vx {

class Ui;

// Mass and frequency modes draw at most this many values; a range of 4001
// points or more is decimated into min/max columns.
inline constexpr int display_point_limit = 4000;

// Smallest and largest sample of a range.
struct MinMax {
    float min = 0.0f;
    float max = 0.0f;
};

// Min and max of n contiguous samples (n >= 1). NaN samples are passed over.
MinMax minmax_kernel(const float* v, std::size_t n);

// Min and max of the samples start..end inclusive, both clamped to the data
// (start to 0..n-1, end to start..n-1). Empty data gives 0, 0.
MinMax Set_MinMax(const Spectrum& s, long start, long end);

// The full range clamped (fullmax at most datacount - 2, fullmin below it) and
// ymax, ymin over it.
void Set_Global_MinMax(AnalysisPanel& p);
// The visible range clamped (swapped when reversed, kept inside the data) and
// localymin, localymax over it.
void Set_Local_MinMax(AnalysisPanel& p);

// Number of points of the visible range and its first point: N and s of a redraw.
long visible_count(const AnalysisPanel& p);

// What one redraw shows: x (float64) and y (float32) of the first trace, y2 of
// the mirrored second spectrum (empty when not mirrored), the axis label and
// the y range of the axis. The buffers are kept between redraws and only
// grow, so a redraw allocates nothing once they have reached their size.
struct PlotArrays {
    std::vector<double> x;
    std::vector<float> y;
    std::vector<float> y2;
    std::size_t count = 0;  // entries of x, y (and y2) in use
    std::string xlabel;
    std::string ylabel;
    double ylow = 0.0, yhigh = 0.0;  // y axis range (after the relative scale)
};

// The arrays of one redraw of slot p, for a graph width_px pixels wide. Reads
// every sample of the range at most once and never copies the full array.
// Sets xmode to m/z when mirrored, clamps the visible range first.
void Update_Display(AnalysisPanel& p, int width_px, PlotArrays& out);

// Mass mode above the point limit: count values in count / 2 m/z columns from
// the low-mass end; the min at the first x of a column, the max at the second.
// y2 is filled from spectrum2, negated, when mirrored. Returns entries written.
std::size_t Selective_Mass_Display(const AnalysisPanel& p, double* x, float* y, float* y2, int count,
                                   bool mirrored);

// Relative scale: y becomes percent of ymax (magnitude data) or of the larger
// extreme (absorption data, which have both signs). Returns the divisor used
// (1 when the scale is absolute).
double Set_Plot_Attributes(const AnalysisPanel& p, float* y, std::size_t count);

// Items of the plot menu, numbered as in the graph window's menu (the pop-up
// menu uses the same numbers plus one).
enum PlotMenuItem : int {
    PLOT_ZOOM_IN = 3,
    PLOT_ZOOM_IN_ALL = 4,
    PLOT_ZOOM_LAST = 5,
    PLOT_ZOOM_FULL = 8,
    PLOT_SET_TO_CURRENT = 9,
    PLOT_RESET = 10,
    PLOT_ZOOM_EXACT = 11,
    PLOT_TIME = 15,
    PLOT_DATA_POINT = 16,
    PLOT_MZ = 17,
    PLOT_FREQUENCY = 18,
    PLOT_PEAKS = 19,
    PLOT_CHROMATOGRAPH = 20,
    PLOT_ABSOLUTE = 23,
    PLOT_RELATIVE = 24,
    PLOT_LOCAL = 27,
    PLOT_GLOBAL = 28,
};

// What a plot command asks of the window after it ran.
enum PlotOutcome : int {
    PLOT_REFUSED = -1,   // message shown, nothing changed
    PLOT_DONE = 0,       // ranges changed; redraw
    PLOT_NO_REDRAW = 1,  // state changed but the item does not redraw
    PLOT_OPEN_SCAN = 2,  // "Time" on a chromatogram: the window opens the scan under cursor 1
};

// Converts an x value of the slot's present mode (ms, kHz, m/z, ...) to a data point.
double x_to_point(const AnalysisPanel& p, double x);
// And a data point to the x of the present mode.
double point_to_x(const AnalysisPanel& p, double point);

// Runs one plot-menu item on slot p. cursor1, cursor2 are the x positions of
// graph cursors 1 and 2 in the present mode (used by "Zoom In"). Messages go
// through ui. Returns a PlotOutcome.
int PlotMenuCommand(AnalysisPanel& p, int item, double cursor1, double cursor2, const Settings& settings,
                    Ui& ui);

// Pans by one screen in mass, frequency and the explicit-x modes. button 3
// moves left, button 2 right. lo, hi: the axis range now shown. Returns 0 and
// moves the range, or -1 after the message (the range stays).
int MoveGraph(AnalysisPanel& p, int button, double lo, double hi, Ui& ui);

// The numeric zoom: sorts and limits low, high to the axis range axis_lo..axis_hi,
// keeps low below high by at least 1, and zooms there. Returns the PlotOutcome.
int ManualZoomRange(AnalysisPanel& p, double low, double high, double axis_lo, double axis_hi,
                    const Settings& settings, Ui& ui);

// Read-outs of the graph window for cursors 1 and 2 at a and b: range
// "%f - %f" (lower first), width "%f", resolution (a + b) / 2 / (b - a) "%.0f".
// Cursors in one place have no resolution: the text is "-" rather than "nan".
struct CursorReadouts {
    std::string range, width, resolution;
};
CursorReadouts cursor_readouts(double a, double b);

// Chromatograms from the peak lists of the scans (lcmsfiles): total and
// selected (masses low..high) abundance per scan into data, detection times
// into xvalues; then xmode 4. Returns 0, or -1 after "TIC/SIC not allowed..."
// when the slot holds no chromatogram.
int Calculate_TIC(AnalysisPanel& p, Ui& ui);
int Calculate_SIC(AnalysisPanel& p, double low, double high, Ui& ui);

// ---------------------------------------------------------------------------
// Viewing habits on top of the plot menu: a first m/z view on the signal,
// wheel zoom, a zoom history, and the choice of peak labels. The plot menu's
// ranges (prevmin, prevmax, "Zoom Last") keep working as before beside them.

// The points a first m/z view spans: the excited range of the record
// (origlowfreq..orighighfreq) when it is set and lies inside the data; else
// the span of the samples that stand clearly above the noise floor (above the
// median by 2 % of the distance from the median to the largest sample). A
// margin of 5 % of the width is added on each side and the result is clamped
// to fullmin..fullmax, lower point first. Returns false (lo, hi untouched)
// when neither gives a range of at least 3 points.
bool signal_view_points(const AnalysisPanel& p, double& lo, double& hi);

// Moves the visible range to signal_view_points (the range it leaves becomes
// prevmin, prevmax, as any zoom does). The full range stays, so "Zoom Full"
// still shows everything. Returns true when the range moved.
bool first_signal_view(AnalysisPanel& p);

// Wheel zoom about the axis position `at` (in the units of the present mode)
// of the visible axis range axis_lo..axis_hi: both sides scale by factor
// (below 1 zooms in, above 1 out), so that `at` stays where it is on the axis.
// The result, in points, is sorted, held inside fullmin..fullmax and at least
// 2 points wide. Returns false when it would not change the visible range.
bool wheel_zoom_points(const AnalysisPanel& p, double axis_lo, double axis_hi, double at, double factor,
                       double& xmin, double& xmax);

// The ranges a view has shown, in data points, to step back and forward
// through. Recording a range other than the present one drops whatever lay
// forward of it; the oldest entries go beyond `limit`.
class ZoomHistory {
public:
    struct Range {
        double xmin = 0.0, xmax = 0.0;
        bool operator==(const Range&) const = default;
    };
    explicit ZoomHistory(std::size_t limit = 100) : limit_(limit < 2 ? 2 : limit) {}

    void record(double xmin, double xmax);
    bool can_back() const { return at_ > 0; }
    bool can_forward() const { return at_ + 1 < ranges_.size(); }
    // Steps back (forward) and returns the range stepped to; false at the end.
    bool back(Range& out);
    bool forward(Range& out);
    void clear();
    std::size_t size() const { return ranges_.size(); }

private:
    std::vector<Range> ranges_;
    std::size_t at_ = 0;
    std::size_t limit_;
};

// A peak label's box on the plot, in pixels (y down), and its weight (the
// peak's height): taller peaks are labelled first.
struct LabelBox {
    double left = 0.0, top = 0.0, width = 0.0, height = 0.0;
    double weight = 0.0;
};

// The labels to draw: boxes taken by falling weight (ties by position), each
// only when it lies inside 0..area_w x 0..area_h and keeps `gap` pixels from
// every box already taken; at most `limit`. So a zoomed-out view, where the
// peaks crowd together, shows fewer labels, and labels never overlap.
// A box of negative size marks a peak that is not to be labelled.
// Returns the indices of the chosen boxes, ascending.
std::vector<std::size_t> choose_peak_labels(const std::vector<LabelBox>& boxes, double area_w, double area_h,
                                            std::size_t limit, double gap = 2.0);

}  // namespace vx
