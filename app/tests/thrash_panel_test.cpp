// The THRASH panel offscreen: nothing open is refused; a spectrum of
// ubiquitin at charges 8 to 10 in a slot is scanned on the worker with the
// panel's events flowing, the table fills with one numbered row per
// assignment, and a row shows its cluster with the model.
#include <QCheckBox>
#include <QApplication>
#include <QDoubleSpinBox>
#include <QSpinBox>
#include <QTemporaryDir>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "gui_check.hpp"
#include "main_window.hpp"
#include "panels/THRASH.hpp"
#include "sim/proteins.hpp"
#include "workspace/conversions.hpp"

int main(int argc, char** argv) {
    QTemporaryDir home;
    setenv("VANTORIX_HOME", home.path().toUtf8().constData(), 1);
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);
    vx::MainWindow window(true);
    vx::Workspace& ws = window.workspace();
    window.show();

    vx::ThrashPanel* panel = vx::open_thrash(&window);
    CHECK(panel->run() == -1);
    CHECK(panel->model().rowCount() == 0);

    // A 1M-point magnitude spectrum, lines three points wide, noise of 1.
    vx::Spectrum& s = ws.panels[0].spectrum;
    vx::Set_Default_Parameters(s);
    const int n = 1 << 20;
    s.domain = vx::DOMAIN_FREQUENCY;
    s.datacount = n;
    s.dbandwidth = 250000.0;
    s.hzppt = s.dbandwidth / n;
    s.data.assign(n, 0.0f);
    vx::SimProtein ubq;
    vx::parse_protein_formula("C378H629N105O118S1", ubq.atoms);
    ubq.zmin = 8;
    ubq.zmax = 10;
    ubq.abundance = 500.0;
    for (const vx::SimIon& ion : vx::protein_ions({ubq}, nullptr)) {
        const double c = vx::One_mass_topt(s, ion.mz);
        for (long i = static_cast<long>(c) - 30; i <= static_cast<long>(c) + 30; ++i) {
            const double x = (i - c) / 1.5;
            s.data[static_cast<std::size_t>(i)] += static_cast<float>(ion.abundance / (1.0 + x * x));
        }
    }
    // Rayleigh noise, the magnitude of complex Gaussian noise.
    std::mt19937 rng(3);
    std::normal_distribution<double> g(0.0, 1.0);
    for (float& v : s.data) v += static_cast<float>(std::hypot(g(rng), g(rng)));
    panel->findChild<QDoubleSpinBox*>("low_mass")->setValue(800.0);
    panel->findChild<QDoubleSpinBox*>("high_mass")->setValue(1100.0);
    panel->findChild<QSpinBox*>("max_charge")->setValue(60);
    ws.panels[0].active = 1;
    ws.active_panel = 0;

    CHECK(panel->run() == 0);
    const auto& rows = panel->model().rows();
    std::printf("THRASH panel: %zu rows\n", rows.size());
    CHECK(!rows.empty());
    int near = 0;
    for (const auto& r : rows) near += std::fabs(r.monoisotopic_mass - 8559.6167) < 0.1;
    CHECK(near >= 3);
    CHECK(panel->model().data(panel->model().index(0, 0), Qt::DisplayRole).toInt() == 1);
    CHECK(panel->model().headerData(9, Qt::Horizontal, Qt::DisplayRole).toString() == "RL");
    panel->plot_peak(0);
    CHECK(s.data2.empty());
    // Clean residues: no more rows than the literal subtraction, the states still there.
    const std::size_t literal_rows = rows.size();
    panel->findChild<QCheckBox*>("clean_residues")->setChecked(true);
    CHECK(panel->run() == 0);
    const auto& clean_rows = panel->model().rows();
    std::printf("THRASH panel, clean residues: %zu rows\n", clean_rows.size());
    CHECK(clean_rows.size() <= literal_rows);
    near = 0;
    for (const auto& r : clean_rows) near += std::fabs(r.monoisotopic_mass - 8559.6167) < 0.1;
    CHECK(near >= 3);
    if (failures) std::fprintf(stderr, "%d check(s) failed\n", failures);
    return failures ? 1 : 0;
}
