#include "peaks/noise.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include <Eigen/Core>

#include "workspace/conversions.hpp"

namespace vx {
namespace {

constexpr int LEVELS = 100;
constexpr int CENTRE_LEVEL = 50;

// A point index from a converted position, safe for any double: NaN and
// out-of-range values land on the guard values the callers test for.
long to_index(double point) {
    if (std::isnan(point)) return -1;
    const double r = std::round(point);
    if (r < -1.0e15) return -1000000000000000L;
    if (r > 1.0e15) return 1000000000000000L;
    return static_cast<long>(r);
}

// top_centroid: the mode is the centroid of the contiguous top of the
// distribution (above 80 % of its maximum) instead of its highest level; the
// top of a noise distribution is flat, and its highest level wanders with
// every few samples.
template <class T>
double histogram_noise_impl(std::span<double> stats, std::span<const T> counted, double step_divisor,
                            double* width, bool top_centroid = false) {
    double median = 0.0, deviation = 0.0;
    if (!stats.empty()) {
        const auto n = static_cast<Eigen::Index>(stats.size());
        const Eigen::Map<const Eigen::ArrayXd> a(stats.data(), n);
        // The deviation has the n - 1 divisor; one sample has none.
        if (n > 1) deviation = std::sqrt((a - a.mean()).square().sum() / static_cast<double>(n - 1));
        // Median: the middle sample, or the mean of the two middle ones.
        const auto middle = stats.begin() + n / 2;
        std::nth_element(stats.begin(), middle, stats.end());
        median = *middle;
        if (n % 2 == 0) median = (median + *std::max_element(stats.begin(), middle)) / 2.0;
    }
    const double step = deviation / step_divisor;

    std::array<double, LEVELS> level{};
    for (int k = 0; k < LEVELS; ++k) level[static_cast<std::size_t>(k)] = std::max(0.0, (k - CENTRE_LEVEL) * step + median);

    // count(k) = samples strictly below level(k). The levels never fall with k,
    // so each sample is binned once at the first level above it and the counts
    // are the running sum: the same numbers as 100 passes, in one.
    std::array<double, LEVELS> count{};
    const bool ordered = std::is_sorted(level.begin(), level.end()) &&
                         std::none_of(level.begin(), level.end(), [](double v) { return std::isnan(v); });
    if (ordered) {
        std::array<long, LEVELS + 1> bin{};
        if (step > 0.0 && std::isfinite(step)) {
            // The level grid is regular above 0: a first guess from the
            // arithmetic, then exact comparisons with the stored levels.
            const double inverse = 1.0 / step;
            for (const T sample : counted) {
                const double x = static_cast<double>(sample);
                double guess = std::floor((x - median) * inverse) + (CENTRE_LEVEL + 1);
                if (!(guess >= 0.0)) guess = 0.0;  // also NaN
                if (guess > LEVELS) guess = LEVELS;
                int k = static_cast<int>(guess);
                while (k > 0 && level[static_cast<std::size_t>(k - 1)] > x) --k;
                while (k < LEVELS && !(level[static_cast<std::size_t>(k)] > x)) ++k;
                ++bin[static_cast<std::size_t>(k)];
            }
        } else {
            for (const T sample : counted) {
                const double x = static_cast<double>(sample);
                const auto first_above = std::upper_bound(level.begin(), level.end(), x) - level.begin();
                ++bin[static_cast<std::size_t>(first_above)];
            }
        }
        long running = 0;
        for (int k = 0; k < LEVELS; ++k) {
            running += bin[static_cast<std::size_t>(k)];
            count[static_cast<std::size_t>(k)] = static_cast<double>(running);
        }
    } else {
        for (int k = 0; k < LEVELS; ++k) {
            long c = 0;
            for (const T sample : counted) c += static_cast<double>(sample) < level[static_cast<std::size_t>(k)];
            count[static_cast<std::size_t>(k)] = static_cast<double>(c);
        }
    }

    for (int pass = 0; pass < 5; ++pass) TGR_smooth(count.data(), LEVELS, 5);

    std::array<double, LEVELS> d{};
    d[0] = (-3.0 * count[0] + 4.0 * count[1] - count[2]) / 2.0;
    for (int k = 1; k < LEVELS - 1; ++k)
        d[static_cast<std::size_t>(k)] = (count[static_cast<std::size_t>(k + 1)] - count[static_cast<std::size_t>(k - 1)]) / 2.0;
    d[LEVELS - 1] = (3.0 * count[LEVELS - 1] - 4.0 * count[LEVELS - 2] + count[LEVELS - 3]) / 2.0;

    int mode = 0;
    for (int k = 1; k < LEVELS; ++k)
        if (d[static_cast<std::size_t>(k)] > d[static_cast<std::size_t>(mode)]) mode = k;
    const double half_max = d[static_cast<std::size_t>(mode)] / 2.0;
    int above = 0;
    for (double v : d) above += v > half_max;

    if (width) *width = step * 0.5 * above;
    double at = mode;
    if (top_centroid && d[static_cast<std::size_t>(mode)] > 0.0) {
        const double top = 0.8 * d[static_cast<std::size_t>(mode)];
        int a = mode, b = mode;
        while (a > 0 && d[static_cast<std::size_t>(a - 1)] >= top) --a;
        while (b < LEVELS - 1 && d[static_cast<std::size_t>(b + 1)] >= top) ++b;
        double sum = 0.0, moment = 0.0;
        for (int k = a; k <= b; ++k) {
            sum += d[static_cast<std::size_t>(k)];
            moment += k * d[static_cast<std::size_t>(k)];
        }
        at = moment / sum;
    }
    return (at - CENTRE_LEVEL) * step + median;
}

std::vector<double> to_double(std::span<const float> samples) {
    return std::vector<double>(samples.begin(), samples.end());
}

}  // namespace

void TGR_smooth(double* array, int count, int width) {
    if (!array || count <= 0) return;
    const int h = width / 2;
    std::vector<double> before(array, array + count);
    for (int i = 0; i < count; ++i) {
        const int w = std::min({h, i, count - 1 - i});
        double sum = 0.0;
        for (int j = i - w; j <= i + w; ++j) sum += before[static_cast<std::size_t>(j)];
        array[i] = sum / (2 * w + 1);
    }
}

int mycompar(const void* a, const void* b) {
    const double x = *static_cast<const double*>(a);
    const double y = *static_cast<const double*>(b);
    return (x > y) - (x < y);
}

int mycompar2(const void* a, const void* b) { return mycompar(a, b); }

double histogram_noise(std::span<double> stats, std::span<const float> counted, double step_divisor,
                       double* width) {
    return histogram_noise_impl(stats, counted, step_divisor, width);
}

double histogram_noise(std::span<double> stats, std::span<const double> counted, double step_divisor,
                       double* width) {
    return histogram_noise_impl(stats, counted, step_divisor, width);
}

double CalculateNoise(const Spectrum& spectrum, double centre, double window, double* width) {
    const double half = window / 2.0;
    const long last = static_cast<long>(spectrum.data.size()) - 1;
    // m/z falls as the point rises: centre - half gives the upper end.
    long upper = to_index(One_mass_topt(spectrum, centre - half));
    long lower = to_index(One_mass_topt(spectrum, centre + half));
    if (upper < 0 || upper > last) upper = last;
    if (lower < 0) lower = 0;
    // A window wholly beyond the data comes back as the last sample alone.
    if (lower > last) lower = last;
    if (last < 0 || upper < lower) {
        std::vector<double> none;
        return histogram_noise(std::span<double>(none), std::span<const float>(), half, width);
    }
    const std::span<const float> window_samples(spectrum.data.data() + lower, static_cast<std::size_t>(upper - lower + 1));
    std::vector<double> stats = to_double(window_samples);
    return histogram_noise(std::span<double>(stats), window_samples, half, width);
}

double CalculateThrashNoise(const Spectrum& spectrum, double centre, double* nextmass, int use_data2,
                            int* calculated, double* width, double previous) {
    if (nextmass && *nextmass > centre) return previous;
    const long last = static_cast<long>(spectrum.data.size()) - 1;
    long upper = to_index(One_mass_topt(spectrum, centre - 10.0));
    long lower = to_index(One_mass_topt(spectrum, centre + 40.0));
    upper = std::min(upper, last);
    lower = std::max(lower, 0L);
    double baseline = 0.0;
    if (last < 0 || upper < lower) {
        std::vector<double> none;
        baseline = histogram_noise(std::span<double>(none), std::span<const float>(), 25.0, width);
    } else {
        const auto n = static_cast<std::size_t>(upper - lower + 1);
        const std::span<const float> counted(spectrum.data.data() + lower, n);
        std::vector<double> stats;
        if (use_data2 && spectrum.data2.size() >= static_cast<std::size_t>(upper + 1))
            stats.assign(spectrum.data2.begin() + lower, spectrum.data2.begin() + upper + 1);
        else
            stats = to_double(counted);
        baseline = histogram_noise(std::span<double>(stats), counted, 25.0, width);
    }
    if (calculated) *calculated = 1;
    if (nextmass) *nextmass = centre + 20.0;
    return baseline;
}

double CalculateThrashNoise_RP(const float* samples, long count, double* width) {
    if (!samples || count < 1) {
        std::vector<double> none;
        return histogram_noise(std::span<double>(none), std::span<const float>(), 25.0, width);
    }
    const std::span<const float> all(samples, static_cast<std::size_t>(count));
    std::vector<double> stats = to_double(all);
    return histogram_noise(std::span<double>(stats), all, 25.0, width);
}

double CalculateThrashNoiseForRePhaseCalcs(const float* samples, long count, double* width) {
    return CalculateThrashNoise_RP(samples, count, width);
}

namespace {

// Samples [from, to] of array, cut to what the array holds.
template <class T>
std::span<const T> clipped(std::span<const T> array, long from, long to) {
    const long size = static_cast<long>(array.size());
    from = std::max(from, 0L);
    to = std::min(to, size - 1);
    if (to < from) return {};
    return array.subspan(static_cast<std::size_t>(from), static_cast<std::size_t>(to - from + 1));
}

template <class T>
double noise_index_impl(std::span<const T> array, double* width, long a, long b, bool extended) {
    const long n = std::labs(a + 1 - b);
    const std::span<const T> source = clipped(array, a, a + n - 1);
    std::vector<double> stats(source.begin(), source.end());
    std::span<const T> counted;
    if (a >= b) counted = clipped(array, b, extended ? a + n : a);
    return histogram_noise(std::span<double>(stats), counted, std::labs(b - a) / 2.0, width);
}

}  // namespace

double CalculateNoiseIndex(std::span<const float> array, double* width, long a, long b) {
    return noise_index_impl(array, width, a, b, false);
}

double CalculateNoiseIndexed(std::span<const double> array, double* width, long a, long b) {
    return noise_index_impl(array, width, a, b, true);
}

double CalculateNoiseIndexed_RP(std::span<const double> array, double* width, long a, long b) {
    return noise_index_impl(array, width, a, b, true);
}

void NoiseCalThread(const NoiseCalJob& job, std::array<float, 3>& row) {
    std::vector<double> stats = to_double(job.samples);
    double width = 0.0;
    const double baseline = histogram_noise(std::span<double>(stats), job.samples, job.region_width / 2.0, &width);
    row = {static_cast<float>(baseline), static_cast<float>(width), job.tag};
}

namespace {

double median_of(std::vector<double>& v) {
    if (v.empty()) return 0.0;
    const auto middle = v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2);
    std::nth_element(v.begin(), middle, v.end());
    double m = *middle;
    if (v.size() % 2 == 0) m = (m + *std::max_element(v.begin(), middle)) / 2.0;
    return m;
}

}  // namespace

