// Readers of the other instruments: Odyssey, Melbar, Vosk, time-of-flight text.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <numbers>

#include "formats/instruments.hpp"
#include "formats/open_file.hpp"
#include "formats/tulva_reader.hpp"
#include "platform/ui.hpp"
#include "platform/zip.hpp"
#include "sim/simulator.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"
#include "support/instrument_files.hpp"

namespace vx {
namespace {

std::vector<float> ramp(std::size_t n) {
    std::vector<float> v(n);
    for (std::size_t i = 0; i < n; ++i) v[i] = std::sin(0.1f * static_cast<float>(i)) * 3.5f - 0.25f;
    return v;
}

TEST(Odyssey, HandAssembledFileFillsTheRecord) {
    const test::TempDir dir;
    test::OdysseyFile f;
    f.samples = ramp(1000);
    f.bandwidth = 2500000.0f;
    f.reffreq = 123456.789;
    f.trap = 0.75;
    f.coefficients[0] = 1.07e8;
    f.coefficients[1] = -2.5e9;
    f.coefficients[2] = 3.0;
    f.coefficients[3] = 4.0;
    f.coefficients[4] = 5.0;
    const std::string path = dir.write("run.odyssey", test::odyssey_bytes(f));
    Workspace ws;
    RecordingUi ui;
    ASSERT_EQ(open_format_of(ws, path), "odyssey");  // by the script line, whatever the name
    const int slot = open_any_file(ws, path, ui);
    ASSERT_GE(slot, 0) << (ui.messages.empty() ? "" : ui.messages[0].text);
    const Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    EXPECT_EQ(s.filetype, FILETYPE_ODYSSEY);
    EXPECT_EQ(s.domain, DOMAIN_TIME);
    ASSERT_EQ(s.datacount, 1000);
    EXPECT_EQ(s.data, f.samples);  // big-endian floats, bit for bit
    EXPECT_DOUBLE_EQ(s.dbandwidth, 2500000.0);
    EXPECT_DOUBLE_EQ(s.reffreq, 123456.789);
    EXPECT_DOUBLE_EQ(s.Trapvoltage, 0.75);  // the double of a type-4 entry, read on past its 16 bytes
    EXPECT_DOUBLE_EQ(s.Aterm, 1.07e8);
    EXPECT_DOUBLE_EQ(s.Bterm, -2.5e9);
    EXPECT_DOUBLE_EQ(s.Cterm, 3.0);
    EXPECT_DOUBLE_EQ(s.calcoeff3, 4.0);
    EXPECT_DOUBLE_EQ(s.calcoeff4, 5.0);
}

TEST(Odyssey, CalibrationTypeAndHeterodyneFlag) {
    struct Case {
        int calib_type, heterodyne, caltype, detectmode;
    } cases[] = {{3, 0, CALTYPE_THREE_TERM, DETECT_DIRECT},
                 {1, 1, CALTYPE_TWO_TERM, DETECT_NEGATIVE_HETERODYNE},
                 {2, 0, CALTYPE_TWO_TERM, DETECT_DIRECT},  // unknown types keep caltype 0
                 {0, 7, CALTYPE_TWO_TERM, DETECT_DIRECT}};
    const test::TempDir dir;
    for (const Case& c : cases) {
        test::OdysseyFile f;
        f.samples = ramp(16);
        f.calib_type = c.calib_type;
        f.heterodyne = c.heterodyne;
        const std::string path = dir.write("c.bin", test::odyssey_bytes(f));
        Workspace ws;
        RecordingUi ui;
        Spectrum s;
        ASSERT_EQ(Get_Odyssey_Data(ws, path, s, ui), 0);
        EXPECT_EQ(s.caltype, c.caltype) << c.calib_type;
        EXPECT_EQ(s.detectmode, c.detectmode) << c.heterodyne;
        EXPECT_DOUBLE_EQ(s.Aterm, DEFAULT_ATERM);  // no coefficient table
    }
}

TEST(Odyssey, ZArchiveWhateverItsMemberIsCalled) {
    const test::TempDir dir;
    test::OdysseyFile f;
    f.samples = ramp(256);
    const std::string inner = dir.write("another-name", test::odyssey_bytes(f));
    ASSERT_EQ(zip1(inner, dir.path().string()), 0);
    const std::string archive = dir.file("run.Z");
    std::filesystem::rename(dir.file("another-name.Z"), archive);
    std::filesystem::remove(inner);
    Workspace ws;
    ws.settings.WINZIP = "minizip";
    ws.settings.TEMP = dir.path().string();
    RecordingUi ui;
    const int slot = open_any_file(ws, archive, ui);
    ASSERT_GE(slot, 0);
    EXPECT_EQ(ws.panels[static_cast<std::size_t>(slot)].spectrum.data, f.samples);
    // Nothing is left in TEMP but the archive.
    std::size_t files = 0;
    for (const auto& e : std::filesystem::directory_iterator(dir.path())) files += e.is_regular_file();
    EXPECT_EQ(files, 1u);
}

TEST(Odyssey, BadFilesAreRefusedWithAMessage) {
    const test::TempDir dir;
    test::OdysseyFile f;
    f.samples = ramp(64);
    const std::string good = test::odyssey_bytes(f);
    f.script = false;
    const std::string noscript = test::odyssey_bytes(f);
    std::string huge_c = good;
    huge_c.replace(16, 4, test::be32_bytes(0xFFFFFFFCu));
    std::string huge_p = good;
    huge_p.replace(32, 4, test::be32_bytes(0x7FFFFFFFu));
    std::string huge_a = good;
    huge_a.replace(8, 4, test::be32_bytes(0xFFFFFFFFu));
    struct Case {
        const char* name;
        std::string bytes;
        const char* text;  // exact text, or nullptr for any message
    } cases[] = {{"no script line", noscript, "This is NOT an Odyssey Data File"},
                 {"empty", "", "This is NOT an Odyssey Data File"},
                 {"data beyond the file", huge_c, nullptr},
                 {"sections overflow", huge_a, nullptr},
                 {"table beyond the file", huge_p, nullptr}};
    for (const Case& c : cases) {
        const std::string path = dir.write("bad.ody", c.bytes);
        Workspace ws;
        RecordingUi ui;
        Spectrum s;
        EXPECT_EQ(Get_Odyssey_Data(ws, path, s, ui), -1) << c.name;
        ASSERT_FALSE(ui.messages.empty()) << c.name;
        EXPECT_EQ(ui.messages[0].title, "Open Odyssey File Error") << c.name;
        if (c.text) {
            EXPECT_EQ(ui.messages[0].text, c.text) << c.name;
        }
    }
    // Every cut of a good file is read or refused, never over-read (ASan).
    for (std::size_t cut = 0; cut < good.size(); cut += 7) {
        const std::string path = dir.write("cut.ody", good.substr(0, cut));
        Workspace ws;
        RecordingUi ui;
        Spectrum s;
        const int rc = Get_Odyssey_Data(ws, path, s, ui);
        if (rc == 0) {
            EXPECT_EQ(s.data.size(), f.samples.size());
        } else {
            EXPECT_FALSE(ui.messages.empty());
        }
    }
    Workspace ws;
    RecordingUi ui;
    Spectrum s;
    EXPECT_EQ(Get_Odyssey_Data(ws, dir.file("missing"), s, ui), -1);
    EXPECT_TRUE(ui.saw("Error", "Can not find the file!"));
}

TEST(Melbar, ChannelsOfTheRecords) {
    const test::TempDir dir;
    const std::vector<std::array<float, 5>> recs = {
        {1, 2, 3, 4, 5}, {-1, -2, 0, 2, 7}, {0, 0, 0, -3, 1}, {0, 0, 0, 0, 9}, {9, 9, -2, 2, 8}};
    const std::string path = dir.write("m.bin", test::melbar_bytes(recs));
    const float half_pi = static_cast<float>(std::numbers::pi / 2);
    struct Case {
        int channel;
        std::vector<float> want;
    } cases[] = {{0, {3, 0, 0, 0, -2}},
                 {1, {std::atan(4.0f / 3.0f), half_pi, -half_pi, 0.0f, std::atan(-1.0f)}},  // c = 0: +-pi/2, or 0
                 {2, {0, 0, 0, 0, 0}},  // no channel of the layout: zeros
                 {3, {5, 7, 1, 9, 8}},
                 {4, {4, 2, -3, 0, 2}}};
    for (const Case& c : cases) {
        RecordingUi ui;
        Spectrum s;
        ASSERT_EQ(Get_Melbar_Data(path, s, {0, c.channel}, ui), 0);
        ASSERT_EQ(s.datacount, 5);
        for (std::size_t i = 0; i < 5; ++i) EXPECT_FLOAT_EQ(s.data[i], c.want[i]) << c.channel << " " << i;
    }
    RecordingUi ui;
    Spectrum s;
    ASSERT_EQ(Get_Melbar_Data(path, s, {3, 0}, ui), 0);
    EXPECT_EQ(s.datacount, 3);
    EXPECT_EQ(Get_Melbar_Data(path, s, {6, 0}, ui), -1);  // more points than records
    EXPECT_EQ(ui.messages.back().title, "File Input Error");
    EXPECT_EQ(Get_Melbar_Data(dir.write("e.bin", ""), s, {0, 0}, ui), -1);
}

TEST(Vosk, HeaderChannelsAndTheOneChannelRead) {
    const test::TempDir dir;
    const std::vector<float> samples = ramp(300);
    // 0 channels in the header means 5.
    const std::string path = dir.write("v.bin", test::vosk_bytes(samples, 0.5e-6f, 0, 5));
    RecordingUi ui;
    Spectrum s;
    ASSERT_EQ(Get_Vosk_Data(path, s, {0, VOSK_WORKING_CHANNEL}, true, ui), 0);
    EXPECT_EQ(s.data, samples);
    EXPECT_NEAR(s.dbandwidth, 1.0e6, 0.1);  // 1 / t x 0.5
    EXPECT_EQ(s.ionpolarity, 0);
    // The dialogue's preset channel 4 reads nothing: the samples stay zero.
    ASSERT_EQ(Get_Vosk_Data(path, s, {0, VOSK_PRESET_CHANNEL}, true, ui), 0);
    EXPECT_EQ(s.data, std::vector<float>(300, 0.0f));
    // Three channels, 100 points asked.
    const std::string three = dir.write("v3.bin", test::vosk_bytes(samples, 1e-6f, 3, 3));
    ASSERT_EQ(Get_Vosk_Data(three, s, {100, VOSK_WORKING_CHANNEL}, true, ui), 0);
    EXPECT_EQ(s.data, std::vector<float>(samples.begin(), samples.begin() + 100));
    // The opening road reads channel 5.
    Workspace ws;
    ws.open_options.format = "vosk";
    const int slot = open_any_file(ws, path, ui);
    ASSERT_GE(slot, 0);
    EXPECT_EQ(ws.panels[static_cast<std::size_t>(slot)].spectrum.data, samples);
    // Truncated, garbage header.
    std::string cut = test::vosk_bytes(samples, 0.5e-6f, 5, 5);
    cut.resize(cut.size() - 4);
    EXPECT_EQ(Get_Vosk_Data(dir.write("cut.bin", cut), s, {0, 5}, true, ui), -1);
    EXPECT_EQ(Get_Vosk_Data(dir.write("short.bin", "abc"), s, {0, 5}, true, ui), -1);
    std::string nan_head = cut;
    const float nan = std::nanf("");
    nan_head.replace(0, 4, reinterpret_cast<const char*>(&nan), 4);
    EXPECT_EQ(Get_Vosk_Data(dir.write("nan.bin", nan_head), s, {0, 5}, true, ui), -1);
}

TEST(TimeOfFlight, LinesAndBins) {
    const test::TempDir dir;
    const std::string path = dir.write("t.txt", "mass counts\n0.4 3\n1.2 5\n1.9 2\n3.5 10.9\n\n");
    struct Case {
        std::optional<double> bin;
        std::vector<double> x;
        std::vector<float> y;
    } cases[] = {{std::nullopt, {0.4, 1.2, 1.9, 3.5}, {3, 5, 2, 10}},  // the integer behind the blank
                 {0.0, {0.4, 1.2, 1.9, 3.5}, {3, 5, 2, 10}},           // bin 0: no binning
                 {150.0, {0.4, 1.2, 1.9, 3.5}, {3, 5, 2, 10}},
                 {1.0, {0.5, 1.5, 2.5, 3.5, 4.5}, {3, 7, 0, 10, 0}},    // ceil(3.5) + 1 bins
                 {2.0, {1.0, 3.0, 5.0}, {10, 10, 0}}};
    for (const Case& c : cases) {
        RecordingUi ui;
        Spectrum s;
        ASSERT_EQ(Get_Standing_TOF(path, s, c.bin, ui), 0);
        EXPECT_EQ(s.xvalues, c.x);
        EXPECT_EQ(s.data, c.y);
        EXPECT_EQ(s.datacount, static_cast<int>(c.y.size()));
        EXPECT_EQ(s.domain, DOMAIN_PROFILE);
    }
    // Without an answer the reader asks, in its own words.
    RecordingUi ui;
    ui.prompts.push_back("1");
    Spectrum s;
    ASSERT_EQ(Get_Standing_TOF(path, s, std::nullopt, ui), 0);
    EXPECT_EQ(ui.messages[0].title, "Bin data for greater signal to noise");
    EXPECT_EQ(ui.messages[0].text, "Please enter m/z size (between 0.1 and 100 m/z) for each bin");
    EXPECT_EQ(s.datacount, 5);
    EXPECT_EQ(Get_Standing_TOF(dir.write("e.txt", ""), s, 1.0, ui), -1);
    EXPECT_EQ(Get_Standing_TOF(dir.write("big.txt", "1e300 1\n"), s, 0.1, ui), -1);
}

// One transient written as Odyssey, Vosk and Melbar gives the peak list of its .dat.
TEST(Instruments, OneTransientFourLayoutsOnePeakList) {
    const test::TempDir dir;
    const std::string ions = dir.write("ions.csv", "500.2, 0.5\n750.4, 0.3\n1000.6, 0.2\n");
    const std::string dat = dir.file("sim.dat");
    auto r = test::run_cli(dir.path().string(), "simulate " + ions + " -o " + dat +
                                                    " --points 65536 --storage float --seed 3 --date 2026-11-23");
    ASSERT_EQ(r.status, 0) << r.err;
    Workspace ws;
    RecordingUi ui;
    const int slot = test::open_tulva_file(ws, dat, ui);
    ASSERT_GE(slot, 0);
    const Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    ASSERT_DOUBLE_EQ(s.dbandwidth, 1.0e6);

    test::OdysseyFile o;
    o.samples = s.data;
    o.bandwidth = static_cast<float>(s.dbandwidth);
    o.coefficients[0] = s.Aterm;
    o.coefficients[1] = s.Bterm;
    dir.write("sim.ody", test::odyssey_bytes(o));
    dir.write("sim.vosk", test::vosk_bytes(s.data, static_cast<float>(0.5 / s.dbandwidth), 5, 5));
    std::vector<std::array<float, 5>> recs(s.data.size());
    for (std::size_t i = 0; i < recs.size(); ++i) recs[i] = {0.f, 1.f, s.data[i], 0.f, 0.f};
    dir.write("sim.melbar", test::melbar_bytes(recs));

    auto peaks = [&](const std::string& file, const std::string& extra) {
        auto run = test::run_cli(dir.path().string(), "peaks " + dir.file(file) + " -o " + dir.file(file + ".pks") +
                                                           " --json" + extra);
        EXPECT_EQ(run.status, 0) << file << run.err;
        return nlohmann::json::parse(run.out, nullptr, false);
    };
    const auto want = peaks("sim.dat", "");
    ASSERT_TRUE(want.is_object());
    ASSERT_GE(want["peaks"].size(), 3u);
    for (const auto& [file, extra] : std::vector<std::pair<std::string, std::string>>{
             {"sim.ody", ""}, {"sim.vosk", " --format vosk"}, {"sim.melbar", " --format melbar"}}) {
        const auto got = peaks(file, extra);
        ASSERT_TRUE(got.is_object()) << file;
        ASSERT_EQ(got["peaks"].size(), want["peaks"].size()) << file;
        for (std::size_t i = 0; i < want["peaks"].size(); ++i) {
            const double m = want["peaks"][i]["mz"].get<double>();
            EXPECT_NEAR(got["peaks"][i]["mz"].get<double>(), m, m * 1e-6) << file;
            const double a = want["peaks"][i]["abundance"].get<double>();
            EXPECT_NEAR(got["peaks"][i]["abundance"].get<double>(), a, std::abs(a) * 1e-4) << file;
        }
    }
    // info --json names the format.
    auto info = test::run_cli(dir.path().string(), "info " + dir.file("sim.vosk") + " --format vosk --json");
    ASSERT_EQ(info.status, 0) << info.err;
    const auto j = nlohmann::json::parse(info.out);
    EXPECT_EQ(j["format"], "vosk");
    EXPECT_EQ(j["filetype"], FILETYPE_TULVA);
    EXPECT_EQ(j["domain"], DOMAIN_TIME);
    EXPECT_EQ(j["scans"], 0);
}

TEST(Instruments, ThermoRawIsRefusedNamingTheConversion) {
    const test::TempDir dir;
    const std::string raw = dir.write("run.raw", "not really");
    auto r = test::run_cli(dir.path().string(), "info " + raw);
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("ThermoRawFileParser -f 2 -N -p"), std::string::npos) << r.err;
}

}  // namespace
}  // namespace vx

