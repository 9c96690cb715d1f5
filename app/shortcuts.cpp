#include "shortcuts.hpp"

#include <QAction>
#include <QMenu>
#include <QMenuBar>
#include <QStringList>

namespace vx {

const std::vector<Shortcut>& main_shortcuts() {
    static const std::vector<Shortcut> keys = {
        {"File/Open/Tulva time domain/DAT file (no Phasing no walking cal)", QKeySequence::Open},
        {"File/Close", QKeySequence::Close},
        {"File/Exit", QKeySequence::Quit},
        {"Spectrum/Process Options...", QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_R)},
        {"Spectrum/Process", QKeySequence(Qt::CTRL | Qt::Key_R)},
        {"Analyze/Find Peak Options...", QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_F)},
        {"Analyze/Find Peaks", QKeySequence(Qt::CTRL | Qt::Key_F)},
    };
    return keys;
}

namespace {

QAction* find_action(const QList<QAction*>& actions, const QStringList& path, int depth) {
    for (QAction* a : actions) {
        if (a->text() != path[depth]) continue;
        if (depth + 1 == path.size()) return a->menu() ? nullptr : a;
        if (QMenu* m = a->menu())
            if (QAction* found = find_action(m->actions(), path, depth + 1)) return found;
    }
    return nullptr;
}

}  // namespace

int apply_shortcuts(QMenuBar* bar) {
    int found = 0;
    for (const Shortcut& s : main_shortcuts()) {
        if (QAction* a = find_action(bar->actions(), s.path.split('/'), 0)) {
            a->setShortcut(s.keys);
            ++found;
        }
    }
    return found;
}

}  // namespace vx
