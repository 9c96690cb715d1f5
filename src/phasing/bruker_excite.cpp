#include "phasing/bruker_excite.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <sstream>

#include <fmt/format.h>

#include "formats/bruker.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;

constexpr const char* INSUFFICIENT = "Insufficient information to phase data.";
constexpr std::uint64_t MAX_PULSE_PROGRAM = 1 << 20;

int insufficient(Ui& ui, const std::string& why) {
    ui.MessagePopup(INSUFFICIENT, fmt::format("Phasing can not continue with current information. Exiting.\n{}", why));
    return -15;
}

std::optional<double> number(const std::map<std::string, std::string>& v, const std::string& key) {
    const auto it = v.find(key);
    if (it == v.end()) return std::nullopt;
    const char* b = it->second.c_str();
    char* e = nullptr;
    const double d = std::strtod(b, &e);
    if (e == b || !std::isfinite(d)) return std::nullopt;
    while (*e != '\0' && std::isspace(static_cast<unsigned char>(*e))) ++e;
    if (*e != '\0') return std::nullopt;
    return d;
}

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// A pulse-program line without its comment, trimmed.
std::string code_of(const std::string& line) {
    std::string s = line.substr(0, line.find(';'));
    const auto b = s.find_first_not_of(" \t\r");
    if (b == std::string::npos) return {};
    const auto e = s.find_last_not_of(" \t\r");
    return s.substr(b, e - b + 1);
}

// Duration (s) of a pulse-program event token: "10u", "50m", "2s", "d2"
// (D_2, seconds), "p3" (P_3, microseconds). nullopt for anything else.
std::optional<double> duration_of(const std::string& token, const std::map<std::string, std::string>& v) {
    if (token.empty()) return std::nullopt;
    const char c0 = static_cast<char>(std::tolower(static_cast<unsigned char>(token[0])));
    if ((c0 == 'd' || c0 == 'p') && token.size() > 1 &&
        std::all_of(token.begin() + 1, token.end(), [](char c) { return std::isdigit(static_cast<unsigned char>(c)); })) {
        const auto x = number(v, fmt::format("{}_{}", c0 == 'd' ? 'D' : 'P', token.substr(1)));
        if (!x) return std::nullopt;
        return c0 == 'd' ? *x : *x * 1e-6;
    }
    char* e = nullptr;
    const double d = std::strtod(token.c_str(), &e);
    if (e == token.c_str() || !std::isfinite(d)) return std::nullopt;
    const std::string unit(e);
    if (unit == "u") return d * 1e-6;
    if (unit == "m") return d * 1e-3;
    if (unit == "s") return d;
    return std::nullopt;
}

}  // namespace

SweepLoop find_sweep_loop(const std::string& program, const std::map<std::string, std::string>& v) {
    SweepLoop loop;
    std::vector<std::string> lines;
    {
        std::istringstream in(program);
        std::string line;
        while (std::getline(in, line)) lines.push_back(code_of(line));
    }
    // The sweep step: "LABEL, (pN ... fqM ...)" - a pulse whose frequency
    // comes from a list; the loop back to LABEL counts the steps.
    std::string label;
    std::size_t i = 0;
    for (; i < lines.size(); ++i) {
        const std::string l = lower(lines[i]);
        const auto comma = l.find(',');
        const auto open = l.find("(p");
        if (comma == std::string::npos || open == std::string::npos || comma > open || l.find("fq") == std::string::npos)
            continue;
        std::size_t k = open + 2, d = k;
        while (d < l.size() && std::isdigit(static_cast<unsigned char>(l[d]))) ++d;
        if (d == k) continue;
        label = l.substr(0, comma);
        loop.step_time_name = "P_" + l.substr(k, d - k);
        break;
    }
    if (label.empty()) return loop;
    for (++i; i < lines.size(); ++i) {
        const std::string l = lower(lines[i]);
        const std::string head = "lo to " + label + " times l";
        if (l.rfind(head, 0) == 0) {
            const std::string n = l.substr(head.size());
            if (n.empty() || !std::all_of(n.begin(), n.end(), [](char c) { return std::isdigit(static_cast<unsigned char>(c)); }))
                return loop;
            loop.steps_name = "L_" + n;
            break;
        }
    }
    if (loop.steps_name.empty()) return loop;
    // The events after the loop up to "go": their first tokens are durations.
    for (++i; i < lines.size(); ++i) {
        const std::string l = lower(lines[i]);
        if (l.rfind("go", 0) == 0 && (l.size() == 2 || l[2] == ' ' || l[2] == '=')) {
            // "go" waits the pre-scan delay DE (us) before the first sample.
            if (const auto de = number(v, "DE"); de && *de >= 0.0) {
                loop.delay += *de * 1e-6;
                loop.prescan = true;
            }
            loop.found = true;
            return loop;
        }
        if (l.empty()) continue;
        const std::string token = l.substr(0, l.find_first_of(" \t"));
        if (const auto t = duration_of(token, v)) loop.delay += *t;
    }
    return loop;
}

