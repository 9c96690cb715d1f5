#include "composition/formula.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>

#include <fmt/format.h>

#include "platform/ui.hpp"

namespace vx {

namespace {

constexpr const char* kFormulaTitle = "Formula Calculator";

// Whole counts from real quotients, bounded so that a hostile mass or user
// mass can never overflow the cast.
int bounded_floor(double x) { return static_cast<int>(std::clamp(std::floor(x), -1.0e6, 1.0e6)); }
int bounded_round(double x) { return static_cast<int>(std::clamp(std::round(x), -1.0e6, 1.0e6)); }

// Levels of the walk from the outside in: C, N, O, S, P, user 1 to 6.
constexpr int LEVELS = 11;

struct WalkSetup {
    double test_mass = 0.0;
    double tol = 0.0;
    double e = 0.0;  // signed electron term
    double dbe_offset = 0.0;
    double mh = 0.0;
    std::array<double, LEVELS> m{};
    std::array<int, LEVELS> lo{}, hi{};
    int hmin = 0, hmax = -1;
    std::array<int, 6> valence{};
    std::array<bool, 6> iso{};
    bool multi = false;
    long max_iter = 0;
};

// The walk itself. visit(counts, candidate_mass) sees every composition within
// the tolerance; the walk ends after max_iter of them.
template <class Visit>
struct Walker {
    const WalkSetup& w;
    Visit& visit;
    std::array<int, LEVELS> c{};
    std::array<double, LEVELS + 1> deeper{};
    double limit = 0.0;
    long candidates = 0;
    long steps = 0;  // levels entered, a second guard for walks that find nothing
    bool stop = false;

    Walker(const WalkSetup& setup, Visit& v) : w(setup), visit(v) {
        limit = w.test_mass + w.tol;
        deeper[LEVELS] = w.hmin * w.mh;
        for (int L = LEVELS - 1; L >= 0; --L) deeper[static_cast<std::size_t>(L)] =
            deeper[static_cast<std::size_t>(L + 1)] + (L + 1 < LEVELS ? w.lo[static_cast<std::size_t>(L + 1)] * w.m[static_cast<std::size_t>(L + 1)] : 0.0);
    }

    void run() {
        if (w.hi[0] < w.lo[0]) return;
        // Carbon goes downwards; a count too heavy for the mass goes on to the
        // next lower count rather than ending the level.
        for (int v = w.hi[0]; v >= w.lo[0] && !stop; --v) {
            const double m = v * w.m[0];
            if (m + w.e + deeper[0] > limit) continue;
            c[0] = v;
            level(1, m);
        }
    }

    void level(int L, double fixed) {
        if (++steps > w.max_iter * 1000) stop = true;
        if (L == LEVELS) {
            bottom(fixed);
            return;
        }
        const auto l = static_cast<std::size_t>(L);
        for (int v = w.lo[l]; v <= w.hi[l] && !stop; ++v) {
            const double m = fixed + v * w.m[l];
            if (m + w.e + deeper[l] > limit) break;  // larger counts only add mass
            if (L >= 6 && w.multi && v > 0 && w.iso[l - 5]) {
                bool clash = false;
                for (std::size_t j = 0; j + 5 < l; ++j)
                    if (w.iso[j] && c[5 + j] > 0) clash = true;
                if (clash) break;
            }
            c[l] = v;
            level(L + 1, m);
        }
        c[l] = 0;
    }

