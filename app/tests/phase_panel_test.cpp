// The expert phasing panel "Phasing the Data" driven offscreen: absorption
// with the dispersion in its own window and the "Show Phase" plot, then a
// complex division of a data transient by a blank of the same ions.
#include <QApplication>

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
