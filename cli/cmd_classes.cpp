// Petroleum class summaries from the command line:
//   vantorix classes LIST -o DIR [--plots png,svg] [--filter N0-2,O0-6 [--vanadium|--nickel]] [--json]
// The list is assigned with the isotope rules on (13C and 34S isotopologues get
// their parents' formulas), then rolled up by class, DBE and carbon number.
#include <filesystem>
#include <iostream>
#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "composition/assign.hpp"
#include "composition/petro_classes.hpp"
#include "platform/safe_file.hpp"
#ifdef VANTORIX_HAVE_PLOTS
#include "petro_plots.hpp"
#endif

namespace vx::cli {

int load_peaks(Context& ctx, const std::string& path, Spectrum& s);

namespace {

struct ClassesOptions {
    std::string file;
    std::string dir;
    std::string plots;
    std::string filter;
    bool vanadium = false;
    bool nickel = false;
    bool keep_34s = false;
    double ppm = 1.0;
    std::string mode = "neg";
    std::string elements = "C0-100,H0-200,N0-4,O0-20,S0-3";
    bool json = false;
};

int run_classes(Context& ctx, const ClassesOptions& o) {
    if (o.json) ctx.ui.quiet_console = true;
#ifdef VANTORIX_HAVE_PLOTS
    PlotFormats formats;
    if (!o.plots.empty() && parse_plot_formats(o.plots, formats, ctx.ui) < 0) return 1;
#else
    if (!o.plots.empty()) {
        ctx.ui.MessagePopup("Petroleum Analysis",
                            "--plots needs the Qt plotting library, which the command line does not link; the class "
                            "tables are CSV files to plot, and vantorix-analysis draws and saves the plots.");
        return 2;
    }
#endif
    if (o.vanadium && o.nickel) {
        ctx.ui.MessagePopup("Operator Error", "--vanadium and --nickel exclude each other, as on the filter panel.");
        return 1;
    }
    BodyFilter filter;
    filter.vanadium = o.vanadium;
    filter.nickel = o.nickel;
    if (!o.filter.empty() && parse_body_filter(o.filter, filter, ctx.ui) < 0) return 1;
    const auto mode = parse_charge_mode(o.mode);
    if (!mode) {
        ctx.ui.MessagePopup("Operator Error", fmt::format("The charge mode is pos, neu or neg, not \"{}\".", o.mode));
        return 1;
    }
    FormulaSettings st = molecal_defaults();
    std::string elements = o.elements;
    if (elements.find("13C") == std::string::npos) elements = "13C0-1,34S0-1," + elements;
    if (parse_element_ranges(elements, st, ctx.ui) < 0) return 1;
    st.mode = *mode;
    st.RADICALS = false;
    st.MASS_ACCURACY = o.ppm;
    st.TOPDOWN = true;
    st.series_fit = true;
    st.IGNOREOVERS = true;
    // The folder first: a folder that cannot be written is found before the work.
    std::error_code ec;
    std::filesystem::create_directories(o.dir, ec);
    if (ec || !std::filesystem::is_directory(o.dir)) {
        ctx.ui.MessagePopup("File Error", fmt::format("The folder {} cannot be made: {}", o.dir,
                                                      ec ? ec.message() : std::string("a file of that name is in the way")));
        return 1;
    }
    Spectrum s;
    if (load_peaks(ctx, o.file, s) < 0) return 1;
    KendrickOptions ko;
    ko.ppm = o.ppm;
    AssignSummary sum;
    if (assign_peak_list(s, ko, st, 2, ctx.ui, &sum) < 0) return 1;
    PetroSummary p;
    if (ProcessPetro(s, st, !o.keep_34s, p, ctx.ui, o.filter.empty() && !o.vanadium && !o.nickel ? nullptr : &filter) < 0)
        return 1;
    const std::pair<const char*, std::string> files[] = {
        {"classes.csv", classes_csv(p)},       {"dbe.csv", dbe_csv(p)},
        {"carbon.csv", carbon_csv(p)},         {"processed.csv", processed_csv(p, st)},
        {"peaks.csv", peaks_csv(p, st)},       {"mass_error.csv", mass_error_csv(s)},
        {"sn_error.csv", sn_error_csv(s)},
    };
    for (const auto& [name, text] : files) {
        const std::string path = (std::filesystem::path(o.dir) / name).string();
        if (same_file(path, o.file)) {
            ctx.ui.MessagePopup("File Error", fmt::format("{} is the input; the result is not written over it.", path));
            return 1;
        }
        std::string error;
        if (write_file_atomically(path, text, &error) < 0) {
            ctx.ui.MessagePopup("File Error", fmt::format("{} cannot be written: {}", path, error));
            return 1;
        }
    }
    std::vector<std::string> plot_files;
#ifdef VANTORIX_HAVE_PLOTS
    if (!o.plots.empty() && write_petro_plots(p, o.dir, formats, ctx.ui, &plot_files) < 0) return 1;
#endif
    if (o.json) {
        nlohmann::ordered_json j;
        j["file"] = o.file;
        j["folder"] = o.dir;
        j["peaks"] = sum.peaks;
        j["assigned"] = sum.assigned;
        j["total_abundance"] = p.total;
        auto cl = nlohmann::ordered_json::array();
        for (const ClassRow& c : p.classes)
            cl.push_back({{"class", c.class_text}, {"abundance", c.sum}, {"percent", c.percent}, {"peaks", c.peaks}});
        j["classes"] = cl;
        auto fl = nlohmann::ordered_json::array();
        for (const auto& f : files) fl.push_back(f.first);
        j["files"] = fl;
        if (!o.plots.empty()) j["plots"] = plot_files;
        std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
    } else {
        std::cout << fmt::format("{}: {} of {} peaks assigned, {} classes; tables written to {}\n", o.file, sum.assigned,
                                 sum.peaks, p.classes.size(), o.dir);
        for (const ClassRow& c : p.classes)
            std::cout << fmt::format("  {:<16} {:8.3f} %  {:5} peaks\n", c.class_text, c.percent, c.peaks);
        if (!plot_files.empty()) std::cout << fmt::format("{} plots written to {}\n", plot_files.size(), o.dir);
    }
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<ClassesOptions>();
    auto* sub = app.add_subcommand("classes", "Class, DBE and carbon-number tables of a peak list, isotopologues folded");
    sub->add_option("file", o->file, "Peak list (.pks, .csv) or data file")->required();
    sub->add_option("-o,--output", o->dir, "Folder for the tables")->required();
    sub->add_option("--plots", o->plots, "Also draw the plots: png, svg or png,svg (needs the Qt build)");
    sub->add_option("--filter", o->filter, "Class filter, e.g. N0-2,O0-6 (maximum and minimum of N, O, S)");
    sub->add_flag("--vanadium", o->vanadium, "Let vanadium classes through the filter");
    sub->add_flag("--nickel", o->nickel, "Let nickel classes through the filter");
    sub->add_flag("--keep-34s-classes", o->keep_34s,
                  "Leave 34S isotopologue classes standing as classes of their own, as the desktop's class table did");
    sub->add_option("--ppm", o->ppm, "Tolerance in ppm (default 1)");
    sub->add_option("--mode", o->mode, "Charge mode pos, neu, neg (default neg)");
    sub->add_option("--elements", o->elements, "Element ranges (default C0-100,H0-200,N0-4,O0-20,S0-3)");
    sub->add_flag("--json", o->json, "Print the class table as JSON");
    sub->callback([&ctx, o] { ctx.exit_code = run_classes(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
