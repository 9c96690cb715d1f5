// The simulator: ion lists, the file it writes read back by our reader, peaks
// at the frequencies of the calibration law with the magnitude scale of the
// chain, the quadrature ion polarities, and the phase a chirp leaves.
#include <algorithm>
#include <cmath>
#include <complex>
#include <filesystem>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

#include <fftw3.h>
#include <gtest/gtest.h>

#include "formats/tulva_reader.hpp"
#include "platform/ui.hpp"
#include "sim/simulator.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"
#include "workspace/conversions.hpp"
#include "workspace/processing.hpp"

namespace vx {
namespace {

constexpr double PI = std::numbers::pi;

using test::TempDir;

// The m/z whose frequency under the two-term law is f.
double mz_at(const SimParameters& p, double f) {
    return p.Aterm / f + p.Bterm * std::fabs(p.Trapvoltage) / (f * f);
}

SimParameters small_params() {
    SimParameters p;
    p.points = 4096;
    p.dbandwidth = 500000.0;
    p.collected_on = "2026-01-02";
    return p;
}

TEST(Simulator, IonListsGoodAndHostile) {
    TempDir dir;
    struct Case {
        const char* text;
        int count;           // ions read, or -1 for a refusal
        const char* message;  // text of the refusal
    };
    const std::vector<Case> cases = {
        {"500,1\n", 1, ""},
        {"# a comment\nmz,abundance,decay,phase\n\n500.5, 1.0, 0.2, 0.5 # trailing\n700,0.5,,\n300,2,0,0,-1\n", 3, ""},
        {"m/z,abundance\n", -1, "The ion list {path} holds no ions."},
        {"", -1, "The ion list {path} holds no ions."},
        {"500\n", -1, "Line 1 of {path}: expected m/z, abundance and optionally decay time, phase and polarity."},
        {"500,1\n600,abc\n", -1, "Line 2 of {path}: the abundance \"abc\" is not a number."},
        {"500,1,0,0,1,9\n", -1, "Line 1 of {path}: expected m/z, abundance and optionally decay time, phase and polarity."},
        {"-5,1\n", -1, "Line 1 of {path}: the m/z must be above 0."},
        {"500,1\nnan,1\n", -1, "Line 2 of {path}: the m/z \"nan\" is not a number."},
        {"500,-1\n", -1, "Line 1 of {path}: the abundance must not be negative."},
        {"500,1,-0.5\n", -1, "Line 1 of {path}: the decay time must not be negative (0 means no decay)."},
        {"500,1,0,0,2\n", -1, "Line 1 of {path}: the polarity must be 1 or -1."},
        {"500,1e999\n", -1, "Line 1 of {path}: the abundance \"1e999\" is not a number."},
    };
    int n = 0;
    for (const Case& c : cases) {
        const std::string path = dir.write("ions" + std::to_string(n++) + ".csv", c.text);
        std::vector<SimIon> ions;
        RecordingUi ui;
        const int rc = read_ion_list(path, ions, ui);
        if (c.count >= 0) {
            ASSERT_EQ(rc, 0) << c.text;
            EXPECT_EQ(static_cast<int>(ions.size()), c.count) << c.text;
        } else {
            EXPECT_EQ(rc, -1) << c.text;
            std::string msg = c.message;
            msg.replace(msg.find("{path}"), 6, path);
            EXPECT_TRUE(ui.saw("Ion list error", msg)) << (ui.messages.empty() ? "" : ui.messages[0].text);
        }
    }
    std::vector<SimIon> ions;
    RecordingUi ui;
    ASSERT_EQ(read_ion_list(dir.write("full.csv", "500.5,1.0,0.2,0.5,-1\n700,0.5,,\n"), ions, ui), 0);
    EXPECT_DOUBLE_EQ(ions[0].mz, 500.5);
    EXPECT_DOUBLE_EQ(ions[0].decay, 0.2);
    EXPECT_DOUBLE_EQ(ions[0].phase, 0.5);
    EXPECT_EQ(ions[0].polarity, -1);
    EXPECT_DOUBLE_EQ(ions[1].decay, 0.0);
    EXPECT_EQ(ions[1].polarity, 1);
    EXPECT_EQ(read_ion_list(dir.file("missing.csv"), ions, ui), -1);
    EXPECT_TRUE(ui.saw("Ion list error", "Cannot open the ion list " + dir.file("missing.csv") + "."));
}

TEST(Simulator, ParametersAreChecked) {
    struct Case {
        void (*change)(SimParameters&);
        const char* message;
    };
    const std::vector<Case> cases = {
        {[](SimParameters& p) { p.points = 1000; },
         "The number of points 1000 must be a power of two of at least 16, or 16000000 or 32000000."},
        {[](SimParameters& p) { p.points = 8; },
         "The number of points 8 must be a power of two of at least 16, or 16000000 or 32000000."},
        {[](SimParameters& p) { p.dbandwidth = 0.5; }, "The bandwidth must be above 1 Hz."},
        {[](SimParameters& p) { p.detectmode = 3; }, "The detection mode must be direct, heterodyne or quadrature."},
        {[](SimParameters& p) { p.detectmode = 1; }, "Heterodyne detection needs a reference frequency above 0."},
        {[](SimParameters& p) { p.highfreq = p.lowfreq; }, "The chirp needs two different frequencies above 0."},
        {[](SimParameters& p) { p.sweeprate = 0; }, "The sweep rate must be above 0 Hz per microsecond."},
        {[](SimParameters& p) { p.delay = -1; }, "The delay must not be negative."},
        {[](SimParameters& p) { p.noise = -0.1; }, "The noise level must not be negative."},
        {[](SimParameters& p) { p.voltage_scale = -1; }, "The voltage scale must not be negative (0 chooses one)."},
    };
    for (const Case& c : cases) {
        SimParameters p = small_params();
        c.change(p);
        RecordingUi ui;
        EXPECT_EQ(check_parameters(p, ui), -1) << c.message;
        EXPECT_TRUE(ui.saw("Simulator error", c.message)) << c.message;
    }
    SimParameters ok = small_params();
    RecordingUi ui;
    EXPECT_EQ(check_parameters(ok, ui), 0);
    ok.points = 16000000;
    EXPECT_EQ(check_parameters(ok, ui), 0);

    // An ion beyond the band is refused, not aliased.
    std::vector<float> v;
    const std::vector<SimIon> far = {SimIon{mz_at(ok, 600000.0), 1.0}};
    ok.points = 4096;
    EXPECT_EQ(simulate_samples(ok, far, v, ui), -1);
    EXPECT_EQ(ui.messages.back().title, "Simulator error");
    EXPECT_NE(ui.messages.back().text.find("outside the detected band"), std::string::npos);
}

TEST(Simulator, FileReadsBackWithItsHeaderAndSamples) {
    TempDir dir;
    for (bool int_storage : {true, false}) {
        SimParameters p = small_params();
        p.detectmode = DETECT_POSITIVE_HETERODYNE;
        p.reffreq = 50000.0;
        p.Aterm = 106000000.5;
        p.Bterm = -12345678.25;
        p.Trapvoltage = -0.75;
        p.noise = 0.01;
        p.seed = 7;
        p.int_storage = int_storage;
        p.lowfreq = 300000.0;
        p.highfreq = 60000.0;  // a downward sweep
        p.sweeprate = 120.0;
        p.delay = 0.002;
        const std::vector<SimIon> ions = {{mz_at(p, 150000.0), 0.8, 0.05, 0.0, 1}, {mz_at(p, 200000.0), 0.4, 0.0, 1.0, 1}};
        const std::string path = dir.file(int_storage ? "int.dat" : "float.dat");
        RecordingUi ui;
        ASSERT_EQ(write_simulated_file(path, p, ions, ui), 0);
        std::vector<float> volts;
        ASSERT_EQ(simulate_samples(p, ions, volts, ui), 0);

        Workspace ws;
        const int slot = test::open_tulva_file(ws, path, ui);
        ASSERT_GE(slot, 0) << (ui.messages.empty() ? "" : ui.messages.back().text);
        const Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
        EXPECT_EQ(s.datacount, 4096);
        EXPECT_EQ(s.storedcount, 0);
        EXPECT_DOUBLE_EQ(s.dbandwidth, 500000.0);
        EXPECT_EQ(s.detectmode, DETECT_POSITIVE_HETERODYNE);
        EXPECT_DOUBLE_EQ(s.reffreq, 50000.0);
        EXPECT_DOUBLE_EQ(s.Aterm, 106000000.5);
        EXPECT_DOUBLE_EQ(s.Bterm, -12345678.25);
        EXPECT_DOUBLE_EQ(s.Trapvoltage, -0.75);
        EXPECT_DOUBLE_EQ(s.lowfreq, 300000.0);
        EXPECT_DOUBLE_EQ(s.highfreq, 60000.0);
        EXPECT_DOUBLE_EQ(s.sweeprate, 120.0);
        EXPECT_NEAR(s.detectstart, p.quench_time + excite_time(p) + p.delay, 1e-9);
        EXPECT_EQ(s.collectedon, "2026-01-02");
        EXPECT_EQ(s.collectedby, "Vantorix simulator");
        EXPECT_EQ(s.projectcode, "SIM");
        EXPECT_EQ(s.expcount, 1);
        EXPECT_EQ(s.caltype, 0);
        EXPECT_EQ(ws.comment_text.rfind("Simulated transient of 2 ions, noise 0.01 V rms, seed 7.", 0), 0u)
            << ws.comment_text;
        ASSERT_EQ(s.data.size(), volts.size());
        float scale = 0.0f;
        for (float x : volts) scale = std::max(scale, std::fabs(x));
        scale /= 32000.0f;
        for (std::size_t i = 0; i < volts.size(); ++i) {
            if (int_storage) ASSERT_NEAR(s.data[i], volts[i], scale * 0.51) << i;
            else ASSERT_EQ(s.data[i], volts[i]) << i;
        }
    }
}

TEST(Simulator, SameSeedSameFileOtherSeedOtherNoise) {
    TempDir dir;
    SimParameters p = small_params();
    p.noise = 0.1;
    const std::vector<SimIon> ions = {{mz_at(p, 100000.0), 1.0}};
    RecordingUi ui;
    ASSERT_EQ(write_simulated_file(dir.file("a.dat"), p, ions, ui), 0);
    ASSERT_EQ(write_simulated_file(dir.file("b.dat"), p, ions, ui), 0);
    p.seed = 2;
    ASSERT_EQ(write_simulated_file(dir.file("c.dat"), p, ions, ui), 0);
    EXPECT_EQ(test::read_file(dir.file("a.dat")), test::read_file(dir.file("b.dat")));
    EXPECT_NE(test::read_file(dir.file("a.dat")), test::read_file(dir.file("c.dat")));
    // The noise has the asked rms.
    std::vector<float> v;
    p.noise = 0.5;
    ASSERT_EQ(simulate_samples(p, {SimIon{mz_at(p, 100000.0), 0.0}}, v, ui), 0);
    double ss = 0.0;
    for (float x : v) ss += double(x) * x;
    EXPECT_NEAR(std::sqrt(ss / v.size()), 0.5, 0.02);
}

TEST(Simulator, PeaksAtTheLawsFrequenciesWithTheChainsScale) {
    // On-bin ions, no window, no zero-fill: the magnitude is amplitude * 500000
    // and the peak point converts back to the ion's m/z.
    struct Case {
        int detectmode;
        double reffreq;
        double f;  // Hz
    };
    for (Case c : {Case{DETECT_DIRECT, 0.0, 0.0}, Case{DETECT_POSITIVE_HETERODYNE, 80000.0, 0.0}}) {
        SimParameters p = small_params();
        p.points = 8192;
        p.detectmode = c.detectmode;
        p.reffreq = c.reffreq;
        p.int_storage = false;
        const double hz = p.dbandwidth / (p.points / 2);
        const int k = 1234;
        const double f = c.reffreq + k * hz;
        const std::vector<SimIon> ions = {{mz_at(p, f), 0.6}};
        EXPECT_NEAR(ion_frequency(p, ions[0].mz), f, 1e-6);
        Spectrum s;
        s.datacount = p.points;
        s.dbandwidth = p.dbandwidth;
        s.detectmode = p.detectmode;
        s.reffreq = p.reffreq;
        RecordingUi ui;
        ASSERT_EQ(simulate_samples(p, ions, s.data, ui), 0);
        Settings o = default_settings();
        o.apodization = APOD_NONE;
        o.zerofills = 0;
        ASSERT_EQ(Process_Data(s, o, ui), 0);
        const auto top = std::max_element(s.data.begin() + 1, s.data.end()) - s.data.begin();
        EXPECT_EQ(top, k);
        EXPECT_NEAR(s.data[static_cast<std::size_t>(k)], 0.6 * 500000.0, 0.6 * 500000.0 * 1e-4);
        const double pt = static_cast<double>(k);
        double m = 0.0;
        Pt_tomass(s, std::span<const double>(&pt, 1), std::span<double>(&m, 1));
        EXPECT_NEAR(m, ions[0].mz, 1e-6 * ions[0].mz);
    }
}

TEST(Simulator, QuadratureIonsSplitByPolarity) {
    TempDir dir;
    SimParameters p = small_params();
    p.points = 8192;  // 4096 complex points at 500 kHz
    p.detectmode = DETECT_QUADRATURE;
    p.int_storage = false;
    const double hz = p.dbandwidth / (p.points / 2);
    const int kpos = 700, kneg = 1500;
    const std::vector<SimIon> ions = {{mz_at(p, kpos * hz), 0.5, 0.0, 0.0, 1}, {mz_at(p, kneg * hz), 0.25, 0.0, 0.0, -1}};
    RecordingUi ui;
    ASSERT_EQ(write_simulated_file(dir.file("q.dat"), p, ions, ui), 0);
    Workspace ws;
    const int slot = test::open_tulva_file(ws, dir.file("q.dat"), ui);
    ASSERT_GE(slot, 0);
    ws.settings.apodization = APOD_NONE;
    ws.settings.zerofills = 0;
    ProcessCommandResult r;
    RecordingUi pui;
    ASSERT_EQ(process_command(ws, pui, &r), 0);
    ASSERT_EQ(r.split_slot, 1);
    const Spectrum& pos = ws.panels[0].spectrum;
    const Spectrum& neg = ws.panels[1].spectrum;
    ASSERT_EQ(pos.datacount, 2048);
    // Point i of the positive panel is the frequency (i + 1) hz, of the
    // negative panel (i - 1) hz: the split starts from the common middle.
    const auto ppos = std::max_element(pos.data.begin(), pos.data.end()) - pos.data.begin();
    const auto pneg = std::max_element(neg.data.begin(), neg.data.end()) - neg.data.begin();
    EXPECT_EQ(ppos, kpos - 1);
    EXPECT_EQ(pneg, kneg + 1);
    // The channel balance of the chain scales the Q channel by the ratio of the
    // absolute sums, which two ions do not leave at exactly 1: a mirror of each
    // ion of under 0.5 % appears on the other side.
    EXPECT_NEAR(pos.data[static_cast<std::size_t>(ppos)], 0.5 * 1000000.0, 0.5 * 1000000.0 * 5e-3);
    EXPECT_NEAR(neg.data[static_cast<std::size_t>(pneg)], 0.25 * 1000000.0, 0.25 * 1000000.0 * 5e-3);
    EXPECT_LT(pos.data[static_cast<std::size_t>(kneg - 1)], 0.25 * 1000000.0 * 5e-3);
    ASSERT_EQ(pui.messages.size(), 1u);
    EXPECT_EQ(pui.messages[0].text.rfind("the gain ratio between the two channels (0/1) is: ", 0), 0u);

    // One ion alone: balanced channels, the full scale amplitude * 1000000.
    RecordingUi ui1;
    ASSERT_EQ(write_simulated_file(dir.file("q1.dat"), p, {ions[0]}, ui1), 0);
    Workspace ws1;
    ASSERT_EQ(test::open_tulva_file(ws1, dir.file("q1.dat"), ui1), 0);
    ws1.settings.apodization = APOD_NONE;
    ws1.settings.zerofills = 0;
    RecordingUi pui1;
    ASSERT_EQ(process_command(ws1, pui1, &r), 0);
    EXPECT_TRUE(pui1.saw("Message", "the gain ratio between the two channels (0/1) is: 1.000000\n"));
    EXPECT_NEAR(ws1.panels[0].spectrum.data[kpos - 1], 0.5 * 1000000.0, 50.0);
    EXPECT_LT(ws1.panels[1].spectrum.data[kpos + 1], 10.0f);  // nothing among the negative ions
}

TEST(Simulator, IonsCarryThePhaseOfTheChirp) {
    for (bool downward : {false, true}) {
        SimParameters p = small_params();
        p.points = 16384;
        p.int_storage = false;
        if (downward) std::swap(p.lowfreq, p.highfreq);
        const double hz = p.dbandwidth / (p.points / 2);
        const std::vector<int> bins = {1000, 2500, 6000};
        std::vector<SimIon> ions;
        for (int k : bins) ions.push_back({mz_at(p, k * hz), 1.0, 0.0, k == 2500 ? 0.7 : 0.0, 1});
        std::vector<float> v;
        RecordingUi ui;
        ASSERT_EQ(simulate_samples(p, ions, v, ui), 0);
        std::vector<fftwf_complex> out(static_cast<std::size_t>(p.points / 2 + 1));
        fftwf_plan plan = fftwf_plan_dft_r2c_1d(p.points, v.data(), out.data(), FFTW_ESTIMATE);
        fftwf_execute(plan);
        fftwf_destroy_plan(plan);
        for (std::size_t j = 0; j < bins.size(); ++j) {
            const int k = bins[j];
            const double measured = std::arg(std::complex<double>(out[k][0], out[k][1]));
            const double expect = excitation_phase(p, k * hz) + ions[j].phase;
            EXPECT_NEAR(std::remainder(measured - expect, 2 * PI), 0.0, 2e-3) << "bin " << k;
        }
        // The phase model's form: pi (f - lowfreq)^2 / R - 2 pi f (delay + excite time)
        // rotates every ion into absorption with a constant left.
        const double R = (p.highfreq <= p.lowfreq ? -1.0 : 1.0) * p.sweeprate * 1e6;
        for (int k : bins) {
            const double f = k * hz;
            const double model = PI * (f - p.lowfreq) * (f - p.lowfreq) / R - 2 * PI * f * (p.delay + excite_time(p));
            EXPECT_NEAR(std::remainder(model + excitation_phase(p, f), 2 * PI), 0.0, 1e-9);
        }
    }
}

// The header's experiment script, walked as the excitation reader walks it.
TEST(Simulator, HeaderScriptStatesTheChirp) {
    SimParameters p = small_params();
    p.delay = 0.00125;
    const std::string h = simulated_header(p, {SimIon{500.0, 1.0}}, 0.001);
    std::istringstream in(h);
    std::string line, mode;
    double last_time = 0, delay = 0, excite_time_seen = 0, lo = 0, hi = 0, rate = 0;
    bool before_detect = true;
    int data_lines = 0, lines = 0;
    std::getline(in, line);
    EXPECT_EQ(line, "Vantorix Data File v4.00");
    std::getline(in, line);
    EXPECT_EQ(line, "Begin Experiment Sequence");
    auto value = [](const std::string& l, const std::string& key) { return std::stod(l.substr(l.find(key) + key.size())); };
    while (std::getline(in, line)) {
        ++lines;
        if (line.find("Data:") != std::string::npos) {
            ++data_lines;
            EXPECT_EQ(line, "Data:");
            break;
        }
        if (line.find("excite:") != std::string::npos) {
            delay = 0;
            excite_time_seen = last_time;
        } else if (line.find("time:") != std::string::npos) {
            last_time = value(line, "time:");
            if (before_detect) delay += last_time;
        } else if (line.find("emode:") != std::string::npos) {
            mode = line.substr(line.find("emode:") + 6);
        } else if (line.find("lowfreq:") != std::string::npos) {
            lo = value(line, "lowfreq:");
        } else if (line.find("highfreq:") != std::string::npos) {
            hi = value(line, "highfreq:");
        } else if (line.find("sweeprate:") != std::string::npos) {
            rate = value(line, "sweeprate:");
        } else if (line.find("detect:") != std::string::npos) {
            delay -= last_time;
            before_detect = false;
        }
    }
    EXPECT_EQ(data_lines, 1);
    EXPECT_FALSE(std::getline(in, line));  // nothing after the marker
    EXPECT_NE(mode.find("chirp"), std::string::npos);
    EXPECT_DOUBLE_EQ(lo, p.lowfreq);
    EXPECT_DOUBLE_EQ(hi, p.highfreq);
    EXPECT_DOUBLE_EQ(rate, p.sweeprate);
    EXPECT_NEAR(delay, p.delay, 1e-12);
    EXPECT_NEAR(excite_time_seen, std::fabs(hi - lo) / rate / 1e6, 1e-9);
    EXPECT_NE(h.find("[Voltage Labels]"), std::string::npos);
    EXPECT_NE(h.find("[Trigger Labels]"), std::string::npos);
    EXPECT_NE(h.find("Voltage 9: "), std::string::npos);
    EXPECT_NE(h.find("Trigger 17: "), std::string::npos);
}

TEST(Simulator, PaddedSizeReadsIntoThePowerOfTwo) {
    TempDir dir;
    SimParameters p = small_params();
    p.points = 16000000;
    p.dbandwidth = 2000000.0;
    const std::vector<SimIon> ions = {{mz_at(p, 300000.0), 1.0, 0.5}};
    RecordingUi ui;
    ASSERT_EQ(write_simulated_file(dir.file("big.dat"), p, ions, ui), 0);
    Workspace ws;
    const int slot = test::open_tulva_file(ws, dir.file("big.dat"), ui);
    ASSERT_GE(slot, 0);
    const Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    EXPECT_EQ(s.datacount, 16777216);
    EXPECT_EQ(s.storedcount, 16000000);
    EXPECT_NE(s.data[15999999], 0.0f);
    for (std::size_t i = 16000000; i < s.data.size(); i += 9973) ASSERT_EQ(s.data[i], 0.0f);
}

}  // namespace
}  // namespace vx
