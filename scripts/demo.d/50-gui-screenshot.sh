# The desktop program, offscreen: open the sample transient, process it, show
# it in m/z and save a picture of the main window.
set -euo pipefail
if ! scripts/build release vantorix-analysis >/dev/null 2>&1; then
  echo "desktop program not built (Qt 6 or QCustomPlot missing); step skipped"
  exit 0
fi
input="$SAMPLE"
if [ ! -f "$input" ]; then
  # No bundled sample in this tree: a simulated transient of three ions stands in.
  printf '400, 0.3, 0.05\n524.26, 0.22, 0.05\n600, 0.14, 0.05\n' >"$OUT/gui-ions.txt"
  "$VX" simulate --points 262144 --noise 0.001 -o "$OUT/gui-sample.dat" "$OUT/gui-ions.txt"
  input="$OUT/gui-sample.dat"
fi
# Settings of its own, so that the highest mass of the first m/z view can be set.
export VANTORIX_HOME="$OUT/gui-home"
run() {
  local log status=0
  log=$(QT_QPA_PLATFORM=offscreen build/release/app/vantorix-analysis "$@" 2>&1) || status=$?
  printf '%s\n' "$log" | grep -v -e XDG_RUNTIME_DIR -e 'does not support' || true
  return "$status"
}
# Full view in m/z: with HIGHMASS=0 nothing is cut, up to the guard mass of the lowest points.
run --screenshot "$OUT/gui-mz-full.png" --process --mz "$input"
# HIGHMASS=1500: the first change to m/z cuts everything above m/z 1500 off the full view.
sed -i 's/^HIGHMASS=.*/HIGHMASS=1500/' "$VANTORIX_HOME/ftmsdata.ini"
run --screenshot "$OUT/gui-mz.png" --process --mz "$input"
# Zoom Exact onto the pair at m/z 524 and 525 of the sample (524.26 of the stand-in).
run --screenshot "$OUT/gui-zoom.png" --process --mz --zoom 521,528 "$input"
# Find Peaks after the options panel: the found peaks marked and labelled with
# their m/z; labels never overlap and thin out in the full view. No HIGHMASS
# cut: the first m/z view spans the excited range and the ions beyond it.
sed -i 's/^HIGHMASS=.*/HIGHMASS=0/' "$VANTORIX_HOME/ftmsdata.ini"
run --screenshot "$OUT/gui-peaks.png" --process --mz --find-peaks "$input"
# Zoomed onto the 524/525 pair with cursors 1 and 2 across the taller peak:
# the labelled read-outs give its width and resolution, the live read-out the
# m/z, frequency and intensity under the mouse.
run --screenshot "$OUT/gui-peaks-zoom.png" --process --mz --find-peaks --zoom 521,528 --cursors 524.2,524.33 "$input"
# The peak list of the peaks step, opened as a stick spectrum.
if [ -f "$OUT/sample.pks" ]; then
  run --screenshot "$OUT/gui-peaklist.png" "$OUT/sample.pks"
fi
ls -l "$OUT"/gui-*.png
