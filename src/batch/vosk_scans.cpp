#include "batch/vosk_scans.hpp"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>
#include <fmt/printf.h>

#include "formats/tulva_writer.hpp"
#include "platform/ui.hpp"
#include "workspace/conversions.hpp"
#include "workspace/processing.hpp"

namespace vx {

int RedoNumberVosk(long long datacount, long long start, long long points, long long step) {
    if (points <= 0 || step <= 0 || start < 0 || start + points > datacount) return 0;
    return static_cast<int>(std::min<long long>((datacount - start - points) / step + 1, 1 << 30));
}

int CheckVoskSpecial(const VoskSpecialParams& p, long long datacount, Ui& ui) {
    const int fit = RedoNumberVosk(datacount, p.start, p.points, p.step);
    if (p.points < 2 || p.step < 1 || p.start < 0 || fit == 0) {
        ui.MessagePopup("Operator Error",
                        fmt::format("No scan of {} points from point {} fits in the {} points of the data.", p.points,
                                    p.start, datacount));
        return -1;
    }
    if (p.scans > fit) {
        ui.MessagePopup("Operator Error", fmt::format("Only {} scans fit in the data, not {}.", fit, p.scans));
        return -1;
    }
    if (p.zoom && !(p.zmax > p.zmin && p.zmin > 0.0)) {
        ui.MessagePopup("Operator Error", "The zoom needs a lower and a higher m/z.");
        return -1;
    }
    return 0;
}

int CheckTulvaCount(const Workspace& ws, int requested, Ui& ui) {
    int free = 0;
    for (const auto& p : ws.panels) free += p.active == 0;
    const int can = std::max(0, free - 1);
    if (requested > can) {
        ui.MessagePopup("Insufficient Number of Analysis Panels to Display All Results",
                        fmt::format("Analysis will display {} of the requested {} results due to system limits.", can,
                                    requested));
        return can;
    }
    return requested;
}

double CalCOF(const Spectrum& s, double threshold) {
    if (s.datacount <= 0) return 0.0;
    const double hz = s.dbandwidth / s.datacount;
    double num = 0.0, den = 0.0;
    const std::size_t n = std::min(s.data.size(), static_cast<std::size_t>(s.datacount));
    for (std::size_t i = 0; i < n; ++i) {
        const double h = s.data[i];
        if (h >= threshold) {
            num += static_cast<double>(i) * hz * h;
            den += h;
        }
    }
    return den != 0.0 ? num / den : 0.0;
}

double MaxPeakFromZoom(const Spectrum& s, double xmin, double xmax, Ui& ui) {
    const long long n = static_cast<long long>(s.data.size());
    long long lo = std::clamp<long long>(static_cast<long long>(std::ceil(std::min(xmin, xmax))), 0, n - 1);
    long long hi = std::clamp<long long>(static_cast<long long>(std::floor(std::max(xmin, xmax))), 0, n - 1);
    if (n <= 0 || hi < lo) return 0.0;
    long long top = lo;
    for (long long i = lo; i <= hi; ++i)
        if (s.data[static_cast<std::size_t>(i)] > s.data[static_cast<std::size_t>(top)]) top = i;
    double apex = static_cast<double>(top);
    if (top > 0 && top < n - 1) {
        const double y0 = s.data[static_cast<std::size_t>(top - 1)], y1 = s.data[static_cast<std::size_t>(top)],
                     y2 = s.data[static_cast<std::size_t>(top + 1)];
        const double a = (y0 - 2.0 * y1 + y2) / 2.0;  // leading coefficient
        if (a < 0.0) apex = static_cast<double>(top) + (y0 - y2) / (4.0 * a);
    }
    const double mz = SPt_tomass(s, apex);
    ui.Console(fmt::sprintf("Maxmz equals %f\n", mz));
    return mz;
}

int VoskSaveFiles(Workspace& ws, int slot, int index, const std::string& name, std::string& written, Ui& ui) {
    const int k = index + 1;
    const char* pad = k < 10 ? "_000" : k < 100 ? "_00" : k < 1000 ? "_0" : "_";
    written = fmt::format("{}{}{}.dat", name, pad, k);
    return SaveasTULVA(ws, true, written, slot, 0, ui);
}

int ProcessVoskSpecial(Workspace& ws, int source, const VoskSpecialParams& p, VoskSpecialResult& r, Ui& ui) {
    r = VoskSpecialResult{};
    if ((p.save_raw || p.save_processed) && p.name.empty()) {
        ui.MessagePopup("Aborting - Filename is blank.", "please select filename or deselect Save file option.");
        return -1;
    }
    const Spectrum& src = ws.panels[static_cast<std::size_t>(source)].spectrum;
    if (src.domain != DOMAIN_TIME) {
        ui.MessagePopup("Operator Error", "The special analysis cuts a transient; this record is a spectrum.");
        return -1;
    }
    if (CheckVoskSpecial(p, static_cast<long long>(src.data.size()), ui) < 0) return -1;
    const int n = p.scans > 0 ? p.scans : RedoNumberVosk(static_cast<long long>(src.data.size()), p.start, p.points, p.step);
    const int display = CheckTulvaCount(ws, n, ui);
    std::vector<int> shown;
    for (int k = 0; k < n; ++k) {
        const int slot = Get_New_Panel(ws);
        if (slot < 0) {
            ui.MessagePopup("Too Many Files Open.", "Aborting");
            return -1;
        }
        prepare_new_slot(ws, slot, FILETYPE_TULVA);
        AnalysisPanel& panel = ws.panels[static_cast<std::size_t>(slot)];
        Spectrum& s = panel.spectrum;
        const Spectrum& from = ws.panels[static_cast<std::size_t>(source)].spectrum;
        Set_Default_Parameters(s);
        s.dbandwidth = from.dbandwidth;
        s.Aterm = from.Aterm;
        s.Bterm = from.Bterm;
        s.detectmode = from.detectmode;
        s.Trapvoltage = from.Trapvoltage;
        s.reffreq = from.reffreq;
        s.detectstart = from.detectstart;
        s.filename = from.filename;
        s.filetype = from.filetype;
        s.datacount = static_cast<std::int32_t>(p.points);
        s.domain = DOMAIN_TIME;
        const auto first = from.data.begin() + static_cast<std::ptrdiff_t>(p.start + p.step * k);
        s.data.assign(first, first + static_cast<std::ptrdiff_t>(p.points));
        Initialize_Display(ws, slot);
        ws.active_panel = slot;
        std::string written;
        if (p.save_raw) {
            if (VoskSaveFiles(ws, slot, k, p.name, written, ui) < 0) return -1;
            r.saved.push_back(written);
        }
        if (p.process) {
            if (Process_Data(s, ws.settings, ui) < 0) return -1;
            if (s.hzppt <= 0.0 && s.datacount > 0) s.hzppt = s.dbandwidth / s.datacount;
            Initialize_Display(ws, slot);
            panel.xmode = XMODE_FREQUENCY;
        }
        VoskScan scan;
        scan.scan = k;
        if (p.cof) scan.cof = CalCOF(s, p.cofthresh);
        if (p.zoom && s.domain != DOMAIN_TIME) {
            const double a = SMass_toPt(s, p.zmax), b = SMass_toPt(s, p.zmin);  // high m/z is the low point
            scan.maxmz = MaxPeakFromZoom(s, std::min(a, b), std::max(a, b), ui);
        }
        if (p.save_processed) {
            if (VoskSaveFiles(ws, slot, k, p.name + "_processed", written, ui) < 0) return -1;
            r.saved.push_back(written);
        }
        r.scans.push_back(scan);
        if (k >= display) {
            // Beyond the number shown: closed at once, so the run never holds more slots than are free.
            free_arrays(s);
            panel.active = 0;
        } else {
            shown.push_back(slot);
        }
        ui.ProcessSystemEvents();
    }
    for (std::size_t k = 1; k < r.scans.size(); ++k) r.sweep_rate.push_back(r.scans[k].cof - r.scans[k - 1].cof);
    r.displayed = static_cast<int>(shown.size());
    ws.active_panel = source;
    return 0;
}

}  // namespace vx
