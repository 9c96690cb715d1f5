// Start-up settings: the defaults of Initialize, the keys of ftmsdata.ini and
// the options of the processing chain and of the analysis panel. One record,
// passed to the functions that read it.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vx {

class Ui;

// One Formula Calculator's page of the user preference file: the keys
// CARBONMAX ... NEUMODE, each saved with the suffix of its page.
struct FormulaPreferences {
    int CARBONMAX = -1;  // -1: as many as the mass allows
    int HYDROGENMAX = -1;
    int NITROGENMAX = 1;
    int OXYGENMAX = 30;
    int SULFURMAX = 1;
    int PHOSPHOROUSMAX = 0;
    std::array<int, 6> USERMAX{1, 1, 0, 0, 0, 0};  // USER1MAX ... USER6MAX
    int ALLOWRADS = 1;
    double MASSACCURACY = 10.0;  // ppm
    int POSMODE = 0, NEGMODE = 1, NEUMODE = 0;
};

struct Settings {
    // ftmsdata.ini
    std::string PLOTTOOL;           // program launched by "Export to PlotTool"
    std::string WINZIP;             // empty: ".Z" handling off; any text: unpack in-process
    std::string TEMP;               // folder for unpacked and temporary files
    double mass_zoom_limit = 0.0;   // HIGHMASS; 0 means no limit
    int dragdrop_type = 0;          // DRAGNDROPFTYPE: 0 Tulva, 1 Odyssey, 2 Bruker
    double autocal_error_limit = 1.0;
    int autocal_ppm = 1;
    int thrash_window = 1;
    int quick_zoom = 1;
    int fftspeed = 0;

    // Graph defaults
    bool grid_x = false, grid_y = false;
    int kendrick_left = 60, kendrick_top = 100;

    // Options of the processing chain ("Process Options")
    int baselinecorrect = 1;
    int transform = 1;      // FFT/Magnitude
    int apodization = 3;    // Hann
    int zerofills = 1;
    int truncations = 0;
    int boxcar = 0;

    // Analysis panel ("Find Peak Options")
    double peak_threshold = 20.0;
    double noise_threshold = 5.0;
    double min_peak_width = 3.0;
    double noise_sigma_factor = 2.0;
    int sn_mode = 0;
    double noise_window = 5.0;
    double low_mass = 0.0;           // search limits in m/z; 0: never set
    double high_mass = 0.0;
    double abundance_scale = 1.0;    // factor of the scaled abundance column
    double peak_sigma_factor = 3.0;  // S/N mode: peak level = baseline + this x width
    int percent_thresholds = 0;      // thresholds are percent of the largest sample
    int global_noise = 0;            // one noise estimate for the whole range
    // S/N searches judge each peak against robust_noise (its own samples and
    // those of its neighbours left out) instead of the plain window estimate,
    // whose width a strong peak inflates. Off: the literal method, which the
    // batch commands and stored results use.
    int robust_noise = 0;
    int notches_on = 0;              // exclude the m/z ranges of the notch table
    std::vector<std::pair<double, double>> notches;  // low, high m/z of each excluded range

    // Phase search range
    double phase_search_low = 300000.0;
    double phase_search_high = 1800000.0;

    // Decimals of the peak table
    int PEAKMZ = 7, peak_decimals_2 = 5, peak_decimals_3 = 5, PEAKABUN = 2;

    int thread_count = 1;  // twice the processors, at most 4

    // The two Formula Calculator pages: [0] keys ending in 1 (the multi-peak
    // calculator, MOLECAL), [1] keys ending in 2 (the single-mass one, MOLECALUNO).
    std::array<FormulaPreferences, 2> formula_prefs{};
};

// The calculator keys of the user preference file in the order they are
// saved (all keys ending in 1, then those ending in 2), each with its value
// as it is written ("%d" for integers, "%f" for the mass accuracy).
std::vector<std::pair<std::string, std::string>> formula_preference_entries(const Settings& settings);
// Takes one KEY=value line's key and value; true when the key is one of the
// calculator keys (a malformed value is read as far as it goes).
bool set_formula_preference(Settings& settings, std::string_view key, std::string_view value);

// Every default of Initialize (thread_count from the processors of this machine).
Settings default_settings();

// Folder of ftmsdata.ini and tulva.ini: $VANTORIX_HOME when set, else
// $XDG_CONFIG_HOME/vantorix-analysis, else ~/.config/vantorix-analysis.
std::string settings_dir();
// Folder of preference files and working data: $XDG_DATA_HOME/vantorix-analysis
// (or ~/.local/share/vantorix-analysis); under $VANTORIX_HOME when that is set.
std::string data_dir();

// Writes a default ftmsdata.ini into dir when none exists (".Z" handling on,
// TEMP a writable folder of ours). Returns 0, or -1 when it could not be written.
int ensure_default_ini(const std::string& dir);

// Reads dir/ftmsdata.ini into settings. Returns 0, or -1 when the program must
// end (the temp folder is missing and could not be made). Messages through ui.
int ReadINI(const std::string& dir, Settings& settings, Ui& ui);

}  // namespace vx
