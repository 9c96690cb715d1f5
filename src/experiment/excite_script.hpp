// The excitation an experiment script performed, read from the script in the
// header of a data file (or a .exp file): the family of GetExciteTime readers.
//
// In a script the "time:" line of an event stands before the line that names
// the event's kind ("excite:", "detect:"), so the walk keeps the last time seen
// and charges it to whatever the next kind line says.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "workspace/spectrum.hpp"

namespace vx {

class Ui;

// What one walk of a script up to its "Data:" line found.
struct ExciteScript {
    bool data_marker = false;  // the "Data:" line was reached
    std::string mode;          // rest of the "emode:" line
    double low = 0.0, high = 0.0, rate = 0.0, loops = 1.0;
    double delay = 0.0;              // end of the excitation to the first sample, s
    double excite_event_time = 0.0;  // the excite event's own "time:", s
    double bw = 0.0;                 // "dbandwidth:"
    bool chirp() const;              // mode names a chirp and is no SWIFT waveform
    // loops * |high - low| / rate / 1e6 (0 for a zero rate).
    double chirp_time() const;
};

// Walks the script lines of text up to the "Data:" line. hifreq_quirk drops
// the first two characters of a "hifreq:" value, as GetExciteTime2 reads it.
// Prints "dband_width = %f" for every "dbandwidth:" line when ui is given.
ExciteScript scan_excite_script(std::string_view text, bool hifreq_quirk, Ui* ui);

// Reads the header of path up to and including the "Data:" line (at most
// max_bytes). Returns 0, 1 when the end came without a "Data:" line, or -1 when
// the file cannot be read (no message).
int read_script_text(const std::string& path, std::string& text, std::size_t max_bytes = 8u << 20);
// The same over a file open at its start (a data file or an unpacked archive).
int read_script_text(std::FILE* f, std::string& text, std::size_t max_bytes = 8u << 20);

// The excite time in seconds, or -1.0 after "No Data Marker Found" when the
// script has no "Data:" line. The five outputs (each may be null) are written
// only for a chirp. compute != 0: loops * |hi - lo| / rate / 1e6; compute == 0:
// the excite event's time as the script states it, which is also what a
// non-chirp excitation returns. quiet == 0 prints the open and close lines.
double GetExciteTime(const std::string& path, double* hi, double* lo, double* rate, double* delay, double* bw,
                     int compute, int quiet, Ui& ui);
// Always the computed chirp time, 0.0 for no chirp; hi == nullptr suppresses all outputs.
double GetExciteTime2(const std::string& path, double* hi, double* lo, double* rate, double* delay, double* bw,
                      Ui& ui);
// Stores exciteduration, highfreq, lowfreq, sweeprate and delay into the record
// (from spectrum.filename) and returns the excite time; the record is left alone
// when the script holds no chirp.
double GetExciteTime3(Spectrum& spectrum, Ui& ui);
// GetExciteTime without the console lines.
double GetExciteTime4(const std::string& path, double* hi, double* lo, double* rate, double* delay, double* bw,
                      int compute, Ui& ui);

// The sample index of time t: ceil(2 t BW).
long long Time_topt(const Spectrum& spectrum, double t);

}  // namespace vx
