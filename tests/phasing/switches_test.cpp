// The switches of the expert phasing panel, headless: the transient steps
// before the transform, the "T2" questions, "Simple", "B" / "M", "I", the
// score range, the zoom to the excited band, and the axis of the transfer
// function.
#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "phasing/phase_command.hpp"
#include "phasing/phase_modes.hpp"
#include "phasing/phasing_callback.hpp"
#include "platform/ui.hpp"
#include "sim/simulator.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

constexpr double PI = std::numbers::pi;
using test::TempDir;

std::string simulate(const TempDir& dir, const std::string& name, double scale = 1.0, int points = 1 << 15,
                     double low = 20000.0, double high = 500000.0) {
    SimParameters p;
    p.points = points;
    p.noise = 0.002;
    p.int_storage = false;
    p.seed = 5;
    p.collected_on = "2026-01-02";
    p.lowfreq = low;
    p.highfreq = high;
    std::vector<SimIon> ions;
    for (double mz : {300.0, 480.0, 640.0, 900.0, 1300.0}) ions.push_back({mz, scale, 0.0});
    RecordingUi ui;
    const std::string path = dir.file(name);
    EXPECT_EQ(write_simulated_file(path, p, ions, ui), 0);
    return path;
}

Spectrum transient(std::size_t n, float value) {
    Spectrum s;
    s.domain = DOMAIN_TIME;
    s.dbandwidth = 1000000.0;
    s.datacount = static_cast<std::int32_t>(n);
    s.data.assign(n, value);
    for (std::size_t i = 0; i < n; ++i) s.data[i] = value + static_cast<float>(i);
    return s;
}

TEST(PhaseSwitches, SkipDataPointsKeepsHalfFromTheSkip) {
    struct Case {
        long long skip;
        int rc;
        std::size_t length;
        float first;
    };
    const std::vector<Case> cases = {
        {0, 0, 4096, 0.0f},        // nothing to skip: the record as it was
        {100, 0, 2048, 100.0f},    // half the samples, from the 100th
        {2048, 0, 2048, 2048.0f},  // the largest skip allowed
        {2049, -4, 4096, 0.0f},    // more than half: refused, record unchanged
    };
    for (const Case& c : cases) {
        RecordingUi ui;
        Spectrum s = transient(4096, 0.0f);
        EXPECT_EQ(SkipDataPoints(s, c.skip, ui), c.rc) << c.skip;
        EXPECT_EQ(s.data.size(), c.length) << c.skip;
        EXPECT_EQ(s.datacount, static_cast<std::int32_t>(c.length)) << c.skip;
        EXPECT_EQ(s.data.front(), c.first) << c.skip;
        EXPECT_EQ(ui.messages.size(), c.rc < 0 ? 1u : 0u) << c.skip;
    }
}

TEST(PhaseSwitches, BackgroundIsSubtractedOnlyDuringTheExcitation) {
    Spectrum bg = transient(1024, 1.0f);
    struct Case {
        std::size_t length;
        long long excite;
        int rc;
    };
    for (const Case& c : std::vector<Case>{{1024, 100, 0}, {1024, 1024, 0}, {512, 100, -1}, {1024, 1025, -2}, {1024, -1, -2}}) {
        Spectrum s = transient(c.length, 5.0f);
        const std::vector<float> before = s.data;
        EXPECT_EQ(SubtractFile(s, bg, c.excite), c.rc) << c.length << " " << c.excite;
        for (std::size_t i = 0; i < s.data.size(); ++i) {
            const bool inside = c.rc == 0 && static_cast<long long>(i) < c.excite;
            ASSERT_EQ(s.data[i], inside ? before[i] - bg.data[i] : before[i]) << i;
        }
    }
}

TEST(PhaseSwitches, AutoZeroBlanksTheExcitationOfTheDataAndTheRestOfTheExciteFile) {
    Spectrum data = transient(8192, 1.0f), excite = transient(8192, 1.0f);
    // e0 = 1 ms at 2 MHz sampling is 2000 samples; 0.1 ms more or less is 200.
    AutoZero(&data, &excite, 0.001, 0.0001, 0.0001);
    for (std::size_t i = 0; i < 8192; ++i) {
        ASSERT_EQ(data.data[i] == 0.0f, i < 2200) << i;
        ASSERT_EQ(excite.data[i] == 0.0f, i >= 1800) << i;
    }
    Spectrum only = transient(8192, 1.0f);
    AutoZero(nullptr, &only, 0.001, 0.0005, 0.0);  // no data file: only the excite file changes
    EXPECT_EQ(only.data[1999], 1999.0f + 1.0f);
    EXPECT_EQ(only.data[2000], 0.0f);
}

