#include "platform/memory.hpp"

#include <algorithm>
#include <cstdint>

#include <sys/mman.h>
#include <unistd.h>

namespace vx {

std::vector<float> new_sample_array(std::size_t n, std::size_t room) {
    std::vector<float> v;
    v.reserve(std::max(n, room));
    // Transparent huge pages for the fresh storage before it is first touched:
    // a 256 MB array then costs a few hundred page faults instead of 65536.
    const auto a = reinterpret_cast<std::uintptr_t>(v.data());
    constexpr std::uintptr_t HUGE_PAGE = 2u << 20;
    const std::uintptr_t first = (a + HUGE_PAGE - 1) & ~(HUGE_PAGE - 1);
    const std::uintptr_t last = (a + v.capacity() * sizeof(float)) & ~(HUGE_PAGE - 1);
    if (last > first + HUGE_PAGE) (void)madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
    v.resize(n, 0.0f);
    return v;
}

void release_unused_capacity(std::vector<float>& v) {
    static const std::uintptr_t page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto begin = reinterpret_cast<std::uintptr_t>(v.data() + v.size());
    const auto end = reinterpret_cast<std::uintptr_t>(v.data() + v.capacity());
    const std::uintptr_t first = (begin + page - 1) & ~(page - 1);
    const std::uintptr_t last = end & ~(page - 1);
    // Only whole pages strictly inside the vector's own storage: the allocator's
    // bookkeeping before and after it is never touched.
    if (last > first + 16 * page) (void)madvise(reinterpret_cast<void*>(first), last - first, MADV_DONTNEED);
}

}  // namespace vx
