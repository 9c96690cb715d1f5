#include "formats/mzml_reader.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <sstream>

#include <nlohmann/json.hpp>
#include <openssl/evp.h>
#include <zlib.h>

#include "formats/mzml_writer.hpp"
#include "formats/open_file.hpp"
#include "platform/ui.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

using test::TempDir;

// ---------------------------------------------------------------------------
// mzML written by hand: base64 and zlib straight from OpenSSL and zlib, so a
// fault shared with the reader's helpers cannot hide.

std::string b64(const std::string& bytes) {
    std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                                  reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    out.resize(static_cast<std::size_t>(n));
    return out;
}

std::string zlib(const std::string& bytes) {
    uLongf len = compressBound(static_cast<uLong>(bytes.size()));
    std::string out(len, '\0');
    EXPECT_EQ(compress2(reinterpret_cast<Bytef*>(out.data()), &len, reinterpret_cast<const Bytef*>(bytes.data()),
                        static_cast<uLong>(bytes.size()), 6),
              Z_OK);
    out.resize(len);
    return out;
}

struct Array {
    const char* accession;  // m/z, intensity or a sampled noise array
    const char* name;
    std::vector<double> values;
    bool doubles = true;
    bool compressed = false;
    std::string extra;           // further cvParams (numpress...)
    std::string binary;          // replaces the encoded values when not empty
    std::string length_attr;     // arrayLength attribute when not empty
};

Array mz_array(std::vector<double> v, bool d = true, bool z = false) {
    return {"MS:1000514", "m/z array", std::move(v), d, z, "", "", ""};
}
Array int_array(std::vector<double> v, bool d = false, bool z = false) {
    return {"MS:1000515", "intensity array", std::move(v), d, z, "", "", ""};
}

struct Scan {
    std::string id;
    std::size_t length;
    std::vector<Array> arrays;
};

std::string encode(const Array& a) {
    if (!a.binary.empty()) return a.binary;
    std::string raw;
    for (double v : a.values) {
        if (a.doubles) raw.append(reinterpret_cast<const char*>(&v), 8);
        else {
            const float f = static_cast<float>(v);
            raw.append(reinterpret_cast<const char*>(&f), 4);
        }
    }
    return b64(a.compressed ? zlib(raw) : raw);
}

std::string spectrum_xml(const Scan& s, std::size_t index) {
    std::ostringstream o;
    o << "      <spectrum index=\"" << index << "\" id=\"" << s.id << "\" defaultArrayLength=\"" << s.length << "\">\n"
      << "        <cvParam cvRef=\"MS\" accession=\"MS:1000511\" name=\"ms level\" value=\"1\"/>\n"
      << "        <cvParam cvRef=\"MS\" accession=\"MS:1000129\" name=\"negative scan\" value=\"\"/>\n"
      << "        <binaryDataArrayList count=\"" << s.arrays.size() << "\">\n";
    for (const Array& a : s.arrays) {
        const std::string text = encode(a);
        o << "          <binaryDataArray encodedLength=\"" << text.size() << "\""
          << (a.length_attr.empty() ? "" : " arrayLength=\"" + a.length_attr + "\"") << ">\n"
          << "            <cvParam cvRef=\"MS\" accession=\"" << (a.doubles ? "MS:1000523" : "MS:1000521")
          << "\" name=\"" << (a.doubles ? "64-bit float" : "32-bit float") << "\" value=\"\"/>\n"
          << "            <cvParam cvRef=\"MS\" accession=\"" << (a.compressed ? "MS:1000574" : "MS:1000576")
          << "\" name=\"" << (a.compressed ? "zlib compression" : "no compression") << "\" value=\"\"/>\n"
          << a.extra << "            <cvParam cvRef=\"MS\" accession=\"" << a.accession << "\" name=\"" << a.name
          << "\" value=\"\"/>\n"
          << "            <binary>" << text << "</binary>\n"
          << "          </binaryDataArray>\n";
    }
    o << "        </binaryDataArrayList>\n      </spectrum>\n";
    return o.str();
}

