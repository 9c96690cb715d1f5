#include "formats/mzml_writer.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <numeric>
#include <sstream>

#include <fmt/format.h>
#include <openssl/evp.h>
#include <pugixml.hpp>
#include <zlib.h>

#include "calibration/calibration.hpp"
#include "platform/base64.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

namespace vx {
namespace fs = std::filesystem;

namespace {

constexpr const char* EXPORT_ERROR = "Error saving file.";

// zlib's deflate of a whole array (the "zlib compression" of mzML: a zlib
// stream with its header, not raw deflate).
bool deflate_bytes(const void* data, std::size_t size, std::string& out) {
    uLongf len = compressBound(static_cast<uLong>(size));
    out.resize(len);
    if (compress2(reinterpret_cast<Bytef*>(out.data()), &len, static_cast<const Bytef*>(data),
                  static_cast<uLong>(size), Z_DEFAULT_COMPRESSION) != Z_OK)
        return false;
    out.resize(len);
    return true;
}

// SHA-1 of a regular file in hex; empty when it cannot be read.
std::string sha1_of_file(const std::string& path) {
    if (!regular_file_size(path)) return {};
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return {};
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    bool ok = ctx && EVP_DigestInit_ex(ctx, EVP_sha1(), nullptr) == 1;
    std::vector<unsigned char> buf(1 << 16);
    std::size_t got;
    while (ok && (got = std::fread(buf.data(), 1, buf.size(), f)) > 0) ok = EVP_DigestUpdate(ctx, buf.data(), got) == 1;
    ok = ok && !std::ferror(f);
    std::fclose(f);
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int n = 0;
    ok = ok && EVP_DigestFinal_ex(ctx, md, &n) == 1;
    EVP_MD_CTX_free(ctx);
    if (!ok) return {};
    std::string hex;
    for (unsigned int i = 0; i < n; ++i) hex += fmt::format("{:02x}", md[i]);
    return hex;
}

void cv(pugi::xml_node parent, const char* accession, const char* name, const std::string& value = "") {
    pugi::xml_node p = parent.append_child("cvParam");
    p.append_attribute("cvRef") = "MS";
    p.append_attribute("accession") = accession;
    p.append_attribute("name") = name;
    p.append_attribute("value") = value.c_str();
}

void cv_unit(pugi::xml_node parent, const char* accession, const char* name, const std::string& value,
             const char* unit_cv, const char* unit_accession, const char* unit_name) {
    pugi::xml_node p = parent.append_child("cvParam");
    p.append_attribute("cvRef") = "MS";
    p.append_attribute("accession") = accession;
    p.append_attribute("name") = name;
    p.append_attribute("value") = value.c_str();
    p.append_attribute("unitCvRef") = unit_cv;
    p.append_attribute("unitAccession") = unit_accession;
    p.append_attribute("unitName") = unit_name;
}

void user(pugi::xml_node parent, const char* name, const std::string& value, const char* type) {
    pugi::xml_node p = parent.append_child("userParam");
    p.append_attribute("name") = name;
    p.append_attribute("value") = value.c_str();
    p.append_attribute("type") = type;
}

std::string num(double v) { return fmt::format("{:.17g}", v); }

void binary_array(pugi::xml_node list, const std::string& packed, bool is_mz, bool doubles) {
    pugi::xml_node a = list.append_child("binaryDataArray");
    const std::string text = base64_encode(packed);
    a.append_attribute("encodedLength") = static_cast<unsigned long long>(text.size());
    if (doubles) cv(a, "MS:1000523", "64-bit float");
    else cv(a, "MS:1000521", "32-bit float");
    cv(a, "MS:1000574", "zlib compression");
    if (is_mz) cv_unit(a, "MS:1000514", "m/z array", "", "MS", "MS:1000040", "m/z");
    else cv_unit(a, "MS:1000515", "intensity array", "", "MS", "MS:1000131", "number of detector counts");
    a.append_child("binary").text().set(text.c_str());
}

const char* caltype_law(int caltype) {
    switch (caltype) {
        case CALTYPE_TWO_TERM: return "m/z = A / f + B V / f^2 (f in Hz, V the trap voltage)";
        case CALTYPE_INVERTED: return "inverted two-term law";
        case CALTYPE_THREE_TERM: return "m/z = A + B / f + C V / f^2 (f in Hz, V the trap voltage)";
        case CALTYPE_WALKING: return "walking calibration (two terms per region)";
        case CALTYPE_WALKING_SECOND: return "walking calibration (second order)";
        case CALTYPE_INSTRUMENT: return "f = ML1 / m + ML2 + ML3 / m^2";
        default: return "unknown";
    }
}

}  // namespace

void profile_arrays(const Spectrum& s, std::vector<double>& mz, std::vector<float>& intensity) {
    mz.clear();
    intensity.clear();
    const long long n = static_cast<long long>(s.data.size());
    long long first = 0, last = n - 1;
    if (s.zoomed && s.Zoomcount > 0) {
        first = std::clamp<long long>(s.StartIndex, 0, n);
        last = std::clamp<long long>(static_cast<long long>(s.StartIndex) + s.Zoomcount - 1, -1, n - 1);
    }
    if (last < first) return;
    std::vector<double> points(static_cast<std::size_t>(last - first + 1));
    std::iota(points.begin(), points.end(), static_cast<double>(first));
    std::vector<double> masses(points.size());
    Pt_tomass(s, points, masses);
    mz.reserve(points.size());
    intensity.reserve(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
        // Points the law cannot place (near 0 Hz, beyond its pole) come back
        // as the out-of-law mass: no m/z of a spectrum.
        if (!std::isfinite(masses[i]) || masses[i] <= 0.0 || masses[i] >= MASS_OUT_OF_LAW) continue;
        mz.push_back(masses[i]);
        intensity.push_back(s.data[static_cast<std::size_t>(first) + i]);
    }
    // Frequency falls with m/z: the arrays go out in ascending m/z.
    if (mz.size() > 1 && mz.front() > mz.back()) {
        std::reverse(mz.begin(), mz.end());
        std::reverse(intensity.begin(), intensity.end());
    }
    // A law that is not monotonic over the range (a walking table with
    // crossing regions) still gives arrays in ascending m/z.
    if (!std::is_sorted(mz.begin(), mz.end())) {
        std::vector<std::size_t> order(mz.size());
        std::iota(order.begin(), order.end(), 0);
        std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return mz[a] < mz[b]; });
        std::vector<double> m2(mz.size());
        std::vector<float> i2(mz.size());
        for (std::size_t i = 0; i < order.size(); ++i) {
            m2[i] = mz[order[i]];
            i2[i] = intensity[order[i]];
        }
        mz.swap(m2);
        intensity.swap(i2);
    }
}

