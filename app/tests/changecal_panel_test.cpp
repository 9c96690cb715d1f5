// The calibration-change panel (CHANGECAL) driven offscreen: the refusal of
// empty terms, the files chosen, written as FILE.new with the new terms and
// the samples untouched, a bad file reported and left without output, the
// progress bar over the files, the buttons back afterwards, and Cancel.
#include <QApplication>
#include <QDialog>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <unistd.h>

#include "gui_check.hpp"
#include "formats/tulva_reader.hpp"
#include "panels/CHANGECAL.hpp"
#include "platform/ui.hpp"
#include "workspace/workspace.hpp"

namespace fs = std::filesystem;

namespace {

QDialog* panel() {
    for (QWidget* w : QApplication::topLevelWidgets())
        if (w->objectName() == "CHANGECAL") return qobject_cast<QDialog*>(w);
    return nullptr;
}

std::string read_all(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A v4 file of four float samples with the given terms.
std::string data_file(const fs::path& dir, const std::string& name, const std::vector<float>& v) {
    std::string text = "Vantorix Data File v4.00\nData Points: " + std::to_string(v.size()) +
                       "\nStorage Type: float\nSource Coeff0: 107000000.0\nSource Coeff1: -300000000.0\nData:\n";
    text.append(reinterpret_cast<const char*>(v.data()), v.size() * sizeof(float));
    const fs::path p = dir / name;
    std::ofstream(p, std::ios::binary) << text;
    return p.string();
}

// The record a file reads back into.
bool read_terms(const std::string& path, double& a, double& b, std::vector<float>& data) {
    auto ws = std::make_unique<vx::Workspace>();
    vx::RecordingUi quiet;
    ws->active_panel = 0;
    ws->panels[0].active = 1;
    vx::Spectrum& s = ws->panels[0].spectrum;
    if (vx::Get_Tulva_Data(*ws, path, s, quiet) != 0) return false;
    a = s.Aterm;
    b = s.Bterm;
    data = s.data;
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const fs::path home = fs::temp_directory_path() / ("vx_changecal_panel_" + std::to_string(::getpid()));
    fs::remove_all(home);
    fs::create_directories(home);
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);
    {
        vx::RecordingUi ui;
        vx::show_CHANGECAL(nullptr, ui);
        QDialog* d = panel();
        CHECK(d != nullptr);
        if (!d) return 1;
        auto* a = d->findChild<QLineEdit*>("A");
        auto* b = d->findChild<QLineEdit*>("B");
        auto* ok = d->findChild<QPushButton*>("ok");
        auto* cancel = d->findChild<QPushButton*>("cancel");
        auto* progress = d->findChild<QProgressBar*>("progress");
        CHECK(a && b && ok && cancel && progress);
        if (!(a && b && ok && cancel && progress)) return 1;
        CHECK(d->isVisible());
        CHECK(!progress->isVisible());  // hidden until files are written

        const std::vector<float> s1 = {1.5f, -2.0f, 3.25f, 0.0f}, s2 = {7.0f, 8.0f, 9.0f, 10.0f};
        const std::string f1 = data_file(home, "one.dat", s1), f2 = data_file(home, "two.dat", s2);
        const std::string bad = (home / "bad.dat").string();
        std::ofstream(bad) << "not a data file\n";

        // Both terms below 1e-05: refused before any file is asked for.
        a->setText("0");
        b->setText("0");
        ui.file_lists.push_back({f1});
        ok->click();
        CHECK(ui.saw("Wrong Parameters", "Please specify the paremeters before picking files"));
        CHECK(ui.file_lists.size() == 1);  // the file dialogue was never shown
        CHECK(!fs::exists(f1 + ".new"));
        CHECK(ok->isVisible() && cancel->isVisible());
        ui.file_lists.clear();

        // New terms into three chosen files: two written, the bad one reported.
        a->setText("150000000");
        b->setText("-2000000000");
        ui.file_lists.push_back({f1, bad, f2});
        const std::string before1 = read_all(f1);
        ok->click();
        CHECK(fs::exists(f1 + ".new"));
        CHECK(fs::exists(f2 + ".new"));
        CHECK(!fs::exists(bad + ".new"));
        CHECK(ui.saw("File Input Error", "Not Valid TULVA Data File Format"));
        CHECK(read_all(f1) == before1);  // the input is only read
        for (const auto& [path, samples] : {std::pair{f1, s1}, std::pair{f2, s2}}) {
            double ta = 0.0, tb = 0.0;
            std::vector<float> data;
            CHECK(read_terms(path + ".new", ta, tb, data));
            // The terms go out as single-precision values.
            CHECK(std::abs(ta - 150000000.0) <= 150000000.0 * 1e-7);
            CHECK(std::abs(tb + 2000000000.0) <= 2000000000.0 * 1e-7);
            CHECK(data == samples);
        }
        CHECK(progress->isVisible());
        CHECK(progress->maximum() == 3);
        CHECK(progress->value() == 3);
        CHECK(ok->isVisible() && cancel->isVisible());

        // No file chosen: nothing written, no message beyond those seen.
        const std::size_t messages = ui.messages.size();
        fs::remove(f1 + ".new");
        ok->click();
        CHECK(!fs::exists(f1 + ".new"));
        CHECK(ui.messages.size() == messages + 1);  // the file dialogue only
        CHECK(ui.messages.back().kind == "files");
        CHECK(ui.messages.back().title == "Files to Change Calibration");

        // Cancel hides the panel; opened again, it is the same panel with the bar hidden.
        cancel->click();
        CHECK(!d->isVisible());
        vx::show_CHANGECAL(nullptr, ui);
        CHECK(panel() == d);
        CHECK(d->isVisible());
        CHECK(!progress->isVisible());
        delete d;
    }
    fs::remove_all(home);
    std::printf("changecal_panel: %s (%d failed checks)\n", failures ? "FAILED" : "passed", failures);
    return failures ? 1 : 0;
}
