#include "formats/mzml_reader.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>
#include <string_view>

#include <fmt/format.h>
#include <pugixml.hpp>
#include <zlib.h>

#include "formats/tulva_reader.hpp"
#include "platform/base64.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"

namespace vx {

namespace {

constexpr const char* FILE_INPUT_ERROR = "File Input Error";
constexpr const char* SCAN_PROMPT_TITLE = "Xcalibur RAW file contains Multple Files : Please Select One";
constexpr std::size_t CHUNK = 1u << 20;
// The start tag of a spectrum holds a few attributes; anything longer than
// this without its '>' is no mzML.
constexpr std::size_t MAX_START_TAG = 1u << 16;
// The index sits in the last part of the file; its offset element in the tail.
constexpr std::size_t TAIL = 4096;
constexpr std::uint64_t MAX_INDEX = 128u << 20;

struct FileCloser {
    void operator()(std::FILE* f) const {
        if (f) std::fclose(f);
    }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

bool seek_to(std::FILE* f, std::uint64_t at) {
    return at <= static_cast<std::uint64_t>(std::numeric_limits<long>::max()) &&
           std::fseek(f, static_cast<long>(at), SEEK_SET) == 0;
}

// n bytes at offset at (fewer at the end of the file).
std::string read_bytes(std::FILE* f, std::uint64_t at, std::size_t n) {
    std::string s(n, '\0');
    if (!seek_to(f, at)) return {};
    s.resize(std::fread(s.data(), 1, n, f));
    return s;
}

bool is_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// The scan number of a spectrum id: the N of "scan=N" (Thermo's
// "controllerType=0 controllerNumber=1 scan=N"), 0 when the id has none.
int scan_of_id(std::string_view id) {
    std::size_t at = 0;
    while ((at = id.find("scan=", at)) != std::string_view::npos) {
        if (at == 0 || is_space(id[at - 1])) {
            int n = 0;
            const char* b = id.data() + at + 5;
            const auto r = std::from_chars(b, id.data() + id.size(), n);
            if (r.ec == std::errc() && n > 0) return n;
        }
        at += 5;
    }
    return 0;
}

// Numbers the spectra: by their ids when every id carries a scan number, else
// by position from 1.
void number_scans(std::vector<MzmlScanRef>& scans) {
    bool all = !scans.empty();
    for (MzmlScanRef& r : scans) {
        r.scan = scan_of_id(r.id);
        all = all && r.scan > 0;
    }
    if (!all)
        for (std::size_t i = 0; i < scans.size(); ++i) scans[i].scan = static_cast<int>(i + 1);
}

// The id attribute of a <spectrum ...> start tag (text from '<' to '>').
std::optional<std::string> id_of_start_tag(std::string tag) {
    if (tag.size() < 2) return std::nullopt;
    // Closed as an empty element, so that the start tag parses alone.
    if (tag[tag.size() - 2] != '/') {
        tag.back() = '/';
        tag.push_back('>');
    }
    pugi::xml_document doc;
    if (!doc.load_buffer(tag.data(), tag.size(), pugi::parse_minimal | pugi::parse_escapes)) return std::nullopt;
    const pugi::xml_attribute id = doc.first_child().attribute("id");
    if (!id) return std::nullopt;
    return std::string(id.value());
}

// A pull reader over the file: the spectra's start tags in chunks of CHUNK
// bytes, so that memory stays at one chunk whatever the file's size.
// Returns false when a start tag never ends.
bool stream_scans(std::FILE* f, std::uint64_t size, std::vector<MzmlScanRef>& scans) {
    scans.clear();
    if (!seek_to(f, 0)) return false;
    std::string buf;
    std::uint64_t base = 0;  // file offset of buf[0]
    // A small file needs no whole chunk (one byte more sees its end at once).
    std::string chunk(static_cast<std::size_t>(std::min<std::uint64_t>(CHUNK, size + 1)), '\0');
    bool eof = false;
    while (!eof) {
        const std::size_t got = std::fread(chunk.data(), 1, chunk.size(), f);
        eof = got < chunk.size();
        buf.append(chunk.data(), got);
        std::size_t pos = 0, keep = std::string::npos;
        for (;;) {
            const std::size_t p = buf.find("<spectrum", pos);
            if (p == std::string::npos) break;
            if (p + 9 >= buf.size()) {
                keep = p;
                break;
            }
            const char c = buf[p + 9];
            if (!is_space(c) && c != '>' && c != '/') {  // <spectrumList>, <spectrumRef>...
                pos = p + 9;
                continue;
            }
            const std::size_t e = buf.find('>', p);
            if (e == std::string::npos) {
                if (buf.size() - p > MAX_START_TAG) return false;
                keep = p;
                break;
            }
            const auto id = id_of_start_tag(buf.substr(p, e - p + 1));
            scans.push_back({id.value_or(std::string()), 0, base + p});
            pos = e + 1;
        }
        if (keep == std::string::npos) keep = std::max(pos, buf.size() > 9 ? buf.size() - 9 : 0);
        if (eof && keep < buf.size() && buf.find('>', keep) == std::string::npos && buf.find("<spectrum", keep) == keep)
            return false;  // a start tag cut off by the end of the file
        base += keep;
        buf.erase(0, keep);
    }
    number_scans(scans);
    return true;
}

// The spectrum offsets of an indexedmzML: indexListOffset from the tail, then
// the <index name="spectrum"> entries. False when there is no usable index.
bool index_scans(std::FILE* f, std::uint64_t size, std::vector<MzmlScanRef>& scans) {
    scans.clear();
    const std::uint64_t tail_at = size > TAIL ? size - TAIL : 0;
    const std::string tail = read_bytes(f, tail_at, static_cast<std::size_t>(size - tail_at));
    const std::size_t a = tail.rfind("<indexListOffset>");
    if (a == std::string::npos) return false;
    std::uint64_t offset = 0;
    const char* b = tail.data() + a + 17;
    const char* end = tail.data() + tail.size();
    while (b < end && is_space(*b)) ++b;
    if (std::from_chars(b, end, offset).ec != std::errc() || offset >= size) return false;
    // The index holds one short element per spectrum and chromatogram; it is
    // read whole (it is bounded by the file's size, checked above).
    // An index of a million spectra takes under 100 MiB; a larger rest of the
    // file means the offset points elsewhere.
    if (size - offset > MAX_INDEX) return false;
    std::string text = read_bytes(f, offset, static_cast<std::size_t>(size - offset));
    const std::size_t list_end = text.find("</indexList>");
    if (text.compare(0, 10, "<indexList") != 0 || list_end == std::string::npos) return false;
    text.resize(list_end + 12);
    pugi::xml_document doc;
    if (!doc.load_buffer_inplace(text.data(), text.size(), pugi::parse_minimal | pugi::parse_escapes)) return false;
    for (pugi::xml_node index : doc.child("indexList").children("index")) {
        if (std::string_view(index.attribute("name").value()) != "spectrum") continue;
        for (pugi::xml_node o : index.children("offset")) {
            std::uint64_t at = 0;
            const std::string_view v = o.child_value();
            if (std::from_chars(v.data(), v.data() + v.size(), at).ec != std::errc() || at >= size) return false;
            scans.push_back({o.attribute("idRef").value(), 0, at});
        }
    }
    if (scans.empty()) return false;
    number_scans(scans);
    return true;
}

// Text read from the file into a buffer that is not cleared first (the
// element of a large scan is megabytes that fread overwrites anyway).
struct ElementText {
    std::unique_ptr<char[]> data;
    std::size_t size = 0, capacity = 0;

