// The chemistry every composition feature shares: the table of elements and
// isotopes, the charge modes with their electron and DBE corrections, the
// CH2 mass, theoretical masses of assigned peaks and formula text.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "workspace/spectrum.hpp"

namespace vx {

struct IsotopeEntry {
    const char* label;   // mass number then symbol, "13C"
    double mass;         // exact mass, u
    double abundance;    // natural abundance, fraction of 1
    int mass_offset;     // nominal distance from the element's reference isotope
};

struct ElementEntry {
    const char* symbol;
    int isotope_count;
    const IsotopeEntry* isotopes;  // rising mass
};

inline constexpr int ELEMENT_COUNT = 84;

// Slots of the elements the search addresses directly (the table is in
// alphabetical order of symbol).
inline constexpr int SLOT_C = 10;
inline constexpr int SLOT_H = 27;
inline constexpr int SLOT_N = 43;
inline constexpr int SLOT_O = 49;
inline constexpr int SLOT_P = 51;
inline constexpr int SLOT_S = 61;

inline constexpr double ELECTRON_MASS = 0.00054858;
// The divisor used when a formula is carried along a series. It differs from
// CalculateMassCH2() in the last digits; the two are kept apart on purpose so
// that assigned series match older result files.
inline constexpr double CH2_LITERAL = 14.01565;
inline constexpr double ERROR_LIMIT_DA = 1.0;

// The 84 elements, alphabetical by symbol.
const std::array<ElementEntry, ELEMENT_COUNT>& element_table();

// Kept for the start-up sequence; the table is constant data, so this only
// touches it. Returns 0.
int LoadElementValues();

// 12C + 2 x 1H from the table: 14.01565006446.
double CalculateMassCH2();

// Mass of the first isotope of a table slot (C, H, N, O, S, P use this).
double first_isotope_mass(int slot);

// Slot of a symbol ("Cl"), matched exactly; nullopt when unknown.
std::optional<int> find_element(std::string_view symbol);

// An element or one isotope of it: "Na" gives the most abundant isotope,
// "13C" that isotope. Valence is the usual one for the DBE rule.
struct ElementChoice {
    std::string name;    // as it is printed in formulas: "Na", "13C"
    std::string symbol;  // element symbol: "Na", "C"
    double mass = 0.0;
    int valence = 2;
    bool isotope = false;  // a minor isotope (its counts are isotopologue counts)
};
std::optional<ElementChoice> find_element_or_isotope(std::string_view text);

// Valence used in the DBE rule for an element symbol (halogens and alkali 1,
// B, N, P 3, C, Si 4, O, S and the rest 2).
int usual_valence(std::string_view symbol);

enum class ChargeMode { POS, NEU, NEG };

// The signed electron term added to the atom masses in a search, and the
// DBE offset of the mode.
double charge_electron_term(ChargeMode mode);
double charge_dbe_offset(ChargeMode mode);
const char* charge_mode_name(ChargeMode mode);
std::optional<ChargeMode> parse_charge_mode(std::string_view text);

// The masses of the twelve counts: C, H, N, O, S, P from the table, then the
// six user masses.
using UserMasses = std::array<double, 6>;

// Theoretical ion mass of an assigned peak. -1.0 and nothing stored when the
// hit code is 0. The electron is subtracted with positive_mode non-zero and
// added otherwise, NEU included, although the search itself applies no
// electron in NEU: the asymmetry is deliberate and matches older results.
double CalculateTheorMass(HitRecord& peak, int positive_mode, const UserMasses& user_masses);

// Hill-order formula text ("C20H32O4S"): C, H, then the others alphabetically;
// an isotope ("13C") follows its element in brackets: "C19[13C]H32O4S".
// Names "??" or empty and counts below 1 are left out.
std::string hill_formula(const ElementCounts& counts, const std::array<std::string, 6>& user_names);

}  // namespace vx
