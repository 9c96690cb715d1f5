// Isotope patterns and isotope rules from the command line:
//   vantorix isotopes FORMULA [--threshold X] [--fine] [--csv OUT] [--plot OUT.png|.svg] [--json]
//   vantorix isotopes --rules LIST.pks [--ppm X] [--json]
#include <iostream>
#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "composition/isotope_rules.hpp"
#include "composition/isotopes.hpp"
#include "platform/safe_file.hpp"
#ifdef VANTORIX_HAVE_PLOTS
#include "petro_plots.hpp"
#endif

namespace vx::cli {

// The peak input of the composition commands (cmd_composition.cpp).
int load_peaks(Context& ctx, const std::string& path, Spectrum& s);

namespace {

struct IsotopesOptions {
    std::string formula;
    double threshold = 1e-6;
    bool fine = false;
    std::string csv;
    std::string plot;
    std::string rules;
    double ppm = 1.0;
    double series_ppm = 1.0;
    bool json = false;
};

std::string pattern_csv(const IsotopePattern& p, bool fine) {
    double top = 0.0;
    for (const IsoFinal& f : p.peaks) top = std::max(top, f.abundance);
    std::string out = "offset,mass,abundance,relative,low_mass,high_mass,members\n";
    for (const IsoFinal& f : p.peaks)
        out += fmt::format("{},{:.9f},{:.9e},{:.9f},{:.9f},{:.9f},{}\n", f.offset, f.weighted_mass, f.abundance,
                           top > 0.0 ? f.abundance / top : 0.0, f.low_mass, f.high_mass, f.member_count);
    if (fine) {
        out += "\nmass,abundance,offset,counts\n";
        for (const IsoResult& r : p.isotopologues)
            out += fmt::format("{:.9f},{:.9e},{},{}\n", r.mass, r.abundance, r.offset, isotopologue_label(p, r));
    }
    return out;
}

int run_pattern(Context& ctx, const IsotopesOptions& o) {
#ifdef VANTORIX_HAVE_PLOTS
    if (!o.plot.empty()) {
        const std::string ext = o.plot.size() >= 4 ? o.plot.substr(o.plot.size() - 4) : std::string();
        if (ext != ".png" && ext != ".svg" && ext != ".PNG" && ext != ".SVG") {
            ctx.ui.MessagePopup("Operator Error", fmt::format("--plot writes .png or .svg, not {}.", o.plot));
            return 1;
        }
    }
#else
    if (!o.plot.empty()) {
        ctx.ui.MessagePopup("Isotope Calculator",
                            "--plot needs the Qt plotting library, which the command line does not link; write --csv and "
                            "plot it, or use the pattern panel of vantorix-analysis.");
        return 2;
    }
#endif
    IsotopePattern p;
    if (isotope_pattern(o.formula, o.threshold, p, ctx.ui) < 0) return 1;
#ifdef VANTORIX_HAVE_PLOTS
    if (!o.plot.empty() && write_isotope_plot(p, o.formula, o.plot, ctx.ui) < 0) return 1;
#endif
    const std::string csv = pattern_csv(p, o.fine);
    if (!o.csv.empty()) {
        std::string error;
        if (write_file_atomically(o.csv, csv, &error) < 0) {
            ctx.ui.MessagePopup("File Error", fmt::format("{} cannot be written: {}", o.csv, error));
            return 1;
        }
    }
    double top = 0.0;
    for (const IsoFinal& f : p.peaks) top = std::max(top, f.abundance);
    if (o.json) {
        nlohmann::ordered_json j;
        j["formula"] = o.formula;
        j["threshold"] = o.threshold;
        auto peaks = nlohmann::ordered_json::array();
        for (const IsoFinal& f : p.peaks)
            peaks.push_back({{"offset", f.offset},
                             {"mass", f.weighted_mass},
                             {"abundance", f.abundance},
                             {"relative", top > 0.0 ? f.abundance / top : 0.0},
                             {"low_mass", f.low_mass},
                             {"high_mass", f.high_mass},
                             {"members", f.member_count}});
        j["peaks"] = peaks;
        if (o.fine) {
            auto iso = nlohmann::ordered_json::array();
            for (const IsoResult& r : p.isotopologues) {
                nlohmann::ordered_json counts = nlohmann::ordered_json::object();
                const auto parts = isotope_parts(p.problem, r);
                for (std::size_t i = 0; i < p.problem.size(); ++i) {
                    const IsoElement& e = p.problem[i];
                    const IsoSolution& s = e.solutions[static_cast<std::size_t>(parts[i])];
                    for (int k = 0; k < e.isotope_count; ++k)
                        if (s.counts[static_cast<std::size_t>(k)] > 0)
                            counts[e.isotopes[static_cast<std::size_t>(k)].label] = s.counts[static_cast<std::size_t>(k)];
                }
                iso.push_back({{"mass", r.mass}, {"abundance", r.abundance}, {"counts", counts}});
            }
            j["isotopologues"] = iso;
        }
        if (!o.csv.empty()) j["csv"] = o.csv;
        if (!o.plot.empty()) j["plot"] = o.plot;
        std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
    } else if (o.csv.empty()) {
        std::cout << csv;
    } else {
        std::cout << fmt::format("{}: {} peaks, {} isotopologues above {:g}; written to {}\n", o.formula, p.peaks.size(),
                                 p.isotopologues.size(), o.threshold, o.csv);
    }
    return 0;
}

int run_rules(Context& ctx, const IsotopesOptions& o) {
    if (o.json) ctx.ui.quiet_console = true;
    Spectrum s;
    if (load_peaks(ctx, o.rules, s) < 0) return 1;
    IsotopeRulesSummary sum;
    if (isotope_rules_list(s, o.series_ppm, o.ppm, ctx.ui, &sum) < 0) return 1;
    const std::string csv = isotope_flags_csv(s);
    if (!o.csv.empty()) {
        if (same_file(o.csv, o.rules)) {
            ctx.ui.MessagePopup("File Error", fmt::format("{} is the input; the result is not written over it.", o.csv));
            return 1;
        }
        std::string error;
        if (write_file_atomically(o.csv, csv, &error) < 0) {
            ctx.ui.MessagePopup("File Error", fmt::format("{} cannot be written: {}", o.csv, error));
            return 1;
        }
    }
    if (o.json) {
        nlohmann::ordered_json j;
        j["file"] = o.rules;
        j["ppm"] = o.ppm;
        j["peaks"] = sum.peaks;
        static const char* const kinds[4] = {"13C", "2x13C", "34S", "34S+13C"};
        auto k = nlohmann::ordered_json::object();
        for (int i = 0; i < 4; ++i)
            k[kinds[i]] = {{"expected", sum.expected[static_cast<std::size_t>(i)]},
                           {"found", sum.found[static_cast<std::size_t>(i)]}};
        j["kinds"] = k;
        if (!o.csv.empty()) j["csv"] = o.csv;
        std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
    } else if (o.csv.empty()) {
        std::cout << csv;
    } else {
        std::cout << fmt::format("{}: {} peaks; 13C expected {} found {}; written to {}\n", o.rules, sum.peaks,
                                 sum.expected[0], sum.found[0], o.csv);
    }
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<IsotopesOptions>();
    auto* sub = app.add_subcommand("isotopes", "Isotope pattern of a formula, or the isotope rules over a peak list");
    sub->add_option("formula", o->formula, "Formula, e.g. C60H122N2O4S (elements of at most 5 isotopes)");
    sub->add_option("--threshold", o->threshold, "Smallest abundance kept, 0 < X <= 1 (default 1e-6)");
    sub->add_flag("--fine", o->fine, "Also list the isotopologues (fine structure)");
    sub->add_option("--csv", o->csv, "Write the table as CSV here");
    sub->add_option("--plot", o->plot, "Plot the profile into OUT.png or OUT.svg (needs the Qt build)");
    sub->add_option("--rules", o->rules, "Run the unguided isotope rules over this peak list (.pks, .csv)");
    sub->add_option("--ppm", o->ppm, "Isotope search window in ppm for --rules (default 1)");
    sub->add_option("--series-ppm", o->series_ppm, "Kendrick series window in ppm for --rules (default 1)");
    sub->add_flag("--json", o->json, "Print JSON");
    sub->callback([&ctx, o] {
        if (!o->rules.empty() == !o->formula.empty()) {
            ctx.ui.MessagePopup("Operator Error", "isotopes takes either a FORMULA or --rules LIST, not both or neither.");
            ctx.exit_code = 1;
            return;
        }
        ctx.exit_code = o->rules.empty() ? run_pattern(ctx, *o) : run_rules(ctx, *o);
    });
});

}  // namespace
}  // namespace vx::cli
