// The excitation of an apex/solariX acquisition as a phasing run reads it: the
// input is a method file, behind the line "--pulprog--" the compiled pulse
// program and behind "--fid--" the fid; they are written as a .d directory and
// the acquisition is opened and phased as a user's is (no zero-fill, the
// search of the rate and delay on).
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "formats/open_file.hpp"
#include "fuzz_support.hpp"
#include "phasing/phase_run.hpp"
#include "platform/ui.hpp"
#include "workspace/workspace.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view in(reinterpret_cast<const char*>(data), size);
    const std::size_t program = in.find("\n--pulprog--\n");
    const std::size_t fid = in.find("\n--fid--\n");
    const std::filesystem::path dir = std::filesystem::path(vx::fuzz::scratch_folder()) / "phase.d";
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
    std::filesystem::create_directories(dir / "x.m", ec);
    const std::size_t method_end = std::min(program, fid);
    vx::fuzz::write_bytes((dir / "x.m" / "apexAcquisition.method").string(), in.substr(0, method_end));
    if (program != std::string_view::npos) {
        const std::size_t from = program + 13;
        const std::size_t to = fid != std::string_view::npos && fid > program ? fid : in.size();
        vx::fuzz::write_bytes((dir / "x.m" / "PULPROG__basic.compiled").string(), in.substr(from, to - from));
    }
    if (fid != std::string_view::npos) vx::fuzz::write_bytes((dir / "fid").string(), in.substr(fid + 9));
    vx::Workspace ws;
    vx::RecordingUi ui;
    ui.has_console = false;
    const int slot = vx::open_any_file(ws, dir.string(), ui);
    if (slot < 0) return 0;
    vx::PhaseRunOptions o;
    o.zerofills = 0;
    o.workers = 1;
    (void)vx::phase_spectrum(ws.panels[static_cast<std::size_t>(slot)].spectrum, o, ui);
    return 0;
}
