#include "plot_draw.hpp"

#include <QBuffer>
#include <QFileInfo>
#include <QSharedPointer>
#include <QSvgGenerator>
#include <qcustomplot.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "platform/safe_file.hpp"

namespace vx {

namespace {

// The rows' class text "N1 O2 " with its leading "," -> "N1 O2".
std::string shown_class(const std::string& t) {
    std::string s = !t.empty() && t[0] == ',' ? t.substr(1) : t;
    while (!s.empty() && s.back() == ' ') s.pop_back();
    while (!s.empty() && s.front() == ' ') s.erase(s.begin());
    return s;
}

bool is_isotopologue(const ProcessedRow& r) { return r.counts[6] != 0 || r.counts[7] != 0; }
bool has_formula(const ProcessedRow& r) { return r.hit_code != 0 && !shown_class(r.class_text).empty(); }

// Clears what an earlier drawing left (graphs, bars, items, legend, tickers)
// and sets the title above the axis rect and the axis labels.
void start(QCustomPlot* plot, const PlotTexts& t) {
    plot->clearPlottables();
    plot->clearItems();
    plot->legend->setVisible(false);
    plot->xAxis->setTicker(QSharedPointer<QCPAxisTicker>(new QCPAxisTicker));
    plot->xAxis->setTickLabelRotation(0);
    plot->xAxis->setLabel(t.x);
    plot->yAxis->setLabel(t.y);
    QCPTextElement* title = nullptr;
    if (plot->plotLayout()->rowCount() > 1)
        title = qobject_cast<QCPTextElement*>(plot->plotLayout()->element(0, 0));
    if (!title) {
        plot->plotLayout()->insertRow(0);
        title = new QCPTextElement(plot, t.title, QFont("sans", 12, QFont::Bold));
        plot->plotLayout()->addElement(0, 0, title);
    }
    title->setText(t.title);
}

// Ranges with a margin, so that points on the edge stay visible; a single
// value gets a unit-wide range.
void set_range(QCPAxis* axis, double lo, double hi, double margin = 0.05) {
    if (!(hi > lo)) {
        lo -= 0.5;
        hi += 0.5;
    }
    const double pad = (hi - lo) * margin;
    axis->setRange(lo - pad, hi + pad);
}

QVector<QColor> class_colors() {
    return {QColor(0x1f, 0x77, 0xb4), QColor(0xd6, 0x27, 0x28), QColor(0x2c, 0xa0, 0x2c), QColor(0xff, 0x7f, 0x0e),
            QColor(0x94, 0x67, 0xbd), QColor(0x8c, 0x56, 0x4b), QColor(0xe3, 0x77, 0xc2), QColor(0x17, 0xbe, 0xcf)};
}

QCPGraph* scatter(QCustomPlot* plot, const QColor& c, double size, const QString& name) {
    QCPGraph* g = plot->addGraph();
    g->setLineStyle(QCPGraph::lsNone);
    QColor fill = c;
    fill.setAlpha(150);
    g->setScatterStyle(QCPScatterStyle(QCPScatterStyle::ssDisc, c, fill, size));
    g->setName(name);
    return g;
}

// Points grouped by the class of their row: the strongest classes (the
// summary's order) in a colour each, the rest in grey as "other".
template <class Point>
void scatter_by_class(QCustomPlot* plot, const PetroSummary& s, Point point, double size) {
    const auto colors = class_colors();
    std::map<std::string, int> slot;
    for (std::size_t i = 0; i < s.classes.size() && i < static_cast<std::size_t>(colors.size()); ++i)
        slot.emplace(s.classes[i].class_text, static_cast<int>(i));
    std::vector<QVector<double>> xs(static_cast<std::size_t>(colors.size()) + 1), ys(xs.size());
    double xlo = HUGE_VAL, xhi = -HUGE_VAL, ylo = HUGE_VAL, yhi = -HUGE_VAL;
    for (const ProcessedRow& r : s.rows) {
        double x = 0.0, y = 0.0;
        if (!point(r, x, y)) continue;
        const auto it = slot.find(shown_class(r.class_text));
        const std::size_t k = it == slot.end() ? xs.size() - 1 : static_cast<std::size_t>(it->second);
        xs[k] << x;
        ys[k] << y;
        xlo = std::min(xlo, x);
        xhi = std::max(xhi, x);
        ylo = std::min(ylo, y);
        yhi = std::max(yhi, y);
    }
    int shown = 0;
    for (std::size_t k = 0; k < xs.size(); ++k) {
        if (xs[k].isEmpty()) continue;
        const bool other = k + 1 == xs.size();
        auto* g = scatter(plot, other ? QColor(0x90, 0x90, 0x90) : colors[static_cast<int>(k)], size,
                          other ? QString("other") : QString::fromStdString(s.classes[k].class_text));
        g->setData(xs[k], ys[k]);
        ++shown;
    }
    if (xlo <= xhi) {
        set_range(plot->xAxis, xlo, xhi);
        set_range(plot->yAxis, ylo, yhi);
    }
    plot->legend->setVisible(shown > 0);
    plot->axisRect()->insetLayout()->setInsetAlignment(0, Qt::AlignTop | Qt::AlignRight);
}

void error_scatter(QCustomPlot* plot, const PetroSummary& s, bool sn) {
    start(plot, sn ? SN_ERROR_TEXTS : MASS_ERROR_TEXTS);
    QVector<double> x, y;
    for (const ProcessedRow& r : s.rows)
        if (r.hit_code != 0) {
            x << (sn ? r.sn : r.mass);
            y << r.error;
        }
    auto* g = scatter(plot, QColor(0x1f, 0x77, 0xb4), 5, "");
    g->setData(x, y, false);
    plot->rescaleAxes();
    if (!x.isEmpty()) {
        const auto [xl, xh] = std::minmax_element(x.begin(), x.end());
        const auto [yl, yh] = std::minmax_element(y.begin(), y.end());
        set_range(plot->xAxis, *xl, *xh);
        set_range(plot->yAxis, *yl, *yh);
    }
}

}  // namespace

void draw_class_bars(QCustomPlot* plot, const PetroSummary& s) {
    start(plot, CLASS_BAR_TEXTS);
    auto ticker = QSharedPointer<QCPAxisTickerText>(new QCPAxisTickerText);
    QVector<double> x, y;
    double top = 0.0;
    const std::size_t n = std::min(s.classes.size(), CLASS_BARS_MAX);
    if (n < s.classes.size())
        qobject_cast<QCPTextElement*>(plot->plotLayout()->element(0, 0))
            ->setText(QString("%1 (the %2 strongest of %3 classes)").arg(CLASS_BAR_TEXTS.title).arg(n).arg(s.classes.size()));
    for (std::size_t i = 0; i < n; ++i) {
        x << static_cast<double>(i + 1);
        y << s.classes[i].percent;
        top = std::max(top, s.classes[i].percent);
        ticker->addTick(static_cast<double>(i + 1), QString::fromStdString(s.classes[i].class_text));
    }
    plot->xAxis->setTicker(ticker);
    plot->xAxis->setTickLabelRotation(n > 8 ? 60 : 0);
    auto* bars = new QCPBars(plot->xAxis, plot->yAxis);
    const QColor fill{QRgb(CLASS_BAR_RGB)};
    bars->setBrush(fill);
    bars->setPen(QPen(fill));
    bars->setAntialiased(false);
    bars->setWidth(0.7);
    bars->setData(x, y, true);
    plot->xAxis->setRange(0.4, std::max<double>(1.0, static_cast<double>(n)) + 0.6);
    plot->yAxis->setRange(0.0, top > 0.0 ? top * 1.08 : 1.0);
}

void draw_dbe_carbon(QCustomPlot* plot, const PetroSummary& s, const std::string& class_text) {
    start(plot, {DBE_CARBON_X, DBE_CARBON_Y, ""});
    qobject_cast<QCPTextElement*>(plot->plotLayout()->element(0, 0))
        ->setText(QString("DBE vs. Carbon Number: %1").arg(QString::fromStdString(class_text)));
    double top = 0.0;
    for (const CarbonRow& c : s.carbon)
        if (c.class_text == class_text) top = std::max(top, c.abundance);
    // Bubble area follows the abundance; a scatter style has one size, so the
    // points go into graphs of a few size steps.
    constexpr int STEPS = 12;
    constexpr double LARGEST = 28.0, SMALLEST = 3.0;
    std::vector<QVector<double>> xs(STEPS), ys(STEPS);
    double xlo = HUGE_VAL, xhi = -HUGE_VAL, ylo = HUGE_VAL, yhi = -HUGE_VAL;
    for (const CarbonRow& c : s.carbon) {
        if (c.class_text != class_text || top <= 0.0) continue;
        const double d = std::sqrt(std::max(0.0, c.abundance) / top);  // diameter: the root of the area
        const int k = std::clamp(static_cast<int>(std::lround(d * (STEPS - 1))), 0, STEPS - 1);
        xs[static_cast<std::size_t>(k)] << c.carbons;
        ys[static_cast<std::size_t>(k)] << c.dbe;
        xlo = std::min(xlo, static_cast<double>(c.carbons));
        xhi = std::max(xhi, static_cast<double>(c.carbons));
        ylo = std::min(ylo, c.dbe);
        yhi = std::max(yhi, c.dbe);
    }
    for (int k = 0; k < STEPS; ++k) {
        if (xs[static_cast<std::size_t>(k)].isEmpty()) continue;
        const double size = SMALLEST + (LARGEST - SMALLEST) * k / (STEPS - 1);
        scatter(plot, QColor(0x1f, 0x77, 0xb4), size, "")->setData(xs[static_cast<std::size_t>(k)], ys[static_cast<std::size_t>(k)]);
    }
    if (xlo <= xhi) {
        set_range(plot->xAxis, xlo, xhi, 0.08);
        set_range(plot->yAxis, ylo, yhi, 0.08);
    }
}

void draw_van_krevelen(QCustomPlot* plot, const PetroSummary& s) {
    start(plot, VAN_KREVELEN_TEXTS);
    // Monoisotopic formulas only, with the ratios of peaks.csv (the ion's H).
    scatter_by_class(
        plot, s,
        [](const ProcessedRow& r, double& x, double& y) {
            if (!has_formula(r) || is_isotopologue(r)) return false;
            const int c = r.counts[0] + r.counts[6];
            if (c <= 0) return false;
            x = static_cast<double>(r.counts[3]) / c;
            y = static_cast<double>(r.counts[1]) / c;
            return true;
        },
        5);
}

void draw_kendrick(QCustomPlot* plot, const PetroSummary& s) {
    start(plot, KENDRICK_TEXTS);
    // Every peak, assigned or not: the series stand as horizontal rows.
    scatter_by_class(
        plot, s,
        [](const ProcessedRow& r, double& x, double& y) {
            x = r.nominal;
            y = r.nominal - r.kendrick_mass;
            return true;
        },
        4);
}

void draw_mass_error(QCustomPlot* plot, const PetroSummary& s) { error_scatter(plot, s, false); }
void draw_sn_error(QCustomPlot* plot, const PetroSummary& s) { error_scatter(plot, s, true); }

void draw_error_histogram(QCustomPlot* plot, const PetroSummary& s) {
    start(plot, HISTOGRAM_TEXTS);
    QVector<double> err;
    for (const ProcessedRow& r : s.rows)
        if (r.hit_code != 0) err << r.error;
    if (err.isEmpty()) {
        plot->xAxis->setRange(-1, 1);
        plot->yAxis->setRange(0, 1);
        return;
    }
    // NumberDensity_Callback: bins between the smallest and largest error.
    const auto [lo, hi] = std::minmax_element(err.begin(), err.end());
    const double w = (*hi - *lo) > 0 ? (*hi - *lo) / ERROR_BINS : 1.0;
    QVector<double> x(ERROR_BINS), y(ERROR_BINS, 0.0);
    for (int b = 0; b < ERROR_BINS; ++b) x[b] = *lo + (b + 0.5) * w;
    for (double e : err) y[std::min(ERROR_BINS - 1, static_cast<int>((e - *lo) / w))] += 1.0;
    auto* bars = new QCPBars(plot->xAxis, plot->yAxis);
    bars->setWidth(w);
    bars->setData(x, y, true);
    plot->xAxis->setRange(*lo - w, *lo + (ERROR_BINS + 1) * w);
    plot->yAxis->setRange(0.0, *std::max_element(y.begin(), y.end()) * 1.08);
}

void draw_isotope_pattern(QCustomPlot* plot, const IsotopePattern& p, const QString& title) {
    start(plot, {"m/z", "Abundance", ""});
    qobject_cast<QCPTextElement*>(plot->plotLayout()->element(0, 0))->setText(title);
    const ProfilePoints pts = PlotFinal(p.peaks);
    auto* g = plot->addGraph();
    g->setData(QVector<double>(pts.x.begin(), pts.x.end()), QVector<double>(pts.y.begin(), pts.y.end()), true);
    if (pts.max_mz > pts.min_mz) plot->xAxis->setRange(pts.min_mz, pts.max_mz);
    plot->yAxis->rescale();
    const QCPRange r = plot->yAxis->range();
    plot->yAxis->setRange(0.0, r.upper > 0.0 ? r.upper * 1.05 : 1.0);
}

int save_plot(QCustomPlot* plot, const std::string& path, int width, int height, const QString& title, std::string* error) {
    const QString suffix = QFileInfo(QString::fromStdString(path)).suffix().toLower();
    if (suffix != "png" && suffix != "svg") {
        if (error) *error = "a plot is saved as .png or .svg";
        return -1;
    }
    AtomicFile out(path);
    if (!out.ok()) {
        if (error) *error = out.error();
        return -1;
    }
    bool ok = false;
    if (suffix == "png") {
        // savePng writes by name: into the temporary file, renamed at commit.
        ok = plot->savePng(QString::fromStdString(out.temp_path()), width, height, 1.0, -1, 96, QCP::ruDotsPerInch);
    } else {
        QBuffer bytes;
        bytes.open(QIODevice::WriteOnly);
        QSvgGenerator svg;
        svg.setOutputDevice(&bytes);
        svg.setSize(QSize(width, height));
        svg.setViewBox(QRect(0, 0, width, height));
        svg.setTitle(title);
        svg.setDescription("Vantorix Analysis");
        QCPPainter painter;
        if (painter.begin(&svg)) {
            plot->toPainter(&painter, width, height);
            ok = painter.end();
        }
        ok = ok && out.write(bytes.data().constData(), static_cast<std::size_t>(bytes.size()));
    }
    if (!ok) {
        if (error) *error = out.error().empty() ? "the plot could not be drawn" : out.error();
        return -1;  // the temporary file goes with out
    }
    if (out.commit() < 0) {
        if (error) *error = out.error();
        return -1;
    }
    return 0;
}

}  // namespace vx
