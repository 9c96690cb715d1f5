// The Bruker entries of the File menu: open an acquisition directory (XMASS or
// apex/solariX .d) and save the active transient as an XMASS directory.
#pragma once

#include <optional>
#include <string>

namespace vx {

class Ui;
struct Workspace;

// "Select Bruker Directory": the directory chosen, or nullopt when cancelled.
std::optional<std::string> select_bruker_directory(Ui& ui);

// "Save As XMASS Directory...": asks for the folder to write into (the slot's
// file name, without its extension, names the directory made there) and writes.
// Returns 0, 1 when cancelled, or -1 after the writer's message.
int save_as_xmass_dialog(Workspace& ws, Ui& ui);

}  // namespace vx
