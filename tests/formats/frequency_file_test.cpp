#include "formats/frequency_file.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <random>

#include <nlohmann/json.hpp>

#include "formats/open_file.hpp"
#include "formats/tulva_writer.hpp"
#include "peaks/find_peaks.hpp"
#include "platform/ui.hpp"
#include "sim/simulator.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"
#include "workspace/conversions.hpp"
#include "workspace/display.hpp"
#include "workspace/processing.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

struct Opened {
    Workspace ws;
    RecordingUi ui;
    int slot = -1;
    Spectrum& s() { return ws.panels[static_cast<std::size_t>(slot)].spectrum; }
};

std::unique_ptr<Opened> open(const std::string& path) {
    auto o = std::make_unique<Opened>();
    o->ui.has_console = false;
    o->ws.settings_folder.clear();
    o->slot = open_any_file(o->ws, path, o->ui);
    return o;
}

// A small v4 transient file to be the source of a frequency file's header.
std::string write_source(const TempDir& dir, const std::string& name = "src.dat") {
    return dir.write(name, test::tulva_text({"Vantorix Data File v4.00", "Data Collected on Monday",
                                             "Project Code = PX", "Date: 4711", "Comment :", "a script line",
                                             "End of Comment", "Storage Type: float", "Data Points: 4",
                                             "Source Coeff0: 1.0", "Phased: 0"},
                                            test::float_bytes({1, 2, 3, 4})));
}

// A frequency-domain record as processing leaves it.
Spectrum spectrum_of(std::size_t n, const std::string& source) {
    Spectrum s;
    s.filename = source;
    s.domain = DOMAIN_MASS;
    s.datacount = static_cast<std::int32_t>(n);
    s.dbandwidth = 1234567.890123456;
    s.hzppt = s.dbandwidth / static_cast<double>(n);
    s.Aterm = 107234567.123456;
    s.Bterm = -251234567.654321;
    s.Trapvoltage = 0.75;
    s.lowfreq = 100000.0;
    s.highfreq = 700000.0;
    s.sweeprate = 150.0;
    s.Zerofills = 1;
    s.OptimizedSecondorder = 1.234567e-9;
    s.OptimizedFirstorder = -2.5e-4;
    s.Zeroorder = 1.25;
    s.ZeroDegrees = 72;
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> u(-1.0f, 100.0f);
    s.data.resize(n);
    for (auto& v : s.data) v = u(rng);
    return s;
}

