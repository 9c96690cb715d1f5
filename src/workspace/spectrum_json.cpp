#include "workspace/spectrum_json.hpp"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace vx {

namespace {
// JSON has no infinities or NaN; they are written as their names in text.
nlohmann::ordered_json num(double v) {
    if (std::isfinite(v)) return v;
    return std::isnan(v) ? "nan" : (v > 0 ? "inf" : "-inf");
}
}  // namespace

nlohmann::ordered_json header_json(const Spectrum& s) {
    nlohmann::ordered_json j;
    j["filename"] = s.filename;
    j["domain"] = s.domain;
    j["datacount"] = s.datacount;
    j["storedcount"] = s.storedcount;
    j["dbandwidth"] = num(s.dbandwidth);
    j["detectmode"] = s.detectmode;
    j["reffreq"] = num(s.reffreq);
    j["caltype"] = s.caltype;
    j["Aterm"] = num(s.Aterm);
    j["Bterm"] = num(s.Bterm);
    j["Cterm"] = num(s.Cterm);
    j["calcoeff3"] = num(s.calcoeff3);
    j["calcoeff4"] = num(s.calcoeff4);
    j["Trapvoltage"] = num(s.Trapvoltage);
    j["detectstart"] = num(s.detectstart);
    j["parentmass"] = num(s.parentmass);
    j["collectedon"] = s.collectedon;
    j["projectcode"] = s.projectcode;
    j["collectedby"] = s.collectedby;
    j["dateserial"] = s.dateserial;
    j["filetype"] = s.filetype;
    j["expcount"] = s.expcount;
    j["exciteduration"] = num(s.exciteduration);
    j["lowfreq"] = num(s.lowfreq);
    j["highfreq"] = num(s.highfreq);
    j["origlowfreq"] = num(s.origlowfreq);
    j["orighighfreq"] = num(s.orighighfreq);
    j["sweeprate"] = num(s.sweeprate);
    j["delay"] = num(s.delay);
    j["detectbw"] = num(s.detectbw);
    j["phaseconstant"] = num(s.phaseconstant);
    j["initialconstant"] = num(s.initialconstant);
    j["usephasedelay"] = s.usephasedelay;
    j["phaseparams"] = s.phaseparams;
    j["storagemode"] = s.storagemode;
    j["storageinfo"] = s.storageinfo;
    j["relativex"] = num(s.relativex);
    j["Zeroorder"] = num(s.Zeroorder);
    j["OptimizedFirstorder"] = num(s.OptimizedFirstorder);
    j["OptimizedSecondorder"] = num(s.OptimizedSecondorder);
    j["ZeroDegrees"] = s.ZeroDegrees;
    j["Phased_Intercept"] = s.Phased_Intercept;
    j["Phased_Datacount"] = s.Phased_Datacount;
    j["Truncations_stored"] = s.Truncations_stored;
    j["Zerofills_stored"] = s.Zerofills_stored;
    j["Truncations"] = s.Truncations;
    j["apodization"] = s.apodization;
    j["baselinecorrected"] = s.baselinecorrected;
    j["Zerofills"] = s.Zerofills;
    j["hzppt"] = num(s.hzppt);
    j["StartIndex"] = s.StartIndex;
    j["zoomed"] = s.zoomed;
    j["Zoomcount"] = s.Zoomcount;
    j["sed"] = s.sed;
    j["sedflag"] = s.sedflag;
    j["Rephased"] = s.Rephased;
    j["rephase_sections"] = s.rephase_sections;
    j["timedomainfile"] = s.timedomainfile;
    j["peakcount"] = s.peakcount;
    j["walkingterms"] = s.walkingterms;
    j["walkingregions"] = s.walkingregions;
    j["walkingrows"] = s.walkingrows;
    auto w = nlohmann::ordered_json::array();
    for (const auto& r : s.walking)
        w.push_back({{"A", num(r.A)}, {"B", num(r.B)}, {"startfreq", num(r.startfreq)}, {"endfreq", num(r.endfreq)}});
    j["walking"] = w;
    return j;
}

SampleStats sample_stats(const std::vector<float>& v) {
    SampleStats st;
    st.count = v.size();
    if (v.empty()) return st;
    float lo = v[0], hi = v[0];
    double sum = 0.0;
    for (float x : v) {
        lo = std::min(lo, x);
        hi = std::max(hi, x);
        sum += static_cast<double>(x);
    }
    st.min = lo;
    st.max = hi;
    st.sum = sum;
    return st;
}

nlohmann::ordered_json spectrum_json(const Spectrum& s) {
    nlohmann::ordered_json j;
    j["header"] = header_json(s);
    const SampleStats st = sample_stats(s.data);
    j["samples"] = {{"count", st.count}, {"min", num(st.min)}, {"max", num(st.max)}, {"sum", num(st.sum)}};
    if (!s.realdata64.empty()) j["realdata64"] = s.realdata64.size();
    if (!s.imagdata64.empty()) j["imagdata64"] = s.imagdata64.size();
    return j;
}

namespace {
void flatten(const nlohmann::ordered_json& j, const std::string& prefix, std::string& out) {
    for (auto it = j.begin(); it != j.end(); ++it) {
        const std::string name = prefix.empty() ? it.key() : prefix + "." + it.key();
        if (it->is_object()) {
            flatten(*it, name, out);
        } else if (it->is_array()) {
            int i = 0;
            for (const auto& e : *it) {
                if (e.is_object()) flatten(e, fmt::format("{}[{}]", name, i++), out);
                else out += fmt::format("{}[{}]: {}\n", name, i++, e.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
            }
        } else if (it->is_string()) {
            out += fmt::format("{}: {}\n", name, it->get<std::string>());
        } else if (it->is_number_float()) {
            out += fmt::format("{}: {}\n", name, it->get<double>());
        } else {
            out += fmt::format("{}: {}\n", name, it->dump());
        }
    }
}
}  // namespace

std::string spectrum_text(const Spectrum& s) {
    std::string out;
    flatten(spectrum_json(s), "", out);
    return out;
}

}  // namespace vx
