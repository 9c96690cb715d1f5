// The desktop program as a newcomer meets it, driven offscreen: the bundled
// sample opened, processed and searched with fresh settings and no option
// touched; the read-outs; wheel zoom, the rubber band and the zoom history;
// the labels of the found peaks; the keys; a second launch handing its file
// to the running window.
#include <gtest/gtest.h>

#include <QApplication>
#include <QLocalServer>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenuBar>
#include <QMouseEvent>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTableView>
#include <QTest>
#include <QWheelEvent>

#include <qcustomplot.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ANALYZE.hpp"
#include "main_window.hpp"
#include "ui_ANALYZE.h"
#include "qt_ui.hpp"
#include "shortcuts.hpp"
#include "single_instance.hpp"
#include "support/files.hpp"
#include "workspace/conversions.hpp"
#include "workspace/filelist.hpp"
#include "workspace/settings.hpp"

namespace fs = std::filesystem;

namespace vx {
namespace {

const std::string sample_path = std::string(VANTORIX_SOURCE_DIR) + "/data/sample.dat";

std::vector<double> sample_ions() {
    std::ifstream in(std::string(VANTORIX_SOURCE_DIR) + "/data/sample_ions.csv");
    std::vector<double> mz;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#' || line[0] == 'm') continue;
        mz.push_back(std::stod(line.substr(0, line.find(','))));
    }
    return mz;
}

// A main window with a fresh settings folder of its own, as on a first run.
class Gui : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("VANTORIX_HOME", home_.path().c_str(), 1);
        window_ = std::make_unique<MainWindow>(true);
        ensure_default_ini(settings_dir());
        ASSERT_EQ(ReadINI(settings_dir(), window_->workspace().settings, window_->ui()), 0);
        FileList(settings_dir());
        window_->resize(1200, 800);
        window_->show();
        QApplication::processEvents();
    }

    // Opens the sample and processes it; the graph window fills the area.
    GraphWindow* open_processed() {
        const int slot = window_->open_file(sample_path);
        if (slot < 0) return nullptr;
        GraphWindow* g = window_->graph(slot);
        if (auto* sub = qobject_cast<QMdiSubWindow*>(g->parentWidget())) sub->showMaximized();
        QApplication::processEvents();
        if (window_->process_active() < 0) return nullptr;
        QApplication::processEvents();
        g->redraw();
        return g;
    }

    AnalysisPanel& panel(GraphWindow* g) { return window_->workspace().panels[static_cast<std::size_t>(g->slot())]; }

    test::TempDir home_;
    std::unique_ptr<MainWindow> window_;
};

void send_mouse(QWidget* w, QEvent::Type type, QPointF at, Qt::MouseButton button) {
    // A move carries the held button in buttons(), never in button().
    const bool move = type == QEvent::MouseMove;
    const Qt::MouseButtons held = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::MouseButtons(button);
    QMouseEvent ev(type, at, w->mapToGlobal(at), move ? Qt::NoButton : button, held, Qt::NoModifier);
    QApplication::sendEvent(w, &ev);
}

void send_wheel(QWidget* w, QPointF at, int notches) {
    QWheelEvent ev(at, w->mapToGlobal(at), QPoint(), QPoint(0, 120 * notches), Qt::NoButton, Qt::NoModifier,
                   Qt::NoScrollPhase, false);
    QApplication::sendEvent(w, &ev);
}

TEST_F(Gui, FirstRunFindsTheEightIonsOfTheSample) {
    GraphWindow* g = open_processed();
    ASSERT_NE(g, nullptr);
    // Find Peaks with no option touched: the command-line's limits apply
    // (the excited range when the settings hold none).
    const int found = window_->find_peaks();
    const std::vector<Peak>& peaks = panel(g).spectrum.peaks;
    const std::vector<double> ions = sample_ions();
    ASSERT_EQ(ions.size(), 8u);
    std::ostringstream listed;
    for (const Peak& k : peaks) listed << k.mass << " ";
    for (const std::string& m : window_->ui().shown) listed << "\n  message: " << m;
    EXPECT_EQ(found, 8) << listed.str();
    ASSERT_EQ(peaks.size(), ions.size()) << listed.str();
    for (std::size_t i = 0; i < ions.size(); ++i)
        EXPECT_NEAR(peaks[i].mass, ions[i], ions[i] * 10e-6) << "ion " << i;
}