TEST(FrequencyFile, ReducedFileReadsBackToTheStoredRange) {
    TempDir dir;
    const std::string src = write_source(dir);
    Spectrum s = spectrum_of(4096, src);
    const Spectrum before = s;
    RecordingUi ui;
    ASSERT_EQ(StoreVFDFile(s, dir.file("a.vfd"), src, 0, 0, ui), 0);
    // The writer decided the stored range on the record.
    ASSERT_EQ(s.zoomed, 1);
    const double hz = before.dbandwidth / 4096;
    EXPECT_EQ(s.StartIndex, static_cast<int>(std::floor(100000.0 / hz)));
    EXPECT_EQ(s.StartIndex + s.Zoomcount - 1, static_cast<int>(std::ceil(700000.0 / hz)));

    auto b = open(dir.file("a.vfd"));
    ASSERT_GE(b->slot, 0) << (b->ui.messages.empty() ? "" : b->ui.messages[0].text);
    const Spectrum& r = b->s();
    EXPECT_EQ(r.domain, DOMAIN_MASS);
    EXPECT_EQ(r.datacount, 4096);
    EXPECT_EQ(r.StartIndex, s.StartIndex);
    EXPECT_EQ(r.Zoomcount, s.Zoomcount);
    ASSERT_EQ(r.data.size(), 4096u);
    for (int i = 0; i < 4096; ++i) {
        const bool inside = i >= s.StartIndex && i < s.StartIndex + s.Zoomcount;
        ASSERT_EQ(r.data[static_cast<std::size_t>(i)], inside ? before.data[static_cast<std::size_t>(i)] : 0.0f) << i;
    }
    EXPECT_DOUBLE_EQ(r.dbandwidth, before.dbandwidth);
    EXPECT_NEAR(r.Aterm, before.Aterm, 5e-7);
    EXPECT_NEAR(r.Bterm, before.Bterm, 5e-7);
    EXPECT_EQ(r.Trapvoltage, before.Trapvoltage);
    EXPECT_EQ(r.OptimizedSecondorder, before.OptimizedSecondorder);
    EXPECT_EQ(r.OptimizedFirstorder, before.OptimizedFirstorder);
    EXPECT_EQ(r.Zeroorder, before.Zeroorder);
    EXPECT_EQ(r.ZeroDegrees, before.ZeroDegrees);
    // Keys of the copied header count too.
    EXPECT_EQ(r.collectedon, "Monday");
    EXPECT_EQ(r.projectcode, "PX");
    EXPECT_EQ(r.dateserial, 4711);
    // The m/z axis is the same to the last printed digit of the terms.
    std::vector<double> pts = {300.0, 1000.5, 2047.0, 3000.25}, m1(4), m2(4);
    Pt_tomass(before, pts, m1);
    Pt_tomass(r, pts, m2);
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(m2[i], m1[i], 1e-9 * m1[i]) << pts[i];
    EXPECT_EQ(test::read_file(src).substr(0, 24), "Vantorix Data File v4.00");
}

TEST(FrequencyFile, LayoutOfVersion11) {
    TempDir dir;
    const std::string src = write_source(dir);
    Spectrum s = spectrum_of(64, src);
    s.lowfreq = 2.5 * s.hzppt;
    s.highfreq = 4.5 * s.hzppt;
    s.Rephased = 1;
    s.rephase_sections = 1;
    s.rephase_initial = {3};
    s.rephase_final = {9};
    s.rephase_dterms = {0.5};
    RecordingUi ui;
    ASSERT_EQ(StoreVFDFile(s, dir.file("l.vfd"), src, 0, 0, ui), 0);
    const std::string t = test::read_file(dir.file("l.vfd"));
    const std::string head =
        "Vantorix Frequency Datafile v1.1\r\n\r\nBegin Previous Header Information\r\n\r\n"
        "Vantorix Data File v4.00\r\nData Collected on Monday\r\n";
    EXPECT_EQ(t.substr(0, head.size()), head);
    EXPECT_NE(t.find("Phased: 0\r\nEnd Previous Header Information\r\n\r\nPhased Data Parameters\r\n\r\n"
                     "Datatype: FREQUENCY_DOMAIN\r\nDatacount: 64\r\nTruncations: 0\r\nZerofills: 1\r\n"
                     "Zoomcount: 4\r\nStart Index: 2\r\nBandwidth: 1234567.890123456018"),
              std::string::npos)
        << t.substr(0, 600);
    EXPECT_NE(t.find("\r\nOptimizedSecondorder: 1.234567e-09\r\nOptimizedFirstorder: -2.500000e-04\r\n"
                     "Zeroorder: 1.250000\r\nZeroDegrees: 72\r\nPhased: 1\r\nRephased: 1\r\n"
                     "Rephase Sections: 1\nRephase Section Initial Indexes as Int32:\n" +
                     test::int32_bytes({3}) + "\n\nRephase Section Final Indexes as Int32:\n" +
                     test::int32_bytes({9}) + "\n\nRephase D Terms as Real64:\n" + test::double_bytes({0.5}) +
                     "\n\nData:\n" + test::float_bytes({s.data[2], s.data[3], s.data[4], s.data[5]})),
              std::string::npos);
    EXPECT_EQ(t.substr(t.size() - 16), test::float_bytes({s.data[2], s.data[3], s.data[4], s.data[5]}));
}

