#include "PROCESS.hpp"

#include <QDialog>

#include "ui_PROCESS.h"
#include "workspace/processing.hpp"
#include "workspace/workspace.hpp"

namespace vx {

bool run_process_options(QWidget* parent, Workspace& ws, Ui& ui) {
    QDialog dialog(parent);
    Ui_PROCESS form;
    form.setupUi(&dialog);
    const ProcessOptionsValues v = process_options_from_settings(ws.settings);
    auto fill_apodization = [&](bool boxcar) {
        const int keep = form.apodization->currentIndex();
        form.apodization->clear();
        for (const std::string& s : apodization_ring_labels(boxcar)) form.apodization->addItem(QString::fromStdString(s));
        form.apodization->setCurrentIndex(keep < 0 ? v.apodization : keep);
        form.truncations->setEnabled(!boxcar);
    };
    for (const std::string& s : transform_ring_labels()) form.transform->addItem(QString::fromStdString(s));
    form.truncations->setValue(v.truncations);
    form.zerofills->setValue(v.zerofills);
    form.boxcar->setChecked(v.boxcar != 0);
    fill_apodization(v.boxcar != 0);
    form.apodization->setCurrentIndex(v.apodization);
    form.transform->setCurrentIndex(v.transform);
    form.baselinecorrect->setChecked(v.baselinecorrect != 0);
    QObject::connect(form.boxcar, &QCheckBox::toggled, &dialog, fill_apodization);
    if (dialog.exec() != QDialog::Accepted) return false;
    ProcessOptionsValues out;
    out.truncations = form.truncations->value();
    out.apodization = form.apodization->currentIndex();
    out.zerofills = form.zerofills->value();
    out.transform = form.transform->currentIndex();
    out.boxcar = form.boxcar->isChecked() ? 1 : 0;
    out.baselinecorrect = form.baselinecorrect->isChecked() ? 1 : 0;
    if (process_options_ok(ws, out, false, ui) < 0) return false;
    return form.processnow->isChecked();
}

}  // namespace vx
