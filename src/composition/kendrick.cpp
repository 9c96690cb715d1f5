#include "composition/kendrick.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <numeric>

#include <fmt/format.h>
#include <fmt/printf.h>

#include "composition/elements.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"

namespace vx {

namespace {
constexpr const char* kKendrickTitle = "Kendrick Analysis";
}

bool kendrick_base(const std::string& base, double& step, double& factor) {
    if (base == "CH2") {
        step = CalculateMassCH2();
        factor = KENDRICK_FACTOR_CH2;
        return true;
    }
    double mass = 0.0;
    int nominal = 0;
    std::size_t i = 0;
    if (base.empty()) return false;
    while (i < base.size()) {
        if (!std::isupper(static_cast<unsigned char>(base[i]))) return false;
        std::string sym(1, base[i++]);
        if (i < base.size() && std::islower(static_cast<unsigned char>(base[i]))) sym += base[i++];
        int n = 0;
        std::size_t digits = 0;
        while (i < base.size() && std::isdigit(static_cast<unsigned char>(base[i])) && digits < 4) {
            n = n * 10 + (base[i++] - '0');
            ++digits;
        }
        if (digits == 0) n = 1;
        const auto slot = find_element(sym);
        if (!slot || n == 0) return false;
        const IsotopeEntry& iso = element_table()[static_cast<std::size_t>(*slot)].isotopes[0];
        mass += n * iso.mass;
        nominal += n * static_cast<int>(std::lround(iso.mass));
    }
    if (nominal <= 0) return false;
    step = mass;
    factor = mass / nominal;
    return true;
}

KendrickValues kendrick_values(double mz, double factor) {
    KendrickValues v;
    v.km = mz / factor;
    const double nominal = std::clamp(std::round(v.km), -2.0e9, 2.0e9);
    v.nominal = static_cast<std::int32_t>(nominal);
    v.kmd = static_cast<std::int32_t>(std::clamp(std::round((nominal - v.km) * 1000.0), -2.0e9, 2.0e9));
    // C's remainder keeps the sign of the nominal mass; z* is negative for
    // every positive mass.
    v.z_star = (v.nominal % 14) - 14;
    // Parity goes by the floor, not by the rounded nominal mass: a fraction
    // above 0.5 puts a peak in the array of its floor.
    v.odd = std::fabs(std::fmod(std::floor(v.km), 2.0)) == 1.0;
    return v;
}

int AssignKendrickSeries(std::vector<HitRecord>& a, std::vector<double>& working, int anchor, int series, double ppm,
                         double up, double down, double step) {
    const int n = static_cast<int>(a.size());
    a[static_cast<std::size_t>(anchor)].series = series;
    working[static_cast<std::size_t>(anchor)] = 0.0;
    int members = 1;
    const double first_mass = a.front().mass, last_mass = a.back().mass;
    const double tol = ppm / 1000000.0;
    auto in_band = [&](double ab, double ref) { return ab >= (1.0 - down) * ref && ab <= (1.0 + up) * ref; };

    for (int dir = -1; dir <= 1; dir += 2) {
        int current = anchor;
        double ref = a[static_cast<std::size_t>(anchor)].abundance;
        double target = a[static_cast<std::size_t>(anchor)].mass + dir * step;
        int scan = anchor;  // where the walk through the sorted list stands
        for (;;) {
            const double lo = target * (1.0 - tol), hi = target * (1.0 + tol);
            if (dir < 0 ? hi < first_mass : lo > last_mass) break;
            int held = -1;
            int j = scan + dir;
            for (; j >= 0 && j < n; j += dir) {
                const double m = a[static_cast<std::size_t>(j)].mass;
                if (dir < 0 ? m < lo : m > hi) break;  // past the window
                if (m < lo || m > hi || a[static_cast<std::size_t>(j)].series != -1) continue;
                if (held < 0) {
                    held = j;
                    continue;
                }
                const bool cand_in = in_band(a[static_cast<std::size_t>(j)].abundance, ref);
                const bool held_in = in_band(a[static_cast<std::size_t>(held)].abundance, ref);
                if ((cand_in && !held_in) ||
                    (cand_in == held_in && std::fabs(m - target) < std::fabs(a[static_cast<std::size_t>(held)].mass - target)))
                    held = j;
            }
            if (held >= 0) {
                HitRecord& h = a[static_cast<std::size_t>(held)];
                h.series = series;
                working[static_cast<std::size_t>(held)] = 0.0;
                ++members;
                current = held;
                scan = held;
                ref = h.abundance;
                target = h.mass + dir * step;
            } else {
                // One missing member does not end the series: the walk goes
                // on one step further from the empty target. Across a stretch
                // without peaks it moves straight to the step before the next
                // peak, which finds the same members without visiting every
                // empty window.
                scan = std::clamp(j - dir, 0, n - 1);
                if ((dir < 0 && scan > current) || (dir > 0 && scan < current)) scan = current;
                double steps = 1.0;
                if (j >= 0 && j < n) {
                    const double d = dir * (a[static_cast<std::size_t>(j)].mass - target);
                    if (d > 2.0 * step) steps = std::floor(d / step) - 1.0;
                } else {
                    break;  // no peak left in this direction
                }
                target += dir * step * steps;
            }
        }
    }
    return members;
}

void Set_KMD_series_by_flag(std::vector<HitRecord>& a, std::vector<std::int32_t>& first_index) {
    first_index.clear();
    std::int32_t next = -1;
    std::int32_t last_value = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const std::int32_t v = a[i].series;
        if (i == 0 || (v != last_value && v != 1000000)) {
            ++next;
            first_index.push_back(static_cast<std::int32_t>(i));
        }
        last_value = v;
        a[i].series = next;
    }
    if (!a.empty()) first_index.push_back(static_cast<std::int32_t>(a.size() - 1));
}

