// Readers of the instruments beside the native family: Odyssey transients
// (big-endian, with a parameter table), the two headerless float layouts of
// collaborators (Melbar, Vosk), time-of-flight text, and chromatograms made of
// a series of peak-list files.
//
// Each reader sets the defaults of Set_Default_Parameters, fills the Spectrum
// and returns 0, or -1 after it has shown its own message.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "workspace/workspace.hpp"

namespace vx {

class Ui;

// Byte order helpers of the Odyssey layout. Flip_float byte-reverses count
// 32-bit values in place; Flip_double swaps the two 32-bit halves of a double
// and returns it; Unflip_double is its inverse.
void Flip_float(float* values, std::size_t count);
double Flip_double(double& value);
double Unflip_double(double& value);

// The text an Odyssey file carries behind its header.
inline constexpr const char* ODYSSEY_SCRIPT = "Odyssey instrument control script";

// Whether the bytes (the first bytes of a file) are an Odyssey file: the text
// line behind the 52-byte header holds the script line.
bool looks_like_odyssey(const std::string& head);

// Odyssey transient (.Z archives too, when a zip tool is set).
int Get_Odyssey_Data(Workspace& ws, const std::string& path, Spectrum& spectrum, Ui& ui);

// The answers of the points/channel dialogue. points 0: every record of the
// file (Melbar) or the header's count (Vosk).
struct PointsChannel {
    int points = 0;
    int channel = 0;
};
// The dialogue's presets: Melbar channel 0; Vosk channel 4 with the channel
// control disabled. Only Vosk channel 5 fills the samples (see Get_Vosk_Data),
// so our own opening road passes VOSK_WORKING_CHANNEL instead of the preset.
inline constexpr int MELBAR_PRESET_CHANNEL = 0;
inline constexpr int VOSK_PRESET_CHANNEL = 4;
inline constexpr int VOSK_WORKING_CHANNEL = 5;

// Melbar: raw float32 records (a, b, c, d, e). Channel 0 takes c, 1 atan(d/c),
// 3 e, 4 d; channel 2 fills nothing (the samples stay zero).
int Get_Melbar_Data(const std::string& path, Spectrum& spectrum, const PointsChannel& dialogue, Ui& ui);

// The five header floats of a Vosk file.
struct VoskHeader {
    int points = 0;       // rounded
    double timestep = 0;  // seconds per point
    int channels = 5;     // floor; 0 means 5
};
int read_vosk_header(const std::string& path, VoskHeader& header, Ui& ui);

// Vosk: five header floats, then points x channels float32 values record by
// record. Only channel index 5 is implemented (the second value of each
// record); any other index leaves the samples zero, as the dialogue's preset
// channel 4 does. quiet: no dialogue (the given answers stand).
int Get_Vosk_Data(const std::string& path, Spectrum& spectrum, const PointsChannel& dialogue, bool quiet, Ui& ui);

// Time-of-flight text: lines "x y". bin: the answer to the bin prompt; unset
// asks through ui. Sizes outside (0, 100] mean no binning.
int Get_Standing_TOF(const std::string& path, Spectrum& spectrum, std::optional<double> bin, Ui& ui);

// A chromatogram of peak-list files, one point per file, domain 4.
int Get_Tulva_Lcms_Data(const std::vector<std::string>& list, Spectrum& spectrum, Ui& ui);

// Opens the raw file of one point of a chromatogram into spectrum (its
// "_Z.pks" name turned into ".Z"), by the record's filetype.
int Open_LCMS_Data_file(Workspace& ws, const std::string& path, Spectrum& spectrum, Ui& ui);

// The raw data file a scan's peak list stands for: "_Z.pks" becomes ".Z".
std::string lcms_raw_name(const std::string& pks);

// Opening-road readers (PanelReader): the slot's record from path, with the
// answers of ws.open_options.
int read_odyssey_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui);
int read_melbar_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui);
int read_vosk_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui);
int read_tof_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui);

}  // namespace vx
