#include "calibration/calibration_commands.hpp"

#include "calibration/reference_file.hpp"
#include "formats/calibration_change.hpp"
#include "platform/ui.hpp"
#include "workspace/settings.hpp"

namespace vx {

MatchTolerance tolerance_from_settings(const Settings& settings) {
    return {settings.autocal_error_limit, settings.autocal_ppm != 0};
}

int calibrate_from_reference(Spectrum& spectrum, CalibrationPanel& panel, std::span<const double> masses,
                             const MatchTolerance& tol, Ui& ui, ReferenceMatch* report) {
    const std::vector<int> checked = MatchTheo_toMeasured(spectrum, masses, tol);
    CalibrationPanel next = panel;
    if (FillCalTableNew(next, spectrum, checked, false, ui) < 0) return -1;
    AssignTheor_toCalPanel(next, spectrum, masses, tol);
    ReferenceMatch r;
    r.checked = static_cast<int>(checked.size());
    r.unassigned = RemoveUnassignedCalPeaks(next);
    r.duplicates = RemoveDuplicateCalibrants(next);
    if (report) *report = r;
    if (next.rows.size() < 2) {
        ui.MessagePopup("Operator Error", "Must check at least 2 \n peaks for calibration");
        return -1;
    }
    panel = std::move(next);
    return 0;
}

int calibrate_ref_file_command(Spectrum& spectrum, CalibrationPanel& panel, const MatchTolerance& tol, Ui& ui) {
    std::vector<double> masses;
    if (OpenCalFile(masses, ui) < 0) return -1;
    if (panel.rows.empty()) return calibrate_from_reference(spectrum, panel, masses, tol, ui);
    AssignTheor_toCalPanel(panel, spectrum, masses, tol);
    return 0;
}

int recal_file_command(const Spectrum& current, const CalibrationPanel& panel, Ui& ui) {
    if (!ui.ConfirmPopup("Recalibrate current file?", "Do you want to recalibrate the current file?")) return 1;
    // The trap plates of the panel are not passed on: only A and B change.
    return Change_Tulva_Calibration_Go(current.filename, current.filename + ".new", panel.CalA, panel.CalB, ui) < 0
               ? -1
               : 0;
}

int recal_multi_files_command(const Spectrum* current, const CalibrationPanel& panel, Ui& ui) {
    const bool with_current = current && !current->filename.empty() &&
                              ui.ConfirmPopup("Recalibrate current file?",
                                              "Do you want to recalibrate the current file as well?");
    std::vector<std::string> files = ui.MultiFileSelectPopup("Select TULVA / Vantorix files to recalibrate.",
                                                             "*.dat;*.z", "");
    if (with_current) files.push_back(current->filename);
    int written = 0, failed = 0;
    for (const std::string& f : files) {
        if (Change_Tulva_Calibration_Go(f, f + ".new", panel.CalA, panel.CalB, ui) < 0)
            ++failed;
        else
            ++written;
        ui.ProcessSystemEvents();
    }
    return failed ? -1 : written;
}

int save_reference_from_table(const std::string& path, const CalibrationPanel& panel, Ui& ui) {
    std::vector<double> masses;
    for (const CalTableRow& r : panel.rows) masses.push_back(r.theoretical);
    return write_reference_file(path, masses, ui);
}

}  // namespace vx
