// Formula search: the nested walk over element counts with hydrogen solved at
// the bottom, for one mass (find_masses_single, the single-mass calculator) or
// for the test peak of a Kendrick series (find_masses, the multi-peak
// calculator), and the series propagation that writes the result into the
// peak records (assign_single_hit).
#pragma once

#include <array>
#include <string>
#include <vector>

#include "composition/elements.hpp"
#include "workspace/spectrum.hpp"

namespace vx {

class Ui;

// One user element slot of a calculator panel.
struct UserElement {
    std::string name = "??";  // printed in formulas unless "??"
    double mass = 0.0;
    int min = 0;
    int max = 0;
    int valence = 2;
    bool isotope = false;  // ISOTOPE_n: counts are isotopologue counts of a parent
};

// The settings of a calculator panel (MOLECAL or MOLECALUNO). A maximum of -1
// means "as many as the mass allows"; H_MAX -1 means no limit.
struct FormulaSettings {
    int C_MIN = 0, C_MAX = -1;
    int H_MIN = 0, H_MAX = -1;
    int N_MIN = 0, N_MAX = 1;
    int O_MIN = 0, O_MAX = 30;
    int S_MIN = 0, S_MAX = 1;
    int P_MIN = 0, P_MAX = 0;
    std::array<UserElement, 6> user{};
    long MAX_ITER = 200000;      // limit of candidates of one search
    double DBE = 100.0;          // maximum DBE
    double dbe_min = -0.5;       // lower DBE bound (the panels fix it at -0.5)
    bool MULTI_USR_ELEMENTS = false;
    bool SHOW_ALL = false;
    bool RADICALS = true;
    bool TOPDOWN = false;
    bool IGNOREOVERS = false;
    bool SORT = true;
    double MASS_ACCURACY = 10.0;  // ppm
    double ASSIGN_SN = 3.0;
    int min_series_length = 2;    // of the Kendrick panel, for the no-hits pass
    bool debug = false;           // the debug channel of the console
    // Our own choice beside the panels' rule: among the valid candidates of a
    // test peak keep the one that puts the most series members within the
    // tolerance after the CH2 steps, the score deciding only among equals.
    // Off reproduces the panels (lowest score at the test peak alone).
    bool series_fit = false;
    ChargeMode mode = ChargeMode::NEG;
    double A = 50.0, B = 80.0, C = 70.0;  // scoring constants
};

// Factory settings of the two panels; user slots 1 and 2 hold 13C and 34S with
// their isotope flags set. The two panels carry slightly different preset
// masses for them, kept as they are so both reproduce older results.
FormulaSettings molecal_defaults();
FormulaSettings molecaluno_defaults();

// The user masses of a settings record, for CalculateTheorMass.
UserMasses user_masses_of(const FormulaSettings& s);
std::array<std::string, 6> user_names_of(const FormulaSettings& s);

// Checks ranges (min above max, negative minima) and shows the message.
// Returns 0 or -1.
int check_formula_settings(const FormulaSettings& s, Ui& ui);

// Parses "C0-100,H0-200,N0-4,O0-20,S0-3,Na0-1,13C0-1" into s: C, H, N, O, S, P
// set their ranges (an element that is not listed gets 0-0); any other symbol
// or isotope takes the next free user slot. A single number "N2" means 2-2.
// Returns 0, or -1 after a message naming the bad item.
int parse_element_ranges(const std::string& text, FormulaSettings& s, Ui& ui);

// One candidate of a search.
struct FormulaHit {
    ElementCounts counts{};
    double mass = 0.0;   // ion mass of the composition with the search's electron term
    double ppm = 0.0;    // (measured - candidate) / measured, ppm
    double dbe = 0.0;
    double score = -1.0;
    int isotope_code = 0;  // user2 x 100 + user1
    int running = -1;      // running number among the accepted candidates (the pick of a row)
};

// Formula text as the tables and exports carry it: comma-separated symbol and
// count pairs in the order C, H, N, O, S, P, user 1 to 6 ("C,12,H,20,,,O,2,...").
// class_text receives the heteroatom class ("N1 O2 ", "HC").
void BuildFormula(std::string& formula_text, const ElementCounts& counts, const FormulaSettings& s,
                  std::string& class_text);

// Prefix of the formula text for a hit code; the odd array's prefixes have no
// blank after the comma, the even array's do.
const char* hit_prefix(int hit_code, int oddeven);

// Result of a single-mass search in list mode: one row per accepted candidate.
struct SingleSearchResult {
    std::vector<FormulaHit> hits;  // in the order found (or sorted by |ppm| with SORT)
    bool stopped_at_max_iter = false;
};

// The single-mass calculator. op_index below 0 lists every accepted candidate
// into out; op_index 0 or above assigns the candidate with that running number
// to the peak (oddeven, peak_index) of the spectrum's Kendrick arrays through
// assign_single_hit. Returns the number of hits, or -1 after a message (bad
// mass or range, or the user quit at the error-limit question).
int find_masses_single(double mass, double ppm, int max_user1, int max_user2, int op_index, int oddeven,
                       int peak_index, int petro_flag, Spectrum& spectrum, const FormulaSettings& settings, Ui& ui,
                       SingleSearchResult* out);

// The multi-peak search for the test peak peak_index of the odd (oddeven 1) or
// even array: keeps the best candidate and carries it along the peak's series.
// Returns the number of valid hits, or -1 after a message.
int find_masses(double test_mass, int peak_index, double ppm, int oddeven, int max_user1, int max_user2,
                int no_topdown, Spectrum& spectrum, const FormulaSettings& settings, Ui& ui);

// Writes a kept hit into every member of the series of peak_index, by adding
// or taking away CH2 for each member's distance from the test peak.
void assign_single_hit(int peak_index, const FormulaHit& record, int oddeven, double score, int hit_code,
                       double ppm, Spectrum& spectrum, const FormulaSettings& settings, Ui& ui);

}  // namespace vx
