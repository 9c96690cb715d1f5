// The options of the opening road, shared by every command that opens a file:
// the layouts without a header and the answers of the readers' dialogues.
// They are global options, so they stand anywhere after the command too
// ("vantorix peaks run.bin --format melbar --points 65536").
#include "commands.hpp"

namespace vx::cli {
namespace {

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    OpenOptions& o = ctx.ws.open_options;
    app.add_option("--format", o.format,
                   "Read the file as: melbar, vosk, tof (headerless layouts), odyssey, mzml, tulva (default: by name "
                   "and contents)")
        ->check(CLI::IsMember({"melbar", "vosk", "tof", "odyssey", "mzml", "tulva"}));
    app.add_option("--scan", o.scan, "Scan of a multi-scan file: mzML the N of \"scan=N\" in the spectrum id (default the last)")
        ->check(CLI::PositiveNumber);
    app.add_option("--points", o.points, "Melbar/Vosk: points to read (default: every record / the Vosk header)")
        ->check(CLI::PositiveNumber);
    app.add_option("--channel", o.channel,
                   "Melbar: 0 third value, 1 atan(d/c), 3 fifth, 4 fourth; Vosk: 5 (the one channel read)")
        ->check(CLI::Range(0, 5));
    app.add_option("--bin", o.bin, "TOF text: bin size in m/z (0.1 to 100; any other value: no binning)");
});

}  // namespace
}  // namespace vx::cli
