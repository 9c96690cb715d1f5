// Reference files (.ref) as a user's file reaches the reader: bytes in a file
// on disk, read by read_reference_file. Every mass it gives must be a finite
// number above zero.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <unistd.h>

#include "calibration/reference_file.hpp"
#include "platform/ui.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    char path[] = "/tmp/vantorix-ref-fuzz-XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) return 0;
    const bool written = size == 0 || write(fd, data, size) == static_cast<ssize_t>(size);
    close(fd);
    if (written) {
        vx::RecordingUi ui;
        std::vector<double> masses;
        if (vx::read_reference_file(path, masses, ui) == 0)
            for (double m : masses)
                if (!(std::isfinite(m) && m > 0.0)) std::abort();
    }
    unlink(path);
    return 0;
}
