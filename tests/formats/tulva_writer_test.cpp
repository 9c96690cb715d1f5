#include "formats/tulva_writer.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "formats/tulva_reader.hpp"
#include "platform/ui.hpp"
#include "platform/zip.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

const std::vector<float> SAMPLES = {1.5f, -2.25f, 3.0f, 1e-7f, -4e6f, 0.0f, 7.125f, 8.0f};

std::vector<std::string> v4_header(int n = 8) {
    return {"Vantorix Data File v4.00",
            "Data Collected on Tuesday",
            "Project Code = P17",
            "Date: 45123",
            "expcount: 1",
            "Data Detected at (seconds): 0.0125",
            "Comment :",
            "Data Points: 999 inside the comment stays",
            "End of Comment",
            "Data Parameters:",
            "Storage Type: float",
            "",
            "",
            "",
            "Data Points: " + std::to_string(n),
            "dbandwidth: 2500000.5",
            "Source Coeff0: 107000000.25",
            "Source Coeff1: -250000000.5",
            "Trap Voltage: 0.75",
            "lowfreq: 100000",
            "highfreq: 900000"};
}

struct Opened {
    Workspace ws;
    RecordingUi ui;
    int slot = -1;
    const Spectrum& s() const { return ws.panels[static_cast<std::size_t>(slot)].spectrum; }
};

std::unique_ptr<Opened> open(const std::string& path) {
    auto o = std::make_unique<Opened>();
    o->ui.has_console = false;
    o->slot = test::open_tulva_file(o->ws, path, o->ui);
    return o;
}

std::string write_source(const TempDir& dir, const std::vector<std::string>& header,
                         const std::vector<float>& samples = SAMPLES, const std::string& name = "src.dat") {
    return dir.write(name, test::tulva_text(header, test::float_bytes(samples)));
}

// Runs one header writer over source text and returns what it wrote.
std::string rewrite(int version, const std::string& source, int sed, const Spectrum& s, int n, int marker,
                    HeaderCopyResult* r = nullptr, TulvaWriteOptions o = {}) {
    std::FILE* in = std::tmpfile();
    std::FILE* out = std::tmpfile();
    std::fwrite(source.data(), 1, source.size(), in);
    std::rewind(in);
    if (version == 4) Write_Tulva_Data_v40(in, out, sed, s, n, marker, o, r);
    else if (version == 3) Write_Tulva_Data_v30(in, out, sed, s, n, marker, o, r);
    else Write_Tulva_Data_v20(in, out, sed, s, n, marker, o, r);
    std::string text(static_cast<std::size_t>(std::ftell(out)), '\0');
    std::rewind(out);
    std::size_t got = std::fread(text.data(), 1, text.size(), out);
    text.resize(got);
    std::fclose(in);
    std::fclose(out);
    return text;
}

bool no_temporaries(const TempDir& dir) {
    for (const auto& e : fs::directory_iterator(dir.path()))
        if (e.path().filename().string().front() == '.') return false;
    return true;
}

TEST(TulvaWriter, SavedFileReadsBackToTheSameSamplesAndHeader) {
    TempDir dir;
    const std::string src = write_source(dir, v4_header());
    auto a = open(src);
    ASSERT_GE(a->slot, 0);
    const std::string out = dir.file("saved.dat");
    ASSERT_EQ(SaveasTULVA(a->ws, true, out, a->slot, 0, a->ui), 0);
    auto b = open(out);
    ASSERT_GE(b->slot, 0) << b->ui.popup_texts().size();
    EXPECT_EQ(b->s().data, a->s().data);
    EXPECT_EQ(b->s().datacount, 8);
    EXPECT_EQ(b->s().Aterm, a->s().Aterm);
    EXPECT_EQ(b->s().Bterm, a->s().Bterm);
    EXPECT_EQ(b->s().dbandwidth, a->s().dbandwidth);
    EXPECT_EQ(b->s().Trapvoltage, a->s().Trapvoltage);
    EXPECT_EQ(b->s().detectstart, a->s().detectstart);
    EXPECT_EQ(b->s().lowfreq, a->s().lowfreq);
    EXPECT_EQ(b->s().collectedon, a->s().collectedon);
    EXPECT_EQ(b->s().dateserial, 45123);
    EXPECT_EQ(b->ws.comment_text, a->ws.comment_text);
    // Header lines survive byte for byte, blank lines included; the source is untouched.
    const std::string text = test::read_file(out);
    EXPECT_NE(text.find("Storage Type: float\n\n\n\nData Points: 8\n"), std::string::npos);
    EXPECT_NE(text.find("Data Points: 999 inside the comment stays\n"), std::string::npos);
    EXPECT_EQ(text.rfind("Vantorix Data File v4.00\n", 0), 0u);
    EXPECT_EQ(test::read_file(src), test::tulva_text(v4_header(), test::float_bytes(SAMPLES)));
    EXPECT_TRUE(no_temporaries(dir));
}

