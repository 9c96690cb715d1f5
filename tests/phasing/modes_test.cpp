// The process modes of the expert phasing panel: complex division of a data
// transient by a blank of the same ions (the excitation's phase cancels, the
// quotient at each ion is its abundance ratio), the transfer function, the
// dispatch and the dispersion slot, and the "Show Phase" read-out.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>

#include "phasing/phase_function.hpp"
#include "phasing/phase_modes.hpp"
#include "platform/ui.hpp"
#include "sim/simulator.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"
#include "workspace/conversions.hpp"
#include "workspace/workspace.hpp"

namespace vx {
namespace {

using test::TempDir;

SimParameters params(int points = 1 << 15) {
    SimParameters p;
    p.points = points;
    p.dbandwidth = 1000000.0;
    p.noise = 0.0;
    p.int_storage = false;
    p.seed = 3;
    return p;
}

// Two ions, at m/z 400 and 800, with the given abundances.
std::string simulate(const TempDir& dir, const std::string& name, double a400, double a800, int points = 1 << 15) {
    RecordingUi ui;
    const std::string path = dir.file(name);
    const std::vector<SimIon> ions = {{400.0, a400, 0.5}, {800.0, a800, 0.5}};
    EXPECT_EQ(write_simulated_file(path, params(points), ions, ui), 0);
    return path;
}

Spectrum open(Workspace& ws, const std::string& path, int* slot = nullptr) {
    RecordingUi ui;
    const int s = test::open_tulva_file(ws, path, ui);
    EXPECT_GE(s, 0);
    if (slot) *slot = s;
    return s >= 0 ? ws.panels[static_cast<std::size_t>(s)].spectrum : Spectrum{};
}

// The top of the magnitude peak of an ion in the blank's spectrum.
std::size_t top_of(const Spectrum& blank, double mz) {
    Spectrum b = blank;
    RecordingUi ui;
    EXPECT_EQ(Fourier_Transform_Phased(b, 0, ui), 0);
    const auto guess = static_cast<std::size_t>(std::lround(SMass_toPt(b, mz)));
    std::size_t best = guess;
    double top = 0.0;
    for (std::size_t k = guess - 8; k <= guess + 8; ++k) {
        const double m = std::hypot(b.realdata[k], b.imagdata[k]);
        if (m > top) top = m, best = k;
    }
    return best;
}

TEST(PhaseModes, DivisionPointByPoint) {
    struct Case {
        std::complex<double> a, b, q;
    };
    const std::vector<Case> cases = {
        {{1, 2}, {3, 4}, {11.0 / 25, 2.0 / 25}},
        {{0, 1}, {0, 1}, {1, 0}},
        {{5, -5}, {0, 0}, {0, 0}},  // nothing to divide by: zero, not infinity
        {{-2, 0}, {0, 2}, {0, 1}},
    };
    std::vector<double> are, aim, bre, bim;
    for (const Case& c : cases) are.push_back(c.a.real()), aim.push_back(c.a.imag()), bre.push_back(c.b.real()), bim.push_back(c.b.imag());
    DoDivision(are, aim, bre, bim);
    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_NEAR(are[i], cases[i].q.real(), 1e-15) << i;
        EXPECT_NEAR(aim[i], cases[i].q.imag(), 1e-15) << i;
    }
}

TEST(PhaseModes, DivisionByABlankCancelsTheExcitationPhase) {
    TempDir dir;
    Workspace ws;
    const Spectrum blank = open(ws, simulate(dir, "blank.dat", 0.5, 0.6));
    const std::size_t k400 = top_of(blank, 400.0), k800 = top_of(blank, 800.0);
    struct Expect {
        double at400, at800;
    };
    for (int mode : {PROCESS_COMPLEX_DIVISION, PROCESS_TRANSFER}) {
        SCOPED_TRACE(mode);
        Spectrum data = open(ws, simulate(dir, "data.dat", 1.0, 0.3));
        std::vector<float> second;
        RecordingUi ui;
        PhaseProcessOptions o;
        o.mode = mode;
        ASSERT_EQ(phase_process(data, &blank, o, ws.settings, &second, ui), 0);
        ASSERT_EQ(data.domain, DOMAIN_FREQUENCY);
        ASSERT_EQ(second.size(), data.data.size());
        // Data over blank, not the other way round: 1.0 / 0.5 and 0.3 / 0.6.
        EXPECT_NEAR(data.data[k400], 2.0, 0.02);
        EXPECT_NEAR(data.data[k800], 0.5, 0.01);
        // The imaginary part (or the phase) at the tops is nil: the chirp's
        // phase of each ion is the same in both transients.
        EXPECT_NEAR(second[k400], 0.0, 0.02);
        EXPECT_NEAR(second[k800], 0.0, 0.02);
    }
}

TEST(PhaseModes, RefusalsLeaveTheDataAlone) {
    TempDir dir;
    Workspace ws;
    const std::string path = simulate(dir, "data.dat", 1.0, 0.3);
    const Spectrum shorter = open(ws, simulate(dir, "short.dat", 0.5, 0.6, 1 << 14));
    struct Case {
        const char* name;
        int mode;
        bool with_blank;
        const char* title;
    };
    for (const Case& c : {Case{"lengths differ", PROCESS_COMPLEX_DIVISION, true, "Complex Division"},
                          Case{"transfer, lengths differ", PROCESS_TRANSFER, true, "Complex Division"},
                          Case{"no blank", PROCESS_COMPLEX_DIVISION, false, "Complex Division"},
                          Case{"unknown mode", 7, true, "Phasing the Data"}}) {
        SCOPED_TRACE(c.name);
        Spectrum data = open(ws, path);
        const std::vector<float> before = data.data;
        RecordingUi ui;
        PhaseProcessOptions o;
        o.mode = c.mode;
        std::vector<float> second;
        EXPECT_EQ(phase_process(data, c.with_blank ? &shorter : nullptr, o, ws.settings, &second, ui), -1);
        EXPECT_EQ(data.data, before);
        EXPECT_EQ(data.domain, DOMAIN_TIME);
        ASSERT_FALSE(ui.messages.empty());
        EXPECT_EQ(ui.messages.back().title, c.title);
    }
}

TEST(PhaseModes, WorkspaceRunPutsTheSecondChannelInANewSlot) {
    TempDir dir;
    Workspace ws;
    int data_slot = -1, blank_slot = -1;
    open(ws, simulate(dir, "data.dat", 1.0, 0.3), &data_slot);
    open(ws, simulate(dir, "blank.dat", 0.5, 0.6), &blank_slot);
    RecordingUi ui;
    PhaseProcessOptions o;
    o.mode = PROCESS_COMPLEX_DIVISION;
    int disp = -2;
    ASSERT_EQ(phasing_process_command(ws, data_slot, blank_slot, o, false, ui, nullptr, &disp), 0);
    ASSERT_GE(disp, 0);
    EXPECT_NE(disp, data_slot);
    EXPECT_NE(disp, blank_slot);
    const Spectrum& d = ws.panels[static_cast<std::size_t>(disp)].spectrum;
    const Spectrum& s = ws.panels[static_cast<std::size_t>(data_slot)].spectrum;
    EXPECT_EQ(d.title2, "Dispersion Data");
    EXPECT_EQ(d.datacount, s.datacount);
    EXPECT_EQ(d.dbandwidth, s.dbandwidth);
    EXPECT_EQ(ws.phased_data, data_slot);
    EXPECT_EQ(ws.panels[static_cast<std::size_t>(blank_slot)].spectrum.domain, DOMAIN_TIME);  // the blank stays

    // Magnitude mode makes no second slot; an empty slot is refused.
    Workspace ws2;
    int only = -1;
    open(ws2, simulate(dir, "data.dat", 1.0, 0.3), &only);
    o.mode = PROCESS_MAGNITUDE;
    ASSERT_EQ(phasing_process_command(ws2, only, -1, o, false, ui, nullptr, &disp), 0);
    EXPECT_EQ(disp, -1);
    EXPECT_NE(ws2.panels[static_cast<std::size_t>(only)].spectrum.domain, DOMAIN_TIME);  // shown in m/z
    EXPECT_EQ(phasing_process_command(ws2, 5, -1, o, false, ui), -1);
    EXPECT_TRUE(ui.saw("Operator Error", "No Spectrum Chosen"));
}

TEST(PhaseModes, ShowPhaseReadOutAndPlotPoints) {
    Spectrum s;
    s.datacount = 10;
    s.dbandwidth = 100.0;
    EXPECT_EQ(show_phase_text(s, 1.0), "");
    s.phase = {0.5, 1.0, 1.5, 2.0, 2.5, 3.0, 3.5, 4.0, 4.5, 5.0};
    EXPECT_EQ(show_phase_text(s, 0.25), "First phase = 0.750000, last phase = 5.250000\n");
    std::vector<double> hz, rad;
    phase_plot_points(s, 0.25, 4, hz, rad);
    ASSERT_EQ(hz.size(), 4u);  // every third point of ten
    EXPECT_EQ(hz[1], 30.0);
    EXPECT_EQ(rad[1], 2.25);
    phase_plot_points(s, 0.0, 100, hz, rad);
    EXPECT_EQ(hz.size(), 10u);
}

}  // namespace
}  // namespace vx
