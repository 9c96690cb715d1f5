// User preferences: preference.ini (which preference file to load, load and
// save flags) and the user preference file itself (default.txt or any .txt
// the user saved), KEY=value lines under a fixed first line.
//
// Every key of the file is kept, also those of panels that only read them
// (the formula presets), so a save never loses what a load brought in.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace vx {

class Ui;
struct Settings;

enum class Pref : int {
    COLOR, LINESTYLE, LINETHICK, BGCOLOR, ZOOMPAN, PREVIEW, GRID, ADDCURSOR, CHECKFFT, DISABLERIGHTZOOM,
    PROCESSTULVA, THRASHWINDOW, DOMASSRANGE, LEFTRANGE, RIGHTRANGE, TEXTFONT, TEXTSIZE, PEAKMZ, PEAKABUN,
    CARBONMAX1, CARBONMAX2, HYDROGENMAX1, HYDROGENMAX2, NITROGENMAX1, NITROGENMAX2, OXYGENMAX1, OXYGENMAX2,
    SULFURMAX1, SULFURMAX2, PHOSPHOROUSMAX1, PHOSPHOROUSMAX2,
    USER1MAX1, USER1MAX2, USER2MAX1, USER2MAX2, USER3MAX1, USER3MAX2, USER4MAX1, USER4MAX2,
    USER5MAX1, USER5MAX2, USER6MAX1, USER6MAX2,
    ALLOWRADS1, ALLOWRADS2, MASSACCURACY1, MASSACCURACY2, POSMODE1, POSMODE2, NEGMODE1, NEGMODE2,
    NEUMODE1, NEUMODE2,
    DECIMALSMZ, DECIMALSFREQ, DECIMALSERR, DECIMALSABUN,
    COUNT
};
inline constexpr int PREF_COUNT = static_cast<int>(Pref::COUNT);

struct PrefKey {
    const char* name;
    bool real;       // written with "%f", read with the real scan
    double initial;  // the value of the default file
};
// The keys in the order of the default file.
const std::array<PrefKey, PREF_COUNT>& preference_keys();
// The keys in the order a save writes them: the plain keys, those ending in
// 1, those ending in 2, then the four decimals.
const std::array<Pref, PREF_COUNT>& preference_save_order();

struct Preferences {
    // preference.ini
    int AUTOLOAD = 1;
    int AUTOSAVE = 1;
    int DRAGNDROPTYPE = 0;
    std::string FILE;  // the user preference file
    std::string TOOL;  // the plot tool
    // The user preference file
    std::array<double, PREF_COUNT> value{};
    std::string loaded;  // path of the file loaded or saved last; empty: none yet

    Preferences();  // every value at the default file's
    double& operator[](Pref p) { return value[static_cast<std::size_t>(p)]; }
    double operator[](Pref p) const { return value[static_cast<std::size_t>(p)]; }
    int integer(Pref p) const { return static_cast<int>((*this)[p]); }
};

inline constexpr const char* PREFERENCE_HEADER = "[Vantorix Analysis User Preferences File]";
inline constexpr const char* PREFERENCE_WARNING =
    "[Warning! DO NOT attempt to change this file manually. Changes made here could result error(s) in Vantorix "
    "Analysis.]";

// The bytes of the default file that CreatePreferenceFileTXT writes.
std::string default_preference_text();

// Creates folder/preference.ini with the defaults when absent, else reads its
// five keys into prefs. Returns 1.
int OpenPreferenceINI(const std::string& folder, Preferences& prefs, Ui& ui);
// Writes folder/preference.ini from prefs. Returns 0 or -1 after the message.
int CreatePreferenceINI(const std::string& folder, const Preferences& prefs, Ui& ui);
// Writes folder/default.txt. Returns 0 or -1 after the message.
int CreatePreferenceFileTXT(const std::string& folder, Ui& ui);
// Returns 1, or 0 after "ERROR!" or "Invalid File".
int LoadPreferenceFileTXT(const std::string& path, Preferences& prefs, Ui& ui);
// Writes path in the save order. Returns 0 or -1 after the message.
int SavePreferenceTXT(const std::string& path, Preferences& prefs, Ui& ui);

// The start of a session: preference.ini and the default file made on the first
// run, then the named file loaded. Returns 0, or -1 when nothing could be loaded
// (the defaults stand).
int SetupPreferences(const std::string& folder, Preferences& prefs, Ui& ui);

// The values that have a place in the start-up settings go there (the
// graph grid, the type of dropped files); the peak table keeps its own decimals.
void ApplyPreferences(const Preferences& prefs, Settings& settings);

// checkMassRange: fits [left, right] into the graph's x range [low, high]. A
// left below low becomes low; a right above high, or below low, becomes high.
void checkMassRange(double low, double high, double& left, double& right);

// "Saved Preference": saves to the file loaded or saved last; without one,
// "ERROR!" / "Please load or save preference first." and -1.
int save_current_preferences(Preferences& prefs, Ui& ui);

}  // namespace vx