TEST(TulvaWriter, ReplacedLinesOfEachGeneration) {
    Spectrum s;
    s.expcount = 1;
    s.storagemode = 5;
    struct Case {
        int version;
        std::string line;
        std::string written;  // "" when the line is dropped
        int expcount = 1;
    };
    const Case cases[] = {
        {4, "TULVA Data File v4.01", "Vantorix Data File v4.00"},
        {3, "TULVA Data File v3.10", "TULVA Data File v3.10"},
        {4, "Storage Type: int", "Storage Type: float"},
        {3, "Storage Type: double", "Storage Type: float"},
        {4, "datacount: 77", "datacount:1234"},
        {4, "expcount: 9", "expcount: 1"},
        {3, "expcount: 9", "expcount:1"},
        {4, "Data Detected at (seconds): 0.5", "Data Detected at (seconds): 0.5"},
        {4, "Data Detected at (seconds): 0.5", "", 2},
        {3, "Data Detected at (seconds): 0.5", "", 3},
        {4, "Data Parameters:", "Data Parameters:"},
        {3, "Data Parameters:", "Data Parameters:\nData Storage Mode: 5"},
        {4, "Data Points: 16000000", "Data Points: 1234"},
        {4, "Source Coeff0: 1.5", "Source Coeff0: 1.5"},
    };
    for (const auto& c : cases) {
        s.expcount = c.expcount;
        const std::string got = rewrite(c.version, c.line + "\nData:\n", 0, s, 1234, 1);
        const std::string want = (c.written.empty() ? "" : c.written + "\n") + "Data:\n";
        EXPECT_EQ(got, want) << "v" << c.version << " " << c.line;
    }
}

TEST(TulvaWriter, MarkerAndSedEndingsOfEachGeneration) {
    Spectrum s;
    s.Zeroorder = 0.5;
    s.OptimizedFirstorder = -2.0;
    s.Phased_Intercept = 3;
    s.domain = 1;
    s.Phased_Datacount = 64;
    const std::string sed_lines =
        "Phased_Zero= 0.500000\nPhased_First= -2.000000\nPhased_Intercept= 3\nDOMAIN= 1\nPhased_Datacount= 64\n";
    struct Case {
        int version, sed, marker;
        std::string tail;
    };
    const Case cases[] = {
        {4, 0, 1, "Data:\n"},
        {4, 0, 0, "Data:\n"},  // the v4 writer does not look at its marker argument
        {4, 1, 1, sed_lines},
        {3, 0, 1, "Data:\n"},
        {3, 0, 0, ""},
        {3, 1, 1, sed_lines},
        {2, 0, 1, "Data:\n"},
    };
    for (const auto& c : cases) {
        HeaderCopyResult r;
        const std::string got = rewrite(c.version, "Data Points: 4\nData:\nbinary", c.sed, s, 4, c.marker, &r);
        EXPECT_EQ(got, "Data Points: 4\n" + c.tail) << c.version << c.sed << c.marker;
        EXPECT_TRUE(r.marker_seen);
    }
    // The v4 marker counts only at column 0, as its reader takes it; v3 anywhere.
    EXPECT_EQ(rewrite(4, "Raw Data: x\nData:\n", 0, s, 4, 1), "Raw Data: x\nData:\n");
    EXPECT_EQ(rewrite(3, "Raw Data: x\nData:\n", 0, s, 4, 1), "Raw Data: x\n");
    // A source that ends before its marker ends the header there.
    HeaderCopyResult r;
    EXPECT_EQ(rewrite(4, "Data Points: 4\n", 0, s, 4, 1, &r), "Data Points: 4\n");
    EXPECT_FALSE(r.marker_seen);
    // CR LF sources come out in LF.
    EXPECT_EQ(rewrite(4, "a\r\n\r\nb\r\nData:\r\n", 0, s, 4, 1), "a\n\nb\nData:\n");
}

