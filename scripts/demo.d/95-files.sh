# Files in and out: a new Tulva data file made from the sample's own header,
# the phased spectrum stored as a frequency data file and opened again, and
# the spectrum and its peak list exported as mzML.
set -euo pipefail
"$VX" save "$SAMPLE" -o "$OUT/sample-copy.dat" --storage-line
"$VX" info "$OUT/sample-copy.dat" | sed -n '1,8p'
"$VX" phase "$SAMPLE" --save "$OUT/sample.vfd" | tail -n 2
"$VX" info "$OUT/sample.vfd" | sed -n '1,12p'
"$VX" peaks "$OUT/sample.vfd" | sed -n '1,8p'
"$VX" export "$OUT/sample.vfd" -o "$OUT/sample.mzML"
"$VX" export "$SAMPLE" --peaks -o "$OUT/sample-peaks.mzML"
if command -v FileInfo >/dev/null; then
  FileInfo -v -in "$OUT/sample.mzML" 2>&1 | grep -E "Success|Failed" || true
fi
