// The excitation of an apex/solariX acquisition, read from its method folder,
// as the phase curve of an absorption-mode run needs it.
//
// The instrument excites with a stepped frequency sweep: the pulse program
// (PULPROG__basic.compiled beside apexAcquisition.method) runs a loop
//     EXC_SWP, (p3 ph1 fq1):f1
//        lo to EXC_SWP times l31
// so the sweep has L_31 steps of P_3 microseconds each, from one end of the
// band EXC_low..EXC_hi (m/z, turned into Hz with the file's calibration) to the
// other; after the loop, the events up to "go" (the start of detection) make
// the delay. The sweep goes from high to low frequency (low to high m/z) unless
// the method says otherwise (REVERSE 0). Parameter names are read from the
// pulse program when it is there, so a method that runs its sweep on other
// P_/L_ slots is read correctly; without it the basic program's slots are taken
// and the excitation says so in its notes.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "workspace/spectrum.hpp"

namespace vx {

class Ui;

struct BrukerExcitation {
    std::string method_file;     // apexAcquisition.method read
    std::string pulse_program;   // the compiled pulse program read ("" when absent)
    double exc_low_mz = 0.0, exc_hi_mz = 0.0;  // m/z limits of the sweep
    double low_hz = 0.0, high_hz = 0.0;        // the same limits in Hz (low_hz < high_hz)
    double start_hz = 0.0, end_hz = 0.0;       // where the sweep begins and ends
    std::string steps_name = "L_31", step_time_name = "P_3";  // parameters of the loop
    long long steps = 0;          // frequency steps in the sweep
    double step_time = 0.0;       // s per step
    double sweep_time = 0.0;      // steps * step_time, s
    double rate = 0.0;            // signed sweep rate, Hz per microsecond (negative: downward)
    double delay = 0.0;           // s from the end of the sweep to the start of detection
    double bandwidth = 0.0;       // SW_h, Hz
    bool complete = false;        // the loop and the events to detection from the pulse program, DE given
    std::vector<std::string> notes;  // how each value was found
};

// The excitation of the acquisition directory (or a file inside it). Returns 0,
// or -15 after "Insufficient information to phase data." with the reason when
// the method lacks a value or gives one that cannot be a sweep.
int read_bruker_excitation(const std::string& path, BrukerExcitation& out, Ui& ui);

// The same from values already read (name -> text) and the text of the
// compiled pulse program ("" when there is none); the pieces the reader above
// is made of, for tests. Returns 0, or -15 after the message.
int bruker_excitation_from(const std::map<std::string, std::string>& values, const std::string& pulse_program,
                           BrukerExcitation& out, Ui& ui);

// Durations (s) of the pulse-program events between the end of the sweep loop
// and "go" (with the pre-scan delay DE, microseconds, that "go" waits before
// its first sample), with the P_/D_ values of the method; the loop's step
// time and count parameters by name. found is false when the program has no
// frequency-sweep loop followed by "go".
struct SweepLoop {
    std::string step_time_name, steps_name;
    double delay = 0.0;
    bool found = false;
    bool prescan = false;  // DE was part of the delay
};
SweepLoop find_sweep_loop(const std::string& pulse_program, const std::map<std::string, std::string>& values);

// The excitation into the record's phase fields: lowfreq = the start of the
// sweep, highfreq = its end (so that the sign of the rate follows from their
// order), sweeprate unsigned in Hz/us, delay, exciteduration.
void apply_bruker_excitation(const BrukerExcitation& e, Spectrum& s);

}  // namespace vx