// index_shift moves every offset of the index (a stale index).
std::string make_mzml(const std::vector<Scan>& scans, bool indexed, long index_shift = 0) {
    std::string t = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
    if (indexed) t += "<indexedmzML xmlns=\"http://psi.hupo.org/ms/mzml\">\n";
    t += "<mzML xmlns=\"http://psi.hupo.org/ms/mzml\" version=\"1.1.0\">\n  <run id=\"r\">\n"
         "    <spectrumList count=\"" + std::to_string(scans.size()) + "\">\n";
    std::vector<std::size_t> offsets;
    for (std::size_t i = 0; i < scans.size(); ++i) {
        const std::string x = spectrum_xml(scans[i], i);
        offsets.push_back(t.size() + x.find("<spectrum"));
        t += x;
    }
    t += "    </spectrumList>\n  </run>\n</mzML>\n";
    if (indexed) {
        const std::size_t list = t.size();
        t += "<indexList count=\"1\">\n  <index name=\"spectrum\">\n";
        for (std::size_t i = 0; i < scans.size(); ++i)
            t += "    <offset idRef=\"" + scans[i].id + "\">" +
                 std::to_string(static_cast<long>(offsets[i]) + index_shift) + "</offset>\n";
        t += "  </index>\n</indexList>\n<indexListOffset>" + std::to_string(list) +
             "</indexListOffset>\n<fileChecksum>0</fileChecksum>\n</indexedmzML>\n";
    }
    return t;
}

std::string thermo_id(int n) { return "controllerType=0 controllerNumber=1 scan=" + std::to_string(n); }

std::vector<double> ramp(std::size_t n, double a, double step) {
    std::vector<double> v(n);
    for (std::size_t i = 0; i < n; ++i) v[i] = a + step * static_cast<double>(i);
    return v;
}

struct Read {
    Spectrum s;
    RecordingUi ui;
    int rc = -1, scans = 0, scan = 0;
};

std::unique_ptr<Read> read_scan(const std::string& path, int scan) {
    auto r = std::make_unique<Read>();
    r->rc = Get_Xcalibur_Data(path, r->s, scan, r->ui, &r->scans, &r->scan);
    return r;
}

std::string popups(const RecordingUi& ui) {
    std::string all;
    for (const auto& t : ui.popup_texts()) all += t + "\n";
    return all;
}

// ---------------------------------------------------------------------------

TEST(MzmlReader, ReadsEveryEncodingPlainAndIndexed) {
    TempDir dir;
    // Values that 32-bit floats hold exactly, and m/z that need 64 bits.
    const std::vector<double> mz = {400.123456789012, 400.2, 500.987654321, 650.5, 999.000000001};
    const std::vector<double> in = {0.0, 1.5, 1234.25, -2.0, 3.0e6};
    for (bool doubles : {false, true})
        for (bool z : {false, true})
            for (bool indexed : {false, true}) {
                SCOPED_TRACE(::testing::Message() << (doubles ? "64" : "32") << "-bit " << (z ? "zlib" : "none") << " "
                                                  << (indexed ? "indexed" : "plain"));
                const std::string path = dir.file("e.mzML");
                test::write_file(path, make_mzml({{thermo_id(1), 5, {mz_array(mz, doubles, z), int_array(in, doubles, z)}}},
                                                 indexed));
                auto r = read_scan(path, 0);
                ASSERT_EQ(r->rc, 0) << popups(r->ui);
                ASSERT_EQ(r->s.data.size(), 5u);
                ASSERT_EQ(r->s.xvalues.size(), 5u);
                EXPECT_EQ(r->s.datacount, 5);
                EXPECT_EQ(r->s.domain, DOMAIN_PROFILE);
                EXPECT_EQ(r->s.filetype, FILETYPE_PROFILE);
                EXPECT_EQ(r->s.ionpolarity, -1);
                for (std::size_t i = 0; i < 5; ++i) {
                    EXPECT_EQ(r->s.xvalues[i], doubles ? mz[i] : static_cast<double>(static_cast<float>(mz[i])));
                    EXPECT_EQ(r->s.data[i], static_cast<float>(in[i]));
                }
                // Without a noise curve the side arrays stay empty (read as zeros).
                EXPECT_TRUE(r->s.xcalnoise.empty());
                EXPECT_TRUE(r->s.xcaldata.empty());
                EXPECT_TRUE(r->ui.messages.empty()) << "one scan: no prompt";
            }
}

