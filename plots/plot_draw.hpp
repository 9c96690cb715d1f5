// The drawing of the petroleum and isotope plots into a QCustomPlot, shared by
// the desktop panels and the file writer, and the PNG/SVG save of a plot.
#pragma once

#include <QString>

#include <string>

#include "composition/isotopes.hpp"
#include "composition/petro_classes.hpp"

class QCustomPlot;

namespace vx {

// Titles and axis labels of the three error plots, as the desktop shows them.
struct PlotTexts {
    const char* x;
    const char* y;
    const char* title;
};
inline constexpr PlotTexts MASS_ERROR_TEXTS{"Mass to Charge Ratio (m/z)", "PPM Error", "Mass to Charge Ratio vs.PPM Error"};
inline constexpr PlotTexts SN_ERROR_TEXTS{"Signal to Noise", "PPM Error", "Signal to Noise vs.PPM Error"};
inline constexpr PlotTexts HISTOGRAM_TEXTS{"PPM Error", "Counts per Bin", "PPM Error vs. Counts per Bin"};
inline constexpr PlotTexts CLASS_BAR_TEXTS{"Heteroatom Class", "Relative Abundance (%)", "Heteroatom Class Distribution"};
inline constexpr PlotTexts VAN_KREVELEN_TEXTS{"O/C", "H/C", "van Krevelen Diagram"};
inline constexpr PlotTexts KENDRICK_TEXTS{"Nominal Kendrick Mass", "Kendrick Mass Defect", "Kendrick Plot (CH2)"};
inline constexpr const char* DBE_CARBON_X = "Carbon Number";
inline constexpr const char* DBE_CARBON_Y = "DBE";

// Error histogram bins between the smallest and largest error.
inline constexpr int ERROR_BINS = 40;

// Bars for this many classes at most, the strongest first; the title says
// when more classes stand in the table.
inline constexpr std::size_t CLASS_BARS_MAX = 30;

// Fill of the class bars: a pixel check of a written file looks for it.
inline constexpr unsigned CLASS_BAR_RGB = 0x1f77b4;

// Each clears the plot (title included) and draws anew. An empty summary
// leaves labelled, empty axes.
void draw_class_bars(QCustomPlot* plot, const PetroSummary& s);
// Bubbles at (carbon number, DBE) of one class, area proportional to the
// abundance (largest bubble of the class a fixed size).
void draw_dbe_carbon(QCustomPlot* plot, const PetroSummary& s, const std::string& class_text);
void draw_van_krevelen(QCustomPlot* plot, const PetroSummary& s);
void draw_kendrick(QCustomPlot* plot, const PetroSummary& s);
void draw_mass_error(QCustomPlot* plot, const PetroSummary& s);
void draw_sn_error(QCustomPlot* plot, const PetroSummary& s);
void draw_error_histogram(QCustomPlot* plot, const PetroSummary& s);
void draw_isotope_pattern(QCustomPlot* plot, const IsotopePattern& p, const QString& title);

// PNG (QCustomPlot::savePng) or SVG (QSvgGenerator painted by toPainter) by
// the ending of path, drawn into a temporary file beside it that is renamed
// over it when complete. Returns 0, or -1 with *error set.
int save_plot(QCustomPlot* plot, const std::string& path, int width, int height, const QString& title, std::string* error);

}  // namespace vx
