#include "ZIPFILES.hpp"

#include <QDialog>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include <atomic>

#include "main_window.hpp"
#include "platform/zip_tree.hpp"
#include "qt_ui.hpp"

namespace vx {

int zip_files_dialog(MainWindow& main, const std::string& given) {
    std::string dir = given;
    if (dir.empty()) {
        const auto chosen = main.ui().DirSelectPopup("Select Directory to Zip", "");
        if (!chosen) return -1;
        dir = *chosen;
    }
    QDialog panel(&main);
    panel.setObjectName("ZIPFILES");
    panel.setWindowTitle("Zip Files");
    auto* layout = new QVBoxLayout(&panel);
    auto* label = new QLabel(QString::fromStdString(dir), &panel);
    auto* bar = new QProgressBar(&panel);
    auto* stop_button = new QPushButton("Stop", &panel);
    layout->addWidget(label);
    layout->addWidget(bar);
    layout->addWidget(stop_button);
    std::atomic<bool> stop{false};
    QObject::connect(stop_button, &QPushButton::clicked, &panel, [&stop] { stop = true; });
    panel.setModal(true);
    panel.show();
    ZipTreeResult result;
    // StopZip is read between files; the events let the button through.
    const int rc = zip_tree(dir, false, &stop,
                            [&](std::size_t done, std::size_t total, const std::string& file) {
                                bar->setRange(0, static_cast<int>(total));
                                bar->setValue(static_cast<int>(done));
                                if (!file.empty()) label->setText(QString::fromStdString(file));
                                main.ui().ProcessSystemEvents();
                            },
                            result, main.ui());
    panel.close();
    if (rc == 0) main.ui().MessagePopup("Complete", "File Compressed.");
    return rc;
}

}  // namespace vx