    bool empty() const { return size == 0; }
    std::string_view view() const { return {data.get(), size}; }
    void reserve(std::size_t n) {
        if (n <= capacity) return;
        std::unique_ptr<char[]> bigger(new char[n]);
        if (size) std::memcpy(bigger.get(), data.get(), size);
        data = std::move(bigger);
        capacity = n;
    }
};

// The text of the <spectrum> element at ref.offset, read up to its end tag.
// hint: where the element should end at the latest (the next spectrum's
// offset of the index), so that a good index gives one read; the reading goes
// on past it when the end tag is not there. Empty when the bytes there are no
// spectrum of that id (a wrong index) or the element never ends.
ElementText spectrum_element(std::FILE* f, std::uint64_t size, const MzmlScanRef& ref, std::uint64_t hint) {
    ElementText text;
    if (!seek_to(f, ref.offset)) return {};
    std::uint64_t at = ref.offset;
    std::size_t step = hint > ref.offset && hint - ref.offset <= MAX_INDEX ? static_cast<std::size_t>(hint - ref.offset)
                                                                          : CHUNK;
    std::size_t searched = 0;
    while (at < size) {
        const std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(step, size - at));
        text.reserve(std::max(text.size + want, text.capacity * 2));
        const std::size_t got = std::fread(text.data.get() + text.size, 1, want, f);
        if (got == 0) return {};
        text.size += got;
        at += got;
        const std::string_view v = text.view();
        if (v.size() >= 10 && v.compare(0, 9, "<spectrum") != 0) return {};
        const std::size_t e = v.find("</spectrum>", searched);
        if (e != std::string_view::npos) {
            text.size = e + 11;
            const std::size_t tag_end = v.find('>');
            const auto id = id_of_start_tag(std::string(v.substr(0, tag_end + 1)));
            if (!id || *id != ref.id) return {};
            return text;
        }
        searched = v.size() >= 10 ? v.size() - 10 : 0;
        step = std::max(step, CHUNK);
    }
    return {};
}

// What an array is, by its cvParams.
enum class ArrayKind { Other, Mz, Intensity, NoiseMz, Noise, Baseline };

struct ArraySpec {
    ArrayKind kind = ArrayKind::Other;
    int width = 0;       // 4 or 8 bytes
    bool integer = false;
    bool zlib = false;
    std::string refused;  // a compression this reader does not read, by name
};

ArraySpec array_spec(pugi::xml_node array) {
    ArraySpec a;
    for (pugi::xml_node p : array.children("cvParam")) {
        const std::string_view acc = p.attribute("accession").value();
        if (acc == "MS:1000514") a.kind = ArrayKind::Mz;
        else if (acc == "MS:1000515") a.kind = ArrayKind::Intensity;
        else if (acc == "MS:1002743") a.kind = ArrayKind::NoiseMz;
        else if (acc == "MS:1002744") a.kind = ArrayKind::Noise;
        else if (acc == "MS:1002745") a.kind = ArrayKind::Baseline;
        else if (acc == "MS:1000521") a.width = 4;
        else if (acc == "MS:1000523") a.width = 8;
        else if (acc == "MS:1000519") a.width = 4, a.integer = true;
        else if (acc == "MS:1000522") a.width = 8, a.integer = true;
        else if (acc == "MS:1000574") a.zlib = true;
        else if (acc == "MS:1000576") a.zlib = false;
        else if (acc == "MS:1002312" || acc == "MS:1002313" || acc == "MS:1002314" || acc == "MS:1002746" ||
                 acc == "MS:1002747" || acc == "MS:1002748")
            a.refused = fmt::format("{} ({})", p.attribute("name").value(), acc);
    }
    return a;
}

const char* kind_name(ArrayKind k) {
    switch (k) {
        case ArrayKind::Mz: return "m/z array";
        case ArrayKind::Intensity: return "intensity array";
        case ArrayKind::NoiseMz: return "sampled noise m/z array";
        case ArrayKind::Noise: return "sampled noise intensity array";
        case ArrayKind::Baseline: return "sampled noise baseline array";
        default: return "array";
    }
}

// Inflates a zlib stream that must give exactly expect bytes into out.
bool inflate_exact(const std::vector<std::uint8_t>& in, std::size_t expect, std::uint8_t* out, std::string& why) {
    z_stream z{};
    if (inflateInit(&z) != Z_OK) {
        why = "zlib could not start";
        return false;
    }
    z.next_in = const_cast<Bytef*>(in.data());
    std::size_t in_left = in.size(), done = 0;
    int rc = Z_OK;
    // zlib counts in uInt: feed and drain in pieces below 4 GiB.
    constexpr std::size_t STEP = 1u << 30;
    std::uint8_t spare = 0;
    while (rc == Z_OK) {
        if (z.avail_in == 0 && in_left > 0) {
            z.avail_in = static_cast<uInt>(std::min(in_left, STEP));
            in_left -= z.avail_in;
        }
        const bool room = done < expect;
        z.next_out = room ? out + done : &spare;
        z.avail_out = room ? static_cast<uInt>(std::min(expect - done, STEP)) : 1u;
        const uInt before = z.avail_out;
        rc = inflate(&z, Z_NO_FLUSH);
        const std::size_t produced = before - z.avail_out;
        if (!room && produced > 0) {
            inflateEnd(&z);
            why = "it holds more values than the spectrum says";
            return false;
        }
        done += produced;
        if (rc == Z_BUF_ERROR && z.avail_in == 0 && in_left == 0) break;  // input ended early
        if (rc == Z_BUF_ERROR && room) rc = Z_OK;
    }
    const char* msg = z.msg;
    inflateEnd(&z);
    if (rc != Z_STREAM_END) {
        why = rc == Z_BUF_ERROR || rc == Z_OK ? "the zlib data end early"
                                              : fmt::format("zlib: {}", msg ? msg : "data error");
        return false;
    }
    if (done != expect) {
        why = "it holds fewer values than the spectrum says";
        return false;
    }
    return true;
}

// Little-endian values of the array's type (mzML arrays are little-endian,
// as this program's hosts are) converted into T.
template <typename T>
void convert_values(const std::uint8_t* p, const ArraySpec& a, std::size_t n, T* out) {
    for (std::size_t i = 0; i < n; ++i, p += a.width) {
        if (a.integer && a.width == 4) {
            std::int32_t v;
            std::memcpy(&v, p, 4);
            out[i] = static_cast<T>(v);
        } else if (a.integer) {
            std::int64_t v;
            std::memcpy(&v, p, 8);
            out[i] = static_cast<T>(v);
        } else if (a.width == 4) {
            float v;
            std::memcpy(&v, p, 4);
            out[i] = static_cast<T>(v);
        } else {
            double v;
            std::memcpy(&v, p, 8);
            out[i] = static_cast<T>(v);
        }
    }
}

// Decodes one binary array into values. expect: the values the spectrum (or
// the array's own arrayLength) announces. An array already of type T is
// inflated or copied straight into values, without a second buffer.
// Returns false after a message.
template <typename T>
bool decode_array(pugi::xml_node array, const ArraySpec& a, std::size_t expect, int scan, std::vector<T>& values,
                  Ui& ui) {
    const std::string what = fmt::format("The {} of scan {}", kind_name(a.kind), scan);
    if (!a.refused.empty()) {
        ui.MessagePopup(FILE_INPUT_ERROR,
                        fmt::format("{} is compressed with {}: MS-Numpress is not read by this version. Convert the "
                                    "raw file again without numpress.",
                                    what, a.refused));
        return false;
    }
    if (a.width == 0) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("{} names no value type (32/64-bit float).", what));
        return false;
    }
    auto decoded = base64_decode(array.child_value("binary"));
    if (!decoded) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("{} is not valid base64.", what));
        return false;
    }
    const std::size_t width = static_cast<std::size_t>(a.width);
    const bool same_type = !a.integer && width == sizeof(T);
    if (!a.zlib) {
        if (decoded->size() != expect * width) {
            ui.MessagePopup(FILE_INPUT_ERROR,
                            fmt::format("{} holds {} values, but the spectrum says defaultArrayLength {}.", what,
                                        decoded->size() / width, expect));
            return false;
        }
        values.resize(expect);
        if (same_type) {
            if (expect) std::memcpy(values.data(), decoded->data(), expect * width);
        } else {
            convert_values(decoded->data(), a, expect, values.data());
        }
        return true;
    }
    // The announced count is checked against what the compressed bytes can
    // hold (zlib's best ratio is about 1032:1) before room is made for it.
    if (expect > (decoded->size() + 64) * 1100 / width) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("{} cannot hold the {} values the spectrum says.", what, expect));
        return false;
    }
    std::string why;
    std::vector<std::uint8_t> inflated;
    if (same_type) {
        values.resize(expect);
    } else {
        inflated.resize(expect * width);
    }
    std::uint8_t* out = same_type ? reinterpret_cast<std::uint8_t*>(values.data()) : inflated.data();
    const bool ok = inflate_exact(*decoded, expect * width, out, why);
    decoded.reset();
    if (!ok) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("{} does not inflate: {}.", what, why));
        return false;
    }
    if (!same_type) {
        values.resize(expect);
        convert_values(inflated.data(), a, expect, values.data());
    }
    return true;
}

