// Absorption mode on apex/solariX acquisitions: the excitation read from the
// method and its pulse program, the rate-and-delay seek, the width table, whole
// runs on simulated .d directories (a chirp of known rate and delay), and the
// real acquisition when ../shared/data is present.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <map>
#include <numbers>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "formats/open_file.hpp"
#include "phasing/bruker_excite.hpp"
#include "phasing/bruker_phase.hpp"
#include "phasing/chirp_seek.hpp"
#include "phasing/phase_command.hpp"
#include "phasing/phase_modes.hpp"
#include "phasing/phase_run.hpp"
#include "platform/ui.hpp"
#include "sim/simulator.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

const std::string REAL_D = std::string(VANTORIX_SHARED_DATA) + "/bruker/histonepeptide_ms2_000002.d";

// The excitation and detection blocks of the basic pulse program.
std::string pulse_program(const std::string& step = "p3", const std::string& loop = "l31",
                          const std::string& before_go = "   1u setnmr4^7\t\t; turn off amp") {
    return fmt::format(
        "; BASIC\nNS_START, 10u\n   10u pl3:f1\t\t; set attenuation\nEXC_SWP, ({} ph1 fq1):f1\t; sweep\n"
        "   lo to EXC_SWP times {}\t; steps\n{}\n   go = NS_START ph1\n   wr #0\n   exit\n",
        step, loop, before_go);
}

std::map<std::string, std::string> method_values() {
    // f = ML1 / m - ML2: EXC_hi 2000 m/z is 50 kHz, EXC_low 222.22.. m/z is 450 kHz.
    return {{"EXC_low", fmt::format("{:.12f}", 1.0e8 / 450000.0)},
            {"EXC_hi", "2000.0"},
            {"ML1", "1.0E8"},
            {"ML2", "0.0"},
            {"ML3", "0.0"},
            {"SW_h", "500000.0"},
            {"L_31", "400"},
            {"P_3", "20.0"},
            {"DE", "500.0"},
            {"REVERSE", "1"}};
}

std::string method_xml(const std::map<std::string, std::string>& params) {
    std::string t = "<?xml version='1.0' encoding='UTF-8'?>\n<method>\n<methodmetadata><primarykey>\n"
                    "<methodname>sim</methodname></primarykey></methodmetadata>\n<paramlist>\n";
    for (const auto& [k, v] : params) t += "<param><name>" + k + "</name><value>" + v + "</value></param>\n";
    return t + "</paramlist>\n</method>\n";
}

