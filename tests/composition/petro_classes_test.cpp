#include <gtest/gtest.h>

#include <filesystem>

#include <cmath>
#include <map>
#include <string>

#include "composition/petro_classes.hpp"
#include "platform/ui.hpp"

namespace vx {
namespace {

FormulaSettings settings_13c_34s() {
    FormulaSettings s = molecal_defaults();
    RecordingUi ui;
    EXPECT_EQ(parse_element_ranges("13C0-1,34S0-1,C0-100,H0-200,N0-4,O0-20,S0-3", s, ui), 0);
    return s;
}

HitRecord hit(double mass, double abundance, ElementCounts c, const FormulaSettings& s, double dbe = 5.0) {
    HitRecord h;
    h.mass = mass;
    h.abundance = abundance;
    h.counts = c;
    h.hit_code = 1;
    h.dbe = dbe;
    h.error = 0.25;
    h.sn = abundance / 10.0;
    std::string cls;
    BuildFormula(h.formula_text, c, s, cls);
    h.class_text = "," + cls;
    return h;
}

HitRecord no_hit(double mass, double abundance) {
    HitRecord h;
    h.mass = mass;
    h.abundance = abundance;
    h.formula_text = "No Hit";
    h.class_text = ",";
    return h;
}

TEST(PetroClasses, FoldingFirstMetOrderAndSums) {
    const FormulaSettings s = settings_13c_34s();
    Spectrum sp;
    // Odd array: N1 O2 parent and its 13C, an HC 13C isotopologue whose parent
    // class has no peak, an O2 S1 parent and its 34S isotopologue.
    sp.unassigned = {
        hit(300.1, 50.0, {20, 30, 1, 2, 0, 0, 0, 0, 0, 0, 0, 0}, s),
        hit(301.1, 11.0, {19, 30, 1, 2, 0, 0, 1, 0, 0, 0, 0, 0}, s),
        hit(250.2, 7.0, {17, 20, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0}, s),
        no_hit(260.0, 1000.0),
        hit(350.3, 40.0, {22, 30, 0, 2, 1, 0, 0, 0, 0, 0, 0, 0}, s, 8.0),
        hit(352.3, 1.7, {22, 30, 0, 2, 0, 0, 0, 1, 0, 0, 0, 0}, s, 8.0),
    };
    // Even array: another N1 O2 member and an O4 class met last.
    sp.assigned = {
        hit(314.1, 30.0, {21, 32, 1, 2, 0, 0, 0, 0, 0, 0, 0, 0}, s),
        hit(400.0, 5.0, {24, 40, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0}, s, 6.0),
    };
    EXPECT_EQ(sp.unassigned[2].class_text, ",HC13C1 ");
    EXPECT_EQ(sp.unassigned[5].class_text, ",O2 34S1 ");

    std::vector<ProcessedRow> rows;
    RecordingUi ui;
    ASSERT_EQ(CopytoProcessed2(rows, sp, ui), 0);
    const auto list = GetElementList(rows);
    std::vector<std::string> order;
    for (const auto& c : list) order.push_back(c.class_text);
    EXPECT_EQ(order, (std::vector<std::string>{",N1 O2 ", ",N1 O2 13C1 ", ",HC13C1 ", ",O2 S1 ", ",O2 34S1 ", ",O4 "}));
    EXPECT_EQ(DeisotopeGroupName2(",HC13C1 ", rows, s), ",HC");
    EXPECT_EQ(DeisotopeGroupName2(",O2 34S1 ", rows, s), ",O2 S1 ");

    // As the desktop wrote it ("S34"), the 34S class stands on its own; with
    // fold_34s it joins O2 S1.
    const double total = 50 + 11 + 7 + 40 + 1.7 + 30 + 5;
    for (bool fold : {false, true}) {
        SCOPED_TRACE(fold);
        PetroSummary p;
        ASSERT_EQ(ProcessPetro(sp, s, fold, p, ui), 0);
        EXPECT_NEAR(p.total, total, 1e-9);
        std::map<std::string, double> got;
        double shares = 0.0;
        for (const ClassRow& c : p.classes) {
            got[c.class_text] = c.sum;
            shares += c.percent;
        }
        std::map<std::string, double> want = {{"N1 O2", 91.0}, {"HC", 7.0}, {"O4", 5.0}};
        if (fold) want["O2 S1"] = 41.7;
        else want["O2 S1"] = 40.0, want["O2 34S1"] = 1.7;
        ASSERT_EQ(got.size(), want.size());
        for (const auto& [k, v] : want) EXPECT_NEAR(got[k], v, 1e-9) << k;
        EXPECT_NEAR(shares, 100.0, 1e-9);
        // Sorted by sum: the biggest class first, its rows together, parent
        // rows before the isotopologue rows of the same merged sum.
        EXPECT_EQ(p.classes.front().class_text, "N1 O2");
        EXPECT_EQ(p.classes.front().peaks, 3);
        // Carbon numbers: isotopologues left out.
        for (const CarbonRow& c : p.carbon) EXPECT_NE(c.class_text, "HC");
        EXPECT_EQ(p.carbon.size(), 4u);
        // DBE rows: percent of the class.
        double n1o2 = 0.0;
        for (const DbeRow& d : p.dbe)
            if (d.class_text == "N1 O2") n1o2 += d.percent;
        EXPECT_NEAR(n1o2, 100.0, 1e-9);
    }
}

TEST(PetroClasses, ErrorTablesByteForByteAndEmptyLists) {
    const FormulaSettings s = settings_13c_34s();
    Spectrum sp;
    sp.unassigned = {hit(300.123456789, 50.0, {20, 30, 1, 2, 0, 0, 0, 0, 0, 0, 0, 0}, s), no_hit(301.0, 1.0)};
    sp.assigned = {hit(314.5, 30.0, {21, 32, 1, 2, 0, 0, 0, 0, 0, 0, 0, 0}, s)};
    sp.assigned[0].error = -1.5;
    EXPECT_EQ(mass_error_csv(sp), "Mass to charge, ppm error\n300.123457, 0.250000\n314.500000, -1.500000\n");
    EXPECT_EQ(sn_error_csv(sp), "Signal to noise, ppm error\n5.000000, 0.250000\n3.000000, -1.500000\n");
    // No hits at all: header-only tables.
    Spectrum none;
    none.unassigned = {no_hit(200.0, 3.0)};
    PetroSummary p;
    RecordingUi ui;
    ASSERT_EQ(ProcessPetro(none, s, true, p, ui), 0);
    EXPECT_EQ(classes_csv(p), "class,abundance,percent,peaks\n");
    EXPECT_EQ(dbe_csv(p), "class,dbe,abundance,percent\n");
    EXPECT_EQ(carbon_csv(p), "class,carbons,dbe,abundance,percent\n");
    EXPECT_EQ(mass_error_csv(none), "Mass to charge, ppm error\n");
    // A class text past 70 characters is refused.
    none.unassigned[0].hit_code = 1;
    none.unassigned[0].class_text = "," + std::string(75, 'N');
    EXPECT_EQ(ProcessPetro(none, s, true, p, ui), -1);
    ASSERT_FALSE(ui.messages.empty());
    EXPECT_NE(ui.messages.back().text.find("at most 70"), std::string::npos);
}

TEST(PetroClasses, ParseClassAndTheBodyFilter) {
    struct Parse {
        const char* text;
        int rc, n, o, s, v, ni;
    };
    const Parse parses[] = {
        {"Ni1 N4", 0, 4, 0, 0, 0, 1},  {"V1 N4 O1", 0, 4, 1, 0, 1, 0}, {"N1 O2 S1", 0, 1, 2, 1, 0, 0},
        {"HC", 0, 0, 0, 0, 0, 0},      {"O2 34S1", 0, 0, 2, 0, 0, 0},  {"HC13C1", 0, 0, 0, 0, 0, 0},
        {"N O2", -1, 0, 0, 0, 0, 0},   {"Ni N4", -5, 0, 0, 0, 0, 0},   {"N1O12", 0, 1, 12, 0, 0, 0},
    };
    for (const Parse& p : parses) {
        int n = -9, o = -9, s = -9, v = -9, ni = -9;
        EXPECT_EQ(ParseClass(p.text, &n, &o, &s, &v, &ni), p.rc) << p.text;
        if (p.rc != 0) continue;
        EXPECT_EQ(n, p.n) << p.text;
        EXPECT_EQ(o, p.o) << p.text;
        EXPECT_EQ(s, p.s) << p.text;
        EXPECT_EQ(v, p.v) << p.text;
        EXPECT_EQ(ni, p.ni) << p.text;
    }
    BodyFilter f;  // N0-2, O0-6
    BodyFilter metals = f;
    metals.vanadium = metals.nickel = true;
    struct Use {
        const char* text;
        const BodyFilter* filter;
        int rc;
    };
    const Use uses[] = {
        {nullptr, &f, -8},
        {"HC", &f, 1},
        {"N1 O2", &f, 1},
        {"V1 N4 O4", &f, -16},
        {"Ni1 N4", &f, -17},
        {"V2 N4 O4", &metals, -10},
        {"V1 N3 O4", &metals, -11},
        {"V1 N4 O1", &metals, -12},  // the vanadyl porphyrin's single O is refused: the rule wants 4
        {"V1 N4 O4", &metals, 1},
        {"V1 N7 O4", &metals, 1},    // N at limit + 4 + 1: the slack
        {"V1 N7 O11", &metals, -12}, // O just over too: the slack is spent
        {"Ni2 N4", &metals, -14},
        {"Ni1 N3", &metals, -15},
        {"Ni1 N7", &metals, -15},    // no slack for nickel
        {"Ni1 N4", &metals, 1},
        {"N3 O2", &f, 1},            // one over: the slack
        {"N4 O2", &f, -2},
        {"N3 O7", &f, -3},           // both just over: one slack only
        {"N2 O7", &f, 1},
        {"O8", &f, -3},
        {"N O2", &f, -1},
    };
    for (const Use& u : uses) EXPECT_EQ(UseBodyFilter(u.text, *u.filter), u.rc) << (u.text ? u.text : "null");
    // Minima raised by the class; maxima above 0 let their minima into the word.
    BodyFilter g;
    g.s_max = 1;
    EXPECT_EQ(BodyFilterSetup("N1 O3 S1", g), 1 | (3 << 7) | (1 << 14));
    BodyFilter h;  // S max 0: S's minimum stays out
    EXPECT_EQ(BodyFilterSetup("N2 O1 S1", h), 2 | (1 << 7));
    RecordingUi ui;
    BodyFilter parsed;
    EXPECT_EQ(parse_body_filter("N0-1,O2-5,S1", parsed, ui), 0);
    EXPECT_EQ(parsed.n_max, 1);
    EXPECT_EQ(parsed.o_min, 2);
    EXPECT_EQ(parsed.s_min, 1);
    EXPECT_EQ(parsed.s_max, 1);
    EXPECT_EQ(parse_body_filter("X0-2", parsed, ui), -1);
    EXPECT_EQ(parse_body_filter("N3-1", parsed, ui), -1);
}

}  // namespace
}  // namespace vx

