// Replays fuzz inputs without the fuzzer: every file of the folders (or files)
// named on the command line goes once through LLVMFuzzerTestOneInput. The
// ordinary builds run it as a test, so every input that ever broke a reader,
// and every seed, is read again by the gcc Release and sanitizer builds.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        std::error_code ec;
        if (fs::is_directory(argv[i], ec)) {
            for (const auto& e : fs::recursive_directory_iterator(argv[i]))
                if (e.is_regular_file() && e.path().filename().string().front() != '.') inputs.push_back(e.path());
        } else if (fs::is_regular_file(argv[i], ec)) {
            inputs.push_back(argv[i]);
        }
    }
    std::sort(inputs.begin(), inputs.end());
    for (const auto& p : inputs) {
        std::ifstream in(p, std::ios::binary);
        std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::fprintf(stderr, "replay %s (%zu bytes)\n", p.string().c_str(), bytes.size());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::fprintf(stderr, "replayed %zu inputs\n", inputs.size());
    return 0;
}
