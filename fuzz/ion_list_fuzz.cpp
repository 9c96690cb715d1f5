// The simulator's ion lists (m/z, abundance, decay, phase, polarity).
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_support.hpp"
#include "platform/ui.hpp"
#include "sim/simulator.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = vx::fuzz::input_file("ions.csv", data, size);
    std::vector<vx::SimIon> ions;
    vx::RecordingUi ui;
    vx::read_ion_list(path, ions, ui);
    return 0;
}
