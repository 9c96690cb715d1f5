#include "formats/spectrum_export.hpp"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>

#include <fmt/format.h>
#include <fmt/printf.h>

#include "platform/safe_file.hpp"
#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

namespace vx {

namespace {

// Every export goes to a temporary file beside the target and replaces it only
// when complete: a full disk never leaves half a spectrum under the real name.
// An export never replaces the data file its spectrum was read from.
using File = std::unique_ptr<AtomicFile>;

File open_for_writing(const Spectrum& s, const std::string& path, Ui& ui) {
    if (!s.filename.empty() && same_file(path, s.filename)) {
        ui.MessagePopup("File Output Error",
                        fmt::format("The file {} is the data file of this spectrum; choose another name.", path));
        return nullptr;
    }
    auto f = std::make_unique<AtomicFile>(path);
    if (!f->ok()) {
        ui.MessagePopup("File Output Error", fmt::format("Cannot write the file {}.", path));
        ui.Console(f->error() + "\n");
        return nullptr;
    }
    return f;
}

// Text-mode output: LF becomes CR LF, as the run-time's text files write it.
class TextOut {
public:
    explicit TextOut(std::FILE* f) : f_(f) { buf_.reserve(1 << 16); }
    ~TextOut() { flush(); }
    void put(std::string_view s) {
        for (char c : s) {
            if (c == '\n') buf_.push_back('\r');
            buf_.push_back(c);
        }
        if (buf_.size() > (1 << 16)) flush();
    }
    void flush() {
        if (!buf_.empty() && std::fwrite(buf_.data(), 1, buf_.size(), f_) != buf_.size()) failed_ = true;
        buf_.clear();
    }
    bool failed() const { return failed_; }

private:
    std::FILE* f_;
    std::string buf_;
    bool failed_ = false;
};

int finish(File& f, bool ok, const std::string& path, Ui& ui) {
    if (!ok || f->commit() != 0) {
        const std::string why = f->error().empty() ? std::string() : ": " + f->error();
        ui.MessagePopup("File Output Error", fmt::format("Writing the file {} failed{}.", path, why));
        return -1;
    }
    return 0;
}

std::size_t count_of(const Spectrum& s) {
    return std::min<std::size_t>(static_cast<std::size_t>(std::max(s.datacount, 0)), s.data.size());
}

bool ends_with(const std::string& s, std::string_view tail) {
    if (s.size() < tail.size()) return false;
    for (std::size_t i = 0; i < tail.size(); ++i) {
        const char a = static_cast<char>(std::tolower(static_cast<unsigned char>(s[s.size() - tail.size() + i])));
        if (a != tail[i]) return false;
    }
    return true;
}

bool has_active(const Workspace& ws) {
    return ws.active_panel >= 0 && ws.active_panel < MAX_PANELS &&
           ws.panels[static_cast<std::size_t>(ws.active_panel)].active != 0;
}

}  // namespace

int write_spectrum_text(const Spectrum& s, const std::string& path, Ui& ui) {
    File f = open_for_writing(s, path, ui);
    if (!f) return -1;
    const std::size_t n = count_of(s);
    const float scale = 1.0f;
    TextOut out(f->file());
    if (s.detectmode == DETECT_QUADRATURE) {
        out.put(fmt::sprintf("Number of Points: %d\n", s.datacount / 2));
        out.put(fmt::sprintf("Bandwidth: %.15f\n", s.dbandwidth));
        out.put("Data:\n");
        for (std::size_t i = 0; i + 1 < n; i += 2)
            out.put(fmt::sprintf("%.3f, %.3f\n", s.data[i] * scale, s.data[i + 1] * scale));
    } else {
        out.put(fmt::sprintf("Number of Points: %d\n", s.datacount));
        out.put(fmt::sprintf("Bandwidth: %.15f\n", s.dbandwidth));
        const double hz = s.datacount != 0 ? s.dbandwidth / s.datacount : 0.0;
        if (s.domain == DOMAIN_MASS) {
            out.put(fmt::sprintf("Coeff 0 = %.6f\n", s.Aterm));
            out.put(fmt::sprintf("Coeff 1 = %.6f\n", s.Bterm));
            out.put("Data:\n");
            for (std::size_t i = 0; i < n; ++i) {
                const double f = static_cast<double>(i) * hz;
                // The trap voltage is added to the second term here, not
                // multiplied: exports have always been written this way.
                // Data with the instrument's own law (Bruker .d) go by that law.
                const double x = s.caltype == CALTYPE_INSTRUMENT ? instrument_mass(s.Aterm, s.Bterm, s.Cterm, f)
                                                                 : s.Aterm / f + (s.Bterm + s.Trapvoltage) / (f * f);
                out.put(fmt::sprintf("%.6f,%.3f\n", x, s.data[i] * scale));
            }
        } else if (s.domain == DOMAIN_FREQUENCY) {
            const double hzppt = s.hzppt > 0.0 ? s.hzppt : hz;
            out.put("Data:\n");
            out.put(fmt::sprintf("%.6f,%.3f\n", 0.0, 0.0));
            for (std::size_t i = 1; i < n; ++i)
                out.put(fmt::sprintf("%.6f,%.3f\n", static_cast<double>(i) * hzppt, s.data[i] * scale));
        } else if (s.domain == DOMAIN_TIME) {
            out.put("Data:\n");
            for (std::size_t i = 0; i < n; ++i)
                out.put(fmt::sprintf("%.6e,%.3f\n", static_cast<double>(i) * 0.5 / s.dbandwidth, s.data[i] * scale));
        }
    }
    out.flush();
    return finish(f, !out.failed(), path, ui);
}

int write_spectrum_binary(const Spectrum& s, const std::string& path, Ui& ui) {
    File f = open_for_writing(s, path, ui);
    if (!f) return -1;
    const std::size_t n = count_of(s);
    const bool ok = std::fwrite(s.data.data(), sizeof(float), n, f->file()) == n;
    return finish(f, ok, path, ui);
}

int write_spectrum_block(const Spectrum& s, const std::string& path, Ui& ui) {
    File f = open_for_writing(s, path, ui);
    if (!f) return -1;
    const std::size_t n = count_of(s);
    const std::int32_t header[5] = {static_cast<std::int32_t>(n), 0, 0, 0, 0};
    bool ok = std::fwrite(header, sizeof(header), 1, f->file()) == 1;
    std::vector<float> masses(n);
    const double hz = s.datacount != 0 ? s.dbandwidth / s.datacount : 0.0;
    if (n > 0) masses[0] = 100000.0f;
    for (std::size_t i = 1; i < n; ++i) {
        const double fr = static_cast<double>(i) * hz;
        const double m = s.caltype == CALTYPE_INSTRUMENT ? instrument_mass(s.Aterm, s.Bterm, s.Cterm, fr)
                                                         : s.Aterm / fr + s.Bterm / (fr * fr);
        masses[i] = static_cast<float>(m < 0.0 ? 100000.0 : m);
    }
    ok = ok && std::fwrite(masses.data(), sizeof(float), n, f->file()) == n;
    ok = ok && std::fwrite(s.data.data(), sizeof(float), n, f->file()) == n;
    return finish(f, ok, path, ui);
}

int write_wave_file(const Spectrum& s, const std::string& path, Ui& ui) {
    File f = open_for_writing(s, path, ui);
    if (!f) return -1;
    {
        // A fixed text header, full stops and all, written through a text-mode
        // file; sound programs do not take it, and that is the format.
        TextOut out(f->file());
        out.put("RIFF");
        out.put(".;..");
        out.put("WAVEfmt.");
        out.put("........\"V...X..\n....data|;......\n................\n................");
        out.flush();
        if (out.failed()) return finish(f, false, path, ui);
    }
    const std::size_t n = count_of(s);
    const bool ok = std::fwrite(s.data.data(), sizeof(float), n, f->file()) == n;
    return finish(f, ok, path, ui);
}

int SaveRawSpectrum(Workspace& ws, int kind, const std::string& path_in, Ui& ui) {
    if (!has_active(ws)) {
        ui.MessagePopup("Operator Error", "No Spectrum Chosen");
        return -1;
    }
    if (kind < RAW_TEXT || kind > RAW_BLOCK) {
        ui.MessagePopup("Operator Error", fmt::format("There is no spectrum export of kind {}.", kind));
        return -1;
    }
    const Spectrum& s = ws.panels[static_cast<std::size_t>(ws.active_panel)].spectrum;
    std::string path = path_in;
    if (path.empty()) {
        auto chosen = kind == RAW_TEXT ? ui.FileSelectPopup("Save Spectrum as ASCII", "*.csv", "")
                                       : ui.FileSelectPopup("Save Spectrum as Binary", "*.bin", "");
        if (!chosen || chosen->empty()) return -1;
        path = *chosen;
    }
    switch (kind) {
        case RAW_TEXT: return write_spectrum_text(s, path, ui);
        case RAW_BINARY:
            // The scale factor is asked for and not applied: raw floats are written.
            (void)ui.PromptPopup("Scale Factor", "Type in the scale factor:", 32);
            return write_spectrum_binary(s, path, ui);
        default:
            if (!ends_with(path, ".bin")) path += ".bin";
            if (std::filesystem::exists(path) &&
                !ui.ConfirmPopup("File exists", fmt::sprintf("The file %s exists. Overwrite this file?", path)))
                return -1;
            return write_spectrum_block(s, path, ui);
    }
}

int SaveWaveFileFormat(Workspace& ws, const std::string& path_in, Ui& ui) {
    if (!has_active(ws)) {
        ui.MessagePopup("Operator Error", "No Spectrum Chosen");
        return -1;
    }
    std::string path = path_in;
    if (path.empty()) {
        auto chosen = ui.FileSelectPopup("Save Wave File", "*.wav", "");
        if (!chosen || chosen->empty()) return -1;
        path = *chosen;
    }
    return write_wave_file(ws.panels[static_cast<std::size_t>(ws.active_panel)].spectrum, path, ui);
}

int export_kind_of(const std::string& path) {
    if (ends_with(path, ".xy.bin")) return RAW_BLOCK;
    if (ends_with(path, ".bin")) return RAW_BINARY;
    if (ends_with(path, ".csv")) return RAW_TEXT;
    if (ends_with(path, ".wav")) return EXPORT_WAVE;
    return -1;
}

}  // namespace vx
