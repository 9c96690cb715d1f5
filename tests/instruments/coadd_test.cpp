// Co-adding: weights, the lists of the dialogue, stops, and the S/N gain.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <iostream>

#include <fmt/format.h>

#include <random>

#include "batch/coadd.hpp"
#include "formats/tulva_reader.hpp"
#include "formats/tulva_writer.hpp"
#include "platform/ui.hpp"
#include "workspace/processing.hpp"
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

// A two-channel file of the given generation: block 1, "SED Data:", block 2.
std::string sed_file(const test::TempDir& dir, const std::string& name, const std::vector<float>& c1,
                     const std::vector<float>& c2, const std::string& signature = "Vantorix Data File v4.00") {
    std::vector<std::string> h = {signature, "expcount: 5", "Collection Mode: SED",
                                  fmt::format("Data Points: {}", c1.size()), "Storage Type: float",
                                  "Bandwidth: 1000000"};
    return dir.write(name, test::tulva_text(h, test::float_bytes(c1) + "\nSED Data:\n" + test::float_bytes(c2)));
}

// A two-channel file of complex frequency data (double storage).
std::string complex_file(const test::TempDir& dir, const std::string& name, const std::vector<double>& re,
                         const std::vector<double>& im) {
    std::vector<std::string> h = {"Vantorix Data File v4.00", "Collection Mode: SED",
                                  fmt::format("Data Points: {}", re.size()), "Storage Type: double",
                                  "Bandwidth: 1000000", "DOMAIN= 1"};
    return dir.write(name, test::tulva_text(h, test::double_bytes(re) + "\nSED Data:\n" + test::double_bytes(im)));
}

int occupied(const Workspace& ws) {
    int n = 0;
    for (const auto& p : ws.panels) n += p.active;
    return n;
}

TEST(CoaddSed, EachChannelSummedApartWithWeightOne) {
    const test::TempDir dir;
    const std::vector<float> a1 = {1.0f, 2.5f, -3.0f, 0.1f}, a2 = {0.3f, -1.0f, 7.0f, 0.7f};
    const std::vector<float> b1 = {4.0f, 0.5f, 1.0f, -0.2f}, b2 = {-2.0f, 3.0f, 0.25f, 9.0f};
    const std::string fa = sed_file(dir, "a.dat", a1, a2), fb = sed_file(dir, "b.dat", b1, b2, "TULVA Data File v3.00");
    const std::string plain = float_file(dir, "plain.dat", {1, 1, 1, 1}, 1);
    const std::string shorter = sed_file(dir, "short.dat", {1, 1}, {1, 1});
    Workspace ws;
    RecordingUi ui;
    CoaddResult r;
    ASSERT_EQ(CoAddTulvaSED(ws, {fa, plain, fb, shorter}, r, ui), 0);
    EXPECT_EQ(r.used, (std::vector<std::string>{fa, fb}));
    EXPECT_EQ(r.failed, (std::vector<std::string>{plain, shorter}));
    ASSERT_GE(r.second_slot, 0);
    const Spectrum& c1 = ws.panels[static_cast<std::size_t>(r.slot)].spectrum;
    const Spectrum& c2 = ws.panels[static_cast<std::size_t>(r.second_slot)].spectrum;
    const float half = static_cast<float>(1.0 / 2.0);
    for (std::size_t i = 0; i < a1.size(); ++i) {
        // Weight 1 whatever expcount says, scaled by 1 / n in float.
        EXPECT_EQ(c1.data[i], (a1[i] + b1[i]) * half) << i;
        EXPECT_EQ(c2.data[i], (a2[i] + b2[i]) * half) << i;
    }
    for (const Spectrum* s : {&c1, &c2}) {
        EXPECT_EQ(s->sed, 1);
        EXPECT_EQ(s->expcount, 2);
        EXPECT_EQ(s->title2, "Sum of 2 Files");
        EXPECT_EQ(s->domain, DOMAIN_TIME);
    }
    EXPECT_DOUBLE_EQ(r.total_weight, 2.0);
    // The channel globals name the result; only its two slots stay in use.
    EXPECT_EQ(ws.phased_data, r.slot);
    EXPECT_EQ(ws.sed_second_panel, r.second_slot);
    EXPECT_EQ(ws.active_panel, r.slot);
    EXPECT_EQ(occupied(ws), 2);

    // Written as a two-channel file that reads back into two slots, channel for channel.
    const std::string out = dir.file("sum.dat");
    ASSERT_EQ(save_sed_channels(ws, out, r.slot, r.second_slot, ui), 0);
    Workspace back;
    back.active_panel = 0;
    back.panels[0].active = 1;
    ASSERT_EQ(Get_Tulva_Data(back, out, back.panels[0].spectrum, ui), 0);
    ASSERT_EQ(back.sed_second_panel, 1);
    EXPECT_EQ(back.panels[0].spectrum.data, c1.data);
    EXPECT_EQ(back.panels[1].spectrum.data, c2.data);
    EXPECT_EQ(back.panels[0].spectrum.expcount, 2);
    // Never over the file it was made from.
    EXPECT_EQ(save_sed_channels(ws, fa, r.slot, r.second_slot, ui), -1);
}