TEST(PhaseSwitches, TheFiveQuestionsScaleTheirAnswers) {
    struct Case {
        std::vector<std::optional<std::string>> answers;
        bool ok;
        bool extra;
    };
    const std::vector<Case> cases = {
        {{"60", "200", "150", "1.5", "T"}, true, true},
        {{"60", "200", "150", "1.5", "F"}, true, false},
        {{"60", std::nullopt}, false, false},                 // cancelled at the second question
        {{"60", "200", "fast", "1.5", "T"}, false, false},    // not a number
    };
    for (const Case& c : cases) {
        RecordingUi ui;
        for (const auto& a : c.answers) ui.prompts.push_back(a);
        PhaseRunOptions::Excitation e;
        bool extra = false;
        EXPECT_EQ(prompt_phase_parameters(ui, e, extra), c.ok);
        if (!c.ok) continue;
        EXPECT_DOUBLE_EQ(e.lowfreq, 60000.0);
        EXPECT_DOUBLE_EQ(e.highfreq, 200000.0);
        EXPECT_DOUBLE_EQ(e.sweeprate, 150.0);
        EXPECT_DOUBLE_EQ(e.delay, 0.0015);
        EXPECT_EQ(extra, c.extra);
        const std::vector<std::string> texts = {"Start frequency (KHz)", "End frequency (KHz)", "Chrip rate (Hz/us)",
                                                "Delay (ms)", "Extra Point (T/F)"};
        ASSERT_EQ(ui.messages.size(), 5u);
        for (std::size_t i = 0; i < 5; ++i) {
            EXPECT_EQ(ui.messages[i].kind, "prompt");
            EXPECT_EQ(ui.messages[i].title, "Please provide the necessary phasing parameters");
            EXPECT_EQ(ui.messages[i].text, texts[i]);
        }
    }
}

struct Opened {
    Workspace ws;
    int slot = -1;
};

void open_into(Opened& o, const std::string& path) {
    RecordingUi ui;
    o.slot = test::open_tulva_file(o.ws, path, ui);
    ASSERT_GE(o.slot, 0);
    o.ws.active_panel = o.slot;
}

TEST(PhaseSwitches, T2AsksAndScoresAndZoomsTheEnteredBand) {
    TempDir dir;
    const std::string path = simulate(dir, "t2.dat");
    // Answered: the entered band replaces the script's, and the display zooms to it.
    {
        Opened o;
        open_into(o, path);
        RecordingUi ui;
        for (const char* a : {"60", "200", "150", "0.5", "F"}) ui.prompts.push_back(std::string(a));
        PhasingPanelValues v;
        v.test2 = true;
        PhasingOutcome out;
        ASSERT_EQ(PhasingCallback(o.ws, o.slot, -1, -1, v, ui, &out), 0);
        const Spectrum& s = o.ws.panels[static_cast<std::size_t>(o.slot)].spectrum;
        EXPECT_EQ(out.run.band_start, static_cast<long long>(std::floor(60000.0 / s.hzppt)));
        EXPECT_EQ(out.run.band_end, static_cast<long long>(std::ceil(200000.0 / s.hzppt)));
        EXPECT_TRUE(out.zoomed);
        EXPECT_EQ(o.ws.panels[static_cast<std::size_t>(o.slot)].xmin, static_cast<double>(out.run.band_start));
        EXPECT_EQ(o.ws.panels[static_cast<std::size_t>(o.slot)].xmax, static_cast<double>(out.run.band_end));
        EXPECT_DOUBLE_EQ(s.delay, 0.0005);
    }
    // Cancelled: the insufficient-information message, the transient untouched.
    {
        Opened o;
        open_into(o, path);
        const std::vector<float> before = o.ws.panels[static_cast<std::size_t>(o.slot)].spectrum.data;
        RecordingUi ui;
        ui.prompts.push_back(std::nullopt);
        PhasingPanelValues v;
        v.test2 = true;
        v.skip_points = 16;  // a step that changed the transient before the question
        EXPECT_EQ(PhasingCallback(o.ws, o.slot, -1, -1, v, ui, nullptr), -15);
        EXPECT_TRUE(ui.saw("Insufficient information to phase data.",
                           "Phasing can not continue with current information. Exiting."));
        const Spectrum& s = o.ws.panels[static_cast<std::size_t>(o.slot)].spectrum;
        EXPECT_EQ(s.domain, DOMAIN_TIME);
        EXPECT_EQ(s.data, before);
    }
    // "T" asks only when the script leaves a value out: this one has them all.
    {
        Opened o;
        open_into(o, path);
        RecordingUi ui;
        PhasingPanelValues v;
        v.process.run.test = true;
        ASSERT_EQ(PhasingCallback(o.ws, o.slot, -1, -1, v, ui, nullptr), 0);
        for (const auto& m : ui.messages) EXPECT_NE(m.kind, "prompt");
    }
}

