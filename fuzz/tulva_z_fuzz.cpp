// ".Z" archives of Tulva data files: the bytes are the archive, opened the way
// File > Open opens x.dat.Z, unpacked in-process into the TEMP folder.
#include <cstddef>
#include <cstdint>

#include "formats/tulva_reader.hpp"
#include "fuzz_support.hpp"
#include "platform/ui.hpp"
#include "workspace/workspace.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = vx::fuzz::input_file("input.dat.Z", data, size);
    auto ws = std::make_unique<vx::Workspace>();
    ws->settings.WINZIP = "minizip";
    ws->settings.TEMP = vx::fuzz::scratch_folder();
    vx::RecordingUi ui;
    ui.has_console = false;
    vx::open_data_file(*ws, path, vx::FILETYPE_TULVA, vx::read_tulva_into_slot, ui);
    return 0;
}
