// Readers of the other instruments and co-adding, each against a baseline of
// the same bytes measured in the same run:
//   Odyssey 2^24 big-endian floats      vs one fread + byte swap
//   Vosk 2^22 records of 5 floats       vs one fread + pick of the second value
//   time-of-flight text, 10^6 lines     vs a from_chars loop over the same text
//   co-add of 8 and 64 files of 2^22    vs as many Tulva reads + a plain summing loop,
//     samples                              with the peak resident memory each run adds
//
//   scripts/build release bench_instruments && build/release/bench_instruments --benchmark_min_time=1
#include <benchmark/benchmark.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <memory>

#include <malloc.h>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "batch/coadd.hpp"
#include "formats/instruments.hpp"
#include "formats/tulva_reader.hpp"
#include "platform/ui.hpp"

namespace {

namespace fs = std::filesystem;

std::string temp(const std::string& name) { return (fs::temp_directory_path() / ("vantorix-bench-" + name)).string(); }

void put_be32(std::string& out, std::uint32_t v) {
    const char b[4] = {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
                       static_cast<char>(v)};
    out.append(b, 4);
}

constexpr std::size_t ODY_N = std::size_t{1} << 24;
constexpr std::size_t ODY_DATA_AT = 64 + 64;  // a = 0, b = 64

const std::string& odyssey_file() {
    static const std::string path = [] {
        const std::string p = temp("odyssey.ody");
        std::string head(2, '\1');
        head.append(6, '\0');
        put_be32(head, 0);                                        // a
        put_be32(head, 64);                                       // b
        put_be32(head, static_cast<std::uint32_t>(ODY_N * 4));    // c
        for (int i = 0; i < 7; ++i) put_be32(head, 0);            // d, e, reserved, p = 0, reserved
        head.resize(64, '\0');
        std::string script = "Odyssey instrument control script\n";
        script.resize(64, '\0');
        std::FILE* f = std::fopen(p.c_str(), "wb");
        std::fwrite(head.data(), 1, head.size(), f);
        std::fwrite(script.data(), 1, script.size(), f);
        std::vector<std::uint32_t> v(ODY_N);
        for (std::size_t i = 0; i < ODY_N; ++i) {
            const float x = std::sin(0.001f * static_cast<float>(i));
            std::uint32_t u;
            std::memcpy(&u, &x, 4);
            v[i] = __builtin_bswap32(u);
        }
        std::fwrite(v.data(), 4, v.size(), f);
        std::fclose(f);
        return p;
    }();
    return path;
}

void BM_Baseline_OdysseyReadAndSwap(benchmark::State& state) {
    const std::string& p = odyssey_file();
    for (auto _ : state) {
        std::FILE* f = std::fopen(p.c_str(), "rb");
        std::fseek(f, ODY_DATA_AT, SEEK_SET);
        std::vector<float> v(ODY_N);
        benchmark::DoNotOptimize(std::fread(v.data(), 4, v.size(), f));
        std::fclose(f);
        auto* u = reinterpret_cast<std::uint32_t*>(v.data());
        for (std::size_t i = 0; i < ODY_N; ++i) u[i] = __builtin_bswap32(u[i]);
        benchmark::DoNotOptimize(v.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * ODY_N * 4));
}
BENCHMARK(BM_Baseline_OdysseyReadAndSwap)->Unit(benchmark::kMillisecond);

void BM_Get_Odyssey_Data(benchmark::State& state) {
    const std::string& p = odyssey_file();
    vx::Workspace ws;
    vx::RecordingUi ui;
    for (auto _ : state) {
        vx::Spectrum s;
        if (vx::Get_Odyssey_Data(ws, p, s, ui) != 0) state.SkipWithError("read failed");
        benchmark::DoNotOptimize(s.data.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * ODY_N * 4));
}
BENCHMARK(BM_Get_Odyssey_Data)->Unit(benchmark::kMillisecond);

constexpr std::size_t VOSK_N = std::size_t{1} << 22;

const std::string& vosk_file() {
    static const std::string path = [] {
        const std::string p = temp("vosk.bin");
        std::FILE* f = std::fopen(p.c_str(), "wb");
        const float head[5] = {static_cast<float>(VOSK_N), 1e-6f, 5.0f, 0.0f, 0.0f};
        std::fwrite(head, 4, 5, f);
        std::vector<float> v(VOSK_N * 5);
        for (std::size_t i = 0; i < v.size(); ++i) v[i] = static_cast<float>(i % 1013);
        std::fwrite(v.data(), 4, v.size(), f);
        std::fclose(f);
        return p;
    }();
    return path;
}

void BM_Baseline_VoskReadAndPick(benchmark::State& state) {
    const std::string& p = vosk_file();
    for (auto _ : state) {
        std::FILE* f = std::fopen(p.c_str(), "rb");
        std::fseek(f, 20, SEEK_SET);
        std::vector<float> all(VOSK_N * 5);
        benchmark::DoNotOptimize(std::fread(all.data(), 4, all.size(), f));
        std::fclose(f);
        std::vector<float> out(VOSK_N);
        for (std::size_t i = 0; i < VOSK_N; ++i) out[i] = all[i * 5 + 1];
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_Baseline_VoskReadAndPick)->Unit(benchmark::kMillisecond);

void BM_Get_Vosk_Data(benchmark::State& state) {
    const std::string& p = vosk_file();
    vx::RecordingUi ui;
    for (auto _ : state) {
        vx::Spectrum s;
        if (vx::Get_Vosk_Data(p, s, {0, vx::VOSK_WORKING_CHANNEL}, true, ui) != 0) state.SkipWithError("read failed");
        benchmark::DoNotOptimize(s.data.data());
    }
}
BENCHMARK(BM_Get_Vosk_Data)->Unit(benchmark::kMillisecond);

constexpr std::size_t TOF_N = 1000000;

const std::string& tof_file() {
    static const std::string path = [] {
        const std::string p = temp("tof.txt");
        std::string text;
        text.reserve(TOF_N * 20);
        char line[64];
        for (std::size_t i = 0; i < TOF_N; ++i) {
            const int n = std::snprintf(line, sizeof line, "%.5f %d\n", 100.0 + 0.001 * static_cast<double>(i),
                                        static_cast<int>(i % 977));
            text.append(line, static_cast<std::size_t>(n));
        }
        std::FILE* f = std::fopen(p.c_str(), "wb");
        std::fwrite(text.data(), 1, text.size(), f);
        std::fclose(f);
        return p;
    }();
    return path;
}

void BM_Baseline_TofFromChars(benchmark::State& state) {
    const std::string& p = tof_file();
    for (auto _ : state) {
        std::FILE* f = std::fopen(p.c_str(), "rb");
        std::string text(fs::file_size(p), '\0');
        benchmark::DoNotOptimize(std::fread(text.data(), 1, text.size(), f));
        std::fclose(f);
        std::vector<double> x;
        std::vector<float> y;
        const char* q = text.data();
        const char* end = q + text.size();
        while (q < end) {
            double a = 0;
            long long b = 0;
            auto r = std::from_chars(q, end, a);
            r = std::from_chars(r.ptr + 1, end, b);
            x.push_back(a);
            y.push_back(static_cast<float>(b));
            q = r.ptr + 1;
        }
        benchmark::DoNotOptimize(x.data());
    }
}
BENCHMARK(BM_Baseline_TofFromChars)->Unit(benchmark::kMillisecond);

void BM_Get_Standing_TOF(benchmark::State& state) {
    const std::string& p = tof_file();
    vx::RecordingUi ui;
    for (auto _ : state) {
        vx::Spectrum s;
        if (vx::Get_Standing_TOF(p, s, 0.0, ui) != 0) state.SkipWithError("read failed");
        benchmark::DoNotOptimize(s.data.data());
    }
}
BENCHMARK(BM_Get_Standing_TOF)->Unit(benchmark::kMillisecond);

constexpr std::size_t CO_N = std::size_t{1} << 22;
constexpr int CO_FILES = 64;

// 64 files of 2^22 float samples (1 GiB in the temporary folder), made once.
const std::vector<std::string>& coadd_files() {
    static const std::vector<std::string> files = [] {
        std::vector<std::string> out;
        std::vector<float> v(CO_N);
        for (int k = 0; k < CO_FILES; ++k) {
            const std::string p = temp("coadd-" + std::to_string(k) + ".dat");
            out.push_back(p);
            std::error_code ec;
            const std::string h = "Vantorix Data File v4.00\nexpcount: 2\nStorage Type: float\nData Points: " +
                                  std::to_string(CO_N) + "\nData:\n";
            if (fs::file_size(p, ec) == h.size() + CO_N * 4) continue;  // left by an earlier run
            for (std::size_t i = 0; i < CO_N; ++i) v[i] = static_cast<float>((i * 7 + static_cast<std::size_t>(k)) % 1000);
            std::FILE* f = std::fopen(p.c_str(), "wb");
            std::fwrite(h.data(), 1, h.size(), f);
            std::fwrite(v.data(), 4, v.size(), f);
            std::fclose(f);
        }
        // Every run reads the files from the page cache, the first as the last.
        std::vector<char> buf(std::size_t{1} << 20);
        for (const std::string& p : out) {
            std::FILE* f = std::fopen(p.c_str(), "rb");
            while (f && std::fread(buf.data(), 1, buf.size(), f) == buf.size()) {
            }
            if (f) std::fclose(f);
        }
        // A gigabyte is not left in the temporary folder (unless asked, for
        // runs one after the other: VANTORIX_BENCH_KEEP=1).
        if (!std::getenv("VANTORIX_BENCH_KEEP")) std::atexit([] {
            std::error_code ec;
            for (int k = 0; k < CO_FILES; ++k) fs::remove(temp("coadd-" + std::to_string(k) + ".dat"), ec);
        });
        return out;
    }();
    return files;
}

// Peak resident memory: the kernel's high-water mark is reset before a run
// (clear_refs 5) and read after it, so each run reports what it added itself.
// Blocks of a megabyte and more are mapped and unmapped by malloc whatever
// came before, so memory freed by an earlier run is not counted as resident
// before the next (the default threshold rises after the first large free).
const bool fixed_mmap_threshold = mallopt(M_MMAP_THRESHOLD, 1 << 20) == 1;
long status_kb(const char* key) {
    std::FILE* f = std::fopen("/proc/self/status", "r");
    if (!f) return -1;
    char line[256];
    long v = -1;
    const std::size_t n = std::strlen(key);
    while (std::fgets(line, sizeof line, f))
        if (std::strncmp(line, key, n) == 0) v = std::strtol(line + n, nullptr, 10);
    std::fclose(f);
    return v;
}

bool reset_peak() {
    std::FILE* f = std::fopen("/proc/self/clear_refs", "w");
    if (!f) return false;
    const bool ok = std::fputs("5", f) >= 0;
    return std::fclose(f) == 0 && ok;
}

// Runs body once per iteration and reports the peak resident memory above
// the resident memory before it, in MiB.
template <typename Body>
void with_peak_memory(benchmark::State& state, Body body) {
    double peak = 0.0;
    for (auto _ : state) {
        state.PauseTiming();
        const bool reset = reset_peak();
        const long before = status_kb("VmRSS:");
        state.ResumeTiming();
        body();
        state.PauseTiming();
        if (reset) peak = std::max(peak, static_cast<double>(status_kb("VmHWM:") - before) / 1024.0);
        state.ResumeTiming();
    }
    state.counters["peak_MiB"] = fixed_mmap_threshold ? peak : -1.0;
    state.counters["files"] = static_cast<double>(state.range(0));
}

std::vector<std::string> first_files(int n) {
    const auto& all = coadd_files();
    return {all.begin(), all.begin() + n};
}

void BM_Baseline_ReadsAndSum(benchmark::State& state) {
    const auto files = first_files(static_cast<int>(state.range(0)));
    vx::RecordingUi ui;
    with_peak_memory(state, [&] {
        auto ws = std::make_unique<vx::Workspace>();
        std::vector<float> sum(CO_N, 0.0f);
        for (const auto& f : files) {
            ws->active_panel = 0;
            vx::Spectrum& s = ws->panels[0].spectrum;
            if (vx::Get_Tulva_Data(*ws, f, s, ui) != 0 || s.data.size() < CO_N) {
                state.SkipWithError("read failed");
                return;
            }
            for (std::size_t i = 0; i < CO_N; ++i) sum[i] += s.data[i];
        }
        benchmark::DoNotOptimize(sum.data());
    });
}
BENCHMARK(BM_Baseline_ReadsAndSum)->Arg(8)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CoAddTulva(benchmark::State& state) {
    const auto files = first_files(static_cast<int>(state.range(0)));
    vx::RecordingUi ui;
    with_peak_memory(state, [&] {
        auto ws = std::make_unique<vx::Workspace>();
        vx::CoaddResult r;
        if (vx::CoAddTulva(*ws, files, vx::CoaddKind::Tulva, r, ui) != 0) state.SkipWithError("co-add failed");
        benchmark::DoNotOptimize(ws->panels[0].spectrum.data.data());
    });
}
BENCHMARK(BM_CoAddTulva)->Arg(8)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
