// vantorix charge FILE --range LO:HI [--max-charge N] [--json]: the charge of
// an isotope cluster by combo_cd, with its Fourier, autocorrelation and
// product scores on the 1/6 charge axis.
#include <iostream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "peak_search.hpp"
#include "thrash/charge.hpp"
#include "thrash_common.hpp"

namespace vx::cli {
namespace {

struct ChargeOptions {
    std::string file;
    std::string range;
    int max_charge = 100;
    bool json = false;
};

int run_charge(Context& ctx, const ChargeOptions& o) {
    std::pair<double, double> r;
    if (!parse_pair(o.range, r) || !(r.second > r.first)) {
        ctx.ui.MessagePopup("Operator Error", fmt::format("--range is LOW:HIGH in m/z with LOW below HIGH, not \"{}\".", o.range));
        return 1;
    }
    if (o.max_charge < 1 || o.max_charge > 2000) {
        ctx.ui.MessagePopup("Operator Error", "--max-charge lies in 1 to 2000.");
        return 1;
    }
    const int slot = open_spectrum_file(ctx, o.file);
    if (slot < 0) return 1;
    const Spectrum& s = ctx.ws.panels[static_cast<std::size_t>(slot)].spectrum;
    ChargeScores sc;
    const int z = combo_cd(r.first, r.second, sc, s, o.max_charge, false);
    if (o.json) {
        nlohmann::ordered_json j;
        j["file"] = o.file;
        j["low_mz"] = r.first;
        j["high_mz"] = r.second;
        j["charge"] = z;
        j["charge_axis"] = sc.charge;
        j["fourier"] = sc.fourier;
        j["autocorrelation"] = sc.autocorr;
        j["product"] = sc.product;
        std::cout << j.dump(-1, ' ', false, vx::cli::INVALID_UTF8) << "\n";
        return 0;
    }
    std::cout << "Charge: " << z << "\n";
    std::cout << "charge\tfourier\tautocorrelation\tproduct\n";
    for (std::size_t k = 0; k < sc.charge.size(); ++k)
        std::cout << fmt::format("{:.4f}\t{:.6g}\t{:.6g}\t{:.6g}\n", sc.charge[k], sc.fourier[k], sc.autocorr[k],
                                 sc.product[k]);
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<ChargeOptions>();
    auto* sub = app.add_subcommand("charge", "Charge of an isotope cluster (Fourier x autocorrelation scores)");
    sub->add_option("file", o->file, "Data file (a transient is processed first)")->required();
    sub->add_option("--range", o->range, "m/z range LOW:HIGH of the cluster")->required();
    sub->add_option("--max-charge", o->max_charge, "Highest charge of the axis")->capture_default_str();
    sub->add_flag("--json", o->json, "Print JSON");
    sub->callback([&ctx, o] { ctx.exit_code = run_charge(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