TEST(FrequencyFile, RephaseAndWalkingBlocksRoundTripBitExact) {
    TempDir dir;
    const std::string src = write_source(dir);
    Spectrum s = spectrum_of(2048, src);
    s.Rephased = 1;
    s.rephase_sections = 3;
    s.rephase_initial = {10, 500, -7};
    s.rephase_final = {499, 1000, 2147483647};
    s.rephase_dterms = {0.1, -1e-300, std::acos(-1.0)};
    s.walkingterms = 3;
    s.walkingregions = s.walkingrows = 3;
    s.walking.assign(3, WalkingRegion{});
    std::mt19937_64 rng(11);
    std::uniform_real_distribution<double> u(-1e9, 1e9);
    for (auto& w : s.walking) {
        w.A = u(rng);
        w.B = u(rng);
        w.startfreq = u(rng);
        w.endfreq = u(rng);
    }
    RecordingUi ui;
    ASSERT_EQ(StoreVFDFile(s, dir.file("w.wcd"), src, 1, 0, ui), 0);
    auto b = open(dir.file("w.wcd"));
    ASSERT_GE(b->slot, 0) << (b->ui.messages.empty() ? "" : b->ui.messages[0].text);
    const Spectrum& r = b->s();
    EXPECT_EQ(r.Rephased, 1);
    EXPECT_EQ(r.sedflag, 1);
    EXPECT_EQ(r.rephase_sections, 3);
    EXPECT_EQ(r.rephase_initial, s.rephase_initial);
    EXPECT_EQ(r.rephase_final, s.rephase_final);
    EXPECT_EQ(std::memcmp(r.rephase_dterms.data(), s.rephase_dterms.data(), 24), 0);
    EXPECT_EQ(r.walkingterms, 3);
    EXPECT_EQ(r.walkingregions, 3);
    EXPECT_EQ(r.storageinfo, 3);
    ASSERT_EQ(r.walking.size(), 3u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(r.walking[i].A, s.walking[i].A);
        EXPECT_EQ(r.walking[i].B, s.walking[i].B);
        EXPECT_EQ(r.walking[i].startfreq, s.walking[i].startfreq);
        EXPECT_EQ(r.walking[i].endfreq, s.walking[i].endfreq);
        EXPECT_EQ(r.walking[i].trapvoltage, 200.0);  // the defaults of a new region
        EXPECT_EQ(r.walking[i].startpeak, -1);
    }
    // Samples of the reduced range are as they were.
    for (int i = s.StartIndex; i < s.StartIndex + s.Zoomcount; ++i)
        ASSERT_EQ(r.data[static_cast<std::size_t>(i)], s.data[static_cast<std::size_t>(i)]);

    // A .wcd made from a .wcd keeps one walking block: the source's own is not copied.
    Spectrum again = r;
    RecordingUi ui2;
    ASSERT_EQ(StoreVFDFile(again, dir.file("w2.wcd"), dir.file("w.wcd"), 1, 0, ui2), 0);
    const std::string t = test::read_file(dir.file("w2.wcd"));
    EXPECT_EQ(t.find("Walking Calibration Regions"), t.rfind("Walking Calibration Regions"));
    auto c = open(dir.file("w2.wcd"));
    ASSERT_GE(c->slot, 0) << (c->ui.messages.empty() ? "" : c->ui.messages[0].text);
    EXPECT_EQ(c->s().walking[2].endfreq, s.walking[2].endfreq);
}

std::string vfd_text(const std::vector<std::string>& lines, const std::string& block) {
    std::string t = "Vantorix Frequency Datafile v1.1\r\n\r\n";
    for (const auto& l : lines) t += l + "\r\n";
    return t + "\n\nData:\n" + block;
}

