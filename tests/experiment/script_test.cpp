// The experiment script reader: random trees written as scripts and read back
// field for field, the version and digitizer rules, waveform memory, the label
// sections, damaged scripts, and the command line on a simulated transient.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <fmt/printf.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "experiment/script.hpp"
#include "platform/ui.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"
#include "workspace/workspace.hpp"

namespace vx {
namespace {

using test::TempDir;

// ---------------------------------------------------------------------------
// Random trees and the scripts that state them.

class TreeWriter {
public:
    explicit TreeWriter(unsigned seed) : rng_(seed) {}

    bool coin(double p = 0.5) { return std::uniform_real_distribution<double>(0, 1)(rng_) < p; }
    int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }
    double real(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng_); }

    std::string word() {
        static const char* letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_";
        std::string w = "W";
        const int n = pick(1, 12);
        for (int i = 0; i < n; ++i) w += letters[pick(0, 62)];
        if (coin(0.2)) {
            w += ' ';
            w += std::to_string(pick(0, 99));
        }
        return w;
    }

    // The key in a random mix of cases.
    std::string key(const std::string& k) {
        std::string out = k;
        for (auto& c : out)
            if (coin()) c = static_cast<char>(coin() ? std::toupper(static_cast<unsigned char>(c))
                                                      : std::tolower(static_cast<unsigned char>(c)));
        return out;
    }

    Experiment tree(bool data_file) {
        Experiment ex;
        ex.name = word();
        ex.expcount = pick(1, 20);
        ex.version = data_file ? 4.0 : 0.0;
        const int nloops = pick(1, 3);
        for (int l = 0; l < nloops; ++l) {
            Loop loop{word(), pick(1, 50), {}};
            const int ntables = pick(1, 3);
            for (int t = 0; t < ntables; ++t) {
                Table table{word(), pick(1, 9), {}};
                const int nevents = pick(1, 4);
                for (int e = 0; e < nevents; ++e) table.events.push_back(event());
                loop.tables.push_back(std::move(table));
            }
            ex.loops.push_back(std::move(loop));
        }
        if (data_file) {
            for (int i = 0; i < 15; ++i) ex.voltage_labels.push_back(word());
            for (int i = 0; i < 24; ++i) ex.trigger_labels.push_back(word());
        }
        return ex;
    }

    Event event() {
        Event ev;
        ev.label = word();
        ev.time = real(0.0, 2.0);
        ev.disabled = coin(0.2);
        for (int i = 0; i < SCRIPT_TRIGGERS; ++i)
            if (coin(0.2)) ev.trig[static_cast<std::size_t>(i)] = pick(0, 255);
        for (int i = 0; i < SCRIPT_VOLTAGES; ++i)
            if (coin(0.2)) ev.volt[static_cast<std::size_t>(i)] = real(-200.0, 200.0);
        if (coin(0.4)) {
            Detect d;
            if (coin(0.7)) d.dmode = pick(0, 2);
            if (coin(0.7)) d.dreferencefreq = real(0, 1e6);
            if (coin(0.7)) d.damplitude = static_cast<float>(real(0, 10));
            if (coin(0.7)) d.dhpamplitude = pick(0, 15);
            if (coin(0.7)) d.dfilter = pick(1000, 5000000);
            if (coin(0.7)) d.dbandwidth = real(1e4, 5e6);
            if (coin(0.7)) d.dhpbandwidth = pick(0, 10);
            const bool count = coin(0.7);
            if (count) d.datacount = pick(1, 1 << 24);
            // The event lasts as long as its data; without a count line the
            // default count at the default bandwidth stands.
            ev.time = count ? static_cast<double>(d.datacount) / (2.0 * d.dbandwidth) : 4096.0 / 1000000.0;
            if (coin(0.7)) d.datafile = word() + ".dat";
            ev.detect = d;
        }
        if (coin(0.4)) {
            Excite x;
            if (coin(0.7)) x.emode = pick(0, 3);
            if (coin(0.7)) x.elength = real(0, 0.1);
            if (coin(0.7)) x.eswiftfile_name = word() + ".swf";
            if (coin(0.7)) x.eamplitude = static_cast<float>(real(0, 10));
            if (coin(0.7)) x.efilter = real(0, 1e6);
            if (coin(0.7)) x.lowfreq = real(0, 2e5);
            if (coin(0.7)) x.highfreq = real(2e5, 3e6);
            if (coin(0.7)) x.sweeprate = static_cast<float>(real(10, 5000));
            if (coin(0.7)) x.clockrate = real(1e6, 5e7);
            if (coin(0.7)) x.loops = pick(1, 255);
            if (coin(0.7)) x.msms_datacount = pick(1, 1 << 20);
            if (coin(0.7)) x.msms_bandwidth = real(1e5, 5e6);
            if (coin(0.7)) x.msms_cutoff = real(0, 1e6);
            ev.excite = x;
        }
        return ev;
    }

