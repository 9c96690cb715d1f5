// The "Thermo Raw FIle" entry offscreen: the entry under File > Open, a
// two-scan mzML opened into a graph (the unattended prompt's empty answer
// takes the last scan; a given scan number the other), and a .raw file
// refused with the conversion named.
#include <QApplication>
#include <QMenu>
#include <QMenuBar>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "gui_check.hpp"
#include "main_window.hpp"
#include "panels/INSTRUMENTS.hpp"
#include "platform/base64.hpp"
#include "qt_ui.hpp"

namespace {

std::string array_xml(const std::vector<double>& v, const char* accession) {
    return std::string("<binaryDataArray encodedLength=\"0\">"
                       "<cvParam cvRef=\"MS\" accession=\"MS:1000523\" name=\"64-bit float\" value=\"\"/>"
                       "<cvParam cvRef=\"MS\" accession=\"MS:1000576\" name=\"no compression\" value=\"\"/>"
                       "<cvParam cvRef=\"MS\" accession=\"") +
           accession + "\" name=\"\" value=\"\"/><binary>" + vx::base64_encode(v.data(), v.size() * 8) +
           "</binary></binaryDataArray>\n";
}

// Two scans of 64 points; scan k has height 100 k at its middle point.
std::string two_scans() {
    std::string t = "<?xml version=\"1.0\"?>\n<mzML><run><spectrumList count=\"2\">\n";
    for (int k = 1; k <= 2; ++k) {
        std::vector<double> mz(64), in(64, 1.0);
        for (int i = 0; i < 64; ++i) mz[static_cast<std::size_t>(i)] = 500.0 + 0.01 * i;
        in[32] = 100.0 * k;
        t += "<spectrum index=\"" + std::to_string(k - 1) + "\" id=\"controllerType=0 controllerNumber=1 scan=" +
             std::to_string(k) + "\" defaultArrayLength=\"64\"><binaryDataArrayList count=\"2\">\n" +
             array_xml(mz, "MS:1000514") + array_xml(in, "MS:1000515") + "</binaryDataArrayList></spectrum>\n";
    }
    return t + "</spectrumList></run></mzML>\n";
}

}  // namespace

int main(int argc, char** argv) {
    QTemporaryDir home;
    setenv("VANTORIX_HOME", home.path().toUtf8().constData(), 1);
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);
    vx::MainWindow window(true);
    window.show();
    vx::Workspace& ws = window.workspace();

    // The entry stands under File > Open, spelt as users know it.
    bool entry = false;
    for (QAction* a : window.menuBar()->actions().front()->menu()->actions())
        if (a->menu() && a->text() == "Open")
            for (QAction* b : a->menu()->actions()) entry = entry || b->text() == "Thermo Raw FIle...";
    CHECK(entry);

    const std::string path = (home.path() + "/run.mzML").toStdString();
    std::ofstream(path) << two_scans();
    const int last = vx::open_thermo_file(window, path);
    CHECK(last >= 0);
    if (last >= 0) {
        const vx::Spectrum& s = ws.panels[static_cast<std::size_t>(last)].spectrum;
        CHECK(window.graph(last) != nullptr);
        CHECK(s.domain == vx::DOMAIN_PROFILE);
        CHECK(s.data.size() == 64 && s.data[32] == 200.0f);
        CHECK(s.xvalues.size() == 64 && s.xvalues[0] == 500.0);
    }
    const int first = vx::open_thermo_file(window, path, 1);
    CHECK(first >= 0 && first != last);
    if (first >= 0) CHECK(ws.panels[static_cast<std::size_t>(first)].spectrum.data[32] == 100.0f);

    const std::string raw = (home.path() + "/run.raw").toStdString();
    std::ofstream(raw) << "x";
    window.ui().shown.clear();
    CHECK(vx::open_thermo_file(window, raw) < 0);
    bool named = false;
    for (const std::string& m : window.ui().shown) named = named || m.find("ThermoRawFileParser") != std::string::npos;
    CHECK(named);
    // A missing scan is said, and nothing opens.
    window.ui().shown.clear();
    CHECK(vx::open_thermo_file(window, path, 5) < 0);
    CHECK(!window.ui().shown.empty() && window.ui().shown.front().find("Scan 5 is not in") != std::string::npos);

    if (failures) std::fprintf(stderr, "%d check(s) failed\n", failures);
    return failures ? 1 : 0;
}
