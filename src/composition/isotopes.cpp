#include "composition/isotopes.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>

#include <fmt/format.h>

#include "composition/elements.hpp"
#include "platform/ui.hpp"

namespace vx {

namespace {

constexpr const char* kTitle = "Isotope Calculator";

IsoIsotope row_of(const IsotopeEntry& e) { return IsoIsotope{e.mass, e.abundance, e.mass_offset, e.label}; }

// Number of ways n atoms fall into k isotopes, saturated.
std::int64_t distribution_count(std::int64_t n, int k) {
    // C(n + k - 1, k - 1), k <= 5
    double v = 1.0;
    for (int i = 1; i < k; ++i) v = v * static_cast<double>(n + i) / i;
    if (v > 9e18) return std::numeric_limits<std::int64_t>::max();
    return static_cast<std::int64_t>(std::llround(v));
}

}  // namespace

int BuildIsotopes(int element_count, int carbons, int hydrogens, int sulfurs, std::vector<IsoElement>& out) {
    out.clear();
    if (element_count <= 0) return -1;
    const auto& t = element_table();
    const IsotopeEntry& c12 = t[SLOT_C].isotopes[0];
    auto add = [&](const char* name, int count, std::vector<IsoIsotope> rows) {
        if (count <= 0 || static_cast<int>(out.size()) >= element_count) return;
        IsoElement e;
        e.name = name;
        e.count = count;
        e.isotope_count = static_cast<std::int32_t>(rows.size());
        e.isotopes = std::move(rows);
        out.push_back(std::move(e));
    };
    // Carbon's second row is 12C again, at offset 1: deliberate, the isotope
    // rules' limits were set against it.
    add("Carbon", carbons, {IsoIsotope{c12.mass, c12.abundance, 0, "12C"}, IsoIsotope{c12.mass, c12.abundance, 1, ""}});
    {
        const ElementEntry& h = t[SLOT_H];
        add("Hydrogen", hydrogens, {row_of(h.isotopes[0]), row_of(h.isotopes[1])});
    }
    {
        const ElementEntry& s = t[SLOT_S];
        std::vector<IsoIsotope> rows;
        for (int i = 0; i < s.isotope_count; ++i) rows.push_back(row_of(s.isotopes[i]));
        add("Sulfur", sulfurs, std::move(rows));
    }
    for (IsoElement& e : out) e.element_count = static_cast<std::int32_t>(out.size());
    return 0;
}

int build_isotope_problem(std::string_view formula, std::vector<IsoElement>& out, Ui& ui) {
    out.clear();
    std::vector<std::pair<int, long>> parts;  // slot, count
    std::size_t i = 0;
    while (i < formula.size()) {
        const unsigned char ch = static_cast<unsigned char>(formula[i]);
        if (std::isspace(ch)) {
            ++i;
            continue;
        }
        if (!std::isupper(ch)) {
            ui.MessagePopup(kTitle, fmt::format("\"{}\" is not a formula: an element symbol was expected at \"{}\".",
                                                formula, formula.substr(i, 8)));
            return -1;
        }
        std::string sym(1, static_cast<char>(ch));
        ++i;
        while (i < formula.size() && std::islower(static_cast<unsigned char>(formula[i]))) sym += formula[i++];
        long n = 1;
        bool digits = false;
        if (i < formula.size() && (formula[i] == '-' || formula[i] == '+')) {
            ui.MessagePopup(kTitle, fmt::format("\"{}\": the count of {} must be 1 or more.", formula, sym));
            return -1;
        }
        if (i < formula.size() && std::isdigit(static_cast<unsigned char>(formula[i]))) {
            n = 0;
            digits = true;
            while (i < formula.size() && std::isdigit(static_cast<unsigned char>(formula[i]))) {
                n = n * 10 + (formula[i++] - '0');
                if (n > 1000000) {
                    ui.MessagePopup(kTitle, fmt::format("\"{}\": the count of {} is more than 1000000.", formula, sym));
                    return -1;
                }
            }
        }
        const auto slot = find_element(sym);
        if (!slot) {
            ui.MessagePopup(kTitle, fmt::format("\"{}\": {} is not an element of the table.", formula, sym));
            return -1;
        }
        if (digits && n <= 0) {
            ui.MessagePopup(kTitle, fmt::format("\"{}\": the count of {} must be 1 or more.", formula, sym));
            return -1;
        }
        const ElementEntry& e = element_table()[static_cast<std::size_t>(*slot)];
        if (e.isotope_count > ISO_MAX_ISOTOPES) {
            ui.MessagePopup(kTitle, fmt::format("\"{}\": {} has {} isotopes; the calculator takes elements of at most {}.",
                                                formula, sym, e.isotope_count, ISO_MAX_ISOTOPES));
            return -1;
        }
        auto it = std::find_if(parts.begin(), parts.end(), [&](const auto& p) { return p.first == *slot; });
        if (it != parts.end()) {
            it->second += n;
            if (it->second > 1000000) {
                ui.MessagePopup(kTitle, fmt::format("\"{}\": the count of {} is more than 1000000.", formula, sym));
                return -1;
            }
        } else {
            parts.emplace_back(*slot, n);
        }
    }
    if (parts.empty()) {
        ui.MessagePopup(kTitle, "No formula was given.");
        return -1;
    }
    for (const auto& [slot, n] : parts) {
        const ElementEntry& e = element_table()[static_cast<std::size_t>(slot)];
        IsoElement el;
        el.name = e.symbol;
        el.count = static_cast<std::int32_t>(n);
        el.isotope_count = e.isotope_count;
        for (int k = 0; k < e.isotope_count; ++k) el.isotopes.push_back(row_of(e.isotopes[k]));
        out.push_back(std::move(el));
    }
    for (IsoElement& e : out) e.element_count = static_cast<std::int32_t>(out.size());
    return 0;
}

double AbundanceCalc(int isotope_count, const std::int32_t* counts, const double* abundances, double threshold) {
    constexpr double kBig = 1000000000000.0;
    const double floor_value = threshold * 0.1;
    std::int64_t n = 0;
    for (int i = 0; i < isotope_count; ++i) n += counts[i];
    double v = 1.0;
    std::int64_t num = 1;
    // Denominator factors: 1..c_i for each isotope in turn; abundance factors:
    // a_i, c_i times for each isotope in turn.
    int di = 0;
    std::int64_t dj = 1;
    int ai = 0;
    std::int64_t aj = 0;
    auto skip_d = [&] {
        while (di < isotope_count && dj > counts[di]) {
            ++di;
            dj = 1;
        }
    };
    auto skip_a = [&] {
        while (ai < isotope_count && aj >= counts[ai]) {
            ++ai;
            aj = 0;
        }
    };
    skip_d();
    skip_a();
    for (;;) {
        bool moved = false;
        while (num <= n && v < kBig) {
            v *= static_cast<double>(num++);
            moved = true;
        }
        while (di < isotope_count && v >= static_cast<double>(dj)) {
            v /= static_cast<double>(dj++);
            skip_d();
            moved = true;
        }
        while (ai < isotope_count && (v >= floor_value || v >= kBig)) {
            v *= abundances[ai];
            ++aj;
            skip_a();
            moved = true;
        }
        // Every divisor and abundance is in and the value is still large: a
        // result above 1 (the rules' carbon row) takes its last factors so.
        if (!moved && num <= n) v *= static_cast<double>(num++);
        if (num > n) {
            // Only divisions and abundances (all at most 1) are left: the value
            // can only fall from here.
            if (v < floor_value) return -1.0;
            while (di < isotope_count) {
                v /= static_cast<double>(dj++);
                skip_d();
            }
            while (ai < isotope_count) {
                v *= abundances[ai];
                ++aj;
                skip_a();
            }
            break;
        }
    }
    if (v < floor_value) return -1.0;
    return v;
}

int FindMax(IsoElement& e, double threshold) {
    e.solutions.clear();
    e.solution_count = 0;
    const int k = std::min<int>(e.isotope_count, ISO_MAX_ISOTOPES);
    if (k <= 0 || e.count <= 0) return 0;
    if (k == 1) {
        IsoSolution s;
        s.abundance = 1.0;
        s.counts[0] = e.count;
        s.offset = e.count * e.isotopes[0].mass_offset;
        s.mass = e.count * e.isotopes[0].mass;
        e.solutions.push_back(s);
        e.solution_count = 1;
        return 0;
    }
    // Each distribution costs of the order of count steps: both are bounded,
    // so a formula can never keep the calculator busy for minutes.
    const std::int64_t walks = distribution_count(e.count, k);
    if (walks > ISO_MAX_DISTRIBUTIONS || static_cast<double>(walks) * e.count > ISO_MAX_WALK_STEPS) return -1;
    std::array<double, ISO_MAX_ISOTOPES> ab{};
    for (int i = 0; i < k; ++i) ab[static_cast<std::size_t>(i)] = e.isotopes[static_cast<std::size_t>(i)].abundance;
    std::array<std::int32_t, ISO_MAX_ISOTOPES> c{};
    // Nested loops over the later isotopes; the first takes the rest.
    auto visit = [&](auto&& self, int level, std::int32_t left) -> void {
        if (level == k) {
            c[0] = left;
            const double a = AbundanceCalc(k, c.data(), ab.data(), threshold);
            if (a == -1.0) return;
            IsoSolution s;
            s.abundance = a;
            s.counts = c;
            for (int i = 0; i < k; ++i) {
                s.offset += c[static_cast<std::size_t>(i)] * e.isotopes[static_cast<std::size_t>(i)].mass_offset;
                s.mass += c[static_cast<std::size_t>(i)] * e.isotopes[static_cast<std::size_t>(i)].mass;
            }
            e.solutions.push_back(s);
            return;
        }
        for (std::int32_t x = 0; x <= left; ++x) {
            c[static_cast<std::size_t>(level)] = x;
            self(self, level + 1, left - x);
        }
        c[static_cast<std::size_t>(level)] = 0;
    };
    visit(visit, 1, e.count);
    std::stable_sort(e.solutions.begin(), e.solutions.end(),
                     [](const IsoSolution& a, const IsoSolution& b) { return a.abundance > b.abundance; });
    e.solution_count = static_cast<std::int32_t>(e.solutions.size());
    return 0;
}

int CalculateIsotope(std::vector<IsoElement>& problem, double threshold, Ui* ui) {
    for (IsoElement& e : problem)
        if (FindMax(e, threshold) < 0) {
            if (ui)
                ui->MessagePopup(kTitle, fmt::format("{} atoms of {} over {} isotopes are too many distributions to walk.",
                                                     e.count, e.name, e.isotope_count));
            return -1;
        }
    return 0;
}

std::int64_t combination_count(const std::vector<IsoElement>& problem) {
    if (problem.empty()) return 0;
    std::int64_t total = 1;
    for (const IsoElement& e : problem) {
        if (e.solution_count <= 0) return 0;
        if (total > std::numeric_limits<std::int64_t>::max() / e.solution_count)
            return std::numeric_limits<std::int64_t>::max();
        total *= e.solution_count;
    }
    return total;
}

int MergeMultElements(const std::vector<IsoElement>& problem, std::vector<IsoResult>& results, Ui* ui) {
    results.clear();
    const std::int64_t total = combination_count(problem);
    if (total > ISO_MAX_COMBINATIONS) {
        if (ui)
            ui->MessagePopup(kTitle, fmt::format("The pattern has {} combinations of the elements' isotopologues, more than "
                                                 "the {} the calculator builds: raise the threshold.",
                                                 total, ISO_MAX_COMBINATIONS));
        return -1;
    }
    if (ui) ui->Console(fmt::format("Sequence contains {} sequences.\n", total));
    results.resize(static_cast<std::size_t>(total));
    for (std::int64_t i = 0; i < total; ++i) results[static_cast<std::size_t>(i)].combination = i;
    return 0;
}

std::vector<std::int32_t> isotope_parts(const std::vector<IsoElement>& problem, const IsoResult& r) {
    std::vector<std::int32_t> parts(problem.size(), 0);
    std::int64_t c = r.combination;
    for (std::size_t i = problem.size(); i-- > 0;) {
        const std::int64_t n = std::max<std::int32_t>(1, problem[i].solution_count);
        parts[i] = static_cast<std::int32_t>(c % n);
        c /= n;
    }
    return parts;
}

void SortCombinations(std::vector<IsoElement>& problem) {
    if (problem.size() <= 1) return;
    for (IsoElement& e : problem)
        std::stable_sort(e.solutions.begin(), e.solutions.end(),
                         [](const IsoSolution& a, const IsoSolution& b) { return a.offset < b.offset; });
}

void SumResults(const std::vector<IsoElement>& problem, std::vector<IsoResult>& results) {
    if (results.empty()) return;
    // A counter with one digit per element, the last running fastest, as the
    // results were numbered.
    std::vector<std::int32_t> digit = isotope_parts(problem, results.front());
    std::int64_t expected = results.front().combination;
    for (IsoResult& r : results) {
        if (r.combination != expected) digit = isotope_parts(problem, r);
        double mass = 0.0, ab = 1.0;
        std::int32_t off = 0;
        for (std::size_t i = 0; i < problem.size(); ++i) {
            const IsoSolution& s = problem[i].solutions[static_cast<std::size_t>(digit[i])];
            mass += s.mass;
            ab *= s.abundance;
            off += s.offset;
        }
        r.mass = mass;
        r.abundance = ab;
        r.offset = off;
        expected = r.combination + 1;
        for (std::size_t i = problem.size(); i-- > 0;) {
            if (++digit[i] < problem[i].solution_count) break;
            digit[i] = 0;
        }
    }
}

void CullResults(std::vector<IsoResult>& results, double limit) {
    std::size_t n = results.size();
    std::size_t i = 0;
    while (i < n) {
        if (results[i].abundance < limit) {
            results[i] = results[n - 1];
            --n;  // the replacement is tested in its turn
        } else {
            ++i;
        }
    }
    results.resize(n);
}

void SortResults(std::vector<IsoResult>& results) {
    std::stable_sort(results.begin(), results.end(), [](const IsoResult& a, const IsoResult& b) { return a.offset < b.offset; });
}

int LookupPosition(const std::vector<std::int32_t>& list, std::int32_t value) {
    for (std::size_t i = 0; i < list.size(); ++i)
        if (list[i] == value) return static_cast<int>(i);
    return -1;
}

std::vector<IsoFinal> CreateFinalList(const std::vector<IsoResult>& results) {
    std::vector<IsoFinal> out;
    for (std::size_t i = 0; i < results.size(); ++i)
        if (i == 0 || results[i].offset != results[i - 1].offset) {
            IsoFinal f;
            f.offset = results[i].offset;
            out.push_back(f);
        }
    std::vector<std::int32_t> offsets;
    offsets.reserve(out.size());
    for (const IsoFinal& f : out) offsets.push_back(f.offset);
    std::size_t at = 0;
    for (const IsoResult& r : results) {
        // Results are sorted: the peak is the current one or the next.
        while (at < out.size() && out[at].offset != r.offset) ++at;
        if (at == out.size()) {
            const int p = LookupPosition(offsets, r.offset);
            if (p < 0) continue;
            at = static_cast<std::size_t>(p);
        }
        IsoFinal& f = out[at];
        f.abundance += r.abundance;
        f.weighted_mass += r.mass * r.abundance;
        if (f.low_mass < 0.0 || r.mass < f.low_mass) f.low_mass = r.mass;
        if (f.high_mass < 0.0 || r.mass > f.high_mass) f.high_mass = r.mass;
        ++f.member_count;
    }
    for (IsoFinal& f : out) {
        if (f.abundance > 0.0) f.weighted_mass /= f.abundance;
        f.width = f.high_mass - f.low_mass;
    }
    return out;
}

std::vector<IsoFinal> CalculateResults(const std::vector<IsoElement>& problem, std::vector<IsoResult>& results,
                                       double limit, bool debug, Ui* ui) {
    SumResults(problem, results);
    if (debug && ui) ui->Console(fmt::format("SumResults totalcount = {}\n", results.size()));
    CullResults(results, limit);
    if (debug && ui) ui->Console(fmt::format("CullResults totalcount = {}\n", results.size()));
    SortResults(results);
    auto final_list = CreateFinalList(results);
    if (debug && ui) ui->Console(fmt::format("CreateFinalList final_count = {}\n", final_list.size()));
    return final_list;
}

ProfilePoints PlotFinal(const std::vector<IsoFinal>& peaks, Ui* ui) {
    ProfilePoints p;
    if (peaks.empty()) return p;
    double low = peaks.front().weighted_mass, high = low;
    for (const IsoFinal& f : peaks) {
        low = std::min(low, f.weighted_mass);
        high = std::max(high, f.weighted_mass);
    }
    double span = high - low;
    double minmz = low - 0.1 * span;
    double maxmz = high + 0.1 * span;
    if (!(maxmz > minmz)) maxmz = minmz + static_cast<double>(peaks.size()) + 1.0;
    span = maxmz - minmz;
    if (ui) ui->Console(fmt::format("Minmz {:f}   Maxmz {:f}\n", minmz, maxmz));
    p.min_mz = minmz;
    p.max_mz = maxmz;
    auto add = [&](double x, double y) {
        p.x.push_back(x);
        p.y.push_back(y);
    };
    add(minmz, 0.0);
    for (double f : {0.02, 0.04, 0.06}) add(minmz + f * span, 0.0);
    double previous = -std::numeric_limits<double>::infinity();
    for (const IsoFinal& f : peaks) {
        double m = f.weighted_mass;
        if (m < previous) m = previous + 1.0;
        previous = m;
        const double w = std::max(f.width, 0.001);
        const double h = f.abundance;
        add(m - w, 0.0);
        add(m - w / 2, h / 2);
        add(m, h);
        add(m + w / 2, h / 2);
        add(m + w, 0.0);
    }
    for (double f : {0.06, 0.04, 0.02}) add(maxmz - f * span, 0.0);
    add(maxmz, 0.0);
    return p;
}

int isotope_pattern(std::string_view formula, double threshold, IsotopePattern& out, Ui& ui) {
    out = IsotopePattern{};
    if (!(threshold > 0.0 && threshold <= 1.0)) {
        ui.MessagePopup(kTitle, fmt::format("The threshold must lie above 0 and at most 1; {} was given.", threshold));
        return -1;
    }
    if (build_isotope_problem(formula, out.problem, ui) < 0) return -1;
    if (CalculateIsotope(out.problem, threshold, &ui) < 0) return -1;
    SortCombinations(out.problem);
    if (MergeMultElements(out.problem, out.isotopologues, &ui) < 0) return -1;
    out.peaks = CalculateResults(out.problem, out.isotopologues, threshold, false, &ui);
    return 0;
}

std::string isotopologue_label(const IsotopePattern& p, const IsoResult& r) {
    std::string s;
    const auto parts = isotope_parts(p.problem, r);
    for (std::size_t i = 0; i < p.problem.size(); ++i) {
        const IsoElement& e = p.problem[i];
        const IsoSolution& sol = e.solutions[static_cast<std::size_t>(parts[i])];
        for (int k = 0; k < e.isotope_count && k < ISO_MAX_ISOTOPES; ++k) {
            if (sol.counts[static_cast<std::size_t>(k)] == 0) continue;
            if (!s.empty()) s += ' ';
            s += fmt::format("{}{}", e.isotopes[static_cast<std::size_t>(k)].label, sol.counts[static_cast<std::size_t>(k)]);
        }
    }
    return s;
}

}  // namespace vx