TEST(BrukerExcite, MethodAndPulseProgramGiveTheSweep) {
    struct Case {
        const char* name;
        std::map<std::string, std::string> changes;  // value "" removes the parameter
        std::string program;
        int rc;
        double start_hz, end_hz, sweep_time, delay;
        bool complete;
        const char* steps_name;
    };
    const double down = 400 * 20e-6;
    const std::vector<Case> cases = {
        {"basic program", {}, pulse_program(), 0, 450000.0, 50000.0, down, 501e-6, true, "L_31"},
        {"other slots and events", {{"P_5", "10.0"}, {"L_7", "800"}, {"D_4", "0.002"}},
         pulse_program("p5", "l7", "   d4\n   10m setnmr3|1\n   5u"), 0, 450000.0, 50000.0, 800 * 10e-6,
         0.002 + 0.010 + 5e-6 + 500e-6, true, "L_7"},
        {"upward sweep", {{"REVERSE", "0"}}, pulse_program(), 0, 50000.0, 450000.0, down, 501e-6, true, "L_31"},
        {"no pulse program", {}, "", 0, 450000.0, 50000.0, down, 501e-6, false, "L_31"},
        {"no pre-scan delay", {{"DE", ""}}, pulse_program(), 0, 450000.0, 50000.0, down, 1e-6, false, "L_31"},
        {"no excitation range", {{"EXC_low", ""}}, pulse_program(), -15, 0, 0, 0, 0, false, ""},
        {"one-point range", {{"EXC_low", "2000.0"}}, pulse_program(), -15, 0, 0, 0, 0, false, ""},
        {"no calibration", {{"ML1", "0"}}, pulse_program(), -15, 0, 0, 0, 0, false, ""},
        {"zero step time", {{"P_3", "0"}}, pulse_program(), -15, 0, 0, 0, 0, false, ""},
        {"one step", {{"L_31", "1"}}, pulse_program(), -15, 0, 0, 0, 0, false, ""},
        {"step count not a number", {{"L_31", "many"}}, pulse_program(), -15, 0, 0, 0, 0, false, ""},
        {"loop slot not in the method", {{"L_31", ""}}, pulse_program(), -15, 0, 0, 0, 0, false, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto v = method_values();
        for (const auto& [k, x] : c.changes) {
            if (x.empty())
                v.erase(k);
            else
                v[k] = x;
        }
        BrukerExcitation e;
        RecordingUi ui;
        ASSERT_EQ(bruker_excitation_from(v, c.program, e, ui), c.rc);
        if (c.rc != 0) {
            ASSERT_FALSE(ui.messages.empty());
            EXPECT_EQ(ui.messages.front().title, "Insufficient information to phase data.");
            continue;
        }
        EXPECT_NEAR(e.start_hz, c.start_hz, 1e-6);
        EXPECT_NEAR(e.end_hz, c.end_hz, 1e-6);
        EXPECT_NEAR(e.sweep_time, c.sweep_time, 1e-12);
        EXPECT_NEAR(e.delay, c.delay, 1e-12);
        EXPECT_NEAR(e.rate, (c.end_hz - c.start_hz) / (c.sweep_time * 1e6), 1e-9);
        EXPECT_EQ(e.complete, c.complete);
        EXPECT_EQ(e.steps_name, c.steps_name);
    }
}

TEST(BrukerExcite, LeadingPointsAreTheZerosAndTheRise) {
    struct Case {
        const char* name;
        std::vector<float> x;
        std::size_t expected;
    };
    std::vector<float> rise(300, 0.0f);
    for (std::size_t i = 24; i < rise.size(); ++i) rise[i] = (i % 2 ? -1.0f : 1.0f) * (i < 40 ? (i - 23) * 10.0f : 1000.0f);
    std::vector<float> clean(300, 0.0f);
    for (std::size_t i = 0; i < clean.size(); ++i) clean[i] = i % 2 ? -500.0f : 500.0f;
    const std::vector<Case> cases = {
        {"zeros then a rise", rise, 33},  // the first sample of at least a tenth of the top: 100 at index 33
        {"signal from the first sample", clean, 0},
        {"all zeros", std::vector<float>(100, 0.0f), 0},
        {"empty", {}, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(bruker_leading_points(c.x), c.expected);
    }
}

TEST(ChirpSeek, LineWidthsOfKnownShapes) {
    // A Lorentzian of half width g has FWHM 2 g; its magnitude companion here
    // a wider one. Lines cut by the end of the array or by a taller neighbour
    // are not measurable.
    const std::size_t n = 4000;
    auto lorentz = [](double x, double x0, double g, double h) { return h / (1.0 + (x - x0) * (x - x0) / (g * g)); };
    std::vector<float> mag(n), abs(n);
    for (std::size_t k = 0; k < n; ++k) {
        const double x = static_cast<double>(k);
        mag[k] = static_cast<float>(lorentz(x, 1000, 10.0, 5.0) + lorentz(x, 2500, 6.0, 3.0) + lorentz(x, 3999, 5, 9));
        abs[k] = static_cast<float>(lorentz(x, 1000, 5.0, 5.0) + lorentz(x, 2500, 2.0, 3.0) + lorentz(x, 3999, 2, 9));
    }
    EXPECT_NEAR(line_fwhm(mag, 1000), 20.0, 0.05);
    EXPECT_NEAR(line_fwhm(abs, 2500), 4.0, 0.05);
    EXPECT_EQ(line_fwhm(mag, 3999), 0.0);  // runs off the end
    // The tallest line has its top on the last point: no line of the band.
    const std::vector<WidthRow> rows = width_table(mag, abs, 2.0, 0, n, 10);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].point, 1000u);
    EXPECT_NEAR(rows[0].ratio, 2.0, 0.01);
    EXPECT_NEAR(rows[0].frequency, 2000.0, 1e-9);
    EXPECT_NEAR(rows[0].height_ratio, 1.0, 1e-4);
    EXPECT_NEAR(rows[1].ratio, 3.0, 0.05);
    EXPECT_NEAR(median_ratio(rows), 2.5, 0.05);
    EXPECT_EQ(median_ratio({}), 0.0);
}

