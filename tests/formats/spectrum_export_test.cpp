// Spectrum exports byte for byte on small records, the file-name rules and the
// overwrite question.
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <fmt/printf.h>
#include <gtest/gtest.h>

#include "formats/spectrum_export.hpp"
#include "platform/ui.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;

using test::TempDir;

Spectrum record(int domain, int detectmode, std::vector<float> data, double bw) {
    Spectrum s;
    s.domain = domain;
    s.detectmode = detectmode;
    s.datacount = static_cast<int>(data.size());
    s.data = std::move(data);
    s.dbandwidth = bw;
    s.Aterm = 1000.0;
    s.Bterm = -100.0;
    s.Trapvoltage = 1.0;
    return s;
}

TEST(SpectrumExport, TextLayoutsByDomainAndMode) {
    TempDir dir;
    struct Case {
        const char* name;
        Spectrum s;
        std::string expect;
    };
    Spectrum freq = record(DOMAIN_FREQUENCY, DETECT_DIRECT, {5.0f, 1.5f, -2.25f}, 1000.0);
    freq.hzppt = 250.0;
    volatile double zero = 0.0;  // the arithmetic's own text for infinity minus infinity
    const std::string point0 = fmt::sprintf("%.6f", 1000.0 / zero + (-100.0 + 1.0) / (zero * zero));
    std::vector<Case> cases = {
        {"frequency", freq,
         "Number of Points: 3\r\nBandwidth: 1000.000000000000000\r\nData:\r\n0.000000,0.000\r\n"
         "250.000000,1.500\r\n500.000000,-2.250\r\n"},
        {"time", record(DOMAIN_TIME, DETECT_DIRECT, {1.0f, 2.0f}, 1000.0),
         "Number of Points: 2\r\nBandwidth: 1000.000000000000000\r\nData:\r\n0.000000e+00,1.000\r\n"
         "5.000000e-04,2.000\r\n"},
        {"quadrature", record(DOMAIN_TIME, DETECT_QUADRATURE, {1.0f, 2.0f, 3.0f, 4.0f}, 500.5),
         "Number of Points: 2\r\nBandwidth: 500.500000000000000\r\nData:\r\n1.000, 2.000\r\n3.000, 4.000\r\n"},
        // m/z = A / f + (B + V) / f^2 with f = i * 1000 Hz; point 0 divides by zero.
        {"mass", record(DOMAIN_MASS, DETECT_DIRECT, {9.0f, 8.0f, 7.5f}, 3000.0),
         "Number of Points: 3\r\nBandwidth: 3000.000000000000000\r\nCoeff 0 = 1000.000000\r\n"
         "Coeff 1 = -100.000000\r\nData:\r\n" + point0 + ",9.000\r\n0.999901,8.000\r\n0.499975,7.500\r\n"},
        {"sticks", record(DOMAIN_PEAKLIST, DETECT_DIRECT, {1.0f}, 1000.0),
         "Number of Points: 1\r\nBandwidth: 1000.000000000000000\r\n"},
    };
    for (const Case& c : cases) {
        const std::string path = dir.file(std::string(c.name) + ".csv");
        RecordingUi ui;
        ASSERT_EQ(write_spectrum_text(c.s, path, ui), 0) << c.name;
        EXPECT_EQ(test::read_file(path), c.expect) << c.name;
        EXPECT_TRUE(ui.messages.empty());
    }
}

TEST(SpectrumExport, BinaryBlockAndWaveLayouts) {
    TempDir dir;
    const std::vector<float> data = {1.25f, -2.0f, 3.5f};
    Spectrum s = record(DOMAIN_FREQUENCY, DETECT_DIRECT, data, 3000.0);
    RecordingUi ui;

    ASSERT_EQ(write_spectrum_binary(s, dir.file("a.bin"), ui), 0);
    EXPECT_EQ(test::read_file(dir.file("a.bin")), test::float_bytes(data));

    // Five int32 (the count, then zeros), masses with A and B (point 0 is
    // 100000), then the samples.
    ASSERT_EQ(write_spectrum_block(s, dir.file("a.xy.bin"), ui), 0);
    const std::vector<std::int32_t> head = {3, 0, 0, 0, 0};
    const std::vector<float> masses = {100000.0f, static_cast<float>(1000.0 / 1000.0 - 100.0 / 1e6),
                                       static_cast<float>(1000.0 / 2000.0 - 100.0 / 4e6)};
    EXPECT_EQ(test::read_file(dir.file("a.xy.bin")), test::int32_bytes(head) + test::float_bytes(masses) + test::float_bytes(data));

    // A law with a negative result stores 100000 at that point as well.
    Spectrum neg = s;
    neg.Bterm = -1e12;
    ASSERT_EQ(write_spectrum_block(neg, dir.file("n.xy.bin"), ui), 0);
    const std::string nb = test::read_file(dir.file("n.xy.bin"));
    float m1 = 0.0f;
    std::memcpy(&m1, nb.data() + 20 + 4, 4);
    EXPECT_EQ(m1, 100000.0f);

    ASSERT_EQ(write_wave_file(s, dir.file("a.wav"), ui), 0);
    const std::string head_text =
        "RIFF.;..WAVEfmt.........\"V...X..\r\n....data|;......\r\n................\r\n................";
    EXPECT_EQ(test::read_file(dir.file("a.wav")), head_text + test::float_bytes(data));
    EXPECT_TRUE(ui.messages.empty());
}

