# Peak list of the bundled transient with no option at all: process, find the
# peaks with the default thresholds, write the .pks file and read it back. The
# eight ions of data/sample_ions.csv come out at their m/z, and nothing else.
set -euo pipefail
"$VX" peaks "$SAMPLE" -o "$OUT/sample.pks"
cat "$OUT/sample.pks"
"$VX" peaklist "$OUT/sample.pks"
# S/N against the robust noise estimate (peaks and their wings left out):
# the same eight ions, each with its S/N, as JSON.
"$VX" peaks "$SAMPLE" --sn --robust-noise --threshold 10 --json -o "$OUT/sample_sn.pks" \
  | python3 -c 'import json,sys; [print("%12.5f  S/N %9.1f" % (p["mz"], p["sn"])) for p in json.load(sys.stdin)["peaks"]]'
# The literal S/N search, as the batch commands run it, for comparison: its
# noise width is taken over the strong ions themselves (docs/peak-picking.md).
"$VX" peaks "$SAMPLE" --sn -o "$OUT/sample_sn_literal.pks"
# The reborn picker (absolute thresholds), written as a CSV table.
"$VX" peaks "$SAMPLE" --reborn --threshold 200 --noise-threshold 50 --csv -o "$OUT/sample_peaks.csv" > /dev/null
cat "$OUT/sample_peaks.csv"
