#include "EXPERIMENT.hpp"

#include <QDialog>
#include <QHeaderView>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPointer>
#include <QSplitter>
#include <QTabWidget>
#include <QTableView>
#include <QVBoxLayout>

#include <fmt/format.h>

#include "main_window.hpp"
#include "qt_ui.hpp"

namespace vx {

namespace {
const char* const HEADINGS[] = {"Loop", "Loop x", "Table", "Table x", "Event", "Start (s)", "Length (s)", "Disabled",
                                "Action"};

std::string action_of(const Event& ev) {
    std::string a;
    if (ev.excite)
        a = fmt::format("excite {} {:.1f}-{:.1f} Hz, {} samples", emode_name(ev.excite->emode), ev.excite->lowfreq,
                        ev.excite->highfreq, ev.wave_samples);
    if (ev.detect) {
        if (!a.empty()) a += "; ";
        a += fmt::format("detect {} {:.1f} Hz, {} points", dmode_name(ev.detect->dmode), ev.detect->dbandwidth,
                         ev.detect->datacount);
    }
    return a;
}
}  // namespace

void ExperimentTimelineModel::set_experiment(const Experiment* ex) {
    beginResetModel();
    rows_.clear();
    double start = 0.0;
    if (ex)
        for (const auto& loop : ex->loops)
            for (const auto& table : loop.tables)
                for (const auto& ev : table.events) {
                    rows_.push_back({&loop, &table, &ev, start});
                    if (!ev.disabled) start += ev.time;
                }
    endResetModel();
}

int ExperimentTimelineModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}
int ExperimentTimelineModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : 9; }

QVariant ExperimentTimelineModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || role != Qt::DisplayRole) return {};
    const Row& r = rows_[static_cast<std::size_t>(index.row())];
    switch (index.column()) {
        case 0: return QString::fromStdString(r.loop->name);
        case 1: return r.loop->repeat;
        case 2: return QString::fromStdString(r.table->name);
        case 3: return r.table->repeat;
        case 4: return QString::fromStdString(r.event->label);
        case 5: return QString::number(r.start, 'f', 9);
        case 6: return QString::number(r.event->time, 'f', 9);
        case 7: return r.event->disabled ? QString("disabled") : QString();
        default: return QString::fromStdString(action_of(*r.event));
    }
}

QVariant ExperimentTimelineModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (role != Qt::DisplayRole) return {};
    if (orientation == Qt::Vertical) return section + 1;
    return section >= 0 && section < 9 ? QString(HEADINGS[section]) : QString();
}

EventPanels Reset_Panels(const Experiment& ex, const Event& ev) {
    EventPanels p;
    if (ev.excite) {
        const Excite& e = *ev.excite;
        p.excite = fmt::format(
            "Mode: {}\nLength: {:.9f} s\nWaveform file: {}\nAmplitude: {:g}\nFilter: {:g}\nLow frequency: {:.3f} Hz\n"
            "High frequency: {:.3f} Hz\nSweep rate: {:g}\nClock rate: {:.1f} Hz\nLoops: {}\nMS/MS data count: {}\n"
            "MS/MS bandwidth: {:.1f} Hz\nMS/MS cutoff: {:g}\nWaveform samples: {}\nWaveform blocks: {}\n",
            emode_name(e.emode), e.elength, e.eswiftfile_name, e.eamplitude, e.efilter, e.lowfreq, e.highfreq,
            e.sweeprate, e.clockrate, e.loops, e.msms_datacount, e.msms_bandwidth, e.msms_cutoff, ev.wave_samples,
            wave_blocks(ev.wave_samples));
    } else {
        p.excite = "No excitation in this event.\n";
    }
    if (ev.detect) {
        const Detect& d = *ev.detect;
        // Each digitizer has its own form: the HP one by its index ladders,
        // the TEK and NI ones by their rates.
        switch (ex.digitizer) {
            case HP_DIGITIZER:
                p.detect = fmt::format("HP digitizer\nMode: {}\nBandwidth index: {} ({:.1f} Hz)\nAmplitude index: {}\n",
                                       dmode_name(d.dmode), d.dhpbandwidth, d.dbandwidth, d.dhpamplitude);
                break;
            case TEK_DIGITIZER:
                p.detect = fmt::format("TEK digitizer\nMode: {}\nBandwidth: {:.1f} Hz\nAmplitude: {:g}\n",
                                       dmode_name(d.dmode), d.dbandwidth, d.damplitude);
                break;
            default:
                p.detect = fmt::format("{} digitizer\nMode: {}\nBandwidth: {:.1f} Hz\nFilter: {:.1f} Hz\nAmplitude: {:g}\n",
                                       ex.digitizer == NI_DIGITIZER ? "NI" : "Unknown", dmode_name(d.dmode),
                                       d.dbandwidth, d.dfilter, d.damplitude);
        }
        p.detect += fmt::format("Reference frequency: {:.3f} Hz\nData count: {}\nData file: {}\n", d.dreferencefreq,
                                d.datacount, d.datafile);
    } else {
        p.detect = "No detection in this event.\n";
    }
    for (int i = 0; i < SCRIPT_TRIGGERS; ++i) {
        const std::string label = static_cast<std::size_t>(i) < ex.trigger_labels.size()
                                      ? ex.trigger_labels[static_cast<std::size_t>(i)]
                                      : fmt::format("Trigger {}", i + 1);
        p.trigger += fmt::format("{}: {}\n", label, ev.trig[static_cast<std::size_t>(i)]);
    }
    for (int i = 0; i < SCRIPT_VOLTAGES; ++i) {
        const std::string label = static_cast<std::size_t>(i) < ex.voltage_labels.size()
                                      ? ex.voltage_labels[static_cast<std::size_t>(i)]
                                      : fmt::format("Voltage {}", i + 1);
        p.voltage += fmt::format("{}: {:g} V\n", label, ev.volt[static_cast<std::size_t>(i)]);
    }
    p.timing = fmt::format("Event time: {:.9f} s\n{}", ev.time, ev.disabled ? "Disabled event\n" : "");
    return p;
}

