#include "PRINTSAVE.hpp"

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPixmap>
#include <QPointer>
#include <QPrintDialog>
#include <QPrinter>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <qcustomplot.h>

#include <filesystem>
#include <memory>

#include "graph_window.hpp"
#include "main_window.hpp"
#include "platform/safe_file.hpp"
#include "qt_ui.hpp"

namespace vx {

int PrintGraphHiRes(MainWindow& main, GraphWindow& g, QPrinter& printer) {
    QCustomPlot* screen = g.plot();
    if (!screen) return -10;
    AnalysisPanel panel = main.workspace().panels[static_cast<std::size_t>(g.slot())];
    if (!panel.active) return -10;
    // The page is laid out at the screen's dots per inch, so the copy's text
    // measures as it will be drawn (the PDF is vector: text and lines keep
    // their shapes at any scale); the trace is an envelope at 300 dpi.
    const int screen_dpi = std::max(1, screen->logicalDpiX());
    printer.setResolution(screen_dpi);
    const QRect page = printer.pageLayout().paintRectPixels(screen_dpi);
    const int width = std::max(200, page.width() - 100);
    const int height = std::max(150, static_cast<int>(width * static_cast<double>(screen->height()) /
                                                      std::max(1, screen->width())));
    const int print_columns = width * 300 / screen_dpi;

    QCustomPlot copy;
    copy.setAttribute(Qt::WA_DontShowOnScreen);
    copy.resize(width, height);
    copy.setBackground(Qt::white);
    for (QCPAxis* axis : {copy.xAxis, copy.yAxis}) {
        axis->setBasePen(QPen(Qt::black, 1.0));
        axis->setTickPen(QPen(Qt::black, 1.0));
        axis->setSubTickPen(QPen(Qt::black, 1.0));
        axis->setTickLabelColor(Qt::black);
        axis->setLabelColor(Qt::black);
        axis->grid()->setVisible(false);
    }
    copy.xAxis->setLabel(screen->xAxis->label());
    copy.yAxis->setLabel(screen->yAxis->label());
    copy.xAxis->setRange(screen->xAxis->range());
    copy.yAxis->setRange(screen->yAxis->range());
    copy.xAxis->setRangeReversed(screen->xAxis->rangeReversed());

    // Two values per printed column: the envelope the printer can show, not
    // the samples of a 2^24-point spectrum.
    PlotArrays arrays;
    Update_Display(panel, print_columns, arrays);
    const int n = static_cast<int>(arrays.count);
    QVector<double> keys(n), values(n);
    for (int i = 0; i < n; ++i) {
        keys[i] = arrays.x[static_cast<std::size_t>(i)];
        values[i] = arrays.y[static_cast<std::size_t>(i)];
    }
    auto* curve = new QCPCurve(copy.xAxis, copy.yAxis);
    curve->setData(keys, values);
    curve->setPen(QPen(Qt::black, 1.0));

    QCPPainter painter;
    if (!painter.begin(&printer)) return -1;
    painter.setMode(QCPPainter::pmVectorized);
    painter.translate(50, 50);
    copy.toPainter(&painter, width, height);
    painter.end();
    return 0;
}

int print_graph_to_pdf(MainWindow& main, GraphWindow& g, const std::string& path) {
    // The PDF is made beside its target and renamed over it when complete.
    AtomicFile out(path);
    if (!out.ok()) return -1;
    const std::string temp = out.temp_path();
    int rc = 0;
    {
        QPrinter printer(QPrinter::HighResolution);
        printer.setOutputFormat(QPrinter::PdfFormat);
        printer.setOutputFileName(QString::fromStdString(temp));
        // A graph is wider than tall: the page is turned to fit it.
        printer.setPageOrientation(QPageLayout::Landscape);
        rc = PrintGraphHiRes(main, g, printer);
    }
    if (rc < 0) return rc;
    return out.commit();
}

int print_graph(MainWindow& main) {
    GraphWindow* g = main.active_graph();
    if (!g) {
        main.ui().MessagePopup("Operator Error", "No Spectrum Chosen");
        return -1;
    }
    QPrinter printer(QPrinter::HighResolution);
    QPrintDialog dialog(&printer, &main);
    dialog.setWindowTitle("Print Graph");
    if (dialog.exec() != QDialog::Accepted) return -1;
    return PrintGraphHiRes(main, *g, printer);
}

int save_panel_snapshot(QWidget* panel, const std::string& path, int jpeg_quality) {
    if (!panel) return -1;
    const QString suffix = QFileInfo(QString::fromStdString(path)).suffix().toLower();
    const char* format = suffix == "bmp" ? "BMP" : (suffix == "jpg" || suffix == "jpeg") ? "JPG" : "PNG";
    // The quality control counts from 0; the picture takes its value plus one.
    const int quality = jpeg_quality < 0 ? 6 : jpeg_quality + 1;
    const QPixmap picture = panel->grab();
    AtomicFile out(path);
    if (!out.ok()) return -1;
    if (!picture.save(QString::fromStdString(out.temp_path()), format, std::string(format) == "JPG" ? quality : -1))
        return -1;
    return out.commit();
}

QWidget* find_panel(MainWindow& main, const std::string& name) {
    const QString n = QString::fromStdString(name);
    if (n.startsWith("GRAPH")) {
        bool ok = false;
        const int slot = n.mid(5).toInt(&ok);
        return ok ? main.graph(slot) : nullptr;
    }
    if (QWidget* w = main.findChild<QWidget*>(n)) return w;
    for (QWidget* w : QApplication::topLevelWidgets())
        if (w->objectName() == n) return w;
    return nullptr;
}

QDialog* show_PRINTSAVE(MainWindow& main) {
    static QPointer<QDialog> current;
    if (current) current->deleteLater();
    auto* d = new QDialog(&main);
    current = d;
    d->setAttribute(Qt::WA_DeleteOnClose);
    d->setObjectName("PRINTSAVE");
    d->setWindowTitle("Save Panel Bitmap");
    auto* layout = new QVBoxLayout(d);
    auto* row = new QHBoxLayout;
    row->addWidget(new QLabel("JPEG quality", d));
    auto* quality = new QSpinBox(d);
    quality->setRange(0, 99);
    quality->setValue(79);
    row->addWidget(quality);
    layout->addLayout(row);
    QStringList names;
    for (int slot = 0; slot < MAX_PANELS; ++slot)
        if (main.graph(slot)) names << QString("GRAPH%1").arg(slot);
    for (const char* n : {"ANALYZE", "PEAKLIST2", "CALIBRATE", "KENDRICK", "MOLECAL", "PREFERENCE", "EXPERIMENT"})
        names << n;
    for (const QString& n : names) {
        auto* button = new QPushButton(n, d);
        layout->addWidget(button);
        QObject::connect(button, &QPushButton::clicked, d, [&main, n, quality, d] {
            QWidget* panel = find_panel(main, n.toStdString());
            if (!panel) return;  // a panel not made yet: no file
            const QString path = QFileDialog::getSaveFileName(d, "Select File to Save Panel Bitmap", n + ".png",
                                                              "*.png *.bmp *.jpg");
            if (path.isEmpty()) return;
            if (save_panel_snapshot(panel, path.toStdString(), quality->value()) < 0)
                main.ui().MessagePopup("Error", "The picture could not be written.");
        });
    }
    auto* close = new QPushButton("Close", d);
    QObject::connect(close, &QPushButton::clicked, d, &QDialog::close);
    layout->addWidget(close);
    d->show();
    return d;
}

}  // namespace vx
