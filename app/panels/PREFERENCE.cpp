#include "PREFERENCE.hpp"

#include <QCheckBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QVBoxLayout>

#include <qcustomplot.h>

#include <map>
#include <memory>

#include <fmt/format.h>

#include "graph_window.hpp"
#include "main_window.hpp"
#include "qt_ui.hpp"
#include "workspace/settings.hpp"

namespace vx {

namespace {

struct Session {
    Preferences prefs;
    bool ready = false;
};

Session& session() {
    static Session s;
    return s;
}

// Flags shown as check boxes; the rest as numbers.
bool is_flag(Pref p) {
    switch (p) {
        case Pref::ZOOMPAN: case Pref::PREVIEW: case Pref::GRID: case Pref::ADDCURSOR: case Pref::CHECKFFT:
        case Pref::DISABLERIGHTZOOM: case Pref::PROCESSTULVA: case Pref::THRASHWINDOW: case Pref::DOMASSRANGE:
        case Pref::ALLOWRADS1: case Pref::ALLOWRADS2: case Pref::POSMODE1: case Pref::POSMODE2:
        case Pref::NEGMODE1: case Pref::NEGMODE2: case Pref::NEUMODE1: case Pref::NEUMODE2:
            return true;
        default:
            return false;
    }
}

QWidget* control_for(Pref p, Preferences& prefs, MainWindow& main, QWidget* parent) {
    const auto& key = preference_keys()[static_cast<std::size_t>(p)];
    auto apply = [&main] { ApplyPreferences(session().prefs, main.workspace().settings); };
    if (is_flag(p)) {
        auto* box = new QCheckBox(parent);
        box->setChecked(prefs[p] != 0.0);
        QObject::connect(box, &QCheckBox::toggled, parent, [p, apply](bool on) {
            session().prefs[p] = on ? 1 : 0;
            apply();
        });
        return box;
    }
    if (key.real) {
        auto* spin = new QDoubleSpinBox(parent);
        spin->setRange(-1e9, 1e9);
        spin->setDecimals(6);
        spin->setValue(prefs[p]);
        QObject::connect(spin, &QDoubleSpinBox::valueChanged, parent, [p, apply](double v) {
            session().prefs[p] = v;
            apply();
        });
        return spin;
    }
    auto* spin = new QSpinBox(parent);
    spin->setRange(-1, 2147483647);
    spin->setValue(prefs.integer(p));
    QObject::connect(spin, &QSpinBox::valueChanged, parent, [p, apply](int v) {
        session().prefs[p] = v;
        apply();
    });
    return spin;
}

QWidget* page(std::initializer_list<Pref> keys, Preferences& prefs, MainWindow& main, QWidget* parent) {
    auto* w = new QWidget(parent);
    auto* form = new QFormLayout(w);
    for (Pref p : keys)
        form->addRow(preference_keys()[static_cast<std::size_t>(p)].name, control_for(p, prefs, main, w));
    return w;
}

// The two formula presets side by side: one row per element limit.
QWidget* presets_page(Preferences& prefs, MainWindow& main, QWidget* parent) {
    auto* w = new QWidget(parent);
    auto* grid = new QGridLayout(w);
    grid->addWidget(new QLabel("Preset 1"), 0, 1);
    grid->addWidget(new QLabel("Preset 2"), 0, 2);
    int row = 1;
    for (int i = static_cast<int>(Pref::CARBONMAX1); i < static_cast<int>(Pref::DECIMALSMZ); i += 2, ++row) {
        std::string name = preference_keys()[static_cast<std::size_t>(i)].name;
        name.pop_back();
        grid->addWidget(new QLabel(QString::fromStdString(name)), row, 0);
        grid->addWidget(control_for(static_cast<Pref>(i), prefs, main, w), row, 1);
        grid->addWidget(control_for(static_cast<Pref>(i + 1), prefs, main, w), row, 2);
    }
    return w;
}

}  // namespace

Preferences& session_preferences(MainWindow& main) {
    Session& s = session();
    if (!s.ready) {
        s.ready = true;
        SetupPreferences(data_dir(), s.prefs, main.ui());
        ApplyPreferences(s.prefs, main.workspace().settings);
    }
    return s.prefs;
}

int open_saved_preference(MainWindow& main, const std::string& given) {
    Preferences& prefs = session_preferences(main);
    std::string path = given;
    if (path.empty()) {
        const auto chosen = main.ui().FileSelectPopup("Open Saved Preference", "*.txt", data_dir());
        if (!chosen) return -1;
        path = *chosen;
    }
    Preferences loaded = prefs;
    if (LoadPreferenceFileTXT(path, loaded, main.ui()) != 1) return -1;
    loaded.FILE = path;
    prefs = loaded;
    ApplyPreferences(prefs, main.workspace().settings);
    return 0;
}

int saved_preference(MainWindow& main) { return save_current_preferences(session_preferences(main), main.ui()); }

void preferences_at_exit(MainWindow& main) {
    Session& s = session();
    if (!s.ready) return;  // nothing was loaded or changed in this session
    if (s.prefs.AUTOSAVE && !s.prefs.loaded.empty()) SavePreferenceTXT(s.prefs.loaded, s.prefs, main.ui());
    CreatePreferenceINI(data_dir(), s.prefs, main.ui());
}

void apply_mass_range_on_open(MainWindow& main, int slot) {
    const Preferences& prefs = session_preferences(main);
    if (slot < 0 || !prefs.integer(Pref::DOMASSRANGE)) return;
    GraphWindow* g = main.graph(slot);
    if (!g) return;
    const QCPRange r = g->plot()->xAxis->range();
    double left = prefs[Pref::LEFTRANGE], right = prefs[Pref::RIGHTRANGE];
    checkMassRange(r.lower, r.upper, left, right);
    if (!(left < right)) {
        main.ui().Console(fmt::format("m/z range {:f} to {:f} lies outside the data; the full view is kept\n",
                                      prefs[Pref::LEFTRANGE], prefs[Pref::RIGHTRANGE]));
        return;
    }
    g->zoom_exact(left, right, true);
}

QDialog* show_PREFERENCE(MainWindow& main) {
    Preferences& prefs = session_preferences(main);
    static QPointer<QDialog> current;
    if (current) current->deleteLater();
    auto* d = new QDialog(&main);
    current = d;
    d->setAttribute(Qt::WA_DeleteOnClose);
    d->setObjectName("PREFERENCE");
    d->setWindowTitle("Preference");
    auto* layout = new QVBoxLayout(d);
    auto* file = new QLabel(QString::fromStdString("Preference file: " + prefs.loaded), d);
    layout->addWidget(file);
    auto* tabs = new QTabWidget(d);
    tabs->addTab(page({Pref::COLOR, Pref::LINESTYLE, Pref::LINETHICK, Pref::BGCOLOR, Pref::ZOOMPAN, Pref::PREVIEW,
                       Pref::GRID, Pref::ADDCURSOR, Pref::CHECKFFT, Pref::DISABLERIGHTZOOM, Pref::TEXTFONT,
                       Pref::TEXTSIZE, Pref::PEAKMZ, Pref::PEAKABUN},
                      prefs, main, tabs),
                 "Graph");
    tabs->addTab(page({Pref::PROCESSTULVA, Pref::THRASHWINDOW, Pref::DOMASSRANGE, Pref::LEFTRANGE, Pref::RIGHTRANGE,
                       Pref::DECIMALSMZ, Pref::DECIMALSFREQ, Pref::DECIMALSERR, Pref::DECIMALSABUN},
                      prefs, main, tabs),
                 "Settings");
    tabs->addTab(presets_page(prefs, main, tabs), "Formula Presets");
    auto* startup = new QWidget(tabs);
    auto* sf = new QFormLayout(startup);
    auto* autoload = new QCheckBox(startup);
    autoload->setChecked(prefs.AUTOLOAD != 0);
    QObject::connect(autoload, &QCheckBox::toggled, d, [](bool on) { session().prefs.AUTOLOAD = on; });
    auto* autosave = new QCheckBox(startup);
    autosave->setChecked(prefs.AUTOSAVE != 0);
    QObject::connect(autosave, &QCheckBox::toggled, d, [](bool on) { session().prefs.AUTOSAVE = on; });
    sf->addRow("AUTOLOAD", autoload);
    sf->addRow("AUTOSAVE", autosave);
    tabs->addTab(startup, "Start and Exit");
    layout->addWidget(tabs);
    auto* buttons = new QDialogButtonBox(d);
    auto* open = buttons->addButton("Open Saved Preference", QDialogButtonBox::ActionRole);
    auto* save = buttons->addButton("Saved Preference", QDialogButtonBox::ActionRole);
    buttons->addButton(QDialogButtonBox::Close);
    QObject::connect(buttons, &QDialogButtonBox::rejected, d, &QDialog::close);
    QObject::connect(open, &QPushButton::clicked, d, [&main, d] {
        // The controls show the new values: the panel is made anew.
        if (open_saved_preference(main) == 0) {
            d->close();
            show_PREFERENCE(main);
        }
    });
    QObject::connect(save, &QPushButton::clicked, d, [&main, file] {
        if (saved_preference(main) == 0)
            file->setText(QString::fromStdString("Preference file: " + session().prefs.loaded));
    });
    layout->addWidget(buttons);
    d->show();
    return d;
}

}  // namespace vx
