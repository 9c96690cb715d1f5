// THRASH peak lists (.tpk written by the scan, read back by Load Peaklist).
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_support.hpp"
#include "platform/ui.hpp"
#include "thrash/thrash.hpp"
#include "workspace/spectrum.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = vx::fuzz::input_file("list.pk", data, size);
    std::vector<vx::ThrashPeak> rows;
    vx::RecordingUi ui;
    if (vx::load_thrash_peaklist(path, rows, ui) == 0) {
        vx::Spectrum s;
        (void)vx::tpk_text(s, rows);
        (void)vx::isos_csv_text(rows);
    }
    return 0;
}