TEST(MzmlReader, ChoosesTheScanByNumberPromptAndDefault) {
    TempDir dir;
    std::vector<Scan> scans;
    for (int n : {5, 6, 7})
        scans.push_back({thermo_id(n), 2, {mz_array({100.0 * n, 100.0 * n + 1}), int_array({double(n), 0})}});
    for (bool indexed : {false, true}) {
        SCOPED_TRACE(indexed ? "indexed" : "plain");
        const std::string path = dir.file("s.mzML");
        test::write_file(path, make_mzml(scans, indexed));
        struct Case {
            int scan;
            std::optional<std::string> answer;
            int expect;  // 0: refused
        } cases[] = {{6, {}, 6}, {5, {}, 5}, {0, std::nullopt, 7}, {0, std::string(""), 7}, {0, std::string("6"), 6},
                     {9, {}, 0}, {0, std::string("4"), 0}};
        for (const Case& c : cases) {
            auto r = std::make_unique<Read>();
            r->ui.prompts.push_back(c.answer);
            r->rc = Get_Xcalibur_Data(path, r->s, c.scan, r->ui, &r->scans, &r->scan);
            if (c.expect == 0) {
                EXPECT_EQ(r->rc, -1);
                EXPECT_NE(popups(r->ui).find("is not in"), std::string::npos) << popups(r->ui);
                continue;
            }
            ASSERT_EQ(r->rc, 0) << popups(r->ui);
            EXPECT_EQ(r->scan, c.expect);
            EXPECT_EQ(r->scans, 3);
            EXPECT_EQ(r->s.data[0], static_cast<float>(c.expect));
            if (c.scan == 0) {
                ASSERT_FALSE(r->ui.messages.empty());
                EXPECT_EQ(r->ui.messages[0].kind, "prompt");
                EXPECT_EQ(r->ui.messages[0].title, "Xcalibur RAW file contains Multple Files : Please Select One");
                EXPECT_EQ(r->ui.messages[0].text, "This file contains 7 files. Please choose one");
            }
        }
        RecordingUi ui;
        EXPECT_EQ(GetNumberFilesinRaw(path, ui), 7);
    }
}

TEST(MzmlReader, IdsWithoutScanNumbersCountFromOne) {
    TempDir dir;
    const std::string path = dir.file("o.mzML");
    test::write_file(path, make_mzml({{"spectrum=0", 1, {mz_array({1.0}), int_array({10})}},
                                      {"spectrum=1", 1, {mz_array({2.0}), int_array({20})}}},
                                     true));
    auto r = read_scan(path, 1);
    ASSERT_EQ(r->rc, 0) << popups(r->ui);
    EXPECT_EQ(r->s.data[0], 10.0f);
}

TEST(MzmlReader, AStaleIndexFallsBackToStreaming) {
    TempDir dir;
    std::vector<Scan> scans;
    for (int n = 1; n <= 3; ++n) scans.push_back({thermo_id(n), 1, {mz_array({double(n)}), int_array({double(n)})}});
    for (long shift : {-7L, 13L, 100000000L}) {
        const std::string path = dir.file("stale.mzML");
        test::write_file(path, make_mzml(scans, true, shift));
        auto r = read_scan(path, 2);
        ASSERT_EQ(r->rc, 0) << shift << popups(r->ui);
        EXPECT_EQ(r->s.data[0], 2.0f);
    }
}

