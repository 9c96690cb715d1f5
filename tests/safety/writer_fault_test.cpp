// Every writer of the program on a disk that fills up: with the file-size
// limit lowered in a child process the writer fails with a message, the old
// target is intact byte for byte and no temporary file is left behind.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include "formats/peak_list.hpp"
#include "formats/spectrum_export.hpp"
#include "platform/ui.hpp"
#include "platform/zip.hpp"
#include "safety/safety_support.hpp"
#include "sim/simulator.hpp"
#include "support/files.hpp"
#include "workspace/filelist.hpp"
#include "workspace/settings.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;

Spectrum spectrum_of(std::size_t n, int domain) {
    Spectrum s;
    s.datacount = static_cast<std::int32_t>(n);
    s.data.assign(n, 0.0f);
    for (std::size_t i = 0; i < n; ++i) s.data[i] = static_cast<float>(i % 97) * 1.25f;
    s.dbandwidth = 1.0e6;
    s.hzppt = s.dbandwidth / static_cast<double>(n);
    s.Aterm = 1.07e8;
    s.Bterm = -3.0e5;
    s.domain = domain;
    for (int i = 0; i < 300; ++i) {
        Peak p;
        p.mass = 200.0 + i;
        p.abundance = 1000.0 + i;
        p.relabundance = 50.0;
        p.resolvingpower = 1.0e5;
        p.frequency = 1.0e5 + i;
        s.peaks.push_back(p);
    }
    s.peakcount = static_cast<std::int32_t>(s.peaks.size());
    return s;
}

struct WriterCase {
    const char* what;
    std::string target;  // file name in the folder
    long limit;          // bytes the child may write to one file
    // Writes folder/target; returns the writer's result. ui is null for the
    // settings writers, which report through their result alone.
    std::function<int(const std::string& folder, Ui& ui)> write;
    bool has_message = true;
};

TEST(WriterFaults, AFullDiskNeverCostsTheOldFile) {
    const std::string big(200000, 'x');
    const std::vector<WriterCase> cases = {
        {"spectrum text", "s.csv", 4096,
         [](const std::string& d, Ui& ui) { return write_spectrum_text(spectrum_of(8192, DOMAIN_FREQUENCY), d + "/s.csv", ui); }},
        {"spectrum binary", "s.bin", 4096,
         [](const std::string& d, Ui& ui) { return write_spectrum_binary(spectrum_of(8192, DOMAIN_FREQUENCY), d + "/s.bin", ui); }},
        {"spectrum block", "s.xy.bin", 4096,
         [](const std::string& d, Ui& ui) { return write_spectrum_block(spectrum_of(8192, DOMAIN_MASS), d + "/s.xy.bin", ui); }},
        {"wave", "s.wav", 4096,
         [](const std::string& d, Ui& ui) { return write_wave_file(spectrum_of(8192, DOMAIN_FREQUENCY), d + "/s.wav", ui); }},
        {"peak table", "p.pks", 2048,
         [](const std::string& d, Ui& ui) {
             return SavePeakList2(spectrum_of(64, DOMAIN_MASS), d + "/p.pks", PeakListDecimals{}, true, 1.0, ui);
         }},
        {"peak csv", "p.csv", 2048,
         [](const std::string& d, Ui& ui) { return SavePeakListCsv(spectrum_of(64, DOMAIN_MASS), d + "/p.csv", ui); }},
        {"simulated transient", "sim.dat", 4096,
         [](const std::string& d, Ui& ui) {
             SimParameters p;
             p.points = 8192;
             return write_simulated_file(d + "/sim.dat", p, {SimIon{}}, ui);
         }},
        {"recent-file list", "tulva.ini", 16,
         [](const std::string& d, Ui&) {
             RecentFiles l;
             l.count = 1;
             l.names.assign(RECENT_FILES, "/data/a.dat");
             return write_file_list(d, l);
         },
         false},
        {"zip archive", "src.dat.Z", 1024,
         [big](const std::string& d, Ui&) {
             // The source must exist beside the archive; it is not the target.
             return zip1(d + "/src.dat", d) == 0 ? 0 : -1;
         },
         false},
        {"unzip", "u.dat", 1024,
         [](const std::string& d, Ui&) { return unzip1(d + "/u.dat.Z", d, "u.dat") == UNZIP_OK ? 0 : -1; }, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        test::TempDir dir;
        const std::string folder = dir.path().string();
        const std::string old = "the file that was here before\r\n";
        const std::string target = dir.write(c.target, old);
        // Inputs the writers need besides their target, made before the limit.
        if (c.target == "src.dat.Z") test::write_file(folder + "/src.dat", big + test::v4_file(50000));
        if (c.target == "u.dat") test::write_zip(folder + "/u.dat.Z", {"u.dat", test::v4_file(50000)});
        const auto before = test::entries(folder);

        const auto r = test::run_in_child([&] {
            std::signal(SIGXFSZ, SIG_IGN);  // a refused write is an error, not the end of the process
            rlimit lim{static_cast<rlim_t>(c.limit), static_cast<rlim_t>(c.limit)};
            if (::setrlimit(RLIMIT_FSIZE, &lim) != 0) return 10;
            RecordingUi ui;
            if (c.write(folder, ui) >= 0) return 1;
            if (c.has_message && ui.messages.empty()) return 2;
            return 0;
        });
        EXPECT_EQ(r.verdict, 0) << "1: wrote past the limit, 2: failed without a message";
        EXPECT_EQ(test::read_file(target), old);
        EXPECT_EQ(test::entries(folder), before) << "a temporary file was left behind";
    }
}

TEST(WriterFaults, TheFirstSettingsFileIsWholeOrAbsent) {
    test::TempDir dir;
    const std::string cfg = dir.file("cfg");
    fs::create_directories(cfg);
    const auto r = test::run_in_child([&] {
        ::setenv("VANTORIX_HOME", dir.file("home").c_str(), 1);
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit lim{64, 64};
        if (::setrlimit(RLIMIT_FSIZE, &lim) != 0) return 10;
        return ensure_default_ini(cfg) < 0 ? 0 : 1;
    });
    EXPECT_EQ(r.verdict, 0);
    EXPECT_TRUE(fs::is_empty(cfg)) << "neither a half ftmsdata.ini nor a temporary file stays";
}

}  // namespace
}  // namespace vx
