#include "formats/tulva_reader.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <random>

#include <fmt/printf.h>
#include <nlohmann/json.hpp>

#include "platform/ui.hpp"
#include "platform/zip.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

using test::TempDir;

struct Loaded {
    int rc = -1;
    int slot = -1;
    Workspace ws;
    RecordingUi ui;
    const Spectrum& s() const { return ws.panels[static_cast<std::size_t>(slot < 0 ? 0 : slot)].spectrum; }
};

// Opens a file through the same road the program uses; keeps the workspace for inspection.
std::unique_ptr<Loaded> load(const std::string& path, const Settings* settings = nullptr, bool console = false) {
    auto l = std::make_unique<Loaded>();
    if (settings) l->ws.settings = *settings;
    l->ui.has_console = console;
    l->slot = open_data_file(l->ws, path, FILETYPE_TULVA, read_tulva_into_slot, l->ui);
    l->rc = l->slot >= 0 ? 0 : -1;
    return l;
}

std::unique_ptr<Loaded> load_text(TempDir& dir, const std::vector<std::string>& header, const std::string& block,
                                  const std::string& marker = "Data:") {
    const std::string p = dir.file("t.dat");
    test::write_file(p, test::tulva_text(header, block, marker));
    return load(p);
}

std::vector<std::string> v4(std::vector<std::string> lines) {
    lines.insert(lines.begin(), "Vantorix Data File v4.00");
    return lines;
}

TEST(TulvaReader, SignatureSelectsTheReader) {
    // The family test ignores case; the version test does not. A family
    // signature with an unknown version is read by the legacy reader (floats).
    struct Case {
        std::string signature;
        bool ok;
        const char* storage;  // "int" or "float": how 4 samples 1..4 were stored
        int storageinfo;
    };
    const std::vector<Case> cases = {
        {"TULVA Data File v2.0", true, "float", 0},
        {"TULVA Data File v3.2", true, "int", 1},
        {"TULVA Data File v4.01", true, "int", 1},
        {"Vantorix Data File v4.00", true, "int", 1},
        {"  some text Vantorix Data File v4.00 more", true, "int", 1},
        {"TULVA SWIFT File", true, "int", 1},
        {"tulva data file v4.00", true, "float", 1},  // lower case: legacy reader
        {"TULVA Data File", true, "float", 1},
        {"TULVA Data File v5", true, "float", 1},
        {"Odyssey Data", false, "", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.signature);
        TempDir dir;
        const std::string block = std::string(c.storage) == "int"
                                      ? test::int16_bytes({1, 2, 3, 4})
                                      : test::float_bytes({1.f, 2.f, 3.f, 4.f});
        auto l = load_text(dir, {c.signature, "Data Points: 4"}, block);
        ASSERT_EQ(l->rc, c.ok ? 0 : -1);
        if (!c.ok) {
            EXPECT_TRUE(l->ui.saw("File Input Error", "Not Valid TULVA Data File Format"));
            EXPECT_EQ(l->ws.panels[0].active, 0);
            continue;
        }
        EXPECT_TRUE(l->ui.messages.empty()) << l->ui.messages[0].text;
        ASSERT_EQ(l->s().data.size(), 4u);
        EXPECT_EQ(l->s().data[0], 1.0f);
        EXPECT_EQ(l->s().data[3], 4.0f);
        EXPECT_EQ(l->s().storageinfo, c.storageinfo);
    }
}

TEST(TulvaReader, EmptyLinesBeforeSignatureAndCrLf) {
    TempDir dir;
    const std::string p = dir.file("crlf.dat");
    std::string text = "\n\r\n\nVantorix Data File v4.00\r\nData Points: 2\r\n\r\nTrap Voltage: -3.5\r\nData:\n";
    text += test::int16_bytes({-7, 9});
    test::write_file(p, text);
    auto l = load(p);
    ASSERT_EQ(l->rc, 0);
    EXPECT_EQ(l->s().Trapvoltage, -3.5);
    EXPECT_EQ(l->s().data, (std::vector<float>{-7.f, 9.f}));
    EXPECT_EQ(l->s().filename, p);
}

