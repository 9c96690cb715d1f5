#include "phasing/optimize.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vx {

OptimizationResult CalculatePhaseOptimizationFreq(const std::vector<float>& re, const std::vector<float>& im,
                                                  const std::vector<double>& curve, std::size_t lo, std::size_t hi,
                                                  double start, double step, int steps, double fit) {
    OptimizationResult r;
    hi = std::min({hi, re.size(), im.size(), curve.size()});
    if (lo >= hi || steps <= 0) return r;
    double tallest = 0.0;
    for (std::size_t k = lo; k < hi; ++k)
        tallest = std::max(tallest, std::fabs(re[k] * std::cos(curve[k]) - im[k] * std::sin(curve[k])));
    const double t = fit * tallest;
    double best_score = 0.0;
    for (int i = 0; i < steps; ++i) {
        const double c = start + i * step;
        double score = 0.0;
        for (std::size_t k = lo; k < hi; ++k) {
            const double y = re[k] * std::cos(curve[k] + c) - im[k] * std::sin(curve[k] + c);
            if (y > t) score += y * y;
        }
        r.scores.push_back(score);
        if (score > best_score) {
            best_score = score;
            r.best = c;
            r.best_index = i;
        }
    }
    return r;
}

double CalculatePhaseOptimizationPoint(const std::vector<float>& re, const std::vector<float>& im,
                                       const std::vector<double>& curve, std::size_t p,
                                       const std::vector<double>& constants) {
    const std::size_t n = std::min({re.size(), im.size(), curve.size()});
    if (p < 1 || p + 1 >= n) return -1.0;
    double best = -1.0, best_height = -HUGE_VAL;
    for (double c : constants) {
        double y[3];
        for (int j = 0; j < 3; ++j) {
            const std::size_t k = p - 1 + static_cast<std::size_t>(j);
            y[j] = re[k] * std::cos(curve[k] + c) - im[k] * std::sin(curve[k] + c);
        }
        // The parabola through x = -1, 0, 1: a x^2 + b x + y0.
        const double a = 0.5 * (y[0] + y[2]) - y[1];
        const double b = 0.5 * (y[2] - y[0]);
        if (!(a < 0.0)) continue;
        const double x = -b / (2.0 * a);
        if (x < -1.0 || x > 1.0) continue;
        const double height = y[1] - b * b / (4.0 * a);
        if (height > best_height) {
            best_height = height;
            best = c;
        }
    }
    return best;
}

std::vector<double> UnWrapPhase(const std::vector<double>& phases) {
    std::vector<double> out(phases.rbegin(), phases.rend());
    double add = 0.0;
    for (std::size_t i = 1; i < out.size(); ++i) {
        // Compared before this point's own turn is added: the jump is in the data.
        const bool below = out[i] < phases[phases.size() - i];
        if (below) add += 2.0 * std::numbers::pi;
        out[i] += add;
    }
    return out;
}

}  // namespace vx
