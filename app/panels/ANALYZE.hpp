// "Find Peak Options": the analysis panel. It shows the search settings, reads
// them back before a search and hands its buttons to the main window, which
// runs the core's search on the active slot.
#pragma once

#include <QObject>

#include <functional>
#include <memory>

#include "workspace/settings.hpp"

class QDialog;
class QWidget;
class Ui_ANALYZE;

namespace vx {

class AnalyzePanel : public QObject {
    Q_OBJECT
public:
    explicit AnalyzePanel(QWidget* parent);
    ~AnalyzePanel() override;

    // Controls from the settings, and the settings from the controls.
    void fill(const Settings& settings);
    void read(Settings& settings) const;
    // The m/z limits, lower first.
    void set_limits(double a, double b);
    bool hide_on_run() const;
    // The "Robust noise" box (also settable by tests and the screenshot run).
    bool robust_noise() const;
    void set_robust_noise(bool on);

    QDialog* dialog() const { return dialog_; }
    Ui_ANALYZE& form() { return *form_; }

    // "Limits from Cursors" pressed.
    std::function<void()> on_limits;
    // One of the two find buttons pressed (by_sn: the S/N one).
    std::function<void(bool by_sn)> on_find;

private:
    QDialog* dialog_;
    std::unique_ptr<Ui_ANALYZE> form_;
};

}  // namespace vx