TEST(MzmlReader, StreamsAcrossChunkBoundaries) {
    // Spectra of 160 KB of text each: the 1 MiB chunks of the streaming pass
    // cut through start tags and arrays.
    TempDir dir;
    std::vector<Scan> scans;
    for (int n = 1; n <= 30; ++n)
        scans.push_back({thermo_id(n), 6000, {mz_array(ramp(6000, 100.0 + n, 0.01)), int_array(ramp(6000, n, 1.0), true)}});
    for (bool indexed : {false, true}) {
        const std::string path = dir.file("big.mzML");
        test::write_file(path, make_mzml(scans, indexed));
        RecordingUi ui;
        std::vector<MzmlScanRef> refs;
        bool was_indexed = !indexed;
        ASSERT_EQ(mzml_list_scans(path, refs, was_indexed, ui), 0);
        EXPECT_EQ(was_indexed, indexed);
        ASSERT_EQ(refs.size(), 30u);
        for (int n : {1, 17, 30}) {
            auto r = read_scan(path, n);
            ASSERT_EQ(r->rc, 0) << popups(r->ui);
            ASSERT_EQ(r->s.data.size(), 6000u);
            EXPECT_EQ(r->s.data[5999], static_cast<float>(n + 5999));
            EXPECT_DOUBLE_EQ(r->s.xvalues[0], 100.0 + n);
        }
    }
}

TEST(MzmlReader, SampledNoiseArraysGiveTheNoiseCurve) {
    TempDir dir;
    // Points at m/z 100..400; the curve from 150 to 350: noise 2 -> 6, baseline 1 -> 3.
    const std::vector<double> mz = {100, 150, 250, 350, 400};
    const std::vector<double> in = {5, 11, 25, 7, 0};
    Array nm{"MS:1002743", "sampled noise m/z array", {150, 350}, true, true, "", "", "2"};
    Array nn{"MS:1002744", "sampled noise intensity array", {2, 6}, false, true, "", "", "2"};
    Array nb{"MS:1002745", "sampled noise baseline array", {1, 3}, false, true, "", "", "2"};
    const std::string path = dir.file("n.mzML");
    test::write_file(path, make_mzml({{thermo_id(1), 5, {mz_array(mz), int_array(in), nm, nn, nb}}}, true));
    auto r = read_scan(path, 0);
    ASSERT_EQ(r->rc, 0) << popups(r->ui);
    const double noise[] = {1, 2, 4, 6, 7};  // the ends extended along the end segments
    const double base[] = {0.5, 1, 2, 3, 3.5};
    for (std::size_t i = 0; i < 5; ++i) {
        SCOPED_TRACE(i);
        EXPECT_DOUBLE_EQ(r->s.xcalnoise[i], noise[i]);
        EXPECT_DOUBLE_EQ(r->s.xcalbaseline[i], base[i]);
        EXPECT_FLOAT_EQ(r->s.xcaldata[i], static_cast<float>((in[i] - base[i]) / noise[i]));
    }
}

TEST(MzmlReader, ZeroOrMissingNoiseGivesZeroSignalToNoise) {
    Spectrum s;
    s.xvalues = {1, 2, 3};
    s.data = {5, 5, 5};
    apply_noise_curve(s, {1, 3}, {0, 0}, {1, 1});
    for (float v : s.xcaldata) EXPECT_EQ(v, 0.0f);
    apply_noise_curve(s, {2}, {4}, {1});  // one point: a constant curve
    EXPECT_EQ(s.xcaldata[0], 1.0f);
    EXPECT_EQ(s.xcalnoise[2], 4.0);
    apply_noise_curve(s, {}, {}, {});
    EXPECT_TRUE(s.xcalnoise.empty());
}

