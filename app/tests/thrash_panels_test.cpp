// The THRASH side panels offscreen: Mass Determination and Newmatch on one
// cluster, the sequence panel loading and assigning the table, Save Peaklist
// with its print, and the charge deconvolution's plot panel (Zdet, LOWZ,
// Analysis, Analysis Report, Save) with "Calc Std Dev" on the graph.
#include <QAction>
#include <QApplication>
#include <QDoubleSpinBox>
#include <QMenuBar>
#include <QSpinBox>
#include <QTemporaryDir>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

#include "gui_check.hpp"
#include "main_window.hpp"
#include "panels/DECONV.hpp"
#include "panels/MASSDETERMINATION.hpp"
#include "panels/NEWMATCH.hpp"
#include "panels/PLOTSPECTRUM.hpp"
#include "panels/SEQUENCE.hpp"
#include "panels/THRASH.hpp"
#include "qt_ui.hpp"
#include "sim/proteins.hpp"
#include "workspace/conversions.hpp"

namespace {

std::string read(const QString& path) {
    std::ifstream f(path.toStdString(), std::ios::binary);
    std::ostringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

bool shown(vx::MainWindow& w, const std::string& text) {
    for (const auto& s : w.ui().shown)
        if (s.find(text) != std::string::npos) return true;
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    QTemporaryDir home;
    setenv("VANTORIX_HOME", home.path().toUtf8().constData(), 1);
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);
    vx::MainWindow window(true);
    vx::Workspace& ws = window.workspace();
    window.show();

    // The menus: the new entries are there, the removed ones stay away.
    QStringList items;
    for (QAction* menu : window.menuBar()->actions())
        if (menu->menu())
            for (QAction* a : menu->menu()->actions()) items << a->text();
    for (const char* want : {"Mass Determination", "Newmatch...", "Display THRASH Peaklist", "Calc Std Dev"})
        CHECK(items.contains(want));
    for (const char* gone : {"Load Sequence...", "Load Peaklist..."}) CHECK(!items.contains(gone));

    // Nothing open: each panel says so.
    vx::MassDeterminationPanel* mass = vx::open_mass_determination(&window);
    CHECK(mass->determine(950.0, 955.0) == -1);
    vx::NewmatchPanel* nm = vx::open_newmatch(&window);
    CHECK(nm->match() == -1);
    CHECK(vx::calc_std_dev(window, std::string("3")) == -1);

    // Ubiquitin at charges 8 to 10 on a 1M-point spectrum, noise of 1.
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
    std::mt19937 rng(3);
    std::normal_distribution<double> g(0.0, 1.0);
    for (float& v : s.data) v += static_cast<float>(std::hypot(g(rng), g(rng)));
    ws.panels[0].active = 1;
    ws.panels[0].xmode = vx::XMODE_MZ;
    ws.active_panel = 0;

    // Mass Determination on the charge 9 cluster.
    CHECK(mass->determine(951.5, 954.5) == 0);
    CHECK(mass->result().found);
    CHECK(mass->result().peak.charge == 9);
    CHECK(std::fabs(mass->result().peak.monoisotopic_mass - 8559.6167) < 0.1);
    CHECK(mass->text().startsWith("Charge: 9\nMonoisotopic M/Z: "));
    CHECK(mass->text().contains("Assignment: N/A"));

    // Newmatch with the charge chosen: the same cluster; a charge above the
    // setup's maximum is refused.
    nm->set_range(951.5, 954.5, 9);
    CHECK(nm->match() == 0);
    CHECK(nm->result().peak.charge == 9);
    CHECK(nm->text().contains("Charge: 9"));
    vx::ThrashPanel* thrash = vx::open_thrash(&window);
    thrash->findChild<QSpinBox*>("max_charge")->setValue(60);
    nm->set_range(951.5, 954.5, 61);
    CHECK(nm->match() == -1);

    // The scan, then the sequence: a bad file leaves no sequence in use, the
    // good one assigns the table (the molecular ion and its continuation rows).
    thrash->findChild<QDoubleSpinBox*>("low_mass")->setValue(800.0);
    thrash->findChild<QDoubleSpinBox*>("high_mass")->setValue(1100.0);
    CHECK(thrash->run() == 0);
    CHECK(thrash->model().rowCount() >= 3);
    vx::SequencePanel* seq = vx::open_sequence(&window);
    const QString bad = home.filePath("bad.txt"), good = home.filePath("ubq.txt");
    std::ofstream(bad.toStdString()) << "UBQ 5\nMQIFZ\n";
    std::ofstream(good.toStdString())
        << "UBQ 76\nMQIFVKTLTGKTITLEVEPSDTIENVKAKIQDKEGIPPDQQRLIFAGKQLEDGRTLSDYNIQKESTLHLVLRLRGG\n";
    CHECK(seq->load(bad.toStdString()) == -1);
    CHECK(!seq->loaded());
    CHECK(vx::loaded_sequence(window) == nullptr);
    CHECK(shown(window, "Error creating fragment table from Sequence"));
    seq->set_tolerance(0.1, false);
    CHECK(seq->load(good.toStdString()) == 0);
    CHECK(vx::loaded_sequence(window) != nullptr);
    CHECK(shown(window, "Fragment List Created: Sequence UBQ Successfully Loaded."));
    const int heads = [&] {
        int k = 0;
        for (const auto& r : thrash->model().rows()) k += !r.continuation;
        return k;
    }();
    CHECK(seq->assign_table() >= heads);
    int mol = 0, cont = 0;
    for (const auto& r : thrash->model().rows()) {
        mol += r.assignment_text.rfind("Mol. Ion", 0) == 0;
        cont += r.continuation;
    }
    std::printf("sequence: %d rows, %d molecular ions, %d continuation rows\n", thrash->model().rowCount(), mol, cont);
    CHECK(mol >= 3);
    // Mass words its assignments its own way.
    CHECK(mass->determine(951.5, 954.5) == 0);
    CHECK(mass->text().contains("Assignment: Molecular Ion"));

    // Save Peaklist, printed to a PDF.
    const QString pkl = home.filePath("ubq.pkl"), pdf = home.filePath("ubq_pkl.pdf");
    CHECK(thrash->save_peaklist(pkl.toStdString(), pdf.toStdString()) == 0);
    const std::string text = read(pkl);
    CHECK(text.rfind("TULVA data file: ", 0) == 0);
    CHECK(text.find("\nThrash Peaks :\n") != std::string::npos);
    CHECK(read(pdf).rfind("%PDF", 0) == 0);

    // The plot panel: Zdet on the charge 9 cluster, LOWZ onto masses.
    vx::PlotSpectrumPanel* plot = vx::open_plot_spectrum(&window);
    plot->set_range(950.0, 956.0);
    CHECK(plot->plot_display() == 0);
    CHECK(plot->zdet() == 0);
    CHECK(plot->zdet_result().charge == 9);
    CHECK(plot->message().endsWith("(9+)"));
    plot->options()->set(100000.0, false, 100.0, 20.0);
    plot->options_answered();
    plot->set_range(800.0, 1100.0);
    CHECK(plot->plot_display() == 0);
    CHECK(plot->deconvolve(vx::DECONV_LOWZ) > 0);
    CHECK(plot->showing_masses());
    double top = 0.0, top_mass = 0.0;
    const auto& ms = plot->mass_spectrum();
    for (std::size_t i = 0; i < ms.mass.size(); ++i)
        if (ms.intensity[i] > top) {
            top = ms.intensity[i];
            top_mass = ms.mass[i];
        }
    std::printf("deconvolution: %zu masses, tallest at %.4f\n", ms.mass.size(), top_mass);
    CHECK(std::fabs(top_mass - 8564.6) < 3.0);
    // Analysis: "no" to the background does nothing; "yes" measures.
    plot->set_cursors(8555.0, 8575.0, 0.0);
    CHECK(plot->analysis() == 1);
    CHECK(shown(window, "Analysis: Background Setting OK?"));
    window.ui().default_confirm = true;
    CHECK(plot->analysis() == 0);
    CHECK(plot->analysis_result().centroid > 8559.0 && plot->analysis_result().centroid < 8570.0);
    CHECK(plot->message().startsWith(" centroid ="));
    // The report and its limit.
    CHECK(plot->analysis_report(std::string("6")) == 0);
    CHECK(ws.settings.peak_sigma_factor == 6.0);
    CHECK(plot->report().text.rfind("Average: ", 0) == 0);
    CHECK(plot->analysis_report(std::string("1")) == -1);
    CHECK(shown(window, "Current Lower Limit for S/N thrshold is 2: Please choose a limit of 2 or greater"));
    CHECK(ws.settings.peak_sigma_factor == 6.0);
    // Save: the plot's lines.
    const QString saved = home.filePath("masses.txt");
    CHECK(plot->save(saved.toStdString()) == 0);
    const std::string lines = read(saved);
    CHECK(lines.rfind("  ", 0) == 0);
    CHECK(std::count(lines.begin(), lines.end(), '\n') == static_cast<long>(ms.mass.size()));

    // "Calc Std Dev" on the graph between its cursors 1 and 2 (m/z).
    window.sync_windows();
    if (vx::GraphWindow* gw = window.active_graph()) {
        gw->set_cursor(1, 930.0, 0.1);
        gw->set_cursor(2, 940.0, 0.1);
        const double before = ws.settings.noise_threshold;
        CHECK(vx::calc_std_dev(window, std::string("3")) == 0);
        CHECK(ws.settings.peak_sigma_factor == 3.0);
        CHECK(ws.settings.noise_threshold != before);
        CHECK(ws.settings.noise_threshold > 0.5 && ws.settings.noise_threshold < 10.0);
    } else {
        CHECK(!"no graph window for the slot");
    }
    CHECK(s.data2.empty());
    if (failures) std::fprintf(stderr, "%d check(s) failed\n", failures);
    return failures ? 1 : 0;
}
