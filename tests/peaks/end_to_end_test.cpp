// From a simulated transient through the processing chain to the peak list:
// the ions of the simulation are the truth.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include <fmt/format.h>

#include "formats/peak_list.hpp"
#include "formats/tulva_reader.hpp"
#include "peaks/find_peaks.hpp"
#include "peaks/macro.hpp"
#include "peaks/reborn.hpp"
#include "peaks/synthetic.hpp"
#include "platform/ui.hpp"
#include "sim/simulator.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"
#include "workspace/processing.hpp"

namespace vx {
namespace {


struct Simulation {
    test::TempDir dir;
    std::string file;
    SimParameters p;
    std::vector<SimIon> ions;
    Simulation() {
        file = dir.file("sim.dat");
        p.points = 1 << 20;
        p.noise = 0.01;
        p.int_storage = false;
        p.lowfreq = 50000.0;
        p.highfreq = 300000.0;
        // Twenty ions, 210 to 780 m/z, amplitudes over a decade; no decay.
        for (int k = 0; k < 20; ++k) {
            SimIon ion;
            ion.mz = 210.0 + 30.0 * k + 0.123 * k;
            ion.abundance = 0.002 * (1.0 + (k * 7 % 10));
            ions.push_back(ion);
        }
        RecordingUi ui;
        EXPECT_EQ(write_simulated_file(file, p, ions, ui), 0);
    }
};

int open_and_process(Workspace& ws, const std::string& file, Ui& ui) {
    const int slot = test::open_tulva_file(ws, file, ui);
    if (slot < 0) return -1;
    ProcessCommandResult r;
    if (process_command(ws, ui, &r) < 0) return -1;
    return slot;
}

// Truth of a Hann-windowed, undamped line in magnitude mode: half amplitude at
// 1 / T Hz either side (-6 dB of the Hann window), FWHM 2 / T Hz
// (T the transient's duration); peak over Rayleigh noise: height a N / 4 against
// per-channel deviation sigma sqrt(3 N / 16).
double rp_truth(double f, const SimParameters& p) { return f * (p.points / (2.0 * p.dbandwidth)) / 2.0; }
double sn_truth(double a, const SimParameters& p) {
    const double sc = p.noise * std::sqrt(3.0 * p.points / 16.0);
    return (a * p.points / 4.0 - 1.2533 * sc) / (0.6551 * sc);
}

TEST(EndToEnd, EveryIonOfASimulatedTransientIsFound) {
    Simulation sim;
    Workspace ws;
    RecordingUi ui;
    const int slot = open_and_process(ws, sim.file, ui);
    ASSERT_GE(slot, 0);
    FindPeakOptions(ws, slot);
    // The excited range of the file's script limits the search.
    EXPECT_GT(ws.settings.low_mass, 150.0);
    EXPECT_LT(ws.settings.high_mass, 1000.0);
    ws.settings.low_mass = 200.0;
    ws.settings.high_mass = 800.0;
    // Noise here: Rayleigh of mode about 2.5; the weakest ion stands near 250.
    ws.settings.peak_threshold = 25.0;
    ws.settings.noise_threshold = 8.0;
    PeakTable table;
    const int n = AnalyzeFindPeaks(ws, false, table, ui);
    ASSERT_GE(n, 20);
    const Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    for (const SimIon& ion : sim.ions) {
        const Peak* best = test::nearest_peak(s.peaks, ion.mz);
        ASSERT_NE(best, nullptr);
        EXPECT_LT(std::fabs(best->mass - ion.mz) / ion.mz * 1e6, 0.5) << ion.mz;
        EXPECT_NEAR(best->resolvingpower, rp_truth(best->frequency, sim.p), 0.12 * rp_truth(best->frequency, sim.p))
            << ion.mz;
        EXPECT_GT(best->sn, 3.0) << ion.mz;
    }
    // Heights follow the amplitudes: each ion's height over its amplitude is
    // the same within a few percent.
    std::vector<double> gain;
    for (const SimIon& ion : sim.ions)
        for (const Peak& pk : s.peaks)
            if (std::fabs(pk.mass - ion.mz) / ion.mz < 0.5e-6) gain.push_back(pk.abundance / ion.abundance);
    ASSERT_EQ(gain.size(), sim.ions.size());
    for (double g : gain) EXPECT_NEAR(g, gain.front(), 0.06 * gain.front());

    // The reborn picker on the same spectrum finds the same ions.
    Spectrum copy = s;
    PeakTable t2;
    Settings st = ws.settings;
    st.peak_threshold = 25.0;
    st.noise_threshold = 8.0;
    const int n2 = NewVantorixPeakPick2(copy, st, t2, ui);
    ASSERT_GE(n2, 20);
    for (const SimIon& ion : sim.ions) {
        bool hit = false;
        for (const Peak& pk : copy.peaks) hit = hit || std::fabs(pk.mass - ion.mz) / ion.mz < 0.5e-6;
        EXPECT_TRUE(hit) << ion.mz;
    }
}

TEST(EndToEnd, ProcessMacroGivesTheSimulatedSignalToNoise) {
    Simulation sim;
    Workspace ws;
    RecordingUi ui;
    const int slot = test::open_tulva_file(ws, sim.file, ui);
    ASSERT_GE(slot, 0);
    PeakTable table;
    // A stretch between two ions holds only noise.
    const int n = ProcessMacroCallback(ws, 222.0, 232.0, table, ui);
    ASSERT_GE(n, 20);
    const Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    EXPECT_EQ(s.overRideThrashNoiseCalculation, 1);
    // A noise range outside the data: the message, nothing searched.
    RecordingUi ui2;
    PeakTable t2;
    EXPECT_EQ(ProcessMacroCallback(ws, 5.0, 6.0, t2, ui2), -1);
    ASSERT_EQ(ui2.messages.size(), 1u);
    EXPECT_EQ(ui2.messages[0].title, "Operator Error");
    EXPECT_NEAR(ws.settings.peak_threshold, s.noisemean + 6.0 * s.noisesigma, 1e-9);
    EXPECT_NEAR(ws.settings.noise_threshold, s.noisemean + 4.2 * s.noisesigma, 1e-9);
    for (const SimIon& ion : sim.ions) {
        const Peak* best = test::nearest_peak(s.peaks, ion.mz);
        ASSERT_NE(best, nullptr);
        ASSERT_LT(std::fabs(best->mass - ion.mz) / ion.mz * 1e6, 0.5) << ion.mz;
        EXPECT_NEAR(best->sn, sn_truth(ion.abundance, sim.p), 0.15 * sn_truth(ion.abundance, sim.p)) << ion.mz;
    }
}

TEST(EndToEnd, CommandLineWritesAListThatReadsBack) {
    Simulation sim;
    const std::string out = sim.dir.file("sim.pks");
    const std::string home = sim.dir.file("home");
    const test::CliRun run = test::run_cli(
        home, fmt::format("peaks '{}' --low-mass 200 --high-mass 800 --threshold 25 --noise-threshold 8 -o '{}'", sim.file, out),
        true);
    ASSERT_EQ(run.status, 0) << run.out;
    Spectrum r;
    RecordingUi ui;
    ASSERT_EQ(Get_Tulva_Peak_List(out, r, ui), 0);
    ASSERT_GE(r.peakcount, 20);
    for (const SimIon& ion : sim.ions) {
        bool hit = false;
        for (const Peak& pk : r.peaks) hit = hit || std::fabs(pk.index - ion.mz) < 0.0005;
        EXPECT_TRUE(hit) << ion.mz;
    }
    // A missing file: exit status 1 and the reader's message.
    EXPECT_NE(test::run_cli(home, fmt::format("peaks '{}' -o '{}'", sim.dir.file("absent.dat"), out)).status, 0);
}

TEST(EndToEnd, FirstFindPeaksOnAFreshWorkspaceGivesTheSampleIons) {
    // Open, Process, Find Peaks with the settings of a first run: no limits.
    Workspace ws;
    RecordingUi ui;
    const int slot = open_and_process(ws, std::string(VANTORIX_SOURCE_DIR) + "/data/sample.dat", ui);
    ASSERT_GE(slot, 0);
    ws.panels[static_cast<std::size_t>(slot)].xmode = XMODE_MZ;
    ws.active_panel = slot;
    ASSERT_EQ(ws.settings.high_mass, 0.0);
    ensure_search_limits(ws, slot);
    // The excited range of the file's chirp, 20 kHz to 500 kHz.
    const Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    EXPECT_NEAR(ws.settings.low_mass, s.Aterm / 500000.0 + s.Bterm * std::fabs(s.Trapvoltage) / 2.5e11, 1e-6);
    EXPECT_NEAR(ws.settings.high_mass, s.Aterm / 20000.0 + s.Bterm * std::fabs(s.Trapvoltage) / 4.0e8, 1e-6);
    PeakTable table;
    ASSERT_EQ(AnalyzeFindPeaks(ws, false, table, ui), 8) << table.status;
    const double ions[8] = {195.08765, 322.04812, 524.26496, 525.26832, 622.02896, 922.00980, 1221.99064, 1521.97148};
    for (int k = 0; k < 8; ++k)
        EXPECT_LT(std::fabs(s.peaks[static_cast<std::size_t>(k)].mass - ions[k]) / ions[k] * 1e6, 10.0) << ions[k];

    // Limits already set stay; one unset limit takes the excited range's.
    ws.settings.low_mass = 300.0;
    ws.settings.high_mass = 0.0;
    ensure_search_limits(ws, slot);
    EXPECT_EQ(ws.settings.low_mass, 300.0);
    EXPECT_NEAR(ws.settings.high_mass, s.Aterm / 20000.0 + s.Bterm * std::fabs(s.Trapvoltage) / 4.0e8, 1e-6);
    ws.settings.high_mass = 700.0;
    ensure_search_limits(ws, slot);
    EXPECT_EQ(ws.settings.high_mass, 700.0);

    // A spectrum without an excited range: the data's own range.
    ws.panels[static_cast<std::size_t>(slot)].spectrum.origlowfreq = 0.0;
    ws.panels[static_cast<std::size_t>(slot)].spectrum.lowfreq = -1.0;
    ws.panels[static_cast<std::size_t>(slot)].spectrum.highfreq = -1.0;
    ws.settings.low_mass = ws.settings.high_mass = 0.0;
    ensure_search_limits(ws, slot);
    EXPECT_DOUBLE_EQ(ws.settings.high_mass, High_Mass(s));
    EXPECT_GE(ws.settings.low_mass, Low_Mass(s));
    // No such slot: nothing changes.
    ensure_search_limits(ws, -1);
    ensure_search_limits(ws, MAX_PANELS);
}

}  // namespace
}  // namespace vx
