// The "Walking Calibration Recall" panel: the regions of a spectrum's walking
// calibration, read-only, one row a region, with the last calibrant below.
#pragma once

#include <QAbstractTableModel>

#include "calibration/calibration.hpp"

class QWidget;

namespace vx {

class WalkingRecallModel : public QAbstractTableModel {
    Q_OBJECT
public:
    explicit WalkingRecallModel(WalkingRecall recall, QObject* parent = nullptr)
        : QAbstractTableModel(parent), recall_(std::move(recall)) {}
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    WalkingRecall recall_;
};

// FillWalkingCalibrationRecallPanel: a fresh panel (any old one is discarded)
// showing the table of the spectrum; dimmed sets the points control dimmed.
void show_walking_recall_panel(QWidget* parent, const Spectrum& spectrum, bool dimmed);

}  // namespace vx