TEST(FrequencyFile, KeyOrderAndFirstHitRules) {
    TempDir dir;
    struct Case {
        const char* name;
        std::vector<std::string> lines;
        std::function<void(const Spectrum&)> check;
    };
    const std::string block = test::float_bytes(std::vector<float>(16, 1.0f));
    const std::vector<Case> cases = {
        {"later section overrides the copied header",
         {"Aterm: 5.0", "Phased: 1", "Datacount: 16", "Aterm: 7.5", "Phased: 0"},
         [](const Spectrum& s) {
             EXPECT_EQ(s.Aterm, 7.5);
             EXPECT_EQ(s.sedflag, 0);
             EXPECT_EQ(s.sed, 1);  // a later 0 does not clear it
         }},
        {"ecal hifreq is not the high frequency",
         {"Datacount: 16", "ecal hifreq: 500", "lowfreq: 10"},
         [](const Spectrum& s) {
             EXPECT_EQ(s.highfreq, -1.0);
             EXPECT_EQ(s.lowfreq, 10.0);
         }},
        {"hifreq, highfreq, endfreq and startfreq",
         {"Datacount: 16", "hifreq: 300", "startfreq: 20"},
         [](const Spectrum& s) {
             EXPECT_EQ(s.highfreq, 300.0);
             EXPECT_EQ(s.orighighfreq, 300.0);
             EXPECT_EQ(s.origlowfreq, 20.0);
         }},
        {"rephased copy stays rephased",
         {"Rephased: 1", "Datacount: 16", "Phased: 1"},
         [](const Spectrum& s) { EXPECT_EQ(s.Rephased, 1); }},
        {"a first hit ends the tests of its line",
         {"Datacount: 16", "Date: 99 Aterm: 3"},
         [](const Spectrum& s) {
             EXPECT_EQ(s.dateserial, 99);
             EXPECT_EQ(s.Aterm, DEFAULT_ATERM);
         }},
        {"exact case of the phase keys",
         {"Datacount: 16", "PHASED: 1", "rephased: 1"},
         [](const Spectrum& s) {
             EXPECT_EQ(s.sedflag, 0);
             EXPECT_EQ(s.Rephased, 0);
         }},
        {"Data Points does not count; the marker only at column 0",
         {"Data Points: 99", "Datacount: 16", "Raw Data: 3"},
         [](const Spectrum& s) { EXPECT_EQ(s.datacount, 16); }},
        {"Start Index 0 is no reduction",
         {"Datacount: 16", "Start Index: 0", "hzppt: 1", "lowfreq: 4", "highfreq: 9"},
         [](const Spectrum& s) {
             // ConvertFullVFDtoReducedVFD: zeros up to two below the range,
             // the point just below keeps its value.
             EXPECT_EQ(s.StartIndex, 4);
             EXPECT_EQ(s.Zoomcount, 6);
             EXPECT_EQ(s.data[2], 0.0f);
             EXPECT_EQ(s.data[3], 1.0f);
             EXPECT_EQ(s.data[9], 1.0f);
             EXPECT_EQ(s.data[10], 0.0f);
         }},
        {"bandwidth only above 1",
         {"Datacount: 16", "Bandwidth: 0.5", "dbandwidth: 5000"},
         [](const Spectrum& s) { EXPECT_EQ(s.dbandwidth, 5000.0); }},
    };
    for (const auto& c : cases) {
        const std::string p = dir.write("k.vfd", vfd_text(c.lines, block));
        auto o = open(p);
        ASSERT_GE(o->slot, 0) << c.name << ": " << (o->ui.messages.empty() ? "" : o->ui.messages[0].text);
        SCOPED_TRACE(c.name);
        c.check(o->s());
    }
}

