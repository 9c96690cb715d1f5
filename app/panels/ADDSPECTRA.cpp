#include "panels/ADDSPECTRA.hpp"

#include <functional>

#include <QDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include "batch/coadd.hpp"
#include "main_window.hpp"
#include "qt_ui.hpp"

namespace vx {

namespace {

using CoaddRun = std::function<int(Workspace&, const std::vector<std::string>&, CoaddResult&, Ui&,
                                   const CoaddProgress&)>;

// The dialogue around one co-add command: asks for the files, shows the bar
// and the two lists while run adds them, and stays until Close.
void run_add_spectra(MainWindow& w, const char* mask, const CoaddRun& run) {
    const auto files = w.ui().MultiFileSelectPopup("Open Multiple Files", mask, "");
    if (files.empty()) return;
    auto* d = new QDialog(&w);
    d->setAttribute(Qt::WA_DeleteOnClose);
    d->setWindowTitle("Add Spectra");
    auto* bar = new QProgressBar(d);
    bar->setRange(0, static_cast<int>(files.size()));
    auto* good = new QListWidget(d);
    good->setObjectName("GOODFILES");
    auto* bad = new QListWidget(d);
    bad->setObjectName("BADFILES");
    auto* stop = new QPushButton("Stop", d);
    auto* close = new QPushButton("Close", d);
    close->setEnabled(false);
    auto* lists = new QHBoxLayout;
    auto* lg = new QVBoxLayout;
    lg->addWidget(new QLabel("Files used", d));
    lg->addWidget(good);
    auto* lb = new QVBoxLayout;
    lb->addWidget(new QLabel("Files failed", d));
    lb->addWidget(bad);
    lists->addLayout(lg);
    lists->addLayout(lb);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(stop);
    buttons->addWidget(close);
    auto* v = new QVBoxLayout(d);
    v->addWidget(bar);
    v->addLayout(lists);
    v->addLayout(buttons);
    auto stop_flag = std::make_shared<bool>(false);
    QObject::connect(stop, &QPushButton::clicked, d, [&w, stop_flag] {
        *stop_flag = w.ui().ConfirmPopup("Add Spectra", COADD_STOP_QUESTION);
    });
    QObject::connect(close, &QPushButton::clicked, d, &QDialog::close);
    d->show();
    // The dialogue may be closed by its frame while files are added.
    const QPointer<QDialog> alive(d);

    CoaddProgress progress;
    std::size_t shown_good = 0, shown_bad = 0;
    progress.update = [&](int done, int, const CoaddResult& r) {
        if (!alive) return;
        bar->setValue(done);
        for (; shown_good < r.used.size(); ++shown_good) good->addItem(QString::fromStdString(r.used[shown_good]));
        for (; shown_bad < r.failed.size(); ++shown_bad) bad->addItem(QString::fromStdString(r.failed[shown_bad]));
    };
    progress.stop_requested = [stop_flag] { return *stop_flag; };
    CoaddResult r;
    run(w.workspace(), files, r, w.ui(), progress);
    progress.update(static_cast<int>(files.size()), static_cast<int>(files.size()), r);
    w.sync_windows();
    if (!alive) return;
    stop->setEnabled(false);
    close->setEnabled(true);
}

}  // namespace

void add_spectra(MainWindow& w, CoaddKind kind) {
    run_add_spectra(w, kind == CoaddKind::Odyssey ? "*.z" : "*.dat *.Z",
                    [kind](Workspace& ws, const std::vector<std::string>& files, CoaddResult& r, Ui& ui,
                           const CoaddProgress& progress) { return CoAddTulva(ws, files, kind, r, ui, progress); });
}

void add_sed_spectra(MainWindow& w, bool transformed) {
    run_add_spectra(w, "*.dat *.ftd *.Z", transformed ? CoaddRun(CoAddTulvaSEDFTD) : CoaddRun(CoAddTulvaSED));
}

void add_coadd_entries(MainWindow& w) {
    QMenu* batch = nullptr;
    for (QAction* a : w.menuBar()->actions())
        if (a->menu() && a->text() == "Batch") batch = a->menu();
    if (!batch) batch = w.menuBar()->addMenu("Batch");
    QMenu* add = batch->addMenu("Add Spectra");
    QObject::connect(add->addAction("Vantorix Files..."), &QAction::triggered, &w,
                     [&w] { add_spectra(w, CoaddKind::Tulva); });
    QObject::connect(add->addAction("Vantorix SED Files..."), &QAction::triggered, &w,
                     [&w] { add_sed_spectra(w, false); });
    QObject::connect(add->addAction("Vantorix FTD Files..."), &QAction::triggered, &w,
                     [&w] { add_sed_spectra(w, true); });
    QObject::connect(add->addAction("Odyssey Files..."), &QAction::triggered, &w,
                     [&w] { add_spectra(w, CoaddKind::Odyssey); });
}

}  // namespace vx
