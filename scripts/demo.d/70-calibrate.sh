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
# Quick calibration without a reference file: a homologous CH2 series. A
# sample of ten series members and two other ions, its header A 20 ppm high;
# the peaks on the series from m/z 301.2 calibrate it.
python3 - "$OUT/series_ions.csv" <<'PY'
import sys
with open(sys.argv[1], 'w') as f:
    f.write('# ten members of a CH2 series and two other ions\n')
    for k in range(10):
        f.write('%.6f,0.5,0.3\n' % (301.2 + k * (2 * 1.00782503223 + 12.0)))
    f.write('333.333,0.4,0.3\n377.777,0.4,0.3\n')
PY
"$VX" simulate "$OUT/series_ions.csv" -o "$OUT/series.dat" --points 262144 --noise 0.002 --seed 7 --date 2026-11-23 > /dev/null
"$VX" recal "$OUT/series.dat" --aterm 47537721.603246 --bterm -3379711463.376564 --full-precision -o "$OUT/series_wrong.dat"
"$VX" calibrate "$OUT/series_wrong.dat" --series 301.2 --tolerance 50 --zerofills 2 --percent --threshold 5 --json |
  grep -E '"(aterm|rms_ppm|rms_ppm_before)"'
