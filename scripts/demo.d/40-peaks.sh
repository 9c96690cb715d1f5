# Peak list of the bundled transient: process, find the peaks (thresholds as
# percent of the largest sample), write the .pks file and read it back. The
# eight ions of data/sample_ions.csv come out at their m/z.
set -euo pipefail
"$VX" peaks "$SAMPLE" --percent --threshold 5 --noise-threshold 1 -o "$OUT/sample.pks"
cat "$OUT/sample.pks"
"$VX" peaklist "$OUT/sample.pks"
# The reborn picker (absolute thresholds), written as a CSV table.
"$VX" peaks "$SAMPLE" --reborn --threshold 5000 --noise-threshold 1000 --csv -o "$OUT/sample_peaks.csv" > /dev/null
cat "$OUT/sample_peaks.csv"
