// vantorix process FILE -o OUT: opens a transient, runs the processing chain as
// the "Process" command does and writes the spectrum in the export layout the
// output name asks for (.csv, .bin, .xy.bin, .wav).
#include <filesystem>
#include <iostream>

#include <fmt/format.h>

#include "commands.hpp"
#include "formats/spectrum_export.hpp"
#include "formats/open_file.hpp"
#include "formats/tulva_reader.hpp"
#include "platform/safe_file.hpp"
#include "workspace/processing.hpp"

namespace vx::cli {
namespace {

struct ProcessOptions {
    std::string file;
    std::string out;
    int truncations = -1;
    int apodization = -1;
    int zerofills = -1;
    int transform = -1;
    bool boxcar = false;
    bool split_complex = false;
    std::vector<double> zero_out;
    bool mz = false;
    bool overwrite = false;
    bool timing = false;
};

// "x.csv" + "_negative_ions" gives "x_negative_ions.csv" (".xy.bin" stays whole).
std::string sibling_name(const std::string& out, const std::string& tag) {
    std::string ext;
    for (const char* e : {".xy.bin", ".bin", ".csv", ".wav"}) {
        const std::string s = e;
        if (out.size() >= s.size() && out.compare(out.size() - s.size(), s.size(), s) == 0) {
            ext = s;
            break;
        }
    }
    return out.substr(0, out.size() - ext.size()) + tag + ext;
}

int export_slot(Context& ctx, int slot, const std::string& path, bool mz) {
    Workspace& ws = ctx.ws;
    const int saved = ws.active_panel;
    ws.active_panel = slot;
    Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    const int domain = s.domain;
    // "Process" leaves the spectrum in its m/z view; the export takes the view
    // the user asked for: the frequency layout unless --mz.
    if (mz && s.domain == DOMAIN_FREQUENCY) s.domain = DOMAIN_MASS;
    if (!mz && s.domain == DOMAIN_MASS) s.domain = DOMAIN_FREQUENCY;
    int rc = -1;
    switch (export_kind_of(path)) {
        case RAW_TEXT: rc = write_spectrum_text(s, path, ctx.ui); break;
        case RAW_BINARY: rc = write_spectrum_binary(s, path, ctx.ui); break;
        case RAW_BLOCK: rc = SaveRawSpectrum(ws, RAW_BLOCK, path, ctx.ui); break;
        case EXPORT_WAVE: rc = SaveWaveFileFormat(ws, path, ctx.ui); break;
        default: break;
    }
    s.domain = domain;
    ws.active_panel = saved;
    if (rc == 0)
        std::cout << fmt::format("wrote {} ({} points, {} Hz per point): {}\n", path, s.datacount, s.hzppt, s.filename);
    return rc;
}

int run_process(Context& ctx, const ProcessOptions& o) {
    if (export_kind_of(o.out) < 0) {
        ctx.ui.MessagePopup("Operator Error", fmt::format("The output name {} must end in .csv, .bin, .xy.bin or .wav.", o.out));
        return 1;
    }
    // The input is never replaced by its own spectrum, whatever the spelling of
    // the two names (the negative-ion and imaginary-part siblings included).
    for (const std::string& out : {o.out, sibling_name(o.out, "_negative_ions"), sibling_name(o.out, "_imaginary_part")}) {
        if (same_file(o.file, out)) {
            ctx.ui.MessagePopup("Operator Error",
                                fmt::format("The output {} is the input file itself; choose another name.", out));
            return 1;
        }
    }
    if (ctx.load_settings() < 0) return 1;
    ctx.ui.default_confirm = o.overwrite;
    Workspace& ws = ctx.ws;
    ws.settings_folder.clear();  // batch use does not touch the recent-file list
    if (o.timing) ws.settings.fftspeed = 1;

    ProcessOptionsValues v = process_options_from_settings(ws.settings);
    if (o.truncations >= 0) v.truncations = o.truncations;
    if (o.apodization >= 0) v.apodization = o.apodization;
    if (o.zerofills >= 0) v.zerofills = o.zerofills;
    if (o.transform >= 0) v.transform = o.transform;
    if (o.boxcar) v.boxcar = 1;
    if (process_options_ok(ws, v, false, ctx.ui) < 0) return 1;

    const int slot = open_any_file(ws, o.file, ctx.ui);
    if (slot < 0) {
        // Some of the readers' messages do not say which file they mean.
        std::cerr << o.file << ": not opened\n";
        return 1;
    }

    if (o.zero_out.size() == 2) {
        ws.panels[static_cast<std::size_t>(slot)].xmode = XMODE_POINT;  // positions are data points
        if (zero_out_command(ws, o.zero_out[0], o.zero_out[1], ctx.ui) < 0) return 1;
    }

    std::vector<std::pair<int, std::string>> outputs;
    if (o.split_complex) {
        const int imag = SplitComplexData(ws, ctx.ui);
        if (imag < 0) return 1;
        for (int s : {slot, imag}) {
            ws.active_panel = s;
            ProcessCommandResult r;
            if (process_command(ws, ctx.ui, &r) < 0) return 1;
        }
        outputs = {{slot, o.out}, {imag, sibling_name(o.out, "_imaginary_part")}};
    } else {
        ws.active_panel = slot;
        ProcessCommandResult r;
        if (process_command(ws, ctx.ui, &r) < 0) return 1;
        if (r.handed_to_phasing) {
            ctx.ui.MessagePopup("Operator Error",
                                "Two-channel (SED) data are transformed by the phasing commands, not by process.");
            return 1;
        }
        outputs = {{slot, o.out}};
        if (r.split_slot >= 0) outputs.push_back({r.split_slot, sibling_name(o.out, "_negative_ions")});
    }
    for (const auto& [s, path] : outputs)
        if (export_slot(ctx, s, path, o.mz) < 0) return 1;
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<ProcessOptions>();
    auto* sub = app.add_subcommand("process", "Process a transient into a spectrum and export it");
    sub->add_option("file", o->file, "Data file (Tulva .dat, .new, .swf, .Z, or a Bruker directory)")->required();
    sub->add_option("-o,--output", o->out,
                    "Spectrum file: .csv (text), .bin (raw float32), .xy.bin (masses and intensities), .wav")
        ->required();
    sub->add_option("--truncations", o->truncations, "Halvings of the transient (default from the settings: 0)")
        ->check(CLI::Range(0, 30));
    sub->add_option("--apodization", o->apodization,
                    "0 None/BoxCar, 1 Quarter Sine, 2 Hamming, 3 Hann, 4 Half Hann, 5 Half Hamming, 6 Kaiser (default 3)")
        ->check(CLI::Range(0, 6));
    sub->add_option("--zerofills", o->zerofills, "Doublings of the length (default 1)")->check(CLI::Range(0, 30));
    sub->add_option("--transform", o->transform,
                    "0 None, 1 FFT/Magnitude, 2 Non-linear/Lomb, 3 FFT without frequency axis (default 1)")
        ->check(CLI::Range(0, 3));
    sub->add_flag("--boxcar", o->boxcar, "BoxCar: no truncation, whatever --truncations says");
    sub->add_flag("--split-complex", o->split_complex,
                  "Split a quadrature transient into its real and imaginary parts first (second output *_imaginary_part)");
    sub->add_option("--zero-out", o->zero_out, "Set the samples from point A up to point B to zero first")
        ->expected(2);
    sub->add_flag("--mz", o->mz, "Write the .csv with an m/z column instead of frequency");
    sub->add_flag("--overwrite", o->overwrite, "Answer yes when asked to overwrite an existing .xy.bin file");
    sub->add_flag("--timing", o->timing, "Print the duration of each transform");
    sub->footer(
        "Quadrature data without a reference frequency are split into positive and negative ion spectra; "
        "the negative ions go to OUT with _negative_ions before the extension.");
    sub->callback([&ctx, o] { ctx.exit_code = run_process(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
