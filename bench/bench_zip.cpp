// Packing a 128 MB transient into its .Z archive (zip1: minizip, deflate at
// the default level, then the archive renamed over its target), against a
// plain zlib deflate of the same bytes at the same level, in the same run.
//
//   build/release/bench_zip --benchmark_min_time=1
#include <benchmark/benchmark.h>

#include <zlib.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/zip.hpp"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t N = std::size_t{128} << 20;

const fs::path& folder() {
    static const fs::path p = [] {
        fs::path d = fs::temp_directory_path() / "vantorix-bench-zip";
        fs::create_directories(d);
        return d;
    }();
    return p;
}

// int16 samples of a decaying tone with noise: how transients pack.
const std::string& source() {
    static const std::string path = [] {
        const std::string p = (folder() / "t.dat").string();
        std::vector<short> v(N / 2);
        unsigned r = 12345;
        for (std::size_t i = 0; i < v.size(); ++i) {
            r = r * 1103515245u + 12345u;
            v[i] = static_cast<short>(((i * 37) % 2000) - 1000 + static_cast<int>((r >> 16) & 0x3f));
        }
        std::FILE* f = std::fopen(p.c_str(), "wb");
        std::fwrite(v.data(), sizeof(short), v.size(), f);
        std::fclose(f);
        return p;
    }();
    return path;
}

// Baseline: read the file and deflate it with zlib into memory, 64 KB at a time.
void BM_Baseline_ZlibDeflate(benchmark::State& state) {
    const std::string& p = source();
    std::vector<unsigned char> in(1 << 16), out(1 << 17);
    for (auto _ : state) {
        std::FILE* f = std::fopen(p.c_str(), "rb");
        z_stream z{};
        deflateInit2(&z, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
        std::size_t got, packed = 0;
        while ((got = std::fread(in.data(), 1, in.size(), f)) > 0) {
            z.next_in = in.data();
            z.avail_in = static_cast<uInt>(got);
            do {
                z.next_out = out.data();
                z.avail_out = static_cast<uInt>(out.size());
                deflate(&z, Z_NO_FLUSH);
                packed += out.size() - z.avail_out;
            } while (z.avail_out == 0);
        }
        int rc;
        do {
            z.next_out = out.data();
            z.avail_out = static_cast<uInt>(out.size());
            rc = deflate(&z, Z_FINISH);
            packed += out.size() - z.avail_out;
        } while (rc != Z_STREAM_END);
        deflateEnd(&z);
        std::fclose(f);
        benchmark::DoNotOptimize(packed);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * N));
}
BENCHMARK(BM_Baseline_ZlibDeflate)->Unit(benchmark::kMillisecond);

void BM_Zip1(benchmark::State& state) {
    const std::string& p = source();
    for (auto _ : state) {
        if (vx::zip1(p, folder().string()) != 0) state.SkipWithError("zip1 failed");
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * N));
}
BENCHMARK(BM_Zip1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