TEST(SpectrumExport, CommandsAskAndNameAsTheDialoguesDo) {
    TempDir dir;
    Workspace ws;
    ws.panels[0].active = 1;
    ws.panels[0].spectrum = record(DOMAIN_FREQUENCY, DETECT_DIRECT, {1.0f, 2.0f}, 1000.0);
    ws.active_panel = 0;

    // Kind 2 adds ".bin" and asks before it overwrites.
    RecordingUi ui;
    ASSERT_EQ(SaveRawSpectrum(ws, RAW_BLOCK, dir.file("out"), ui), 0);
    EXPECT_TRUE(fs::exists(dir.file("out.bin")));
    const std::string first = test::read_file(dir.file("out.bin"));
    ws.panels[0].spectrum.data = {7.0f, 8.0f};
    ui.confirms.push_back(false);
    EXPECT_EQ(SaveRawSpectrum(ws, RAW_BLOCK, dir.file("out.bin"), ui), -1);
    EXPECT_EQ(ui.messages.back().kind, "confirm");
    EXPECT_EQ(ui.messages.back().title, "File exists");
    EXPECT_EQ(ui.messages.back().text, "The file " + dir.file("out.bin") + " exists. Overwrite this file?");
    EXPECT_EQ(test::read_file(dir.file("out.bin")), first);
    ui.confirms.push_back(true);
    EXPECT_EQ(SaveRawSpectrum(ws, RAW_BLOCK, dir.file("out.bin"), ui), 0);
    EXPECT_NE(test::read_file(dir.file("out.bin")), first);

    // Kind 1 asks for a scale factor that it does not apply.
    RecordingUi ui1;
    ui1.prompts.push_back(std::string("1000"));
    ASSERT_EQ(SaveRawSpectrum(ws, RAW_BINARY, dir.file("raw.bin"), ui1), 0);
    EXPECT_TRUE(ui1.saw("Scale Factor", "Type in the scale factor:"));
    EXPECT_EQ(test::read_file(dir.file("raw.bin")), test::float_bytes(std::vector<float>{7.0f, 8.0f}));

    // Without a name the dialogue asks; a cancelled dialogue writes nothing.
    RecordingUi ui2;
    EXPECT_EQ(SaveRawSpectrum(ws, RAW_TEXT, "", ui2), -1);
    EXPECT_EQ(ui2.messages[0].title, "Save Spectrum as ASCII");
    EXPECT_EQ(SaveWaveFileFormat(ws, "", ui2), -1);
    EXPECT_EQ(ui2.messages[1].title, "Save Wave File");

    Workspace none;
    RecordingUi ui3;
    EXPECT_EQ(SaveRawSpectrum(none, RAW_TEXT, dir.file("x.csv"), ui3), -1);
    EXPECT_TRUE(ui3.saw("Operator Error", "No Spectrum Chosen"));
    EXPECT_EQ(SaveRawSpectrum(ws, 5, dir.file("x.csv"), ui3), -1);
}

TEST(SpectrumExport, UnwritablePathsGiveAMessage) {
    Spectrum s = record(DOMAIN_FREQUENCY, DETECT_DIRECT, {1.0f}, 1000.0);
    const std::string bad = "/nonexistent-folder-vx/spectrum.csv";
    for (auto writer : {write_spectrum_text, write_spectrum_binary, write_spectrum_block, write_wave_file}) {
        RecordingUi ui;
        EXPECT_EQ(writer(s, bad, ui), -1);
        EXPECT_TRUE(ui.saw("File Output Error", "Cannot write the file " + bad + "."));
    }
}

TEST(SpectrumExport, KindFromTheOutputName) {
    struct Case {
        const char* name;
        int kind;
    };
    for (Case c : {Case{"a.csv", RAW_TEXT}, Case{"a.CSV", RAW_TEXT}, Case{"a.bin", RAW_BINARY},
                   Case{"a.xy.bin", RAW_BLOCK}, Case{"dir.x/a.XY.BIN", RAW_BLOCK}, Case{"a.wav", EXPORT_WAVE},
                   Case{"a.txt", -1}, Case{"bin", -1}, Case{"", -1}})
        EXPECT_EQ(export_kind_of(c.name), c.kind) << c.name;
}

}  // namespace
}  // namespace vx
