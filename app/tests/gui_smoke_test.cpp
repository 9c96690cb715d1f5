// The desktop program driven offscreen: a transient opened from a file, shown,
// processed, switched to m/z, zoomed, refused and panned, the slot table
// filled to its limit, windows closed, and a screenshot saved for a look.
#include <QApplication>
#include <QElapsedTimer>
#include <QMenu>
#include <QMenuBar>
#include <QImage>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMouseEvent>

#include <qcustomplot.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "gui_check.hpp"
#include "main_window.hpp"
#include "qt_ui.hpp"
#include "peaks/find_peaks.hpp"
#include "sim/simulator.hpp"
#include "workspace/conversions.hpp"
#include "workspace/filelist.hpp"

namespace fs = std::filesystem;

namespace {

bool saw(const vx::QtUi& ui, const std::string& message) {
    for (const std::string& m : ui.shown)
        if (m == message) return true;
    return false;
}

// A simulated transient of three ions, m/z 400, 500 and 600, with a little noise.
std::string write_transient(const fs::path& dir, vx::Ui& ui) {
    vx::SimParameters sp;
    sp.points = 1 << 17;
    sp.noise = 0.001;
    std::vector<vx::SimIon> ions(3);
    const double mz[] = {400.0, 500.0, 600.0};
    for (int k = 0; k < 3; ++k) {
        ions[static_cast<std::size_t>(k)].mz = mz[k];
        ions[static_cast<std::size_t>(k)].abundance = 0.3 - 0.08 * k;
        ions[static_cast<std::size_t>(k)].decay = 0.05;
    }
    const fs::path path = dir / "smoke.dat";
    if (vx::write_simulated_file(path.string(), sp, ions, ui) < 0) return {};
    return path.string();
}

}  // namespace

int main(int argc, char** argv) {
    const fs::path out = VANTORIX_GUI_OUT;
    const fs::path home = out / "gui_smoke_home";
    fs::remove_all(home);
    fs::create_directories(home);
    setenv("VANTORIX_HOME", home.c_str(), 1);
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);

    vx::MainWindow window(true);
    vx::Workspace& ws = window.workspace();
    vx::QtUi& ui = window.ui();
    vx::ensure_default_ini(vx::settings_dir());
    CHECK(vx::ReadINI(vx::settings_dir(), ws.settings, ui) == 0);
    vx::FileList(vx::settings_dir());
    window.show();

    const std::string path = write_transient(home, ui);
    CHECK(!path.empty());
    const int slot = window.open_file(path);
    CHECK(slot == 0);
    vx::GraphWindow* g = window.graph(0);
    CHECK(g != nullptr);
    if (!g) return 1;
    vx::AnalysisPanel& p = ws.panels[0];
    CHECK(p.xmode == vx::XMODE_TIME);
    CHECK(p.fullmax == p.spectrum.datacount - 2.0);
    // The recent-file list knows the file.
    const vx::RecentFiles recent = vx::read_file_list(vx::settings_dir());
    CHECK(recent.count == 1 && recent.names[0] == path);

    // Transients refuse the m/z view.
    g->plot_command(vx::PLOT_MZ);
    CHECK(saw(ui, "Analyzer Error: M/Z not allowed for Current Data"));
    CHECK(p.xmode == vx::XMODE_TIME);

#if __has_include("workspace/processing.hpp")
    CHECK(window.process_active() == 0);
    CHECK(p.spectrum.domain == vx::DOMAIN_MASS);
    CHECK(p.xmode == vx::XMODE_MZ);
    g->plot_command(vx::PLOT_TIME);
    CHECK(saw(ui, "Plotting Error: TIME not allowed for Frequency Domain Data"));
#else
    // Without the processing chain the picture shows the transient by data point.
    g->plot_command(vx::PLOT_DATA_POINT);
    CHECK(p.xmode == vx::XMODE_POINT);
