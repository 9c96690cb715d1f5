// The petroleum window and the isotope calculator driven offscreen: a
// simulated sample with its isotopologues assigned with the isotope rules in a
// slot, the class tables with their dividers, the error plots, a pattern
// calculated and its plot saved as PNG and SVG.
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QTableView>
#include <QTabWidget>
#include <QTemporaryDir>

#include <qcustomplot.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "gui_check.hpp"
#include "composition/assign.hpp"
#include "main_window.hpp"
#include "panels/ISOPATTERN.hpp"
#include "panels/PETRO.hpp"
#include "qt_ui.hpp"
#include "sim/formula_list.hpp"
#include "sim/isotopologues.hpp"

int main(int argc, char** argv) {
    QTemporaryDir home;
    setenv("VANTORIX_HOME", home.path().toUtf8().constData(), 1);
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);
    vx::MainWindow window(true);
    vx::Workspace& ws = window.workspace();
    window.show();

    // Nothing assigned: the window says so.
    vx::PetroPanel* petro = vx::open_petro(&window);
    CHECK(petro->process() == -1);

    vx::FormulaListParameters p;
    p.count = 300;
    p.seed = 11;
    auto peaks = vx::simulate_formula_list(p);
    vx::add_isotopologue_peaks(peaks, 3000.0);
    ws.panels[0].active = 1;
    vx::formula_list_to_spectrum(peaks, ws.panels[0].spectrum);
    ws.active_panel = 0;
    vx::FormulaSettings st = vx::molecal_defaults();
    vx::RecordingUi rui;
    vx::parse_element_ranges("13C0-1,34S0-1,C1-100,H0-200,N0-2,O0-20,S0-1", st, rui);
    st.TOPDOWN = true;
    st.series_fit = true;
    st.IGNOREOVERS = true;
    st.RADICALS = false;
    st.MASS_ACCURACY = 1.0;
    vx::KendrickOptions ko;
    CHECK(vx::assign_peak_list(ws.panels[0].spectrum, ko, st, 2, rui, nullptr) == 0);

    CHECK(petro->process() == 0);
    const vx::PetroSummary& s = petro->summary();
    CHECK(!s.classes.empty());
    double shares = 0.0;
    for (const auto& c : s.classes) shares += c.percent;
    CHECK(shares > 99.999 && shares < 100.001);
    // Class tab: one divider of height 25 between classes.
    auto* tabs = petro->tabs();
    CHECK(tabs->count() == 7);
    auto* class_view = qobject_cast<QTableView*>(tabs->widget(1));
    CHECK(class_view != nullptr);
    if (class_view) {
        const int rows = class_view->model()->rowCount();
        CHECK(rows == static_cast<int>(2 * s.classes.size() - 1));
        if (rows > 1) CHECK(class_view->rowHeight(1) == vx::CLASS_DIVIDER_HEIGHT);
        CHECK(class_view->model()->data(class_view->model()->index(1, 0), Qt::BackgroundRole).value<QColor>() ==
              QColor(0xc0, 0xc0, 0xc0));
        CHECK(class_view->model()->data(class_view->model()->index(0, 2), Qt::FontRole).value<QFont>().bold());
    }
    auto* processed = qobject_cast<QTableView*>(tabs->widget(0));
    bool small_divider = false;
    if (processed)
        for (int i = 0; i < processed->model()->rowCount(); ++i) small_divider |= processed->rowHeight(i) == vx::DIVIDER_HEIGHT;
    int dividers = 0;
    for (const auto& r : vx::processed_tab_rows(s)) dividers += r.kind == vx::PetroTableModel::Divider;
    std::printf("processed rows %zu, DBE dividers %d\n", s.rows.size(), dividers);
    CHECK(small_divider);
    // Error plots: one point per assigned peak.
    auto* mass_plot = petro->findChild<QCustomPlot*>("error_plot_0");
    CHECK(mass_plot && mass_plot->graphCount() == 1 && mass_plot->graph(0)->dataCount() > 100);
    CHECK(mass_plot && mass_plot->xAxis->label() == "Mass to Charge Ratio (m/z)");
    // Summary plots: one bar per class (up to the cap), bubbles of the
    // strongest class, and the folder of PNG and SVG files.
    auto* bars_plot = petro->summary_plot(0);
    auto* bars = bars_plot && bars_plot->plottableCount() == 1 ? qobject_cast<QCPBars*>(bars_plot->plottable(0)) : nullptr;
    CHECK(bars && bars->dataCount() == static_cast<int>(std::min<std::size_t>(s.classes.size(), 30)));
    CHECK(petro->summary_plot(1)->graphCount() > 0);
    CHECK(petro->summary_plot(3)->xAxis->label() == "Nominal Kendrick Mass");
    const QString plot_dir = home.path() + "/plots";
    QDir().mkpath(plot_dir);
    CHECK(petro->save_plots(plot_dir.toStdString()) == 0);
    CHECK(QFile::exists(plot_dir + "/classes.png") && QFile::exists(plot_dir + "/van_krevelen.svg") &&
          QFile::exists(plot_dir + "/error_histogram.png"));

    // Pattern panel: the pattern, its table and the plot in both formats.
    vx::IsoPatternPanel* pattern = vx::open_isopattern(&window);
    CHECK(pattern->calculate("C60H122N2O4S", 1e-6) == 0);
    CHECK(pattern->pattern().peaks.size() >= 8);
    CHECK(pattern->calculate("C6H6Sn", 1e-6) == -1);
    CHECK(pattern->calculate("C35H60O6", 1e-6) == 0);
    const QString png = home.path() + "/pattern.png", svg = home.path() + "/pattern.svg";
    CHECK(pattern->save_plot(png) == 0);
    CHECK(pattern->save_plot(svg) == 0);
    QFile f(svg);
    CHECK(f.open(QIODevice::ReadOnly) && f.readAll().contains("<svg"));
    QFile g(png);
    CHECK(g.open(QIODevice::ReadOnly) && g.read(4) == QByteArray("\x89PNG", 4));
    CHECK(!QFile::exists(png + ".part") && !QFile::exists(svg + ".part"));
    CHECK(pattern->save_plot(home.path() + "/missing/dir/p.svg") == -1);

#ifdef VANTORIX_GUI_OUT
    petro->grab().save(QString(VANTORIX_GUI_OUT) + "/petro_window.png");
    pattern->grab().save(QString(VANTORIX_GUI_OUT) + "/isotope_pattern.png");
#endif
    std::printf("petroleum panels: %d failure(s)\n", failures);
    return failures == 0 ? 0 : 1;
}
