// The sequence panel: a protein sequence file loaded for matching (name,
// residue count, letters), the type of matching (fragments or a digest), the
// tolerance in Da or relative, the end groups and phosphorylation. Once loaded,
// THRASH and the single-cluster panels assign their clusters with it, and the
// table already found can be assigned again.
#pragma once

#include <QDialog>

#include <string>

#include "thrash/sequence.hpp"

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;

namespace vx {

class MainWindow;

class SequencePanel : public QDialog {
    Q_OBJECT
public:
    explicit SequencePanel(MainWindow* main);
    // ChooseSeqCallback: reads the controls and loads the file; 0, or -1 after
    // the loader's message (the sequence is then no longer in use).
    int load(const std::string& path);
    int load();
    // The current THRASH table assigned with the sequence: rows made again,
    // one per assignment. Returns the rows now in the table, or -1 with no
    // table or no sequence.
    int assign_table();
    // Control setters for scripts and tests.
    void set_match_type(int type);  // 1, 3..8, 9
    void set_tolerance(double value, bool relative);
    bool loaded() const { return loaded_; }
    const SequenceTables& tables() const { return tables_; }

private:
    void sync();  // tolerance, unit and phosphates apply without a reload

    MainWindow* main_;
    QLineEdit* path_;
    QComboBox *type_, *unit_;
    QDoubleSpinBox* tolerance_;
    QButtonGroup *cterm_, *nterm_;
    QCheckBox* phospho_;
    QLabel* status_;
    SequenceTables tables_;
    bool loaded_ = false;
};

SequencePanel* open_sequence(MainWindow* main);

// The loaded sequence of the panel, or nullptr when none is in use.
const SequenceTables* loaded_sequence(MainWindow& main);

}  // namespace vx
