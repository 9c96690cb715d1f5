#include "composition/formula_preferences.hpp"

#include "platform/ui.hpp"

namespace vx {

namespace {
FormulaPreferences& page_of(Settings& s, Calculator w) { return s.formula_prefs[static_cast<std::size_t>(w)]; }
const FormulaPreferences& page_of(const Settings& s, Calculator w) {
    return s.formula_prefs[static_cast<std::size_t>(w)];
}

void write_mode(FormulaPreferences& p, ChargeMode m) {
    p.POSMODE = m == ChargeMode::POS ? 1 : 0;
    p.NEGMODE = m == ChargeMode::NEG ? 1 : 0;
    p.NEUMODE = m == ChargeMode::NEU ? 1 : 0;
}

void load(FormulaSettings& f, const FormulaPreferences& p) {
    f.C_MAX = p.CARBONMAX;
    f.H_MAX = p.HYDROGENMAX;
    f.N_MAX = p.NITROGENMAX;
    f.O_MAX = p.OXYGENMAX;
    f.S_MAX = p.SULFURMAX;
    f.P_MAX = p.PHOSPHOROUSMAX;
    for (std::size_t i = 0; i < 6; ++i) f.user[i].max = p.USERMAX[i];
    f.RADICALS = p.ALLOWRADS != 0;
    f.MASS_ACCURACY = p.MASSACCURACY;
    f.mode = p.POSMODE ? ChargeMode::POS : p.NEGMODE ? ChargeMode::NEG : ChargeMode::NEU;
}
}  // namespace

int SetElementsPreferences(const FormulaSettings* panel, Calculator which, Settings& prefs) {
    if (!panel) return -9;
    FormulaPreferences& p = page_of(prefs, which);
    p.CARBONMAX = panel->C_MAX;
    p.HYDROGENMAX = panel->H_MAX;
    p.NITROGENMAX = panel->N_MAX;
    p.OXYGENMAX = panel->O_MAX;
    p.SULFURMAX = panel->S_MAX;
    p.PHOSPHOROUSMAX = panel->P_MAX;
    for (std::size_t i = 0; i < 6; ++i) p.USERMAX[i] = panel->user[i].max;
    p.ALLOWRADS = panel->RADICALS ? 1 : 0;
    p.MASSACCURACY = panel->MASS_ACCURACY;
    write_mode(p, panel->mode);
    return 0;
}

int SetElementsPreferences2(FormulaSettings* multi, FormulaSettings* single, const Settings& prefs) {
    if (!multi && !single) return -11;
    if (multi) load(*multi, page_of(prefs, Calculator::MOLECAL));
    if (single) load(*single, page_of(prefs, Calculator::MOLECALUNO));
    return 0;
}

void UseElementsPreferences(FormulaSettings& panel, Calculator which, const Settings& prefs) {
    load(panel, page_of(prefs, which));
}

int spectrum_polarity(const Spectrum& s) { return s.Aterm > 0.0 ? 1 : s.Aterm < 0.0 ? -1 : 0; }

int set_charge(ChargeMode clicked, FormulaSettings& panel, FormulaPreferences* page, Spectrum* spectrum, Ui& ui) {
    panel.mode = clicked;
    if (page) write_mode(*page, clicked);
    if (!spectrum || clicked == ChargeMode::NEU) return 0;
    const int polarity = spectrum_polarity(*spectrum);
    // The texts run words together as the question always has.
    if (clicked == ChargeMode::NEG && polarity > 0) {
        if (!ui.ConfirmPopup("Possible Request to Change Vantorix File Polarity",
                             "Vantorix believes that this file was collected positive ion mode,but you are calibrating"
                             "for negative ion mode. Do you want to change Vantorix file to NEGATIVE ion mode?"))
            return 0;
    } else if (clicked == ChargeMode::POS && polarity < 0) {
        if (!ui.ConfirmPopup("Possible Request to Change Vantorix File Polarity",
                             "Vantorix believes that this file was collected negative mode,but you are calibrating"
                             "for positive mode. Do you want to change Vantorix file to POSITIVE ion mode?"))
            return 0;
    } else {
        return 0;
    }
    spectrum->Aterm = -spectrum->Aterm;
    return 1;
}

ChargeMode opening_mode(const Spectrum* spectrum) {
    return spectrum && spectrum_polarity(*spectrum) > 0 ? ChargeMode::POS : ChargeMode::NEG;
}

FormulaSettings formulacal_open(Settings& prefs, const Spectrum* spectrum) {
    FormulaSettings f = molecaluno_defaults();
    UseElementsPreferences(f, Calculator::MOLECALUNO, prefs);
    f.mode = opening_mode(spectrum);
    write_mode(page_of(prefs, Calculator::MOLECALUNO), f.mode);
    return f;
}

FormulaSettings batchformulacal_open(const Spectrum* spectrum) {
    FormulaSettings f = molecal_defaults();
    f.mode = opening_mode(spectrum);
    return f;
}

}  // namespace vx
