// The simulator's protein lists (name, formula or mass, charges, abundance).
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_support.hpp"
#include "platform/ui.hpp"
#include "sim/proteins.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = vx::fuzz::input_file("proteins.csv", data, size);
    std::vector<vx::SimProtein> proteins;
    vx::RecordingUi ui;
    if (vx::read_protein_list(path, proteins, ui) == 0) {
        std::string truth;
        (void)vx::protein_ions(proteins, &truth);
    }
    return 0;
}
