// The preference traffic of the Formula Calculator panels and the charge-mode
// buttons with their polarity question.
#include <gtest/gtest.h>

#include "composition/formula_preferences.hpp"
#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

namespace vx {
namespace {

TEST(FormulaPreferences, KeysInSavedOrderWithFactoryValues) {
    const Settings st;
    const auto e = formula_preference_entries(st);
    ASSERT_EQ(e.size(), 34u);
    const std::pair<std::string, std::string> page1[] = {
        {"CARBONMAX1", "-1"}, {"HYDROGENMAX1", "-1"}, {"NITROGENMAX1", "1"}, {"OXYGENMAX1", "30"},
        {"SULFURMAX1", "1"},  {"PHOSPHOROUSMAX1", "0"}, {"USER1MAX1", "1"},  {"USER2MAX1", "1"},
        {"USER3MAX1", "0"},   {"USER4MAX1", "0"},      {"USER5MAX1", "0"},  {"USER6MAX1", "0"},
        {"ALLOWRADS1", "1"},  {"MASSACCURACY1", "10.000000"}, {"POSMODE1", "0"}, {"NEGMODE1", "1"}, {"NEUMODE1", "0"}};
    for (std::size_t i = 0; i < 17; ++i) EXPECT_EQ(e[i], page1[i]) << i;
    EXPECT_EQ(e[17].first, "CARBONMAX2");
    EXPECT_EQ(e[33].first, "NEUMODE2");
}

TEST(FormulaPreferences, KeysReadBackAsTheFileGivesThem) {
    Settings st;
    struct Case {
        const char* key;
        const char* value;
        bool taken;
    };
    // The default file writes "SULFURMAX2= 1" with a blank; a malformed value
    // is read as far as it goes; other keys are not ours.
    const Case cases[] = {{"SULFURMAX2", " 3", true},   {"USER4MAX1", "7", true},   {"MASSACCURACY2", "0.75ppm", true},
                          {"NEGMODE1", "0", true},      {"POSMODE1", "1", true},    {"USER7MAX1", "1", false},
                          {"CARBONMAX", "5", false},    {"CARBONMAX3", "5", false}, {"PEAKMZ", "5", false}};
    for (const Case& c : cases) EXPECT_EQ(set_formula_preference(st, c.key, c.value), c.taken) << c.key;
    EXPECT_EQ(st.formula_prefs[1].SULFURMAX, 3);
    EXPECT_EQ(st.formula_prefs[0].USERMAX[3], 7);
    EXPECT_DOUBLE_EQ(st.formula_prefs[1].MASSACCURACY, 0.75);
    // Round trip through the entries.
    Settings back;
    for (const auto& [k, v] : formula_preference_entries(st)) ASSERT_TRUE(set_formula_preference(back, k, v)) << k;
    EXPECT_EQ(formula_preference_entries(back), formula_preference_entries(st));
}

TEST(FormulaPreferences, PanelToPageAndBack) {
    Settings prefs;
    FormulaSettings panel = molecaluno_defaults();
    panel.C_MAX = 60;
    panel.O_MAX = 12;
    panel.user[2].max = 4;
    panel.RADICALS = false;
    panel.MASS_ACCURACY = 0.8;
    panel.mode = ChargeMode::POS;
    EXPECT_EQ(SetElementsPreferences(nullptr, Calculator::MOLECALUNO, prefs), -9);
    ASSERT_EQ(SetElementsPreferences(&panel, Calculator::MOLECALUNO, prefs), 0);
    const FormulaPreferences& p = prefs.formula_prefs[1];
    EXPECT_EQ(p.CARBONMAX, 60);
    EXPECT_EQ(p.USERMAX[2], 4);
    EXPECT_EQ(p.ALLOWRADS, 0);
    EXPECT_EQ(p.POSMODE, 1);
    EXPECT_EQ(p.NEGMODE, 0);
    // The other page is untouched, and only the page's fields travel.
    EXPECT_EQ(prefs.formula_prefs[0].CARBONMAX, -1);
    FormulaSettings fresh = molecaluno_defaults();
    fresh.C_MIN = 5;
    UseElementsPreferences(fresh, Calculator::MOLECALUNO, prefs);
    EXPECT_EQ(fresh.C_MAX, 60);
    EXPECT_EQ(fresh.O_MAX, 12);
    EXPECT_EQ(fresh.user[2].max, 4);
    EXPECT_FALSE(fresh.RADICALS);
    EXPECT_DOUBLE_EQ(fresh.MASS_ACCURACY, 0.8);
    EXPECT_EQ(fresh.mode, ChargeMode::POS);
    EXPECT_EQ(fresh.C_MIN, 5);
    // Both pages into whichever panels are open.
    EXPECT_EQ(SetElementsPreferences2(nullptr, nullptr, prefs), -11);
    FormulaSettings multi = molecal_defaults();
    ASSERT_EQ(SetElementsPreferences2(&multi, nullptr, prefs), 0);
    EXPECT_EQ(multi.C_MAX, -1);
    EXPECT_EQ(multi.mode, ChargeMode::NEG);  // factory page: negative mode
}

TEST(FormulaPreferences, ModeClicksAndThePolarityQuestion) {
    struct Case {
        ChargeMode clicked;
        double aterm;
        bool answer;
        bool asked;
        bool flipped;
    };
    const Case cases[] = {
        {ChargeMode::NEG, 4.75e7, true, true, true},    {ChargeMode::NEG, 4.75e7, false, true, false},
        {ChargeMode::POS, -4.75e7, true, true, true},   {ChargeMode::POS, 4.75e7, true, false, false},
        {ChargeMode::NEG, -4.75e7, true, false, false}, {ChargeMode::NEU, 4.75e7, true, false, false},
        {ChargeMode::NEG, 0.0, true, false, false},     {ChargeMode::POS, 0.0, true, false, false},
    };
    for (const Case& c : cases) {
        RecordingUi ui;
        ui.confirms.push_back(c.answer);
        Spectrum s;
        s.Aterm = c.aterm;
        FormulaSettings panel = molecal_defaults();
        FormulaPreferences page;
        EXPECT_EQ(set_charge(c.clicked, panel, &page, &s, ui), c.flipped ? 1 : 0);
        EXPECT_EQ(panel.mode, c.clicked);
        EXPECT_EQ(page.POSMODE + page.NEGMODE + page.NEUMODE, 1);
        EXPECT_EQ(page.POSMODE, c.clicked == ChargeMode::POS ? 1 : 0);
        EXPECT_EQ(ui.messages.size(), c.asked ? 1u : 0u);
        if (c.asked) {
            EXPECT_EQ(ui.messages[0].title, "Possible Request to Change Vantorix File Polarity");
        }
        EXPECT_DOUBLE_EQ(s.Aterm, c.flipped ? -c.aterm : c.aterm);
    }
    // The question's words, run together as they always were.
    RecordingUi ui;
    ui.confirms.push_back(false);
    Spectrum s;
    s.Aterm = 1.0;
    FormulaSettings panel = molecaluno_defaults();
    set_charge(ChargeMode::NEG, panel, nullptr, &s, ui);
    ASSERT_EQ(ui.messages.size(), 1u);
    EXPECT_EQ(ui.messages[0].text,
              "Vantorix believes that this file was collected positive ion mode,but you are calibratingfor negative ion "
              "mode. Do you want to change Vantorix file to NEGATIVE ion mode?");
}

TEST(FormulaPreferences, FlippingTheTermLeavesTheMassAxis) {
    // A yes flips the sign of the A term as the question says. With the
    // two-term law that throws the data set's m/z off its ions entirely: the
    // effect is shown here, not hidden.
    Spectrum s;
    s.domain = DOMAIN_FREQUENCY;
    s.caltype = CALTYPE_TWO_TERM;
    s.Trapvoltage = 1.0;
    auto mass_at = [&](double f) {
        double in[1] = {f}, out[1] = {0.0};
        Freq_tomass(s, in, out);
        return out[0];
    };
    const double f = 95002.4;
    EXPECT_NEAR(mass_at(f), 500.0, 0.01);
    RecordingUi ui;
    ui.confirms.push_back(true);
    FormulaSettings panel = molecaluno_defaults();
    ASSERT_EQ(set_charge(ChargeMode::NEG, panel, nullptr, &s, ui), 1);
    const double after = mass_at(f);
    EXPECT_TRUE(after == 100000.0 || after < 0.0) << after;
}

TEST(FormulaPreferences, OpeningModeFollowsTheDataSet) {
    Spectrum pos, neg, zero;
    pos.Aterm = 4.75e7;
    neg.Aterm = -4.75e7;
    zero.Aterm = 0.0;
    EXPECT_EQ(opening_mode(&pos), ChargeMode::POS);
    EXPECT_EQ(opening_mode(&neg), ChargeMode::NEG);
    EXPECT_EQ(opening_mode(&zero), ChargeMode::NEG);
    EXPECT_EQ(opening_mode(nullptr), ChargeMode::NEG);
    // formulacal: the page applies, then the mode follows the file and is
    // written back; batchformulacal applies no page.
    Settings prefs;
    prefs.formula_prefs[1].OXYGENMAX = 9;
    prefs.formula_prefs[0].OXYGENMAX = 7;
    const FormulaSettings single = formulacal_open(prefs, &pos);
    EXPECT_EQ(single.O_MAX, 9);
    EXPECT_EQ(single.mode, ChargeMode::POS);
    EXPECT_EQ(prefs.formula_prefs[1].POSMODE, 1);
    EXPECT_EQ(prefs.formula_prefs[1].NEGMODE, 0);
    const FormulaSettings multi = batchformulacal_open(&pos);
    EXPECT_EQ(multi.O_MAX, 30);
    EXPECT_EQ(multi.mode, ChargeMode::POS);
    EXPECT_DOUBLE_EQ(multi.user[0].mass, 13.003354838);
}

}  // namespace
}  // namespace vx
