# The calibration law of the sample: data points to m/z, masses to data points,
# and frequencies to m/z, by every array and single-point form side by side.
set -euo pipefail
"$VX" convert "$SAMPLE" --mz 1000 4096 8192
"$VX" convert "$SAMPLE" --point 200 500 1000 2000
"$VX" convert "$SAMPLE" --freq 100000 250000 --json | head -n 40
# The same law with a heterodyne reference, without a file.
"$VX" convert --no-file --mz 0 1000 --detectmode 1 --reffreq 50000
