// Reading a 2^25-sample int16 Tulva transient, against the plain read of the
// same bytes plus the int-to-float conversion, measured in the same run.
//
//   build/release/bench_read --benchmark_min_time=2
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "formats/tulva_reader.hpp"
#include "platform/ui.hpp"

namespace {

constexpr std::size_t N = std::size_t{1} << 25;

const std::string& sample_file() {
    static const std::string path = [] {
        const std::string p = (std::filesystem::temp_directory_path() / "vantorix-bench-read.dat").string();
        std::FILE* f = std::fopen(p.c_str(), "wb");
        const std::string header = "Vantorix Data File v4.00\nStorage Type: int\nVoltage Scale: 0.001\nData Points: " +
                                   std::to_string(N) + "\nData:\n";
        std::fwrite(header.data(), 1, header.size(), f);
        std::vector<std::int16_t> v(N);
        for (std::size_t i = 0; i < N; ++i) v[i] = static_cast<std::int16_t>((i * 2654435761u) >> 16);
        std::fwrite(v.data(), sizeof(std::int16_t), N, f);
        std::fclose(f);
        return p;
    }();
    return path;
}

// Baseline: one fread of the block into an int16 array, then convert and scale.
void BM_Baseline_PlainReadAndConvert(benchmark::State& state) {
    const std::string& p = sample_file();
    for (auto _ : state) {
        std::FILE* f = std::fopen(p.c_str(), "rb");
        char line[256];
        for (int i = 0; i < 5; ++i) std::fgets(line, sizeof line, f);
        std::vector<std::int16_t> raw(N);
        std::size_t got = std::fread(raw.data(), sizeof(std::int16_t), N, f);
        std::fclose(f);
        std::vector<float> out(N);
        const float scale = 0.001f;
        for (std::size_t i = 0; i < got; ++i) out[i] = static_cast<float>(raw[i]) * scale;
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(N * 2));
}

void BM_GetTulvaData(benchmark::State& state) {
    const std::string& p = sample_file();
    vx::RecordingUi ui;
    for (auto _ : state) {
        vx::Workspace ws;
        ws.active_panel = 0;
        vx::Spectrum& s = ws.panels[0].spectrum;
        if (vx::Get_Tulva_Data(ws, p, s, ui) != 0) state.SkipWithError("read failed");
        benchmark::DoNotOptimize(s.data.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(N * 2));
}

BENCHMARK(BM_Baseline_PlainReadAndConvert)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_GetTulvaData)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