TEST(TulvaWriter, RefusalsLeaveNoFileAndTheSourceIntact) {
    TempDir dir;
    const std::string src = write_source(dir, v4_header());
    const std::string before = test::read_file(src);
    auto a = open(src);
    ASSERT_GE(a->slot, 0);
    fs::create_directory(dir.path() / "sub");
    struct Case {
        std::string out;
        int panel;
        int domain;
        int filetype;
        std::string title, text;
    };
    const Case cases[] = {
        {src, a->slot, DOMAIN_TIME, FILETYPE_TULVA, "Input file and output file can not be the same file.",
         "Please choose a different output file name."},
        {dir.file("sub/../src.dat"), a->slot, DOMAIN_TIME, FILETYPE_TULVA,
         "Input file and output file can not be the same file.", "Please choose a different output file name."},
        {dir.file("x.dat"), -1, DOMAIN_TIME, FILETYPE_TULVA, "Error saving file.", "No file is currently opened."},
        {dir.file("x.dat"), a->slot, DOMAIN_FREQUENCY, FILETYPE_TULVA, "Error saving file.",
         "Only a time domain file can be processed."},
        {dir.file("x.dat"), a->slot, DOMAIN_TIME, FILETYPE_BRUKER, "Error saving file.",
         "Only TULVA file type can be processed."},
    };
    for (const auto& c : cases) {
        Spectrum& s = a->ws.panels[static_cast<std::size_t>(a->slot)].spectrum;
        s.domain = c.domain;
        s.filetype = c.filetype;
        RecordingUi ui;
        EXPECT_EQ(SaveasTULVA(a->ws, true, c.out, c.panel, 0, ui), -1) << c.text;
        EXPECT_TRUE(ui.saw(c.title, c.text)) << c.text;
        EXPECT_FALSE(fs::exists(dir.file("x.dat")));
    }
    RecordingUi ui;
    EXPECT_EQ(CopyHeader(src, src, 0, a->s(), 8, 1, ui), -1);
    EXPECT_TRUE(ui.saw("Input file and output file can not be the same file.",
                       "Please choose a different output file name."));
    EXPECT_EQ(test::read_file(src), before);
    EXPECT_TRUE(no_temporaries(dir));
}

TEST(TulvaWriter, CopyHeaderChoosesTheWriterBySignature) {
    TempDir dir;
    Spectrum s;
    s.storagemode = 2;
    struct Case {
        std::string signature;
        bool output;
        std::string first_line;
        bool storage_mode_line;
    };
    const Case cases[] = {
        {"TULVA Data File v4.00", true, "Vantorix Data File v4.00", false},
        {"Vantorix Data File v4.10", true, "Vantorix Data File v4.00", false},
        {"TULVA Data File v3.00", true, "TULVA Data File v3.00", true},
        {"TULVA Data File v2.0", true, "TULVA Data File v2.0", true},
        {"tulva data file v9", false, "", false},  // the family, but no version this writer knows
    };
    for (const auto& c : cases) {
        const std::string src = dir.write("s.dat", test::tulva_text({c.signature, "Data Parameters:"}, "xxxx"));
        const std::string out = dir.file("o.dat");
        fs::remove(out);
        RecordingUi ui;
        EXPECT_EQ(CopyHeader(src, out, 0, s, 1, 1, ui), 0) << c.signature;
        ASSERT_EQ(fs::exists(out), c.output) << c.signature;
        if (!c.output) continue;
        const std::string text = test::read_file(out);
        EXPECT_EQ(text.substr(0, text.find('\n')), c.first_line);
        EXPECT_EQ(text.find("Data Storage Mode: 2") != std::string::npos, c.storage_mode_line) << c.signature;
    }
    // Not a Tulva file at all: -1, no message, no output.
    const std::string other = dir.write("other.dat", "hello\nData:\n");
    RecordingUi ui;
    EXPECT_EQ(CopyHeader(other, dir.file("o2.dat"), 0, s, 1, 1, ui), -1);
    EXPECT_FALSE(fs::exists(dir.file("o2.dat")));
}

