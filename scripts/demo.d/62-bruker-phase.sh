# Absorption mode on the real apex/solariX acquisition (when present): the
# chirp from its method folder (EXC_low/EXC_hi, L_31 steps of P_3 us, 1 us and
# the pre-scan delay DE before detection) with the rate and delay searched on
# the spectrum around it, and the method's curve as it stands; the widths of the 10 tallest lines in magnitude and in
# absorption (same transform: 3 zero-fills, no window).
set -euo pipefail
acq="$PWD/../shared/data/bruker/histonepeptide_ms2_000002.d"
if [ ! -f "$acq/fid" ]; then
  echo "no real Bruker data in ../shared/data; step skipped"
  exit 0
fi
"$VX" phase "$acq" --zerofills 3 --widths 10 -o "$OUT/bruker_absorption.csv" 2>/dev/null
"$VX" phase "$acq" --zerofills 3 --widths 10 --chirp-seek none --json 2>/dev/null |
  grep -E '"(excitation|sweep_rate|delay_s|coherence|method_coherence|median_width_ratio)"'
