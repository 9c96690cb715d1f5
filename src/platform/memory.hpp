// Large sample arrays: allocation with room for an in-place transform, and the
// return of unused capacity to the system without a copy.
#pragma once

#include <cstddef>
#include <vector>

namespace vx {

// A zeroed float array of n samples with room reserved for `room` (>= n)
// before a reallocation would be needed.
std::vector<float> new_sample_array(std::size_t n, std::size_t room);

// Gives the whole pages between size() and capacity() back to the system. The
// vector keeps its capacity (a later growth finds zeros there), so a spectrum
// that shrank to half of its transform array costs no copy and no memory.
void release_unused_capacity(std::vector<float>& v);

}  // namespace vx
