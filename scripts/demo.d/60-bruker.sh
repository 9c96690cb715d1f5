# A real instrument's data: the apex/solariX acquisition of a histone peptide
# MS/MS in ../shared/data (when present). Its record, the processed spectrum,
# the peak list between the excitation limits, the instrument's law at the
# precursor, a round trip through an XMASS directory, and its spectrum picture
# next to the simulated one.
set -euo pipefail
acq="$PWD/../shared/data/bruker/histonepeptide_ms2_000002.d"
if [ ! -f "$acq/fid" ]; then
  echo "no real Bruker data in ../shared/data; step skipped"
  exit 0
fi
"$VX" info "$acq" | grep -E '^header\.(datacount|dbandwidth|caltype|Aterm|Bterm|Cterm|expcount|lowfreq|highfreq)|^samples|^(TD|SW_h|ML[123]|NS|EXC_low|EXC_hi|method|date):'
"$VX" process "$acq" --mz -o "$OUT/bruker_spectrum.csv"
"$VX" peaks "$acq" --sn --threshold 5 --low-mass 202 --high-mass 1450 --csv -o "$OUT/bruker_peaks.csv"
echo "strongest peaks (m/z, abundance, S/N):"
tail -n +2 "$OUT/bruker_peaks.csv" | sort -t, -k2 -g -r | head -8 | cut -d, -f1,2,6
# The precursor cluster at m/z 491 and back: the law both ways.
"$VX" convert "$acq" --point 491.0 | tail -n 2
"$VX" convert "$acq" --freq 220605.496229 | tail -n 2
# A Tulva transient written as an XMASS directory and opened again.
if [ -f "$SAMPLE" ]; then src="$SAMPLE"; else
  printf '500, 0.5\n' >"$OUT/xmass-ions.txt"
  "$VX" simulate --points 65536 -o "$OUT/xmass-source.dat" "$OUT/xmass-ions.txt"
  src="$OUT/xmass-source.dat"
fi
rm -rf "$OUT/xmass"
"$VX" xmass "$src" -o "$OUT/xmass"
"$VX" info "$OUT/xmass" | grep -E '^header\.(datacount|Aterm|Bterm|filetype)'
# The desktop program's picture of the spectrum, m/z 480 to 600.
if scripts/build release vantorix-analysis >/dev/null 2>&1; then
  export VANTORIX_HOME="$OUT/gui-home"
  mkdir -p "$VANTORIX_HOME"
  QT_QPA_PLATFORM=offscreen build/release/app/vantorix-analysis --screenshot "$OUT/gui-bruker.png" --process --mz \
    --zoom 480,600 "$acq" 2>&1 | grep -v -e XDG_RUNTIME_DIR -e 'does not support' || true
  ls -l "$OUT/gui-bruker.png"
else
  echo "desktop program not built; picture skipped"
fi
