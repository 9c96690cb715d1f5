#include "batch/coadd.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "formats/tulva_reader.hpp"
#include "platform/ui.hpp"

namespace vx {

namespace {

void release_slot(Workspace& ws, int slot) {
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
    free_arrays(p.spectrum);
    p.spectrum.peaks = {};
    p.active = 0;
}

int load(Workspace& ws, const std::string& path, int slot, CoaddKind kind, Ui& ui) {
    prepare_new_slot(ws, slot, kind == CoaddKind::Odyssey ? FILETYPE_ODYSSEY : FILETYPE_TULVA);
    // The slot stays reserved while it is filled (a SED file's second channel
    // must not take it).
    ws.panels[static_cast<std::size_t>(slot)].active = 1;
    ws.active_panel = slot;
    Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    const int rc = kind == CoaddKind::Odyssey ? Get_Odyssey_Data(ws, path, s, ui) : Get_Tulva_Data(ws, path, s, ui);
    // A SED file fills further slots with its other channels: they are no part
    // of a plain sum and are given back at once.
    for (int* extra : {&ws.sed_second_panel, &ws.sed_third_panel}) {
        if (*extra >= 0 && *extra != slot && *extra < MAX_PANELS) release_slot(ws, *extra);
        *extra = -1;
    }
    if (rc == 0 && s.data.empty()) return -1;
    return rc;
}

// Weight of one file: its expcount (Tulva), 1 for Odyssey files.
float weight_of(const Spectrum& s, CoaddKind kind) {
    if (kind == CoaddKind::Odyssey) return 1.0f;
    return static_cast<float>(std::max(1, s.expcount));
}

}  // namespace

int CoAddTulva(Workspace& ws, const std::vector<std::string>& files, CoaddKind kind, CoaddResult& r, Ui& ui,
               const CoaddProgress& progress) {
    r = CoaddResult{};
    const int total = static_cast<int>(files.size());
    const int result = Get_New_Panel(ws);
    if (result < 0) {
        ui.MessagePopup("Warning", TOO_MANY_FILES);
        return -1;
    }
    ws.panels[static_cast<std::size_t>(result)].active = 1;
    const int work = Get_New_Panel(ws);
    if (work < 0) {
        ws.panels[static_cast<std::size_t>(result)].active = 0;
        ui.MessagePopup("Warning", TOO_MANY_FILES);
        return -1;
    }
    ws.panels[static_cast<std::size_t>(work)].active = 1;
    int done = 0;
    auto tick = [&] {
        ++done;
        if (progress.update) progress.update(done, total, r);
        ui.ProcessSystemEvents();
    };

    // The first file that loads is the base; the list is checked for its end,
    // so a list in which every file fails ends here.
    std::size_t next = 0;
    bool based = false;
    while (next < files.size() && !based) {
        const std::string& path = files[next++];
        if (load(ws, path, result, kind, ui) == 0) {
            based = true;
            r.used.push_back(path);
        } else {
            r.failed.push_back(path);
        }
        tick();
    }
    if (!based) {
        release_slot(ws, result);
        release_slot(ws, work);
        ws.active_panel = -1;
        ui.MessagePopup("Warning", files.empty() ? "No files were chosen." : "None of the files could be read: nothing was added.");
        return -1;
    }
    Spectrum& sum = ws.panels[static_cast<std::size_t>(result)].spectrum;
    const std::size_t n = std::min(sum.data.size(), static_cast<std::size_t>(std::max(0, sum.datacount)));
    const float w0 = weight_of(sum, kind);
    for (std::size_t i = 0; i < n; ++i) sum.data[i] *= w0;
    double T = w0;

    while (next < files.size()) {
        if (progress.stop_requested && progress.stop_requested()) {
            r.stopped = true;
            break;
        }
        const std::string& path = files[next++];
        if (load(ws, path, work, kind, ui) == 0) {
            Spectrum& s = ws.panels[static_cast<std::size_t>(work)].spectrum;
            if (s.data.size() < n) {
                // Files are meant to be of one length; a shorter one would be
                // added past its own end, so it is not added at all.
                ui.Console(fmt::format("{}: {} samples, fewer than the first file's {}; not added\n", path,
                                       s.data.size(), n));
                r.failed.push_back(path);
            } else {
                const float w = weight_of(s, kind);
                T += w;
                r.used.push_back(path);
                const float* src = s.data.data();
                float* dst = sum.data.data();
                for (std::size_t i = 0; i < n; ++i) dst[i] += src[i] * w;
            }
            free_arrays(s);
            s.peaks = {};
        } else {
            r.failed.push_back(path);
        }
        tick();
    }
    release_slot(ws, work);
    ws.active_panel = result;
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(result)];
    p.firstmasszoom = 1;
    p.moveoffset = 0.0;
    sum.sed = 0;
    sum.lcmscurrent = -1;
    sum.filetype = kind == CoaddKind::Odyssey ? FILETYPE_ODYSSEY : FILETYPE_TULVA;
    // expcount counts the files, not their experiments (T): kept as the
    // co-add has always stored it.
    sum.expcount = static_cast<std::int32_t>(r.used.size());
    const float scale = static_cast<float>(1.0 / T);
    for (std::size_t i = 0; i < n; ++i) sum.data[i] *= scale;
    sum.title2 = fmt::format("Sum of {} Files", r.used.size());
    Initialize_Display(ws, result);
    r.slot = result;
    r.total_weight = T;
    r.expcount = sum.expcount;
    return 0;
}

int Coadd_Vosk_Data(const std::vector<std::string>& list, Spectrum& s, const PointsChannel& dialogue, Ui& ui) {
    Set_Default_Parameters(s);
    if (list.empty()) {
        ui.MessagePopup("Warning", "No files were chosen.");
        return -1;
    }
    Spectrum one;
    if (Get_Vosk_Data(list[0], one, dialogue, false, ui) < 0) return -1;
    s.dbandwidth = one.dbandwidth;
    s.datacount = one.datacount;
    s.filename = list[0].substr(0, 255);
    s.data.assign(one.data.size(), 0.0f);
    // The first file's point count stands for every file (the dialogue asked once).
    const PointsChannel d{one.datacount, dialogue.channel};
    for (std::size_t k = 0; k < list.size(); ++k) {
        if (k > 0 && Get_Vosk_Data(list[k], one, d, true, ui) < 0) return -1;
        for (std::size_t i = 0; i < s.data.size(); ++i) s.data[i] += one.data[i];
    }
    const float n = static_cast<float>(list.size());
    for (float& v : s.data) v /= n;
    s.ionpolarity = 0;
    s.domain = DOMAIN_TIME;
    s.title2 = fmt::format("Sum of {} Files", list.size());
    return 0;
}

}  // namespace vx
