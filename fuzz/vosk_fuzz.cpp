// Vosk files: the bytes are the file, opened with --format vosk (header floats, then the records).
#include <cstddef>
#include <cstdint>
#include <memory>

#include "formats/open_file.hpp"
#include "fuzz_support.hpp"
#include "platform/ui.hpp"
#include "workspace/workspace.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = vx::fuzz::input_file("input.vosk", data, size);
    auto ws = std::make_unique<vx::Workspace>();
    ws->open_options.format = "vosk";

    vx::RecordingUi ui;
    ui.has_console = false;
    vx::open_any_file(*ws, path, ui);
    return 0;
}