TEST(PhaseSwitches, ScoreRangeReplacesTheExcitedBand) {
    TempDir dir;
    const std::string path = simulate(dir, "range.dat");
    struct Case {
        double lo, hi;
        bool own;
    };
    for (const Case& c : std::vector<Case>{{-1.0, -1.0, false}, {100000.0, 150000.0, true}, {150000.0, 100000.0, false}}) {
        Opened o;
        open_into(o, path);
        RecordingUi ui;
        PhasingPanelValues v;
        v.process.run.score_lo = c.lo;
        v.process.run.score_hi = c.hi;
        PhasingOutcome out;
        ASSERT_EQ(PhasingCallback(o.ws, o.slot, -1, -1, v, ui, &out), 0);
        const double hz = o.ws.panels[static_cast<std::size_t>(o.slot)].spectrum.hzppt;
        const double lo = c.own ? c.lo : 20000.0, hi = c.own ? c.hi : 500000.0;
        EXPECT_EQ(out.run.band_start, static_cast<long long>(std::floor(lo / hz))) << c.lo;
        EXPECT_EQ(out.run.band_end, static_cast<long long>(std::ceil(hi / hz))) << c.lo;
    }
}

TEST(PhaseSwitches, SimplePhaseTakesTheQuarterTurnOrIteratesByDegrees) {
    TempDir dir;
    struct Case {
        const char* name;
        double low, high;
        bool iterate;
        double constant;  // expected without iterate
    };
    const std::vector<Case> cases = {
        {"rising", 20000.0, 500000.0, false, -PI / 4.0},
        {"falling", 500000.0, 20000.0, false, PI / 4.0},
        {"rising, iterate", 20000.0, 500000.0, true, 0.0},
    };
    for (const Case& c : cases) {
        const std::string path = simulate(dir, std::string(c.name) + ".dat", 1.0, 1 << 14, c.low, c.high);
        Opened o;
        open_into(o, path);
        RecordingUi ui;
        PhasingPanelValues v;
        v.simple = true;
        v.iterate_c = c.iterate;
        v.process.run.roll = true;
        PhasingOutcome out;
        ASSERT_EQ(PhasingCallback(o.ws, o.slot, -1, -1, v, ui, &out), 0) << c.name;
        const Spectrum& s = o.ws.panels[static_cast<std::size_t>(o.slot)].spectrum;
        EXPECT_NE(s.domain, DOMAIN_TIME) << c.name;
        EXPECT_EQ(s.datacount, 1 << 13) << c.name;  // no zero-fill asked
        EXPECT_TRUE(out.zoomed) << c.name;
        if (c.iterate) {
            // 360 trials printed, the best a whole degree in [-180, 179].
            EXPECT_NE(ui.console.find("m = -180\n"), std::string::npos);
            EXPECT_NE(ui.console.find("m = 179\n"), std::string::npos);
            EXPECT_EQ(ui.console.find("m = 180\n"), std::string::npos);
            EXPECT_GE(out.simple.best_degrees, -180);
            EXPECT_LE(out.simple.best_degrees, 179);
            EXPECT_DOUBLE_EQ(out.simple.constant, out.simple.best_degrees * PI / 180.0);
            EXPECT_GT(out.simple.score, 0.0);
        } else {
            EXPECT_EQ(out.simple.best_degrees, 361) << c.name;
            EXPECT_DOUBLE_EQ(out.simple.constant, c.constant) << c.name;
            EXPECT_EQ(ui.console.find("m = "), std::string::npos);
        }
        EXPECT_NE(ui.console.find("Theoretical Phase is"), std::string::npos) << c.name;
    }
}

TEST(PhaseSwitches, TransformOnlyLeavesTheComplexSpectrumForTheManualPanel) {
    TempDir dir;
    const std::string path = simulate(dir, "b.dat");
    for (bool manual : {false, true}) {
        Opened o;
        open_into(o, path);
        RecordingUi ui;
        PhasingPanelValues v;
        v.batch = !manual;
        v.manual = manual;
        PhasingOutcome out;
        ASSERT_EQ(PhasingCallback(o.ws, o.slot, -1, -1, v, ui, &out), 0);
        EXPECT_TRUE(out.stopped_after_transform);
        EXPECT_FALSE(out.run.searched);
        EXPECT_EQ(out.run.evaluations, 0);
        Spectrum& s = o.ws.panels[static_cast<std::size_t>(o.slot)].spectrum;
        ASSERT_EQ(s.realdata.size(), static_cast<std::size_t>(s.datacount));
        EXPECT_EQ(s.data, s.realdata);  // the real part, not rotated
        ManualPhaseValues m;
        m.zero = 0.5;
        EXPECT_EQ(ManualPhase(s, m, nullptr), 0);
        EXPECT_NEAR(s.data[100], s.realdata[100] * std::cos(0.5) - s.imagdata[100] * std::sin(0.5), 1e-3);
    }
}

