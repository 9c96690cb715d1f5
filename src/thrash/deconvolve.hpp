// The plot panel's charge deconvolution: the charge of the tallest peak of a
// region from its isotope spacing (well resolved, LOWZ) or from the ladder of
// its charge states (poorly resolved, HIGHZ), and the mass spectrum built by
// moving every peak group onto a neutral-mass axis.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vx {

struct Spectrum;

// The current display: masses falling from the start, intensities, and the
// charge that took each point (0 free).
struct PlotData {
    std::vector<double> mass;
    std::vector<float> intensity;
    std::vector<std::int16_t> mark;
    double ppm = 20.0;  // the panel's tolerance of get_max_height
};

// The display of a spectrum between two m/z (reassign_display).
PlotData reassign_display(const Spectrum& s, double low_mz, double high_mz);

void find_peak(const PlotData& d, long top, int width, int points, long* low_out, long* high_out, double floor);
double auto_find_threshold(const PlotData& d, long low, long high, double* mean_out, double* sigma_out);
double find_intensity(const PlotData& d, double mass_at);
long find_peaktop(const PlotData& d, long index);
double score_low_charge(const PlotData& d, long index, int charge, double threshold, int mode);
double get_max_height(const PlotData& d, double mass);
double score_high_charge(const PlotData& d, long index, int charge, double threshold);
// limit: the highest neutral mass considered, kDa.
int determine_high_charge(const PlotData& d, long index, double threshold, double limit_kda);
int determine_low_charge(const PlotData& d, long index, double threshold);
int determine_mixed_charge(const PlotData& d, long index, double threshold, double limit_kda);

enum DeconvMode { DECONV_LOWZ = 0, DECONV_HIGHZ = 1, DECONV_MIXED = 2 };

struct MassSpectrum {
    std::vector<double> mass;
    std::vector<double> intensity;
};

struct DeconvOptions {
    int mode = DECONV_LOWZ;
    // Resolving power of the neutral-mass grid (steps of 1 + 1 / resolution).
    // The panel's fixed 4.0 would make steps of 25 %; the command line starts
    // from 100000 and takes --resolution.
    double resolution = 100000.0;
    double limit_kda = 100.0;
};

// PlotSpectrumDeconvCallback: peaks in order of falling height, each group
// moved to neutral masses and added. Returns the number of groups.
int deconvolve(PlotData& d, const DeconvOptions& o, MassSpectrum& out);

// "  %f        %f\n" lines of the plot save.
std::string mass_spectrum_text(const MassSpectrum& m);

}  // namespace vx
