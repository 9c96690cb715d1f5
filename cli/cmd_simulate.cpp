// vantorix simulate IONS.csv -o OUT.dat: writes a Tulva v4 transient of the
// ions of a list, with the experiment script of its chirp excitation.
#include <filesystem>
#include <iostream>

#include <fmt/format.h>

#include "commands.hpp"
#include "platform/safe_file.hpp"
#include "sim/proteins.hpp"
#include "sim/simulator.hpp"

namespace vx::cli {
namespace {

struct SimulateOptions {
    std::string ions;
    std::string proteins, truth;  // a protein list instead of ions, and where its truth goes
    std::string out;
    std::string detect = "direct";
    std::string storage = "int";
    SimParameters p = [] {
        SimParameters d;
        d.noise = DIGITISER_NOISE_V;
        return d;
    }();
};

int run_simulate(Context& ctx, SimulateOptions& o) {
    if (o.detect == "direct") o.p.detectmode = DETECT_DIRECT;
    else if (o.detect == "heterodyne") o.p.detectmode = DETECT_POSITIVE_HETERODYNE;
    else if (o.detect == "quadrature") o.p.detectmode = DETECT_QUADRATURE;
    o.p.int_storage = o.storage == "int";
    if (same_file(o.ions, o.out)) {
        ctx.ui.MessagePopup("Operator Error",
                            fmt::format("The output {} is the ion list itself; choose another name.", o.out));
        return 1;
    }
    std::vector<SimIon> ions;
    std::string truth;
    if (!o.proteins.empty()) {
        std::vector<SimProtein> proteins;
        if (same_file(o.proteins, o.out) || (!o.truth.empty() && same_file(o.proteins, o.truth))) {
            ctx.ui.MessagePopup("Operator Error", "An output is the protein list itself; choose another name.");
            return 1;
        }
        if (read_protein_list(o.proteins, proteins, ctx.ui) < 0) return 1;
        ions = protein_ions(proteins, &truth);
        o.p.source_name = std::filesystem::path(o.proteins).filename().string();
    } else if (o.ions.empty()) {
        ctx.ui.MessagePopup("Operator Error", "Give an ion list, or --proteins LIST.csv.");
        return 1;
    } else {
        if (read_ion_list(o.ions, ions, ctx.ui) < 0) return 1;
        o.p.source_name = std::filesystem::path(o.ions).filename().string();
    }
    if (write_simulated_file(o.out, o.p, ions, ctx.ui) < 0) return 1;
    if (!o.truth.empty() && write_file_atomically(o.truth, truth) < 0) {
        ctx.ui.MessagePopup("File Error", fmt::format("Could not write {}", o.truth));
        return 1;
    }
    std::cout << fmt::format("wrote {}: {} ions, {} samples at {} Hz bandwidth\n", o.out, ions.size(), o.p.points,
                             o.p.dbandwidth);
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<SimulateOptions>();
    auto* sub = app.add_subcommand("simulate", "Write a simulated transient of a list of ions (Tulva v4 .dat)");
    sub->add_option("ions", o->ions, "Ion list: m/z, abundance (V)[, decay time (s)[, phase (rad)[, polarity]]]")
;
    sub->add_option("--proteins", o->proteins,
                    "Protein list instead of ions: name, formula or mass, zmin, zmax, abundance (V)[, decay (s)]");
    sub->add_option("--truth", o->truth, "With --proteins: write the clusters' true masses (CSV)");
    sub->add_option("-o,--output", o->out, "Data file to write")->required();
    sub->add_option("--points", o->p.points, "Samples (a power of two, or 16000000 / 32000000)")->capture_default_str();
    sub->add_option("--bandwidth", o->p.dbandwidth, "dbandwidth in Hz (real samples at twice this rate)")
        ->capture_default_str();
    sub->add_option("--detect", o->detect, "direct, heterodyne or quadrature")
        ->check(CLI::IsMember({"direct", "heterodyne", "quadrature"}))
        ->capture_default_str();
    sub->add_option("--reference", o->p.reffreq, "Reference frequency in Hz (heterodyne, quadrature)");
    sub->add_option("--aterm", o->p.Aterm, "Calibration term A (Source Coeff0)")->capture_default_str();
    sub->add_option("--bterm", o->p.Bterm, "Calibration term B (Source Coeff1)")->capture_default_str();
    sub->add_option("--trap", o->p.Trapvoltage, "Trap voltage")->capture_default_str();
    sub->add_option("--noise", o->p.noise, "Gaussian noise, V rms on every sample (0 for none)")->capture_default_str();
    sub->add_option("--seed", o->p.seed, "Seed of the noise")->capture_default_str();
    sub->add_option("--expcount", o->p.expcount, "Experiments the file holds (a sum of K; give --noise / sqrt(K))")
        ->check(CLI::PositiveNumber);
    sub->add_option("--storage", o->storage, "int (int16 with a voltage scale) or float")
        ->check(CLI::IsMember({"int", "float"}))
        ->capture_default_str();
    sub->add_option("--voltage-scale", o->p.voltage_scale, "Volts per count of int storage (0: chosen from the peak)");
    sub->add_option("--lowfreq", o->p.lowfreq, "Chirp start frequency, Hz")->capture_default_str();
    sub->add_option("--highfreq", o->p.highfreq, "Chirp end frequency, Hz")->capture_default_str();
    sub->add_option("--sweeprate", o->p.sweeprate, "Chirp sweep rate, Hz per microsecond")->capture_default_str();
    sub->add_option("--delay", o->p.delay, "From the end of the chirp to the first sample, s")->capture_default_str();
    sub->add_flag("--sed", o->p.sed,
                  "Two channels (\"Collection Mode: SED\"): the second a quarter turn on, with noise of its own");
    sub->add_option("--date", o->p.collected_on, "Text of \"Data Collected on\" (default: today)");
    sub->callback([&ctx, o] { ctx.exit_code = run_simulate(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