#include "support/cli.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

TEST(IsotopesCli, PatternRulesClassesAndRefusals) {
    test::TempDir dir;
    const std::string home = dir.file("home");
    auto r = test::run_cli(home, "isotopes C35H60O6 --json --fine --threshold 1e-5");
    ASSERT_EQ(r.status, 0) << r.err;
    for (const char* key : {"\"peaks\"", "\"offset\"", "\"mass\"", "\"abundance\"", "\"relative\"", "\"low_mass\"",
                            "\"high_mass\"", "\"members\"", "\"isotopologues\"", "\"counts\"", "\"13C\": 1"})
        EXPECT_NE(r.out.find(key), std::string::npos) << key;
    // Bad inputs: a clear message and a non-zero exit, nothing written.
    const std::pair<std::string, std::string> bad[] = {
        {"isotopes C6H6Qq", "Qq is not an element"},
        {"isotopes C6H6Sn", "at most 5"},
        {"isotopes C6H6 --threshold 0", "threshold must lie above 0"},
        {"isotopes C6H6 --threshold 2", "threshold must lie above 0"},
#ifdef VANTORIX_CLI_HAS_PLOTS
        {"isotopes C6H6 --plot " + dir.file("p.txt"), "writes .png or .svg"},
        {"isotopes C6H6 --plot " + dir.file("none/p.png"), "cannot be written"},
        {"classes x.csv -o " + dir.file("o") + " --plots gif", "png, svg or png,svg"},
#else
        {"isotopes C6H6 --plot " + dir.file("p.png"), "Qt plotting library"},
#endif
        {"isotopes", "either a FORMULA or --rules"},
    };
    for (const auto& [args, words] : bad) {
        auto b = test::run_cli(home, args);
        EXPECT_NE(b.status, 0) << args;
        EXPECT_NE(b.err.find(words), std::string::npos) << args << ": " << b.err;
    }
    EXPECT_FALSE(std::filesystem::exists(dir.file("p.png")));
    EXPECT_FALSE(std::filesystem::exists(dir.file("p.txt")));

    // A simulated sample with its isotopologues: classes, rules and the flags.
    const std::string list = dir.file("list.csv");
    ASSERT_EQ(test::run_cli(home, "simulate-formulas --count 300 --seed 9 --isotopologues 3000 -o " + list).status, 0);
    r = test::run_cli(home, "classes " + list + " -o " + dir.file("out") + " --json");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("\"classes\""), std::string::npos);
    for (const char* f : {"classes.csv", "dbe.csv", "carbon.csv", "processed.csv", "peaks.csv", "mass_error.csv", "sn_error.csv"})
        EXPECT_TRUE(std::filesystem::exists(dir.file(std::string("out/") + f))) << f;
    const std::string peaks = test::read_file(dir.file("out/peaks.csv"));
    EXPECT_NE(peaks.find(",True,"), std::string::npos);
    EXPECT_EQ(test::read_file(dir.file("out/mass_error.csv")).rfind("Mass to charge, ppm error\n", 0), 0u);
    // No 13C class stands on its own: they are folded.
    EXPECT_EQ(test::read_file(dir.file("out/classes.csv")).find("13C"), std::string::npos);

    r = test::run_cli(home, "classes " + list + " -o " + dir.file("out2") + " --plots png,svg --json");