namespace {

// Marks the samples of the peaks above cut: each run above it, with `dilate`
// times its own length on either side, and on from there while the samples
// keep falling away from it. Returns the number of samples left unmarked.
std::size_t mark_peaks(std::span<const float> samples, double cut, std::size_t dilate, std::vector<char>& peak) {
    const std::size_t n = samples.size();
    std::fill(peak.begin(), peak.end(), 0);
    for (std::size_t i = 0; i < n;) {
        if (!(samples[i] > cut)) {
            ++i;
            continue;
        }
        std::size_t b = i;
        while (b + 1 < n && samples[b + 1] > cut) ++b;
        const std::size_t reach = (b - i + 1) * dilate;
        std::size_t lo = i > reach ? i - reach : 0;
        std::size_t hi = std::min(n - 1, b + reach);
        while (lo > 0 && samples[lo - 1] < samples[lo]) --lo;
        while (hi + 1 < n && samples[hi + 1] < samples[hi]) ++hi;
        std::fill(peak.begin() + static_cast<std::ptrdiff_t>(lo), peak.begin() + static_cast<std::ptrdiff_t>(hi) + 1, 1);
        i = b + 1;
    }
    return static_cast<std::size_t>(std::count(peak.begin(), peak.end(), 0));
}

}  // namespace

