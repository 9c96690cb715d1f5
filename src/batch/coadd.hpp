// Co-adding: a set of transients summed point by point in the time domain,
// weighted by the experiments each file already holds, into one record of
// better signal to noise titled "Sum of %i Files".
//
// Two slots are used whatever the number of files: the running sum and the
// file being added, so memory does not grow with the list.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "formats/instruments.hpp"
#include "workspace/workspace.hpp"

namespace vx {

class Ui;

enum class CoaddKind {
    Tulva,    // CoAddTulva: weight = the file's expcount
    Odyssey,  // CoAddSpectra: Odyssey files, weight 1 each
};

struct CoaddResult {
    int slot = -1;                    // the result's slot
    std::vector<std::string> used;    // GOODFILES
    std::vector<std::string> failed;  // BADFILES
    double total_weight = 0.0;        // T
    int expcount = 0;                 // files used (not T)
    bool stopped = false;
};

// The progress dialogue seen from the working function: the bar, and the stop
// flag that its Stop button sets (tested only after each file).
struct CoaddProgress {
    std::function<void(int done, int total, const CoaddResult& so_far)> update;
    std::function<bool()> stop_requested;
};

// CoAddTulva / CoAddSpectra over files. Returns 0 with the result in slot
// result.slot (active), or -1 after the message ("Too many files open, ..."
// when two slots are not free; a message when no file could be read).
int CoAddTulva(Workspace& ws, const std::vector<std::string>& files, CoaddKind kind, CoaddResult& result, Ui& ui,
               const CoaddProgress& progress = {});

// Coadd_Vosk_Data: the channel of every file of the list summed into spectrum
// and divided by the number of files. The first file's header gives the
// dialogue's point count. Returns 0, or -1 when a file does not open.
int Coadd_Vosk_Data(const std::vector<std::string>& list, Spectrum& spectrum, const PointsChannel& dialogue, Ui& ui);

// The question of the dialogue's Stop button.
inline constexpr const char* COADD_STOP_QUESTION = "Are you sure you want to stop the process?";

}  // namespace vx
