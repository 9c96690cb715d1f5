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

}  // namespace vx
