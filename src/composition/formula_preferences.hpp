// The preference traffic of the two Formula Calculator panels: which settings
// go to their pages of the user preference file and come back, and the charge
// mode buttons with their polarity question.
#pragma once

#include "composition/formula.hpp"
#include "workspace/settings.hpp"

namespace vx {

class Ui;

// The two calculator panels and their preference pages.
enum class Calculator { MOLECAL = 0, MOLECALUNO = 1 };

// SetElementsPreferences: the panel's element maxima (C, H, N, O, S, P and the
// six user slots), radicals, mass accuracy and charge mode into its page.
// -9 when the panel is not open (null), else 0.
int SetElementsPreferences(const FormulaSettings* panel, Calculator which, Settings& prefs);

// SetElementsPreferences2: both pages into whichever panels are open (null
// skips a side). -11 when neither is open, else 0.
int SetElementsPreferences2(FormulaSettings* multi, FormulaSettings* single, const Settings& prefs);

// UseElementsPreferences: one panel loaded from its page. The mode is read as
// the search reads its buttons: positive first, then negative, else neutral.
void UseElementsPreferences(FormulaSettings& panel, Calculator which, const Settings& prefs);

// The polarity of a data set: the sign of its first calibration coefficient,
// positive for positive-ion files. 0 is neither.
int spectrum_polarity(const Spectrum& spectrum);

// A click on a charge-mode button (set_charge for MOLECAL with its page,
// set_charge2 for MOLECALUNO without): only the clicked mode is on; with a page
// the three states are written to it. Then, when the click disagrees with the
// polarity of the data set, the question "Possible Request to Change Vantorix
// File Polarity"; a yes flips the sign of the A term. Returns 1 when the term
// was flipped, else 0. spectrum may be null (no data set open).
int set_charge(ChargeMode clicked, FormulaSettings& panel, FormulaPreferences* page, Spectrum* spectrum, Ui& ui);

// The mode a calculator opens in: positive for a positive data set, negative
// otherwise (a polarity of 0 included), whatever the preferences say.
ChargeMode opening_mode(const Spectrum* spectrum);

// formulacal_callback: MOLECALUNO opened from the menu. Its page is applied,
// then the mode follows the data set and is written back to the page.
FormulaSettings formulacal_open(Settings& prefs, const Spectrum* spectrum);
// batchformulacal_callback: MOLECAL opened; no preferences are applied, the
// mode follows the data set.
FormulaSettings batchformulacal_open(const Spectrum* spectrum);

}  // namespace vx