int write_mzml(const Spectrum& s, const std::string& path, const MzmlOptions& options, Ui& ui) {
    std::vector<double> mz;
    std::vector<float> intensity;
    if (options.peaks) {
        if (s.peaks.empty()) {
            ui.MessagePopup(EXPORT_ERROR, "The spectrum has no peak list: find peaks first.");
            return -1;
        }
        // A peak list file keeps each stick's m/z in index.
        const bool sticks = s.domain == DOMAIN_PEAKLIST;
        for (const Peak& p : s.peaks) {
            const double m = sticks ? p.index : p.mass;
            if (!std::isfinite(m) || m <= 0.0) continue;
            mz.push_back(m);
            intensity.push_back(static_cast<float>(p.abundance));
        }
        std::vector<std::size_t> order(mz.size());
        std::iota(order.begin(), order.end(), 0);
        std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return mz[a] < mz[b]; });
        std::vector<double> m2;
        std::vector<float> i2;
        for (std::size_t i : order) {
            m2.push_back(mz[i]);
            i2.push_back(intensity[i]);
        }
        mz.swap(m2);
        intensity.swap(i2);
    } else {
        if (s.domain != DOMAIN_FREQUENCY && s.domain != DOMAIN_MASS) {
            ui.MessagePopup(EXPORT_ERROR, "Only a processed Frequency domain file can be processed.");
            return -1;
        }
        profile_arrays(s, mz, intensity);
    }

    std::string mz_packed, int_packed;
    if (!deflate_bytes(mz.data(), mz.size() * sizeof(double), mz_packed) ||
        !deflate_bytes(intensity.data(), intensity.size() * sizeof(float), int_packed)) {
        ui.MessagePopup(EXPORT_ERROR, "The arrays could not be compressed.");
        return -1;
    }

    const std::string source = options.source.empty() ? s.filename : options.source;
    const fs::path source_path = fs::absolute(fs::path(source));
    const std::string run_id = fs::path(source).stem().string();

    pugi::xml_document doc;
    pugi::xml_node decl = doc.append_child(pugi::node_declaration);
    decl.append_attribute("version") = "1.0";
    decl.append_attribute("encoding") = "utf-8";
    pugi::xml_node root = doc.append_child("mzML");
    root.append_attribute("xmlns") = "http://psi.hupo.org/ms/mzml";
    root.append_attribute("xmlns:xsi") = "http://www.w3.org/2001/XMLSchema-instance";
    root.append_attribute("xsi:schemaLocation") =
        "http://psi.hupo.org/ms/mzml http://psidev.info/files/ms/mzML/xsd/mzML1.1.0.xsd";
    root.append_attribute("version") = "1.1.0";
    root.append_attribute("id") = run_id.c_str();

    pugi::xml_node cvs = root.append_child("cvList");
    cvs.append_attribute("count") = 2;
    pugi::xml_node ms = cvs.append_child("cv");
    ms.append_attribute("id") = "MS";
    ms.append_attribute("fullName") = "Proteomics Standards Initiative Mass Spectrometry Ontology";
    ms.append_attribute("version") = "4.1.0";
    ms.append_attribute("URI") = "https://raw.githubusercontent.com/HUPO-PSI/psi-ms-CV/master/psi-ms.obo";
    pugi::xml_node uo = cvs.append_child("cv");
    uo.append_attribute("id") = "UO";
    uo.append_attribute("fullName") = "Unit Ontology";
    uo.append_attribute("version") = "09:04:2014";
    uo.append_attribute("URI") = "https://raw.githubusercontent.com/bio-ontology-research-group/unit-ontology/master/unit.obo";

    pugi::xml_node desc = root.append_child("fileDescription");
    pugi::xml_node content = desc.append_child("fileContent");
    cv(content, "MS:1000579", "MS1 spectrum");
    if (options.peaks) cv(content, "MS:1000127", "centroid spectrum");
    else cv(content, "MS:1000128", "profile spectrum");
    pugi::xml_node files = desc.append_child("sourceFileList");
    files.append_attribute("count") = 1;
    pugi::xml_node sf = files.append_child("sourceFile");
    sf.append_attribute("id") = "SF1";
    sf.append_attribute("name") = source_path.filename().string().c_str();
    sf.append_attribute("location") = ("file://" + source_path.parent_path().string()).c_str();
    cv(sf, "MS:1000824", "no nativeID format");
    // The vocabulary has no term for Tulva files; their header is text, and
    // the nearest file-format term is "text format". The true format follows
    // as a user parameter.
    if (s.filetype == FILETYPE_BRUKER) cv(sf, "MS:1000825", "Bruker FID format");
    else cv(sf, "MS:1001369", "text format");
    if (const std::string sha = sha1_of_file(source); !sha.empty()) cv(sf, "MS:1000569", "SHA-1", sha);
    if (s.filetype != FILETYPE_BRUKER)
        user(sf, "source file format",
             s.filetype == FILETYPE_PEAKLIST ? "Vantorix peak list (.pks)"
             : s.domain == DOMAIN_MASS || s.domain == DOMAIN_FREQUENCY
                 ? "Vantorix/Tulva data file (text header, little-endian binary samples)"
                 : "Vantorix/Tulva data file",
             "xsd:string");

    pugi::xml_node sw_list = root.append_child("softwareList");
    sw_list.append_attribute("count") = 1;
    pugi::xml_node sw = sw_list.append_child("software");
    sw.append_attribute("id") = "vantorix";
    sw.append_attribute("version") = "0.1.0";
    cv(sw, "MS:1000799", "custom unreleased software tool", "Vantorix Analysis");

    pugi::xml_node ic_list = root.append_child("instrumentConfigurationList");
    ic_list.append_attribute("count") = 1;
    pugi::xml_node ic = ic_list.append_child("instrumentConfiguration");
    ic.append_attribute("id") = "IC1";
    cv(ic, "MS:1000031", "instrument model");
    // The calibration of the spectrum: law, terms and trap voltage, so that a
    // reader can recompute the m/z axis from frequencies.
    user(ic, "calibration law", caltype_law(s.caltype), "xsd:string");
    user(ic, "calibration A term", num(s.Aterm), "xsd:double");
    user(ic, "calibration B term", num(s.Bterm), "xsd:double");
    if (s.caltype == CALTYPE_THREE_TERM || s.caltype == CALTYPE_INSTRUMENT)
        user(ic, "calibration C term", num(s.Cterm), "xsd:double");
    user(ic, "trap voltage", num(s.Trapvoltage), "xsd:double");
    user(ic, "bandwidth (Hz)", num(s.dbandwidth), "xsd:double");
    for (std::size_t i = 0; i < s.walking.size() && static_cast<int>(i) < s.walkingregions; ++i) {
        const WalkingRegion& w = s.walking[i];
        user(ic, "walking calibration region",
             fmt::format("start {} Hz, end {} Hz, A {}, B {}", num(w.startfreq), num(w.endfreq), num(w.A), num(w.B)),
             "xsd:string");
    }
    pugi::xml_node comps = ic.append_child("componentList");
    comps.append_attribute("count") = 3;
    pugi::xml_node src = comps.append_child("source");
    src.append_attribute("order") = 1;
    cv(src, "MS:1000008", "ionization type");
    pugi::xml_node an = comps.append_child("analyzer");
    an.append_attribute("order") = 2;
    cv(an, "MS:1000079", "fourier transform ion cyclotron resonance mass spectrometer");
    if (s.caltype == CALTYPE_TWO_TERM && s.Aterm > 0.0)
        cv_unit(an, "MS:1000025", "magnetic field strength", num(s.Aterm * FIELD_PER_ATERM), "UO", "UO:0000228",
                "tesla");
    pugi::xml_node det = comps.append_child("detector");
    det.append_attribute("order") = 3;
    cv(det, "MS:1000624", "inductive detector");

    pugi::xml_node dp_list = root.append_child("dataProcessingList");
    dp_list.append_attribute("count") = 1;
    pugi::xml_node dp = dp_list.append_child("dataProcessing");
    dp.append_attribute("id") = "DP1";
    pugi::xml_node pm = dp.append_child("processingMethod");
    pm.append_attribute("order") = 1;
    pm.append_attribute("softwareRef") = "vantorix";
    cv(pm, "MS:1000544", "Conversion to mzML");
    if (options.peaks) cv(pm, "MS:1000035", "peak picking");

    pugi::xml_node run = root.append_child("run");
    run.append_attribute("id") = run_id.c_str();
    run.append_attribute("defaultInstrumentConfigurationRef") = "IC1";
    run.append_attribute("defaultSourceFileRef") = "SF1";
    pugi::xml_node list = run.append_child("spectrumList");
    list.append_attribute("count") = 1;
    list.append_attribute("defaultDataProcessingRef") = "DP1";
    pugi::xml_node sp = list.append_child("spectrum");
    sp.append_attribute("index") = 0;
    sp.append_attribute("id") = "scan=1";
    sp.append_attribute("defaultArrayLength") = static_cast<unsigned long long>(mz.size());
    cv(sp, "MS:1000511", "ms level", "1");
    cv(sp, "MS:1000579", "MS1 spectrum");
    if (s.ionpolarity < 0) cv(sp, "MS:1000129", "negative scan");
    else cv(sp, "MS:1000130", "positive scan");
    if (options.peaks) cv(sp, "MS:1000127", "centroid spectrum");
    else cv(sp, "MS:1000128", "profile spectrum");
    if (!mz.empty()) {
        const auto top = std::max_element(intensity.begin(), intensity.end()) - intensity.begin();
        double tic = 0.0;
        for (float v : intensity) tic += v;
        cv_unit(sp, "MS:1000504", "base peak m/z", num(mz[static_cast<std::size_t>(top)]), "MS", "MS:1000040", "m/z");
        cv_unit(sp, "MS:1000505", "base peak intensity", num(intensity[static_cast<std::size_t>(top)]), "MS",
                "MS:1000131", "number of detector counts");
        cv(sp, "MS:1000285", "total ion current", num(tic));
        cv_unit(sp, "MS:1000528", "lowest observed m/z", num(mz.front()), "MS", "MS:1000040", "m/z");
        cv_unit(sp, "MS:1000527", "highest observed m/z", num(mz.back()), "MS", "MS:1000040", "m/z");
    }
    pugi::xml_node scans = sp.append_child("scanList");
    scans.append_attribute("count") = 1;
    cv(scans, "MS:1000795", "no combination");
    pugi::xml_node scan = scans.append_child("scan");
    scan.append_attribute("instrumentConfigurationRef") = "IC1";
    if (!mz.empty()) {
        pugi::xml_node windows = scan.append_child("scanWindowList");
        windows.append_attribute("count") = 1;
        pugi::xml_node w = windows.append_child("scanWindow");
        cv_unit(w, "MS:1000501", "scan window lower limit", num(mz.front()), "MS", "MS:1000040", "m/z");
        cv_unit(w, "MS:1000500", "scan window upper limit", num(mz.back()), "MS", "MS:1000040", "m/z");
    }
    pugi::xml_node arrays = sp.append_child("binaryDataArrayList");
    arrays.append_attribute("count") = 2;
    binary_array(arrays, mz_packed, true, true);
    binary_array(arrays, int_packed, false, false);

    std::ostringstream text;
    doc.save(text, "  ", pugi::format_default, pugi::encoding_utf8);
    std::string error;
    if (write_file_atomically(path, text.str(), &error) < 0) {
        ui.MessagePopup(EXPORT_ERROR, fmt::format("Cannot write the file {}: {}", path, error));
        return -1;
    }
    return 0;
}

}  // namespace vx
