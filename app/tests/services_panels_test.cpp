// The side services driven offscreen: the data service on a private session
// bus called with gdbus (replies equal the core's, bad requests answered at
// once with an error, the name released), the experiment viewer, the page
// layout of three windows in 2 x 2, the preferences of a first run and the
// zip panel over a small tree.
#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QTimer>

#include <qcustomplot.h>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QProcess>
#include <QTableView>
#include <QTemporaryDir>

#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>
#include <algorithm>
#include <atomic>

#include "gui_check.hpp"
#include "data_bus.hpp"
#include "main_window.hpp"
#include "workspace/display.hpp"
#include "panels/EXPERIMENT.hpp"
#include "panels/PANELLAYOUT.hpp"
#include "panels/PREFERENCE.hpp"
#include "panels/PRINTSAVE.hpp"
#include "panels/ZIPFILES.hpp"
#include "qt_ui.hpp"
#include "workspace/data_service.hpp"
#include "workspace/layout.hpp"

namespace {

struct Call {
    int status = -1;
    QString out, err;
    qint64 msec = 0;
};

// gdbus call run while this process's event loop answers.
Call gdbus(const QStringList& args) {
    QProcess p;
    QElapsedTimer t;
    t.start();
    p.start("gdbus", args);
    QEventLoop loop;
    QObject::connect(&p, &QProcess::finished, &loop, &QEventLoop::quit);
    QObject::connect(&p, &QProcess::errorOccurred, &loop, &QEventLoop::quit);
    if (p.state() != QProcess::NotRunning) loop.exec();
    Call c;
    c.status = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    c.out = QString::fromUtf8(p.readAllStandardOutput()).trimmed();
    c.err = QString::fromUtf8(p.readAllStandardError()).trimmed();
    c.msec = t.elapsed();
    return c;
}

Call request(const QString& topic, const QString& item) {
    return gdbus({"call", "--session", "--timeout", "20", "--dest", vx::DATA_BUS_NAME, "--object-path",
                  vx::DATA_BUS_PATH, "--method", "org.vantorix.FTMSAnalysis.Request", topic, item});
}

// "('text',)" as gdbus prints a string reply.
QString unwrap(const QString& out) {
    if (out.startsWith("('") && out.endsWith("',)")) return out.mid(2, out.size() - 5);
    return "<" + out + ">";
}

}  // namespace

