// Store_Data_XMASS: a Tulva transient written as an XMASS directory that the
// Bruker tools of that generation open. The parameter files are fixed templates:
// the tools read only the keys they know, in this order, so every key is always
// written and only a handful of values come from the record.
#include <array>
#include <cmath>
#include <filesystem>
#include <limits>
#include <system_error>
#include <vector>

#include <fmt/format.h>
#include <fmt/printf.h>

#include "formats/bruker.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"

namespace vx {

namespace fs = std::filesystem;

namespace {

constexpr const char* HEADER =
    "##TITLE= XMASS Parameter file\n"
    "##JCAMPDX= 5.0\n"
    "##DATATYPE= XMASS Parameter Values\n"
    "##ORIGIN= TULVA, QORMT & ZYK\n"
    "##OWNER= opr\n";

// Single values of acqu/acqus, in the order the tools expect.
constexpr std::array ACQU_SINGLE = {
    "ADCINSL", "AQLOCK", "AQSmode", "AQ_mod", "AqDSize", "BF1", "BF2", "BF3", "BF4", "BF5", "BF6", "BF7", "BF8",
    "BYTORDA", "CFDGTYP", "CFRGTYP", "CNdl", "Calmet", "CapEnt", "CapExit", "ChromDe", "Console", "Cyl", "DATE",
    "DCOff1", "DDSMOD1", "DDSMOD2", "DDSMOD3", "DE", "DECIM", "DETP", "DEV2", "DIGMOD", "DIGTYP", "DIP", "DM",
    "DPL2", "DPL4", "DR", "DS", "DSPFIRM", "DSPFVS", "DW", "DryFlow", "DrySW", "DryTemp", "EC", "EM", "ENT", "ETP",
    "EV1", "EV2", "EXC_AMP", "EXC_CTL", "EXC_RAD", "EXC_hi", "EXC_low", "EndP", "EsiMode", "Extract", "FMOD",
    "FOCL1", "FOCL2", "FOV", "FR_low", "FW", "GCT", "GRD", "HEC", "HES", "HVO", "HVSW", "IHEF", "IIE", "IM", "INH",
    "JRAD", "ML1", "ML2", "ML3", "MODFLT1", "MODFLT2", "MW_cent", "MW_high", "MW_low", "NBADCSL", "NBL", "NC", "NF",
    "NS", "NebFlow", "NebSW", "NebTemp", "O1", "O2", "O3", "O4", "O5", "O6", "O7", "O8", "OFFSET", "PAPS", "PHP",
    "PL1", "PL2", "PL3", "PL4", "PL9", "PR", "PSH", "PV1", "PV2", "QNP", "RECGAIN", "RFAmp", "RG", "RGAIN", "SEOUT",
    "SF", "SFO1", "SFO2", "SFO3", "SFO4", "SFO5", "SFO6", "SFO7", "SFO8", "SOH", "SOTYPE", "SP07", "ST", "SW", "SW_h",
    "SYSTA", "Skim1", "TD", "TIME", "TP07", "TRAMP", "Trap", "V9", "VD", "VP", "VSEL", "XBB", "XDFL", "XFC", "XHEF",
    "XHR", "XIE", "YDFL", "YMAX_a", "YMIN_a"};

// Arrays and strings of acqu/acqus, in order; size 0 marks a string.
struct Multi {
    const char* key;
    int size;
};
constexpr std::array ACQU_MULTI = {
    Multi{"AE", 8},       Multi{"APA", 8},      Multi{"AQ_DATE", 0},  Multi{"AR", 8},       Multi{"CALME", 8},
    Multi{"CALMR", 8},    Multi{"CLUPA", 8},    Multi{"CNST", 32},    Multi{"D", 32},       Multi{"DBL", 8},
    Multi{"DL", 8},       Multi{"ExpFile", 0},  Multi{"F1LIST", 0},   Multi{"F2LIST", 0},   Multi{"F3LIST", 0},
    Multi{"FQ1LIST", 0},  Multi{"FQ2LIST", 0},  Multi{"FQ3LIST", 0},  Multi{"FQ4LIST", 0},  Multi{"FQ5LIST", 0},
    Multi{"FQ6LIST", 0},  Multi{"FQ7LIST", 0},  Multi{"FQ8LIST", 0},  Multi{"IN", 32},      Multi{"INP", 32},
    Multi{"INSTRUM", 0},  Multi{"JHIGH", 8},    Multi{"JLOW", 8},     Multi{"JSB", 8},      Multi{"JSHA", 8},
    Multi{"JSWA", 8},     Multi{"L", 32},       Multi{"M1LIST", 0},   Multi{"P", 32},       Multi{"PI", 8},
    Multi{"PIoff", 8},    Multi{"PL", 32},      Multi{"PULPROG", 0},  Multi{"PV", 8},       Multi{"ROUTWD1", 24},
    Multi{"ROUTWD2", 24}, Multi{"SEL", 8},      Multi{"SE_BLKS", 128}, Multi{"SP", 16},     Multi{"SPNAM0", 0},
    Multi{"SPNAM1", 0},   Multi{"SPNAM10", 0},  Multi{"SPNAM11", 0},  Multi{"SPNAM12", 0},  Multi{"SPNAM13", 0},
    Multi{"SPNAM14", 0},  Multi{"SPNAM15", 0},  Multi{"SPNAM2", 0},   Multi{"SPNAM3", 0},   Multi{"SPNAM4", 0},
    Multi{"SPNAM5", 0},   Multi{"SPNAM6", 0},   Multi{"SPNAM7", 0},   Multi{"SPNAM8", 0},   Multi{"SPNAM9", 0},
    Multi{"SPOFFS", 16},  Multi{"TL", 8},       Multi{"TP", 8},       Multi{"TPNAME0", 0},  Multi{"TPNAME1", 0},
    Multi{"TPNAME2", 0},  Multi{"TPNAME3", 0},  Multi{"TPNAME4", 0},  Multi{"TPNAME5", 0},  Multi{"TPNAME6", 0},
    Multi{"TPNAME7", 0},  Multi{"TPOFFS", 8},   Multi{"VCLIST", 0},   Multi{"VDLIST", 0},   Multi{"VPLIST", 0}};

constexpr std::array PROC_SINGLE = {
    "ABSF1",   "ABSF2",   "ABSG",    "ALPHA",   "AZFE",    "AZFW",    "BCFW",    "BC_mod",  "BYTORDP", "CLPTS",
    "CLSTAT",  "COROFFS", "DATMOD",  "DC",      "FTSIZE",  "FT_mod",  "FidCorI", "FidCorR", "GAMMA",   "GB",
    "INTBC",   "INTSCL",  "ISEN",    "LB",      "LPBIN",   "MAXI",    "MAXPKS",  "MC2",     "MEAN",    "ME_mod",
    "MI",      "MPWCH",   "NCOEF",   "NC_proc", "NSP",     "NTH_PF",  "NTH_PI",  "NZP",     "PC",      "PHC0",
    "PHC1",    "PH_mod",  "PKNL",    "PPERC",   "PP_meth", "REVERSE", "SI",      "SIC_gco", "SIC_gct", "SIC_ion",
    "SIC_max", "SIC_min", "SSB",     "STSI",    "STSR",    "SW_p",    "SYMM",    "S_DEV",   "TDeff",   "TIC_gco",
    "TIC_gct", "TIC_hig", "TIC_low", "TIC_max", "TIC_min", "TIC_rhi", "TIC_rlo", "TICcorr", "TILT",    "TM1",
    "TM2",     "WDW",     "XDIM",    "YMAX_p",  "YMIN_p"};
constexpr std::array PROC_STRINGS = {"CLDATE", "CLREFNM", "DFILT", "II_path", "IR_path",
                                     "RI_path", "RR_path", "SREGLST", "TI"};

std::string param(std::string_view key, std::string_view value) { return fmt::format("##${}= {} \n", key, value); }

std::string f_text(double v) { return fmt::sprintf("%f", v); }

// The values that come from the record; A and B narrowed to single precision
// where the files hold them so.
struct Computed {
    float ML1, ML2, FR_low, MW_low;
};
Computed computed_of(const Spectrum& s) {
    const double A = s.Aterm, B = s.Bterm;
    Computed c{};
    c.ML1 = static_cast<float>(A);
    c.ML2 = static_cast<float>(-B / A);
    c.FR_low = static_cast<float>(A / 3000.0 + B / A);
    c.MW_low = static_cast<float>(A / (static_cast<double>(c.ML2) + s.dbandwidth));
    return c;
}

std::string acqu_single_value(std::string_view key, const Spectrum& s, const Computed& c, const XmassRun& run,
                              bool acqus) {
    if (key == "FR_low") return f_text(c.FR_low);
    if (key == "ML1") return f_text(c.ML1);
    if (key == "ML2") return f_text(c.ML2);
    if (key == "MW_low") return f_text(c.MW_low);
    if (key == "NS") return fmt::format("{}", run.scans);
    if (key == "SW_h") return f_text(s.dbandwidth);
    if (key == "TD") return fmt::format("{}", s.datacount);
    if (key == "VD") return acqus ? "0" : f_text(run.trapdelay);
    if (key == "DATE") return fmt::format("{}", s.dateserial);
    if (key == "BYTORDA") return "1";
    if (key == "Calmet") return "0";
    if (key == "DW") return "0.40726089";
    if (key == "AqDSize") return "8192";
    if (key == "DIGTYP") return "2";
    if (key == "MW_cent") return "571.50000";
    if (key == "MW_high") return "3000.0000";
    if (key == "O1") return "92982.9024627947";
    if (key == "OFFSET") return "-998132.903372704";
    if (key == "SF") return "51437.6163482666";
    if (key == "SFO1") return "96.039";
    if (key == "SW") return "5005.97914145604";
    if (key == "DECIM") return "1";
    if (key == "EXC_hi") return "1000";
    if (key == "EXC_low") return "38000";
    if (key == "DIGMOD") return "1";
    return "0";
}

std::string array_text(const Multi& m) {
    std::vector<std::string> v(static_cast<std::size_t>(m.size), "0");
    if (std::string_view(m.key) == "D") {
        const char* row0[] = {"50000", "10000", "0", "0", "100", "215000", "0", "0"};
        for (int i = 0; i < 8; ++i) v[static_cast<std::size_t>(i)] = row0[i];
        v[9] = "1000";
    } else if (std::string_view(m.key) == "P") {
        const char* row0[] = {"0", "5000", "5000", "12", "119", "1", "0", "1"};
        for (int i = 0; i < 8; ++i) v[static_cast<std::size_t>(i)] = row0[i];
    } else if (std::string_view(m.key) == "SE_BLKS") {
        for (auto& x : v) x = "no";
    }
    std::string out = fmt::format("##${}= (0..{}) \n", m.key, m.size - 1);
    for (std::size_t i = 0; i < v.size(); i += 8) {
        for (std::size_t k = i; k < std::min(v.size(), i + 8); ++k) {
            if (k > i) out += ' ';
            out += v[k];
        }
        out += '\n';
    }
    return out;
}

std::string acqu_text(const Spectrum& s, const XmassRun& run, bool acqus) {
    const Computed c = computed_of(s);
    std::string t = HEADER;
    for (const char* key : ACQU_SINGLE) t += param(key, acqu_single_value(key, s, c, run, acqus));
    for (const Multi& m : ACQU_MULTI) {
        if (m.size == 0) t += param(m.key, std::string_view(m.key) == "PULPROG" ? "<basic>" : "<>");
        else t += array_text(m);
    }
    t += "##END=\n\n\n";
    return t;
}

std::string proc_text(const Spectrum& s) {
    std::string t = HEADER;
    for (const char* key : PROC_SINGLE) {
        const std::string_view k = key;
        std::string v = "0";
        if (k == "FT_mod") v = "5";
        else if (k == "FTSIZE") v = "1024";
        else if (k == "BYTORDP") v = "1";
        else if (k == "DATMOD") v = "1";
        else if (k == "REVERSE") v = "yes";
        else if (k == "PH_mod") v = "2";
        else if (k == "TIC_max") v = "-1E+38";
        else if (k == "TIC_min") v = "1E+38";
        else if (k == "SI") v = fmt::format("{}", s.datacount);
        t += param(k, v);
    }
    for (const char* key : PROC_STRINGS) t += param(key, "<>");
    t += "##END=\n";
    return t;
}

// One sample as the fid holds it: times 524288, truncated to an integer (kept
// inside the int32 range), most significant byte first.
std::array<unsigned char, 4> fid_bytes(float sample) {
    const double v = static_cast<double>(sample) * 524288.0;
    std::int32_t i = 0;
    if (v >= 2147483647.0) i = std::numeric_limits<std::int32_t>::max();
    else if (v <= -2147483648.0) i = std::numeric_limits<std::int32_t>::min();
    else if (std::isfinite(v)) i = static_cast<std::int32_t>(v);
    const auto u = static_cast<std::uint32_t>(i);
    return {static_cast<unsigned char>(u >> 24), static_cast<unsigned char>(u >> 16),
            static_cast<unsigned char>(u >> 8), static_cast<unsigned char>(u)};
}

bool write_text(const fs::path& path, const std::string& text, const char* title, Ui& ui) {
    AtomicFile f(path.string());
    if (!f.ok()) {
        ui.MessagePopup(title, "Could Not Open File");
        return false;
    }
    if (!f.write(text) || f.commit() < 0) {
        ui.MessagePopup(title, fmt::format("Could Not Write File {}: {}", path.string(), f.error()));
        return false;
    }
    return true;
}

bool write_fid(const fs::path& path, const Spectrum& s, Ui& ui) {
    constexpr const char* title = "FID File Storage Error";
    AtomicFile f(path.string());
    if (!f.ok()) {
        ui.MessagePopup(title, "Could Not Open File");
        return false;
    }
    const std::size_t n = s.datacount > 0 ? static_cast<std::size_t>(s.datacount) : 0;
    constexpr std::size_t CHUNK = 1 << 15;
    std::vector<unsigned char> buf;
    buf.reserve(CHUNK * 4);
    for (std::size_t i = 0; i < n; i += CHUNK) {
        buf.clear();
        for (std::size_t k = i; k < std::min(n, i + CHUNK); ++k) {
            const auto b = fid_bytes(k < s.data.size() ? s.data[k] : 0.0f);
            buf.insert(buf.end(), b.begin(), b.end());
        }
        if (!f.write(buf.data(), buf.size())) break;
    }
    if (!f.error().empty() || f.commit() < 0) {
        ui.MessagePopup(title, fmt::format("Could Not Write File {}: {}", path.string(), f.error()));
        return false;
    }
    return true;
}

bool make_dir(const fs::path& p, const char* text, Ui& ui) {
    std::error_code ec;
    fs::create_directory(p, ec);
    if (ec || !fs::is_directory(p, ec)) {
        ui.MessagePopup("Dir creation error", text);
        return false;
    }
    return true;
}

}  // namespace

std::string xmass_base_of(const std::string& tulva_path) {
    // A Tulva name has a three-letter extension: its last four characters go.
    const std::size_t n = tulva_path.size();
    if (n > 4 && tulva_path[n - 4] == '.' && tulva_path.find('/', n - 4) == std::string::npos)
        return tulva_path.substr(0, n - 4);
    // Other sources (a Bruker .d directory, a .Z archive): the name without its extension.
    fs::path p(tulva_path);
    if (p.filename().empty()) p = p.parent_path();
    return p.replace_extension().string();
}

int Store_Data_XMASS(const std::string& base, const Spectrum& s, const XmassRun& run, Ui& ui) {
    const fs::path b(base);
    if (!make_dir(b, "Creation of filename dir failed", ui)) return -1;
    if (!make_dir(b / "1", "Creation of filename\\1\\ dir failed", ui)) return -1;
    if (!make_dir(b / "1" / "pdata", "Creation of filename\\1\\pdata\\ dir failed", ui)) return -1;
    if (!make_dir(b / "1" / "pdata" / "1", "Creation of filename\\1\\pdata\\1\\ dir failed", ui)) return -1;

    const fs::path one = b / "1";
    if (!write_text(one / "acqu", acqu_text(s, run, false), "ACQU File Storage Error", ui)) return -1;
    if (!write_text(one / "acqus", acqu_text(s, run, true), "ACQUS File Storage Error", ui)) return -1;
    if (!write_fid(one / "fid", s, ui)) return -1;
    if (!write_text(one / "SPTYPE", "icr\n", "SPTYPE File Storage Error", ui)) return -1;
    const std::string proc = proc_text(s);
    if (!write_text(one / "pdata" / "1" / "proc", proc, "proc File Storage Error", ui)) return -1;
    if (!write_text(one / "pdata" / "1" / "procs", proc, "procs File Storage Error", ui)) return -1;
    return 0;
}

int store_active_xmass(Workspace& ws, const std::string& base, Ui& ui) {
    if (ws.active_panel < 0 || ws.active_panel >= MAX_PANELS ||
        !ws.panels[static_cast<std::size_t>(ws.active_panel)].active) {
        ui.MessagePopup("Operator Error", "No Spectrum Chosen");
        return -1;
    }
    const Spectrum& s = ws.panels[static_cast<std::size_t>(ws.active_panel)].spectrum;
    if (s.domain != DOMAIN_TIME) {
        ui.MessagePopup("Operator Error", "An XMASS directory holds a transient: open the time-domain file again.");
        return -1;
    }
    return Store_Data_XMASS(base.empty() ? xmass_base_of(s.filename) : base, s, XmassRun{}, ui);
}

}  // namespace vx
