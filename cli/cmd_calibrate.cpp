// vantorix calibrate FILE --ref CAL.ref: finds the peaks of a data file (or
// takes them from a peak list), matches the reference masses to them, fits the
// two-term law (or builds a walking calibration), applies it and prints the
// coefficients, the RMS error and the calibrant table.
//
// vantorix recal FILE... --aterm A --bterm B: copies of data files with new
// coefficients in their headers (FILE.new).
//
// vantorix ref write|read: reference files of exact masses.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>

#include <fmt/format.h>
#include <fmt/printf.h>
#include <nlohmann/json.hpp>

#include "calibration/calibration.hpp"
#include "calibration/calibration_commands.hpp"
#include "calibration/quick_cal.hpp"
#include "calibration/reference_file.hpp"
#include "commands.hpp"
#include "formats/open_file.hpp"
#include "formats/calibration_change.hpp"
#include "formats/peak_list.hpp"
#include "formats/tulva_reader.hpp"
#include "peak_search.hpp"
#include "save_frequency.hpp"
#include "workspace/conversions.hpp"

namespace vx::cli {
namespace {

struct CalibrateOptions {
    std::string file;
    std::string ref;
    double series = -1.0;  // first m/z of a CH2 series that calibrates instead of a reference file
    double tolerance = -1.0;
    std::string units;
    bool walking = false;
    int terms = 2;
    PeakSearchOptions search;
    std::string table;
    std::string walking_csv;
    bool walking_csv_given = false;
    std::string out;
    std::string peaks;
    std::string save;
    bool exact_count = false;
    int precision = 6;
    bool json = false;
    bool overwrite = false;
};

// A record that carries only the calibration of header and the peaks of a
// list, on an axis of 1 Hz a point, so that a peak's point is its frequency.
Spectrum peaks_on_frequency_axis(const Spectrum& header, std::vector<Peak> peaks) {
    Spectrum s;
    s.filename = header.filename;
    s.filetype = header.filetype;
    s.caltype = CALTYPE_TWO_TERM;
    s.Aterm = header.Aterm;
    s.Bterm = header.Bterm;
    s.Cterm = header.Cterm;
    s.Trapvoltage = header.Trapvoltage;
    s.domain = DOMAIN_PEAKLIST;
    s.detectmode = DETECT_DIRECT;
    s.datacount = 1 << 20;
    s.dbandwidth = static_cast<double>(s.datacount);
    const double V = std::fabs(s.Trapvoltage);
    for (Peak& p : peaks) {
        // The list reader keeps the percent column as the height of its sticks;
        // the calibration table wants the abundance as height.
        std::swap(p.abundance, p.relabundance);
        p.index = p.frequency;
        p.mass = p.frequency > 0.0 ? (s.Bterm * V / p.frequency + s.Aterm) / p.frequency : 0.0;
        p.iscalibrant = 0;
        p.calmass = -1.0;
        p.calibrantrow = -1;
    }
    // Batch lists run from the highest mass down; the record ascends in m/z.
    std::stable_sort(peaks.begin(), peaks.end(), [](const Peak& a, const Peak& b) { return a.frequency > b.frequency; });
    s.peaks = std::move(peaks);
    s.peakcount = static_cast<std::int32_t>(s.peaks.size());
    if (!s.peaks.empty()) {
        s.initMz = s.peaks.front().mass;
        s.finalMz = s.peaks.back().mass;
    }
    return s;
}

nlohmann::json row_json(const CalTableRow& r, bool walking) {
    nlohmann::json j = {{"number", r.number},          {"frequency", r.frequency},
                        {"theoretical", r.theoretical}, {"measured", r.measured},
                        {"error_ppm", r.error},         {"abundance", r.abundance},
                        {"relabundance", r.relabundance}, {"sn", r.sn}};
    if (walking) {
        j["calibrated_mz1"] = r.calmz1;
        j["calibrated_mz2"] = r.calmz2;
        j["ppq_difference"] = r.ppq;
        j["recalculated_aterm"] = r.recalA;
        j["recalculated_bterm"] = r.recalB;
    }
    return j;
}

int run_calibrate(Context& ctx, const CalibrateOptions& o) {
    ctx.ui.quiet_console = o.json;
    ctx.ui.default_confirm = o.overwrite;
    if (ctx.load_settings() < 0) return 1;
    std::vector<double> masses;
    if (o.ref.empty() == (o.series <= 0.0)) {
        ctx.ui.MessagePopup("Operator Error", "Give either --ref or --series.");
        return 1;
    }
    if (!o.ref.empty() && read_reference_file(o.ref, masses, ctx.ui) < 0) return 1;

    MatchTolerance tol = tolerance_from_settings(ctx.ws.settings);
    if (o.tolerance > 0.0) tol.limit = o.tolerance;
    if (!o.units.empty()) tol.ppm = o.units == "ppm";

    Spectrum* target = nullptr;
    Spectrum from_list;
    if (!o.peaks.empty()) {
        ctx.ws.settings_folder.clear();  // a calibration run leaves the recent-file list alone
        const int slot = open_any_file(ctx.ws, o.file, ctx.ui);
        if (slot < 0) return 1;
        Spectrum list;
        if (Get_Tulva_Peak_List(o.peaks, list, ctx.ui) < 0) return 1;
        from_list = peaks_on_frequency_axis(ctx.ws.panels[static_cast<std::size_t>(slot)].spectrum,
                                            std::move(list.peaks));
        target = &from_list;
    } else {
        PeakSearchResult found;
        if (find_peaks_in_file(ctx, o.file, o.search, found) < 0) return 1;
        target = &ctx.ws.panels[static_cast<std::size_t>(found.slot)].spectrum;
    }
    Spectrum& s = *target;

    CalibrationPanel panel;
    panel.WalkingOn = o.walking;
    panel.WalkingTerms = o.terms;
    ReferenceMatch match;
    if (o.series > 0.0) {
        // Quick calibration: the peaks on the CH2 series from the given m/z
        // are the checked members, the series' masses their theoretical ones.
        QuickCalRequest q;
        q.start_mz = o.series;
        q.run_fit = false;
        double highest = 0.0;
        for (const Peak& p : s.peaks) highest = std::max(highest, p.mass);
        masses = quick_cal_series(o.series, 2.0 * q.unit_first + q.unit_second, highest);
        q.checked = MatchTheo_toMeasured(s, masses, tol);
        match.checked = static_cast<int>(q.checked.size());
        if (FinishQuickCalNew(panel, s, q, tol, ctx.ui) < 0) return 1;
        match.duplicates = RemoveDuplicateCalibrants(panel);
        match.unassigned = match.checked - static_cast<int>(panel.rows.size()) - match.duplicates;
        if (panel.rows.size() < 2) {
            ctx.ui.MessagePopup("Operator Error", "Must check at least 2 \n peaks for calibration");
            return 1;
        }
    } else if (calibrate_from_reference(s, panel, masses, tol, ctx.ui, &match) < 0) {
        return 1;
    }
    const int unassigned = match.unassigned, duplicates = match.duplicates;
    CalibrationPanel before = panel;
    Update_Calibration(before, s.Aterm, s.Bterm, s.Trapvoltage);

    if (CalibrationCalculate(panel, s.Trapvoltage, ctx.ui) < 0) return 1;
    const double rms_fit = panel.RmsError;
    const CalibrationPanel fitted = panel;
    if (ApplyCalibration(s, panel, 1, true, ctx.ui) < 0) return 1;
    const bool walked = s.walkingregions > 0;

    if (o.walking_csv_given && !walked) {  // refused before any file is written
        ctx.ui.MessagePopup("No walking calibration has been loaded.",
                            "Please reload the file with appropriate file operations.");
        return 1;
    }
    if (!o.table.empty()) {
        const int rc = SaveCalibrationCsv(o.table, panel, s, ctx.ui);
        if (rc != 0) {
            if (rc > 0) ctx.ui.MessagePopup("Calibration", fmt::format("{} exists; kept it (--overwrite replaces it).", o.table));
            return 1;
        }
    }
    std::string walking_csv;
    if (o.walking_csv_given) {
        walking_csv = o.walking_csv.empty() ? walking_csv_path(o.file) : o.walking_csv;
        if (SaveWalkingCalasCSV(s, walking_csv, ctx.ui) != 0) return 1;
    }
    if (!o.save.empty()) {
        // A .wcd carries the walking table, a .vfd does not.
        const bool wcd = o.save.size() > 4 && (o.save.ends_with(".wcd") || o.save.ends_with(".WCD"));
        if (!o.peaks.empty()) {
            ctx.ui.MessagePopup("Operator Error", "--save stores the spectrum: it cannot be used with --peaks.");
            return 1;
        }
        if (wcd && s.walkingregions < 2) {
            ctx.ui.MessagePopup("Walking Calibration Table is not present.", "Walking Calibration File Save was Aborted");
            return 1;
        }
        if (save_frequency_file(ctx, s, o.save, o.file, wcd, o.exact_count) < 0) return 1;
    }
    if (!o.out.empty()) {
        BatchPeakListOptions b;
        b.low_mass = s.initMz;
        b.high_mass = s.finalMz;
        b.noise_threshold = ctx.ws.settings.noise_threshold;
        b.peak_threshold = ctx.ws.settings.peak_threshold;
        b.precision = o.precision;
        b.last_column = PeakListColumn::SN;
        if (write_batch_peak_list(o.out, s, b, ctx.ui) < 0) return 1;
    }

    const double field = s.Aterm * FIELD_PER_ATERM;
    if (o.json) {
        nlohmann::json j;
        j["file"] = o.file;
        j["aterm"] = s.Aterm;
        j["bterm"] = s.Bterm;
        j["trapvoltage"] = s.Trapvoltage;
        j["field"] = field;
        j["rms_ppm"] = rms_fit;
        j["rms_ppm_before"] = before.RmsError;
        j["caltype"] = s.caltype;
        j["walking_regions"] = s.walkingregions;
        j["walking_terms"] = walked ? s.walkingterms : 0;
        j["references"] = masses.size();
        j["peaks"] = s.peaks.size();
        j["removed_unassigned"] = unassigned;
        j["removed_duplicates"] = duplicates;
        j["tolerance"] = tol.limit;
        j["units"] = tol.ppm ? "ppm" : "mz";
        nlohmann::json rows = nlohmann::json::array();
        // The table of the fit: for walking the rows after apply, whose
        // masses are exact at every calibrant.
        for (const CalTableRow& r : (walked ? panel : fitted).rows) rows.push_back(row_json(r, walked));
        j["calibrants"] = rows;
        if (walked) {
            nlohmann::json regions = nlohmann::json::array();
            for (int i = 0; i < s.walkingregions; ++i) {
                const WalkingRegion& w = s.walking[static_cast<std::size_t>(i)];
                regions.push_back({{"startfreq", w.startfreq}, {"endfreq", w.endfreq}, {"A", w.A}, {"B", w.B},
                                   {"startmz", w.startmz}, {"endmz", w.endmz}});
            }
            j["walking"] = regions;
        }
        if (!o.table.empty()) j["table"] = o.table;
        if (!walking_csv.empty()) j["walking_csv"] = walking_csv;
        if (!o.out.empty()) j["peak_list"] = o.out;
        if (!o.save.empty()) j["saved"] = o.save;
        std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
        return 0;
    }

    std::cout << fmt::sprintf("Calibrants: %d of %d reference masses matched within %g %s\n", panel.CalPoints,
                              static_cast<int>(masses.size()), tol.limit, tol.ppm ? "ppm" : "m/z");
    std::cout << fmt::sprintf("A = %.6f\nB = %.6f\nMagnetic Field = %.9f T\nTrap Plates = %g V\n", s.Aterm, s.Bterm,
                              field, s.Trapvoltage);
    std::cout << fmt::sprintf("RMS Error before = %.6f ppm\nRMS Error = %.6f ppm\n", before.RmsError, rms_fit);
    if (walked) std::cout << fmt::sprintf("Walking Calibration: %d regions, %d terms\n", s.walkingregions, s.walkingterms);
    const CalibrationPanel& shown = walked ? panel : fitted;
    std::cout << fmt::sprintf("%7s %18s %14s %14s %11s %12s %9s\n", "Number", "Frequency", "Theoretical", "Measured",
                              "Error(ppm)", "Scaled Abun", "S/N");
    for (const CalTableRow& r : shown.rows)
        std::cout << fmt::sprintf("%7d %18.6f %14.7f %14.7f %11.6f %12.4f %9.2f\n", r.number, r.frequency,
                                  r.theoretical, r.measured, r.error, r.abundance, r.sn);
    if (!o.table.empty()) std::cout << "wrote " << o.table << '\n';
    if (!walking_csv.empty()) std::cout << "wrote " << walking_csv << '\n';
    if (!o.out.empty()) std::cout << "wrote " << o.out << '\n';
    if (!o.save.empty()) std::cout << "wrote " << o.save << '\n';
    return 0;
}

struct RecalOptions {
    std::vector<std::string> files;
    double aterm = 0.0, bterm = 0.0;
    std::string out;
    bool full_precision = false;
};

int run_recal(Context& ctx, const RecalOptions& o) {
    // Both coefficients below 1e-5 means none was given.
    if (o.aterm < 1e-05 && o.bterm < 1e-05) {
        ctx.ui.MessagePopup("Wrong Parameters", "Please specify the paremeters before picking files");
        return 1;
    }
    if (!o.out.empty() && o.files.size() != 1) {
        ctx.ui.MessagePopup("Operator Error", "-o names the output of a single file; several files are written as FILE.new.");
        return 1;
    }
    CalibrationChangeOptions opt;
    opt.full_precision = o.full_precision;
    int failed = 0;
    for (const std::string& f : o.files) {
        const std::string out = o.out.empty() ? f + ".new" : o.out;
        if (Change_Tulva_Calibration_Go(f, out, o.aterm, o.bterm, ctx.ui, opt) < 0) {
            ++failed;
            continue;
        }
        const bool packed = f.size() >= 2 && f[f.size() - 2] == '.' && (f.back() == 'Z' || f.back() == 'z');
        std::cout << "wrote " << (packed ? f.substr(0, f.size() - 2) + ".new.Z" : out) << '\n';
    }
    return failed ? 1 : 0;
}

struct RefOptions {
    std::string file;
    std::vector<double> masses;
    std::string from;
    bool json = false;
    bool overwrite = false;
};

int run_ref_write(Context& ctx, const RefOptions& o) {
    ctx.ui.default_confirm = o.overwrite;
    std::vector<double> masses = o.masses;
    if (!o.from.empty()) {
        // The first number of each line of any list (ion lists, CSV, one mass a line).
        std::vector<double> listed;
        if (read_reference_file(o.from, listed, ctx.ui) < 0) return 1;
        masses.insert(masses.end(), listed.begin(), listed.end());
    }
    if (masses.empty()) {
        ctx.ui.MessagePopup("Calibration error", "No masses to write: give them as arguments or with --from.");
        return 1;
    }
    const int rc = write_reference_file(o.file, masses, ctx.ui);
    if (rc > 0) ctx.ui.MessagePopup("Calibration", fmt::format("{} exists; kept it (--overwrite replaces it).", o.file));
    if (rc != 0) return 1;
    std::cout << fmt::format("wrote {}: {} masses\n", o.file, masses.size());
    return 0;
}

int run_ref_read(Context& ctx, const RefOptions& o) {
    std::vector<double> masses;
    if (read_reference_file(o.file, masses, ctx.ui) < 0) return 1;
    if (o.json) {
        std::cout << nlohmann::json{{"file", o.file}, {"masses", masses}}.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
        return 0;
    }
    for (double m : masses) std::cout << fmt::sprintf("%f\n", m);
    if (masses.size() > MAX_REFERENCE_MASSES)
        ctx.ui.Console(fmt::format("{} masses; the calibration panel takes the first {}.\n", masses.size(),
                                   MAX_REFERENCE_MASSES));
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    {
        auto o = std::make_shared<CalibrateOptions>();
        auto* sub = app.add_subcommand("calibrate",
                                       "Calibrate a data file against a reference file of exact masses or a CH2 series");
        sub->add_option("file", o->file, "Tulva data file; transients are processed and their peaks found first")
            ->required();
        auto* ref = sub->add_option("--ref", o->ref, "Reference file (.ref) of exact m/z values");
        sub->add_option("--series", o->series,
                        "Quick calibration on a CH2 series: the peaks at this m/z + k x 14.01565 are the calibrants")
            ->excludes(ref);
        sub->add_option("--tolerance", o->tolerance, "Matching limit (default AUTOCALMASSERRORLIMIT, 1.0)");
        sub->add_option("--units", o->units, "Units of the limit: ppm or mz (default AUTOCALUNITS)")
            ->check(CLI::IsMember({"ppm", "mz"}));
        sub->add_flag("--walking", o->walking, "Walking calibration: an exact law between each pair of calibrants");
        sub->add_option("--terms", o->terms, "Walking calibration terms, 2 or 3 (default 2)")
            ->check(CLI::IsMember({2, 3}));
        add_peak_search_options(sub, o->search);
        sub->add_option("--table", o->table, "Write the calibration table as CSV");
        sub->add_option("--walking-csv", o->walking_csv,
                        "Write the walking table as CSV (default: the data file's name with _walkcal.csv)")
            ->expected(0, 1)
            ->each([o](const std::string&) { o->walking_csv_given = true; });
        sub->add_option("-o,--output", o->out, "Write the recalibrated peak list (.pks batch form)");
        sub->add_option("--peaks", o->peaks, "Take the peaks from this .pks list instead of finding them");
        sub->add_option("--save", o->save,
                        "Store the calibrated spectrum: OUT.vfd, or OUT.wcd with the walking table (--walking)");
        sub->add_flag("--exact-count", o->exact_count,
                      "With --save: store the spectrum's own length (no zero-fill/truncation counts)");
        sub->add_option("--precision", o->precision, "Decimals of m/z in the peak list (default 6)")
            ->check(CLI::Range(0, 10));
        sub->add_flag("--json", o->json, "Print one JSON object");
        sub->add_flag("--overwrite", o->overwrite, "Replace an existing table file");
        sub->callback([&ctx, o, sub] {
            if (sub->count("--walking-csv") > 0) o->walking_csv_given = true;
            ctx.exit_code = run_calibrate(ctx, *o);
        });
    }
    {
        auto o = std::make_shared<RecalOptions>();
        auto* sub = app.add_subcommand("recal", "Copy data files with new calibration coefficients (FILE.new)");
        sub->add_option("files", o->files, "Tulva data files (.dat, .new, .swf, .Z)")->required();
        sub->add_option("--aterm", o->aterm, "New A (Source Coeff0)")->required();
        sub->add_option("--bterm", o->bterm, "New B (Source Coeff1)")->required();
        sub->add_option("-o,--output", o->out, "Output of a single file (default FILE.new)");
        sub->add_flag("--full-precision", o->full_precision,
                      "Write the coefficients in double precision instead of single precision");
        sub->callback([&ctx, o] { ctx.exit_code = run_recal(ctx, *o); });
    }
    {
        auto* ref = app.add_subcommand("ref", "Reference files of exact masses (.ref)");
        ref->require_subcommand(1);
        auto w = std::make_shared<RefOptions>();
        auto* write = ref->add_subcommand("write", "Write a reference file from masses");
        write->add_option("file", w->file, "Reference file to write")->required();
        write->add_option("masses", w->masses, "m/z values");
        write->add_option("--from", w->from, "Take the first number of each line of this list (ion list, CSV)");
        write->add_flag("--overwrite", w->overwrite, "Replace an existing file");
        write->callback([&ctx, w] { ctx.exit_code = run_ref_write(ctx, *w); });
        auto r = std::make_shared<RefOptions>();
        auto* read = ref->add_subcommand("read", "Print the masses a reference file gives");
        read->add_option("file", r->file, "Reference file")->required();
        read->add_flag("--json", r->json, "Print one JSON object");
        read->callback([&ctx, r] { ctx.exit_code = run_ref_read(ctx, *r); });
    }
});

}  // namespace
}  // namespace vx::cli
