#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "composition/elements.hpp"
#include "composition/formula.hpp"

namespace vx {
namespace {

// Exact masses from the published atomic mass evaluation (u), typed in here
// from the tables, not from our source.
TEST(ElementTable, PublishedMassesOfTheElementsThatMatter) {
    struct Ref {
        const char* name;
        double mass;
    };
    const Ref refs[] = {
        {"C", 12.0},           {"H", 1.00782503223},   {"N", 14.00307400443}, {"O", 15.99491461957},
        {"S", 31.9720711744},  {"P", 30.97376199842},  {"Na", 22.9897692820}, {"K", 38.9637064864},
        {"Cl", 34.968852682},  {"13C", 13.00335483507}, {"34S", 33.967867004}, {"2H", 2.01410177812},
        {"37Cl", 36.965902602}, {"15N", 15.00010889888}, {"18O", 17.99915961286},
    };
    for (const Ref& r : refs) {
        const auto e = find_element_or_isotope(r.name);
        ASSERT_TRUE(e) << r.name;
        EXPECT_NEAR(e->mass, r.mass, 1e-9) << r.name;
    }
    EXPECT_NEAR(first_isotope_mass(SLOT_H), 1.00782503223, 1e-12);
    // CH2 comes from the table, not from the literal used along a series.
    EXPECT_NEAR(CalculateMassCH2(), 14.01565006446, 1e-10);
    EXPECT_NE(CalculateMassCH2(), CH2_LITERAL);
}

TEST(ElementTable, ShapeOrderAndAbundances) {
    const auto& t = element_table();
    ASSERT_EQ(t.size(), 84u);
    EXPECT_EQ(LoadElementValues(), 0);
    const std::pair<int, const char*> slots[] = {{SLOT_C, "C"}, {SLOT_H, "H"}, {SLOT_N, "N"}, {SLOT_O, "O"},
                                                 {SLOT_P, "P"}, {SLOT_S, "S"}, {0, "Ag"},     {83, "Zr"}};
    for (auto [slot, sym] : slots) EXPECT_STREQ(t[static_cast<std::size_t>(slot)].symbol, sym);
    for (std::size_t i = 0; i < t.size(); ++i) {
        if (i > 0) {
            EXPECT_LT(std::strcmp(t[i - 1].symbol, t[i].symbol), 0) << "alphabetical at " << t[i].symbol;
        }
        double sum = 0.0;
        for (int k = 0; k < t[i].isotope_count; ++k) {
            sum += t[i].isotopes[k].abundance;
            if (k > 0) {
                EXPECT_GT(t[i].isotopes[k].mass, t[i].isotopes[k - 1].mass) << t[i].isotopes[k].label;
            }
            // Label "13C": mass number then the element's symbol; nominal mass
            // within half a dalton of the exact one.
            const std::string label = t[i].isotopes[k].label;
            const int number = std::stoi(label);
            EXPECT_EQ(label.substr(label.find_first_not_of("0123456789")), t[i].symbol);
            EXPECT_NEAR(t[i].isotopes[k].mass, number, 0.5) << label;
        }
        EXPECT_NEAR(sum, 1.0, 2e-3) << t[i].symbol;
    }
}

TEST(ElementTable, MassOffsetsCountGapsAndTheThreeExceptions) {
    auto offset = [](const char* label) {
        for (const ElementEntry& e : element_table())
            for (int k = 0; k < e.isotope_count; ++k)
                if (std::string(label) == e.isotopes[k].label) return e.isotopes[k].mass_offset;
        return -99;
    };
    EXPECT_EQ(offset("32S"), 0);
    EXPECT_EQ(offset("36S"), 4);  // 35S does not exist in nature but counts
    EXPECT_EQ(offset("232Th"), 2);
    EXPECT_EQ(offset("234U"), 1);
    EXPECT_EQ(offset("235U"), 2);
    EXPECT_EQ(offset("238U"), 5);
    EXPECT_EQ(offset("13C"), 1);
}

TEST(ElementTable, LookupOfSymbolsAndIsotopes) {
    EXPECT_FALSE(find_element_or_isotope("Xx"));
    EXPECT_FALSE(find_element_or_isotope("14C"));  // not a natural isotope of the table
    EXPECT_FALSE(find_element_or_isotope(""));
    const auto k = find_element_or_isotope("K");
    ASSERT_TRUE(k);
    EXPECT_FALSE(k->isotope);
    EXPECT_EQ(k->valence, 1);
    // An element is taken at its most abundant isotope, not its lightest.
    const auto fe = find_element_or_isotope("Fe");
    ASSERT_TRUE(fe);
    EXPECT_NEAR(fe->mass, 55.93493633, 1e-8);
    const auto c13 = find_element_or_isotope("13C");
    ASSERT_TRUE(c13);
    EXPECT_TRUE(c13->isotope);
    EXPECT_EQ(c13->valence, 4);
    const auto c12 = find_element_or_isotope("12C");
    ASSERT_TRUE(c12);
    EXPECT_FALSE(c12->isotope);
}

TEST(ChargeModes, ElectronAndDbeTerms) {
    EXPECT_DOUBLE_EQ(charge_electron_term(ChargeMode::POS), -0.00054858);
    EXPECT_DOUBLE_EQ(charge_electron_term(ChargeMode::NEG), 0.00054858);
    EXPECT_DOUBLE_EQ(charge_electron_term(ChargeMode::NEU), 0.0);
    EXPECT_DOUBLE_EQ(charge_dbe_offset(ChargeMode::POS), 0.5);
    EXPECT_DOUBLE_EQ(charge_dbe_offset(ChargeMode::NEG), -0.5);
    EXPECT_DOUBLE_EQ(charge_dbe_offset(ChargeMode::NEU), 0.0);
    EXPECT_EQ(parse_charge_mode("NEG"), ChargeMode::NEG);
    EXPECT_EQ(parse_charge_mode("positive"), ChargeMode::POS);
    EXPECT_FALSE(parse_charge_mode("both"));
}

TEST(TheoreticalMass, ElectronByModeAndTheNeutralAsymmetry) {
    // C10H9O4 by hand: 120 + 9 x 1.00782503223 + 4 x 15.99491461957.
    const double atoms = 120.0 + 9.07042529007 + 63.97965847828;
    HitRecord h;
    h.hit_code = 1;
    h.counts = {10, 9, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0};
    h.mass = 193.0506;
    const UserMasses none{};
    EXPECT_NEAR(CalculateTheorMass(h, 0, none), atoms + 0.00054858, 1e-9);
    EXPECT_NEAR(h.theoretical_mass, atoms + 0.00054858, 1e-9);
    EXPECT_NEAR(h.error, (193.0506 - h.theoretical_mass) / h.theoretical_mass * 1e6, 1e-9);
    EXPECT_NEAR(CalculateTheorMass(h, 1, none), atoms - 0.00054858, 1e-9);
    // A user slot adds count x its panel mass.
    h.counts[6] = 1;
    UserMasses um{};
    um[0] = 13.00335483507;
    EXPECT_NEAR(CalculateTheorMass(h, 1, um), atoms + 13.00335483507 - 0.00054858, 1e-9);
    // No hit: nothing computed, nothing stored.
    HitRecord none_hit;
    none_hit.mass = 300.0;
    EXPECT_EQ(CalculateTheorMass(none_hit, 1, none), -1.0);
    EXPECT_EQ(none_hit.theoretical_mass, -1.0);
    EXPECT_EQ(none_hit.error, 1000.0);
}

TEST(HillFormula, OrderIsotopesAndSkippedSlots) {
    struct Case {
        ElementCounts c;
        std::array<std::string, 6> names;
        std::string want;
    };
    const std::array<std::string, 6> iso = {"13C", "34S", "??", "??", "??", "??"};
    const std::array<std::string, 6> na = {"Na", "Cl", "", "??", "??", "??"};
    const Case cases[] = {
        {{20, 32, 0, 4, 1, 0}, iso, "C20H32O4S"},
        {{19, 32, 0, 4, 1, 0, 1, 0}, iso, "C19[13C]H32O4S"},
        {{20, 32, 0, 4, 0, 0, 0, 1}, iso, "C20H32O4[34S]"},
        {{6, 12, 0, 6, 0, 0, 1, 1, 5}, na, "C6H12ClNaO6"},  // alphabetical after C and H; unnamed slot left out
        {{1, 4, 0, 0, 0, 0}, iso, "CH4"},
        {{0, 2, 0, 1, 0, 0}, iso, "H2O"},  // no carbon: everything alphabetical
        {{0, 0, 0, 0, 0, 0}, iso, ""},
    };
    for (const Case& c : cases) EXPECT_EQ(hill_formula(c.c, c.names), c.want);
}

}  // namespace
}  // namespace vx
