#include "qt_ui.hpp"

#include <QApplication>
#include <QFileDialog>
#include <QInputDialog>
#include <QMessageBox>
#include <QPlainTextEdit>

#include <cstdio>

namespace vx {

namespace {
QString qs(std::string_view s) { return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size())); }

// "*.dat" becomes the file dialogue's "(*.dat)" filter, with all files as a second choice.
QString filter_of(std::string_view mask) {
    return mask.empty() ? QString("All files (*)") : QString("%1 (%1);;All files (*)").arg(qs(mask));
}
}  // namespace

void QtUi::MessagePopup(std::string_view title, std::string_view text) {
    shown.push_back(std::string(title) + ": " + std::string(text));
    if (unattended) {
        std::fprintf(stderr, "%.*s: %.*s\n", static_cast<int>(title.size()), title.data(),
                     static_cast<int>(text.size()), text.data());
        return;
    }
    QMessageBox::information(parent_, qs(title), qs(text));
}

bool QtUi::ConfirmPopup(std::string_view title, std::string_view text) {
    shown.push_back(std::string(title) + ": " + std::string(text));
    if (unattended) return default_confirm;
    return QMessageBox::question(parent_, qs(title), qs(text), QMessageBox::Yes | QMessageBox::No) ==
           QMessageBox::Yes;
}

std::optional<std::string> QtUi::PromptPopup(std::string_view title, std::string_view text, int maxlen) {
    if (unattended) return std::nullopt;
    bool ok = false;
    QString answer = QInputDialog::getText(parent_, qs(title), qs(text), QLineEdit::Normal, QString(), &ok);
    if (!ok) return std::nullopt;
    if (maxlen > 0) answer.truncate(maxlen);
    return answer.toStdString();
}

std::optional<std::string> QtUi::FileSelectPopup(std::string_view title, std::string_view mask,
                                                 std::string_view dir) {
    if (unattended) return std::nullopt;
    const QString path = QFileDialog::getOpenFileName(parent_, qs(title), qs(dir), filter_of(mask));
    if (path.isEmpty()) return std::nullopt;
    return path.toStdString();
}

std::vector<std::string> QtUi::MultiFileSelectPopup(std::string_view title, std::string_view mask,
                                                    std::string_view dir) {
    std::vector<std::string> out;
    if (unattended) return out;
    for (const QString& p : QFileDialog::getOpenFileNames(parent_, qs(title), qs(dir), filter_of(mask)))
        out.push_back(p.toStdString());
    return out;
}

std::optional<std::string> QtUi::DirSelectPopup(std::string_view title, std::string_view dir) {
    if (unattended) return std::nullopt;
    const QString path = QFileDialog::getExistingDirectory(parent_, qs(title), qs(dir));
    if (path.isEmpty()) return std::nullopt;
    return path.toStdString();
}

void QtUi::Console(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
    if (console_) {
        console_->moveCursor(QTextCursor::End);
        console_->insertPlainText(qs(text));
    }
}

std::optional<std::string> QtUi::ConsoleReadLine() {
    if (unattended) return std::nullopt;
    bool ok = false;
    const QString line = QInputDialog::getText(parent_, "Console", "", QLineEdit::Normal, QString(), &ok);
    if (!ok) return std::nullopt;
    return line.toStdString();
}

void QtUi::ProcessSystemEvents() { QApplication::processEvents(); }

}  // namespace vx
