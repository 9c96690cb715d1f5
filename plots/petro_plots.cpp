#include "petro_plots.hpp"

#include <QApplication>
#include <qcustomplot.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include <fmt/format.h>

#include "plot_draw.hpp"
#include "platform/ui.hpp"

namespace vx {

namespace {

// The command line has no application object of its own: one is made for the
// time of the drawing, on the "offscreen" platform unless QT_QPA_PLATFORM
// names another. Nothing is shown, so a headless machine writes the same files,
// and a DISPLAY that cannot be reached (a stale ssh forwarding) does not abort
// the command as the X11 platform would.
// Qt's own warnings (no runtime folder, fonts) go to the console of the Ui
// while the scope lasts, not onto the command's output streams.
thread_local Ui* qt_console = nullptr;
void qt_message(QtMsgType, const QMessageLogContext&, const QString& text) {
    if (qt_console) qt_console->Console(text.toStdString() + "\n");
}

class QtScope {
public:
    explicit QtScope(Ui& ui) {
        if (QCoreApplication::instance()) return;
        qt_console = &ui;
        previous_ = qInstallMessageHandler(qt_message);
        if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
        app_ = std::make_unique<QApplication>(argc_, argv_);
    }
    ~QtScope() {
        if (!app_) return;
        app_.reset();
        qInstallMessageHandler(previous_);
        qt_console = nullptr;
    }
    QtScope(const QtScope&) = delete;
    QtScope& operator=(const QtScope&) = delete;
    bool ok() const { return qobject_cast<QApplication*>(QCoreApplication::instance()) != nullptr; }

private:
    int argc_ = 1;
    char name_[9] = "vantorix";
    char* argv_[2] = {name_, nullptr};
    std::unique_ptr<QApplication> app_;
    QtMessageHandler previous_ = nullptr;
};

constexpr const char* kTitle = "Petroleum Analysis";

}  // namespace

std::string class_file_part(const std::string& class_text) {
    std::string out;
    for (char c : class_text) {
        const bool keep = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '-';
        out += keep ? c : '_';
    }
    return out.empty() ? std::string("none") : out;
}

int parse_plot_formats(const std::string& text, PlotFormats& formats, Ui& ui) {
    formats = {};
    std::size_t at = 0;
    while (at <= text.size()) {
        const std::size_t comma = std::min(text.find(',', at), text.size());
        const std::string item = text.substr(at, comma - at);
        if (item == "png") formats.png = true;
        else if (item == "svg") formats.svg = true;
        else {
            ui.MessagePopup("Operator Error",
                            fmt::format("--plots takes png, svg or png,svg, not \"{}\".", text));
            return -1;
        }
        at = comma + 1;
    }
    return 0;
}

int write_petro_plots(const PetroSummary& summary, const std::string& folder, const PlotFormats& formats, Ui& ui,
                      std::vector<std::string>* written) {
    QtScope qt(ui);
    if (!qt.ok()) {
        ui.MessagePopup(kTitle, "The plots need a Qt application, and another kind of application is running.");
        return -1;
    }
    QCustomPlot plot;
    plot.resize(PLOT_WIDTH, PLOT_HEIGHT);
    auto save = [&](const std::string& stem, const QString& title) {
        for (int f = 0; f < 2; ++f) {
            if (!(f == 0 ? formats.png : formats.svg)) continue;
            const std::string name = stem + (f == 0 ? ".png" : ".svg");
            const std::string path = (std::filesystem::path(folder) / name).string();
            std::string error;
            if (save_plot(&plot, path, PLOT_WIDTH, PLOT_HEIGHT, title, &error) < 0) {
                ui.MessagePopup("File Error", fmt::format("{} cannot be written: {}", path, error));
                return false;
            }
            if (written) written->push_back(name);
        }
        return true;
    };
    draw_class_bars(&plot, summary);
    if (!save("classes", CLASS_BAR_TEXTS.title)) return -1;
    for (std::size_t i = 0; i < summary.classes.size() && i < DBE_PLOT_CLASSES; ++i) {
        const std::string& c = summary.classes[i].class_text;
        draw_dbe_carbon(&plot, summary, c);
        if (!save("dbe_carbon_" + class_file_part(c), QString("DBE vs. Carbon Number: %1").arg(QString::fromStdString(c))))
            return -1;
    }
    if (summary.classes.size() > DBE_PLOT_CLASSES)
        ui.Console(fmt::format("DBE plots drawn for the {} strongest of {} classes.\n", DBE_PLOT_CLASSES,
                               summary.classes.size()));
    draw_van_krevelen(&plot, summary);
    if (!save("van_krevelen", VAN_KREVELEN_TEXTS.title)) return -1;
    draw_kendrick(&plot, summary);
    if (!save("kendrick", KENDRICK_TEXTS.title)) return -1;
    draw_mass_error(&plot, summary);
    if (!save("mass_error", MASS_ERROR_TEXTS.title)) return -1;
    draw_sn_error(&plot, summary);
    if (!save("sn_error", SN_ERROR_TEXTS.title)) return -1;
    draw_error_histogram(&plot, summary);
    if (!save("error_histogram", HISTOGRAM_TEXTS.title)) return -1;
    return 0;
}

int write_isotope_plot(const IsotopePattern& pattern, const std::string& title, const std::string& path, Ui& ui) {
    QtScope qt(ui);
    if (!qt.ok()) {
        ui.MessagePopup("Isotope Calculator", "The plot needs a Qt application, and another kind of application is running.");
        return -1;
    }
    QCustomPlot plot;
    plot.resize(PLOT_WIDTH, PLOT_HEIGHT);
    draw_isotope_pattern(&plot, pattern, QString::fromStdString(title));
    std::string error;
    if (save_plot(&plot, path, PLOT_WIDTH, PLOT_HEIGHT, QString::fromStdString(title), &error) < 0) {
        ui.MessagePopup("File Error", fmt::format("{} cannot be written: {}", path, error));
        return -1;
    }
    return 0;
}

}  // namespace vx
