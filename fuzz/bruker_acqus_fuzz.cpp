// XMASS acquisitions through the opening road: the input is an acqus file and,
// behind the line "--fid--", the fid; both are written into a directory that is
// opened as a user's Bruker directory is.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "formats/open_file.hpp"
#include "platform/ui.hpp"
#include "workspace/workspace.hpp"

namespace {

const std::filesystem::path& folder() {
    static const std::filesystem::path dir = [] {
        std::string tmpl = (std::filesystem::temp_directory_path() / "vx_acqus_fuzz.XXXXXX").string();
        const char* made = mkdtemp(tmpl.data());
        return std::filesystem::path(made ? made : "/tmp");
    }();
    return dir;
}

void put(const std::filesystem::path& path, std::string_view bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view in(reinterpret_cast<const char*>(data), size);
    const std::size_t cut = in.find("\n--fid--\n");
    const std::filesystem::path dir = folder() / "run";
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
    std::filesystem::create_directories(dir, ec);
    put(dir / "acqus", in.substr(0, cut));
    if (cut != std::string_view::npos) put(dir / "fid", in.substr(cut + 9));
    vx::Workspace ws;
    vx::RecordingUi ui;
    ui.has_console = false;
    (void)vx::open_any_file(ws, dir.string(), ui);
    return 0;
}