std::vector<KendrickRank> RankKendrickGroups(const std::vector<HitRecord>& odd, const std::vector<HitRecord>& even) {
    std::vector<KendrickRank> groups;
    for (int o = 1; o >= 0; --o) {
        const auto& a = o ? odd : even;
        for (std::size_t i = 0; i < a.size(); ++i) {
            if (i == 0 || a[i].series != a[i - 1].series) {
                KendrickRank g;
                g.first = g.last = g.most_abundant = static_cast<std::int32_t>(i);
                g.series = a[i].series;
                g.highest = a[i].abundance;
                g.odd = o;
                g.sum = 0.0;
                groups.push_back(g);
            }
            KendrickRank& g = groups.back();
            g.last = static_cast<std::int32_t>(i);
            g.sum += a[i].abundance;
            if (a[i].abundance > g.highest) {
                g.highest = a[i].abundance;
                g.most_abundant = static_cast<std::int32_t>(i);
            }
        }
    }
    // Highest abundance first; a stable order keeps the earliest of equals.
    std::stable_sort(groups.begin(), groups.end(),
                     [](const KendrickRank& x, const KendrickRank& y) { return x.highest > y.highest; });
    return groups;
}

int LocateKendrickMass(double* mass, const std::vector<HitRecord>& peaks, double tolerance, std::vector<int>& matches,
                       int* best, double max_abundance) {
    matches.clear();
    const double target = *mass;
    double closest = -1.0;
    for (std::size_t i = 0; i < peaks.size(); ++i) {
        const HitRecord& h = peaks[i];
        if (h.hit_code != 0 || std::fabs(h.mass - target) > tolerance || !(h.abundance < max_abundance)) continue;
        matches.push_back(static_cast<int>(i));
        if (closest < 0.0 || std::fabs(h.mass - target) < closest) {
            closest = std::fabs(h.mass - target);
            if (best) *best = static_cast<int>(i);
        }
    }
    if (!matches.empty() && best) *mass = peaks[static_cast<std::size_t>(*best)].mass;
    return static_cast<int>(matches.size());
}

int CheckForIncompatibleKendrickMembers(const ElementCounts& hit, int peak, double mass, int oddeven,
                                        const Spectrum& spectrum) {
    if (!oddeven) return 0;
    const auto& a = spectrum.unassigned;
    if (peak < 0 || peak >= static_cast<int>(a.size())) return 0;
    const double ch2 = CalculateMassCH2();
    const int series = a[static_cast<std::size_t>(peak)].series;
    for (int q = peak - 1; q >= 0 && a[static_cast<std::size_t>(q)].series == series; --q) {
        const long k = std::lround((mass - a[static_cast<std::size_t>(q)].mass) / ch2);
        if (hit[0] - k < 0 || hit[1] - 2 * k < 0) return -1;
    }
    return 0;
}

