#include "platform/ui.hpp"

#include <cstdio>
#include <iostream>

namespace vx {

namespace {
std::optional<std::string> read_stdin_line() {
    std::string line;
    if (!std::getline(std::cin, line)) return std::nullopt;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}
}  // namespace

void ConsoleUi::MessagePopup(std::string_view title, std::string_view text) {
    std::cerr << title << ": " << text << '\n';
}

bool ConsoleUi::ConfirmPopup(std::string_view title, std::string_view text) {
    std::cerr << title << ": " << text << (interactive ? " [y/n] " : "\n");
    if (!interactive) {
        std::cerr << "  -> " << (default_confirm ? "yes" : "no") << '\n';
        return default_confirm;
    }
    auto answer = read_stdin_line();
    return answer && !answer->empty() && (answer->front() == 'y' || answer->front() == 'Y');
}

std::optional<std::string> ConsoleUi::PromptPopup(std::string_view title, std::string_view text, int maxlen) {
    std::optional<std::string> answer;
    if (!preset_prompts.empty()) {
        answer = preset_prompts.front();
        preset_prompts.pop_front();
    } else if (interactive) {
        std::cerr << title << ": " << text << ' ';
        answer = read_stdin_line();
    } else {
        std::cerr << title << ": " << text << "\n  -> (no answer)\n";
        return std::nullopt;
    }
    if (answer && maxlen >= 0 && static_cast<int>(answer->size()) > maxlen) answer->resize(maxlen);
    return answer;
}

std::optional<std::string> ConsoleUi::FileSelectPopup(std::string_view title, std::string_view, std::string_view) {
    if (!preset_prompts.empty()) {
        auto a = preset_prompts.front();
        preset_prompts.pop_front();
        return a;
    }
    std::cerr << title << ": no file chosen (the command line takes file names as arguments)\n";
    return std::nullopt;
}

std::vector<std::string> ConsoleUi::MultiFileSelectPopup(std::string_view title, std::string_view, std::string_view) {
    std::cerr << title << ": no files chosen (the command line takes file names as arguments)\n";
    return {};
}

std::optional<std::string> ConsoleUi::DirSelectPopup(std::string_view title, std::string_view) {
    std::cerr << title << ": no folder chosen (the command line takes folder names as arguments)\n";
    return std::nullopt;
}

void ConsoleUi::Console(std::string_view text) {
    if (quiet_console || !(verbose || interactive)) return;
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

std::optional<std::string> ConsoleUi::ConsoleReadLine() {
    if (!preset_console.empty()) {
        auto a = preset_console.front();
        preset_console.pop_front();
        return a;
    }
    if (!interactive) return std::nullopt;
    return read_stdin_line();
}

void RecordingUi::MessagePopup(std::string_view title, std::string_view text) {
    messages.push_back({"message", std::string(title), std::string(text)});
}

bool RecordingUi::ConfirmPopup(std::string_view title, std::string_view text) {
    messages.push_back({"confirm", std::string(title), std::string(text)});
    if (confirms.empty()) return false;
    bool a = confirms.front();
    confirms.pop_front();
    return a;
}

std::optional<std::string> RecordingUi::PromptPopup(std::string_view title, std::string_view text, int maxlen) {
    messages.push_back({"prompt", std::string(title), std::string(text)});
    if (prompts.empty()) return std::nullopt;
    auto a = prompts.front();
    prompts.pop_front();
    if (a && maxlen >= 0 && static_cast<int>(a->size()) > maxlen) a->resize(maxlen);
    return a;
}

std::optional<std::string> RecordingUi::FileSelectPopup(std::string_view title, std::string_view mask,
                                                        std::string_view) {
    messages.push_back({"file", std::string(title), std::string(mask)});
    if (files.empty()) return std::nullopt;
    auto a = files.front();
    files.pop_front();
    return a;
}

std::vector<std::string> RecordingUi::MultiFileSelectPopup(std::string_view title, std::string_view mask,
                                                           std::string_view) {
    messages.push_back({"files", std::string(title), std::string(mask)});
    if (file_lists.empty()) return {};
    auto a = file_lists.front();
    file_lists.pop_front();
    return a;
}

std::optional<std::string> RecordingUi::DirSelectPopup(std::string_view title, std::string_view) {
    messages.push_back({"dir", std::string(title), ""});
    if (dirs.empty()) return std::nullopt;
    auto a = dirs.front();
    dirs.pop_front();
    return a;
}

void RecordingUi::Console(std::string_view text) { console.append(text); }

std::optional<std::string> RecordingUi::ConsoleReadLine() {
    if (!has_console) return std::nullopt;
    if (console_lines.empty()) return std::string();
    auto a = console_lines.front();
    console_lines.pop_front();
    return a;
}

std::vector<std::string> RecordingUi::popup_texts() const {
    std::vector<std::string> out;
    for (const auto& m : messages)
        if (m.kind == "message") out.push_back(m.text);
    return out;
}

bool RecordingUi::saw(std::string_view title, std::string_view text) const {
    for (const auto& m : messages)
        if (m.title == title && m.text == text) return true;
    return false;
}

}  // namespace vx
