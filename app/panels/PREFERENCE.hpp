// "Preference...": the tabbed panel of the user preferences (graph, settings,
// the two formula presets, decimals), "Open Saved Preference", "Saved
// Preference", the save on exit and the m/z range kept on open.
#pragma once

#include <string>

#include "workspace/preferences.hpp"

class QDialog;

namespace vx {

class MainWindow;

// The preferences of this session, loaded by SetupPreferences on first use.
Preferences& session_preferences(MainWindow& main);

// Opens the tabbed panel; its controls write back into the session's values
// at once.
QDialog* show_PREFERENCE(MainWindow& main);

// "Open Saved Preference" (path empty: asks for a *.txt) and "Saved Preference".
int open_saved_preference(MainWindow& main, const std::string& path = {});
int saved_preference(MainWindow& main);

// On exit: saves the loaded file when AUTOSAVE is set, and preference.ini.
void preferences_at_exit(MainWindow& main);

// doMassRange on a newly opened slot when DOMASSRANGE is set: the graph is
// zoomed to the kept range, fitted into the data by checkMassRange. A range
// that comes out backwards (it lay wholly above the data) leaves the full view.
void apply_mass_range_on_open(MainWindow& main, int slot);

}  // namespace vx
