#include "panels/INSTRUMENTS.hpp"

#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QMenu>
#include <QSpinBox>

#include "formats/instruments.hpp"
#include "formats/open_file.hpp"
#include "formats/tulva_reader.hpp"
#include "main_window.hpp"
#include "panels/ADDSPECTRA.hpp"
#include "panels/VOSK.hpp"
#include "qt_ui.hpp"
#include "workspace/display.hpp"

namespace vx {

std::optional<PointsChannel> points_channel_dialog(QWidget* parent, bool vosk, int points, int channel) {
    QDialog d(parent);
    d.setWindowTitle(vosk ? "Vosk File" : "Melbar File");
    auto* form = new QFormLayout(&d);
    auto* pts = new QSpinBox(&d);
    pts->setRange(0, static_cast<int>(MAX_DATACOUNT));
    pts->setValue(points);
    pts->setSpecialValueText("all");
    auto* ch = new QSpinBox(&d);
    ch->setRange(0, 5);
    ch->setValue(channel);
    // The Vosk layout has one channel; its control stays disabled.
    ch->setEnabled(!vosk);
    form->addRow("Points", pts);
    form->addRow("Channel", ch);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &d);
    form->addRow(buttons);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &d, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &d, &QDialog::reject);
    if (d.exec() != QDialog::Accepted) return std::nullopt;
    return PointsChannel{pts->value(), ch->value()};
}

namespace {

// Opens path with the given open options, then puts them back.
int open_as(MainWindow& w, const std::string& path, const OpenOptions& o) {
    Workspace& ws = w.workspace();
    const OpenOptions keep = ws.open_options;
    ws.open_options = o;
    const int slot = w.open_file(path);
    ws.open_options = keep;
    return slot;
}

void open_headerless(MainWindow& w, bool vosk) {
    const auto path = w.ui().FileSelectPopup(vosk ? "Open Vosk File" : "Open Melbar File", "*.*", "");
    if (!path) return;
    int points = 0;
    if (vosk) {
        VoskHeader h;
        if (read_vosk_header(*path, h, w.ui()) < 0) return;
        points = h.points;
    }
    // The dialogue of the Vosk layout presets the one channel that reads data.
    const auto answer = points_channel_dialog(&w, vosk, points, vosk ? VOSK_WORKING_CHANNEL : MELBAR_PRESET_CHANNEL);
    if (!answer) return;
    OpenOptions o;
    o.format = vosk ? "vosk" : "melbar";
    o.points = answer->points;
    o.channel = answer->channel;
    open_as(w, *path, o);
}

void open_lcms(MainWindow& w) {
    const auto files = w.ui().MultiFileSelectPopup("Vantorix LCMS", "*.pks", "");
    if (files.empty()) return;
    Workspace& ws = w.workspace();
    const int slot = Get_New_Panel(ws);
    if (slot < 0) {
        w.ui().MessagePopup("Warning", TOO_MANY_FILES);
        return;
    }
    prepare_new_slot(ws, slot, FILETYPE_PEAKLIST);
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
    if (Get_Tulva_Lcms_Data(files, p.spectrum, w.ui()) < 0) return;
    p.spectrum.filename = files.front().substr(0, 255);
    Initialize_Display(ws, slot);
    p.xmode = XMODE_CHROMATOGRAM;
    ws.active_panel = slot;
    w.sync_windows();
}

}  // namespace

int open_thermo_file(MainWindow& w, const std::string& path, int scan) {
    OpenOptions o;
    // A .raw file keeps the format empty, so that the opening road refuses it
    // with the conversion to use.
    if (!is_thermo_raw(path)) o.format = "mzml";
    o.scan = scan;
    return open_as(w, path, o);
}

void add_instrument_open_entries(MainWindow& w, QMenu* open) {
    QObject::connect(open->addAction("Odyssey..."), &QAction::triggered, &w, [&w] {
        if (const auto path = w.ui().FileSelectPopup("Open Odyssey Data File", "*.*", ""))
            w.open_file(*path, FILETYPE_ODYSSEY);
    });
    // The entry's name is spelt as users have always found it.
    QObject::connect(open->addAction("Thermo Raw FIle..."), &QAction::triggered, &w, [&w] {
        if (const auto path = w.ui().FileSelectPopup("Open Thermo Raw File", "*.mzML *.mzml *.raw", ""))
            open_thermo_file(w, *path);
    });
    QObject::connect(open->addAction("Melbar..."), &QAction::triggered, &w, [&w] { open_headerless(w, false); });
    QObject::connect(open->addAction("Vosk..."), &QAction::triggered, &w, [&w] { open_headerless(w, true); });
    QObject::connect(open->addAction("Time of Flight..."), &QAction::triggered, &w, [&w] {
        if (const auto path = w.ui().FileSelectPopup("Open Time of Flight File", "*.txt *.*", "")) {
            OpenOptions o;
            o.format = "tof";  // the bin size is asked by the reader
            open_as(w, *path, o);
        }
    });
    QObject::connect(open->addAction("Vantorix LCMS..."), &QAction::triggered, &w, [&w] { open_lcms(w); });
    add_coadd_entries(w);
    add_vosk_entry(w);
}

}  // namespace vx
