# Calibration: the sample's ions are the reference masses. A copy of the sample
# with deliberately wrong coefficients (A 50 ppm high, B 10 % off) is made with
# vantorix recal; calibrating it against the reference file brings the RMS
# error of the calibrants from tens of ppm down to the precision of the peak
# positions, and a walking calibration makes every calibrant exact.
set -euo pipefail
ions="$(dirname "$SAMPLE")/sample_ions.csv"
"$VX" ref write "$OUT/sample.ref" --from "$ions" --overwrite
"$VX" ref read "$OUT/sample.ref"
"$VX" recal "$SAMPLE" --aterm 47539147.706373 --bterm -3717682609.714220 --full-precision -o "$OUT/wrong.dat"
"$VX" info "$OUT/wrong.dat" | grep -E 'Aterm|Bterm'
"$VX" calibrate "$OUT/wrong.dat" --ref "$OUT/sample.ref" --tolerance 200 --zerofills 3 --percent --threshold 2 \
  --table "$OUT/calibration.csv" -o "$OUT/recalibrated.pks" --overwrite
cat "$OUT/calibration.csv"
# Walking calibration of the same peaks, the walking table beside the data file.
"$VX" calibrate "$OUT/wrong.dat" --ref "$OUT/sample.ref" --tolerance 200 --zerofills 3 --percent --threshold 2 \
  --walking --walking-csv --json | grep -E '"(aterm|rms_ppm|rms_ppm_before|walking_regions|error_ppm)"'
cat "$OUT/wrong_walkcal.csv"
# The calibrants' RMS error is the scatter of the peak positions. A transient
# that decays during the acquisition keeps most of its signal at the start:
# the half Hann window (4), falling from the first sample, weights it fully
# and places the peaks more precisely than the full Hann window (3).
for window in 3 4; do
  printf 'apodization %s: ' "$window"
  "$VX" calibrate "$OUT/wrong.dat" --ref "$OUT/sample.ref" --tolerance 200 --zerofills 3 --percent --threshold 2 \
    --apodization "$window" --json | grep -E '"rms_ppm"'
done
