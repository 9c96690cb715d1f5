// Plots of the petroleum summaries and of isotope patterns written as PNG or
// SVG files without a display. The interface holds no Qt type, so the command
// line includes it as it is; the drawing itself (plot_draw.hpp) is Qt and is
// shared with the desktop's "Petroleum Analysis..." and pattern panels.
#pragma once

#include <string>
#include <vector>

#include "composition/isotopes.hpp"
#include "composition/petro_classes.hpp"

namespace vx {

class Ui;

struct PlotFormats {
    bool png = false;
    bool svg = false;
};

// "png", "svg" or "png,svg". Returns 0, or -1 after a message.
int parse_plot_formats(const std::string& text, PlotFormats& formats, Ui& ui);

// Size of a written plot in pixels (SVG: its view box).
inline constexpr int PLOT_WIDTH = 900;
inline constexpr int PLOT_HEIGHT = 600;

// DBE-vs-carbon plots are drawn for this many classes at most, the strongest
// first: a crude oil holds a hundred classes and more, of which the weak ones
// are a handful of peaks each.
inline constexpr std::size_t DBE_PLOT_CLASSES = 24;

// Writes into folder: classes, dbe_carbon_<class> (one per class), van_krevelen,
// kendrick, mass_error, sn_error and error_histogram, each in every asked
// format, each file whole or not at all. The folder must exist. Returns 0, or
// -1 after a message; *written lists the file names in the order written.
int write_petro_plots(const PetroSummary& summary, const std::string& folder, const PlotFormats& formats, Ui& ui,
                      std::vector<std::string>* written = nullptr);

// The profile of an isotope pattern (PlotFinal) into path; .png or .svg by the
// name's ending. Returns 0, or -1 after a message.
int write_isotope_plot(const IsotopePattern& pattern, const std::string& title, const std::string& path, Ui& ui);

// File name part for a class: "N1 O2" -> "N1_O2"; characters other than
// letters, digits and "+-" become "_".
std::string class_file_part(const std::string& class_text);

}  // namespace vx
