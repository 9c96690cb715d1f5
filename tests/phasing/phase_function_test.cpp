// The phase curve of each entry point, the half windows, the phased transform
// and its inverse, and the rotation in double precision.
#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "phasing/halfapod.hpp"
#include "phasing/phase_function.hpp"
#include "phasing/phase_search.hpp"
#include "platform/ui.hpp"

namespace vx {
namespace {

constexpr double PI = std::numbers::pi;

PhaseInputs inputs() {
    PhaseInputs in;
    in.lowfreq = 20000.0;
    in.highfreq = 500000.0;
    in.sweeprate = 150.0;
    in.delay = 0.0005;
    in.excitestart = 0.0032;
    in.bandwidth = 1000000.0;
    in.relativex = 2e-6;
    return in;
}

TEST(PhaseFunction, BracketAndReferenceOfEveryEntryPoint) {
    struct Case {
        const char* name;
        PhaseEntry entry;
        bool special, extra;
        double reference;
        double bracket;  // seconds
        double sign;
    };
    const double u = 2e-6, e = 1e-6, bw = 1e6;
    const std::vector<Case> cases = {
        {"standard search", PhaseEntry::PhasingStandard, false, false, 500000, 0.0005, 1},
        // divided by the bandwidth once more: the extra point weighs 1 / BW^2
        {"standard search, extra point and special", PhaseEntry::PhasingStandard, true, true, 500000,
         0.0005 - (u + e) / bw, 1},
        {"stored parameters", PhaseEntry::PhasingStored, true, true, 500000, 0.0005 - u - e, 1},
        {"initial-frequency form", PhaseEntry::PhasingFeng, true, true, 20000, 0.0005 + 0.0032 - u - e, 1},
        {"analytical adds the correction", PhaseEntry::PhasingAnalytical, true, true, 500000, 0.0005 + u + e, 1},
        {"absorption controls", PhaseEntry::NewPhasing2, true, true, 20000, 0.0005 + 0.0032 + u, 1},
        {"one-button standard", PhaseEntry::StandardPhaseSingle, true, true, 500000, 0.0005 + 0.0032 - e, 1},
        {"simple", PhaseEntry::SimplePhase, true, true, 500000, 0.0005, -1},
        {"simple, start frequency", PhaseEntry::SimplePhaseFeng, true, true, 20000, 0.0005 + 0.0032, -1},
        {"simple threaded", PhaseEntry::SimplePhase2Threaded, true, true, 20000, 0.0005 + 0.0032 - 1e-6, 1},
        {"batch record", PhaseEntry::IntelPhaseCreate, true, true, 20000, 0.0005 + 0.0032 - 1e-6, 1},
        {"manual, relativex far from 1", PhaseEntry::PhaseManual, true, true, 500000, 0.0005, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        PhaseInputs in = inputs();
        in.special = c.special;
        in.extra_point = c.extra;
        const PhaseModel m = phase_model_for(c.entry, in);
        EXPECT_DOUBLE_EQ(m.reference, c.reference);
        EXPECT_NEAR(m.bracket, c.bracket, 1e-15);
        EXPECT_DOUBLE_EQ(m.Bterm, 2 * PI * m.bracket);
        EXPECT_DOUBLE_EQ(m.Aterm, PI / 150.0 / 1e6);
        // phi at a frequency from the formula written out.
        const double f = 123456.0;
        const double expect = c.sign * (PI * (f - c.reference) * (f - c.reference) / 150e6 - 2 * PI * f * c.bracket);
        EXPECT_NEAR(phase_at(m, f), expect, 1e-9 * std::fabs(expect) + 1e-12);
    }
    // Near 1.0 the manual path takes the extra point.
    PhaseInputs in = inputs();
    in.relativex = 1.05;
    in.extra_point = true;
    EXPECT_NEAR(phase_model_for(PhaseEntry::PhaseManual, in).bracket, 0.0005 - 1e-6, 1e-15);
    // A Dterm replaces the "Special" correction in the absorption controls and is subtracted in the batch curve.
    in = inputs();
    in.special = true;
    in.use_d = true;
    in.d_term = 5e-9;
    EXPECT_NEAR(phase_model_for(PhaseEntry::NewPhasing2, in).bracket, 0.0005 + 0.0032 + 5e-9, 1e-15);
    EXPECT_NEAR(phase_model_for(PhaseEntry::IntelPhaseCreate, in).bracket, 0.0005 + 0.0032 - 1e-6 - 5e-9, 1e-15);
}

TEST(PhaseFunction, SweepDirectionAndHarmonics) {
    // highfreq <= lowfreq negates the rate; equal frequencies count as downward
    // except in the batch curve, which compares in single precision and strictly.
    EXPECT_DOUBLE_EQ(signed_sweep_rate(150, 20000, 500000), 150);
    EXPECT_DOUBLE_EQ(signed_sweep_rate(150, 500000, 20000), -150);
    EXPECT_DOUBLE_EQ(signed_sweep_rate(-150, 20000, 500000), 150);
    EXPECT_DOUBLE_EQ(signed_sweep_rate(150, 20000, 20000), -150);
    EXPECT_DOUBLE_EQ(signed_sweep_rate(150, 20000, 20000, true), 150);
    EXPECT_DOUBLE_EQ(signed_sweep_rate(150, 20000.0002, 20000.0001), -150);
    EXPECT_DOUBLE_EQ(signed_sweep_rate(150, 20000.0002, 20000.0001, true), 150);  // equal as floats

    // A downward chirp: the same parabola, opened the other way, about its own reference.
    PhaseInputs up = inputs(), down = inputs();
    std::swap(down.lowfreq, down.highfreq);
    const PhaseModel mu = phase_model_for(PhaseEntry::PhasingFeng, up);
    const PhaseModel md = phase_model_for(PhaseEntry::PhasingFeng, down);
    EXPECT_DOUBLE_EQ(md.Aterm, -mu.Aterm);
    EXPECT_DOUBLE_EQ(md.reference, 500000);
    for (double d : {1000.0, 50000.0, 300000.0})
        EXPECT_NEAR(phase_at(md, 500000 - d) + md.Bterm * (500000 - d), -(phase_at(mu, 20000 + d) + mu.Bterm * (20000 + d)),
                    1e-9);

    // Third harmonic: f / 3 in both terms; the absorption controls also triple the quadratic term.
    PhaseInputs h = inputs();
    h.harmonic = 3.0;
    const PhaseModel a = phase_model_for(PhaseEntry::PhasingFeng, h);
    const PhaseModel one = phase_model_for(PhaseEntry::PhasingFeng, inputs());
    EXPECT_NEAR(phase_at(a, 300000.0), phase_at(one, 100000.0), 1e-9);
    const PhaseModel b = phase_model_for(PhaseEntry::NewPhasing2, h);
    const double x = 100000.0;
    EXPECT_NEAR(phase_at(b, 3 * x), 3 * PI * (x - 20000) * (x - 20000) / 150e6 - 2 * PI * x * (0.0037), 1e-9);

    // The band of points, with the harmonic and the limit.
    long long s = 0, e = 0;
    phase_band(20000, 500000, 1.0, 15.2587890625, 65536, s, e);
    EXPECT_EQ(s, 1310);
    EXPECT_EQ(e, 32768);
    phase_band(500000, 20000, 3.0, 15.2587890625, 65536, s, e);
    EXPECT_EQ(s, 3932);
    EXPECT_EQ(e, 65536);
    phase_band(NAN, 20000, 1.0, 15.0, 65536, s, e);
    EXPECT_EQ(s, 0);
    EXPECT_EQ(e, 0);
}

TEST(PhaseFunction, HalfWindowsFollowTheirFormulas) {
    const int n = 1000;
    struct Case {
        int type;
        bool exclude;
        int first;  // first weighted index
    };
    for (const Case& c : std::vector<Case>{{1, false, 0}, {1, true, 0}, {2, false, 0}, {2, true, 64}, {3, false, 0}, {3, true, 64}}) {
        SCOPED_TRACE(testing::Message() << "type " << c.type << " exclude " << c.exclude);
        Spectrum s;
        s.datacount = n;
        s.data.assign(n, 2.0f);
        s.dbandwidth = 1000000.0;
        s.exciteduration = 0.000032;   // 64 samples
        RecordingUi ui;
        ASSERT_EQ(HalfApod(s, c.type, c.exclude ? 1 : 0, ui), 0);
        for (int i : {0, 1, 63, 64, 500, 999}) {
            double w = 1.0;
            if (i >= c.first) {
                if (c.type == 1) w = 0.5 * (1 - std::cos((n + i) * 2 * PI / (2.0 * n - 1)));
                if (c.type == 2) w = 0.54 + 0.46 * std::cos(PI * i / (n - 1));
                if (c.type == 3) w = 0.424 + 0.497 * std::cos(PI * i / (n - 1)) + 0.079 * std::cos(2 * PI * i / (n - 1));
            }
            EXPECT_NEAR(s.data[i], 2.0 * w, c.type == 1 ? 2e-6 : 1e-6) << "i " << i;
        }
        // The window falls from the top at the first weighted sample.
        EXPECT_GT(s.data[c.first], s.data[999]);
    }
    Spectrum s;
    s.datacount = 8;
    s.data.assign(8, 1.0f);
    RecordingUi ui;
    EXPECT_EQ(HalfApod(s, 4, 0, ui), -1);
    EXPECT_EQ(HalfApod(s, 0, 0, ui), -1);
    EXPECT_NE(ui.console.find("No Apod"), std::string::npos);
}

TEST(PhaseFunction, TransformKeepsTheComplexSpectrumAndComesBack) {
    const int n = 4096;
    std::mt19937 rng(3);
    std::normal_distribution<float> g(0.0f, 1.0f);
    Spectrum s;
    s.datacount = n;
    s.dbandwidth = 500000.0;
    s.data.resize(n);
    for (float& v : s.data) v = g(rng);
    const std::vector<float> original = s.data;
    RecordingUi ui;
    ASSERT_EQ(Fourier_Transform_Phased(s, 0, ui), 0);
    ASSERT_EQ(s.datacount, n / 2);
    EXPECT_DOUBLE_EQ(s.hzppt, 500000.0 / (n / 2));
    EXPECT_EQ(s.domain, DOMAIN_FREQUENCY);
    // Against a direct sum at a few points, with the scale 500000 / N.
    const double scale = 500000.0 / (n / 2);
    for (int k : {0, 1, 17, 1000, 2047}) {
        std::complex<double> z = 0;
        for (int t = 0; t < n; ++t) z += static_cast<double>(original[t]) * std::polar(1.0, -2 * PI * k * t / n);
        double nyq = 0;
        for (int t = 0; t < n; ++t) nyq += original[t] * ((t % 2) ? -1.0 : 1.0);
        EXPECT_NEAR(s.realdata[k], z.real() * scale, 1e-3 * scale * 10);
        // point 0 packs the Nyquist value as its imaginary part
        EXPECT_NEAR(s.imagdata[k], (k == 0 ? nyq : z.imag()) * scale, 1e-3 * scale * 10);
        EXPECT_EQ(s.data[k], s.realdata[k]);
    }
    // Unscaled forward and the unnormalised inverse give 2N times the samples.
    Spectrum t;
    t.datacount = n;
    t.dbandwidth = 500000.0;
    t.data = original;
    ASSERT_EQ(Fourier_Transform_Phased(t, 1, ui), 0);
    ASSERT_EQ(InvFourier_Transform_Phased(t, ui), 0);
    ASSERT_EQ(t.datacount, n);
    EXPECT_EQ(t.domain, DOMAIN_TIME);
    for (int i : {0, 1, 100, n - 1}) EXPECT_NEAR(t.data[i], original[i] * n, 2e-3 * n);

    Spectrum odd;
    odd.datacount = 7;
    odd.data.assign(7, 0.0f);
    EXPECT_EQ(Fourier_Transform_Phased(odd, 0, ui), -1);
    Spectrum none;
    EXPECT_EQ(InvFourier_Transform_Phased(none, ui), -1);
}

TEST(PhaseFunction, RotationIsComputedInDoublePrecision) {
    // A quadratic phase at a million points reaches 1e7 rad: in single
    // precision the angle alone would be off by about a radian.
    const std::vector<float> re = {1.0f, 0.5f, -0.25f}, im = {0.0f, 2.0f, 1.0f};
    const std::vector<double> curve = {1.0e7 + 0.3, 2.5e7 + 1.1, 9.87654321e6};
    std::vector<float> out, disp;
    rotate_spectrum(re, im, curve, 0.25, out, &disp);
    for (std::size_t k = 0; k < re.size(); ++k) {
        const long double p = static_cast<long double>(curve[k]) + 0.25L;
        const long double want = re[k] * std::cos(p) - im[k] * std::sin(p);
        const long double wantd = im[k] * std::cos(p) + re[k] * std::sin(p);
        EXPECT_NEAR(out[k], static_cast<double>(want), 1e-6);
        EXPECT_NEAR(disp[k], static_cast<double>(wantd), 1e-6);
        // magnitude is kept
        EXPECT_NEAR(std::hypot(out[k], disp[k]), std::hypot(re[k], im[k]), 1e-6);
    }
    std::vector<float> a = {0.0f, 1.0f}, b = {-2.0f};
    FlipPhasedData(a, &b);
    EXPECT_TRUE(std::signbit(a[0]));  // 0.0 becomes -0.0
    EXPECT_EQ(a[1], -1.0f);
    EXPECT_EQ(b[0], 2.0f);
}

}  // namespace
}  // namespace vx

namespace vx {
namespace {

TEST(PhaseFunction, RecurrenceTurnAgreesWithTheCurve) {
    // 2^20 points of a strong quadratic (phases up to 1e7 rad), both forms and directions.
    const std::size_t N = 1 << 20;
    std::vector<float> re(N), im(N);
    for (std::size_t k = 0; k < N; ++k) {
        re[k] = static_cast<float>(std::cos(0.001 * k) * 10.0);
        im[k] = static_cast<float>(std::sin(0.0007 * k) * 10.0);
    }
    for (PhaseEntry e : {PhaseEntry::PhasingStandard, PhaseEntry::PhasingFeng, PhaseEntry::SimplePhase, PhaseEntry::NewPhasing2}) {
        for (bool down : {false, true}) {
            PhaseInputs in = inputs();
            if (down) std::swap(in.lowfreq, in.highfreq);
            in.harmonic = e == PhaseEntry::NewPhasing2 ? 3.0 : 1.0;
            PhaseModel m = phase_model_for(e, in);
            m.extra_linear = 1e-6;
            const double hz = in.bandwidth / N;
            std::vector<double> curve;
            build_phase_curve(m, hz, N, 0, N, curve);
            std::vector<float> P1, Q1, P2, Q2;
            turn_by_curve(re.data(), im.data(), curve.data(), N, P1, Q1);
            turn_by_model(re, im, m, hz, P2, Q2);
            double worst = 0;
            for (std::size_t k = 0; k < N; k += 97) worst = std::max({worst, static_cast<double>(std::fabs(P1[k] - P2[k])), static_cast<double>(std::fabs(Q1[k] - Q2[k]))});
            EXPECT_LT(worst, 1e-4) << static_cast<int>(e) << " " << down;  // values are ~10: 1e-5 relative
        }
    }
}

}  // namespace
}  // namespace vx
