// Trying zero-order constants on one part of a phased record: the scores of a
// list of constants over a point range, the three-point peak test, one pass of
// stepping, and the unwrapping of a list of phases.
#pragma once

#include <cstddef>
#include <vector>

namespace vx {

struct OptimizationResult {
    double best = 0.0;           // the constant found, rad
    int best_index = -1;         // its position in the list; -1 when none scored
    std::vector<double> scores;  // one per constant
};

// Constants start + i * step for i < steps, over points [lo, hi) of re / im
// with the curve: score = sum of y^2 over y > fit * (tallest |y| of the
// range at constant 0); the strictly best wins.
OptimizationResult CalculatePhaseOptimizationFreq(const std::vector<float>& re, const std::vector<float>& im,
                                                  const std::vector<double>& curve, std::size_t lo, std::size_t hi,
                                                  double start, double step, int steps, double fit);

// The constant that makes points p - 1, p, p + 1 the best peak: for each
// constant the three rotated values get a parabola; with negative curvature
// and the vertex within [-1, 1] of p its height counts, the tallest wins. The
// constant, or -1.0 as a flag when no constant gives such a vertex.
double CalculatePhaseOptimizationPoint(const std::vector<float>& re, const std::vector<float>& im,
                                       const std::vector<double>& curve, std::size_t p,
                                       const std::vector<double>& constants);

// One pass over a list of constants with a score function: keeps the strictly
// better. Returns the index of the best, -1 when none scores above best_score.
template <class Score>
int MaximizebySteps(const std::vector<double>& constants, Score score, double& best_score) {
    int best = -1;
    for (std::size_t i = 0; i < constants.size(); ++i) {
        const double s = score(constants[i]);
        if (s > best_score) {
            best_score = s;
            best = static_cast<int>(i);
        }
    }
    return best;
}

// Reverses the phases by index; then each value below the one before it adds
// one more 2 pi to it and to all that follow.
std::vector<double> UnWrapPhase(const std::vector<double>& phases);

}  // namespace vx
