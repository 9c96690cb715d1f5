#include "SAVEPEAKLIST.hpp"

#include <QFileDialog>
#include <QFont>
#include <QFontDatabase>
#include <QPrintDialog>
#include <QPrinter>
#include <QTextDocument>

#include <fmt/format.h>

#include "main_window.hpp"
#include "platform/safe_file.hpp"
#include "qt_ui.hpp"
#include "workspace/spectrum.hpp"

namespace vx {

int print_peaklist_text(const std::string& text, QPrinter& printer) {
    QTextDocument doc;
    QFont mono = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    mono.setPointSize(9);
    doc.setDefaultFont(mono);
    doc.setPlainText(QString::fromStdString(text));
    doc.print(&printer);
    return printer.printerState() == QPrinter::Error ? -1 : 0;
}

int print_peaklist_to_pdf(const std::string& text, const std::string& path) {
    AtomicFile out(path);
    if (!out.ok()) return -1;
    int rc = 0;
    {
        QPrinter printer(QPrinter::HighResolution);
        printer.setOutputFormat(QPrinter::PdfFormat);
        printer.setOutputFileName(QString::fromStdString(out.temp_path()));
        rc = print_peaklist_text(text, printer);
    }
    if (rc < 0) return rc;
    return out.commit();
}

int save_thrash_peaklist(MainWindow& main, const Spectrum& s, const std::vector<ThrashPeak>& rows, std::string path,
                         const std::string& pdf) {
    Ui& ui = main.ui();
    if (rows.empty()) {
        ui.MessagePopup("Save Peaklist", "Run THRASH first: the table is empty.");
        return -1;
    }
    if (path.empty()) {
        const QString chosen = main.ui().unattended
                                   ? QString()
                                   : QFileDialog::getSaveFileName(&main, "Save Peaklist", QString(), "*.pkl");
        if (chosen.isEmpty()) return -1;
        path = chosen.toStdString();
    }
    if (!s.filename.empty() && same_file(path, s.filename)) {
        ui.MessagePopup("Save Peaklist", fmt::format("{} is the data file itself; choose another name.", path));
        return -1;
    }
    const std::string text = pkl_text(s, rows);
    std::string err;
    if (write_file_atomically(path, text, &err) < 0) {
        ui.MessagePopup("Save Peaklist", fmt::format("Could not write {}: {}", path, err));
        return -1;
    }
    if (!pdf.empty()) {
        if (print_peaklist_to_pdf(text, pdf) < 0) {
            ui.MessagePopup("Save Peaklist", fmt::format("The list is saved, but could not be printed to {}.", pdf));
            return -1;
        }
        return 0;
    }
    if (main.ui().unattended) return 0;  // nobody to press Print
    QPrinter printer(QPrinter::HighResolution);
    QPrintDialog dialog(&printer, &main);
    dialog.setWindowTitle("Print Peaklist");
    if (dialog.exec() != QDialog::Accepted) return 0;
    return print_peaklist_text(text, printer);
}

}  // namespace vx