TEST(PhaseSwitches, InverseLeavesAPhaseCorrectedTransient) {
    TempDir dir;
    const std::string path = simulate(dir, "i.dat");
    Opened o;
    open_into(o, path);
    RecordingUi ui;
    PhasingPanelValues v;
    v.inverse = true;
    v.process.run.truncations = 1;  // skipped on the inverse path
    PhasingOutcome out;
    ASSERT_EQ(PhasingCallback(o.ws, o.slot, -1, -1, v, ui, &out), 0);
    EXPECT_TRUE(out.inverse_done);
    const Spectrum& s = o.ws.panels[static_cast<std::size_t>(o.slot)].spectrum;
    EXPECT_EQ(s.domain, DOMAIN_TIME);
    EXPECT_EQ(s.storagemode, 1);
    EXPECT_EQ(s.datacount, 1 << 15);
    EXPECT_NE(ui.console.find("use_delayf3 = "), std::string::npos);
}

TEST(PhaseSwitches, BackgroundSubtractionNeedsAMatchingFile) {
    TempDir dir;
    const std::string data = simulate(dir, "d.dat");
    const std::string same = simulate(dir, "same.dat", 1.0);
    const std::string shorter = simulate(dir, "short.dat", 1.0, 1 << 14);
    // The data less itself during the excitation: those samples are zero, the
    // rest unchanged; the phased spectrum of the rest still comes out.
    {
        Opened o;
        open_into(o, data);
        RecordingUi ui;
        const int bg = test::open_tulva_file(o.ws, same, ui);
        ASSERT_GE(bg, 0);
        const Spectrum& s = o.ws.panels[static_cast<std::size_t>(o.slot)].spectrum;
        PhasingPanelValues v;
        v.subtract_background = true;
        v.batch = true;  // stop after the transform: the transient steps are what is tested
        const std::vector<float> bgdata = o.ws.panels[static_cast<std::size_t>(bg)].spectrum.data;
        PhasingOutcome out;
        ASSERT_EQ(PhasingCallback(o.ws, o.slot, bg, -1, v, ui, &out), 0);
        EXPECT_TRUE(out.background_used);
        EXPECT_NE(s.domain, DOMAIN_TIME);
        // The background panel keeps what was read.
        EXPECT_EQ(o.ws.panels[static_cast<std::size_t>(bg)].spectrum.data, bgdata);
    }
    // Lengths differ: a message, the data transient as it was.
    {
        Opened o;
        open_into(o, data);
        RecordingUi ui;
        const int bg = test::open_tulva_file(o.ws, shorter, ui);
        ASSERT_GE(bg, 0);
        const std::vector<float> before = o.ws.panels[static_cast<std::size_t>(o.slot)].spectrum.data;
        PhasingPanelValues v;
        v.subtract_background = true;
        v.autozero_data = true;
        EXPECT_EQ(PhasingCallback(o.ws, o.slot, bg, -1, v, ui, nullptr), -1);
        EXPECT_EQ(ui.messages.back().title, "Phasing the Data");
        EXPECT_EQ(o.ws.panels[static_cast<std::size_t>(o.slot)].spectrum.data, before);
        // And no background at all.
        EXPECT_EQ(PhasingCallback(o.ws, o.slot, -1, -1, v, ui, nullptr), -1);
        EXPECT_EQ(o.ws.panels[static_cast<std::size_t>(o.slot)].spectrum.data, before);
    }
}

TEST(PhaseSwitches, TransferFunctionHasTheAxisOfItsSampleInterval) {
    TempDir dir;
    const std::string data = simulate(dir, "data.dat", 1.0);
    const std::string blank = simulate(dir, "blank.dat", 0.5);
    for (bool true_axis : {false, true}) {
        RecordingUi ui;
        Spectrum d, b;
        {
            Opened o;
            open_into(o, data);
            d = o.ws.panels[static_cast<std::size_t>(o.slot)].spectrum;
            open_into(o, blank);
            b = o.ws.panels[static_cast<std::size_t>(o.slot)].spectrum;
        }
        const double bw = d.dbandwidth;
        const double count = d.datacount;
        std::vector<float> phase;
        ASSERT_EQ(transfer_function(d, b, &phase, ui, true_axis), 0);
        ASSERT_EQ(d.datacount, 1 << 14);
        // TransferFunction's step 1 / (count dt) with dt = 1 / BW: half the
        // step of the samples' own spectrum, which true_axis gives instead.
        EXPECT_DOUBLE_EQ(d.hzppt, (true_axis ? 2.0 : 1.0) * bw / count);
        EXPECT_DOUBLE_EQ(d.dbandwidth / d.datacount, d.hzppt);
        EXPECT_EQ(phase.size(), d.data.size());
    }
}

}  // namespace
}  // namespace vx
