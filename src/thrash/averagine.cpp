#include "thrash/averagine.hpp"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

#include "platform/ui.hpp"
#include "workspace/spectrum.hpp"

namespace vx {

namespace fs = std::filesystem;

Composition averagine_composition(double mass) {
    double unit = 0.0;
    for (int e = 0; e < ISO_ELEMENT_COUNT; ++e) unit += AVERAGINE_UNIT[e] * monoisotopic_atom_mass(IsotopeElement(e));
    const double n = mass / unit;
    Composition c{};
    for (int e : {ISO_C, ISO_N, ISO_O, ISO_S}) c[e] = std::lround(n * AVERAGINE_UNIT[e]);
    c[ISO_H] = 0;
    const double rest = mass - monoisotopic_mass(c);
    c[ISO_H] = std::max(0L, std::lround(rest / monoisotopic_atom_mass(ISO_H)));
    return c;
}

std::array<double, AVERAGINE_WIDTH> averagine_row_percent(int r) {
    const IsotopeLevels lv = isotope_levels(averagine_composition((r + 1) * AVERAGINE_ROW_STEP), AVERAGINE_WIDTH);
    std::array<double, AVERAGINE_WIDTH> row{};
    const double top = *std::max_element(lv.probability.begin(), lv.probability.end());
    for (std::size_t k = 0; k < lv.probability.size() && k < row.size(); ++k) row[k] = 100.0 * lv.probability[k] / top;
    return row;
}

std::string averagine_table_text() {
    std::string out;
    for (int r = 0; r < AVERAGINE_ROWS; ++r) {
        const auto row = averagine_row_percent(r);
        std::array<std::string, AVERAGINE_WIDTH> text;
        int n = 0;
        for (int k = 0; k < AVERAGINE_WIDTH; ++k) {
            text[k] = fmt::format("{:.6f}", row[k]);
            if (text[k] != "0.000000") n = k + 1;
        }
        out += std::to_string(n);
        for (int k = 0; k < n; ++k) out += ' ' + text[k];
        out += '\n';
    }
    return out;
}

std::string averagine_table_path() {
    if (fs::exists(AVERAGINE_FILE)) return AVERAGINE_FILE;
    const std::string bundled = std::string(VANTORIX_SOURCE_DIR) + "/data/" + AVERAGINE_FILE;
    if (fs::exists(bundled)) return bundled;
    return AVERAGINE_FILE;
}

namespace {

void show_missing(Ui& ui) {
    ui.MessagePopup("Can't find file",
                    "The file averagine_lookup2.txt could not be found. This file is required to do THRASH calculations.");
}

// The free-format scanner: white space separates every number.
class Scanner {
public:
    explicit Scanner(const std::string& text) : p_(text.c_str()), end_(text.c_str() + text.size()) {}
    bool next_long(long& v) {
        skip();
        if (p_ >= end_) return false;
        char* e = nullptr;
        errno = 0;
        v = std::strtol(p_, &e, 10);
        if (e == p_ || errno != 0 || !ends_token(e)) return false;
        p_ = e;
        return true;
    }
    bool next_double(double& v) {
        skip();
        if (p_ >= end_) return false;
        char* e = nullptr;
        v = std::strtod(p_, &e);
        if (e == p_ || !ends_token(e) || !std::isfinite(v)) return false;
        p_ = e;
        return true;
    }

private:
    void skip() {
        while (p_ < end_ && (*p_ == ' ' || *p_ == '\t' || *p_ == '\r' || *p_ == '\n' || *p_ == ',')) ++p_;
    }
    bool ends_token(const char* e) const {
        return e <= end_ && (e == end_ || *e == ' ' || *e == '\t' || *e == '\r' || *e == '\n' || *e == ',');
    }
    const char* p_;
    const char* end_;
};

}  // namespace

int parse_averagine_table(const std::string& text, AveragineTable& table, Ui& ui) {
    // strtod needs a terminated buffer; std::string holds one.
    Scanner scan(text);
    AveragineTable t{};
    for (int r = 0; r < AVERAGINE_ROWS; ++r) {
        long n = 0;
        if (!scan.next_long(n) || n < 0 || n > AVERAGINE_WIDTH) {
            ui.Console(fmt::format("averagine_lookup2.txt: record {} has no count of 0 to 100 values\n", r + 1));
            table = AveragineTable{};
            return -1;
        }
        for (long k = 0; k < n; ++k) {
            double v = 0.0;
            if (!scan.next_double(v)) {
                ui.Console(fmt::format("averagine_lookup2.txt: record {} holds {} of its {} values\n", r + 1, k, n));
                table = AveragineTable{};
                return -1;
            }
            t.rows[r][k] = v / 100.0;
        }
    }
    table = t;
    return 0;
}

int ReadAveragineTable(AveragineTable& table, Ui& ui, bool* abort_flag, const std::string& path_in) {
    const std::string path = path_in.empty() ? averagine_table_path() : path_in;
    std::error_code ec;
    const bool regular = fs::is_regular_file(path, ec);
    std::ifstream in;
    if (regular) in.open(path, std::ios::binary);
    if (!regular || !in) {
        // Never read on from a bad handle: the table stays zero and the caller
        // sees the flag.
        table = AveragineTable{};
        show_missing(ui);
        if (abort_flag) *abort_flag = true;
        return -1;
    }
    std::ostringstream ss;
    ss << in.rdbuf();
    if (parse_averagine_table(ss.str(), table, ui) < 0) {
        show_missing(ui);
        if (abort_flag) *abort_flag = true;
        return -1;
    }
    return 0;
}

double interp(double x, double x0, double y0, double x1, double y1) {
    if (x1 == x0) return y0;
    return y0 + (y1 - y0) * (x - x0) / (x1 - x0);
}

long round_to_long(double v) { return std::lround(v); }

double get_max(long low, long high, const float* data) {
    double m = data[low];
    for (long i = low + 1; i <= high; ++i) m = std::max<double>(m, data[i]);
    return m;
}

double get_min(long low, long high, const float* data) {
    double m = data[low];
    for (long i = low + 1; i <= high; ++i) m = std::min<double>(m, data[i]);
    return m;
}

namespace {

// Ends a pattern: from the first value at or above 0.00001, walk while the
// values stay above 1 % of the running maximum; the end mark goes where they
// fall (index 99 when they never do). Returns the length and the index of the
// highest value.
std::pair<int, int> close_pattern(double* pattern) {
    int start = 0;
    while (start < AVERAGINE_WIDTH && pattern[start] < 0.00001) ++start;
    if (start >= AVERAGINE_WIDTH) {
        pattern[0] = -1.0;
        std::fill(pattern + 1, pattern + AVERAGINE_WIDTH, 0.0);
        return {0, 0};
    }
    double top = pattern[start];
    int top_index = start;
    int stop = AVERAGINE_WIDTH - 1;
    for (int k = start + 1; k < AVERAGINE_WIDTH; ++k) {
        if (pattern[k] <= 0.01 * top) {
            stop = k;
            break;
        }
        if (pattern[k] > top) {
            top = pattern[k];
            top_index = k;
        }
    }
    pattern[stop] = -1.0;
    std::fill(pattern + stop + 1, pattern + AVERAGINE_WIDTH, 0.0);
    return {stop, top_index};
}

// The effective carbons of the binomial model: trunc(trunc(M / unit) x factor / p13).
constexpr double kP13Divisor = 0.010999999999999233;

long binomial_carbons(double mass, double unit, double factor) {
    if (!(mass > 0.0)) return 0;
    const double n = std::trunc(std::trunc(mass / unit) * factor / kP13Divisor);
    return static_cast<long>(std::min(n, 1.0e7));
}

}  // namespace

double distrib_calculation(double mz, int charge, double* pattern, double* scratch, int mode,
                           const AveragineTable& table, const Spectrum& spectrum, const ModelSettings& model) {
    // The proton is added in positive mode though match subtracts it: the
    // small shift of the table position is the compatible behaviour.
    double M = mz * charge;
    M += spectrum.Aterm > 0.0 ? charge * THRASH_PROTON : -charge * THRASH_PROTON;
    std::fill(pattern, pattern + AVERAGINE_WIDTH, 0.0);
    int length = 0, top_index = 0;
    if (model.sample_type == 0) {
        double x = M / AVERAGINE_ROW_STEP - 1.0;
        x = std::clamp(x, 0.0, static_cast<double>(AVERAGINE_ROWS - 1));
        const int i = static_cast<int>(std::floor(x));
        const double w_low = (i + 1) - x, w_high = x - i;
        for (int k = 0; k < AVERAGINE_WIDTH; ++k) {
            // Row 150 does not exist; at x = 149 its weight is 0.
            const double high = i + 1 < AVERAGINE_ROWS ? table.rows[i + 1][k] : 0.0;
            pattern[k] = table.rows[i][k] * w_low + high * w_high;
        }
        if (model.adduct_on && model.adduct_ratio != 0.0 && model.adduct_offset >= 0 &&
            model.adduct_offset < AVERAGINE_WIDTH) {
            // Rising order: an adduct peak feeds the adducts further on.
            for (int k = model.adduct_offset; k < AVERAGINE_WIDTH; ++k)
                pattern[k] += pattern[k - model.adduct_offset] / model.adduct_ratio;
        }
        std::tie(length, top_index) = close_pattern(pattern);
    } else {
        long n = 0;
        // These constants are the program's own; the type 2 row differs from
        // cdistrib's on purpose and stays so.
        if (model.sample_type == 1) n = binomial_carbons(M, 308.8006, 0.1494000000000142);
        else n = binomial_carbons(M, 32.2916, 289.1509);
        std::array<double, AVERAGINE_WIDTH + 1> local{};
        double* s = scratch ? scratch : local.data();
        std::fill(s, s + AVERAGINE_WIDTH + 1, 0.0);
        const double stop_fraction = model.adduct_on ? 0.10 : 0.01;
        double p = std::pow(0.9889, static_cast<double>(n));
        double top = p;
        int k = 0;
        // Room for the end mark: at most 99 terms.
        while (k < AVERAGINE_WIDTH - 1) {
            s[k + 1] += p;
            if (model.adduct_on && model.adduct_offset > 0 && k + model.adduct_offset < AVERAGINE_WIDTH - 1)
                s[k + 1 + model.adduct_offset] += model.adduct_ratio * p;
            const double next = p * static_cast<double>(n - k) * 0.011 / ((k + 1) * 0.9889);
            ++k;
            if (!(next >= stop_fraction * top) || n - k < 0) break;
            p = next;
            top = std::max(top, p);
        }
        int len = k;
        if (model.adduct_on) len = std::min(AVERAGINE_WIDTH - 1, std::max(len, k + model.adduct_offset));
        s[0] = len;
        double best = -1.0;
        for (int j = 0; j < len; ++j) {
            pattern[j] = s[j + 1];
            if (pattern[j] > best) {
                best = pattern[j];
                top_index = j;
            }
        }
        pattern[len] = -1.0;
        length = len;
    }
    if (mode == 1) return length;
    if (mode == 2) return top_index;
    return 0.0;
}

std::vector<std::pair<double, int>> cdistrib(double mz, int charge, int sample_type, bool adduct_on,
                                             double adduct_ratio, int adduct_offset) {
    const double M = charge * mz - charge * THRASH_PROTON;
    long n = 1;
    if (sample_type == 0) n = binomial_carbons(M, 111.0543, 0.07110000000000127);
    else if (sample_type == 1) n = binomial_carbons(M, 321.2916, 0.15089999999997872);
    else if (sample_type == 2) n = binomial_carbons(M, 308.8006, 0.1494000000000142);
    std::vector<double> h;
    double p = std::pow(0.9889, static_cast<double>(n));
    double top = p;
    for (int k = 0; k < AVERAGINE_WIDTH - 1; ++k) {
        h.push_back(p);
        const double next = k < n ? p * static_cast<double>(n - k) * 0.011 / ((k + 1) * 0.9889) : 0.0;
        // Stop at 1 % of the running maximum, though never before the adduct offset.
        if (next < 0.01 * top && !(adduct_on && k + 1 < adduct_offset)) break;
        p = next;
        top = std::max(top, p);
    }
    if (adduct_on && adduct_offset > 0) {
        const std::size_t base = h.size();
        h.resize(std::min<std::size_t>(AVERAGINE_WIDTH - 1, base + adduct_offset), 0.0);
        for (std::size_t k = 0; k < base && k + adduct_offset < h.size(); ++k) h[k + adduct_offset] += adduct_ratio * h[k];
    }
    std::vector<std::pair<double, int>> out;
    for (std::size_t k = 0; k < h.size(); ++k) out.emplace_back(h[k], static_cast<int>(k));
    return out;
}

double convert_FOM_to_RL(double fom, int charge) {
    // A power of a merit at or below zero has no meaning; such a fit is as
    // unreliable as can be.
    const double f = std::max(fom, 1e-300);
    double g = 0.0;
    switch (charge) {
        case 1: g = -17.26 * std::pow(f, -1.6591); break;
        case 2: g = -19.504 * std::exp(-0.44115 * fom); break;
        case 3: g = -73.032 * std::pow(f, -2.4782); break;
        case 4: g = -500.0 * std::pow(f, -3.4658); break;
        case 5: g = -27.37 * std::exp(-0.62158 * fom); break;
        case 6: g = -1000.0 * std::pow(f, -4.2); break;
        case 7: g = -30.0 * std::exp(-0.65 * fom); break;
        case 8: g = -17.028 * std::exp(-0.60405 * fom); break;
        default:
            if (charge >= 9 && charge <= 15) g = -18.901 * std::exp(-0.58 * fom);
            else g = -6.0 * std::exp(-0.4 * fom);
    }
    if (!std::isfinite(g)) return 0.0;
    return std::min(1.0, std::exp(g));
}

std::string rl_text(double rl) {
    if (rl * 100.0 > 99.0) return "99%+";
    return fmt::format("{:.2f}%", rl * 100.0);
}

}  // namespace vx
