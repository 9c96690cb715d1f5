#include "platform/fft.hpp"

#include <map>
#include <mutex>
#include <tuple>

namespace vx {

namespace {

enum class Kind { RealForward, RealForwardInplace, ComplexForwardInplace, RealInverseInplace };

using Key = std::tuple<int, int, int, int>;  // kind, n, alignment of in, alignment of out

struct PlanCache {
    std::mutex mutex;
    std::map<Key, fftwf_plan> plans;
    bool wisdom_loaded = false;

    ~PlanCache() {
        for (auto& [k, p] : plans) fftwf_destroy_plan(p);
    }
};

PlanCache& cache() {
    static PlanCache c;
    return c;
}

// A plan for the given arrays: from the cache when one of the same kind, size
// and alignment exists, else planned now. FFTW_ESTIMATE never touches the
// arrays while planning, so the caller's data survive.
fftwf_plan plan_for(Kind kind, int n, float* in, float* out) {
    PlanCache& c = cache();
    std::lock_guard<std::mutex> lock(c.mutex);
    if (!c.wisdom_loaded) {
        fftwf_import_system_wisdom();
        c.wisdom_loaded = true;
    }
    const Key key{static_cast<int>(kind), n, fftwf_alignment_of(in), fftwf_alignment_of(out)};
    if (auto it = c.plans.find(key); it != c.plans.end()) return it->second;
    fftwf_plan p = nullptr;
    const unsigned flags = FFTW_ESTIMATE;
    if (kind == Kind::RealForward || kind == Kind::RealForwardInplace) {
        p = fftwf_plan_dft_r2c_1d(n, in, reinterpret_cast<fftwf_complex*>(out), flags);
    } else if (kind == Kind::RealInverseInplace) {
        p = fftwf_plan_dft_c2r_1d(n, reinterpret_cast<fftwf_complex*>(in), out, flags);
    } else {
        auto* z = reinterpret_cast<fftwf_complex*>(in);
        p = fftwf_plan_dft_1d(n, z, z, FFTW_FORWARD, flags);
    }
    if (p) c.plans.emplace(key, p);
    return p;
}

}  // namespace

int fft_forward_real(const float* in, fftwf_complex* out, int n) {
    if (n < 1 || !in || !out) return -1;
    // FFTW's real-input planner takes a non-const pointer but does not write
    // through it for an out-of-place r2c transform.
    float* src = const_cast<float*>(in);
    fftwf_plan p = plan_for(Kind::RealForward, n, src, reinterpret_cast<float*>(out));
    if (!p) return -1;
    fftwf_execute_dft_r2c(p, src, out);
    return 0;
}

int fft_forward_real_inplace(float* data, int n) {
    if (n < 1 || !data) return -1;
    fftwf_plan p = plan_for(Kind::RealForwardInplace, n, data, data);
    if (!p) return -1;
    fftwf_execute_dft_r2c(p, data, reinterpret_cast<fftwf_complex*>(data));
    return 0;
}

int fft_forward_complex_inplace(fftwf_complex* data, int n) {
    if (n < 1 || !data) return -1;
    auto* f = reinterpret_cast<float*>(data);
    fftwf_plan p = plan_for(Kind::ComplexForwardInplace, n, f, f);
    if (!p) return -1;
    fftwf_execute_dft(p, data, data);
    return 0;
}

int fft_inverse_real_inplace(float* data, int n) {
    if (n < 1 || !data) return -1;
    fftwf_plan p = plan_for(Kind::RealInverseInplace, n, data, data);
    if (!p) return -1;
    fftwf_execute_dft_c2r(p, reinterpret_cast<fftwf_complex*>(data), data);
    return 0;
}

std::size_t fft_cached_plan_count() {
    PlanCache& c = cache();
    std::lock_guard<std::mutex> lock(c.mutex);
    return c.plans.size();
}

}  // namespace vx