bool parse_count(const char* text, std::size_t& out) {
    const std::string_view v = text;
    unsigned long long n = 0;
    const auto r = std::from_chars(v.data(), v.data() + v.size(), n);
    if (r.ec != std::errc() || r.ptr != v.data() + v.size()) return false;
    out = static_cast<std::size_t>(n);
    return true;
}

// The spectrum element into the record.
int read_spectrum(ElementText& text, int scan, const std::string& path, Spectrum& s, Ui& ui) {
    pugi::xml_document doc;
    if (!doc.load_buffer_inplace(text.data.get(), text.size, pugi::parse_minimal | pugi::parse_escapes)) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("Scan {} of {} is not well-formed XML.", scan, path));
        return -1;
    }
    const pugi::xml_node sp = doc.child("spectrum");
    std::size_t count = 0;
    if (!parse_count(sp.attribute("defaultArrayLength").value(), count)) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("Scan {} has no defaultArrayLength.", scan));
        return -1;
    }
    // Every value takes at least one base64 character of the element.
    if (count > text.size * 1100 || count > static_cast<std::size_t>(MAX_DATACOUNT)) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("Scan {} announces {} points, more than it can hold.", scan, count));
        return -1;
    }
    int polarity = 0;
    for (pugi::xml_node p : sp.children("cvParam")) {
        const std::string_view acc = p.attribute("accession").value();
        if (acc == "MS:1000130") polarity = 1;
        else if (acc == "MS:1000129") polarity = -1;
    }
    std::vector<double> mz, noise_mz, noise, baseline;
    std::vector<float> intensity;
    bool have_mz = false, have_int = false;
    for (pugi::xml_node array : sp.child("binaryDataArrayList").children("binaryDataArray")) {
        const ArraySpec a = array_spec(array);
        std::vector<double>* target = nullptr;
        switch (a.kind) {
            case ArrayKind::Mz: target = &mz, have_mz = true; break;
            case ArrayKind::Intensity: have_int = true; break;
            case ArrayKind::NoiseMz: target = &noise_mz; break;
            case ArrayKind::Noise: target = &noise; break;
            case ArrayKind::Baseline: target = &baseline; break;
            default: continue;  // other arrays (charge, time...) are not used
        }
        std::size_t expect = count;
        if (const pugi::xml_attribute len = array.attribute("arrayLength")) {
            if (!parse_count(len.value(), expect) || expect > text.size * 1100) {
                ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("The {} of scan {} has a bad arrayLength \"{}\".",
                                                              kind_name(a.kind), scan, len.value()));
                return -1;
            }
        }
        const bool ok = target ? decode_array(array, a, expect, scan, *target, ui)
                               : decode_array(array, a, expect, scan, intensity, ui);
        if (!ok) return -1;
    }
    if (!have_mz || !have_int) {
        ui.MessagePopup(FILE_INPUT_ERROR,
                        fmt::format("Scan {} has no {}.", scan, have_mz ? "intensity array" : "m/z array"));
        return -1;
    }
    if (mz.size() != intensity.size()) {
        ui.MessagePopup(FILE_INPUT_ERROR,
                        fmt::format("Scan {}: the m/z array holds {} values, the intensity array {}.", scan, mz.size(),
                                    intensity.size()));
        return -1;
    }
    if (mz.empty()) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("Scan {} holds no points.", scan));
        return -1;
    }
    // The peak finder walks the points in ascending m/z.
    if (!std::is_sorted(mz.begin(), mz.end())) {
        std::vector<std::size_t> order(mz.size());
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return mz[a] < mz[b]; });
        std::vector<double> m2(mz.size());
        std::vector<float> i2(mz.size());
        for (std::size_t i = 0; i < order.size(); ++i) m2[i] = mz[order[i]], i2[i] = intensity[order[i]];
        mz.swap(m2);
        intensity.swap(i2);
    }
    s.data = std::move(intensity);
    s.xvalues = std::move(mz);
    s.datacount = static_cast<std::int32_t>(s.data.size());
    s.domain = DOMAIN_PROFILE;
    s.filetype = FILETYPE_PROFILE;
    s.timedomainfile = 0;
    s.ionpolarity = polarity;
    // A curve needs the three arrays of one length; anything less is no curve.
    if (noise_mz.size() != noise.size() || noise_mz.size() != baseline.size()) {
        ui.Console(fmt::format("Scan {}: the sampled noise arrays differ in length; the scan has no noise curve.\n",
                               scan));
        noise_mz.clear();
    }
    apply_noise_curve(s, noise_mz, noise, baseline);
    return 0;
}

}  // namespace

