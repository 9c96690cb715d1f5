// Co-adding: weights, the lists of the dialogue, stops, and the S/N gain.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "batch/coadd.hpp"
#include "platform/ui.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"
#include "support/instrument_files.hpp"

namespace vx {
namespace {

std::string float_file(const test::TempDir& dir, const std::string& name, const std::vector<float>& v, int expcount) {
    std::vector<std::string> h = {"Vantorix Data File v4.00", fmt::format("expcount: {}", expcount),
                                  fmt::format("Data Points: {}", v.size()), "Storage Type: float",
                                  "Bandwidth: 1000000"};
    return dir.write(name, test::tulva_text(h, test::float_bytes(v)));
}

TEST(Coadd, WeightsByExpcountInFloat) {
    const test::TempDir dir;
    const std::vector<float> a = {1.0f, 2.5f, -3.0f, 0.1f}, b = {0.3f, -1.0f, 7.0f, 0.7f};
    const std::string fa = float_file(dir, "a.dat", a, 4), fb = float_file(dir, "b.dat", b, 6);
    Workspace ws;
    RecordingUi ui;
    CoaddResult r;
    ASSERT_EQ(CoAddTulva(ws, {fa, fb}, CoaddKind::Tulva, r, ui), 0);
    const Spectrum& s = ws.panels[static_cast<std::size_t>(r.slot)].spectrum;
    for (std::size_t i = 0; i < a.size(); ++i) {
        // (4a + 6b) / 10, each step in float as the sum is kept.
        const float want = (a[i] * 4.0f + b[i] * 6.0f) * static_cast<float>(1.0 / 10.0);
        EXPECT_EQ(s.data[i], want) << i;
    }
    EXPECT_EQ(s.expcount, 2);  // files, not experiments
    EXPECT_DOUBLE_EQ(r.total_weight, 10.0);
    EXPECT_EQ(s.title2, "Sum of 2 Files");
    EXPECT_EQ(r.used, (std::vector<std::string>{fa, fb}));
    // Only the result's slot stays in use.
    int active = 0;
    for (const auto& p : ws.panels) active += p.active;
    EXPECT_EQ(active, 1);

    // One good file: its own data, multiplied and divided by its expcount.
    CoaddResult one;
    Workspace ws1;
    ASSERT_EQ(CoAddTulva(ws1, {fb}, CoaddKind::Tulva, one, ui), 0);
    for (std::size_t i = 0; i < b.size(); ++i)
        EXPECT_EQ(ws1.panels[static_cast<std::size_t>(one.slot)].spectrum.data[i],
                  b[i] * 6.0f * static_cast<float>(1.0 / 6.0));
}

TEST(Coadd, FailedFilesStopsAndLimits) {
    const test::TempDir dir;
    const std::string good1 = float_file(dir, "g1.dat", {1, 1, 1, 1}, 1);
    const std::string good2 = float_file(dir, "g2.dat", {3, 3, 3, 3}, 1);
    const std::string shorter = float_file(dir, "s.dat", {9, 9}, 1);
    const std::string garbage = dir.write("x.dat", "garbage");
    const std::string missing = dir.file("missing.dat");
    {
        // A bad first file does not stop the run: the next becomes the base.
        Workspace ws;
        RecordingUi ui;
        CoaddResult r;
        ASSERT_EQ(CoAddTulva(ws, {garbage, good1, shorter, missing, good2}, CoaddKind::Tulva, r, ui), 0);
        EXPECT_EQ(r.used, (std::vector<std::string>{good1, good2}));
        EXPECT_EQ(r.failed, (std::vector<std::string>{garbage, shorter, missing}));
        EXPECT_EQ(ws.panels[static_cast<std::size_t>(r.slot)].spectrum.data, (std::vector<float>{2, 2, 2, 2}));
    }
    {
        // Every file fails: a message, no slot kept.
        Workspace ws;
        RecordingUi ui;
        CoaddResult r;
        EXPECT_EQ(CoAddTulva(ws, {garbage, missing}, CoaddKind::Tulva, r, ui), -1);
        EXPECT_TRUE(ui.saw("Warning", "None of the files could be read: nothing was added."));
        for (const auto& p : ws.panels) EXPECT_EQ(p.active, 0);
    }
    {
        // Stopped after the second file: the sum of those used, scaled by their total.
        Workspace ws;
        RecordingUi ui;
        CoaddResult r;
        CoaddProgress prog;
        int seen = 0;
        prog.update = [&](int done, int, const CoaddResult&) { seen = done; };
        prog.stop_requested = [&] { return seen >= 2; };
        ASSERT_EQ(CoAddTulva(ws, {good1, good2, good2, good2}, CoaddKind::Tulva, r, ui, prog), 0);
        EXPECT_TRUE(r.stopped);
        EXPECT_EQ(r.used.size(), 2u);
        EXPECT_EQ(ws.panels[static_cast<std::size_t>(r.slot)].spectrum.data, (std::vector<float>{2, 2, 2, 2}));
    }
    {
        // Two slots must be free.
        Workspace ws;
        for (int i = 0; i < MAX_PANELS - 1; ++i) ws.panels[static_cast<std::size_t>(i)].active = 1;
        RecordingUi ui;
        CoaddResult r;
        EXPECT_EQ(CoAddTulva(ws, {good1, good2}, CoaddKind::Tulva, r, ui), -1);
        EXPECT_TRUE(ui.saw("Warning", "Too many files open, close some files and reload."));
        EXPECT_EQ(ws.panels[MAX_PANELS - 1].active, 0);
    }
    {
        // Forty files run in two slots.
        Workspace ws;
        RecordingUi ui;
        CoaddResult r;
        std::vector<std::string> many(40, good2);
        ASSERT_EQ(CoAddTulva(ws, many, CoaddKind::Tulva, r, ui), 0);
        EXPECT_EQ(r.expcount, 40);
        EXPECT_EQ(ws.panels[static_cast<std::size_t>(r.slot)].spectrum.data, (std::vector<float>{3, 3, 3, 3}));
    }
}

TEST(Coadd, OdysseyAndVoskSums) {
    const test::TempDir dir;
    test::OdysseyFile f;
    f.samples = {2, 4, 6};
    const std::string o1 = dir.write("1.ody", test::odyssey_bytes(f));
    f.samples = {4, 8, 12};
    const std::string o2 = dir.write("2.ody", test::odyssey_bytes(f));
    Workspace ws;
    RecordingUi ui;
    CoaddResult r;
    ASSERT_EQ(CoAddTulva(ws, {o1, o2}, CoaddKind::Odyssey, r, ui), 0);
    EXPECT_EQ(ws.panels[static_cast<std::size_t>(r.slot)].spectrum.data, (std::vector<float>{3, 6, 9}));
    EXPECT_DOUBLE_EQ(r.total_weight, 2.0);
    EXPECT_EQ(ws.panels[static_cast<std::size_t>(r.slot)].spectrum.filetype, FILETYPE_ODYSSEY);

    const std::string v1 = dir.write("1.vosk", test::vosk_bytes({1, 2, 3}, 1e-6f, 5, 5));
    const std::string v2 = dir.write("2.vosk", test::vosk_bytes({3, 4, 5}, 1e-6f, 5, 5));
    Spectrum s;
    ASSERT_EQ(Coadd_Vosk_Data({v1, v2}, s, {0, VOSK_WORKING_CHANNEL}, ui), 0);
    EXPECT_EQ(s.data, (std::vector<float>{2, 3, 4}));
    EXPECT_EQ(Coadd_Vosk_Data({v1, dir.file("none")}, s, {0, VOSK_WORKING_CHANNEL}, ui), -1);
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.empty() ? 0.0 : v[v.size() / 2];
}

// Peaks of a data file as (m/z, abundance, S/N).
std::vector<std::array<double, 3>> peaks_of(const test::TempDir& dir, const std::string& file) {
    auto r = test::run_cli(dir.path().string(), fmt::format("peaks {0} -o {0}.pks --json --sn --robust-noise", file));
    EXPECT_EQ(r.status, 0) << r.err;
    std::vector<std::array<double, 3>> out;
    const auto j = nlohmann::json::parse(r.out, nullptr, false);
    if (!j.is_object()) return out;
    for (const auto& p : j["peaks"])
        out.push_back({p["mz"].get<double>(), p["abundance"].get<double>(), p["sn"].get<double>()});
    return out;
}

// Gains of the ion peaks of sum over base: median S/N ratio and median height ratio.
std::pair<double, double> gains(const std::vector<std::array<double, 3>>& base,
                                const std::vector<std::array<double, 3>>& sum, const std::vector<double>& ions) {
    std::vector<double> sn, h;
    for (double mz : ions) {
        auto near = [mz](const std::vector<std::array<double, 3>>& list) -> const std::array<double, 3>* {
            for (const auto& p : list)
                if (std::abs(p[0] - mz) < 0.05) return &p;
            return nullptr;
        };
        const auto* a = near(base);
        const auto* b = near(sum);
        if (a && b && a[0][2] > 0) {
            sn.push_back(b[0][2] / a[0][2]);
            h.push_back(b[0][1] / a[0][1]);
        }
    }
    EXPECT_EQ(sn.size(), ions.size());
    return {median(sn), median(h)};
}

TEST(Coadd, SignalToNoiseGrowsAsTheRootOfTheFiles) {
    const test::TempDir dir;
    const std::vector<double> ions = {400.2, 500.3, 650.4, 800.5, 950.6};
    std::string list;
    for (double m : ions) list += std::to_string(m) + ", 0.01\n";
    const std::string ion_file = dir.write("ions.csv", list);
    auto simulate = [&](const std::string& out, int seed, double noise, int expcount) {
        auto r = test::run_cli(dir.path().string(),
                               fmt::format("simulate {} -o {} --points 65536 --storage float --date 2026-11-23 "
                                           "--noise {} --seed {} --expcount {}",
                                           ion_file, dir.file(out), noise, seed, expcount));
        ASSERT_EQ(r.status, 0) << r.err;
    };
    // Noise well above the leakage of the undamped ions, so the noise
    // estimate measures the noise; heights are compared with a clean file.
    const double noise = 0.02;
    simulate("s1.dat", 1, noise, 1);
    simulate("clean.dat", 1, 0.0, 1);
    const auto base = peaks_of(dir, dir.file("s1.dat"));
    const auto clean = peaks_of(dir, dir.file("clean.dat"));
    for (int n : {4, 16}) {
        std::string files;
        for (int k = 1; k <= n; ++k) {
            const std::string name = fmt::format("s{}.dat", k);
            if (k > 1 && n == 4) simulate(name, k, noise, 1);
            else if (k > 4) simulate(name, k, noise, 1);
            files += fmt::format(" {}", dir.file(name));
        }
        const std::string sum = dir.file(fmt::format("sum{}.dat", n));
        auto r = test::run_cli(dir.path().string(), fmt::format("coadd{} -o {} --json", files, sum));
        ASSERT_EQ(r.status, 0) << r.err;
        const auto j = nlohmann::json::parse(r.out);
        EXPECT_EQ(j["expcount"], n);
        EXPECT_EQ(j["total_weight"], n);
        const auto summed = peaks_of(dir, sum);
        EXPECT_NEAR(gains(base, summed, ions).first, std::sqrt(n), 0.1 * std::sqrt(n)) << n;
        EXPECT_NEAR(gains(clean, summed, ions).second, 1.0, 0.01) << n;
    }
    // One seed four times: nothing gained.
    {
        const std::string f = dir.file("s1.dat");
        auto r = test::run_cli(dir.path().string(), fmt::format("coadd {0} {0} {0} {0} -o {1}", f, dir.file("same.dat")));
        ASSERT_EQ(r.status, 0) << r.err;
        const auto [sn, h] = gains(base, peaks_of(dir, dir.file("same.dat")), ions);
        EXPECT_NEAR(sn, 1.0, 0.01);
        EXPECT_NEAR(h, 1.0, 0.01);
    }
    // A file of three experiments (noise / sqrt 3) and one of one: sqrt(4).
    {
        simulate("e3.dat", 101, noise / std::sqrt(3.0), 3);
        auto r = test::run_cli(dir.path().string(), fmt::format("coadd {} {} -o {} --json", dir.file("e3.dat"),
                                                                dir.file("s1.dat"), dir.file("e4.dat")));
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(nlohmann::json::parse(r.out)["total_weight"], 4);
        const auto summed = peaks_of(dir, dir.file("e4.dat"));
        EXPECT_NEAR(gains(base, summed, ions).first, 2.0, 0.2);
        EXPECT_NEAR(gains(clean, summed, ions).second, 1.0, 0.01);
    }
}

}  // namespace
}  // namespace vx
