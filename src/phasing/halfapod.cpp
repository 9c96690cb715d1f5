#include "phasing/halfapod.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

#include <fmt/format.h>

#include "platform/ui.hpp"

namespace vx {

int HalfApod(Spectrum& s, int type, int exclude_excite, Ui& ui) {
    constexpr double PI = std::numbers::pi;
    if (type == 0) {
        ui.Console("No Apod\n");
        return -1;
    }
    if (type < 1 || type > 3) {
        ui.Console(fmt::format("HalfApod: there is no half window of type {}\n", type));
        return -1;
    }
    std::size_t n = s.storedcount != 0 ? static_cast<std::size_t>(std::max(s.storedcount, 0))
                                       : static_cast<std::size_t>(std::max(s.datacount, 0));
    n = std::min(n, s.data.size());
    if (n == 0) return 0;
    float* d = s.data.data();

    if (type == 1) {
        // Computed in single precision, as the vendor cosine of 24-bit accuracy did;
        // the excitation is never excluded from this one.
        const float step = static_cast<float>(2.0 * PI / (2.0 * static_cast<double>(n) - 1.0));
        for (std::size_t i = 0; i < n; ++i) {
            const float arg = static_cast<float>(n + i) * step;
            d[i] *= 0.5f * (1.0f - std::cos(arg));
        }
        return 0;
    }

    std::size_t i0 = 0;
    if (exclude_excite && s.exciteduration > 0.0) {
        const double first = std::ceil(2.0 * s.exciteduration * s.dbandwidth);
        i0 = first >= static_cast<double>(n) ? n : static_cast<std::size_t>(first);
    }
    const double m = n > 1 ? static_cast<double>(n - 1) : 1.0;
    if (type == 2) {
        ui.Console("Half Hamming Apod3\n");
        for (std::size_t i = i0; i < n; ++i)
            d[i] = static_cast<float>(d[i] * (0.54 + 0.46 * std::cos(PI * static_cast<double>(i) / m)));
    } else {
        for (std::size_t i = i0; i < n; ++i) {
            const double x = PI * static_cast<double>(i) / m;
            d[i] = static_cast<float>(d[i] * (0.424 + 0.497 * std::cos(x) + 0.079 * std::cos(2.0 * x)));
        }
    }
    return 0;
}

}  // namespace vx