    // The script of a tree, keys in random case and order, optional keys left
    // out when they hold their defaults.
    std::string script(const Experiment& ex, bool data_file) {
        std::string s;
        auto line = [&s](const std::string& l) { s += l + "\n"; };
        if (data_file) {
            line("Vantorix Data File v4.00");
            line("Begin Experiment Sequence");
        } else {
            line("TULVA Experiment Sequence");
        }
        line(key("expcount:") + " " + std::to_string(ex.expcount));
        line(key("experiment:") + " " + ex.name);
        for (const auto& l : ex.loops) line(l.name + ": " + std::to_string(l.repeat));
        line(key("endexperiment:"));
        for (const auto& l : ex.loops) {
            line(key("loop:") + " " + l.name);
            for (const auto& t : l.tables) line(t.name + ": " + std::to_string(t.repeat));
            line(key("endloop:"));
        }
        for (const auto& l : ex.loops)
            for (const auto& t : l.tables) {
                line(key("table:") + " " + t.name);
                for (const auto& e : t.events) line(e.label);
                line(key("endtable:"));
            }
        for (const auto& l : ex.loops)
            for (const auto& t : l.tables)
                for (const auto& e : t.events) s += block(e);
        if (data_file) {
            line("[Voltage Labels]");
            for (int i = 0; i < 14; ++i) line(fmt::format("Voltage {}: \"{}\"", i + 1, ex.voltage_labels[i]));
            line(fmt::format("Trap DAC: \"{}\"", ex.voltage_labels[14]));
            line("[Trigger Labels]");
            for (int i = 0; i < 24; ++i) line(fmt::format("Trigger {}: \"{}\"", i + 1, ex.trigger_labels[i]));
            line("Digitizer: NI_DIGITIZER");
            line("Data:");
            s += "\x01\x02label: Binary\nendevent:\n";
        }
        return s;
    }

