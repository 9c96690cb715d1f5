// The peak lists of the scans of a chromatogram, summed by TIC and SIC.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "fuzz_support.hpp"
#include "platform/ui.hpp"
#include "workspace/display.hpp"
#include "workspace/workspace.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = vx::fuzz::input_file("scan1.pks", data, size);
    auto p = std::make_unique<vx::AnalysisPanel>();
    p->spectrum.domain = vx::DOMAIN_CHROMATOGRAM;
    p->spectrum.lcmsfiles = {path, path};
    vx::RecordingUi ui;
    vx::Calculate_TIC(*p, ui);
    vx::Calculate_SIC(*p, 300.0, 800.0, ui);
    return 0;
}
