#include "phasing/rephase.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "phasing/phase_search.hpp"

namespace vx {
namespace {
constexpr double PI = std::numbers::pi;
}

void TransformAbsZoom(RephaseRecord& r) {
    const std::int64_t start = std::clamp<std::int64_t>(r.zoom_start, 0, r.N);
    const std::int64_t count = std::clamp<std::int64_t>(r.zoom_count, 0, r.N - start);
    r.zoom_count = count;
    r.zoom_real.assign(r.realdata + start, r.realdata + start + count);
    r.zoom_imag.assign(r.imagdata + start, r.imagdata + start + count);
    r.zoom_phase.assign(r.phase + start, r.phase + start + count);
}

int RephaseData64f(RephaseRecord& r) {
    const std::int32_t S = r.rephase_sections;
    if (S < 1 || r.zoom_count < 1) return -1;
    // The divisor is S + 1, so every section but the last is shorter than the
    // range over S, and the last takes the whole rest.
    const std::int64_t width = r.zoom_count / (S + 1);
    r.section_initial.assign(S, 0);
    r.section_final.assign(S, 0);
    r.section_mid.assign(S, 0);
    r.section_constant.assign(S, 4.0);
    r.section_score.assign(S, 0.0);
    r.section_drop.assign(S, 0.0);
    r.section_degrees.assign(S, 400);
    r.section_initial[0] = 0;
    for (std::int32_t i = 0; i + 1 < S; ++i) {
        r.section_final[i] = static_cast<std::int32_t>(r.section_initial[i] + width);
        r.section_mid[i] = (r.section_final[i] - r.section_initial[i]) / 2 + r.section_initial[i];
        r.section_initial[i + 1] = r.section_final[i] + 1;
    }
    r.section_final[S - 1] = static_cast<std::int32_t>(r.zoom_count);
    r.section_mid[S - 1] = (r.section_final[S - 1] - r.section_initial[S - 1]) / 2 + r.section_initial[S - 1];
    for (std::int32_t i = 0; i < S; ++i) RephaseSection64f(r, r.section_initial[i], r.section_final[i], i);
    RePhaseZoomData64f(r);
    RePhaseTheData64f(r);
    r.rephased_flag = 1;
    return 0;
}

void RephaseSection64f(RephaseRecord& r, std::int32_t first, std::int32_t last, int section) {
    const double t = r.noise_sigma * r.rephase_sn + r.noise_mean;
    double best_score = 0.0, best_drop = 0.0, best_constant = 4.0;
    int best_degrees = 400;
    auto trial = [&](int d, const float* re, const float* im, const double* ph, std::int64_t n) {
        const double angle = 2.0 * PI * d / 360.0;
        double score = 0.0, drop = 0.0;
        for (std::int64_t k = first; k <= last; ++k) {
            if (k < 0 || k >= n) continue;  // the last section ends at zoom_count, one past the range
            const double p = ph[k] + r.base_constant + angle;
            const double y = re[k] * std::cos(p) - im[k] * std::sin(p);
            if (y > t)
                score += y * y;
            else if (y < -t)
                drop += y * y;
        }
        return ScoreResult{score, drop};
    };
    // The coarse pass reads the full spectrum with the section's indices, which
    // are relative to the zoom range: unless the range starts at point 0 it
    // scores the start of the spectrum. Kept, because stored rephased files
    // were made so; the fine pass below reads the zoom range.
    for (int d = -180; d <= 170; d += 10) {
        const ScoreResult s = trial(d, r.realdata, r.imagdata, r.phase, r.N);
        if (s.score > best_score) {
            best_score = s.score;
            best_drop = s.drop;
            best_degrees = d;
            best_constant = 2.0 * PI * d / 360.0;
        }
    }
    // The fine window runs one-sided above the coarse best, and the coarse best
    // stays its start even when a fine trial is better.
    const int coarse = best_degrees;
    if (coarse != 400) {
        for (int d = coarse; d < coarse + 10; ++d) {
            if (d == coarse) continue;
            const ScoreResult s = trial(d, r.zoom_real.data(), r.zoom_imag.data(), r.zoom_phase.data(),
                                        static_cast<std::int64_t>(r.zoom_real.size()));
            if (s.score > best_score) {
                best_score = s.score;
                best_drop = s.drop;
                best_constant = 2.0 * PI * d / 360.0;
                best_degrees = d;
            }
        }
    }
    r.section_constant[section] = best_constant;
    r.section_score[section] = best_score;
    r.section_drop[section] = best_drop;
    r.section_degrees[section] = best_degrees;
}

void RePhaseZoomData64f(RephaseRecord& r) {
    const std::int64_t n = static_cast<std::int64_t>(r.zoom_real.size());
    r.zoom_rephased.assign(n, 0.0f);
    const std::int32_t S = r.rephase_sections;
    std::int32_t j = 0;
    for (std::int64_t k = 0; k < n; ++k) {
        while (j + 1 < S && k > r.section_final[j]) ++j;
        const double p = r.zoom_phase[k] + r.base_constant + r.section_constant[j];
        r.zoom_rephased[k] = static_cast<float>(r.zoom_real[k] * std::cos(p) - r.zoom_imag[k] * std::sin(p));
    }
}

void RePhaseTheData64f(RephaseRecord& r) {
    // The section bounds are relative to the zoom range while k counts the full
    // spectrum from 0, and the last section covers one point: the constants land
    // on the first points of the spectrum. Kept as stored rephased files have
    // it; the zoom range result is RePhaseZoomData64f's.
    const std::int32_t S = r.rephase_sections;
    r.full_rephased.assign(static_cast<std::size_t>(r.N), 0.0f);
    if (S < 1) return;
    std::int64_t limit = r.section_final[0];
    std::int32_t j = 0;
    double constant = r.section_constant[0];
    for (std::int64_t k = 0; k < r.N; ++k) {
        if (k > 0) {
            if (j < S && k > limit) {
                limit = r.section_final[j];
                constant = r.section_constant[j];
                j += 1;
            } else if (j >= S) {
                constant = 0.0;
            }
        }
        const double p = r.phase[k] + r.base_constant + constant;
        r.full_rephased[k] = static_cast<float>(r.realdata[k] * std::cos(p) - r.imagdata[k] * std::sin(p));
    }
}

void BaseLineRemoveZoomRephaseThreaded(RephaseRecord& r) {
    std::vector<float>& y = r.full_rephased;
    const double t = r.baseline_scaler * r.noise_sigma + r.noise_mean;
    std::vector<double> b = baseline_minima(y, t);
    join_baseline(b);
    for (std::size_t i = 1; i + 1 < y.size(); ++i) y[i] = static_cast<float>(y[i] - b[i]);
    // Joined a second time and subtracted again after smoothing: the baseline
    // is taken off twice, once raw and once smoothed over 43 points.
    join_baseline(b);
    smooth_baseline_in_place(b, 21);
    for (std::size_t i = 1; i + 1 < y.size(); ++i) y[i] = static_cast<float>(std::max(y[i] - b[i], -15000.0));
    const std::int64_t start = std::clamp<std::int64_t>(r.zoom_start, 0, static_cast<std::int64_t>(y.size()));
    const std::int64_t count = std::clamp<std::int64_t>(r.zoom_count, 0, static_cast<std::int64_t>(y.size()) - start);
    r.zoom_rephased.assign(y.begin() + start, y.begin() + start + count);
}

int RemoveDCOffset_MagnitudeandAbsorbance(std::vector<float>& samples, std::int64_t true_count,
                                          std::vector<float>& magnitude_work) {
    const std::int64_t n = std::min<std::int64_t>(true_count != 0 ? true_count : static_cast<std::int64_t>(samples.size()),
                                                  static_cast<std::int64_t>(samples.size()));
    if (n < 1024) return -1;
    double sum = 0.0;
    for (std::int64_t i = 0; i < n; ++i) sum += samples[i];
    const float mean = static_cast<float>(sum / static_cast<double>(n));
    for (std::int64_t i = 0; i < n; ++i) samples[i] -= mean;
    magnitude_work.assign(samples.size(), 0.0f);
    std::copy(samples.begin(), samples.begin() + n, magnitude_work.begin());
    return 0;
}

}  // namespace vx