    std::string block(const Event& e) {
        std::vector<std::string> general;
        // The block's own label loses to the table row's.
        if (coin()) general.push_back(key("label:") + " " + word());
        if (e.disabled) general.push_back(key("disabled event"));
        for (int i = 0; i < SCRIPT_TRIGGERS; ++i)
            if (e.trig[static_cast<std::size_t>(i)] != 0)
                general.push_back(fmt::format("{} {} {}", key("trig:"), i + 1, e.trig[static_cast<std::size_t>(i)]));
        for (int i = 0; i < SCRIPT_VOLTAGES; ++i)
            if (e.volt[static_cast<std::size_t>(i)] != 0.0)
                general.push_back(fmt::format("{} {} {:.17g}", key("volt:"), i + 1, e.volt[static_cast<std::size_t>(i)]));
        std::vector<std::vector<std::string>> groups;
        if (e.detect) {
            const Detect& d = *e.detect;
            const Detect def;
            static const char* dmodes[] = {"direct", "aheterodyne", "dheterodyne"};
            std::vector<std::string> g;
            if (d.dmode != def.dmode || coin()) g.push_back(key("dmode:") + " " + dmodes[d.dmode]);
            if (d.dreferencefreq != def.dreferencefreq) g.push_back(fmt::format("{} {:.17g}", key("dreferencefreq:"), d.dreferencefreq));
            if (d.damplitude != def.damplitude) g.push_back(fmt::format("{} {:.9g}", key("damplitude:"), d.damplitude));
            if (d.dhpamplitude != def.dhpamplitude) g.push_back(fmt::format("{} {}", key("dhpamplitude:"), d.dhpamplitude));
            if (d.dfilter != def.dfilter) g.push_back(fmt::format("{} {:.0f}", key("dfilter:"), d.dfilter));
            if (d.dbandwidth != def.dbandwidth) g.push_back(fmt::format("{} {:.17g}", key("dbandwidth:"), d.dbandwidth));
            if (d.dhpbandwidth != def.dhpbandwidth) g.push_back(fmt::format("{} {}", key("dhpbandwidth:"), d.dhpbandwidth));
            if (!d.datafile.empty()) g.push_back(key("datafile:") + " " + d.datafile);
            std::shuffle(g.begin(), g.end(), rng_);
            g.insert(g.begin(), key("detect:"));
            if (d.datacount != def.datacount || e.time != 4096.0 / 1000000.0)
                g.push_back(fmt::format("{} {}", key("datacount:"), d.datacount));
            groups.push_back(std::move(g));
        }
        if (e.excite) {
            const Excite& x = *e.excite;
            const Excite def;
            static const char* emodes[] = {"chirp", "swift", "single_freq", "msms"};
            std::vector<std::string> g;
            if (x.emode != def.emode || coin()) g.push_back(key("emode:") + " " + emodes[x.emode]);
            if (x.elength != def.elength) g.push_back(fmt::format("{} {:.17g}", key("elength:"), x.elength));
            if (!x.eswiftfile_name.empty()) g.push_back(key("eswiftfile_name:") + " " + x.eswiftfile_name);
            if (x.eamplitude != def.eamplitude) g.push_back(fmt::format("{} {:.9g}", key("eamplitude:"), x.eamplitude));
            if (x.efilter != def.efilter) g.push_back(fmt::format("{} {:.17g}", key("efilter:"), x.efilter));
            if (x.lowfreq != def.lowfreq) g.push_back(fmt::format("{} {:.17g}", key("lowfreq:"), x.lowfreq));
            if (x.highfreq != def.highfreq)
                g.push_back(fmt::format("{} {:.17g}", key(coin() ? "highfreq:" : "hifreq:"), x.highfreq));
            if (x.sweeprate != def.sweeprate) g.push_back(fmt::format("{} {:.9g}", key("sweeprate:"), x.sweeprate));
            if (x.clockrate != def.clockrate) g.push_back(fmt::format("{} {:.17g}", key("clockrate:"), x.clockrate));
            if (x.loops != def.loops || coin()) g.push_back(fmt::format("{} {}", key("loops:"), x.loops));
            if (x.msms_datacount != def.msms_datacount) g.push_back(fmt::format("{} {}", key("msms_datacount:"), x.msms_datacount));
            if (x.msms_bandwidth != def.msms_bandwidth) g.push_back(fmt::format("{} {:.17g}", key("msms_bandwidth:"), x.msms_bandwidth));
            if (x.msms_cutoff != def.msms_cutoff) g.push_back(fmt::format("{} {:.17g}", key("msms_cutoff:"), x.msms_cutoff));
            std::shuffle(g.begin(), g.end(), rng_);
            g.insert(g.begin(), key("excite:"));
            groups.push_back(std::move(g));
        }
        std::shuffle(general.begin(), general.end(), rng_);
        groups.push_back(std::move(general));
        std::shuffle(groups.begin(), groups.end(), rng_);
        std::string s;
        // The time line comes first: a detect record sets the time from its count.
        if (!e.detect || coin()) s += fmt::format("{} {:.17g}\n", key("time:"), e.detect ? 99.0 : e.time);
        for (const auto& g : groups)
            for (const auto& l : g) s += l + "\n";
        s += key("endevent:") + "\n";
        return s;
    }

private:
    std::mt19937 rng_;
};

long long chirp_samples(const Excite& x) {
    return std::llround(std::fabs(x.highfreq * 6.2834 - x.lowfreq * 6.2834) * x.clockrate /
                        (static_cast<double>(x.sweeprate) * 6.2834 * 1000000.0));
}

