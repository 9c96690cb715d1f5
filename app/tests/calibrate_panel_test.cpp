// The CALIBRATE panel driven offscreen: a simulated transient whose header A
// is 20 ppm off, peaks found, every peak checked in the peak table and sent to
// the calibration table, reference masses assigned, fitted and applied; the
// peak table, the spectrum and the plot then carry the true masses. Also the
// entry point other panels use, a row deleted with its question, and sorting.
#include <QApplication>
#include <QPushButton>
#include <QTableView>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

#include "gui_check.hpp"
#include "calibration/calibration_commands.hpp"
#include "formats/calibration_change.hpp"
#include "main_window.hpp"
#include "panels/CALIBRATE.hpp"
#include "panels/PEAKLIST2.hpp"
#include "qt_ui.hpp"
#include "sim/simulator.hpp"
#include "workspace/filelist.hpp"

namespace fs = std::filesystem;

namespace {

bool saw(const vx::QtUi& ui, const std::string& message) {
    return std::find(ui.shown.begin(), ui.shown.end(), message) != ui.shown.end();
}

const std::vector<double> masses = {350.0, 420.0, 510.0, 600.0, 730.0};

// Five ions at their true masses; the file's header A 20 ppm high.
std::string write_transient(const fs::path& dir, vx::Ui& ui) {
    vx::SimParameters sp;
    sp.points = 1 << 19;  // 0.26 s: peak positions to a fraction of a ppm
    sp.noise = 0.001;
    sp.int_storage = false;
    std::vector<vx::SimIon> ions;
    for (double m : masses) ions.push_back({m, 0.3, 0.5});
    const std::string truth = (dir / "truth.dat").string(), wrong = (dir / "wrong.dat").string();
    if (vx::write_simulated_file(truth, sp, ions, ui) < 0) return {};
    vx::CalibrationChangeOptions full;
    full.full_precision = true;
    if (vx::Change_Tulva_Calibration_Go(truth, wrong, vx::DEFAULT_ATERM * (1 + 2e-5), vx::DEFAULT_BTERM, ui, full) != 0)
        return {};
    return wrong;
}

double worst_ppm(const std::vector<vx::PeakTableRow>& rows) {
    double worst = 0.0;
    for (double m : masses) {
        double best = 1e300;
        for (const vx::PeakTableRow& r : rows) best = std::min(best, std::fabs(r.mass - m) / m * 1e6);
        worst = std::max(worst, best);
    }
    return worst;
}

}  // namespace

int main(int argc, char** argv) {
    const fs::path home = fs::temp_directory_path() / ("vx_calibrate_panel_" + std::to_string(::getpid()));
    fs::remove_all(home);
    fs::create_directories(home);
    setenv("VANTORIX_HOME", home.c_str(), 1);
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);
    {
        vx::MainWindow window(true);
        vx::Workspace& ws = window.workspace();
        vx::QtUi& ui = window.ui();
        vx::ensure_default_ini(vx::settings_dir());
        CHECK(vx::ReadINI(vx::settings_dir(), ws.settings, ui) == 0);
        window.show();

        const std::string path = write_transient(home, ui);
        CHECK(!path.empty());
        CHECK(window.open_file(path) == 0);
        CHECK(window.process_active() == 0);
        window.find_peak_options();
        CHECK(window.find_peaks() >= 5);
        vx::Spectrum& s = ws.panels[0].spectrum;
        const double before = worst_ppm(window.peak_table().rows);
        CHECK(before > 15.0);

        // Check the five ions' rows in the peak table and press "Calibrate Checked".
        vx::PeakListPanel* list = window.peak_list_panel();
        vx::PeakTableModel& model = list->model();
        int checked = 0;
        for (int r = 0; r < model.rowCount(); ++r) {
            const double m = model.rows()[static_cast<std::size_t>(r)].mass;
            if (std::any_of(masses.begin(), masses.end(), [m](double t) { return std::fabs(m - t) / t < 4e-5; })) {
                CHECK(model.setData(model.index(r, 0), Qt::Checked, Qt::CheckStateRole));
                ++checked;
            }
        }
        CHECK(checked == 5);
        CHECK(model.flags(model.index(0, 0)) & Qt::ItemIsUserCheckable);
        QPushButton* calibrate_checked = list->dialog()->findChild<QPushButton*>("calibrate");
        CHECK(calibrate_checked != nullptr);
        if (calibrate_checked) calibrate_checked->click();
        vx::CalibrateDialog* panel = vx::calibrate_panel(&window);
        CHECK(panel->isVisible());
        CHECK(panel->panel().rows.size() == 5);
        QTableView* view = panel->findChild<QTableView*>("CALTABLE");
        CHECK(view && view->model()->rowCount() == 5 && view->model()->columnCount() == vx::CAL_COLUMNS);

        // The reference masses to the rows (20 ppm off: a 30 ppm window), fit, apply.
        vx::AssignTheor_toCalPanel(panel->panel(), s, masses, vx::MatchTolerance{30.0, true});
        CHECK(vx::RemoveUnassignedCalPeaks(panel->panel()) == 0);
        panel->calibrate();
        CHECK(panel->panel().RmsError < 1.0);
        CHECK(std::fabs(panel->panel().CalA / vx::DEFAULT_ATERM - 1.0) < 1e-6);
        CHECK(panel->panel().apply_enabled);
        panel->apply();
        CHECK(!panel->panel().apply_enabled);
        CHECK(s.Aterm == panel->panel().CalA);
        // The peak table shows the new masses; its checks stay on the same rows.
        const double after = worst_ppm(window.peak_table().rows);
        std::fprintf(stderr, "worst error before %.3f ppm, after %.3f ppm\n", before, after);
        CHECK(after < 1.0);
        CHECK(worst_ppm(model.rows()) < 1.0);
        CHECK(model.checked_peaks().size() == 5);

        // Sorting by error and deleting a row with its question.
        view->sortByColumn(4, Qt::DescendingOrder);
        const auto& rows = panel->panel().rows;
        CHECK(std::is_sorted(rows.begin(), rows.end(),
                             [](const vx::CalTableRow& a, const vx::CalTableRow& b) { return a.error > b.error; }));
        ui.default_confirm = true;
        CHECK(vx::delete_cal_row(panel->panel(), 0, ui) == 1);
        CHECK(std::any_of(ui.shown.begin(), ui.shown.end(),
                          [](const std::string& m) { return m.rfind("Calibration: Delete Peak Number ", 0) == 0; }));
        CHECK(panel->panel().rows.size() == 4);

        // The entry point of the composition panels: a picked peak with its mass.
        const std::vector<vx::CalibrantPick> picks = {{0, s.peaks[0].mass}};
        CHECK(vx::add_to_calibration(&window, picks) >= 0);
        CHECK(panel->panel().CalPoints >= 4);

        // Too few checked peaks: the message, the table as it was.
        const std::size_t rows_before = panel->panel().rows.size();
        CHECK(panel->take_checked({0}) == -1);
        CHECK(saw(ui, "Operator Error: Must check at least 2 \n peaks for calibration"));
        CHECK(panel->panel().rows.size() == rows_before);
    }
    fs::remove_all(home);
    if (failures) std::fprintf(stderr, "%d check(s) failed\n", failures);
    return failures ? 1 : 0;
}
