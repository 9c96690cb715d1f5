// The Open entries of the other instruments (Odyssey, Melbar, Vosk, time of
// flight, LC-MS peak-list series) and the points/channel dialogue of the two
// headerless float layouts.
#pragma once

#include <optional>
#include <string>

class QMenu;
class QWidget;

namespace vx {

class MainWindow;
struct PointsChannel;

// The dialogue of points and channel; for Vosk the channel control is shown
// disabled. nullopt when cancelled.
std::optional<PointsChannel> points_channel_dialog(QWidget* parent, bool vosk, int points, int channel);

// "Thermo Raw FIle": a Thermo run in its mzML form (a .raw file is refused,
// naming the conversion). scan 0 asks which scan through the reader's prompt
// (an empty answer takes the last). Returns the slot or -1.
int open_thermo_file(MainWindow& w, const std::string& path, int scan = 0);

// Adds the entries to the File > Open menu.
void add_instrument_open_entries(MainWindow& w, QMenu* open);

}  // namespace vx