TEST(CoaddSed, SlotsAreGivenBackSoLongListsRun) {
    const test::TempDir dir;
    const std::string f = sed_file(dir, "f.dat", {3, 3, 3}, {-1, -1, -1});
    {
        // Forty files: more than the table could hold if every file kept its two slots.
        Workspace ws;
        RecordingUi ui;
        CoaddResult r;
        ASSERT_EQ(CoAddTulvaSED(ws, std::vector<std::string>(40, f), r, ui), 0);
        EXPECT_EQ(r.expcount, 40);
        EXPECT_EQ(ws.panels[static_cast<std::size_t>(r.slot)].spectrum.data, (std::vector<float>{3, 3, 3}));
        EXPECT_EQ(ws.panels[static_cast<std::size_t>(r.second_slot)].spectrum.data, (std::vector<float>{-1, -1, -1}));
        EXPECT_EQ(occupied(ws), 2);
    }
    {
        // Four slots must be free.
        Workspace ws;
        for (int i = 0; i < MAX_PANELS - 3; ++i) ws.panels[static_cast<std::size_t>(i)].active = 1;
        RecordingUi ui;
        CoaddResult r;
        EXPECT_EQ(CoAddTulvaSED(ws, {f, f}, r, ui), -1);
        EXPECT_TRUE(ui.saw("Warning", "Too many files open, close some files and reload."));
        EXPECT_EQ(occupied(ws), MAX_PANELS - 3);
    }
    {
        // Nothing two-channel in the list: a message, nothing kept.
        Workspace ws;
        RecordingUi ui;
        CoaddResult r;
        EXPECT_EQ(CoAddTulvaSEDFTD(ws, {float_file(dir, "one.dat", {1, 2}, 1), dir.write("g.dat", "garbage")}, r, ui), -1);
        EXPECT_TRUE(ui.saw("Warning", "None of the files could be read: nothing was added."));
        EXPECT_EQ(occupied(ws), 0);
    }
    {
        // Stopped after the first file: the sum of what was used.
        Workspace ws;
        RecordingUi ui;
        CoaddResult r;
        CoaddProgress prog;
        prog.stop_requested = [] { return true; };
        ASSERT_EQ(CoAddTulvaSED(ws, {f, f, f}, r, ui, prog), 0);
        EXPECT_TRUE(r.stopped);
        EXPECT_EQ(r.used.size(), 1u);
    }
}

