// Spectrum exports: comma-separated text, raw binary, the binary block of
// intensities with masses, and the .wav-like block.
#pragma once

#include <string>

#include "workspace/spectrum.hpp"
#include "workspace/workspace.hpp"

namespace vx {

class Ui;

enum RawSpectrumKind : int {
    RAW_TEXT = 0,    // "Save Spectrum as ASCII", *.csv
    RAW_BINARY = 1,  // datacount raw float32
    RAW_BLOCK = 2,   // five int32, datacount masses, datacount samples
};

// The writers on one record; each returns 0 or -1 after a message.
// Text is written as through a text-mode file: every line ends in CR LF.
int write_spectrum_text(const Spectrum& spectrum, const std::string& path, Ui& ui);
int write_spectrum_binary(const Spectrum& spectrum, const std::string& path, Ui& ui);
int write_spectrum_block(const Spectrum& spectrum, const std::string& path, Ui& ui);
int write_wave_file(const Spectrum& spectrum, const std::string& path, Ui& ui);

// The commands on the active panel. An empty path asks for one with the file
// dialogue of the kind; kind 1 asks for the (unused) scale factor; kind 2 adds
// ".bin" when absent and asks before it overwrites a file.
int SaveRawSpectrum(Workspace& ws, int kind, const std::string& path, Ui& ui);
int SaveWaveFileFormat(Workspace& ws, const std::string& path, Ui& ui);

// The export kind an output name asks for: ".xy.bin" 2, ".bin" 1, ".csv" 0,
// ".wav" 3; -1 for any other name.
int export_kind_of(const std::string& path);
inline constexpr int EXPORT_WAVE = 3;

}  // namespace vx
