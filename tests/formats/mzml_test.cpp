#include "formats/mzml_writer.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <sstream>

#include <nlohmann/json.hpp>
#include <pugixml.hpp>
#include <zlib.h>

#include "formats/open_file.hpp"
#include "peaks/find_peaks.hpp"
#include "platform/base64.hpp"
#include "platform/ui.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"
#include "workspace/display.hpp"
#include "workspace/processing.hpp"

namespace vx {
namespace {

using test::TempDir;

struct Opened {
    Workspace ws;
    RecordingUi ui;
    int slot = -1;
    Spectrum& s() { return ws.panels[static_cast<std::size_t>(slot)].spectrum; }
};

const std::string SAMPLE = std::string(VANTORIX_SOURCE_DIR) + "/data/sample.dat";

// The bundled sample, processed with the default settings (its eight ions
// are found with them).
std::unique_ptr<Opened> sample_spectrum(const TempDir& dir) {
    const std::string src = dir.file("sample.dat");
    test::write_file(src, test::read_file(SAMPLE));
    auto o = std::make_unique<Opened>();
    o->ws.settings_folder.clear();
    o->slot = open_any_file(o->ws, src, o->ui);
    if (o->slot < 0 || process_command(o->ws, o->ui) != 0) return nullptr;
    PlotMenuCommand(o->ws.panels[static_cast<std::size_t>(o->slot)], PLOT_MZ, 0.0, 0.0, o->ws.settings, o->ui);
    return o;
}

template <typename T>
std::vector<T> decode_array(pugi::xml_node array) {
    auto bytes = base64_decode(array.child_value("binary"));
    EXPECT_TRUE(bytes);
    if (!bytes) return {};
    std::vector<T> out(static_cast<std::size_t>(array.parent().parent().attribute("defaultArrayLength").as_ullong()));
    uLongf len = static_cast<uLongf>(out.size() * sizeof(T));
    EXPECT_EQ(uncompress(reinterpret_cast<Bytef*>(out.data()), &len, bytes->data(), static_cast<uLong>(bytes->size())),
              Z_OK);
    EXPECT_EQ(len, out.size() * sizeof(T));
    return out;
}

bool has_cv(pugi::xml_node node, const char* accession) {
    for (pugi::xml_node p : node.children("cvParam"))
        if (std::strcmp(p.attribute("accession").value(), accession) == 0) return true;
    return false;
}

TEST(Mzml, ProfileArraysDecodeToTheSpectrum) {
    TempDir dir;
    auto o = sample_spectrum(dir);
    ASSERT_TRUE(o);
    std::vector<double> mz;
    std::vector<float> in;
    profile_arrays(o->s(), mz, in);
    ASSERT_GT(mz.size(), 1000u);
    EXPECT_TRUE(std::is_sorted(mz.begin(), mz.end()));
    ASSERT_EQ(write_mzml(o->s(), dir.file("p.mzML"), {}, o->ui), 0);

    pugi::xml_document doc;
    ASSERT_TRUE(doc.load_file(dir.file("p.mzML").c_str()));
    pugi::xml_node sp = doc.select_node("/mzML/run/spectrumList/spectrum").node();
    ASSERT_TRUE(sp);
    EXPECT_TRUE(has_cv(sp, "MS:1000128"));  // profile
    EXPECT_EQ(sp.attribute("defaultArrayLength").as_ullong(), mz.size());
    auto arrays = sp.child("binaryDataArrayList").children("binaryDataArray");
    std::vector<pugi::xml_node> a(arrays.begin(), arrays.end());
    ASSERT_EQ(a.size(), 2u);
    EXPECT_TRUE(has_cv(a[0], "MS:1000523") && has_cv(a[0], "MS:1000574") && has_cv(a[0], "MS:1000514"));
    EXPECT_TRUE(has_cv(a[1], "MS:1000521") && has_cv(a[1], "MS:1000515"));
    EXPECT_EQ(decode_array<double>(a[0]), mz);
    EXPECT_EQ(decode_array<float>(a[1]), in);
    // The FT-ICR analyzer, the calibration terms and the source with its hash.
    EXPECT_TRUE(doc.select_node("//analyzer/cvParam[@accession='MS:1000079']"));
    EXPECT_TRUE(doc.select_node("//instrumentConfiguration/userParam[@name='calibration A term']"));
    const auto sha = doc.select_node("//sourceFile/cvParam[@accession='MS:1000569']").node();
    ASSERT_TRUE(sha);
    EXPECT_EQ(std::strlen(sha.attribute("value").value()), 40u);
}

TEST(Mzml, RefusesWhatIsNoSpectrum) {
    TempDir dir;
    Spectrum s;  // a transient
    s.data.assign(16, 1.0f);
    RecordingUi ui;
    EXPECT_EQ(write_mzml(s, dir.file("t.mzML"), {}, ui), -1);
    EXPECT_TRUE(ui.saw("Error saving file.", "Only a processed Frequency domain file can be processed."));
    MzmlOptions peaks;
    peaks.peaks = true;
    s.domain = DOMAIN_MASS;
    EXPECT_EQ(write_mzml(s, dir.file("t.mzML"), peaks, ui), -1);
    EXPECT_FALSE(std::filesystem::exists(dir.file("t.mzML")));
}

// The verdict lines of OpenMS's FileInfo -v (its exit status is 0 whatever
// the verdict).
struct Verdict {
    bool ran = false;
    bool failed = false;
    int successes = 0;
    std::string text;
};

Verdict file_info(const std::string& path) {
    Verdict v;
    std::string out, err;
    // OpenMS keeps its settings under HOME: the test's folder stands in for it.
    const std::string home = std::filesystem::path(path).parent_path().string();
    const int rc = test::run_command("HOME='" + home + "' FileInfo -v -in '" + path + "' 2>&1", &out, &err);
    v.ran = rc == 0 || !out.empty();
    v.text = out + err;
    v.failed = v.text.find("Failed - errors are listed above!") != std::string::npos;
    std::istringstream lines(v.text);
    for (std::string l; std::getline(lines, l);)
        if (l.find("Success") != std::string::npos) ++v.successes;
    return v;
}

bool topp_present() { return test::run_command("command -v FileInfo >/dev/null && command -v FileConverter >/dev/null") == 0; }

// The arrays as FileConverter reads them, written out as dta2d text.
std::vector<std::pair<double, double>> read_back(const std::string& mzml, const std::string& dta2d) {
    std::vector<std::pair<double, double>> out;
    std::string log;
    const std::string home = std::filesystem::path(mzml).parent_path().string();
    if (test::run_command("HOME='" + home + "' FileConverter -in '" + mzml + "' -out '" + dta2d +
                              "' -out_type dta2d 2>&1",
                          &log) != 0) {
        ADD_FAILURE() << log;
        return out;
    }
    std::istringstream in(test::read_file(dta2d));
    for (std::string l; std::getline(in, l);) {
        if (l.empty() || l[0] == '#') continue;
        std::istringstream f(l);
        double rt, m, i;
        if (f >> rt >> m >> i) out.emplace_back(m, i);
    }
    return out;
}

TEST(Mzml, IndependentReaderValidatesAndReadsBack) {
    if (!topp_present()) GTEST_SKIP() << "OpenMS's FileInfo/FileConverter (Debian package topp) are not installed";
    TempDir dir;
    auto o = sample_spectrum(dir);
    ASSERT_TRUE(o);
    for (bool peaks : {false, true}) {
        SCOPED_TRACE(peaks ? "centroid" : "profile");
        if (peaks) {
            ensure_search_limits(o->ws, o->slot);
            PeakTable table;
            ASSERT_GT(FindPeaksCommand(o->ws, table, o->ui), 0);
            ASSERT_FALSE(o->s().peaks.empty());
        }
        MzmlOptions m;
        m.peaks = peaks;
        const std::string path = dir.file(peaks ? "c.mzML" : "p.mzML");
        ASSERT_EQ(write_mzml(o->s(), path, m, o->ui), 0);
        const Verdict v = file_info(path);
        ASSERT_TRUE(v.ran) << v.text;
        EXPECT_FALSE(v.failed) << v.text;
        EXPECT_GE(v.successes, 2) << v.text;  // schema and semantic validation

        std::vector<double> mz;
        std::vector<float> in;
        if (peaks) {
            for (const Peak& p : o->s().peaks) {
                mz.push_back(p.mass);
                in.push_back(static_cast<float>(p.abundance));
            }
        } else {
            profile_arrays(o->s(), mz, in);
        }
        const auto back = read_back(path, dir.file(peaks ? "c.dta2d" : "p.dta2d"));
        ASSERT_EQ(back.size(), mz.size());
        for (std::size_t i = 0; i < mz.size(); ++i) {
            ASSERT_NEAR(back[i].first, mz[i], 1e-6 * mz[i]) << i;
            ASSERT_NEAR(back[i].second, in[i], 1e-4 * std::fabs(in[i]) + 1e-6) << i;
        }
    }
}

TEST(Mzml, ExportCommand) {
    TempDir dir;
    const std::string src = dir.file("sample.dat");
    test::write_file(src, test::read_file(SAMPLE));
    auto r = test::run_cli(dir.path().string(), "export '" + src + "' -o '" + dir.file("a.mzML") + "' --json");
    ASSERT_EQ(r.status, 0) << r.err;
    const auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["kind"], "profile");
    EXPECT_GT(j["points"].get<int>(), 100);
    r = test::run_cli(dir.path().string(), "export '" + src + "' -o '" + dir.file("b.mzML") + "' --peaks --json");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_GE(nlohmann::json::parse(r.out)["points"].get<int>(), 1);
    pugi::xml_document doc;
    ASSERT_TRUE(doc.load_file(dir.file("b.mzML").c_str()));
    EXPECT_TRUE(doc.select_node("//spectrum/cvParam[@accession='MS:1000127']"));
}

}  // namespace
}  // namespace vx