TEST(CoaddSed, ComplexFrequencyFilesSumInDouble) {
    const test::TempDir dir;
    const std::vector<double> r1 = {1.0 / 3.0, 2.0, -5.0}, i1 = {0.5, -0.25, 1e-9};
    const std::vector<double> r2 = {1.0 / 7.0, 4.0, 1.0}, i2 = {1.5, 0.75, 3e-9};
    const std::string f1 = complex_file(dir, "1.dat", r1, i1), f2 = complex_file(dir, "2.dat", r2, i2);
    const std::string time = sed_file(dir, "t.dat", {1, 2, 3}, {4, 5, 6});
    Workspace ws;
    RecordingUi ui;
    CoaddResult r;
    ASSERT_EQ(CoAddTulvaSEDFTD(ws, {f1, time, f2}, r, ui), 0);
    // A time-domain pair is transformed into another kind of record: not added.
    EXPECT_EQ(r.failed, (std::vector<std::string>{time}));
    const Spectrum& c1 = ws.panels[static_cast<std::size_t>(r.slot)].spectrum;
    const Spectrum& c2 = ws.panels[static_cast<std::size_t>(r.second_slot)].spectrum;
    ASSERT_EQ(c1.realdata64.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_DOUBLE_EQ(c1.realdata64[i], (r1[i] + r2[i]) * 0.5) << i;
        EXPECT_DOUBLE_EQ(c1.imagdata64[i], (i1[i] + i2[i]) * 0.5) << i;
        EXPECT_FLOAT_EQ(c2.data[i], static_cast<float>((i1[i] + i2[i]) * 0.5)) << i;
    }
    EXPECT_EQ(c1.domain, DOMAIN_FREQUENCY);
    EXPECT_EQ(ws.sed_mode, 0);
    EXPECT_EQ(occupied(ws), 2);

    // The double blocks go to a file that reads back to the same doubles and domain.
    const std::string out = dir.file("sum.ftd");
    ASSERT_EQ(save_sed_channels(ws, out, r.slot, r.second_slot, ui), 0);
    Workspace back;
    back.active_panel = 0;
    back.panels[0].active = 1;
    ASSERT_EQ(Get_Tulva_Data(back, out, back.panels[0].spectrum, ui), 0);
    EXPECT_EQ(back.panels[0].spectrum.realdata64, c1.realdata64);
    EXPECT_EQ(back.panels[0].spectrum.imagdata64, c1.imagdata64);
    EXPECT_EQ(back.panels[0].spectrum.domain, DOMAIN_FREQUENCY);
}

// Noise-only two-channel transients, seeds 1..n.
std::vector<std::string> noise_files(const test::TempDir& dir, int n, std::size_t points) {
    std::vector<std::string> out;
    for (int k = 1; k <= n; ++k) {
        std::mt19937 gen(static_cast<unsigned>(k));
        std::normal_distribution<float> g(0.0f, 1.0f);
        std::vector<float> c1(points), c2(points);
        for (auto& x : c1) x = g(gen);
        for (auto& x : c2) x = g(gen);
        out.push_back(sed_file(dir, fmt::format("n{}.dat", k), c1, c2));
    }
    return out;
}

double mean_of(const std::vector<float>& v) {
    double s = 0.0;
    for (float x : v) s += x;
    return v.empty() ? 0.0 : s / static_cast<double>(v.size());
}

// What the transformed form sums are magnitude spectra: their noise floor
// keeps its mean, where a sum of the transients and one transform lowers it
// by sqrt(n). The first is the command as it has always worked; the second is
// the co-add to use for S/N.
TEST(CoaddSed, TransformedSumKeepsTheNoiseFloorWhereTheTransientSumLowersIt) {
    const test::TempDir dir;
    const int n = 16;
    const auto files = noise_files(dir, n, 4096);
    RecordingUi ui;
    Workspace one_ws;
    CoaddResult one;
    ASSERT_EQ(CoAddTulvaSEDFTD(one_ws, {files[0]}, one, ui), 0);
    const double floor1 = mean_of(one_ws.panels[static_cast<std::size_t>(one.slot)].spectrum.data);

    Workspace ftd_ws;
    CoaddResult ftd;
    ASSERT_EQ(CoAddTulvaSEDFTD(ftd_ws, files, ftd, ui), 0);
    const Spectrum& spectra = ftd_ws.panels[static_cast<std::size_t>(ftd.slot)].spectrum;
    EXPECT_EQ(spectra.domain, DOMAIN_FREQUENCY);
    EXPECT_NEAR(mean_of(spectra.data) / floor1, 1.0, 0.05);

    Workspace sed_ws;
    CoaddResult sed;
    ASSERT_EQ(CoAddTulvaSED(sed_ws, files, sed, ui), 0);
    Spectrum& transient = sed_ws.panels[static_cast<std::size_t>(sed.slot)].spectrum;
    ASSERT_EQ(Process_Data(transient, sed_ws.settings, ui), 0);
    EXPECT_NEAR(mean_of(transient.data) / floor1, 1.0 / std::sqrt(static_cast<double>(n)), 0.03);
}

