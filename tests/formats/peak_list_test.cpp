#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include <fmt/format.h>

#include "formats/peak_list.hpp"
#include "platform/ui.hpp"
#include "support/files.hpp"
#include "workspace/conversions.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;

using test::TempDir;

Spectrum two_peaks() {
    Spectrum s;
    Set_Default_Parameters(s);
    s.domain = DOMAIN_FREQUENCY;
    s.datacount = 1 << 20;
    s.hzppt = s.dbandwidth / s.datacount;
    s.initMz = 290.0;
    s.finalMz = 510.0;
    s.peaks.resize(2);
    s.peaks[0].mass = 300.123456;
    s.peaks[0].abundance = 1234.5678;
    s.peaks[0].relabundance = 100.0;
    s.peaks[0].width = 0.003;
    s.peaks[0].resolvingpower = 300.123456 / 0.003;
    s.peaks[0].sn = 42.5;
    s.peaks[0].frequency = 158000.25;
    s.peaks[1].mass = 500.5;
    s.peaks[1].abundance = 617.28;
    s.peaks[1].relabundance = 50.0;
    s.peaks[1].width = 0.01;
    s.peaks[1].resolvingpower = 50050.0;
    s.peaks[1].sn = 21.25;
    s.peaks[1].frequency = 94900.5;
    s.peakcount = 2;
    return s;
}

double frequency_of(const Spectrum& s, double mass) {
    double m[1] = {mass}, p[1], f[1];
    Mass_topt(s, m, p);
    Pt_tofreq(s, p, f);
    return f[0];
}

TEST(PeakListNames, BatchAndTableRules) {
    struct Case {
        std::string source;
        int filetype, scan;
        std::string expected;
    };
    const std::vector<Case> cases = {
        {"x.dat", 0, 0, "x_dat.pks"},
        {"/data/run.1/x.y.dat", 0, 5, "/data/run.1/x.y_dat.pks"},
        {"noext", 0, 0, "noext.pks"},
        {"scan.mzML", 4, 0, "scan_mzML_0001.pks"},
        {"scan.mzML", 4, 8, "scan_mzML_0009.pks"},
        {"scan.mzML", 4, 9, "scan_mzML_0010.pks"},
        {"scan.mzML", 4, 99, "scan_mzML_0100.pks"},
        {"scan.mzML", 4, 998, "scan_mzML_0999.pks"},
        {"scan.mzML", 4, 999, "scan_mzML_1000.pks"},
        {"scan.mzML", 4, 9998, "scan_mzML_9999.pks"},
        {"scan.mzML", 4, 9999, ""},  // scan 10000 has no name
    };
    for (const auto& c : cases) EXPECT_EQ(peak_list_path(c.source, c.filetype, c.scan), c.expected) << c.source;
    EXPECT_EQ(table_peak_list_path("/d/sample.dat"), "/d/sample.pks");
    EXPECT_EQ(table_peak_list_path("ab"), "ab.pks");
}

TEST(BatchPeakList, ExactTextAndColumns) {
    Spectrum s = two_peaks();
    s.detectstart = 0.25;
    BatchPeakListOptions o;
    o.low_mass = 290.0;
    o.high_mass = 510.0;
    o.noise_threshold = 5.0;
    o.peak_threshold = 20.0;
    o.precision = 4;
    o.last_column = PeakListColumn::SN;
    const std::string f2 = fmt::format("{:14.6f}", frequency_of(s, 500.5));
    const std::string f1 = fmt::format("{:14.6f}", frequency_of(s, 300.123456));
    const double com = (1234.5678 * 300.123456 + 617.28 * 500.5) / (1234.5678 + 617.28);
    const std::string expected =
        "There were 2 Peaks found from m/z=   290.00    to m/z=   510.00.\n"
        "POSITIVE ION MODE\n"
        "Noise threshold: 5.000000        Peak threshold: 20.000000\n"
        "Data Detected at (seconds): 0.250000\n"
        " Center of Mass for the Assigned Window is  " + fmt::format(" {:9.4f}\n\n", com) +
        " Peak Location    Peak Height           Abundance         Resolving Power      Frequency\t\tSN\n\n"
        "  500.5000         50.0000          617.2800000              50050         " + f2 + "       21.2500\n"
        "  300.1235        100.0000         1234.5678000              100041         " + f1 + "       42.5000\n";
    EXPECT_EQ(batch_peak_list_text(s, o), expected);

    // Negative trap voltage, no detection time, a baseline column, the
    // frequency-file form of the last column.
    s.Trapvoltage = -3.0;
    s.detectstart = 0.0;
    o.last_column = PeakListColumn::Baseline;
    o.baselines = {1.5, 2.5};
    o.vfd_last_column = true;
    const std::string t = batch_peak_list_text(s, o);
    EXPECT_NE(t.find("\nNEGATIVE ION MODE\n"), std::string::npos);
    EXPECT_NE(t.find("20.000000\n\n Center of Mass"), std::string::npos);  // empty line 4
    EXPECT_NE(t.find("Frequency\t\tBaseline\n\n"), std::string::npos);
    EXPECT_NE(t.find("          2.50\n  300.1235"), std::string::npos);

    // Profile data: first peak first, five decimals, the record's frequency,
    // no last column.
    s.domain = DOMAIN_PROFILE;
    const std::string p = batch_peak_list_text(s, o);
    EXPECT_NE(p.find("Frequency\n\n 300.12346        100.0000         1234.5678000              100041          "
                     "158000.250000\n 500.50000"),
              std::string::npos)
        << p;
}

