// The plot files of a petroleum summary and of an isotope pattern, drawn
// offscreen: each file there, a PNG of the right size that loads, an SVG that
// parses and carries its title and labels, and the class bars standing as
// tall as their shares.
#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

#include <filesystem>
#include <set>

#include "composition/assign.hpp"
#include "petro_plots.hpp"
#include "plot_draw.hpp"
#include "platform/ui.hpp"
#include "sim/formula_list.hpp"
#include "sim/isotopologues.hpp"

namespace {

QByteArray read_all(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool is_png(const QString& path, int width, int height) {
    const QByteArray b = read_all(path);
    if (!b.startsWith(QByteArray("\x89PNG\r\n\x1a\n", 8))) return false;
    QImage img;
    return img.loadFromData(b, "PNG") && img.width() == width && img.height() == height;
}

// Parses the whole file; returns its text content (titles and tick labels
// are <text> elements), or "!error" when it is not well-formed XML.
QString svg_text(const QString& path) {
    const QByteArray b = read_all(path);
    QXmlStreamReader xml(b);
    QString text;
    bool root_svg = false;
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement() && !root_svg) root_svg = xml.name() == QLatin1String("svg");
        if (xml.isCharacters()) text += xml.text().toString() + "\n";
    }
    if (xml.hasError() || !root_svg) return "!error " + xml.errorString();
    return text;
}

// Columns of the bar colour run left to right; for each bar its top row.
std::vector<int> bar_tops(const QImage& img) {
    const QRgb bar = 0xff000000u | vx::CLASS_BAR_RGB;
    std::vector<int> tops;
    bool inside = false;
    for (int x = 0; x < img.width(); ++x) {
        int top = -1;
        for (int y = 0; y < img.height(); ++y)
            if (img.pixel(x, y) == bar) {
                top = y;
                break;
            }
        if (top >= 0 && !inside) tops.push_back(top);
        else if (top >= 0) tops.back() = std::min(tops.back(), top);
        inside = top >= 0;
    }
    return tops;
}

vx::PetroSummary simulated_summary() {
    vx::FormulaListParameters p;
    p.count = 300;
    p.seed = 11;
    auto peaks = vx::simulate_formula_list(p);
    vx::add_isotopologue_peaks(peaks, 3000.0);
    vx::Spectrum s;
    vx::formula_list_to_spectrum(peaks, s);
    vx::FormulaSettings st = vx::molecal_defaults();
    vx::RecordingUi ui;
    vx::parse_element_ranges("13C0-1,34S0-1,C1-100,H0-200,N0-2,O0-20,S0-1", st, ui);
    st.TOPDOWN = true;
    st.series_fit = true;
    st.IGNOREOVERS = true;
    st.RADICALS = false;
    st.MASS_ACCURACY = 1.0;
    vx::KendrickOptions ko;
    vx::PetroSummary out;
    if (vx::assign_peak_list(s, ko, st, 2, ui, nullptr) < 0 || vx::ProcessPetro(s, st, true, out, ui) < 0) return {};
    return out;
}

}  // namespace

