// vantorix thrash FILE: the THRASH scan of a spectrum (or one cluster with
// --cluster), with sequence assignment, the .tpk/.pkl files, DeconTools-style
// _isos.csv and JSON; --load X.pk reads a saved table back.
#include <atomic>
#include <csignal>
#include <iostream>
#include <thread>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "peak_search.hpp"
#include "platform/safe_file.hpp"
#include "thrash/mass_determination.hpp"
#include "thrash/sequence.hpp"
#include "thrash/thrash.hpp"
#include "thrash_common.hpp"

namespace vx::cli {
namespace {

struct ThrashOptions {
    std::string file;
    double low_mass = 20.0, high_mass = 1000000.0;
    double min_rl = 0.9;
    double min_s2n = 3.0;
    int max_charge = 2000;
    std::string cluster;
    int charge = 0;
    std::string sequence;
    int match_type = 1;
    double tolerance = 10.0;
    bool relative = false;
    bool phospho = false;
    double nterm = 0.0, cterm = 18.0102;
    bool tpk = false;
    std::string pkl, csv, load, table;
    int sample_type = 0;
    bool json = false;
    bool thread = false;
    bool clean_residues = false;
};

std::atomic<bool> g_stop{false};
extern "C" void on_interrupt(int) { g_stop = true; }

nlohmann::ordered_json rows_json(const std::vector<ThrashPeak>& rows) {
    auto arr = nlohmann::ordered_json::array();
    for (const ThrashPeak& r : rows) {
        nlohmann::ordered_json j;
        j["scan_num"] = 1;
        j["charge"] = r.charge;
        j["abundance"] = r.abundance;
        j["mz"] = r.mostabundant_mz;
        j["fit"] = 1.0 - r.rl;
        j["average_mw"] = r.average_mw;
        j["monoisotopic_mw"] = r.monoisotopic_mass;
        j["mostabundant_mw"] = r.mostabundant_mass;
        j["fwhm"] = r.fwhm;
        j["signal_noise"] = r.signal_noise;
        j["mono_abundance"] = r.mono_abundance;
        j["mono_plus2_abundance"] = r.mono_plus2_abundance;
        j["flag"] = 0;
        j["rl"] = r.rl;
        j["monoisotopic_mz"] = r.monoisotopic_mz;
        j["monoisotopic_mw_refined"] = r.monoisotopic_mw_refined;
        j["assignment"] = r.assignment_text;
        j["theoretical_mass"] = r.theoretical_mass;
        j["mass_error_ppm"] = r.mass_error_ppm;
        auto model = nlohmann::ordered_json::array();
        for (int k = 0; k < r.distrib_size; ++k) model.push_back({r.pairs[k].first, r.pairs[k].second});
        j["model"] = model;
        arr.push_back(j);
    }
    return arr;
}

// The THRASH Table: number, charge, masses, m/z, assignment, error, theory, RL;
// continuation rows leave columns 2 to 6 empty and keep the number.
void print_table(const std::vector<ThrashPeak>& rows) {
    std::cout << "#\tcharge\tmonoisotopic mass\tmost abundant mass\tmonoisotopic m/z\tmost abundant m/z\t"
                 "assignment\tmass error\ttheoretical mass\tRL\n";
    int number = 0;
    for (const ThrashPeak& r : rows) {
        if (!r.continuation) ++number;
        const std::string theory = r.theoretical_mass != 0.0 ? fmt::format("{:.4f}", r.theoretical_mass) : "N/A";
        if (r.continuation)
            std::cout << fmt::format("{}\t\t\t\t\t\t{}\t{}\t{}\t{}\n", number, r.assignment_text, r.mass_error_text,
                                     theory, r.rl_text);
        else
            std::cout << fmt::format("{}\t{}\t{:.4f}\t{:.4f}\t{:.4f}\t{:.4f}\t{}\t{}\t{}\t{}\n", number, r.charge,
                                     r.monoisotopic_mass, r.mostabundant_mass, r.monoisotopic_mz, r.mostabundant_mz,
                                     r.assignment_text, r.mass_error_text, theory, r.rl_text);
    }
}

int write_out(Context& ctx, const std::string& path, const std::string& text, const std::string& input) {
    if (!input.empty() && same_file(path, input)) {
        ctx.ui.MessagePopup("Operator Error", fmt::format("The output {} is the data file itself; choose another name.", path));
        return -1;
    }
    std::string err;
    if (write_file_atomically(path, text, &err) < 0) {
        ctx.ui.MessagePopup("File Error", fmt::format("Could not write {}: {}", path, err));
        return -1;
    }
    return 0;
}

int run_thrash(Context& ctx, const ThrashOptions& o) {
    if (!o.load.empty()) {
        std::vector<ThrashPeak> rows;
        if (load_thrash_peaklist(o.load, rows, ctx.ui) < 0) return 1;
        if (o.json) {
            nlohmann::ordered_json j;
            j["clusters"] = rows.size();
            j["rows"] = rows_json(rows);
            std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << "\n";
        } else {
            std::cout << fmt::format("Isotope clusters found = {}\n", rows.size());
            print_table(rows);
        }
        return 0;
    }
    if (o.file.empty()) {
        ctx.ui.MessagePopup("Operator Error", "Give a data file, or --load a saved THRASH peak list.");
        return 1;
    }
    ThrashParams p;
    p.low_mass = o.low_mass;
    p.high_mass = o.high_mass;
    p.min_rl = o.min_rl;
    p.clean_residues = o.clean_residues;
    p.min_s2n = o.min_s2n;
    p.max_charge = o.max_charge;
    p.model.sample_type = o.sample_type;
    if (!(p.high_mass > p.low_mass) || p.low_mass < 0.0) {
        ctx.ui.MessagePopup("Operator Error", "--low-mass must lie below --high-mass.");
        return 1;
    }
    SequenceTables seq;
    if (!o.sequence.empty()) {
        seq.match_type = o.match_type;
        seq.tolerance = o.tolerance;
        seq.relative = o.relative;
        seq.phosphorylation = o.phospho;
        seq.n_term = o.nterm;
        seq.c_term = o.cterm;
        if (load_sequence_file(o.sequence, seq, ctx.ui) < 0) return 1;
        p.sequence = &seq;
    }
    AveragineTable table;
    if (ReadAveragineTable(table, ctx.ui, nullptr, o.table) < 0) return 1;
    const int slot = open_spectrum_file(ctx, o.file);
    if (slot < 0) return 1;
    Spectrum& s = ctx.ws.panels[static_cast<std::size_t>(slot)].spectrum;
    ThrashResult r;
    int rc = 0;
    MassDetermination mass;
    if (!o.cluster.empty()) {
        std::pair<double, double> range;
        if (!parse_pair(o.cluster, range) || !(range.second > range.first)) {
            ctx.ui.MessagePopup("Operator Error", "--cluster is LOW:HIGH in m/z.");
            return 1;
        }
        // "Mass Determination" (with --charge the new-match panel): the
        // cluster the user chose is reported whatever its RL.
        rc = o.charge > 0 ? newmatch(s, range.first, range.second, o.charge, p, table, mass, ctx.ui)
                          : Mass(s, range.first, range.second, p, table, mass, ctx.ui);
        r.peaks = mass.rows;
        r.clusters = mass.found ? 1 : 0;
    } else {
        g_stop = false;
        auto old = std::signal(SIGINT, on_interrupt);
        ThrashControl control;
        control.stop = &g_stop;
        if (o.thread) {
            // The scan on a worker: same code, same results; the stop flag is
            // the only thing the two threads share.
            std::thread worker([&] { rc = thrash_with_table(s, p, table, r, ctx.ui, control); });
            worker.join();
        } else {
            rc = thrash_with_table(s, p, table, r, ctx.ui, control);
        }
        std::signal(SIGINT, old);
    }
    if (rc < 0) return 1;
    const std::string base = s.filename.empty() ? o.file : s.filename;
    if (o.tpk && write_out(ctx, o.file + ".tpk", tpk_text(s, r.peaks), o.file) < 0) return 1;
    if (!o.pkl.empty() && write_out(ctx, o.pkl, pkl_text(s, r.peaks), o.file) < 0) return 1;
    if (!o.csv.empty() && write_out(ctx, o.csv, isos_csv_text(r.peaks), o.file) < 0) return 1;
    if (o.json) {
        nlohmann::ordered_json j;
        j["file"] = o.file;
        j["clusters"] = r.clusters;
        j["aborted"] = r.aborted;
        j["limit_reached"] = r.limit_reached;
        j["noise"] = r.final_noise;
        j["sigma"] = r.final_sigma;
        j["all_charge_passes"] = r.all_charge_passes;
        j["rows"] = rows_json(r.peaks);
        if (!o.cluster.empty()) {
            // The panel's own most abundant mass (mono + index x 1.00254) and lines.
            j["mass_determination"] = {{"most_abundant_index", mass.most_abundant_index},
                                       {"mostabundant_mass", mass.mostabundant_mass},
                                       {"lines", mass.lines}};
        }
        std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << "\n";
    } else {
        std::cout << fmt::format("Isotope clusters found = {}\n", r.clusters);
        print_table(r.peaks);
        for (const std::string& line : mass.lines) std::cout << line << "\n";
        if (r.aborted) std::cout << "stopped: the clusters found so far are kept\n";
    }
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<ThrashOptions>();
    auto* sub = app.add_subcommand("thrash", "THRASH deconvolution: monoisotopic masses of isotope clusters");
    sub->add_option("file", o->file, "Data file (a transient is processed first)");
    sub->add_option("--low-mass", o->low_mass, "Lowest m/z of the scan")->capture_default_str();
    sub->add_option("--high-mass", o->high_mass, "Highest m/z of the scan")->capture_default_str();
    sub->add_option("--min-rl", o->min_rl, "Reliability a fit must exceed to be reported (0 to 1; 3 reports nothing)")
        ->capture_default_str();
    sub->add_option("--min-sn", o->min_s2n, "S/N (over 2 sigma) a window's top must reach")->capture_default_str();
    sub->add_option("--max-charge", o->max_charge, "Highest charge of the all-charges pass")->capture_default_str();
    sub->add_option("--cluster", o->cluster, "Only the cluster between LOW:HIGH m/z");
    sub->add_option("--charge", o->charge, "With --cluster: this charge instead of the charge search");
    sub->add_option("--sequence", o->sequence, "Protein sequence file (name, residue count, letters)");
    sub->add_option("--match-type", o->match_type, "1 or 9 fragments a/b/c/y/z; 3 to 8 digests")
        ->check(CLI::IsMember({1, 3, 4, 5, 6, 7, 8, 9}))
        ->capture_default_str();
    sub->add_option("--tolerance", o->tolerance, "Matching tolerance, Da (with --relative a fraction of the mass)")
        ->capture_default_str();
    sub->add_flag("--relative", o->relative, "The tolerance is relative (1e-5 = 10 ppm)");
    sub->add_flag("--phospho", o->phospho, "Also match with phosphates on S, T, Y");
    sub->add_option("--nterm", o->nterm, "N-terminal group: 0, 27.99492 or 42.01057")->capture_default_str();
    sub->add_option("--cterm", o->cterm, "C-terminal group: 18.0102 or 16.01872")->capture_default_str();
    sub->add_flag("--tpk", o->tpk, "Write FILE.tpk");
    sub->add_option("--pkl", o->pkl, "Write the peak list (.pkl)");
    sub->add_option("--csv", o->csv, "Write the clusters as _isos.csv");
    sub->add_option("--load", o->load, "Read a saved .pk/.tpk list and print it");
    sub->add_option("--table", o->table, "averagine_lookup2.txt to read");
    sub->add_option("--sample-type", o->sample_type, "0 averagine table, 1 or 2 binomial")->check(CLI::Range(0, 2));
    sub->add_flag("--thread", o->thread, "Run the scan on a worker thread");
    sub->add_flag("--clean-residues", o->clean_residues,
                  "Take away whole each peak a reported cluster explains to at least half (no residue reported again)");
    sub->add_flag("--json", o->json, "Print JSON");
    sub->callback([&ctx, o] { ctx.exit_code = run_thrash(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