void expect_same_tree(const Experiment& want, const Experiment& got, int round) {
    SCOPED_TRACE(fmt::format("tree {}", round));
    EXPECT_EQ(got.name, want.name);
    EXPECT_EQ(got.expcount, want.expcount);
    EXPECT_EQ(got.version, want.version);
    EXPECT_EQ(got.voltage_labels, want.voltage_labels);
    EXPECT_EQ(got.trigger_labels, want.trigger_labels);
    ASSERT_EQ(got.loops.size(), want.loops.size());
    for (std::size_t l = 0; l < want.loops.size(); ++l) {
        const Loop& wl = want.loops[l];
        const Loop& gl = got.loops[l];
        EXPECT_EQ(gl.name, wl.name);
        EXPECT_EQ(gl.repeat, wl.repeat);
        ASSERT_EQ(gl.tables.size(), wl.tables.size());
        for (std::size_t t = 0; t < wl.tables.size(); ++t) {
            const Table& wt = wl.tables[t];
            const Table& gt = gl.tables[t];
            EXPECT_EQ(gt.name, wt.name);
            EXPECT_EQ(gt.repeat, wt.repeat);
            ASSERT_EQ(gt.events.size(), wt.events.size());
            for (std::size_t e = 0; e < wt.events.size(); ++e) {
                const Event& we = wt.events[e];
                const Event& ge = gt.events[e];
                EXPECT_EQ(ge.label, we.label);
                EXPECT_EQ(ge.time, we.time) << we.label;
                EXPECT_EQ(ge.disabled, we.disabled);
                EXPECT_EQ(ge.trig, we.trig);
                EXPECT_EQ(ge.volt, we.volt);
                ASSERT_EQ(ge.detect.has_value(), we.detect.has_value());
                if (we.detect) {
                    const Detect& a = *ge.detect;
                    const Detect& b = *we.detect;
                    EXPECT_EQ(a.dmode, b.dmode);
                    EXPECT_EQ(a.dreferencefreq, b.dreferencefreq);
                    EXPECT_EQ(a.damplitude, b.damplitude);
                    EXPECT_EQ(a.dhpamplitude, b.dhpamplitude);
                    EXPECT_EQ(a.dfilter, b.dfilter);
                    EXPECT_EQ(a.dbandwidth, b.dbandwidth);
                    EXPECT_EQ(a.dhpbandwidth, b.dhpbandwidth);
                    EXPECT_EQ(a.datacount, b.datacount);
                    EXPECT_EQ(a.datafile, b.datafile);
                }
                ASSERT_EQ(ge.excite.has_value(), we.excite.has_value());
                if (we.excite) {
                    const Excite& a = *ge.excite;
                    const Excite& b = *we.excite;
                    EXPECT_EQ(a.emode, b.emode);
                    EXPECT_EQ(a.elength, b.elength);
                    // Only a SWIFT excitation keeps its waveform file.
                    EXPECT_EQ(a.eswiftfile_name, b.emode == 1 ? b.eswiftfile_name : std::string());
                    EXPECT_EQ(a.eamplitude, b.eamplitude);
                    EXPECT_EQ(a.efilter, b.efilter);
                    EXPECT_EQ(a.lowfreq, b.lowfreq);
                    EXPECT_EQ(a.highfreq, b.highfreq);
                    EXPECT_EQ(a.sweeprate, b.sweeprate);
                    EXPECT_EQ(a.clockrate, b.clockrate);
                    EXPECT_EQ(a.loops, b.loops);
                    EXPECT_EQ(a.msms_datacount, b.msms_datacount);
                    EXPECT_EQ(a.msms_bandwidth, b.msms_bandwidth);
                    EXPECT_EQ(a.msms_cutoff, b.msms_cutoff);
                    long long samples = b.msms_datacount;
                    if (b.emode == 0) samples = chirp_samples(b);
                    if (b.emode == 2) samples = static_cast<long long>(b.clockrate * b.elength);
                    if (b.emode != 1) {
                        EXPECT_EQ(ge.wave_samples, samples);
                    }
                }
            }
        }
    }
}

