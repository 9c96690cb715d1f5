#include "composition/petro_classes.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <map>

#include <fmt/format.h>

#include "composition/kendrick.hpp"
#include "platform/ui.hpp"

namespace vx {

namespace {

constexpr const char* kTitle = "Petroleum Analysis";

// "N1 O2 " with its leading "," as the rows carry it -> "N1 O2".
std::string shown(const std::string& class_text) {
    std::string s = !class_text.empty() && class_text[0] == ',' ? class_text.substr(1) : class_text;
    while (!s.empty() && s.back() == ' ') s.pop_back();
    while (!s.empty() && s.front() == ' ') s.erase(s.begin());
    return s;
}

bool is_no_hit(const ProcessedRow& r) { return r.hit_code == 0 || shown(r.class_text).empty(); }

std::string csv_field(const std::string& s) {
    if (s.find_first_of(",\"\n") == std::string::npos) return s;
    std::string q = "\"";
    for (char c : s) {
        if (c == '"') q += '"';
        q += c;
    }
    q += '"';
    return q;
}

}  // namespace

int CopytoProcessed2(std::vector<ProcessedRow>& rows, const Spectrum& spectrum, Ui& ui) {
    rows.clear();
    for (int odd = 1; odd >= 0; --odd) {
        const auto& arr = odd ? spectrum.unassigned : spectrum.assigned;
        for (std::size_t i = 0; i < arr.size(); ++i) {
            const HitRecord& h = arr[i];
            if (h.class_text.size() > CLASS_TEXT_MAX) {
                ui.MessagePopup(kTitle, fmt::format("The class text of the peak at m/z {:.6f} is {} characters long; a class "
                                                    "has at most {}.",
                                                    h.mass, h.class_text.size(), CLASS_TEXT_MAX));
                rows.clear();
                return -1;
            }
            ProcessedRow r;
            r.index = static_cast<int>(i);
            r.mass = h.mass;
            r.abundance = h.abundance;
            r.relabundance = h.relabundance;
            r.resolvingpower = h.resolvingpower;
            r.kendrick_mass = h.mass / KENDRICK_FACTOR_CH2;
            r.nominal = static_cast<int>(std::lround(r.kendrick_mass));
            r.odd = odd;
            r.z_star = h.z_star;
            r.kmd = h.kmd;
            r.series = h.series;
            r.dbe = h.dbe;
            r.class_text = h.hit_code != 0 ? h.class_text : std::string();
            r.counts = h.counts;
            r.error = h.hit_code != 0 ? h.error : 0.0;
            r.sn = h.sn;
            r.theoretical_mass = h.theoretical_mass;
            r.hit_code = h.hit_code;
            rows.push_back(std::move(r));
        }
    }
    return 0;
}

std::vector<ClassSum> GetElementList(const std::vector<ProcessedRow>& rows) {
    std::vector<ClassSum> list;
    for (const ProcessedRow& r : rows) {
        if (is_no_hit(r)) continue;
        if (std::none_of(list.begin(), list.end(), [&](const ClassSum& c) { return c.class_text == r.class_text; }))
            list.push_back({r.class_text, 0.0});
    }
    return list;
}

std::vector<ClassSum> AddUpProcessed(std::vector<ProcessedRow>& rows, double* total) {
    std::vector<ClassSum> sums = GetElementList(rows);
    std::map<std::string, std::size_t> at;
    for (std::size_t i = 0; i < sums.size(); ++i) at[sums[i].class_text] = i;
    double t = 0.0;
    for (const ProcessedRow& r : rows) {
        if (is_no_hit(r)) continue;
        sums[at[r.class_text]].sum += r.abundance;
        t += r.abundance;
    }
    for (ProcessedRow& r : rows) {
        if (is_no_hit(r)) continue;
        const double s = sums[at[r.class_text]].sum;
        r.group_sum = s;
        r.group_share = t > 0.0 ? 100.0 * s / t : 0.0;
    }
    if (total) *total = t;
    return sums;
}

std::string DeisotopeGroupName2(const std::string& class_text, const std::vector<ProcessedRow>& rows,
                                const FormulaSettings& settings) {
    for (const ProcessedRow& r : rows) {
        if (r.class_text != class_text) continue;
        ElementCounts c = r.counts;
        c[0] += c[6];
        c[6] = 0;
        c[4] += c[7];
        c[7] = 0;
        std::string formula, cls;
        BuildFormula(formula, c, settings, cls);
        std::string out(1, ',');
        out += cls;
        return out;
    }
    return class_text;
}

void MergeSumstoProcessed(std::vector<ClassSum>& sums, std::vector<ProcessedRow>& rows, const FormulaSettings& settings,
                          bool fold_34s) {
    // The desktop looked for "S34", but the class of a 34S isotopologue reads
    // "34S1": as written, a 34S class never folds and stands as a class of its
    // own. fold_34s folds it as 13C classes are folded.
    auto isotopic = [&](const std::string& t) {
        return t.find("13C") != std::string::npos || t.find("S34") != std::string::npos ||
               (fold_34s && t.find("34S") != std::string::npos);
    };
    std::map<std::string, std::string> parent_of;
    for (const ClassSum& c : sums)
        if (isotopic(c.class_text)) parent_of[c.class_text] = DeisotopeGroupName2(c.class_text, rows, settings);
    // Merged sum of each parent class.
    std::map<std::string, double> merged;
    for (const ClassSum& c : sums) {
        const auto it = parent_of.find(c.class_text);
        merged[it == parent_of.end() ? c.class_text : it->second] += c.sum;
    }
    // A class of isotopologues alone (its parent class has no peaks) still
    // folds: the parent class joins the list after the others.
    for (const auto& kv : parent_of) {
        const std::string& parent = kv.second;
        if (std::none_of(sums.begin(), sums.end(), [&](const ClassSum& c) { return c.class_text == parent; }))
            sums.push_back({parent, 0.0});
    }
    for (ClassSum& c : sums) {
        const auto it = parent_of.find(c.class_text);
        c.sum = merged[it == parent_of.end() ? c.class_text : it->second];
    }
    for (ProcessedRow& r : rows) {
        if (is_no_hit(r)) continue;
        const auto it = parent_of.find(r.class_text);
        r.group_sum = merged[it == parent_of.end() ? r.class_text : it->second];
    }
}

bool ProcessedCompare(const ProcessedRow& a, const ProcessedRow& b) {
    if (a.group_sum != b.group_sum) return a.group_sum > b.group_sum;
    if (a.group_share != b.group_share) return a.group_share > b.group_share;
    if (a.dbe != b.dbe) return a.dbe < b.dbe;
    return a.mass < b.mass;
}

int ProcessPetro(const Spectrum& spectrum, const FormulaSettings& settings, bool fold_34s, PetroSummary& out, Ui& ui,
                 const BodyFilter* filter) {
    out = PetroSummary{};
    // ProcessPetrolData2
    if (CopytoProcessed2(out.rows, spectrum, ui) < 0) return -1;
    if (filter) {
        // The class filter judges the parent class, so that isotopologues go
        // with their parents.
        for (ProcessedRow& r : out.rows) {
            if (is_no_hit(r)) continue;
            ElementCounts c = r.counts;
            c[0] += c[6];
            c[6] = 0;
            c[4] += c[7];
            c[7] = 0;
            std::string formula, cls;
            BuildFormula(formula, c, settings, cls);
            if (UseBodyFilter(cls.c_str(), *filter) < 0) {
                r.hit_code = 0;
                r.class_text.clear();
            }
        }
    }
    std::vector<ClassSum> sums = AddUpProcessed(out.rows, &out.total);
    MergeSumstoProcessed(sums, out.rows, settings, fold_34s);
    std::stable_sort(out.rows.begin(), out.rows.end(), ProcessedCompare);

    // ProcessClassData: a new class row where the class sum changes. The
    // parent class comes first within its merged block (larger own share).
    std::map<std::string, std::string> parent_name;
    for (std::size_t i = 0; i < out.rows.size(); ++i) {
        const ProcessedRow& r = out.rows[i];
        if (is_no_hit(r)) continue;
        const bool fresh = out.classes.empty() || i == 0 || std::fabs(r.group_sum - out.rows[i - 1].group_sum) > 0.0001 ||
                           is_no_hit(out.rows[i - 1]);
        if (fresh) {
            // The block is named after its parent class.
            std::string name = shown(r.class_text);
            const std::string parent = shown(DeisotopeGroupName2(r.class_text, out.rows, settings));
            if (name != parent && (name.find("13C") != std::string::npos || name.find("S34") != std::string::npos ||
                                   (fold_34s && name.find("34S") != std::string::npos)))
                name = parent;
            out.classes.push_back({name, r.group_sum, out.total > 0.0 ? 100.0 * r.group_sum / out.total : 0.0, 0});
        }
        ++out.classes.back().peaks;
        parent_name[r.class_text] = out.classes.back().class_text;
    }

    // ProcessDBENumData: per class block, one row per DBE, summed.
    for (const ProcessedRow& r : out.rows) {
        if (is_no_hit(r)) continue;
        const std::string& cls = parent_name[r.class_text];
        auto it = std::find_if(out.dbe.begin(), out.dbe.end(),
                               [&](const DbeRow& d) { return d.class_text == cls && std::fabs(d.dbe - r.dbe) <= 0.001; });
        if (it == out.dbe.end()) {
            out.dbe.push_back({cls, r.dbe, 0.0, 0.0});
            it = out.dbe.end() - 1;
        }
        it->abundance += r.abundance;
        it->percent = r.group_sum > 0.0 ? 100.0 * it->abundance / r.group_sum : 0.0;
    }
    std::stable_sort(out.dbe.begin(), out.dbe.end(), [&](const DbeRow& a, const DbeRow& b) {
        const auto pa = std::find_if(out.classes.begin(), out.classes.end(), [&](const ClassRow& c) { return c.class_text == a.class_text; });
        const auto pb = std::find_if(out.classes.begin(), out.classes.end(), [&](const ClassRow& c) { return c.class_text == b.class_text; });
        if (pa != pb) return pa < pb;
        return a.dbe < b.dbe;
    });

    // ProcessCarbonNumData: the rows without isotope counts.
    int isotopic = 0;
    for (const ProcessedRow& r : out.rows) {
        if (is_no_hit(r)) continue;
        if (r.counts[6] != 0 || r.counts[7] != 0) {
            ++isotopic;
            continue;
        }
        out.carbon.push_back({parent_name[r.class_text], r.counts[0], r.dbe, r.abundance,
                              r.group_sum > 0.0 ? 100.0 * r.abundance / r.group_sum : 0.0});
    }
    if (settings.debug)
        ui.Console(fmt::format("Numrows = {}.  Num non isotope = {}.\n", out.rows.size(), out.rows.size() - isotopic));
    return 0;
}

std::string classes_csv(const PetroSummary& s) {
    std::string out = "class,abundance,percent,peaks\n";
    for (const ClassRow& c : s.classes)
        out += fmt::format("{},{:.6f},{:.6f},{}\n", csv_field(c.class_text), c.sum, c.percent, c.peaks);
    return out;
}

std::string dbe_csv(const PetroSummary& s) {
    std::string out = "class,dbe,abundance,percent\n";
    for (const DbeRow& d : s.dbe)
        out += fmt::format("{},{:g},{:.6f},{:.6f}\n", csv_field(d.class_text), d.dbe, d.abundance, d.percent);
    return out;
}

std::string carbon_csv(const PetroSummary& s) {
    std::string out = "class,carbons,dbe,abundance,percent\n";
    for (const CarbonRow& c : s.carbon)
        out += fmt::format("{},{},{:g},{:.6f},{:.6f}\n", csv_field(c.class_text), c.carbons, c.dbe, c.abundance, c.percent);
    return out;
}

std::string processed_csv(const PetroSummary& s, const FormulaSettings& settings) {
    const auto names = user_names_of(settings);
    std::string out =
        "index,mass,abundance,relabundance,resolvingpower,kendrick_mass,nominal,odd,z_star,kmd,series,dbe,group_share,class,"
        "C,H,N,O,S,P";
    for (const std::string& n : names) {
        out += ',';
        out += csv_field(n == "??" ? std::string("user") : n);
    }
    out += ",error,group_sum\n";
    for (const ProcessedRow& r : s.rows) {
        out += fmt::format("{},{:.6f},{:.4f},{:.4f},{:.1f},{:.6f},{},{},{},{},{},{:g},{:.6f},{}", r.index, r.mass, r.abundance,
                           r.relabundance, r.resolvingpower, r.kendrick_mass, r.nominal, r.odd, r.z_star, r.kmd, r.series,
                           r.dbe, r.group_share, csv_field(shown(r.class_text)));
        for (int c : r.counts) out += fmt::format(",{}", c);
        out += fmt::format(",{:.4f},{:.6f}\n", r.error, r.group_sum);
    }
    return out;
}

std::string peaks_csv(const PetroSummary& s, const FormulaSettings& settings) {
    const auto names = user_names_of(settings);
    // Rows in m/z order; an isotopologue names the row of its parent formula.
    std::vector<const ProcessedRow*> rows;
    for (const ProcessedRow& r : s.rows) rows.push_back(&r);
    std::stable_sort(rows.begin(), rows.end(), [](const ProcessedRow* a, const ProcessedRow* b) { return a->mass < b->mass; });
    std::map<ElementCounts, std::size_t> mono;
    for (std::size_t i = 0; i < rows.size(); ++i)
        if (!is_no_hit(*rows[i]) && rows[i]->counts[6] == 0 && rows[i]->counts[7] == 0) mono.emplace(rows[i]->counts, i);
    std::string out =
        "m/z,Calculated m/z,Peak Height,S/N,m/z Error (ppm),DBE,H/C,O/C,Heteroatom Class,Molecular Formula,Is Isotopologue,"
        "Mono Isotopic Index,C,H,N,O,S,P,13C,34S\n";
    for (const ProcessedRow* r : rows) {
        if (is_no_hit(*r)) {
            out += fmt::format("{:.6f},,{:.4f},{:.2f},,,,,,,,,,,,,,,,\n", r->mass, r->abundance, r->sn);
            continue;
        }
        const ElementCounts& c = r->counts;
        const bool iso = c[6] != 0 || c[7] != 0;
        std::string mono_index;
        if (iso) {
            ElementCounts p = c;
            p[0] += p[6];
            p[6] = 0;
            p[4] += p[7];
            p[7] = 0;
            const auto it = mono.find(p);
            if (it != mono.end()) mono_index = fmt::format("{}", it->second);
        }
        const int carbons = c[0] + c[6];
        const double hc = carbons > 0 ? static_cast<double>(c[1]) / carbons : 0.0;
        const double oc = carbons > 0 ? static_cast<double>(c[3]) / carbons : 0.0;
        std::string cls = shown(r->class_text);
        out += fmt::format("{:.6f},{:.6f},{:.4f},{:.2f},{:.4f},{:g},{:.4f},{:.4f},{},{},{},{},{},{},{},{},{},{},{},{}\n", r->mass,
                           r->theoretical_mass, r->abundance, r->sn, r->error, r->dbe, hc, oc, csv_field(cls),
                           hill_formula(c, names), iso ? "True" : "False", mono_index, c[0], c[1], c[2], c[3], c[4], c[5],
                           c[6], c[7]);
    }
    return out;
}

namespace {
std::string error_csv(const Spectrum& s, const char* header, bool sn) {
    std::string out = header;
    out += '\n';
    for (int odd = 1; odd >= 0; --odd)
        for (const HitRecord& h : odd ? s.unassigned : s.assigned)
            if (h.hit_code != 0) out += fmt::format("{:f}, {:f}\n", sn ? h.sn : h.mass, h.error);
    return out;
}
}  // namespace

std::string mass_error_csv(const Spectrum& s) { return error_csv(s, "Mass to charge, ppm error", false); }
std::string sn_error_csv(const Spectrum& s) { return error_csv(s, "Signal to noise, ppm error", true); }

int ParseClass(const std::string& text, int* nitrogen, int* oxygen, int* sulfur, int* vanadium, int* nickel) {
    int n = 0, o = 0, s = 0, v = 0, ni = 0;
    auto number_at = [&](std::size_t at, int* out) -> bool {
        if (at >= text.size() || !std::isdigit(static_cast<unsigned char>(text[at]))) return false;
        int x = 0;
        while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) && x < 100000) x = x * 10 + (text[at++] - '0');
        *out = x;
        return true;
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        // An isotope label ("13C1", "34S1") is a count of that isotope, not of
        // the element letter after its mass number.
        if (i > 0 && std::isdigit(static_cast<unsigned char>(text[i - 1]))) {
            std::size_t d = i;
            while (d > 0 && std::isdigit(static_cast<unsigned char>(text[d - 1]))) --d;
            if (d == 0 || text[d - 1] == ' ' || text[d - 1] == ',') continue;
        }
        if (c == 'N' && i + 1 < text.size() && text[i + 1] == 'i') {
            if (!number_at(i + 2, &ni)) return -5;
            ++i;
        } else if (c == 'N') {
            if (!number_at(i + 1, &n)) return -1;
        } else if (c == 'O') {
            if (!number_at(i + 1, &o)) return -2;
        } else if (c == 'S') {
            if (!number_at(i + 1, &s)) return -3;
        } else if (c == 'V') {
            if (!number_at(i + 1, &v)) return -4;
        }
    }
    if (nitrogen) *nitrogen = n;
    if (oxygen) *oxygen = o;
    if (sulfur) *sulfur = s;
    if (vanadium) *vanadium = v;
    if (nickel) *nickel = ni;
    return 0;
}

