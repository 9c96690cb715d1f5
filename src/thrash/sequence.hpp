// Sequence matching of THRASH clusters: the fragment tables (a, b, c, y, z) or
// the digest pieces of a protein sequence, and the comparison of each
// reported monoisotopic mass with them.
#pragma once

#include <string>
#include <vector>

namespace vx {

class Ui;

enum AssignmentKind {
    KIND_B = 0, KIND_C = 1, KIND_Y = 2, KIND_Z = 3, KIND_INTERNAL = 4, KIND_INTERNAL2 = 5, KIND_DIGEST = 6,
    KIND_MOLECULAR_ION = 7, KIND_NONE = 8, KIND_A = 9
};

inline constexpr int MAX_ASSIGNMENTS = 40;
inline constexpr std::size_t MAX_DIGEST_PIECES = 2000;
inline constexpr double PHOSPHATE = 79.96633;
inline constexpr double LOSS_H2O = 18.0106;
inline constexpr double LOSS_NH3 = 17.0265;

struct SequenceAssignment {
    int kind = KIND_NONE;
    bool minus_h2o = false, minus_nh3 = false;
    double theoretical = 0.0;
    double error = 0.0;  // measured - theoretical, Da
    double measured = 0.0;
    int first = 0, last = 0;  // residue numbers from 1
    int phosphates = 0;
};

struct DigestPiece {
    double mass = 0.0;  // residue sum
    int first = 0, last = 0;  // residue indices from 0
};

struct SequenceTables {
    std::string name;
    std::string residues;  // the letters, modifications taken out
    std::vector<std::pair<int, double>> modifications;  // (residue index, mass added)
    int match_type = 1;    // 1 fragments (9 is taken as 1), 3 to 8 digests
    double n_term = 0.0;   // 0, 27.99492 or 42.01057
    double c_term = 18.0102;  // 18.0102 or 16.01872
    double tolerance = 10.0;
    bool relative = false;    // tolerance x mass
    double error_factor = 1.0;
    bool phosphorylation = false;
    double protein_mass = 0.0;
    std::vector<double> a, b, c, y, z;  // by cleavage position (k + 1 residues)
    std::vector<DigestPiece> pieces;
    std::vector<DigestPiece> combinations;  // mass with the end groups: 1.007825 + sum + 1.007825 + 15.99491
};

// Monoisotopic residue mass of a letter; 0 for a letter that is no residue.
double residue_mass(char letter);

// Builds the tables from the letters of a sequence (numbers between letters
// are modifications of the residue before them). A bad letter (a line end
// too) shows "Error creating fragment table from Sequence" and returns -1.
int seqOK(const std::string& sequence, SequenceTables& t, Ui& ui);
// The digest pieces and their n (n + 1) / 2 contiguous combinations.
int choose_seq(SequenceTables& t, Ui& ui);
// A sequence file: name, residue count, then the letters. Loads and builds;
// shows "Fragment List Created" on success.
int load_sequence_file(const std::string& path, SequenceTables& t, Ui& ui);

// Compares the neutral mass of (mono_mz, charge) with the tables; aterm gives
// the polarity. At most 40 assignments, in the order of the tests.
void assign_thrash(const SequenceTables& t, double mono_mz, int charge, double aterm,
                   std::vector<SequenceAssignment>& found);

// The table text of an assignment ("b12 - H2O", "Mol. Ion ", ...), without the
// "Assignment: " of the panel lines.
std::string assignment_text(const SequenceTables& t, const SequenceAssignment& a, bool second_choice = false);

}  // namespace vx