TEST(TulvaReader, V4FrequencyKeysInAndOutOfThePhaseBlock) {
    TempDir dir;
    // Outside a phase block: the case-sensitive range keys apply, only above 0.
    auto a = load_text(dir, v4({"Data Points: 2", "Final Frequency: 250000", "Initial Frequency: 100000"}),
                       test::int16_bytes({0, 0}));
    ASSERT_EQ(a->rc, 0);
    EXPECT_EQ(a->s().highfreq, 250000.0);
    EXPECT_EQ(a->s().orighighfreq, -1.0);
    EXPECT_EQ(a->s().lowfreq, 100000.0);
    EXPECT_EQ(a->s().origlowfreq, 100000.0);

    // After "Phase Parameters:" the gated keys take the value whatever its sign.
    auto b = load_text(dir, v4({"Phase Parameters:", "Final Frequency: -250000", "Initial Frequency: -5",
                                "Data Points: 2"}),
                       test::int16_bytes({0, 0}));
    ASSERT_EQ(b->rc, 0);
    EXPECT_EQ(b->s().highfreq, -250000.0);
    EXPECT_EQ(b->s().lowfreq, -5.0);
    EXPECT_EQ(b->s().orighighfreq, -1.0);
    EXPECT_EQ(b->s().origlowfreq, -1.0);

    // Gated keys without a phase block are not read at all.
    auto c = load_text(dir, v4({"Optimized Delay: 0.002", "Excite Duration: 0.01", "Detection BW: 7",
                                "Data Points: 2", "lowfreq: -3", "hifreq: 7000", "sweeprate: 0"}),
                       test::int16_bytes({0, 0}));
    ASSERT_EQ(c->rc, 0);
    EXPECT_EQ(c->s().delay, -1.0);
    EXPECT_EQ(c->s().OptimizedFirstorder, 0.0);
    EXPECT_EQ(c->s().exciteduration, -1.0);
    EXPECT_EQ(c->s().detectbw, -1.0);
    EXPECT_EQ(c->s().lowfreq, -1.0);
    EXPECT_EQ(c->s().highfreq, 7000.0);
    EXPECT_EQ(c->s().orighighfreq, 7000.0);
    EXPECT_EQ(c->s().sweeprate, -1.0);
}

TEST(TulvaReader, V4PhaseBlockKeys) {
    TempDir dir;
    auto l = load_text(dir,
                       v4({"Phase Parameters:", "Optimized Sweep Rate: 12500000", "Optimized Delay: 0.0021",
                           "Excite Duration: 0.0008", "Initial Constant: 0.25", "Optimized Constant: 0.25",
                           "Detection BW: 2.7", "Use Phase Delay F: 0", "Data Points: 2"}),
                       test::int16_bytes({0, 0}));
    ASSERT_EQ(l->rc, 0);
    const Spectrum& s = l->s();
    EXPECT_EQ(s.phaseparams, 1);
    EXPECT_EQ(s.sweeprate, 12500000.0);
    EXPECT_EQ(s.OptimizedSecondorder, 12500000.0);
    EXPECT_EQ(s.delay, 0.0021);
    EXPECT_EQ(s.OptimizedFirstorder, 0.0021);
    EXPECT_EQ(s.exciteduration, 0.0008);
    EXPECT_EQ(s.initialconstant, 0.25);
    EXPECT_EQ(s.phaseconstant, 0.25);
    EXPECT_DOUBLE_EQ(s.Zeroorder, 0.5);           // both constants add up
    EXPECT_EQ(s.ZeroDegrees, 29);                 // nearest of 28.65 degrees
    EXPECT_EQ(s.detectbw, 2.0);                   // read as an integer
    EXPECT_EQ(s.usephasedelay, 0);
}

TEST(TulvaReader, V4PhasedZeroConvertsTheOldDegrees) {
    TempDir dir;
    // Two Phased_Zero lines leave ZeroDegrees at 0 when it started at 0.
    auto a = load_text(dir, v4({"Phased_Zero= 1.5", "Phased_Zero= 2.5", "Data Points: 2"}), test::int16_bytes({0, 0}));
    ASSERT_EQ(a->rc, 0);
    EXPECT_EQ(a->s().Zeroorder, 2.5);
    EXPECT_EQ(a->s().ZeroDegrees, 0);
    // With degrees already set, the old degree value is converted again.
    auto b = load_text(dir, v4({"Phase Parameters:", "Optimized Constant: 0.5", "Phased_Zero= 1.0", "Data Points: 2"}),
                       test::int16_bytes({0, 0}));
    ASSERT_EQ(b->rc, 0);
    EXPECT_EQ(b->s().Zeroorder, 1.0);
    EXPECT_EQ(b->s().ZeroDegrees, static_cast<int>(std::lround(29 * 180.0 / M_PI)));
}

