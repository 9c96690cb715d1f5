// Tulva data files of every generation (v2.0, v3, v4, SWIFT, legacy and the
// two- and three-channel SED layouts) through the opening road of the
// program. The first byte picks the entry: File > Open, or the explicit
// second- or third-channel open; the rest is the file.
#include <cstddef>
#include <cstdint>

#include "formats/tulva_reader.hpp"
#include "fuzz_support.hpp"
#include "platform/ui.hpp"
#include "workspace/workspace.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const int entry = data[0] % 3;
    const std::string path = vx::fuzz::input_file("input.dat", data + 1, size - 1);
    auto ws = std::make_unique<vx::Workspace>();
    vx::RecordingUi ui;
    ui.has_console = false;
    if (entry == 0) {
        vx::open_data_file(*ws, path, vx::FILETYPE_TULVA, vx::read_tulva_into_slot, ui);
    } else {
        const int slot = vx::Get_New_Panel(*ws);
        if (slot < 0) return 0;
        vx::prepare_new_slot(*ws, slot, vx::FILETYPE_TULVA);
        ws->active_panel = slot;
        vx::Spectrum& s = ws->panels[static_cast<std::size_t>(slot)].spectrum;
        if (entry == 1) vx::Get_Tulva_Data_SED(*ws, path, s, ui);
        else vx::Get_Tulva_Data_SED2(*ws, path, s, ui);
    }
    return 0;
}
