// Section rephasing of an already phased spectrum and the baseline of the
// rephased result: the zoom range is cut into sections and each gets its own
// small constant on top of the whole-spectrum constant.
#pragma once

#include <cstdint>
#include <vector>

namespace vx {

class Ui;

// The fields of the per-file batch record this step reads and writes.
struct RephaseRecord {
    std::int32_t rephase_sections = 0;
    double rephase_sn = 3.0;
    double baseline_scaler = 3.0;
    double noise_mean = 0.0, noise_sigma = 0.0;
    std::int32_t zoom_start = 0;
    std::int64_t zoom_count = 0;
    const float* realdata = nullptr;  // full spectrum, N each
    const float* imagdata = nullptr;
    const double* phase = nullptr;    // full curve
    std::int64_t N = 0;
    std::vector<float> zoom_real, zoom_imag;
    std::vector<double> zoom_phase;
    double base_constant = 0.0;
    std::vector<std::int32_t> section_initial, section_final, section_mid;
    std::vector<double> section_constant, section_score, section_drop;
    std::vector<std::int32_t> section_degrees;
    std::vector<float> zoom_rephased, full_rephased;
    std::int32_t rephased_flag = 0;
};

// Copies the zoom range of the spectrum and of the curve into the record.
void TransformAbsZoom(RephaseRecord& r);
// Plans the sections and runs the section search, then applies the constants
// to the zoom range and to the full spectrum. Returns 0, -1 with no sections.
int RephaseData64f(RephaseRecord& r);
// The search of one section (points first..last of the zoom range).
void RephaseSection64f(RephaseRecord& r, std::int32_t first, std::int32_t last, int section);
void RePhaseZoomData64f(RephaseRecord& r);
void RePhaseTheData64f(RephaseRecord& r);
// Baseline of full_rephased with the threshold baseline_scaler * sigma + mean,
// then the zoom range copied into zoom_rephased.
void BaseLineRemoveZoomRephaseThreaded(RephaseRecord& r);

// Mean removal over the true count (or count when true_count is 0) into the
// magnitude work array; -1 below 1024 samples.
int RemoveDCOffset_MagnitudeandAbsorbance(std::vector<float>& samples, std::int64_t true_count,
                                          std::vector<float>& magnitude_work);

}  // namespace vx
