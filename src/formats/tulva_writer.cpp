#include "formats/tulva_writer.hpp"

#include <filesystem>
#include <vector>

#include <fmt/format.h>
#include <fmt/printf.h>

#include "formats/header_copy.hpp"
#include "formats/tulva_reader.hpp"
#include "platform/keyscan.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"

namespace vx {
namespace fs = std::filesystem;

namespace {

constexpr const char* SAVE_ERROR = "Error saving file.";

bool has(std::string_view line, std::string_view key) { return FindPattern(line, key, false) >= 0; }

void put(std::FILE* out, std::string_view text) {
    if (!text.empty()) std::fwrite(text.data(), 1, text.size(), out);
}

void put_line(std::FILE* out, std::string_view text) {
    put(out, text);
    std::fputc('\n', out);
}

enum class Gen { V3, V4 };

const char* signature_for(int version) {
    switch (version) {
        case 4: return "Vantorix Data File v4.00";
        case 3: return "TULVA Data File v3.00";
        case 2: return "TULVA Data File v2.0";
        default: return nullptr;
    }
}

// The header rewrite of both generations; the table of replaced lines differs
// in four rows only.
int write_header(Gen gen, std::FILE* source, std::FILE* out, int sed, const Spectrum& s, int n, int marker,
                 const TulvaWriteOptions& options, HeaderCopyResult* result) {
    HeaderCopyResult r;
    int pending_empty = 0;
    // Empty lines of the source are written again right before the next line
    // that is written, so a dropped line does not take its blank lines along.
    auto emit = [&](std::string_view text) {
        for (; pending_empty > 0; --pending_empty) std::fputc('\n', out);
        put_line(out, text);
    };
    const char* storage = sed ? "Storage Type: double" : "Storage Type: float";
    std::string raw;
    bool in_comment = false;
    while (read_raw_line(source, raw)) {
        const std::string_view L = without_line_end(raw);
        if (L.empty()) {
            ++pending_empty;
            continue;
        }
        // The readers take the lines of a comment block as text, never as keys:
        // copied as they are.
        if (in_comment) {
            emit(L);
            if (has(L, "End of Comment")) in_comment = false;
            continue;
        }
        if (has(L, "Comment :")) {
            emit(L);
            in_comment = true;
            continue;
        }
        if (has(L, "Storage Type:")) {
            r.storage_type_seen = true;
            emit(storage);
        } else if (has(L, "datacount:")) {
            emit(fmt::format("datacount:{}", n));
        } else if (has(L, "expcount:")) {
            emit(gen == Gen::V4 ? fmt::format("expcount: {}", s.expcount) : fmt::format("expcount:{}", s.expcount));
        } else if (has(L, "TULVA Data File") || has(L, "Vantorix Data File")) {
            if (gen == Gen::V4) emit("Vantorix Data File v4.00");
            else if (const char* sig = signature_for(options.version)) emit(sig);
            else emit(L);
        } else if (has(L, "Data Detected at (seconds):")) {
            // A coadded file has no single detection time.
            if (s.expcount < 2) emit(L);
        } else if (has(L, "Data Parameters:")) {
            emit(L);
            if (gen == Gen::V3) emit(fmt::format("Data Storage Mode: {}", s.storagemode));
        } else if (has(L, "Data Points: ")) {
            emit(fmt::format("Data Points: {}", n));
        } else if (const int at = FindPattern(L, "Data:", false); at >= 0 && (gen == Gen::V3 || at == 0)) {
            // The v4 reader takes the marker at column 0 only, the v3 reader
            // anywhere: the header ends where the reader of its generation stops.
            r.marker_seen = true;
            if (options.storage_line && !r.storage_type_seen) emit(storage);
            const bool write_marker = gen == Gen::V4 ? sed == 0 : (sed == 0 && marker != 0);
            if (write_marker) emit(L);
            else for (; pending_empty > 0; --pending_empty) std::fputc('\n', out);
            if (sed) CopySEDParameters(s, out);
            break;
        } else {
            emit(L);
        }
    }
    if (result) *result = r;
    return 0;
}

int choose_version(std::string_view signature) {
    if (FindPattern(signature, "TULVA Data File v2.0", true) >= 0) return 2;
    if (FindPattern(signature, "TULVA Data File v3", true) >= 0) return 3;
    if (FindPattern(signature, "TULVA Data File v4", true) >= 0 ||
        FindPattern(signature, "Vantorix Data File v4", true) >= 0)
        return 4;
    return 0;
}

bool commit_or_say(AtomicFile& f, Ui& ui) {
    if (f.commit() == 0) return true;
    ui.MessagePopup(SAVE_ERROR, fmt::format("Cannot write the file {}: {}", f.target(), f.error()));
    return false;
}

bool store_floats(std::FILE* out, const float* a, std::size_t n) {
    return n == 0 || std::fwrite(a, sizeof(float), n, out) == n;
}

bool store_doubles(std::FILE* out, const double* a, std::size_t n) {
    return n == 0 || std::fwrite(a, sizeof(double), n, out) == n;
}

// Rewrites path through a temporary file: its present bytes, then what add writes.
template <typename Add>
int append_to(const std::string& path, Add add) {
    AtomicFile f(path);
    if (!f.ok()) return -1;
    if (regular_file_size(path)) {
        std::FILE* old = std::fopen(path.c_str(), "rb");
        if (!old) return -1;
        char buf[1 << 16];
        std::size_t got;
        while ((got = std::fread(buf, 1, sizeof buf, old)) > 0)
            if (!f.write(buf, got)) break;
        std::fclose(old);
    }
    if (!add(f.file())) return -1;
    return f.commit();
}

}  // namespace

int Write_Tulva_Data_v40(std::FILE* source, std::FILE* out, int sed, const Spectrum& spectrum, int n, int marker,
                         const TulvaWriteOptions& options, HeaderCopyResult* result) {
    // The v4 writer always ends a plain header with the marker: the argument
    // is not looked at.
    return write_header(Gen::V4, source, out, sed, spectrum, n, marker, options, result);
}

int Write_Tulva_Data_v30(std::FILE* source, std::FILE* out, int sed, const Spectrum& spectrum, int n, int marker,
                         const TulvaWriteOptions& options, HeaderCopyResult* result) {
    return write_header(Gen::V3, source, out, sed, spectrum, n, marker, options, result);
}

int Write_Tulva_Data_v20(std::FILE* source, std::FILE* out, int sed, const Spectrum& spectrum, int n, int marker,
                         const TulvaWriteOptions& options, HeaderCopyResult* result) {
    return Write_Tulva_Data_v30(source, out, sed, spectrum, n, marker, options, result);
}

void CopySEDParameters(const Spectrum& s, std::FILE* out) {
    put_line(out, fmt::sprintf("Phased_Zero= %f", s.Zeroorder));
    put_line(out, fmt::sprintf("Phased_First= %f", s.OptimizedFirstorder));
    put_line(out, fmt::sprintf("Phased_Intercept= %i", s.Phased_Intercept));
    put_line(out, fmt::sprintf("DOMAIN= %i", s.domain));
    put_line(out, fmt::sprintf("Phased_Datacount= %i", s.Phased_Datacount));
}

HeaderCopy copy_header_into(const std::string& sourcepath, const std::string& outpath, std::FILE* out, int sed,
                            const Spectrum& spectrum, int n, int marker, Ui& ui, const TulvaWriteOptions& options,
                            HeaderCopyResult* result) {
    if (refuse_same_file(sourcepath, outpath, ui)) return HeaderCopy::Failed;
    // A packed source is compared through its archive: the output of a .Z
    // source is a plain file and can never be the archive itself.
    std::FILE* src = open_source_file(sourcepath, ui);
    if (!src) return HeaderCopy::Failed;
    std::string first;
    if (Get_Next_Line(src, first) < 0 ||
        (FindPattern(first, "TULVA Data File", false) < 0 && FindPattern(first, "Vantorix Data File", false) < 0)) {
        std::fclose(src);
        return HeaderCopy::NotTulva;
    }
    const int own = choose_version(first);
    const int version = options.version != 0 ? options.version : own;
    if (version == 0) {
        std::fclose(src);
        return HeaderCopy::NoVersion;
    }
    std::rewind(src);
    TulvaWriteOptions o = options;
    // A forced generation names itself in the signature line only when it
    // differs from the source's own.
    if (o.version == own) o.version = 0;
    switch (version) {
        case 2: Write_Tulva_Data_v20(src, out, 0, spectrum, n, marker, o, result); break;
        case 3: Write_Tulva_Data_v30(src, out, sed, spectrum, n, marker, o, result); break;
        default: Write_Tulva_Data_v40(src, out, sed, spectrum, n, marker, o, result); break;
    }
    std::fclose(src);
    return HeaderCopy::Written;
}

int CopyHeader(const std::string& sourcepath, const std::string& outpath, int sed, const Spectrum& spectrum, int n,
               int marker, Ui& ui, const TulvaWriteOptions& options) {
    if (refuse_same_file(sourcepath, outpath, ui)) return -1;
    AtomicFile f(outpath);
    if (!f.ok()) {
        ui.MessagePopup(SAVE_ERROR, fmt::format("Cannot write the file {}: {}", outpath, f.error()));
        return -1;
    }
    switch (copy_header_into(sourcepath, outpath, f.file(), sed, spectrum, n, marker, ui, options)) {
        case HeaderCopy::Written: return commit_or_say(f, ui) ? 0 : -1;
        case HeaderCopy::NoVersion: return 0;  // no output, as always
        default: return -1;
    }
}

int StoreNewData(const float* array, std::size_t count, const std::string& path) {
    return append_to(path, [&](std::FILE* out) { return store_floats(out, array, count); });
}

int StoreNewDataSED(const double* array, std::size_t count, const std::string& path, int part, Ui& ui) {
    const int rc = append_to(path, [&](std::FILE* out) {
        put(out, part == 0 ? "Real Data:\n" : "\n\nImaginary Data:\n");
        return store_doubles(out, array, count);
    });
    if (rc < 0) ui.Console("Check count not right.");
    return rc;
}

int StoreWalkingCalibration(const Spectrum& s, std::FILE* out) {
    put(out, "\n\nPeakPick Parameters\n");
    put(out, fmt::sprintf("PeakPick Startmz = %f\n", s.initMz));
    put(out, fmt::sprintf("PeakPick Endmz = %f\n", s.finalMz));
    put(out, fmt::sprintf("PeakPick PeakThreshold = %f\n", s.peakabundance));
    put(out, fmt::sprintf("PeakPick NoiseThreshold = %f\n", s.peakprofile));
    put(out, fmt::sprintf("SigmaForSNCalc = %f\n", s.noisesigma));
    put(out, fmt::sprintf("BaselineForSNCalc = %f\n", s.noisemean));
    put(out, "\n\nWalking Calibration Parameters\n");
    put(out, fmt::sprintf("Walking Calibration Number of Terms = %i\n", s.walkingterms));
    const int r = std::max(0, std::min<int>(s.walkingregions, static_cast<int>(s.walking.size())));
    put(out, fmt::sprintf("Walking Calibration Regions = %i\n", r));
    // The file keeps the order A, start, B, end (the record: A, B, start, end).
    std::vector<double> block;
    block.reserve(static_cast<std::size_t>(r) * 4);
    for (int i = 0; i < r; ++i) {
        const WalkingRegion& w = s.walking[static_cast<std::size_t>(i)];
        block.insert(block.end(), {w.A, w.startfreq, w.B, w.endfreq});
    }
    return store_doubles(out, block.data(), block.size()) ? 0 : -1;
}

int SaveasTULVA(Workspace& ws, bool haspath, std::string path, int panelindex, int mode, Ui& ui,
                const TulvaWriteOptions& options, HeaderCopyResult* found_out) {
    if (panelindex < 0 || panelindex >= MAX_PANELS || !ws.panels[static_cast<std::size_t>(panelindex)].active) {
        ui.MessagePopup(SAVE_ERROR, "No file is currently opened.");
        return -1;
    }
    const Spectrum& s = ws.panels[static_cast<std::size_t>(panelindex)].spectrum;
    if (s.domain != DOMAIN_TIME) {
        ui.MessagePopup(SAVE_ERROR, "Only a time domain file can be processed.");
        return -1;
    }
    if (s.filetype != FILETYPE_TULVA) {
        ui.MessagePopup(SAVE_ERROR, "Only TULVA file type can be processed.");
        return -1;
    }
    if (!haspath) {
        auto chosen = ui.FileSelectPopup("Select file to save new TULVA File", "*.dat", "");
        if (!chosen || chosen->empty()) return -1;
        path = *chosen;
    }
    if (s.datacount < 0 || s.data.size() < static_cast<std::size_t>(s.datacount)) {
        ui.MessagePopup(SAVE_ERROR, fmt::format("The record holds {} samples, fewer than its count {}.",
                                                s.data.size(), s.datacount));
        return -1;
    }
    if (refuse_same_file(s.filename, path, ui)) return -1;
    AtomicFile f(path);
    if (!f.ok()) {
        ui.MessagePopup(SAVE_ERROR, fmt::format("Cannot write the file {}: {}", path, f.error()));
        return -1;
    }
    const bool walking = mode == 2 || mode == 4 || mode == 6;
    HeaderCopyResult found;
    switch (copy_header_into(s.filename, path, f.file(), 0, s, s.datacount, walking ? 0 : 1, ui, options, &found)) {
        case HeaderCopy::Written: break;
        case HeaderCopy::Failed: return -1;
        default:
            // Appending samples to no header would leave a file no reader takes.
            ui.MessagePopup(SAVE_ERROR,
                            fmt::format("The source file {} is not a Tulva data file of a known version.", s.filename));
            return -1;
    }
    if (!found.marker_seen) {
        ui.MessagePopup(SAVE_ERROR, fmt::format("The source file {} has no \"Data:\" line.", s.filename));
        return -1;
    }
    // With a walking mode the v4 writer has already written its marker, so the
    // block lands behind it and reads as samples; only a v3 header ends before
    // the block. Files have always been made this way.
    if (found_out) *found_out = found;
    if (walking) StoreWalkingCalibration(s, f.file());
    store_floats(f.file(), s.data.data(), static_cast<std::size_t>(s.datacount));
    return commit_or_say(f, ui) ? 0 : -1;
}

int SaveasTULVA_SEDFT(Workspace& ws, bool haspath, std::string path, Ui& ui) {
    const int active = ws.active_panel;
    if (active < 0 || active >= MAX_PANELS || !ws.panels[static_cast<std::size_t>(active)].active) {
        ui.MessagePopup(SAVE_ERROR, "No file is currently opened.");
        return -1;
    }
    const Spectrum& a = ws.panels[static_cast<std::size_t>(active)].spectrum;
    if (a.domain != DOMAIN_FREQUENCY && a.domain != DOMAIN_MASS) {
        ui.MessagePopup(SAVE_ERROR, "Only a processed Frequency domain file can be processed.");
        return -1;
    }
    if (a.filetype != FILETYPE_TULVA) {
        ui.MessagePopup(SAVE_ERROR, "Only TULVA file type can be processed.");
        return -1;
    }
    if (a.sed != 1) {
        ui.MessagePopup(SAVE_ERROR, "Only TULVA SED data can be processed.");
        return -1;
    }
    if (ws.phased_data < 0 || ws.phased_data >= MAX_PANELS) {
        ui.MessagePopup(SAVE_ERROR, "Only TULVA SED data can be processed.");
        return -1;
    }
    const Spectrum& p = ws.panels[static_cast<std::size_t>(ws.phased_data)].spectrum;
    const std::size_t n = a.datacount > 0 ? static_cast<std::size_t>(a.datacount) : 0;
    if (p.realdata64.size() < n || p.imagdata64.size() < n) {
        ui.MessagePopup(SAVE_ERROR, fmt::format("The phased record holds {} and {} values, fewer than the count {}.",
                                                p.realdata64.size(), p.imagdata64.size(), n));
        return -1;
    }
    if (!haspath) {
        auto chosen = ui.FileSelectPopup("Select file to save new TULVA File", "*.ftd", "");
        if (!chosen || chosen->empty()) return -1;
        path = *chosen;
    }
    if (refuse_same_file(p.filename, path, ui)) return -1;
    AtomicFile f(path);
    if (!f.ok()) {
        ui.MessagePopup(SAVE_ERROR, fmt::format("Cannot write the file {}: {}", path, f.error()));
        return -1;
    }
    const HeaderCopy rc = copy_header_into(p.filename, path, f.file(), 1, p, a.datacount, 1, ui);
    if (rc == HeaderCopy::Failed) return -1;
    if (rc != HeaderCopy::Written) {
        ui.MessagePopup(SAVE_ERROR,
                        fmt::format("The source file {} is not a Tulva data file of a known version.", p.filename));
        return -1;
    }
    put(f.file(), "Real Data:\n");
    store_doubles(f.file(), p.realdata64.data(), n);
    put(f.file(), "\n\nImaginary Data:\n");
    store_doubles(f.file(), p.imagdata64.data(), n);
    return commit_or_say(f, ui) ? 0 : -1;
}

int save_sed_channels(Workspace& ws, const std::string& path, int first, int second, Ui& ui) {
    auto occupied = [&](int slot) {
        return slot >= 0 && slot < MAX_PANELS && ws.panels[static_cast<std::size_t>(slot)].active;
    };
    if (!occupied(first) || !occupied(second) || first == second) {
        ui.MessagePopup(SAVE_ERROR, "No file is currently opened.");
        return -1;
    }
    Spectrum& a = ws.panels[static_cast<std::size_t>(first)].spectrum;
    const Spectrum& b = ws.panels[static_cast<std::size_t>(second)].spectrum;
    if (a.filetype != FILETYPE_TULVA || b.filetype != FILETYPE_TULVA) {
        ui.MessagePopup(SAVE_ERROR, "Only TULVA file type can be processed.");
        return -1;
    }
    const std::size_t n = a.datacount > 0 ? static_cast<std::size_t>(a.datacount) : 0;
    if (n == 0 || b.datacount != a.datacount || a.data.size() < n || b.data.size() < n) {
        ui.MessagePopup(SAVE_ERROR, fmt::format("The two channels hold {} and {} samples; both need the count {}.",
                                                a.data.size(), b.data.size(), n));
        return -1;
    }
    if (refuse_same_file(a.filename, path, ui)) return -1;
    AtomicFile f(path);
    if (!f.ok()) {
        ui.MessagePopup(SAVE_ERROR, fmt::format("Cannot write the file {}: {}", path, f.error()));
        return -1;
    }
    const bool transformed = a.domain != DOMAIN_TIME;
    // The phase lines of the SED header carry the domain and the count that a
    // reader takes back ("Phased_Datacount=" sets datacount).
    a.Phased_Datacount = a.datacount;
    TulvaWriteOptions options;
    options.storage_line = true;  // a header without "Storage Type:" would read the blocks as int16
    HeaderCopyResult found;
    switch (copy_header_into(a.filename, path, f.file(), transformed ? 1 : 0, a, a.datacount, 1, ui, options,
                             &found)) {
        case HeaderCopy::Written: break;
        case HeaderCopy::Failed: return -1;
        default:
            ui.MessagePopup(SAVE_ERROR,
                            fmt::format("The source file {} is not a Tulva data file of a known version.", a.filename));
            return -1;
    }
    if (!found.marker_seen) {
        ui.MessagePopup(SAVE_ERROR, fmt::format("The source file {} has no \"Data:\" line.", a.filename));
        return -1;
    }
    if (!transformed) {
        store_floats(f.file(), a.data.data(), n);
        put(f.file(), "\nSED Data:\n");
        store_floats(f.file(), b.data.data(), n);
    } else {
        put(f.file(), "Data:\n");
        auto widened = [n](const std::vector<double>& d64, const std::vector<float>& d32) {
            if (d64.size() >= n) return std::vector<double>(d64.begin(), d64.begin() + static_cast<std::ptrdiff_t>(n));
            return std::vector<double>(d32.begin(), d32.begin() + static_cast<std::ptrdiff_t>(n));
        };
        const std::vector<double> re = widened(a.realdata64, a.data);
        const std::vector<double> im = widened(a.imagdata64, b.data);
        store_doubles(f.file(), re.data(), n);
        put(f.file(), "\nSED Data:\n");
        store_doubles(f.file(), im.data(), n);
    }
    return commit_or_say(f, ui) ? 0 : -1;
}

}  // namespace vx