int main(int argc, char** argv) {
    QTemporaryDir home;
    setenv("VANTORIX_HOME", home.path().toUtf8().constData(), 1);
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);

    // A private session bus for this test alone.
    qint64 bus_pid = -1;
    {
        QProcess daemon;
        daemon.start("dbus-daemon", {"--session", "--fork", "--print-address=1", "--print-pid=1"});
        if (daemon.waitForFinished(10000) && daemon.exitCode() == 0) {
            const QStringList lines = QString::fromUtf8(daemon.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
            if (lines.size() >= 2) {
                setenv("DBUS_SESSION_BUS_ADDRESS", lines[0].trimmed().toUtf8().constData(), 1);
                bus_pid = lines[1].trimmed().toLongLong();
            }
        }
    }
    if (bus_pid < 0) unsetenv("DBUS_SESSION_BUS_ADDRESS");

    QApplication app(argc, argv);
    vx::MainWindow window(true);
    window.resize(1200, 800);
    window.show();
    const std::string sample = std::string(VANTORIX_SOURCE_DIR) + "/data/sample.dat";

    auto* service = new vx::DataBusService(&window);
    const bool served = service->start();
    if (bus_pid < 0) {
        std::fprintf(stderr, "no dbus-daemon: the bus part is skipped\n");
    } else {
        CHECK(served);
        // No window yet: an error reply at once.
        Call c = request("Screen_Data", "Count");
        CHECK(c.status != 0);
        CHECK(c.msec < 5000);
        CHECK(window.open_file(sample) >= 0);
        QApplication::processEvents();
        const vx::GraphWindow* g = window.active_graph();
        CHECK(g != nullptr);
        vx::RecordingUi quiet;
        for (const auto& [topic, item] : std::vector<std::pair<QString, QString>>{
                 {"Screen_Data", "Count"}, {"Screen_View", "Count"}, {"Data", "data:100,102"}, {"Data", "b:0,0"},
                 {"Screen_View", "Y Data"}}) {
            std::string want, why;
            CHECK(vx::DDE_Request(window.workspace(), g ? &g->arrays() : nullptr, topic.toStdString(),
                                  item.toStdString(), want, why, quiet) == 0);
            c = request(topic, item);
            CHECK(c.status == 0);
            if (unwrap(c.out).toStdString() != want)
                std::fprintf(stderr, "%s / %s: bus %s, core %.80s\n", qPrintable(topic), qPrintable(item),
                             qPrintable(c.out.left(80)), want.c_str());
            CHECK(unwrap(c.out).toStdString() == want);
        }
        // The median of Count from a client of its own connection, on a thread
        // of its own while this thread serves.
        {
            std::vector<double> times;
            std::atomic<bool> done{false};
            std::thread client([&] {
                QDBusConnection conn = QDBusConnection::connectToBus(
                    QString::fromUtf8(std::getenv("DBUS_SESSION_BUS_ADDRESS")), "median-client");
                for (int i = 0; i < 51 && conn.isConnected(); ++i) {
                    QDBusMessage m = QDBusMessage::createMethodCall(vx::DATA_BUS_NAME, vx::DATA_BUS_PATH,
                                                                    "org.vantorix.FTMSAnalysis", "Request");
                    m << QString("Screen_Data") << QString("Count");
                    QElapsedTimer t;
                    t.start();
                    const QDBusMessage r = conn.call(m, QDBus::Block, 5000);
                    if (r.type() == QDBusMessage::ReplyMessage) times.push_back(t.nsecsElapsed() / 1e6);
                }
                done = true;
            });
            QEventLoop loop;
            QTimer poll;
            QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
                if (done) loop.quit();
            });
            poll.start(1);
            loop.exec();
            client.join();
            QDBusConnection::disconnectFromBus("median-client");
            CHECK(times.size() == 51);
            if (!times.empty()) {
                std::nth_element(times.begin(), times.begin() + times.size() / 2, times.end());
                const double median = times[times.size() / 2];
                std::fprintf(stderr, "Count over the bus: median %.3f ms of %zu calls\n", median, times.size());
                CHECK(median < 5.0);
            }
        }
        // Bad requests: error replies at once, never the client's timeout.
        for (const auto& [topic, item] : std::vector<std::pair<QString, QString>>{
                 {"Nothing", "Count"}, {"Data", "d:10,5"}, {"Data", "d:0,99999999"}, {"Screen_View", "Z"}}) {
            c = request(topic, item);
            CHECK(c.status != 0);
            CHECK(c.msec < 5000);
        }
        delete service;
        service = nullptr;
        c = gdbus({"call", "--session", "--dest", "org.freedesktop.DBus", "--object-path", "/org/freedesktop/DBus",
                   "--method", "org.freedesktop.DBus.NameHasOwner", vx::DATA_BUS_NAME});
        CHECK(c.out == "(false,)");
    }
    delete service;

    // The experiment viewer on the sample: four events, the labels applied.
    QDialog* viewer = vx::show_EXPERIMENT(window, sample);
    CHECK(viewer != nullptr);
    if (viewer) {
        auto* table = viewer->findChild<QTableView*>();
        CHECK(table && table->model()->rowCount() == 4);
        vx::Experiment ex;
        vx::RecordingUi ui;
        CHECK(vx::LoadTulvaScript(window.workspace(), sample, ex, false, ui) == 0);
        const vx::EventPanels p = vx::Reset_Panels(ex, ex.loops[0].tables[0].events[3]);
        CHECK(p.detect.find("NI digitizer") != std::string::npos);
        CHECK(p.voltage.find("Front Plate") != std::string::npos);
        viewer->close();
    }

    // Three windows in 2 x 2: the top row, then the first cell of the second.
    auto* area = window.findChild<QMdiArea*>();
    CHECK(area != nullptr);
    for (int i = 0; area && i < 3 && area->subWindowList().size() < 3; ++i) CHECK(window.open_file(sample) >= 0);
    QApplication::processEvents();
    CHECK(vx::set_panel_layout(window, 2, 2) == 3);
    if (area) {
        QList<QMdiSubWindow*> subs = area->subWindowList();
        CHECK(subs.size() >= 3);
        if (subs.size() >= 3) {
            const QRect a = subs[0]->geometry(), b = subs[1]->geometry(), c = subs[2]->geometry();
            CHECK(a.top() == b.top() && b.left() > a.left());
            CHECK(c.left() == a.left() && c.top() > a.top());
        }
    }

    // Preferences of a first run; the mass range kept on open.
    vx::Preferences& prefs = vx::session_preferences(window);
    CHECK(std::filesystem::exists(home.filePath("data/default.txt").toStdString()));
    CHECK(prefs.integer(vx::Pref::SULFURMAX2) == 1);
    QDialog* pref_panel = vx::show_PREFERENCE(window);
    CHECK(pref_panel != nullptr);
    if (pref_panel) pref_panel->close();

    // The zip panel over a tree of two transients.
    QTemporaryDir tree;
    QDir(tree.path()).mkpath("a/b");
    QFile::copy(QString::fromStdString(sample), tree.filePath("one.dat"));
    QFile::copy(QString::fromStdString(sample), tree.filePath("a/b/two.dat"));
    CHECK(vx::zip_files_dialog(window, tree.path().toStdString()) == 0);
    CHECK(QFile::exists(tree.filePath("a/b/two.dat.Z")) && !QFile::exists(tree.filePath("a/b/two.dat")));

    // Print Graph to PDF: black on white, vector text, the screen unchanged.
    if (vx::GraphWindow* g = window.active_graph()) {
        window.process_active();
        g->plot_command(vx::PLOT_MZ);
        QApplication::processEvents();
        const QString xlabel = g->plot()->xAxis->label();
        const QColor before = g->plot()->graph(0)->pen().color();
        const QString pdf = home.filePath("graph.pdf");
        CHECK(vx::print_graph_to_pdf(window, *g, pdf.toStdString()) == 0);
        CHECK(QFileInfo(pdf).size() > 0 && QFileInfo(pdf).size() < 2 * 1024 * 1024);
        CHECK(g->plot()->graph(0)->pen().color() == before);
        QProcess text;
        text.start("pdftotext", {pdf, "-"});
        if (text.waitForFinished(30000) && text.exitCode() == 0) {
            const QString t = QString::fromUtf8(text.readAllStandardOutput());
            CHECK(!xlabel.isEmpty() && t.contains(xlabel));  // the axis title as text, not pixels
            QProcess ppm;
            ppm.start("pdftoppm", {"-r", "100", "-gray", pdf, home.filePath("page")});
            CHECK(ppm.waitForFinished(30000) && ppm.exitCode() == 0);
            const QImage page(home.filePath("page-1.pgm"));
            CHECK(!page.isNull());
            long dark = 0;
            for (int y = 0; y < page.height(); ++y)
                for (int x = 0; x < page.width(); ++x) dark += qGray(page.pixel(x, y)) < 128;
            std::fprintf(stderr, "dark pixels of the printed page: %.3f %%\n",
                         100.0 * static_cast<double>(dark) / (static_cast<double>(page.width()) * page.height()));
            CHECK(dark * 200 >= static_cast<long>(page.width()) * page.height());
        } else {
            std::fprintf(stderr, "pdftotext not installed: the PDF's content is not checked\n");
        }
        // Snapshots by extension; a panel not made writes nothing.
        CHECK(vx::save_panel_snapshot(g, home.filePath("g.jpg").toStdString(), 79) == 0);
        CHECK(QImage(home.filePath("g.jpg")).width() > 0);
        CHECK(vx::save_panel_snapshot(vx::find_panel(window, "NOSUCHPANEL"), home.filePath("n.png").toStdString()) == -1);
        CHECK(!QFile::exists(home.filePath("n.png")));
    }

    if (bus_pid > 0) ::kill(static_cast<pid_t>(bus_pid), SIGTERM);
    if (failures) std::fprintf(stderr, "%d checks failed\n", failures);
    return failures ? 1 : 0;
}