TEST(BatchPeakList, WriteReadRoundTrip) {
    TempDir dir;
    Spectrum s = two_peaks();
    RecordingUi ui;
    ASSERT_EQ(SavePeakList(s, dir.file("run.dat"), 5.0, 0, 4, 1, 20.0, ui), 0);
    const std::string path = dir.file("run_dat.pks");
    const std::string raw = test::read_file(path);
    EXPECT_EQ(raw.rfind("There were 2 Peaks found from m/z=   290.00    to m/z=   510.00.\r\nPOSITIVE ION MODE\r\n", 0), 0u);
    EXPECT_EQ(raw.find('\n', 0), raw.find("\r\n", 0) + 1);

    Spectrum r;
    ASSERT_EQ(Get_Tulva_Peak_List(path, r, ui), 0);
    EXPECT_EQ(r.peakcount, 2);
    EXPECT_EQ(r.datacount, 12);
    EXPECT_EQ(r.domain, DOMAIN_PEAKLIST);
    ASSERT_EQ(r.xvalues.size(), 12u);
    // File order is the batch order: highest m/z first.
    EXPECT_DOUBLE_EQ(r.peaks[0].index, 500.5);
    EXPECT_DOUBLE_EQ(r.peaks[1].index, 300.1235);
    // The column titled "Peak Height" (the percent) fills abundance, the one
    // titled "Abundance" relabundance.
    EXPECT_FLOAT_EQ(static_cast<float>(r.peaks[0].abundance), 50.0f);
    EXPECT_FLOAT_EQ(static_cast<float>(r.peaks[1].relabundance), 1234.5678f);
    EXPECT_EQ(r.peaks[0].resolvingpower, 50050.0);
    EXPECT_NEAR(r.peaks[0].frequency, frequency_of(s, 500.5), 1e-6);
    EXPECT_FLOAT_EQ(static_cast<float>(r.peaks[1].width), static_cast<float>(300.1235 / 100041.0));
    EXPECT_EQ(r.peaks[0].calmass, -1.0);
    EXPECT_EQ(r.peaks[0].calibrantrow, -1);
    // Sticks: the limits widened by one on each side.
    EXPECT_DOUBLE_EQ(r.xvalues[0], 289.0);
    EXPECT_DOUBLE_EQ(r.xvalues[11], 511.0);
    EXPECT_DOUBLE_EQ(r.xvalues[1], 500.5 / 3.0);
    EXPECT_DOUBLE_EQ(r.xvalues[3], 500.5);
    EXPECT_FLOAT_EQ(r.data[4], 50.0f);
    EXPECT_EQ(r.data[3], 0.0f);
    EXPECT_DOUBLE_EQ(r.xvalues[6], 289.0 + (300.1235 - 289.0) / 3.0);
    EXPECT_FLOAT_EQ(r.data[9], 100.0f);

    // ".Z" in the name reads the list of the unpacked file.
    ASSERT_EQ(SavePeakList(s, dir.file("packed.dat"), 5.0, 0, 4, 1, 20.0, ui), 0);
    fs::rename(dir.file("packed_dat.pks"), dir.file("packed.dat_Z.pks"));
    Spectrum z;
    ASSERT_EQ(Get_Tulva_Peak_List(dir.file("packed.dat.Z"), z, ui), 0);
    EXPECT_EQ(z.peakcount, 2);
}

