// ".pks" peak lists read back as a spectrum of peaks.
#include <cstddef>
#include <cstdint>

#include "formats/peak_list.hpp"
#include "fuzz_support.hpp"
#include "platform/ui.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = vx::fuzz::input_file("input.pks", data, size);
    auto s = std::make_unique<vx::Spectrum>();
    vx::RecordingUi ui;
    vx::Get_Tulva_Peak_List(path, *s, ui);
    return 0;
}