TEST(MzmlReader, RefusesBadInputWithAClearMessage) {
    TempDir dir;
    const std::vector<double> two = {100.0, 200.0};
    Array numpress = mz_array(two);
    numpress.extra = "            <cvParam cvRef=\"MS\" accession=\"MS:1002312\" name=\"MS-Numpress linear prediction "
                     "compression\" value=\"\"/>\n";
    Array bad64 = int_array(two);
    bad64.binary = "AAAA*AAA";
    Array badz = int_array(two, false, true);
    badz.binary = b64("this is no zlib stream");
    Array shortz = int_array(two, false, true);
    shortz.binary = b64(zlib(std::string(4, '\0')));  // one float where two are announced
    Array wild = int_array(two);
    wild.length_attr = "99999999999999";
    const std::string good = make_mzml({{thermo_id(1), 2, {mz_array(two), int_array(two)}}}, true);
    struct Case {
        const char* name;
        std::string text;
        const char* message;
    } cases[] = {
        {"numpress", make_mzml({{thermo_id(1), 2, {numpress, int_array(two)}}}, false), "MS-Numpress linear prediction"},
        {"length", make_mzml({{thermo_id(1), 3, {mz_array(two), int_array(two)}}}, false), "defaultArrayLength 3"},
        {"base64", make_mzml({{thermo_id(1), 2, {mz_array(two), bad64}}}, true), "is not valid base64"},
        {"zlib", make_mzml({{thermo_id(1), 2, {mz_array(two), badz}}}, false), "does not inflate"},
        {"short zlib", make_mzml({{thermo_id(1), 2, {mz_array(two), shortz}}}, false), "does not inflate"},
        {"arrayLength", make_mzml({{thermo_id(1), 2, {mz_array(two), wild}}}, false), "bad arrayLength"},
        {"no intensity", make_mzml({{thermo_id(1), 2, {mz_array(two)}}}, false), "has no intensity array"},
        {"no spectra", make_mzml({}, false), "holds no spectra"},
        {"not mzML", "<html><body>no</body></html>", "is not an mzML file"},
        {"empty", "", "is not an mzML file"},
        {"cut", good.substr(0, good.find("</binary>") - 3), "cut off"},
        {"open tag", good.substr(0, good.find("<spectrum ") + 20), "never ends"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = dir.file("bad.mzML");
        test::write_file(path, c.text);
        auto r = read_scan(path, 0);
        EXPECT_EQ(r->rc, -1);
        EXPECT_NE(popups(r->ui).find(c.message), std::string::npos) << popups(r->ui);
    }
}

TEST(MzmlReader, OurOwnExportReadsBack) {
    TempDir dir;
    Spectrum s;
    s.domain = DOMAIN_FREQUENCY;
    s.filetype = FILETYPE_TULVA;
    s.dbandwidth = 1.0e6;
    s.caltype = CALTYPE_TWO_TERM;
    s.Aterm = 1.0e8;
    s.Bterm = 0.0;
    s.Trapvoltage = 1.0;
    s.data.resize(4096);
    for (std::size_t i = 0; i < s.data.size(); ++i) s.data[i] = static_cast<float>(std::sin(0.01 * i) * 100.0 + 200.0);
    s.datacount = static_cast<std::int32_t>(s.data.size());
    s.filename = dir.file("x.dat");
    RecordingUi ui;
    const std::string path = dir.file("x.mzML");
    ASSERT_EQ(write_mzml(s, path, {}, ui), 0) << popups(ui);
    std::vector<double> mz;
    std::vector<float> in;
    profile_arrays(s, mz, in);
    ASSERT_GT(mz.size(), 1000u);
    auto r = read_scan(path, 0);
    ASSERT_EQ(r->rc, 0) << popups(r->ui);
    EXPECT_EQ(r->s.xvalues, mz);
    EXPECT_EQ(r->s.data, in);
}

TEST(MzmlReader, ReadsWhatOpenMSFileConverterWrites) {
    if (test::run_command("command -v FileConverter >/dev/null") != 0)
        GTEST_SKIP() << "OpenMS's FileConverter (Debian package topp) is not installed";
    TempDir dir;
    // Three scans of a DTA2D table: retention time, m/z, intensity.
    std::string dta = "#SEC\tMZ\tINT\n";
    for (int scan = 0; scan < 3; ++scan)
        for (int i = 0; i < 50; ++i)
            dta += std::to_string(10 * (scan + 1)) + "\t" + std::to_string(300.0 + 0.25 * i) + "\t" +
                   std::to_string(100 * (scan + 1) + i) + "\n";
    test::write_file(dir.file("in.dta2d"), dta);
    std::string log;
    ASSERT_EQ(test::run_command("HOME='" + dir.path().string() + "' FileConverter -in '" + dir.file("in.dta2d") + "' -out '" +
                                    dir.file("out.mzML") + "' 2>&1",
                                &log),
              0)
        << log;
    for (int scan : {1, 3}) {
        auto r = read_scan(dir.file("out.mzML"), scan);
        ASSERT_EQ(r->rc, 0) << popups(r->ui);
        EXPECT_EQ(r->scans, 3);
        ASSERT_EQ(r->s.data.size(), 50u);
        EXPECT_NEAR(r->s.xvalues[4], 301.0, 1e-9);
        EXPECT_EQ(r->s.data[49], static_cast<float>(100 * scan + 49));
    }
}

TEST(MzmlReader, CommandLineInfoAndPeaks) {
    TempDir dir;
    std::vector<Scan> scans;
    // A Gaussian peak at m/z 500.25 in scan 2, none in scan 1.
    for (int n = 1; n <= 2; ++n) {
        std::vector<double> mz = ramp(400, 499.0, 0.00625), in(400, 0.0);
        if (n == 2)
            for (std::size_t i = 0; i < in.size(); ++i) in[i] = 1000.0 * std::exp(-std::pow((mz[i] - 500.25) / 0.01, 2));
        // A flat noise curve: noise 4, baseline 0.
        Array nm{"MS:1002743", "sampled noise m/z array", {499.0, 502.0}, true, true, "", "", "2"};
        Array nn{"MS:1002744", "sampled noise intensity array", {4, 4}, false, true, "", "", "2"};
        Array nb{"MS:1002745", "sampled noise baseline array", {0, 0}, false, true, "", "", "2"};
        scans.push_back({thermo_id(n), 400, {mz_array(mz, true, true), int_array(in, false, true), nm, nn, nb}});
    }
    test::write_file(dir.file("run.mzML"), make_mzml(scans, true));
    auto info = test::run_cli(dir.path().string(), "info '" + dir.file("run.mzML") + "' --json");
    ASSERT_EQ(info.status, 0) << info.err;
    const auto j = nlohmann::json::parse(info.out);
    EXPECT_EQ(j["format"], "mzml");
    EXPECT_EQ(j["domain"], DOMAIN_PROFILE);
    EXPECT_EQ(j["filetype"], FILETYPE_PROFILE);
    EXPECT_EQ(j["scans"], 2);
    EXPECT_EQ(j["scan"], 2);
    auto peaks = test::run_cli(dir.path().string(), "peaks '" + dir.file("run.mzML") + "' --scan 2 -o '" + dir.file("p.pks") +
                                               "' --json");
    ASSERT_EQ(peaks.status, 0) << peaks.err;
    const auto p = nlohmann::json::parse(peaks.out);
    ASSERT_GE(p["peaks"].size(), 1u);
    EXPECT_NEAR(p["peaks"][0]["mz"].get<double>(), 500.25, 1e-4);
    // The profile search's S/N column is the noise at the apex times height
    // over sample, as the profile search has always filled it: about 4 here,
    // where (height - baseline) / noise is about 250. The true S/N of every
    // point is in xcaldata (SampledNoiseArraysGiveTheNoiseCurve).
    EXPECT_NEAR(p["peaks"][0]["sn"].get<double>(), 4.0, 0.2);
    auto missing = test::run_cli(dir.path().string(), "info '" + dir.file("run.mzML") + "' --scan 3");
    EXPECT_NE(missing.status, 0);
    EXPECT_NE(missing.err.find("Scan 3 is not in"), std::string::npos) << missing.err;
}

}  // namespace
}  // namespace vx