int bruker_excitation_from(const std::map<std::string, std::string>& v, const std::string& program,
                           BrukerExcitation& e, Ui& ui) {
    const auto lo = number(v, "EXC_low"), hi = number(v, "EXC_hi");
    const auto ml1 = number(v, "ML1"), ml2 = number(v, "ML2"), sw = number(v, "SW_h");
    if (!lo || !hi || !(*lo > 0.0) || !(*hi > 0.0) || *lo == *hi)
        return insufficient(ui, "The method gives no excitation range (EXC_low, EXC_hi in m/z).");
    if (!ml1 || !ml2 || *ml1 == 0.0) return insufficient(ui, "The method gives no calibration (ML1, ML2).");
    if (!sw || !(*sw > 0.0)) return insufficient(ui, "The method gives no bandwidth (SW_h).");
    e.exc_low_mz = std::min(*lo, *hi);
    e.exc_hi_mz = std::max(*lo, *hi);
    e.bandwidth = *sw;
    // The instrument's own frequency of the high m/z end, FR_low, is
    // ML1 / m - ML2: the law the sweep was built with.
    auto freq = [&](double m) { return *ml1 / m - *ml2; };
    e.low_hz = freq(e.exc_hi_mz);
    e.high_hz = freq(e.exc_low_mz);
    if (const auto fr = number(v, "FR_low"); fr && std::fabs(*fr - e.low_hz) > 1.0)
        e.notes.push_back(fmt::format("FR_low {:.3f} Hz differs from ML1 / EXC_hi - ML2 = {:.3f} Hz", *fr, e.low_hz));
    if (!(e.low_hz > 0.0) || !(e.high_hz > e.low_hz) || !std::isfinite(e.high_hz))
        return insufficient(ui, fmt::format("The excitation range {} to {} m/z gives no frequency range.", e.exc_low_mz,
                                            e.exc_hi_mz));

    const SweepLoop loop = find_sweep_loop(program, v);
    if (loop.found) {
        e.steps_name = loop.steps_name;
        e.step_time_name = loop.step_time_name;
        e.delay = loop.delay;
        e.complete = loop.prescan;
        e.notes.push_back(fmt::format("sweep of {} steps of {} us from the pulse program, {:.1f} us to detection",
                                      e.steps_name, e.step_time_name, e.delay * 1e6));
    } else {
        // The basic program's slots, its 1 us before "go" and the pre-scan delay.
        e.delay = 1e-6 + std::max(0.0, number(v, "DE").value_or(0.0)) * 1e-6;
        e.notes.push_back(program.empty() ? "no pulse program: the basic program's L_31 steps of P_3 us assumed"
                                          : "no sweep loop in the pulse program: L_31 steps of P_3 us assumed");
    }
    const auto steps = number(v, e.steps_name), step = number(v, e.step_time_name);
    if (!steps || !step || !(*steps >= 2.0) || *steps > 1e9 || !(*step > 0.0))
        return insufficient(ui, fmt::format("The method gives no usable sweep ({} steps of {} us).", e.steps_name,
                                            e.step_time_name));
    e.steps = static_cast<long long>(std::llround(*steps));
    e.step_time = *step * 1e-6;
    e.sweep_time = static_cast<double>(e.steps) * e.step_time;
    // The sweep runs from high to low frequency unless REVERSE says 0.
    const auto reverse = number(v, "REVERSE");
    const bool downward = !reverse || *reverse != 0.0;
    e.start_hz = downward ? e.high_hz : e.low_hz;
    e.end_hz = downward ? e.low_hz : e.high_hz;
    e.rate = (e.end_hz - e.start_hz) / (e.sweep_time * 1e6);
    if (!std::isfinite(e.rate) || e.rate == 0.0 || !std::isfinite(e.sweep_time) || !std::isfinite(e.delay))
        return insufficient(ui, fmt::format("The method's sweep ({} steps of {} s, {} s to detection) is not a sweep.",
                                            e.steps, e.step_time, e.delay));
    return 0;
}

int read_bruker_excitation(const std::string& path, BrukerExcitation& e, Ui& ui) {
    e = BrukerExcitation{};
    const std::string dir = bruker_directory_of(path);
    if (bruker_layout(dir) != BrukerLayout::Method)
        return insufficient(ui, fmt::format("{} has no method folder (*.m/apexAcquisition.method) to read the "
                                            "excitation from.",
                                            dir));
    BrukerParameters bp;
    if (read_bruker_parameters(dir, bp, ui) < 0) return -15;
    e.method_file = bp.parameter_file;
    std::string program;
    const fs::path folder = fs::path(bp.parameter_file).parent_path();
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        const std::string name = it->path().filename().string();
        if (name.rfind("PULPROG", 0) != 0 || it->path().extension() != ".compiled") continue;
        const auto size = regular_file_size(it->path().string());
        if (!size || *size > MAX_PULSE_PROGRAM) continue;
        std::unique_ptr<std::FILE, int (*)(std::FILE*)> f(std::fopen(it->path().string().c_str(), "rb"), &std::fclose);
        if (!f) continue;
        program.resize(*size);
        program.resize(std::fread(program.data(), 1, program.size(), f.get()));
        e.pulse_program = it->path().string();
        break;
    }
    return bruker_excitation_from(bp.values, program, e, ui);
}

void apply_bruker_excitation(const BrukerExcitation& e, Spectrum& s) {
    s.lowfreq = e.start_hz;
    s.highfreq = e.end_hz;
    s.sweeprate = std::fabs(e.rate);
    s.delay = e.delay;
    s.exciteduration = e.sweep_time;
}

}  // namespace vx