class PlotsTest : public QObject {
    Q_OBJECT
private slots:
    void summary_plots_png_and_svg() {
        const vx::PetroSummary s = simulated_summary();
        QVERIFY(s.classes.size() >= 3);
        QTemporaryDir dir;
        vx::RecordingUi ui;
        std::vector<std::string> written;
        QCOMPARE(vx::write_petro_plots(s, dir.path().toStdString(), {true, true}, ui, &written), 0);
        const std::size_t per_format = 6 + std::min(s.classes.size(), vx::DBE_PLOT_CLASSES);
        QCOMPARE(written.size(), 2 * per_format);
        // Nothing else in the folder: no temporary file left behind.
        QCOMPARE(static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(dir.path().toStdString()),
                                                        std::filesystem::directory_iterator())),
                 written.size());
        struct Expect {
            const char* stem;
            std::vector<QString> texts;
        };
        const QString top_class = QString::fromStdString(s.classes[0].class_text);
        const Expect expects[] = {
            {"classes", {vx::CLASS_BAR_TEXTS.title, vx::CLASS_BAR_TEXTS.x, vx::CLASS_BAR_TEXTS.y, top_class}},
            {"van_krevelen", {vx::VAN_KREVELEN_TEXTS.title, "H/C", "O/C"}},
            {"kendrick", {vx::KENDRICK_TEXTS.title, vx::KENDRICK_TEXTS.x, vx::KENDRICK_TEXTS.y}},
            {"mass_error", {"Mass to Charge Ratio vs.PPM Error", "Mass to Charge Ratio (m/z)", "PPM Error"}},
            {"sn_error", {"Signal to Noise vs.PPM Error", "Signal to Noise", "PPM Error"}},
            {"error_histogram", {"PPM Error vs. Counts per Bin", "PPM Error", "Counts per Bin"}},
        };
        for (const Expect& e : expects) {
            const QString base = dir.filePath(e.stem);
            QVERIFY2(is_png(base + ".png", vx::PLOT_WIDTH, vx::PLOT_HEIGHT), e.stem);
            const QString text = svg_text(base + ".svg");
            QVERIFY2(!text.startsWith("!error"), qPrintable(text));
            for (const QString& t : e.texts) QVERIFY2(text.contains(t), qPrintable(QString("%1: %2").arg(e.stem, t)));
        }
        const QString dbe = dir.filePath(QString::fromStdString("dbe_carbon_" + vx::class_file_part(s.classes[0].class_text)));
        QVERIFY(is_png(dbe + ".png", vx::PLOT_WIDTH, vx::PLOT_HEIGHT));
        const QString dbe_text = svg_text(dbe + ".svg");
        QVERIFY(dbe_text.contains("Carbon Number") && dbe_text.contains("DBE") && dbe_text.contains(top_class));
    }

    // The bars stand as tall as their shares, in the order of the class
    // table: given out of order, the tallest bar is still the largest share.
    void class_bar_heights_follow_the_shares() {
        vx::PetroSummary s;
        const double shares[] = {30.0, 50.0, 20.0};
        const char* names[] = {"O2", "N1", "HC"};
        for (int i = 0; i < 3; ++i) s.classes.push_back({names[i], shares[i], shares[i], 10});
        QTemporaryDir dir;
        vx::RecordingUi ui;
        QCOMPARE(vx::write_petro_plots(s, dir.path().toStdString(), {true, false}, ui), 0);
        QImage img(dir.filePath("classes.png"));
        QVERIFY(!img.isNull());
        img = img.convertToFormat(QImage::Format_RGB32);
        const std::vector<int> tops = bar_tops(img);
        QCOMPARE(tops.size(), std::size_t{3});
        QVERIFY(tops[1] < tops[0] && tops[0] < tops[2]);  // smaller row = taller bar
        // Heights to the common base, in proportion to the shares.
        int base = 0;
        const QRgb bar = 0xff000000u | vx::CLASS_BAR_RGB;
        for (int y = 0; y < img.height(); ++y)
            for (int x = 0; x < img.width(); ++x)
                if (img.pixel(x, y) == bar) base = std::max(base, y);
        const double tall = base - tops[1];
        QVERIFY(tall > 100);
        QVERIFY(std::abs((base - tops[0]) / tall - 0.6) < 0.02);
        QVERIFY(std::abs((base - tops[2]) / tall - 0.4) < 0.02);
    }

    void empty_summary_still_draws_axes() {
        QTemporaryDir dir;
        vx::RecordingUi ui;
        std::vector<std::string> written;
        QCOMPARE(vx::write_petro_plots({}, dir.path().toStdString(), {false, true}, ui, &written), 0);
        QCOMPARE(written.size(), std::size_t{6});
        QVERIFY(svg_text(dir.filePath("mass_error.svg")).contains("Mass to Charge Ratio vs.PPM Error"));
    }

    void isotope_pattern_plot() {
        vx::RecordingUi ui;
        vx::IsotopePattern p;
        QCOMPARE(vx::isotope_pattern("C35H60O6", 1e-6, p, ui), 0);
        QTemporaryDir dir;
        QCOMPARE(vx::write_isotope_plot(p, "C35H60O6", dir.filePath("p.png").toStdString(), ui), 0);
        QVERIFY(is_png(dir.filePath("p.png"), vx::PLOT_WIDTH, vx::PLOT_HEIGHT));
        QCOMPARE(vx::write_isotope_plot(p, "C35H60O6", dir.filePath("p.svg").toStdString(), ui), 0);
        QVERIFY(svg_text(dir.filePath("p.svg")).contains("C35H60O6"));
        // Not a plot name, a missing folder: a message, nothing written.
        QCOMPARE(vx::write_isotope_plot(p, "x", dir.filePath("p.txt").toStdString(), ui), -1);
        QCOMPARE(vx::write_isotope_plot(p, "x", dir.filePath("none/p.png").toStdString(), ui), -1);
        QVERIFY(ui.messages.size() >= 2);
        QVERIFY(!QFile::exists(dir.filePath("p.txt")));
    }

    void plot_format_lists() {
        vx::RecordingUi ui;
        vx::PlotFormats f;
        QCOMPARE(vx::parse_plot_formats("png,svg", f, ui), 0);
        QVERIFY(f.png && f.svg);
        QCOMPARE(vx::parse_plot_formats("svg", f, ui), 0);
        QVERIFY(!f.png && f.svg);
        for (const char* bad : {"", "jpg", "png,", "png;svg"}) QCOMPARE(vx::parse_plot_formats(bad, f, ui), -1);
        QCOMPARE(vx::class_file_part("N1 O2"), std::string("N1_O2"));
        QCOMPARE(vx::class_file_part("../x"), std::string("___x"));
    }
};

QTEST_MAIN(PlotsTest)
#include "plots_test.moc"
