// Reading Bruker transients: the 2 MB fid of the real acquisition in the shared
// data (skipped when absent), a generated 2^25-sample little-endian fid of an
// apex .d directory, and the same samples big-endian in an XMASS directory. Each
// against a plain read of the same bytes plus the int32-to-float conversion,
// measured in the same run (the baseline with the same argument).
//
//   build/release/bench_bruker --benchmark_min_time=1
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "formats/bruker.hpp"
#include "platform/ui.hpp"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t N = std::size_t{1} << 25;

std::string real_dir() { return std::string(VANTORIX_SOURCE_DIR) + "/../shared/data/bruker/histonepeptide_ms2_000002.d"; }

void write_bytes(const fs::path& p, const void* data, std::size_t size) {
    std::FILE* f = std::fopen(p.string().c_str(), "wb");
    std::fwrite(data, 1, size, f);
    std::fclose(f);
}

std::vector<std::int32_t> generated_samples() {
    std::vector<std::int32_t> v(N);
    for (std::size_t i = 0; i < N; ++i) v[i] = static_cast<std::int32_t>(i * 2654435761u) >> 6;
    return v;
}

// arg 1: an apex .d with a method folder; arg 2: an XMASS directory, big-endian.
const std::string& generated_dir(int kind) {
    static std::string dirs[3];
    std::string& d = dirs[kind];
    if (!d.empty()) return d;
    const fs::path root = fs::temp_directory_path() / (kind == 1 ? "vantorix-bench-apex.d" : "vantorix-bench-xmass");
    fs::create_directories(root);
    std::vector<std::int32_t> v = generated_samples();
    const std::string td = std::to_string(N);
    if (kind == 1) {
        fs::create_directories(root / "bench.m");
        const std::string xml = "<method><paramlist><param><name>TD</name><value>" + td +
                                "</value></param><param><name>SW_h</name><value>1000000.0</value></param>"
                                "<param><name>ML1</name><value>1.0E8</value></param></paramlist></method>\n";
        write_bytes(root / "bench.m" / "apexAcquisition.method", xml.data(), xml.size());
    } else {
        const std::string acqus = "##TITLE= XMASS Parameter file\n##$BYTORDA= 1 \n##$TD= " + td + " \n##END=\n";
        write_bytes(root / "acqus", acqus.data(), acqus.size());
        for (auto& x : v) x = static_cast<std::int32_t>(__builtin_bswap32(static_cast<std::uint32_t>(x)));
    }
    write_bytes(root / "fid", v.data(), v.size() * sizeof(std::int32_t));
    d = root.string();
    return d;
}

std::string dir_of(int kind) { return kind == 0 ? real_dir() : generated_dir(kind); }

bool available(benchmark::State& state, int kind) {
    if (kind == 0 && !fs::exists(real_dir() + "/fid")) {
        state.SkipWithError("no real Bruker data in ../shared/data");
        return false;
    }
    return true;
}

// Baseline: one fread of the whole fid into an int32 array, then convert.
void BM_Baseline_PlainReadInt32(benchmark::State& state) {
    const int kind = static_cast<int>(state.range(0));
    if (!available(state, kind)) return;
    const std::string fid = dir_of(kind) + "/fid";
    const std::size_t n = fs::file_size(fid) / 4;
    for (auto _ : state) {
        std::FILE* f = std::fopen(fid.c_str(), "rb");
        std::vector<std::int32_t> raw(n);
        const std::size_t got = std::fread(raw.data(), sizeof(std::int32_t), n, f);
        std::fclose(f);
        std::vector<float> out(n);
        for (std::size_t i = 0; i < got; ++i) out[i] = static_cast<float>(raw[i]);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(n * 4));
}

// The readers a user's open takes: the .d reader, or Get_Bruker_Data for XMASS.
void BM_BrukerRead(benchmark::State& state) {
    const int kind = static_cast<int>(state.range(0));
    if (!available(state, kind)) return;
    const std::string dir = dir_of(kind);
    vx::RecordingUi ui;
    std::size_t n = 0;
    for (auto _ : state) {
        vx::Spectrum s;
        const int rc = kind == 2 ? vx::Get_Bruker_Data(dir, s, ui) : vx::Get_Bruker_Apex_Data(dir, s, ui);
        if (rc != 0) {
            state.SkipWithError("read failed");
            break;
        }
        n = s.data.size();
        benchmark::DoNotOptimize(s.data.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(n * 4));
}

BENCHMARK(BM_Baseline_PlainReadInt32)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BrukerRead)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
