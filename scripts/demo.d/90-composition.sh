# Elemental composition: a small simulated natural-organic-matter peak list
# (CHO, CHON and CHOS series, de-protonated ions, masses within 0.3 ppm) is
# grouped into Kendrick series and assigned at 1 ppm in negative mode; the
# assignment table is written and its first rows shown, with the Kendrick
# text export of the same assignment. Then the single-mass
# calculator lists every composition of one m/z.
set -euo pipefail
"$VX" simulate-formulas --count 400 --seed 3 -o "$OUT/nom_peaks.csv"
"$VX" kendrick "$OUT/nom_peaks.csv" -o "$OUT/nom_series.csv"
"$VX" assign "$OUT/nom_peaks.csv" --ppm 1 --mode neg --elements C1-100,H0-200,N0-2,O0-20,S0-1 -o "$OUT/nom_assigned.csv" \
  --save "$OUT/nom_kendrick.csv"
head -n 8 "$OUT/nom_assigned.csv"
# The same assignment as the Kendrick view's text export ("Print Peaks To File").
head -n 13 "$OUT/nom_kendrick.csv" | tr -d '\r'

"$VX" formula 367.194854 --ppm 20 --mode neg --elements C1-100,H0-200,N0-3,O0-20,S0-2