TEST(FrequencyFile, StoredCountsFollowTheWritersRule) {
    // Datacount is doubled Zerofills - 1 times and halved Truncations times: a
    // spectrum stored with two zero-fills reads back at twice its length, as
    // files have always been read. exact_count stores a count that reads back.
    TempDir dir;
    const std::string src = write_source(dir);
    Spectrum s = spectrum_of(1024, src);
    s.Zerofills = 2;
    RecordingUi ui;
    ASSERT_EQ(StoreVFDFile(s, dir.file("z.vfd"), src, 0, 0, ui), 0);
    auto a = open(dir.file("z.vfd"));
    ASSERT_GE(a->slot, 0);
    EXPECT_EQ(a->s().datacount, 2048);

    Spectrum t = spectrum_of(1024, src);
    t.Zerofills = 2;
    t.Truncations = 1;
    VfdStoreOptions exact;
    exact.exact_count = true;
    ASSERT_EQ(StoreVFDFile(t, dir.file("e.vfd"), src, 0, 0, ui, exact), 0);
    auto b = open(dir.file("e.vfd"));
    ASSERT_GE(b->slot, 0);
    EXPECT_EQ(b->s().datacount, 1024);

    // The padded transient sizes: 16000000 means 2^24 points.
    const std::string p = dir.write("p.vfd", vfd_text({"Datacount: 16000000", "Zoomcount: 2", "Start Index: 100"},
                                                      test::float_bytes({5, 6})));
    auto c = open(p);
    ASSERT_GE(c->slot, 0);
    EXPECT_EQ(c->s().datacount, 16777216);
    EXPECT_EQ(c->s().storedcount, 16000000);
    EXPECT_EQ(c->s().data[101], 6.0f);
}

TEST(FrequencyFile, Version10FilesLoad) {
    TempDir dir;
    Spectrum s = spectrum_of(256, "");
    s.collectedon = "Friday";
    RecordingUi ui;
    ASSERT_EQ(StoreVFDFileRephase(s, dir.file("old.vfd"), 0, ui), 0);
    EXPECT_EQ(test::read_file(dir.file("old.vfd")).rfind("Vantorix Frequency Datafile v1.0\r\n\r\nGlobalParameters", 0),
              0u);
    auto o = open(dir.file("old.vfd"));
    ASSERT_GE(o->slot, 0) << (o->ui.messages.empty() ? "" : o->ui.messages[0].text);
    // "Data Collected at" is written, "Data Collected on " is read.
    EXPECT_EQ(o->s().collectedon, "Unknown");
    EXPECT_EQ(o->s().datacount, 256);
    EXPECT_NEAR(o->s().Aterm, s.Aterm, 5e-7);
    // A 1.0 file names no excitation range: there is nothing to reduce to,
    // and the whole array is kept (cut to its range it would keep point 0 only).
    EXPECT_EQ(o->s().zoomed, 0);
    EXPECT_EQ(o->s().data, s.data);
}

