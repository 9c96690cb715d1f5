// Half windows for absorption-mode spectra: the window falls from its maximum
// at the first sample, because an absorption transient starts at the top.
#pragma once

#include "workspace/spectrum.hpp"

namespace vx {

class Ui;

// type 1 "Hanning", 2 "Hamming", 3 "Blackman-Harris" over the true point count
// (storedcount when set, else datacount). exclude_excite leaves the first
// ceil(2 * exciteduration * dbandwidth) samples unweighted for types 2 and 3.
// Returns 0, or -1 for any other type (type 0 prints "No Apod").
int HalfApod(Spectrum& spectrum, int type, int exclude_excite, Ui& ui);

}  // namespace vx
