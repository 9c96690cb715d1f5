// Hand-assembled files of the other instruments, built from their layouts
// without the readers' code: Odyssey (big-endian, with a parameter table),
// Melbar and Vosk float records.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace vx::test {

// Big-endian bytes of 32-bit values and of doubles (most significant half first).
std::string be32_bytes(std::uint32_t v);
std::string be_float_bytes(float v);
std::string be_double_bytes(double v);

struct OdysseyFile {
    std::vector<float> samples;
    float bandwidth = 1000000.0f;     // "Signal_Bandwidth", type 6
    double reffreq = 0.0;             // "Reference_Frequency", type 7
    double trap = 1.0;                // "Trap_Voltage", type 4 (double past the entry)
    int calib_type = 1;               // "Calib_Type", type 71
    int heterodyne = 0;               // "Heterodyne_Flag", type 71
    double coefficients[5] = {0, 0, 0, 0, 0};  // "Calib_Coefficient_Table"; all 0: no table
    std::uint32_t first_section = 16; // size a
    bool script = true;               // false: the script line is missing
};

// The bytes of an Odyssey data file; the layout is commented in the source.
std::string odyssey_bytes(const OdysseyFile& f);

// Melbar: records (a, b, c, d, e) as little-endian floats.
std::string melbar_bytes(const std::vector<std::array<float, 5>>& records);

// Vosk: the five header floats (points, time step, channels, 0, 0), then
// points x channels floats; channel 2 (the second value) holds samples, the
// others the record index times -1 (so that reading the wrong one shows).
std::string vosk_bytes(const std::vector<float>& samples, float timestep, int header_channels, int channels);

}  // namespace vx::test
