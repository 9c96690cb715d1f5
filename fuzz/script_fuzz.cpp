// Fuzz target of the experiment script reader: the bytes are a .dat or .exp
// file read through LoadTulvaScript, then walked for the waveform memory and
// printed both ways, as "vantorix script" does.
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "experiment/script.hpp"
#include "fuzz_support.hpp"
#include "platform/ui.hpp"
#include "workspace/workspace.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The first byte picks the file's extension so both kinds of names are seen.
    const bool exp = size > 0 && (data[0] & 1);
    const std::string path = vx::fuzz::input_file(exp ? "input.exp" : "input.dat", data, size);
    vx::RecordingUi ui;
    vx::Workspace ws;
    vx::Experiment ex;
    if (vx::LoadTulvaScript(ws, path, ex, false, ui) == 0) {
        const vx::WaveMemory m = vx::Check_Total_Mem_Use(ex, &ui);
        if (m.used < 0 || m.used > vx::WAVE_BLOCKS) std::abort();
        (void)vx::experiment_json(ex, m).dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
        (void)vx::experiment_timeline(ex, m);
    }
    return 0;
}