// ---------------------------------------------------------------------------
// Whole runs on simulated acquisitions: the chirp the method describes, ions
// that live through the acquisition.

struct SimD {
    std::string path;
    SimParameters p;
    std::vector<double> freqs;
};

SimD simulated_d(const TempDir& dir, const std::string& name, const std::map<std::string, std::string>& changes,
                 bool upward, std::size_t zeros, bool program = true) {
    SimD d;
    SimParameters& p = d.p;
    p.points = 1 << 17;
    p.dbandwidth = 500000.0;
    p.noise = 0.002;
    p.int_storage = false;
    p.seed = 5;
    p.collected_on = "2026-01-02";
    p.lowfreq = upward ? 50000.0 : 450000.0;  // the start of the chirp
    p.highfreq = upward ? 450000.0 : 50000.0;
    p.sweeprate = 400000.0 / (400 * 20.0);
    // The method's delay (1 us + DE) is the time of the first sample of the
    // fid; the digitiser's zeros come before the signal.
    p.delay = 501e-6 + static_cast<double>(zeros) / (2.0 * p.dbandwidth);
    std::vector<SimIon> ions;
    for (double mz = 150.0; mz < 3000.0; mz *= 1.05) {
        const double f = ion_frequency(p, mz);
        if (f > 60000.0 && f < 440000.0) {
            ions.push_back({mz, 0.3 + 0.7 * std::fabs(std::sin(mz)), 0.0});
            d.freqs.push_back(f);
        }
    }
    EXPECT_GE(ions.size(), 6u);
    std::vector<float> volts;
    RecordingUi ui;
    EXPECT_EQ(simulate_samples(p, ions, volts, ui), 0);
    const fs::path root = dir.path() / name;
    fs::create_directories(root / "sim.m");
    auto v = method_values();
    v["TD"] = std::to_string(p.points);
    v["REVERSE"] = upward ? "0" : "1";
    for (const auto& [k, x] : changes) {
        if (x.empty())
            v.erase(k);
        else
            v[k] = x;
    }
    test::write_file((root / "sim.m" / "apexAcquisition.method").string(), method_xml(v));
    if (program) test::write_file((root / "sim.m" / "PULPROG__basic.compiled").string(), pulse_program());
    std::string fid(static_cast<std::size_t>(p.points) * 4, '\0');
    for (std::size_t i = zeros; i < static_cast<std::size_t>(p.points); ++i) {
        const auto c = static_cast<std::int32_t>(std::lround(volts[i - zeros] * 524288.0));
        for (int b = 0; b < 4; ++b) fid[i * 4 + b] = static_cast<char>((static_cast<std::uint32_t>(c) >> (8 * b)) & 0xff);
    }
    test::write_file((root / "fid").string(), fid);
    d.path = root.string();
    return d;
}

