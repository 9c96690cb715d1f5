#include "thrash/sequence.hpp"

#include <cctype>
#include <cmath>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

#include "platform/ui.hpp"

namespace vx {

double residue_mass(char letter) {
    switch (letter) {
        case 'A': return 71.03711;
        case 'C': return 103.00919;
        case 'D': return 115.02694;
        case 'E': return 129.04259;
        case 'F': return 147.06841;
        case 'G': return 57.02146;
        case 'H': return 137.05891;
        case 'I': case 'L': return 113.08406;
        case 'K': return 128.09496;
        case 'M': return 131.04049;
        case 'N': return 114.04293;
        case 'P': return 97.05276;
        case 'Q': return 128.05858;
        case 'R': return 156.10111;
        case 'S': return 87.03203;
        case 'T': return 101.04768;
        case 'V': return 99.06841;
        case 'W': return 186.07931;
        case 'X': return 160.03065;  // alkylated cysteine
        case 'Y': return 163.06333;
        case 'q': return 111.03203;  // cyclised glutamine
        default: return 0.0;
    }
}

namespace {

bool is_proline(double mass) { return std::fabs(mass - 97.05276) < 0.0000000001; }
bool is_modification_char(char c) { return std::isdigit(static_cast<unsigned char>(c)) || c == '-' || c == '+' || c == '.'; }

}  // namespace

int seqOK(const std::string& sequence, SequenceTables& t, Ui& ui) {
    t.modifications.clear();
    t.residues.clear();
    t.a.clear(); t.b.clear(); t.c.clear(); t.y.clear(); t.z.clear();
    // Runs of digits and signs are modifications of the residue before them.
    for (std::size_t i = 0; i < sequence.size();) {
        if (is_modification_char(sequence[i])) {
            std::size_t j = i;
            while (j < sequence.size() && is_modification_char(sequence[j])) ++j;
            double v = 0.0;
            try {
                v = std::stod(sequence.substr(i, j - i));
            } catch (const std::exception&) {
                v = 0.0;
            }
            const int at = t.residues.empty() ? 0 : static_cast<int>(t.residues.size()) - 1;
            t.modifications.emplace_back(at, v);
            i = j;
        } else {
            t.residues += sequence[i++];
        }
    }
    std::vector<double> mass(t.residues.size());
    for (std::size_t k = 0; k < t.residues.size(); ++k) {
        mass[k] = residue_mass(t.residues[k]);
        if (mass[k] == 0.0) {
            ui.MessagePopup("Error creating fragment table from Sequence",
                            "Please check sequence and reload.\nMake sure there are no extra characters not even "
                            "carriage return.");
            t.residues.clear();
            return -1;
        }
    }
    for (const auto& [at, v] : t.modifications)
        if (at < static_cast<int>(mass.size())) mass[static_cast<std::size_t>(at)] += v;
    const std::size_t n = mass.size();
    double sum = 0.0;
    for (double m : mass) sum += m;
    t.protein_mass = n ? sum + t.c_term : 0.0;
    t.b.assign(n, 0.0);
    t.a.assign(n, 0.0);
    t.c.assign(n, 0.0);
    t.y.assign(n, 0.0);
    t.z.assign(n, 0.0);
    double running = 0.0;
    for (std::size_t k = 0; k < n; ++k) {
        running += mass[k];
        t.b[k] = running + t.n_term;
        t.a[k] = k == 0 ? running - 26.98709 + t.n_term : t.b[k] - 27.99491;
        t.c[k] = t.b[k] + 17.02655;
    }
    // c fragments stand only before proline here, the inverse of the usual
    // rule; kept so that assignments compare with earlier results.
    for (std::size_t k = 1; k < n; ++k)
        if (!is_proline(mass[k])) t.c[k - 1] = 0.0;
    if (n && !is_proline(mass[0])) t.c[0] = 0.0;
    for (std::size_t k = 0; k < n; ++k) {
        // y of k + 1 residues: the protein less the b of the other n - k - 1.
        const std::size_t other = n - k - 1;
        t.y[k] = t.protein_mass - (other == 0 ? t.n_term : t.b[other - 1]);
        t.z[k] = t.y[k] - 16.01872;
    }
    for (std::size_t k = 1; k < n; ++k)
        if (t.c[k] != 0.0) t.z[k - 1] = 0.0;
    return 0;
}

int choose_seq(SequenceTables& t, Ui& ui) {
    t.pieces.clear();
    t.combinations.clear();
    const std::string& r = t.residues;
    const int type = t.match_type;
    if (type < 3 || type > 8 || r.empty()) return 0;
    auto cleaves_after = [&](char c) {
        switch (type) {
            case 3: return c == 'K';
            case 5: return c == 'F' || c == 'L' || c == 'W' || c == 'Y';
            case 6: return c == 'K' || c == 'R';
            case 7: return c == 'E';
            default: return false;
        }
    };
    auto cleaves_before = [&](char c) {
        if (type == 4) return c == 'D';
        if (type == 8) return std::string("ACDEFGHIKLMNPQqRSTVWXY").find(c) != std::string::npos;
        return false;
    };
    DigestPiece cur;
    cur.first = 0;
    for (std::size_t k = 0; k < r.size(); ++k) {
        if (k > 0 && cleaves_before(r[k]) && cur.last >= cur.first && cur.mass > 0.0) {
            t.pieces.push_back(cur);
            cur = DigestPiece{0.0, static_cast<int>(k), static_cast<int>(k)};
        }
        cur.mass += residue_mass(r[k]);
        cur.last = static_cast<int>(k);
        if (cleaves_after(r[k]) && k + 1 < r.size()) {
            t.pieces.push_back(cur);
            cur = DigestPiece{0.0, static_cast<int>(k + 1), static_cast<int>(k + 1)};
        }
    }
    if (cur.mass > 0.0) t.pieces.push_back(cur);
    // n pieces make n (n + 1) / 2 combinations: past 2000 pieces (two million
    // combinations) the table is not made, as when its memory was refused.
    if (t.pieces.size() > MAX_DIGEST_PIECES) {
        ui.Console("Memory not allocated for full_digest. 1 \n");
        t.pieces.clear();
        return -1;
    }
    for (std::size_t i = 0; i < t.pieces.size(); ++i) {
        double sum = 0.0;
        for (std::size_t j = i; j < t.pieces.size(); ++j) {
            sum += t.pieces[j].mass;
            t.combinations.push_back({1.007825 + sum + 1.007825 + 15.99491, t.pieces[i].first, t.pieces[j].last});
        }
    }
    return 0;
}

int load_sequence_file(const std::string& path, SequenceTables& t, Ui& ui) {
    std::ifstream f(path, std::ios::binary);
    if (!f) {
        ui.MessagePopup("Load Sequence File", fmt::format("Could not open {}", path));
        return -1;
    }
    std::ostringstream ss;
    ss << f.rdbuf();
    const std::string text = ss.str();
    // First line: the name and the residue count; then the letters.
    const auto nl = text.find('\n');
    std::istringstream head(text.substr(0, nl));
    long count = 0;
    if (!(head >> t.name >> count) || count < 0) {
        ui.MessagePopup("Error creating fragment table from Sequence",
                        "Please check sequence and reload.\nMake sure there are no extra characters not even carriage "
                        "return.");
        return -1;
    }
    std::string letters = nl == std::string::npos ? std::string() : text.substr(nl + 1);
    if (!letters.empty() && letters.back() == '\n') letters.pop_back();
    if (t.match_type == 9) t.match_type = 1;
    if (seqOK(letters, t, ui) < 0) return -1;
    ui.Console(fmt::format("Protein Mass = {:f}\n", t.protein_mass));
    choose_seq(t, ui);
    ui.MessagePopup("Fragment List Created", fmt::format("Sequence {} Successfully Loaded.", t.name));
    return 0;
}

void assign_thrash(const SequenceTables& t, double mono_mz, int charge, double aterm,
                   std::vector<SequenceAssignment>& found) {
    found.clear();
    if (t.residues.empty()) return;
    const double M = aterm >= 0.0 ? mono_mz * charge - charge * 1.00727 : mono_mz * charge + charge * 1.00727;
    double tol = t.relative ? t.tolerance * M : t.tolerance;
    tol *= t.error_factor;
    auto add = [&](int kind, double theor, int first, int last, bool h2o, bool nh3, int phos = 0) {
        if (static_cast<int>(found.size()) >= MAX_ASSIGNMENTS || theor == 0.0) return;
        const double loss = h2o ? LOSS_H2O : nh3 ? LOSS_NH3 : 0.0;
        const double th = theor - loss + phos * PHOSPHATE;
        if (std::fabs(M - th) <= tol) {
            SequenceAssignment a;
            a.kind = kind;
            a.minus_h2o = h2o;
            a.minus_nh3 = nh3;
            a.theoretical = th;
            a.error = M - th;
            a.measured = M;
            a.first = first;
            a.last = last;
            a.phosphates = phos;
            found.push_back(a);
        }
    };
    const int n = static_cast<int>(t.residues.size());
    auto sty = [&](int from, int to) {
        int c = 0;
        for (int i = from; i <= to && i < n; ++i) c += t.residues[i] == 'S' || t.residues[i] == 'T' || t.residues[i] == 'Y';
        return c;
    };
    auto with_losses = [&](int kind, double theor, int first, int last) {
        add(kind, theor, first, last, false, false);
        add(kind, theor, first, last, true, false);
        add(kind, theor, first, last, false, true);
    };
    with_losses(KIND_MOLECULAR_ION, t.protein_mass, 1, n);
    if (t.phosphorylation)
        for (int p = 1; p <= sty(0, n - 1); ++p) add(KIND_MOLECULAR_ION, t.protein_mass, 1, n, false, false, p);
    if (t.match_type == 1 || t.match_type == 9) {
        for (int k = 0; k < n; ++k) {
            with_losses(KIND_B, t.b[k], 1, k + 1);
            with_losses(KIND_Y, t.y[k], n - k, n);
            with_losses(KIND_A, t.a[k], 1, k + 1);
            add(KIND_C, t.c[k], 1, k + 1, false, false);
            add(KIND_Z, t.z[k], n - k, n, false, false);
            if (t.phosphorylation) {
                for (int p = 1; p <= sty(0, k); ++p) add(KIND_B, t.b[k], 1, k + 1, false, false, p);
                for (int p = 1; p <= sty(n - k - 1, n - 1); ++p) add(KIND_Y, t.y[k], n - k, n, false, false, p);
            }
        }
    } else if (t.match_type >= 3 && t.match_type <= 8) {
        for (const DigestPiece& d : t.combinations) {
            with_losses(KIND_DIGEST, d.mass, d.first + 1, d.last + 1);
            if (t.phosphorylation)
                for (int p = 1; p <= sty(d.first, d.last); ++p) add(KIND_DIGEST, d.mass, d.first + 1, d.last + 1, false, false, p);
        }
    }
}

std::string assignment_text(const SequenceTables& t, const SequenceAssignment& a, bool second_choice) {
    std::string s;
    switch (a.kind) {
        case KIND_B: s = fmt::format("b{}", a.last); break;
        case KIND_C: s = fmt::format("c{}", a.last); break;
        case KIND_Y: s = fmt::format("y{}", a.last - a.first + 1); break;
        case KIND_Z: s = fmt::format("z{}", a.last - a.first + 1); break;
        case KIND_INTERNAL:
        case KIND_INTERNAL2: s = fmt::format("i - {} - {}", a.first, a.last); break;
        case KIND_DIGEST: s = fmt::format("{} {} - {} {}", t.name, a.first, t.name, a.last); break;
        case KIND_MOLECULAR_ION: s = "Mol. Ion "; break;
        case KIND_A: s = fmt::format("a{}", a.last); break;
        default: s = "No Assignment";
    }
    if (a.minus_h2o) s += " - H2O";
    if (a.minus_nh3) s += " - NH3";
    if (a.phosphates > 0) s += fmt::format(" + {} PO3", a.phosphates);
    if (second_choice) s += " *";
    return s;
}

}  // namespace vx
