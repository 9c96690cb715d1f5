// Keyboard shortcuts of the main window's commands, set by the menu texts so
// that the menus are built in one place and the keys in another.
#pragma once

#include <QKeySequence>
#include <QString>

#include <vector>

class QMenuBar;

namespace vx {

struct Shortcut {
    QString path;  // menu texts from the bar down, joined by "/"
    QKeySequence keys;
};

// The keys of the usual desktop programs for our commands.
const std::vector<Shortcut>& main_shortcuts();

// Gives each action named in main_shortcuts its keys. Returns the number of
// actions found (a menu entry renamed without its shortcut shows up in the test).
int apply_shortcuts(QMenuBar* bar);

}  // namespace vx