void apply_noise_curve(Spectrum& s, const std::vector<double>& nm, const std::vector<double>& noise,
                       const std::vector<double>& base) {
    const std::size_t n = s.data.size();
    s.xcalnoise.clear();
    s.xcalbaseline.clear();
    s.xcaldata.clear();
    const std::size_t m = std::min({nm.size(), noise.size(), base.size()});
    // Without a curve the side arrays stay empty: their users (the peak
    // finder's S/N column) read an absent array as zeros, and a scan of 10^6
    // points does not carry 20 MB of them.
    if (m == 0 || s.xvalues.size() != n) return;
    s.xcalnoise.resize(n);
    s.xcalbaseline.resize(n);
    s.xcaldata.resize(n);
    std::size_t k = 0;  // segment nm[k]..nm[k+1]; the points come in ascending m/z
    for (std::size_t i = 0; i < n; ++i) {
        const double x = s.xvalues[i];
        double nv = noise[0], bv = base[0];
        if (m > 1) {
            while (k + 2 < m && x >= nm[k + 1]) ++k;
            const double span = nm[k + 1] - nm[k];
            const double t = span != 0.0 ? (x - nm[k]) / span : 0.0;
            nv = noise[k] + t * (noise[k + 1] - noise[k]);
            bv = base[k] + t * (base[k + 1] - base[k]);
        }
        s.xcalnoise[i] = nv;
        s.xcalbaseline[i] = bv;
        // Zero noise gives S/N 0, never an infinity.
        const double sn = nv > 0.0 ? (s.data[i] - bv) / nv : 0.0;
        s.xcaldata[i] = std::isfinite(sn) ? static_cast<float>(sn) : 0.0f;
    }
}

