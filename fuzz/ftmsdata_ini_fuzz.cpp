// The start-up settings file ftmsdata.ini. Every question is answered "no",
// so a TEMP value of the input never makes the target create a folder.
#include <cstddef>
#include <cstdint>

#include "fuzz_support.hpp"
#include "platform/ui.hpp"
#include "workspace/settings.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vx::fuzz::input_file("ftmsdata.ini", data, size);
    vx::Settings s;
    vx::RecordingUi ui;
    vx::ReadINI(vx::fuzz::scratch_folder(), s, ui);
    return 0;
}
