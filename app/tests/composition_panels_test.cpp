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

#include "main_window.hpp"
#include "panels/KENDRICK.hpp"
#include "panels/MOLECAL.hpp"
#include "panels/MOLECALUNO.hpp"
#include "qt_ui.hpp"
#include "sim/formula_list.hpp"

namespace {

int failures = 0;

#define CHECK(cond)                                                                       \
    do {                                                                                  \
        if (!(cond)) {                                                                    \
            std::fprintf(stderr, "%s:%d: CHECK failed: %s\n", __FILE__, __LINE__, #cond); \
            ++failures;                                                                   \
        }                                                                                 \
    } while (0)

}  // namespace

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

    vx::MolecalPanel* molecal = vx::open_molecal(&window);
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