TEST(BrukerPhase, SimulatedAcquisitionsComeOutInAbsorption) {
    TempDir dir;
    struct Case {
        const char* name;
        std::map<std::string, std::string> changes;
        bool upward;
        std::size_t zeros;
        bool program;
        int seek;
        const char* found_by;
    };
    const std::vector<Case> cases = {
        {"downward sweep from the method", {}, false, 0, true, 0, "method"},
        {"upward sweep from the method", {}, true, 0, true, 0, "method"},
        {"digitiser zeros before the signal", {}, false, 24, true, 0, "method"},
        {"downward sweep, searched", {}, false, 0, true, -1, "searched"},
        {"upward sweep, searched", {}, true, 0, true, -1, "searched"},
        {"pre-scan delay missing: searched", {{"DE", ""}}, false, 0, true, -1, "searched"},
        {"no pulse program: searched", {}, false, 0, false, -1, "searched"},
        {"rate 0.3 % off: searched", {{"P_3", "20.06"}}, false, 0, true, -1, "searched"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const SimD d = simulated_d(dir, fmt::format("s{}.d", &c - cases.data()), c.changes, c.upward, c.zeros,
                                   c.program);
        Workspace ws;
        RecordingUi ui;
        const int slot = open_any_file(ws, d.path, ui);
        ASSERT_GE(slot, 0);
        Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
        PhaseRunOptions o;
        o.zerofills = 2;
        o.method = PHASE_VECTOR;
        o.chirp_seek = c.seek;
        o.workers = 2;
        PhaseRunResult r;
        ASSERT_EQ(phase_spectrum(s, o, ui, &r), 0) << (ui.messages.empty() ? "" : ui.messages.front().text);
        EXPECT_EQ(r.excitation, c.found_by) << ui.console;
        std::vector<float> mag(s.data.size());
        for (std::size_t k = 0; k < mag.size(); ++k) mag[k] = std::hypot(s.realdata[k], s.imagdata[k]);
        std::vector<double> ratios;
        for (double f : d.freqs) {
            const auto k = static_cast<std::size_t>(std::lround(f / s.hzppt));
            // A line that lives through the acquisition turns by pi times its
            // offset from the true frequency in bins (4 points at 2 zero-fills):
            // at the point nearest the top the absorption is the magnitude
            // times the cosine of that, when the curve is right.
            std::size_t top = k;
            for (std::size_t j = k - 3; j <= k + 3; ++j)
                if (mag[j] > mag[top]) top = j;
            const double offset = (static_cast<double>(top) - f / s.hzppt) / 4.0;
            EXPECT_GT(s.data[top] / mag[top], std::cos(std::numbers::pi * offset) - 0.015)
                << f << " Hz: the line's top is not in absorption";
            ratios.push_back(line_fwhm(mag, top) / line_fwhm(s.data, top));
        }
        std::sort(ratios.begin(), ratios.end());
        EXPECT_GE(ratios[ratios.size() / 2], 1.9);
    }
}

TEST(BrukerPhase, PanelsTakeTheSameRoad) {
    // "Absorption Mode Controls" (phase_command) and "Phasing the Data" in its
    // absorption mode (phasing_process_command) on an opened .d.
    TempDir dir;
    const SimD d = simulated_d(dir, "panel.d", {}, false, 0);
    for (int panel = 0; panel < 2; ++panel) {
        SCOPED_TRACE(panel == 0 ? "PHASE2" : "PHASE");
        Workspace ws;
        RecordingUi ui;
        const int slot = open_any_file(ws, d.path, ui);
        ASSERT_GE(slot, 0);
        ws.active_panel = slot;
        PhaseRunResult r;
        PhaseProcessOptions po;
        po.run.zerofills = 1;
        const int rc = panel == 0 ? phase_command(ws, po.run, ui, &r)
                                  : phasing_process_command(ws, slot, -1, po, false, ui, &r, nullptr);
        ASSERT_EQ(rc, 0) << (ui.messages.empty() ? "" : ui.messages.front().text);
        EXPECT_EQ(r.excitation, "searched");
        EXPECT_NEAR(r.sweep_rate, -50.0, 0.05);
        EXPECT_NE(ws.panels[static_cast<std::size_t>(slot)].spectrum.domain, DOMAIN_TIME);  // shown as a spectrum
    }
}

TEST(BrukerPhase, MissingExcitationStopsTheRun) {
    TempDir dir;
    const SimD d = simulated_d(dir, "bad.d", {{"EXC_hi", ""}}, false, 0);
    const test::CliRun run = test::run_cli(dir.path().string(), fmt::format("phase {} --json", d.path), true);
    EXPECT_NE(run.status, 0);
    EXPECT_NE(run.out.find("Insufficient information to phase data."), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("EXC_low, EXC_hi"), std::string::npos) << run.out;
}

TEST(BrukerPhase, CommandLineReportsTheCurveAndTheWidths) {
    TempDir dir;
    const SimD d = simulated_d(dir, "cli.d", {}, false, 0);
    const std::string out = dir.file("abs.csv");
    const test::CliRun run = test::run_cli(
        dir.path().string(), fmt::format("phase {} --zerofills 2 --widths 5 --chirp-seek none -o {} --json", d.path, out));
    ASSERT_EQ(run.status, 0) << run.out;
    const auto j = nlohmann::json::parse(run.out);
    EXPECT_EQ(j["excitation"], "method");
    EXPECT_NEAR(j["sweep_rate"].get<double>(), -50.0, 1e-9);
    EXPECT_NEAR(j["delay_s"].get<double>(), 501e-6, 1e-12);
    EXPECT_EQ(j["widths"].size(), 5u);
    EXPECT_GE(j["median_width_ratio"].get<double>(), 1.9);
    EXPECT_TRUE(fs::exists(out));
}

// ---------------------------------------------------------------------------
// The real acquisition: the 10 tallest lines, magnitude against absorption,
// same transform (3 zero-fills, no window). Reached: median width ratio 1.73
// from the method's curve and 1.72 searched; the test holds it above 1.6. The
// search puts the 60 tallest lines of the band in absorption (median height
// ratio absorption / magnitude 0.95, against 0.69 from the method's curve).

struct RealRun {
    double median = 0.0, heights = 0.0;
    PhaseRunResult r;
};

RealRun real_run(const std::string& path, int seek) {
    RealRun out;
    Workspace ws;
    RecordingUi ui;
    const int slot = open_any_file(ws, path, ui);
    EXPECT_GE(slot, 0);
    if (slot < 0) return out;
    Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    PhaseRunOptions o;
    o.zerofills = 3;
    o.chirp_seek = seek;
    EXPECT_EQ(phase_spectrum(s, o, ui, &out.r), 0);
    std::vector<float> mag(s.data.size());
    for (std::size_t k = 0; k < mag.size(); ++k) mag[k] = std::hypot(s.realdata[k], s.imagdata[k]);
    const auto start = static_cast<std::size_t>(out.r.band_start), end = static_cast<std::size_t>(out.r.band_end);
    const auto rows = width_table(mag, s.data, s.hzppt, start, end, 10);
    EXPECT_EQ(rows.size(), 10u);
    out.median = median_ratio(rows);
    std::vector<double> h;
    for (const WidthRow& w : width_table(mag, s.data, s.hzppt, start, end, 60)) h.push_back(w.height_ratio);
    std::sort(h.begin(), h.end());
    out.heights = h.empty() ? 0.0 : h[h.size() / 2];
    return out;
}

TEST(BrukerPhase, RealAcquisitionWidthRatio) {
    if (!fs::exists(REAL_D)) GTEST_SKIP() << REAL_D << " is not here: the real acquisition is not phased";
    const RealRun method = real_run(REAL_D, 0);
    EXPECT_GE(method.median, 1.6);
    EXPECT_EQ(method.r.excitation, "method");
    EXPECT_NEAR(method.r.sweep_rate, -31.19, 0.01);
    const RealRun searched = real_run(REAL_D, -1);
    EXPECT_EQ(searched.r.excitation, "searched");
    EXPECT_GE(searched.median, 1.6);
    EXPECT_GE(searched.heights, 0.9);
    EXPECT_GT(searched.heights, method.heights);
}

TEST(BrukerPhase, RealAcquisitionWithoutPreScanDelayIsFoundBySearch) {
    if (!fs::exists(REAL_D)) GTEST_SKIP() << REAL_D << " is not here: the real acquisition is not phased";
    // The same fid (linked, not copied) beside a method that lacks DE.
    TempDir dir;
    const fs::path d = dir.path() / "noDE.d";
    fs::create_directories(d / "m.m");
    fs::create_symlink(fs::canonical(fs::path(REAL_D) / "fid"), d / "fid");
    std::string xml = test::read_file(REAL_D + "/ESI_pos_12032018.m/apexAcquisition.method");
    const auto at = xml.find("<param><name>DE</name>");
    ASSERT_NE(at, std::string::npos);
    xml.erase(at, xml.find("</param>", at) + 8 - at);
    test::write_file((d / "m.m" / "apexAcquisition.method").string(), xml);
    test::write_file((d / "m.m" / "PULPROG__basic.compiled").string(),
                     test::read_file(REAL_D + "/ESI_pos_12032018.m/PULPROG__basic.compiled"));
    const RealRun run = real_run(d.string(), -1);
    EXPECT_GE(run.median, 1.6);
    EXPECT_GE(run.heights, 0.9);
    EXPECT_EQ(run.r.excitation, "searched");
    EXPECT_NEAR(run.r.model.bracket, 3.5e-3, 0.2e-3);  // the pre-scan delay found again
}

}  // namespace
}  // namespace vx
