// The excitation read from an experiment script: delay bookkeeping across
// events, disabled events, sweep direction, non-chirp and damaged scripts.
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "experiment/excite_script.hpp"
#include "platform/ui.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

using test::TempDir;

// A script of quench, excitation, delay and detection events; extra lines can
// be put before the detection event.
std::string script(const std::string& emode, const std::string& excite_lines, const std::string& before_detect = "",
                   const std::string& after_detect = "") {
    return "Vantorix Data File v4.00\nBegin Experiment Sequence\n"
           "label: Quench\ntime: 0.010\nendevent:\n"
           "label: Excitation\ntime: 0.0032\nexcite:\nemode: " + emode + "\nelength: 0.0032\n" + excite_lines +
           "endevent:\n"
           "label: Delay\ntime: 0.0005\nendevent:\n" + before_detect +
           "label: Detection\ntime: 0.032768\ndetect:\ndmode: direct\ndbandwidth: 1000000.0\ndatacount: 65536\n"
           "endevent:\n" + after_detect + "Data:\n";
}

const std::string UP = "lowfreq: 20000\nhighfreq: 500000\nsweeprate: 150\nloops: 1\n";

TEST(ExciteScript, DelayAndChirpValues) {
    struct Case {
        const char* name;
        std::string text;
        double delay;
        double low, high, rate, chirp_time;
        bool chirp;
    };
    const std::vector<Case> cases = {
        {"upward chirp", script("chirp", UP), 0.0005, 20000, 500000, 150, 0.0032, true},
        {"downward chirp keeps lowfreq as the start",
         script("chirp", "lowfreq: 500000\nhighfreq: 20000\nsweeprate: 150\n"), 0.0005, 500000, 20000, 150, 0.0032, true},
        {"hifreq spelling", script("chirp", "lowfreq: 20000\nhifreq: 500000\nsweeprate: 150\n"), 0.0005, 20000, 500000,
         150, 0.0032, true},
        {"two loops double the chirp time", script("chirp", UP + "loops: 2\n"), 0.0005, 20000, 500000, 150, 0.0064, true},
        {"a second delay event adds", script("chirp", UP, "label: Wait\ntime: 0.0002\nendevent:\n"), 0.0007, 20000,
         500000, 150, 0.0032, true},
        // The disabled event's time was charged by its time line and is taken back.
        {"disabled event before detection", script("chirp", UP, "label: Wait\ntime: 0.0002\ndisabled event\nendevent:\n"),
         0.0005, 20000, 500000, 150, 0.0032, true},
        {"disabled event after detection changes nothing",
         script("chirp", UP, "", "label: After\ntime: 0.5\ndisabled event\nendevent:\n"), 0.0005, 20000, 500000, 150,
         0.0032, true},
        {"SWIFT is no chirp", script("chirp SWIFT", UP), 0.0005, 20000, 500000, 150, 0.0032, false},
        {"single frequency", script("single_freq", UP), 0.0005, 20000, 500000, 150, 0.0032, false},
        {"zero rate has no chirp time", script("chirp", "lowfreq: 20000\nhighfreq: 500000\nsweeprate: 0\n"), 0.0005,
         20000, 500000, 0, 0.0, true},
        {"garbage values read as zero", script("chirp", "lowfreq: abc\nhighfreq: nan\nsweeprate: inf\n"), 0.0005, 0, 0, 0,
         0.0, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const ExciteScript s = scan_excite_script(c.text, false, nullptr);
        EXPECT_TRUE(s.data_marker);
        EXPECT_NEAR(s.delay, c.delay, 1e-12);
        EXPECT_DOUBLE_EQ(s.low, c.low);
        EXPECT_DOUBLE_EQ(s.high, c.high);
        EXPECT_DOUBLE_EQ(s.rate, c.rate);
        EXPECT_NEAR(s.chirp_time(), c.chirp_time, 1e-12);
        EXPECT_EQ(s.chirp(), c.chirp);
        EXPECT_DOUBLE_EQ(s.excite_event_time, 0.0032);
    }
}

TEST(ExciteScript, HifreqQuirkOfTheSecondReader) {
    const ExciteScript s = scan_excite_script(script("chirp", "lowfreq: 20000\nhifreq: 123456\nsweeprate: 150\n"), true,
                                              nullptr);
    EXPECT_DOUBLE_EQ(s.high, 23456.0);  // the blank and the first digit behind the key are lost
}

TEST(ExciteScript, FileReadersAndTheirResults) {
    TempDir dir;
    const std::string good = dir.write("good.dat", script("chirp", UP) + std::string(16, '\0'));
    const std::string swift = dir.write("swift.dat", script("SWIFT chirp", UP));
    const std::string nomarker = dir.write("nomarker.dat", "Vantorix Data File v4.00\nlabel: x\ntime: 1\n");

    RecordingUi ui;
    double hi = -1, lo = -1, rate = -1, delay = -1, bw = -1;
    EXPECT_NEAR(GetExciteTime(good, &hi, &lo, &rate, &delay, &bw, 1, 0, ui), 0.0032, 1e-12);
    EXPECT_DOUBLE_EQ(hi, 500000);
    EXPECT_DOUBLE_EQ(lo, 20000);
    EXPECT_DOUBLE_EQ(bw, 1000000.0);
    EXPECT_NE(ui.console.find("OpenFile in GetExciteTime\n"), std::string::npos);
    EXPECT_NE(ui.console.find("dband_width = 1000000.000000\n"), std::string::npos);

    // A SWIFT excitation leaves the outputs alone and returns the event time (0 from GetExciteTime2).
    hi = lo = -1;
    EXPECT_NEAR(GetExciteTime4(swift, &hi, &lo, &rate, &delay, &bw, 1, ui), 0.0032, 1e-12);
    EXPECT_DOUBLE_EQ(hi, -1);
    EXPECT_DOUBLE_EQ(GetExciteTime2(swift, &hi, &lo, &rate, &delay, &bw, ui), 0.0);

    RecordingUi bad;
    EXPECT_DOUBLE_EQ(GetExciteTime(nomarker, &hi, &lo, &rate, &delay, &bw, 1, 1, bad), -1.0);
    EXPECT_TRUE(bad.saw("File Input Error", "No Data Marker Found"));
    EXPECT_DOUBLE_EQ(GetExciteTime(dir.file("missing.dat"), nullptr, nullptr, nullptr, nullptr, nullptr, 1, 1, bad), -1.0);
    EXPECT_DOUBLE_EQ(GetExciteTime(dir.path().string(), nullptr, nullptr, nullptr, nullptr, nullptr, 1, 1, bad), -1.0);

    Spectrum s;
    s.filename = good;
    EXPECT_NEAR(GetExciteTime3(s, ui), 0.0032, 1e-12);
    EXPECT_NEAR(s.exciteduration, 0.0032, 1e-12);
    EXPECT_NEAR(s.delay, 0.0005, 1e-12);
    s.dbandwidth = 1000000.0;
    EXPECT_EQ(Time_topt(s, 0.0032), 6400);
}

}  // namespace
}  // namespace vx
