// The absorption-mode run on an apex/solariX acquisition: the excitation from
// its method folder instead of an experiment script, the digitiser's leading
// points taken out of the transient and into the delay, the curve's rate and
// delay refined on the spectrum itself, then the same constant search,
// rotation and baseline as every other run.
#pragma once

#include "phasing/bruker_excite.hpp"
#include "phasing/chirp_seek.hpp"
#include "phasing/phase_run.hpp"

namespace vx {

// True for a record read from a Bruker directory that carries a method.
bool is_bruker_method_record(const Spectrum& s);

// Leading samples before the signal: the exact zeros the digitiser writes
// before its filter has filled, and the rise after them up to the first sample
// of at least a tenth of the largest magnitude within the next 256 samples.
std::size_t bruker_leading_points(const std::vector<float>& transient);

// The run: as phase_spectrum, for a Bruker record. Returns 0 or a negative
// value after its message (-15: "Insufficient information to phase data.").
int phase_bruker_spectrum(Spectrum& s, const PhaseRunOptions& o, Ui& ui, PhaseRunResult* result);

}  // namespace vx
