// The processing chain: counts and recorded fields, the exact magnitude scale,
// the quadrature half swap and the splits, the commands and their messages.
#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include <fftw3.h>
#include <gtest/gtest.h>

#include "platform/ui.hpp"
#include "platform/windows.hpp"
#include "workspace/processing.hpp"

namespace vx {
namespace {

constexpr double PI = std::numbers::pi;

// A direct-mode transient of n samples holding an on-bin cosine at bin k of an
// n-point transform (amplitude a) plus an offset.
Spectrum cosine_transient(int n, int k, double a, double offset = 0.0) {
    Spectrum s;
    s.datacount = n;
    s.data.resize(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) s.data[static_cast<std::size_t>(i)] = static_cast<float>(offset + a * std::cos(2.0 * PI * k * i / n));
    return s;
}

Settings options(int truncations, int apodization, int zerofills, int transform, int boxcar = 0) {
    Settings o = default_settings();
    o.truncations = truncations;
    o.apodization = apodization;
    o.zerofills = zerofills;
    o.transform = transform;
    o.boxcar = boxcar;
    return o;
}

TEST(ProcessData, CountsAfterTruncationAndZerofill) {
    struct Case {
        int n, truncations, zerofills, boxcar, expect;
    };
    // datacount afterwards = n / 2^truncations (unless boxcar) * 2^zerofills / 2.
    for (Case c : {Case{1024, 0, 1, 0, 1024}, Case{1024, 0, 0, 0, 512}, Case{1024, 1, 0, 0, 256},
                   Case{1024, 2, 2, 0, 512}, Case{1024, 3, 1, 1, 1024}, Case{4096, 1, 3, 0, 8192},
                   Case{1000, 1, 0, 0, 250}}) {
        Spectrum s = cosine_transient(c.n, 10, 1.0);
        s.dbandwidth = 500000.0;
        RecordingUi ui;
        ASSERT_EQ(Process_Data(s, options(c.truncations, APOD_HANN, c.zerofills, TRANSFORM_FFT_MAGNITUDE, c.boxcar), ui), 0);
        EXPECT_EQ(s.datacount, c.expect) << c.n << " " << c.truncations << " " << c.zerofills;
        EXPECT_EQ(s.data.size(), static_cast<std::size_t>(c.expect));
        EXPECT_EQ(s.Truncations, c.truncations);  // recorded even when boxcar kept the data
        EXPECT_EQ(s.Zerofills, c.zerofills);
        EXPECT_EQ(s.apodization, APOD_HANN);
        EXPECT_EQ(s.baselinecorrected, 1);
        EXPECT_EQ(s.domain, DOMAIN_FREQUENCY);
        EXPECT_DOUBLE_EQ(s.hzppt, 500000.0 / c.expect);
        EXPECT_EQ(s.StartIndex, 0);
        EXPECT_TRUE(ui.messages.empty());
    }
}

TEST(ProcessData, FrequencyMassAndProfileRecordsAreUntouched) {
    for (int domain : {DOMAIN_FREQUENCY, DOMAIN_MASS, DOMAIN_PROFILE}) {
        Spectrum s = cosine_transient(256, 3, 1.0, 5.0);
        s.domain = domain;
        s.Truncations = 7;
        s.Zerofills = 9;
        s.apodization = 5;
        const auto before = s.data;
        RecordingUi ui;
        EXPECT_EQ(Process_Data(s, options(1, APOD_HANN, 1, TRANSFORM_FFT_MAGNITUDE), ui), 0);
        EXPECT_EQ(s.data, before);
        EXPECT_EQ(s.datacount, 256);
        EXPECT_EQ(s.Truncations, 7);
        EXPECT_EQ(s.Zerofills, 9);
        EXPECT_EQ(s.apodization, 5);
    }
    // Peak sticks and chromatograms go on through the chain.
    Spectrum s = cosine_transient(256, 3, 1.0);
    s.domain = DOMAIN_PEAKLIST;
    RecordingUi ui;
    EXPECT_EQ(Process_Data(s, options(0, APOD_NONE, 0, TRANSFORM_FFT_MAGNITUDE), ui), 0);
    EXPECT_EQ(s.datacount, 128);
}

TEST(FourierTransform, RealScaleAndTheDoubledFirstPoint) {
    // On-bin cosines give a * N / 2 in the transform, a * 500000 after the scale.
    for (int n : {64, 1024, 65536}) {
        for (int k : {1, 7, n / 4}) {
            Spectrum s = cosine_transient(n, k, 0.75);
            RecordingUi ui;
            ASSERT_EQ(Fourier_Transform(s, ui), 0);
            ASSERT_EQ(s.datacount, n / 2);
            const auto peak = std::max_element(s.data.begin() + 1, s.data.end()) - s.data.begin();
            EXPECT_EQ(peak, k);
            EXPECT_NEAR(s.data[static_cast<std::size_t>(k)], 0.75 * 500000.0, 0.75 * 500000.0 * 2e-5);
        }
    }
    // A constant c: R0 = c N, out[0] = (R0 * s) * s with s = 1000000f / float(N),
    // signed, and the rest 0.
    for (float c : {2.5f, -3.0f}) {
        const int n = 4096;
        Spectrum s;
        s.datacount = n;
        s.data.assign(n, c);
        RecordingUi ui;
        ASSERT_EQ(Fourier_Transform(s, ui), 0);
        const float scale = 1000000.0f / static_cast<float>(n);
        EXPECT_FLOAT_EQ(s.data[0], (c * n * scale) * scale);
        EXPECT_EQ(std::signbit(s.data[0]), std::signbit(c));
        EXPECT_NEAR(s.data[1], 0.0f, 1e-2);
    }
}

TEST(FourierTransform, EveryPointOfALongTransformMatchesAPlainOne) {
    // Long enough for the in-place magnitude pass to run in parallel rounds.
    const int n = 1 << 20;
    Spectrum s;
    s.datacount = n;
    s.data.resize(n);
    for (int i = 0; i < n; ++i) s.data[i] = static_cast<float>(std::sin(0.001 * i * i) + 0.3 * std::cos(0.7 * i));
    std::vector<float> in = s.data;
    std::vector<fftwf_complex> ref(n / 2 + 1);
    fftwf_plan p = fftwf_plan_dft_r2c_1d(n, in.data(), ref.data(), FFTW_ESTIMATE);
    fftwf_execute(p);
    fftwf_destroy_plan(p);
    RecordingUi ui;
    ASSERT_EQ(Fourier_Transform(s, ui), 0);
    ASSERT_EQ(s.data.size(), static_cast<std::size_t>(n / 2));
    const float scale = 1000000.0f / static_cast<float>(n);
    double worst = 0.0;
    for (int k = 1; k < n / 2; ++k) {
        const double expect = std::hypot(ref[k][0], ref[k][1]) * scale;
        worst = std::max(worst, std::fabs(s.data[k] - expect));
    }
    EXPECT_LT(worst, 0.05);  // magnitudes reach about 1e6 here
    EXPECT_NEAR(s.data[0], ref[0][0] * scale * scale, std::fabs(ref[0][0] * scale * scale) * 1e-5 + 1e-3);
}

TEST(FourierTransform, QuadratureHalfSwap) {
    // 512 complex points: +20 bins and -30 bins with amplitudes 1 and 0.5.
    const int m = 512, n = 2 * m;
    Spectrum s;
    s.detectmode = DETECT_QUADRATURE;
    s.reffreq = 100000.0;
    s.datacount = n;
    s.data.resize(n);
    for (int i = 0; i < m; ++i) {
        const std::complex<double> z = std::polar(1.0, 2.0 * PI * 20 * i / m) + std::polar(0.5, -2.0 * PI * 30 * i / m);
        s.data[2 * i] = static_cast<float>(z.real());
        s.data[2 * i + 1] = static_cast<float>(z.imag());
    }
    RecordingUi ui;
    ASSERT_EQ(Fourier_Transform(s, ui), 0);
    ASSERT_EQ(s.datacount, m);
    const int h = m / 2;
    EXPECT_NEAR(s.data[h + 20], 1000000.0, 5.0);  // amplitude * 1000000
    EXPECT_NEAR(s.data[h - 30], 500000.0, 5.0);
    EXPECT_LT(s.data[h], 1.0);  // zero frequency at the middle
    std::vector<float> rest = s.data;
    rest[h + 20] = rest[h - 30] = 0.0f;
    EXPECT_LT(*std::max_element(rest.begin(), rest.end()), 1.0f);
}

TEST(FourierTransform, RefusesWhatCannotBeTransformed) {
    Spectrum s;
    s.datacount = 8;
    s.data.assign(4, 1.0f);  // count and array disagree
    RecordingUi ui;
    EXPECT_EQ(Fourier_Transform(s, ui), -1);
    EXPECT_TRUE(ui.saw("Transform Error", "Cannot transform 8 points (the record holds 4 samples)."));
    s.datacount = 1;
    s.data.assign(1, 1.0f);
    EXPECT_EQ(Fourier_Transform(s, ui), -1);
}

TEST(ProcessData, PaddedTransientIsWindowedOverTheStoredSamplesOnly) {
    Spectrum s;
    s.datacount = 1024;
    s.storedcount = 1000;
    s.data.assign(1024, 0.0f);
    for (int i = 0; i < 1000; ++i) s.data[i] = 4.0f + static_cast<float>(i % 3);
    RecordingUi ui;
    ASSERT_EQ(Process_Data(s, options(0, APOD_HANN, 0, TRANSFORM_NONE), ui), 0);
    // Mean of the 1000 stored samples removed, Hann over 1000: sample 999 is 0,
    // the padded tail stays exactly 0.
    EXPECT_NEAR(s.data[999], 0.0f, 1e-6);
    double mean = 0.0;
    for (int i = 0; i < 1000; ++i) mean += 4.0 + i % 3;
    mean /= 1000.0;
    EXPECT_NEAR(s.data[500], (4.0 + 500 % 3 - mean) * 0.5 * (1 - std::cos(2 * PI * 500 / 999.0)), 1e-5);
    for (int i = 1000; i < 1024; ++i) EXPECT_EQ(s.data[i], 0.0f) << i;
    EXPECT_EQ(s.datacount, 1024);
}

TEST(ProcessData, WindowFoldedIntoTheZerofillGivesTheSameSamples) {
    // Windowing while copying into the zero-filled array must equal the steps
    // one by one: mean removal, window, zero-fill.
    for (int apod : {APOD_HAMMING, APOD_HANN, APOD_KAISER}) {
        for (int stored : {0, 3000}) {
            Spectrum a = cosine_transient(4096, 37, 2.0, 3.5);
            if (stored) {
                a.storedcount = stored;
                std::fill(a.data.begin() + stored, a.data.end(), 0.0f);
            }
            Spectrum b = a;
            RecordingUi ui;
            ASSERT_EQ(Process_Data(a, options(0, apod, 2, TRANSFORM_NONE), ui), 0);
            // Without a zero-fill the window is folded into the copy that makes
            // room for the transform: the spectrum must not change by it.
            Spectrum c = b, d = b;
            ASSERT_EQ(Process_Data(c, options(0, apod, 0, TRANSFORM_FFT_MAGNITUDE), ui), 0);
            d.data.reserve(d.data.size() + 2);  // room already there: the window runs in place
            ASSERT_EQ(Process_Data(d, options(0, apod, 0, TRANSFORM_FFT_MAGNITUDE), ui), 0);
            EXPECT_EQ(c.data, d.data);
            Baseline_Correct(b);
            const std::size_t n = stored ? stored : 4096;
            if (apod == APOD_HAMMING) WinHamming(b.data.data(), n);
            else if (apod == APOD_HANN) WinHann(b.data.data(), n);
            else WinKaiser(b.data.data(), n, 6.0);
            ASSERT_EQ(Zerofill(b, 2, ui), 0);
            EXPECT_EQ(a.datacount, 16384);
            EXPECT_EQ(a.data, b.data) << apod << " " << stored;
        }
    }
}

TEST(ProcessData, TruncationResetsTheStoredCount) {
    Spectrum s = cosine_transient(1024, 5, 1.0);
    s.storedcount = 1000;
    Truncate(s, 1);
    EXPECT_EQ(s.datacount, 512);
    EXPECT_EQ(s.storedcount, 0);
    Truncate(s, 40);  // halving stops at nothing
    EXPECT_EQ(s.datacount, 0);
    EXPECT_TRUE(s.data.empty());
}

TEST(ProcessData, ZerofillPadsAndRefusesAbsurdLengths) {
    Spectrum s = cosine_transient(8, 1, 1.0);
    RecordingUi ui;
    ASSERT_EQ(Zerofill(s, 2, ui), 0);
    ASSERT_EQ(s.datacount, 32);
    EXPECT_FLOAT_EQ(s.data[0], 1.0f);
    for (int i = 8; i < 32; ++i) EXPECT_EQ(s.data[i], 0.0f);
    ASSERT_EQ(Zerofill(s, 0, ui), 0);  // reallocated at the same length
    EXPECT_EQ(s.datacount, 32);
    EXPECT_EQ(Zerofill(s, 30, ui), -1);
    EXPECT_TRUE(ui.saw("Operator Error", "Zero filling 32 points 30 times gives more points than a transform can take."));
    EXPECT_EQ(s.datacount, 32);
}

TEST(ProcessData, ZerooutClearsAHalfOpenRange) {
    struct Case {
        double a, b;
        std::vector<int> zeroed;
    };
    for (const Case& c : {Case{2.0, 5.0, {2, 3, 4}}, Case{5.0, 2.0, {2, 3, 4}}, Case{2.7, 4.2, {2, 3, 4}},
                          Case{-3.0, 1.0, {0}}, Case{6.0, 100.0, {6, 7}}, Case{3.0, 3.0, {}}}) {
        Spectrum s;
        s.datacount = 8;
        s.data.assign(8, 1.0f);
        Zeroout(s, c.a, c.b);
        for (int i = 0; i < 8; ++i) {
            const bool z = std::find(c.zeroed.begin(), c.zeroed.end(), i) != c.zeroed.end();
            EXPECT_EQ(s.data[i], z ? 0.0f : 1.0f) << c.a << ".." << c.b << " at " << i;
        }
    }
}

TEST(ProcessData, QuadratureWithoutReferenceBalancesTheChannels) {
    Spectrum s;
    s.detectmode = DETECT_QUADRATURE;
    s.datacount = 8;
    // Even channel 1 +- 2, odd channel 10 +- 1: offsets 1 and 10, gains 2 : 1.
    s.data = {3, 11, -1, 9, 3, 11, -1, 9};
    RecordingUi ui;
    ASSERT_EQ(Process_Data(s, options(0, APOD_NONE, 0, TRANSFORM_NONE), ui), 0);
    ASSERT_EQ(ui.messages.size(), 1u);
    EXPECT_EQ(ui.messages[0].title, "Message");
    EXPECT_EQ(ui.messages[0].text, "the gain ratio between the two channels (0/1) is: 2.000000\n");
    EXPECT_EQ(s.data, (std::vector<float>{2, 2, -2, -2, 2, 2, -2, -2}));
    EXPECT_EQ(s.baselinecorrected, 0);
}

TEST(Log2N, HalvingsUntilOne) {
    struct Case {
        long long n;
        int expect;
    };
    for (Case c : {Case{1, 0}, Case{2, 1}, Case{1024, 10}, Case{33554432, 25}, Case{1000, 9}, Case{3, 1},
                   Case{0, -1}, Case{-8, -1}})
        EXPECT_EQ(Log_2_N(c.n), c.expect) << c.n;
}

// A workspace whose slot 0 holds a spectrum.
Workspace workspace_with(Spectrum s, int xmode = XMODE_TIME) {
    Workspace ws;
    ws.panels[0].spectrum = std::move(s);
    ws.panels[0].active = 1;
    ws.panels[0].xmode = xmode;
    ws.active_panel = 0;
    return ws;
}

Spectrum transformed_quadrature(int m) {
    Spectrum s;
    s.domain = DOMAIN_FREQUENCY;
    s.detectmode = DETECT_QUADRATURE;
    s.datacount = m;
    s.dbandwidth = 800000.0;
    s.hzppt = s.dbandwidth / m;
    s.filename = "/data/q.dat";
    s.Aterm = 123.0;
    s.Bterm = -45.0;
    s.Cterm = 6.0;
    s.calcoeff3 = 7.0;
    s.Trapvoltage = -2.0;
    s.data.resize(m);
    for (int i = 0; i < m; ++i) s.data[i] = static_cast<float>(i);
    return s;
}

TEST(SplitPanels, PositiveAndNegativeIonHalves) {
    Workspace ws = workspace_with(transformed_quadrature(16));
    RecordingUi ui;
    const int slot = Split_Panels(ws, ui);
    ASSERT_EQ(slot, 1);
    const Spectrum& pos = ws.panels[0].spectrum;
    const Spectrum& neg = ws.panels[1].spectrum;
    EXPECT_EQ(pos.filename, "/data/q.dat--Positive Ions");
    EXPECT_EQ(neg.filename, "/data/q.dat--Negative Ions");
    for (const Spectrum* r : {&pos, &neg}) {
        EXPECT_EQ(r->datacount, 8);
        EXPECT_EQ(r->domain, DOMAIN_MASS);  // frequency data, then the m/z view of the plot command
        EXPECT_EQ(r->detectmode, DETECT_DIRECT);
        EXPECT_DOUBLE_EQ(r->dbandwidth, 400000.0);
    }
    // Lower half reversed; upper half from the common middle point, one short.
    EXPECT_EQ(pos.data, (std::vector<float>{7, 6, 5, 4, 3, 2, 1, 0}));
    EXPECT_EQ(neg.data, (std::vector<float>{7, 8, 9, 10, 11, 12, 13, 14}));
    EXPECT_DOUBLE_EQ(neg.Aterm, 123.0);
    EXPECT_DOUBLE_EQ(neg.Bterm, -45.0);
    EXPECT_DOUBLE_EQ(neg.Cterm, 6.0);
    EXPECT_DOUBLE_EQ(neg.calcoeff3, 7.0);
    EXPECT_DOUBLE_EQ(neg.Trapvoltage, -2.0);
    EXPECT_EQ(ws.panels[1].active, 1);
    EXPECT_EQ(ws.panels[0].xmode, XMODE_MZ);
    EXPECT_EQ(ws.panels[1].xmode, XMODE_MZ);
    EXPECT_EQ(ws.active_panel, 0);
}

TEST(SplitPanels, FullTableWarnsAndChangesNothing) {
    Workspace ws = workspace_with(transformed_quadrature(16));
    for (auto& p : ws.panels) p.active = 1;
    RecordingUi ui;
    const auto before = ws.panels[0].spectrum.data;
    EXPECT_EQ(Split_Panels(ws, ui), -1);
    EXPECT_TRUE(ui.saw("Warning", "Too many files open, close some files and reload."));
    EXPECT_EQ(ws.panels[0].spectrum.data, before);
    EXPECT_EQ(ws.panels[0].spectrum.filename, "/data/q.dat");
    EXPECT_EQ(ws.panels[0].spectrum.datacount, 16);
}

TEST(SplitComplexData, DealsTheChannelsOut) {
    for (double ref : {0.0, 150000.0}) {
        Spectrum s;
        s.detectmode = DETECT_QUADRATURE;
        s.reffreq = ref;
        s.datacount = 8;
        s.dbandwidth = 1000.0;
        s.filename = "c.dat";
        s.data = {0, 10, 1, 11, 2, 12, 3, 13};
        Workspace ws = workspace_with(s);
        RecordingUi ui;
        const int slot = SplitComplexData(ws, ui);
        ASSERT_EQ(slot, 1);
        const Spectrum& re = ws.panels[0].spectrum;
        const Spectrum& im = ws.panels[1].spectrum;
        EXPECT_EQ(re.data, (std::vector<float>{0, 1, 2, 3}));
        EXPECT_EQ(im.data, (std::vector<float>{10, 11, 12, 13}));
        EXPECT_EQ(re.filename, "c.dat--real part");
        EXPECT_EQ(im.filename, "c.dat--imaginary part");
        for (const Spectrum* r : {&re, &im}) {
            EXPECT_EQ(r->datacount, 4);
            EXPECT_DOUBLE_EQ(r->dbandwidth, 500.0);
            EXPECT_DOUBLE_EQ(r->reffreq, ref);
            EXPECT_EQ(r->detectmode, ref != 0.0 ? DETECT_POSITIVE_HETERODYNE : DETECT_DIRECT);
        }
    }
    for (auto [domain, mode] : {std::pair{DOMAIN_FREQUENCY, DETECT_QUADRATURE}, std::pair{DOMAIN_TIME, DETECT_DIRECT}}) {
        Spectrum s;
        s.domain = domain;
        s.detectmode = mode;
        s.data.assign(16, 1.0f);
        s.datacount = 16;
        Workspace ws = workspace_with(s);
        RecordingUi ui;
        EXPECT_EQ(SplitComplexData(ws, ui), -1);
        EXPECT_TRUE(ui.saw("Error", "You can only split time domain complex data."));
        EXPECT_EQ(ws.panels[1].active, 0);
    }
}

TEST(Commands, ProcessRefusalsAndTheSplitOfQuadratureData) {
    Workspace empty;
    RecordingUi ui;
    EXPECT_EQ(process_command(empty, ui), -1);
    EXPECT_TRUE(ui.saw("Operator Error", "No Spectrum Chosen"));

    Spectrum f = cosine_transient(64, 3, 1.0);
    f.domain = DOMAIN_FREQUENCY;
    Workspace ws = workspace_with(f);
    EXPECT_EQ(process_command(ws, ui), -1);
    EXPECT_TRUE(ui.saw("Operator Error", "Transform of Frequency Domain\n Spectrum Not Allowed"));

    Spectrum sed = cosine_transient(64, 3, 1.0);
    sed.sed = 1;
    Workspace ws_sed = workspace_with(sed);
    ProcessCommandResult r;
    EXPECT_EQ(process_command(ws_sed, ui, &r), 0);
    EXPECT_TRUE(r.handed_to_phasing);
    EXPECT_EQ(ws_sed.panels[0].spectrum.domain, DOMAIN_TIME);

    Spectrum direct = cosine_transient(64, 3, 1.0);
    Workspace ws_d = workspace_with(direct);
    EXPECT_EQ(process_command(ws_d, ui, &r), 0);
    EXPECT_TRUE(r.processed);
    EXPECT_EQ(r.split_slot, -1);
    EXPECT_EQ(ws_d.panels[0].xmode, XMODE_MZ);
    EXPECT_EQ(ws_d.panels[0].spectrum.domain, DOMAIN_MASS);  // the domain follows the m/z view
    EXPECT_EQ(ws_d.panels[0].firstmasszoom, 0);               // the first jump to m/z was made
    EXPECT_EQ(ws_d.panels[0].spectrum.datacount, 64);  // one zero-fill by default

    Spectrum quad = cosine_transient(64, 3, 1.0);
    quad.detectmode = DETECT_QUADRATURE;
    Workspace ws_q = workspace_with(quad);
    RecordingUi qui;
    EXPECT_EQ(process_command(ws_q, qui, &r), 0);
    EXPECT_EQ(r.split_slot, 1);
    EXPECT_EQ(ws_q.panels[0].spectrum.datacount, 32);
    EXPECT_EQ(ws_q.panels[1].spectrum.datacount, 32);
    EXPECT_EQ(qui.messages.size(), 1u);  // the gain ratio
}

TEST(Commands, ZeroOutChecksTheDomainAndTheMode) {
    RecordingUi ui;
    Spectrum f = cosine_transient(64, 3, 1.0);
    f.domain = DOMAIN_FREQUENCY;
    Workspace wf = workspace_with(f, XMODE_POINT);
    EXPECT_EQ(zero_out_command(wf, 1, 5, ui), -1);
    EXPECT_TRUE(ui.saw("Operator Error", "Zero Out Only Allowed\n for Time Domain Data"));

    Workspace wm = workspace_with(cosine_transient(64, 3, 1.0), XMODE_MZ);
    EXPECT_EQ(zero_out_command(wm, 1, 5, ui), -1);
    EXPECT_TRUE(ui.saw("Operator Error",
                       "Zero Out Only Allowed\n for Data Point / Time Display Data. Current mode = 2"));

    Workspace wp = workspace_with(cosine_transient(64, 0, 1.0), XMODE_POINT);
    EXPECT_EQ(zero_out_command(wp, 10, 4, ui), 0);
    EXPECT_EQ(wp.panels[0].spectrum.data[3], 1.0f);
    EXPECT_EQ(wp.panels[0].spectrum.data[4], 0.0f);
    EXPECT_EQ(wp.panels[0].spectrum.data[9], 0.0f);
    EXPECT_EQ(wp.panels[0].spectrum.data[10], 1.0f);

    // Time mode: milliseconds at 2 x 1 MHz sampling: 0.002 ms is point 4.
    Spectrum t = cosine_transient(64, 0, 1.0);
    t.dbandwidth = 1000000.0;
    Workspace wt = workspace_with(t, XMODE_TIME);
    EXPECT_EQ(zero_out_command(wt, 0.002, 0.004, ui), 0);
    EXPECT_EQ(wt.panels[0].spectrum.data[3], 1.0f);
    EXPECT_EQ(wt.panels[0].spectrum.data[4], 0.0f);
    EXPECT_EQ(wt.panels[0].spectrum.data[7], 0.0f);
    EXPECT_EQ(wt.panels[0].spectrum.data[8], 1.0f);
}

TEST(Commands, ProcessOptionsDialogue) {
    const auto plain = apodization_ring_labels(false);
    EXPECT_EQ(plain, (std::vector<std::string>{"None", "Quarter Sine", "Hamming", "Hann", "Half Hann", "Half Hamming",
                                               "Kaiser"}));
    EXPECT_EQ(apodization_ring_labels(true)[0], "BoxCar");
    EXPECT_EQ(transform_ring_labels(), (std::vector<std::string>{"None", "FFT/Magnitude", "Non-linear/Lomb"}));

    Workspace ws = workspace_with(cosine_transient(256, 3, 1.0));
    ProcessOptionsValues v = process_options_from_settings(ws.settings);
    EXPECT_EQ(v.apodization, APOD_HANN);
    EXPECT_EQ(v.zerofills, 1);
    EXPECT_EQ(v.transform, TRANSFORM_FFT_MAGNITUDE);
    RecordingUi ui;
    v.apodization = 9;
    EXPECT_EQ(process_options_ok(ws, v, true, ui), -1);
    EXPECT_TRUE(ui.saw("Process Options", "Apodization must be 0 to 6."));
    EXPECT_EQ(ws.settings.apodization, APOD_HANN);
    v.apodization = APOD_KAISER;
    v.zerofills = 0;
    v.truncations = 1;
    ProcessCommandResult r;
    EXPECT_EQ(process_options_ok(ws, v, true, ui, &r), 0);
    EXPECT_EQ(ws.settings.apodization, APOD_KAISER);
    EXPECT_TRUE(r.processed);
    EXPECT_EQ(ws.panels[0].spectrum.datacount, 64);
    EXPECT_EQ(ws.panels[0].spectrum.apodization, APOD_KAISER);
}

TEST(ProcessData, HalfWindowsFallFromTheFirstSample) {
    for (int apod : {APOD_HALF_HANN, APOD_HALF_HAMMING}) {
        Spectrum s;
        s.datacount = 8;
        s.data.assign(8, 0.0f);
        s.data[0] = 1.0f;  // after the mean removal: 7/8 at 0, -1/8 elsewhere
        RecordingUi ui;
        ASSERT_EQ(Process_Data(s, options(0, apod, 0, TRANSFORM_NONE), ui), 0);
        const double n = 8;
        for (int i = 0; i < 8; ++i) {
            const double x = i == 0 ? 0.875 : -0.125;
            const double w = apod == APOD_HALF_HANN ? 0.5 * (1 - std::cos((n + i) * 2 * PI / (2 * n - 1)))
                                                    : 0.54 + 0.46 * std::cos(PI * i / (n - 1));
            EXPECT_NEAR(s.data[i], x * w, 1e-6) << apod << " " << i;
        }
        EXPECT_EQ(ui.console, apod == APOD_HALF_HAMMING ? "Half Hamming Apod3\n" : "");
    }
}

TEST(UnevenAnalysis, LombPeriodogramOfSparseSamples) {
    // Every third sample of a sinusoid of period 48 samples holds data.
    Spectrum s;
    s.datacount = 1536;
    s.data.assign(1536, 0.0f);
    for (int i = 0; i < 1536; i += 3) s.data[i] = static_cast<float>(std::sin(2 * PI * i / 48.0) + 0.01 * (i % 7));
    // Through the chain the mean is removed first, which fills every gap.
    Spectrum chained = s;
    RecordingUi cui;
    EXPECT_EQ(Process_Data(chained, options(0, APOD_NONE, 0, TRANSFORM_LOMB), cui), -1);
    EXPECT_TRUE(cui.saw("USD Error", "Nearly every point holds data: these samples are not unevenly spaced."));

    RecordingUi ui;
    const long long count = std::count_if(s.data.begin(), s.data.end(), [](float v) { return std::fabs(v) > 1e-9f; });
    ASSERT_EQ(Uneven_Analysis(s, ui), 0) << (ui.messages.empty() ? std::string() : ui.messages[0].text);
    // hifac = last index / count (whole numbers), np = round(hifac * 8 * count / 2).
    const long long hifac = 1533 / count;
    EXPECT_EQ(s.datacount, static_cast<int>(hifac * 4 * count));
    EXPECT_EQ(s.domain, DOMAIN_MASS);
    EXPECT_EQ(s.xvalues.size(), static_cast<std::size_t>(s.datacount));
    EXPECT_TRUE(std::any_of(ui.messages.begin(), ui.messages.end(),
                            [](const auto& m) { return m.title == "USD Complete" && m.text.rfind("Total Time:  ", 0) == 0; }));
    EXPECT_EQ(ui.console.rfind("Total points:  ", 0), 0u);
    // The strongest line sits at 1/24 cycles per sample: reversed order, with
    // frequencies from 1/(xdif * 8) in steps of the same.
    // Only the first count outputs (the low frequencies, at the end once reversed)
    // are amplitudes; the rest stay powers, aliases at 1/3 -+ 1/48 among them.
    const auto low = s.data.end() - count;
    const auto top = std::max_element(low, s.data.end()) - s.data.begin();
    EXPECT_GT(s.data[static_cast<std::size_t>(top)], 1.0f);
    // Output j holds (j + 1) / (8 * xdif) with xdif = 1533 - 3; 1/48 is j = 254, stored reversed.
    EXPECT_NEAR(static_cast<double>(top), s.datacount - 1 - 254, 1.0);

    Spectrum zero;
    zero.datacount = 64;
    zero.data.assign(64, 0.0f);
    RecordingUi zui;
    EXPECT_EQ(Uneven_Analysis(zero, zui), -1);
    EXPECT_EQ(zui.messages.size(), 1u);
    EXPECT_EQ(zui.messages[0].title, "USD Error");
}

}  // namespace
}  // namespace vx