QDialog* show_EXPERIMENT(MainWindow& main, const std::string& given) {
    std::string path = given;
    if (path.empty()) {
        const auto chosen = main.ui().FileSelectPopup("Select Experiment File", "*.exp;*.dat;*.new;*.Z", "");
        if (!chosen) return nullptr;
        path = *chosen;
    }
    auto ex = std::make_shared<Experiment>();
    if (LoadTulvaScript(main.workspace(), path, *ex, false, main.ui()) < 0) return nullptr;
    const WaveMemory mem = Check_Total_Mem_Use(*ex, &main.ui());

    static QPointer<QDialog> current;
    if (current) current->deleteLater();  // the old viewer goes with a new script
    auto* d = new QDialog(&main);
    current = d;
    d->setAttribute(Qt::WA_DeleteOnClose);
    d->setObjectName("EXPERIMENT");
    d->setWindowTitle("Vantorix Experiment Script");
    auto* layout = new QVBoxLayout(d);
    layout->addWidget(new QLabel(QString::fromStdString(
        fmt::format("{}  -  experiment {}, version {:g}, digitizer {}, total time {:.6f} s, waveform blocks {} used, "
                    "{} available",
                    path, ex->name, ex->version, digitizer_name(ex->digitizer), total_time(*ex), mem.used,
                    mem.available))));
    auto* split = new QSplitter(Qt::Vertical, d);
    auto* view = new QTableView(split);
    auto* model = new ExperimentTimelineModel(view);
    model->set_experiment(ex.get());
    view->setModel(model);
    view->setSelectionBehavior(QAbstractItemView::SelectRows);
    view->setSelectionMode(QAbstractItemView::SingleSelection);
    view->horizontalHeader()->setStretchLastSection(true);
    auto* tabs = new QTabWidget(split);
    QPlainTextEdit* pages[5];
    const char* names[5] = {"Excite", "Detect", "Trigger", "Voltage", "Timing"};
    for (int i = 0; i < 5; ++i) {
        pages[i] = new QPlainTextEdit(tabs);
        pages[i]->setReadOnly(true);
        tabs->addTab(pages[i], names[i]);
    }
    layout->addWidget(split);
    auto show_row = [ex, model, pages](int row) {
        if (row < 0 || row >= static_cast<int>(model->rows().size())) return;
        const EventPanels p = Reset_Panels(*ex, *model->rows()[static_cast<std::size_t>(row)].event);
        pages[0]->setPlainText(QString::fromStdString(p.excite));
        pages[1]->setPlainText(QString::fromStdString(p.detect));
        pages[2]->setPlainText(QString::fromStdString(p.trigger));
        pages[3]->setPlainText(QString::fromStdString(p.voltage));
        pages[4]->setPlainText(QString::fromStdString(p.timing));
    };
    QObject::connect(view->selectionModel(), &QItemSelectionModel::currentRowChanged, d,
                     [show_row](const QModelIndex& now, const QModelIndex&) { show_row(now.row()); });
    if (!model->rows().empty()) view->selectRow(0);
    show_row(0);
    d->resize(1000, 600);
    d->show();
    return d;
}

}  // namespace vx
