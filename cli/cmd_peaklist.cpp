// vantorix peaklist FILE.pks [--json]: reads a batch peak list back as the
// program's reader sees it and prints its peaks.
#include <iostream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "formats/peak_list.hpp"

namespace vx::cli {
namespace {

struct PeaklistOptions {
    std::string file;
    bool json = false;
};

int run_peaklist(Context& ctx, const PeaklistOptions& o) {
    Spectrum s;
    if (Get_Tulva_Peak_List(o.file, s, ctx.ui) < 0) {
        // Some of the readers' messages do not say which file they mean.
        std::cerr << o.file << ": not opened\n";
        return 1;
    }
    const double low = s.xvalues.empty() ? 0.0 : s.xvalues.front();
    const double high = s.xvalues.empty() ? 0.0 : s.xvalues.back();
    if (o.json) {
        nlohmann::ordered_json out;
        out["file"] = s.filename;
        out["peakcount"] = s.peakcount;
        out["datacount"] = s.datacount;
        out["low_limit"] = low;
        out["high_limit"] = high;
        auto peaks = nlohmann::ordered_json::array();
        for (const Peak& p : s.peaks) {
            peaks.push_back({{"mz", p.index},
                             {"abundance", p.abundance},
                             {"relabundance", p.relabundance},
                             {"resolvingpower", p.resolvingpower},
                             {"frequency", p.frequency},
                             {"width", p.width}});
        }
        out["peaks"] = peaks;
        std::cout << out.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
        return 0;
    }
    std::cout << fmt::format("{}: {} peaks, limits {:.2f} to {:.2f} m/z\n", s.filename, s.peakcount, low, high);
    std::cout << fmt::format("{:>14} {:>14} {:>14} {:>12} {:>16}\n", "m/z", "Peak Height", "Abundance", "RP", "Frequency");
    for (const Peak& p : s.peaks)
        std::cout << fmt::format("{:14.5f} {:14.4f} {:14.4f} {:12.0f} {:16.6f}\n", p.index, p.abundance,
                                 p.relabundance, p.resolvingpower, p.frequency);
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<PeaklistOptions>();
    auto* sub = app.add_subcommand("peaklist", "Read a .pks peak list back and print it");
    sub->add_option("file", o->file, "Peak list (.pks, batch form)")->required();
    sub->add_flag("--json", o->json, "Print JSON instead of text");
    sub->callback([&ctx, o] { ctx.exit_code = run_peaklist(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