std::vector<std::vector<std::int32_t>> rank_index(const KendrickTables& t) {
    std::vector<std::vector<std::int32_t>> r(2);
    r[0].assign(static_cast<std::size_t>(std::max(0, t.even_series)), -1);
    r[1].assign(static_cast<std::size_t>(std::max(0, t.odd_series)), -1);
    for (std::size_t i = 0; i < t.ranks.size(); ++i) {
        const KendrickRank& k = t.ranks[i];
        auto& v = r[static_cast<std::size_t>(k.odd)];
        if (k.series >= 0 && k.series < static_cast<std::int32_t>(v.size())) v[static_cast<std::size_t>(k.series)] = static_cast<std::int32_t>(i);
    }
    return r;
}

int KendrickCalculate(Spectrum& spectrum, const KendrickOptions& o, KendrickTables& tables, Ui& ui) {
    double step = 0.0, factor = 0.0;
    if (!kendrick_base(o.base, step, factor)) {
        ui.MessagePopup(kKendrickTitle, fmt::format("\"{}\" is not a Kendrick base of known elements (CH2, H2, CO2 ...).", o.base));
        return -1;
    }
    if (!(o.ppm > 0.0) || !(o.up >= 0.0) || !(o.down >= 0.0) || !std::isfinite(o.ppm)) {
        ui.MessagePopup(kKendrickTitle, "The series window needs a ppm above 0 and abundance bands of 0 or more.");
        return -1;
    }
    std::vector<HitRecord> odd, even;
    for (std::size_t i = 0; i < spectrum.peaks.size(); ++i) {
        const Peak& p = spectrum.peaks[i];
        if (!(p.mass > 0.0) || !std::isfinite(p.mass)) continue;
        const KendrickValues v = kendrick_values(p.mass, factor);
        HitRecord h;
        h.kmd = v.kmd;
        h.z_star = v.z_star;
        h.source_index = static_cast<std::int32_t>(i);
        h.mass = p.mass;
        h.relabundance = p.relabundance;
        h.resolvingpower = p.resolvingpower;
        h.sn = p.sn;
        h.abundance = p.abundance;
        h.frequency = p.frequency;
        (v.odd ? odd : even).push_back(std::move(h));
    }
    if (odd.empty() && even.empty()) {
        ui.MessagePopup(kKendrickTitle, "The peak list is empty: there is nothing to group into series.");
        return -1;
    }
    auto build = [&](std::vector<HitRecord>& a, bool is_odd, std::vector<std::int32_t>& first, std::int32_t& count) {
        if (a.empty()) {
            first.clear();
            count = 0;
            return;
        }
        std::stable_sort(a.begin(), a.end(), [](const HitRecord& x, const HitRecord& y) { return x.mass < y.mass; });
        std::vector<double> working(a.size());
        for (std::size_t i = 0; i < a.size(); ++i) working[i] = a[i].abundance;
        // Anchors in falling abundance, the first of equals first; a peak
        // already taken by a series is no anchor. The odd array takes any
        // non-zero value, the even array only positive ones.
        std::vector<std::size_t> order(a.size());
        std::iota(order.begin(), order.end(), 0);
        std::stable_sort(order.begin(), order.end(), [&](std::size_t x, std::size_t y) { return working[x] > working[y]; });
        std::int32_t series = 0;
        for (std::size_t idx : order) {
            const double w = working[idx];
            if (a[idx].series != -1) continue;
            if (is_odd ? w == 0.0 : !(w > 0.0)) continue;
            AssignKendrickSeries(a, working, static_cast<int>(idx), series, o.ppm, o.up, o.down, step);
            ++series;
        }
        std::stable_sort(a.begin(), a.end(), [](const HitRecord& x, const HitRecord& y) {
            return x.series != y.series ? x.series < y.series : x.mass < y.mass;
        });
        Set_KMD_series_by_flag(a, first);
        count = first.empty() ? 0 : static_cast<std::int32_t>(first.size() - 1);
    };
    KendrickTables t;
    t.factor = factor;
    t.step = step;
    t.base = o.base;
    build(odd, true, t.odd_first, t.odd_series);
    build(even, false, t.even_first, t.even_series);
    t.ranks = RankKendrickGroups(odd, even);
    spectrum.unassigned = std::move(odd);
    spectrum.assigned = std::move(even);
    spectrum.unassignedcount = static_cast<std::int32_t>(spectrum.unassigned.size());
    spectrum.assignedcount = static_cast<std::int32_t>(spectrum.assigned.size());
    tables = std::move(t);
    return 0;
}

