# The experiment that made the sample, as a timeline and as JSON; the user
# preferences (default.txt made on the first run) saved to a file of our own;
# a folder tree of transients packed breadth first, each archive checked.
set -euo pipefail
"$VX" script "$SAMPLE"
"$VX" script "$SAMPLE" --json > "$OUT/script.json"
head -n 12 "$OUT/script.json"
"$VX" prefs > "$OUT/prefs.txt"
head -n 8 "$OUT/prefs.txt"
"$VX" prefs --save "$OUT/mine.txt" >/dev/null
head -n 4 "$OUT/mine.txt"
rm -rf "$OUT/zipdemo"
mkdir -p "$OUT/zipdemo/run1/a" "$OUT/zipdemo/run2"
cp "$SAMPLE" "$OUT/zipdemo/run1/one.dat"
cp "$SAMPLE" "$OUT/zipdemo/run1/a/two.dat"
cp "$SAMPLE" "$OUT/zipdemo/run2/three.dat"
"$VX" zip --dir "$OUT/zipdemo"
if command -v unzip >/dev/null; then unzip -tq "$OUT/zipdemo/run1/a/two.dat.Z"; fi
"$VX" script "$OUT/zipdemo/run2/three.dat.Z" > "$OUT/three.txt"
tail -n 2 "$OUT/three.txt"