TEST(ExperimentScript, ThousandRandomTreesReadBackFieldForField) {
    TempDir dir;
    for (int round = 0; round < 1000; ++round) {
        TreeWriter w(static_cast<unsigned>(round) * 7919u + 17u);
        const bool data_file = round % 2 == 1;
        const Experiment want = w.tree(data_file);
        const std::string path = dir.write(data_file ? "t.dat" : "t.exp", w.script(want, data_file));
        RecordingUi ui;
        Workspace ws;
        Experiment got;
        ASSERT_EQ(LoadTulvaScript(ws, path, got, false, ui), 0) << round << "\n" << test::read_file(path);
        EXPECT_TRUE(ui.messages.empty()) << ui.messages.front().text;
        expect_same_tree(want, got, round);
        if (::testing::Test::HasFailure()) {
            ADD_FAILURE() << test::read_file(path);
            break;
        }
    }
}

// ---------------------------------------------------------------------------
// Scripts by hand.

std::string structure(const std::string& blocks, const std::vector<std::string>& rows) {
    std::string s = "expcount: 1\nexperiment: E\nMain: 2\nendexperiment:\nloop: Main\nSeq: 3\nendloop:\ntable: Seq\n";
    for (const auto& r : rows) s += r + "\n";
    return s + "endtable:\n" + blocks;
}

std::string labels() {
    std::string s = "[Voltage Labels]\n";
    for (int i = 1; i <= 8; ++i) s += fmt::format("Voltage {}: \"V{}\"\n", i, i);
    s += "Trap DAC: \"Trap\"\n[Trigger Labels]\n";
    for (int i = 1; i <= 16; ++i) s += fmt::format("Trigger {}: \"T{}\"\n", i, i);
    return s;
}

int read_text(const std::string& text, Experiment& ex, RecordingUi& ui) {
    TempDir dir;
    Workspace ws;
    return LoadTulvaScript(ws, dir.write("s.dat", text), ex, false, ui);
}

