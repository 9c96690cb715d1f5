// The data service's replies for the active window: each equals the string
// the test builds from the calibration law and the samples, for the full view,
// a zoom, three points and an empty view; bad requests get no answer.
#include <ctime>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/ui.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"
#include "workspace/conversions.hpp"
#include "workspace/data_service.hpp"

namespace vx {
namespace {

std::string f(double v) {
    char b[64];
    std::snprintf(b, sizeof b, "%f ", static_cast<double>(static_cast<float>(v)));
    return b;
}

class DataService : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string sample = std::string(VANTORIX_SOURCE_DIR) + "/data/sample.dat";
        RecordingUi ui;
        slot_ = test::open_tulva_file(ws_, sample, ui);
        ASSERT_GE(slot_, 0);
        ws_.active_panel = slot_;
    }
    AnalysisPanel& panel() { return ws_.panels[static_cast<std::size_t>(slot_)]; }
    std::string ask(std::string_view topic, std::string_view item, int want = 0, const PlotArrays* view = nullptr) {
        std::string reply, why;
        EXPECT_EQ(DDE_Request(ws_, view, topic, item, reply, why, ui_), want) << topic << " / " << item << ": " << why;
        return reply;
    }
    std::string relative(long lo, long hi) {
        const auto& d = panel().spectrum.data;
        float largest = d[static_cast<std::size_t>(lo)];
        for (long k = lo; k <= hi; ++k) largest = std::max(largest, d[static_cast<std::size_t>(k)]);
        std::string s;
        for (long k = hi; k >= lo; --k) s += f(d[static_cast<std::size_t>(k)] / largest * 100.0f);
        return s;
    }
    Workspace ws_;
    RecordingUi ui_;
    int slot_ = -1;
};

TEST_F(DataService, RepliesEqualTheLawAndTheSamples) {
    const Spectrum& s = panel().spectrum;
    struct View {
        const char* name;
        double xmin, xmax;
    };
    for (const View v : {View{"full", panel().xmin, panel().xmax}, View{"zoom", 1200.7, 1000.2},
                         View{"three points", 500.0, 502.9}}) {
        SCOPED_TRACE(v.name);
        panel().xmin = v.xmin;
        panel().xmax = v.xmax;
        const long lo = static_cast<long>(std::min(v.xmin, v.xmax)), hi = static_cast<long>(std::max(v.xmin, v.xmax));
        EXPECT_EQ(ask("Screen_Data", "Count"), std::to_string(hi - lo + 1));
        std::string masses;
        for (long k = hi; k >= lo; --k) masses += f(SPt_tomass(s, static_cast<double>(k)));
        EXPECT_EQ(ask("Screen_Data", "X Data"), masses);
        EXPECT_EQ(ask("Screen_Data", "Y Data"), relative(lo, hi));
        EXPECT_EQ(ask("Data", "data:" + std::to_string(lo) + "," + std::to_string(hi)), relative(lo, hi));
    }
    EXPECT_EQ(ask("Data", "bandwidth:0,0"), f(s.dbandwidth));

    // The reduced plot: last first, unless its x array descends.
    PlotArrays view;
    view.x = {1.0, 2.0, 3.0};
    view.y = {10.0f, 20.0f, 30.0f};
    view.count = 3;
    EXPECT_EQ(ask("Screen_View", "Count", 0, &view), "3");
    EXPECT_EQ(ask("Screen_View", "X Data", 0, &view), f(3) + f(2) + f(1));
    EXPECT_EQ(ask("Screen_View", "Y Data", 0, &view), f(30) + f(20) + f(10));
    view.x = {3.0, 2.0, 1.0};
    EXPECT_EQ(ask("Screen_View", "Y Data", 0, &view), f(10) + f(20) + f(30));
    PlotArrays empty;
    EXPECT_EQ(ask("Screen_View", "X Data", 0, &empty), "");
    EXPECT_EQ(ask("Screen_View", "Count", 0, nullptr), "0");
}

TEST_F(DataService, BadRequestsHaveNoAnswer) {
    const auto n = static_cast<long>(panel().spectrum.data.size());
    for (const auto& [topic, item] : std::vector<std::pair<std::string, std::string>>{
             {"Nothing", "Count"}, {"Screen_Data", "Z Data"}, {"Screen_View", "count"}, {"Data", "d:10,5"},
             {"Data", "d:-1,5"}, {"Data", "d:0," + std::to_string(n)}, {"Data", "d10,5"}, {"Data", "x:1,2"},
             {"Data", "d:1"}}) {
        ask(topic, item, -1);
    }
    ws_.active_panel = -1;
    ask("Screen_Data", "Count", -1);
    EXPECT_TRUE(ui_.messages.empty());
}

TEST_F(DataService, ReplyOverTheBusLimitIsRefusedWithTheMessage) {
    std::string reply, why;
    EXPECT_EQ(DDE_Request(ws_, nullptr, "Screen_Data", "Y Data", reply, why, ui_, 1000), -2);
    EXPECT_TRUE(ui_.saw("DDE Message", "ServerDDEWrite Error"));
    EXPECT_TRUE(reply.empty());
}

TEST_F(DataService, MillionPointsXDataUnderASecond) {
    PlotArrays view;
    view.count = 1000000;
    view.x.resize(view.count);
    view.y.resize(view.count);
    for (std::size_t k = 0; k < view.count; ++k) view.x[k] = 100.0 + 0.001 * static_cast<double>(k);
    // Processor time: the machine running the suite is shared.
    const std::clock_t c0 = std::clock();
    const std::string r = ask("Screen_View", "X Data", 0, &view);
    const double secs = static_cast<double>(std::clock() - c0) / CLOCKS_PER_SEC;
    EXPECT_LT(secs, 1.0);
    EXPECT_EQ(r.substr(0, f(view.x.back()).size()), f(view.x.back()));
}

}  // namespace
}  // namespace vx
