// CSV peak lists of other programs: the bytes go to a temporary file and
// through read_peak_csv, the road of `vantorix assign LIST.csv`; a list that
// loads is then grouped into Kendrick series and assigned, so the series walk
// and the formula search see hostile masses and abundances too.
#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

#include "composition/assign.hpp"
#include "formats/peak_csv.hpp"
#include "platform/ui.hpp"

namespace {

class QuietUi : public vx::RecordingUi {
public:
    void Console(std::string_view) override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    char path[] = "/tmp/peak_csv_fuzz.XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) return 0;
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n = write(fd, data + done, size - done);
        if (n <= 0) break;
        done += static_cast<std::size_t>(n);
    }
    close(fd);
    QuietUi ui;
    vx::Spectrum s;
    if (vx::read_peak_csv(path, s, ui) == 0 && s.peaks.size() <= 300) {
        vx::FormulaSettings st = vx::molecal_defaults();
        vx::parse_element_ranges("C0-40,H0-80,N0-1,O0-10,S0-1", st, ui);
        st.MAX_ITER = 2000;
        st.series_fit = true;
        vx::AssignSummary sum;
        vx::assign_peak_list(s, vx::KendrickOptions{}, st, 2, ui, &sum);
    }
    unlink(path);
    return 0;
}
