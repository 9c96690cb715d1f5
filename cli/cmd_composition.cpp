// Elemental composition from the command line:
//   vantorix formula MASS...   every composition of each mass within the tolerance
//   vantorix kendrick LIST     even/odd arrays and their Kendrick series
//   vantorix assign LIST       whole-table assignment, one formula per series
// Defaults suit natural organic matter in negative ESI: de-protonated,
// even-electron ions, C, H, N, O, S within the usual ranges (docs/composition.md).
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iostream>
#include <optional>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "composition/assign.hpp"
#include "composition/formula.hpp"
#include "composition/isotope_rules.hpp"
#include "composition/kendrick.hpp"
#include "formats/peak_csv.hpp"
#include "formats/peak_list.hpp"
#include "formats/tulva_reader.hpp"
#include "peaks/find_peaks.hpp"
#include "platform/safe_file.hpp"
#include "sim/formula_list.hpp"
#include "sim/isotopologues.hpp"
#include "workspace/conversions.hpp"
#include "workspace/processing.hpp"

namespace vx::cli {
namespace {

constexpr const char* kDefaultElements = "C0-100,H0-200,N0-4,O0-20,S0-3";

struct SearchOptions {
    double ppm = 1.0;
    std::string mode = "neg";
    std::string elements = kDefaultElements;
    std::string dbe;  // "LO,HI"
    bool radicals = false;
    bool force = false;  // search on after the error-limit question
    long max_iter = 200000;
    bool json = false;
};

void add_search_options(CLI::App* sub, SearchOptions& o) {
    sub->add_option("--ppm", o.ppm, "Mass tolerance in ppm (default 1)");
    sub->add_option("--mode", o.mode, "Charge mode: pos (protonated, -e), neu, neg (de-protonated, +e; default)");
    sub->add_option("--elements", o.elements,
                    "Element ranges, e.g. C0-100,H0-200,N0-4,O0-20,S0-3 (default); isotopes as 13C0-1, others as Na0-1");
    sub->add_option("--dbe", o.dbe, "DBE range LO,HI (default -0.5,100)");
    sub->add_flag("--radicals", o.radicals, "Accept odd-electron ions (half-integer DBE); off by default");
    sub->add_flag("--force", o.force, "At a tolerance of 1 Da or more, search anyway instead of quitting");
    sub->add_option("--max-iter", o.max_iter, "Stop a search after this many candidates (default 200000)");
    sub->add_flag("--json", o.json, "Print JSON");
}

// Settings from the options; 0, or -1 after a message.
int settings_from(Context& ctx, const SearchOptions& o, FormulaSettings& s) {
    s = molecaluno_defaults();
    const auto mode = parse_charge_mode(o.mode);
    if (!mode) {
        ctx.ui.MessagePopup("Operator Error", fmt::format("The charge mode is pos, neu or neg, not \"{}\".", o.mode));
        return -1;
    }
    s.mode = *mode;
    if (parse_element_ranges(o.elements, s, ctx.ui) < 0) return -1;
    s.RADICALS = o.radicals;
    s.MASS_ACCURACY = o.ppm;
    s.MAX_ITER = o.max_iter;
    if (!o.dbe.empty()) {
        const auto comma = o.dbe.find(',');
        try {
            if (comma == std::string::npos) throw std::invalid_argument("dbe");
            std::size_t u1 = 0, u2 = 0;
            const std::string a = o.dbe.substr(0, comma), b = o.dbe.substr(comma + 1);
            s.dbe_min = std::stod(a, &u1);
            s.DBE = std::stod(b, &u2);
            if (u1 != a.size() || u2 != b.size() || s.dbe_min > s.DBE) throw std::invalid_argument("dbe");
        } catch (const std::exception&) {
            ctx.ui.MessagePopup("Operator Error", fmt::format("The DBE range is LO,HI with LO at most HI, not \"{}\".", o.dbe));
            return -1;
        }
    }
    if (!(o.ppm >= 0.0)) {
        ctx.ui.MessagePopup("Operator Error", fmt::format("The tolerance {} ppm is not usable.", o.ppm));
        return -1;
    }
    // The error-limit question: quitting is the answer unless --force.
    ctx.ui.default_confirm = !o.force;
    return 0;
}

// ---------------------------------------------------------------- formula

struct FormulaOptions {
    std::vector<double> masses;
    SearchOptions search;
};

int run_formula(Context& ctx, const FormulaOptions& o) {
    if (o.search.json) ctx.ui.quiet_console = true;
    FormulaSettings s;
    if (settings_from(ctx, o.search, s) < 0) return 1;
    const auto names = user_names_of(s);
    Spectrum none;
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    int rc = 0;
    for (double mass : o.masses) {
        SingleSearchResult r;
        const int n = find_masses_single(mass, o.search.ppm, 10000, 10000, -1, 0, -1, 0, none, s, ctx.ui, &r);
        if (n < 0) return 1;
        if (r.stopped_at_max_iter) {
            ctx.ui.MessagePopup("Formula Calculator",
                                fmt::format("The search at m/z {:.6f} stopped after {} candidates; the list is incomplete.", mass,
                                            s.MAX_ITER));
            rc = 3;
        }
        if (o.search.json) {
            auto hits = nlohmann::ordered_json::array();
            for (const FormulaHit& h : r.hits)
                hits.push_back({{"formula", hill_formula(h.counts, names)},
                                {"exact_mass", h.mass},
                                {"error_ppm", h.ppm},
                                {"dbe", h.dbe},
                                {"neutral_formula", hill_formula(neutral_counts(h.counts, s.mode), names)}});
            all.push_back({{"mz", mass}, {"ppm", o.search.ppm}, {"mode", charge_mode_name(s.mode)}, {"hits", hits}});
            continue;
        }
        std::cout << fmt::format("m/z {:.6f} ({}, {} ppm): {} hit{}\n", mass, charge_mode_name(s.mode), o.search.ppm, n,
                                 n == 1 ? "" : "s");
        if (n == 0) {
            std::cout << "  No Hit\n";
            continue;
        }
        std::cout << fmt::format("  {:<24} {:<24} {:>14} {:>10} {:>6}\n", "ion formula", "neutral formula", "exact mass",
                                 "error ppm", "DBE");
        for (const FormulaHit& h : r.hits)
            std::cout << fmt::format("  {:<24} {:<24} {:14.6f} {:10.4f} {:6.1f}\n", hill_formula(h.counts, names),
                                     hill_formula(neutral_counts(h.counts, s.mode), names), h.mass, h.ppm, h.dbe);
    }
    if (o.search.json) std::cout << all.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
    return rc;
}

// ---------------------------------------------------------------- peak input

bool has_extension(const std::string& path, const char* ext) {
    std::string e = std::filesystem::path(path).extension().string();
    std::transform(e.begin(), e.end(), e.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return e == ext;
}

}  // namespace

// A .pks peak list, a CSV table of another program, or a data file whose
// peaks are found with the analysis panel's settings. Shared with the other
// peak-list commands (cmd_isotopes.cpp).
int load_peaks(Context& ctx, const std::string& path, Spectrum& s) {
    if (has_extension(path, ".pks")) {
        if (Get_Tulva_Peak_List(path, s, ctx.ui) < 0) return -1;
        for (Peak& p : s.peaks) p.mass = p.index;  // the reader keeps m/z in the stick position
    } else if (has_extension(path, ".csv") || has_extension(path, ".tsv") || has_extension(path, ".txt")) {
        if (read_peak_csv(path, s, ctx.ui) < 0) return -1;
    } else {
        if (ctx.load_settings() < 0) return -1;
        Workspace& ws = ctx.ws;
        ws.settings_folder.clear();
        const int slot = open_data_file(ws, path, FILETYPE_TULVA, read_tulva_into_slot, ctx.ui);
        if (slot < 0) return -1;
        AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
        if (p.spectrum.domain == DOMAIN_TIME) {
            ProcessCommandResult r;
            if (process_command(ws, ctx.ui, &r) < 0 || r.handed_to_phasing) return -1;
        }
        if (p.spectrum.domain == DOMAIN_FREQUENCY || p.spectrum.domain == DOMAIN_MASS) p.xmode = XMODE_MZ;
        ws.settings.low_mass = 0.0;
        ws.settings.high_mass = 0.0;
        FindPeakOptions(ws, slot);
        if (ws.settings.high_mass <= 0.0) ws.settings.high_mass = High_Mass(p.spectrum);
        if (ws.settings.low_mass <= 0.0) ws.settings.low_mass = Low_Mass(p.spectrum);
        ws.active_panel = slot;
        PeakTable table;
        if (AnalyzeFindPeaks(ws, false, table, ctx.ui) < 0) return -1;
        s = p.spectrum;
    }
    if (s.peaks.empty()) {
        ctx.ui.MessagePopup("File Error", fmt::format("{} holds no peaks.", path));
        return -1;
    }
    return 0;
}

namespace {

int write_text(Context& ctx, const std::string& path, const std::string& text, const std::string& source) {
    if (same_file(path, source)) {
        ctx.ui.MessagePopup("File Error", fmt::format("{} is the input; the result is not written over it.", path));
        return -1;
    }
    std::string error;
    if (write_file_atomically(path, text, &error) < 0) {
        ctx.ui.MessagePopup("File Error", fmt::format("{} cannot be written: {}", path, error));
        return -1;
    }
    return 0;
}

// ---------------------------------------------------------------- kendrick

// The SaveKendrick text export of kendrick and assign (--save).
struct SaveOptions {
    std::string path;
    std::string kind = "rel";  // rel, cal, abs
    int decimals = 7;
};

void add_save_options(CLI::App* sub, SaveOptions& o) {
    sub->add_option("--save", o.path, "Write the Kendrick table text export here (the desktop's \"Print Peaks To File\")");
    sub->add_option("--save-kind", o.kind,
                    "Form of --save: rel (relative abundance, default), cal (calibrants, frequency, S/N, theoretical "
                    "mass, error), abs (absolute abundance)");
    sub->add_option("--decimals", o.decimals, "m/z decimals of --save (default 7)");
}

// Writes the export when asked; 0, or -1 after a message.
int save_kendrick(Context& ctx, const SaveOptions& o, const Spectrum& s, const KendrickTables& t,
                  std::optional<bool> negative, const std::string& source) {
    if (o.path.empty()) return 0;
    KendrickSaveOptions so;
    if (o.kind == "rel") so.kind = KendrickSaveKind::RelativeAbundance;
    else if (o.kind == "cal") so.kind = KendrickSaveKind::Calibrants;
    else if (o.kind == "abs") so.kind = KendrickSaveKind::AbsoluteAbundance;
    else {
        ctx.ui.MessagePopup("Operator Error", fmt::format("--save-kind is rel, cal or abs, not \"{}\".", o.kind));
        return -1;
    }
    if (o.decimals < 0 || o.decimals > 15) {
        ctx.ui.MessagePopup("Operator Error", fmt::format("--decimals is 0 to 15, not {}.", o.decimals));
        return -1;
    }
    so.decimals = o.decimals;
    so.negative = negative;
    if (same_file(o.path, source)) {
        ctx.ui.MessagePopup("File Error", fmt::format("{} is the input; the result is not written over it.", o.path));
        return -1;
    }
    return SaveKendrick(o.path, s, t, so, ctx.ui);
}

struct KendrickCliOptions {
    std::string file;
    std::string base = "CH2";
    double ppm = 1.0;
    std::string out;
    std::string mode;  // only for the ion-mode line of --save
    SaveOptions save;
    bool json = false;
};

int run_kendrick(Context& ctx, const KendrickCliOptions& o) {
    if (o.json) ctx.ui.quiet_console = true;
    Spectrum s;
    if (load_peaks(ctx, o.file, s) < 0) return 1;
    KendrickOptions ko;
    ko.base = o.base;
    ko.ppm = o.ppm;
    KendrickTables t;
    if (KendrickCalculate(s, ko, t, ctx.ui) < 0) return 1;
    const std::string csv = kendrick_csv_text(s, t);
    if (!o.out.empty() && write_text(ctx, o.out, csv, o.file) < 0) return 1;
    std::optional<bool> negative;
    if (!o.mode.empty()) {
        const auto m = parse_charge_mode(o.mode);
        if (!m) {
            ctx.ui.MessagePopup("Operator Error", fmt::format("The charge mode is pos, neu or neg, not \"{}\".", o.mode));
            return 1;
        }
        negative = *m == ChargeMode::NEG;
    }
    if (save_kendrick(ctx, o.save, s, t, negative, o.file) < 0) return 1;
    if (o.json) {
        nlohmann::ordered_json j;
        j["file"] = o.file;
        j["base"] = t.base;
        j["factor"] = t.factor;
        j["odd_peaks"] = s.unassigned.size();
        j["even_peaks"] = s.assigned.size();
        j["odd_series"] = t.odd_series;
        j["even_series"] = t.even_series;
        auto series = nlohmann::ordered_json::array();
        for (std::size_t i = 0; i < t.ranks.size(); ++i) {
            const KendrickRank& r = t.ranks[i];
            const auto& a = r.odd ? s.unassigned : s.assigned;
            series.push_back({{"rank", i + 1},
                              {"array", r.odd ? "odd" : "even"},
                              {"series", r.series},
                              {"members", r.last - r.first + 1},
                              {"first_mz", a[static_cast<std::size_t>(r.first)].mass},
                              {"last_mz", a[static_cast<std::size_t>(r.last)].mass},
                              {"kmd_milli", a[static_cast<std::size_t>(r.most_abundant)].kmd},
                              {"highest_abundance", r.highest}});
        }
        j["series"] = series;
        if (!o.save.path.empty()) j["saved"] = o.save.path;
        std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
    } else if (o.out.empty() && o.save.path.empty()) {
        std::cout << csv;
    } else {
        std::cout << fmt::format("{}: {} odd and {} even peaks in {} and {} series; written to {}\n", o.file,
                                 s.unassigned.size(), s.assigned.size(), t.odd_series, t.even_series,
                                 o.out.empty() ? o.save.path : o.save.path.empty() ? o.out : o.out + " and " + o.save.path);
    }
    return 0;
}

// ---------------------------------------------------------------- assign

struct AssignCliOptions {
    std::string file;
    std::string out;
    SearchOptions search;
    double series_ppm = 1.0;
    double assign_sn = 3.0;
    int repair = 2;
    bool test_peak_score = false;
    bool topdown = false;        // isotope rules inside the assign pass
    std::string isotope_table;   // CSV of the isotope flags
    SaveOptions save;
};

int run_assign(Context& ctx, const AssignCliOptions& o) {
    if (o.search.json) ctx.ui.quiet_console = true;
    FormulaSettings st;
    SearchOptions search = o.search;
    // The isotope rules write 13C and 34S counts into user slots 1 and 2.
    if (o.topdown && search.elements.find("13C") == std::string::npos) search.elements = "13C0-1,34S0-1," + search.elements;
    if (settings_from(ctx, search, st) < 0) return 1;
    st.TOPDOWN = o.topdown;
    st.ASSIGN_SN = o.assign_sn;
    st.series_fit = !o.test_peak_score;
    // The per-member notes of errors above the tolerance are for the desktop
    // console; the table carries every error.
    st.IGNOREOVERS = true;
    Spectrum s;
    if (load_peaks(ctx, o.file, s) < 0) return 1;
    KendrickOptions ko;
    ko.ppm = o.series_ppm;
    AssignSummary sum;
    KendrickTables tables;
    if (assign_peak_list(s, ko, st, o.repair, ctx.ui, &sum, &tables) < 0) return 1;
    const std::string csv = assignment_csv_text(s, st);
    if (!o.out.empty() && write_text(ctx, o.out, csv, o.file) < 0) return 1;
    if (!o.isotope_table.empty() && write_text(ctx, o.isotope_table, isotope_flags_csv(s, &st), o.file) < 0) return 1;
    if (save_kendrick(ctx, o.save, s, tables, st.mode == ChargeMode::NEG, o.file) < 0) return 1;
    if (o.search.json) {
        nlohmann::ordered_json j;
        j["file"] = o.file;
        j["mode"] = charge_mode_name(st.mode);
        j["ppm"] = o.search.ppm;
        j["elements"] = o.search.elements;
        j["peaks"] = sum.peaks;
        j["assigned"] = sum.assigned;
        j["series"] = sum.series;
        j["repaired_series"] = sum.repaired;
        j["percent_assigned"] = sum.percent_assigned;
        j["percent_in_series_assigned"] = sum.percent_in_series;
        j["rms_error_ppm"] = sum.errors.rms;
        j["largest_error_ppm"] = sum.errors.largest;
        if (!o.out.empty()) j["output"] = o.out;
        if (!o.save.path.empty()) j["saved"] = o.save.path;
        std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
    } else if (o.out.empty() && o.save.path.empty()) {
        std::cout << csv;
    } else {
        std::cout << fmt::format(
            "{}: {} of {} peaks assigned ({:.1f} % of abundance, {:.1f} % in series), {} series, RMS error {:.4f} ppm, "
            "largest {:.4f} ppm; written to {}\n",
            o.file, sum.assigned, sum.peaks, sum.percent_assigned, sum.percent_in_series, sum.series, sum.errors.rms,
            sum.errors.largest, o.out.empty() ? o.save.path : o.save.path.empty() ? o.out : o.out + " and " + o.save.path);
    }
    return 0;
}

// ---------------------------------------------------------------- simulate-formulas

struct SimFormulaOptions {
    FormulaListParameters p;
    std::string out;
    std::string classes = "cho,chon,chos";
    std::string mode = "neg";
    double isotopologues = 0.0;  // smallest isotopologue abundance added, 0 none
};

int run_simulate_formulas(Context& ctx, SimFormulaOptions o) {
    o.p.cho = o.p.chon = o.p.chos = false;
    bool bad_class = false;
    std::size_t at = 0;
    while (at <= o.classes.size()) {
        std::size_t end = o.classes.find(',', at);
        if (end == std::string::npos) end = o.classes.size();
        const std::string c = o.classes.substr(at, end - at);
        if (c == "cho") o.p.cho = true;
        else if (c == "chon") o.p.chon = true;
        else if (c == "chos") o.p.chos = true;
        else if (!c.empty()) bad_class = true;
        at = end + 1;
    }
    const auto mode = parse_charge_mode(o.mode);
    if (!mode || *mode == ChargeMode::NEU || bad_class || (!o.p.cho && !o.p.chon && !o.p.chos) || o.p.count <= 0 ||
        o.p.count > 1000000 || !(o.p.max_error_ppm >= 0.0)) {
        ctx.ui.MessagePopup("Operator Error",
                            "simulate-formulas needs --mode pos or neg, --classes from cho,chon,chos, a count of 1 to "
                            "1000000 and an error of 0 ppm or more.");
        return 1;
    }
    o.p.charge_sign = *mode == ChargeMode::POS ? 1 : -1;
    auto peaks = simulate_formula_list(o.p);
    if (o.isotopologues > 0.0) add_isotopologue_peaks(peaks, o.isotopologues);
    const std::string csv = formula_list_csv(peaks);
    if (o.out.empty()) {
        std::cout << csv;
        return 0;
    }
    std::string error;
    if (write_file_atomically(o.out, csv, &error) < 0) {
        ctx.ui.MessagePopup("File Error", fmt::format("{} cannot be written: {}", o.out, error));
        return 1;
    }
    std::cout << fmt::format("{} peaks of known formulas written to {}\n", peaks.size(), o.out);
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    {
        auto o = std::make_shared<SimFormulaOptions>();
        auto* sub = app.add_subcommand("simulate-formulas",
                                       "Write a peak list (CSV) of known CHO/CHON/CHOS formulas in CH2 series");
        sub->add_option("-o,--output", o->out, "CSV file (mz,intensity,formula); standard output without");
        sub->add_option("--count", o->p.count, "Number of peaks (default 5000)");
        sub->add_option("--seed", o->p.seed, "Random seed (default 1)");
        sub->add_option("--error-ppm", o->p.max_error_ppm, "Largest mass perturbation in ppm (default 0.3)");
        sub->add_option("--classes", o->classes, "Any of cho,chon,chos (default all three)");
        sub->add_option("--mode", o->mode, "neg: [M-H]- (default), pos: [M+H]+");
        sub->add_option("--isotopologues", o->isotopologues,
                        "Add 13C, 2x13C, 34S and 34S+13C peaks at their true ratios down to this abundance");
        sub->callback([&ctx, o] { ctx.exit_code = run_simulate_formulas(ctx, *o); });
    }
    {
        auto o = std::make_shared<FormulaOptions>();
        auto* sub = app.add_subcommand("formula", "Every elemental composition of each mass within the tolerance");
        sub->add_option("mass", o->masses, "Measured ion m/z")->required();
        add_search_options(sub, o->search);
        sub->callback([&ctx, o] { ctx.exit_code = run_formula(ctx, *o); });
    }
    {
        auto o = std::make_shared<KendrickCliOptions>();
        auto* sub = app.add_subcommand("kendrick", "Even and odd arrays of a peak list and their Kendrick series");
        sub->add_option("file", o->file, "Peak list (.pks, .csv) or data file")->required();
        sub->add_option("--base", o->base, "Repeat unit (default CH2)");
        sub->add_option("--ppm", o->ppm, "Window of the series walk in ppm (default 1)");
        sub->add_option("-o,--output", o->out, "Write the series table (CSV) here");
        add_save_options(sub, o->save);
        sub->add_option("--mode", o->mode, "Ion mode line of --save: pos or neg (default: the sign of the trap voltage)");
        sub->add_flag("--json", o->json, "Print the series as JSON");
        sub->callback([&ctx, o] { ctx.exit_code = run_kendrick(ctx, *o); });
    }
    {
        auto o = std::make_shared<AssignCliOptions>();
        auto* sub = app.add_subcommand("assign", "Assign formulas to a whole peak list by Kendrick series");
        sub->add_option("file", o->file, "Peak list (.pks, .csv from another program) or data file")->required();
        sub->add_option("-o,--output", o->out, "Write the assignment table (CSV) here");
        add_search_options(sub, o->search);
        sub->add_option("--series-ppm", o->series_ppm, "Window of the Kendrick series walk in ppm (default 1)");
        sub->add_option("--assign-sn", o->assign_sn,
                        "S/N a series member needs to be the test peak (default 3; else the most abundant member)");
        sub->add_option("--repair", o->repair,
                        "Search again series of at least this many members left without a hit (default 2; 0 off)");
        sub->add_flag("--test-peak-score", o->test_peak_score,
                      "Keep the lowest-score candidate of the test peak alone, as the desktop's multi-peak calculator "
                      "does (default: the candidate that fits the most series members)");
        sub->add_flag("--topdown", o->topdown,
                      "Isotope rules per series: 13C, 2x13C, 34S and 34S+13C peaks get their parent's formula");
        sub->add_option("--isotope-table", o->isotope_table, "Write the isotope flags of every peak (CSV) here");
        add_save_options(sub, o->save);
        sub->callback([&ctx, o] { ctx.exit_code = run_assign(ctx, *o); });
    }
});

}  // namespace
}  // namespace vx::cli
