// "Process Macro": from a transient to a peak list in one command, with the
// noise taken from a stretch of the spectrum that holds no peaks.
#pragma once

#include "peaks/find_peaks.hpp"
#include "workspace/workspace.hpp"

namespace vx {

class Ui;

// On the active panel: "Process" when the data are a transient; the mean and
// deviation of the samples between the m/z cursors noise_low and noise_high
// become the user noise (overRideThrashNoiseCalculation = 1, noisemean,
// noisesigma); the peak threshold becomes mean + 6 deviations and the noise
// threshold mean + 0.7 x 6 deviations; then "Find Peak Options" and the search
// by abundance. The Kendrick and calibration steps that follow in the full
// program run where those commands exist. Returns the number of peaks, or a
// negative value after a message.
int ProcessMacroCallback(Workspace& ws, double noise_low, double noise_high, PeakTable& table, Ui& ui);

}  // namespace vx
