// The expert phasing panel "Phasing the Data" driven offscreen: absorption
// with the dispersion in its own window and the "Show Phase" plot, then a
// complex division of a data transient by a blank of the same ions; then the
// switches: zoom to the excitation, "Simple", "M" (the manual panel over the
// transform), "I" (reset after the run), the background file (its switch off
// after one subtraction), "T2" unattended, and the transfer function's axis.
#include <QApplication>
#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QSpinBox>

#include <qcustomplot.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

#include "gui_check.hpp"
#include "main_window.hpp"
#include "panels/PHASE.hpp"
#include "phasing/phase_modes.hpp"
#include "qt_ui.hpp"
#include "sim/simulator.hpp"
#include "workspace/filelist.hpp"

namespace fs = std::filesystem;

namespace {

std::string write_transient(const fs::path& dir, const char* name, double scale, vx::Ui& ui) {
    vx::SimParameters sp;
    sp.points = 1 << 15;
    sp.noise = 0.0;
    sp.int_storage = false;
    std::vector<vx::SimIon> ions = {{400.0, 0.3 * scale, 0.5}, {650.0, 0.2 * scale, 0.5}, {900.0, 0.25 * scale, 0.5}};
    const std::string path = (dir / name).string();
    return vx::write_simulated_file(path, sp, ions, ui) < 0 ? std::string() : path;
}

}  // namespace

