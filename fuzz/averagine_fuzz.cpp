// The averagine lookup table (averagine_lookup2.txt), read and then used for
// the model of a few masses, as THRASH uses it.
#include <array>
#include <cstddef>
#include <cstdint>

#include "fuzz_support.hpp"
#include "platform/ui.hpp"
#include "thrash/averagine.hpp"
#include "workspace/spectrum.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = vx::fuzz::input_file("averagine_lookup2.txt", data, size);
    vx::RecordingUi ui;
    vx::AveragineTable table;
    bool abort = false;
    if (vx::ReadAveragineTable(table, ui, &abort, path) < 0) return 0;
    vx::Spectrum s;
    vx::ModelSettings model;
    model.adduct_on = size % 2 == 1;
    model.adduct_offset = static_cast<int>(size % 5);
    model.adduct_ratio = 2.0;
    std::array<double, vx::AVERAGINE_WIDTH> p{};
    for (double mz : {100.0, 750.0, 5000.0, 80000.0}) {
        vx::distrib_calculation(mz, 1, p.data(), nullptr, 1, table, s, model);
        vx::distrib_calculation(mz, 3, p.data(), nullptr, 2, table, s, model);
    }
    return 0;
}