double robust_noise(std::span<const float> samples, double* width) {
    const std::size_t n = samples.size();
    std::vector<char> peak(n, 0);
    std::vector<double> kept;
    kept.reserve(n);
    std::vector<double> scratch;
    // A line's wings stand above the noise about as far again on either side
    // as its top stands above the cut. A window so crowded that this leaves
    // less than an eighth of it keeps the wings; one where even that is so
    // keeps everything (the plain estimate).
    const std::size_t enough = std::max<std::size_t>(16, n / 8);
    double cut = std::numeric_limits<double>::infinity();
    for (int round = 0; round < 8; ++round) {
        kept.clear();
        for (std::size_t i = 0; i < n; ++i)
            if (!peak[i]) kept.push_back(samples[i]);
        if (kept.empty()) break;
        scratch = kept;
        const double median = median_of(scratch);
        for (double& v : scratch) v = std::fabs(v - median);
        const double mad = median_of(scratch);
        const double next_cut = median + ROBUST_NOISE_CUT * mad;
        if (!(next_cut < cut)) break;  // also stops on NaN and on a flat window (mad 0)
        // A cut within a percent of the last one leaves the same samples, give or take a few.
        const bool settled = next_cut > 0.99 * cut;
        cut = next_cut;
        if (mark_peaks(samples, cut, 1, peak) < enough && mark_peaks(samples, cut, 0, peak) < enough)
            std::fill(peak.begin(), peak.end(), 0);
        if (settled) break;
    }
    kept.clear();
    for (std::size_t i = 0; i < n; ++i)
        if (!peak[i]) kept.push_back(samples[i]);
    std::vector<double> stats = kept;
    return histogram_noise_impl(std::span<double>(stats), std::span<const double>(kept), 25.0, width, true);
}

double CalculateNoiseRobust(const Spectrum& spectrum, double centre, double window, double* width) {
    const long size = static_cast<long>(spectrum.data.size());
    if (size < 1) return robust_noise({}, width);
    const double half = window / 2.0;
    long upper = to_index(One_mass_topt(spectrum, centre - half));
    long lower = to_index(One_mass_topt(spectrum, centre + half));
    if (upper < 0 || upper > size - 1) upper = size - 1;
    lower = std::clamp(lower, 0L, size - 1);
    if (upper < lower) std::swap(upper, lower);
    const long missing = ROBUST_NOISE_MIN_POINTS - (upper - lower + 1);
    if (missing > 0) {
        lower -= missing / 2;
        upper += missing - missing / 2;
        if (lower < 0) upper -= lower, lower = 0;
        if (upper > size - 1) lower -= upper - (size - 1), upper = size - 1;
        lower = std::max(lower, 0L);
    }
    return robust_noise(std::span<const float>(spectrum.data.data() + lower, static_cast<std::size_t>(upper - lower + 1)),
                        width);
}

}  // namespace vx
