// Bruker data: XMASS directories in and out, apex/solariX .d acquisitions made
// here and the real one in the shared data, the instrument's calibration law,
// and the whole road from the real transient to isotope clusters.
#include "formats/bruker.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "formats/open_file.hpp"
#include "peaks/find_peaks.hpp"
#include "platform/ui.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"
#include "workspace/conversions.hpp"
#include "workspace/processing.hpp"

namespace vx {
namespace {

// Samples of an apex acquisition back in digitiser counts (2^19 per volt).
std::vector<float> counts(std::vector<float> v) {
    for (float& x : v) x *= 524288.0f;
    return v;
}

namespace fs = std::filesystem;
using test::TempDir;

const std::string REAL_D = std::string(VANTORIX_SHARED_DATA) + "/bruker/histonepeptide_ms2_000002.d";
constexpr double REAL_ML1 = 1.083270232844505E8, REAL_ML2 = -19.836843680681607, REAL_ML3 = 7489.927504388354;
constexpr double NEUTRON_SPACING = 1.00336;

struct Opened {
    Workspace ws;
    RecordingUi ui;
    int slot = -1;
    const Spectrum& s() const { return ws.panels[static_cast<std::size_t>(slot < 0 ? 0 : slot)].spectrum; }
    std::string popups() const {
        std::string t;
        for (const auto& m : ui.messages) t += m.title + ": " + m.text + "\n";
        return t;
    }
};

std::unique_ptr<Opened> open(const std::string& path) {
    auto o = std::make_unique<Opened>();
    o->slot = open_any_file(o->ws, path, o->ui);
    return o;
}

std::string be32(std::int32_t v) {
    const auto u = static_cast<std::uint32_t>(v);
    return {static_cast<char>(u >> 24), static_cast<char>(u >> 16), static_cast<char>(u >> 8), static_cast<char>(u)};
}

// An XMASS acqus with the given parameter lines between title and ##END=.
std::string acqus_text(const std::vector<std::string>& lines, const std::string& title = "##TITLE= XMASS Parameter file",
                       bool end = true) {
    std::string t = title + "\n##JCAMPDX= 5.0\n";
    for (const auto& l : lines) t += l + "\n";
    if (end) t += "##END=\n";
    return t;
}

// A method file as apex/solariX instruments write it.
std::string method_xml(const std::map<std::string, std::string>& params, const std::string& name = "ESI_test") {
    std::string t = "<?xml version='1.0' encoding='UTF-8'?>\n<method>\n<methodmetadata><primarykey>\n"
                    "<methodname>" + name + "</methodname><username>tester</username>"
                    "<date>Mar_17_2021 15:25:01.281</date></primarykey></methodmetadata>\n<paramlist>\n";
    for (const auto& [k, v] : params) t += "<param><name>" + k + "</name><value>" + v + "</value></param>\n";
    return t + "</paramlist>\n</method>\n";
}

std::map<std::string, std::string> apex_params(int td) {
    return {{"TD", std::to_string(td)}, {"SW_h", "250000.0"}, {"BYTORDA", "0"}, {"ML1", "1.0E8"},
            {"ML2", "-20.0"},           {"ML3", "7500.0"},   {"NS", "12"},      {"EXC_low", "200.0"},
            {"EXC_hi", "1500.0"}};
}

// A .d directory with a method folder and a little-endian fid of 0..td-1 scaled.
std::string make_apex(const TempDir& dir, const std::string& name, const std::map<std::string, std::string>& params,
                      const std::string& fid_bytes) {
    const fs::path d = dir.path() / name;
    fs::create_directories(d / "test.m");
    test::write_file((d / "test.m" / "apexAcquisition.method").string(), method_xml(params));
    if (!fid_bytes.empty()) test::write_file((d / "fid").string(), fid_bytes);
    return d.string();
}

std::vector<std::int32_t> ramp(int n) {
    std::vector<std::int32_t> v(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) v[static_cast<std::size_t>(i)] = (i - n / 2) * 1000 + 7;
    return v;
}

// ---------------------------------------------------------------------------
// The instrument law

TEST(InstrumentLaw, BothDirectionsAreExactInversesInEveryForm) {
    struct Case {
        double ML1, ML2, ML3;
    };
    const Case cases[] = {{REAL_ML1, REAL_ML2, REAL_ML3}, {REAL_ML1, REAL_ML2, -7489.9}, {1.0e8, 100.0, 0.0},
                          {1.0e8, -35.5, 0.0}};
    for (const Case& c : cases) {
        Spectrum s;
        s.filetype = FILETYPE_BRUKER;
        s.caltype = CALTYPE_INSTRUMENT;
        s.Aterm = c.ML1;
        s.Bterm = c.ML2;
        s.Cterm = c.ML3;
        s.dbandwidth = 535714.2857142857;
        s.datacount = 262144;
        for (double mz : {150.0, 202.2, 491.0, 1449.9, 3000.0}) {
            SCOPED_TRACE(fmt::format("ML {} {} {}, m/z {}", c.ML1, c.ML2, c.ML3, mz));
            const double f = instrument_freq(c.ML1, c.ML2, c.ML3, mz);
            // The law as the instrument states it.
            const double expected_f = c.ML3 == 0.0 ? c.ML1 / mz - c.ML2 : c.ML1 / mz + c.ML2 + c.ML3 / (mz * mz);
            EXPECT_DOUBLE_EQ(f, expected_f);
            EXPECT_NEAR(instrument_mass(c.ML1, c.ML2, c.ML3, f), mz, mz * 1e-13);

            const double p = f / (s.dbandwidth / s.datacount);
            double arr_m = 0, arr_p = 0, arr_fm = 0;
            Pt_tomass(s, std::span<const double>(&p, 1), std::span<double>(&arr_m, 1));
            Mass_topt(s, std::span<const double>(&mz, 1), std::span<double>(&arr_p, 1));
            Freq_tomass(s, std::span<const double>(&f, 1), std::span<double>(&arr_fm, 1));
            EXPECT_NEAR(arr_m, mz, mz * 1e-12);
            EXPECT_NEAR(arr_fm, mz, mz * 1e-12);
            EXPECT_NEAR(SPt_tomass(s, p), mz, mz * 1e-12);
            EXPECT_NEAR(One_pt_tomass(s, p), mz, mz * 1e-12);
            EXPECT_NEAR(arr_p, p, p * 1e-12);
            EXPECT_NEAR(SMass_toPt(s, mz), p, p * 1e-12);
            EXPECT_NEAR(One_mass_topt(s, mz), p, p * 1e-12);
        }
    }
}

TEST(InstrumentLaw, LinearFormStoresTheOffsetWithTheOtherSign) {
    // ML3 = 0: m = ML1 / (f + ML2); 1e8 / (199900 + 100) = 500 exactly.
    EXPECT_DOUBLE_EQ(instrument_mass(1.0e8, 100.0, 0.0, 199900.0), 500.0);
    // ML3 != 0: f = ML1/m + ML2 + ML3/m^2; at m = 500: 200000 - 20 + 0.03.
    EXPECT_DOUBLE_EQ(instrument_freq(1.0e8, -20.0, 7500.0, 500.0), 200000.0 - 20.0 + 0.03);
    // A frequency with no positive root is marked, not turned into a negative mass.
    EXPECT_EQ(instrument_mass(1.0e8, 100.0, 0.0, -200.0), MASS_OUT_OF_LAW);
    EXPECT_EQ(instrument_mass(1.0e8, 50.0, 7500.0, 10.0), MASS_OUT_OF_LAW);
}

// ---------------------------------------------------------------------------
// XMASS reader

TEST(XmassReader, ByteOrderCalmetAndTermsAsTheOldSoftwareReadThem) {
    struct Case {
        const char* name;
        std::string byteorder_line;
        std::string fid;
        std::vector<float> samples;
    };
    const Case cases[] = {
        {"big-endian", "##$BYTORDA= 1", be32(524288) + be32(-3) + be32(70000), {524288.0f, -3.0f, 70000.0f}},
        {"as stored", "##$BYTORDA= 0", test::int32_bytes({524288, -3, 70000}), {524288.0f, -3.0f, 70000.0f}},
        // Only 0 means as stored.
        {"any other order", "##$BYTORDA= 2", be32(1) + be32(2) + be32(-1), {1.0f, 2.0f, -1.0f}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        test::write_file(dir.file("acqus"),
                         acqus_text({"##$TD= 3", c.byteorder_line, "##$SW_h= 416666.66", "##$Calmet= 3",
                                     "##$ML1= 47536772.000000", "##$ML2= 71.096779", "##$ML3= 55.0"}));
        test::write_file(dir.file("fid"), c.fid);
        auto o = open(dir.path().string());
        ASSERT_GE(o->slot, 0) << o->popups();
        const Spectrum& s = o->s();
        EXPECT_EQ(s.filetype, FILETYPE_BRUKER);
        EXPECT_EQ(s.datacount, 3);
        EXPECT_DOUBLE_EQ(s.dbandwidth, 416666.66);
        // Calmet 3 neither stops the load nor changes the law.
        EXPECT_EQ(s.caltype, CALTYPE_TWO_TERM);
        EXPECT_TRUE(o->ui.messages.empty()) << o->popups();
        EXPECT_DOUBLE_EQ(s.Aterm, 47536772.0);
        EXPECT_DOUBLE_EQ(s.Bterm, 71.096779);  // taken as written, not inverted
        EXPECT_EQ(s.Cterm, 0.0);               // ML3 is not read from XMASS files
        ASSERT_EQ(s.data.size(), 3u);
        for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(s.data[i], c.samples[i]);
    }
}

TEST(XmassReader, DamagedDirectoriesAreRefusedWithTheirMessage) {
    struct Case {
        const char* name;
        std::string acqus;  // empty: no acqus
        std::string fid;
        std::string title, text;  // expected popup (text: a part of it)
    };
    const std::string fid12 = test::int32_bytes({1, 2, 3});
    const Case cases[] = {
        {"no acqus", "", fid12, "Error Opening Bruker Data File", "Parameter File (acqus) not found"},
        {"wrong title", acqus_text({"##$TD= 3"}, "##TITLE= Something else"), fid12, "Error Opening Bruker Data File",
         "Not Valid BRUKER Data File Format."},
        {"no end marker", acqus_text({"##$TD= 3"}, "##TITLE= XMASS Parameter file", false), fid12,
         "File Input Error", "No Data Marker Found"},
        {"TD of 0", acqus_text({"##$TD= 0"}), fid12, "File Input Error", "No Data Count Specified"},
        {"negative TD", acqus_text({"##$TD= -5"}), fid12, "File Input Error", "TD -5"},
        {"absurd TD", acqus_text({"##$TD= 1073741824"}), fid12, "File Input Error", "TD 1073741824"},
        {"short fid", acqus_text({"##$TD= 4"}), fid12, "File Input Error", "holds 12 bytes; TD 4 needs 16 bytes"},
        {"no fid", acqus_text({"##$TD= 3"}), "", "File Input Error", "fid not found"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        if (!c.acqus.empty()) test::write_file(dir.file("acqus"), c.acqus);
        if (!c.fid.empty()) test::write_file(dir.file("fid"), c.fid);
        Workspace ws;
        RecordingUi ui;
        Spectrum s;
        ASSERT_EQ(Get_Bruker_Data(dir.path().string(), s, ui), -1);
        ASSERT_EQ(ui.messages.size(), 1u);
        EXPECT_EQ(ui.messages[0].title, c.title);
        EXPECT_NE(ui.messages[0].text.find(c.text), std::string::npos) << ui.messages[0].text;
    }
}

TEST(XmassReader, TitleIsMatchedWithoutRegardToCaseAndBruker2ReadsWithoutSwap) {
    TempDir dir;
    test::write_file(dir.file("acqus"), acqus_text({"##$td= 2", "##$sw_h= 1000.5"}, "##title= uxnmr parameter file"));
    test::write_file(dir.file("fid"), be32(1) + be32(2));
    RecordingUi ui;
    Spectrum s;
    ASSERT_EQ(Get_Bruker_Data(dir.path().string(), s, ui), 0) << ui.popup_texts().size();
    EXPECT_EQ(s.datacount, 2);
    EXPECT_DOUBLE_EQ(s.dbandwidth, 1000.5);
    // No BYTORDA line: as stored.
    EXPECT_EQ(s.data[0], static_cast<float>(0x01000000));
    Spectrum s2;
    s2.datacount = 2;
    ASSERT_EQ(Get_Bruker2_Data(dir.path().string(), 0, s2, ui), 0);
    EXPECT_EQ(s2.data, s.data);
}

// ---------------------------------------------------------------------------
// XMASS writer

TEST(XmassWriter, WrittenDirectoryReadsBackWithTheOneWayTerms) {
    TempDir dir;
    Spectrum s;
    s.datacount = 8;
    s.dbandwidth = 1000000.0;
    s.Aterm = DEFAULT_ATERM;
    s.Bterm = DEFAULT_BTERM;
    s.data = {1.0f, -1.0f, 0.5f, 0.0f, 1.0e-6f, -2.5e-3f, 4000.0f, -4100.0f};
    const std::string base = dir.file("run");
    RecordingUi ui;
    ASSERT_EQ(Store_Data_XMASS(base, s, XmassRun{64, 0.25}, ui), 0);
    EXPECT_TRUE(ui.messages.empty());

    // A sample of 1.0 is the integer 524288, most significant byte first.
    const std::string fid = test::read_file(base + "/1/fid");
    ASSERT_EQ(fid.size(), 32u);
    EXPECT_EQ(fid.substr(0, 4), std::string("\x00\x08\x00\x00", 4));
    EXPECT_EQ(fid.substr(4, 4), std::string("\xff\xf8\x00\x00", 4));
    EXPECT_EQ(test::read_file(base + "/1/SPTYPE"), "icr\n");

    const std::string acqu = test::read_file(base + "/1/acqu"), acqus = test::read_file(base + "/1/acqus");
    EXPECT_EQ(acqu.rfind("##TITLE= XMASS Parameter file\n##JCAMPDX= 5.0\n##DATATYPE= XMASS Parameter Values\n"
                         "##ORIGIN= TULVA, QORMT & ZYK\n##OWNER= opr\n##$ADCINSL= ",
                         0),
              0u);
    EXPECT_EQ(acqus.substr(acqus.size() - 9), "##END=\n\n\n");
    EXPECT_NE(acqu.find("##$VD= 0.250000 \n"), std::string::npos);
    EXPECT_NE(acqus.find("##$VD= 0 \n"), std::string::npos);
    EXPECT_NE(acqus.find("##$NS= 64 \n"), std::string::npos);
    EXPECT_NE(acqus.find("##$TD= 8 \n"), std::string::npos);
    EXPECT_NE(acqus.find("##$D= (0..31) \n50000 10000 0 0 100 215000 0 0\n0 1000 0 0 0 0 0 0\n"), std::string::npos);
    EXPECT_NE(acqus.find("##$P= (0..31) \n0 5000 5000 12 119 1 0 1\n"), std::string::npos);
    EXPECT_LT(acqus.find("##$YMIN_a="), acqus.find("##$AE="));  // single values before arrays and strings
    const std::string procs = test::read_file(base + "/1/pdata/1/procs");
    EXPECT_EQ(procs, test::read_file(base + "/1/pdata/1/proc"));
    EXPECT_NE(procs.find("##$SI= 8 \n"), std::string::npos);
    EXPECT_NE(procs.find("##$TIC_max= -1E+38 \n"), std::string::npos);
    EXPECT_EQ(procs.substr(procs.size() - 7), "##END=\n");

    // Read back, through the base directory as a user would pick it.
    auto o = open(base);
    ASSERT_GE(o->slot, 0) << o->popups();
    const Spectrum& r = o->s();
    EXPECT_EQ(r.datacount, 8);
    EXPECT_DOUBLE_EQ(r.dbandwidth, 1000000.0);
    EXPECT_DOUBLE_EQ(r.Aterm, static_cast<float>(DEFAULT_ATERM));
    // ML2 as the file prints it: the float -B / A with six decimals.
    EXPECT_NEAR(r.Bterm, static_cast<float>(-DEFAULT_BTERM / DEFAULT_ATERM), 5e-7);
    // The samples come back as the integers written: times 524288, truncated.
    const std::vector<float> expected = {524288.0f, -524288.0f, 262144.0f, 0.0f, 0.0f, -1310.0f,
                                         2097152000.0f, -2147483648.0f};
    EXPECT_EQ(r.data, expected);
    // The one-way terms still give nearly the two-term masses of the source.
    Spectrum src = s;
    src.filetype = FILETYPE_TULVA;
    for (double f : {95000.0, 200000.0}) EXPECT_NEAR(SPt_tomass(r, f / r.hzppt) / SPt_tomass(src, f / (1e6 / 8)), 1.0, 1e-6);
}

TEST(XmassWriter, RefusalsKeepTheirMessages) {
    TempDir dir;
    Spectrum s;
    s.datacount = 2;
    s.data = {0.0f, 0.0f};
    RecordingUi ui;
    // The base is a file: its directory cannot be made.
    test::write_file(dir.file("taken"), "x");
    EXPECT_EQ(Store_Data_XMASS(dir.file("taken"), s, {}, ui), -1);
    EXPECT_TRUE(ui.saw("Dir creation error", "Creation of filename dir failed"));
    // "1" is a file.
    fs::create_directories(dir.path() / "b");
    test::write_file(dir.file("b/1"), "x");
    EXPECT_EQ(Store_Data_XMASS(dir.file("b"), s, {}, ui), -1);
    EXPECT_TRUE(ui.saw("Dir creation error", "Creation of filename\\1\\ dir failed"));
    // A directory in the way of acqu.
    fs::create_directories(dir.path() / "c" / "1" / "acqu");
    EXPECT_EQ(Store_Data_XMASS(dir.file("c"), s, {}, ui), -1);
    EXPECT_EQ(ui.messages.back().title, "ACQU File Storage Error");
    EXPECT_EQ(xmass_base_of("/data/run7.dat"), "/data/run7");
    EXPECT_EQ(xmass_base_of("/data/run7.Z"), "/data/run7");
    EXPECT_EQ(xmass_base_of("/data/run7.d/"), "/data/run7");
}

TEST(XmassWriter, SaveAsXmassTakesTheActiveTransientOnly) {
    TempDir dir;
    Workspace ws;
    RecordingUi ui;
    EXPECT_EQ(store_active_xmass(ws, dir.file("x"), ui), -1);
    EXPECT_TRUE(ui.saw("Operator Error", "No Spectrum Chosen"));

    const std::string d = make_apex(dir, "a.d", apex_params(16), test::int32_bytes(ramp(16)));
    const int slot = open_any_file(ws, d, ui);
    ASSERT_GE(slot, 0);
    // Empty base: beside the source, named after it without its extension.
    ASSERT_EQ(store_active_xmass(ws, "", ui), 0);
    EXPECT_EQ(fs::file_size(dir.file("a/1/fid")), 64u);
    ws.panels[static_cast<std::size_t>(slot)].spectrum.domain = DOMAIN_FREQUENCY;
    EXPECT_EQ(store_active_xmass(ws, dir.file("y"), ui), -1);
    EXPECT_EQ(ui.messages.back().title, "Operator Error");
    EXPECT_FALSE(fs::exists(dir.path() / "y"));
}

// ---------------------------------------------------------------------------
// apex/solariX .d

TEST(ApexReader, MethodAndAcqusDirectoriesFillTheRecord) {
    TempDir dir;
    const std::vector<std::int32_t> samples = ramp(64);
    const std::string d = make_apex(dir, "run.d", apex_params(64), test::int32_bytes(samples));
    std::vector<float> expected(samples.begin(), samples.end());

    // The directory, its fid and its method file all open the same acquisition.
    for (const std::string& path : {d, d + "/fid", d + "/test.m/apexAcquisition.method", d + "/test.m"}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(filetype_of_path(path), FILETYPE_BRUKER);
        auto o = open(path);
        ASSERT_GE(o->slot, 0) << o->popups();
        const Spectrum& s = o->s();
        EXPECT_EQ(s.filetype, FILETYPE_BRUKER);
        EXPECT_EQ(s.domain, DOMAIN_TIME);
        EXPECT_EQ(s.datacount, 64);
        EXPECT_DOUBLE_EQ(s.dbandwidth, 250000.0);
        EXPECT_EQ(s.caltype, CALTYPE_INSTRUMENT);
        EXPECT_DOUBLE_EQ(s.Aterm, 1.0e8);
        EXPECT_DOUBLE_EQ(s.Bterm, -20.0);
        EXPECT_DOUBLE_EQ(s.Cterm, 7500.0);
        EXPECT_EQ(s.expcount, 12);
        EXPECT_EQ(s.collectedon, "Mar_17_2021 15:25:01.281");
        EXPECT_EQ(s.collectedby, "tester");
        // The excitation band in Hz: m/z 1500 at its low end, 200 at its high end.
        EXPECT_DOUBLE_EQ(s.lowfreq, instrument_freq(1.0e8, -20.0, 7500.0, 1500.0));
        EXPECT_DOUBLE_EQ(s.highfreq, instrument_freq(1.0e8, -20.0, 7500.0, 200.0));
        EXPECT_EQ(counts(s.data), expected);
    }

    // A name that does not exist inside the acquisition is not the acquisition.
    EXPECT_EQ(filetype_of_path(d + "/fdi"), FILETYPE_TULVA);
    EXPECT_LT(open(d + "/fdi")->slot, 0);

    // Big-endian samples, and a ser file of three transients: the first is read.
    auto params = apex_params(4);
    params["BYTORDA"] = "1";
    std::string ser;
    for (int t = 0; t < 3; ++t)
        for (int i = 0; i < 4; ++i) ser += be32(t * 100 + i - 2);
    const std::string d2 = make_apex(dir, "ser.d", params, "");
    test::write_file(d2 + "/ser", ser);
    auto o2 = open(d2);
    ASSERT_GE(o2->slot, 0) << o2->popups();
    EXPECT_EQ(counts(o2->s().data), (std::vector<float>{-2.0f, -1.0f, 0.0f, 1.0f}));
    BrukerParameters bp;
    RecordingUi ui;
    ASSERT_EQ(read_bruker_parameters(d2, bp, ui), 0);
    EXPECT_EQ(bp.transients, 3);
    EXPECT_EQ(bp.data_file, d2 + "/ser");

    // An acqus of the newer instruments instead of a method folder.
    const fs::path d3 = dir.path() / "acqus.d";
    fs::create_directories(d3);
    test::write_file((d3 / "acqus").string(),
                     acqus_text({"##$TD= 4", "##$SW_h= 500000.5", "##$ML1= 2.0E8", "##$ML2= 15.5", "##$ML3= 0",
                                 "##$NS= 3", "##$D= (0..3)", "1 2 3 4", "##$PULPROG= <basic>",
                                 "##$DATE= 1615994701"},
                                "##TITLE= Parameter file, ApexControl 3.0"));
    test::write_file((d3 / "fid").string(), test::int32_bytes({5, 6, 7, 8}));
    auto o3 = open(d3.string());
    ASSERT_GE(o3->slot, 0) << o3->popups();
    EXPECT_EQ(o3->s().caltype, CALTYPE_INSTRUMENT);
    EXPECT_DOUBLE_EQ(o3->s().dbandwidth, 500000.5);
    EXPECT_DOUBLE_EQ(o3->s().Bterm, 15.5);
    EXPECT_EQ(o3->s().Cterm, 0.0);
    EXPECT_EQ(o3->s().expcount, 3);
    EXPECT_EQ(o3->s().collectedon, "2021-03-17 15:25:01 UTC");
    EXPECT_EQ(counts(o3->s().data), (std::vector<float>{5.0f, 6.0f, 7.0f, 8.0f}));
}

TEST(ApexReader, DamagedAcquisitionsAreRefusedWithAClearMessage) {
    const std::string fid16 = test::int32_bytes({1, 2, 3, 4});
    auto with = [](std::map<std::string, std::string> p, const std::string& k, const std::string& v) {
        if (v.empty()) p.erase(k);
        else p[k] = v;
        return p;
    };
    struct Case {
        const char* name;
        std::string method;  // empty: no method folder
        std::string fid, ser;
        std::string text;    // a part of the message
    };
    const auto ok = apex_params(4);
    const std::string good = method_xml(ok);
    const Case cases[] = {
        {"no parameter file", "", fid16, "", "Parameter File (acqus) not found"},
        {"malformed XML", "<method><paramlist><param><name>TD</name><value>4</value></param>", fid16, "",
         "is not valid XML"},
        {"truncated XML", good.substr(0, good.size() / 2), fid16, "", "is not valid XML"},
        {"not a method", "<other/>", fid16, "", "holds no <paramlist>"},
        {"no TD", method_xml(with(ok, "TD", "")), fid16, "", "gives no TD"},
        {"no SW_h", method_xml(with(ok, "SW_h", "")), fid16, "", "gives no SW_h"},
        {"TD of 0", method_xml(with(ok, "TD", "0")), fid16, "", "TD 0 in"},
        {"negative TD", method_xml(with(ok, "TD", "-4")), fid16, "", "TD -4 in"},
        {"absurd TD", method_xml(with(ok, "TD", "4294967296")), fid16, "", "TD 4294967296 in"},
        {"fractional TD", method_xml(with(ok, "TD", "4.5")), fid16, "", "gives no TD"},
        {"no bandwidth", method_xml(with(ok, "SW_h", "-1")), fid16, "", "is not a bandwidth"},
        {"no calibration", method_xml(with(ok, "ML1", "0")), fid16, "", "no usable calibration"},
        {"short fid", good, fid16.substr(0, 12), "", "holds 12 bytes; TD 4 needs 16 bytes"},
        {"no data file", good, "", "", "Data file (fid or ser) not found"},
        {"ragged ser", good, "", fid16 + fid16.substr(0, 6), "holds 22 bytes, not a whole number of transients"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        const fs::path d = dir.path() / "x.d";
        fs::create_directories(d);
        if (!c.method.empty()) {
            fs::create_directories(d / "m.m");
            test::write_file((d / "m.m" / "apexAcquisition.method").string(), c.method);
        }
        if (!c.fid.empty()) test::write_file((d / "fid").string(), c.fid);
        if (!c.ser.empty()) test::write_file((d / "ser").string(), c.ser);
        auto o = open(d.string());
        EXPECT_EQ(o->slot, -1);
        ASSERT_EQ(o->ui.messages.size(), 1u) << o->popups();
        EXPECT_NE(o->ui.messages[0].text.find(c.text), std::string::npos) << o->ui.messages[0].text;
    }
}

// ---------------------------------------------------------------------------
// The real acquisition

class RealAcquisition : public ::testing::Test {
protected:
    void SetUp() override {
        if (!fs::exists(REAL_D + "/fid")) GTEST_SKIP() << "no real Bruker data at " << REAL_D;
    }
};

TEST_F(RealAcquisition, ParametersSamplesAndLaw) {
    auto o = open(REAL_D);
    ASSERT_GE(o->slot, 0) << o->popups();
    const Spectrum& s = o->s();
    EXPECT_EQ(s.datacount, 524288);
    EXPECT_DOUBLE_EQ(s.dbandwidth, 535714.2857142857);
    EXPECT_DOUBLE_EQ(s.Aterm, REAL_ML1);
    EXPECT_DOUBLE_EQ(s.Bterm, REAL_ML2);
    EXPECT_DOUBLE_EQ(s.Cterm, REAL_ML3);
    EXPECT_EQ(s.expcount, 500);
    // Counts at 2^19 per volt: the scaling is exact.
    std::vector<float> first(s.data.begin() + 24, s.data.begin() + 36);
    for (float& v : first) v *= 524288.0f;
    EXPECT_EQ(first, (std::vector<float>{0, 0, 1, -5, 13, -17, 33, -40, 42, -41, 39, -44}));
    EXPECT_EQ(s.data[1000] * 524288.0f, 19567.0f);
    EXPECT_EQ(*std::max_element(s.data.begin(), s.data.end()) * 524288.0f, 901434.0f);

    BrukerParameters bp;
    RecordingUi ui;
    ASSERT_EQ(read_bruker_parameters(REAL_D, bp, ui), 0);
    EXPECT_DOUBLE_EQ(bp.EXC_low, 202.21793);
    EXPECT_DOUBLE_EQ(bp.EXC_hi, 1450.0);
    EXPECT_EQ(bp.method, "ESI_pos_12032018");
    EXPECT_EQ(bp.BYTORDA, 0);
    for (double f : {74728.13, 220252.2, 535000.0}) {
        const double m = instrument_mass(REAL_ML1, REAL_ML2, REAL_ML3, f);
        EXPECT_NEAR(instrument_freq(REAL_ML1, REAL_ML2, REAL_ML3, m), f, f * 1e-14);
    }
}

struct Cluster {
    int z;
    double mz, spacing_error_ppm, abundance;
    int size;
    double neutron;  // mean step times z
};

// Isotope chains among the peaks: runs of 3 or more whose neighbours lie
// 1.00336/z apart within 5 ppm of m/z, with no peak at the half step (so a
// z = 4 cluster is not also reported as z = 2). The error of each cluster is
// the largest deviation of one step from 1.00336/z, in ppm of its m/z.
std::vector<Cluster> isotope_clusters(const std::vector<Peak>& peaks, double min_abundance) {
    std::vector<const Peak*> p;
    for (const Peak& k : peaks)
        if (k.abundance >= min_abundance) p.push_back(&k);
    std::sort(p.begin(), p.end(), [](auto a, auto b) { return a->mass < b->mass; });
    auto near = [&](double m, double tol) -> const Peak* {
        const Peak* best = nullptr;
        for (const Peak* k : p)
            if (std::fabs(k->mass - m) <= tol && (!best || k->abundance > best->abundance)) best = k;
        return best;
    };
    std::vector<Cluster> out;
    for (const Peak* start : p) {
        for (int z = 6; z >= 1; --z) {
            const double step = NEUTRON_SPACING / z, tol = start->mass * 5e-6;
            if (near(start->mass - step, tol) || near(start->mass + step / 2, tol)) continue;
            std::vector<const Peak*> chain{start};
            while (const Peak* next = near(chain.back()->mass + step, tol)) chain.push_back(next);
            if (chain.size() < 3) continue;
            double worst = 0.0;
            for (std::size_t i = 1; i < chain.size(); ++i)
                worst = std::max(worst, std::fabs(chain[i]->mass - chain[i - 1]->mass - step) / start->mass * 1e6);
            const double neutron = (chain.back()->mass - start->mass) / static_cast<double>(chain.size() - 1) * z;
            out.push_back({z, start->mass, worst, start->abundance, static_cast<int>(chain.size()), neutron});
            break;
        }
    }
    return out;
}

TEST_F(RealAcquisition, WholeSpectrumGivesIsotopeClustersAtTheNeutronSpacing) {
    auto o = open(REAL_D);
    ASSERT_GE(o->slot, 0) << o->popups();
    Workspace& ws = o->ws;
    ProcessCommandResult r;
    ASSERT_EQ(process_command(ws, o->ui, &r), 0) << o->popups();
    Spectrum& s = ws.panels[static_cast<std::size_t>(o->slot)].spectrum;
    ASSERT_EQ(s.domain, DOMAIN_FREQUENCY);
    // N/2 points spanning 0..SW_h.
    EXPECT_NEAR(s.hzppt * s.datacount, 535714.2857142857, 1e-6);

    // Peaks are found on the m/z view over the whole law's range, as the
    // command line does it.
    ws.panels[static_cast<std::size_t>(o->slot)].xmode = XMODE_MZ;
    ws.settings.low_mass = ws.settings.high_mass = 0.0;
    FindPeakOptions(ws, o->slot);
    if (ws.settings.high_mass <= 0.0) ws.settings.high_mass = High_Mass(s);
    if (ws.settings.low_mass <= 0.0) ws.settings.low_mass = Low_Mass(s);
    ws.settings.peak_threshold = 5.0;
    PeakTable table;
    const int n = AnalyzeFindPeaks(ws, true, table, o->ui);
    ASSERT_GT(n, 100) << o->popups();
    std::vector<Peak> peaks = s.peaks;

    // The strongest peaks lie inside the excitation, the tallest of all in the
    // precursor's cluster near m/z 491.
    std::sort(peaks.begin(), peaks.end(), [](const Peak& a, const Peak& b) { return a.abundance > b.abundance; });
    for (std::size_t i = 0; i < 50; ++i) {
        EXPECT_GT(peaks[i].mass, 202.0);
        EXPECT_LT(peaks[i].mass, 1450.0);
    }
    EXPECT_NEAR(peaks[0].mass, 491.0, 4.0);

    const auto clusters = isotope_clusters(peaks, peaks[0].abundance * 0.005);
    std::map<int, int> by_charge;
    std::vector<double> errors, neutrons;
    for (const Cluster& c : clusters) {
        ++by_charge[c.z];
        errors.push_back(c.spacing_error_ppm);
        neutrons.push_back(c.neutron);
    }
    ASSERT_GE(clusters.size(), 20u);
    // Several charge states, singly or doubly charged fragments among them.
    EXPECT_GE(by_charge.size(), 4u);
    EXPECT_GE(by_charge[1] + by_charge[2], 1);
    // ppm-scale accuracy of the steps. The isotope step of peptides lies a
    // little below the 13C step (1.0023 to 1.0034); a frequency axis stretched
    // by 1e-3 would move the median out of that band, and a doubled or halved
    // one would move the precursor above.
    std::sort(errors.begin(), errors.end());
    std::sort(neutrons.begin(), neutrons.end());
    EXPECT_LT(errors[errors.size() / 2], 1.0);
    EXPECT_GT(neutrons[neutrons.size() / 2], 1.0020);
    EXPECT_LT(neutrons[neutrons.size() / 2], 1.0037);
    for (const Cluster& c : clusters) {
        if (c.z <= 2) {
            EXPECT_LT(c.spacing_error_ppm, 2.5) << "z " << c.z << " at m/z " << c.mz;
        }
    }
}

// ---------------------------------------------------------------------------
// Command line

class BrukerCli : public ::testing::Test {
protected:
    TempDir dir_;
    test::CliRun run(const std::string& args) const { return test::run_cli(dir_.file("home"), args, false); }
};

TEST_F(BrukerCli, InfoConvertAndXmassRoundTrip) {
    const std::string d = make_apex(dir_, "cli.d", apex_params(256), test::int32_bytes(ramp(256)));
    auto info = run("info --json '" + d + "/fid'");
    ASSERT_EQ(info.status, 0) << info.err;
    const auto j = nlohmann::json::parse(info.out);
    EXPECT_EQ(j["header"]["datacount"], 256);
    EXPECT_EQ(j["header"]["caltype"], CALTYPE_INSTRUMENT);
    EXPECT_EQ(j["acquisition"]["TD"], 256);
    EXPECT_EQ(j["acquisition"]["NS"], 12);
    EXPECT_EQ(j["acquisition"]["method"], "ESI_test");

    auto conv = run("convert --json '" + d + "' --freq 200000");
    ASSERT_EQ(conv.status, 0) << conv.err;
    const auto c = nlohmann::json::parse(conv.out);
    EXPECT_NEAR(c["conversions"][0]["Freq_tomass"].get<double>(), instrument_mass(1e8, -20.0, 7500.0, 200000.0), 1e-9);

    // A Tulva transient out as XMASS and back in.
    test::write_file(dir_.file("ions.txt"), "500, 0.5\n");
    ASSERT_EQ(run("simulate '" + dir_.file("ions.txt") + "' -o '" + dir_.file("s.dat") + "' --points 4096").status, 0);
    auto x = run("xmass --json '" + dir_.file("s.dat") + "'");
    ASSERT_EQ(x.status, 0) << x.err;
    EXPECT_EQ(nlohmann::json::parse(x.out)["directory"], dir_.file("s"));
    auto back = run("info --json '" + dir_.file("s") + "'");
    ASSERT_EQ(back.status, 0) << back.err;
    const auto b = nlohmann::json::parse(back.out);
    EXPECT_EQ(b["header"]["datacount"], 4096);
    EXPECT_EQ(b["header"]["filetype"], FILETYPE_BRUKER);
    EXPECT_FALSE(b.contains("acquisition"));  // XMASS data have no method parameters
    auto again = run("xmass '" + dir_.file("s.dat") + "' -o '" + dir_.file("other") + "'");
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(test::read_file(dir_.file("other/1/fid")), test::read_file(dir_.file("s/1/fid")));
}

TEST_F(BrukerCli, DamagedDirectoryExitsWithItsMessage) {
    fs::create_directories(dir_.path() / "empty.d");
    for (const char* cmd : {"info", "process", "peaks", "convert"}) {
        SCOPED_TRACE(cmd);
        std::string args = std::string(cmd) + " '" + dir_.file("empty.d") + "'";
        if (std::string(cmd) == "process") args += " -o '" + dir_.file("x.csv") + "'";
        if (std::string(cmd) == "peaks") args += " -o '" + dir_.file("x.pks") + "'";
        if (std::string(cmd) == "convert") args += " --freq 1000";
        auto r = run(args);
        EXPECT_NE(r.status, 0);
        EXPECT_NE(r.err.find("Parameter File (acqus) not found"), std::string::npos) << r.err;
    }
    // A missing source is refused before anything is written.
    auto x = run("xmass '" + dir_.file("nothing.dat") + "'");
    EXPECT_NE(x.status, 0);
    EXPECT_FALSE(fs::exists(dir_.path() / "nothing"));
}

}  // namespace
}  // namespace vx

namespace vx {
namespace {

// The real acquisition through the default path, no option touched: the
// search covers the excitation (m/z 202 to 1450) and lists the ions, not the
// tens of thousands of noise peaks that raw digitiser counts would pass.
TEST_F(RealAcquisition, DefaultPeakSearchListsTheIonsOfTheExcitedRange) {
    test::TempDir dir;
    const auto r = test::run_cli(dir.file("home"), "peaks --json '" + REAL_D + "' -o '" + dir.file("x.pks") + "'");
    ASSERT_EQ(r.status, 0) << r.err;
    const auto j = nlohmann::json::parse(r.out);
    EXPECT_NEAR(j["low_mass"].get<double>(), 202.2, 0.05);  // the data end just above EXC_low
    EXPECT_NEAR(j["high_mass"].get<double>(), 1450.0, 0.01);
    const int n = j["peakcount"].get<int>();
    EXPECT_GT(n, 100);
    EXPECT_LT(n, 3000);
    // The precursor cluster (z = 6 near m/z 491) is among the strongest peaks.
    double top = 0.0, top_mz = 0.0;
    for (const auto& p : j["peaks"])
        if (p["abundance"].get<double>() > top) top = p["abundance"].get<double>(), top_mz = p["mz"].get<double>();
    EXPECT_NEAR(top_mz, 491.0, 5.0);
}

}  // namespace
}  // namespace vx