TEST(CoaddSed, SimulatedTwoChannelFilesThroughTheCommandLine) {
    const test::TempDir dir;
    const std::string ions = dir.write("ions.csv", "500.3, 0.01\n");
    for (int k = 1; k <= 3; ++k) {
        auto r = test::run_cli(dir.path().string(),
                               fmt::format("simulate {} -o {} --sed --points 4096 --storage float --noise {} --seed {} "
                                           "--date 2026-11-24",
                                           ions, dir.file(fmt::format("s{}.dat", k)), k == 3 ? 0.0 : 0.001, k));
        ASSERT_EQ(r.status, 0) << r.err;
    }
    // The noise-free file: the second channel is the first a quarter turn on,
    // so the two together hold a constant envelope for an undamped ion.
    {
        Workspace ws;
        RecordingUi ui;
        ws.active_panel = 0;
        ws.panels[0].active = 1;
        ASSERT_EQ(Get_Tulva_Data(ws, dir.file("s3.dat"), ws.panels[0].spectrum, ui), 0);
        ASSERT_EQ(ws.sed_second_panel, 1);
        const auto& c1 = ws.panels[0].spectrum.data;
        const auto& c2 = ws.panels[1].spectrum.data;
        ASSERT_EQ(c1.size(), 4096u);
        ASSERT_EQ(c2.size(), 4096u);
        for (std::size_t i = 0; i < c1.size(); i += 97) EXPECT_NEAR(std::hypot(c1[i], c2[i]), 0.01, 1e-5) << i;
    }
    const std::string files = fmt::format("{} {} {}", dir.file("s1.dat"), dir.file("s2.dat"), dir.file("s3.dat"));
    auto r = test::run_cli(dir.path().string(), fmt::format("coadd --sed {} -o {} --json", files, dir.file("sum.dat")));
    ASSERT_EQ(r.status, 0) << r.err;
    auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["expcount"], 3);
    EXPECT_EQ(j["total_weight"], 3);
    EXPECT_EQ(j["title2"], "Sum of 3 Files");
    EXPECT_TRUE(j.contains("channel2"));
    // The written sum is itself a two-channel file that co-adds again.
    r = test::run_cli(dir.path().string(), fmt::format("coadd --sed {0} {0} --json", dir.file("sum.dat")));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(nlohmann::json::parse(r.out)["used"].size(), 2u);

    r = test::run_cli(dir.path().string(), fmt::format("coadd --sed-ftd {} -o {} --json", files, dir.file("ftd.dat")));
    ASSERT_EQ(r.status, 0) << r.err;
    j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["spectrum"]["header"]["domain"], DOMAIN_FREQUENCY);
    r = test::run_cli(dir.path().string(), fmt::format("info {} --json", dir.file("ftd.dat")));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(nlohmann::json::parse(r.out)["header"]["domain"], DOMAIN_FREQUENCY);

    // Plain files are no two-channel files; every one fails with a message.
    r = test::run_cli(dir.path().string(), fmt::format("coadd --sed {} -o {}", dir.file("ions.csv"), dir.file("x.dat")));
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("None of the files could be read"), std::string::npos) << r.err;
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
    int simulated = 1;  // seeds written so far; each list reuses the files of the last
    for (int n : {4, 16, 64}) {
        std::string files;
        for (int k = 1; k <= n; ++k) {
            const std::string name = fmt::format("s{}.dat", k);
            if (k > simulated) simulate(name, k, noise, 1);
            files += fmt::format(" {}", dir.file(name));
        }
        simulated = n;
        const std::string sum = dir.file(fmt::format("sum{}.dat", n));
        auto r = test::run_cli(dir.path().string(), fmt::format("coadd{} -o {} --json", files, sum));
        ASSERT_EQ(r.status, 0) << r.err;
        const auto j = nlohmann::json::parse(r.out);
        EXPECT_EQ(j["expcount"], n);
        EXPECT_EQ(j["total_weight"], n);
        const auto summed = peaks_of(dir, sum);
        const double sn_gain = gains(base, summed, ions).first, height = gains(clean, summed, ions).second;
        std::cout << fmt::format("N = {}: median S/N gain {:.3f} (sqrt N = {:.3f}), height ratio {:.4f}\n", n,
                                 sn_gain, std::sqrt(n), height);
        EXPECT_NEAR(sn_gain, std::sqrt(n), 0.1 * std::sqrt(n)) << n;
        EXPECT_NEAR(height, 1.0, 0.01) << n;
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
