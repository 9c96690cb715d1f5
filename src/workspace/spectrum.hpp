// The records every subsystem meets on: one data set (Spectrum), one row of its
// peak list (Peak), the walking-calibration and calibrant rows it owns, and the
// enumerations of its fields.
//
// Field names are the names the file headers, the writers and the panels use;
// their mixed styles are historical and kept so that a header key, a record field
// and a panel control can be matched by eye.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace vx {

enum DataDomain : std::int32_t {
    DOMAIN_TIME = 0,
    DOMAIN_FREQUENCY = 1,
    DOMAIN_MASS = 2,         // frequency data displayed in m/z
    DOMAIN_PEAKLIST = 3,     // sticks
    DOMAIN_CHROMATOGRAM = 4, // time axis of a list of scans
    DOMAIN_PROFILE = 5,      // m/z profile with explicit xvalues
};

enum DetectMode : std::int32_t {
    DETECT_DIRECT = 0,
    DETECT_POSITIVE_HETERODYNE = 1,  // reference below the signal
    DETECT_QUADRATURE = 2,           // complex pairs interleaved in data
    DETECT_NEGATIVE_HETERODYNE = 3,  // reference above the signal
};

enum XMode : std::int32_t {
    XMODE_POINT = 0,
    XMODE_TIME = 1,
    XMODE_MZ = 2,
    XMODE_FREQUENCY = 3,
    XMODE_CHROMATOGRAM = 4,
    XMODE_PEAKS = 5,
    XMODE_MZ_XVALUES = 6,
};

// Axis label of each XMode, as the graph shows it.
const char* xmode_label(int xmode);

enum FileType : std::int32_t {
    FILETYPE_TULVA = 0,
    FILETYPE_ODYSSEY = 1,
    FILETYPE_BRUKER = 2,
    FILETYPE_PEAKLIST = 3,
    FILETYPE_PROFILE = 4,  // Thermo and other profile data with xvalues
};

enum CalType : std::int32_t {
    CALTYPE_TWO_TERM = 0,
    CALTYPE_INVERTED = 1,
    CALTYPE_THREE_TERM = 3,
    CALTYPE_WALKING = 4,
    CALTYPE_WALKING_SECOND = 5,
    // The law apex/solariX instruments store with their data, Aterm/Bterm/Cterm
    // = ML1/ML2/ML3: f = ML1/m + ML2 + ML3/m^2, or m = ML1/(f + ML2) when ML3 is 0.
    CALTYPE_INSTRUMENT = 6,
};

inline constexpr int MAX_PANELS = 32;
inline constexpr double DEFAULT_ATERM = 47536770.867829;
inline constexpr double DEFAULT_BTERM = -3379711463.376564;

// One row of the peak list, ascending m/z.
struct Peak {
    double abundance = 0.0;        // parabola height through the top three points
    double index = 0.0;            // fractional data point of the apex
    double frequency = 0.0;        // Hz
    double width = 0.0;            // FWHM in m/z (1000.0 / 0 flags until CalculateRP)
    double mass = 0.0;             // apex m/z, present calibration
    double sn = -1.0;              // signal to noise, -1 until computed
    double relabundance = 0.0;     // percent of the largest peak
    double resolvingpower = -1.0;  // mass / width, -1 without a width
    double reserved = 0.0;
    std::int32_t iscalibrant = 0;
    std::int32_t calibrantrow = -1;
    double calmass = -1.0;
};

// One region of a walking calibration: a two-term law between two calibrants.
struct WalkingRegion {
    double A = 1.0;
    double B = 1.0;
    double startfreq = 1.0;
    double endfreq = 1.0;
    double highedge = 1.0;
    double lowedge = 1.0;
    double startmz = 1.0;
    double spare1 = 1.0;
    double endmz = 1.0;
    double spare2 = 1.0;
    std::int32_t startpeak = -1;
    std::int32_t endpeak = -1;
    std::int32_t terms = 2;
    double trapvoltage = 200.0;
};

// One row of the calibrant list of a spectrum.
struct Calibrant {
    double frequency = 0.0;
    double theoretical = 0.0;
    double spare = 0.0;
    std::int32_t peaknumber = 0;
};

// Twelve element counts of an assigned peak: C, H, N, O, S, P, user 1 to 6.
using ElementCounts = std::array<std::int32_t, 12>;

// One peak of a Kendrick calculation (filled by the composition subsystem).
struct HitRecord {
    std::int32_t hit_code = 0;
    std::int32_t kmd = 0;
    std::int32_t source_index = 0;
    std::int32_t z_star = 0;
    std::int32_t series = -1;
    std::int32_t isotope_code = 0;
    double dbe = 0.0;
    double theoretical_mass = -1.0;
    double score = 0.0;
    double mass = 0.0;
    double relabundance = 0.0;
    double resolvingpower = 0.0;
    std::string formula_text;  // at most 160 characters
    std::string class_text;    // at most 56 characters
    ElementCounts counts{};
    double sn = 0.0;
    double abundance = 0.0;
    double reserved = 0.0;
    double error = 1000.0;
    double frequency = 0.0;
    std::array<std::int32_t, 4> isotope_flags{};
};

// Widths of the fixed text fields of the record (characters including the end).
inline constexpr std::size_t FILENAME_WIDTH = 256 + 4;
inline constexpr std::size_t COLLECTEDON_WIDTH = 100;
inline constexpr std::size_t PROJECTCODE_WIDTH = 10;
inline constexpr std::size_t COLLECTEDBY_WIDTH = 102;