int main(int argc, char** argv) {
    const fs::path home = fs::temp_directory_path() / ("vx_phase_panel_" + std::to_string(::getpid()));
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

        const std::string data = write_transient(home, "data.dat", 1.0, ui);
        const std::string blank = write_transient(home, "blank.dat", 0.5, ui);
        CHECK(!data.empty() && !blank.empty());

        // Absorption with the dispersion and the phase plot.
        const int slot = window.open_file(data);
        CHECK(slot == 0);
        vx::PhaseDialog* panel = vx::show_PHASE(window);
        CHECK(panel->isVisible());
        panel->set_mode(vx::PROCESS_ABSORPTION);
        panel->set_dispersion(true);
        panel->set_show_phase(true);
        CHECK(panel->go(false) == 0);
        const vx::Spectrum& s = ws.panels[0].spectrum;
        CHECK(s.domain != vx::DOMAIN_TIME);
        CHECK(!s.phase.empty());
        const int disp = panel->dispersion_slot();
        CHECK(disp > 0);
        if (disp > 0) {
            CHECK(ws.panels[static_cast<std::size_t>(disp)].spectrum.title2 == "Dispersion Data");
            CHECK(window.graph(disp) != nullptr);
        }
        CHECK(panel->phase_plot() && panel->phase_plot()->isVisible());
        {
            bool drop = false, a = false, b = false;
            for (QLabel* l : panel->findChildren<QLabel*>()) {
                drop = drop || l->text().startsWith("Drop ");
                a = a || l->text() == "A 150.000000";
                b = b || l->text() == "B 0.000500";
            }
            CHECK(drop && a && b);
        }
        if (panel->phase_plot()) {
            auto* plot = panel->phase_plot()->findChild<QCustomPlot*>();
            CHECK(plot && plot->graph(0)->dataCount() > 100);
        }

        // Complex division: a fresh data panel divided by the blank; the
        // quotient at the ions is 2 (data twice the blank).
        const int second = window.open_file(data);
        CHECK(second > 0);
        ws.active_panel = second;
        panel->set_mode(vx::PROCESS_COMPLEX_DIVISION);
        panel->set_dispersion(false);
        panel->set_show_phase(false);
        const int b = panel->open_blank(blank);
        CHECK(b > 0);
        CHECK(ws.active_panel == second);
        CHECK(panel->go(false) == 0);
        const vx::Spectrum& q = ws.panels[static_cast<std::size_t>(second)].spectrum;
        CHECK(q.domain != vx::DOMAIN_TIME);
        std::vector<float> sorted = q.data;
        std::nth_element(sorted.begin(), sorted.begin() + sorted.size() / 2, sorted.end());
        const float median = sorted.empty() ? 0.0f : sorted[sorted.size() / 2];
        std::fprintf(stderr, "median quotient %.4f\n", median);
        CHECK(std::fabs(median - 2.0f) < 0.05f);
        CHECK(panel->dispersion_slot() > 0);  // division always shows its imaginary part

        auto box = [&](const char* name) { return panel->findChild<QCheckBox*>(name); };
        for (const char* name : {"APODFIRST", "BASEFILE", "AUTOZERO_DET", "AUTOZERO_EX", "PROCESSEXCITE", "SIMPLE",
                                 "ITERATEC", "INVERSE", "MANUAL", "BATCH", "TEST", "TEST_2", "DEBUG"})
            CHECK(box(name) != nullptr);
        CHECK(panel->findChild<QSpinBox*>("SKIPPOINTS") != nullptr);
        CHECK(panel->findChild<QDoubleSpinBox*>("SCORE_LO") && panel->findChild<QDoubleSpinBox*>("SCORE_LO")->value() == -1.0);
        CHECK(panel->findChild<QDoubleSpinBox*>("SCORE_HI") && panel->findChild<QDoubleSpinBox*>("SCORE_HI")->value() == -1.0);
        CHECK(box("APODFIRST") && box("APODFIRST")->isChecked());
        auto fresh_data = [&] {
            const int n = window.open_file(data);
            CHECK(n >= 0);
            ws.active_panel = n;
            return n;
        };
        panel->set_mode(vx::PROCESS_ABSORPTION);

        // Zoom to the excited band (20 to 500 kHz of the simulator's chirp).
        {
            const int n = fresh_data();
            box("PROCESSEXCITE")->setChecked(true);
            CHECK(panel->go(false) == 0);
            const vx::AnalysisPanel& p = ws.panels[static_cast<std::size_t>(n)];
            CHECK(std::fabs(p.xmin - std::floor(20000.0 / p.spectrum.hzppt)) < 0.5);
            CHECK(std::fabs(p.xmax - std::ceil(500000.0 / p.spectrum.hzppt)) < 0.5);
            box("PROCESSEXCITE")->setChecked(false);
            window.close_slot(n);
        }
        // "Simple" with "Iterate C ": the labels of simple_phase.
        {
            const int n = fresh_data();
            box("SIMPLE")->setChecked(true);
            box("ITERATEC")->setChecked(true);
            CHECK(panel->go(false) == 0);
            CHECK(ws.panels[static_cast<std::size_t>(n)].spectrum.domain != vx::DOMAIN_TIME);
            bool sweep_label = false;
            for (QLabel* l : panel->findChildren<QLabel*>())
                if (l->text().startsWith("Sweeprate ")) sweep_label = true;
            CHECK(sweep_label);
            box("SIMPLE")->setChecked(false);
            box("ITERATEC")->setChecked(false);
            window.close_slot(n);
        }
        // "M": the transform alone and the manual panel over it.
        {
            const int n = fresh_data();
            box("MANUAL")->setChecked(true);
            CHECK(panel->go(false) == 0);
            const vx::Spectrum& m = ws.panels[static_cast<std::size_t>(n)].spectrum;
            CHECK(!m.realdata.empty() && m.data == m.realdata);
            bool manual_open = false;
            for (QWidget* w : QApplication::topLevelWidgets())
                if (w->windowTitle() == "Manual Phasing Control" && w->isVisible()) manual_open = true;
            for (QDialog* d : window.findChildren<QDialog*>())
                if (d->windowTitle() == "Manual Phasing Control" && d->isVisible()) manual_open = true;
            CHECK(manual_open);
            box("MANUAL")->setChecked(false);
            window.close_slot(n);
        }
        // "I": a phase-corrected transient, and the switch back off.
        {
            const int n = fresh_data();
            box("INVERSE")->setChecked(true);
            CHECK(panel->go(true) == 0);
            const vx::Spectrum& inv = ws.panels[static_cast<std::size_t>(n)].spectrum;
            CHECK(inv.domain == vx::DOMAIN_TIME && inv.storagemode == 1);
            CHECK(!box("INVERSE")->isChecked());
            window.close_slot(n);
        }
        // The background: subtracted once, its switch then off, its window kept
        // until the switch is turned off by hand.
        {
            const int n = fresh_data();
            const int bg = panel->open_background(blank);
            CHECK(bg >= 0 && bg != n);
            CHECK(ws.active_panel == n);
            CHECK(box("BASEFILE")->isChecked());
            CHECK(panel->go(false) == 0);
            CHECK(!box("BASEFILE")->isChecked());
            CHECK(bg >= 0 && ws.panels[static_cast<std::size_t>(bg)].active);
            box("BASEFILE")->setChecked(true);  // no dialog: the background is still open
            box("BASEFILE")->setChecked(false);
            CHECK(panel->background_slot() == -1);
            CHECK(bg >= 0 && !ws.panels[static_cast<std::size_t>(bg)].active);
            window.close_slot(n);
        }
        // "T2" with nobody to answer: the insufficient-information message.
        {
            const int n = fresh_data();
            box("TEST_2")->setChecked(true);
            ui.shown.clear();
            CHECK(panel->go(false) == -15);
            CHECK(std::find(ui.shown.begin(), ui.shown.end(),
                            "Insufficient information to phase data.: Phasing can not continue with current "
                            "information. Exiting.") != ui.shown.end());
            CHECK(ws.panels[static_cast<std::size_t>(n)].spectrum.domain == vx::DOMAIN_TIME);
            box("TEST_2")->setChecked(false);
            window.close_slot(n);
        }
        // The transfer function on its own axis, shown against frequency.
        {
            const int n = fresh_data();
            const double bw = ws.panels[static_cast<std::size_t>(n)].spectrum.dbandwidth;
            const double count = ws.panels[static_cast<std::size_t>(n)].spectrum.datacount;
            panel->set_mode(vx::PROCESS_TRANSFER);
            CHECK(panel->go(false) == 0);
            const vx::Spectrum& h = ws.panels[static_cast<std::size_t>(n)].spectrum;
            CHECK(std::fabs(h.hzppt - bw / count) < 1e-9);
            CHECK(h.domain == vx::DOMAIN_FREQUENCY);
            panel->set_mode(vx::PROCESS_ABSORPTION);
        }

        // Division without a blank of the same length: the message, no change.
        vx::PhaseDialog fresh(window);
        fresh.set_mode(vx::PROCESS_TRANSFER);
        ws.active_panel = slot;  // a frequency spectrum by now
        CHECK(fresh.go(false) == -1);
    }
    fs::remove_all(home);
    if (failures) std::fprintf(stderr, "%d check(s) failed\n", failures);
    return failures ? 1 : 0;
}