TEST(FrequencyFile, DamagedFilesAreRefusedWithAMessage) {
    TempDir dir;
    const std::string four = test::float_bytes({1, 2, 3, 4});
    struct Case {
        const char* name;
        std::string text;
        const char* expect;  // part of the message
    };
    const std::string sig = "Vantorix Frequency Datafile v1.1\r\n\r\n";
    const std::vector<Case> cases = {
        {"sections larger than the file",
         sig + "Datacount: 4\r\nRephase Sections: 1000000000\nRephase Section Initial Indexes as Int32:\n" + "abcd",
         "ends inside its rephase section starts"},
        {"negative sections",
         sig + "Datacount: 4\r\nRephase Sections: -5\nRephase Section Initial Indexes as Int32:\n\n\nData:\n" + four,
         "announces -5 values"},
        {"cut walking table",
         sig + "Datacount: 4\r\nWalking Calibration Regions = 3\n" + test::double_bytes({1, 2, 3, 4, 5}),
         "ends inside its walking calibration table"},
        {"huge walking count",
         sig + "Datacount: 4\r\nWalking Calibration Regions = 9223372036854775807\n\n\nData:\n" + four,
         "ends inside its walking calibration table"},
        {"cut score array",
         sig + "Datacount: 4\r\nScoreArray DataPoints as Int32: 99\r\nA Array as Real64:\n" + "12345678",
         "ends inside its A array"},
        {"cut samples", sig + "Datacount: 8\r\n\n\nData:\n" + four, "ends before its data"},
        {"zoom range outside the spectrum", sig + "Datacount: 8\r\nZoomcount: 4\r\nStart Index: 6\r\n\n\nData:\n" + four,
         "lies outside the 8 points"},
        {"zero count", sig + "Datacount: 0\r\n\n\nData:\n" + four, "No Data Count Specified"},
        {"no count: the default 16384 points", sig + "Bandwidth: 5\r\n\n\nData:\n" + four, "ends before its data"},
        {"negative count", sig + "Datacount: -4\r\n\n\nData:\n" + four, "is not a valid number"},
        {"count grows past any spectrum", sig + "Datacount: 4\r\nZerofills: 2000000000\r\n\n\nData:\n" + four,
         "is not a valid number"},
        {"count shrinks to nothing", sig + "Datacount: 4\r\nTruncations: 40\r\n\n\nData:\n" + four,
         "is not a valid number"},
        {"no marker", sig + "Datacount: 4\r\n", "No Data Marker Found"},
        {"binary without line ends", sig + std::string(200000, '\x01'), "No Data Marker Found"},
    };
    for (const auto& c : cases) {
        const std::string p = dir.write("d.vfd", c.text);
        auto o = open(p);
        EXPECT_LT(o->slot, 0) << c.name;
        bool said = false;
        for (const auto& m : o->ui.messages) said = said || m.text.find(c.expect) != std::string::npos;
        EXPECT_TRUE(said) << c.name << ": " << (o->ui.messages.empty() ? "(no message)" : o->ui.messages[0].text);
    }
}

TEST(FrequencyFile, WritersRefuseTheirInputAndTimeDomainRecords) {
    TempDir dir;
    const std::string src = write_source(dir);
    const std::string before = test::read_file(src);
    Spectrum s = spectrum_of(64, src);
    RecordingUi ui;
    EXPECT_EQ(StoreVFDFile(s, src, src, 0, 0, ui), -1);
    EXPECT_TRUE(ui.saw("Input file and output file can not be the same file.",
                       "Please choose a different output file name."));
    EXPECT_EQ(test::read_file(src), before);
    s.domain = DOMAIN_TIME;
    EXPECT_EQ(StoreVFDFile(s, dir.file("t.vfd"), src, 0, 0, ui), -2);
    EXPECT_FALSE(fs::exists(dir.file("t.vfd")));
    for (const auto& e : fs::directory_iterator(dir.path())) EXPECT_NE(e.path().filename().string()[0], '.');
}

TEST(FrequencyFile, SaveCommandTargets) {
    EXPECT_EQ(vfd_target_for("/d/run 1.dat"), "/d/run 1.vfd");
    EXPECT_EQ(vfd_target_for("/d/run.new"), "/d/run.vfd");
    EXPECT_EQ(vfd_target_for("/d/run.dat.new"), "/d/run.vfd");
    EXPECT_EQ(wcd_target_for("/d/run.vfd"), "/d/Walking Calibrated VFD/run.wcd");
    EXPECT_EQ(wcd_target_for("/d/run.dat"), "/d/Walking Calibrated VFD/run.wcd");

    TempDir dir;
    const std::string src = write_source(dir, "run.dat");
    Workspace ws;
    ws.panels[0].active = 1;
    ws.panels[0].spectrum = spectrum_of(128, src);
    ws.active_panel = 0;
    RecordingUi ui;
    ws.panels[0].spectrum.walkingregions = 1;
    EXPECT_EQ(PrephaseFrequency2_callback(ws, ui), -1);
    EXPECT_TRUE(ui.saw("Walking Calibration Table is not present.", "Walking Calibration File Save was Aborted"));
    ASSERT_EQ(PrephaseFrequency_callback(ws, ui), 0);
    EXPECT_TRUE(fs::exists(dir.file("run.vfd")));
    ws.panels[0].spectrum.walkingregions = 2;
    ws.panels[0].spectrum.walking.assign(2, WalkingRegion{});
    ASSERT_EQ(PrephaseFrequency2_callback(ws, ui), 0);
    EXPECT_TRUE(fs::exists(dir.path() / "Walking Calibrated VFD" / "run.wcd"));
}

