// The calibration-change panel ("Change Calibraton" in the File menu): new A
// and B terms written into the headers of chosen data files, each copied to
// FILE.new, with a progress bar over the files.
#pragma once

class QWidget;

namespace vx {

struct Workspace;
class Ui;

// Change_TULVA_Calibration: shows the panel with its progress bar hidden.
void show_CHANGECAL(QWidget* parent, Ui& ui);

}  // namespace vx
