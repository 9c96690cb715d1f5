// The desktop program's messages and questions: modal dialogs, and a console
// dock (hidden at start) for the diagnostics the working functions print.
#pragma once

#include "platform/ui.hpp"

class QWidget;
class QPlainTextEdit;

namespace vx {

class QtUi : public Ui {
public:
    explicit QtUi(QWidget* parent) : parent_(parent) {}

    // Unattended runs (screenshots, tests) never block: messages go to the
    // console and stderr, questions get their default answer.
    bool unattended = false;
    bool default_confirm = false;
    // Every message shown, as "title: text" (read by the tests).
    std::vector<std::string> shown;

    void set_console(QPlainTextEdit* console) { console_ = console; }

    void MessagePopup(std::string_view title, std::string_view text) override;
    bool ConfirmPopup(std::string_view title, std::string_view text) override;
    std::optional<std::string> PromptPopup(std::string_view title, std::string_view text, int maxlen) override;
    std::optional<std::string> FileSelectPopup(std::string_view title, std::string_view mask,
                                               std::string_view dir) override;
    std::vector<std::string> MultiFileSelectPopup(std::string_view title, std::string_view mask,
                                                  std::string_view dir) override;
    std::optional<std::string> DirSelectPopup(std::string_view title, std::string_view dir) override;
    void Console(std::string_view text) override;
    std::optional<std::string> ConsoleReadLine() override;
    void ProcessSystemEvents() override;

private:
    QWidget* parent_;
    QPlainTextEdit* console_ = nullptr;
};

}  // namespace vx