TEST(TulvaWriter, EveryGenerationReadsBack) {
    TempDir dir;
    const std::string src = write_source(dir, v4_header());
    auto a = open(src);
    ASSERT_GE(a->slot, 0);
    for (int version : {4, 3, 2}) {
        const std::string out = dir.file("v" + std::to_string(version) + ".dat");
        TulvaWriteOptions o;
        o.version = version;
        ASSERT_EQ(SaveasTULVA(a->ws, true, out, a->slot, 0, a->ui, o), 0);
        auto b = open(out);
        ASSERT_GE(b->slot, 0) << version;
        EXPECT_EQ(b->s().data, a->s().data) << version;
        EXPECT_EQ(b->s().Aterm, a->s().Aterm) << version;
        EXPECT_EQ(b->s().dbandwidth, a->s().dbandwidth) << version;
    }
}

TEST(TulvaWriter, HeaderWithoutStorageTypeReadsBackAsIntegersUnlessTheLineIsAdded) {
    // An int source without "Storage Type:" keeps lacking the line, and the
    // floats written behind it read back as 16-bit pairs. That has always been
    // so; storage_line adds the line.
    TempDir dir;
    const std::vector<std::int16_t> ints = {100, -200, 300, 400};
    const std::string src = dir.write(
        "int.dat", test::tulva_text({"Vantorix Data File v4.00", "Data Points: 4"}, test::int16_bytes(ints)));
    auto a = open(src);
    ASSERT_GE(a->slot, 0);
    ASSERT_EQ(a->s().data, (std::vector<float>{100, -200, 300, 400}));

    HeaderCopyResult found;
    ASSERT_EQ(SaveasTULVA(a->ws, true, dir.file("plain.dat"), a->slot, 0, a->ui, {}, &found), 0);
    EXPECT_FALSE(found.storage_type_seen);
    auto plain = open(dir.file("plain.dat"));
    ASSERT_GE(plain->slot, 0);
    EXPECT_NE(plain->s().data, a->s().data);

    TulvaWriteOptions o;
    o.storage_line = true;
    ASSERT_EQ(SaveasTULVA(a->ws, true, dir.file("fixed.dat"), a->slot, 0, a->ui, o), 0);
    auto fixed = open(dir.file("fixed.dat"));
    ASSERT_GE(fixed->slot, 0);
    EXPECT_EQ(fixed->s().data, a->s().data);
}

TEST(TulvaWriter, WalkingModeOnAV4SourcePutsTheBlockBehindTheMarker) {
    TempDir dir;
    const std::string src = write_source(dir, v4_header());
    auto a = open(src);
    ASSERT_GE(a->slot, 0);
    Spectrum& s = a->ws.panels[static_cast<std::size_t>(a->slot)].spectrum;
    s.walkingterms = 2;
    s.walkingregions = 1;
    s.walking.assign(1, WalkingRegion{});
    s.walking[0].A = 1.0e8;
    s.walking[0].B = -2.0e8;
    s.walking[0].startfreq = 1.0e5;
    s.walking[0].endfreq = 2.0e5;
    ASSERT_EQ(SaveasTULVA(a->ws, true, dir.file("w.dat"), a->slot, 2, a->ui), 0);
    const std::string text = test::read_file(dir.file("w.dat"));
    const auto at = text.find("\nData:\n\n\nPeakPick Parameters\n");
    ASSERT_NE(at, std::string::npos);
    const auto regions = text.find("Walking Calibration Regions = 1\n");
    ASSERT_NE(regions, std::string::npos);
    const std::string block = text.substr(regions + 32, 32);
    EXPECT_EQ(block, test::double_bytes({1.0e8, 1.0e5, -2.0e8, 2.0e5}));  // A, start, B, end
    EXPECT_EQ(text.substr(text.size() - 32), test::float_bytes(SAMPLES));
}