std::string kendrick_csv_text(const Spectrum& spectrum, const KendrickTables& t) {
    std::string out = fmt::format(
        "array,series,rank,series_length,mz,abundance,kendrick_mass_{0},nominal_kendrick_mass,kendrick_mass_defect,kmd_milli,z_star\n",
        t.base);
    const auto ranks = rank_index(t);
    for (int o = 1; o >= 0; --o) {
        const auto& a = o ? spectrum.unassigned : spectrum.assigned;
        const auto& first = o ? t.odd_first : t.even_first;
        for (const HitRecord& h : a) {
            const KendrickValues v = kendrick_values(h.mass, t.factor);
            int rank = -1, length = 0;
            if (h.series >= 0 && static_cast<std::size_t>(h.series) < ranks[static_cast<std::size_t>(o)].size()) {
                rank = ranks[static_cast<std::size_t>(o)][static_cast<std::size_t>(h.series)];
                const KendrickRank& r = t.ranks[static_cast<std::size_t>(rank)];
                length = r.last - r.first + 1;
            }
            (void)first;
            out += fmt::format("{},{},{},{},{:.6f},{:.4f},{:.6f},{},{:.6f},{},{}\n", o ? "odd" : "even", h.series, rank + 1,
                               length, h.mass, h.abundance, v.km, v.nominal, v.nominal - v.km, h.kmd, h.z_star);
        }
    }
    return out;
}

namespace {

// The separator between the odd and the even rows of the export.
constexpr const char* kSaveSeparator =
    "     ********************************************************************************************************************\n";

// Text-mode files end their lines in CR LF.
std::string with_crlf(const std::string& text) {
    std::string out;
    out.reserve(text.size() + text.size() / 40);
    for (char c : text) {
        if (c == '\n') out += '\r';
        out += c;
    }
    return out;
}

}  // namespace

