#include "phase_bruker.hpp"

#include <cmath>

#include <fmt/format.h>

namespace vx::cli {

void add_bruker_phase_options(CLI::App* sub, std::string& chirp_seek, long long& leading_points, int& widths) {
    sub->add_option("--chirp-seek", chirp_seek,
                    "Bruker .d: auto (search the sweep rate and delay on the spectrum around the method's values, "
                    "default) or none (the method's values as they stand)")
        ->check(CLI::IsMember({"auto", "none"}));
    sub->add_option("--leading-points", leading_points,
                    "Bruker .d: leading samples left out (their time joins the delay); default: the digitiser's "
                    "zeros and rise")
        ->check(CLI::Range(0LL, 1LL << 30));
    sub->add_option("--widths", widths,
                    "Report the magnitude / absorption widths (FWHM) of this many tallest lines of the band")
        ->check(CLI::Range(0, 1000));
}

BrukerWidths bruker_widths_of(const Spectrum& s, const PhaseRunResult& r, int count) {
    BrukerWidths w;
    if (count <= 0 || s.realdata.size() != s.data.size() || s.imagdata.size() != s.data.size()) return w;
    std::vector<float> mag(s.data.size());
    for (std::size_t k = 0; k < mag.size(); ++k) mag[k] = static_cast<float>(std::hypot(s.realdata[k], s.imagdata[k]));
    w.rows = width_table(mag, s.data, s.hzppt, static_cast<std::size_t>(std::max(0LL, r.band_start)),
                         static_cast<std::size_t>(std::max(0LL, r.band_end)), static_cast<std::size_t>(count));
    w.median = median_ratio(w.rows);
    return w;
}

void add_bruker_json(nlohmann::json& j, const PhaseRunResult& r, const BrukerWidths& w) {
    if (!r.excitation.empty()) {
        j["excitation"] = r.excitation;
        j["sweep_rate"] = r.sweep_rate;
        j["skipped_points"] = r.skipped_points;
        if (r.excitation == "searched" || r.seek_score > 0.0) {  // scored only when searched
            j["method_coherence"] = r.method_score;
            j["coherence"] = r.seek_score;
        }
    }
    if (w.rows.empty()) return;
    nlohmann::json rows = nlohmann::json::array();
    for (const WidthRow& x : w.rows)
        rows.push_back({{"point", x.point},
                        {"frequency", x.frequency},
                        {"height", x.height},
                        {"magnitude_fwhm", x.magnitude_fwhm},
                        {"absorption_fwhm", x.absorption_fwhm},
                        {"ratio", x.ratio},
                        {"height_ratio", x.height_ratio}});
    j["widths"] = rows;
    j["median_width_ratio"] = w.median;
}

void print_bruker_text(std::ostream& out, const PhaseRunResult& r, const BrukerWidths& w) {
    if (!r.excitation.empty())
        out << fmt::format("Excitation {}: sweep {:.6f} Hz/us, delay {:.3f} us, {} leading points left out\n",
                           r.excitation, r.sweep_rate, r.model.bracket * 1e6, r.skipped_points);
    if (w.rows.empty()) return;
    out << "Frequency (Hz), magnitude FWHM, absorption FWHM (points), ratio, height ratio\n";
    for (const WidthRow& x : w.rows)
        out << fmt::format("{:.3f}, {:.3f}, {:.3f}, {:.3f}, {:.3f}\n", x.frequency, x.magnitude_fwhm,
                           x.absorption_fwhm, x.ratio, x.height_ratio);
    out << fmt::format("Median width ratio {:.3f}\n", w.median);
}

}  // namespace vx::cli
