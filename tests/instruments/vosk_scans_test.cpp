// The Vosk special analysis: scans cut from one record, COF and sweep rate.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <numbers>

#include "batch/vosk_scans.hpp"
#include "platform/ui.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

// A record of k scans end to end, each a tone of f0 + r k Hz, at 2 x bw samples/s.
int record_slot(Workspace& ws, int scans, long long points, double f0, double r, double bw) {
    AnalysisPanel& p = ws.panels[0];
    p.spectrum.data.resize(static_cast<std::size_t>(scans * points));
    for (int k = 0; k < scans; ++k)
        for (long long i = 0; i < points; ++i)
            p.spectrum.data[static_cast<std::size_t>(k * points + i)] = static_cast<float>(
                std::cos(2.0 * std::numbers::pi * (f0 + r * k) * static_cast<double>(i) / (2.0 * bw)));
    p.spectrum.datacount = static_cast<std::int32_t>(p.spectrum.data.size());
    p.spectrum.dbandwidth = bw;
    p.spectrum.domain = DOMAIN_TIME;
    p.active = 1;
    return 0;
}

TEST(VoskSpecial, CofFollowsAMovingToneAndGivesItsSweepRate) {
    Workspace ws;
    const double bw = 1.0e6, r = 1500.0, f0 = 200000.0;
    const long long n = 8192;
    record_slot(ws, 10, n, f0, r, bw);
    VoskSpecialParams p;
    p.points = n;
    p.step = n;
    p.process = true;
    p.cof = true;
    p.cofthresh = 3000.0;  // 2.5% of the tone: the window's skirt and the DC point of a tone of broken periods stay out
    RecordingUi ui;
    VoskSpecialResult res;
    ASSERT_EQ(ProcessVoskSpecial(ws, 0, p, res, ui), 0);
    ASSERT_EQ(res.scans.size(), 10u);
    const double bin = bw / static_cast<double>(n);  // Hz per point of the zero-filled spectrum is bin / 2
    for (std::size_t k = 0; k < res.scans.size(); ++k)
        EXPECT_NEAR(res.scans[k].cof, f0 + r * static_cast<double>(k), bin) << k;
    ASSERT_EQ(res.sweep_rate.size(), 9u);
    double mean = 0.0;
    for (double v : res.sweep_rate) mean += v / 9.0;
    EXPECT_NEAR(mean, r, 0.01 * r);
    EXPECT_EQ(res.displayed, 10);
}

TEST(VoskSpecial, LimitsNamesAndChecks) {
    EXPECT_EQ(RedoNumberVosk(10000, 0, 1000, 1000), 10);
    EXPECT_EQ(RedoNumberVosk(10000, 500, 1000, 1000), 9);
    EXPECT_EQ(RedoNumberVosk(10000, 0, 1000, 300), 31);
    EXPECT_EQ(RedoNumberVosk(900, 0, 1000, 300), 0);
    Workspace ws;
    record_slot(ws, 4, 1024, 1000.0, 0.0, 1.0e6);
    RecordingUi ui;
    VoskSpecialResult res;
    VoskSpecialParams p;
    p.points = 1024;
    p.step = 1024;
    p.save_raw = true;
    EXPECT_EQ(ProcessVoskSpecial(ws, 0, p, res, ui), -1);
    EXPECT_TRUE(ui.saw("Aborting - Filename is blank.", "please select filename or deselect Save file option."));
    p.save_raw = false;
    p.scans = 5;
    EXPECT_EQ(ProcessVoskSpecial(ws, 0, p, res, ui), -1);
    // 1,000 scans in 32 slots: the ones beyond the free slots are closed at once.
    Workspace big;
    record_slot(big, 1000, 256, 1000.0, 0.0, 1.0e6);
    p.scans = 0;
    p.points = 256;
    p.step = 256;
    RecordingUi ui2;
    ASSERT_EQ(ProcessVoskSpecial(big, 0, p, res, ui2), 0);
    EXPECT_EQ(res.scans.size(), 1000u);
    EXPECT_EQ(res.displayed, MAX_PANELS - 2);  // free slots minus one
    EXPECT_TRUE(ui2.saw("Insufficient Number of Analysis Panels to Display All Results",
                        "Analysis will display 30 of the requested 1000 results due to system limits."));
    int active = 0;
    for (const auto& s : big.panels) active += s.active;
    EXPECT_EQ(active, 1 + 30);
}

TEST(VoskSpecial, ThousandProcessedScansOfEightThousandPointsInUnderTwoSeconds) {
    Workspace ws;
    record_slot(ws, 1000, 8192, 150000.0, 10.0, 1.0e6);
    VoskSpecialParams p;
    p.points = 8192;
    p.step = 8192;
    p.process = true;
    p.cof = true;
    RecordingUi ui;
    VoskSpecialResult res;
    const auto t0 = std::chrono::steady_clock::now();
    ASSERT_EQ(ProcessVoskSpecial(ws, 0, p, res, ui), 0);
    const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    EXPECT_EQ(res.scans.size(), 1000u);
#ifdef NDEBUG
    EXPECT_LT(s, 2.0);
#endif
    RecordProperty("seconds", std::to_string(s));
}

}  // namespace
}  // namespace vx