TEST(FrequencyFile, PeaksOfAStoredSpectrumAreThoseBeforeSaving) {
    // The bundled sample: its eight ions are found with the default settings.
    TempDir dir;
    const std::string src = dir.file("sample.dat");
    test::write_file(src, test::read_file(std::string(VANTORIX_SOURCE_DIR) + "/data/sample.dat"));
    auto a = open(src);
    ASSERT_GE(a->slot, 0);
    ASSERT_EQ(process_command(a->ws, a->ui), 0);
    Spectrum& s = a->s();
    ASSERT_EQ(StoreVFDFile(s, dir.file("sim.vfd"), src, 0, 0, a->ui), 0);
    // What the file keeps: the stored range, zeros around it.
    for (std::size_t i = 0; i < s.data.size(); ++i)
        if (static_cast<int>(i) < s.StartIndex || static_cast<int>(i) >= s.StartIndex + s.Zoomcount) s.data[i] = 0.0f;
    // The m/z view the desktop switches to after processing, as the opening
    // road does for a frequency file.
    PlotMenuCommand(a->ws.panels[static_cast<std::size_t>(a->slot)], PLOT_MZ, 0.0, 0.0, a->ws.settings, a->ui);
    ensure_search_limits(a->ws, a->slot);
    PeakTable ta;
    ASSERT_GT(FindPeaksCommand(a->ws, ta, a->ui), 0)
        << a->ws.panels[static_cast<std::size_t>(a->slot)].xmode << " "
        << (a->ui.messages.empty() ? "" : a->ui.messages.back().title + ": " + a->ui.messages.back().text);

    auto b = open(dir.file("sim.vfd"));
    ASSERT_GE(b->slot, 0);
    ensure_search_limits(b->ws, b->slot);
    EXPECT_EQ(b->ws.settings.low_mass, a->ws.settings.low_mass);
    EXPECT_EQ(b->ws.settings.high_mass, a->ws.settings.high_mass);
    PeakTable tb;
    ASSERT_GT(FindPeaksCommand(b->ws, tb, b->ui), 0);
    ASSERT_FALSE(a->s().peaks.empty());
    ASSERT_EQ(b->s().peaks.size(), a->s().peaks.size());
    for (std::size_t i = 0; i < a->s().peaks.size(); ++i) {
        EXPECT_EQ(b->s().peaks[i].index, a->s().peaks[i].index);
        EXPECT_EQ(b->s().peaks[i].abundance, a->s().peaks[i].abundance);
        EXPECT_NEAR(b->s().peaks[i].mass, a->s().peaks[i].mass, 1e-9 * a->s().peaks[i].mass);
    }
}

TEST(FrequencyFile, PhaseSaveAndInfoCommands) {
    TempDir dir;
    SimParameters p;
    p.points = 16384;
    p.int_storage = false;
    RecordingUi ui;
    const std::string src = dir.file("sim.dat");
    ASSERT_EQ(write_simulated_file(src, p, {{500.0, 1.0, 0.5}}, ui), 0);
    auto r = test::run_cli(dir.path().string(), "phase '" + src + "' --save '" + dir.file("p.vfd") + "' --json");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(nlohmann::json::parse(r.out)["vfd"], dir.file("p.vfd"));
    r = test::run_cli(dir.path().string(), "info '" + dir.file("p.vfd") + "' --json");
    ASSERT_EQ(r.status, 0) << r.err;
    const auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["header"]["domain"], 2);
    r = test::run_cli(dir.path().string(), "phase '" + src + "' --save '" + src + "'");
    EXPECT_NE(r.status, 0);
}

