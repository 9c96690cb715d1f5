// Messages, questions and console output of the working functions.
//
// Every popup, question and console print of the program goes through one Ui,
// named after the run-time calls it stands for. The desktop program shows modal
// dialogs; the command line prints "title: text" to stderr and answers
// questions from its flags; tests record every message and answer from a script.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vx {

class Ui {
public:
    virtual ~Ui() = default;

    virtual void MessagePopup(std::string_view title, std::string_view text) = 0;
    // Yes/no question; true for yes.
    virtual bool ConfirmPopup(std::string_view title, std::string_view text) = 0;
    // A line of text of at most maxlen characters; nullopt when cancelled.
    virtual std::optional<std::string> PromptPopup(std::string_view title, std::string_view text,
                                                   int maxlen) = 0;
    virtual std::optional<std::string> FileSelectPopup(std::string_view title, std::string_view mask,
                                                       std::string_view dir) = 0;
    virtual std::vector<std::string> MultiFileSelectPopup(std::string_view title, std::string_view mask,
                                                          std::string_view dir) = 0;
    virtual std::optional<std::string> DirSelectPopup(std::string_view title, std::string_view dir) = 0;
    // The console window of the run-time: diagnostics printed with printf.
    virtual void Console(std::string_view text) = 0;
    // A line typed at the console; nullopt when there is no console to ask.
    virtual std::optional<std::string> ConsoleReadLine() = 0;
    // Lets pending events through during long work (stop buttons, redraws).
    virtual void ProcessSystemEvents() {}
};

// Command-line implementation: messages to stderr as "title: text"; console
// prints (diagnostics) to stderr with verbose or interactive set and nowhere
// otherwise, so that stdout holds only a command's results; questions are
// answered from preset answers (flags), else from their defaults, and never
// block on a terminal unless interactive is set.
class ConsoleUi : public Ui {
public:
    bool interactive = false;     // ask stdin for confirmations, prompts and console lines
    bool default_confirm = false; // answer of ConfirmPopup when not interactive
    bool verbose = false;         // show Console() diagnostics (on stderr)
    bool quiet_console = false;   // drop Console() output even when verbose
    std::deque<std::string> preset_prompts;  // answers for PromptPopup, in order
    std::deque<std::string> preset_console;  // answers for ConsoleReadLine, in order

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
};

// Test implementation: records every call and answers from scripted queues.
// An empty queue gives the "no answer" result (false, nullopt, empty list).
class RecordingUi : public Ui {
public:
    struct Message {
        std::string kind;  // "message", "confirm", "prompt", "file", "files", "dir"
        std::string title;
        std::string text;
    };
    std::vector<Message> messages;
    std::string console;  // everything printed to the console, concatenated

    std::deque<bool> confirms;
    std::deque<std::optional<std::string>> prompts;
    std::deque<std::optional<std::string>> files;
    std::deque<std::vector<std::string>> file_lists;
    std::deque<std::optional<std::string>> dirs;
    std::deque<std::string> console_lines;
    bool has_console = true;  // false: ConsoleReadLine answers nullopt

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

    // Convenience for assertions: the texts of all "message" entries.
    std::vector<std::string> popup_texts() const;
    bool saw(std::string_view title, std::string_view text) const;
};

}  // namespace vx