TEST(BatchPeakList, LimitsFollowTheWidthOfTheCount) {
    TempDir dir;
    RecordingUi ui;
    for (int count : {1, 99, 100, 101, 1000, 1001, 10001}) {
        Spectrum s = two_peaks();
        s.initMz = 1500.0;
        s.finalMz = 2500.0;
        s.peaks.assign(static_cast<std::size_t>(count), s.peaks[0]);
        const std::string base = dir.file(fmt::format("n{}.dat", count));
        ASSERT_EQ(SavePeakList(s, base, 5.0, 0, 4, 0, 20.0, ui), 0);
        Spectrum r;
        ASSERT_EQ(Get_Tulva_Peak_List(dir.file(fmt::format("n{}_dat.pks", count)), r, ui), 0);
        EXPECT_EQ(r.peakcount, count);
        if (count > 1) {
            EXPECT_DOUBLE_EQ(r.xvalues.front(), 1499.0) << count;
            EXPECT_DOUBLE_EQ(r.xvalues.back(), 2501.0) << count;
        }
        EXPECT_DOUBLE_EQ(r.peaks.back().index, 300.1235) << count;
    }
}

TEST(PeakListReader, DamagedAndForeignFiles) {
    TempDir dir;
    // The table form: its count is no number at column 11, so no peaks.
    Spectrum s = two_peaks();
    RecordingUi ui;
    ASSERT_EQ(SavePeakList2(s, dir.file("table.pks"), {}, true, 1.0, ui), 0);
    Spectrum v2;
    ASSERT_EQ(Get_Tulva_Peak_List(dir.file("table.pks"), v2, ui), 0);
    EXPECT_EQ(v2.peakcount, 0);
    EXPECT_EQ(v2.datacount, 2);
    EXPECT_EQ(v2.data.size(), 2u);

    struct Case {
        const char* what;
        std::string text;
        int rc;
        int peaks;
    };
    std::string rows;
    for (int i = 0; i < 3; ++i) rows += fmt::format("{:10.4f}       {:9.4f}       {:14.7f}              {}         {:14.6f}\n",
                                                    400.0 + i, 10.0, 100.0, 40000, 95000.0);
    const std::string head = "There were 10 Peaks found from m/z=   390.00    to m/z=   410.00.\n"
                             "POSITIVE ION MODE\nNoise threshold: 1\n\n Center of Mass for the Assigned Window is  "
                             "  400.0000\n\n Peak Location ...\n\n";
    const std::vector<Case> cases = {
        {"empty file", "", 0, 0},
        {"truncated after three rows", head + rows, 0, 10},
        {"byte 255 ends the list", head + rows.substr(0, rows.find('\n') + 1) + "\xff\n" + rows, 0, 10},
        {"short lines are passed over", head + "ab\n\n" + rows, 0, 10},
        {"count beyond the file", "There were 99999999 Peaks found from m/z=   1.00    to m/z=   2.00.\n", -1, 0},
        {"negative count", "There were -5 Peaks found\n", 0, 0},
        {"binary garbage", std::string("\x01\x02\xff\xfe There were \x80\x81", 18) + std::string(200, '\x7f'), 0, 0},
        {"header only", "There were 3 Peaks", 0, 3},
    };
    for (const auto& c : cases) {
        const std::string path = dir.file("case.pks");
        test::write_file(path, c.text);
        Spectrum r;
        RecordingUi u;
        EXPECT_EQ(Get_Tulva_Peak_List(path, r, u), c.rc) << c.what;
        if (c.rc == 0) {
            EXPECT_EQ(r.peakcount, c.peaks) << c.what;
            EXPECT_EQ(r.data.size(), static_cast<std::size_t>(5 * c.peaks + 2)) << c.what;
        } else {
            EXPECT_EQ(u.messages.size(), 1u) << c.what;
        }
    }
    // Rows read before the end keep their values; the rest stay as allocated.
    test::write_file(dir.file("t.pks"), head + rows);
    Spectrum t;
    ASSERT_EQ(Get_Tulva_Peak_List(dir.file("t.pks"), t, ui), 0);
    EXPECT_DOUBLE_EQ(t.peaks[2].index, 402.0);
    EXPECT_EQ(t.peaks[3].index, 0.0);
    test::write_file(dir.file("s.pks"), head + rows.substr(0, rows.find('\n') + 1) + "\xff\n" + rows);
    ASSERT_EQ(Get_Tulva_Peak_List(dir.file("s.pks"), t, ui), 0);
    EXPECT_DOUBLE_EQ(t.peaks[0].index, 400.0);
    EXPECT_EQ(t.peaks[1].index, 0.0);

    RecordingUi missing;
    Spectrum m;
    EXPECT_EQ(Get_Tulva_Peak_List(dir.file("absent.pks"), m, missing), -1);
    EXPECT_EQ(missing.messages.size(), 1u);
}