TEST(FrequencyFile, WorkerOpeners) {
    TempDir dir;
    // A transient with a script's terms, 16-bit samples on a voltage scale.
    const std::string dat = dir.write(
        "w.dat", test::tulva_text({"Vantorix Data File v4.00", "Data Points: 4", "Storage Type: int",
                                   "Voltage Scale: 0.5", "Initial Frequency: 100000", "Final Frequency: 300000",
                                   "Optimized Sweep Rate: 200", "Source Coeff0: 1.5e8", "Zeroorder: 9"},
                                  test::int16_bytes({2, -4, 6, 8})));
    RecordingUi ui;
    Spectrum w;
    ASSERT_EQ(OpenVantorixFile(dat, w, false, ui), 0);
    EXPECT_EQ(w.data, (std::vector<float>{1, -2, 3, 4}));
    EXPECT_EQ(w.lowfreq, 100000.0);
    EXPECT_EQ(w.highfreq, 300000.0);
    EXPECT_EQ(w.Aterm, 1.5e8);
    EXPECT_EQ(w.Zeroorder, 0.0);  // a phase term only the VFD form takes
    EXPECT_DOUBLE_EQ(w.exciteduration, 200000.0 / 200.0 / 1e6);

    // The VFD form: script lines are not its keys, the phase terms are.
    Spectrum v;
    ASSERT_EQ(OpenVantorixVFD(dat, v, false, ui), 0);
    EXPECT_EQ(v.lowfreq, -1.0);
    EXPECT_EQ(v.Zeroorder, 9.0);

    // Failures in the words of the readers; quiet ones on the console.
    const std::string cut = dir.write("cut.dat", test::tulva_text({"Data Points: 8", "Storage Type: float"}, "xx"));
    RecordingUi q;
    Spectrum c;
    EXPECT_EQ(OpenVantorixFile(cut, c, true, q), -1);
    EXPECT_TRUE(q.messages.empty());
    EXPECT_NE(q.console.find("ends before its data"), std::string::npos);
    const std::string nomark = dir.write("n.dat", "Vantorix Data File v4.00\nData Points: 4\n");
    EXPECT_EQ(OpenVantorixFile(nomark, c, false, q), -1);
    EXPECT_TRUE(q.saw("File Input Error", "No Data Marker Found"));
}

TEST(FrequencyFile, CalibrateSavesTheWalkingTable) {
    TempDir dir;
    const std::string src = dir.file("sample.dat");
    test::write_file(src, test::read_file(std::string(VANTORIX_SOURCE_DIR) + "/data/sample.dat"));
    const std::string home = dir.path().string();
    ASSERT_EQ(test::run_cli(home, "ref write '" + dir.file("cal.ref") +
                                      "' 195.08765 322.04812 524.26496 622.02896 922.00980 1221.99064")
                  .status,
              0);
    const std::string cal = "calibrate '" + src + "' --ref '" + dir.file("cal.ref") + "' --tolerance 50 ";
    auto r = test::run_cli(home, cal + "--walking --save '" + dir.file("s.wcd") + "' --json");
    ASSERT_EQ(r.status, 0) << r.err;
    const int regions = nlohmann::json::parse(r.out)["walking_regions"];
    ASSERT_GE(regions, 2);
    auto o = open(dir.file("s.wcd"));
    ASSERT_GE(o->slot, 0);
    EXPECT_EQ(o->s().walkingregions, regions);
    // A .wcd without a walking table is refused before anything is written.
    r = test::run_cli(home, cal + "--save '" + dir.file("t.wcd") + "'");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("Walking Calibration Table is not present."), std::string::npos);
    EXPECT_FALSE(fs::exists(dir.file("t.wcd")));
}

}  // namespace
}  // namespace vx