namespace vx {
namespace {

TEST(Lcms, ChromatogramOfPeakListsThroughTheCommand) {
    const test::TempDir dir;
    auto row = [](double mz, double height) {
        char line[120];
        std::snprintf(line, sizeof line, " %10.5f   %9.4f\n", mz, height);
        return std::string(line);
    };
    dir.write("a_Z.pks", "Peaklist:  2 peaks\nPOSITIVE ION MODE\nthresholds\nData Detected at (seconds): 2.5\nheader\n" +
                             row(400, 10) + row(500, 30));
    dir.write("b_Z.pks", "Peaklist:  1 peaks\nPOSITIVE ION MODE\nthresholds\nno time\nheader\n" + row(450, 7));
    const std::string args = dir.file("a_Z.pks") + " " + dir.file("b_Z.pks");
    auto r = test::run_cli(dir.path().string(), "lcms " + args + " --json");
    ASSERT_EQ(r.status, 0) << r.err;
    const auto j = nlohmann::json::parse(r.out);
    ASSERT_EQ(j["points"].size(), 2u);
    EXPECT_DOUBLE_EQ(j["points"][0]["time"].get<double>(), 2.5);
    EXPECT_DOUBLE_EQ(j["points"][0]["abundance"].get<double>(), 40.0);
    EXPECT_DOUBLE_EQ(j["points"][1]["time"].get<double>(), 1.0);  // no "Data Detected" line: the index
    EXPECT_EQ(j["points"][1]["file"], dir.file("b.Z"));             // the raw file the scan stands for
    r = test::run_cli(dir.path().string(), "lcms " + args + " --sic 450:550 -o " + dir.file("c.csv"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(test::read_file(dir.file("c.csv")),
              "scan,time,abundance,file\n0,2.5,30," + dir.file("a.Z") + "\n1,1,7," + dir.file("b.Z") + "\n");
    r = test::run_cli(dir.path().string(), "lcms " + dir.file("none_Z.pks"));
    EXPECT_NE(r.status, 0);
}

}  // namespace
}  // namespace vx
