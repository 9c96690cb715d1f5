#include "WALKCALRECALL.hpp"

#include <QDialog>
#include <QFormLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QTableView>
#include <QVBoxLayout>

namespace vx {

namespace {
const char* const HEADINGS[] = {"Start Frequency", "End Frequency", "A", "B", "Peak", "m/z"};
}

int WalkingRecallModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(recall_.rows.size());
}
int WalkingRecallModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : 6; }

QVariant WalkingRecallModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || (role != Qt::DisplayRole && role != Qt::TextAlignmentRole)) return {};
    if (role == Qt::TextAlignmentRole) return QVariant(Qt::AlignRight | Qt::AlignVCenter);
    const auto& r = recall_.rows[static_cast<std::size_t>(index.row())];
    switch (index.column()) {
        case 0: return QString::number(r.startfreq, 'f', 6);
        case 1: return QString::number(r.endfreq, 'f', 6);
        case 2: return QString::number(r.A, 'f', 6);
        case 3: return QString::number(r.B, 'f', 6);
        case 4: return r.startpeak;
        default: return QString::number(r.startmz, 'f', 7);
    }
}

QVariant WalkingRecallModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (role != Qt::DisplayRole) return {};
    if (orientation == Qt::Vertical) return section + 1;
    return section >= 0 && section < 6 ? QString(HEADINGS[section]) : QString();
}

void show_walking_recall_panel(QWidget* parent, const Spectrum& spectrum, bool dimmed) {
    static QPointer<QDialog> current;
    if (current) current->deleteLater();  // a fresh instance each time
    const WalkingRecall recall = FillWalkingCalibrationRecallPanel(spectrum);
    auto* d = new QDialog(parent);
    current = d;
    d->setAttribute(Qt::WA_DeleteOnClose);
    d->setWindowTitle("Walking Calibration Recall");
    auto* layout = new QVBoxLayout(d);
    auto* form = new QFormLayout;
    auto* regions = new QLineEdit(QString::number(recall.regions));
    regions->setReadOnly(true);
    auto* points = new QLineEdit(QString::number(recall.points));
    points->setReadOnly(true);
    points->setEnabled(!dimmed);
    form->addRow("Regions", regions);
    form->addRow("Calibration Points", points);
    layout->addLayout(form);
    auto* view = new QTableView(d);
    view->setModel(new WalkingRecallModel(recall, view));
    view->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    layout->addWidget(view);
    auto* last = new QFormLayout;
    last->addRow("Last calibrant peak", new QLabel(QString::number(recall.last_peak)));
    last->addRow("Last calibrant m/z", new QLabel(QString::number(recall.last_mz, 'f', 7)));
    layout->addLayout(last);
    d->resize(720, 380);
    d->show();
}

}  // namespace vx
