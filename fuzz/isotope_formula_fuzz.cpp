// Formula texts of the isotope pattern calculator (vantorix isotopes FORMULA)
// and the class-filter limits (vantorix classes --filter). The first byte picks
// the threshold; the rest is the text, split at the first newline into the
// formula and the filter.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "composition/isotopes.hpp"
#include "composition/petro_classes.hpp"
#include "platform/ui.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    static const double thresholds[8] = {1e-2, 1e-3, 1e-4, 1e-5, 1e-6, 1e-9, 0.0, 1.5};
    const double threshold = thresholds[data[0] & 7];
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::size_t nl = text.find('\n');
    const std::string formula = text.substr(0, nl);
    // Large counts are walked in full (refused only past 5e7 steps, a quarter
    // of a second in a release build and several here): keep each input quick
    // by leaving formulas of more than 1,000 atoms to the tests.
    long number = 0, atoms = 0;
    for (char c : formula) {
        if (c >= '0' && c <= '9') {
            number = std::min(number * 10 + (c - '0'), 100000L);
        } else {
            atoms += number;
            number = 0;
        }
    }
    if (atoms + number > 1000) return 0;
    vx::RecordingUi ui;
    vx::IsotopePattern p;
    if (vx::isotope_pattern(formula, threshold, p, ui) == 0) vx::PlotFinal(p.peaks);
    if (nl != std::string::npos) {
        vx::BodyFilter f;
        const std::string rest = text.substr(nl + 1);
        if (vx::parse_body_filter(rest, f, ui) == 0) {
            vx::BodyFilterSetup(rest, f);
            vx::UseBodyFilter(rest.c_str(), f);
        }
        int n, o, s, v, ni;
        vx::ParseClass(rest, &n, &o, &s, &v, &ni);
    }
    return 0;
}
