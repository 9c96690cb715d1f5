// Windows against the vendor library's published definitions: symmetric over
// the whole length, the end points on the curve, short arrays left alone, and
// the Kaiser parameter scaled by the half length.
#include <cmath>
#include <numbers>
#include <vector>

#include <gsl/gsl_sf_bessel.h>
#include <gtest/gtest.h>

#include "platform/fft.hpp"
#include "platform/windows.hpp"

namespace vx {
namespace {

constexpr long double PI = std::numbers::pi_v<long double>;

std::vector<float> ones(std::size_t n) { return std::vector<float>(n, 1.0f); }

TEST(Windows, HannAndHammingMatchTheDefinitionAtEveryLength) {
    for (std::size_t n : {3u, 4u, 5u, 17u, 4096u, 10001u, 70000u}) {
        auto hann = ones(n), hamming = ones(n);
        WinHann(hann.data(), n);
        WinHamming(hamming.data(), n);
        for (std::size_t i = 0; i < n; ++i) {
            const long double c = std::cos(2.0L * PI * static_cast<long double>(i) / static_cast<long double>(n - 1));
            ASSERT_NEAR(hann[i], static_cast<double>(0.5L * (1.0L - c)), 2e-7) << "n=" << n << " i=" << i;
            ASSERT_NEAR(hamming[i], static_cast<double>(0.54L - 0.46L * c), 2e-7) << "n=" << n << " i=" << i;
        }
        // Both end points lie on the curve: 0 for Hann, 0.08 for Hamming.
        EXPECT_NEAR(hann.front(), 0.0, 1e-7);
        EXPECT_NEAR(hann.back(), 0.0, 1e-7);
        EXPECT_NEAR(hamming.back(), 0.08, 1e-7);
    }
    // Hann of 3: 0, 1, 0 exactly; of 4: 0, 0.75, 0.75, 0.
    auto h3 = ones(3);
    WinHann(h3.data(), 3);
    EXPECT_NEAR(h3[1], 1.0f, 1e-7);
    auto h4 = ones(4);
    WinHann(h4.data(), 4);
    EXPECT_NEAR(h4[1], 0.75f, 1e-7);
    EXPECT_NEAR(h4[2], 0.75f, 1e-7);
}

TEST(Windows, ShortArraysAreLeftAlone) {
    for (std::size_t n : {0u, 1u, 2u}) {
        std::vector<float> a(n, 3.0f), b(n, 3.0f), k(n, 3.0f), q(n, 3.0f);
        WinHann(a.data(), n);
        WinHamming(b.data(), n);
        WinKaiser(k.data(), n, 6.0);
        QuarterSineWin(q.data(), n);
        for (std::size_t i = 0; i < n; ++i) {
            EXPECT_EQ(a[i], 3.0f);
            EXPECT_EQ(b[i], 3.0f);
            EXPECT_EQ(q[i], 3.0f);
        }
        if (n == 1) {
            EXPECT_EQ(k[0], 3.0f);
        }
    }
    std::vector<float> q3(3, 2.0f);
    QuarterSineWin(q3.data(), 3);
    EXPECT_EQ(q3, std::vector<float>(3, 2.0f));
}

TEST(Windows, KaiserScalesAlphaByTheHalfLength) {
    struct Case {
        std::size_t n;
        double alpha;
    };
    for (Case c : {Case{2, 0.5}, Case{5, 0.5}, Case{64, 0.2}, Case{101, 6.0}, Case{33, 6.0}}) {
        auto w = ones(c.n);
        WinKaiser(w.data(), c.n, c.alpha);
        const double half = (static_cast<double>(c.n) - 1.0) / 2.0;
        const double norm = gsl_sf_bessel_I0(c.alpha * half);
        for (std::size_t i = 0; i < c.n; ++i) {
            const double di = static_cast<double>(i);
            const double expect =
                gsl_sf_bessel_I0(c.alpha * std::sqrt(half * half - (di - half) * (di - half))) / norm;
            ASSERT_NEAR(w[i], expect, 1e-6 * std::max(1.0, expect)) << "n=" << c.n << " i=" << i;
        }
        // Symmetric, with the peak 1 at the centre.
        for (std::size_t i = 0; i < c.n; ++i) EXPECT_FLOAT_EQ(w[i], w[c.n - 1 - i]);
    }
    // A long window with alpha 6 is a narrow spike: finite everywhere, 1 at the
    // centre of an odd length, 0 far from it (the ratio would overflow if the
    // two Bessel functions were formed unscaled).
    const std::size_t n = 1000001;
    auto w = ones(n);
    WinKaiser(w.data(), n, 6.0);
    for (float v : w) ASSERT_TRUE(std::isfinite(v));
    EXPECT_FLOAT_EQ(w[n / 2], 1.0f);
    EXPECT_EQ(w[0], 0.0f);
    EXPECT_EQ(w[n / 4], 0.0f);
    EXPECT_GT(w[n / 2 + 100], 0.5f);
}

TEST(Windows, OffsetIsRemovedInTheSamePass) {
    // (x - offset) * w, rounded as a subtraction in float and then the weighting.
    const std::size_t n = 1001;
    std::vector<float> x(n);
    for (std::size_t i = 0; i < n; ++i) x[i] = 3.25f + 0.001f * static_cast<float>(i % 17);
    for (int kind = 0; kind < 3; ++kind) {
        auto fused = x, separate = x;
        for (float& v : separate) v -= 3.3f;
        if (kind == 0) {
            WinHann(fused.data(), n, 3.3f);
            WinHann(separate.data(), n);
        } else if (kind == 1) {
            WinHamming(fused.data(), n, 3.3f);
            WinHamming(separate.data(), n);
        } else {
            WinKaiser(fused.data(), n, 0.01, 3.3f);
            WinKaiser(separate.data(), n, 0.01);
        }
        EXPECT_EQ(fused, separate) << kind;
    }
}

TEST(Windows, QuarterSineTapersOnlyTheOuterQuarters) {
    const std::size_t n = 16;
    auto w = ones(n);
    QuarterSineWin(w.data(), n);
    for (std::size_t i = 0; i < n; ++i) {
        double expect = 1.0;
        if (i < 4) expect = std::sin(2.0 * std::numbers::pi * i / 16.0);
        else if (i >= 12) expect = std::sin(2.0 * std::numbers::pi * i / 16.0 - std::numbers::pi);
        EXPECT_NEAR(w[i], expect, 1e-7) << i;
    }
    EXPECT_EQ(w[0], 0.0f);
    EXPECT_NEAR(w[12], 1.0f, 1e-7);  // the fall starts at the top
}

TEST(Fft, PlansAreReusedForTheSameSizeAndAlignment) {
    std::vector<float> in(1024, 1.0f);
    fftwf_complex* out = fftwf_alloc_complex(513);
    ASSERT_EQ(fft_forward_real(in.data(), out, 1024), 0);
    const std::size_t after_first = fft_cached_plan_count();
    for (int i = 0; i < 3; ++i) ASSERT_EQ(fft_forward_real(in.data(), out, 1024), 0);
    EXPECT_EQ(fft_cached_plan_count(), after_first);
    EXPECT_FLOAT_EQ(out[0][0], 1024.0f);  // no scaling
    EXPECT_FLOAT_EQ(out[5][0], 0.0f);
    EXPECT_EQ(fft_forward_real(in.data(), out, 0), -1);
    fftwf_free(out);
}

}  // namespace
}  // namespace vx
