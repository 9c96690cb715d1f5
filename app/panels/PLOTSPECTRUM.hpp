// The plot panel of the charge deconvolution: the m/z display of the active
// spectrum between two m/z, Zdet (charge and mass of the tallest cluster),
// "Well Resolved Isotopic Peaks" (LOWZ) and "Poorly Resolved Isotopic Peaks"
// (HIGHZ) onto a neutral-mass axis, Analysis (centroid and area between the
// panel's cursors), Save and "Analysis Report". "Calc Std Dev" of the Analyze
// menu gives the report of the active graph between its cursors 1 and 2.
#pragma once

#include <QDialog>

#include <optional>
#include <string>
#include <vector>

#include "thrash/plot_panel.hpp"

class QCPItemStraightLine;
class QCPItemText;
class QCustomPlot;
class QDoubleSpinBox;
class QLabel;

namespace vx {

class MainWindow;
class DeconvOptionPanel;

class PlotSpectrumPanel : public QDialog {
    Q_OBJECT
public:
    explicit PlotSpectrumPanel(MainWindow* main);
    // reassign_display of the active spectrum between the panel's m/z.
    int plot_display();
    void set_range(double low_mz, double high_mz);
    // PlotSpectrumZdetCallback on the display.
    int zdet();
    // LOWZ / HIGHZ (DECONV_LOWZ, DECONV_HIGHZ): the mass spectrum, plotted.
    // The option panel is shown at the first use unless already answered.
    int deconvolve(int mode);
    DeconvOptionPanel* options() const { return options_; }
    void options_answered() { asked_ = true; }
    // Cursors in the plot's axis, and the background of Analysis.
    void set_cursors(double c1, double c2, double background = 0.0);
    int analysis();
    // The report between the cursors; answer given: no prompt (tests, scripts).
    int analysis_report(const std::optional<std::string>& answer = std::nullopt);
    // PlotSpectrumSaveCallback: the plot as "  %f        %f" lines; the path
    // is asked for ("Save File", "*.*") when empty.
    int save(std::string path = {});

    const PlotData& display() const { return display_; }
    const MassSpectrum& mass_spectrum() const { return mass_; }
    bool showing_masses() const { return masses_; }
    const ZdetResult& zdet_result() const { return zdet_; }
    const PlotAnalysis& analysis_result() const { return analysis_; }
    const AnalysisReport& report() const { return report_; }
    QString message() const;

private:
    void draw();

    MainWindow* main_;
    DeconvOptionPanel* options_;
    bool asked_ = false;
    QDoubleSpinBox *low_, *high_, *c1_, *c2_, *background_;
    QCustomPlot* plot_;
    QLabel* message_;
    PlotData display_;
    MassSpectrum mass_;
    bool masses_ = false;
    std::vector<double> x_, y_;
    ZdetResult zdet_;
    PlotAnalysis analysis_;
    AnalysisReport report_;
};

PlotSpectrumPanel* open_plot_spectrum(MainWindow* main);

// "Calc Std Dev": the Analysis Report of the active graph's data between its
// cursors 1 and 2 (in the graph's axis); the answer pushes the limit into the
// peak picking. Returns as run_analysis_report.
int calc_std_dev(MainWindow& main, const std::optional<std::string>& answer = std::nullopt);

}  // namespace vx
