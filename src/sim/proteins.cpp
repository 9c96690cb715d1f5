#include "sim/proteins.hpp"

#include <cctype>
#include <cmath>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

#include "platform/ui.hpp"
#include "thrash/averagine.hpp"

namespace vx {

namespace {
constexpr double PROTON = 1.00727646688;

std::string trim(const std::string& s) {
    const auto a = s.find_first_not_of(" \t\r");
    if (a == std::string::npos) return {};
    return s.substr(a, s.find_last_not_of(" \t\r") - a + 1);
}
}  // namespace

bool parse_protein_formula(const std::string& text, Composition& atoms) {
    atoms = {};
    std::size_t i = 0;
    bool any = false;
    while (i < text.size()) {
        const char e = text[i++];
        int idx = -1;
        switch (e) {
            case 'C': idx = ISO_C; break;
            case 'H': idx = ISO_H; break;
            case 'N': idx = ISO_N; break;
            case 'O': idx = ISO_O; break;
            case 'S': idx = ISO_S; break;
            default: return false;
        }
        long n = 0;
        std::size_t j = i;
        while (j < text.size() && std::isdigit(static_cast<unsigned char>(text[j])) && j - i < 7) n = n * 10 + (text[j++] - '0');
        if (j < text.size() && std::isdigit(static_cast<unsigned char>(text[j]))) return false;
        if (j == i) n = 1;
        atoms[idx] += n;
        i = j;
        any = true;
    }
    return any;
}

int read_protein_list(const std::string& path, std::vector<SimProtein>& proteins, Ui& ui) {
    std::ifstream f(path);
    if (!f) {
        ui.MessagePopup("Protein list error", fmt::format("Could not open {}", path));
        return -1;
    }
    proteins.clear();
    std::string line;
    int no = 0;
    while (std::getline(f, line)) {
        ++no;
        const auto hash = line.find('#');
        if (hash != std::string::npos) line.resize(hash);
        if (trim(line).empty()) continue;
        std::vector<std::string> cols;
        std::stringstream ss(line);
        std::string c;
        while (std::getline(ss, c, ',')) cols.push_back(trim(c));
        SimProtein p;
        auto bad = [&](const std::string& why) {
            ui.MessagePopup("Protein list error", fmt::format("{} line {}: {}", path, no, why));
            return -1;
        };
        if (cols.size() < 5) {
            if (proteins.empty() && no == 1) continue;  // column names
            return bad("give name, formula or mass, zmin, zmax, abundance");
        }
        p.name = cols[0];
        try {
            std::size_t used = 0;
            p.zmin = std::stoi(cols[2], &used);
            p.zmax = std::stoi(cols[3]);
            p.abundance = std::stod(cols[4]);
            if (cols.size() > 5) p.decay = std::stod(cols[5]);
        } catch (const std::exception&) {
            if (proteins.empty() && no == 1) continue;  // column names
            return bad("charges and abundance must be numbers");
        }
        if (p.zmin < 1 || p.zmax < p.zmin || p.zmax > 200 || !(p.abundance > 0.0) || p.decay < 0.0)
            return bad("charges 1 to 200 with zmin <= zmax, an abundance above 0");
        if (parse_protein_formula(cols[1], p.atoms)) {
            p.mono_mass = monoisotopic_mass(p.atoms);
        } else {
            double m = 0.0;
            try {
                m = std::stod(cols[1]);
            } catch (const std::exception&) {
                return bad("the second column is a formula of C, H, N, O, S or a mass");
            }
            if (!(m >= 100.0 && m <= 200000.0)) return bad("a mass of 100 to 200000 Da");
            p.atoms = averagine_composition(m);
            p.mono_mass = monoisotopic_mass(p.atoms);
        }
        if (p.mono_mass > 200000.0) return bad("a formula of at most 200000 Da");
        proteins.push_back(p);
    }
    if (proteins.empty()) {
        ui.MessagePopup("Protein list error", fmt::format("{} holds no protein", path));
        return -1;
    }
    return 0;
}

std::vector<SimIon> protein_ions(const std::vector<SimProtein>& proteins, std::string* truth_csv) {
    std::vector<SimIon> ions;
    if (truth_csv) *truth_csv = "name,charge,monoisotopic_mw,monoisotopic_mz,mostabundant_mz,most_abundant_index,abundance\n";
    for (const SimProtein& p : proteins) {
        const IsotopeLevels lv = isotope_levels(p.atoms, AVERAGINE_WIDTH);
        std::size_t top = 0;
        for (std::size_t k = 0; k < lv.probability.size(); ++k)
            if (lv.probability[k] > lv.probability[top]) top = k;
        for (int z = p.zmin; z <= p.zmax; ++z) {
            for (std::size_t k = 0; k < lv.probability.size(); ++k) {
                const double rel = lv.probability[k] / lv.probability[top];
                if (rel < 0.001) continue;
                SimIon ion;
                ion.mz = (lv.mean_mass[k] + z * PROTON) / z;
                ion.abundance = p.abundance * rel;
                ion.decay = p.decay;
                ions.push_back(ion);
            }
            if (truth_csv)
                *truth_csv += fmt::format("{},{},{:.6f},{:.6f},{:.6f},{},{:.6g}\n", p.name, z, p.mono_mass,
                                          (p.mono_mass + z * PROTON) / z, (lv.mean_mass[top] + z * PROTON) / z, top,
                                          p.abundance);
        }
    }
    return ions;
}

}  // namespace vx
