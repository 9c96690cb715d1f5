// vantorix convert FILE (--point P... | --mz M... | --freq F...) [--json]:
// each option names what the user gives (data points, m/z values or
// frequencies), in any order with the file. Converts them through the calibration of a
// data file (or of the default header), by every array and single-point form
// side by side, so that a law can be checked by hand. Options override single
// terms of the calibration read from the file.
#include <cmath>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "formats/open_file.hpp"
#include "formats/tulva_reader.hpp"
#include "workspace/conversions.hpp"

namespace vx::cli {
namespace {

struct ConvertOptions {
    std::string file;
    bool no_file = false;
    bool json = false;
    // The words after each option as given; a word that is not a number is
    // the data file (a multi-value option reads on until the next option, so
    // "--point 500 FILE" hands it the file name).
    std::vector<std::string> point_words;  // --point P...: data points
    std::vector<std::string> mz_words;     // --mz M...: masses
    std::vector<std::string> freq_words;   // --freq F...: frequencies, Hz
    std::vector<double> points_for_mz;
    std::vector<double> masses_for_pt;
    std::vector<double> freqs_for_mz;

    std::optional<int> caltype, detectmode, filetype, datacount, rootselect;
    std::optional<double> aterm, bterm, cterm, trapvoltage, reffreq, bandwidth;
};

constexpr double kUnset = std::numeric_limits<double>::quiet_NaN();

// One converted value: the columns in order, by the name of the function that made each.
struct Row {
    std::vector<std::pair<const char*, double>> cells;
};

std::vector<Row> convert_points(const Spectrum& s, const std::vector<double>& points, Ui& ui) {
    std::vector<double> freqs(points.size(), kUnset), masses(points.size(), kUnset);
    Pt_tofreq(s, points, freqs);
    Pt_tomass(s, points, masses, &ui);
    std::vector<Row> rows;
    for (std::size_t i = 0; i < points.size(); ++i) {
        rows.push_back({{{"point", points[i]},
                         {"Pt_tofreq", freqs[i]},
                         {"Pt_tomass", masses[i]},
                         {"SPt_tomass", SPt_tomass(s, points[i])},
                         {"One_pt_tomass", One_pt_tomass(s, points[i])}}});
    }
    return rows;
}

std::vector<Row> convert_masses(const Spectrum& s, const std::vector<double>& masses) {
    std::vector<double> points(masses.size(), kUnset), freqs(masses.size(), kUnset);
    Mass_topt(s, masses, points);
    Pt_tofreq(s, points, freqs);
    std::vector<Row> rows;
    for (std::size_t i = 0; i < masses.size(); ++i) {
        rows.push_back({{{"mz", masses[i]},
                         {"Mass_topt", points[i]},
                         {"Pt_tofreq", freqs[i]},
                         {"SMass_toPt", SMass_toPt(s, masses[i])},
                         {"One_mass_topt", One_mass_topt(s, masses[i])}}});
    }
    return rows;
}

std::vector<Row> convert_freqs(const Spectrum& s, const std::vector<double>& freqs, Ui& ui) {
    std::vector<double> points(freqs.size(), kUnset), masses(freqs.size(), kUnset),
        point_masses(freqs.size(), kUnset);
    Freq_topt(s, freqs, points);
    Freq_tomass(s, freqs, masses);
    Pt_tomass(s, points, point_masses, &ui);
    std::vector<Row> rows;
    for (std::size_t i = 0; i < freqs.size(); ++i) {
        rows.push_back({{{"frequency", freqs[i]},
                         {"Freq_topt", points[i]},
                         {"Freq_tomass", masses[i]},
                         {"Pt_tomass", point_masses[i]},
                         {"SPt_tomass", SPt_tomass(s, points[i])},
                         {"One_pt_tomass", One_pt_tomass(s, points[i])}}});
    }
    return rows;
}

nlohmann::ordered_json calibration_json(const Spectrum& s) {
    nlohmann::ordered_json c;
    c["caltype"] = s.caltype;
    c["detectmode"] = s.detectmode;
    c["filetype"] = s.filetype;
    c["Aterm"] = s.Aterm;
    c["Bterm"] = s.Bterm;
    c["Cterm"] = s.Cterm;
    c["Trapvoltage"] = s.Trapvoltage;
    c["reffreq"] = s.reffreq;
    c["dbandwidth"] = s.dbandwidth;
    c["datacount"] = s.datacount;
    c["rootselect"] = s.rootselect;
    c["walkingregions"] = s.walkingregions;
    c["walkingterms"] = s.walkingterms;
    return c;
}

std::string calibration_text(const Spectrum& s) {
    return fmt::format(
        "caltype {}, detectmode {}, filetype {}, rootselect {}\n"
        "Aterm {:.6f}, Bterm {:.6f}, Cterm {:.6g}, Trapvoltage {:.6g}\n"
        "reffreq {:.6f} Hz, dbandwidth {:.6f} Hz, datacount {}, walkingregions {}, walkingterms {}\n",
        s.caltype, s.detectmode, s.filetype, s.rootselect, s.Aterm, s.Bterm, s.Cterm, s.Trapvoltage, s.reffreq,
        s.dbandwidth, s.datacount, s.walkingregions, s.walkingterms);
}

// JSON has no NaN or infinity: such values go out as null.
nlohmann::ordered_json number_json(double v) {
    if (std::isfinite(v)) return v;
    return nullptr;
}

// A whole word as a number.
std::optional<double> number_of(const std::string& word) {
    try {
        std::size_t used = 0;
        const double v = std::stod(word, &used);
        if (used == word.size()) return v;
    } catch (...) {
    }
    return std::nullopt;
}

// Splits the words of the value options into numbers and the file name.
int sort_words(Context& ctx, ConvertOptions& o) {
    const std::pair<std::vector<std::string>*, std::vector<double>*> lists[] = {
        {&o.point_words, &o.points_for_mz}, {&o.mz_words, &o.masses_for_pt}, {&o.freq_words, &o.freqs_for_mz}};
    for (const auto& [words, values] : lists) {
        for (const std::string& w : *words) {
            if (const auto v = number_of(w)) {
                values->push_back(*v);
            } else if (o.file.empty()) {
                o.file = w;
            } else {
                ctx.ui.MessagePopup("Error", fmt::format("\"{}\" is neither a number nor the only data file.", w));
                return -1;
            }
        }
    }
    return 0;
}

int run_convert(Context& ctx, ConvertOptions& o) {
    if (sort_words(ctx, o) < 0) return 2;
    const int kinds = !o.points_for_mz.empty() + !o.masses_for_pt.empty() + !o.freqs_for_mz.empty();
    if (kinds != 1) {
        ctx.ui.MessagePopup("Error", "Give exactly one of --point, --mz or --freq, with at least one value.");
        return 2;
    }
    if (o.no_file == !o.file.empty()) {
        ctx.ui.MessagePopup("Error", "Give a data file or --no-file, not both and not neither.");
        return 2;
    }
    if (o.datacount && *o.datacount <= 0) {
        ctx.ui.MessagePopup("Error", fmt::format("--datacount must be above 0 (got {}).", *o.datacount));
        return 2;
    }
    if (o.bandwidth && !(*o.bandwidth > 0.0)) {
        ctx.ui.MessagePopup("Error", fmt::format("--bandwidth must be above 0 (got {}).", *o.bandwidth));
        return 2;
    }
    Spectrum header;
    Set_Default_Parameters(header);
    std::string source = "default header";
    if (!o.no_file) {
        if (ctx.load_settings() < 0) return 1;
        Workspace& ws = ctx.ws;
        ws.settings_folder.clear();  // converting does not touch the recent-file list
        const int slot = open_any_file(ws, o.file, ctx.ui);
        if (slot < 0) return 1;
        const Spectrum& opened = ws.panels[static_cast<std::size_t>(slot)].spectrum;
        // Only the header takes part: the sample arrays stay in the slot.
        header.caltype = opened.caltype;
        header.detectmode = opened.detectmode;
        header.filetype = opened.filetype;
        header.Aterm = opened.Aterm;
        header.Bterm = opened.Bterm;
        header.Cterm = opened.Cterm;
        header.Trapvoltage = opened.Trapvoltage;
        header.reffreq = opened.reffreq;
        header.dbandwidth = opened.dbandwidth;
        header.datacount = opened.datacount;
        header.rootselect = opened.rootselect;
        header.walkingregions = opened.walkingregions;
        header.walkingterms = opened.walkingterms;
        header.walkingrows = opened.walkingrows;
        header.walking = opened.walking;
        header.domain = opened.domain;
        source = o.file;
    }
    if (o.caltype) header.caltype = *o.caltype;
    if (o.detectmode) header.detectmode = *o.detectmode;
    if (o.filetype) header.filetype = *o.filetype;
    if (o.aterm) header.Aterm = *o.aterm;
    if (o.bterm) header.Bterm = *o.bterm;
    if (o.cterm) header.Cterm = *o.cterm;
    if (o.trapvoltage) header.Trapvoltage = *o.trapvoltage;
    if (o.reffreq) header.reffreq = *o.reffreq;
    if (o.bandwidth) header.dbandwidth = *o.bandwidth;
    if (o.datacount) header.datacount = *o.datacount;
    if (o.rootselect) header.rootselect = *o.rootselect;

    std::vector<Row> rows;
    if (!o.points_for_mz.empty()) rows = convert_points(header, o.points_for_mz, ctx.ui);
    else if (!o.masses_for_pt.empty()) rows = convert_masses(header, o.masses_for_pt);
    else rows = convert_freqs(header, o.freqs_for_mz, ctx.ui);

    if (o.json) {
        nlohmann::ordered_json out;
        out["source"] = source;
        out["calibration"] = calibration_json(header);
        auto list = nlohmann::ordered_json::array();
        for (const Row& r : rows) {
            nlohmann::ordered_json j;
            for (const auto& [name, value] : r.cells) j[name] = number_json(value);
            list.push_back(j);
        }
        out["conversions"] = list;
        std::cout << out.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
        return 0;
    }
    std::cout << "source: " << source << '\n' << calibration_text(header) << '\n';
    for (const auto& [name, value] : rows.front().cells) std::cout << fmt::format("{:>20}", name);
    std::cout << '\n';
    for (const Row& r : rows) {
        for (const auto& [name, value] : r.cells) std::cout << fmt::format("{:>20.6f}", value);
        std::cout << '\n';
    }
    return 0;
}

template <typename T>
void add_override(CLI::App* sub, const char* name, std::optional<T>& target, const char* help) {
    sub->add_option_function<T>(name, [&target](const T& v) { target = v; }, help);
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<ConvertOptions>();
    auto* sub = app.add_subcommand("convert", "Convert data points, masses or frequencies through a calibration");
    sub->add_option("file", o->file, "Data file whose calibration is used (Tulva file, peak list or Bruker directory)");
    sub->add_flag("--no-file", o->no_file, "Use the default header instead of a data file");
    sub->add_option("--point", o->point_words, "Data points to convert (to frequency and m/z)");
    sub->add_option("--mz", o->mz_words, "m/z values to convert (to data points and frequency)");
    sub->add_option("--freq", o->freq_words, "Frequencies in Hz to convert (to data points and m/z)");
    sub->add_flag("--json", o->json, "Print JSON instead of a table");
    add_override(sub, "--caltype", o->caltype, "Calibration type (0, 1, 3, 4, 5; 6 the instrument law of Bruker .d data)");
    add_override(sub, "--detectmode", o->detectmode, "Detection mode (0 direct, 1 +heterodyne, 2 quadrature, 3 -heterodyne)");
    add_override(sub, "--filetype", o->filetype, "Source of the data (2: Bruker forms)");
    add_override(sub, "--aterm", o->aterm, "Calibration term A");
    add_override(sub, "--bterm", o->bterm, "Calibration term B");
    add_override(sub, "--cterm", o->cterm, "Calibration term C");
    add_override(sub, "--trap-voltage", o->trapvoltage, "Trap voltage (its size scales the second term)");
    add_override(sub, "--reffreq", o->reffreq, "Reference frequency of heterodyne detection, Hz");
    add_override(sub, "--bandwidth", o->bandwidth, "Bandwidth, Hz");
    add_override(sub, "--datacount", o->datacount, "Number of data points");
    add_override(sub, "--rootselect", o->rootselect, "0: negative root, nonzero: positive root of the quadratic forms");
    sub->callback([&ctx, o] { ctx.exit_code = run_convert(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
