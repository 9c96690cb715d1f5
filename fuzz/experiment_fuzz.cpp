// Fuzz target of the excitation reader: the bytes are a data file (header,
// experiment script, "Data:" marker) read through the same entry points a
// phasing run uses on a user's file.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include "experiment/excite_script.hpp"
#include "platform/ui.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    char name[] = "/tmp/vx_experiment_fuzz_XXXXXX";
    const int fd = mkstemp(name);
    if (fd < 0) return 0;
    std::size_t done = 0;
    while (done < size) {
        const ssize_t w = write(fd, data + done, size - done);
        if (w <= 0) break;
        done += static_cast<std::size_t>(w);
    }
    close(fd);

    vx::RecordingUi ui;
    double hi = 0, lo = 0, rate = 0, delay = 0, bw = 0;
    const double t = vx::GetExciteTime4(name, &hi, &lo, &rate, &delay, &bw, 1, ui);
    const double t2 = vx::GetExciteTime2(name, &hi, &lo, &rate, &delay, &bw, ui);
    vx::Spectrum s;
    s.filename = name;
    vx::GetExciteTime3(s, ui);
    std::remove(name);
    // The reader never hands NaN to the phase model.
    if (std::isnan(t) || std::isnan(t2) || std::isnan(hi) || std::isnan(lo) || std::isnan(rate) || std::isnan(delay) ||
        std::isnan(s.exciteduration))
        std::abort();
    return 0;
}