TEST(ExperimentScript, VersionDigitizerAndLabelRules) {
    const std::string detect = "label: D\ndetect:\ndmode: dheterodyne\ndhpbandwidth: 3\ndatacount: 2560\nendevent:\n";
    const std::string detect_direct = "label: D\ndetect:\ndhpbandwidth: 3\nendevent:\n";
    struct Case {
        const char* name;
        std::string text;
        double version;
        int digitizer;
        double bandwidth;
        std::size_t voltage_labels;
    };
    const std::vector<Case> cases = {
        // Above 3.0: the digitizer and the label sections, voltages 9-14 and
        // triggers 17-24 defaulted when their lines are absent.
        {"v4 HP mode 2", "Vantorix Data File v4.00\nBegin Experiment Sequence\n" + structure(detect, {"D"}) + labels() +
                             "Digitizer: HP_DIGITIZER\nData:\n",
         4.0, HP_DIGITIZER, 20480000.0 / 16.0 * 2.0, 15},
        {"v4 HP direct", "Vantorix Data File v4.00\nGlobal Parameters\n" + structure(detect_direct, {"D"}) + labels() +
                             "Digitizer: HP_DIGITIZER\nData:\n",
         4.0, HP_DIGITIZER, 20480000.0 / 16.0, 15},
        {"v4 NI keeps the index", "Vantorix Data File v4.00\nBegin Experiment Sequence\n" + structure(detect_direct, {"D"}) +
                                      labels() + "Digitizer: NI_DIGITIZER\nData:\n",
         4.0, NI_DIGITIZER, 500000.0, 15},
        // 3.0 is not above 3.0: no digitizer, no label sections asked for.
        {"v3.0", "TULVA Data File v3.0\nBegin Experiment Sequence\n" + structure(detect_direct, {"D"}) +
                     "Digitizer: HP_DIGITIZER\nData:\n",
         3.0, DIGITIZER_NONE, 500000.0, 0},
        // No "v" on the line: the number is read from the line's start.
        {"no v", "TULVA Data File\nBegin Experiment Sequence\n" + structure(detect_direct, {"D"}) + "Data:\n", 0.0,
         DIGITIZER_NONE, 500000.0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        RecordingUi ui;
        Experiment ex;
        ASSERT_EQ(read_text(c.text, ex, ui), 0) << (ui.messages.empty() ? "" : ui.messages.back().text);
        EXPECT_EQ(ex.version, c.version);
        EXPECT_EQ(ex.digitizer, c.digitizer);
        const Event& ev = ex.loops.at(0).tables.at(0).events.at(0);
        ASSERT_TRUE(ev.detect);
        EXPECT_EQ(ev.detect->dbandwidth, c.bandwidth);
        EXPECT_EQ(ex.voltage_labels.size(), c.voltage_labels);
        if (c.voltage_labels) {
            EXPECT_EQ(ex.voltage_labels[0], "V1");
            EXPECT_EQ(ex.voltage_labels[8], "Voltage 9");
            EXPECT_EQ(ex.voltage_labels[14], "Trap");
            ASSERT_EQ(ex.trigger_labels.size(), 24u);
            EXPECT_EQ(ex.trigger_labels[15], "T16");
            EXPECT_EQ(ex.trigger_labels[23], "Trigger 24");
        }
    }
}

TEST(ExperimentScript, EventKeysThatLookAlike) {
    const std::string blocks =
        "label: ignored\ntime: 5\ndetect:\ndbandwidth: 1000000\ndatacount: 2000\nexcite:\nmsms_datacount: 77\n"
        "endevent:\n"
        "excite:\nmsms_datacount: 99\nemode: msms\nloops: 300\neswiftfile_name: w.swf\nendevent:\n"
        "disabled event\ntime: 0.25\nendevent:\n";
    RecordingUi ui;
    Experiment ex;
    ASSERT_EQ(read_text("TULVA Data File v2.0\nBegin Experiment Sequence\n" + structure(blocks, {"Det", "Exc", "Off"}) +
                            "Data:\n",
                        ex, ui),
              0);
    const auto& evs = ex.loops[0].tables[0].events;
    // The row label wins over the block's; "msms_datacount:" is no "datacount:".
    EXPECT_EQ(evs[0].label, "Det");
    EXPECT_EQ(evs[0].detect->datacount, 2000);
    EXPECT_EQ(evs[0].excite->msms_datacount, 77);
    EXPECT_DOUBLE_EQ(evs[0].time, 2000.0 / 2e6);
    EXPECT_EQ(evs[1].excite->msms_datacount, 99);
    EXPECT_EQ(evs[1].excite->loops, 1);  // out of 1..255
    EXPECT_EQ(evs[1].excite->eswiftfile_name, "");
    EXPECT_EQ(evs[1].wave_samples, 99);
    EXPECT_TRUE(evs[2].disabled);
    EXPECT_EQ(evs[2].time, 0.25);
    // Disabled events do not run: (0.001 + 0) x 3 tables x 2 loops.
    EXPECT_DOUBLE_EQ(total_time(ex), 2000.0 / 2e6 * 6.0);
}

TEST(ExperimentScript, WaveSizesBlocksAndWarnings) {
    EXPECT_EQ(wave_blocks(0), 1);
    EXPECT_EQ(wave_blocks(1), 1);
    EXPECT_EQ(wave_blocks(65536), 1);
    EXPECT_EQ(wave_blocks(65537), 2);
    EXPECT_EQ(wave_blocks(16 * 65536), 16);
    EXPECT_EQ(wave_blocks(16 * 65536 + 1), 17);

    Event chirp;
    chirp.excite = Excite{};
    chirp.excite->lowfreq = 20000.0;
    chirp.excite->highfreq = 500000.0;
    chirp.excite->sweeprate = 150.0f;
    chirp.excite->clockrate = 25000000.0;
    // |500000 x 6.2834 - 20000 x 6.2834| x 25e6 / (150 x 6.2834 x 1e6) = 80000.
    EXPECT_EQ(Compute_Wave_Size(chirp), 80000);
    chirp.excite->emode = 2;
    chirp.excite->elength = 0.5;
    EXPECT_EQ(Compute_Wave_Size(chirp), 12500000);

    auto msms = [](long long n) {
        Event e;
        e.excite = Excite{};
        e.excite->emode = 3;
        e.excite->msms_datacount = n;
        e.wave_samples = n;
        return e;
    };
    Event gap;
    gap.time = 0.05;
    struct Case {
        const char* name;
        std::vector<Event> events;
        int used;
        std::vector<std::string> texts;
    };
    const std::string adjacent =
        "You have two adjacent excite events. Unless there is a delay of at least 50 ms between them, the second "
        "will not transmit.";
    const std::string too_big = "Current waveform exceeds the 1MB limit of the arb and can not be created.";
    const std::string two_big = "Sequence can not contain two or more waveforms with greater than 64K data points each.";
    const std::string overrun = "Current waveform config overruns waveform memory. Some waveforms not created.";
    const std::vector<Case> cases = {
        {"one full memory", {msms(16 * 65536)}, 16, {}},
        {"one too large", {msms(16 * 65536 + 1)}, 0, {too_big}},
        {"adjacent", {msms(100), msms(100)}, 2, {adjacent}},
        {"two large", {msms(65537), gap, msms(65537)}, 2, {two_big}},
        {"overrun", {msms(15 * 65536), gap, msms(10), gap, msms(10)}, 16, {overrun}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Experiment ex;
        ex.loops.push_back(Loop{"L", 1, {Table{"T", 1, c.events}}});
        RecordingUi ui;
        const WaveMemory m = Check_Total_Mem_Use(ex, &ui);
        EXPECT_EQ(m.used, c.used);
        EXPECT_EQ(m.available, 16 - c.used);
        std::vector<std::string> got;
        for (const auto& w : m.warnings) got.push_back(w.second);
        EXPECT_EQ(got, c.texts);
        EXPECT_EQ(ui.popup_texts(), c.texts);
    }
}

TEST(ExperimentScript, DamagedScriptsGiveTheirMessages) {
    const std::string head = "Vantorix Data File v2.5\nBegin Experiment Sequence\n";
    const std::string ok_block = "time: 1\nendevent:\n";
    struct Case {
        const char* name;
        std::string text;
        std::string title, message;
    };
    const std::vector<Case> cases = {
        {"bad signature", "Some Other File v4.0\nBegin Experiment Sequence\n", "File Input Error",
         "Not Valid Experiment File"},
        {"no begin line", "Vantorix Data File v2.5\nexpcount: 1\n", "File Input Error", "Not Valid Experiment File"},
        {"no expcount", head + "experiment: E\n", "File Input Error", "Invalid TRAP DAC"},
        {"no endexperiment", head + "expcount: 1\nexperiment: E\nMain: 1\nData:\n", "Experiment Input Error",
         "Error reading sequence"},
        {"no loop", head + "expcount: 1\nexperiment: E\nMain: 1\nendexperiment:\nData:\n", "Experiment Input Error",
         "Error reading loops"},
        {"no table", head + "expcount: 1\nexperiment: E\nMain: 1\nendexperiment:\nloop: Main\nT: 1\nendloop:\n",
         "Experiment Input Error", "Error reading tables"},
        {"no endevent", head + structure("time: 1\n", {"A"}) + "Data:\n", "Experiment Input Error",
         "Found end of file"},
        {"dmode before detect", head + structure("dmode: direct\ndetect:\nendevent:\n", {"A"}), "Experiment Input Error",
         "Error reading events"},
        {"excite key alone", head + structure(ok_block + "lowfreq: 5\nendevent:\n", {"A", "B"}),
         "Experiment Input Error", "Error reading events"},
        {"v4 without labels", "Vantorix Data File v4.00\nBegin Experiment Sequence\n" + structure(ok_block, {"A"}) +
                                  "Data:\n",
         "Bad INI", "Read failed: voltage labels."},
        {"garbage", std::string("\x00\xff\x13garbage\n\n\n\x7f", 14), "File Input Error", "Not Valid Experiment File"},
        {"empty", "", "File Input Error", "Not Valid Experiment File"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        RecordingUi ui;
        Experiment ex;
        EXPECT_EQ(read_text(c.text, ex, ui), -1);
        EXPECT_TRUE(ui.saw(c.title, c.message)) << (ui.messages.empty() ? "no message" : ui.messages.back().text);
    }
    // The older form: the trap DAC first, the process count, then expcount.
    RecordingUi ui;
    Experiment ex;
    ASSERT_EQ(read_text("TULVA Data File v2.0\nBegin Experiment Sequence\nTrap DAC = 5\nProcess Count = 2\nxx\n" +
                            structure(ok_block, {"A"}) + "Data:\n",
                        ex, ui),
              0);
    EXPECT_EQ(ex.trap_dac, 4);
    EXPECT_EQ(ex.expcount, 1);
}

TEST(ExperimentScript, MissingFileOffersToBrowse) {
    TempDir dir;
    const std::string other = dir.write("o.exp", "TULVA Experiment Sequence\n" + structure("time: 2\nendevent:\n", {"A"}));
    Workspace ws;
    RecordingUi ui;
    ui.confirms = {true};
    ui.files = {other};
    Experiment ex;
    ASSERT_EQ(LoadTulvaScript(ws, dir.file("gone.exp"), ex, false, ui), 0);
    EXPECT_EQ(ui.messages.at(0).title, "Can't find old experiment!");
    EXPECT_EQ(ex.path, other);
    RecordingUi no;
    EXPECT_EQ(LoadTulvaScript(ws, dir.file("gone.exp"), ex, false, no), -1);
}

// ---------------------------------------------------------------------------
// The command on simulated transients.

class ScriptCli : public ::testing::Test {
protected:
    test::CliRun run(const std::string& args, bool merge = false) const {
        return test::run_cli(dir_.file("home"), args, merge);
    }
    std::string path(const std::string& name) const { return dir_.file(name); }
    std::string simulate(const std::string& name, int points) {
        test::write_file(path("ions.csv"), "mz,abundance\n500,1.0\n");
        const auto r = run("simulate '" + path("ions.csv") + "' --points " + std::to_string(points) +
                           " --storage float -o '" + path(name) + "'", true);
        EXPECT_EQ(r.status, 0) << r.out;
        return path(name);
    }
    TempDir dir_;
};

TEST_F(ScriptCli, TimelineAndJsonOfASimulatedTransient) {
    const std::string dat = simulate("s.dat", 4096);
    auto r = run("script '" + dat + "'");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Detection"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Total time (s):"), std::string::npos);
    EXPECT_NE(r.out.find("Waveform blocks used:"), std::string::npos);

    r = run("script --json '" + dat + "'");
    ASSERT_EQ(r.status, 0) << r.err;
    const auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["version"], 4.0);
    EXPECT_EQ(j["digitizer"], "NI");
    const auto& events = j["loops"][0]["tables"][0]["events"];
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[3]["label"], "Detection");
    EXPECT_EQ(events[3]["detect"]["datacount"], 4096);
    EXPECT_EQ(events[1]["excite"]["emode"], "chirp");
    EXPECT_EQ(j["voltage_labels"].size(), 15u);
    EXPECT_EQ(j["trigger_labels"].size(), 24u);
    for (const char* k : {"card", "total_time", "warnings"}) EXPECT_TRUE(j.contains(k)) << k;

    // The same through a .Z archive.
    ASSERT_EQ(run("zip --keep '" + dat + "'").status, 0);
    r = run("script --json '" + dat + ".Z'");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(nlohmann::json::parse(r.out)["loops"], j["loops"]);

    // A label that is not UTF-8 comes out replaced, not as a crash.
    test::write_file(path("latin1.exp"), "TULVA Experiment Sequence\n" + structure("time: 1\nendevent:\n", {"Qu\xe9nch"}));
    r = run("script --json '" + path("latin1.exp") + "'");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(nlohmann::json::parse(r.out)["loops"][0]["tables"][0]["events"][0]["label"], "Qu\xef\xbf\xbdnch");

    test::write_file(path("bad.exp"), "not a script\n");
    r = run("script '" + path("bad.exp") + "'");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("Not Valid Experiment File"), std::string::npos) << r.err;
}

TEST_F(ScriptCli, ReadingStopsAtTheDataLine) {
    const std::string small = simulate("small.dat", 1 << 12);
    // The same header before 2^25 float samples: only the header may be read.
    const std::string big = path("big.dat");
    {
        std::string bytes = test::read_file(small);
        bytes.resize(bytes.size() + (std::size_t{4} << 25), '\0');
        test::write_file(big, bytes);
    }
    auto time_of = [&](const std::string& f) {
        double best = 1e9;
        for (int i = 0; i < 3; ++i) {
            const auto t0 = std::chrono::steady_clock::now();
            EXPECT_EQ(run("script '" + f + "'").status, 0);
            best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
        }
        return best;
    };
    const double ts = time_of(small);
    const double tb = time_of(big);
    EXPECT_LT(tb, 1.5 * ts + 0.02) << "small " << ts << " s, big " << tb << " s";
}

}  // namespace
}  // namespace vx