// One data set: header, sample arrays, peak list, calibration and phase terms.
// The record owns its arrays; replacing data replaces the vector.
struct Spectrum {
    std::vector<float> data;          // transient, or spectrum after a transform
    std::vector<float> data2;         // THRASH working copy
    std::vector<double> xvalues;      // explicit x per point (profiles, chromatograms)
    std::vector<Peak> peaks;
    std::vector<HitRecord> assigned, unassigned;  // even / odd nominal-mass Kendrick arrays
    std::vector<double> realdata64, imagdata64;   // double channels of stored frequency data
    std::vector<float> realdata, imagdata;        // complex spectrum kept for phasing
    std::vector<double> phase;                    // phase function, radians per point
    std::vector<float> xcaldata;
    std::vector<double> xcalnoise, xcalbaseline;

    double Zeroorder = 0.0;
    double OptimizedFirstorder = 0.0;
    double OptimizedSecondorder = 0.0;
    std::int32_t ZeroDegrees = 0;
    std::int32_t Phased_Intercept = 0;
    std::int32_t Phased_Datacount = 0;
    double phasescale = 0.0;
    std::vector<double> rephase_dterms;
    std::vector<std::int32_t> rephase_initial, rephase_final;
    std::int32_t rephase_sections = 0;
    std::int32_t scorepoints = 0;
    std::vector<double> scorearray, scoreA, scoreB;
    std::int32_t Truncations_stored = 0;
    std::int32_t Zerofills_stored = 1;
    std::int32_t Rephased = 0;
    std::int32_t sed = 0;
    std::int32_t peakcount = 0;
    double initMz = 0.0, finalMz = 0.0;
    double peakabundance = 0.0, peakprofile = 0.0;
    std::int64_t peakstart = 0, peakend = 0;
    std::int32_t overRideThrashNoiseCalculation = 0;
    double noisesigma = 0.0, noisemean = 0.0;
    std::int32_t domain = DOMAIN_TIME;
    std::int32_t datacount = 16384;
    std::int32_t storedcount = 0;
    double dbandwidth = 1000000.0;
    std::int32_t detectmode = DETECT_DIRECT;
    double reffreq = 0.0;
    std::int32_t caltype = CALTYPE_TWO_TERM;
    double Aterm = DEFAULT_ATERM;
    double Bterm = DEFAULT_BTERM;
    double Cterm = 0.0;
    double calcoeff3 = 0.0, calcoeff4 = 0.0;
    std::vector<WalkingRegion> walking;
    std::vector<Calibrant> calibrants;
    std::int64_t calibrantcount = 0;
    std::int64_t calextra1 = 0, calextra2 = 0;
    std::int32_t calapplied = 0;
    std::int32_t walkingregions = 0;
    std::int32_t walkingterms = 0;
    std::int32_t walkingrows = 0;
    double calfreqlow = 0.0, calfreqhigh = 0.0;
    double Trapvoltage = 1.0;
    double detectstart = 0.0;
    std::string filename;       // full path; also the window title
    std::string title2;         // second name, e.g. "Sum of %i Files"
    std::int32_t rootselect = 0;
    std::int32_t timedomainfile = 1;
    std::int32_t ionpolarity = 0;
    double parentmass = 0.0;
    std::string collectedon = "Unknown";
    std::string projectcode = "Unknown";
    std::string collectedby = "Unknown";
    std::int32_t dateserial = 0;
    std::int32_t filetype = FILETYPE_TULVA;
    std::vector<std::string> lcmsfiles;
    std::int32_t lcmscurrent = -1;
    std::int32_t lcmscount = 0;
    std::int32_t Truncations = 0;
    std::int32_t apodization = 0;
    std::int32_t baselinecorrected = 0;
    std::int32_t Zerofills = 0;
    std::int32_t expcount = 1;
    double exciteduration = -1.0;
    double lowfreq = -1.0, highfreq = -1.0;
    double sweeprate = -1.0, delay = -1.0;
    double detectbw = -1.0;
    double phaseconstant = 0.0;
    double initialconstant = 0.0;
    std::int32_t zoomlow = 0, zoomhigh = 0;
    std::int32_t usephasedelay = 1;
    std::int32_t phaseparams = 0;
    std::int32_t storagemode = 0;
    double relativex = -1.0;
    std::int32_t storageinfo = 0;
    std::int32_t zoomed = 0;
    std::int32_t Zoomcount = 0;
    std::int32_t StartIndex = 0;
    double hzppt = 0.0;
    std::int32_t sedflag = 0;
    std::int32_t timeshift = 0;
    double origlowfreq = -1.0, orighighfreq = -1.0;
    std::int32_t kendrickleft = -1, kendricktop = -1;
    std::int32_t unassignedcount = 0, assignedcount = 0;
    std::int32_t calfile = 0;
};

// Defaults that every reader sets before it looks at the first header line.
void Set_Default_Parameters(Spectrum& spectrum);

// State of a record in a freshly reserved slot, before its reader runs.
void SetDefaultParametersForNewSpectrum(Spectrum& spectrum, int filetype);

// Rephased = 0 and the three rephase arrays released.
void InitializeRephase(Spectrum& spectrum);

// Frees every array of the record (what closing a graph window does).
void free_arrays(Spectrum& spectrum);

// The row defaults of a walking calibration region.
void SetDefaultWalkingCalVals(Spectrum& spectrum, int row);

}  // namespace vx