TEST(TulvaWriter, PackedSourceIsReadThroughItsArchive) {
    TempDir dir;
    const std::string plain = write_source(dir, v4_header(), SAMPLES, "z.dat");
    ASSERT_EQ(zip1(plain, dir.path().string()), 0);
    fs::remove(plain);
    Spectrum s;
    RecordingUi ui;
    ASSERT_EQ(CopyHeader(plain + ".Z", dir.file("fromz.dat"), 0, s, 8, 1, ui), 0);
    EXPECT_EQ(test::read_file(dir.file("fromz.dat")).rfind("Vantorix Data File v4.00\n", 0), 0u);
    dir.write("bad.dat.Z", "not an archive");
    EXPECT_EQ(CopyHeader(dir.file("bad.dat.Z"), dir.file("x.dat"), 0, s, 8, 1, ui), -1);
    EXPECT_TRUE(ui.saw("Error", "Cannot unzip file!"));
    EXPECT_FALSE(fs::exists(dir.file("x.dat")));
}

TEST(TulvaWriter, SedFileHoldsBothDoubleChannels) {
    TempDir dir;
    const std::string src = write_source(dir, {"TULVA Data File v3.00", "Data Points: 3", "Storage Type: float"},
                                         {1, 2, 3});
    Workspace ws;
    ws.panels[0].active = 1;
    Spectrum& s = ws.panels[0].spectrum;
    s.filename = src;
    s.domain = DOMAIN_FREQUENCY;
    s.sed = 1;
    s.datacount = 3;
    s.realdata64 = {1.0, 2.0, 3.0};
    s.imagdata64 = {-1.0, -2.0, -3.0};
    s.Phased_Datacount = 3;
    ws.active_panel = 0;
    ws.phased_data = 0;
    RecordingUi ui;
    ASSERT_EQ(SaveasTULVA_SEDFT(ws, true, dir.file("p.ftd"), ui), 0);
    const std::string text = test::read_file(dir.file("p.ftd"));
    const std::string want_tail = "Real Data:\n" + test::double_bytes({1, 2, 3}) + "\n\nImaginary Data:\n" +
                                  test::double_bytes({-1, -2, -3});
    ASSERT_GE(text.size(), want_tail.size());
    EXPECT_EQ(text.substr(text.size() - want_tail.size()), want_tail);
    EXPECT_NE(text.find("Storage Type: double\n"), std::string::npos);
    EXPECT_NE(text.find("Phased_Datacount= 3\n"), std::string::npos);
    // The v3 header has no marker: the reader meets "Real Data:" as its marker.
    auto back = open(dir.file("p.ftd"));
    EXPECT_GE(back->slot, 0);

    s.sed = 0;
    EXPECT_EQ(SaveasTULVA_SEDFT(ws, true, dir.file("q.ftd"), ui), -1);
    EXPECT_TRUE(ui.saw("Error saving file.", "Only TULVA SED data can be processed."));
}

TEST(TulvaWriter, StoreNewDataAppendsWholeBlocks) {
    TempDir dir;
    const std::string p = dir.write("a.bin", "head");
    const std::vector<float> f = {1, 2};
    ASSERT_EQ(StoreNewData(f.data(), f.size(), p), 0);
    RecordingUi ui;
    const std::vector<double> d = {3};
    ASSERT_EQ(StoreNewDataSED(d.data(), 1, p, 0, ui), 0);
    ASSERT_EQ(StoreNewDataSED(d.data(), 1, p, 1, ui), 0);
    EXPECT_EQ(test::read_file(p), "head" + test::float_bytes(f) + "Real Data:\n" + test::double_bytes(d) +
                                      "\n\nImaginary Data:\n" + test::double_bytes(d));
}

TEST(TulvaWriter, SaveCommand) {
    TempDir dir;
    const std::string src = write_source(dir, v4_header());
    auto r = test::run_cli(dir.path().string(), "save '" + src + "' -o '" + dir.file("o.dat") + "' --json");
    ASSERT_EQ(r.status, 0) << r.err;
    const auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["datacount"], 8);
    auto b = open(dir.file("o.dat"));
    ASSERT_GE(b->slot, 0);
    EXPECT_EQ(b->s().data, SAMPLES);

    r = test::run_cli(dir.path().string(), "save '" + src + "' -o '" + src + "'");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("Input file and output file can not be the same file."), std::string::npos);

    r = test::run_cli(dir.path().string(), "save '" + src + "' -o '" + dir.file("v3.dat") + "' --version 3");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(test::read_file(dir.file("v3.dat")).rfind("TULVA Data File v3.00\n", 0), 0u);
}

}  // namespace
}  // namespace vx
