// The mzML reader against a baseline of the same bytes in the same run:
//   one scan of 10^6 points, zlib (m/z 64-bit, intensity 32-bit)
//       vs base64 decode + inflate of its two arrays, already in memory
//   the last scan of a 200-scan indexed file of 10^5 points each
//       vs the same decode + inflate of that scan's arrays
// The heap of a read is counted by replacing operator new/delete (and
// pugixml's allocator) in this program: peak_heap_MB is the largest live heap
// during the read above what was live before it, decoded_scans that peak over
// the size of one decoded scan (8-byte m/z + 4-byte intensity per point).
//
//   scripts/build release bench_mzml && build/release/bench_mzml --benchmark_min_time=0.5
// The counting allocator frees with free() what operator new took with malloc().
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include <pugixml.hpp>
#include <zlib.h>

#include "formats/mzml_reader.hpp"
#include "platform/base64.hpp"
#include "platform/ui.hpp"

namespace {

std::atomic<std::size_t> g_live{0}, g_peak{0};

void* counted_alloc(std::size_t n) {
    void* p = std::malloc(n ? n : 1);
    if (!p) return nullptr;
    const std::size_t now = g_live.fetch_add(malloc_usable_size(p)) + malloc_usable_size(p);
    std::size_t peak = g_peak.load();
    while (now > peak && !g_peak.compare_exchange_weak(peak, now)) {
    }
    return p;
}
void counted_free(void* p) {
    if (!p) return;
    g_live.fetch_sub(malloc_usable_size(p));
    std::free(p);
}

}  // namespace

