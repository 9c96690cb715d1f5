#include "composition/elements.hpp"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <vector>

#include <fmt/format.h>

namespace vx {

int LoadElementValues() {
    // The table is built at compile time; touching it here keeps the start-up
    // order of the desktop program (elements before the first search).
    (void)element_table();
    return 0;
}

double first_isotope_mass(int slot) { return element_table()[static_cast<std::size_t>(slot)].isotopes[0].mass; }

double CalculateMassCH2() { return 2.0 * first_isotope_mass(SLOT_H) + first_isotope_mass(SLOT_C); }

std::optional<int> find_element(std::string_view symbol) {
    const auto& t = element_table();
    for (int i = 0; i < ELEMENT_COUNT; ++i)
        if (symbol == t[static_cast<std::size_t>(i)].symbol) return i;
    return std::nullopt;
}

int usual_valence(std::string_view s) {
    static const char* const one[] = {"H", "F", "Cl", "Br", "I", "Li", "Na", "K", "Rb", "Cs", "Ag"};
    static const char* const three[] = {"B", "N", "P", "As", "Al", "Ga", "In", "Sb", "Bi"};
    static const char* const four[] = {"C", "Si", "Ge", "Sn"};
    for (const char* x : one) if (s == x) return 1;
    for (const char* x : three) if (s == x) return 3;
    for (const char* x : four) if (s == x) return 4;
    return 2;
}

std::optional<ElementChoice> find_element_or_isotope(std::string_view text) {
    if (text.empty()) return std::nullopt;
    const auto& t = element_table();
    if (std::isdigit(static_cast<unsigned char>(text[0]))) {
        for (const ElementEntry& e : t)
            for (int i = 0; i < e.isotope_count; ++i)
                if (text == e.isotopes[i].label) {
                    // The reference isotope written with its mass number is the element itself.
                    const bool major = i == 0;
                    return ElementChoice{std::string(text), e.symbol, e.isotopes[i].mass, usual_valence(e.symbol), !major};
                }
        return std::nullopt;
    }
    const auto slot = find_element(text);
    if (!slot) return std::nullopt;
    const ElementEntry& e = t[static_cast<std::size_t>(*slot)];
    int best = 0;
    for (int i = 1; i < e.isotope_count; ++i)
        if (e.isotopes[i].abundance > e.isotopes[best].abundance) best = i;
    return ElementChoice{e.symbol, e.symbol, e.isotopes[best].mass, usual_valence(e.symbol), false};
}

double charge_electron_term(ChargeMode mode) {
    switch (mode) {
    case ChargeMode::POS: return -ELECTRON_MASS;
    case ChargeMode::NEG: return ELECTRON_MASS;
    default: return 0.0;
    }
}

double charge_dbe_offset(ChargeMode mode) {
    switch (mode) {
    case ChargeMode::POS: return 0.5;
    case ChargeMode::NEG: return -0.5;
    default: return 0.0;
    }
}

const char* charge_mode_name(ChargeMode mode) {
    switch (mode) {
    case ChargeMode::POS: return "pos";
    case ChargeMode::NEG: return "neg";
    default: return "neu";
    }
}

std::optional<ChargeMode> parse_charge_mode(std::string_view text) {
    std::string s(text);
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (s == "pos" || s == "positive" || s == "+") return ChargeMode::POS;
    if (s == "neg" || s == "negative" || s == "-") return ChargeMode::NEG;
    if (s == "neu" || s == "neutral" || s == "0") return ChargeMode::NEU;
    return std::nullopt;
}

double CalculateTheorMass(HitRecord& peak, int positive_mode, const UserMasses& user_masses) {
    if (peak.hit_code == 0) return -1.0;
    static const int slots[6] = {SLOT_C, SLOT_H, SLOT_N, SLOT_O, SLOT_S, SLOT_P};
    double m = 0.0;
    for (int i = 0; i < 6; ++i) m += peak.counts[static_cast<std::size_t>(i)] * first_isotope_mass(slots[i]);
    for (int i = 0; i < 6; ++i) m += peak.counts[static_cast<std::size_t>(6 + i)] * user_masses[static_cast<std::size_t>(i)];
    m += positive_mode ? -ELECTRON_MASS : ELECTRON_MASS;
    peak.theoretical_mass = m;
    peak.error = (peak.mass - m) / m * 1000000.0;
    return m;
}

std::string hill_formula(const ElementCounts& counts, const std::array<std::string, 6>& user_names) {
    struct Part {
        std::string symbol;  // element symbol for the order
        bool isotope;
        std::string text;
    };
    std::vector<Part> parts;
    auto add = [&](const std::string& name, int n) {
        if (n < 1 || name.empty() || name == "??") return;
        std::size_t k = 0;
        while (k < name.size() && std::isdigit(static_cast<unsigned char>(name[k]))) ++k;
        const bool iso = k > 0;
        const std::string text = iso ? fmt::format("[{}]", name) : name;
        parts.push_back({name.substr(k), iso, n == 1 ? text : text + std::to_string(n)});
    };
    static const char* const fixed[6] = {"C", "H", "N", "O", "S", "P"};
    for (int i = 0; i < 6; ++i) add(fixed[i], counts[static_cast<std::size_t>(i)]);
    for (int i = 0; i < 6; ++i) add(user_names[static_cast<std::size_t>(i)], counts[static_cast<std::size_t>(6 + i)]);
    const bool has_c = counts[0] > 0 || std::any_of(parts.begin(), parts.end(), [](const Part& p) { return p.symbol == "C"; });
    auto rank = [&](const Part& p) {
        if (has_c && p.symbol == "C") return 0;
        if (has_c && p.symbol == "H") return 1;
        return 2;
    };
    std::stable_sort(parts.begin(), parts.end(), [&](const Part& a, const Part& b) {
        if (rank(a) != rank(b)) return rank(a) < rank(b);
        if (a.symbol != b.symbol) return a.symbol < b.symbol;
        return !a.isotope && b.isotope;
    });
    std::string out;
    for (const Part& p : parts) out += p.text;
    return out;
}

}  // namespace vx
