#include "MANUALZOOM.hpp"

#include <QDialog>

#include <qcustomplot.h>

#include "graph_window.hpp"
#include "ui_MANUALZOOM.h"

namespace vx {

void run_manual_zoom(GraphWindow& graph) {
    QDialog dialog(&graph);
    Ui_MANUALZOOM form;
    form.setupUi(&dialog);
    const QCPRange r = graph.plot()->xAxis->range();
    form.low->setValue(r.lower);
    form.high->setValue(r.upper);
    QObject::connect(form.apply, &QPushButton::clicked, &dialog,
                     [&] { graph.zoom_exact(form.low->value(), form.high->value(), false); });
    QObject::connect(form.fromfull, &QPushButton::clicked, &dialog,
                     [&] { graph.zoom_exact(form.low->value(), form.high->value(), true); });
    QObject::connect(form.done, &QPushButton::clicked, &dialog, &QDialog::accept);
    dialog.exec();
}

}  // namespace vx
