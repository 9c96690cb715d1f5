#include "thrash/mass_determination.hpp"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "peaks/noise.hpp"
#include "platform/ui.hpp"
#include "thrash/sequence.hpp"
#include "workspace/conversions.hpp"
#include "workspace/spectrum.hpp"

namespace vx {

namespace {

// Mass offsets the most abundant isotope by this spacing, a third literal
// beside the scan's 1.00235 and the window's 1.0029; it stays for the
// panel's numbers to match the ones users have compared for years.
constexpr double SPACING_ABUNDANT = 1.00254;
constexpr int SPAN_BINS = 500;
constexpr double SPAN_BIN = 0.05;

}  // namespace

double mass_span_sigma(const Spectrum& s, double low_mz, double high_mz) {
    const long n = static_cast<long>(s.data.size());
    if (n == 0 || !(high_mz > low_mz)) return 0.0;
    double a = One_mass_topt(s, high_mz), b = One_mass_topt(s, low_mz);
    if (!std::isfinite(a) || !std::isfinite(b)) return 0.0;
    if (a > b) std::swap(a, b);
    const long ia = std::clamp(static_cast<long>(std::ceil(a)), 0L, n - 1);
    const long ib = std::clamp(static_cast<long>(std::floor(b)), 0L, n - 1);
    if (ia > ib) return 0.0;
    // cum[k]: the points below the level (k + 1) x 0.05, from a histogram of
    // the first level each point stays below.
    std::vector<double> cum(SPAN_BINS, 0.0);
    for (long i = ia; i <= ib; ++i) {
        const double v = s.data[static_cast<std::size_t>(i)];
        if (!std::isfinite(v) || v >= SPAN_BINS * SPAN_BIN) continue;
        long k = v < 0.0 ? 0 : static_cast<long>(std::floor(v / SPAN_BIN));
        while (k > 0 && v < k * SPAN_BIN) --k;  // a quotient rounded up at a level
        while (k < SPAN_BINS && !(v < (k + 1) * SPAN_BIN)) ++k;
        if (k < SPAN_BINS) cum[static_cast<std::size_t>(k)] += 1.0;
    }
    for (int k = 1; k < SPAN_BINS; ++k) cum[static_cast<std::size_t>(k)] += cum[static_cast<std::size_t>(k - 1)];
    for (int pass = 0; pass < 5; ++pass) TGR_smooth(cum.data(), SPAN_BINS, 5);
    std::vector<double> d(SPAN_BINS - 1);
    for (int k = 0; k + 1 < SPAN_BINS; ++k) d[static_cast<std::size_t>(k)] = cum[k + 1] - cum[k];
    const double top = *std::max_element(d.begin(), d.end());
    if (!(top > 0.0)) return 0.0;
    const auto width = std::count_if(d.begin(), d.end(), [&](double v) { return v > top / 2.0; });
    return static_cast<double>(width) / 2.0 * SPAN_BIN;
}

std::string mass_assignment_text(const SequenceTables& t, const SequenceAssignment& a) {
    std::string s;
    switch (a.kind) {
        case KIND_B: s = fmt::format("Assignment: b - {}", a.last); break;
        case KIND_C: s = fmt::format("Assignment: c - {}", a.last); break;
        case KIND_Y: s = fmt::format("Assignment: y - {}", a.last - a.first + 1); break;
        case KIND_Z: s = fmt::format("Assignment: z - {}", a.last - a.first + 1); break;
        case KIND_INTERNAL:
        case KIND_INTERNAL2: s = fmt::format("Assignment: i - {} - {}", a.first, a.last); break;
        case KIND_A: s = fmt::format("Assignment: a- {}", a.last); break;
        case KIND_MOLECULAR_ION:
            // "H20" with a zero is the text this panel has always shown.
            if (a.minus_h2o) return "Assignment: Molecular Ion - H20";
            if (a.minus_nh3) return "Assignment: Molecular Ion - NH3";
            s = "Assignment: Molecular Ion";
            break;
        case KIND_DIGEST:
            // Mass had no words of its own for digest pieces: the scan's.
            return "Assignment: " + assignment_text(t, a);
        default: return "Assignment: no assignment";
    }
    if (a.minus_h2o) s += " - H2O";
    if (a.minus_nh3) s += " - NH3";
    if (a.phosphates > 0) s += fmt::format(" + {} PO3", a.phosphates);
    return s;
}

namespace {

int determine(Spectrum& s, double low_mz, double high_mz, int charge, const ThrashParams& p,
              const AveragineTable& table, MassDetermination& out, Ui& ui) {
    out = MassDetermination{};
    if (s.data.empty()) {
        ui.MessagePopup("Mass Determination", "Open and process a data set first.");
        return -1;
    }
    if (!std::isfinite(low_mz) || !std::isfinite(high_mz) || !(high_mz > low_mz)) {
        ui.MessagePopup("Mass Determination", "Place cursors 1 and 2 about the cluster (the first below the second).");
        return -1;
    }
    if (high_mz < Low_Mass(s) || low_mz > High_Mass(s)) {
        ui.MessagePopup("Mass Determination", fmt::format("The range {:.4f} to {:.4f} lies outside the data.", low_mz, high_mz));
        return -1;
    }
    out.span_sigma = mass_span_sigma(s, low_mz, high_mz);
    // The scan's own row-making, without a sequence: Mass words its
    // assignments itself below.
    ThrashParams q = p;
    q.sequence = nullptr;
    // A single cluster is reported whatever its reliability: the user chose it.
    q.min_rl = -1.0;
    ThrashResult r;
    RecordingUi quiet;
    if (thrash_cluster(s, low_mz, high_mz, charge, q, table, r, quiet) < 0 || r.peaks.empty()) {
        out.lines.push_back("Isotope clusters found = 0");
        ui.Console("Isotope clusters found = 0\n");
        return 0;
    }
    out.found = true;
    out.peak = r.peaks.front();
    ThrashPeak& tp = out.peak;
    int idx = 0;
    for (int k = 1; k < tp.distrib_size; ++k)
        if (tp.pairs[static_cast<std::size_t>(k)].second > tp.pairs[static_cast<std::size_t>(idx)].second) idx = k;
    out.most_abundant_index = idx;
    out.mostabundant_mass = tp.monoisotopic_mass + idx * SPACING_ABUNDANT;
    out.lines.push_back(fmt::format("Charge: {}", tp.charge));
    out.lines.push_back(fmt::format("Monoisotopic M/Z: {:f}", tp.monoisotopic_mz));
    out.lines.push_back(fmt::format("Most abundant M/Z: {:f}", tp.mostabundant_mz));
    out.lines.push_back(fmt::format("Monoisotopic mass: {:f}", tp.monoisotopic_mass));
    out.lines.push_back(fmt::format("Most abundant mass: {:f} - {}", out.mostabundant_mass, tp.distrib_size));
    out.lines.push_back("RL value: " + tp.rl_text);
    std::vector<SequenceAssignment> found;
    if (p.sequence) assign_thrash(*p.sequence, tp.monoisotopic_mz, tp.charge, s.Aterm, found);
    if (!p.sequence) {
        tp.assignment_text = "N/A";
        tp.mass_error_text = "N/A";
        out.lines.push_back("Assignment: N/A");
        out.lines.push_back("Mass error: N/A");
        out.rows.push_back(tp);
    } else if (found.empty()) {
        tp.assignment_text = "None";
        tp.mass_error_text = "N/A";
        out.lines.push_back("Assignment: None");
        out.lines.push_back("Mass error: N/A");
        out.rows.push_back(tp);
    } else {
        for (std::size_t i = 0; i < found.size(); ++i) {
            ThrashPeak row = tp;
            const std::string words = mass_assignment_text(*p.sequence, found[i]);
            row.assignment_text = words.substr(std::string("Assignment: ").size());
            row.theoretical_mass = found[i].theoretical;
            row.mass_error_ppm = found[i].error / found[i].theoretical * 1000000.0;
            row.mass_error_text = fmt::format("{:.4f} ppm", row.mass_error_ppm);
            row.continuation = i > 0;
            out.lines.push_back(words);
            out.lines.push_back(fmt::format("Theoretical mass: {:f}", row.theoretical_mass));
            out.lines.push_back("Mass error: " + row.mass_error_text);
            out.rows.push_back(row);
        }
        tp = out.rows.front();
    }
    return 0;
}

}  // namespace

int Mass(Spectrum& s, double low_mz, double high_mz, const ThrashParams& p, const AveragineTable& table,
         MassDetermination& out, Ui& ui) {
    return determine(s, low_mz, high_mz, 0, p, table, out, ui);
}

int newmatch(Spectrum& s, double low_mz, double high_mz, int charge, const ThrashParams& p,
             const AveragineTable& table, MassDetermination& out, Ui& ui) {
    if (charge < 1 || charge > p.max_charge) {
        out = MassDetermination{};
        ui.MessagePopup("Newmatch", fmt::format("Choose a charge from 1 to {}.", p.max_charge));
        return -1;
    }
    return determine(s, low_mz, high_mz, charge, p, table, out, ui);
}

std::vector<ThrashPeak> reassign_rows(const std::vector<ThrashPeak>& rows, const SequenceTables* t, double aterm) {
    std::vector<ThrashPeak> out;
    for (const ThrashPeak& head : rows) {
        if (head.continuation) continue;
        ThrashPeak tp = head;
        tp.theoretical_mass = 0.0;
        tp.mass_error_ppm = 0.0;
        tp.mass_error_text = "N/A";
        if (!t) {
            tp.assignment_text = "N/A";
            out.push_back(tp);
            continue;
        }
        std::vector<SequenceAssignment> found;
        assign_thrash(*t, tp.monoisotopic_mz, tp.charge, aterm, found);
        if (found.empty()) {
            tp.assignment_text = "None";
            out.push_back(tp);
            continue;
        }
        for (std::size_t i = 0; i < found.size(); ++i) {
            ThrashPeak row = tp;
            row.assignment_text = assignment_text(*t, found[i], i > 0);
            row.theoretical_mass = found[i].theoretical;
            row.mass_error_ppm = found[i].error / found[i].theoretical * 1000000.0;
            row.mass_error_text = fmt::format("{:.4f} ppm", row.mass_error_ppm);
            row.continuation = i > 0;
            out.push_back(row);
        }
    }
    return out;
}

}  // namespace vx