TEST(TulvaReader, V4FirstKeyEndsTheLineV3TriesAll) {
    TempDir dir;
    const std::vector<std::string> lines = {"Data Points: 2   Trap Voltage: 5   Detect Mode: 3", "Reference Frequency: 10",
                                            "Detect Mode: 3"};
    std::vector<std::string> h4 = v4(lines);
    auto a = load_text(dir, h4, test::int16_bytes({0, 0}));
    ASSERT_EQ(a->rc, 0);
    EXPECT_EQ(a->s().datacount, 2);
    EXPECT_EQ(a->s().Trapvoltage, 1.0);  // the line was used up by "Data Points:"
    EXPECT_EQ(a->s().detectmode, 0);     // only 1 or 2 are accepted by v4

    std::vector<std::string> h3 = lines;
    h3.insert(h3.begin(), "TULVA Data File v3.0");
    auto b = load_text(dir, h3, test::int16_bytes({0, 0}));
    ASSERT_EQ(b->rc, 0);
    EXPECT_EQ(b->s().datacount, 2);
    EXPECT_EQ(b->s().Trapvoltage, 5.0);
    EXPECT_EQ(b->s().detectmode, 3);  // v3 takes any value
    EXPECT_EQ(b->s().reffreq, 10.0);
}

TEST(TulvaReader, BandwidthAndCalibrationKeys) {
    struct Case {
        std::string line;
        double bandwidth;
    };
    const std::vector<Case> cases = {
        {"Bandwidth: 0.5", 1000000.0},        // at or below 1.0 keeps the default
        {"Bandwidth: 2000000", 2000000.0},
        {"BANDWIDTH: 3000000", 1000000.0},    // case-sensitive in v4
        {"DBANDWIDTH: 4000000", 4000000.0},   // any case
        {"dbandwidth: 1.0", 1000000.0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        TempDir dir;
        auto l = load_text(dir, v4({c.line, "Data Points: 2"}), test::int16_bytes({0, 0}));
        ASSERT_EQ(l->rc, 0);
        EXPECT_EQ(l->s().dbandwidth, c.bandwidth);
    }
    TempDir dir;
    auto l = load_text(dir,
                       v4({"Calibration Type: 3", "Source Coeff0: 1.5e8", "Source Coeff1: -2.25e9",
                           "Data Collected on Monday 3 March", "Project Code = ABCDEFGHIJKLMNOP",
                           "Data Collected by someone", "Date: 20180312", "Parent Mass: 491.2", "expcount: 500",
                           "Data Points: 2"}),
                       test::int16_bytes({0, 0}));
    ASSERT_EQ(l->rc, 0);
    const Spectrum& s = l->s();
    EXPECT_EQ(s.caltype, 0);
    EXPECT_EQ(s.Aterm, 1.5e8);
    EXPECT_EQ(s.Bterm, -2.25e9);
    EXPECT_EQ(s.collectedon, "Monday 3 March");
    EXPECT_EQ(s.projectcode, "ABCDEFGHI");  // a field of ten characters with its end
    EXPECT_EQ(s.collectedby, "someone");
    EXPECT_EQ(s.dateserial, 20180312);
    EXPECT_EQ(s.parentmass, 491.2);
    EXPECT_EQ(s.expcount, 500);
}

TEST(TulvaReader, StorageEncodings) {
    TempDir dir;
    // int with a voltage scale
    auto a = load_text(dir, v4({"Storage Type: int", "Voltage Scale: 0.5", "Data Points: 3"}),
                       test::int16_bytes({-32768, 2, 32767}));
    ASSERT_EQ(a->rc, 0);
    EXPECT_EQ(a->s().data, (std::vector<float>{-16384.f, 1.f, 16383.5f}));
    EXPECT_EQ(a->s().storageinfo, 1);
    // float
    auto b = load_text(dir, v4({"Storage Type: float", "Voltage Scale: 3", "Data Points: 2"}),
                       test::float_bytes({1.25f, -2.5f}));
    ASSERT_EQ(b->rc, 0);
    EXPECT_EQ(b->s().data, (std::vector<float>{1.25f, -2.5f}));
    // double outside the two-channel mode reads nothing
    auto c = load_text(dir, v4({"Storage Type: double", "Data Points: 2"}), test::double_bytes({7.0, 8.0}));
    ASSERT_EQ(c->rc, 0);
    EXPECT_EQ(c->s().data, (std::vector<float>{0.f, 0.f}));
    EXPECT_EQ(c->s().storageinfo, 0);
    // a zero voltage scale is reported and replaced by 1.0
    auto d = load_text(dir, v4({"Voltage Scale: 0", "Data Points: 2"}), test::int16_bytes({3, 4}));
    ASSERT_EQ(d->rc, 0);
    EXPECT_TRUE(d->ui.saw("error", "Experiment script error voltage scale was set to zero. Reset to 1.0."));
    EXPECT_EQ(d->s().data, (std::vector<float>{3.f, 4.f}));
    // "int" is looked for behind the key only
    auto e = load_text(dir, v4({"Storage Type: float (was int)", "Data Points: 1"}), test::int16_bytes({5}));
    ASSERT_EQ(e->rc, 0);
    EXPECT_EQ(e->s().data, (std::vector<float>{5.f}));
    // a short block (a cut-off transfer) is refused, not padded with zeros
    auto f = load_text(dir, v4({"Data Points: 4"}), test::int16_bytes({1, 2}) + "\x03");
    EXPECT_EQ(f->rc, -1);
    EXPECT_TRUE(f->s().data.empty());
}

TEST(TulvaReader, PaddedSizesKeepAZeroTail) {
    TempDir dir;
    for (int stored : {16000000, 32000000}) {
        SCOPED_TRACE(stored);
        std::vector<std::int16_t> samples(static_cast<std::size_t>(stored), 1);
        samples.back() = 7;
        auto l = load_text(dir, v4({"Data Points: " + std::to_string(stored)}), test::int16_bytes(samples));
        samples = {};
        ASSERT_EQ(l->rc, 0);
        const Spectrum& s = l->s();
        const std::size_t padded = stored == 32000000 ? 33554432u : 16777216u;
        EXPECT_EQ(s.datacount, static_cast<int>(padded));
        EXPECT_EQ(s.storedcount, stored);
        ASSERT_EQ(s.data.size(), padded);
        EXPECT_EQ(s.data[static_cast<std::size_t>(stored) - 1], 7.0f);
        double tail = 0;
        for (std::size_t i = static_cast<std::size_t>(stored); i < padded; ++i) tail += std::fabs(s.data[i]);
        EXPECT_EQ(tail, 0.0);
    }
    // v2.0 has no padded sizes (the count is taken as it is, then refused: no block follows)
    auto v2 = load_text(dir, {"TULVA Data File v2.0", "Data Points: 16000000"}, std::string());
    EXPECT_EQ(v2->rc, -1);
    EXPECT_EQ(v2->s().datacount, 16000000);
    EXPECT_EQ(v2->s().storedcount, 0);
}

TEST(TulvaReader, MarkerColumnRules) {
    TempDir dir;
    // v4 skips "Data:" that does not start the line; v3 takes it anywhere.
    const std::string block = test::int16_bytes({11, 12});
    auto a = load_text(dir, v4({"Data Points: 2", "SED Data: none"}), block, "data:");
    ASSERT_EQ(a->rc, 0);
    EXPECT_EQ(a->s().data, (std::vector<float>{11.f, 12.f}));

    const std::string p = dir.file("v3.dat");
    test::write_file(p, "TULVA Data File v3.0\nData Points: 2\nSED Data:\n" + test::int16_bytes({21, 22}) +
                            "\nData:\n" + test::int16_bytes({31, 32}));
    auto b = load(p);
    ASSERT_EQ(b->rc, 0);
    EXPECT_EQ(b->s().data, (std::vector<float>{21.f, 22.f}));
}

TEST(TulvaReader, WalkingTableAndComment) {
    TempDir dir;
    const std::string p = dir.file("walk.dat");
    std::string text =
        "Vantorix Data File v4.00\nData Points: 2\nComment :\nfirst part, \n\nsecond part\nEnd of Comment\n"
        "Walking Calibration Number of Terms = 2\nWalking Calibration Regions = 2\n";
    text += test::double_bytes({1.1e8, 300000.0, -2.0e9, 250000.0, 1.2e8, 250000.0, -2.1e9, 200000.0});
    text += "Trap Voltage: 2\nData:\n" + test::int16_bytes({5, 6});
    test::write_file(p, text);
    auto l = load(p);
    ASSERT_EQ(l->rc, 0);
    const Spectrum& s = l->s();
    EXPECT_EQ(s.walkingterms, 2);
    EXPECT_EQ(s.walkingregions, 2);
    EXPECT_EQ(s.walkingrows, 2);
    ASSERT_EQ(s.walking.size(), 2u);
    // File order is A, start, B, end.
    EXPECT_EQ(s.walking[0].A, 1.1e8);
    EXPECT_EQ(s.walking[0].startfreq, 300000.0);
    EXPECT_EQ(s.walking[0].B, -2.0e9);
    EXPECT_EQ(s.walking[0].endfreq, 250000.0);
    EXPECT_EQ(s.walking[1].endfreq, 200000.0);
    EXPECT_EQ(s.walking[1].startmz, 1.0);        // other fields keep the row defaults
    EXPECT_EQ(s.walking[1].trapvoltage, 200.0);
    EXPECT_EQ(s.Trapvoltage, 2.0);
    EXPECT_EQ(s.data, (std::vector<float>{5.f, 6.f}));
    EXPECT_EQ(l->ws.comment_text, "first part, second part");
}

TEST(TulvaReader, TwoChannelFilesFillFurtherSlots) {
    TempDir dir;
    const std::string p = dir.file("sed.dat");
    std::string text = "Vantorix Data File v4.00\nCollection Mode: SED\nData Points: 3\nTrap Voltage: -2\n"
                       "Source Coeff0: 1.0e8\nReference Frequency: 5\nData:\n";
    text += test::int16_bytes({1, 2, 3}) + "\nSED Data:\n" + test::int16_bytes({4, 5, 6});
    test::write_file(p, text);
    auto l = load(p);
    ASSERT_EQ(l->rc, 0);
    EXPECT_EQ(l->slot, 0);
    EXPECT_EQ(l->ws.active_panel, 0);
    EXPECT_EQ(l->ws.sed_mode, 1);
    EXPECT_EQ(l->ws.sed_second_panel, 1);
    const Spectrum& a = l->ws.panels[0].spectrum;
    const Spectrum& b = l->ws.panels[1].spectrum;
    EXPECT_EQ(l->ws.panels[1].active, 1);
    EXPECT_EQ(a.data, (std::vector<float>{1.f, 2.f, 3.f}));
    EXPECT_EQ(b.data, (std::vector<float>{4.f, 5.f, 6.f}));
    EXPECT_EQ(b.sed, 1);
    EXPECT_EQ(b.Trapvoltage, -2.0);
    EXPECT_EQ(b.Aterm, 1.0e8);
    EXPECT_EQ(b.reffreq, 5.0);
    EXPECT_EQ(b.filename, p);

    // Three channels; the header's sed flags are cleared by "SED2".
    const std::string p2 = dir.file("sed2.dat");
    std::string t2 = "Vantorix Data File v4.00\nCollection Mode: SED2\nData Points: 2\nStorage Type: float\nData:\n";
    t2 += test::float_bytes({1, 2}) + "\nSED Data:\n" + test::float_bytes({3, 4}) + "\nSED Data2:\n" +
          test::float_bytes({5, 6});
    test::write_file(p2, t2);
    auto m = load(p2);
    ASSERT_EQ(m->rc, 0);
    EXPECT_EQ(m->ws.sed_mode, 0);
    EXPECT_EQ(m->ws.panels[1].spectrum.data, (std::vector<float>{3.f, 4.f}));
    EXPECT_EQ(m->ws.panels[2].spectrum.data, (std::vector<float>{5.f, 6.f}));
    EXPECT_EQ(m->ws.sed_third_panel, 2);

    // Double storage: doubles kept on the first record, narrowed floats shown.
    const std::string p3 = dir.file("sedd.dat");
    std::string t3 = "Vantorix Data File v4.00\nCollection Mode: SED\nStorage Type: double\nData Points: 2\nData:\n";
    t3 += test::double_bytes({1.5, 2.5}) + "\nSED Data:\n" + test::double_bytes({-3.5, 4.25});
    test::write_file(p3, t3);
    auto d = load(p3);
    ASSERT_EQ(d->rc, 0);
    EXPECT_EQ(d->ws.sed_mode, 0);
    EXPECT_EQ(d->ws.panels[0].spectrum.realdata64, (std::vector<double>{1.5, 2.5}));
    EXPECT_EQ(d->ws.panels[0].spectrum.imagdata64, (std::vector<double>{-3.5, 4.25}));
    EXPECT_EQ(d->ws.panels[1].spectrum.data, (std::vector<float>{-3.5f, 4.25f}));
}

TEST(TulvaReader, SecondChannelWithoutAFreeSlotWarnsAndGoesOn) {
    TempDir dir;
    const std::string p = dir.file("sed.dat");
    test::write_file(p, "Vantorix Data File v4.00\nCollection Mode: SED\nData Points: 1\nData:\n" +
                            test::int16_bytes({1}) + "\nSED Data:\n" + test::int16_bytes({2}));
    auto l = std::make_unique<Loaded>();
    for (int i = 1; i < MAX_PANELS; ++i) l->ws.panels[static_cast<std::size_t>(i)].active = 1;
    l->slot = open_data_file(l->ws, p, FILETYPE_TULVA, read_tulva_into_slot, l->ui);
    ASSERT_EQ(l->slot, 0);
    EXPECT_TRUE(l->ui.saw("Warning", "Too many files open, close some files and reload."));
    EXPECT_EQ(l->ws.panels[0].spectrum.data, (std::vector<float>{1.f}));
}

TEST(TulvaReader, LegacyFilesAskForTheDetectionMode) {
    TempDir dir;
    const std::string p = dir.file("old.dat");
    test::write_file(p, "TULVA Data File\nData Points: 2\ndbandwidth: 500000\nData:\n" + test::float_bytes({1, 2}));

    struct Case {
        std::vector<std::string> answers;
        bool console;
        int mode;
        double ref;
        const char* said;
    };
    const std::vector<Case> cases = {
        {{"+", "123456.5"}, true, 1, 123456.5, "\nPositive Heterodyne Mode\n"},
        {{"-", "2000"}, true, 3, 2000.0, "\nNegative Heterodyne Mode\n"},
        {{"D"}, true, 0, 0.0, "\nDirect Mode\n"},
        {{""}, true, 0, 0.0, "\nDirect Mode\n"},
        {{}, false, 0, 0.0, "\nDirect Mode\n"},  // no console: the direct-mode answer
    };
    for (const auto& c : cases) {
        auto l = std::make_unique<Loaded>();
        l->ui.has_console = c.console;
        for (const auto& a : c.answers) l->ui.console_lines.push_back(a);
        l->slot = open_data_file(l->ws, p, FILETYPE_TULVA, read_tulva_into_slot, l->ui);
        ASSERT_EQ(l->slot, 0);
        EXPECT_EQ(l->s().detectmode, c.mode);
        EXPECT_EQ(l->s().reffreq, c.ref);
        EXPECT_EQ(l->s().dbandwidth, 500000.0);
        EXPECT_EQ(l->s().storageinfo, 1);
        EXPECT_NE(l->ui.console.find("+/-/D? <D>"), std::string::npos);
        EXPECT_NE(l->ui.console.find(c.said), std::string::npos);
    }
}

TEST(TulvaReader, LegacyPhasedDatacountReadsTheWordAndYieldsZero) {
    TempDir dir;
    auto l = load_text(dir, {"TULVA Data File", "Data Points: 4", "Phased_Datacount= 4"}, test::float_bytes({1, 2, 3, 4}));
    ASSERT_EQ(l->rc, 0);
    EXPECT_EQ(l->s().Phased_Datacount, 0);
    EXPECT_EQ(l->s().datacount, 0);
    EXPECT_TRUE(l->s().data.empty());
}

TEST(TulvaReader, FailuresGiveTheirMessages) {
    TempDir dir;
    struct Case {
        std::string bytes;
        const char* title;
        const char* text;
    };
    const std::vector<Case> cases = {
        {"", "File Input Error", "Not Valid TULVA Data File Format"},
        {"\n\n\n", "File Input Error", "Not Valid TULVA Data File Format"},
        {"Vantorix Data File v4.00\nData Points: 4\n", "File Input Error", "No Data Marker Found"},
        {"TULVA Data File v3.0\nData Points: 4\n", "File Input Error", "No Data Marker Found"},
        {"TULVA Data File v2.0\nData Points: 4\n", "File Input Error", "No Data Marker Found"},
        {"TULVA Data File\nData Points: 4\n", "File Input Error", "No Data Marker Found"},
        {"Vantorix Data File v4.00\nData Points: 0\nData:\n", "File Input Error", "No Data Count Specified"},
        {"TULVA Data File v3.0\nData Points: 0\nData:\n", "File Input Error", "No Data Count Specified"},
        {"Vantorix Data File v4.00\nComment :\nno end\n", "File Input Error", "No Data Marker Found"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes);
        const std::string p = dir.file("bad.dat");
        test::write_file(p, c.bytes);
        auto l = load(p);
        EXPECT_EQ(l->rc, -1);
        EXPECT_EQ(l->ws.panels[0].active, 0);
        ASSERT_FALSE(l->ui.messages.empty());
        EXPECT_EQ(l->ui.messages.back().title, c.title);
        EXPECT_EQ(l->ui.messages.back().text, c.text);
    }
    // Counts no file can hold are refused before anything is allocated.
    for (const char* count : {"-5", "2000000000"}) {
        const std::string p = dir.file("huge.dat");
        test::write_file(p, std::string("Vantorix Data File v4.00\nData Points: ") + count + "\nData:\n");
        auto l = load(p);
        EXPECT_EQ(l->rc, -1);
        ASSERT_FALSE(l->ui.messages.empty());
        EXPECT_EQ(l->ui.messages.back().title, "File Input Error");
    }
    auto missing = load(dir.file("does-not-exist.dat"));
    EXPECT_EQ(missing->rc, -1);
    EXPECT_EQ(missing->ui.messages.back().title, "File Input Error");
}

TEST(TulvaReader, TruncatedAndGarbageFilesNeverCrash) {
    TempDir dir;
    std::string good = "Vantorix Data File v4.00\nCollection Mode: SED2\nData Points: 8\nComment :\nx\nEnd of Comment\n"
                       "Walking Calibration Regions = 3\n";
    good += test::double_bytes(std::vector<double>(12, 1.0));
    good += "Data:\n" + test::int16_bytes(std::vector<std::int16_t>(8, 3)) + "\nSED Data:\n" +
            test::int16_bytes(std::vector<std::int16_t>(8, 4)) + "\nSED Data2:\n" +
            test::int16_bytes(std::vector<std::int16_t>(8, 5));
    const std::string p = dir.file("cut.dat");
    for (std::size_t n = 0; n <= good.size(); ++n) {
        test::write_file(p, good.substr(0, n));
        auto l = load(p);
        if (l->rc < 0) {
            ASSERT_FALSE(l->ui.messages.empty()) << "silent failure at length " << n;
        }
    }
    std::mt19937 rng(7);
    for (int round = 0; round < 200; ++round) {
        std::string junk(static_cast<std::size_t>(rng() % 4096), '\0');
        for (auto& ch : junk) ch = static_cast<char>(rng());
        // Half of them look like a Tulva header so that the key loop sees garbage.
        if (round % 2) junk = "Vantorix Data File v4.00\n" + junk;
        if (round % 4 == 1) junk = "TULVA Data File v3.0\n" + junk;
        test::write_file(p, junk);
        auto l = load(p);
        if (l->rc < 0) {
            ASSERT_FALSE(l->ui.messages.empty());
        }
    }
}

TEST(TulvaReader, CompressedFilesUnpackThroughTheTempFolder) {
    TempDir dir;
    const std::string temp = (dir.path() / "temp").string();
    std::filesystem::create_directories(temp);
    const std::string src = dir.file("x.dat");
    test::write_file(src, test::tulva_text({"Vantorix Data File v4.00", "Data Points: 3"}, test::int16_bytes({1, 2, 3})));
    ASSERT_EQ(zip1(src, dir.path().string()), 0);

    Settings on;
    on.WINZIP = "minizip";
    on.TEMP = temp;
    auto l = load(src + ".Z", &on);
    ASSERT_EQ(l->rc, 0);
    EXPECT_EQ(l->s().data, (std::vector<float>{1.f, 2.f, 3.f}));
    EXPECT_EQ(l->s().filename, src + ".Z");
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(temp) / "x.dat"));  // unpacked copy removed
    EXPECT_TRUE(std::filesystem::is_empty(temp));  // nothing of the unpacking stays behind

    // Without an archiver configured the archive is read as it is, and refused.
    Settings off = on;
    off.WINZIP.clear();
    auto r = load(src + ".Z", &off);
    EXPECT_EQ(r->rc, -1);
    EXPECT_TRUE(r->ui.saw("File Input Error", "Not Valid TULVA Data File Format"));

    // A broken archive.
    const std::string bad = dir.file("y.dat.Z");
    test::write_file(bad, "PK\x03\x04 this is not really a zip archive");
    auto b = load(bad, &on);
    EXPECT_EQ(b->rc, -1);
    EXPECT_TRUE(b->ui.saw("Error", "Cannot unzip file!"));
}

