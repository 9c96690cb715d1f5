// Time-of-flight text: the bytes are the file, opened with --format tof and a bin size.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "formats/open_file.hpp"
#include "fuzz_support.hpp"
#include "platform/ui.hpp"
#include "workspace/workspace.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = vx::fuzz::input_file("input.tof", data, size);
    auto ws = std::make_unique<vx::Workspace>();
    ws->open_options.format = "tof";
    ws->open_options.bin = 0.5;
    vx::RecordingUi ui;
    ui.has_console = false;
    vx::open_any_file(*ws, path, ui);
    return 0;
}
