# Peak list of the bundled transient: process, find the peaks, write the .pks
# file, read it back.
set -euo pipefail
"$VX" peaks "$SAMPLE" --sn -o "$OUT/sample.pks"
head -n 12 "$OUT/sample.pks"
"$VX" peaklist "$OUT/sample.pks" | head -n 12
# The same list as a CSV table, from the reborn picker.
"$VX" peaks "$SAMPLE" --reborn --csv -o "$OUT/sample_peaks.csv" > /dev/null
head -n 5 "$OUT/sample_peaks.csv"