int BodyFilterSetup(const std::string& text, BodyFilter& f) {
    int n = 0, o = 0, s = 0, v = 0, ni = 0;
    if (ParseClass(text, &n, &o, &s, &v, &ni) == 0) {
        f.n_min = std::max(f.n_min, std::min(n, f.n_max));
        f.o_min = std::max(f.o_min, std::min(o, f.o_max));
        f.s_min = std::max(f.s_min, std::min(s, f.s_max));
    }
    int word = 0;
    if (f.n_max > 0) word |= (f.n_min & 0x7f);
    if (f.o_max > 0) word |= (f.o_min & 0x7f) << 7;
    if (f.s_max > 0) word |= (f.s_min & 0x7f) << 14;
    return word;
}

int UseBodyFilter(const char* text, const BodyFilter& f) {
    if (!text) return -8;
    const std::string t = shown(text);
    if (t == "HC") return 1;
    int n = 0, o = 0, s = 0, v = 0, ni = 0;
    const int rc = ParseClass(t, &n, &o, &s, &v, &ni);
    if (rc < 0) return rc;
    int slack = 1;  // once across N and O, for a row just over its limit
    auto over = [&](int value, int limit) {
        if (value <= limit) return false;
        if (value == limit + 1 && slack > 0) {
            --slack;
            return false;
        }
        return true;
    };
    if (v > 0 && !f.vanadium) return -16;
    if (ni > 0 && !f.nickel) return -17;
    if (v > 1) return -10;
    if (v == 1) {
        if (n < 4 || over(n, f.n_max + 4)) return -11;
        if (o < 4 || over(o, f.o_max + 4)) return -12;
    }
    if (ni > 1) return -14;
    if (ni == 1 && (n < 4 || n > f.n_max + 4)) return -15;
    if (v == 0 && ni == 0) {
        if (n < f.n_min || over(n, f.n_max)) return -2;
        if (o < f.o_min || over(o, f.o_max)) return -3;
    }
    return 1;
}

int parse_body_filter(const std::string& text, BodyFilter& f, Ui& ui) {
    std::size_t at = 0;
    while (at < text.size()) {
        std::size_t end = text.find(',', at);
        if (end == std::string::npos) end = text.size();
        const std::string item = text.substr(at, end - at);
        at = end + 1;
        if (item.empty()) continue;
        int lo = 0, hi = 0;
        char dash = 0;
        const char el = item[0];
        const int got = std::sscanf(item.c_str() + 1, "%d%c%d", &lo, &dash, &hi);
        if ((el != 'N' && el != 'O' && el != 'S') || !(got == 1 || (got == 3 && dash == '-')) || lo < 0 ||
            (got == 3 && hi < lo) || lo > 127 || hi > 127) {
            ui.MessagePopup(kTitle, fmt::format("\"{}\" is not a filter limit: use N0-2,O0-6,S0-1.", item));
            return -1;
        }
        if (got == 1) hi = lo;
        if (el == 'N') f.n_min = lo, f.n_max = hi;
        if (el == 'O') f.o_min = lo, f.o_max = hi;
        if (el == 'S') f.s_min = lo, f.s_max = hi;
    }
    return 0;
}

}  // namespace vx
