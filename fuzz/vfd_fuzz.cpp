// Frequency data files (.vfd/.wcd, versions 1.0 and 1.1) through the opening
// road of the program; a file that opens is stored again by StoreVFDFile and
// the copy opened once more, so the writer meets every record the reader can
// make.
#include <cstddef>
#include <cstdint>

#include "formats/frequency_file.hpp"
#include "formats/tulva_reader.hpp"
#include "fuzz_support.hpp"
#include "platform/ui.hpp"
#include "workspace/workspace.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = vx::fuzz::input_file("input.vfd", data, size);
    auto ws = std::make_unique<vx::Workspace>();
    vx::RecordingUi ui;
    ui.has_console = false;
    const int slot = vx::open_data_file(*ws, path, vx::FILETYPE_TULVA, vx::read_tulva_into_slot, ui);
    if (slot < 0) return 0;
    vx::Spectrum& s = ws->panels[static_cast<std::size_t>(slot)].spectrum;
    const std::string copy = vx::fuzz::scratch_folder() + "/copy.wcd";
    if (vx::StoreVFDFile(s, copy, path, s.walkingregions > 0 ? 1 : 0, 0, ui) == 0) {
        auto again = std::make_unique<vx::Workspace>();
        vx::open_data_file(*again, copy, vx::FILETYPE_TULVA, vx::read_tulva_into_slot, ui);
    }
    return 0;
}
