// Writing and reading the frequency data file of a 2^23-point spectrum,
// against a plain fwrite / fread of the same samples measured in the same run.
// Both writers sync the file to disk before they count as done (the .vfd
// writer does it to replace its target safely), so the baseline syncs too.
//
//   build/release/bench_vfd --benchmark_min_time=1
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "formats/frequency_file.hpp"
#include "formats/open_file.hpp"
#include "platform/ui.hpp"

namespace {

constexpr std::size_t N = std::size_t{1} << 23;
namespace fs = std::filesystem;

std::string temp(const char* name) { return (fs::temp_directory_path() / name).string(); }

// A source transient header and a spectrum whose excitation range covers
// all its points, so that the whole array is stored.
const std::string& source_file() {
    static const std::string p = [] {
        const std::string path = temp("vantorix-bench-vfd-source.dat");
        std::FILE* f = std::fopen(path.c_str(), "wb");
        const std::string h = "Vantorix Data File v4.00\nStorage Type: float\nData Points: 4\nData:\n";
        std::fwrite(h.data(), 1, h.size(), f);
        const float z[4] = {0, 0, 0, 0};
        std::fwrite(z, sizeof(float), 4, f);
        std::fclose(f);
        return path;
    }();
    return p;
}

vx::Spectrum spectrum() {
    vx::Spectrum s;
    s.domain = vx::DOMAIN_MASS;
    s.datacount = static_cast<std::int32_t>(N);
    s.dbandwidth = 2.0e6;
    s.hzppt = s.dbandwidth / static_cast<double>(N);
    s.lowfreq = 0.0;
    s.highfreq = s.dbandwidth;
    s.Zerofills = 1;
    s.data.resize(N);
    for (std::size_t i = 0; i < N; ++i) s.data[i] = static_cast<float>((i * 2654435761u) >> 8);
    return s;
}

void BM_Baseline_PlainWrite(benchmark::State& state) {
    const vx::Spectrum s = spectrum();
    const std::string p = temp("vantorix-bench-vfd-plain.bin");
    for (auto _ : state) {
        std::FILE* f = std::fopen(p.c_str(), "wb");
        std::fwrite(s.data.data(), sizeof(float), N, f);
        std::fflush(f);
        ::fsync(::fileno(f));
        std::fclose(f);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(N * 4));
}

void BM_StoreVFDFile(benchmark::State& state) {
    vx::Spectrum s = spectrum();
    const std::string p = temp("vantorix-bench-vfd.vfd");
    vx::RecordingUi ui;
    for (auto _ : state) {
        if (vx::StoreVFDFile(s, p, source_file(), 0, 0, ui) != 0) state.SkipWithError("StoreVFDFile failed");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(N * 4));
}

void BM_Baseline_PlainRead(benchmark::State& state) {
    const std::string p = temp("vantorix-bench-vfd-plain.bin");
    {
        const vx::Spectrum s = spectrum();
        std::FILE* f = std::fopen(p.c_str(), "wb");
        std::fwrite(s.data.data(), sizeof(float), N, f);
        std::fclose(f);
    }
    for (auto _ : state) {
        std::vector<float> v(N);
        std::FILE* f = std::fopen(p.c_str(), "rb");
        benchmark::DoNotOptimize(std::fread(v.data(), sizeof(float), N, f));
        std::fclose(f);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(N * 4));
}

void BM_OpenVfd(benchmark::State& state) {
    const std::string p = temp("vantorix-bench-vfd.vfd");
    {
        vx::Spectrum s = spectrum();
        vx::RecordingUi ui;
        vx::StoreVFDFile(s, p, source_file(), 0, 0, ui);
    }
    vx::RecordingUi ui;
    for (auto _ : state) {
        auto ws = std::make_unique<vx::Workspace>();
        ws->settings_folder.clear();
        if (vx::open_any_file(*ws, p, ui) < 0) state.SkipWithError("open failed");
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(N * 4));
}

}  // namespace

BENCHMARK(BM_Baseline_PlainWrite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_StoreVFDFile)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Baseline_PlainRead)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OpenVfd)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