    void bottom(double fixed) {
        const double m0 = fixed + w.e;
        int h = bounded_floor((w.test_mass - m0) / w.mh);
        if (!(w.hmin <= h + 1 && (w.hmax == -1 || h <= w.hmax))) return;
        double cand = h * w.mh + m0;
        if (std::fabs(cand - w.test_mass) > w.tol) {
            ++h;
            cand += w.mh;
        }
        if (std::fabs(cand - w.test_mass) > w.tol) return;
        // A negative hydrogen count is no composition (reachable only with
        // tolerances near a whole hydrogen mass).
        if (h < 0) return;
        ElementCounts counts{};
        counts[0] = c[0];
        counts[1] = h;
        for (std::size_t i = 1; i < static_cast<std::size_t>(LEVELS); ++i) counts[i + 1] = c[i];
        visit(counts, cand);
        if (++candidates >= w.max_iter) stop = true;
    }
};

// Masses and tolerances beyond any ion a composition search can be asked for.
constexpr double kMaxTestMass = 100000.0;
constexpr double kMaxToleranceDa = 1000.0;

// The preparation shared by both searches. Returns 0 with setup filled, 1 when
// there is nothing to search, or -1 after a message or the user's quit.
int prepare_walk(const FormulaSettings& s, double test_mass, double ppm, bool single, int cap1, int cap2,
                 bool topdown, Ui& ui, WalkSetup& w) {
    if (!(test_mass > 0.0) || !std::isfinite(test_mass)) {
        ui.MessagePopup(kFormulaTitle, fmt::format("The mass {} is not a positive m/z; nothing was searched.", test_mass));
        return -1;
    }
    if (!(ppm >= 0.0) || !std::isfinite(ppm)) {
        ui.MessagePopup(kFormulaTitle, fmt::format("The mass accuracy {} ppm is not a usable tolerance.", ppm));
        return -1;
    }
    if (check_formula_settings(s, ui) < 0) return -1;
    if (test_mass > kMaxTestMass || test_mass * ppm / 1000000.0 > kMaxToleranceDa) {
        ui.MessagePopup(kFormulaTitle, fmt::format("A search at m/z {} with {} ppm is beyond what a composition search "
                                                   "can walk (m/z up to {}, tolerance up to {} Da).",
                                                   test_mass, ppm, kMaxTestMass, kMaxToleranceDa));
        return -1;
    }

    const double mc = first_isotope_mass(SLOT_C), mh = first_isotope_mass(SLOT_H);
    const double mn = first_isotope_mass(SLOT_N), mo = first_isotope_mass(SLOT_O);
    const double ms = first_isotope_mass(SLOT_S), mp = first_isotope_mass(SLOT_P);

    std::array<int, 6> umax{}, umin{};
    for (std::size_t i = 0; i < 6; ++i) {
        umax[i] = s.user[i].max;
        umin[i] = s.user[i].min;
    }
    // Caller's caps: a cap below the maximum replaces it. User 2's cap is
    // compared with its own maximum but stores user 1's cap, as the
    // multi-peak search always has (both caps are equal in every call).
    if (cap1 < umax[0]) umax[0] = cap1;
    if (cap2 < umax[1]) umax[1] = single ? cap2 : cap1;

    w = WalkSetup{};
    w.test_mass = test_mass;
    w.tol = test_mass * ppm / 1000000.0;
    w.e = charge_electron_term(s.mode);
    w.dbe_offset = charge_dbe_offset(s.mode);
    w.mh = mh;
    w.hmin = s.H_MIN;
    w.hmax = s.H_MAX;
    w.multi = s.MULTI_USR_ELEMENTS;
    w.max_iter = std::max<long>(1, s.MAX_ITER);

    if (w.tol >= ERROR_LIMIT_DA) {
        if (ui.ConfirmPopup(" Error Limit Warning - User Defined Error of Greater than 1 Dalton",
                            "This may result in a massive number of hits. Do you want to Quit and try again?"))
            return -1;
        // No other technique exists: the same search runs after the notice.
        ui.MessagePopup("Sorry this error requires an alternate and much slower technique",
                        single ? "Please lower the error or talk to QORMT staff."
                               : "Please lower the error or talk to a programmer.");
    }

    double R = w.tol + test_mass - (s.C_MIN * mc + s.H_MIN * mh + s.N_MIN * mn + s.O_MIN * mo + s.S_MIN * ms + s.P_MIN * mp);
    if (single) {
        for (std::size_t i = 0; i < 6; ++i) R -= umin[i] * s.user[i].mass;
        R -= w.e;
    }
    auto fill = [&](int mn_, int mx, double mass) { return mx == -1 ? mn_ + bounded_floor(R / mass) : mx; };
    const int cmax = fill(s.C_MIN, s.C_MAX, mc);
    w.m = {mc, mn, mo, ms, mp, 0, 0, 0, 0, 0, 0};
    w.lo = {s.C_MIN, s.N_MIN, s.O_MIN, s.S_MIN, s.P_MIN, 0, 0, 0, 0, 0, 0};
    w.hi = {cmax, fill(s.N_MIN, s.N_MAX, mn), fill(s.O_MIN, s.O_MAX, mo), fill(s.S_MIN, s.S_MAX, ms),
            fill(s.P_MIN, s.P_MAX, mp), 0, 0, 0, 0, 0, 0};
    for (std::size_t i = 0; i < 6; ++i) {
        const UserElement& u = s.user[i];
        w.valence[i] = u.valence;
        w.iso[i] = u.isotope;
        int lo = umin[i], hi = umax[i];
        if (!(u.mass > 0.0)) {
            lo = hi = 0;  // a slot without a mass cannot take part
        } else if (hi == -1) {
            hi = bounded_floor(R / u.mass);
        }
        // In the multi-peak search a user element takes part only as a
        // flagged isotope; TOPDOWN keeps user slots 1 and 2 out as well.
        if (!single && (!u.isotope || (topdown && i < 2))) lo = hi = 0;
        w.m[5 + i] = u.mass;
        w.lo[5 + i] = lo;
        w.hi[5 + i] = hi;
    }
    const int top = single ? bounded_floor((R + s.C_MIN * mc) / mc) : bounded_round((w.tol + test_mass) / mc);
    w.hi[0] = std::min(cmax, top);
    return w.hi[0] < w.lo[0] ? 1 : 0;
}

struct Judged {
    double dbe = 0.0;
    double ppm = 0.0;
    double score = -1.0;
    bool accepted = false;
};

Judged judge(const FormulaSettings& s, const WalkSetup& w, const ElementCounts& c, double cand, double margin,
             bool multi_topdown) {
    Judged j;
    double sum = 2.0 * c[0] + 2.0 + c[2] + c[5] - c[1];
    for (std::size_t i = 0; i < 6; ++i) sum += (w.valence[i] - 2) * c[6 + i];
    j.dbe = sum / 2.0 + w.dbe_offset;
    const double idbe = std::floor(j.dbe);
    j.ppm = (w.test_mass - cand) * 1000000.0 / w.test_mass;
    const int positive = s.mode == ChargeMode::POS ? 1 : 0;
    if (c[6] <= c[0] && c[7] <= c[4]) {
        // Oxygen costs nothing unless the mode is positive.
        j.score = s.A * std::fabs(j.ppm) + s.B * (c[2] + c[4] + c[5] + c[3] * positive) +
                  s.C * ((w.iso[0] ? 1 : 0) * c[6] + (w.iso[1] ? 1 : 0) * c[7]);
    }
    if (multi_topdown && (c[6] != 0 || c[7] != 0)) j.score = -1.0;
    j.accepted = s.SHOW_ALL || (std::fabs(j.score - -1.0) > margin && s.dbe_min <= j.dbe && j.dbe <= s.DBE &&
                                (std::fabs(idbe - j.dbe) < margin || s.RADICALS));
    return j;
}

std::vector<HitRecord>& kendrick_array(Spectrum& sp, int oddeven) { return oddeven ? sp.unassigned : sp.assigned; }

}  // namespace

FormulaSettings molecal_defaults() {
    FormulaSettings s;
    s.user[0] = UserElement{"13C", 13.003354838, 0, 1, 4, true};
    s.user[1] = UserElement{"34S", 33.967866831, 0, 1, 2, true};
    return s;
}

FormulaSettings molecaluno_defaults() {
    FormulaSettings s;
    s.user[0] = UserElement{"13C", 13.00335483507, 0, 1, 4, true};
    s.user[1] = UserElement{"34S", 33.967867004, 0, 1, 2, true};
    return s;
}

UserMasses user_masses_of(const FormulaSettings& s) {
    UserMasses m{};
    for (std::size_t i = 0; i < 6; ++i) m[i] = s.user[i].mass;
    return m;
}

std::array<std::string, 6> user_names_of(const FormulaSettings& s) {
    std::array<std::string, 6> n;
    for (std::size_t i = 0; i < 6; ++i) n[i] = s.user[i].name;
    return n;
}

int check_formula_settings(const FormulaSettings& s, Ui& ui) {
    struct R {
        std::string name;
        int lo, hi;
    };
    std::vector<R> ranges = {{"C", s.C_MIN, s.C_MAX}, {"H", s.H_MIN, s.H_MAX}, {"N", s.N_MIN, s.N_MAX},
                             {"O", s.O_MIN, s.O_MAX}, {"S", s.S_MIN, s.S_MAX}, {"P", s.P_MIN, s.P_MAX}};
    for (const UserElement& u : s.user) ranges.push_back({u.name, u.min, u.max});
    for (const R& r : ranges) {
        if (r.lo < 0) {
            ui.MessagePopup(kFormulaTitle, fmt::format("The minimum of {} ({}) is below 0.", r.name, r.lo));
            return -1;
        }
        if (r.hi != -1 && r.lo > r.hi) {
            ui.MessagePopup(kFormulaTitle,
                            fmt::format("The minimum of {} ({}) is above its maximum ({}).", r.name, r.lo, r.hi));
            return -1;
        }
    }
    return 0;
}

int parse_element_ranges(const std::string& text, FormulaSettings& s, Ui& ui) {
    FormulaSettings out = s;
    out.C_MIN = out.C_MAX = out.H_MIN = out.H_MAX = 0;
    out.N_MIN = out.N_MAX = out.O_MIN = out.O_MAX = out.S_MIN = out.S_MAX = out.P_MIN = out.P_MAX = 0;
    for (UserElement& u : out.user) u = UserElement{};
    std::size_t next_user = 0;
    std::size_t pos = 0;
    while (pos <= text.size()) {
        std::size_t end = text.find(',', pos);
        if (end == std::string::npos) end = text.size();
        std::string item = text.substr(pos, end - pos);
        pos = end + 1;
        item.erase(std::remove_if(item.begin(), item.end(), [](unsigned char ch) { return std::isspace(ch); }), item.end());
        if (item.empty()) {
            if (end == text.size()) break;
            continue;
        }
        // Symbol: optional mass number, capital, optional small letter.
        std::size_t k = 0;
        while (k < item.size() && std::isdigit(static_cast<unsigned char>(item[k]))) ++k;
        if (k < item.size() && std::isupper(static_cast<unsigned char>(item[k]))) ++k;
        if (k < item.size() && std::islower(static_cast<unsigned char>(item[k]))) ++k;
        const std::string sym = item.substr(0, k);
        const std::string range = item.substr(k);
        auto bad = [&](const std::string& why) {
            ui.MessagePopup(kFormulaTitle, fmt::format("Element range \"{}\": {}.", item, why));
            return -1;
        };
        const auto choice = find_element_or_isotope(sym);
        if (sym.empty() || !choice) return bad(fmt::format("unknown element symbol \"{}\"", sym.empty() ? item : sym));
        int lo = 0, hi = 0;
        const auto dash = range.find('-');
        try {
            std::size_t used = 0;
            if (range.empty()) {
                lo = 0;
                hi = -1;  // bare symbol: as many as the mass allows
            } else if (dash == std::string::npos) {
                lo = hi = std::stoi(range, &used);
                if (used != range.size()) return bad("the range is not a number or LO-HI");
            } else {
                const std::string a = range.substr(0, dash), b = range.substr(dash + 1);
                lo = std::stoi(a, &used);
                if (used != a.size()) return bad("the range is not a number or LO-HI");
                hi = std::stoi(b, &used);
                if (used != b.size()) return bad("the range is not a number or LO-HI");
            }
        } catch (const std::exception&) {
            return bad("the range is not a number or LO-HI");
        }
        if (lo < 0) return bad("a count cannot be negative");
        if (hi != -1 && lo > hi) return bad(fmt::format("the minimum {} is above the maximum {}", lo, hi));
        int* fixed_lo = nullptr;
        int* fixed_hi = nullptr;
        if (!choice->isotope) {
            const std::string& e = choice->name;
            if (e == "C") fixed_lo = &out.C_MIN, fixed_hi = &out.C_MAX;
            else if (e == "H") fixed_lo = &out.H_MIN, fixed_hi = &out.H_MAX;
            else if (e == "N") fixed_lo = &out.N_MIN, fixed_hi = &out.N_MAX;
            else if (e == "O") fixed_lo = &out.O_MIN, fixed_hi = &out.O_MAX;
            else if (e == "S") fixed_lo = &out.S_MIN, fixed_hi = &out.S_MAX;
            else if (e == "P") fixed_lo = &out.P_MIN, fixed_hi = &out.P_MAX;
        }
        if (fixed_lo) {
            *fixed_lo = lo;
            *fixed_hi = hi;
            continue;
        }
        if (next_user >= 6) return bad("at most six elements besides C, H, N, O, S and P");
        out.user[next_user++] = UserElement{choice->name, choice->mass, lo, hi, choice->valence, choice->isotope};
    }
    s = out;
    return 0;
}

const char* hit_prefix(int hit_code, int oddeven) {
    switch (hit_code) {
    case 1: return ",";
    case 100: return oddeven ? "*," : "*, ";
    case 200: return oddeven ? "#," : "#, ";
    case 400: return oddeven ? "#*," : "#*, ";
    default: return "";
    }
}

void BuildFormula(std::string& formula_text, const ElementCounts& c, const FormulaSettings& s, std::string& class_text) {
    std::string f, cls;
    static const char* const letters[6] = {"C", "H", "N", "O", "S", "P"};
    for (std::size_t i = 0; i < 6; ++i) {
        const int n = c[i];
        if (n < 1) {
            f += ",,";
            continue;
        }
        std::string piece = fmt::format("{},{}, ", letters[i], n);
        std::size_t width = n < 10 ? 4 : n < 100 ? 5 : n < 1000 ? 6 : 7;
        if (i >= 2) width = std::min<std::size_t>(width, 6);
        piece.resize(width);
        f += piece;
    }
    for (std::size_t i = 0; i < 6; ++i) {
        const int n = c[6 + i];
        const std::string& name = s.user[i].name.empty() ? std::string("??") : s.user[i].name;
        if (n < 1) {
            f += ",,";
            continue;
        }
        if (name == "??") {
            // An unnamed slot writes nothing of its own; the working text is
            // appended to itself, as the exports of older versions show.
            f += f;
            continue;
        }
        std::string piece = fmt::format("{},{}, ", name, n);
        piece.resize(7, ' ');
        f += piece;
    }
    // Hydrocarbon label: the number of C and H present, cleared by a
    // heteroatom, lowered to "HC plus isotope" by a 13C or 34S slot.
    int hc = (c[0] > 0 ? 1 : 0) + (c[1] > 0 ? 1 : 0);
    static const char* const hetero[4] = {"N", "O", "S", "P"};
    for (std::size_t i = 0; i < 4; ++i)
        if (c[2 + i] > 0) {
            cls += fmt::format("{}{} ", hetero[i], c[2 + i]);
            hc = 0;
        }
    for (std::size_t i = 0; i < 6; ++i) {
        const int n = c[6 + i];
        if (n < 1) continue;
        const std::string& name = s.user[i].name.empty() ? std::string("??") : s.user[i].name;
        if (name == "??") cls += cls;
        else cls += fmt::format("{}{} ", name, n);
        if (i < 2) {
            if (hc == 2) hc = 1;
        } else {
            hc = 0;
        }
    }
    if (hc == 1) cls = "HC" + cls;
    else if (hc == 2) cls = "HC";
    formula_text = f;
    class_text = cls;
}

void assign_single_hit(int peak_index, const FormulaHit& record, int oddeven, double score, int hit_code, double ppm,
                       Spectrum& spectrum, const FormulaSettings& settings, Ui& ui) {
    auto& arr = kendrick_array(spectrum, oddeven);
    if (peak_index < 0 || peak_index >= static_cast<int>(arr.size())) return;
    const int series = arr[static_cast<std::size_t>(peak_index)].series;
    const double test_mass = arr[static_cast<std::size_t>(peak_index)].mass;
    int first = peak_index;
    while (first > 0 && arr[static_cast<std::size_t>(first - 1)].series >= series) --first;
    const UserMasses um = user_masses_of(settings);
    const int positive = settings.mode == ChargeMode::POS ? 1 : 0;
    for (int j = first; j < static_cast<int>(arr.size()) && arr[static_cast<std::size_t>(j)].series <= series; ++j) {
        HitRecord& h = arr[static_cast<std::size_t>(j)];
        std::string cls;
        if (score != 0.0) {
            // CH2 steps from the test peak. A member that is no mass a series can
            // reach (a damaged list can hold any number) is left as it is rather
            // than given an element count that overflows.
            const double steps = std::round((h.mass - test_mass) / CH2_LITERAL);
            if (!(std::fabs(steps) <= 100000.0)) continue;
            const int k = static_cast<int>(steps);
            h.counts = record.counts;
            h.counts[0] = record.counts[0] + k;
            h.counts[1] = record.counts[1] + 2 * k;
            h.isotope_code = record.isotope_code;
            h.dbe = record.dbe;
            std::string ftext;
            BuildFormula(ftext, h.counts, settings, cls);
            h.formula_text = std::string(hit_prefix(hit_code, oddeven)) + ftext;
            h.hit_code = hit_code;
            CalculateTheorMass(h, positive, um);
            if (h.counts[0] < 2 || h.counts[0] > 10000)
                ui.Console(fmt::format("Error : {} {} has a carbon count of {}\n", oddeven ? "Oddarray" : "Evenarray", j,
                                       h.counts[0]));
            if (!settings.IGNOREOVERS && std::fabs(h.error) > ppm)
                ui.Console(fmt::format(
                    "Overlimit error : {} {} ppm error equals {:f} as calculated from experimental mz = {:f} and theor_mz = {:f}.\n",
                    oddeven ? "Odd_array" : "Even_array", j, h.error, h.mass, h.theoretical_mass));
        } else {
            h.formula_text = "No Hit";
            h.counts = ElementCounts{};
            h.dbe = 0.0;
            h.hit_code = 0;
            h.isotope_code = 0;
            h.theoretical_mass = -1.0;
            h.error = 1000.0;
        }
        h.score = score;
        h.class_text = "," + cls;
    }
}

int find_masses(double test_mass, int peak_index, double ppm, int oddeven, int max_user1, int max_user2,
                int no_topdown, Spectrum& spectrum, const FormulaSettings& settings, Ui& ui) {
    const bool topdown = settings.TOPDOWN && !no_topdown;
    WalkSetup w;
    const int prep = prepare_walk(settings, test_mass, ppm, false, max_user1, max_user2, topdown, ui, w);
    if (prep < 0) return -1;
    auto& arr = kendrick_array(spectrum, oddeven);
    const double ch2 = CalculateMassCH2();
    FormulaHit best;
    bool kept = false;
    int hits = 0;
    std::vector<FormulaHit> candidates;  // for series_fit
    auto visit = [&](const ElementCounts& c, double cand) {
        Judged j = judge(settings, w, c, cand, 0.00001, topdown);
        if (!j.accepted) return;
        const bool valid = j.score != -1.0;
        if (valid && (!kept || j.score < best.score)) {
            if (topdown && oddeven && peak_index > 0 && peak_index < static_cast<int>(arr.size())) {
                // A series member below the test peak must still have
                // non-negative C and H after taking away CH2.
                const int series = arr[static_cast<std::size_t>(peak_index)].series;
                for (int q = peak_index - 1; q >= 1; --q) {
                    const int k = static_cast<int>(std::lround((test_mass - arr[static_cast<std::size_t>(q)].mass) / ch2));
                    if (c[0] - k < 0 || c[1] - 2 * k < 0) {
                        j.score = -1.0;
                        break;
                    }
                    if (arr[static_cast<std::size_t>(q - 1)].series < series) break;
                }
            }
            if (j.score > -1.0) {
                best.counts = c;
                best.mass = cand;
                best.dbe = j.dbe;
                best.ppm = j.ppm;
                best.score = j.score;
                best.isotope_code = c[7] * 100 + c[6];
                kept = true;
            }
        }
        if (j.score != -1.0) {
            ++hits;
            if (settings.series_fit && j.score > -1.0)
                candidates.push_back(FormulaHit{c, cand, j.ppm, j.dbe, j.score, c[7] * 100 + c[6]});
        }
    };
    if (prep == 0) {
        Walker<decltype(visit)> walker(w, visit);
        walker.run();
        if (walker.stop)
            ui.Console(fmt::format("Search at m/z {:f} stopped after {} candidates (MAX_ITER).\n", test_mass,
                                   walker.candidates));
    }
    if (settings.series_fit && candidates.size() > 1 && peak_index >= 0 && peak_index < static_cast<int>(arr.size())) {
        // Members of the test peak's series, and how many of them each
        // candidate explains within the tolerance.
        const int series = arr[static_cast<std::size_t>(peak_index)].series;
        int first = peak_index, last = peak_index;
        while (first > 0 && arr[static_cast<std::size_t>(first - 1)].series == series) --first;
        while (last + 1 < static_cast<int>(arr.size()) && arr[static_cast<std::size_t>(last + 1)].series == series) ++last;
        int best_fit = -1;
        for (const FormulaHit& h : candidates) {
            int fit = 0;
            for (int q = first; q <= last; ++q) {
                const double mq = arr[static_cast<std::size_t>(q)].mass;
                const long k = std::lround((mq - test_mass) / CH2_LITERAL);
                if (h.counts[0] + k < 0 || h.counts[1] + 2 * k < 0) continue;
                const double theor = h.mass + static_cast<double>(k) * ch2;
                if (std::fabs(mq - theor) <= mq * ppm / 1000000.0) ++fit;
            }
            if (fit > best_fit || (fit == best_fit && h.score < best.score)) {
                best_fit = fit;
                best = h;
            }
        }
    }
    if (hits == 1 && kept && max_user1 != 0 && max_user2 != 0) {
        assign_single_hit(peak_index, best, oddeven, 100.0, 1, ppm, spectrum, settings, ui);
    } else if (hits == 0 || !kept) {
        if (peak_index >= 0 && peak_index < static_cast<int>(arr.size())) {
            arr[static_cast<std::size_t>(peak_index)].formula_text = "No Hit";
            arr[static_cast<std::size_t>(peak_index)].class_text.clear();
        }
        assign_single_hit(peak_index, FormulaHit{}, oddeven, 0.0, 0, ppm, spectrum, settings, ui);
    } else if (hits > 1) {
        assign_single_hit(peak_index, best, oddeven, 50.0, 100, ppm, spectrum, settings, ui);
    }
    return hits;
}

int find_masses_single(double mass, double ppm, int max_user1, int max_user2, int op_index, int oddeven,
                       int peak_index, int petro_flag, Spectrum& spectrum, const FormulaSettings& settings, Ui& ui,
                       SingleSearchResult* out) {
    WalkSetup w;
    const int prep = prepare_walk(settings, mass, ppm, true, max_user1, max_user2, false, ui, w);
    if (prep < 0) return -1;
    SingleSearchResult local;
    SingleSearchResult& res = out ? *out : local;
    res = SingleSearchResult{};
    int accepted = 0;
    bool picked = false;
    auto visit = [&](const ElementCounts& c, double cand) {
        const Judged j = judge(settings, w, c, cand, 0.0001, false);
        if (!j.accepted) return;
        FormulaHit h;
        h.counts = c;
        h.mass = cand;
        h.ppm = j.ppm;
        h.dbe = j.dbe;
        h.score = j.score;
        h.isotope_code = c[7] * 100 + c[6];
        h.running = accepted;
        if (op_index >= 0) {
            if (accepted == op_index && !picked) {
                int iso = 0;
                for (std::size_t i = 0; i < 6; ++i) iso += (settings.user[i].isotope ? 1 : 0) * c[6 + i];
                const int code = iso > 0 ? (petro_flag == 1 ? 200 : 400) : (petro_flag == 1 ? 1 : 100);
                assign_single_hit(peak_index, h, oddeven, h.score, code, ppm, spectrum, settings, ui);
                res.hits.push_back(h);
                picked = true;
            }
        } else {
            res.hits.push_back(h);
        }
        ++accepted;
    };
    if (prep == 0) {
        Walker<decltype(visit)> walker(w, visit);
        walker.run();
        res.stopped_at_max_iter = walker.stop;
        if (walker.stop)
            ui.Console(fmt::format("Search at m/z {:f} stopped after {} candidates (MAX_ITER).\n", mass,
                                   walker.candidates));
    }
    if (accepted > 0 && settings.SORT && op_index < 0)
        std::stable_sort(res.hits.begin(), res.hits.end(), [](const FormulaHit& a, const FormulaHit& b) {
            // Errors closer than 1e-8 ppm count as equal and keep their order.
            return std::fabs(a.ppm) < std::fabs(b.ppm) - 0.00000001;
        });
    return accepted;
}

}  // namespace vx
