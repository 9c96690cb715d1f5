// "Vantorix Experiment Script": the timeline of an experiment script, one row
// per event, and the excite, detect (in the form of its digitizer), trigger,
// voltage and timing panels of the selected event.
#pragma once

#include <QAbstractTableModel>

#include <string>
#include <vector>

#include "experiment/script.hpp"

class QWidget;
class QDialog;

namespace vx {

class MainWindow;

// One row per event of every table of every loop, in the order they run.
class ExperimentTimelineModel : public QAbstractTableModel {
    Q_OBJECT
public:
    using QAbstractTableModel::QAbstractTableModel;
    struct Row {
        const Loop* loop;
        const Table* table;
        const Event* event;
        double start;
    };
    void set_experiment(const Experiment* ex);
    const std::vector<Row>& rows() const { return rows_; }

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    std::vector<Row> rows_;
};

// The text of the five panels of one event (Reset_Excite_Panel and the
// others), for the viewer and its tests.
struct EventPanels {
    std::string excite, detect, trigger, voltage, timing;
};
EventPanels Reset_Panels(const Experiment& ex, const Event& event);

// Asks for a script (or takes path) and shows it; the dialog, or nullptr when
// the script could not be read (after its message).
QDialog* show_EXPERIMENT(MainWindow& main, const std::string& path = {});

}  // namespace vx