void* operator new(std::size_t n) {
    if (void* p = counted_alloc(n)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t n) {
    if (void* p = counted_alloc(n)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { counted_free(p); }
void operator delete[](void* p) noexcept { counted_free(p); }
void operator delete(void* p, std::size_t) noexcept { counted_free(p); }
void operator delete[](void* p, std::size_t) noexcept { counted_free(p); }

namespace {

namespace fs = std::filesystem;

std::string temp(const std::string& name) { return (fs::temp_directory_path() / ("vantorix-bench-" + name)).string(); }

std::string zlib_b64(const void* data, std::size_t size) {
    uLongf len = compressBound(static_cast<uLong>(size));
    std::string z(len, '\0');
    compress2(reinterpret_cast<Bytef*>(z.data()), &len, static_cast<const Bytef*>(data), static_cast<uLong>(size), 6);
    z.resize(len);
    return vx::base64_encode(z);
}

// A profile scan: m/z from 200 in steps of 0.001, a noise floor of small
// integers and a peak every 997 points.
struct ScanText {
    std::string mz, intensity;  // base64 of the zlib streams
};

ScanText make_scan(std::size_t n, unsigned seed) {
    std::vector<double> mz(n);
    std::vector<float> in(n);
    unsigned r = seed * 2654435761u + 1u;
    for (std::size_t i = 0; i < n; ++i) {
        mz[i] = 200.0 + 0.001 * static_cast<double>(i);
        r = r * 1664525u + 1013904223u;
        const double d = static_cast<double>(i % 997) - 498.0;
        in[i] = static_cast<float>((r >> 24) % 16) + static_cast<float>(5000.0 * std::exp(-d * d / 8.0));
    }
    return {zlib_b64(mz.data(), n * 8), zlib_b64(in.data(), n * 4)};
}

std::string spectrum_xml(const ScanText& t, std::size_t n, int scan, int index) {
    auto array = [](const std::string& text, bool is_mz) {
        return std::string("<binaryDataArray encodedLength=\"") + std::to_string(text.size()) +
               "\">\n<cvParam cvRef=\"MS\" accession=\"" + (is_mz ? "MS:1000523" : "MS:1000521") +
               "\" name=\"\" value=\"\"/>\n<cvParam cvRef=\"MS\" accession=\"MS:1000574\" name=\"zlib compression\" "
               "value=\"\"/>\n<cvParam cvRef=\"MS\" accession=\"" +
               (is_mz ? "MS:1000514" : "MS:1000515") + "\" name=\"\" value=\"\"/>\n<binary>" + text +
               "</binary>\n</binaryDataArray>\n";
    };
    return "<spectrum index=\"" + std::to_string(index) + "\" id=\"controllerType=0 controllerNumber=1 scan=" +
           std::to_string(scan) + "\" defaultArrayLength=\"" + std::to_string(n) +
           "\">\n<cvParam cvRef=\"MS\" accession=\"MS:1000511\" name=\"ms level\" value=\"1\"/>\n"
           "<binaryDataArrayList count=\"2\">\n" +
           array(t.mz, true) + array(t.intensity, false) + "</binaryDataArrayList>\n</spectrum>\n";
}

// An indexed file of count scans of n points; last: the text of the last scan.
std::string write_file(const std::string& name, int count, std::size_t n, ScanText& last) {
    const std::string path = temp(name);
    std::FILE* f = std::fopen(path.c_str(), "wb");
    std::string head = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<indexedmzML>\n<mzML version=\"1.1.0\">\n<run id=\"r\">\n"
                       "<spectrumList count=\"" + std::to_string(count) + "\">\n";
    std::fwrite(head.data(), 1, head.size(), f);
    std::size_t at = head.size();
    std::string index = "<indexList count=\"1\">\n<index name=\"spectrum\">\n";
    for (int k = 1; k <= count; ++k) {
        last = make_scan(n, static_cast<unsigned>(k));
        const std::string x = spectrum_xml(last, n, k, k - 1);
        index += "<offset idRef=\"controllerType=0 controllerNumber=1 scan=" + std::to_string(k) + "\">" +
                 std::to_string(at) + "</offset>\n";
        std::fwrite(x.data(), 1, x.size(), f);
        at += x.size();
    }
    const std::string tail = "</spectrumList>\n</run>\n</mzML>\n";
    std::fwrite(tail.data(), 1, tail.size(), f);
    at += tail.size();
    index += "</index>\n</indexList>\n<indexListOffset>" + std::to_string(at) + "</indexListOffset>\n</indexedmzML>\n";
    std::fwrite(index.data(), 1, index.size(), f);
    std::fclose(f);
    return path;
}

constexpr std::size_t ONE_N = 1000000;
constexpr std::size_t MANY_N = 100000;
constexpr int MANY_SCANS = 200;

struct Fixture {
    std::string path;
    ScanText last;
};

const Fixture& one_scan() {
    static const Fixture f = [] {
        Fixture x;
        x.path = write_file("one.mzML", 1, ONE_N, x.last);
        return x;
    }();
    return f;
}

const Fixture& many_scans() {
    static const Fixture f = [] {
        Fixture x;
        x.path = write_file("many.mzML", MANY_SCANS, MANY_N, x.last);
        return x;
    }();
    return f;
}

void decode_and_inflate(const ScanText& t, std::size_t n) {
    std::vector<double> mz(n);
    std::vector<float> in(n);
    auto a = vx::base64_decode(t.mz);
    uLongf len = static_cast<uLongf>(n * 8);
    uncompress(reinterpret_cast<Bytef*>(mz.data()), &len, a->data(), static_cast<uLong>(a->size()));
    auto b = vx::base64_decode(t.intensity);
    len = static_cast<uLongf>(n * 4);
    uncompress(reinterpret_cast<Bytef*>(in.data()), &len, b->data(), static_cast<uLong>(b->size()));
    benchmark::DoNotOptimize(mz.data());
    benchmark::DoNotOptimize(in.data());
}

void read_scan(benchmark::State& state, const Fixture& fx, int scan, std::size_t n) {
    vx::RecordingUi ui;
    std::size_t peak = 0;
    for (auto _ : state) {
        auto s = std::make_unique<vx::Spectrum>();
        const std::size_t before = g_live.load();
        g_peak.store(before);
        if (vx::Get_Xcalibur_Data(fx.path, *s, scan, ui) != 0 || s->data.size() != n) {
            state.SkipWithError("read failed");
            return;
        }
        peak = std::max(peak, g_peak.load() - before);
        benchmark::DoNotOptimize(s->data.data());
    }
    state.counters["peak_heap_MB"] = static_cast<double>(peak) / 1.0e6;
    state.counters["decoded_scans"] = static_cast<double>(peak) / static_cast<double>(n * 12);
}

void BM_Baseline_DecodeInflateOneScan(benchmark::State& state) {
    const Fixture& fx = one_scan();
    for (auto _ : state) decode_and_inflate(fx.last, ONE_N);
}
BENCHMARK(BM_Baseline_DecodeInflateOneScan)->Unit(benchmark::kMillisecond);

void BM_MzmlOneZlibScan(benchmark::State& state) { read_scan(state, one_scan(), 1, ONE_N); }
BENCHMARK(BM_MzmlOneZlibScan)->Unit(benchmark::kMillisecond);

void BM_Baseline_DecodeInflateLastOf200(benchmark::State& state) {
    const Fixture& fx = many_scans();
    for (auto _ : state) decode_and_inflate(fx.last, MANY_N);
}
BENCHMARK(BM_Baseline_DecodeInflateLastOf200)->Unit(benchmark::kMillisecond);

void BM_MzmlLastOf200Indexed(benchmark::State& state) { read_scan(state, many_scans(), MANY_SCANS, MANY_N); }
BENCHMARK(BM_MzmlLastOf200Indexed)->Unit(benchmark::kMillisecond);

void BM_MzmlFirstOf200Indexed(benchmark::State& state) { read_scan(state, many_scans(), 1, MANY_N); }
BENCHMARK(BM_MzmlFirstOf200Indexed)->Unit(benchmark::kMillisecond);

// pugixml's pages go through the same counter.
const bool pugi_counted = [] {
    pugi::set_memory_management_functions(counted_alloc, counted_free);
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
