// vantorix deconvolve FILE --lowz|--highz|--mixed -o OUT.txt: the plot panel's
// mass spectrum, every peak group moved to neutral masses by the charge of its
// isotope spacing (--lowz), of its charge ladder (--highz) or of both; the
// plot panel's Zdet (--zdet), Analysis between two cursors (--analysis) and
// "Analysis Report" of a selection (--report), on the mass spectrum when one
// is made, else on the m/z display.
#include <iostream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "peak_search.hpp"
#include "platform/safe_file.hpp"
#include "thrash/deconvolve.hpp"
#include "thrash/plot_panel.hpp"
#include "thrash_common.hpp"
#include "workspace/conversions.hpp"

namespace vx::cli {
namespace {

struct DeconvolveOptions {
    std::string file, out, range, analysis, report;
    bool lowz = false, highz = false, mixed = false, json = false, zdet = false;
    double background = 0.0;
    double resolution = 100000.0, limit = 100.0, ppm = 20.0;
};

int run_deconvolve(Context& ctx, const DeconvolveOptions& o) {
    const int modes = int(o.lowz) + int(o.highz) + int(o.mixed);
    if (modes > 1 || (modes == 0 && !o.zdet && o.analysis.empty() && o.report.empty())) {
        ctx.ui.MessagePopup("Operator Error", "Choose one of --lowz, --highz and --mixed (or --zdet, --analysis, --report).");
        return 1;
    }
    if (modes == 1 && o.out.empty()) {
        ctx.ui.MessagePopup("Operator Error", "Give the mass spectrum to write with -o.");
        return 1;
    }
    std::pair<double, double> analysis_range, report_range;
    if ((!o.analysis.empty() && (!parse_pair(o.analysis, analysis_range) || !(analysis_range.second > analysis_range.first))) ||
        (!o.report.empty() && (!parse_pair(o.report, report_range) || !(report_range.second > report_range.first)))) {
        ctx.ui.MessagePopup("Operator Error", "--analysis and --report take the two cursors as LOW:HIGH.");
        return 1;
    }
    if (!(o.resolution >= 10.0) || !(o.limit > 0.0)) {
        ctx.ui.MessagePopup("Operator Error", "--resolution is at least 10 and --limit above 0.");
        return 1;
    }
    if (!o.out.empty() && same_file(o.out, o.file)) {
        ctx.ui.MessagePopup("Operator Error", fmt::format("The output {} is the data file itself; choose another name.", o.out));
        return 1;
    }
    const int slot = open_spectrum_file(ctx, o.file);
    if (slot < 0) return 1;
    const Spectrum& s = ctx.ws.panels[static_cast<std::size_t>(slot)].spectrum;
    std::pair<double, double> r{Low_Mass(s), High_Mass(s)};
    if (!o.range.empty() && (!parse_pair(o.range, r) || !(r.second > r.first))) {
        ctx.ui.MessagePopup("Operator Error", "--range is LOW:HIGH in m/z.");
        return 1;
    }
    PlotData d = reassign_display(s, r.first, r.second);
    d.ppm = o.ppm;
    nlohmann::ordered_json j;
    j["file"] = o.file;
    // What the plot shows: the display, or the mass spectrum once made.
    std::vector<double> px(d.mass.begin(), d.mass.end()), py(d.intensity.begin(), d.intensity.end());
    if (o.zdet) {
        ZdetResult z;
        if (vx::zdet(d, z, ctx.ui) < 0) return 1;
        if (o.json) {
            j["zdet"] = {{"mz", z.mz}, {"charge", z.charge}, {"mass", z.mass}, {"threshold", z.threshold},
                         {"baseline", z.baseline_line}, {"label", z.label}};
        } else {
            std::cout << fmt::format("Zdet: {} at m/z {:.4f}, threshold {:.3f}\n", z.label, z.mz, z.threshold);
        }
    }
    if (modes == 1) {
        DeconvOptions opt;
        opt.mode = o.highz ? DECONV_HIGHZ : o.mixed ? DECONV_MIXED : DECONV_LOWZ;
        opt.resolution = o.resolution;
        opt.limit_kda = o.limit;
        MassSpectrum m;
        const int groups = deconvolve(d, opt, m);
        std::string err;
        if (write_file_atomically(o.out, mass_spectrum_text(m), &err) < 0) {
            ctx.ui.MessagePopup("File Error", fmt::format("Could not write {}: {}", o.out, err));
            return 1;
        }
        px = m.mass;
        py = m.intensity;
        // The strongest masses, as a reader of the file would look first.
        std::vector<std::size_t> order(m.mass.size());
        for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
        std::sort(order.begin(), order.end(), [&](auto a, auto b) { return m.intensity[a] > m.intensity[b]; });
        if (order.size() > 10) order.resize(10);
        if (o.json) {
            j["output"] = o.out;
            j["groups"] = groups;
            j["points"] = m.mass.size();
            auto top = nlohmann::ordered_json::array();
            for (auto i : order) top.push_back({{"mass", m.mass[i]}, {"intensity", m.intensity[i]}});
            j["strongest"] = top;
        } else {
            std::cout << fmt::format("wrote {}: {} groups, {} points\n", o.out, groups, m.mass.size());
            for (auto i : order) std::cout << fmt::format("{:.4f}\t{:.1f}\n", m.mass[i], m.intensity[i]);
        }
    }
    if (!o.analysis.empty()) {
        // The background is given here rather than confirmed.
        PlotAnalysis a;
        if (plot_analysis(px, py, analysis_range.first, analysis_range.second, o.background, a, ctx.ui, false) < 0)
            return 1;
        if (o.json) j["analysis"] = {{"centroid", a.centroid}, {"area", a.area}, {"points", a.points}, {"text", a.text}};
        else std::cout << a.text << "\n";
    }
    if (!o.report.empty()) {
        AnalysisReport rep;
        if (analysis_report(px, py, report_range.first, report_range.second, rep, ctx.ui) < 0) return 1;
        if (o.json) {
            j["report"] = {{"points", rep.points}, {"average", rep.mean}, {"deviation", rep.deviation},
                           {"plus3", rep.plus3}, {"plus6", rep.plus6}, {"text", rep.text}};
        } else {
            std::cout << "Analysis Report\n" << rep.text << "\n";
        }
    }
    if (o.json) std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << "\n";
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<DeconvolveOptions>();
    auto* sub = app.add_subcommand("deconvolve", "Mass spectrum of a charge-state deconvolution (plot panel)");
    sub->add_option("file", o->file, "Data file (a transient is processed first)")->required();
    sub->add_flag("--lowz", o->lowz, "Well Resolved Isotopic Peaks: charge from the isotope spacing");
    sub->add_flag("--highz", o->highz, "Poorly Resolved Isotopic Peaks: charge from the charge-state ladder");
    sub->add_flag("--mixed", o->mixed, "Both scores summed");
    sub->add_option("-o,--output", o->out, "Mass spectrum to write (text); needed with a mode");
    sub->add_flag("--zdet", o->zdet, "Zdet: the charge and mass of the tallest cluster of the display");
    sub->add_option("--analysis", o->analysis, "Centroid and area between the cursors LOW:HIGH of the plot");
    sub->add_option("--background", o->background, "Background under --analysis")->capture_default_str();
    sub->add_option("--report", o->report, "Analysis Report: average and deviation between the cursors LOW:HIGH");
    sub->add_option("--range", o->range, "m/z range LOW:HIGH (default: the data's)");
    sub->add_option("--resolution", o->resolution, "Resolving power of the mass grid")->capture_default_str();
    sub->add_option("--limit", o->limit, "Highest neutral mass of the ladder, kDa")->capture_default_str();
    sub->add_option("--ppm", o->ppm, "Tolerance of a ladder member, ppm")->capture_default_str();
    sub->add_flag("--json", o->json, "Print JSON");
    sub->callback([&ctx, o] { ctx.exit_code = run_deconvolve(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
