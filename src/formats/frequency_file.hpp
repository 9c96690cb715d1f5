// Frequency data files (.vfd, and .wcd with a walking calibration block): a
// finished spectrum with everything needed to go on from it — calibration,
// phase terms, section rephasing, walking table — and a copy of the header of
// the transient it came from. The file normally stores only the points inside
// the excitation range, with where that range lies in the full spectrum.
#pragma once

#include <cstdio>
#include <string>

#include "workspace/workspace.hpp"

namespace vx {

class Ui;

// Reader of versions 1.0 and 1.1, called by Get_Tulva_Data once the signature
// line "Vantorix Frequency Datafile v1..." has been read; f stands behind it.
// Every line is tested against one table of keys, the copied header's lines
// too, so the later "Phased Data Parameters" section overrides them. Returns 0,
// or -1 after its message (damaged counts and cut blocks are refused before
// anything is allocated).
int Get_Tulva_Frequency_Data_v10(Workspace& ws, std::FILE* f, Spectrum& spectrum, Ui& ui);

// Keeps only the excitation range of a full array (points outside it set to
// 0, except the point just below it) and records the range.
void ConvertFullVFDtoReducedVFD(Spectrum& spectrum);

// The stored range of a record that is not zoomed: from the excitation range,
// limited to the array. Sets zoomed, and flips the sign of sweeprate for a
// range given high to low.
void CalculateZoomDataParameters(Spectrum& spectrum);

// CopyExperimentScript: the source's header up to its marker, each line
// written with the text file's CR LF. With keepwalking 0 the source's own
// walking block ends the copy (DealWithWalkingCal); a "Rephased: 1" line is
// the last one copied.
int CopyExperimentScript(std::FILE* source, std::FILE* target, int keepwalking);
// The simple form: all lines up to "Data:".
int CopyExperimentScript_RP(std::FILE* source, std::FILE* target);

struct VfdStoreOptions {
    // The counts "Zerofills:" and "Truncations:" make the reader rescale
    // "Datacount:" (doubled Zerofills - 1 times, halved Truncations times), so a
    // spectrum zero-filled twice or truncated reads back with the wrong length.
    // exact_count writes 0 for both, and the file reads back to its own length.
    bool exact_count = false;
};

// StoreVFDFile: writes the frequency or mass record as a version 1.1 file
// made from the header of sourcepath (read only; a .Z source is unpacked
// privately). A record that is not zoomed gets its stored range first (the
// record keeps it). Returns 0 when the whole stored range was written, -1
// after a message when writing failed, -2 after a message when the record is
// not a frequency or mass spectrum (nothing written).
int StoreVFDFile(Spectrum& spectrum, const std::string& outpath, const std::string& sourcepath, int withwalking,
                 int sed_mode, Ui& ui, const VfdStoreOptions& options = {});

// StoreVFDFileRephase: the version 1.0 layout (no copied header, no reduction).
int StoreVFDFileRephase(const Spectrum& spectrum, const std::string& outpath, int sed_mode, Ui& ui);

// Target names of the two save commands: same folder, ".dat"/".new" stripped,
// ".vfd" added; and "Walking Calibrated VFD/" beside the file, ".dat"/".new"/
// ".vfd" stripped, ".wcd" added.
std::string vfd_target_for(const std::string& filename);
std::string wcd_target_for(const std::string& filename);

// PrephaseFrequency_callback / PrephaseFrequency2_callback on the active panel.
// Return 0 or -1 after a message.
int PrephaseFrequency_callback(Workspace& ws, Ui& ui, const VfdStoreOptions& options = {});
int PrephaseFrequency2_callback(Workspace& ws, Ui& ui, const VfdStoreOptions& options = {});

// The openers of the batch workers: path into a private record (no slot, no
// display, no defaults but storedcount = 0), by one table of keys; the VFD
// form also takes the phase terms and "InitialExciteFrequency:", the plain
// form the "Initial/Final Frequency:" and "Optimized Sweep Rate:" lines of a
// script. The block behind "Data:" (column 0) is read as its storage type
// says, and the excitation duration is |lowfreq - highfreq| / sweeprate /
// 1e6. quiet: failures go to the console instead of a popup. Returns 0 or -1.
int OpenVantorixFile(const std::string& path, Spectrum& worker, bool quiet, Ui& ui);
int OpenVantorixVFD(const std::string& path, Spectrum& worker, bool quiet, Ui& ui);

}  // namespace vx
