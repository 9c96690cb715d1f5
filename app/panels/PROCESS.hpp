// "Process Options...": the processing dialogue. Shows the chain's settings,
// checks and stores what the user chose.
#pragma once

class QWidget;

namespace vx {

class Ui;
struct Workspace;

// Runs the dialogue modally. Returns true when the options were accepted and
// stored and "Process now" was ticked, so the caller runs Process next.
bool run_process_options(QWidget* parent, Workspace& ws, Ui& ui);

}  // namespace vx
