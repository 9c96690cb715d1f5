// mzML: the bytes are the file, opened as a .mzML path through the opening
// road (index from the tail, else the streaming pass; one spectrum parsed),
// first the default scan, then scan 2 (the second pass takes the index or
// the stream to another element).
#include <cstddef>
#include <cstdint>
#include <memory>

#include "formats/open_file.hpp"
#include "fuzz_support.hpp"
#include "platform/ui.hpp"
#include "workspace/workspace.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = vx::fuzz::input_file("input.mzML", data, size);
    for (int scan : {0, 2}) {
        auto ws = std::make_unique<vx::Workspace>();
        ws->open_options.scan = scan;
        vx::RecordingUi ui;
        ui.has_console = false;
        vx::open_any_file(*ws, path, ui);
    }
    return 0;
}