TEST_F(Gui, FirstMassViewSpansTheSignalAndReadoutsAreLabelled) {
    const int slot = window_->open_file(sample_path);
    ASSERT_GE(slot, 0);
    GraphWindow* g = window_->graph(slot);
    // Right after the open the cursors stand in one place: no resolution, but no "nan".
    for (const char* caption : {"Slot", "Points", "Parent", "Cursors", "Width", "Resolution", "Cursor 3"})
        EXPECT_FALSE(g->readout(caption).contains("nan", Qt::CaseInsensitive)) << caption;
    EXPECT_EQ(g->readout("Resolution"), "-");
    EXPECT_EQ(g->readout("Points"), QString::number(panel(g).spectrum.datacount));
    ASSERT_EQ(window_->process_active(), 0);
    g->redraw();
    // The first m/z view holds every ion, and not the empty m/z far beyond them.
    const std::vector<double> ions = sample_ions();
    const QCPRange r = g->plot()->xAxis->range();
    EXPECT_LT(r.lower, ions.front());
    EXPECT_GT(r.upper, ions.back());
    EXPECT_LT(r.upper - r.lower, 4.0 * (ions.back() - ions.front())) << r.lower << " .. " << r.upper;
    // "Zoom Full" still shows all the data.
    g->plot_command(PLOT_ZOOM_FULL);
    EXPECT_GT(g->plot()->xAxis->range().size(), r.size());
}

TEST_F(Gui, HighestMassOfTheSettingsStillCutsTheFirstView) {
    window_->workspace().settings.mass_zoom_limit = 1000.0;
    GraphWindow* g = open_processed();
    ASSERT_NE(g, nullptr);
    const QCPRange r = g->plot()->xAxis->range();
    EXPECT_LT(r.upper, 1001.0);
    EXPECT_LT(r.lower, 195.0);
    // And the full view ends there too.
    g->plot_command(PLOT_ZOOM_FULL);
    EXPECT_LT(g->plot()->xAxis->range().upper, 1001.0);
}

TEST_F(Gui, LiveReadoutFollowsTheMouse) {
    GraphWindow* g = open_processed();
    ASSERT_NE(g, nullptr);
    g->zoom_exact(520.0, 530.0, false);
    QCustomPlot* plot = g->plot();
    const double px = plot->xAxis->coordToPixel(524.265);
    send_mouse(plot, QEvent::MouseMove, QPointF(px, plot->axisRect()->center().y()), Qt::NoButton);
    const QString live = g->live_readout();
    EXPECT_TRUE(live.startsWith("m/z 524.2")) << live.toStdString();
    EXPECT_TRUE(live.contains("kHz")) << live.toStdString();
    EXPECT_TRUE(live.contains("Intensity")) << live.toStdString();
}