int mzml_list_scans(const std::string& path, std::vector<MzmlScanRef>& scans, bool& indexed, Ui& ui) {
    scans.clear();
    indexed = false;
    const auto size = regular_file_size(path);
    FilePtr f(size ? std::fopen(path.c_str(), "rb") : nullptr);
    if (!f) {
        ui.MessagePopup("Error", "Can not find the file!");
        return -1;
    }
    const std::string head = read_bytes(f.get(), 0, 4096);
    if (head.find("<mzML") == std::string::npos && head.find("<indexedmzML") == std::string::npos) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("{} is not an mzML file (no <mzML> element).", path));
        return -1;
    }
    indexed = index_scans(f.get(), *size, scans);
    if (!indexed && !stream_scans(f.get(), *size, scans)) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("{} is not well-formed mzML (a spectrum tag never ends).", path));
        return -1;
    }
    if (scans.empty()) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("{} holds no spectra.", path));
        return -1;
    }
    return 0;
}

int GetNumberFilesinRaw(const std::string& path, Ui& ui) {
    std::vector<MzmlScanRef> scans;
    bool indexed = false;
    if (mzml_list_scans(path, scans, indexed, ui) < 0) return -1;
    int last = 0;
    for (const MzmlScanRef& r : scans) last = std::max(last, r.scan);
    return last;
}

