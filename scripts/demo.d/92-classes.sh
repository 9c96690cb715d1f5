# Petroleum class tables: a simulated CHO/CHON/CHOS sample whose 13C, 2x13C,
# 34S and 34S+13C isotopologues stand at their true ratios is assigned with the
# isotope rules on, so the isotopologues take their parents' formulas. The
# step closes with the class, DBE and carbon-number tables and their plots
# (class bars, DBE vs carbon number per class, van Krevelen, Kendrick, the
# three error plots) drawn offscreen as PNG and SVG.
set -euo pipefail
"$VX" simulate-formulas --count 600 --seed 5 --isotopologues 2000 -o "$OUT/petro_peaks.csv"
"$VX" assign "$OUT/petro_peaks.csv" --topdown --isotope-table "$OUT/isotope_flags.csv" -o "$OUT/petro_assigned.csv"
if "$VX" classes "$OUT/petro_peaks.csv" -o "$OUT/classes" --plots png,svg > "$OUT/classes.txt" 2> "$OUT/classes.err"; then
  plots=yes
else
  status=$?
  # A build without Qt writes the tables only and says why it draws nothing.
  [ "$status" -eq 2 ] || { cat "$OUT/classes.err"; exit "$status"; }
  sed 's/^/no plots: /' "$OUT/classes.err"
  "$VX" classes "$OUT/petro_peaks.csv" -o "$OUT/classes" > "$OUT/classes.txt"
  plots=no
fi
grep -c ',True,' "$OUT/classes/peaks.csv" | sed 's/^/isotopologue peaks given their parent formula: /'
echo "--- class table (classes.csv, strongest 8)"
head -n 9 "$OUT/classes/classes.csv"
echo "--- DBE table of the strongest class (dbe.csv)"
top=$(sed -n 2p "$OUT/classes/classes.csv" | cut -d, -f1)
head -n 1 "$OUT/classes/dbe.csv"; grep "^$top," "$OUT/classes/dbe.csv" | head -n 6
echo "--- carbon-number table of the strongest class (carbon.csv)"
head -n 1 "$OUT/classes/carbon.csv"; grep "^$top," "$OUT/classes/carbon.csv" | head -n 6
if [ "$plots" = yes ]; then
  echo "--- isotope pattern of C35H60O6, plotted"
  "$VX" isotopes C35H60O6 --threshold 1e-6 --plot "$OUT/classes/pattern_C35H60O6.svg"
  echo "--- plots in $OUT/classes"
  (cd "$OUT/classes" && ls -1 classes.png van_krevelen.png kendrick.png mass_error.png sn_error.png error_histogram.png \
     pattern_C35H60O6.svg "dbe_carbon_${top// /_}.png" && echo "and $(ls dbe_carbon_*.png | wc -l) DBE plots in all")
else
  echo "--- isotope pattern of C35H60O6"
  "$VX" isotopes C35H60O6 --threshold 1e-6
fi
