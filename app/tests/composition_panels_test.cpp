// The composition panels driven offscreen: a simulated CHO/CHON/CHOS peak
// list in a slot, the multi-peak calculator's assignment shown in the
// Kendrick view, a point clicked, the search box, the export, and the
// single-mass calculator; a screenshot of the view is saved for a look.
#include <QApplication>
#include <QMouseEvent>
#include <QTemporaryDir>

#include <qcustomplot.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "gui_check.hpp"
#include "main_window.hpp"
#include "panels/KENDRICK.hpp"
#include "panels/MOLECAL.hpp"
#include "panels/MOLECALUNO.hpp"
#include "qt_ui.hpp"
#include "sim/formula_list.hpp"

int main(int argc, char** argv) {
    QTemporaryDir home;
    setenv("VANTORIX_HOME", home.path().toUtf8().constData(), 1);
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);
    vx::MainWindow window(true);
    vx::Workspace& ws = window.workspace();
    window.show();

    // Nothing open: the view says so and stays empty.
    vx::KendrickPanel* view = vx::open_kendrick(&window);
    CHECK(view->calculate() == -1);
    CHECK(view->model().rowCount() == 0);

    vx::FormulaListParameters p;
    p.count = 300;
    p.seed = 5;
    const auto truth = vx::simulate_formula_list(p);
    ws.panels[0].active = 1;
    vx::formula_list_to_spectrum(truth, ws.panels[0].spectrum);
    ws.active_panel = 0;

    // The calculator opens in the polarity of the data set (positive here);
    // the user clicks negative and answers no to changing the file.
    vx::MolecalPanel* molecal = vx::open_molecal(&window);
    const double aterm = ws.panels[0].spectrum.Aterm;
    CHECK(molecal->mode_clicked(vx::ChargeMode::NEG) == 0);
    CHECK(ws.panels[0].spectrum.Aterm == aterm);
    CHECK(ws.settings.formula_prefs[0].NEGMODE == 1 && ws.settings.formula_prefs[0].POSMODE == 0);
    CHECK(molecal->calculate() == 0);
    const auto& rows = view->model().rows();
    CHECK(rows.size() == truth.size());
    // Every peak of the list is in a series and carries a formula (the
    // panel's factory ranges: N at most 1, 13C and 34S as isotopes).
    int with_formula = 0;
    for (const vx::KendrickRow& r : rows) with_formula += r.type != "No Hit" && !r.formula.empty() && r.series >= 0;
    CHECK(with_formula > static_cast<int>(rows.size()) * 9 / 10);

    // A click on a point selects its row.
    QCustomPlot* plot = view->findChild<QCustomPlot*>();
    CHECK(plot != nullptr);
    if (plot && !rows.empty()) {
        view->resize(900, 700);
        plot->replot();
        const vx::KendrickRow& r = rows[rows.size() / 2];
        const QPointF at(plot->xAxis->coordToPixel(r.nominal), plot->yAxis->coordToPixel(r.defect));
        QMouseEvent press(QEvent::MouseButtonPress, at, plot->mapToGlobal(at.toPoint()), Qt::LeftButton, Qt::LeftButton,
                          Qt::NoModifier);
        QApplication::sendEvent(plot, &press);
        CHECK(plot->graph(2)->dataCount() == 1);
    }

    // Export of the assignment table.
    const std::string csv = (home.path() + "/assigned.csv").toStdString();
    CHECK(view->save(csv) == 0);
    std::ifstream in(csv);
    std::string header;
    std::getline(in, header);
    CHECK(header == "mz,abundance,formula,neutral_formula,class,exact_mass,error_ppm,dbe,array,series,hit");

    // The text export of the view, "Print Peaks To File".
    const std::string text = (home.path() + "/kendrick.csv").toStdString();
    CHECK(view->save_text(text, vx::KendrickSaveKind::RelativeAbundance) == 0);
    std::ifstream tin(text);
    std::string first;
    std::getline(tin, first);
    CHECK(first.rfind("There were ", 0) == 0);

    // The single-mass calculator opened on a row (CheckFormulaCallback): the
    // row's series marked "No Hit", then the listed candidate picked back.
    int r0 = -1;
    for (std::size_t i = 0; i + 1 < rows.size() && r0 < 0; ++i)
        if (rows[i].series == rows[i + 1].series && rows[i].odd == rows[i + 1].odd && !rows[i].formula.empty())
            r0 = static_cast<int>(i);
    CHECK(r0 >= 0);
    if (r0 >= 0) {
        const std::string formula = rows[static_cast<std::size_t>(r0)].formula;
        view->check_formula(r0);
        vx::MolecalunoPanel* single = window.findChild<vx::MolecalunoPanel*>("MOLECALUNO");
        CHECK(single != nullptr);
        if (single) {
            single->mode_clicked(vx::ChargeMode::NEG);
            CHECK(single->calculate() >= 1);
            CHECK(single->assign_no_hit() == 0);
            CHECK(view->model().rows()[static_cast<std::size_t>(r0)].type == "No Hit");
            CHECK(view->model().rows()[static_cast<std::size_t>(r0 + 1)].type == "No Hit");
            // The manual loop finds that series first.
            view->select_row(0);
            CHECK(vx::FindNoHitSeries(view->model().rows(), 0, 2) <= r0);
            int pick = -1;
            const auto& hits = single->model().hits();
            for (std::size_t i = 0; i < hits.size(); ++i)
                if (vx::hill_formula(hits[i].counts, vx::user_names_of(single->settings())) == formula) pick = static_cast<int>(i);
            CHECK(pick >= 0);
            if (pick >= 0) {
                CHECK(single->update_kendrick(pick) >= 1);
                CHECK(view->model().rows()[static_cast<std::size_t>(r0)].formula == formula);
            }
            // The series into the calibration table.
            view->select_row(r0);
            CHECK(view->add_series_to_calibration(false) >= 2);
        }
    }

    // The single-mass calculator on the first peak's m/z finds its formula.
    vx::MolecalunoPanel* single = vx::open_molecaluno(&window);
    single->set_mz(truth.front().mz);
    CHECK(single->calculate() >= 1);

#ifdef VANTORIX_GUI_OUT
    view->grab().save(QString(VANTORIX_GUI_OUT) + "/kendrick_view.png");
#endif
    std::printf("composition panels: %d failure(s)\n", failures);
    return failures ? 1 : 0;
}
