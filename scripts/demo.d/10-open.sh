# Open the bundled transient and print its header and sample statistics.
set -euo pipefail
"$VX" info "$SAMPLE"
# The same file packed as a .Z archive opens the same way.
cp "$SAMPLE" "$OUT/sample.dat"
"$VX" zip --overwrite "$OUT/sample.dat"
"$VX" info --json "$OUT/sample.dat.Z" | head -n 12
