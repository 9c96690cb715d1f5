#include "CHANGECAL.hpp"

#include <QDialog>
#include <QDoubleValidator>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include "formats/calibration_change.hpp"
#include "platform/ui.hpp"

namespace vx {

void show_CHANGECAL(QWidget* parent, Ui& ui) {
    static QPointer<QDialog> panel;
    if (panel) {
        panel->findChild<QProgressBar*>("progress")->hide();
        panel->show();
        panel->raise();
        return;
    }
    auto* d = new QDialog(parent);
    panel = d;
    d->setObjectName("CHANGECAL");
    d->setWindowTitle("Change Calibration");
    auto* form = new QFormLayout;
    auto* a = new QLineEdit("0");
    auto* b = new QLineEdit("0");
    a->setObjectName("A");
    b->setObjectName("B");
    a->setValidator(new QDoubleValidator(a));
    b->setValidator(new QDoubleValidator(b));
    form->addRow("A", a);
    form->addRow("B", b);
    auto* progress = new QProgressBar;
    progress->setObjectName("progress");
    progress->hide();
    auto* ok = new QPushButton("OK");
    auto* cancel = new QPushButton("Cancel");
    ok->setObjectName("ok");
    cancel->setObjectName("cancel");
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(ok);
    buttons->addWidget(cancel);
    auto* layout = new QVBoxLayout(d);
    layout->addLayout(form);
    layout->addWidget(progress);
    layout->addLayout(buttons);

    // ChangeCalCallback: the buttons go while the files are written, the
    // progress bar counts them.
    QObject::connect(ok, &QPushButton::clicked, d, [=, &ui] {
        ok->hide();
        cancel->hide();
        change_calibration_of_files({}, a->text().toDouble(), b->text().toDouble(), ui, [=](int done, int total) {
            progress->setMaximum(total);
            progress->setValue(done);
            progress->show();
        });
        ok->show();
        cancel->show();
    });
    QObject::connect(cancel, &QPushButton::clicked, d, &QDialog::hide);
    d->show();
}

}  // namespace vx