TEST(TulvaReader, CommandLineInfo) {
    TempDir dir;
    const std::string p = dir.file("cli.dat");
    test::write_file(p, test::tulva_text({"Vantorix Data File v4.00", "Data Points: 4", "Trap Voltage: 1.5"},
                                         test::int16_bytes({-1, 5, 2, 0})));
    const std::string home = dir.file("home");
    test::CliRun r = test::run_cli(home, "info --json " + p);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("\"Trapvoltage\": 1.5"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("\"min\": -1.0"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("\"max\": 5.0"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("\"sum\": 6.0"), std::string::npos) << r.out;

    // A peak list is read back by the peak-list reader.
    const std::string pks = dir.file("list_dat.pks");
    std::string text = "There were 2 Peaks found from m/z=   300.00    to m/z=   700.00.\r\nPOSITIVE ION MODE\r\n"
                       "Noise threshold: 1.000000        Peak threshold: 5.000000\r\n\r\n"
                       " Center of Mass for the Assigned Window is    450.0000\r\n\r\n"
                       " Peak Location    Peak Height           Abundance         Resolving Power      Frequency\r\n\r\n";
    text += fmt::sprintf("%10.5f       %9.4f       %14.7f              %d         %14.6f\r\n", 600.25, 40.0, 4000.0,
                         150000, 79194.5);
    text += fmt::sprintf("%10.5f       %9.4f       %14.7f              %d         %14.6f\r\n", 400.125, 100.0, 10000.0,
                         220000, 118808.25);
    test::write_file(pks, text);
    r = test::run_cli(home, "info --json " + pks);
    ASSERT_EQ(r.status, 0) << r.err;
    const auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["header"]["domain"], 3);
    EXPECT_EQ(j["header"]["peakcount"], 2);
    ASSERT_EQ(j["peaks"].size(), 2u);
    EXPECT_DOUBLE_EQ(j["peaks"][0]["index"].get<double>(), 600.25);
    EXPECT_DOUBLE_EQ(j["peaks"][1]["resolvingpower"].get<double>(), 220000.0);
    EXPECT_DOUBLE_EQ(j["peaks"][1]["frequency"].get<double>(), 118808.25);

    const std::string bad = dir.file("bad.dat");
    test::write_file(bad, "Vantorix Data File v4.00\nData Points: 4\n");
    r = test::run_cli(home, "info " + bad);
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("File Input Error: No Data Marker Found"), std::string::npos) << r.err;
}

}  // namespace
}  // namespace vx

