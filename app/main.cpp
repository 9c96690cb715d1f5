// vantorix-analysis: the desktop program.
//
//   vantorix-analysis [files...]
//   vantorix-analysis --screenshot out.png [--process] [--mz] [--find-peaks] [--zoom LOW,HIGH]
//                     [--cursors A,B] files...
//   vantorix-analysis --print OUT.pdf [same options] files...      (the active graph, 300 dpi)
//   vantorix-analysis --snapshot PANEL=OUT.png [same options] files...
//
// The screenshot form runs without questions: it opens the files, processes
// and switches to m/z when asked, zooms the active window, saves the main
// window as an image and exits (status 1 when a step failed).
#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QMessageBox>
#include <QTimer>

#include <cstdio>
#include <memory>

#include <qcustomplot.h>

#include "data_bus.hpp"
#include "main_window.hpp"
#include "panels/PREFERENCE.hpp"
#include "panels/PRINTSAVE.hpp"
#include "qt_ui.hpp"
#include "single_instance.hpp"
#include "workspace/filelist.hpp"
#include "workspace/settings.hpp"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName("vantorix-analysis");

    QCommandLineParser parser;
    parser.setApplicationDescription("Vantorix Analysis desktop program");
    parser.addHelpOption();
    QCommandLineOption shot("screenshot", "Save the main window to FILE and exit.", "FILE");
    QCommandLineOption process("process", "Process the opened transients (with --screenshot).");
    QCommandLineOption mz("mz", "Show the active spectrum in m/z (with --screenshot).");
    QCommandLineOption zoom("zoom", "Zoom the active window to LOW,HIGH in the units of its axis.", "LOW,HIGH");
    QCommandLineOption find("find-peaks", "Find peaks in the active spectrum as after \"Find Peak Options...\" (with --screenshot).");
    QCommandLineOption cursors("cursors", "Put graph cursors 1 and 2 at A,B in the units of the axis; the mouse stands at A (with --screenshot).", "A,B");
    QCommandLineOption print("print", "Print the active graph to the PDF FILE and exit.", "FILE");
    QCommandLineOption snapshot("snapshot", "Save the panel PANEL (e.g. GRAPH0, EXPERIMENT) as a picture and exit.",
                                "PANEL=FILE");
    parser.addOptions({shot, process, mz, zoom, find, cursors, print, snapshot});
    parser.addPositionalArgument("files", "Data files to open.");
    parser.process(app);
    // Every unattended form runs the same way: no questions, then exit.
    const bool screenshot = parser.isSet(shot) || parser.isSet(print) || parser.isSet(snapshot);

    // One instance per user: a later launch hands its files to the running
    // window, or says why it cannot. The unattended screenshot runs do not count.
    vx::InstanceGuard instance;
    if (!screenshot) {
        QString why;
        switch (vx::claim_instance(instance, parser.positionalArguments(), &why)) {
            case vx::InstanceStart::First:
                break;
            case vx::InstanceStart::HandedOver:
                return 0;
            case vx::InstanceStart::Failed:
                std::fprintf(stderr, "vantorix-analysis: %s\n", qPrintable(why));
                if (QGuiApplication::platformName() != "offscreen")
                    QMessageBox::warning(nullptr, "Vantorix Analysis", why);
                return 1;
        }
    }

    vx::MainWindow window(screenshot);
    vx::Workspace& ws = window.workspace();
    const std::string dir = vx::settings_dir();
    vx::ensure_default_ini(dir);
    if (vx::ReadINI(dir, ws.settings, window.ui()) < 0) return -1;
    vx::FileList(dir);
    window.rebuild_recent();

    if (!screenshot) {
        // Other programs read the active spectrum through the session bus.
        vx::quit_on_termination_signals();
        // AUTOSAVE: however the session ends (the window closed, a signal).
        QObject::connect(&app, &QCoreApplication::aboutToQuit, &window, [&window] { vx::preferences_at_exit(window); });
        auto* bus = new vx::DataBusService(&window);
        bus->start();
        window.show_title_panel(1000);
        QTimer::singleShot(1000, &window, [&window] { window.show(); });
        vx::open_paths(window, parser.positionalArguments());
        if (instance.server)
            instance.server->on_files = [&window](const QStringList& files) {
                vx::open_paths(window, files);
                window.showNormal();
                window.raise();
                window.activateWindow();
            };
        return app.exec();
    }

    window.show();
    int status = 0;
    for (const QString& f : parser.positionalArguments()) {
        const int slot = f.endsWith(".pks", Qt::CaseInsensitive) ? window.open_peak_list(f.toStdString())
                                                                 : window.open_file(f.toStdString());
        if (slot < 0) status = 1;
    }
    if (parser.isSet(process) && window.process_active() < 0) status = 1;
    // "A,B" of --zoom and --cursors.
    auto pair_of = [&parser](const QCommandLineOption& o, double& a, double& b) {
        const QStringList parts = parser.value(o).split(',');
        bool ok1 = false, ok2 = false;
        a = parts.value(0).toDouble(&ok1);
        b = parts.value(1).toDouble(&ok2);
        return parts.size() == 2 && ok1 && ok2;
    };
    if (vx::GraphWindow* g = window.active_graph()) {
        if (parser.isSet(mz)) g->plot_command(vx::PLOT_MZ);
        if (parser.isSet(find)) {
            // The user's path: the options panel prefilled once, then "Find Peaks".
            window.find_peak_options();
            if (window.find_peaks() <= 0) status = 1;
        }
        if (parser.isSet(zoom)) {
            double lo = 0.0, hi = 0.0;
            if (pair_of(zoom, lo, hi)) g->zoom_exact(lo, hi, false);
            else status = 1;
        }
        // Maximised, so that the picture shows the graph at the window's size.
        if (auto* sub = qobject_cast<QWidget*>(g->parentWidget())) sub->showMaximized();
        g->redraw();
    } else {
        status = 1;
    }
    QApplication::processEvents();
    if (vx::GraphWindow* g = window.active_graph()) {
        g->redraw();
        if (parser.isSet(cursors)) {
            double a = 0.0, b = 0.0;
            if (pair_of(cursors, a, b)) {
                g->set_cursor(1, a, 0.0);
                g->set_cursor(2, b, 0.0);
                g->track_mouse(g->plot()->xAxis->coordToPixel(a));
            } else {
                status = 1;
            }
        }
    }
    QApplication::processEvents();
    if (parser.isSet(print)) {
        vx::GraphWindow* g = window.active_graph();
        if (!g || vx::print_graph_to_pdf(window, *g, parser.value(print).toStdString()) < 0) {
            std::fprintf(stderr, "vantorix-analysis: could not print to %s\n", qPrintable(parser.value(print)));
            status = 1;
        }
    }
    if (parser.isSet(snapshot)) {
        const QString request = parser.value(snapshot);
        const int eq = request.indexOf('=');
        QWidget* panel = eq > 0 ? vx::find_panel(window, request.left(eq).toStdString()) : nullptr;
        // A panel not made yet writes nothing.
        if (!panel || vx::save_panel_snapshot(panel, request.mid(eq + 1).toStdString()) < 0) {
            std::fprintf(stderr, "vantorix-analysis: no picture of %s\n", qPrintable(request));
            status = 1;
        }
    }
    if (parser.isSet(shot)) {
        const QString out = parser.value(shot);
        if (!window.grab().save(out)) {
            std::fprintf(stderr, "vantorix-analysis: could not write %s\n", qPrintable(out));
            return 1;
        }
    }
    return status;
}
