// The header fields of a Spectrum as an ordered JSON object, under their own
// names, plus a few statistics of the samples. Used by "vantorix info" and by
// every command that reports a record.
#pragma once

#include <nlohmann/json.hpp>

#include "workspace/spectrum.hpp"

namespace vx {

nlohmann::ordered_json header_json(const Spectrum& s);

struct SampleStats {
    std::size_t count = 0;
    double min = 0.0, max = 0.0, sum = 0.0;
};
SampleStats sample_stats(const std::vector<float>& v);

// Header and sample statistics together.
nlohmann::ordered_json spectrum_json(const Spectrum& s);

// Plain-text rendering of spectrum_json: one "name: value" line each.
std::string spectrum_text(const Spectrum& s);

}  // namespace vx
