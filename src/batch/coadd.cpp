#include "batch/coadd.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "formats/tulva_reader.hpp"
#include "platform/ui.hpp"
#include "workspace/processing.hpp"

namespace vx {

namespace {

void release_slot(Workspace& ws, int slot) {
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
    free_arrays(p.spectrum);
    p.spectrum.peaks = {};
    p.active = 0;
}

int load(Workspace& ws, const std::string& path, int slot, CoaddKind kind, Ui& ui) {
    // The sample block of the file before is kept for the next: the readers
    // fill a block that is large enough in place, where a new one would cost a
    // page fault for every 4 KiB of every file (64 files of 2^22 samples ran
    // three times slower so).
    std::vector<float> block = std::move(ws.panels[static_cast<std::size_t>(slot)].spectrum.data);
    block.clear();
    prepare_new_slot(ws, slot, kind == CoaddKind::Odyssey ? FILETYPE_ODYSSEY : FILETYPE_TULVA);
    ws.panels[static_cast<std::size_t>(slot)].spectrum.data = std::move(block);
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
            // The file's arrays go; its sample block stays for the next file.
            std::vector<float> block = std::move(s.data);
            free_arrays(s);
            s.peaks = {};
            block.clear();
            s.data = std::move(block);
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

namespace {

// Slots one two-channel co-add holds at once: the two result channels and the
// two channels of the file being added.
constexpr int SED_COADD_SLOTS = 4;

int free_slots(const Workspace& ws) {
    int n = 0;
    for (const auto& p : ws.panels) n += p.active == 0;
    return n;
}

struct SedFile {
    int first = -1, second = -1;
};

// Reads one two-channel file into a fresh slot, which the reader extends by the
// second channel. Any third channel is given back at once. Returns 0 with both
// slots, or -1 (slots given back) after the reader's message or a console note.
int load_sed(Workspace& ws, const std::string& path, SedFile& f, Ui& ui) {
    f = {};
    const int slot = Get_New_Panel(ws);
    if (slot < 0) return -1;
    prepare_new_slot(ws, slot, FILETYPE_TULVA);
    ws.panels[static_cast<std::size_t>(slot)].active = 1;
    ws.active_panel = slot;
    ws.sed_second_panel = ws.sed_third_panel = -1;
    Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    const int rc = Get_Tulva_Data(ws, path, s, ui);
    const int second = ws.sed_second_panel;
    if (ws.sed_third_panel >= 0 && ws.sed_third_panel != slot) release_slot(ws, ws.sed_third_panel);
    ws.sed_second_panel = ws.sed_third_panel = -1;
    const bool two = second >= 0 && second != slot && second < MAX_PANELS;
    if (rc != 0 || !two || s.data.empty()) {
        if (rc == 0 && !two) ui.Console(fmt::format("{}: one channel only, not a two-channel file; not added\n", path));
        release_slot(ws, slot);
        if (two) release_slot(ws, second);
        return -1;
    }
    f = {slot, second};
    return 0;
}

// The transform of each channel of a two-channel file, as "Process" does it to
// a single record. Complex frequency data (double blocks) are transformed
// already, and a frequency record is left as it is by Process_Data.
int transform_channels(Workspace& ws, const SedFile& f, Ui& ui) {
    Spectrum& a = ws.panels[static_cast<std::size_t>(f.first)].spectrum;
    Spectrum& b = ws.panels[static_cast<std::size_t>(f.second)].spectrum;
    if (!a.realdata64.empty()) return 0;
    if (Process_Data(a, ws.settings, ui) < 0 || Process_Data(b, ws.settings, ui) < 0) return -1;
    return 0;
}

int coadd_sed(Workspace& ws, const std::vector<std::string>& files, bool transform, CoaddResult& r, Ui& ui,
              const CoaddProgress& progress) {
    r = CoaddResult{};
    if (free_slots(ws) < SED_COADD_SLOTS) {
        ui.MessagePopup("Warning", TOO_MANY_FILES);
        return -1;
    }
    const int total = static_cast<int>(files.size());
    int done = 0;
    auto tick = [&] {
        ++done;
        if (progress.update) progress.update(done, total, r);
        ui.ProcessSystemEvents();
    };
    auto load_one = [&](const std::string& path, SedFile& f) {
        if (load_sed(ws, path, f, ui) < 0) return -1;
        if (transform && transform_channels(ws, f, ui) < 0) {
            release_slot(ws, f.first);
            release_slot(ws, f.second);
            return -1;
        }
        return 0;
    };

    // The first file that loads is the base: its two channels become the two
    // result slots. The list is checked for its end.
    std::size_t next = 0;
    SedFile base;
    while (next < files.size() && base.first < 0) {
        const std::string& path = files[next++];
        if (load_one(path, base) == 0) r.used.push_back(path);
        else r.failed.push_back(path);
        tick();
    }
    if (base.first < 0) {
        ws.active_panel = -1;
        ui.MessagePopup("Warning", files.empty() ? "No files were chosen." : "None of the files could be read: nothing was added.");
        return -1;
    }
    Spectrum& ch1 = ws.panels[static_cast<std::size_t>(base.first)].spectrum;
    Spectrum& ch2 = ws.panels[static_cast<std::size_t>(base.second)].spectrum;
    const std::size_t n = std::min({ch1.data.size(), ch2.data.size(), static_cast<std::size_t>(std::max(0, ch1.datacount))});
    const bool complex = ch1.realdata64.size() >= n && ch1.imagdata64.size() >= n && !ch1.realdata64.empty();

    while (next < files.size()) {
        if (progress.stop_requested && progress.stop_requested()) {
            r.stopped = true;
            break;
        }
        const std::string& path = files[next++];
        SedFile f;
        if (load_one(path, f) == 0) {
            Spectrum& a = ws.panels[static_cast<std::size_t>(f.first)].spectrum;
            const Spectrum& b = ws.panels[static_cast<std::size_t>(f.second)].spectrum;
            const bool a_complex = !a.realdata64.empty();
            if (a.data.size() < n || b.data.size() < n || a.domain != ch1.domain || a_complex != complex ||
                (complex && (a.realdata64.size() < n || a.imagdata64.size() < n))) {
                // Files are meant to be alike; one that is shorter, or of
                // another domain or storage, cannot be added point by point.
                ui.Console(fmt::format("{}: {} and {} samples of domain {}{}, unlike the first file's {} of domain "
                                       "{}{}; not added\n",
                                       path, a.data.size(), b.data.size(), a.domain, a_complex ? " (complex)" : "",
                                       n, ch1.domain, complex ? " (complex)" : ""));
                r.failed.push_back(path);
            } else {
                r.used.push_back(path);
                for (std::size_t i = 0; i < n; ++i) ch1.data[i] += a.data[i];
                for (std::size_t i = 0; i < n; ++i) ch2.data[i] += b.data[i];
                if (complex) {
                    for (std::size_t i = 0; i < n; ++i) ch1.realdata64[i] += a.realdata64[i];
                    for (std::size_t i = 0; i < n; ++i) ch1.imagdata64[i] += a.imagdata64[i];
                }
            }
            // The file's channels (and its double blocks) go at once.
            release_slot(ws, f.first);
            release_slot(ws, f.second);
        } else {
            r.failed.push_back(path);
        }
        tick();
    }

    const std::size_t used = r.used.size();
    const float scale = static_cast<float>(1.0 / static_cast<double>(used));
    for (std::size_t i = 0; i < n; ++i) ch1.data[i] *= scale;
    for (std::size_t i = 0; i < n; ++i) ch2.data[i] *= scale;
    if (complex) {
        const double s64 = 1.0 / static_cast<double>(used);
        for (std::size_t i = 0; i < n; ++i) ch1.realdata64[i] *= s64;
        for (std::size_t i = 0; i < n; ++i) ch1.imagdata64[i] *= s64;
    }
    for (const int slot : {base.first, base.second}) {
        AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
        Spectrum& s = p.spectrum;
        p.firstmasszoom = 1;
        p.moveoffset = 0.0;
        s.sed = 1;
        s.lcmscurrent = -1;
        s.filetype = FILETYPE_TULVA;
        s.expcount = static_cast<std::int32_t>(used);
        s.title2 = fmt::format("Sum of {} Files", used);
        Initialize_Display(ws, slot);
        if (s.domain == DOMAIN_MASS) p.xmode = XMODE_MZ;
        else if (s.domain == DOMAIN_FREQUENCY) p.xmode = XMODE_FREQUENCY;
    }
    // The channel globals name the result, as after opening a two-channel file.
    ws.phased_data = base.first;
    ws.sed_second_panel = base.second;
    ws.sed_mode = (ch1.domain == DOMAIN_TIME && !complex) ? 1 : 0;
    ws.active_panel = base.first;
    r.slot = base.first;
    r.second_slot = base.second;
    r.total_weight = static_cast<double>(used);
    r.expcount = static_cast<int>(used);
    return 0;
}

}  // namespace

int CoAddTulvaSED(Workspace& ws, const std::vector<std::string>& files, CoaddResult& result, Ui& ui,
                  const CoaddProgress& progress) {
    return coadd_sed(ws, files, false, result, ui, progress);
}

int CoAddTulvaSEDFTD(Workspace& ws, const std::vector<std::string>& files, CoaddResult& result, Ui& ui,
                     const CoaddProgress& progress) {
    return coadd_sed(ws, files, true, result, ui, progress);
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