#ifdef VANTORIX_CLI_HAS_PLOTS
    // Plots beside the tables, drawn offscreen: PNG files by their signature,
    // SVG files holding the titles and axis labels.
    ASSERT_EQ(r.status, 0) << r.err;
    const auto listed = r.out.find("\"plots\"");
    ASSERT_NE(listed, std::string::npos) << r.out;
    EXPECT_NE(r.out.find("\"dbe_carbon_", listed), std::string::npos);
    EXPECT_NE(r.out.find("\"kendrick.svg\"", listed), std::string::npos);
    for (const char* stem : {"classes", "van_krevelen", "kendrick", "mass_error", "sn_error", "error_histogram"}) {
        const std::string png = test::read_file(dir.file(std::string("out2/") + stem + ".png"));
        EXPECT_EQ(png.substr(0, 8), std::string("\x89PNG\r\n\x1a\n", 8)) << stem;
        EXPECT_GT(png.size(), 2000u) << stem;
        const std::string svg = test::read_file(dir.file(std::string("out2/") + stem + ".svg"));
        EXPECT_NE(svg.find("<svg"), std::string::npos) << stem;
        EXPECT_NE(svg.find("</svg>"), std::string::npos) << stem;
    }
    EXPECT_NE(test::read_file(dir.file("out2/mass_error.svg")).find("Mass to Charge Ratio vs.PPM Error"), std::string::npos);
    EXPECT_NE(test::read_file(dir.file("out2/sn_error.svg")).find("Signal to Noise vs.PPM Error"), std::string::npos);
    EXPECT_NE(test::read_file(dir.file("out2/error_histogram.svg")).find("PPM Error vs. Counts per Bin"), std::string::npos);
    EXPECT_NE(test::read_file(dir.file("out2/van_krevelen.svg")).find("H/C"), std::string::npos);
    r = test::run_cli(home, "isotopes C35H60O6 --plot " + dir.file("pattern.svg"));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(test::read_file(dir.file("pattern.svg")).find("<title>C35H60O6</title>"), std::string::npos);
#else
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("Qt plotting library"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(dir.file("out2/classes.csv")));
#endif
    // A file where the folder should be.
    test::write_file(dir.file("blocked"), "x");
    r = test::run_cli(home, "classes " + list + " -o " + dir.file("blocked"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("cannot be made"), std::string::npos) << r.err;

    r = test::run_cli(home, "isotopes --rules " + list + " --json --csv " + dir.file("flags.csv"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("\"2x13C\""), std::string::npos);
    EXPECT_NE(test::read_file(dir.file("flags.csv")).find(",99,"), std::string::npos);

    r = test::run_cli(home, "assign " + list + " --topdown --isotope-table " + dir.file("iso.csv") + " -o " + dir.file("a.csv"));
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string a = test::read_file(dir.file("a.csv"));
    EXPECT_NE(a.find("[13C]"), std::string::npos);
    EXPECT_NE(test::read_file(dir.file("iso.csv")).find("flag_13C"), std::string::npos);
}

}  // namespace
}  // namespace vx