TEST(TablePeakList, HeaderLinesAndRows) {
    Spectrum s = two_peaks();
    s.peakabundance = 20.0;
    s.peakprofile = 5.0;
    s.noisemean = 1.5;
    s.noisesigma = 0.75;
    const std::string t = table_peak_list_text(s, {4, 2, 3, 1}, true, 1.0);
    const std::string expected =
        "Vantorix Analysis Peaklist V2.0 - There were 2 Peaks found from m/z=   290.00    to m/z=   510.00.\n"
        "POSITIVE ION MODE\n"
        "Peak threshold: 20.000000      Noise threshold: 5.000000    Baseline for SN: 1.500000   Sigma for SN: 0.750000\n"
        "\n"
        "Center of Mass for the Assigned Window is  " +
        fmt::format("{:9.4f}", (1234.5678 * 300.123456 + 617.28 * 500.5) / (1234.5678 + 617.28)) +
        "\n\n Peak Location      Peak Height            Abundance             Resolving Power        Frequency"
        "               S/N\n\n"
        // blank, m/z (10), 9 blanks, percent (9), 8 blanks, abundance (14), 14
        // blanks, RP (10), 9 blanks, frequency (16), 6 blanks, S/N (10).
        " " "  300.1235" "         " "   100.00" "        " "      1234.568" "              " "    100041"
        "         " "        158000.2" "      " "    42.500" "\n"
        " " "  500.5000" "         " "    50.00" "        " "       617.280" "              " "     50050"
        "         " "         94900.5" "      " "    21.250" "\n";
    EXPECT_EQ(t, expected);
    const std::string plain = table_peak_list_text(s, {4, 2, 3, 1}, false, 1.0);
    // Without S/N: 9 blanks, percent, 9 blanks, abundance, 15 blanks, RP, 9
    // blanks, frequency (14).
    EXPECT_NE(plain.find("\n\n Peak Location          Peak Height            Abundance             Resolving Power"
                         "      Frequency\n\n" " " "  300.1235" "         " "   100.00" "         " "      1234.568"
                         "               " "    100041" "         " "      158000.2" "\n"),
              std::string::npos)
        << plain;

    // Profile scans: scaled abundance and fixed stand-ins.
    s.filetype = FILETYPE_PROFILE;
    const std::string prof = table_peak_list_text(s, {4, 2, 3, 1}, true, 2.0);
    EXPECT_NE(prof.find(" " "  500.5000" "         " "    50.00" "        " "      1234.560" "              "
                        "     10000" "         " "         10000.0" "      " "     5.000" "\n"),
              std::string::npos)
        << prof;
}

TEST(OtherPeakListForms, AutoCalAndCsv) {
    TempDir dir;
    Spectrum s = two_peaks();
    RecordingUi ui;
    ASSERT_EQ(SaveAutoCalPeakList(s, dir.file("cal.dat"), 5.0, 20.0, ui), 0);
    const std::string t = test::read_file(dir.file("cal_dat.pks"));
    double f[1] = {158000.25}, m[1];
    Freq_tomass(s, f, m);
    const std::string row = fmt::format(" {:10.5f}       {:9.4f}       {:.7f}              {}         {:14.6f}\r\n", m[0],
                                        100.0, 1234.5678, static_cast<int>(m[0] / 0.003 + 0.5), 158000.25);
    EXPECT_NE(t.find("Frequency\r\n\r\n" + row), std::string::npos) << t;

    ASSERT_EQ(SavePeakListCsv(s, dir.file("x.csv"), ui), 0);
    const std::string c = test::read_file(dir.file("x.csv"));
    EXPECT_EQ(c.rfind("m/z,Abundance,Relative Abundance,Resolving Power,Frequency,S/N,Width,Index\r\n"
                      "300.1234560,1234.5678000,100.00000,100041.2,158000.250000,42.5000,",
                      0),
              0u)
        << c;

    // An unwritable place: a message and -1.
    RecordingUi bad;
    EXPECT_EQ(SavePeakListCsv(s, dir.file("no/such/dir/x.csv"), bad), -1);
    EXPECT_EQ(bad.messages.size(), 1u);
    s.filetype = FILETYPE_PROFILE;
    EXPECT_EQ(SavePeakList(s, dir.file("scan.mzML"), 5.0, 9999, 4, 0, 20.0, bad), -1);
    EXPECT_EQ(SavePeakList(s, dir.file("scan.mzML"), 5.0, 41, 4, 0, 20.0, bad), 0);
    EXPECT_TRUE(fs::exists(dir.file("scan_mzML_0042.pks")));
}

}  // namespace
}  // namespace vx
