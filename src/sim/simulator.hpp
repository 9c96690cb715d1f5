// The transient simulator: synthetic FT-ICR transients with known truth.
//
// Each ion of a list is a decaying cosine at the cyclotron frequency that the
// calibration law of the header gives its m/z, detected directly, against a
// reference (heterodyne) or in quadrature, with the phase that a linear chirp
// excitation leaves it at the first sample. The result is a Tulva v4 data file
// whose header carries the experiment script of that excitation, so that the
// reader, the processing chain and the phase model all see a real-looking file.
// docs/simulator.md states the model.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "workspace/spectrum.hpp"

namespace vx {

class Ui;

struct SimIon {
    double mz = 0.0;
    double abundance = 0.0;  // amplitude of the ion's signal at the first sample, volts
    double decay = 0.0;      // exponential decay time constant, s; 0 = no decay
    double phase = 0.0;      // extra phase, radians, added to the excitation phase
    int polarity = 1;        // +1 positive ion, -1 negative ion (seen apart only in quadrature)
};

// Noise of the command line's simulations unless told: 2 mV rms on every
// sample, the order of a real acquisition's digitiser noise on this program's
// volt scale (524288 counts of a 32-bit digitiser to the volt, the factor of
// the Bruker writer); docs/peak-picking.md gives the measurement. With it the
// default peak thresholds meet a simulated spectrum as they meet a real one.
inline constexpr double DIGITISER_NOISE_V = 0.002;

struct SimParameters {
    std::int32_t points = 65536;  // "Data Points:": samples of the file (floats; pairs in quadrature)
    double dbandwidth = 1000000.0;
    std::int32_t detectmode = DETECT_DIRECT;  // 0 direct, 1 heterodyne, 2 quadrature
    double reffreq = 0.0;
    double Aterm = DEFAULT_ATERM;
    double Bterm = DEFAULT_BTERM;
    double Trapvoltage = 1.0;
    double noise = 0.0;         // rms of the Gaussian noise on every sample, volts
    std::uint64_t seed = 1;
    bool int_storage = true;    // int16 with a voltage scale; false: float32
    double voltage_scale = 0.0; // volts per count of int16 storage; 0 chooses one
    // The chirp of the experiment script: Hz, Hz per microsecond, seconds.
    double lowfreq = 20000.0;
    double highfreq = 500000.0;
    double sweeprate = 150.0;
    double delay = 0.0005;      // from the end of the excitation to the first sample
    double quench_time = 0.01;  // the event before the excitation
    std::string collected_on;   // "Data Collected on " text; empty: today (UTC)
    std::string source_name;    // named in the header comment (the ion list)
    std::int32_t expcount = 1;  // experiments summed in the file ("expcount:")
    // Two-channel ("Collection Mode: SED") file: the second channel is the
    // signal of a detector pair a quarter turn on (each ion's phase less
    // pi / 2), with noise of its own (seed + SED_SEED_STEP), in a block behind
    // a "SED Data:" line.
    bool sed = false;
};

inline constexpr std::uint64_t SED_SEED_STEP = 0x5ED;

// Reads an ion list: one ion a line, "m/z, abundance[, decay s[, phase rad[, polarity]]]";
// blank lines and text after '#' are ignored, a first line of column names is
// skipped. Returns 0, or -1 after an "Ion list error" message.
int read_ion_list(const std::string& path, std::vector<SimIon>& ions, Ui& ui);

// Checks the parameters; returns 0 or -1 after a "Simulator error" message.
int check_parameters(const SimParameters& p, Ui& ui);

// Cyclotron frequency of an m/z under the header's calibration law, through the
// axis conversions of a spectrum of the simulated file.
double ion_frequency(const SimParameters& p, double mz);
// Duration of the chirp, seconds.
double excite_time(const SimParameters& p);
// Phase of an ion of frequency f at the first sample left by the chirp:
// -pi (f - lowfreq)^2 / R + 2 pi f (excite_time + delay), R the signed sweep rate in Hz/s.
double excitation_phase(const SimParameters& p, double f);

// The samples in volts (interleaved I, Q in quadrature). Returns 0 or -1 after a message.
int simulate_samples(const SimParameters& p, const std::vector<SimIon>& ions, std::vector<float>& volts, Ui& ui);

// The header text up to and including the "Data:" line (LF line ends).
std::string simulated_header(const SimParameters& p, const std::vector<SimIon>& ions, double voltage_scale);

// Simulates and writes a "Vantorix Data File v4.00". Returns 0 or -1 after a message.
int write_simulated_file(const std::string& path, const SimParameters& p, const std::vector<SimIon>& ions, Ui& ui);

}  // namespace vx