int Get_Xcalibur_Data(const std::string& path, Spectrum& s, int scan, Ui& ui, int* scans_out, int* scan_out) {
    Set_Default_Parameters(s);
    s.filename = path.substr(0, 255);
    std::vector<MzmlScanRef> scans;
    bool indexed = false;
    if (mzml_list_scans(path, scans, indexed, ui) < 0) return -1;
    int last = 0;
    for (const MzmlScanRef& r : scans) last = std::max(last, r.scan);
    if (scans_out) *scans_out = static_cast<int>(scans.size());
    if (scan == 0) {
        scan = last;
        if (scans.size() > 1) {
            const auto answer =
                ui.PromptPopup(SCAN_PROMPT_TITLE, fmt::format("This file contains {} files. Please choose one", last), 20);
            if (answer && !answer->empty()) scan = std::atoi(answer->c_str());
        }
    }
    const auto it = std::find_if(scans.begin(), scans.end(), [&](const MzmlScanRef& r) { return r.scan == scan; });
    if (it == scans.end()) {
        ui.MessagePopup(FILE_INPUT_ERROR,
                        fmt::format("Scan {} is not in {}: it holds {} spectra, the last scan is {}.", scan, path,
                                    scans.size(), last));
        return -1;
    }
    const auto size = regular_file_size(path);
    FilePtr f(size ? std::fopen(path.c_str(), "rb") : nullptr);
    if (!f) {
        ui.MessagePopup("Error", "Can not find the file!");
        return -1;
    }
    MzmlScanRef ref = *it;
    std::uint64_t hint = *size;
    for (const MzmlScanRef& r : scans)
        if (r.offset > ref.offset) hint = std::min(hint, r.offset);
    ElementText text = spectrum_element(f.get(), *size, ref, hint);
    if (text.empty() && indexed) {
        // A wrong index (the file edited after it was written): find the scan
        // by its tag instead.
        ui.Console(fmt::format("The index of {} does not match the file; reading through the file.\n", path));
        std::vector<MzmlScanRef> streamed;
        if (stream_scans(f.get(), *size, streamed)) {
            const auto again = std::find_if(streamed.begin(), streamed.end(),
                                            [&](const MzmlScanRef& r) { return r.id == ref.id; });
            if (again != streamed.end()) {
                ref = *again;
                text = spectrum_element(f.get(), *size, ref, *size);
            }
        }
    }
    if (text.empty()) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("Scan {} of {} is cut off or not well-formed.", scan, path));
        return -1;
    }
    if (read_spectrum(text, scan, path, s, ui) < 0) return -1;
    if (scan_out) *scan_out = scan;
    return 0;
}

int read_mzml_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui) {
    OpenOptions& o = ws.open_options;
    int scans = 0, opened = 0;
    const int rc =
        Get_Xcalibur_Data(path, ws.panels[static_cast<std::size_t>(slot)].spectrum, o.scan, ui, &scans, &opened);
    o.scans = scans;
    o.scan_opened = opened;
    return rc;
}

}  // namespace vx
