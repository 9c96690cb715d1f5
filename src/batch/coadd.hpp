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
    int slot = -1;                    // the result's slot (channel 1 of a two-channel sum)
    int second_slot = -1;             // channel 2 of a two-channel sum; -1 otherwise
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

// CoAddTulvaSED: two-channel (SED) files, each channel summed into its own
// result slot (result.slot, result.second_slot) with weight 1 and scaled by
// 1 / n, n the files used; sed = 1 on both results, which become the SED
// channel globals (phased_data, sed_second_panel). A file that loads with
// one channel, or shorter than the first, goes into the failed list.
//
// Each file is read into a slot of its own that the reader extends by the
// second channel, and both are given back as soon as the file is added, so a
// co-add holds four slots whatever the number of files (two slots kept open
// per added file would end the run after sixteen files).
int CoAddTulvaSED(Workspace& ws, const std::vector<std::string>& files, CoaddResult& result, Ui& ui,
                  const CoaddProgress& progress = {});

// CoAddTulvaSEDFTD: as CoAddTulvaSED, but each file's channels are
// transformed before they are added (Process_Data with the process options
// of ws.settings): a time-domain pair becomes two spectra, and what is summed
// is the spectra. Files that hold complex frequency data (double storage:
// realdata64/imagdata64) are already transformed; their double blocks are
// summed in double beside the float channels, and freed with the file.
//
// A sum of magnitude spectra is not a coherent sum: the noise floor's mean
// stays where it is and only its spread shrinks, so the S/N grows more slowly
// than sqrt(n). For the full gain co-add the transients (CoAddTulvaSED) and
// transform the sum.
int CoAddTulvaSEDFTD(Workspace& ws, const std::vector<std::string>& files, CoaddResult& result, Ui& ui,
                     const CoaddProgress& progress = {});

// Coadd_Vosk_Data: the channel of every file of the list summed into spectrum
// and divided by the number of files. The first file's header gives the
// dialogue's point count. Returns 0, or -1 when a file does not open.
int Coadd_Vosk_Data(const std::vector<std::string>& list, Spectrum& spectrum, const PointsChannel& dialogue, Ui& ui);

// The question of the dialogue's Stop button.
inline constexpr const char* COADD_STOP_QUESTION = "Are you sure you want to stop the process?";

}  // namespace vx
