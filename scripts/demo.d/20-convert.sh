# The calibration law of the sample: data points to m/z, masses to data points,
# and frequencies to m/z, by every array and single-point form side by side.
# Each option names what it is given; the file may come before or after.
set -euo pipefail
"$VX" convert "$SAMPLE" --point 1000 4096 8192
"$VX" convert --mz 200 500 1000 2000 "$SAMPLE"
"$VX" convert "$SAMPLE" --freq 100000 250000 --json | head -n 40
# The same law with a heterodyne reference, without a file.
"$VX" convert --no-file --point 0 1000 --detectmode 1 --reffreq 50000