std::string SaveKendrick_text(const Spectrum& s, const KendrickTables& t, const KendrickSaveOptions& o) {
    const int dec = std::clamp(o.decimals, 0, 15);
    std::size_t count = 0;
    double low = 0.0, high = 0.0, weighted = 0.0, heights = 0.0;
    for (int odd = 1; odd >= 0; --odd)
        for (const HitRecord& h : odd ? s.unassigned : s.assigned) {
            if (count == 0 || h.mass < low) low = h.mass;
            if (count == 0 || h.mass > high) high = h.mass;
            ++count;
            weighted += h.abundance * h.mass;
            heights += h.abundance;
        }
    const bool negative = o.negative ? *o.negative : s.Trapvoltage < 0.0;
    std::string out = fmt::sprintf("There were %d Peaks found from m/z= %8.2f    to m/z= %8.2f.\n", static_cast<int>(count),
                                   low, high);
    out += negative ? "NEGATIVE ION MODE\n" : "POSITIVE ION MODE\n";
    out += fmt::sprintf("Noise threshold: %f        Peak threshold: %f\n", s.peakprofile, s.peakabundance);
    out += "\n";
    if (s.detectstart != 0.0) out += fmt::sprintf("Data Detected at (seconds): %f\n", s.detectstart);
    out += fmt::sprintf("Calibration parameters: A = %f , B = %f and Trap Plate Voltage = %f\n", s.Aterm, s.Bterm,
                        s.Trapvoltage);
    // The line ends in a blank that opens the next line; older files have it.
    out += "Center of Mass for the Assigned Window is  ";
    out += fmt::sprintf("%9.4f\n\n ", heights != 0.0 ? weighted / heights : 0.0);
    out += fmt::sprintf("There were ,%i odd peaks, and ,%i even peaks\n\n", static_cast<int>(s.unassigned.size()),
                        static_cast<int>(s.assigned.size()));
    switch (o.kind) {
    case KendrickSaveKind::RelativeAbundance:
        out += "Peak Number,Mass,Rel. Abundance,RP,Kendrick Mass,Nom. Mass,Odd/Even,Nom. Z,KMD,Series Fit,DBE,Group,,"
               "Molecular Formula\n";
        break;
    case KendrickSaveKind::Calibrants:
        out += "Peak Number, Calibrant, Mass,Abs. Abundance, Frequency, SN, Theor Mass, Error, RP, Kendrick Mass, Nom. "
               "Mass, Odd/Even, Nom. Z, KMD,Series Fit, DBE,Group, , Molecular Formula\n";
        break;
    case KendrickSaveKind::AbsoluteAbundance:
        out += "Peak Number,Mass,Abs. Abundance,RP,Kendrick Mass,Nom. Mass,Odd/Even,Nom. Z,KMD,Series Fit,DBE,Group,,"
               "Molecular Formula\n";
        break;
    }
    // The row layouts of the views' formatter: a width [wN] is right-justified
    // and a longer value widens it, [pN] gives the decimals (six without it),
    // and a string's width is the most characters taken from it.
    const std::string row = fmt::format("%8d,%11.{}f,%8.4f,%11.2f,%10.4f,%5d,%4d,%4d,%4d,%4d,%4f,%.50s,%.100s\n", dec);
    const std::string row_cal = fmt::format(
        "%8d,%8d,%15.{}f,%10.5f,%15.6f,%11.4f,%17.8f,%11.4f,%11.2f,%10.4f,%5d,%4d,%4d,%4d,%4d,%4f,%.50s,%.100s\n", dec);
    for (int odd = 1; odd >= 0; --odd) {
        if (odd == 0) out += kSaveSeparator;
        for (const HitRecord& h : odd ? s.unassigned : s.assigned) {
            const KendrickValues v = kendrick_values(h.mass, t.factor);
            const int number = h.source_index + 1;
            if (o.kind == KendrickSaveKind::Calibrants) {
                const std::size_t src = static_cast<std::size_t>(std::max(0, h.source_index));
                const int calibrant = src < s.peaks.size() ? s.peaks[src].iscalibrant : 0;
                out += fmt::sprintf(row_cal, number, calibrant, h.mass, h.abundance, h.frequency, h.sn,
                                    h.theoretical_mass, h.error, h.resolvingpower, v.km, v.nominal, odd, h.z_star, h.kmd,
                                    h.series, h.dbe, h.class_text, h.formula_text);
            } else {
                const double abundance = o.kind == KendrickSaveKind::RelativeAbundance ? h.relabundance : h.abundance;
                out += fmt::sprintf(row, number, h.mass, abundance, h.resolvingpower, v.km, v.nominal, odd, h.z_star,
                                    h.kmd, h.series, h.dbe, h.class_text, h.formula_text);
            }
        }
    }
    return with_crlf(out);
}

int SaveKendrick(const std::string& path, const Spectrum& s, const KendrickTables& t, const KendrickSaveOptions& o,
                 Ui& ui) {
    if (path.empty()) {
        ui.MessagePopup("File Error", "No file name for the Kendrick table.");
        return -1;
    }
    if (s.unassigned.empty() && s.assigned.empty()) {
        ui.MessagePopup(kKendrickTitle, "There is nothing to save: calculate the Kendrick series first.");
        return -1;
    }
    if (!s.filename.empty() && same_file(path, s.filename)) {
        ui.MessagePopup("File Error", fmt::format("{} is the data file; the Kendrick table is not written over it.", path));
        return -1;
    }
    std::string why;
    if (write_file_atomically(path, SaveKendrick_text(s, t, o), &why) < 0) {
        ui.MessagePopup("File Error", fmt::format("{} cannot be written: {}", path, why));
        return -1;
    }
    return 0;
}

std::string kendrick_batch_path(const std::string& datafile, int which, Ui& ui) {
    static const char* const suffix[3] = {"_save3.csv", "_processed.csv", "_preprocessed.csv"};
    which = std::clamp(which, 0, 2);
    std::string base = datafile;
    const auto dot = base.find_last_of('.');
    const auto slash = base.find_last_of('/');
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) base.erase(dot);
    const std::string name = base + suffix[which];
    if (which > 0) {
        ui.Console(fmt::format("Petroken - Original filename {}, length = {}\n", datafile, datafile.size()));
        ui.Console(fmt::format("Petroken - Newfilename = {}\n", name));
    }
    return name;
}

}  // namespace vx