TEST_F(Gui, WheelZoomsAboutTheMouseAndTheHistoryStepsBack) {
    GraphWindow* g = open_processed();
    ASSERT_NE(g, nullptr);
    QCustomPlot* plot = g->plot();
    const QRect area = plot->axisRect()->rect();
    const double px = area.left() + 0.3 * area.width();
    const double before_at = plot->xAxis->pixelToCoord(px);
    const QCPRange before = plot->xAxis->range();
    const double xmin0 = panel(g).xmin, xmax0 = panel(g).xmax;

    send_wheel(plot, QPointF(px, area.center().y()), 2);  // in
    const QCPRange in = plot->xAxis->range();
    EXPECT_LT(in.size(), 0.75 * before.size());
    // The m/z under the mouse stays under it (within two pixels' worth).
    EXPECT_NEAR(plot->xAxis->pixelToCoord(px), before_at, 2.0 * in.size() / area.width());
    const double xmin1 = panel(g).xmin, xmax1 = panel(g).xmax;

    send_wheel(plot, QPointF(px, area.center().y()), -1);  // out a little
    EXPECT_GT(plot->xAxis->range().size(), in.size());

    // Back twice returns to the view before the wheel; forward once to the zoomed one.
    EXPECT_TRUE(g->zoom_back());
    EXPECT_EQ(panel(g).xmin, xmin1);
    EXPECT_EQ(panel(g).xmax, xmax1);
    EXPECT_TRUE(g->zoom_back());
    EXPECT_EQ(panel(g).xmin, xmin0);
    EXPECT_EQ(panel(g).xmax, xmax0);
    EXPECT_TRUE(g->zoom_forward());
    EXPECT_EQ(panel(g).xmin, xmin1);
    // The plot menu's "Zoom Last" keeps working beside the history.
    g->plot_command(PLOT_ZOOM_LAST);
    EXPECT_EQ(panel(g).xmin, xmin0);

    // Ctrl+Z is back, in the window that has the focus.
    window_->activateWindow();
    plot->setFocus();
    QApplication::processEvents();
    g->zoom_exact(500.0, 550.0, false);
    const double zoomed_min = panel(g).xmin;
    g->zoom_exact(510.0, 520.0, false);
    QTest::keyClick(plot, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(panel(g).xmin, zoomed_min);
}

TEST_F(Gui, RightDragDrawsARubberBandAndZooms) {
    GraphWindow* g = open_processed();
    ASSERT_NE(g, nullptr);
    QCustomPlot* plot = g->plot();
    const QRect area = plot->axisRect()->rect();
    const QPointF a(area.left() + 100, area.center().y()), b(area.left() + 300, area.center().y());
    const double xa = plot->xAxis->pixelToCoord(a.x()), xb = plot->xAxis->pixelToCoord(b.x());
    send_mouse(plot, QEvent::MouseButtonPress, a, Qt::RightButton);
    EXPECT_FALSE(g->rubber_band_visible());
    send_mouse(plot, QEvent::MouseMove, b, Qt::RightButton);
    EXPECT_TRUE(g->rubber_band_visible());
    send_mouse(plot, QEvent::MouseButtonRelease, b, Qt::RightButton);
    EXPECT_FALSE(g->rubber_band_visible());
    const QCPRange r = plot->xAxis->range();
    EXPECT_NEAR(r.lower, std::min(xa, xb), 0.01 * (xb - xa));
    EXPECT_NEAR(r.upper, std::max(xa, xb), 0.01 * (xb - xa));
}

TEST_F(Gui, FoundPeaksAreMarkedWithLabelsThatDoNotOverlap) {
    GraphWindow* g = open_processed();
    ASSERT_NE(g, nullptr);
    // Whatever the search finds is marked; the abundance search of the
    // percent thresholds is the one that finds the sample's ions everywhere.
    window_->workspace().settings.percent_thresholds = 1;
    window_->find_peak_options();
    ASSERT_GT(window_->find_peaks(), 0);
    const auto& peaks = panel(g).spectrum.peaks;
    EXPECT_GT(g->marked_peaks(), 0);
    auto check = [&](const char* what) {
        SCOPED_TRACE(what);
        const auto labels = g->drawn_labels();
        const QRect area = g->plot()->axisRect()->rect();
        for (std::size_t i = 0; i < labels.size(); ++i) {
            EXPECT_TRUE(QRectF(area).contains(labels[i].box)) << labels[i].text.toStdString();
            for (std::size_t j = i + 1; j < labels.size(); ++j)
                EXPECT_FALSE(labels[i].box.intersects(labels[j].box))
                    << labels[i].text.toStdString() << " / " << labels[j].text.toStdString();
            // Each label is the m/z of a found peak.
            const double mz = labels[i].text.toDouble();
            EXPECT_TRUE(std::any_of(peaks.begin(), peaks.end(),
                                    [&](const Peak& k) { return std::fabs(k.mass - mz) < 1e-4; }));
        }
        return labels.size();
    };
    const std::size_t first = check("first view");
    EXPECT_GE(first, 1u);
    // Around the 524/525 pair both are labelled; zoomed right out, fewer or as many labels.
    g->zoom_exact(520.0, 530.0, false);
    const std::size_t near = check("524 and 525");
    EXPECT_GE(near, 2u);
    g->plot_command(PLOT_ZOOM_FULL);
    const std::size_t full = check("full view");
    EXPECT_LE(full, std::max(first, near));
    // Closing the slot and opening again shows no marks of the old search.
    window_->close_active();
    const int slot = window_->open_file(sample_path);
    ASSERT_GE(slot, 0);
    EXPECT_EQ(window_->graph(slot)->marked_peaks(), 0);
    EXPECT_TRUE(window_->graph(slot)->drawn_labels().empty());
}

TEST_F(Gui, CommandsHaveTheUsualKeysAndTheQuitQuestionOurName) {
    // Every entry of the key table names a menu item that exists.
    EXPECT_EQ(apply_shortcuts(window_->menuBar()), static_cast<int>(main_shortcuts().size()));
    bool open_has_ctrl_o = false;
    for (QAction* a : window_->findChildren<QAction*>())
        if (a->text() == "DAT file (no Phasing no walking cal)") open_has_ctrl_o = a->shortcut() == QKeySequence::Open;
    EXPECT_TRUE(open_has_ctrl_o);
    window_->ui().default_confirm = false;
    EXPECT_FALSE(window_->close());
    ASSERT_FALSE(window_->ui().shown.empty());
    EXPECT_EQ(window_->ui().shown.back(), "Quit Vantorix Analysis: Are you sure you want to quit Vantorix Analysis?");
}

// The analysis panel gives back every setting it was filled with (a control
// wired to the wrong field, or too few decimals, shows here), and the peak
// table's model holds one row per found peak.
TEST_F(Gui, PanelsGiveBackTheirSettingsAndShowEveryPeak) {
    Settings in;
    in.low_mass = 150.123456;
    in.high_mass = 1800.25;
    in.min_peak_width = 4.5;
    in.peak_threshold = 12.5;
    in.noise_threshold = 3.25;
    in.abundance_scale = 2.5;
    in.peak_sigma_factor = 7.125;
    in.noise_window = 9.5;
    in.noise_sigma_factor = 2.75;
    in.percent_thresholds = 1;
    in.global_noise = 0;
    in.notches_on = 1;
    in.PEAKMZ = 6;
    in.peak_decimals_3 = 3;
    in.PEAKABUN = 1;
    in.peak_decimals_2 = 4;
    in.notches = {{300.5, 301.5}, {700.0, 702.25}};
    AnalyzePanel analyze(nullptr);
    analyze.fill(in);
    Settings out;
    analyze.read(out);
    EXPECT_EQ(out.low_mass, in.low_mass);
    EXPECT_EQ(out.high_mass, in.high_mass);
    EXPECT_EQ(out.min_peak_width, in.min_peak_width);
    EXPECT_EQ(out.peak_threshold, in.peak_threshold);
    EXPECT_EQ(out.noise_threshold, in.noise_threshold);
    EXPECT_EQ(out.abundance_scale, in.abundance_scale);
    EXPECT_EQ(out.peak_sigma_factor, in.peak_sigma_factor);
    EXPECT_EQ(out.noise_window, in.noise_window);
    EXPECT_EQ(out.noise_sigma_factor, in.noise_sigma_factor);
    EXPECT_EQ(out.percent_thresholds, 1);
    EXPECT_EQ(out.global_noise, 0);
    EXPECT_EQ(out.notches_on, 1);
    EXPECT_EQ(out.PEAKMZ, 6);
    EXPECT_EQ(out.peak_decimals_3, 3);
    EXPECT_EQ(out.PEAKABUN, 1);
    EXPECT_EQ(out.peak_decimals_2, 4);
    EXPECT_EQ(out.notches, in.notches);
    // A notch typed into the table is read back; text that is no number counts as 0.
    NotchTableModel& notches = analyze.notch_model();
    EXPECT_TRUE(notches.setData(notches.index(2, 0), "850.5"));
    EXPECT_TRUE(notches.setData(notches.index(2, 1), "abc"));
    analyze.form().notch_count->setValue(3);
    analyze.read(out);
    ASSERT_EQ(out.notches.size(), 3u);
    EXPECT_EQ(out.notches[2], std::make_pair(850.5, 0.0));
    // The "Robust noise" box keeps its state through a fill.
    analyze.set_robust_noise(true);
    analyze.read(out);
    analyze.fill(out);
    EXPECT_TRUE(analyze.robust_noise());

    GraphWindow* g = open_processed();
    ASSERT_NE(g, nullptr);
    window_->workspace().settings.percent_thresholds = 1;
    window_->find_peak_options();
    const int found = window_->find_peaks();
    ASSERT_GT(found, 0);
    auto* view = window_->findChild<QTableView*>("rows");
    ASSERT_NE(view, nullptr);
    ASSERT_NE(view->model(), nullptr);
    EXPECT_EQ(view->model()->rowCount(), found);
    EXPECT_EQ(view->model()->columnCount(), 7);
    // The m/z column shows the masses of the list, ascending.
    const auto& peaks = panel(g).spectrum.peaks;
    for (int r = 0; r < found; r += std::max(1, found / 10))
        EXPECT_NEAR(view->model()->index(r, 1).data().toDouble(), peaks[static_cast<std::size_t>(r)].mass, 1e-4);
}

TEST(HandOver, RequestsRoundTripAndMalformedOnesAreRefused) {
    const QStringList files = {"/data/a b.dat", "/data/new\nline.pks", "/data/100%.dat", "/data/été.dat"};
    QStringList got;
    ASSERT_TRUE(parse_hand_over(hand_over_request(files), got));
    EXPECT_EQ(got, files);
    ASSERT_TRUE(parse_hand_over(hand_over_request({}), got));
    EXPECT_TRUE(got.isEmpty());
    const QByteArray bad[] = {
        "",
        "END\n",
        "VANTORIX-OPEN 1\n/a.dat\n",          // not whole yet
        "VANTORIX-OPEN 2\n/a.dat\nEND\n",    // another protocol
        "VANTORIX-OPEN 1\nrelative.dat\nEND\n",
        "VANTORIX-OPEN 1\n\nEND\n",
        "VANTORIX-OPEN 1\n/a\nEND\n/b\nEND\n",
        "VANTORIX-OPEN 1\n" + QByteArray(5 * 1024 * 1024, '/') + "\nEND\n",
    };
    for (const QByteArray& b : bad) {
        EXPECT_FALSE(parse_hand_over(b, got)) << b.left(60).toStdString();
        EXPECT_TRUE(got.isEmpty());
    }
}

// A second launch of the real program while this window holds the lock.
TEST_F(Gui, SecondLaunchHandsItsFileToTheRunningWindow) {
    const test::TempDir runtime;
    fs::permissions(runtime.path(), fs::perms::owner_all, fs::perm_options::replace);
    const QByteArray old_runtime = qgetenv("XDG_RUNTIME_DIR");
    qputenv("XDG_RUNTIME_DIR", QByteArray::fromStdString(runtime.path().string()));
    InstanceGuard guard;
    QString why;
    ASSERT_EQ(claim_instance(guard, {}, &why), InstanceStart::First);
    ASSERT_TRUE(guard.server);
    QStringList received;
    guard.server->on_files = [&](const QStringList& files) {
        received = files;
        open_paths(*window_, files);
    };
    auto launch = [&](const QStringList& args, QString* err) {
        QProcess second;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_RUNTIME_DIR", QString::fromStdString(runtime.path().string()));
        env.insert("QT_QPA_PLATFORM", "offscreen");
        second.setProcessEnvironment(env);
        second.start(VANTORIX_APP_PATH, args);
        // This window must keep answering while the second launch waits.
        for (int i = 0; i < 1000 && second.state() != QProcess::NotRunning; ++i) {
            QApplication::processEvents(QEventLoop::AllEvents, 10);
            second.waitForFinished(10);
        }
        *err = QString::fromLocal8Bit(second.readAllStandardError());
        return second.exitStatus() == QProcess::NormalExit ? second.exitCode() : -1;
    };
    QString err;
    EXPECT_EQ(launch({QString::fromStdString(sample_path)}, &err), 0) << err.toStdString();
    for (int i = 0; i < 100 && received.isEmpty(); ++i) QApplication::processEvents(QEventLoop::AllEvents, 10);
    ASSERT_EQ(received.size(), 1);
    EXPECT_EQ(fs::path(received.front().toStdString()), fs::absolute(sample_path));
    ASSERT_NE(window_->graph(0), nullptr);
    EXPECT_EQ(window_->workspace().panels[0].spectrum.filename, received.front().toStdString());

    // Without a listener (an instance that cannot take files) the second
    // launch says why and fails instead of leaving silently.
    guard.server.reset();
    EXPECT_EQ(launch({QString::fromStdString(sample_path)}, &err), 1);
    EXPECT_TRUE(err.contains("already running")) << err.toStdString();
    EXPECT_TRUE(err.contains("sample.dat")) << err.toStdString();
    guard.lock.reset();
    if (old_runtime.isEmpty()) qunsetenv("XDG_RUNTIME_DIR");
    else qputenv("XDG_RUNTIME_DIR", old_runtime);
}

}  // namespace
}  // namespace vx

int main(int argc, char** argv) {
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
