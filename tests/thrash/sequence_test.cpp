#include <gtest/gtest.h>

#include "platform/ui.hpp"
#include "support/files.hpp"
#include "thrash/sequence.hpp"

namespace vx {
namespace {

TEST(Sequence, PeptideFragmentsByHand) {
    RecordingUi ui;
    SequenceTables t;
    ASSERT_EQ(seqOK("GASPK", t, ui), 0);
    const double G = 57.02146, A = 71.03711, S = 87.03203, P = 97.05276, K = 128.09496;
    EXPECT_NEAR(t.protein_mass, G + A + S + P + K + 18.0102, 1e-9);
    const double b[] = {G, G + A, G + A + S, G + A + S + P, G + A + S + P + K};
    for (int k = 0; k < 5; ++k) EXPECT_NEAR(t.b[k], b[k], 1e-9) << k;
    // y of k + 1 residues from the C end: K, PK, SPK, ASPK, GASPK, each with water.
    const double y[] = {K, P + K, S + P + K, A + S + P + K, G + A + S + P + K};
    for (int k = 0; k < 5; ++k) EXPECT_NEAR(t.y[k], y[k] + 18.0102, 1e-9) << k;
    EXPECT_NEAR(t.a[0], G - 26.98709, 1e-9);
    EXPECT_NEAR(t.a[1], G + A - 27.99491, 1e-9);
    // c stands only before the proline: GAS|P keeps c3; the rest are cleared.
    EXPECT_NEAR(t.c[2], G + A + S + 17.02655, 1e-9);
    EXPECT_EQ(t.c[0], 0.0);
    EXPECT_EQ(t.c[1], 0.0);
    EXPECT_EQ(t.c[3], 0.0);
    // z: the entry before a position whose c entry stands is cleared.
    EXPECT_EQ(t.z[1], 0.0);
    EXPECT_NEAR(t.z[0], t.y[0] - 16.01872, 1e-9);
}

TEST(Sequence, ModificationsAddToTheResidueBeforeThem) {
    RecordingUi ui;
    SequenceTables t;
    ASSERT_EQ(seqOK("GS79.96633K", t, ui), 0);
    EXPECT_EQ(t.residues, "GSK");
    EXPECT_NEAR(t.b[1], 57.02146 + 87.03203 + 79.96633, 1e-9);
}

TEST(Sequence, BadLettersAndLineEndsAreRefused) {
    for (const std::string bad : {"GASB", "GAS\nPK", "GASPK\r", "gas"}) {
        RecordingUi ui;
        SequenceTables t;
        EXPECT_EQ(seqOK(bad, t, ui), -1);
        EXPECT_TRUE(ui.saw("Error creating fragment table from Sequence",
                           "Please check sequence and reload.\nMake sure there are no extra characters not even "
                           "carriage return."));
        EXPECT_TRUE(t.residues.empty());
    }
    RecordingUi ui;
    SequenceTables t;
    EXPECT_EQ(seqOK("", t, ui), 0);
    EXPECT_TRUE(t.b.empty());
}

TEST(Sequence, DigestGivesAllContiguousCombinations) {
    RecordingUi ui;
    for (const auto& [type, seq, pieces] : std::vector<std::tuple<int, std::string, int>>{
             {6, "AKGRSK", 3}, {3, "AKGRSK", 2}, {4, "ADGDS", 3}, {8, "ACDE", 4}, {7, "GGG", 1}}) {
        SequenceTables t;
        t.match_type = type;
        ASSERT_EQ(seqOK(seq, t, ui), 0);
        choose_seq(t, ui);
        ASSERT_EQ(static_cast<int>(t.pieces.size()), pieces) << type << seq;
        EXPECT_EQ(static_cast<int>(t.combinations.size()), pieces * (pieces + 1) / 2) << type << seq;
    }
    SequenceTables t;
    t.match_type = 6;
    ASSERT_EQ(seqOK("AKGR", t, ui), 0);
    choose_seq(t, ui);
    ASSERT_EQ(t.combinations.size(), 3u);
    EXPECT_NEAR(t.combinations[0].mass, 1.007825 + 71.03711 + 128.09496 + 1.007825 + 15.99491, 1e-9);
}

TEST(Sequence, AssignmentsWithinToleranceAndTheirTexts) {
    RecordingUi ui;
    SequenceTables t;
    t.tolerance = 0.01;
    ASSERT_EQ(seqOK("GASPK", t, ui), 0);
    std::vector<SequenceAssignment> found;
    // A b3 ion at charge 1: m/z = mass + 1.00727.
    const double b3 = 57.02146 + 71.03711 + 87.03203;
    assign_thrash(t, b3 + 1.00727, 1, 1.0, found);
    ASSERT_FALSE(found.empty());
    EXPECT_EQ(found[0].kind, KIND_B);
    EXPECT_EQ(assignment_text(t, found[0]), "b3");
    // c3 has the same b3 + 17.02655 as b3 + NH3 gain: two assignments, one cluster.
    assign_thrash(t, b3 + 17.02655 + 1.00727, 1, 1.0, found);
    ASSERT_GE(found.size(), 1u);
    bool c3 = false;
    for (const auto& a : found) c3 |= a.kind == KIND_C && assignment_text(t, a) == "c3";
    EXPECT_TRUE(c3);
    // Molecular ion and its losses.
    assign_thrash(t, (t.protein_mass - 18.0106 + 2 * 1.00727) / 2, 2, 1.0, found);
    ASSERT_FALSE(found.empty());
    EXPECT_EQ(assignment_text(t, found[0]), "Mol. Ion  - H2O");
    // Relative tolerance: a fraction of the mass.
    t.relative = true;
    t.tolerance = 1e-6;
    assign_thrash(t, b3 + 0.001 + 1.00727, 1, 1.0, found);
    EXPECT_TRUE(found.empty());
    // No S, T or Y: no phosphate count.
    SequenceTables q;
    q.phosphorylation = true;
    q.tolerance = 0.01;
    ASSERT_EQ(seqOK("GGKA", q, ui), 0);
    assign_thrash(q, q.protein_mass + 79.96633 + 1.00727, 1, 1.0, found);
    EXPECT_TRUE(found.empty());
}

TEST(Sequence, FileLoadsWithNameCountAndLetters) {
    test::TempDir dir;
    RecordingUi ui;
    SequenceTables t;
    ASSERT_EQ(load_sequence_file(dir.write("ubq.txt", "UBQ 5\nGASPK\n"), t, ui), 0);
    EXPECT_TRUE(ui.saw("Fragment List Created", "Sequence UBQ Successfully Loaded."));
    EXPECT_NE(ui.console.find("Protein Mass = "), std::string::npos);
    RecordingUi ui2;
    EXPECT_EQ(load_sequence_file(dir.write("crlf.txt", "UBQ 5\r\nGASPK\r\n"), t, ui2), -1);
    EXPECT_EQ(ui2.messages.size(), 1u);
}

}  // namespace
}  // namespace vx
