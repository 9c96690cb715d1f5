// The calibration change as a user's data file reaches it: the bytes in a
// file, copied with new coefficients into a second file beside it. The input
// must never change, and a refusal leaves no output.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <unistd.h>

#include "formats/calibration_change.hpp"
#include "platform/ui.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    char dir[] = "/tmp/vantorix-recal-fuzz-XXXXXX";
    if (!mkdtemp(dir)) return 0;
    const std::string in = std::string(dir) + "/in.dat", out = std::string(dir) + "/in.dat.new";
    {
        std::ofstream f(in, std::ios::binary);
        f.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    vx::RecordingUi ui;
    const int rc = vx::Change_Tulva_Calibration_Go(in, out, 47536770.867829, -3379711463.376564, ui);
    std::ifstream back(in, std::ios::binary);
    const std::string again((std::istreambuf_iterator<char>(back)), std::istreambuf_iterator<char>());
    if (again != std::string(reinterpret_cast<const char*>(data), size)) std::abort();
    if (rc < 0 && std::filesystem::exists(out)) std::abort();
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
    return 0;
}
