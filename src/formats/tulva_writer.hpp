// Writers of Tulva time-domain data files.
//
// A new data file is never written from scratch: an existing file is the
// template. Its header is copied line by line, so the experiment script and
// every key line survive; only the lines that must change (signature, counts,
// storage type) are replaced, and the new samples follow. Every file goes to a
// temporary file beside the target and replaces it only when complete; the
// source is only ever opened for reading.
#pragma once

#include <cstdio>
#include <string>

#include "workspace/workspace.hpp"

namespace vx {

class Ui;

struct TulvaWriteOptions {
    // 0: the writer of the source's own generation. 4, 3 or 2: that writer,
    // and a signature line of that generation ("Vantorix Data File v4.00",
    // "TULVA Data File v3.00", "TULVA Data File v2.0").
    int version = 0;
    // A source header without "Storage Type:" keeps lacking it, and the written
    // float samples then read back as 16-bit integers. With storage_line set,
    // the writer adds "Storage Type: float" (double for SED) before the marker
    // of such a header.
    bool storage_line = false;
};

// What a header writer met in the source.
struct HeaderCopyResult {
    bool marker_seen = false;       // the source's "Data:" line was reached
    bool storage_type_seen = false; // the source header names its storage type
};

// Header writers. source is read from its current position (its start), out
// receives the new header. n is the new sample count; sed selects the SED
// form (no marker, the phase lines of CopySEDParameters behind the header);
// marker matters to the v3 writer only (write the "Data:" line). Lines end in
// LF; empty lines of the source are kept. Return 0.
int Write_Tulva_Data_v40(std::FILE* source, std::FILE* out, int sed, const Spectrum& spectrum, int n, int marker,
                         const TulvaWriteOptions& options = {}, HeaderCopyResult* result = nullptr);
int Write_Tulva_Data_v30(std::FILE* source, std::FILE* out, int sed, const Spectrum& spectrum, int n, int marker,
                         const TulvaWriteOptions& options = {}, HeaderCopyResult* result = nullptr);
// The v2.0 writer has always been the v3 writer.
int Write_Tulva_Data_v20(std::FILE* source, std::FILE* out, int sed, const Spectrum& spectrum, int n, int marker,
                         const TulvaWriteOptions& options = {}, HeaderCopyResult* result = nullptr);

// The phase lines of an SED file: "Phased_Zero= %f", "Phased_First= %f",
// "Phased_Intercept= %i", "DOMAIN= %i", "Phased_Datacount= %i".
void CopySEDParameters(const Spectrum& spectrum, std::FILE* out);

// Outcome of copying a header into an open output.
enum class HeaderCopy {
    Written,      // the header is in out
    NotTulva,     // the first line names no Tulva data file: nothing written, no message
    NoVersion,    // a Tulva file of no known version: nothing written, no message
    Failed,       // refused or unreadable, after the message
};

// The work of CopyHeader on an open output (the target's temporary file):
// refuses sourcepath == outpath, unpacks a .Z source, picks the writer by the
// source's signature line (v2.0: sed forced off).
HeaderCopy copy_header_into(const std::string& sourcepath, const std::string& outpath, std::FILE* out, int sed,
                            const Spectrum& spectrum, int n, int marker, Ui& ui,
                            const TulvaWriteOptions& options = {}, HeaderCopyResult* result = nullptr);

// CopyHeader: writes outpath holding the new header only. Returns 0 (also for a
// source of no known version, which leaves no output), or -1 on a refusal.
int CopyHeader(const std::string& sourcepath, const std::string& outpath, int sed, const Spectrum& spectrum, int n,
               int marker, Ui& ui, const TulvaWriteOptions& options = {});

// Appends count float32 to the file at path (the file is rewritten through a
// temporary file, so a short write leaves it as it was). Returns 0 or -1.
int StoreNewData(const float* array, std::size_t count, const std::string& path);
// part 0 writes "Real Data:\n", part 1 "\n\nImaginary Data:\n", then count
// float64. A short write prints "Check count not right." and returns -1.
int StoreNewDataSED(const double* array, std::size_t count, const std::string& path, int part, Ui& ui);

// The walking calibration block (lines in LF, regions as four raw float64 in
// the file order A, start frequency, B, end frequency) written to out.
int StoreWalkingCalibration(const Spectrum& spectrum, std::FILE* out);

// SaveasTULVA: the time-domain record of slot panelindex as a new data file
// made from its own source file. Without haspath the path is asked for. mode
// 2, 4 or 6 adds the walking block behind the header. Returns 0, or -1 after
// its message.
// found (when given) receives what the header copy met in the source.
int SaveasTULVA(Workspace& ws, bool haspath, std::string path, int panelindex, int mode, Ui& ui,
                const TulvaWriteOptions& options = {}, HeaderCopyResult* found = nullptr);

// SaveasTULVA_SEDFT: the double channels of the phased SED record as an .ftd
// file. Returns 0, or -1 after its message.
int SaveasTULVA_SEDFT(Workspace& ws, bool haspath, std::string path, Ui& ui);

// The two channels of slots first and second as one two-channel (SED) data
// file made from the first record's source file, in a form both header
// generations read back. A time-domain pair goes as float blocks: the header
// with its "Data:" line, block 1, "SED Data:", block 2. A transformed pair goes
// as double blocks (the first record's realdata64/imagdata64 when it holds
// them, the float channels widened otherwise) behind the SED header and its
// phase lines, with a "Data:" line at column 0 so that v4 finds its marker
// (the .ftd form of SaveasTULVA_SEDFT has none). Returns 0, or -1 after its
// message.
int save_sed_channels(Workspace& ws, const std::string& path, int first, int second, Ui& ui);

}  // namespace vx
