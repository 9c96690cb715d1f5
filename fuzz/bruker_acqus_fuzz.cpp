// XMASS acquisitions through the opening road: the input is an acqus file and,
// behind the line "--fid--", the fid; both are written into a directory that is
// opened as a user's Bruker directory is.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "formats/open_file.hpp"
#include "fuzz_support.hpp"
#include "platform/ui.hpp"
#include "workspace/workspace.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view in(reinterpret_cast<const char*>(data), size);
    const std::size_t cut = in.find("\n--fid--\n");
    const std::filesystem::path dir = std::filesystem::path(vx::fuzz::scratch_folder()) / "run";
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
    std::filesystem::create_directories(dir, ec);
    vx::fuzz::write_bytes((dir / "acqus").string(), in.substr(0, cut));
    if (cut != std::string_view::npos) vx::fuzz::write_bytes((dir / "fid").string(), in.substr(cut + 9));
    vx::Workspace ws;
    vx::RecordingUi ui;
    ui.has_console = false;
    (void)vx::open_any_file(ws, dir.string(), ui);
    return 0;
}
