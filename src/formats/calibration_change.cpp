#include "formats/calibration_change.hpp"

#include <cstdio>
#include <filesystem>

#include <fmt/format.h>
#include <fmt/printf.h>

#include "formats/header_copy.hpp"
#include "platform/keyscan.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"
#include "platform/zip.hpp"

namespace vx {
namespace fs = std::filesystem;

namespace {

constexpr const char* FILE_INPUT_ERROR = "File Input Error";

int copy_with_new_coefficients(const std::string& in, const std::string& out, double a, double b, Ui& ui,
                               const CalibrationChangeOptions& options) {
    if (!regular_file_size(in)) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("Cannot open the file {}.", in));
        return -1;
    }
    std::FILE* src = std::fopen(in.c_str(), "rb");
    if (!src) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("Cannot open the file {}.", in));
        return -1;
    }
    AtomicFile dst(out);
    if (!dst.ok()) {
        std::fclose(src);
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("Cannot write the file {}: {}", out, dst.error()));
        return -1;
    }
    auto fail = [&](const char* text) {
        std::fclose(src);
        ui.MessagePopup(FILE_INPUT_ERROR, text);
        return -1;  // the AtomicFile removes its temporary: no output is left
    };
    auto coefficient = [&](const char* key, double v) {
        return options.full_precision ? fmt::sprintf("%s%.6f", key, v)
                                      : fmt::sprintf("%s%f", key, static_cast<double>(static_cast<float>(v)));
    };

    std::string line;
    bool signature_seen = false, marker = false;
    long long count = 0;
    bool ok = true;
    while (read_raw_line(src, line)) {
        const std::string_view text = without_line_end(line);
        if (!signature_seen) {
            if (text.empty()) {
                ok = ok && dst.write(line);
                continue;
            }
            if (FindPattern(text, "TULVA Data File", false) < 0 && FindPattern(text, "Vantorix Data File", false) < 0 &&
                FindPattern(text, "TULVA SWIFT File", false) < 0)
                return fail("Not Valid TULVA Data File Format");
            signature_seen = true;
        }
        if (auto v = value_behind(text, "Data Points:", false)) count = scan_int(*v);
        if (FindPattern(text, "Source Coeff0:", false) >= 0) {
            ok = ok && dst.write(coefficient("Source Coeff0:", a) + std::string(line_end(line)));
        } else if (FindPattern(text, "Source Coeff1:", false) >= 0) {
            ok = ok && dst.write(coefficient("Source Coeff1:", b) + std::string(line_end(line)));
        } else {
            ok = ok && dst.write(line);
        }
        if (FindPattern(text, "Data:", false) >= 0) {
            marker = true;
            break;
        }
    }
    if (!signature_seen) return fail("Not Valid TULVA Data File Format");
    if (count <= 0) return fail("No Data Count Specified");
    if (!marker) return fail("No Data Marker Found");

    // Four bytes a sample whatever the storage type, as files have always been
    // copied; a 16-bit file thus takes what follows its block too. The copy
    // stops at the end of the input, so a short file gives a short copy.
    unsigned long long left = static_cast<unsigned long long>(count) * 4ULL;
    char buf[1 << 16];
    while (left > 0 && ok) {
        const std::size_t want = static_cast<std::size_t>(std::min<unsigned long long>(left, sizeof buf));
        const std::size_t got = std::fread(buf, 1, want, src);
        if (got == 0) break;
        ok = dst.write(buf, got);
        left -= got;
    }
    std::fclose(src);
    if (!ok || dst.commit() < 0) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("Cannot write the file {}: {}", out, dst.error()));
        return -1;
    }
    return 0;
}

}  // namespace

int Change_Tulva_Calibration_Go(const std::string& inpath, const std::string& outpath, double a, double b, Ui& ui,
                                const CalibrationChangeOptions& options) {
    if (!is_packed_path(inpath)) {
        if (refuse_same_file(inpath, outpath, ui)) return -1;
        return copy_with_new_coefficients(inpath, outpath, a, b, ui, options);
    }

    ScratchDir scratch("vantorix-recal");
    const std::string base = fs::path(inpath).filename().string();
    const std::string member = base.substr(0, base.size() - 2);
    if (scratch.path.empty() || member.empty() ||
        unzip1(inpath, scratch.path.string(), member) != UNZIP_OK) {
        ui.MessagePopup("Error", "Cannot unzip file!");
        return -1;
    }
    const std::string unpacked = (scratch.path / member).string();
    // The output of a packed file is always named after the file.
    const std::string plain_out = inpath.substr(0, inpath.size() - 2) + ".new";
    const std::string packed = plain_out + ".Z";
    if (refuse_same_file(inpath, packed, ui)) return -1;
    const std::string scratch_out = (scratch.path / fs::path(plain_out).filename()).string();
    if (copy_with_new_coefficients(unpacked, scratch_out, a, b, ui, options) < 0) return -1;
    // Packed beside the input through a temporary archive renamed over the target.
    const fs::path folder = fs::path(plain_out).parent_path().empty() ? fs::path(".") : fs::path(plain_out).parent_path();
    if (zip1(scratch_out, scratch.path.string()) != 0) {
        ui.MessagePopup("Error", fmt::format("Cannot write the archive {}.", packed));
        return -1;
    }
    std::error_code ec;
    const fs::path made = scratch.path / (fs::path(plain_out).filename().string() + ".Z");
    fs::rename(made, packed, ec);
    if (ec) {  // another file system: copy beside the target, then rename
        const fs::path tmp = folder / ("." + made.filename().string() + ".part");
        fs::copy_file(made, tmp, fs::copy_options::overwrite_existing, ec);
        if (!ec) fs::rename(tmp, packed, ec);
        if (ec) {
            fs::remove(tmp, ec);
            ui.MessagePopup("Error", fmt::format("Cannot write the archive {}.", packed));
            return -1;
        }
    }
    return 0;
}

int change_calibration_of_files(std::vector<std::string> files, double a, double b, Ui& ui,
                                const std::function<void(int done, int total)>& progress,
                                const CalibrationChangeOptions& options) {
    if (a < 1e-05 && b < 1e-05) {
        ui.MessagePopup("Wrong Parameters", "Please specify the paremeters before picking files");
        return -1;
    }
    if (files.empty()) files = ui.MultiFileSelectPopup("Files to Change Calibration", "*.dat *.z", "");
    if (files.empty()) return -1;
    const int total = static_cast<int>(files.size());
    if (progress) progress(0, total);
    int written = 0;
    for (int i = 0; i < total; ++i) {
        const std::string& f = files[static_cast<std::size_t>(i)];
        if (Change_Tulva_Calibration_Go(f, f + ".new", a, b, ui, options) == 0) ++written;
        if (progress) progress(i + 1, total);
        ui.ProcessSystemEvents();
    }
    return written;
}

}  // namespace vx
