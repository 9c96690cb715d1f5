// vantorix averagine --write OUT: generates averagine_lookup2.txt.
// vantorix averagine MZ [--charge Z] [--sample-type 0|1|2] [--adduct OFF:RATIO]
// [--table PATH] [--json]: the model pattern THRASH fits at that m/z.
#include <iostream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "platform/safe_file.hpp"
#include "thrash/averagine.hpp"
#include "workspace/spectrum.hpp"

namespace vx::cli {
namespace {

struct AveragineOptions {
    std::string write;
    double mz = 0.0;
    int charge = 1;
    int sample_type = 0;
    std::string adduct;
    std::string table;
    bool negative = false;
    bool json = false;
};

int parse_adduct(const std::string& text, ModelSettings& m, Ui& ui) {
    const auto colon = text.find(':');
    try {
        if (colon == std::string::npos) throw std::invalid_argument("no colon");
        std::size_t used = 0;
        m.adduct_offset = std::stoi(text.substr(0, colon), &used);
        if (used != colon) throw std::invalid_argument("offset");
        const std::string r = text.substr(colon + 1);
        m.adduct_ratio = std::stod(r, &used);
        if (used != r.size()) throw std::invalid_argument("ratio");
    } catch (const std::exception&) {
        ui.MessagePopup("Operator Error", fmt::format("--adduct takes OFFSET:RATIO (isotope steps, ratio), not {}", text));
        return -1;
    }
    if (m.adduct_offset < 0 || m.adduct_offset >= AVERAGINE_WIDTH || !(m.adduct_ratio > 0.0)) {
        ui.MessagePopup("Operator Error", "The adduct offset must lie in 0 to 99 isotope steps and its ratio above 0.");
        return -1;
    }
    m.adduct_on = true;
    return 0;
}

int run_averagine(Context& ctx, const AveragineOptions& o) {
    if (!o.write.empty()) {
        if (write_file_atomically(o.write, averagine_table_text()) < 0) {
            ctx.ui.MessagePopup("File Error", fmt::format("Could not write {}", o.write));
            return 1;
        }
        std::cout << fmt::format("wrote {}: {} rows of averagine patterns, (r + 1) x 500 Da\n", o.write,
                                 AVERAGINE_ROWS);
        return 0;
    }
    if (!(o.mz > 0.0) || o.charge < 1) {
        ctx.ui.MessagePopup("Operator Error", "Give an m/z above 0 and a charge of 1 or more.");
        return 1;
    }
    ModelSettings model;
    model.sample_type = o.sample_type;
    if (!o.adduct.empty() && parse_adduct(o.adduct, model, ctx.ui) < 0) return 1;
    AveragineTable table;
    if (ReadAveragineTable(table, ctx.ui, nullptr, o.table) < 0) return 1;
    Spectrum s;
    s.Aterm = o.negative ? -std::abs(s.Aterm) : std::abs(s.Aterm);
    std::array<double, AVERAGINE_WIDTH> pattern{};
    const int length = static_cast<int>(distrib_calculation(o.mz, o.charge, pattern.data(), nullptr, 1, table, s, model));
    const int top = static_cast<int>(distrib_calculation(o.mz, o.charge, pattern.data(), nullptr, 2, table, s, model));
    const double proton = o.negative ? -THRASH_PROTON : THRASH_PROTON;
    const double mass = o.mz * o.charge + o.charge * proton;
    if (o.json) {
        nlohmann::ordered_json j;
        j["mz"] = o.mz;
        j["charge"] = o.charge;
        j["sample_type"] = o.sample_type;
        j["table_mass"] = mass;
        j["length"] = length;
        j["most_abundant_index"] = top;
        auto arr = nlohmann::ordered_json::array();
        for (int k = 0; k < length; ++k) arr.push_back({{"index", k}, {"relative", pattern[k]}});
        j["pattern"] = arr;
        std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << "\n";
        return 0;
    }
    std::cout << fmt::format("m/z {:.4f} charge {}: table mass {:.4f}, length {}, most abundant index {}\n", o.mz,
                             o.charge, mass, length, top);
    std::cout << "index\trelative\n";
    for (int k = 0; k < length; ++k) std::cout << fmt::format("{}\t{:.6f}\n", k, pattern[k]);
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<AveragineOptions>();
    auto* sub = app.add_subcommand("averagine", "Write the averagine table, or print the isotope model of an m/z");
    sub->add_option("mz", o->mz, "m/z of the ion whose model is printed");
    sub->add_option("--write", o->write, "Write the generated averagine_lookup2.txt to this path");
    sub->add_option("--charge", o->charge, "Charge of the ion")->capture_default_str();
    sub->add_option("--sample-type", o->sample_type, "0 the averagine table, 1 and 2 the binomial models")
        ->check(CLI::Range(0, 2))
        ->capture_default_str();
    sub->add_option("--adduct", o->adduct, "Adduct OFFSET:RATIO (isotope steps; the adduct is 1/RATIO of its parent)");
    sub->add_option("--table", o->table, "averagine_lookup2.txt to read (default: working directory, then bundled)");
    sub->add_flag("--negative", o->negative, "Negative ions (the calibration's polarity term below 0)");
    sub->add_flag("--json", o->json, "Print JSON");
    sub->callback([&ctx, o] { ctx.exit_code = run_averagine(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
