// Protein sequence files of THRASH's sequence matching, then one assignment
// pass over the tables they make.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_support.hpp"
#include "platform/ui.hpp"
#include "thrash/sequence.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = vx::fuzz::input_file("seq.txt", data, size);
    vx::RecordingUi ui;
    vx::SequenceTables t;
    t.match_type = size % 2 ? 6 : 1;
    t.phosphorylation = size % 3 == 0;
    if (vx::load_sequence_file(path, t, ui) == 0) {
        std::vector<vx::SequenceAssignment> found;
        vx::assign_thrash(t, 500.0, 2, 1.0, found);
        for (const auto& a : found) (void)vx::assignment_text(t, a);
    }
    return 0;
}
