#include "MPHASE.hpp"

#include <QCheckBox>
#include <QDialog>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QPointer>
#include <QSpinBox>

#include "main_window.hpp"
#include "phasing/phase_command.hpp"
#include "qt_ui.hpp"

namespace vx {
namespace {

struct ManualControls {
    QDoubleSpinBox* second;
    QSpinBox* second_exp;
    QDoubleSpinBox* first;
    QSpinBox* first_exp;
    QDoubleSpinBox* zero;
    QSpinBox* zdigits[4];  // units, tenths, hundredths, thousandths of the zero-order term
    QDoubleSpinBox* shift;
    QSpinBox* mode;
    QCheckBox* delayf;
    QDoubleSpinBox* final_khz;
    QCheckBox* flip;
    bool updating = false;
};

void apply(MainWindow& w, ManualControls& c) {
    Workspace& ws = w.workspace();
    const int slot = ws.active_panel;
    if (slot < 0 || slot >= MAX_PANELS || ws.panels[static_cast<std::size_t>(slot)].active == 0) return;
    Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    ManualPhaseValues v;
    v.second = c.second->value();
    v.second_exponent = c.second_exp->value();
    v.first = c.first->value();
    v.first_exponent = c.first_exp->value();
    v.zero = c.zero->value();
    v.shift = c.shift->value();
    v.mode = c.mode->value();
    v.delayf = c.delayf->isChecked();
    v.final_khz = c.final_khz->value();
    v.flip = c.flip->isChecked();
    if (ManualPhase(s, v, nullptr) < 0) {
        w.ui().MessagePopup("Phasing Error", "Phase the data first: there is no complex spectrum to rotate.");
        return;
    }
    if (GraphWindow* g = w.graph(slot)) g->redraw();
}

}  // namespace

void show_MPHASE(MainWindow& window) {
    static QPointer<QDialog> panel;
    if (panel) {
        panel->show();
        panel->raise();
        return;
    }
    auto* d = new QDialog(&window);
    panel = d;
    d->setWindowTitle("Manual Phasing Control");
    auto* form = new QFormLayout(d);
    auto* c = new ManualControls;
    auto number = [](double lo, double hi, int decimals, double step) {
        auto* b = new QDoubleSpinBox;
        b->setRange(lo, hi);
        b->setDecimals(decimals);
        b->setSingleStep(step);
        return b;
    };
    auto integer = [](int lo, int hi) {
        auto* b = new QSpinBox;
        b->setRange(lo, hi);
        return b;
    };
    c->second = number(-1000, 1000, 6, 0.001);
    c->second_exp = integer(-30, 30);
    c->first = number(-1000, 1000, 6, 0.001);
    c->first_exp = integer(-30, 30);
    c->zero = number(-100, 100, 6, 0.001);
    for (int i = 0; i < 4; ++i) c->zdigits[i] = integer(i == 0 ? -100 : -9, i == 0 ? 100 : 10);
    c->shift = number(0, 1e9, 0, 1);
    c->mode = integer(1, 5);
    c->delayf = new QCheckBox;
    c->final_khz = number(0, 1e6, 4, 1);
    c->flip = new QCheckBox;
    // Start from the terms of the active spectrum's last run.
    Workspace& ws = window.workspace();
    if (ws.active_panel >= 0 && ws.active_panel < MAX_PANELS) {
        const Spectrum& s = ws.panels[static_cast<std::size_t>(ws.active_panel)].spectrum;
        c->zero->setValue(s.Zeroorder);
        c->final_khz->setValue(s.highfreq > 0 ? s.highfreq / 1000.0 : 0.0);
    }
    form->addRow("Second Order", c->second);
    form->addRow("Exponent", c->second_exp);
    form->addRow("First Order", c->first);
    form->addRow("Exponent ", c->first_exp);
    form->addRow("Zero Order (rad)", c->zero);
    const char* names[4] = {"Units", "Tenths", "Hundredths", "Thousandths"};
    for (int i = 0; i < 4; ++i) form->addRow(names[i], c->zdigits[i]);
    form->addRow("Shift Value", c->shift);
    form->addRow("Mode", c->mode);
    form->addRow("Use Delayf", c->delayf);
    form->addRow("Final Frequency (kHz)", c->final_khz);
    form->addRow("Force Data Flip", c->flip);

    auto sync_digits = [c] {
        const PhaseDigits p = split_phase_digits(c->zero->value());
        const int v[4] = {p.units, p.tenths, p.hundredths, p.thousandths};
        c->updating = true;
        for (int i = 0; i < 4; ++i) c->zdigits[i]->setValue(v[i]);
        c->updating = false;
    };
    auto changed = [&window, c] {
        if (!c->updating) apply(window, *c);
    };
    for (QDoubleSpinBox* b : {c->second, c->first, c->shift, c->final_khz})
        QObject::connect(b, &QDoubleSpinBox::valueChanged, d, changed);
    QObject::connect(c->zero, &QDoubleSpinBox::valueChanged, d, [c, sync_digits, changed] {
        sync_digits();
        changed();
    });
    for (QSpinBox* b : {c->second_exp, c->first_exp, c->mode}) QObject::connect(b, &QSpinBox::valueChanged, d, changed);
    for (QSpinBox* b : c->zdigits)
        QObject::connect(b, &QSpinBox::valueChanged, d, [c] {
            if (c->updating) return;
            const PhaseDigits p{c->zdigits[0]->value(), c->zdigits[1]->value(), c->zdigits[2]->value(),
                                c->zdigits[3]->value()};
            c->zero->setValue(join_phase_digits(p));  // the zero field's own change redraws
        });
    for (QCheckBox* b : {c->delayf, c->flip}) QObject::connect(b, &QCheckBox::toggled, d, changed);
    QObject::connect(d, &QObject::destroyed, [c] { delete c; });
    sync_digits();
    d->show();
}

}  // namespace vx