namespace vx {
namespace {

TEST(TulvaReaderSed, ExplicitChannelOpenReadsBehindItsOwnMarker) {
    test::TempDir dir;
    const std::string p = dir.file("two.dat");
    // The explicit open path reads the block behind "SED:" and has its own,
    // smaller table of keys: no frequency range, no walking table.
    std::string text = "Vantorix Data File v4.00\nData Points: 2\nlowfreq: 5000\ndbandwidth: 2000000 RelativeX: 7\n"
                       "Walking Calibration Regions = 1\nData:\n";
    text += test::int16_bytes({1, 2}) + "\nSED:\n" + test::int16_bytes({8, 9});
    test::write_file(p, text);
    Workspace ws;
    RecordingUi ui;
    Spectrum s;
    ASSERT_EQ(Get_Tulva_Data_SED(ws, p, s, ui), 0);
    EXPECT_EQ(s.data, (std::vector<float>{8.f, 9.f}));
    EXPECT_EQ(s.lowfreq, -1.0);
    EXPECT_EQ(s.dbandwidth, 2000000.0);
    EXPECT_EQ(s.relativex, 7.0);  // tested on the same line, no early exit
    EXPECT_EQ(s.walkingregions, 0);
    EXPECT_EQ(s.storageinfo, 0);

    // A file without the marker is refused with the reader's message.
    const std::string q = dir.file("one.dat");
    test::write_file(q, test::tulva_text({"Vantorix Data File v4.00", "Data Points: 2"}, test::int16_bytes({1, 2})));
    Spectrum t;
    EXPECT_EQ(Get_Tulva_Data_SED(ws, q, t, ui), -1);
    EXPECT_EQ(ui.messages.back().text, "No Data Marker Found");
}

}  // namespace
}  // namespace vx