#endif

    // Zoom Exact around the middle peak, and back with Zoom Last.
    const double before_min = p.xmin, before_max = p.xmax;
    if (p.xmode == vx::XMODE_MZ) {
        g->zoom_exact(480.0, 520.0, false);
        CHECK(std::fabs(vx::SPt_tomass(p.spectrum, p.xmax) - 480.0) < 0.5);
        CHECK(std::fabs(vx::SPt_tomass(p.spectrum, p.xmin) - 520.0) < 0.5);
    } else {
        g->zoom_exact(1000.0, 9000.0, false);
        CHECK(p.xmin == 1000.0 && p.xmax == 9000.0);
    }
    g->plot_command(vx::PLOT_ZOOM_LAST);
    CHECK(p.xmin == before_min && p.xmax == before_max);
    g->plot_command(vx::PLOT_ZOOM_LAST);

    // Panning: allowed in m/z only, and not past the end of the data.
    const double keep_min = p.xmin;
    if (p.xmode == vx::XMODE_MZ) {
        g->plot_command(vx::PLOT_ZOOM_FULL);
        g->move_graph(3);
        CHECK(saw(ui, "Zoom Error: Can Not Zoom Any Further - Reached End of Data."));
        g->plot_command(vx::PLOT_ZOOM_LAST);
        CHECK(p.xmin == keep_min);
    } else {
        g->move_graph(2);
        CHECK(saw(ui, "Zoom Error: Panning function only for Mass and Frequency at this time"));
    }
    // Find Peaks over the excited range: the three ions, in ascending m/z, in the table.
    window.find_peak_options();
    CHECK(window.find_peaks() >= 3);
    const auto& peaks = p.spectrum.peaks;
    CHECK(window.peak_table().rows.size() == peaks.size());
    for (double mz : {400.0, 500.0, 600.0})
        CHECK(std::any_of(peaks.begin(), peaks.end(), [mz](const vx::Peak& k) { return std::fabs(k.mass - mz) < 0.05; }));
    CHECK(std::is_sorted(peaks.begin(), peaks.end(),
                         [](const vx::Peak& a, const vx::Peak& b) { return a.mass < b.mass; }));

    // Mouse: a left click moves cursor 1 there; a right drag of 20 pixels or
    // more zooms between its ends; "Zoom Last" undoes it.
    {
        QCustomPlot* plot = g->plot();
        const QRect r = plot->axisRect()->rect();
        const QPointF a(r.left() + 100, r.center().y()), b(r.left() + 400, r.center().y());
        const double xa = plot->xAxis->pixelToCoord(a.x()), xb = plot->xAxis->pixelToCoord(b.x());
        auto send = [&](QEvent::Type type, QPointF at, Qt::MouseButton button) {
            QMouseEvent ev(type, at, plot->mapToGlobal(at), button,
                           type == QEvent::MouseButtonRelease ? Qt::NoButton : button, Qt::NoModifier);
            QApplication::sendEvent(plot, &ev);
        };
        send(QEvent::MouseButtonPress, a, Qt::LeftButton);
        send(QEvent::MouseButtonRelease, a, Qt::LeftButton);
        CHECK(g->cursor_x(1) == xa);
        const double was_min = p.xmin, was_max = p.xmax;
        send(QEvent::MouseButtonPress, a, Qt::RightButton);
        send(QEvent::MouseButtonRelease, b, Qt::RightButton);
        const double pa = vx::x_to_point(p, xa), pb = vx::x_to_point(p, xb);
        CHECK(p.xmin == std::min(pa, pb) && p.xmax == std::max(pa, pb));
        g->plot_command(vx::PLOT_ZOOM_LAST);
        CHECK(p.xmin == was_min && p.xmax == was_max);
    }

    // The table's "Print Peaks To File": the table form with its first line.
    {
        const fs::path pks = home / "smoke_table.pks";
        CHECK(window.save_peak_table(pks.string()) == 0);
        std::ifstream in(pks);
        std::string first;
        std::getline(in, first);
        CHECK(first.rfind("Vantorix Analysis Peaklist V2.0 - ", 0) == 0);
    }

    g->plot_command(vx::PLOT_RELATIVE);
    CHECK(p.relativescale == 1);

    // Fill the table: 31 from the menu, then a drop of two files opens the
    // 32nd and stops at the second with the warning.
    for (int i = 1; i < vx::MAX_PANELS - 1; ++i) CHECK(window.open_file(path) == i);
    window.open_dropped({QString::fromStdString(path), QString::fromStdString(path)});
    CHECK(window.graph(vx::MAX_PANELS - 1) != nullptr);
    CHECK(saw(ui, "Warning: Too many files open, close some files and reload."));
    CHECK(ws.active_panel == -1);
    CHECK(window.open_file(path) == -1);
    // Closing windows: the active slot moves to the highest occupied one.
    // The close box of a graph window runs "Close" on its slot.
    for (QMdiSubWindow* sub : window.findChild<QMdiArea*>()->subWindowList())
        if (sub->widget() == window.graph(vx::MAX_PANELS - 1)) sub->close();
    QApplication::processEvents();
    CHECK(window.graph(vx::MAX_PANELS - 1) == nullptr);
    CHECK(ws.panels[vx::MAX_PANELS - 1].active == 0);
    CHECK(ws.active_panel == vx::MAX_PANELS - 2);
    for (int i = vx::MAX_PANELS - 2; i >= 1; --i) window.close_slot(i);
    QApplication::processEvents();
    CHECK(ws.active_panel == 0);
    CHECK(window.graph(5) == nullptr);
    CHECK(window.findChild<QMdiArea*>()->subWindowList().size() == 1);
    CHECK(vx::read_file_list(vx::settings_dir()).count == 1);  // the same file only moves to the top
    // The recent-file entry of the File menu opens the file again.
    {
        QAction* recent = nullptr;
        for (QAction* a : window.menuBar()->actions().front()->menu()->actions())
            if (a->text().startsWith("__1 ")) recent = a;
        CHECK(recent != nullptr);
        if (recent) {
            recent->trigger();
            CHECK(window.graph(1) != nullptr && ws.panels[1].spectrum.filename == path);
            window.close_slot(1);
        }
    }

    // The screenshot: the maximised graph with a red trace in it.
    window.findChild<QMdiArea*>()->subWindowList().front()->showMaximized();
    QApplication::processEvents();
    g->redraw();
    QApplication::processEvents();
    const QImage image = window.grab().toImage();
    const fs::path png = out / "gui_smoke.png";
    CHECK(image.save(QString::fromStdString(png.string())));
    // The trace runs across the plot: red in most pixel columns.
    int red = 0;
    for (int x = 0; x < image.width(); ++x)
        for (int y = 0; y < image.height(); ++y) {
            const QColor c = image.pixelColor(x, y);
            if (c.red() > 200 && c.green() < 120 && c.blue() < 120) {
                ++red;
                break;
            }
        }
    CHECK(red > image.width() / 2);
    // A spectrum of 33,554,432 points redraws interactively in m/z and by data point.
    double ms_mz = 0, ms_point = 0, ms_peaks = 0;
    {
        const int big = 33554432;
        vx::AnalysisPanel& q = ws.panels[1];
        q = vx::AnalysisPanel{};
        q.spectrum.data.assign(static_cast<std::size_t>(big), 1.0f);
        q.spectrum.data[big / 3] = 500.0f;
        q.spectrum.datacount = big;
        q.spectrum.domain = vx::DOMAIN_FREQUENCY;
        q.spectrum.filename = "33554432 points";
        vx::Initialize_Display(ws, 1);
        window.sync_windows();
        vx::GraphWindow* bg = window.graph(1);
        CHECK(bg != nullptr);
        if (bg) {
            auto time_redraws = [&] {
                QElapsedTimer t;
                t.start();
                for (int i = 0; i < 5; ++i) bg->redraw();
                return static_cast<double>(t.elapsed()) / 5.0;
            };
            bg->plot_command(vx::PLOT_MZ);
            ms_mz = time_redraws();
            bg->plot_command(vx::PLOT_DATA_POINT);
            ms_point = time_redraws();
            CHECK(ms_mz < 300.0 && ms_point < 300.0);
            // The same with 100,000 found peaks marked and the taller labelled.
            for (int k = 0; k < 100000; ++k) {
                vx::Peak pk;
                pk.index = 100.0 + 335.0 * k;
                pk.abundance = 1.0 + (k * 7919 % 1000);
                pk.mass = vx::SPt_tomass(q.spectrum, pk.index);
                q.spectrum.peaks.push_back(pk);
            }
            bg->plot_command(vx::PLOT_MZ);
            ms_peaks = time_redraws();
            CHECK(bg->marked_peaks() > 0 && !bg->drawn_labels().empty());
            CHECK(ms_peaks < 500.0);
            CHECK(q.ymax == 500.0f);
        }
        window.close_slot(1);
        CHECK(window.graph(1) == nullptr && q.spectrum.data.empty());
    }
    // "Process Macro" on a fresh transient, with the noise between m/z 700 and 800.
    {
        const int m = window.open_file(path);
        CHECK(m == 1);
        if (vx::GraphWindow* mg = window.graph(m)) {
            mg->set_cursor(1, 700.0, 0.0);
            mg->set_cursor(2, 800.0, 0.0);
            CHECK(window.process_macro() >= 3);
            CHECK(ws.panels[1].spectrum.domain == vx::DOMAIN_MASS);
            CHECK(ws.panels[1].spectrum.overRideThrashNoiseCalculation == 1);
            CHECK(window.peak_table().rows.size() == ws.panels[1].spectrum.peaks.size());
        }
        window.close_slot(m);
    }

    std::printf("gui_smoke: 33554432-point redraw %.1f ms in m/z, %.1f ms by data point, %.1f ms in m/z with 100000 peaks marked\n",
                ms_mz, ms_point, ms_peaks);

    std::printf("gui_smoke: screenshot %s (%dx%d, %d columns with trace), %d failure(s)\n", png.c_str(), image.width(),
                image.height(), red, failures);
    return failures == 0 ? 0 : 1;
}
